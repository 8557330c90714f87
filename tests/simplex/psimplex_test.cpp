#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "simplex/psimplex_internal.h"

namespace tarvo {
namespace {

constexpr double inf = 1e30;

// Whole numbers from 0 to n-1.
struct Random {
  std::mt19937 gen;
  uint32_t operator()(uint32_t n) { return static_cast<uint32_t>(gen()) % n; }
};

// A problem with its solution: minimise c'x + ..., dense rows.
struct Lp {
  int32_t m = 0, n = 0;
  std::vector<int32_t> ptrb, ptre, sub;
  std::vector<double> val;
  std::vector<int32_t> bkc, bkx, skc, skx;
  std::vector<double> cc, cx, blc, buc, blx, bux, xc, xx, y, sc, sx;
  simplexpar par{};
  simplexinfo info{};

  Lp(std::vector<double> c, const std::vector<std::vector<double>>& rows, std::vector<double> rl,
     std::vector<double> ru, std::vector<double> l, std::vector<double> u)
      : m(static_cast<int32_t>(rows.size())),
        n(static_cast<int32_t>(c.size())),
        cx(std::move(c)),
        blc(std::move(rl)),
        buc(std::move(ru)),
        blx(std::move(l)),
        bux(std::move(u)) {
    for (int32_t j = 0; j < n; ++j) {
      ptrb.push_back(static_cast<int32_t>(sub.size()));
      for (int32_t i = 0; i < m; ++i) {
        if (rows[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] == 0.0) continue;
        sub.push_back(i);
        val.push_back(rows[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)]);
      }
      ptre.push_back(static_cast<int32_t>(sub.size()));
    }
    for (int k = 0; k < SIM_NUM_OPTIMIZERS; ++k) {
      par.maxiter[k] = 10000000;
      par.maxsetbacks[k] = 250;
      par.tolx[k] = par.tols[k] = 1e-6;
      par.tolpiv[k] = 1e-7;
    }
    par.degen = 1;
    par.primalcrash = 90;
    const auto rowsize = static_cast<std::size_t>(m), colsize = static_cast<std::size_t>(n);
    for (auto* v : {&cc, &xc, &y, &sc}) v->assign(rowsize, 0.0);
    for (auto* v : {&xx, &sx}) v->assign(colsize, 0.0);
    skc.assign(rowsize, 0);
    skx.assign(colsize, 0);
    setkeys();
  }
  void setkeys() {
    auto key = [](double l, double u) {
      return l <= -inf ? (u >= inf ? SIM_BK_FR : SIM_BK_UP) : u >= inf ? SIM_BK_LO : l == u ? SIM_BK_FX : SIM_BK_RA;
    };
    bkc.clear();
    bkx.clear();
    for (std::size_t i = 0; i < blc.size(); ++i) bkc.push_back(key(blc[i], buc[i]));
    for (std::size_t j = 0; j < blx.size(); ++j) bkx.push_back(key(blx[j], bux[j]));
  }
  SimplexProblem problem() {
    return {m,          n,          {ptrb.data(), ptre.data(), sub.data(), val.data()},
            0.0,        cc.data(),  cx.data(),
            bkc.data(), blc.data(), buc.data(),
            bkx.data(), blx.data(), bux.data(),
            skc.data(), xc.data(),  y.data(),
            sc.data(),  skx.data(), xx.data(),
            sx.data()};
  }
  int32_t solve(sysenv* own = nullptr) {
    sysenv* env = own != nullptr ? own : sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
    simplexbasis basis;
    int32_t resp = simplex_makebasis(env, m, &basis);
    SimplexProblem p = problem();
    const SimplexEvents events{nullptr, nullptr, false};
    if (resp == 0) resp = simplex_primaloptimizer(env, par, &info, &p, &basis, events);
    simplex_deletebasis(&basis);
    if (own == nullptr) sysenv_delete(&env);
    return resp;
  }
  [[nodiscard]] double objective() const {
    double sum = 0.0;
    for (std::size_t j = 0; j < cx.size(); ++j) sum += cx[j] * xx[j];
    return sum;
  }
  // Largest violation of the row and column bounds by xx.
  [[nodiscard]] double violation() const {
    std::vector<double> act(blc.size(), 0.0);
    double worst = 0.0;
    for (std::size_t j = 0; j < cx.size(); ++j) {
      worst = std::max({worst, blx[j] - xx[j], xx[j] - bux[j]});
      for (int32_t k = ptrb[j]; k < ptre[j]; ++k)
        act[static_cast<std::size_t>(sub[static_cast<std::size_t>(k)])] += val[static_cast<std::size_t>(k)] * xx[j];
    }
    for (std::size_t i = 0; i < act.size(); ++i) worst = std::max({worst, blc[i] - act[i], act[i] - buc[i]});
    return worst;
  }
  // The value that multipliers sc, sx prove as a lower bound; -inf when one wants an infinite bound.
  [[nodiscard]] double dualvalue() const {
    double sum = 0.0;
    auto add = [&sum](double s, double l, double u) {
      if (std::fabs(s) < 1e-7) return;
      const double b = s > 0.0 ? l : u;
      sum += std::fabs(b) >= inf ? -HUGE_VAL : s * b;
    };
    for (std::size_t i = 0; i < sc.size(); ++i) add(sc[i], blc[i], buc[i]);
    for (std::size_t j = 0; j < sx.size(); ++j) add(sx[j], blx[j], bux[j]);
    return sum;
  }
  [[nodiscard]] int32_t basics() const {
    int32_t k = 0;
    for (const int32_t s : skc) k += s == SIM_SK_BAS;
    for (const int32_t s : skx) k += s == SIM_SK_BAS;
    return k;
  }
};

void expect_optimal(Lp& lp, double objective) {
  EXPECT_EQ(lp.solve(), 0);
  EXPECT_EQ(lp.info.solsta, 1);
  EXPECT_EQ(lp.info.prosta, 1);
  const double scale = 1.0 + std::fabs(objective);
  EXPECT_NEAR(lp.objective(), objective, 1e-7 * scale);
  EXPECT_NEAR(lp.dualvalue(), objective, 1e-6 * scale);
  EXPECT_LE(lp.violation(), 1e-7);
  EXPECT_EQ(lp.basics(), lp.m);
}

Lp beale() {
  return {{0, 0, 0, -0.75, 20, -0.5, 6},
          {{1, 0, 0, 0.25, -8, -1, 9}, {0, 1, 0, 0.5, -12, -0.5, 3}, {0, 0, 1, 0, 0, 1, 0}},
          {0, 0, 1},
          {0, 0, 1},
          std::vector<double>(7, 0.0),
          std::vector<double>(7, inf)};
}

// Klee-Minty cube: optimum -5^n at the vertex farthest along the path.
Lp kleeminty(int n) {
  const auto k = static_cast<std::size_t>(n);
  std::vector<double> c(k), ru(k);
  std::vector<std::vector<double>> rows(k, std::vector<double>(k, 0.0));
  for (int i = 0; i < n; ++i) {
    const auto r = static_cast<std::size_t>(i);
    c[r] = -std::pow(2.0, n - 1 - i);
    ru[r] = std::pow(5.0, i + 1);
    rows[r][r] = 1.0;
    for (int j = 0; j < i; ++j) rows[r][static_cast<std::size_t>(j)] = std::pow(2.0, i - j + 1);
  }
  return {c, rows, std::vector<double>(k, -inf), ru, std::vector<double>(k, 0.0), std::vector<double>(k, inf)};
}

// Assignment of n to n with costs u_i + v_j + slack, slack 0 on a hidden permutation: the optimum is sum u + sum v.
Lp assignment(int n, double* optimum) {
  Random gen{std::mt19937(7)};
  const auto k = static_cast<std::size_t>(n);
  std::vector<double> c(k * k);
  std::vector<std::vector<double>> rows(2 * k, std::vector<double>(k * k, 0.0));
  *optimum = 0.0;
  std::vector<double> u(k), v(k);
  for (std::size_t i = 0; i < k; ++i) *optimum += (u[i] = gen(20)) + (v[i] = gen(20));
  for (std::size_t i = 0; i < k; ++i)
    for (std::size_t j = 0; j < k; ++j) {
      c[i * k + j] = u[i] + v[j] + ((i * 7 + 3) % k == j ? 0.0 : gen(9));
      rows[i][i * k + j] = rows[k + j][i * k + j] = 1.0;
    }
  return {c,
          rows,
          std::vector<double>(2 * k, 1.0),
          std::vector<double>(2 * k, 1.0),
          std::vector<double>(k * k, 0.0),
          std::vector<double>(k * k, inf)};
}

// Random problem with a known primal-dual pair: bounds of all kinds, some degenerate, free columns, equations.
Lp random_pair(unsigned seed, double* optimum) {
  Random gen{std::mt19937(seed)};
  auto real = [&gen] { return static_cast<double>(gen(2001)) / 100.0 - 10.0; };
  const std::size_t m = 10 + gen(30), n = 10 + gen(60);
  std::vector<std::vector<double>> rows(m, std::vector<double>(n, 0.0));
  for (auto& row : rows)
    for (double& a : row)
      if (gen(4) == 0) a = real();
  std::vector<double> x(n), y(m), c(n, 0.0), l(n), u(n), rl(m), ru(m);
  for (double& v : x) v = gen(3) == 0 ? 0.0 : real();
  *optimum = 0.0;
  // A multiplier of either sign makes its bound active, none leaves the value anywhere between.
  auto bounds = [&gen, &real](double value, double* s, double* lo, double* up) {
    const unsigned kind = gen(6);
    *s = kind < 2 ? std::fabs(real()) : kind < 4 ? -std::fabs(real()) : 0.0;
    *lo = kind < 2 || kind == 5 ? value : gen(2) == 0 ? -inf : value - 5.0;
    *up = kind == 2 || kind == 3 ? value : gen(2) == 0 ? inf : value + 5.0;
    if (kind == 1) *up = value;
  };
  for (std::size_t i = 0; i < m; ++i) {
    double act = 0.0;
    for (std::size_t j = 0; j < n; ++j) act += rows[i][j] * x[j];
    bounds(act, &y[i], &rl[i], &ru[i]);
    for (std::size_t j = 0; j < n; ++j) c[j] += rows[i][j] * y[i];
  }
  for (std::size_t j = 0; j < n; ++j) {
    double s;
    bounds(x[j], &s, &l[j], &u[j]);
    c[j] += s;
    *optimum += c[j] * x[j];
  }
  return {c, rows, rl, ru, l, u};
}

class PrimalSettings : public testing::TestWithParam<std::tuple<int, int, int>> {
 protected:
  void apply(Lp* lp) const { std::tie(lp->par.primalselect, lp->par.degen, lp->par.primalcrash) = GetParam(); }
};

TEST_P(PrimalSettings, FindTheOptimum) {
  Lp lp = beale();
  apply(&lp);
  expect_optimal(lp, -1.25);
  Lp cube = kleeminty(9);
  apply(&cube);
  expect_optimal(cube, -std::pow(5.0, 9));
  double optimum;
  Lp assign = assignment(15, &optimum);
  apply(&assign);
  expect_optimal(assign, optimum);
  EXPECT_LT(assign.info.iter[SIM_PRIMAL], 40 * assign.m);
  for (unsigned seed = 1; seed <= 25; ++seed) {
    SCOPED_TRACE(seed);
    Lp random = random_pair(seed, &optimum);
    apply(&random);
    expect_optimal(random, optimum);
    // Again from its own end, and from its keys with a wrong number of basics.
    random.par.clean = 1;
    random.info.iter[SIM_PRIMAL] = 0;
    expect_optimal(random, optimum);
    EXPECT_EQ(random.info.iter[SIM_PRIMAL], 0);
    for (std::size_t i = 0; i < random.skc.size(); i += 3) random.skc[i] = seed % 2 == 0 ? SIM_SK_BAS : SIM_SK_LOW;
    expect_optimal(random, optimum);
    // From the middle of the bounds: superbasic variables.
    for (auto& key : random.skx) key = SIM_SK_SUPBAS;
    expect_optimal(random, optimum);
  }
}

TEST_P(PrimalSettings, CertifyInfeasibleAndUnboundedProblems) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    double optimum;
    Lp lp = random_pair(seed, &optimum);
    apply(&lp);
    // A ray: a free column pair that costs and moves nothing but the objective.
    Lp ray = lp;
    ray.blx[0] = -inf;
    ray.bux[0] = inf;
    for (std::size_t i = 0; i < ray.blc.size(); ++i) ray.blc[i] = -inf;
    for (std::size_t i = 0; i < ray.buc.size(); ++i) ray.buc[i] = i % 2 == 0 ? inf : ray.buc[i];
    ray.setkeys();
    for (int32_t k = ray.ptrb[0]; k < ray.ptre[0]; ++k) ray.val[static_cast<std::size_t>(k)] = -1.0;
    ray.cx[0] = -1.0;
    EXPECT_EQ(ray.solve(), 0);
    ASSERT_EQ(ray.info.solsta, 6);
    EXPECT_EQ(ray.info.prosta, 5);
    EXPECT_LT(ray.objective(), 0.0);
    for (auto* v : {&ray.blc, &ray.buc, &ray.blx, &ray.bux})
      for (double& b : *v)
        if (std::fabs(b) < inf) b = 0.0;
    EXPECT_LE(ray.violation(), 1e-7);

