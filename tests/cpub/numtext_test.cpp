// Numbers as text: every spelling that writers use, exactness at the rounding borders, and round trips.
#include "cpub/numtext.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

namespace tarvo {
namespace {

TEST(NumText, ScansTheLongestNumber) {
  struct Case {
    const char* text;
    int length;  // -1: no number
    double value;
  };
  const Case cases[] = {{"1D5", 3, 1e5},
                        {"+.5", 3, 0.5},
                        {"-.5x", 3, -0.5},
                        {"5.", 2, 5.0},
                        {"-0", 2, -0.0},
                        {"1d-3", 4, 1e-3},
                        {"12e", 2, 12.0},
                        {"12e+", 2, 12.0},
                        {"1.2.3", 3, 1.2},
                        {"0x10", 1, 0.0},
                        {".", -1, 0},
                        {"", -1, 0},
                        {"-", -1, 0},
                        {"e5", -1, 0},
                        {"inf", -1, 0},
                        {"nan", -1, 0},
                        {" 1", -1, 0},
                        {"1e400", 5, HUGE_VAL},
                        {"-1e400", 6, -HUGE_VAL},
                        {"1e-400", 6, 0.0},
                        {"4.9e-324", 8, 4.9e-324},
                        {"2.4e-324", 8, 0.0},
                        {"1e99999999999999999999", 22, HUGE_VAL},
                        {"0e99999999999", 13, 0.0},
                        {"9007199254740993", 16, 9007199254740992.0},
                        {"123456789012345678901234567890", 30, 123456789012345678901234567890.0}};
  for (const Case& c : cases) {
    double value = 77.0;
    const char* end = num_scan(c.text, c.text + std::strlen(c.text), &value);
    ASSERT_EQ(end == nullptr ? -1 : static_cast<int>(end - c.text), c.length) << c.text;
    if (end != nullptr) {
      EXPECT_EQ(value, c.value) << c.text;
      EXPECT_EQ(std::signbit(value), std::signbit(c.value)) << c.text;
    }
  }
}

// A digit far behind the point decides the rounding; leading and trailing zeros don't count as digits.
TEST(NumText, LongNumbersRoundCorrectly) {
  const std::string half = "9007199254740993";  // half way between two doubles: to even, or up with any rest
  double value = 0.0;
  ASSERT_TRUE(num_parse(half + "." + std::string(3000, '0') + "1", &value));
  EXPECT_EQ(value, 9007199254740994.0);
  ASSERT_TRUE(num_parse(half + "." + std::string(3000, '0') + "D0", &value));
  EXPECT_EQ(value, 9007199254740992.0);
  ASSERT_TRUE(num_parse(std::string(3000, '0') + "." + std::string(3000, '0') + "25e3002", &value));
  EXPECT_EQ(value, 25.0);
  ASSERT_TRUE(num_parse("25" + std::string(3000, '0') + "e-3001", &value));
  EXPECT_EQ(value, 2.5);
}

TEST(NumText, AgreesWithTheCLibraryAndRoundTrips) {
  std::mt19937_64 random(17);
  char text[num_text_size], expected[1024];
  for (int k = 0; k < 20000; ++k) {
    const uint64_t bits = random();
    double v, back = 0.0;
    std::memcpy(&v, &bits, sizeof(v));
    if (k % 2 == 0) v = std::ldexp(static_cast<double>(bits % 100000), static_cast<int>(bits >> 58) - 32);
    if (!std::isfinite(v)) continue;
    for (const int precision : {0, 8, 17, 60}) {
      num_print_e(text, precision, v);
      std::snprintf(expected, sizeof(expected), "%.*e", precision, v);
      ASSERT_STREQ(text, expected);
      ASSERT_TRUE(num_parse(text, &back));
      ASSERT_EQ(back, std::strtod(text, nullptr)) << text;
      num_print_g(text, precision, v);
      std::snprintf(expected, sizeof(expected), "%.*g", precision, v);
      ASSERT_STREQ(text, expected);
    }
    num_print(text, v);
    ASSERT_TRUE(num_parse(text, &back));
    ASSERT_EQ(std::memcmp(&back, &v, sizeof(v)), 0) << text;
  }
  EXPECT_LT(num_print_e(text, 1 << 30, -1.7e-308), num_text_size);
}

TEST(NumText, Integers) {
  int32_t v = 5;
  EXPECT_TRUE(num_parseint("-2147483648", &v) && v == INT32_MIN);
  EXPECT_TRUE(num_parseint("+7", &v) && v == 7);
  for (const char* bad : {"", "+", "-", "+-1", "2147483648", "1.0", "1 ", " 1", "0x1"})
    EXPECT_FALSE(num_parseint(bad, &v)) << bad;
  EXPECT_EQ(v, 7);
}

}  // namespace
}  // namespace tarvo
