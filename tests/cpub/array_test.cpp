#include "cpub/array.h"

#include <gtest/gtest.h>

namespace tarvo {
namespace {

// An allocator that fails from a given call on.
struct Budget {
  int left;
};
void* limited(void* handle, std::size_t size) {
  auto* b = static_cast<Budget*>(handle);
  return b->left-- > 0 ? std::malloc(size) : nullptr;
}
void release(void*, void* p) { std::free(p); }

TEST(Array, KeepsItsContentWhenMemoryRunsOut) {
  Budget budget{2};  // the manager and the record of a sysenv
  sysenv* env = sysenv_make(SysKind::task, false, &budget, limited, release);
  ASSERT_NE(env, nullptr);
  budget.left = 1;
  {
    Array<int32_t> a;
    EXPECT_TRUE(a.alloc(env, 0));
    EXPECT_TRUE(a.alloc(env, 2));
    a[0] = 7;
    a[1] = 8;
    EXPECT_FALSE(a.resize_keep(env, 5));
    EXPECT_FALSE(a.alloc(env, SIZE_MAX / 2));
    EXPECT_EQ(a.size(), 2U);
    EXPECT_EQ(a[1], 8);
    budget.left = 1;
    EXPECT_TRUE(a.resize_keep(env, 4, Fill::zero));
    EXPECT_EQ(a[0], 7);
    EXPECT_EQ(a[3], 0);
  }
  sysenv_delete(&env);
}

TEST(Workspace, AlignsItsPartsAndRefusesOverflow) {
  sysenv* env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
  {
    Workspace ws(env);
    double* x = nullptr;
    int32_t* mark = nullptr;
    int32_t* none = nullptr;
    ws.add(&x, 3);
    ws.add(&mark, 5, Fill::zero);
    ws.add(&none, 0);
    ASSERT_TRUE(ws.commit());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(x) % 64, 0U);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(mark) % 64, 0U);
    EXPECT_EQ(mark[4], 0);
    EXPECT_EQ(none, nullptr);
    Workspace big(env);
    big.add(&x, SIZE_MAX / 8);
    big.add(&x, SIZE_MAX / 8);
    EXPECT_FALSE(big.commit());
  }
  sysenv_delete(&env);
}

}  // namespace
}  // namespace tarvo
