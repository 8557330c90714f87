// From data put by calls to queried solutions.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "support/random_lp.h"
#include "tarvo.h"

namespace {

using tarvo_test::Lp;
using tarvo_test::random_lp;

class Optimize : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
    TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX);
    TRV_linkfunctotaskstream(task, TRV_STREAM_LOG, &text,
                             [](void* handle, const char* line) { *static_cast<std::string*>(handle) += line; });
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  void load(const Lp& lp) {
    ASSERT_EQ(TRV_inputdata(task, lp.numcon, lp.numvar, lp.numcon, lp.numvar, lp.c.data(), lp.cfix, lp.ptr.data(),
                            lp.ptr.data() + 1, lp.sub.data(), lp.val.data(), lp.bkc.data(), lp.blc.data(),
                            lp.buc.data(), lp.bkx.data(), lp.blx.data(), lp.bux.data()),
              0);
  }
  // minimise -x0 - x1, x0 + 2 x1 <= 3, 2 x0 + x1 <= 3, 0 <= x <= 2: optimum -2 at (1, 1).
  void load_small() {
    TRV_append(task, TRV_ACC_CON, 2);
    TRV_append(task, TRV_ACC_VAR, 2);
    for (int32_t k = 0; k < 2; ++k) {
      TRV_putcj(task, k, -1);
      TRV_putbound(task, TRV_ACC_VAR, k, TRV_BK_RA, 0, 2);
      TRV_putbound(task, TRV_ACC_CON, k, TRV_BK_UP, 0, 3);
      TRV_putaij(task, k, k, 1);
      TRV_putaij(task, k, 1 - k, 2);
    }
  }
  int32_t iterations() { return inf(TRV_IINF_SIM_PRIMAL_ITER) + inf(TRV_IINF_SIM_DUAL_ITER); }
  int32_t inf(int32_t item) {
    int32_t value = -1;
    TRV_getintinf(task, item, &value);
    return value;
  }
  void expect_status(int32_t prosta, int32_t solsta) {
    int32_t p = -1, s = -1;
    EXPECT_EQ(TRV_getsolutionstatus(task, TRV_SOL_BAS, &p, &s), 0);
    EXPECT_EQ(p, prosta);
    EXPECT_EQ(s, solsta);
  }
  void expect_optimum(double value) {
    expect_status(TRV_PRO_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_OPTIMAL);
    double pobj, pbi, peqi, dobj, dbi, deqi;
    ASSERT_EQ(TRV_getsolutioninf(task, TRV_SOL_BAS, nullptr, nullptr, &pobj, &pbi, nullptr, &peqi, nullptr, &dobj, &dbi,
                                 nullptr, &deqi),
              0);
    const double tol = 1e-6 * (1 + std::fabs(value));
    EXPECT_NEAR(pobj, value, tol);
    EXPECT_NEAR(dobj, value, tol);
    EXPECT_LE(std::max({pbi, peqi, dbi, deqi}), 1e-6);
    double item = NAN;
    TRV_getdouinf(task, TRV_DINF_SOL_BAS_PRIMAL_OBJ, &item);
    EXPECT_EQ(item, pobj);
    TRV_getdouinf(task, TRV_DINF_SIM_OBJ, &item);
    EXPECT_NEAR(item, value, tol);
  }
  std::vector<double> slice(int32_t item, int32_t n) {
    std::vector<double> values(static_cast<std::size_t>(n));
    EXPECT_EQ(TRV_getsolutionslice(task, TRV_SOL_BAS, item, 0, n, values.data()), 0);
    return values;
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  std::string text;
};

