// The eliminator, doubleton chains, dependent rows and square blocks, on problems made of these.
#include "prslv/elim.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "prslv/roundtrip.h"
#include "support/random_lp.h"

namespace tarvo_test {
namespace {

constexpr int32_t LO = 0, UP = 1, FX = 2, FR = 3, RA = 4;

// A problem to be added to: dense rows, bounds, costs, and the optimum it has.
struct Model {
  struct Side {
    int32_t key;
    double low, upp;
  };
  std::vector<std::vector<double>> a;
  std::vector<Side> row, column;
  std::vector<double> c;
  double optimum = 0.0;

  int32_t add_column(double cost, Side bounds) {
    for (auto& r : a) r.push_back(0.0);
    c.push_back(cost);
    column.push_back(bounds);
    return static_cast<int32_t>(c.size()) - 1;
  }
  std::vector<double>& add_row(Side bounds) {
    row.push_back(bounds);
    a.emplace_back(c.size(), 0.0);
    return a.back();
  }
  PlainLp plain() const {
    PlainLp p;
    p.numcon = static_cast<int32_t>(row.size());
    p.numvar = static_cast<int32_t>(column.size());
    p.cc.assign(row.size(), 0.0);
    p.cx = c;
    for (std::size_t j = 0; j < c.size(); ++j) {
      for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i][j] == 0.0) continue;
        p.sub.push_back(static_cast<int32_t>(i));
        p.val.push_back(a[i][j]);
      }
      p.ptr.push_back(static_cast<int32_t>(p.sub.size()));
    }
    const auto put = [](const std::vector<Side>& from, auto* bk, auto* bl, auto* bu) {
      for (const Side& s : from) {
        bk->push_back(s.key);
        bl->push_back(s.key == UP || s.key == FR ? -HUGE_VAL : s.low);
        bu->push_back(s.key == LO || s.key == FR ? HUGE_VAL : s.upp);
      }
    };
    put(row, &p.bkc, &p.blc, &p.buc);
    put(column, &p.bkx, &p.blx, &p.bux);
    return p;
  }
  RoundTrip run(Answer answer = Answer::optimal) const {
    tarvo::prslvpar par;
    return roundtrip(plain(), {answer, false, optimum}, par);
  }
};

Model from_random(const Lp& lp) {
  Model m;
  for (int32_t j = 0; j < lp.numvar; ++j)
    m.add_column(lp.c[static_cast<std::size_t>(j)],
                 {lp.bkx[static_cast<std::size_t>(j)], lp.blx[static_cast<std::size_t>(j)],
                  lp.bux[static_cast<std::size_t>(j)]});
  for (std::size_t i = 0; i < static_cast<std::size_t>(lp.numcon); ++i) m.add_row({lp.bkc[i], lp.blc[i], lp.buc[i]});
  for (std::size_t j = 0; j < static_cast<std::size_t>(lp.numvar); ++j)
    for (auto t = static_cast<std::size_t>(lp.ptr[j]); t < static_cast<std::size_t>(lp.ptr[j + 1]); ++t)
      m.a[static_cast<std::size_t>(lp.sub[t])][j] = lp.val[t];
  m.optimum = lp.optimum - lp.cfix;
  return m;
}

// Reductions that the round trips must have met, summed over all of them.
struct Met {
  int32_t eliminations = 0, chains = 0, dependent = 0;
  void add(const RoundTrip& t) {
    eliminations += t.stat.eliminations;
    chains += t.stat.chains;
    dependent += t.stat.lindep;
  }
};

