// Copies and emptied tasks.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "system/rich_task.h"

namespace {

class Clone : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, ""), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_maketask(env, 10, 20, &task), 0);
    ASSERT_EQ(load_linear(task), 0);
    ASSERT_EQ(add_rest(task), 0);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&copy), 0);
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  std::string written(TRVtask which) {
    const std::string path = testing::TempDir() + "tarvo_clone.mps";
    EXPECT_EQ(TRV_writedata(which, path.c_str()), 0);
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr, copy = nullptr;
};

TEST_F(Clone, HoldsEverything) {
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_LOG_SIM, 9), 0);
  ASSERT_EQ(TRV_putdouparam(task, TRV_DPAR_DATA_TOL_AIJ_LARGE, 2.5), 0);  // would warn about the copied elements
  ASSERT_EQ(TRV_putstrparam(task, TRV_SPAR_STAT_KEY, "\"\\\"quoted\\\"\""), 0);
  const std::vector<int32_t> skc(3, TRV_SK_BAS);
  std::vector<double> x(7);
  for (size_t j = 0; j < x.size(); ++j) x[j] = 0.5 + static_cast<double>(j);
  const std::vector<int32_t> skx(7, TRV_SK_LOW);
  ASSERT_EQ(TRV_putsolution(task, TRV_SOL_BAS, skc.data(), skx.data(), nullptr, x.data(), x.data(), x.data(), x.data(),
                            x.data(), x.data(), x.data(), nullptr),
            0);
  ASSERT_EQ(TRV_clonetask(task, &copy), 0);

  EXPECT_EQ(written(copy), written(task));
  using Reader = int32_t (*)(TRVtask, int32_t*);
  for (const Reader read :
       {TRV_getmaxnumvar, TRV_getmaxnumcon, TRV_getmaxnumcone, TRV_getmaxnumanz, TRV_getmaxnumqnz, TRV_getnumvar,
        TRV_getnumcon, TRV_getnumcone, TRV_getnumintvar, TRV_getnumanz, TRV_getobjsense, TRV_getprobtype}) {
    int32_t ours = -1;
    int32_t theirs = -2;
    EXPECT_EQ(read(task, &ours), 0);
    EXPECT_EQ(read(copy, &theirs), 0);
    EXPECT_EQ(ours, theirs);
  }
  char name[64];
  EXPECT_EQ(TRV_gettaskname(copy, sizeof name, name), 0);
  EXPECT_STREQ(name, "rich");
  int32_t len = 0;
  EXPECT_EQ(TRV_getstrparam(copy, TRV_SPAR_STAT_KEY, sizeof name, &len, name), 0);
  EXPECT_STREQ(name, "\"quoted\"");
  int32_t priority = 0;
  int32_t direction = 0;
  EXPECT_EQ(TRV_getvarbranchorder(copy, 1, &priority, &direction), 0);
  EXPECT_EQ(priority, 7);
  EXPECT_EQ(direction, TRV_BRANCH_DIR_DOWN);
  int32_t assigned = 0;
  int32_t index = -1;
  EXPECT_EQ(TRV_getnameindex(copy, TRV_PI_VAR, "x2", &assigned, &index), 0);
  EXPECT_EQ(index, 2);
  int32_t statuses[4] = {-1, -1, -2, -2};
  std::vector<double> xx(7);
  EXPECT_EQ(TRV_getsolutionstatus(task, TRV_SOL_BAS, &statuses[0], &statuses[1]), 0);
  EXPECT_EQ(TRV_getsolutionstatus(copy, TRV_SOL_BAS, &statuses[2], &statuses[3]), 0);
  EXPECT_EQ(statuses[0], statuses[2]);
  EXPECT_EQ(statuses[1], statuses[3]);
  EXPECT_EQ(TRV_getsolutionslice(copy, TRV_SOL_BAS, TRV_SOL_ITEM_XX, 0, 7, xx.data()), 0);
  EXPECT_EQ(xx, x);
}

TEST_F(Clone, IsIndependent) {
  ASSERT_EQ(TRV_clonetask(task, &copy), 0);
  const std::string before = written(task);
  EXPECT_EQ(TRV_append(copy, TRV_ACC_VAR, 50), 0);
  EXPECT_EQ(TRV_putaij(copy, 0, 30, 4.0), 0);
  EXPECT_EQ(TRV_putname(copy, TRV_PI_VAR, 0, "other"), 0);
  EXPECT_EQ(TRV_putcj(copy, 0, 77.0), 0);
  EXPECT_EQ(TRV_removecone(copy, 0), 0);
  EXPECT_EQ(written(task), before);
  EXPECT_EQ(TRV_deletetask(&task), 0);
  EXPECT_NE(written(copy), before);
}

TEST_F(Clone, ResizingEmptiesTheTask) {
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_LOG_SIM, 9), 0);
  EXPECT_EQ(TRV_resizetask(task, 1, 1, 0, 0, 0), 0);
  int32_t value = -1;
  using Reader = int32_t (*)(TRVtask, int32_t*);
  for (const Reader read : {TRV_getnumvar, TRV_getnumcon, TRV_getnumcone, TRV_getnumanz, TRV_getnumintvar}) {
    EXPECT_EQ(read(task, &value), 0);
    EXPECT_EQ(value, 0);
  }
  EXPECT_EQ(load_linear(task), 0);
  EXPECT_NE(TRV_resizetask(task, -1, 5, 0, 0, 0), 0);
  EXPECT_EQ(TRV_getmaxnumvar(task, &value), 0);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(TRV_getintparam(task, TRV_IPAR_LOG_SIM, &value), 0);
  EXPECT_EQ(value, 9);
}

}  // namespace
