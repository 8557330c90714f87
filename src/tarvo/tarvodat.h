// Problem data behind the exported calls: capacities, bounds, the matrix, quadratic terms and cones.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// The objective sense that counts: the task's, else TRV_IPAR_OBJECTIVE_SENSE (may still be undefined).
int32_t resolved_sense(const Task* task);

inline bool has_lower(int32_t bk) { return bk == TRV_BK_LO || bk == TRV_BK_RA || bk == TRV_BK_FX; }
inline bool has_upper(int32_t bk) { return bk == TRV_BK_UP || bk == TRV_BK_RA || bk == TRV_BK_FX; }

// A read-only view of the columns of A while an optimiser runs: column j is sub/val[ptrb[j]..ptre[j]).
// The matrix is flushed and column-wise. Until the last data_unlock every call that changes it or the size of the
// problem is refused with TRV_RES_ERR_INTERNAL; reading calls may lock it again.
struct ColumnView {
  const int32_t* ptrb;
  const int32_t* ptre;
  const int32_t* sub;
  const double* val;
};
int32_t data_lock(Task* task, ColumnView* view);
void data_unlock(Task* task);
// TRV_RES_OK, or the reported TRV_RES_ERR_INTERNAL while the data are locked: for calls that replace the problem.
int32_t data_checkunlocked(Task* task, Location at = Location::current());

// Frees all problem data, solutions, names and the buffers; capacities and counts become 0. Never allocates.
void data_clear(Task* task);

// Fills the columns first..first+num) of A, which must be empty, in one pass: as TRV_putavec for each of them, with
// the warnings of all in one, but the row indices are valid already and none stands twice in a column.
int32_t data_loadcolumns(Task* task, int32_t first, int32_t num, const int32_t* ptrb, const int32_t* ptre,
                         const int32_t* sub, const double* val);

}  // namespace tarvo
