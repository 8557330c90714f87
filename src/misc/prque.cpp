#include "misc/prque.h"

#include <cstdio>

namespace tarvo {

bool pq_setup(prque* q, sysenv* env, int32_t maxe, int32_t maxp, int64_t len, int32_t* block) {
  if (len < pq_blocksize(maxe, maxp)) return false;
  q->env = env;
  q->maxe = maxe;
  q->maxp = maxp;
  q->inactive = maxp + 1;
  q->first = block;
  q->key = q->first + maxp + 1;
  q->next = q->key + maxe;
  q->prev = q->next + maxe;
  q->count = 0;
  q->minkey = q->inactive;
  q->cursor = maxe;
  for (int32_t p = 0; p <= maxp; ++p) q->first[p] = maxe;
  for (int32_t e = 0; e < maxe; ++e) q->key[e] = q->inactive;
  return true;
}

bool pq_make(prque* q, sysenv* env, int32_t maxe, int32_t maxp) {
  const int64_t len = pq_blocksize(maxe, maxp);
  return q->own.alloc(env, static_cast<std::size_t>(len)) && pq_setup(q, env, maxe, maxp, len, q->own.data());
}

void pq_rangefault(const prque* q, int32_t e, int32_t p) {
  char text[128];
  std::snprintf(text, sizeof text, "0 <= e=%d <= maxe=%d  && 0 <= p=%d <= maxp=%d\n", e, q->maxe, p, q->maxp);
  sysenv_fatal(q->env, text);
}

}  // namespace tarvo
