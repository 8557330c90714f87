// Bounds of constraints and variables.
#include <algorithm>
#include <cmath>

#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

struct BoundArrays {
  Array<int32_t>* bk;
  Array<double>* bl;
  Array<double>* bu;
};

BoundArrays bound_arrays(Task* task, int32_t accmode) {
  return accmode == TRV_ACC_CON ? BoundArrays{&task->bkc, &task->blc, &task->buc}
                                : BoundArrays{&task->bkx, &task->blx, &task->bux};
}

// The key that tells which sides are finite.
int32_t normal_key(const Task* task, int32_t bk, double bl, double bu) {
  const double inf = task->dpar[TRV_DPAR_DATA_TOL_BOUND_INF];
  const bool lower = has_lower(bk) && !(bl <= -inf);
  const bool upper = has_upper(bk) && !(bu >= inf);
  // A variable can't be fixed at infinity: both sides are dropped.
  if (bk == TRV_BK_FX) return std::fabs(bl) >= inf ? TRV_BK_FR : TRV_BK_FX;
  if (lower && upper) return TRV_BK_RA;
  return lower ? TRV_BK_LO : upper ? TRV_BK_UP : TRV_BK_FR;
}

int32_t warn_lower(Task* task, int32_t accmode, int32_t i, double bl, Location at = Location::current()) {
  return report<TRV_RES_WRN_LARGE_LO_BOUND>({task, at}, bl, accmode == TRV_ACC_CON ? "constraint" : "variable",
                                            acc_name(task, accmode, i), i);
}
int32_t warn_upper(Task* task, int32_t accmode, int32_t i, double bu, Location at = Location::current()) {
  return report<TRV_RES_WRN_LARGE_UP_BOUND>({task, at}, bu, accmode == TRV_ACC_CON ? "constraint" : "variable",
                                            acc_name(task, accmode, i), i);
}

// The bound is stored whatever the warnings give; the first result of them that isn't 0 is the result.
int32_t put_bound(Task* task, int32_t accmode, int32_t i, int32_t bk, double bl, double bu) {
  if (const int32_t rc = check_bound_keys(task, "bk", accmode, 1, &bk)) return rc;
  int32_t result = TRV_RES_OK;
  const auto keep_first = [&](int32_t rc) { result = result != TRV_RES_OK ? result : rc; };
  if (bk == TRV_BK_FX) {
    constexpr double eps = 2.220446049250313e-16;
    if (std::fabs(bu - bl) >= eps * std::max({1.0, std::fabs(bl), std::fabs(bu)}))
      keep_first(report<TRV_RES_WRN_FIXED_BOUND_VALUES>(task, bl, bu));
    bu = bl;
  }
  if (const int32_t rc = check_index(task, "i", accmode, i)) return rc;
  const double large = task->dpar[TRV_DPAR_DATA_TOL_BOUND_WRN];
  const int32_t normal = normal_key(task, bk, bl, bu);
  if (has_lower(normal) && std::fabs(bl) >= large) keep_first(warn_lower(task, accmode, i, bl));
  if (has_upper(normal) && std::fabs(bu) >= large) keep_first(warn_upper(task, accmode, i, bu));
  store_bound(task, accmode, i, bk, bl, bu);
  return result;
}

void read_bound(Task* task, int32_t accmode, int32_t i, int32_t* bk, double* bl, double* bu) {
  const BoundArrays b = bound_arrays(task, accmode);
  const int32_t key = (*b.bk)[i];
  if (bk != nullptr) *bk = key;
  if (bl != nullptr) *bl = has_lower(key) ? (*b.bl)[i] : -infinity_bound;
  if (bu != nullptr) *bu = has_upper(key) ? (*b.bu)[i] : infinity_bound;
}

}  // namespace

void store_bound(Task* task, int32_t accmode, int32_t i, int32_t bk, double bl, double bu) {
  const int32_t key = normal_key(task, bk, bl, bu);
  const double lower = has_lower(key) ? bl : -infinity_bound;
  const double upper = has_upper(key) ? bu : infinity_bound;
  sol_changebound(task, accmode, i, key, lower, upper);
  const BoundArrays b = bound_arrays(task, accmode);
  (*b.bk)[i] = key;
  (*b.bl)[i] = lower;
  (*b.bu)[i] = upper;
}

}  // namespace tarvo

