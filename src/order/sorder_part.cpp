// Recursive vertex separators of the graph that an elimination starts from.
#include <algorithm>
#include <cstring>

#include "order/sorder_internal.h"

namespace tarvo {

namespace {

constexpr int32_t coarsest = 120;
constexpr int32_t tries = 8;
constexpr int32_t maxdegree = 255;
constexpr int32_t shuffled = 512;
constexpr int64_t hookwork = 4000000;

template <class T>
bool ensure(Array<T>* array, sysenv* env, int64_t n) {
  return static_cast<int64_t>(array->size()) >= n || array->alloc(env, static_cast<std::size_t>(n));
}

bool ensure_level(SepLevel* level, sysenv* env, int64_t n, int64_t edges) {
  return ensure(&level->start, env, n + 1) && ensure(&level->adj, env, edges) && ensure(&level->ew, env, edges) &&
         ensure(&level->vw, env, n) && ensure(&level->coarse, env, n) && ensure(&level->side, env, n);
}

// Pairs nodes, each with the free neighbour along its heaviest edge; two that have no free neighbour and share the
// heaviest one make a pair as well. Returns the number of coarse nodes.
int32_t match_nodes(SepWork* work, SepLevel* level, int64_t maxweight) {
  const int32_t n = level->n;
  int32_t* order = work->list.data();
  int32_t* match = work->match.data();
  int32_t* waiting = work->place.data();
  for (int32_t v = 0; v < n; ++v) {
    order[v] = v;
    match[v] = waiting[v] = -1;
  }
  // Random within short runs, so that memory is read nearly in order.
  for (int32_t k = 0; k < n; ++k) {
    const auto run = static_cast<uint64_t>(std::min(n - k, shuffled));
    std::swap(order[k], order[k + static_cast<int32_t>(uint64_t{sep_random(work)} * run >> 24)]);
  }
  // Low degrees first: they have the least choice.
  const int64_t mean = n == 0 ? 0 : level->start[n] / n;
  const auto cap = static_cast<int32_t>(std::min<int64_t>(7 * mean / 10 + 1, maxdegree));
  int32_t place[maxdegree + 2] = {};
  const auto degree = [&](int32_t v) {
    return static_cast<int32_t>(std::min<int64_t>(level->start[v + 1] - level->start[v], cap));
  };
  for (int32_t v = 0; v < n; ++v) ++place[degree(v) + 1];
  for (int32_t d = 0; d < cap; ++d) place[d + 1] += place[d];
  int32_t* sorted = work->moved.data();
  for (int32_t k = 0; k < n; ++k) sorted[place[degree(order[k])]++] = order[k];
  for (int32_t k = 0; k < n; ++k) {
    const int32_t v = sorted[k];
    if (match[v] >= 0) continue;
    int32_t best = -1, heaviest = -1, bestweight = 0, heavy = 0;
    for (int64_t p = level->start[v]; p < level->start[v + 1]; ++p) {
      const int32_t u = level->adj[p], w = level->ew[p];
      if (w > heavy) {
        heavy = w;
        heaviest = u;
      }
      if (match[u] >= 0 || int64_t{level->vw[u]} + level->vw[v] > maxweight) continue;
      if (w > bestweight || (w == bestweight && level->vw[u] < level->vw[best])) {
        bestweight = w;
        best = u;
      }
    }
    if (best < 0 && heaviest >= 0) {
      const int32_t other = waiting[heaviest];
      if (other >= 0 && match[other] == other && int64_t{level->vw[other]} + level->vw[v] <= maxweight) {
        match[other] = v;
        match[v] = other;
        waiting[heaviest] = -1;
        continue;
      }
      waiting[heaviest] = v;
    }
    if (best < 0) best = v;
    match[v] = best;
    match[best] = v;
  }
  int32_t count = 0;
  for (int32_t v = 0; v < n; ++v)
    if (match[v] >= v) level->coarse[v] = level->coarse[match[v]] = count++;
  work->touched += 2 * n + level->start[n];
  return count;
}

// The graph of the pairs.
bool contract(SepWork* work, const SepLevel* fine, SepLevel* next, int32_t count) {
  if (!ensure_level(next, work->env, count, fine->start[fine->n])) return false;
  int32_t* place = work->place.data();  // of a neighbour in the row that is made
  int32_t* member = work->list.data();  // the first node of a pair
  for (int32_t c = 0; c < count; ++c) place[c] = member[c] = -1;
  for (int32_t v = fine->n - 1; v >= 0; --v) member[fine->coarse[v]] = v;
  next->n = count;
  next->start[0] = 0;
  int64_t fill = 0;
  for (int32_t c = 0; c < count; ++c) {
    const int32_t first = member[c], second = work->match[first];
    const auto head = static_cast<int32_t>(fill - next->start[c]);
    const int64_t base = fill - head;
    next->vw[c] = fine->vw[first] + (second != first ? fine->vw[second] : 0);
    for (int32_t v = first;; v = second) {
      for (int64_t p = fine->start[v]; p < fine->start[v + 1]; ++p) {
        const int32_t d = fine->coarse[fine->adj[p]];
        if (d == c) continue;
        if (place[d] < 0) {
          place[d] = static_cast<int32_t>(fill - base);
          next->adj[fill] = d;
          next->ew[fill++] = fine->ew[p];
        } else {
          next->ew[base + place[d]] += fine->ew[p];
        }
      }
      if (v == second) break;
    }
    for (int64_t p = base; p < fill; ++p) place[next->adj[p]] = -1;
    next->start[c + 1] = fill;
  }
  work->touched += 2 * fine->start[fine->n];
  return true;
}

// Grows side A from a node until it has half of the weight; what touches it from outside separates.
void grow_side(SepWork* work, SepLevel* level, int64_t total) {
  const int32_t n = level->n;
  int32_t* queue = work->list.data();
  std::fill_n(level->side.data(), n, SIDE_B);
  int32_t head = 0, tail = 0;
  int64_t weight = 0;
  const auto first = static_cast<int32_t>(uint64_t{sep_random(work)} * static_cast<uint64_t>(n) >> 24);
  int32_t seed = first;
  while (2 * weight < total) {
    if (head == tail) {  // the next component
      while (level->side[seed] != SIDE_B) seed = seed + 1 == n ? 0 : seed + 1;
      level->side[seed] = SEPARATOR;
      queue[tail++] = seed;
    }
    const int32_t v = queue[head++];
    if (head > 1 && 2 * (weight + level->vw[v] / 2) > total) {
      --head;
      break;
    }
    level->side[v] = SIDE_A;
    weight += level->vw[v];
    for (int64_t p = level->start[v]; p < level->start[v + 1]; ++p) {
      const int32_t u = level->adj[p];
      if (level->side[u] != SIDE_B) continue;
      level->side[u] = SEPARATOR;
      queue[tail++] = u;
    }
  }
}

bool prepare_work(SepWork* work, int32_t n) {
  sysenv* env = work->env;
  for (const int32_t s : {0, 1}) {
    if (!ensure(&work->near[s], env, n) || !ensure(&work->heap[s], env, n) || !ensure(&work->at[s], env, n))
      return false;
    std::fill(work->at[s].begin(), work->at[s].end(), -1);
  }
  if (!ensure(&work->list, env, n) || !ensure(&work->place, env, n) || !ensure(&work->match, env, n) ||
      !ensure(&work->best, env, n) || !ensure(&work->first, env, n) || !ensure(&work->separator, env, n) ||
      !ensure(&work->moved, env, n) || !ensure(&work->pulled, env, 2 * int64_t{n}) || !ensure(&work->pulls, env, n) ||
      !ensure(&work->locked, env, n))
    return false;
  std::fill(work->locked.begin(), work->locked.end(), uint8_t{0});
  return true;
}

// The part of the graph that stands in list[0..n), as level 0. local[] gives places of nodes of the part `id`.
bool extract(SepWork* work, const SymOrd& ord, const int32_t* list, int32_t n, const int32_t* part, int32_t* local) {
  int64_t edges = 0;
  for (int32_t k = 0; k < n; ++k) {
    local[list[k]] = k;
    edges += ord.iuse[list[k]];
  }
  SepLevel* level = &work->level[0];
  if (!ensure_level(level, work->env, n, edges)) return false;
  level->n = n;
  int64_t fill = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t y = list[k];
    level->start[k] = fill;
    level->vw[k] = ord.weight[y];
    const int32_t* row = ord.sub.data() + ord.ifir[y];
    for (int32_t t = 0; t < ord.iuse[y]; ++t)
      if (part[row[t]] == part[y]) level->adj[fill++] = local[row[t]];
  }
  level->start[n] = fill;
  std::fill_n(level->ew.data(), fill, 1);
  work->touched += edges;
  return true;
}

bool bisect_once(SepWork* work) {
  int64_t total = 0;
  for (int32_t v = 0; v < work->level[0].n; ++v) total += work->level[0].vw[v];
  int32_t depth = 0;
  for (; depth + 1 < maxlevels; ++depth) {
    SepLevel* level = &work->level[depth];
    if (level->n <= coarsest) break;
    const int32_t count = match_nodes(work, level, std::max<int64_t>(total / coarsest * 3 / 2, 2));
    if (count > level->n - level->n / 20) break;
    if (!contract(work, level, &work->level[depth + 1], count)) return false;
  }
  SepLevel* level = &work->level[depth];
  double best = -1.0;
  for (int32_t attempt = 0; attempt < tries; ++attempt) {
    grow_side(work, level, total);
    sorder_refine(work, level);
    const double cost = sorder_cost(*work, work->weight);
    if (best >= 0.0 && cost >= best) continue;
    best = cost;
    std::copy_n(level->side.data(), level->n, work->best.data());
  }
  std::copy_n(work->best.data(), level->n, level->side.data());
  if (depth == 0) sorder_refine(work, level);
  while (depth-- > 0) {
    SepLevel* fine = &work->level[depth];
    for (int32_t v = 0; v < fine->n; ++v) fine->side[v] = work->level[depth + 1].side[fine->coarse[v]];
    sorder_refine(work, fine);
  }
  return true;
}

}  // namespace

