// Multiple centrality correctors (Gondzio, Computational Optimization and Applications 6, 1996): corrections of a
// direction that move products far from the mean back towards it, with a linear problem in two variables for how far to
// go along the direction and the correction.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

constexpr double outlier = 0.001;  // products below this share of the target, or above it by the inverse, are corrected

// A row a beta1 + b beta2 <= r.
struct StepRow {
  double a, b, r;
};

// Maximise beta1 subject to beta1 <= 1, beta2 >= 0, and for every pair x, s >= 0 and the linearised neighbourhood
//   x s + beta1 (s dx + x ds) + beta2 (s dxc + x dsc) >= low (1 - (1 - gamma) beta1),  low = nb2 mu.
struct StepProblem {
  const HomState* h;
  const HomVec *dir, *cor;
  double low, fall;  // fall = low (1 - gamma)
};

static StepRow pairrow(const StepProblem& q, int32_t kind, double x, double dx, double dxc, double s, double ds,
                       double dsc) {
  if (kind == 0) return {-dx, -dxc, x};
  if (kind == 1) return {-ds, -dsc, s};
  return {-(s * dx + x * ds + q.fall), -(s * dxc + x * dsc), x * s - q.low};
}

// Row k of pair k / 3; the last two rows are the bounds.
static StepRow steprow(const StepProblem& q, int64_t k) {
  const HomState* h = q.h;
  const HomVec &p = h->point, &d = *q.dir, &c = *q.cor;
  const int64_t pair = k / 3;
  const auto kind = static_cast<int32_t>(k % 3);
  if (pair < h->nb) return pairrow(q, kind, p.x[pair], d.x[pair], c.x[pair], p.s[pair], d.s[pair], c.s[pair]);
  const int64_t i = pair - h->nb;
  if (i < h->nu) return pairrow(q, kind, p.xup[i], d.xup[i], c.xup[i], p.sup[i], d.sup[i], c.sup[i]);
  if (i == h->nu) return pairrow(q, kind, p.tau, d.tau, c.tau, p.kappa, d.kappa, c.kappa);
  return kind == 0 ? StepRow{1.0, 0.0, 1.0} : StepRow{0.0, -1.0, 0.0};
}

// Dual simplex with two active rows, the rows scanned cyclically. False when there is no solution: a product below the
// neighbourhood makes it infeasible.
static bool stepproblem(const StepProblem& q, double* beta1, double* beta2) {
  constexpr double slack = 1e-6;
  constexpr int32_t maxpivots = 200;
  const int64_t numrows = 3 * (int64_t{q.h->nb} + q.h->nu + 1) + 2;
  StepRow active[2] = {{1.0, 0.0, 1.0}, {0.0, -1.0, 0.0}};
  *beta1 = 1.0;
  *beta2 = 0.0;
  int64_t k = 0;
  int32_t pivots = 0;
  for (int64_t satisfied = 0; satisfied < numrows; ++satisfied, k = k + 1 < numrows ? k + 1 : 0) {
    const StepRow row = steprow(q, k);
    const double left = row.a * *beta1 + row.b * *beta2;
    if (left <= row.r + slack * std::abs(row.r)) continue;
    if (++pivots > maxpivots) return false;
    // Multipliers y of the objective (1, 0) and e of the row over the active rows.
    const double det = active[0].a * active[1].b - active[1].a * active[0].b;
    const double y[2] = {active[1].b / det, -active[0].b / det};
    const double e[2] = {(row.a * active[1].b - row.b * active[1].a) / det,
                         (row.b * active[0].a - row.a * active[0].b) / det};
    int32_t leave = -1;
    for (int32_t i = 0; i < 2; ++i)
      if (e[i] > 0.0 && (leave < 0 || y[i] * e[leave] < y[leave] * e[i])) leave = i;
    if (leave < 0) return false;
    active[leave] = row;
    const double now = active[0].a * active[1].b - active[1].a * active[0].b;
    *beta1 = (active[0].r * active[1].b - active[1].r * active[0].b) / now;
    *beta2 = (active[0].a * active[1].r - active[1].a * active[0].r) / now;
    if (!std::isfinite(*beta1) || !std::isfinite(*beta2)) return false;
    satisfied = -1;
  }
  *beta1 = std::max(*beta1, 0.0);
  *beta2 = std::max(*beta2, 0.0);
  return true;
}