using namespace tarvo;

int32_t TRV_putbound(TRVtask task, int32_t accmode, int32_t i, int32_t bk, double bl, double bu) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  return put_bound(task, accmode, i, bk, bl, bu);
}

int32_t TRV_putboundlist(TRVtask task, int32_t accmode, int32_t num, const int32_t* sub, const int32_t* bk,
                         const double* bl, const double* bu) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (num <= 0) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"sub", sub}, {"bk", bk}, {"bl", bl}, {"bu", bu}})) return rc;
  for (int32_t k = 0; k < num; ++k)
    if (const int32_t rc = put_bound(task, accmode, sub[k], bk[k], bl[k], bu[k])) return rc;
  return TRV_RES_OK;
}

int32_t TRV_putboundslice(TRVtask task, int32_t accmode, int32_t first, int32_t last, const int32_t* bk,
                          const double* bl, const double* bu) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (first >= last) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"bk", bk}, {"bl", bl}, {"bu", bu}})) return rc;
  for (int32_t i = first; i < last; ++i) {
    const int64_t k = int64_t{i} - first;
    if (const int32_t rc = put_bound(task, accmode, i, bk[k], bl[k], bu[k])) return rc;
  }
  return TRV_RES_OK;
}

int32_t TRV_getbound(TRVtask task, int32_t accmode, int32_t i, int32_t* bk, double* bl, double* bu) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (const int32_t rc = check_index(task, "i", accmode, i)) return rc;
  read_bound(task, accmode, i, bk, bl, bu);
  return TRV_RES_OK;
}

int32_t TRV_getboundslice(TRVtask task, int32_t accmode, int32_t first, int32_t last, int32_t* bk, double* bl,
                          double* bu) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (first < 0) return report<TRV_RES_ERR_FIRST>(task);
  if (last < 0 || last > item_count(task, accmode)) return TRV_RES_ERR_LAST;
  for (int32_t i = first; i < last; ++i) {
    const int32_t k = i - first;
    read_bound(task, accmode, i, bk == nullptr ? nullptr : bk + k, bl == nullptr ? nullptr : bl + k,
               bu == nullptr ? nullptr : bu + k);
  }
  return TRV_RES_OK;
}

int32_t TRV_chgbound(TRVtask task, int32_t accmode, int32_t i, int32_t lower, int32_t finite, double value) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (const int32_t rc = check_index(task, "i", accmode, i)) return rc;
  int32_t bk = 0;
  double bl = 0.0, bu = 0.0;
  read_bound(task, accmode, i, &bk, &bl, &bu);
  const bool is_lower = lower != 0;
  const bool other = is_lower ? has_upper(bk) : has_lower(bk);
  const double inf = task->dpar[TRV_DPAR_DATA_TOL_BOUND_INF];
  if (finite == 0 || (is_lower ? value <= -inf : value >= inf)) {
    store_bound(task, accmode, i, !other ? TRV_BK_FR : is_lower ? TRV_BK_UP : TRV_BK_LO, bl, bu);
    return TRV_RES_OK;
  }
  // The only report of a large value; storing warns of nothing.
  int32_t result = TRV_RES_OK;
  if (std::fabs(value) >= task->dpar[TRV_DPAR_DATA_TOL_BOUND_WRN])
    result = is_lower ? warn_lower(task, accmode, i, value) : warn_upper(task, accmode, i, value);
  double& side = is_lower ? bl : bu;
  if ((is_lower ? has_lower(bk) : has_upper(bk)) && side == value) return result;
  side = value;
  int32_t key = other ? TRV_BK_RA : is_lower ? TRV_BK_LO : TRV_BK_UP;
  if (key == TRV_BK_RA && std::fabs(bu - bl) <= 1e-16) key = TRV_BK_FX;
  store_bound(task, accmode, i, key, bl, bu);
  return result;
}
