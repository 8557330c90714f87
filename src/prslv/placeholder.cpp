// Reductions that are still to come find nothing.
#include "prslv/prslv_internal.h"

namespace tarvo {

[[gnu::weak]] int32_t prslv_dupconandvar(prslvrun*, int32_t, int32_t, double) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_checkdupcon(prslvrun*) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_checkdupvar(prslvrun*) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_undodupcon(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
[[gnu::weak]] int32_t prslv_undodupconandvar(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
[[gnu::weak]] int32_t prslv_undorowtookcolumn(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
[[gnu::weak]] int32_t prslv_undodupvar(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
[[gnu::weak]] int32_t prslv_undodupvartransform(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}

}  // namespace tarvo
