// The solution store: status rules of edits, and values that survive them.
#include <gtest/gtest.h>

#include <vector>

#include "tarvo/frame.h"
#include "tarvo/tarvosol.h"

namespace tarvo {
namespace {

class Sol : public testing::Test {
 protected:
  // minimise x0 + 2 x1, x0 + x1 >= 2, x >= 0, at its optimum (2, 0).
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_maketask(env, 1, 2, &task), 0);
    TRV_append(task, TRV_ACC_CON, 1);
    TRV_append(task, TRV_ACC_VAR, 2);
    for (int32_t j = 0; j < 2; ++j) {
      TRV_putcj(task, j, 1 + j);
      TRV_putaij(task, 0, j, 1.0);
      TRV_putbound(task, TRV_ACC_VAR, j, TRV_BK_LO, 0, 0);
    }
    TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_LO, 2, 0);
    const int32_t skc[] = {TRV_SK_LOW}, skx[] = {TRV_SK_BAS, TRV_SK_LOW};
    const double xc[] = {2}, xx[] = {2, 0}, y[] = {1}, slc[] = {1}, slx[] = {0, 1};
    for (int32_t s : {TRV_SOL_ITR, TRV_SOL_BAS, TRV_SOL_ITG})
      ASSERT_EQ(TRV_putsolution(task, s, skc, skx, nullptr, xc, xx, y, slc, nullptr, slx, nullptr, nullptr), 0);
    set(TRV_PRO_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_OPTIMAL);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  void set(int32_t prosta, int32_t solsta) {
    for (Solution& sol : task->sol) {
      sol.prosta = prosta;
      sol.solsta = solsta;
    }
  }
  void expect(int32_t prosta, int32_t solsta) {
    for (const Solution& sol : task->sol) {
      EXPECT_EQ(sol.prosta, prosta);
      EXPECT_EQ(sol.solsta, solsta);
    }
  }
  [[nodiscard]] int32_t keyx(int32_t j) const { return sol_view(task, TRV_SOL_BAS).skx[j]; }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
};

struct BoundCase {
  int32_t j, bk;
  double bl, bu;
  int32_t prosta, solsta, prosta_after, solsta_after, key_after;
};
class BoundRule : public Sol, public testing::WithParamInterface<BoundCase> {};

TEST_P(BoundRule, LowersWhatNoLongerHolds) {
  const BoundCase& b = GetParam();
  set(b.prosta, b.solsta);
  ASSERT_EQ(TRV_putbound(task, TRV_ACC_VAR, b.j, b.bk, b.bl, b.bu), 0);
  expect(b.prosta_after, b.solsta_after);
  EXPECT_EQ(keyx(b.j), b.key_after);
}
constexpr int32_t pd = TRV_PRO_STA_PRIM_AND_DUAL_FEAS, pf = TRV_PRO_STA_PRIM_FEAS, df = TRV_PRO_STA_DUAL_FEAS;
INSTANTIATE_TEST_SUITE_P(
    Sol, BoundRule,
    testing::Values(
        // A lower bound above the value, and one that doesn't touch it.
        BoundCase{1, TRV_BK_LO, 1, 0, pd, TRV_SOL_STA_OPTIMAL, df, TRV_SOL_STA_DUAL_FEAS, TRV_SK_UNK},
        BoundCase{0, TRV_BK_LO, 1, 0, pd, TRV_SOL_STA_OPTIMAL, pd, TRV_SOL_STA_OPTIMAL, TRV_SK_BAS},
        // Relaxed; lost; a new side, harmless and violated.
        BoundCase{1, TRV_BK_LO, -1, 0, pd, TRV_SOL_STA_OPTIMAL, pd, TRV_SOL_STA_PRIM_AND_DUAL_FEAS, TRV_SK_UNK},
        BoundCase{1, TRV_BK_FR, 0, 0, pd, TRV_SOL_STA_OPTIMAL, pf, TRV_SOL_STA_PRIM_FEAS, TRV_SK_UNK},
        BoundCase{1, TRV_BK_RA, 0, 5, pd, TRV_SOL_STA_OPTIMAL, pd, TRV_SOL_STA_OPTIMAL, TRV_SK_LOW},
        BoundCase{0, TRV_BK_RA, 0, 1, pd, TRV_SOL_STA_OPTIMAL, df, TRV_SOL_STA_DUAL_FEAS, TRV_SK_BAS},
        BoundCase{0, TRV_BK_RA, 0, 1, pf, TRV_SOL_STA_PRIM_FEAS, 0, 0, TRV_SK_BAS},
        // Integer optima, near ones too.
        BoundCase{0, TRV_BK_RA, 0, 1, pf, TRV_SOL_STA_NEAR_INTEGER_OPTIMAL, 0, 0, TRV_SK_BAS},
        BoundCase{1, TRV_BK_LO, -1, 0, pf, TRV_SOL_STA_NEAR_INTEGER_OPTIMAL, pf, TRV_SOL_STA_PRIM_FEAS, TRV_SK_UNK},
        // A proof of infeasibility survives tighter bounds alone, a ray those that it doesn't run against.
        BoundCase{0, TRV_BK_RA, 0, 1, TRV_PRO_STA_PRIM_INFEAS, TRV_SOL_STA_PRIM_INFEAS_CER, TRV_PRO_STA_PRIM_INFEAS,
                  TRV_SOL_STA_PRIM_INFEAS_CER, TRV_SK_BAS},
        BoundCase{1, TRV_BK_LO, -1, 0, TRV_PRO_STA_PRIM_INFEAS, TRV_SOL_STA_PRIM_INFEAS_CER, 0, 0, TRV_SK_UNK},
        BoundCase{0, TRV_BK_LO, 5, 0, TRV_PRO_STA_DUAL_INFEAS, TRV_SOL_STA_DUAL_INFEAS_CER, 0,
                  TRV_SOL_STA_DUAL_INFEAS_CER, TRV_SK_BAS},
        BoundCase{0, TRV_BK_RA, 0, 100, TRV_PRO_STA_DUAL_INFEAS, TRV_SOL_STA_DUAL_INFEAS_CER, 0, 0, TRV_SK_BAS}));

