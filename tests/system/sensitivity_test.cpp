// Basis solves and sensitivity analysis: against the problem's own matrix, and against solving again.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

constexpr double inf = 1e30;

struct Four {
  double leftprice, rightprice, leftrange, rightrange;
};

class Sensitivity : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    fresh();
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  void fresh() {
    TRV_deletetask(&task);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
    TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_FREE_SIMPLEX);
    text.clear();
    TRV_linkfunctotaskstream(task, TRV_STREAM_MSG, &text,
                             [](void* handle, const char* line) { *static_cast<std::string*>(handle) += line; });
  }
  // min 2x0 + 3x1, x0 + x1 >= 4, x0 + 3x1 >= 6, x >= 0: 9 at (3, 1) with y = (1.5, 0.5).
  void load_small() {
    TRV_append(task, TRV_ACC_CON, 2);
    TRV_append(task, TRV_ACC_VAR, 2);
    for (int32_t j = 0; j < 2; ++j) {
      TRV_putcj(task, j, 2 + j);
      TRV_putbound(task, TRV_ACC_VAR, j, TRV_BK_LO, 0, inf);
      TRV_putbound(task, TRV_ACC_CON, j, TRV_BK_LO, 4 + 2 * j, inf);
      TRV_putaij(task, 0, j, 1);
      TRV_putaij(task, 1, j, 1 + 2 * j);
    }
  }
  // min x, x >= 1, 2x >= 2, x free: two bounds hold one vertex.
  void load_degenerate() {
    TRV_append(task, TRV_ACC_CON, 2);
    TRV_append(task, TRV_ACC_VAR, 1);
    TRV_putcj(task, 0, 1);
    TRV_putbound(task, TRV_ACC_VAR, 0, TRV_BK_FR, -inf, inf);
    for (int32_t i = 0; i < 2; ++i) {
      TRV_putaij(task, i, 0, 1 + i);
      TRV_putbound(task, TRV_ACC_CON, i, TRV_BK_LO, 1 + i, inf);
    }
  }
  Four bound(int32_t accmode, int32_t i, int32_t mark) {
    Four f{};
    const bool con = accmode == TRV_ACC_CON;
    EXPECT_EQ(TRV_primalsensitivity(task, con, &i, &mark, !con, &i, &mark, &f.leftprice, &f.rightprice, &f.leftrange,
                                    &f.rightrange, &f.leftprice, &f.rightprice, &f.leftrange, &f.rightrange),
              0);
    return f;
  }
  Four cost(int32_t j) {
    Four f{};
    EXPECT_EQ(TRV_dualsensitivity(task, 1, &j, &f.leftprice, &f.rightprice, &f.leftrange, &f.rightrange), 0);
    return f;
  }
  static void expect_four(const Four& f, double lp, double rp, double lr, double rr) {
    EXPECT_NEAR(f.leftprice, lp, 1e-9);
    EXPECT_NEAR(f.rightprice, rp, 1e-9);
    EXPECT_NEAR(f.leftrange, lr, 1e-9);
    EXPECT_NEAR(f.rightrange, rr, 1e-9);
  }
  std::string path(const char* name) const { return testing::TempDir() + name; }
  int32_t request(const std::string& lines) {
    const std::string file = path("tarvo_request.sen");
    std::ofstream(file) << lines;
    TRV_putstrparam(task, TRV_SPAR_SENSITIVITY_FILE_NAME, file.c_str());
    text.clear();
    const int32_t rc = TRV_sensitivityreport(task, TRV_STREAM_MSG);
    std::remove(file.c_str());
    return rc;
  }

  TRVenv env = nullptr;
  TRVtask task = nullptr;
  std::string text;
};

// ---- Basis solves -------------------------------------------------------------------------------------------------

