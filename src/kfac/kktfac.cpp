// The door of the KKT factor: set-up, factorisation, solves.
#include "kfac/kktfac.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "kfac/kktfac_internal.h"

namespace tarvo {

namespace {

constexpr int32_t code_start = 0, code_end = 5;

int32_t tell(const KktFac* f, int32_t code, double value) {
  return f->options.hook.func != nullptr ? f->options.hook.func(f->options.hook.handle, code, value) : 0;
}

// All scratch of the factorisation and the solves.
bool alloc_scratch(KktFac* f) {
  const auto dim = static_cast<std::size_t>(f->dim), m = static_cast<std::size_t>(f->m),
             n = static_cast<std::size_t>(f->n);
  return f->dd.alloc(f->env, n) && f->dinv.alloc(f->env, n) && f->shift.alloc(f->env, m) &&
         f->qval.alloc(f->env, static_cast<std::size_t>(f->nq)) && f->rhs.alloc(f->env, 2 * dim) &&
         f->sol.alloc(f->env, 2 * dim) && f->pos.alloc(f->env, 2 * dim) && f->residual.alloc(f->env, 2 * dim) &&
         f->direction.alloc(f->env, dim) && f->product.alloc(f->env, dim) && f->best.alloc(f->env, dim);
}

void set_flags(KktFac* f) {
  for (int32_t p = 0; p < f->dim; ++p) {
    const bool negative = f->type == KKT_SQD && f->sym->perm[p] < f->n;
    f->sym->flags[p] = negative ? NODE_NEGATIVE : NODE_POSITIVE;
  }
}

int32_t order_whole(KktFac* f) {
  if (!kktfac_sqdpattern(f)) return KKT_SPACE;
  const int32_t ordered = symface_order(f->sym, f->options.ordermethod, {}, f->options.hook);
  return ordered == ORDER_CANCELLED ? KKT_CANCELLED : ordered != ORDER_OK ? KKT_SPACE : KKT_OK;
}

int32_t set_up(KktFac* f, const spmat* at) {
  const bool normal = f->type == KKT_NORMAL;
  const double begin = sysenv_cputime();
  const int32_t result = normal ? kktfac_adaorder(f, at) : order_whole(f);
  f->stats.ordertime = sysenv_cputime() - begin;
  if (result != KKT_OK) return result;
  f->stats.nnzm = f->sym->start[f->dim] + f->dim;
  if (!symface_analyze(f->sym) || !(normal ? kktfac_adaplan(f, at) && kktfac_denseplan(f) : kktfac_sqdplan(f)) ||
      !alloc_scratch(f))
    return KKT_SPACE;
  set_flags(f);
  return KKT_OK;
}

void take_stats(KktFac* f) {
  KktStats& s = f->stats;
  s.type = f->type;
  s.dim = f->dim;
  s.densedim = f->dim - f->sym->dstart;
  s.offcol = f->dense.count;
  s.nnzl = f->sym->nnzl;
  const double k = f->dense.count;
  s.flops = f->sym->flops + k * (2.0 * static_cast<double>(s.nnzl) + k * f->m + k * k / 3.0);
  s.denseflops = f->sym->denseflops;
  s.extraflops = f->sym->extraflops;
  s.order = f->sym->order;
}

int32_t factor_values(KktFac* f) {
  const double begin = sysenv_cputime();
  std::fill_n(f->sym->values, f->sym->numvalues, 0.0);
  if (f->type == KKT_NORMAL)
    kktfac_adavalues(f);
  else
    kktfac_sqdvalues(f);
  if (f->dense.count > 0) kktfac_densepreshift(f);
  f->stats.adatime += sysenv_cputime() - begin;
  return symface_numfac(f->sym, f->options.hook) == 0 ? KKT_OK : KKT_CANCELLED;
}

}  // namespace

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

int32_t kktfac_autosetup(KktFac* f, const spmat* a, const spmat* at, int32_t nq, const int32_t* qi, const int32_t* qj) {
  const double begin = sysenv_cputime();
  f->a = a;
  f->nq = nq;
  f->qi = qi;
  f->qj = qj;
  bool diagonal = true;
  for (int32_t k = 0; k < nq; ++k) {
    if (qi[k] < 0 || qi[k] >= f->n || qj[k] < 0 || qj[k] > qi[k]) return KKT_BADINDEX;
    diagonal = diagonal && qi[k] == qj[k];
  }
  f->type = f->options.type != KKT_AUTO ? f->options.type : diagonal ? int32_t{KKT_NORMAL} : int32_t{KKT_SQD};
  const bool normal = f->type == KKT_NORMAL;
  if (f->type == KKT_NORMAL && !diagonal) sysenv_fatal(f->env, "Wrong factor type");
  f->dim = normal ? f->m : f->m + f->n;
  if (tell(f, code_start, 0.0) != 0) return KKT_CANCELLED;
  SymOptions options;
  options.diagshift = f->options.pivotfix;
  // A row taken out of the whole system would keep its residual; a pivot of moderate size is refined away.
  if (!normal) options.floor = 1e-8;
  options.mergeratio = f->options.mergeratio;
  options.l1kb = f->options.l1kb;
  options.l2kb = f->options.l2kb;
  symface_delete(&f->sym);
  f->sym = symface_make(f->env, options, f->dim);
  if (f->sym == nullptr) return KKT_SPACE;
  spmat* made = nullptr;
  if (normal && at == nullptr) {
    if (!spmat_transpose(a, nullptr, false, &made, false)) return KKT_SPACE;
    at = made;
  }
  const int32_t result = set_up(f, at);
  if (made != nullptr) spmat_delete(&made);
  if (result != KKT_OK) return result;
  take_stats(f);
  f->stats.setuptime = sysenv_cputime() - begin;
  return tell(f, code_end, 1.0) != 0 ? KKT_CANCELLED : KKT_OK;
}

int32_t kktfac_numfac(KktFac* f, const double* d, const double* qval, double shift, const double* e) {
  const double begin = sysenv_cputime();
  std::copy_n(d, f->n, f->dd.data());
  if (f->nq > 0) std::copy_n(qval, f->nq, f->qval.data());
  for (int32_t i = 0; i < f->m; ++i) f->shift[i] = shift + (e != nullptr ? e[i] : 0.0);
  if (f->type == KKT_NORMAL) {
    for (int32_t k = 0; k < f->nq; ++k) f->dd[f->qi[k]] += qval[k];
    for (int32_t j = 0; j < f->n; ++j) f->dinv[j] = 1.0 / f->dd[j];
  }
  int32_t result = factor_values(f);
  while (result == KKT_OK && f->dense.count > 0 && !kktfac_denseshifts(f)) result = factor_values(f);
  if (result == KKT_OK && f->dense.count > 0) {
    const double dense = sysenv_cputime();
    kktfac_densefactor(f);
    f->stats.densetime += sysenv_cputime() - dense;
  }
  f->stats.factortime += sysenv_cputime() - begin;
  ++f->stats.numfac;
  f->stats.repaired = f->stats.wrongsign = 0;
  for (int32_t p = 0; p < f->dim; ++p) {
    f->stats.repaired += (f->sym->flags[p] & NODE_REPAIRED) != 0 ? 1 : 0;
    f->stats.wrongsign += (f->sym->flags[p] & NODE_WRONGSIGN) != 0 ? 1 : 0;
  }
  return result;
}

void kktfac_adasolve(KktFac* f, int32_t nrhs, const double* rhs, double* sol) {
  if (f->type != KKT_NORMAL) sysenv_fatal(f->env, "Wrong factor type");
  const double begin = sysenv_cputime();
  const int64_t m = f->m;
  for (int32_t k = 0; k < nrhs; k += 2) {
    const int32_t many = std::min(nrhs - k, 2);
    std::copy_n(rhs + k * m, many * m, f->sol.data());
    kktfac_refinedsolve(f, many, f->sol.data());
    std::copy_n(f->sol.data(), many * m, sol + k * m);
  }
  f->stats.solvetime += sysenv_cputime() - begin;
}

void kktfac_solve(KktFac* f, int32_t nrhs, const double* r1, const double* r2, double* x, double* y) {
  const double begin = sysenv_cputime();
  const spmat* a = f->a;
  const int64_t m = f->m, n = f->n;
  for (int32_t k = 0; k < nrhs; k += 2) {
    const int32_t many = std::min(nrhs - k, 2);
    double* w = f->sol.data();
    for (int32_t r = 0; r < many; ++r) {
      if (f->type == KKT_SQD) {
        std::copy_n(r1 + (k + r) * n, n, w + r * f->dim);
        std::copy_n(r2 + (k + r) * m, m, w + r * f->dim + n);
        continue;
      }
      // Of the first row x = diag(1/d) (A'y - r1): M y = r2 + A diag(1/d) r1.
      const double* first = r1 + (k + r) * n;
      std::copy_n(r2 + (k + r) * m, m, w + r * m);
      for (int32_t j = 0; j < f->n; ++j)
        if (first[j] != 0.0) spmat_axpy(first[j] * f->dinv[j], a, j, w + r * m);
    }
    kktfac_refinedsolve(f, many, w);
    for (int32_t r = 0; r < many; ++r) {
      const double* first = r1 + (k + r) * n;
      double* xx = x + (k + r) * n;
      if (f->type == KKT_SQD) {
        std::copy_n(w + r * f->dim, n, xx);
        std::copy_n(w + r * f->dim + n, m, y + (k + r) * m);
        continue;
      }
      for (int32_t j = 0; j < f->n; ++j) xx[j] = (spmat_dot(a, j, w + r * m) - first[j]) * f->dinv[j];
      std::copy_n(w + r * m, m, y + (k + r) * m);
    }
  }
  f->stats.solvetime += sysenv_cputime() - begin;
}

const KktStats& kktfac_getstats(const KktFac* f) { return f->stats; }

}  // namespace tarvo
