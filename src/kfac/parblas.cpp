#include <algorithm>

#include "kfac/kernels.h"
#include "kfac/kopenmp.h"
#include "kfac/parblas_internal.h"
#include "kfac/parshare.h"

namespace tarvo {

namespace {

const DenseKernels& best_kernels() {
#if defined(__x86_64__) && defined(__GNUC__)
  __builtin_cpu_init();
#endif
  for (const DenseKernels* kernels : {dense_kernels_avx512(), dense_kernels_avx2()})
    if (kernels != nullptr) return *kernels;
  return *dense_kernels_generic();
}

const DenseKernels& best = best_kernels();

// A parallel region costs some microseconds: below this many multiplications a thread it does not pay.
constexpr double worth_a_thread = 500e3;

SourceColumns listed(const double* const* list) { return {list, nullptr, 0}; }

}  // namespace

const DenseKernels& dense_kernels() { return best; }

int32_t dense_leading(int32_t rows) {
  const int32_t ld = (rows + 7) / 8 * 8;
  return ld % 512 == 0 ? ld + 8 : ld;
}

int64_t dense_worksize() { return int64_t{PACK_ROWS + PACK_COLS} * PACK_DEPTH; }

void chdblas3_oa(int32_t m, int32_t n, int32_t ncol, const double* const* cols, const double* mult, double* target,
                 int64_t ldt, double* work) {
  best.update({m, n, 0, ncol, listed(cols), listed(cols), 0, 0, mult, target, ldt, work});
}

void chdblas3_or(int32_t m, int32_t n, int32_t ncol, const double* const* rcols, const double* const* ccols,
                 const double* mult, double* target, int64_t ldt, double* work) {
  best.update({m, n, n, ncol, listed(rcols), listed(ccols), 0, 0, mult, target, ldt, work});
}

void par_chdblas3_oa(int32_t m, int32_t n, int32_t ncol, const double* const* cols, const double* mult, double* target,
                     int64_t ldt, double* work) {
  dense_par_update(best, {m, n, 0, ncol, listed(cols), listed(cols), 0, 0, mult, target, ldt, work}, mpc_getnthreads());
}

void chblas2_oy(int32_t m, int32_t ncol, const double* const* cols, const double* mult, double* target) {
  double work[PACK_DEPTH * 8];
  best.update({m, 1, 1, ncol, listed(cols), listed(cols), 0, 0, mult, target, m, work});
}

void dense_par_update(const DenseKernels& kernels, const DenseUpdate& update, int32_t threads) {
  const int64_t n = std::min(update.n, update.m + update.below);
  // Elements in the first r rows: row i has min(i + below + 1, n).
  const auto elements = [&update, n](int64_t r) {
    const int64_t ramp = std::clamp<int64_t>(n - update.below - 1, 0, r);
    return ramp * update.below + ramp * (ramp + 1) / 2 + (r - ramp) * n;
  };
  const int64_t total = elements(update.m);
  const double work = static_cast<double>(total) * update.depth / worth_a_thread;
  threads = static_cast<int32_t>(std::min<double>(threads, std::min(work, update.m / 16.0)));
  if (threads < 2) {
    kernels.update(update);
    return;
  }
  // Rows in shares of equal work. A share begins at a multiple of 8 rows.
  const auto start = [&](int32_t t) {
    if (t >= threads) return update.m;
    int32_t low = 0, high = update.m;
    while (low < high) {
      const int32_t mid = low + (high - low) / 2;
      if (elements(mid) * threads < total * t)
        low = mid + 1;
      else
        high = mid;
    }
    return std::min(low / 8 * 8, update.m);
  };
  for_threads(threads, [&](int32_t t) {
    const int32_t from = start(t), to = start(t + 1);
    DenseUpdate share = update;
    share.m = to - from;
    share.below = update.below + from;
    share.rowshift = update.rowshift + from;
    share.target = update.target + from;
    share.work = update.work + t * dense_worksize();
    kernels.update(share);
  });
}

}  // namespace tarvo
