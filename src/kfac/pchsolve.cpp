// Solves with the factor. They read every element once, so they are bound by memory: two right-hand sides go together,
// and the subtrees are shared out among the threads only when there is much to read.
#include "kfac/kopenmp.h"
#include "kfac/parblas_internal.h"
#include "kfac/parshare.h"
#include "kfac/symface_internal.h"

namespace tarvo {

namespace {

struct Rhs {
  double* x;
  int64_t stride;
  int32_t count;
};

DenseColumns solve_columns(SymFace* face, const SymBlock& block) {
  return {block.width + block.nrows,
          block.width,
          face->values + block.val,
          block.ld,
          face->diag.data() + block.first,
          nullptr,
          nullptr};
}

// Elements below the diagonal block from which on all threads read a block together.
constexpr int64_t worth_team = 1 << 18;

bool by_team(const SymBlock& block, int32_t threads) {
  return threads > 1 && int64_t{block.width} * block.nrows >= worth_team;
}

// The forward step of a block: x is solved with its triangle, then its rows are subtracted from `below`, shared out
// among the threads if there are several.
void forward_dense(SymFace* face, const SymBlock& block, const Rhs& rhs, double* below, int64_t stride,
                   int32_t threads) {
  DenseColumns columns = solve_columns(face, block);
  double* x = rhs.x + block.first;
  if (!by_team(block, threads)) {
    dense_Lx(columns, rhs.count, x, rhs.stride, below, stride);
    return;
  }
  columns.rows = block.width;
  dense_Lx(columns, rhs.count, x, rhs.stride, below, stride);
  const int32_t share = (block.nrows / threads + 8) / 8 * 8;
  for_threads(threads, [&](int32_t t) {
    const int32_t begin = std::min(t * share, block.nrows), end = std::min(begin + share, block.nrows);
    for (int32_t c = 0; c < block.width; c += APPLY_DEPTH)
      dense_kernels().apply(end - begin, std::min<int32_t>(APPLY_DEPTH, block.width - c),
                            columns.val + c * columns.ld + block.width + begin, columns.ld, rhs.count, x + c,
                            rhs.stride, below + begin, stride);
  });
}

// The backward step: the products with `below` are subtracted from x, which is then solved with the triangle.
void backward_dense(SymFace* face, const SymBlock& block, const Rhs& rhs, const double* below, int64_t stride,
                    int32_t threads) {
  DenseColumns columns = solve_columns(face, block);
  double* x = rhs.x + block.first;
  if (by_team(block, threads)) {
    const int32_t share = (block.width / threads + 4) / 4 * 4;
    for_threads(threads, [&](int32_t t) {
      const int32_t end = std::min((t + 1) * share, block.width);
      for (int32_t c = t * share; c < end; c += 4) {
        const int32_t count = std::min(4, end - c);
        double sum[8] = {};
        dense_kernels().dots(count, block.nrows, columns.val + c * columns.ld + block.width, columns.ld, rhs.count,
                             below, stride, sum);
        for (int32_t r = 0; r < rhs.count; ++r)
          for (int32_t j = 0; j < count; ++j) x[r * rhs.stride + c + j] -= sum[r * 4 + j];
      }
    });
    columns.rows = block.width;
  }
  dense_Ltx(columns, rhs.count, x, rhs.stride, below, stride);
}

// Rows of positions from `limit` on go to `beyond` instead of the right-hand side.
void forward_block(SymFace* face, int32_t b, const Rhs& rhs, double* below, int32_t limit, double* beyond,
                   int32_t threads) {
  const SymBlock& block = face->blocks[b];
  double* x = rhs.x + block.first;
  if (b >= face->firsttail) {
    forward_dense(face, block, rhs, x + block.width, rhs.stride, threads);
    return;
  }
  const int32_t* rows = symface_rowlist(face, block);
  int32_t inside = block.nrows;
  while (inside > 0 && rows[inside - 1] >= limit) --inside;
  if (block.width == 1) {
    const double* column = face->values + block.val + 1;
    for (int32_t r = 0; r < rhs.count; ++r) {
      double *near = rhs.x + r * rhs.stride, *far = beyond + r * rhs.stride;
      const double factor = x[r * rhs.stride];
      for (int32_t i = 0; i < inside; ++i) near[rows[i]] -= column[i] * factor;
      for (int32_t i = inside; i < block.nrows; ++i) far[rows[i]] -= column[i] * factor;
    }
    return;
  }
  const int64_t stride = face->maxrows;
  for (int32_t r = 0; r < rhs.count; ++r) std::fill(below + r * stride, below + r * stride + block.nrows, 0.0);
  forward_dense(face, block, rhs, below, stride, threads);
  for (int32_t r = 0; r < rhs.count; ++r) {
    double *near = rhs.x + r * rhs.stride, *far = beyond + r * rhs.stride;
    for (int32_t i = 0; i < inside; ++i) near[rows[i]] += below[r * stride + i];
    for (int32_t i = inside; i < block.nrows; ++i) far[rows[i]] += below[r * stride + i];
  }
}

void backward_block(SymFace* face, int32_t b, const Rhs& rhs, double* below, int32_t threads) {
  const SymBlock& block = face->blocks[b];
  double* x = rhs.x + block.first;
  if (b >= face->firsttail) {
    backward_dense(face, block, rhs, x + block.width, rhs.stride, threads);
    return;
  }
  const int32_t* rows = symface_rowlist(face, block);
  if (block.width == 1) {
    const double* column = face->values + block.val + 1;
    for (int32_t r = 0; r < rhs.count; ++r) {
      double sum = 0.0;
      for (int32_t i = 0; i < block.nrows; ++i) sum += column[i] * rhs.x[r * rhs.stride + rows[i]];
      x[r * rhs.stride] -= sum;
    }
    return;
  }
  const int64_t stride = face->maxrows;
  for (int32_t r = 0; r < rhs.count; ++r)
    for (int32_t i = 0; i < block.nrows; ++i) below[r * stride + i] = rhs.x[r * rhs.stride + rows[i]];
  backward_dense(face, block, rhs, below, stride, threads);
}

bool in_parallel(const SymFace* face) {
  return face->schedule->parallelsolve && mpc_getnthreads() >= face->schedule->threads;
}

void forward_subtrees(SymFace* face, const Rhs& rhs) {
  const SymSchedule& schedule = *face->schedule;
  double* sums = face->schedule->sums.data();
  const int64_t share = 2 * rhs.stride;
  for_threads(schedule.threads, [&](int32_t t) {
    double* below = symface_scratch(face, t).buffer;
    for (int32_t k = schedule.treestart[t]; k < schedule.treestart[t + 1]; ++k) {
      const SymRange& tree = schedule.trees[k];
      const SymBlock& root = face->blocks[tree.end - 1];
      for (int32_t b = tree.begin; b < tree.end; ++b)
        forward_block(face, b, rhs, below, root.first + root.width, sums + t * share, 1);
    }
  });
  const auto add = [&](const SymBlock& block) {
    for (int32_t t = 0; t < schedule.threads; ++t) {
      for (int32_t r = 0; r < rhs.count; ++r) {
        double *from = sums + t * share + r * rhs.stride, *to = rhs.x + r * rhs.stride;
        for (int32_t i = block.first; i < block.first + block.width; ++i) {
          to[i] += from[i];
          from[i] = 0.0;
        }
      }
    }
  };
  for (const int32_t b : schedule.ascending) add(face->blocks[b]);
  for (int32_t b = face->firsttail; b < face->nblk; ++b) add(face->blocks[b]);
}

}  // namespace

void symface_solvefwd(SymFace* face, double* x, int32_t nrhs) {
  const int64_t n = face->n;
  double* below = symface_scratch(face, 0).buffer;
  for (int32_t done = 0; done < nrhs; done += 2) {
    const Rhs rhs{x + done * n, n, std::min(2, nrhs - done)};
    const int32_t threads = in_parallel(face) ? face->schedule->threads : 1;
    if (threads > 1) {
      forward_subtrees(face, rhs);
      for (const int32_t b : face->schedule->ascending) forward_block(face, b, rhs, below, face->n, rhs.x, threads);
    } else {
      for (int32_t b = 0; b < face->firsttail; ++b) forward_block(face, b, rhs, below, face->n, rhs.x, threads);
    }
    for (int32_t b = face->firsttail; b < face->nblk; ++b) forward_block(face, b, rhs, below, face->n, rhs.x, threads);
  }
}

void symface_solvebwd(SymFace* face, double* x, int32_t nrhs) {
  const int64_t n = face->n;
  const SymSchedule& schedule = *face->schedule;
  double* below = symface_scratch(face, 0).buffer;
  for (int32_t done = 0; done < nrhs; done += 2) {
    const Rhs rhs{x + done * n, n, std::min(2, nrhs - done)};
    const int32_t threads = in_parallel(face) ? face->schedule->threads : 1;
    for (int32_t b = face->nblk - 1; b >= face->firsttail; --b) backward_block(face, b, rhs, below, threads);
    if (threads == 1) {
      for (int32_t b = face->firsttail - 1; b >= 0; --b) backward_block(face, b, rhs, below, threads);
      continue;
    }
    for (size_t k = schedule.ascending.size(); k-- > 0;)
      backward_block(face, schedule.ascending[k], rhs, below, threads);
    for_threads(schedule.threads, [&](int32_t t) {
      double* own = symface_scratch(face, t).buffer;
      for (int32_t k = schedule.treestart[t + 1] - 1; k >= schedule.treestart[t]; --k)
        for (int32_t b = schedule.trees[k].end - 1; b >= schedule.trees[k].begin; --b)
          backward_block(face, b, rhs, own, 1);
    });
  }
}

}  // namespace tarvo