// A random problem with copies of columns, a square block and dependent rows.
Model structured(uint32_t seed) {
  std::mt19937 random(seed);
  const auto upto = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  Model m = from_random(
      random_lp(seed, 6 + static_cast<int32_t>(random() % 12), 8 + static_cast<int32_t>(random() % 14), 0.25));
  // Part of a column's elements moves to a copy w = f x that a doubleton row ties to it.
  for (int k = 0; k < 5; ++k) {
    const std::size_t j = upto(m.c.size());
    const double f = std::vector<double>{1.0, -1.0, 2.0, -0.5}[upto(4)];
    const auto& b = m.column[j];
    const Model::Side s = f > 0.0 ? Model::Side{b.key, b.low * f, b.upp * f}
                                  : Model::Side{b.key == LO   ? UP
                                                : b.key == UP ? LO
                                                              : b.key,
                                                b.upp * f, b.low * f};
    const auto w = static_cast<std::size_t>(m.add_column(0.0, upto(2) == 0 ? s : Model::Side{FR, 0.0, 0.0}));
    for (auto& r : m.a) {
      if (r[j] == 0.0 || random() % 2 == 0) continue;
      r[w] = r[j] / f;
      r[j] = 0.0;
    }
    auto& tie = m.add_row({FX, 0.0, 0.0});
    tie[j] = f;
    tie[w] = -1.0;
  }
  // A square block that determines its columns, which stand in other rows too.
  const std::size_t size = 2 + upto(3), first = m.c.size();
  std::vector<double> value(size);
  for (std::size_t k = 0; k < size; ++k) {
    value[k] = static_cast<double>(random() % 7) - 3.0;
    const double cost = static_cast<double>(random() % 5) - 2.0;
    m.add_column(cost, {RA, value[k] - static_cast<double>(random() % 2), value[k] + 2.0});
    m.optimum += cost * value[k];
  }
  for (std::size_t i = 0; i < m.a.size(); ++i) {
    const std::size_t k = upto(size);
    m.a[i][first + k] = 2.0;
    m.row[i].low += 2.0 * value[k];
    m.row[i].upp += 2.0 * value[k];
  }
  for (std::size_t r = 0; r < size; ++r) {
    double rhs = 0.0;
    std::vector<double> e(size);
    for (std::size_t k = 0; k < size; ++k) {
      e[k] = r == k ? 7.0 : 1.0 + static_cast<double>(random() % 2);
      rhs += e[k] * value[k];
    }
    auto& block = m.add_row({FX, rhs, rhs});
    for (std::size_t k = 0; k < size; ++k) block[first + k] = e[k];
  }
  // Rows that others give.
  for (int k = 0; k < 3; ++k) {
    std::vector<double> sum(m.c.size(), 0.0);
    double rhs = 0.0;
    for (std::size_t i = 0; i < m.row.size(); ++i) {
      if (m.row[i].key != FX || random() % 3 != 0) continue;
      const double f = static_cast<double>(random() % 4) - 1.5;
      for (std::size_t j = 0; j < sum.size(); ++j) sum[j] += f * m.a[i][j];
      rhs += f * m.row[i].low;
    }
    m.add_row({FX, rhs, rhs}) = sum;
  }
  return m;
}

TEST(Eliminator, StructuresAddedToRandomProblemsComeBack) {
  Met met;
  for (uint32_t seed = 1; seed <= 400; ++seed) {
    const RoundTrip trip = structured(seed).run();
    EXPECT_EQ(trip.wrong, "") << "seed " << seed;
    met.add(trip);
  }
  EXPECT_GT(met.eliminations, 400);
  EXPECT_GT(met.chains, 100);
  EXPECT_GT(met.dependent, 200);
}

// Allocates as often as it is told.
struct Failing {
  int64_t left;
  static void* take(void* handle, std::size_t size) {
    return static_cast<Failing*>(handle)->left-- > 0 ? std::malloc(size) : nullptr;
  }
  static void give(void*, void* pointer) { std::free(pointer); }
};

