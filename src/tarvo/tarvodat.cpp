// Capacities, counts, appending and removing, the objective.
#include "tarvo/tarvodat.h"

#include <cmath>
#include <cstdio>

#include "tarvo/bufpool.h"
#include "tarvo/log.h"
#include "tarvo/tarvobas.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

int32_t check_pointers(Task* task, std::initializer_list<NamedPointer> pointers, Location at) {
  for (const NamedPointer& p : pointers)
    if (p.pointer == nullptr) return report<TRV_RES_ERR_NULL_POINTER>({task, at}, p.name);
  return TRV_RES_OK;
}

int32_t check_accmode(Task* task, int32_t accmode, Location at) {
  if (accmode == TRV_ACC_VAR || accmode == TRV_ACC_CON) return TRV_RES_OK;
  return report<TRV_RES_ERR_INVALID_ACCMODE>({task, at}, accmode);
}

int32_t check_reader(Task* task, const char* name, const void* output, Location at) {
  if (const int32_t rc = task_check(task)) return rc;
  return check_pointers(task, {{name, output}}, at);
}

void log_expansion(Task* task, const char* what, int32_t from, int32_t to) {
  if (to > from && task->ipar[TRV_IPAR_LOG] != 0 && task->ipar[TRV_IPAR_LOG_STORAGE] != 0)
    task_print(task, TRV_STREAM_LOG, "Expanding %s from %d to %d.\n", what, from, to);
}

int32_t resolved_sense(const Task* task) {
  return task->objective_sense != TRV_OBJECTIVE_SENSE_UNDEFINED ? task->objective_sense
                                                                : task->ipar[TRV_IPAR_OBJECTIVE_SENSE];
}

int32_t data_checkunlocked(Task* task, Location at) {
  if (task->a == nullptr || !sprmat_islocked(task->a)) return TRV_RES_OK;
  return matrix_response(task, SPRMAT_LOCKED, at);
}

int32_t data_lock(Task* task, ColumnView* view) {
  SprmatRaw raw;
  if (const int32_t rc = with_matrix(task, [&](sprmat* a) { return sprmat_getraw(a, &raw); })) return rc;
  *view = {raw.ptrb, raw.ptre, raw.sub, raw.val};
  return TRV_RES_OK;
}

void data_unlock(Task* task) {
  if (task->a != nullptr) sprmat_releaseraw(task->a);
}

void data_clear(Task* task) {
  sol_deleteall(task);
  basissolve_delete(task);
  task->quad = {};
  task->cones = {};
  task->numcon = task->numvar = task->numcone = 0;
  task->maxnumcon = task->maxnumvar = task->maxnumcone = 0;
  task->cfix = 0.0;
  for (Array<double>* array : {&task->c, &task->blx, &task->bux, &task->cc, &task->blc, &task->buc}) array->reset();
  for (Array<int32_t>* array :
       {&task->bkx, &task->bkc, &task->vartype, &task->branch_priority, &task->branch_direction})
    array->reset();
  task->numintvar = 0;
  sprmat_delete(&task->a);
  names_clear(task);
  bufpool_release(task);
}

