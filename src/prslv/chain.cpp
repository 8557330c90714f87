// Doubleton chains: fixed rows with two elements each tie their columns to one another, so that one column, the root,
// gives all others:
//
//   row:  a x_v + b x_w = r   and along the chain   x_v = f_v x_root + g_v
//
// The root takes their bounds, costs and columns; the chain's rows go. Multipliers are products along the path, so the
// chain is cut where they grow or shrink too far.
#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>

#include "prslv/elim.h"

namespace tarvo {

namespace {

constexpr double maxfactor = 10000.0;  // of |f| and 1/|f|
constexpr double maxshift = 1e8;       // of |g|
constexpr double cancelled = 1e-7;     // a sum this much smaller than its terms may be noise

bool doubleton(const prslvelim* e, int32_t i) {
  return e->mark[i] != 0 && e->run->connz[i] == 2 && e->run->p->bkc[i] == PRSLV_BK_FX && e->rowused[i] == 0;
}

// The slot of the row's other element.
int32_t partner(const prslvelim* e, int32_t slot) {
  const matlnkelem* x = e->m.elem.data();
  return x[slot].rnext >= 0 ? x[slot].rnext : x[slot].rprev;
}

// The longest column among those that the chain through row i reaches.
int32_t chooseroot(prslvelim* e, int32_t i) {
  prslvrun* run = e->run;
  int32_t count = 0, rows = 0;
  const int32_t first = e->m.elem[e->m.rowhead[i]].col;
  e->queue[count++] = first;
  e->vpos[first] = 1;
  int32_t root = first;
  for (int32_t k = 0; k < count; ++k) {
    elim_col(e, e->queue[k], [&](int32_t t) {
      const int32_t r = e->m.elem[t].row;
      if (!doubleton(e, r)) return;
      e->rowused[r] = 1;
      e->colsub[rows++] = r;
      const int32_t v = e->m.elem[partner(e, t)].col;
      if (e->vpos[v] != 0) return;
      e->vpos[v] = 1;
      e->queue[count++] = v;
      if (run->varnz[v] > run->varnz[root]) root = v;
    });
  }
  for (int32_t k = 0; k < count; ++k) e->vpos[e->queue[k]] = 0;
  for (int32_t k = 0; k < rows; ++k) e->rowused[e->colsub[k]] = 0;
  return root;
}

// Fills queue[0..n) with the columns that go, in an order that has each behind the one that it hangs on, with f, g and
// chain row. e->vpos marks them and the root.
int32_t followchain(prslvelim* e, int32_t root) {
  prslvrun* run = e->run;
  int32_t n = 0;
  e->cf[root] = 1.0;
  e->cg[root] = 0.0;
  e->vpos[root] = 1;
  for (int32_t k = -1; k < n; ++k) {
    const int32_t v = k < 0 ? root : e->queue[k];
    elim_col(e, v, [&](int32_t t) {
      const int32_t r = e->m.elem[t].row;
      if (!doubleton(e, r)) return;
      const int32_t other = partner(e, t), u = e->m.elem[other].col;
      if (e->vpos[u] != 0 || e->stays[u] != 0) return;
      const double a = e->m.elem[other].val, ratio = e->m.elem[t].val / a;
      const double f = -ratio * e->cf[v], g = (run->p->blc[r] - e->m.elem[t].val * e->cg[v]) / a;
      const auto limited = [](double x) { return std::fabs(x) <= maxfactor && std::fabs(x) * maxfactor >= 1.0; };
      if (!limited(ratio) || !limited(f) || std::fabs(g) > maxshift) return;
      e->cf[u] = f;
      e->cg[u] = g;
      e->chainrow[u] = r;
      e->chaincol[u] = other;
      e->rowused[r] = 1;
      e->vpos[u] = 1;
      e->queue[n++] = u;
    });
  }
  return n;
}

// Whether the columns can be added up without sums that may be rounding noise, and fit into a record.
bool addsup(prslvelim* e, int32_t root, int32_t n) {
  const matlnkelem* x = e->m.elem.data();
  int32_t rows = 0;
  int64_t elements = 0;
  for (int32_t k = 0; k < n; ++k) elements += 8 + e->run->varnz[e->queue[k]];
  bool good = elements < INT32_MAX / 2;
  // racc: the sum so far; mult: its largest term.
  for (int32_t k = -1; k < n; ++k) {
    const int32_t v = k < 0 ? root : e->queue[k];
    for (int32_t t = e->m.colhead[v]; t >= 0; t = x[t].cnext) {
      const int32_t r = x[t].row;
      if (e->rowused[r] != 0) continue;
      if (e->rstamp[r] == 0) {
        e->rstamp[r] = 1;
        e->colsub[rows++] = r;
        e->racc[r] = 0.0;
        e->mult[r] = 0.0;
      }
      const double term = e->cf[v] * x[t].val;
      e->racc[r] += term;
      e->mult[r] = std::max(e->mult[r], std::fabs(term));
    }
  }
  for (int32_t k = 0; k < rows; ++k) {
    const int32_t r = e->colsub[k];
    const double sum = std::fabs(e->racc[r]);
    if (sum > elim_zero(e, e->mult[r], 0.0) && sum < cancelled * e->mult[r]) good = false;
    e->rstamp[r] = 0;
  }
  return good;
}

struct Range {
  int32_t bk, e1, e2;  // who gave the bounds
  double low, upp;
};
// The bounds of all columns as bounds of the root. False when they cross: that is for the optimizer to judge.
bool intersect(const prslvelim* e, int32_t root, int32_t n, Range* range) {
  const prslvprob* p = e->run->p;
  *range = {PRSLV_BK_FR, p->numvar, p->numvar, -DBL_MAX, DBL_MAX};
  for (int32_t k = -1; k < n; ++k) {
    const int32_t v = k < 0 ? root : e->queue[k];
    const double f = e->cf[v], g = e->cg[v];
    const bool low = prslv_lower(p->bkx[v]), upp = prslv_upper(p->bkx[v]);
    if (f > 0.0 ? low : upp) {
      const double bound = ((f > 0.0 ? p->blx[v] : p->bux[v]) - g) / f;
      if (range->e1 == p->numvar || bound > range->low) {
        range->low = bound;
        range->e1 = v;
      }
    }
    if (f > 0.0 ? upp : low) {
      const double bound = ((f > 0.0 ? p->bux[v] : p->blx[v]) - g) / f;
      if (range->e2 == p->numvar || bound < range->upp) {
        range->upp = bound;
        range->e2 = v;
      }
    }
  }
  const bool low = range->e1 != p->numvar, upp = range->e2 != p->numvar;
  range->bk = low ? (upp ? PRSLV_BK_RA : PRSLV_BK_LO) : (upp ? PRSLV_BK_UP : PRSLV_BK_FR);
  return !(low && upp) || range->low <= range->upp;
}

int32_t pushchain(prslvelim* e, int32_t root, int32_t n, const Range& range) {
  prslvrun* run = e->run;
  const prslvprob* p = run->p;
  const matlnkelem* x = e->m.elem.data();
  int64_t size = 0;
  for (int32_t k = 0; k < n; ++k) size += run->varnz[e->queue[k]];
  int32_t* ints;
  double* doubles;
  const auto total = static_cast<int32_t>(size);
  const int32_t res =
      prslv_beginpushstk(run, PRSLV_DOUBLETON_CHAIN, 5 + 5 * n + total, 3 + 8 * n + total, &ints, &doubles);
  if (res != PRSLV_OK) return res;
  int32_t* pi = ints;
  double* pd = doubles;
  *pi++ = n;
  *pi++ = range.e1;
  *pi++ = range.e2;
  for (int32_t k = 0; k < n; ++k) *pi++ = run->varnz[e->queue[k]];
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = e->chainrow[e->queue[k]];
    *pi++ = i;
    *pi++ = p->bkc[i];
    *pd++ = p->cc[i];
    *pd++ = p->blc[i];
    *pd++ = p->buc[i];
  }
  *pi++ = root;
  *pi++ = p->bkx[root];
  *pd++ = p->cx[root];
  *pd++ = p->blx[root];
  *pd++ = p->bux[root];
  for (int32_t k = 0; k < n; ++k) {
    const int32_t v = e->queue[k];
    const int32_t own = e->chaincol[v];
    *pi++ = v;
    *pi++ = p->bkx[v];
    *pd++ = p->cx[v];
    *pd++ = p->blx[v];
    *pd++ = p->bux[v];
    *pi++ = x[own].row;
    *pd++ = x[own].val;
    for (int32_t t = e->m.colhead[v]; t >= 0; t = x[t].cnext) {
      if (t == own) continue;
      *pi++ = x[t].row;
      *pd++ = x[t].val;
    }
    *pd++ = x[own].val * e->cg[v];
    *pd++ = -x[own].val * e->cf[v];
  }
  if (pi - ints != 5 + 5 * n + total || pd - doubles != 3 + 8 * n + total) {
    prslv_fatal(run->env, "nzpivi: %d connz: %d", static_cast<int32_t>(pi - ints), total);
  }
  prslv_endpushstk(run, &ints, &doubles);
  return PRSLV_OK;
}

// Everything moves to the root.
void applychain(prslvelim* e, int32_t root, int32_t n, const Range& range) {
  prslvrun* run = e->run;
  prslvprob* p = run->p;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = e->chainrow[e->queue[k]];
    p->cfix += p->cc[i] * p->blc[i];
    p->cc[i] = 0.0;
    elim_removerow(e, i);
  }
  // rstamp: the slot of the root's element in a row, + 1.
  elim_col(e, root, [&](int32_t t) { e->rstamp[e->m.elem[t].row] = t + 1; });
  for (int32_t k = 0; k < n; ++k) {
    const int32_t v = e->queue[k];
    const double f = e->cf[v], g = e->cg[v];
    elim_col(e, v, [&](int32_t t) {
      const int32_t r = e->m.elem[t].row;
      const double a = e->m.elem[t].val, shift = a * g;
      if (prslv_lower(p->bkc[r])) p->blc[r] -= shift;
      if (prslv_upper(p->bkc[r])) p->buc[r] -= shift;
      p->cfix += p->cc[r] * shift;
      if (e->rstamp[r] != 0) {
        matlnkelem* own = &e->m.elem[e->rstamp[r] - 1];
        const double old = own->val;
        own->val += f * a;
        if (std::fabs(own->val) <= elim_zero(e, std::fabs(old), std::fabs(f * a))) own->val = 0.0;
        elim_drop(e, t);
      } else {
        e->m.elem[t].val = f * a;
        matlnk_movecol(&e->m, t, root);
        --run->varnz[v];
        ++run->varnz[root];
        e->rstamp[r] = t + 1;
      }
      elim_touchrow(e, r);
    });
    p->cx[root] = prslv_addcost(p->cx[root], f * p->cx[v]);
    // The fixed slot keeps its cost: cx g is its share of the objective.
    p->bkx[v] = PRSLV_BK_FX;
    p->blx[v] = p->bux[v] = g;
    ++run->numfixed;
  }
  elim_col(e, root, [&](int32_t t) {
    const int32_t r = e->m.elem[t].row;
    e->rstamp[r] = 0;
    elim_touchrow(e, r);
    if (e->m.elem[t].val == 0.0) elim_drop(e, t);
  });
  p->bkx[root] = range.bk;
  p->blx[root] = range.low;
  p->bux[root] = range.upp;
  elim_touchcol(e, root);
  e->changed = 1;
  e->chainrows += n;
  ++run->changes;
  ++run->stat->chains;
  run->stat->chaincons += n;
}

}  // namespace