// Memory runs out at every call: the presolve stops with a problem that its records describe, so that solving what is
// left and walking back gives the optimum all the same.
TEST(Eliminator, RunsOutOfMemory) {
  using namespace roundtrip_detail;
  const PlainLp p = structured(3).plain();
  int32_t stopped = 0;
  bool done = false;
  for (int64_t k = 0; !done && k < 5000; ++k) {
    Failing failing{INT64_MAX};
    tarvo::sysenv* env = tarvo::sysenv_make(tarvo::SysKind::task, true, &failing, Failing::take, Failing::give);
    failing.left = k;
    tarvo::prslvprob* q = tarvo::prslv_make(
        env, {p.numcon, p.numvar, p.ptr.data(), p.ptr.data() + 1, p.sub.data(), p.val.data(), p.cfix, p.cc.data(),
              p.cx.data(), p.bkc.data(), p.blc.data(), p.buc.data(), p.bkx.data(), p.blx.data(), p.bux.data()});
    if (q != nullptr) {
      PlainSolution itr(p.numcon, p.numvar), bas(p.numcon, p.numvar);
      tarvo::prslvsol itr_view = view(&itr), bas_view = view(&bas);
      tarvo::prslvpar par;
      tarvo::prslvstat stat;
      const int32_t res = tarvo::prslv_reduce(par, q, &itr_view, &bas_view, &stat, {});
      EXPECT_TRUE(res == tarvo::PRSLV_OK || res == tarvo::PRSLV_SPACE || res == tarvo::PRSLV_NOTREADY) << res;
      done = failing.left >= 0;
      failing.left = INT64_MAX;
      if (stat.status == 0 && res != tarvo::PRSLV_NOTREADY) {
        std::vector<int32_t> rows, columns;
        const PlainLp reduced = live_part(*q, false, &rows, &columns);
        PlainSolution t(reduced.numcon, reduced.numvar);
        plain_solve(env, plain_input(reduced), plain_parameters(), &t);
        PlainSolution whole = spread(*q, t, rows, columns);
        tarvo::prslvsol s = view(&whole);
        EXPECT_EQ(tarvo::prslv_postsolvebas(par, q, &stat, &s), tarvo::PRSLV_OK);
        EXPECT_EQ(plain_wrong(p, whole, {Answer::optimal, false, 0.0}), "") << "at call " << k;
        stopped += res == tarvo::PRSLV_SPACE ? 1 : 0;
      }
      tarvo::prslv_delete(&q);
    }
    EXPECT_EQ(tarvo::sysenv_delete(&env), tarvo::SYS_OK) << "at call " << k;
  }
  EXPECT_TRUE(done);
  EXPECT_GT(stopped, 5);
}

// min 5x + y + z + w with x implied by the rows; the pivot row is an inequality, so slot x stands for its activity and
// has to carry x's cost.
TEST(Eliminator, AnInequalityAsPivotRowKeepsTheCost) {
  Model m;
  for (double cost : {5.0, 1.0, -2.0, 1.0}) m.add_column(cost, {RA, 0.0, 10.0});
  m.column[0] = {LO, -100.0, 0.0};
  m.add_row({RA, 4.0, 9.0}) = {1.0, 1.0, 1.0, 0.0};
  m.add_row({RA, -3.0, 30.0}) = {1.0, 0.0, 2.0, -1.0};
  m.add_row({RA, -5.0, 30.0}) = {-1.0, 1.0, 0.0, 2.0};
  // x = 4 - y - z; the optimum is that of the three others.
  m.optimum = -26.0;
  tarvo::prslvpar par;
  par.dualargs = par.relax = par.lindep = 0;
  tarvo::prslvpar off = par;
  off.use = 0;
  const RoundTrip without = roundtrip(m.plain(), {Answer::optimal, false, m.optimum}, off);
  const RoundTrip with = roundtrip(m.plain(), {Answer::optimal, false, m.optimum}, par);
  EXPECT_EQ(with.wrong, "");
  EXPECT_EQ(without.wrong, "");
  EXPECT_GT(with.stat.eliminations, 0);
  const auto objective = [&](const RoundTrip& t) {
    double sum = 0.0;
    for (std::size_t j = 0; j < m.c.size(); ++j) sum += m.c[j] * t.basic.xx[j];
    return sum;
  };
  EXPECT_NEAR(objective(with), objective(without), 1e-9);
}

