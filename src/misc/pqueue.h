// The priority queue of the orderings: elements 0..maxe-1 with priorities >= 0 that have no upper end. Priorities below
// numbuckets hang in one list each, all others together in an overflow list that is searched when the buckets are
// empty. Broken rules of use are internal errors and end the process.
#pragma once

#include <cstdint>

#include "cpub/array.h"

namespace tarvo {

struct pqueue {
  sysenv* env = nullptr;
  int32_t none = 0;  // the end of a list; maxe
  int32_t numbuckets = 0;
  int32_t minp = 0;  // no element has a lower priority
  int32_t overflow = 0;
  Array<int32_t> head;           // [numbuckets]
  Array<int32_t> p, prev, next;  // [maxe]
  Array<int8_t> inq;             // [maxe]
};

// Sets up an empty queue. False when out of memory.
[[nodiscard]] bool pqueue_make(pqueue* q, sysenv* env, int32_t maxe, int32_t numbuckets);
void pqueue_ins(pqueue* q, int32_t e, int32_t p);  // to the head of its list; an element that is there moves
void pqueue_del(pqueue* q, int32_t e);             // nothing when it is not there
void pqueue_decp(pqueue* q, int32_t e, int32_t dec);
void pqueue_incp(pqueue* q, int32_t e, int32_t inc);
// An element of lowest priority, which stays in the queue. False on an empty queue.
bool pqueue_tomin(pqueue* q, int32_t* e, int32_t* p);

}  // namespace tarvo
