// What the dense kernels of one instruction set offer to the rest of the dense layer. The same source (parblas_tiles.h)
// is compiled once for each set; the results are the same bits.
#pragma once

#include <cstdint>

#include "kfac/kernels.h"

namespace tarvo {

// Sizes common to all sets: the depth of a pass and the blocks of rows and of columns that are packed.
enum : int32_t { PACK_DEPTH = 256, PACK_ROWS = 192, PACK_COLS = 480 };
// The columns that `apply` takes at most.
enum : int32_t { APPLY_DEPTH = 8 };

// Source columns: by a list of pointers, or at a stride when list is NULL.
struct SourceColumns {
  const double* const* list;
  const double* base;
  int64_t stride;
};

// target[j * ldt + i] = chain over k < depth of fma(-(mult[k] c_k[colshift + j]), r_k[rowshift + i], .), 0 <= i < m,
// 0 <= j < n, wherever j <= i + below; elements with j > i + below may be overwritten by anything.
struct DenseUpdate {
  int32_t m, n, below, depth;
  SourceColumns rows, cols;
  int64_t rowshift, colshift;
  const double* mult;
  double* target;
  int64_t ldt;
  double* work;
};

// Only plain records are declared here: an inline function would be compiled for every set, and one copy of it linked.
struct DenseKernels {
  const char* name;
  int32_t leaf;  // columns that `eliminate` and `solve` take at most
  void (*update)(const DenseUpdate& update);
  // Factors the leading nb x nb triangle at l in place, see densefac.
  void (*eliminate)(int32_t nb, double* l, int64_t ldl, double* diag, const double* before, uint16_t* flags,
                    const PivotRule& rule);
  // Divides `rows` rows at x (stride ldx) by the factored nb x nb triangle at l (stride ldl) with pivots d:
  // x_j = (chain over k < j of fma(-(d_k l_jk), x_k, x_j)) * (1 / d_j).
  void (*solve)(int32_t nb, int32_t rows, const double* l, int64_t ldl, const double* d, double* x, int64_t ldx);
  // t[i] (and t[ldt + i] with nrhs 2) = chain over k < depth of fma(-x[k], a[k * lda + i], .), depth <= APPLY_DEPTH.
  void (*apply)(int32_t m, int32_t depth, const double* a, int64_t lda, int32_t nrhs, const double* x, int64_t ldx,
                double* t, int64_t ldt);
  // to[cols[j] * ldt + rows[i]] += from[j * ldf + i], 0 <= i < m, 0 <= j < n, wherever j <= i + below; elements with
  // j > i + below may become anything. rows is ascending.
  void (*scatter)(int32_t m, int32_t n, int32_t below, const double* from, int64_t ldf, const int32_t* rows,
                  const int32_t* cols, double* to, int64_t ldt);
  // out[r * 4 + j] += a_j'y_r for nb <= 4 columns of m rows: eight partial sums each, then pairwise.
  void (*dots)(int32_t nb, int32_t m, const double* a, int64_t lda, int32_t nrhs, const double* y, int64_t ldy,
               double* out);
};

// The tables by instruction set; NULL where the compiler or the processor does not have it.
const DenseKernels* dense_kernels_generic();
const DenseKernels* dense_kernels_avx2();
const DenseKernels* dense_kernels_avx512();
// The best that this processor has, whatever processor type the caller has set.
const DenseKernels& dense_kernels();

// An update shared out among `threads` threads where that pays; work[threads * dense_worksize()].
void dense_par_update(const DenseKernels& kernels, const DenseUpdate& update, int32_t threads);
// What stands behind densefac, dense_Lx and dense_Ltx, for a set of instructions.
void dense_factor(const DenseKernels& kernels, const DenseColumns& block, const PivotRule& rule, int32_t threads,
                  double* work);
void dense_forward(const DenseKernels& kernels, const DenseColumns& block, int32_t nrhs, double* x, int64_t ldx,
                   double* below, int64_t ldbelow);
void dense_backward(const DenseKernels& kernels, const DenseColumns& block, int32_t nrhs, double* x, int64_t ldx,
                    const double* below, int64_t ldbelow);

}  // namespace tarvo
