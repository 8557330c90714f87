// The convex quadratic optimiser: a primal-dual predictor-corrector method on the homogeneous quadratic model (Andersen
// and Ye, On a homogeneous algorithm for the monotone complementarity problem, Mathematical Programming 84, 1999). A
// quadratic term ties x to s, so primal and dual take one common step.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

constexpr int32_t maxlevel = 3;      // of regularisation
constexpr double baderror = 100.0;   // of a direction, over what the iteration can bear
constexpr double boundary = 0.9995;  // how near to the boundary a step goes, times relstep
constexpr double concavity = 1e-9;   // z'Q z below this part of -|Q| z'z proves that Q is not convex

// What the iterations hand on to each other.
struct QoRun {
  HomState* h;
  int32_t iter0;
  int32_t level = 0;   // of regularisation
  bool delay = false;  // tau and kappa still decide between an optimum and a certificate
  bool usecor = true;
  double pfeas0 = 0.0, dfeas0 = 0.0;  // the first point's
  double minpfeas = HUGE_VAL, mindfeas = HUGE_VAL;
  double bestscore = HUGE_VAL;  // of the saved point
  double nrmq = 0.0;            // largest element of Q
  double a = 0.0, dxds = 0.0, status = 0.0;
  double gamma = 0.0, eta = 1.0;
};

// Residuals in the problem's own terms and relative to its data.
static double rpfeasf(const HomState* h) { return h->pfeasf / (h->point.tau * (1.0 + h->bscale)); }
static double rdfeasf(const HomState* h) { return h->dfeasf / (h->point.tau * (1.0 + h->cscale)); }

static double score(const HomState* h) {
  return std::max({rpfeasf(h) / h->par.tolpfeas, rdfeasf(h) / h->par.toldfeas, h->relgap / h->par.tolgap});
}

static void savebest(QoRun* r) {
  HomState* h = r->h;
  const double now = score(h);
  if (!(now < r->bestscore)) return;
  r->bestscore = now;
  hom_copyvec(h, h->point, &h->saved);
  std::copy_n(h->keys, h->n, h->savedkeys);
  std::copy_n(h->keysup, h->nu, h->savedkeysup);
}

static void restorebest(QoRun* r) {
  HomState* h = r->h;
  if (r->bestscore == HUGE_VAL) return;
  hom_print(h, "Restore a previous solution in iter: %d\n", h->iter);
  hom_copyvec(h, h->saved, &h->point);
  std::copy_n(h->savedkeys, h->n, h->keys);
  std::copy_n(h->savedkeysup, h->nu, h->keysup);
  hom_inititer(h);
}

// May the residuals of the new point stand beside those of earlier ones?
static bool acceptable(QoRun* r) {
  HomState* h = r->h;
  if (h->iter == r->iter0) {
    r->pfeas0 = h->pfeasf;
    r->dfeas0 = h->dfeasf;
  }
  const double p = 100.0 * h->par.tolpfeas * std::max(1.0, r->pfeas0);
  const double d = 100.0 * h->par.toldfeas * std::max(1.0, r->dfeas0);
  const bool good = h->pfeasf <= std::max(p, h->par.growth * r->minpfeas) &&
                    h->dfeasf <= std::max(d, h->par.growth * r->mindfeas) && std::isfinite(h->meritfeas2f);
  r->minpfeas = std::min(r->minpfeas, h->pfeasf);
  r->mindfeas = std::min(r->mindfeas, h->dfeasf);
  return good;
}

// The tests of the end. The certificates are those of a linear problem, whose residual contains Q x: an infeasible run
// never becomes feasible relative to tau, so they cannot wait for that.
static bool hom_checktermqo(QoRun* r) {
  HomState* h = r->h;
  if (rpfeasf(h) <= h->par.tolpfeas && rdfeasf(h) <= h->par.toldfeas) {
    hom_print(h, "Is homogenous feasible\n");
    if (h->relgap > h->par.tolgap) hom_print(h, "Large rel gap. Delay: %d\n", static_cast<int>(r->delay));
  }
  if (hom_checkterm(h, true, 0, false) && (h->solsta == HOM_SOL_OPTIMAL || !r->delay)) return true;
  h->prosta = HOM_PRO_UNKNOWN;
  h->solsta = HOM_SOL_UNKNOWN;
  if (hom_checkterm(h, true, -1, false)) return true;
  if (h->mu <= h->par.tolmured * h->mu0 && rpfeasf(h) <= 100.0 * h->par.tolpfeas &&
      rdfeasf(h) <= 100.0 * h->par.toldfeas && h->relgap <= h->par.tolgap) {
    h->prosta = HOM_PRO_FEASIBLE;
    h->solsta = HOM_SOL_OPTIMAL;
    return true;
  }
  return false;
}

