// The dual simplex: the entry and the main loop.
#include <algorithm>

#include "simplex/dsimplex_internal.h"

namespace tarvo {

namespace {

// Events of the log.
constexpr int32_t event_begin = 42, event_setup = 43, event_setupdone = 44, event_row = 45, event_iter = 46,
                  event_end = 47;
constexpr int32_t max_phase_changes = 6, max_rejected = 20;

void call_event(DualSimplex* d, int32_t event) {
  PrimalSimplex* s = &d->s;
  simplexinfo* info = s->info;
  info->iter[SIM_DUAL] = d->iter;
  info->infiter[SIM_DUAL] = d->infiter;
  info->degiter[SIM_DUAL] = d->degiter;
  info->numbadevents[SIM_DUAL] = s->badevents;
  info->dobj = s->pobj;
  info->sumdbi = 0.0;
  info->sumpbi = s->suminf;
  info->perturbed = d->shifted;
  if (s->events->func == nullptr) return;
  const int32_t stop = s->events->func(s->events->handle, event, info);
  if (s->resp == 0) s->resp = stop;
}

void iteration_event(DualSimplex* d) {
  const int32_t freq = d->s.par->logfreq[SIM_DUAL];
  const bool row = freq > 0 && d->iter >= d->logiter + freq;
  if (!row && !d->s.events->every) return;
  if (row) {
    d->logiter = d->iter;
    psimplex_formobj(&d->s);
  }
  call_event(d, row ? event_row : event_iter);
}

void form_duals(DualSimplex* d) {
  psimplex_formy(&d->s);
  if (d->s.resp == 0) psimplex_formd(&d->s);
}

// Multipliers, reduced costs and values anew; small dual infeasibilities are mended on the way.
void recompute(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  s->recompute = false;
  form_duals(d);
  if (s->resp != 0) return;
  double sum = 0.0;
  dsimplex_mend(d, true, &sum);
  psimplex_formxb(s);
  if (s->resp != 0) return;
  dsimplex_measureall(d);
  psimplex_formobj(s);
  s->exact = s->fresh;
}

// Chooses the phase for the present basis and its reduced costs.
void enter_phase(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  d->phase = 3;
  dsimplex_putbounds(d);
  form_duals(d);
  if (s->resp != 0) return;
  double sum = 0.0;
  if (dsimplex_mend(d, false, &sum) > 0) {
    d->phase = 0;
    dsimplex_putbounds(d);
  }
  s->recompute = true;
}

// The boxed problem is solved. Its objective is minus the sum of what is left of dual infeasibility.
DsNext end_of_boxes(DualSimplex* d, int32_t* changes) {
  PrimalSimplex* s = &d->s;
  double sum = 0.0;
  for (;;) {
    d->phase = 3;
    dsimplex_putbounds(d);
    if (dsimplex_mend(d, false, &sum) == 0) {
      s->recompute = true;
      return DsNext::iterate;
    }
    if (!d->shifted) break;
    // The true costs may be dual feasible where the moved ones are not.
    dsimplex_truecosts(d);
    form_duals(d);
    if (s->resp != 0) return DsNext::finished;
  }
  // Dual infeasible, or the box gives no more: the primal tells an unbounded problem from an infeasible one.
  if (++*changes > max_phase_changes) return DsNext::primal;
  d->phase = 0;
  dsimplex_putbounds(d);
  psimplex_formxb(s);
  if (s->resp != 0) return DsNext::finished;
  dsimplex_measureall(d);
  if (dsimplex_select(d) >= 0) {
    s->recompute = true;
    return DsNext::iterate;
  }
  d->phase = 3;
  dsimplex_putbounds(d);
  psimplex_formxb(s);
  return DsNext::primal;
}

// No position is infeasible.
DsNext no_leaving(DualSimplex* d, int32_t* changes) {
  PrimalSimplex* s = &d->s;
  if (!s->exact) {
    s->refactor = !s->fresh;
    s->recompute = true;
    return DsNext::iterate;
  }
  if (d->phase == 0) return end_of_boxes(d, changes);
  if (d->shifted) {
    dsimplex_truecosts(d);
    form_duals(d);
    if (s->resp != 0) return DsNext::finished;
    s->recompute = false;
    for (int32_t j = 0; j < s->nn; ++j)
      if (ps_dualinf(s, j) > s->tols) return DsNext::primal;
  }
  s->info->prosta = s->info->solsta = 1;
  return DsNext::finished;
}

// No variable can enter: rho proves the problem infeasible, in the boxed problem it can't.
DsNext no_entering(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  if (!s->exact) {
    s->refactor = !s->fresh;
    s->recompute = true;
    return DsNext::iterate;
  }
  if (d->phase == 0) return DsNext::primal;
  // A violation that large values make by rounding proves nothing.
  const double rounding = psimplex_rounding(s);
  if (d->inf[s->leave] <= rounding * rounding && s->tolx < rounding) {
    s->tolx = rounding;
    dsimplex_measureall(d);
    return DsNext::iterate;
  }
  std::fill_n(s->y, s->m, 0.0);
  for (int32_t t = 0; t < s->rho.n; ++t) s->y[s->rho.sub[t]] = d->leaving * s->rho.val[s->rho.sub[t]];
  s->info->prosta = 4;
  s->info->solsta = 5;
  return DsNext::finished;
}

void btran_row(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  s->rhs.val[s->leave] = 1.0;
  s->rhs.sub[0] = s->leave;
  s->rhs.n = 1;
  psimplex_btran(s, &s->rho);
}

// The weight of the leaving position from its row. False when it was so wrong that another may be better.
bool check_weight(DualSimplex* d) {
  if (d->method < 3) return true;
  const PrimalSimplex* s = &d->s;
  double norm = 0.0;
  for (int32_t t = 0; t < s->rho.n; ++t) norm += s->rho.val[s->rho.sub[t]] * s->rho.val[s->rho.sub[t]];
  const double kept = d->w[s->leave];
  d->w[s->leave] = norm;
  constexpr double much = 4.0;
  return !(norm > much * kept);
}

bool pivots_agree(const DualSimplex* d) {
  const PrimalSimplex* s = &d->s;
  const double byrow = s->row.val[s->enter], bycol = s->alphaq;
  return std::fabs(byrow - bycol) <= 1e-6 * std::fabs(bycol) + 1e-9 && std::fabs(bycol) > 1e-9;
}

// A pivot that can't be trusted: a better factor, and when there is none another row for now.
DsNext reject_pivot(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  if (!s->fresh) {
    s->refactor = s->recompute = true;
    simplex_raiserelpiv(s->basis->factor);
    return DsNext::iterate;
  }
  ++s->badevents;
  d->inf[s->leave] = 0.0;
  return ++d->rejected > max_rejected ? DsNext::primal : DsNext::iterate;
}

void clear_vectors(PrimalSimplex* s) {
  for (PsVector* v : {&s->alpha, &s->rho, &s->row, &s->spike}) psimplex_clear(v);
}

void count_iteration(DualSimplex* d) {
  ++d->iter;
  d->rejected = 0;
  d->s.exact = false;
  if (d->phase == 0) ++d->infiter;
  if (std::fabs(d->theta) <= d->s.tols) ++d->degiter;
}

// One basis change.
DsNext iterate(DualSimplex* d, int32_t* changes) {
  PrimalSimplex* s = &d->s;
  s->leave = dsimplex_select(d);
  if (s->leave < 0) return no_leaving(d, changes);
  if (d->iter >= s->par->maxiter[SIM_DUAL]) {
    s->resp = SIM_RESP_ITERATIONS;
    return DsNext::finished;
  }
  btran_row(d);
  if (!check_weight(d)) return DsNext::iterate;
  d->leaving = s->bas[s->leave].x > s->bas[s->leave].up ? 1.0 : -1.0;
  psimplex_rowproduct(s, s->rho, &s->row);
  if (!dsimplex_ratio(d)) return no_entering(d);
  psimplex_ftran(s, s->enter);
  s->alphaq = s->alpha.val[s->leave];
  if (!pivots_agree(d)) return reject_pivot(d);
  dsimplex_updateweights(d);
  dsimplex_executeboundswaps(d);
  dsimplex_updatecosts(d);
  const PsBasic& out = s->bas[s->leave];
  s->toupper = d->leaving > 0.0;
  const double move = (out.x - (s->toupper ? out.up : out.lo)) / s->alphaq;
  s->dir = move < 0.0 ? -1.0 : 1.0;
  s->step = std::fabs(move);
  psimplex_updatesolution(s);
  psimplex_changebasis(s);
  for (int32_t t = 0; t < s->alpha.n; ++t) dsimplex_measure(d, s->alpha.sub[t]);
  count_iteration(d);
  return DsNext::iterate;
}

// The objective has passed the cut: true when the run ends there.
bool above_cut(const DualSimplex* d) {
  const PrimalSimplex* s = &d->s;
  return d->phase == 3 && !d->shifted && s->exact && s->par->hasupcut != 0 && s->pobj > s->par->upcut;
}

}  // namespace

DsNext dsimplex_optimize(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  int32_t changes = 0;
  enter_phase(d);
  while (s->resp == 0) {
    if (s->refactor) {
      psimplex_factor(s);
      s->recompute = true;
      if (s->resp != 0) break;
    }
    if (s->recompute) {
      recompute(d);
      if (s->resp != 0) break;
    }
    iteration_event(d);
    if (s->resp != 0) break;
    if (above_cut(d)) {
      s->resp = SIM_RESP_OBJCUT;
      break;
    }
    if (s->badevents > s->par->maxsetbacks[SIM_DUAL]) return DsNext::primal;
    const DsNext next = iterate(d, &changes);
    if (next != DsNext::iterate) return next;
    clear_vectors(s);
  }
  return DsNext::finished;
}

namespace {

// What the dual leaves to be done: true costs are in force, the basis is primal feasible or nothing is known.
void finish_by_primal(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  clear_vectors(s);
  if (d->shifted) dsimplex_truecosts(d);
  if (d->phase != 3) {
    d->phase = 3;
    dsimplex_putbounds(d);
  }
  s->method = s->par->primalselect == 0 ? PS_SE : static_cast<PsMethod>(s->par->primalselect);
  s->exactweights = s->par->primalselect == PS_SE;
  s->recompute = s->boundsmoved = true;
  s->badevents = 0;
  psimplex_optimize(s);
  psimplex_conclude(s);
  s->info->iter[SIM_PRIMAL] = s->iter;
  s->info->infiter[SIM_PRIMAL] = s->infiter;
  s->info->degiter[SIM_PRIMAL] = s->degiter;
}

}  // namespace

int32_t dsimplex_begin(DualSimplex* d, const simplexpar& par, simplexinfo* info, SimplexProblem* problem,
                       simplexbasis* basis, const SimplexEvents& events) {
  PrimalSimplex* s = &d->s;
  s->par = &par;
  s->info = info;
  s->prob = problem;
  s->basis = basis;
  s->events = &events;
  s->resp = psimplex_make(s);
  if (s->resp == 0 && !dsimplex_make(d)) s->resp = SIM_RESP_SPACE;
  s->method = PS_FULL;
  d->method = par.dualselect == 1 || par.dualselect == 2 ? 2 : par.dualselect == 3 ? 3 : 4;
  d->iter = d->startiter = d->logiter = info->iter[SIM_DUAL];
  d->infiter = info->infiter[SIM_DUAL];
  d->degiter = info->degiter[SIM_DUAL];
  return s->resp;
}

void dsimplex_setup(DualSimplex* d) {
  PrimalSimplex* s = &d->s;
  const simplexpar& par = *s->par;
  psimplex_setup(s);
  if (s->resp != 0 || par.clean != 0 || par.degen == 0 || par.haslowcut != 0 || par.hasupcut != 0) return;
  s->phase = 2;
  for (int32_t i = 0; i < s->m; ++i) s->bas[i].c = s->cost[s->head[i]];
  form_duals(d);
  dsimplex_perturbinit(d);
}

int32_t simplex_dualoptimizer(sysenv* env, const simplexpar& par, simplexinfo* info, SimplexProblem* problem,
                              simplexbasis* basis, const SimplexEvents& events) {
  DualSimplex state(env);
  DualSimplex* d = &state;
  PrimalSimplex* s = &d->s;
  simplexpar own = par;
  own.primalcrash = 100;  // the start of the dual is the basis of logicals
  info->resp = info->prosta = info->solsta = 0;
  const double start = sysenv_cputime();
  if (dsimplex_begin(d, own, info, problem, basis, events) == SIM_RESP_SPACE) return info->resp = SIM_RESP_SPACE;
  lu* factor = basis->factor;
  const int32_t maxupd = lu_gettrh(factor, LU_TRH_MAXUPD);
  if (par.refactorfreq[SIM_DUAL] > 0) lu_puttrh(factor, LU_TRH_MAXUPD, par.refactorfreq[SIM_DUAL]);
  call_event(d, event_begin);
  if (s->resp == 0) call_event(d, event_setup);
  if (s->resp == 0) dsimplex_setup(d);
  if (s->resp == 0) call_event(d, event_setupdone);
  DsNext next = DsNext::finished;
  if (s->resp == 0) next = dsimplex_optimize(d);
  const bool stopped = s->resp != 0 || info->solsta == 0;
  if (next == DsNext::primal && s->resp == 0) {
    finish_by_primal(d);
  } else if (stopped && lu_isfactored(factor)) {
    // What a limit or a stop leaves stands for the true costs and bounds.
    const int32_t resp = s->resp;
    s->resp = 0;
    clear_vectors(s);
    dsimplex_truecosts(d);
    d->phase = 3;
    dsimplex_putbounds(d);
    psimplex_formxb(s);
    psimplex_formy(s);
    s->resp = resp;
  }
  clear_vectors(s);
  psimplex_store(s);
  lu_puttrh(factor, LU_TRH_MAXUPD, maxupd);
  lu_putpivmode(factor, LU_PIVMODE_COLUMN);
  info->cputime[SIM_DUAL] += sysenv_cputime() - start;
  call_event(d, event_end);
  return info->resp = s->resp;
}

}  // namespace tarvo
