#include "tarvo/tarvosol.h"

#include <cmath>

#include "tarvo/frame.h"
#include "tarvo/tarvobas.h"
#include "tarvo/tarvodat.h"

namespace tarvo {

namespace {

// ---- Layout ----------------------------------------------------------------------------------------------------

struct Capacity {
  std::size_t con, var, cone;
};

Capacity capacity(const Task* task) {
  return {static_cast<std::size_t>(task->maxnumcon), static_cast<std::size_t>(task->maxnumvar),
          static_cast<std::size_t>(task->maxnumcone)};
}

std::size_t numkeys(int32_t whichsol, const Capacity& cap) {
  return cap.con + cap.var + (whichsol == TRV_SOL_ITR ? cap.cone : 0);
}

std::size_t numvalues(int32_t whichsol, const Capacity& cap) {
  switch (whichsol) {
    case TRV_SOL_ITR:
      return 4 * cap.con + 4 * cap.var;
    case TRV_SOL_BAS:
      return 4 * cap.con + 3 * cap.var;
    default:
      return cap.con + cap.var;
  }
}

// The one place that knows the order of the parts.
SolutionView layout(int32_t whichsol, const Capacity& cap, int32_t* keys, double* values) {
  SolutionView view{};
  if (keys == nullptr) return view;
  view.skc = keys;
  view.skx = keys + cap.con;
  view.xc = values;
  view.xx = values + cap.con;
  if (whichsol == TRV_SOL_ITG) return view;
  double* duals = view.xx + cap.var;
  view.y = duals;
  view.slc = duals + cap.con;
  view.suc = duals + 2 * cap.con;
  view.slx = duals + 3 * cap.con;
  view.sux = view.slx + cap.var;
  if (whichsol == TRV_SOL_BAS) return view;
  view.skn = keys + cap.con + cap.var;
  view.snx = view.sux + cap.var;
  return view;
}

template <class T>
void copy(T* to, const T* from, std::size_t n) {
  if (n != 0 && to != nullptr && from != nullptr) std::memcpy(to, from, n * sizeof(T));
}

// ---- Status maps -----------------------------------------------------------------------------------------------

struct Step {
  int32_t from, to;
};

template <std::size_t N>
int32_t mapped(const Step (&steps)[N], int32_t status, int32_t otherwise) {
  for (const Step& step : steps)
    if (step.from == status) return step.to;
  return otherwise;
}
// Statuses that a list doesn't name become unknown ...
template <std::size_t N>
void lower_all(const Step (&steps)[N], int32_t* status) {
  *status = mapped(steps, *status, 0);
}
// ... or stay.
template <std::size_t N>
void lower_listed(const Step (&steps)[N], int32_t* status) {
  *status = mapped(steps, *status, *status);
}

constexpr Step newcon_prosta[] = {
    {TRV_PRO_STA_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_DUAL_FEAS},
    {TRV_PRO_STA_DUAL_FEAS, TRV_PRO_STA_DUAL_FEAS},
    {TRV_PRO_STA_PRIM_INFEAS, TRV_PRO_STA_PRIM_INFEAS},
    {TRV_PRO_STA_PRIM_AND_DUAL_INFEAS, TRV_PRO_STA_PRIM_INFEAS},
    {TRV_PRO_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_NEAR_DUAL_FEAS},
    {TRV_PRO_STA_NEAR_DUAL_FEAS, TRV_PRO_STA_NEAR_DUAL_FEAS},
};
constexpr Step newcon_solsta[] = {
    {TRV_SOL_STA_OPTIMAL, TRV_SOL_STA_DUAL_FEAS},
    {TRV_SOL_STA_DUAL_FEAS, TRV_SOL_STA_DUAL_FEAS},
    {TRV_SOL_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_DUAL_FEAS},
    {TRV_SOL_STA_PRIM_INFEAS_CER, TRV_SOL_STA_PRIM_INFEAS_CER},
    {TRV_SOL_STA_NEAR_OPTIMAL, TRV_SOL_STA_NEAR_DUAL_FEAS},
    {TRV_SOL_STA_NEAR_DUAL_FEAS, TRV_SOL_STA_NEAR_DUAL_FEAS},
    {TRV_SOL_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_NEAR_DUAL_FEAS},
};

// A new variable stands at its bound and a new cost touches no constraint: the primal side survives.
constexpr Step primal_prosta[] = {
    {TRV_PRO_STA_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_PRIM_FEAS},
    {TRV_PRO_STA_PRIM_FEAS, TRV_PRO_STA_PRIM_FEAS},
    {TRV_PRO_STA_PRIM_INFEAS, TRV_PRO_STA_PRIM_INFEAS},
    {TRV_PRO_STA_PRIM_AND_DUAL_INFEAS, TRV_PRO_STA_PRIM_INFEAS},
    {TRV_PRO_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_NEAR_PRIM_FEAS},
    {TRV_PRO_STA_NEAR_PRIM_FEAS, TRV_PRO_STA_NEAR_PRIM_FEAS},
};
constexpr Step newvar_solsta[] = {
    {TRV_SOL_STA_PRIM_INFEAS_CER, TRV_SOL_STA_PRIM_INFEAS_CER},
    {TRV_SOL_STA_PRIM_FEAS, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_PRIM_FEAS, TRV_SOL_STA_NEAR_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_NEAR_PRIM_FEAS},
};
constexpr Step changec_solsta[] = {
    {TRV_SOL_STA_PRIM_FEAS, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_INTEGER_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_INTEGER_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_PRIM_INFEAS_CER, TRV_SOL_STA_PRIM_INFEAS_CER},
    {TRV_SOL_STA_NEAR_PRIM_FEAS, TRV_SOL_STA_NEAR_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_NEAR_PRIM_FEAS},
};
constexpr Step aij_prosta[] = {
    {TRV_PRO_STA_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_PRIM_FEAS},
    {TRV_PRO_STA_PRIM_FEAS, TRV_PRO_STA_PRIM_FEAS},
    {TRV_PRO_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_NEAR_PRIM_FEAS},
    {TRV_PRO_STA_NEAR_PRIM_FEAS, TRV_PRO_STA_NEAR_PRIM_FEAS},
};
constexpr Step aij_solsta[] = {
    {TRV_SOL_STA_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_PRIM_FEAS, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_INTEGER_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_INTEGER_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_PRIM_FEAS, TRV_SOL_STA_NEAR_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_NEAR_PRIM_FEAS},
};

// The rules of a changed bound. A tightened bound may have made the problem infeasible, so statements that it is not
// go; if the point violates the new bound, its primal side goes too.
constexpr Step tighten_prosta[] = {
    {TRV_PRO_STA_PRIM_AND_DUAL_INFEAS, TRV_PRO_STA_PRIM_INFEAS},
    {TRV_PRO_STA_DUAL_INFEAS, 0},
    {TRV_PRO_STA_ILL_POSED, 0},
};
constexpr Step violated_prosta[] = {
    {TRV_PRO_STA_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_DUAL_FEAS},
    {TRV_PRO_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_NEAR_DUAL_FEAS},
    {TRV_PRO_STA_PRIM_FEAS, 0},
    {TRV_PRO_STA_NEAR_PRIM_FEAS, 0},
};
constexpr Step violated_solsta[] = {
    {TRV_SOL_STA_OPTIMAL, TRV_SOL_STA_DUAL_FEAS},
    {TRV_SOL_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_DUAL_FEAS},
    {TRV_SOL_STA_NEAR_OPTIMAL, TRV_SOL_STA_NEAR_DUAL_FEAS},
    {TRV_SOL_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_NEAR_DUAL_FEAS},
    {TRV_SOL_STA_PRIM_FEAS, 0},
    {TRV_SOL_STA_NEAR_PRIM_FEAS, 0},
    {TRV_SOL_STA_DUAL_INFEAS_CER, 0},
    {TRV_SOL_STA_NEAR_DUAL_INFEAS_CER, 0},
    {TRV_SOL_STA_INTEGER_OPTIMAL, 0},
    {TRV_SOL_STA_NEAR_INTEGER_OPTIMAL, 0},
};
// A bound is gone and with it the multiplier that it may carry.
constexpr Step losedual_prosta[] = {
    {TRV_PRO_STA_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_PRIM_FEAS},
    {TRV_PRO_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_PRO_STA_NEAR_PRIM_FEAS},
    {TRV_PRO_STA_DUAL_FEAS, 0},
    {TRV_PRO_STA_NEAR_DUAL_FEAS, 0},
};
constexpr Step losedual_solsta[] = {
    {TRV_SOL_STA_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_INTEGER_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_INTEGER_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_OPTIMAL, TRV_SOL_STA_NEAR_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_NEAR_PRIM_FEAS},
    {TRV_SOL_STA_DUAL_FEAS, 0},
    {TRV_SOL_STA_NEAR_DUAL_FEAS, 0},
};
// A bound was relaxed: better points and feasible points may exist now.
constexpr Step relax_prosta[] = {
    {TRV_PRO_STA_PRIM_AND_DUAL_INFEAS, TRV_PRO_STA_DUAL_INFEAS},
    {TRV_PRO_STA_PRIM_INFEAS, 0},
    {TRV_PRO_STA_ILL_POSED, 0},
};
constexpr Step relax_solsta[] = {
    {TRV_SOL_STA_OPTIMAL, TRV_SOL_STA_PRIM_AND_DUAL_FEAS},
    {TRV_SOL_STA_INTEGER_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_INTEGER_OPTIMAL, TRV_SOL_STA_PRIM_FEAS},
    {TRV_SOL_STA_NEAR_OPTIMAL, TRV_SOL_STA_NEAR_PRIM_AND_DUAL_FEAS},
    {TRV_SOL_STA_PRIM_INFEAS_CER, 0},
    {TRV_SOL_STA_NEAR_PRIM_INFEAS_CER, 0},
};

void tighten(Solution* sol, bool violated) {
  const int32_t before = sol->prosta;
  lower_listed(tighten_prosta, &sol->prosta);
  if (!violated) return;
  if (before == sol->prosta) lower_listed(violated_prosta, &sol->prosta);
  lower_listed(violated_solsta, &sol->solsta);
}

bool is_ray(int32_t solsta) {
  return solsta == TRV_SOL_STA_DUAL_INFEAS_CER || solsta == TRV_SOL_STA_NEAR_DUAL_INFEAS_CER;
}

struct Bound {
  int32_t bk;
  double bl, bu;
};

void changebound(Solution* sol, const Bound& old, const Bound& now, double tol, int32_t* sk, double x) {
  // A ray must keep to the bounds' finiteness alone: against it every finite bound counts as 0.
  const double scale = is_ray(sol->solsta) ? 0.0 : 1.0;
  if (has_lower(now.bk) && (!has_lower(old.bk) || old.bl + tol < now.bl)) tighten(sol, x < scale * now.bl - tol);
  if (has_upper(now.bk) && (!has_upper(old.bk) || now.bu < old.bu - tol)) tighten(sol, x > scale * now.bu + tol);

  const bool lost = (has_lower(old.bk) && !has_lower(now.bk)) || (has_upper(old.bk) && !has_upper(now.bk));
  if (lost) {
    lower_listed(losedual_prosta, &sol->prosta);
    lower_listed(losedual_solsta, &sol->solsta);
  }
  // An optimum stays one as long as no side was relaxed by more than the tolerance.
  const bool relaxed =
      lost || (has_lower(old.bk) && now.bl < old.bl - tol) || (has_upper(old.bk) && now.bu > old.bu + tol);
  if (relaxed) {
    lower_listed(relax_prosta, &sol->prosta);
    lower_listed(relax_solsta, &sol->solsta);
  }

  const bool certificate = is_ray(sol->solsta) || sol->solsta == TRV_SOL_STA_PRIM_INFEAS_CER;
  const double s = certificate ? 0.0 : 1.0;
  if ((*sk == TRV_SK_LOW || *sk == TRV_SK_FIX) && (!has_lower(now.bk) || std::fabs(x - s * now.bl) > tol))
    *sk = TRV_SK_UNK;
  if ((*sk == TRV_SK_UPR || *sk == TRV_SK_FIX) && (!has_upper(now.bk) || std::fabs(s * now.bu - x) > tol))
    *sk = TRV_SK_UNK;
}

void compact(int32_t count, const int32_t* keep, int32_t* list) {
  if (list == nullptr) return;
  for (int32_t k = 0; k < count; ++k)
    if (keep[k] >= 0) list[keep[k]] = list[k];
}
void compact(int32_t count, const int32_t* keep, double* list) {
  if (list == nullptr) return;
  for (int32_t k = 0; k < count; ++k)
    if (keep[k] >= 0) list[keep[k]] = list[k];
}

}  // namespace

// ---- Store -----------------------------------------------------------------------------------------------------

bool sol_exists(const Task* task, int32_t whichsol) {
  return !task->sol[whichsol].keys.empty() || numkeys(whichsol, capacity(task)) == 0;
}

bool sol_defined(const Task* task, int32_t whichsol) {
  return task->sol[whichsol].defined != 0 && sol_exists(task, whichsol);
}

SolutionView sol_view(Task* task, int32_t whichsol) {
  static constexpr const char* texts[3] = {"Interior-point soltion is not defined", "Basic soltion is not defined",
                                           "Integer soltion is not defined"};
  Solution& sol = task->sol[whichsol];
  if (!sol_exists(task, whichsol)) task_fatal(task, Location::current(), "%s", texts[whichsol]);
  return layout(whichsol, capacity(task), sol.keys.data(), sol.values.data());
}

int32_t sol_make(Task* task, int32_t whichsol) {
  if (sol_exists(task, whichsol)) return TRV_RES_OK;
  const Capacity cap = capacity(task);
  Array<int32_t> keys;
  Array<double> values;
  if (!keys.alloc(task->sys, numkeys(whichsol, cap), Fill::zero) ||
      !values.alloc(task->sys, numvalues(whichsol, cap), Fill::zero))
    return TRV_RES_ERR_SPACE;
  Solution& sol = task->sol[whichsol];
  sol.keys.swap(keys);
  sol.values.swap(values);
  sol.prosta = TRV_PRO_STA_UNKNOWN;
  sol.solsta = TRV_SOL_STA_UNKNOWN;
  sol.defined = 0;
  return TRV_RES_OK;
}

int32_t sol_makezero(Task* task, int32_t whichsol) {
  if (whichsol == TRV_SOL_BAS) basissolve_delete(task);
  const int32_t response = sol_make(task, whichsol);
  if (response != TRV_RES_OK) return response;
  Solution& sol = task->sol[whichsol];
  sol.defined = 1;
  sol.solsta = TRV_SOL_STA_UNKNOWN;
  if (!sol.keys.empty()) std::memset(sol.keys.data(), 0, sol.keys.size() * sizeof(int32_t));
  if (!sol.values.empty()) std::memset(static_cast<void*>(sol.values.data()), 0, sol.values.size() * sizeof(double));
  return TRV_RES_OK;
}

int32_t sol_recapacity(Task* task, int32_t maxnumcon, int32_t maxnumvar, int32_t maxnumcone) {
  const Capacity old = capacity(task);
  const Capacity now{static_cast<std::size_t>(maxnumcon), static_cast<std::size_t>(maxnumvar),
                     static_cast<std::size_t>(maxnumcone)};
  if (task->numcon > maxnumcon || task->numvar > maxnumvar || task->numcone > maxnumcone)
    task_fatal(task, Location::current(),
               "numcon: %d numvar: %d numcone: %d maxnumvar: %d maxnumcon: %d maxnumcone: %d", task->numcon,
               task->numvar, task->numcone, maxnumvar, maxnumcon, maxnumcone);
  Array<int32_t> keys[3];
  Array<double> values[3];
  for (int32_t s = 0; s < 3; ++s) {
    Solution& sol = task->sol[s];
    // A defined solution without arrays is one of an empty task: it grows with the task.
    if (sol.keys.empty() && !sol_defined(task, s)) continue;
    if (!keys[s].alloc(task->sys, numkeys(s, now), Fill::zero) ||
        !values[s].alloc(task->sys, numvalues(s, now), Fill::zero))
      return TRV_RES_ERR_SPACE;
  }
  const auto con = static_cast<std::size_t>(task->numcon);
  const auto var = static_cast<std::size_t>(task->numvar);
  for (int32_t s = 0; s < 3; ++s) {
    Solution& sol = task->sol[s];
    const SolutionView from = layout(s, old, sol.keys.data(), sol.values.data());
    const SolutionView to = layout(s, now, keys[s].data(), values[s].data());
    copy(to.skc, from.skc, con);
    copy(to.skx, from.skx, var);
    copy(to.skn, from.skn, static_cast<std::size_t>(task->numcone));
    copy(to.xc, from.xc, con);
    copy(to.xx, from.xx, var);
    copy(to.y, from.y, con);
    copy(to.slc, from.slc, con);
    copy(to.suc, from.suc, con);
    copy(to.slx, from.slx, var);
    copy(to.sux, from.sux, var);
    copy(to.snx, from.snx, var);
    sol.keys.swap(keys[s]);
    sol.values.swap(values[s]);
  }
  return TRV_RES_OK;
}

void sol_delete(Task* task, int32_t whichsol) {
  if (whichsol == TRV_SOL_BAS) basissolve_delete(task);
  Solution& sol = task->sol[whichsol];
  sol.keys.reset();
  sol.values.reset();
  sol.defined = 0;
}

void sol_deleteall(Task* task) {
  for (int32_t s = 0; s < 3; ++s) sol_delete(task, s);
}

// ---- Status rules ----------------------------------------------------------------------------------------------

void sol_newcon(Task* task, int32_t i) {
  basissolve_delete(task);
  for (int32_t s = 0; s < 3; ++s) {
    if (!sol_defined(task, s)) continue;
    Solution& sol = task->sol[s];
    lower_all(newcon_prosta, &sol.prosta);
    lower_all(newcon_solsta, &sol.solsta);
    const SolutionView view = sol_view(task, s);
    view.skc[i] = s == TRV_SOL_BAS ? TRV_SK_BAS : TRV_SK_SUPBAS;
    view.xc[i] = 0.0;
    if (view.y == nullptr) continue;
    view.y[i] = -task->cc[i];  // the reduced cost cc + y of the row is 0
    view.slc[i] = 0.0;
    view.suc[i] = 0.0;
  }
}

void sol_newvar(Task* task, int32_t j) {
  basissolve_delete(task);
  for (int32_t s = 0; s < 3; ++s) {
    if (!sol_defined(task, s)) continue;
    Solution& sol = task->sol[s];
    lower_all(primal_prosta, &sol.prosta);
    lower_all(newvar_solsta, &sol.solsta);
    const SolutionView view = sol_view(task, s);
    const bool fixed = task->bkx[j] == TRV_BK_FX;
    view.skx[j] = fixed ? TRV_SK_FIX : TRV_SK_UNK;
    view.xx[j] = fixed ? task->blx[j] : 0.0;
    if (view.slx != nullptr) view.slx[j] = view.sux[j] = 0.0;
    if (view.snx != nullptr) view.snx[j] = 0.0;
  }
}

void sol_changec(Task* task) {
  basissolve_delete(task);
  for (int32_t s = 0; s < 3; ++s) {
    if (!sol_defined(task, s)) continue;
    lower_all(primal_prosta, &task->sol[s].prosta);
    lower_all(changec_solsta, &task->sol[s].solsta);
  }
}

void sol_changebound(Task* task, int32_t accmode, int32_t i, int32_t bk, double bl, double bu) {
  basissolve_delete(task);
  const bool con = accmode == TRV_ACC_CON;
  const Bound old =
      con ? Bound{task->bkc[i], task->blc[i], task->buc[i]} : Bound{task->bkx[i], task->blx[i], task->bux[i]};
  for (int32_t s = 0; s < 3; ++s) {
    if (!sol_defined(task, s)) continue;
    const SolutionView view = sol_view(task, s);
    const double tol = task->dpar[s == TRV_SOL_BAS ? TRV_DPAR_BASIS_TOL_X : TRV_DPAR_DATA_TOL_X];
    changebound(&task->sol[s], old, {bk, bl, bu}, tol, con ? view.skc + i : view.skx + i,
                con ? view.xc[i] : view.xx[i]);
  }
}

void sol_changeaij(Task* task, int32_t j) {
  basissolve_delete(task);
  for (int32_t s = 0; s < 3; ++s) {
    if (!sol_defined(task, s)) continue;
    Solution& sol = task->sol[s];
    // Only a variable at 0 leaves the activities, and with them the primal side, as they were.
    if (std::fabs(sol_view(task, s).xx[j]) <= task->dpar[TRV_DPAR_DATA_TOL_X]) {
      lower_all(aij_prosta, &sol.prosta);
      lower_all(aij_solsta, &sol.solsta);
    } else {
      sol.prosta = TRV_PRO_STA_UNKNOWN;
      sol.solsta = TRV_SOL_STA_UNKNOWN;
    }
  }
}

void sol_compact(Task* task, int32_t accmode, int32_t oldcount, const int32_t* keep) {
  basissolve_delete(task);
  for (int32_t s = 0; s < 3; ++s) {
    if (task->sol[s].keys.empty()) continue;
    const SolutionView view = sol_view(task, s);
    if (accmode == TRV_ACC_CON) {
      compact(oldcount, keep, view.skc);
      for (double* part : {view.xc, view.y, view.slc, view.suc}) compact(oldcount, keep, part);
    } else {
      compact(oldcount, keep, view.skx);
      for (double* part : {view.xx, view.slx, view.sux, view.snx}) compact(oldcount, keep, part);
    }
  }
}

}  // namespace tarvo
