// Speed of the dense kernels of the factorisation: rank-k updates and dense factors, in GFlop/s of one core, beside the
// general product and the Cholesky factor of an installed BLAS where the build found one, which does the same flops.
// Prints a table.
#include "kfac/kernels.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "kfac/kopenmp.h"
#include "kfac/parblas_internal.h"

#ifdef TARVO_BENCH_BLAS
extern "C" {
void openblas_set_num_threads(int threads);
void dgemm_(const char* ta, const char* tb, const int* m, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
            const int* ldc);
void dsyrk_(const char* uplo, const char* trans, const int* n, const int* k, const double* alpha, const double* a,
            const int* lda, const double* beta, double* c, const int* ldc);
void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info);
}
#endif

namespace {

using namespace tarvo;
using Numbers = std::vector<double>;

std::mt19937_64 rng{5};

Numbers random_values(int64_t n) {
  Numbers v(static_cast<std::size_t>(n));
  for (double& x : v) x = static_cast<double>(rng() % 2001) / 1000.0 - 1.0;
  return v;
}

// Seconds of one call, the best of many short rounds: on a busy machine some of them are undisturbed.
template <class Call>
double seconds(double flops, const Call& call) {
  using Clock = std::chrono::steady_clock;
  const int calls = static_cast<int>(std::max(1.0, 2e7 / flops));
  double best = 1e30, spent = 0.0;
  for (int r = 0; r < 5 || (spent < 0.05 && r < 60); ++r) {
    const auto start = Clock::now();
    for (int c = 0; c < calls; ++c) call();
    const double t = std::chrono::duration<double>(Clock::now() - start).count();
    best = std::min(best, t / calls);
    spent += t;
  }
  return best;
}

double geometric = 0.0;
int counted = 0;

void row(const char* what, double flops, double ours, double two, double blas, bool count) {
  std::printf("| %s | %.1f |", what, flops / ours * 1e-9);
  if (two > 0.0)
    std::printf(" %.2f |", ours / two);
  else
    std::printf(" |");
#ifdef TARVO_BENCH_BLAS
  if (blas > 0.0)
    std::printf(" %.1f | %.2f |\n", flops / blas * 1e-9, blas / ours);
  else
    std::printf(" | |\n");
  if (count) geometric += std::log(blas / ours), ++counted;
#else
  std::printf(" | |\n");
  (void)blas, (void)count;
#endif
}

// The rectangle m x n, and with n = 0 the triangle m x m.
void update_row(int32_t m, int32_t n, int32_t k) {
  const bool triangle = n == 0;
  const int32_t cols = triangle ? m : n;
  const int32_t ld = dense_leading(m), ldc = dense_leading(m);
  const Numbers a = random_values(int64_t{ld} * k), b = random_values(int64_t{dense_leading(cols)} * k),
                mult = random_values(k);
  Numbers c = random_values(int64_t{ldc} * cols), work(static_cast<std::size_t>(2 * dense_worksize()));
  std::vector<const double*> rows, columns;
  for (int32_t j = 0; j < k; ++j) {
    rows.push_back(a.data() + int64_t{ld} * j);
    columns.push_back(b.data() + int64_t{dense_leading(cols)} * j);
  }
  const double flops = triangle ? double{1.0} * m * (m + 1) * k : 2.0 * m * n * k;
  const double ours = seconds(flops, [&] {
    if (triangle)
      chdblas3_oa(m, m, k, rows.data(), mult.data(), c.data(), ldc, work.data());
    else
      chdblas3_or(m, n, k, rows.data(), columns.data(), mult.data(), c.data(), ldc, work.data());
  });
  double two = 0.0;
  if (triangle && flops > 5e7) {
    mpc_setnthreads(2);
    two = seconds(flops, [&] { par_chdblas3_oa(m, m, k, rows.data(), mult.data(), c.data(), ldc, work.data()); });
    mpc_setnthreads(1);
  }
  double blas = 0.0;
#ifdef TARVO_BENCH_BLAS
  const double minus = -1.0, one = 1.0;
  const int ldb = dense_leading(cols);
  blas = seconds(flops, [&] {
    if (triangle)
      dsyrk_("L", "N", &m, &k, &minus, a.data(), &ld, &one, c.data(), &ldc);
    else
      dgemm_("N", "T", &m, &n, &k, &minus, a.data(), &ld, b.data(), &ldb, &one, c.data(), &ldc);
  });
#endif
  char what[80];
  if (triangle)
    std::snprintf(what, sizeof(what), "triangle %d | %d", m, k);
  else
    std::snprintf(what, sizeof(what), "%d x %d | %d", m, n, k);
  row(what, flops, ours, two, blas, k >= 64 && cols >= 64);
}

// n columns, m rows; with m == n the BLAS factors the same matrix.
void factor_row(int32_t m, int32_t n) {
  const int64_t ld = dense_leading(m);
  Numbers a = random_values(ld * n), diag(static_cast<std::size_t>(n)), before,
          work(static_cast<std::size_t>(2 * dense_worksize()));
  for (int32_t j = 0; j < n; ++j) {
    a[static_cast<std::size_t>(j * ld + j)] = 2.0 * m;
    before.push_back(2.0 * m);
  }
  std::vector<uint16_t> flags(static_cast<std::size_t>(n), NODE_POSITIVE);
  double flops = 0.0;
  for (int32_t j = 0; j < n; ++j) flops += 2.0 * j * (m - j) + (m - j);
  // Small ones are factored in batches, so that the clock and the copying of the start are not what is measured.
  const int batch = static_cast<int>(std::clamp(1e6 / flops, 1.0, 64.0));
  std::vector<Numbers> val(static_cast<std::size_t>(batch), a);
  const auto timed = [&](const auto& call) {
    double best = 1e30, spent = 0.0;
    for (int r = 0; r < 3 || (spent < 0.05 && r < 500); ++r) {
      for (Numbers& v : val) std::memcpy(v.data(), a.data(), a.size() * sizeof(double));
      const auto start = std::chrono::steady_clock::now();
      for (Numbers& v : val) call(v.data());
      const double t = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      best = std::min(best, t / batch);
      spent += t;
    }
    return best;
  };
  const auto factor = [&](bool parallel) {
    return timed([&](double* v) {
      densefac({m, n, v, ld, diag.data(), before.data(), flags.data()}, PivotRule{}, parallel, work.data());
    });
  };
  const double ours = factor(false);
  double two = 0.0, blas = 0.0;
  if (flops > 5e7) {
    mpc_setnthreads(2);
    two = factor(true);
    mpc_setnthreads(1);
  }
#ifdef TARVO_BENCH_BLAS
  const int ldi = static_cast<int>(ld);
  int info = 0;
  if (m == n) blas = timed([&](double* v) { dpotrf_("L", &n, v, &ldi, &info); });
  if (info != 0) std::abort();
#endif
  char what[80];
  std::snprintf(what, sizeof(what), "factor %d x %d | ", m, n);
  row(what, flops, ours, two, blas, false);
}

}  // namespace

