// The Newton system of the homogeneous quadratic model. With the residuals
//
//   rp = A x - b tau, rpu = x_U + xup - u tau, rd = A'y + s + E yup - c tau - Q x, rdu = sup + yup,
//   rg = b'y + u'yup - c'x - x'Q x / tau - kappa
//
// a direction satisfies, v = x / tau,
//
//   A dx - b dtau = R1,  dx_U + dxup - u dtau = R2,  A'dy + ds + E dyup - c dtau - Q dx = R3,  dsup + dyup = R4,
//   b'dy + u'dyup - (c + 2 Q v)'dx + v'Q v dtau - dkappa = R5,
//   s dx + x ds = R6 (free columns: ds = R6),  sup dxup + xup dsup = R7,  kappa dtau + tau dkappa = R8.
//
// (Andersen and Ye, On a homogeneous algorithm for the monotone complementarity problem, Mathematical Programming 84,
// 1999.) The matrix is not skew, but its symmetric part is positive semidefinite. With dx = dx~ + dtau v and
// dy = dy~ + dtau y / tau everything but residuals and products cancels from the column and the row of dtau by hand
// instead of in the arithmetic:
//
//   [ -(Q + D)  A' ] (dx~)   (r )        (p       )
//   [  A        0  ] (dy~) = (R1) + dtau (-rp/tau ),   p = (2 s + E (rdu - 2 sup + W rpu) - rd) / tau,  W = sup / xup,
//
//   pi dtau = rt - v'r + y'R1 / tau - q'fx + rp'fy / tau,   q = (rd + E (W rpu - rdu)) / tau,
//   pi = (cgapf - 2 sup'rpu + rpu'W rpu) / tau^2 + q'hx - rp'hy / tau,
//
// where (fx, fy), (hx, hy) solve for the two right-hand sides.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

double hom_qotimes(const HomState* h, const double* v, double* qv) {
  if (h->useh) {
    for (int32_t j = 0; j < h->n; ++j) qv[j] = h->qdiag[j] * v[j];
  } else {
    std::fill(qv, qv + h->n, 0.0);
    for (int32_t k = 0; k < h->nq; ++k) {
      const int32_t i = h->qi[k], j = h->qj[k];
      qv[i] += h->q[k] * v[j];
      if (i != j) qv[j] += h->q[k] * v[i];
    }
  }
  double vqv = 0.0;
  for (int32_t j = 0; j < h->n; ++j) vqv += v[j] * qv[j];
  return vqv;
}

// What stands on the diagonal beside the problem's own terms, by level. Refinement removes its effect, which
// is quick only where the problem's own terms are larger; so it is as small as the factorisation allows: a free column
// without quadratic term has nothing else, and rows whose columns all go to 0 have next to nothing.
struct Regularisation {
  double bounded, free, row;
};
constexpr Regularisation sqdregu[hom_qolevels] = {
    {1e-12, 1e-8, 1e-11}, {1e-14, 1e-8, 1e-14}, {1e-11, 1e-7, 1e-10}, {1e-9, 1e-7, 1e-9}, {1e-7, 1e-6, 1e-7}};
constexpr Regularisation normalregu[hom_qolevels] = {
    {0.0, 1e-12, 1e-16}, {0.0, 1e-11, 1e-14}, {1e-12, 1e-10, 1e-12}, {1e-10, 1e-9, 1e-10}, {1e-8, 1e-8, 1e-8}};

// The column of dtau and with it pi.
static void initcomputations(HomState* h) {
  const HomVec& p = h->point;
  const double tau = p.tau;
  const int32_t first = h->nb - h->nu;
  double *col = h->cbar, *row = h->chat;
  for (int32_t j = 0; j < h->n; ++j) {
    col[j] = (2.0 * p.s[j] - h->rd[j]) / tau;
    row[j] = h->rd[j] / tau;
  }
  double bound = 0.0;
  for (int32_t i = 0; i < h->nu; ++i) {
    const double w = p.sup[i] / p.xup[i];
    col[first + i] += (h->rdu[i] - 2.0 * p.sup[i] + w * h->rpu[i]) / tau;
    row[first + i] += (w * h->rpu[i] - h->rdu[i]) / tau;
    bound += (w * h->rpu[i] - 2.0 * p.sup[i]) * h->rpu[i];
  }
  for (int32_t i = 0; i < h->m; ++i) h->g[i] = -h->rp[i] / tau;
  kktfac_solve(h->kkt, 1, col, h->g, h->dc, h->h);
  double pi = (h->cgapf + bound) / (tau * tau);
  for (int32_t j = 0; j < h->n; ++j) pi += row[j] * h->dc[j];
  for (int32_t i = 0; i < h->m; ++i) pi += h->g[i] * h->h[i];
  // The same as a sum of positive terms, which rounding cannot turn negative.
  double* qh = h->wn1;
  double sum = p.kappa / tau + std::max(hom_qotimes(h, h->dc, qh), 0.0);
  for (int32_t j = 0; j < h->nb; ++j) {
    const double t = h->dc[j] + p.x[j] / tau;
    sum += p.s[j] / p.x[j] * t * t;
  }
  for (int32_t i = 0; i < h->nu; ++i) {
    const double t = h->dc[first + i] + p.x[first + i] / tau - h->u[i];
    sum += p.sup[i] / p.xup[i] * t * t;
  }
  h->beta = sum;
  h->pi = pi > 0.5 * sum && pi < 2.0 * sum ? pi : sum;
}

