// Step lengths: to the boundary, and inside the neighbourhood of the central path where every product of a pair stays
// above a share of the mean.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

// The largest a <= limit with x + a dx >= 0.
static double ratiotest(double limit, const double* x, const double* dx, int32_t n) {
  for (int32_t j = 0; j < n; ++j)
    if (x[j] + limit * dx[j] < 0.0) limit = -x[j] / dx[j];
  return limit;
}

// The largest a <= limit where q0 + q1 a + q2 a^2, positive at 0, has no zero before. Stable for all signs.
static double quadratictest(double limit, double q0, double q1, double q2) {
  const double disc = q1 * q1 - 4.0 * q2 * q0;
  if (!(disc >= 0.0)) return limit;
  const double low = std::sqrt(disc) - q1;
  return low > 0.0 ? std::min(limit, 2.0 * q0 / low) : limit;
}

static double norm2(const double* v, int32_t n) {
  double sum = 0.0;
  for (int32_t k = 0; k < n; ++k) sum += v[k] * v[k];
  return sum;
}

// q1 and q2 of (head + a dhead)^2 - |v + a dv|^2.
static void conequadratic(double head, double dhead, const double* v, const double* dv, int32_t n, double* q1,
                          double* q2) {
  double cross = 0.0, squares = 0.0;
  for (int32_t k = 0; k < n; ++k) {
    cross += v[k] * dv[k];
    squares += dv[k] * dv[k];
  }
  *q1 = 2.0 * (head * dhead - cross);
  *q2 = dhead * dhead - squares;
}

static void cone(const HomState* h, const HomVec& dir, HomSteps* steps) {
  const HomVec& p = h->point;
  conequadratic(p.xf, dir.xf, p.x + h->nb, dir.x + h->nb, h->nf, &steps->xqdxf, &steps->dxqdxf);
  conequadratic(p.sf, dir.sf, p.s + h->nb, dir.s + h->nb, h->nf, &steps->sqdsf, &steps->dsqdsf);
}

HomSteps hom_steplimits(const HomState* h, double cap, const HomVec& dir) {
  const HomVec& p = h->point;
  HomSteps steps{};
  cap = ratiotest(cap, &p.tau, &dir.tau, 1);
  cap = ratiotest(cap, &p.kappa, &dir.kappa, 1);
  steps.primal = ratiotest(ratiotest(cap, p.x, dir.x, h->nb), p.xup, dir.xup, h->nu);
  steps.dual = ratiotest(ratiotest(cap, p.s, dir.s, h->nb), p.sup, dir.sup, h->nu);
  if (h->nf == 0) return steps;
  cone(h, dir, &steps);
  steps.primal = ratiotest(steps.primal, &p.xf, &dir.xf, 1);
  steps.dual = ratiotest(steps.dual, &p.sf, &dir.sf, 1);
  steps.primal = quadratictest(steps.primal, h->xqxf, steps.xqdxf, steps.dxqdxf);
  steps.dual = quadratictest(steps.dual, h->sqsf, steps.sqdsf, steps.dsqdsf);
  return steps;
}

// Is every product (x + a dx)(s + a ds) at least `low`? A NaN is not.
static bool productsabove(double low, double a, const double* x, const double* dx, const double* s, const double* ds,
                          int32_t n) {
  constexpr int32_t block = 512;  // long enough for vector code, short enough to leave early
  for (int32_t from = 0; from < n; from += block) {
    const int32_t to = std::min(n, from + block);
    int32_t below = 0;
    for (int32_t j = from; j < to; ++j) below += !((x[j] + a * dx[j]) * (s[j] + a * ds[j]) >= low);
    if (below > 0) return false;
  }
  return true;
}

double hom_neighbourstep(HomState* h, const HomSteps& limits, double gamma, double frac, double beta, bool gapcheck,
                         const HomVec& dir) {
  HomTimer timer(&h->time.linesearch);
  constexpr double tinygap = 1e-8;  // below it the predicted gap is no measure any more
  const HomVec& p = h->point;
  const bool exact = h->cgapf <= tinygap;
  const double dxds = exact || gapcheck ? hom_dxds(h, dir) : 0.0;
  const double xds = exact || gapcheck ? hom_xds(h, dir) : 0.0;
  const double longest = std::min(limits.primal, limits.dual) * frac;
  const int32_t first = h->nb - h->nu;
  for (int32_t k = 0;; ++k) {
    double a = longest * hom_steptable[std::min(k, hom_numsteps - 1)];
    for (int32_t i = hom_numsteps; i <= k; ++i) a *= 0.1;
    if (!(a > h->par.tolstep)) return 0.0;
    if (gapcheck && (xds + a * dxds) / h->cgapf > -0.5 * (1.0 - gamma)) {
      hom_print(h, "!!!! Decrease in GAP failure %e > %e a: %e dxds: %e xdssdx: %e\n", (xds + a * dxds) / h->cgapf,
                -0.5 * (1.0 - gamma), a, dxds, xds);
      continue;
    }
    const double low = exact ? (h->cgapf + a * xds + a * a * dxds) * beta / h->n_c
                             : (1.0 - (1.0 - gamma) * a) * h->cgapf * beta / h->n_c;
    if (!((p.tau + a * dir.tau) * (p.kappa + a * dir.kappa) >= low)) continue;
    if (h->nf > 0) {
      const double xqx = h->xqxf + a * (limits.xqdxf + a * limits.dxqdxf);
      const double sqs = h->sqsf + a * (limits.sqdsf + a * limits.dsqdsf);
      if (!(xqx >= 0.0 && sqs >= 0.0 && std::sqrt(xqx * sqs) >= low)) continue;
    }
    if (productsabove(low, a, p.x, dir.x, p.s, dir.s, first) &&
        productsabove(low, a, p.x + first, dir.x + first, p.s + first, dir.s + first, h->nu) &&
        productsabove(low, a, p.xup, dir.xup, p.sup, dir.sup, h->nu))
      return a;
  }
}

void hom_takestep(HomState* h, double step, const HomVec& dir) {
  HomTimer timer(&h->time.update);
  HomVec& p = h->point;
  HomSteps q{};
  if (h->nf > 0) cone(h, dir, &q);
  hom_addvec(h, step, dir, &p);
  if (h->nf == 0) return;
  // Computed from the new point the squares would cancel, and carried alone they would drift away from it: so they are
  // carried, and the heads follow.
  const auto follow = [h](double square, double* v, double* head) {
    if (!(square > 0.0)) return *head * *head - norm2(v + h->nb, h->nf);
    *head = std::copysign(std::sqrt(square + norm2(v + h->nb, h->nf)), *head);
    return square;
  };
  h->xqxf = follow(h->xqxf + step * (q.xqdxf + step * q.dxqdxf), p.x, &p.xf);
  h->sqsf = follow(h->sqsf + step * (q.sqdsf + step * q.dsqdsf), p.s, &p.sf);
}

}  // namespace tarvo
