// Checks of one column at a time: empty columns, singletons, columns dominated by what the multipliers can be.
//
// E. D. Andersen and K. D. Andersen, Presolving in linear programming, Mathematical Programming 71 (1995) 221-245.
//
// With c' = cx, the reduced cost of column j is d_j = cx_j - sum a_ij y_i, and slc_i - suc_i = cc_i + y_i. A row with a
// lower bound alone has y_i >= -cc_i, a column with a lower bound alone has d_j >= 0, which bounds the y of each of its
// rows by the bounds of the others. A column whose d_j can't be negative sits at its lower bound.
//
// What such a conclusion may rest on. Fixing x_j at its lower bound because d_j >= 0 for all multipliers is right if
// that follows WITHOUT the requirement on d_j itself: then any multipliers of the reduced problem give d_j >= 0 and are
// multipliers of the full one. So each bound carries its chain (the columns and rows whose requirements it came from),
// and
//   - a column isn't fixed by a bound whose chain holds the column,
//   - nor if an earlier conclusion of the same call rests on it ("pinned"); bounds that rest on an earlier conclusion
//     stay true, for its requirement follows from its own chain,
//   - the same for a row that is fixed at a bound because of the sign of cc_i + y_i.
// Even d_j > 0 with x_j in its own chain says that no optimum has x_j elsewhere; but there may be no optimum, and then
// the reduced problem can have one that the full one lacks. Chains are kept as the column last used, exactly, and
// hashed sets of what is behind it: sharing a bit may only forbid a conclusion.
#include <algorithm>
#include <cfloat>

#include "prslv/checks.h"

