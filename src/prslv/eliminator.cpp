// The eliminator: columns whose bounds the rest of the problem implies leave with a row each, cheap ones first, as long
// as the matrix does not grow for it.
//
// The order is Markowitz's, (column size - 2) (row size - 2), in classes that widen when little is found: scores 0,
// then up to 4, 8 and 16 times 8. Only columns in rows that changed are scored again within a class.
#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>

#include "prslv/elim.h"

namespace tarvo {

namespace {

constexpr double minratio = 0.001, maxratio = 1000.0;  // of elements that a pivot makes, and of pivot multipliers
constexpr int32_t bucketsperscore = 8;
constexpr int32_t lastscore = 16;
constexpr int32_t longrow = 1000;  // a stale row of this size waits for the next iteration

void refresh(prslvelim* e, int32_t i) {
  prslvrun* run = e->run;
  const prslvprob* p = run->p;
  double lax = 0.0, uax = 0.0, big = 0.0;
  int32_t ncilax = 0, nciuax = 0;
  for (int32_t t = e->m.rowhead[i]; t >= 0; t = e->m.elem[t].rnext) {
    const double a = e->m.elem[t].val;
    const int32_t j = e->m.elem[t].col;
    big = std::max(big, std::fabs(a));
    const bool low = prslv_lower(p->bkx[j]), upp = prslv_upper(p->bkx[j]);
    if (a > 0.0 ? low : upp) {
      lax += a * (a > 0.0 ? p->blx[j] : p->bux[j]);
    } else {
      ++ncilax;
    }
    if (a > 0.0 ? upp : low) {
      uax += a * (a > 0.0 ? p->bux[j] : p->blx[j]);
    } else {
      ++nciuax;
    }
  }
  run->lax[i] = lax;
  run->uax[i] = uax;
  run->ncilax[i] = ncilax;
  run->nciuax[i] = nciuax;
  e->rowmax[i] = big;
  e->stale[i] = 0;
}

// Row i is redundant by its activity bounds: it goes with a record of a removed row. *gone tells.
int32_t removeredundant(prslvelim* e, int32_t i, bool* gone) {
  prslvrun* run = e->run;
  prslvprob* p = run->p;
  *gone = false;
  if (run->concla[i] == 0 || run->connz[i] == 0) return PRSLV_OK;
  const double tol = run->par->tol_x;
  const bool lower = !prslv_lower(p->bkc[i]) || (run->ncilax[i] == 0 && run->lax[i] >= p->blc[i] - tol);
  const bool upper = !prslv_upper(p->bkc[i]) || (run->nciuax[i] == 0 && run->uax[i] <= p->buc[i] + tol);
  if (!lower || !upper) return PRSLV_OK;
  const int32_t n = run->connz[i];
  int32_t* ints;
  double* doubles;
  const int32_t res = prslv_beginpushstk(run, PRSLV_ROW_REMOVED, 3 + n, 3 + n, &ints, &doubles);
  if (res != PRSLV_OK) return res;
  ints[0] = i;
  ints[1] = p->bkc[i];
  ints[2] = n;
  doubles[0] = p->blc[i];
  doubles[1] = p->buc[i];
  doubles[2] = p->cc[i];
  int32_t k = 3;
  for (int32_t t = e->m.rowhead[i]; t >= 0; t = e->m.elem[t].rnext) {
    ints[k] = e->m.elem[t].col;
    doubles[k++] = e->m.elem[t].val;
    p->cx[e->m.elem[t].col] += p->cc[i] * e->m.elem[t].val;
  }
  sysenv_assert(run->env, k == 3 + n);
  prslv_endpushstk(run, &ints, &doubles);
  p->cc[i] = 0.0;
  elim_removerow(e, i);
  ++run->changes;
  *gone = true;
  return PRSLV_OK;
}

// Whether each bound of column j is implied by a row with the other columns' bounds, and the best pivot row then.
bool searchcol(prslvelim* e, int32_t j, int32_t* pivotrow) {
  const prslvrun* run = e->run;
  const prslvprob* p = run->p;
  const double tol = run->par->tol_x;
  bool needlow = prslv_lower(p->bkx[j]), needupp = prslv_upper(p->bkx[j]);
  for (int32_t t = e->m.colhead[j]; t >= 0 && (needlow || needupp); t = e->m.elem[t].cnext) {
    const int32_t i = e->m.elem[t].row;
    const double a = e->m.elem[t].val;
    if (run->concla[i] == 0) continue;
    if (e->stale[i] != 0) {
      if (run->connz[i] > longrow) continue;
      refresh(e, i);
    }
    if (run->ncilax[i] > 1 && run->nciuax[i] > 1) continue;
    // Sums that lost the digits in which the bound is compared prove nothing.
    if ((std::fabs(run->lax[i]) + std::fabs(run->uax[i])) * 1e-15 > tol * std::fabs(a)) continue;
    double low, upp;
    prslv_impliedbounds(run, i, j, a, &low, &upp);
    if (needlow && low >= p->blx[j] - tol) needlow = false;
    if (needupp && upp <= p->bux[j] + tol) needupp = false;
  }
  if (needlow || needupp) return false;

  int32_t best = INT32_MAX;
  double size = run->par->tol_aij;
  for (int32_t t = e->m.colhead[j]; t >= 0; t = e->m.elem[t].cnext) {
    const int32_t i = e->m.elem[t].row;
    const double a = std::fabs(e->m.elem[t].val);
    if (e->mark[i] == 0) continue;
    const int32_t count = run->connz[i] + (p->bkc[i] == PRSLV_BK_FX ? 0 : 1);
    if (count > best || (count == best && a <= size)) continue;
    if (e->stale[i] != 0) refresh(e, i);
    if (a < run->par->relpiv * e->rowmax[i]) continue;
    best = count;
    size = a;
    *pivotrow = i;
  }
  return best != INT32_MAX;
}

bool goodelement(const prslvelim* e, int32_t k, double w) {
  const double size = std::fabs(w);
  return (size >= minratio && size <= maxratio) || (size >= 1e-8 * e->rowmax[k] && size <= 4.0 * e->rowmax[k]);
}

// Row i and column j as lists, j and i first.
prslvpivot copypivot(prslvelim* e, int32_t i, int32_t j) {
  int32_t nrow = 1, ncol = 1;
  for (int32_t t = e->m.rowhead[i]; t >= 0; t = e->m.elem[t].rnext) {
    const int32_t k = e->m.elem[t].col == j ? 0 : nrow++;
    e->rowsub[k] = e->m.elem[t].col;
    e->rowval[k] = e->m.elem[t].val;
  }
  for (int32_t t = e->m.colhead[j]; t >= 0; t = e->m.elem[t].cnext) {
    const int32_t k = e->m.elem[t].row == i ? 0 : ncol++;
    e->colsub[k] = e->m.elem[t].row;
    e->colval[k] = e->m.elem[t].val;
  }
  const prslvrun* run = e->run;
  if (nrow != run->connz[i]) prslv_fatal(run->env, "nzpivi: %d connz[%d]: %d", nrow, i, run->connz[i]);
  if (ncol != run->varnz[j]) {
    prslv_fatal(run->env, "nzpivj=%d varnz[%d]=%d subpivj[0]=%d  pivi=%d pivj=%d", ncol, j, run->varnz[j], e->colsub[0],
                i, j);
  }
  return {i, j, nrow, ncol, e->rowsub, e->rowval, e->colsub, e->colval};
}

// Calls f(element, its column's place in row i, its row's place in column j) for the elements that the pivot changes,
// by whichever of both directions is shorter. vpos and rstamp are place + 1, or 0.
template <class F>
void overlap(prslvelim* e, const prslvpivot& v, bool byrow, F f) {
  if (byrow) {
    for (int32_t k = 1; k < v.ncol; ++k) {
      elim_row(e, v.colsub[k], [&](int32_t t) {
        const int32_t q = e->vpos[e->m.elem[t].col];
        if (q > 1) f(t, q - 1, k);
      });
    }
  } else {
    for (int32_t q = 1; q < v.nrow; ++q) {
      elim_col(e, v.rowsub[q], [&](int32_t t) {
        const int32_t k = e->rstamp[e->m.elem[t].row];
        if (k > 1) f(t, q, k - 1);
      });
    }
  }
}

// The elements of a pivot must neither blow up nor shrink to noise, and their number is limited.
bool acceptable(prslvelim* e, const prslvpivot& v, int32_t allowance, bool byrow) {
  const prslvrun* run = e->run;
  const bool fixed = run->p->bkc[v.i] == PRSLV_BK_FX;
  const double p = v.rowval[0];
  double smallest = DBL_MAX, largest = 0.0;
  for (int32_t q = 1; q < v.nrow; ++q) {
    smallest = std::min(smallest, std::fabs(v.rowval[q]));
    largest = std::max(largest, std::fabs(v.rowval[q]));
  }
  for (int32_t k = 1; k < v.ncol; ++k) {
    const double t = std::fabs(v.colval[k] / p);
    const bool ok = t <= maxratio && (t >= minratio || t * t > run->par->tol_aij);
    if (!ok && !fixed) return false;
    if (v.nrow > 1 && (!goodelement(e, v.colsub[k], t * smallest) || !goodelement(e, v.colsub[k], t * largest)))
      return false;
  }
  int64_t removed = v.nrow + (fixed ? v.ncol - 1 : 0);
  bool ok = true;
  for (int32_t q = 1; q < v.nrow; ++q) e->hits[q] = 0;
  overlap(e, v, byrow, [&](int32_t t, int32_t q, int32_t k) {
    const double old = e->m.elem[t].val, term = -v.colval[k] / p * v.rowval[q], w = old + term;
    ++e->hits[q];
    if (std::fabs(w) <= elim_zero(e, std::fabs(old), std::fabs(term))) {
      ++removed;
    } else if (!goodelement(e, v.colsub[k], w)) {
      ok = false;
    }
  });
  if (!ok) return false;
  int64_t fill = 0;
  for (int32_t q = 1; q < v.nrow; ++q) {
    const int32_t size = run->varnz[v.rowsub[q]], grown = size - 1 + v.ncol - 1 - e->hits[q];
    fill += v.ncol - 1 - e->hits[q];
    if (grown > std::max({2 * size, size + 4, v.ncol - 1})) return false;
  }
  return v.ncol < 3 || (fill <= removed + allowance && fill <= matlnk_room(&e->m));
}

// Column j leaves by row i, if the elements that it makes are acceptable.
int32_t dopivot(prslvelim* e, int32_t i, int32_t j, int32_t allowance) {
  prslvrun* run = e->run;
  prslvprob* p = run->p;
  const prslvpivot v = copypivot(e, i, j);
  int64_t byrowwork = 0, bycolwork = 0;
  for (int32_t k = 1; k < v.ncol; ++k) {
    e->rstamp[v.colsub[k]] = k + 1;
    byrowwork += run->connz[v.colsub[k]];
    if (e->stale[v.colsub[k]] != 0 && run->connz[v.colsub[k]] <= longrow) refresh(e, v.colsub[k]);
  }
  for (int32_t q = 1; q < v.nrow; ++q) {
    e->vpos[v.rowsub[q]] = q + 1;
    bycolwork += run->varnz[v.rowsub[q]];
  }
  const bool byrow = byrowwork <= bycolwork, fixed = p->bkc[i] == PRSLV_BK_FX;
  const int32_t bk = p->bkc[i];
  const double bl = p->blc[i], bu = p->buc[i];

  int32_t res = PRSLV_OK;
  const bool accept = acceptable(e, v, allowance, byrow);
  if (accept) res = prslv_pushelimination(run, v);
  if (accept && res == PRSLV_OK) {
    e->changed = 1;
    ++e->eliminated;
    // The pivot row first: its places are then there for the new elements.
    elim_removerow(e, i);
    p->bkx[j] = bk;
    p->blx[j] = bl;
    p->bux[j] = bu;
    elim_col(e, j, [&](int32_t t) {
      if (fixed) {
        elim_drop(e, t);
      } else {
        e->m.elem[t].val /= v.rowval[0];
      }
    });
    // What is left of rows times columns after those that were there is new.
    for (int32_t outer = 1; outer < (byrow ? v.ncol : v.nrow); ++outer) {
      const int32_t ninner = byrow ? v.nrow : v.ncol;
      for (int32_t s = 1; s < ninner; ++s) e->hits[s] = 0;
      const auto change = [&](int32_t t) {
        const int32_t q = byrow ? e->vpos[e->m.elem[t].col] - 1 : outer;
        const int32_t k = byrow ? outer : e->rstamp[e->m.elem[t].row] - 1;
        if (q < 1 || k < 1) return;
        const double old = e->m.elem[t].val, term = -v.colval[k] / v.rowval[0] * v.rowval[q];
        e->hits[byrow ? q : k] = 1;
        e->m.elem[t].val = old + term;
        if (std::fabs(old + term) <= elim_zero(e, std::fabs(old), std::fabs(term))) elim_drop(e, t);
      };
      if (byrow) {
        elim_row(e, v.colsub[outer], change);
      } else {
        elim_col(e, v.rowsub[outer], change);
      }
      for (int32_t s = 1; s < ninner; ++s) {
        if (e->hits[s] != 0) continue;
        const int32_t q = byrow ? s : outer, k = byrow ? outer : s;
        const double w = -v.colval[k] / v.rowval[0] * v.rowval[q];
        if (std::fabs(w) <= run->par->tol_aij) continue;
        if (matlnk_room(&e->m) == 0) prslv_fatal(run->env, "Cannot insert");
        matlnk_insert(&e->m, v.colsub[k], v.rowsub[q], w);
        ++run->connz[v.colsub[k]];
        ++run->varnz[v.rowsub[q]];
      }
    }
    for (int32_t k = 1; k < v.ncol; ++k) {
      elim_touchrow(e, v.colsub[k]);
      if (p->bkc[v.colsub[k]] == PRSLV_BK_FX && run->connz[v.colsub[k]] == 2) ++e->doubletons;
    }
    for (int32_t q = 1; q < v.nrow; ++q) elim_touchcol(e, v.rowsub[q]);
    if (!fixed) elim_touchcol(e, j);
  } else if (!accept) {
    ++e->skipped;
  }
  for (int32_t k = 1; k < v.ncol; ++k) e->rstamp[v.colsub[k]] = 0;
  for (int32_t q = 1; q < v.nrow; ++q) e->vpos[v.rowsub[q]] = 0;
  return res;
}

// Looks at the rows that changed: redundant ones go, chains of doubletons go, columns of the others are scored again.
int32_t checkrows(prslvelim* e) {
  prslvrun* run = e->run;
  int32_t res = PRSLV_OK;
  while (e->rows.count > 0 && res == PRSLV_OK && !prslv_stopped(run)) {
    const int32_t i = prslv_listpop(&e->rows);
    if (!prslv_livecon(run, i)) continue;
    if (e->stale[i] != 0) refresh(e, i);
    bool gone;
    res = removeredundant(e, i, &gone);
    if (res != PRSLV_OK || gone) {
      e->changed |= gone ? 1 : 0;
      continue;
    }
    if (e->mark[i] != 0 && run->connz[i] == 2 && run->p->bkc[i] == PRSLV_BK_FX) {
      int32_t removed;
      res = prslv_finddoubletonchain(e, i, &removed);
      if (removed > 0) continue;
    }
    elim_row(e, i, [&](int32_t t) { prslv_listpush(&e->cols, e->m.elem[t].col); });
  }
  return res;
}

int32_t score(const prslvelim* e, int32_t j, int32_t nbuckets) {
  const prslvrun* run = e->run;
  if (run->varnz[j] < 3) return 0;
  int32_t r = INT32_MAX;
  for (int32_t t = e->m.colhead[j]; t >= 0; t = e->m.elem[t].cnext) {
    const int32_t i = e->m.elem[t].row;
    if (e->mark[i] == 0) continue;
    r = std::min(r, run->connz[i] + (run->p->bkc[i] == PRSLV_BK_FX ? 0 : 1));
  }
  if (r == INT32_MAX) return nbuckets;
  const int64_t s = int64_t{run->varnz[j] - 2} * (std::max(r, 2) - 2);
  return s < nbuckets ? static_cast<int32_t>(s) : nbuckets;
}

// One walk over the listed columns in the order of their scores.
int32_t eliminatecolumns(prslvelim* e, int32_t nbuckets, int32_t allowance) {
  prslvrun* run = e->run;
  for (int32_t b = 0; b < nbuckets; ++b) e->bucket[b] = -1;
  while (e->cols.count > 0) {
    const int32_t j = prslv_listpop(&e->cols);
    if (!prslv_livevar(run, j) || e->stays[j] != 0 || run->varnz[j] == 0) continue;
    const int32_t b = score(e, j, nbuckets);
    if (b >= nbuckets) continue;
    e->next[j] = e->bucket[b];
    e->bucket[b] = j;
  }
  int32_t res = PRSLV_OK;
  for (int32_t b = 0; b < nbuckets; ++b) {
    for (int32_t j = e->bucket[b]; j >= 0; j = e->next[j]) {
      int32_t i = -1;
      if (!prslv_livevar(run, j) || run->varnz[j] == 0 || !searchcol(e, j, &i)) continue;
      if (run->connz[i] == 2 && run->p->bkc[i] == PRSLV_BK_FX) {
        int32_t removed;
        res = prslv_finddoubletonchain(e, i, &removed);
        if (res != PRSLV_OK) return res;
        if (removed > 0) continue;
      }
      res = dopivot(e, i, j, allowance);
      if (res != PRSLV_OK || prslv_stopped(run)) return res;
    }
  }
  return res;
}

bool makecopy(prslvelim* e, int32_t capacity) {
  prslvrun* run = e->run;
  prslvprob* p = run->p;
  if (!matlnk_make(run->env, &e->m, p->numcon, p->numvar, capacity)) return false;
  for (int32_t i = 0; i < p->numcon; ++i) e->mark[i] = run->concla[i] != 0 && prslv_livecon(run, i);
  for (int32_t j = p->numvar - 1; j >= 0; --j) {
    if (!prslv_livevar(run, j)) continue;
    for (int32_t t = p->acol->ptre[j] - 1; t >= p->acol->ptrb[j]; --t) {
      const int32_t i = p->acol->sub[t];
      if (!prslv_livecon(run, i)) continue;
      matlnk_insert(&e->m, i, j, p->acol->val[t]);
      // A pivot row adds its columns to other rows, and what must stay may not move.
      if (run->varcla[j] == 0) e->mark[i] = 0;
      if (run->varcla[j] == 0 || run->concla[i] == 0) e->stays[j] = 1;
    }
  }
  return true;
}

// The copy becomes the matrix: rows from the columns in order, then columns from the rows, so that both are sorted.
void writeback(prslvelim* e, spmat* acol, spmat* acolt) {
  prslvrun* run = e->run;
  prslvprob* p = run->p;
  const auto place = [&](spmat* m, int32_t n, const int32_t* count) {
    int32_t pos = 0;
    for (int32_t k = 0; k < n; ++k) {
      m->ptrb[k] = m->ptre[k] = pos;
      pos += count[k];
    }
    m->ffree = pos;
  };
  place(acolt, p->numcon, run->connz);
  place(acol, p->numvar, run->varnz);
  for (int32_t j = 0; j < p->numvar; ++j) {
    int32_t n = 0;
    for (int32_t t = e->m.colhead[j]; t >= 0; t = e->m.elem[t].cnext, ++n) {
      const int32_t k = acolt->ptre[e->m.elem[t].row]++;
      acolt->sub[k] = j;
      acolt->val[k] = e->m.elem[t].val;
    }
    if (n != run->varnz[j]) prslv_fatal(run->env, "j=%d nzj=%d varnz[%d]=%d", j, n, j, run->varnz[j]);
  }
  for (int32_t i = 0; i < p->numcon; ++i) {
    for (int32_t t = acolt->ptrb[i]; t < acolt->ptre[i]; ++t) {
      const int32_t k = acol->ptre[acolt->sub[t]]++;
      acol->sub[k] = i;
      acol->val[k] = acolt->val[t];
    }
  }
  spmat_delete(&p->acol);
  spmat_delete(&run->acolt);
  p->acol = acol;
  run->acolt = acolt;
}

void log_results(const prslvelim* e, int32_t before, int32_t res) {
  const prslvrun* run = e->run;
  if (run->par->loglev < 2) return;
  prslv_log(run, "Tol rel. piv col.           : %e\n", run->par->relpiv);
  prslv_log(run, "Number of dou. con removed  : %d\n", e->chainrows);
  prslv_log(run, "Number of eliminations      : %d\n", run->stat->eliminations);
  prslv_log(run, "Max A size                  : %d\n", e->m.capacity);
  prslv_log(run, "Initial nz(A)               : %d\n", before);
  prslv_log(run, "Final nz(A)                 : %d\n", e->m.capacity - matlnk_room(&e->m));
  prslv_log(run, "Free A space                : %d\n", matlnk_room(&e->m));
  prslv_log(run, "resp                        : %d\n", res);
}

int32_t mainloop(prslvelim* e) {
  prslvrun* run = e->run;
  const prslvprob* p = run->p;
  const int32_t goal = std::max(p->numcon / 100, 100);
  int32_t lwrscore = 0, allowance = 0;
  for (int32_t i = 0; i < p->numcon; ++i) {
    if (run->connz[i] > 0 && prslv_livecon(run, i)) {
      e->stale[i] = 1;
      prslv_listpush(&e->rows, i);
    }
  }
  for (int32_t iteration = 0;; ++iteration) {
    e->eliminated = e->skipped = e->doubletons = 0;
    if (iteration % 100 == 0) {
      if (run->par->loglev > 1) {
        prslv_log(run, "Eliminator. Iteration: %-6d lwrscore: %d\n", iteration, lwrscore);
      }
      const int32_t stop = run->hook->func != nullptr ? run->hook->func(run->hook->handle, 30, run->stat) : 0;
      if (stop != 0) return stop;
    }
    const int32_t nbuckets = bucketsperscore * lwrscore + 1;
    int32_t res = checkrows(e);
    if (res == PRSLV_OK && !prslv_stopped(run)) res = eliminatecolumns(e, nbuckets, allowance);
    if (run->par->loglev > 1) {
      prslv_log(run, "Eliminations: %-6d  skipped: %-6d  new doubletons: %-d resp: %d\n", e->eliminated, e->skipped,
                e->doubletons, res);
    }
    if (res != PRSLV_OK || prslv_stopped(run)) return res;
    if (e->eliminated >= goal) continue;
    lwrscore = std::max(2 * lwrscore, 4);
    if (e->eliminated == 0) allowance = nbuckets;
    if (lwrscore > lastscore) return PRSLV_OK;
    for (int32_t j = 0; j < p->numvar; ++j) {
      if (run->varnz[j] > 0 && prslv_livevar(run, j)) prslv_listpush(&e->cols, j);
    }
  }
}

}  // namespace

void elim_drop(prslvelim* e, int32_t slot) {
  --e->run->connz[e->m.elem[slot].row];
  --e->run->varnz[e->m.elem[slot].col];
  matlnk_remove(&e->m, slot);
}

void elim_touchrow(prslvelim* e, int32_t i) {
  e->stale[i] = 1;
  prslv_listpush(&e->rows, i);
  if (e->run->concla[i] != 0) prslv_listpush(&e->run->rows, i);
}

void elim_touchcol(prslvelim* e, int32_t j) {
  prslv_listpush(&e->cols, j);
  prslv_listpush(&e->run->cols, j);
  if (e->run->varnz[j] == 1) prslv_listpush(&e->run->singles, j);
}

void elim_removerow(prslvelim* e, int32_t i) {
  prslvprob* p = e->run->p;
  elim_row(e, i, [&](int32_t t) {
    const int32_t j = e->m.elem[t].col;
    elim_drop(e, t);
    elim_touchcol(e, j);
  });
  p->bkc[i] = PRSLV_BK_FR;
  p->blc[i] = -DBL_MAX;
  p->buc[i] = DBL_MAX;
  ++e->run->numfreed;
}

int32_t prslv_numdoubletons(const prslvrun* run) {
  const prslvprob* p = run->p;
  int64_t minrow = INT32_MAX, mincol = INT32_MAX;
  int32_t doubletons = 0;
  for (int32_t i = 0; i < p->numcon; ++i) {
    if (!prslv_livecon(run, i)) continue;
    const bool fixed = p->bkc[i] == PRSLV_BK_FX;
    minrow = std::min<int64_t>(minrow, run->connz[i] + (fixed ? 0 : 1));
    if (fixed && run->connz[i] == 2) {
      bool linear = false;
      for (int32_t t = run->acolt->ptrb[i]; t < run->acolt->ptre[i]; ++t) {
        linear = linear || (prslv_livevar(run, run->acolt->sub[t]) && run->varcla[run->acolt->sub[t]] != 0);
      }
      doubletons += linear ? 1 : 0;
    }
  }
  if (minrow == INT32_MAX) return -1;
  for (int32_t j = 0; j < p->numvar; ++j) {
    if (prslv_livevar(run, j)) mincol = std::min<int64_t>(mincol, run->varnz[j]);
  }
  const int64_t other = mincol == INT32_MAX ? p->numcon : mincol - 1;
  return minrow < 3 || mincol < 3 || (minrow - 1) * other < 1001 ? doubletons : -1;
}

int32_t prslv_eliminator(prslvrun* run) {
  prslvprob* p = run->p;
  int64_t nz = 0;
  for (int32_t j = 0; j < p->numvar; ++j) nz += run->varnz[j];
  const double room = run->par->fillroom * static_cast<double>(nz);
  const int64_t want = nz + std::max<int64_t>(2 * (int64_t{p->numcon} + p->numvar), static_cast<int64_t>(room));
  const auto capacity = static_cast<int32_t>(std::min<int64_t>(want, INT32_MAX));

  prslvelim e{};
  e.run = run;
  const auto m = static_cast<std::size_t>(p->numcon), n = static_cast<std::size_t>(p->numvar);
  Workspace work(run->env);
  work.add(&e.mark, m);
  work.add(&e.stays, n, Fill::zero);
  work.add(&e.stale, m, Fill::zero);
  work.add(&e.rowmax, m);
  work.add(&e.rows.item, m);
  work.add(&e.rows.on, m, Fill::zero);
  work.add(&e.cols.item, n);
  work.add(&e.cols.on, n, Fill::zero);
  work.add(&e.rowsub, n + 1);
  work.add(&e.rowval, n + 1);
  work.add(&e.colsub, m + 1);
  work.add(&e.colval, m + 1);
  work.add(&e.hits, m + n + 1);
  work.add(&e.vpos, n, Fill::zero);
  work.add(&e.rstamp, m, Fill::zero);
  work.add(&e.racc, m);
  work.add(&e.mult, m);
  work.add(&e.queue, n);
  work.add(&e.chainrow, n);
  work.add(&e.chaincol, n);
  work.add(&e.cf, n);
  work.add(&e.cg, n);
  work.add(&e.rowused, m, Fill::zero);
  work.add(&e.bucket, static_cast<std::size_t>(bucketsperscore * lastscore + 1));
  work.add(&e.next, n);
  spmat* acol = spmat_make(run->env, p->numvar, p->numcon);
  spmat* acolt = spmat_make(run->env, p->numcon, p->numvar);
  bool ok = acol != nullptr && acolt != nullptr && work.commit();
  if (ok) {
    spmat_putvlen(acol, p->numcon);
    spmat_putnvec(acol, p->numvar);
    spmat_putvlen(acolt, p->numvar);
    spmat_putnvec(acolt, p->numcon);
    ok = spmat_alloc(acol, capacity) && spmat_alloc(acolt, capacity) && makecopy(&e, capacity);
  }
  if (!ok) {
    run->stat->eliminatorskipped = 1;
    spmat_delete(&acol);
    spmat_delete(&acolt);
    return PRSLV_OK;
  }

  ++run->stat->eliminatortries;
  const int32_t res = mainloop(&e);
  for (int32_t i = 0; i < p->numcon; ++i) {
    if (e.stale[i] != 0 && prslv_livecon(run, i)) refresh(&e, i);
  }
  log_results(&e, static_cast<int32_t>(nz), res);
  if (e.changed != 0) {
    writeback(&e, acol, acolt);
  } else {
    spmat_delete(&acol);
    spmat_delete(&acolt);
  }
  return res;
}

int32_t prslv_conpiv(prslvrun* run, int32_t i, int32_t n, const int32_t* rows, const double* factors) {
  prslvprob* p = run->p;
  int32_t* ints;
  double* doubles;
  const int32_t res = prslv_beginpushstk(run, PRSLV_ROW_PIVOT, 2 + n, n, &ints, &doubles);
  if (res != PRSLV_OK) return res;
  ints[0] = i;
  ints[1] = n;
  std::copy_n(rows, n, ints + 2);
  std::copy_n(factors, n, doubles);
  prslv_endpushstk(run, &ints, &doubles);
  for (int32_t k = 0; k < n; ++k) {
    const double shift = factors[k] * p->blc[i];
    if (prslv_lower(p->bkc[rows[k]])) p->blc[rows[k]] += shift;
    if (prslv_upper(p->bkc[rows[k]])) p->buc[rows[k]] += shift;
    p->cfix -= p->cc[rows[k]] * shift;
  }
  ++run->stat->pivcon;
  return PRSLV_OK;
}

int32_t prslv_undorowpivot(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/,
                           const double* doubles, int32_t /*ndoubles*/) {
  const int32_t i = ints[0], n = ints[1];
  prslvsol* s = w->sol;
  double sum = 0.0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t r = ints[2 + k];
    const double shift = doubles[k] * w->blc[i];
    s->xc[r] -= w->f_p * shift;
    sum += doubles[k] * s->y[r];
    if (prslv_lower(w->bkc[r])) w->blc[r] -= shift;
    if (prslv_upper(w->bkc[r])) w->buc[r] -= shift;
    w->cfix += w->cc[r] * shift;
  }
  s->y[i] += sum;
  const double t = s->slc[i] - s->suc[i] + sum;
  s->slc[i] = std::max(t, 0.0);
  s->suc[i] = std::max(-t, 0.0);
  return PRSLV_OK;
}

}  // namespace tarvo
