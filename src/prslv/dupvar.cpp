// Parallel columns. With f_j the first live coefficient of column j, x'_j = f_j x_j have equal columns, costs
// r_j = cx_j / f_j and bounds of their own. In a group of them
//   - the cheapest one without an upper bound carries whatever others above their lower bounds would carry at a higher
//     cost: these go to their lower bounds. The dearest one without a lower bound does the same downwards. If the first
//     is cheaper than the second, the objective falls for ever;
//   - two of equal cost are one column z = x_j + m x_k.
#include <algorithm>
#include <cmath>

#include "cpub/dupvec.h"
#include "prslv/dup.h"

namespace tarvo {

namespace {

constexpr double hugebound = 1e12;  // no place to put a column

// A column of a group, scaled.
struct Member {
  int32_t j;
  double f, r;
  bool low, upp;  // bounds of x' = f x
};

bool is_free(const Member& c) { return !c.low && !c.upp; }

// Whether two costs differ by no more than the dual tolerance in column c's own units.
bool costs_as(const prslvrun* run, const Member& c, double r) { return std::fabs(c.f * (c.r - r)) <= run->par->tol_s; }

// The cheapest member without an upper bound, or the dearest without a lower one; a free one on a tie. -1: none.
int32_t carrier(const prslvrun* run, const Member* g, int32_t n, bool upward) {
  const auto better = [&](const Member& a, const Member& b) { return upward ? a.r < b.r : a.r > b.r; };
  int32_t best = -1;
  for (int32_t k = 0; k < n; ++k)
    if (!(upward ? g[k].upp : g[k].low) && (best < 0 || better(g[k], g[best]))) best = k;
  for (int32_t k = 0; best >= 0 && k < n && !is_free(g[best]); ++k)
    if (is_free(g[k]) && costs_as(run, g[k], g[best].r)) best = k;
  return best;
}

// Fixes x' at its lower or upper bound, a free one at 0.
int32_t fix(prslvrun* run, const Member& c, bool lower) {
  const prslvprob* p = run->p;
  if (is_free(c)) return prslv_varfixatbound(run, PRSLV_FREE_VAR_AT_ZERO, c.j);
  const bool atlower = lower == (c.f > 0.0);
  if (std::fabs(atlower ? p->blx[c.j] : p->bux[c.j]) > hugebound) return PRSLV_OK;
  ++run->stat->dupvar;
  return prslv_varfixatbound(run, atlower ? PRSLV_VAR_AT_LOWER : PRSLV_VAR_AT_UPPER, c.j);
}

// Fixes the members that others carry.
int32_t dominate(prslvrun* run, const Member* g, int32_t n) {
  const int32_t u = carrier(run, g, n, true), l = carrier(run, g, n, false);
  if (u >= 0 && l >= 0 && u != l && g[u].r < g[l].r && !costs_as(run, g[u], g[l].r)) {
    const int32_t columns[2] = {g[u].j, g[l].j};
    const double ray[2] = {g[u].f > 0.0 ? 1.0 : -1.0, -std::fabs(g[u].f) / g[l].f};
    prslv_dualinfeas(run, 2, columns, ray);
    return PRSLV_OK;
  }
  for (int32_t k = 0; k < n; ++k) {
    const Member& c = g[k];
    int32_t result = PRSLV_OK;
    if (u >= 0 && k != u && (c.low || (is_free(c) && is_free(g[u]))) && (c.r >= g[u].r || costs_as(run, c, g[u].r))) {
      result = fix(run, c, true);
    } else if (l >= 0 && k != l && c.upp && (c.r <= g[l].r || costs_as(run, c, g[l].r))) {
      result = fix(run, c, false);
    }
    if (result != PRSLV_OK) return result;
  }
  return PRSLV_OK;
}

// Slot j holds z = x_j + m (x_k - value) from now on; k stands at `value`.
int32_t prslv_dupvar(prslvrun* run, int32_t j, int32_t k, double m) {
  prslvprob* p = run->p;
  int32_t bk = 0;
  double bl = 0.0, bu = 0.0;
  prslv_sumbounds(m, p->bkx[j], p->blx[j], p->bux[j], p->bkx[k], p->blx[k], p->bux[k], &bk, &bl, &bu);
  // z = 0 of a free z then means that both are at a bound.
  double value = 0.0;
  if (bk == PRSLV_BK_FR)
    value = (prslv_lower(p->bkx[k]) ? p->blx[k] : p->bux[k]) + (prslv_lower(p->bkx[j]) ? p->blx[j] : p->bux[j]) / m;
  if (std::fabs(value) > hugebound) return PRSLV_OK;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  const int32_t n = run->varnz[k];
  const int32_t result = prslv_beginpushstk(run, PRSLV_DUP_VAR, 5 + n, 6 + n, &ints, &doubles);
  if (result != PRSLV_OK) return result;
  const int32_t head[5] = {j, p->bkx[j], k, p->bkx[k], n};
  const double dhead[6] = {m, p->cx[j], p->blx[j], p->bux[j], p->blx[k], p->bux[k]};
  std::copy_n(head, 5, ints);
  std::copy_n(dhead, 6, doubles);
  int32_t at = 0;
  for (int32_t t = p->acol->ptrb[k]; t < p->acol->ptre[k]; ++t) {
    if (!prslv_livecon(run, p->acol->sub[t])) continue;
    ints[5 + at] = p->acol->sub[t];
    doubles[6 + at++] = p->acol->val[t];
  }
  sysenv_assert(run->env, at == n);
  prslv_endpushstk(run, &ints, &doubles);
  prslv_removevar(run, k, value);
  prslv_newvarbounds(run, j, bk, bl, bu);
  ++run->stat->dupvar;
  return PRSLV_OK;
}

// Puts members of equal cost together, in the order of their costs.
int32_t merge(prslvrun* run, Member* g, int32_t n) {
  n = static_cast<int32_t>(std::remove_if(g, g + n, [&](const Member& c) { return !prslv_livevar(run, c.j); }) - g);
  std::sort(g, g + n, [](const Member& a, const Member& b) { return a.r != b.r ? a.r < b.r : a.j < b.j; });
  for (int32_t root = 0; root < n; ++root) {
    if (!prslv_livevar(run, g[root].j) || is_free(g[root])) continue;
    for (int32_t k = root + 1; k < n && costs_as(run, g[root], g[k].r) && costs_as(run, g[k], g[root].r); ++k) {
      const double m = g[k].f / g[root].f;
      if (is_free(g[k]) || !prslv_livevar(run, g[k].j) || std::fabs(m) > prslv_maxmultiplier ||
          std::fabs(m) < 1.0 / prslv_maxmultiplier) {
        continue;
      }
      if (run->p->bkx[g[root].j] == PRSLV_BK_FR) break;
      const int32_t result = prslv_dupvar(run, g[root].j, g[k].j, m);
      if (result != PRSLV_OK) return result;
    }
  }
  return PRSLV_OK;
}

}  // namespace

int32_t prslv_checkdupvar(prslvrun* run) {
  const prslvprob* p = run->p;
  Workspace work(run->env);
  uint8_t* mask = nullptr;
  int32_t* cand = nullptr;
  Member* group = nullptr;
  work.add(&mask, static_cast<std::size_t>(p->numcon));
  work.add(&cand, static_cast<std::size_t>(p->numvar));
  work.add(&group, static_cast<std::size_t>(p->numvar));
  if (!work.commit()) return PRSLV_SPACE;
  for (int32_t i = 0; i < p->numcon; ++i) mask[i] = prslv_livecon(run, i) ? 1 : 0;
  int32_t numcand = 0;
  for (int32_t j = 0; j < p->numvar; ++j)
    if (prslv_livevar(run, j) && run->varcla[j] != 0 && run->varnz[j] > 0) cand[numcand++] = j;
  dupgroups groups;
  if (!spmat_dupvec(p->acol, mask, numcand, cand, run->par->tol_aij, &groups)) return PRSLV_SPACE;
  const int64_t changes = run->changes;
  int32_t result = PRSLV_OK;
  for (int32_t g = 0; g < groups.count && result == PRSLV_OK && !prslv_stopped(run); ++g) {
    int32_t n = 0;
    for (int32_t j = groups.head[g]; j != groups.end; j = groups.next[j]) {
      if (prslv_inkeptrow(run, j)) continue;
      const double f = prslv_firstlive(run, j);
      const bool low = prslv_lower(p->bkx[j]), upp = prslv_upper(p->bkx[j]);
      group[n++] = {j, f, p->cx[j] / f, f > 0.0 ? low : upp, f > 0.0 ? upp : low};
    }
    result = dominate(run, group, n);
    if (result == PRSLV_OK && !prslv_stopped(run)) result = merge(run, group, n);
  }
  if (result != PRSLV_OK || prslv_stopped(run) || run->changes != changes) return result;
  return prslv_dupvartransform(run, groups);
}

int32_t prslv_undodupvar(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/, const double* doubles,
                         int32_t /*ndoubles*/) {
  const int32_t j = ints[0], k = ints[2], n = ints[4];
  const double m = doubles[0], value = w->blx[k];
  if (j == k) return PRSLV_POSTSOLVE;
  prslvsol* s = w->sol;
  w->bkx[j] = ints[1];
  w->bkx[k] = ints[3];
  w->cx[j] = doubles[1];
  w->blx[j] = doubles[2];
  w->bux[j] = doubles[3];
  w->blx[k] = doubles[4];
  w->bux[k] = doubles[5];
  const double z = s->xx[j];
  prslvbox kbox = prslv_box(w, w->bkx[k], w->blx[k], w->bux[k]);
  if (kbox.haslower) kbox.lower -= w->f_p * value;
  if (kbox.hasupper) kbox.upper -= w->f_p * value;
  const prslvsplit split = prslv_split(w, m, z, s->skx[j], prslv_box(w, w->bkx[j], w->blx[j], w->bux[j]), kbox);
  s->xx[j] = split.u;
  s->xx[k] = split.v + w->f_p * value;
  s->skx[j] = split.ukey;
  s->skx[k] = split.vkey;
  prslv_splitdual(m, s->slx[j], s->sux[j], &s->slx[k], &s->sux[k]);
  // k's elements may differ from m times those of j by rounding.
  for (int32_t t = 0; t < n; ++t) {
    const int32_t i = ints[5 + t];
    const double a = doubles[6 + t];
    s->xc[i] += a * ((split.u - z) / m + s->xx[k]);
    if (prslv_lower(w->bkc[i])) w->blc[i] += a * value;
    if (prslv_upper(w->bkc[i])) w->buc[i] += a * value;
  }
  return PRSLV_OK;
}

}  // namespace tarvo
