// What the eliminator, the elimination of a column and the doubleton chains share.
#pragma once

#include "prslv/prslv_internal.h"

namespace tarvo {

// Column j with pivot row i: row i as nrow pairs, j first, and column j as ncol pairs, i first; live elements alone.
struct prslvpivot {
  int32_t i, j, nrow, ncol;
  const int32_t* rowsub;
  const double* rowval;
  const int32_t* colsub;
  const double* colval;
};

// Pushes the record of an elimination and moves costs and row bounds; the caller changes the matrix, frees row i and
// gives slot j the row's old key and bounds.
int32_t prslv_pushelimination(prslvrun* run, const prslvpivot& pivot);

}  // namespace tarvo
