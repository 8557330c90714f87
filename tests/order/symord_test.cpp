// Fill-reducing orders: permutations whose counts a plain symbolic elimination confirms, on graphs with known fill.
#include "order/symord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>
#include <vector>

#include "order/sorder_internal.h"

namespace tarvo {
namespace {

struct Graph {
  explicit Graph(int32_t nodes) : adj(static_cast<std::size_t>(nodes)) {}
  void edge(int32_t i, int32_t j) {
    if (i != j) adj[static_cast<std::size_t>(std::max(i, j))].insert(std::min(i, j));
  }
  OrderGraph view() {
    start.assign(1, 0);
    sub.clear();
    for (const auto& row : adj) {
      sub.insert(sub.end(), row.begin(), row.end());
      start.push_back(static_cast<int64_t>(sub.size()));
    }
    return {static_cast<int32_t>(adj.size()), start.data(), sub.data()};
  }
  std::vector<std::set<int32_t>> adj;
  std::vector<int64_t> start;
  std::vector<int32_t> sub;
};

Graph grid(int32_t a, int32_t b, int32_t c) {
  Graph g(a * b * c);
  for (int32_t i = 0; i < a * b * c; ++i) {
    if (i % a + 1 < a) g.edge(i, i + 1);
    if (i / a % b + 1 < b) g.edge(i, i + a);
    if (i / (a * b) + 1 < c) g.edge(i, i + a * b);
  }
  return g;
}

// Sparse, with cliques, twins, leaves and a few nodes of high degree.
Graph mixture(uint32_t seed) {
  std::mt19937 rng(seed);
  const auto n = static_cast<int32_t>(1 + rng() % 120);
  Graph g(n);
  const auto any = [&] { return static_cast<int32_t>(rng() % static_cast<uint32_t>(n)); };
  for (auto k = rng() % static_cast<uint32_t>(3 * n); k-- > 0;) g.edge(any(), any());
  for (auto k = rng() % 4; k-- > 0;) {
    std::vector<int32_t> clique(2 + rng() % 12);
    for (int32_t& i : clique) i = any();
    for (const int32_t i : clique)
      for (const int32_t j : clique) g.edge(i, j);
  }
  for (auto k = rng() % 3; k-- > 0;) {
    const int32_t hub = any();
    for (int32_t i = 0; i < n; ++i)
      if (rng() % 8 != 0) g.edge(hub, i);
  }
  for (auto k = rng() % 6; k-- > 0;) {
    const int32_t i = any(), j = any(), twin = any();
    g.edge(i, twin);
    g.edge(j, twin);
  }
  return g;
}

// Counts of the factor by elimination on sets; -1 when perm is no permutation.
int64_t eliminate(const Graph& g, const std::vector<int32_t>& perm, double* work) {
  const std::size_t n = g.adj.size();
  std::vector<int32_t> place(n, -1);
  for (std::size_t k = 0; k < n; ++k) {
    if (perm[k] < 0 || perm[k] >= static_cast<int32_t>(n) || place[static_cast<std::size_t>(perm[k])] >= 0) return -1;
    place[static_cast<std::size_t>(perm[k])] = static_cast<int32_t>(k);
  }
  std::vector<std::vector<int32_t>> below(n);
  for (std::size_t i = 0; i < n; ++i) {
    for (const int32_t j : g.adj[i]) {
      const int32_t a = place[i], b = place[static_cast<std::size_t>(j)];
      below[static_cast<std::size_t>(std::min(a, b))].push_back(std::max(a, b));
    }
  }
  int64_t nnz = 0;
  *work = 0.0;
  for (auto& column : below) {
    std::sort(column.begin(), column.end());
    column.erase(std::unique(column.begin(), column.end()), column.end());
    const std::size_t count = column.size() + 1;
    nnz += static_cast<int64_t>(count);
    *work += static_cast<double>(count * count);
    if (column.size() > 1) {
      auto& parent = below[static_cast<std::size_t>(column[0])];
      parent.insert(parent.end(), column.begin() + 1, column.end());
    }
    std::vector<int32_t>().swap(column);
  }
  return nnz;
}

class Symord : public ::testing::Test {
 protected:
  void SetUp() override { env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr); }
  void TearDown() override { EXPECT_EQ(sysenv_delete(&env), SYS_OK); }
  // Orders and checks; the counts must be those of the order.
  OrderCounts order(Graph* g, int32_t method, const OrderOffer& offer = {}) {
    OrderCounts counts;
    perm.assign(g->adj.size(), -1);
    const OrderGraph view = g->view();
    EXPECT_EQ(symord_order(env, method, view, offer, {}, perm.data(), &counts), ORDER_OK);
    double work = 0.0;
    const int64_t nnz = eliminate(*g, perm, &work);
    EXPECT_GE(nnz, 0);
    if (method != ORDER_NONE && !g->sub.empty()) {
      EXPECT_EQ(counts.nnz, nnz);
      EXPECT_EQ(counts.work, work);
    }
    return counts;
  }
  sysenv* env = nullptr;
  std::vector<int32_t> perm;
};

TEST_F(Symord, CountsAreExactOnAnyGraph) {
  for (uint32_t seed = 0; seed < 400; ++seed) {
    Graph g = mixture(seed);
    for (int32_t method = 0; method <= 5; ++method) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << " method " << method);
      order(&g, method);
      if (HasFailure()) return;
    }
  }
}

