// Search directions of the homogeneous model: regularisation, factorisation, elimination, refinement.
//
// The Newton system is that of Xu, Hung and Ye (1996); the free columns' cone is scaled after Nesterov and Todd (Math.
// of Operations Research 22, 1997).
//
// With delta = dtau / tau every direction is split into x^ + delta x, y^ + delta y, and so on: a move along the iterate
// itself, which changes residuals and products in a known way, and the rest. The unknowns are dy^ and delta:
//
//   A dx^ = R1 - delta rp                         dx_U^ + dxup^ = R2 - delta rpu
//   A'dy^ + ds^ + E dyup^ = R3 - delta rd         dyup^ + dsup^ = R4 - delta rdu
//   s dx^ + x ds^ = R6 - 2 delta x s              sup dxup^ + xup dsup^ = R7 - 2 delta xup sup
//
// and the gap row, with tau (b, u, c) replaced by iterate and residuals, becomes
//
//   delta gap + rd'dx^ - rp'dy^ - rpu'dyup^ + rdu'dxup^
//       = tau R5 + R8 + sum R6 + sum R7 - x'R3 + y'R1 - xup'R4 + yup'R2,      gap = x's + xup'sup + tau kappa.
//
// It is the same direction as without the split, but nothing large cancels: the coefficient of delta is the gap and
// terms that vanish with the residuals, where c'D c and b'M^-1 b would leave the same small number as a difference.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

// Rows 1 to 5 of a right-hand side, all times `scale`, and the targets of the pairs.
struct NewtonRows {
  double scale;
  const double *p, *up, *d, *dup;  // primal, upper, dual, upper dual
  double head;                     // of the cone's dual row
  double mut;
  bool products;      // the products of the pairs are subtracted from mut
  const HomCor* cor;  // or NULL
  double sum;         // the right-hand side of the row of delta
};

static int32_t firstupper(const HomState* h) { return h->nb - h->nu; }

static double dot(const double* x, const double* y, int32_t n) {
  double sum = 0.0;
  for (int32_t j = 0; j < n; ++j) sum += x[j] * y[j];
  return sum;
}

// ax = A x, by rows.
static void multiply(HomState* h, const double* x, double* ax) {
  HomTimer timer(&h->time.ax);
  const spmat* at = h->at;
  for (int32_t i = 0; i < h->m; ++i) {
    double sum = 0.0;
    for (int32_t k = at->ptrb[i]; k < at->ptre[i]; ++k) sum += at->val[k] * x[at->sub[k]];
    ax[i] = sum;
  }
}

// aty = A'y, by columns.
static void multiplytrans(HomState* h, const double* y, double* aty) {
  HomTimer timer(&h->time.aty);
  const spmat* a = h->a;
  for (int32_t j = 0; j < h->n; ++j) {
    double sum = 0.0;
    for (int32_t k = a->ptrb[j]; k < a->ptre[j]; ++k) sum += a->val[k] * y[a->sub[k]];
    aty[j] = sum;
  }
}

void hom_regularize(HomState* h, int32_t regulevel) {
  const HomVec& p = h->point;
  const int32_t first = firstupper(h);
  const double theta = h->nf > 0 ? std::sqrt(h->sqsf / h->xqxf) : 1.0;
  double least = HUGE_VAL, most = 0.0;
  const auto note = [&](double v) {
    least = std::min(least, v);
    most = std::max(most, v);
  };
  for (int32_t j = 0; j < h->nb; ++j) note(p.s[j] / p.x[j]);
  for (int32_t i = 0; i < h->nu; ++i) note(p.sup[i] / p.xup[i]);
  if (h->nf > 0) note(theta);
  std::fill(h->rx, h->rx + h->n, 0.0);
  std::fill(h->ru, h->ru + h->nu, 0.0);
  h->reguada = 0.0;
  if (regulevel < 2) {
    h->reguomega = h->n > 0 ? least / most : 1.0;
    h->regutrh = 0.0;
    return;
  }
  const double w = std::max(std::pow(10.0, regulevel - 1) * h->reguomega, 1e-24);
  h->regutrh = std::min(std::max(w * most, h->regutrh), std::sqrt(least) * std::sqrt(most));
  h->reguada = 1e-8 * std::pow(10.0, regulevel - 2);
  const double trh = h->regutrh;
  for (int32_t j = 0; j < h->nb; ++j) {
    h->d[j] = std::max(p.s[j] / p.x[j], trh);
    h->rx[j] = h->d[j] - p.s[j] / p.x[j];
  }
  for (int32_t i = 0; i < h->nu; ++i) {
    const double raised = std::max(p.sup[i] / p.xup[i], trh);
    h->ru[i] = raised - p.sup[i] / p.xup[i];
    h->d[first + i] += raised;
  }
  for (int32_t j = h->nb; j < h->n; ++j) {
    h->d[j] = std::max(theta, trh);
    h->rx[j] = h->d[j] - theta;
  }
  for (int32_t j = 0; j < h->n; ++j) h->dinv[j] = 1.0 / h->d[j];
  hom_print(h, "reguomega: %e regu(trh): %e regu(ada): %e\n", h->reguomega, h->regutrh, h->reguada);
}

