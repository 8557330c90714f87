// The life of environments and tasks, and the settings that hang on them.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "tarvo/bufpool.h"
#include "tarvo/ctrlc.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tables.h"
#include "tarvo/tarvodat.h"
#include "tarvo/version.h"

namespace tarvo {
namespace {

constexpr int32_t last_message_bytes = 1025;

// Opens "<name of the environment's debug file>.<middle>.txt" for the memory manager of `sys`.
void open_debugfile(const Env* env, sysenv* sys, const char* middle) {
  const char* stem = env->debug_file_name;
  if (stem == nullptr || stem[0] == '\0') return;
  const std::size_t size = std::strlen(stem) + std::strlen(middle) + sizeof "..txt";
  auto* name = static_cast<char*>(sysenv_malloc(sys, size, 1));
  if (name == nullptr) return;  // the memory that is short will show at the next call that needs it
  std::snprintf(name, size, "%s.%s.txt", stem, middle);
  sysenv_debugfile(sys, name, "TARVO memory debugging.");
  sysenv_free(sys, name);
}

// Destroys an environment, also a half-made one. The result is that of deleting its sysenv.
int32_t env_destroy(Env* env) {
  sysenv* sys = env->sys;
  ctrlc_release(env);
  char counts[96];
  std::snprintf(counts, sizeof counts, "Number of task created: %d Number of deleted task: %d\n",
                env->num_tasks_created, env->num_tasks_deleted);
  sysenv_echotofile(sys, counts);
  free_strings(sys, env->spar);
  streams_release(&env->streams);
  sysenv_free(sys, env->dll_path);
  sysenv_free(sys, env->debug_file_name);
  for (int k = 0; k < env->num_mutexes; ++k) pthread_mutex_destroy(&env->mutex[k]);
  sysenv_putfatal(sys, nullptr, nullptr);
  env->~Env();
  sysenv_free(sys, env);
  return sysenv_rescode(sysenv_delete(&sys));
}

int32_t env_setup(Env* env, const char* dbgfile) {
  if (const int32_t rc = streams_init(&env->streams, true); rc != TRV_RES_OK) return rc;
  env->keepdlls = 1;
  if (dbgfile != nullptr) {
    env->debug_file_name = sysenv_strdup(env->sys, dbgfile);
    if (env->debug_file_name == nullptr) return TRV_RES_ERR_SPACE;
    open_debugfile(env, env->sys, "env");
  }
  for (pthread_mutex_t& mutex : env->mutex) {
    if (pthread_mutex_init(&mutex, nullptr) != 0) return TRV_RES_ERR_THREAD_MUTEX_INIT;
    ++env->num_mutexes;
  }
  return fill_defaults(env) ? TRV_RES_OK : TRV_RES_ERR_SPACE;
}

// Destroys a task, also a half-made one. `counted` tells whether it stands in the environment's count of tasks.
int32_t task_destroy(Task* task, bool counted) {
  Env* env = task->env;
  sysenv* sys = task->sys;
  data_clear(task);
  for (int32_t k = 0; k < num_streams; ++k) streams_flush(&task->streams, k);
  streams_closefiles(&task->streams);
  free_strings(sys, task->spar);
  bufpool_delete(sys, &task->buffers);
  sysenv_free(sys, task->task_name);
  streams_release(&task->streams);
  sysenv_free(sys, task->last_message);
  sysenv_putfatal(sys, nullptr, nullptr);
  task->env = nullptr;
  task->sys = nullptr;
  task->~Task();
  sysenv_free(sys, task);
  const int32_t rc = sysenv_rescode(sysenv_delete(&sys));
  if (!counted) return rc;
  if (const int32_t locked = env_lock(env, mutex_tasks); locked != TRV_RES_OK) return rc != TRV_RES_OK ? rc : locked;
  ++env->num_tasks_deleted;
  const int32_t unlocked = env_unlock(env, mutex_tasks);
  return rc != TRV_RES_OK ? rc : unlocked;
}

int32_t put_capacities(Task* task, int32_t maxnumcon, int32_t maxnumvar, int32_t maxnumcone, int32_t maxnumanz,
                       int32_t maxnumqnz) {
  int32_t rc = TRV_putmaxnumcon(task, maxnumcon);
  if (rc == TRV_RES_OK) rc = TRV_putmaxnumvar(task, maxnumvar);
  if (rc == TRV_RES_OK) rc = TRV_putmaxnumcone(task, maxnumcone);
  if (rc == TRV_RES_OK) rc = TRV_putmaxnumanz(task, maxnumanz);
  if (rc == TRV_RES_OK) rc = TRV_putmaxnumqnz(task, maxnumqnz);
  if (rc != TRV_RES_OK) data_clear(task);
  return rc;
}

int32_t count_task(Task* task) {
  Env* env = task->env;
  if (const int32_t rc = env_lock(env, mutex_tasks); rc != TRV_RES_OK) return rc;
  task->task_id = env->num_tasks_created++;
  return env_unlock(env, mutex_tasks);
}

int32_t task_setup(Task* task, int32_t maxnumcon, int32_t maxnumvar, bool* counted) {
  task->buffers = bufpool_make(task->sys);
  if (task->buffers == nullptr) return TRV_RES_ERR_SPACE;
  if (const int32_t rc = count_task(task); rc != TRV_RES_OK) return rc;
  *counted = true;
  sysenv_scan(task->env->sys);
  char middle[32];
  std::snprintf(middle, sizeof middle, "%d.task", task->task_id);
  open_debugfile(task->env, task->sys, middle);
  task->last_message = static_cast<char*>(sysenv_calloc(task->sys, last_message_bytes, 1));
  if (task->last_message == nullptr) return TRV_RES_ERR_SPACE;
  task->last_message_capacity = last_message_bytes;
  if (const int32_t rc = streams_init(&task->streams, false); rc != TRV_RES_OK) return rc;
  // The parameters come first: the capacity calls read some of them.
  if (const int32_t rc = TRV_setdefaults(task); rc != TRV_RES_OK) return rc;
  return put_capacities(task, maxnumcon, maxnumvar, 0, 0, 0);
}

}  // namespace

int32_t env_lock(Env* env, EnvMutex which) {
  return pthread_mutex_lock(&env->mutex[which]) == 0 ? TRV_RES_OK : TRV_RES_ERR_THREAD_MUTEX_LOCK;
}

int32_t env_unlock(Env* env, EnvMutex which) {
  return pthread_mutex_unlock(&env->mutex[which]) == 0 ? TRV_RES_OK : TRV_RES_ERR_THREAD_MUTEX_UNLOCK;
}

}  // namespace tarvo

