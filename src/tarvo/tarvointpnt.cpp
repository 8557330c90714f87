#include "tarvo/tarvointpnt.h"

#include <algorithm>
#include <cstdio>

#include "optimize/boundcheck.h"
#include "optimize/optslv.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvonam.h"
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

HomParams hom_parameters(const Task* task, bool quadratic) {
  const int32_t* ipar = task->ipar;
  const double* dpar = task->dpar;
  HomParams par;
  par.maxiter = ipar[TRV_IPAR_INTPNT_MAX_ITERATIONS];
  par.loglevel = ipar[TRV_IPAR_LOG_INTPNT];
  par.scaling = ipar[TRV_IPAR_INTPNT_SCALING] == TRV_SCALING_NONE ? 0 : 1;
  par.tolpfeas = dpar[quadratic ? TRV_DPAR_INTPNT_NL_TOL_PFEAS : TRV_DPAR_INTPNT_TOL_PFEAS];
  par.toldfeas = dpar[quadratic ? TRV_DPAR_INTPNT_NL_TOL_DFEAS : TRV_DPAR_INTPNT_TOL_DFEAS];
  par.tolgap = dpar[TRV_DPAR_INTPNT_TOL_REL_GAP];
  par.tolinfeas = dpar[TRV_DPAR_INTPNT_TOL_INFEAS];
  par.tolnearrel = dpar[TRV_DPAR_INTPNT_NL_TOL_NEAR_REL];
  par.tolpath = dpar[TRV_DPAR_INTPNT_TOL_PATH];
  par.tolstep = dpar[TRV_DPAR_INTPNT_TOL_STEP_SIZE];
  par.psafe = dpar[TRV_DPAR_INTPNT_TOL_PSAFE];
  par.dsafe = dpar[TRV_DPAR_INTPNT_TOL_DSAFE];
  par.relstep = dpar[TRV_DPAR_INTPNT_TOL_REL_STEP];
  par.sptype = ipar[TRV_IPAR_INTPNT_STARTING_POINT] == TRV_STARTING_POINT_CONSTANT ? 1 : 0;
  par.usereg = ipar[TRV_IPAR_INTPNT_REGULARIZATION_USE] != TRV_OFF;
  par.maxcor = ipar[TRV_IPAR_INTPNT_MAX_NUM_COR];
  par.numthreads = ipar[TRV_IPAR_INTPNT_NUM_THREADS];
  constexpr int32_t times_level = 5;
  par.timing = par.loglevel >= times_level;
  par.kkt = kkt_parameters(task);
  return par;
}

IpmOptions options_of(const Task* task, bool quadratic) {
  const int32_t* ipar = task->ipar;
  IpmOptions options;
  options.presolve = ipar[TRV_IPAR_PRESOLVE_USE] != TRV_PRESOLVE_MODE_OFF;
  options.reduce = presolve_parameters(task);
  options.form.solveform = ipar[TRV_IPAR_INTPNT_SOLVE_FORM];
  options.form.densecoltrh = ipar[TRV_IPAR_INTPNT_OFF_COL_TRH];
  options.form.regularization = ipar[TRV_IPAR_INTPNT_REGULARIZATION_USE] != TRV_OFF;
  options.hom = hom_parameters(task, quadratic);
  return options;
}

// The objective of a maximisation is negated into `costs`[numvar + numcon] and `quads`[terms of the objective].
struct Objective {
  Array<double> costs, quads;
  prslvquad quad;
};
bool make_objective(const Task* task, double sign, Objective* out) {
  const auto n = static_cast<std::size_t>(task->numvar), m = static_cast<std::size_t>(task->numcon);
  const QuadStore& q = task->quad;
  const auto terms = static_cast<std::size_t>(std::max(q.qobjend - q.qobjbegin, 0));
  if (!out->costs.alloc(task->sys, n + m) || !out->quads.alloc(task->sys, terms)) return false;
  for (std::size_t j = 0; j < n; ++j) out->costs[j] = sign * task->c[j];
  for (std::size_t i = 0; i < m; ++i) out->costs[n + i] = sign * task->cc[i];
  for (std::size_t t = 0; t < terms; ++t) out->quads[t] = sign * q.qval[static_cast<std::size_t>(q.qobjbegin) + t];
  if (terms > 0) {
    out->quad.objend = static_cast<int32_t>(terms);
    out->quad.subi = q.qsubi.data() + q.qobjbegin;
    out->quad.subj = q.qsubj.data() + q.qobjbegin;
    out->quad.val = out->quads.data();
  }
  return true;
}

