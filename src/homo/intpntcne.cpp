// The algebra of second-order cones: the scaling of Nesterov and Todd and its update by products.
#include <algorithm>
#include <cmath>

#include "homo/intpnt_internal.h"

namespace tarvo {

namespace {

double tail_dot(int32_t k, const double* a, const double* b) {
  double sum = 0.0;
  for (int32_t i = 1; i < k; ++i) sum += a[i] * b[i];
  return sum;
}

// W y with the tail of f times `sign`.
void times_w(int32_t k, const double* f, double sign, const double* y, double* w) {
  const double y0 = y[0];
  const double dot = sign * tail_dot(k, f, y);
  const double q = sign * (dot / (1.0 + f[0]) - y0);
  w[0] = f[0] * y0 - dot;
  for (int32_t i = 1; i < k; ++i) w[i] = y[i] + q * f[i];
}

}  // namespace

void intpnt_timesw(int32_t k, const double* f, const double* y, double* w) { times_w(k, f, 1.0, y, w); }
void intpnt_timeswinv(int32_t k, const double* f, const double* y, double* w) { times_w(k, f, -1.0, y, w); }

void intpnt_arrowsolve(int32_t k, const double* v, double vv, const double* r, double* z) {
  const double z0 = (v[0] * r[0] - tail_dot(k, v, r)) / (vv * vv);
  for (int32_t i = 1; i < k; ++i) z[i] = (r[i] - z0 * v[i]) / v[0];
  z[0] = z0;
}

void intpnt_arrowprod(int32_t k, const double* a, const double* b, double* e) {
  const double a0 = a[0], b0 = b[0];
  e[0] = a0 * b0 + tail_dot(k, a, b);
  for (int32_t i = 1; i < k; ++i) e[i] = a0 * b[i] + b0 * a[i];
}

// The hyperbolic rotation that takes v to (vv, 0) takes d to (rho_0, rho_r): v'Jv at a is (vv + a rho_0)^2 - a^2
// |rho_r|^2, a product of two factors without cancellation.
void intpnt_coneway(int32_t k, const double* v, double vv, const double* d, double* lo, double* hi) {
  const double rho0 = (v[0] * d[0] - tail_dot(k, v, d)) / vv;
  const double t = (rho0 + d[0]) / (v[0] + vv);
  double sum = 0.0;
  for (int32_t i = 1; i < k; ++i) {
    const double r = d[i] - t * v[i];
    sum += r * r;
  }
  const double norm = std::sqrt(sum);
  *lo = rho0 - norm;
  *hi = rho0 + norm;
}

namespace {

// x'Jx with all its digits: a member of a cone near the boundary loses those in double arithmetic.
double margin(int32_t k, const double* x) {
  long double sum = static_cast<long double>(x[0]) * x[0];
  for (int32_t i = 1; i < k; ++i) sum -= static_cast<long double>(x[i]) * x[i];
  return static_cast<double>(sum);
}

}  // namespace

bool intpnt_conescale(int32_t k, const double* x, const double* s, double xqx, double sqs, double* f, double* v,
                      IntpntScale* scale) {
  if (!(x[0] > 0.0) || !(s[0] > 0.0) || !(xqx > 0.0) || !(sqs > 0.0)) return false;
  const double w = std::pow(sqs / xqx, 0.25), root = std::sqrt(xqx * sqs);
  const double n = std::sqrt(2.0 * (x[0] * s[0] + tail_dot(k, x, s) + root));
  double sum = 0.0;
  for (int32_t i = 1; i < k; ++i) {
    f[i] = (x[i] * w - s[i] / w) / n;
    sum += f[i] * f[i];
  }
  f[0] = std::sqrt(1.0 + sum);
  scale->th = std::sqrt(sqs / xqx);
  scale->vv = std::sqrt(root);
  intpnt_timesw(k, f, x, v);
  sum = 0.0;
  for (int32_t i = 1; i < k; ++i) {
    v[i] *= w;
    sum += v[i] * v[i];
  }
  v[0] = std::sqrt(root + sum);
  return std::isfinite(v[0]) && std::isfinite(f[0]);
}

void intpnt_bardtimesh(const IntpntState* h, const double* y, double* out) {
  for (int32_t j = 0; j < h->nb; ++j) out[j] = h->h[j] * y[j];
  for (int32_t j = h->nb; j < h->l0; ++j) out[j] = 0.0;
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
    intpnt_timesw(len, h->f + beg, y + beg, out + beg);
    intpnt_timesw(len, h->f + beg, out + beg, out + beg);
    for (int32_t j = beg; j < beg + len; ++j) out[j] *= h->cone[k].th;
  }
}

namespace {

void scale_pairs(IntpntState* h) {
  const IntpntVec& p = h->point;
  for (int32_t j = 0; j < h->nb; ++j) h->h[j] = p.s[j] / p.x[j];
  for (int32_t i = 0; i < h->nu; ++i) h->hup[i] = p.sup[i] / p.xup[i];
}

}  // namespace

bool intpnt_initscaling(IntpntState* h) {
  scale_pairs(h);
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
    const double *x = h->point.x + beg, *s = h->point.s + beg;
    if (!intpnt_conescale(len, x, s, margin(len, x), margin(len, s), h->f + beg, h->v + beg, &h->cone[k])) return false;
  }
  return true;
}

void intpnt_scaledir(IntpntState* h) {
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
    const double root = std::sqrt(h->cone[k].th);
    intpnt_timesw(len, h->f + beg, h->dir.x + beg, h->dxt + beg);
    intpnt_timeswinv(len, h->f + beg, h->dir.s + beg, h->dst + beg);
    for (int32_t j = beg; j < beg + len; ++j) {
      h->dxt[j] *= root;
      h->dst[j] /= root;
    }
  }
}

// The scaling is made anew from x and s: carried from step to step by products it would drift away from them. Only
// x'Jx and s'Jx are carried too, and taken where rounding has eaten the ones of the stored vectors.
bool intpnt_updatescaling(IntpntState* h, double step) {
  constexpr double lost = 1e-14;  // share of the head's square
  scale_pairs(h);
  for (int32_t k = 0; k < h->numcone; ++k) {
    IntpntScale* c = &h->cone[k];
    const int32_t beg = h->cnebeg[k], len = h->cnebeg[k + 1] - beg;
    const double *x = h->point.x + beg, *s = h->point.s + beg;
    double xqx = margin(len, x), sqs = margin(len, s);
    if (xqx < lost * x[0] * x[0]) xqx = (c->vv + step * c->xlo) * (c->vv + step * c->xhi) / c->th;
    if (sqs < lost * s[0] * s[0]) sqs = (c->vv + step * c->slo) * (c->vv + step * c->shi) * c->th;
    if (!intpnt_conescale(len, x, s, xqx, sqs, h->f + beg, h->v + beg, c)) return false;
  }
  return true;
}

}  // namespace tarvo