    // Infeasible: a combination of rows is asked to be larger than it can be.
    Lp none = lp;
    for (std::size_t j = 0; j < none.blx.size(); ++j) none.blx[j] = std::max(none.blx[j], -30.0);
    for (std::size_t j = 0; j < none.bux.size(); ++j) none.bux[j] = std::min(none.bux[j], 30.0);
    double most = 1.0;
    for (std::size_t j = 0; j < none.cx.size(); ++j)
      for (int32_t k = none.ptrb[j]; k < none.ptre[j]; ++k)
        if (none.sub[static_cast<std::size_t>(k)] == 0) most += 30.0 * std::fabs(none.val[static_cast<std::size_t>(k)]);
    none.blc[0] = most;
    none.buc[0] = inf;
    none.setkeys();
    EXPECT_EQ(none.solve(), 0);
    ASSERT_EQ(none.info.solsta, 5);
    EXPECT_EQ(none.info.prosta, 4);
    EXPECT_GT(none.dualvalue(), 0.0);  // sc = y, sx = -A'y: zero cost, and still a positive value
    for (std::size_t i = 0; i < none.y.size(); ++i) EXPECT_EQ(none.sc[i], none.y[i]);
  }
}

INSTANTIATE_TEST_SUITE_P(Simplex, PrimalSettings,
                         testing::Combine(testing::Range(0, 6), testing::Values(0, 1, 2, 4), testing::Values(90, 100)));

