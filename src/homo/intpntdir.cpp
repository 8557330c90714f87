// Newton directions of the conic optimiser and the step along them.
//
// For given eta, mut and corrector terms e a direction solves
//
//   A dx - b dtau = eta rp                             dx_U + dxup - u dtau = eta ru
//   A'dy + ds + E dyup - c dtau = eta rd               dyup + dsup = eta rs
//   b'dy + u'dyup - c'dx - dkappa = -eta rg            tau dkappa + kappa dtau = mut - tau kappa - etk
//   ds + H dx = t - s, t_j = (mut - e_j) / x_j of a pair, t = sqrt(th) W v^-1 o (mut (1, 0) - e) of a cone; sup
//   likewise
//
// The unknown is beta = dtau / tau, and what belongs to it is shifted by the iterate: dx = dx0 + beta X1, dy = dy0 +
// beta Y1 with X1 = x + px, Y1 = y + py and xup likewise, (px, py) the solution for the right-hand sides that
// tau c and tau b leave behind, which are of the size of the residuals and of s. With X1 and Y1 the row of the gap is
//
//   (kappa tau + X1'H X1 + Xup1'Hup Xup1) beta = tau R - r1'X1 - rup1'Xup1 + r2'Y1 + rup2'Yup1 - 2 (X1'H dx0 + ...)
//
// r1 = eta rd - t + s, r2 = eta rp: the factor of beta is a sum of squares, and nothing large cancels on the right.
#include <algorithm>
#include <cmath>

#include "homo/intpnt_internal.h"

namespace tarvo {

namespace {

double dot(int32_t n, const double* a, const double* b) {
  double sum = 0.0;
  for (int32_t k = 0; k < n; ++k) sum += a[k] * b[k];
  return sum;
}

// t of the complementarity rows into dir.s and dir.sup.
void targets(IntpntState* h, const IntpntTarget& t) {
  IntpntVec* d = &h->dir;
  const IntpntVec& p = h->point;
  for (int32_t j = 0; j < h->nb; ++j) d->s[j] = (t.mut - (t.corrector ? h->e[j] : 0.0)) / p.x[j];
  for (int32_t i = 0; i < h->nu; ++i) d->sup[i] = (t.mut - (t.corrector ? h->eup[i] : 0.0)) / p.xup[i];
  for (int32_t j = h->nb; j < h->l0; ++j) d->s[j] = 0.0;
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
    double* z = d->s + beg;
    if (t.corrector) {
      for (int32_t i = 0; i < len; ++i) z[i] = -h->e[beg + i];
    } else {
      std::fill_n(z, len, 0.0);
      if (t.mut == 0.0) continue;
    }
    z[0] += t.mut;
    intpnt_arrowsolve(len, h->v + beg, h->cone[k].vv, z, z);
    intpnt_timesw(len, h->f + beg, z, z);
    const double root = std::sqrt(h->cone[k].th);
    for (int32_t i = 0; i < len; ++i) z[i] *= root;
  }
}

// The right-hand side of the reduced system for r1, rup1 = eta rs - t_up + sup, rup2 = eta ru.
void right_hand_side(IntpntState* h, const IntpntTarget& t, double* r1, double* rup1, double* r2) {
  const IntpntVec &p = h->point, &d = h->dir;
  for (int32_t j = 0; j < h->n; ++j) r1[j] = t.eta * h->rd[j] - d.s[j] + p.s[j];
  for (int32_t i = 0; i < h->nu; ++i) rup1[i] = t.eta * h->rs[i] - d.sup[i] + p.sup[i];
  for (int32_t i = 0; i < h->m; ++i) r2[i] = t.eta * h->rp[i];
}

// The whole direction from the solution (dx0, dy0) in dir.x, dir.y; dir.s, dir.sup hold the targets.
void complete(IntpntState* h, const IntpntTarget& t, const double* r1, const double* rup1, const double* r2) {
  IntpntVec* d = &h->dir;
  const IntpntVec& p = h->point;
  const int32_t first = h->nb - h->nu;
  const double etk = t.corrector ? h->etk : 0.0;
  double num = -t.eta * p.tau * h->rg - p.kappa * p.tau + t.mut - etk;
  num -= dot(h->n, r1, h->x1) - dot(h->m, r2, h->y1) + 2.0 * dot(h->n, h->hx1, d->x);
  for (int32_t i = 0; i < h->nu; ++i) {
    const double rup2 = t.eta * h->ru[i];
    d->xup[i] = rup2 - d->x[first + i];
    num -= rup1[i] * h->xup1[i] - rup2 * h->hup[i] * h->xup1[i] + 2.0 * h->hup[i] * h->xup1[i] * d->xup[i];
  }
  const double beta = num / h->den;
  for (int32_t j = 0; j < h->n; ++j) d->x[j] += beta * h->x1[j];
  for (int32_t i = 0; i < h->m; ++i) d->y[i] += beta * h->y1[i];
  d->tau = p.tau * beta;
  d->kappa = -p.kappa * (1.0 + beta) + (t.mut - etk) / p.tau;
  for (int32_t i = 0; i < h->nu; ++i) {
    d->xup[i] += beta * h->xup1[i];
    d->sup[i] -= p.sup[i] + h->hup[i] * d->xup[i];
    d->yup[i] = t.eta * h->rs[i] - d->sup[i];
  }
  // A pair's ds from its own row, which keeps its relative accuracy; a cone's from the dual row: H of a cone near its
  // boundary would blow up the error of dx.
  for (int32_t j = 0; j < h->nb; ++j) d->s[j] -= p.s[j] + h->h[j] * d->x[j];
  for (int32_t j = h->nb; j < h->l0; ++j) d->s[j] = 0.0;
  if (h->numcone == 0) return;
  intpnt_timesat(h, d->y, h->wn3);
  for (int32_t j = h->l0; j < h->n; ++j) d->s[j] = t.eta * h->rd[j] + h->c[j] * d->tau - h->wn3[j];
}

}  // namespace