// x_k - f x_k+1 = 1 for 200 rows: one chain when multipliers stay, cut in pieces when they grow.
TEST(Chain, LongChains) {
  for (double f : {1.0, -1.0, 3.0, -10.0, 0.1}) {
    Model m;
    const bool stay = std::fabs(f) == 1.0;
    const int32_t n = 200;
    for (int32_t k = 0; k <= n; ++k)
      m.add_column(k % 3 - 1.0, stay ? Model::Side{FR, 0.0, 0.0} : Model::Side{RA, -1.2, 1.2});
    if (stay) m.column[100] = {RA, 2.0, 3.0};
    for (std::size_t k = 0; k < static_cast<std::size_t>(n); ++k) {
      auto& r = m.add_row({FX, 1.0, 1.0});
      r[k] = 1.0;
      r[k + 1] = -f;
    }
    // Keeps the ends from being column singletons.
    auto& all = m.add_row({RA, -1e5, 1e5});
    for (std::size_t k = 0; k < all.size(); ++k) all[k] = 1.0 + static_cast<double>(k % 5);
    const RoundTrip trip = m.run();
    EXPECT_EQ(trip.wrong, "") << f;
    if (stay) {
      EXPECT_EQ(trip.stat.chains, 1);
      EXPECT_EQ(trip.stat.chaincons, n);
    }
  }
}

// Chains that close: a x = b by the rows' product, consistent or not.
TEST(Chain, CyclesAreConsistentOrProvenInfeasible) {
  for (double rhs : {0.0, 5.0}) {
    Model m;
    for (int32_t k = 0; k < 4; ++k) m.add_column(1.0, {LO, 1.0, 0.0});
    for (std::size_t k = 0; k < 4; ++k) {
      auto& r = m.add_row({FX, k == 3 ? rhs : 0.0, 0.0});
      m.row.back().upp = m.row.back().low;
      r[k] = 1.0;
      r[(k + 1) % 4] = -1.0;
    }
    m.optimum = 4.0;
    EXPECT_EQ(m.run(rhs == 0.0 ? Answer::optimal : Answer::infeasible).wrong, "") << rhs;
  }
}

// Row 3 is the sum of rows 1 and 2, up to an error in its right-hand side.
TEST(Dependency, ConsistencyIsJudgedByScale) {
  struct Case {
    double size, error;
    bool feasible;
    int32_t removed;
  };
  for (const Case& k : {Case{1.0, 0.0, true, 1}, Case{1.0, 1e-3, false, 0}, Case{1.0, 1e-10, true, 1},
                        Case{1e8, 0.0, true, 1}, Case{1e8, 1e-8, true, 1}}) {
    Model m;
    for (int32_t j = 0; j < 5; ++j) m.add_column(1.0 + j, {LO, 0.0, 0.0});
    const double b1 = 4.1 * k.size, b2 = 3.3 * k.size, b3 = b1 + b2 + k.error;
    m.add_row({FX, b1, b1}) = {1.0, 0.5, 3.0, 1.0, 0.0};
    m.add_row({FX, b2, b2}) = {2.0, 1.0, -1.0, 0.0, 2.0};
    m.add_row({FX, b3, b3}) = {3.0, 1.5, 2.0, 1.0, 2.0};
    tarvo::prslvpar par;
    par.eliminator = par.dualargs = par.relax = 0;
    const RoundTrip trip = roundtrip(m.plain(), {k.feasible ? Answer::optimal : Answer::infeasible, false, 0.0}, par);
    EXPECT_EQ(trip.wrong, "") << k.size << " " << k.error;
    EXPECT_EQ(trip.stat.lindep, k.removed) << k.size << " " << k.error;
  }
}

// Transport constraints: each connected network of equations has one too many.
TEST(Dependency, TransportNetworks) {
  Model m;
  const std::size_t sources = 30, sinks = 40;
  for (std::size_t s = 0; s < sources; ++s)
    for (std::size_t t = 0; t < sinks; ++t) m.add_column(static_cast<double>((7 * s + 3 * t) % 11), {RA, 0.0, 50.0});
  for (std::size_t s = 0; s < sources; ++s) {
    auto& r = m.add_row({FX, 40.0, 40.0});
    for (std::size_t t = 0; t < sinks; ++t) r[s * sinks + t] = 1.0;
  }
  for (std::size_t t = 0; t < sinks; ++t) {
    auto& r = m.add_row({FX, 30.0, 30.0});
    for (std::size_t s = 0; s < sources; ++s) r[s * sinks + t] = 1.0;
  }
  tarvo::prslvpar par;
  par.eliminator = 0;
  const RoundTrip trip = roundtrip(m.plain(), {Answer::optimal, false, 0.0}, par);
  EXPECT_EQ(trip.wrong, "");
  EXPECT_EQ(trip.stat.lindep, 1);
}