namespace {

// A member array of a family that changes its capacity: the new array is made first, and all are swapped last.
template <class T>
struct Member {
  Array<T>* old;
  bool optional;  // stays empty when it is empty
  Array<T> grown = {};
  [[nodiscard]] bool make(Task* task, int32_t capacity, int32_t count) {
    return (optional && old->empty()) || copy_grown(task, &grown, *old, capacity, count);
  }
  void swap() {
    if (!optional || !old->empty()) old->swap(grown);
  }
};

template <std::size_t D, std::size_t I>
bool make_family(Task* task, Member<double> (&doubles)[D], Member<int32_t> (&ints)[I], int32_t capacity,
                 int32_t count) {
  for (Member<double>& m : doubles)
    if (!m.make(task, capacity, count)) return false;
  for (Member<int32_t>& m : ints)
    if (!m.make(task, capacity, count)) return false;
  return true;
}

template <std::size_t D, std::size_t I>
void swap_family(Member<double> (&doubles)[D], Member<int32_t> (&ints)[I]) {
  for (Member<double>& m : doubles) m.swap();
  for (Member<int32_t>& m : ints) m.swap();
}

int32_t put_maxnumcon(Task* task, int32_t n) {
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  names_dropmap(task, TRV_PI_CON);
  Member<double> doubles[] = {{&task->cc, false}, {&task->blc, false}, {&task->buc, false}};
  Member<int32_t> ints[] = {
      {&task->bkc, false}, {&task->names.conname, false}, {&task->quad.qconbegin, true}, {&task->quad.qconend, true}};
  if (!make_family(task, doubles, ints, n, task->numcon) ||
      (task->a != nullptr && sprmat_putmaxrows(task->a, n) != SPRMAT_OK) ||
      sol_recapacity(task, n, task->maxnumvar, task->maxnumcone) != TRV_RES_OK)
    return report<TRV_RES_ERR_SPACE>(task);
  swap_family(doubles, ints);
  if (task->a != nullptr) sprmat_putextra(task->a, n);
  const int32_t old = task->maxnumcon;
  task->maxnumcon = n;
  log_expansion(task, "maximum number of constraints", old, n);
  return TRV_RES_OK;
}

int32_t put_maxnumvar(Task* task, int32_t n) {
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  names_dropmap(task, TRV_PI_VAR);
  Member<double> doubles[] = {{&task->c, false}, {&task->blx, false}, {&task->bux, false}};
  Member<int32_t> ints[] = {{&task->bkx, false},
                            {&task->names.varname, false},
                            {&task->vartype, true},
                            {&task->branch_priority, true},
                            {&task->branch_direction, true},
                            {&task->cones.varcone, task->maxnumcone == 0}};
  // The ranges of the cones may reach beyond a smaller capacity: the members are packed into the new array.
  Array<int32_t> members;
  if (!make_family(task, doubles, ints, n, task->numvar) ||
      (task->maxnumcone > 0 && !members.alloc(task->sys, static_cast<std::size_t>(n))) ||
      (task->a != nullptr && sprmat_putmaxcols(task->a, n) != SPRMAT_OK) ||
      sol_recapacity(task, task->maxnumcon, n, task->maxnumcone) != TRV_RES_OK)
    return report<TRV_RES_ERR_SPACE>(task);
  if (task->maxnumcone > 0) cones_pack(task, &members);
  swap_family(doubles, ints);
  const int32_t old = task->maxnumvar;
  task->maxnumvar = n;
  log_expansion(task, "maximum number of variables", old, n);
  return TRV_RES_OK;
}

// Fills the fields of the new items [first, first + num).
void init_constraints(Task* task, int32_t first, int32_t num) {
  for (int32_t i = first; i < first + num; ++i) {
    task->cc[i] = 0.0;
    task->bkc[i] = TRV_BK_FR;
    task->blc[i] = -infinity_bound;
    task->buc[i] = infinity_bound;
    task->names.conname[i] = 0;
  }
  if (task->quad.qconbegin.empty()) return;
  for (int32_t i = first; i < first + num; ++i) task->quad.qconbegin[i] = task->quad.qconend[i] = 0;
}

void init_variables(Task* task, int32_t first, int32_t num) {
  for (int32_t j = first; j < first + num; ++j) {
    task->c[j] = 0.0;
    task->bkx[j] = TRV_BK_FX;
    task->blx[j] = task->bux[j] = 0.0;
    task->names.varname[j] = 0;
  }
  for (Array<int32_t>* array :
       {&task->vartype, &task->branch_priority, &task->branch_direction, &task->cones.varcone}) {
    if (array->empty()) continue;
    for (int32_t j = first; j < first + num; ++j) (*array)[j] = 0;
  }
}

// Moves the kept entries to the front.
template <class T>
void compact(Array<T>* array, int32_t count, const int32_t* keep) {
  if (array->empty()) return;
  for (int32_t k = 0; k < count; ++k)
    if (keep[k] >= 0) (*array)[keep[k]] = (*array)[k];
}

void compact_constraints(Task* task, const int32_t* keep) {
  for (Array<double>* array : {&task->cc, &task->blc, &task->buc}) compact(array, task->numcon, keep);
  for (Array<int32_t>* array : {&task->bkc, &task->names.conname, &task->quad.qconbegin, &task->quad.qconend})
    compact(array, task->numcon, keep);
}

void compact_variables(Task* task, const int32_t* keep) {
  quad_removevars(task, keep);
  cones_removevars(task, keep);
  if (!task->vartype.empty())
    for (int32_t j = 0; j < task->numvar; ++j)
      task->numintvar -= static_cast<int32_t>(keep[j] < 0 && task->vartype[j] == TRV_VAR_TYPE_INT);
  for (Array<double>* array : {&task->c, &task->blx, &task->bux}) compact(array, task->numvar, keep);
  for (Array<int32_t>* array : {&task->bkx, &task->names.varname, &task->vartype, &task->branch_priority,
                                &task->branch_direction, &task->cones.varcone})
    compact(array, task->numvar, keep);
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

// ---- Capacities and counts --------------------------------------------------------------------------------------

int32_t TRV_putmaxnumcon(TRVtask task, int32_t maxnumcon) {
  if (const int32_t rc = task_check(task)) return rc;
  if (maxnumcon == task->maxnumcon) return TRV_RES_OK;
  if (maxnumcon < task->numcon) return report<TRV_RES_ERR_MAXNUMCON>(task, maxnumcon, task->numcon);
  return put_maxnumcon(task, maxnumcon);
}

int32_t TRV_putmaxnumvar(TRVtask task, int32_t maxnumvar) {
  if (const int32_t rc = task_check(task)) return rc;
  if (maxnumvar == task->maxnumvar) return TRV_RES_OK;
  if (maxnumvar < task->numvar) return report<TRV_RES_ERR_MAXNUMVAR>(task, maxnumvar, task->numvar);
  return put_maxnumvar(task, maxnumvar);
}

int32_t TRV_putmaxnumanz(TRVtask task, int32_t maxnumanz) {
  if (const int32_t rc = task_check(task)) return rc;
  if (maxnumanz < 0) return report<TRV_RES_ERR_MAXNUMANZ>(task);
  return with_matrix(task, [&](sprmat* a) { return sprmat_resize(a, maxnumanz); });
}

int32_t TRV_getmaxnumvar(TRVtask task, int32_t* maxnumvar) {
  if (const int32_t rc = check_reader(task, "maxnumvar", maxnumvar)) return rc;
  *maxnumvar = task->maxnumvar;
  return TRV_RES_OK;
}

int32_t TRV_getmaxnumcon(TRVtask task, int32_t* maxnumcon) {
  if (const int32_t rc = check_reader(task, "maxnumcon", maxnumcon)) return rc;
  *maxnumcon = task->maxnumcon;
  return TRV_RES_OK;
}

int32_t TRV_getmaxnumanz(TRVtask task, int32_t* maxnumanz) {
  if (const int32_t rc = check_reader(task, "maxnumanz", maxnumanz)) return rc;
  *maxnumanz = task->a == nullptr ? 0 : sprmat_getmaxnz(task->a);
  return TRV_RES_OK;
}

int32_t TRV_getnumvar(TRVtask task, int32_t* numvar) {
  if (const int32_t rc = check_reader(task, "numvar", numvar)) return rc;
  *numvar = task->numvar;
  return TRV_RES_OK;
}

int32_t TRV_getnumcon(TRVtask task, int32_t* numcon) {
  if (const int32_t rc = check_reader(task, "numcon", numcon)) return rc;
  *numcon = task->numcon;
  return TRV_RES_OK;
}

int32_t TRV_getnumintvar(TRVtask task, int32_t* numintvar) {
  if (const int32_t rc = check_reader(task, "numintvar", numintvar)) return rc;
  *numintvar = task->numintvar;
  return TRV_RES_OK;
}

// ---- Appending and removing -------------------------------------------------------------------------------------

int32_t TRV_append(TRVtask task, int32_t accmode, int32_t num) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (num < 0) return report<TRV_RES_ERR_NEGATIVE_APPEND>(task, num);
  if (num == 0) return TRV_RES_OK;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  const bool con = accmode == TRV_ACC_CON;
  const int32_t first = item_count(task, accmode);
  const int64_t needed = int64_t{first} + num;
  const int32_t capacity = con ? task->maxnumcon : task->maxnumvar;
  if (needed > capacity) {
    const int32_t grown = grown_capacity(capacity, needed);
    if (grown < 0) return report<TRV_RES_ERR_SPACE>(task);
    if (const int32_t rc = con ? put_maxnumcon(task, grown) : put_maxnumvar(task, grown)) return rc;
  }
  if (task->a != nullptr) {
    const int32_t rc =
        with_matrix(task, [&](sprmat* a) { return con ? sprmat_appendrows(a, num) : sprmat_appendcols(a, num); });
    if (rc != TRV_RES_OK) return rc;
  }
  if (con) {
    init_constraints(task, first, num);
    task->numcon += num;
    for (int32_t i = first; i < task->numcon; ++i) sol_newcon(task, i);
  } else {
    init_variables(task, first, num);
    task->numvar += num;
    for (int32_t j = first; j < task->numvar; ++j) sol_newvar(task, j);
  }
  return TRV_RES_OK;
}

int32_t TRV_remove(TRVtask task, int32_t accmode, int32_t num, const int32_t* sub) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_accmode(task, accmode)) return rc;
  if (num <= 0) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"sub", sub}})) return rc;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  const bool con = accmode == TRV_ACC_CON;
  const int32_t count = item_count(task, accmode);
  for (int32_t k = 0; k < num; ++k) {
    if (sub[k] < 0) return report<TRV_RES_ERR_INDEX_ARR_IS_TOO_SMALL>(task, sub[k], "sub", k, 0);
    if (sub[k] >= count) return report<TRV_RES_ERR_INDEX_ARR_IS_TOO_LARGE>(task, sub[k], "sub", k, count);
  }
  if (!con)
    for (int32_t k = 0; k < num; ++k)
      if (const int32_t rc = cones_checkremove(task, sub[k])) return rc;

  int32_t rc = TRV_RES_OK;
  Lease<int32_t> keep(task, con ? task->maxnumcon : task->maxnumvar, Fill::raw, &rc);
  if (rc != TRV_RES_OK) return rc;
  for (int32_t k = 0; k < count; ++k) keep.data()[k] = 0;
  for (int32_t k = 0; k < num; ++k) keep.data()[sub[k]] = -1;
  int32_t kept = 0;
  for (int32_t k = 0; k < count; ++k)
    if (keep.data()[k] == 0) keep.data()[k] = kept++;

  if (task->a != nullptr) {
    rc = with_matrix(task,
                     [&](sprmat* a) { return con ? sprmat_removerows(a, num, sub) : sprmat_removecols(a, num, sub); });
    if (rc != TRV_RES_OK) return rc;
  }
  names_dropmap(task, accmode);
  // Freed or fixed first: what the removal means for the solutions is what this change means for them.
  for (int32_t k = 0; k < num; ++k) store_bound(task, accmode, sub[k], con ? TRV_BK_FR : TRV_BK_FX, 0.0, 0.0);
  sol_compact(task, accmode, count, keep.data());
  if (con) {
    compact_constraints(task, keep.data());
    task->numcon = kept;
  } else {
    compact_variables(task, keep.data());
    task->numvar = kept;
  }
  return TRV_RES_OK;
}

