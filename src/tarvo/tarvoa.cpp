// The constraint matrix: elements, vectors, slices, bulk loads.
#include <cmath>
#include <cstdio>

#include "tarvo/bufpool.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

int32_t matrix_response(Task* task, int32_t code, Location at) {
  switch (code) {
    case SPRMAT_OK:
      return TRV_RES_OK;
    case SPRMAT_ROWLIMIT:
    case SPRMAT_COLLIMIT:
      return report<TRV_RES_ERR_INTERNAL>({task, at}, "append rows");
    case SPRMAT_CAPACITY:
      return report<TRV_RES_ERR_MAXNUMANZ>({task, at});
    case SPRMAT_SPACE:
      return report<TRV_RES_ERR_SPACE>({task, at});
    case SPRMAT_ARRAY_SHORT:
      return report<TRV_RES_ERR_NEGATIVE_SURPLUS>({task, at});
    case SPRMAT_LOCKED:
      return report<TRV_RES_ERR_INTERNAL>({task, at}, "the problem is in use by an optimizer");
    default:
      task_fatal(task, at, "sprmat: %d\n", code);
  }
}

sprmat* matrix_open(Task* task) {
  if (task->a == nullptr) {
    task->a = sprmat_make(task->sys, task->maxnumcon, task->maxnumvar);
    if (task->a == nullptr) return nullptr;
    sprmat_putextra(task->a, task->maxnumcon);
    sprmat_appendrows(task->a, task->numcon);
    sprmat_appendcols(task->a, task->numvar);
  }
  if (sprmat_getnumrows(task->a) != task->numcon) [[unlikely]]
    task_fatal(task, Location::current(), "Mismatch numcon: %d numrow: %d\n", task->numcon, sprmat_getnumrows(task->a));
  if (sprmat_getnumcols(task->a) != task->numvar) [[unlikely]]
    task_fatal(task, Location::current(), "Mismatch numvar: %d numcol: %d\n", task->numvar, sprmat_getnumcols(task->a));
  sprmat_putdoubletrh(task->a, task->ipar[TRV_IPAR_MAXNUMANZ_DOUBLE_TRH]);
  return task->a;
}

void matrix_close(Task* task, int32_t oldcapacity) {
  const int32_t capacity = sprmat_getmaxnz(task->a);
  task->iinf[TRV_IINF_STO_NUM_A_CACHE_FLUSHES] = sprmat_getnumflushes(task->a);
  task->iinf[TRV_IINF_STO_NUM_A_TRANSPOSES] = sprmat_getnumtransposes(task->a);
  if (capacity <= oldcapacity) return;
  ++task->iinf[TRV_IINF_STO_NUM_A_REALLOC];
  log_expansion(task, "maximum number of A nonzeros", oldcapacity, capacity);
}

