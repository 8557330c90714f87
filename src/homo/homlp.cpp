// The linear optimiser: a primal-dual method on the homogeneous and self-dual model with Mehrotra's corrector, multiple
// centrality correctors (Gondzio 1996) and a ladder of regularisation levels that is climbed when numbers go bad. The
// last point that passed the tests of progress is kept, and a point that fails them is given up for it.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

constexpr int32_t maxlevel = 9;          // of regularisation
constexpr double tinygap = 1e-12;        // per pair: `delay` has nothing left to wait for
constexpr double hopelessgap = 1e-32;    // per pair: no more to come, the loose tests will do
constexpr double meritfloor = 1e-8;      // residuals below this need not fall
constexpr double baddirection = 1000.0;  // dx'ds of an affine direction, zero in exact arithmetic, over the gap

constexpr int32_t maxpolish = 3;   // iterations for less violation than the tolerances ask for
constexpr double finefeas = 1e-8;  // and where that ends

constexpr int32_t farstart = 4;  // see HomParams::sptype
constexpr int32_t maxidle = 15;  // iterations without progress

// What the iterations hand on to each other.
struct LpRun {
  HomState* h;
  int32_t iter0;          // the first iteration
  int32_t regulevel = 0;  // 0 exact directions; from 1 on by refinement; from 2 on with raised diagonals
  int32_t incregu = 0;    // wanted rise: 0 none, 1 to the next level, 2 past level 1
  bool delay = false;     // tau and kappa still decide between an optimum and a certificate
  bool usefast = false;   // the affine step nearly reaches the boundary's end
  bool good = true;       // the point shows no need for regularisation
  bool feasible = false;  // it passes the sharpest tests of feasibility: its residuals move by rounding only
  bool lax = false;       // no sharper test than the plain one has a chance
  bool stop = false;      // the run ends with this iteration
  int32_t stepidx = 0;    // where in the table of fractions steps begin
  double meritexp = 0.0, gapexp = 0.0, sumexp = 0.0;  // what the last step promised
  double meritold = 0.0;                              // meritfeasif of the last iteration
  double minpfeas = HUGE_VAL, mindfeas = HUGE_VAL;
  double savedxqxf = 0.0, savedsqsf = 0.0;
  double leastrel = HUGE_VAL, leastproof = HUGE_VAL;  // residuals and gap against tau, against kappa,
  int32_t idle = 0;                                   // and the iterations since one of them fell
  bool polishing = false;                             // the saved point passed the test (passlevel, passstrict)
  int32_t passlevel = 0;
  bool passstrict = false;
  int32_t polished = 0;         // iterations beyond the tolerances,
  double violation = HUGE_VAL;  // and what the last one of them began with

  // Of the affine direction and the step built on it.
  bool usestep = true, usecor = true, usemulcor = true;
  double a = 0.0, dxds = 0.0, status = 0.0;
  double gamma = 0.0, eta = 1.0;
};

// The sum of the products alone, which falls as a step promises; the geometric mean that cgapf has for the cone on top
// of it may rise while the cone is centred.
static double productsum(const HomState* h) { return h->cgapf - (h->nf > 0 ? std::sqrt(h->xqxf * h->sqsf) : 0.0); }

static void wantregularisation(LpRun* r, int32_t level) { r->incregu = std::max(r->incregu, level); }