int32_t hom_factor(HomState* h) {
  HomTimer timer(&h->time.factor);
  return kktfac_numfac(h->kkt, h->d, h->nq > 0 ? h->q : nullptr, h->reguada, nullptr);
}

// M^-1 with the rank-one term of the cone.
static void solve(HomState* h, double* v) {
  kktfac_adasolve(h->kkt, 1, v, v);
  if (h->nf == 0) return;
  const double t = dot(h->tf, v, h->m) / h->cf;
  for (int32_t i = 0; i < h->m; ++i) v[i] -= t * h->pf[i];
}

void hom_initfree(HomState* h, int32_t regulevel) {
  if (h->nf == 0) return;
  const HomVec& p = h->point;
  HomCone& c = h->cone;
  const double* v = h->vf + 1;
  c.theta = std::sqrt(h->sqsf / h->xqxf);
  const double xs = dot(p.x + h->nb, p.s + h->nb, h->nf) + p.xf * p.sf;
  c.invnorm = 1.0 / std::sqrt(2.0 * (xs + std::sqrt(h->xqxf * h->sqsf)));
  c.qq = c.invnorm * c.invnorm * dot(v, v, h->nf);
  c.q0 = std::sqrt(1.0 + c.qq);
  c.reg = regulevel > 0 ? h->rx[h->nb] : 0.0;
  c.diag = c.theta + c.reg;
  c.rank1 = 2.0 * c.theta / (c.diag * (c.diag + 2.0 * c.reg * c.qq));
  const double root = std::sqrt(c.rank1) * c.invnorm;
  std::fill(h->tf, h->tf + h->m, 0.0);
  for (int32_t k = 0; k < h->nf; ++k) spmat_axpy(root * v[k], h->a, h->nb + k, h->tf);
  kktfac_adasolve(h->kkt, 1, h->tf, h->pf);
  h->cf = 1.0 + std::max(0.0, dot(h->tf, h->pf, h->m));
}

// W y or, with sign 1, W^-1 y; `out` may be y. Returns the head.
static double scalecone(const HomState* h, double sign, double y0, const double* y, double* out) {
  const HomCone& c = h->cone;
  const double* v = h->vf + 1;
  const double qy = sign * c.invnorm * dot(v, y, h->nf);
  const double t = sign * (y0 + qy / (1.0 + c.q0)) * c.invnorm;
  for (int32_t k = 0; k < h->nf; ++k) out[k] = y[k] + t * v[k];
  return c.q0 * y0 + qy;
}

// y = D y on the free columns.
static void multiplycone(const HomState* h, double* y) {
  const HomCone& c = h->cone;
  const double* v = h->vf + 1;
  const double t = c.rank1 * c.invnorm * c.invnorm * dot(v, y, h->nf);
  for (int32_t k = 0; k < h->nf; ++k) y[k] = y[k] / c.diag + t * v[k];
}

