// What the files of the problem data share: argument checks and the frame around every use of the matrix.
#pragma once

#include <initializer_list>

#include "tarvo/frame.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvonam.h"

namespace tarvo {

struct NamedPointer {
  const char* name;
  const void* pointer;
};
// The first NULL pointer is reported (TRV_RES_ERR_NULL_POINTER).
int32_t check_pointers(Task* task, std::initializer_list<NamedPointer> pointers, Location at = Location::current());

// An accmode that is not TRV_ACC_VAR or TRV_ACC_CON is reported.
int32_t check_accmode(Task* task, int32_t accmode, Location at = Location::current());

// The opening of a call that reads one number: object and output.
int32_t check_reader(Task* task, const char* name, const void* output, Location at = Location::current());

inline int32_t item_count(const Task* task, int32_t accmode) {
  return accmode == TRV_ACC_CON ? task->numcon : task->numvar;
}
// TRV_ACC_ and TRV_PI_ agree on variables and constraints.
inline const char* acc_name(const Task* task, int32_t accmode, int32_t i) { return item_name(task, accmode, i); }

// Capacity after growth for one or more items: at least `needed`, at least the double. -1 beyond 2^31 - 1.
inline int32_t grown_capacity(int32_t capacity, int64_t needed) {
  if (needed > INT32_MAX) return -1;
  const int64_t doubled = 2 * static_cast<int64_t>(capacity);
  return static_cast<int32_t>(doubled > INT32_MAX ? INT32_MAX : doubled > needed ? doubled : needed);
}

// Copies the first `count` entries of an array to a new one of `capacity` entries.
template <class T>
[[nodiscard]] bool copy_grown(Task* task, Array<T>* to, const Array<T>& from, int32_t capacity, int32_t count) {
  if (!to->alloc(task->sys, static_cast<std::size_t>(capacity))) return false;
  if (count > 0) std::memcpy(to->data(), from.data(), static_cast<std::size_t>(count) * sizeof(T));
  return true;
}

// Writes "Expanding ... from ... to ..." when a capacity rose and the logging of storage is on.
void log_expansion(Task* task, const char* what, int32_t from, int32_t to);

// The response of a SprmatCode, reported.
int32_t matrix_response(Task* task, int32_t code, Location at);
// The matrix, made if it doesn't exist yet and ready for an operation; NULL when out of memory.
sprmat* matrix_open(Task* task);
// Behind an operation: logs a growth of the capacity and refreshes the storage items.
void matrix_close(Task* task, int32_t oldcapacity);

// Runs f(sprmat*), which gives a SprmatCode, on the matrix.
template <class F>
int32_t with_matrix(Task* task, F f, Location at = Location::current()) {
  sprmat* a = matrix_open(task);
  if (a == nullptr) return matrix_response(task, SPRMAT_SPACE, at);
  const int32_t capacity = sprmat_getmaxnz(a);
  const int32_t code = f(a);
  matrix_close(task, capacity);
  return code == SPRMAT_OK ? TRV_RES_OK : matrix_response(task, code, at);
}

// Stores a bound without warnings: normalises the key, lowers the statuses of the solutions.
void store_bound(Task* task, int32_t accmode, int32_t i, int32_t bk, double bl, double bu);

// ---- Quadratic terms and cones ----

// Behind the removal of variables: keep[j] is the new index of variable j, or -1. numvar is the old count.
void quad_removevars(Task* task, const int32_t* keep);
void cones_removevars(Task* task, const int32_t* keep);
// Moves all members to the front of *members, which takes the place of the member array and has room for them.
void cones_pack(Task* task, Array<int32_t>* members);
// Reports a variable that its cone can't lose.
int32_t cones_checkremove(Task* task, int32_t j, Location at = Location::current());

}  // namespace tarvo
