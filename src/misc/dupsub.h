// Groups lists of subscripts that are equal.
#pragma once

#include "cpub/dupvec.h"

namespace tarvo {

// Lists v = sub[starts[v]..ends[v]), v < n, with subscripts in [0, universe) in an order that all lists share; those
// with mask 0 don't count (NULL: all do). False when out of memory.
[[nodiscard]] bool dupsub_iden(sysenv* env, int32_t n, int32_t universe, const int32_t* starts, const int32_t* ends,
                               const int32_t* sub, const uint8_t* mask, dupgroups* groups);

}  // namespace tarvo
