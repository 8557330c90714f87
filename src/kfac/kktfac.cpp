// The KKT factor over the sparse symmetric factorisation.
//
// Normal equations: the columns of M = A diag(1/d) A' are added up block by block straight into the factor's store. The
// rows of A stand by position, and every column remembers how far it has been used: what is left of it are just the
// rows behind, so that no index pair is ever stored and nothing is searched.
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

// ---- Patterns

// Feeds the edges of A A', each once, with its smaller row first.
bool normal_pattern(KktFac* f, const spmat* at) {
  const spmat* a = f->a;
  const auto m = static_cast<std::size_t>(f->m);
  Array<int32_t> counts, mark;
  if (!counts.alloc(f->env, m) || !mark.alloc(f->env, m)) return false;
  std::fill(mark.begin(), mark.end(), -1);
  const auto walk = [&](int32_t stamp, auto&& use) {
    for (int32_t i = 0; i < f->m; ++i) {
      for (int32_t t = at->ptrb[i]; t < at->ptre[i]; ++t) {
        const int32_t j = at->sub[t];
        if (f->dense.num > 0 && f->dense.isdense[j] != 0) continue;
        for (int32_t s = a->ptrb[j]; s < a->ptre[j]; ++s) {
          const int32_t k = a->sub[s];
          if (k <= i || mark[k] == i + stamp) continue;
          mark[k] = i + stamp;
          use(i, k);
        }
      }
    }
  };
  std::fill(counts.begin(), counts.end(), 0);
  walk(0, [&counts](int32_t i, int32_t) { ++counts[i]; });
  if (!symface_setcounts(f->sym, counts.data())) return false;
  std::fill(mark.begin(), mark.end(), -1);
  walk(0, [f](int32_t i, int32_t k) { symface_inij(f->sym, i, k); });
  return true;
}

bool whole_pattern(KktFac* f) {
  const spmat* a = f->a;
  Array<int32_t> counts;
  if (!counts.alloc(f->env, static_cast<std::size_t>(f->dim), Fill::zero)) return false;
  for (int32_t j = 0; j < f->n; ++j) counts[j] = a->ptre[j] - a->ptrb[j];
  for (int32_t k = 0; k < f->nq; ++k)
    if (f->qi[k] != f->qj[k]) ++counts[std::min(f->qi[k], f->qj[k])];
  if (!symface_setcounts(f->sym, counts.data())) return false;
  for (int32_t j = 0; j < f->n; ++j)
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) symface_inij(f->sym, j, f->n + a->sub[t]);
  for (int32_t k = 0; k < f->nq; ++k) symface_inij(f->sym, f->qi[k], f->qj[k]);
  return true;
}

int32_t order_pattern(KktFac* f) {
  f->stats.nnzm = f->sym->start[f->dim] + f->dim;
  const double begin = sysenv_cputime();
  const int32_t result = symface_order(f->sym, f->options.ordermethod, {}, f->options.hook);
  f->stats.ordertime += sysenv_cputime() - begin;
  return result == ORDER_CANCELLED ? KKT_CANCELLED : result != ORDER_OK ? KKT_SPACE : KKT_OK;
}

int32_t order_whole(KktFac* f) { return whole_pattern(f) ? order_pattern(f) : KKT_SPACE; }

// The work of a factorisation and its solves with `num` columns left out.
double work_of(const KktFac* f, int32_t num) {
  const OrderCounts& counts = f->sym->order;
  const double k = num;
  return counts.work + k * (2.0 * static_cast<double>(counts.nnz) + k * f->m) + k * k * k / 3.0;
}

// Orders the normal equations and decides about the dense columns: without them when that is much less work.
int32_t kktfac_adaorder(KktFac* f, const spmat* at) {
  if (!kktfac_denseselect(f)) return KKT_SPACE;
  if (f->dense.num == 0) return normal_pattern(f, at) ? order_pattern(f) : KKT_SPACE;
  const int32_t num = f->dense.num;
  if (!normal_pattern(f, at)) return KKT_SPACE;
  int32_t result = order_pattern(f);
  if (result != KKT_OK) return result;
  const double without = work_of(f, num);
  // What the columns add to the pattern at most; where that is much, a factor with them is no choice.
  double added = 0.0;
  for (int32_t k = 0; k < num; ++k) {
    const int32_t j = f->dense.column[k];
    const double length = f->a->ptre[j] - f->a->ptrb[j];
    added += 0.5 * length * length;
  }
  constexpr double too_much = 10.0, gain = 0.7;
  const double whole = 0.5 * static_cast<double>(f->m) * f->m;
  if (std::min(added, whole) > too_much * static_cast<double>(f->sym->order.nnz)) return KKT_OK;
  Array<int32_t> perm;
  if (!perm.alloc(f->env, static_cast<std::size_t>(f->m))) return KKT_SPACE;
  std::copy_n(f->sym->perm.data(), f->m, perm.data());
  const OrderCounts counts = f->sym->order;
  f->dense.num = 0;
  if (!normal_pattern(f, at)) return KKT_SPACE;
  result = order_pattern(f);
  if (result != KKT_OK || gain * work_of(f, 0) <= without) return result;
  f->dense.num = num;
  if (!normal_pattern(f, at) || !symface_setorder(f->sym, perm.data())) return KKT_SPACE;
  f->sym->order = counts;
  f->stats.nnzm = f->sym->start[f->dim] + f->dim;
  return KKT_OK;
}