// The best point of a run that could not go on may still be good enough.
static void finish(QoRun* r) {
  HomState* h = r->h;
  if (h->resp == HOM_RESP_STALL) {
    const bool certificate = hom_checkterm(h, true, 1, false) && h->solsta != HOM_SOL_OPTIMAL;
    if (!certificate) {
      restorebest(r);
      const double near = h->par.tolnearrel;
      h->prosta = HOM_PRO_UNKNOWN;
      h->solsta = HOM_SOL_UNKNOWN;
      if (!hom_checktermqo(r) && score(h) <= near) {
        h->prosta = HOM_PRO_FEASIBLE;
        h->solsta = HOM_SOL_NEAROPTIMAL;
      }
    }
    if (h->solsta != HOM_SOL_UNKNOWN) h->resp = HOM_RESP_OK;
  }
  if (h->solsta != HOM_SOL_OPTIMAL) hom_finalkeys(h);
}

// z'Q z along what a step changes in x / tau.
static bool concave(QoRun* r, const HomVec& dir) {
  HomState* h = r->h;
  double* z = h->wn2;
  double size = 0.0;
  for (int32_t j = 0; j < h->n; ++j) {
    z[j] = dir.x[j] - h->point.x[j] / h->point.tau * dir.tau;
    size += z[j] * z[j];
  }
  return hom_qotimes(h, z, h->wn3) < -concavity * r->nrmq * size;
}

// Factors; a pivot of the wrong sign or an inaccurate direction asks for more regularisation. False ends the run.
static bool affine(QoRun* r) {
  HomState* h = r->h;
  for (;; ++r->level) {
    const int32_t code = hom_qofactor(h, r->level);
    if (code != KKT_OK) {
      if (h->resp == HOM_RESP_OK) h->resp = code == KKT_CANCELLED ? HOM_RESP_CANCELLED : HOM_RESP_FACTOR;
      return false;
    }
    const bool wrong = kktfac_getstats(h->kkt).wrongsign > 0;
    const double error = wrong ? HUGE_VAL : hom_qosearch(h, HomTarget{.eta = 1.0, .mut = 0.0}, &h->affine);
    hom_print(h, "Factor at level %d: wrong signs: %d error: %e pi: %e (%e)\n", r->level,
              kktfac_getstats(h->kkt).wrongsign, error, h->pi, h->beta);
    if (error <= baderror) break;
    if (r->level == maxlevel) {
      if (wrong) h->resp = HOM_RESP_NOTCONVEX;
      if (!wrong && error == HUGE_VAL) h->resp = HOM_RESP_STALL;
      break;
    }
  }
  if (h->resp == HOM_RESP_OK && concave(r, h->affine)) h->resp = HOM_RESP_NOTCONVEX;
  return h->resp == HOM_RESP_OK;
}

static void choosecentring(QoRun* r) {
  HomState* h = r->h;
  const HomSteps limits = hom_steplimits(h, 1.0, h->affine);
  r->dxds = hom_dxds(h, h->affine);
  r->status = h->affine.tau / h->point.tau - h->affine.kappa / h->point.kappa;
  double a = std::min({limits.primal, limits.dual, 1.0});
  if (a >= 0.1) hom_updatekeys(h, h->affine);
  r->a = a;
  if (r->dxds > 0.0) a = std::min(a, 0.5 * h->cgapf / r->dxds);
  if (-r->dxds < 1000.0 * h->cgapf) {
    const double ratio = std::max(((1.0 - a) * h->cgapf + a * a * r->dxds) / h->cgapf, 0.0);
    r->gamma = std::max(1e-10, ratio * ratio * std::min(ratio, 0.25));
    r->usecor = true;
    hom_qocorterms(h, h->affine, &h->cor);
    // Products that sum to 0 leave the gap where the direction puts it.
    const double shift = -r->dxds / h->n_c;
    for (int32_t j = 0; j < h->nb; ++j) h->cor.pair[j] += shift;
    for (int32_t i = 0; i < h->nu; ++i) h->cor.up[i] += shift;
    h->cor.tk += shift;
  } else {
    r->gamma = 0.25;
    r->usecor = false;
  }
  r->eta = 1.0 - r->gamma;
}