void intpnt_initsearch(IntpntState* h) {
  const IntpntVec& p = h->point;
  const IntpntTarget t{1.0, 0.0, false};
  const int32_t first = h->nb - h->nu;
  double *r1 = h->wn1, *r2 = h->wm1, *sol = h->wn2, *ysol = h->wm1 + 2 * static_cast<std::ptrdiff_t>(h->m);
  // First the homogeneous column: what is left of tau c - E Hup u tau and of tau b after the shift.
  for (int32_t j = 0; j < h->n; ++j) r1[j] = h->rd[j] + 2.0 * p.s[j];
  for (int32_t i = 0; i < h->nu; ++i) r1[first + i] += p.yup[i] - p.sup[i] - h->hup[i] * h->ru[i];
  std::copy_n(h->rp, h->m, r2);
  double* a1 = r1 + h->n;
  double* a2 = r2 + h->m;
  targets(h, t);
  right_hand_side(h, t, a1, h->wu1, a2);
  for (int32_t i = 0; i < h->nu; ++i) a1[first + i] -= h->wu1[i] + h->hup[i] * h->ru[i];
  symles_solve(h, 2, r1, r2, sol, ysol);

  const double* px = sol;
  for (int32_t j = 0; j < h->n; ++j) h->x1[j] = p.x[j] + px[j];
  for (int32_t i = 0; i < h->m; ++i) h->y1[i] = p.y[i] + ysol[i];
  intpnt_bardtimesh(h, px, h->hx1);
  h->den = p.kappa * p.tau;
  for (int32_t j = 0; j < h->nb; ++j) {
    h->hx1[j] += p.s[j];
    h->den += h->h[j] * h->x1[j] * h->x1[j];
  }
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
    intpnt_timesw(len, h->f + beg, h->x1 + beg, h->wn3 + beg);
    double sum = 0.0;
    for (int32_t j = beg; j < beg + len; ++j) {
      h->hx1[j] += p.s[j];
      sum += h->wn3[j] * h->wn3[j];
    }
    h->den += h->cone[k].th * sum;
  }
  for (int32_t i = 0; i < h->nu; ++i) {
    h->xup1[i] = h->ru[i] + p.xup[i] - px[first + i];
    h->den += h->hup[i] * h->xup1[i] * h->xup1[i];
  }

  std::copy_n(sol + h->n, h->n, h->dir.x);
  std::copy_n(ysol + h->m, h->m, h->dir.y);
  right_hand_side(h, t, a1, h->wu1, a2);  // the solver's right-hand side had the upper bounds folded in
  complete(h, t, a1, h->wu1, a2);
}

