// Numbers as text, the same in every locale: what the file formats and the parameter calls read and print.
#pragma once

#include <cstdint>
#include <string_view>

namespace tarvo {

// Reads the longest number at the start of [first, last): an optional sign, digits with at most one point (a digit
// on at least one side), and an optional exponent after "e", "E", "d" or "D". No leading blanks, no hexadecimal
// form, no "inf" or "nan". The value is correctly rounded; too large a number gives +-infinity, too small a one 0.
// Returns where the number ends, or NULL (and *value is left) when no number stands at first.
const char* num_scan(const char* first, const char* last, double* value);

// True when the whole text is one number as above.
bool num_parse(std::string_view text, double* value);
// True when the whole text is one decimal integer with an optional sign that fits into 32 bits.
bool num_parseint(std::string_view text, int32_t* value);

// Room for any text below with its terminating NUL.
inline constexpr int32_t num_text_size = 832;

// Print as "%.*e" and "%.*g" do in the C locale. A precision is clamped into 0 to 800, beyond which all digits of
// a double are zeros. Returns the length; the text ends with a NUL.
int32_t num_print_e(char* text, int32_t precision, double value);
int32_t num_print_g(char* text, int32_t precision, double value);
// The shortest text that reads back as the same double.
int32_t num_print(char* text, double value);

}  // namespace tarvo
