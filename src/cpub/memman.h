// The memory manager of a sysenv: a thin layer over the allocator, and with debugging on a record of every block with
// guard bytes around it. What is found damaged ends the process.
#pragma once

#include "cpub/sysenv.h"

namespace tarvo {

struct memman;

// With `use_mutex` several threads may use the manager at once. The functions are the caller's or NULL, both together,
// for the C runtime's. NULL when out of memory.
memman* memman_make(bool use_mutex, bool debug, void* handle, AllocFunc alloc, FreeFunc free);
// Scans, frees *mm and sets it to NULL. The result is the number of blocks left (0 without debugging); these stay
// allocated.
int64_t memman_delete(memman** mm, const Location& at);
void memman_putfatal(memman* mm, void* handle, FatalFunc func);

void* memman_alloc(memman* mm, std::size_t count, std::size_t size, bool zero, const Location& at);
void memman_free(memman* mm, void* pointer, const Location& at);
void* memman_realloc(memman* mm, std::size_t newsize, std::size_t oldsize, void* pointer, const Location& at);
char* memman_strdup(memman* mm, const char* text, const Location& at);

bool memman_debugging(const memman* mm);
void memman_scan(memman* mm, const Location& at);
void memman_lockblock(memman* mm, const void* pointer, const Location& at);
void memman_unlockall(memman* mm);
void memman_usage(memman* mm, std::size_t* current, std::size_t* maximum);
bool memman_openfile(memman* mm, const char* filename, const char* header);
void memman_echotofile(memman* mm, const char* text);

}  // namespace tarvo
