// Improving a vertex separator by moves of its nodes into either side.
#include <algorithm>
#include <cmath>

#include "order/sorder_internal.h"

namespace tarvo {

namespace {

constexpr int32_t maxpasses = 8;

// Heaps of separator nodes by gain = weight of the node less what it would pull into the separator.
int64_t gain(const SepWork* work, const SepLevel* level, int32_t to, int32_t v) {
  return level->vw[v] - work->near[1 - to][v];
}

void sift_up(SepWork* work, const SepLevel* level, int32_t to, int32_t k) {
  int32_t* heap = work->heap[to].data();
  int32_t* at = work->at[to].data();
  const int32_t v = heap[k];
  const int64_t g = gain(work, level, to, v);
  while (k > 0) {
    const int32_t up = (k - 1) / 2;
    if (gain(work, level, to, heap[up]) >= g) break;
    heap[k] = heap[up];
    at[heap[k]] = k;
    k = up;
  }
  heap[k] = v;
  at[v] = k;
}

void sift_down(SepWork* work, const SepLevel* level, int32_t to, int32_t k) {
  int32_t* heap = work->heap[to].data();
  int32_t* at = work->at[to].data();
  const int32_t v = heap[k], size = work->heapsize[to];
  const int64_t g = gain(work, level, to, v);
  for (int32_t child = 2 * k + 1; child < size; child = 2 * k + 1) {
    if (child + 1 < size && gain(work, level, to, heap[child + 1]) > gain(work, level, to, heap[child])) ++child;
    if (gain(work, level, to, heap[child]) <= g) break;
    heap[k] = heap[child];
    at[heap[k]] = k;
    k = child;
  }
  heap[k] = v;
  at[v] = k;
}

void heap_push(SepWork* work, const SepLevel* level, int32_t to, int32_t v) {
  const int32_t k = work->heapsize[to]++;
  work->heap[to][k] = v;
  work->at[to][v] = k;
  sift_up(work, level, to, k);
}

void heap_remove(SepWork* work, const SepLevel* level, int32_t to, int32_t v) {
  const int32_t k = work->at[to][v];
  if (k < 0) return;
  work->at[to][v] = -1;
  const int32_t last = work->heap[to][--work->heapsize[to]];
  if (last == v) return;
  work->heap[to][k] = last;
  work->at[to][last] = k;
  sift_up(work, level, to, k);
  sift_down(work, level, to, work->at[to][last]);
}

// Into the separator's books.
void enter(SepWork* work, const SepLevel* level, int32_t v) {
  int64_t near[3] = {};
  for (int64_t p = level->start[v]; p < level->start[v + 1]; ++p)
    near[level->side[level->adj[p]]] += level->vw[level->adj[p]];
  work->near[0][v] = near[0];
  work->near[1][v] = near[1];
  work->touched += level->start[v + 1] - level->start[v];
}

// Moves v of the separator to a side; its neighbours on the other side come into the separator. Returns how many.
int32_t move_node(SepWork* work, SepLevel* level, int32_t v, SepSide to, int32_t numpulled) {
  const SepSide from = to == SIDE_A ? SIDE_B : SIDE_A;
  const int32_t first = numpulled;
  heap_remove(work, level, SIDE_A, v);
  heap_remove(work, level, SIDE_B, v);
  level->side[v] = to;
  work->locked[v] = 1;
  work->weight[SEPARATOR] -= level->vw[v];
  work->weight[to] += level->vw[v];
  for (int64_t p = level->start[v]; p < level->start[v + 1]; ++p) {
    const int32_t u = level->adj[p];
    if (level->side[u] == SEPARATOR) {
      work->near[to][u] += level->vw[v];
      if (work->at[from][u] >= 0) sift_down(work, level, from, work->at[from][u]);
    } else if (level->side[u] == from) {
      level->side[u] = SEPARATOR;
      work->weight[from] -= level->vw[u];
      work->weight[SEPARATOR] += level->vw[u];
      work->pulled[numpulled++] = u;
    }
  }
  for (int32_t k = first; k < numpulled; ++k) {
    const int32_t u = work->pulled[k];
    for (int64_t p = level->start[u]; p < level->start[u + 1]; ++p) {
      const int32_t t = level->adj[p];
      if (level->side[t] != SEPARATOR || work->at[to][t] < 0) continue;
      work->near[from][t] -= level->vw[u];
      sift_up(work, level, to, work->at[to][t]);
    }
  }
  // Those pulled in know their neighbours only now.
  for (int32_t k = first; k < numpulled; ++k) {
    const int32_t u = work->pulled[k];
    enter(work, level, u);
    if (work->locked[u] != 0) continue;
    heap_push(work, level, SIDE_A, u);
    heap_push(work, level, SIDE_B, u);
  }
  work->touched += level->start[v + 1] - level->start[v];
  return numpulled - first;
}

// One pass; true when the cost fell. `separator` holds the separator before and after.
bool sorder_fmpass(SepWork* work, SepLevel* level, int32_t* numseparator) {
  int32_t* separator = work->separator.data();
  work->heapsize[0] = work->heapsize[1] = 0;
  for (int32_t k = 0; k < *numseparator; ++k) {
    enter(work, level, separator[k]);
    heap_push(work, level, SIDE_A, separator[k]);
    heap_push(work, level, SIDE_B, separator[k]);
  }
  const double before = sorder_cost(*work, work->weight);
  double best = before;
  int32_t moves = 0, bestmoves = 0, numpulled = 0;
  const int32_t patience = 40 + *numseparator / 3;
  const double alpha = work->options.alpha;
  while (moves < bestmoves + patience && moves < level->n) {
    int32_t to = -1;
    int64_t bestgain = 0;
    const int32_t lighter = work->weight[0] <= work->weight[1] ? 0 : 1;
    for (const int32_t s : {lighter, 1 - lighter}) {
      if (work->heapsize[s] == 0) continue;
      const int32_t v = work->heap[s][0];
      const int64_t g = gain(work, level, s, v);
      const int64_t grown = work->weight[s] + level->vw[v], shrunk = work->weight[1 - s] - work->near[1 - s][v];
      if (s != lighter && static_cast<double>(shrunk) < alpha * static_cast<double>(grown)) continue;
      if (to >= 0 && g <= bestgain) continue;
      to = s;
      bestgain = g;
    }
    if (to < 0) break;
    const int32_t v = work->heap[to][0];
    const int32_t count = move_node(work, level, v, static_cast<SepSide>(to), numpulled);
    work->moved[moves] = v;
    work->pulls[moves++] = count;
    numpulled += count;
    const double cost = sorder_cost(*work, work->weight);
    if (cost < best - 1e-12) {
      best = cost;
      bestmoves = moves;
    }
  }
  // Candidates of the new separator: the old ones, and all that were pulled in.
  for (const int32_t s : {0, 1})
    for (int32_t k = 0; k < work->heapsize[s]; ++k) work->at[s][work->heap[s][k]] = -1;
  int32_t keep = numpulled;
  while (moves > bestmoves) {
    const int32_t v = work->moved[--moves];
    const SepSide to = level->side[v], from = to == SIDE_A ? SIDE_B : SIDE_A;
    for (int32_t k = work->pulls[moves]; k > 0; --k) {
      const int32_t u = work->pulled[--keep];
      level->side[u] = from;
      work->weight[SEPARATOR] -= level->vw[u];
      work->weight[from] += level->vw[u];
    }
    level->side[v] = SEPARATOR;
    work->weight[to] -= level->vw[v];
    work->weight[SEPARATOR] += level->vw[v];
    work->locked[v] = 0;
  }
  for (int32_t k = 0; k < bestmoves; ++k) work->locked[work->moved[k]] = 0;
  int32_t count = 0;
  const auto collect = [&](int32_t v) {
    if (level->side[v] != SEPARATOR || work->locked[v] != 0) return;
    work->locked[v] = 1;
    separator[count++] = v;
  };
  for (int32_t k = 0, size = *numseparator; k < size; ++k) collect(separator[k]);
  for (int32_t k = 0; k < keep; ++k) collect(work->pulled[k]);
  for (int32_t k = 0; k < count; ++k) work->locked[separator[k]] = 0;
  *numseparator = count;
  return best < before - 1e-12;
}

}  // namespace

double sorder_cost(const SepWork& work, const int64_t* weight) {
  const auto heavy = static_cast<double>(std::max(weight[0], weight[1]));
  const auto light = static_cast<double>(std::min(weight[0], weight[1]));
  const auto s = static_cast<double>(weight[2]);
  return std::max(s, 1.0) * (1.0 + work.options.beta * std::sqrt(heavy / (light + 1e-64))) + (s == 0.0 ? 1.0 : 0.0);
}

void sorder_refine(SepWork* work, SepLevel* level) {
  int32_t count = 0;
  work->weight[0] = work->weight[1] = work->weight[2] = 0;
  for (int32_t v = 0; v < level->n; ++v) {
    work->weight[level->side[v]] += level->vw[v];
    if (level->side[v] == SEPARATOR) work->separator[count++] = v;
  }
  for (int32_t pass = 0; pass < maxpasses && sorder_fmpass(work, level, &count); ++pass) {
  }
}

}  // namespace tarvo