TEST_F(Sol, RowsColumnsCostsAndElements) {
  TRV_putcj(task, 0, 1.0);  // the value that it has
  expect(pd, TRV_SOL_STA_OPTIMAL);
  TRV_putcj(task, 0, 1.5);
  expect(pf, 0);
  set(pd, TRV_SOL_STA_PRIM_AND_DUAL_FEAS);
  TRV_putcj(task, 0, 1.0);
  expect(pf, TRV_SOL_STA_PRIM_FEAS);

  set(pd, TRV_SOL_STA_OPTIMAL);
  TRV_append(task, TRV_ACC_CON, 1);
  expect(df, TRV_SOL_STA_DUAL_FEAS);
  EXPECT_EQ(sol_view(task, TRV_SOL_BAS).skc[1], TRV_SK_BAS);
  EXPECT_EQ(sol_view(task, TRV_SOL_ITR).skc[1], TRV_SK_SUPBAS);
  set(pd, TRV_SOL_STA_PRIM_AND_DUAL_FEAS);
  TRV_append(task, TRV_ACC_VAR, 1);
  expect(pf, TRV_SOL_STA_PRIM_FEAS);
  EXPECT_EQ(keyx(2), TRV_SK_FIX);

  set(pd, TRV_SOL_STA_OPTIMAL);
  TRV_putaij(task, 0, 1, 4.0);  // a variable at 0
  expect(pf, TRV_SOL_STA_PRIM_FEAS);
  set(pd, TRV_SOL_STA_OPTIMAL);
  TRV_putaij(task, 0, 0, 4.0);
  expect(0, 0);
}

TEST_F(Sol, ValuesSurviveGrowthAndRemoval) {
  TRV_putmaxnumvar(task, 1000);
  TRV_putmaxnumcon(task, 500);
  TRV_append(task, TRV_ACC_VAR, 3);
  const int32_t gone[] = {0, 3};
  TRV_remove(task, TRV_ACC_VAR, 2, gone);
  for (int32_t s : {TRV_SOL_ITR, TRV_SOL_BAS}) {
    const SolutionView view = sol_view(task, s);
    EXPECT_EQ(view.xc[0], 2.0);
    EXPECT_EQ(view.y[0], 1.0);
    EXPECT_EQ(view.slx[0], 1.0);
    EXPECT_EQ(view.skx[0], TRV_SK_LOW);
    EXPECT_EQ(view.skx[1], TRV_SK_FIX);
  }
  TRVtask clone = nullptr;
  set(pd, TRV_SOL_STA_NEAR_OPTIMAL);
  ASSERT_EQ(TRV_clonetask(task, &clone), 0);
  EXPECT_EQ(clone->sol[TRV_SOL_BAS].solsta, TRV_SOL_STA_NEAR_OPTIMAL);
  EXPECT_EQ(sol_view(clone, TRV_SOL_BAS).slx[0], 1.0);
  TRV_deletetask(&clone);
}