// The right-hand side t of the cone's equation dx + (W^-2 / theta) ds = t:
//   t = mut s^-1 - x - W^-1 z / theta,  v o z = e,  v = W x.
// Returns the head; work has nf elements.
static double conetarget(const HomState* h, double mut, bool products, const HomCor* cor, double* t, double* work) {
  const HomVec& p = h->point;
  const double *x = p.x + h->nb, *s = p.s + h->nb;
  const double centre = mut / h->sqsf, own = products ? 1.0 : 0.0;
  double head = centre * p.sf - own * p.xf;
  if (cor == nullptr) {
    for (int32_t k = 0; k < h->nf; ++k) t[k] = -centre * s[k] - own * x[k];
    return head;
  }
  const double* e = cor->cone + 1;
  const double v0 = scalecone(h, -1.0, p.xf, x, work);
  const double z0 = (v0 * cor->cone[0] - dot(work, e, h->nf)) / h->xqxf;
  for (int32_t k = 0; k < h->nf; ++k) work[k] = (e[k] - z0 * work[k]) / v0;
  head -= scalecone(h, 1.0, z0, work, work) / h->cone.theta;
  for (int32_t k = 0; k < h->nf; ++k) t[k] = -centre * s[k] - own * x[k] - work[k] / h->cone.theta;
  return head;
}

// On the free columns z = D r with the part of the equations that `rows` and the target t have, r = R3 - H^-1 t:
// z = D (R3 + reg t~) - t~, where t~ is t less what the head's ds brings.
static void coneresidual(const HomState* h, double scale, const double* rows, double head, const double* t, double* z) {
  const HomCone& c = h->cone;
  const double* v = h->vf + 1;
  const double up = 2.0 * c.q0 * c.invnorm * head / c.theta;
  for (int32_t k = 0; k < h->nf; ++k) z[k] = scale * rows[k] + c.reg * (t[k] - up * v[k]);
  multiplycone(h, z);
  for (int32_t k = 0; k < h->nf; ++k) z[k] -= t[k] - up * v[k];
}

// The part of dx^ of the head that dx_F^ does not determine: t_0 - (2 q0 / N) q_F't - ds_0 / (theta N), N = q0^2 +
// |q_F|^2.
static double headpart(const HomState* h, double t0, double qt, double ds0) {
  const HomCone& c = h->cone;
  const double n = 1.0 + 2.0 * c.qq;
  return t0 - 2.0 * c.q0 / n * qt - ds0 / (c.theta * n);
}

// aty = A'y, then rhs -= A D A'y, which leaves what a solve with M y = rhs, regularised and rounded, has not done.
static void undone(HomState* h, const double* y, double* aty, double* work, double* rhs) {
  multiplytrans(h, y, aty);
  for (int32_t j = 0; j < h->nb; ++j) work[j] = h->dinv[j] * aty[j];
  if (h->nf > 0) {
    std::copy_n(aty + h->nb, h->nf, work + h->nb);
    multiplycone(h, work + h->nb);
  }
  double* product = h->wm2;
  multiply(h, work, product);
  for (int32_t i = 0; i < h->m; ++i) rhs[i] -= product[i];
}

static double conedot(const HomState* h, const double* t) { return h->cone.invnorm * dot(h->vf + 1, t, h->nf); }

