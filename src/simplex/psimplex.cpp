// The primal simplex: the entry and the main loop.
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

namespace {

// Events of the log.
constexpr int32_t event_begin = 36, event_setup = 37, event_setupdone = 38, event_row = 39, event_iter = 40,
                  event_end = 41;
constexpr int32_t max_retries = 5;  // times that barred variables get another chance at the end

void call_event(PrimalSimplex* s, int32_t event) {
  simplexinfo* info = s->info;
  info->iter[SIM_PRIMAL] = s->iter;
  info->infiter[SIM_PRIMAL] = s->infiter;
  info->degiter[SIM_PRIMAL] = s->degiter;
  info->numbadevents[SIM_PRIMAL] = s->badevents;
  info->pobj = s->pobj;
  info->sumpbi = s->suminf;
  info->perturbed = s->perturbed;
  if (s->events->func == nullptr) return;
  const int32_t stop = s->events->func(s->events->handle, event, info);
  if (s->resp == 0) s->resp = stop;
}

void iteration_event(PrimalSimplex* s) {
  const int32_t freq = s->par->logfreq[SIM_PRIMAL];
  const bool row = freq > 0 && s->iter >= s->logiter + freq;
  if (!row && !s->events->every) return;
  if (row) s->logiter = s->iter;
  call_event(s, row ? event_row : event_iter);
}

// Values and duals anew from the factor.
void recompute(PrimalSimplex* s) {
  const int32_t before = s->phase;
  const bool first = s->iter == s->startiter;
  s->recompute = false;
  psimplex_formxb(s);
  if (s->resp != 0) return;
  psimplex_countinf(s);
  if (before == 2 && s->phase == 1 && !first && !s->boundsmoved) ++s->badevents;  // feasibility lost to rounding
  s->boundsmoved = false;
  psimplex_formobj(s);
  psimplex_formy(s);
  if (s->resp == 0) psimplex_formd(s);
  s->exact = s->fresh;
}

// Takes a variable out of pricing until no other candidate is left.
void bar_variable(PrimalSimplex* s, int32_t j) {
  s->fixlist[s->numfix++] = {j, s->stat[j]};
  s->stat[j] = PS_BARRED;
  psimplex_offer(s, j);
}

void release_barred(PrimalSimplex* s) {
  for (int32_t k = 0; k < s->numfix; ++k) s->stat[s->fixlist[k].var] = s->fixlist[k].stat;
  s->numfix = 0;
  s->candvalid = false;
}

// Values from a fresh factor, unless they are. True when nothing had to be done.
bool make_exact(PrimalSimplex* s) {
  if (s->exact) return true;
  s->refactor = !s->fresh;
  s->recompute = true;
  return false;
}

// The dual tolerance of the last iterations: many small reduced costs can hide more of the objective than the caller
// would accept, but below the noise of the multipliers there is nothing to find.
double tight_tols(const PrimalSimplex* s) {
  double largest = 0.0;
  for (int32_t i = 0; i < s->m; ++i) largest = std::max(largest, std::fabs(s->y[i]));
  return std::max({std::min(s->par->tols[SIM_PRIMAL], 1e-14 * largest), s->noise, 1e-9});
}

// No candidate is left. True when the run is final.
bool no_candidate(PrimalSimplex* s) {
  if (!make_exact(s)) return false;
  if (s->numfix > 0 && s->retries < max_retries) {
    ++s->retries;
    s->tolpiv = std::max(1e-12, 0.1 * s->tolpiv);
    release_barred(s);
    return false;
  }
  if (s->phase == 1) {
    double largest = 0.0;
    for (int32_t i = 0; i < s->m; ++i)
      largest = std::max({largest, s->bas[i].lo - s->bas[i].x, s->bas[i].x - s->bas[i].up});
    if (s->perturbed) {
      psimplex_removeperturb(s);
      return false;
    }
    const double tolx = std::max(s->par->tolx[SIM_PRIMAL], psimplex_rounding(s));
    if (largest <= tolx && s->tolx < tolx) {
      s->tolx = tolx;
      s->recompute = s->boundsmoved = true;
      return false;
    }
    if (s->tols > tight_tols(s)) {  // a last look before the problem is called infeasible
      s->tols = tight_tols(s);
      s->candvalid = false;
      return false;
    }
    s->info->prosta = 4;
    s->info->solsta = 5;
    return true;
  }
  if (s->perturbed) {
    psimplex_removeperturb(s);
    return false;
  }
  if (s->tols > tight_tols(s)) {
    s->tols = tight_tols(s);
    s->candvalid = false;
    return false;
  }
  if (psimplex_rmsuperbasics(s) > 0) {
    s->recompute = true;
    return false;
  }
  // An offered optimum that lies above the upper cut is known to do so without a step.
  if (s->par->hasupcut != 0 && s->par->clean != 0 && s->iter == s->startiter && s->pobj > s->par->upcut) {
    s->resp = SIM_RESP_OBJCUT;
    return true;
  }
  s->info->prosta = 1;
  s->info->solsta = 1;
  return true;
}

// Nothing blocks the entering variable. True when the run is final: a ray.
bool no_blocking(PrimalSimplex* s) {
  if (!make_exact(s)) return false;
  if (s->perturbed) {
    psimplex_removeperturb(s);
    return false;
  }
  if (s->phase == 1) {
    // The sum of infeasibilities can't fall for ever: the pivots are too small.
    ++s->badevents;
    if (s->tolpiv > 1e-12) {
      s->tolpiv = std::max(1e-12, 0.1 * s->tolpiv);
    } else {
      s->resp = SIM_RESP_NOPROGRESS;
    }
    return false;
  }
  s->info->prosta = 5;
  s->info->solsta = 6;
  return true;
}

// Reduced costs of the present size mean nothing: they are noise of the multipliers.
void raise_noise(PrimalSimplex* s) {
  constexpr double largest = 1e-2;
  s->noise = std::min(std::max(10.0 * s->tols, s->noise), largest);
  if (s->noise >= largest) ++s->badevents;
  s->tols = std::max(s->tols, s->noise);
  s->candvalid = false;
}

// The reduced cost of the entering variable from its column, which is exact up to the factor. False when the variable
// is no candidate after all or everything has to be computed anew.
bool check_reduced_cost(PrimalSimplex* s) {
  const int32_t q = s->enter;
  double comp = s->phase == 2 ? s->cost[q] : 0.0;
  for (int32_t t = 0; t < s->alpha.n; ++t) {
    const int32_t i = s->alpha.sub[t];
    comp -= s->bas[i].c * s->alpha.val[i];
  }
  const double kept = s->d[q];
  const double size = std::max(std::fabs(comp), std::fabs(kept));
  s->d[q] = comp;
  psimplex_offer(s, q);
  if (comp * 0.0 != 0.0) {
    s->resp = SIM_RESP_NUMERIC;
    return false;
  }
  if (std::fabs(comp - kept) > 0.1 * size && size > s->tols) {
    if (!s->exact) {
      if (!s->fresh && size > 1e3 * s->tols) ++s->badevents;
      make_exact(s);
      return false;
    }
    raise_noise(s);
    return false;
  }
  // A wrong sign or nearly nothing left: out of the race with its true value.
  return (comp > 0.0) == (kept > 0.0) && std::fabs(comp) > s->tols;
}

void clear_vectors(PrimalSimplex* s) {
  for (PsVector* v : {&s->alpha, &s->rho, &s->row, &s->aux, &s->auxrow, &s->spike}) psimplex_clear(v);
}

void bound_flip(PrimalSimplex* s) {
  const int32_t q = s->enter;
  psimplex_updatesolution(s);
  s->stat[q] = s->dir > 0.0 ? PS_UPPER : PS_LOWER;
  s->x[q] = s->dir > 0.0 ? s->up[q] : s->lo[q];
  if (s->phase == 1 && s->numinf == 0) {
    s->recompute = true;
  } else {
    psimplex_updateduals(s);
    for (int32_t t = 0; t < s->auxrow.n; ++t) psimplex_offer(s, s->auxrow.sub[t]);
    psimplex_offer(s, q);
  }
}

// A basis change. False when the pivot is not good enough and the iteration is to be tried again.
bool pivot(PrimalSimplex* s) {
  const double size = std::fabs(s->alphaq);
  constexpr double small = 1e-7;
  const bool agree = psimplex_pivotrow(s);
  if (!agree || size < small) {
    if (!s->fresh) {
      s->refactor = true;
      s->recompute = true;
      if (!agree) simplex_raiserelpiv(s->basis->factor);
      return false;
    }
    if (!agree || s->retries < max_retries) {
      ++s->badevents;
      bar_variable(s, s->enter);
      return false;
    }
  }
  const int32_t p = s->head[s->leave];
  psimplex_updateweights(s);
  psimplex_updatesolution(s);
  const bool feasible = s->phase == 1 && s->numinf == 0;
  if (!feasible) psimplex_updateduals(s);
  psimplex_changebasis(s);
  if (feasible) {
    s->recompute = true;
  } else {
    for (int32_t t = 0; t < s->row.n; ++t) psimplex_offer(s, s->row.sub[t]);
    for (int32_t t = 0; t < s->auxrow.n; ++t) psimplex_offer(s, s->auxrow.sub[t]);
    psimplex_offer(s, p);
    psimplex_offer(s, s->enter);
  }
  if (s->badweights > 3 && !s->exactweights) psimplex_resetweights(s);
  return true;
}

void count_iteration(PrimalSimplex* s) {
  ++s->iter;
  s->exact = false;
  if (s->phase == 1) ++s->infiter;
  constexpr double degenerate = 1e-12;
  if (s->step <= degenerate) {
    ++s->degiter;
    ++s->windowdeg;
  }
}

// Another order of the candidates of equal merit, so that a cycle of degenerate steps is left sooner or later.
void shuffle_weights(PrimalSimplex* s) {
  for (int32_t j = 0; j < s->nn; ++j) s->w[j] *= 1.0 + simplex_rand(&s->info->seed);
  s->candvalid = false;
}

// Looks back over a stretch of iterations. Mostly degenerate steps: the bounds are perturbed, or, when they may not be
// and nothing is gained at all, the weights. No gain although the steps are long: the reduced costs that led them are
// rounding errors, and two columns may take turns for ever.
void watch_progress(PrimalSimplex* s) {
  const PsDegenRule rule = psimplex_degenrule(s->par->degen);
  const int64_t window = std::clamp<int64_t>(s->m / 2, 300, std::min<int64_t>(rule.patience, 1500));
  if (s->iter < s->windowiter + window || s->iter < s->startiter + rule.patience) return;
  const double steps = static_cast<double>(s->iter - s->windowiter), degenerate = static_cast<double>(s->windowdeg);
  const double objective = s->phase == 1 ? s->suminf : s->pobj;
  constexpr double relative = 1e-11;
  const bool gains =
      s->phase != s->windowphase || objective < s->windowobj - relative * std::max(1.0, std::fabs(s->windowobj));
  s->windowiter = s->iter;
  s->windowdeg = 0;
  s->windowphase = s->phase;
  s->windowobj = objective;
  if (degenerate > rule.stall * steps && psimplex_perturb(s)) return;
  if (gains) return;
  constexpr double mostly = 0.6;
  if (degenerate > mostly * steps) {
    shuffle_weights(s);
  } else {
    ++s->badevents;
    raise_noise(s);
  }
}

// The objective has passed the cut. True when the run ends there.
bool below_cut(PrimalSimplex* s) {
  if (s->phase != 2 || s->par->haslowcut == 0 || !(s->pobj < s->par->lowcut)) return false;
  if (!make_exact(s)) return false;
  if (s->perturbed) {
    psimplex_removeperturb(s);
    s->allowperturb = false;
    return false;
  }
  s->resp = SIM_RESP_OBJCUT;
  return true;
}

}  // namespace

