#include "order/ordmat.h"

#include <algorithm>

namespace tarvo {

bool ordmat_nnzaat(sysenv* env, const spmat* a, int32_t rowcut, int32_t colcut, const int32_t* rowcount,
                   const int32_t* colcount, int64_t* nnz) {
  const int32_t m = a->vlen, n = a->nvec;
  Workspace work(env);
  // first[i], next[j]: the columns that wait at row i; at[j]: their position there
  int32_t *first = nullptr, *next = nullptr, *at = nullptr, *mark = nullptr;
  work.add(&first, static_cast<std::size_t>(m));
  work.add(&next, static_cast<std::size_t>(n));
  work.add(&at, static_cast<std::size_t>(n));
  work.add(&mark, static_cast<std::size_t>(m));
  if (!work.commit()) return false;
  std::fill_n(first, m, -1);
  std::fill_n(mark, m, -1);
  const auto live = [&](int32_t i) { return rowcount == nullptr || rowcount[i] < rowcut; };
  const auto wait = [&](int32_t j) {
    while (at[j] < a->ptre[j] && !live(a->sub[at[j]])) ++at[j];
    if (at[j] == a->ptre[j]) return;
    const int32_t i = a->sub[at[j]];
    next[j] = first[i];
    first[i] = j;
  };
  for (int32_t j = 0; j < n; ++j) {
    if (colcount != nullptr && colcount[j] >= colcut) continue;
    at[j] = a->ptrb[j];
    wait(j);
  }
  int64_t count = 0;
  for (int32_t i = 0; i < m; ++i) {
    for (int32_t j = first[i]; j >= 0;) {
      const int32_t following = next[j];
      for (int32_t t = ++at[j]; t < a->ptre[j]; ++t) {
        const int32_t r = a->sub[t];
        if (mark[r] == i || !live(r)) continue;
        mark[r] = i;
        ++count;
      }
      wait(j);
      j = following;
    }
  }
  *nnz = count;
  return true;
}

}  // namespace tarvo