TEST_F(Sol, EmptyTasksHaveSolutionsThatGrow) {
  TRVtask empty = nullptr;
  ASSERT_EQ(TRV_makeemptytask(env, &empty), 0);
  EXPECT_TRUE(sol_exists(empty, TRV_SOL_ITG));
  EXPECT_FALSE(sol_defined(empty, TRV_SOL_BAS));
  ASSERT_EQ(TRV_putsolution(empty, TRV_SOL_BAS, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr),
            0);
  TRV_append(empty, TRV_ACC_CON, 2);
  int32_t sk[2];
  EXPECT_EQ(TRV_getsolutionstatuskeyslice(empty, TRV_ACC_CON, TRV_SOL_BAS, 0, 2, sk), 0);
  EXPECT_EQ(sk[1], TRV_SK_BAS);
  EXPECT_FALSE(sol_exists(empty, TRV_SOL_ITR));
  TRV_deletetask(&empty);
}

TEST_F(Sol, QueriesRefuseWhatIsNotThere) {
  double values[3] = {7, 7, 7};
  int32_t key = 7;
  EXPECT_EQ(TRV_getsolutionslice(task, 3, TRV_SOL_ITEM_XX, 0, 1, values), TRV_RES_ERR_WHICHSOL);
  EXPECT_EQ(TRV_getsolutionslice(task, 0, 9, 0, 1, values), TRV_RES_ERR_SOLITEM);
  EXPECT_EQ(TRV_getsolutionslice(task, TRV_SOL_BAS, TRV_SOL_ITEM_SNX, 0, 1, values), TRV_RES_ERR_SOLITEM);
  EXPECT_EQ(TRV_getsolutionslice(task, 0, TRV_SOL_ITEM_Y, -1, 1, values), TRV_RES_ERR_FIRST);
  EXPECT_EQ(TRV_getsolutionslice(task, 0, TRV_SOL_ITEM_Y, 0, 2, values), TRV_RES_ERR_LAST);
  EXPECT_EQ(TRV_getsolutionslice(task, 0, TRV_SOL_ITEM_XX, 1, 2, values + 1), 0);
  EXPECT_EQ(values[1], 0.0);
  EXPECT_EQ(TRV_getreducedcosts(task, TRV_SOL_ITG, 0, 1, values), TRV_RES_ERR_NO_DUAL_FOR_ITG_SOL);
  EXPECT_EQ(TRV_getsolutioni(task, TRV_ACC_VAR, 2, 0, &key, nullptr, nullptr, nullptr, nullptr),
            TRV_RES_ERR_INDEX_IS_TOO_LARGE);
  TRV_undefsolution(task, TRV_SOL_ITR);
  EXPECT_EQ(TRV_getsolution(task, 0, nullptr, nullptr, &key, nullptr, nullptr, values, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr, nullptr),
            TRV_RES_ERR_UNDEF_SOLUTION);
  EXPECT_EQ(values[0], 7.0);
  EXPECT_EQ(key, 7);
  const int32_t bad[] = {7, 0};
  EXPECT_EQ(TRV_putsolution(task, 1, bad, bad, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr),
            TRV_RES_ERR_INV_SKC);
  EXPECT_EQ(TRV_putsolution(task, 1, nullptr, bad, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr),
            TRV_RES_ERR_NULL_POINTER);
  EXPECT_EQ(sol_view(task, TRV_SOL_BAS).xx[0], 2.0);
  // One entry put into an undefined solution: everything else is cleared.
  EXPECT_EQ(TRV_putsolutioni(task, TRV_ACC_VAR, 1, TRV_SOL_ITR, TRV_SK_UPR, 3, 0, -1, 0), 0);
  EXPECT_EQ(sol_view(task, TRV_SOL_ITR).xx[0], 0.0);
  EXPECT_EQ(sol_view(task, TRV_SOL_ITR).sux[1], -1.0);
}

}  // namespace
}  // namespace tarvo
