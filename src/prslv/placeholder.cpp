// Reductions that are still to come find nothing.
#include "prslv/prslv_internal.h"

namespace tarvo {

[[gnu::weak]] int32_t prslv_undodupvartransform(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}

}  // namespace tarvo
