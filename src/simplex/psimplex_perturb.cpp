// Perturbation of bounds against degeneracy, and its end.
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

namespace {

// Every bound of a variable that is not fixed moves outward by a random amount, so that a vertex with many tight bounds
// falls apart into simple ones.
double outward(PrimalSimplex* s, double bound, double size) {
  constexpr double large = 1e6;  // too large to be moved by so little
  const double r = simplex_rand(&s->info->seed);
  if (std::fabs(bound) >= large) return 0.0;
  return (0.5 + 0.5 * r) * size * std::max(1.0, std::fabs(bound));
}

}  // namespace

PsDegenRule psimplex_degenrule(int32_t degen) {
  switch (degen) {
    case 0:  // none
      return {2.0, 1500, 0, 0.0};
    case 2:  // aggressive
      return {0.3, 300, 3, 5e-5};
    case 3:  // moderate
      return {0.5, 800, 3, 5e-6};
    case 4:  // minimum
      return {0.9, 3000, 1, 1e-6};
    default:  // free: short runs get through their degenerate vertices faster without
      return {0.6, 1500, 3, 5e-6};
  }
}

bool psimplex_perturb(PrimalSimplex* s) {
  const PsDegenRule rule = psimplex_degenrule(s->par->degen);
  if (!s->allowperturb || s->perturbrounds >= rule.rounds || s->perturbed) return false;
  ++s->perturbrounds;
  const double p = rule.size * std::pow(10.0, s->perturbrounds - 1);
  for (int32_t j = 0; j < s->nn; ++j) {
    if (s->lo0[j] >= s->up0[j]) continue;
    if (s->lo0[j] != -simplex_inf) s->lo[j] = s->lo0[j] - outward(s, s->lo0[j], p);
    if (s->up0[j] != simplex_inf) s->up[j] = s->up0[j] + outward(s, s->up0[j], p);
    if (s->stat[j] == PS_LOWER) s->x[j] = s->lo[j];
    if (s->stat[j] == PS_UPPER) s->x[j] = s->up[j];
  }
  for (int32_t i = 0; i < s->m; ++i) {
    s->bas[i].lo = s->lo[s->head[i]];
    s->bas[i].up = s->up[s->head[i]];
  }
  s->perturbed = true;
  s->recompute = s->boundsmoved = true;
  return true;
}

void psimplex_removeperturb(PrimalSimplex* s) {
  std::copy(s->lo0, s->lo0 + s->nn, s->lo);
  std::copy(s->up0, s->up0 + s->nn, s->up);
  auto place = [s](int32_t j, PsStat stat) {
    if (stat == PS_LOWER) s->x[j] = s->lo[j];
    if (stat == PS_UPPER) s->x[j] = s->up[j];
  };
  for (int32_t j = 0; j < s->nn; ++j) place(j, s->stat[j]);
  for (int32_t k = 0; k < s->numfix; ++k) place(s->fixlist[k].var, s->fixlist[k].stat);
  for (int32_t i = 0; i < s->m; ++i) {
    s->bas[i].lo = s->lo[s->head[i]];
    s->bas[i].up = s->up[s->head[i]];
  }
  s->perturbed = false;
  s->exact = false;
  s->recompute = s->boundsmoved = true;
}

}  // namespace tarvo