// Did residuals and gap fall as the last step promised?
static void checkprogress(LpRun* r) {
  HomState* h = r->h;
  const double tau = h->point.tau;
  r->feasible = h->pfeasf <= 0.01 * (1.0 + h->bscale) * h->par.tolpfeas * tau &&
                h->dfeasf <= 0.01 * (1.0 + h->cscale) * h->par.toldfeas * tau;
  r->good = true;
  if (h->iter >= 3 && h->iter > r->iter0 && !r->feasible && h->meritfeas2f > std::max(r->meritexp, meritfloor)) {
    if (h->par.usereg) {
      hom_print(h, "Increase the regularization due to sufficient lack of merit decrease (%e>%e) in iteration %d.\n",
                h->meritfeas2f, r->meritexp, h->iter);
      wantregularisation(r, 2);
    }
    r->delay = false;
  }
  if (h->cgapf <= tinygap * h->n_c) r->delay = false;
  r->minpfeas = std::min(r->minpfeas, h->pfeasf);
  r->mindfeas = std::min(r->mindfeas, h->dfeasf);
  if (r->regulevel == 0 && h->iter > r->iter0 + 2 && !r->feasible &&
      (r->minpfeas < h->pfeasf || h->meritfeasif > r->meritold)) {
    hom_print(h, "No decrease in primal residuals. Increasing regularization.\n");
    wantregularisation(r, 1);
    r->good = false;
  }
  r->meritold = h->meritfeasif;
  // Directions of little accuracy can take residuals and gap down by taking tau and kappa down with them.
  // Against either of them they fall on the way to an optimum or to a certificate.
  const auto falls = [h](double size, double* least) {
    const double rel = (h->meritfeas2f + h->cgapf / size) / size;
    const bool fell = rel < 0.9 * *least;
    *least = std::min(*least, rel);
    return fell;
  };
  const bool byoptimum = falls(tau, &r->leastrel), byproof = falls(h->point.kappa, &r->leastproof);
  r->idle = byoptimum || byproof ? 0 : r->idle + 1;
  if (r->idle > maxidle) {
    hom_print(h, "Terminate due to numerical problems.\n");
    h->resp = HOM_RESP_STALL;
    r->stop = true;
  }
}

static void savepoint(LpRun* r) {
  HomState* h = r->h;
  hom_copyvec(h, h->point, &h->saved);
  std::copy_n(h->keys, h->n, h->savedkeys);
  std::copy_n(h->keysup, h->nu, h->savedkeysup);
  r->savedxqxf = h->xqxf;
  r->savedsqsf = h->sqsf;
}

static void restorekeys(HomState* h) {
  std::copy_n(h->savedkeys, h->n, h->keys);
  std::copy_n(h->savedkeysup, h->nu, h->keysup);
}

static void restorepoint(LpRun* r) {
  HomState* h = r->h;
  hom_copyvec(h, h->saved, &h->point);
  restorekeys(h);
  h->xqxf = r->savedxqxf;
  h->sqsf = r->savedsqsf;
  hom_inititer(h);
  r->meritold = h->meritfeasif;
}

// The largest violations of the given problem's rows and bounds, and of its dual rows.
static double violation(const HomState* h) {
  double primal = 0.0, dual = 0.0;
  const int32_t first = h->nb - h->nu;
  for (int32_t i = 0; i < h->m; ++i) primal = std::max(primal, std::abs(h->rp[i]) * h->rowscale[i]);
  for (int32_t i = 0; i < h->nu; ++i) primal = std::max(primal, std::abs(h->rpu[i]) / h->colscale[first + i]);
  for (int32_t j = 0; j < h->n; ++j) dual = std::max(dual, std::abs(h->rd[j]) * h->colscale[j]);
  return std::max(primal, dual * h->scale) / h->point.tau;
}

// Keeps the new point, or goes back to the last good one.
static void acceptpoint(LpRun* r) {
  HomState* h = r->h;
  r->lax = false;
  if (h->iter == r->iter0) return savepoint(r);
  r->lax = h->cgapf <= hopelessgap * h->n_c || (r->regulevel >= 2 && r->meritexp <= h->meritfeas2f);
  const bool gapok = h->cgapf <= r->gapexp || productsum(h) <= r->sumexp;
  const bool meritok = r->feasible || h->meritfeas2f <= r->meritexp ||
                       (h->pfeasf <= h->par.growth * r->minpfeas && h->dfeasf <= h->par.growth * r->mindfeas);
  if (r->polishing) {  // what passed already may only get better
    if (r->good && gapok && meritok && r->incregu == 0 && hom_checkterm(h, false, r->passlevel, r->passstrict) &&
        violation(h) < r->violation)
      return savepoint(r);
    r->incregu = 0;
    return restorepoint(r);
  }
  if (r->good && gapok && meritok) return savepoint(r);
  if (r->good) wantregularisation(r, 2);
  hom_print(h, "New solution is NOT accepted.\n");
  if (!gapok) hom_print(h, "Gap is not ok (cgapf=%e>%e=cgapt) \n", h->cgapf, r->gapexp);
  if (!meritok) hom_print(h, "Merit is not ok. (meritfeas=%e>%e=meritfeast) \n", h->meritfeas2f, r->meritexp);
  if (!h->par.usereg || r->regulevel >= maxlevel - 1) {
    hom_print(h, "Terminate due to numerical problems.\n");
    h->resp = HOM_RESP_STALL;
    r->stop = true;
  }
  restorepoint(r);
}

