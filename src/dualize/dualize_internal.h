// The record of a dual form and what its two halves (the form, the maps) share.
#pragma once

#include "cpub/array.h"
#include "dualize/dualize.h"

namespace tarvo {

enum DualizeBk : int32_t { DUAL_BK_LO = 0, DUAL_BK_UP = 1, DUAL_BK_FX = 2, DUAL_BK_FR = 3, DUAL_BK_RA = 4 };
enum DualizeSk : int32_t {
  DUAL_SK_UNK = 0,
  DUAL_SK_BAS = 1,
  DUAL_SK_SUPBAS = 2,
  DUAL_SK_LOW = 3,
  DUAL_SK_UPR = 4,
  DUAL_SK_FIX = 5,
  DUAL_SK_INF = 6
};

// Where a column of the primal went, if not to a row of the dual.
inline constexpr int32_t dualize_fixed = -1, dualize_folded = -2;

struct dualizer {
  sysenv* env = nullptr;
  DualizeMethod method = DUALIZE_COMPACT;
  bool formed = false;
  DualizeInput primal{}, dual{};
  Array<int32_t> ints, matints;  // blocks that the arrays below and those of `dual` are parts of
  Array<double> reals, matreals;
  // By row of the primal. In the full form only ycol is used.
  int32_t* ycol;   // column of u_i, or -1 for a free row
  int32_t* ycol2;  // second column of a ranged row, or -1
  int32_t* lsrc;   // folded column whose row is the lower bound of u_i, or -1
  int32_t* usrc;   // the same of the upper bound
  // By column of the primal.
  int32_t* xrow;  // row of the dual, dualize_fixed or dualize_folded
  int32_t* qcol;  // column -e of a ranged column, or -1
};

// The key that the bounds deserve: a range without a width is fixed.
inline int32_t dualize_key(int32_t bk, double bl, double bu) { return bk == DUAL_BK_RA && bl >= bu ? DUAL_BK_FX : bk; }
inline int32_t dualize_rowkey(const DualizeInput& in, int32_t i) {
  return dualize_key(in.bkc[i], in.blc[i], in.buc[i]);
}
inline int32_t dualize_colkey(const DualizeInput& in, int32_t j) {
  return dualize_key(in.bkx[j], in.blx[j], in.bux[j]);
}

// The bound whose multiplier is expressed through the row of the dual (columns) or through u (rows; the first of two).
inline double dualize_base(int32_t key, double bl, double bu) {
  return key == DUAL_BK_FR ? 0.0 : key == DUAL_BK_UP ? bu : bl;
}

}  // namespace tarvo
