// The LU factors against the matrix itself: residuals of solves, ranks, updates against fresh factors.
#include "lu/lu.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace tarvo {
namespace {

struct Column {
  std::vector<int32_t> sub;
  std::vector<double> val;
};

// A square matrix by columns.
struct Matrix {
  int32_t n = 0;
  std::vector<Column> cols;

  void multiply(const std::vector<double>& x, std::vector<double>* y) const {  // y = B x
    y->assign(static_cast<size_t>(n), 0.0);
    for (size_t j = 0; j < cols.size(); ++j) {
      for (size_t k = 0; k < cols[j].sub.size(); ++k)
        (*y)[static_cast<size_t>(cols[j].sub[k])] += cols[j].val[k] * x[j];
    }
  }
  void multiply_t(const std::vector<double>& y, std::vector<double>* c) const {  // c = B' y
    c->assign(cols.size(), 0.0);
    for (size_t j = 0; j < cols.size(); ++j) {
      for (size_t k = 0; k < cols[j].sub.size(); ++k)
        (*c)[j] += cols[j].val[k] * y[static_cast<size_t>(cols[j].sub[k])];
    }
  }
};

using Random = std::mt19937_64;

double uniform(Random& rng, double a, double b) { return a + (b - a) * static_cast<double>(rng() >> 11) * 0x1p-53; }
int32_t below(Random& rng, int32_t n) { return static_cast<int32_t>(rng() % static_cast<uint64_t>(n)); }

Column random_column(Random& rng, int32_t n, int32_t length, int32_t with = -1) {
  Column column;
  std::vector<char> used(static_cast<size_t>(n), 0);
  for (int32_t k = 0; k < std::min(length, n); ++k) {
    const int32_t i = k == 0 && with >= 0 ? with : below(rng, n);
    if (used[static_cast<size_t>(i)]) continue;
    used[static_cast<size_t>(i)] = 1;
    column.sub.push_back(i);
    column.val.push_back(uniform(rng, 0.5, 2.0) * (rng() % 2 ? 1.0 : -1.0) * (k == 0 ? 4.0 : 1.0));
  }
  return column;
}

struct Kind {
  const char* name;
  int32_t n;
  double logicals;  // share of columns -e_i
  int32_t length;   // elements of the other columns
  int badly_scaled;
};
void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

Matrix make_matrix(const Kind& kind, Random& rng) {
  Matrix matrix;
  matrix.n = kind.n;
  std::vector<int32_t> order(static_cast<size_t>(kind.n));
  for (int32_t i = 0; i < kind.n; ++i) order[static_cast<size_t>(i)] = i;
  std::shuffle(order.begin(), order.end(), rng);
  for (int32_t j = 0; j < kind.n; ++j) {
    const int32_t i = order[static_cast<size_t>(j)];
    matrix.cols.push_back(uniform(rng, 0, 1) < kind.logicals ? Column{{i}, {-1.0}}
                                                             : random_column(rng, kind.n, kind.length, i));
  }
  if (kind.badly_scaled) {
    std::vector<double> scale(static_cast<size_t>(kind.n));
    for (double& s : scale) s = std::exp2(below(rng, 24) - 12);
    for (Column& column : matrix.cols) {
      const double s = std::exp2(below(rng, 24) - 12);
      for (size_t k = 0; k < column.sub.size(); ++k) column.val[k] *= s * scale[static_cast<size_t>(column.sub[k])];
    }
  }
  return matrix;
}

// A factor with the scratch that the solves want from their caller.
struct Factor {
  sysenv* env;
  lu* f = nullptr;
  std::vector<double> v, x;
  std::vector<int32_t> marks, sub, outsub;