TEST_F(Sensitivity, BasisSolvesMultiplyBack) {
  std::mt19937 random(7);
  constexpr int32_t m = 12, n = 20;
  TRV_append(task, TRV_ACC_CON, m);
  TRV_append(task, TRV_ACC_VAR, n);
  double a[m][n] = {};
  for (int32_t i = 0; i < m; ++i) {
    TRV_putbound(task, TRV_ACC_CON, i, TRV_BK_UP, -inf, 10 + i);
    for (int32_t j = 0; j < n; ++j) {
      if (random() % 3 != 0) continue;
      a[i][j] = static_cast<double>(1 + random() % 9);
      TRV_putaij(task, i, j, a[i][j]);
    }
  }
  for (int32_t j = 0; j < n; ++j) {
    TRV_putcj(task, j, -1.0 - static_cast<double>(random() % 5));
    TRV_putbound(task, TRV_ACC_VAR, j, TRV_BK_RA, 0, 2);
  }
  int32_t basis[m];
  EXPECT_EQ(TRV_initbasissolve(task, basis), TRV_RES_ERR_NO_BASIS_SOL);
  ASSERT_EQ(TRV_optimize(task), 0);
  int32_t num = 1, sub[m] = {0};
  double val[m] = {1.0};
  EXPECT_EQ(TRV_solvewithbasis(task, 0, &num, sub, val), TRV_RES_ERR_BASIS_FACTOR);
  ASSERT_EQ(TRV_initbasissolve(task, basis), 0);
  const auto element = [&](int32_t i, int32_t k) {
    return basis[k] < m ? (basis[k] == i ? -1.0 : 0.0) : a[i][basis[k] - m];
  };
  for (const int32_t transp : {0, 1}) {
    double b[m] = {}, x[m] = {};
    num = 4;
    for (int32_t k = 0; k < num; ++k) {
      sub[k] = static_cast<int32_t>(random() % m);  // repeated entries are added
      val[k] = 1.0 + k;
      b[sub[k]] += val[k];
    }
    ASSERT_EQ(TRV_solvewithbasis(task, transp, &num, sub, val), 0);
    for (int32_t k = 0; k < num; ++k) x[sub[k]] = val[k];
    for (int32_t r = 0; r < m; ++r) {
      double sum = 0.0;
      for (int32_t k = 0; k < m; ++k) sum += transp ? element(k, r) * x[k] : element(r, k) * x[k];
      EXPECT_NEAR(sum, b[r], 1e-9);
    }
  }
  num = m + 1;
  EXPECT_EQ(TRV_solvewithbasis(task, 0, &num, sub, val), TRV_RES_ERR_ARGUMENT_DIMENSION);
  num = 1;
  sub[0] = m;
  EXPECT_EQ(TRV_solvewithbasis(task, 0, &num, sub, val), TRV_RES_ERR_INDEX_IS_TOO_LARGE);
}

TEST_F(Sensitivity, EveryEditDropsTheBasisFactor) {
  load_small();
  using Edit = int32_t (*)(TRVtask);
  const Edit edits[] = {
      [](TRVtask t) { return TRV_putaij(t, 0, 0, 2); },
      [](TRVtask t) { return TRV_putcj(t, 0, 5); },
      [](TRVtask t) { return TRV_putbound(t, TRV_ACC_VAR, 0, TRV_BK_LO, 1, inf); },
      [](TRVtask t) { return TRV_putsolutioni(t, TRV_ACC_CON, 0, TRV_SOL_BAS, TRV_SK_BAS, 0, 0, 0, 0); },
      [](TRVtask t) { return TRV_append(t, TRV_ACC_CON, 1); },
      [](TRVtask t) { return TRV_optimize(t); },
      [](TRVtask t) { return TRV_undefsolution(t, TRV_SOL_BAS); },
  };
  for (const Edit edit : edits) {
    int32_t basis[4], num = 0, sub[4];
    double val[4];
    ASSERT_EQ(TRV_optimize(task), 0);
    ASSERT_EQ(TRV_initbasissolve(task, basis), 0);
    ASSERT_EQ(TRV_solvewithbasis(task, 0, &num, sub, val), 0);
    ASSERT_EQ(edit(task), 0);
    EXPECT_EQ(TRV_solvewithbasis(task, 0, &num, sub, val), TRV_RES_ERR_BASIS_FACTOR);
  }
  int32_t skc[3] = {TRV_SK_LOW, TRV_SK_LOW, TRV_SK_LOW}, skx[2] = {TRV_SK_BAS, TRV_SK_LOW}, basis[3];
  TRV_putsolution(task, TRV_SOL_BAS, skc, skx, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                  nullptr);
  EXPECT_EQ(TRV_initbasissolve(task, basis), TRV_RES_ERR_BASIS_SINGULAR);
}

