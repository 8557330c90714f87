#include "tarvo/tarvoopt.h"

#include <algorithm>
#include <cmath>

#include "math/symmat.h"
#include "tarvo/bufpool.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvobas.h"
#include "tarvo/tarvoco.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvoinf.h"
#include "tarvo/tarvointpnt.h"
#include "tarvo/tarvonam.h"
#include "tarvo/tarvosim.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

bool is_simplex(int32_t optimizer) {
  return optimizer == TRV_OPTIMIZER_PRIMAL_SIMPLEX || optimizer == TRV_OPTIMIZER_DUAL_SIMPLEX ||
         optimizer == TRV_OPTIMIZER_FREE_SIMPLEX;
}

// ---- Convexity -------------------------------------------------------------------------------------------------

int32_t check_convexity(Task* task) {
  const int32_t sense = resolved_sense(task);
  if (sense != TRV_OBJECTIVE_SENSE_MINIMIZE && sense != TRV_OBJECTIVE_SENSE_MAXIMIZE)
    return report<TRV_RES_ERR_UNDEFINED_OBJECTIVE_SENSE>(task);
  const QuadStore& quad = task->quad;
  int32_t longest = quad.qobjend - quad.qobjbegin;
  const bool has_con = !quad.qconbegin.empty();
  for (int32_t i = 0; has_con && i < task->numcon; ++i)
    longest = std::max(longest, quad.qconend[i] - quad.qconbegin[i]);
  if (longest == 0) return TRV_RES_OK;

  Workspace work(task->sys);
  SymTerm* terms = nullptr;
  double* diag = nullptr;
  work.add(&terms, static_cast<std::size_t>(longest));
  work.add(&diag, static_cast<std::size_t>(task->numvar), Fill::zero);
  if (!work.commit()) return report<TRV_RES_ERR_SPACE>(task);

  const auto gather = [&quad, terms](int32_t begin, int32_t end) {
    return symmat_gather(quad.qsubi.data(), quad.qsubj.data(), quad.qval.data(), begin, end, terms);
  };
  const bool minimise = sense == TRV_OBJECTIVE_SENSE_MINIMIZE;
  int32_t count = gather(quad.qobjbegin, quad.qobjend);
  if (!symmat_test(terms, count, minimise ? 1 : -1, diag))
    return minimise ? report<TRV_RES_ERR_OBJ_Q_NOT_PSD>(task) : report<TRV_RES_ERR_OBJ_Q_NOT_NSD>(task);

  for (int32_t i = 0; has_con && i < task->numcon; ++i) {
    const int32_t bk = task->bkc[i];
    if (quad.qconbegin[i] == quad.qconend[i] || bk == TRV_BK_FR) continue;
    const int32_t sign = bk == TRV_BK_UP ? 1 : bk == TRV_BK_LO ? -1 : 0;
    count = gather(quad.qconbegin[i], quad.qconend[i]);
    if (symmat_test(terms, count, sign, diag)) continue;
    const char* name = item_name(task, TRV_PI_CON, i);
    switch (bk) {
      case TRV_BK_UP:
        return report<TRV_RES_ERR_CON_Q_NOT_PSD>(task, name, i);
      case TRV_BK_LO:
        return report<TRV_RES_ERR_CON_Q_NOT_NSD>(task, name, i);
      case TRV_BK_FX:
        return report<TRV_RES_ERR_NONLINEAR_EQUALITY>(task, name, i);
      default:
        return report<TRV_RES_ERR_NONLINEAR_RANGED>(task, name, i);
    }
  }
  return TRV_RES_OK;
}

// ---- The run ---------------------------------------------------------------------------------------------------

