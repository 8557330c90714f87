// The starting point of the homogeneous optimisers: a multiple of the unit point, or, by default, that point moved by
// one predictor-corrector step and pushed back inside (in the spirit of Mehrotra, On the implementation of a
// primal-dual interior point method, 1992).
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

enum StartType : int32_t { START_HEURISTIC = 0, START_CONSTANT = 1, START_PRIMAL = 2, START_DUAL = 3, START_BOTH = 4 };

static double largest(const double* v, int64_t count) {
  double most = 0.0;
  for (int64_t k = 0; k < count; ++k) most = std::max(most, std::abs(v[k]));
  return most;
}

static double columnsize(const HomState* h, int32_t j) {
  return largest(h->a->val + h->a->ptrb[j], h->a->ptre[j] - h->a->ptrb[j]);
}

static void norms(HomState* h) {
  h->amax = 0.0;
  for (int32_t j = 0; j < h->n; ++j) h->amax = std::max(h->amax, columnsize(h, j));
  h->nrmc = largest(h->c, h->n);
  h->nrmb = std::max(largest(h->b, h->m), largest(h->u, h->nu));
  h->nrma = h->nu > 0 ? std::max(1.0, h->amax) : h->amax;
  h->bscale = std::max({1.0, h->amax, h->nrmb});
  h->cscale = std::max({1.0, h->amax, h->nrmc});
}

// So many correctors as stay cheap beside the factorisation.
static int32_t correctors(const HomState* h) {
  if (h->par.maxcor >= 0) return h->par.maxcor;
  const KktStats& kkt = kktfac_getstats(h->kkt);
  const double factor = (0.5 * kkt.flops + kkt.adaflops) / std::sqrt(std::max(1.0, double{1} * h->par.numthreads));
  const double solve =
      14.0 * h->n + 4.0 * h->m + 18.0 * h->nu + 2.0 * static_cast<double>(spmat_getnumnz(h->a)) + kkt.extraflops;
  static constexpr struct {
    double share;
    int32_t count;
  } table[] = {{0.7, 0}, {0.6, 1}, {0.3, 2}, {0.2, 3}, {0.1, 5}, {0.05, 7}};
  for (const auto& row : table)
    if (solve > row.share * (factor + solve)) return row.count;
  return 10;
}

// The levels of the primal variables and of the dual slacks.
struct Safe {
  double p, d;
};

static Safe safevalues(const HomState* h, double avgc) {
  Safe safe{h->par.psafe, h->par.dsafe};
  switch (h->par.sptype) {
    case START_HEURISTIC: {
      if (h->nf == 0 && h->nb > 0 && std::all_of(h->c, h->c + h->nb, [](double c) { return c >= 0.0; })) {
        const double cap = avgc >= h->nrmc / 100.0 ? 1000.0 : avgc >= h->nrmc / 1000.0 ? 100.0 : 10.0;
        safe.d = std::max(h->par.dsafe, std::min(std::max(h->par.dsafe, avgc), cap));
      }
      const double t = std::sqrt(std::sqrt(h->nrmb));
      if (100.0 * safe.p <= t) {
        safe.p = t;
        hom_print(h, "Increase psafe to : %e\n", safe.p);
      }
      break;
    }
    case START_PRIMAL:
      safe.p *= 100.0;
      break;
    case START_DUAL:
      safe.d *= 100.0;
      break;
    case START_BOTH:
      safe.p *= 100.0 * h->par.spgam;
      safe.d *= 100.0 * h->par.spgam;
      break;
    default:
      break;
  }
  return safe;
}

static void setdual(HomState* h, const Safe& safe) {
  HomVec& v = h->point;
  std::fill(v.s, v.s + h->nb, safe.d);
  std::fill(v.sup, v.sup + h->nu, safe.d);
  v.sf = h->nf > 0 ? safe.d : 0.0;
  v.kappa = safe.p * safe.d;
}

static double squares(const double* v, int32_t first, int32_t last) {
  double sum = 0.0;
  for (int32_t j = first; j < last; ++j) sum += v[j] * v[j];
  return sum;
}

static void setcone(HomState* h) {
  h->xqxf = h->point.xf * h->point.xf - squares(h->point.x, h->nb, h->n);
  h->sqsf = h->point.sf * h->point.sf - squares(h->point.s, h->nb, h->n);
}

static void unitpoint(HomState* h, const Safe& safe) {
  HomVec& v = h->point;
  std::fill(v.x, v.x + h->nb, safe.p);
  std::fill(v.x + h->nb, v.x + h->n, 0.0);
  std::fill(v.s + h->nb, v.s + h->n, 0.0);
  std::fill(v.xup, v.xup + h->nu, safe.p);
  std::fill(v.yup, v.yup + h->nu, 0.0);
  std::fill(v.y, v.y + h->m, 0.0);
  v.xf = h->nf > 0 ? safe.p : 0.0;
  v.tau = 1.0;
  setdual(h, safe);
  setcone(h);
  std::fill(h->keys, h->keys + h->n, HOM_KEY_PRIMAL);
  std::fill(h->keysup, h->keysup + h->nu, HOM_KEY_PRIMAL);
}

static void raise(double* v, int32_t count, double least) {
  for (int32_t k = 0; k < count; ++k) v[k] = v[k] > least ? v[k] : least;  // a NaN too
}

