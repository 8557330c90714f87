// Every kernel through every instruction set of this processor against plain loops, bit for bit.
#include "kfac/kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <random>
#include <vector>

#include "kfac/kopenmp.h"
#include "kfac/parblas_internal.h"

namespace {

using namespace tarvo;
using Numbers = std::vector<double>;

std::vector<const DenseKernels*> sets() {
  std::vector<const DenseKernels*> found;
  for (const DenseKernels* kernels : {dense_kernels_generic(), dense_kernels_avx2(), dense_kernels_avx512()})
    if (kernels != nullptr) found.push_back(kernels);
  return found;
}

struct Random {
  std::mt19937_64 rng{11};
  double value() { return std::ldexp(static_cast<double>(rng() % 2000001) - 1e6, -20 - static_cast<int>(rng() % 6)); }
  int32_t upto(int32_t n) { return static_cast<int32_t>(rng() % static_cast<uint64_t>(n + 1)); }
  Numbers values(int64_t n) {
    Numbers v(static_cast<std::size_t>(n));
    for (double& x : v) x = value();
    return v;
  }
};

bool same(const Numbers& a, const Numbers& b) {
  return std::equal(a.begin(), a.end(), b.begin(),
                    [](double x, double y) { return std::bit_cast<uint64_t>(x) == std::bit_cast<uint64_t>(y); });
}

struct Case {
  int32_t m, n, below, depth;
};

// An update with its sources at odd places; what the elements above the diagonal become is not looked at.
struct Update {
  Case size;
  int64_t stride, ldt, offset;
  Numbers source, mult, target, work;
  std::vector<const double*> list;
  DenseUpdate record{};

