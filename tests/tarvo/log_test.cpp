// Progress events: their lines, who is called and when, what stops an optimiser.
#include "tarvo/log.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "simplex/simplex.h"
#include "tarvo/frame.h"

namespace tarvo {
namespace {

using Codes = std::vector<int32_t>;

class Log : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
    TRV_linkfunctotaskstream(task, TRV_STREAM_MSG, &text,
                             [](void* handle, const char* line) { *static_cast<std::string*>(handle) += line; });
    log_start(task);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  void listen() {
    TRV_putcallbackfunc(
        task,
        [](TRVtask, void* handle, int32_t where) -> int32_t {
          static_cast<Codes*>(handle)->push_back(where);
          return 0;
        },
        &codes);
  }
  std::string printed(int32_t event) {
    text.clear();
    EXPECT_EQ(tarvolog(task, event), 0) << event;
    return text;
  }
  int32_t count(const char* part) {
    int32_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  std::string text;
  Codes codes;
};

TEST_F(Log, EveryEventPrintsWholeLinesAtItsLevelAndCallsBack) {
  listen();
  for (int32_t event = 0; event < 104; ++event) {
    const std::string line = printed(event);
    EXPECT_TRUE(line.empty() || line.back() == '\n') << event << line;
    TRV_putintparam(task, TRV_IPAR_LOG, 0);
    EXPECT_EQ(printed(event), "") << event;
    TRV_putintparam(task, TRV_IPAR_LOG, 10);
  }
  ASSERT_EQ(codes.size(), 208U);
  EXPECT_EQ(codes[2 * 40], TRV_CALLBACK_IM_PRIMAL_SIMPLEX);
  EXPECT_EQ(codes[2 * 62], 83);
  EXPECT_EQ(codes[2 * 103], TRV_CALLBACK_END_NETWORK_DUAL_SIMPLEX);
}

TEST_F(Log, LevelsAreHalvedAndCutInLaterOptimisations) {
  TRV_putintparam(task, TRV_IPAR_LOG_SIM, 1);
  EXPECT_EQ(printed(36), "");  // level 1 / 2
  TRV_putintparam(task, TRV_IPAR_LOG_SIM, 2);
  EXPECT_EQ(printed(36), "Primal simplex optimizer started.\n");
  task->num_optimizations = 2;
  EXPECT_EQ(printed(36), "");
  EXPECT_NE(printed(39), "");
  TRV_putintparam(task, TRV_IPAR_LOG_CUT_SECOND_OPT, 0);
  EXPECT_NE(printed(36), "");
}

TEST_F(Log, HeadsArePrintedOnceAnOptimisation) {
  for (int k = 0; k < 3; ++k) {
    for (const int32_t event : {32, 38, 1}) tarvolog(task, event);
  }
  EXPECT_EQ(count("problem type           : LO"), 1);
  EXPECT_EQ(count("hotstart"), 3);
  EXPECT_EQ(count("Optimizer  - solved problem         : the primal      \n"), 2 + 1);
  EXPECT_EQ(count("ITE PFEAS"), 1);
  log_start(task);
  tarvolog(task, 32);
  EXPECT_EQ(count("problem type"), 2);
}

TEST_F(Log, SimplexRowsShowTheColumnsOfTheProblemSolved) {
  task->objective_sense = TRV_OBJECTIVE_SENSE_MAXIMIZE;
  simplexinfo info{};
  info.iter[SIM_PRIMAL] = int64_t{1} << 40;
  info.pobj = -2;
  info.sumpbi = 0.5;
  const double cpu0 = sysenv_cputime();
  EXPECT_EQ(event_simplex(task, 39, &info, cpu0, sysenv_realtime()), 0);
  EXPECT_EQ(text.rfind("2147483647  0.00        5.00e-01    NA          2.0000000000e+00      NA  ", 0), 0U) << text;
  info.solvedual = 1;
  text.clear();
  event_simplex(task, 39, &info, cpu0, sysenv_realtime());
  EXPECT_EQ(text.rfind("2147483647  0.00        NA          5.00e-01    NA                    2.00000", 0), 0U) << text;
}

TEST_F(Log, ItemsAreWrittenOnlyForListeners) {
  simplexinfo info{};
  info.iter[SIM_PRIMAL] = 7;
  task->dinf[TRV_DINF_OPTIMIZER_REALTIME] = -1;
  event_simplex(task, 40, &info, 0, 0);
  EXPECT_EQ(task->iinf[TRV_IINF_SIM_PRIMAL_ITER], 0);
  EXPECT_EQ(task->dinf[TRV_DINF_OPTIMIZER_REALTIME], -1);
  listen();
  event_simplex(task, 40, &info, 0, 0);
  EXPECT_EQ(task->iinf[TRV_IINF_SIM_PRIMAL_ITER], 7);
  EXPECT_GT(task->dinf[TRV_DINF_OPTIMIZER_REALTIME], 0);
}

TEST_F(Log, CallbackFrequencyHoldsBackIterationsOnly) {
  listen();
  TRV_putdouparam(task, TRV_DPAR_CALLBACK_FREQ, 1e6);
  simplexinfo info{};
  for (const int32_t event : {32, 36, 40, 40, 39, 41, 33}) event_simplex(task, event, &info, 0, 0);
  EXPECT_EQ(codes, (Codes{TRV_CALLBACK_BEGIN_SIMPLEX, TRV_CALLBACK_BEGIN_PRIMAL_SIMPLEX, TRV_CALLBACK_IM_PRIMAL_SIMPLEX,
                          TRV_CALLBACK_END_PRIMAL_SIMPLEX, TRV_CALLBACK_END_SIMPLEX}));
}

TEST_F(Log, StopsAreTurnedIntoCodes) {
  TRV_putcallbackfunc(
      task, [](TRVtask, void*, int32_t) -> int32_t { return 1; }, nullptr);
  EXPECT_EQ(resp_rescode(task, tarvolog(task, 40)), TRV_RES_TRM_USER_CALLBACK);
  task->stop_func = [](TRVtask, void*, int32_t) -> int32_t { return 1; };  // asked before the user's
  EXPECT_EQ(resp_rescode(task, tarvolog(task, 40)), TRV_RES_TRM_INTERNAL);
  task->break_code = 0;
  EXPECT_EQ(event_phase(task, TRV_CALLBACK_BEGIN_INFEAS_ANA, 0, 0), TRV_RES_TRM_USER_CALLBACK);
  for (const int32_t resp : {-1, 2, 34, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(resp_rescode(task, resp), TRV_RES_ERR_UNKNOWN) << resp;
  }
  EXPECT_EQ(resp_rescode(task, 27), TRV_RES_TRM_MAX_NUM_SETBACKS);
}

// The limit strikes by the thread's CPU time, also when nobody else needs a clock; what went before the start of this
// optimisation doesn't count.
TEST_F(Log, TimeLimitCountsTheThreadsOwnTime) {
  simplexinfo info{};
  TRV_putdouparam(task, TRV_DPAR_OPTIMIZER_MAX_TIME, 0.02);
  task->dinf[TRV_DINF_OPTIMIZER_CPUTIME] = 100;
  log_start(task);
  const double cpu0 = sysenv_cputime();
  const double real0 = sysenv_realtime();
  while (event_simplex(task, 40, &info, cpu0, real0) == 0) {
    ASSERT_LT(sysenv_cputime() - cpu0, 1.0);
  }
  EXPECT_GT(sysenv_cputime() - cpu0, 0.02);
  TRV_putdouparam(task, TRV_DPAR_OPTIMIZER_MAX_TIME, 0);
  EXPECT_EQ(event_simplex(task, 41, &info, cpu0, real0), 0);
}

TEST_F(Log, ControlCStopsEveryTaskAndGivesTheHandlerBack) {
  TRV_putintparam(task, TRV_IPAR_CHECK_CTRL_C, TRV_ON);
  ctrlc_snapshot(task);
  EXPECT_EQ(tarvolog(task, 40), 0);
  std::raise(SIGINT);
  EXPECT_EQ(resp_rescode(task, tarvolog(task, 40)), TRV_RES_TRM_USER_BREAK);
  EXPECT_EQ(text, "<crtl>+<c> has been pressed while TARVO is running.\n");
  EXPECT_TRUE(ctrlc_check(task));  // until the next optimisation
  log_start(task);
  ctrlc_snapshot(task);
  EXPECT_EQ(tarvolog(task, 40), 0);
  // A second environment shares the handler; the application has its own again when both are gone.
  TRVenv other = nullptr;
  TRVtask task2 = nullptr;
  TRV_makeenv(&other, nullptr, nullptr, nullptr, nullptr);
  TRV_initenv(other);
  TRV_makeemptytask(other, &task2);
  TRV_putintparam(task2, TRV_IPAR_CHECK_CTRL_C, TRV_ON);
  ctrlc_snapshot(task2);
  EXPECT_FALSE(ctrlc_check(task2));
  TRV_deletetask(&task2);
  TRV_deleteenv(&other);
  std::raise(SIGINT);
  EXPECT_TRUE(ctrlc_check(task));
  TRV_deletetask(&task);
  TRV_deleteenv(&env);
  struct sigaction current {};
  sigaction(SIGINT, nullptr, &current);
  EXPECT_EQ(current.sa_handler, SIG_DFL);
}

}  // namespace
}  // namespace tarvo