int32_t prslv_finddoubletonchain(prslvelim* e, int32_t i, int32_t* removed) {
  *removed = 0;
  if (!doubleton(e, i)) return PRSLV_OK;
  int32_t root = chooseroot(e, i);
  if (e->stays[root] != 0) return PRSLV_OK;
  const int32_t n = followchain(e, root);
  Range range;
  int32_t res = PRSLV_OK;
  if (n > 0 && addsup(e, root, n) && intersect(e, root, n, &range)) {
    res = pushchain(e, root, n, range);
    if (res == PRSLV_OK) {
      applychain(e, root, n, range);
      *removed = n;
      if (e->run->par->loglev > 1) {
        prslv_log(e->run, "Eliminate doubleton chain. Number of constraints: %d.\n", n);
      }
    }
  }
  e->vpos[root] = 0;
  for (int32_t k = 0; k < n; ++k) {
    e->vpos[e->queue[k]] = 0;
    e->rowused[e->chainrow[e->queue[k]]] = 0;
  }
  return res;
}

// With x_v = f x_root + g in the columns, d_root = sum f_v d_v over the chain when its rows' multipliers are right: all
// d_v are zero but that of the column whose bound holds the root, which takes d_root / f_v.
int32_t prslv_undochain(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/, const double* doubles,
                        int32_t /*ndoubles*/) {
  const int32_t n = ints[0], e1 = ints[1], e2 = ints[2];
  const int32_t *sizes = ints + 3, *rows = sizes + n, *rootinfo = rows + 2 * n;
  const double *rowdata = doubles, *rootdata = rowdata + 3 * n;
  prslvsol* s = w->sol;
  const int32_t root = rootinfo[0];
  int32_t st = s->skx[root];
  const double sl = s->slx[root], su = s->sux[root];
  if (st == PRSLV_SK_FIX)
    st = (sl - su >= 0.0 && e1 != w->p->numvar) || e2 == w->p->numvar ? PRSLV_SK_LOW : PRSLV_SK_UPR;

  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = rows[2 * k];
    w->bkc[i] = rows[2 * k + 1];
    w->cc[i] = rowdata[3 * k];
    w->blc[i] = rowdata[3 * k + 1];
    w->buc[i] = rowdata[3 * k + 2];
    w->cfix -= w->cc[i] * w->blc[i];
  }
  w->bkx[root] = rootinfo[1];
  w->cx[root] = rootdata[0];
  w->blx[root] = rootdata[1];
  w->bux[root] = rootdata[2];
  const bool away = (st == PRSLV_SK_LOW && e1 != root) || (st == PRSLV_SK_UPR && e2 != root);
  s->skx[root] = away ? prslv_walkbasic(w) : st;
  if (e1 != root) s->slx[root] = 0.0;
  if (e2 != root) s->sux[root] = 0.0;

  // Forward: values and statuses. `vint`, `vdbl` run over the columns of the chain.
  const int32_t* vint = rootinfo + 2;
  const double* vdbl = rootdata + 3;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t v = vint[0], size = sizes[k];
    const double a = vdbl[3], r = vdbl[3 + size], b = vdbl[4 + size], f = -b / a;
    w->bkx[v] = vint[1];
    w->cx[v] = vdbl[0];
    w->blx[v] = vdbl[1];
    w->bux[v] = vdbl[2];
    s->xx[v] = (w->f_p * r - b * s->xx[root]) / a;
    s->skx[v] = prslv_walkbasic(w);
    double d = 0.0;
    if (v == e1) d += sl / f;
    if (v == e2) d -= su / f;
    s->slx[v] = std::max(d, 0.0);
    s->sux[v] = std::max(-d, 0.0);
    const bool holds = (v == e1 && st == PRSLV_SK_LOW) || (v == e2 && st == PRSLV_SK_UPR);
    if (holds) {
      const bool lower = (f > 0.0) == (st == PRSLV_SK_LOW);
      s->skx[v] = lower ? PRSLV_SK_LOW : PRSLV_SK_UPR;
      // Exactly at its bound; a ray may well leave a column moving that has the key of a bound, and keys of an interior
      // solution only tell where it tends.
      if (w->basic && w->f_p != 0.0) s->xx[v] = lower ? w->blx[v] : w->bux[v];
    }
    const int32_t* sub = vint + 2;
    for (int32_t t = 1; t < size; ++t) {
      const double shift = vdbl[3 + t] * r / a;
      s->xc[sub[t]] += w->f_p * shift;
      if (prslv_lower(w->bkc[sub[t]])) w->blc[sub[t]] += shift;
      if (prslv_upper(w->bkc[sub[t]])) w->buc[sub[t]] += shift;
      w->cfix -= w->cc[sub[t]] * shift;
    }
    vint += 2 + size;
    vdbl += 5 + size;
  }
  // Backward, from the ends of the chain to the root: the multiplier of each chain row from the column that hangs on
  // it, whose other chain rows are known by then.
  for (int32_t k = n - 1; k >= 0; --k) {
    const int32_t size = sizes[k];
    vint -= 2 + size;
    vdbl -= 5 + size;
    const int32_t v = vint[0], i = vint[2];
    double y = w->f_d * w->cx[v] - (s->slx[v] - s->sux[v]);
    for (int32_t t = 1; t < size; ++t) y -= vdbl[3 + t] * s->y[vint[2 + t]];
    s->y[i] = y / vdbl[3];
  }
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = rows[2 * k];
    w->blc[i] = rowdata[3 * k + 1];
    w->buc[i] = rowdata[3 * k + 2];
    const double t = w->f_d * w->cc[i] + s->y[i];
    s->skc[i] = PRSLV_SK_FIX;
    s->xc[i] = w->f_p * w->blc[i];
    s->slc[i] = std::max(t, 0.0);
    s->suc[i] = std::max(-t, 0.0);
  }
  return PRSLV_OK;
}

}  // namespace tarvo
