// Feasibility repair: the least weighted sum of bound violations. With a violation v >= 0 for every bound that exists,
//   lc - v <= A x <= uc + v,  lx - v <= x <= ux + v,  sum w'v - wsumviol = 0,  min wsumviol.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

struct Weights {
  double *wlc, *wuc, *wlx, *wux;
  double* of(int32_t accmode, bool lower) const {
    return accmode == TRV_ACC_CON ? (lower ? wlc : wuc) : (lower ? wlx : wux);
  }
};

const char* text_param(const Task* task, int32_t which) {
  return task->spar[which] == nullptr ? "" : task->spar[which];
}

bool prints(const Task* task, int32_t level) { return task->ipar[TRV_IPAR_LOG_FEASREPAIR] >= level; }

int32_t check_bounds(Task* task) {
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
    const bool con = accmode == TRV_ACC_CON;
    for (int32_t i = 0; i < item_count(task, accmode); ++i) {
      const int32_t bk = con ? task->bkc[i] : task->bkx[i];
      const bool crossed = con ? task->blc[i] > task->buc[i] : task->blx[i] > task->bux[i];
      if (bk != TRV_BK_RA || !crossed) continue;
      const char* kind = con ? "constraint" : "variable";
      return report<TRV_RES_ERR_FEASREPAIR_INCONSISTENT_BOUND>(task, kind, acc_name(task, accmode, i), i);
    }
  }
  return TRV_RES_OK;
}

// Gives item `index` of the relaxed task the name prefix + name [+ separator + side]. Where that is taken (a constraint
// and a variable of the same name) or the item has no name the word of its kind and its index stand for the name; if
// that is taken, too, the item stays without a name.
int32_t put_name(Task* task, Task* relaxed, int32_t kind, int32_t index, int32_t accmode, int32_t i, const char* side) {
  const char* prefix = text_param(task, TRV_SPAR_FEASREPAIR_NAME_PREFIX);
  const char* separator = side == nullptr ? "" : text_param(task, TRV_SPAR_FEASREPAIR_NAME_SEPARATOR);
  const char* name = acc_name(task, accmode, i);
  const std::size_t room =
      std::strlen(prefix) + std::max<std::size_t>(std::strlen(name), 16) + std::strlen(separator) + 4;
  Array<char> text;
  if (!text.alloc(task->sys, room)) return TRV_RES_ERR_SPACE;
  char generic[16];
  std::snprintf(generic, sizeof generic, "%s%d", accmode == TRV_ACC_CON ? "CON" : "VAR", i);
  for (const char* middle : {name, static_cast<const char*>(generic)}) {
    if (*middle == '\0') continue;
    std::snprintf(text.data(), room, "%s%s%s%s", prefix, middle, separator, side == nullptr ? "" : side);
    int32_t owner = -1;
    const int32_t rc = names_put(relaxed, kind, index, text.data(), &owner);
    if (rc != TRV_RES_ERR_DUP_NAME) return rc;
  }
  return TRV_RES_OK;
}

// Row numcon + j holds variable j to its bounds; the variable itself becomes free.
int32_t add_variable_rows(Task* task, Task* relaxed) {
  const int32_t m = task->numcon;
  int32_t rc = TRV_append(relaxed, TRV_ACC_CON, task->numvar);
  for (int32_t j = 0; j < task->numvar && rc == TRV_RES_OK; ++j) {
    store_bound(relaxed, TRV_ACC_CON, m + j, task->bkx[j], task->blx[j], task->bux[j]);
    store_bound(relaxed, TRV_ACC_VAR, j, TRV_BK_FR, -infinity_bound, infinity_bound);
    rc = TRV_putaij(relaxed, m + j, j, 1.0);
    if (rc == TRV_RES_OK && *acc_name(task, TRV_ACC_VAR, j) != '\0')
      rc = put_name(task, relaxed, TRV_PI_CON, m + j, TRV_ACC_VAR, j, nullptr);
  }
  return rc;
}

