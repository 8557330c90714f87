#include "cpub/rvector.h"

namespace tarvo {

namespace {
constexpr int32_t parallel_length = 100000;
}

void rvec_axpy(int32_t n, double alpha, const double* x, double* y) {
  if (alpha == 0.0) return;
  if (alpha == 1.0) {
    for (int32_t k = 0; k < n; ++k) y[k] += x[k];
  } else if (alpha == -1.0) {
    for (int32_t k = 0; k < n; ++k) y[k] -= x[k];
  } else {
    for (int32_t k = 0; k < n; ++k) y[k] += alpha * x[k];
  }
}

void rvec_axpy_scatter(int32_t n, double alpha, const double* x, const int32_t* sub, double* y) {
  if (alpha == 0.0) return;
  for (int32_t k = 0; k < n; ++k) y[sub[k]] += alpha * x[k];
}

void rvec_axpy_at(int32_t n, double alpha, const double* x, const int32_t* sub, double* y) {
  if (alpha == 0.0) return;
  for (int32_t k = 0; k < n; ++k) y[sub[k]] += alpha * x[sub[k]];
}

void rvec_scale(int32_t n, double alpha, double* x) {
  if (alpha == 1.0) return;
  for (int32_t k = 0; k < n; ++k) x[k] *= alpha;
}

void rvec_hadamard(int32_t n, double alpha, const double* x, double* y) {
#pragma omp parallel for schedule(static) if (n >= parallel_length)
  for (int32_t k = 0; k < n; ++k) y[k] *= alpha * x[k];
}

double rvec_dot(int32_t n, const double* x, const double* y) {
  double sum = 0.0;
  for (int32_t k = 0; k < n; ++k) sum += x[k] * y[k];
  return sum;
}

double rvec_dot_gather(int32_t n, const double* x, const int32_t* sub, const double* y) {
  double sum = 0.0;
  for (int32_t k = 0; k < n; ++k) sum += x[k] * y[sub[k]];
  return sum;
}

double rvec_norm(int32_t n, const double* x) {
  const double largest = rvec_maxabs(n, x);
  if (largest == 0.0 || !std::isfinite(largest)) return largest;
  // Squares of numbers in this range neither overflow in sum nor lose all their bits.
  const double scale = largest > 1e140 || largest < 1e-140 ? largest : 1.0;
  double sum = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : sum) if (n >= parallel_length)
  for (int32_t k = 0; k < n; ++k) sum += (x[k] / scale) * (x[k] / scale);
  return scale * std::sqrt(sum);
}

double rvec_maxabs(int32_t n, const double* x) {
  double largest = 0.0;
  for (int32_t k = 0; k < n; ++k) {
    const double size = std::fabs(x[k]);
    if (!(size <= largest)) largest = size;
    if (std::isnan(size)) break;
  }
  return largest;
}

}  // namespace tarvo
