#include "simplex/scale.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/random_lp.h"

namespace tarvo {
namespace {

using tarvo_test::Lp;

struct Scaled {
  std::vector<double> r, c, rowmax, rowmin;
  bool used = false;
};

SimplexInput input_of(const Lp& lp, const std::vector<double>& cc) {
  return {lp.numcon,     lp.numvar,     {lp.ptr.data(), lp.ptr.data() + 1, lp.sub.data(), lp.val.data()},
          lp.cfix,       cc.data(),     lp.c.data(),
          lp.bkc.data(), lp.blc.data(), lp.buc.data(),
          lp.bkx.data(), lp.blx.data(), lp.bux.data()};
}

Scaled scale(const Lp& lp, bool hot) {
  const std::vector<double> cc(lp.blc.size(), 0.0);
  Scaled s;
  s.r.resize(lp.blc.size());
  s.rowmax = s.rowmin = s.r;
  s.c.resize(lp.c.size());
  s.used = simplex_scale(input_of(lp, cc), hot, s.r.data(), s.c.data(), s.rowmax.data(), s.rowmin.data());
  return s;
}

Lp matrix(int32_t numcon, const std::vector<std::vector<double>>& columns, const std::vector<double>& costs) {
  Lp lp;
  lp.numcon = numcon;
  lp.numvar = static_cast<int32_t>(columns.size());
  lp.ptr.push_back(0);
  for (const auto& column : columns) {
    for (int32_t i = 0; i < numcon; ++i)
      if (column[static_cast<std::size_t>(i)] != 0.0) {
        lp.sub.push_back(i);
        lp.val.push_back(column[static_cast<std::size_t>(i)]);
      }
    lp.ptr.push_back(static_cast<int32_t>(lp.sub.size()));
  }
  lp.c = costs;
  lp.bkx.assign(columns.size(), 0);
  lp.blx.assign(columns.size(), 0.0);
  lp.bux.assign(columns.size(), 1e30);
  lp.bkc.assign(static_cast<std::size_t>(numcon), 3);
  lp.blc.assign(static_cast<std::size_t>(numcon), -1e30);
  lp.buc.assign(static_cast<std::size_t>(numcon), 1e30);
  return lp;
}

bool power_of_two(double x) {
  int e = 0;
  return x > 0.0 && std::frexp(x, &e) == 0.5;
}

TEST(Scale, LeavesAMatrixOfOnesAlone) {
  const Scaled s = scale(matrix(2, {{1, 1}, {-1, 1}}, {1, 2}), false);
  EXPECT_FALSE(s.used);
}

// One column (4, 0.5): divided by 4 it is (1, 1/8); the second row is lifted by 8. Rounding gives the power of two
// above: 1/4 -> 1/2, 8 -> 16; rows and columns whose factor is 1 stay.
TEST(Scale, FollowsTheRulesOnASmallMatrix) {
  const Scaled s = scale(matrix(2, {{4, 0.5}}, {0}), false);
  ASSERT_TRUE(s.used);
  EXPECT_EQ(s.c[0], 0.5);
  EXPECT_EQ(s.r[0], 1.0);
  EXPECT_EQ(s.r[1], 16.0);
}

TEST(Scale, HotStartMakesOnePassAndNoFinish) {
  // A large cost forbids the column rule to lift the column; the row is lifted instead.
  const Scaled s = scale(matrix(1, {{0.25}}, {400.0}), true);
  ASSERT_TRUE(s.used);
  EXPECT_EQ(s.c[0], 1.0);
  EXPECT_EQ(s.r[0], 8.0);
}

TEST(Scale, GivesPowersOfTwoAndTamesBadRows) {
  for (unsigned seed = 0; seed < 10; ++seed) {
    const Lp lp = tarvo_test::random_lp(seed, 12, 20, 0.3, 6.0);
    const Scaled s = scale(lp, false);
    ASSERT_TRUE(s.used);
    double largest = 0.0, smallest = HUGE_VAL;
    for (int32_t j = 0; j < lp.numvar; ++j)
      for (auto t = static_cast<std::size_t>(lp.ptr[static_cast<std::size_t>(j)]);
           t < static_cast<std::size_t>(lp.ptr[static_cast<std::size_t>(j) + 1]); ++t) {
        const double v =
            std::fabs(lp.val[t]) * s.r[static_cast<std::size_t>(lp.sub[t])] * s.c[static_cast<std::size_t>(j)];
        largest = std::max(largest, v);
        smallest = std::min(smallest, v);
      }
    EXPECT_LT(largest / smallest, 1e9) << seed;
    for (const double x : s.r) EXPECT_TRUE(power_of_two(x));
    for (const double x : s.c) EXPECT_TRUE(power_of_two(x));
  }
}

// Extreme elements must not make factors whose products overflow.
TEST(Scale, SurvivesExtremeElements) {
  const Scaled s = scale(matrix(2, {{1e-300, 1}, {1e300, 1e-12}}, {1, 1}), false);
  for (const double x : s.r) EXPECT_TRUE(std::isfinite(x) && x > 0.0);
  for (const double x : s.c) EXPECT_TRUE(std::isfinite(x) && x > 0.0);
}

TEST(Scale, UnscalingGivesBackTheSameBits) {
  Lp lp = tarvo_test::random_lp(3, 10, 15, 0.4, 5.0);
  const Scaled s = scale(lp, false);
  ASSERT_TRUE(s.used);
  const auto m = lp.blc.size(), n = lp.c.size();
  std::vector<double> cc(m, 0.0), cx = lp.c, blc = lp.blc, buc = lp.buc, blx = lp.blx, bux = lp.bux;
  std::vector<double> xc(m, 1.0 / 3), y(m, 0.7), sc(m, 1e-9), xx(n, -0.1), sx(n, 123.456), val(lp.val.size());
  std::vector<int32_t> skc(m), skx(n);
  SimplexProblem p{};
  p.numcon = lp.numcon;
  p.numvar = lp.numvar;
  p.a = {lp.ptr.data(), lp.ptr.data() + 1, lp.sub.data(), lp.val.data()};
  p.cc = cc.data();
  p.cx = cx.data();
  p.bkc = lp.bkc.data();
  p.bkx = lp.bkx.data();
  p.blc = blc.data();
  p.buc = buc.data();
  p.blx = blx.data();
  p.bux = bux.data();
  p.skc = skc.data();
  p.skx = skx.data();
  p.xc = xc.data();
  p.xx = xx.data();
  p.y = y.data();
  p.sc = sc.data();
  p.sx = sx.data();
  simplex_applyscale(s.r.data(), s.c.data(), &p, val.data());
  // The Lagrangian's terms keep their value: (a r c)(x / c)(y / r) = a x y.
  const auto i = static_cast<std::size_t>(lp.sub[0]);
  EXPECT_DOUBLE_EQ(val[0] * xx[0] * y[i], lp.val[0] * -0.1 * 0.7);
  EXPECT_DOUBLE_EQ(cx[0] * xx[0], lp.c[0] * -0.1);
  for (std::size_t k = 0; k < m; ++k) {
    if (lp.bkc[k] == 3) {
      EXPECT_EQ(buc[k], 1e30);
    }
  }
  simplex_unscale(s.r.data(), s.c.data(), &p);
  EXPECT_EQ(xc, std::vector<double>(m, 1.0 / 3));
  EXPECT_EQ(y, std::vector<double>(m, 0.7));
  EXPECT_EQ(sc, std::vector<double>(m, 1e-9));
  EXPECT_EQ(xx, std::vector<double>(n, -0.1));
  EXPECT_EQ(sx, std::vector<double>(n, 123.456));
}

}  // namespace
}  // namespace tarvo
