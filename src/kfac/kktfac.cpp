// First version: the whole matrix dense. Serves the optimisers until the sparse factor takes its place.
#include "kfac/kktfac.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "cpub/array.h"

namespace tarvo {

struct KktFac {
  sysenv* env;
  int32_t m, n, type;
  KktOptions options;
  KktStats stats;
  const spmat* a;
  int32_t nq;
  const int32_t *qi, *qj;
  int32_t dim;
  Array<double> l, diag, d, work;
};

KktFac* kktfac_make(sysenv* env, int32_t m, int32_t n, const KktOptions& options) {
  void* place = sysenv_calloc(env, 1, sizeof(KktFac));
  if (place == nullptr) return nullptr;
  auto* f = new (place) KktFac{};
  f->env = env;
  f->m = m;
  f->n = n;
  f->options = options;
  return f;
}

void kktfac_delete(KktFac** fac) {
  if (*fac == nullptr) return;
  sysenv* env = (*fac)->env;
  (*fac)->~KktFac();
  sysenv_free(env, *fac);
  *fac = nullptr;
}

int32_t kktfac_autosetup(KktFac* f, const spmat* a, const spmat*, int32_t nq, const int32_t* qi, const int32_t* qj) {
  f->a = a;
  f->nq = nq;
  f->qi = qi;
  f->qj = qj;
  f->type = f->options.type;
  if (f->type == KKT_AUTO) {
    f->type = KKT_NORMAL;
    for (int32_t k = 0; k < nq; ++k)
      if (qi[k] != qj[k]) f->type = KKT_SQD;
  }
  f->dim = f->type == KKT_NORMAL ? f->m : f->m + f->n;
  const auto dim = static_cast<std::size_t>(f->dim);
  if (!f->l.alloc(f->env, dim * dim) || !f->diag.alloc(f->env, dim) ||
      !f->d.alloc(f->env, static_cast<std::size_t>(f->n)) ||
      !f->work.alloc(f->env, 2 * dim + static_cast<std::size_t>(f->n)))
    return KKT_SPACE;
  f->stats.type = f->type;
  f->stats.dim = f->dim;
  return KKT_OK;
}

int32_t kktfac_numfac(KktFac* f, const double* d, const double* qval, double shift, const double* e) {
  const int32_t dim = f->dim, n = f->n;
  const auto at = [f, dim](int32_t i, int32_t j) -> double& {
    return f->l[static_cast<std::size_t>(j) * static_cast<std::size_t>(dim) + static_cast<std::size_t>(i)];
  };
  std::fill(f->l.begin(), f->l.end(), 0.0);
  std::copy_n(d, n, f->d.data());
  const spmat* a = f->a;
  const int32_t base = f->type == KKT_NORMAL ? 0 : n;
  for (int32_t i = 0; i < f->m; ++i) at(base + i, base + i) = shift + f->options.pivotfix + (e != nullptr ? e[i] : 0.0);
  if (f->type == KKT_NORMAL) {
    for (int32_t k = 0; k < f->nq; ++k) f->d[f->qi[k]] += qval[k];
    for (int32_t j = 0; j < n; ++j) {
      for (int32_t p = a->ptrb[j]; p < a->ptre[j]; ++p)
        for (int32_t q = a->ptrb[j]; q < a->ptre[j]; ++q)
          if (a->sub[q] >= a->sub[p]) at(a->sub[q], a->sub[p]) += a->val[p] * a->val[q] / f->d[j];
    }
  } else {
    for (int32_t j = 0; j < n; ++j) {
      at(j, j) = -d[j] - f->options.pivotfix;
      for (int32_t p = a->ptrb[j]; p < a->ptre[j]; ++p) at(n + a->sub[p], j) = a->val[p];
    }
    for (int32_t k = 0; k < f->nq; ++k) at(f->qi[k], f->qj[k]) -= qval[k];
  }
  f->stats.repaired = f->stats.wrongsign = 0;
  for (int32_t j = 0; j < dim; ++j) {
    double p = at(j, j);
    const double sign = f->type == KKT_SQD && j < n ? -1.0 : 1.0;
    if (sign * p < 1e-30) {
      ++f->stats.repaired;
      if (sign * p < -1e-6) ++f->stats.wrongsign;
      p = sign * 1e128;
    }
    f->diag[j] = p;
    for (int32_t i = j + 1; i < dim; ++i) at(i, j) /= p;
    for (int32_t k = j + 1; k < dim; ++k) {
      const double t = at(k, j) * p;
      if (t == 0.0) continue;
      for (int32_t i = k; i < dim; ++i) at(i, k) -= t * at(i, j);
    }
  }
  ++f->stats.numfac;
  return KKT_OK;
}

static void solve(KktFac* f, double* x) {
  const int32_t dim = f->dim;
  for (int32_t j = 0; j < dim; ++j)
    for (int32_t i = j + 1; i < dim; ++i)
      x[i] -= x[j] * f->l[static_cast<std::size_t>(j) * static_cast<std::size_t>(dim) + static_cast<std::size_t>(i)];
  for (int32_t j = 0; j < dim; ++j) x[j] /= f->diag[j];
  for (int32_t j = dim; j-- > 0;)
    for (int32_t i = j + 1; i < dim; ++i)
      x[j] -= x[i] * f->l[static_cast<std::size_t>(j) * static_cast<std::size_t>(dim) + static_cast<std::size_t>(i)];
  ++f->stats.numsolve;
}

void kktfac_adasolve(KktFac* f, int32_t nrhs, const double* rhs, double* sol) {
  for (int32_t k = 0; k < nrhs; ++k) {
    double* s = sol + static_cast<std::ptrdiff_t>(k) * f->m;
    if (s != rhs + static_cast<std::ptrdiff_t>(k) * f->m)
      std::copy_n(rhs + static_cast<std::ptrdiff_t>(k) * f->m, f->m, s);
    solve(f, s);
  }
}

void kktfac_solve(KktFac* f, int32_t nrhs, const double* r1, const double* r2, double* x, double* y) {
  const spmat* a = f->a;
  for (int32_t k = 0; k < nrhs; ++k, r1 += f->n, r2 += f->m, x += f->n, y += f->m) {
    if (f->type == KKT_SQD) {
      double* w = f->work.data();
      std::copy_n(r1, f->n, w);
      std::copy_n(r2, f->m, w + f->n);
      solve(f, w);
      std::copy_n(w, f->n, x);
      std::copy_n(w + f->n, f->m, y);
      continue;
    }
    double* t = f->work.data();
    double* w = t + f->n;
    std::copy_n(r1, f->n, t);
    std::copy_n(r2, f->m, w);
    for (int32_t j = 0; j < f->n; ++j) spmat_axpy(t[j] / f->d[j], a, j, w);
    solve(f, w);
    std::copy_n(w, f->m, y);
    for (int32_t j = 0; j < f->n; ++j) x[j] = (spmat_dot(a, j, y) - t[j]) / f->d[j];
  }
}

const KktStats& kktfac_getstats(const KktFac* f) { return f->stats; }

}  // namespace tarvo
