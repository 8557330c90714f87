#include "tarvo/log.h"

#include <algorithm>

#include "cpub/sysenv.h"
#include "simplex/simplex.h"
#include "tarvo/frame.h"
#include "tarvo/streams.h"

namespace tarvo {

void task_print(Task* task, int32_t whichstream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  streams_vprint(&task->streams, whichstream, format, args);
  va_end(args);
}

// The second and every later optimisation of a task logs less than the first.
bool log_enabled(const Task* task, int32_t level) {
  const int32_t cut = task->num_optimizations < 2 ? 0 : task->ipar[TRV_IPAR_LOG_CUT_SECOND_OPT];
  return std::min(task->ipar[TRV_IPAR_LOG], level) > cut;
}

void log_start(Task* task) {
  task->log_events = 0;
  task->head_printed = 0;
  task->sim_head_count = 0;
  task->iter_head_printed = 0;
  task->break_code = TRV_RES_OK;
}

bool events_wanted(const Task* task) {
  return task->callback_func != nullptr || task->stop_func != nullptr || task->dpar[TRV_DPAR_OPTIMIZER_MAX_TIME] > 0 ||
         task->ipar[TRV_IPAR_CHECK_CTRL_C] != TRV_OFF;
}

int32_t tarvolog(Task*, int32_t) { return 0; }

int32_t event_optimizer(Task* task, int32_t event, double cpu0, double real0) {
  task->dinf[TRV_DINF_OPTIMIZER_CPUTIME] = sysenv_cputime() - cpu0;
  task->dinf[TRV_DINF_OPTIMIZER_REALTIME] = sysenv_realtime() - real0;
  return tarvolog(task, event);
}
void simplex_items(Task*, const simplexinfo*) {}
int32_t event_simplex(Task* task, int32_t event, const simplexinfo* info, double cpu0, double real0) {
  simplex_items(task, info);
  return event_optimizer(task, event, cpu0, real0);
}

int32_t resp_rescode(Task* task, int32_t resp, Location at) {
  switch (resp) {
    case 0:
      return TRV_RES_OK;
    case 1:
      return TRV_RES_ERR_SPACE;
    case 4:
      return TRV_RES_TRM_MAX_ITERATIONS;
    case 5:
      return TRV_RES_TRM_MAX_TIME;
    case 6:
    case 33:
      return task->break_code;
    case 7:
      return TRV_RES_TRM_USER_CALLBACK;
    case 25:
      return report<TRV_RES_ERR_NONCONVEX>({task, at});
    default:
      return TRV_RES_ERR_UNKNOWN;
  }
}

void ctrlc_snapshot(Task*) {}
bool ctrlc_check(Task*) { return false; }

}  // namespace tarvo

using namespace tarvo;

int32_t TRV_echotask(TRVtask task, int32_t whichstream, const char* format, ...) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  if (format == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "format");
  va_list args;
  va_start(args, format);
  streams_vprint(&task->streams, whichstream, format, args);
  va_end(args);
  streams_flush(&task->streams, whichstream);
  return TRV_RES_OK;
}

// The calls on an environment's streams work before TRV_initenv, too.
int32_t TRV_echoenv(TRVenv env, int32_t whichstream, const char* format, ...) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  if (format == nullptr) return report_env<TRV_RES_ERR_NULL_POINTER>(env, "format");
  va_list args;
  va_start(args, format);
  streams_vprint(&env->streams, whichstream, format, args);
  va_end(args);
  return TRV_RES_OK;
}

int32_t TRV_linkfiletotaskstream(TRVtask task, int32_t whichstream, const char* filename, int32_t append) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  streams_linkfile(&task->streams, whichstream, filename, append != 0);
  return TRV_RES_OK;
}

int32_t TRV_linkfiletoenvstream(TRVenv env, int32_t whichstream, const char* filename, int32_t append) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  streams_linkfile(&env->streams, whichstream, filename, append != 0);
  return TRV_RES_OK;
}

int32_t TRV_linkfunctotaskstream(TRVtask task, int32_t whichstream, void* handle, TRVstreamfunc func) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  streams_linkfunc(&task->streams, whichstream, handle, func);
  return TRV_RES_OK;
}

int32_t TRV_linkfunctoenvstream(TRVenv env, int32_t whichstream, void* handle, TRVstreamfunc func) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  streams_linkfunc(&env->streams, whichstream, handle, func);
  return TRV_RES_OK;
}

int32_t TRV_unlinkfuncfromtaskstream(TRVtask task, int32_t whichstream) {
  return TRV_linkfunctotaskstream(task, whichstream, nullptr, nullptr);
}

int32_t TRV_unlinkfuncfromenvstream(TRVenv env, int32_t whichstream) {
  return TRV_linkfunctoenvstream(env, whichstream, nullptr, nullptr);
}
