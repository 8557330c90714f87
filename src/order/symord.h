// Fill-reducing orders of a symmetric matrix: the door to all orderers.
#pragma once

#include <cstdint>

#include "cpub/sysenv.h"

namespace tarvo {

// The values of TRV_ORDER_METHOD_.
enum OrderMethod : int32_t {
  ORDER_FREE = 0,
  ORDER_APPMINLOC1 = 1,
  ORDER_APPMINLOC2 = 2,
  ORDER_GRAPHPAR1 = 3,
  ORDER_GRAPHPAR2 = 4,
  ORDER_NONE = 5,
};

enum OrderResult : int32_t { ORDER_OK = 0, ORDER_SPACE = 1, ORDER_CANCELLED = 5 };

// The graph of a symmetric matrix without its diagonal: every edge stands once, in the list of either of its ends; no
// edge twice. The list of node j is sub[start[j]..start[j + 1]).
struct OrderGraph {
  int32_t n;
  const int64_t* start;  // [n + 1]
  const int32_t* sub;
};

// Progress: `func` gets a code and a value and answers 0 or, to stop, anything else. Called by the calling thread only.
struct OrderHook {
  void* handle = nullptr;
  int32_t (*func)(void* handle, int32_t code, double value) = nullptr;
};

// A previous order of the same nodes, not in the array that gets the new one; perm NULL for none.
struct OrderOffer {
  const int32_t* perm = nullptr;  // [n]
  int64_t nnz = 0;
  double work = 0.0;
};

// What an order costs, and what the partitioning orderer did.
struct OrderCounts {
  int64_t nnz = 0;    // non-zeros of the factor, diagonal included
  double work = 0.0;  // sum of squares of the column counts
  // 0: partitioning was not tried; -1: tried without gain; else the number of passes.
  int32_t usedgp = 0;
  double gptime = 0.0;  // CPU seconds in partition passes
  int64_t basennz = 0;  // of the base order
  double basework = 0.0;
};

// Orders the nodes by `method`. perm[n] gets the node at each position. Same graph, same order. ORDER_OK, or
// ORDER_SPACE, or ORDER_CANCELLED when the hook stopped it; perm is undefined then. ORDER_NONE and a graph without
// edges give the identity and 100 for both counts, as nobody counted. The hook gets 1 and 4 around a base order, 9 and
// 10 around the partitioning, 2 with the percentage of nodes that are left, 3 with -1.
int32_t symord_order(sysenv* env, int32_t method, const OrderGraph& graph, const OrderOffer& offer,
                     const OrderHook& hook, int32_t* perm, OrderCounts* counts);

// The two base orderers. Approximate minimum local fill on a quotient graph with variables and elements apart
// (symord*.cpp), and the one that the partitioning builds on (sorder*.cpp). Same arguments and results as above.
int32_t symord_minlocf(sysenv* env, const OrderGraph& graph, int32_t* perm, OrderCounts* counts);
int32_t sorder_minfill(sysenv* env, const OrderGraph& graph, const OrderHook& hook, int32_t* perm, OrderCounts* counts);

// The adaptive driver: base order, then partitioning where it promises something. `factor` is its readiness to try.
int32_t sorder_driver(sysenv* env, const OrderGraph& graph, const OrderOffer& offer, int32_t factor,
                      const OrderHook& hook, int32_t* perm, OrderCounts* counts);

}  // namespace tarvo
