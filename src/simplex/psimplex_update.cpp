// The solves of an iteration and what changes with a step: values, reduced costs, basis, factor.
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

namespace {
constexpr double drop_result = 1e-14;  // entries of solves at or below it are dropped
constexpr double drop_btran = 1e-14;
}  // namespace

void psimplex_clear(PsVector* v) {
  for (int32_t t = 0; t < v->n; ++t) v->val[v->sub[t]] = 0.0;
  v->n = 0;
}

void psimplex_ftran(PrimalSimplex* s, int32_t var) {
  PsVector& v = s->rhs;
  auto put = [s, &v](int32_t i, double value) {
    v.val[i] = value;
    v.sub[v.n++] = i;
    s->marks[i] = 1;
  };
  v.n = 0;
  if (var < s->m) {
    put(var, -1.0);
  } else {
    const SimplexColumns& a = s->prob->a;
    for (int32_t k = a.ptrb[var - s->m]; k < a.ptre[var - s->m]; ++k) put(a.sub[k], a.val[k]);
  }
  lu* factor = s->basis->factor;
  lu_ftranl(factor, &v.n, v.val, v.sub, s->marks);
  for (int32_t t = 0; t < v.n; ++t) {
    const int32_t i = v.sub[t];
    s->spike.sub[t] = i;
    s->spike.val[i] = v.val[i];
  }
  s->spike.n = v.n;
  lu_ftranus2(0.0, drop_result, factor, v.n, v.val, v.sub, &s->alpha.n, s->alpha.val, s->alpha.sub, s->marks);
  v.n = 0;
}

void psimplex_btran(PrimalSimplex* s, PsVector* out) {
  lu_btransparse(drop_btran, drop_btran, s->basis->factor, s->rhs.n, s->rhs.val, s->rhs.sub, &out->n, out->val,
                 out->sub, s->marks);
  s->rhs.n = 0;
}

bool psimplex_pivotrow(PrimalSimplex* s) {
  s->rhs.val[s->leave] = 1.0;
  s->rhs.sub[0] = s->leave;
  s->rhs.n = 1;
  psimplex_btran(s, &s->rho);
  const int32_t q = s->enter;
  double byrow;
  if (s->method == PS_PARTIAL) {
    byrow = 0.0;
    if (q < s->m) {
      byrow = -s->rho.val[q];
    } else {
      const SimplexColumns& a = s->prob->a;
      for (int32_t k = a.ptrb[q - s->m]; k < a.ptre[q - s->m]; ++k) byrow += a.val[k] * s->rho.val[a.sub[k]];
    }
  } else {
    psimplex_rowproduct(s, s->rho, &s->row);
    byrow = s->row.val[q];
  }
  constexpr double relative = 1e-6, absolute = 1e-9;
  return std::fabs(byrow - s->alphaq) <= relative * std::fabs(s->alphaq) + absolute;
}

void psimplex_updatesolution(PrimalSimplex* s) {
  const double move = s->dir * s->step;
  s->numchanges = 0;
  if (s->phase == 2) {
    for (int32_t t = 0; t < s->alpha.n; ++t) {
      const int32_t i = s->alpha.sub[t];
      s->bas[i].x -= move * s->alpha.val[i];
    }
    s->pobj += move * s->d[s->enter];
    return;
  }
  double sum = s->suminf;
  for (int32_t t = 0; t < s->alpha.n; ++t) {
    const int32_t i = s->alpha.sub[t];
    PsBasic& b = s->bas[i];
    if (b.c != 0.0) sum -= b.c < 0.0 ? b.lo - b.x : b.x - b.up;
    b.x -= move * s->alpha.val[i];
    if (i == s->leave) {  // goes to its bound; its cost is still needed for the duals
      s->numinf -= b.c != 0.0;
      continue;
    }
    const double below = b.lo - b.x, above = b.x - b.up;
    double c = 0.0;
    if (below > s->tolx) {
      c = -1.0;
      sum += below;
    } else if (above > s->tolx) {
      c = 1.0;
      sum += above;
    }
    if (c == b.c) continue;
    s->numinf += (c != 0.0) - (b.c != 0.0);
    s->changes[s->numchanges++] = {i, c - b.c};
    b.c = c;
  }
  s->suminf = std::max(0.0, sum);
}

// d and y after the step, in the order of the derivation: the costs change first, which moves d by the row of u =
// B^-T(change) and by the leaving position's own change times alpha_r; then the pivot takes theta = d_q / alpha_q.
void psimplex_updateduals(PrimalSimplex* s) {
  const int32_t q = s->enter;
  const bool partial = s->method == PS_PARTIAL;
  double dq = s->d[q];
  const bool others = s->numchanges > 0;
  if (others) {
    for (int32_t t = 0; t < s->numchanges; ++t) {
      const PsChange& c = s->changes[t];
      s->rhs.val[c.pos] = c.delta;
      s->rhs.sub[t] = c.pos;
      dq -= c.delta * s->alpha.val[c.pos];
    }
    s->rhs.n = s->numchanges;
    psimplex_btran(s, &s->aux);
    if (partial) {
      for (int32_t t = 0; t < s->aux.n; ++t) s->y[s->aux.sub[t]] += s->aux.val[s->aux.sub[t]];
    } else {
      psimplex_rowproduct(s, s->aux, &s->auxrow);
      for (int32_t t = 0; t < s->auxrow.n; ++t) {
        const int32_t j = s->auxrow.sub[t];
        s->d[j] -= s->auxrow.val[j];
      }
    }
  }
  if (!s->flip) {
    const double own = s->phase == 1 ? -s->bas[s->leave].c : 0.0;
    const double f = dq / s->alphaq;  // = theta + own
    const double theta = f - own;
    if (partial) {
      for (int32_t t = 0; t < s->rho.n; ++t) s->y[s->rho.sub[t]] += f * s->rho.val[s->rho.sub[t]];
    } else {
      for (int32_t t = 0; t < s->row.n; ++t) {
        const int32_t j = s->row.sub[t];
        s->d[j] -= f * s->row.val[j];
      }
    }
    s->d[s->head[s->leave]] = -theta;
    s->d[q] = 0.0;
  } else if (!partial) {
    s->d[q] = dq;
  }
}

// The entering variable takes the leaving position; the factor follows.
void psimplex_changebasis(PrimalSimplex* s) {
  const int32_t q = s->enter, r = s->leave, p = s->head[r];
  const double xq = s->x[q] + s->dir * s->step;
  if (s->lo[p] >= s->up[p]) {
    s->stat[p] = PS_FIXED;
    s->x[p] = s->lo[p];
  } else {
    s->stat[p] = s->toupper ? PS_UPPER : PS_LOWER;
    s->x[p] = s->toupper ? s->up[p] : s->lo[p];
    psimplex_activate(s, p, true);
  }
  psimplex_activate(s, q, false);
  psimplex_enterbasis(s, q, r, xq);
  const int32_t result = lu_supdl(s->basis->factor, r, r, s->spike.n, s->spike.val, s->spike.sub);
  s->spike.n = 0;
  s->fresh = false;
  if (result == LU_OK) return;
  s->refactor = true;
  if (result == LU_UNSTABLE) {
    // The pivot has passed its own check by row and column: the basis stands, and the factor is built anew from it.
    ++s->badevents;
    s->recompute = true;
    simplex_raiserelpiv(s->basis->factor);
  }
}

}  // namespace tarvo
