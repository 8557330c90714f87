// Reductions that are still to come find nothing.
#include <cstdarg>
#include <cstdio>

#include "prslv/prslv_internal.h"

namespace tarvo {

[[gnu::weak]] void prslv_fatal(sysenv* env, const char* format, ...) {
  char text[256];
  va_list list;
  va_start(list, format);
  std::vsnprintf(text, sizeof text, format, list);
  va_end(list);
  sysenv_fatal(env, text);
}
[[gnu::weak]] int32_t prslv_checkcon(prslvrun* run, int32_t) {
  run->rows.count = 0;
  return PRSLV_OK;
}
[[gnu::weak]] int32_t prslv_checkvar(prslvrun*, int32_t*) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_emptyvar(prslvrun*, int32_t) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_checkdupcon(prslvrun*) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_checkdupvar(prslvrun*) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_numdoubletons(const prslvrun*) { return 0; }
[[gnu::weak]] int32_t prslv_eliminator(prslvrun*) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_chklinblkcon(prslvrun*) { return PRSLV_OK; }
[[gnu::weak]] int32_t prslv_undosingletonrow(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
[[gnu::weak]] int32_t prslv_undoforcingrow(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
[[gnu::weak]] int32_t prslv_undoforcingvar(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
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
[[gnu::weak]] int32_t prslv_undorowpivot(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
[[gnu::weak]] int32_t prslv_undochain(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}
[[gnu::weak]] int32_t prslv_undoblkfix(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t) {
  return PRSLV_POSTSOLVE;
}

}  // namespace tarvo