// The parts of the elimination that all directions of a factorisation share. In the row of delta the unknowns dx^ have
// the coefficients
//   w = rd - E(rdu - (sup / xup) rpu)  (and a term of the head on the free columns)   in h->chat,
// so that dy^ has g2 = A D w - rp; the column of delta is h = M^-1 (A D r - rp) with D r in h->dc and A'h in h->cbar.
// What the solves leave undone, for h in h->g, stands times y in the row of delta.
void hom_initcomputations(HomState* h) {
  HomTimer timer(&h->time.initcomp);
  const HomVec& p = h->point;
  const int32_t first = firstupper(h);
  double *w = h->chat, *z = h->dc, *dw = h->cbar;
  double gap = p.tau * p.kappa, pi = 0.0;
  for (int32_t j = 0; j < first; ++j) {
    w[j] = h->rd[j] + h->rx[j] * p.x[j];
    z[j] = h->dinv[j] * (2.0 * p.s[j] - h->rd[j]);
    dw[j] = h->dinv[j] * w[j];
    gap += p.x[j] * p.s[j];
  }
  for (int32_t i = 0; i < h->nu; ++i) {
    const int32_t j = first + i;
    const double ratio = p.sup[i] / p.xup[i] + h->ru[i], q = ratio * h->rpu[i];
    w[j] = h->rd[j] - h->rdu[i] + q + h->rx[j] * p.x[j] - h->ru[i] * p.xup[i];
    z[j] = h->dinv[j] * (2.0 * (p.s[j] - p.sup[i]) - h->rd[j] + h->rdu[i] + q);
    dw[j] = h->dinv[j] * w[j];
    gap += p.x[j] * p.s[j] + p.xup[i] * p.sup[i];
    pi += h->rpu[i] * (q - 2.0 * p.sup[i] - h->ru[i] * p.xup[i]);
  }
  if (h->nf > 0) {
    const HomCone& c = h->cone;
    const int32_t nb = h->nb;
    const double up = 2.0 * c.q0 / (1.0 + 2.0 * c.qq) * c.invnorm * p.sf;
    double* t = h->wn3 + nb;
    for (int32_t k = 0; k < h->nf; ++k) t[k] = -2.0 * p.x[nb + k];
    coneresidual(h, -1.0, h->rd + nb, -p.sf, t, z + nb);
    for (int32_t k = 0; k < h->nf; ++k)
      dw[nb + k] = w[nb + k] = h->rd[nb + k] + up * h->vf[1 + k] + c.reg * p.x[nb + k];
    multiplycone(h, dw + nb);
    gap += dot(p.x + nb, p.s + nb, h->nf) + p.xf * p.sf;
    pi += p.sf * headpart(h, -2.0 * p.xf, conedot(h, t), -p.sf);
  }
  multiply(h, dw, h->g2);
  multiply(h, z, h->g);
  for (int32_t i = 0; i < h->m; ++i) {
    h->g2[i] -= h->rp[i];
    h->g[i] -= h->rp[i];
  }
  std::copy_n(h->g, h->m, h->h);
  solve(h, h->h);
  undone(h, h->h, h->cbar, h->wn2, h->g);
  h->gap = gap;
  h->beta = gap + pi - dot(w, z, h->n);
  h->dot0 = -dot(h->g2, h->h, h->m) - dot(p.y, h->g, h->m);
  h->pi = h->beta - h->dot0;
  hom_print(h, "pi[0]: %e  beta: %e cbardc: %e dot0: %e ||h||: %e\n", h->pi, h->beta, gap, h->dot0,
            std::sqrt(dot(h->h, h->h, h->m)));
}

