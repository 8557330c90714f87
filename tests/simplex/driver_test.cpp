// simplex_optimize on plain arrays, judged on the original data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "optimize/solcheck.h"
#include "simplex/clean.h"
#include "simplex/simplex.h"
#include "support/random_lp.h"

namespace tarvo {
namespace {

using tarvo_test::Lp;
using tarvo_test::random_lp;

struct Events {
  int32_t stop_at = -1;  // the call that stops the run
  int32_t code = 7;
  int32_t calls = 0, begins = 0, ends = 0;
};
int32_t on_event(void* handle, int32_t event, const simplexinfo*) {
  auto* e = static_cast<Events*>(handle);
  e->begins += event == 32;
  e->ends += event == 33;
  return e->calls++ == e->stop_at ? e->code : 0;
}

simplexpar defaults() {
  simplexpar par{};
  par.optimizer = 1;
  par.degen = 1;
  par.solveform = 1;
  par.primalcrash = 90;
  for (int k = 0; k < SIM_NUM_OPTIMIZERS; ++k) {
    par.maxiter[k] = 100000;
    par.maxsetbacks[k] = 250;
    par.tolx[k] = par.tols[k] = 1e-6;
    par.tolpiv[k] = 1e-7;
  }
  return par;
}

class Solver {
 public:
  explicit Solver(Lp problem) : lp(std::move(problem)), cc(lp.blc.size(), 0.0) {
    env_ = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
    const auto m = lp.blc.size(), n = lp.c.size();
    skc.assign(m, 0);
    skx.assign(n, 0);
    xc.assign(m, NAN);
    y = slc = suc = xc;
    xx.assign(n, NAN);
    slx = sux = xx;
    EXPECT_EQ(simplex_makebasis(env_, lp.numcon, &basis_), SIM_RESP_OK);
  }
  ~Solver() {
    simplex_deletebasis(&basis_);
    EXPECT_EQ(sysenv_delete(&env_), SYS_OK);
  }
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;

  int32_t run(const simplexpar& par, Events* events) {
    info = {};
    const SimplexInput input{
        lp.numcon,     lp.numvar,     {lp.ptr.data(), lp.ptr.data() + 1, lp.sub.data(), lp.val.data()},
        lp.cfix,       cc.data(),     lp.c.data(),
        lp.bkc.data(), lp.blc.data(), lp.buc.data(),
        lp.bkx.data(), lp.blx.data(), lp.bux.data()};
    SimplexSolution solution{skc.data(), skx.data(), xc.data(),  xx.data(), y.data(),
                             slc.data(), suc.data(), slx.data(), sux.data()};
    return simplex_optimize(env_, par, &info, input, &solution, &basis_, {events, on_event, true});
  }
  int32_t run(const simplexpar& par) {
    Events events;
    return run(par, &events);
  }

  [[nodiscard]] Measures measures() const {
    CheckProblem p{};
    p.numcon = lp.numcon;
    p.numvar = lp.numvar;
    p.sign = 1.0;
    p.cfix = lp.cfix;
    p.c = lp.c.data();
    p.cc = cc.data();
    p.aptrb = lp.ptr.data();
    p.aptre = lp.ptr.data() + 1;
    p.asub = lp.sub.data();
    p.aval = lp.val.data();
    p.bkc = lp.bkc.data();
    p.bkx = lp.bkx.data();
    p.blc = lp.blc.data();
    p.buc = lp.buc.data();
    p.blx = lp.blx.data();
    p.bux = lp.bux.data();
    std::vector<double> work(xc.size() + 1);
    Measures m{};
    opt_chksolconic(p,
                    {info.prosta, info.solsta, true, xc.data(), xx.data(), y.data(), slc.data(), suc.data(), slx.data(),
                     sux.data(), nullptr},
                    work.data(), &m);
    return m;
  }

  // Optimal with both objectives at the known value and nothing violated.
  void expect_optimal(double tol = 1e-6) const {
    ASSERT_EQ(info.resp, 0);
    ASSERT_EQ(info.prosta, 1);
    ASSERT_EQ(info.solsta, 1);
    const Measures m = measures();
    EXPECT_NEAR(m.primalobj, lp.optimum, 1e-6 * (1 + std::fabs(lp.optimum)));
    EXPECT_NEAR(m.dualobj, lp.optimum, 1e-6 * (1 + std::fabs(lp.optimum)));
    EXPECT_NEAR(info.pobj, m.primalobj, 1e-6 * (1 + std::fabs(lp.optimum)));
    EXPECT_LE(m.maxpbi, tol);
    EXPECT_LE(m.maxpeqi, tol);
    EXPECT_LE(m.maxdbi, tol);
    EXPECT_LE(m.maxdeqi, tol);
    int32_t basics = 0;
    for (const int32_t k : skc) basics += k == SIM_SK_BAS;
    for (const int32_t k : skx) basics += k == SIM_SK_BAS;
    EXPECT_EQ(basics, lp.numcon);
  }

