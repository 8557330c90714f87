// The KKT factor against the system itself, on matrices as linear programs have them.
#include "kfac/kktfac.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "kfac/kopenmp.h"

namespace tarvo {
namespace {

struct Failing {
  int64_t left = INT64_MAX;
  static void* take(void* handle, std::size_t size) {
    return static_cast<Failing*>(handle)->left-- > 0 ? std::malloc(size) : nullptr;
  }
  static void give(void*, void* p) { std::free(p); }
};

// A by columns, an interior point's diagonal, Q (lower triangle), and what solves them.
struct System {
  int32_t m = 0, n = 0;
  std::vector<int32_t> ptr{0}, sub, qi, qj;
  std::vector<double> val, d, q;
  Failing memory;
  sysenv* env = sysenv_make(SysKind::task, true, &memory, Failing::take, Failing::give);
  spmat* a = nullptr;
  KktFac* fac = nullptr;
  KktOptions options;

  ~System() {
    kktfac_delete(&fac);
    spmat_delete(&a);
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
  }
  void column(const std::vector<std::pair<int32_t, double>>& entries, double diag) {
    for (const auto& [i, v] : entries) {
      sub.push_back(i);
      val.push_back(v);
    }
    ptr.push_back(static_cast<int32_t>(sub.size()));
    d.push_back(diag);
    ++n;
  }
  int32_t set_up() {
    if (a == nullptr) {
      a = spmat_make(env, n, m);
      EXPECT_NE(a, nullptr);
      spmat_ealloc(a, n, m, 0, static_cast<int32_t>(sub.size()), ptr.data(), ptr.data() + 1, sub.data(), val.data());
    }
    kktfac_delete(&fac);
    fac = kktfac_make(env, m, n, options);
    if (fac == nullptr) return KKT_SPACE;
    return kktfac_autosetup(fac, a, nullptr, static_cast<int32_t>(q.size()), qi.data(), qj.data());
  }
  int32_t factor() { return kktfac_numfac(fac, d.data(), q.empty() ? nullptr : q.data(), 0.0, nullptr); }