TEST_F(Optimize, RestartsFromTheBasisThatIsThere) {
  TRV_putintparam(task, TRV_IPAR_PRESOLVE_USE, TRV_PRESOLVE_MODE_OFF);  // which would leave nothing to iterate on
  for (unsigned seed = 100; seed < 110; ++seed) {
    SCOPED_TRACE(seed);
    const bool tall = seed % 2 == 0;
    Lp lp = random_lp(seed, tall ? 60 : 10, tall ? 15 : 80);
    TRV_resizetask(task, 0, 0, 0, 0, 0);
    load(lp);
    for (const int32_t optimizer :
         {TRV_OPTIMIZER_PRIMAL_SIMPLEX, TRV_OPTIMIZER_DUAL_SIMPLEX, TRV_OPTIMIZER_FREE_SIMPLEX}) {
      TRV_putintparam(task, TRV_IPAR_OPTIMIZER, optimizer);
      TRV_putintparam(task, TRV_IPAR_SIM_HOTSTART, TRV_SIM_HOTSTART_NONE);
      ASSERT_EQ(TRV_optimize(task), 0);
      expect_optimum(lp.optimum);
      const int32_t cold = iterations();
      EXPECT_GT(cold, 0);
      EXPECT_EQ(inf(TRV_IINF_SIM_PRIMAL_HOTSTART), 0);
      for (const int32_t mode : {TRV_SIM_HOTSTART_FREE, TRV_SIM_HOTSTART_STATUS_KEYS}) {
        TRV_putintparam(task, TRV_IPAR_SIM_HOTSTART, mode);
        ASSERT_EQ(TRV_optimize(task), 0);
        expect_optimum(lp.optimum);
        EXPECT_EQ(iterations(), 0);
        EXPECT_EQ(inf(TRV_IINF_SIM_PRIMAL_HOTSTART), 1);
      }
    }
    // A small change of a cost and of a bound, a row and a column more: the old basis is nearly right.
    TRV_putintparam(task, TRV_IPAR_SIM_HOTSTART, TRV_SIM_HOTSTART_FREE);
    const int32_t cold = [this] {
      TRV_undefsolution(task, TRV_SOL_BAS);
      TRV_optimize(task);
      return iterations();
    }();
    TRV_putcj(task, 0, lp.c[0] + 1e-3);
    TRV_chgbound(task, TRV_ACC_VAR, 1, 1, 1, -100.0);
    TRV_append(task, TRV_ACC_CON, 1);
    TRV_append(task, TRV_ACC_VAR, 1);
    TRV_putbound(task, TRV_ACC_VAR, lp.numvar, TRV_BK_LO, 0, 0);
    TRV_putcj(task, lp.numvar, 5.0);
    TRV_putaij(task, lp.numcon, lp.numvar, 1.0);
    ASSERT_EQ(TRV_optimize(task), 0);
    EXPECT_LE(iterations(), std::max(cold / 2, 5));
    double hot = 0.0, again = 1.0;
    int32_t status = -1;
    TRV_getprimalobj(task, TRV_SOL_BAS, &hot);
    TRV_getsolutionstatus(task, TRV_SOL_BAS, nullptr, &status);
    TRV_undefsolution(task, TRV_SOL_BAS);
    ASSERT_EQ(TRV_optimize(task), 0);
    EXPECT_EQ(inf(TRV_IINF_SOL_BAS_SOLSTA), status);
    TRV_getprimalobj(task, TRV_SOL_BAS, &again);
    if (status == TRV_SOL_STA_OPTIMAL) {
      EXPECT_NEAR(hot, again, 1e-6 * (1 + std::fabs(hot)));
    }
    // Removal leaves a basis of the wrong size.
    const int32_t gone[] = {0, 3, 5};
    TRV_remove(task, TRV_ACC_CON, 3, gone);
    TRV_remove(task, TRV_ACC_VAR, 3, gone);
    TRV_optimize(task);
    int32_t solsta = 0;
    TRV_getsolutionstatus(task, TRV_SOL_BAS, nullptr, &solsta);
    EXPECT_TRUE(solsta == TRV_SOL_STA_OPTIMAL || solsta == TRV_SOL_STA_PRIM_INFEAS_CER ||
                solsta == TRV_SOL_STA_DUAL_INFEAS_CER);
  }
}

