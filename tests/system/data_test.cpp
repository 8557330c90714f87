// Bounds, objective, whole-problem loads, quadratic terms and cones through the public calls.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

void collect(void* handle, const char* text) { *static_cast<std::string*>(handle) += text; }
std::size_t count_of(const std::string& text, const std::string& part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

class Data : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, &budget, limited, release, nullptr), TRV_RES_OK);
    ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
    ASSERT_EQ(TRV_makeemptytask(env, &task), TRV_RES_OK);
    TRV_linkfunctotaskstream(task, TRV_STREAM_WRN, &warnings, collect);
    TRV_linkfunctotaskstream(task, TRV_STREAM_ERR, &errors, collect);
    size(5, 5);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), TRV_RES_OK);
    EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK);
  }
  void size(int32_t numcon, int32_t numvar) {
    ASSERT_EQ(TRV_append(task, TRV_ACC_CON, numcon), TRV_RES_OK);
    ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, numvar), TRV_RES_OK);
  }
  void expect_bound(int32_t i, int32_t bk, double bl, double bu) {
    int32_t k = -1;
    double l = 0, u = 0;
    EXPECT_EQ(TRV_getbound(task, TRV_ACC_VAR, i, &k, &l, &u), TRV_RES_OK);
    EXPECT_EQ(k, bk);
    EXPECT_EQ(l, bl);
    EXPECT_EQ(u, bu);
  }
  [[nodiscard]] std::vector<int32_t> cone(int32_t k) const {
    int32_t n = 0;
    EXPECT_EQ(TRV_getnumconemem(task, k, &n), TRV_RES_OK);
    std::vector<int32_t> members(static_cast<std::size_t>(n));
    EXPECT_EQ(TRV_getcone(task, k, nullptr, nullptr, nullptr, members.data()), TRV_RES_OK);
    return members;
  }
  static void* limited(void* handle, std::size_t size) {
    auto* left = static_cast<int*>(handle);
    if (*left == 0) return nullptr;
    if (*left > 0) --*left;
    return std::malloc(size);
  }
  static void release(void*, void* p) { std::free(p); }
  int budget = -1;
  std::string warnings, errors;
  TRVenv env = nullptr;
  TRVtask task = nullptr;
};

TEST_F(Data, CapacitiesDoubleAndSurviveFailures) {
  TRV_resizetask(task, 0, 0, 0, 0, 0);
  int32_t cap = 0;
  for (const int32_t expected : {1, 2, 4}) {
    TRV_append(task, TRV_ACC_VAR, 1);
    TRV_getmaxnumvar(task, &cap);
    EXPECT_EQ(cap, expected);
  }
  EXPECT_EQ(TRV_putmaxnumvar(task, 2), TRV_RES_ERR_MAXNUMVAR);
  TRV_putcj(task, 2, 7);
  // Whichever allocation of the family fails, the task stays as it is.
  int32_t rc = TRV_RES_ERR_SPACE;
  for (int k = 0; rc != TRV_RES_OK; ++k) {
    ASSERT_EQ(rc, TRV_RES_ERR_SPACE);
    budget = k;
    rc = TRV_append(task, TRV_ACC_VAR, 100);
    budget = -1;
    double c[103] = {};
    ASSERT_EQ(TRV_getcslice(task, 0, 3, c), TRV_RES_OK);
    ASSERT_EQ(c[2], 7);
    TRV_getmaxnumvar(task, &cap);
    ASSERT_EQ(cap, rc == TRV_RES_OK ? 103 : 4);
  }
}

