// The record of a KKT factor.
#pragma once

#include "cpub/array.h"
#include "kfac/kktfac.h"
#include "kfac/symface.h"

namespace tarvo {

// Columns of A that the sparse factor leaves out: M = S + U U', U = A_d diag(1/d)^1/2, and with S = L Dp L'
//   M^-1 = L^-T Dp^-1 (I - X T^-1 X' Dp^-1) L^-1,   X = L^-1 U,   T = I + X' Dp^-1 X   (Woodbury)
struct KktDense {
  int32_t num = 0;
  Array<int8_t> isdense;  // [n]
  Array<int32_t> column;  // [num]
  Array<double> x;        // [dim * num]: X', row p of X is contiguous
  Array<double> cover;    // [m] added to the diagonal of S where little but dense columns covers a row
  Array<double> chunk;    // [2 * dim] columns of X on their way
  Array<double> t;        // [ld * num] T and its factor
  Array<double> tdiag, tbefore, v, mult;
  Array<const double*> rows;
  Array<uint16_t> tflags;
  Array<double> kernel;
  int32_t ld = 0;
};

struct KktFac {
  sysenv* env = nullptr;
  int32_t m = 0, n = 0, type = 0, dim = 0;
  KktOptions options;
  KktStats stats;
  SymFace* sym = nullptr;
  const spmat* a = nullptr;
  int32_t nq = 0;
  const int32_t *qi = nullptr, *qj = nullptr;
  // Normal equations: A by columns with positions instead of rows, ascending, and by positions.
  Array<int64_t> colptr, rowptr, cursor;
  Array<int32_t> colpos, rowcol;
  Array<double> colval, rowval;
  Array<int32_t> relative;  // [dim]
  // The whole system: places of the elements in the store.
  Array<int64_t> aplace, qplace, dplace;
  // Numbers of the last factorisation.
  Array<double> dd, shift, qval;  // [n] diagonal (with Q when it is diagonal), [m] E, [nq]
  bool hasq = false;
  Array<double> work, residual, correction, direction;
  KktDense dense;
  ~KktFac() { symface_delete(&sym); }
};

// kktdense.cpp. Which columns might be left out, longest first in `column`; false when out of memory.
[[nodiscard]] bool kktfac_denseselect(KktFac* f);
[[nodiscard]] bool kktfac_densespace(KktFac* f);
void kktfac_densecover(KktFac* f);
void kktfac_densefactor(KktFac* f);
// Between the forward solve and the pivots: w -= X T^-1 X' Dp^-1 w, by position.
void kktfac_densesolve(KktFac* f, double* w);

}  // namespace tarvo
