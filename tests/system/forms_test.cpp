// Every optimizer, in every form, with and without presolve and scaling: one optimum, a basis of the original problem,
// nothing violated; restarts that need nothing; and starts that a changed problem leaves.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

struct Known {
  const char* name;
  double objective;
};
constexpr Known problems[] = {{"netlib/adlittle", 225494.96316238},  {"netlib/kb2", -1749.90012990621},
                              {"netlib/sc105", -52.2020612117073},   {"netlib/share1b", -76589.3185791859},
                              {"netlib/scagr25", -14753433.0607688}, {"netlib/boeing1", -335.213567507127},
                              {"netlib/grow7", -47787811.8147115},   {"netlib/recipe", -266.616}};

class Forms : public ::testing::TestWithParam<std::tuple<int, int, int>> {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), TRV_RES_OK);
    ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
    ASSERT_EQ(TRV_makeemptytask(env, &task), TRV_RES_OK);
    const auto [optimizer, form, presolve] = GetParam();
    set(TRV_IPAR_OPTIMIZER, optimizer);
    set(TRV_IPAR_SIM_SOLVE_FORM, form);
    set(TRV_IPAR_PRESOLVE_USE, presolve);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), TRV_RES_OK);
    EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK);
  }
  void set(int32_t parameter, int32_t value) { ASSERT_EQ(TRV_putintparam(task, parameter, value), TRV_RES_OK); }
  void read(const std::string& name) {
    ASSERT_EQ(TRV_readdata(task, (TARVO_TEST_DATA "/" + name + ".mps.gz").c_str()), TRV_RES_OK);
    ASSERT_EQ(TRV_getnumcon(task, &numcon), TRV_RES_OK);
    ASSERT_EQ(TRV_getnumvar(task, &numvar), TRV_RES_OK);
  }
  int32_t iterations() {
    int32_t primal = 0, dual = 0;
    TRV_getintinf(task, TRV_IINF_SIM_PRIMAL_ITER, &primal);
    TRV_getintinf(task, TRV_IINF_SIM_DUAL_ITER, &dual);
    return primal + dual;
  }
  // The objective of an optimal basic solution that holds on the problem's own data.
  double solve() {
    EXPECT_EQ(TRV_optimize(task), TRV_RES_OK);
    int32_t prosta = 0, solsta = 0;
    double pobj = 0, pbi = 0, peqi = 0, dobj = 0, dbi = 0, deqi = 0;
    EXPECT_EQ(TRV_getsolutioninf(task, TRV_SOL_BAS, &prosta, &solsta, &pobj, &pbi, nullptr, &peqi, nullptr, &dobj, &dbi,
                                 nullptr, &deqi),
              TRV_RES_OK);
    EXPECT_EQ(solsta, TRV_SOL_STA_OPTIMAL);
    EXPECT_LE(std::fabs(pobj - dobj), 1e-6 * std::max(1.0, std::fabs(pobj)));
    EXPECT_LE(std::max({pbi, peqi, dbi, deqi}), 1e-6);
    std::vector<int32_t> skc(static_cast<size_t>(numcon)), skx(static_cast<size_t>(numvar));
    TRV_getsolutionstatuskeyslice(task, TRV_ACC_CON, TRV_SOL_BAS, 0, numcon, skc.data());
    TRV_getsolutionstatuskeyslice(task, TRV_ACC_VAR, TRV_SOL_BAS, 0, numvar, skx.data());
    EXPECT_EQ(std::count(skc.begin(), skc.end(), TRV_SK_BAS) + std::count(skx.begin(), skx.end(), TRV_SK_BAS), numcon);
    return pobj;
  }

  TRVenv env = nullptr;
  TRVtask task = nullptr;
  int32_t numcon = 0, numvar = 0;
};

TEST_P(Forms, GiveOneOptimumAndKeepIt) {
  for (const Known& p : problems) {
    SCOPED_TRACE(p.name);
    ASSERT_NO_FATAL_FAILURE(read(p.name));
    for (const int32_t scaling : {TRV_SCALING_NONE, TRV_SCALING_FREE}) {
      set(TRV_IPAR_SIM_SCALING, scaling);
      set(TRV_IPAR_SIM_HOTSTART, TRV_SIM_HOTSTART_NONE);
      EXPECT_LE(std::fabs(solve() - p.objective), 1e-6 * std::fabs(p.objective));
      set(TRV_IPAR_SIM_HOTSTART, TRV_SIM_HOTSTART_FREE);
      EXPECT_LE(std::fabs(solve() - p.objective), 1e-6 * std::fabs(p.objective));
      EXPECT_EQ(iterations(), 0);
    }
  }
}

// The twin of a minimisation: the optimum with the other sign, and its restart is as short.
TEST_P(Forms, MaximiseTheNegatedObjective) {
  ASSERT_NO_FATAL_FAILURE(read(problems[0].name));
  std::vector<double> c(static_cast<size_t>(numvar));
  ASSERT_EQ(TRV_getcslice(task, 0, numvar, c.data()), TRV_RES_OK);
  for (int32_t j = 0; j < numvar; ++j) ASSERT_EQ(TRV_putcj(task, j, -c[static_cast<size_t>(j)]), TRV_RES_OK);
  ASSERT_EQ(TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MAXIMIZE), TRV_RES_OK);
  EXPECT_NEAR(solve(), -problems[0].objective, 0.2);
  EXPECT_NEAR(solve(), -problems[0].objective, 0.2);
  EXPECT_EQ(iterations(), 0);
  const int32_t j = static_cast<int32_t>(std::max_element(c.begin(), c.end()) - c.begin());
  ASSERT_EQ(TRV_putcj(task, j, -2 * c[static_cast<size_t>(j)]), TRV_RES_OK);
  const double warm = solve();
  EXPECT_LE(iterations(), 30);
  set(TRV_IPAR_SIM_HOTSTART, TRV_SIM_HOTSTART_NONE);
  EXPECT_NEAR(solve(), warm, 1e-6 * std::fabs(warm));
}

INSTANTIATE_TEST_SUITE_P(Simplex, Forms,
                         ::testing::Combine(::testing::Values(TRV_OPTIMIZER_PRIMAL_SIMPLEX, TRV_OPTIMIZER_DUAL_SIMPLEX,
                                                              TRV_OPTIMIZER_FREE_SIMPLEX),
                                            ::testing::Values(TRV_SOLVE_FREE, TRV_SOLVE_PRIMAL, TRV_SOLVE_DUAL),
                                            ::testing::Values(TRV_PRESOLVE_MODE_OFF, TRV_PRESOLVE_MODE_ON)));

}  // namespace