bool bound_exists(const Task* task, int32_t accmode, int32_t i, bool lower) {
  const int32_t bk = accmode == TRV_ACC_CON ? task->bkc[i] : task->bkx[i];
  return lower ? has_lower(bk) : has_upper(bk);
}

// Calls f(accmode, i, lower) for every bound that exists, in the order of the violation variables.
template <class F>
int32_t for_bounds(const Task* task, F f) {
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR})
    for (int32_t i = 0; i < item_count(task, accmode); ++i)
      for (const bool lower : {true, false}) {
        if (!bound_exists(task, accmode, i, lower)) continue;
        if (const int32_t rc = f(accmode, i, lower); rc != TRV_RES_OK) return rc;
      }
  return TRV_RES_OK;
}

int32_t add_violation(Task* task, Task* relaxed, int32_t col, int32_t accmode, int32_t i, bool lower, double weight) {
  const bool con = accmode == TRV_ACC_CON;
  const bool fixed = weight < 0.0;
  store_bound(relaxed, TRV_ACC_VAR, col, fixed ? TRV_BK_FX : TRV_BK_LO, 0.0, fixed ? 0.0 : infinity_bound);
  if (fixed && prints(task, 3))
    task_print(task, TRV_STREAM_MSG, "Not relaxing %s bound for %s nr. %d.\n", lower ? "lower" : "upper",
               con ? "con" : "var", i);
  const int32_t lastrow = task->numcon + task->numvar;
  int32_t sub[2] = {con ? i : task->numcon + i, lastrow};
  double val[2] = {lower ? 1.0 : -1.0, weight};
  const int32_t rc = TRV_putavec(relaxed, TRV_ACC_VAR, col, weight != 0.0 ? 2 : 1, sub, val);
  return rc != TRV_RES_OK ? rc : put_name(task, relaxed, TRV_PI_VAR, col, accmode, i, lower ? "lo" : "up");
}

int32_t add_violations(Task* task, Task* relaxed, const Weights& weights) {
  const int32_t n = task->numvar;
  int64_t count = 0;
  for_bounds(task, [&count](int32_t, int32_t, bool) {
    ++count;
    return static_cast<int32_t>(TRV_RES_OK);
  });
  if (n + count + 1 > INT32_MAX) return TRV_RES_ERR_SPACE;
  const int32_t last = n + static_cast<int32_t>(count), lastrow = task->numcon + n;
  int32_t rc = TRV_append(relaxed, TRV_ACC_VAR, static_cast<int32_t>(count) + 1);
  if (rc == TRV_RES_OK) rc = TRV_append(relaxed, TRV_ACC_CON, 1);
  if (rc != TRV_RES_OK) return rc;
  store_bound(relaxed, TRV_ACC_CON, lastrow, TRV_BK_FX, 0.0, 0.0);
  store_bound(relaxed, TRV_ACC_VAR, last, TRV_BK_FR, -infinity_bound, infinity_bound);
  rc = TRV_putaij(relaxed, lastrow, last, -1.0);
  int32_t col = n;
  if (rc == TRV_RES_OK)
    rc = for_bounds(task, [&](int32_t accmode, int32_t i, bool lower) {
      return add_violation(task, relaxed, col++, accmode, i, lower, weights.of(accmode, lower)[i]);
    });
  int32_t owner = -1;
  if (rc == TRV_RES_OK)
    rc = names_put(relaxed, TRV_PI_VAR, last, text_param(task, TRV_SPAR_FEASREPAIR_NAME_WSUMVIOL), &owner);
  return rc == TRV_RES_ERR_DUP_NAME ? TRV_RES_OK : rc;
}

