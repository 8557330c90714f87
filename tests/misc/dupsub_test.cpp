#include "misc/dupsub.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

namespace tarvo {
namespace {

using Groups = std::vector<std::vector<int32_t>>;

Groups lists(const dupgroups& groups) {
  Groups all;
  for (int32_t g = 0; g < groups.count; ++g) {
    all.emplace_back();
    for (int32_t v = groups.head[g]; v != groups.end; v = groups.next[v]) all.back().push_back(v);
  }
  std::sort(all.begin(), all.end());
  return all;
}

// Against grouping by the whole vector, with and without values and a mask.
TEST(DupSub, GroupsAreThoseOfACompleteComparison) {
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  std::mt19937 random(7);
  std::size_t found = 0;
  for (int32_t round = 0; round < 300; ++round) {
    const int32_t n = 12, universe = 5;
    std::vector<int32_t> ptr{0}, sub, all;
    std::vector<double> val;
    std::vector<uint8_t> mask;
    for (int32_t s = 0; s < universe; ++s) mask.push_back(random() % 4 != 0);
    std::map<std::vector<double>, std::vector<int32_t>> parallel, pattern;
    for (int32_t v = 0; v < n; ++v) {
      all.push_back(v);
      std::vector<double> scaled, marks;
      double first = 0.0;
      const double f = random() % 2 == 0 ? -0.3 : 7.0;
      for (int32_t s = 0; s < universe; ++s) {
        if (random() % 3 == 0) continue;
        sub.push_back(s);
        val.push_back(f * (random() % 4 == 0 ? -2.0 : 1.0));
        if (mask[static_cast<std::size_t>(s)] == 0) continue;
        if (first == 0.0) first = val.back();
        for (auto* key : {&scaled, &marks}) key->push_back(s);
        scaled.push_back(std::round(val.back() / first * 16.0));
      }
      ptr.push_back(static_cast<int32_t>(sub.size()));
      if (marks.empty()) continue;
      parallel[scaled].push_back(v);
      pattern[marks].push_back(v);
    }
    const auto several = [](const auto& groups) {
      Groups list;
      for (const auto& [key, members] : groups)
        if (members.size() > 1) list.push_back(members);
      std::sort(list.begin(), list.end());
      return list;
    };
    dupgroups groups;
    ASSERT_TRUE(dupsub_iden(env, n, universe, ptr.data(), ptr.data() + 1, sub.data(), mask.data(), &groups));
    EXPECT_EQ(lists(groups), several(pattern));
    spmat* m = spmat_make(env, n, universe);
    spmat_ealloc(m, n, universe, 0, static_cast<int32_t>(sub.size()), ptr.data(), ptr.data() + 1, sub.data(),
                 val.data());
    ASSERT_TRUE(spmat_dupvec(m, mask.data(), n, all.data(), 1e-12, &groups));
    EXPECT_EQ(lists(groups), several(parallel));
    found += lists(groups).size();
    spmat_delete(&m);
  }
  EXPECT_GT(found, 300u);
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

}  // namespace
}  // namespace tarvo
