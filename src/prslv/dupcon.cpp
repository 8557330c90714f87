// Parallel rows, not counting the columns that are alone in their row. With f_i the first coefficient of row i that
// counts, all rows of a group have the same scaled activity t, and each bounds it:
//
//   xc_i = f_i t + sum over its lone columns of a x,   blc_i <= xc_i <= buc_i
//
// A side of a row that another row's bound on t implies goes. A lone column that a row can take in goes into the row's
// bounds and cost, and two rows without lone columns are one.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>

#include "cpub/dupvec.h"
#include "prslv/dup.h"

namespace tarvo {

namespace {

// Bounds of t by row i; -+the largest double where there is none.
struct Member {
  int32_t i;
  double f, lower, upper;
};

struct DupCon {
  prslvrun* run;
  const uint8_t* counts;  // [numvar] 0: lone columns (and fixed ones)
};

// f(column, element) for the lone columns of row i.
template <class F>
void for_lone(const DupCon& d, int32_t i, F f) {
  const spmat* at = d.run->acolt;
  for (int32_t t = at->ptrb[i]; t < at->ptre[i]; ++t)
    if (d.counts[at->sub[t]] == 0 && prslv_livevar(d.run, at->sub[t])) f(at->sub[t], at->val[t]);
}

int32_t num_lone(const DupCon& d, int32_t i) {
  int32_t n = 0;
  for_lone(d, i, [&](int32_t, double) { ++n; });
  return n;
}

double first_counting(const DupCon& d, int32_t i) {
  const spmat* at = d.run->acolt;
  for (int32_t t = at->ptrb[i]; t < at->ptre[i]; ++t)
    if (d.counts[at->sub[t]] != 0 && at->val[t] != 0.0) return at->val[t];
  sysenv_fatal(d.run->env, "Row of a group without elements");
}

// The activity of the lone columns of row i; infinite when a bound is missing.
struct Activity {
  double lower = 0.0, upper = 0.0;
};
Activity lone_activity(const DupCon& d, int32_t i) {
  const prslvprob* p = d.run->p;
  Activity s;
  bool nolower = false, noupper = false;
  for_lone(d, i, [&](int32_t j, double a) {
    if (a == 0.0) return;
    const bool low = prslv_lower(p->bkx[j]), upp = prslv_upper(p->bkx[j]);
    nolower |= !(a > 0.0 ? low : upp);
    noupper |= !(a > 0.0 ? upp : low);
    s.lower += a * (a > 0.0 ? p->blx[j] : p->bux[j]);
    s.upper += a * (a > 0.0 ? p->bux[j] : p->blx[j]);
  });
  if (nolower) s.lower = -DBL_MAX;
  if (noupper) s.upper = DBL_MAX;
  return s;
}

void bounds_of_t(const DupCon& d, Member* c) {
  const prslvprob* p = d.run->p;
  const Activity s = lone_activity(d, c->i);
  const bool low = prslv_lower(p->bkc[c->i]) && s.upper < DBL_MAX;
  const bool upp = prslv_upper(p->bkc[c->i]) && s.lower > -DBL_MAX;
  const double lower = low ? (p->blc[c->i] - s.upper) / c->f : 0.0;
  const double upper = upp ? (p->buc[c->i] - s.lower) / c->f : 0.0;
  const bool up = c->f > 0.0;
  c->lower = (up ? low : upp) ? (up ? lower : upper) : -DBL_MAX;
  c->upper = (up ? upp : low) ? (up ? upper : lower) : DBL_MAX;
}

void say(const prslvrun* run, int32_t i, int32_t k, double f) {
  if (run->par->loglev <= 0 || run->hook->print == nullptr) return;
  char text[160];
  std::snprintf(text, sizeof text, "Constraint %d and constraint %d are duplicate. Multiplier: %e\n", i, k, f);
  run->hook->print(run->hook->handle, text);
  run->hook->print(run->hook->handle, "The problem is primal infeasible\n");
}

// Row `low` asks for more of t than row `upp` allows.
void prslv_primalinfeasdupcon(prslvrun* run, const Member& low, const Member& upp) {
  const int32_t rows[2] = {low.i, upp.i};
  const double scale = std::fabs(low.f);
  const double y[2] = {scale / low.f, -scale / upp.f};
  prslv_primalinfeas(run, 2, rows, y);
  if (prslv_stopped(run)) say(run, low.i, upp.i, upp.f / low.f);
}

// Drops the sides of row c that the bounds of the rows `low` and `upp` on t imply.
int32_t drop_sides(const DupCon& d, const Member& c, const Member& low, const Member& upp) {
  prslvrun* run = d.run;
  const prslvprob* p = run->p;
  const int32_t bk = p->bkc[c.i];
  const double tol = run->par->tol_x;
  const Activity s = lone_activity(d, c.i);
  const Member& least = c.f > 0.0 ? low : upp;  // the row whose bound limits f t from below
  const Member& most = c.f > 0.0 ? upp : low;
  const double tleast = c.f > 0.0 ? low.lower : upp.upper, tmost = c.f > 0.0 ? upp.upper : low.lower;
  bool lower = prslv_lower(bk) && s.lower > -DBL_MAX && least.i != c.i && std::fabs(tleast) < DBL_MAX &&
               p->blc[c.i] - tol <= c.f * tleast + s.lower;
  bool upper = prslv_upper(bk) && s.upper < DBL_MAX && most.i != c.i && std::fabs(tmost) < DBL_MAX &&
               c.f * tmost + s.upper <= p->buc[c.i] + tol;
  if (bk == PRSLV_BK_FX) lower = upper = lower && upper;
  if (!lower && !upper) return PRSLV_OK;
  const int32_t result = prslv_conrelax(run, c.i, lower, upper);
  if (result == PRSLV_OK && !prslv_livecon(run, c.i)) ++run->stat->dupcon;
  return result;
}

// The bounds of rows i and k = f i together, in row i's terms. *lowk, *uppk: the side is row k's.
struct Merged {
  int32_t bk;
  double bl, bu;
  bool lowk, uppk;
};
Merged merge_bounds(int32_t ibk, double ibl, double ibu, int32_t kbk, double kbl, double kbu, double f, double tol) {
  const bool klow = f > 0.0 ? prslv_lower(kbk) : prslv_upper(kbk), kupp = f > 0.0 ? prslv_upper(kbk) : prslv_lower(kbk);
  const double kl = klow ? (f > 0.0 ? kbl : kbu) / f : 0.0, ku = kupp ? (f > 0.0 ? kbu : kbl) / f : 0.0;
  Merged m{};
  m.lowk = klow && (!prslv_lower(ibk) || kl > ibl);
  m.uppk = kupp && (!prslv_upper(ibk) || ku < ibu);
  if (ibk == PRSLV_BK_FX) {
    m.lowk = m.uppk = false;
  } else if (kbk == PRSLV_BK_FX) {
    m.lowk = m.uppk = true;
  }
  const bool low = klow || prslv_lower(ibk), upp = kupp || prslv_upper(ibk);
  m.bl = !low ? -DBL_MAX : m.lowk ? kl : ibl;
  m.bu = !upp ? DBL_MAX : m.uppk ? ku : ibu;
  m.bk = prslv_keyof(low, upp);
  if (low && upp && m.bu - m.bl <= tol) {
    m.bk = PRSLV_BK_FX;
    m.bu = m.bl;
  }
  return m;
}

// Row i stands for itself and row k = f i; k goes.
int32_t prslv_dupcon(prslvrun* run, int32_t i, int32_t k, double f) {
  prslvprob* p = run->p;
  const double tol = run->par->tol_x;
  const Merged m = merge_bounds(p->bkc[i], p->blc[i], p->buc[i], p->bkc[k], p->blc[k], p->buc[k], f, tol);
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  const int32_t result = prslv_beginpushstk(run, PRSLV_DUP_CON, 4, 7, &ints, &doubles);
  if (result != PRSLV_OK) return result;
  const int32_t head[4] = {i, p->bkc[i], k, p->bkc[k]};
  const double dhead[7] = {f, p->cc[i], p->blc[i], p->buc[i], p->cc[k], p->blc[k], p->buc[k]};
  std::copy_n(head, 4, ints);
  std::copy_n(dhead, 7, doubles);
  prslv_endpushstk(run, &ints, &doubles);
  p->cc[i] += f * p->cc[k];
  p->cc[k] = 0.0;
  prslv_removecon(run, k);
  p->bkc[i] = m.bk;
  p->blc[i] = m.bl;
  p->buc[i] = m.bu;
  prslv_listpush(&run->rows, i);
  ++run->stat->dupcon;
  return PRSLV_OK;
}

// Gives row i other bounds after it has taken in a column; a row without any goes.
int32_t put_bounds(prslvrun* run, int32_t i, int32_t bk, double bl, double bu) {
  prslvprob* p = run->p;
  p->bkc[i] = bk;
  p->blc[i] = bl;
  p->buc[i] = bu;
  if (bk == PRSLV_BK_FR) return prslv_conrelax(run, i, true, true);
  prslv_listpush(&run->rows, i);
  return PRSLV_OK;
}

// The live row of a column that has one.
struct Place {
  int32_t i;
  double a;
};
Place only_row(const prslvrun* run, int32_t j) {
  const spmat* a = run->p->acol;
  for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t)
    if (prslv_livecon(run, a->sub[t])) return {a->sub[t], a->val[t]};
  return {-1, 0.0};
}

// Lone columns that their rows can take in: of a fixed row the only one, of any row those that cost what the row's
// activity gives. `alone` is room for the rows, all 0.
int32_t take_columns(prslvrun* run, int32_t* alone) {
  const prslvprob* p = run->p;
  for (int32_t j = 0; j < p->numvar; ++j)
    if (prslv_livevar(run, j) && run->varnz[j] == 1) ++alone[only_row(run, j).i];
  int32_t result = PRSLV_OK;
  for (int32_t j = 0; j < p->numvar && result == PRSLV_OK; ++j) {
    if (!prslv_livevar(run, j) || run->varnz[j] != 1 || run->varcla[j] == 0) continue;
    const auto [i, a] = only_row(run, j);
    if (run->concla[i] == 0 || run->connz[i] < 2) continue;
    // Equations of two elements are for the doubleton chains, which take a whole path at once.
    if (run->connz[i] == 2 && p->bkc[i] == PRSLV_BK_FX && run->par->eliminator != 0) continue;
    if (std::fabs(a) < 1.0 / prslv_maxmultiplier || std::fabs(a) > prslv_maxmultiplier) continue;
    if (p->bkc[i] == PRSLV_BK_FX && alone[i] == 1) {
      result = prslv_rowtookcolumn(run, i, j, a);
    } else if (std::fabs(p->cx[j] + a * p->cc[i]) <= run->par->tol_s) {
      result = prslv_dupconandvar(run, i, j, a);
    }
  }
  return result;
}

int32_t check_group(const DupCon& d, Member* g, int32_t n) {
  prslvrun* run = d.run;
  const Member none{-1, 1.0, -DBL_MAX, DBL_MAX};
  Member low = none, upp = none;
  for (int32_t k = 0; k < n; ++k) {
    bounds_of_t(d, &g[k]);
    if (g[k].lower > low.lower) low = g[k];
    if (g[k].upper < upp.upper) upp = g[k];
  }
  if (low.i >= 0 && upp.i >= 0 && low.i != upp.i && low.lower > upp.upper + run->par->tol_x) {
    prslv_primalinfeasdupcon(run, low, upp);
    return PRSLV_OK;
  }
  for (int32_t k = 0; k < n; ++k) {
    const int32_t result = drop_sides(d, g[k], low, upp);
    if (result != PRSLV_OK) return result;
  }
  n = static_cast<int32_t>(std::remove_if(g, g + n, [&](const Member& c) { return !prslv_livecon(run, c.i); }) - g);
  if (n < 2) return PRSLV_OK;
  int32_t root = -1;
  for (int32_t k = 0; k < n; ++k) {
    if (!prslv_livecon(run, g[k].i) || num_lone(d, g[k].i) > 0) continue;
    const double f = root < 0 ? 1.0 : g[k].f / g[root].f;
    if (root < 0) {
      root = k;
    } else if (std::fabs(f) <= prslv_maxmultiplier && std::fabs(f) >= 1.0 / prslv_maxmultiplier) {
      bounds_of_t(d, &g[root]);
      bounds_of_t(d, &g[k]);
      const bool rootlow = g[root].lower > g[k].upper + run->par->tol_x;
      if (rootlow || g[k].lower > g[root].upper + run->par->tol_x) {
        prslv_primalinfeasdupcon(run, rootlow ? g[root] : g[k], rootlow ? g[k] : g[root]);
        return PRSLV_OK;
      }
      const int32_t result = prslv_dupcon(run, g[root].i, g[k].i, f);
      if (result != PRSLV_OK) return result;
    }
  }
  return PRSLV_OK;
}

}  // namespace

