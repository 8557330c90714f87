// What the library knows about the processor and the platform that it runs on.
#pragma once

#include <cstdint>

namespace tarvo {

struct SysInfo {
  bool valid;        // the rest is filled
  int32_t platform;  // index of sysinfo_platform
  int32_t cores;     // logical processors
  int32_t cpu_type;  // internal processor type, see cputype_public; 0: not set
  int32_t cache_l1;  // kilobytes; not positive: not set
  int32_t cache_l2;
  bool hasht, hassse2, hassse3;
};

inline constexpr int32_t this_platform = 5;

// The text of a platform, as "Linux/64-X86".
const char* sysinfo_platform(int32_t platform);

// Fills what is not set: cpu_type when it is 0, a cache size when it is not positive, and all the rest.
// Afterwards the cache sizes are positive whatever the processor says.
void sysinfo_detect(SysInfo* info);

// The public TRV_CPU_ value of an internal processor type and back; anything unknown gives 0.
int32_t cputype_public(int32_t internal);
int32_t cputype_internal(int32_t cpu);
// The text of a public processor type, as "Generic".
const char* cputype_text(int32_t cpu);

}  // namespace tarvo