int32_t hom_qofactor(HomState* h, int32_t regulevel) {
  HomTimer timer(&h->time.factor);
  const bool normal = kktfac_getstats(h->kkt).type == KKT_NORMAL;
  const Regularisation& regu = normal ? normalregu[regulevel] : sqdregu[regulevel];
  h->reguada = regu.row;
  for (int32_t j = 0; j < h->nb; ++j) h->rx[j] = regu.bounded;
  for (int32_t j = h->nb; j < h->n; ++j) h->rx[j] = regu.free;
  for (int32_t j = 0; j < h->n; ++j) h->wn1[j] = (j < h->nb ? h->d[j] : 0.0) + h->rx[j];
  const int32_t code = kktfac_numfac(h->kkt, h->wn1, h->q, h->reguada, nullptr);
  if (code == KKT_OK) initcomputations(h);
  return code;
}

void hom_qorhs(const HomState* h, const HomTarget& target, HomVec* rhs) {
  const HomVec& p = h->point;
  const double eta = target.eta, mut = target.mut;
  const HomCor* cor = target.cor;
  const double keep = target.products ? 1.0 : 0.0;
  for (int32_t i = 0; i < h->m; ++i) rhs->y[i] = -eta * h->rp[i];
  for (int32_t j = 0; j < h->n; ++j) rhs->x[j] = -eta * h->rd[j];
  for (int32_t j = 0; j < h->nb; ++j) rhs->s[j] = mut - keep * p.x[j] * p.s[j] - (cor != nullptr ? cor->pair[j] : 0.0);
  for (int32_t j = h->nb; j < h->n; ++j) rhs->s[j] = 0.0;
  for (int32_t i = 0; i < h->nu; ++i) {
    rhs->xup[i] = -eta * h->rpu[i];
    rhs->sup[i] = -eta * h->rdu[i];
    rhs->yup[i] = mut - keep * p.xup[i] * p.sup[i] - (cor != nullptr ? cor->up[i] : 0.0);
  }
  rhs->tau = -eta * h->rg + (cor != nullptr ? cor->gap : 0.0);
  rhs->kappa = mut - keep * p.tau * p.kappa - (cor != nullptr ? cor->tk : 0.0);
  rhs->xf = rhs->sf = 0.0;
}

// Adds a change of dtau with what it does to dx and dy; the other parts follow from these.
static void movetau(const HomState* h, const HomVec& rhs, double change, HomVec* dir) {
  const HomVec& p = h->point;
  const double tau = p.tau;
  const int32_t first = h->nb - h->nu;
  dir->tau += change;
  for (int32_t j = 0; j < h->n; ++j) dir->x[j] += change * (h->dc[j] + p.x[j] / tau);
  for (int32_t i = 0; i < h->m; ++i) dir->y[i] += change * (h->h[i] + p.y[i] / tau);
  for (int32_t j = 0; j < h->nb; ++j) dir->s[j] = (rhs.s[j] - p.s[j] * dir->x[j]) / p.x[j];
  for (int32_t j = h->nb; j < h->n; ++j) dir->s[j] = rhs.s[j];
  for (int32_t i = 0; i < h->nu; ++i) {
    dir->xup[i] = rhs.xup[i] + h->u[i] * dir->tau - dir->x[first + i];
    dir->sup[i] = (rhs.yup[i] - p.sup[i] * dir->xup[i]) / p.xup[i];
    dir->yup[i] = rhs.sup[i] - dir->sup[i];
  }
  dir->kappa = (rhs.kappa - p.kappa * dir->tau) / tau;
  dir->xf = dir->sf = 0.0;
}

