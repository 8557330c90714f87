#include "optimize/optnlp.h"

#include <algorithm>
#include <new>

#include "math/symmat.h"
#include "optimize/optdat_internal.h"

namespace tarvo {

namespace {

constexpr double negligible = 1e-16;  // quadratic terms up to here are none

// y += alpha * Q x for the terms begin..end of a lower triangle, and 0.5 x'Q x.
double quad_axpy(const prslvquad& quad, int32_t begin, int32_t end, double alpha, const double* x, double* y) {
  double value = 0.0;
  for (int32_t t = begin; t < end; ++t) {
    const int32_t i = quad.subi[t], j = quad.subj[t];
    const double v = quad.val[t];
    value += (i == j ? 0.5 : 1.0) * v * x[i] * x[j];
    if (y == nullptr) continue;
    y[i] += alpha * v * x[j];
    if (i != j) y[j] += alpha * v * x[i];
  }
  return value;
}

bool has_terms(const prslvquad& quad, int32_t i) {
  return quad.conbegin != nullptr && quad.conbegin[i] < quad.conend[i];
}

// The sign that a block of a row must have; 0 where it may not matter.
int32_t block_sign(const OptProblem& p, int32_t i) {
  switch (opt_rowkey(p, i)) {
    case PRSLV_BK_FR:
      return opt_rowcost(p, i) < 0.0 ? -1 : 1;
    case PRSLV_BK_UP:
      return 1;
    case PRSLV_BK_LO:
      return -1;
    default:
      return 0;
  }
}

// Form 2: Q in canonical terms. With xx = m + S x the objective gains (S Q m)'x + 0.5 m'Q m, and Q becomes S Q S on the
// columns that stay.
bool canonical_quad(const OptProblem& p, const SymTerm* terms, int32_t count, odat* record) {
  const auto n = static_cast<std::size_t>(record->rnumvar);
  record->q = spmat_make(record->env, record->rnumvar, record->rnumvar);
  if (record->q == nullptr || !spmat_alloc(record->q, count)) return false;
  spmat* q = record->q;
  spmat_putvlen(q, record->rnumvar);
  spmat_putnvec(q, record->rnumvar);
  Array<int32_t> length;
  if (!length.alloc(record->env, n, Fill::zero)) return false;
  const auto stays = [record](int32_t j) { return record->jnew[j] < record->nvarstr; };
  for (int32_t t = 0; t < count; ++t)
    if (stays(terms[t].i) && stays(terms[t].j)) ++length[record->jnew[terms[t].j]];
  for (int32_t k = 0; k < record->rnumvar; ++k) {
    q->ptrb[k] = q->ptre[k] = q->ffree;
    q->ffree += length[k];
  }
  for (int32_t t = 0; t < count; ++t) {
    const auto [i, j, v] = terms[t];
    const OptShift si = opt_colshift(p, i), sj = opt_colshift(p, j);
    record->cfix += (i == j ? 0.5 : 1.0) * v * si.shift * sj.shift;
    if (stays(i)) record->c[record->jnew[i]] += si.sign * v * sj.shift;
    if (i != j && stays(j)) record->c[record->jnew[j]] += sj.sign * v * si.shift;
    if (!stays(i) || !stays(j)) continue;
    int32_t& at = q->ptre[record->jnew[j]];
    q->sub[at] = record->jnew[i];
    q->val[at++] = si.sign * sj.sign * v;
  }
  return true;
}

bool counts(const OptProblem& p, int32_t i) { return opt_rowkey(p, i) != PRSLV_BK_FR || opt_rowcost(p, i) != 0.0; }

// ---- Set-up of the forms above 2 -----------------------------------------------------------------------------------

// Lists of pairs (column, row) that become a pattern.
struct Pairs {
  Array<int32_t> list;  // column, row, column, row, ...
  std::size_t count = 0;
  [[nodiscard]] bool reserve(sysenv* env, std::size_t n) {
    return 2 * n <= list.size() || list.resize_keep(env, std::max(2 * n, 2 * list.size()));
  }
  [[nodiscard]] bool add(sysenv* env, int32_t column, int32_t row) {
    if (!reserve(env, count + 1)) return false;
    list[2 * count] = column;
    list[2 * count + 1] = row;
    ++count;
    return true;
  }
};

// The pattern of the pairs, each position once and ascending. NULL when out of memory.
spmat* make_pattern(sysenv* env, const Pairs& pairs, int32_t nvec, int32_t vlen) {
  spmat *loose = spmat_make(env, nvec, vlen), *rows = nullptr, *sorted = nullptr;
  bool ok = loose != nullptr && pairs.count <= INT32_MAX && spmat_alloc(loose, static_cast<int32_t>(pairs.count));
  if (ok) {
    spmat_putvlen(loose, vlen);
    spmat_putnvec(loose, nvec);
    for (int32_t j = 0; j < nvec; ++j) loose->ptre[j] = 0;
    for (std::size_t k = 0; k < pairs.count; ++k) ++loose->ptre[pairs.list[2 * k]];
    int32_t at = 0;
    for (int32_t j = 0; j < nvec; ++j) {
      const int32_t length = loose->ptre[j];
      loose->ptrb[j] = loose->ptre[j] = at;
      at += length;
    }
    loose->ffree = at;
    for (std::size_t k = 0; k < pairs.count; ++k) {
      const int32_t place = loose->ptre[pairs.list[2 * k]]++;
      loose->sub[place] = pairs.list[2 * k + 1];
      loose->val[place] = 0.0;
    }
    // Two transposes sort; then equal neighbours are one.
    ok = spmat_transpose(loose, nullptr, false, &rows, false) && spmat_transpose(rows, nullptr, false, &sorted, false);
    for (int32_t j = 0; ok && j < nvec; ++j) {
      int32_t* first = sorted->sub + sorted->ptrb[j];
      sorted->ptre[j] =
          sorted->ptrb[j] + static_cast<int32_t>(std::unique(first, sorted->sub + sorted->ptre[j]) - first);
    }
  }
  spmat_delete(&loose);
  spmat_delete(&rows);
  if (!ok) spmat_delete(&sorted);
  return sorted;
}

bool stays(const odat& record, int32_t j) { return record.jnew[j] < record.nvarstr; }

// Adds the pattern of quadratic terms, restricted to the columns that stay, to that of the Hessian.
bool opt_hsparsity(const prslvquad& quad, int32_t begin, int32_t end, const odat& record, Pairs* pairs) {
  for (int32_t t = begin; t < end; ++t) {
    if (!stays(record, quad.subi[t]) || !stays(record, quad.subj[t])) continue;
    const int32_t i = record.jnew[quad.subi[t]], j = record.jnew[quad.subj[t]];
    if (i != j && !pairs->add(record.env, std::min(i, j), std::max(i, j))) return false;
  }
  return true;
}

// Adds the pattern of the user's Hessian.
int32_t opt_addnlhessp(const OptProblem& p, odat* record, Pairs* pairs) {
  OptNlp& nlp = *record->nlp;
  OptNlStructure ask{};
  ask.row = -1;
  ask.objective = nlp.objective;
  ask.numrows = nlp.numuser;
  ask.rows = nlp.user.data();
  ask.numhess = &nlp.maxhess;
  int32_t resp = p.nonlinear->structure(p.nonlinear->handle, ask);
  if (resp != OPT_RESP_OK) return resp;
  const auto room = static_cast<std::size_t>(std::max(nlp.maxhess, 0));
  if (!nlp.hessubi.alloc(p.env, room) || !nlp.hessubj.alloc(p.env, room) || !nlp.hessval.alloc(p.env, room))
    return OPT_RESP_SPACE;
  ask.maxhess = nlp.maxhess;
  ask.hessubi = nlp.hessubi.data();
  ask.hessubj = nlp.hessubj.data();
  if (room != 0) resp = p.nonlinear->structure(p.nonlinear->handle, ask);
  for (int32_t t = 0; resp == OPT_RESP_OK && t < nlp.maxhess; ++t) {
    const int32_t i = nlp.hessubi[t], j = nlp.hessubj[t];
    if (i < 0 || i >= p.numvar) return OPT_RESP_HESSUBI;
    if (j < 0 || j >= p.numvar) return OPT_RESP_HESSUBJ;
    if (!stays(*record, i) || !stays(*record, j)) continue;
    const int32_t a = record->jnew[i], b = record->jnew[j];
    if (a != b && !pairs->add(p.env, std::min(a, b), std::max(a, b))) return OPT_RESP_SPACE;
  }
  return resp;
}

// Finds the user's nonlinear functions: the rows and the variables of their gradients.
int32_t user_structure(const OptProblem& p, odat* record) {
  OptNlp& nlp = *record->nlp;
  OptNlStructure ask{};
  const auto m = static_cast<std::size_t>(p.numcon), n = static_cast<std::size_t>(p.numvar);
  if (!nlp.user.alloc(p.env, m) || !nlp.userptr.alloc(p.env, m + 1) || !nlp.objsub.alloc(p.env, n))
    return OPT_RESP_SPACE;
  int32_t total = 0;
  nlp.userptr[0] = 0;
  for (int32_t r = -1; r < p.numcon; ++r) {
    const int32_t i = r < 0 ? -1 : record->iinv[r];
    if (i >= 0 && !counts(p, i)) continue;
    int32_t number = 0;
    ask.row = i;
    ask.numgrad = &number;
    ask.gradsub = nlp.objsub.data();  // room for one gradient
    const int32_t resp = p.nonlinear->structure(p.nonlinear->handle, ask);
    if (resp != OPT_RESP_OK) return resp;
    for (int32_t t = 0; t < number; ++t)
      if (nlp.objsub[t] < 0 || nlp.objsub[t] >= p.numvar) return OPT_RESP_USERFUNC;
    if (number <= 0) continue;
    if (i < 0) {
      nlp.objective = true;
      record->form = 4;
      continue;
    }
    if (number > INT32_MAX - total ||
        !nlp.usersub.resize_keep(p.env, std::max(static_cast<std::size_t>(total + number), nlp.usersub.size())))
      return OPT_RESP_SPACE;
    std::copy_n(nlp.objsub.data(), number, nlp.usersub.data() + total);
    total += number;
    nlp.user[nlp.numuser++] = i;
    nlp.userptr[nlp.numuser] = total;
    record->form = opt_rowkey(p, i) == PRSLV_BK_FR ? std::max(record->form == 3 ? 5 : 4, record->form) : 5;
  }
  return nlp.useryval.alloc(p.env, m) && nlp.rowval.alloc(p.env, m) &&
                 nlp.usergrad.alloc(p.env, static_cast<std::size_t>(total))
             ? OPT_RESP_OK
             : OPT_RESP_SPACE;
}

// The rows with nonlinear content in canonical order, and the patterns of both derivatives.
int32_t make_patterns(const OptProblem& p, odat* record) {
  OptNlp& nlp = *record->nlp;
  const auto m = static_cast<std::size_t>(p.numcon), n = static_cast<std::size_t>(p.numvar);
  if (!nlp.rows.alloc(p.env, m) || !nlp.xx.alloc(p.env, n) || !nlp.dense.alloc(p.env, n, Fill::zero))
    return OPT_RESP_SPACE;
  Pairs jacobian, hessian;
  const auto touch = [record](Pairs* pairs, int32_t row, int32_t j) {
    return !stays(*record, j) || pairs->add(record->env, row, record->jnew[j]);
  };
  int32_t next = 0;  // of the user's rows
  for (int32_t r = 0; r < p.numcon; ++r) {
    const int32_t i = record->iinv[r];
    const bool user = next < nlp.numuser && nlp.user[next] == i;
    if (!counts(p, i) || (!user && !has_terms(p.quad, i))) continue;
    const int32_t k = nlp.numrows++;
    nlp.rows[k] = i;
    for (int32_t t = user ? nlp.userptr[next] : 0; user && t < nlp.userptr[next + 1]; ++t)
      if (!touch(&jacobian, k, nlp.usersub[t])) return OPT_RESP_SPACE;
    next += user;
    if (!has_terms(p.quad, i)) continue;
    for (int32_t t = p.quad.conbegin[i]; t < p.quad.conend[i]; ++t)
      if (!touch(&jacobian, k, p.quad.subi[t]) || !touch(&jacobian, k, p.quad.subj[t])) return OPT_RESP_SPACE;
    if (!opt_hsparsity(p.quad, p.quad.conbegin[i], p.quad.conend[i], *record, &hessian)) return OPT_RESP_SPACE;
  }
  if (!opt_hsparsity(p.quad, p.quad.objbegin, p.quad.objend, *record, &hessian)) return OPT_RESP_SPACE;
  if (p.nonlinear != nullptr) {
    const int32_t resp = opt_addnlhessp(p, record, &hessian);
    if (resp != OPT_RESP_OK) return resp;
  }
  for (int32_t k = 0; k < record->nvarstr; ++k)
    if (!hessian.add(p.env, k, k)) return OPT_RESP_SPACE;
  nlp.jacobian = make_pattern(p.env, jacobian, nlp.numrows, record->rnumvar);
  nlp.hessian = make_pattern(p.env, hessian, record->rnumvar, record->rnumvar);
  return nlp.jacobian != nullptr && nlp.hessian != nullptr ? OPT_RESP_OK : OPT_RESP_SPACE;
}

// Checks the blocks of quadratic terms and counts those that are not zero. Form 2 gets its Q.
int32_t quadratic_blocks(const OptProblem& p, odat* record) {
  const prslvquad& quad = p.quad;
  int32_t longest = quad.objend - quad.objbegin;
  for (int32_t i = 0; i < p.numcon; ++i)
    if (has_terms(quad, i)) longest = std::max(longest, quad.conend[i] - quad.conbegin[i]);
  Workspace work(p.env);
  SymTerm* terms = nullptr;
  double* diag = nullptr;
  work.add(&terms, static_cast<std::size_t>(longest));
  work.add(&diag, static_cast<std::size_t>(p.numvar), Fill::zero);
  if (!work.commit()) return OPT_RESP_SPACE;
  const auto nonzero = [terms](int32_t count) {
    return std::any_of(terms, terms + count, [](const SymTerm& t) { return std::fabs(t.value) > negligible; });
  };
  int32_t blocks = 0;
  record->form = 1;
  for (int32_t i = 0; i < p.numcon; ++i) {
    if (!has_terms(quad, i) || !counts(p, i)) continue;
    const int32_t count = symmat_gather(quad.subi, quad.subj, quad.val, quad.conbegin[i], quad.conend[i], terms);
    if (!symmat_test(terms, count, block_sign(p, i), diag)) return OPT_RESP_NOTCONVEX;
    if (!nonzero(count)) continue;
    ++blocks;
    record->form = 3;
  }
  int32_t count = 0;
  if (quad.objbegin < quad.objend) {
    count = symmat_gather(quad.subi, quad.subj, quad.val, quad.objbegin, quad.objend, terms);
    if (!symmat_test(terms, count, 1, diag)) return OPT_RESP_NOTCONVEX;
    if (nonzero(count)) record->form = ++blocks > 1 || p.nonlinear != nullptr ? 3 : 2;
  }
  if (record->form != 2) return OPT_RESP_OK;
  return canonical_quad(p, terms, count, record) ? OPT_RESP_OK : OPT_RESP_SPACE;
}

// ---- Evaluation ----------------------------------------------------------------------------------------------------

// A canonical point in terms of the given problem.
void given_point(const OptProblem& p, const odat& record, const double* x, double* xx) {
  for (int32_t j = 0; j < p.numvar; ++j) {
    const auto [shift, sign] = opt_colshift(p, j);
    xx[j] = shift + (stays(record, j) ? sign * record.varscale * x[record.jnew[j]] : 0.0);
  }
}
// What a derivative by xx_j counts for one by its canonical column.
double chain(const OptProblem& p, const odat& record, int32_t j) { return opt_colshift(p, j).sign * record.varscale; }

// The factor of row i in the canonical Lagrangian objective - y'rows: that of a free row with a cost is in the
// objective.
double row_factor(const OptProblem& p, const odat& record, int32_t i, const double* y) {
  return opt_rowkey(p, i) == PRSLV_BK_FR ? record.objscale * opt_rowcost(p, i) : -y[record.inew[i]] / record.varscale;
}

// The user's values at nlp->xx: functions, gradients of the rows, and the gradient of the objective in nlp->dense.
int32_t user_values(const OptProblem& p, OptNlp* nlp, double* objective, bool gradients) {
  if (p.nonlinear == nullptr) return OPT_RESP_OK;
  OptNlValues ask{};
  ask.xx = nlp->xx.data();
  ask.numrows = nlp->numuser;
  ask.rows = nlp->user.data();
  ask.objective = objective;
  ask.rowval = nlp->useryval.data();
  if (gradients) {
    ask.objgrad = nlp->objective ? nlp->dense.data() : nullptr;
    ask.rowptr = nlp->userptr.data();
    ask.rowsub = nlp->usersub.data();
    ask.rowgrad = nlp->usergrad.data();
  }
  return p.nonlinear->values(p.nonlinear->handle, ask);
}

// Adds value at (i, j), given indices of any order, to the Hessian.
void add_hessian(const OptProblem& p, odat* record, int32_t i, int32_t j, double value) {
  if (!stays(*record, i) || !stays(*record, j)) return;
  spmat* h = record->nlp->hessian;
  const int32_t a = std::max(record->jnew[i], record->jnew[j]), b = std::min(record->jnew[i], record->jnew[j]);
  const int32_t *first = h->sub + h->ptrb[b], *last = h->sub + h->ptre[b];
  const int32_t* at = std::lower_bound(first, last, a);
  if (at != last && *at == a) h->val[at - h->sub] += value * chain(p, *record, i) * chain(p, *record, j);
}

int32_t user_hessian(const OptProblem& p, odat* record, const double* y) {
  OptNlp& nlp = *record->nlp;
  if (p.nonlinear == nullptr || nlp.maxhess == 0) return OPT_RESP_OK;
  for (int32_t k = 0; k < nlp.numuser; ++k) nlp.useryval[k] = -row_factor(p, *record, nlp.user[k], y);
  int32_t number = 0;
  OptNlValues ask{};
  ask.xx = nlp.xx.data();
  ask.numrows = nlp.numuser;
  ask.rows = nlp.user.data();
  ask.objfactor = record->objscale;
  ask.y = nlp.useryval.data();
  ask.maxhess = nlp.maxhess;
  ask.numhess = &number;
  ask.hessubi = nlp.hessubi.data();
  ask.hessubj = nlp.hessubj.data();
  ask.hessval = nlp.hessval.data();
  const int32_t resp = p.nonlinear->values(p.nonlinear->handle, ask);
  if (resp != OPT_RESP_OK) return resp;
  for (int32_t t = 0; t < std::min(number, nlp.maxhess); ++t) {
    if (nlp.hessubi[t] < 0 || nlp.hessubi[t] >= p.numvar) return OPT_RESP_HESSUBI;
    if (nlp.hessubj[t] < 0 || nlp.hessubj[t] >= p.numvar) return OPT_RESP_HESSUBJ;
    add_hessian(p, record, nlp.hessubi[t], nlp.hessubj[t], nlp.hessval[t]);
  }
  return OPT_RESP_OK;
}

// Turns a dense gradient by xx into one by the canonical columns, added, and clears it.
void opt_scalgraddense(const OptProblem& p, const odat& record, double* dense, double* gradient) {
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (stays(record, j)) gradient[record.jnew[j]] += chain(p, record, j) * dense[j];
    dense[j] = 0.0;
  }
}

}  // namespace

