// The pivot rule of the symmetric factorisation: tests a pivot and repairs a bad one.
#pragma once

#include <cstdint>

namespace tarvo {

// Flags of a node.
enum NodeFlag : uint16_t {
  NODE_NEGATIVE = 2,    // the pivot must be negative
  NODE_POSITIVE = 8,    // the pivot must be positive
  NODE_SINGLETON = 64,  // touched by a singleton column: its diagonal is bounded away from 0
  NODE_REPAIRED = 256,  // the pivot was repaired in the last factorisation
  NODE_WRONGSIGN =
      512,  // the repaired pivot was clearly of the wrong sign: the matrix has not the inertia it should have
};

struct PivotRule {
  double tol = 1e-12;       // the pivot tolerance
  double scaleratio = 1.0;  // (n max|a_ii| / sum|a_ii|)^2, at least 1
};

// The pivot to use for a column whose diagonal was `a` before the updates and is `p` after them. Sets NODE_REPAIRED
// (and NODE_WRONGSIGN) in *flags, or clears them.
double symface_pivot(const PivotRule& rule, double a, double p, uint16_t* flags);

}  // namespace tarvo
