// The dual canonical form: the reduction that turns columns with one element into bounds of multipliers, the choice
// between both forms, and the building of the dual.
//
// The rows of the dual are the kept columns j: sum a_ij y_i + slx_j - sux_j = c_j. Its columns are the multipliers y_i
// of the open rows, shifted to a bound where a source gives them one, two multipliers slc and suc for a ranged row, and
// the bound multipliers of the kept columns. The multiplier of its row j is -(xx_j - m_j), m_j the bound that the
// canonical primal form would shift to 0; the reduced cost of y_i is what xc_i or the source column is off its bound.
#include <algorithm>

#include "optimize/optdat_internal.h"
#include "order/ordmat.h"

namespace tarvo {

namespace {

constexpr double tol = 1e-8;  // reduced costs of columns without open rows, and bounds of y that meet
// Columns whose element is outside stay rows: their multiplier is the element times the error of y.
constexpr double element_min = 1e-4, element_max = 1e4;

int32_t nil(const OptProblem& p) { return p.numcon + p.numvar; }
bool is_fixed(const OptProblem& p, const odat& record, int32_t i) {
  return record.gly[i] == record.guy[i] && record.gly[i] != nil(p);
}
bool is_open(const OptProblem& p, const odat& record, int32_t i) { return !is_fixed(p, record, i); }

bool make_room(const OptProblem& p, odat* record) {
  sysenv* env = record->env;
  const auto m = static_cast<std::size_t>(p.numcon), n = static_cast<std::size_t>(p.numvar);
  return record->gly.alloc(env, m) && record->guy.alloc(env, m) && record->ylo.alloc(env, m, Fill::zero) &&
         record->yup.alloc(env, m, Fill::zero) && record->rowkey.alloc(env, m, Fill::zero) &&
         record->colkey.alloc(env, n, Fill::zero) && record->second.alloc(env, m) && record->boundcol.alloc(env, n) &&
         record->fixorder.alloc(env, m);
}

// The bound at which a source rests.
void rest_source(const OptProblem& p, odat* record, int32_t source) {
  if (source == nil(p)) return;
  const bool row = source < p.numcon;
  const int32_t k = row ? source : source - p.numcon;
  const int32_t bk = row ? opt_rowkey(p, k) : opt_colkey(p, k);
  (row ? record->rowkey : record->colkey)[k] = prslv_lower(bk) ? PRSLV_SK_LOW : PRSLV_SK_UPR;
}

void start_rows(const OptProblem& p, odat* record) {
  for (int32_t i = 0; i < p.numcon; ++i) {
    const int32_t key = opt_rowkey(p, i);
    record->gly[i] = record->guy[i] = nil(p);
    record->second[i] = -1;
    if (key == PRSLV_BK_FR || key == PRSLV_BK_LO) {
      record->gly[i] = i;
      record->ylo[i] = -opt_rowcost(p, i);
    }
    if (key == PRSLV_BK_FR || key == PRSLV_BK_UP) {
      record->guy[i] = i;
      record->yup[i] = -opt_rowcost(p, i);
    }
    if (key == PRSLV_BK_FX) record->rowkey[i] = PRSLV_SK_FIX;
  }
}

struct ColumnView {
  double d;      // cost less what fixed y take
  int32_t open;  // open rows
  int32_t last;  // position of the last of them
};
ColumnView look(const OptProblem& p, const odat& record, int32_t j) {
  ColumnView view{p.c[j], 0, -1};
  for (int32_t t = p.acol->ptrb[j]; t < p.acol->ptre[j]; ++t) {
    const int32_t i = p.acol->sub[t];
    if (p.acol->val[t] == 0.0) continue;
    if (is_fixed(p, record, i)) {
      view.d -= p.acol->val[t] * record.ylo[i];
    } else {
      ++view.open;
      view.last = t;
    }
  }
  return view;
}

// A column without open rows goes to the bound that its cost asks for. False when there is none.
bool settle_column(const OptProblem& p, odat* record, int32_t j, double d) {
  const int32_t bk = opt_colkey(p, j);
  if (bk == PRSLV_BK_FX) {
    record->colkey[j] = PRSLV_SK_FIX;
    return true;
  }
  const bool wanted = d < -tol ? prslv_upper(bk) : d > tol ? prslv_lower(bk) : true;
  if (!wanted) {
    record->raycol = j;
    record->raydir = d < 0.0 ? 1.0 : -1.0;
    return false;
  }
  if (d < -tol)
    record->colkey[j] = PRSLV_SK_UPR;
  else
    record->colkey[j] = prslv_lower(bk) ? PRSLV_SK_LOW : prslv_upper(bk) ? PRSLV_SK_UPR : PRSLV_SK_SUPBAS;
  return true;
}

// Turns the dual row of a column with one open row into a bound of its y. False when it stays a row: its bound meets or
// crosses the other one. Where they meet no source could be told to carry the row.
bool take_bound(const OptProblem& p, odat* record, int32_t j, double d, int32_t i, double a) {
  const int32_t bk = opt_colkey(p, j);
  if (std::fabs(a) < element_min || std::fabs(a) > element_max) return false;
  const double v = d / a;
  const bool haslower = record->gly[i] != nil(p), hasupper = record->guy[i] != nil(p);
  if (bk == PRSLV_BK_FR) {
    if ((haslower && v < record->ylo[i]) || (hasupper && v > record->yup[i])) return false;
    rest_source(p, record, record->gly[i]);
    rest_source(p, record, record->guy[i]);
    record->gly[i] = record->guy[i] = p.numcon + j;
    record->ylo[i] = record->yup[i] = v;
    record->fixorder[record->numfixorder++] = i;
    return true;
  }
  const bool lower = (bk == PRSLV_BK_LO) == (a < 0.0);
  if (lower ? hasupper && v >= record->yup[i] - tol : haslower && v <= record->ylo[i] + tol) return false;
  int32_t& source = (lower ? record->gly : record->guy)[i];
  double& bound = (lower ? record->ylo : record->yup)[i];
  if (source != nil(p) && (lower ? v <= bound : v >= bound)) {
    rest_source(p, record, p.numcon + j);
    return true;
  }
  rest_source(p, record, source);
  source = p.numcon + j;
  bound = v;
  return true;
}

// Settles what needs no optimiser, finds the sources, and numbers what stays. False when the problem has no dual
// feasible point, with the ray in the record.
bool reduce(const OptProblem& p, odat* record) {
  start_rows(p, record);
  for (int32_t j = 0; j < p.numvar; ++j) {
    const int32_t bk = opt_colkey(p, j);
    const ColumnView view = look(p, *record, j);
    record->jnew[j] = -1;  // leaves
    if (bk == PRSLV_BK_FX || view.open == 0) {
      if (!settle_column(p, record, j, view.d)) return false;
      continue;
    }
    const int32_t i = p.acol->sub[view.last];
    const bool stays = bk == PRSLV_BK_RA || view.open > 1 || opt_rowkey(p, i) == PRSLV_BK_RA ||
                       !take_bound(p, record, j, view.d, i, p.acol->val[view.last]);
    record->jnew[j] = stays ? 0 : -1;
  }
  // Rows that were fixed late may have left a kept column without an open row.
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (record->jnew[j] < 0) continue;
    const ColumnView view = look(p, *record, j);
    if (view.open != 0) continue;
    record->jnew[j] = -1;
    if (!settle_column(p, record, j, view.d)) return false;
  }
  int32_t column = 0, last = p.numvar;
  for (int32_t j = 0; j < p.numvar; ++j) record->jnew[j] = record->jnew[j] < 0 ? --last : column++;
  record->keptvar = column;
  column = 0;
  last = p.numcon;
  for (int32_t i = 0; i < p.numcon; ++i) record->inew[i] = is_open(p, *record, i) ? column++ : --last;
  record->keptcon = column;
  for (int32_t i = 0; i < p.numcon; ++i) record->iinv[record->inew[i]] = i;
  for (int32_t j = 0; j < p.numvar; ++j) record->jinv[record->jnew[j]] = j;
  return true;
}

// ---- The choice ----------------------------------------------------------------------------------------------------

// What a form costs its optimiser: rows, longest column that is not dense, dense columns, free columns.
struct FormSize {
  double rows = 0.0, longest = 0.0, dense = 0.0, free = 0.0;
  int32_t threshold = 0;  // columns above are dense
};

// Where columns become dense, from the histogram of their lengths.
int32_t dense_threshold(const int32_t* hist, int32_t top, double rows) {
  int32_t best = top + 1;
  double least = (top + 1.0) * rows, above = 0.0;
  for (int32_t k = top; k >= 1; --k) {
    above += hist[k];
    const double cost = k * rows + above * (0.2 * rows + above);
    if (cost >= least) continue;
    least = cost;
    best = k;
  }
  return best;
}

// Sizes of a form with `count` columns of the given lengths (negative: not a column). hist[top + 1] is scratch.
void measure(const int32_t* length, int32_t count, int32_t parameter, int32_t none, int32_t* hist, FormSize* size) {
  int32_t top = 0;
  for (int32_t k = 0; k < count; ++k) top = std::max(top, length[k]);
  std::fill_n(hist, top + 1, 0);
  for (int32_t k = 0; k < count; ++k)
    if (length[k] >= 0) ++hist[length[k]];
  while (top > 0 && hist[top] == 0) --top;
  size->threshold = parameter == 0 ? none : std::max(parameter / 2, dense_threshold(hist, top, size->rows));
  for (int32_t k = 0; k < count; ++k) {
    if (length[k] > size->threshold)
      size->dense += 1.0;
    else
      size->longest = std::max(size->longest, static_cast<double>(length[k]));
  }
}

enum class Choice { primal, dual, primal_or_count, dual_or_count };

// The choice by sizes alone, as far as it goes.
Choice choose_by_size(const FormSize& p, const FormSize& d) {
  const bool shorter = p.longest < d.longest, sparser = p.dense < d.dense;
  const bool primal = (p.rows / 5.0 < d.rows || 2.0 * p.longest / 3.0 < d.longest) &&
                      (p.rows < d.rows || 9.0 * p.longest < 10.0 * d.longest || sparser) &&
                      (4.0 * p.rows <= 5.0 * d.rows || shorter || sparser) && (p.rows < d.rows || shorter || sparser);
  const Choice start = primal ? Choice::primal : Choice::dual;
  if (p.rows <= d.rows / 8.0) return Choice::primal;
  if (d.rows <= p.rows / 8.0) return Choice::dual;
  if (p.rows <= d.rows && d.longest <= p.longest && p.dense <= d.dense) return start;
  if (d.rows <= p.rows / 2.0 && d.longest <= p.longest && d.dense <= p.dense) return start;
  const bool clear =
      p.rows < d.rows && p.dense / 2.0 < d.dense &&
      (5.0 * p.rows < 4.0 * d.rows || 4.0 * p.longest < 5.0 * d.longest || sparser) &&
      (4.0 * p.rows < 5.0 * d.rows || 4.0 * p.longest < 5.0 * d.longest || p.dense + 10.0 + p.dense / 10.0 < d.dense) &&
      p.longest / 3.0 < d.longest && 2.0 * p.rows < 3.0 * d.rows;
  const bool e = 4.0 * p.rows >= d.rows && !clear;
  if (primal) return e ? Choice::primal_or_count : Choice::primal;
  return d.free >= 2.0 * p.free ? Choice::dual_or_count : Choice::dual;
}

// The choice by the elements of A A' of both forms.
bool dual_by_count(const FormSize& p, const FormSize& d, double pcount, double dcount, bool regularization) {
  const double pa = pcount + p.rows, da = dcount + d.rows;
  const auto square = [](double v) { return v * v; };
  bool dual = true;
  if (p.rows < 2.0 * d.rows || pa < da)
    dual = !(1.2 * p.rows < d.rows || pa * std::pow(1.005, p.dense) < square(d.longest + 1.0) * da *
                                                                          std::pow(1.005, d.dense) /
                                                                          square(p.longest + 1.0));
  if (regularization) return dual;
  // Without regularisation free columns cost extra.
  const double pf = std::max(1.0, std::sqrt(p.free)), df = std::max(1.0, std::sqrt(d.free));
  if (d.free >= std::max(3.0 * p.free, 10.0) && 2.0 * d.dense >= p.dense && 2.0 * da * df >= pa * pf) return false;
  if (p.free >= std::max(3.0 * d.free, 2.0) && 2.0 * p.dense >= d.dense && 2.0 * pa * pf >= da * df) return true;
  return dual;
}

// ---- Building ------------------------------------------------------------------------------------------------------

// The value of a column while its multiplier is not in the dual.
double rest_value(const OptProblem& p, const odat& record, int32_t j) {
  if (record.jnew[j] < record.keptvar) return opt_colshift(p, j).shift;
  switch (record.colkey[j]) {
    case PRSLV_SK_LOW:
    case PRSLV_SK_FIX:
      return p.blx[j];
    case PRSLV_SK_UPR:
      return p.bux[j];
    default:
      return prslv_lower(opt_colkey(p, j)) ? p.blx[j] : prslv_upper(opt_colkey(p, j)) ? p.bux[j] : 0.0;
  }
}

// The activity that y_i multiplies: the bound that the row rests at or is the source of.
double row_bound(const OptProblem& p, const odat& record, int32_t i) {
  if (record.rowkey[i] == PRSLV_SK_LOW || record.rowkey[i] == PRSLV_SK_FIX) return p.blc[i];
  if (record.rowkey[i] == PRSLV_SK_UPR) return p.buc[i];
  const int32_t bk = opt_rowkey(p, i);
  return bk == PRSLV_BK_FR ? 0.0 : prslv_lower(bk) ? p.blc[i] : p.buc[i];
}

void put(odat* record, int32_t column, const spmat* arow, int32_t i, double sign, double shift) {
  spmat* a = record->a;
  a->ptrb[column] = a->ffree;
  for (int32_t t = arow->ptrb[i]; t < arow->ptre[i]; ++t) {
    const int32_t k = record->jnew[arow->sub[t]];
    if (k >= record->keptvar || arow->val[t] == 0.0) continue;
    a->sub[a->ffree] = k;
    a->val[a->ffree++] = sign * arow->val[t];
    record->b[k] -= arow->val[t] * shift;
  }
  a->ptre[column] = a->ffree;
}
void put_unit(odat* record, int32_t column, int32_t row, double value, double cost, OptClasses* at) {
  spmat* a = record->a;
  a->ptrb[column] = a->ffree;
  a->sub[a->ffree] = row;
  a->val[a->ffree++] = value;
  a->ptre[column] = a->ffree;
  record->c[column] = cost;
  opt_enter(record, at, column, false, -1.0);
}

// Counts of the classes and of the elements of the dual.
int64_t count_dual(const OptProblem& p, const spmat* arow, odat* record) {
  int64_t nz = 0;
  record->nfree = record->nbup = 0;
  int32_t columns = record->keptcon;
  for (int32_t r = 0; r < record->keptcon; ++r) {
    const int32_t i = record->iinv[r];
    int64_t elements = 0;
    for (int32_t t = arow->ptrb[i]; t < arow->ptre[i]; ++t)
      elements += arow->val[t] != 0.0 && record->jnew[arow->sub[t]] < record->keptvar;
    nz += elements;
    const bool lower = record->gly[i] != nil(p), upper = record->guy[i] != nil(p);
    if (opt_rowkey(p, i) == PRSLV_BK_RA) {
      ++columns;
      nz += elements;
    } else {
      record->nfree += !lower && !upper;
      record->nbup += lower && upper;
    }
  }
  for (int32_t k = 0; k < record->keptvar; ++k) {
    const int32_t bk = opt_colkey(p, record->jinv[k]);
    const int32_t bounds = bk == PRSLV_BK_RA ? 2 : bk == PRSLV_BK_FR ? 0 : 1;
    columns += bounds;
    nz += bounds;
  }
  record->rnumcon = record->keptvar;
  record->rnumvar = record->nvarstr = columns;
  record->nblo = columns - record->nfree;
  return nz;
}

// The activities of the rows with all columns at rest, and the fixed term of the objective.
void rest_rows(const OptProblem& p, odat* record, double* rho) {
  std::fill_n(rho, p.numcon, 0.0);
  double fixed = p.cfix;
  for (int32_t j = 0; j < p.numvar; ++j) {
    const double x = rest_value(p, *record, j);
    fixed += p.c[j] * x;
    if (x != 0.0) spmat_axpy(x, p.acol, j, rho);
  }
  for (int32_t i = 0; i < p.numcon; ++i) {
    if (opt_rowkey(p, i) == PRSLV_BK_RA) {
      fixed += rho[i] * opt_rowcost(p, i);
      continue;
    }
    const double bound = row_bound(p, *record, i);
    fixed += bound * opt_rowcost(p, i);
    if (is_fixed(p, *record, i)) fixed += (bound - rho[i]) * record->ylo[i];
  }
  record->cfix = -fixed;
}

// The columns of the open rows; ranged rows have their second one behind all of them.
void build_rows(const OptProblem& p, const spmat* arow, const double* rho, odat* record, OptClasses* at) {
  int32_t second = record->keptcon;
  for (int32_t k = 0; k < record->keptcon; ++k) {
    const int32_t i = record->iinv[k];
    const double cc = opt_rowcost(p, i);
    if (opt_rowkey(p, i) == PRSLV_BK_RA) {  // slc and suc: y = slc - suc - cc
      put(record, k, arow, i, 1.0, -cc);
      record->c[k] = rho[i] - p.blc[i];
      record->second[i] = second++;
      opt_enter(record, at, k, false, -1.0);
      continue;
    }
    const double g = rho[i] - row_bound(p, *record, i);
    const bool lower = record->gly[i] != nil(p), upper = record->guy[i] != nil(p);
    const bool upperform = upper && (!lower || std::fabs(record->yup[i]) < std::fabs(record->ylo[i]));
    const double shift = upperform ? record->yup[i] : lower ? record->ylo[i] : 0.0, sign = upperform ? -1.0 : 1.0;
    put(record, k, arow, i, sign, shift);
    record->c[k] = sign * g;
    record->cfix += g * shift;
    opt_enter(record, at, k, !lower && !upper, lower && upper ? record->yup[i] - record->ylo[i] : -1.0);
  }
  for (int32_t r = 0; r < record->keptcon; ++r) {
    const int32_t i = record->iinv[r], k = record->second[i];
    if (k < 0) continue;
    put(record, k, arow, i, -1.0, 0.0);
    record->c[k] = p.buc[i] - rho[i];
    opt_enter(record, at, k, false, -1.0);
  }
}

int32_t build_dual(const OptProblem& p, odat* record) {
  spmat* arow = nullptr;
  Array<double> rho;
  bool ok =
      spmat_transpose(p.acol, nullptr, false, &arow, false) && rho.alloc(p.env, static_cast<std::size_t>(p.numcon));
  if (ok) {
    const int64_t nz = count_dual(p, arow, record);
    ok = opt_allocate(record, nz);
  }
  if (ok) {
    rest_rows(p, record, rho.data());
    OptClasses at = opt_classes(*record);
    for (int32_t k = 0; k < record->keptvar; ++k) record->b[k] = look(p, *record, record->jinv[k]).d;
    build_rows(p, arow, rho.data(), record, &at);
    int32_t column = record->keptcon;
    for (int32_t r = 0; r < record->keptcon; ++r) column += record->second[record->iinv[r]] >= 0;
    for (int32_t k = 0; k < record->keptvar; ++k) {
      const int32_t j = record->jinv[k], bk = opt_colkey(p, j);
      const double m = opt_colshift(p, j).shift;
      record->boundcol[j] = column;
      if (prslv_lower(bk)) put_unit(record, column++, k, 1.0, m - p.blx[j], &at);
      if (prslv_upper(bk)) put_unit(record, column++, k, -1.0, p.bux[j] - m, &at);
    }
    if (column != record->rnumvar || at.lower != record->nblo - record->nbup || at.both != record->nblo ||
        at.free != record->rnumvar)
      sysenv_fatal(record->env, "Counting error");
  }
  spmat_delete(&arow);
  return ok ? OPT_RESP_OK : OPT_RESP_SPACE;
}

// Gives up the dual form.
void drop_dual(const OptProblem& p, odat* record) {
  spmat_delete(&record->a);
  for (Array<int32_t>* list : {&record->gly, &record->guy, &record->rowkey, &record->colkey, &record->second,
                               &record->boundcol, &record->fixorder})
    list->reset();
  for (Array<double>* list : {&record->ylo, &record->yup}) list->reset();
  record->keptcon = record->keptvar = record->numfixorder = 0;
  record->nblo = record->nbup = record->nfree = record->rnumcon = record->rnumvar = record->nvarstr = 0;
  record->cfix = p.cfix;
}

// Lengths of the columns of both forms, -1 for what is no column. primal[numvar], dual[2 * numcon].
void lengths(const OptProblem& p, const odat& record, int32_t* primal, int32_t* dual, FormSize* ps, FormSize* ds) {
  const int32_t m = p.numcon;
  for (int32_t i = 0; i < m; ++i) {
    const bool open = is_open(p, record, i), ranged = opt_rowkey(p, i) == PRSLV_BK_RA;
    ps->rows += opt_rowkey(p, i) != PRSLV_BK_FR;
    dual[i] = open ? 0 : -1;
    dual[m + i] = open && ranged ? 0 : -1;
    ds->free += open && !ranged && record.gly[i] == nil(p) && record.guy[i] == nil(p);
  }
  ds->rows = record.keptvar;
  for (int32_t j = 0; j < p.numvar; ++j) {
    const int32_t bk = opt_colkey(p, j);
    primal[j] = bk == PRSLV_BK_FX ? -1 : 0;
    ps->free += bk == PRSLV_BK_FR;
    const bool kept = record.jnew[j] < record.keptvar;
    for (int32_t t = p.acol->ptrb[j]; t < p.acol->ptre[j]; ++t) {
      const int32_t i = p.acol->sub[t];
      if (primal[j] >= 0 && opt_rowkey(p, i) != PRSLV_BK_FR) ++primal[j];
      if (kept && dual[i] >= 0) ++dual[i];
      if (kept && dual[m + i] >= 0) ++dual[m + i];
    }
  }
}

// Decides by sizes and, where they leave it open, by the elements of A A'. For the count the dual is built.
int32_t decide(const OptOptions& options, const OptProblem& p, odat* record, bool* dual, bool* built) {
  const auto m = static_cast<std::size_t>(p.numcon), n = static_cast<std::size_t>(p.numvar);
  Workspace work(p.env);
  int32_t *primallength, *duallength, *hist, *rowcount;
  work.add(&primallength, n);
  work.add(&duallength, 2 * m);
  work.add(&hist, std::max(m, n) + 2);
  work.add(&rowcount, m);
  if (!work.commit()) return OPT_RESP_SPACE;
  FormSize ps, ds;
  lengths(p, *record, primallength, duallength, &ps, &ds);
  measure(primallength, p.numvar, options.densecoltrh, p.numcon + 1, hist, &ps);
  measure(duallength, 2 * p.numcon, options.densecoltrh, 2 * p.numvar, hist, &ds);
  const Choice choice = choose_by_size(ps, ds);
  *dual = choice == Choice::dual || choice == Choice::dual_or_count;
  if (choice == Choice::primal || choice == Choice::dual) return OPT_RESP_OK;
  const int32_t resp = build_dual(p, record);
  if (resp != OPT_RESP_OK) return resp;
  *built = true;
  // Left out: free rows, fixed columns, dense columns.
  for (std::size_t j = 0; j < n; ++j)
    if (primallength[j] < 0) primallength[j] = INT32_MAX;
  for (int32_t i = 0; i < p.numcon; ++i) rowcount[i] = opt_rowkey(p, i) == PRSLV_BK_FR ? INT32_MAX : 0;
  Array<int32_t> columnlength;
  int64_t pcount = 0, dcount = 0;
  spmat *rows = nullptr, *columns = nullptr;  // a sorted copy of the columns
  bool counted = columnlength.alloc(p.env, static_cast<std::size_t>(record->rnumvar)) &&
                 spmat_transpose(p.acol, nullptr, false, &rows, false) &&
                 spmat_transpose(rows, nullptr, false, &columns, false) &&
                 ordmat_nnzaat(p.env, columns, INT32_MAX, ps.threshold + 1, rowcount, primallength, &pcount);
  spmat_delete(&rows);
  spmat_delete(&columns);
  if (counted) {
    for (int32_t k = 0; k < record->rnumvar; ++k) columnlength[k] = record->a->ptre[k] - record->a->ptrb[k];
    counted = spmat_transpose(record->a, nullptr, false, &rows, false) &&
              spmat_transpose(rows, nullptr, false, &columns, false) &&
              ordmat_nnzaat(p.env, columns, INT32_MAX, ds.threshold + 1, nullptr, columnlength.data(), &dcount);
    spmat_delete(&rows);
    spmat_delete(&columns);
  }
  *dual = counted &&
          dual_by_count(ps, ds, static_cast<double>(pcount), static_cast<double>(dcount), options.regularization);
  return OPT_RESP_OK;
}

}  // namespace

int32_t opt_preparedual(const OptOptions& options, const OptProblem& problem, odat* record) {
  if (options.solveform == OPT_SOLVE_PRIMAL) return OPT_RESP_OK;
  if (!make_room(problem, record)) return OPT_RESP_SPACE;
  if (!reduce(problem, record)) {
    constexpr int32_t dual_infeasible = 5, ray = 6;
    record->settled = true;
    for (OptSolution* s : {&record->itr, &record->bas}) {
      s->defined = true;
      s->prosta = dual_infeasible;
      s->solsta = ray;
    }
    return OPT_RESP_OK;
  }
  bool dual = options.solveform == OPT_SOLVE_DUAL, built = false;
  if (!dual) {
    const int32_t resp = decide(options, problem, record, &dual, &built);
    if (resp != OPT_RESP_OK) return resp;
  }
  if (!dual) {
    drop_dual(problem, record);
    return OPT_RESP_OK;
  }
  record->isdual = true;
  return built ? int32_t{OPT_RESP_OK} : build_dual(problem, record);
}

}  // namespace tarvo
