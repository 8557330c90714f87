// The changes that all reductions are made of: fixing and relaxing columns, fixing, relaxing and removing rows. Each
// keeps the counts of live elements and the activity bounds right and puts what it touched on the work lists.
#include <cfloat>
#include <cmath>

#include "prslv/prslv_internal.h"

namespace tarvo {

namespace {

// Calls f(row, element) for every live element of column j, f(column, element) for every live one of row i.
template <class F>
void for_column(const prslvrun* run, int32_t j, F f) {
  const spmat* a = run->p->acol;
  for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t)
    if (prslv_livecon(run, a->sub[t])) f(a->sub[t], a->val[t]);
}
template <class F>
void for_row(const prslvrun* run, int32_t i, F f) {
  const spmat* a = run->acolt;
  for (int32_t t = a->ptrb[i]; t < a->ptre[i]; ++t)
    if (prslv_livevar(run, a->sub[t])) f(a->sub[t], a->val[t]);
}

// Adds (sign 1) or takes away (sign -1) the term a x with x in the given bounds.
void add_term(prslvrun* run, int32_t i, double a, int32_t bk, double bl, double bu, int32_t sign) {
  if (a == 0.0) return;
  const bool low = prslv_lower(bk), upp = prslv_upper(bk);
  const bool min_exists = a > 0.0 ? low : upp, max_exists = a > 0.0 ? upp : low;
  if (min_exists) {
    run->lax[i] += sign * a * (a > 0.0 ? bl : bu);
  } else {
    run->ncilax[i] += sign;
  }
  if (max_exists) {
    run->uax[i] += sign * a * (a > 0.0 ? bu : bl);
  } else {
    run->nciuax[i] += sign;
  }
}

// Taking a large term out of a sum leaves its rounding error behind: such a sum is formed anew.
bool cancels(double term, double rest) { return std::fabs(term) > 1e3 * (1.0 + std::fabs(rest)); }

void changed_term(prslvrun* run, int32_t i, double a, double bl, double bu) {
  const double lost = std::fabs(a) * std::fmax(std::fabs(bl) < DBL_MAX ? std::fabs(bl) : 0.0,
                                               std::fabs(bu) < DBL_MAX ? std::fabs(bu) : 0.0);
  if (cancels(lost, run->lax[i]) || cancels(lost, run->uax[i])) prslv_formactivity(run, i);
}

void touch_row(prslvrun* run, int32_t i) {
  if (run->concla[i] != 0) prslv_listpush(&run->rows, i);
}

void touch_column(prslvrun* run, int32_t j) {
  prslv_listpush(&run->cols, j);
  if (run->varnz[j] == 1) prslv_listpush(&run->singles, j);
}

// The live part of column j, as a record holds it.
int32_t push_column(prslvrun* run, int32_t type, int32_t j, int32_t numbounds, const double* bounds) {
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  const int32_t n = run->varnz[j];
  if (prslv_beginpushstk(run, type, n + 3, n + numbounds, &ints, &doubles) != PRSLV_OK) return PRSLV_SPACE;
  ints[0] = j;
  ints[1] = run->p->bkx[j];
  ints[2] = n;
  for (int32_t k = 0; k < numbounds; ++k) doubles[k] = bounds[k];
  int32_t k = 0;
  for_column(run, j, [&](int32_t i, double a) {
    ints[3 + k] = i;
    doubles[numbounds + k++] = a;
  });
  sysenv_assert(run->env, k == n);
  prslv_endpushstk(run, &ints, &doubles);
  return PRSLV_OK;
}

}  // namespace

void prslv_formactivity(prslvrun* run, int32_t i) {
  run->lax[i] = run->uax[i] = 0.0;
  run->ncilax[i] = run->nciuax[i] = 0;
  const prslvprob* p = run->p;
  for_row(run, i, [&](int32_t j, double a) { add_term(run, i, a, p->bkx[j], p->blx[j], p->bux[j], 1); });
}

void prslv_newvarbounds(prslvrun* run, int32_t j, int32_t bk, double bl, double bu) {
  prslvprob* p = run->p;
  const int32_t oldbk = p->bkx[j];
  const double oldbl = p->blx[j], oldbu = p->bux[j];
  p->bkx[j] = bk;
  p->blx[j] = prslv_lower(bk) ? bl : -DBL_MAX;
  p->bux[j] = prslv_upper(bk) ? bu : DBL_MAX;
  for_column(run, j, [&](int32_t i, double a) {
    add_term(run, i, a, oldbk, oldbl, oldbu, -1);
    add_term(run, i, a, bk, bl, bu, 1);
    changed_term(run, i, a, prslv_lower(oldbk) ? oldbl : 0.0, prslv_upper(oldbk) ? oldbu : 0.0);
    touch_row(run, i);
  });
  touch_column(run, j);
}