// ---- Prices and ranges ----------------------------------------------------------------------------------------------

TEST_F(Sensitivity, SmallProblem) {
  load_small();
  for (const int32_t type : {TRV_SENSITIVITY_TYPE_BASIS, TRV_SENSITIVITY_TYPE_OPTIMAL_PARTITION}) {
    SCOPED_TRACE(type);
    TRV_putintparam(task, TRV_IPAR_SENSITIVITY_TYPE, type);
    TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX);
    expect_four(bound(TRV_ACC_CON, 0, TRV_MARK_LO), 1.5, 1.5, -2, 2);
    expect_four(bound(TRV_ACC_CON, 1, TRV_MARK_LO), 0.5, 0.5, -2, 6);
    expect_four(bound(TRV_ACC_VAR, 0, TRV_MARK_LO), 0, 0, -inf, 3);
    expect_four(bound(TRV_ACC_VAR, 1, TRV_MARK_LO), 0, 0, -inf, 1);
    expect_four(cost(0), 3, 3, -1, 1);
    expect_four(cost(1), 1, 1, -1, 3);
    int32_t optimizer = -1;
    TRV_getintparam(task, TRV_IPAR_OPTIMIZER, &optimizer);
    EXPECT_EQ(optimizer, TRV_OPTIMIZER_PRIMAL_SIMPLEX);
  }
}

TEST_F(Sensitivity, TypesDifferOnDegenerateProblems) {
  load_degenerate();
  TRV_putintparam(task, TRV_IPAR_SENSITIVITY_TYPE, TRV_SENSITIVITY_TYPE_OPTIMAL_PARTITION);
  expect_four(bound(TRV_ACC_CON, 0, TRV_MARK_LO), 0, 1, -inf, inf);
  expect_four(bound(TRV_ACC_CON, 1, TRV_MARK_LO), 0, 0.5, -inf, inf);
  TRV_putintparam(task, TRV_IPAR_SENSITIVITY_TYPE, TRV_SENSITIVITY_TYPE_BASIS);
  for (int32_t i = 0; i < 2; ++i) {
    const Four f = bound(TRV_ACC_CON, i, TRV_MARK_LO);
    EXPECT_EQ(f.leftprice, f.rightprice);
  }
}

// A random problem of small integers, with ties enough to be degenerate often.
struct Problem {
  int32_t m, n;
  bool maximise;
  std::vector<std::vector<double>> a;
  std::vector<double> c, blc, buc, blx, bux;
  std::vector<int32_t> bkc, bkx;
};

