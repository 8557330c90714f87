// Sorts and the priority queue of the orderings against the standard library.
#include "misc/sort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "misc/pqueue.h"

namespace tarvo {
namespace {

TEST(Sort, MovesTheCompanionAlong) {
  std::mt19937 rng(5);
  for (const int32_t n : {0, 1, 2, 3, 10, 1000, 20000}) {
    for (const uint32_t range : {1U, 2U, 10U, 100000U}) {
      std::vector<int32_t> keys(static_cast<size_t>(n)), index(keys);
      for (int32_t& k : keys) k = static_cast<int32_t>(rng() % range);
      if (range == 2U) std::sort(keys.rbegin(), keys.rend());
      std::vector<double> reals(keys.begin(), keys.end());
      std::iota(index.begin(), index.end(), 0);
      std::vector<int32_t> before = keys, sorted = keys, second = index;
      std::sort(before.begin(), before.end());
      sort_ints(n, sorted.data(), index.data());
      EXPECT_EQ(sorted, before);
      for (size_t k = 0; k < keys.size(); ++k) ASSERT_EQ(keys[static_cast<size_t>(index[k])], sorted[k]);
      sort_reals(n, reals.data(), second.data());
      EXPECT_TRUE(std::equal(reals.begin(), reals.end(), before.begin()));
    }
  }
}

TEST(Pqueue, FollowsAModel) {
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  {
    constexpr int32_t maxe = 30, buckets = 8;
    pqueue q;
    ASSERT_TRUE(pqueue_make(&q, env, maxe, buckets));
    std::map<int32_t, int32_t> model;
    std::mt19937 rng(1);
    for (int step = 0; step < 5000; ++step) {
      const auto e = static_cast<int32_t>(rng() % maxe), p = static_cast<int32_t>(rng() % 20);
      if (model.count(e) == 0 || rng() % 4 == 0) {
        pqueue_ins(&q, e, p);
        model[e] = p;
      } else if (rng() % 2 == 0) {
        pqueue_del(&q, e);
        model.erase(e);
      } else if (const int32_t by = std::min(p, model[e]); rng() % 2 == 0) {
        pqueue_decp(&q, e, by);
        model[e] -= by;
      } else {
        pqueue_incp(&q, e, by);
        model[e] += by;
      }
      int32_t least = -1, element = -1, priority = -1;
      for (const auto& [key, value] : model) least = least < 0 ? value : std::min(least, value);
      ASSERT_EQ(pqueue_tomin(&q, &element, &priority), !model.empty());
      if (model.empty()) continue;
      ASSERT_EQ(priority, least);
      ASSERT_EQ(model.at(element), least);
    }
  }
  sysenv_delete(&env);
}

}  // namespace
}  // namespace tarvo
