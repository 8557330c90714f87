// One pivot of the quotient graph, and the scores that choose it.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "order/symord_internal.h"

namespace tarvo {

namespace {

// Monotone; exact below 256, then 8 bits behind the leading one.
int32_t float_key(double fill) {
  if (fill < 256.0) return static_cast<int32_t>(fill);
  const uint32_t bits = std::bit_cast<uint32_t>(static_cast<float>(fill)) >> 15;
  constexpr uint32_t base = 0x43800000u >> 15;  // of 256
  return static_cast<int32_t>(256 + bits - base);
}

struct Front {
  int32_t pivot;
  int32_t elim;        // weight of what goes now
  int32_t size;        // weight of the variables behind
  int32_t open, held;  // their numbers
  int32_t* row;
};

// The variables around the pivot make its element: those of its elements, which it absorbs, and its plain neighbours.
// Their weights turn negative and they leave the queue.
void form_clique(SymOrd* ord, Front* front) {
  int32_t* sub = ord->sub.data();
  const int32_t x = front->pivot;
  int32_t* held = ord->seen.data();
  const auto take = [&](int32_t y) {
    const int32_t w = ord->weight[y];
    if (w <= 0) return;
    ord->weight[y] = -w;
    front->size += w;
    if (ord->kind[y] == SYM_HELD) {
      held[front->held++] = y;
    } else {
      front->row[front->open++] = y;
      pqueue_del(&ord->queue, y);
    }
  };
  const int32_t* row = sub + ord->ifir[x];
  for (int32_t k = 0; k < ord->nnoe[x]; ++k) {
    const int32_t e = row[k];
    if (ord->kind[e] != SYM_ELEMENT) continue;
    const int32_t* members = sub + ord->ifir[e];
    for (int32_t t = 0; t < ord->iuse[e]; ++t) take(members[t]);
    ord->touched += ord->iuse[e];
    ord->kind[e] = SYM_DEAD;
  }
  // Without elements the row is written over itself.
  for (int32_t k = ord->nnoe[x]; k < ord->iuse[x]; ++k) take(row[k]);
  std::memcpy(front->row + front->open, held, static_cast<std::size_t>(front->held) * sizeof(int32_t));
}

// mark[e] = flag + weight of e outside the clique, for the elements e around it.
void measure_elements(SymOrd* ord, const Front& front) {
  const int64_t flag = ord->flag;
  int32_t* sub = ord->sub.data();
  int32_t nseen = 0;
  for (int32_t k = 0; k < front.open; ++k) {
    const int32_t y = front.row[k];
    const int32_t w = -ord->weight[y];
    const int32_t* row = sub + ord->ifir[y];
    for (int32_t t = 0; t < ord->nnoe[y]; ++t) {
      const int32_t e = row[t];
      if (ord->kind[e] != SYM_ELEMENT) continue;
      int64_t m = ord->mark[e];
      if (m < flag) {
        m = flag + ord->deg[e];
        if (ord->nnoe[e] != 0) ord->seen[nseen++] = e;
      }
      ord->mark[e] = m - w;
    }
    ord->touched += ord->iuse[y];
  }
  for (int32_t k = 0; k < nseen; ++k) {
    const int32_t e = ord->seen[k];
    const int32_t* members = sub + ord->ifir[e];
    for (int32_t t = ord->iuse[e] - ord->nnoe[e]; t < ord->iuse[e]; ++t)
      ord->mark[e] += std::min(ord->weight[members[t]], 0);
    ord->touched += ord->nnoe[e];
  }
}

// Brings the row of y up to date and measures what its score needs, but for the part of the new element. True when
// nothing but the new element is left around y.
bool update_row(SymOrd* ord, int32_t x, int32_t y) {
  const int32_t w = -ord->weight[y];
  int32_t* row = ord->sub.data() + ord->ifir[y];
  const int32_t length = ord->iuse[y], elements = ord->nnoe[y];
  const bool largest = ord->otype == SCORE_MINLOC;
  int64_t d = 0, cover = 0;
  uint32_t hash = symord_mix(x);
  int32_t kept = 0;
  for (int32_t k = 0; k < elements; ++k) {
    const int32_t e = row[k];
    if (ord->kind[e] != SYM_ELEMENT) continue;
    const int64_t t = ord->mark[e] - ord->flag;
    if (t == 0) {  // lies in the new element
      ord->kind[e] = SYM_DEAD;
      continue;
    }
    d += t;
    cover = largest ? std::max<int64_t>(cover, ord->deg[e] - w) : cover + t * (t - 1);
    hash += symord_mix(e);
    row[kept++] = e;
  }
  const int32_t first_plain = kept;
  for (int32_t k = elements; k < length; ++k) {
    const int32_t v = row[k];
    const int64_t s = ord->weight[v];
    if (s <= 0) continue;
    d += s;
    if (!largest) cover += s * (s - 1);
    hash += symord_mix(v);
    row[kept++] = v;
  }
  if (kept == 0) return true;
  // The new element goes first; there is room, as an element or the pivot left the row.
  row[kept] = row[first_plain];
  row[first_plain] = row[0];
  row[0] = x;
  ord->nnoe[y] = first_plain + 1;
  ord->iuse[y] = kept + 1;
  ord->hash[y] = static_cast<int32_t>(hash);
  ord->cover[y] = largest ? cover : d * (d - 1) - cover;
  ord->outside[y] = d;
  return false;
}

}  // namespace

void symord_enqueue(SymOrd* ord, int32_t y, int64_t pairs) {
  int32_t key;
  const double weight = ord->weight[y];
  if (ord->otype == SCORE_MINLOC)
    key = static_cast<int32_t>(std::sqrt(static_cast<double>(std::max<int64_t>(pairs, 0))));
  else if (ord->otype == SCORE_MINFILL)
    key = float_key(static_cast<double>(pairs / 2) / std::sqrt(weight));
  else
    key = float_key(static_cast<double>(pairs / 2) / (weight + 1.0));
  pqueue_ins(&ord->queue, y, key);
}

void symord_score(SymOrd* ord, int32_t y) {
  const int32_t* row = ord->sub.data() + ord->ifir[y];
  int64_t d = 0, largest = 0, cover = 0;
  for (int32_t k = 0; k < ord->iuse[y]; ++k) {
    const bool element = k < ord->nnoe[y];
    const int64_t t = element ? ord->deg[row[k]] - ord->weight[y] : ord->weight[row[k]];
    d += t;
    cover += t * (t - 1);
    if (element) largest = std::max(largest, t);
  }
  ord->deg[y] = static_cast<int32_t>(std::min<int64_t>(d, ord->n - ord->nelim - ord->weight[y]));
  if (ord->otype == SCORE_MINLOC) {
    d = ord->deg[y];
    cover = largest * (largest - 1);
  }
  symord_enqueue(ord, y, d * (d - 1) - cover);
}

void symord_settle(SymOrd* ord, int32_t x, int32_t weight, int64_t below) {
  for (int32_t y = x; y >= 0; y = ord->chain[y]) ord->perm[ord->nelim++] = y;
  // sums of c and c^2 for c = below + 1 .. below + weight
  const auto f = static_cast<double>(weight), s = static_cast<double>(below);
  ord->nnz += int64_t{weight} * below + int64_t{weight} * (int64_t{weight} + 1) / 2;
  ord->work += f * s * s + s * f * (f + 1.0) + f * (f + 1.0) * (2.0 * f + 1.0) / 6.0;
}

// The first elimination among twins makes their neighbours a clique: the others follow without fill.
void symord_twinpivots(SymOrd* ord, int32_t x) {
  if (ord->twin[x] == x || ord->nnoe[x] != 0) return;
  int64_t below = -1;
  for (int32_t y = ord->twin[x]; y != x; y = ord->twin[y]) {
    if (ord->kind[y] != SYM_VARIABLE || ord->nnoe[y] != 0) continue;
    if (below < 0) {
      below = 0;
      for (int32_t k = 0; k < ord->iuse[x]; ++k) below += ord->weight[ord->sub[ord->ifir[x] + k]];
    }
    pqueue_del(&ord->queue, y);
    symord_settle(ord, y, ord->weight[y], below);
    ord->weight[y] = 0;
    ord->kind[y] = SYM_DEAD;
  }
}

bool symord_x1pivot(SymOrd* ord, int32_t x) {
  pqueue_del(&ord->queue, x);
  const bool inplace = ord->nnoe[x] == 0;
  if (!inplace) {
    int64_t need = ord->iuse[x];
    for (int32_t k = 0; k < ord->nnoe[x]; ++k) need += ord->iuse[ord->sub[ord->ifir[x] + k]];
    if (!symord_room(ord, std::min<int64_t>(need, ord->n - ord->nelim))) return false;
  }
  Front front{};
  front.pivot = x;
  front.elim = ord->weight[x];
  front.row = ord->sub.data() + (inplace ? ord->ifir[x] : ord->ifree);
  ord->weight[x] = -front.elim;
  form_clique(ord, &front);

  ord->flag += int64_t{ord->n} + 1;
  measure_elements(ord, front);
  int32_t open = 0;
  for (int32_t k = 0; k < front.open; ++k) {
    const int32_t y = front.row[k];
    if (update_row(ord, x, y)) {
      const int32_t w = -ord->weight[y];
      front.elim += w;
      front.size -= w;
      ord->weight[y] = 0;
      ord->kind[y] = SYM_DEAD;
      ord->chain[ord->ctail[x]] = y;
      ord->ctail[x] = ord->ctail[y];
    } else {
      ord->deg[y] = static_cast<int32_t>(std::min<int64_t>(ord->deg[y], ord->outside[y]));
      front.row[open++] = y;
    }
  }
  const int32_t* held = front.row + front.open;
  front.open = open;
  ord->flag += int64_t{ord->n} + 1;
  symord_merge(ord, front.row, open);

  symord_settle(ord, x, front.elim, front.size);
  const int32_t left = ord->n - ord->nelim;
  open = 0;
  for (int32_t k = 0; k < front.open; ++k) {
    const int32_t y = front.row[k], w = -ord->weight[y];
    if (w == 0) continue;
    front.row[open++] = y;
    ord->weight[y] = w;
    const int64_t t = front.size - w;
    ord->deg[y] = static_cast<int32_t>(std::min<int64_t>(int64_t{ord->deg[y]} + t, left - w));
    if (ord->otype == SCORE_MINLOC) {
      const int64_t d = ord->deg[y], c = std::max(t, ord->cover[y]);
      symord_enqueue(ord, y, d * (d - 1) - c * (c - 1));
    } else {
      symord_enqueue(ord, y, ord->cover[y] + 2 * ord->outside[y] * t);
    }
  }
  for (int32_t k = 0; k < front.held; ++k) {
    front.row[open + k] = held[k];
    ord->weight[held[k]] = -ord->weight[held[k]];
  }
  ord->weight[x] = 0;
  ord->deg[x] = front.size;
  ord->iuse[x] = open + front.held;
  ord->nnoe[x] = front.held;
  ord->kind[x] = ord->iuse[x] == 0 ? SYM_DEAD : SYM_ELEMENT;
  if (!inplace) {
    ord->ifir[x] = ord->ifree;
    ord->ifree += ord->iuse[x];
  }
  return true;
}

}  // namespace tarvo
