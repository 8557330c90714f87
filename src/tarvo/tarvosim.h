// From a task to the simplex optimisers and back.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// Runs the simplex on a linear task. optimizer: TRV_OPTIMIZER_PRIMAL_SIMPLEX, _DUAL_SIMPLEX or _FREE_SIMPLEX.
// Writes TRV_SOL_BAS and the simplex items. A response code. cpu0, real0: the start times of the optimisation.
int32_t simplexoptimizer(Task* task, int32_t optimizer, double cpu0, double real0);

}  // namespace tarvo