TEST(PrimalSimplex, StopsAtLimitsAndRepeatsBitForBit) {
  double optimum;
  Lp a = random_pair(11, &optimum), b = random_pair(11, &optimum), cut = random_pair(11, &optimum);
  Lp limit = random_pair(11, &optimum), broken = random_pair(11, &optimum);
  expect_optimal(a, optimum);
  expect_optimal(b, optimum);
  EXPECT_EQ(a.xx, b.xx);
  EXPECT_EQ(a.y, b.y);
  EXPECT_EQ(a.info.iter[SIM_PRIMAL], b.info.iter[SIM_PRIMAL]);

  limit.par.maxiter[SIM_PRIMAL] = 5;
  EXPECT_EQ(limit.solve(), SIM_RESP_ITERATIONS);
  EXPECT_EQ(limit.info.iter[SIM_PRIMAL], 5);
  EXPECT_EQ(limit.basics(), limit.m);
  cut.par.haslowcut = 1;
  cut.par.lowcut = optimum + 1.0;
  EXPECT_EQ(cut.solve(), SIM_RESP_OBJCUT);
  EXPECT_LT(cut.objective(), optimum + 1.0);
  for (const double bad : {std::nan(""), HUGE_VAL}) {
    Lp lp = broken;
    lp.val[3] = bad;
    EXPECT_EQ(lp.solve(), SIM_RESP_NUMERIC);
    lp = broken;
    lp.cx[1] = bad;
    EXPECT_EQ(lp.solve(), SIM_RESP_NUMERIC);
  }
}

