// Checks of one row at a time: empty, singleton, infeasible, redundant and forcing rows.
//
// E. D. Andersen and K. D. Andersen, Presolving in linear programming, Mathematical Programming 71 (1995) 221-245.
#include <algorithm>
#include <cfloat>
#include <cstdarg>
#include <cstdio>

#include "prslv/checks.h"

namespace tarvo {

void prslv_fatal(sysenv* env, const char* format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  sysenv_fatal(env, text);
}

prslvactivity prslv_freshactivity(prslvrun* run, int32_t i) {
  const prslvprob* p = run->p;
  prslvactivity act{0.0, 0.0, 0, 0, 0.0};
  prslv_eachinrow(run, i, [&](int32_t j, double a) {
    if (a == 0.0) return true;
    const bool haslow = a > 0.0 ? prslv_lower(p->bkx[j]) : prslv_upper(p->bkx[j]);
    const bool hasup = a > 0.0 ? prslv_upper(p->bkx[j]) : prslv_lower(p->bkx[j]);
    const double low = a * (a > 0.0 ? p->blx[j] : p->bux[j]), up = a * (a > 0.0 ? p->bux[j] : p->blx[j]);
    if (haslow) {
      act.low += low;
      act.size = std::max(act.size, std::fabs(low));
    } else {
      ++act.nlow;
    }
    if (hasup) {
      act.up += up;
      act.size = std::max(act.size, std::fabs(up));
    } else {
      ++act.nup;
    }
    return true;
  });
  run->lax[i] = act.low;
  run->uax[i] = act.up;
  run->ncilax[i] = act.nlow;
  run->nciuax[i] = act.nup;
  return act;
}

// What rounding may have left on the bounds of a row whose columns were fixed one by one.
static double shiftsize(const prslvrun* run, int32_t i) {
  const spmat* at = run->acolt;
  double size = 0.0;
  for (int32_t k = at->ptrb[i]; k < at->ptre[i]; ++k) {
    const int32_t j = at->sub[k];
    if (!prslv_livevar(run, j)) size = std::max(size, std::fabs(at->val[k] * run->p->blx[j]));
  }
  return size;
}

static int32_t conempty(prslvrun* run, int32_t i) {
  const prslvprob* p = run->p;
  // The bounds carry what the removed columns contributed, so the activity is exactly 0.
  const bool below = prslv_lower(p->bkc[i]) && p->blc[i] > run->par->tol_x;
  const bool above = prslv_upper(p->bkc[i]) && p->buc[i] < -run->par->tol_x;
  if (below || above) {
    const double bound = below ? p->blc[i] : -p->buc[i];
    if (bound > run->par->tol_x + 1e-12 * shiftsize(run, i)) {
      // Not larger: the proof is measured against absolute tolerances, with all the columns that were fixed before.
      const double y = below ? 1.0 : -1.0;
      prslv_primalinfeas(run, 1, &i, &y);
      return PRSLV_OK;
    }
  }
  return prslv_conrelax(run, i, true, true);
}

// Row i, blc <= a x_j <= buc, becomes bounds of column j.
static int32_t consin(prslvrun* run, int32_t i) {
  prslvprob* p = run->p;
  const auto [j, a] = prslv_onlyinrow(run, i);
  if (j < 0) prslv_fatal(p->env, "Constraint singleton not found i=%d\n", i);
  if (run->varcla[j] == 0 || a == 0.0) return PRSLV_OK;

  double low = prslv_lower(p->bkc[i]) ? p->blc[i] / a : -DBL_MAX;
  double up = prslv_upper(p->bkc[i]) ? p->buc[i] / a : DBL_MAX;
  bool haslow = prslv_lower(p->bkc[i]), hasup = prslv_upper(p->bkc[i]);
  if (a < 0.0) {
    low = prslv_upper(p->bkc[i]) ? p->buc[i] / a : -DBL_MAX;
    up = prslv_lower(p->bkc[i]) ? p->blc[i] / a : DBL_MAX;
    std::swap(haslow, hasup);
  }
  // A bound that only a tiny coefficient makes is better left to the optimizer.
  if ((haslow && std::fabs(low) > prslv_hugebound) || (hasup && std::fabs(up) > prslv_hugebound)) return PRSLV_OK;

  const bool hadlow = prslv_lower(p->bkx[j]), hadup = prslv_upper(p->bkx[j]);
  const double oldlow = hadlow ? p->blx[j] : -DBL_MAX, oldup = hadup ? p->bux[j] : DBL_MAX;
  // A bound is given up only where the row, too, stays within the tolerance.
  const double size = std::fabs(a) > 1.0 ? 1.0 / std::fabs(a) : 1.0;
  const double tol = run->par->tol_x;
  if ((hasup && hadlow && up < oldlow - tol * std::max(1.0, std::fabs(oldlow))) ||
      (haslow && hadup && low > oldup + tol * std::max(1.0, std::fabs(oldup)))) {
    const double y = (haslow && hadup && low > oldup) ? 1.0 / a : -1.0 / a;
    prslv_primalinfeas(run, 1, &i, &y);
    return PRSLV_OK;
  }
  const double drop = tol * size;
  if (haslow && hadlow && oldlow + drop >= low) haslow = false;
  if (hasup && hadup && oldup - drop <= up) hasup = false;
  if (!haslow && !hasup) return prslv_conrelax(run, i, true, true);

  int32_t* ints;
  double* doubles;
  const int32_t res = prslv_beginpushstk(run, PRSLV_SINGLETON_ROW, 5, 6, &ints, &doubles);
  if (res != PRSLV_OK) return res;
  const int32_t given =
      haslow && hasup ? (p->bkc[i] == PRSLV_BK_FX ? PRSLV_BK_FX : PRSLV_BK_RA) : (haslow ? PRSLV_BK_LO : PRSLV_BK_UP);
  ints[0] = i;
  ints[1] = j;
  ints[2] = given;
  ints[3] = p->bkc[i];
  ints[4] = p->bkx[j];
  doubles[0] = p->blc[i];
  doubles[1] = p->buc[i];
  doubles[2] = p->blx[j];
  doubles[3] = p->bux[j];
  doubles[4] = a;
  doubles[5] = p->cc[i];
  prslv_endpushstk(run, &ints, &doubles);

  p->cx[j] += p->cc[i] * a;
  p->cc[i] = 0.0;
  double newlow = haslow ? low : oldlow, newup = hasup ? up : oldup;
  if (newlow > newup) {  // crossed within the tolerance: the column's own bound wins
    if (haslow && hadup && low > oldup)
      newlow = oldup;
    else if (hasup && hadlow && up < oldlow)
      newlow = oldlow;
    newup = newlow;
  }
  haslow = haslow || hadlow;
  hasup = hasup || hadup;
  prslv_removecon(run, i);
  const int32_t bk = haslow ? (hasup ? PRSLV_BK_RA : PRSLV_BK_LO) : PRSLV_BK_UP;
  prslv_newvarbounds(run, j, bk, newlow, newup);
  if (bk == PRSLV_BK_RA && newup - newlow <= drop) return prslv_varfix(run, j, newlow);
  return PRSLV_OK;
}

int32_t prslv_undosingletonrow(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/,
                               const double* doubles, int32_t /*ndoubles*/) {
  const int32_t i = ints[0], j = ints[1], given = ints[2];
  const double a = doubles[4];
  prslvsol* s = w->sol;
  const double usedlow = w->blx[j], usedup = w->bux[j];
  const bool wasranged = w->bkx[j] == PRSLV_BK_RA || w->bkx[j] == PRSLV_BK_FX;

  w->bkc[i] = ints[3];
  w->blc[i] = doubles[0];
  w->buc[i] = doubles[1];
  w->bkx[j] = ints[4];
  w->blx[j] = doubles[2];
  w->bux[j] = doubles[3];
  w->cc[i] = doubles[5];
  w->cx[j] -= w->cc[i] * a;
  s->y[i] = -w->f_d * w->cc[i];
  s->xc[i] = a * s->xx[j];

  // Where both bounds of the reduced column meet, its status may be either: the sign of the reduced cost decides.
  int32_t side = s->skx[j];
  const double d = s->slx[j] - s->sux[j];
  if (side == PRSLV_SK_FIX ||
      ((side == PRSLV_SK_LOW || side == PRSLV_SK_UPR) && wasranged && usedup - usedlow <= w->par->tol_x && d != 0.0)) {
    side = d < 0.0 ? PRSLV_SK_UPR : PRSLV_SK_LOW;
    s->slx[j] = std::max(d, 0.0);
    s->sux[j] = std::max(-d, 0.0);
    s->skx[j] = side;
  }

  const bool givenlow = prslv_lower(given), givenup = prslv_upper(given);
  const bool atrow = (side == PRSLV_SK_LOW && givenlow) || (side == PRSLV_SK_UPR && givenup);
  if (atrow) {
    s->y[i] += (s->slx[j] - s->sux[j]) / a;
    s->slx[j] = s->sux[j] = 0.0;
    if (ints[3] == PRSLV_BK_FX) {
      s->skc[i] = PRSLV_SK_FIX;
    } else {
      s->skc[i] = (side == PRSLV_SK_LOW) == (a > 0.0) ? PRSLV_SK_LOW : PRSLV_SK_UPR;
    }
    s->skx[j] = prslv_walkbasic(w);
  } else {
    // Both bounds of a column may carry a multiplier in an interior solution, and one of a basic column does in the
    // proof of a simplex: the row takes its part.
    if (!w->basic || w->f_d == 0.0) {
      if (givenlow) {
        s->y[i] += s->slx[j] / a;
        s->slx[j] = 0.0;
      }
      if (givenup) {
        s->y[i] -= s->sux[j] / a;
        s->sux[j] = 0.0;
      }
    }
    s->skc[i] = prslv_walkbasic(w);
  }
  const double t = w->f_d * w->cc[i] + s->y[i];
  s->slc[i] = std::max(t, 0.0);
  s->suc[i] = std::max(-t, 0.0);
  return PRSLV_OK;
}

// The tightest activity of row i equals its bound, so each of its columns sits at the bound that gives it. Holds only
// if no column may move by more than the tolerance: a small coefficient lets one move far within the row's tolerance.
static bool forces(const prslvrun* run, int32_t i, bool at_lower, double slack) {
  const prslvprob* p = run->p;
  bool ok = true;
  prslv_eachinrow(run, i, [&](int32_t j, double a) {
    const double bound = (a > 0.0) == at_lower ? p->bux[j] : p->blx[j];
    const double tol = run->par->tol_x * std::max(1.0, std::fabs(bound));
    ok = run->varcla[j] != 0 && a != 0.0 && slack <= tol * std::fabs(a) && std::fabs(bound) <= prslv_hugebound;
    return ok;
  });
  return ok;
}

static int32_t conforce(prslvrun* run, int32_t i, bool at_lower) {
  prslvprob* p = run->p;
  if (run->concla[i] == 0) prslv_fatal(p->env, "Constraint is not linear");
  int64_t nelems = 0;
  int32_t n = 0;
  prslv_eachinrow(run, i, [&](int32_t j, double) {
    ++n;
    nelems += run->varnz[j];
    return true;
  });
  if (4 + 3 * int64_t{n} + nelems > INT32_MAX / 2) return PRSLV_OK;

  int32_t* ints;
  double* doubles;
  const int32_t res = prslv_beginpushstk(run, PRSLV_FORCING_ROW, static_cast<int32_t>(4 + 3 * n + nelems),
                                         static_cast<int32_t>(3 + 2 * n + nelems), &ints, &doubles);
  if (res != PRSLV_OK) return res;
  int32_t* pi = ints;
  double* pd = doubles;
  *pi++ = n;
  *pi++ = at_lower ? 1 : 0;
  *pi++ = i;
  *pi++ = p->bkc[i];
  *pd++ = p->blc[i];
  *pd++ = p->buc[i];
  *pd++ = p->cc[i];
  prslv_eachinrow(run, i, [&](int32_t j, double) {
    *pi++ = j;
    *pi++ = run->varnz[j];
    *pi++ = p->bkx[j];
    *pd++ = p->blx[j];
    *pd++ = p->bux[j];
    return true;
  });
  // Each column's elements, that of row i first.
  prslv_eachinrow(run, i, [&](int32_t j, double a) {
    *pi++ = i;
    *pd++ = a;
    prslv_eachincol(run, j, [&](int32_t r, double b) {
      if (r != i) {
        *pi++ = r;
        *pd++ = b;
      }
      return true;
    });
    return true;
  });
  const int32_t nints = static_cast<int32_t>(pi - ints), ndoubles = static_cast<int32_t>(pd - doubles);
  if (nints != 4 + 3 * n + nelems || ndoubles != 3 + 2 * n + nelems) {
    prslv_fatal(p->env, "connz[%d]: %d nz: %d nzi: %d", i, run->connz[i], n, nints);
  }
  prslv_endpushstk(run, &ints, &doubles);

  const spmat* at = run->acolt;
  for (int32_t k = at->ptrb[i]; k < at->ptre[i]; ++k) {
    const int32_t j = at->sub[k];
    if (!prslv_livevar(run, j)) continue;
    const bool upper = (at->val[k] > 0.0) == at_lower;
    if (upper && !prslv_upper(p->bkx[j])) {
      prslv_fatal(p->env, "No upper bound bkx[%d]=%d aij=%e", j, p->bkx[j], at->val[k]);
    }
    if (!upper && !prslv_lower(p->bkx[j])) {
      prslv_fatal(p->env, "No lower bound bkx[%d]=%d aij=%e", j, p->bkx[j], at->val[k]);
    }
    prslv_removevar(run, j, upper ? p->bux[j] : p->blx[j]);
    ++run->stat->forceconvar;
  }
  prslv_removecon(run, i);
  p->cc[i] = 0.0;
  ++run->stat->forcecon;
  return PRSLV_OK;
}

int32_t prslv_undoforcingrow(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/,
                             const double* doubles, int32_t /*ndoubles*/) {
  const int32_t n = ints[0], i = ints[2];
  const bool at_lower = ints[1] != 0;
  prslvsol* s = w->sol;
  const int32_t* vars = ints + 4;  // index, size, key
  const double* bounds = doubles + 3;
  const int32_t* subs = vars + 3 * n;
  const double* vals = bounds + 2 * n;

  w->bkc[i] = ints[3];
  w->blc[i] = doubles[0];
  w->buc[i] = doubles[1];
  w->cc[i] = doubles[2];
  s->y[i] = 0.0;
  s->xc[i] = 0.0;

  // The multiplier of the row must make every reduced cost right: for a row at its lower bound y is at least each
  // ratio (and -cc when the sign of the row's own multiplier counts), at its upper bound at most. The extreme one
  // decides, and whoever gave it is basic: candidate n is the row, which wins a tie.
  const bool fixedrow = w->bkc[i] == PRSLV_BK_FX;
  int32_t candidate = fixedrow ? -1 : n;
  double best = fixedrow ? 0.0 : -w->f_d * w->cc[i];
  int64_t pos = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t j = vars[3 * k], size = vars[3 * k + 1];
    const double a = vals[pos];
    const bool upper = (a > 0.0) == at_lower;
    w->bkx[j] = vars[3 * k + 2];
    w->blx[j] = bounds[2 * k];
    w->bux[j] = bounds[2 * k + 1];
    const double bound = upper ? w->bux[j] : w->blx[j];
    s->xx[j] = w->f_p * bound;
    s->skx[j] = upper ? PRSLV_SK_UPR : PRSLV_SK_LOW;
    double dot = 0.0;
    for (int64_t e = pos; e < pos + size; ++e) {
      const int32_t r = subs[e];
      dot += vals[e] * s->y[r];
      s->xc[r] += vals[e] * s->xx[j];
      if (r != i) {
        if (prslv_lower(w->bkc[r])) w->blc[r] += vals[e] * bound;
        if (prslv_upper(w->bkc[r])) w->buc[r] += vals[e] * bound;
      }
    }
    // The reduced cost for y[i] = 0, kept in slx until y[i] is known.
    s->slx[j] = s->slx[j] - s->sux[j] - dot;
    s->sux[j] = 0.0;
    const double ratio = s->slx[j] / a;
    if (candidate < 0 || (at_lower ? ratio > best : ratio < best)) {
      candidate = k;
      best = ratio;
    }
    pos += size;
  }
  if (candidate < 0) prslv_fatal(w->env, "No y bound");
  s->y[i] = best;