namespace {

bool any_defined(const Task* task) {
  return sol_defined(task, TRV_SOL_ITR) || sol_defined(task, TRV_SOL_BAS) || sol_defined(task, TRV_SOL_ITG);
}

int32_t warn_large(Task* task, double value, int32_t i, int32_t j, Location at = Location::current()) {
  return report<TRV_RES_WRN_LARGE_AIJ>({task, at}, value, item_name(task, TRV_PI_VAR, j), j,
                                       item_name(task, TRV_PI_CON, i), i);
}

int32_t put_aij(Task* task, int32_t i, int32_t j, double aij) {
  if (const int32_t rc = check_index(task, "i", TRV_PI_CON, i)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  if (std::fabs(aij) >= task->dpar[TRV_DPAR_DATA_TOL_AIJ_LARGE])
    if (const int32_t rc = warn_large(task, aij, i, j)) return rc;
  // Tiny values and NaN remove the element.
  const double value = std::fabs(aij) >= task->dpar[TRV_DPAR_DATA_TOL_AIJ] ? aij : 0.0;
  if (const int32_t rc = with_matrix(task, [&](sprmat* a) { return sprmat_putelement(a, i, j, value); })) return rc;
  sol_changeaij(task, j);
  return TRV_RES_OK;
}

// The statuses of the solutions for a change of a whole vector; for a row every column of its old elements and of the
// new ones counts.
int32_t lower_statuses(Task* task, int32_t accmode, int32_t i, int32_t n, const int32_t* sub) {
  if (!any_defined(task)) return TRV_RES_OK;
  if (accmode == TRV_ACC_VAR) {
    sol_changeaij(task, i);
    return TRV_RES_OK;
  }
  int32_t rc = TRV_RES_OK, length = 0;
  Lease<int32_t> old(task, task->maxnumvar, Fill::raw, &rc);
  if (rc == TRV_RES_OK)
    rc = with_matrix(task, [&](sprmat* a) { return sprmat_getvec(a, true, i, &length, old.data(), nullptr); });
  if (rc != TRV_RES_OK) return rc;
  for (int32_t k = 0; k < length; ++k) sol_changeaij(task, old.data()[k]);
  for (int32_t k = 0; k < n; ++k) sol_changeaij(task, sub[k]);
  return TRV_RES_OK;
}

// How an argument is shown when entry k of it is bad: "asub[k]" or, from a list of vectors, "(asub+aptrb[at])[k]".
struct ArgumentText {
  char text[64];
  ArgumentText(int32_t list_position, int32_t k) {
    if (list_position < 0)
      std::snprintf(text, sizeof text, "asub[%d]", k);
    else
      std::snprintf(text, sizeof text, "(asub+aptrb[%d])[%d]", list_position, k);
  }
};

// Replaces vector i by n checked entries; *small counts the values that are too small to be stored.
int32_t put_vector(Task* task, int32_t accmode, int32_t i, int32_t n, const int32_t* sub, const double* val,
                   int32_t list_position, int32_t* small) {
  const bool con = accmode == TRV_ACC_CON;
  const int32_t limit = con ? task->numvar : task->numcon;
  const int32_t capacity = con ? task->maxnumvar : task->maxnumcon;
  const double large = task->dpar[TRV_DPAR_DATA_TOL_AIJ_LARGE], tol = task->dpar[TRV_DPAR_DATA_TOL_AIJ];
  const bool check_nan = task->ipar[TRV_IPAR_DATA_CHECK] != 0;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  for (int32_t k = 0; k < n; ++k) {
    if (sub[k] < 0) {
      const ArgumentText argument(list_position, k);
      return report<TRV_RES_ERR_INDEX_IS_TOO_SMALL>(task, sub[k], static_cast<const char*>(argument.text));
    }
    if (sub[k] >= limit) {
      const ArgumentText argument(list_position, k);
      return report<TRV_RES_ERR_INDEX_IS_TOO_LARGE>(task, sub[k], static_cast<const char*>(argument.text));
    }
    if (check_nan && std::isnan(val[k])) return report<TRV_RES_ERR_NAN_IN_DOUBLE_DATA>(task, "aval");
    if (std::fabs(val[k]) >= large)
      if (const int32_t rc = warn_large(task, val[k], con ? i : sub[k], con ? sub[k] : i)) return rc;
    *small += static_cast<int32_t>(std::fabs(val[k]) <= tol);
  }
  // place[j] is 1 plus the position of index j in the merged vector.
  int32_t rc = TRV_RES_OK;
  const int32_t scratch = n > 0 ? capacity : 0;
  Lease<int32_t> place(task, scratch, Fill::zero, &rc);
  Lease<int32_t> index(task, scratch, Fill::raw, &rc);
  Lease<double> value(task, scratch, Fill::raw, &rc);
  if (rc == TRV_RES_OK) rc = lower_statuses(task, accmode, i, n, sub);
  if (rc != TRV_RES_OK) return rc;
  int32_t* const where = place.data();
  int32_t* const merged_sub = index.data();
  double* const merged_val = value.data();
  int32_t merged = 0;
  for (int32_t k = 0; k < n; ++k) {
    int32_t& at = where[sub[k]];
    if (at != 0) {
      merged_val[at - 1] += val[k];
      continue;
    }
    merged_sub[merged] = sub[k];
    merged_val[merged] = val[k];
    at = ++merged;
  }
  int32_t kept = 0;
  for (int32_t k = 0; k < merged; ++k) {
    where[merged_sub[k]] = 0;
    if (std::fabs(merged_val[k]) < tol) continue;
    merged_sub[kept] = merged_sub[k];
    merged_val[kept++] = merged_val[k];
  }
  return with_matrix(task, [&](sprmat* a) {
    return con ? sprmat_putrow(a, i, kept, merged_sub, merged_val) : sprmat_putcol(a, i, kept, merged_sub, merged_val);
  });
}

int32_t warn_small(Task* task, int32_t small) {
  return small > 0 ? report<TRV_RES_WRN_ZEROS_IN_SPARSE_DATA>(task, small) : TRV_RES_OK;
}

int32_t check_slice(Task* task, int32_t accmode, int32_t first, int32_t last) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (first < 0) return TRV_RES_ERR_FIRST;
  return last < 0 || last > item_count(task, accmode) ? TRV_RES_ERR_LAST : TRV_RES_OK;
}

int32_t saturated(int64_t count) { return count > INT32_MAX ? INT32_MAX : static_cast<int32_t>(count); }

int32_t count_slice(Task* task, int32_t firsti, int32_t lasti, int32_t firstj, int32_t lastj, int32_t* numnz) {
  int64_t count = 0;
  const int32_t rc =
      with_matrix(task, [&](sprmat* a) { return sprmat_getnumnzslice(a, firsti, lasti, firstj, lastj, &count); });
  *numnz = saturated(count);
  return rc;
}

}  // namespace

