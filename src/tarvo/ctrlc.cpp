// Control-C: a process-wide count of interrupts, and the tasks' comparison with it.
#include "tarvo/ctrlc.h"

#include <pthread.h>

#include <atomic>
#include <csignal>

#include "tarvo/frame.h"
#include "tarvo/log.h"

namespace tarvo {
namespace {

// The only global state of the library: signals know no objects.
std::atomic<int32_t> interrupts{0};
static_assert(std::atomic<int32_t>::is_always_lock_free);

// The handler is in place as long as some environment needs it; then the application's own comes back.
pthread_mutex_t handler_mutex = PTHREAD_MUTEX_INITIALIZER;
int32_t handler_users = 0;
struct sigaction replaced_action;

extern "C" void count_interrupt(int) { interrupts.fetch_add(1, std::memory_order_relaxed); }

void install_handler(Env* env) {
  if (env->ctrlc_installed != 0) return;
  pthread_mutex_lock(&handler_mutex);
  if (handler_users++ == 0) {
    struct sigaction action {};
    action.sa_handler = count_interrupt;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &replaced_action);
  }
  pthread_mutex_unlock(&handler_mutex);
  env->ctrlc_installed = 1;
}

// Asks how often control-C was pressed so far. With a user function that is how often it said so; it is called outside
// the lock, since it may use the environment.
int32_t read_count(Env* env) {
  if (env_lock(env, mutex_ctrlc) != TRV_RES_OK) return 0;
  const bool first = env->ctrlc_polls == 0;
  env->ctrlc_polls = env->ctrlc_polls == INT32_MAX ? 1 : env->ctrlc_polls + 1;
  const TRVctrlcfunc ask = env->ctrlc_func;
  void* handle = env->ctrlc_handle;
  if (ask == nullptr) {
    install_handler(env);
    env->ctrlc_seen = interrupts.load(std::memory_order_relaxed) + 1;
  } else if (first) {
    env->ctrlc_seen = 1;
  }
  int32_t count = env->ctrlc_seen;
  env_unlock(env, mutex_ctrlc);
  if (ask == nullptr || first || ask(handle) == 0) return count;
  if (env_lock(env, mutex_ctrlc) != TRV_RES_OK) return count;
  count = ++env->ctrlc_seen;
  env_unlock(env, mutex_ctrlc);
  return count;
}

}  // namespace

void ctrlc_release(Env* env) {
  if (env->ctrlc_installed == 0) return;
  env->ctrlc_installed = 0;
  pthread_mutex_lock(&handler_mutex);
  if (--handler_users == 0) {
    // Somebody may have put another handler in the meantime: that one stays.
    struct sigaction current {};
    sigaction(SIGINT, nullptr, &current);
    if (current.sa_handler == count_interrupt) sigaction(SIGINT, &replaced_action, nullptr);
  }
  pthread_mutex_unlock(&handler_mutex);
}

void ctrlc_snapshot(Task* task) {
  if (task->ipar[TRV_IPAR_CHECK_CTRL_C] != TRV_OFF) task->ctrlc_snapshot = read_count(task->env);
}

bool ctrlc_check(Task* task) {
  if (task->ipar[TRV_IPAR_CHECK_CTRL_C] == TRV_OFF) return false;
  if (task->break_code != TRV_RES_OK) return task->break_code == TRV_RES_TRM_USER_BREAK;
  const int32_t count = read_count(task->env);
  const bool pressed = count > task->ctrlc_snapshot;
  task->ctrlc_snapshot = count;
  if (!pressed) return false;
  task_print(task, TRV_STREAM_MSG, "<crtl>+<c> has been pressed while TARVO is running.\n");
  task->break_code = TRV_RES_TRM_USER_BREAK;
  return true;
}

}  // namespace tarvo
