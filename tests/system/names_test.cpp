// Names: unique within their kind, found after every kind of edit.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tarvo.h"

namespace {

class Names : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, "" /* detects leaks */), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_maketask(env, 0, 0, &task), 0);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  int32_t put(int32_t kind, int32_t i, const std::string& name) { return TRV_putname(task, kind, i, name.c_str()); }
  std::string name(int32_t kind, int32_t i) {
    int32_t len = -1;
    char text[256] = "?";
    EXPECT_EQ(TRV_getname(task, kind, i, sizeof text, &len, text), 0);
    EXPECT_EQ(std::string(text).size(), static_cast<std::size_t>(len));
    return text;
  }
  int32_t find(int32_t kind, const std::string& what) {  // -1: not there
    int32_t asgn = -1, index = -1;
    EXPECT_EQ(TRV_getnameindex(task, kind, what.c_str(), &asgn, &index), 0);
    if (asgn == 1) return index;
    int32_t capacity = -1;
    EXPECT_EQ(kind == TRV_PI_CON ? TRV_getmaxnumcon(task, &capacity) : TRV_getmaxnumvar(task, &capacity), 0);
    EXPECT_EQ(index, capacity);
    return -1;
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
};

TEST_F(Names, ARefusedNameLeavesTheItemAsItWas) {
  ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, 3), 0);
  EXPECT_EQ(put(TRV_PI_VAR, 0, "a"), 0);
  EXPECT_EQ(put(TRV_PI_VAR, 1, "b"), 0);
  EXPECT_EQ(put(TRV_PI_VAR, 0, "b"), TRV_RES_ERR_DUP_NAME);
  EXPECT_EQ(name(TRV_PI_VAR, 0), "a");
  EXPECT_EQ(find(TRV_PI_VAR, "a"), 0);
  EXPECT_EQ(put(TRV_PI_VAR, 0, "c"), 0);
  EXPECT_EQ(find(TRV_PI_VAR, "a"), -1);
  EXPECT_EQ(find(TRV_PI_VAR, "b"), 1);
  EXPECT_EQ(find(TRV_PI_VAR, "c"), 0);
  EXPECT_EQ(put(TRV_PI_VAR, 0, "c"), 0);  // the name that it has
  EXPECT_EQ(put(TRV_PI_VAR, 2, "C"), 0);  // case counts
  EXPECT_EQ(find(TRV_PI_VAR, "C"), 2);
  EXPECT_EQ(put(TRV_PI_VAR, 0, ""), 0);
  EXPECT_EQ(find(TRV_PI_VAR, "c"), -1);
  EXPECT_EQ(put(TRV_PI_VAR, 1, "c"), 0);
}

TEST_F(Names, LengthsAndBadArguments) {
  ASSERT_EQ(TRV_append(task, TRV_ACC_CON, 1), 0);
  ASSERT_EQ(put(TRV_PI_CON, 0, "seven77"), 0);
  char text[16] = "????????";
  int32_t len = 0;
  EXPECT_EQ(TRV_getname(task, TRV_PI_CON, 0, 7, &len, text), TRV_RES_ERR_NAME_MAX_LEN);
  EXPECT_STREQ(text, "seven7");
  EXPECT_EQ(len, 7);
  EXPECT_EQ(TRV_getconname(task, 0, 8, text), 0);
  text[0] = '?';
  EXPECT_EQ(TRV_getconname(task, 0, 0, text), TRV_RES_ERR_NAME_MAX_LEN);
  EXPECT_EQ(text[0], '?');
  EXPECT_EQ(TRV_getname(task, TRV_PI_CON, 0, 0, &len, nullptr), 0);
  EXPECT_EQ(TRV_putobjname(task, "objective"), 0);
  EXPECT_EQ(TRV_getmaxnamelen(task, &len), 0);
  EXPECT_EQ(len, 9);
  EXPECT_EQ(TRV_putname(task, 3, 0, "x"), TRV_RES_ERR_INV_NAME_ITEM);
  EXPECT_EQ(TRV_putname(task, TRV_PI_VAR, 0, "x"), TRV_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(TRV_getnameindex(task, TRV_PI_CON, "", &len, &len), TRV_RES_ERR_NULL_NAME);
  EXPECT_EQ(find(TRV_PI_VAR, "x"), -1);  // no capacity at all
}

// Many items, named while they are appended, renamed in place and to longer names, then thinned out.
TEST_F(Names, SurviveGrowthRenamesAndRemovals) {
  constexpr int32_t n = 3000;
  for (int32_t i = 0; i < n; ++i) {
    ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, 1), 0);
    ASSERT_EQ(put(TRV_PI_VAR, i, "variable" + std::to_string(i)), 0);
  }
  for (int32_t round = 1; round < 6; ++round)
    for (int32_t i = 0; i < n; i += 7)
      ASSERT_EQ(put(TRV_PI_VAR, i, std::string(static_cast<std::size_t>(round * 5), 'r') + std::to_string(i)), 0);
  ASSERT_EQ(TRV_putobjname(task, "cost"), 0);
  const int32_t removed[] = {0, 14, 15};
  ASSERT_EQ(TRV_remove(task, TRV_ACC_VAR, 3, removed), 0);
  EXPECT_EQ(find(TRV_PI_VAR, "variable15"), -1);
  for (int32_t i = 1; i < n; ++i) {
    if (i == 14 || i == 15) continue;
    const std::string expected = i % 7 == 0 ? std::string(25, 'r') + std::to_string(i) : "variable" + std::to_string(i);
    const int32_t at = i < 14 ? i - 1 : i - 3;
    ASSERT_EQ(name(TRV_PI_VAR, at), expected);
    ASSERT_EQ(find(TRV_PI_VAR, expected), at);
  }
  ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, 1), 0);
  EXPECT_EQ(name(TRV_PI_VAR, n - 3), "");  // a new item at an old place has no name
  char text[8];
  EXPECT_EQ(TRV_getobjname(task, sizeof text, nullptr, text), 0);
  EXPECT_STREQ(text, "cost");
}

}  // namespace
