// The convex quadratic optimiser: a primal-dual predictor-corrector method on the homogeneous quadratic model (Andersen
// and Ye, On a homogeneous algorithm for the monotone complementarity problem, Mathematical Programming 84, 1999). A
// quadratic term ties x to s, so primal and dual take one common step.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

constexpr int32_t maxlevel = hom_qolevels - 1;  // of regularisation
constexpr double baderror = 100.0;              // of a direction, over what the iteration can bear
constexpr double boundary = 0.9995;             // how near to the boundary a step goes, times relstep
constexpr int32_t patience = 25;                // iterations without a better point or a better certificate
constexpr double concavity = 1e-4;  // Q plus this part of its diagonal has to be semidefinite: data have few digits

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
  double bestproof = HUGE_VAL;  // of a certificate
  int32_t bestiter = 0;         // when one of the two became better
  double error = 0.0;           // of the affine direction
  int32_t nextsearch = 0;       // for a better level, not before this iteration
  double a = 0.0, dxds = 0.0, status = 0.0;
  double gamma = 0.0, eta = 1.0;
};

// Residuals in the problem's own terms and relative to its data.
static double rpfeasf(const HomState* h) { return h->pfeasf / (h->point.tau * (1.0 + h->bscale)); }
static double rdfeasf(const HomState* h) { return h->dfeasf / (h->point.tau * (1.0 + h->cscale)); }

// |pobj - dobj| over what the user sees as the objective. The complementarity alone would be no measure: multipliers
// can be so large that small residuals change the objective by much.
static double rgap(const HomState* h) {
  return std::abs(h->pobj - h->dobj) / (std::abs(h->dobj) + 1.0 / std::abs(h->par.objscale));
}

static double score(const HomState* h) {
  return std::max({rpfeasf(h) / h->par.tolpfeas, rdfeasf(h) / h->par.toldfeas, rgap(h) / h->par.tolgap});
}

