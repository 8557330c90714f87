// Random small problems under every combination of optimiser, form and presolve, against an exact answer.
#include "support/differential.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using namespace tarvo_test;

class Regression : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), TRV_RES_OK);
    ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
  }
  void TearDown() override { EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK); }
  TRVenv env = nullptr;
};
class Differential : public Regression, public ::testing::WithParamInterface<int> {};

// TARVO_DIFFERENTIAL_SEEDS is the number of seeds a part, TARVO_DIFFERENTIAL_START the first one.
int setting(const char* name, int otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::atoi(text) : otherwise;
}

TEST_P(Differential, AgreesWithTheExactAnswer) {
  const int count = setting("TARVO_DIFFERENTIAL_SEEDS", 500);
  const int first = setting("TARVO_DIFFERENTIAL_START", 1) + GetParam() * count;
  int failures = 0;
  for (int seed = first; seed < first + count && failures < 5; ++seed) {
    Choices pick(static_cast<uint64_t>(seed));
    const IntLp lp = random_problem(&pick, seed % 10 == 0 ? 12 : 6);
    for (int k = 0; k < 4; ++k) {
      const Config config = random_config(&pick);
      const std::string wrong = try_problem(env, lp, config, &pick);
      if (wrong.empty()) continue;
      ADD_FAILURE() << "seed " << seed << ": "
                    << report(env, lp, config, wrong, "differential-" + std::to_string(seed));
      ++failures;
      break;
    }
  }
}

// Problems that went wrong once, in whole numbers, under every combination of optimiser, form and presolve.
TEST_F(Regression, SolvesWhatWentWrongOnce) {
  for (const auto& entry : std::filesystem::directory_iterator(TARVO_TEST_DATA "/regress")) {
    SCOPED_TRACE(entry.path().filename().string());
    IntLp lp;
    ASSERT_EQ(read_problem(env, entry.path().string(), &lp), "");
    for (const int32_t optimizer :
         {TRV_OPTIMIZER_PRIMAL_SIMPLEX, TRV_OPTIMIZER_DUAL_SIMPLEX, TRV_OPTIMIZER_FREE_SIMPLEX})
      for (int k = 0; k < 48; ++k) {
        const Config config{optimizer, k % 3, k / 3 % 2, k / 6 % 4, k / 24, 1};
        EXPECT_EQ(try_problem(env, lp, config, nullptr), "") << config.text();
      }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Differential, ::testing::Range(0, 8));

}  // namespace
