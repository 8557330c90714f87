// The exported calls of the sensitivity analysis and the basis type. The ranges of the basis type are those in which
// the optimal basis stays optimal (Chvatal, Linear Programming, 1983, chapter 10).
#include "tarvo/tarvosen.h"

#include <algorithm>
#include <cmath>

#include "tarvo/bufpool.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvobas.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvoopt.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

constexpr double zero_step = 1e-10;   // entries of a direction that count as 0
constexpr double zero_alpha = 1e-12;  // entries of a tableau row that count as 0

// Constraint or variable i of the basic solution.
struct Item {
  int32_t sk, bk;
  double x, l, u, sl, su;
};
Item item_of(Task* task, const SolutionView& view, int32_t accmode, int32_t i) {
  if (accmode == TRV_ACC_CON)
    return {view.skc[i], task->bkc[i], view.xc[i], task->blc[i], task->buc[i], view.slc[i], view.suc[i]};
  return {view.skx[i], task->bkx[i], view.xx[i], task->blx[i], task->bux[i], view.slx[i], view.sux[i]};
}

struct Range {
  double left = -infinity_bound, right = infinity_bound;
};

// How far a bound that holds nothing may move: up to the value behind it.
Range range_inactive(const Item& item, int32_t label) {
  Range range;
  if (label == label_fx) {
    range = {0.0, 0.0};
  } else if (label == TRV_MARK_LO) {
    if (has_lower(item.bk)) range.right = std::max(item.x - item.l, 0.0);
  } else if (has_upper(item.bk)) {
    range.left = std::min(item.x - item.u, 0.0);
  }
  return range;
}

// How far the basic variable of a position is from its bounds: below <= 0 <= above, and infinite without one.
struct Distance {
  double below, above;
};

// An active bound takes its item along by t, and the basic variables move by -t d, d = B^-1 (column of the item).
Range range_active(const Item& item, int32_t label, int32_t num, const int32_t* sub, const double* d,
                   const Distance* distance) {
  Range range;
  const auto limit = [&range](double left, double right, double step) {
    if (std::fabs(left) < infinity_bound) range.left = std::max(range.left, left / step);
    if (std::fabs(right) < infinity_bound) range.right = std::min(range.right, right / step);
  };
  for (int32_t k = 0; k < num; ++k) {
    const Distance& b = distance[sub[k]];
    if (d[k] > zero_step)
      limit(b.below, b.above, d[k]);
    else if (d[k] < -zero_step)
      limit(b.above, b.below, d[k]);
  }
  range.left = std::min(range.left, 0.0);
  range.right = std::max(range.right, 0.0);
  if (item.bk == TRV_BK_RA) {  // the bounds don't cross
    if (label == TRV_MARK_UP) range.left = std::max(range.left, item.l - item.u);
    if (label == TRV_MARK_LO) range.right = std::min(range.right, item.u - item.l);
  }
  return range;
}

bool is_active(const Item& item, int32_t label) {
  if (item.sk == TRV_SK_FIX) return true;
  if (item.sk != TRV_SK_LOW && item.sk != TRV_SK_UPR) return false;
  return label == label_fx || label == (item.sk == TRV_SK_LOW ? TRV_MARK_LO : TRV_MARK_UP);
}

// The price as a derivative: an upper bound that rises lowers a minimum by its multiplier.
double price_of(const Item& item, int32_t label) {
  const double price = label == TRV_MARK_LO ? item.sl : label == TRV_MARK_UP ? -item.su : item.sl - item.su;
  return price + 0.0;  // no -0
}

// The range in which a reduced cost d that moves by -t alpha keeps the sign that its item's key asks for. d is that of
// a minimisation.
void limit_cost(const Item& item, double d, double alpha, Range* range) {
  if (item.sk == TRV_SK_BAS || item.l == item.u || std::fabs(alpha) <= zero_alpha) return;
  const bool low = item.sk == TRV_SK_LOW, upr = item.sk == TRV_SK_UPR;
  if (item.sk == TRV_SK_FIX) return;
  // A reduced cost on the wrong side of 0 within the tolerances is 0.
  const double ratio = (low ? std::max(d, 0.0) : upr ? std::min(d, 0.0) : 0.0) / alpha;
  if (!upr == (alpha > 0.0) || (!low && !upr)) range->right = std::min(range->right, std::max(ratio, 0.0));
  if (!upr == (alpha < 0.0) || (!low && !upr)) range->left = std::max(range->left, std::min(ratio, 0.0));
}

// The costs of a maximisation are negated inside, and so is the axis on which they move.
Range mirrored(const Range& range, bool maximise) { return maximise ? Range{-range.right, -range.left} : range; }

}  // namespace

