// Convex quadratic problems through the public header: exact small ones, random ones judged by their optimality
// conditions, published ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

class Quadratic : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), TRV_RES_OK);
    ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
    ASSERT_EQ(TRV_makeemptytask(env, &task), TRV_RES_OK);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), TRV_RES_OK);
    EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK);
  }
  void presolve(bool on) {
    ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_PRESOLVE_USE, on ? TRV_PRESOLVE_MODE_ON : TRV_PRESOLVE_MODE_OFF), 0);
  }
  void size(int32_t rows, int32_t columns) {
    ASSERT_EQ(TRV_append(task, TRV_ACC_CON, rows), 0);
    ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, columns), 0);
  }
  void expect_statuses(int32_t prosta, int32_t solsta) {
    int32_t p = -1, s = -1;
    ASSERT_EQ(TRV_getsolutionstatus(task, TRV_SOL_ITR, &p, &s), 0);
    EXPECT_EQ(p, prosta);
    EXPECT_EQ(s, solsta);
  }
  // An optimum of the given value (when it is known) whose conditions hold on the task's own data.
  void expect_optimal(double objective, double tolerance) {
    int32_t prosta = 0, solsta = 0, iterations = 0;
    double pobj = 0, pbi = 0, peqi = 0, dobj = 0, dbi = 0, deqi = 0;
    ASSERT_EQ(TRV_getsolutioninf(task, TRV_SOL_ITR, &prosta, &solsta, &pobj, &pbi, nullptr, &peqi, nullptr, &dobj, &dbi,
                                 nullptr, &deqi),
              0);
    EXPECT_EQ(prosta, TRV_PRO_STA_PRIM_AND_DUAL_FEAS);
    ASSERT_EQ(solsta, TRV_SOL_STA_OPTIMAL);
    const double scale = std::max(1.0, std::fabs(pobj));
    if (std::isfinite(objective)) {
      EXPECT_NEAR(pobj, objective, tolerance * std::max(1.0, std::fabs(objective)));
    }
    EXPECT_NEAR(dobj, pobj, 1e-6 * scale);
    EXPECT_LE(std::max({pbi, peqi, dbi, deqi}), 1e-6 * scale);
    ASSERT_EQ(TRV_getintinf(task, TRV_IINF_INTPNT_ITER, &iterations), 0);
    EXPECT_LE(iterations, 40);
  }

  TRVenv env = nullptr;
  TRVtask task = nullptr;
};

struct Element {
  int32_t i, j;
  double v;
};
struct Bound {
  int32_t key;
  double lower, upper;
};
struct Exact {
  const char* name;
  int32_t sense;
  std::vector<double> c;
  std::vector<Element> q, a;
  std::vector<Bound> rows, columns;
  int32_t code, prosta, solsta;
  double objective;
};

void PrintTo(const Exact& e, std::ostream* out) { *out << e.name; }

constexpr int32_t down = TRV_OBJECTIVE_SENSE_MINIMIZE, up = TRV_OBJECTIVE_SENSE_MAXIMIZE;
constexpr int32_t both_feasible = TRV_PRO_STA_PRIM_AND_DUAL_FEAS, optimal = TRV_SOL_STA_OPTIMAL;
constexpr Bound nonneg{TRV_BK_LO, 0, 0}, free_column{TRV_BK_FR, 0, 0}, unit_box{TRV_BK_RA, -1, 1};