// ---- Plans of the numeric input

bool normal_plan(KktFac* f, const spmat* at) {
  const spmat* a = f->a;
  const auto m = static_cast<std::size_t>(f->m), n = static_cast<std::size_t>(f->n);
  const auto nnz = static_cast<std::size_t>(spmat_getnumnz(a));
  if (!f->colptr.alloc(f->env, n + 1, Fill::zero) || !f->cursor.alloc(f->env, n) ||
      !f->rowptr.alloc(f->env, m + 1, Fill::zero) || !f->colpos.alloc(f->env, nnz) || !f->rowcol.alloc(f->env, nnz) ||
      !f->colval.alloc(f->env, nnz) || !f->rowval.alloc(f->env, nnz))
    return false;
  for (int32_t j = 0; j < f->n; ++j) f->colptr[j + 1] = f->colptr[j] + (a->ptre[j] - a->ptrb[j]);
  std::copy_n(f->colptr.data(), n, f->cursor.data());
  int64_t put = 0;
  for (int32_t p = 0; p < f->m; ++p) {
    const int32_t i = f->sym->perm[p];
    f->rowptr[p] = put;
    for (int32_t t = at->ptrb[i]; t < at->ptre[i]; ++t) {
      const int32_t j = at->sub[t];
      f->rowcol[put] = j;
      f->rowval[put++] = at->val[t];
      f->colpos[f->cursor[j]] = p;
      f->colval[f->cursor[j]++] = at->val[t];
    }
  }
  f->rowptr[m] = put;
  double flops = 0.0;
  for (int32_t j = 0; j < f->n; ++j) {
    if (f->dense.num > 0 && f->dense.isdense[j] != 0) continue;
    const auto length = static_cast<double>(a->ptre[j] - a->ptrb[j]);
    flops += length * (length + 1.0);
  }
  f->stats.adaflops = flops;
  return true;
}

int64_t place_of(const SymFace* sym, int32_t u, int32_t v) {
  const int32_t p = std::min(sym->invperm[u], sym->invperm[v]), q = std::max(sym->invperm[u], sym->invperm[v]);
  const SymBlock& b = sym->blocks[sym->blockof[p]];
  int32_t local = q - b.first;
  if (local >= b.width && sym->blockof[p] < sym->firsttail) {
    const int32_t* rows = sym->rows.data() + b.row;
    local = b.width + static_cast<int32_t>(std::lower_bound(rows, rows + b.nrows, q) - rows);
  }
  return b.val + static_cast<int64_t>(p - b.first) * b.ld + local;
}

bool whole_plan(KktFac* f) {
  const spmat* a = f->a;
  if (!f->aplace.alloc(f->env, static_cast<std::size_t>(spmat_getnumnz(a))) ||
      !f->qplace.alloc(f->env, static_cast<std::size_t>(f->nq)) ||
      !f->dplace.alloc(f->env, static_cast<std::size_t>(f->dim)))
    return false;
  std::size_t put = 0;
  for (int32_t j = 0; j < f->n; ++j)
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) f->aplace[put++] = place_of(f->sym, j, f->n + a->sub[t]);
  for (int32_t k = 0; k < f->nq; ++k) f->qplace[k] = place_of(f->sym, f->qi[k], f->qj[k]);
  for (int32_t k = 0; k < f->dim; ++k) f->dplace[k] = place_of(f->sym, k, k);
  return true;
}

void set_flags(KktFac* f) {
  for (int32_t p = 0; p < f->dim; ++p) {
    const bool negative = f->type == KKT_SQD && f->sym->perm[p] < f->n;
    f->sym->flags[p] = negative ? NODE_NEGATIVE : NODE_POSITIVE;
  }
}

