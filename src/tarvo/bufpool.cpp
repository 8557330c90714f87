#include "tarvo/bufpool.h"

#include <cstring>

#include "tarvo/frame.h"

namespace tarvo {

namespace {

struct Entry {
  int32_t count;
  bool release;  // free the entry when it comes back
  bool zeroed;   // all bytes of the data are zero while the entry is in the free list
  char* data;
  Entry* next;
};

void entry_delete(sysenv* sys, Entry* entry) {
  sysenv_free(sys, entry->data);
  sysenv_free(sys, entry);
}

}  // namespace

struct BufferPool {
  struct Class {
    Entry* free;  // ascending counts
    Entry* used;
  };
  Class sizes[9];  // by the size of an element
};

namespace {

void free_idle(sysenv* sys, BufferPool* pool) {
  for (BufferPool::Class& k : pool->sizes) {
    while (k.free != nullptr) {
      Entry* entry = k.free;
      k.free = entry->next;
      entry_delete(sys, entry);
    }
  }
}

// The smallest idle entry that fits, unlinked from the free list; NULL when there is none.
Entry* take_idle(BufferPool::Class& k, int32_t count, bool zeroed) {
  for (Entry** link = &k.free; *link != nullptr; link = &(*link)->next) {
    Entry* entry = *link;
    if (entry->count >= count && entry->zeroed == zeroed) {
      *link = entry->next;
      return entry;
    }
  }
  return nullptr;
}

Entry* entry_make(sysenv* sys, int32_t count, int32_t size, bool zeroed) {
  auto* entry = static_cast<Entry*>(sysenv_calloc(sys, 1, sizeof(Entry)));
  if (entry == nullptr) return nullptr;
  const auto n = static_cast<std::size_t>(count), bytes = static_cast<std::size_t>(size);
  entry->data = static_cast<char*>(zeroed ? sysenv_calloc(sys, n, bytes) : sysenv_malloc(sys, n, bytes));
  if (entry->data == nullptr) {
    sysenv_free(sys, entry);
    return nullptr;
  }
  entry->count = count;
  entry->zeroed = zeroed;
  return entry;
}

bool all_zero(const char* data, std::size_t bytes) {
  return data[0] == 0 && std::memcmp(data, data + 1, bytes - 1) == 0;
}

}  // namespace

BufferPool* bufpool_make(sysenv* sys) { return static_cast<BufferPool*>(sysenv_calloc(sys, 1, sizeof(BufferPool))); }

// A buffer that is still lent out stays behind as a leak, so that memory debugging finds it.
void bufpool_delete(sysenv* sys, BufferPool** pool) {
  if (*pool == nullptr) return;
  free_idle(sys, *pool);
  sysenv_free(sys, *pool);
  *pool = nullptr;
}

void bufpool_release(Task* task) {
  if (task->buffers == nullptr) return;
  for (BufferPool::Class& k : task->buffers->sizes) {
    for (Entry* entry = k.used; entry != nullptr; entry = entry->next) entry->release = true;
  }
  free_idle(task->sys, task->buffers);
}

void task_getbuf(Task* task, int32_t count, int32_t size, int32_t zeroed, void** pointer, int32_t* response) {
  *pointer = nullptr;
  if (*response != TRV_RES_OK || count <= 0 || size <= 0) return;
  if (task->buffers == nullptr) sysenv_fatal(task->sys, "No buffers is available");
  sysenv_assert(task->sys, size <= 8);
  BufferPool::Class& k = task->buffers->sizes[size];
  Entry* entry = take_idle(k, count, zeroed != 0);
  if (entry == nullptr) entry = entry_make(task->sys, count, size, zeroed != 0);
  if (entry == nullptr) {
    *response = report<TRV_RES_ERR_SPACE>(task);
    return;
  }
  entry->next = k.used;
  k.used = entry;
  *pointer = entry->data;
}

void task_putbuf(Task* task, int32_t size, int32_t zeroed, void* const* pointer) {
  if (*pointer == nullptr) return;
  BufferPool::Class& k = task->buffers->sizes[size];
  Entry** link = &k.used;
  while (*link != nullptr && (*link)->data != *pointer) link = &(*link)->next;
  Entry* entry = *link;
  sysenv_assert(task->sys, entry != nullptr);
  *link = entry->next;
  if (entry->release) {
    entry_delete(task->sys, entry);
    return;
  }
  entry->zeroed = zeroed != 0;
  // A broken promise of zeros would show much later, in somebody else's results.
  if (entry->zeroed && sysenv_debugging(task->sys)) {
    const auto bytes = static_cast<std::size_t>(entry->count) * static_cast<std::size_t>(size);
    sysenv_assert(task->sys, all_zero(entry->data, bytes));
  }
  link = &k.free;
  while (*link != nullptr && (*link)->count < entry->count) link = &(*link)->next;
  entry->next = *link;
  *link = entry;
}

}  // namespace tarvo
