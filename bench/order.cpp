// Factor non-zeros and CPU time of the orderings beside SuiteSparse's AMD and METIS, on grids ("100x100", "20x20x20")
// and on the A A' of problem files. Ratios are to the better of the two.
#include <amd.h>
#include <metis.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <numeric>
#include <string>
#include <vector>

#include "order/symord.h"
#include "tarvo.h"

namespace {

using Lists = std::vector<std::vector<int32_t>>;

Lists grid(int32_t a, int32_t b, int32_t c) {
  Lists adj(static_cast<std::size_t>(a * b * c));
  const auto edge = [&](int32_t i, int32_t j) {
    adj[static_cast<std::size_t>(i)].push_back(j);
    adj[static_cast<std::size_t>(j)].push_back(i);
  };
  for (int32_t i = 0; i < a * b * c; ++i) {
    if (i % a + 1 < a) edge(i, i + 1);
    if (i / a % b + 1 < b) edge(i, i + a);
    if (i / (a * b) + 1 < c) edge(i, i + a * b);
  }
  return adj;
}

// A A' without the columns that a factorisation would treat apart.
Lists normal_matrix(const char* file) {
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr);
  TRV_initenv(env);
  TRV_makeemptytask(env, &task);
  int32_t m = 0, n = 0;
  if (TRV_readdata(task, file) == TRV_RES_OK) {
    TRV_getnumcon(task, &m);
    TRV_getnumvar(task, &n);
  }
  Lists rows(static_cast<std::size_t>(m)), columns;
  const double cut = std::max(50.0, 5.0 * std::sqrt(m));
  for (int32_t j = 0; j < n; ++j) {
    int32_t count = 0;
    TRV_getavecnumnz(task, TRV_ACC_VAR, j, &count);
    std::vector<int32_t> sub(static_cast<std::size_t>(count) + 1);
    std::vector<double> val(sub.size());
    TRV_getavec(task, TRV_ACC_VAR, j, &count, sub.data(), val.data());
    sub.resize(static_cast<std::size_t>(count));
    if (count > cut) sub.clear();
    for (const int32_t i : sub) rows[static_cast<std::size_t>(i)].push_back(j);
    columns.push_back(sub);
  }
  Lists adj(rows.size());
  std::vector<int32_t> seen(rows.size(), -1);
  for (int32_t i = 0; i < m; ++i) {
    auto& list = adj[static_cast<std::size_t>(i)];
    seen[static_cast<std::size_t>(i)] = i;
    for (const int32_t j : rows[static_cast<std::size_t>(i)]) {
      for (const int32_t k : columns[static_cast<std::size_t>(j)]) {
        if (seen[static_cast<std::size_t>(k)] == i) continue;
        seen[static_cast<std::size_t>(k)] = i;
        list.push_back(k);
      }
    }
  }
  TRV_deletetask(&task);
  TRV_deleteenv(&env);
  return adj;
}

// Non-zeros of the factor with its diagonal, row by row along the elimination tree.
int64_t factor_nnz(const Lists& adj, const std::vector<int32_t>& perm) {
  const std::size_t n = adj.size();
  std::vector<int32_t> place(n), parent(n, -1), mark(n, -1);
  for (std::size_t k = 0; k < n; ++k) place[static_cast<std::size_t>(perm[k])] = static_cast<int32_t>(k);
  int64_t nnz = 0;
  for (int32_t k = 0; k < static_cast<int32_t>(n); ++k) {
    mark[static_cast<std::size_t>(k)] = k;
    ++nnz;
    for (const int32_t other : adj[static_cast<std::size_t>(perm[static_cast<std::size_t>(k)])]) {
      int32_t i = place[static_cast<std::size_t>(other)];
      if (i > k) continue;
      for (; mark[static_cast<std::size_t>(i)] != k; i = parent[static_cast<std::size_t>(i)]) {
        if (parent[static_cast<std::size_t>(i)] < 0) parent[static_cast<std::size_t>(i)] = k;
        mark[static_cast<std::size_t>(i)] = k;
        ++nnz;
      }
    }
  }
  return nnz;
}

double seconds_since(std::clock_t start) { return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC; }

}  // namespace

int main(int argc, char** argv) {
  std::printf("%-24s %8s %9s | %10s %6s | %10s %6s | %-23s | %-23s | %-23s\n", "graph", "nodes", "edges", "AMD", "s",
              "METIS", "s", "method 1: ratio, s", "method 2", "method 0, passes");
  double sum[3] = {};
  int32_t count = 0;
  for (int arg = 1; arg < argc; ++arg) {
    int32_t a = 0, b = 0, c = 1;
    const Lists adj = std::sscanf(argv[arg], "%dx%dx%d", &a, &b, &c) >= 2 ? grid(a, b, c) : normal_matrix(argv[arg]);
    const auto n = static_cast<int32_t>(adj.size());
    std::vector<int32_t> ptr{0}, sub, lower;
    std::vector<int64_t> start{0};
    for (int32_t i = 0; i < n; ++i) {
      for (const int32_t j : adj[static_cast<std::size_t>(i)]) {
        sub.push_back(j);
        if (j > i) lower.push_back(j);
      }
      ptr.push_back(static_cast<int32_t>(sub.size()));
      start.push_back(static_cast<int64_t>(lower.size()));
    }
    if (lower.empty()) continue;
    std::vector<int32_t> perm(adj.size()), inverse(adj.size());
    std::clock_t from = std::clock();
    amd_order(n, ptr.data(), sub.data(), perm.data(), nullptr, nullptr);
    const double amd_seconds = seconds_since(from);
    const int64_t amd = factor_nnz(adj, perm);
    from = std::clock();
    idx_t nodes = n;
    METIS_NodeND(&nodes, ptr.data(), sub.data(), nullptr, nullptr, perm.data(), inverse.data());
    const double metis_seconds = seconds_since(from);
    const int64_t metis = factor_nnz(adj, perm);
    const std::string name = argv[arg];
    std::printf("%-24s %8d %9ld | %10ld %6.2f | %10ld %6.2f", name.substr(name.find_last_of('/') + 1).c_str(), n,
                static_cast<long>(lower.size()), static_cast<long>(amd), amd_seconds, static_cast<long>(metis),
                metis_seconds);
    tarvo::sysenv* env = tarvo::sysenv_make(tarvo::SysKind::task, false, nullptr, nullptr, nullptr);
    for (int32_t k = 0; k < 3; ++k) {
      tarvo::OrderCounts counts;
      from = std::clock();
      const int32_t result =
          tarvo::symord_order(env, (k + 1) % 3, {n, start.data(), lower.data()}, {}, {}, perm.data(), &counts);
      const double seconds = seconds_since(from);
      const int64_t nnz = result == 0 ? factor_nnz(adj, perm) : -1;
      const double ratio = static_cast<double>(nnz) / static_cast<double>(std::min(amd, metis));
      sum[k] += std::log(ratio);
      std::printf(" | %10ld %6.3f %5.2f", static_cast<long>(nnz), ratio, seconds);
      if (nnz != counts.nnz) std::printf(" (counted %ld)", static_cast<long>(counts.nnz));
      if (k == 2) std::printf(" %d", counts.usedgp);
    }
    tarvo::sysenv_delete(&env);
    std::printf("\n");
    std::fflush(stdout);
    ++count;
  }
  if (count > 0)
    std::printf("geometric means of the ratios: %.3f %.3f %.3f\n", std::exp(sum[0] / count), std::exp(sum[1] / count),
                std::exp(sum[2] / count));
  return 0;
}