// ---- Numeric input

void normal_values(KktFac* f) {
  SymFace* sym = f->sym;
  std::copy_n(f->colptr.data(), f->n, f->cursor.data());
  int32_t* relative = f->relative.data();
  for (int32_t k = 0; k < sym->nblk; ++k) {
    const SymBlock& b = sym->blocks[k];
    const int32_t* rows = sym->rows.data() + b.row;
    const bool tail = k >= sym->firsttail;
    for (int32_t c = 0; c < b.width; ++c) relative[b.first + c] = c;
    for (int32_t i = 0; i < b.nrows; ++i) relative[tail ? b.first + b.width + i : rows[i]] = b.width + i;
    for (int32_t c = 0; c < b.width; ++c) {
      const int32_t p = b.first + c;
      double* target = sym->values + b.val + static_cast<int64_t>(c) * b.ld;
      target[c] += f->shift[sym->perm[p]] + (f->dense.num > 0 ? f->dense.cover[sym->perm[p]] : 0.0);
      for (int64_t t = f->rowptr[p]; t < f->rowptr[p + 1]; ++t) {
        const int32_t j = f->rowcol[t];
        if (f->dense.num > 0 && f->dense.isdense[j] != 0) continue;
        const double factor = f->rowval[t] / f->dd[j];
        for (int64_t s = f->cursor[j]; s < f->colptr[j + 1]; ++s)
          target[relative[f->colpos[s]]] += factor * f->colval[s];
        ++f->cursor[j];
      }
    }
  }
}

void whole_values(KktFac* f) {
  double* values = f->sym->values;
  const spmat* a = f->a;
  std::size_t put = 0;
  for (int32_t j = 0; j < f->n; ++j) {
    values[f->dplace[j]] -= f->dd[j];
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) values[f->aplace[put++]] = a->val[t];
  }
  for (int32_t k = 0; k < f->nq; ++k) values[f->qplace[k]] -= f->qval[k];
  for (int32_t i = 0; i < f->m; ++i) values[f->dplace[f->n + i]] += f->shift[i];
}

// ---- Solves

// One solve with the factor alone; x has nodes' numbering.
void plain_solve(KktFac* f, double* x, double* w) {
  SymFace* sym = f->sym;
  for (int32_t p = 0; p < f->dim; ++p) w[p] = x[sym->perm[p]];
  symface_solvefwd(sym, w, 1);
  if (f->dense.num > 0) kktfac_densesolve(f, w);
  for (int32_t p = 0; p < f->dim; ++p) w[p] /= sym->diag[p];
  symface_solvebwd(sym, w, 1);
  for (int32_t p = 0; p < f->dim; ++p) x[sym->perm[p]] = w[p];
}

double norm(const double* x, int32_t n) {
  double v = 0.0;
  for (int32_t k = 0; k < n; ++k) v = std::max(v, std::fabs(x[k]));
  return v;
}

// r = rhs - (matrix) x in nodes' numbering; with normal equations rhs may be NULL for zeros.
void residual_of(const KktFac* f, const double* rhs, const double* x, double* r) {
  const spmat* a = f->a;
  if (f->type == KKT_NORMAL) {
    for (int32_t i = 0; i < f->m; ++i) r[i] = (rhs != nullptr ? rhs[i] : 0.0) - f->shift[i] * x[i];
    for (int32_t j = 0; j < f->n; ++j) {
      const double v = spmat_dot(a, j, x) / f->dd[j];
      if (v != 0.0) spmat_axpy(-v, a, j, r);
    }
    return;
  }
  double* r2 = r + f->n;
  const double* y = x + f->n;
  for (int32_t i = 0; i < f->m; ++i) r2[i] = rhs[f->n + i] - f->shift[i] * y[i];
  for (int32_t j = 0; j < f->n; ++j) {
    r[j] = rhs[j] + f->dd[j] * x[j] - spmat_dot(a, j, y);
    if (x[j] != 0.0) spmat_axpy(-x[j], a, j, r2);
  }
  for (int32_t k = 0; k < f->nq; ++k) {
    const int32_t i = f->qi[k], j = f->qj[k];
    r[i] += f->qval[k] * x[j];
    if (i != j) r[j] += f->qval[k] * x[i];
  }
}

constexpr double enough = 1e-10;  // residual of a solve, relative to its right-hand side
constexpr int32_t most_refinements = 3, most_gradients = 25;

