// Variable types and branching data. The arrays come into being with the first value that isn't the default.
#include "tarvo/tarvodat_internal.h"

namespace tarvo {

namespace {

int32_t put_vartype(Task* task, int32_t j, int32_t type) {
  if (type != TRV_VAR_TYPE_CONT && type != TRV_VAR_TYPE_INT)
    return report<TRV_RES_ERR_INV_VAR_TYPE>(task, type, item_name(task, TRV_PI_VAR, j), j, "vartype");
  if (task->vartype.empty()) {
    if (type == TRV_VAR_TYPE_CONT) return TRV_RES_OK;
    if (!task->vartype.alloc(task->sys, static_cast<std::size_t>(task->maxnumvar), Fill::zero))
      return report<TRV_RES_ERR_SPACE>(task);
  }
  task->numintvar +=
      static_cast<int32_t>(type == TRV_VAR_TYPE_INT) - static_cast<int32_t>(task->vartype[j] == TRV_VAR_TYPE_INT);
  task->vartype[j] = type;
  return TRV_RES_OK;
}

int32_t vartype_of(const Task* task, int32_t j) {
  return task->vartype.empty() ? int32_t{TRV_VAR_TYPE_CONT} : task->vartype[j];
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

int32_t TRV_putvartype(TRVtask task, int32_t j, int32_t type) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  return put_vartype(task, j, type);
}

int32_t TRV_putvartypelist(TRVtask task, int32_t num, const int32_t* subj, const int32_t* type) {
  if (const int32_t rc = task_check(task)) return rc;
  if (num <= 0) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"subj", subj}, {"type", type}})) return rc;
  for (int32_t k = 0; k < num; ++k) {
    if (const int32_t rc = check_index(task, "subj", TRV_PI_VAR, subj[k])) return rc;
    if (const int32_t rc = put_vartype(task, subj[k], type[k])) return rc;
  }
  return TRV_RES_OK;
}

int32_t TRV_getvartype(TRVtask task, int32_t j, int32_t* type) {
  if (const int32_t rc = check_reader(task, "type", type)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  *type = vartype_of(task, j);
  return TRV_RES_OK;
}

int32_t TRV_getvartypelist(TRVtask task, int32_t num, const int32_t* subj, int32_t* type) {
  if (const int32_t rc = task_check(task)) return rc;
  if (num <= 0) return TRV_RES_OK;
  if (const int32_t rc = check_pointers(task, {{"subj", subj}, {"type", type}})) return rc;
  if (const int32_t rc = check_index_list(task, "subj", 0, task->numvar, num, subj)) return rc;
  for (int32_t k = 0; k < num; ++k) type[k] = vartype_of(task, subj[k]);
  return TRV_RES_OK;
}

int32_t TRV_putvarbranchorder(TRVtask task, int32_t j, int32_t priority, int32_t direction) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  if (priority < 0) return report<TRV_RES_ERR_INVALID_BRANCH_PRIORITY>(task, priority);
  if (direction < TRV_BRANCH_DIR_FREE || direction > TRV_BRANCH_DIR_DOWN)
    return report<TRV_RES_ERR_INVALID_BRANCH_DIRECTION>(task, direction);
  if (task->branch_priority.empty()) {
    Array<int32_t> priorities, directions;
    const auto n = static_cast<std::size_t>(task->maxnumvar);
    if (!priorities.alloc(task->sys, n, Fill::zero) || !directions.alloc(task->sys, n, Fill::zero))
      return report<TRV_RES_ERR_SPACE>(task);
    task->branch_priority.swap(priorities);
    task->branch_direction.swap(directions);
  }
  task->branch_priority[j] = priority;
  task->branch_direction[j] = direction;
  return TRV_RES_OK;
}

int32_t TRV_getvarbranchorder(TRVtask task, int32_t j, int32_t* priority, int32_t* direction) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  const bool none = task->branch_priority.empty();
  if (priority != nullptr) *priority = none ? 0 : task->branch_priority[j];
  if (direction != nullptr) *direction = none ? 0 : task->branch_direction[j];
  return TRV_RES_OK;
}

int32_t TRV_getvarbranchpri(TRVtask task, int32_t j, int32_t* priority) {
  if (const int32_t rc = check_reader(task, "priority", priority)) return rc;
  return TRV_getvarbranchorder(task, j, priority, nullptr);
}

int32_t TRV_getvarbranchdir(TRVtask task, int32_t j, int32_t* direction) {
  if (const int32_t rc = check_reader(task, "direction", direction)) return rc;
  return TRV_getvarbranchorder(task, j, nullptr, direction);
}
