// Multiple centrality correctors (Gondzio, Multiple centrality corrections in a primal-dual method for linear
// programming, 1996). Each is weighed against the direction by a linear problem in two step lengths.
#include <algorithm>
#include <cmath>

#include "homo/hom_internal.h"

namespace tarvo {

namespace {

constexpr double spread = 0.001;      // products between spread and 1 / spread of the target are left alone
constexpr double least_share = 1e-8;  // of the correction
constexpr double better = 0.99;       // what a correction must gain

// What is missing in a product at the full step.
double lack(double v, double low, double high) { return v < low ? v - low : v > high ? v - high : 0.0; }

// The terms that bring outlying products back; the number of these. The sum goes to *sum.
int32_t outliers(const HomState* h, double target, const HomVec& dir, HomCor* cor, double* sum) {
  const HomVec& p = h->point;
  const double low = spread * target, high = target / spread;
  int32_t count = 0;
  *sum = 0.0;
  const auto note = [&count, sum](double v) {
    count += v != 0.0 ? 1 : 0;
    *sum += v;
    return v;
  };
  for (int32_t j = 0; j < h->nb; ++j) cor->pair[j] = note(lack((p.x[j] + dir.x[j]) * (p.s[j] + dir.s[j]), low, high));
  for (int32_t i = 0; i < h->nu; ++i)
    cor->up[i] = note(lack((p.xup[i] + dir.xup[i]) * (p.sup[i] + dir.sup[i]), low, high));
  cor->tk = note(lack((p.tau + dir.tau) * (p.kappa + dir.kappa), low, high));
  if (h->nf > 0) std::fill_n(cor->cone, h->nf + 1, 0.0);
  return count;
}

// A row a1 beta1 + a2 beta2 <= r.
struct Row {
  double a1, a2, r;
};

// Maximises beta1 over rows by going round them with two active ones; false when it finds no way on. Start: beta1 = 1,
// beta2 = 0, held by beta1 <= 1 and beta2 >= 0.
class StepProblem {
 public:
  double beta1 = 1.0, beta2 = 0.0;

  // Brings a violated row into the active pair. False on a problem without solution.
  bool look(const Row& row) {
    const double left = row.a1 * beta1 + row.a2 * beta2;
    if (left <= row.r + 1e-6 * std::fabs(row.r)) return true;
    ++changes_;
    // Multipliers of the objective and of the new row over the active ones.
    const double det = p_.a1 * q_.a2 - p_.a2 * q_.a1;
    if (det == 0.0) return false;
    const double y1 = q_.a2 / det, y2 = -p_.a2 / det;
    const double e1 = (row.a1 * q_.a2 - row.a2 * q_.a1) / det, e2 = (p_.a1 * row.a2 - p_.a2 * row.a1) / det;
    if (!(e1 > 0.0) && !(e2 > 0.0)) return false;
    const bool first = e1 > 0.0 && (!(e2 > 0.0) || y1 / e1 <= y2 / e2);
    (first ? p_ : q_) = row;
    const double now = p_.a1 * q_.a2 - p_.a2 * q_.a1;
    if (std::fabs(now) < 1e-300) return false;
    beta1 = (p_.r * q_.a2 - p_.a2 * q_.r) / now;
    beta2 = (p_.a1 * q_.r - p_.r * q_.a1) / now;
    return true;
  }
  [[nodiscard]] int32_t changes() const { return changes_; }

 private:
  Row p_{1.0, 0.0, 1.0}, q_{0.0, -1.0, 0.0};
  int32_t changes_ = 0;
};

struct Weigh {
  const HomState* h;
  const HomVec &dir, &cor;
  double fall, floor;  // (1 - gamma) mu nb2, and nb2 mu

  bool pair(StepProblem* problem, double x, double s, double dx, double ds, double cx, double cs) const {
    return problem->look({-dx, -cx, x}) && problem->look({-ds, -cs, s}) &&
           problem->look({-(s * dx + x * ds + fall), -(s * cx + x * cs), x * s - floor});
  }
  bool round(StepProblem* problem) const {
    const HomVec& p = h->point;
    for (int32_t j = 0; j < h->nb; ++j)
      if (!pair(problem, p.x[j], p.s[j], dir.x[j], dir.s[j], cor.x[j], cor.s[j])) return false;
    for (int32_t i = 0; i < h->nu; ++i)
      if (!pair(problem, p.xup[i], p.sup[i], dir.xup[i], dir.sup[i], cor.xup[i], cor.sup[i])) return false;
    return pair(problem, p.tau, p.kappa, dir.tau, dir.kappa, cor.tau, cor.kappa) && problem->look({1.0, 0.0, 1.0}) &&
           problem->look({0.0, -1.0, 0.0});
  }
  // The two steps; false when there are none worth taking.
  bool solve(StepProblem* problem) const {
    constexpr int32_t most_rounds = 20;
    for (int32_t k = 0; k < most_rounds; ++k) {
      const int32_t before = problem->changes();
      if (!round(problem)) return false;
      if (problem->changes() == before) return true;
    }
    return false;
  }
};

}  // namespace

void hom_mulcor2(HomState* h, double gamma, double beta, HomVec* dir) {
  if (h->maxncor <= 0) return;
  const double begin = sysenv_cputime();
  const double target = gamma * h->mu;
  HomSteps limits = hom_steplimits(h, 1.0, *dir);
  double best = std::min(limits.primal, limits.dual);
  if (h->nf > 0) best = std::min(best, hom_neighbourstep(h, limits, gamma, 1.0, 0.0, false, *dir));
  HomVec* cor = &h->cordir;
  for (int32_t k = 0; k < h->maxncor; ++k) {
    double sum = 0.0;
    if (outliers(h, target, *dir, &h->extracor, &sum) == 0) {
      hom_print(h, "No correction\n");
      break;
    }
    const HomTarget aim{.eta = 0.0, .mut = sum / h->n_c, .products = false, .cor = &h->extracor};
    hom_computesearch(h, aim, cor);
    ++h->numcor;
    if (8.0 * std::fabs(hom_dxds(h, *cor)) > h->cgapf) break;
    const double nb2 = std::min(beta, h->par.tolpath);
    const Weigh weigh{h, *dir, *cor, nb2 * (1.0 - gamma) * h->mu, nb2 * h->mu};
    StepProblem problem;
    if (!weigh.solve(&problem)) break;
    if (!(problem.beta2 >= least_share) || !(problem.beta1 > 0.0)) break;
    if (1.0 - problem.beta1 * (1.0 - gamma) > better * (1.0 - best * (1.0 - gamma))) break;
    if (best > problem.beta1) break;
    hom_addvec(h, problem.beta2 / problem.beta1, *cor, dir);
    best = problem.beta1;
    h->maxcorused = std::max(h->maxcorused, k + 1);
  }
  h->time.mulcor += sysenv_cputime() - begin;
}

}  // namespace tarvo
