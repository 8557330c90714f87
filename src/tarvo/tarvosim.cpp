#include "tarvo/tarvosim.h"

#include <algorithm>
#include <cstdio>

#include "optimize/boundcheck.h"
#include "simplex/simplex.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvointpnt.h"
#include "tarvo/tarvonam.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

constexpr int32_t event_begin = 32, event_end = 33;  // of the log
// The modes of start that simplexpar.clean takes from a stored basic solution.
constexpr int32_t start_cold = 0, start_primal = 4, start_dual = 5, start_known = 6;

struct EventHandle {
  Task* task;
  double cpu0, real0;
};

int32_t on_event(void* handle, int32_t event, const simplexinfo* info) {
  const auto* h = static_cast<const EventHandle*>(handle);
  return event_simplex(h->task, event, info, h->cpu0, h->real0);
}

void on_text(void* handle, const char* text) {
  task_print(static_cast<const EventHandle*>(handle)->task, TRV_STREAM_LOG, "%s", text);
}

void on_name(void* handle, bool row, int32_t index, char* buffer, int32_t size) {
  const Task* task = static_cast<const EventHandle*>(handle)->task;
  std::snprintf(buffer, static_cast<std::size_t>(size), "%s", item_name(task, row ? TRV_PI_CON : TRV_PI_VAR, index));
}

int32_t start_mode(const Task* task) {
  const int32_t hotstart = task->ipar[TRV_IPAR_SIM_HOTSTART];
  if (hotstart == TRV_SIM_HOTSTART_NONE || !sol_defined(task, TRV_SOL_BAS)) return start_cold;
  const int32_t solsta = task->sol[TRV_SOL_BAS].solsta;
  if (solsta == TRV_SOL_STA_PRIM_FEAS || hotstart == TRV_SIM_HOTSTART_STATUS_KEYS) return start_primal;
  return solsta == TRV_SOL_STA_DUAL_FEAS ? start_dual : start_known;
}

simplexpar parameters(const Task* task, int32_t optimizer, bool maximise) {
  const int32_t* ipar = task->ipar;
  const double* dpar = task->dpar;
  // The optimisers' own numbers of a pricing rule (TRV_SIM_SELECTION_) and a scaling (TRV_SCALING_).
  static constexpr int32_t selection[] = {0, 2, 3, 5, 4, 1};
  static constexpr int32_t scaling[] = {0, 1, 3, 4};
  simplexpar par{};
  par.optimizer = optimizer == TRV_OPTIMIZER_PRIMAL_SIMPLEX ? 1 : optimizer == TRV_OPTIMIZER_DUAL_SIMPLEX ? 2 : 0;
  par.clean = start_mode(task);
  par.degen = ipar[TRV_IPAR_SIM_DEGEN];
  par.scaling = scaling[ipar[TRV_IPAR_SIM_SCALING]];
  par.solveform = ipar[TRV_IPAR_SIM_SOLVE_FORM];
  par.switchopt = ipar[TRV_IPAR_SIM_SWITCH_OPTIMIZER];
  // Left free, the presolve serves whoever lets the simplex build its own start.
  constexpr int32_t crash_of_own = 50;
  const int32_t presolve = ipar[TRV_IPAR_PRESOLVE_USE];
  par.presolve = presolve == TRV_PRESOLVE_MODE_FREE ? ipar[TRV_IPAR_SIM_PRIMAL_CRASH] > crash_of_own : presolve;
  par.reduce = presolve_parameters(task);
  par.hotstartstatus = ipar[TRV_IPAR_SIM_HOTSTART] == TRV_SIM_HOTSTART_STATUS_KEYS ? 1 : 0;
  par.primalcrash = ipar[TRV_IPAR_SIM_PRIMAL_CRASH];
  par.primalselect = selection[ipar[TRV_IPAR_SIM_PRIMAL_SELECTION]];
  par.dualselect = selection[ipar[TRV_IPAR_SIM_DUAL_SELECTION]];
  std::fill_n(par.maxiter, SIM_NUM_OPTIMIZERS, ipar[TRV_IPAR_SIM_MAX_ITERATIONS]);
  std::fill_n(par.maxsetbacks, SIM_NUM_OPTIMIZERS, ipar[TRV_IPAR_SIM_MAX_NUM_SETBACKS]);
  std::fill_n(par.refactorfreq, SIM_NUM_OPTIMIZERS, ipar[TRV_IPAR_SIM_REFACTOR_FREQ]);
  std::fill_n(par.tolx, SIM_NUM_OPTIMIZERS, dpar[TRV_DPAR_BASIS_TOL_X]);
  std::fill_n(par.tols, SIM_NUM_OPTIMIZERS, dpar[TRV_DPAR_BASIS_TOL_S]);
  std::fill_n(par.tolpiv, SIM_NUM_OPTIMIZERS, dpar[TRV_DPAR_SIMPLEX_ABS_TOL_PIV]);
  std::fill_n(par.logfreq, SIM_NUM_OPTIMIZERS, ipar[TRV_IPAR_LOG_SIM_FREQ]);

  // A cut is active on the finite side of its threshold. The optimisers minimise: a maximisation turns both round.
  par.haslowcut = dpar[TRV_DPAR_LOWER_OBJ_CUT] > dpar[TRV_DPAR_LOWER_OBJ_CUT_FINITE_TRH] ? 1 : 0;
  par.hasupcut = dpar[TRV_DPAR_UPPER_OBJ_CUT] < dpar[TRV_DPAR_UPPER_OBJ_CUT_FINITE_TRH] ? 1 : 0;
  par.lowcut = dpar[TRV_DPAR_LOWER_OBJ_CUT];
  par.upcut = dpar[TRV_DPAR_UPPER_OBJ_CUT];
  if (maximise) {
    std::swap(par.haslowcut, par.hasupcut);
    std::swap(par.lowcut, par.upcut);
    par.lowcut = -par.lowcut;
    par.upcut = -par.upcut;
  }
  return par;
}

