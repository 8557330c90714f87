#include "order/blkord.h"

#include <algorithm>

namespace tarvo {

namespace {

void swap_rows(int32_t* rset, int32_t* inew, int32_t k, int32_t l) {
  std::swap(rset[k], rset[l]);
  inew[rset[k]] = k;
  inew[rset[l]] = l;
}

// Puts the matched columns at the places of their rows, the others behind in their order. place[t] is the row place of
// column cset[t], or -1.
void collect_columns(int32_t csze, int32_t* cset, const int32_t* place, int32_t matched, int32_t* scratch) {
  int32_t tail = matched;
  for (int32_t t = 0; t < csze; ++t) scratch[place[t] >= 0 ? place[t] : tail++] = cset[t];
  std::copy_n(scratch, csze, cset);
}

// The state of the search for a maximum transversal; rows go by their places.
struct Search {
  const BlkordPattern& a;
  int32_t nrowc;
  const int32_t* inew;
  const int32_t* cset;
  int32_t* columnof;  // [nrowc] by row place: its column's index in cset, or -1
  int32_t* visited;   // [nrowc] the pass that saw it last
  int32_t* stack;     // [nrowc + 1] columns on the path
  int32_t* via;       // [nrowc + 1] the row by which the path goes on from it
  int32_t* look;      // [csze] where the look-ahead of a column goes on
  int32_t* next;      // [csze] where its search goes on
};

// Looks for an augmenting path from column t and turns the matching along it.
bool augment(Search* s, int32_t t) {
  int32_t depth = 0;
  s->stack[0] = t;
  s->next[t] = s->a.ptrb[s->cset[t]];
  while (depth >= 0) {
    const int32_t u = s->stack[depth], j = s->cset[u], end = s->a.ptre[j];
    int32_t free = -1;
    while (s->look[u] < end) {
      const int32_t k = s->inew[s->a.sub[s->look[u]++]];
      if (k >= s->nrowc || s->columnof[k] >= 0) continue;
      free = k;
      break;
    }
    if (free >= 0) {
      s->via[depth] = free;
      for (; depth >= 0; --depth) s->columnof[s->via[depth]] = s->stack[depth];
      return true;
    }
    bool deeper = false;
    while (s->next[u] < end && !deeper) {
      const int32_t k = s->inew[s->a.sub[s->next[u]++]];
      if (k >= s->nrowc || s->visited[k] == t) continue;
      s->visited[k] = t;
      s->via[depth] = k;
      const int32_t v = s->columnof[k];
      s->stack[++depth] = v;
      s->next[v] = s->a.ptrb[s->cset[v]];
      deeper = true;
    }
    if (!deeper) --depth;
  }
  return false;
}

}  // namespace

int32_t blkord_appmaxtran(sysenv* env, const BlkordPattern& a, int32_t nrowc, int32_t* rset, int32_t* inew,
                          int32_t csze, int32_t* cset, int64_t isze, int32_t* iwork) {
  if (isze < blkord_worksize(nrowc, csze)) sysenv_fatal(env, "Work space");
  int32_t* head = iwork;  // [nrowc + 1] columns by degree, the last one first
  int32_t* next = head + nrowc + 1;
  int32_t* place = next + csze;
  int32_t* scratch = place + csze;
  std::fill_n(head, nrowc + 1, -1);
  for (int32_t t = 0; t < csze; ++t) {
    int32_t degree = 0;
    for (int32_t k = a.ptrb[cset[t]]; k < a.ptre[cset[t]]; ++k) degree += inew[a.sub[k]] < nrowc ? 1 : 0;
    next[t] = head[degree];
    head[degree] = t;
  }
  int32_t matched = 0;
  for (int32_t degree = 0; degree <= nrowc; ++degree) {
    for (int32_t t = head[degree]; t >= 0; t = next[t]) {
      place[t] = -1;
      for (int32_t k = a.ptrb[cset[t]]; k < a.ptre[cset[t]]; ++k) {
        const int32_t at = inew[a.sub[k]];
        if (at < matched || at >= nrowc) continue;
        swap_rows(rset, inew, at, matched);
        place[t] = matched++;
        break;
      }
    }
  }
  collect_columns(csze, cset, place, matched, scratch);
  return matched;
}

int32_t blkord_maxtran(sysenv* env, const BlkordPattern& a, int32_t nrowc, int32_t* rset, int32_t* inew, int32_t csze,
                       int32_t* cset, int64_t isze, int32_t* iwork) {
  if (isze < blkord_worksize(nrowc, csze)) sysenv_fatal(env, "Work space(integer)");
  int32_t* at = iwork;
  const auto take = [&at](int32_t n) {
    int32_t* part = at;
    at += n;
    return part;
  };
  Search s{a, nrowc, inew, cset, take(nrowc), take(nrowc), take(nrowc + 1), take(nrowc + 1), take(csze), take(csze)};
  int32_t* place = take(csze);
  int32_t* scratch = take(csze);
  std::fill_n(s.columnof, nrowc, -1);
  std::fill_n(s.visited, nrowc, -1);
  std::fill_n(place, csze, -1);
  int32_t size = 0;
  // Cheap assignments: columns of one element first, for nobody else can help them.
  for (const bool single : {true, false}) {
    for (int32_t t = 0; t < csze; ++t) {
      const int32_t j = cset[t];
      s.look[t] = a.ptrb[j];
      if (place[t] >= 0 || (single && a.ptre[j] - a.ptrb[j] != 1)) continue;
      while (s.look[t] < a.ptre[j] && place[t] < 0) {
        const int32_t k = inew[a.sub[s.look[t]++]];
        if (k >= nrowc || s.columnof[k] >= 0) continue;
        s.columnof[k] = t;
        place[t] = k;
        ++size;
      }
    }
  }
  const int32_t most = std::min(nrowc, csze);
  for (int32_t t = 0; t < csze && size < most; ++t)
    if (place[t] < 0 && augment(&s, t)) ++size;
  // Matched pairs to the front, rows in the order of their places.
  std::fill_n(place, csze, -1);
  int32_t put = 0;
  for (int32_t k = 0; k < nrowc; ++k) {
    const int32_t t = s.columnof[k];
    if (t < 0) continue;
    place[t] = put;
    if (k != put) swap_rows(rset, inew, k, put);  // what stood at put is unmatched
    ++put;
  }
  if (put != size) sysenv_fatal(env, "t>=k");
  collect_columns(csze, cset, place, size, scratch);
  return size;
}

int32_t blkord_maxlwrsqblk(sysenv* env, const BlkordPattern& a, int32_t nrowc, int32_t* rset, int32_t* inew,
                           int32_t csze, int32_t* cset, int32_t* maxtran, int64_t isze, int32_t* iwork) {
  const int32_t size = blkord_maxtran(env, a, nrowc, rset, inew, csze, cset, isze, iwork);
  *maxtran = size;
  int32_t* stack = iwork;  // [size] places whose columns are to be looked at
  int32_t* mark = stack + size;
  std::fill_n(mark, size, 0);
  int32_t height = 0;
  const auto reach = [&](int32_t j) {
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) {
      const int32_t i = inew[a.sub[k]];
      if (i >= nrowc) continue;
      if (i >= size) sysenv_fatal(env, "1. maxtran<=i");  // the transversal could have grown
      if (mark[i] != 0) continue;
      mark[i] = 1;
      stack[height++] = i;
    }
  };
  for (int32_t t = size; t < csze; ++t) reach(cset[t]);
  while (height > 0) reach(cset[stack[--height]]);
  int32_t block = 0;
  for (int32_t k = 0; k < size; ++k) {
    if (mark[k] != 0) continue;
    if (k != block) {
      swap_rows(rset, inew, k, block);
      std::swap(cset[k], cset[block]);
      std::swap(mark[k], mark[block]);
    }
    ++block;
  }
  return block;
}

}  // namespace tarvo
