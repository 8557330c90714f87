// The factor and the values that follow from it: basic values, phase, multipliers, reduced costs, objective.
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

// Where a variable that is thrown out of the basis goes: the bound near its value, or it stays where it is.
void psimplex_leavebasis(PrimalSimplex* s, int32_t j, double x) {
  const double lo = s->lo[j], up = s->up[j];
  if (lo >= up) {
    s->stat[j] = PS_FIXED;
    s->x[j] = lo;
  } else if (lo == -simplex_inf && up == simplex_inf) {
    s->stat[j] = PS_SUPER;
    s->x[j] = std::isfinite(x) ? x : 0.0;
  } else if (x - lo <= up - x) {
    s->stat[j] = PS_LOWER;
    s->x[j] = lo;
  } else {
    s->stat[j] = PS_UPPER;
    s->x[j] = up;
  }
}

// Puts variable j with value x into position i.
void psimplex_enterbasis(PrimalSimplex* s, int32_t j, int32_t i, double x) {
  s->head[i] = j;
  s->stat[j] = PS_BASIC;
  s->bas[i] = {x, s->lo[j], s->up[j], s->phase == 2 ? s->cost[j] : 0.0};
}

void psimplex_factor(PrimalSimplex* s) {
  int32_t* before = reinterpret_cast<int32_t*>(s->dense1);  // the basis as it was
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::copy(s->head, s->head + s->m, before);
    int32_t numart = 0;
    s->resp = simplex_factor(s->env, s->m, s->prob->a, s->basis, &s->factorwork, &numart);
    ++s->info->numfactor;
    if (s->resp != 0) break;
    if (numart > 0) {
      for (int32_t i = 0; i < s->m; ++i) {
        if (before[i] == s->head[i]) continue;
        const int32_t in = s->head[i];
        const double value = s->x[in];
        if (ps_active(s->stat[in])) psimplex_activate(s, in, false);
        psimplex_leavebasis(s, before[i], s->bas[i].x);
        if (ps_active(s->stat[before[i]])) psimplex_activate(s, before[i], true);
        psimplex_enterbasis(s, in, i, value);
        s->w[before[i]] = 1.0;
      }
      ++s->badevents;
      simplex_raiserelpiv(s->basis->factor);
      s->recompute = true;
    }
    // Look for the cause only when there was trouble before.
    if (attempt > 0 || s->badevents == 0 || !simplex_lustability(s->basis->factor)) break;
  }
  std::fill(s->dense1, s->dense1 + s->m, 0.0);
  s->refactor = false;
  s->fresh = true;
}

void psimplex_formxb(PrimalSimplex* s) {
  const SimplexColumns& a = s->prob->a;
  double* r = s->dense1;  // r = xc - A xx
  for (int32_t i = 0; i < s->m; ++i) r[i] = s->stat[i] == PS_BASIC ? 0.0 : s->x[i];
  auto subtract = [&a, r](int32_t j, double x) {
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) r[a.sub[k]] -= a.val[k] * x;
  };
  for (int32_t j = 0; j < s->n; ++j) {
    if (s->stat[s->m + j] != PS_BASIC && s->x[s->m + j] != 0.0) subtract(j, s->x[s->m + j]);
  }
  for (int32_t i = 0; i < s->m; ++i) {
    const int32_t j = s->head[i];
    if (s->bas[i].x == 0.0) continue;
    if (j < s->m) {
      r[j] += s->bas[i].x;
    } else {
      subtract(j - s->m, s->bas[i].x);
    }
  }
  double norm = 0.0;
  for (int32_t i = 0; i < s->m; ++i) norm = std::max(norm, std::fabs(r[i]));
  if (norm > 0.0 && s->m > 0) {
    lu_ftran(s->basis->factor, r, s->dense2);
    double check = 0.0;
    for (int32_t i = 0; i < s->m; ++i) {
      s->bas[i].x += s->dense2[i];
      check += s->bas[i].x * 0.0;
    }
    if (check != 0.0) s->resp = SIM_RESP_NUMERIC;  // NaN or infinite
    std::fill(s->dense2, s->dense2 + s->m, 0.0);
  } else if (!(norm <= 0.0)) {
    s->resp = SIM_RESP_NUMERIC;
  }
  std::fill(r, r + s->m, 0.0);
}

