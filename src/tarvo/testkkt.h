#pragma once

#include <cstdint>

#include "cpub/sysenv.h"

namespace tarvo {

// The self-check of the sparse symmetric factorisation: matrices of several shapes through order, analysis,
// factorisation and solve, against the matrix itself. A response code.
int32_t testkkt_run(sysenv* env);

}  // namespace tarvo