void prslv_removevar(prslvrun* run, int32_t j, double value) {
  prslvprob* p = run->p;
  const int32_t bk = p->bkx[j];
  const double bl = p->blx[j], bu = p->bux[j];
  p->bkx[j] = PRSLV_BK_FX;
  p->blx[j] = p->bux[j] = value;
  for_column(run, j, [&](int32_t i, double a) {
    if (prslv_lower(p->bkc[i])) p->blc[i] -= a * value;
    if (prslv_upper(p->bkc[i])) p->buc[i] -= a * value;
    p->cfix += p->cc[i] * a * value;  // what the row's cost made of the column
    --run->connz[i];
    add_term(run, i, a, bk, bl, bu, -1);
    changed_term(run, i, a, prslv_lower(bk) ? bl : 0.0, prslv_upper(bk) ? bu : 0.0);
    touch_row(run, i);
  });
  run->varnz[j] = 0;
  ++run->numfixed;
}

void prslv_removecon(prslvrun* run, int32_t i) {
  prslvprob* p = run->p;
  for_row(run, i, [&](int32_t j, double) {
    --run->varnz[j];
    touch_column(run, j);
  });
  p->bkc[i] = PRSLV_BK_FR;
  p->blc[i] = -DBL_MAX;
  p->buc[i] = DBL_MAX;
  run->connz[i] = 0;
  ++run->numfreed;
}

int32_t prslv_conrelax(prslvrun* run, int32_t i, bool drop_lower, bool drop_upper) {
  prslvprob* p = run->p;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  if (p->bkc[i] == PRSLV_BK_RA && drop_lower != drop_upper) {
    const int32_t type = drop_lower ? PRSLV_ROW_LOWER_DROPPED : PRSLV_ROW_UPPER_DROPPED;
    if (prslv_beginpushstk(run, type, 1, 1, &ints, &doubles) != PRSLV_OK) return PRSLV_SPACE;
    ints[0] = i;
    doubles[0] = drop_lower ? p->blc[i] : p->buc[i];
    prslv_endpushstk(run, &ints, &doubles);
    p->bkc[i] = drop_lower ? PRSLV_BK_UP : PRSLV_BK_LO;
    (drop_lower ? p->blc[i] : p->buc[i]) = drop_lower ? -DBL_MAX : DBL_MAX;
    touch_row(run, i);
    for_row(run, i, [&](int32_t j, double) { touch_column(run, j); });
    return PRSLV_OK;
  }
  if (!drop_lower && !drop_upper) return PRSLV_OK;
  const int32_t n = run->connz[i];
  if (prslv_beginpushstk(run, PRSLV_ROW_REMOVED, n + 3, n + 3, &ints, &doubles) != PRSLV_OK) return PRSLV_SPACE;
  ints[0] = i;
  ints[1] = p->bkc[i];
  ints[2] = n;
  doubles[0] = p->blc[i];
  doubles[1] = p->buc[i];
  doubles[2] = p->cc[i];
  int32_t k = 3;
  for_row(run, i, [&](int32_t j, double a) {
    ints[k] = j;
    doubles[k++] = a;
    p->cx[j] = prslv_addcost(p->cx[j], p->cc[i] * a);
  });
  sysenv_assert(run->env, k == n + 3);
  prslv_endpushstk(run, &ints, &doubles);
  p->cc[i] = 0.0;
  prslv_removecon(run, i);
  return PRSLV_OK;
}

int32_t prslv_confree(prslvrun* run, int32_t i) {
  prslvprob* p = run->p;
  // Fixed columns are part of it: they don't look at free rows when they come back.
  const spmat* at = run->acolt;
  const int32_t n = at->ptre[i] - at->ptrb[i];
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  if (prslv_beginpushstk(run, PRSLV_ROW_REMOVED, n + 3, n + 3, &ints, &doubles) != PRSLV_OK) return PRSLV_SPACE;
  ints[0] = i;
  ints[1] = PRSLV_BK_FR;
  ints[2] = n;
  doubles[0] = -DBL_MAX;
  doubles[1] = DBL_MAX;
  doubles[2] = p->cc[i];
  int32_t k = 3;
  for (int32_t t = at->ptrb[i]; t < at->ptre[i]; ++t) {
    ints[k] = at->sub[t];
    doubles[k++] = at->val[t];
    p->cx[at->sub[t]] += p->cc[i] * at->val[t];
  }
  prslv_endpushstk(run, &ints, &doubles);
  p->cc[i] = 0.0;
  return PRSLV_OK;
}