int32_t opt_nlpsetup(const OptProblem& p, odat* record) {
  int32_t resp = quadratic_blocks(p, record);
  if (resp != OPT_RESP_OK || (record->form < 3 && p.nonlinear == nullptr)) return resp;
  void* place = sysenv_calloc(record->env, 1, sizeof(OptNlp));
  if (place == nullptr) return OPT_RESP_SPACE;
  record->nlp = new (place) OptNlp{};
  if (p.nonlinear != nullptr) resp = user_structure(p, record);
  return resp != OPT_RESP_OK ? resp : make_patterns(p, record);
}

void opt_deletenlp(odat* record) {
  OptNlp* nlp = record->nlp;
  if (nlp == nullptr) return;
  spmat_delete(&nlp->jacobian);
  spmat_delete(&nlp->hessian);
  nlp->~OptNlp();
  sysenv_free(record->env, nlp);
  record->nlp = nullptr;
}

int32_t opt_eval(const OptProblem& p, odat* record, const double* x, const double* y, double* objective, double* row,
                 double* gradient) {
  OptNlp& nlp = *record->nlp;
  const prslvquad& quad = p.quad;
  const double q = record->objscale;
  double f0 = 0.0;
  *objective = 0.0;
  if (gradient != nullptr) std::fill_n(gradient, record->rnumvar, 0.0);
  given_point(p, *record, x, nlp.xx.data());
  double* dense = nlp.dense.data();
  std::fill_n(dense, p.numvar, 0.0);
  const int32_t resp = user_values(p, &nlp, &f0, gradient != nullptr);
  if (resp != OPT_RESP_OK) return resp;
  if (!nlp.objective) f0 = 0.0;
  for (int32_t j = 0; j < p.numvar; ++j) dense[j] *= q;
  double* wanted = gradient != nullptr ? dense : nullptr;
  f0 += quad_axpy(quad, quad.objbegin, quad.objend, q, nlp.xx.data(), wanted);
  int32_t next = 0;
  for (int32_t k = 0; k < nlp.numrows; ++k) {
    const int32_t i = nlp.rows[k];
    const double factor = wanted != nullptr ? row_factor(p, *record, i, y) : 0.0;
    double value = 0.0;
    if (next < nlp.numuser && nlp.user[next] == i) {
      value = nlp.useryval[next];
      for (int32_t t = nlp.userptr[next]; wanted != nullptr && t < nlp.userptr[next + 1]; ++t)
        dense[nlp.usersub[t]] += factor * nlp.usergrad[t];
      ++next;
    }
    if (has_terms(quad, i)) value += quad_axpy(quad, quad.conbegin[i], quad.conend[i], factor, nlp.xx.data(), wanted);
    if (opt_rowkey(p, i) == PRSLV_BK_FR)
      f0 += opt_rowcost(p, i) * value;
    else
      row[record->inew[i]] += value / record->varscale;
  }
  *objective = q * f0;
  if (gradient != nullptr) opt_scalgraddense(p, *record, dense, gradient);
  return OPT_RESP_OK;
}

