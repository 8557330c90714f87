// The MD5 digest (RFC 1321). It tells whether a block of memory has changed; it is no protection against an attacker.
#pragma once

#include <cstddef>

namespace tarvo {

struct Md5Digest {
  unsigned char byte[16];
};

Md5Digest md5(const void* data, std::size_t size);

}  // namespace tarvo