  Update(const Case& c, bool listed, Random& random) : size(c) {
    const int32_t rows = std::max(c.m, c.n) + 9;
    stride = rows + random.upto(5);
    ldt = c.m + random.upto(5);
    offset = random.upto(7);
    source = random.values(stride * (c.depth + 1) + 16);
    mult = random.values(c.depth);
    target = random.values(ldt * c.n + 16);
    work.resize(static_cast<std::size_t>(3 * dense_worksize()));
    const int32_t rowshift = random.upto(8), colshift = random.upto(8);
    for (int32_t k = 0; k < c.depth; ++k) list.push_back(source.data() + (c.depth - 1 - k) * stride + random.upto(3));
    const SourceColumns columns{listed ? list.data() : nullptr, source.data() + random.upto(3), stride};
    record = {c.m, c.n, c.below, c.depth, columns, columns, rowshift, colshift, mult.data(), nullptr, ldt, work.data()};
  }
  const double* column(int32_t k) const {
    return record.rows.list != nullptr ? record.rows.list[k] : record.rows.base + k * stride;
  }
  Numbers expected() const {
    Numbers t = target;
    for (int32_t k = 0; k < size.depth; ++k)
      for (int32_t j = 0; j < size.n; ++j) {
        const double f = -(mult[static_cast<std::size_t>(k)] * column(k)[record.colshift + j]);
        double* to = t.data() + offset + j * ldt;
        for (int32_t i = std::max(0, j - size.below); i < size.m; ++i)
          to[i] = std::fma(f, column(k)[record.rowshift + i], to[i]);
      }
    return undefined(t);
  }
  Numbers undefined(Numbers t) const {
    for (int32_t j = 0; j < size.n; ++j)
      for (int32_t i = 0; i < std::min(size.m, j - size.below); ++i)
        t[static_cast<std::size_t>(offset + j * ldt + i)] = 0.0;
    return t;
  }
  Numbers computed(const DenseKernels& kernels, int32_t threads) {
    Numbers t = target;
    record.target = t.data() + offset;
    if (threads > 1)
      dense_par_update(kernels, record, threads);
    else
      kernels.update(record);
    return undefined(t);
  }
};

TEST(DenseKernels, UpdatesOfAllSmallSizesAreTheChain) {
  Random random;
  for (int32_t m = 1; m <= 70; ++m)
    for (int32_t n = 1; n <= 70; ++n) {
      const int32_t below = n % 3 == 0 ? n : n % 3 == 1 ? 0 : random.upto(n);
      if (below == 0 && n > m + 3) continue;
      Update update({m, n, below, random.upto(40)}, random.upto(1) == 0, random);
      const Numbers expected = update.expected();
      for (const DenseKernels* kernels : sets())
        ASSERT_TRUE(same(update.computed(*kernels, 1), expected))
            << kernels->name << ' ' << m << ' ' << n << ' ' << below << ' ' << update.size.depth;
    }
}

TEST(DenseKernels, UpdatesBeyondTheBlocksAreTheChainForAnyThreads) {
  Random random;
  const Case cases[] = {{301, 101, 0, 600}, {520, 510, 0, 40}, {520, 500, 500, 9}, {430, 490, 77, 33},
                        {700, 1, 1, 300},   {900, 5, 0, 257},  {33, 33, 0, 513},   {200, 16, 16, 64}};
  for (const Case& c : cases) {
    Update update(c, c.n % 2 == 0, random);
    const Numbers expected = update.expected();
    for (const DenseKernels* kernels : sets())
      for (const int32_t threads : {1, 2, 3})
        EXPECT_TRUE(same(update.computed(*kernels, threads), expected))
            << kernels->name << ' ' << c.m << ' ' << threads;
  }
}

TEST(DenseKernels, PublicUpdatesFollowTheirDefinition) {
  Random random;
  const int32_t m = 61, n = 37, depth = 19, ldt = 64;
  const Numbers a = random.values(m * depth), mult = random.values(depth), start = random.values(ldt * m);
  Numbers work(static_cast<std::size_t>(dense_worksize()));
  std::vector<const double*> cols, below;
  for (int32_t k = 0; k < depth; ++k) {
    cols.push_back(a.data() + k * m);
    below.push_back(a.data() + k * m + n);
  }
  Numbers all = start, lower = start, rest = start, one = start;
  for (int32_t j = 0; j < n; ++j)
    for (int32_t k = 0; k < depth; ++k)
      for (int32_t i = 0; i < m; ++i) {
        double& t = all[static_cast<std::size_t>(j * ldt + i)];
        t = std::fma(-(mult[static_cast<std::size_t>(k)] * cols[static_cast<std::size_t>(k)][j]),
                     cols[static_cast<std::size_t>(k)][i], t);
      }
  chdblas3_oa(m, n, depth, cols.data(), mult.data(), lower.data(), ldt, work.data());
  chdblas3_or(m - n, n, depth, below.data(), cols.data(), mult.data(), rest.data() + n, ldt, work.data());
  chblas2_oy(m, depth, cols.data(), mult.data(), one.data());
  for (int32_t j = 0; j < n; ++j)
    for (int32_t i = j; i < m; ++i) {
      const auto at = static_cast<std::size_t>(j * ldt + i);
      EXPECT_EQ(lower[at], all[at]);
      EXPECT_EQ(i < n ? start[at] : all[at], rest[at]);
    }
  EXPECT_TRUE(std::equal(one.begin(), one.begin() + m, all.begin()));
  Numbers shared = start;
  const int32_t former = mpc_setnthreads(2);
  work.resize(static_cast<std::size_t>(2 * dense_worksize()));
  par_chdblas3_oa(m, n, depth, cols.data(), mult.data(), shared.data(), ldt, work.data());
  mpc_setnthreads(former);
  EXPECT_TRUE(same(shared, lower));
  chdblas3_oa(m, n, 0, nullptr, nullptr, one.data(), ldt, work.data());  // no columns: nothing happens
  EXPECT_EQ(one[0], all[0]);
}

TEST(DenseKernels, ScatterAddsBelowTheDiagonalOnly) {
  Random random;
  for (int32_t m = 1; m <= 60; ++m) {
    const int32_t n = 1 + random.upto(m - 1), below = random.upto(9), gaps = m % 3 == 0 ? 1 : 9;
    std::vector<int32_t> rows, cols;
    int32_t row = 0, last = 0;
    for (int32_t i = 0; i < m; ++i) rows.push_back(row += random.upto(gaps) == 0 ? 3 : 1);
    for (int32_t j = 0; j < n; ++j) cols.push_back(last += 1 + random.upto(1));
    const int64_t ldt = row + 1;
    const Numbers from = random.values(int64_t{m} * n), start = random.values(ldt * (last + 1));
    const auto lower = [&](Numbers t) {
      for (int32_t j = 0; j < n; ++j)
        for (int32_t i = 0; i < std::min(m, j - below); ++i)
          t[static_cast<std::size_t>(cols[static_cast<std::size_t>(j)] * ldt + rows[static_cast<std::size_t>(i)])] =
              0.0;
      return t;
    };
    Numbers expected = start;
    for (int32_t j = 0; j < n; ++j)
      for (int32_t i = std::max(0, j - below); i < m; ++i)
        expected[static_cast<std::size_t>(cols[static_cast<std::size_t>(j)] * ldt +
                                          rows[static_cast<std::size_t>(i)])] +=
            from[static_cast<std::size_t>(j * m + i)];
    for (const DenseKernels* kernels : sets()) {
      Numbers t = start;
      kernels->scatter(m, n, below, from.data(), m, rows.data(), cols.data(), t.data(), ldt);
      EXPECT_TRUE(same(lower(t), lower(expected))) << kernels->name << ' ' << m << ' ' << n;
    }
  }
}

// A trapezoid, and what column-by-column elimination makes of it.
struct Trapezoid {
  int32_t rows, width;
  int64_t ld;
  Numbers start, before, factored, diag;
  std::vector<uint16_t> start_flags, flags;

