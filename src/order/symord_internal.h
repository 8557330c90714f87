// The quotient graph that all orderers of this folder eliminate on.
//
// A pivot becomes an element: the list of the variables that it joins to a clique. An element that lies in a new one is
// absorbed; a variable that only the new element touches goes with its pivot (mass elimination); variables with the
// same row are merged to one of larger weight. (George and Liu, The evolution of the minimum degree ordering algorithm,
// 1989; Amestoy, Davis and Duff, An approximate minimum degree ordering algorithm, 1996, for the degree bounds;
// Rothberg and Eisenstat, Node selection strategies for bottom-up sparse matrix ordering, 1998, for the bounds of the
// local fill.)
//
// Stages constrain the order: all nodes of a stage go before those of the next one. A variable of a later stage is
// held: it stands in elements and in rows of others, but its own row is not looked at until its stage opens; its
// elements are put into the row then. They fit, since each of them took up one of its neighbours at least.
#pragma once

#include <cstdint>

#include "cpub/array.h"
#include "misc/pqueue.h"
#include "order/symord.h"

namespace tarvo {

enum SymKind : uint8_t { SYM_DEAD, SYM_VARIABLE, SYM_HELD, SYM_ELEMENT };

// What is eliminated first. With external degree d, cliques of size t around and the largest of them, c:
enum SymScore : int32_t {
  SCORE_MINLOC,    // fill less the part that the largest clique has: floor(sqrt(d(d-1) - c(c-1)))
  SCORE_MINFILL,   // fill less the part that every clique has, over the root of the weight: d(d-1) - sum of t(t-1)
  SCORE_MEANFILL,  // the same over the weight plus one
};

// One ordering. The row of a variable has its elements first, then its plain neighbours; the row of an element has the
// variables of the open stage first, then the held ones. Weights are numbers of nodes.
struct SymOrd {
  sysenv* env = nullptr;
  int32_t n = 0;
  SymScore otype = SCORE_MINLOC;
  const OrderHook* hook = nullptr;
  Array<int32_t> sub;  // all rows
  int64_t ifree = 0;   // the first free place in it
  Array<int64_t> ifir;
  Array<int32_t> iuse, nnoe;    // length of a row; elements in a variable's row, held variables in an element's
  Array<int32_t> weight;        // 0 when merged or eliminated; negative while in the clique of the pivot
  Array<int32_t> deg;           // bound of a variable's weighted degree without itself; weight of an element
  Array<int32_t> chain, ctail;  // nodes that go with this one, -1 ends; the last of them
  Array<int32_t> twin;          // ring of nodes with the same neighbours at the start
  Array<int32_t> stage;         // 0..numstages-1
  Array<SymKind> kind;
  Array<int64_t> mark;  // up to date when >= flag
  int64_t flag = 0;
  Array<int32_t> hash, hashnext, hashhead;  // candidates for merging
  Array<int32_t> clique, seen;              // lists of one pivot
  // Of a variable in the clique, from what lies outside: the size, and the largest clique (SCORE_MINLOC) or the
  // pairs that no clique joins yet.
  Array<int64_t> outside, cover;
  pqueue queue;
  int32_t numstages = 1;
  int32_t* perm = nullptr;  // of the caller
  int32_t nelim = 0;
  int64_t nnz = 0;  // of the factor so far, with its diagonal
  double work = 0.0;
  int64_t touched = 0;  // counted work since the hook was called last
};

// Lays out the rows and merges the nodes with the same neighbours. False when out of memory.
[[nodiscard]] bool symord_make(SymOrd* ord, sysenv* env, const OrderGraph& graph, SymScore otype);
// Puts the nodes of a degree far above the mean in a stage behind all others. Returns how many.
int32_t symord_postpone(SymOrd* ord);
// Eliminates stage by stage. An OrderResult; the counts are set when it is ORDER_OK.
int32_t symord_eliminate(SymOrd* ord, const OrderHook* hook, int32_t* perm, OrderCounts* counts);

// Steps of an elimination. x1pivot: false when out of memory.
[[nodiscard]] bool symord_x1pivot(SymOrd* ord, int32_t x);
void symord_twinpivots(SymOrd* ord, int32_t x);
void symord_release(SymOrd* ord, int32_t stage);
void symord_score(SymOrd* ord, int32_t y);  // from scratch, and into the queue
void symord_enqueue(SymOrd* ord, int32_t y, int64_t pairs);
void symord_merge(SymOrd* ord, const int32_t* list, int32_t count);         // those with the same row; hash[] is set
void symord_settle(SymOrd* ord, int32_t x, int32_t weight, int64_t below);  // counts and perm
[[nodiscard]] bool symord_room(SymOrd* ord, int64_t need);

inline uint32_t symord_mix(int32_t i) { return static_cast<uint32_t>(i) * 2654435761u + 0x9e3779b9u; }

}  // namespace tarvo
