// Parallel rows and columns: problems made of little else, through the presolve and back.
#include <gtest/gtest.h>

#include <cstdlib>

#include "prslv/prslv_internal.h"
#include "prslv/roundtrip.h"
#include "support/differential.h"

namespace tarvo_test {
namespace {

Bound bound(int32_t key, int64_t lower, int64_t upper) { return {key, lower, upper}; }

Bound any_bound(Choices* pick, int64_t value, int64_t room) {
  Bound b = bound(pick->below(5), value - pick->below(4) * room, value + pick->below(4) * room);
  if (b.key == 2) b.lower = b.upper = value;
  return b;
}

// A few rows and columns, then copies of them times small factors, with lone columns in the rows.
IntLp parallel_problem(Choices* pick) {
  static constexpr int64_t factor[] = {1, -1, 2, -2, 3, 1};
  IntLp lp;
  const int32_t columns = pick->between(2, 4), rows = pick->between(1, 3);
  std::vector<int64_t> x, cost;
  std::vector<std::vector<int64_t>> a(static_cast<std::size_t>(rows));
  const auto add_column = [&](const std::vector<int64_t>& column, int64_t c) {
    for (std::size_t i = 0; i < a.size(); ++i) a[i].push_back(column[i]);
    x.push_back(pick->between(-3, 3));
    cost.push_back(c);
    lp.column.push_back(any_bound(pick, x.back(), pick->chance(80) ? 1 : 5));
  };
  std::vector<int64_t> column(a.size());
  for (int32_t j = 0; j < columns; ++j) {
    for (int64_t& v : column) v = pick->chance(70) ? factor[pick->below(6)] : 0;
    const int64_t c = pick->between(-3, 3);
    add_column(column, c);
    for (int32_t copies = pick->below(4); copies > 0; --copies) {
      const int64_t f = factor[pick->below(6)];
      std::vector<int64_t> copy = column;
      for (int64_t& v : copy) v *= f;
      add_column(copy, f * c + (pick->chance(50) ? 0 : pick->between(-1, 1)));
    }
  }
  for (int32_t copies = pick->below(4); copies > 0; --copies) {
    std::vector<int64_t> row = a[static_cast<std::size_t>(pick->below(rows))];
    const int64_t f = factor[pick->below(6)];
    for (int64_t& v : row) v *= f;
    a.push_back(row);
  }
  for (int32_t lone = pick->below(5); lone > 0; --lone) {
    column.assign(a.size(), 0);
    column[static_cast<std::size_t>(pick->below(static_cast<int32_t>(a.size())))] = factor[pick->below(6)];
    add_column(column, pick->between(-1, 1));
  }
  const bool feasible = pick->chance(85);
  for (const auto& row : a) {
    int64_t activity = feasible ? 0 : pick->between(-3, 3);
    for (std::size_t j = 0; j < x.size(); ++j) activity += row[j] * x[j];
    lp.row.push_back(any_bound(pick, activity, 2));
  }
  lp.a = a;
  lp.c = cost;
  return lp;
}

int32_t setting(const char* name, int32_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::atoi(text) : otherwise;
}

TEST(Duplicates, RandomProblemsComeBack) {
  const int32_t first = setting("TARVO_SEED", 1), runs = setting("TARVO_RUNS", 4000);
  int32_t failures = 0, rows = 0, columns = 0;
  int32_t seen[3] = {};
  for (int32_t seed = first; seed < first + runs && failures < 5; ++seed) {
    Choices pick(static_cast<uint64_t>(seed));
    const IntLp lp = parallel_problem(&pick);
    const auto exact = exact_answer(lp);
    if (!exact) continue;
    tarvo::prslvpar par;
    par.relax = seed % 2;
    par.eliminator = par.lindep = par.dualargs = seed % 3 == 0 ? 1 : 0;
    const RoundTrip trip = roundtrip(plain(lp, seed % 5 < 2 ? static_cast<uint32_t>(seed) : 0), *exact, par);
    rows += trip.stat.dupcon;
    columns += trip.stat.dupvar;
    ++seen[static_cast<int32_t>(exact->answer)];
    if (trip.wrong.empty()) continue;
    ++failures;
    ADD_FAILURE() << "seed " << seed << ": " << trip.wrong << "\n" << as_text(lp);
  }
  EXPECT_GT(rows, runs / 8);
  EXPECT_GT(columns, runs / 2);
  for (const int32_t count : seen) EXPECT_GT(count, runs / 50);
}

// A few columns, and long ranged ones that are multiples of one of them at costs of their own; a free row for them.
IntLp long_parallel_problem(Choices* pick) {
  static constexpr int64_t factor[] = {1, -1, 2, -2, 3, 1};
  IntLp lp;
  const auto rows = static_cast<std::size_t>(pick->between(5, 7));
  lp.a.resize(rows + 1);
  std::vector<int64_t> x, column(rows + 1, 0);
  const auto add_column = [&](int64_t f, int64_t room) {
    for (std::size_t i = 0; i <= rows; ++i) lp.a[i].push_back(f * column[i]);
    x.push_back(pick->between(-2, 2));
    lp.column.push_back(bound(4, x.back() - pick->between(0, 3), x.back() + pick->between(0, 3) + room));
    lp.c.push_back(pick->between(-9, 9));
  };
  for (int32_t j = pick->between(2, 4); j > 0; --j) {
    for (std::size_t i = 0; i < rows; ++i) column[i] = pick->chance(60) ? pick->between(-4, 4) : 0;
    add_column(1, 1);
  }
  for (std::size_t i = 0; i < rows; ++i) column[i] = pick->between(1, 4) * (pick->chance(50) ? 1 : -1);
  for (int32_t copies = pick->between(4, 6); copies > 0; --copies) add_column(factor[pick->below(6)], 1);
  const bool feasible = pick->chance(90);
  for (std::size_t i = 0; i < rows; ++i) {
    int64_t activity = feasible ? 0 : pick->between(-3, 3);
    for (std::size_t j = 0; j < x.size(); ++j) activity += lp.a[i][j] * x[j];
    lp.row.push_back(bound(pick->below(3), activity, activity));
  }
  lp.row.push_back(bound(3, 0, 0));
  return lp;
}

TEST(Duplicates, LongColumnsOfDifferentCosts) {
  const int32_t first = setting("TARVO_SEED", 1), runs = setting("TARVO_RUNS", 1000);
  int32_t failures = 0, transformed = 0;
  for (int32_t seed = first; seed < first + runs && failures < 5; ++seed) {
    Choices pick(static_cast<uint64_t>(seed));
    const IntLp lp = long_parallel_problem(&pick);
    const auto exact = exact_answer(lp);
    if (!exact) continue;
    tarvo::prslvpar par;
    par.relax = par.eliminator = par.lindep = par.dualargs = seed % 3 == 0 ? 1 : 0;
    const RoundTrip trip = roundtrip(plain(lp, seed % 5 < 2 ? static_cast<uint32_t>(seed) : 0), *exact, par);
    // No column of these is free.
    if (par.relax == 0) transformed += std::count(trip.reduced.bkx.begin(), trip.reduced.bkx.end(), 3) > 0 ? 1 : 0;
    if (trip.wrong.empty()) continue;
    ++failures;
    ADD_FAILURE() << "seed " << seed << ": " << trip.wrong << "\n" << as_text(lp);
  }
  EXPECT_GT(transformed, runs / 10);
}

}  // namespace
}  // namespace tarvo_test
