// A hash table from names to item indices that doesn't hold the names: they stand in a text block at offsets
// that are passed to every call.
#pragma once

#include <cstdint>

#include "cpub/array.h"

namespace tarvo {

struct HashTable {
  uint32_t mask = 0;        // size - 1, the size being a power of two
  int32_t capacity = 0;     // items; also the mark of an empty bucket and of a chain's end
  Array<int32_t> head;      // [size]; empty when the table is not built
  Array<int32_t> next;      // [capacity]
};

}  // namespace tarvo
