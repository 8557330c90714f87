// The exported conversions between UTF-8 and 16-bit text.
#include <algorithm>
#include <cstring>

#include "cpub/unicode.h"
#include "tarvo.h"

using namespace tarvo;

namespace {

int32_t deliver(const Conversion& result, int32_t* len, int32_t* conv, int32_t failure) {
  if (len != nullptr) *len = static_cast<int32_t>(std::min<int64_t>(result.written, INT32_MAX));
  if (conv != nullptr) *conv = static_cast<int32_t>(std::min<int64_t>(result.taken, INT32_MAX));
  return result.valid ? TRV_RES_OK : failure;
}

}  // namespace

int32_t TRV_utf8towchar(int32_t outputsize, int32_t* len, int32_t* conv, uint16_t* output, const char* input) {
  if (input == nullptr) return TRV_RES_ERR_NULL_POINTER;
  return deliver(utf8_to_utf16(outputsize, output, input), len, conv, TRV_RES_ERR_INVALID_UTF8);
}

int32_t TRV_wchartoutf8(int32_t outputsize, int32_t* len, int32_t* conv, char* output, const uint16_t* input) {
  if (input == nullptr) return TRV_RES_ERR_NULL_POINTER;
  return deliver(utf16_to_utf8(outputsize, output, input), len, conv, TRV_RES_ERR_INVALID_WCHAR);
}

// Every character there and back, each with the length that its range takes.
int32_t TRV_test_UnicodeCodec(void) {
  for (uint32_t c = 1; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const bool pair = c >= 0x10000;
    const uint16_t wide[3] = {static_cast<uint16_t>(pair ? 0xD7C0 + (c >> 10) : c),
                              static_cast<uint16_t>(pair ? 0xDC00 + (c & 0x3FF) : 0), 0};
    char narrow[5];
    uint16_t again[3];
    const Conversion there = utf16_to_utf8(5, narrow, wide);
    const Conversion back = utf8_to_utf16(3, again, narrow);
    const int64_t bytes = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    const int64_t units = pair ? 2 : 1;
    if (!there.valid || !back.valid || there.written != bytes || there.taken != units || back.written != units ||
        back.taken != bytes || std::memcmp(wide, again, sizeof(uint16_t) * static_cast<std::size_t>(units + 1)) != 0) {
      return TRV_RES_ERR_INTERNAL_TEST_FAILED;
    }
  }
  return TRV_RES_OK;
}