  explicit Factor(int32_t n) : Factor(n, n) {}
  Factor(int32_t m, int32_t n) : env(sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr)) {
    EXPECT_EQ(lu_make(env, m, n, &f), LU_OK);
    v.assign(static_cast<size_t>(m), 0.0);
    x.assign(static_cast<size_t>(n), 0.0);
    marks.assign(static_cast<size_t>(m), 0);
    sub.resize(static_cast<size_t>(n));
    outsub.resize(static_cast<size_t>(n));
  }
  ~Factor() {
    lu_delete(&f);
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
  }
  int32_t load(const Matrix& matrix) {
    lu_reset(f);
    for (size_t j = 0; j < matrix.cols.size(); ++j) {
      const Column& column = matrix.cols[j];
      const int32_t res = lu_addcol(f, static_cast<int32_t>(j), static_cast<int32_t>(column.sub.size()),
                                    column.val.data(), column.sub.data());
      if (res != LU_OK) return res;
    }
    return LU_OK;
  }
  int32_t run() {
    int64_t ni, nr;
    lu_worksizes(lu_getnrow(f), lu_getncol(f), &ni, &nr);
    std::vector<int32_t> iwork(static_cast<size_t>(ni), 77);
    std::vector<double> rwork(static_cast<size_t>(nr), 77.0);
    return lu_factor(f, ni, iwork.data(), nr, rwork.data());
  }
  // Factorises, growing the files as often as it takes.
  int32_t factor(const Matrix& matrix, int* attempts = nullptr) {
    for (int k = 0; k < 60; ++k) {
      int32_t res = load(matrix);
      if (res == LU_OK) res = run();
      if (attempts != nullptr) *attempts = k + 1;
      if (res != LU_FILESPACE && res != LU_GARCOL) {
        check();
        return res;
      }
      EXPECT_GT(lu_getneededwsze(f), lu_getwsze(f));
      EXPECT_EQ(lu_putwsze(f, lu_getneededwsze(f)), LU_OK);
    }
    return LU_FILESPACE;
  }
  void check() {
    char text[128];
    const char* fault = lu_chku(f, text);
    EXPECT_EQ(fault, nullptr) << fault;
  }
  void expect_clean() {
    for (const int32_t mark : marks) ASSERT_EQ(mark, 0);
    for (const double value : v) ASSERT_EQ(value, 0.0);
  }
  int32_t scatter(const Column& column) {
    for (size_t k = 0; k < column.sub.size(); ++k) {
      const int32_t i = sub[k] = column.sub[k];
      v[static_cast<size_t>(i)] = column.val[k];
      marks[static_cast<size_t>(i)] = 1;
    }
    return static_cast<int32_t>(column.sub.size());
  }
};

double norm(const std::vector<double>& a) {
  double m = 0.0;
  for (const double t : a) m = std::max(m, std::fabs(t));
  return m;
}

// Backward error |B x - b| / (||B| |x|| + |b|) in the largest norm, of B' x = b with `transposed`.
double residual(const Matrix& matrix, const std::vector<double>& x, const std::vector<double>& b, bool transposed) {
  Matrix absolute = matrix;
  for (Column& column : absolute.cols) {
    for (double& t : column.val) t = std::fabs(t);
  }
  std::vector<double> ax, bound, absx = x;
  for (double& t : absx) t = std::fabs(t);
  transposed ? matrix.multiply_t(x, &ax) : matrix.multiply(x, &ax);
  transposed ? absolute.multiply_t(absx, &bound) : absolute.multiply(absx, &bound);
  for (size_t i = 0; i < ax.size(); ++i) ax[i] -= b[i];
  return norm(ax) / (norm(bound) + norm(b));
}

