// The row-wise copy of A and products with its active columns (nonbasic and not fixed).
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

void psimplex_formacolt(PrimalSimplex* s) {
  const SimplexColumns& a = s->prob->a;
  std::fill(s->rbeg, s->rbeg + s->m + 1, 0);
  for (int32_t j = 0; j < s->n; ++j)
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) ++s->rbeg[a.sub[k] + 1];
  for (int32_t i = 0; i < s->m; ++i) s->rbeg[i + 1] += s->rbeg[i];
  for (int32_t i = 0; i < s->m; ++i) s->rend[i] = s->rbeg[i];

  // Active columns first, then the others: rend is the fill mark in the first pass and stands afterwards; the second
  // pass fills each row from its end.
  auto put = [s, &a](int32_t j, int32_t k, int32_t slot) {
    s->rsub[slot] = j;
    s->rval[slot] = a.val[k];
    s->rlink[slot] = k;
    s->clink[k] = slot;
  };
  for (int32_t j = 0; j < s->n; ++j) {
    if (!ps_active(s->stat[s->m + j])) continue;
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) put(j, k, s->rend[a.sub[k]]++);
  }
  int32_t* last = s->marks;  // borrowed: zero again below
  for (int32_t i = 0; i < s->m; ++i) last[i] = s->rbeg[i + 1];
  for (int32_t j = 0; j < s->n; ++j) {
    if (ps_active(s->stat[s->m + j])) continue;
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) put(j, k, --last[a.sub[k]]);
  }
  std::fill(last, last + s->m, 0);
}

void psimplex_activate(PrimalSimplex* s, int32_t var, bool active) {
  if (var < s->m) return;
  const SimplexColumns& a = s->prob->a;
  const int32_t j = var - s->m;
  for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) {
    const int32_t i = a.sub[k];
    const int32_t from = s->clink[k];
    const int32_t to = active ? s->rend[i]++ : --s->rend[i];
    if (from == to) continue;
    std::swap(s->rsub[from], s->rsub[to]);
    std::swap(s->rval[from], s->rval[to]);
    std::swap(s->rlink[from], s->rlink[to]);
    s->clink[s->rlink[from]] = from;
    s->clink[s->rlink[to]] = to;
  }
}

void psimplex_rowproduct(const PrimalSimplex* s, const PsVector& v, PsVector* out) {
  constexpr double drop = 1e-14;
  constexpr double tiny = 1e-100;  // stands for a sum that cancelled: keeps the entry known as listed
  constexpr double dense = 0.4;    // above this part of non-zeros dot products by column are cheaper
  int32_t n = 0;
  int32_t* sub = out->sub;
  double* val = out->val;
  for (int32_t t = 0; t < v.n; ++t) {
    const int32_t i = v.sub[t];
    if (v.val[i] == 0.0 || !ps_active(s->stat[i])) continue;
    val[i] = -v.val[i];
    sub[n++] = i;
  }
  const int32_t m = s->m;
  if (v.n > dense * m) {
    const SimplexColumns& a = s->prob->a;
    for (int32_t j = 0; j < s->n; ++j) {
      if (!ps_active(s->stat[m + j])) continue;
      double sum = 0.0;
      for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k) sum += a.val[k] * v.val[a.sub[k]];
      if (std::fabs(sum) <= drop) continue;
      val[m + j] = sum;
      sub[n++] = m + j;
    }
  } else {
    double* xval = val + m;
    for (int32_t t = 0; t < v.n; ++t) {
      const int32_t i = v.sub[t];
      const double f = v.val[i];
      if (f == 0.0) continue;
      for (int32_t k = s->rbeg[i]; k < s->rend[i]; ++k) {
        const int32_t j = s->rsub[k];
        const double old = xval[j];
        const double sum = old + f * s->rval[k];
        if (old == 0.0) sub[n++] = m + j;
        xval[j] = std::fabs(sum) <= drop ? tiny : sum;
      }
    }
  }
  out->n = n;
}

}  // namespace tarvo