int32_t opt_evala(const OptProblem& p, odat* record, const double* x, const double* y) {
  OptNlp& nlp = *record->nlp;
  const prslvquad& quad = p.quad;
  given_point(p, *record, x, nlp.xx.data());
  double f0 = 0.0;
  double* dense = nlp.dense.data();
  int32_t resp = user_values(p, &nlp, &f0, true);
  std::fill_n(dense, p.numvar, 0.0);
  if (resp != OPT_RESP_OK) return resp;
  std::fill_n(nlp.hessian->val, nlp.hessian->ffree, 0.0);
  const auto add_terms = [&](int32_t begin, int32_t end, double factor) {
    for (int32_t t = begin; t < end; ++t) add_hessian(p, record, quad.subi[t], quad.subj[t], factor * quad.val[t]);
  };
  add_terms(quad.objbegin, quad.objend, record->objscale);
  int32_t next = 0;
  for (int32_t k = 0; k < nlp.numrows; ++k) {
    const int32_t i = nlp.rows[k];
    const bool user = next < nlp.numuser && nlp.user[next] == i;
    const int32_t first = user ? nlp.userptr[next] : 0, last = user ? nlp.userptr[next + 1] : 0;
    next += user;
    for (int32_t t = first; t < last; ++t) dense[nlp.usersub[t]] += nlp.usergrad[t];
    const int32_t begin = has_terms(quad, i) ? quad.conbegin[i] : 0, end = has_terms(quad, i) ? quad.conend[i] : 0;
    quad_axpy(quad, begin, end, 1.0, nlp.xx.data(), dense);
    add_terms(begin, end, row_factor(p, *record, i, y));
    for (int32_t t = nlp.jacobian->ptrb[k]; t < nlp.jacobian->ptre[k]; ++t) {
      const int32_t j = record->jinv[nlp.jacobian->sub[t]];
      nlp.jacobian->val[t] = chain(p, *record, j) / record->varscale * dense[j];
    }
    for (int32_t t = first; t < last; ++t) dense[nlp.usersub[t]] = 0.0;
    for (int32_t t = begin; t < end; ++t) dense[quad.subi[t]] = dense[quad.subj[t]] = 0.0;
  }
  return user_hessian(p, record, y);
}