using namespace tarvo;

int32_t TRV_makeenv(TRVenv* env, void* handle, TRVallocfunc alloc, TRVfreefunc free, const char* dbgfile) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  *env = nullptr;
  sysenv* sys = sysenv_make(SysKind::environment, dbgfile != nullptr, handle, alloc, free);
  if (sys == nullptr) return TRV_RES_ERR_SPACE;
  void* place = sysenv_calloc(sys, 1, sizeof(Env));
  if (place == nullptr) {
    sysenv_delete(&sys);
    return TRV_RES_ERR_SPACE;
  }
  Env* made = new (place) Env();
  made->sys = sys;
  if (alloc != nullptr && free != nullptr) {
    made->alloc_func = alloc;
    made->free_func = free;
    made->alloc_handle = handle;
  }
  sysenv_putfatal(sys, made, env_fatal_hook);
  if (const int32_t rc = env_setup(made, dbgfile); rc != TRV_RES_OK) {
    env_destroy(made);
    return rc;
  }
  *env = made;
  return TRV_RES_OK;
}

int32_t TRV_initenv(TRVenv env) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  if (env->initialised != 0) return TRV_RES_OK;
  SysInfo* info = sysenv_info(env->sys);
  info->cpu_type = cputype_internal(env->ipar[TRV_IPAR_CPU_TYPE]);
  info->cache_l1 = env->ipar[TRV_IPAR_CACHE_SIZE_L1];
  info->cache_l2 = env->ipar[TRV_IPAR_CACHE_SIZE_L2];
  sysinfo_detect(info);
  env->ipar[TRV_IPAR_CPU_TYPE] = cputype_public(info->cpu_type);
  env->ipar[TRV_IPAR_CACHE_SIZE_L1] = info->cache_l1;
  env->ipar[TRV_IPAR_CACHE_SIZE_L2] = info->cache_l2;
  env->initialised = 1;
  return TRV_RES_OK;
}

