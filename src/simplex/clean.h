// Starts from a point that has no basis: what basis identification and mapped solutions leave behind. Superbasic
// variables (between their bounds, neither basic nor at a bound) are moved to bounds or gathered into a basis, so that
// the optimisers have few of them to drive out.
#pragma once

#include "simplex/simplex.h"

namespace tarvo {

// Takes superbasic columns to a bound, or until a superbasic row meets one, without a factorisation. Looks only at
// columns all of whose rows are superbasic; the point stays feasible if it was. False when out of memory.
[[nodiscard]] bool simplex_cleanprimalsmartcrash(sysenv* env, const SimplexProblem& p);

// Builds a basis of superbasic variables as far as they are independent, and completes it with logicals: keys, the list
// and the factor of `basis`. What does not fit in keeps its key. Results: SIM_RESP_OK, _SPACE, _NUMERIC.
int32_t simplex_crash(sysenv* env, const SimplexProblem& p, simplexbasis* basis);

// Both, for a start of one of the modes 7, 8 and 9. In mode 9 superbasic variables at or beyond a bound take it.
int32_t simplex_cleanstart(sysenv* env, int32_t mode, const SimplexProblem& p, simplexbasis* basis);

}  // namespace tarvo
