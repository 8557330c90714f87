// The conic optimiser on a whole problem: presolve with the members of cones protected, the canonical conic form, the
// interior-point iteration, and the way back. What was reached is always mapped back, also after a stop.
#pragma once

#include <cstdint>

#include "homo/intpnt.h"
#include "optimize/optslv.h"

namespace tarvo {

enum ConicType : int32_t { CONIC_QUAD = 0, CONIC_RQUAD = 1 };  // the values of TRV_CT_

// The problem with its cones; borrowed, unchanged. A variable is in one cone at most.
struct ConicInput {
  prslvinput linear;
  int32_t numcone;
  const int32_t *conebegin, *coneend, *conetype;  // [numcone], ranges in conemembers; heads first
  const int32_t* conemembers;
};

struct ConicOptions {
  bool presolve = true;
  prslvpar reduce;
  IntpntParams intpnt;
};

// What a run did: the counters shared with the other interior-point road, and the canonical conic problem.
struct ConicInfo {
  IpmInfo ipm;
  int32_t firstrefine = -1;  // the first iteration that refined a solve
  int32_t numblo = 0, numbup = 0, numbfr = 0, numcone = 0, numconevar = 0, numbndconevar = 0;
};

// The event of an iteration, a number of the log; those of the presolve and the factorisation are as on the other road,
// but that what has no event of its own is CONIC_PROGRESS.
enum ConicEvent : int32_t { CONIC_BEGIN = 4, CONIC_ITERATION = 5, CONIC_PROGRESS = 6, CONIC_END = 7 };

// snx[numvar] are the multipliers of the cones, skn[numcone] their keys: SUPBAS inside, UPR at the boundary, LOW at 0.
struct ConicSolution {
  prslvsol sol;
  int32_t* skn;
  double* snx;
};

// Minimises. info->ipm is current whenever an event is reported, and starts from defaults. xc = A xx, y = slc - suc -
// cc and the dual rows hold but where a multiplier would need a bound or cone that isn't there. A claim that the
// presolve's undoing does not bear out on the given problem leads to a second run without presolve.
void conic_optimizer(sysenv* env, const ConicOptions& options, const ConicInput& input, const IpmEvents& events,
                     ConicSolution* solution, ConicInfo* info);

}  // namespace tarvo
