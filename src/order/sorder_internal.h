// Vertex separators by a multilevel scheme: the graph is coarsened by matching along heavy edges, separated where it is
// small, and the separator is improved on the way back by passes of moves with roll-back. (Hendrickson and Rothberg,
// Improving the run time and quality of nested dissection ordering, 1998; Fiduccia and Mattheyses, 1982; Ashcraft and
// Liu, Robust ordering of sparse matrices using multisection, 1998, for the order that follows.)
#pragma once

#include <cstdint>

#include "cpub/array.h"
#include "order/symord_internal.h"

namespace tarvo {

enum SepSide : uint8_t { SIDE_A, SIDE_B, SEPARATOR };

// A graph of the hierarchy with the separation of its nodes. Arrays may be longer than needed.
struct SepLevel {
  int32_t n = 0;
  Array<int64_t> start;    // [n + 1]
  Array<int32_t> adj, ew;  // neighbours of node v and weights of the edges: [start[v]..start[v + 1])
  Array<int32_t> vw;       // [n]
  Array<int32_t> coarse;   // [n] node of the next level
  Array<SepSide> side;     // [n]
};

// Balance: the ratio of the lighter to the heavier side that moves keep, and the weight of the imbalance in the cost.
struct SepOptions {
  double alpha = 0.25, beta = 0.1;
  int32_t leaf = 200;    // parts of at most so many nodes are not split,
  int32_t domains = 64;  // nor parts below the whole by this factor
  int32_t careful = 0;   // separators of so many levels are the better of two
  uint32_t seed = 1;
};

constexpr int32_t maxlevels = 48;

struct SepWork {
  sysenv* env = nullptr;
  SepOptions options;
  uint32_t random = 1;
  int64_t weight[3] = {};  // of the two sides and the separator
  int64_t touched = 0;     // counted work
  SepLevel level[maxlevels];
  Array<SepSide> best, first;         // of the coarsest graph, of the whole one
  Array<int32_t> list, place, match;  // [n]
  // Moves: what a separator node has on either side, one heap of the separator for moves to each side.
  Array<int64_t> near[2];
  Array<int32_t> heap[2], at[2];
  int32_t heapsize[2] = {};
  Array<int32_t> separator, moved, pulled, pulls;
  Array<uint8_t> locked;
};

inline uint32_t sep_random(SepWork* work) {
  work->random = work->random * 1664525u + 1013904223u;
  return work->random >> 8;
}

// max(S, 1) (1 + beta sqrt(max(A, B) / min(A, B)))
double sorder_cost(const SepWork& work, const int64_t* weight);
// Improves the separation of a level.
void sorder_refine(SepWork* work, SepLevel* level);
// Separates level[0], the best of some attempts; false when out of memory. The result is level[0].side and weight.
[[nodiscard]] bool sorder_bisect(SepWork* work, int32_t attempts);
// Depth of the separator that a variable stands in, -1 when it stands in none. *maxdepth: of all, -1 without any.
// An OrderResult.
int32_t sorder_partition(SepWork* work, const SymOrd& ord, const OrderHook& hook, int32_t* depth, int32_t* maxdepth);

}  // namespace tarvo
