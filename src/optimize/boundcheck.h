// Bounds that cross: infeasibility that shows without an optimiser.
#pragma once

#include <cstdint>

namespace tarvo {

// The constraints or the variables: bounds, and the parts of a solution that a certificate fills. snx and y are apart.
struct BoundSide {
  int32_t count;
  const int32_t* bk;
  const double *bl, *bu;
  int32_t* sk;
  double *x, *sl, *su;
};

// True when some lower bound lies above its upper bound by more than tol,
// or is +infinity itself, or an upper bound is -infinity.
// Then the certificate of primal infeasibility is written for a minimisation: key TRV_SK_INF and both bound
// multipliers 1 where bounds cross, for all others the key of their bounds and zeros; y[rows.count] is zero.
// Else nothing is written.
bool opt_boundcheck(double tol, const BoundSide& rows, const BoundSide& columns, double* y);

}  // namespace tarvo