// One direction: R1 + A D r, a solve, the step of delta, and back. Returns the largest residual of the primal rows.
static double newton(HomState* h, const NewtonRows& rows, double leastpi, HomVec* dir) {
  const HomVec& p = h->point;
  const int32_t first = firstupper(h), nb = h->nb;
  const double scale = rows.scale, own = rows.products ? 1.0 : 0.0, mut = rows.mut;
  const double *corx = rows.cor != nullptr ? rows.cor->pair : nullptr,
               *corup = rows.cor != nullptr ? rows.cor->up : nullptr;
  const bool plain = corx == nullptr && mut == 0.0;
  double *z = h->wn1, *aty = h->wn2, *t = h->wn3;
  double *r6 = h->wn3, *r7 = h->wu1;  // R6 / x, R7 / xup; t stands behind them on the free columns

  if (plain) {
    for (int32_t j = 0; j < nb; ++j) r6[j] = -own * p.s[j];
    for (int32_t i = 0; i < h->nu; ++i) r7[i] = -own * p.sup[i];
  } else if (corx == nullptr) {
    for (int32_t j = 0; j < nb; ++j) r6[j] = mut / p.x[j] - own * p.s[j];
    for (int32_t i = 0; i < h->nu; ++i) r7[i] = mut / p.xup[i] - own * p.sup[i];
  } else {
    for (int32_t j = 0; j < nb; ++j) r6[j] = (mut - corx[j]) / p.x[j] - own * p.s[j];
    for (int32_t i = 0; i < h->nu; ++i) r7[i] = (mut - corup[i]) / p.xup[i] - own * p.sup[i];
  }
  double known = 0.0;  // what the row of delta takes from the known parts
  for (int32_t j = 0; j < first; ++j) z[j] = h->dinv[j] * (scale * rows.d[j] - r6[j]);
  for (int32_t i = 0; i < h->nu; ++i) {
    const int32_t j = first + i;
    const double ratio = p.sup[i] / p.xup[i] + h->ru[i];
    const double r2 = scale * rows.up[i], r4 = scale * rows.dup[i] - r7[i];
    z[j] = h->dinv[j] * (scale * rows.d[j] - r6[j] - r4 - ratio * r2);
    known += (h->rdu[i] - ratio * h->rpu[i] + h->ru[i] * p.xup[i]) * r2 - h->rpu[i] * r4;
  }
  double t0 = 0.0;
  const double ds0 = scale * rows.head;
  if (h->nf > 0) {
    t0 = conetarget(h, mut, rows.products, rows.cor, t + nb, aty + nb);
    coneresidual(h, scale, rows.d + nb, ds0, t + nb, z + nb);
    known += p.sf * headpart(h, t0, conedot(h, t + nb), ds0);
  }
  double* y = dir->y;
  double* error = h->wm1;
  multiply(h, z, error);
  for (int32_t i = 0; i < h->m; ++i) y[i] = error[i] += scale * rows.p[i];
  solve(h, y);
  undone(h, y, aty, dir->x, error);
  known += dot(p.y, error, h->m) + dot(h->g2, y, h->m) - dot(h->chat, z, h->n);
  const double delta = h->pi > leastpi ? (rows.sum - known) / h->pi : 0.0;

  double largest = 0.0;
  for (int32_t i = 0; i < h->m; ++i) {
    y[i] += delta * (h->h[i] + p.y[i]);
    largest = std::max(largest, std::abs(error[i] + delta * h->g[i]));
  }
  for (int32_t j = 0; j < h->n; ++j) aty[j] += delta * h->cbar[j];
  for (int32_t j = 0; j < first; ++j) {
    const double dx = h->dinv[j] * aty[j] - z[j] - delta * h->dc[j] + delta * p.x[j];
    dir->x[j] = dx;
    dir->s[j] = r6[j] - p.s[j] * (dx / p.x[j]);
  }
  for (int32_t i = 0; i < h->nu; ++i) {
    const int32_t j = first + i;
    const double dx = h->dinv[j] * aty[j] - z[j] - delta * h->dc[j];
    const double rest = scale * rows.up[i] - delta * h->rpu[i] - dx;
    dir->x[j] = dx + delta * p.x[j];
    dir->s[j] = r6[j] - p.s[j] * (dir->x[j] / p.x[j]);
    dir->xup[i] = rest + delta * p.xup[i];
    dir->sup[i] = r7[i] - p.sup[i] * (dir->xup[i] / p.xup[i]);
    dir->yup[i] = scale * rows.dup[i] - dir->sup[i] + h->ru[i] * rest;
  }
  dir->xf = dir->sf = 0.0;
  if (h->nf > 0) {
    const HomCone& c = h->cone;
    double *dx = dir->x + nb, *ds = dir->s + nb;
    std::copy_n(aty + nb, h->nf, dx);
    multiplycone(h, dx);
    for (int32_t k = 0; k < h->nf; ++k) {
      const double rest = dx[k] - z[nb + k] - delta * h->dc[nb + k];
      dx[k] = rest + delta * p.x[nb + k];
      ds[k] = scale * rows.d[nb + k] - aty[nb + k] + delta * (p.s[nb + k] - h->rd[nb + k]) + c.reg * rest;
    }
    dir->sf = ds0;
    dir->xf = t0 - (2.0 * c.q0 * (c.q0 * ds0 + conedot(h, ds)) - ds0) / c.theta;
  }
  dir->tau = delta * p.tau;
  dir->kappa = (mut - (rows.cor != nullptr ? rows.cor->tk : 0.0)) / p.tau - p.kappa * (own + delta);
  return largest;
}

