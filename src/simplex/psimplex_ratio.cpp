// The ratio tests: how far the entering variable can move, and what leaves the basis.
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

namespace {

// Phase 2, two passes. The first finds the largest step with every bound relaxed by delta; among the positions whose
// exact step is not larger, the second takes the largest |alpha| (the first seen wins a tie).
bool ratio_feasible(PrimalSimplex* s, double piv) {
  double relaxed = simplex_inf;
  for (int32_t t = 0; t < s->alpha.n; ++t) {
    const int32_t i = s->alpha.sub[t];
    const double a = s->dir * s->alpha.val[i];
    const PsBasic& b = s->bas[i];
    if (a > piv) {
      const double room = b.x - b.lo + s->delta;
      if (room < relaxed * a) relaxed = std::max(room, 0.0) / a;
    } else if (a < -piv) {
      const double room = b.up - b.x + s->delta;
      if (room < -relaxed * a) relaxed = std::max(room, 0.0) / -a;
    }
  }
  s->leave = -1;
  if (relaxed == simplex_inf) return false;
  double most = 0.0;
  for (int32_t t = 0; t < s->alpha.n; ++t) {
    const int32_t i = s->alpha.sub[t];
    const double a = s->dir * s->alpha.val[i];
    const double size = std::fabs(a);
    if (size <= piv || size <= most) continue;
    const PsBasic& b = s->bas[i];
    const double room = a > 0.0 ? b.x - b.lo : b.up - b.x;
    if (room > relaxed * size) continue;
    most = size;
    s->leave = i;
    s->toupper = a < 0.0;
    s->step = std::max(room, 0.0) / size;
  }
  return s->leave >= 0;
}

// Phase 1: the sum of infeasibilities is piecewise linear along the step. The step goes through breakpoints as long as
// the sum falls; among those passed, one of the last with a good pivot leaves.
bool ratio_infeasible(PrimalSimplex* s, double piv, double slope, double own) {
  int32_t n = 0;
  PsBreak* list = s->breaks;
  for (int32_t t = 0; t < s->alpha.n; ++t) {
    const int32_t i = s->alpha.sub[t];
    const double a = s->dir * s->alpha.val[i];
    const double size = std::fabs(a);
    if (size <= piv) continue;
    const PsBasic& b = s->bas[i];
    // At the near bound an infeasible one becomes feasible, behind the far one a feasible one infeasible.
    const double ahead = a > 0.0 ? b.c : -b.c;  // +1: the near bound is ahead, -1: moves away from both
    const double near = a > 0.0 ? b.x - b.up : b.lo - b.x;
    const double far = a > 0.0 ? b.x - b.lo : b.up - b.x;
    if (ahead > 0.0 && near <= own * size) list[n++] = {(near + s->delta) / size, near / size, size, i, a > 0.0};
    if (ahead >= 0.0 && far < simplex_inf && far <= own * size)
      list[n++] = {(far + s->delta) / size, std::max(far, 0.0) / size, size, i, a < 0.0};
  }
  s->leave = -1;
  s->step = simplex_inf;
  if (n == 0) return false;
  auto later = [](const PsBreak& u, const PsBreak& v) {
    return u.relaxed > v.relaxed ||
           (u.relaxed == v.relaxed && (u.size < v.size || (u.size == v.size && u.pos > v.pos)));
  };
  std::make_heap(list, list + n, later);
  int32_t end = n;  // list[end..n) has been passed, the last one first
  double most = 0.0;
  // What cancellation leaves of the slope is no fall: a long step along a flat stretch gains nothing and may be undone
  // by the next one.
  const double flat = 1e-9 * slope;
  while (end > 0) {
    std::pop_heap(list, list + end, later);
    --end;
    most = std::max(most, list[end].size);
    slope -= list[end].size;
    if (slope <= flat) break;
  }
  if (slope > flat && own < simplex_inf) return false;  // still falling at the entering variable's own bound
  const double good = 0.1 * std::min(most, 10.0);
  int32_t k = end;
  while (list[k].size < good) ++k;
  s->leave = list[k].pos;
  s->toupper = list[k].upper;
  s->step = list[k].exact;
  return true;
}

}  // namespace

bool psimplex_stepsize(PrimalSimplex* s) {
  const int32_t q = s->enter;
  double largest = 0.0;
  for (int32_t t = 0; t < s->alpha.n; ++t) largest = std::max(largest, std::fabs(s->alpha.val[s->alpha.sub[t]]));
  const double piv = std::max(s->tolpiv, 1e-11 * largest);
  s->flip = false;
  // The entering variable's room to its own bound.
  const double own = s->dir > 0.0 ? s->up[q] - s->x[q] : s->x[q] - s->lo[q];
  bool found = s->phase == 2 ? ratio_feasible(s, piv) : ratio_infeasible(s, piv, std::fabs(s->d[q]), own);
  if (own < simplex_inf && (!found || own <= s->step)) {
    s->flip = true;
    s->step = std::max(own, 0.0);
    s->leave = -1;
    found = true;
  }
  if (found && !s->flip) s->alphaq = s->alpha.val[s->leave];
  return found;
}

}  // namespace tarvo