int32_t data_loadcolumns(Task* task, int32_t first, int32_t num, const int32_t* ptrb, const int32_t* ptre,
                         const int32_t* sub, const double* val) {
  const double large = task->dpar[TRV_DPAR_DATA_TOL_AIJ_LARGE], tol = task->dpar[TRV_DPAR_DATA_TOL_AIJ];
  const bool check_nan = task->ipar[TRV_IPAR_DATA_CHECK] != 0;
  int32_t small = 0;
  for (int32_t k = 0; k < num; ++k) {
    for (int32_t t = ptrb[k]; t < ptre[k]; ++t) {
      if (check_nan && std::isnan(val[t])) return report<TRV_RES_ERR_NAN_IN_DOUBLE_DATA>(task, "aval");
      if (std::fabs(val[t]) >= large)
        if (const int32_t rc = warn_large(task, val[t], sub[t], first + k)) return rc;
      small += static_cast<int32_t>(std::fabs(val[t]) <= tol);
    }
  }
  const int32_t rc =
      with_matrix(task, [&](sprmat* a) { return sprmat_loadcols(a, first, num, ptrb, ptre, sub, val, tol); });
  if (rc != TRV_RES_OK) return rc;
  for (int32_t k = 0; k < num && any_defined(task); ++k) sol_changeaij(task, first + k);
  return warn_small(task, small);
}

}  // namespace tarvo

using namespace tarvo;

// ---- Elements -----------------------------------------------------------------------------------------------------

int32_t TRV_putaij(TRVtask task, int32_t i, int32_t j, double aij) {
  if (const int32_t rc = task_check(task)) return rc;
  return put_aij(task, i, j, aij);
}

int32_t TRV_putaijlist(TRVtask task, int32_t num, const int32_t* subi, const int32_t* subj, const double* val) {
  if (const int32_t rc = task_check(task)) return rc;
  if (num <= 0) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"subi", subi}, {"subj", subj}, {"val", val}})) return rc;
  for (int32_t k = 0; k < num; ++k)
    if (const int32_t rc = put_aij(task, subi[k], subj[k], val[k])) return rc;
  return TRV_RES_OK;
}

int32_t TRV_getaij(TRVtask task, int32_t i, int32_t j, double* aij) {
  if (const int32_t rc = check_reader(task, "aij", aij)) return rc;
  *aij = 0.0;
  if (const int32_t rc = check_index(task, "i", TRV_PI_CON, i)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  return with_matrix(task, [&](sprmat* a) { return sprmat_getelement(a, i, j, aij); });
}

// ---- Vectors ------------------------------------------------------------------------------------------------------

int32_t TRV_putavec(TRVtask task, int32_t accmode, int32_t i, int32_t nzi, const int32_t* asub, const double* aval) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (const int32_t rc = check_index(task, "i", accmode, i)) return rc;
  if (nzi < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "nzi");
  if (nzi > 0)
    if (const int32_t rc = check_pointers(task, {{"asub", asub}, {"aval", aval}})) return rc;
  int32_t small = 0;
  if (const int32_t rc = put_vector(task, accmode, i, nzi, asub, aval, -1, &small)) return rc;
  return warn_small(task, small);
}

int32_t TRV_putaveclist(TRVtask task, int32_t accmode, int32_t num, const int32_t* sub, const int32_t* aptrb,
                        const int32_t* aptre, const int32_t* asub, const double* aval) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (num <= 0) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"sub", sub}, {"aptrb", aptrb}, {"aptre", aptre}})) return rc;
  if (const int32_t rc = check_index_list(task, "sub", 0, item_count(task, accmode), num, sub)) return rc;
  int32_t small = 0;
  for (int32_t k = 0; k < num; ++k) {
    if (aptre[k] < aptrb[k]) return report<TRV_RES_ERR_INV_APTRE>(task, k);
    if (aptrb[k] < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "aptrb");
    const int32_t n = aptre[k] - aptrb[k];
    if (n > 0)
      if (const int32_t rc = check_pointers(task, {{"asub", asub}, {"aval", aval}})) return rc;
    const int32_t rc = put_vector(task, accmode, sub[k], n, n > 0 ? asub + aptrb[k] : nullptr,
                                  n > 0 ? aval + aptrb[k] : nullptr, k, &small);
    if (rc != TRV_RES_OK) return rc;
  }
  return warn_small(task, small);
}