// Refines x while the residual asks for it and refinement pays. Starts from x = (factor)^-1 rhs.
void refine(KktFac* f, const double* rhs, double* x, double* w) {
  double *r = f->residual.data(), *dx = f->correction.data();
  const int32_t most = f->options.maxrefine < 0 ? most_refinements : f->options.maxrefine;
  const double scale = norm(rhs, f->dim);
  double best = INFINITY;
  for (int32_t step = 0;; ++step) {
    if (step == most && step == 0) return;
    residual_of(f, rhs, x, r);
    const double now = norm(r, f->dim);
    if (now > best)
      for (int32_t k = 0; k < f->dim; ++k) x[k] -= dx[k];
    if (step == most || now >= 0.5 * best || !(now > enough * scale)) return;
    best = now;
    std::copy_n(r, f->dim, dx);
    plain_solve(f, dx, w);
    for (int32_t k = 0; k < f->dim; ++k) x[k] += dx[k];
    ++f->stats.numrefine;
  }
}

double dot(const double* x, const double* y, int32_t n) {
  double v = 0.0;
  for (int32_t k = 0; k < n; ++k) v += x[k] * y[k];
  return v;
}

// The same by conjugate gradients with the factor as preconditioner: for a factor that differs from M in some rows
// (dense columns left out over rows that nothing else covers, repaired pivots). Hestenes and Stiefel (1952).
void gradients(KktFac* f, const double* rhs, double* x, double* w) {
  const int32_t dim = f->dim;
  double *r = f->residual.data(), *z = f->correction.data(), *p = f->direction.data(), *q = p + dim, *b = q + dim;
  std::copy_n(rhs, dim, b);
  const double scale = norm(b, dim);
  residual_of(f, b, x, r);
  double now = norm(r, dim), old = 0.0;
  const int32_t most = f->options.maxrefine < 0 ? most_gradients : f->options.maxrefine;
  for (int32_t step = 0; step < most && now > enough * scale; ++step) {
    std::copy_n(r, dim, z);
    plain_solve(f, z, w);
    const double rz = dot(r, z, dim);
    if (!(rz > 0.0)) return;
    const double beta = step == 0 ? 0.0 : rz / old;
    old = rz;
    for (int32_t k = 0; k < dim; ++k) p[k] = z[k] + (step == 0 ? 0.0 : beta * p[k]);
    residual_of(f, nullptr, p, q);  // q = -M p
    const double curvature = -dot(p, q, dim);
    if (!(curvature > 0.0)) return;
    const double alpha = rz / curvature;
    for (int32_t k = 0; k < dim; ++k) {
      x[k] += alpha * p[k];
      r[k] += alpha * q[k];
    }
    now = norm(r, dim);
    ++f->stats.numrefine;
  }
}

void refined_solve(KktFac* f, double* x) {
  double *w = f->work.data(), *rhs = w + f->dim;
  std::copy_n(x, f->dim, rhs);
  plain_solve(f, x, w);
  ++f->stats.numsolve;
  if (f->dense.num > 0)
    gradients(f, rhs, x, w);
  else
    refine(f, rhs, x, w);
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
  f->dim = f->type == KKT_NORMAL ? f->m : f->m + f->n;
  if (tell(f, code_start, 0.0) != 0) return KKT_CANCELLED;
  SymOptions options;
  options.diagshift = f->options.pivotfix;
  options.mergeratio = f->options.mergeratio;
  options.l1kb = f->options.l1kb;
  options.l2kb = f->options.l2kb;
  f->sym = symface_make(f->env, options, f->dim);
  if (f->sym == nullptr) return KKT_SPACE;
  spmat* made = nullptr;
  if (at == nullptr) {
    if (!spmat_transpose(a, nullptr, false, &made, false)) return KKT_SPACE;
    at = made;
  }
  int32_t result = f->type == KKT_NORMAL ? kktfac_adaorder(f, at) : order_whole(f);
  if (result == KKT_OK && !symface_analyze(f->sym)) result = KKT_SPACE;
  if (result == KKT_OK && !(f->type == KKT_NORMAL ? normal_plan(f, at) && kktfac_densespace(f) : whole_plan(f)))
    result = KKT_SPACE;
  if (made != nullptr) spmat_delete(&made);
  if (result != KKT_OK) return result;
  set_flags(f);
  if (f->dense.num > 0) f->sym->options.shiftbelow = 1e-13;
  // A row taken out of the whole system would keep its residual; a pivot of moderate size is refined away.
  if (f->type == KKT_SQD) f->sym->options.floor = 1e-8;
  const auto dim = static_cast<std::size_t>(f->dim);
  if (!f->relative.alloc(f->env, dim) || !f->dd.alloc(f->env, static_cast<std::size_t>(f->n)) ||
      !f->shift.alloc(f->env, static_cast<std::size_t>(f->m)) || !f->qval.alloc(f->env, static_cast<std::size_t>(nq)) ||
      !f->work.alloc(f->env, 3 * dim) || !f->residual.alloc(f->env, dim) || !f->correction.alloc(f->env, dim) ||
      !f->direction.alloc(f->env, f->dense.num > 0 ? 3 * dim : 0))
    return KKT_SPACE;
  KktStats& s = f->stats;
  s.type = f->type;
  s.dim = f->dim;
  s.densedim = f->dim - f->sym->dstart;
  s.nnzl = f->sym->nnzl;
  s.flops = f->sym->flops;
  s.denseflops = f->sym->denseflops;
  s.extraflops = f->sym->extraflops;
  s.order = f->sym->order;
  s.offcol = f->dense.num;
  s.setuptime = sysenv_cputime() - begin;
  return tell(f, code_end, 1.0) != 0 ? KKT_CANCELLED : KKT_OK;
}

