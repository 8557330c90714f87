// The constraint matrix through the public calls, against a model that keeps every element in a map.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

using Vec = std::map<int32_t, double>;

class Matrix : public testing::Test {
 protected:
  void open(const char* debug, int32_t numcon, int32_t numvar) {
    ASSERT_EQ(TRV_makeenv(&env, &budget, limited, release, debug), TRV_RES_OK);
    ASSERT_EQ(TRV_initenv(env), TRV_RES_OK);
    ASSERT_EQ(TRV_maketask(env, 0, 0, &task), TRV_RES_OK);
    ASSERT_EQ(TRV_append(task, TRV_ACC_CON, numcon), TRV_RES_OK);
    ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, numvar), TRV_RES_OK);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), TRV_RES_OK);
    EXPECT_EQ(TRV_deleteenv(&env), TRV_RES_OK);
  }
  [[nodiscard]] std::vector<std::pair<int32_t, double>> vec(int32_t accmode, int32_t i) const {
    int32_t n = 0;
    EXPECT_EQ(TRV_getavecnumnz(task, accmode, i, &n), TRV_RES_OK);
    std::vector<int32_t> sub(static_cast<std::size_t>(n));
    std::vector<double> val(sub.size());
    EXPECT_EQ(TRV_getavec(task, accmode, i, &n, sub.data(), val.data()), TRV_RES_OK);
    std::vector<std::pair<int32_t, double>> pairs;
    for (std::size_t k = 0; k < sub.size(); ++k) pairs.emplace_back(sub[k], val[k]);
    return pairs;
  }
  [[nodiscard]] int32_t item(int32_t which) const {
    int32_t value = 0;
    EXPECT_EQ(TRV_getintinf(task, which, &value), TRV_RES_OK);
    return value;
  }

  // Memory fails while `budget` is 0; negative: no limit.
  static void* limited(void* handle, std::size_t size) {
    auto* left = static_cast<int*>(handle);
    if (*left == 0) return nullptr;
    if (*left > 0) --*left;
    return std::malloc(size);
  }
  static void release(void*, void* p) { std::free(p); }
  int budget = -1;
  TRVenv env = nullptr;
  TRVtask task = nullptr;
};

TEST_F(Matrix, ElementsKeepTheOrderOfTheirComing) {
  open(nullptr, 4, 4);
  const int32_t sub[] = {1, 0};
  const double val[] = {10, 20};
  ASSERT_EQ(TRV_putavec(task, TRV_ACC_VAR, 0, 2, sub, val), TRV_RES_OK);
  TRV_putaij(task, 3, 0, 4);
  TRV_putaij(task, 2, 0, 3);
  using P = std::pair<int32_t, double>;
  EXPECT_EQ(vec(TRV_ACC_VAR, 0), (std::vector<P>{{1, 10}, {0, 20}, {2, 3}, {3, 4}}));
  const int32_t turns = item(TRV_IINF_STO_NUM_A_TRANSPOSES);
  EXPECT_EQ(vec(TRV_ACC_CON, 0), (std::vector<P>{{0, 20}}));
  EXPECT_EQ(vec(TRV_ACC_VAR, 0), (std::vector<P>{{0, 20}, {1, 10}, {2, 3}, {3, 4}}));
  EXPECT_EQ(item(TRV_IINF_STO_NUM_A_TRANSPOSES), turns + 2);
}

TEST_F(Matrix, AVectorWriteReplacesPendingAndStoredElements) {
  open(nullptr, 4, 4);
  using P = std::pair<int32_t, double>;
  const int32_t sub[] = {0, 2, 2, 3};
  const double val[] = {1, 5, -5, 1e-13};
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
    for (int32_t k = 0; k < 4; ++k) TRV_putaij(task, accmode == TRV_ACC_CON ? 1 : k, accmode == TRV_ACC_CON ? k : 1, 9);
    EXPECT_EQ(TRV_putavec(task, accmode, 1, 4, sub, val), TRV_RES_OK);
    EXPECT_EQ(vec(accmode, 1), (std::vector<P>{{0, 1}}));
  }
  // Refused input changes nothing, and the scratch buffers come back clean.
  const int32_t bad[] = {0, 3, 4};
  const double three[] = {7, 7, 7};
  EXPECT_EQ(TRV_putavec(task, TRV_ACC_VAR, 1, 3, bad, three), TRV_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(TRV_putavec(task, TRV_ACC_VAR, -1, 1, bad, three), TRV_RES_ERR_INDEX_IS_TOO_SMALL);
  EXPECT_EQ(TRV_putavec(task, 2, 1, 1, bad, three), TRV_RES_ERR_INVALID_ACCMODE);
  EXPECT_EQ(vec(TRV_ACC_VAR, 1), (std::vector<P>{{0, 1}}));
}