  // The largest residual of the system, each part relative to its right-hand side.
  double error(const double* r1, const double* r2, const double* x, const double* y) const {
    std::vector<double> e1(r1, r1 + n), e2(r2, r2 + m);
    for (int32_t j = 0; j < n; ++j) {
      e1[j] += d[j] * x[j];
      for (int32_t t = ptr[j]; t < ptr[j + 1]; ++t) {
        e1[j] -= val[t] * y[sub[t]];
        e2[sub[t]] -= val[t] * x[j];
      }
    }
    for (size_t k = 0; k < q.size(); ++k) {
      e1[qi[k]] += q[k] * x[qj[k]];
      if (qi[k] != qj[k]) e1[qj[k]] += q[k] * x[qi[k]];
    }
    const auto norm = [](const double* v, int32_t count) {
      double most = 0.0;
      for (int32_t k = 0; k < count; ++k) most = std::isfinite(v[k]) ? std::max(most, std::fabs(v[k])) : INFINITY;
      return most;
    };
    return std::max(norm(e1.data(), n) / (1.0 + norm(r1, n)), norm(e2.data(), m) / (1.0 + norm(r2, m)));
  }
  // Solves for right-hand sides in the range of A and gives the larger error of two.
  double solve(std::vector<double>* solution = nullptr) {
    std::vector<double> r1(2 * static_cast<size_t>(n)), r2(2 * static_cast<size_t>(m), 0.0), x(r1.size()), y(r2.size());
    std::mt19937 random(5);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (double& v : r1) v = value(random);
    for (int32_t r = 0; r < 2; ++r)
      for (int32_t j = 0; j < n; ++j) {
        const double v = value(random);
        for (int32_t t = ptr[j]; t < ptr[j + 1]; ++t) r2[r * m + sub[t]] += val[t] * v;
      }
    kktfac_solve(fac, 2, r1.data(), r2.data(), x.data(), y.data());
    if (solution != nullptr) {
      *solution = x;
      solution->insert(solution->end(), y.begin(), y.end());
    }
    return std::max(error(r1.data(), r2.data(), x.data(), y.data()),
                    error(r1.data() + n, r2.data() + m, x.data() + n, y.data() + m));
  }
};

enum Kind { RANDOM, DENSE_COLUMNS, ONLY_DENSE_ROW, DEPENDENT, DEPENDENT_DENSE, SPARSE_PART_SINGULAR, KINDS };

// `spread`: d ranges over 10^-spread..10^spread.
void fill(System* s, int kind, int32_t m, double spread, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(0.5, 1.5), power(-spread, spread);
  const auto row = [&] { return static_cast<int32_t>(random() % static_cast<uint32_t>(m)); };
  const auto diag = [&] { return std::pow(10.0, power(random)); };
  s->m = m;
  const int32_t first = kind == ONLY_DENSE_ROW ? 1 : 0;  // row 0 is left to the dense columns
  const bool doubled = kind == SPARSE_PART_SINGULAR;     // rows in pairs that only dense columns tell apart
  for (int32_t j = 0; j < 3 * m; ++j) {
    std::vector<std::pair<int32_t, double>> entries;
    int32_t i = j < m ? j : row(), k = (i + 1 + row() % std::max(m - 1, 1)) % m;
    if (doubled) {
      const int32_t p = i % (m - 4);
      entries = {{p, 1.0}};
      if (p < 4) entries.emplace_back(m - 4 + p, 1.0);
    } else {
      if (i >= first) entries.emplace_back(i, value(random));
      if (k != i && k >= first) entries.emplace_back(k, -value(random));
    }
    s->column(entries, diag());
  }
  if (kind != RANDOM && kind != DEPENDENT) {
    for (int32_t j = 0; j < 6; ++j) {
      std::vector<std::pair<int32_t, double>> entries;
      for (int32_t i = 0; i < m; ++i) entries.emplace_back(i, value(random) * (random() % 2 == 0 ? 1.0 : -1.0));
      s->column(entries, diag());
    }
  }
  if (kind == DEPENDENT || kind == DEPENDENT_DENSE) {  // three rows again, the last one times three
    System copy;
    std::swap(copy.ptr, s->ptr);
    std::swap(copy.sub, s->sub);
    std::swap(copy.val, s->val);
    std::swap(copy.d, s->d);
    const int32_t columns = s->n;
    s->n = 0;
    s->ptr = {0};
    s->m = m + 3;
    for (int32_t j = 0; j < columns; ++j) {
      std::vector<std::pair<int32_t, double>> entries;
      for (int32_t t = copy.ptr[j]; t < copy.ptr[j + 1]; ++t) {
        entries.emplace_back(copy.sub[t], copy.val[t]);
        if (copy.sub[t] < 3) entries.emplace_back(m + copy.sub[t], copy.val[t] * (copy.sub[t] == 2 ? 3.0 : 1.0));
      }
      s->column(entries, copy.d[j]);
    }
  }
}

TEST(KktFac, SolvesWhatLinearProgramsHave) {
  for (int kind = RANDOM; kind < KINDS; ++kind) {
    for (const double spread : {0.0, 3.0, 6.0}) {
      for (const int32_t offcol : {0, 40}) {
        for (unsigned seed = 1; seed <= 3; ++seed) {
          System s;
          s.options.offcol = offcol;
          s.options.type = KKT_NORMAL;
          fill(&s, kind, 300, spread, seed);
          ASSERT_EQ(s.set_up(), KKT_OK);
          const bool has = kind != RANDOM && kind != DEPENDENT;
          EXPECT_EQ(kktfac_getstats(s.fac).offcol, has && offcol > 0 ? 6 : 0) << kind;
          for (int round = 0; round < 2; ++round) {
            ASSERT_EQ(s.factor(), KKT_OK);
            EXPECT_LT(s.solve(), spread < 4.0 ? 1e-8 : 1e-3)
                << "kind " << kind << " spread " << spread << " offcol " << offcol << " seed " << seed;
          }
        }
      }
    }
  }
}

TEST(KktFac, TypesAgreeOnADiagonalQ) {
  std::vector<double> solution[2];
  for (const int32_t type : {KKT_NORMAL, KKT_SQD}) {
    System s;
    s.options.type = type;
    fill(&s, DENSE_COLUMNS, 120, 1.0, 7);
    for (int32_t j = 0; j < s.n; j += 2) {
      s.qi.push_back(j);
      s.qj.push_back(j);
      s.q.push_back(2.0 + j % 3);
    }
    ASSERT_EQ(s.set_up(), KKT_OK);
    EXPECT_EQ(kktfac_getstats(s.fac).dim, type == KKT_NORMAL ? s.m : s.m + s.n);
    ASSERT_EQ(s.factor(), KKT_OK);
    EXPECT_LT(s.solve(&solution[type - 1]), 1e-9);
  }
  for (size_t k = 0; k < solution[0].size(); ++k)
    ASSERT_NEAR(solution[0][k], solution[1][k], 1e-6 * (1.0 + std::fabs(solution[0][k])));
}

TEST(KktFac, WholeSystemWithQ) {
  for (const double spread : {0.0, 4.0}) {
    for (int kind : {RANDOM, DEPENDENT, ONLY_DENSE_ROW}) {
      System s;
      fill(&s, kind, 80, spread, 3);
      for (int32_t j = 0; j < s.n; ++j) {  // tridiagonal, diagonally dominant
        s.qi.insert(s.qi.end(), {j, j});
        s.qj.insert(s.qj.end(), {j, std::max(j - 1, 0)});
        s.q.insert(s.q.end(), {3.0, -1.0});
        if (j == 0) s.qi.pop_back(), s.qj.pop_back(), s.q.pop_back();
      }
      ASSERT_EQ(s.set_up(), KKT_OK);
      EXPECT_EQ(kktfac_getstats(s.fac).type, KKT_SQD);
      ASSERT_EQ(s.factor(), KKT_OK);
      EXPECT_LT(s.solve(), 1e-7) << kind << " " << spread;
      EXPECT_EQ(kktfac_getstats(s.fac).wrongsign, 0);
      s.q[3] = -100.0;  // an element off the diagonal: not convex
      ASSERT_EQ(s.factor(), KKT_OK);
      EXPECT_GT(kktfac_getstats(s.fac).wrongsign, 0);
    }
  }
}

TEST(KktFac, NoRowsNoColumnsAndBadIndices) {
  for (const int32_t type : {KKT_NORMAL, KKT_SQD}) {
    System rows, columns;
    rows.options.type = columns.options.type = type;
    columns.column({}, 2.0);
    columns.column({}, 4.0);
    ASSERT_EQ(columns.set_up(), KKT_OK);
    ASSERT_EQ(columns.factor(), KKT_OK);
    EXPECT_LT(columns.solve(), 1e-12);
    rows.m = 2;
    ASSERT_EQ(rows.set_up(), KKT_OK);
    const double e[2] = {2.0, 4.0}, r2[2] = {2.0, 2.0};
    double y[2];
    ASSERT_EQ(kktfac_numfac(rows.fac, nullptr, nullptr, 0.0, e), KKT_OK);
    kktfac_solve(rows.fac, 1, nullptr, r2, nullptr, y);
    EXPECT_NEAR(y[0], 1.0, 1e-10);
    EXPECT_NEAR(y[1], 0.5, 1e-10);
  }
  System s;
  fill(&s, RANDOM, 4, 0.0, 1);
  for (const auto& [i, j] : {std::pair{s.n, 0}, {-1, -1}, {1, 2}, {1, -1}}) {
    s.qi = {i};
    s.qj = {j};
    s.q = {1.0};
    EXPECT_EQ(s.set_up(), KKT_BADINDEX) << i << " " << j;
  }
}

TEST(KktFac, CancelledAnywhereAndUsableAfter) {
  struct Stop {
    int left;
    static int32_t ask(void* handle, int32_t, double) { return --static_cast<Stop*>(handle)->left < 0 ? 1 : 0; }
  };
  int stops = 0;
  for (int k = 0; k < 100; ++k) {
    System s;
    fill(&s, DENSE_COLUMNS, 200, 0.0, 1);
    Stop stop{k};
    s.options.hook = {&stop, Stop::ask};
    int32_t result = s.set_up();
    if (result == KKT_OK) result = s.factor();
    if (result == KKT_OK) break;
    ASSERT_EQ(result, KKT_CANCELLED);
    ++stops;
    stop.left = INT32_MAX;
    ASSERT_EQ(s.set_up(), KKT_OK);
    ASSERT_EQ(s.factor(), KKT_OK);
    EXPECT_LT(s.solve(), 1e-8);
  }
  EXPECT_GT(stops, 3);
}

TEST(KktFac, SameBitsTwiceAndNearlySoWithThreads) {
  std::vector<double> first, again, threads;
  for (auto* solution : {&first, &again, &threads}) {
    const int32_t former = mpc_setnthreads(solution == &threads ? 3 : 1);
    System s;
    s.options.type = KKT_NORMAL;
    s.options.offcol = 0;
    fill(&s, DENSE_COLUMNS, 500, 2.0, 9);
    EXPECT_EQ(s.set_up(), KKT_OK);
    EXPECT_EQ(s.factor(), KKT_OK);
    EXPECT_LT(s.solve(solution), 1e-8);
    mpc_setnthreads(former);
  }
  EXPECT_EQ(first, again);
  for (size_t k = 0; k < first.size(); ++k) ASSERT_NEAR(first[k], threads[k], 1e-8 * (1.0 + std::fabs(first[k])));
}

TEST(KktFac, OutOfMemoryIsACode) {
  for (const int32_t type : {KKT_NORMAL, KKT_SQD}) {
    System s;
    s.options.type = type;
    fill(&s, DENSE_COLUMNS, 60, 0.0, 1);
    ASSERT_EQ(s.set_up(), KKT_OK);
    for (int64_t k = 0;; ++k) {
      ASSERT_LT(k, 1000);
      s.memory.left = k;
      const int32_t result = s.set_up();
      s.memory.left = INT64_MAX;
      if (result == KKT_OK) break;
      ASSERT_EQ(result, KKT_SPACE);
    }
    ASSERT_EQ(s.factor(), KKT_OK);
    EXPECT_LT(s.solve(), 1e-8);
  }
}

}  // namespace
}  // namespace tarvo
