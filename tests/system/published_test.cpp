// Problems with published optima, read from files and solved through the public header: status, objective,
// violations on the file's own data, the size of the basis, and what a second run makes of the solution.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

struct Published {
  std::string name, status;
  double objective;
};

void PrintTo(const Published& p, std::ostream* out) { *out << p.name; }

// The linear problems of tests/data/problems.csv (name,rows,cols,nnz,objective,status,...).
std::vector<Published> linear_problems() {
  std::vector<Published> all;
  std::ifstream table(TARVO_TEST_DATA "/problems.csv");
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    std::vector<std::string> cell;
    std::stringstream row(line);
    for (std::string text; std::getline(row, text, ',');) cell.push_back(text);
    const std::string set = cell[0].substr(0, cell[0].find('/'));
    if (set != "netlib" && set != "netlib_infeas" && set != "kennington") continue;
    all.push_back({cell[0], cell[5], cell[4].empty() ? 0.0 : std::stod(cell[4])});
  }
  return all;
}

class Solved : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), TRV_RES_OK);
    ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
    ASSERT_EQ(TRV_makeemptytask(env, &task), TRV_RES_OK);
    ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX), TRV_RES_OK);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), TRV_RES_OK);
    EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK);
  }

  void read(const std::string& name) {
    const std::string path = TARVO_TEST_DATA "/" + name + ".gz";
    ASSERT_EQ(TRV_readdata(task, path.c_str()), TRV_RES_OK);
    ASSERT_EQ(TRV_getnumcon(task, &numcon), TRV_RES_OK);
    ASSERT_EQ(TRV_getnumvar(task, &numvar), TRV_RES_OK);
  }

  // Solves and checks what every final answer must satisfy.
  void solve_and_check(const Published& expected) {
    ASSERT_EQ(TRV_optimize(task), TRV_RES_OK);
    int32_t prosta = 0, solsta = 0;
    double pobj = 0, pbi = 0, peqi = 0, dobj = 0, dbi = 0, deqi = 0;
    ASSERT_EQ(TRV_getsolutioninf(task, TRV_SOL_BAS, &prosta, &solsta, &pobj, &pbi, nullptr, &peqi, nullptr, &dobj, &dbi,
                                 nullptr, &deqi),
              TRV_RES_OK);
    if (expected.status == "infeasible") {
      ASSERT_EQ(prosta, TRV_PRO_STA_PRIM_INFEAS);
      ASSERT_EQ(solsta, TRV_SOL_STA_PRIM_INFEAS_CER);
      // A certificate: its dual objective is positive and it satisfies the homogeneous dual far better than that.
      EXPECT_GT(dobj, 0.0);
      EXPECT_LE(std::max(dbi, deqi), 1e-6 * std::max(1.0, dobj));
      return;
    }
    ASSERT_EQ(solsta, TRV_SOL_STA_OPTIMAL);
    EXPECT_EQ(prosta, TRV_PRO_STA_PRIM_AND_DUAL_FEAS);
    const double scale = std::max(1.0, std::fabs(expected.objective));
    EXPECT_LE(std::fabs(pobj - expected.objective), 1e-6 * scale) << pobj;
    EXPECT_LE(std::fabs(dobj - expected.objective), 1e-6 * scale) << dobj;
    EXPECT_LE(std::max({pbi, peqi, dbi, deqi}), 1e-6);
    std::vector<int32_t> skc(static_cast<size_t>(numcon)), skx(static_cast<size_t>(numvar));
    ASSERT_EQ(TRV_getsolutionstatuskeyslice(task, TRV_ACC_CON, TRV_SOL_BAS, 0, numcon, skc.data()), TRV_RES_OK);
    ASSERT_EQ(TRV_getsolutionstatuskeyslice(task, TRV_ACC_VAR, TRV_SOL_BAS, 0, numvar, skx.data()), TRV_RES_OK);
    EXPECT_EQ(std::count(skc.begin(), skc.end(), TRV_SK_BAS) + std::count(skx.begin(), skx.end(), TRV_SK_BAS), numcon);
  }

  int32_t iterations() {
    int32_t count = -1;
    EXPECT_EQ(TRV_getintinf(task, TRV_IINF_SIM_PRIMAL_ITER, &count), TRV_RES_OK);
    return count;
  }

  std::vector<double> values(int32_t item, int32_t count) {
    std::vector<double> v(static_cast<size_t>(count));
    EXPECT_EQ(TRV_getsolutionslice(task, TRV_SOL_BAS, item, 0, count, v.data()), TRV_RES_OK);
    return v;
  }

  TRVenv env = nullptr;
  TRVtask task = nullptr;
  int32_t numcon = 0, numvar = 0;
};

