// The walk back: undoes the records of the stack one by one, last first, on a solution and on working copies of the
// problem. The undo of a record stands beside the reduction that pushed it; those of the primitives are here.
#include <algorithm>
#include <cmath>

#include "prslv/prslv_internal.h"

namespace tarvo {

namespace {

// d_j split over the two bounds of column j, and y + f_d cc over those of row i.
void split_column(const prslvwalk* w, int32_t j, double d) {
  w->sol->slx[j] = std::max(d, 0.0);
  w->sol->sux[j] = std::max(-d, 0.0);
}

// A row that the presolve took away whole: its cost was on its columns, and nothing holds it at a bound.
int32_t undo_rowremoved(prslvwalk* w, const int32_t* ints, const double* doubles) {
  const int32_t i = ints[0];
  prslvsol* s = w->sol;
  w->bkc[i] = ints[1];
  w->blc[i] = doubles[0];
  w->buc[i] = doubles[1];
  w->cc[i] = doubles[2];
  for (int32_t k = 0; k < ints[2]; ++k) {
    const int32_t j = ints[3 + k];
    w->cx[j] -= w->cc[i] * doubles[3 + k];
    s->xc[i] += doubles[3 + k] * s->xx[j];
  }
  s->y[i] = -w->f_d * w->cc[i];
  s->slc[i] = s->suc[i] = 0.0;
  s->skc[i] = prslv_walkbasic(w);
  return PRSLV_OK;
}

// A column that the presolve took away at `value`.
int32_t undo_varfixed(prslvwalk* w, int32_t type, const int32_t* ints, const double* doubles) {
  const int32_t j = ints[0], bk = ints[1], n = ints[2];
  prslvsol* s = w->sol;
  const double value = w->blx[j];  // FX in the reduced problem
  w->bkx[j] = bk;
  switch (type) {
    case PRSLV_VAR_FIXED:
      w->blx[j] = *doubles++;
      w->bux[j] = *doubles++;
      break;
    case PRSLV_VAR_AT_LOWER:
      w->bux[j] = *doubles++;
      break;
    case PRSLV_VAR_AT_UPPER:
      w->blx[j] = *doubles++;
      break;
    default:
      break;
  }
  s->xx[j] = w->f_p * value;
  double sum = 0.0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = ints[3 + k];
    const double a = doubles[k];
    if (prslv_lower(w->bkc[i])) w->blc[i] += a * value;
    if (prslv_upper(w->bkc[i])) w->buc[i] += a * value;
    sum += s->y[i] * a;
    s->xc[i] += a * s->xx[j];
  }
  const double d = s->slx[j] - s->sux[j] - sum;
  if (bk == PRSLV_BK_FR) {
    s->skx[j] = PRSLV_SK_SUPBAS;
    s->slx[j] = s->sux[j] = 0.0;
    return PRSLV_OK;
  }
  split_column(w, j, d);
  if (bk == PRSLV_BK_FX) {
    s->skx[j] = PRSLV_SK_FIX;
  } else if (type == PRSLV_VAR_AT_LOWER) {
    s->skx[j] = PRSLV_SK_LOW;
  } else if (type == PRSLV_VAR_AT_UPPER) {
    s->skx[j] = PRSLV_SK_UPR;
  } else {
    s->skx[j] = (d < 0.0 && prslv_upper(bk)) || !prslv_lower(bk) ? PRSLV_SK_UPR : PRSLV_SK_LOW;
  }
  return PRSLV_OK;
}

// A row whose multiplier has a known sign was fixed at one side.
int32_t undo_rowatbound(prslvwalk* w, int32_t type, const int32_t* ints, const double* doubles) {
  const int32_t i = ints[0];
  prslvsol* s = w->sol;
  const bool lower = type == PRSLV_ROW_AT_LOWER;
  w->bkc[i] = ints[1];
  (lower ? w->buc : w->blc)[i] = doubles[0];
  // A multiplier of the other sign, within the tolerance, stays only where there is a bound for it.
  double& other = (lower ? s->suc : s->slc)[i];
  if (other > 0.0 && !(lower ? prslv_upper(ints[1]) : prslv_lower(ints[1]))) {
    (lower ? s->slc : s->suc)[i] -= other;
    other = 0.0;
  }
  if (s->skc[i] == PRSLV_SK_FIX || s->skc[i] == PRSLV_SK_LOW || s->skc[i] == PRSLV_SK_UPR)
    s->skc[i] = lower ? PRSLV_SK_LOW : PRSLV_SK_UPR;
  return PRSLV_OK;
}

int32_t undo_rowtightened(prslvwalk* w, const int32_t* ints, const double* doubles) {
  const int32_t i = ints[0];
  prslvsol* s = w->sol;
  w->bkc[i] = ints[1];
  w->blc[i] = doubles[0];
  w->buc[i] = doubles[1];
  if (s->skc[i] == PRSLV_SK_BAS) return PRSLV_OK;
  if (ints[1] == PRSLV_BK_FX) {
    s->skc[i] = PRSLV_SK_FIX;
    return PRSLV_OK;
  }
  const bool upper = s->slc[i] - s->suc[i] < 0.0 && prslv_upper(ints[1]);
  s->skc[i] = upper ? PRSLV_SK_UPR : PRSLV_SK_LOW;
  s->xc[i] = w->f_p * (upper ? w->buc[i] : w->blc[i]);
  return PRSLV_OK;
}

// Bounds that others implied are there again; a superbasic value at one of them has a key.
int32_t undo_varrelaxed(prslvwalk* w, int32_t type, const int32_t* ints, const double* doubles) {
  const int32_t j = ints[0];
  prslvsol* s = w->sol;
  w->bkx[j] = ints[1];
  if (type != PRSLV_VAR_UPPER_RELAXED) w->blx[j] = *doubles++;
  if (type != PRSLV_VAR_LOWER_RELAXED) w->bux[j] = *doubles;
  if (!w->basic || s->skx[j] != PRSLV_SK_SUPBAS) return PRSLV_OK;
  if (type != PRSLV_VAR_UPPER_RELAXED && std::fabs(w->f_p * w->blx[j] - s->xx[j]) <= w->par->tol_x) {
    s->skx[j] = PRSLV_SK_LOW;
  } else if (type != PRSLV_VAR_LOWER_RELAXED && std::fabs(w->f_p * w->bux[j] - s->xx[j]) <= w->par->tol_x) {
    s->skx[j] = PRSLV_SK_UPR;
  }
  return PRSLV_OK;
}

// The column stands for the row again.
int32_t undo_rowbyvar(prslvwalk* w, const int32_t* ints, const double* doubles) {
  const int32_t i = ints[0], j = ints[1];
  prslvsol* s = w->sol;
  w->cc[i] = w->cx[j];
  w->bkc[i] = w->bkx[j];
  w->blc[i] = w->blx[j];
  w->buc[i] = w->bux[j];
  s->xc[i] = s->xx[j];
  if (s->skc[i] != PRSLV_SK_BAS) s->skc[i] = s->skx[j];
  s->slc[i] = s->slx[j];
  s->suc[i] = s->sux[j];
  w->cx[j] = doubles[0];
  w->bkx[j] = PRSLV_BK_FX;
  w->blx[j] = doubles[1];
  w->bux[j] = doubles[2];
  s->skx[j] = PRSLV_SK_FIX;
  s->xx[j] = w->f_p * w->blx[j];
  split_column(w, j, w->f_d * doubles[0]);
  return PRSLV_OK;
}

int32_t undo(prslvwalk* w, int32_t type, int32_t nints, int32_t ndoubles) {
  const int32_t* ints = w->ints;
  const double* doubles = w->doubles;
  switch (type) {
    case PRSLV_ROW_REMOVED:
      return undo_rowremoved(w, ints, doubles);
    case PRSLV_ROW_LOWER_DROPPED:
      w->bkc[ints[0]] = PRSLV_BK_RA;
      w->blc[ints[0]] = doubles[0];
      return PRSLV_OK;
    case PRSLV_ROW_UPPER_DROPPED:
      w->bkc[ints[0]] = PRSLV_BK_RA;
      w->buc[ints[0]] = doubles[0];
      return PRSLV_OK;
    case PRSLV_SINGLETON_ROW:
      return prslv_undosingletonrow(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_FORCING_ROW:
      return prslv_undoforcingrow(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_VAR_FIXED:
    case PRSLV_VAR_AT_LOWER:
    case PRSLV_VAR_AT_UPPER:
    case PRSLV_FREE_VAR_AT_ZERO:
      return undo_varfixed(w, type, ints, doubles);
    case PRSLV_BLOCK_FIXED:
      return prslv_undoblkfix(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_ELIMINATION:
      return prslv_undoelimination(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_ROW_AT_LOWER:
    case PRSLV_ROW_AT_UPPER:
      return undo_rowatbound(w, type, ints, doubles);
    case PRSLV_VAR_LOWER_RELAXED:
    case PRSLV_VAR_UPPER_RELAXED:
    case PRSLV_VAR_BOTH_RELAXED:
      return undo_varrelaxed(w, type, ints, doubles);
    case PRSLV_DUP_VAR:
      return prslv_undodupvar(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_DUP_CON:
      return prslv_undodupcon(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_DUP_CON_AND_VAR:
      return prslv_undodupconandvar(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_FORCING_VAR:
      return prslv_undoforcingvar(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_ROW_PIVOT:
      return prslv_undorowpivot(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_DOUBLETON_CHAIN:
      return prslv_undochain(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_ROW_BY_VAR:
      return undo_rowbyvar(w, ints, doubles);
    case PRSLV_DUP_VAR_TRANSFORM:
      return prslv_undodupvartransform(w, type, ints, nints, doubles, ndoubles);
    case PRSLV_ROW_TIGHTENED:
      return undo_rowtightened(w, ints, doubles);
    case PRSLV_ROW_TOOK_COLUMN:
      return prslv_undorowtookcolumn(w, type, ints, nints, doubles, ndoubles);
    default:
      return PRSLV_POSTSOLVE;
  }
}

// Factors of bounds and of costs: points count with both, rays and certificates (TRV_SOL_STA_ 5, 6, 12, 13) with
// neither. A point that is feasible on one side only is a point all the same: a start for another run needs its values.
void put_factors(prslvwalk* w, int32_t solsta) {
  const bool certificate = solsta == 5 || solsta == 6 || solsta == 12 || solsta == 13;
  w->f_p = w->f_d = certificate ? 0.0 : 1.0;
}

int32_t walk(const prslvpar& par, const prslvprob* p, prslvsol* sol, bool basic) {
  prslvwalk w{};
  w.env = p->env;
  w.p = p;
  w.par = &par;
  w.basic = basic;
  w.sol = sol;
  w.cfix = p->cfix;
  put_factors(&w, sol->solsta);
  Workspace work(p->env);
  const auto con = static_cast<std::size_t>(p->numcon), var = static_cast<std::size_t>(p->numvar);
  for (double** list : {&w.cc, &w.blc, &w.buc}) work.add(list, con);
  for (double** list : {&w.cx, &w.blx, &w.bux}) work.add(list, var);
  work.add(&w.bkc, con);
  work.add(&w.bkx, var);
  work.add(&w.ints, p->stack.ints.size());  // as long as the longest record
  work.add(&w.doubles, p->stack.doubles.size());
  if (!work.commit()) return PRSLV_SPACE;
  std::copy_n(p->cc.data(), p->numcon, w.cc);
  std::copy_n(p->blc.data(), p->numcon, w.blc);
  std::copy_n(p->buc.data(), p->numcon, w.buc);
  std::copy_n(p->bkc.data(), p->numcon, w.bkc);
  std::copy_n(p->cx.data(), p->numvar, w.cx);
  std::copy_n(p->blx.data(), p->numvar, w.blx);
  std::copy_n(p->bux.data(), p->numvar, w.bux);
  std::copy_n(p->bkx.data(), p->numvar, w.bkx);
  w.readpos = p->stack.store->used;
  int32_t type = 0, nints = 0, ndoubles = 0, result = PRSLV_OK;
  while (result == PRSLV_OK && prslv_popstk(&w, &type, &nints, &ndoubles)) result = undo(&w, type, nints, ndoubles);
  return result;
}

int32_t timed_walk(const prslvpar& par, const prslvprob* p, prslvstat* stat, prslvsol* sol, bool basic) {
  const double start = par.timing != 0 ? sysenv_cputime() : 0.0;
  const int32_t result = walk(par, p, sol, basic);
  const int32_t timer = basic ? PRSLV_TIME_POSTSOLVEBAS : PRSLV_TIME_POSTSOLVE;
  ++stat->calls[timer];
  if (par.timing != 0) stat->time[timer] += sysenv_cputime() - start;
  return result;
}

}  // namespace

int32_t prslv_postsolve(const prslvpar& par, const prslvprob* problem, prslvstat* stat, prslvsol* sol) {
  return timed_walk(par, problem, stat, sol, false);
}

int32_t prslv_postsolvebas(const prslvpar& par, const prslvprob* problem, prslvstat* stat, prslvsol* sol) {
  return timed_walk(par, problem, stat, sol, true);
}

}  // namespace tarvo
