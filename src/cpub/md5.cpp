#include "cpub/md5.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace tarvo {

namespace {

constexpr uint32_t sine[64] = {  // floor(2^32 |sin(i + 1)|)
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
constexpr int shift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

uint32_t load(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

// One 64-byte block into the state.
void absorb(uint32_t state[4], const unsigned char* data) {
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (std::size_t i = 0; i < 64; ++i) {
    uint32_t f = 0;
    std::size_t word = 0;
    switch (i / 16) {
      case 0:
        f = (b & c) | (~b & d);
        word = i;
        break;
      case 1:
        f = (d & b) | (~d & c);
        word = (5 * i + 1) % 16;
        break;
      case 2:
        f = b ^ c ^ d;
        word = (3 * i + 5) % 16;
        break;
      default:
        f = c ^ (b | ~d);
        word = 7 * i % 16;
        break;
    }
    f += a + sine[i] + load(data + 4 * word);
    a = d;
    d = c;
    c = b;
    b += std::rotl(f, shift[i / 16][i % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

}  // namespace

Md5Digest md5(const void* data, std::size_t size) {
  uint32_t state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  const auto* p = static_cast<const unsigned char*>(data);
  std::size_t left = size;
  for (; left >= 64; left -= 64, p += 64) absorb(state, p);

  // The rest, a one bit, zeros, and the length in bits as the last 8 bytes of a block.
  unsigned char tail[128] = {};
  if (left != 0) std::memcpy(tail, p, left);
  tail[left] = 0x80;
  const std::size_t padded = left < 56 ? 64 : 128;
  const uint64_t bits = static_cast<uint64_t>(size) * 8;
  for (std::size_t i = 0; i < 8; ++i) tail[padded - 8 + i] = static_cast<unsigned char>(bits >> (8 * i));
  absorb(state, tail);
  if (padded == 128) absorb(state, tail + 64);

  Md5Digest digest;
  for (int i = 0; i < 16; ++i) digest.byte[i] = static_cast<unsigned char>(state[i / 4] >> (8 * (i % 4)));
  return digest;
}

}  // namespace tarvo