int32_t prslv_rowtookcolumn(prslvrun* run, int32_t i, int32_t j, double a) {
  prslvprob* p = run->p;
  int32_t result = prslv_reserve(run, PRSLV_ROW_TOOK_COLUMN, run->connz[i]);
  if (result != PRSLV_OK) return result;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  result = prslv_beginpushstk(run, PRSLV_ROW_TOOK_COLUMN, 3, 6, &ints, &doubles);
  if (result != PRSLV_OK) return result;
  const double b = p->blc[i], t = p->cx[j] / a;
  const int32_t head[3] = {i, j, p->bkx[j]};
  const double dhead[6] = {p->cx[j], a, p->blx[j], p->bux[j], p->cc[i], b};
  std::copy_n(head, 3, ints);
  std::copy_n(dhead, 6, doubles);
  prslv_endpushstk(run, &ints, &doubles);
  int32_t bk = 0;
  double bl = 0.0, bu = 0.0;
  prslv_sumbounds(-a, PRSLV_BK_FX, b, b, p->bkx[j], p->blx[j], p->bux[j], &bk, &bl, &bu);
  p->cfix += (t + p->cc[i]) * b;
  prslv_removevar(run, j, 0.0);
  p->cx[j] = 0.0;
  p->cc[i] = -t;
  return put_bounds(run, i, bk, bl, bu);
}

