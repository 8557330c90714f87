// Dense kernels over lists of columns. The result of every update is defined by one chain per element of the target,
//   t = fma(-(d_k c_k[j]), c_k[i], t)   for k = 0, 1, ... in order,
// so that tiling, packing, vector width and the number of threads are invisible in the bits.
//
// "Lower" targets: of target column j the rows i >= j are defined; what stands above may be overwritten by anything.
// One source, compiled for several instruction sets and chosen once by what the processor can do.
#pragma once

#include <cstdint>

#include "kfac/pivot.h"

namespace tarvo {

// The stride of columns of `rows` doubles: a multiple of 8, never of 512 (such columns meet in the same cache sets).
int32_t dense_leading(int32_t rows);

// Rank-ncol update of a dense trapezoid: for j < n, j <= i < m:  target[j * ldt + i] -= sum_k mult[k] cols[k][j]
// cols[k][i]. cols[k] points at row 0 of the m rows in question; the n target columns belong to the first n of them.
// Any alignment. `work` holds dense_worksize() doubles of the calling thread.
void chdblas3_oa(int32_t m, int32_t n, int32_t ncol, const double* const* cols, const double* mult, double* target,
                 int64_t ldt, double* work);
// The same for the rectangle below: rows i of 0..m-1 from rcols, columns j of 0..n-1 from ccols, all pairs.
void chdblas3_or(int32_t m, int32_t n, int32_t ncol, const double* const* rcols, const double* const* ccols,
                 const double* mult, double* target, int64_t ldt, double* work);
// Shared out among the threads of mpc_getnthreads() where that pays; `work` holds dense_worksize() doubles per thread.
// To be called by one thread, outside any parallel region.
void par_chdblas3_oa(int32_t m, int32_t n, int32_t ncol, const double* const* cols, const double* mult, double* target,
                     int64_t ldt, double* work);
int64_t dense_worksize();  // doubles per thread, 64-byte aligned

// One column: target[i] = chain over k of fma(-(mult[k] c_k[0]), c_k[i], target[i]), 0 <= i < m.
void chblas2_oy(int32_t m, int32_t ncol, const double* const* cols, const double* mult, double* target);

// Factors a trapezoid in place: rows x width, column-major with stride ld, lower triangle of the leading block and all
// rows below. L has a unit diagonal (stored as 1.0), the pivots go to diag[width]; l_ij = t_ij * (1 / d_j);
// before[width] are the diagonal elements as they were before any update, flags[width] the flags of the columns.
// Blocked; in parallel when `parallel`.
struct DenseColumns {
  int32_t rows, width;
  double* val;
  int64_t ld;
  double* diag;
  const double* before;
  uint16_t* flags;
};
// `work` holds dense_worksize() doubles, and with `parallel` as many for each thread.
void densefac(const DenseColumns& block, const PivotRule& rule, bool parallel, double* work);

// Triangular solves with a factored trapezoid for nrhs 1 or 2 right-hand sides. Forward: x[0..width) is solved in place
// with L, then `below`[rows - width] -= L_below x. Backward: x -= L_below' below, then solved with L'. x of the second
// right-hand side stands ldx further on, below likewise at ldbelow.
void dense_Lx(const DenseColumns& block, int32_t nrhs, double* x, int64_t ldx, double* below, int64_t ldbelow);
void dense_Ltx(const DenseColumns& block, int32_t nrhs, double* x, int64_t ldx, const double* below, int64_t ldbelow);

}  // namespace tarvo
