// The optimal partition type of the sensitivity analysis (Roos, Terlaky and Vial, Interior Point Methods for Linear
// Optimization, 2005, chapter 19), by four linear problems of the size of the task, each from the optimal basis.
//
// Bounds (minimisation, the bound b of item i, with V convex):
//   price    V'(0; s), s = +1 or -1: min c'd over the directions d that keep every bound that is active at the optimal
//            x, but move b by s. Its multipliers are an optimal dual solution in which that derivative is attained.
//   range    V is linear while this dual solution stays optimal: the largest (smallest) value of item i over the
//            feasible points, b itself aside, that are complementary to it, less b.
// Costs (V concave):
//   price    the smallest (right) and the largest (left) x_j over the optimal points, the feasible ones that are
//            complementary to an optimal dual solution.
//   range    the point found stays optimal while no direction that keeps its active bounds improves:
//            min c'd with d_j = -1 (right) or d_j = +1 (left).
#include <algorithm>
#include <cmath>

#include "tarvo/frame.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosen.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

constexpr double zero_price = 1e-5;       // smaller prices are 0
constexpr double zero_multiplier = 1e-7;  // smaller multipliers leave their bound free to leave
constexpr double active_distance = 1e-7;  // relative: nearer bounds are active

// The copy on which all is solved, with the numbers of the optimal solution for both kinds of items. Its objective is
// minimised; cost is that of the task with the sign of its sense.
struct Partition {
  Task* task = nullptr;
  TRVtask clone = nullptr;
  double sign = 1.0;
  int32_t numcon = 0, numvar = 0;
  double *cost = nullptr, *zero = nullptr;   // [numvar]
  double *xc = nullptr, *xx = nullptr;       // values of the point whose active bounds count
  double *sc = nullptr, *sx = nullptr;       // multipliers sl - su of the dual solution that counts
  double* objective = nullptr;               // [numvar] scratch
  int32_t *keyc = nullptr, *keyx = nullptr;  // the optimal basis
  int32_t* rowsub = nullptr;                 // [numvar]
  double* rowval = nullptr;                  // [numvar]

  ~Partition() { TRV_deletetask(&clone); }
};

enum class Outcome { optimal, infeasible, unbounded };

struct Bound {
  int32_t bk;
  double l, u;
};
Bound bound_of(const Task* task, int32_t accmode, int32_t i) {
  return accmode == TRV_ACC_CON ? Bound{task->bkc[i], task->blc[i], task->buc[i]}
                                : Bound{task->bkx[i], task->blx[i], task->bux[i]};
}
double* values(Partition& p, int32_t accmode) { return accmode == TRV_ACC_CON ? p.xc : p.xx; }
double* multipliers(Partition& p, int32_t accmode) { return accmode == TRV_ACC_CON ? p.sc : p.sx; }

void set_bound(Partition& p, int32_t accmode, int32_t i, bool lower, double l, bool upper, double u) {
  const int32_t bk = lower && upper ? (l == u ? TRV_BK_FX : TRV_BK_RA)
                     : lower        ? TRV_BK_LO
                     : upper        ? TRV_BK_UP
                                    : TRV_BK_FR;
  store_bound(p.clone, accmode, i, bk, lower ? l : -infinity_bound, upper ? u : infinity_bound);
}

bool near(double x, double bound) { return std::fabs(x - bound) <= active_distance * (1.0 + std::fabs(bound)); }

struct Active {
  bool lower, upper;
};
Active active_of(Partition& p, int32_t accmode, int32_t i) {
  const Bound b = bound_of(p.task, accmode, i);
  const double x = values(p, accmode)[i];
  return {has_lower(b.bk) && near(x, b.l), has_upper(b.bk) && near(x, b.u)};
}

// Bounds of the directions that keep all active bounds.
void set_directions(Partition& p) {
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
    for (int32_t i = 0; i < item_count(p.task, accmode); ++i) {
      const Active active = active_of(p, accmode, i);
      set_bound(p, accmode, i, active.lower, 0.0, active.upper, 0.0);
    }
  }
}

