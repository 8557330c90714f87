// The interrupt handler of an environment (the tasks' side stands in log.h).
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// Gives the application its own handler back, once no environment needs ours any longer.
void ctrlc_release(Env* env);

}  // namespace tarvo
