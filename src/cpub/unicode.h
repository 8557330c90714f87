// Text between UTF-8 and 16-bit units (UTF-16).
#pragma once

#include <cstdint>

namespace tarvo {

struct Conversion {
  int64_t written;  // units of output, without the NUL
  int64_t taken;    // units of input that these stand for
  bool valid;       // false: something was no proper text and "." stands for it
};

// Convert up to the NUL of the input. The output takes at most `capacity` units with its NUL; a character that doesn't
// fit whole ends the conversion. Without an output everything is counted.
Conversion utf8_to_utf16(int64_t capacity, uint16_t* output, const char* input);
Conversion utf16_to_utf8(int64_t capacity, char* output, const uint16_t* input);

}  // namespace tarvo