Problem draw(unsigned seed) {
  std::mt19937 random(seed);
  const auto integer = [&](int32_t lo, int32_t hi) {
    return static_cast<double>(lo + static_cast<int32_t>(random() % static_cast<uint32_t>(hi - lo + 1)));
  };
  Problem p;
  p.m = static_cast<int32_t>(integer(1, 4));
  p.n = static_cast<int32_t>(integer(1, 5));
  p.maximise = random() % 2 == 0;
  p.a.assign(static_cast<std::size_t>(p.m), std::vector<double>(static_cast<std::size_t>(p.n), 0.0));
  for (auto& row : p.a)
    for (double& v : row)
      if (random() % 3 != 0) v = integer(-2, 3);
  const auto draw_bound = [&](std::vector<int32_t>& bk, std::vector<double>& bl, std::vector<double>& bu) {
    const auto key = static_cast<int32_t>(random() % 5);
    const double l = integer(-2, 2), u = l + integer(1, 4);
    bk.push_back(key);
    bl.push_back(key == TRV_BK_UP || key == TRV_BK_FR ? -inf : l);
    bu.push_back(key == TRV_BK_FX ? l : key == TRV_BK_LO || key == TRV_BK_FR ? inf : u);
  };
  for (int32_t i = 0; i < p.m; ++i) draw_bound(p.bkc, p.blc, p.buc);
  for (int32_t j = 0; j < p.n; ++j) {
    draw_bound(p.bkx, p.blx, p.bux);
    p.c.push_back(integer(-3, 3));
  }
  return p;
}

void load(TRVtask task, const Problem& p) {
  TRV_append(task, TRV_ACC_CON, p.m);
  TRV_append(task, TRV_ACC_VAR, p.n);
  TRV_putobjsense(task, p.maximise ? TRV_OBJECTIVE_SENSE_MAXIMIZE : TRV_OBJECTIVE_SENSE_MINIMIZE);
  TRV_putcfix(task, 3.5);
  TRV_putboundslice(task, TRV_ACC_CON, 0, p.m, p.bkc.data(), p.blc.data(), p.buc.data());
  TRV_putboundslice(task, TRV_ACC_VAR, 0, p.n, p.bkx.data(), p.blx.data(), p.bux.data());
  for (int32_t j = 0; j < p.n; ++j) {
    TRV_putcj(task, j, p.c[static_cast<std::size_t>(j)]);
    for (int32_t i = 0; i < p.m; ++i)
      TRV_putaij(task, i, j, p.a[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)]);
  }
}

// The optimal objective; +-HUGE_VAL, with the sign of the sense, when infeasible or unbounded.
double optimum(TRVenv env, const Problem& p) {
  TRVtask task = nullptr;
  TRV_makeemptytask(env, &task);
  load(task, p);
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX);
  double value = 0.0;
  int32_t prosta = 0, solsta = 0;
  EXPECT_EQ(TRV_optimize(task), 0);
  TRV_getsolutionstatus(task, TRV_SOL_BAS, &prosta, &solsta);
  if (solsta == TRV_SOL_STA_OPTIMAL)
    TRV_getprimalobj(task, TRV_SOL_BAS, &value);
  else
    value = (solsta == TRV_SOL_STA_PRIM_INFEAS_CER) == p.maximise ? -HUGE_VAL : HUGE_VAL;
  TRV_deletetask(&task);
  return value;
}

Problem moved(const Problem& p, int32_t accmode, int32_t i, int32_t mark, double t) {
  Problem q = p;
  const auto k = static_cast<std::size_t>(i);
  const bool con = accmode == TRV_ACC_CON;
  const int32_t bk = con ? q.bkc[k] : q.bkx[k];
  if (bk == TRV_BK_FX || mark == TRV_MARK_LO) (con ? q.blc : q.blx)[k] += t;
  if (bk == TRV_BK_FX || mark == TRV_MARK_UP) (con ? q.buc : q.bux)[k] += t;
  return q;
}
Problem moved_cost(const Problem& p, int32_t j, double t) {
  Problem q = p;
  q.c[static_cast<std::size_t>(j)] += t;
  return q;
}