TEST_F(Optimize, AMaximisationIsTheMinimisationOfTheNegatedObjective) {
  for (unsigned seed = 200; seed < 206; ++seed) {
    SCOPED_TRACE(seed);
    Lp lp = random_lp(seed, 15, 25);
    load(lp);
    ASSERT_EQ(TRV_optimize(task), 0);
    const std::vector<double> y = slice(TRV_SOL_ITEM_Y, 15), x = slice(TRV_SOL_ITEM_XX, 25);
    for (double& c : lp.c) c = -c / 3;  // not exact in binary
    lp.cfix = -lp.cfix / 3;
    TRV_resizetask(task, 0, 0, 0, 0, 0);
    load(lp);
    TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MAXIMIZE);
    std::vector<double> before(lp.c.size()), after(lp.c.size());
    TRV_getc(task, before.data());
    ASSERT_EQ(TRV_optimize(task), 0);
    expect_optimum(-lp.optimum / 3);
    EXPECT_EQ(slice(TRV_SOL_ITEM_XX, 25), x);
    const std::vector<double> negated = slice(TRV_SOL_ITEM_Y, 15);
    for (std::size_t i = 0; i < y.size(); ++i) EXPECT_NEAR(negated[i], -y[i] / 3, 1e-9);
    double cfix = 0.0;
    TRV_getc(task, after.data());
    TRV_getcfix(task, &cfix);
    EXPECT_EQ(std::memcmp(before.data(), after.data(), before.size() * sizeof(double)), 0);
    EXPECT_EQ(cfix, lp.cfix);
    ASSERT_EQ(TRV_optimize(task), 0);
    EXPECT_EQ(inf(TRV_IINF_SIM_PRIMAL_ITER), 0);
    TRV_resizetask(task, 0, 0, 0, 0, 0);
    TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MINIMIZE);
  }
}

// A call-back that stops at its k-th call, for every k: the code of a stop, the data untouched, and the same task
// solves afterwards.
TEST_F(Optimize, AStopAtAnyEventOfTheInteriorPointLeavesTheTaskUsable) {
  const Lp lp = random_lp(3, 12, 15);
  load(lp);
  struct Stop {
    int at, calls;
  } stop{0, 0};
  for (const int32_t optimizer : {TRV_OPTIMIZER_INTPNT, TRV_OPTIMIZER_CONIC}) {
    TRV_putintparam(task, TRV_IPAR_OPTIMIZER, optimizer);
    int stopped = 0;
    for (stop.at = 1; stop.at < 200; ++stop.at) {
      stop.calls = 0;
      TRV_putcallbackfunc(
          task,
          [](TRVtask, void* handle, int32_t) {
            auto* s = static_cast<Stop*>(handle);
            return static_cast<int32_t>(++s->calls == s->at);
          },
          &stop);
      const int32_t rc = TRV_optimize(task);
      if (rc == 0) break;
      ASSERT_EQ(rc, TRV_RES_TRM_USER_CALLBACK) << stop.at;
      ++stopped;
    }
    EXPECT_GT(stopped, 10);
    EXPECT_LT(stopped, 199);
    TRV_putcallbackfunc(task, nullptr, nullptr);
    ASSERT_EQ(TRV_optimize(task), 0);
    double objective = 0.0;
    EXPECT_EQ(TRV_getprimalobj(task, TRV_SOL_ITR, &objective), 0);
    EXPECT_NEAR(objective, lp.optimum, 1e-5 * (1.0 + std::abs(lp.optimum)));
  }
}

TEST_F(Optimize, AFreeChoiceGoesOnWithTheSimplexWhereTheInteriorPointStalls) {
  load(random_lp(7, 40, 30));
  TRV_putintparam(task, TRV_IPAR_PRESOLVE_USE, TRV_PRESOLVE_MODE_OFF);
  TRV_putintparam(task, TRV_IPAR_INTPNT_REGULARIZATION_USE, TRV_OFF);
  TRV_putdouparam(task, TRV_DPAR_INTPNT_TOL_STEP_SIZE, 1.0);  // no step is long enough
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_INTPNT);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_TRM_STALL);
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_FREE);
  EXPECT_EQ(TRV_optimize(task), 0);
  expect_optimum(random_lp(7, 40, 30).optimum);
}