int32_t prslv_dupconandvar(prslvrun* run, int32_t i, int32_t j, double a) {
  prslvprob* p = run->p;
  if (!prslv_livecon(run, i)) sysenv_fatal(run->env, "Constraint is free already");
  int32_t result = prslv_reserve(run, PRSLV_DUP_CON_AND_VAR, run->connz[i]);
  if (result != PRSLV_OK) return result;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  result = prslv_beginpushstk(run, PRSLV_DUP_CON_AND_VAR, 4, 6, &ints, &doubles);
  if (result != PRSLV_OK) return result;
  const int32_t head[4] = {i, p->bkc[i], j, p->bkx[j]};
  const double dhead[6] = {p->blc[i], p->buc[i], p->cx[j], a, p->blx[j], p->bux[j]};
  std::copy_n(head, 4, ints);
  std::copy_n(dhead, 6, doubles);
  prslv_endpushstk(run, &ints, &doubles);
  int32_t bk = 0;
  double bl = 0.0, bu = 0.0;
  prslv_sumbounds(-a, p->bkc[i], p->blc[i], p->buc[i], p->bkx[j], p->blx[j], p->bux[j], &bk, &bl, &bu);
  prslv_removevar(run, j, 0.0);
  p->cx[j] = 0.0;
  return put_bounds(run, i, bk, bl, bu);
}