// The objective is linear with the price up to the end of the range (far out when that is infinite) and, for whole
// pieces, leaves the line behind it.
template <class Move>
void expect_piece(TRVenv env, double value, double price, double range, bool whole, const Move& move) {
  const double side = whole && range == 0.0 ? (std::signbit(range) ? -1.0 : 1.0) : range < 0.0 ? -1.0 : 1.0;
  if (std::fabs(price) >= inf) {
    EXPECT_EQ(range, 0.0);
    EXPECT_TRUE(std::isinf(optimum(env, move(side * 1e-3))));
    return;
  }
  const bool endless = std::fabs(range) >= inf;
  const double end = endless ? side * 50.0 : range;
  for (const double part : {0.5, 1.0}) {
    if (end == 0.0) continue;
    EXPECT_NEAR(optimum(env, move(part * end)), value + price * part * end, 2e-5 * (1.0 + std::fabs(end)));
  }
  if (endless || !whole) return;
  const double beyond = end + side * 0.1;
  EXPECT_GT(std::fabs(optimum(env, move(beyond)) - (value + price * beyond)), 1e-4);
}

class SensitivityRandom : public Sensitivity, public testing::WithParamInterface<int32_t> {};

TEST_P(SensitivityRandom, HoldsWhenSolvedAgain) {
  const bool whole = GetParam() == TRV_SENSITIVITY_TYPE_OPTIMAL_PARTITION;
  int32_t tried = 0;
  for (unsigned seed = 1; seed <= 400; ++seed) {
    SCOPED_TRACE(seed);
    const Problem p = draw(seed);
    const double value = optimum(env, p);
    if (std::isinf(value)) continue;
    ++tried;
    fresh();
    load(task, p);
    TRV_putintparam(task, TRV_IPAR_SENSITIVITY_TYPE, GetParam());
    for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
      for (int32_t i = 0; i < (accmode == TRV_ACC_CON ? p.m : p.n); ++i) {
        const int32_t bk = (accmode == TRV_ACC_CON ? p.bkc : p.bkx)[static_cast<std::size_t>(i)];
        for (const int32_t mark : {TRV_MARK_LO, TRV_MARK_UP}) {
          if (bk == TRV_BK_FR || bk == (mark == TRV_MARK_LO ? TRV_BK_UP : TRV_BK_LO)) continue;
          SCOPED_TRACE(testing::Message() << "accmode " << accmode << " i " << i << " mark " << mark);
          const Four f = bound(accmode, i, mark);
          EXPECT_LE(f.leftrange, 0.0);
          EXPECT_GE(f.rightrange, 0.0);
          const auto move = [&](double t) { return moved(p, accmode, i, mark, t); };
          expect_piece(env, value, f.leftprice, f.leftrange == 0.0 ? -0.0 : f.leftrange, whole, move);
          expect_piece(env, value, f.rightprice, f.rightrange, whole, move);
        }
      }
    }
    for (int32_t j = 0; j < p.n; ++j) {
      SCOPED_TRACE(testing::Message() << "cost " << j);
      const Four f = cost(j);
      const auto move = [&](double t) { return moved_cost(p, j, t); };
      expect_piece(env, value, f.leftprice, f.leftrange == 0.0 ? -0.0 : f.leftrange, whole, move);
      expect_piece(env, value, f.rightprice, f.rightrange, whole, move);
    }
    if (HasFailure()) return;
  }
  EXPECT_GT(tried, 60);
}

INSTANTIATE_TEST_SUITE_P(Types, SensitivityRandom,
                         testing::Values(TRV_SENSITIVITY_TYPE_BASIS, TRV_SENSITIVITY_TYPE_OPTIMAL_PARTITION));

// ---- Codes and reports ---------------------------------------------------------------------------------------------