TEST_F(Optimize, CrossingBoundsAndRaysGiveCertificatesForBothSenses) {
  for (const int32_t sense : {TRV_OBJECTIVE_SENSE_MINIMIZE, TRV_OBJECTIVE_SENSE_MAXIMIZE}) {
    const double sign = sense == TRV_OBJECTIVE_SENSE_MINIMIZE ? 1.0 : -1.0;
    TRV_resizetask(task, 0, 0, 0, 0, 0);
    load_small();
    TRV_putobjsense(task, sense);
    TRV_putbound(task, TRV_ACC_CON, 1, TRV_BK_RA, 3, 1);
    ASSERT_EQ(TRV_optimize(task), 0);
    expect_status(TRV_PRO_STA_PRIM_INFEAS, TRV_SOL_STA_PRIM_INFEAS_CER);
    int32_t key = 0;
    TRV_getsolutioni(task, TRV_ACC_CON, 1, TRV_SOL_BAS, &key, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(key, TRV_SK_INF);
    double dobj, dbi, deqi, pobj, pbi, peqi;
    TRV_getsolutioninf(task, TRV_SOL_BAS, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &dobj, &dbi,
                       nullptr, &deqi);
    EXPECT_EQ(sign * dobj, 2.0);
    EXPECT_EQ(dbi + deqi, 0.0);
    // A row that its variables can't reach.
    TRV_putbound(task, TRV_ACC_CON, 1, TRV_BK_RA, 7, 9);
    ASSERT_EQ(TRV_optimize(task), 0);
    expect_status(TRV_PRO_STA_PRIM_INFEAS, TRV_SOL_STA_PRIM_INFEAS_CER);
    TRV_getsolutioninf(task, TRV_SOL_BAS, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &dobj, &dbi,
                       nullptr, &deqi);
    EXPECT_GT(sign * dobj, 0.0);
    EXPECT_LE(dbi + deqi, 1e-9);
    // Nothing stops the objective: in the row at its equation the ray must stand still.
    TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_FR, 0, 0);
    TRV_putbound(task, TRV_ACC_CON, 1, TRV_BK_FX, 3, 3);
    TRV_putbound(task, TRV_ACC_VAR, 0, TRV_BK_FR, 0, 0);
    TRV_putbound(task, TRV_ACC_VAR, 1, TRV_BK_FR, 0, 0);
    TRV_putcj(task, 0, -3);
    ASSERT_EQ(TRV_optimize(task), 0);
    expect_status(TRV_PRO_STA_DUAL_INFEAS, TRV_SOL_STA_DUAL_INFEAS_CER);
    TRV_getsolutioninf(task, TRV_SOL_BAS, nullptr, nullptr, &pobj, &pbi, nullptr, &peqi, nullptr, nullptr, nullptr,
                       nullptr, nullptr);
    EXPECT_LT(sign * pobj, 0.0);
    EXPECT_LE(pbi + peqi, 1e-9);
  }
}

TEST_F(Optimize, WithoutRowsColumnsOrRoom) {
  EXPECT_EQ(TRV_optimize(task), 0);  // nothing at all
  expect_status(TRV_PRO_STA_PRIM_AND_DUAL_FEAS, TRV_SOL_STA_OPTIMAL);
  TRV_append(task, TRV_ACC_CON, 2);
  TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_LO, 1, 0);
  EXPECT_EQ(TRV_optimize(task), 0);
  expect_status(TRV_PRO_STA_PRIM_INFEAS, TRV_SOL_STA_PRIM_INFEAS_CER);
  TRV_resizetask(task, 0, 0, 0, 0, 0);
  TRV_append(task, TRV_ACC_VAR, 2);  // fixed at 0
  TRV_putbound(task, TRV_ACC_VAR, 0, TRV_BK_LO, -5, 0);
  TRV_putcj(task, 0, 1);
  TRV_putcfix(task, 3);
  EXPECT_EQ(TRV_optimize(task), 0);
  expect_optimum(-2);
  TRV_resizetask(task, 0, 0, 0, 0, 0);
  load_small();
  TRV_putbound(task, TRV_ACC_VAR, 0, TRV_BK_FX, 0.5, 0.5);
  TRV_putbound(task, TRV_ACC_VAR, 1, TRV_BK_FX, 1, 1);
  EXPECT_EQ(TRV_optimize(task), 0);
  expect_optimum(-1.5);
  TRV_putbound(task, TRV_ACC_VAR, 1, TRV_BK_FX, 2, 2);
  EXPECT_EQ(TRV_optimize(task), 0);
  expect_status(TRV_PRO_STA_PRIM_INFEAS, TRV_SOL_STA_PRIM_INFEAS_CER);
}