std::vector<Exact> exact_problems() {
  return {
      {"diagonal",
       down,
       {-2, -4},
       {{0, 0, 2}, {1, 1, 2}},
       {{0, 0, 1}, {0, 1, 1}},
       {{TRV_BK_UP, 0, 2}},
       {nonneg, nonneg},
       0,
       both_feasible,
       optimal,
       -4.5},
      {"full",
       down,
       {-3, -3},
       {{0, 0, 2}, {1, 0, 1}, {1, 1, 2}},
       {{0, 0, 1}, {0, 1, 1}},
       {{TRV_BK_UP, 0, 9}},
       {nonneg, nonneg},
       0,
       both_feasible,
       optimal,
       -3},
      {"maximised",
       up,
       {3, 3},
       {{0, 0, -2}, {1, 0, -1}, {1, 1, -2}},
       {{0, 0, 1}, {0, 1, 1}},
       {{TRV_BK_UP, 0, 9}},
       {nonneg, nonneg},
       0,
       both_feasible,
       optimal,
       3},
      // Free columns that Q covers only in their difference.
      {"singular_on_free_columns",
       down,
       {0, 0},
       {{0, 0, 2}, {1, 0, -2}, {1, 1, 2}},
       {{0, 0, 1}, {0, 1, 1}, {1, 0, 2}, {1, 1, 2}},
       {{TRV_BK_FX, 4, 4}, {TRV_BK_FX, 8, 8}},
       {free_column, free_column},
       0,
       both_feasible,
       optimal,
       0},
      // x0 free without a quadratic term, x1 with one: x0 = 1 - x1, minimise x1^2 / 2 - 1 + x1 ... at x1 = 1/2.
      {"free_column_without_term",
       down,
       {1, 0.5},
       {{1, 1, 1}},
       {{0, 0, 1}, {0, 1, 1}},
       {{TRV_BK_FX, 1, 1}},
       {free_column, free_column},
       0,
       both_feasible,
       optimal,
       0.875},
      {"ranged",
       down,
       {1, -8},
       {{0, 0, 2}, {1, 1, 2}},
       {{0, 0, 1}, {0, 1, 1}},
       {{TRV_BK_RA, -1, 1.5}},
       {unit_box, {TRV_BK_RA, 0, 3}},
       0,
       both_feasible,
       optimal,
       -13.75},
      {"infeasible",
       down,
       {0, 0},
       {{0, 0, 1}, {1, 1, 1}},
       {{0, 0, 1}, {0, 1, 1}, {1, 0, 1}, {1, 1, 1}},
       {{TRV_BK_LO, 3, 0}, {TRV_BK_UP, 0, 2}},
       {nonneg, nonneg},
       0,
       TRV_PRO_STA_PRIM_INFEAS,
       TRV_SOL_STA_PRIM_INFEAS_CER,
       0},
      {"unbounded",
       down,
       {0, -1},
       {{0, 0, 2}},
       {{0, 0, 1}, {0, 1, -1}},
       {{TRV_BK_UP, 0, 1}},
       {nonneg, nonneg},
       0,
       TRV_PRO_STA_DUAL_INFEAS,
       TRV_SOL_STA_DUAL_INFEAS_CER,
       0},
      // All minors of order 2 are positive, that of order 3 is not.
      {"not_convex",
       down,
       {0, 0, 0},
       {{0, 0, 1}, {1, 0, 0.9}, {2, 0, 0.9}, {1, 1, 1}, {2, 1, -0.9}, {2, 2, 1}},
       {{0, 0, 1}, {0, 1, 1}, {0, 2, 1}},
       {{TRV_BK_UP, 0, 2}},
       {unit_box, unit_box, unit_box},
       TRV_RES_ERR_NONCONVEX,
       0,
       0,
       0},
  };
}

class ExactProblem : public Quadratic, public testing::WithParamInterface<Exact> {};

TEST_P(ExactProblem, EndsAsItMust) {
  const Exact& e = GetParam();
  size(static_cast<int32_t>(e.rows.size()), static_cast<int32_t>(e.columns.size()));
  ASSERT_EQ(TRV_putobjsense(task, e.sense), 0);
  for (const Element& t : e.a) ASSERT_EQ(TRV_putaij(task, t.i, t.j, t.v), 0);
  for (const Element& t : e.q) ASSERT_EQ(TRV_putqobjij(task, t.i, t.j, t.v), 0);
  for (std::size_t k = 0; k < e.c.size(); ++k) {
    const auto j = static_cast<int32_t>(k);
    ASSERT_EQ(TRV_putcj(task, j, e.c[k]), 0);
    ASSERT_EQ(TRV_putbound(task, TRV_ACC_VAR, j, e.columns[k].key, e.columns[k].lower, e.columns[k].upper), 0);
  }
  for (std::size_t k = 0; k < e.rows.size(); ++k)
    ASSERT_EQ(TRV_putbound(task, TRV_ACC_CON, static_cast<int32_t>(k), e.rows[k].key, e.rows[k].lower, e.rows[k].upper),
              0);
  for (const bool on : {true, false}) {
    presolve(on);
    ASSERT_EQ(TRV_optimize(task), e.code) << on;
    if (e.code != 0) continue;
    if (e.solsta == optimal)
      expect_optimal(e.objective, 1e-7);
    else
      expect_statuses(e.prosta, e.solsta);
  }
}

INSTANTIATE_TEST_SUITE_P(Small, ExactProblem, testing::ValuesIn(exact_problems()),
                         [](const auto& test) { return std::string(test.param.name); });