// Dense and sparse solves with both transposes; the sparse ones against the dense.
void expect_solves(Factor& fac, const Matrix& matrix, Random& rng, double tolerance) {
  const auto n = static_cast<size_t>(matrix.n);
  for (const int32_t length : {1, 3, matrix.n}) {
    const Column rhs = random_column(rng, matrix.n, length);
    std::vector<double> b(n, 0.0), y, x(n, 7.0), dense(n);
    for (size_t k = 0; k < rhs.sub.size(); ++k) b[static_cast<size_t>(rhs.sub[k])] = rhs.val[k];

    y = b;
    lu_ftran(fac.f, y.data(), x.data());
    EXPECT_EQ(norm(y), 0.0);
    EXPECT_LT(residual(matrix, x, b, false), tolerance);
    dense = x;
    int32_t count = fac.scatter(rhs);
    lu_ftranl(fac.f, &count, fac.v.data(), fac.sub.data(), fac.marks.data());
    int32_t marked = 0;
    for (const int32_t mark : fac.marks) marked += mark != 0;
    EXPECT_EQ(marked, count);
    lu_ftranus2(0.0, 0.0, fac.f, count, fac.v.data(), fac.sub.data(), &count, fac.x.data(), fac.outsub.data(),
                fac.marks.data());
    fac.expect_clean();
    for (int32_t k = 0; k < count; ++k) {
      const auto j = static_cast<size_t>(fac.outsub[static_cast<size_t>(k)]);
      EXPECT_NEAR(fac.x[j], dense[j], tolerance * norm(dense));
      fac.x[j] = dense[j] = 0.0;
    }
    EXPECT_LE(norm(dense), tolerance * norm(x));
    EXPECT_EQ(norm(fac.x), 0.0);

    y.assign(n, 7.0);
    x = b;
    lu_btran(fac.f, x.data(), y.data());
    EXPECT_EQ(norm(x), 0.0);
    EXPECT_LT(residual(matrix, y, b, true), tolerance);
    std::vector<double> c = b;
    int32_t listed = static_cast<int32_t>(rhs.sub.size());
    lu_btransparse(0.0, 0.0, fac.f, listed, c.data(), rhs.sub.data(), &listed, fac.v.data(), fac.outsub.data(),
                   fac.marks.data());
    EXPECT_EQ(norm(c), 0.0);
    dense = y;
    for (int32_t k = 0; k < listed; ++k) {
      const auto i = static_cast<size_t>(fac.outsub[static_cast<size_t>(k)]);
      EXPECT_NEAR(fac.v[i], dense[i], tolerance * norm(y));
      fac.v[i] = dense[i] = 0.0;
    }
    EXPECT_LE(norm(dense), tolerance * norm(y));
    fac.expect_clean();
  }
}

class LuKinds : public testing::TestWithParam<Kind> {};

