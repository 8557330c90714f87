// Problem data behind the exported calls: capacities, bounds, the matrix, quadratic terms and cones.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// The objective sense that counts: the task's, else TRV_IPAR_OBJECTIVE_SENSE (may still be undefined).
int32_t resolved_sense(const Task* task);

inline bool has_lower(int32_t bk) { return bk == TRV_BK_LO || bk == TRV_BK_RA || bk == TRV_BK_FX; }
inline bool has_upper(int32_t bk) { return bk == TRV_BK_UP || bk == TRV_BK_RA || bk == TRV_BK_FX; }

// A read-only view of the columns of A while an optimiser runs: column j is sub/val[ptrb[j]..ptre[j]).
// The matrix is flushed and column-wise; it may not be edited until data_unlock.
struct ColumnView {
  const int32_t* ptrb;
  const int32_t* ptre;
  const int32_t* sub;
  const double* val;
};
int32_t data_lock(Task* task, ColumnView* view);
void data_unlock(Task* task);

// Frees all problem data, solutions, names and the buffers; capacities and counts become 0. Never allocates.
void data_clear(Task* task);

}  // namespace tarvo