int32_t prslv_checkdupcon(prslvrun* run) {
  const prslvprob* p = run->p;
  Workspace work(run->env);
  uint8_t* counts = nullptr;
  int32_t *alone = nullptr, *cand = nullptr;
  Member* group = nullptr;
  work.add(&alone, static_cast<std::size_t>(p->numcon), Fill::zero);
  work.add(&counts, static_cast<std::size_t>(p->numvar));
  work.add(&cand, static_cast<std::size_t>(p->numcon));
  work.add(&group, static_cast<std::size_t>(p->numcon));
  if (!work.commit()) return PRSLV_SPACE;
  int32_t result = take_columns(run, alone);
  if (result != PRSLV_OK) return result;
  for (int32_t j = 0; j < p->numvar; ++j) counts[j] = prslv_livevar(run, j) && run->varnz[j] != 1 ? 1 : 0;
  int32_t numcand = 0;
  for (int32_t i = 0; i < p->numcon; ++i)
    if (prslv_livecon(run, i) && run->concla[i] != 0 && run->connz[i] > 0) cand[numcand++] = i;
  dupgroups groups;
  if (!spmat_dupvec(run->acolt, counts, numcand, cand, run->par->tol_aij, &groups)) return PRSLV_SPACE;
  const DupCon d{run, counts};
  for (int32_t g = 0; g < groups.count && result == PRSLV_OK && !prslv_stopped(run); ++g) {
    int32_t n = 0;
    for (int32_t i = groups.head[g]; i != groups.end; i = groups.next[i])
      group[n++] = {i, first_counting(d, i), -DBL_MAX, DBL_MAX};
    result = check_group(d, group, n);
  }
  return result;
}