class PublishedProblem : public Solved, public ::testing::WithParamInterface<Published> {};

TEST_P(PublishedProblem, IsSolvedAndSolvedAgainFromItsBasis) {
  ASSERT_NO_FATAL_FAILURE(read(GetParam().name));
  ASSERT_NO_FATAL_FAILURE(solve_and_check(GetParam()));
  const int32_t first = iterations();
  if (GetParam().status != "optimal") return;

  const auto x = values(TRV_SOL_ITEM_XX, numvar);
  ASSERT_NO_FATAL_FAILURE(solve_and_check(GetParam()));
  EXPECT_EQ(iterations(), 0) << "an unchanged optimal task";

  // The same run on a fresh start repeats to the last bit.
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_SIM_HOTSTART, TRV_SIM_HOTSTART_NONE), TRV_RES_OK);
  ASSERT_EQ(TRV_optimize(task), TRV_RES_OK);
  EXPECT_EQ(iterations(), first);
  EXPECT_EQ(values(TRV_SOL_ITEM_XX, numvar), x);
}

INSTANTIATE_TEST_SUITE_P(Data, PublishedProblem, ::testing::ValuesIn(linear_problems()), [](const auto& test) {
  std::string name = test.param.name;
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return name;
});

class Settings : public Solved, public ::testing::WithParamInterface<std::tuple<int, int, int>> {};

TEST_P(Settings, AgreeOnTheObjective) {
  const auto [selection, scaling, degen] = GetParam();
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_SIM_PRIMAL_SELECTION, selection), TRV_RES_OK);
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_SIM_SCALING, scaling), TRV_RES_OK);
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_SIM_DEGEN, degen), TRV_RES_OK);
  for (const Published& p : linear_problems()) {
    if (p.name != "netlib/adlittle.mps" && p.name != "netlib/e226.mps" && p.name != "netlib/grow7.mps" &&
        p.name != "netlib/stair.mps" && p.name != "netlib_infeas/forest6.mps") {
      continue;
    }
    SCOPED_TRACE(p.name);
    ASSERT_NO_FATAL_FAILURE(read(p.name));
    ASSERT_NO_FATAL_FAILURE(solve_and_check(p));
  }
}

// Two columns that take turns along a flat stretch of the sum of infeasibilities would never end here.
TEST_F(Solved, SteepestEdgePassesNoFlatStretch) {
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_SIM_PRIMAL_SELECTION, TRV_SIM_SELECTION_SE), TRV_RES_OK);
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_SIM_SCALING, TRV_SCALING_NONE), TRV_RES_OK);
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_SIM_MAX_ITERATIONS, 20000), TRV_RES_OK);
  ASSERT_NO_FATAL_FAILURE(read("netlib/wood1p.mps"));
  ASSERT_NO_FATAL_FAILURE(solve_and_check({"netlib/wood1p.mps", "optimal", 1.44290241157341}));
}

INSTANTIATE_TEST_SUITE_P(Of, Settings,
                         ::testing::Combine(::testing::Range(0, 6), ::testing::Range(0, 4), ::testing::Values(1)));
INSTANTIATE_TEST_SUITE_P(Degen, Settings,
                         ::testing::Combine(::testing::Values(0, 1), ::testing::Values(0),
                                            ::testing::Values(0, 2, 3, 4)));

}  // namespace