static void savebest(QoRun* r) {
  HomState* h = r->h;
  const double now = score(h);
  const double proof = std::min(h->by > 0.0 ? h->dfeasinff / h->by : HUGE_VAL,
                                h->cx < 0.0 ? -std::max(h->pfeasinff, h->qfeasinff) / h->cx : HUGE_VAL);
  if (proof < 0.9 * r->bestproof) {
    r->bestproof = proof;
    r->bestiter = h->iter;
  }
  if (!(now < r->bestscore)) return;
  if (now < 0.9 * r->bestscore) r->bestiter = h->iter;
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

// The tests of the end. The certificates are those of a linear problem, with Q x among the residuals of a ray: an
// infeasible run never becomes feasible relative to tau, so they cannot wait for that.
static bool hom_checktermqo(QoRun* r) {
  HomState* h = r->h;
  hom_print(h, "tau: %e kappa: %e rp: %e rd: %e rgap: %e mu: %e\n", h->point.tau, h->point.kappa, rpfeasf(h),
            rdfeasf(h), rgap(h), h->mu);
  if (rpfeasf(h) <= h->par.tolpfeas && rdfeasf(h) <= h->par.toldfeas) {
    hom_print(h, "Is homogenous feasible\n");
    if (rgap(h) > h->par.tolgap)
      hom_print(h, "Large rel gap. Delay: %d\n", static_cast<int>(r->delay));
    else {
      h->prosta = HOM_PRO_FEASIBLE;
      h->solsta = HOM_SOL_OPTIMAL;
      return true;
    }
  }
  if (hom_checkterm(h, true, r->delay ? -1 : 0, false) && h->solsta != HOM_SOL_OPTIMAL) return true;
  h->prosta = HOM_PRO_UNKNOWN;
  h->solsta = HOM_SOL_UNKNOWN;
  return false;
}

// The best point of a run that could not go on may still be good enough. The gap may then be judged by the
// complementarity, as long as the objectives agree to what most users look at.
static void finish(QoRun* r) {
  constexpr double loosegap = 100.0;
  HomState* h = r->h;
  if (h->resp == HOM_RESP_STALL && (!hom_checkterm(h, true, 1, false) || h->solsta == HOM_SOL_OPTIMAL)) {
    restorebest(r);
    h->prosta = HOM_PRO_UNKNOWN;
    h->solsta = HOM_SOL_UNKNOWN;
    const HomParams& par = h->par;
    const bool feasible = rpfeasf(h) <= par.tolpfeas && rdfeasf(h) <= par.toldfeas;
    if (feasible && h->relgap <= par.tolgap && rgap(h) <= loosegap * par.tolgap)
      h->solsta = HOM_SOL_OPTIMAL;
    else if (score(h) <= par.tolnearrel)
      h->solsta = HOM_SOL_NEAROPTIMAL;
    if (h->solsta != HOM_SOL_UNKNOWN) h->prosta = HOM_PRO_FEASIBLE;
  }
  if (h->resp == HOM_RESP_STALL && h->solsta != HOM_SOL_UNKNOWN) h->resp = HOM_RESP_OK;
  if (h->solsta != HOM_SOL_OPTIMAL) hom_finalkeys(h);
}

// Multiplies Q from both sides by 2^sign e_j, e_j the exponents in `e`.
static void scalequadratic(HomState* h, const int32_t* e, int32_t sign) {
  for (int32_t k = 0; k < h->nq; ++k) h->q[k] = std::ldexp(h->q[k], sign * (e[h->qi[k]] + e[h->qj[k]]));
}

// Is Q positive semidefinite? The pivots of -(Q + D) for a small D tell, when Q has a diagonal of about 1 and no row
// weighs anything against it. The keys serve as scratch.
static void checkconvex(HomState* h) {
  bool convex = true;
  std::fill(h->wn1, h->wn1 + h->n, 1.0);
  std::fill(h->savedkeys, h->savedkeys + h->n, 0);
  for (int32_t k = 0; k < h->nq; ++k) {
    const int32_t j = h->qi[k];
    if (j != h->qj[k] || h->q[k] == 0.0) continue;
    convex = convex && h->q[k] > 0.0;
    h->savedkeys[j] = -std::ilogb(std::abs(h->q[k])) / 2;
    h->wn1[j] = concavity;
  }
  if (convex && !h->useh) {
    scalequadratic(h, h->savedkeys, 1);
    const int32_t code = kktfac_numfac(h->kkt, h->wn1, h->q, 1e20 * (1.0 + h->amax * h->amax), nullptr);
    scalequadratic(h, h->savedkeys, -1);
    if (code == KKT_CANCELLED && h->resp == HOM_RESP_OK) h->resp = HOM_RESP_CANCELLED;
    convex = code != KKT_OK || kktfac_getstats(h->kkt).wrongsign == 0;
  }
  if (!convex && h->resp == HOM_RESP_OK) h->resp = HOM_RESP_NOTCONVEX;
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

static HomTarget combined(QoRun* r) {
  return {.eta = r->eta, .mut = r->gamma * r->h->mu, .cor = r->usecor ? &r->h->cor : nullptr};
}

// Factors at a level and computes both directions. False ends the run.
static bool trylevel(QoRun* r, int32_t level) {
  HomState* h = r->h;
  r->level = level;
  const int32_t code = hom_qofactor(h, level);
  if (code != KKT_OK) {
    if (h->resp == HOM_RESP_OK) h->resp = code == KKT_CANCELLED ? HOM_RESP_CANCELLED : HOM_RESP_FACTOR;
    return false;
  }
  r->error = hom_qosearch(h, HomTarget{.eta = 1.0, .mut = 0.0}, &h->affine);
  if (r->error < HUGE_VAL) {
    choosecentring(r);
    r->error = std::max(r->error, hom_qosearch(h, combined(r), &h->dir));
  }
  hom_print(h, "Level %d: error: %e repaired: %d pi: %e (%e)\n", level, r->error, kktfac_getstats(h->kkt).repaired,
            h->pi, h->beta);
  return true;
}

// The directions at the present level; at the best level of all when they are inaccurate.
static bool finddirections(QoRun* r) {
  HomState* h = r->h;
  const int32_t given = r->level;
  if (!trylevel(r, given)) return false;
  if (r->error > baderror && (h->iter >= r->nextsearch || r->error == HUGE_VAL)) {
    const double error = r->error;
    double least = error;
    int32_t best = given;
    for (int32_t k = 1; k < hom_qolevels && r->error > baderror; ++k) {
      if (!trylevel(r, (given + k) % hom_qolevels)) return false;
      if (r->error < least) {
        least = r->error;
        best = r->level;
      }
    }
    if (r->level != best && !trylevel(r, best)) return false;
    if (r->error > 0.1 * error) r->nextsearch = h->iter + 4;  // nothing was gained: no search for a while
  }
  if (r->error == HUGE_VAL) h->resp = HOM_RESP_STALL;
  return h->resp == HOM_RESP_OK;
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
  double t = commonstep(h, h->dir, frac, r->gamma, beta);
  if (r->usecor && t < std::max(0.1 * r->a, h->par.tolstep)) {
    r->usecor = false;
    r->gamma = std::max(r->gamma, 0.25);
    r->eta = 1.0 - r->gamma;
    ++h->numdroppedcor;
    t = hom_qosearch(h, combined(r), &h->dir) < HUGE_VAL ? commonstep(h, h->dir, frac, r->gamma, beta) : 0.0;
  }
  hom_print(h, "a: %e dxds: %e gamma: %e t: %e status: %e lpval: %e\n", r->a, r->dxds, r->gamma, t, r->status,
            h->lpval);
  if (t <= h->par.tolstep) return false;
  hom_takestep(h, t, h->dir);
  r->delay = undecided(r, t);
  return true;
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
  if (h->resp == HOM_RESP_OK) checkconvex(h);
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
    if (h->iter >= h->par.maxiter)
      h->resp = HOM_RESP_MAXITER;
    else if (h->iter > r->bestiter + patience)
      h->resp = HOM_RESP_STALL;
    if (hom_report(h) != 0 || h->resp != HOM_RESP_OK) break;
    if (!finddirections(r)) break;
    if (!steppoint(r) && ++r->level > maxlevel) h->resp = HOM_RESP_STALL;
    ++h->iter;
  }
  finish(r);
  h->nf = nf;
}

}  // namespace tarvo