TEST(PrimalSimplex, OfferedOptimumAboveTheUpperCutStops) {
  double optimum;
  Lp lp = random_pair(11, &optimum);
  expect_optimal(lp, optimum);
  lp.par.clean = 1;
  lp.par.hasupcut = 1;
  lp.par.upcut = optimum - 1.0;
  EXPECT_EQ(lp.solve(), SIM_RESP_OBJCUT);
  lp.par.upcut = optimum + 1.0;
  expect_optimal(lp, optimum);
}

// A limit in the middle of a perturbed run leaves a point that stands for the true bounds.
TEST(PrimalSimplex, LimitInAPerturbedRunLeavesTheTrueBounds) {
  double optimum;
  Lp lp = assignment(90, &optimum);
  sysenv* env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
  simplexbasis basis;
  ASSERT_EQ(simplex_makebasis(env, lp.m, &basis), 0);
  SimplexProblem p = lp.problem();
  struct Watch {
    bool perturbed = false;
    int32_t after = 0;
  } watch;
  const SimplexEvents events{&watch,
                             [](void* h, int32_t, const simplexinfo* info) {
                               auto* w = static_cast<Watch*>(h);
                               w->perturbed = w->perturbed || info->perturbed != 0;
                               return w->perturbed && ++w->after > 3 ? int32_t{SIM_RESP_CALLBACK} : 0;
                             },
                             true};
  lp.par.degen = 2;
  lp.par.primalselect = 2;
  EXPECT_EQ(simplex_primaloptimizer(env, lp.par, &lp.info, &p, &basis, events), SIM_RESP_CALLBACK);
  EXPECT_TRUE(watch.perturbed);
  for (std::size_t j = 0; j < lp.skx.size(); ++j) {
    if (lp.skx[j] == SIM_SK_BAS) continue;
    EXPECT_EQ(lp.xx[j], lp.skx[j] == SIM_SK_UPR ? lp.bux[j] : lp.blx[j]);
  }
  EXPECT_EQ(lp.basics(), lp.m);
  simplex_deletebasis(&basis);
  sysenv_delete(&env);
}

