// The steps between simplex_optimize and the optimisers. Each takes a problem as it is handed to it, and gives statuses
// in info, a solution in `solution` and a stop code.
#pragma once

#include "simplex/simplex.h"

namespace tarvo {

struct SimplexCall {
  sysenv* env;
  simplexpar par;
  simplexinfo* info;
  const SimplexInput* input;
  SimplexSolution* solution;
  simplexbasis* basis;  // of input->numcon rows
  const SimplexEvents* events;
};

// False when a NaN or an infinite number stands where only finite ones may.
bool simplex_usable(const SimplexInput& input);

// Solves the problem as it is (solve.cpp).
int32_t simplex_solve(const SimplexCall& call);

// Makes a basic solution that was mapped from another problem one of this problem: activities, multipliers and
// objectives are recomputed from its own data. A point that misses the tolerances is a start for the optimiser; a
// certificate that does not hold leaves the statuses unknown. Takes statuses and stop code from info (solve.cpp).
int32_t simplex_finish(const SimplexCall& call);

// Solves the problem in the primal or dual form (form.cpp).
int32_t simplex_solveform(const SimplexCall& call);

// Presolves, solves what is left and comes back (presolve.cpp).
int32_t simplex_solvereduced(const SimplexCall& call);

}  // namespace tarvo