void intpnt_formsearch(IntpntState* h, const IntpntTarget& target) {
  const int32_t first = h->nb - h->nu;
  double *r1 = h->wn1, *fold = h->wn1 + h->n, *r2 = h->wm1;
  targets(h, target);
  right_hand_side(h, target, r1, h->wu1, r2);
  std::copy_n(r1, h->n, fold);
  for (int32_t i = 0; i < h->nu; ++i) fold[first + i] -= h->wu1[i] + h->hup[i] * target.eta * h->ru[i];
  symles_solve(h, 1, fold, r2, h->dir.x, h->dir.y);
  complete(h, target, r1, h->wu1, r2);
}

IntpntResiduals intpnt_improvesearch(IntpntState* h, const IntpntTarget& t) {
  const IntpntVec &p = h->point, &d = h->dir;
  const int32_t first = h->nb - h->nu;
  IntpntResiduals r{};
  intpnt_timesa(h, d.x, h->wm1);
  for (int32_t i = 0; i < h->m; ++i)
    r.primal = std::max(r.primal, std::fabs(h->wm1[i] - h->b[i] * d.tau - t.eta * h->rp[i]));
  intpnt_timesat(h, d.y, h->wn1);
  for (int32_t i = 0; i < h->nu; ++i) {
    h->wn1[first + i] += d.yup[i];
    r.primal = std::max(r.primal, std::fabs(d.x[first + i] + d.xup[i] - h->u[i] * d.tau - t.eta * h->ru[i]));
    r.dual = std::max(r.dual, std::fabs(d.yup[i] + d.sup[i] - t.eta * h->rs[i]));
    r.comp = std::max(r.comp, std::fabs(p.sup[i] * d.xup[i] + p.xup[i] * d.sup[i] + p.xup[i] * p.sup[i] - t.mut +
                                        (t.corrector ? h->eup[i] : 0.0)));
  }
  for (int32_t j = 0; j < h->n; ++j)
    r.dual = std::max(r.dual, std::fabs(h->wn1[j] + d.s[j] - h->c[j] * d.tau - t.eta * h->rd[j]));
  r.gap = std::fabs(dot(h->m, h->b, d.y) + dot(h->nu, h->u, d.yup) - dot(h->n, h->c, d.x) - d.kappa + t.eta * h->rg);
  for (int32_t j = 0; j < h->nb; ++j)
    r.comp = std::max(
        r.comp, std::fabs(p.s[j] * d.x[j] + p.x[j] * d.s[j] + p.x[j] * p.s[j] - t.mut + (t.corrector ? h->e[j] : 0.0)));
  r.comp = std::max(
      r.comp, std::fabs(p.tau * d.kappa + p.kappa * d.tau + p.tau * p.kappa - t.mut + (t.corrector ? h->etk : 0.0)));
  // A cone's row in scaled terms: v o (dxt + dst + v) = mut (1, 0) - e.
  intpnt_scaledir(h);
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
    double* sum = h->wn1 + beg;
    for (int32_t i = 0; i < len; ++i) sum[i] = h->dxt[beg + i] + h->dst[beg + i] + h->v[beg + i];
    intpnt_arrowprod(len, h->v + beg, sum, sum);
    sum[0] -= t.mut;
    for (int32_t i = 0; i < len; ++i)
      r.comp = std::max(r.comp, std::fabs(sum[i] + (t.corrector ? h->e[beg + i] : 0.0)));
  }
  return r;
}

void intpnt_secondorder(IntpntState* h) {
  const IntpntVec& d = h->dir;
  for (int32_t j = 0; j < h->nb; ++j) h->e[j] = d.x[j] * d.s[j];
  for (int32_t i = 0; i < h->nu; ++i) h->eup[i] = d.xup[i] * d.sup[i];
  h->etk = d.tau * d.kappa;
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k];
    intpnt_arrowprod(h->cnebeg[k + 1] - beg, h->dxt + beg, h->dst + beg, h->e + beg);
  }
}

// ---- Step
// --------------------------------------------------------------------------------------------------------------

