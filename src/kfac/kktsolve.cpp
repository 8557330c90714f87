// Solves with the KKT factor, refined on the true matrix: the normal equations by conjugate gradients with the factor
// as preconditioner (which also undoes shifted pivots), the whole system by iterative refinement.
#include <algorithm>
#include <cmath>

#include "kfac/kktfac_internal.h"

namespace tarvo {

namespace {

// Of the residual, relative to the right-hand side. Late in a run the right-hand side of the normal equations is large
// beside the primal residual that the solution has to take away: only a solve to rounding does that.
constexpr double enough_normal = 1e-13, enough_whole = 1e-10;

// Solves with the factor alone; x has nodes' numbering and is overwritten.
void plain_solve(KktFac* f, int32_t nrhs, double* x) {
  SymFace* sym = f->sym;
  double* w = f->pos.data();
  const int32_t dim = f->dim;
  for (int32_t r = 0; r < nrhs; ++r)
    for (int32_t p = 0; p < dim; ++p)
      w[static_cast<int64_t>(r) * dim + p] = x[static_cast<int64_t>(r) * dim + sym->perm[p]];
  symface_solvefwd(sym, w, nrhs);
  for (int32_t r = 0; r < nrhs; ++r) {
    double* y = w + static_cast<int64_t>(r) * dim;
    for (int32_t p = 0; p < dim; ++p) y[p] /= sym->diag[p];
    if (f->dense.count > 0) kktfac_densecorrect(f, y);
  }
  symface_solvebwd(sym, w, nrhs);
  for (int32_t r = 0; r < nrhs; ++r)
    for (int32_t p = 0; p < dim; ++p)
      x[static_cast<int64_t>(r) * dim + sym->perm[p]] = w[static_cast<int64_t>(r) * dim + p];
}

double norm(const double* x, int32_t n) {
  double v = 0.0;
  for (int32_t k = 0; k < n; ++k) v = std::max(v, std::fabs(x[k]));
  return v;
}

double dot(const double* x, const double* y, int32_t n) {
  double v = 0.0;
  for (int32_t k = 0; k < n; ++k) v += x[k] * y[k];
  return v;
}

// y = (A diag(1/d) A' + E) x
void normal_product(const KktFac* f, const double* x, double* y) {
  for (int32_t i = 0; i < f->m; ++i) y[i] = f->shift[i] * x[i];
  for (int32_t j = 0; j < f->n; ++j) {
    const double v = spmat_dot(f->a, j, x) * f->dinv[j];
    if (v != 0.0) spmat_axpy(v, f->a, j, y);
  }
}

// r = rhs - (whole system) x
void whole_residual(const KktFac* f, const double* rhs, const double* x, double* r) {
  const spmat* a = f->a;
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

// Keeps the best point; false when it is time to stop.
struct Progress {
  double best = INFINITY;
  int32_t idle = 0;
  bool goes_on(double now) {
    idle = now <= 0.5 * best ? 0 : idle + 1;
    return idle < 3 && std::isfinite(now);
  }
};

int32_t most_steps(const KktFac* f) {
  if (f->options.maxrefine >= 0) return f->options.maxrefine;
  return f->type == KKT_SQD ? 5 : f->dense.count > 0 ? 20 : 15;
}

void refine_normal(KktFac* f, const double* rhs, double* x) {
  const int32_t m = f->m, most = most_steps(f);
  if (most == 0) return;
  double *r = f->residual.data(), *p = f->direction.data(), *q = f->product.data(), *best = f->best.data();
  double* z = r + m;
  const double target = enough_normal * norm(rhs, m);
  normal_product(f, x, q);
  for (int32_t i = 0; i < m; ++i) r[i] = rhs[i] - q[i];
  Progress progress;
  double now = norm(r, m), rz = 0.0;
  if (!(now <= norm(rhs, m))) {  // a factor that is no use: from zero
    std::fill_n(x, m, 0.0);
    std::copy_n(rhs, m, r);
    now = norm(rhs, m);
  }
  for (int32_t step = 0; step < most && now > target && progress.goes_on(now); ++step) {
    if (now < progress.best) {
      progress.best = now;
      std::copy_n(x, m, best);
    }
    std::copy_n(r, m, z);
    plain_solve(f, 1, z);
    const double next = dot(r, z, m);
    if (!(next > 0.0)) break;
    if (step == 0)
      std::copy_n(z, m, p);
    else
      for (int32_t i = 0; i < m; ++i) p[i] = z[i] + next / rz * p[i];
    rz = next;
    normal_product(f, p, q);
    const double pq = dot(p, q, m);
    if (!(pq > 0.0)) break;
    const double alpha = rz / pq;
    for (int32_t i = 0; i < m; ++i) {
      x[i] += alpha * p[i];
      r[i] -= alpha * q[i];
    }
    now = norm(r, m);
    ++f->stats.numrefine;
  }
  if (!(now <= progress.best) && progress.best < INFINITY) std::copy_n(best, m, x);
}

void refine_whole(KktFac* f, const double* rhs, double* x) {
  const int32_t dim = f->dim, most = most_steps(f);
  double *r = f->residual.data(), *best = f->best.data();
  const double target = enough_whole * norm(rhs, dim);
  Progress progress;
  double now = 0.0;
  for (int32_t step = 0; most > 0; ++step) {
    whole_residual(f, rhs, x, r);
    now = norm(r, dim);
    if (!(now > target) || !progress.goes_on(now) || step == most) break;
    if (now < progress.best) {
      progress.best = now;
      std::copy_n(x, dim, best);
    }
    plain_solve(f, 1, r);
    for (int32_t k = 0; k < dim; ++k) x[k] += r[k];
    ++f->stats.numrefine;
  }
  if (!(now <= progress.best) && progress.best < INFINITY) std::copy_n(best, dim, x);
}

}  // namespace

void kktfac_refinedsolve(KktFac* f, int32_t nrhs, double* x) {
  const int64_t dim = f->dim;
  std::copy_n(x, nrhs * dim, f->rhs.data());
  plain_solve(f, nrhs, x);
  f->stats.numsolve += nrhs;
  for (int32_t r = 0; r < nrhs; ++r) {
    if (f->type == KKT_NORMAL)
      refine_normal(f, f->rhs.data() + r * dim, x + r * dim);
    else
      refine_whole(f, f->rhs.data() + r * dim, x + r * dim);
  }
}

}  // namespace tarvo
