// Conic problems with known answers, through the public interface.
#include <gtest/gtest.h>
#include <tarvo.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr double inf = 1e30;

struct Fixed {
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  int32_t numcon, numvar;
  std::vector<double> xx, xc, y, slc, suc, slx, sux, snx;
  std::vector<int32_t> skn;
  int32_t response = -1, prosta = -1, solsta = -1;

  Fixed(int32_t con, int32_t var, const std::vector<double>& c, bool maximise = false) : numcon(con), numvar(var) {
    EXPECT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), TRV_RES_OK);
    EXPECT_EQ(TRV_initenv(env), TRV_RES_OK);
    EXPECT_EQ(TRV_maketask(env, con, var, &task), TRV_RES_OK);
    EXPECT_EQ(TRV_append(task, TRV_ACC_CON, con), TRV_RES_OK);
    EXPECT_EQ(TRV_append(task, TRV_ACC_VAR, var), TRV_RES_OK);
    for (int32_t j = 0; j < var; ++j) {
      TRV_putcj(task, j, c[static_cast<std::size_t>(j)]);
      bound_var(j, TRV_BK_FR, -inf, inf);
    }
    TRV_putobjsense(task, maximise ? TRV_OBJECTIVE_SENSE_MAXIMIZE : TRV_OBJECTIVE_SENSE_MINIMIZE);
  }
  Fixed(const Fixed&) = delete;
  Fixed& operator=(const Fixed&) = delete;
  ~Fixed() {
    TRV_deletetask(&task);
    TRV_deleteenv(&env);
  }
  void bound_var(int32_t j, int32_t bk, double l, double u) {
    EXPECT_EQ(TRV_putbound(task, TRV_ACC_VAR, j, bk, l, u), TRV_RES_OK);
  }
  void row(int32_t i, const std::vector<int32_t>& sub, const std::vector<double>& val, int32_t bk, double l, double u) {
    EXPECT_EQ(TRV_putavec(task, TRV_ACC_CON, i, static_cast<int32_t>(sub.size()), sub.data(), val.data()), TRV_RES_OK);
    EXPECT_EQ(TRV_putbound(task, TRV_ACC_CON, i, bk, l, u), TRV_RES_OK);
  }
  void cone(int32_t type, const std::vector<int32_t>& sub) {
    EXPECT_EQ(TRV_appendcone(task, type, 0.0, static_cast<int32_t>(sub.size()), sub.data()), TRV_RES_OK);
  }
  double dinf(int32_t item) {
    double value = NAN;
    TRV_getdouinf(task, item, &value);
    return value;
  }
  int32_t iinf(int32_t item) {
    int32_t value = -1;
    TRV_getintinf(task, item, &value);
    return value;
  }
  void solve() {
    int32_t cones = 0;
    TRV_getnumcone(task, &cones);
    response = TRV_optimize(task);
    for (auto* list : {&xx, &slx, &sux, &snx}) list->assign(static_cast<std::size_t>(numvar), NAN);
    for (auto* list : {&xc, &y, &slc, &suc}) list->assign(static_cast<std::size_t>(numcon), NAN);
    skn.assign(static_cast<std::size_t>(cones), -1);
    EXPECT_EQ(TRV_getsolution(task, TRV_SOL_ITR, &prosta, &solsta, nullptr, nullptr, skn.data(), xc.data(), xx.data(),
                              y.data(), slc.data(), suc.data(), slx.data(), sux.data(), snx.data()),
              TRV_RES_OK);
  }
  // Optimal with this objective, both sides, and with all measures on the given data.
  void expect_optimal(double objective, double tol = 1e-6) {
    EXPECT_EQ(response, TRV_RES_OK);
    EXPECT_EQ(solsta, TRV_SOL_STA_OPTIMAL);
    EXPECT_NEAR(dinf(TRV_DINF_SOL_ITR_PRIMAL_OBJ), objective, tol * (1 + std::fabs(objective)));
    EXPECT_NEAR(dinf(TRV_DINF_SOL_ITR_DUAL_OBJ), objective, tol * (1 + std::fabs(objective)));
    for (const int32_t item : {TRV_DINF_SOL_ITR_MAX_PBI, TRV_DINF_SOL_ITR_MAX_PCNI, TRV_DINF_SOL_ITR_MAX_PEQI,
                               TRV_DINF_SOL_ITR_MAX_DBI, TRV_DINF_SOL_ITR_MAX_DCNI, TRV_DINF_SOL_ITR_MAX_DEQI})
      EXPECT_LT(dinf(item), 1e-7) << item;
    EXPECT_LT(iinf(TRV_IINF_INTPNT_ITER), 40);
  }
  void expect_near(const std::vector<double>& got, const std::vector<double>& want, double tol = 1e-4) {
    for (std::size_t k = 0; k < want.size(); ++k) EXPECT_NEAR(got[k], want[k], tol) << k;
  }
};