// The rows of a target. Its residual parts reduce to the gap: x'rd - y'rp + xup'rdu - yup'rpu - tau rg = gap.
static NewtonRows targetrows(const HomState* h, const HomTarget& target) {
  NewtonRows rows{};
  rows.scale = -target.eta;
  rows.p = h->rp;
  rows.up = h->rpu;
  rows.d = h->rd;
  rows.dup = h->rdu;
  rows.head = h->point.sf;
  rows.mut = target.mut;
  rows.products = target.products;
  rows.cor = target.cor;
  rows.sum = (target.eta - (target.products ? 1.0 : 0.0)) * h->gap + h->n_c * target.mut;
  if (target.cor != nullptr) {
    double sum = target.cor->tk;
    for (int32_t j = 0; j < h->nb; ++j) sum += target.cor->pair[j];
    for (int32_t i = 0; i < h->nu; ++i) sum += target.cor->up[i];
    if (h->nf > 0) sum += target.cor->cone[0];
    rows.sum -= sum;
  }
  return rows;
}

double hom_computeresiduals(HomState* h, const HomTarget& target, const HomVec& dir, HomVec* res, double* infnorm) {
  const HomVec& p = h->point;
  const int32_t first = firstupper(h), nb = h->nb;
  const double eta = target.eta, own = target.products ? 1.0 : 0.0;
  const HomCor* cor = target.cor;
  double squares = 0.0, largest = 0.0;
  const auto note = [&](double v) {
    squares += v * v;
    largest = std::max(largest, std::abs(v));
    return v;
  };
  multiply(h, dir.x, res->y);
  for (int32_t i = 0; i < h->m; ++i) res->y[i] = note(h->b[i] * dir.tau - res->y[i] - eta * h->rp[i]);
  multiplytrans(h, dir.y, res->x);
  for (int32_t i = 0; i < h->nu; ++i) {
    res->xup[i] = note(h->u[i] * dir.tau - dir.x[first + i] - dir.xup[i] - eta * h->rpu[i]);
    res->sup[i] = note(-dir.sup[i] - dir.yup[i] - eta * h->rdu[i]);
    res->x[first + i] += dir.yup[i];
    res->yup[i] = target.mut - own * p.xup[i] * p.sup[i] - (cor != nullptr ? cor->up[i] : 0.0) - p.sup[i] * dir.xup[i] -
                  p.xup[i] * dir.sup[i];
  }
  for (int32_t j = 0; j < h->n; ++j) res->x[j] = note(h->c[j] * dir.tau - res->x[j] - dir.s[j] - eta * h->rd[j]);
  for (int32_t j = 0; j < nb; ++j)
    res->s[j] = target.mut - own * p.x[j] * p.s[j] - (cor != nullptr ? cor->pair[j] : 0.0) - p.s[j] * dir.x[j] -
                p.x[j] * dir.s[j];
  res->xf = res->sf = 0.0;
  if (h->nf > 0) {
    const HomCone& c = h->cone;
    double* r = res->s + nb;
    res->xf = note(-dir.sf - eta * p.sf);
    res->sf = conetarget(h, target.mut, target.products, cor, r, h->wn2 + nb);
    // less dx + (2 q q' - J) ds / theta
    const double qs = 2.0 * (c.q0 * dir.sf + conedot(h, dir.s + nb)) / c.theta;
    res->sf -= dir.xf + c.q0 * qs - dir.sf / c.theta;
    for (int32_t k = 0; k < h->nf; ++k) r[k] -= dir.x[nb + k] + qs * c.invnorm * h->vf[1 + k] + dir.s[nb + k] / c.theta;
  }
  const double gaprow = dot(h->b, dir.y, h->m) + dot(h->u, dir.yup, h->nu) - dot(h->c, dir.x, h->n) - dir.kappa;
  res->tau = note(-eta * h->rg - gaprow);
  res->kappa =
      target.mut - own * p.tau * p.kappa - (cor != nullptr ? cor->tk : 0.0) - p.kappa * dir.tau - p.tau * dir.kappa;
  *infnorm = largest;
  return std::sqrt(squares);
}