// One affine direction and a corrected one on top of it, towards a product that leaves room. False when the run has to
// stop.
static bool predictorstep(HomState* h) {
  hom_regularize(h, 0);
  const int32_t code = hom_factor(h);
  if (code != KKT_OK) {
    if (h->resp == HOM_RESP_OK) h->resp = code == KKT_CANCELLED ? HOM_RESP_CANCELLED : HOM_RESP_FACTOR;
    return false;
  }
  hom_initfree(h, 0);
  hom_initcomputations(h);
  hom_computesearch(h, HomTarget{.eta = 1.0, .mut = 0.0}, &h->affine);
  const double a = hom_affinestep(h);
  hom_corterms(h, h->affine, &h->cor);
  const double target = (1.0 - a) * h->par.spgam * h->cgapf / h->n_c;
  hom_computesearch(h, HomTarget{.eta = 1.0, .mut = target, .cor = &h->cor}, &h->dir);
  const double tau = h->point.tau, dtau = h->dir.tau;
  hom_takestep(h, tau + dtau < 0.01 * tau ? -0.99 * tau / dtau : 1.0, h->dir);
  return true;
}

// Brings the point back inside.
static void clamp(HomState* h, const Safe& safe) {
  HomVec& v = h->point;
  raise(v.x, h->nb, safe.p);
  raise(v.xup, h->nu, safe.p);
  raise(v.s, h->nb, safe.d);
  raise(v.sup, h->nu, safe.d);
  if (h->nf > 0) {
    std::fill(v.s + h->nb, v.s + h->n, 0.0);
    v.sf = std::max(v.sf, safe.d);
    v.xf = std::max(v.xf, std::sqrt(safe.p * safe.p + squares(v.x, h->nb, h->n)));
  }
  v.tau = std::max(v.tau, 1.0);
  v.kappa = 1.0;
  setcone(h);
}

// Pushes the heavy side of the point up to the size of the gap.
static void pushheavy(HomState* h) {
  const int32_t type = h->par.sptype;
  if (type < START_PRIMAL) return;
  HomVec& v = h->point;
  const double t = type == START_BOTH ? std::sqrt(std::sqrt(h->cgapf)) : std::sqrt(h->cgapf);
  if (type != START_DUAL) {
    for (int32_t j = 0; j < h->nb; ++j) v.x[j] = std::max(v.x[j], t / std::max(1.0, columnsize(h, j)));
    raise(v.xup, h->nu, t);
    if (h->nf > 0) v.xf = std::max(v.xf, std::sqrt(t * t + squares(v.x, h->nb, h->n)));
  }
  if (type != START_PRIMAL) {
    raise(v.s, h->nb, t);
    raise(v.sup, h->nu, t);
    if (h->nf > 0) v.sf = std::max(v.sf, std::sqrt(t * t + squares(v.s, h->nb, h->n)));
  }
  setcone(h);
}

static void balance(HomState* h, const Safe& safe, double avgc) {
  HomVec& v = h->point;
  if (h->pfeasf < 1e5 * h->dfeasf && std::max(h->pfeasf, h->dfeasf) < 1000.0 * h->gfeasf) {
    if (1000.0 * h->pfeasf > h->dfeasf) return;
    hom_print(h, "Increase the dual slacks because of large dual infeasibility\n");
    const double big = std::max(10000.0, 10.0 * avgc);
    for (int32_t j = 0; j < h->nb; ++j)
      if (v.x[j] > big) v.s[j] = std::max(v.s[j], std::sqrt(v.x[j]));
    raise(v.x, h->nb, 10.0 * safe.p);
    raise(v.s, h->nb, 10.0 * safe.d);
    raise(v.xup, h->nu, 10.0 * safe.p);
  } else {
    constexpr double least = 100.0;
    hom_print(h, "Increase the dual slacks to at least %e.\n", least);
    raise(v.s, h->nb, least);
    raise(v.sup, h->nu, least);
    if (h->nf > 0) v.sf = std::max(v.sf, std::sqrt(squares(v.s, h->nb, h->n) + least * least));
  }
  setcone(h);
}

double hom_affinestep(HomState* h) {
  const HomSteps limits = hom_steplimits(h, 1.0, h->affine);
  const double a = std::min({limits.primal, limits.dual, 1.0});
  return h->nf > 0 ? std::min(a, hom_neighbourstep(h, limits, 0.0, 1.0, 0.0, false, h->affine)) : a;
}

void hom_start(HomState* h) {
  norms(h);
  h->maxncor = correctors(h);
  h->n_c = static_cast<double>(h->nb) + h->nu + 1 + (h->nf > 0 ? 1 : 0);
  double avgc = 0.0;
  for (int32_t j = 0; j < h->nb; ++j) avgc += std::abs(h->c[j]);
  if (h->nb > 0) avgc /= static_cast<double>(h->nb) + h->nu;

  Safe safe = safevalues(h, avgc);
  unitpoint(h, safe);
  // A quadratic term makes the predictor no better than that: as many iterations, one factorisation less, and no way
  // off to a far point when the problem is unbounded.
  const bool quad = h->nq > 0 || h->useh;
  if (quad || h->par.sptype == START_CONSTANT || h->par.maxiter == 0) return hom_inititer(h);

  hom_inititer(h);
  if (h->gfeasf <= std::max(h->pfeasf, h->dfeasf) / 100.0) {
    safe.d *= 100.0;
    hom_print(h, "Increase the dsafe to %e.\n", safe.d);
    setdual(h, safe);
    setcone(h);
    hom_inititer(h);
  }
  if (hom_report(h) == 0) {
    ++h->iter;
    if (predictorstep(h)) {
      clamp(h, safe);
      hom_inititer(h);
      if (!std::isfinite(h->meritfeas2f)) {  // the step was numerical nonsense
        unitpoint(h, safe);
        hom_inititer(h);
      }
      pushheavy(h);
      hom_inititer(h);
      balance(h, safe, avgc);
    }
  }
  hom_inititer(h);
}

}  // namespace tarvo
