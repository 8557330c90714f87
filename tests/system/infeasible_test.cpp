// What is done with an infeasible or unbounded problem: repair, report, the infeasible part.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "tarvo.h"

namespace {

constexpr double inf = 1e30;

class Infeasible : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
    TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_FREE_SIMPLEX);
    TRV_linkfunctotaskstream(task, TRV_STREAM_MSG, &text,
                             [](void* handle, const char* line) { *static_cast<std::string*>(handle) += line; });
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&other), 0);
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  // c'x = x0 + 2 x1, low <= x0 + x1 <= 1 in two constraints, a third that doesn't matter, x >= 0.
  void load(double low) {
    TRV_append(task, TRV_ACC_CON, 3);
    TRV_append(task, TRV_ACC_VAR, 2);
    TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_UP, -inf, 1);
    TRV_putbound(task, TRV_ACC_CON, 1, TRV_BK_LO, low, inf);
    TRV_putbound(task, TRV_ACC_CON, 2, TRV_BK_UP, -inf, 50);
    for (int32_t j = 0; j < 2; ++j) {
      TRV_putcj(task, j, 1 + j);
      TRV_putbound(task, TRV_ACC_VAR, j, TRV_BK_LO, 0, inf);
      for (int32_t i = 0; i < 3; ++i) TRV_putaij(task, i, j, i == 2 && j == 1 ? -1 : 1);
    }
    for (int32_t i = 0; i < 3; ++i)
      TRV_putname(task, TRV_PI_CON, i, std::string(1, static_cast<char>('a' + i)).c_str());
    for (int32_t j = 0; j < 2; ++j)
      TRV_putname(task, TRV_PI_VAR, j, std::string(1, static_cast<char>('a' + j)).c_str());
  }
  int32_t repair(int32_t mode) {
    TRV_deletetask(&other);
    TRV_putintparam(task, TRV_IPAR_FEASREPAIR_OPTIMIZE, mode);
    return TRV_relaxprimal(task, &other, wlc.data(), wuc.data(), wlx.data(), wux.data());
  }
  int32_t status(TRVtask of) {
    int32_t prosta = -1, solsta = -1;
    EXPECT_EQ(TRV_optimize(of), 0);
    TRV_getsolutionstatus(of, TRV_SOL_BAS, &prosta, &solsta);
    return solsta;
  }
  bool says(const char* part) const { return text.find(part) != std::string::npos; }

  TRVenv env = nullptr;
  TRVtask task = nullptr, other = nullptr;
  std::string text;
  std::array<double, 3> wlc{1, 10, 1}, wuc{1, 1, 1};
  std::array<double, 2> wlx{10, 10}, wux{1, 1};
};

TEST_F(Infeasible, RepairMovesTheCheapestBounds) {
  load(3);
  for (const double cfix : {0.0, 100.0}) {
    TRV_putcfix(task, cfix);
    for (const int32_t mode : {TRV_FEASREPAIR_OPTIMIZE_PENALTY, TRV_FEASREPAIR_OPTIMIZE_COMBINED}) {
      wlc = {1, 10, 1}, wuc = {1, 1, 1}, wlx = {10, 10}, wux = {1, 1};
      ASSERT_EQ(repair(mode), 0);
      int32_t numcon = 0, numvar = 0;
      TRV_getnumcon(other, &numcon);
      TRV_getnumvar(other, &numvar);
      EXPECT_EQ(numcon, 3 + 2 + 1);
      EXPECT_EQ(numvar, 2 + 5 + 1);
      EXPECT_NEAR(wuc[0], 3, 1e-6);
      EXPECT_NEAR(wlc[1], 3, 1e-6);
      EXPECT_NEAR(wuc[2], 50, 1e-6);
      EXPECT_EQ(wux[0], inf);
      EXPECT_NEAR(wlx[0], 0, 1e-6);
      double objective = 0;
      TRV_getprimalobj(other, TRV_SOL_BAS, &objective);
      EXPECT_NEAR(objective, mode == TRV_FEASREPAIR_OPTIMIZE_PENALTY ? 2 : 3 + cfix, 1e-6);
    }
  }
  // Constraint "a" and variable "a" can't both give their name.
  char name[TRV_MAX_STR_LEN];
  TRV_getvarname(other, 2, sizeof name, name);
  EXPECT_STREQ(name, "TRV-a-up");
  TRV_getvarname(other, 5, sizeof name, name);
  EXPECT_STREQ(name, "TRV-a-lo");
  TRV_getconname(other, 3, sizeof name, name);
  EXPECT_STREQ(name, "TRV-a");
}