// Bounds of the feasible points that are complementary to the multipliers.
void set_face(Partition& p) {
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
    for (int32_t i = 0; i < item_count(p.task, accmode); ++i) {
      const Bound b = bound_of(p.task, accmode, i);
      const double s = multipliers(p, accmode)[i];
      double l = b.l, u = b.u;
      bool lower = has_lower(b.bk), upper = has_upper(b.bk);
      if (s > zero_multiplier && lower) {
        u = l;
        upper = true;
      } else if (s < -zero_multiplier && upper) {
        l = u;
        lower = true;
      }
      set_bound(p, accmode, i, lower, l, upper, u);
    }
  }
}

// The objective factor * (value of an item).
int32_t set_item_objective(Partition& p, int32_t accmode, int32_t i, double factor) {
  std::fill_n(p.objective, p.numvar, 0.0);
  if (accmode == TRV_ACC_VAR) {
    p.objective[i] = factor;
    return TRV_RES_OK;
  }
  int32_t num = 0;
  const int32_t rc = TRV_getavec(p.task, TRV_ACC_CON, i, &num, p.rowsub, p.rowval);
  for (int32_t k = 0; rc == TRV_RES_OK && k < num; ++k) p.objective[p.rowsub[k]] = factor * p.rowval[k];
  return rc;
}

// Minimises `objective` from the optimal basis of the task.
int32_t solve(Partition& p, const double* objective, Outcome* outcome) {
  for (int32_t j = 0; j < p.numvar; ++j) p.clone->c[j] = objective[j];
  int32_t response = TRV_putsolution(p.clone, TRV_SOL_BAS, p.keyc, p.keyx, nullptr, p.zero, p.zero + p.numcon, nullptr,
                                     nullptr, nullptr, nullptr, nullptr, nullptr);
  if (response == TRV_RES_OK) response = TRV_optimize(p.clone);
  if (response == TRV_RES_ERR_SPACE) return report<TRV_RES_ERR_SPACE>(p.task);
  if (response == TRV_RES_TRM_INTERNAL) return TRV_RES_TRM_USER_CALLBACK;  // of forward_callback
  if (response == TRV_RES_TRM_USER_BREAK || response == TRV_RES_TRM_MAX_TIME) return response;
  if (response != TRV_RES_OK) return report<TRV_RES_ERR_SEN_NUMERICAL>(p.task);
  switch (p.clone->sol[TRV_SOL_BAS].solsta) {
    case TRV_SOL_STA_OPTIMAL:
    case TRV_SOL_STA_NEAR_OPTIMAL:
      *outcome = Outcome::optimal;
      return TRV_RES_OK;
    case TRV_SOL_STA_PRIM_INFEAS_CER:
      *outcome = Outcome::infeasible;
      return TRV_RES_OK;
    case TRV_SOL_STA_DUAL_INFEAS_CER:
      *outcome = Outcome::unbounded;
      return TRV_RES_OK;
    default:
      return report<TRV_RES_ERR_SEN_NUMERICAL>(p.task);
  }
}

double objective_of(Partition& p, const double* objective) {
  const SolutionView view = sol_view(p.clone, TRV_SOL_BAS);
  double sum = 0.0;
  for (int32_t j = 0; j < p.numvar; ++j) sum += objective[j] * view.xx[j];
  return sum;
}

// The numbers of a basic solution as those that count from now on.
void take_values(Partition& p, Task* from) {
  const SolutionView view = sol_view(from, TRV_SOL_BAS);
  std::copy_n(view.xc, p.numcon, p.xc);
  std::copy_n(view.xx, p.numvar, p.xx);
}
void take_multipliers(Partition& p, Task* from, double sign) {
  const SolutionView view = sol_view(from, TRV_SOL_BAS);
  for (int32_t i = 0; i < p.numcon; ++i) p.sc[i] = sign * (view.slc[i] - view.suc[i]);
  for (int32_t j = 0; j < p.numvar; ++j) p.sx[j] = sign * (view.slx[j] - view.sux[j]);
}

void restore(Partition& p) {
  take_values(p, p.task);
  take_multipliers(p, p.task, p.sign);
}

// The caller's call-back sees its own task.
int32_t forward_callback(TRVtask, void* handle, int32_t where) {
  auto* task = static_cast<Task*>(handle);
  return task->callback_func(task, task->callback_handle, where);
}