// A block whose solution breaks a bound is a proof of infeasibility.
TEST(Dependency, BlocksOutOfBounds) {
  for (double upper : {10.0, 1.5}) {
    Model m;
    m.add_column(1.0, {RA, 0.0, upper});
    m.add_column(1.0, {RA, 0.0, 10.0});
    m.add_column(1.0, {RA, 0.0, 10.0});
    m.add_row({FX, 8.0, 8.0}) = {1.0, 1.0, 1.0};
    m.add_row({FX, 9.0, 9.0}) = {2.0, 1.0, 1.0 / 3.0};
    m.add_row({FX, 3.0, 3.0}) = {1.0, -1.0, 1.0};
    tarvo::prslvpar par;
    par.eliminator = 0;
    const RoundTrip trip = roundtrip(m.plain(), {upper > 2.0 ? Answer::optimal : Answer::infeasible, false, 0.0}, par);
    EXPECT_EQ(trip.wrong, "");
    EXPECT_EQ(trip.stat.status, upper > 2.0 ? 1 : 4);
  }
}

// Row 0 is fixed: it is added to row 1 twice and taken from row 2, and all of them carry costs.
TEST(RowPivot, OperationsWithAFixedRowComeBack) {
  using namespace roundtrip_detail;
  Model m;
  for (double cost : {1.0, -2.0, 3.0, -1.0}) m.add_column(cost, {RA, 0.0, 6.0});
  m.add_row({FX, 7.0, 7.0}) = {1.0, 1.0, 1.0, 0.0};
  m.add_row({RA, -9.0, 5.0}) = {-2.0, 1.0, 0.0, 1.0};
  m.add_row({LO, 4.0, 0.0}) = {1.0, 1.0, 0.0, 3.0};
  PlainLp p = m.plain();
  p.cc = {2.0, -1.0, 0.5};
  tarvo::sysenv* env = tarvo::sysenv_make(tarvo::SysKind::task, true, nullptr, nullptr, nullptr);
  tarvo::prslvprob* q = tarvo::prslv_make(
      env, {p.numcon, p.numvar, p.ptr.data(), p.ptr.data() + 1, p.sub.data(), p.val.data(), p.cfix, p.cc.data(),
            p.cx.data(), p.bkc.data(), p.blc.data(), p.buc.data(), p.bkx.data(), p.blx.data(), p.bux.data()});
  tarvo::prslvpar par;
  tarvo::prslvstat stat;
  const tarvo::prslvhook hook;
  tarvo::prslvrun run{};
  run.env = env;
  run.p = q;
  run.par = &par;
  run.stat = &stat;
  run.hook = &hook;
  const int32_t rows[2] = {1, 2};
  const double factors[2] = {2.0, -1.0};
  ASSERT_EQ(tarvo::prslv_conpiv(&run, 0, 2, rows, factors), tarvo::PRSLV_OK);
  for (std::size_t k = 0; k < 2; ++k)
    for (std::size_t j = 0; j < m.c.size(); ++j) m.a[static_cast<std::size_t>(rows[k])][j] += factors[k] * m.a[0][j];
  PlainLp changed = m.plain();
  changed.cc.assign(q->cc.begin(), q->cc.end());
  changed.cfix = q->cfix;
  changed.blc.assign(q->blc.begin(), q->blc.end());
  changed.buc.assign(q->buc.begin(), q->buc.end());
  PlainSolution t(p.numcon, p.numvar);
  plain_solve(env, plain_input(changed), plain_parameters(), &t);
  tarvo::prslvsol s = view(&t);
  EXPECT_EQ(tarvo::prslv_postsolvebas(par, q, &stat, &s), tarvo::PRSLV_OK);
  EXPECT_EQ(plain_wrong(p, t, {Answer::optimal, false, 0.0}), "");
  EXPECT_EQ(wrong_keys(p, t), "");
  tarvo::prslv_delete(&q);
  tarvo::sysenv_delete(&env);
}

}  // namespace
}  // namespace tarvo_test