class Conic : public testing::TestWithParam<int32_t> {
 protected:
  static void options(Fixed& f) { TRV_putintparam(f.task, TRV_IPAR_PRESOLVE_USE, GetParam()); }
};

TEST_P(Conic, QuadraticConeWithFixedTail) {
  Fixed f(2, 3, {1, 0, 0});
  options(f);
  f.row(0, {1}, {1}, TRV_BK_FX, 3, 3);
  f.row(1, {2}, {1}, TRV_BK_FX, 4, 4);
  f.cone(TRV_CT_QUAD, {0, 1, 2});
  f.solve();
  f.expect_optimal(5);
  f.expect_near(f.snx, {1, -0.6, -0.8});
  if (GetParam() == TRV_PRESOLVE_MODE_OFF) f.expect_near(f.y, {0.6, 0.8});
  EXPECT_EQ(f.skn[0], TRV_SK_UPR);
}

TEST_P(Conic, HeadOfHighestIndexAndFixedMember) {
  for (const double sign : {1.0, -1.0}) {
    Fixed f(1, 3, {0, 0, sign}, sign < 0);
    options(f);
    f.row(0, {1}, {2}, TRV_BK_FX, 8, 8);
    f.bound_var(0, TRV_BK_FX, 3, 3);
    f.cone(TRV_CT_QUAD, {2, 0, 1});
    f.solve();
    f.expect_optimal(5 * sign);
    f.expect_near(f.snx, {-0.6 * sign, -0.8 * sign, sign});
    EXPECT_NEAR(f.slx[0] - f.sux[0], 0.6 * sign, 1e-4);
  }
}

TEST_P(Conic, RotatedCone) {
  Fixed f(1, 3, {1, 1, 0});
  options(f);
  f.row(0, {2}, {1}, TRV_BK_FX, 2, 2);
  f.cone(TRV_CT_RQUAD, {0, 1, 2});
  f.solve();
  f.expect_optimal(std::sqrt(8.0));
  f.expect_near(f.xx, {std::sqrt(2.0), std::sqrt(2.0), 2});
  f.expect_near(f.snx, {1, 1, -std::sqrt(2.0)});
}

// min x0 over x0 >= |(x1, x2)| with bounds on members: a lower one in force, an upper one in force, and a box; the
// duals are those of the bounds.
TEST_P(Conic, BoundedMembers) {
  Fixed f(1, 4, {1, 0, 0, 0});
  options(f);
  f.bound_var(1, TRV_BK_LO, 3, inf);
  f.bound_var(2, TRV_BK_UP, -inf, -4);
  f.bound_var(3, TRV_BK_RA, -1, 1);
  f.bound_var(0, TRV_BK_LO, 0, inf);
  f.row(0, {1, 2, 3}, {1, 1, 1}, TRV_BK_RA, -100, 100);
  f.cone(TRV_CT_QUAD, {0, 1, 2, 3});
  f.solve();
  f.expect_optimal(5);
  EXPECT_NEAR(f.slx[1], 0.6, 1e-4);
  EXPECT_NEAR(f.sux[2], 0.8, 1e-4);
  f.expect_near(f.snx, {1, -0.6, 0.8, 0});
}

