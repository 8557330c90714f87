// The iteration of the conic optimiser.
#include <algorithm>
#include <cmath>
#include <limits>

#include "homo/intpnt_internal.h"

namespace tarvo {

void intpnt_start(IntpntState* h) {
  IntpntVec* p = &h->point;
  const double q = h->par.psafe;  // the scaled elements are near 1
  std::fill_n(p->x, h->n, 0.0);
  std::fill_n(p->s, h->n, 0.0);
  std::fill_n(p->y, h->m, 0.0);
  std::fill_n(p->x, h->nb, q);
  std::fill_n(p->s, h->nb, q);
  for (double* list : {p->xup, p->sup}) std::fill_n(list, h->nu, q);
  std::fill_n(p->yup, h->nu, 0.0);
  for (int32_t k = 0; k < h->numcone; ++k) p->x[h->cnebeg[k]] = p->s[h->cnebeg[k]] = q;
  p->tau = p->kappa = q;
  h->iter = 0;
}

void intpnt_inititer(IntpntState* h) {
  const IntpntVec& p = h->point;
  IntpntMeasures* mea = &h->mea;
  const int32_t first = h->nb - h->nu;
  *mea = {};
  intpnt_timesa(h, p.x, h->wm1);
  for (int32_t i = 0; i < h->m; ++i) {
    const double unit = 1.0 / h->rowscale[i];
    h->rp[i] = h->b[i] * p.tau - h->wm1[i];
    mea->pfeasf = std::max(mea->pfeasf, unit * std::fabs(h->rp[i]));
    mea->pfeasinf = std::max(mea->pfeasinf, unit * std::fabs(h->wm1[i]));
    mea->by += h->b[i] * p.y[i];
  }
  intpnt_timesat(h, p.y, h->wn1);
  for (int32_t i = 0; i < h->nu; ++i) {
    const double unit = h->colscale[first + i], dualunit = 1.0 / h->colscale[first + i];
    const double sum = p.x[first + i] + p.xup[i];
    h->ru[i] = h->u[i] * p.tau - sum;
    h->rs[i] = -(p.yup[i] + p.sup[i]);
    h->wn1[first + i] += p.yup[i];
    mea->by += h->u[i] * p.yup[i];
    mea->cgapf += p.xup[i] * p.sup[i];
    mea->pfeasf = std::max(mea->pfeasf, unit * std::fabs(h->ru[i]));
    mea->pfeasinf = std::max(mea->pfeasinf, unit * sum);
    mea->dfeasf = std::max(mea->dfeasf, dualunit * std::fabs(h->rs[i]));
    mea->dfeasinf = std::max(mea->dfeasinf, dualunit * std::fabs(h->rs[i]));
  }
  for (int32_t j = 0; j < h->n; ++j) {
    const double dualunit = 1.0 / h->colscale[j];
    const double sum = h->wn1[j] + p.s[j];
    h->rd[j] = h->c[j] * p.tau - sum;
    mea->cx += h->c[j] * p.x[j];
    mea->cgapf += p.x[j] * p.s[j];
    mea->dfeasf = std::max(mea->dfeasf, dualunit * std::fabs(h->rd[j]));
    mea->dfeasinf = std::max(mea->dfeasinf, dualunit * std::fabs(sum));
  }
  h->rg = mea->by - mea->cx - p.kappa;
  mea->cgapf += p.tau * p.kappa;
  mea->mu = mea->cgapf / h->n_c;
  mea->rpfeasf = h->fp * mea->pfeasf;
  mea->rdfeasf = h->fd * mea->dfeasf;
  const double cx = mea->cx / p.tau, by = mea->by / p.tau;
  mea->pobj = cx + h->prob->cfix;
  mea->dobj = by + h->prob->cfix;
  const double gap = std::fabs(cx - by), denominator = 1.0 + std::fabs(by + h->prob->cfix);
  mea->relgap = gap / denominator;
  const double complementarity = mea->cgapf / (p.tau * p.tau);
  mea->comprelgap = complementarity / denominator;
  mea->nearrelgap = std::min(complementarity, gap) / denominator;
}

namespace {

// What the loop remembers of the points passed.
struct Course {
  double minp = std::numeric_limits<double>::infinity(), mind = std::numeric_limits<double>::infinity();
  double expgap = -1.0;  // no gap is below it
  double bestmerit = std::numeric_limits<double>::infinity();
  bool gapfail = false;  // the last step looked like one towards a certificate: the tests are stricter
};

void copy_vec(const IntpntState* h, const IntpntVec& from, IntpntVec* to) {
  std::copy_n(from.x, h->n, to->x);
  std::copy_n(from.s, h->n, to->s);
  std::copy_n(from.y, h->m, to->y);
  std::copy_n(from.xup, h->nu, to->xup);
  std::copy_n(from.yup, h->nu, to->yup);
  std::copy_n(from.sup, h->nu, to->sup);
  to->tau = from.tau;
  to->kappa = from.kappa;
}

// The violations that count as none. At first relative to the right-hand sides alone: with the elements of the rows in
// it, as in a run that can't go on, a problem of many columns would end far from its optimum.
double primal_tolerance(const IntpntState* h, bool strict) {
  return (1.0 + (strict ? h->nrmb : 1.0 / h->fp)) * h->par.tolp * h->point.tau;
}
double dual_tolerance(const IntpntState* h, bool strict) {
  return (1.0 + (strict ? h->nrmc : 1.0 / h->fd)) * h->par.told * h->point.tau;
}

// How far the point is from optimality: at most 1 there.
double merit(const IntpntState* h) {
  return std::max({h->mea.pfeasf / primal_tolerance(h, true), h->mea.dfeasf / dual_tolerance(h, true),
                   std::max(h->mea.relgap, h->mea.comprelgap) / h->par.tolgap});
}

// The primal one wins when it is relatively better.
bool certificate(IntpntState* h, double f) {
  const IntpntMeasures& mea = h->mea;
  const double eps = f * h->par.tolinf;
  const bool dual = mea.cx < 0.0 && std::max(h->nrmc, 1e-300) / std::max(1.0, h->nrmb) * mea.pfeasinf <= -mea.cx * eps;
  const bool primal = mea.by > 0.0 && std::max(h->nrmb, 1e-300) / std::max(1.0, h->nrmc) * mea.dfeasinf <= mea.by * eps;
  if (primal && (!dual || mea.dfeasinf / mea.by < mea.pfeasinf / -mea.cx)) {
    h->prosta = INTPNT_PRO_PRIMINFEAS;
    h->solsta = f > 1.0 ? INTPNT_SOL_NEARPRIMCER : INTPNT_SOL_PRIMCER;
    intpnt_print(h, 1, "The problem is primal infeasible\n");
    return true;
  }
  if (!dual) return false;
  h->prosta = INTPNT_PRO_DUALINFEAS;
  h->solsta = f > 1.0 ? INTPNT_SOL_NEARDUALCER : INTPNT_SOL_DUALCER;
  return true;
}

// An optimum asks for the complementarity gap as well: residuals that are small one by one can make the objectives
// agree far from the optimum when there are many of them.
bool terminated(IntpntState* h, double f, bool strict) {
  constexpr double share = 0.01;  // of the complementarity gap, in a run that can't go on
  const double gap = f > 1.0 ? h->mea.nearrelgap : std::max(h->mea.relgap, (strict ? 1.0 : share) * h->mea.comprelgap);
  if (h->mea.pfeasf <= f * primal_tolerance(h, strict) && h->mea.dfeasf <= f * dual_tolerance(h, strict) &&
      gap <= f * h->par.tolgap) {
    h->prosta = INTPNT_PRO_FEASIBLE;
    h->solsta = f > 1.0 ? INTPNT_SOL_NEAROPTIMAL : INTPNT_SOL_OPTIMAL;
    return true;
  }
  return certificate(h, f);
}

// The run can't go on: it ends with the best point passed and whatever holds there, at worst near the tolerances. The
// code of a stall stays, but for a point that is within them.
void stalled(IntpntState* h, const Course& course) {
  intpnt_print(h, 1, "Stalled(%e,%e,%e,%e,%e) due to numerical problems.\n", h->mea.pfeasf, h->mea.dfeasf, h->mea.cgapf,
               course.expgap, h->mea.relgap);
  h->resp = HOM_RESP_STALL;
  h->prosta = h->solsta = 0;
  if (terminated(h, 1.0, false)) {
    h->resp = HOM_RESP_OK;
    return;
  }
  // Away from an optimum no point is better than a later one.
  const bool near = course.bestmerit <= h->par.tolnear;
  if (near && !(merit(h) <= course.bestmerit)) {
    copy_vec(h, h->best, &h->point);
    intpnt_inititer(h);
  }
  if (terminated(h, 1.0, false))
    h->resp = HOM_RESP_OK;
  else
    terminated(h, h->par.tolnear, false);
}

int32_t report(IntpntState* h) {
  if (h->events.status == nullptr) return 0;
  const HomReport r{h->iter,       h->mea.pobj,   h->mea.dobj,  h->point.kappa / h->point.tau,
                    h->mea.pfeasf, h->mea.dfeasf, h->mea.cgapf, &symles_stats(h)};
  return h->events.status(h->events.handle, r);
}

bool finite(const IntpntState* h) {
  return std::isfinite(h->mea.pfeasf + h->mea.dfeasf + h->mea.cgapf + h->mea.relgap);
}

// Whether the last step kept its promise: the gap fell, or both feasibilities do.
bool progressing(IntpntState* h, const Course& course) {
  const IntpntMeasures& mea = h->mea;
  if (h->iter > 0 && mea.cgapf < course.expgap) return true;
  return (mea.pfeasf <= h->par.stallfactor * course.minp || mea.rpfeasf <= h->par.tolp) &&
         (mea.dfeasf <= h->par.stallfactor * course.mind || mea.rdfeasf <= h->par.told);
}

void take_step(IntpntState* h, double t) {
  IntpntVec* p = &h->point;
  const IntpntVec& d = h->dir;
  const auto move = [t](int32_t n, double* x, const double* dx) {
    for (int32_t k = 0; k < n; ++k) x[k] += t * dx[k];
  };
  move(h->n, p->x, d.x);
  move(h->n, p->s, d.s);
  move(h->m, p->y, d.y);
  move(h->nu, p->xup, d.xup);
  move(h->nu, p->yup, d.yup);
  move(h->nu, p->sup, d.sup);
  p->tau += t * d.tau;
  p->kappa += t * d.kappa;
  h->stepsize = t;
}

void log_residuals(IntpntState* h, const IntpntTarget& target) {
  if (h->par.loglevel <= 3) return;
  const IntpntResiduals r = intpnt_improvesearch(h, target);
  intpnt_print(h, 4, "pres: %.1e dres: %.1e gres: %.1e cres: %.1e\n", r.primal, r.dual, r.gap, r.comp);
}

// One iteration from a factored matrix: the affine direction, its centring, the corrected direction, the step. False
// when no step is possible.
bool iterate(IntpntState* h, Course* course) {
  intpnt_initsearch(h);
  log_residuals(h, {1.0, 0.0, false});
  const double a = intpnt_stepsize(h, true, 1.0, 1.0, 0.0);
  const double status = h->dir.tau / h->point.tau - h->dir.kappa / h->point.kappa;
  intpnt_secondorder(h);
  const double gamma = std::max(1e-16, (1.0 - a) * (1.0 - a) * std::min(0.5, 1.0 - a));
  const double eta = 1.0 - gamma, mut = gamma * h->mea.mu;
  double t = 0.0;
  for (const bool corrector : {true, false}) {
    const IntpntTarget target{eta, mut, corrector};
    intpnt_formsearch(h, target);
    log_residuals(h, target);
    t = intpnt_stepsize(h, false, eta, 0.999, 1e-6);
    if (t > std::max(h->par.minstep, a / 10.0)) break;
  }
  intpnt_print(h, 4, "affine %.3e gamma %.1e step %.3e tau %.2e kappa %.2e\n", a, gamma, t, h->point.tau,
               h->point.kappa);
  if (!(t > h->par.minstep)) {
    intpnt_print(h, 1, "Stalled with a step size of: %e\n", t);
    return false;
  }
  course->expgap = (1.0 - 0.5 * t * eta) * h->mea.cgapf;
  take_step(h, t);
  const double e = std::sqrt(h->par.tolinf), tau = h->point.tau, kappa = h->point.kappa;
  course->gapfail =
      (t > 0.1 && tau <= e * kappa && status >= -0.5) || (t > 0.5 && e * e * e * kappa <= tau && tau <= e * kappa);
  return true;
}

}  // namespace

void intpnt_coneopt(IntpntState* h) {
  Course course;
  bool scaled = intpnt_initscaling(h);
  for (;; ++h->iter) {
    intpnt_inititer(h);
    const int32_t stop = report(h);
    if (stop != 0) {
      h->resp = stop;
      return;
    }
    if (!finite(h) || !scaled || !progressing(h, course)) return stalled(h, course);
    course.minp = std::min(course.minp, h->mea.pfeasf);
    course.mind = std::min(course.mind, h->mea.dfeasf);
    if (terminated(h, course.gapfail ? 0.01 : 1.0, true)) return;
    if (h->iter >= h->par.maxiter) {
      h->resp = HOM_RESP_MAXITER;
      return;
    }
    if (const double now = merit(h); now < course.bestmerit) {
      course.bestmerit = now;
      copy_vec(h, h->point, &h->best);
    }
    const int32_t factored = symles_numericalfactor(h);
    if (factored != KKT_OK) {
      if (h->resp == HOM_RESP_OK) h->resp = factored == KKT_CANCELLED ? HOM_RESP_CANCELLED : HOM_RESP_FACTOR;
      return;
    }
    if (!iterate(h, &course)) return stalled(h, course);
    scaled = intpnt_updatescaling(h, h->stepsize);
  }
}

}  // namespace tarvo