  // A certificate of primal infeasibility: multipliers whose dual objective is positive.
  void expect_farkas() const {
    ASSERT_EQ(info.solsta, 5);
    EXPECT_EQ(info.prosta, 4);
    const Measures m = measures();
    EXPECT_GT(m.dualobj, 0.0);
    EXPECT_LE(m.maxdbi, 1e-6 * m.dualobj + 1e-9);
    EXPECT_LE(m.maxdeqi, 1e-6 * m.dualobj + 1e-9);
  }

  // An unbounded direction: feasible for bounds of 0 and falling.
  void expect_ray() const {
    ASSERT_EQ(info.solsta, 6);
    EXPECT_EQ(info.prosta, 5);
    const Measures m = measures();
    EXPECT_LT(m.primalobj, 0.0);
    EXPECT_LE(m.maxpbi, -1e-6 * m.primalobj + 1e-9);
    EXPECT_LE(m.maxpeqi, -1e-6 * m.primalobj + 1e-9);
  }

  Lp lp;
  std::vector<double> cc, xc, xx, y, slc, suc, slx, sux;
  std::vector<int32_t> skc, skx;
  simplexinfo info{};

 private:
  sysenv* env_ = nullptr;
  simplexbasis basis_;
};

class Settings : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(Settings, ReachTheKnownOptimum) {
  simplexpar par = defaults();
  std::tie(par.scaling, par.primalselect) = GetParam();
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    const auto size = static_cast<int32_t>(seed);
    Solver solver(random_lp(seed, 3 + 2 * size, 40 - size, 0.3, seed % 4 == 3 ? 3.0 : 0.0));
    par.degen = static_cast<int32_t>(seed % 5);
    par.clean = 0;
    solver.run(par);
    solver.expect_optimal();
    // Again from the optimal basis, by every mode: nothing is left to do.
    for (const int32_t clean : {1, 2, 3, 4, 5, 6}) {
      par.clean = clean;
      par.hotstartstatus = clean == 4 ? 1 : 0;
      solver.run(par);
      solver.expect_optimal();
      EXPECT_EQ(solver.info.iter[SIM_PRIMAL], 0) << clean;
    }
    // And from a spoilt start.
    std::mt19937 random(seed);
    for (int32_t& k : solver.skc) k = static_cast<int32_t>(random() % 7);
    for (int32_t& k : solver.skx) k = static_cast<int32_t>(random() % 7);
    for (double& x : solver.xx) x = random() % 5 == 0 ? NAN : static_cast<double>(random() % 100) - 50.0;
    par.hotstartstatus = static_cast<int32_t>(seed % 2);
    solver.run(par);
    solver.expect_optimal();
  }
}
INSTANTIATE_TEST_SUITE_P(Simplex, Settings, testing::Combine(testing::Values(0, 1, 3, 4), testing::Range(0, 6)));

Lp small(int32_t numcon, int32_t numvar) {
  Lp lp;
  lp.numcon = numcon;
  lp.numvar = numvar;
  lp.bkc.assign(static_cast<std::size_t>(numcon), 3);
  lp.blc.assign(lp.bkc.size(), -1e30);
  lp.buc.assign(lp.bkc.size(), 1e30);
  lp.bkx.assign(static_cast<std::size_t>(numvar), 3);
  lp.blx.assign(lp.bkx.size(), -1e30);
  lp.bux.assign(lp.bkx.size(), 1e30);
  lp.c.assign(lp.bkx.size(), 0.0);
  lp.ptr.assign(lp.bkx.size() + 1, 0);
  return lp;
}

TEST(SimplexOptimize, SetsColumnsAloneWithoutRows) {
  Lp lp = small(0, 5);
  lp.bkx = {0, 1, 2, 3, 4};
  lp.blx = {-5, -1e30, 2, -1e30, 1};
  lp.bux = {1e30, 7, 2, 1e30, 3};
  lp.c = {1, -2, -3, 0, -1};
  lp.optimum = -5 - 14 - 6 - 3;
  Solver solver(lp);
  Events events;
  solver.run(defaults(), &events);
  solver.expect_optimal();
  EXPECT_EQ(solver.skx, (std::vector<int32_t>{SIM_SK_LOW, SIM_SK_UPR, SIM_SK_FIX, SIM_SK_SUPBAS, SIM_SK_UPR}));
  EXPECT_EQ(solver.xx, (std::vector<double>{-5, 7, 2, 0, 3}));
  EXPECT_EQ(events.begins, 1);
  EXPECT_EQ(events.ends, 1);
  solver.lp.c[0] = -1;
  solver.run(defaults());
  solver.expect_ray();
  EXPECT_EQ(solver.xx, (std::vector<double>{1, 0, 0, 0, 0}));
}

TEST(SimplexOptimize, WithoutColumnsRowsDecide) {
  Lp lp = small(2, 0);
  lp.bkc = {0, 4};
  lp.blc = {-1, -2};
  lp.buc = {1e30, 2};
  Solver solver(lp);
  solver.run(defaults());
  solver.expect_optimal();
  solver.lp.blc[0] = 1;
  solver.run(defaults());
  solver.expect_farkas();
  solver.lp.blc[0] = -1;
  solver.lp.bkc[1] = 1;
  solver.lp.buc[1] = -3;
  solver.run(defaults());
  solver.expect_farkas();
}

// A feasible problem with a random row added that no point satisfies, and a random ray.
TEST(SimplexOptimize, CertificatesHoldOnTheOriginalData) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    for (const int32_t scaling : {0, 1}) {
      simplexpar par = defaults();
      par.scaling = scaling;
      Lp lp = random_lp(seed, 12, 20, 0.4, seed % 3 * 2.0);
      // Two rows become the same row with bounds that exclude each other.
      Lp infeasible = small(lp.numcon + 1, lp.numvar);
      infeasible.bkx = lp.bkx;
      infeasible.blx = lp.blx;
      infeasible.bux = lp.bux;
      infeasible.c = lp.c;
      infeasible.bkc.assign(lp.bkc.begin(), lp.bkc.end());
      infeasible.bkc.push_back(1);
      infeasible.blc = lp.blc;
      infeasible.blc.push_back(-1e30);
      infeasible.buc = lp.buc;
      infeasible.buc.push_back(0.0);
      infeasible.ptr.assign(1, 0);
      infeasible.bkc[0] = 0;
      infeasible.blc[0] = 1.0;
      for (std::size_t j = 0; j < lp.c.size(); ++j) {
        for (auto t = static_cast<std::size_t>(lp.ptr[j]); t < static_cast<std::size_t>(lp.ptr[j + 1]); ++t) {
          infeasible.sub.push_back(lp.sub[t]);
          infeasible.val.push_back(lp.val[t]);
          if (lp.sub[t] != 0) continue;
          infeasible.sub.push_back(lp.numcon);
          infeasible.val.push_back(2 * lp.val[t]);
        }
        infeasible.ptr.push_back(static_cast<int32_t>(infeasible.sub.size()));
      }
      Solver proof(infeasible);
      proof.run(par);
      proof.expect_farkas();

      // Two columns, one the negative of the other, both free above, that gain together.
      Lp unbounded = lp;
      for (int32_t sign : {1, -1}) {
        for (auto t = static_cast<std::size_t>(lp.ptr[3]); t < static_cast<std::size_t>(lp.ptr[4]); ++t) {
          unbounded.sub.push_back(lp.sub[t]);
          unbounded.val.push_back(sign * lp.val[t]);
        }
        unbounded.ptr.push_back(static_cast<int32_t>(unbounded.sub.size()));
        unbounded.bkx.push_back(0);
        unbounded.blx.push_back(0.0);
        unbounded.bux.push_back(1e30);
        unbounded.c.push_back(-1.0);
      }
      unbounded.numvar += 2;
      Solver ray(unbounded);
      ray.run(par);
      ray.expect_ray();
    }
  }
}

