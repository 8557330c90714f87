// symles: the linear systems of the conic optimiser as one quasi-definite matrix.
//
// The block H = th W^2 = th (2 g g' - J), g = (f_0, -f_r), of a cone would fill the matrix. It is th (I + u u' - v v'),
// and a column for v and a row for u stretch the matrix. With the eigenvalue l = (g_0 + |g_r|)^2 of W^2
//
//   u = sqrt((l - 1) / 2) (1, g_r / |g_r|),  v = sqrt((1 - 1/l) / 2) (1, -g_r / |g_r|)
//
// I - v v' is positive definite, so that the stretched matrix is quasi-definite and can be factored in any order. Other
// splittings do that too (Domahidi, Chu and Boyd 2013 have u and v along g); u and v along the eigenvectors lose only
// a share l of the digits and not l^2. A block of a small cone written out in full would also lose l^2.
#include <algorithm>
#include <cmath>
#include <new>

#include "homo/intpnt_internal.h"

namespace tarvo {

namespace {

constexpr double root_half = 0.7071067811865476;
// Regularisation of the columns and rows, taken back by the refinement: an elimination in any order is stable as long
// as the pivots of both signs keep away from 0.
constexpr double column_diagonal = 1e-8, row_diagonal = 1e-8;
constexpr int32_t max_refine = 6;    // steps of a cycle of the refinement
constexpr int32_t auto_refine = 12;  // steps where their number is left open
constexpr double wanted_residual = 1e-14;

}  // namespace

struct IntpntKkt {
  spmat* a = nullptr;  // [n + big] columns of m + big rows: the scaled problem and the stretching
  KktFac* fac = nullptr;
  int32_t nq = 0;
  Array<int32_t> qi, qj;
  Array<double> q, d, e;
  Array<double> r1, r2, sx, sy, res, krylov;
  int64_t numrefine = 0;
  int32_t firstrefine = -1;
};

// ---- Products
// --------------------------------------------------------------------------------------------------------

namespace {

void turn(double* pair) {
  const double p0 = pair[0], p1 = pair[1];
  pair[0] = root_half * (p0 + p1);
  pair[1] = root_half * (p0 - p1);
}

void rotate(const IntpntState* h, double* x) {
  for (int32_t k = 0; k < h->numcone; ++k)
    if (h->conetype[k] == INTPNT_RQUAD) turn(x + h->cnebeg[k]);
}

// The number of elements of column j of the problem itself; those of the stretching stand behind them.
int32_t problem_end(const IntpntState* h, int32_t j) {
  const spmat* given = h->prob->a;
  return h->kkt->a->ptrb[j] + (given->ptre[j] - given->ptrb[j]);
}

}  // namespace

void intpnt_timesa(IntpntState* h, const double* x, double* out) {
  const spmat* a = h->kkt->a;
  std::copy_n(x, h->n, h->rotated);
  rotate(h, h->rotated);
  std::fill_n(out, h->m, 0.0);
  for (int32_t j = 0; j < h->n; ++j) {
    const double xj = h->rotated[j];
    const int32_t end = problem_end(h, j);
    for (int32_t t = a->ptrb[j]; t < end; ++t) out[a->sub[t]] += a->val[t] * xj;
  }
}

void intpnt_timesat(IntpntState* h, const double* y, double* out) {
  const spmat* a = h->kkt->a;
  for (int32_t j = 0; j < h->n; ++j) {
    double sum = 0.0;
    const int32_t end = problem_end(h, j);
    for (int32_t t = a->ptrb[j]; t < end; ++t) sum += a->val[t] * y[a->sub[t]];
    out[j] = sum;
  }
  rotate(h, out);
}

// ---- Set-up
// ----------------------------------------------------------------------------------------------------------

namespace {

// The scaled matrix with the pattern of the stretching.
int32_t build_matrix(IntpntState* h) {
  IntpntKkt* s = h->kkt;
  const spmat* given = h->prob->a;
  int64_t nz = 0;
  for (int32_t j = 0; j < h->n; ++j) nz += given->ptre[j] - given->ptrb[j];
  nz += h->n - h->l0;
  if (nz > INT32_MAX || int64_t{h->n} + h->numcone > INT32_MAX || int64_t{h->m} + h->numcone > INT32_MAX)
    return HOM_RESP_SPACE;
  s->a = spmat_make(h->env, h->n + h->numcone, h->m + h->numcone);
  if (s->a == nullptr || !spmat_alloc(s->a, static_cast<int32_t>(nz))) return HOM_RESP_SPACE;
  spmat* a = s->a;
  spmat_putnvec(a, h->n + h->numcone);
  spmat_putvlen(a, h->m + h->numcone);
  int32_t put = 0, k = -1;
  for (int32_t j = 0; j < h->n; ++j) {
    if (k + 1 < h->numcone && j == h->cnebeg[k + 1]) ++k;
    a->ptrb[j] = put;
    for (int32_t t = given->ptrb[j]; t < given->ptre[j]; ++t) {
      a->sub[put] = given->sub[t];
      a->val[put++] = given->val[t] * h->rowscale[given->sub[t]] * h->colscale[j];
    }
    if (k >= 0) {
      a->sub[put] = h->m + k;
      a->val[put++] = 0.0;
    }
    a->ptre[j] = put;
  }
  for (int32_t j = h->n; j < h->n + h->numcone; ++j) a->ptrb[j] = a->ptre[j] = put;
  a->ffree = put;
  return HOM_RESP_OK;
}

int32_t set_up(IntpntState* h) {
  IntpntKkt* s = h->kkt;
  if (const int32_t resp = build_matrix(h); resp != HOM_RESP_OK) return resp;
  s->nq = h->n - h->l0;
  const auto size = static_cast<std::size_t>(int64_t{h->n} + h->m);
  const auto nq = static_cast<std::size_t>(s->nq), n = static_cast<std::size_t>(h->n + h->numcone),
             m = static_cast<std::size_t>(h->m + h->numcone);
  if (!s->qi.alloc(h->env, nq) || !s->qj.alloc(h->env, nq) || !s->q.alloc(h->env, nq) || !s->d.alloc(h->env, n) ||
      !s->e.alloc(h->env, m, Fill::zero) || !s->r1.alloc(h->env, 2 * n, Fill::zero) ||
      !s->r2.alloc(h->env, 2 * m, Fill::zero) || !s->sx.alloc(h->env, 2 * n) || !s->sy.alloc(h->env, 2 * m) ||
      !s->res.alloc(h->env, 4 * size) || !s->krylov.alloc(h->env, (2 * max_refine + 1) * size))
    return HOM_RESP_SPACE;
  for (int32_t k = 0; k < h->numcone; ++k)
    for (int32_t j = h->cnebeg[k]; j < h->cnebeg[k + 1]; ++j) {
      s->qi[j - h->l0] = h->n + k;
      s->qj[j - h->l0] = j;
    }
  for (int32_t j = h->n; j < h->n + h->numcone; ++j) s->d[j] = 1.0;
  for (int32_t i = h->m; i < h->m + h->numcone; ++i) s->e[i] = 1.0;
  KktOptions options = h->par.kkt;
  options.type = KKT_SQD;
  options.pivotfix = 0.0;
  options.maxrefine = 0;  // refined here, against the matrix without stretching and regularisation
  s->fac = kktfac_make(h->env, h->m + h->numcone, h->n + h->numcone, options);
  if (s->fac == nullptr) return HOM_RESP_SPACE;
  const int32_t result = kktfac_autosetup(s->fac, s->a, nullptr, s->nq, s->qi.data(), s->qj.data());
  return result == KKT_OK          ? HOM_RESP_OK
         : result == KKT_SPACE     ? HOM_RESP_SPACE
         : result == KKT_CANCELLED ? HOM_RESP_CANCELLED
                                   : HOM_RESP_FACTOR;
}

}  // namespace

IntpntKkt* symles_make(IntpntState* h, int32_t* resp) {
  void* place = sysenv_calloc(h->env, 1, sizeof(IntpntKkt));
  if (place == nullptr) {
    *resp = HOM_RESP_SPACE;
    return nullptr;
  }
  h->kkt = new (place) IntpntKkt;
  *resp = set_up(h);
  return h->kkt;
}

void symles_delete(sysenv* env, IntpntKkt** kkt) {
  if (*kkt == nullptr) return;
  kktfac_delete(&(*kkt)->fac);
  spmat_delete(&(*kkt)->a);
  (*kkt)->~IntpntKkt();
  sysenv_free(env, *kkt);
  *kkt = nullptr;
}

// ---- Numeric factorisation
// -------------------------------------------------------------------------------------------

namespace {

// The numbers of cone k: its diagonal, v into the column and u into the row of the stretching.
void put_cone(IntpntState* h, int32_t k) {
  IntpntKkt* s = h->kkt;
  const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
  const double th = h->cone[k].th, root = std::sqrt(th), *f = h->f + beg;
  double* v = s->q.data() + (beg - h->l0);
  double sum = 0.0;
  for (int32_t i = 1; i < len; ++i) sum += f[i] * f[i];
  const double norm = std::sqrt(sum), less = 2.0 * norm * (f[0] + norm);  // l - 1
  const double us = root * std::sqrt(0.5 * less), vs = root * std::sqrt(0.5 * less / (1.0 + less));
  const double unit = norm > 0.0 ? 1.0 / norm : 0.0;
  double u[2] = {us, -us * unit * f[1]};
  v[0] = vs;
  for (int32_t i = 1; i < len; ++i) v[i] = vs * unit * f[i];
  if (h->conetype[k] == INTPNT_RQUAD) {
    turn(u);
    turn(v);
  }
  for (int32_t i = 0; i < len; ++i) {
    s->d[beg + i] = th;
    s->a->val[s->a->ptre[beg + i] - 1] = i < 2 ? u[i] : -us * unit * f[i];
  }
}

}  // namespace

int32_t symles_numericalfactor(IntpntState* h) {
  IntpntKkt* s = h->kkt;
  for (int32_t j = 0; j < h->nb; ++j) s->d[j] = h->h[j];
  for (int32_t i = 0; i < h->nu; ++i) s->d[h->nb - h->nu + i] += h->hup[i];
  for (int32_t j = h->nb; j < h->l0; ++j) s->d[j] = 0.0;
  for (int32_t k = 0; k < h->numcone; ++k) put_cone(h, k);
  for (int32_t j = 0; j < h->n; ++j) s->d[j] += column_diagonal;
  for (int32_t i = 0; i < h->m; ++i) s->e[i] = row_diagonal;
  return kktfac_numfac(s->fac, s->d.data(), s->nq > 0 ? s->q.data() : nullptr, 0.0, s->e.data());
}

// ---- Solve
// -----------------------------------------------------------------------------------------------------------

namespace {

// out = K (x; y) for z = (x, y) of n + m elements.
void times_k(IntpntState* h, const double* z, double* out) {
  double* hx = h->wn3;
  intpnt_bardtimesh(h, z, hx);
  for (int32_t i = 0; i < h->nu; ++i) hx[h->nb - h->nu + i] += h->hup[i] * z[h->nb - h->nu + i];
  intpnt_timesat(h, z + h->n, out);
  intpnt_timesa(h, z, out + h->n);
  for (int32_t j = 0; j < h->n; ++j) out[j] -= hx[j];
}

// One pass through the factor: (x; y) = K^-1 (r1; r2) up to stretching and regularisation.
void solve_stretched(IntpntState* h, int32_t nrhs) {
  IntpntKkt* s = h->kkt;
  const int32_t n = h->n + h->numcone;
  for (int32_t k = 0; k < nrhs; ++k) rotate(h, s->r1.data() + int64_t{k} * n);
  kktfac_solve(s->fac, nrhs, s->r1.data(), s->r2.data(), s->sx.data(), s->sy.data());
  for (int32_t k = 0; k < nrhs; ++k) rotate(h, s->sx.data() + int64_t{k} * n);
}

double dot(int64_t n, const double* a, const double* b) {
  double sum = 0.0;
  for (int64_t j = 0; j < n; ++j) sum += a[j] * b[j];
  return sum;
}
double norm2(int64_t n, const double* a) { return std::sqrt(dot(n, a, a)); }

// z = M^-1 r, the factor's view of K, for r and z of n + m elements.
void precondition(IntpntState* h, const double* r, double* z) {
  IntpntKkt* s = h->kkt;
  std::copy_n(r, h->n, s->r1.data());
  std::copy_n(r + h->n, h->m, s->r2.data());
  solve_stretched(h, 1);
  std::copy_n(s->sx.data(), h->n, z);
  std::copy_n(s->sy.data(), h->m, z + h->n);
}

// One cycle of the generalised minimal residual method (Saad and Schultz 1986), the factor on the right: the correction
// d with K d near r, |r| = beta, from at most `limit` steps. Returns the number of steps; wanted is the residual to
// stop at.
int32_t gmres(IntpntState* h, const double* r, double beta, double wanted, int32_t limit, double* d) {
  IntpntKkt* s = h->kkt;
  const int64_t size = int64_t{h->n} + h->m;
  const auto v = [s, size](int32_t k) { return s->krylov.data() + k * size; };
  const auto z = [s, size](int32_t k) { return s->krylov.data() + (max_refine + 1 + k) * size; };
  double hess[max_refine][max_refine + 1], cosine[max_refine], sine[max_refine], g[max_refine + 1];
  for (int64_t j = 0; j < size; ++j) v(0)[j] = r[j] / beta;
  g[0] = beta;
  int32_t k = 0;
  while (k < limit && std::fabs(g[k]) > wanted) {
    precondition(h, v(k), z(k));
    double* w = v(k + 1);
    times_k(h, z(k), w);
    std::fill_n(hess[k], k + 1, 0.0);
    for (const int32_t pass : {0, 1})
      for (int32_t i = 0; i <= k; ++i) {
        const double t = dot(size, w, v(i));
        hess[k][i] += t;
        for (int64_t j = 0; j < size; ++j) w[j] -= t * v(i)[j];
        static_cast<void>(pass);
      }
    const double norm = norm2(size, w);
    for (int32_t i = 0; i < k; ++i) {
      const double t = hess[k][i];
      hess[k][i] = cosine[i] * t + sine[i] * hess[k][i + 1];
      hess[k][i + 1] = cosine[i] * hess[k][i + 1] - sine[i] * t;
    }
    const double length = std::hypot(hess[k][k], norm);
    if (!(length > 0.0) || !std::isfinite(length)) break;
    cosine[k] = hess[k][k] / length;
    sine[k] = norm / length;
    hess[k][k] = length;
    g[k + 1] = -sine[k] * g[k];
    g[k] *= cosine[k];
    ++k;
    if (!(norm > 0.0)) break;
    for (int64_t j = 0; j < size; ++j) w[j] /= norm;
  }
  for (int32_t i = k; i-- > 0;) {
    for (int32_t j = i + 1; j < k; ++j) g[i] -= hess[j][i] * g[j];
    g[i] /= hess[i][i];
  }
  std::fill_n(d, size, 0.0);
  for (int32_t i = 0; i < k; ++i)
    for (int64_t j = 0; j < size; ++j) d[j] += g[i] * z(i)[j];
  return k;
}

// Refines one solution in place until its residual is rounding, or no longer falls.
void refine(IntpntState* h, const double* r1, const double* r2, double* x, double* y) {
  IntpntKkt* s = h->kkt;
  int32_t left = h->par.maxrefine < 0 ? auto_refine : h->par.maxrefine;
  if (left == 0) return;
  const int64_t size = int64_t{h->n} + h->m;
  double *now = s->res.data(), *residual = now + size, *next = residual + size, *product = next + size;
  const auto measure = [&](const double* z, double* out) {
    times_k(h, z, out);
    for (int32_t j = 0; j < h->n; ++j) out[j] = r1[j] - out[j];
    for (int32_t i = 0; i < h->m; ++i) out[h->n + i] = r2[i] - out[h->n + i];
    return norm2(size, out);
  };
  std::copy_n(x, h->n, now);
  std::copy_n(y, h->m, now + h->n);
  const double wanted = wanted_residual * std::max(norm2(h->n, r1), norm2(h->m, r2));
  double beta = measure(now, residual);
  while (left > 0 && beta > wanted && std::isfinite(beta)) {
    const int32_t steps = gmres(h, residual, beta, wanted, std::min(left, max_refine), next);
    if (steps == 0) break;
    if (s->firstrefine < 0) s->firstrefine = h->iter;
    s->numrefine += steps;
    left -= steps;
    for (int64_t j = 0; j < size; ++j) next[j] += now[j];
    const double better = measure(next, product);
    if (!(better < beta)) break;
    std::swap(now, next);
    std::swap(residual, product);
    if (better > 0.1 * beta) break;
    beta = better;
  }
  std::copy_n(now, h->n, x);
  std::copy_n(now + h->n, h->m, y);
}

}  // namespace

void symles_solve(IntpntState* h, int32_t nrhs, const double* r1, const double* r2, double* x, double* y) {
  IntpntKkt* s = h->kkt;
  const int64_t n = h->n + h->numcone, m = h->m + h->numcone;
  for (int32_t k = 0; k < nrhs; ++k) {
    std::copy_n(r1 + int64_t{k} * h->n, h->n, s->r1.data() + k * n);
    std::copy_n(r2 + int64_t{k} * h->m, h->m, s->r2.data() + k * m);
    std::fill_n(s->r1.data() + k * n + h->n, h->numcone, 0.0);
    std::fill_n(s->r2.data() + k * m + h->m, h->numcone, 0.0);
  }
  solve_stretched(h, nrhs);
  for (int32_t k = 0; k < nrhs; ++k) {
    std::copy_n(s->sx.data() + k * n, h->n, x + int64_t{k} * h->n);
    std::copy_n(s->sy.data() + k * m, h->m, y + int64_t{k} * h->m);
  }
  for (int32_t k = 0; k < nrhs; ++k)
    refine(h, r1 + int64_t{k} * h->n, r2 + int64_t{k} * h->m, x + int64_t{k} * h->n, y + int64_t{k} * h->m);
}

const KktStats& symles_stats(const IntpntState* h) { return kktfac_getstats(h->kkt->fac); }

int64_t symles_numrefine(const IntpntState* h, int32_t* first) {
  *first = h->kkt->firstrefine;
  return h->kkt->numrefine;
}

}  // namespace tarvo
