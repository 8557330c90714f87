// The quality of a solution, measured on the problem that the user gave: objectives and largest violations.
//
//   minimise or maximise  cfix + cc'xc + c'xx + 0.5 xx'Q0 xx
//   subject to            xc[i] = (A xx)[i] + 0.5 xx'Qi xx,  bounds on xc and xx,  xx in the cones
#pragma once

#include <cstdint>

namespace tarvo {

// All arrays are borrowed. Quadratic terms are lower triangles (qsubi >= qsubj) that stand for symmetric matrices.
struct CheckProblem {
  int32_t numcon, numvar, numcone;
  double sign;  // 1 for a minimisation, -1 for a maximisation
  double cfix;
  const double* c;               // [numvar]
  const double* cc;              // [numcon] or NULL for zeros
  const int32_t *aptrb, *aptre;  // [numvar]: column j of A is asub/aval[aptrb[j]..aptre[j])
  const int32_t* asub;
  const double* aval;
  const int32_t *bkc, *bkx;  // TRV_BK_ values
  const double *blc, *buc, *blx, *bux;
  int32_t qobjbegin, qobjend;          // the terms of the objective
  const int32_t *qconbegin, *qconend;  // [numcon], those of the constraints, or NULL for none
  const int32_t *qsubi, *qsubj;
  const double* qval;
  const int32_t *conebegin, *coneend, *conetype;  // [numcone], ranges in conemembers
  const int32_t* conemembers;
};

// A solution as stored. Without duals only the primal measures are taken; snx may be NULL by itself.
struct CheckSolution {
  int32_t prosta, solsta;
  bool hasdual;
  const double *xc, *xx, *y, *slc, *suc, *slx, *sux, *snx;
};

struct Measures {
  double primalobj, maxpbi, maxpcni, maxpeqi;  // primal: objective; bound, cone and equation violation
  double dualobj, maxdbi, maxdcni, maxdeqi;    // the same of the dual; 0 without duals
};

// Measures of a problem without cones, with or without quadratic terms. rowwork[numcon] and colwork[numvar] are
// scratch. The constant and the bounds don't count for a certificate.
void opt_chksol(const CheckProblem& problem, const CheckSolution& solution, double* rowwork, double* colwork,
                Measures* measures);

// Measures of a linear problem with or without cones. rowwork[numcon] is scratch.
void opt_chksolconic(const CheckProblem& problem, const CheckSolution& solution, double* rowwork, Measures* measures);

// The activities of a point: xc = A x + 0.5 x'Qi x.
void opt_compuxc(const CheckProblem& problem, const double* x, double* xc);

// How far sign * v lies outside a cone (TRV_CT_) with the given members; negative inside.
double opt_coneviolation(int32_t conetype, int32_t nummem, const int32_t* members, double sign, const double* v);

// The distance to the nearest integer.
double opt_integerviolation(double x);

}  // namespace tarvo