int32_t make_clone(Partition& p) {
  Task* task = p.task;
  const int32_t response = TRV_clonetask(task, &p.clone);
  if (response != TRV_RES_OK) return response == TRV_RES_ERR_SPACE ? report<TRV_RES_ERR_SPACE>(task) : response;
  Task* clone = p.clone;
  clone->objective_sense = TRV_OBJECTIVE_SENSE_MINIMIZE;
  clone->cfix = 0.0;
  std::fill(clone->cc.begin(), clone->cc.end(), 0.0);
  clone->numintvar = 0;
  clone->ipar[TRV_IPAR_OPTIMIZER] = sen_optimizer(task->ipar[TRV_IPAR_SENSITIVITY_OPTIMIZER]);
  clone->ipar[TRV_IPAR_SIM_HOTSTART] = TRV_SIM_HOTSTART_STATUS_KEYS;
  clone->ipar[TRV_IPAR_INFEAS_REPORT_AUTO] = TRV_OFF;
  clone->ipar[TRV_IPAR_LOG] = task->ipar[TRV_IPAR_LOG_SENSITIVITY_OPT];
  // Objective cuts are meant for the task's own objective.
  clone->dpar[TRV_DPAR_LOWER_OBJ_CUT] = -infinity_bound;
  clone->dpar[TRV_DPAR_UPPER_OBJ_CUT] = infinity_bound;
  clone->dpar[TRV_DPAR_BASIS_TOL_X] = std::min(clone->dpar[TRV_DPAR_BASIS_TOL_X], 1e-6);
  clone->dpar[TRV_DPAR_BASIS_TOL_S] = std::min(clone->dpar[TRV_DPAR_BASIS_TOL_S], 1e-6);
  if (task->callback_func != nullptr) {
    clone->stop_func = forward_callback;
    clone->stop_handle = task;
  }
  if (task->ipar[TRV_IPAR_LOG_SENSITIVITY_OPT] > 0)
    TRV_linkfunctotaskstream(clone, TRV_STREAM_LOG, task, [](void* handle, const char* text) {
      streams_write(&static_cast<Task*>(handle)->streams, TRV_STREAM_LOG, text);
    });
  return TRV_RES_OK;
}

int32_t open(Partition& p, Workspace& work) {
  const auto m = static_cast<std::size_t>(p.task->numcon), n = static_cast<std::size_t>(p.task->numvar);
  p.numcon = p.task->numcon;
  p.numvar = p.task->numvar;
  p.sign = resolved_sense(p.task) == TRV_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  for (double** part : {&p.cost, &p.xx, &p.sx, &p.objective, &p.rowval}) work.add(part, n);
  for (double** part : {&p.xc, &p.sc}) work.add(part, m);
  work.add(&p.zero, m + n, Fill::zero);
  work.add(&p.keyc, m);
  work.add(&p.keyx, n);
  work.add(&p.rowsub, n);
  if (!work.commit()) return report<TRV_RES_ERR_SPACE>(p.task);
  for (int32_t j = 0; j < p.numvar; ++j) p.cost[j] = p.sign * p.task->c[j];
  const SolutionView view = sol_view(p.task, TRV_SOL_BAS);
  std::copy_n(view.skc, p.numcon, p.keyc);
  std::copy_n(view.skx, p.numvar, p.keyx);
  return make_clone(p);
}

// One side of an entry: the price and how far it holds, both in the direction `s` (+1 right, -1 left) and as numbers of
// the minimisation.
struct Side {
  double price, range;
};