int32_t sen_optimizer(int32_t wanted) {
  return wanted == TRV_OPTIMIZER_PRIMAL_SIMPLEX || wanted == TRV_OPTIMIZER_DUAL_SIMPLEX ? wanted
                                                                                        : TRV_OPTIMIZER_FREE_SIMPLEX;
}

int32_t sen_basis_bounds(Task* task, const SenList& list) {
  BasisSolve* solve = task->basis_solve;
  const int32_t numcon = task->numcon;
  Workspace work(task->sys);
  Distance* distance = nullptr;
  int32_t* sub = nullptr;
  double* val = nullptr;
  work.add(&distance, static_cast<std::size_t>(numcon));
  work.add(&sub, static_cast<std::size_t>(numcon));
  work.add(&val, static_cast<std::size_t>(numcon));
  if (!work.commit()) return report<TRV_RES_ERR_SPACE>(task);

  const SolutionView view = sol_view(task, TRV_SOL_BAS);
  for (int32_t k = 0; k < numcon; ++k) {
    const int32_t index = solve->basis.basis[k];
    const bool con = index < numcon;
    const Item item = item_of(task, view, con ? TRV_ACC_CON : TRV_ACC_VAR, con ? index : index - numcon);
    distance[k].below = has_upper(item.bk) ? std::min(item.x - item.u, 0.0) : -infinity_bound;
    distance[k].above = has_lower(item.bk) ? std::max(item.x - item.l, 0.0) : infinity_bound;
  }

  for (int32_t t = 0; t < list.num; ++t) {
    const int32_t i = list.sub[t];
    const int32_t label = sen_label(task, list.accmode, i, list.mark[t]);
    const Item item = item_of(task, view, list.accmode, i);
    Range range;
    if (!is_active(item, label)) {
      range = range_inactive(item, label);
    } else {
      int32_t num = 1;
      if (list.accmode == TRV_ACC_CON) {
        sub[0] = i;
        val[0] = -1.0;
      } else if (const int32_t rc = TRV_getavec(task, TRV_ACC_VAR, i, &num, sub, val); rc != TRV_RES_OK) {
        return rc;
      }
      basissolve_solve(solve, false, &num, sub, val);
      range = range_active(item, label, num, sub, val, distance);
    }
    list.leftprice[t] = list.rightprice[t] = is_active(item, label) ? price_of(item, label) : 0.0;
    list.leftrange[t] = range.left;
    list.rightrange[t] = range.right;
  }
  return TRV_RES_OK;
}

namespace {

// A cost of a basic variable moves the reduced costs by its row of the tableau, rho'N with B'rho = e_k.
Range range_of_basic_cost(Task* task, const ColumnView& a, const SolutionView& view, double sign, double* rho) {
  Range range;
  for (int32_t i = 0; i < task->numcon; ++i) {
    if (rho[i] == 0.0) continue;
    const Item item = item_of(task, view, TRV_ACC_CON, i);
    limit_cost(item, sign * (item.sl - item.su), -rho[i], &range);
  }
  for (int32_t j = 0; j < task->numvar; ++j) {
    if (view.skx[j] == TRV_SK_BAS) continue;
    double alpha = 0.0;
    for (int32_t e = a.ptrb[j]; e < a.ptre[j]; ++e) alpha += rho[a.sub[e]] * a.val[e];
    const Item item = item_of(task, view, TRV_ACC_VAR, j);
    limit_cost(item, sign * (item.sl - item.su), alpha, &range);
  }
  return range;
}

// A nonbasic variable stays where it is while its reduced cost keeps its sign.
Range range_of_nonbasic_cost(const Item& item, double sign) {
  const double d = sign * (item.sl - item.su);
  if (item.sk == TRV_SK_FIX || item.l == item.u) return {};
  if (item.sk == TRV_SK_LOW) return {-std::max(d, 0.0), infinity_bound};
  if (item.sk == TRV_SK_UPR) return {-infinity_bound, -std::min(d, 0.0)};
  return {0.0, 0.0};
}

}  // namespace