// One pass through the elimination, with the regularised factor.
static void solve(HomState* h, const HomVec& rhs, HomVec* dir) {
  const HomVec& p = h->point;
  const double tau = p.tau;
  const int32_t first = h->nb - h->nu;
  double *r = h->wn1, *fx = dir->x, *fy = dir->y;
  double rt = rhs.tau + rhs.kappa / tau;
  for (int32_t j = 0; j < h->nb; ++j) r[j] = rhs.x[j] - rhs.s[j] / p.x[j];
  for (int32_t j = h->nb; j < h->n; ++j) r[j] = rhs.x[j] - rhs.s[j];
  for (int32_t i = 0; i < h->nu; ++i) {
    const double t = rhs.sup[i] - rhs.yup[i] / p.xup[i] + p.sup[i] / p.xup[i] * rhs.xup[i];
    r[first + i] -= t;
    rt -= h->u[i] * t;
  }
  kktfac_solve(h->kkt, 1, r, rhs.y, fx, fy);
  for (int32_t j = 0; j < h->n; ++j) rt -= p.x[j] / tau * r[j] + h->chat[j] * fx[j];
  for (int32_t i = 0; i < h->m; ++i) rt += p.y[i] / tau * rhs.y[i] - h->g[i] * fy[i];
  dir->tau = 0.0;
  movetau(h, rhs, rt / h->pi, dir);
}

void hom_qoresiduals(HomState* h, const HomVec& rhs, const HomVec& dir, HomVec* res) {
  const HomVec& p = h->point;
  const double tau = p.tau;
  const int32_t first = h->nb - h->nu;
  const spmat* a = h->a;
  double* qdx = h->wn2;
  hom_qotimes(h, dir.x, qdx);
  for (int32_t i = 0; i < h->m; ++i) res->y[i] = rhs.y[i] + h->b[i] * dir.tau;
  double gap = rhs.tau + dir.kappa - h->xqx / tau * (dir.tau / tau);
  for (int32_t j = 0; j < h->n; ++j) {
    double aty = 0.0;
    for (int32_t k = a->ptrb[j]; k < a->ptre[j]; ++k) {
      const int32_t i = a->sub[k];
      res->y[i] -= a->val[k] * dir.x[j];
      aty += a->val[k] * dir.y[i];
    }
    res->x[j] = rhs.x[j] - aty - dir.s[j] + h->c[j] * dir.tau + qdx[j];
    gap += (h->c[j] + 2.0 * h->qx[j] / tau) * dir.x[j];
  }
  for (int32_t i = 0; i < h->m; ++i) gap -= h->b[i] * dir.y[i];
  for (int32_t i = 0; i < h->nu; ++i) {
    res->xup[i] = rhs.xup[i] - dir.x[first + i] - dir.xup[i] + h->u[i] * dir.tau;
    res->x[first + i] -= dir.yup[i];
    res->sup[i] = rhs.sup[i] - dir.sup[i] - dir.yup[i];
    res->yup[i] = rhs.yup[i] - p.sup[i] * dir.xup[i] - p.xup[i] * dir.sup[i];
    gap -= h->u[i] * dir.yup[i];
  }
  for (int32_t j = 0; j < h->nb; ++j) res->s[j] = rhs.s[j] - p.s[j] * dir.x[j] - p.x[j] * dir.s[j];
  for (int32_t j = h->nb; j < h->n; ++j) res->s[j] = rhs.s[j] - dir.s[j];
  res->tau = gap;
  res->kappa = rhs.kappa - p.kappa * dir.tau - p.tau * dir.kappa;
}

static void addvec(const HomState* h, double alpha, const HomVec& from, HomVec* to) {
  for (int32_t j = 0; j < h->n; ++j) to->x[j] += alpha * from.x[j];
  for (int32_t j = 0; j < h->n; ++j) to->s[j] += alpha * from.s[j];
  for (int32_t i = 0; i < h->m; ++i) to->y[i] += alpha * from.y[i];
  for (int32_t i = 0; i < h->nu; ++i) {
    to->xup[i] += alpha * from.xup[i];
    to->yup[i] += alpha * from.yup[i];
    to->sup[i] += alpha * from.sup[i];
  }
  to->tau += alpha * from.tau;
  to->kappa += alpha * from.kappa;
}

static double largest(const double* v, int32_t count) {
  double most = 0.0;
  for (int32_t k = 0; k < count; ++k) {
    const double size = std::abs(v[k]);
    if (!(size <= most)) most = size;  // keeps a NaN
  }
  return most;
}

// What the linear rows of a direction may be wrong by.
struct Bearable {
  double primal, dual, gap;
};

static double errorof(const HomState* h, const HomVec& res, const Bearable& bear) {
  const double primal = std::max(largest(res.y, h->m), largest(res.xup, h->nu));
  const double dual = std::max(largest(res.x, h->n), largest(res.sup, h->nu));
  const double error = std::max({primal / bear.primal, dual / bear.dual, std::abs(res.tau) / bear.gap});
  return std::isfinite(primal + dual + res.tau) ? error : HUGE_VAL;
}

