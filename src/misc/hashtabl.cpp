// The hash table of names: chains of item indices, the newest first.
#include "misc/hashtabl.h"

#include <algorithm>
#include <cstring>

namespace tarvo {

namespace {

// The bytes count as signed; all arithmetic is modulo 2^32.
uint32_t hash(std::string_view name) {
  uint32_t h = 0;
  for (const char c : name) {
    const uint32_t t = (h + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)))) * 17;
    h = t ^ (t >> 6);
  }
  h *= 9;
  return (h ^ (h >> 11)) * 32769;
}

inline bool equal(const char* text, std::string_view name) {
  return std::strncmp(text, name.data(), name.size()) == 0 && text[name.size()] == '\0';
}

}  // namespace

bool hashtabl_make(HashTable* table, sysenv* env, int32_t capacity) {
  // The buckets' count must fit the 32-bit hash; a huge table gets longer chains instead.
  uint64_t size = 1;
  while (size < 4 * static_cast<uint64_t>(capacity) && size < (uint64_t{1} << 31)) size *= 2;
  HashTable made;
  if (!made.head.alloc(env, static_cast<std::size_t>(size)) ||
      !made.next.alloc(env, static_cast<std::size_t>(capacity)))
    return false;
  std::fill(made.head.begin(), made.head.end(), capacity);
  made.mask = static_cast<uint32_t>(size - 1);
  made.capacity = capacity;
  *table = std::move(made);
  return true;
}

void hashtabl_delete(HashTable* table) { *table = HashTable{}; }

int32_t hashtabl_find(const HashTable& table, NameTexts names, std::string_view name) {
  for (int32_t i = table.head[hash(name) & table.mask]; i != table.capacity; i = table.next[i])
    if (equal(names.text + names.offset[i], name)) return i;
  return -1;
}

bool hashtabl_insert(HashTable* table, NameTexts names, int32_t i) {
  if (i < 0 || i >= table->capacity) return false;
  const std::string_view name = names.text + names.offset[i];
  int32_t* const head = &table->head[hash(name) & table->mask];
  for (int32_t k = *head; k != table->capacity; k = table->next[k])
    if (equal(names.text + names.offset[k], name)) return false;
  table->next[i] = *head;
  *head = i;
  return true;
}

bool hashtabl_remove(HashTable* table, NameTexts names, int32_t i) {
  const std::string_view name = names.text + names.offset[i];
  int32_t* link = &table->head[hash(name) & table->mask];
  for (; *link != table->capacity; link = &table->next[*link]) {
    if (*link == i) {
      *link = table->next[i];
      return true;
    }
  }
  return false;
}

}  // namespace tarvo
