// The exported memory calls: a thin layer over the memory manager of an environment or a task.
#include "tarvo/frame.h"

using namespace tarvo;

namespace {

sysenv* sys_of(TRVenv env) { return env == nullptr ? nullptr : env->sys; }
sysenv* sys_of(TRVtask task) { return task == nullptr ? nullptr : task->sys; }

Location at(const char* file, int32_t line) { return {file == nullptr ? "" : file, line}; }

template <class Object>
void* alloc(Object object, size_t count, size_t size, Location where) {
  sysenv* sys = sys_of(object);
  return sys == nullptr ? nullptr : sysenv_calloc(sys, count, size, where);
}

template <class Object>
void release(Object object, void* pointer, Location where) {
  sysenv* sys = sys_of(object);
  if (sys != nullptr) sysenv_free(sys, pointer, where);
}

template <class Object>
char* duplicate(Object object, const char* text, Location where) {
  sysenv* sys = sys_of(object);
  return sys == nullptr || text == nullptr ? nullptr : sysenv_strdup(sys, text, where);
}

}  // namespace

void* TRV_callocenv(TRVenv env, size_t count, size_t size) { return alloc(env, count, size, Location::current()); }
void* TRV_calloctask(TRVtask task, size_t count, size_t size) { return alloc(task, count, size, Location::current()); }
void* TRV_callocdbgenv(TRVenv env, size_t count, size_t size, const char* file, int32_t line) {
  return alloc(env, count, size, at(file, line));
}
void* TRV_callocdbgtask(TRVtask task, size_t count, size_t size, const char* file, int32_t line) {
  return alloc(task, count, size, at(file, line));
}

void TRV_freeenv(TRVenv env, void* pointer) { release(env, pointer, Location::current()); }
void TRV_freetask(TRVtask task, void* pointer) { release(task, pointer, Location::current()); }
void TRV_freedbgenv(TRVenv env, void* pointer, const char* file, int32_t line) {
  release(env, pointer, at(file, line));
}
void TRV_freedbgtask(TRVtask task, void* pointer, const char* file, int32_t line) {
  release(task, pointer, at(file, line));
}

char* TRV_strdupenv(TRVenv env, const char* text) { return duplicate(env, text, Location::current()); }
char* TRV_strduptask(TRVtask task, const char* text) { return duplicate(task, text, Location::current()); }
char* TRV_strdupdbgenv(TRVenv env, const char* text, const char* file, int32_t line) {
  return duplicate(env, text, at(file, line));
}
char* TRV_strdupdbgtask(TRVtask task, const char* text, const char* file, int32_t line) {
  return duplicate(task, text, at(file, line));
}

int32_t TRV_checkmemenv(TRVenv env, const char* file, int32_t line) {
  const int32_t response = env_check(env);
  if (response == TRV_RES_OK) sysenv_scan(env->sys, at(file, line));
  return response;
}
int32_t TRV_checkmemtask(TRVtask task, const char* file, int32_t line) {
  const int32_t response = task_check(task);
  if (response == TRV_RES_OK) sysenv_scan(task->sys, at(file, line));
  return response;
}
