#include "optimize/optnlp.h"

#include <algorithm>

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

}  // namespace

int32_t opt_nlpsetup(const OptProblem& p, odat* record) {
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
    const bool counts = opt_rowkey(p, i) != PRSLV_BK_FR || opt_rowcost(p, i) != 0.0;
    if (!has_terms(quad, i) || !counts) continue;
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
    if (nonzero(count)) {
      ++blocks;
      record->form = blocks > 1 ? 3 : 2;
    }
  }
  if (record->form != 2) return OPT_RESP_OK;
  return canonical_quad(p, terms, count, record) ? OPT_RESP_OK : OPT_RESP_SPACE;
}

void opt_deletenlp(odat*) {}

void opt_nlpactivities(const OptProblem& p, const double* xx, double* xc) {
  for (int32_t i = 0; i < p.numcon; ++i)
    if (has_terms(p.quad, i)) xc[i] += quad_axpy(p.quad, p.quad.conbegin[i], p.quad.conend[i], 0.0, xx, nullptr);
}

int32_t opt_nlpgradient(const OptProblem& p, const double* xx, const double* y, double* gradient) {
  quad_axpy(p.quad, p.quad.objbegin, p.quad.objend, 1.0, xx, gradient);
  for (int32_t i = 0; i < p.numcon; ++i)
    if (has_terms(p.quad, i)) quad_axpy(p.quad, p.quad.conbegin[i], p.quad.conend[i], -y[i], xx, gradient);
  return OPT_RESP_OK;
}

}  // namespace tarvo
