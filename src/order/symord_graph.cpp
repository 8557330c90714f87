// The quotient graph before and between the pivots: rows, merging, stages, storage.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "order/symord_internal.h"

namespace tarvo {

namespace {

constexpr int64_t hookwork = 1000000;

// Each edge in the rows of both ends.
void fill_rows(SymOrd* ord, const OrderGraph& graph) {
  const int32_t n = ord->n;
  for (int32_t j = 0; j < n; ++j) {
    for (int64_t p = graph.start[j]; p < graph.start[j + 1]; ++p) {
      const int32_t i = graph.sub[p];
      if (i == j) continue;
      ++ord->iuse[i];
      ++ord->iuse[j];
    }
  }
  for (int32_t j = 0; j < n; ++j) {
    ord->ifir[j] = ord->ifree;
    ord->ifree += ord->iuse[j];
    ord->iuse[j] = 0;
  }
  for (int32_t j = 0; j < n; ++j) {
    for (int64_t p = graph.start[j]; p < graph.start[j + 1]; ++p) {
      const int32_t i = graph.sub[p];
      if (i == j) continue;
      ord->sub[ord->ifir[i] + ord->iuse[i]++] = j;
      ord->sub[ord->ifir[j] + ord->iuse[j]++] = i;
    }
  }
}

int32_t bucket_of(const SymOrd* ord, uint32_t hash) {
  return static_cast<int32_t>((uint64_t{hash} * static_cast<uint64_t>(ord->n)) >> 32);
}

// Takes the list of y's bucket and empties the bucket.
int32_t take_bucket(SymOrd* ord, int32_t y) {
  int32_t* head = &ord->hashhead[bucket_of(ord, static_cast<uint32_t>(ord->hash[y]))];
  const int32_t first = *head;
  *head = -1;
  return first;
}

void put_bucket(SymOrd* ord, int32_t y) {
  int32_t* head = &ord->hashhead[bucket_of(ord, static_cast<uint32_t>(ord->hash[y]))];
  ord->hashnext[y] = *head;
  *head = y;
}

bool marked_row(const SymOrd* ord, int32_t y) {
  const int32_t* row = ord->sub.data() + ord->ifir[y];
  for (int32_t k = 0; k < ord->iuse[y]; ++k)
    if (ord->mark[row[k]] != ord->flag) return false;
  return true;
}

void mark_row(SymOrd* ord, int32_t y) {
  ++ord->flag;
  const int32_t* row = ord->sub.data() + ord->ifir[y];
  for (int32_t k = 0; k < ord->iuse[y]; ++k) ord->mark[row[k]] = ord->flag;
}

void absorb_variable(SymOrd* ord, int32_t into, int32_t y) {
  ord->weight[into] += ord->weight[y];
  ord->weight[y] = 0;
  ord->kind[y] = SYM_DEAD;
  ord->chain[ord->ctail[into]] = y;
  ord->ctail[into] = ord->ctail[y];
}

// Empties x's bucket and joins what has the same row; `closed`: when each node counts as its own neighbour.
template <class Join>
void group_bucket(SymOrd* ord, int32_t x, bool closed, Join join) {
  for (int32_t y = take_bucket(ord, x); y >= 0; y = ord->hashnext[y]) {
    int32_t last = y, next = ord->hashnext[y];
    bool marks = false;
    for (int32_t z = next; z >= 0; z = next) {
      next = ord->hashnext[z];
      if (ord->hash[z] == ord->hash[y] && ord->iuse[z] == ord->iuse[y] && ord->nnoe[z] == ord->nnoe[y]) {
        if (!marks) {
          mark_row(ord, y);
          if (closed) ord->mark[y] = ord->flag;
          marks = true;
        }
        if ((!closed || ord->mark[z] == ord->flag) && marked_row(ord, z)) {
          join(y, z);
          continue;
        }
      }
      ord->hashnext[last] = z;
      last = z;
    }
    ord->hashnext[last] = -1;
  }
}

// Neighbours with the same closed neighbourhood become one variable.
void symord_prepro(SymOrd* ord) {
  const int32_t n = ord->n;
  for (int32_t y = 0; y < n; ++y) {
    uint32_t sum = symord_mix(y);
    const int32_t* row = ord->sub.data() + ord->ifir[y];
    for (int32_t k = 0; k < ord->iuse[y]; ++k) sum += symord_mix(row[k]);
    ord->hash[y] = static_cast<int32_t>(sum);
    put_bucket(ord, y);
  }
  bool any = false;
  for (int32_t x = 0; x < n; ++x) {
    group_bucket(ord, x, true, [ord, &any](int32_t y, int32_t z) {
      absorb_variable(ord, y, z);
      any = true;
    });
  }
  if (!any) return;
  for (int32_t y = 0; y < n; ++y) {
    if (ord->weight[y] == 0) {
      ord->iuse[y] = 0;
      continue;
    }
    int32_t* row = ord->sub.data() + ord->ifir[y];
    int32_t kept = 0;
    for (int32_t k = 0; k < ord->iuse[y]; ++k)
      if (ord->weight[row[k]] != 0) row[kept++] = row[k];
    ord->iuse[y] = kept;
  }
}

// Rings of variables that are no neighbours and have the same ones.
void link_twins(SymOrd* ord) {
  const int32_t n = ord->n;
  for (int32_t y = 0; y < n; ++y) {
    ord->twin[y] = y;
    if (ord->weight[y] == 0 || ord->iuse[y] == 0) continue;
    uint32_t sum = 0;
    const int32_t* row = ord->sub.data() + ord->ifir[y];
    for (int32_t k = 0; k < ord->iuse[y]; ++k) sum += symord_mix(row[k]);
    ord->hash[y] = static_cast<int32_t>(sum);
    put_bucket(ord, y);
  }
  for (int32_t x = 0; x < n; ++x) {
    if (ord->weight[x] == 0 || ord->iuse[x] == 0) continue;
    group_bucket(ord, x, false, [ord](int32_t y, int32_t z) {
      ord->twin[z] = ord->twin[y];
      ord->twin[y] = z;
    });
  }
}

// Slides the rows down. The head of a row carries its owner while this goes on.
void symord_garcol(SymOrd* ord) {
  int32_t* sub = ord->sub.data();
  for (int32_t y = 0; y < ord->n; ++y) {
    if (ord->kind[y] == SYM_DEAD || ord->iuse[y] == 0) continue;
    const int32_t first = sub[ord->ifir[y]];
    sub[ord->ifir[y]] = -1 - y;
    ord->ifir[y] = first;
  }
  int64_t to = 0;
  for (int64_t from = 0; from < ord->ifree;) {
    if (sub[from] >= 0) {
      ++from;
      continue;
    }
    const int32_t y = -1 - sub[from];
    const int32_t length = ord->iuse[y];
    sub[from] = static_cast<int32_t>(ord->ifir[y]);
    ord->ifir[y] = to;
    std::memmove(sub + to, sub + from, static_cast<std::size_t>(length) * sizeof(int32_t));
    to += length;
    from += length;
  }
  ord->ifree = to;
}

}  // namespace

bool symord_make(SymOrd* ord, sysenv* env, const OrderGraph& graph, SymScore otype) {
  const auto n = static_cast<std::size_t>(graph.n);
  const auto entries = static_cast<std::size_t>(graph.start[graph.n]);
  ord->env = env;
  ord->n = graph.n;
  ord->otype = otype;
  // Keys of the first kind are below n; those of the other are the leading bits of a float.
  const int32_t buckets = otype == SCORE_MINLOC ? graph.n + 1 : 16384;
  if (!ord->sub.alloc(env, 2 * entries + entries / 4 + n) || !ord->ifir.alloc(env, n) ||
      !ord->iuse.alloc(env, n, Fill::zero) || !ord->nnoe.alloc(env, n, Fill::zero) || !ord->weight.alloc(env, n) ||
      !ord->deg.alloc(env, n) || !ord->chain.alloc(env, n) || !ord->ctail.alloc(env, n) || !ord->twin.alloc(env, n) ||
      !ord->stage.alloc(env, n, Fill::zero) || !ord->kind.alloc(env, n) || !ord->mark.alloc(env, n, Fill::zero) ||
      !ord->hash.alloc(env, n) || !ord->hashnext.alloc(env, n) || !ord->hashhead.alloc(env, n) ||
      !ord->clique.alloc(env, n) || !ord->seen.alloc(env, n) || !ord->cover.alloc(env, n) ||
      !ord->outside.alloc(env, n) || !pqueue_make(&ord->queue, env, graph.n, buckets))
    return false;
  for (int32_t y = 0; y < graph.n; ++y) {
    ord->weight[y] = 1;
    ord->chain[y] = ord->hashhead[y] = -1;
    ord->ctail[y] = y;
    ord->kind[y] = SYM_VARIABLE;
  }
  fill_rows(ord, graph);
  symord_prepro(ord);
  link_twins(ord);
  return true;
}

int32_t symord_postpone(SymOrd* ord) {
  int64_t total = 0, count = 0;
  for (int32_t y = 0; y < ord->n; ++y) {
    total += ord->iuse[y];
    count += ord->weight[y] != 0 ? 1 : 0;
  }
  if (count == 0) return 0;
  // Far above the mean, and above what a planar or a space graph has anywhere.
  const double cutoff =
      std::max(5.0 * static_cast<double>(total / count) + 5.0, 10.0 * std::sqrt(static_cast<double>(ord->n)));
  int32_t ndense = 0;
  for (int32_t y = 0; y < ord->n; ++y) {
    if (ord->iuse[y] <= cutoff) continue;
    ord->stage[y] = ord->numstages;
    ++ndense;
  }
  if (ndense != 0) ++ord->numstages;
  return ndense;
}

bool symord_room(SymOrd* ord, int64_t need) {
  const auto size = static_cast<int64_t>(ord->sub.size());
  if (ord->ifree + need <= size) return true;
  symord_garcol(ord);
  if (ord->ifree + need + size / 20 <= size) return true;
  return ord->sub.resize_keep(ord->env, static_cast<std::size_t>(ord->ifree + need + size / 4));
}

void symord_merge(SymOrd* ord, const int32_t* list, int32_t count) {
  for (int32_t k = 0; k < count; ++k)
    if (ord->weight[list[k]] != 0) put_bucket(ord, list[k]);
  for (int32_t k = 0; k < count; ++k) {
    if (ord->weight[list[k]] == 0) continue;
    group_bucket(ord, list[k], false, [ord](int32_t y, int32_t z) { absorb_variable(ord, y, z); });
  }
}

// Opens a stage: the variables of elements that belong to it get these elements into their rows.
void symord_release(SymOrd* ord, int32_t stage) {
  const int32_t n = ord->n;
  int64_t pairs = 0;
  for (int32_t e = 0; e < n; ++e) {
    if (ord->kind[e] != SYM_ELEMENT) continue;
    int32_t* row = ord->sub.data() + ord->ifir[e];
    int32_t open = 0;
    for (int32_t k = 0; k < ord->iuse[e]; ++k) {
      const int32_t y = row[k];
      if (ord->stage[y] != stage) continue;
      row[k] = row[open];
      row[open++] = y;
      ++ord->nnoe[y];
    }
    ord->nnoe[e] = ord->iuse[e] - open;
    pairs += int64_t{open} * ord->iuse[e];
  }
  int32_t released = 0;
  for (int32_t y = 0; y < n; ++y) {
    if (ord->kind[y] != SYM_HELD || ord->stage[y] != stage) continue;
    ord->kind[y] = SYM_VARIABLE;
    ord->clique[released++] = y;
    int32_t* row = ord->sub.data() + ord->ifir[y];
    int32_t kept = 0;
    for (int32_t k = 0; k < ord->iuse[y]; ++k)
      if (ord->weight[row[k]] != 0) row[kept++] = row[k];
    const int32_t elements = ord->nnoe[y];
    if (kept + elements > ord->iuse[y]) sysenv_fatal(ord->env, "iuse[y]>isze[y]");
    std::memmove(row + elements, row, static_cast<std::size_t>(kept) * sizeof(int32_t));
    ord->iuse[y] = kept + elements;
    ord->deg[y] = 0;  // elements placed
  }
  for (int32_t e = 0; e < n; ++e) {
    if (ord->kind[e] != SYM_ELEMENT) continue;
    const int32_t* row = ord->sub.data() + ord->ifir[e];
    for (int32_t k = 0; k < ord->iuse[e] - ord->nnoe[e]; ++k) ord->sub[ord->ifir[row[k]] + ord->deg[row[k]]++] = e;
  }
  // A neighbour that an element covers is no plain one; leaving some only blurs the scores.
  const bool clean = pairs <= 20 * static_cast<int64_t>(ord->sub.size());
  for (int32_t k = 0; k < released; ++k) {
    const int32_t y = ord->clique[k];
    int32_t* row = ord->sub.data() + ord->ifir[y];
    ++ord->flag;
    uint32_t sum = 0;
    for (int32_t t = 0; t < ord->nnoe[y]; ++t) {
      sum += symord_mix(row[t]);
      if (!clean) continue;
      const int32_t* other = ord->sub.data() + ord->ifir[row[t]];
      for (int32_t s = 0; s < ord->iuse[row[t]]; ++s) ord->mark[other[s]] = ord->flag;
    }
    int32_t kept = ord->nnoe[y];
    for (int32_t t = ord->nnoe[y]; t < ord->iuse[y]; ++t) {
      if (ord->mark[row[t]] == ord->flag) continue;
      sum += symord_mix(row[t]);
      row[kept++] = row[t];
    }
    ord->iuse[y] = kept;
    ord->hash[y] = static_cast<int32_t>(sum);
  }
  symord_merge(ord, ord->clique.data(), released);
  for (int32_t k = 0; k < released; ++k)
    if (ord->weight[ord->clique[k]] != 0) symord_score(ord, ord->clique[k]);
}

int32_t symord_eliminate(SymOrd* ord, const OrderHook* hook, int32_t* perm, OrderCounts* counts) {
  const int32_t n = ord->n;
  ord->hook = hook;
  ord->perm = perm;
  for (int32_t y = 0; y < n; ++y) {
    if (ord->kind[y] != SYM_VARIABLE) continue;
    if (ord->stage[y] == 0)
      symord_score(ord, y);
    else
      ord->kind[y] = SYM_HELD;
  }
  for (int32_t stage = 0; stage < ord->numstages; ++stage) {
    if (stage > 0) symord_release(ord, stage);
    for (int32_t x, key; pqueue_tomin(&ord->queue, &x, &key);) {
      symord_twinpivots(ord, x);
      if (!symord_x1pivot(ord, x)) return ORDER_SPACE;
      if (ord->touched < hookwork) continue;
      ord->touched = 0;
      if (hook != nullptr && hook->func != nullptr && hook->func(hook->handle, 2, 100.0 * (n - ord->nelim) / n) != 0)
        return ORDER_CANCELLED;
    }
  }
  if (ord->nelim != n) sysenv_fatal(ord->env, "p error");
  counts->nnz = ord->nnz;
  counts->work = ord->work;
  return ORDER_OK;
}

}  // namespace tarvo
