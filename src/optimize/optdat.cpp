// The primal canonical form: orders, shifts, flips, slacks, and the way back.
#include "optimize/optdat.h"

#include <algorithm>
#include <new>

#include "optimize/optdat_internal.h"
#include "optimize/optnlp.h"

namespace tarvo {

OptProblem opt_problem(const prslvprob& problem) {
  return {problem.env,
          problem.numcon,
          problem.numvar,
          problem.cfix,
          problem.cx.data(),
          problem.cc.data(),
          problem.acol,
          problem.bkc.data(),
          problem.blc.data(),
          problem.buc.data(),
          problem.bkx.data(),
          problem.blx.data(),
          problem.bux.data(),
          problem.quad,
          nullptr,
          true};
}

void opt_activities(const OptProblem& problem, const double* xx, double* xc) {
  std::fill_n(xc, problem.numcon, 0.0);
  for (int32_t j = 0; j < problem.numvar; ++j)
    if (xx[j] != 0.0) spmat_axpy(xx[j], problem.acol, j, xc);
}

bool opt_allocate(odat* record, int64_t nz) {
  sysenv* env = record->env;
  const auto m = static_cast<std::size_t>(record->rnumcon), n = static_cast<std::size_t>(record->rnumvar),
             up = static_cast<std::size_t>(record->nbup);
  if (nz > INT32_MAX || int64_t{record->rnumcon} + record->rnumvar > INT32_MAX) return false;
  record->a = spmat_make(env, record->rnumvar, record->rnumcon);
  if (record->a == nullptr || !spmat_alloc(record->a, static_cast<int32_t>(nz))) return false;
  spmat_putvlen(record->a, record->rnumcon);
  spmat_putnvec(record->a, record->rnumvar);
  bool ok = record->c.alloc(env, n, Fill::zero) && record->b.alloc(env, m, Fill::zero) && record->u.alloc(env, up) &&
            record->varlist.alloc(env, n) && record->upos.alloc(env, n) && record->slackof.alloc(env, m);
  for (OptSolution* s : {&record->itr, &record->bas})
    ok = ok && s->skx.alloc(env, n, Fill::zero) && s->skup.alloc(env, up, Fill::zero) &&
         s->x.alloc(env, n, Fill::zero) && s->z.alloc(env, n, Fill::zero) && s->y.alloc(env, m, Fill::zero) &&
         s->w.alloc(env, up, Fill::zero) && s->zup.alloc(env, up, Fill::zero);
  if (ok) std::fill_n(record->slackof.data(), m, -1);
  return ok;
}

OptClasses opt_classes(const odat& record) {
  const int32_t first = record.nblo - record.nbup;
  return {0, first, record.nblo, first};
}

void opt_enter(odat* record, OptClasses* at, int32_t k, bool isfree, double width) {
  record->upos[k] = -1;
  if (isfree) {
    record->varlist[at->free++] = k;
  } else if (width >= 0.0) {
    record->u[at->both - at->begin] = width;
    record->upos[k] = at->both - at->begin;
    record->varlist[at->both++] = k;
  } else {
    record->varlist[at->lower++] = k;
  }
}

namespace {

// A copy of the columns of a reduced problem without the elements that its rows and columns have left behind.
spmat* live_columns(const OptProblem& p) {
  spmat* live = spmat_clone(p.acol, 0);
  if (live == nullptr) return nullptr;
  for (int32_t j = 0; j < p.numvar; ++j) {
    const int32_t end = live->ptre[j];
    int32_t at = live->ptre[j] = live->ptrb[j];
    if (p.bkx[j] == PRSLV_BK_FX) continue;
    for (int32_t t = live->ptrb[j]; t < end; ++t) {
      if (p.bkc[live->sub[t]] == PRSLV_BK_FR) continue;
      live->sub[at] = live->sub[t];
      live->val[at++] = live->val[t];
    }
    live->ptre[j] = at;
  }
  return live;
}

bool has_quad(const OptProblem& p) {
  if (p.quad.objbegin < p.quad.objend) return true;
  for (int32_t i = 0; p.quad.conbegin != nullptr && i < p.numcon; ++i)
    if (p.quad.conbegin[i] < p.quad.conend[i]) return true;
  return false;
}

// Orders of rows and columns, and the counts of the primal form. The number of elements of its matrix.
int64_t order(const OptProblem& p, odat* record) {
  int32_t row = 0, last = p.numcon, slacks = 0;
  for (int32_t i = 0; i < p.numcon; ++i) {
    const int32_t key = opt_rowkey(p, i);
    if (key == PRSLV_BK_FR) continue;
    record->inew[i] = row++;
    if (key == PRSLV_BK_FX) continue;
    ++slacks;
    record->nbup += key == PRSLV_BK_RA;
  }
  record->rnumcon = row;
  for (int32_t i = 0; i < p.numcon; ++i) {
    if (opt_rowkey(p, i) != PRSLV_BK_FR) continue;
    const bool cost = opt_rowcost(p, i) != 0.0;
    record->nfreecost += cost;
    record->inew[i] = cost ? row++ : --last;
  }
  int32_t column = 0;
  int64_t nz = slacks;
  for (int32_t j = 0; j < p.numvar; ++j) {
    const int32_t key = opt_colkey(p, j);
    if (key == PRSLV_BK_FX) continue;
    record->jnew[j] = column++;
    record->nfree += key == PRSLV_BK_FR;
    record->nbup += key == PRSLV_BK_RA;
    for (int32_t t = p.acol->ptrb[j]; t < p.acol->ptre[j]; ++t) nz += record->inew[p.acol->sub[t]] < record->rnumcon;
  }
  record->nvarstr = column;
  record->rnumvar = column + slacks;
  record->nblo = record->rnumvar - record->nfree;
  for (int32_t j = 0; j < p.numvar; ++j)
    if (opt_colkey(p, j) == PRSLV_BK_FX) record->jnew[j] = column++;
  for (int32_t i = 0; i < p.numcon; ++i) record->iinv[record->inew[i]] = i;
  for (int32_t j = 0; j < p.numvar; ++j) record->jinv[record->jnew[j]] = j;
  return nz;
}

void append(spmat* a, int32_t row, double value) {
  a->sub[a->ffree] = row;
  a->val[a->ffree++] = value;
}

// Columns of the given problem: shifted to 0 and turned round; free rows give their cost to the columns.
void build_columns(const OptProblem& p, odat* record, OptClasses* at) {
  for (int32_t j = 0; j < p.numvar; ++j) {
    const int32_t k = record->jnew[j];
    const int32_t key = opt_colkey(p, j);
    const bool kept = k < record->nvarstr;
    const auto [shift, sign] = opt_colshift(p, j);
    double c = p.c[j];
    if (kept) record->a->ptrb[k] = record->a->ffree;
    for (int32_t t = p.acol->ptrb[j]; t < p.acol->ptre[j]; ++t) {
      const int32_t i = p.acol->sub[t], r = record->inew[i];
      const double a = p.acol->val[t];
      if (r >= record->rnumcon) {
        c += opt_rowcost(p, i) * a;
        continue;
      }
      record->b[r] -= a * shift;
      if (kept) append(record->a, r, sign * a);
    }
    record->cfix += c * shift;
    if (!kept) continue;
    record->a->ptre[k] = record->a->ffree;
    record->c[k] = sign * c;
    opt_enter(record, at, k, key == PRSLV_BK_FR, key == PRSLV_BK_RA ? p.bux[j] - p.blx[j] : -1.0);
  }
}

void build_slacks(const OptProblem& p, odat* record, OptClasses* at) {
  int32_t k = record->nvarstr;
  for (int32_t r = 0; r < record->rnumcon; ++r) {
    const int32_t i = record->iinv[r], key = opt_rowkey(p, i);
    const auto [shift, sign] = opt_rowshift(p, i);
    const double d = -sign * opt_rowcost(p, i);
    record->cfix += d * shift;
    record->b[r] -= sign * shift;
    if (key == PRSLV_BK_FX) continue;
    record->slackof[r] = k;
    record->c[k] = d;
    record->a->ptrb[k] = record->a->ffree;
    append(record->a, r, sign);
    record->a->ptre[k] = record->a->ffree;
    opt_enter(record, at, k, false, key == PRSLV_BK_RA ? p.buc[i] - p.blc[i] : -1.0);
    ++k;
  }
}

// The general optimiser gets its columns near the size of 1.
void scale(const OptOptions& options, odat* record) {
  constexpr int32_t aggressive = 3, none = 1;
  constexpr double least = 100.0;  // below it scaling is not worth a difference
  const auto largest = [](const Array<double>& list) {
    double value = 0.0;
    for (const double v : list) value = std::max(value, std::fabs(v));
    return value;
  };
  record->scaled = true;
  const double cmax = std::max(largest(record->c), 1.0);
  const double bmax = std::max({largest(record->b), largest(record->u), 1.0});
  double p = 1.0, q = 1.0;
  if (options.scaling == aggressive) {
    p = std::sqrt(cmax * bmax);
    q = bmax / (p * p * cmax * cmax);
  } else if (options.scaling != none) {
    p = std::sqrt(bmax);
    q = 1.0 / (std::sqrt(cmax) * p);
  }
  if (p < least) return;
  record->varscale = p;
  record->objscale = q;
  record->cfix *= q;
  for (double& v : record->b) v /= p;
  for (double& v : record->u) v /= p;
  for (double& v : record->c) v *= q * p;
}

int32_t build(const OptOptions& options, const OptProblem& p, bool linear, odat* record) {
  sysenv* env = record->env;
  const auto m = static_cast<std::size_t>(p.numcon), n = static_cast<std::size_t>(p.numvar);
  if (!record->inew.alloc(env, m) || !record->iinv.alloc(env, m) || !record->jnew.alloc(env, n) ||
      !record->jinv.alloc(env, n))
    return OPT_RESP_SPACE;
  record->cfix = p.cfix;
  if (linear) {
    const int32_t resp = opt_preparedual(options, p, record);
    if (resp != OPT_RESP_OK) return resp;
  }
  if (!record->isdual && !record->settled) {
    const int64_t nz = order(p, record);
    if (!opt_allocate(record, nz)) return OPT_RESP_SPACE;
    OptClasses at = opt_classes(*record);
    build_columns(p, record, &at);
    build_slacks(p, record, &at);
    if (!linear) {
      const int32_t resp = opt_nlpsetup(p, record);
      if (resp != OPT_RESP_OK) return resp;
      if (record->form > 2) scale(options, record);
    }
  }
  if (record->settled) return OPT_RESP_OK;
  return spmat_transpose(record->a, nullptr, false, &record->at, false) ? OPT_RESP_OK : OPT_RESP_SPACE;
}

}  // namespace

int32_t opt_prepare(const OptOptions& options, const OptProblem& given, odat** out) {
  OptProblem problem = given;
  *out = nullptr;
  void* place = sysenv_calloc(problem.env, 1, sizeof(odat));
  if (place == nullptr) return OPT_RESP_SPACE;
  auto* record = new (place) odat{};
  record->env = problem.env;
  if (problem.reduced) problem.acol = record->live = live_columns(problem);
  const bool linear = problem.nonlinear == nullptr && !has_quad(problem);
  const int32_t resp = problem.acol == nullptr ? int32_t{OPT_RESP_SPACE} : build(options, problem, linear, record);
  if (resp != OPT_RESP_OK)
    opt_deleteodat(&record);
  else
    *out = record;
  return resp;
}

void opt_deleteodat(odat** record) {
  if (*record == nullptr) return;
  sysenv* env = (*record)->env;
  spmat_delete(&(*record)->live);
  spmat_delete(&(*record)->a);
  spmat_delete(&(*record)->at);
  spmat_delete(&(*record)->q);
  opt_deletenlp(*record);
  (*record)->~odat();
  sysenv_free(env, *record);
  *record = nullptr;
}

// ---- The way back --------------------------------------------------------------------------------------------------

namespace {

void unscale(odat* record) {
  if (!record->scaled) return;
  const double p = record->varscale, dual = 1.0 / (record->objscale * p);
  for (OptSolution* s : {&record->itr, &record->bas}) {
    for (double& v : s->x) v *= p;
    for (Array<double>* list : {&s->y, &s->z, &s->w, &s->zup})
      for (double& v : *list) v *= dual;
  }
  record->cfix /= record->objscale;
  record->scaled = false;
}

// One key for a column with an upper bound, from that of the column and that of the slack of the bound.
void combine_keys(odat* record, int32_t* key) {
  OptSolution& s = record->itr;
  std::copy_n(s.skx.data(), record->rnumvar, key);
  for (int32_t k = 0; k < record->rnumvar; ++k) {
    const int32_t t = record->upos[k];
    if (t < 0 || key[k] == PRSLV_SK_UNK) continue;
    const auto basic = [](int32_t sk) { return sk == PRSLV_SK_SUPBAS || sk == PRSLV_SK_BAS; };
    const bool low = key[k] == PRSLV_SK_LOW, upp = s.skup[t] == PRSLV_SK_LOW;
    if ((!low && !basic(key[k])) || (!upp && !basic(s.skup[t]))) sysenv_fatal(record->env, "Impossible sk");
    if (low && upp) {
      if (s.z[k] < s.zup[t]) {
        key[k] = PRSLV_SK_UPR;
        s.zup[t] -= s.z[k];
        s.w[t] += s.z[k];
        s.z[k] = 0.0;
      } else {
        s.z[k] += s.w[t];
        s.zup[t] += s.w[t];
        s.w[t] = 0.0;
      }
    } else if (upp) {
      key[k] = PRSLV_SK_UPR;
    }
  }
}

// The multipliers of the bounds of a basic solution: reduced costs, split by the keys.
void basic_multipliers(const odat& record, OptSolution* s) {
  const double f = opt_factor(s->prosta);
  for (int32_t k = 0; k < record.rnumvar; ++k) {
    const int32_t t = record.upos[k];
    const double d = f * record.c[k] - spmat_dot(record.a, k, s->y.data());
    const bool upper = t >= 0 && (s->skx[k] == PRSLV_SK_UPR || (s->skx[k] != PRSLV_SK_LOW && d < 0.0));
    s->z[k] = upper ? 0.0 : d;
    if (t < 0) continue;
    s->zup[t] = upper ? -d : 0.0;
    s->w[t] = -s->zup[t];
  }
}

int32_t turned(int32_t key) {
  return key == PRSLV_SK_LOW ? int32_t{PRSLV_SK_UPR} : key == PRSLV_SK_UPR ? int32_t{PRSLV_SK_LOW} : key;
}

void reverse_column(const OptWalk& walk, int32_t j) {
  const OptProblem& p = *walk.problem;
  const odat& record = *walk.record;
  const int32_t bk = opt_colkey(p, j), k = record.jnew[j];
  prslvsol& to = *walk.to;
  if (bk == PRSLV_BK_FX) {
    to.skx[j] = PRSLV_SK_FIX;
    to.xx[j] = walk.s * p.blx[j];
    return;  // its multipliers follow from those of the rows
  }
  const auto [shift, sign] = opt_colshift(p, j);
  const int32_t t = record.upos[k];
  const double z = walk.z[k], zup = t >= 0 ? walk.zup[t] : 0.0;
  to.skx[j] = sign < 0.0 ? turned(walk.key[k]) : walk.key[k];
  to.xx[j] = walk.s * shift + sign * walk.from->x[k];
  to.slx[j] = bk == PRSLV_BK_FR ? 0.0 : sign < 0.0 ? zup : z;
  to.sux[j] = bk == PRSLV_BK_FR ? 0.0 : sign < 0.0 ? z : zup;
}

void split(double value, double* lower, double* upper) {
  *lower = std::max(value, 0.0);
  *upper = std::max(-value, 0.0);
}

// A row, from its slack. xc holds the activities of xx.
void reverse_row(const OptWalk& walk, int32_t i) {
  const OptProblem& p = *walk.problem;
  const odat& record = *walk.record;
  prslvsol& to = *walk.to;
  const int32_t bk = opt_rowkey(p, i), r = record.inew[i];
  const double cc = walk.s * opt_rowcost(p, i);
  if (bk == PRSLV_BK_FR) {
    to.skc[i] = walk.basic ? PRSLV_SK_BAS : PRSLV_SK_SUPBAS;
    to.y[i] = -cc;
    to.slc[i] = to.suc[i] = 0.0;
    return;
  }
  if (r >= record.rnumcon) sysenv_fatal(record.env, "inew[i]>=rnumcon");
  to.y[i] = walk.from->y[r];
  if (bk == PRSLV_BK_FX) {
    to.skc[i] = PRSLV_SK_FIX;
    to.xc[i] = walk.s * p.blc[i];
    split(cc + to.y[i], &to.slc[i], &to.suc[i]);
    return;
  }
  const auto [shift, sign] = opt_rowshift(p, i);
  const int32_t k = record.slackof[r], t = record.upos[k];
  const double z = walk.z[k], zup = t >= 0 ? walk.zup[t] : 0.0;
  to.skc[i] = sign > 0.0 ? turned(walk.key[k]) : walk.key[k];
  to.xc[i] = -sign * (walk.s * shift + walk.from->x[k]);
  to.slc[i] = sign > 0.0 ? zup : z;
  to.suc[i] = sign > 0.0 ? z : zup;
}

int32_t reverse_primal(const OptWalk& walk, odat* record, int32_t nart, const int32_t* artlist) {
  const OptProblem& p = *walk.problem;
  prslvsol& to = *walk.to;
  for (int32_t j = 0; j < p.numvar; ++j) reverse_column(walk, j);
  opt_activities(p, to.xx, to.xc);
  const int32_t resp = opt_nlpactivities(p, record, to.xx, to.xc);
  for (int32_t i = 0; i < p.numcon; ++i) reverse_row(walk, i);
  for (int32_t k = 0; k < nart && walk.basic; ++k) to.skc[walk.record->iinv[artlist[k]]] = PRSLV_SK_BAS;
  return resp;
}

// The multipliers of the fixed columns: what the rows leave of the gradient of the objective.
int32_t reverse_fixed(const OptWalk& walk, odat* record) {
  const OptProblem& p = *walk.problem;
  prslvsol& to = *walk.to;
  Array<double> gradient;
  int32_t resp = OPT_RESP_OK;
  if (walk.s != 0.0 && !record->isdual && record->form > 1) {
    if (!gradient.alloc(p.env, static_cast<std::size_t>(p.numvar), Fill::zero))
      resp = OPT_RESP_SPACE;
    else
      resp = opt_nlpgradient(p, record, to.xx, to.y, gradient.data());
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (opt_colkey(p, j) != PRSLV_BK_FX) continue;
    const double g = gradient.empty() ? 0.0 : gradient[j];
    split(walk.s * p.c[j] + g - spmat_dot(p.acol, j, to.y), &to.slx[j], &to.sux[j]);
  }
  return resp;
}

// The multipliers of a basic solution from its keys, on the data of the given problem.
void multipliers_by_keys(const OptWalk& walk) {
  const OptProblem& p = *walk.problem;
  prslvsol& to = *walk.to;
  const auto by_key = [](int32_t key, double d, double* lower, double* upper) {
    if (key == PRSLV_SK_LOW || key == PRSLV_SK_UPR) {
      *lower = key == PRSLV_SK_LOW ? d : 0.0;
      *upper = key == PRSLV_SK_UPR ? -d : 0.0;
    } else {
      split(d, lower, upper);
    }
  };
  for (int32_t i = 0; i < p.numcon; ++i)
    by_key(to.skc[i], walk.s * opt_rowcost(p, i) + to.y[i], &to.slc[i], &to.suc[i]);
  for (int32_t j = 0; j < p.numvar; ++j)
    by_key(to.skx[j], walk.s * p.c[j] - spmat_dot(p.acol, j, to.y), &to.slx[j], &to.sux[j]);
}

}  // namespace

int32_t opt_reverse(const OptProblem& given, odat* record, prslvsol* itr, prslvsol* bas, int32_t nart,
                    const int32_t* artlist) {
  OptProblem problem = given;
  if (record->live != nullptr) problem.acol = record->live;
  Array<int32_t> key;
  if (!key.alloc(problem.env, static_cast<std::size_t>(record->rnumvar))) return OPT_RESP_SPACE;
  unscale(record);
  int32_t result = OPT_RESP_OK;
  for (const bool basic : {false, true}) {
    OptSolution& from = basic ? record->bas : record->itr;
    prslvsol* to = basic ? bas : itr;
    if (to == nullptr) continue;
    to->defined = from.defined;
    if (!from.defined) continue;
    OptWalk walk{&problem, record, &from, nullptr, nullptr, nullptr, to, basic, opt_factor(from.prosta)};
    to->prosta = from.prosta;
    to->solsta = from.solsta;
    if (record->settled) {
      opt_getdualsol(walk);
    } else {
      if (basic)
        basic_multipliers(*record, &from);
      else
        combine_keys(record, key.data());
      walk.key = basic ? from.skx.data() : key.data();
      walk.z = from.z.data();
      walk.zup = from.zup.data();
      if (!record->isdual) {
        for (const int32_t resp : {reverse_primal(walk, record, nart, artlist), reverse_fixed(walk, record)})
          if (result == OPT_RESP_OK) result = resp;
      } else if (basic) {
        result = opt_getdualbas(walk, nart, artlist);
      } else {
        opt_getdualsol(walk);
      }
    }
    if (basic) multipliers_by_keys(walk);
  }
  return result;
}

}  // namespace tarvo