// Moves what is left of the dual rows into slacks whose products hardly notice: where x is next to 0, s comes from
// (R6 - s dx) / x with an error far above that of the row itself.
static void shiftdual(HomState* h, HomVec* dir, HomVec* res) {
  constexpr double share = 1e-3;  // of the product
  const HomVec& p = h->point;
  const int32_t first = h->nb - h->nu;
  for (int32_t j = 0; j < h->nb; ++j) {
    const double r = res->x[j];
    const int32_t i = j - first;
    if (i >= 0 && p.xup[i] < p.x[j]) {
      if (!(std::abs(r) * p.xup[i] <= share * h->mu)) continue;
      dir->yup[i] += r;
      dir->sup[i] -= r;
      res->yup[i] += p.xup[i] * r;
    } else {
      if (!(std::abs(r) * p.x[j] <= share * h->mu)) continue;
      dir->s[j] += r;
      res->s[j] -= p.x[j] * r;
    }
    res->x[j] = 0.0;
  }
}

// Makes the gap row hold, whatever the solves have left undone: refinement alone cannot where tau is small, since it
// sees the rounding of the other rows times x / tau and y / tau.
static double settau(HomState* h, const Bearable& bear, double error, HomVec* dir) {
  for (int32_t round = 0; round < 2 && error > 1.0 && std::abs(h->res.tau) > bear.gap; ++round) {
    const double change = h->res.tau / h->pi;
    movetau(h, h->rhs, change, dir);
    hom_qoresiduals(h, h->rhs, *dir, &h->res);
    const double now = errorof(h, h->res, bear);
    if (!(now < error)) {
      movetau(h, h->rhs, -change, dir);
      hom_qoresiduals(h, h->rhs, *dir, &h->res);
      return error;
    }
    error = now;
  }
  return error;
}

double hom_qosearch(HomState* h, const HomTarget& target, HomVec* dir) {
  HomTimer timer(&h->time.computesd);
  constexpr int32_t maxrounds = 8;
  constexpr double share = 1e-3, floor = 0.01;  // of the residuals, of the tolerances
  const HomParams& par = h->par;
  const double tau = h->point.tau;
  hom_qorhs(h, target, &h->rhs);
  const Bearable bear{
      share * h->pfeasf + floor * par.tolpfeas * (1.0 + h->bscale) * tau,
      share * h->dfeasf + floor * par.toldfeas * (1.0 + h->cscale) * tau,
      share * std::max(std::abs(h->rg), h->cgapf / tau) + floor * par.tolgap * std::max(tau, std::abs(h->by))};
  solve(h, h->rhs, dir);
  hom_qoresiduals(h, h->rhs, *dir, &h->res);
  double error = settau(h, bear, errorof(h, h->res, bear), dir);
  for (int32_t round = 0; round < maxrounds && error > 1.0 && error < HUGE_VAL; ++round) {
    solve(h, h->res, &h->cordir);
    addvec(h, 1.0, h->cordir, dir);
    hom_qoresiduals(h, h->rhs, *dir, &h->res);
    ++h->numrefine;
    double now = errorof(h, h->res, bear);
    if (!(now < error)) {
      addvec(h, -1.0, h->cordir, dir);
      hom_qoresiduals(h, h->rhs, *dir, &h->res);
      break;
    }
    now = settau(h, bear, now, dir);
    const bool slow = now > 0.5 * error;
    error = now;
    if (slow) break;
  }
  if (error > 1.0 && error < HUGE_VAL) {
    shiftdual(h, dir, &h->res);
    error = errorof(h, h->res, bear);
  }
  return error;
}

void hom_qocorterms(HomState* h, const HomVec& dir, HomCor* cor) {
  const HomVec& p = h->point;
  for (int32_t j = 0; j < h->nb; ++j) cor->pair[j] = dir.x[j] * dir.s[j];
  for (int32_t i = 0; i < h->nu; ++i) cor->up[i] = dir.xup[i] * dir.sup[i];
  cor->tk = dir.tau * dir.kappa;
  // A full step adds -(dx - v dtau)'Q (dx - v dtau) / (tau + dtau) to the gap row.
  double *z = h->wn2, *qz = h->wn3;
  for (int32_t j = 0; j < h->n; ++j) z[j] = dir.x[j] - p.x[j] / p.tau * dir.tau;
  cor->gap = hom_qotimes(h, z, qz) / std::max(p.tau + dir.tau, 0.1 * p.tau);
}

}  // namespace tarvo
