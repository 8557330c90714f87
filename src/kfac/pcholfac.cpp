// The numeric factorisation: left-looking over blocks, Ng and Peyton (1993).
#include <algorithm>
#include <cmath>

#include "kfac/kernels.h"
#include "kfac/symface_internal.h"

namespace tarvo {

namespace {

double* aligned(double* p) { return p + (64 - reinterpret_cast<std::uintptr_t>(p) % 64) % 64 / sizeof(double); }

struct Run {
  SymFace* f;
  SymSchedule* s;
  PivotRule rule;
  double *buffer, *kernel;
};

// Subtracts from block k what block u holds for it: rows pos[u].. of u, of which the first q - p are columns of k.
void update(const Run& run, int32_t k, int32_t u) {
  const SymFace* f = run.f;
  SymSchedule* s = run.s;
  const SymBlock &b = f->blocks[k], &v = f->blocks[u];
  const int32_t* rows = f->rows.data() + v.row;
  const int32_t p = s->pos[u];
  int32_t q = p;
  while (q < v.nrows && rows[q] < b.first + b.width) ++q;
  const int32_t m = v.nrows - p, n = q - p;
  for (int32_t c = 0; c < v.width; ++c)
    s->columns[c] = f->values + v.val + static_cast<int64_t>(c) * v.ld + v.width + p;
  const double* mult = f->diag.data() + v.first;
  double* target = f->values + b.val;
  const int32_t* relative = s->relative.data();
  const bool contiguous = relative[rows[v.nrows - 1]] - relative[rows[p]] == m - 1;
  if (contiguous) {
    const int32_t r = relative[rows[p]];
    chdblas3_oa(m, n, v.width, s->columns.data(), mult, target + static_cast<int64_t>(r) * b.ld + r, b.ld, run.kernel);
  } else {
    const int32_t ld = dense_leading(m);
    for (int32_t j = 0; j < n; ++j) std::fill_n(run.buffer + static_cast<int64_t>(j) * ld + j, m - j, 0.0);
    chdblas3_oa(m, n, v.width, s->columns.data(), mult, run.buffer, ld, run.kernel);
    for (int32_t j = 0; j < n; ++j) {
      const double* from = run.buffer + static_cast<int64_t>(j) * ld;
      double* to = target + static_cast<int64_t>(rows[p + j] - b.first) * b.ld;
      for (int32_t i = j; i < m; ++i) to[relative[rows[p + i]]] += from[i];
    }
  }
  s->pos[u] = q;
  if (q < v.nrows) {
    const int32_t next = f->blockof[rows[q]];
    s->next[u] = s->head[next];
    s->head[next] = u;
  }
}

void factor_block(const Run& run, int32_t k) {
  SymFace* f = run.f;
  SymSchedule* s = run.s;
  const SymBlock& b = f->blocks[k];
  int32_t* relative = s->relative.data();
  const int32_t* rows = f->rows.data() + b.row;
  for (int32_t c = 0; c < b.width; ++c) relative[b.first + c] = c;
  for (int32_t i = 0; i < b.nrows; ++i) relative[rows[i]] = b.width + i;
  for (int32_t u = s->head[k]; u >= 0;) {
    const int32_t next = s->next[u];
    update(run, k, u);
    u = next;
  }
  densefac({b.width + b.nrows, b.width, f->values + b.val, b.ld, f->diag.data() + b.first, s->before.data() + b.first,
            f->flags.data() + b.first},
           run.rule, false, run.kernel);
  s->pos[k] = 0;
  if (b.nrows == 0) return;
  const int32_t parent = f->blockof[rows[0]];
  s->next[k] = s->head[parent];
  s->head[parent] = k;
}

}  // namespace

int32_t symface_numfac(SymFace* face, const OrderHook& hook) {
  SymSchedule* s = face->schedule;
  double largest = 0.0, sum = 0.0;
  for (int32_t k = 0; k < face->nblk; ++k) {
    const SymBlock& b = face->blocks[k];
    for (int32_t c = 0; c < b.width; ++c) {
      double& d = face->values[b.val + static_cast<int64_t>(c) * b.ld + c];
      const bool negative = (face->flags[b.first + c] & NODE_NEGATIVE) != 0;
      d += negative ? -face->options.diagshift : face->options.diagshift;
      s->before[b.first + c] = d;
      largest = std::max(largest, std::fabs(d));
      sum += std::fabs(d);
    }
  }
  Run run{face, s, {}, aligned(s->buffer.data()), aligned(s->kernel.data())};
  run.rule.tol = face->options.pivottol;
  run.rule.shiftbelow = face->options.shiftbelow;
  const double ratio = sum > 0.0 ? face->n * largest / sum : 1.0;
  run.rule.scaleratio = std::max(1.0, ratio * ratio);
  std::fill(s->head.begin(), s->head.end(), -1);
  if (hook.func != nullptr && hook.func(hook.handle, 6, 0.0) != 0) return 5;
  double work = 0.0;
  for (int32_t k = 0; k < face->nblk; ++k) {
    factor_block(run, k);
    const SymBlock& b = face->blocks[k];
    work += static_cast<double>(b.width) * (b.width + b.nrows) * (b.width + b.nrows);
    if (work < 1e8) continue;
    work = 0.0;
    if (hook.func != nullptr && hook.func(hook.handle, 7, -1.0) != 0) return 5;
  }
  return 0;
}

namespace {
DenseColumns columns_of(SymFace* f, const SymBlock& b) {
  return {b.width + b.nrows,        b.width, f->values + b.val,        b.ld,
          f->diag.data() + b.first, nullptr, f->flags.data() + b.first};
}
}  // namespace

void symface_solvefwd(SymFace* face, double* x, int32_t nrhs) {
  const int64_t n = face->n;
  double* below = face->schedule->gather.data();
  for (int32_t done = 0; done < nrhs; done += 2, x += 2 * n) {
    const int32_t many = std::min(nrhs - done, 2);
    for (int32_t k = 0; k < face->nblk; ++k) {
      const SymBlock& b = face->blocks[k];
      const int32_t* rows = face->rows.data() + b.row;
      for (int32_t r = 0; r < many; ++r)
        for (int32_t i = 0; i < b.nrows; ++i) below[r * n + i] = x[r * n + rows[i]];
      dense_Lx(columns_of(face, b), many, x + b.first, n, below, n);
      for (int32_t r = 0; r < many; ++r)
        for (int32_t i = 0; i < b.nrows; ++i) x[r * n + rows[i]] = below[r * n + i];
    }
  }
}

void symface_solvebwd(SymFace* face, double* x, int32_t nrhs) {
  const int64_t n = face->n;
  double* below = face->schedule->gather.data();
  for (int32_t done = 0; done < nrhs; done += 2, x += 2 * n) {
    const int32_t many = std::min(nrhs - done, 2);
    for (int32_t k = face->nblk; k-- > 0;) {
      const SymBlock& b = face->blocks[k];
      const int32_t* rows = face->rows.data() + b.row;
      for (int32_t r = 0; r < many; ++r)
        for (int32_t i = 0; i < b.nrows; ++i) below[r * n + i] = x[r * n + rows[i]];
      dense_Ltx(columns_of(face, b), many, x + b.first, n, below, n);
    }
  }
}

}  // namespace tarvo