struct BoundCase {
  int32_t bk;
  double bl, bu;
  int32_t key;
  double lower, upper;
  std::size_t reports;
};
class BoundKeys : public Data, public testing::WithParamInterface<BoundCase> {};
TEST_P(BoundKeys, AreNormalised) {
  const BoundCase& b = GetParam();
  EXPECT_EQ(TRV_putbound(task, TRV_ACC_VAR, 1, b.bk, b.bl, b.bu), TRV_RES_OK);
  expect_bound(1, b.key, b.lower, b.upper);
  EXPECT_EQ(count_of(warnings, "Warning"), b.reports) << warnings;
}
INSTANTIATE_TEST_SUITE_P(Table, BoundKeys,
                         testing::Values(BoundCase{TRV_BK_RA, -1e16, 5, TRV_BK_UP, -1e30, 5, 0},
                                         BoundCase{TRV_BK_RA, 5, 1e16, TRV_BK_LO, 5, 1e30, 0},
                                         BoundCase{TRV_BK_RA, -1e17, 1e17, TRV_BK_FR, -1e30, 1e30, 0},
                                         BoundCase{TRV_BK_LO, -1e16, 3, TRV_BK_FR, -1e30, 1e30, 0},
                                         BoundCase{TRV_BK_LO, 1e9, 3, TRV_BK_LO, 1e9, 1e30, 1},
                                         BoundCase{TRV_BK_UP, 3, 2e16, TRV_BK_FR, -1e30, 1e30, 0},
                                         BoundCase{TRV_BK_FX, -1e30, -1e30, TRV_BK_FR, -1e30, 1e30, 0},
                                         BoundCase{TRV_BK_FX, 1, 1 + 1e-15, TRV_BK_FX, 1, 1, 1},
                                         BoundCase{TRV_BK_RA, 6, 5, TRV_BK_RA, 6, 5, 0}));

TEST_F(Data, ChangesOneSideOfABound) {
  TRV_putbound(task, TRV_ACC_VAR, 0, TRV_BK_LO, 0, 0);
  EXPECT_EQ(TRV_chgbound(task, TRV_ACC_VAR, 0, 0, 1, 5), TRV_RES_OK);
  expect_bound(0, TRV_BK_RA, 0, 5);
  EXPECT_EQ(TRV_chgbound(task, TRV_ACC_VAR, 0, 1, 1, 5), TRV_RES_OK);
  expect_bound(0, TRV_BK_FX, 5, 5);
  EXPECT_EQ(TRV_chgbound(task, TRV_ACC_VAR, 0, 1, 0, 0), TRV_RES_OK);
  expect_bound(0, TRV_BK_UP, -1e30, 5);
  EXPECT_EQ(TRV_chgbound(task, TRV_ACC_VAR, 0, 0, 1, 1e17), TRV_RES_OK);
  expect_bound(0, TRV_BK_FR, -1e30, 1e30);
  EXPECT_EQ(TRV_chgbound(task, TRV_ACC_VAR, 0, 1, 1, -1e9), TRV_RES_OK);
  EXPECT_EQ(count_of(warnings, "Warning 52"), 1U);
  EXPECT_EQ(TRV_chgbound(task, 2, 0, 1, 1, 0), TRV_RES_ERR_INVALID_ACCMODE);
}

TEST_F(Data, RefusesNumbersThatAreNone) {
  const int32_t j = 2;
  const double bad = nan, inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(TRV_putclist(task, 1, &j, &bad), TRV_RES_ERR_NAN_IN_DOUBLE_DATA);
  EXPECT_EQ(TRV_putavec(task, TRV_ACC_VAR, 0, 1, &j, &bad), TRV_RES_ERR_NAN_IN_DOUBLE_DATA);
  EXPECT_EQ(TRV_putqobj(task, 1, &j, &j, &inf), TRV_RES_ERR_INV_QOBJ_VAL);
  EXPECT_EQ(TRV_putcj(task, 2, 1e17), TRV_RES_ERR_HUGE_C);
  EXPECT_EQ(TRV_checkdata(task), TRV_RES_OK);
  EXPECT_EQ(TRV_putcj(task, 2, nan), TRV_RES_OK);
  EXPECT_EQ(TRV_checkdata(task), TRV_RES_ERR_NAN_IN_C);
  TRV_putcj(task, 2, 0);
  TRV_putbound(task, TRV_ACC_CON, 3, TRV_BK_UP, 0, nan);
  EXPECT_EQ(TRV_checkdata(task), TRV_RES_ERR_NAN_IN_BUC);
}

TEST_F(Data, ABadMatrixLeavesTheOldProblem) {
  const double c[] = {1, 2}, b[] = {0, 0};
  const int32_t bk[] = {TRV_BK_FX, TRV_BK_FX}, ptrb[] = {0, 2}, ptre[] = {2, 3}, shorter[] = {2, 1};
  const int32_t twice[] = {1, 1, 0}, outside[] = {0, 1, 2}, good[] = {1, 0, 1};
  const double val[] = {3, 4, 1e-13};
  const auto input = [&](const int32_t* end, const int32_t* sub) {
    return TRV_inputdata(task, 0, 4, 2, 2, c, 5, ptrb, end, sub, val, bk, b, b, bk, b, b);
  };
  int32_t n = 0;
  EXPECT_EQ(input(shorter, good), TRV_RES_ERR_INV_APTRE);
  EXPECT_EQ(input(ptre, twice), TRV_RES_ERR_MUL_A_ELEMENT);
  EXPECT_EQ(input(ptre, outside), TRV_RES_ERR_INDEX_IS_TOO_LARGE);
  TRV_getnumvar(task, &n);
  EXPECT_EQ(n, 5);
  EXPECT_EQ(input(ptre, good), TRV_RES_OK);
  EXPECT_EQ(count_of(warnings, "Warning 700"), 1U);
  TRV_getnumanz(task, &n);
  EXPECT_EQ(n, 2);
  double a = 0;
  TRV_getaij(task, 0, 0, &a);
  EXPECT_EQ(a, 4);
}

