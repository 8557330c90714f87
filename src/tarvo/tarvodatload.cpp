// Loading whole problems and checking their numbers.
#include <cmath>

#include "tarvo/tarvodat_internal.h"

namespace tarvo {

namespace {

// The matrix of TRV_inputdata, before anything changes: limits, row indices, no row twice in a column.
int32_t check_columns(Task* task, int32_t numcon, int32_t numvar, const int32_t* aptrb, const int32_t* aptre,
                      const int32_t* asub, const double* aval, int64_t* numanz) {
  *numanz = 0;
  Array<int32_t> seen;  // 1 plus the last column that has the row
  if (!seen.alloc(task->sys, static_cast<std::size_t>(numcon), Fill::zero)) return report<TRV_RES_ERR_SPACE>(task);
  for (int32_t j = 0; j < numvar; ++j) {
    if (aptre[j] < aptrb[j]) return report<TRV_RES_ERR_INV_APTRE>(task, j);
    if (aptre[j] == aptrb[j]) continue;
    if (aptrb[j] < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "aptrb");
    if (const int32_t rc = check_pointers(task, {{"asub", asub}, {"aval", aval}})) return rc;
    for (int32_t t = aptrb[j]; t < aptre[j]; ++t) {
      const int32_t i = asub[t];
      if (i < 0) return report<TRV_RES_ERR_INDEX_IS_TOO_SMALL>(task, i, "asub");
      if (i >= numcon) return report<TRV_RES_ERR_INDEX_IS_TOO_LARGE>(task, i, "asub");
      if (seen[i] == j + 1) return report<TRV_RES_ERR_MUL_A_ELEMENT>(task, i, j);
      seen[i] = j + 1;
    }
    *numanz += aptre[j] - aptrb[j];
  }
  return *numanz > INT32_MAX ? report<TRV_RES_ERR_SPACE>(task) : TRV_RES_OK;
}

int32_t clear_and_size(Task* task, int32_t maxnumcon, int32_t maxnumvar, int32_t numcon, int32_t numvar,
                       int32_t numanz) {
  data_clear(task);
  if (const int32_t rc = TRV_putmaxnumcon(task, maxnumcon)) return rc;
  if (const int32_t rc = TRV_putmaxnumvar(task, maxnumvar)) return rc;
  if (const int32_t rc = TRV_putmaxnumanz(task, numanz)) return rc;
  if (const int32_t rc = TRV_append(task, TRV_ACC_CON, numcon)) return rc;
  return TRV_append(task, TRV_ACC_VAR, numvar);
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

int32_t TRV_inputdata(TRVtask task, int32_t maxnumcon, int32_t maxnumvar, int32_t numcon, int32_t numvar,
                      const double* c, double cfix, const int32_t* aptrb, const int32_t* aptre, const int32_t* asub,
                      const double* aval, const int32_t* bkc, const double* blc, const double* buc, const int32_t* bkx,
                      const double* blx, const double* bux) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  if (numcon < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "numcon");
  if (numvar < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "numvar");
  if (maxnumcon < 0) return report<TRV_RES_ERR_MAXNUMCON>(task, maxnumcon, numcon);
  if (maxnumvar < 0) return report<TRV_RES_ERR_MAXNUMVAR>(task, maxnumvar, numvar);
  if (numcon > 0)
    if (const int32_t rc = check_pointers(task, {{"bkc", bkc}, {"blc", blc}, {"buc", buc}})) return rc;
  if (numvar > 0) {
    const int32_t rc =
        check_pointers(task, {{"c", c}, {"bkx", bkx}, {"blx", blx}, {"bux", bux}, {"aptrb", aptrb}, {"aptre", aptre}});
    if (rc != TRV_RES_OK) return rc;
  }
  int64_t numanz = 0;
  if (const int32_t rc = check_columns(task, numcon, numvar, aptrb, aptre, asub, aval, &numanz)) return rc;
  const int32_t rc = clear_and_size(task, maxnumcon, maxnumvar, numcon, numvar, static_cast<int32_t>(numanz));
  if (rc != TRV_RES_OK) return rc;
  task->cfix = cfix;
  for (int32_t j = 0; j < numvar; ++j)
    if (const int32_t put = TRV_putclist(task, 1, &j, c + j)) return put;
  if (const int32_t put = TRV_putboundslice(task, TRV_ACC_CON, 0, numcon, bkc, blc, buc)) return put;
  if (const int32_t put = TRV_putboundslice(task, TRV_ACC_VAR, 0, numvar, bkx, blx, bux)) return put;
  return numanz > 0 ? data_loadcolumns(task, 0, numvar, aptrb, aptre, asub, aval) : TRV_RES_OK;
}

int32_t TRV_appendvars(TRVtask task, int32_t num, const double* c, const int32_t* aptrb, const int32_t* aptre,
                       const int32_t* asub, const double* aval, const int32_t* bkx, const double* blx,
                       const double* bux) {
  if (const int32_t rc = task_check(task)) return rc;
  if (num < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "num");
  if (num == 0) return TRV_RES_OK;
  const int32_t args =
      check_pointers(task, {{"c", c}, {"aptrb", aptrb}, {"aptre", aptre}, {"bkx", bkx}, {"blx", blx}, {"bux", bux}});
  if (args != TRV_RES_OK) return args;
  const int32_t first = task->numvar;
  if (const int32_t rc = TRV_append(task, TRV_ACC_VAR, num)) return rc;
  for (int32_t k = 0; k < num; ++k) {
    const int32_t j = first + k;
    if (const int32_t rc = TRV_putcj(task, j, c[k])) return rc;
    if (const int32_t rc = TRV_putbound(task, TRV_ACC_VAR, j, bkx[k], blx[k], bux[k])) return rc;
    if (const int32_t rc = TRV_putaveclist(task, TRV_ACC_VAR, 1, &j, aptrb + k, aptre + k, asub, aval)) return rc;
  }
  return TRV_RES_OK;
}

int32_t TRV_appendcons(TRVtask task, int32_t num, const int32_t* aptrb, const int32_t* aptre, const int32_t* asub,
                       const double* aval, const int32_t* bkc, const double* blc, const double* buc) {
  if (const int32_t rc = task_check(task)) return rc;
  if (num < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "num");
  if (num == 0) return TRV_RES_OK;
  const int32_t args =
      check_pointers(task, {{"aptrb", aptrb}, {"aptre", aptre}, {"bkc", bkc}, {"blc", blc}, {"buc", buc}});
  if (args != TRV_RES_OK) return args;
  const int32_t first = task->numcon;
  if (const int32_t rc = TRV_append(task, TRV_ACC_CON, num)) return rc;
  for (int32_t k = 0; k < num; ++k) {
    const int32_t i = first + k;
    if (const int32_t rc = TRV_putbound(task, TRV_ACC_CON, i, bkc[k], blc[k], buc[k])) return rc;
    if (const int32_t rc = TRV_putaveclist(task, TRV_ACC_CON, 1, &i, aptrb + k, aptre + k, asub, aval)) return rc;
  }
  return TRV_RES_OK;
}

int32_t TRV_checkdata(TRVtask task) {
  if (const int32_t rc = task_check(task)) return rc;
  for (int32_t i = 0; i < task->numcon; ++i) {
    const int32_t bk = task->bkc[i];
    if (has_lower(bk) && !std::isfinite(task->blc[i]))
      return report<TRV_RES_ERR_NAN_IN_BLC>(task, item_name(task, TRV_PI_CON, i), i);
    if (has_upper(bk) && !std::isfinite(task->buc[i]))
      return report<TRV_RES_ERR_NAN_IN_BUC>(task, item_name(task, TRV_PI_CON, i), i);
  }
  for (int32_t j = 0; j < task->numvar; ++j) {
    const int32_t bk = task->bkx[j];
    if (!std::isfinite(task->c[j])) return report<TRV_RES_ERR_NAN_IN_C>(task, item_name(task, TRV_PI_VAR, j), j);
    if (has_lower(bk) && !std::isfinite(task->blx[j]))
      return report<TRV_RES_ERR_NAN_IN_BLX>(task, item_name(task, TRV_PI_VAR, j), j);
    if (has_upper(bk) && !std::isfinite(task->bux[j]))
      return report<TRV_RES_ERR_NAN_IN_BUX>(task, item_name(task, TRV_PI_VAR, j), j);
  }
  return TRV_RES_OK;
}
