// The steps of an iteration of the dual simplex: pricing, ratio test, bound flips, updates.
#include <algorithm>

#include "simplex/dsimplex_internal.h"

namespace tarvo {

// ---- Pricing -----------------------------------------------------------------------------------------------------

void dsimplex_measure(DualSimplex* d, int32_t pos) {
  const PsBasic& b = d->s.bas[pos];
  const double below = b.lo - b.x, above = b.x - b.up, tol = d->s.tolx;
  const double v = below > tol ? below : above > tol ? above : 0.0;
  d->inf[pos] = v * v;
  if (v > 0.0 && d->on[pos] == 0) {
    d->on[pos] = 1;
    d->list[d->numlist++] = pos;
  }
}

void dsimplex_measureall(DualSimplex* d) {
  for (int32_t k = 0; k < d->numlist; ++k) d->on[d->list[k]] = 0;
  d->numlist = 0;
  d->s.suminf = 0.0;
  for (int32_t i = 0; i < d->s.m; ++i) {
    dsimplex_measure(d, i);
    d->s.suminf += std::sqrt(d->inf[i]);
  }
}

int32_t dsimplex_select(DualSimplex* d) {
  int32_t best = -1, kept = 0;
  double score = 0.0;
  const bool weighted = d->method >= 3;
  for (int32_t k = 0; k < d->numlist; ++k) {
    const int32_t i = d->list[k];
    const double v = d->inf[i];
    if (v <= 0.0) {
      d->on[i] = 0;
      continue;
    }
    d->list[kept++] = i;
    // v / w > score without a division
    if (weighted ? v > score * d->w[i] : v > score) {
      score = weighted ? v / d->w[i] : v;
      best = i;
    }
  }
  d->numlist = kept;
  return best;
}

// ---- Ratio test --------------------------------------------------------------------------------------------------

namespace {

bool later(const DsBreak& a, const DsBreak& b) { return a.ratio > b.ratio || (a.ratio == b.ratio && a.size < b.size); }

// The nonbasic variables whose reduced cost moves towards its wrong side.
int32_t collect(DualSimplex* d, double pivot) {
  const PrimalSimplex* s = &d->s;
  int32_t n = 0;
  for (int32_t t = 0; t < s->row.n; ++t) {
    const int32_t j = s->row.sub[t];
    const double a = d->leaving * s->row.val[j];
    double cost;
    switch (s->stat[j]) {
      case PS_LOWER:
        if (a <= pivot) continue;
        cost = s->d[j];
        break;
      case PS_UPPER:
        if (a >= -pivot) continue;
        cost = -s->d[j];
        break;
      case PS_SUPER:
        if (std::fabs(a) <= pivot) continue;
        cost = 0.0;
        break;
      default:
        continue;
    }
    const double size = std::fabs(a);
    d->breaks[n++] = {std::max(cost, 0.0) / size, size, j};
  }
  return n;
}

}  // namespace

// The long step: groups of breakpoints that a relaxation of the reduced costs by delta can't tell apart are passed as
// long as the slope, the primal infeasibility of the leaving variable less what the flips take from it, stays positive.
// In the last group, or an earlier one when its pivots are much better, the largest pivot enters.
bool dsimplex_ratio(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  const double delta = 0.3 * s->tols;
  const int32_t updates = s->fresh ? 0 : lu_getnumupd(s->basis->factor);
  const double pivot = updates < 10 ? 1e-9 : updates < 20 ? 3e-8 : 1e-7;
  const int32_t n = collect(d, pivot);
  DsBreak* heap = d->breaks;
  const PsBasic& out = s->bas[s->leave];
  double slope = d->leaving > 0.0 ? out.x - out.up : out.lo - out.x;
  std::make_heap(heap, heap + n, later);

  // What is popped stands behind the heap, the last group at the lower end.
  struct Best {
    int32_t begin = 0, end = 0, at = -1;
    double size = 0.0;
  } chosen;
  int32_t left = n;
  double largest = 0.0;
  while (left > 0 && slope >= 0.0) {
    Best group;
    group.end = left;
    double limit = simplex_inf;
    while (left > 0 && heap[0].ratio <= limit) {
      std::pop_heap(heap, heap + left, later);
      const DsBreak& b = heap[--left];
      limit = std::min(limit, b.ratio + delta / b.size);
      slope -= b.size * (s->up[b.var] - s->lo[b.var]);
      if (b.size > group.size) {
        group.size = b.size;
        group.at = left;
      }
    }
    group.begin = left;
    largest = std::max(largest, group.size);
    // A later group is a longer step; a pivot that is too small for it is not worth it.
    constexpr double much = 0.01, fine = 1e-3;
    if (chosen.at < 0 || group.size >= std::min(much * largest, fine) || group.size > chosen.size) chosen = group;
  }
  d->numflips = 0;
  // All passed and the row is still infeasible: no point satisfies it.
  if (chosen.at < 0 || slope > s->tolx) return false;
  s->enter = heap[chosen.at].var;
  for (int32_t k = chosen.end; k < n; ++k) d->flips[d->numflips++] = heap[k].var;
  d->firstchosen = chosen.begin;
  d->endchosen = chosen.end;
  return true;
}

// ---- Updates -----------------------------------------------------------------------------------------------------

void dsimplex_executeboundswaps(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  if (d->numflips == 0) return;
  const SimplexColumns& a = s->prob->a;
  PsVector& v = s->rhs;
  v.n = 0;
  const auto add = [s, &v](int32_t i, double value) {
    if (s->marks[i] == 0) {
      s->marks[i] = 1;
      v.sub[v.n++] = i;
    }
    v.val[i] += value;
  };
  for (int32_t k = 0; k < d->numflips; ++k) {
    const int32_t j = d->flips[k];
    const bool upper = s->stat[j] == PS_LOWER;
    const double to = upper ? s->up[j] : s->lo[j], move = to - s->x[j];
    s->stat[j] = upper ? PS_UPPER : PS_LOWER;
    s->x[j] = to;
    if (move == 0.0) continue;
    if (j < s->m) {
      add(j, -move);
    } else {
      for (int32_t t = a.ptrb[j - s->m]; t < a.ptre[j - s->m]; ++t) add(a.sub[t], a.val[t] * move);
    }
  }
  lu* factor = s->basis->factor;
  lu_ftranl(factor, &v.n, v.val, v.sub, s->marks);
  PsVector& x = d->tau;  // free until the weights are updated
  lu_ftranus2(0.0, 1e-14, factor, v.n, v.val, v.sub, &x.n, x.val, x.sub, s->marks);
  v.n = 0;
  for (int32_t t = 0; t < x.n; ++t) {
    const int32_t i = x.sub[t];
    s->bas[i].x -= x.val[i];
    dsimplex_measure(d, i);
  }
  psimplex_clear(&x);
}

void dsimplex_updatecosts(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  const int32_t q = s->enter, p = s->head[s->leave];
  d->theta = s->d[q] / s->alphaq;
  // A step to the wrong side by rounding: the entering variable gets the cost that makes it 0.
  if (d->theta * d->leaving < 0.0) {
    s->cost[q] -= s->d[q];
    s->d[q] = d->theta = 0.0;
    d->shifted = true;
  }
  if (d->theta != 0.0)
    for (int32_t t = 0; t < s->row.n; ++t) {
      const int32_t j = s->row.sub[t];
      s->d[j] -= d->theta * s->row.val[j];
    }
  // Members of the chosen group before the entering variable are past 0 by at most the tolerance. Their costs move a
  // little further than to 0, so that they are no ties of later steps.
  for (int32_t k = d->firstchosen; k < d->endchosen; ++k) {
    const int32_t j = d->breaks[k].var;
    if (j == q || !(ps_dualinf(s, j) > 0.0)) continue;
    const double away = 10.0 * s->tols * simplex_rand(&s->info->seed);
    const double to = s->stat[j] == PS_LOWER ? away : s->stat[j] == PS_UPPER ? -away : 0.0;
    s->cost[j] += to - s->d[j];
    s->d[j] = to;
    d->shifted = true;
  }
  s->d[p] = -d->theta;
  s->d[q] = 0.0;
}

void dsimplex_updateweights(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  const int32_t r = s->leave;
  const double wr = d->w[r], pivot = s->alphaq;
  constexpr double smallest = 1e-30, largest = 1e30;
  if (d->method != 4) {
    for (int32_t t = 0; t < s->alpha.n; ++t) {
      const int32_t i = s->alpha.sub[t];
      const double f = s->alpha.val[i] / pivot;
      d->w[i] = std::min(std::max(d->w[i], f * f * wr), largest);
    }
    d->w[r] = std::max(wr / (pivot * pivot), 1.0);
    return;
  }
  PsVector& v = s->rhs;
  v.n = s->rho.n;
  for (int32_t t = 0; t < v.n; ++t) {
    const int32_t i = s->rho.sub[t];
    v.sub[t] = i;
    v.val[i] = s->rho.val[i];
    s->marks[i] = 1;
  }
  lu* factor = s->basis->factor;
  lu_ftranl(factor, &v.n, v.val, v.sub, s->marks);
  lu_ftranus2(0.0, 1e-14, factor, v.n, v.val, v.sub, &d->tau.n, d->tau.val, d->tau.sub, s->marks);
  v.n = 0;
  for (int32_t t = 0; t < s->alpha.n; ++t) {
    const int32_t i = s->alpha.sub[t];
    const double f = s->alpha.val[i] / pivot, grown = d->w[i] + f * f * wr;
    // What cancels almost wholly keeps the size of its rounding.
    d->w[i] = std::min(std::max(grown - 2.0 * f * d->tau.val[i], 1e-9 * grown), largest);
  }
  d->w[r] = std::max(wr / (pivot * pivot), smallest);
  psimplex_clear(&d->tau);
}

}  // namespace tarvo