TEST_P(Conic, HeadWithUpperBoundMakesInfeasible) {
  Fixed f(1, 2, {0, 0});
  options(f);
  f.row(0, {1}, {1}, TRV_BK_FX, 2, 2);
  f.bound_var(0, TRV_BK_UP, -inf, 1);
  f.cone(TRV_CT_QUAD, {0, 1});
  f.solve();
  EXPECT_EQ(f.response, TRV_RES_OK);
  EXPECT_EQ(f.prosta, TRV_PRO_STA_PRIM_INFEAS);
  EXPECT_EQ(f.solsta, TRV_SOL_STA_PRIM_INFEAS_CER);
  EXPECT_GT(f.dinf(TRV_DINF_SOL_ITR_DUAL_OBJ), 0.5);
  for (const int32_t item : {TRV_DINF_SOL_ITR_MAX_DBI, TRV_DINF_SOL_ITR_MAX_DCNI, TRV_DINF_SOL_ITR_MAX_DEQI})
    EXPECT_LT(f.dinf(item), 1e-6);
}

TEST_P(Conic, UnboundedRay) {
  Fixed f(0, 2, {-1, 0});
  options(f);
  f.cone(TRV_CT_QUAD, {0, 1});
  f.solve();
  EXPECT_EQ(f.response, TRV_RES_OK);
  EXPECT_EQ(f.prosta, TRV_PRO_STA_DUAL_INFEAS);
  EXPECT_EQ(f.solsta, TRV_SOL_STA_DUAL_INFEAS_CER);
  EXPECT_GT(f.xx[0], 0.5);
  EXPECT_LE(std::fabs(f.xx[1]), f.xx[0]);
}

// Cones without a rest are bounds: x0 >= 0 by a cone of one member, x1, x2 >= 0 by a rotated one of two.
TEST_P(Conic, ConesThatAreBounds) {
  Fixed f(1, 4, {1, 2, 1, 0});
  options(f);
  f.row(0, {0, 1, 2, 3}, {1, 1, -1, 1}, TRV_BK_LO, 1, inf);
  f.bound_var(3, TRV_BK_FX, 0.5, 0.5);
  f.bound_var(0, TRV_BK_RA, -1, 0.25);
  f.cone(TRV_CT_QUAD, {0});
  f.cone(TRV_CT_RQUAD, {1, 2});
  f.cone(TRV_CT_QUAD, {3});
  f.solve();
  f.expect_optimal(0.75);
  f.expect_near(f.xx, {0.25, 0.25, 0, 0.5});
  f.expect_near(f.snx, {0, 0, 3, 0});
  EXPECT_NEAR(f.sux[0], 1, 1e-4);
}

TEST_P(Conic, FreeColumnsOnly) {
  // min t, t >= |(x - 1, y + 2)| through copies of free columns, x + y = 1
  Fixed f(3, 5, {1, 0, 0, 0, 0});
  options(f);
  f.row(0, {1, 3}, {1, -1}, TRV_BK_FX, -1, -1);
  f.row(1, {2, 4}, {1, -1}, TRV_BK_FX, 2, 2);
  f.row(2, {3, 4}, {1, 1}, TRV_BK_FX, 1, 1);
  f.cone(TRV_CT_QUAD, {0, 1, 2});
  f.solve();
  f.expect_optimal(std::sqrt(2.0));
}

TEST_P(Conic, LinearProblem) {
  Fixed f(2, 3, {1, 2, 3});
  options(f);
  TRV_putintparam(f.task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_CONIC);
  for (int32_t j = 0; j < 3; ++j) f.bound_var(j, TRV_BK_RA, 0, 1);
  f.row(0, {0, 1, 2}, {1, 1, 1}, TRV_BK_FX, 2.4, 2.4);
  f.row(1, {0, 1}, {1, -1}, TRV_BK_FX, 0.5, 0.5);
  f.solve();
  f.expect_optimal(4.7);
}

// The optimum 0 is not attained.
TEST_P(Conic, UnattainedOptimumEnds) {
  Fixed f(1, 3, {1, -1, 0});
  options(f);
  f.row(0, {2}, {1}, TRV_BK_FX, 1, 1);
  f.cone(TRV_CT_QUAD, {0, 1, 2});
  f.solve();
  EXPECT_TRUE(f.response == TRV_RES_OK || f.response == TRV_RES_TRM_STALL) << f.response;
  EXPECT_LT(std::fabs(f.dinf(TRV_DINF_SOL_ITR_PRIMAL_OBJ)), 1e-3);
}

