#include "cpub/sysenv.h"

#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tarvo {

struct sysenv {
  SysKind kind;
  void* handle;
  AllocFunc alloc;
  FreeFunc free;
  void* fatal_handle;
  FatalFunc fatal;
  SysInfo info;
};

namespace {

void* default_alloc(void*, std::size_t size) { return std::malloc(size); }
void default_free(void*, void* pointer) { std::free(pointer); }

double seconds(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

}  // namespace

sysenv* sysenv_make(SysKind kind, bool, void* handle, AllocFunc alloc, FreeFunc free, Location) {
  if (alloc == nullptr || free == nullptr) {
    handle = nullptr;
    alloc = default_alloc;
    free = default_free;
  }
  void* place = alloc(handle, sizeof(sysenv));
  if (place == nullptr) return nullptr;
  auto* env = static_cast<sysenv*>(place);
  *env = {kind, handle, alloc, free, nullptr, nullptr, {}};
  return env;
}

int32_t sysenv_delete(sysenv** env, Location) {
  if (*env != nullptr) (*env)->free((*env)->handle, *env);
  *env = nullptr;
  return SYS_OK;
}

void* sysenv_malloc(sysenv* env, std::size_t count, std::size_t size, Location) {
  if (count == 0 || size == 0 || count > SIZE_MAX / size) return nullptr;
  return env->alloc(env->handle, count * size);
}

void* sysenv_calloc(sysenv* env, std::size_t count, std::size_t size, Location at) {
  void* p = sysenv_malloc(env, count, size, at);
  if (p != nullptr) std::memset(p, 0, count * size);
  return p;
}

void* sysenv_realloc(sysenv* env, std::size_t newsize, std::size_t oldsize, void* pointer, Location at) {
  void* p = sysenv_malloc(env, 1, newsize, at);
  if (p == nullptr) return nullptr;
  if (pointer != nullptr) std::memcpy(p, pointer, newsize < oldsize ? newsize : oldsize);
  sysenv_free(env, pointer, at);
  return p;
}

char* sysenv_strdup(sysenv* env, const char* text, Location at) {
  if (text == nullptr) text = "";
  const std::size_t n = std::strlen(text) + 1;
  auto* p = static_cast<char*>(sysenv_malloc(env, n, 1, at));
  if (p != nullptr) std::memcpy(p, text, n);
  return p;
}

void sysenv_free(sysenv* env, void* pointer, Location) {
  if (pointer != nullptr) env->free(env->handle, pointer);
}

bool sysenv_debugging(const sysenv*) { return false; }
void sysenv_scan(sysenv*, Location) {}
bool sysenv_usage(sysenv*, std::size_t* current, std::size_t* maximum) {
  *current = *maximum = 0;
  return false;
}
int32_t sysenv_debugfile(sysenv*, const char*, const char*) { return SYS_OK; }
void sysenv_echotofile(sysenv*, const char*) {}
void sysenv_lockblock(sysenv*, const void*, Location) {}
void sysenv_unlockall(sysenv*) {}
SysInfo* sysenv_info(sysenv* env) { return &env->info; }

SizeText sysenv_sizetext(std::size_t size) {
  SizeText out;
  std::snprintf(out.text, sizeof out.text, "%zu:%zu:%zu:%zu", size >> 30, (size >> 20) & 1023, (size >> 10) & 1023,
                size & 1023);
  return out;
}

double sysenv_cputime() { return seconds(CLOCK_THREAD_CPUTIME_ID); }
double sysenv_realtime() { return seconds(CLOCK_MONOTONIC); }

void sysenv_putfatal(sysenv* env, void* handle, FatalFunc func) {
  env->fatal_handle = handle;
  env->fatal = func;
}

void sysenv_fatal(sysenv* env, const char* text, Location at) {
  if (env != nullptr && env->fatal != nullptr) {
    env->fatal(env->fatal_handle, at.file_name(), static_cast<int32_t>(at.line()), text, -1);
  }
  std::exit(-1);
}

}  // namespace tarvo
