#include "cpub/sysinfo.h"

#include <unistd.h>

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#define TARVO_CPUID 1
#endif

namespace tarvo {

namespace {

constexpr int32_t generic_type = 10;
constexpr int32_t default_l1 = 32, default_l2 = 256;  // kilobytes, where the processor doesn't say

struct CpuName {
  int32_t internal;
  const char* text;
};
// By the public TRV_CPU_ value.
constexpr CpuName cpu_names[] = {{0, "Unknown"},           {10, "Generic"},        {1000, "Intel-P3"},
                                 {1001, "Intel-P4"},       {10001, "AMD-Athlon"},  {20000, "HP-PARISC20"},
                                 {5000, "Intel-Itanium2"}, {10002, "AMD-Opteron"}, {30000, "PowerPC-G5"},
                                 {1002, "Intel-PM"}};
constexpr int32_t num_cpu_names = sizeof cpu_names / sizeof cpu_names[0];

constexpr const char* platforms[] = {
    "AIX/RS6K32",      "AIX/RS6K64",      "HPUX/PARISC32",   "HPUX/PARISC64",  "Linux/32-X86",   "Linux/64-X86",
    "Linux/Itanium64", "MACOSX/PPC32",    "MACOSX/PPC64",    "MACOSX/32-X86",  "MACOSX/64-X86",  "Solaris/Intel32",
    "Solaris/64-X86",  "Solaris/Sparc32", "Solaris/Sparc64", "Windows/32-X86", "Windows/64-X86", "Windows/Itanium"};

#ifdef TARVO_CPUID

struct Regs {
  unsigned a, b, c, d;
};
Regs cpuid(unsigned leaf, unsigned subleaf = 0) {
  Regs r{};
  if (__get_cpuid_count(leaf, subleaf, &r.a, &r.b, &r.c, &r.d) == 0) return {};
  return r;
}

// The internal type by family and model.
int32_t amd_type(unsigned family, unsigned extended_family) {
  if (family == 6) return 10001;
  return family == 15 && extended_family == 0 ? 10002 : generic_type;
}
int32_t intel_type(unsigned family, unsigned model) {
  if (family == 4 || family == 5) return generic_type;
  if (family != 6) return 1001;
  switch (model) {
    case 1:
    case 3:
    case 5:
      return generic_type;
    case 6:
    case 7:
    case 8:
    case 10:
    case 11:
      return 1000;
    case 9:
    case 13:
      return 1002;
    default:
      return 1001;
  }
}

// Caches by the deterministic leaf, of which both makers have the same form. Data and unified caches count.
void caches_by_leaf(unsigned leaf, SysInfo* found) {
  for (unsigned k = 0; k < 32; ++k) {
    const Regs r = cpuid(leaf, k);
    const unsigned type = r.a & 31, cache_level = (r.a >> 5) & 7;
    if (type == 0) break;
    if (type == 2) continue;
    const uint64_t ways = (r.b >> 22) + 1, partitions = ((r.b >> 12) & 1023) + 1, line = (r.b & 4095) + 1;
    const auto kb = static_cast<int32_t>(ways * partitions * line * (uint64_t{r.c} + 1) >> 10);
    if (cache_level == 1) found->cache_l1 = kb;
    if (cache_level == 2) found->cache_l2 = kb;
  }
}

// Descriptor bytes of processors from before the deterministic leaf: level 1 data and level 2 sizes in kilobytes.
struct CacheDescriptor {
  unsigned char byte, cache_level;
  uint16_t kb;
};
constexpr CacheDescriptor descriptors[] = {
    {0x0A, 1, 8},   {0x0C, 1, 16},   {0x0D, 1, 16},   {0x0E, 1, 24},   {0x2C, 1, 32},   {0x60, 1, 16},   {0x66, 1, 8},
    {0x67, 1, 16},  {0x68, 1, 32},   {0x1D, 2, 128},  {0x21, 2, 256},  {0x24, 2, 1024}, {0x41, 2, 128},  {0x42, 2, 256},
    {0x43, 2, 512}, {0x44, 2, 1024}, {0x45, 2, 2048}, {0x48, 2, 3072}, {0x4E, 2, 6144}, {0x78, 2, 1024}, {0x79, 2, 128},
    {0x7A, 2, 256}, {0x7B, 2, 512},  {0x7C, 2, 1024}, {0x7D, 2, 2048}, {0x7F, 2, 512},  {0x80, 2, 512},  {0x82, 2, 256},
    {0x83, 2, 512}, {0x84, 2, 1024}, {0x85, 2, 2048}, {0x86, 2, 512},  {0x87, 2, 1024}};

void caches_by_descriptor(SysInfo* found) {
  const Regs r = cpuid(2);
  const unsigned words[] = {r.a & ~0xFFu, r.b, r.c, r.d};
  for (const unsigned word : words) {
    if ((word >> 31) != 0) continue;  // holds no descriptors
    for (int shift = 0; shift < 32; shift += 8) {
      for (const CacheDescriptor& d : descriptors) {
        if (d.byte != ((word >> shift) & 0xFF)) continue;
        (d.cache_level == 1 ? found->cache_l1 : found->cache_l2) = d.kb;
      }
    }
  }
}

void read_processor(SysInfo* found) {
  const Regs vendor = cpuid(0);
  char text[13] = {};
  std::memcpy(text, &vendor.b, 4);
  std::memcpy(text + 4, &vendor.d, 4);
  std::memcpy(text + 8, &vendor.c, 4);
  const bool amd = std::strcmp(text, "AuthenticAMD") == 0 || std::strcmp(text, "CyrixInstead") == 0;
  const bool intel = std::strcmp(text, "GenuineIntel") == 0;

  const Regs feature = cpuid(1);
  const unsigned base_family = (feature.a >> 8) & 15, extended_family = (feature.a >> 20) & 255;
  const unsigned model = ((feature.a >> 16) & 15) * 16 + ((feature.a >> 4) & 15);
  if (amd) found->cpu_type = amd_type(base_family, extended_family);
  if (intel) found->cpu_type = intel_type(base_family == 15 ? base_family + extended_family : base_family, model);
  found->hassse2 = ((feature.d >> 26) & 1) != 0;
  found->hassse3 = (feature.c & 1) != 0;
  found->hasht = ((feature.d >> 28) & 1) != 0;

  if (amd) {
    found->cache_l1 = static_cast<int32_t>(cpuid(0x80000005).c >> 24);
    found->cache_l2 = static_cast<int32_t>(cpuid(0x80000006).c >> 16);
  } else {
    caches_by_descriptor(found);
    if (vendor.a >= 4) caches_by_leaf(4, found);
  }
}

#else

void read_processor(SysInfo*) {}

#endif

// Where the processor keeps silent, as under some hypervisors, the operating system may still know.
int32_t cache_of_system(int name) {
  const long size = sysconf(name);
  return size <= 0 || size > INT32_MAX ? 0 : static_cast<int32_t>(size >> 10);
}

int32_t first_positive(int32_t a, int32_t b, int32_t c, int32_t d) { return a > 0 ? a : b > 0 ? b : c > 0 ? c : d; }

}  // namespace

const char* sysinfo_platform(int32_t platform) {
  constexpr int32_t count = sizeof platforms / sizeof platforms[0];
  return platform < 0 || platform >= count ? "generic" : platforms[platform];
}

void sysinfo_detect(SysInfo* info) {
  SysInfo found{};
  found.cpu_type = generic_type;
  read_processor(&found);
  const long cores = sysconf(_SC_NPROCESSORS_ONLN);
  info->platform = this_platform;
  info->cores = cores > 0 ? static_cast<int32_t>(cores) : 1;
  if (info->cpu_type <= 0) info->cpu_type = found.cpu_type;
  info->cache_l1 = first_positive(info->cache_l1, found.cache_l1, cache_of_system(_SC_LEVEL1_DCACHE_SIZE), default_l1);
  info->cache_l2 = first_positive(info->cache_l2, found.cache_l2, cache_of_system(_SC_LEVEL2_CACHE_SIZE), default_l2);
  info->hasht = found.hasht;
  info->hassse2 = found.hassse2;
  info->hassse3 = found.hassse3;
  info->valid = true;
}

int32_t cputype_public(int32_t internal) {
  for (int32_t k = 0; k < num_cpu_names; ++k) {
    if (cpu_names[k].internal == internal) return k;
  }
  return 0;
}
int32_t cputype_internal(int32_t cpu) { return cpu < 0 || cpu >= num_cpu_names ? 0 : cpu_names[cpu].internal; }
const char* cputype_text(int32_t cpu) {
  return cpu < 0 || cpu >= num_cpu_names ? cpu_names[0].text : cpu_names[cpu].text;
}

}  // namespace tarvo
