#include "cpub/bsto.h"

#include <algorithm>
#include <new>

namespace tarvo {

namespace {

constexpr int64_t smallest_table = 1024;

std::size_t size_of(int64_t n) { return static_cast<std::size_t>(n); }

}  // namespace

bsto* bsto_make(sysenv* env, int64_t page_size) {
  void* place = sysenv_calloc(env, 1, sizeof(bsto));
  if (place == nullptr) return nullptr;
  auto* store = new (place) bsto{};
  store->env = env;
  store->page_size = std::max<int64_t>(page_size, 1);
  return store;
}

void bsto_delete(bsto** store_pointer) {
  bsto* store = *store_pointer;
  *store_pointer = nullptr;
  if (store == nullptr) return;
  sysenv* env = store->env;
  for (int64_t k = 0; k < store->num_pages; ++k) sysenv_free(env, store->page[k]);
  store->~bsto();
  sysenv_free(env, store);
}

int32_t bsto_makeroom(bsto* store, int64_t bytes) {
  if (bytes > INT64_MAX - store->used - store->page_size) return 0;
  const int64_t needed = (store->used + bytes + store->page_size - 1) / store->page_size;
  if (needed <= store->num_pages) return 1;
  const auto capacity = static_cast<int64_t>(store->page.size());
  if (needed > capacity) {
    const int64_t grown = std::max({smallest_table, needed, 2 * capacity});
    if (!store->page.resize_keep(store->env, size_of(grown))) return 0;
  }
  for (; store->num_pages < needed; ++store->num_pages) {
    auto* page = static_cast<char*>(sysenv_malloc(store->env, size_of(store->page_size), 1));
    if (page == nullptr) return 0;
    store->page[store->num_pages] = page;
  }
  return 1;
}

int32_t bsto_append(bsto* store, int64_t bytes, const void* source) {
  if (bsto_makeroom(store, bytes) == 0) return 0;
  const char* in = static_cast<const char*>(source);
  while (bytes > 0) {
    const int64_t offset = store->used % store->page_size;
    const int64_t n = std::min(bytes, store->page_size - offset);
    std::memcpy(store->page[store->used / store->page_size] + offset, in, size_of(n));
    store->used += n;
    in += n;
    bytes -= n;
  }
  return 1;
}

void bsto_read(const bsto* store, int64_t offset, int64_t bytes, void* destination) {
  sysenv_assert(store->env, offset >= 0 && bytes >= 0 && bytes <= store->used - offset);
  char* out = static_cast<char*>(destination);
  while (bytes > 0) {
    const int64_t within = offset % store->page_size;
    const int64_t n = std::min(bytes, store->page_size - within);
    std::memcpy(out, store->page[offset / store->page_size] + within, size_of(n));
    offset += n;
    out += n;
    bytes -= n;
  }
}

void bsto_rewind(bsto* store, int64_t used) {
  sysenv_assert(store->env, used >= 0 && used <= store->used);
  store->used = used;
}

}  // namespace tarvo
