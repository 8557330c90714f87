// Counts of the matrix A A' that an ordering will see.
#pragma once

#include <cstdint>

#include "cpub/spmat.h"

namespace tarvo {

// Counts the nonzeros of the strict lower triangle of A A', A being given by its columns with m = vlen rows. Rows with
// rowcount[i] >= rowcut and columns with colcount[j] >= colcut are left out (a NULL list leaves out none). Memory is
// linear in m + n: each column waits at its first live row, and moves on to its next one after row i has met it. The
// rows of every column must ascend. False when out of memory.
[[nodiscard]] bool ordmat_nnzaat(sysenv* env, const spmat* a, int32_t rowcut, int32_t colcut, const int32_t* rowcount,
                                 const int32_t* colcount, int64_t* nnz);

}  // namespace tarvo