  Trapezoid(int32_t m, int32_t w, Random& random) : rows(m), width(w), ld(dense_leading(m)) {
    start = random.values(ld * w);
    start_flags.assign(static_cast<std::size_t>(w), NODE_POSITIVE);
    for (int32_t j = 0; j < w; ++j) {
      double& pivot = start[static_cast<std::size_t>(j * ld + j)];
      pivot = 2.0 * w * (1.0 + std::abs(random.value()));
      if (j % 5 == 3) start_flags[static_cast<std::size_t>(j)] = NODE_NEGATIVE, pivot = -pivot;
      if (j % 37 == 11) pivot = 0.0;  // a pivot that has to be repaired
      before.push_back(pivot);
    }
    eliminate();
  }
  void eliminate() {
    factored = start;
    flags = start_flags;
    diag.resize(static_cast<std::size_t>(width));
    for (int32_t j = 0; j < width; ++j) {
      const auto at = static_cast<std::size_t>(j);
      double* t = factored.data() + j * ld;
      for (int32_t k = 0; k < j; ++k) {
        const double* c = factored.data() + k * ld;
        const double f = -(diag[static_cast<std::size_t>(k)] * c[j]);
        for (int32_t i = j; i < rows; ++i) t[i] = std::fma(f, c[i], t[i]);
      }
      diag[at] = symface_pivot(PivotRule{}, before[at], t[j], &flags[at]);
      t[j] = 1.0;
      for (int32_t i = j + 1; i < rows; ++i) t[i] *= 1.0 / diag[at];
    }
  }
  DenseColumns columns(Numbers& val, Numbers& d, std::vector<uint16_t>& marks) const {
    return {rows, width, val.data(), ld, d.data(), before.data(), marks.data()};
  }
  Numbers lower(Numbers val) const {
    for (int32_t j = 0; j < width; ++j) std::fill_n(val.begin() + j * ld, j, 0.0);
    return val;
  }
};

TEST(DenseFactor, IsTheEliminationColumnByColumnForAnyThreads) {
  Random random;
  Numbers work(static_cast<std::size_t>(3 * dense_worksize()));
  std::vector<Case> cases = {{517, 300, 0, 0}, {900, 130, 0, 0}, {1300, 64, 0, 0}};
  for (int32_t w = 1; w <= 40; ++w) cases.push_back({w + random.upto(50), w, 0, 0});
  for (const Case& c : cases) {
    const Trapezoid block(c.m, c.n, random);
    for (const DenseKernels* kernels : sets())
      for (const int32_t threads : {1, 3}) {
        Numbers val = block.start, diag(block.diag.size());
        std::vector<uint16_t> flags = block.start_flags;
        dense_factor(*kernels, block.columns(val, diag, flags), PivotRule{}, threads, work.data());
        EXPECT_TRUE(same(diag, block.diag)) << kernels->name << ' ' << c.m << ' ' << c.n;
        EXPECT_TRUE(same(block.lower(val), block.lower(block.factored))) << kernels->name << ' ' << c.m << ' ' << c.n;
        EXPECT_EQ(flags, block.flags);
      }
  }
}

TEST(DenseFactor, SolvesAreTheSameInEverySetAndRight) {
  Random random;
  for (const Case& c :
       {Case{1, 1, 0, 0}, Case{9, 4, 0, 0}, Case{70, 70, 0, 0}, Case{150, 37, 0, 0}, Case{40, 3, 0, 0}}) {
    Trapezoid block(c.m, c.n, random);
    const DenseColumns columns = block.columns(block.factored, block.diag, block.flags);
    const int32_t w = c.n, rest = c.m - w;
    for (const int32_t nrhs : {1, 2}) {
      const int64_t ldx = w + 3, ldb = rest + 1;
      const Numbers x0 = random.values(2 * ldx), b0 = random.values(2 * ldb);
      // Plain forward and backward substitution.
      Numbers fx = x0, fb = b0, bx = x0;
      const auto l = [&](int32_t i, int32_t j) { return block.factored[static_cast<std::size_t>(j * block.ld + i)]; };
      for (int32_t r = 0; r < nrhs; ++r) {
        double *x = fx.data() + r * ldx, *b = fb.data() + r * ldb, *y = bx.data() + r * ldx;
        for (int32_t j = 0; j < w; ++j)
          for (int32_t i = j + 1; i < c.m; ++i) (i < w ? x[i] : b[i - w]) -= l(i, j) * x[j];
        for (int32_t j = w - 1; j >= 0; --j)
          for (int32_t i = j + 1; i < c.m; ++i)
            y[j] -= l(i, j) * (i < w ? y[i] : b0[static_cast<std::size_t>(r * ldb + i - w)]);
      }
      Numbers first[3];
      for (const DenseKernels* kernels : sets()) {
        Numbers got[3] = {x0, b0, x0};
        dense_forward(*kernels, columns, nrhs, got[0].data(), ldx, got[1].data(), ldb);
        dense_backward(*kernels, columns, nrhs, got[2].data(), ldx, b0.data(), ldb);
        const Numbers* want[3] = {&fx, &fb, &bx};
        for (int k = 0; k < 3; ++k) {
          if (first[k].empty()) first[k] = got[k];
          EXPECT_TRUE(same(got[k], first[k])) << kernels->name;
          for (std::size_t i = 0; i < got[k].size(); ++i)
            EXPECT_NEAR(got[k][i], (*want[k])[i], 1e-9 * (1.0 + std::abs((*want[k])[i])));
        }
      }
    }
  }
}

}  // namespace