int32_t sen_basis_costs(Task* task, const SenList& list) {
  BasisSolve* solve = task->basis_solve;
  const auto m = static_cast<std::size_t>(task->numcon);
  const auto n = static_cast<std::size_t>(task->numvar);
  const bool maximise = resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE;
  const double sign = maximise ? -1.0 : 1.0;
  Workspace work(task->sys);
  int32_t *sub = nullptr, *position = nullptr;
  double *val = nullptr, *rho = nullptr;
  work.add(&sub, m);
  work.add(&val, m);
  work.add(&rho, m, Fill::zero);
  work.add(&position, n);
  if (!work.commit()) return report<TRV_RES_ERR_SPACE>(task);
  for (int32_t k = 0; k < task->numcon; ++k) {
    const int32_t index = solve->basis.basis[k];
    if (index >= task->numcon) position[index - task->numcon] = k;
  }

  ColumnView a{};
  if (const int32_t rc = data_lock(task, &a); rc != TRV_RES_OK) return rc;
  const SolutionView view = sol_view(task, TRV_SOL_BAS);
  for (int32_t t = 0; t < list.num; ++t) {
    const int32_t j = list.sub[t];
    Range range;
    if (view.skx[j] == TRV_SK_BAS) {
      int32_t num = 1;
      sub[0] = position[j];
      val[0] = 1.0;
      basissolve_solve(solve, true, &num, sub, val);
      for (int32_t k = 0; k < num; ++k) rho[sub[k]] = val[k];
      range = range_of_basic_cost(task, a, view, sign, rho);
      for (int32_t k = 0; k < num; ++k) rho[sub[k]] = 0.0;
    } else {
      range = range_of_nonbasic_cost(item_of(task, view, TRV_ACC_VAR, j), sign);
    }
    range = mirrored(range, maximise);
    list.leftprice[t] = list.rightprice[t] = view.xx[j];
    list.leftrange[t] = range.left + 0.0;
    list.rightrange[t] = range.right + 0.0;
  }
  data_unlock(task);
  return TRV_RES_OK;
}

namespace {

bool is_optimal(const Task* task) {
  const int32_t solsta = task->sol[TRV_SOL_BAS].solsta;
  return sol_defined(task, TRV_SOL_BAS) && (solsta == TRV_SOL_STA_OPTIMAL || solsta == TRV_SOL_STA_NEAR_OPTIMAL);
}

// Sees to it that the basic solution is optimal.
int32_t ensure_optimal(Task* task) {
  if (is_optimal(task)) return TRV_RES_OK;
  int32_t response = TRV_optimize(task);
  if (response == TRV_RES_TRM_MAX_NUM_SETBACKS && task->ipar[TRV_IPAR_OPTIMIZER] != TRV_OPTIMIZER_FREE_SIMPLEX) {
    // There is no interior-point optimiser to turn to; the free simplex may choose the other algorithm.
    task->ipar[TRV_IPAR_OPTIMIZER] = TRV_OPTIMIZER_FREE_SIMPLEX;
    response = TRV_optimize(task);
  }
  if (response != TRV_RES_OK) return response;
  if (is_optimal(task)) return TRV_RES_OK;
  const int32_t solsta = sol_defined(task, TRV_SOL_BAS) ? task->sol[TRV_SOL_BAS].solsta : TRV_SOL_STA_UNKNOWN;
  return report<TRV_RES_ERR_SEN_SOLUTION_STATUS>(task, solsta);
}

// Says in the log what was found.
void log_list(Task* task, const char* title, const SenList& list) {
  if (list.num > 0 && log_enabled(task, std::min<int32_t>(task->ipar[TRV_IPAR_LOG_SENSITIVITY] - 1, 1)))
    sen_writelist({task, nullptr, TRV_STREAM_MSG}, title, list);
}

int32_t analyse_bounds(Task* task, const SenList& con, const SenList& var) {
  const bool partition = task->ipar[TRV_IPAR_SENSITIVITY_TYPE] == TRV_SENSITIVITY_TYPE_OPTIMAL_PARTITION;
  int32_t response = partition ? TRV_RES_OK : basissolve_init(task);
  for (const SenList* list : {&con, &var}) {
    if (response != TRV_RES_OK || list->num == 0) continue;
    response = partition ? sen_partition_bounds(task, *list) : sen_basis_bounds(task, *list);
  }
  if (response != TRV_RES_OK) return response;
  log_list(task, "CONSTRAINTS\n", con);
  log_list(task, "VARIABLES\n", var);
  return TRV_RES_OK;
}

int32_t analyse_costs(Task* task, const SenList& list) {
  const bool partition = task->ipar[TRV_IPAR_SENSITIVITY_TYPE] == TRV_SENSITIVITY_TYPE_OPTIMAL_PARTITION;
  int32_t response = partition ? TRV_RES_OK : basissolve_init(task);
  if (response == TRV_RES_OK && list.num > 0)
    response = partition ? sen_partition_costs(task, list) : sen_basis_costs(task, list);
  if (response == TRV_RES_OK) log_list(task, "DUALSENSITIVITY\n", list);
  return response;
}

// What both calls do around their analysis: the events, the optimiser's parameter, an optimal basic solution.
template <class Analyse>
int32_t run_analysis(Task* task, int32_t begin, int32_t end, Analyse analyse) {
  if (task_probtype(task) != TRV_PROBTYPE_LO) {
    task_print(task, TRV_STREAM_MSG,
               "TARVO - Sensitivity analysis is only possible for Linear Programming problems.\n");
    return report<TRV_RES_ERR_CANNOT_HANDLE_NL>(task);
  }
  if (const int32_t rc = data_checkunlocked(task); rc != TRV_RES_OK) return rc;
  const double cpu0 = sysenv_cputime(), real0 = sysenv_realtime();
  int32_t response = event_phase(task, begin, cpu0, real0);
  if (response == TRV_RES_OK) {
    const int32_t optimizer = task->ipar[TRV_IPAR_OPTIMIZER];
    task->ipar[TRV_IPAR_OPTIMIZER] = sen_optimizer(task->ipar[TRV_IPAR_SENSITIVITY_OPTIMIZER]);
    response = ensure_optimal(task);
    task->ipar[TRV_IPAR_OPTIMIZER] = optimizer;
    if (response == TRV_RES_OK) response = analyse();
  }
  const int32_t ended = event_phase(task, end, cpu0, real0);
  return response == TRV_RES_OK ? ended : response;
}

int32_t check_list(Task* task, const SenList& list, bool con) {
  if (list.num == 0) return TRV_RES_OK;
  const char* suffix = con ? "i" : "j";
  const auto missing = [&](const char* name, const void* pointer) {
    char text[24];
    std::snprintf(text, sizeof text, "%s%s", name, suffix);
    return pointer == nullptr ? report<TRV_RES_ERR_NULL_POINTER>(task, static_cast<const char*>(text)) : TRV_RES_OK;
  };
  int32_t rc = missing("sub", list.sub);
  if (rc == TRV_RES_OK) rc = missing("leftprice", list.leftprice);
  if (rc == TRV_RES_OK) rc = missing("rightprice", list.rightprice);
  if (rc == TRV_RES_OK) rc = missing("leftrange", list.leftrange);
  if (rc == TRV_RES_OK) rc = missing("rightrange", list.rightrange);
  if (rc == TRV_RES_OK)
    rc = check_index_list(task, con ? "subi" : "subj", 0, item_count(task, list.accmode), list.num, list.sub);
  return rc;
}

int32_t check_marks(Task* task, const SenList& list, bool con) {
  if (list.num == 0) return TRV_RES_OK;
  if (list.mark == nullptr)
    return report<TRV_RES_ERR_NULL_POINTER>(task, static_cast<const char*>(con ? "marki" : "markj"));
  for (int32_t k = 0; k < list.num; ++k) {
    if (list.mark[k] == TRV_MARK_LO || list.mark[k] == TRV_MARK_UP) continue;
    return con ? report<TRV_RES_ERR_INV_MARKI>(task, k) : report<TRV_RES_ERR_INV_MARKJ>(task, k);
  }
  return TRV_RES_OK;
}

}  // namespace

}  // namespace tarvo