// The multiplier of the merged row goes to the row whose side it is of; that row takes the key, the other one is basic.
//   w_i + f w_k = w  with  w = slc - suc = cc + y
int32_t prslv_undodupcon(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/, const double* doubles,
                         int32_t /*ndoubles*/) {
  const int32_t i = ints[0], k = ints[2];
  const double f = doubles[0];
  prslvsol* s = w->sol;
  w->bkc[i] = ints[1];
  w->cc[i] = doubles[1];
  w->blc[i] = doubles[2];
  w->buc[i] = doubles[3];
  w->bkc[k] = ints[3];
  w->cc[k] = doubles[4];
  w->blc[k] = doubles[5];
  w->buc[k] = doubles[6];
  const Merged m = merge_bounds(w->bkc[i], w->blc[i], w->buc[i], w->bkc[k], w->blc[k], w->buc[k], f, w->par->tol_x);
  double lower = s->slc[i], upper = s->suc[i];
  int32_t key = s->skc[i];
  if (key == PRSLV_SK_FIX) {
    // One side carries it all.
    const double d = lower - upper;
    lower = std::max(d, 0.0);
    upper = std::max(-d, 0.0);
    key = d >= 0.0 ? PRSLV_SK_LOW : PRSLV_SK_UPR;
  }
  // Parts of row k: with f < 0 its sides are the other way round.
  const double klower = m.lowk ? lower / std::fabs(f) : 0.0, kupper = m.uppk ? upper / std::fabs(f) : 0.0;
  s->slc[k] = f > 0.0 ? klower : kupper;
  s->suc[k] = f > 0.0 ? kupper : klower;
  s->slc[i] = m.lowk ? 0.0 : lower;
  s->suc[i] = m.uppk ? 0.0 : upper;
  s->y[i] = s->slc[i] - s->suc[i] - w->f_d * w->cc[i];
  s->y[k] = s->slc[k] - s->suc[k] - w->f_d * w->cc[k];
  s->xc[k] = f * s->xc[i];
  s->skc[k] = prslv_walkbasic(w);
  if (key != PRSLV_SK_LOW && key != PRSLV_SK_UPR) return PRSLV_OK;
  const bool ofk = key == PRSLV_SK_LOW ? m.lowk : m.uppk;
  const int32_t owner = ofk ? k : i;
  if (ofk) {
    s->skc[i] = prslv_walkbasic(w);
    if (f < 0.0) key = key == PRSLV_SK_LOW ? PRSLV_SK_UPR : PRSLV_SK_LOW;
  }
  s->skc[owner] = w->bkc[owner] == PRSLV_BK_FX ? static_cast<int32_t>(PRSLV_SK_FIX) : key;
  return PRSLV_OK;
}

// The reduced row was xc_i - a x_j.
int32_t prslv_undodupconandvar(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/,
                               const double* doubles, int32_t /*ndoubles*/) {
  const int32_t i = ints[0], j = ints[2];
  const double a = doubles[3];
  prslvsol* s = w->sol;
  w->bkc[i] = ints[1];
  w->blc[i] = doubles[0];
  w->buc[i] = doubles[1];
  w->bkx[j] = ints[3];
  w->cx[j] = doubles[2];
  w->blx[j] = doubles[4];
  w->bux[j] = doubles[5];
  const prslvsplit split = prslv_split(w, -a, s->xc[i], s->skc[i], prslv_box(w, w->bkc[i], w->blc[i], w->buc[i]),
                                       prslv_box(w, w->bkx[j], w->blx[j], w->bux[j]));
  s->xc[i] = split.u;
  s->xx[j] = split.v;
  s->skc[i] = split.ukey;
  s->skx[j] = split.vkey;
  prslv_splitdual(-a, s->slc[i], s->suc[i], &s->slx[j], &s->sux[j]);
  return PRSLV_OK;
}

int32_t prslv_undorowtookcolumn(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/,
                                const double* doubles, int32_t /*ndoubles*/) {
  const int32_t i = ints[0], j = ints[1];
  const double a = doubles[1];
  prslvsol* s = w->sol;
  w->cfix -= (doubles[0] / a + doubles[4]) * doubles[5];
  w->bkx[j] = ints[2];
  w->cx[j] = doubles[0];
  w->blx[j] = doubles[2];
  w->bux[j] = doubles[3];
  w->cc[i] = doubles[4];
  w->bkc[i] = PRSLV_BK_FX;
  w->blc[i] = w->buc[i] = doubles[5];
  s->xx[j] = (w->f_p * doubles[5] - s->xc[i]) / a;
  s->skx[j] = s->skc[i];
  if (a > 0.0 && s->skc[i] == PRSLV_SK_LOW) s->skx[j] = PRSLV_SK_UPR;
  if (a > 0.0 && s->skc[i] == PRSLV_SK_UPR) s->skx[j] = PRSLV_SK_LOW;
  prslv_splitdual(-a, s->slc[i], s->suc[i], &s->slx[j], &s->sux[j]);
  s->xc[i] = w->f_p * doubles[5];
  s->skc[i] = PRSLV_SK_FIX;
  const double v = w->f_d * w->cc[i] + s->y[i];
  s->slc[i] = std::max(v, 0.0);
  s->suc[i] = std::max(-v, 0.0);
  return PRSLV_OK;
}

}  // namespace tarvo
