#include "tarvo/frame.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cpub/clocale.h"
#include "tarvo/streams.h"
#include "tarvo/version.h"

namespace tarvo {
namespace {

constexpr std::size_t max_report_text = 1025;  // with the NUL
constexpr std::size_t max_fatal_text = 2048;

// A negative code has no class of its own: it counts as an error and never indexes anything.
bool is_warning(int32_t code) { return code > 0 && code < max_warning; }

// The file as it stands in the sources, without the directories of the build.
const char* file_of(const Location& at) {
  const char* slash = std::strrchr(at.file_name(), '/');
  return slash != nullptr ? slash + 1 : at.file_name();
}

struct Report {
  bool warning;
  char header[32];
  char body[max_report_text];  // a copy on the stack: the response function may report on the same object
};

void compose(Report* report, int32_t code, va_list args) {
  report->warning = is_warning(code);
  const bool called_error = code > 1000 || code < 0;
  std::snprintf(report->header, sizeof report->header,
                called_error ? "TARVO Error %-6d   : " : "TARVO Warning %-6d : ", code);
  const CLocale locale;
  if (std::vsnprintf(report->body, sizeof report->body, message_template(code), args) < 0) report->body[0] = '\0';
}

// Several threads may report on one environment.
bool count_warning(int32_t* warning_count, int32_t code, int32_t maximum) {
  const std::atomic_ref<int32_t> count(warning_count[code]);
  if (count.load(std::memory_order_relaxed) == INT32_MAX) return true;
  return count.fetch_add(1, std::memory_order_relaxed) >= maximum;
}

void write_report(StreamBlock* streams, const Report& report, bool located, const Location& at) {
  const StreamGuard guard(streams);
  const int32_t stream = report.warning ? TRV_STREAM_WRN : TRV_STREAM_ERR;
  streams_write(streams, stream, report.header);
  streams_write(streams, stream, report.body);
  streams_write(streams, stream, "\n");
  if (!located) return;
  streams_print(streams, stream, "Location of the %s.\n", report.warning ? "warning" : "error");
  streams_print(streams, stream, "%-20s: %-s\n", "File", file_of(at));
  streams_print(streams, stream, "%-20s: %-d\n", "Line", at.line());
  streams_print(streams, stream, "%-20s: %-s\n", "Function", "");
}

void put_last_message(Task* task, const char* text) {
  if (task->last_message_capacity == 0) return;
  const std::size_t n = std::min(std::strlen(text), static_cast<std::size_t>(task->last_message_capacity) - 1);
  std::memcpy(task->last_message, text, n);
  task->last_message[n] = '\0';
  task->last_message_length = static_cast<int32_t>(n);
}

constexpr const char* support_line = "Please report this message to the maintainers of Tarvo.\n";

void print_fatal(StreamBlock* streams, const char* title, const char* file, int32_t line, const char* text) {
  streams_print(streams, TRV_STREAM_ERR, "%s", title);
  streams_print(streams, TRV_STREAM_ERR, "Version: %d.%d.%d.%d\n", version_major, version_minor, version_build,
                version_revision);
  streams_print(streams, TRV_STREAM_ERR, "File   : %s\n", file != nullptr ? file : "(NULL)");
  streams_print(streams, TRV_STREAM_ERR, "Line   : %d\n", line);
  streams_print(streams, TRV_STREAM_ERR, "Msg.   : %s\n", text);
  streams_print(streams, TRV_STREAM_ERR, "%s", support_line);
  for (int32_t k = 0; k < num_streams; ++k) streams_flush(streams, k);
  streams_closefiles(streams);
}

[[noreturn]] void stop_env(Env* env, const char* file, int32_t line, const char* text, int32_t status) {
  print_fatal(&env->streams, "TARVO fatal error stopenv.\n", file, line, text);
  if (env->exit_func == nullptr) std::exit(-1);
  env->exit_func(env->exit_handle, file, line, text);
  std::exit(status);  // a caller who wants to live on leaves its exit function by a jump
}

[[noreturn]] void stop_task(Task* task, const char* file, int32_t line, const char* text, int32_t status) {
  print_fatal(&task->streams, "\n\nTARVO fatal error stoptask\n", file, line, text);
  const char* debug_name = task->spar[TRV_SPAR_DEBUG_FILE_NAME];
  if (debug_name != nullptr && debug_name[0] != '\0') {
    if (std::FILE* out = std::fopen(debug_name, "wt")) {
      std::fprintf(out, "TARVO fatal error\nFile : %s\nLine : %d\nMsg. : %s\n", file != nullptr ? file : "(NULL)", line,
                   text);
      std::fclose(out);
    }
  }
  stop_env(task->env, file, line, text, status);
}

}  // namespace

void env_fatal_hook(void* env, const char* file, int32_t line, const char* text, int32_t status) {
  stop_env(static_cast<Env*>(env), file, line, text, status);
}

void task_fatal_hook(void* task, const char* file, int32_t line, const char* text, int32_t status) {
  stop_task(static_cast<Task*>(task), file, line, text, status);
}

void task_fatal(Task* task, const Location& at, const char* format, ...) {
  char text[max_fatal_text];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  stop_task(task, file_of(at), at.line(), text, -1);
}

int32_t task_vreport(const Location& at, Task* task, int32_t code, va_list args) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  put_last_message(task, "");
  if (code == TRV_RES_OK) return task->last_code = TRV_RES_OK;
  Report text;
  compose(&text, code, args);
  put_last_message(task, text.body);
  const bool silent = text.warning && count_warning(task->warning_count, code, task->ipar[TRV_IPAR_MAX_NUM_WARNINGS]);
  if (!silent) {
    const bool located = task->ipar[TRV_IPAR_LOG] != 0 && task->ipar[TRV_IPAR_LOG_RESPONSE] != 0;
    write_report(&task->streams, text, located, at);
  }
  int32_t answer = TRV_RES_OK;
  if (task->response_func != nullptr && task->in_response == 0) {
    task->in_response = 1;
    answer = task->response_func(task->response_handle, code, text.body);
    task->in_response = 0;
    put_last_message(task, text.body);  // a report made by the response function has left its own text behind
  }
  task->last_code = text.warning ? answer : code;
  if (task->last_code == TRV_RES_OK) put_last_message(task, "");
  return task->last_code;
}

