// Solves with the factor. They read every element once, so they are bound by memory: two right-hand sides go together,
// and the subtrees are shared out among the threads only when there is much to read.
#include "kfac/kopenmp.h"
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

// Rows of positions from `limit` on go to `beyond` instead of the right-hand side.
void forward_block(SymFace* face, int32_t b, const Rhs& rhs, double* below, int32_t limit, double* beyond) {
  const SymBlock& block = face->blocks[b];
  double* x = rhs.x + block.first;
  if (b >= face->firsttail) {
    dense_Lx(solve_columns(face, block), rhs.count, x, rhs.stride, x + block.width, rhs.stride);
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
  dense_Lx(solve_columns(face, block), rhs.count, x, rhs.stride, below, stride);
  for (int32_t r = 0; r < rhs.count; ++r) {
    double *near = rhs.x + r * rhs.stride, *far = beyond + r * rhs.stride;
    for (int32_t i = 0; i < inside; ++i) near[rows[i]] += below[r * stride + i];
    for (int32_t i = inside; i < block.nrows; ++i) far[rows[i]] += below[r * stride + i];
  }
}

void backward_block(SymFace* face, int32_t b, const Rhs& rhs, double* below) {
  const SymBlock& block = face->blocks[b];
  double* x = rhs.x + block.first;
  if (b >= face->firsttail) {
    dense_Ltx(solve_columns(face, block), rhs.count, x, rhs.stride, x + block.width, rhs.stride);
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
  dense_Ltx(solve_columns(face, block), rhs.count, x, rhs.stride, below, stride);
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
        forward_block(face, b, rhs, below, root.first + root.width, sums + t * share);
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
    if (in_parallel(face)) {
      forward_subtrees(face, rhs);
      for (const int32_t b : face->schedule->ascending) forward_block(face, b, rhs, below, face->n, rhs.x);
    } else {
      for (int32_t b = 0; b < face->firsttail; ++b) forward_block(face, b, rhs, below, face->n, rhs.x);
    }
    for (int32_t b = face->firsttail; b < face->nblk; ++b) forward_block(face, b, rhs, below, face->n, rhs.x);
  }
}

void symface_solvebwd(SymFace* face, double* x, int32_t nrhs) {
  const int64_t n = face->n;
  const SymSchedule& schedule = *face->schedule;
  double* below = symface_scratch(face, 0).buffer;
  for (int32_t done = 0; done < nrhs; done += 2) {
    const Rhs rhs{x + done * n, n, std::min(2, nrhs - done)};
    for (int32_t b = face->nblk - 1; b >= face->firsttail; --b) backward_block(face, b, rhs, below);
    if (!in_parallel(face)) {
      for (int32_t b = face->firsttail - 1; b >= 0; --b) backward_block(face, b, rhs, below);
      continue;
    }
    for (size_t k = schedule.ascending.size(); k-- > 0;) backward_block(face, schedule.ascending[k], rhs, below);
    for_threads(schedule.threads, [&](int32_t t) {
      double* own = symface_scratch(face, t).buffer;
      for (int32_t k = schedule.treestart[t + 1] - 1; k >= schedule.treestart[t]; --k)
        for (int32_t b = schedule.trees[k].end - 1; b >= schedule.trees[k].begin; --b)
          backward_block(face, b, rhs, own);
    });
  }
}

}  // namespace tarvo