TEST_F(Data, RemovingKeepsTheOtherItemsData) {
  for (int32_t j = 0; j < 5; ++j) {
    TRV_putcj(task, j, j);
    TRV_putvartype(task, j, j % 2);
    TRV_putvarbranchorder(task, j, j, TRV_BRANCH_DIR_UP);
    TRV_putname(task, TRV_PI_VAR, j, std::string(1, static_cast<char>('a' + j)).c_str());
    TRV_putqobjij(task, j, j, 10 + j);
  }
  TRV_putqobjij(task, 1, 4, 99);
  const int32_t members[] = {4, 3, 2}, head[] = {4}, tail[] = {1, 3, 1};
  ASSERT_EQ(TRV_putmaxnumcone(task, 2), TRV_RES_OK);
  ASSERT_EQ(TRV_appendcone(task, TRV_CT_QUAD, 0, 3, members), TRV_RES_OK);
  EXPECT_EQ(TRV_remove(task, TRV_ACC_VAR, 1, head), TRV_RES_ERR_REMOVE_CONE_VARIABLE);
  EXPECT_EQ(TRV_remove(task, TRV_ACC_VAR, 3, tail), TRV_RES_OK);  // 0, 2, 4 stay
  int32_t n = 0, index = -1, asgn = 0, priority = 0;
  double c[3] = {}, q = 0;
  TRV_getc(task, c);
  EXPECT_EQ(c[1], 2);
  TRV_getnumintvar(task, &n);
  EXPECT_EQ(n, 0);
  TRV_getvarbranchpri(task, 2, &priority);
  EXPECT_EQ(priority, 4);
  TRV_getnameindex(task, TRV_PI_VAR, "e", &asgn, &index);
  EXPECT_EQ(index, 2);
  TRV_getnameindex(task, TRV_PI_VAR, "d", &asgn, &index);
  EXPECT_EQ(asgn, 0);
  TRV_getnumqobjnz(task, &n);
  EXPECT_EQ(n, 3);
  TRV_getqobjij(task, 2, 2, &q);
  EXPECT_EQ(q, 14);
  EXPECT_EQ(cone(0), (std::vector<int32_t>{2, 1}));
  // The variable that comes back belongs to no cone.
  TRV_append(task, TRV_ACC_VAR, 1);
  const int32_t last[] = {3};
  EXPECT_EQ(TRV_appendcone(task, TRV_CT_QUAD, 0, 1, last), TRV_RES_OK);
}

TEST_F(Data, QuadraticTermsOfTheObjective) {
  const int32_t i[] = {1, 0, 1, 1, 2}, j[] = {1, 0, 0, 0, 2};
  const double v[] = {2, 2, 1, .5, 1e-16};
  int32_t n = 0, surp = 5;
  ASSERT_EQ(TRV_putqobj(task, 5, i, j, v), TRV_RES_OK);
  int32_t subi[5] = {}, subj[5] = {};
  double val[5] = {};
  EXPECT_EQ(TRV_getqobj(task, 5, &surp, &n, subi, subj, val), TRV_RES_OK);
  EXPECT_EQ(n, 3);
  EXPECT_EQ(surp, 2);
  EXPECT_EQ(val[1], 1.5);
  EXPECT_EQ(TRV_getqobj(task, 5, &surp, &n, subi, subj, val), TRV_RES_ERR_NEGATIVE_SURPLUS);
  EXPECT_EQ(n, 0);
  double q = 0;
  TRV_getqobjij(task, 0, 1, &q);
  EXPECT_EQ(q, 1.5);
  TRV_putqobjij(task, 2, 4, 3);  // either order names the term
  TRVtask clone = nullptr;
  ASSERT_EQ(TRV_clonetask(task, &clone), TRV_RES_OK);
  TRV_getqobjij(clone, 4, 2, &q);
  EXPECT_EQ(q, 3);
  TRV_deletetask(&clone);
  EXPECT_EQ(TRV_putqobj(task, 1, j, i, v), TRV_RES_OK);
  EXPECT_EQ(TRV_putqobj(task, 3, j, i, v), TRV_RES_ERR_QOBJ_UPPER_TRIANGLE);
  TRV_getnumqobjnz(task, &n);
  EXPECT_EQ(n, 0);
}