namespace {

// The largest step up to `cap` at which x + a d stays non-negative.
double pair_limit(int32_t n, const double* x, const double* d, double cap) {
  double step = cap;
  for (int32_t j = 0; j < n; ++j)
    if (x[j] + step * d[j] < 0.0) step = -x[j] / d[j];
  return step;
}

double cone_limit(double vv, double lo, double cap) { return vv + cap * lo < 0.0 ? -vv / lo : cap; }

void status_keys(IntpntState* h) {
  const IntpntVec &p = h->point, &d = h->dir;
  for (int32_t j = 0; j < h->nb; ++j)
    h->keys[j] = std::fabs(d.s[j]) * p.x[j] < std::fabs(d.x[j]) * p.s[j] ? INTPNT_KEY_DUAL : INTPNT_KEY_PRIMAL;
  for (int32_t i = 0; i < h->nu; ++i)
    h->keysup[i] =
        std::fabs(d.sup[i]) * p.xup[i] < std::fabs(d.xup[i]) * p.sup[i] ? INTPNT_KEY_DUAL : INTPNT_KEY_PRIMAL;
}

struct Trial {
  double floor, ceiling;
};

// Whether the point at step a is in the neighbourhood: every product at least `floor`, and the gap at most `ceiling`.
bool acceptable(const IntpntState* h, double a, const Trial& t) {
  const IntpntVec &p = h->point, &d = h->dir;
  const double tau = p.tau + a * d.tau, kappa = p.kappa + a * d.kappa;
  double gap = tau * kappa;
  if (!(tau > 0.0) || !(kappa > 0.0) || gap < t.floor) return false;
  for (int32_t j = 0; j < h->nb; ++j) {
    const double x = p.x[j] + a * d.x[j], s = p.s[j] + a * d.s[j];
    if (!(x > 0.0) || !(s > 0.0) || x * s < t.floor) return false;
    gap += x * s;
  }
  for (int32_t i = 0; i < h->nu; ++i) {
    const double x = p.xup[i] + a * d.xup[i], s = p.sup[i] + a * d.sup[i];
    if (!(x > 0.0) || !(s > 0.0) || x * s < t.floor) return false;
    gap += x * s;
  }
  for (int32_t k = 0; k < h->numcone; ++k) {
    const IntpntScale& c = h->cone[k];
    const double x0 = c.vv + a * c.xlo, x1 = c.vv + a * c.xhi, s0 = c.vv + a * c.slo, s1 = c.vv + a * c.shi;
    if (!(x0 > 0.0) || !(x1 > 0.0) || !(s0 > 0.0) || !(s1 > 0.0) || x0 * x1 * s0 * s1 < t.floor * t.floor) return false;
    const int32_t beg = h->cnebeg[k], end = h->cnebeg[k + 1];
    for (int32_t j = beg; j < end; ++j) gap += (p.x[j] + a * d.x[j]) * (p.s[j] + a * d.s[j]);
  }
  return gap <= t.ceiling;
}

}  // namespace

double intpnt_stepsize(IntpntState* h, bool setkeys, double eta, double frac, double beta) {
  static constexpr double table[] = {1.0, 0.9999, 0.999, 0.99, 0.95, 0.9, 0.8, 0.7, 0.6, 0.5, 0.4, 0.25};
  const IntpntVec &p = h->point, &d = h->dir;
  if (setkeys) status_keys(h);
  intpnt_scaledir(h);
  double step = 1.0 / frac;
  step = pair_limit(h->nb, p.x, d.x, step);
  step = pair_limit(h->nb, p.s, d.s, step);
  step = pair_limit(h->nu, p.xup, d.xup, step);
  step = pair_limit(h->nu, p.sup, d.sup, step);
  step = pair_limit(1, &p.tau, &d.tau, step);
  step = pair_limit(1, &p.kappa, &d.kappa, step);
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
    IntpntScale* c = &h->cone[k];
    intpnt_coneway(len, h->v + beg, c->vv, h->dxt + beg, &c->xlo, &c->xhi);
    intpnt_coneway(len, h->v + beg, c->vv, h->dst + beg, &c->slo, &c->shi);
    step = cone_limit(c->vv, c->xlo, step);
    step = cone_limit(c->vv, c->slo, step);
  }
  if (!std::isfinite(d.tau) || !std::isfinite(step)) return 0.0;
  const double a0 = frac * frac * step;
  double last = table[std::size(table) - 1];
  for (std::size_t k = 0;; ++k) {
    if (k >= std::size(table)) last /= 10.0;
    const double a = (k < std::size(table) ? table[k] : last) * a0;
    if (!(a > h->par.minstep)) return 0.0;
    const double gap = h->mea.cgapf;
    if (acceptable(h, a, {(1.0 - eta * a) * beta * gap / h->n_c, (1.0 - 0.1 * eta * a) * gap})) return a;
  }
}

}  // namespace tarvo
