// The symmetric factorisation against the matrix itself.
#include "kfac/symface.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>
#include <vector>

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

using Case = std::tuple<int, int32_t, int32_t>;  // kind, size, order method
class SymFaceSolves : public testing::TestWithParam<Case> {};

TEST_P(SymFaceSolves, GivesTheSolutionBack) {
  const auto [kind, n, method] = GetParam();
  std::mt19937 random(static_cast<uint32_t>(17 + kind + n));
  const Matrix a = make(kind, n, random);
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  SymFace* f = symface_make(env, {}, n);
  std::vector<int32_t> counts(static_cast<size_t>(n), 0);
  for (const auto& [ij, v] : a.edge) ++counts[static_cast<size_t>(ij.second)];
  ASSERT_TRUE(symface_setcounts(f, counts.data()));
  for (const auto& [ij, v] : a.edge) ASSERT_EQ(symface_inij(f, ij.first, ij.second), 0);
  ASSERT_EQ(symface_order(f, method, {}, {}), ORDER_OK);
  ASSERT_TRUE(symface_analyze(f));
  for (int32_t i = 0; i < n; ++i) f->flags[i] = NODE_POSITIVE;
  for (int round = 0; round < 2; ++round) {
    put_values(f, a);
    ASSERT_EQ(symface_numfac(f, {}), 0);
    for (const int32_t nrhs : {1, 2, 3}) EXPECT_LT(residual(f, a, random, nrhs), 1e-10);
  }
  symface_delete(&f);
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

INSTANTIATE_TEST_SUITE_P(Shapes, SymFaceSolves,
                         testing::Combine(testing::Range(0, 7), testing::Values(1, 2, 17, 100, 401),
                                          testing::Values<int32_t>(ORDER_FREE, ORDER_APPMINLOC1, ORDER_NONE)));

}  // namespace
}  // namespace tarvo
