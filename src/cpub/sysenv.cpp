#include "cpub/sysenv.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

#include "cpub/memman.h"

namespace tarvo {

struct sysenv {
  memman* mm;
  SysKind kind;
  void* fatal_handle;
  FatalFunc fatal;
  SysInfo info;
};

namespace {

double seconds(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

}  // namespace

sysenv* sysenv_make(SysKind kind, bool debug, void* handle, AllocFunc alloc, FreeFunc free, Location at) {
  memman* mm = memman_make(kind == SysKind::environment, debug, handle, alloc, free);
  if (mm == nullptr) return nullptr;
  void* place = memman_alloc(mm, 1, sizeof(sysenv), true, at);
  if (place == nullptr) {
    memman_delete(&mm, at);
    return nullptr;
  }
  auto* env = new (place) sysenv{};
  env->mm = mm;
  env->kind = kind;
  return env;
}

int32_t sysenv_delete(sysenv** env_pointer, Location at) {
  sysenv* env = *env_pointer;
  *env_pointer = nullptr;
  if (env == nullptr) return SYS_OK;
  memman* mm = env->mm;
  memman_free(mm, env, at);
  return memman_delete(&mm, at) != 0 ? SYS_LEAKING : SYS_OK;
}

void* sysenv_calloc(sysenv* env, std::size_t count, std::size_t size, Location at) {
  return memman_alloc(env->mm, count, size, true, at);
}
void* sysenv_malloc(sysenv* env, std::size_t count, std::size_t size, Location at) {
  return memman_alloc(env->mm, count, size, false, at);
}
void* sysenv_realloc(sysenv* env, std::size_t newsize, std::size_t oldsize, void* pointer, Location at) {
  return memman_realloc(env->mm, newsize, oldsize, pointer, at);
}
char* sysenv_strdup(sysenv* env, const char* text, Location at) { return memman_strdup(env->mm, text, at); }
void sysenv_free(sysenv* env, void* pointer, Location at) {
  if (pointer == nullptr) return;
  if (pointer == env) [[unlikely]]
    sysenv_fatal(env, "Freeing sysenv", at);
  memman_free(env->mm, pointer, at);
}

bool sysenv_debugging(const sysenv* env) { return memman_debugging(env->mm); }
void sysenv_scan(sysenv* env, Location at) { memman_scan(env->mm, at); }
bool sysenv_usage(sysenv* env, std::size_t* current, std::size_t* maximum) {
  memman_usage(env->mm, current, maximum);
  return memman_debugging(env->mm);
}
int32_t sysenv_debugfile(sysenv* env, const char* filename, const char* header) {
  return memman_openfile(env->mm, filename, header) ? SYS_OK : SYS_FILE_OPEN;
}
void sysenv_echotofile(sysenv* env, const char* text) { memman_echotofile(env->mm, text); }
void sysenv_lockblock(sysenv* env, const void* pointer, Location at) { memman_lockblock(env->mm, pointer, at); }
void sysenv_unlockall(sysenv* env) { memman_unlockall(env->mm); }

SizeText sysenv_sizetext(std::size_t size) {
  SizeText out;
  std::snprintf(out.text, sizeof out.text, "%zu:%zu:%zu:%zu", size >> 30, (size >> 20) & 1023, (size >> 10) & 1023,
                size & 1023);
  return out;
}

SysInfo* sysenv_info(sysenv* env) { return &env->info; }

double sysenv_cputime() { return seconds(CLOCK_THREAD_CPUTIME_ID); }
double sysenv_realtime() { return seconds(CLOCK_MONOTONIC); }

void sysenv_putfatal(sysenv* env, void* handle, FatalFunc func) {
  env->fatal_handle = handle;
  env->fatal = func;
  memman_putfatal(env->mm, handle, func);
}

void sysenv_fatal(sysenv* env, const char* text, Location at) {
  if (env != nullptr && env->fatal != nullptr) {
    env->fatal(env->fatal_handle, at.file, at.number, text, -1);
  } else {
    std::printf("\n\nFatal error\nFile : %s\nLine : %d\nMsg. : %s\n", at.file, at.number, text);
  }
  std::exit(-1);
}

void sysenv_assert_failed(sysenv* env, Location at) {
  char text[2048];
  std::snprintf(text, sizeof text, "Assertion failed at %s (%d).", at.file, at.number);
  sysenv_fatal(env, text, at);
}

}  // namespace tarvo
