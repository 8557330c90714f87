// Dense and indexed loops on arrays of doubles. Every length below 1 does nothing, and a reduction over nothing is 0.
// Each loop is one pass in increasing position; sums have one accumulator, so that they repeat bit for bit.
#pragma once

#include <cmath>
#include <cstdint>

namespace tarvo {

// y += alpha x; y[sub[k]] += alpha x[k]; y[sub[k]] += alpha x[sub[k]].
void rvec_axpy(int32_t n, double alpha, const double* x, double* y);
void rvec_axpy_scatter(int32_t n, double alpha, const double* x, const int32_t* sub, double* y);
void rvec_axpy_at(int32_t n, double alpha, const double* x, const int32_t* sub, double* y);
// x *= alpha; y = alpha x .* y, in parallel from 100,000 elements on.
void rvec_scale(int32_t n, double alpha, double* x);
void rvec_hadamard(int32_t n, double alpha, const double* x, double* y);

// x'y; sum of x[k] y[sub[k]].
double rvec_dot(int32_t n, const double* x, const double* y);
double rvec_dot_gather(int32_t n, const double* x, const int32_t* sub, const double* y);
// The Euclidean norm, without overflow or underflow; in parallel from 100,000 elements on, the result then depends on
// the number of threads.
double rvec_norm(int32_t n, const double* x);
// The largest |x[k]|; a NaN among them is the result.
double rvec_maxabs(int32_t n, const double* x);

inline void rvec_fill(int32_t n, double value, double* x) {
  for (int32_t k = 0; k < n; ++k) x[k] = value;
}
inline void rvec_clear_at(int32_t n, const int32_t* sub, double* x) {
  for (int32_t k = 0; k < n; ++k) x[sub[k]] = 0.0;
}
inline void rvec_gather(int32_t n, const double* x, const int32_t* sub, double* y) {
  for (int32_t k = 0; k < n; ++k) y[k] = x[sub[k]];
}
inline void rvec_scatter(int32_t n, const double* x, const int32_t* sub, double* y) {
  for (int32_t k = 0; k < n; ++k) y[sub[k]] = x[k];
}

}  // namespace tarvo
