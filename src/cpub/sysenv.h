// The road of every module to the operating system: memory, clocks, the fatal route.
// The record itself is private to src/cpub; everybody else holds a pointer to it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cpub/sysinfo.h"

namespace tarvo {

struct sysenv;

// The place of a call in the source, for messages. As the default argument of a function it is the caller's.
struct Location {
  const char* file;
  int32_t number;
  static constexpr Location current(const char* f = __builtin_FILE(), int32_t n = __builtin_LINE()) { return {f, n}; }
  [[nodiscard]] constexpr const char* file_name() const { return file; }
  [[nodiscard]] constexpr int32_t line() const { return number; }
};

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

// Memory debugging: every block carries guards, and a damaged one ends the process through the fatal route.
// Without debugging these do nothing.
bool sysenv_debugging(const sysenv* env);
// Tests all guards and the bytes of the locked blocks.
void sysenv_scan(sysenv* env, Location at = Location::current());
// Current and largest number of bytes in use. False, and both 0, without debugging.
bool sysenv_usage(sysenv* env, std::size_t* current, std::size_t* maximum);
// Opens the file to which the manager tells what it does; an open one is closed. SYS_FILE_OPEN on failure.
int32_t sysenv_debugfile(sysenv* env, const char* filename, const char* header);
void sysenv_echotofile(sysenv* env, const char* text);
// A locked block may not change until it is unlocked or freed; the next scan tells.
void sysenv_lockblock(sysenv* env, const void* pointer, Location at = Location::current());
void sysenv_unlockall(sysenv* env);

// A size as "gigabytes:megabytes:kilobytes:bytes".
struct SizeText {
  char text[40];
};
SizeText sysenv_sizetext(std::size_t size);

// The processor's description: filled by sysinfo_detect in an environment, copied to its tasks.
SysInfo* sysenv_info(sysenv* env);

// Clocks, in seconds: the CPU time of the calling thread and a monotonic real time with an arbitrary start.
double sysenv_cputime();
double sysenv_realtime();

// The fatal route: for broken invariants only, never for anything that a caller, a file or an allocator does.
void sysenv_putfatal(sysenv* env, void* handle, FatalFunc func);
[[noreturn]] void sysenv_fatal(sysenv* env, const char* text, Location at = Location::current());
[[noreturn]] void sysenv_assert_failed(sysenv* env, Location at);
inline void sysenv_assert(sysenv* env, bool holds, Location at = Location::current()) {
  if (!holds) [[unlikely]]
    sysenv_assert_failed(env, at);
}

}  // namespace tarvo
