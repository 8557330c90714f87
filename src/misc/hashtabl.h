// A hash table from names to item indices that doesn't hold the names: they stand in a text block at offsets
// that are passed to every call. Names end with a NUL in the block; offset 0 is the empty name, which is never
// in the table. The door: hashtabl_make, hashtabl_find, hashtabl_insert, hashtabl_remove.
#pragma once

#include <cstdint>
#include <string_view>

#include "cpub/array.h"

namespace tarvo {

struct HashTable {
  uint32_t mask = 0;     // size - 1, the size being a power of two
  int32_t capacity = 0;  // items; also the mark of an empty bucket and of a chain's end
  Array<int32_t> head;   // [size]; empty when the table is not built
  Array<int32_t> next;   // [capacity]
};

// Where the names of the items stand: item i is named by the text at text + offset[i].
struct NameTexts {
  const char* text;
  const int32_t* offset;
};

inline bool hashtabl_exists(const HashTable& table) { return !table.head.empty(); }

// Makes an empty table for items 0..capacity-1 (0 is allowed) with at least 4 * capacity buckets. False when out
// of memory; the table is then as it was.
[[nodiscard]] bool hashtabl_make(HashTable* table, sysenv* env, int32_t capacity);
void hashtabl_delete(HashTable* table);

// The item with this name, or -1. The table must exist.
int32_t hashtabl_find(const HashTable& table, NameTexts names, std::string_view name);
// Adds item i under its text. False when i is out of range or its name is in the table already.
bool hashtabl_insert(HashTable* table, NameTexts names, int32_t i);
// Takes item i out, whose text must still be the one that it was added under. False when it isn't in the table.
bool hashtabl_remove(HashTable* table, NameTexts names, int32_t i);

}  // namespace tarvo