// a = b + t c for directions.
static void addvec(const HomState* h, const HomVec& b, double t, const HomVec& c, HomVec* a) {
  for (int32_t j = 0; j < h->n; ++j) a->x[j] = b.x[j] + t * c.x[j];
  for (int32_t j = 0; j < h->n; ++j) a->s[j] = b.s[j] + t * c.s[j];
  for (int32_t i = 0; i < h->m; ++i) a->y[i] = b.y[i] + t * c.y[i];
  for (int32_t i = 0; i < h->nu; ++i) {
    a->xup[i] = b.xup[i] + t * c.xup[i];
    a->yup[i] = b.yup[i] + t * c.yup[i];
    a->sup[i] = b.sup[i] + t * c.sup[i];
  }
  a->xf = b.xf + t * c.xf;
  a->sf = b.sf + t * c.sf;
  a->tau = b.tau + t * c.tau;
  a->kappa = b.kappa + t * c.kappa;
}

void hom_addvec(const HomState* h, double t, const HomVec& c, HomVec* a) { addvec(h, *a, t, c, a); }

// The rows of a correction of a direction with the residuals res.
static NewtonRows correctionrows(const HomState* h, const HomVec& res) {
  const HomVec& p = h->point;
  NewtonRows rows{};
  rows.scale = 1.0;
  rows.p = res.y;
  rows.up = res.xup;
  rows.d = res.x;
  rows.dup = res.sup;
  rows.head = res.xf;
  rows.sum = p.tau * res.tau - dot(p.x, res.x, h->n) - p.xf * res.xf + dot(p.y, res.y, h->m) -
             dot(p.xup, res.sup, h->nu) + dot(p.yup, res.xup, h->nu);
  return rows;
}

// The gap row without dkappa.
static double gaprow(const HomState* h, const HomTarget& target, const HomVec& dir) {
  return dot(h->b, dir.y, h->m) + dot(h->u, dir.yup, h->nu) - dot(h->c, dir.x, h->n) + target.eta * h->rg;
}

// What the solves left undone stands multiplied by y / tau in the gap row. Where it is small beside the products of the
// pairs, kappa takes it: off centre by so little does no harm, residuals that grow do.
constexpr double offcentre = 0.1;
static void closegap(const HomState* h, const HomTarget& target, HomVec* dir) {
  const double kappa = gaprow(h, target, *dir);
  if (std::abs(kappa - dir->kappa) * h->point.tau <= offcentre * h->mu) dir->kappa = kappa;
}

// How much what an inaccurate solve spoils, the primal rows and the gap row, exceeds what does no harm: residuals that
// keep those of the point from falling, and a gap that kappa can't take.
static double excess(const HomState* h, const HomTarget& target, const HomVec& dir, double primal) {
  const double tau = h->point.tau;
  const double harmless = std::max(0.01 * h->pfeasf, 1e-3 * h->par.tolpfeas * (1.0 + h->bscale) * tau);
  const double harmlessgap = std::max(offcentre * h->mu / tau, 0.1 * h->meritfeas2f);
  return std::max(primal / harmless, std::abs(gaprow(h, target, dir) - dir.kappa) / harmlessgap);
}

// Another solve or two where they help.
static void improve(HomState* h, const HomTarget& target, double primal, HomVec* dir) {
  constexpr int32_t maxrounds = 12;
  double error = excess(h, target, *dir, primal);
  for (int32_t k = 0; k < maxrounds && error > 1.0; ++k) {
    double inf = 0.0;
    hom_computeresiduals(h, target, *dir, &h->res, &inf);
    primal = newton(h, correctionrows(h, h->res), 0.0, &h->rhs);
    hom_addvec(h, 1.0, h->rhs, dir);
    ++h->numrefine;
    const double now = excess(h, target, *dir, primal);
    hom_print(h, "Excess of residuals: %e -> %e\n", error, now);
    if (!(now < 0.5 * error)) {
      hom_addvec(h, -1.0, h->rhs, dir);
      return;
    }
    error = now;
  }
}

void hom_computesearch(HomState* h, const HomTarget& target, HomVec* dir) {
  HomTimer timer(&h->time.computesd);
  const double primal = newton(h, targetrows(h, target), 0.0, dir);
  improve(h, target, primal, dir);
  closegap(h, target, dir);
}