// ---- Objective ----------------------------------------------------------------------------------------------------

namespace {

int32_t put_cj(Task* task, int32_t j, double cj) {
  if (std::fabs(cj) > task->dpar[TRV_DPAR_DATA_TOL_C_HUGE])
    return report<TRV_RES_ERR_HUGE_C>(task, cj, item_name(task, TRV_PI_VAR, j), j);
  if (std::fabs(cj) > task->dpar[TRV_DPAR_DATA_TOL_CJ_LARGE])
    if (const int32_t rc = report<TRV_RES_WRN_LARGE_CJ>(task, cj, item_name(task, TRV_PI_VAR, j), j)) return rc;
  if (cj == task->c[j]) return TRV_RES_OK;
  sol_changec(task);
  task->c[j] = cj;
  return TRV_RES_OK;
}

}  // namespace

int32_t TRV_putcj(TRVtask task, int32_t j, double cj) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  return put_cj(task, j, cj);
}

int32_t TRV_putclist(TRVtask task, int32_t num, const int32_t* subj, const double* val) {
  if (const int32_t rc = task_check(task)) return rc;
  if (num <= 0) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"subj", subj}, {"val", val}})) return rc;
  for (int32_t k = 0; k < num; ++k) {
    if (const int32_t rc = check_index(task, "subj", TRV_PI_VAR, subj[k])) return rc;
    if (task->ipar[TRV_IPAR_DATA_CHECK] != 0 && !std::isfinite(val[k]))
      return report<TRV_RES_ERR_NAN_IN_DOUBLE_DATA>(task, "val");
    if (const int32_t rc = put_cj(task, subj[k], val[k])) return rc;
  }
  return TRV_RES_OK;
}

