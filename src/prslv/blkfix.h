// Square blocks of fixed rows that determine their columns.
#pragma once

#include "math/lindep.h"
#include "prslv/prslv_internal.h"

namespace tarvo {

// `a` holds the live fixed rows rows[0..a.nrow) over the live columns columns[0..a.ncol), pivcol the columns that its
// rows have as pivots (-1: none). Rows all of whose columns are pivots of such rows determine these columns: they are
// fixed at their values and the rows go, or the problem is infeasible.
int32_t prslv_chkpriblk(prslvrun* run, const lindepmatrix& a, const int32_t* rows, const int32_t* columns,
                        const int32_t* pivcol);

}  // namespace tarvo