TEST_F(Sensitivity, RefusesBadArguments) {
  load_small();
  const int32_t zero = 0, two = 2;
  double v = 0.0;
  const auto con = [&](int32_t num, const int32_t* sub, const int32_t* mark) {
    return TRV_primalsensitivity(task, num, sub, mark, 0, nullptr, nullptr, &v, &v, &v, &v, nullptr, nullptr, nullptr,
                                 nullptr);
  };
  const auto var = [&](int32_t num, const int32_t* sub, const int32_t* mark) {
    return TRV_primalsensitivity(task, 0, nullptr, nullptr, num, sub, mark, nullptr, nullptr, nullptr, nullptr, &v, &v,
                                 &v, &v);
  };
  EXPECT_EQ(con(1, &zero, &two), TRV_RES_ERR_INV_MARKI);
  EXPECT_EQ(var(1, &zero, &two), TRV_RES_ERR_INV_MARKJ);
  EXPECT_EQ(con(-1, &zero, &zero), TRV_RES_ERR_INV_NUMI);
  EXPECT_EQ(var(-1, &zero, &zero), TRV_RES_ERR_INV_NUMJ);
  EXPECT_EQ(con(1, &two, &zero), TRV_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(con(1, nullptr, &zero), TRV_RES_ERR_NULL_POINTER);
  EXPECT_EQ(TRV_dualsensitivity(task, 1, &two, &v, &v, &v, &v), TRV_RES_ERR_INDEX_IS_TOO_LARGE);
  // No optimum to analyse; the parameters are as they were.
  TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_FX, -1, -1);
  EXPECT_EQ(TRV_dualsensitivity(task, 1, &zero, &v, &v, &v, &v), TRV_RES_ERR_SEN_SOLUTION_STATUS);
  int32_t optimizer = -1;
  TRV_getintparam(task, TRV_IPAR_OPTIMIZER, &optimizer);
  EXPECT_EQ(optimizer, TRV_OPTIMIZER_FREE_SIMPLEX);
  TRV_putqobjij(task, 0, 0, 1.0);
  EXPECT_EQ(con(1, &zero, &zero), TRV_RES_ERR_CANNOT_HANDLE_NL);
  EXPECT_EQ(TRV_dualsensitivity(task, 1, &zero, &v, &v, &v, &v), TRV_RES_ERR_CANNOT_HANDLE_NL);
}

TEST_F(Sensitivity, ReportsEverything) {
  load_small();
  TRV_putbound(task, TRV_ACC_CON, 1, TRV_BK_FX, 6, 6);
  TRV_putname(task, TRV_PI_CON, 0, "demand");
  TRV_putintparam(task, TRV_IPAR_LOG, 0);
  EXPECT_EQ(TRV_sensitivityreport(task, TRV_STREAM_MSG), 0);
  EXPECT_EQ(text, "");  // nothing asked for
  TRV_putintparam(task, TRV_IPAR_SENSITIVITY_ALL, TRV_ON);
  ASSERT_EQ(TRV_sensitivityreport(task, TRV_STREAM_MSG), 0);
  EXPECT_EQ(text.find("BOUNDS CONSTRAINTS\nINDEX    NAME             BOUND    LEFTRANGE        RIGHTRANGE       "
                      "LEFTSHADOW       RIGHTSHADOW     \n"
                      "0        demand           LO       -2.000000e+00    2.000000e+00     1.500000e+00     "
                      "1.500000e+00    \n"
                      "1                         FX       -2.000000e+00    6.000000e+00     5.000000e-01     "
                      "5.000000e-01    \n"),
            0U)
      << text;
  EXPECT_NE(text.find("BOUNDS VARIABLES\n"), std::string::npos);
  EXPECT_NE(text.find(" -inf             3.000000e+00"), std::string::npos);
  EXPECT_NE(text.find("OBJECTIVE VARIABLES\n"), std::string::npos);
  const std::string file = path("tarvo_result.sen"), screen = text;
  TRV_putstrparam(task, TRV_SPAR_SENSITIVITY_RES_FILE_NAME, file.c_str());
  text.clear();
  ASSERT_EQ(TRV_sensitivityreport(task, TRV_STREAM_MSG), 0);
  std::ifstream in(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), screen);
  EXPECT_EQ(text, "");
  std::remove(file.c_str());
}

