// The dense kernels for AVX2 with FMA. This file alone is compiled with these instructions switched on.
#include "kfac/parblas_internal.h"

#if defined(__AVX2__) && defined(__FMA__)
#include <immintrin.h>
#endif

namespace tarvo {

#if defined(__AVX2__) && defined(__FMA__)

namespace {

struct Vec {
  static constexpr int width = 4, pack_rows = 3, max_rows = 6, accumulators = 12, pack_from = 32;
  using Reg = __m256d;
  using Mask = __m256i;
  static Mask mask(int32_t count) {
    return _mm256_cmpgt_epi64(_mm256_set1_epi64x(count), _mm256_set_epi64x(3, 2, 1, 0));
  }
  static Reg load(const double* p) { return _mm256_loadu_pd(p); }
  static Reg load(const double* p, Mask m) { return _mm256_maskload_pd(p, m); }
  static void store(double* p, Reg r) { _mm256_storeu_pd(p, r); }
  static void store(double* p, Reg r, Mask m) { _mm256_maskstore_pd(p, m, r); }
  static Reg set(double x) { return _mm256_set1_pd(x); }
  static Reg fma(Reg a, Reg b, Reg c) { return _mm256_fmadd_pd(a, b, c); }
  static Reg mul(Reg a, Reg b) { return _mm256_mul_pd(a, b); }
  static Reg add(Reg a, Reg b) { return _mm256_add_pd(a, b); }
  static void prefetch(const double* p) { _mm_prefetch(reinterpret_cast<const char*>(p), _MM_HINT_T0); }
};

#include "kfac/parblas_tiles.h"

constexpr DenseKernels table = {"avx2", NRMAX, update, eliminate, solve, apply, scatter, dots};

}  // namespace

const DenseKernels* dense_kernels_avx2() {
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? &table : nullptr;
}

#else
const DenseKernels* dense_kernels_avx2() { return nullptr; }
#endif

}  // namespace tarvo
