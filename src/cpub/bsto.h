// A byte store for data of unknown size: it grows at its end by pages, and what is in it never moves.
#pragma once

#include "cpub/array.h"

namespace tarvo {

struct bsto {
  sysenv* env;
  Array<char*> page;  // the table of pages; the first num_pages exist
  int64_t num_pages, page_size;
  int64_t used;  // bytes
};

// NULL when out of memory. A page size of 0 counts as 1.
bsto* bsto_make(sysenv* env, int64_t page_size);
void bsto_delete(bsto** store);
// Makes sure that `bytes` more fit. 1, or 0 when out of memory.
int32_t bsto_makeroom(bsto* store, int64_t bytes);
// Appends: 1, or 0 when out of memory (nothing is appended then).
int32_t bsto_append(bsto* store, int64_t bytes, const void* source);
// Copies a range that was written before.
void bsto_read(const bsto* store, int64_t offset, int64_t bytes, void* destination);
// Forgets the bytes from `used` on; the pages stay.
void bsto_rewind(bsto* store, int64_t used = 0);

}  // namespace tarvo
