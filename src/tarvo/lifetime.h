// The life of a task, for the calls that make or empty one.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// Drops all problem data, solutions and the basis factor and gives the scratch buffers back; the capacities become 0.
// Parameters, streams and call-backs stay. Never allocates, so that a task can always be deleted.
void task_clear(Task* task);

}  // namespace tarvo