namespace tarvo {

namespace {

constexpr double nobound = DBL_MAX;
constexpr double bigmultiplier = 1e10;  // bounds on y beyond this are noise
constexpr int32_t maxvisits = 4;        // how often a column may pass on bounds: such chains can converge forever
constexpr double weakness = 1e-11;      // rounding of d_j, relative to its terms

uint64_t bit(int32_t k) {
  const uint64_t h = (static_cast<uint64_t>(k) + 1) * 0x9E3779B97F4A7C15ull;
  return uint64_t{1} << (h >> 58);
}

// A set of requirements: the hashed columns and rows.
struct Chain {
  uint64_t cols = 0, rows = 0;
};

// One bound on y_i that a column gave.
struct YBound {
  double value;
  int32_t src;  // the column, -1: none
  Chain behind;
};

struct Dominated {
  prslvrun* run;
  YBound *lower, *upper;  // [numcon]
  int32_t* queue;         // [numvar], circular
  uint8_t *queued, *visits;
  int32_t head = 0, count = 0;
  uint8_t *pincol, *pinrow;
  Chain pinned;  // hashed, of what is behind the direct sources
};

// The bound in force on y_i, from the row's own key or from a column. The tighter one; the own key on a tie.
struct Effective {
  double value;  // -+nobound: none
  int32_t src;   // column, -1: the row's own key
  Chain behind;
};
Effective effective(const Dominated* dom, int32_t i, bool low) {
  const prslvprob* p = dom->run->p;
  const YBound& b = low ? dom->lower[i] : dom->upper[i];
  const bool own = low ? !prslv_upper(p->bkc[i]) : !prslv_lower(p->bkc[i]);
  const double ownvalue = -p->cc[i];
  if (own && (b.src < 0 || (low ? ownvalue >= b.value : ownvalue <= b.value))) return {ownvalue, -1, {}};
  if (b.src < 0) return {low ? -nobound : nobound, -1, {}};
  return {b.value, b.src, b.behind};
}

// sum over the live rows of min(a y) (or max), without the infinite terms, which it counts.
struct DualActivity {
  double sum = 0.0, size = 0.0;
  int32_t ninf = 0;
  int32_t infrow = -1;
};
DualActivity dualactivity(const Dominated* dom, int32_t j, bool minimum) {
  DualActivity act;
  prslv_eachincol(dom->run, j, [&](int32_t i, double a) {
    if (a == 0.0) return true;
    const Effective e = effective(dom, i, (a > 0.0) == minimum);
    if (std::fabs(e.value) > bigmultiplier) {
      ++act.ninf;
      act.infrow = i;
    } else {
      act.sum += a * e.value;
      act.size = std::max(act.size, std::fabs(a * e.value));
    }
    return act.ninf < 2;
  });
  return act;
}

void enqueue(Dominated* dom, int32_t j) {
  if (dom->queued[j] != 0 || dom->visits[j] >= maxvisits) return;
  dom->queued[j] = 1;
  const int32_t n = dom->run->p->numvar;
  dom->queue[(dom->head + dom->count) % n] = j;
  ++dom->count;
}

// Bounds on the multipliers of column j's rows from d_j >= 0 (nonneg) or d_j <= 0.
void passon(Dominated* dom, int32_t j, bool nonneg) {
  prslvrun* run = dom->run;
  const double cost = run->p->cx[j];
  // d_j >= 0: a y_i <= cx_j - sum over the others of min(a y).
  const DualActivity act = dualactivity(dom, j, nonneg);
  if (act.ninf > 1) return;
  prslv_eachincol(run, j, [&](int32_t i, double a) {
    if (act.ninf == 1 && i != act.infrow) return true;
    if (std::fabs(a) < 1e-6 || run->concla[i] == 0) return true;
    double rest = act.sum;
    if (act.ninf == 0) rest -= a * effective(dom, i, (a > 0.0) == nonneg).value;
    const double value = (cost - rest) / a;
    if (std::fabs(value) > bigmultiplier) return true;
    const bool low = (a > 0.0) != nonneg;
    const Effective old = effective(dom, i, low);
    const double gain =
        old.src < 0 && std::fabs(old.value) > bigmultiplier ? 1.0 : 1e-6 * std::max(1.0, std::fabs(value));
    if (std::fabs(old.value) <= bigmultiplier && (low ? value <= old.value + gain : value >= old.value - gain)) {
      return true;
    }
    Chain behind;
    prslv_eachincol(run, j, [&](int32_t r, double b) {
      if (r == i || b == 0.0) return true;
      const Effective e = effective(dom, r, (b > 0.0) == nonneg);
      behind.rows |= e.behind.rows;
      behind.cols |= e.behind.cols;
      if (e.src < 0)
        behind.rows |= bit(r);
      else
        behind.cols |= bit(e.src);
      return true;
    });
    (low ? dom->lower[i] : dom->upper[i]) = {value, j, behind};
    prslv_eachinrow(run, i, [&](int32_t k, double) {
      if (k != j) enqueue(dom, k);
      return true;
    });
    return true;
  });
}

// Whether column j's requirement can bound multipliers.
bool onesided(const prslvrun* run, int32_t j) {
  const int32_t bk = run->p->bkx[j];
  return run->varcla[j] != 0 && bk != PRSLV_BK_FX && bk != PRSLV_BK_RA && run->varnz[j] > 0;
}

void propagate(Dominated* dom) {
  prslvrun* run = dom->run;
  const prslvprob* p = run->p;
  while (dom->count > 0) {
    const int32_t j = dom->queue[dom->head];
    dom->head = (dom->head + 1) % p->numvar;
    --dom->count;
    dom->queued[j] = 0;
    if (!onesided(run, j)) continue;
    ++dom->visits[j];
    if (p->bkx[j] != PRSLV_BK_UP) passon(dom, j, true);
    if (p->bkx[j] != PRSLV_BK_LO) passon(dom, j, false);
  }
}

// Whether column j may be fixed by d_j >= 0 (nonneg) or d_j <= 0, as far as the chains behind that go.
bool independent(const Dominated* dom, int32_t j, bool nonneg) {
  bool ok = dom->pincol[j] == 0 && (dom->pinned.cols & bit(j)) == 0;
  // d_j >= 0 came from the largest a y, d_j <= 0 from the smallest.
  prslv_eachincol(dom->run, j, [&](int32_t i, double a) {
    const Effective e = effective(dom, i, (a > 0.0) != nonneg);
    ok = ok && (e.src < 0 || (e.src != j && (e.behind.cols & bit(j)) == 0));
    return ok;
  });
  return ok;
}
void pin(Dominated* dom, int32_t i, const Effective& e) {
  if (e.src < 0) {
    dom->pinrow[i] = 1;
  } else {
    dom->pincol[e.src] = 1;
    dom->pinned.cols |= e.behind.cols;
    dom->pinned.rows |= e.behind.rows;
  }
}

// Fixes column j where d_j >= 0 (nonneg) or d_j <= 0 puts it; PRSLV_OK without doing anything when it has no bound
// there.
int32_t fixatbound(Dominated* dom, int32_t j, bool nonneg) {
  prslvrun* run = dom->run;
  prslv_eachincol(run, j, [&](int32_t i, double a) {
    pin(dom, i, effective(dom, i, (a > 0.0) != nonneg));
    return true;
  });
  return prslv_varfixatbound(run, nonneg ? PRSLV_VAR_AT_LOWER : PRSLV_VAR_AT_UPPER, j);
}

bool hasusable(const prslvprob* p, int32_t j, bool low) {
  return low ? prslv_lower(p->bkx[j]) && std::fabs(p->blx[j]) <= prslv_hugebound
             : prslv_upper(p->bkx[j]) && std::fabs(p->bux[j]) <= prslv_hugebound;
}

// Rows whose multiplier has a sign because of a column, whatever the row's own key says: they sit at a bound.
int32_t fixrows(Dominated* dom) {
  prslvrun* run = dom->run;
  prslvprob* p = run->p;
  for (int32_t i = 0; i < p->numcon; ++i) {
    if (!prslv_livecon(run, i) || run->concla[i] == 0 || p->bkc[i] == PRSLV_BK_FX) continue;
    for (int32_t low = 1; low >= 0; --low) {
      const YBound& b = low != 0 ? dom->lower[i] : dom->upper[i];
      if (b.src < 0 || !(low != 0 ? prslv_lower(p->bkc[i]) : prslv_upper(p->bkc[i]))) continue;
      const double v = low != 0 ? b.value + p->cc[i] : -(b.value + p->cc[i]);
      if (v < run->par->tol_s) continue;
      if (dom->pinrow[i] != 0 || (dom->pinned.rows & bit(i)) != 0 || (b.behind.rows & bit(i)) != 0) continue;
      pin(dom, i, {b.value, b.src, b.behind});
      const int32_t res = prslv_confixatbound(run, i, low != 0);
      if (res != PRSLV_OK) return res;
      break;
    }
  }
  return PRSLV_OK;
}

// Column j's reduced cost may have a sign, or the column may force its rows' multipliers, or be a ray. With `chains`
// bounds that columns gave count too.
int32_t checkcolumn(Dominated* dom, int32_t j, bool chains) {
  prslvrun* run = dom->run;
  const prslvprob* p = run->p;
  if (run->varcla[j] == 0 || !prslv_livevar(run, j) || run->varnz[j] == 0) return PRSLV_OK;
  const double cost = p->cx[j];
  for (int32_t nonneg = 1; nonneg >= 0; --nonneg) {
    const DualActivity act = dualactivity(dom, j, nonneg == 0);
    if (act.ninf > 0) continue;
    // The least value of d_j, or the least of -d_j.
    const double d = nonneg != 0 ? cost - act.sum : act.sum - cost;
    const double size = std::max(std::fabs(cost), act.size);
    if (d < -weakness * std::max(1.0, size)) continue;
    if (hasusable(p, j, nonneg != 0)) {
      // The error of d_j counts as often as the bound is long.
      if (-d * std::fabs(nonneg != 0 ? p->blx[j] : p->bux[j]) > run->par->tol_s) continue;
      if (independent(dom, j, nonneg != 0)) return fixatbound(dom, j, nonneg != 0);
      continue;
    }
    if (chains || (nonneg != 0 ? prslv_lower(p->bkx[j]) : prslv_upper(p->bkx[j]))) continue;
    if (d > run->par->tol_s * std::max(1.0, size)) {
      prslv_dualinfeasvar(run, j, nonneg != 0 ? -1.0 : 1.0);
      if (prslv_stopped(run)) return PRSLV_OK;
    } else {
      bool done;
      const int32_t res = prslv_varforce(run, j, nonneg == 0, &done);
      if (res != PRSLV_OK || done) return res;
    }
  }
  return PRSLV_OK;
}

// How many elements the search with chains may look at without finding anything, in units of the problem's.
constexpr int64_t chaineffort = 12;

int32_t dominated(prslvrun* run, int32_t numtouched, const int32_t* touched) {
  const prslvprob* p = run->p;
  if (p->numvar == 0 || p->numcon == 0) return PRSLV_OK;
  Dominated dom;
  dom.run = run;
  Workspace ws(p->env);
  const auto m = static_cast<std::size_t>(p->numcon), n = static_cast<std::size_t>(p->numvar);
  ws.add(&dom.lower, m);
  ws.add(&dom.upper, m);
  ws.add(&dom.queue, n);
  ws.add(&dom.queued, n, Fill::zero);
  ws.add(&dom.visits, n, Fill::zero);
  ws.add(&dom.pincol, n, Fill::zero);
  ws.add(&dom.pinrow, m, Fill::zero);
  if (!ws.commit()) return PRSLV_SPACE;
  for (int32_t i = 0; i < p->numcon; ++i) {
    dom.lower[i] = {-nobound, -1, {}};
    dom.upper[i] = {nobound, -1, {}};
  }

  // What the rows' own keys say needs no chains.
  int32_t res = PRSLV_OK;
  for (int32_t k = 0; k < numtouched && res == PRSLV_OK && !prslv_stopped(run); ++k) {
    res = checkcolumn(&dom, touched[k], false);
  }
  if (res != PRSLV_OK || prslv_stopped(run)) return res;

  const int64_t limit = chaineffort * (spmat_getnumnz(p->acol) + p->numvar);
  if (run->chainwork > limit) return PRSLV_OK;
  const int64_t before = run->changes;
  for (int32_t nz = 1; nz <= 2; ++nz) {  // singletons first: their bounds need no others
    for (int32_t j = 0; j < p->numvar; ++j) {
      if ((nz == 1) == (run->varnz[j] == 1) && onesided(run, j)) enqueue(&dom, j);
    }
  }
  propagate(&dom);
  res = fixrows(&dom);
  for (int32_t j = 0; j < p->numvar && res == PRSLV_OK && !prslv_stopped(run); ++j) res = checkcolumn(&dom, j, true);
  const int64_t gain = run->changes - before;
  run->chainwork += spmat_getnumnz(p->acol) + p->numvar;
  if (100 * gain > p->numvar) run->chainwork = 0;
  return res;
}

}  // namespace

// A column without elements goes where its cost wants it, or proves the problem unbounded.
int32_t prslv_emptyvar(prslvrun* run, int32_t j) {
  const prslvprob* p = run->p;
  const double cost = p->cx[j];
  const bool haslow = prslv_lower(p->bkx[j]), hasup = prslv_upper(p->bkx[j]);
  const bool small = std::fabs(cost) <= run->par->tol_s;
  int32_t type;
  if (!haslow && !hasup) {
    type = PRSLV_FREE_VAR_AT_ZERO;
  } else if (cost != 0.0 && (cost > 0.0 ? haslow : hasup)) {
    type = cost > 0.0 ? PRSLV_VAR_AT_LOWER : PRSLV_VAR_AT_UPPER;
  } else if (cost == 0.0 && haslow && hasup) {
    type = std::fabs(p->blx[j]) <= std::fabs(p->bux[j]) ? PRSLV_VAR_AT_LOWER : PRSLV_VAR_AT_UPPER;
  } else {
    type = haslow ? PRSLV_VAR_AT_LOWER : PRSLV_VAR_AT_UPPER;
  }
  const bool unbounded = !small && (cost > 0.0 ? !haslow : !hasup);
  if (unbounded) {
    prslv_dualinfeasvar(run, j, cost > 0.0 ? -1.0 : 1.0);
    return PRSLV_OK;
  }
  return prslv_varfixatbound(run, type, j);
}

int32_t prslv_checkvar(prslvrun* run, int32_t* doubletons) {
  const prslvprob* p = run->p;
  // Columns touched so far, for the tests below; what these touch in turn waits for the next call.
  Array<int32_t> touched;
  if (!touched.alloc(p->env, static_cast<std::size_t>(run->cols.count))) return PRSLV_SPACE;
  int32_t numtouched = 0;
  while (run->cols.count > 0) {
    const int32_t j = prslv_listpop(&run->cols);
    if (!prslv_livevar(run, j) || run->varcla[j] == 0) continue;
    if (static_cast<std::size_t>(numtouched) < touched.size()) touched[numtouched++] = j;
    int32_t res = PRSLV_OK;
    if (run->varnz[j] == 0) {
      res = prslv_emptyvar(run, j);
    } else if (run->varnz[j] == 1) {
      prslv_listpush(&run->singles, j);
    }
    if (res != PRSLV_OK || prslv_stopped(run)) return res;
  }
  while (run->singles.count > 0) {
    const int32_t j = prslv_listpop(&run->singles);
    if (run->varnz[j] != 1 || !prslv_livevar(run, j) || run->varcla[j] == 0) continue;
    const auto [i, a] = prslv_onlyincol(run, j);
    if (i < 0 || a == 0.0 || run->concla[i] == 0) continue;
    bool done;
    const int32_t res = prslv_freesingleton(run, i, j, a, &done);
    if (res != PRSLV_OK || prslv_stopped(run)) return res;
  }
  for (int32_t i = 0; i < p->numcon; ++i) {
    if (p->bkc[i] == PRSLV_BK_FX && run->connz[i] == 2) ++*doubletons;
  }
  if (run->par->dualargs == 0) return PRSLV_OK;
  return dominated(run, numtouched, touched.data());
}

}  // namespace tarvo
