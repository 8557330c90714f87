// Elimination of a column whose bounds the rest of the problem implies, with the help of one of its rows:
//
//   row i:  a x_j + sum a_k x_k = z,  blc <= z <= buc    gives    x_j = (z - sum a_k x_k) / a
//
// Row i goes, and slot j holds z from now on: with the row's bounds, with cost cc_i + cx_j / a, and with coefficient
// b / a in every other row of the column, b being x_j's there. Each other column k of the row loses a_k cx_j / a of
// its cost. z of a fixed row is a constant: then slot j is fixed and the other rows' bounds take its part.
#include <algorithm>

#include "prslv/elim.h"

namespace tarvo {

int32_t prslv_pushelimination(prslvrun* run, const prslvpivot& pivot) {
  prslvprob* p = run->p;
  const int32_t i = pivot.i, j = pivot.j;
  if (run->concla[i] == 0 || run->varcla[j] == 0 || !prslv_livecon(run, i) || !prslv_livevar(run, j)) {
    prslv_fatal(p->env, "bkc[%d]=%d bkx[%d]=%d concal=%d varcla=%d", i, p->bkc[i], j, p->bkx[j], run->concla[i],
                run->varcla[j]);
  }
  int32_t* ints;
  double* doubles;
  const int32_t nrow = pivot.nrow, ncol = pivot.ncol;
  const int32_t res = prslv_beginpushstk(run, PRSLV_ELIMINATION, 7 + nrow + ncol, 6 + nrow + ncol, &ints, &doubles);
  if (res != PRSLV_OK) return res;
  const int32_t head[7] = {i, j, nrow, ncol, 0, p->bkc[i], p->bkx[j]};
  std::copy_n(head, 7, ints);
  std::copy_n(pivot.rowsub, nrow, ints + 7);
  std::copy_n(pivot.colsub, ncol, ints + 7 + nrow);
  const double dhead[6] = {p->cc[i], p->blc[i], p->buc[i], p->cx[j], p->blx[j], p->bux[j]};
  std::copy_n(dhead, 6, doubles);
  std::copy_n(pivot.rowval, nrow, doubles + 6);
  std::copy_n(pivot.colval, ncol, doubles + 6 + nrow);
  prslv_endpushstk(run, &ints, &doubles);

  const double a = pivot.rowval[0], t = p->cx[j] / a;
  if (t != 0.0) {
    for (int32_t k = 1; k < nrow; ++k) {
      p->cx[pivot.rowsub[k]] = prslv_addcost(p->cx[pivot.rowsub[k]], -pivot.rowval[k] * t);
      prslv_listpush(&run->cols, pivot.rowsub[k]);
    }
  }
  p->cx[j] = prslv_addcost(p->cc[i], t);
  p->cc[i] = 0.0;
  if (p->bkc[i] == PRSLV_BK_FX) {
    const double z = p->blc[i];
    for (int32_t k = 1; k < ncol; ++k) {
      const int32_t r = pivot.colsub[k];
      const double shift = pivot.colval[k] * z / a;
      if (prslv_lower(p->bkc[r])) p->blc[r] -= shift;
      if (prslv_upper(p->bkc[r])) p->buc[r] -= shift;
      p->cfix += p->cc[r] * shift;
    }
    ++run->numfixed;
  }
  ++run->changes;
  ++run->stat->eliminations;
  return PRSLV_OK;
}

int32_t prslv_elimination(prslvrun* run, int32_t i, int32_t j, double a) {
  prslvprob* p = run->p;
  Array<int32_t> rowsub;
  Array<double> rowval;
  const auto size = static_cast<std::size_t>(std::max(run->connz[i], 1));
  if (!rowsub.alloc(run->env, size) || !rowval.alloc(run->env, size)) return PRSLV_SPACE;
  int32_t n = 1;
  rowsub[0] = j;
  rowval[0] = a;
  const spmat* at = run->acolt;
  for (int32_t k = at->ptrb[i]; k < at->ptre[i]; ++k) {
    if (at->sub[k] == j || !prslv_livevar(run, at->sub[k])) continue;
    rowsub[n] = at->sub[k];
    rowval[n++] = at->val[k];
  }
  if (n != run->connz[i] || run->varnz[j] != 1) {
    prslv_fatal(p->env, "nzpivi: %d connz[%d]: %d varnz[%d]: %d", n, i, run->connz[i], j, run->varnz[j]);
  }
  const int32_t bk = p->bkc[i];
  const double bl = p->blc[i], bu = p->buc[i];
  const prslvpivot pivot{i, j, n, 1, rowsub.data(), rowval.data(), &i, &a};
  const int32_t res = prslv_pushelimination(run, pivot);
  if (res != PRSLV_OK) return res;
  prslv_removecon(run, i);
  p->bkx[j] = bk;
  p->blx[j] = bl;
  p->bux[j] = bu;
  if (bk != PRSLV_BK_FX) prslv_listpush(&run->cols, j);
  return PRSLV_OK;
}

// The reduced cost of x_j is zero, it is basic; the row takes what slot j had.
int32_t prslv_undoelimination(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/,
                              const double* doubles, int32_t /*ndoubles*/) {
  const int32_t i = ints[0], j = ints[1], nrow = ints[2], ncol = ints[3];
  const int32_t *rowsub = ints + 7, *colsub = rowsub + nrow;
  const double *rowval = doubles + 6, *colval = rowval + nrow;
  const double a = rowval[0];
  if (a == 0.0) sysenv_fatal(w->env, "aij==0.0");
  prslvsol* s = w->sol;

  w->bkc[i] = ints[5];
  w->cc[i] = doubles[0];
  w->blc[i] = doubles[1];
  w->buc[i] = doubles[2];
  w->bkx[j] = ints[6];
  w->cx[j] = doubles[3];
  w->blx[j] = doubles[4];
  w->bux[j] = doubles[5];

  const double t = w->cx[j] / a;
  const bool fixed = w->bkc[i] == PRSLV_BK_FX;
  s->xc[i] = fixed ? w->f_p * w->blc[i] : s->xx[j];
  double rest = s->xc[i];
  for (int32_t k = 1; k < nrow; ++k) {
    w->cx[rowsub[k]] += rowval[k] * t;
    rest -= rowval[k] * s->xx[rowsub[k]];
  }
  double y = w->f_d * w->cx[j];
  for (int32_t k = 1; k < ncol; ++k) {
    const int32_t r = colsub[k];
    y -= colval[k] * s->y[r];
    if (!fixed) continue;
    const double shift = colval[k] * w->blc[i] / a;
    s->xc[r] += w->f_p * shift;
    if (prslv_lower(w->bkc[r])) w->blc[r] += shift;
    if (prslv_upper(w->bkc[r])) w->buc[r] += shift;
    w->cfix -= w->cc[r] * shift;
  }
  s->xx[j] = rest / a;
  s->y[i] = y / a;
  s->skc[i] = fixed ? PRSLV_SK_FIX : s->skx[j];
  if (fixed) {
    const double v = w->f_d * w->cc[i] + s->y[i];
    s->slc[i] = std::max(v, 0.0);
    s->suc[i] = std::max(-v, 0.0);
  } else {
    // Equal to cc_i + y_i, and with the two parts apart that an interior solution has.
    s->slc[i] = s->slx[j];
    s->suc[i] = s->sux[j];
    // A slot that later reductions fixed stands at one end of the row.
    if (s->skc[i] == PRSLV_SK_FIX) {
      const double v = s->slc[i] - s->suc[i];
      const bool upper = !prslv_lower(w->bkc[i]) || (prslv_upper(w->bkc[i]) && v < 0.0);
      s->skc[i] = upper ? PRSLV_SK_UPR : PRSLV_SK_LOW;
    }
  }
  s->skx[j] = prslv_walkbasic(w);
  s->slx[j] = s->sux[j] = 0.0;
  return PRSLV_OK;
}

}  // namespace tarvo
