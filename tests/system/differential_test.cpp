// Random small problems under every combination of optimiser, form and presolve, against an exact answer.
#include "support/differential.h"

#include <gtest/gtest.h>

namespace {

using namespace tarvo_test;

class Differential : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), TRV_RES_OK);
    ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
  }
  void TearDown() override { EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK); }
  TRVenv env = nullptr;
};

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

INSTANTIATE_TEST_SUITE_P(Seeds, Differential, ::testing::Range(0, 8));

}  // namespace
