#include "misc/pqueue.h"

#include <algorithm>
#include <cstdio>

namespace tarvo {

namespace {

int32_t* list_of(pqueue* q, int32_t p) { return p < q->numbuckets ? &q->head[p] : &q->overflow; }

}  // namespace

bool pqueue_make(pqueue* q, sysenv* env, int32_t maxe, int32_t numbuckets) {
  const auto n = static_cast<std::size_t>(maxe);
  if (!q->head.alloc(env, static_cast<std::size_t>(numbuckets)) || !q->p.alloc(env, n) || !q->prev.alloc(env, n) ||
      !q->next.alloc(env, n) || !q->inq.alloc(env, n, Fill::zero))
    return false;
  q->env = env;
  q->none = q->overflow = maxe;
  q->numbuckets = q->minp = numbuckets;
  std::fill(q->head.begin(), q->head.end(), maxe);
  return true;
}

void pqueue_del(pqueue* q, int32_t e) {
  if (q->inq[e] == 0) return;
  const int32_t before = q->prev[e], after = q->next[e];
  if (before == q->none)
    *list_of(q, q->p[e]) = after;
  else
    q->next[before] = after;
  if (after != q->none) q->prev[after] = before;
  q->inq[e] = 0;
}

void pqueue_ins(pqueue* q, int32_t e, int32_t p) {
  if (p < 0) {
    char text[64];
    std::snprintf(text, sizeof text, "e: %d p: %d<0", e, p);
    sysenv_fatal(q->env, text);
  }
  pqueue_del(q, e);
  q->minp = std::min(q->minp, p);
  int32_t* list = list_of(q, p);
  q->p[e] = p;
  q->prev[e] = q->none;
  q->next[e] = *list;
  if (*list != q->none) q->prev[*list] = e;
  *list = e;
  q->inq[e] = 1;
}

void pqueue_decp(pqueue* q, int32_t e, int32_t dec) {
  if (q->inq[e] == 0) sysenv_fatal(q->env, "!pque->inq[e]");
  if (dec > q->p[e]) sysenv_fatal(q->env, "dec>pque->p[e]");
  pqueue_ins(q, e, q->p[e] - dec);
}

void pqueue_incp(pqueue* q, int32_t e, int32_t inc) {
  if (q->inq[e] == 0) sysenv_fatal(q->env, "!pque->inq[e]");
  pqueue_ins(q, e, q->p[e] + inc);
}

bool pqueue_tomin(pqueue* q, int32_t* e, int32_t* p) {
  for (int32_t k = q->minp; k < q->numbuckets; ++k) {
    if (q->head[k] == q->none) continue;
    q->minp = k;
    *e = q->head[k];
    *p = k;
    return true;
  }
  if (q->overflow == q->none) return false;
  // A priority above the buckets says nothing about where the next search must start but that they are empty.
  int32_t best = q->overflow;
  for (int32_t k = q->next[best]; k != q->none; k = q->next[k])
    if (q->p[k] < q->p[best]) best = k;
  if (q->p[best] < q->minp) sysenv_fatal(q->env, "p error");
  q->minp = q->numbuckets;
  *e = best;
  *p = q->p[best];
  return true;
}

}  // namespace tarvo