// An optimum within the tolerances, which are relative to the largest numbers of the problem: worth another iteration
// while violations that a user sees are left and the last iteration took most of them away.
static bool improves(LpRun* r, int32_t level, bool strict) {
  HomState* h = r->h;
  if (r->stop || r->incregu > 0 || r->regulevel > 0 || r->polished == maxpolish || h->iter >= h->par.maxiter)
    return false;
  const double now = violation(h), before = r->violation;
  r->violation = now;
  if (now <= finefeas || now > 0.5 * before) return false;
  ++r->polished;
  r->polishing = true;
  r->passlevel = level;
  r->passstrict = strict;
  return true;
}

static bool finished(LpRun* r, int32_t level, bool strict, const char* text) {
  HomState* h = r->h;
  if (!hom_checkterm(h, true, level, strict)) return false;
  if (h->solsta == HOM_SOL_OPTIMAL && improves(r, level, strict)) {
    h->prosta = HOM_PRO_UNKNOWN;
    h->solsta = HOM_SOL_UNKNOWN;
    return false;
  }
  hom_print(h, "%s", text);
  h->resp = HOM_RESP_OK;
  return true;
}

// The tests of the end, on the point at hand whether new or restored.
static bool terminated(LpRun* r) {
  HomState* h = r->h;
  const bool basis = h->par.wantbasis;
  int32_t level = basis && !r->lax ? -1 : 0;
  if (r->delay && !r->stop) level = -1;
  if (finished(r, level, basis, "Normal termination\n")) return true;
  if (r->stop) return true;
  if (r->regulevel > 3 && finished(r, 0, basis, "Normal termination. Large regulvel.\n")) return true;
  if (r->usefast) {
    hom_print(h, "Fast convergence indicated\n");
    // The plain tolerances: nothing is gained by a basis identification that starts from a worse point than a run
    // without one gives.
    if (basis && h->point.kappa <= std::sqrt(h->par.tolinfeas) * h->point.tau &&
        finished(r, 0, false, "Terminate because fast convergence.\n"))
      return true;
  }
  if (h->iter >= h->par.maxiter) h->resp = HOM_RESP_MAXITER;
  return false;
}

static bool relaxed(LpRun* r) {
  return r->regulevel > 5 && finished(r, 1, false, "Relaxed termination. Large regulevel.\n");
}

// One level up. False ends the run.
static bool raiselevel(LpRun* r) {
  HomState* h = r->h;
  if (!h->par.usereg) {
    h->resp = HOM_RESP_STALL;
    return false;
  }
  if (r->regulevel == 0) {
    r->regulevel = r->incregu < 2 ? 1 : 2;
    hom_print(h, "New regularization parameter: %e. ", h->reguomega);
  } else {
    if (r->regulevel >= 3 && (finished(r, 0, h->par.wantbasis, "Normal termination. Large regulvel.\n") || relaxed(r)))
      return false;
    ++r->regulevel;
  }
  hom_print(h, "Increase the regulevel to %d. incregu: %d\n", r->regulevel, r->incregu);
  r->incregu = 0;
  if (r->regulevel > maxlevel) h->resp = HOM_RESP_STALL;
  return h->resp == HOM_RESP_OK;
}

// Factors at the present level and computes the affine direction; a direction that is not accurate asks for the next
// level. False when the run has to stop.
static bool affine(LpRun* r) {
  HomState* h = r->h;
  hom_regularize(h, r->regulevel);
  const int32_t code = hom_factor(h);
  if (code != KKT_OK) {
    if (h->resp == HOM_RESP_OK) h->resp = code == KKT_CANCELLED ? HOM_RESP_CANCELLED : HOM_RESP_FACTOR;
    return false;
  }
  hom_initfree(h, r->regulevel);
  hom_initcomputations(h);
  const HomTarget target{.eta = 1.0, .mut = 0.0};
  if (r->regulevel == 0)
    hom_computesearch(h, target, &h->affine);
  else if (!hom_computesearchr(h, target, &h->affine))
    wantregularisation(r, 2);
  return true;
}