int32_t TRV_getc(TRVtask task, double* c) {
  if (const int32_t rc = task_check(task)) return rc;
  return TRV_getcslice(task, 0, task->numvar, c);
}

int32_t TRV_getcslice(TRVtask task, int32_t first, int32_t last, double* c) {
  if (const int32_t rc = task_check(task)) return rc;
  if (first < 0) return TRV_RES_ERR_FIRST;
  if (last > task->numvar) return TRV_RES_ERR_LAST;
  if (first >= last) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"c", c}})) return rc;
  std::memcpy(c, task->c.data() + first, static_cast<std::size_t>(last - first) * sizeof(double));
  return TRV_RES_OK;
}

int32_t TRV_putcfix(TRVtask task, double cfix) {
  if (const int32_t rc = task_check(task)) return rc;
  task->cfix = cfix;
  return TRV_RES_OK;
}

int32_t TRV_getcfix(TRVtask task, double* cfix) {
  if (const int32_t rc = check_reader(task, "cfix", cfix)) return rc;
  *cfix = task->cfix;
  return TRV_RES_OK;
}

int32_t TRV_putobjsense(TRVtask task, int32_t sense) {
  if (const int32_t rc = task_check(task)) return rc;
  if (sense < TRV_OBJECTIVE_SENSE_UNDEFINED || sense > TRV_OBJECTIVE_SENSE_MAXIMIZE) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", sense);
    return report<TRV_RES_ERR_INVALID_OBJECTIVE_SENSE>(task, static_cast<const char*>(text));
  }
  const int32_t old = resolved_sense(task);
  task->objective_sense = sense;
  // Another direction is another objective: no solution is optimal for both.
  if (resolved_sense(task) != old) sol_changec(task);
  return TRV_RES_OK;
}

int32_t TRV_getobjsense(TRVtask task, int32_t* sense) {
  if (const int32_t rc = check_reader(task, "sense", sense)) return rc;
  *sense = task->objective_sense;
  return TRV_RES_OK;
}