// The clone with the violations; its objective is their sum. Failures are unreported where they are of memory.
int32_t build(Task* task, const Weights& weights, TRVtask* relaxed) {
  int32_t rc = TRV_clonetask(task, relaxed);
  if (rc != TRV_RES_OK) return rc;
  sol_deleteall(*relaxed);
  rc = add_variable_rows(task, *relaxed);
  if (rc == TRV_RES_OK) rc = add_violations(task, *relaxed, weights);
  // The clone's objective goes as a whole, its constant and quadratic terms too: phase 1 is about the sum alone.
  if (rc == TRV_RES_OK) rc = TRV_putqobj(*relaxed, 0, nullptr, nullptr, nullptr);
  if (rc != TRV_RES_OK) return rc;
  std::fill((*relaxed)->c.begin(), (*relaxed)->c.end(), 0.0);
  std::fill((*relaxed)->cc.begin(), (*relaxed)->cc.end(), 0.0);
  (*relaxed)->cfix = 0.0;
  (*relaxed)->c[(*relaxed)->numvar - 1] = 1.0;
  (*relaxed)->objective_sense = TRV_OBJECTIVE_SENSE_MINIMIZE;
  return TRV_RES_OK;
}

// Optimises the relaxed task; *x is then its best solution.
int32_t optimise(Task* task, Task* relaxed, const double** x) {
  const int32_t response = TRV_optimize(relaxed);
  int32_t responseclass = TRV_RESPONSE_OK;
  TRV_getresponseclass(response, &responseclass);
  if (responseclass != TRV_RESPONSE_OK && responseclass != TRV_RESPONSE_WRN) return response;
  for (const int32_t whichsol : {TRV_SOL_ITG, TRV_SOL_BAS, TRV_SOL_ITR}) {
    if (!sol_defined(relaxed, whichsol)) continue;
    const int32_t solsta = relaxed->sol[whichsol].solsta;
    // A certificate is a defined solution, too.
    if (solsta != TRV_SOL_STA_OPTIMAL && solsta != TRV_SOL_STA_NEAR_OPTIMAL && solsta != TRV_SOL_STA_INTEGER_OPTIMAL &&
        solsta != TRV_SOL_STA_NEAR_INTEGER_OPTIMAL)
      continue;
    *x = sol_view(relaxed, whichsol).xx;
    return TRV_RES_OK;
  }
  return report<TRV_RES_ERR_FEASREPAIR_SOLVING_RELAXED>(task);
}

void write_bounds(Task* task, const double* x, const Weights& weights) {
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
    const bool con = accmode == TRV_ACC_CON;
    for (int32_t i = 0; i < item_count(task, accmode); ++i) {
      weights.of(accmode, true)[i] = con ? task->blc[i] : task->blx[i];
      weights.of(accmode, false)[i] = con ? task->buc[i] : task->bux[i];
    }
  }
  int32_t col = task->numvar;
  for_bounds(task, [&](int32_t accmode, int32_t i, bool lower) {
    const double violation = std::max(x[col++], 0.0);
    weights.of(accmode, lower)[i] += lower ? -violation : violation;
    return static_cast<int32_t>(TRV_RES_OK);
  });
}

// The task's own objective, under the least sum.
int32_t set_combined(Task* task, Task* relaxed, double sum) {
  const int32_t n = task->numvar;
  const int32_t last = relaxed->numvar - 1;
  std::fill(relaxed->c.begin(), relaxed->c.end(), 0.0);
  for (int32_t j = 0; j < n; ++j) relaxed->c[j] = task->c[j];
  for (int32_t i = 0; i < task->numcon; ++i) relaxed->cc[i] = task->cc[i];
  relaxed->cfix = task->cfix;
  relaxed->objective_sense = task->objective_sense;
  sol_changec(relaxed);
  const QuadStore& quad = task->quad;
  const int32_t begin = quad.qobjbegin, num = quad.qobjend - begin;
  int32_t rc = TRV_RES_OK;
  if (num > 0)
    rc = TRV_putqobj(relaxed, num, quad.qsubi.data() + begin, quad.qsubj.data() + begin, quad.qval.data() + begin);
  if (rc != TRV_RES_OK) return rc;
  const double limit = sum + task->dpar[TRV_DPAR_FEASREPAIR_TOL];
  store_bound(relaxed, TRV_ACC_VAR, last, TRV_BK_FX, limit, limit);
  return TRV_RES_OK;
}