// Climbs the levels until an affine direction stands.
static bool finddirection(LpRun* r) {
  do {
    if (r->incregu > 0 && !raiselevel(r)) return false;
    if (!affine(r)) return false;
  } while (r->incregu > 0);
  return true;
}

// What the affine direction tells: the keys, the centring, whether the correctors may be trusted.
static void useaffine(LpRun* r) {
  HomState* h = r->h;
  const HomVec& p = h->point;
  r->a = hom_affinestep(h);
  double changes = h->n_c;
  if (r->a < 0.1)
    hom_print(h, "Status keys are not updated.\n");
  else
    changes = hom_updatekeys(h, h->affine);
  if (r->a > 0.8)
    r->stepidx = 0;
  else if (r->a > 0.5)
    r->stepidx = std::max(r->stepidx - 1, 0);
  r->dxds = hom_dxds(h, h->affine);
  r->status = h->affine.tau / p.tau - h->affine.kappa / p.kappa;
  r->usestep = true;
  if (r->regulevel == 0 && !(std::abs(r->dxds) < baddirection * h->cgapf)) {
    wantregularisation(r, 2);
    r->usestep = false;
  }
  r->usefast = 1.0 - r->a <= h->par.fasttol && changes <= 0.1 * h->n_c;
}

static void choosecentring(LpRun* r) {
  HomState* h = r->h;
  hom_corterms(h, h->affine, &h->cor);
  if (std::abs(r->dxds) > 0.1 * h->cgapf) {
    const double shift = -r->dxds / h->n_c;
    for (int32_t j = 0; j < h->nb; ++j) h->cor.pair[j] += shift;
    for (int32_t i = 0; i < h->nu; ++i) h->cor.up[i] += shift;
    if (h->nf > 0) h->cor.cone[0] += shift;
    h->cor.tk += shift;
  }
  r->usecor = true;
  r->usemulcor = r->regulevel == 0;
  r->gamma = std::max(1e-14, h->par.gammafac * (1.0 - r->a) * (1.0 - r->a));
  if (r->regulevel > 0) r->stepidx = 3;
  if (h->lpval <= h->par.tolpath) {  // badly centred: centre and nothing else
    r->stepidx = std::min(r->stepidx + 2, 3);
    r->gamma = std::max(r->gamma, h->par.gammafac);
    r->usecor = r->usemulcor = false;
  }
  r->eta = 1.0 - r->gamma;
}

static double fraction(const LpRun* r) {
  const HomState* h = r->h;
  const int32_t idx = h->lpval > 1e-5 || r->stepidx > 2 ? r->stepidx : r->stepidx + 1;
  const double frac = h->par.relstep * hom_steptable[idx];
  return h->nf > 0 && std::sqrt(h->xqxf / h->sqsf) * h->mu > 100.0 ? 0.995 * frac : frac;
}

// The combined direction and the step along it. False when the direction is not accurate.
static bool combined(LpRun* r, double frac, double* step) {
  HomState* h = r->h;
  const HomTarget target{.eta = r->eta, .mut = r->gamma * h->mu, .cor = r->usecor ? &h->cor : nullptr};
  if (r->regulevel == 0)
    hom_computesearch(h, target, &h->dir);
  else if (!hom_computesearchr(h, target, &h->dir))
    return false;
  const double beta = std::min(std::max(h->par.tolpath, h->lpval / 100.0), std::sqrt(h->par.tolpath));
  if (r->usemulcor) hom_mulcor2(h, r->gamma, beta, &h->dir);
  const HomSteps limits = hom_steplimits(h, 1.0 / frac, h->dir);
  *step = hom_neighbourstep(h, limits, r->gamma, frac, beta, r->regulevel > 0, h->dir);
  return true;
}

