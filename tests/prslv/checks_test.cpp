// The row and column checks: each finds what it is for, leaves alone what only looks alike, and comes back.
#include <gtest/gtest.h>

#include "prslv/roundtrip.h"

namespace tarvo_test {
namespace {

constexpr int32_t lo = 0, up = 1, fx = 2, fr = 3, ra = 4;

struct Case {
  const char* name;
  std::vector<std::vector<int64_t>> a;
  std::vector<Bound> row, column;
  std::vector<int64_t> c;
  int32_t rows, columns;  // left
  int32_t forcecon = 0, forcevar = 0;
};
void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

const std::vector<Case>& cases() {
  static const std::vector<Case> list{
      {"empty rows", {{0}, {0}}, {{ra, -1, 1}, {up, 0, 0}}, {{lo, 2, 0}}, {1}, 0, 0},
      {"an empty row out of reach", {{0}, {1}}, {{ra, 1, 2}, {lo, 0, 0}}, {{fr}}, {1}, 1, 1},
      {"a singleton row bounds its free column from above", {{-2}}, {{ra, 2, 4}}, {{fr}}, {1}, 0, 0},
      {"a singleton row that gives less than there is",
       {{2, 0}},
       {{ra, -2, 8}},
       {{ra, 0, 3}, {ra, 0, 1}},
       {-1, 1},
       0,
       0},
      {"a singleton row that fixes",
       {{3, 0}, {1, 1}},
       {{fx, 6, 6}, {lo, 5, 0}},
       {{lo, 0, 0}, {lo, 0, 0}},
       {1, 1},
       0,
       0},
      {"singleton rows that contradict each other", {{1}, {-1}}, {{lo, 3, 0}, {lo, -1, 0}}, {{fr}}, {1}, 1, 1},
      {"a forcing row", {{1, 1}}, {{up, 0, 0}}, {{lo, 0, 0}, {lo, 0, 0}}, {-1, -2}, 0, 0, 1},
      {"a fixed forcing row at its upper activity",
       {{1, -1, 2}, {1, 1, 1}},
       {{fx, 7, 7}, {lo, 0, 0}},
       {{ra, 0, 1}, {lo, 0, 0}, {up, 0, 3}},
       {3, -1, 1},
       0,
       0,
       1},
      {"a row out of reach", {{1, 1}}, {{lo, 3, 0}}, {{ra, 0, 1}, {ra, 0, 1}}, {1, 1}, 1, 2},
      {"an empty column without end", {{0}}, {{fr}}, {{lo, 0, 0}}, {-1}, 0, 1},
      {"dual fixing",
       {{1, 2, -1}, {2, -1, 1}},
       {{lo, 4, 0}, {lo, 1, 0}},
       {{ra, 0, 9}, {ra, 0, 9}, {ra, 0, 9}},
       {-1, 1, 1},
       0,
       0},
      // Its own requirement bounds y from above, so x looks dominated; it isn't, w is.
      {"no circle", {{1, 1}}, {{lo, 2, 0}}, {{lo, 0, 0}, {ra, 0, 5}}, {1, 2}, 0, 0},
      {"a forcing column takes its rows along",
       {{1, 1, 2}, {2, -1, 3}, {-1, 3, 1}},
       {{lo, 4, 0}, {lo, -3, 0}, {up, 0, 5}},
       {{lo, 0, 0}, {ra, -2, 2}, {ra, -1, 1}},
       {0, 1, -1},
       0,
       0,
       0,
       1},
      {"a free singleton takes its inequality",
       {{2, 1, 1, 0}, {0, 1, -1, 1}, {0, 2, 3, 1}},
       {{lo, 2, 0}, {ra, -2, 2}, {ra, -2, 2}},
       {{fr}, {ra, -4, 4}, {ra, -4, 4}, {ra, -4, 4}},
       {3, -1, -2, 1},
       2,
       3}};
  return list;
}

class ChecksCase : public testing::TestWithParam<Case> {};

TEST_P(ChecksCase, FindsAndComesBack) {
  const Case& c = GetParam();
  for (const bool maximise : {false, true}) {
    IntLp lp{c.a, c.row, c.column, c.c, 3, maximise};
    if (maximise)
      for (int64_t& v : lp.c) v = -v;
    const auto exact = exact_answer(lp);
    ASSERT_TRUE(exact);
    for (const uint32_t rowcosts : {0u, 5u}) {
      tarvo::prslvpar par;
      par.eliminator = par.lindep = 0;
      const RoundTrip trip = roundtrip(plain(lp, rowcosts), *exact, par);
      EXPECT_EQ(trip.wrong, "") << "row costs " << rowcosts;
      EXPECT_EQ(trip.reduced.numcon, c.rows);
      EXPECT_EQ(trip.reduced.numvar, c.columns);
      EXPECT_EQ(trip.stat.forcecon, c.forcecon);
      if (rowcosts == 0) {
        EXPECT_EQ(trip.stat.forcevar, c.forcevar);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, ChecksCase, testing::ValuesIn(cases()));

// A column that no optimum has off its bound can be known by the requirements of another column only: y <= 3 follows
// from s, and then x costs too much.
TEST(Checks, ChainsOfMultipliers) {
  IntLp lp{{{1, 1, 1, 1}, {0, 1, 2, 3}},
           {{fx, 9, 9}, {ra, -6, 30}},
           {{lo, 0, 0}, {ra, 0, 7}, {ra, 0, 6}, {lo, 0, 0}},
           {3, 1, 1, 40}};
  lp.row[1].key = up;
  const auto exact = exact_answer(lp);
  const RoundTrip trip = roundtrip(plain(lp), *exact);
  EXPECT_EQ(trip.wrong, "");
  EXPECT_EQ(trip.basic.xx[3], 0.0);
  EXPECT_LE(trip.reduced.numvar, 3);
}

// Updates of sums lose small terms beside large ones: what they say is confirmed before a row goes.
TEST(Checks, LargeBoundsDoNotDrift) {
  IntLp lp{{{1, 1, 1, 0}, {1, 0, 0, 1}, {0, 1, 0, -1}},
           {{up, 0, 1000000005}, {fx, 1000000000, 1000000000}, {lo, -3, 0}},
           {{ra, 0, 1000000000}, {ra, -2, 2}, {ra, 0, 4}, {ra, 0, 1000000000}},
           {-1, -3, -2, 1}};
  const RoundTrip trip = roundtrip(plain(lp), *exact_answer(lp));
  EXPECT_EQ(trip.wrong, "");
}

}  // namespace
}  // namespace tarvo_test
