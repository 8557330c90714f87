// The interior point on linear problems: random small ones in every setting against the exact answer, and small ones
// that ask for a special step.
#include <gtest/gtest.h>

#include "support/differential.h"

namespace {

using namespace tarvo_test;

class Interior : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), TRV_RES_OK);
    ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
  }
  void TearDown() override { EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK); }
  TRVenv env = nullptr;
};
class InteriorDifferential : public Interior, public ::testing::WithParamInterface<int> {};

int setting(const char* name, int otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::atoi(text) : otherwise;
}

// A bound far out beside small numbers is a trial of its own; here it only hides what else is wrong.
IntLp drawn(Choices* pick, int32_t size) {
  constexpr int64_t far = 100000, back = 999000;
  IntLp lp = random_problem(pick, size);
  for (auto* list : {&lp.row, &lp.column})
    for (Bound& b : *list) {
      if (b.lower < -far) b.lower += back;
      if (b.upper > far) b.upper -= back;
    }
  return lp;
}

// An interior-point run may give up on a problem that is as degenerate as these are, and says so then; a claim is
// right.
bool gave_up(const std::string& wrong) {
  return wrong == "optimize gives " + std::to_string(TRV_RES_TRM_STALL) ||
         wrong == "optimize gives " + std::to_string(TRV_RES_TRM_NUMERICAL_PROBLEM);
}

TEST_P(InteriorDifferential, AgreesWithTheExactAnswer) {
  const int count = setting("TARVO_DIFFERENTIAL_SEEDS", 150);
  const int first = setting("TARVO_DIFFERENTIAL_START", 1) + GetParam() * count;
  int failures = 0, tired = 0;
  for (int seed = first; seed < first + count && failures < 5; ++seed) {
    Choices pick(static_cast<uint64_t>(seed));
    const IntLp lp = drawn(&pick, seed % 10 == 0 ? 12 : 6);
    for (int k = 0; k < 4; ++k) {
      const Config config = random_interior_config(&pick);
      const std::string wrong = try_problem(env, lp, config, nullptr);
      if (wrong.empty()) continue;
      if (gave_up(wrong)) {
        ++tired;
        continue;
      }
      ADD_FAILURE() << "seed " << seed << ": " << report(env, lp, config, wrong, "interior-" + std::to_string(seed));
      ++failures;
      break;
    }
  }
  EXPECT_LE(tired, 4 * count / 100);
}

Bound bound(int32_t key, int64_t lower, int64_t upper) {
  Bound b;
  b.key = key;
  b.lower = lower;
  b.upper = upper;
  return b;
}

// minimise c'x subject to a x = b, lower <= x <= upper (a key for all columns)
IntLp equations(const std::vector<int64_t>& c, const std::vector<std::vector<int64_t>>& a,
                const std::vector<int64_t>& b, int32_t key, int64_t upper) {
  IntLp lp;
  lp.c = c;
  lp.a = a;
  for (const int64_t v : b) lp.row.push_back(bound(TRV_BK_FX, v, v));
  for (std::size_t j = 0; j < c.size(); ++j) lp.column.push_back(bound(key, 0, upper));
  return lp;
}

// Ranged columns alone: the gap row sees the upper bounds, and a certificate needs them.
TEST_F(Interior, RangedColumnsTakeNoRescue) {
  const std::vector<std::vector<int64_t>> sums{{10, 10, 10}, {10, -10, 0}};
  const std::vector<std::vector<int64_t>> transport{{1, 1, 1, 0, 0, 0}, {0, 0, 0, 1, 1, 1}, {1, 0, 0, 1, 0, 0}};
  const std::vector<int64_t> costs{4, 1, 3, 2, 5, 6};
  const IntLp problems[] = {equations({1, 2, 3}, sums, {29, 5}, TRV_BK_RA, 1),
                            equations({1, 2, 3}, sums, {24, 5}, TRV_BK_RA, 1),
                            equations({0, 0, 0, 0, 0, 0}, {{100, 100, 100, 100, 100, 100}}, {606}, TRV_BK_RA, 1),
                            equations(costs, transport, {25, 28, 17}, TRV_BK_RA, 10),
                            equations(costs, transport, {25, 28, 21}, TRV_BK_RA, 10)};
  for (const IntLp& lp : problems) {
    Trial trial(env);
    Config config;
    config.optimizer = TRV_OPTIMIZER_INTPNT;
    config.form = 1;
    config.presolve = 0;
    ASSERT_EQ(trial.load(lp, config), "");
    std::string text;
    TRV_putintparam(trial.task(), TRV_IPAR_LOG, 10);
    TRV_putintparam(trial.task(), TRV_IPAR_LOG_INTPNT, 10);
    TRV_linkfunctotaskstream(trial.task(), TRV_STREAM_LOG, &text,
                             [](void* handle, const char* line) { *static_cast<std::string*>(handle) += line; });
    EXPECT_EQ(trial.solve(exact_answer(lp)), "") << as_text(lp);
    int32_t iterations = 0;
    TRV_getintinf(trial.task(), TRV_IINF_INTPNT_ITER, &iterations);
    EXPECT_LE(iterations, 12) << as_text(lp);
    EXPECT_EQ(text.find("regulevel"), std::string::npos) << text;
  }
}