struct Storm {
  const char* debug;
  int32_t maxnumanz, threshold, steps;
};
class MatrixStorm : public Matrix, public testing::WithParamInterface<Storm> {
 protected:
  // The model: columns of rows. Appending and removing move the keys.
  std::vector<Vec> columns;
  int32_t numcon = 0;
  std::mt19937 rng{7};
  int32_t below(int32_t n) { return static_cast<int32_t>(rng() % static_cast<uint32_t>(n)); }
  [[nodiscard]] int32_t numvar() const { return static_cast<int32_t>(columns.size()); }
  [[nodiscard]] Vec model_vec(int32_t accmode, int32_t i) const {
    if (accmode == TRV_ACC_VAR) return columns[static_cast<std::size_t>(i)];
    Vec row;
    for (int32_t j = 0; j < numvar(); ++j)
      if (const auto it = columns[static_cast<std::size_t>(j)].find(i);
          it != columns[static_cast<std::size_t>(j)].end())
        row[j] = it->second;
    return row;
  }
  void model_put(int32_t i, int32_t j, double v) {
    Vec& column = columns[static_cast<std::size_t>(j)];
    if (v == 0)
      column.erase(i);
    else
      column[i] = v;
  }
  void put_vector() {
    const int32_t accmode = below(2), count = accmode == TRV_ACC_CON ? numcon : numvar();
    const int32_t across = accmode == TRV_ACC_CON ? numvar() : numcon, i = below(count);
    std::vector<int32_t> sub;
    std::vector<double> val;
    Vec sum;
    for (int32_t n = below(across + 1); n > 0; --n) {
      sub.push_back(below(across));
      val.push_back(below(9) - 4);
      sum[sub.back()] += val.back();
    }
    ASSERT_EQ(TRV_putavec(task, accmode, i, static_cast<int32_t>(sub.size()), sub.data(), val.data()), TRV_RES_OK);
    for (int32_t k = 0; k < across; ++k) accmode == TRV_ACC_CON ? model_put(i, k, sum[k]) : model_put(k, i, sum[k]);
  }
  void remove_some() {
    const int32_t accmode = below(2), count = accmode == TRV_ACC_CON ? numcon : numvar();
    std::vector<int32_t> sub;
    for (int32_t n = 1 + below(4); n > 0; --n) sub.push_back(below(count));
    sub.push_back(sub[0]);
    ASSERT_EQ(TRV_remove(task, accmode, static_cast<int32_t>(sub.size()), sub.data()), TRV_RES_OK);
    std::sort(sub.begin(), sub.end());
    sub.erase(std::unique(sub.begin(), sub.end()), sub.end());
    if (accmode == TRV_ACC_VAR) {
      for (auto it = sub.rbegin(); it != sub.rend(); ++it) columns.erase(columns.begin() + *it);
      return;
    }
    numcon -= static_cast<int32_t>(sub.size());
    for (Vec& column : columns) {
      Vec kept;
      for (const auto& [i, v] : column) {
        const auto at = std::lower_bound(sub.begin(), sub.end(), i);
        if (at == sub.end() || *at != i) kept[i - static_cast<int32_t>(at - sub.begin())] = v;
      }
      column.swap(kept);
    }
  }
  void check_vector() {
    const int32_t accmode = below(2), i = below(accmode == TRV_ACC_CON ? numcon : numvar());
    const auto pairs = vec(accmode, i);
    const Vec found(pairs.begin(), pairs.end());
    ASSERT_EQ(found.size(), pairs.size());
    ASSERT_EQ(found, model_vec(accmode, i));
  }
  void check_slice() {
    const int32_t accmode = below(2), count = accmode == TRV_ACC_CON ? numcon : numvar();
    int32_t first = below(count + 1), last = below(count + 1), numnz = 0, total = 0;
    if (first > last) std::swap(first, last);
    for (int32_t i = first; i < last; ++i) total += static_cast<int32_t>(model_vec(accmode, i).size());
    ASSERT_EQ(TRV_getaslicenumnz(task, accmode, first, last, &numnz), TRV_RES_OK);
    ASSERT_EQ(numnz, total);
    const int32_t front = 2, size = total + front;
    std::vector<int32_t> ptrb(static_cast<std::size_t>(last - first) + 1), ptre(ptrb),
        sub(static_cast<std::size_t>(size)), subi(sub), subj(sub);
    std::vector<double> val(sub.size()), tval(sub.size());
    int32_t surplus = total - 1;
    if (total > 0) {
      ASSERT_EQ(
          TRV_getaslice(task, accmode, first, last, size, &surplus, ptrb.data(), ptre.data(), sub.data(), val.data()),
          TRV_RES_ERR_NEGATIVE_SURPLUS);
    }
    surplus = total;
    ASSERT_EQ(
        TRV_getaslice(task, accmode, first, last, size, &surplus, ptrb.data(), ptre.data(), sub.data(), val.data()),
        TRV_RES_OK);
    ASSERT_EQ(surplus, 0);
    surplus = total;
    ASSERT_EQ(TRV_getaslicetrip(task, accmode, first, last, size, &surplus, subi.data(), subj.data(), tval.data()),
              TRV_RES_OK);
    for (int32_t i = first; i < last; ++i) {
      Vec found;
      for (auto k = static_cast<std::size_t>(ptrb[static_cast<std::size_t>(i - first)]);
           k < static_cast<std::size_t>(ptre[static_cast<std::size_t>(i - first)]); ++k) {
        found[sub[k]] = val[k];
        ASSERT_EQ(accmode == TRV_ACC_CON ? subi[k] : subj[k], i);
        ASSERT_EQ(accmode == TRV_ACC_CON ? subj[k] : subi[k], sub[k]);
        ASSERT_EQ(tval[k], val[k]);
      }
      ASSERT_EQ(found, model_vec(accmode, i));
    }
  }
};