// Is it too early to believe a loose test? So while tau and kappa have not parted.
static bool undecided(const LpRun* r, double t) {
  const double infeas = r->h->par.tolinfeas, e = std::sqrt(infeas);
  const double tau = r->h->point.tau, kappa = r->h->point.kappa;
  const bool low = tau <= e * kappa;
  return (t > 0.1 && t < 0.8 && low && e * e * e * kappa <= tau) || (t > 0.1 && low && r->status >= -0.5) ||
         (t > 0.5 && low && r->status >= -0.9) || (t > 1e-5 && low && r->status >= 0.5) ||
         (t >= 0.7 && std::abs(r->status) > 0.6 && tau / kappa >= e * infeas);
}

static void stalled(LpRun* r, double step) {
  HomState* h = r->h;
  r->meritexp = h->meritfeas2f;
  r->gapexp = h->cgapf;
  r->sumexp = productsum(h);
  if (h->par.usereg) {
    hom_print(h, "The solver is stalled due to the short stepsize %-.2e (lpval: %e).\n", step, h->lpval);
    hom_print(h, "Increasing regulevel\n");
    wantregularisation(r, 2);
  } else {
    hom_print(h, "The solver is stalled due to the short stepsize %-.2e\n", step);
    h->resp = HOM_RESP_STALL;
  }
  hom_print(h, "!!! Skipping update of the solution\n");
}

// Steps along the combined direction; the corrector is given up once when it makes the step short.
static void steppoint(LpRun* r) {
  HomState* h = r->h;
  for (bool first = true;; first = false) {
    const double frac = fraction(r);
    double t = 0.0;
    if (!combined(r, frac, &t)) {
      hom_print(h, "Search direction is not accurate enough. Skipping the update.\n");
      wantregularisation(r, 2);
      return;
    }
    const double length = t * frac;
    const bool veryshort = length < h->par.tolstep;
    if (first && (r->usecor || r->usemulcor) && (veryshort || length < 0.25 * r->a)) {
      if (veryshort)
        hom_print(h, "Turn corrector off due to VERY short stepsize\n");
      else {
        hom_print(h, "Turn corrector off due to short stepsize compared to affine step.  (%e,%e)\n", length, r->a);
        r->usemulcor = false;
      }
      r->stepidx = std::min(r->stepidx + 1, 2);
      r->usecor = false;
      continue;
    }
    if (veryshort) return stalled(r, length);
    r->meritexp = h->meritfeas2f * std::max(1.0 - 0.1 * r->eta * t, 0.5);
    r->gapexp = (1.0 - 0.5 * r->eta * t) * h->cgapf;
    r->sumexp = (1.0 - 0.5 * r->eta * t) * productsum(h);
    if (!r->usecor) ++h->numdroppedcor;
    hom_takestep(h, t, h->dir);
    r->delay = undecided(r, t);
    return;
  }
}

// A stalled run may still be good enough; keys that a basis identification can use.
static void finish(LpRun* r) {
  HomState* h = r->h;
  if (h->resp == HOM_RESP_STALL) {
    if (hom_checkterm(h, true, 1, false))
      h->resp = HOM_RESP_OK;
    else if (h->iter > r->iter0)
      restorekeys(h);
  }
  if (h->solsta != HOM_SOL_OPTIMAL || h->resp == HOM_RESP_STALL) hom_finalkeys(h);
}

static void iterate(LpRun* r) {
  HomState* h = r->h;
  while (h->resp == HOM_RESP_OK) {
    hom_inititer(h);
    checkprogress(r);
    acceptpoint(r);
    if (terminated(r)) break;
    if (hom_report(h) != 0 || h->resp != HOM_RESP_OK) break;
    r->meritexp = h->meritfeas2f;
    r->gapexp = h->cgapf;
    r->sumexp = productsum(h);
    if (relaxed(r) || !finddirection(r)) break;
    useaffine(r);
    if (r->usestep) {
      choosecentring(r);
      steppoint(r);
    }
    ++h->iter;
  }
  finish(r);
}

void hom_optlp(HomState* h) {
  h->prosta = HOM_PRO_UNKNOWN;
  h->solsta = HOM_SOL_UNKNOWN;
  for (;;) {
    hom_start(h);
    LpRun run{h, h->iter};
    iterate(&run);
    if (h->resp != HOM_RESP_STALL || !h->par.usereg || h->par.sptype == farstart) return;
    hom_print(h, "Start again from far inside.\n");
    h->par.sptype = farstart;
    h->resp = HOM_RESP_OK;
  }
}

}  // namespace tarvo
