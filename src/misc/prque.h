// A bucket priority queue: a set of elements 0..maxe-1, each with an integer key 0..maxp, in doubly linked buckets, one
// bucket a key. All operations are O(1), but for the search of the next non-empty bucket.
//
// An element or key out of range is a broken invariant and ends the process.
#pragma once

#include <cstdint>

#include "cpub/array.h"

namespace tarvo {

struct prque {
  sysenv* env = nullptr;
  int32_t maxe = 0;
  int32_t maxp = -1;
  int32_t inactive = 0;      // maxp + 1: the key of an absent element, and "no bucket"
  int32_t* first = nullptr;  // [maxp + 1] bucket heads; maxe ends a bucket
  int32_t* key = nullptr;    // [maxe]
  int32_t* next = nullptr;   // [maxe]
  int32_t* prev = nullptr;   // [maxe]; maxe at the head of a bucket
  int32_t count = 0;         // elements present
  int32_t minkey = 0;        // lowest non-empty key, or inactive
  int32_t cursor = 0;        // element under the cursor, or maxe
  Array<int32_t> own;        // the block, when the queue has one of its own
};

// Integers that a queue lives on.
constexpr int64_t pq_blocksize(int32_t maxe, int32_t maxp) { return int64_t{maxp} + 3 * int64_t{maxe} + 1; }
// Sets up an empty queue on a block of the caller's memory. False when it is shorter than pq_blocksize.
[[nodiscard]] bool pq_setup(prque* q, sysenv* env, int32_t maxe, int32_t maxp, int64_t len, int32_t* block);
// The same on a block that the queue owns. False when out of memory.
[[nodiscard]] bool pq_make(prque* q, sysenv* env, int32_t maxe, int32_t maxp);

[[noreturn]] void pq_rangefault(const prque* q, int32_t e, int32_t p);

inline void pq_check(const prque* q, int32_t e, int32_t p) {
  if (e < 0 || e >= q->maxe || p < 0 || p > q->maxp) [[unlikely]]
    pq_rangefault(q, e, p);
}
inline bool pq_has(const prque* q, int32_t e) { return q->key[e] != q->inactive; }
// The lowest non-empty key at or above p, or inactive.
inline int32_t pq_bucketfrom(const prque* q, int32_t p) {
  while (p <= q->maxp && q->first[p] == q->maxe) ++p;
  return p;
}

// Puts an absent element at the head of its bucket.
inline void pq_insert(prque* q, int32_t e, int32_t p) {
  pq_check(q, e, p);
  const int32_t head = q->first[p];
  q->key[e] = p;
  q->next[e] = head;
  q->prev[e] = q->maxe;
  if (head != q->maxe) q->prev[head] = e;
  q->first[p] = e;
  ++q->count;
  if (p < q->minkey) q->minkey = p;
}

// Takes a present element out. A cursor on it goes to the next element of the bucket, else to the first one of the next
// non-empty bucket, else to the end.
inline void pq_remove(prque* q, int32_t e) {
  const int32_t p = q->key[e];
  pq_check(q, e, p);
  const int32_t after = q->next[e], before = q->prev[e];
  if (before == q->maxe) {
    q->first[p] = after;
  } else {
    q->next[before] = after;
  }
  if (after != q->maxe) q->prev[after] = before;
  q->key[e] = q->inactive;
  --q->count;
  if (p == q->minkey && q->first[p] == q->maxe) q->minkey = q->count == 0 ? q->inactive : pq_bucketfrom(q, p + 1);
  if (e == q->cursor) {
    const int32_t bucket = after == q->maxe ? pq_bucketfrom(q, p + 1) : q->inactive;
    q->cursor = bucket == q->inactive ? after : q->first[bucket];
  }
}

// Gives an element the key p, present or not. An unchanged key leaves the element where it is in its bucket.
inline void pq_put(prque* q, int32_t e, int32_t p) {
  if (q->key[e] == p) return;
  if (pq_has(q, e)) pq_remove(q, e);
  pq_insert(q, e, p);
}

// Cursor: to the first element of the lowest key; to the bucket of key p; to the next element of the bucket. False,
// with the cursor at the end, when there is none.
inline bool pq_tolowest(prque* q) {
  q->cursor = q->count == 0 ? q->maxe : q->first[q->minkey];
  return q->cursor != q->maxe;
}
inline bool pq_tobucket(prque* q, int32_t p) {
  q->cursor = q->first[p];
  return q->cursor != q->maxe;
}
inline bool pq_step(prque* q) {
  q->cursor = q->next[q->cursor];
  return q->cursor != q->maxe;
}

}  // namespace tarvo