TEST_F(Symord, FillOfGrids) {
  constexpr struct {
    int32_t k;
    int64_t degree, fill;  // minimum degree, minimum fill
  } reference[] = {{30, 10351, 10035}, {50, 38269, 34707}, {70, 91252, 91252}};
  for (const auto& r : reference) {
    Graph g = grid(r.k, r.k, 1);
    EXPECT_LE(static_cast<double>(order(&g, ORDER_APPMINLOC1).nnz), 1.12 * static_cast<double>(r.degree)) << r.k;
    const OrderCounts base = order(&g, ORDER_APPMINLOC2);
    EXPECT_LE(static_cast<double>(base.nnz), 1.05 * static_cast<double>(r.fill)) << r.k;
    EXPECT_LE(order(&g, ORDER_FREE).nnz, base.nnz) << r.k;
  }
}

TEST_F(Symord, SpecialGraphs) {
  Graph nothing(0), isolated(7), complete(40), star(200), twins(300);
  for (int32_t i = 0; i < 40; ++i)
    for (int32_t j = 0; j < i; ++j) complete.edge(i, j);
  for (int32_t i = 1; i < 200; ++i) star.edge(0, i);
  // A ring of 100 pairs; each pair's node 200 + k hangs on what its partner k hangs on.
  for (int32_t k = 0; k < 100; ++k) {
    for (const int32_t i : {k, 100 + k}) {
      twins.edge(i, 200 + k);
      twins.edge(i, 200 + (k + 1) % 100);
    }
  }
  for (int32_t method = 0; method <= 5; ++method) {
    order(&nothing, method);
    order(&isolated, method);
    order(&complete, method);
    order(&star, method);
    if (method != ORDER_NONE) {
      EXPECT_EQ(perm.back(), 0) << method;
    }
    order(&twins, method);
  }
  order(&twins, ORDER_APPMINLOC1);
  for (std::size_t k = 0; k + 1 < perm.size() && perm[k] < 200; k += 2)
    EXPECT_EQ(perm[k] % 100, perm[k + 1] % 100) << "twins stand side by side";
}

TEST_F(Symord, TightStorage) {
  for (const SymScore otype : {SCORE_MINLOC, SCORE_MINFILL}) {
    Graph g = grid(8, 8, 8);
    const OrderGraph view = g.view();
    int64_t nnz[2];
    for (int32_t tight = 0; tight < 2; ++tight) {
      SymOrd ord;
      OrderCounts counts;
      std::vector<int32_t> p(g.adj.size());
      ASSERT_TRUE(symord_make(&ord, env, view, otype));
      if (tight != 0) {
        ASSERT_TRUE(ord.sub.resize_keep(env, static_cast<std::size_t>(ord.ifree)));
      }
      ASSERT_EQ(symord_eliminate(&ord, nullptr, p.data(), &counts), ORDER_OK);
      double work = 0.0;
      EXPECT_EQ(eliminate(g, p, &work), counts.nnz);
      nnz[tight] = counts.nnz;
    }
    EXPECT_EQ(nnz[0], nnz[1]);
  }
}

