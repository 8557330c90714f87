#include "kfac/pivot.h"

#include <algorithm>
#include <cmath>

namespace tarvo {

// What the updates leave of a diagonal below this share is rounding: the row depends on those before it.
constexpr double dependent = 1e-15;
// A pivot that takes its row out of the system: the solution gets 0 there.
constexpr double removed = 1e128;
constexpr double clearly_wrong = 1e-6;

double symface_pivot(const PivotRule& rule, double a, double p, uint16_t* flags) {
  *flags = static_cast<uint16_t>(*flags & ~(NODE_REPAIRED | NODE_WRONGSIGN));
  const bool negative = (*flags & NODE_NEGATIVE) != 0, positive = (*flags & NODE_POSITIVE) != 0;
  const double sign = negative || (!positive && p < 0.0) ? -1.0 : 1.0;
  const double q = sign * p;
  if (rule.shiftbelow > 0.0 && a != 0.0 && q <= rule.shiftbelow * std::fabs(a)) {
    *flags |= NODE_REPAIRED;
    return p + sign * std::fabs(a);
  }
  if (q > dependent * std::fabs(a) && q > 1e-18 * rule.tol) return p;
  *flags |= NODE_REPAIRED;
  if (q < -clearly_wrong * std::max(1.0, std::fabs(a))) *flags |= NODE_WRONGSIGN;
  return sign * (rule.floor > 0.0 ? std::max(std::fabs(q), rule.floor) : removed);
}

}  // namespace tarvo