// Clears what a former optimisation left in the task.
int32_t reset(Task* task) {
  static constexpr int32_t real_items[] = {
      TRV_DINF_INTPNT_CPUTIME,
      TRV_DINF_INTPNT_REALTIME,
      TRV_DINF_INTPNT_ORDER_CPUTIME,
      TRV_DINF_INTPNT_FACTOR_NUM_FLOPS,
      TRV_DINF_INTPNT_FACTOR_NUM_ADA_FLOPS,
      TRV_DINF_INTPNT_FACTOR_NUM_DENSE_FLOPS,
      TRV_DINF_PRESOLVE_CPUTIME,
      TRV_DINF_BI_PRIMAL_OBJ,
      TRV_DINF_BI_PRIMAL_FEAS,
      TRV_DINF_BI_DUAL_OBJ,
      TRV_DINF_BI_DUAL_FEAS,
      TRV_DINF_BI_CPUTIME,
      TRV_DINF_BI_CRASH_CPUTIME,
      TRV_DINF_BI_CRASH_LU_CPUTIME,
      TRV_DINF_BI_PRIMAL_CPUTIME,
      TRV_DINF_BI_DUAL_CPUTIME,
      TRV_DINF_BI_CLEAN_CPUTIME,
  };
  static constexpr int32_t integer_items[] = {
      TRV_IINF_INTPNT_ITER,
      TRV_IINF_INTPNT_SOLVE_DUAL,
      TRV_IINF_INTPNT_FACTOR_NUM_NZ,
      TRV_IINF_INTPNT_FACTOR_NUM_OFFCOL,
      TRV_IINF_INTPNT_FACTOR_MAT_NUM_NZ,
      TRV_IINF_INTPNT_FACTOR_DIM,
      TRV_IINF_INTPNT_FACTOR_DEN_DIM,
      TRV_IINF_PRESOLVE_ELI_NUM_TRIES,
      TRV_IINF_PRESOLVE_ELI_NUM,
      TRV_IINF_PRESOLVE_LINDEP_NUM_TRIES,
      TRV_IINF_PRESOLVE_LINDEP_NUM,
      TRV_IINF_BI_PRIMAL_INFO,
      TRV_IINF_BI_DUAL_INFO,
      TRV_IINF_BI_ITER,
      TRV_IINF_BI_PRIMAL_ITER,
      TRV_IINF_BI_DUAL_ITER,
      TRV_IINF_BI_CLEAN_ITER,
  };
  const int32_t sense = resolved_sense(task);
  if (sense != TRV_OBJECTIVE_SENSE_MINIMIZE && sense != TRV_OBJECTIVE_SENSE_MAXIMIZE)
    return report<TRV_RES_ERR_UNDEFINED_OBJECTIVE_SENSE>(task);
  for (const int32_t item : real_items) task->dinf[item] = 0.0;
  for (const int32_t item : integer_items) task->iinf[item] = 0;
  task->iinf[TRV_IINF_OPT_OBJECTIVE_SENSE] = sense;
  task->iinf[TRV_IINF_OPT_NUMCON] = task->numcon;
  task->iinf[TRV_IINF_OPT_NUMVAR] = task->numvar;
  log_start(task);
  ctrlc_snapshot(task);
  return TRV_RES_OK;
}

// The concurrent optimiser: not available yet.
int32_t optimize_concurrent(Task* task) {
  return report<TRV_RES_ERR_INV_OPTIMIZER>(task, static_cast<int32_t>(TRV_OPTIMIZER_CONCURRENT));
}

// Integer and non-convex problems need the global optimiser's library, which can't be loaded yet.
int32_t optimize_global(Task* task) {
  const int32_t response = report<TRV_RES_WRN_NO_GLOBAL_OPTIMIZER>(task, "loading it is not supported");
  return response != TRV_RES_OK ? response : report<TRV_RES_ERR_MIO_NOT_LOADED>(task);
}

// The optimisers for general convex problems: not available yet.
int32_t optimize_general(Task* task, int32_t optimizer) { return report<TRV_RES_ERR_INV_OPTIMIZER>(task, optimizer); }

