// The run of the presolve: set-up, passes of reductions until nothing worth while happens, and the count of what is
// left.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>

#include "prslv/prslv_internal.h"

namespace tarvo {

namespace {

constexpr int32_t event_begin = 23, event_step = 30, event_end = 31;
constexpr int32_t prosta_solved = 1, solsta_optimal = 1;
constexpr int32_t max_passes = 24, max_rounds = 60;

// A step with its timer. Gives the result of the step, or the hook's stop code before it.
template <class Step>
int32_t timed(prslvrun* run, PrslvTimer timer, Step step) {
  if (run->hook->func != nullptr) {
    const int32_t stop = run->hook->func(run->hook->handle, event_step, run->stat);
    if (stop != 0) return stop;
  }
  const double start = run->par->timing != 0 ? sysenv_cputime() : 0.0;
  const int32_t result = step();
  ++run->stat->calls[timer];
  if (run->par->timing != 0) run->stat->time[timer] += sysenv_cputime() - start;
  return result;
}

void count(const prslvrun* run, prslvcounts* counts) {
  const prslvprob* p = run->p;
  *counts = prslvcounts{};
  for (int32_t i = 0; i < p->numcon; ++i) ++counts->con[p->bkc[i]];
  for (int32_t j = 0; j < p->numvar; ++j) {
    ++counts->var[p->bkx[j]];
    counts->nz += run->varnz[j];
  }
  counts->activecon = p->numcon - counts->con[PRSLV_BK_FR];
  counts->activevar = p->numvar - counts->var[PRSLV_BK_FX];
}

// ---- Set-up ------------------------------------------------------------------------------------------------------

bool plan_memory(prslvrun* run) {
  const auto con = static_cast<std::size_t>(run->p->numcon), var = static_cast<std::size_t>(run->p->numvar);
  Workspace* work = run->memory;
  for (int32_t** list : {&run->connz, &run->ncilax, &run->nciuax}) work->add(list, con, Fill::zero);
  for (double** list : {&run->lax, &run->uax}) work->add(list, con, Fill::zero);
  work->add(&run->concla, con);
  work->add(&run->varnz, var, Fill::zero);
  work->add(&run->varcla, var);
  for (prslvlist* list : {&run->rows, &run->relaxrows}) {
    work->add(&list->item, con);
    work->add(&list->on, con, Fill::zero);
  }
  for (prslvlist* list : {&run->cols, &run->singles, &run->relaxcols}) {
    work->add(&list->item, var);
    work->add(&list->on, var, Fill::zero);
  }
  return work->commit();
}

// Which rows and columns the reductions may touch, and the class of the problem.
void classify(prslvrun* run) {
  const prslvprob* p = run->p;
  const prslvquad& q = p->quad;
  prslvstat* stat = run->stat;
  std::fill_n(run->concla, p->numcon, uint8_t{1});
  std::fill_n(run->varcla, p->numvar, uint8_t{1});
  const auto keep_term = [&](int32_t begin, int32_t end) {
    for (int32_t t = begin; t < end; ++t) run->varcla[q.subi[t]] = run->varcla[q.subj[t]] = 0;
  };
  if (q.objend > q.objbegin) stat->problemclass = 2;
  keep_term(q.objbegin, q.objend);
  for (int32_t i = 0; q.conbegin != nullptr && i < p->numcon; ++i) {
    if (q.conend[i] <= q.conbegin[i]) continue;
    run->concla[i] = 0;
    const bool carries_objective = p->bkc[i] == PRSLV_BK_FR && p->cc[i] == 0.0;
    stat->problemclass = std::max(stat->problemclass, carries_objective ? 2 : 3);
    keep_term(q.conbegin[i], q.conend[i]);
  }
  for (int32_t k = 0; k < p->numkeepcon; ++k) {
    const int32_t i = p->keepcon[k];
    run->concla[i] = 0;
    stat->problemclass = std::max(stat->problemclass, p->bkc[i] == PRSLV_BK_FR && p->cc[i] == 0.0 ? 4 : 5);
  }
  for (int32_t k = 0; k < p->numkeep; ++k) run->varcla[p->keepvar[k]] = 0;
}

// Empty ranges are no width or infeasible; free rows and fixed columns leave.
int32_t first_look(prslvrun* run) {
  prslvprob* p = run->p;
  const double tol = run->par->tol_x;
  int32_t result = PRSLV_OK;
  for (int32_t i = 0; i < p->numcon && result == PRSLV_OK; ++i) {
    if (p->bkc[i] != PRSLV_BK_RA || p->buc[i] - p->blc[i] > tol) continue;
    if (p->buc[i] + tol < p->blc[i]) {
      prslv_crossedbounds(run, true, i);
      return PRSLV_OK;
    }
    result = prslv_contighten(run, i);
  }
  for (int32_t j = 0; j < p->numvar && result == PRSLV_OK; ++j) {
    if (p->bkx[j] == PRSLV_BK_FX && run->p->acol->ptrb[j] < run->p->acol->ptre[j]) {
      for (int32_t t = p->acol->ptrb[j]; t < p->acol->ptre[j]; ++t) {  // not counted as live so far
        const int32_t i = p->acol->sub[t];
        if (!prslv_livecon(run, i)) continue;
        ++run->varnz[j];
        ++run->connz[i];
        run->lax[i] += p->acol->val[t] * p->blx[j];
        run->uax[i] += p->acol->val[t] * p->blx[j];
      }
      result = prslv_varfix(run, j, p->blx[j]);
    } else if (p->bkx[j] == PRSLV_BK_RA && p->bux[j] - p->blx[j] <= tol) {
      if (p->bux[j] + tol < p->blx[j]) {
        prslv_crossedbounds(run, false, j);
        return PRSLV_OK;
      }
      if (run->varcla[j] != 0) result = prslv_varfix(run, j, p->blx[j]);
    }
  }
  return result;
}

int32_t prslv_init(prslvrun* run) {
  prslvprob* p = run->p;
  if (!plan_memory(run) || !prslv_transpose(run)) return PRSLV_SPACE;
  classify(run);
  prslv_recount(run);
  count(run, &run->stat->before);
  if (run->par->use == 0) return PRSLV_OK;
  // Free rows leave before anything looks at the counts.
  int32_t result = PRSLV_OK;
  for (int32_t i = 0; i < p->numcon && result == PRSLV_OK; ++i)
    if (p->bkc[i] == PRSLV_BK_FR && run->concla[i] != 0) result = prslv_confree(run, i);
  if (result == PRSLV_OK) result = first_look(run);
  for (int32_t i = 0; i < p->numcon; ++i)
    if (prslv_livecon(run, i) && run->concla[i] != 0) prslv_listpush(&run->rows, i);
  for (int32_t j = 0; j < p->numvar; ++j) {
    if (!prslv_livevar(run, j)) continue;
    prslv_listpush(&run->cols, j);
    if (run->varnz[j] == 1) prslv_listpush(&run->singles, j);
  }
  return result;
}

// ---- Passes ------------------------------------------------------------------------------------------------------

// What is left of the problem, to judge progress.
int64_t active(const prslvrun* run) { return int64_t{run->p->numcon} + run->p->numvar - run->numfixed - run->numfreed; }

// Takes the dead elements out of both copies of the matrix when much has gone since the last time, so that walks along
// rows and columns stay as long as what lives there. Rows that no reduction may touch keep all of theirs.
void compact(prslvrun* run) {
  if (10 * active(run) > 7 * run->compacted) return;
  run->compacted = active(run);
  const prslvprob* p = run->p;
  const auto keep = [](spmat* m, int32_t k, auto live) {
    int32_t put = m->ptrb[k];
    for (int32_t t = put; t < m->ptre[k]; ++t) {
      if (!live(m->sub[t])) continue;
      m->sub[put] = m->sub[t];
      m->val[put++] = m->val[t];
    }
    m->ptre[k] = put;
  };
  for (int32_t j = 0; j < p->numvar; ++j) {
    keep(p->acol, j,
         [&](int32_t i) { return run->concla[i] == 0 || (prslv_livecon(run, i) && prslv_livevar(run, j)); });
  }
  for (int32_t i = 0; i < p->numcon; ++i) {
    if (run->concla[i] == 0) continue;
    keep(run->acolt, i, [&](int32_t j) { return prslv_livecon(run, i) && prslv_livevar(run, j); });
  }
}

// Row and column checks, then duplicates when these find nothing any more.
int32_t inner_loop(prslvrun* run, int32_t relax_mode, int32_t* doubletons) {
  int64_t seen_by_var = -1, seen_by_dup = -1;
  for (int32_t k = 0; k < max_rounds && !prslv_stopped(run); ++k) {
    compact(run);
    const int64_t before = active(run);
    int32_t result = PRSLV_OK;
    if (run->rows.count > 0 || (relax_mode == 1 && run->relaxcols.count > 0)) {
      result = timed(run, PRSLV_TIME_CHECKCON, [&] { return prslv_checkcon(run, relax_mode); });
    }
    if (result != PRSLV_OK || prslv_stopped(run) || run->par->solution_request != 0) return result;
    if (run->changes != seen_by_var) {
      result = timed(run, PRSLV_TIME_CHECKVAR, [&] { return prslv_checkvar(run, doubletons); });
      seen_by_var = run->changes;
    }
    if (result != PRSLV_OK || prslv_stopped(run)) return result;
    const bool slow = k >= 3 && 100 * (before - active(run)) <= before;
    if ((run->rows.count > 0 || run->changes != seen_by_var) && !slow) continue;
    if (run->changes == seen_by_dup || k >= max_rounds - 2) return PRSLV_OK;
    const int64_t changes = run->changes;
    result = timed(run, PRSLV_TIME_DUPCON, [&] { return prslv_checkdupcon(run); });
    if (result == PRSLV_OK && !prslv_stopped(run))
      result = timed(run, PRSLV_TIME_DUPVAR, [&] { return prslv_checkdupvar(run); });
    seen_by_dup = run->changes;
    if (result != PRSLV_OK || run->changes == changes) return result;
  }
  return PRSLV_OK;
}

int32_t passes(prslvrun* run) {
  const prslvpar& par = *run->par;
  bool dependency_due = par.lindep != 0;
  int32_t doubletons = 0;
  int64_t seen_by_eliminator = -1, last_yield = INT64_MAX;
  for (int32_t pass = 0; pass < max_passes && !prslv_stopped(run); ++pass) {
    const int64_t before = active(run);
    const int32_t relax_mode = par.relax == 0 ? 0 : pass == 0 ? 2 : 1;
    int32_t result = inner_loop(run, relax_mode, &doubletons);
    if (result != PRSLV_OK || prslv_stopped(run) || par.solution_request != 0) return result;
    const int64_t changes = run->changes;
    if (par.lindep != 0 && (dependency_due || doubletons > 0)) {
      result = timed(run, PRSLV_TIME_LINDEP, [&] { return prslv_chklinblkcon(run); });
      dependency_due = false;
      doubletons = 0;
      if (result != PRSLV_OK || prslv_stopped(run)) return result;
    }
    if (par.eliminator != 0 && run->changes != seen_by_eliminator) {
      const int64_t goal = std::min<int64_t>(run->p->numcon / 100, 100);
      const int32_t found = prslv_numdoubletons(run);
      if (last_yield == INT64_MAX || std::max<int64_t>(found, last_yield) >= std::max<int64_t>(goal, 1)) {
        const int32_t done = run->stat->eliminations + run->stat->chaincons;
        result = timed(run, PRSLV_TIME_ELIM, [&] { return prslv_eliminator(run); });
        last_yield = run->stat->eliminations + run->stat->chaincons - done;
        seen_by_eliminator = run->changes;
        if (result != PRSLV_OK || prslv_stopped(run)) return result;
      }
    }
    const bool more = run->changes != changes || run->rows.count > 0;
    if (pass >= 1 && !more) break;
    if (pass > 4 && 100 * (before - active(run)) < before) break;
  }
  return PRSLV_OK;
}

// A last look at bounds that are large or ranged: those that rows imply may go.
int32_t prslv_simplerelax(prslvrun* run) {
  const prslvprob* p = run->p;
  constexpr double large = 1e6, ratio = 100.0;
  for (int32_t j = 0; j < p->numvar; ++j) {
    const int32_t bk = p->bkx[j];
    if (run->varcla[j] == 0 || run->varnz[j] == 0 || bk == PRSLV_BK_FX || bk == PRSLV_BK_FR) continue;
    const bool low = prslv_lower(bk), upp = prslv_upper(bk);
    const double bl = low ? std::fabs(p->blx[j]) : 0.0, bu = upp ? std::fabs(p->bux[j]) : 0.0;
    if (bk != PRSLV_BK_RA && std::max(bl, bu) < large) continue;
    double lower = -DBL_MAX, upper = DBL_MAX;
    for (int32_t t = p->acol->ptrb[j]; t < p->acol->ptre[j]; ++t) {
      const int32_t i = p->acol->sub[t];
      if (!prslv_livecon(run, i) || run->concla[i] == 0) continue;
      double l = 0.0, u = 0.0;
      prslv_impliedbounds(run, i, j, p->acol->val[t], &l, &u);
      lower = std::max(lower, l);
      upper = std::min(upper, u);
    }
    bool drop_lower =
        low && lower >= p->blx[j] - run->par->tol_x && (upp ? bu <= 5.0 * bl || bu <= ratio : bl >= large);
    bool drop_upper =
        upp && upper <= p->bux[j] + run->par->tol_x && (low ? bl <= 5.0 * bu || bl <= ratio : bu >= large);
    if (drop_lower && drop_upper) (bu <= bl ? drop_upper : drop_lower) = false;
    if (!drop_lower && !drop_upper) continue;
    const int32_t result = prslv_varrelax(run, j, drop_lower, drop_upper);
    if (result != PRSLV_OK) return result;
  }
  return PRSLV_OK;
}

// Columns that have lost their last row.
int32_t prslv_emtyvariables(prslvrun* run) {
  int32_t result = PRSLV_OK;
  for (int32_t j = 0; j < run->p->numvar && result == PRSLV_OK && !prslv_stopped(run); ++j)
    if (run->varcla[j] != 0 && run->varnz[j] == 0 && prslv_livevar(run, j)) result = prslv_emptyvar(run, j);
  return result;
}

// ---- The end -----------------------------------------------------------------------------------------------------

// Nothing is left to optimise: the solution of a problem without live elements.
void solution_of_nothing(const prslvrun* run, prslvsol* s, int32_t rowkey) {
  const prslvprob* p = run->p;
  s->defined = 1;
  s->prosta = prosta_solved;
  s->solsta = solsta_optimal;
  for (int32_t i = 0; i < p->numcon; ++i) {
    s->skc[i] = rowkey;
    s->xc[i] = s->slc[i] = s->suc[i] = 0.0;
    s->y[i] = -p->cc[i];
  }
  for (int32_t j = 0; j < p->numvar; ++j) {
    s->skx[j] = PRSLV_SK_FIX;
    s->xx[j] = p->blx[j];
    s->slx[j] = std::max(p->cx[j], 0.0);
    s->sux[j] = std::max(-p->cx[j], 0.0);
  }
}

void prslv_final(prslvrun* run) {
  prslvstat* stat = run->stat;
  count(run, &stat->after);
  stat->stacksize = stat->compressedstacksize = run->p->stack.store->used;
  if (prslv_stopped(run) || run->par->use == 0 || stat->after.activecon > 0 || stat->after.activevar > 0) return;
  // Reduced costs of terms that aren't linear are for an optimizer.
  if (stat->problemclass != 1 || run->p->numkeep > 0) return;
  stat->status = prosta_solved;
  solution_of_nothing(run, run->itr, PRSLV_SK_SUPBAS);
  if (run->bas != nullptr) solution_of_nothing(run, run->bas, PRSLV_SK_BAS);
}

void print_summary(const prslvrun* run) {
  if (run->par->loglev <= 0 || run->hook->print == nullptr) return;
  const prslvstat& s = *run->stat;
  char text[160];
  const auto print = [&] { run->hook->print(run->hook->handle, text); };
  const auto line = [&](const char* name, int32_t b, int32_t a, int32_t vb, int32_t va) {
    std::snprintf(text, sizeof text, "%-6s %8d %8d %8d %8d\n", name, b, a, vb, va);
    print();
  };
  run->hook->print(run->hook->handle, "          Constraints         Variables\n");
  run->hook->print(run->hook->handle, "         Before    After   Before    After\n");
  static constexpr struct {
    const char* name;
    int32_t key;
  } kinds[] = {{"Fixed", PRSLV_BK_FX},
               {"Ranged", PRSLV_BK_RA},
               {"Lower", PRSLV_BK_LO},
               {"Upper", PRSLV_BK_UP},
               {"Free", PRSLV_BK_FR}};
  for (const auto& kind : kinds)
    line(kind.name, s.before.con[kind.key], s.after.con[kind.key], s.before.var[kind.key], s.after.var[kind.key]);
  line("Active", s.before.activecon, s.after.activecon, s.before.activevar, s.after.activevar);
  const char* status = s.status == 0   ? "undecided"
                       : s.status == 1 ? "solved"
                       : s.status == 4 ? "primal infeasible"
                                       : "dual infeasible";
  std::snprintf(text, sizeof text, "%-14s: %-s\n", "Reduce status", status);
  print();
  run->hook->print(run->hook->handle, "Reductions\n");
  const struct {
    const char* name;
    int32_t value;
  } found[] = {{"Number of forcing constraints", s.forcecon},
               {"Number of duplicate cons.", s.dupcon},
               {"Number of dou. chains", s.chains},
               {"Number of cons. rem. by dou.", s.chaincons},
               {"Number of eliminations", s.eliminations}};
  for (const auto& f : found) {
    std::snprintf(text, sizeof text, "%-40s: %-8d\n", f.name, f.value);
    print();
  }
  if (run->par->timing == 0) return;
  static constexpr const char* timers[PRSLV_NUM_TIMERS] = {"Setup", "Check con",  "Check var", "Relaxing", "Dom. var",
                                                           "Elim.", "Lin. dep.",  "Dup. con",  "Dup. var", "Summary",
                                                           "Total", "Postsolve.", "Bas. post."};
  run->hook->print(run->hook->handle, "Timing results\n");
  for (int32_t t = 0; t < PRSLV_NUM_TIMERS; ++t) {
    std::snprintf(text, sizeof text, "%-12s %8d %10.2f\n", timers[t], s.calls[t], s.time[t]);
    print();
  }
}

int32_t reduce(prslvrun* run) {
  int32_t result = timed(run, PRSLV_TIME_SETUP, [&] { return prslv_init(run); });
  if (result != PRSLV_OK) return result == PRSLV_SPACE ? PRSLV_NOTREADY : result;
  if (result == PRSLV_OK && run->par->use != 0) {
    result = passes(run);
    if (result == PRSLV_OK && !prslv_stopped(run) && run->par->solution_request == 0) {
      if (run->stat->problemclass <= 3 && run->par->relax != 0) result = prslv_simplerelax(run);
      if (result == PRSLV_OK) result = prslv_emtyvariables(run);
      if (result == PRSLV_OK && !prslv_stopped(run)) result = prslv_takesingletons(run);
    }
  }
  prslv_final(run);
  return result;
}

}  // namespace

bool prslv_transpose(prslvrun* run) {
  spmat_delete(&run->acolt);
  if (!spmat_transpose(run->p->acol, nullptr, false, &run->acolt, false)) return false;
  // The second turn sorts the columns by row.
  return spmat_transpose(run->acolt, nullptr, false, &run->p->acol, true);
}

void prslv_recount(prslvrun* run) {
  const prslvprob* p = run->p;
  std::fill_n(run->connz, p->numcon, 0);
  for (int32_t j = 0; j < p->numvar; ++j) {
    run->varnz[j] = 0;
    if (!prslv_livevar(run, j)) continue;
    for (int32_t t = p->acol->ptrb[j]; t < p->acol->ptre[j]; ++t) {
      const int32_t i = p->acol->sub[t];
      if (!prslv_livecon(run, i)) continue;
      ++run->varnz[j];
      ++run->connz[i];
    }
  }
  for (int32_t i = 0; i < p->numcon; ++i) prslv_formactivity(run, i);
}

int32_t prslv_reduce(const prslvpar& par, prslvprob* problem, prslvsol* itr, prslvsol* bas, prslvstat* stat,
                     const prslvhook& hook) {
  Workspace memory(problem->env);
  prslvrun run{};
  run.env = problem->env;
  run.p = problem;
  run.par = &par;
  run.stat = stat;
  run.hook = &hook;
  run.itr = itr;
  run.bas = bas;
  run.memory = &memory;
  run.compacted = int64_t{problem->numcon} + problem->numvar;
  itr->defined = 0;
  if (bas != nullptr) bas->defined = 0;
  const double start = sysenv_cputime();
  int32_t result = hook.func != nullptr ? hook.func(hook.handle, event_begin, stat) : PRSLV_OK;
  if (result == PRSLV_OK) result = reduce(&run);
  spmat_delete(&run.acolt);
  stat->outofspace = result == PRSLV_SPACE || result == PRSLV_NOTREADY ? 1 : 0;
  ++stat->calls[PRSLV_TIME_TOTAL];
  stat->time[PRSLV_TIME_TOTAL] += sysenv_cputime() - start;
  if (run.varnz != nullptr) print_summary(&run);
  const int32_t stop = hook.func != nullptr ? hook.func(hook.handle, event_end, stat) : PRSLV_OK;
  return result != PRSLV_OK ? result : stop;
}

}  // namespace tarvo