using namespace tarvo;

extern "C" {

int32_t TRV_primalsensitivity(TRVtask task, int32_t numi, const int32_t* subi, const int32_t* marki, int32_t numj,
                              const int32_t* subj, const int32_t* markj, double* leftpricei, double* rightpricei,
                              double* leftrangei, double* rightrangei, double* leftpricej, double* rightpricej,
                              double* leftrangej, double* rightrangej) {
  int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  if (numi < 0) return report<TRV_RES_ERR_INV_NUMI>(task);
  if (numj < 0) return report<TRV_RES_ERR_INV_NUMJ>(task);
  const SenList con{TRV_ACC_CON, numi, subi, marki, leftpricei, rightpricei, leftrangei, rightrangei};
  const SenList var{TRV_ACC_VAR, numj, subj, markj, leftpricej, rightpricej, leftrangej, rightrangej};
  response = check_list(task, con, true);
  if (response == TRV_RES_OK) response = check_marks(task, con, true);
  if (response == TRV_RES_OK) response = check_list(task, var, false);
  if (response == TRV_RES_OK) response = check_marks(task, var, false);
  if (response != TRV_RES_OK) return response;
  return run_analysis(task, TRV_CALLBACK_BEGIN_PRIMAL_SENSITIVITY, TRV_CALLBACK_END_PRIMAL_SENSITIVITY,
                      [&] { return analyse_bounds(task, con, var); });
}

int32_t TRV_dualsensitivity(TRVtask task, int32_t numj, const int32_t* subj, double* leftpricej, double* rightpricej,
                            double* leftrangej, double* rightrangej) {
  int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  if (numj < 0) return report<TRV_RES_ERR_INV_NUMJ>(task);
  const SenList list{TRV_ACC_VAR, numj, subj, nullptr, leftpricej, rightpricej, leftrangej, rightrangej};
  response = check_list(task, list, false);
  if (response != TRV_RES_OK) return response;
  return run_analysis(task, TRV_CALLBACK_BEGIN_DUAL_SENSITIVITY, TRV_CALLBACK_END_DUAL_SENSITIVITY,
                      [&] { return analyse_costs(task, list); });
}

}  // extern "C"
