#include "kfac/pivot.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace tarvo;

namespace {

struct Row {
  const char* what;
  uint16_t flags;
  double shiftbelow, a, p;
  double expected;  // NAN: removed, with the sign of the node
  bool repaired, wrong;
};

class Pivot : public testing::TestWithParam<Row> {};

TEST_P(Pivot, KeepsRemovesOrShifts) {
  const Row& row = GetParam();
  PivotRule rule;
  rule.shiftbelow = row.shiftbelow;
  auto flags = static_cast<uint16_t>(row.flags | NODE_REPAIRED | NODE_WRONGSIGN);
  const double p = symface_pivot(rule, row.a, row.p, &flags);
  if (std::isnan(row.expected)) {
    EXPECT_GE((row.flags & NODE_NEGATIVE) != 0 ? -p : p, 1e100) << row.what;
  } else {
    EXPECT_DOUBLE_EQ(p, row.expected) << row.what;
  }
  EXPECT_EQ((flags & NODE_REPAIRED) != 0, row.repaired) << row.what;
  EXPECT_EQ((flags & NODE_WRONGSIGN) != 0, row.wrong) << row.what;
  EXPECT_EQ(flags & row.flags, row.flags) << row.what;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Pivot,
    testing::Values(Row{"good", NODE_POSITIVE, 0, 2, 1, 1, false, false},
                    Row{"small matrix, good", NODE_POSITIVE, 0, 1e-20, 1e-25, 1e-25, false, false},
                    Row{"dependent row", NODE_POSITIVE, 0, 1, 1e-15, NAN, true, false},
                    Row{"dependent row of a large matrix", NODE_POSITIVE, 0, 1e16, 10, NAN, true, false},
                    Row{"rounded below zero", NODE_POSITIVE, 0, 1, -1e-15, NAN, true, false},
                    Row{"clearly negative", NODE_POSITIVE, 0, 1, -200, NAN, true, true},
                    Row{"empty row", NODE_POSITIVE, 0, 0, 0, NAN, true, false},
                    Row{"not a number", NODE_POSITIVE, 0, 1, NAN, NAN, true, false},
                    Row{"negative node, good", NODE_NEGATIVE, 0, -1, -5, -5, false, false},
                    Row{"negative node, indefinite", NODE_NEGATIVE, 0, -1, 0.5, NAN, true, true},
                    Row{"negative node, rounding", NODE_NEGATIVE, 0, -1, 1e-14, NAN, true, false},
                    Row{"no flag keeps its sign", 0, 0, -3, -2, -2, false, false},
                    Row{"shifted", NODE_POSITIVE, 1e-8, 4, 1e-9, 4 + 1e-9, true, false},
                    Row{"not shifted", NODE_POSITIVE, 1e-8, 4, 1e-7, 1e-7, false, false},
                    Row{"nothing to shift by", NODE_POSITIVE, 1e-8, 0, 0, NAN, true, false}));

}  // namespace