TEST_F(Optimize, LimitsAndStopsLeaveADefinedSolution) {
  Lp lp = random_lp(300, 30, 50);
  load(lp);
  int32_t trmcode = -7;
  ASSERT_EQ(TRV_optimizetrm(task, &trmcode), 0);
  EXPECT_EQ(trmcode, -7);
  for (const int32_t limit : {0, 3}) {
    TRV_undefsolution(task, TRV_SOL_BAS);
    TRV_putintparam(task, TRV_IPAR_SIM_MAX_ITERATIONS, limit);
    EXPECT_EQ(TRV_optimizetrm(task, &trmcode), 0);
    EXPECT_EQ(trmcode, TRV_RES_TRM_MAX_ITERATIONS);
    EXPECT_EQ(inf(TRV_IINF_SIM_PRIMAL_ITER), limit);
    EXPECT_EQ(inf(TRV_IINF_OPTIMIZE_RESPONSE), TRV_RES_TRM_MAX_ITERATIONS);
    expect_status(0, 0);
  }
  TRV_putintparam(task, TRV_IPAR_SIM_MAX_ITERATIONS, 100000);
  struct Stop {
    int32_t after, calls;
  } stop{};
  TRV_putdouparam(task, TRV_DPAR_CALLBACK_FREQ, -1.0);
  TRV_putcallbackfunc(
      task,
      [](TRVtask, void* handle, int32_t) -> int32_t {
        auto* s = static_cast<Stop*>(handle);
        return s->calls++ == s->after ? 1 : 0;
      },
      &stop);
  for (stop.after = 0;; ++stop.after) {
    stop.calls = 0;
    TRV_undefsolution(task, TRV_SOL_BAS);
    const int32_t response = TRV_optimize(task);
    int32_t isdef = 0;
    TRV_solutiondef(task, TRV_SOL_BAS, &isdef);
    EXPECT_EQ(isdef, 1);
    if (stop.calls <= stop.after) {
      EXPECT_EQ(response, 0);
      break;
    }
    ASSERT_EQ(response, TRV_RES_TRM_USER_CALLBACK) << stop.after;
  }
  EXPECT_GT(stop.calls, 10);
  expect_optimum(lp.optimum);
}

TEST_F(Optimize, ObjectiveCutsStopOnTheirSideForBothSenses) {
  load_small();
  ASSERT_EQ(TRV_optimize(task), 0);
  TRV_putintparam(task, TRV_IPAR_SIM_HOTSTART, 0);
  TRV_putdouparam(task, TRV_DPAR_LOWER_OBJ_CUT, -1.0);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_TRM_OBJECTIVE_RANGE);
  TRV_putdouparam(task, TRV_DPAR_LOWER_OBJ_CUT, -3.0);
  EXPECT_EQ(TRV_optimize(task), 0);
  for (int32_t j = 0; j < 2; ++j) TRV_putcj(task, j, 1);
  TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MAXIMIZE);
  TRV_putdouparam(task, TRV_DPAR_LOWER_OBJ_CUT, 1.0);  // no matter for a maximisation's primal steps
  EXPECT_EQ(TRV_optimize(task), 0);
  expect_optimum(2.0);
  TRV_putdouparam(task, TRV_DPAR_UPPER_OBJ_CUT, 1.0);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_TRM_OBJECTIVE_RANGE);
}

TEST_F(Optimize, WhatCannotBeSolvedSaysWhy) {
  load_small();
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_DUAL_SIMPLEX);
  ASSERT_EQ(TRV_optimize(task), 0);
  expect_optimum(-2.0);
  for (const int32_t optimizer : {TRV_OPTIMIZER_QCONE, TRV_OPTIMIZER_CONCURRENT}) {
    TRV_putintparam(task, TRV_IPAR_OPTIMIZER, optimizer);
    EXPECT_EQ(TRV_optimize(task), TRV_RES_ERR_INV_OPTIMIZER);
  }
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX);
  TRV_putvartype(task, 0, TRV_VAR_TYPE_INT);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_ERR_MIO_NOT_LOADED);
  TRV_putintparam(task, TRV_IPAR_MIO_MODE, TRV_MIO_MODE_IGNORED);
  EXPECT_EQ(TRV_optimize(task), 0);
  expect_optimum(-2.0);
  TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MINIMIZE);
  TRV_putintparam(task, TRV_IPAR_OBJECTIVE_SENSE, 0);
  EXPECT_EQ(TRV_optimize(task), 0);  // the task's own sense counts
  TRV_putobjsense(task, 0);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_ERR_UNDEFINED_OBJECTIVE_SENSE);
  TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MINIMIZE);
  for (const int k : {0, 1}) {  // a NaN that gets past the calls' own checks, or is refused by them
    TRV_putintparam(task, TRV_IPAR_CHECK_TASK_DATA, k);
    TRV_putcj(task, 0, NAN);
    double c[2];
    TRV_getc(task, c);
    if (std::isnan(c[0])) {
      EXPECT_GE(TRV_optimize(task), 1000);
    }
  }
  TRV_putcj(task, 0, -1);
  const int32_t i[] = {0, 1, 1}, j[] = {0, 0, 1};
  const double convex[] = {1, 0.5, 1}, indefinite[] = {1, 2, 1};
  int32_t probtype = -1;
  TRV_putqobj(task, 3, i, j, convex);
  TRV_getprobtype(task, &probtype);
  EXPECT_EQ(probtype, TRV_PROBTYPE_QO);
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_FREE);
  TRV_putqobj(task, 3, i, j, indefinite);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_ERR_OBJ_Q_NOT_PSD);
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_ERR_INV_OPTIMIZER);
  TRV_appendcone(task, TRV_CT_QUAD, 0.0, 2, i);
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_FREE);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_ERR_MIXED_PROBLEM);
  TRV_putqobj(task, 0, nullptr, nullptr, nullptr);
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX);
  EXPECT_EQ(TRV_optimize(task), TRV_RES_ERR_INV_OPTIMIZER);
}

