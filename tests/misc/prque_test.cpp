// The bucket queue against a plain model.
#include "misc/prque.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

namespace tarvo {
namespace {

TEST(Prque, FollowsAModel) {
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  {
    constexpr int32_t maxe = 40, maxp = 9;
    prque q;
    int32_t tooshort[8];
    EXPECT_FALSE(pq_setup(&q, env, maxe, maxp, pq_blocksize(maxe, maxp) - 1, tooshort));
    ASSERT_TRUE(pq_make(&q, env, maxe, maxp));
    std::map<int32_t, int32_t> model;
    std::mt19937 rng(1);
    for (int step = 0; step < 5000; ++step) {
      const auto e = static_cast<int32_t>(rng() % maxe), p = static_cast<int32_t>(rng() % (maxp + 1));
      if (rng() % 3 != 0) {
        pq_put(&q, e, p);
        model[e] = p;
      } else if (model.erase(e) != 0) {
        pq_remove(&q, e);
      }
      ASSERT_EQ(q.count, static_cast<int32_t>(model.size()));
      int32_t least = q.inactive;
      for (const auto& [element, key] : model) least = std::min(least, key);
      ASSERT_EQ(q.minkey, least);
      ASSERT_EQ(pq_tolowest(&q), !model.empty());
    }
    // Removing under the cursor visits every element once, in the order of the keys.
    int32_t last = 0, seen = 0;
    for (pq_tolowest(&q); q.cursor != maxe; ++seen) {
      EXPECT_EQ(model.at(q.cursor), q.key[q.cursor]);
      EXPECT_GE(q.key[q.cursor], last);
      last = q.key[q.cursor];
      pq_remove(&q, q.cursor);
    }
    EXPECT_EQ(seen, static_cast<int32_t>(model.size()));
    pq_insert(&q, 3, 5);
    pq_insert(&q, 4, 5);
    EXPECT_FALSE(pq_tobucket(&q, 4));
    ASSERT_TRUE(pq_tobucket(&q, 5));
    EXPECT_EQ(q.cursor, 4);
    ASSERT_TRUE(pq_step(&q));
    EXPECT_EQ(q.cursor, 3);
    EXPECT_FALSE(pq_step(&q));
  }
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

}  // namespace
}  // namespace tarvo
