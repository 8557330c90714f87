#include "tarvo/tarvoco.h"

#include <algorithm>
#include <cstdio>

#include "optimize/boundcheck.h"
#include "optimize/optconic.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvointpnt.h"
#include "tarvo/tarvonam.h"
#include "tarvo/tarvoopt.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

struct EventHandle {
  Task* task;
  double cpu0, real0;
};

int32_t on_event(void* handle, int32_t event, const IpmInfo* info) {
  const auto* h = static_cast<const EventHandle*>(handle);
  return event_intpnt(h->task, event, info, h->cpu0, h->real0);
}
void on_text(void* handle, const char* text) {
  task_print(static_cast<const EventHandle*>(handle)->task, TRV_STREAM_LOG, "%s", text);
}
void on_name(void* handle, bool row, int32_t index, char* buffer, int32_t size) {
  const Task* task = static_cast<const EventHandle*>(handle)->task;
  std::snprintf(buffer, static_cast<std::size_t>(size), "%s", item_name(task, row ? TRV_PI_CON : TRV_PI_VAR, index));
}

ConicOptions options_of(const Task* task) {
  const int32_t* ipar = task->ipar;
  const double* dpar = task->dpar;
  ConicOptions options;
  options.presolve = ipar[TRV_IPAR_PRESOLVE_USE] != TRV_PRESOLVE_MODE_OFF;
  options.reduce = presolve_parameters(task);
  IntpntParams& par = options.intpnt;
  par.maxiter = ipar[TRV_IPAR_INTPNT_MAX_ITERATIONS];
  par.loglevel = ipar[TRV_IPAR_LOG_INTPNT] - 4;  // from level 5 on there is more than the rows
  par.tolp = dpar[TRV_DPAR_INTPNT_CO_TOL_PFEAS];
  par.told = dpar[TRV_DPAR_INTPNT_CO_TOL_DFEAS];
  par.tolgap = dpar[TRV_DPAR_INTPNT_CO_TOL_REL_GAP];
  par.tolinf = dpar[TRV_DPAR_INTPNT_CO_TOL_INFEAS];
  par.tolnear = dpar[TRV_DPAR_INTPNT_CO_TOL_NEAR_REL];
  par.psafe = dpar[TRV_DPAR_INTPNT_TOL_PSAFE];
  par.scaling = ipar[TRV_IPAR_INTPNT_SCALING] != TRV_SCALING_NONE;
  par.maxrefine = ipar[TRV_IPAR_INTPNT_MAX_NUM_REFINEMENT_STEPS];
  par.numthreads = ipar[TRV_IPAR_INTPNT_NUM_THREADS];
  par.kkt = kkt_parameters(task);
  return options;
}

void conic_items(Task* task, const ConicInfo& info) {
  intpnt_items(task, &info.ipm);
  int32_t* iinf = task->iinf;
  iinf[TRV_IINF_INTPNT_FIR_REF_ITER] = std::max(info.firstrefine, 0);
  iinf[TRV_IINF_INTPNT_NUMBLO] = info.numblo;
  iinf[TRV_IINF_INTPNT_NUMBUP] = info.numbup;
  iinf[TRV_IINF_INTPNT_NUMBFR] = info.numbfr;
  iinf[TRV_IINF_INTPNT_NUMCONE] = info.numcone;
  iinf[TRV_IINF_INTPNT_NUMCONEVAR] = info.numconevar;
  iinf[TRV_IINF_INTPNT_NUMBNDCONEVAR] = info.numbndconevar;
}

