#include "misc/dupsub.h"

#include <numeric>

namespace tarvo {

bool dupsub_iden(sysenv* env, int32_t n, int32_t universe, const int32_t* starts, const int32_t* ends,
                 const int32_t* sub, const uint8_t* mask, dupgroups* groups) {
  Array<int32_t> all;
  if (!all.alloc(env, static_cast<std::size_t>(n))) return false;
  std::iota(all.begin(), all.end(), 0);
  return dupvec_refine(env, {n, universe, starts, ends, sub, nullptr, mask, n, all.data(), 0.0}, groups);
}

}  // namespace tarvo
