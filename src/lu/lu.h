// Sparse LU factors of a basis: P B Q = L U by Markowitz pivoting, with Forrest-Tomlin updates and hypersparse solves.
#pragma once

#include <cstdint>

#include "cpub/sysenv.h"

namespace tarvo {

struct lu;

}  // namespace tarvo