// What the separators of all levels leave falls into small parts.
TEST_F(Symord, SeparatorsSeparate) {
  for (const Graph& shape : {grid(60, 60, 1), grid(14, 14, 14)}) {
    Graph g = shape;
    const OrderGraph view = g.view();
    SymOrd ord;
    SepWork work;
    work.env = env;
    std::vector<int32_t> depth(g.adj.size()), part(g.adj.size(), -1);
    int32_t maxdepth = 0;
    ASSERT_TRUE(symord_make(&ord, env, view, SCORE_MINFILL));
    ASSERT_EQ(sorder_partition(&work, ord, {}, depth.data(), &maxdepth), ORDER_OK);
    EXPECT_GE(maxdepth, 3);
    std::size_t largest = 0;
    std::ptrdiff_t separated = 0;
    for (std::size_t i = 0; i < depth.size(); ++i) {
      separated += depth[i] >= 0 ? 1 : 0;
      if (depth[i] >= 0 || part[i] >= 0) continue;
      std::vector<int32_t> queue{static_cast<int32_t>(i)};
      part[i] = 0;
      for (std::size_t k = 0; k < queue.size(); ++k) {
        for (int32_t t = 0; t < ord.iuse[queue[k]]; ++t) {
          const int32_t j = ord.sub[ord.ifir[queue[k]] + t];
          if (depth[static_cast<std::size_t>(j)] >= 0 || part[static_cast<std::size_t>(j)] >= 0) continue;
          part[static_cast<std::size_t>(j)] = 0;
          queue.push_back(j);
        }
      }
      largest = std::max(largest, queue.size());
    }
    EXPECT_LE(largest, 200U);
    EXPECT_LT(separated, static_cast<std::ptrdiff_t>(depth.size() / 2));
  }
}

TEST_F(Symord, PartitioningGainsInSpace) {
  Graph cube = grid(20, 20, 20), hub = grid(20, 20, 20);
  for (int32_t i = 1; i < 20 * 20 * 20; ++i) hub.edge(0, i);
  for (Graph* g : {&cube, &hub}) {
    const OrderCounts counts = order(g, ORDER_GRAPHPAR1);
    const std::vector<int32_t> once = perm;
    EXPECT_GE(counts.usedgp, 1);
    EXPECT_LT(counts.nnz, counts.basennz);
    EXPECT_LT(counts.work, counts.basework);
    order(g, ORDER_GRAPHPAR1);
    EXPECT_EQ(perm, once);
    // An order on offer is kept unless a pass beats it.
    const OrderOffer offer{once.data(), counts.nnz, counts.work};
    const OrderCounts again = order(g, ORDER_GRAPHPAR2, offer);
    EXPECT_EQ(again.basennz, counts.nnz);
    EXPECT_LE(again.nnz, counts.nnz);
  }
  EXPECT_EQ(perm.back(), 0) << "the hub";
  Graph small = grid(22, 22, 1);
  EXPECT_EQ(order(&small, ORDER_FREE).usedgp, 0);
}

TEST_F(Symord, NoMemoryAndStops) {
  Graph g = grid(40, 40, 1);
  const OrderGraph view = g.view();
  perm.resize(g.adj.size());
  OrderCounts counts;
  // The k-th allocation fails.
  static int64_t budget;
  const AllocFunc give = [](void*, std::size_t size) { return budget-- > 0 ? std::malloc(size) : nullptr; };
  const FreeFunc take = [](void*, void* p) { std::free(p); };
  bool failed = true;
  for (int64_t k = 2; failed; ++k) {
    budget = k;
    sysenv* limited = sysenv_make(SysKind::task, false, nullptr, give, take);
    if (limited == nullptr) continue;
    const int32_t result =
        symord_order(limited, k % 2 == 0 ? ORDER_FREE : ORDER_APPMINLOC1, view, {}, {}, perm.data(), &counts);
    failed = budget <= 0;
    EXPECT_TRUE(result == ORDER_OK || (failed && result == ORDER_SPACE)) << k;
    double work = 0.0;
    if (result == ORDER_OK) {
      EXPECT_EQ(eliminate(g, perm, &work), counts.nnz) << "an order to fall back on";
    }
    sysenv_delete(&limited);
  }
  // The hook stops at each of its calls.
  static int32_t left;
  OrderHook hook;
  hook.func = [](void*, int32_t, double) { return left-- > 0 ? 0 : 1; };
  int32_t result = ORDER_CANCELLED;
  for (int32_t k = 0; result != ORDER_OK; ++k) {
    left = k;
    result = symord_order(env, ORDER_FREE, view, {}, hook, perm.data(), &counts);
    EXPECT_EQ(result, left < 0 ? ORDER_CANCELLED : ORDER_OK);
  }
}

}  // namespace
}  // namespace tarvo