INSTANTIATE_TEST_SUITE_P(All, LuKinds,
                         testing::Values(Kind{"empty", 0, 0, 0, 0}, Kind{"one", 1, 0, 1, 0},
                                         Kind{"permutation", 300, 0, 1, 0}, Kind{"basis", 2000, 0.6, 4, 0},
                                         Kind{"sparse", 400, 0.1, 4, 0}, Kind{"denser", 150, 0, 12, 0},
                                         Kind{"dense", 50, 0, 400, 0}, Kind{"scaled", 500, 0.3, 5, 1}),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(LuKinds, SolvesAndUpdates) {
  const Kind kind = GetParam();
  for (const LuPivmode mode : {LU_PIVMODE_COLUMN, LU_PIVMODE_BOTH}) {
    Random rng(12345 + static_cast<uint64_t>(mode));
    Matrix matrix = make_matrix(kind, rng);
    Factor fac(kind.n);
    lu_putpivmode(fac.f, mode);
    int attempts = 0;
    ASSERT_EQ(fac.factor(matrix, &attempts), LU_OK);  // from files of no length at all
    EXPECT_LT(attempts, 20);
    ASSERT_EQ(lu_getrank(fac.f), kind.n);
    ASSERT_TRUE(lu_isfactored(fac.f));
    if (kind.n == 0) continue;
    const double tolerance = kind.badly_scaled ? 1e-9 : 1e-10;
    expect_solves(fac, matrix, rng, tolerance);

    for (int updates = 0, turns = 0; updates < 150; ++turns) {
      ASSERT_LT(turns, 200);
      // A column enters at a position where it has a decent element, as in a simplex method.
      const Column column =
          rng() % 4 == 0 ? Column{{below(rng, kind.n)}, {-1.0}} : random_column(rng, kind.n, std::max(2, kind.length));
      int32_t count = fac.scatter(column);
      lu_ftranl(fac.f, &count, fac.v.data(), fac.sub.data(), fac.marks.data());
      std::vector<double> spike = fac.v, alpha(fac.v.size(), 0.0);
      const std::vector<int32_t> spikesub(fac.sub.begin(), fac.sub.begin() + count);
      int32_t listed = 0;
      lu_ftranus2(0.0, 1e-14, fac.f, count, fac.v.data(), fac.sub.data(), &listed, alpha.data(), fac.outsub.data(),
                  fac.marks.data());
      ASSERT_GT(listed, 0);
      int32_t j;
      do {
        j = fac.outsub[static_cast<size_t>(below(rng, listed))];
      } while (std::fabs(alpha[static_cast<size_t>(j)]) < 0.1 * norm(alpha));
      const double entry = alpha[static_cast<size_t>(j)];
      const int32_t res = lu_supdl(fac.f, j, j, count, spike.data(), spikesub.data());
      ASSERT_EQ(norm(spike), 0.0);
      fac.expect_clean();
      if (res == LU_NOROOM) {  // of the files, or, with the factor as it was, of the eta table
        if (!lu_isfactored(fac.f)) {
          EXPECT_TRUE(lu_getneedmem(fac.f));
          ASSERT_EQ(lu_putwsze(fac.f, lu_getneededwsze(fac.f)), LU_OK);
        }
      } else {
        ASSERT_TRUE(res == LU_OK || res == LU_REFACTOR) << res;
        double before, after;
        lu_getupdpivots(fac.f, &before, &after);
        EXPECT_NEAR(after / before / entry, 1.0, 1e-6);
        EXPECT_EQ(res == LU_REFACTOR, lu_needrefac(fac.f));
        ++updates;
        matrix.cols[static_cast<size_t>(j)] = column;
        if (updates % 10 == 9) {
          fac.check();
          expect_solves(fac, matrix, rng, 1e-8);
        }
      }
      if (res == LU_NOROOM || (res == LU_REFACTOR && updates % 3 == 0)) {
        ASSERT_EQ(fac.factor(matrix), LU_OK);
        ASSERT_TRUE(lu_isfactored(fac.f));
      }
    }
    // The copy solves as the original does.
    lu* copy = lu_copy(fac.env, fac.f);
    ASSERT_NE(copy, nullptr);
    std::swap(copy, fac.f);
    std::vector<double> b(static_cast<size_t>(kind.n), 1.0), x(b), b2(b), x2(b);
    lu_ftran(fac.f, b.data(), x.data());
    lu_ftran(copy, b2.data(), x2.data());
    EXPECT_EQ(x, x2);
    fac.check();
    lu_delete(&copy);
  }
}

// Columns that are combinations of others lower the rank by exactly as many; artificial columns complete the factor.
TEST(Lu, RankAndCompletion) {
  for (const Kind& kind :
       {Kind{"basis", 1000, 0.6, 4, 0}, Kind{"denser", 120, 0, 10, 0}, Kind{"dense", 40, 0, 400, 0}}) {
    for (const int32_t defect : {1, 7, 20}) {
      Random rng(static_cast<uint64_t>(kind.n + defect));
      Matrix matrix = make_matrix(kind, rng);
      for (int32_t k = 0; k < defect; ++k) {  // column k := column a + column b of the others
        const auto a = static_cast<size_t>(defect + below(rng, kind.n - defect));
        const auto b = static_cast<size_t>(defect + below(rng, kind.n - defect));
        std::vector<double> sum(static_cast<size_t>(kind.n), 0.0);
        for (const size_t j : {a, b}) {
          for (size_t e = 0; e < matrix.cols[j].sub.size(); ++e)
            sum[static_cast<size_t>(matrix.cols[j].sub[e])] += matrix.cols[j].val[e];
        }
        Column& column = matrix.cols[static_cast<size_t>(k)];
        column = {};
        for (int32_t i = 0; i < kind.n && k % 3 != 2; ++i) {  // every third is empty
          if (sum[static_cast<size_t>(i)] != 0.0) {
            column.sub.push_back(i);
            column.val.push_back(sum[static_cast<size_t>(i)]);
          }
        }
      }
      Factor fac(kind.n);
      ASSERT_EQ(fac.factor(matrix), LU_OK);
      ASSERT_EQ(lu_getrank(fac.f), kind.n - defect);
      ASSERT_FALSE(lu_isfactored(fac.f));
      std::vector<int32_t> out(static_cast<size_t>(kind.n));
      ASSERT_EQ(lu_insart(fac.f, -1.0, out.data(), kind.n - 1), LU_IWORK);
      ASSERT_EQ(lu_insart(fac.f, -1.0, out.data(), kind.n), LU_OK);
      int32_t inserted = 0;
      for (size_t j = 0; j < out.size(); ++j) {
        if (out[j] == kind.n) continue;
        ++inserted;
        matrix.cols[j] = {{out[j]}, {-1.0}};
      }
      EXPECT_EQ(inserted, defect);
      fac.check();
      expect_solves(fac, matrix, rng, 1e-8);
      Factor fresh(kind.n);
      ASSERT_EQ(fresh.factor(matrix), LU_OK);
      EXPECT_EQ(lu_getrank(fresh.f), kind.n);
      // The rank and pivots are the same without L and U.
      lu_putdropl(fresh.f, true);
      lu_putdropu(fresh.f, true);
      ASSERT_EQ(fresh.factor(matrix), LU_OK);
      EXPECT_EQ(lu_getrank(fresh.f), kind.n);
      EXPECT_FALSE(lu_isfactored(fresh.f));
    }
  }
}

// Every length of the files: a code, a right rank when the files suffice, and nothing read or written outside.
TEST(Lu, ShortFiles) {
  const Kind kind{"denser", 60, 0.1, 7, 0};
  Random rng(5);
  const Matrix matrix = make_matrix(kind, rng);
  int done = 0, rank_known = 0;
  for (int32_t wsze = 0; wsze < 2600; wsze += 7) {
    Factor fac(kind.n);
    ASSERT_EQ(lu_putwsze(fac.f, wsze), LU_OK);
    int32_t res = LU_GARCOL;
    for (int k = 0; k < 20 && res == LU_GARCOL; ++k) {  // each time twice as many compactions are allowed
      res = fac.load(matrix);
      if (res == LU_OK) res = fac.run();
    }
    if (res == LU_OK) {
      ++done;
      fac.check();
      expect_solves(fac, matrix, rng, 1e-9);
      for (int step = 0; step < 60 && lu_isfactored(fac.f); ++step) {
        const int32_t count = fac.scatter(random_column(rng, kind.n, 9));
        res = lu_update(fac.f, step, step, count, fac.v.data(), fac.sub.data(), fac.marks.data());
        fac.expect_clean();
        fac.check();
        if (res == LU_NOROOM) {
          EXPECT_TRUE(lu_getneedmem(fac.f));
        }
      }
    } else {
      ASSERT_EQ(res, LU_FILESPACE);
      EXPECT_GT(lu_getneededwsze(fac.f), wsze);
      rank_known += lu_getrank(fac.f) == kind.n;
    }
  }
  EXPECT_GT(done, 20);
  EXPECT_GT(rank_known, 3);  // eliminated to the end without L or U
}

TEST(Lu, TinyRowSingletonGoesToTheFarEnd) {
  Matrix matrix{3, {{{0, 1}, {1.0, 1e-9}}, {{0, 2}, {2.0, 1.0}}, {{0, 2}, {3.0, 5.0}}}};
  Factor fac(3);
  ASSERT_EQ(fac.factor(matrix), LU_OK);
  ASSERT_EQ(lu_getrank(fac.f), 3);
  Random rng(1);
  expect_solves(fac, matrix, rng, 1e-9);
  matrix.cols[0].val[1] = 1e-14;  // below the drop tolerance: not there
  ASSERT_EQ(fac.factor(matrix), LU_OK);
  EXPECT_EQ(lu_getrank(fac.f), 2);
}

TEST(Lu, NotANumber) {
  const double bad[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 1e308};
  for (const LuPivmode mode : {LU_PIVMODE_COLUMN, LU_PIVMODE_BOTH}) {
    for (int seed = 0; seed < 60; ++seed) {
      Random rng(static_cast<uint64_t>(seed));
      Matrix matrix = make_matrix(seed % 2 ? Kind{"", 80, 0.3, 5, 0} : Kind{"", 30, 0, 30, 0}, rng);
      for (int k = 0; k < 1 + seed % 20; ++k) {
        std::vector<double>& val = matrix.cols[static_cast<size_t>(below(rng, matrix.n))].val;
        val[static_cast<size_t>(below(rng, static_cast<int32_t>(val.size())))] = bad[(seed + k) % 3];
      }
      Factor fac(matrix.n);
      lu_putpivmode(fac.f, mode);
      ASSERT_EQ(fac.factor(matrix), LU_OK);
      std::vector<int32_t> out(static_cast<size_t>(matrix.n));
      if (!lu_isfactored(fac.f)) {
        ASSERT_EQ(lu_insart(fac.f, -1.0, out.data(), matrix.n), LU_OK);
      }
      for (int step = 0; step < 20 && lu_isfactored(fac.f); ++step) {
        const int32_t count = fac.scatter(random_column(rng, matrix.n, 5));
        const int32_t res = lu_update(fac.f, step, step, count, fac.v.data(), fac.sub.data(), fac.marks.data());
        EXPECT_TRUE(res == LU_OK || res == LU_REFACTOR || res == LU_UNSTABLE || res == LU_NOROOM) << res;
        fac.expect_clean();
      }
    }
  }
}

// More columns than rows: a maximal set of independent columns and their factor.
TEST(Lu, Rectangular) {
  Random rng(3);
  Matrix matrix = make_matrix({"", 100, 0.2, 4, 0}, rng);
  for (int k = 0; k < 50; ++k) matrix.cols.push_back(random_column(rng, 100, 4));
  std::shuffle(matrix.cols.begin(), matrix.cols.end(), rng);
  Factor fac(100, 150);
  ASSERT_EQ(fac.factor(matrix), LU_OK);
  ASSERT_EQ(lu_getrank(fac.f), 100);
  std::vector<double> b(100, 1.0), x(150), y(b);
  lu_ftran(fac.f, y.data(), x.data());
  EXPECT_LT(residual(matrix, x, b, false), 1e-10);
  int32_t col;
  double pivot;
  for (int32_t i = 0; i < 100; ++i) {
    ASSERT_EQ(lu_getpivot(fac.f, i, &col, &pivot), LU_OK);
    EXPECT_LT(col, 150);
    EXPECT_NE(pivot, 0.0);
  }
  EXPECT_EQ(lu_getpivot(fac.f, 100, &col, &pivot), LU_INDEX);
}

TEST(Lu, LimitsAndLoading) {
  Random rng(9);
  const Matrix matrix = make_matrix({"", 100, 0, 8, 0}, rng);
  Factor fac(100);
  ASSERT_EQ(fac.factor(matrix), LU_OK);
  ASSERT_EQ(lu_putwsze(fac.f, lu_getwsze(fac.f) * 4), LU_OK);

  int calls = 0;
  lu_putcallback(fac.f, &calls,
                 [](void* handle, int32_t, int32_t, int32_t) -> int32_t { return ++*static_cast<int*>(handle) == 2; });
  ASSERT_EQ(fac.load(matrix), LU_OK);
  EXPECT_EQ(fac.run(), LU_CALLBACK);
  EXPECT_FALSE(lu_isfactored(fac.f));
  lu_putcallback(fac.f, nullptr, nullptr);
  lu_putmaxwork(fac.f, true, 10);
  ASSERT_EQ(fac.load(matrix), LU_OK);
  EXPECT_EQ(fac.run(), LU_MAXWORK);
  lu_putmaxwork(fac.f, false, 0);
  EXPECT_EQ(fac.run(), LU_NOFACTOR);  // nothing is loaded any more

  lu_puttol(fac.f, LU_TOL_RELPIV, 1.0);
  EXPECT_EQ(lu_gettol(fac.f, LU_TOL_RELPIV), 0.9999);
  lu_puttol(fac.f, LU_TOL_RELPIV, 0.0);
  EXPECT_EQ(lu_gettol(fac.f, LU_TOL_RELPIV), 0.0001);

  // Elements in any order, translated rows.
  ASSERT_EQ(lu_putnrow(fac.f, 3), LU_OK);
  ASSERT_EQ(lu_putncol(fac.f, 3), LU_OK);
  EXPECT_EQ(lu_putnrow(fac.f, 101), LU_BAD_NCOL);
  lu_reset(fac.f);
  const int32_t map[] = {2, 9, 0, 1, 5};
  const double values[] = {4.0, 100.0, 3.0};
  const int32_t rows[] = {0, 1, 2}, outside[] = {4};
  ASSERT_EQ(lu_addelm(fac.f, 5.0, 1, 2), LU_OK);
  ASSERT_EQ(lu_addcolperm(fac.f, 1, 3, values, rows, 3, map), LU_OK);  // 4 in row 2, 3 in row 0
  ASSERT_EQ(lu_addelm(fac.f, 2.0, 0, 0), LU_OK);
  EXPECT_EQ(lu_addcolperm(fac.f, 0, 1, values, outside, 6, map), LU_INDEX);
  ASSERT_EQ(fac.run(), LU_OK);
  const Matrix small{3, {{{0}, {2.0}}, {{2, 0}, {4.0, 3.0}}, {{1}, {5.0}}}};
  std::vector<double> b{1.0, 2.0, 3.0}, y(b), x(3);
  ASSERT_EQ(lu_getrank(fac.f), 3);
  lu_ftran(fac.f, y.data(), x.data());
  EXPECT_LT(residual(small, x, b, false), 1e-14);
  y = b;
  EXPECT_EQ(lu_ftranchecked(fac.f, 0.1, y.data(), x.data()), LU_OVERFLOW);
}

TEST(Lu, MaxUpdatesAndRefusals) {
  Matrix matrix{2, {{{0}, {1.0}}, {{1}, {1.0}}}};
  Factor fac(2);
  ASSERT_EQ(fac.factor(matrix), LU_OK);
  ASSERT_EQ(lu_putwsze(fac.f, 100), LU_OK);
  ASSERT_EQ(fac.factor(matrix), LU_OK);
  const auto update = [&](int32_t j, const Column& column) {
    const int32_t n = fac.scatter(column);
    return lu_update(fac.f, j, j, n, fac.v.data(), fac.sub.data(), fac.marks.data());
  };
  EXPECT_EQ(update(0, {{1}, {1.0}}), LU_UNSTABLE);  // the two columns would be equal
  EXPECT_EQ(update(2, {{1}, {1.0}}), LU_INDEX);
  lu_puttrh(fac.f, LU_TRH_MAXUPD, 3);
  EXPECT_EQ(update(0, {{0, 1}, {2.0, 1.0}}), LU_OK);
  EXPECT_EQ(update(1, {{0, 1}, {1.0, 3.0}}), LU_OK);
  EXPECT_EQ(update(0, {{0, 1}, {1.0, 1.0}}), LU_REFACTOR);
  Random rng(4);
  expect_solves(fac, {2, {{{0, 1}, {1.0, 1.0}}, {{0, 1}, {1.0, 3.0}}}}, rng, 1e-12);
  // The eta table of 2 nrow is full after four etas; the factor then stays as it is.
  int32_t res = LU_OK;
  int updates = 0;
  while (res != LU_NOROOM && ++updates < 20) {
    res = update(updates % 2, {{0, 1}, {1.0, updates % 2 ? 3.0 : 1.0 / updates}});
  }
  EXPECT_EQ(res, LU_NOROOM);
  EXPECT_TRUE(lu_isfactored(fac.f));
  fac.check();
}

// Sparse solves on a large sparse basis touch what they produce, not the rows.
TEST(Lu, HypersparseWorkDoesNotGrowWithRows) {
  WorkCount work[2];
  for (int k = 0; k < 2; ++k) {
    Random rng(8);
    const int32_t n = k == 0 ? 2000 : 32000;
    Matrix matrix;
    matrix.n = n;
    for (int32_t j = 0; j < n; ++j) {  // blocks of 20: chains
      matrix.cols.push_back(j % 20 == 19 ? Column{{j}, {-1.0}} : Column{{j, j + 1}, {2.0, -1.0}});
    }
    Factor fac(n);
    ASSERT_EQ(fac.factor(matrix), LU_OK);
    const WorkCount ops[] = {LU_OP_SPARSE_L_FW, LU_OP_SPARSE_L_BW, LU_OP_SPARSE_U_FW, LU_OP_SPARSE_U_BW,
                             LU_OP_DENSE_L_FW,  LU_OP_DENSE_L_BW,  LU_OP_DENSE_U_FW,  LU_OP_DENSE_U_BW};
    for (int step = 0; step < 50; ++step) {
      const Column unit{{below(rng, n)}, {1.0}};
      int32_t count = fac.scatter(unit);
      lu_ftranl(fac.f, &count, fac.v.data(), fac.sub.data(), fac.marks.data());
      lu_ftranus2(0, 1e-14, fac.f, count, fac.v.data(), fac.sub.data(), &count, fac.x.data(), fac.outsub.data(),
                  fac.marks.data());
      for (int32_t e = 0; e < count; ++e) fac.x[static_cast<size_t>(fac.outsub[static_cast<size_t>(e)])] = 0.0;
      fac.x[static_cast<size_t>(unit.sub[0])] = 1.0;
      count = 1;
      lu_btransparse(0, 1e-14, fac.f, 1, fac.x.data(), unit.sub.data(), &count, fac.v.data(), fac.outsub.data(),
                     fac.marks.data());
      for (int32_t e = 0; e < count; ++e) fac.v[static_cast<size_t>(fac.outsub[static_cast<size_t>(e)])] = 0.0;
    }
    work[k] = 0;
    for (const WorkCount op : ops) work[k] += lu_getwork(fac.f, static_cast<LuOp>(op), true);
  }
  EXPECT_LT(work[1], 2 * work[0]);
}

struct FailingHeap {
  int64_t left;
  int64_t live;
};
void* failing_alloc(void* handle, std::size_t size) {
  auto* heap = static_cast<FailingHeap*>(handle);
  if (heap->left-- <= 0) return nullptr;
  ++heap->live;
  return std::malloc(size);
}
void failing_free(void* handle, void* pointer) {
  if (pointer != nullptr) --static_cast<FailingHeap*>(handle)->live;
  std::free(pointer);
}

TEST(Lu, OutOfMemory) {
  for (int64_t k = 0; k < 80; ++k) {
    FailingHeap heap{1000, 0};
    sysenv* env = sysenv_make(SysKind::task, false, &heap, failing_alloc, failing_free);
    ASSERT_NE(env, nullptr);
    heap.left = k;
    lu* f = nullptr;
    const int32_t made = lu_make(env, 10, 12, &f);
    if (made == LU_OK) {
      if (lu_putwsze(f, 100) != LU_OK) {
        EXPECT_EQ(lu_getwsze(f), 0);
      }
      lu_reset(f);
      lu* copy = lu_copy(env, f);
      lu_delete(&copy);
    } else {
      EXPECT_EQ(made, LU_SPACE);
      EXPECT_EQ(f, nullptr);
    }
    lu_delete(&f);
    heap.left = 1000;
    sysenv_delete(&env);
    EXPECT_EQ(heap.live, 0);
  }
  sysenv* env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
  lu* f = nullptr;
  EXPECT_EQ(lu_make(env, -1, 1, &f), LU_BAD_NROW);
  EXPECT_EQ(lu_make(env, 3, 2, &f), LU_BAD_NCOL);
  ASSERT_EQ(lu_make(env, 3, 3, &f), LU_OK);
  EXPECT_EQ(lu_putwsze(f, int64_t{INT32_MAX} + 1), LU_SPACE);
  lu_delete(&f);
  sysenv_delete(&env);
}

}  // namespace
}  // namespace tarvo
