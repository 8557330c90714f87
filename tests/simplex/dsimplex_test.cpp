#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "simplex/dsimplex_internal.h"
#include "support/random_lp.h"

namespace tarvo {
namespace {

// A problem in arrays, ready for an optimiser.
struct Problem {
  explicit Problem(const tarvo_test::Lp& from) : lp(from) {
    const auto m = static_cast<std::size_t>(lp.numcon), n = static_cast<std::size_t>(lp.numvar);
    for (auto* v : {&cc, &xc, &y, &sc}) v->assign(m, 0.0);
    for (auto* v : {&xx, &sx}) v->assign(n, 0.0);
    skc.assign(m, 0);
    skx.assign(n, 0);
    problem = {lp.numcon,     lp.numvar,     {lp.ptr.data(), lp.ptr.data() + 1, lp.sub.data(), lp.val.data()},
               lp.cfix,       cc.data(),     lp.c.data(),
               lp.bkc.data(), lp.blc.data(), lp.buc.data(),
               lp.bkx.data(), lp.blx.data(), lp.bux.data(),
               skc.data(),    xc.data(),     y.data(),
               sc.data(),     skx.data(),    xx.data(),
               sx.data()};
    for (int k = 0; k < SIM_NUM_OPTIMIZERS; ++k) {
      par.maxiter[k] = 1000000;
      par.maxsetbacks[k] = 250;
      par.tolx[k] = par.tols[k] = 1e-6;
      par.tolpiv[k] = 1e-7;
    }
    par.degen = 1;
    par.primalcrash = 100;
    EXPECT_EQ(simplex_makebasis(env, lp.numcon, &basis), SIM_RESP_OK);
  }
  Problem(const Problem&) = delete;
  Problem& operator=(const Problem&) = delete;
  ~Problem() { simplex_deletebasis(&basis); }

  sysenv* env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
  struct Closer {
    sysenv** env;
    ~Closer() { sysenv_delete(env); }
  } closer{&env};
  tarvo_test::Lp lp;
  std::vector<double> cc, xc, y, sc, xx, sx;
  std::vector<int32_t> skc, skx;
  SimplexProblem problem{};
  simplexpar par{};
  simplexinfo info{};
  SimplexEvents events{};
  simplexbasis basis;
};

// The recurrence of the weights against ||B^-T e_i||^2, wherever the run is stopped.
TEST(DualSimplex, WeightsAreTheSquaredNormsOfTheRowsOfTheInverse) {
  for (unsigned seed = 1; seed <= 12; ++seed)
    for (const int32_t stop : {1, 7, 25, 60}) {
      Problem p(tarvo_test::random_lp(seed, 40, 70, 0.15));
      p.par.maxiter[SIM_DUAL] = stop;
      DualSimplex d(p.env);
      ASSERT_EQ(dsimplex_begin(&d, p.par, &p.info, &p.problem, &p.basis, p.events), SIM_RESP_OK);
      dsimplex_setup(&d);
      dsimplex_optimize(&d);
      for (PsVector* v : {&d.s.alpha, &d.s.rho, &d.s.row, &d.s.spike}) psimplex_clear(v);
      std::vector<double> unit(40, 0.0), row(40, 0.0);
      for (int32_t i = 0; i < 40; ++i) {
        unit[static_cast<std::size_t>(i)] = 1.0;
        lu_btran(p.basis.factor, unit.data(), row.data());
        double norm = 0.0;
        for (const double v : row) norm += v * v;
        EXPECT_NEAR(d.w[i], norm, 1e-6 * norm) << "seed " << seed << ", " << d.iter << " iterations, position " << i;
      }
    }
}

// Packing with many boxed columns: a ratio test without bound flips takes about one iteration a column.
TEST(DualSimplex, FlipsManyBoundsInOneStep) {
  constexpr int32_t m = 30, n = 4000;
  std::mt19937 random(5);
  tarvo_test::Lp lp;
  lp.numcon = m;
  lp.numvar = n;
  lp.ptr.push_back(0);
  for (int32_t j = 0; j < n; ++j) {
    const auto first = static_cast<int32_t>(random() % m);
    for (int32_t k = 0; k < 5; ++k) {
      lp.sub.push_back((first + 5 * k) % m);
      lp.val.push_back(1.0 + static_cast<double>(random() % 100));
    }
    lp.ptr.push_back(static_cast<int32_t>(lp.sub.size()));
    lp.c.push_back(-10.0 - static_cast<double>(random() % 91));
    lp.bkx.push_back(SIM_BK_RA);
    lp.blx.push_back(0.0);
    lp.bux.push_back(1.0);
  }
  lp.bkc.assign(m, SIM_BK_UP);
  lp.blc.assign(m, -1e30);
  lp.buc.assign(m, 9600.0);
  Problem p(lp);
  EXPECT_EQ(simplex_dualoptimizer(p.env, p.par, &p.info, &p.problem, &p.basis, p.events), SIM_RESP_OK);
  EXPECT_EQ(p.info.solsta, 1);
  EXPECT_EQ(p.info.infiter[SIM_DUAL], 0) << "all columns are boxed: no phase of boxes";
  EXPECT_LT(p.info.iter[SIM_DUAL], n / 8);
}

}  // namespace
}  // namespace tarvo
