// The dense L D L' factorisation of a trapezoid and the solves with it.
//
// Recursive by halves of the columns: factor the left half, subtract its products from the right half in one update,
// factor the right half; nearly all work is then in updates as deep as they can be. Every element runs the same chain
// as in a factorisation column by column, so the blocking cannot be seen in the result.
#include <algorithm>

#include "kfac/kernels.h"
#include "kfac/kopenmp.h"
#include "kfac/parblas_internal.h"
#include "kfac/parshare.h"

namespace tarvo {

namespace {

// Panels of this width are factored in two steps, the triangle and then the rows below in blocks that stay in the
// cache.
constexpr int32_t panel_width = 128;
constexpr int32_t panel_rows = 192;
constexpr int64_t panel_worth = 1 << 15;     // elements from which on that pays
constexpr int64_t panel_share = 500 * 1000;  // multiplications that are worth a thread

struct Dense {
  const DenseKernels* kernels;
  const DenseColumns* block;
  const PivotRule* rule;
  int32_t threads;
  double* work;

  double* at(int32_t i, int32_t j) const { return block->val + j * block->ld + i; }
  // Products of `depth` columns from c on subtracted from the m x n block at (row, col); `below` as in DenseUpdate.
  DenseUpdate update(int32_t c, int32_t depth, int32_t row, int32_t m, int32_t col, int32_t n, int32_t below) const {
    const SourceColumns source{nullptr, at(0, c), block->ld};
    return {m, n, below, depth, source, source, row, col, block->diag + c, at(row, col), block->ld, work};
  }
};

// The left part of w columns: half of them, in whole leaves.
int32_t left_part(const Dense& f, int32_t w) {
  const int32_t leaf = f.kernels->leaf;
  return ((w + 1) / 2 + leaf - 1) / leaf * leaf;
}

// Factors the columns c..c+w-1 down to row `end`.
void factor(const Dense& f, int32_t c, int32_t w, int32_t end) {
  const DenseColumns& b = *f.block;
  if (w <= f.kernels->leaf) {
    f.kernels->eliminate(w, f.at(c, c), b.ld, b.diag + c, b.before + c, b.flags + c, *f.rule);
    f.kernels->solve(w, end - c - w, f.at(c, c), b.ld, b.diag + c, f.at(c + w, c), b.ld);
    return;
  }
  const int32_t left = left_part(f, w), mid = c + left;
  factor(f, c, left, end);
  f.kernels->update(f.update(c, left, mid, end - mid, mid, w - left, 0));
  factor(f, mid, w - left, end);
}

// Divides the rows r..r+m-1 of the columns c..c+w-1 by the triangle of these columns, which is factored.
void divide(const Dense& f, int32_t c, int32_t w, int32_t r, int32_t m) {
  if (w <= f.kernels->leaf) {
    f.kernels->solve(w, m, f.at(c, c), f.block->ld, f.block->diag + c, f.at(r, c), f.block->ld);
    return;
  }
  const int32_t left = left_part(f, w), mid = c + left;
  divide(f, c, left, r, m);
  f.kernels->update(f.update(c, left, r, m, mid, w - left, w));
  divide(f, mid, w - left, r, m);
}

void factor_panel(const Dense& f, int32_t c, int32_t w) {
  const int32_t first = c + w, m = f.block->rows - first;
  if (int64_t{m} * w < panel_worth) {
    factor(f, c, w, f.block->rows);
    return;
  }
  factor(f, c, w, first);
  const int32_t blocks = (m + panel_rows - 1) / panel_rows;
  const int64_t worth = int64_t{m} * w * w / 2 / panel_share;
  const int32_t threads = std::max(1, static_cast<int32_t>(std::min<int64_t>({f.threads, blocks, worth})));
  for_threads(threads, [&](int32_t t) {
    // Shares in whole registers of rows, then blocks of a share.
    const int32_t share = ((m + threads - 1) / threads + 7) / 8 * 8;
    const int32_t end = std::min(m, (t + 1) * share);
    Dense own = f;
    own.work = f.work + t * dense_worksize();
    for (int32_t r = t * share; r < end; r += panel_rows) divide(own, c, w, first + r, std::min(panel_rows, end - r));
  });
}

void factor_columns(const Dense& f, int32_t c, int32_t w) {
  if (w <= panel_width) {
    factor_panel(f, c, w);
    return;
  }
  // Halves in whole panels.
  const int32_t left = (w / 2 + panel_width - 1) / panel_width * panel_width, mid = c + left;
  factor_columns(f, c, left);
  dense_par_update(*f.kernels, f.update(c, left, mid, f.block->rows - mid, mid, w - left, 0), f.threads);
  factor_columns(f, mid, w - left);
}

}  // namespace

void dense_factor(const DenseKernels& kernels, const DenseColumns& block, const PivotRule& rule, int32_t threads,
                  double* work) {
  if (block.width > 0) factor_columns({&kernels, &block, &rule, threads, work}, 0, block.width);
}

void densefac(const DenseColumns& block, const PivotRule& rule, bool parallel, double* work) {
  dense_factor(dense_kernels(), block, rule, parallel ? mpc_getnthreads() : 1, work);
}

void dense_forward(const DenseKernels& kernels, const DenseColumns& block, int32_t nrhs, double* x, int64_t ldx,
                   double* below, int64_t ldbelow) {
  const int64_t ld = block.ld;
  for (int32_t c = 0; c < block.width; c += APPLY_DEPTH) {
    const int32_t nb = std::min<int32_t>(APPLY_DEPTH, block.width - c), next = c + nb;
    const double* l = block.val + c * ld;
    for (int32_t r = 0; r < nrhs; ++r) {
      double* y = x + r * ldx + c;
      for (int32_t j = 0; j < nb; ++j)
        for (int32_t i = j + 1; i < nb; ++i) y[i] -= l[j * ld + c + i] * y[j];
    }
    kernels.apply(block.width - next, nb, l + next, ld, nrhs, x + c, ldx, x + next, ldx);
    kernels.apply(block.rows - block.width, nb, l + block.width, ld, nrhs, x + c, ldx, below, ldbelow);
  }
}

void dense_backward(const DenseKernels& kernels, const DenseColumns& block, int32_t nrhs, double* x, int64_t ldx,
                    const double* below, int64_t ldbelow) {
  const int64_t ld = block.ld;
  for (int32_t c = (block.width - 1) / 4 * 4; c >= 0; c -= 4) {
    const int32_t nb = std::min(4, block.width - c), next = c + nb;
    const double* l = block.val + c * ld;
    double sum[8] = {};
    kernels.dots(nb, block.rows - block.width, l + block.width, ld, nrhs, below, ldbelow, sum);
    kernels.dots(nb, block.width - next, l + next, ld, nrhs, x + next, ldx, sum);
    for (int32_t r = 0; r < nrhs; ++r) {
      double* y = x + r * ldx + c;
      for (int32_t j = nb - 1; j >= 0; --j) {
        for (int32_t i = j + 1; i < nb; ++i) sum[r * 4 + j] += l[j * ld + c + i] * y[i];
        y[j] -= sum[r * 4 + j];
      }
    }
  }
}

void dense_Lx(const DenseColumns& block, int32_t nrhs, double* x, int64_t ldx, double* below, int64_t ldbelow) {
  dense_forward(dense_kernels(), block, nrhs, x, ldx, below, ldbelow);
}

void dense_Ltx(const DenseColumns& block, int32_t nrhs, double* x, int64_t ldx, const double* below, int64_t ldbelow) {
  dense_backward(dense_kernels(), block, nrhs, x, ldx, below, ldbelow);
}

}  // namespace tarvo
