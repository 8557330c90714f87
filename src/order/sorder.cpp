// The base order, the partitioning passes and the driver that keeps the best order.
#include <algorithm>
#include <cmath>

#include "order/sorder_internal.h"

namespace tarvo {

namespace {

// Codes of the hook, beside those of the elimination and the partitioning.
constexpr int32_t hook_start = 1, hook_end = 4, hook_gpstart = 9, hook_gpend = 10;

bool stopped(const OrderHook& hook, int32_t code, double value) {
  return hook.func != nullptr && hook.func(hook.handle, code, value) != 0;
}

// Passes differ in balance, in the number of separator levels that keep their order among themselves (the lower ones
// are eliminated as one stage), and in the random numbers.
struct Pass {
  double alpha, beta;
  int32_t levels;
};
constexpr Pass passes[] = {{0.5, 0.1, 2},   {0.33, 0.1, 99}, {0.25, 0.1, 2}, {0.33, 0.1, 2},
                           {0.25, 0.1, 99}, {0.5, 0.1, 2},   {0.2, 0.1, 2},  {0.6, 0.2, 2}};
constexpr int32_t maxpass = sizeof passes / sizeof *passes;

// How many passes a factorisation of so much work pays for. A pass costs some microseconds for each edge, one unit of
// work some nanoseconds over the factorisations of a run; small graphs are tried anyway.
int32_t worthwhile(double work, double m) {
  const double rate = work / m;
  if (rate < 100.0) return m < 50000.0 ? 1 : 0;
  if (rate < 1000.0) return m < 50000.0 ? 3 : 1;
  if (rate < 3000.0) return 2;
  return rate < 10000.0 ? 6 : maxpass;
}

int32_t run_minfill(sysenv* env, const OrderGraph& graph, SymScore score, const OrderHook& hook, int32_t* perm,
                    OrderCounts* counts) {
  if (stopped(hook, hook_start, 0.0)) return ORDER_CANCELLED;
  SymOrd ord;
  if (!symord_make(&ord, env, graph, score)) return ORDER_SPACE;
  symord_postpone(&ord);
  const int32_t result = symord_eliminate(&ord, &hook, perm, counts);
  if (result == ORDER_OK && stopped(hook, hook_end, 1.0)) return ORDER_CANCELLED;
  return result;
}

// One pass: separators, then the elimination of the parts, of the lower separators, of the upper ones level by level,
// and of the postponed nodes. Nothing is ordered when there is no good separator.
int32_t sorder_gp(SepWork* work, const OrderGraph& graph, const Pass& pass, const OrderHook& hook, int32_t* perm,
                  OrderCounts* counts, bool* split) {
  SymOrd ord;
  Array<int32_t> depth;
  if (!depth.alloc(work->env, static_cast<std::size_t>(graph.n)) || !symord_make(&ord, work->env, graph, SCORE_MINFILL))
    return ORDER_SPACE;
  const int32_t ndense = symord_postpone(&ord);
  work->options.alpha = pass.alpha;
  work->options.beta = pass.beta;
  int32_t maxdepth = -1;
  const int32_t result = sorder_partition(work, ord, hook, depth.data(), &maxdepth);
  if (result != ORDER_OK) return result;
  *split = maxdepth >= 0;
  if (!*split) return ORDER_OK;
  const int32_t levels = std::min(maxdepth + 1, pass.levels);
  for (int32_t y = 0; y < graph.n; ++y) {
    if (ord.stage[y] != 0)
      ord.stage[y] = levels + 1;
    else if (depth[y] >= 0)
      ord.stage[y] = std::max(levels - depth[y], 1);
  }
  ord.numstages = 1 + levels + (ndense != 0 ? 1 : 0);
  return symord_eliminate(&ord, &hook, perm, counts);
}

bool better(const OrderCounts& a, const OrderCounts& b) {
  return a.nnz <= b.nnz && a.work <= b.work && (a.nnz < b.nnz || a.work < b.work);
}

}  // namespace

int32_t sorder_minfill(sysenv* env, const OrderGraph& graph, const OrderHook& hook, int32_t* perm,
                       OrderCounts* counts) {
  const int32_t result = run_minfill(env, graph, SCORE_MINFILL, hook, perm, counts);
  counts->basennz = counts->nnz;
  counts->basework = counts->work;
  return result;
}

int32_t sorder_driver(sysenv* env, const OrderGraph& graph, const OrderOffer& offer, int32_t factor,
                      const OrderHook& hook, int32_t* perm, OrderCounts* counts) {
  const int32_t n = graph.n;
  const double m = n + 2.0 * static_cast<double>(graph.start[n]);
  const auto easy = [&](int64_t nnz) { return 2.0 * static_cast<double>(nnz) < factor * m; };
  const bool given = offer.perm != nullptr;
  Array<int32_t> trial;
  const auto attempt = [&](int32_t result, const OrderCounts& cur) {
    if (result != ORDER_OK || !better(cur, *counts)) return false;
    std::copy_n(trial.data(), n, perm);
    counts->nnz = cur.nnz;
    counts->work = cur.work;
    return true;
  };

  // The base order: the given one unless it looks easy to match, or the better of two scores.
  if (!given || easy(offer.nnz)) {
    const int32_t result = sorder_minfill(env, graph, hook, perm, counts);
    if (result != ORDER_OK) return result;
  }
  if (given && !(easy(offer.nnz) && (easy(counts->nnz) || counts->nnz < offer.nnz))) {
    std::copy_n(offer.perm, n, perm);
    counts->nnz = offer.nnz;
    counts->work = offer.work;
  }
  counts->basennz = counts->nnz;
  counts->basework = counts->work;
  if (!given && easy(counts->nnz)) return ORDER_OK;
  // From here on there is an order to fall back on when memory ends.
  if (!trial.alloc(env, static_cast<std::size_t>(n))) return ORDER_OK;
  OrderCounts cur;
  if (!given) {
    const int32_t result = run_minfill(env, graph, SCORE_MEANFILL, hook, trial.data(), &cur);
    if (result == ORDER_CANCELLED) return result;
    attempt(result, cur);
    counts->basennz = counts->nnz;
    counts->basework = counts->work;
    if (n < 500) return ORDER_OK;
  }

  int32_t limit = worthwhile(counts->work, m);
  if (limit == 0) return ORDER_OK;
  if (stopped(hook, hook_gpstart, 0.0)) return ORDER_CANCELLED;
  const double from = sysenv_cputime();
  SepWork work;
  work.env = env;
  work.options.careful = limit > 2 ? 3 : 0;
  int32_t pass = 0, result = ORDER_OK;
  double best = HUGE_VAL;
  bool gained = false, split = false;
  while (pass < limit && result == ORDER_OK) {
    work.options.seed = static_cast<uint32_t>(pass) + 1;
    result = sorder_gp(&work, graph, passes[pass], hook, trial.data(), &cur, &split);
    if (result == ORDER_CANCELLED) return result;
    ++pass;
    if (result != ORDER_OK || !split) break;
    best = std::min(best, cur.work);
    gained = attempt(result, cur) || gained;
    // No graph for partitions.
    if (pass == 3 && best > 1.2 * counts->basework) break;
    limit = std::min(limit, worthwhile(counts->work, m));
  }
  counts->usedgp = gained ? pass : -1;
  counts->gptime = sysenv_cputime() - from;
  if (stopped(hook, hook_gpend, 0.0)) return ORDER_CANCELLED;
  return ORDER_OK;
}

}  // namespace tarvo