// A random problem that a point and multipliers of the right signs make feasible on both sides: Q of low rank, columns
// and rows of every kind, a row that depends on others, columns that nothing but Q touches.
TEST_F(Quadratic, RandomProblemsSatisfyTheirOptimalityConditions) {
  std::mt19937 gen(11);
  const auto real = [&gen](double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(gen);
  };
  const auto upto = [&gen](int32_t n) { return std::uniform_int_distribution<int32_t>(0, n)(gen); };
  for (int32_t round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    TearDown();
    SetUp();
    presolve(round % 2 == 0);
    const int32_t m = 2 + upto(12), n = 3 + upto(17), rank = 1 + upto(4);
    size(m, n);
    const double sign = round % 3 == 0 ? -1.0 : 1.0;
    ASSERT_EQ(TRV_putobjsense(task, sign < 0.0 ? up : down), 0);
    std::vector<double> x(static_cast<std::size_t>(n)), c(x.size(), 0.0), activity(static_cast<std::size_t>(m), 0.0);
    std::vector<std::vector<double>> a(activity.size(), std::vector<double>(x.size(), 0.0));
    std::vector<std::vector<double>> f(static_cast<std::size_t>(rank), x);
    for (double& v : x) v = real(-3, 3);
    for (auto& row : a)
      for (double& v : row) v = upto(2) == 0 ? real(-2, 2) : 0.0;
    for (std::size_t j = 0; j < x.size(); ++j) a.back()[j] = a[0][j] + a[1][j];
    for (auto& row : f)
      for (double& v : row) v = upto(1) == 0 ? real(-1, 1) : 0.0;
    for (int32_t i = 0; i < n; ++i) {
      const auto ui = static_cast<std::size_t>(i);
      for (int32_t j = 0; j <= i; ++j) {
        const auto uj = static_cast<std::size_t>(j);
        double v = round % 4 == 1 && i == j ? real(0, 2) : 0.0;
        for (const auto& row : f) v += round % 4 == 1 ? 0.0 : row[ui] * row[uj];
        if (v == 0.0) continue;
        ASSERT_EQ(TRV_putqobjij(task, i, j, sign * v), 0);
        c[ui] -= v * x[uj];
        if (i != j) c[uj] -= v * x[ui];
      }
    }
    // A bound of a kind that admits `at`; returns a multiplier that it admits.
    const auto bound = [&](int32_t accmode, int32_t k, double at) {
      const int32_t kind = upto(4);
      const double low = kind == 0 ? at : at - real(0, 1), high = kind == 0 ? at : at + real(0, 1);
      const int32_t keys[] = {TRV_BK_FX, TRV_BK_LO, TRV_BK_UP, TRV_BK_RA, TRV_BK_FR};
      EXPECT_EQ(TRV_putbound(task, accmode, k, keys[kind], low, high), 0);
      return kind == 4 ? 0.0 : kind == 1 ? real(0, 2) : kind == 2 ? real(-2, 0) : real(-2, 2);
    };
    for (int32_t j = 0; j < n; ++j)
      c[static_cast<std::size_t>(j)] += bound(TRV_ACC_VAR, j, x[static_cast<std::size_t>(j)]);
    for (int32_t i = 0; i < m; ++i) {
      const auto& row = a[static_cast<std::size_t>(i)];
      double value = 0.0;
      for (std::size_t j = 0; j < x.size(); ++j) {
        value += row[j] * x[j];
        ASSERT_EQ(TRV_putaij(task, i, static_cast<int32_t>(j), row[j]), 0);
      }
      const double y = bound(TRV_ACC_CON, i, value);
      for (std::size_t j = 0; j < x.size(); ++j) c[j] += y * row[j];
    }
    for (int32_t j = 0; j < n; ++j) ASSERT_EQ(TRV_putcj(task, j, sign * c[static_cast<std::size_t>(j)]), 0);
    ASSERT_EQ(TRV_optimize(task), 0);
    ASSERT_NO_FATAL_FAILURE(expect_optimal(HUGE_VAL, 0.0));
  }
}

struct Published {
  std::string name;
  double objective;
};

void PrintTo(const Published& p, std::ostream* out) { *out << p.name; }

// The quadratic problems of tests/data/problems.csv (name,rows,cols,nnz,objective,...).
std::vector<Published> published_problems() {
  std::vector<Published> all;
  std::ifstream table(TARVO_TEST_DATA "/problems.csv");
  for (std::string line; std::getline(table, line);) {
    if (line.rfind("maros_meszaros/", 0) != 0) continue;
    std::vector<std::string> cell;
    std::stringstream row(line);
    for (std::string text; std::getline(row, text, ',');) cell.push_back(text);
    all.push_back({cell[0], std::stod(cell[4])});
  }
  return all;
}

class PublishedQuadratic : public Quadratic, public testing::WithParamInterface<Published> {};

TEST_P(PublishedQuadratic, HasThePublishedOptimum) {
  ASSERT_EQ(TRV_readdata(task, (TARVO_TEST_DATA "/" + GetParam().name + ".gz").c_str()), 0);
  for (const bool on : {true, false}) {
    presolve(on);
    ASSERT_EQ(TRV_optimize(task), 0);
    expect_optimal(GetParam().objective, 1e-6);
  }
}

INSTANTIATE_TEST_SUITE_P(Data, PublishedQuadratic, testing::ValuesIn(published_problems()), [](const auto& test) {
  std::string name = test.param.name.substr(test.param.name.find('/') + 1);
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
  return name;
});

}  // namespace