int32_t run(Task* task, const ColumnView& a, bool maximise, double cpu0, double real0) {
  const int32_t numcon = task->numcon, numvar = task->numvar;
  const SolutionView view = sol_view(task, TRV_SOL_ITR);
  Objective objective;
  const double sign = maximise ? -1.0 : 1.0;
  if (!make_objective(task, sign, &objective)) return TRV_RES_ERR_SPACE;
  for (const int32_t whichsol : {TRV_SOL_ITR, TRV_SOL_BAS, TRV_SOL_ITG}) task->sol[whichsol].defined = 0;
  std::fill_n(view.snx, numvar, 0.0);

  EventHandle handle{task, cpu0, real0};
  const IpmEvents events{&handle, on_event, on_text, on_name};
  IpmInfo info;
  prslvsol itr{0, 0, 0, view.skc, view.xc, view.y, view.slc, view.suc, view.skx, view.xx, view.slx, view.sux};
  const BoundSide rows{numcon,   task->bkc.data(), task->blc.data(), task->buc.data(),
                       view.skc, view.xc,          view.slc,         view.suc};
  const BoundSide columns{numvar,   task->bkx.data(), task->blx.data(), task->bux.data(),
                          view.skx, view.xx,          view.slx,         view.sux};
  if (opt_boundcheck(task->dpar[TRV_DPAR_PRESOLVE_TOL_X], rows, columns, view.y)) {
    itr.prosta = TRV_PRO_STA_PRIM_INFEAS;
    itr.solsta = TRV_SOL_STA_PRIM_INFEAS_CER;
    info.resp = on_event(&handle, IPM_BEGIN, &info);
    const int32_t resp = on_event(&handle, IPM_END, &info);
    if (info.resp == HOM_RESP_OK) info.resp = resp;
  } else {
    const prslvinput input{numcon,
                           numvar,
                           a.ptrb,
                           a.ptre,
                           a.sub,
                           a.val,
                           sign * task->cfix,
                           objective.costs.data() + numvar,
                           objective.costs.data(),
                           task->bkc.data(),
                           task->blc.data(),
                           task->buc.data(),
                           task->bkx.data(),
                           task->blx.data(),
                           task->bux.data()};
    opt_ipmslv(task->sys, options_of(task, objective.quad.objend > 0), input, objective.quad, events, &itr, &info);
  }
  if (maximise) negate_duals(task, view);
  intpnt_items(task, &info);
  Solution& sol = task->sol[TRV_SOL_ITR];
  sol.defined = 1;
  sol.prosta = mapped_prosta(itr.prosta);
  sol.solsta = mapped_solsta(itr.solsta);
  return resp_rescode(task, info.resp);
}

}  // namespace

prslvpar presolve_parameters(const Task* task) {
  const int32_t* ipar = task->ipar;
  const double* dpar = task->dpar;
  prslvpar par;
  par.loglev = ipar[TRV_IPAR_LOG_PRESOLVE] - 1;
  par.lindep = ipar[TRV_IPAR_PRESOLVE_LINDEP_USE];
  par.eliminator = ipar[TRV_IPAR_PRESOLVE_ELIMINATOR_USE];
  par.tol_x = dpar[TRV_DPAR_PRESOLVE_TOL_X];
  par.tol_s = dpar[TRV_DPAR_PRESOLVE_TOL_S];
  par.tol_aij = dpar[TRV_DPAR_PRESOLVE_TOL_AIJ];
  par.tol_lindep = dpar[TRV_DPAR_PRESOLVE_TOL_LIN_DEP];
  par.lindep_work_lim = ipar[TRV_IPAR_PRESOLVE_LINDEP_WORK_LIM];
  return par;
}

KktOptions kkt_parameters(const Task* task) {
  const int32_t* ipar = task->ipar;
  KktOptions options;
  const int32_t method = ipar[TRV_IPAR_INTPNT_FACTOR_METHOD];
  options.type = method == KKT_NORMAL || method == KKT_SQD ? method : int32_t{KKT_AUTO};
  options.ordermethod = ipar[TRV_IPAR_INTPNT_ORDER_METHOD];
  options.offcol = ipar[TRV_IPAR_INTPNT_OFF_COL_TRH];
  options.maxrefine = ipar[TRV_IPAR_INTPNT_MAX_NUM_REFINEMENT_STEPS];
  options.l1kb = ipar[TRV_IPAR_CACHE_SIZE_L1];
  options.l2kb = ipar[TRV_IPAR_CACHE_SIZE_L2];
  return options;
}

void negate_duals(const Task* task, const SolutionView& view) {
  const auto negate = [](double* list, int32_t n) {
    for (int32_t k = 0; k < n; ++k) list[k] = -list[k];
  };
  for (double* list : {view.y, view.slc, view.suc}) negate(list, task->numcon);
  for (double* list : {view.slx, view.sux}) negate(list, task->numvar);
}

int32_t mapped_prosta(int32_t prosta) { return prosta >= 1 && prosta <= 7 ? prosta : int32_t{TRV_PRO_STA_UNKNOWN}; }
int32_t mapped_solsta(int32_t solsta) {
  if (solsta == 7) return TRV_SOL_STA_INTEGER_OPTIMAL;
  const bool known = (solsta >= 1 && solsta <= 6) || (solsta >= 8 && solsta <= 10) || solsta == 12 || solsta == 13;
  return known ? solsta : int32_t{TRV_SOL_STA_UNKNOWN};
}

int32_t intpntoptimizer(Task* task, bool want_basis, double cpu0, double real0) {
  const double cpu1 = sysenv_cputime(), real1 = sysenv_realtime();
  const bool maximise = resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE;
  task->iinf[TRV_IINF_OPTIMIZER] = TRV_OPTIMIZER_INTPNT;
  task->iinf[TRV_IINF_INTPNT_NUM_THREADS] = task->ipar[TRV_IPAR_INTPNT_NUM_THREADS];
  ColumnView a{};
  int32_t response = data_lock(task, &a);
  if (response != TRV_RES_OK) return response;
  response = run(task, a, maximise, cpu0, real0);
  data_unlock(task);
  task->dinf[TRV_DINF_INTPNT_CPUTIME] = sysenv_cputime() - cpu1;
  task->dinf[TRV_DINF_INTPNT_REALTIME] = sysenv_realtime() - real1;
  if (want_basis && log_enabled(task, task->ipar[TRV_IPAR_LOG_BI]))
    task_print(task, TRV_STREAM_MSG, "No basis was identified.\n");
  return response;
}

}  // namespace tarvo