TEST_F(Infeasible, RepairTellsWhatItCannotDo) {
  load(3);
  const auto weights = wlc;
  ASSERT_EQ(repair(TRV_FEASREPAIR_OPTIMIZE_NONE), 0);
  int32_t defined = -1;
  TRV_solutiondef(other, TRV_SOL_BAS, &defined);
  EXPECT_EQ(defined, 0);
  EXPECT_EQ(wlc, weights);
  wlc.fill(-1), wuc.fill(-1), wlx.fill(-1), wux.fill(-1);
  EXPECT_EQ(repair(TRV_FEASREPAIR_OPTIMIZE_PENALTY), TRV_RES_ERR_FEASREPAIR_SOLVING_RELAXED);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(wlc[0], -1);
  EXPECT_EQ(TRV_relaxprimal(task, &task, wlc.data(), wuc.data(), wlx.data(), wux.data()), TRV_RES_ERR_IDENTICAL_TASKS);
  EXPECT_EQ(TRV_relaxprimal(task, &other, wlc.data(), wuc.data(), nullptr, wux.data()), TRV_RES_ERR_NULL_POINTER);
  TRV_putbound(task, TRV_ACC_CON, 2, TRV_BK_RA, 1, 0);
  EXPECT_EQ(repair(TRV_FEASREPAIR_OPTIMIZE_PENALTY), TRV_RES_ERR_FEASREPAIR_INCONSISTENT_BOUND);
}

TEST_F(Infeasible, ReportNamesWhatContradicts) {
  for (const int32_t sense : {TRV_OBJECTIVE_SENSE_MINIMIZE, TRV_OBJECTIVE_SENSE_MAXIMIZE}) {
    TRV_resizetask(task, 0, 0, 0, 0, 0);
    load(3);
    TRV_putobjsense(task, sense);
    TRV_putintparam(task, TRV_IPAR_LOG, 0);
    TRV_putintparam(task, TRV_IPAR_INFEAS_REPORT_AUTO, TRV_ON);
    text.clear();
    ASSERT_EQ(status(task), TRV_SOL_STA_PRIM_INFEAS_CER);
    EXPECT_TRUE(
        says("\nThe following constraints are involved in the primal infeasibility.\n\nIndex Name Lower bound   "
             "   Upper bound      Dual lower       Dual upper      \n0     a    NONE             "))
        << text;
    EXPECT_TRUE(says("\n1     b    3.000000e+00     NONE "));
    EXPECT_FALSE(says("\n2     c "));
    // The infeasible part alone is infeasible, and shows the two constraints with their columns.
    TRV_deletetask(&other);
    ASSERT_EQ(TRV_getinfeasiblesubproblem(task, 3, &other), 0);
    ASSERT_NE(other, nullptr);
    TRV_putintparam(other, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_FREE_SIMPLEX);
    EXPECT_EQ(status(other), TRV_SOL_STA_PRIM_INFEAS_CER);
    int32_t numvar = 0, bk = -1;
    double bl = 0, bu = 0;
    TRV_getnumvar(other, &numvar);
    EXPECT_EQ(numvar, 2);
    TRV_getbound(other, TRV_ACC_CON, 2, &bk, &bl, &bu);
    EXPECT_EQ(bk, TRV_BK_FR);
  }
}

TEST_F(Infeasible, ReportShowsTheRay) {
  load(0);
  TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_LO, 0, inf);
  TRV_append(task, TRV_ACC_VAR, 1);
  TRV_putbound(task, TRV_ACC_VAR, 2, TRV_BK_RA, 0, 1);
  TRV_putcj(task, 0, -1);
  TRV_putcj(task, 1, 0.5);
  TRV_putintparam(task, TRV_IPAR_LOG, 0);
  TRV_putintparam(task, TRV_IPAR_INFEAS_REPORT_AUTO, TRV_ON);
  ASSERT_EQ(status(task), TRV_SOL_STA_DUAL_INFEAS_CER);
  EXPECT_TRUE(says("\nTARVO DUAL INFEASIBILITY REPORT.\n\nProblem status: The problem is dual infeasible\n")) << text;
  EXPECT_TRUE(says("Index Name Activity         Objective        Lower bound      Upper bound     \n"));
  ASSERT_EQ(TRV_getinfeasiblesubproblem(task, TRV_SOL_BAS, &other), 0);
  ASSERT_NE(other, nullptr);
  TRV_putintparam(other, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_FREE_SIMPLEX);
  EXPECT_EQ(status(other), TRV_SOL_STA_DUAL_INFEAS_CER);
}

TEST_F(Infeasible, SubproblemOfNothing) {
  load(0);
  EXPECT_EQ(TRV_getinfeasiblesubproblem(task, 3, &other), 0);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(TRV_getinfeasiblesubproblem(task, TRV_SOL_BAS, &other), TRV_RES_ERR_UNDEF_SOLUTION);
  EXPECT_EQ(TRV_getinfeasiblesubproblem(task, TRV_SOL_BAS, nullptr), TRV_RES_ERR_NULL_POINTER);
  TRVtask same = task;
  EXPECT_EQ(TRV_getinfeasiblesubproblem(task, TRV_SOL_BAS, &same), TRV_RES_ERR_IDENTICAL_TASKS);
  ASSERT_EQ(status(task), TRV_SOL_STA_OPTIMAL);
  EXPECT_EQ(TRV_getinfeasiblesubproblem(task, TRV_SOL_BAS, &other), 0);
  EXPECT_EQ(other, nullptr);
}

}  // namespace