int32_t optimize_single(Task* task, double cpu0, double real0) {
  const int32_t optimizer = task->ipar[TRV_IPAR_OPTIMIZER];
  const int32_t probtype = task_probtype(task);
  task->break_code = TRV_RES_OK;

  const int32_t response = sol_make(task, is_simplex(optimizer) ? TRV_SOL_BAS : TRV_SOL_ITR);
  if (response != TRV_RES_OK) return report<TRV_RES_ERR_SPACE>(task);
  if (optimizer == TRV_OPTIMIZER_CONIC || (optimizer == TRV_OPTIMIZER_FREE && task->numcone > 0)) {
    if (probtype == TRV_PROBTYPE_MIXED) return report<TRV_RES_ERR_MIXED_PROBLEM>(task);
    return conicoptimizer(task, cpu0, real0);
  }
  if (is_simplex(optimizer)) {
    if (probtype != TRV_PROBTYPE_LO) return report<TRV_RES_ERR_INV_OPTIMIZER>(task, optimizer);
    return simplexoptimizer(task, optimizer, cpu0, real0);
  }
  if (probtype == TRV_PROBTYPE_MIXED) return report<TRV_RES_ERR_MIXED_PROBLEM>(task);
  if (probtype == TRV_PROBTYPE_CONIC) return report<TRV_RES_ERR_INV_OPTIMIZER>(task, optimizer);
  if (task->ipar[TRV_IPAR_CHECK_CONVEXITY] == TRV_CHECK_CONVEXITY_SIMPLE) {
    const int32_t convex = check_convexity(task);
    if (convex != TRV_RES_OK) return convex;
  }
  if (optimizer == TRV_OPTIMIZER_QCONE || (probtype != TRV_PROBTYPE_LO && probtype != TRV_PROBTYPE_QO))
    return optimize_general(task, optimizer);
  const bool want_basis = probtype == TRV_PROBTYPE_LO &&
                          (optimizer == TRV_OPTIMIZER_MIXED_INT || task->ipar[TRV_IPAR_INTPNT_BASIS] != TRV_BI_NEVER);
  const int32_t ended = intpntoptimizer(task, want_basis, cpu0, real0);
  const bool gaveup = ended == TRV_RES_TRM_STALL || ended == TRV_RES_TRM_NUMERICAL_PROBLEM;
  if (!gaveup || optimizer != TRV_OPTIMIZER_FREE || probtype != TRV_PROBTYPE_LO) return ended;
  // The choice is ours: what the interior point could not settle the simplex may.
  if (log_enabled(task, task->ipar[TRV_IPAR_LOG_OPTIMIZER]))
    task_print(task, TRV_STREAM_MSG,
               "The interior-point optimizer made no progress. The simplex optimizer takes over.\n");
  if (sol_make(task, TRV_SOL_BAS) != TRV_RES_OK) return report<TRV_RES_ERR_SPACE>(task);
  return simplexoptimizer(task, TRV_OPTIMIZER_FREE_SIMPLEX, cpu0, real0);
}

int32_t optimize_selected(Task* task, double cpu0, double real0) {
  const int32_t optimizer = task->ipar[TRV_IPAR_OPTIMIZER];
  if (optimizer == TRV_OPTIMIZER_CONCURRENT) return optimize_concurrent(task);
  if ((task->numintvar > 0 && task->ipar[TRV_IPAR_MIO_MODE] != TRV_MIO_MODE_IGNORED) ||
      optimizer == TRV_OPTIMIZER_NONCONVEX)
    return optimize_global(task);
  return optimize_single(task, cpu0, real0);
}

// Where the measures of a solution go; -1 for those without an item.
struct SolutionItems {
  int32_t prosta, solsta, primalobj, maxpbi, maxpcni, maxpeqi, maxinti, dualobj, maxdbi, maxdcni, maxdeqi;
};
constexpr SolutionItems solution_items[3] = {
    {TRV_IINF_SOL_ITR_PROSTA, TRV_IINF_SOL_ITR_SOLSTA, TRV_DINF_SOL_ITR_PRIMAL_OBJ, TRV_DINF_SOL_ITR_MAX_PBI,
     TRV_DINF_SOL_ITR_MAX_PCNI, TRV_DINF_SOL_ITR_MAX_PEQI, TRV_DINF_SOL_ITR_MAX_PINTI, TRV_DINF_SOL_ITR_DUAL_OBJ,
     TRV_DINF_SOL_ITR_MAX_DBI, TRV_DINF_SOL_ITR_MAX_DCNI, TRV_DINF_SOL_ITR_MAX_DEQI},
    {TRV_IINF_SOL_BAS_PROSTA, TRV_IINF_SOL_BAS_SOLSTA, TRV_DINF_SOL_BAS_PRIMAL_OBJ, TRV_DINF_SOL_BAS_MAX_PBI, -1,
     TRV_DINF_SOL_BAS_MAX_PEQI, TRV_DINF_SOL_BAS_MAX_PINTI, TRV_DINF_SOL_BAS_DUAL_OBJ, TRV_DINF_SOL_BAS_MAX_DBI, -1,
     TRV_DINF_SOL_BAS_MAX_DEQI},
    {TRV_IINF_SOL_INT_PROSTA, TRV_IINF_SOL_INT_SOLSTA, TRV_DINF_SOL_INT_PRIMAL_OBJ, TRV_DINF_SOL_INT_MAX_PBI, -1,
     TRV_DINF_SOL_INT_MAX_PEQI, TRV_DINF_SOL_INT_MAX_PINTI, -1, -1, -1, -1},
};

