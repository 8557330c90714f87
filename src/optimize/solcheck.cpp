#include "optimize/solcheck.h"

#include <algorithm>
#include <cmath>

#include "tarvo.h"

namespace tarvo {

namespace {

bool has_lower(int32_t bk) { return bk == TRV_BK_LO || bk == TRV_BK_RA || bk == TRV_BK_FX; }
bool has_upper(int32_t bk) { return bk == TRV_BK_UP || bk == TRV_BK_RA || bk == TRV_BK_FX; }

// The larger of two measures; a NaN wins and stays.
double worst(double measure, double value) { return value > measure || std::isnan(value) ? value : measure; }

// One side of the problem (rows or columns) with its bounds, values and multipliers.
struct Side {
  int32_t count;
  const int32_t* bk;
  const double *bl, *bu, *x, *sl, *su;
};

Side rows(const CheckProblem& p, const CheckSolution& s) { return {p.numcon, p.bkc, p.blc, p.buc, s.xc, s.slc, s.suc}; }
Side columns(const CheckProblem& p, const CheckSolution& s) {
  return {p.numvar, p.bkx, p.blx, p.bux, s.xx, s.slx, s.sux};
}

double boundviolation(const Side& side, double scale) {
  double result = 0.0;
  for (int32_t k = 0; k < side.count; ++k) {
    if (has_lower(side.bk[k])) result = worst(result, scale * side.bl[k] - side.x[k]);
    if (has_upper(side.bk[k])) result = worst(result, side.x[k] - scale * side.bu[k]);
  }
  return result;
}

double dualboundsum(const Side& side) {
  double sum = 0.0;
  for (int32_t k = 0; k < side.count; ++k) {
    if (has_lower(side.bk[k])) sum += side.bl[k] * side.sl[k];
    if (has_upper(side.bk[k])) sum -= side.bu[k] * side.su[k];
  }
  return sum;
}

// A multiplier must have the sign of the objective's sense, and be 0 where its bound does not exist.
double dualviolation(const Side& side, double sign) {
  double result = 0.0;
  for (int32_t k = 0; k < side.count; ++k) {
    result = worst(result, has_lower(side.bk[k]) ? -sign * side.sl[k] : std::fabs(side.sl[k]));
    result = worst(result, has_upper(side.bk[k]) ? -sign * side.su[k] : std::fabs(side.su[k]));
  }
  return result;
}

double dualsignviolation(const Side& side, double sign) {
  double result = 0.0;
  for (int32_t k = 0; k < side.count; ++k) {
    result = worst(result, -sign * side.sl[k]);
    result = worst(result, -sign * side.su[k]);
  }
  return result;
}

double dot(int32_t n, const double* a, const double* b) {
  double sum = 0.0;
  for (int32_t k = 0; k < n; ++k) sum += a[k] * b[k];
  return sum;
}

double linearobjective(const CheckProblem& p, const double* xc, const double* xx) {
  return (p.cc != nullptr ? dot(p.numcon, p.cc, xc) : 0.0) + dot(p.numvar, p.c, xx);
}

// 0.5 x'Qx of the terms begin..end.
double quadraticform(const CheckProblem& p, int32_t begin, int32_t end, const double* x) {
  double sum = 0.0;
  for (int32_t t = begin; t < end; ++t) {
    const double term = p.qval[t] * x[p.qsubi[t]] * x[p.qsubj[t]];
    sum += p.qsubi[t] == p.qsubj[t] ? 0.5 * term : term;
  }
  return sum;
}

// w += factor Q x of the terms begin..end.
void addquadraticgradient(const CheckProblem& p, int32_t begin, int32_t end, double factor, const double* x,
                          double* w) {
  for (int32_t t = begin; t < end; ++t) {
    const int32_t i = p.qsubi[t], j = p.qsubj[t];
    w[i] += factor * p.qval[t] * x[j];
    if (i != j) w[j] += factor * p.qval[t] * x[i];
  }
}

double columndot(const CheckProblem& p, int32_t j, const double* y) {
  double sum = 0.0;
  for (int32_t t = p.aptrb[j]; t < p.aptre[j]; ++t) sum += p.aval[t] * y[p.asub[t]];
  return sum;
}

void addproduct(const CheckProblem& p, const double* x, double* r) {
  for (int32_t j = 0; j < p.numvar; ++j) {
    const double xj = x[j];
    if (xj == 0.0) continue;
    for (int32_t t = p.aptrb[j]; t < p.aptre[j]; ++t) r[p.asub[t]] += p.aval[t] * xj;
  }
}

double activityviolation(const CheckProblem& p, const CheckSolution& s, double* work) {
  opt_compuxc(p, s.xx, work);
  double result = 0.0;
  for (int32_t i = 0; i < p.numcon; ++i) result = worst(result, std::fabs(work[i] - s.xc[i]));
  return result;
}

// d cc + y - slc + suc
double rowdualviolation(const CheckProblem& p, const CheckSolution& s, double d) {
  double result = 0.0;
  for (int32_t i = 0; i < p.numcon; ++i) {
    const double cost = p.cc != nullptr ? d * p.cc[i] : 0.0;
    result = worst(result, std::fabs(cost + s.y[i] - s.slc[i] + s.suc[i]));
  }
  return result;
}

// Of sign * v.
double coneviolation(const CheckProblem& p, double sign, const double* v) {
  double result = 0.0;
  for (int32_t k = 0; k < p.numcone; ++k)
    result = worst(result, opt_coneviolation(p.conetype[k], p.coneend[k] - p.conebegin[k],
                                             p.conemembers + p.conebegin[k], sign, v));
  return result;
}

}  // namespace

void opt_compuxc(const CheckProblem& problem, const double* x, double* xc) {
  std::fill_n(xc, problem.numcon, 0.0);
  addproduct(problem, x, xc);
  if (problem.qconbegin == nullptr) return;
  for (int32_t i = 0; i < problem.numcon; ++i)
    xc[i] += quadraticform(problem, problem.qconbegin[i], problem.qconend[i], x);
}

double opt_coneviolation(int32_t conetype, int32_t nummem, const int32_t* members, double sign, const double* v) {
  const int32_t numheads = conetype == TRV_CT_RQUAD ? 2 : 1;
  if (nummem < numheads) return 0.0;
  double head = v[members[0]], tail = 0.0;
  for (int32_t k = numheads; k < nummem; ++k) tail += v[members[k]] * v[members[k]];
  if (conetype == TRV_CT_RQUAD) {
    // 2 v0 v1 >= |rest|^2 turned by 45 degrees into a quadratic cone.
    const double v0 = v[members[0]], v1 = v[members[1]];
    head = (v0 + v1) / 1.414213562373095;
    tail += 0.5 * (v0 - v1) * (v0 - v1);
  }
  return std::sqrt(tail) - sign * head;
}

double opt_integerviolation(double x) { return std::min(std::ceil(x) - x, x - std::floor(x)); }

void opt_chksol(const CheckProblem& problem, const CheckSolution& solution, double* rowwork, double* colwork,
                Measures* measures) {
  const CheckProblem& p = problem;
  const CheckSolution& s = solution;
  const double d = s.solsta == TRV_SOL_STA_PRIM_INFEAS_CER ? 0.0 : 1.0;
  const double scale = s.solsta == TRV_SOL_STA_DUAL_INFEAS_CER ? 0.0 : 1.0;
  const double q = quadraticform(p, p.qobjbegin, p.qobjend, s.xx);
  *measures = {};
  measures->primalobj = scale * p.cfix + q + linearobjective(p, s.xc, s.xx);
  measures->maxpeqi = activityviolation(p, s, rowwork);
  measures->maxpbi = worst(boundviolation(rows(p, s), scale), boundviolation(columns(p, s), scale));
  if (!s.hasdual) return;

  // w = Q0 x - sum of y[i] Qi x
  std::fill_n(colwork, p.numvar, 0.0);
  addquadraticgradient(p, p.qobjbegin, p.qobjend, 1.0, s.xx, colwork);
  double qcon = 0.0;
  for (int32_t i = 0; p.qconbegin != nullptr && i < p.numcon; ++i) {
    if (p.qconbegin[i] == p.qconend[i]) continue;
    addquadraticgradient(p, p.qconbegin[i], p.qconend[i], -s.y[i], s.xx, colwork);
    qcon += s.y[i] * quadraticform(p, p.qconbegin[i], p.qconend[i], s.xx);
  }
  measures->maxdeqi = rowdualviolation(p, s, d);
  for (int32_t j = 0; j < p.numvar; ++j) {
    const double r = d * (p.c[j] + colwork[j]) - columndot(p, j, s.y) - s.slx[j] + s.sux[j];
    measures->maxdeqi = worst(measures->maxdeqi, std::fabs(r));
  }
  measures->maxdbi = worst(dualsignviolation(rows(p, s), p.sign), dualviolation(columns(p, s), p.sign));
  measures->dualobj = d * (p.cfix - q) + qcon + dualboundsum(rows(p, s)) + dualboundsum(columns(p, s));
}

void opt_chksolconic(const CheckProblem& problem, const CheckSolution& solution, double* rowwork, Measures* measures) {
  const CheckProblem& p = problem;
  const CheckSolution& s = solution;
  const bool infeasible = s.prosta == TRV_PRO_STA_PRIM_INFEAS || s.prosta == TRV_PRO_STA_DUAL_INFEAS ||
                          s.prosta == TRV_PRO_STA_PRIM_AND_DUAL_INFEAS;
  const bool certificate = s.solsta == TRV_SOL_STA_PRIM_INFEAS_CER || s.solsta == TRV_SOL_STA_DUAL_INFEAS_CER ||
                           s.solsta == TRV_SOL_STA_NEAR_PRIM_INFEAS_CER || s.solsta == TRV_SOL_STA_NEAR_DUAL_INFEAS_CER;
  const double t = certificate ? 0.0 : 1.0;
  *measures = {};
  measures->primalobj = (infeasible ? 0.0 : p.cfix) + linearobjective(p, s.xc, s.xx);
  measures->maxpeqi = activityviolation(p, s, rowwork);
  measures->maxpbi = worst(boundviolation(rows(p, s), t), boundviolation(columns(p, s), t));
  measures->maxpcni = coneviolation(p, 1.0, s.xx);
  if (!s.hasdual) return;

  measures->dualobj = t * p.cfix + dualboundsum(rows(p, s)) + dualboundsum(columns(p, s));
  measures->maxdeqi = rowdualviolation(p, s, t);
  for (int32_t j = 0; j < p.numvar; ++j) {
    double r = t * p.c[j] - columndot(p, j, s.y) - s.slx[j] + s.sux[j];
    if (s.snx != nullptr) r -= s.snx[j];
    measures->maxdeqi = worst(measures->maxdeqi, std::fabs(r));
  }
  measures->maxdbi = worst(dualviolation(rows(p, s), p.sign), dualviolation(columns(p, s), p.sign));
  // Like all duals, those of a maximisation are negated.
  measures->maxdcni = s.snx != nullptr ? coneviolation(p, p.sign, s.snx) : 0.0;
}

}  // namespace tarvo
