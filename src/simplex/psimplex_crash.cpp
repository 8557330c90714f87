// The starting basis of a cold start: a triangular crash.
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

namespace {

struct Crash {
  int32_t* count;     // by column: its entries in open rows
  int32_t* rowcount;  // by row: candidate columns with an entry there
  int32_t* queue[3];  // columns that came down to one open row, by class
  int32_t head[3], tail[3];
  int8_t* open;  // by row: its fixed logical is still to be replaced
};

// How welcome a column is in the basis: free ones leave it no more, those with one bound rarely block.
int32_t column_class(const PrimalSimplex* s, int32_t v) {
  const bool haslo = s->lo[v] != -simplex_inf, hasup = s->up[v] != simplex_inf;
  return !haslo && !hasup ? 0 : haslo != hasup ? 1 : 2;
}

void close_row(PrimalSimplex* s, Crash* c, int32_t i) {
  c->open[i] = 0;
  for (int32_t k = s->rbeg[i]; k < s->rbeg[i + 1]; ++k) {
    const int32_t j = s->rsub[k];
    if (c->count[j] <= 0) continue;
    if (--c->count[j] == 1) {
      const int32_t kind = column_class(s, s->m + j);
      c->queue[kind][c->tail[kind]++] = j;
    }
  }
}

}  // namespace

// Replaces fixed logicals (rows that are equations) by columns. A column may take a row when all its other entries lie
// in closed rows, taken by earlier columns or left to their logicals, so the basis is triangular up to a permutation.
// Without such a column the open row with the most candidates keeps its logical, which brings columns down to one row.
void psimplex_primalcrash(PrimalSimplex* s) {
  constexpr double relative_pivot = 0.01;
  const SimplexColumns& a = s->prob->a;
  Crash c{};
  c.count = s->cand;
  c.rowcount = s->rho.sub;
  c.open = s->refset;
  int32_t* queues = s->auxrow.sub;
  for (int32_t& q : c.head) q = 0;
  int32_t kinds[3] = {0, 0, 0};
  for (int32_t j = 0; j < s->n; ++j) ++kinds[column_class(s, s->m + j)];
  c.queue[0] = queues;
  c.queue[1] = queues + kinds[0];
  c.queue[2] = queues + kinds[0] + kinds[1];

  int32_t numopen = 0;
  for (int32_t i = 0; i < s->m; ++i) {
    c.open[i] = s->lo[i] >= s->up[i] && s->rbeg[i + 1] > s->rbeg[i];
    numopen += c.open[i];
    c.rowcount[i] = 0;
  }
  for (int32_t j = 0; j < s->n; ++j) {
    c.count[j] = 0;
    if (s->stat[s->m + j] == PS_FIXED) continue;
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) c.count[j] += c.open[a.sub[k]];
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) c.rowcount[a.sub[k]] += c.count[j] > 0;
    if (c.count[j] == 1) {
      const int32_t kind = column_class(s, s->m + j);
      c.queue[kind][c.tail[kind]++] = j;
    }
  }
  // Open rows by falling number of candidates.
  int32_t* order = s->rhs.sub;
  int32_t n = 0;
  for (int32_t i = 0; i < s->m; ++i)
    if (c.open[i] != 0) order[n++] = i;
  std::sort(order, order + n, [&c](int32_t u, int32_t v) {
    return c.rowcount[u] > c.rowcount[v] || (c.rowcount[u] == c.rowcount[v] && u < v);
  });

  for (int32_t next = 0; numopen > 0;) {
    int32_t kind = 0;
    while (kind < 3 && c.head[kind] == c.tail[kind]) ++kind;
    if (kind == 3) {
      while (next < n && c.open[order[next]] == 0) ++next;
      close_row(s, &c, order[next]);
      --numopen;
      continue;
    }
    const int32_t j = c.queue[kind][c.head[kind]++];
    if (c.count[j] != 1) continue;
    c.count[j] = 0;
    double largest = 0.0, pivot = 0.0;
    int32_t row = -1;
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) {
      largest = std::max(largest, std::fabs(a.val[k]));
      if (c.open[a.sub[k]] == 0) continue;
      row = a.sub[k];
      pivot = std::fabs(a.val[k]);
    }
    if (pivot < relative_pivot * largest || pivot < 1e-5) continue;
    const int32_t v = s->m + j;
    const double value = s->x[v];
    psimplex_activate(s, v, false);
    psimplex_leavebasis(s, row, 0.0);
    psimplex_enterbasis(s, v, row, value);
    close_row(s, &c, row);
    --numopen;
  }
  std::fill(c.open, c.open + s->m, int8_t{0});
}

}  // namespace tarvo