void psimplex_optimize(PrimalSimplex* s) {
  psimplex_resetweights(s);
  s->windowiter = s->logiter = s->iter;
  while (s->resp == 0) {
    if (s->refactor) {
      psimplex_factor(s);
      s->recompute = true;
      if (s->resp != 0) return;
    }
    if (s->recompute) {
      recompute(s);
      if (s->resp != 0) return;
    }
    iteration_event(s);
    if (s->resp != 0 || below_cut(s)) return;
    if (s->recompute || s->refactor) continue;
    if (s->badevents > s->par->maxsetbacks[SIM_PRIMAL]) {
      s->resp = SIM_RESP_SETBACKS;
      return;
    }
    watch_progress(s);
    if (s->recompute) continue;

    s->enter = psimplex_select(s);
    if (s->enter < 0) {
      if (no_candidate(s)) return;
      continue;
    }
    if (s->iter >= s->par->maxiter[SIM_PRIMAL]) {
      s->resp = SIM_RESP_ITERATIONS;
      return;
    }
    psimplex_ftran(s, s->enter);
    if (check_reduced_cost(s)) {
      s->dir = s->d[s->enter] < 0.0 ? 1.0 : -1.0;
      bool moved = true;
      if (!psimplex_stepsize(s)) {
        if (no_blocking(s)) return;  // alpha stays: it is the ray
        moved = false;
      } else if (s->flip) {
        bound_flip(s);
      } else {
        moved = pivot(s);
      }
      if (moved) count_iteration(s);
    }
    clear_vectors(s);
  }
}