TEST_P(MatrixStorm, AgreesWithTheModel) {
  open(GetParam().debug, 0, 0);
  ASSERT_EQ(TRV_putintparam(task, TRV_IPAR_MAXNUMANZ_DOUBLE_TRH, GetParam().threshold), TRV_RES_OK);
  ASSERT_EQ(TRV_putmaxnumanz(task, GetParam().maxnumanz), TRV_RES_OK);
  for (int32_t step = 0; step < GetParam().steps && !HasFailure(); ++step) {
    if (numcon < 3 || numvar() < 3 || (numcon < 60 && below(100) == 0)) {
      const int32_t n = 1 + below(8);
      ASSERT_EQ(TRV_append(task, TRV_ACC_CON, n), TRV_RES_OK);
      ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, n + 1), TRV_RES_OK);
      numcon += n;
      columns.resize(columns.size() + static_cast<std::size_t>(n) + 1);
    }
    const int32_t i = below(numcon), j = below(8) == 0 ? 0 : below(numvar());
    const int32_t action = below(100);
    if (action < 60) {
      const double v = below(4) == 0 ? 1e-13 : below(50) - 10;
      ASSERT_EQ(TRV_putaij(task, i, j, v), TRV_RES_OK);
      model_put(i, j, v == 1e-13 ? 0 : v);
    } else if (action < 85) {
      double v = -1;
      ASSERT_EQ(TRV_getaij(task, i, j, &v), TRV_RES_OK);
      const Vec& column = columns[static_cast<std::size_t>(j)];
      ASSERT_EQ(v, column.count(i) != 0 ? column.at(i) : 0.0);
    } else if (action < 86) {
      put_vector();
    } else if (action < 90) {
      check_vector();
    } else if (action == 94) {
      check_slice();
    } else if (action == 95 && numcon > 30 && numvar() > 30) {
      remove_some();
    } else if (action == 96) {
      int32_t nz = 0, total = 0;
      for (const Vec& column : columns) total += static_cast<int32_t>(column.size());
      ASSERT_EQ(TRV_getnumanz(task, &nz), TRV_RES_OK);
      ASSERT_EQ(nz, total);
      if (nz > 0) {
        ASSERT_EQ(TRV_putmaxnumanz(task, nz - 1), TRV_RES_ERR_MAXNUMANZ);
      }
      if (below(4) == 0) {
        ASSERT_EQ(TRV_putmaxnumanz(task, nz + below(20)), TRV_RES_OK);
      }
    } else if (action == 97) {
      // Memory runs out at some point of a read; nothing is lost by it.
      budget = below(3);
      int32_t n = 0;
      const int32_t rc = TRV_getavecnumnz(task, below(2), below(3), &n);
      budget = -1;
      ASSERT_TRUE(rc == TRV_RES_OK || rc == TRV_RES_ERR_SPACE) << rc;
    }
  }
}
INSTANTIATE_TEST_SUITE_P(Sizes, MatrixStorm,
                         testing::Values(Storm{nullptr, 0, -1, 100000}, Storm{nullptr, 100000, -1, 50000},
                                         Storm{nullptr, 0, 0, 50000}, Storm{"", 0, 0, 20000}));

}  // namespace
