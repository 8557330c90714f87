// First version of the pivot rule: a bad pivot becomes a small one of the sign wanted.
#include "kfac/pivot.h"

#include <algorithm>
#include <cmath>

namespace tarvo {

double symface_pivot(const PivotRule& rule, double a, double p, uint16_t* flags) {
  const double tol = std::min(std::max(rule.tol, 2.220446049250313e-16 * std::max(std::abs(p), std::abs(a))), 1e-4);
  *flags = static_cast<uint16_t>(*flags & ~(NODE_REPAIRED | NODE_WRONGSIGN));
  const bool negative = (*flags & NODE_NEGATIVE) != 0;
  const double q = negative ? -p : p;
  if (q >= tol || ((*flags & (NODE_NEGATIVE | NODE_POSITIVE)) == 0 && std::abs(p) >= tol)) return p;
  *flags |= NODE_REPAIRED;
  if (q < -100.0) *flags |= NODE_WRONGSIGN;
  return (negative ? -1.0 : 1.0) * (std::max(std::abs(a) * 1e-10, 1e-8) + std::abs(p));
}

}  // namespace tarvo