TEST(SimplexOptimize, BadDataAndStopsEndWithTheirCodes) {
  for (const int k : {0, 1, 2}) {
    Lp lp = random_lp(5, 10, 20);
    (k == 0 ? lp.c : k == 1 ? lp.val : lp.blc)[0] = NAN;
    lp.bkc[0] = 0;
    Solver solver(lp);
    EXPECT_EQ(solver.run(defaults()), SIM_RESP_NUMERIC);
    EXPECT_EQ(solver.info.solsta, 0);
  }
  // Every event may be the one that stops the run.
  int32_t calls = 1;
  for (int32_t k = 0; k < calls; ++k) {
    Solver solver(random_lp(6, 10, 20));
    Events events;
    events.stop_at = k;
    EXPECT_EQ(solver.run(defaults(), &events), 7) << k;
    calls = std::max(calls, events.calls);
    if (k == 0) calls = 20;
  }
  simplexpar par = defaults();
  par.maxiter[SIM_PRIMAL] = 3;
  Solver solver(random_lp(7, 20, 30));
  EXPECT_EQ(solver.run(par), SIM_RESP_ITERATIONS);
  EXPECT_EQ(solver.info.iter[SIM_PRIMAL], 3);
  for (const double x : solver.xx) EXPECT_TRUE(std::isfinite(x));
  // The run goes on from there.
  par.maxiter[SIM_PRIMAL] = 1000;
  par.clean = 6;
  solver.run(par);
  solver.expect_optimal();
}

