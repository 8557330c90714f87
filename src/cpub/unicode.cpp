#include "cpub/unicode.h"

namespace tarvo {

namespace {

constexpr uint32_t invalid = UINT32_MAX;
constexpr uint32_t largest = 0x10FFFF;

bool high_surrogate(uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool low_surrogate(uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// The code point at *p, which moves behind it; behind the bad part when it is invalid. Long forms of a short
// character are accepted, and so are single surrogates, which other programs write.
uint32_t decode(const char** p) {
  const auto lead = static_cast<unsigned char>(*(*p)++);
  if (lead < 0x80) return lead;
  int extra = 0;
  while (extra < 6 && (lead & (0x40 >> extra)) != 0) ++extra;
  if (extra == 0 || extra == 6) return invalid;
  uint32_t c = lead & (0x3Fu >> extra);
  for (; extra > 0; --extra, ++*p) {
    const auto byte = static_cast<unsigned char>(**p);
    if ((byte & 0xC0) != 0x80) return invalid;
    c = c << 6 | (byte & 0x3Fu);
  }
  return c <= largest ? c : invalid;
}

uint32_t decode(const uint16_t** p) {
  const uint32_t first = *(*p)++;
  if (low_surrogate(first)) return invalid;
  if (!high_surrogate(first)) return first;
  if (!low_surrogate(**p)) return invalid;
  const uint32_t second = *(*p)++;
  return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
}

// Write a character to `out` and give its number of units.
int encode(uint32_t c, uint16_t out[6]) {
  if (c < 0x10000) {
    out[0] = static_cast<uint16_t>(c);
    return 1;
  }
  out[0] = static_cast<uint16_t>(0xD800 + ((c - 0x10000) >> 10));
  out[1] = static_cast<uint16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
  return 2;
}

int encode(uint32_t c, char out[6]) {
  if (c < 0x80) {
    out[0] = static_cast<char>(c);
    return 1;
  }
  const int size = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
  for (int i = size - 1; i > 0; --i, c >>= 6) out[i] = static_cast<char>(0x80 | (c & 0x3F));
  out[0] = static_cast<char>((0xF00 >> size) | c);  // size ones, a zero, the top bits
  return size;
}

template <class Out, class In>
Conversion convert(int64_t capacity, Out* output, const In* input) {
  Conversion result{0, 0, true};
  const In* p = input;
  while (*p != 0) {
    const In* next = p;
    uint32_t c = decode(&next);
    const bool good = c != invalid;
    if (!good) c = '.';
    Out unit[6];
    const int size = encode(c, unit);
    if (output != nullptr) {
      if (result.written + size > capacity - 1) break;
      for (int i = 0; i < size; ++i) output[result.written + i] = unit[i];
    }
    result.valid &= good;
    result.written += size;
    p = next;
  }
  if (output != nullptr && capacity > 0) output[result.written] = 0;
  result.taken = p - input;
  return result;
}

}  // namespace

Conversion utf8_to_utf16(int64_t capacity, uint16_t* output, const char* input) {
  return convert(capacity, output, input);
}
Conversion utf16_to_utf8(int64_t capacity, char* output, const uint16_t* input) {
  return convert(capacity, output, input);
}

}  // namespace tarvo
