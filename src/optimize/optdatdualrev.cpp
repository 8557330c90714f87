// From a solution of the dual canonical form to one of the given problem.
#include <algorithm>

#include "dualize/dualize.h"
#include "optimize/optdat_internal.h"

namespace tarvo {

namespace {

struct Back {
  const OptWalk& walk;
  const OptProblem& p;
  const odat& record;
  const OptSolution& from;
  prslvsol& to;
  int32_t free_key;  // of what is neither at a bound nor fixed
  // What rests stands exactly at its bound: in a basic solution, but not in a ray, which a basic variable proves.
  bool exact;
  int32_t result = OPT_RESP_OK;
  explicit Back(const OptWalk& w)
      : walk(w),
        p(*w.problem),
        record(*w.record),
        from(*w.from),
        to(*w.to),
        free_key(w.basic ? PRSLV_SK_BAS : PRSLV_SK_SUPBAS),
        exact(w.basic && w.s != 0.0) {}
  // Whether the canonical column k is in the basis, or off its bounds in the interior solution.
  [[nodiscard]] bool basic(int32_t k) const {
    return walk.key[k] == PRSLV_SK_BAS || (!walk.basic && walk.key[k] == PRSLV_SK_SUPBAS);
  }
  [[nodiscard]] double z(int32_t k) const { return walk.z[k]; }
  [[nodiscard]] double zup(int32_t k) const { return record.upos[k] >= 0 ? walk.zup[record.upos[k]] : 0.0; }
};

// The key of a row or column with two bounds, from the keys and values of the multipliers of both: what is basic has
// its bound active. Both basic is no basis.
int32_t ranged_key(Back* back, int32_t lower, int32_t upper) {
  const bool low = back->basic(lower), upp = back->basic(upper);
  if (low && upp) {
    if (back->walk.basic) back->result = OPT_RESP_SINGULAR;
    return back->from.x[lower] < back->from.x[upper] ? PRSLV_SK_UPR : PRSLV_SK_LOW;
  }
  return low ? int32_t{PRSLV_SK_LOW} : upp ? int32_t{PRSLV_SK_UPR} : back->free_key;
}

void ranged_row(Back* back, int32_t i) {
  const int32_t k = back->record.inew[i], t = back->record.second[i];
  prslvsol& to = back->to;
  const double s = back->walk.s;
  to.slc[i] = back->from.x[k];
  to.suc[i] = back->from.x[t];
  to.y[i] = to.slc[i] - to.suc[i] - s * opt_rowcost(back->p, i);
  to.skc[i] = ranged_key(back, k, t);
  const bool rests = back->exact && to.skc[i] != back->free_key;
  to.xc[i] = s * (rests && to.skc[i] == PRSLV_SK_UPR ? back->p.buc[i] : back->p.blc[i]) + (rests ? 0.0 : back->z(k));
}

// A bound as a key says.
double at_key(int32_t key, double bl, double bu) {
  return key == PRSLV_SK_LOW || key == PRSLV_SK_FIX ? bl : key == PRSLV_SK_UPR ? bu : 0.0;
}

void kept_column(Back* back, int32_t j) {
  const OptProblem& p = back->p;
  const int32_t bk = opt_colkey(p, j), k = back->record.jnew[j], t = back->record.boundcol[j];
  prslvsol& to = back->to;
  const double s = back->walk.s;
  const double x = s * opt_colshift(p, j).shift - back->from.y[k];
  to.slx[j] = prslv_lower(bk) ? back->from.x[t] : 0.0;
  to.sux[j] = bk == PRSLV_BK_RA ? back->from.x[t + 1] : bk == PRSLV_BK_UP ? back->from.x[t] : 0.0;
  int32_t key = back->free_key;
  if (bk == PRSLV_BK_RA)
    key = ranged_key(back, t, t + 1);
  else if (bk != PRSLV_BK_FR && back->basic(t))
    key = bk == PRSLV_BK_LO ? PRSLV_SK_LOW : PRSLV_SK_UPR;
  to.skx[j] = key;
  to.xx[j] = back->exact && key != back->free_key ? s * at_key(key, p.blx[j], p.bux[j]) : x;
}

// One side of the bounds of an open y: its source rests at its bound, or carries the reduced cost `amount` of y.
void source_side(Back* back, int32_t i, int32_t source, bool lower, double amount, bool carries) {
  const OptProblem& p = back->p;
  prslvsol& to = back->to;
  const double s = back->walk.s;
  const bool shown = carries || !back->exact;
  if (source < p.numcon) {
    to.skc[i] = carries ? back->free_key : lower ? PRSLV_SK_LOW : PRSLV_SK_UPR;
    to.xc[i] = s * (lower ? p.blc[i] : p.buc[i]) + (shown ? (lower ? amount : -amount) : 0.0);
    return;
  }
  const int32_t j = source - p.numcon;
  double v = 1.0;
  for (int32_t t = p.acol->ptrb[j]; t < p.acol->ptre[j]; ++t)
    if (p.acol->sub[t] == i) v = p.acol->val[t];
  const bool haslower = prslv_lower(opt_colkey(p, j));
  to.skx[j] = carries ? back->free_key : haslower ? PRSLV_SK_LOW : PRSLV_SK_UPR;
  to.xx[j] = s * (haslower ? p.blx[j] : p.bux[j]) + (shown ? (lower ? -amount : amount) / v : 0.0);
}

void open_row(Back* back, int32_t i) {
  const OptProblem& p = back->p;
  const odat& record = back->record;
  const int32_t k = record.inew[i], nil = p.numcon + p.numvar, lo = record.gly[i], up = record.guy[i];
  const bool lower = lo != nil, upper = up != nil;
  const bool upperform = upper && (!lower || std::fabs(record.yup[i]) < std::fabs(record.ylo[i]));
  const double s = back->walk.s, x = back->from.x[k];
  int32_t e = back->walk.key[k];
  if (upperform && (e == PRSLV_SK_LOW || e == PRSLV_SK_UPR)) e = e == PRSLV_SK_LOW ? PRSLV_SK_UPR : PRSLV_SK_LOW;
  back->to.y[i] = upperform ? s * record.yup[i] - x : lower ? s * record.ylo[i] + x : x;
  if (lower) source_side(back, i, lo, true, upperform ? back->zup(k) : back->z(k), e == PRSLV_SK_LOW);
  if (upper) source_side(back, i, up, false, upperform ? back->z(k) : back->zup(k), e == PRSLV_SK_UPR);
  if (back->walk.basic && e == PRSLV_SK_SUPBAS) back->to.skc[i] = PRSLV_SK_BAS;
}

// slc and suc of a row that is not ranged.
void row_multipliers(Back* back, int32_t i) {
  const OptProblem& p = back->p;
  prslvsol& to = back->to;
  const int32_t bk = opt_rowkey(p, i);
  const double d = back->walk.s * opt_rowcost(p, i) + to.y[i];
  to.slc[i] = prslv_lower(bk) ? std::max(d, 0.0) : 0.0;
  to.suc[i] = prslv_upper(bk) ? std::max(-d, 0.0) : 0.0;
  if (bk == PRSLV_BK_LO && back->record.gly[i] == i) to.slc[i] = d;
  if (bk == PRSLV_BK_UP && back->record.guy[i] == i) to.suc[i] = -d;
}

// Rows whose y a free column has fixed: the column takes what the others leave of the row. The last one fixed may stand
// in the earlier ones, not the other way round. xc follows.
void carried_rows(Back* back) {
  const OptProblem& p = back->p;
  prslvsol& to = back->to;
  opt_activities(p, to.xx, to.xc);
  for (int32_t r = back->record.numfixorder - 1; r >= 0; --r) {
    const int32_t i = back->record.fixorder[r], j = back->record.gly[i] - p.numcon;
    const double target = back->walk.s * at_key(back->record.rowkey[i], p.blc[i], p.buc[i]);
    double v = 0.0;
    for (int32_t t = p.acol->ptrb[j]; t < p.acol->ptre[j]; ++t)
      if (p.acol->sub[t] == i) v = p.acol->val[t];
    const double x = (target - to.xc[i]) / v;
    to.skx[j] = back->free_key;
    to.skc[i] = back->record.rowkey[i];
    to.xx[j] += x;
    spmat_axpy(x, p.acol, j, to.xc);
    to.xc[i] = target;
  }
}

void column_multipliers(Back* back, int32_t j) {
  const int32_t bk = opt_colkey(back->p, j);
  const double r = back->walk.s * back->p.c[j] - spmat_dot(back->p.acol, j, back->to.y);
  back->to.slx[j] = prslv_lower(bk) ? std::max(r, 0.0) : 0.0;
  back->to.sux[j] = prslv_upper(bk) ? std::max(-r, 0.0) : 0.0;
}

// Canonical rows whose artificial is basic: the column of the given problem isn't.
void artificials(Back* back, int32_t nart, const int32_t* artlist) {
  for (int32_t k = 0; k < nart; ++k) {
    const int32_t j = back->record.jinv[artlist[k]], bk = opt_colkey(back->p, j);
    if (bk == PRSLV_BK_FX) sysenv_fatal(back->record.env, "Unexpected fixed variable");
    const bool upper = bk == PRSLV_BK_UP || opt_colshift(back->p, j).sign < 0.0;
    back->to.skx[j] = bk == PRSLV_BK_FR ? PRSLV_SK_SUPBAS : upper ? PRSLV_SK_UPR : PRSLV_SK_LOW;
  }
}

// The reduction found a direction without end: only the column of the ray moves, and the rows that others carry.
void settled(Back* back) {
  const OptProblem& p = back->p;
  prslvsol& to = back->to;
  std::fill_n(to.xx, p.numvar, 0.0);
  for (double* list : {to.y, to.slc, to.suc}) std::fill_n(list, p.numcon, 0.0);
  for (double* list : {to.slx, to.sux}) std::fill_n(list, p.numvar, 0.0);
  std::fill_n(to.skc, p.numcon, back->free_key);
  for (int32_t j = 0; j < p.numvar; ++j) {
    const int32_t bk = opt_colkey(p, j);
    to.skx[j] = bk == PRSLV_BK_FX ? PRSLV_SK_FIX
                : prslv_lower(bk) ? PRSLV_SK_LOW
                : prslv_upper(bk) ? PRSLV_SK_UPR
                                  : PRSLV_SK_SUPBAS;
  }
  to.skx[back->record.raycol] = PRSLV_SK_SUPBAS;
  to.xx[back->record.raycol] = back->record.raydir;
  carried_rows(back);
}

void walk_back(Back* back, int32_t nart, const int32_t* artlist) {
  const OptProblem& p = back->p;
  const odat& record = back->record;
  prslvsol& to = back->to;
  const double s = back->walk.s;
  for (int32_t i = 0; i < p.numcon; ++i) to.skc[i] = record.rowkey[i];
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (record.jnew[j] < record.keptvar) {
      kept_column(back, j);
    } else {
      to.skx[j] = record.colkey[j];
      to.xx[j] = s * at_key(record.colkey[j], p.blx[j], p.bux[j]);
    }
  }
  for (int32_t k = 0; k < record.keptcon; ++k) {
    const int32_t i = record.iinv[k];
    if (opt_rowkey(p, i) != PRSLV_BK_RA) open_row(back, i);
  }
  carried_rows(back);
  for (int32_t i = 0; i < p.numcon; ++i) {
    const int32_t bk = opt_rowkey(p, i);
    if (bk == PRSLV_BK_FR) {
      to.skc[i] = back->free_key;
      to.y[i] = s * record.ylo[i];
    } else if (record.inew[i] >= record.keptcon) {
      to.y[i] = s * record.ylo[i];
    } else if (bk == PRSLV_BK_RA) {
      ranged_row(back, i);
    } else if (record.gly[i] == i || record.guy[i] == i) {
      open_row(back, i);  // again, for its xc
    } else if (to.skc[i] != PRSLV_SK_BAS) {
      to.xc[i] = s * at_key(record.rowkey[i], p.blc[i], p.buc[i]);
    }
    if (bk != PRSLV_BK_RA) row_multipliers(back, i);
  }
  for (int32_t j = 0; j < p.numvar; ++j)
    if (record.jnew[j] >= record.keptvar) column_multipliers(back, j);
  if (back->walk.basic) artificials(back, nart, artlist);
}

void turn_statuses(const OptWalk& walk) {
  walk.to->prosta = dualize_prosta(walk.from->prosta);
  walk.to->solsta = dualize_solsta(walk.from->solsta);
}

}  // namespace

void opt_getdualsol(const OptWalk& walk) {
  Back back(walk);
  if (walk.record->settled) {
    settled(&back);
    return;
  }
  turn_statuses(walk);
  walk_back(&back, 0, nullptr);
}

int32_t opt_getdualbas(const OptWalk& walk, int32_t nart, const int32_t* artlist) {
  Back back(walk);
  turn_statuses(walk);
  walk_back(&back, nart, artlist);
  return back.result;
}

}  // namespace tarvo
