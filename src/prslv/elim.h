// What the eliminator, the elimination of a column and the doubleton chains share.
#pragma once

#include <cmath>

#include "prslv/matlnk.h"
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

// State of one run of the eliminator. It works on its own copy of the live elements; acol and acolt are stale until
// the end, so the primitives that walk them are out of bounds here.
struct prslvelim {
  prslvrun* run;
  matlnk m;
  uint8_t* mark;   // [numcon] 1: may be a pivot row (linear, without columns that must stay)
  uint8_t* stays;  // [numvar] 1: not linear or in a nonlinear row, never a pivot column
  uint8_t* stale;  // [numcon] activity bounds and rowmax are to be formed anew before use
  double* rowmax;  // [numcon] largest magnitude
  prslvlist rows;  // changed since the iteration began
  prslvlist cols;  // to be scored by the next iteration
  // Scratch of one pivot or chain.
  int32_t *rowsub, *colsub, *hits, *vpos, *rstamp;
  double *rowval, *colval, *mult, *racc;
  // Scratch of a chain.
  int32_t *queue, *chainrow, *chaincol;  // chaincol[v]: the element of v in its chain row
  double *cf, *cg;                       // x_v = cf x_root + cg
  uint8_t* rowused;
  // Scores.
  int32_t *bucket, *next;
  int32_t changed;  // anything written to the copy
  int32_t eliminated, skipped, doubletons, chainrows;
};

// f(element slot) along row i or column j. The present element may be removed or moved on the way.
template <class F>
inline void elim_row(prslvelim* e, int32_t i, F f) {
  for (int32_t t = e->m.rowhead[i]; t >= 0;) {
    const int32_t next = e->m.elem[t].rnext;
    f(t);
    t = next;
  }
}
template <class F>
inline void elim_col(prslvelim* e, int32_t j, F f) {
  for (int32_t t = e->m.colhead[j]; t >= 0;) {
    const int32_t next = e->m.elem[t].cnext;
    f(t);
    t = next;
  }
}

// Removes an element and keeps the counts.
void elim_drop(prslvelim* e, int32_t slot);
// Row i has changed: its sums are stale and the row checks will look at it.
void elim_touchrow(prslvelim* e, int32_t i);
void elim_touchcol(prslvelim* e, int32_t j);
// Takes all elements of row i away and makes it free; no record.
void elim_removerow(prslvelim* e, int32_t i);
// What counts as nothing when two terms are added.
inline double elim_zero(const prslvelim* e, double a, double b) {
  const double size = a > b ? a : b;
  return size * 1e-13 > e->run->par->tol_aij ? size * 1e-13 : e->run->par->tol_aij;
}

// Replaces all columns of a chain of fixed rows with two elements each, of which row i is one, by one of them.
// *removed tells the number of rows that went.
int32_t prslv_finddoubletonchain(prslvelim* e, int32_t i, int32_t* removed);

// Adds factors[k] times row i, which is fixed, to the bounds of rows[k]: the record of row operations that the caller
// carries out on the elements.
int32_t prslv_conpiv(prslvrun* run, int32_t i, int32_t n, const int32_t* rows, const double* factors);

}  // namespace tarvo