int main(int argc, char** argv) {
#ifdef TARVO_BENCH_BLAS
  openblas_set_num_threads(1);
#endif
  const bool few = argc > 1 && std::strcmp(argv[1], "--few") == 0;
  std::printf(
      "# Dense kernels\n\nInstruction set: %s. GFlop/s of one thread, best of several rounds; the speed-up by a second "
      "thread; the\n"
      "same operation of OpenBLAS (`dgemm`, `dsyrk`, `dpotrf`) on one thread.\n\n",
      dense_kernels().name);
  std::printf("| target | depth | GFlop/s | two threads | OpenBLAS | ratio |\n|---|---|---|---|---|---|\n");
  for (const int32_t k : {1, 2, 4, 8, 16, 32, 64, 128, 256})
    for (const int32_t n : {1, 4, 8, 16, 32, 64, 256})
      for (const int32_t m : {20, 100, 500, 4000})
        if (!few || (m == 500 && (n == 8 || n == 64))) update_row(m, n, k);
  for (const int32_t k : {2, 8, 16, 32, 64, 128, 256})
    for (const int32_t m : {10, 30, 100, 300, 1000, 2500})
      if (!few || m == 300 || m == 1000) update_row(m, 0, k);
  for (const int32_t n : {1, 2, 4, 8, 16, 32, 64, 128})
    for (const int32_t m : {2 * n, 8 * n + 20})
      if (!few) factor_row(m, n);
  for (const int32_t n : {50, 100, 200, 500, 1000, 2000, 4000}) factor_row(n, n);
  if (counted > 0)
    std::printf(
        "\nGeometric mean of the ratios of rectangles and triangles with depth and columns of at least 64: %.2f.\n",
        std::exp(geometric / counted));
  return 0;
}