// 200 cones of 30 with random budgets: min sum of heads, each tail on a hyperplane g'x = 1 has head 1 / |g|.
TEST_P(Conic, ManyLargeCones) {
  constexpr int32_t cones = 200, size = 30;
  Fixed f(cones, cones * size, std::vector<double>(cones * size, 0.0));
  options(f);
  std::mt19937 random(7);
  std::uniform_real_distribution<double> uniform(-1, 1);
  double want = 0;
  for (int32_t k = 0; k < cones; ++k) {
    std::vector<int32_t> sub, members;
    std::vector<double> val;
    double norm = 0;
    for (int32_t i = 0; i < size; ++i) {
      members.push_back(k * size + i);
      if (i == 0) continue;
      sub.push_back(k * size + i);
      val.push_back(uniform(random));
      norm += val.back() * val.back();
    }
    want += 1 / std::sqrt(norm);
    f.row(k, sub, val, TRV_BK_FX, 1, 1);
    f.cone(TRV_CT_QUAD, members);
    TRV_putcj(f.task, k * size, 1.0);
  }
  f.solve();
  f.expect_optimal(want);
  EXPECT_LT(f.iinf(TRV_IINF_INTPNT_ITER), 30);
}

INSTANTIATE_TEST_SUITE_P(Presolve, Conic, testing::Values(TRV_PRESOLVE_MODE_OFF, TRV_PRESOLVE_MODE_ON));

// A stop at the k-th call of the call-back, for every k: its code comes back, and a point with it.
TEST(ConicDriver, StopsAtEveryEvent) {
  struct Counter {
    int32_t left, calls;
  };
  int32_t total = 0;
  for (int32_t stop = 0; stop <= total; ++stop) {
    Fixed f(2, 5, {1, 1, 0, 0, 1}, true);
    for (int32_t j = 0; j < 5; ++j) TRV_putcj(f.task, j, -1.0);
    f.row(0, {2, 3}, {1, 1}, TRV_BK_FX, 2, 2);
    f.row(1, {0, 4}, {1, 1}, TRV_BK_LO, 1, inf);
    f.bound_var(3, TRV_BK_RA, 0, 1.5);
    f.bound_var(4, TRV_BK_LO, 0.25, inf);
    f.cone(TRV_CT_RQUAD, {0, 1, 2, 3});
    Counter counter{stop, 0};
    TRV_putcallbackfunc(
        f.task,
        [](TRVtask, void* handle, int32_t) -> int32_t {
          auto* c = static_cast<Counter*>(handle);
          ++c->calls;
          return --c->left == 0 ? 1 : 0;
        },
        &counter);
    TRV_putdouparam(f.task, TRV_DPAR_CALLBACK_FREQ, 0.0);
    const int32_t response = TRV_optimize(f.task);
    if (stop == 0) total = counter.calls;
    EXPECT_EQ(response, stop == 0 ? TRV_RES_OK : TRV_RES_TRM_USER_CALLBACK) << stop;
    EXPECT_EQ(counter.calls <= total, true);
    double c = 0;
    TRV_getcslice(f.task, 0, 1, &c);
    EXPECT_EQ(c, -1.0);
  }
  EXPECT_GT(total, 10);
}

// The iteration limit leaves a point; the same run twice gives the same bits.
TEST(ConicDriver, LimitAndRepetition) {
  std::vector<double> first;
  for (const int32_t limit : {3, 100, 100}) {
    Fixed f(1, 3, {1, 1, 0});
    TRV_putintparam(f.task, TRV_IPAR_INTPNT_MAX_ITERATIONS, limit);
    f.row(0, {2, 1}, {1, 0.5}, TRV_BK_FX, 2, 2);
    f.cone(TRV_CT_RQUAD, {0, 1, 2});
    f.solve();
    EXPECT_EQ(f.response, limit == 3 ? TRV_RES_TRM_MAX_ITERATIONS : TRV_RES_OK);
    EXPECT_GT(f.xx[0], 0);
    if (limit == 3) {
      EXPECT_EQ(f.iinf(TRV_IINF_INTPNT_ITER), 3);
      continue;
    }
    if (first.empty()) first = f.xx;
    EXPECT_EQ(first, f.xx);
  }
}

TEST(ConicDriver, OtherOptimizersRefuseCones) {
  Fixed f(0, 2, {1, 0});
  f.cone(TRV_CT_QUAD, {0, 1});
  TRV_putintparam(f.task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_INTPNT);
  EXPECT_EQ(TRV_optimize(f.task), TRV_RES_ERR_INV_OPTIMIZER);
}

}  // namespace
