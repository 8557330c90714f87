#include "tarvo/bufpool.h"

#include <gtest/gtest.h>

namespace tarvo {
namespace {

TEST(BufferPool, HandsOutTheSmallestFittingBufferOfItsKind) {
  Env* env = nullptr;
  Task* task = nullptr;
  ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, (testing::TempDir() + "bufpool").c_str()), TRV_RES_OK);
  ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
  ASSERT_EQ(TRV_maketask(env, 0, 0, &task), TRV_RES_OK);
  int32_t response = TRV_RES_OK;
  void *p5 = nullptr, *p9 = nullptr, *q = nullptr;
  task_getbuf(task, 5, 4, 0, &p5, &response);
  task_getbuf(task, 9, 4, 0, &p9, &response);
  task_putbuf(task, 4, 0, &p9);
  task_putbuf(task, 4, 0, &p5);
  task_getbuf(task, 6, 4, 0, &q, &response);
  EXPECT_EQ(q, p9);
  task_putbuf(task, 4, 0, &q);
  task_getbuf(task, 1, 4, 0, &q, &response);
  EXPECT_EQ(q, p5);
  task_putbuf(task, 4, 0, &q);

  {  // a zeroed request never gets a buffer that came back with any content
    Lease<int32_t> zero(task, 5, Fill::zero, &response);
    EXPECT_NE(static_cast<void*>(zero.data()), p5);
    EXPECT_NE(static_cast<void*>(zero.data()), p9);
    for (std::size_t k = 0; k < 5; ++k) EXPECT_EQ(zero[k], 0);
    bufpool_release(task);  // the lent one goes when it comes back
  }
  task_getbuf(task, 0, 8, 0, &q, &response);
  EXPECT_EQ(q, nullptr);
  EXPECT_EQ(response, TRV_RES_OK);
  response = TRV_RES_ERR_INDEX_IS_TOO_SMALL;
  task_getbuf(task, 3, 8, 0, &q, &response);
  EXPECT_EQ(q, nullptr);
  EXPECT_EQ(response, TRV_RES_ERR_INDEX_IS_TOO_SMALL);
  EXPECT_EQ(TRV_deletetask(&task), TRV_RES_OK);
  EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK);
}

}  // namespace
}  // namespace tarvo
