// The dual form: what goes, what stays, and the arrays of the dual.
#include <algorithm>
#include <cmath>
#include <new>

#include "dualize/dualize_internal.h"

namespace tarvo {

namespace {

constexpr double inf = HUGE_VAL;
// A folded column's multiplier is a_ij times what u_i misses its bound by, and the value of u_i at a bound is off by
// the error of c_j over a_ij: elements outside keep their row.
constexpr double fold_min = 1e-3, fold_max = 1e3;

// What is left of a problem in the compact form. Arrays as in the record.
struct Plan {
  Array<int32_t> lsrc, usrc;  // [numcon]
  Array<double> ylo, yup;     // [numcon] bounds of u_i (of its first column for a ranged row)
  Array<int32_t> xrow;        // [numvar] 0 for a column that stays
  Array<double> cstar;        // [numvar] cx + A'cc, the cost when the rows have none
  int64_t rows = 0, columns = 0, nz = 0;
  int32_t ranged = 0, fixed = 0;
};

bool make_room(sysenv* env, const DualizeInput& in, Plan* plan) {
  const auto m = static_cast<std::size_t>(in.numcon), n = static_cast<std::size_t>(in.numvar);
  return plan->lsrc.alloc(env, m) && plan->usrc.alloc(env, m) && plan->ylo.alloc(env, m) && plan->yup.alloc(env, m) &&
         plan->xrow.alloc(env, n) && plan->cstar.alloc(env, n);
}

// Bounds of the u_i from the keys of the rows alone.
void bound_multipliers(const DualizeInput& in, Plan* plan) {
  for (int32_t i = 0; i < in.numcon; ++i) {
    const int32_t key = dualize_rowkey(in, i);
    plan->lsrc[i] = plan->usrc[i] = -1;
    const bool low = key == DUAL_BK_LO || key == DUAL_BK_RA, upp = key == DUAL_BK_UP;
    plan->ylo[i] = low ? 0.0 : -inf;
    plan->yup[i] = upp ? 0.0 : inf;
    plan->fixed += key == DUAL_BK_FX;
    if (key != DUAL_BK_FR) plan->columns += key == DUAL_BK_RA ? 2 : 1;
  }
}

// Turns the row of the dual with the single element a of u_i into a bound of u_i. False when the row must stay: it
// would cross the bounds there are (which the simplex shall find out), or its size makes it a poor bound.
bool fold(int32_t j, int32_t key, double a, int32_t i, Plan* plan) {
  if (key == DUAL_BK_RA || std::fabs(a) < fold_min || std::fabs(a) > fold_max) return false;
  const double v = plan->cstar[j] / a;
  double &lo = plan->ylo[i], &up = plan->yup[i];
  if (key == DUAL_BK_FR) {
    if (v < lo || v > up || lo == up) return false;
    lo = up = v;
    plan->lsrc[i] = plan->usrc[i] = j;
  } else if ((key == DUAL_BK_LO) == (a > 0.0)) {  // a u <= c, or a u >= c with a < 0
    if (v < lo) return false;
    if (v < up) {
      up = v;
      plan->usrc[i] = j;
    }
  } else {
    if (v > up) return false;
    if (v > lo) {
      lo = v;
      plan->lsrc[i] = j;
    }
  }
  return true;
}

// Settles every column of the primal and counts what stays.
void make_plan(const DualizeInput& in, Plan* plan) {
  bound_multipliers(in, plan);
  for (int32_t j = 0; j < in.numvar; ++j) {
    const int32_t key = dualize_colkey(in, j);
    int32_t count = 0, last = 0;
    int64_t entries = 0;
    double c = in.cx[j];
    for (int32_t t = in.ptrb[j]; t < in.ptre[j]; ++t) {
      if (in.val[t] == 0.0) continue;
      const int32_t rowkey = dualize_rowkey(in, in.sub[t]);
      ++count;
      last = t;
      c += in.val[t] * in.cc[in.sub[t]];
      if (rowkey != DUAL_BK_FR) entries += rowkey == DUAL_BK_RA ? 2 : 1;
    }
    plan->cstar[j] = c;
    if (key == DUAL_BK_FX) {
      plan->xrow[j] = dualize_fixed;
    } else if (count == 1 && entries == 1 && fold(j, key, in.val[last], in.sub[last], plan)) {
      plan->xrow[j] = dualize_folded;
    } else {
      plan->xrow[j] = 0;
      ++plan->rows;
      plan->nz += entries;
      if (key != DUAL_BK_RA) continue;
      ++plan->ranged;
      ++plan->columns;
      ++plan->nz;
    }
  }
}

// Sizes of the full form.
void full_size(const DualizeInput& in, Plan* plan) {
  plan->rows = int64_t{in.numcon} + in.numvar;
  plan->columns = 3 * int64_t{in.numcon} + 2 * int64_t{in.numvar};
  plan->nz = plan->columns;
  for (int32_t j = 0; j < in.numvar; ++j) {
    plan->nz += in.ptre[j] - in.ptrb[j];
    plan->ranged += dualize_colkey(in, j) == DUAL_BK_RA;
  }
  for (int32_t i = 0; i < in.numcon; ++i) plan->fixed += dualize_rowkey(in, i) == DUAL_BK_FX;
}

bool fits(const Plan& plan) {
  return plan.nz <= INT32_MAX && plan.columns < INT32_MAX && plan.rows < INT32_MAX - plan.columns;
}

// The arrays of the dual while it is made.
struct Form {
  double *cc, *cx, *blc, *buc, *blx, *bux, *val;
  int32_t *bkc, *bkx, *ptr, *sub;
};

// Takes the blocks of the record and slices them. False when out of memory.
bool make_blocks(const Plan& plan, dualizer* record, Form* form) {
  const auto m = static_cast<std::size_t>(record->primal.numcon), n = static_cast<std::size_t>(record->primal.numvar);
  const auto rows = static_cast<std::size_t>(plan.rows), columns = static_cast<std::size_t>(plan.columns);
  const auto nz = static_cast<std::size_t>(plan.nz);
  if (!record->ints.alloc(record->env, 4 * m + 2 * n + rows + columns) ||
      !record->matints.alloc(record->env, columns + 1 + nz) ||
      !record->reals.alloc(record->env, 3 * rows + 3 * columns, Fill::zero) || !record->matreals.alloc(record->env, nz))
    return false;
  int32_t* ints = record->ints.data();
  const auto take = [](auto** block, std::size_t count) {
    auto* part = *block;
    *block += count;
    return part;
  };
  for (int32_t** list : {&record->ycol, &record->ycol2, &record->lsrc, &record->usrc}) *list = take(&ints, m);
  for (int32_t** list : {&record->xrow, &record->qcol}) *list = take(&ints, n);
  form->bkc = take(&ints, rows);
  form->bkx = take(&ints, columns);
  int32_t* matints = record->matints.data();
  form->ptr = take(&matints, columns + 1);
  form->sub = matints;
  double* reals = record->reals.data();
  form->cc = take(&reals, rows);
  form->blc = take(&reals, rows);
  form->buc = take(&reals, rows);
  form->cx = take(&reals, columns);
  form->blx = take(&reals, columns);
  form->bux = take(&reals, columns);
  form->val = record->matreals.data();
  return true;
}

void bound(int32_t key, double lower, double upper, int32_t* bk, double* bl, double* bu) {
  *bk = key;
  *bl = lower;
  *bu = upper;
}
void bound_by_values(double lower, double upper, int32_t* bk, double* bl, double* bu) {
  const bool low = lower > -inf, upp = upper < inf;
  const int32_t key = low && upp ? (lower == upper ? DUAL_BK_FX : DUAL_BK_RA)
                      : low      ? DUAL_BK_LO
                      : upp      ? DUAL_BK_UP
                                 : DUAL_BK_FR;
  bound(key, lower, upper, bk, bl, bu);
}

// Numbers the rows and columns of the compact form: the u_i, the second ones of ranged rows, the q_j.
void number(const Plan& plan, dualizer* record) {
  const DualizeInput& in = record->primal;
  std::copy_n(plan.lsrc.data(), in.numcon, record->lsrc);
  std::copy_n(plan.usrc.data(), in.numcon, record->usrc);
  int32_t column = 0, row = 0;
  for (int32_t i = 0; i < in.numcon; ++i) record->ycol[i] = dualize_rowkey(in, i) == DUAL_BK_FR ? -1 : column++;
  for (int32_t i = 0; i < in.numcon; ++i) record->ycol2[i] = dualize_rowkey(in, i) == DUAL_BK_RA ? column++ : -1;
  for (int32_t j = 0; j < in.numvar; ++j) {
    record->xrow[j] = plan.xrow[j] < 0 ? plan.xrow[j] : row++;
    record->qcol[j] = plan.xrow[j] == 0 && dualize_colkey(in, j) == DUAL_BK_RA ? column++ : -1;
  }
}

// The matrix of the compact form: the columns u are the rows of A.
void build_matrix(const dualizer& record, int32_t columns, const Form& form) {
  const DualizeInput& in = record.primal;
  std::fill_n(form.ptr, columns + 1, 0);
  const auto each = [&in, &record](auto visit) {
    for (int32_t j = 0; j < in.numvar; ++j) {
      const int32_t r = record.xrow[j];
      if (r < 0) continue;
      for (int32_t t = in.ptrb[j]; t < in.ptre[j]; ++t) {
        const int32_t k = record.ycol[in.sub[t]], k2 = record.ycol2[in.sub[t]];
        if (in.val[t] == 0.0 || k < 0) continue;
        visit(k, r, in.val[t]);
        if (k2 >= 0) visit(k2, r, in.val[t]);
      }
      if (record.qcol[j] >= 0) visit(record.qcol[j], r, -1.0);
    }
  };
  each([&form](int32_t k, int32_t, double) { ++form.ptr[k + 1]; });
  for (int32_t k = 0; k < columns; ++k) form.ptr[k + 1] += form.ptr[k];
  each([&form](int32_t k, int32_t r, double value) {
    const int32_t at = form.ptr[k]++;
    form.sub[at] = r;
    form.val[at] = value;
  });
  for (int32_t k = columns; k > 0; --k) form.ptr[k] = form.ptr[k - 1];
  form.ptr[0] = 0;
}

// Bounds, costs and the fixed term of the compact form.
void build_vectors(const Plan& plan, const dualizer& record, const Form& form, double* cfix) {
  const DualizeInput& in = record.primal;
  *cfix = -in.cfix;
  for (int32_t i = 0; i < in.numcon; ++i) {
    const int32_t k = record.ycol[i], k2 = record.ycol2[i];
    if (k < 0) continue;
    form.cx[k] = -dualize_base(dualize_rowkey(in, i), in.blc[i], in.buc[i]);
    bound_by_values(plan.ylo[i], plan.yup[i], &form.bkx[k], &form.blx[k], &form.bux[k]);
    if (k2 < 0) continue;
    form.cx[k2] = -in.buc[i];
    bound(DUAL_BK_UP, -inf, 0.0, &form.bkx[k2], &form.blx[k2], &form.bux[k2]);
  }
  for (int32_t j = 0; j < in.numvar; ++j) {
    const int32_t key = dualize_colkey(in, j), r = record.xrow[j];
    const double base = dualize_base(key, in.blx[j], in.bux[j]), c = plan.cstar[j];
    *cfix -= base * c;
    if (r >= 0) {
      form.cc[r] = base;
      if (key == DUAL_BK_FR)
        bound(DUAL_BK_FX, c, c, &form.bkc[r], &form.blc[r], &form.buc[r]);
      else if (key == DUAL_BK_UP)
        bound(DUAL_BK_LO, c, inf, &form.bkc[r], &form.blc[r], &form.buc[r]);
      else
        bound(DUAL_BK_UP, -inf, c, &form.bkc[r], &form.blc[r], &form.buc[r]);
      const int32_t q = record.qcol[j];
      if (q < 0) continue;
      form.cx[q] = in.bux[j];
      bound(DUAL_BK_LO, 0.0, inf, &form.bkx[q], &form.blx[q], &form.bux[q]);
    } else if (base != 0.0) {
      for (int32_t t = in.ptrb[j]; t < in.ptre[j]; ++t) {
        const int32_t i = in.sub[t];
        if (record.ycol[i] >= 0) form.cx[record.ycol[i]] += in.val[t] * base;
        if (record.ycol2[i] >= 0) form.cx[record.ycol2[i]] += in.val[t] * base;
      }
    }
  }
}

// Multipliers of one kind of bound of the full form: columns first.. with +1 or -1 in the rows row..
void full_multipliers(int32_t count, const int32_t* bk, const double* value, bool lower, int32_t first, int32_t row,
                      const Form& form) {
  for (int32_t k = 0; k < count; ++k) {
    const bool has = bk[k] == DUAL_BK_FX || bk[k] == DUAL_BK_RA || bk[k] == (lower ? DUAL_BK_LO : DUAL_BK_UP);
    const int32_t column = first + k;
    bound(has ? DUAL_BK_LO : DUAL_BK_FX, 0.0, has ? inf : 0.0, &form.bkx[column], &form.blx[column], &form.bux[column]);
    if (has) form.cx[column] = lower ? -value[k] : value[k];
    const int32_t at = form.ptr[column];
    form.sub[at] = row + k;
    form.val[at] = lower ? 1.0 : -1.0;
    form.ptr[column + 1] = at + 1;
  }
}

void build_full(const dualizer& record, const Form& form) {
  const DualizeInput& in = record.primal;
  const int32_t m = in.numcon, n = in.numvar;
  std::fill_n(form.ptr, m + 1, 0);
  for (int32_t j = 0; j < n; ++j) {
    bound(DUAL_BK_FX, in.cx[j], in.cx[j], &form.bkc[j], &form.blc[j], &form.buc[j]);
    record.xrow[j] = j;
    record.qcol[j] = -1;
    for (int32_t t = in.ptrb[j]; t < in.ptre[j]; ++t) ++form.ptr[in.sub[t] + 1];
  }
  for (int32_t i = 0; i < m; ++i) {
    form.ptr[i + 1] += form.ptr[i] + 1;
    bound(DUAL_BK_FX, in.cc[i], in.cc[i], &form.bkc[n + i], &form.blc[n + i], &form.buc[n + i]);
    bound(DUAL_BK_FR, -inf, inf, &form.bkx[i], &form.blx[i], &form.bux[i]);
    record.ycol[i] = i;
    record.ycol2[i] = record.lsrc[i] = record.usrc[i] = -1;
  }
  for (int32_t j = 0; j < n; ++j) {
    for (int32_t t = in.ptrb[j]; t < in.ptre[j]; ++t) {
      const int32_t at = form.ptr[in.sub[t]]++;
      form.sub[at] = j;
      form.val[at] = in.val[t];
    }
  }
  for (int32_t i = m - 1; i >= 0; --i) {  // the last place of each y is left for its row n + i
    const int32_t at = form.ptr[i];
    form.sub[at] = n + i;
    form.val[at] = -1.0;
    form.ptr[i + 1] = at + 1;
  }
  form.ptr[0] = 0;
  full_multipliers(m, in.bkc, in.blc, true, m, n, form);
  full_multipliers(m, in.bkc, in.buc, false, 2 * m, n, form);
  full_multipliers(n, in.bkx, in.blx, true, 3 * m, 0, form);
  full_multipliers(n, in.bkx, in.bux, false, 3 * m + n, 0, form);
}

}  // namespace

int32_t dualize_getdualsize(sysenv* env, DualizeMethod method, const DualizeInput& input, DualizeSize* size) {
  *size = {};
  Plan plan;
  if (method == DUALIZE_FULL) {
    full_size(input, &plan);
  } else {
    if (!make_room(env, input, &plan)) return SYS_SPACE;
    make_plan(input, &plan);
  }
  if (!fits(plan)) return SYS_SPACE;
  *size = {static_cast<int32_t>(plan.rows), static_cast<int32_t>(plan.columns), plan.nz, plan.ranged, plan.fixed};
  return SYS_OK;
}

int32_t dualize_formdual(sysenv* env, DualizeMethod method, const DualizeInput& input, dualizer** record) {
  *record = nullptr;
  void* place = sysenv_calloc(env, 1, sizeof(dualizer));
  if (place == nullptr) return SYS_SPACE;
  auto* made = new (place) dualizer{};
  made->env = env;
  made->method = method;
  made->primal = input;
  Plan plan;
  Form form{};
  bool ok = make_room(env, input, &plan);
  if (ok) {
    if (method == DUALIZE_FULL)
      full_size(input, &plan);
    else
      make_plan(input, &plan);
    ok = fits(plan) && make_blocks(plan, made, &form);
  }
  if (!ok) {
    dualize_delete(&made);
    return SYS_SPACE;
  }
  const auto rows = static_cast<int32_t>(plan.rows), columns = static_cast<int32_t>(plan.columns);
  double cfix = -input.cfix;
  if (method == DUALIZE_FULL) {
    build_full(*made, form);
  } else {
    number(plan, made);
    build_matrix(*made, columns, form);
    build_vectors(plan, *made, form, &cfix);
  }
  made->dual = {rows,    columns,  form.ptr, form.ptr + 1, form.sub, form.val, cfix,    form.cc,
                form.cx, form.bkc, form.blc, form.buc,     form.bkx, form.blx, form.bux};
  made->formed = true;
  *record = made;
  return SYS_OK;
}

void dualize_delete(dualizer** record) {
  if (*record == nullptr) return;
  sysenv* env = (*record)->env;
  (*record)->~dualizer();
  sysenv_free(env, *record);
  *record = nullptr;
}

DualizeInput dualize_problem(const dualizer* record) { return record->dual; }

}  // namespace tarvo