// The costs of a maximisation are negated into `costs`[numvar + numcon].
int32_t run(Task* task, const ColumnView& a, bool maximise, double* costs, EventHandle* handle) {
  const int32_t numcon = task->numcon, numvar = task->numvar;
  const SolutionView view = sol_view(task, TRV_SOL_ITR);
  const double sign = maximise ? -1.0 : 1.0;
  for (int32_t j = 0; j < numvar; ++j) costs[j] = sign * task->c[j];
  for (int32_t i = 0; i < numcon; ++i) costs[numvar + i] = sign * task->cc[i];
  for (const int32_t whichsol : {TRV_SOL_ITR, TRV_SOL_BAS, TRV_SOL_ITG}) task->sol[whichsol].defined = 0;

  ConicInfo info;
  ConicSolution solution{
      {0, 0, 0, view.skc, view.xc, view.y, view.slc, view.suc, view.skx, view.xx, view.slx, view.sux},
      view.skn,
      view.snx};
  const BoundSide rows{numcon,   task->bkc.data(), task->blc.data(), task->buc.data(),
                       view.skc, view.xc,          view.slc,         view.suc};
  const BoundSide columns{numvar,   task->bkx.data(), task->blx.data(), task->bux.data(),
                          view.skx, view.xx,          view.slx,         view.sux};
  if (opt_boundcheck(task->dpar[TRV_DPAR_PRESOLVE_TOL_X], rows, columns, view.y)) {
    std::fill_n(view.snx, numvar, 0.0);
    std::fill_n(view.skn, task->numcone, int32_t{TRV_SK_UNK});
    solution.sol.prosta = TRV_PRO_STA_PRIM_INFEAS;
    solution.sol.solsta = TRV_SOL_STA_PRIM_INFEAS_CER;
  } else {
    const ConicInput input{
        {numcon, numvar, a.ptrb, a.ptre, a.sub, a.val, sign * task->cfix, costs + numvar, costs, task->bkc.data(),
         task->blc.data(), task->buc.data(), task->bkx.data(), task->blx.data(), task->bux.data()},
        task->numcone,
        task->cones.conebegin.data(),
        task->cones.coneend.data(),
        task->cones.conetype.data(),
        task->cones.conemembers.data()};
    const IpmEvents events{handle, on_event, on_text, on_name};
    conic_optimizer(task->sys, options_of(task), input, events, &solution, &info);
  }
  if (maximise) {
    negate_duals(task, view);
    for (int32_t j = 0; j < numvar; ++j) view.snx[j] = -view.snx[j];
  }
  conic_items(task, info);
  Solution& sol = task->sol[TRV_SOL_ITR];
  sol.defined = 1;
  sol.prosta = solution.sol.prosta;
  sol.solsta = solution.sol.solsta;
  const int32_t ended = on_event(handle, CONIC_END, &info.ipm);
  return resp_rescode(task, info.ipm.resp != HOM_RESP_OK ? info.ipm.resp : ended);
}

}  // namespace

int32_t conicoptimizer(Task* task, double cpu0, double real0) {
  const double cpu1 = sysenv_cputime(), real1 = sysenv_realtime();
  const int32_t probtype = task_probtype(task);
  if (probtype != TRV_PROBTYPE_LO && probtype != TRV_PROBTYPE_CONIC)
    return report<TRV_RES_ERR_INV_OPTIMIZER>(task, task->ipar[TRV_IPAR_OPTIMIZER]);
  task->iinf[TRV_IINF_OPTIMIZER] = TRV_OPTIMIZER_CONIC;
  task->iinf[TRV_IINF_INTPNT_NUM_THREADS] = task->ipar[TRV_IPAR_INTPNT_NUM_THREADS];
  EventHandle handle{task, cpu0, real0};
  const IpmInfo nothing;
  const int32_t stop = on_event(&handle, CONIC_BEGIN, &nothing);
  if (stop != 0) return resp_rescode(task, stop);
  Array<double> costs;
  if (!costs.alloc(task->sys, static_cast<std::size_t>(task->numvar) + static_cast<std::size_t>(task->numcon)))
    return TRV_RES_ERR_SPACE;
  ColumnView a{};
  int32_t response = data_lock(task, &a);
  if (response != TRV_RES_OK) return response;
  const bool maximise = resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE;
  response = run(task, a, maximise, costs.data(), &handle);
  data_unlock(task);
  task->dinf[TRV_DINF_INTPNT_CPUTIME] = sysenv_cputime() - cpu1;
  task->dinf[TRV_DINF_INTPNT_REALTIME] = sysenv_realtime() - real1;
  return response;
}

}  // namespace tarvo