// What brings a product back to [least, most].
static double correction(double v, double least, double most) {
  return v < least ? v - least : v > most ? v - most : 0.0;
}

// The corrections of all pairs after a full step. The number of products off the target; their sum in *sum.
static int64_t corrections(HomState* h, double target, const HomVec& d, double* sum) {
  const HomVec& p = h->point;
  const double least = outlier * target, most = target / outlier;
  HomCor* cor = &h->extracor;
  int64_t count = 0;
  double total = 0.0;
  const auto note = [&](double v) {
    count += v != 0.0;
    total += v;
    return v;
  };
  for (int32_t j = 0; j < h->nb; ++j)
    cor->pair[j] = note(correction((p.x[j] + d.x[j]) * (p.s[j] + d.s[j]), least, most));
  for (int32_t i = 0; i < h->nu; ++i)
    cor->up[i] = note(correction((p.xup[i] + d.xup[i]) * (p.sup[i] + d.sup[i]), least, most));
  cor->tk = note(correction((p.tau + d.tau) * (p.kappa + d.kappa), least, most));
  if (h->nf > 0) std::fill(cor->cone, cor->cone + h->nf + 1, 0.0);
  *sum = total;
  return count;
}

// The step that a direction allows, at most 1; with free columns also inside their cone.
static double fullstep(HomState* h, const HomVec& dir) {
  const HomSteps limits = hom_steplimits(h, 1.0, dir);
  return std::min(limits.primal, limits.dual);
}

void hom_mulcor2(HomState* h, double gamma, double beta, HomVec* dir) {
  if (h->maxncor <= 0) return;
  HomTimer timer(&h->time.mulcor);
  HomVec* cor = &h->cordir;
  const double target = h->cgapf * gamma / h->n_c;
  double best = fullstep(h, *dir);
  int32_t used = 0;
  for (int32_t round = 0; round < h->maxncor; ++round) {
    double sum = 0.0;
    if (corrections(h, target, *dir, &sum) == 0) {
      hom_print(h, "No correction\n");
      break;
    }
    {
      HomTimer inner(&h->time.mulcorsd);
      hom_computesearch(h, HomTarget{.eta = 0.0, .mut = sum / h->n_c, .products = false, .cor = &h->extracor}, cor);
    }
    if (!(8.0 * std::abs(hom_dxds(h, *cor)) <= h->cgapf)) break;
    const double low = std::min(beta, h->par.tolpath) * h->mu;
    double beta1 = 0.0, beta2 = 0.0;
    if (!stepproblem({h, dir, cor, low, low * (1.0 - gamma)}, &beta1, &beta2)) break;
    if (beta2 < 1e-8 || !(beta1 > 0.0)) break;
    if (1.0 - beta1 * (1.0 - gamma) > 0.99 * (1.0 - best * (1.0 - gamma))) break;
    const bool accept = best <= beta1;
    hom_print(h, "accept: %s beta1: %e beta2: %e best: %e\n", accept ? "yes" : "no", beta1, beta2, best);
    if (!accept) break;
    const double t = beta2 / beta1;
    hom_addvec(h, t, *cor, dir);
    // The step problem knows nothing of the cone.
    if (h->nf > 0) {
      beta1 = std::min(beta1, fullstep(h, *dir));
      if (beta1 < best) {
        hom_addvec(h, -t, *cor, dir);
        break;
      }
    }
    best = beta1;
    ++used;
  }
  h->numcor += used;
}

}  // namespace tarvo