struct Convexity {
  int32_t bk;  // of the constraint, or -1 for the objective
  double d0, d1, q;
  int32_t code;
};
class ConvexityTest : public Optimize, public testing::WithParamInterface<Convexity> {};
TEST_P(ConvexityTest, TellsWhatIsNotConvex) {
  load_small();
  const Convexity& c = GetParam();
  const int32_t i[] = {0, 1, 1}, j[] = {0, 0, 1};
  const double val[] = {c.d0, c.q, c.d1};
  if (c.bk < 0) {
    TRV_putqobj(task, 3, i, j, val);
  } else {
    TRV_putqconk(task, 0, 3, i, j, val);
    TRV_putbound(task, TRV_ACC_CON, 0, c.bk, 1, c.bk == TRV_BK_FX ? 1 : 2);
  }
  EXPECT_EQ(TRV_checkconvexity(task), c.code);
}
INSTANTIATE_TEST_SUITE_P(Optimize, ConvexityTest,
                         testing::Values(Convexity{-1, 1, 1, 2, TRV_RES_ERR_OBJ_Q_NOT_PSD}, Convexity{-1, 4, 1, 1.9, 0},
                                         Convexity{-1, 1, 0, 0.1, TRV_RES_ERR_OBJ_Q_NOT_PSD},
                                         Convexity{TRV_BK_FX, 1, 1, 0, TRV_RES_ERR_NONLINEAR_EQUALITY},
                                         Convexity{TRV_BK_RA, 1, 1, 0, TRV_RES_ERR_NONLINEAR_RANGED},
                                         Convexity{TRV_BK_LO, 1, 1, 0, TRV_RES_ERR_CON_Q_NOT_NSD},
                                         Convexity{TRV_BK_UP, -1, -1, 0, TRV_RES_ERR_CON_Q_NOT_PSD},
                                         Convexity{TRV_BK_LO, -1, -1, 0.5, 0}, Convexity{TRV_BK_FR, 1, -1, 3, 0}));

TEST_F(Optimize, SummaryShowsStatusesAndMeasures) {
  load_small();
  ASSERT_EQ(TRV_optimize(task), 0);
  text.clear();
  ASSERT_EQ(TRV_solutionsummary(task, TRV_STREAM_LOG), 0);
  const char* lines =
      "Basic solution\nProblem status  : PRIMAL_AND_DUAL_FEASIBLE\nSolution status : OPTIMAL\n"
      "Primal - objective: -2.0000000000e+00  eq. infeas.: 0.00e+00 max bound infeas.: 0.00e+00\n";
  EXPECT_NE(text.find(lines), std::string::npos) << text;
  EXPECT_NE(text.find("    Primal simplex        - iterations : "), std::string::npos) << text;
  TRV_putintparam(task, TRV_IPAR_LOG, 0);
  text.clear();
  TRV_solutionsummary(task, TRV_STREAM_LOG);
  TRV_readsummary(task, TRV_STREAM_LOG);
  EXPECT_EQ(text, "");
}

}  // namespace