// minimise -1e-5 x, 2^-24 x <= 1.5 2^-24, 0 <= x <= 1. Scaling makes the unit of x so large that the start x = 1.5 is
// within the tolerance of the bound and passes for optimal; on the data that were given it is not.
TEST(SimplexOptimize, CleansUpWhatScalingHides) {
  Lp lp = small(1, 1);
  lp.ptr = {0, 1};
  lp.sub = {0};
  lp.val = {std::ldexp(1.0, -24)};
  lp.bkc = {1};
  lp.buc = {std::ldexp(1.5, -24)};
  lp.bkx = {4};
  lp.blx = {0};
  lp.bux = {1};
  lp.c = {-1e-5};
  lp.optimum = -1e-5;
  Solver solver(lp);
  solver.skx = {SIM_SK_BAS};
  solver.skc = {SIM_SK_UPR};
  simplexpar par = defaults();
  par.clean = 6;
  solver.run(par);
  solver.expect_optimal();
  EXPECT_EQ(solver.xx[0], 1.0);
}

TEST(SimplexOptimize, RestartsFromABasisOfAnotherShape) {
  Solver solver(random_lp(11, 20, 30));
  simplexpar par = defaults();
  solver.run(par);
  solver.expect_optimal();
  par.clean = 6;
  for (int32_t& k : solver.skc) k = SIM_SK_BAS;  // too many basic variables
  solver.run(par);
  solver.expect_optimal();
  for (int32_t& k : solver.skx)
    if (k == SIM_SK_BAS) k = SIM_SK_UNK;  // too few
  solver.run(par);
  solver.expect_optimal();
}

// A point half way between the optimum and another vertex, with the optimum's multipliers, and no basis.
class Cleaning : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(Cleaning, FindsTheOptimumFromAPointWithoutABasis) {
  const auto [mode, optimizer] = GetParam();
  for (unsigned seed = 0; seed < 30; ++seed) {
    SCOPED_TRACE(seed);
    const Lp lp = random_lp(seed, 5 + static_cast<int32_t>(seed) % 20, 8 + static_cast<int32_t>(seed) * 2);
    Solver solver(lp);
    solver.run(defaults());
    solver.expect_optimal();
    if (solver.info.solsta != 1) continue;
    Solver other(lp);
    for (double& c : other.lp.c) c = 0.0;
    other.run(defaults());
    if (other.info.solsta != 1) continue;
    const auto blend = [](std::vector<double>* x, const std::vector<double>& with, std::vector<int32_t>* sk,
                          const std::vector<int32_t>& bk, const std::vector<double>& bl,
                          const std::vector<double>& bu) {
      for (std::size_t k = 0; k < x->size(); ++k) {
        const double v = (*x)[k] = 0.5 * ((*x)[k] + with[k]);
        const bool low = bk[k] != SIM_BK_UP && bk[k] != SIM_BK_FR, upp = bk[k] != SIM_BK_LO && bk[k] != SIM_BK_FR;
        (*sk)[k] = low && v <= bl[k] ? SIM_SK_LOW : upp && v >= bu[k] ? SIM_SK_UPR : SIM_SK_SUPBAS;
      }
    };
    blend(&solver.xx, other.xx, &solver.skx, lp.bkx, lp.blx, lp.bux);
    blend(&solver.xc, other.xc, &solver.skc, lp.bkc, lp.blc, lp.buc);
    if (seed % 5 == 4)
      for (double& x : solver.xx) x += 1e-3;  // not even feasible
    simplexpar par = defaults();
    par.clean = mode;
    par.optimizer = optimizer;
    solver.run(par);
    solver.expect_optimal();
  }
}
INSTANTIATE_TEST_SUITE_P(Modes, Cleaning, testing::Combine(testing::Values(7, 8, 9), testing::Values(0, 1, 2)));

