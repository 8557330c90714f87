// Stand-ins for calls of other files that are still to come; a strong definition takes their place.
#include "lu/lu.h"
#include "simplex/simplex.h"
#include "tarvo.h"

namespace tarvo {
[[gnu::weak]] int32_t simplex_makebasis(sysenv*, int32_t, simplexbasis*) { return SIM_RESP_OK; }
[[gnu::weak]] void simplex_deletebasis(simplexbasis*) {}
[[gnu::weak]] int32_t simplex_primaloptimizer(sysenv*, const simplexpar&, simplexinfo* info, SimplexProblem*,
                                              simplexbasis*, const SimplexEvents&) {
  return info->resp = SIM_RESP_NUMERIC;
}
[[gnu::weak]] void lu_invalidate(lu*) {}
}  // namespace tarvo

[[gnu::weak]] int32_t TRV_checkdata(TRVtask) { return TRV_RES_OK; }
[[gnu::weak]] int32_t TRV_putvartype(TRVtask, int32_t, int32_t) { return TRV_RES_ERR_UNKNOWN; }