// Iterative refinement of the whole system with the regularised factor. A round is worth it while it halves the
// residual; the direction is good when its residual and its decrease of the gap are.
bool hom_computesearchr(HomState* h, const HomTarget& target, HomVec* dir) {
  HomTimer timer(&h->time.computesd);
  constexpr int32_t maxrounds = 50;
  constexpr double leastpi = 1e-12;
  HomVec *sum = &h->rhs, *res = &h->res, *cor = &h->cordir;
  const double target1 = std::max(0.5 * h->meritfeas2f, 1e-8), target2 = 0.25 * h->meritfeasif;
  const double leastfall = -0.1 * (h->cgapf - target.mut * h->n_c);
  const double pifloor = std::max(0.0, leastpi * h->beta);
  // The residual of no direction: its rows 1 to 5 are -eta times those of the point.
  double nrmr = target.eta * h->meritfeas2f;
  const double nrmr0 = nrmr;
  const auto fallsgap = [&](const HomVec& v) { return hom_xds(h, v) <= leastfall; };
  for (int32_t k = 1;; ++k) {
    ++h->numrefine;
    if (k == 1)
      newton(h, targetrows(h, target), pifloor, cor);
    else
      newton(h, correctionrows(h, *res), pifloor, cor);
    if (k == 1)
      addvec(h, *cor, 0.0, *cor, sum);
    else
      addvec(h, *dir, 1.0, *cor, sum);
    closegap(h, target, sum);
    double newi = 0.0;
    const double now = hom_computeresiduals(h, target, *sum, res, &newi);
    const double xds = hom_xds(h, *sum), dxds = hom_dxds(h, *sum);
    hom_print(h, "%d nrmr: %e nrmri: %e |rgc|: %e xds+sdx: %e dx'ds: %e\n", k, now, newi, std::abs(res->tau), xds,
              dxds);
    if (k > 1 && !(now <= 0.99 * nrmr)) {  // dropped; what there was before has to do
      const bool accepted = nrmr <= target1 && fallsgap(*dir);
      hom_print(h, "term: %s\n", accepted ? "ok" : "stall");
      return accepted;
    }
    hom_copyvec(h, *sum, dir);
    const bool slow = now >= 0.5 * nrmr;
    if ((slow || (std::abs(dxds) < 0.1 * h->cgapf && now < 1e-8 * std::max(1.0, nrmr0))) &&
        (now <= target1 || newi <= target2) && xds <= leastfall)
      return true;
    if (k >= maxrounds) {
      hom_print(h, "term: iter\n");
      return false;
    }
    nrmr = now;
  }
}

double hom_dxds(const HomState* h, const HomVec& dir) {
  return dot(dir.x, dir.s, h->n) + dir.xf * dir.sf + dot(dir.xup, dir.sup, h->nu) + dir.tau * dir.kappa;
}

double hom_xds(const HomState* h, const HomVec& dir) {
  const HomVec& p = h->point;
  double sum = p.xf * dir.sf + p.sf * dir.xf + p.tau * dir.kappa + p.kappa * dir.tau;
  for (int32_t j = 0; j < h->n; ++j) sum += p.x[j] * dir.s[j] + p.s[j] * dir.x[j];
  for (int32_t i = 0; i < h->nu; ++i) sum += p.xup[i] * dir.sup[i] + p.sup[i] * dir.xup[i];
  return sum;
}

void hom_corterms(HomState* h, const HomVec& dir, HomCor* cor) {
  for (int32_t j = 0; j < h->nb; ++j) cor->pair[j] = dir.x[j] * dir.s[j];
  for (int32_t i = 0; i < h->nu; ++i) cor->up[i] = dir.xup[i] * dir.sup[i];
  cor->tk = dir.tau * dir.kappa;
  if (h->nf == 0) return;
  // (W dx) o (W^-1 ds), whose head is dx'ds.
  const int32_t nb = h->nb;
  double *dx = h->wn1 + nb, *ds = h->wn2 + nb;
  const double dx0 = scalecone(h, -1.0, dir.xf, dir.x + nb, dx);
  const double ds0 = scalecone(h, 1.0, dir.sf, dir.s + nb, ds);
  cor->cone[0] = dot(dir.x + nb, dir.s + nb, h->nf) + dir.xf * dir.sf;
  for (int32_t k = 0; k < h->nf; ++k) cor->cone[1 + k] = ds0 * dx[k] + dx0 * ds[k];
}

}  // namespace tarvo