// Columns that are alike, nearly dependent and badly scaled: the crash must come out with a basis.
TEST(SimplexCrash, CompletesWhatIsDependent) {
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  {
    constexpr int32_t m = 4, n = 6;
    int32_t ptr[] = {0, 2, 4, 5, 7, 8, 9}, sub[] = {0, 1, 0, 1, 2, 2, 3, 3, 2};
    double val[] = {1, 1, 2, 2, 1e9, 1, 1e-8, 1, 0.5};
    double cc[m] = {}, cx[n] = {}, bl[n] = {}, bu[n], xc[m], xx[n], y[m] = {}, sc[m] = {}, sx[n] = {};
    int32_t bkc[m], bkx[n], skc[m], skx[n];
    std::fill_n(bu, n, 10.0);
    std::fill_n(xx, n, 5.0);
    std::fill_n(xc, m, 5.0);
    std::fill_n(bkc, m, SIM_BK_FX);
    std::fill_n(bkx, n, SIM_BK_RA);
    std::fill_n(skc, m, SIM_SK_FIX);
    std::fill_n(skx, n, SIM_SK_SUPBAS);
    const SimplexProblem p{m,  n, {ptr, ptr + 1, sub, val}, 0.0, cc, cx, bkc, bl, bu, bkx, bl, bu, skc, xc, y, sc, skx,
                           xx, sx};
    simplexbasis basis;
    ASSERT_EQ(simplex_makebasis(env, m, &basis), SIM_RESP_OK);
    ASSERT_EQ(simplex_crash(env, p, &basis), SIM_RESP_OK);
    EXPECT_TRUE(lu_isfactored(basis.factor));
    EXPECT_EQ(std::count(skc, skc + m, SIM_SK_BAS) + std::count(skx, skx + n, SIM_SK_BAS), m);
    EXPECT_NE(skx[0] == SIM_SK_BAS, skx[1] == SIM_SK_BAS);  // the same direction twice
    EXPECT_EQ(skx[5], SIM_SK_BAS);                          // the one fit column of its row
    EXPECT_EQ(skx[4], SIM_SK_BAS);
    simplex_deletebasis(&basis);
  }
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

// The point stays feasible, and what can go to a bound goes there.
TEST(SimplexCrash, MovesLooseColumnsToBounds) {
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  constexpr int32_t m = 2, n = 3;
  int32_t ptr[] = {0, 2, 3, 4}, sub[] = {0, 1, 0, 1};
  double val[] = {1, -1, 1, 2};
  double cc[m] = {}, cx[n] = {}, blc[m] = {0, -4}, buc[m] = {8, 4}, blx[n] = {0, 0, 0}, bux[n] = {2, 9, 9};
  double xc[m] = {4, 1}, xx[n] = {1, 3, 1}, y[m] = {}, sc[m] = {}, sx[n] = {};
  int32_t bkc[m] = {SIM_BK_RA, SIM_BK_RA}, bkx[n] = {SIM_BK_RA, SIM_BK_RA, SIM_BK_LO};
  int32_t skc[m] = {SIM_SK_SUPBAS, SIM_SK_SUPBAS}, skx[n] = {SIM_SK_SUPBAS, SIM_SK_SUPBAS, SIM_SK_SUPBAS};
  const SimplexProblem p{
      m, n, {ptr, ptr + 1, sub, val}, 0.0, cc, cx, bkc, blc, buc, bkx, blx, bux, skc, xc, y, sc, skx, xx, sx};
  ASSERT_TRUE(simplex_cleanprimalsmartcrash(env, p));
  EXPECT_EQ(skx[0], SIM_SK_UPR);
  EXPECT_EQ(skx[1], SIM_SK_LOW);
  EXPECT_EQ(skx[2], SIM_SK_LOW);
  EXPECT_EQ(xc[0], xx[0] + xx[1]);
  EXPECT_EQ(xc[1], -xx[0] + 2 * xx[2]);
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

}  // namespace
}  // namespace tarvo