int32_t kktfac_numfac(KktFac* f, const double* d, const double* qval, double shift, const double* e) {
  const double begin = sysenv_cputime();
  std::copy_n(d, f->n, f->dd.data());
  if (f->nq > 0) std::copy_n(qval, f->nq, f->qval.data());
  for (int32_t i = 0; i < f->m; ++i) f->shift[i] = shift + (e != nullptr ? e[i] : 0.0);
  if (f->type == KKT_NORMAL)
    for (int32_t k = 0; k < f->nq; ++k) f->dd[f->qi[k]] += qval[k];
  std::fill_n(f->sym->values, f->sym->numvalues, 0.0);
  if (f->dense.num > 0) kktfac_densecover(f);
  if (f->type == KKT_NORMAL)
    normal_values(f);
  else
    whole_values(f);
  f->stats.adatime += sysenv_cputime() - begin;
  const int32_t result = symface_numfac(f->sym, f->options.hook);
  f->stats.factortime += sysenv_cputime() - begin;
  ++f->stats.numfac;
  if (result != 0) return KKT_CANCELLED;
  if (f->dense.num > 0) {
    const double dense = sysenv_cputime();
    kktfac_densefactor(f);
    f->stats.densetime += sysenv_cputime() - dense;
  }
  f->stats.repaired = f->stats.wrongsign = 0;
  for (int32_t p = 0; p < f->dim; ++p) {
    f->stats.repaired += (f->sym->flags[p] & NODE_REPAIRED) != 0 ? 1 : 0;
    f->stats.wrongsign += (f->sym->flags[p] & NODE_WRONGSIGN) != 0 ? 1 : 0;
  }
  return KKT_OK;
}

void kktfac_adasolve(KktFac* f, int32_t nrhs, const double* rhs, double* sol) {
  if (f->type != KKT_NORMAL) sysenv_fatal(f->env, "Wrong factor type");
  const double begin = sysenv_cputime();
  for (int32_t k = 0; k < nrhs; ++k, rhs += f->m, sol += f->m) {
    if (sol != rhs) std::copy_n(rhs, f->m, sol);
    refined_solve(f, sol);
  }
  f->stats.solvetime += sysenv_cputime() - begin;
}

void kktfac_solve(KktFac* f, int32_t nrhs, const double* r1, const double* r2, double* x, double* y) {
  const double begin = sysenv_cputime();
  const spmat* a = f->a;
  double* w = f->work.data() + 2 * static_cast<std::ptrdiff_t>(f->dim);
  for (int32_t k = 0; k < nrhs; ++k, r1 += f->n, r2 += f->m, x += f->n, y += f->m) {
    if (f->type == KKT_SQD) {
      std::copy_n(r1, f->n, w);
      std::copy_n(r2, f->m, w + f->n);
      refined_solve(f, w);
      std::copy_n(w, f->n, x);
      std::copy_n(w + f->n, f->m, y);
      continue;
    }
    std::copy_n(r2, f->m, w);
    for (int32_t j = 0; j < f->n; ++j)
      if (r1[j] != 0.0) spmat_axpy(r1[j] / f->dd[j], a, j, w);
    refined_solve(f, w);
    std::copy_n(w, f->m, y);
    for (int32_t j = 0; j < f->n; ++j) x[j] = (spmat_dot(a, j, y) - r1[j]) / f->dd[j];
  }
  f->stats.solvetime += sysenv_cputime() - begin;
}

const KktStats& kktfac_getstats(const KktFac* f) { return f->stats; }

}  // namespace tarvo