namespace {

// The direction of an unbounded improvement: x_q moves by dir, the basics by -dir alpha, all others stand.
void store_ray(PrimalSimplex* s) {
  std::fill(s->x, s->x + s->nn, 0.0);
  for (int32_t i = 0; i < s->m; ++i) s->bas[i].x = -s->dir * s->alpha.val[i];
  s->x[s->enter] = s->dir;
}

}  // namespace

void psimplex_conclude(PrimalSimplex* s) {
  // What a limit or a stop leaves stands for the true bounds, too.
  if (s->perturbed) psimplex_removeperturb(s);
  if (s->info->solsta == 6) {
    store_ray(s);
  } else if (s->m > 0 && lu_isfactored(s->basis->factor) && !s->exact) {
    const int32_t resp = s->resp;
    s->resp = 0;
    recompute(s);
    s->resp = resp;
  }
  clear_vectors(s);
}

int32_t simplex_primaloptimizer(sysenv* env, const simplexpar& par, simplexinfo* info, SimplexProblem* problem,
                                simplexbasis* basis, const SimplexEvents& events) {
  PrimalSimplex state(env);
  PrimalSimplex* s = &state;
  s->par = &par;
  s->info = info;
  s->prob = problem;
  s->basis = basis;
  s->events = &events;
  info->resp = info->prosta = info->solsta = 0;
  const double start = sysenv_cputime();
  s->resp = psimplex_make(s);
  if (s->resp != 0) return info->resp = s->resp;
  s->method = par.primalselect == 0 ? PS_SE : static_cast<PsMethod>(par.primalselect);
  s->exactweights = par.primalselect == PS_SE;

  lu* factor = basis->factor;
  const int32_t maxupd = factor != nullptr ? lu_gettrh(factor, LU_TRH_MAXUPD) : 0;
  if (factor != nullptr && par.refactorfreq[SIM_PRIMAL] > 0)
    lu_puttrh(factor, LU_TRH_MAXUPD, par.refactorfreq[SIM_PRIMAL]);
  call_event(s, event_begin);
  if (s->resp == 0) call_event(s, event_setup);
  if (s->resp == 0) psimplex_setup(s);
  if (s->resp == 0) call_event(s, event_setupdone);
  if (s->resp == 0) psimplex_optimize(s);

  psimplex_conclude(s);
  psimplex_store(s);
  if (factor != nullptr) {
    lu_puttrh(factor, LU_TRH_MAXUPD, maxupd);
    lu_putpivmode(factor, LU_PIVMODE_COLUMN);
  }
  info->cputime[SIM_PRIMAL] += sysenv_cputime() - start;
  call_event(s, event_end);
  return info->resp = s->resp;
}

}  // namespace tarvo
