// What every exported call opens with: the object checks, the argument checks and the one route of reports.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdint>
#include <type_traits>

#include "tarvo/task.h"

namespace tarvo {

// Object checks: silent, two comparisons.
inline int32_t env_check(const Env* env) {
  if (env == nullptr) [[unlikely]]
    return TRV_RES_ERR_NULL_ENV;
  if (env->initialised == 0) [[unlikely]]
    return TRV_RES_ERR_NO_INIT_ENV;
  return TRV_RES_OK;
}
inline int32_t task_check(const Task* task) {
  if (task == nullptr) [[unlikely]]
    return TRV_RES_ERR_NULL_TASK;
  if (task->env == nullptr) [[unlikely]]
    return TRV_RES_ERR_INVALID_TASK;
  return TRV_RES_OK;
}
inline int32_t stream_check(int32_t whichstream) {
  return whichstream < 0 || whichstream > 3 ? TRV_RES_ERR_INVALID_STREAM : TRV_RES_OK;
}

// Argument checks: these report.
// item_kind is a TRV_PI_ value, argument the name shown in the text.
int32_t check_index(Task* task, const char* argument, int32_t item_kind, int32_t index,
                    Location at = Location::current());
// The first element of list[0..count) outside [first, last) is reported.
int32_t check_index_list(Task* task, const char* argument, int32_t first, int32_t last, int32_t count,
                         const int32_t* list, Location at = Location::current());
// accmode (TRV_ACC_) decides between TRV_RES_ERR_INV_BKC and TRV_RES_ERR_INV_BKX.
int32_t check_bound_keys(Task* task, const char* argument, int32_t accmode, int32_t count, const int32_t* keys,
                         Location at = Location::current());

// The template of a code; "No message for this code." for an unknown one (src/tarvo/codes.cpp).
const char* message_template(int32_t code);

// The report routes below the typed door `report`: the printf arguments of the template follow the code.
int32_t task_report(const Location& at, Task* task, int32_t code, ...);
int32_t env_report(const Location& at, Env* env, int32_t code, ...);
int32_t task_vreport(const Location& at, Task* task, int32_t code, va_list args);
int32_t env_vreport(const Location& at, Env* env, int32_t code, va_list args);

struct TaskAt {
  Task* task;
  Location at;
  TaskAt(Task* t, Location l = Location::current()) : task(t), at(l) {}
};
struct EnvAt {
  Env* env;
  Location at;
  EnvAt(Env* e, Location l = Location::current()) : env(e), at(l) {}
};

namespace detail {

constexpr const char* template_of(int32_t code) {
  switch (code) {
#define RES(number, name, text, description) \
  case number:                               \
    return text;
#include "tarvo/tables/rescodes.def"
#undef RES
    default:
      return nullptr;
  }
}

// What the conversion at *p (behind its '%') takes: 'i' int32, 'l' a 64-bit integer, 'd' double, 's' text.
constexpr char conversion(const char*& p) {
  bool wide = false;
  for (;; ++p) {
    switch (*p) {
      case 'd':
      case 'i':
      case 'u':
      case 'c':
      case 'x':
        return wide ? 'l' : 'i';
      case 'e':
      case 'f':
      case 'g':
      case 'E':
      case 'G':
        return 'd';
      case 's':
        return 's';
      case 'l':
      case 'z':
      case 'j':
        wide = true;
        break;
      case '\0':
        return '?';
      default:
        break;
    }
  }
}

template <class T>
constexpr char kind_of() {
  using U = std::decay_t<T>;
  if constexpr (std::is_same_v<U, double>)
    return 'd';
  else if constexpr (std::is_same_v<U, const char*> || std::is_same_v<U, char*>)
    return 's';
  else if constexpr (std::is_integral_v<U> && sizeof(U) == 4)
    return 'i';
  else if constexpr (std::is_integral_v<U> && sizeof(U) == 8)
    return 'l';
  else
    return '!';
}

template <class... A>
constexpr bool arguments_fit(int32_t code) {
  const char* p = template_of(code);
  if (p == nullptr) return false;
  constexpr std::array<char, sizeof...(A) + 1> kinds{kind_of<A>()..., '\0'};
  std::size_t k = 0;
  for (; *p != '\0'; ++p) {
    if (*p != '%') continue;
    ++p;
    if (*p == '%') continue;
    if (k == sizeof...(A) || kinds[k] != conversion(p)) return false;
    ++k;
  }
  return k == sizeof...(A);
}

}  // namespace detail

// Reports a code on a task or an environment with the arguments of its message, which are checked against the
// message at compile time: return report<TRV_RES_ERR_WHICHSOL>(task, whichsol);
template <int32_t Code, class... A>
int32_t report(TaskAt where, A... args) {
  static_assert(detail::arguments_fit<A...>(Code), "arguments don't fit the message of this code");
  return task_report(where.at, where.task, Code, args...);
}
template <int32_t Code, class... A>
int32_t report_env(EnvAt where, A... args) {
  static_assert(detail::arguments_fit<A...>(Code), "arguments don't fit the message of this code");
  return env_report(where.at, where.env, Code, args...);
}

// The response code of a small result code of the system layer (SysCode).
int32_t sysenv_rescode(int32_t syscode);

// Ends the process: a broken invariant. The hooks are what a sysenv calls for its own fatal errors; an exit function
// that comes back ends with their status.
[[noreturn]] [[gnu::format(printf, 3, 4)]] void task_fatal(Task* task, const Location& at, const char* format, ...);
void task_fatal_hook(void* task, const char* file, int32_t line, const char* text, int32_t status);
void env_fatal_hook(void* env, const char* file, int32_t line, const char* text, int32_t status);

// The four mutexes of an environment.
enum EnvMutex : int { mutex_ctrlc = 1, mutex_tasks = 2, mutex_glb = 3 };
int32_t env_lock(Env* env, EnvMutex which);
int32_t env_unlock(Env* env, EnvMutex which);

}  // namespace tarvo