int32_t TRV_deleteenv(TRVenv* env) {
  if (env == nullptr || *env == nullptr) return TRV_RES_OK;
  Env* doomed = *env;
  *env = nullptr;
  return env_destroy(doomed);
}

int32_t TRV_maketask(TRVenv env, int32_t maxnumcon, int32_t maxnumvar, TRVtask* task) {
  if (const int32_t rc = env_check(env); rc != TRV_RES_OK) return rc;
  if (task == nullptr) return report_env<TRV_RES_ERR_NULL_POINTER>(env, "task");
  *task = nullptr;
  sysenv* sys =
      sysenv_make(SysKind::task, env->debug_file_name != nullptr, env->alloc_handle, env->alloc_func, env->free_func);
  if (sys == nullptr) return TRV_RES_ERR_SPACE;
  void* place = sysenv_calloc(sys, 1, sizeof(Task));
  if (place == nullptr) {
    sysenv_delete(&sys);
    return TRV_RES_ERR_SPACE;
  }
  Task* made = new (place) Task();
  made->env = env;
  made->sys = sys;
  *sysenv_info(sys) = *sysenv_info(env->sys);
  sysenv_putfatal(sys, made, task_fatal_hook);
  bool counted = false;
  if (const int32_t rc = task_setup(made, maxnumcon, maxnumvar, &counted); rc != TRV_RES_OK) {
    task_destroy(made, counted);
    return rc;
  }
  ctrlc_snapshot(made);
  made->iinf[TRV_IINF_CACHE_SIZE_L1] = env->ipar[TRV_IPAR_CACHE_SIZE_L1];
  made->iinf[TRV_IINF_CACHE_SIZE_L2] = env->ipar[TRV_IPAR_CACHE_SIZE_L2];
  made->iinf[TRV_IINF_CPU_TYPE] = env->ipar[TRV_IPAR_CPU_TYPE];
  *task = made;
  return TRV_RES_OK;
}

int32_t TRV_makeemptytask(TRVenv env, TRVtask* task) { return TRV_maketask(env, 0, 0, task); }

int32_t TRV_deletetask(TRVtask* task) {
  if (task == nullptr || *task == nullptr) return TRV_RES_OK;
  if (const int32_t rc = task_check(*task); rc != TRV_RES_OK) return rc;
  // Its own call-back may not delete a task that is being optimised.
  if (const int32_t rc = data_checkunlocked(*task); rc != TRV_RES_OK) return rc;
  Task* doomed = *task;
  *task = nullptr;
  return task_destroy(doomed, true);
}

int32_t TRV_resizetask(TRVtask task, int32_t maxnumcon, int32_t maxnumvar, int32_t maxnumcone, int32_t maxnumanz,
                       int32_t maxnumqnz) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (const int32_t rc = data_checkunlocked(task); rc != TRV_RES_OK) return rc;
  data_clear(task);
  return put_capacities(task, maxnumcon, maxnumvar, maxnumcone, maxnumanz, maxnumqnz);
}

int32_t TRV_getenv(TRVtask task, TRVenv* env) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (env == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "env");
  *env = task->env;
  return TRV_RES_OK;
}

int32_t TRV_setdefaults(TRVtask task) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  return fill_defaults(task);
}

int32_t TRV_checkversion(TRVenv env, int32_t major, int32_t minor, int32_t build, int32_t revision) {
  if (const int32_t rc = env_check(env); rc != TRV_RES_OK) return rc;
  const int32_t own[] = {version_major, version_minor, version_build, version_revision};
  const int32_t asked[] = {major, minor, build, revision};
  for (int k = 0; k < 4; ++k) {
    if (own[k] < asked[k]) {
      return report_env<TRV_RES_ERR_OLDER_DLL>(env, own[0], own[1], own[2], own[3], major, minor, build, revision);
    }
    if (own[k] > asked[k]) {
      return report_env<TRV_RES_ERR_NEWER_DLL>(env, own[0], own[1], own[2], own[3], major, minor, build, revision);
    }
  }
  return TRV_RES_OK;
}