int32_t opt_nlpactivities(const OptProblem& p, odat* record, const double* xx, double* xc) {
  for (int32_t i = 0; i < p.numcon; ++i)
    if (has_terms(p.quad, i)) xc[i] += quad_axpy(p.quad, p.quad.conbegin[i], p.quad.conend[i], 0.0, xx, nullptr);
  if (p.nonlinear == nullptr || record->nlp == nullptr) return OPT_RESP_OK;
  OptNlp& nlp = *record->nlp;
  std::copy_n(xx, p.numvar, nlp.xx.data());
  double f0 = 0.0;
  const int32_t resp = user_values(p, &nlp, &f0, false);
  for (int32_t k = 0; k < nlp.numuser && resp == OPT_RESP_OK; ++k) xc[nlp.user[k]] += nlp.useryval[k];
  return resp;
}

int32_t opt_nlpgradient(const OptProblem& p, odat* record, const double* xx, const double* y, double* gradient) {
  if (p.nonlinear != nullptr && record->nlp != nullptr) {
    OptNlp& nlp = *record->nlp;
    std::copy_n(xx, p.numvar, nlp.xx.data());
    std::fill_n(nlp.dense.data(), p.numvar, 0.0);
    double f0 = 0.0;
    const int32_t resp = user_values(p, &nlp, &f0, true);
    if (resp != OPT_RESP_OK) return resp;
    for (int32_t j = 0; j < p.numvar; ++j) gradient[j] += nlp.dense[j];
    for (int32_t k = 0; k < nlp.numuser; ++k)
      for (int32_t t = nlp.userptr[k]; t < nlp.userptr[k + 1]; ++t)
        gradient[nlp.usersub[t]] -= y[nlp.user[k]] * nlp.usergrad[t];
  }
  quad_axpy(p.quad, p.quad.objbegin, p.quad.objend, 1.0, xx, gradient);
  for (int32_t i = 0; i < p.numcon; ++i)
    if (has_terms(p.quad, i)) quad_axpy(p.quad, p.quad.conbegin[i], p.quad.conend[i], -y[i], xx, gradient);
  return OPT_RESP_OK;
}

}  // namespace tarvo
