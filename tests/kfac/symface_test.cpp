// The symmetric factorisation against the matrix itself.
#include "kfac/symface.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <vector>

#include "kfac/kopenmp.h"

namespace tarvo {
namespace {

// A symmetric positive definite matrix: edges i > j with values, a dominant diagonal.
struct Matrix {
  int32_t n;
  std::map<std::pair<int32_t, int32_t>, double> edge;
  std::vector<double> diag;
  void add(int32_t i, int32_t j, double v) {
    if (i != j) edge[{std::max(i, j), std::min(i, j)}] = v;
  }
  void finish() {
    diag.assign(static_cast<size_t>(n), 1.0);
    for (const auto& [ij, v] : edge) {
      diag[static_cast<size_t>(ij.first)] += std::fabs(v);
      diag[static_cast<size_t>(ij.second)] += std::fabs(v);
    }
  }
};

Matrix make(int kind, int32_t n, std::mt19937& random) {
  Matrix a{n, {}, {}};
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  const auto node = [&] { return static_cast<int32_t>(random() % static_cast<uint32_t>(n)); };
  switch (kind) {
    case 0:
      for (int32_t k = 0; k < 3 * n; ++k) a.add(node(), node(), value(random));
      break;
    case 1:  // a grid
    {
      const auto side = static_cast<int32_t>(std::sqrt(n));
      for (int32_t i = 0; i + 1 < side; ++i)
        for (int32_t j = 0; j < side; ++j) {
          a.add(i * side + j, (i + 1) * side + j, value(random));
          a.add(j * side + i, j * side + i + 1, value(random));
        }
      break;
    }
    case 2:  // an arrow
      for (int32_t i = 1; i < n; ++i) a.add(i, 0, value(random));
      break;
    case 3:  // full
      for (int32_t i = 0; i < n; ++i)
        for (int32_t j = 0; j < i; ++j) a.add(i, j, value(random));
      break;
    case 4:  // a chain
      for (int32_t i = 1; i < n; ++i) a.add(i, i - 1, value(random));
      break;
    case 5:  // no edges
      break;
    case 6:  // a grid in space, with more edges or without
    case 7: {
      const auto side = static_cast<int32_t>(std::cbrt(n));
      for (int32_t i = 0; i < side * side * side; ++i) {
        if (i % side != side - 1) a.add(i, i + 1, value(random));
        if (i / side % side != side - 1) a.add(i, i + side, value(random));
        if (i / side / side != side - 1) a.add(i, i + side * side, value(random));
        if (kind == 6 && i > 0) a.add(i, i / 7, value(random));
      }
      break;
    }
    case 8:  // many small grids
      for (int32_t i = 0; i + 300 <= n; i += 300)
        for (int32_t k = 0; k < 300; ++k) {
          if (k % 17 != 0) a.add(i + k, i + k - 1, value(random));
          if (k >= 17) a.add(i + k, i + k - 17, value(random));
        }
      break;
    default:  // a band with a few full columns
      for (int32_t i = 0; i < n; ++i)
        for (int32_t j = std::max(0, i - 4); j < i; ++j) a.add(i, j, value(random));
      for (int32_t k = 0; k < 3 && k < n; ++k)
        for (int32_t i = 0; i < n; ++i) a.add(i, k * (n / 4), value(random));
  }
  a.finish();
  return a;
}

void put_values(SymFace* f, const Matrix& a) {
  std::fill_n(f->values, f->numvalues, 0.0);
  const auto put = [f](int32_t i, int32_t j, double v) {
    const int32_t p = std::min(f->invperm[i], f->invperm[j]), q = std::max(f->invperm[i], f->invperm[j]);
    const SymBlock& b = f->blocks[f->blockof[p]];
    int32_t local = q - b.first;
    if (local >= b.width) {
      if (f->blockof[p] >= f->firsttail) {
        // rows are all positions behind
      } else {
        const int32_t* rows = f->rows.data() + b.row;
        const int32_t* at = std::lower_bound(rows, rows + b.nrows, q);
        ASSERT_TRUE(at < rows + b.nrows && *at == q);
        local = b.width + static_cast<int32_t>(at - rows);
      }
    }
    f->values[b.val + static_cast<int64_t>(p - b.first) * b.ld + local] = v;
  };
  for (const auto& [ij, v] : a.edge) put(ij.first, ij.second, v);
  for (int32_t i = 0; i < a.n; ++i) put(i, i, a.diag[static_cast<size_t>(i)]);
}

double residual(SymFace* f, const Matrix& a, std::mt19937& random, int32_t nrhs) {
  const auto n = static_cast<size_t>(a.n);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  std::vector<double> x(n * static_cast<size_t>(nrhs)), b(x.size(), 0.0);
  for (double& v : x) v = value(random);
  for (size_t r = 0; r < static_cast<size_t>(nrhs); ++r) {
    for (size_t i = 0; i < n; ++i) b[r * n + i] = a.diag[i] * x[r * n + i];
    for (const auto& [ij, v] : a.edge) {
      b[r * n + static_cast<size_t>(ij.first)] += v * x[r * n + static_cast<size_t>(ij.second)];
      b[r * n + static_cast<size_t>(ij.second)] += v * x[r * n + static_cast<size_t>(ij.first)];
    }
  }
  std::vector<double> w(x.size());
  for (size_t r = 0; r < static_cast<size_t>(nrhs); ++r)
    for (size_t k = 0; k < n; ++k) w[r * n + k] = b[r * n + static_cast<size_t>(f->perm[k])];
  symface_solvefwd(f, w.data(), nrhs);
  for (size_t r = 0; r < static_cast<size_t>(nrhs); ++r)
    for (size_t k = 0; k < n; ++k) w[r * n + k] /= f->diag[k];
  symface_solvebwd(f, w.data(), nrhs);
  double worst = 0.0;
  for (size_t r = 0; r < static_cast<size_t>(nrhs); ++r)
    for (size_t k = 0; k < n; ++k)
      worst = std::max(worst, std::fabs(w[r * n + k] - x[r * n + static_cast<size_t>(f->perm[k])]));
  return worst;
}

// The factor of a matrix with its memory.
struct Factor {
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  SymFace* f;
  Factor(const Matrix& a, int32_t method, const SymOptions& options) : f(symface_make(env, options, a.n)) {
    std::vector<int32_t> counts(static_cast<size_t>(a.n), 0);
    for (const auto& [ij, v] : a.edge) ++counts[static_cast<size_t>(ij.second)];
    EXPECT_TRUE(symface_setcounts(f, counts.data()));
    for (const auto& [ij, v] : a.edge) EXPECT_EQ(symface_inij(f, ij.first, ij.second), 0);
    EXPECT_EQ(symface_order(f, method, {}, {}), ORDER_OK);
    EXPECT_TRUE(symface_analyze(f));
    std::fill_n(f->flags.data(), a.n, uint16_t{NODE_POSITIVE});
  }
  Factor(const Factor&) = delete;
  Factor& operator=(const Factor&) = delete;
  ~Factor() {
    symface_delete(&f);
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
  }
  int32_t factor(const Matrix& a, const OrderHook& hook = {}) const {
    put_values(f, a);
    return symface_numfac(f, hook);
  }
};

struct Threads {
  int32_t former;
  explicit Threads(int32_t count) : former(mpc_setnthreads(count)) {}
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;
  ~Threads() { mpc_setnthreads(former); }
};

using Case = std::tuple<int, int32_t, int32_t, int32_t>;  // kind, size, order method, cache
class SymFaceSolves : public testing::TestWithParam<Case> {};

TEST_P(SymFaceSolves, GivesTheSolutionBack) {
  const auto [kind, n, method, cache] = GetParam();
  std::mt19937 random(static_cast<uint32_t>(17 + kind + n));
  const Matrix a = make(kind, n, random);
  SymOptions options;
  options.l2kb = cache;
  const Factor fac(a, method, options);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(fac.factor(a), 0);
    for (const int32_t nrhs : {1, 2, 3}) EXPECT_LT(residual(fac.f, a, random, nrhs), 1e-10);
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, SymFaceSolves,
                         testing::Combine(testing::Range(0, 10), testing::Values(1, 2, 17, 100, 401),
                                          testing::Values<int32_t>(ORDER_FREE, ORDER_APPMINLOC1, ORDER_NONE),
                                          testing::Values(0, 64, 1024)));

TEST(SymFace, KnowsTheShapesOfSimpleMatrices) {
  std::mt19937 random(1);
  const Factor full(make(3, 33, random), ORDER_FREE, {});
  EXPECT_EQ(full.f->dstart, 0);
  EXPECT_EQ(full.f->nnzl, 33 * 34 / 2);
  const Factor none(make(5, 50, random), ORDER_FREE, {});
  EXPECT_EQ(none.f->dstart, 50);
  EXPECT_EQ(none.f->nnzl, 50);
  EXPECT_EQ(none.f->flops, 51.0);
  const Factor arrow(make(2, 300, random), ORDER_FREE, {});
  EXPECT_LT(arrow.f->dstart, 300);
  EXPECT_LT(arrow.f->nnzl, 2 * 599);
  EXPECT_EQ(symface_inij(full.f, 0, 33), 2);
  EXPECT_EQ(symface_inij(full.f, -1, 3), 2);
}

// The same bits in the factor whatever the number of threads, and in the solutions for the same number.
TEST(SymFace, FactorsAlikeWithAnyNumberOfThreads) {
  std::mt19937 random(3);
  for (const auto& [kind, n] : {std::pair{1, 14400}, {3, 1300}, {7, 8000}, {8, 9000}}) {
    const Matrix a = make(kind, n, random);
    SymOptions options;
    options.l2kb = 64;  // wide supernodes in several blocks
    std::vector<double> first;
    double worst[2] = {};
    for (const int32_t threads : {1, 2, 3, 3}) {
      const Threads set(threads);
      const Factor fac(a, ORDER_APPMINLOC1, options);
      ASSERT_EQ(fac.factor(a), 0);
      SymFace* f = fac.f;
      std::vector<double> bits(f->diag.data(), f->diag.data() + n);
      for (const SymBlock& b : f->blocks)
        for (int32_t c = 0; c < b.width; ++c)
          bits.insert(bits.end(), f->values + b.val + c * b.ld + c, f->values + b.val + c * b.ld + b.width + b.nrows);
      if (first.empty()) first = bits;
      EXPECT_TRUE(bits == first) << kind << " with " << threads;
      std::mt19937 same(5);
      worst[0] = worst[1];
      worst[1] = residual(f, a, same, 3);
      EXPECT_LT(worst[1], 1e-10);
      // The analysis was made for more threads than there are now.
      const Threads fewer(1);
      ASSERT_EQ(fac.factor(a), 0);
      EXPECT_LT(residual(f, a, same, 1), 1e-10);
    }
    EXPECT_EQ(worst[0], worst[1]);
  }
}

struct Counter {
  int32_t left, calls;
  static int32_t hook(void* handle, int32_t, double) {
    auto* counter = static_cast<Counter*>(handle);
    ++counter->calls;
    return counter->left-- == 0;
  }
};

TEST(SymFace, FactorsAgainAfterACancelledRun) {
  std::mt19937 random(3);
  const Matrix a = make(7, 4000, random);
  for (const int32_t threads : {1, 2}) {
    const Threads set(threads);
    const Factor fac(a, ORDER_APPMINLOC1, {});
    for (int32_t stop = 0;; ++stop) {
      Counter counter{stop, 0};
      const int32_t code = fac.factor(a, {&counter, Counter::hook});
      EXPECT_EQ(counter.calls, stop + (code == 5));
      if (code == 0) break;
      ASSERT_EQ(code, 5);
      ASSERT_LT(stop, 100);
    }
    EXPECT_LT(residual(fac.f, a, random, 1), 1e-10);
  }
}

// Every allocation of the analysis may fail.
TEST(SymFace, SurvivesALackOfMemory) {
  static int32_t left;
  const auto allocate = [](void*, std::size_t size) -> void* { return left-- > 0 ? std::malloc(size) : nullptr; };
  const auto release = [](void*, void* p) { std::free(p); };
  std::mt19937 random(3);
  const Matrix a = make(7, 1000, random);
  const Threads set(2);
  for (int32_t limit = 0;; ++limit) {
    left = 1000;
    sysenv* env = sysenv_make(SysKind::task, false, nullptr, allocate, release);
    left = limit;
    SymFace* f = symface_make(env, {}, a.n);
    std::vector<int32_t> counts(static_cast<size_t>(a.n), 0), perm(static_cast<size_t>(a.n));
    for (const auto& [ij, v] : a.edge) ++counts[static_cast<size_t>(ij.second)];
    for (size_t k = 0; k < perm.size(); ++k) perm[k] = static_cast<int32_t>(k);
    bool done = f != nullptr && symface_setcounts(f, counts.data());
    if (done) {
      for (const auto& [ij, v] : a.edge) symface_inij(f, ij.first, ij.second);
      done = symface_setorder(f, perm.data()) && symface_analyze(f);
    }
    symface_delete(&f);
    sysenv_delete(&env);
    if (done) break;
    ASSERT_LT(limit, 500);
  }
}

}  // namespace
}  // namespace tarvo
