#include "cpub/memman.h"

#include <pthread.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "cpub/md5.h"

namespace tarvo {

namespace {

constexpr std::size_t guard_size = 8;
constexpr unsigned char guard_base = 0x20;
constexpr int corruption_status = -99;

// One live block, when debugging. The caller's bytes stand between two guards: byte i of a guard is its base + i.
struct Block {
  uint32_t number;
  bool locked;
  unsigned char begin_base, end_base;
  Md5Digest digest;  // of the caller's bytes, while locked
  std::size_t size;  // the caller's bytes
  unsigned char* raw;
  Block *previous, *next;  // the list, newest first
  Block* chain;            // the next one of the same hash bucket
};

struct Bucket {
  Block* first;
};

struct DebugRecord {
  uint32_t next_block_number;
  int64_t num_blocks;
  Block* first_block;
  Bucket* bucket;  // [1 << bits], blocks by the address of their raw memory
  int bits;
};

}  // namespace

struct memman {
  char begin_guard[8];
  const char* name;
  bool use_mutex, debug;
  pthread_mutex_t mutex;
  void* alloc_handle;
  AllocFunc alloc_func;
  FreeFunc free_func;
  void* fatal_handle;
  FatalFunc fatal_func;
  DebugRecord record;
  std::atomic<std::size_t> current_bytes;  // without debugging only what was ever given out
  std::size_t peak_bytes;
  std::FILE* debug_file;
};

namespace {

void* runtime_alloc(void*, std::size_t size) { return std::malloc(size); }
void runtime_free(void*, void* pointer) { std::free(pointer); }

bool lock(memman* mm) { return !mm->use_mutex || pthread_mutex_lock(&mm->mutex) == 0; }
void unlock(memman* mm) {
  if (mm->use_mutex) pthread_mutex_unlock(&mm->mutex);
}

[[gnu::format(printf, 2, 3)]] void tell(memman* mm, const char* format, ...) {
  if (mm->debug_file == nullptr) return;
  va_list args;
  va_start(args, format);
  std::vfprintf(mm->debug_file, format, args);
  va_end(args);
}

void tell_time(memman* mm, const char* format_begin) {
  if (mm->debug_file == nullptr) return;
  char text[32] = "";
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  if (localtime_r(&now, &parts) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  std::fprintf(mm->debug_file, "%s%s\n", format_begin, text);
}

void close_file(memman* mm) {
  if (mm->debug_file == nullptr) return;
  tell_time(mm, "\nFile closed: ");
  std::fclose(mm->debug_file);
  mm->debug_file = nullptr;
}

// Memory was overwritten: ends the process. The mutex is held; it goes first, as the fatal route may come back here.
[[noreturn, gnu::format(printf, 3, 4)]] void corrupted(memman* mm, const Location& at, const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  tell(mm, "Fatal error in file '%s(%d)'\n", at.file, at.number);
  tell(mm, "Message(%s): %s\n", mm->name, text);
  close_file(mm);
  unlock(mm);
  if (mm->fatal_func != nullptr) {
    mm->fatal_func(mm->fatal_handle, at.file, at.number, text, corruption_status);
  } else {
    std::fprintf(stderr, "\n\nFatal error\nFile : %s\nLine : %d\nMsg. : %s\n", at.file, at.number, text);
  }
  std::exit(corruption_status);
}

std::size_t bucket_of(const DebugRecord& r, const unsigned char* raw) {
  return static_cast<std::size_t>((reinterpret_cast<std::uintptr_t>(raw) >> 3) * 0x9e3779b97f4a7c15u >> (64 - r.bits));
}

// Doubles the buckets. Without memory for it the chains just get longer.
void grow_buckets(memman* mm) {
  DebugRecord& r = mm->record;
  DebugRecord grown = r;
  grown.bits = r.bits == 0 ? 10 : r.bits + 1;
  const std::size_t count = std::size_t{1} << grown.bits;
  grown.bucket = static_cast<Bucket*>(mm->alloc_func(mm->alloc_handle, count * sizeof(Bucket)));
  if (grown.bucket == nullptr) return;
  std::memset(grown.bucket, 0, count * sizeof(Bucket));
  for (Block* b = r.first_block; b != nullptr; b = b->next) {
    Bucket& bucket = grown.bucket[bucket_of(grown, b->raw)];
    b->chain = bucket.first;
    bucket.first = b;
  }
  if (r.bucket != nullptr) mm->free_func(mm->alloc_handle, r.bucket);
  r = grown;
}

Block** find_link(memman* mm, const void* pointer) {
  const unsigned char* raw = static_cast<const unsigned char*>(pointer) - guard_size;
  Block** link = &mm->record.bucket[bucket_of(mm->record, raw)].first;
  while (*link != nullptr && (*link)->raw != raw) link = &(*link)->chain;
  return link;
}

void link_block(memman* mm, Block* b) {
  DebugRecord& r = mm->record;
  if (r.num_blocks >> r.bits != 0) grow_buckets(mm);
  Bucket& bucket = r.bucket[bucket_of(r, b->raw)];
  b->chain = bucket.first;
  bucket.first = b;
  b->previous = nullptr;
  b->next = r.first_block;
  if (b->next != nullptr) b->next->previous = b;
  r.first_block = b;
  ++r.num_blocks;
}

void unlink_block(memman* mm, Block** link) {
  Block* b = *link;
  *link = b->chain;
  (b->previous != nullptr ? b->previous->next : mm->record.first_block) = b->next;
  if (b->next != nullptr) b->next->previous = b->previous;
  --mm->record.num_blocks;
}

void check_block(memman* mm, const Block* b, const Location& at) {
  const unsigned char* front = b->raw;
  const unsigned char* back = b->raw + guard_size + b->size;
  const void* user = b->raw + guard_size;
  for (unsigned i = 0; i < guard_size; ++i) {
    if (front[i] != b->begin_base + i) {
      corrupted(mm, at, "*** Block guard violation. Block number %u at %p. pos: b%u expected: %u got %u", b->number,
                user, i, b->begin_base + i, front[i]);
    }
  }
  for (unsigned i = 0; i < guard_size; ++i) {
    if (back[i] != b->end_base + i) {
      corrupted(mm, at, "Block: %p guard pos: %u expected: %u got %u", user, i, b->end_base + i, back[i]);
    }
  }
  if (!b->locked) return;
  const Md5Digest now = md5(user, b->size);
  for (int i = 0; i < 16; ++i) {
    if (now.byte[i] != b->digest.byte[i]) {
      corrupted(mm, at, "Locked block %-6u at %p of size %s has been changed at '%s' %d. Digest info.: %d(%d!=%d) \n",
                b->number, user, sysenv_sizetext(b->size).text, at.file, at.number, i, b->digest.byte[i], now.byte[i]);
    }
  }
}

void scan_locked(memman* mm, const Location& at) {
  if (std::strcmp(mm->begin_guard, "begin") != 0) {
    corrupted(mm, at, "begin guard of mman: %p", static_cast<void*>(mm));
  }
  tell(mm, "Scanning memory at '%s'(%d)\n", at.file, at.number);
  for (const Block* b = mm->record.first_block; b != nullptr; b = b->next) check_block(mm, b, at);
  tell(mm, "Space usage. Number of blocks: %lld  Current usage: %s Maximum usage: %s\n",
       static_cast<long long>(mm->record.num_blocks), sysenv_sizetext(mm->current_bytes).text,
       sysenv_sizetext(mm->peak_bytes).text);
}

void* alloc_debug(memman* mm, std::size_t bytes, bool zero, const Location& at) {
  if (!lock(mm)) return nullptr;
  void* user = nullptr;
  void* record = mm->alloc_func(mm->alloc_handle, sizeof(Block));
  void* raw = bytes > SIZE_MAX - 2 * guard_size ? nullptr : mm->alloc_func(mm->alloc_handle, bytes + 2 * guard_size);
  if (record == nullptr || raw == nullptr) {
    if (record != nullptr) mm->free_func(mm->alloc_handle, record);
    if (raw != nullptr) mm->free_func(mm->alloc_handle, raw);
    tell(mm, "Out of space while trying to allocate a block of size %s in file '%s(%d)'\n", sysenv_sizetext(bytes).text,
         at.file, at.number);
  } else {
    auto* b = new (record) Block{};
    b->raw = static_cast<unsigned char*>(raw);
    b->size = bytes;
    b->begin_base = b->end_base = guard_base;
    b->number = mm->record.next_block_number++;
    user = b->raw + guard_size;
    tell(mm, "Allocated(%s)   block number %-6u at %-10p of size %s (%s) in file '%s(%d)'.\n", mm->name, b->number,
         user, sysenv_sizetext(bytes).text, sysenv_sizetext(mm->current_bytes).text, at.file, at.number);
    for (unsigned char i = 0; i < guard_size; ++i) {
      b->raw[i] = static_cast<unsigned char>(b->begin_base + i);
      b->raw[guard_size + bytes + i] = static_cast<unsigned char>(b->end_base + i);
    }
    link_block(mm, b);
    const std::size_t current = mm->current_bytes + bytes;
    mm->current_bytes = current;
    if (current > mm->peak_bytes) mm->peak_bytes = current;
  }
  unlock(mm);
  if (zero && user != nullptr) std::memset(user, 0, bytes);
  return user;
}

void free_debug(memman* mm, void* pointer, const Location& at) {
  if (!lock(mm)) return;
  Block** link = find_link(mm, pointer);
  Block* b = *link;
  if (b == nullptr) {
    corrupted(mm, at, "Block %p cannot be deallocated because it is not in the allocation list.\n", pointer);
  }
  check_block(mm, b, at);
  unlink_block(mm, link);
  tell(mm, "Deallocated(%s) block number %-6u at %-10p of size %s (%s) in file '%s(%d)'\n", mm->name, b->number,
       pointer, sysenv_sizetext(b->size).text, sysenv_sizetext(mm->current_bytes).text, at.file, at.number);
  mm->current_bytes -= b->size;
  mm->free_func(mm->alloc_handle, b->raw);
  mm->free_func(mm->alloc_handle, b);
  unlock(mm);
}

}  // namespace

memman* memman_make(bool use_mutex, bool debug, void* handle, AllocFunc alloc, FreeFunc free) {
  if (alloc == nullptr || free == nullptr) {
    handle = nullptr;
    alloc = runtime_alloc;
    free = runtime_free;
  }
  void* place = alloc(handle, sizeof(memman));
  if (place == nullptr) return nullptr;
  auto* mm = new (place) memman{};
  std::strcpy(mm->begin_guard, "begin");
  mm->name = "";
  mm->debug = debug;
  mm->alloc_handle = handle;
  mm->alloc_func = alloc;
  mm->free_func = free;
  if (debug) grow_buckets(mm);
  mm->use_mutex = use_mutex && pthread_mutex_init(&mm->mutex, nullptr) == 0;
  if ((use_mutex && !mm->use_mutex) || (debug && mm->record.bucket == nullptr)) memman_delete(&mm, Location::current());
  return mm;
}

int64_t memman_delete(memman** mm_pointer, const Location& at) {
  memman* mm = *mm_pointer;
  *mm_pointer = nullptr;
  if (mm == nullptr) return 0;
  int64_t left = 0;
  if (mm->debug) {
    tell(mm, "Deleting mem manager. Scanning memory\n");
    memman_scan(mm, at);
    tell(mm, "Checking leaks\n");
    if (mm->record.first_block != nullptr) tell(mm, "**** ALLOCATED  BLOCKS LEFT\n");
    for (Block* b = mm->record.first_block; b != nullptr; ++left) {
      tell(mm, "Block %10u at %p is allocated\n", b->number, static_cast<void*>(b->raw + guard_size));
      Block* next = b->next;
      mm->free_func(mm->alloc_handle, b);
      b = next;
    }
    tell(mm, "Done checking leaks\n");
    if (mm->record.bucket != nullptr) mm->free_func(mm->alloc_handle, mm->record.bucket);
  }
  close_file(mm);
  if (mm->use_mutex) pthread_mutex_destroy(&mm->mutex);
  mm->free_func(mm->alloc_handle, mm);
  return left;
}

void memman_putfatal(memman* mm, void* handle, FatalFunc func) {
  mm->fatal_handle = handle;
  mm->fatal_func = func;
}

void* memman_alloc(memman* mm, std::size_t count, std::size_t size, bool zero, const Location& at) {
  if (count == 0 || size == 0) [[unlikely]] {
    tell(mm, "Allocted (%s)   a zero block in file '%s(%d)'.\n", mm->name, at.file, at.number);
    return nullptr;
  }
  if (count > SIZE_MAX / size) [[unlikely]]
    return nullptr;
  const std::size_t bytes = count * size;
  if (mm->debug) [[unlikely]]
    return alloc_debug(mm, bytes, zero, at);
  // Nobody decides by this counter: frees are not known without debugging.
  mm->current_bytes.fetch_add(bytes, std::memory_order_relaxed);
  if (zero && mm->alloc_func == runtime_alloc) return std::calloc(count, size);  // fresh pages are zero already
  void* p = mm->alloc_func(mm->alloc_handle, bytes);
  if (zero && p != nullptr) std::memset(p, 0, bytes);
  return p;
}

void memman_free(memman* mm, void* pointer, const Location& at) {
  if (pointer == nullptr) return;
  if (mm->debug) [[unlikely]] {
    free_debug(mm, pointer, at);
  } else {
    mm->free_func(mm->alloc_handle, pointer);
  }
}

void* memman_realloc(memman* mm, std::size_t newsize, std::size_t oldsize, void* pointer, const Location& at) {
  if (mm->debug && pointer != nullptr && lock(mm)) {
    const Block* b = *find_link(mm, pointer);
    if (b == nullptr) corrupted(mm, at, "Block at adr. %p is not allocated.\n", pointer);
    if (b->size != oldsize) {
      corrupted(mm, at, "Invalid size for block at adr. %p. Claimed size: %s Actual size: %s\n", pointer,
                sysenv_sizetext(oldsize).text, sysenv_sizetext(b->size).text);
    }
    unlock(mm);
  }
  void* p = memman_alloc(mm, 1, newsize, false, {"memman_realloc", at.number});
  if (p == nullptr && newsize != 0) return nullptr;
  if (p != nullptr && pointer != nullptr) std::memcpy(p, pointer, newsize < oldsize ? newsize : oldsize);
  memman_free(mm, pointer, at);
  return p;
}

char* memman_strdup(memman* mm, const char* text, const Location& at) {
  if (text == nullptr) text = "";
  const std::size_t n = std::strlen(text) + 1;
  auto* p = static_cast<char*>(memman_alloc(mm, n, 1, false, at));
  if (p != nullptr) std::memcpy(p, text, n);
  return p;
}

bool memman_debugging(const memman* mm) { return mm->debug; }

void memman_scan(memman* mm, const Location& at) {
  if (!mm->debug || !lock(mm)) return;
  scan_locked(mm, at);
  unlock(mm);
}

void memman_lockblock(memman* mm, const void* pointer, const Location& at) {
  if (!mm->debug || pointer == nullptr || !lock(mm)) return;
  Block* b = *find_link(mm, pointer);
  if (b == nullptr) corrupted(mm, at, "Block at adr. %p is not in list.\n", pointer);
  b->digest = md5(pointer, b->size);
  b->locked = true;
  unlock(mm);
}

void memman_unlockall(memman* mm) {
  if (!mm->debug || !lock(mm)) return;
  for (Block* b = mm->record.first_block; b != nullptr; b = b->next) b->locked = false;
  unlock(mm);
}

void memman_usage(memman* mm, std::size_t* current, std::size_t* maximum) {
  *current = *maximum = 0;
  if (!mm->debug || !lock(mm)) return;
  *current = mm->current_bytes;
  *maximum = mm->peak_bytes;
  unlock(mm);
}

bool memman_openfile(memman* mm, const char* filename, const char* header) {
  if (!lock(mm)) return false;
  close_file(mm);
  mm->debug_file = std::fopen(filename, "we");
  tell(mm, "Header: %s\n", header);
  tell_time(mm, "\nFile opened: ");
  const bool opened = mm->debug_file != nullptr;
  unlock(mm);
  return opened;
}

void memman_echotofile(memman* mm, const char* text) {
  if (mm->debug_file == nullptr || !lock(mm)) return;
  tell(mm, "%s", text);
  unlock(mm);
}

}  // namespace tarvo