TEST_F(Sensitivity, ReadsRequests) {
  load_small();
  TRV_putbound(task, TRV_ACC_CON, 1, TRV_BK_RA, 6, 20);
  for (int32_t k = 0; k < 2; ++k) {
    TRV_putname(task, TRV_PI_CON, k, k == 0 ? "c*1" : "row2");
    TRV_putname(task, TRV_PI_VAR, k, k == 0 ? "x1" : "x2");
  }
  TRV_putintparam(task, TRV_IPAR_LOG, 0);
  const auto rows = [this] { return std::count(text.begin(), text.end(), '\n'); };
  struct Case {
    const char* lines;
    int32_t code;
    int64_t printed;  // lines, two of them the heads of each list
  };
  const Case cases[] = {
      {"* only a comment\n\n", 0, 0},
      {"BOUNDS CONSTRAINTS\nL 0-1 * both\r\nUL \"row2\"\n", 0, 6},
      {"BOUNDS CONSTRAINTS\nL \"c\\*?\"\nL '*2'", 0, 4},
      {"OBJECTIVE VARIABLES\n\"*\"\nBOUNDS VARIABLES\nL 0 \"x1\"-\"x2\"\n", 0, 9},
      {"L 0\n", TRV_RES_ERR_SEN_FORMAT, 0},
      {"BOUNDS ROWS\n", TRV_RES_ERR_SEN_FORMAT, 0},
      {"BOUNDS CONSTRAINTS\nM 0\n", TRV_RES_ERR_SEN_FORMAT, 0},
      {"BOUNDS CONSTRAINTS\nL\n", TRV_RES_ERR_SEN_FORMAT, 0},
      {"BOUNDS CONSTRAINTS\nL -1\n", TRV_RES_ERR_SEN_FORMAT, 0},
      {"BOUNDS CONSTRAINTS\nL \"row2\n", TRV_RES_ERR_SEN_FORMAT, 0},
      {"BOUNDS CONSTRAINTS\nL \"r*\"-1\n", TRV_RES_ERR_SEN_FORMAT, 0},
      {"BOUNDS CONSTRAINTS\nL \"nope*\"\n", TRV_RES_ERR_SEN_UNDEF_NAME, 0},
      {"BOUNDS CONSTRAINTS\nL 99999999999\n", TRV_RES_ERR_SEN_INDEX_RANGE, 0},
      {"BOUNDS CONSTRAINTS\nU 0\n", TRV_RES_ERR_SEN_BOUND_INVALID_UP, 0},
      {"BOUNDS CONSTRAINTS\nLU 0\n", TRV_RES_ERR_SEN_BOUND_INVALID_UP, 0},
      {"BOUNDS CONSTRAINTS\nL 1-0\n", TRV_RES_ERR_SEN_INDEX_INVALID, 0},
      {"BOUNDS CONSTRAINTS\nL \"row\\\"\n", TRV_RES_ERR_SEN_INVALID_REGEXP, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lines);
    EXPECT_EQ(request(c.lines), c.code);
    EXPECT_EQ(rows() > 0 && c.code != 0 ? 0 : rows(), c.printed) << text;
  }
  TRV_putbound(task, TRV_ACC_VAR, 1, TRV_BK_UP, -inf, 5);
  EXPECT_EQ(request("\n* c\nBOUNDS VARIABLES\nL 1\n"), TRV_RES_ERR_SEN_BOUND_INVALID_LO);
  char message[TRV_MAX_STR_LEN];
  int32_t code = 0;
  TRV_getlasterror(task, &code, sizeof message, nullptr, message);
  EXPECT_STREQ(message, "No lower bound for index '1' given in line 4.");
  TRV_putstrparam(task, TRV_SPAR_SENSITIVITY_FILE_NAME, "/no/such/file");
  EXPECT_EQ(TRV_sensitivityreport(task, TRV_STREAM_MSG), TRV_RES_ERR_FILE_OPEN);
}

}  // namespace
