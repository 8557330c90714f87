// The dense kernels in plain C++: for processors without the vector units of the other sets. Where the processor has a
// fused multiply-add the compiler makes vector code of these loops; where it has none the result is the same and slow.
#include <cmath>

#include "kfac/parblas_internal.h"

namespace tarvo {

namespace {

struct Vec {
  static constexpr int width = 4, pack_rows = 2, max_rows = 4, accumulators = 8, pack_from = 48;
  struct Reg {
    double at[width];
  };
  using Mask = int32_t;  // number of elements
  static Mask mask(int32_t count) { return count; }
  static Reg load(const double* p) { return {{p[0], p[1], p[2], p[3]}}; }
  static Reg load(const double* p, Mask count) {
    Reg r{};
    for (int32_t l = 0; l < count; ++l) r.at[l] = p[l];
    return r;
  }
  static void store(double* p, const Reg& r) {
    for (int l = 0; l < width; ++l) p[l] = r.at[l];
  }
  static void store(double* p, const Reg& r, Mask count) {
    for (int32_t l = 0; l < count; ++l) p[l] = r.at[l];
  }
  static Reg set(double x) { return {{x, x, x, x}}; }
  static Reg fma(const Reg& a, const Reg& b, const Reg& c) {
    Reg r;
    for (int l = 0; l < width; ++l) r.at[l] = std::fma(a.at[l], b.at[l], c.at[l]);
    return r;
  }
  static Reg mul(const Reg& a, const Reg& b) {
    Reg r;
    for (int l = 0; l < width; ++l) r.at[l] = a.at[l] * b.at[l];
    return r;
  }
  static Reg add(const Reg& a, const Reg& b) {
    Reg r;
    for (int l = 0; l < width; ++l) r.at[l] = a.at[l] + b.at[l];
    return r;
  }
  static void prefetch(const double*) {}
};

#include "kfac/parblas_tiles.h"

constexpr DenseKernels table = {"generic", NRMAX, update, eliminate, solve, apply, scatter, dots};

}  // namespace

const DenseKernels* dense_kernels_generic() { return &table; }

}  // namespace tarvo
