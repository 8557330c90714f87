// Step lengths: to the boundary, inside the neighbourhood of the central path, and the step itself.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

static double ratio(double x, double dx, double step) { return dx < 0.0 ? std::min(step, -x / dx) : step; }

static double ratios(int32_t n, const double* x, const double* dx, double step) {
  for (int32_t k = 0; k < n; ++k) step = ratio(x[k], dx[k], step);
  return step;
}

HomSteps hom_steplimits(const HomState* h, double cap, const HomVec& dir) {
  const HomVec& p = h->point;
  HomSteps s{};
  s.primal = s.dual = ratio(p.kappa, dir.kappa, ratio(p.tau, dir.tau, cap));
  s.primal = ratios(h->nu, p.xup, dir.xup, ratios(h->nb, p.x, dir.x, s.primal));
  s.dual = ratios(h->nu, p.sup, dir.sup, ratios(h->nb, p.s, dir.s, s.dual));
  if (h->nf == 0) return s;
  s.primal = ratio(p.xf, dir.xf, s.primal);
  s.dual = ratio(p.sf, dir.sf, s.dual);
  double xdx = p.xf * dir.xf, dxdx = dir.xf * dir.xf, sds = p.sf * dir.sf, dsds = dir.sf * dir.sf;
  for (int32_t j = h->nb; j < h->n; ++j) {
    xdx -= p.x[j] * dir.x[j];
    dxdx -= dir.x[j] * dir.x[j];
    sds -= p.s[j] * dir.s[j];
    dsds -= dir.s[j] * dir.s[j];
  }
  s.xqdxf = 2.0 * xdx;
  s.dxqdxf = dxdx;
  s.sqdsf = 2.0 * sds;
  s.dsqdsf = dsds;
  return s;
}

static bool pairs_above(int32_t n, const double* x, const double* dx, const double* s, const double* ds, double a,
                        double low) {
  for (int32_t k = 0; k < n; ++k)
    if (!((x[k] + a * dx[k]) * (s[k] + a * ds[k]) >= low)) return false;
  return true;
}

// Do all products at step a reach `low`?
static bool inside(const HomState* h, const HomSteps& limits, double a, double low, const HomVec& dir) {
  const HomVec& p = h->point;
  if (!((p.tau + a * dir.tau) * (p.kappa + a * dir.kappa) >= low)) return false;
  if (h->nf > 0) {
    const double xqx = h->xqxf + a * (limits.xqdxf + a * limits.dxqdxf);
    const double sqs = h->sqsf + a * (limits.sqdsf + a * limits.dsqdsf);
    if (!(xqx > 0.0 && sqs > 0.0 && std::sqrt(xqx * sqs) >= low)) return false;
  }
  return pairs_above(h->nb, p.x, dir.x, p.s, dir.s, a, low) &&
         pairs_above(h->nu, p.xup, dir.xup, p.sup, dir.sup, a, low);
}

double hom_neighbourstep(HomState* h, const HomSteps& limits, double gamma, double frac, double beta, bool gapcheck,
                         const HomVec& dir) {
  constexpr double smallgap = 1e-8;  // below this the gap at a step is computed, not predicted
  const bool exact = h->cgapf <= smallgap;
  const double dxds = exact || gapcheck ? hom_dxds(h, dir) : 0.0, xds = exact || gapcheck ? hom_xds(h, dir) : 0.0;
  const double boundary = std::min(limits.primal, limits.dual) * frac;
  double a = boundary;
  for (int32_t k = 0;; ++k) {
    a = k < hom_numsteps ? boundary * hom_steptable[k] : 0.1 * a;
    if (!(a > h->par.tolstep)) return 0.0;
    if (gapcheck && (xds + a * dxds) / h->cgapf > -0.5 * (1.0 - gamma)) {
      hom_print(h, "!!!! Decrease in GAP failure %e > %e a: %e dxds: %e xdssdx: %e\n", (xds + a * dxds) / h->cgapf,
                -0.5 * (1.0 - gamma), a, dxds, xds);
      continue;
    }
    const double gap = exact ? h->cgapf + a * (xds + a * dxds) : (1.0 - (1.0 - gamma) * a) * h->cgapf;
    if (inside(h, limits, a, gap * beta / h->n_c, dir)) return a;
  }
}

static void move(int32_t n, double step, const double* dx, double* x) {
  for (int32_t k = 0; k < n; ++k) x[k] += step * dx[k];
}

void hom_takestep(HomState* h, double step, const HomVec& dir) {
  HomVec& p = h->point;
  move(h->n, step, dir.x, p.x);
  move(h->n, step, dir.s, p.s);
  move(h->nu, step, dir.xup, p.xup);
  move(h->nu, step, dir.yup, p.yup);
  move(h->nu, step, dir.sup, p.sup);
  move(h->m, step, dir.y, p.y);
  p.xf += step * dir.xf;
  p.sf += step * dir.sf;
  p.tau += step * dir.tau;
  p.kappa += step * dir.kappa;
  // Computed afresh: the scaling of the cone has to fit the point to the last digit.
  h->xqxf = p.xf * p.xf;
  h->sqsf = p.sf * p.sf;
  for (int32_t j = h->nb; j < h->n; ++j) {
    h->xqxf -= p.x[j] * p.x[j];
    h->sqsf -= p.s[j] * p.s[j];
  }
}

}  // namespace tarvo