// Whatever the number of updates between factorisations, and with hardly any setback allowed.
TEST(PrimalSimplex, RefactorFrequencyAndSetbacksChangeNoResult) {
  for (const int32_t freq : {0, 1, 50, 1000}) {
    for (unsigned seed = 1; seed <= 10; ++seed) {
      double optimum;
      Lp lp = random_pair(seed, &optimum);
      lp.par.refactorfreq[SIM_PRIMAL] = freq;
      expect_optimal(lp, optimum);
      lp.par.maxsetbacks[SIM_PRIMAL] = 0;
      const int32_t resp = lp.solve();
      EXPECT_TRUE(resp == 0 || resp == SIM_RESP_SETBACKS) << resp;
    }
  }
}

// Two equal columns offered as basic: one is replaced inside the run.
TEST(PrimalSimplex, RepairsASingularStart) {
  Lp lp({-1, -1, -1}, {{1, 1, 0}, {2, 2, 1}, {0, 0, 3}}, {0, 0, 0}, {9, 9, 9}, {0, 0, 0}, {5, 5, 5});
  lp.skc = {SIM_SK_UPR, SIM_SK_UPR, SIM_SK_UPR};
  lp.skx = {SIM_SK_BAS, SIM_SK_BAS, SIM_SK_BAS};
  lp.par.clean = 1;
  expect_optimal(lp, -6.0);
}

