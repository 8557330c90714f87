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
  // The repaired pivot was clearly of the wrong sign: the matrix has not the inertia it should have.
  NODE_WRONGSIGN = 512,
};

struct PivotRule {
  double tol = 1e-12;  // the pivot tolerance
  // Positive: a pivot below this share of its diagonal gets that diagonal added, which a caller can undo, instead of
  // being removed.
  double shiftbelow = 0.0;
  // Positive: a bad pivot is replaced by its own size, which is that of the rounding in it, and at least this.
  double floor = 0.0;
};

// The pivot to use for a column whose diagonal was `a` before the updates and is `p` after them. Sets NODE_REPAIRED
// (and NODE_WRONGSIGN) in *flags, or clears them. A bad pivot of a positive or negative node is one that is of the
// wrong sign or that rounding may have made; it is replaced by a huge one of the right sign, which takes the row out of
// the system: the solution is 0 there, as it may be for a row that depends on others.
double symface_pivot(const PivotRule& rule, double a, double p, uint16_t* flags);

}  // namespace tarvo
