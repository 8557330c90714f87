#include "cpub/bsto.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvo {
namespace {

TEST(ByteStore, ReadsBackAcrossPagesAndSurvivesRunningOut) {
  static int left;
  left = 1000000;
  sysenv* env = sysenv_make(
      SysKind::task, false, nullptr, [](void*, std::size_t n) { return left-- > 0 ? std::malloc(n) : nullptr; },
      [](void*, void* p) { std::free(p); });
  bsto* store = bsto_make(env, 7);
  left = 0;
  EXPECT_EQ(bsto_makeroom(store, 0), 1);
  EXPECT_EQ(bsto_append(store, 1, "x"), 0);
  left = 1000000;

  std::string all;
  for (int k = 0; k < 3000; ++k) {
    const std::string part = std::to_string(k);
    ASSERT_EQ(bsto_append(store, static_cast<int64_t>(part.size()), part.data()), 1);
    all += part;
  }
  const auto size = static_cast<int64_t>(all.size());
  ASSERT_EQ(store->used, size);
  std::string back(all.size(), ' ');
  bsto_read(store, 0, size, back.data());
  EXPECT_EQ(back, all);
  bsto_read(store, 9990, 21, back.data());
  EXPECT_EQ(back.substr(0, 21), all.substr(9990, 21));

  left = 3;  // some pages come, then no more: nothing is appended, everything before stays
  EXPECT_EQ(bsto_append(store, size, all.data()), 0);
  EXPECT_EQ(store->used, size);
  bsto_rewind(store, 5);
  left = 0;
  EXPECT_EQ(bsto_append(store, 20, all.data()), 1);
  bsto_read(store, 0, 25, back.data());
  EXPECT_EQ(back.substr(0, 25), all.substr(0, 5) + all.substr(0, 20));
  bsto_delete(&store);
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

}  // namespace
}  // namespace tarvo