// The longest step, from the boundary back, that keeps the products together and the gap falling; 0 without one.
static double commonstep(const HomState* h, const HomVec& dir, double frac, double gamma, double beta) {
  const HomVec& p = h->point;
  const HomSteps limits = hom_steplimits(h, 1.0 / frac, dir);
  const double most = std::min({limits.primal, limits.dual, 1.0 / frac}) * frac;
  double shrink = 0.1;
  for (int32_t k = 0;; ++k) {
    if (k >= hom_numsteps) shrink *= 0.1;
    const double t = most * (k < hom_numsteps ? hom_steptable[k] : shrink);
    if (!(t > h->par.tolstep)) return 0.0;
    const double tk = (p.tau + t * dir.tau) * (p.kappa + t * dir.kappa);
    double sum = tk, least = tk;
    for (int32_t j = 0; j < h->nb; ++j) {
      const double v = (p.x[j] + t * dir.x[j]) * (p.s[j] + t * dir.s[j]);
      sum += v;
      least = std::min(least, v);
    }
    for (int32_t i = 0; i < h->nu; ++i) {
      const double v = (p.xup[i] + t * dir.xup[i]) * (p.sup[i] + t * dir.sup[i]);
      sum += v;
      least = std::min(least, v);
    }
    if (least >= beta * sum / h->n_c && sum <= (1.0 - 0.1 * (1.0 - gamma) * t) * h->cgapf) return t;
  }
}

// Is it too early to believe a certificate? So while tau and kappa have not parted.
static bool undecided(const QoRun* r, double t) {
  const double tau = r->h->point.tau, kappa = r->h->point.kappa;
  return (t > 0.1 && kappa >= std::sqrt(r->h->par.tolinfeas) * tau && r->status >= 0.0) ||
         (t > 0.1 && tau >= kappa && r->status <= 0.0) || (t > 0.5 && kappa >= tau && r->status >= -0.5);
}

// Steps along the combined direction; without the corrector when that makes the step short. False without a step.
static bool steppoint(QoRun* r) {
  HomState* h = r->h;
  const double frac = boundary * h->par.relstep;
  const double beta = std::min(std::max(h->par.tolpath, h->lpval / 100.0), std::sqrt(h->par.tolpath));
  for (;;) {
    const HomTarget target{.eta = r->eta, .mut = r->gamma * h->mu, .cor = r->usecor ? &h->cor : nullptr};
    const double error = hom_qosearch(h, target, &h->dir);
    const double t = error < HUGE_VAL ? commonstep(h, h->dir, frac, r->gamma, beta) : 0.0;
    hom_print(h, "a: %e dxds: %e gamma: %e t: %e error: %e status: %e lpval: %e\n", r->a, r->dxds, r->gamma, t, error,
              r->status, h->lpval);
    if (r->usecor && t < std::max(0.1 * r->a, h->par.tolstep)) {
      r->usecor = false;
      r->gamma = std::max(r->gamma, 0.25);
      r->eta = 1.0 - r->gamma;
      ++h->numdroppedcor;
      continue;
    }
    if (t <= h->par.tolstep) return false;
    hom_takestep(h, t, h->dir);
    r->delay = undecided(r, t);
    return true;
  }
}

void hom_optqo(HomState* h) {
  HomTimer timer(&h->time.total);
  const int32_t nf = h->nf;
  h->nf = 0;  // free columns are variables of the Newton system like the others
  h->prosta = HOM_PRO_UNKNOWN;
  h->solsta = HOM_SOL_UNKNOWN;
  hom_start(h);
  QoRun run{.h = h, .iter0 = h->iter};
  QoRun* r = &run;
  for (int32_t k = 0; k < h->nq; ++k) r->nrmq = std::max(r->nrmq, std::abs(h->q[k]));
  while (h->resp == HOM_RESP_OK) {
    hom_inititer(h);
    if (acceptable(r)) {
      savebest(r);
      if (hom_checktermqo(r)) break;
    } else if (r->level < maxlevel) {
      ++r->level;
      restorebest(r);
    } else {
      h->resp = HOM_RESP_STALL;
      break;
    }
    if (h->iter >= h->par.maxiter) h->resp = HOM_RESP_MAXITER;
    if (hom_report(h) != 0 || h->resp != HOM_RESP_OK) break;
    if (!affine(r)) break;
    choosecentring(r);
    if (!steppoint(r) && ++r->level > maxlevel) h->resp = HOM_RESP_STALL;
    ++h->iter;
  }
  finish(r);
  h->nf = nf;
}

}  // namespace tarvo
