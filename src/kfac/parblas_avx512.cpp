// The dense kernels for AVX-512. This file alone is compiled with these instructions switched on.
#include "kfac/parblas_internal.h"

#if defined(__AVX512F__)
#include <immintrin.h>
#endif

namespace tarvo {

#if defined(__AVX512F__)

namespace {

struct Vec {
  static constexpr int width = 8, pack_rows = 3, max_rows = 8, accumulators = 24, pack_from = 32;
  using Reg = __m512d;
  using Mask = __mmask8;
  static Mask mask(int32_t count) { return static_cast<Mask>((1U << count) - 1U); }
  static Reg load(const double* p) { return _mm512_loadu_pd(p); }
  static Reg load(const double* p, Mask m) { return _mm512_maskz_loadu_pd(m, p); }
  static void store(double* p, Reg r) { _mm512_storeu_pd(p, r); }
  static void store(double* p, Reg r, Mask m) { _mm512_mask_storeu_pd(p, m, r); }
  static Reg set(double x) { return _mm512_set1_pd(x); }
  static Reg fma(Reg a, Reg b, Reg c) { return _mm512_fmadd_pd(a, b, c); }
  static Reg mul(Reg a, Reg b) { return _mm512_mul_pd(a, b); }
  static Reg add(Reg a, Reg b) { return _mm512_add_pd(a, b); }
  static void prefetch(const double* p) { _mm_prefetch(reinterpret_cast<const char*>(p), _MM_HINT_T0); }
};

#include "kfac/parblas_tiles.h"

constexpr DenseKernels table = {"avx512", NRMAX, update, eliminate, solve, apply, scatter, dots};

}  // namespace

const DenseKernels* dense_kernels_avx512() { return __builtin_cpu_supports("avx512f") ? &table : nullptr; }

#else
const DenseKernels* dense_kernels_avx512() { return nullptr; }
#endif

}  // namespace tarvo