double psimplex_rounding(const PrimalSimplex* s) {
  constexpr double unit = 1e-14;
  double largest = 0.0;
  for (int32_t i = 0; i < s->m; ++i) largest = std::max(largest, std::fabs(s->bas[i].x));
  for (int32_t j = 0; j < s->nn; ++j)
    if (s->stat[j] != PS_BASIC) largest = std::max(largest, std::fabs(s->x[j]));
  return unit * largest;
}

void psimplex_countinf(PrimalSimplex* s) {
  s->numinf = 0;
  s->suminf = 0.0;
  for (int32_t i = 0; i < s->m; ++i) {
    PsBasic& b = s->bas[i];
    b.c = 0.0;
    if (b.x < b.lo - s->tolx) {
      b.c = -1.0;
      s->suminf += b.lo - b.x;
      ++s->numinf;
    } else if (b.x > b.up + s->tolx) {
      b.c = 1.0;
      s->suminf += b.x - b.up;
      ++s->numinf;
    }
  }
  s->phase = s->numinf > 0 ? 1 : 2;
  if (s->phase == 2)
    for (int32_t i = 0; i < s->m; ++i) s->bas[i].c = s->cost[s->head[i]];
}

void psimplex_formy(PrimalSimplex* s) {
  if (s->m == 0) return;
  for (int32_t i = 0; i < s->m; ++i) s->dense1[i] = s->bas[i].c;
  lu_btran(s->basis->factor, s->dense1, s->y);
  // One refinement, where it matters.
  const SimplexColumns& a = s->prob->a;
  double norm = 0.0;
  for (int32_t i = 0; i < s->m; ++i) {
    const int32_t j = s->head[i];
    double r = s->bas[i].c;
    if (j < s->m) {
      r += s->y[j];
    } else {
      for (int32_t k = a.ptrb[j - s->m]; k < a.ptre[j - s->m]; ++k) r -= a.val[k] * s->y[a.sub[k]];
    }
    s->dense1[i] = r;
    norm = std::max(norm, std::fabs(r));
  }
  if (norm > 0.01 * s->tols) {
    lu_btran(s->basis->factor, s->dense1, s->dense2);
    for (int32_t i = 0; i < s->m; ++i) s->y[i] += s->dense2[i];
    std::fill(s->dense2, s->dense2 + s->m, 0.0);
  } else {
    std::fill(s->dense1, s->dense1 + s->m, 0.0);
  }
}

void psimplex_formd(PrimalSimplex* s) {
  const SimplexColumns& a = s->prob->a;
  const double f = s->phase == 2 ? 1.0 : 0.0;
  double check = 0.0;
  for (int32_t i = 0; i < s->m; ++i) {
    s->d[i] = s->stat[i] == PS_BASIC ? 0.0 : f * s->cost[i] + s->y[i];
    check += s->y[i] * 0.0;
  }
  for (int32_t j = 0; j < s->n; ++j) {
    const int32_t v = s->m + j;
    if (s->stat[v] == PS_BASIC || s->stat[v] == PS_FIXED) {
      s->d[v] = 0.0;
      continue;
    }
    double sum = f * s->cost[v];
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) sum -= a.val[k] * s->y[a.sub[k]];
    s->d[v] = sum;
    check += sum * 0.0;
  }
  if (check != 0.0) s->resp = SIM_RESP_NUMERIC;
  s->candvalid = false;
}

void psimplex_formobj(PrimalSimplex* s) {
  double sum = s->prob->cfix;
  for (int32_t j = 0; j < s->nn; ++j)
    if (s->stat[j] != PS_BASIC && s->cost[j] != 0.0) sum += s->cost[j] * s->x[j];
  for (int32_t i = 0; i < s->m; ++i) sum += s->cost[s->head[i]] * s->bas[i].x;
  s->pobj = sum;
  if (sum * 0.0 != 0.0) s->resp = SIM_RESP_NUMERIC;
}

}  // namespace tarvo
