// Building problems call by call: every row of the table doubles the size, so that the growth shows.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <vector>

#include "tarvo.h"

namespace {

struct Session {
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  Session() {
    TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr);
    TRV_initenv(env);
    TRV_makeemptytask(env, &task);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() {
    TRV_deletetask(&task);
    TRV_deleteenv(&env);
  }
  void size(int32_t numcon, int32_t numvar) {
    TRV_append(task, TRV_ACC_CON, numcon);
    TRV_append(task, TRV_ACC_VAR, numvar);
  }
};

void check(benchmark::State& state, int32_t rc) {
  if (rc != TRV_RES_OK) state.SkipWithError("a call failed");
}

// n random elements into n / 10 columns, then one read.
void putaij(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    Session s;
    s.size(n / 10, n / 10);
    std::mt19937 rng(1);
    const auto dim = static_cast<uint32_t>(n / 10);
    int32_t rc = TRV_RES_OK, count = 0;
    for (int32_t k = 0; k < n; ++k)
      rc |= TRV_putaij(s.task, static_cast<int32_t>(rng() % dim), static_cast<int32_t>(rng() % dim), 1.5);
    check(state, rc | TRV_getnumanz(s.task, &count));
  }
}
BENCHMARK(putaij)->RangeMultiplier(10)->Range(100000, 10000000)->Unit(benchmark::kMillisecond)->Iterations(1);

// A column and an element of it in turn.
void append_and_put(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    Session s;
    s.size(1, 0);
    int32_t rc = TRV_RES_OK;
    for (int32_t j = 0; j < n; ++j) rc |= TRV_append(s.task, TRV_ACC_VAR, 1) | TRV_putaij(s.task, 0, j, 1.0);
    check(state, rc);
  }
}
// A row and an element of one long column in turn, and a row by TRV_putavec in turn.
void append_rows(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    Session s;
    s.size(0, 2);
    int32_t rc = TRV_RES_OK;
    const double one = 1.0;
    const int32_t second = 1;
    for (int32_t i = 0; i < n; ++i)
      rc |= TRV_append(s.task, TRV_ACC_CON, 1) | TRV_putavec(s.task, TRV_ACC_CON, i, 1, &second, &one) |
            TRV_putaij(s.task, i, 0, 1.0);
    check(state, rc);
  }
}
// An element of one long column and a read of it in turn.
void put_and_get(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    Session s;
    s.size(n, n);
    int32_t rc = TRV_RES_OK, count = 0;
    double value = 0.0;
    for (int32_t i = 0; i < n; ++i)
      rc |= TRV_putaij(s.task, i, 0, 1.0) | TRV_getaij(s.task, i / 2, 0, &value) |
            TRV_getavecnumnz(s.task, TRV_ACC_VAR, 0, &count);
    check(state, rc);
  }
}
// Names and look-ups of all of them.
void names(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    Session s;
    s.size(0, n);
    int32_t rc = TRV_RES_OK, assigned = 0, index = 0;
    char name[16];
    for (int32_t j = 0; j < n; ++j) {
      std::snprintf(name, sizeof name, "col%d", j);
      rc |= TRV_putname(s.task, TRV_PI_VAR, j, name);
    }
    for (int32_t j = 0; j < n; ++j) {
      std::snprintf(name, sizeof name, "col%d", n - 1 - j);
      rc |= TRV_getnameindex(s.task, TRV_PI_VAR, name, &assigned, &index);
    }
    check(state, rc);
  }
}
// Quadratic terms, one by one, and three in each of n constraints.
void quadratic(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    Session s;
    s.size(n, n);
    int32_t rc = TRV_RES_OK;
    for (int32_t j = 0; j < n; ++j) {
      const int32_t subi[] = {j, j, j}, subj[] = {j, 0, j / 2};
      const double val[] = {2.0, 1.0, 1.0};
      rc |= TRV_putqconk(s.task, j, 3, subi, subj, val);
    }
    for (int32_t j = 0; j < n; ++j) rc |= TRV_putqobjij(s.task, j / 2, j, 1.0);
    check(state, rc);
  }
}
BENCHMARK(append_and_put)->RangeMultiplier(2)->Range(100000, 400000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(append_rows)->RangeMultiplier(2)->Range(100000, 400000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(put_and_get)->RangeMultiplier(2)->Range(100000, 400000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(names)->RangeMultiplier(4)->Range(62500, 1000000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(quadratic)->RangeMultiplier(2)->Range(100000, 400000)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
