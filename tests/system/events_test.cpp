// An optimisation as its call-backs and streams see it.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "system/rich_task.h"

namespace {

class Events : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
    ASSERT_EQ(load_linear(task), 0);
    ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX), 0);
    TRV_linkfunctotaskstream(task, TRV_STREAM_LOG, &log,
                             [](void* handle, const char* line) { *static_cast<std::string*>(handle) += line; });
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  std::string log;
};

TEST_F(Events, ComeInOrderWithCurrentItems) {
  struct Seen {
    std::vector<int32_t> codes;
    double last_time = 0.0;
  } seen;
  TRV_putcallbackfunc(
      task,
      [](TRVtask self, void* handle, int32_t where) -> int32_t {
        auto* s = static_cast<Seen*>(handle);
        s->codes.push_back(where);
        double now = 0.0;
        EXPECT_EQ(TRV_getdouinf(self, TRV_DINF_OPTIMIZER_REALTIME, &now), 0);
        EXPECT_GE(now, s->last_time);
        s->last_time = now;
        return 0;
      },
      &seen);
  EXPECT_EQ(TRV_optimize(task), 0);
  const auto at = [&seen](int32_t code) { return std::find(seen.codes.begin(), seen.codes.end(), code); };
  ASSERT_NE(at(TRV_CALLBACK_END_SIMPLEX), seen.codes.end());
  EXPECT_EQ(seen.codes.front(), TRV_CALLBACK_BEGIN_SIMPLEX);
  EXPECT_EQ(seen.codes.back(), TRV_CALLBACK_END_SIMPLEX);
  EXPECT_LT(at(TRV_CALLBACK_BEGIN_PRIMAL_SIMPLEX), at(TRV_CALLBACK_IM_PRIMAL_SIMPLEX));
  EXPECT_LT(at(TRV_CALLBACK_IM_PRIMAL_SIMPLEX), at(TRV_CALLBACK_END_PRIMAL_SIMPLEX));
  EXPECT_NE(log.find("problem type           : LO"), std::string::npos);
  EXPECT_NE(log.find("\nITER      DEGITER(%)"), std::string::npos);
  EXPECT_NE(log.find("  8.3333333333e+01      NA  "), std::string::npos);  // the row of a maximisation has its sign
}

// Wherever the call-back stops it, the optimiser ends with its code, and the next run finds the optimum.
TEST_F(Events, CallbackStopsAtAnyEvent) {
  struct Stopper {
    int32_t calls = 0, stop_at = 0;
  } stopper;
  TRV_putcallbackfunc(
      task,
      [](TRVtask, void* handle, int32_t) -> int32_t {
        auto* s = static_cast<Stopper*>(handle);
        return ++s->calls == s->stop_at ? 1 : 0;
      },
      &stopper);
  int32_t rc = TRV_RES_TRM_USER_CALLBACK;
  for (stopper.stop_at = 1; rc != 0 && stopper.stop_at < 100; ++stopper.stop_at) {
    TRV_deletesolution(task, TRV_SOL_BAS);
    stopper.calls = 0;
    rc = TRV_optimize(task);
    EXPECT_TRUE(rc == TRV_RES_TRM_USER_CALLBACK || rc == 0) << rc << " at " << stopper.stop_at;
  }
  EXPECT_EQ(rc, 0);
  EXPECT_GT(stopper.stop_at, 5);
  double objective = 0.0;
  EXPECT_EQ(TRV_getprimalobj(task, TRV_SOL_BAS, &objective), 0);
  EXPECT_NEAR(objective, load_linear_optimum, 1e-9);
}

TEST_F(Events, ControlCFunctionStops) {
  TRV_putctrlcfunc(
      env, [](void*) { return 1; }, nullptr);
  TRV_putintparam(task, TRV_IPAR_CHECK_CTRL_C, TRV_ON);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_TRM_USER_BREAK);
  EXPECT_NE(log.find("<crtl>+<c> has been pressed while TARVO is running.\n"), std::string::npos);
  TRV_putctrlcfunc(
      env, [](void*) { return 0; }, nullptr);
  EXPECT_EQ(TRV_optimize(task), 0);
}

// What a call-back must not do comes back as a code.
TEST_F(Events, CallbackCannotPullTheTaskAway) {
  TRV_putcallbackfunc(
      task,
      [](TRVtask self, void*, int32_t where) -> int32_t {
        if (where != TRV_CALLBACK_BEGIN_PRIMAL_SIMPLEX) return 0;
        TRVtask doomed = self;
        EXPECT_EQ(TRV_deletetask(&doomed), TRV_RES_ERR_INTERNAL);
        EXPECT_NE(doomed, nullptr);
        EXPECT_NE(TRV_resizetask(self, 0, 0, 0, 0, 0), 0);
        EXPECT_NE(TRV_append(self, TRV_ACC_VAR, 1000), 0);
        EXPECT_NE(TRV_optimize(self), 0);
        EXPECT_NE(TRV_deletesolution(self, TRV_SOL_BAS), 0);
        TRV_undefsolution(self, TRV_SOL_BAS);
        TRV_setdefaults(self);
        int32_t count = 0;
        int32_t sub[4];
        double val[4];
        EXPECT_EQ(TRV_getavec(self, TRV_ACC_CON, 0, &count, sub, val), 0);
        EXPECT_EQ(count, 3);
        TRVtask copy = nullptr;
        EXPECT_EQ(TRV_clonetask(self, &copy), 0);
        EXPECT_EQ(TRV_deletetask(&copy), 0);
        return 0;
      },
      nullptr);
  EXPECT_EQ(TRV_optimize(task), 0);
}

}  // namespace