// Runs the optimisers on a locked matrix. The objective of a maximisation is negated into `costs`[numvar + numcon].
int32_t run_simplex(Task* task, int32_t optimizer, const ColumnView& a, bool maximise, double* costs,
                    simplexbasis* basis, double cpu0, double real0) {
  const int32_t numcon = task->numcon, numvar = task->numvar;
  const SolutionView view = sol_view(task, TRV_SOL_BAS);
  EventHandle handle{task, cpu0, real0};
  const SimplexEvents events{&handle, on_event, events_wanted(task), on_text, on_name};
  simplexinfo info{};
  info.timestart = sysenv_cputime();
  const simplexpar par = parameters(task, optimizer, maximise);
  // The start is read: from here on no stored solution counts until this run has written its own.
  for (const int32_t whichsol : {TRV_SOL_ITR, TRV_SOL_BAS, TRV_SOL_ITG}) task->sol[whichsol].defined = 0;

  const BoundSide rows{numcon,   task->bkc.data(), task->blc.data(), task->buc.data(),
                       view.skc, view.xc,          view.slc,         view.suc};
  const BoundSide columns{numvar,   task->bkx.data(), task->blx.data(), task->bux.data(),
                          view.skx, view.xx,          view.slx,         view.sux};
  if (opt_boundcheck(task->dpar[TRV_DPAR_PRESOLVE_TOL_X], rows, columns, view.y)) {
    info.prosta = TRV_PRO_STA_PRIM_INFEAS;
    info.solsta = TRV_SOL_STA_PRIM_INFEAS_CER;
    info.resp = on_event(&handle, event_begin, &info);
    const int32_t resp = on_event(&handle, event_end, &info);
    if (info.resp == SIM_RESP_OK) info.resp = resp;
  } else {
    const double sign = maximise ? -1.0 : 1.0;
    double* cx = costs;
    double* cc = costs + numvar;
    for (int32_t j = 0; j < numvar; ++j) cx[j] = sign * task->c[j];
    for (int32_t i = 0; i < numcon; ++i) cc[i] = sign * task->cc[i];
    const SimplexInput input{numcon,
                             numvar,
                             {a.ptrb, a.ptre, a.sub, a.val},
                             sign * task->cfix,
                             cc,
                             cx,
                             task->bkc.data(),
                             task->blc.data(),
                             task->buc.data(),
                             task->bkx.data(),
                             task->blx.data(),
                             task->bux.data()};
    SimplexSolution solution{view.skc, view.skx, view.xc, view.xx, view.y, view.slc, view.suc, view.slx, view.sux};
    if (maximise && par.clean != start_cold) negate_duals(task, view);
    simplex_optimize(task->sys, par, &info, input, &solution, basis, events);
  }
  if (maximise) negate_duals(task, view);
  simplex_items(task, &info);
  task->dinf[TRV_DINF_SIM_CPUTIME] = sysenv_cputime() - info.timestart;
  task->dinf[TRV_DINF_SIM_OBJ] = task->dinf[TRV_DINF_SIM_PRIMAL_OBJ];
  task->dinf[TRV_DINF_SIM_FEAS] = task->dinf[TRV_DINF_SIM_PRIMAL_FEAS];

  Solution& sol = task->sol[TRV_SOL_BAS];
  sol.defined = 1;
  sol.prosta = mapped_prosta(info.prosta);
  sol.solsta = mapped_solsta(info.solsta);
  return resp_rescode(task, info.resp);
}

}  // namespace

int32_t simplexoptimizer(Task* task, int32_t optimizer, double cpu0, double real0) {
  const bool maximise = resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE;
  const simplexinfo nothing{};
  simplex_items(task, &nothing);
  for (const int32_t item : {TRV_DINF_SIM_CPUTIME, TRV_DINF_SIM_OBJ, TRV_DINF_SIM_FEAS}) task->dinf[item] = 0.0;
  task->iinf[TRV_IINF_OPTIMIZER] = optimizer;

  Array<double> costs;
  simplexbasis basis;
  ColumnView a{};
  int32_t response = TRV_RES_OK;
  if (!costs.alloc(task->sys, static_cast<std::size_t>(task->numvar) + static_cast<std::size_t>(task->numcon)) ||
      simplex_makebasis(task->sys, task->numcon, &basis) != SIM_RESP_OK)
    response = TRV_RES_ERR_SPACE;
  if (response == TRV_RES_OK) response = data_lock(task, &a);
  if (response == TRV_RES_OK) {
    response = run_simplex(task, optimizer, a, maximise, costs.data(), &basis, cpu0, real0);
    data_unlock(task);
  }
  simplex_deletebasis(&basis);
  return response;
}

}  // namespace tarvo
