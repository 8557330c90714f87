// Factorisation, solves and updates on bases as a simplex method meets them: nearly triangular, with many logicals and
// a small nucleus. The growth of a time with the rows is what to look at: solves with sparse results should hardly
// grow.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "lu/lu.h"

namespace {

using namespace tarvo;

struct Basis {
  sysenv* env = nullptr;
  lu* factor = nullptr;
  int32_t n;
  std::vector<int32_t> beg, sub, list, spikesub, outsub, marks, iwork;
  std::vector<double> val, v, spike, x, rwork;
  std::mt19937_64 rng{7};

  explicit Basis(int32_t size) : n(size) {
    const auto count = static_cast<std::size_t>(n);
    env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
    if (lu_make(env, n, n, &factor) != LU_OK || lu_putwsze(factor, 40 * int64_t{n}) != LU_OK) std::abort();
    std::vector<int32_t> order(count);
    for (int32_t i = 0; i < n; ++i) order[static_cast<std::size_t>(i)] = i;
    std::shuffle(order.begin(), order.end(), rng);
    // Half logicals; else short chains, and one column in a hundred reaches anywhere and makes the nucleus.
    beg.push_back(0);
    for (int32_t j = 0; j < n; ++j) {
      const auto at = static_cast<std::size_t>(j);
      const bool logical = rng() % 2 == 0;
      add(order[at], logical ? -1.0 : 3.0);
      if (!logical) {
        for (int k = 0; k < 2; ++k) {
          const bool anywhere = rng() % 100 == 0;
          const std::size_t near = std::min(count - 1, at + 1 + rng() % 30);
          add(order[anywhere ? rng() % count : near], 1.0);
        }
      }
      beg.push_back(static_cast<int32_t>(sub.size()));
    }
    for (auto* a : {&list, &spikesub, &outsub, &marks}) a->assign(count, 0);
    for (auto* a : {&v, &spike, &x}) a->assign(count, 0.0);
    int64_t ni, nr;
    lu_worksizes(n, n, &ni, &nr);
    iwork.resize(static_cast<std::size_t>(ni));
    rwork.resize(static_cast<std::size_t>(nr));
  }
  ~Basis() {
    lu_delete(&factor);
    sysenv_delete(&env);
  }
  void add(int32_t i, double value) {
    for (auto k = static_cast<std::size_t>(beg.back()); k < sub.size(); ++k) {
      if (sub[k] == i) return;
    }
    sub.push_back(i);
    val.push_back(value);
  }
  void factorise() {
    lu_reset(factor);
    for (int32_t j = 0; j < n; ++j) {
      const auto at = static_cast<std::size_t>(j);
      if (lu_addcol(factor, j, beg[at + 1] - beg[at], &val[static_cast<std::size_t>(beg[at])],
                    &sub[static_cast<std::size_t>(beg[at])]) != LU_OK) {
        std::abort();
      }
    }
    const int32_t res = lu_factor(factor, static_cast<int64_t>(iwork.size()), iwork.data(),
                                  static_cast<int64_t>(rwork.size()), rwork.data());
    if (res != LU_OK) std::abort();
    std::vector<int32_t> out(static_cast<std::size_t>(n));
    if (!lu_isfactored(factor) && lu_insart(factor, -1.0, out.data(), n) != LU_OK) std::abort();
  }
  int32_t pick() { return static_cast<int32_t>(rng() % static_cast<uint64_t>(n)); }
  // The spike of a column with elements in two rows is left in v, list, marks.
  int32_t ftranl() {
    int32_t count = 0;
    for (const int32_t i : {pick(), pick()}) {
      const auto at = static_cast<std::size_t>(i);
      if (marks[at] != 0) continue;
      marks[at] = 1;
      v[at] = 2.0 + count;
      list[static_cast<std::size_t>(count++)] = i;
    }
    lu_ftranl(factor, &count, v.data(), list.data(), marks.data());
    return count;
  }
  int32_t ftran() {
    int32_t count = ftranl();
    for (int32_t k = 0; k < count; ++k) {
      const auto at = static_cast<std::size_t>(list[static_cast<std::size_t>(k)]);
      spikesub[static_cast<std::size_t>(k)] = list[static_cast<std::size_t>(k)];
      spike[at] = v[at];
    }
    spikes = count;
    lu_ftranus2(0, 1e-14, factor, count, v.data(), list.data(), &count, x.data(), outsub.data(), marks.data());
    return count;
  }
  int32_t spikes = 0;
  void clear(std::vector<double>* dense, const std::vector<int32_t>& pattern, int32_t count) {
    for (int32_t k = 0; k < count; ++k) (*dense)[static_cast<std::size_t>(pattern[static_cast<std::size_t>(k)])] = 0.0;
  }
};

void sizes(benchmark::internal::Benchmark* b) { b->Arg(10000)->Arg(40000)->Arg(160000); }

void factor(benchmark::State& state) {
  Basis basis(static_cast<int32_t>(state.range(0)));
  for (auto _ : state) basis.factorise();
}
BENCHMARK(factor)->Apply(sizes)->Unit(benchmark::kMicrosecond);

void ftran(benchmark::State& state) {
  Basis basis(static_cast<int32_t>(state.range(0)));
  basis.factorise();
  int64_t total = 0;
  for (auto _ : state) {
    const int32_t count = basis.ftran();
    basis.clear(&basis.x, basis.outsub, count);
    basis.clear(&basis.spike, basis.spikesub, basis.spikes);
    total += count;
  }
  state.counters["nnz"] = static_cast<double>(total) / static_cast<double>(state.iterations());
}
BENCHMARK(ftran)->Apply(sizes)->Unit(benchmark::kMicrosecond);

void btran(benchmark::State& state) {
  Basis basis(static_cast<int32_t>(state.range(0)));
  basis.factorise();
  int64_t total = 0;
  for (auto _ : state) {
    const int32_t j = basis.pick();
    basis.x[static_cast<std::size_t>(j)] = 1.0;
    int32_t count = 0;
    lu_btransparse(0, 1e-14, basis.factor, 1, basis.x.data(), &j, &count, basis.v.data(), basis.outsub.data(),
                   basis.marks.data());
    basis.clear(&basis.v, basis.outsub, count);
    total += count;
  }
  state.counters["nnz"] = static_cast<double>(total) / static_cast<double>(state.iterations());
}
BENCHMARK(btran)->Apply(sizes)->Unit(benchmark::kMicrosecond);

// FTRAN, BTRAN of the leaving row and update, with a new factor after every 100 updates that is not counted.
void iteration(benchmark::State& state) {
  Basis basis(static_cast<int32_t>(state.range(0)));
  int32_t since = 1000;
  for (auto _ : state) {
    if (since >= 100) {
      state.PauseTiming();
      basis.factorise();
      since = 0;
      state.ResumeTiming();
    }
    const int32_t count = basis.ftran();
    int32_t best = basis.outsub[0];
    for (int32_t k = 0; k < count; ++k) {
      const int32_t j = basis.outsub[static_cast<std::size_t>(k)];
      if (std::abs(basis.x[static_cast<std::size_t>(j)]) > std::abs(basis.x[static_cast<std::size_t>(best)])) best = j;
    }
    basis.clear(&basis.x, basis.outsub, count);
    basis.x[static_cast<std::size_t>(best)] = 1.0;
    int32_t listed = 0;
    lu_btransparse(0, 1e-14, basis.factor, 1, basis.x.data(), &best, &listed, basis.v.data(), basis.outsub.data(),
                   basis.marks.data());
    basis.clear(&basis.v, basis.outsub, listed);
    const int32_t res = lu_supdl(basis.factor, best, best, basis.spikes, basis.spike.data(), basis.spikesub.data());
    ++since;
    if (res != LU_OK && res != LU_REFACTOR) since = 1000;
  }
}
BENCHMARK(iteration)->Apply(sizes)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