// An environment has no parameters of its own: the defaults of its tasks' parameters decide.
int32_t env_vreport(const Location& at, Env* env, int32_t code, va_list args) {
  if (const int32_t rc = env_check(env); rc != TRV_RES_OK) return rc;
  if (code == TRV_RES_OK) return TRV_RES_OK;
  Report text;
  compose(&text, code, args);
  const bool silent = text.warning && count_warning(env->warning_count, code, env->ipar[TRV_IPAR_MAX_NUM_WARNINGS]);
  if (!silent) {
    const bool located = env->ipar[TRV_IPAR_LOG] != 0 && env->ipar[TRV_IPAR_LOG_RESPONSE] != 0;
    write_report(&env->streams, text, located, at);
  }
  const int32_t answer =
      env->response_func != nullptr ? env->response_func(env->response_handle, code, text.body) : TRV_RES_OK;
  return text.warning ? answer : code;
}

int32_t task_report(const Location& at, Task* task, int32_t code, ...) {
  va_list args;
  va_start(args, code);
  const int32_t rc = task_vreport(at, task, code, args);
  va_end(args);
  return rc;
}

int32_t env_report(const Location& at, Env* env, int32_t code, ...) {
  va_list args;
  va_start(args, code);
  const int32_t rc = env_vreport(at, env, code, args);
  va_end(args);
  return rc;
}

int32_t sysenv_rescode(int32_t syscode) {
  switch (syscode) {
    case SYS_OK:
      return TRV_RES_OK;
    case SYS_SPACE:
      return TRV_RES_ERR_SPACE;
    case SYS_FILE_OPEN:
      return TRV_RES_ERR_FILE_OPEN;
    case SYS_FILE_READ:
      return TRV_RES_ERR_FILE_READ;
    case SYS_END_OF_FILE:
      return TRV_RES_ERR_END_OF_FILE;
    case SYS_FILE_WRITE:
      return TRV_RES_ERR_FILE_WRITE;
    case SYS_LEAKING:
      return TRV_RES_ERR_SPACE_LEAKING;
    case SYS_FILE_NAME:
      return TRV_RES_ERR_INVALID_FILE_NAME;
    default:
      return TRV_RES_ERR_UNKNOWN;
  }
}

int32_t check_index(Task* task, const char* argument, int32_t item_kind, int32_t index, Location at) {
  int32_t limit = 0;
  switch (item_kind) {
    case TRV_PI_VAR:
      limit = task->numvar;
      break;
    case TRV_PI_CON:
      limit = task->numcon;
      break;
    case TRV_PI_CONE:
      limit = task->numcone;
      break;
    default:
      return report<TRV_RES_ERR_PRO_ITEM>({task, at}, item_kind);
  }
  if (index < 0) return report<TRV_RES_ERR_INDEX_IS_TOO_SMALL>({task, at}, index, argument);
  if (index >= limit) return report<TRV_RES_ERR_INDEX_IS_TOO_LARGE>({task, at}, index, argument);
  return TRV_RES_OK;
}

int32_t check_index_list(Task* task, const char* argument, int32_t first, int32_t last, int32_t count,
                         const int32_t* list, Location at) {
  for (int32_t k = 0; k < count; ++k) {
    if (list[k] >= first && list[k] < last) continue;
    if (list[k] < 0) return report<TRV_RES_ERR_INDEX_IS_TOO_SMALL>({task, at}, list[k], argument);
    return report<TRV_RES_ERR_INDEX_IS_TOO_LARGE>({task, at}, list[k], argument);
  }
  return TRV_RES_OK;
}

int32_t check_bound_keys(Task* task, const char* argument, int32_t accmode, int32_t count, const int32_t* keys,
                         Location at) {
  for (int32_t k = 0; k < count; ++k) {
    if (keys[k] >= TRV_BK_LO && keys[k] <= TRV_BK_RA) continue;
    if (accmode == TRV_ACC_CON) return report<TRV_RES_ERR_INV_BKC>({task, at}, keys[k], argument);
    return report<TRV_RES_ERR_INV_BKX>({task, at}, keys[k], argument);
  }
  return TRV_RES_OK;
}

}  // namespace tarvo