int32_t bound_side(Partition& p, int32_t accmode, int32_t i, int32_t label, double s, Side* side) {
  restore(p);
  const Bound b = bound_of(p.task, accmode, i);
  const bool lower = label != TRV_MARK_UP, upper = label != TRV_MARK_LO;
  if ((lower && !has_lower(b.bk)) || (upper && !has_upper(b.bk))) {
    *side = {0.0, infinity_bound};
    return TRV_RES_OK;
  }
  const Active active = active_of(p, accmode, i);
  side->price = 0.0;
  Outcome outcome = Outcome::optimal;
  if ((lower && active.lower) || (upper && active.upper)) {
    set_directions(p);
    const bool keep_lower = active.lower || label == label_fx, keep_upper = active.upper || label == label_fx;
    set_bound(p, accmode, i, keep_lower, lower ? s : 0.0, keep_upper, upper ? s : 0.0);
    if (const int32_t rc = solve(p, p.cost, &outcome); rc != TRV_RES_OK) return rc;
    if (outcome == Outcome::infeasible) {
      *side = {s * infinity_bound, 0.0};
      return TRV_RES_OK;
    }
    if (outcome == Outcome::unbounded) return report<TRV_RES_ERR_SEN_NUMERICAL>(p.task);  // the optimum is finite
    side->price = s * objective_of(p, p.cost);
    if (std::fabs(side->price) < zero_price) side->price = 0.0;
    take_multipliers(p, p.clone, 1.0);
  }
  // Away from the feasible points a bound without a price is never in the way.
  const bool loosens = label == TRV_MARK_LO ? s < 0.0 : label == TRV_MARK_UP && s > 0.0;
  if (side->price == 0.0 && loosens) {
    side->range = infinity_bound;
    return TRV_RES_OK;
  }
  set_face(p);
  // The item runs freely on the side that moves.
  set_bound(p, accmode, i, !lower && has_lower(b.bk), b.l, !upper && has_upper(b.bk), b.u);
  int32_t rc = set_item_objective(p, accmode, i, -s);
  if (rc == TRV_RES_OK) rc = solve(p, p.objective, &outcome);
  if (rc != TRV_RES_OK) return rc;
  const double limit = outcome == Outcome::optimal ? -objective_of(p, p.objective) - s * (lower ? b.l : b.u) : 0.0;
  side->range = outcome == Outcome::unbounded ? infinity_bound : std::max(limit, 0.0);
  return TRV_RES_OK;
}

int32_t cost_side(Partition& p, int32_t j, double s, Side* side) {
  restore(p);
  set_face(p);
  Outcome outcome = Outcome::optimal;
  int32_t rc = set_item_objective(p, TRV_ACC_VAR, j, s);
  if (rc == TRV_RES_OK) rc = solve(p, p.objective, &outcome);
  if (rc != TRV_RES_OK) return rc;
  if (outcome == Outcome::unbounded) {
    *side = {-s * infinity_bound, 0.0};
    return TRV_RES_OK;
  }
  if (outcome == Outcome::infeasible) return report<TRV_RES_ERR_SEN_NUMERICAL>(p.task);  // the optimum is in the face
  take_values(p, p.clone);
  side->price = std::fabs(p.xx[j]) < zero_price ? 0.0 : p.xx[j];

  set_directions(p);
  const Active active = active_of(p, TRV_ACC_VAR, j);
  // At its bound the variable can't follow the cost.
  if (s > 0.0 ? active.lower : active.upper) {
    side->range = infinity_bound;
    return TRV_RES_OK;
  }
  set_bound(p, TRV_ACC_VAR, j, true, -s, true, -s);
  if (rc = solve(p, p.cost, &outcome); rc != TRV_RES_OK) return rc;
  side->range = outcome == Outcome::infeasible  ? infinity_bound
                : outcome == Outcome::unbounded ? 0.0
                                                : std::max(objective_of(p, p.cost), 0.0);
  return TRV_RES_OK;
}

int32_t run(Task* task, const SenList& list) {
  Partition p;
  p.task = task;
  Workspace work(task->sys);
  if (const int32_t rc = open(p, work); rc != TRV_RES_OK) return rc;
  const bool costs = list.mark == nullptr;
  for (int32_t t = 0; t < list.num; ++t) {
    const int32_t i = list.sub[t];
    Side side[2] = {};  // left, right
    for (int k = 0; k < 2; ++k) {
      const double s = k == 0 ? -1.0 : 1.0;
      const int32_t rc =
          costs ? cost_side(p, i, s, &side[k])
                : bound_side(p, list.accmode, i, sen_label(task, list.accmode, i, list.mark[t]), s, &side[k]);
      if (rc != TRV_RES_OK) return rc;
    }
    // The costs of a maximisation are negated: V, and for costs the axis as well, turns round.
    const bool turned = costs && p.sign < 0.0;
    const Side &left = side[turned ? 1 : 0], &right = side[turned ? 0 : 1];
    const double factor = costs ? 1.0 : p.sign;
    list.leftprice[t] = factor * left.price + 0.0;
    list.rightprice[t] = factor * right.price + 0.0;
    list.leftrange[t] = -left.range + 0.0;
    list.rightrange[t] = right.range;
  }
  return TRV_RES_OK;
}

}  // namespace

int32_t sen_partition_bounds(Task* task, const SenList& list) { return run(task, list); }
int32_t sen_partition_costs(Task* task, const SenList& list) { return run(task, list); }

}  // namespace tarvo
