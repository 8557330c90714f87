// The record of the KKT factor and what its files do for each other.
#pragma once

#include <cmath>

#include "kfac/kktfac.h"
#include "kfac/symface.h"

namespace tarvo {

constexpr int32_t dense_batch = 256;  // rows of X that go through a kernel at once

// The dense columns of A, held apart from the sparse factor L Dp L' of
//
//   Ms = (sparse columns) diag(1/d) (sparse columns)' + E + sum of delta_i e_i e_i'
//
// where the shifts delta_i were added to rows in which Ms alone would be (nearly) singular. With the columns
// U = [a_j / sqrt(d_j), sqrt(delta_i) e_i] and the signs J = diag(1, -1) it is M = Ms + U J U', and
//
//   M^-1 = Ms^-1 - Ms^-1 U S^-1 U' Ms^-1,   S = J + X' Dp^-1 X,   X = L^-1 U.
//
// X stands by rows, so that one row of all right-hand sides is contiguous. See Andersen (1996), A modified Schur
// complement method for handling dense columns in interior point methods.
struct KktDense {
  int32_t count = 0;               // dense columns
  Array<uint8_t> isdense;          // [n]
  Array<int32_t> list;             // [count] columns of A
  int32_t maxshift = 0;            // shifts that can be undone
  int32_t numshift = 0;            // in the present factor
  int32_t level = 0;               // how readily pivots are shifted
  Array<int32_t> shiftpos;         // [maxshift] positions
  Array<double> shiftval;          // [maxshift]
  Array<double> full;              // [m] diagonal that the dense columns add, by position
  Array<double> before;            // [m] diagonal of Ms before the factorisation, by position
  int32_t ldx = 0;                 // stride of X
  Array<double> x;                 // m rows of ldx
  Array<double> schur, diag, ref;  // S, its pivots, J as reference of the pivot test
  Array<uint16_t> flags;
  Array<double> buffer, kernel, mult, t;
  Array<const double*> cols, rows;
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
  // Normal equations, without the dense columns: A by columns with positions instead of rows, ascending; and by
  // positions, every entry as its place among the columns: from there on stand just the rows behind it.
  Array<int32_t> colend;           // [n]
  Array<int64_t> rowptr;           // [m + 1]
  Array<int32_t> rowcol, rowfrom;  // column and place of an entry
  Array<int32_t> colpos;
  Array<double> colval;
  Array<int32_t> share;     // [threads + 1] first block of each thread
  Array<int32_t> relative;  // [dim] for each thread
  int32_t planthreads = 1;
  // The whole system: places of the elements in the store.
  Array<int64_t> aplace, qplace, dplace;
  KktDense dense;
  // Numbers of the last factorisation.
  Array<double> dd, dinv, shift, qval;  // [n] diagonal (with Q when it is diagonal), its inverse, [m] E, [nq]
  // Scratch of the solves: two right-hand sides each.
  Array<double> rhs, sol, pos;
  Array<double> residual, direction, product, best;  // of the refinement, one right-hand side
  ~KktFac() { symface_delete(&sym); }
};

// ---- adaplan.cpp: patterns, places, values

// Feeds the edges of A A' without the dense columns, each once; of the whole system.
[[nodiscard]] bool kktfac_adapattern(KktFac* f, const spmat* at);
[[nodiscard]] bool kktfac_sqdpattern(KktFac* f);
// Sum of squares of the lengths of the columns in use: multiplications of A A'.
double kktfac_adawork(const KktFac* f);
// Prepare the numeric input for the analysed pattern.
[[nodiscard]] bool kktfac_adaplan(KktFac* f, const spmat* at);
[[nodiscard]] bool kktfac_sqdplan(KktFac* f);
// Put the values into the empty store.
void kktfac_adavalues(KktFac* f);
void kktfac_sqdvalues(KktFac* f);

// ---- kktdense.cpp

// Orders M and decides which columns are dense; the pattern of the winner and its order stand in `sym`. KktResult.
int32_t kktfac_adaorder(KktFac* f, const spmat* at);
[[nodiscard]] bool kktfac_denseplan(KktFac* f);
// Adds shifts to the values of rows that have next to nothing but dense columns.
void kktfac_densepreshift(KktFac* f);
// The shifts that the factorisation made. False when they are too many: a factor with fewer is wanted, and the next one
// makes them less readily.
[[nodiscard]] bool kktfac_denseshifts(KktFac* f);
// Forms X and factors S.
void kktfac_densefactor(KktFac* f);
// Between the solves with L and L', after the division by the pivots: y -= Dp^-1 X S^-1 X' y.
void kktfac_densecorrect(KktFac* f, double* y);

// ---- kktsolve.cpp

// Solves for nrhs right-hand sides, 1 or 2, in place, x[dim] one after the other, and refines while the residual asks
// for it and refinement pays.
void kktfac_refinedsolve(KktFac* f, int32_t nrhs, double* x);

}  // namespace tarvo