int32_t fill_solution_items(Task* task) {
  int32_t result = TRV_RES_OK;
  for (int32_t whichsol = TRV_SOL_ITR; whichsol <= TRV_SOL_ITG; ++whichsol) {
    if (!sol_defined(task, whichsol)) continue;
    const SolutionItems& items = solution_items[whichsol];
    double unused = 0.0;
    const auto real = [task, &unused](int32_t item) { return item < 0 ? &unused : &task->dinf[item]; };
    const int32_t response =
        TRV_getsolutioninf(task, whichsol, &task->iinf[items.prosta], &task->iinf[items.solsta], real(items.primalobj),
                           real(items.maxpbi), real(items.maxpcni), real(items.maxpeqi), real(items.maxinti),
                           real(items.dualobj), real(items.maxdbi), real(items.maxdcni), real(items.maxdeqi));
    if (result == TRV_RES_OK) result = response;
  }
  return result;
}

}  // namespace

int32_t task_probtype(const Task* task) {
  const QuadStore& quad = task->quad;
  const bool qobj = quad.qobjend > quad.qobjbegin;
  bool qcon = false;
  if (!quad.qconbegin.empty())
    for (int32_t i = 0; i < task->numcon && !qcon; ++i) qcon = quad.qconend[i] > quad.qconbegin[i];
  const bool nl = task->nl_getva != nullptr;
  if (!qobj && !qcon && !nl) return task->numcone > 0 ? TRV_PROBTYPE_CONIC : TRV_PROBTYPE_LO;
  if (task->numcone > 0) return TRV_PROBTYPE_MIXED;
  if (nl) return TRV_PROBTYPE_GECO;
  return qcon ? TRV_PROBTYPE_QCQO : TRV_PROBTYPE_QO;
}

int32_t task_optimize(Task* task) {
  int32_t response = task->ipar[TRV_IPAR_CHECK_TASK_DATA] != TRV_OFF ? TRV_checkdata(task) : TRV_RES_OK;
  const double cpu0 = sysenv_cputime(), real0 = sysenv_realtime();
  if (response == TRV_RES_OK) {
    bufpool_release(task);
    basissolve_delete(task);
    response = reset(task);
    if (response == TRV_RES_OK) response = optimize_selected(task, cpu0, real0);
  }
  const int32_t measured = fill_solution_items(task);
  if (response == TRV_RES_OK) response = measured;
  task->dinf[TRV_DINF_OPTIMIZER_CPUTIME] = sysenv_cputime() - cpu0;
  task->dinf[TRV_DINF_OPTIMIZER_REALTIME] = sysenv_realtime() - real0;
  if (response == TRV_RES_ERR_SPACE && task->ipar[TRV_IPAR_LOG] != 0)
    task_print(task, TRV_STREAM_MSG, "*** TARVO ran out of space (=RAM) while optimizing a task.\n\n");
  return response;
}

}  // namespace tarvo

using namespace tarvo;

extern "C" {

int32_t TRV_getprobtype(TRVtask task, int32_t* probtype) {
  const int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  if (probtype == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "probtype");
  *probtype = task_probtype(task);
  return TRV_RES_OK;
}

int32_t TRV_checkconvexity(TRVtask task) {
  const int32_t response = task_check(task);
  return response != TRV_RES_OK ? response : check_convexity(task);
}

int32_t TRV_optimize(TRVtask task) {
  int32_t response = task_check(task);
  if (response == TRV_RES_OK) response = data_checkunlocked(task);  // not from its own call-back
  if (response != TRV_RES_OK) return response;
  ++task->num_optimizations;
  response = task_optimize(task);
  if (task->ipar[TRV_IPAR_INFEAS_REPORT_AUTO] != TRV_OFF) {
    const int32_t reported = infeas_autoreport(task);
    if (response == TRV_RES_OK) response = reported;
  }
  task->iinf[TRV_IINF_OPTIMIZE_RESPONSE] = response;
  return response;
}

int32_t TRV_optimizetrm(TRVtask task, int32_t* trmcode) {
  const int32_t response = TRV_optimize(task);
  int32_t responseclass = TRV_RESPONSE_OK;
  TRV_getresponseclass(response, &responseclass);
  if (responseclass != TRV_RESPONSE_TRM) return response;
  if (trmcode != nullptr) *trmcode = response;
  return TRV_RES_OK;
}

}  // extern "C"