// One-by-one edits of the objective and of constraints against maps, over the search table and repackings.
TEST_F(Data, QuadraticStoreAgreesWithAModel) {
  size(10, 35);
  std::mt19937 rng(3);
  const auto below = [&](uint32_t n) { return static_cast<int32_t>(rng() % n); };
  std::map<std::pair<int32_t, int32_t>, double> objective;
  std::map<int32_t, std::map<std::pair<int32_t, int32_t>, double>> rows;
  TRV_putintparam(task, TRV_IPAR_ALLOC_ADD_QNZ, 3);
  for (int step = 0; step < 20000 && !HasFailure(); ++step) {
    const int32_t i = below(40), j = below(40);
    const std::pair<int32_t, int32_t> key{std::max(i, j), std::min(i, j)};
    const int action = below(100);
    if (action < 60) {
      const double v = below(3);
      ASSERT_EQ(TRV_putqobjij(task, i, j, v), TRV_RES_OK);
      if (v == 0)
        objective.erase(key);
      else
        objective[key] = v;
    } else if (action < 90) {
      double v = -1;
      ASSERT_EQ(TRV_getqobjij(task, i, j, &v), TRV_RES_OK);
      ASSERT_EQ(v, objective.count(key) != 0 ? objective[key] : 0.0);
    } else if (action < 98) {
      const int32_t k = below(15), n = below(6);
      std::vector<int32_t> subi, subj;
      std::vector<double> val;
      rows[k].clear();
      for (int32_t t = 0; t < n; ++t) {
        subi.push_back(below(40));
        subj.push_back(below(static_cast<uint32_t>(subi.back()) + 1));
        val.push_back(1 + below(3));
        rows[k][{subi.back(), subj.back()}] += val.back();
      }
      ASSERT_EQ(TRV_putqconk(task, k, n, subi.data(), subj.data(), val.data()), TRV_RES_OK);
    } else if (action == 98) {
      budget = below(3);
      const double one = 1;
      const int32_t rc =
          below(2) == 0 ? TRV_putmaxnumqnz(task, 3000) : TRV_putqobjij(task, 0, 0, objective[{0, 0}] = one);
      budget = -1;
      if (rc != TRV_RES_OK) TRV_putqobjij(task, 0, 0, one);
      if (objective[{0, 0}] == 0) objective.erase({0, 0});
    }
    if (step % 50 != 0) continue;
    for (int32_t k = 0; k < 15; ++k) {
      int32_t surp = 40, n = 0, subi[40], subj[40];
      double val[40];
      ASSERT_EQ(TRV_getqconk(task, k, 40, &surp, &n, subi, subj, val), TRV_RES_OK);
      std::map<std::pair<int32_t, int32_t>, double> found;
      for (int32_t t = 0; t < n; ++t) found[{subi[t], subj[t]}] = val[t];
      ASSERT_EQ(found, rows[k]);
    }
  }
}

TEST_F(Data, AFailedWriteOfAllConstraintsKeepsTheTerms) {
  const int32_t k[] = {4, 0, 4}, i[] = {1, 2, 3}, j[] = {0, 2, 1}, bad[] = {4, 3, 5};
  const double v[] = {1, 2, 3};
  int32_t n = 0;
  ASSERT_EQ(TRV_putqcon(task, 3, k, i, j, v), TRV_RES_OK);
  EXPECT_EQ(TRV_putqcon(task, 3, bad, i, j, v), TRV_RES_ERR_INV_QCON_SUBK);
  EXPECT_EQ(TRV_putqcon(task, 3, k, bad, j, v), TRV_RES_ERR_QCON_SUBI_TOO_LARGE);
  EXPECT_EQ(TRV_putqcon(task, 3, k, j, i, v), TRV_RES_ERR_QCON_UPPER_TRIANGLE);
  TRV_getnumqconnz(task, 4, &n);
  EXPECT_EQ(n, 2);
  const int32_t first[] = {0};
  EXPECT_EQ(TRV_remove(task, TRV_ACC_CON, 1, first), TRV_RES_OK);
  TRV_getnumqconnz(task, 3, &n);
  EXPECT_EQ(n, 2);
}

