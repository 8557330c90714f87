// Transversals and square blocks of small random patterns, against an exhaustive search.
#include "order/blkord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

namespace tarvo {
namespace {

struct Pattern {
  int32_t rows, cols;
  std::vector<uint32_t> column;  // the rows of a column as bits
  std::vector<int32_t> ptrb, ptre, sub;
};

Pattern draw(std::mt19937* rng) {
  Pattern p{static_cast<int32_t>((*rng)() % 7), static_cast<int32_t>((*rng)() % 8), {}, {}, {}, {}};
  const uint32_t sparse = 2 + (*rng)() % 4;
  for (int32_t j = 0; j < p.cols; ++j) {
    p.ptrb.push_back(static_cast<int32_t>(p.sub.size()));
    uint32_t bits = 0;
    for (int32_t i = 0; i < p.rows; ++i) {
      if ((*rng)() % sparse != 0) continue;
      bits |= 1U << i;
      p.sub.push_back(i);
    }
    p.column.push_back(bits);
    p.ptre.push_back(static_cast<int32_t>(p.sub.size()));
  }
  return p;
}

// The largest matching of `inside` rows, over subsets of rows used up.
int32_t best_matching(const Pattern& p, uint32_t inside) {
  std::vector<int32_t> best(1U << p.rows, -1);
  best[0] = 0;
  int32_t most = 0;
  for (int32_t j = 0; j < p.cols; ++j)
    for (uint32_t used = 1U << p.rows; used-- > 0;) {
      if (best[used] < 0) continue;
      for (int32_t i = 0; i < p.rows; ++i) {
        const uint32_t bit = 1U << i;
        if ((p.column[static_cast<size_t>(j)] & inside & bit) == 0 || (used & bit) != 0) continue;
        best[used | bit] = std::max(best[used | bit], best[used] + 1);
        most = std::max(most, best[used] + 1);
      }
    }
  return most;
}

TEST(Blkord, FindsWhatASearchOfAllSubsetsFinds) {
  sysenv* env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
  std::mt19937 rng(3);
  for (int trial = 0; trial < 2000; ++trial) {
    const Pattern p = draw(&rng);
    const BlkordPattern a{p.ptrb.data(), p.ptre.data(), p.sub.data()};
    const int32_t nrowc = p.rows > 0 && trial % 3 == 0 ? p.rows - 1 : p.rows;  // the last row is outside
    const uint32_t inside = (1U << nrowc) - 1;
    const int32_t best = best_matching(p, inside);
    for (const int method : {0, 1, 2}) {
      std::vector<int32_t> rset(static_cast<size_t>(p.rows)), inew(rset), cset(static_cast<size_t>(p.cols));
      std::iota(rset.begin(), rset.end(), 0);
      std::iota(inew.begin(), inew.end(), 0);
      std::iota(cset.begin(), cset.end(), 0);
      std::vector<int32_t> work(static_cast<size_t>(blkord_worksize(nrowc, p.cols)));
      const auto isze = static_cast<int64_t>(work.size());
      int32_t size = 0, block = 0;
      if (method == 0)
        size = blkord_appmaxtran(env, a, nrowc, rset.data(), inew.data(), p.cols, cset.data(), isze, work.data());
      else if (method == 1)
        size = blkord_maxtran(env, a, nrowc, rset.data(), inew.data(), p.cols, cset.data(), isze, work.data());
      else
        block =
            blkord_maxlwrsqblk(env, a, nrowc, rset.data(), inew.data(), p.cols, cset.data(), &size, isze, work.data());
      ASSERT_LE(size, best);
      if (method != 0) {
        ASSERT_EQ(size, best);
      }
      const auto bit = [&](int32_t k) { return 1U << rset[static_cast<size_t>(k)]; };
      const auto column = [&](int32_t t) { return p.column[static_cast<size_t>(cset[static_cast<size_t>(t)])]; };
      for (int32_t k = 0; k < p.rows; ++k) ASSERT_EQ(inew[static_cast<size_t>(rset[static_cast<size_t>(k)])], k);
      for (int32_t k = 0; k < size; ++k) ASSERT_NE(column(k) & bit(k), 0U) << trial << " method " << method;
      std::sort(cset.begin(), cset.end());
      for (int32_t t = 0; t < p.cols; ++t) ASSERT_EQ(cset[static_cast<size_t>(t)], t);
      if (method != 2) continue;
      // No set of rows whose columns are as many as the rows, all matched within, is larger than the block.
      uint32_t rows = 0;
      for (int32_t k = 0; k < block; ++k) rows |= bit(k);
      int32_t touching = 0;
      for (const uint32_t c : p.column) touching += (c & rows) != 0 ? 1 : 0;
      ASSERT_EQ(touching, block);
      for (uint32_t set = inside; set > 0; set = (set - 1) & inside) {
        int32_t columns = 0, count = 0;
        for (const uint32_t c : p.column) columns += (c & set) != 0 ? 1 : 0;
        for (uint32_t b = set; b != 0; b &= b - 1) ++count;
        if (columns != count || best_matching(p, set) != count) continue;
        ASSERT_LE(count, block) << trial;
      }
    }
  }
  sysenv_delete(&env);
}

}  // namespace
}  // namespace tarvo