TEST(PrimalSimplex, RunsOutOfMemoryInPlace) {
  struct Budget {
    int left;
  };
  double optimum;
  bool done = false;
  for (int k = 2; k < 200 && !done; ++k) {
    Budget budget{k};
    sysenv* env = sysenv_make(
        SysKind::task, false, &budget,
        [](void* h, std::size_t size) { return static_cast<Budget*>(h)->left-- > 0 ? std::malloc(size) : nullptr; },
        [](void*, void* p) { std::free(p); });
    if (env == nullptr) continue;
    Lp lp = random_pair(5, &optimum);
    const int32_t resp = lp.solve(env);
    EXPECT_TRUE(resp == SIM_RESP_SPACE || resp == 0);
    done = resp == 0;
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
  }
  EXPECT_TRUE(done);
}

// The weights kept by the recurrences against norms computed from scratch, in the middle of a run.
TEST(PrimalSimplex, KeepsExactSteepestEdgeWeights) {
  for (unsigned seed = 20; seed < 30; ++seed) {
    double optimum;
    Lp lp = random_pair(seed, &optimum);
    sysenv* env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
    simplexbasis basis;
    ASSERT_EQ(simplex_makebasis(env, lp.m, &basis), 0);
    SimplexProblem p = lp.problem();
    const SimplexEvents events{nullptr, nullptr, false};
    {
      PrimalSimplex s(env);
      s.par = &lp.par;
      s.info = &lp.info;
      s.prob = &p;
      s.basis = &basis;
      s.events = &events;
      lp.par.maxiter[SIM_PRIMAL] = 15;
      ASSERT_EQ(psimplex_make(&s), 0);
      s.method = PS_SE;
      s.exactweights = true;
      ASSERT_EQ(psimplex_setup(&s), 0);
      psimplex_optimize(&s);
      if (s.refactor) psimplex_factor(&s);
      std::vector<double> kept(s.w, s.w + s.nn);
      psimplex_exactweights(&s);
      for (int32_t j = 0; j < s.nn; ++j) {
        if (!ps_active(s.stat[j])) continue;
        EXPECT_NEAR(kept[static_cast<std::size_t>(j)] / s.w[j], 1.0, 1e-6) << seed << " " << j;
      }
    }
    simplex_deletebasis(&basis);
    sysenv_delete(&env);
  }
}

TEST(SimplexCore, ReplacesDependentColumns) {
  // Columns 0 and 1 are equal: one of them gives way to a logical.
  Lp lp({1, 1, 1}, {{1, 1, 0}, {2, 2, 1}, {0, 0, 3}}, {0, 0, 0}, {9, 9, 9}, {0, 0, 0}, {5, 5, 5});
  sysenv* env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
  simplexbasis basis, copy;
  SimplexFactorWork work;
  ASSERT_EQ(simplex_makebasis(env, 3, &basis), 0);
  ASSERT_TRUE(simplex_makefactorwork(env, 3, &work));
  for (int32_t k = 0; k < 3; ++k) basis.basis[k] = 3 + k;
  int32_t numart = 0;
  ASSERT_EQ(simplex_factor(env, 3, lp.problem().a, &basis, &work, &numart), 0);
  EXPECT_EQ(numart, 1);
  EXPECT_EQ((basis.basis[0] < 3) + (basis.basis[1] < 3), 1);
  EXPECT_TRUE(lu_isfactored(basis.factor));
  ASSERT_EQ(simplex_copybasis(env, basis, &copy), 0);
  double rhs[3] = {1, 2, 3}, x[3], again[3] = {1, 2, 3}, z[3];
  lu_ftran(basis.factor, rhs, x);
  lu_ftran(copy.factor, again, z);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(x[k], z[k]);
  work = {};
  simplex_deletebasis(&basis);
  simplex_deletebasis(&copy);
  sysenv_delete(&env);
}

}  // namespace
}  // namespace tarvo
