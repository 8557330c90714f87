#include "order/symord.h"

#include <numeric>

#include "order/symord_internal.h"

namespace tarvo {

int32_t symord_order(sysenv* env, int32_t method, const OrderGraph& graph, const OrderOffer& offer,
                     const OrderHook& hook, int32_t* perm, OrderCounts* counts) {
  *counts = OrderCounts{};
  if (method == ORDER_NONE || graph.n == 0 || graph.start[graph.n] == 0) {
    std::iota(perm, perm + graph.n, 0);
    counts->nnz = counts->basennz = graph.n == 0 ? 0 : 100;  // nobody counted; the analysis does
    counts->work = counts->basework = graph.n == 0 ? 0.0 : 100.0;
    return ORDER_OK;
  }
  switch (method) {
    case ORDER_APPMINLOC1:
      return symord_minlocf(env, graph, perm, counts);
    case ORDER_APPMINLOC2:
      return sorder_minfill(env, graph, hook, perm, counts);
    case ORDER_GRAPHPAR1:
      return sorder_driver(env, graph, OrderOffer{}, 2, hook, perm, counts);
    default:  // ORDER_GRAPHPAR2 without a previous order is ORDER_FREE
      return sorder_driver(env, graph, offer, 3, hook, perm, counts);
  }
}

int32_t symord_minlocf(sysenv* env, const OrderGraph& graph, int32_t* perm, OrderCounts* counts) {
  SymOrd ord;
  if (!symord_make(&ord, env, graph, SCORE_MINLOC)) return ORDER_SPACE;
  symord_postpone(&ord);
  return symord_eliminate(&ord, nullptr, perm, counts);
}

}  // namespace tarvo