int32_t TRV_getversion(int32_t* major, int32_t* minor, int32_t* build, int32_t* revision) {
  if (major != nullptr) *major = version_major;
  if (minor != nullptr) *minor = version_minor;
  if (build != nullptr) *build = version_build;
  if (revision != nullptr) *revision = version_revision;
  return TRV_RES_OK;
}

int32_t TRV_getbuildinfo(char* state, char* date, char* tool) {
  if (state != nullptr) state[0] = '\0';
  if (date != nullptr) std::snprintf(date, TRV_MAX_STR_LEN, "%s %s", __DATE__, __TIME__);
  if (tool != nullptr) tool[0] = '\0';
  return TRV_RES_OK;
}

int32_t TRV_putdllpath(TRVenv env, const char* path) {
  if (env == nullptr) return TRV_RES_OK;
  char* copy = sysenv_strdup(env->sys, path);
  if (copy == nullptr) return TRV_RES_ERR_SPACE;
  sysenv_free(env->sys, env->dll_path);
  env->dll_path = copy;
  return TRV_RES_OK;
}

int32_t TRV_putkeepdlls(TRVenv env, int32_t keepdlls) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  env->keepdlls = keepdlls;
  return TRV_RES_OK;
}

int32_t TRV_putexitfunc(TRVenv env, TRVexitfunc func, void* handle) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  env->exit_func = func;
  env->exit_handle = handle;
  return TRV_RES_OK;
}

int32_t TRV_putctrlcfunc(TRVenv env, TRVctrlcfunc func, void* handle) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  env->ctrlc_func = func;
  env->ctrlc_handle = handle;
  return TRV_RES_OK;
}

int32_t TRV_putresponsefunc(TRVtask task, TRVresponsefunc func, void* handle) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  task->response_func = func;
  task->response_handle = handle;
  return TRV_RES_OK;
}

int32_t TRV_putcallbackfunc(TRVtask task, TRVcallbackfunc func, void* handle) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  task->callback_func = func;
  task->callback_handle = handle;
  return TRV_RES_OK;
}

int32_t TRV_getcallbackfunc(TRVtask task, TRVcallbackfunc* func, void** handle) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (func != nullptr) *func = task->callback_func;
  if (handle != nullptr) *handle = task->callback_handle;
  return TRV_RES_OK;
}

int32_t TRV_exceptionenv(TRVenv env, int32_t code, ...) {
  va_list args;
  va_start(args, code);
  const int32_t rc = env_vreport(Location::current(), env, code, args);
  va_end(args);
  return rc;
}

int32_t TRV_exceptiontask(TRVtask task, int32_t code, ...) {
  va_list args;
  va_start(args, code);
  const int32_t rc = task_vreport(Location::current(), task, code, args);
  va_end(args);
  return rc;
}

int32_t TRV_getlasterror(TRVtask task, int32_t* code, int32_t maxlen, int32_t* len, char* text) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (code != nullptr) *code = task->last_code;
  if (len != nullptr) *len = task->last_message_length;
  if (text != nullptr && maxlen > 0) {
    const int32_t n = std::min(maxlen - 1, task->last_message_length);
    std::memcpy(text, task->last_message, static_cast<std::size_t>(n));
    text[n] = '\0';
  }
  return TRV_RES_OK;
}

int32_t TRV_getmemusagetask(TRVtask task, size_t* current, size_t* maximum) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  size_t used = 0;
  size_t peak = 0;
  const bool known = sysenv_usage(task->sys, &used, &peak);
  if (current != nullptr) *current = used;
  if (maximum != nullptr) *maximum = peak;
  return known ? TRV_RES_OK : report<TRV_RES_ERR_SPACE_NO_INFO>(task);
}

int32_t TRV_isinfinity(double value) { return value >= infinity_bound ? 1 : 0; }
