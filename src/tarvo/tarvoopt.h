// The optimise driver.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// TRV_PROBTYPE_ of the task's data.
int32_t task_probtype(const Task* task);

// What TRV_optimize does between its counter and its report: resets the items, selects and runs the optimiser, fills
// the solution items. A response code.
int32_t task_optimize(Task* task);

}  // namespace tarvo
