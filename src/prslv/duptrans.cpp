// Parallel columns of different costs: x_j and others x_k with columns m_k times that of x_j. With
//
//   z = x_j + sum m_k x_k   free, in slot j, with the cost of x_j,
//   row i (free before):  z - sum m_k x_k  within the bounds of x_j,
//
// the long columns stand once, in z, and each x_k has one element, at cost cx_k - m_k cx_j.
#include <algorithm>
#include <cfloat>
#include <cmath>

#include "prslv/dup.h"

namespace tarvo {

namespace {

constexpr int64_t min_gain = 8;  // elements saved that make up for a row

// A group that is worth a row: the columns item[begin..end), the root first, with factors m[begin..end).
struct Plan {
  int32_t row, begin, end;
};

struct Transform {
  Plan* plan;       // [numvar / 3 + 1]
  int32_t* item;    // [numvar]
  double* m;        // [numvar]
  int32_t* place;   // [numvar] the column's position in item, -1: none
  int32_t* planof;  // [numvar] of an item's column
  int32_t count, used;
};

// The largest index below *row of a free linear row; -1 when there is none.
int32_t next_free_row(const prslvrun* run, int32_t row) {
  for (--row; row >= 0; --row)
    if (run->concla[row] != 0 && !prslv_livecon(run, row) && run->p->cc[row] == 0.0) break;
  return row;
}

void plan_groups(const prslvrun* run, const dupgroups& groups, Transform* t) {
  const prslvprob* p = run->p;
  int32_t row = next_free_row(run, p->numcon);
  for (int32_t g = 0; g < groups.count && row >= 0; ++g) {
    const int32_t begin = t->used;
    double f = 0.0;
    int32_t end = begin;
    for (int32_t j = groups.head[g]; j != groups.end; j = groups.next[j]) {
      if (!prslv_livevar(run, j) || p->bkx[j] == PRSLV_BK_FR || prslv_inkeptrow(run, j)) continue;
      if (f == 0.0) f = prslv_firstlive(run, j);
      const double m = prslv_firstlive(run, j) / f;
      if (std::fabs(m) > prslv_maxmultiplier || std::fabs(m) < 1.0 / prslv_maxmultiplier) continue;
      t->item[end] = j;
      t->m[end++] = m;
    }
    const int64_t n = end - begin - 1;
    if (n < 2 || n * run->varnz[t->item[begin]] < 2 * n + 1 + min_gain) continue;
    for (int32_t k = begin; k < end; ++k) {
      t->place[t->item[k]] = k;
      t->planof[t->item[k]] = t->count;
    }
    t->plan[t->count++] = {row, begin, end};
    t->used = end;
    row = next_free_row(run, row);
  }
}

// The matrix after all of it, with live elements alone and sorted columns; NULL when out of memory.
spmat* transformed(const prslvrun* run, const Transform& t) {
  const spmat* a = run->p->acol;
  const int32_t numvar = run->p->numvar;
  spmat* b = spmat_make(run->env, a->maxnvec, a->maxvlen);
  if (b == nullptr) return nullptr;
  spmat_putnvec(b, a->nvec);
  spmat_putvlen(b, a->vlen);
  const int64_t size = spmat_getnumnz(a) + t.used;
  if (size > INT32_MAX || !spmat_alloc(b, static_cast<int32_t>(size))) {
    spmat_delete(&b);
    return nullptr;
  }
  const auto put = [b](int32_t i, double v) {
    b->sub[b->ffree] = i;
    b->val[b->ffree++] = v;
  };
  for (int32_t j = 0; j < numvar; ++j) {
    b->ptrb[j] = b->ffree;
    const int32_t at = t.place[j];
    const Plan* plan = at >= 0 ? &t.plan[t.planof[j]] : nullptr;
    if (plan != nullptr) put(plan->row, at == plan->begin ? 1.0 : -t.m[at]);
    if (plan == nullptr || at == plan->begin) {
      for (int32_t k = a->ptrb[j]; k < a->ptre[j]; ++k) {
        // Dead elements stay out of rows that live again; those of kept rows are all there.
        if (prslv_livecon(run, a->sub[k]) || run->concla[a->sub[k]] == 0) put(a->sub[k], a->val[k]);
      }
    }
    b->ptre[j] = b->ffree;
  }
  return b;
}

void apply(prslvrun* run, const Transform& t, const Plan& plan) {
  prslvprob* p = run->p;
  const int32_t i = plan.row, j = t.item[plan.begin], n = plan.end - plan.begin - 1;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  // There is room: it was reserved.
  if (prslv_beginpushstk(run, PRSLV_DUP_VAR_TRANSFORM, 3 + n, n, &ints, &doubles) != PRSLV_OK)
    sysenv_fatal(run->env, "No room for a record");
  ints[0] = i;
  ints[1] = j;
  ints[2] = n;
  std::copy_n(t.item + plan.begin + 1, n, ints + 3);
  std::copy_n(t.m + plan.begin + 1, n, doubles);
  prslv_endpushstk(run, &ints, &doubles);
  p->bkc[i] = p->bkx[j];
  p->blc[i] = p->blx[j];
  p->buc[i] = p->bux[j];
  p->bkx[j] = PRSLV_BK_FR;
  p->blx[j] = -DBL_MAX;
  p->bux[j] = DBL_MAX;
  for (int32_t k = plan.begin + 1; k < plan.end; ++k) {
    p->cx[t.item[k]] -= t.m[k] * p->cx[j];
    prslv_listpush(&run->singles, t.item[k]);
    prslv_listpush(&run->cols, t.item[k]);
  }
  prslv_listpush(&run->cols, j);
  for (int32_t k = p->acol->ptrb[j]; k < p->acol->ptre[j]; ++k)
    if (run->concla[p->acol->sub[k]] != 0) prslv_listpush(&run->rows, p->acol->sub[k]);
  --run->numfreed;
}

}  // namespace

int32_t prslv_dupvartransform(prslvrun* run, const dupgroups& groups) {
  prslvprob* p = run->p;
  Transform t{};
  Workspace work(run->env);
  const auto n = static_cast<std::size_t>(p->numvar);
  work.add(&t.plan, n / 3 + 1);
  for (int32_t** list : {&t.item, &t.place, &t.planof}) work.add(list, n);
  work.add(&t.m, n);
  if (groups.count == 0) return PRSLV_OK;
  if (!work.commit()) return PRSLV_SPACE;
  std::fill_n(t.place, n, -1);
  plan_groups(run, groups, &t);
  if (t.count == 0) return PRSLV_OK;
  spmat *columns = transformed(run, t), *rows = nullptr;
  bool ok = columns != nullptr && spmat_transpose(columns, nullptr, false, &rows, false) &&
            spmat_transpose(rows, nullptr, false, &columns, true);
  ok = ok && prslv_reserve(run, PRSLV_DUP_VAR_TRANSFORM, int64_t{t.used} + 8 * int64_t{t.count}) == PRSLV_OK;
  if (!ok) {
    spmat_delete(&columns);
    spmat_delete(&rows);
    return PRSLV_SPACE;
  }
  spmat_delete(&p->acol);
  spmat_delete(&run->acolt);
  p->acol = columns;
  run->acolt = rows;
  for (int32_t k = 0; k < t.count; ++k) apply(run, t, t.plan[k]);
  prslv_recount(run);
  return PRSLV_OK;
}

int32_t prslv_undodupvartransform(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/,
                                  const double* doubles, int32_t /*ndoubles*/) {
  const int32_t i = ints[0], j = ints[1], n = ints[2];
  prslvsol* s = w->sol;
  for (int32_t k = 0; k < n; ++k) w->cx[ints[3 + k]] += doubles[k] * w->cx[j];
  w->bkx[j] = w->bkc[i];
  w->blx[j] = w->blc[i];
  w->bux[j] = w->buc[i];
  const bool wasbasic = s->skx[j] == PRSLV_SK_BAS;
  s->skx[j] = s->skc[i];
  s->xx[j] = s->xc[i];
  s->slx[j] = s->slc[i];
  s->sux[j] = s->suc[i];
  w->bkc[i] = PRSLV_BK_FR;
  w->blc[i] = -DBL_MAX;
  w->buc[i] = DBL_MAX;
  w->cc[i] = s->y[i] = s->xc[i] = s->slc[i] = s->suc[i] = 0.0;
  s->skc[i] = prslv_walkbasic(w);
  if (!w->basic || wasbasic) return PRSLV_OK;
  // z stood off the basis, and row i takes a basic place: x_j or the x_k that was basic in row i gives up its own.
  if (s->skx[j] == PRSLV_SK_BAS) {
    s->skx[j] = PRSLV_SK_SUPBAS;
    return PRSLV_OK;
  }
  for (int32_t k = 0; k < n; ++k) {
    if (s->skx[ints[3 + k]] != PRSLV_SK_BAS) continue;
    s->skx[ints[3 + k]] = PRSLV_SK_SUPBAS;
    return PRSLV_OK;
  }
  return PRSLV_POSTSOLVE;
}

}  // namespace tarvo
