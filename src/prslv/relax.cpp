// Relaxing: rows that tightened bounds make redundant, column singletons whose bounds their row implies, and column
// bounds that rows imply.
#include <algorithm>
#include <cfloat>

#include "prslv/checks.h"

namespace tarvo {

namespace {

// A bound derived by dividing by a small coefficient holds with that much less accuracy.
constexpr double smallcoef = 1e-3;
// Bounds below this size make good work for the optimizers; see relaxbounds.
constexpr double sizelimit = 1e6;
constexpr double sizeratio = 5.0;
// Longer columns aren't searched for the row that tightens a bound most.
constexpr int32_t longcolumn = 100;

struct Implied {
  double low = -DBL_MAX, up = DBL_MAX;
  int32_t lowrow = -1, uprow = -1;
};

// What the rows of column j, but row `without`, imply for it.
Implied impliedbycolumn(const prslvrun* run, int32_t j, int32_t without) {
  Implied best;
  prslv_eachincol(run, j, [&](int32_t i, double a) {
    if (i == without || run->concla[i] == 0 || std::fabs(a) < smallcoef) return true;
    // Without j's own term at most one side of the activity can be finite only if it lacks no other.
    if (run->ncilax[i] > 1 && run->nciuax[i] > 1) return true;
    double low, up;
    prslv_impliedbounds(run, i, j, a, &low, &up);
    if (low > best.low) {
      best.low = low;
      best.lowrow = i;
    }
    if (up < best.up) {
      best.up = up;
      best.uprow = i;
    }
    return true;
  });
  return best;
}

// Whether a column can be computed from row i through its coefficient a without losing digits.
bool wellscaled(const prslvrun* run, int32_t i, double a) {
  double rowmax = 1.0;
  prslv_eachinrow(run, i, [&](int32_t, double b) {
    rowmax = std::max(rowmax, std::fabs(b));
    return true;
  });
  return std::fabs(a) >= smallcoef * rowmax;
}

// Whether the bounds that column j has are implied by row i (or absent). The running sums are trusted only to say no.
bool impliedfree(prslvrun* run, int32_t i, int32_t j, double a) {
  const prslvprob* p = run->p;
  const bool haslow = prslv_lower(p->bkx[j]), hasup = prslv_upper(p->bkx[j]);
  if (!haslow && !hasup) return true;
  for (int32_t fresh = 0; fresh < 2; ++fresh) {
    if (fresh != 0) prslv_freshactivity(run, i);
    double low, up;
    prslv_impliedbounds(run, i, j, a, &low, &up);
    const double tol = fresh != 0 ? run->par->tol_x : 1e-6;
    if (haslow && !(low >= p->blx[j] - tol)) return false;
    if (hasup && !(up <= p->bux[j] + tol)) return false;
  }
  return true;
}

// Rows that are redundant once the bounds that OTHER rows imply for their columns are counted. A row goes while all the
// others stay, so rows can't free each other in a circle.
int32_t freerows(prslvrun* run) {
  prslvprob* p = run->p;
  for (int32_t k = 0; k < run->relaxrows.count; ++k) {
    const int32_t i = run->relaxrows.item[k];
    if (!prslv_livecon(run, i) || run->concla[i] == 0 || run->connz[i] < 2) continue;
    const bool needlow = prslv_lower(p->bkc[i]), needup = prslv_upper(p->bkc[i]);
    if (p->bkc[i] == PRSLV_BK_FX) continue;
    double low = 0.0, up = 0.0;
    bool oklow = needlow, okup = needup, stronger = false;
    prslv_eachinrow(run, i, [&](int32_t j, double a) {
      double l = prslv_lower(p->bkx[j]) ? p->blx[j] : -DBL_MAX, u = prslv_upper(p->bkx[j]) ? p->bux[j] : DBL_MAX;
      if (run->varnz[j] > 1 && run->varnz[j] <= longcolumn) {
        const Implied implied = impliedbycolumn(run, j, i);
        // A bound that only rounding gives an edge is worth nothing.
        if (implied.low > l && implied.low < prslv_hugebound && implied.low > -prslv_hugebound) {
          l = implied.low;
          stronger = true;
        }
        if (implied.up < u && implied.up < prslv_hugebound && implied.up > -prslv_hugebound) {
          u = implied.up;
          stronger = true;
        }
      }
      const double forlow = a > 0.0 ? l : u, forup = a > 0.0 ? u : l;
      if (oklow) {
        if (std::fabs(forlow) > prslv_hugebound)
          oklow = false;
        else
          low += a * forlow;
      }
      if (okup) {
        if (std::fabs(forup) > prslv_hugebound)
          okup = false;
        else
          up += a * forup;
      }
      return oklow || okup;
    });
    const double margin = 1e-9;
    oklow = oklow && stronger && low >= p->blc[i] + margin * std::max(1.0, std::fabs(low));
    okup = okup && stronger && up <= p->buc[i] - margin * std::max(1.0, std::fabs(up));
    if ((needlow && !oklow) || (needup && !okup)) continue;
    const int32_t res = prslv_conrelax(run, i, true, true);
    if (res != PRSLV_OK) return res;
  }
  return PRSLV_OK;
}

// Column singletons that their row makes free, and those that can be merged with their row.
int32_t freesingletons(prslvrun* run) {
  for (int32_t k = 0; k < run->relaxrows.count; ++k) {
    const int32_t i = run->relaxrows.item[k];
    if (!prslv_livecon(run, i)) continue;
    prslv_eachinrow(run, i, [&](int32_t j, double) {
      if (run->varnz[j] == 1) prslv_listpush(&run->singles, j);
      return true;
    });
  }
  while (run->singles.count > 0) {
    const int32_t j = prslv_listpop(&run->singles);
    if (run->varnz[j] != 1 || !prslv_livevar(run, j) || run->varcla[j] == 0) continue;
    const auto [i, a] = prslv_onlyincol(run, j);
    if (i < 0 || run->concla[i] == 0 || a == 0.0) continue;
    bool done;
    const int32_t res = prslv_freesingleton(run, i, j, a, &done);
    if (res != PRSLV_OK || prslv_stopped(run)) return res;
  }
  return PRSLV_OK;
}

// Drops bounds of columns that rows imply: a large bound is a numerical burden, and of two bounds one is enough. A
// dropped bound is an infinite term in the activities, so that no bound can be dropped for the sake of another that
// went for its sake.
int32_t relaxbounds(prslvrun* run) {
  prslvprob* p = run->p;
  while (run->relaxcols.count > 0) {
    const int32_t j = prslv_listpop(&run->relaxcols);
    if (!prslv_livevar(run, j) || run->varcla[j] == 0 || run->varnz[j] < 2 || p->bkx[j] == PRSLV_BK_FR) continue;
    const bool haslow = prslv_lower(p->bkx[j]), hasup = prslv_upper(p->bkx[j]);
    const double l = std::fabs(p->blx[j]), u = std::fabs(p->bux[j]);
    bool wantlow, wantup;
    if (haslow && hasup) {
      wantlow = u <= sizeratio * l || u <= 1.0;
      wantup = l <= sizeratio * u || l <= 1.0;
    } else {
      wantlow = haslow && l >= sizelimit;
      wantup = hasup && u >= sizelimit;
    }
    if (!wantlow && !wantup) continue;

    Implied implied = impliedbycolumn(run, j, -1);
    const double tol = run->par->tol_x;
    // Confirm on sums made anew before a bound goes.
    const auto implies = [&](bool lower) {
      const double bound = lower ? p->blx[j] : p->bux[j];
      const int32_t row = lower ? implied.lowrow : implied.uprow;
      if (row < 0) return false;
      const auto holds = [&] { return lower ? implied.low >= bound - tol : implied.up <= bound + tol; };
      if (!holds()) return false;
      prslv_freshactivity(run, row);
      implied = impliedbycolumn(run, j, -1);
      return holds() && (lower ? implied.lowrow : implied.uprow) >= 0;
    };
    bool droplow = wantlow && implies(true), dropup = wantup && implies(false);
    if (droplow && dropup) {
      droplow = u <= l;
      dropup = !droplow;
    }
    if (!droplow && !dropup) continue;
    const int32_t res = prslv_varrelax(run, j, droplow, dropup);
    if (res != PRSLV_OK) return res;
  }
  return PRSLV_OK;
}

}  // namespace

int32_t prslv_freesingleton(prslvrun* run, int32_t i, int32_t j, double a, bool* done) {
  prslvprob* p = run->p;
  *done = false;
  // The sum of row and column cost when the row's activity is paid by the column: slc - suc of the row if x_j is inside
  // its bounds.
  const double t = p->cx[j] / a + p->cc[i];
  if (!wellscaled(run, i, a)) return PRSLV_OK;

  if (std::fabs(t) <= 1e-3 * run->par->tol_s) {
    *done = true;
    return prslv_dupconandvar(run, i, j, a);
  }
  if (!impliedfree(run, i, j, a)) return PRSLV_OK;
  if (p->bkx[j] != PRSLV_BK_FR) {
    const int32_t res = prslv_varrelax(run, j, prslv_lower(p->bkx[j]), prslv_upper(p->bkx[j]));
    if (res != PRSLV_OK) return res;
  }
  *done = true;
  return prslv_elimination(run, i, j, a);
}

int32_t prslv_takesingletons(prslvrun* run) {
  const prslvprob* p = run->p;
  for (int32_t j = 0; j < p->numvar; ++j) {
    if (run->varnz[j] != 1 || !prslv_livevar(run, j) || run->varcla[j] == 0) continue;
    const auto [i, a] = prslv_onlyincol(run, j);
    if (i < 0 || run->concla[i] == 0 || p->bkc[i] != PRSLV_BK_FX || !wellscaled(run, i, a)) continue;
    const int32_t res = prslv_rowtookcolumn(run, i, j, a);
    if (res != PRSLV_OK) return res;
  }
  return PRSLV_OK;
}

int32_t prslv_relax(prslvrun* run, int32_t relax_mode) {
  // Columns of touched rows may have bounds that are implied now; they wait for a pass that may drop them.
  if (run->par->relax != 0) {
    for (int32_t k = 0; k < run->relaxrows.count; ++k) {
      const int32_t i = run->relaxrows.item[k];
      if (!prslv_livecon(run, i) || run->concla[i] == 0 || (run->ncilax[i] > 1 && run->nciuax[i] > 1)) continue;
      prslv_eachinrow(run, i, [&](int32_t j, double) {
        prslv_listpush(&run->relaxcols, j);
        return true;
      });
    }
  }
  int32_t res = PRSLV_OK;
  if (relax_mode != 0) res = freerows(run);
  if (res == PRSLV_OK && !prslv_stopped(run)) res = freesingletons(run);
  if (res != PRSLV_OK || prslv_stopped(run)) return res;
  while (run->relaxrows.count > 0) prslv_listpop(&run->relaxrows);
  if (relax_mode == 1) res = relaxbounds(run);
  return res;
}

}  // namespace tarvo
