// The base order of the partitioning orderer, and the driver.
#include "order/symord_internal.h"

namespace tarvo {

int32_t sorder_minfill(sysenv* env, const OrderGraph& graph, const OrderHook& hook, int32_t* perm,
                       OrderCounts* counts) {
  if (hook.func != nullptr && hook.func(hook.handle, 1, 0.0) != 0) return ORDER_CANCELLED;
  SymOrd ord;
  if (!symord_make(&ord, env, graph, SCORE_MINFILL)) return ORDER_SPACE;
  symord_postpone(&ord);
  const int32_t result = symord_eliminate(&ord, &hook, perm, counts);
  if (result == ORDER_OK && hook.func != nullptr && hook.func(hook.handle, 4, 1.0) != 0) return ORDER_CANCELLED;
  return result;
}

int32_t sorder_driver(sysenv* env, const OrderGraph& graph, const OrderOffer&, int32_t, const OrderHook& hook,
                      int32_t* perm, OrderCounts* counts) {
  const int32_t result = sorder_minfill(env, graph, hook, perm, counts);
  counts->basennz = counts->nnz;
  counts->basework = counts->work;
  return result;
}

}  // namespace tarvo
