// The conic optimiser's door to a task.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// Solves a linear or conic problem by the conic interior-point optimiser; the interior solution exists. cpu0, real0 as
// in event_simplex. A response code.
int32_t conicoptimizer(Task* task, double cpu0, double real0);

}  // namespace tarvo
