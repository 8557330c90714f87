// The sparse matrices below the task, and the vector loops.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <vector>

#include "cpub/rvector.h"
#include "cpub/spmat.h"
#include "cpub/sprmat.h"

namespace tarvo {
namespace {

class SparseMatrix : public testing::Test {
 protected:
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  ~SparseMatrix() override { EXPECT_EQ(sysenv_delete(&env), SYS_OK); }
};

TEST_F(SparseMatrix, ALentStoreServesRowsWithoutTurningAndRefusesChanges) {
  sprmat* m = sprmat_make(env, 3, 3);
  sprmat_appendrows(m, 3);
  sprmat_appendcols(m, 2);
  for (int32_t j = 0; j < 2; ++j)
    for (int32_t i = j; i < 3; ++i) sprmat_putelement(m, i, j, 10 * i + j + 1);
  SprmatRaw raw;
  ASSERT_EQ(sprmat_getraw(m, &raw), SPRMAT_OK);
  const int32_t* const sub = raw.sub;
  int32_t n = 0, rows[3], cols[3], free = 3, begin[1], end[1];
  double val[3], v = 0;
  EXPECT_EQ(sprmat_getvec(m, true, 2, &n, cols, val), SPRMAT_OK);
  EXPECT_EQ(n, 2);
  EXPECT_EQ(val[1], 22);
  EXPECT_EQ(sprmat_getslice(m, true, 1, 2, 3, &free, begin, end, rows, val), SPRMAT_OK);
  EXPECT_EQ(free, 1);
  EXPECT_EQ(rows[1], 1);
  EXPECT_EQ(sprmat_getelement(m, 1, 1, &v), SPRMAT_OK);
  EXPECT_EQ(v, 12);
  EXPECT_EQ(sprmat_putelement(m, 0, 1, 5), SPRMAT_LOCKED);
  EXPECT_EQ(sprmat_putrow(m, 0, 1, rows, val), SPRMAT_LOCKED);
  EXPECT_EQ(sprmat_appendcols(m, 1), SPRMAT_LOCKED);
  EXPECT_EQ(sprmat_putmaxcols(m, 100), SPRMAT_LOCKED);
  EXPECT_EQ(sprmat_resize(m, 100), SPRMAT_LOCKED);
  EXPECT_EQ(sprmat_getnumtransposes(m), 0);
  // A second borrower sees the same arrays; the last one to go unlocks.
  ASSERT_EQ(sprmat_getraw(m, &raw), SPRMAT_OK);
  EXPECT_EQ(raw.sub, sub);
  sprmat_releaseraw(m);
  EXPECT_EQ(sprmat_putelement(m, 0, 1, 5), SPRMAT_LOCKED);
  sprmat_releaseraw(m);
  EXPECT_EQ(sprmat_putelement(m, 0, 1, 5), SPRMAT_OK);
  EXPECT_EQ(sprmat_resize(m, INT_MAX), SPRMAT_SPACE);
  sprmat_delete(&m);
}

TEST_F(SparseMatrix, ALookUpThatPassesALongListMergesIt) {
  sprmat* m = sprmat_make(env, 200, 3);
  sprmat_appendrows(m, 200);
  sprmat_appendcols(m, 3);
  ASSERT_EQ(sprmat_resize(m, 10000), SPRMAT_OK);
  const auto get = [&](int32_t i, int32_t j) {
    double v = -1;
    EXPECT_EQ(sprmat_getelement(m, i, j, &v), SPRMAT_OK);
    return v;
  };
  for (int32_t i = 0; i < 100; ++i) sprmat_putelement(m, i, 0, i + 1);
  sprmat_putelement(m, 5, 1, 7);
  EXPECT_EQ(get(150, 0), 0);
  sprmat_putelement(m, 3, 0, 0);
  sprmat_putelement(m, 120, 0, 9);
  sprmat_putelement(m, 50, 0, 8);
  EXPECT_EQ(get(3, 0), 0);
  EXPECT_EQ(get(50, 0), 8);
  EXPECT_EQ(get(51, 0), 52);
  int32_t n = 0;
  EXPECT_EQ(sprmat_getnumnz(m, &n), SPRMAT_OK);
  EXPECT_EQ(n, 101);
  EXPECT_EQ(sprmat_getvec(m, false, 0, &n, nullptr, nullptr), SPRMAT_OK);
  EXPECT_EQ(n, 100);
  EXPECT_EQ(get(5, 1), 7);
  EXPECT_EQ(get(120, 0), 9);
  sprmat_delete(&m);
}

TEST_F(SparseMatrix, RewritingColumnsReusesTheirHoles) {
  sprmat* m = sprmat_make(env, 100, 10);
  sprmat_appendrows(m, 100);
  sprmat_appendcols(m, 10);
  ASSERT_EQ(sprmat_resize(m, 1000), SPRMAT_OK);
  std::vector<int32_t> sub(100);
  std::vector<double> val(100, 1.0);
  for (int32_t k = 0; k < 100; ++k) sub[static_cast<std::size_t>(k)] = k;
  // Each column grows 20 times up to 40 elements: 400 in the end, 8,200 places without the holes.
  for (int32_t n = 2; n <= 40; n += 2)
    for (int32_t j = 0; j < 10; ++j) ASSERT_EQ(sprmat_putcol(m, j, n, sub.data(), val.data()), SPRMAT_OK);
  EXPECT_EQ(sprmat_getmaxnz(m), 1000);
  sprmat_delete(&m);
}

TEST_F(SparseMatrix, TransposesWithAPermutationAndRefreshesValues) {
  // Vectors {1:2, 0:3}, {}, {1:4} behind 5 alien positions.
  int32_t sub[] = {1, 0, 1}, ptrb[] = {5, 7, 7}, ptre[] = {7, 7, 8};
  double val[] = {2, 3, 4};
  spmat* a = spmat_make(env, 3, 2);
  spmat_ealloc(a, 3, 2, 5, 3, ptrb, ptre, sub, val);
  spmat* at = nullptr;
  const int32_t map[] = {2, 0, 1};
  ASSERT_TRUE(spmat_transpose(a, map, false, &at, false));
  EXPECT_EQ(spmat_getnumnz(at), 3);
  double x[] = {100, 10, 1};
  EXPECT_EQ(spmat_dot(at, 1, x), 2 * 1 + 4 * 10);  // vector 0 got index 2, vector 2 index 1
  val[0] = 7;
  ASSERT_TRUE(spmat_transpose(a, map, false, &at, true));
  EXPECT_EQ(spmat_dot(at, 1, x), 7 * 1 + 4 * 10);
  ASSERT_TRUE(spmat_transpose(a, map, true, &at, false));
  EXPECT_EQ(spmat_dot(at, 1, x), 7 * 10 + 4 * 100);  // index k is vector map[k]

  spmat* copy = spmat_clone(a, 2);
  EXPECT_FALSE(spmat_vresize(copy, 0, 3));
  EXPECT_TRUE(spmat_vresize(copy, 1, 2));
  copy->sub[copy->ptrb[1]] = 0;
  copy->sub[copy->ptrb[1] + 1] = 1;
  copy->val[copy->ptrb[1]] = copy->val[copy->ptrb[1] + 1] = 1;
  EXPECT_TRUE(spmat_vresize(copy, 0, 1));
  double y[] = {0, 0};
  for (int32_t j = 0; j < 3; ++j) spmat_axpy(2, copy, j, y);
  EXPECT_EQ(y[0], 2);
  EXPECT_EQ(y[1], 24);
  for (spmat** m : {&a, &at, &copy}) spmat_delete(m);
}

TEST(Vectors, NormsNeitherOverflowNorLoseNan) {
  const double big[] = {3e200, 4e200}, tiny[] = {3e-200, 4e-200}, bad[] = {1, NAN, 2};
  EXPECT_DOUBLE_EQ(rvec_norm(2, big), 5e200);
  EXPECT_DOUBLE_EQ(rvec_norm(2, tiny), 5e-200);
  EXPECT_TRUE(std::isnan(rvec_norm(3, bad)));
  EXPECT_EQ(rvec_norm(0, nullptr), 0.0);
}

TEST(Vectors, LongLoopsInParallelAgreeWithShortOnes) {
  const int32_t n = 150000;
  std::vector<double> x(static_cast<std::size_t>(n)), y(x.size()), z(x.size());
  for (std::size_t k = 0; k < x.size(); ++k) {
    x[k] = static_cast<double>(k % 7) - 3;
    y[k] = z[k] = static_cast<double>(k % 5);
  }
  rvec_hadamard(n, 2, x.data(), y.data());
  for (std::size_t k = 0; k < x.size(); ++k) ASSERT_EQ(y[k], 2 * x[k] * z[k]);
  EXPECT_NEAR(rvec_norm(n, x.data()), std::sqrt(rvec_dot(n, x.data(), x.data())), 1e-9);
}

TEST(Vectors, IndexedLoopsTouchTheirIndicesAlone) {
  const int32_t sub[] = {3, 1};
  const double x[] = {10, 20, 30, 40};
  double y[] = {1, 1, 1, 1};
  rvec_axpy_scatter(2, 2, x, sub, y);
  rvec_axpy_at(1, -1, x, sub, y);
  EXPECT_EQ(y[3], 1 + 20 - 40);
  EXPECT_EQ(rvec_dot_gather(2, x, sub, y), 10 * -19 + 20 * 41);
  rvec_axpy(4, -1, x, y);
  rvec_scale(4, 2, y);
  EXPECT_EQ(y[0], -18);
  double packed[2];
  rvec_gather(2, y, sub, packed);
  rvec_clear_at(2, sub, y);
  EXPECT_EQ(rvec_maxabs(4, y), 58);
  rvec_scatter(2, packed, sub, y);
  EXPECT_EQ(y[3], 2 * (-19 - 40));
  rvec_fill(4, 0, y);
  EXPECT_EQ(rvec_maxabs(4, y), 0);
}

}  // namespace
}  // namespace tarvo
