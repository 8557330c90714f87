// Numbers as text, by std::from_chars and std::to_chars, which know no locale.
#include "cpub/numtext.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace tarvo {

namespace {

inline bool is_digit(char c) { return c >= '0' && c <= '9'; }

// More significant digits than these can't change the nearest double, but for being nonzero at all.
constexpr int32_t max_digits = 780;
constexpr int64_t max_exponent = 100000000;

// digits * 10^exponent for the digits (with an optional point among them) of [first, last).
double convert(const char* first, const char* last, int64_t exponent) {
  char text[max_digits + 32];
  int32_t n = 0;
  bool behind_point = false, sticky = false;
  for (const char* p = first; p != last; ++p) {
    if (*p == '.') {
      behind_point = true;
      continue;
    }
    if (n < max_digits) {
      if (n != 0 || *p != '0') text[n++] = *p;
      if (behind_point) --exponent;
    } else {
      sticky = sticky || *p != '0';
      if (!behind_point) ++exponent;
    }
  }
  if (n == 0) return 0.0;
  const int64_t magnitude = exponent + n;  // the value lies in [10^(magnitude-1), 10^magnitude)
  if (magnitude > 400) return std::numeric_limits<double>::infinity();
  if (magnitude < -400) return 0.0;
  if (sticky) {
    text[n++] = '1';
    --exponent;
  }
  text[n++] = 'e';
  const char* end = std::to_chars(text + n, text + sizeof(text), exponent).ptr;
  double value = 0.0;
  if (std::from_chars(text, end, value).ec == std::errc::result_out_of_range)
    return magnitude > 0 ? std::numeric_limits<double>::infinity() : 0.0;
  return value;
}

// Powers of ten that a double holds exactly.
constexpr double exact_power[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                  1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

}  // namespace

const char* num_scan(const char* first, const char* last, double* value) {
  const char* p = first;
  bool negative = false;
  if (p != last && (*p == '+' || *p == '-')) {
    negative = *p == '-';
    ++p;
  }
  const char* const begin = p;
  uint64_t mantissa = 0;
  int64_t fraction = 0;
  while (p != last && is_digit(*p)) mantissa = mantissa * 10 + static_cast<uint64_t>(*p++ - '0');
  int64_t digits = p - begin;
  if (p != last && *p == '.') {
    const char* const point = ++p;
    while (p != last && is_digit(*p)) mantissa = mantissa * 10 + static_cast<uint64_t>(*p++ - '0');
    fraction = p - point;
    digits += fraction;
  }
  if (digits == 0) return nullptr;
  const char* const end = p;
  int64_t exponent = 0;
  if (p != last && (*p == 'e' || *p == 'E' || *p == 'd' || *p == 'D')) {
    const char* q = p + 1;
    const bool minus = q != last && *q == '-';
    if (q != last && (*q == '-' || *q == '+')) ++q;
    if (q != last && is_digit(*q)) {
      for (; q != last && is_digit(*q); ++q)
        if (exponent < max_exponent) exponent = exponent * 10 + (*q - '0');
      if (minus) exponent = -exponent;
      p = q;
    }
  }
  double magnitude;
  const int64_t power = exponent - fraction;
  // Both operands are exact here, so one rounding of the product or quotient gives the nearest double.
  if (digits <= 19 && mantissa <= (uint64_t{1} << 53) && power >= -22 && power <= 22)
    magnitude = power < 0 ? static_cast<double>(mantissa) / exact_power[-power]
                          : static_cast<double>(mantissa) * exact_power[power];
  else
    magnitude = convert(begin, end, exponent);
  *value = negative ? -magnitude : magnitude;
  return p;
}

bool num_parse(std::string_view text, double* value) {
  double v;
  const char* const last = text.data() + text.size();
  if (num_scan(text.data(), last, &v) != last || text.empty()) return false;
  *value = v;
  return true;
}

bool num_parseint(std::string_view text, int32_t* value) {
  // from_chars takes a minus but no plus.
  if (text.size() > 1 && text[0] == '+' && is_digit(text[1])) text.remove_prefix(1);
  const char* const last = text.data() + text.size();
  int32_t v = 0;
  const auto result = std::from_chars(text.data(), last, v);
  if (result.ec != std::errc() || result.ptr != last) return false;
  *value = v;
  return true;
}

namespace {

int32_t print(char* text, std::chars_format format, int32_t precision, double value) {
  precision = precision < 0 ? 0 : precision > 800 ? 800 : precision;
  char* const end = std::to_chars(text, text + num_text_size - 1, value, format, precision).ptr;
  *end = '\0';
  return static_cast<int32_t>(end - text);
}

}  // namespace

int32_t num_print_e(char* text, int32_t precision, double value) {
  return print(text, std::chars_format::scientific, precision, value);
}

int32_t num_print_g(char* text, int32_t precision, double value) {
  return print(text, std::chars_format::general, precision, value);
}

int32_t num_print(char* text, double value) {
  char* const end = std::to_chars(text, text + num_text_size - 1, value).ptr;
  *end = '\0';
  return static_cast<int32_t>(end - text);
}

}  // namespace tarvo