int32_t prslv_confixatbound(prslvrun* run, int32_t i, bool at_lower) {
  prslvprob* p = run->p;
  if (p->bkc[i] == PRSLV_BK_FX) return PRSLV_OK;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  if (prslv_beginpushstk(run, at_lower ? PRSLV_ROW_AT_LOWER : PRSLV_ROW_AT_UPPER, 2, 1, &ints, &doubles) != PRSLV_OK)
    return PRSLV_SPACE;
  ints[0] = i;
  ints[1] = p->bkc[i];
  doubles[0] = at_lower ? p->buc[i] : p->blc[i];
  prslv_endpushstk(run, &ints, &doubles);
  p->bkc[i] = PRSLV_BK_FX;
  (at_lower ? p->buc[i] : p->blc[i]) = at_lower ? p->blc[i] : p->buc[i];
  touch_row(run, i);
  for_row(run, i, [&](int32_t j, double) { touch_column(run, j); });
  return PRSLV_OK;
}

int32_t prslv_contighten(prslvrun* run, int32_t i) {
  prslvprob* p = run->p;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  if (prslv_beginpushstk(run, PRSLV_ROW_TIGHTENED, 2, 2, &ints, &doubles) != PRSLV_OK) return PRSLV_SPACE;
  ints[0] = i;
  ints[1] = p->bkc[i];
  doubles[0] = p->blc[i];
  doubles[1] = p->buc[i];
  prslv_endpushstk(run, &ints, &doubles);
  p->bkc[i] = PRSLV_BK_FX;
  p->buc[i] = p->blc[i];
  touch_row(run, i);
  return PRSLV_OK;
}

int32_t prslv_varfix(prslvrun* run, int32_t j, double value) {
  const double bounds[2] = {run->p->blx[j], run->p->bux[j]};
  if (push_column(run, PRSLV_VAR_FIXED, j, 2, bounds) != PRSLV_OK) return PRSLV_SPACE;
  prslv_removevar(run, j, value);
  return PRSLV_OK;
}

int32_t prslv_varfixatbound(prslvrun* run, int32_t type, int32_t j) {
  const prslvprob* p = run->p;
  const double other = type == PRSLV_VAR_AT_LOWER ? p->bux[j] : p->blx[j];
  const double value = type == PRSLV_FREE_VAR_AT_ZERO ? 0.0 : type == PRSLV_VAR_AT_LOWER ? p->blx[j] : p->bux[j];
  if (push_column(run, type, j, type == PRSLV_FREE_VAR_AT_ZERO ? 0 : 1, &other) != PRSLV_OK) return PRSLV_SPACE;
  prslv_removevar(run, j, value);
  return PRSLV_OK;
}

int32_t prslv_varrelax(prslvrun* run, int32_t j, bool drop_lower, bool drop_upper) {
  const prslvprob* p = run->p;
  drop_lower = drop_lower && prslv_lower(p->bkx[j]);
  drop_upper = drop_upper && prslv_upper(p->bkx[j]);
  if (!drop_lower && !drop_upper) return PRSLV_OK;
  const bool both = drop_lower && drop_upper;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  const int32_t type = both ? PRSLV_VAR_BOTH_RELAXED : drop_lower ? PRSLV_VAR_LOWER_RELAXED : PRSLV_VAR_UPPER_RELAXED;
  if (prslv_beginpushstk(run, type, 2, both ? 2 : 1, &ints, &doubles) != PRSLV_OK) return PRSLV_SPACE;
  ints[0] = j;
  ints[1] = p->bkx[j];
  doubles[0] = drop_lower ? p->blx[j] : p->bux[j];
  if (both) doubles[1] = p->bux[j];
  prslv_endpushstk(run, &ints, &doubles);
  const bool low = prslv_lower(p->bkx[j]) && !drop_lower, upp = prslv_upper(p->bkx[j]) && !drop_upper;
  prslv_newvarbounds(run, j, low ? PRSLV_BK_LO : upp ? PRSLV_BK_UP : PRSLV_BK_FR, p->blx[j], p->bux[j]);
  return PRSLV_OK;
}

void prslv_impliedbounds(const prslvrun* run, int32_t i, int32_t j, double a, double* lower, double* upper) {
  const prslvprob* p = run->p;
  *lower = -DBL_MAX;
  *upper = DBL_MAX;
  const bool low = prslv_lower(p->bkx[j]), upp = prslv_upper(p->bkx[j]);
  const bool min_exists = a > 0.0 ? low : upp, max_exists = a > 0.0 ? upp : low;
  // Activity of the others: a x <= buc - least and a x >= blc - greatest.
  if (prslv_upper(p->bkc[i]) && run->ncilax[i] == (min_exists ? 0 : 1)) {
    const double least = run->lax[i] - (min_exists ? a * (a > 0.0 ? p->blx[j] : p->bux[j]) : 0.0);
    (a > 0.0 ? *upper : *lower) = (p->buc[i] - least) / a;
  }
  if (prslv_lower(p->bkc[i]) && run->nciuax[i] == (max_exists ? 0 : 1)) {
    const double greatest = run->uax[i] - (max_exists ? a * (a > 0.0 ? p->bux[j] : p->blx[j]) : 0.0);
    (a > 0.0 ? *lower : *upper) = (p->blc[i] - greatest) / a;
  }
}

}  // namespace tarvo
