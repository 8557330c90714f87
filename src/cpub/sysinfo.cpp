#include "cpub/sysinfo.h"

namespace tarvo {

const char* sysinfo_platform(int32_t) { return "Linux/64-X86"; }
void sysinfo_detect(SysInfo* info) {
  info->platform = this_platform;
  if (info->cpu_type == 0) info->cpu_type = 10;
  if (info->cache_l1 <= 0) info->cache_l1 = 32;
  if (info->cache_l2 <= 0) info->cache_l2 = 256;
  info->valid = true;
}
int32_t cputype_public(int32_t) { return 1; }
int32_t cputype_internal(int32_t) { return 10; }
const char* cputype_text(int32_t) { return "Generic"; }

}  // namespace tarvo