int32_t run(Task* task, TRVtask* relaxed, const Weights& weights) {
  const int32_t mode = task->ipar[TRV_IPAR_FEASREPAIR_OPTIMIZE];
  int32_t rc = build(task, weights, relaxed);
  if (rc != TRV_RES_OK || mode == TRV_FEASREPAIR_OPTIMIZE_NONE) return rc;
  if (prints(task, 1)) task_print(task, TRV_STREAM_MSG, "Feasibility repair - Optimizing penalty.\n");
  const double* x = nullptr;
  rc = optimise(task, *relaxed, &x);
  if (rc != TRV_RES_OK) return rc;
  if (mode == TRV_FEASREPAIR_OPTIMIZE_PENALTY) {
    write_bounds(task, x, weights);
    return TRV_RES_OK;
  }
  if (rc = set_combined(task, *relaxed, x[(*relaxed)->numvar - 1]); rc != TRV_RES_OK) return rc;
  if (prints(task, 1)) task_print(task, TRV_STREAM_MSG, "Feasibility repair - Optimizing combined objective.\n");
  // The repaired bounds are those of the solution that the caller gets, which may spread the same sum otherwise.
  rc = optimise(task, *relaxed, &x);
  if (rc == TRV_RES_OK) write_bounds(task, x, weights);
  return rc;
}

}  // namespace

}  // namespace tarvo

using namespace tarvo;

extern "C" int32_t TRV_relaxprimal(TRVtask task, TRVtask* relaxedtask, double* wlc, double* wuc, double* wlx,
                                   double* wux) {
  int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  const int32_t sense = resolved_sense(task);
  if (sense != TRV_OBJECTIVE_SENSE_MINIMIZE && sense != TRV_OBJECTIVE_SENSE_MAXIMIZE)
    return report<TRV_RES_ERR_UNDEFINED_OBJECTIVE_SENSE>(task);
  response = check_pointers(task, {{"relaxedtask", relaxedtask}});
  if (response != TRV_RES_OK) return response;
  if (*relaxedtask == task) return report<TRV_RES_ERR_IDENTICAL_TASKS>(task);
  response = check_pointers(task, {{"wlc", wlc}, {"wuc", wuc}, {"wlx", wlx}, {"wux", wux}});
  if (response != TRV_RES_OK) return response;
  *relaxedtask = nullptr;
  if (prints(task, 2)) task_print(task, TRV_STREAM_MSG, "Begin feasibility repair.\n");
  if (task->nl_handle != nullptr || task->nl_getsp != nullptr || task->nl_getva != nullptr)
    return report<TRV_RES_ERR_FEASREPAIR_CANNOT_RELAX>(task);
  response = check_bounds(task);
  if (response != TRV_RES_OK) return response;
  if (prints(task, 3)) {
    for (int32_t j = 0; j < task->numvar; ++j) task_print(task, TRV_STREAM_MSG, "wlx[%d] = %f\n", j, wlx[j]);
    for (int32_t j = 0; j < task->numvar; ++j) task_print(task, TRV_STREAM_MSG, "wux[%d] = %f\n", j, wux[j]);
    for (int32_t i = 0; i < task->numcon; ++i) task_print(task, TRV_STREAM_MSG, "wlc[%d] = %f\n", i, wlc[i]);
    for (int32_t i = 0; i < task->numcon; ++i) task_print(task, TRV_STREAM_MSG, "wuc[%d] = %f\n", i, wuc[i]);
  }
  response = run(task, relaxedtask, {wlc, wuc, wlx, wux});
  if (response != TRV_RES_OK) {
    TRV_deletetask(relaxedtask);
    if (response == TRV_RES_ERR_SPACE) report<TRV_RES_ERR_SPACE>(task);
    return response;
  }
  if (prints(task, 2)) task_print(task, TRV_STREAM_MSG, "End feasibility repair.\n");
  return TRV_RES_OK;
}
