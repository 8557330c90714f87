// Small linear problems with an optimum that is known by construction: a primal point and multipliers are drawn that
// satisfy the optimality conditions, and bounds and costs are made to fit them.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace tarvo_test {

// Bound keys as TRV_BK_: 0 lower, 1 upper, 2 fixed, 3 free, 4 ranged. Columns are packed: ptr[numvar + 1].
struct Lp {
  int32_t numcon = 0, numvar = 0;
  std::vector<int32_t> ptr, sub, bkc, bkx;
  std::vector<double> val, c, blc, buc, blx, bux;
  double cfix = 0.0, optimum = 0.0;
};

inline Lp random_lp(unsigned seed, int32_t numcon, int32_t numvar, double density = 0.3, double badscale = 0.0) {
  std::mt19937 random(seed);
  const auto integer = [&random](int32_t lo, int32_t hi) {
    return lo + static_cast<int32_t>(random() % static_cast<uint32_t>(hi - lo + 1));
  };
  constexpr double inf = 1e30;
  Lp lp;
  lp.numcon = numcon;
  lp.numvar = numvar;
  const auto m = static_cast<std::size_t>(numcon), n = static_cast<std::size_t>(numvar);
  std::vector<double> x(n), y(m), activity(m, 0.0), rowscale(m, 1.0);
  if (badscale > 0.0)
    for (double& r : rowscale) r = std::pow(10.0, integer(-10, 10) / 10.0 * badscale);
  lp.ptr.push_back(0);
  for (std::size_t j = 0; j < n; ++j) {
    x[j] = integer(-5, 5);
    for (std::size_t i = 0; i < m; ++i) {
      if (integer(0, 999) >= 1000 * density) continue;
      double v = integer(-9, 9) * rowscale[i];
      if (v == 0.0) continue;
      lp.sub.push_back(static_cast<int32_t>(i));
      lp.val.push_back(v);
      activity[i] += v * x[j];
    }
    lp.ptr.push_back(static_cast<int32_t>(lp.sub.size()));
  }
  for (std::size_t i = 0; i < m; ++i) {
    const int32_t kind = integer(0, 4);
    const double a = activity[i], w = integer(1, 9) * rowscale[i];
    y[i] = 0.0;
    if (kind == 0) {  // active lower bound, with or without an upper one
      y[i] = integer(0, 5) / rowscale[i];
      const bool ranged = integer(0, 1) == 1;
      lp.bkc.push_back(ranged ? 4 : 0);
      lp.blc.push_back(a);
      lp.buc.push_back(ranged ? a + w : inf);
    } else if (kind == 1) {  // active upper bound
      y[i] = -integer(0, 5) / rowscale[i];
      lp.bkc.push_back(1);
      lp.blc.push_back(-inf);
      lp.buc.push_back(a);
    } else if (kind == 2) {  // equation
      y[i] = integer(-5, 5) / rowscale[i];
      lp.bkc.push_back(2);
      lp.blc.push_back(a);
      lp.buc.push_back(a);
    } else if (kind == 3) {  // inactive range
      lp.bkc.push_back(4);
      lp.blc.push_back(a - w);
      lp.buc.push_back(a + w);
    } else {
      lp.bkc.push_back(3);
      lp.blc.push_back(-inf);
      lp.buc.push_back(inf);
    }
  }
  lp.cfix = integer(-20, 20);
  lp.optimum = lp.cfix;
  for (std::size_t j = 0; j < n; ++j) {
    double s = 0.0;
    const int32_t kind = integer(0, 4);
    const double w = integer(1, 9);
    if (kind == 0) {  // at the lower bound
      s = integer(0, 5);
      lp.bkx.push_back(0);
      lp.blx.push_back(x[j]);
      lp.bux.push_back(inf);
    } else if (kind == 1) {  // at the upper one of two
      s = -integer(0, 5);
      lp.bkx.push_back(4);
      lp.blx.push_back(x[j] - w);
      lp.bux.push_back(x[j]);
    } else if (kind == 2) {
      s = integer(-5, 5);
      lp.bkx.push_back(2);
      lp.blx.push_back(x[j]);
      lp.bux.push_back(x[j]);
    } else if (kind == 3) {  // off both bounds
      lp.bkx.push_back(4);
      lp.blx.push_back(x[j] - w);
      lp.bux.push_back(x[j] + w);
    } else {
      lp.bkx.push_back(3);
      lp.blx.push_back(-inf);
      lp.bux.push_back(inf);
    }
    double cost = s;
    for (int32_t t = lp.ptr[j]; t < lp.ptr[j + 1]; ++t)
      cost += lp.val[static_cast<std::size_t>(t)] * y[static_cast<std::size_t>(lp.sub[static_cast<std::size_t>(t)])];
    lp.c.push_back(cost);
    lp.optimum += cost * x[j];
  }
  return lp;
}

}  // namespace tarvo_test