TEST_F(Data, PrintsTheChosenSections) {
  std::string text;
  TRV_linkfunctotaskstream(task, TRV_STREAM_MSG, &text, collect);
  const int32_t members[] = {0, 1};
  TRV_putaij(task, 4, 2, 1.5);
  TRV_putqobjij(task, 3, 1, 2.5);
  TRV_appendcone(task, TRV_CT_RQUAD, 0, 2, members);
  EXPECT_EQ(TRV_printdata(task, TRV_STREAM_MSG, -1, 99, -1, 99, -1, 99, 1, 1, 1, 1, 1, 1, 1, 1), TRV_RES_OK);
  for (const char* part : {" 1.500000e+00[4]", " 2.500000e+00[3,1]\n", "Dimension: 2\n"})
    EXPECT_EQ(count_of(text, part), 1U) << text;
  text.clear();
  EXPECT_EQ(TRV_printdata(task, TRV_STREAM_MSG, 0, 5, 3, 5, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0), TRV_RES_OK);
  EXPECT_EQ(count_of(text, "e+00"), 0U) << text;
  EXPECT_EQ(TRV_printdata(task, 4, 0, 5, 3, 5, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0), TRV_RES_ERR_INVALID_STREAM);
}

TEST_F(Data, Cones) {
  const int32_t a[] = {0, 1}, overlap[] = {2, 1}, repeat[] = {2, 2}, b[] = {2, 3}, all[] = {3, 4, 2}, out[] = {5};
  int32_t n = 0;
  EXPECT_EQ(TRV_putmaxnumcone(task, 10), TRV_RES_OK);
  TRV_getmaxnumcone(task, &n);
  EXPECT_EQ(n, 5);
  EXPECT_EQ(TRV_appendcone(task, TRV_CT_QUAD, 0, 2, a), TRV_RES_OK);
  TRV_putname(task, TRV_PI_CONE, 0, "first");
  EXPECT_EQ(TRV_appendcone(task, TRV_CT_QUAD, 0, 2, overlap), TRV_RES_ERR_CONE_OVERLAP);
  EXPECT_NE(errors.find("Variable '' (1) is a member of cone 'first' (0) and cone '' (1)."), std::string::npos);
  EXPECT_EQ(TRV_appendcone(task, TRV_CT_QUAD, 0, 2, repeat), TRV_RES_ERR_CONE_REP_VAR);
  EXPECT_EQ(TRV_appendcone(task, TRV_CT_QUAD, 0, 1, out), TRV_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(TRV_appendcone(task, TRV_CT_RQUAD, 0, 1, b), TRV_RES_ERR_CONE_SIZE);
  EXPECT_EQ(TRV_appendcone(task, 5, 0, 1, b), TRV_RES_ERR_CONE_TYPE);
  EXPECT_EQ(TRV_appendcone(task, TRV_CT_RQUAD, 0, 2, b), TRV_RES_OK);
  // Growing a cone takes all places of the member store, its own old ones included.
  EXPECT_EQ(TRV_putcone(task, 1, TRV_CT_QUAD, 0, 3, all), TRV_RES_OK);
  EXPECT_EQ(cone(0), (std::vector<int32_t>{0, 1}));
  EXPECT_EQ(cone(1), (std::vector<int32_t>{3, 4, 2}));
  TRV_putname(task, TRV_PI_CONE, 1, "second");
  EXPECT_EQ(TRV_putmaxnumvar(task, 50), TRV_RES_OK);
  EXPECT_EQ(TRV_removecone(task, 0), TRV_RES_OK);
  EXPECT_EQ(TRV_removecone(task, 1), TRV_RES_ERR_CONE_INDEX);
  char name[10] = "";
  TRV_getname(task, TRV_PI_CONE, 0, 10, nullptr, name);
  EXPECT_STREQ(name, "second");
  EXPECT_EQ(cone(0), (std::vector<int32_t>{3, 4, 2}));
  EXPECT_EQ(TRV_appendcone(task, TRV_CT_QUAD, 0, 2, a), TRV_RES_OK);
  EXPECT_EQ(cone(1), (std::vector<int32_t>{0, 1}));
}

}  // namespace