bool sorder_bisect(SepWork* work, int32_t attempts) {
  if (!bisect_once(work)) return false;
  SepLevel* level = &work->level[0];
  for (; attempts > 1; --attempts) {
    const double cost = sorder_cost(*work, work->weight);
    const int64_t weight[3] = {work->weight[0], work->weight[1], work->weight[2]};
    std::copy_n(level->side.data(), level->n, work->first.data());
    if (!bisect_once(work)) return false;
    if (sorder_cost(*work, work->weight) < cost) continue;
    std::copy_n(work->first.data(), level->n, level->side.data());
    std::copy_n(weight, 3, work->weight);
  }
  return true;
}

int32_t sorder_partition(SepWork* work, const SymOrd& ord, const OrderHook& hook, int32_t* depth, int32_t* maxdepth) {
  struct Segment {
    int32_t first, count, depth;
  };
  const int32_t n = ord.n;
  Array<int32_t> list, part, local;
  Array<Segment> stack;
  const auto size = static_cast<std::size_t>(n);
  if (!list.alloc(work->env, size) || !part.alloc(work->env, size) || !local.alloc(work->env, size) ||
      !stack.alloc(work->env, 256))
    return ORDER_SPACE;
  *maxdepth = -1;
  int32_t live = 0, parts = 0, top = 0;
  int64_t total = 0;
  for (int32_t y = 0; y < n; ++y) {
    depth[y] = part[y] = -1;
    if (ord.weight[y] == 0 || ord.stage[y] != 0) continue;
    part[y] = 0;
    list[live++] = y;
    total += ord.weight[y];
  }
  work->random = work->options.seed;
  if (!prepare_work(work, live)) return ORDER_SPACE;
  const int64_t leaf = std::max<int64_t>(work->options.leaf, total / work->options.domains);
  if (live > work->options.leaf) stack[top++] = {0, live, 0};
  int64_t told = work->touched;
  while (top > 0) {
    const Segment segment = stack[--top];
    int32_t* nodes = list.data() + segment.first;
    if (!extract(work, ord, nodes, segment.count, part.data(), local.data()) ||
        !sorder_bisect(work, segment.depth < work->options.careful ? 2 : 1))
      return ORDER_SPACE;
    if (work->touched - told > hookwork) {
      told = work->touched;
      if (hook.func != nullptr && hook.func(hook.handle, 3, -1.0) != 0) return ORDER_CANCELLED;
    }
    const int64_t* weight = work->weight;
    if (weight[2] > weight[0] + weight[1] || 20 * std::min(weight[0], weight[1]) < weight[2])
      continue;  // nothing won by it
    int32_t count[3] = {};
    const SepSide* side = work->level[0].side.data();
    for (int32_t k = 0; k < segment.count; ++k) ++count[side[k]];
    int32_t to[3] = {0, count[0], count[0] + count[1]};
    const int32_t base = parts;
    parts += 2;
    for (int32_t k = 0; k < segment.count; ++k) {
      const int32_t y = nodes[k];
      if (side[k] == SEPARATOR) depth[y] = segment.depth;
      part[y] = side[k] == SEPARATOR ? -1 : base + 1 + side[k];
      work->list[to[side[k]]++] = y;
    }
    std::copy_n(work->list.data(), segment.count, nodes);
    *maxdepth = std::max(*maxdepth, segment.depth);
    for (const int32_t s : {0, 1})
      if (weight[s] > leaf && count[s] > work->options.leaf / 2 && top < 255)
        stack[top++] = {segment.first + (s == 0 ? 0 : count[0]), count[s], segment.depth + 1};
  }
  return ORDER_OK;
}

}  // namespace tarvo
