// The road of every module to the operating system: memory, clocks, the fatal route.
// The record itself is private to src/cpub; everybody else holds a pointer to it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <source_location>

namespace tarvo {

struct sysenv;

using Location = std::source_location;
using AllocFunc = void* (*)(void* handle, std::size_t size);
using FreeFunc = void (*)(void* handle, void* pointer);
// Called before the process ends; may not come back. `status` is the exit status asked for.
using FatalFunc = void (*)(void* handle, const char* file, int32_t line, const char* text, int32_t status);

// Result codes of the low-level layers (memory, files); sysenv_rescode in src/tarvo/frame.h turns them
// into response codes.
enum SysCode : int32_t {
  SYS_OK = 0,
  SYS_SPACE = 1,
  SYS_FILE_OPEN = 2,
  SYS_FILE_READ = 3,
  SYS_END_OF_FILE = 4,
  SYS_FILE_WRITE = 5,
  SYS_LEAKING = 7,
  SYS_FILE_NAME = 8,
};

enum class SysKind : int32_t { task = 0, environment = 1 };

// Makes a system environment with a memory manager of its own. The two functions are used only when both
// are given, else the C runtime's allocator serves. The manager of an environment is guarded by a mutex.
// NULL when out of memory.
sysenv* sysenv_make(SysKind kind, bool debug, void* handle, AllocFunc alloc, FreeFunc free,
                    Location at = Location::current());
// Destroys *env and sets it to NULL. SYS_LEAKING when blocks were left (seen only with memory debugging).
int32_t sysenv_delete(sysenv** env, Location at = Location::current());

// Memory. Zero bytes give NULL, which is not an error; otherwise NULL means out of memory. Sizes whose
// product overflows count as out of memory. Addresses are aligned to 8 bytes at least.
[[nodiscard]] void* sysenv_calloc(sysenv* env, std::size_t count, std::size_t size, Location at = Location::current());
[[nodiscard]] void* sysenv_malloc(sysenv* env, std::size_t count, std::size_t size, Location at = Location::current());
[[nodiscard]] void* sysenv_realloc(sysenv* env, std::size_t newsize, std::size_t oldsize, void* pointer,
                                   Location at = Location::current());
[[nodiscard]] char* sysenv_strdup(sysenv* env, const char* text, Location at = Location::current());  // NULL as ""
void sysenv_free(sysenv* env, void* pointer, Location at = Location::current());                      // NULL allowed

// Clocks, in seconds: the CPU time of the calling thread and a monotonic real time with an arbitrary start.
double sysenv_cputime();
double sysenv_realtime();

// The fatal route: for broken invariants only, never for anything that a caller, a file or an allocator does.
void sysenv_putfatal(sysenv* env, void* handle, FatalFunc func);
[[noreturn]] void sysenv_fatal(sysenv* env, const char* text, Location at = Location::current());
inline void sysenv_assert(sysenv* env, bool holds, Location at = Location::current()) {
  if (!holds) [[unlikely]] sysenv_fatal(env, "Assertion failed", at);
}

}  // namespace tarvo