int32_t TRV_getavecnumnz(TRVtask task, int32_t accmode, int32_t i, int32_t* nzi) {
  if (const int32_t rc = check_reader(task, "nzi", nzi)) return rc;
  return TRV_getavec(task, accmode, i, nzi, nullptr, nullptr);
}

int32_t TRV_getavec(TRVtask task, int32_t accmode, int32_t i, int32_t* nzi, int32_t* subi, double* vali) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (const int32_t rc = check_index(task, "i", accmode, i)) return rc;
  return with_matrix(task, [&](sprmat* a) { return sprmat_getvec(a, accmode == TRV_ACC_CON, i, nzi, subi, vali); });
}

// ---- Slices -------------------------------------------------------------------------------------------------------

int32_t TRV_getnumanz(TRVtask task, int32_t* numanz) {
  if (const int32_t rc = check_reader(task, "numanz", numanz)) return rc;
  *numanz = 0;
  if (task->a == nullptr) return TRV_RES_OK;
  return with_matrix(task, [&](sprmat* a) { return sprmat_getnumnz(a, numanz); });
}

int32_t TRV_getaslicenumnz(TRVtask task, int32_t accmode, int32_t first, int32_t last, int32_t* numnz) {
  if (const int32_t rc = check_slice(task, accmode, first, last)) return rc;
  if (const int32_t rc = check_pointers(task, {{"numnz", numnz}})) return rc;
  const bool con = accmode == TRV_ACC_CON;
  return count_slice(task, con ? first : 0, con ? last : task->numcon, con ? 0 : first, con ? task->numvar : last,
                     numnz);
}

int32_t TRV_getaslice(TRVtask task, int32_t accmode, int32_t first, int32_t last, int32_t maxnumnz, int32_t* surplus,
                      int32_t* ptrb, int32_t* ptre, int32_t* sub, double* val) {
  if (const int32_t rc = check_slice(task, accmode, first, last)) return rc;
  if (const int32_t rc = check_pointers(task, {{"surplus", surplus}})) return rc;
  return with_matrix(task, [&](sprmat* a) {
    return sprmat_getslice(a, accmode == TRV_ACC_CON, first, last, maxnumnz, surplus, ptrb, ptre, sub, val);
  });
}

int32_t TRV_getaslicetrip(TRVtask task, int32_t accmode, int32_t first, int32_t last, int32_t maxnumnz,
                          int32_t* surplus, int32_t* subi, int32_t* subj, double* val) {
  if (const int32_t rc = check_slice(task, accmode, first, last)) return rc;
  if (const int32_t rc = check_pointers(task, {{"surplus", surplus}})) return rc;
  return with_matrix(task, [&](sprmat* a) {
    return sprmat_gettriplets(a, accmode == TRV_ACC_CON, first, last, maxnumnz, surplus, subi, subj, val);
  });
}

int32_t TRV_getapiecenumnz(TRVtask task, int32_t firsti, int32_t lasti, int32_t firstj, int32_t lastj, int32_t* numnz) {
  if (const int32_t rc = check_reader(task, "numnz", numnz)) return rc;
  if (firsti < 0 || firsti > task->numcon) return report<TRV_RES_ERR_FIRSTI>(task, firsti);
  if (lasti < firsti || lasti > task->numcon) return report<TRV_RES_ERR_LASTI>(task, lasti);
  if (firstj < 0 || firstj > task->numvar) return report<TRV_RES_ERR_FIRSTJ>(task, firstj);
  if (lastj < firstj || lastj > task->numvar) return report<TRV_RES_ERR_LASTJ>(task, lastj);
  return count_slice(task, firsti, lasti, firstj, lastj, numnz);
}

int32_t TRV_commitchanges(TRVtask task) {
  if (const int32_t rc = task_check(task)) return rc;
  if (task->a == nullptr) return TRV_RES_OK;
  return with_matrix(task, [](sprmat* a) { return sprmat_flush(a); });
}
