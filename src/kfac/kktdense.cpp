// Dense columns of the normal equations: which ones, and the Schur complement that brings them back.
#include <algorithm>
#include <cmath>

#include "kfac/kernels.h"
#include "kfac/kktfac_internal.h"

namespace tarvo {

namespace {

constexpr int32_t most_columns = 1000;
constexpr double times_average = 20.0;

double* aligned(double* p) { return p + (64 - reinterpret_cast<std::uintptr_t>(p) % 64) % 64 / sizeof(double); }

DenseColumns block_of(KktDense* d) {
  return {d->num, d->num, aligned(d->t.data()), d->ld, d->tdiag.data(), d->tbefore.data(), d->tflags.data()};
}

}  // namespace

bool kktfac_denseselect(KktFac* f) {
  KktDense& d = f->dense;
  d.num = 0;
  if (f->options.offcol <= 0 || f->n == 0) return true;
  const spmat* a = f->a;
  const double average = static_cast<double>(spmat_getnumnz(a)) / f->n;
  const double limit = std::max<double>(std::max(f->options.offcol, 100), times_average * average);
  const auto length = [a](int32_t j) { return a->ptre[j] - a->ptrb[j]; };
  int32_t count = 0;
  for (int32_t j = 0; j < f->n; ++j) count += length(j) > limit ? 1 : 0;
  if (count == 0 || count > std::min(most_columns, f->m / 2)) return true;
  if (!d.isdense.alloc(f->env, static_cast<std::size_t>(f->n), Fill::zero) ||
      !d.column.alloc(f->env, static_cast<std::size_t>(count)))
    return false;
  for (int32_t j = 0; j < f->n; ++j) {
    if (length(j) <= limit) continue;
    d.isdense[j] = 1;
    d.column[d.num++] = j;
  }
  return true;
}

bool kktfac_densespace(KktFac* f) {
  KktDense& d = f->dense;
  const auto num = static_cast<std::size_t>(d.num), dim = static_cast<std::size_t>(f->dim);
  if (num == 0) return true;
  constexpr std::size_t line = 8;
  d.ld = dense_leading(d.num);
  if (!d.x.alloc(f->env, dim * num) || !d.chunk.alloc(f->env, 2 * dim) || !d.cover.alloc(f->env, dim) ||
      !d.t.alloc(f->env, static_cast<std::size_t>(d.ld) * num + line) || !d.mult.alloc(f->env, dim) ||
      !d.rows.alloc(f->env, dim) || !d.tflags.alloc(f->env, num) ||
      !d.kernel.alloc(f->env, static_cast<std::size_t>(dense_worksize()) + line))
    return false;
  for (Array<double>* list : {&d.tdiag, &d.tbefore, &d.v})
    if (!list->alloc(f->env, num)) return false;
  for (std::size_t p = 0; p < dim; ++p) d.rows[p] = d.x.data() + p * num;
  return true;
}

// A row of S that is nearly empty against what the dense columns bring to it would cost the Schur complement all its
// digits. It gets their diagonal too; the conjugate gradients of the solves take that back.
void kktfac_densecover(KktFac* f) {
  constexpr double nearly_empty = 1e-12;
  KktDense& d = f->dense;
  const spmat* a = f->a;
  double *sparse = d.mult.data(), *dense = d.cover.data();
  std::fill_n(sparse, f->m, 0.0);
  std::fill_n(dense, f->m, 0.0);
  for (int32_t j = 0; j < f->n; ++j) {
    double* to = d.isdense[j] != 0 ? dense : sparse;
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) to[a->sub[t]] += a->val[t] * a->val[t] / f->dd[j];
  }
  for (int32_t i = 0; i < f->m; ++i)
    if (sparse[i] > nearly_empty * dense[i]) dense[i] = 0.0;
}

void kktfac_densefactor(KktFac* f) {
  KktDense& d = f->dense;
  SymFace* sym = f->sym;
  const spmat* a = f->a;
  const auto num = static_cast<std::size_t>(d.num);
  for (int32_t k = 0; k < d.num; k += 2) {
    const int32_t many = std::min(d.num - k, 2);
    std::fill_n(d.chunk.data(), static_cast<std::size_t>(many) * static_cast<std::size_t>(f->dim), 0.0);
    for (int32_t c = 0; c < many; ++c) {
      const int32_t j = d.column[k + c];
      const double root = 1.0 / std::sqrt(f->dd[j]);
      double* x = d.chunk.data() + static_cast<std::ptrdiff_t>(c) * f->dim;
      for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) x[sym->invperm[a->sub[t]]] = root * a->val[t];
    }
    symface_solvefwd(sym, d.chunk.data(), many);
    for (int32_t c = 0; c < many; ++c) {
      const double* x = d.chunk.data() + static_cast<std::ptrdiff_t>(c) * f->dim;
      double* to = d.x.data() + k + c;
      for (int32_t p = 0; p < f->dim; ++p) to[static_cast<std::size_t>(p) * num] = x[p];
    }
  }
  double* t = aligned(d.t.data());
  std::fill_n(t, static_cast<std::size_t>(d.ld) * num, 0.0);
  for (int32_t k = 0; k < d.num; ++k) t[static_cast<std::ptrdiff_t>(k) * (d.ld + 1)] = 1.0;
  for (int32_t p = 0; p < f->dim; ++p) d.mult[p] = -1.0 / sym->diag[p];
  chdblas3_oa(d.num, d.num, f->dim, d.rows.data(), d.mult.data(), t, d.ld, aligned(d.kernel.data()));
  for (int32_t k = 0; k < d.num; ++k) {
    d.tbefore[k] = t[static_cast<std::ptrdiff_t>(k) * (d.ld + 1)];
    d.tflags[k] = NODE_POSITIVE;
  }
  densefac(block_of(&d), {}, false, aligned(d.kernel.data()));
}

void kktfac_densesolve(KktFac* f, double* w) {
  KktDense& d = f->dense;
  const auto num = static_cast<std::size_t>(d.num);
  double* v = d.v.data();
  std::fill_n(v, num, 0.0);
  for (int32_t p = 0; p < f->dim; ++p) {
    const double factor = w[p] / f->sym->diag[p];
    if (factor == 0.0) continue;
    const double* x = d.x.data() + static_cast<std::size_t>(p) * num;
    for (std::size_t k = 0; k < num; ++k) v[k] += factor * x[k];
  }
  dense_Lx(block_of(&d), 1, v, d.num, nullptr, 0);
  for (std::size_t k = 0; k < num; ++k) v[k] /= d.tdiag[k];
  dense_Ltx(block_of(&d), 1, v, d.num, nullptr, 0);
  for (int32_t p = 0; p < f->dim; ++p) w[p] -= dense_dot(d.num, d.x.data() + static_cast<std::size_t>(p) * num, v);
}

}  // namespace tarvo