  pos = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t j = vars[3 * k];
    const double d = k == candidate ? 0.0 : s->slx[j] - vals[pos] * best;
    const bool upper = s->skx[j] == PRSLV_SK_UPR;
    s->slx[j] = upper ? 0.0 : d;
    s->sux[j] = upper ? -d : 0.0;
    pos += vars[3 * k + 1];
  }
  const double t = w->f_d * w->cc[i] + best;
  if (fixedrow) {
    s->skc[i] = PRSLV_SK_FIX;
    s->slc[i] = std::max(t, 0.0);
    s->suc[i] = std::max(-t, 0.0);
  } else {
    s->skc[i] = at_lower ? PRSLV_SK_LOW : PRSLV_SK_UPR;
    s->slc[i] = at_lower ? t : 0.0;
    s->suc[i] = at_lower ? 0.0 : -t;
  }
  if (w->basic) {
    if (candidate == n)
      s->skc[i] = PRSLV_SK_BAS;
    else
      s->skx[vars[3 * candidate]] = PRSLV_SK_BAS;
  }
  return PRSLV_OK;
}

static int32_t checkrow(prslvrun* run, int32_t i) {
  const prslvprob* p = run->p;
  if (run->connz[i] == 0) return conempty(run, i);
  if (run->connz[i] == 1) return consin(run, i);

  const bool lower = prslv_lower(p->bkc[i]), upper = prslv_upper(p->bkc[i]);
  const double tol = run->par->tol_x;
  // Cheap tests on the running sums first: only a row that passes one is summed anew.
  const double scale = std::max(1.0, std::max(lower ? std::fabs(p->blc[i]) : 0.0, upper ? std::fabs(p->buc[i]) : 0.0));
  const double near = 1e-6 * scale;
  const bool finlow = run->ncilax[i] == 0, finup = run->nciuax[i] == 0;
  const double lax = run->lax[i], uax = run->uax[i];
  if (!((lower && finup && p->blc[i] + near >= uax) || (upper && finlow && p->buc[i] - near <= lax) ||
        (lower && finlow && lax >= p->blc[i] - near) || (upper && finup && uax <= p->buc[i] + near))) {
    return PRSLV_OK;
  }

  const prslvactivity act = prslv_freshactivity(run, i);
  const double infeas = tol * scale + 1e-14 * act.size * run->connz[i];
  if (lower && act.nup == 0 && p->blc[i] - infeas > act.up) {
    prslv_coninfeasax(run, i, true);
    return PRSLV_OK;
  }
  if (upper && act.nlow == 0 && p->buc[i] + infeas < act.low) {
    prslv_coninfeasax(run, i, false);
    return PRSLV_OK;
  }
  const bool lowimplied = !lower || (act.nlow == 0 && act.low >= p->blc[i] - tol);
  const bool upimplied = !upper || (act.nup == 0 && act.up <= p->buc[i] + tol);
  if (lowimplied && upimplied) return prslv_conrelax(run, i, true, true);

  if (lower && act.nup == 0 && p->blc[i] + tol >= act.up && forces(run, i, true, act.up - p->blc[i])) {
    return conforce(run, i, true);
  }
  if (upper && act.nlow == 0 && p->buc[i] - tol <= act.low && forces(run, i, false, p->buc[i] - act.low)) {
    return conforce(run, i, false);
  }
  // A ranged row with one implied side tells the sign of its multiplier once that side is gone.
  if (p->bkc[i] == PRSLV_BK_RA && (lowimplied || upimplied)) return prslv_conrelax(run, i, lowimplied, upimplied);
  return PRSLV_OK;
}

int32_t prslv_checkcon(prslvrun* run, int32_t relax_mode) {
  int32_t res = PRSLV_OK;
  while (run->rows.count > 0 && res == PRSLV_OK && !prslv_stopped(run)) {
    const int32_t i = prslv_listpop(&run->rows);
    if (!prslv_livecon(run, i)) continue;
    prslv_listpush(&run->relaxrows, i);
    if (run->concla[i] != 0) res = checkrow(run, i);
  }
  if (res != PRSLV_OK || prslv_stopped(run)) return res;
  return prslv_relax(run, relax_mode);
}

}  // namespace tarvo