// Without rows, bounds or independent rows.
TEST_F(Interior, SolvesProblemsWithoutAnInterior) {
  const IntLp problems[] = {
      equations({1, 1}, {{1, 2}, {1, -1}}, {3, 0}, TRV_BK_FR, 0),  // free columns alone: the point (1, 1)
      equations({1, 2, 3}, {{1, 1, 1}, {1, 2, 3}, {2, 3, 4}}, {3, 6, 9}, TRV_BK_FR, 0),  // and dependent rows
      equations({1, 0}, {{1, 2}}, {3}, TRV_BK_FR, 0),                                    // no bound stops the objective
      equations({1, -1, 0}, {}, {}, TRV_BK_RA, 5),                                       // no rows
      equations({0, 0}, {{1, 1}}, {0}, TRV_BK_LO, 0),                                    // the single point 0
      equations({1, 1}, {{1, 1}, {1, 1}}, {2, 3}, TRV_BK_LO, 0),  // rows that contradict each other
  };
  for (const IntLp& lp : problems)
    for (int k = 0; k < 12; ++k) {
      Config config;
      config.optimizer = TRV_OPTIMIZER_INTPNT;
      config.form = k % 3;
      config.presolve = 0;
      config.basis = k / 3 % 2;
      config.start = k / 6;
      EXPECT_EQ(try_problem(env, lp, config, nullptr), "") << config.text() << "\n" << as_text(lp);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, InteriorDifferential, ::testing::Range(0, 4));

// Settings at the ends of their ranges end with an answer or a code that says why not.
TEST_F(Interior, EndsUnderOddSettings) {
  Choices pick(7);
  for (int k = 0; k < 40; ++k) {
    const IntLp lp = drawn(&pick, 6);
    const auto exact = exact_answer(lp);
    const Config config = random_interior_config(&pick);
    for (const double path : {0.0, 0.5, 0.9999})
      for (const int32_t regularise : {0, 1}) {
        Trial trial(env);
        ASSERT_EQ(trial.load(lp, config), "");
        TRV_putdouparam(trial.task(), TRV_DPAR_INTPNT_TOL_PATH, path);
        TRV_putintparam(trial.task(), TRV_IPAR_INTPNT_REGULARIZATION_USE, regularise);
        int32_t trm = 0;
        ASSERT_EQ(TRV_optimizetrm(trial.task(), &trm), TRV_RES_OK) << config.text();
        if (trm == TRV_RES_OK) {
          EXPECT_EQ(trial.solve(exact), "") << config.text() << " path " << path << "\n" << as_text(lp);
        } else {
          EXPECT_TRUE(trm == TRV_RES_TRM_STALL || trm == TRV_RES_TRM_NUMERICAL_PROBLEM)
              << trm << " " << config.text() << " path " << path << "\n"
              << as_text(lp);
        }
      }
  }
}

// A call-back that stops at its k-th call, whichever event that is: the code says so and a solution is there.
TEST_F(Interior, StopsWhenTold) {
  struct Counter {
    int calls = 0, stop = 0;
  };
  Choices pick(3);
  const IntLp lp = random_problem(&pick, 12);
  for (int stop = 1; stop < 200; ++stop) {
    Trial trial(env);
    Config config;
    config.optimizer = TRV_OPTIMIZER_INTPNT;
    config.presolve = 0;
    ASSERT_EQ(trial.load(lp, config), "");
    Counter counter;
    counter.stop = stop;
    TRV_putcallbackfunc(
        trial.task(),
        [](TRVtask, void* handle, int32_t) -> int32_t {
          auto* count = static_cast<Counter*>(handle);
          return ++count->calls == count->stop;
        },
        &counter);
    int32_t trm = 0;
    ASSERT_EQ(TRV_optimizetrm(trial.task(), &trm), TRV_RES_OK);
    if (counter.calls < stop) return;  // it ended before
    if (trm != TRV_RES_OK) {
      EXPECT_EQ(trm, TRV_RES_TRM_USER_CALLBACK) << "call " << stop;
    }
  }
}

TEST_F(Interior, ObeysItsLimits) {
  Choices pick(3);
  const IntLp lp = random_problem(&pick, 12);
  Trial trial(env);
  Config config;
  config.optimizer = TRV_OPTIMIZER_INTPNT;
  config.presolve = 0;
  ASSERT_EQ(trial.load(lp, config), "");
  int32_t trm = 0, defined = 0;
  TRV_putintparam(trial.task(), TRV_IPAR_INTPNT_MAX_ITERATIONS, 0);
  EXPECT_EQ(TRV_optimizetrm(trial.task(), &trm), TRV_RES_OK);
  EXPECT_EQ(trm, TRV_RES_TRM_MAX_ITERATIONS);
  TRV_solutiondef(trial.task(), TRV_SOL_ITR, &defined);
  EXPECT_NE(defined, 0);
  TRV_putintparam(trial.task(), TRV_IPAR_INTPNT_MAX_ITERATIONS, 400);
  TRV_putdouparam(trial.task(), TRV_DPAR_OPTIMIZER_MAX_TIME, 1e-9);
  EXPECT_EQ(TRV_optimizetrm(trial.task(), &trm), TRV_RES_OK);
  EXPECT_EQ(trm, TRV_RES_TRM_MAX_TIME);
}

}  // namespace
