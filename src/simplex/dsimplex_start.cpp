// Bounds and costs of the dual simplex: the boxes of phase 0, the true bounds, perturbed costs.
#include <algorithm>

#include "simplex/dsimplex_internal.h"

namespace tarvo {

bool dsimplex_make(DualSimplex* d) {
  const auto m = static_cast<std::size_t>(d->s.m), nn = static_cast<std::size_t>(d->s.nn);
  Workspace& ws = d->block;
  ws.add(&d->w, m);
  ws.add(&d->inf, m, Fill::zero);
  ws.add(&d->list, m);
  ws.add(&d->on, m, Fill::zero);
  ws.add(&d->cost0, nn);
  ws.add(&d->tau.val, m, Fill::zero);
  ws.add(&d->tau.sub, m);
  ws.add(&d->breaks, nn);
  ws.add(&d->flips, nn);
  if (!ws.commit()) return false;
  std::copy_n(d->s.cost, nn, d->cost0);
  std::fill_n(d->w, m, 1.0);
  return true;
}

void dsimplex_truecosts(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  std::copy_n(d->cost0, s->nn, s->cost);
  for (int32_t i = 0; i < s->m; ++i) s->bas[i].c = s->cost[s->head[i]];
  d->shifted = false;
  s->recompute = true;
}

// Every cost moves by its own small amount in the direction that keeps or makes its variable dual feasible, so that few
// ratios tie.
void dsimplex_perturbinit(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  constexpr double relative = 5e-5;
  double sum = 0.0, largest = 0.0;
  int32_t count = 0;
  for (int32_t j = 0; j < s->nn; ++j) {
    const double c = std::fabs(s->cost[j]);
    if (c <= 1e-10 || s->lo0[j] >= s->up0[j]) continue;
    sum += c;
    largest = std::max(largest, c);
    ++count;
  }
  const double average = count > 0 ? std::min(sum / count, 1e3) : 1.0;
  double p = relative;
  if (s->par->degen == 2) p *= 10.0;  // aggressive
  if (s->par->degen == 4) p *= 0.01;  // minimum
  for (int32_t j = 0; j < s->nn; ++j) {
    const bool low = s->lo0[j] != -simplex_inf, upp = s->up0[j] != simplex_inf;
    const double r = simplex_rand(&s->info->seed);
    if (s->lo0[j] >= s->up0[j] || (!low && !upp)) continue;
    const double c = std::fabs(s->cost[j]);
    if (c > 1e6) continue;
    const double move = p * (std::min(c, 1e3) + average) * (0.5 + r);
    const bool down = low && upp ? s->d[j] < 0.0 : !low;
    s->cost[j] += down ? -move : move;
  }
  for (int32_t i = 0; i < s->m; ++i) s->bas[i].c = s->cost[s->head[i]];
  d->shifted = true;
}

namespace {

void box(const PrimalSimplex* s, int32_t j, double* lo, double* up) {
  const bool low = s->lo0[j] != -simplex_inf, upp = s->up0[j] != simplex_inf;
  *lo = low ? 0.0 : -1.0;
  *up = upp ? 0.0 : 1.0;
}

}  // namespace

void dsimplex_putbounds(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  for (int32_t j = 0; j < s->nn; ++j) {
    if (d->phase == 0) {
      box(s, j, &s->lo[j], &s->up[j]);
    } else {
      s->lo[j] = s->lo0[j];
      s->up[j] = s->up0[j];
    }
    if (s->stat[j] == PS_BASIC) continue;
    const double lo = s->lo[j], up = s->up[j];
    const bool low = lo != -simplex_inf, upp = up != simplex_inf;
    PsStat stat = PS_SUPER;
    if (lo >= up) {
      stat = PS_FIXED;
    } else if (low && upp) {
      // At the side that the reduced cost wants; without a wish, where it stands, or at the side of a true bound.
      const bool keep_upper = d->phase == 0 ? s->up0[j] != simplex_inf : s->stat[j] == PS_UPPER;
      stat = s->d[j] > 0.0 ? PS_LOWER : s->d[j] < 0.0 ? PS_UPPER : keep_upper ? PS_UPPER : PS_LOWER;
    } else if (low || upp) {
      stat = low ? PS_LOWER : PS_UPPER;
    }
    s->stat[j] = stat;
    s->x[j] = stat == PS_UPPER ? up : stat == PS_SUPER ? 0.0 : lo;
  }
  for (int32_t i = 0; i < s->m; ++i) {
    s->bas[i].lo = s->lo[s->head[i]];
    s->bas[i].up = s->up[s->head[i]];
    s->bas[i].c = s->cost[s->head[i]];
  }
  s->phase = 2;  // the costs count in the multipliers
  psimplex_formacolt(s);
}

int32_t dsimplex_mend(DualSimplex* d, bool shift, double* sum) {
  PrimalSimplex* s = &d->s;
  int32_t count = 0;
  *sum = 0.0;
  for (int32_t j = 0; j < s->nn; ++j) {
    const double wrong = ps_dualinf(s, j);
    if (!(wrong > s->tols)) continue;
    if (s->lo[j] != -simplex_inf && s->up[j] != simplex_inf) {
      const bool upper = s->stat[j] == PS_LOWER;
      s->stat[j] = upper ? PS_UPPER : PS_LOWER;
      s->x[j] = upper ? s->up[j] : s->lo[j];
    } else if (shift) {
      s->cost[j] -= s->d[j];
      s->d[j] = 0.0;
      d->shifted = true;
    } else {
      ++count;
      *sum += wrong;
    }
  }
  return count;
}

}  // namespace tarvo
