// Points without a basis, second part: a basis of superbasic variables.
#include <algorithm>
#include <cmath>

#include "misc/prque.h"
#include "order/blkord.h"
#include "simplex/clean.h"
#include "simplex/simplex_internal.h"

namespace tarvo {

namespace {

constexpr double smallest_pivot = 0.001;

struct Crash {
  sysenv* env;
  const SimplexProblem& p;
  simplexbasis* basis;
  int32_t numbasic = 0;     // entries of the list so far
  int32_t* rptr = nullptr;  // [numcon + 1] the wanted columns by row
  int32_t* rsub = nullptr;
  double* rval = nullptr;
  double* largest = nullptr;  // [numvar] largest magnitude of a column
  int8_t* wanted = nullptr;   // [numvar] 1 superbasic or basic, 2 also well scaled
  int8_t* used = nullptr;     // [numvar] in the list, or tried before
  int8_t* open = nullptr;     // [numcon] no basic variable was chosen for the row yet
  int32_t *rset = nullptr, *inew = nullptr, *cset = nullptr;
  int32_t* iwork = nullptr;
  int64_t isze = 0;
};

bool wants(int32_t sk) { return sk == SIM_SK_SUPBAS || sk == SIM_SK_BAS; }

// Which columns are to enter, and which of them are fit for it.
void classify(Crash* c) {
  const SimplexProblem& p = c->p;
  for (int32_t j = 0; j < p.numvar; ++j) {
    double most = 0.0, least = HUGE_VAL;
    for (int32_t k = p.a.ptrb[j]; k < p.a.ptre[j]; ++k) {
      most = std::max(most, std::fabs(p.a.val[k]));
      least = std::min(least, std::fabs(p.a.val[k]));
    }
    const bool bad = most > 1e7 * least || least < 1e-6 || most > 1e7;
    c->largest[j] = most;
    c->wanted[j] = static_cast<int8_t>(!wants(p.skx[j]) ? 0 : bad ? 1 : 2);
  }
}

void form_rows(Crash* c) {
  const SimplexProblem& p = c->p;
  for (int32_t j = 0; j < p.numvar; ++j)
    for (int32_t k = p.a.ptrb[j]; k < p.a.ptre[j] && c->wanted[j] != 0; ++k) ++c->rptr[p.a.sub[k] + 1];
  for (int32_t i = 0; i < p.numcon; ++i) c->rptr[i + 1] += c->rptr[i];
  int32_t* put = c->inew;
  std::copy_n(c->rptr, p.numcon, put);
  for (int32_t j = 0; j < p.numvar; ++j)
    for (int32_t k = p.a.ptrb[j]; k < p.a.ptre[j] && c->wanted[j] != 0; ++k) {
      const int32_t at = put[p.a.sub[k]]++;
      c->rsub[at] = j;
      c->rval[at] = p.a.val[k];
    }
}

void enter(Crash* c, int32_t v, int32_t row) {
  c->basis->basis[c->numbasic++] = v;
  c->open[row] = 0;
  if (v >= c->p.numcon) c->used[v - c->p.numcon] = 1;
}

// The lower square block of open rows and fit columns: no other such column has an element in its rows, so that it
// will be solved for by itself.
void enter_block(Crash* c) {
  constexpr int32_t stride_from = 500;
  const SimplexProblem& p = c->p;
  int32_t rows = 0, csze = 0, tail = p.numcon;
  for (int32_t i = 0; i < p.numcon; ++i) {
    const int32_t at = c->open[i] != 0 ? rows++ : --tail;
    c->rset[at] = i;
    c->inew[i] = at;
  }
  // In strides, so that neighbours, which are often alike, don't come one after the other.
  const int32_t stride = p.numvar >= stride_from ? stride_from : 1;
  for (int32_t first = 0; first < stride; ++first)
    for (int32_t j = first; j < p.numvar; j += stride)
      if (c->wanted[j] == 2 && c->largest[j] >= smallest_pivot) c->cset[csze++] = j;
  const BlkordPattern pattern{p.a.ptrb, p.a.ptre, p.a.sub};
  blkord_appmaxtran(c->env, pattern, rows, c->rset, c->inew, csze, c->cset, c->isze, c->iwork);
  int32_t maxtran = 0;
  const int32_t block =
      blkord_maxlwrsqblk(c->env, pattern, rows, c->rset, c->inew, csze, c->cset, &maxtran, c->isze, c->iwork);
  for (int32_t k = 0; k < block; ++k) enter(c, p.numcon + c->cset[k], c->rset[k]);
}

double distance(const SimplexProblem& p, int32_t j) {
  const bool low = simplex_haslower(p.bkx[j]), upp = simplex_hasupper(p.bkx[j]);
  if (!low && !upp) return std::min(std::fabs(p.xx[j]), 1e30);
  const double down = low ? p.xx[j] - p.blx[j] : HUGE_VAL, up = upp ? p.bux[j] - p.xx[j] : HUGE_VAL;
  return std::min(std::min(std::fabs(down), std::fabs(up)), 1e30);
}

// Open rows from the one with the fewest choices on take the column that is farthest from its bounds.
bool enter_rows(Crash* c) {
  const SimplexProblem& p = c->p;
  prque q;
  int32_t longest = 0;
  for (int32_t i = 0; i < p.numcon; ++i) longest = std::max(longest, c->rptr[i + 1] - c->rptr[i]);
  if (!pq_make(&q, c->env, p.numcon, longest)) return false;
  for (int32_t i = 0; i < p.numcon; ++i) {
    if (c->open[i] == 0) continue;
    int32_t choices = 0;
    for (int32_t k = c->rptr[i]; k < c->rptr[i + 1]; ++k) choices += c->wanted[c->rsub[k]] == 2 ? 1 : 0;
    pq_put(&q, i, choices);
  }
  while (pq_tolowest(&q) && c->numbasic < p.numcon) {
    const int32_t i = q.cursor;
    pq_remove(&q, i);
    int32_t best = -1;
    double score = -1.0;
    for (int32_t k = c->rptr[i]; k < c->rptr[i + 1]; ++k) {
      const int32_t j = c->rsub[k];
      if (c->used[j] != 0 || c->largest[j] < smallest_pivot || std::fabs(c->rval[k]) < smallest_pivot) continue;
      const double mine = distance(p, j) / (p.a.ptre[j] - p.a.ptrb[j] + 1);
      if (mine > score) {
        score = mine;
        best = j;
      }
    }
    if (best < 0) continue;
    enter(c, p.numcon + best, i);
    for (int32_t k = p.a.ptrb[best]; k < p.a.ptre[best]; ++k) {
      const int32_t r = p.a.sub[k];
      if (pq_has(&q, r) && q.key[r] > 0) pq_put(&q, r, q.key[r] - 1);
    }
  }
  return true;
}

void fill_with_logicals(Crash* c) {
  for (int32_t i = 0; i < c->p.numcon && c->numbasic < c->p.numcon; ++i)
    if (c->open[i] != 0) enter(c, i, i);
}

// Factorises the list. Columns without a good pivot give way to logicals; the rows of these that hold other wanted
// columns, not tried yet, get one of them in a second try.
int32_t test_rank(Crash* c, SimplexFactorWork* work) {
  const SimplexProblem& p = c->p;
  lu* factor = c->basis->factor;
  const double abspiv = lu_gettol(factor, LU_TOL_ABSPIV);
  lu_puttol(factor, LU_TOL_ABSPIV, std::max(smallest_pivot, abspiv));
  int32_t numart = 0;
  int32_t resp = simplex_factor(c->env, p.numcon, p.a, c->basis, work, &numart);
  for (int32_t k = 0; k < p.numcon && resp == SIM_RESP_OK; ++k) {
    const int32_t i = c->basis->basis[k];
    if (i >= p.numcon || wants(p.skc[i])) continue;
    for (int32_t t = c->rptr[i]; t < c->rptr[i + 1]; ++t) {
      const int32_t j = c->rsub[t];
      if (c->used[j] != 0 || c->wanted[j] != 2) continue;
      c->used[j] = 1;
      c->basis->basis[k] = p.numcon + j;
      break;
    }
  }
  lu_puttol(factor, LU_TOL_ABSPIV, abspiv);
  if (resp == SIM_RESP_OK) resp = simplex_factor(c->env, p.numcon, p.a, c->basis, work, &numart);
  return resp;
}

// Basic is what is in the list; what the list could not hold stands where it is.
void set_keys(const Crash& c) {
  const SimplexProblem& p = c.p;
  const auto drop = [](int32_t n, int32_t* sk) {
    for (int32_t k = 0; k < n; ++k)
      if (sk[k] == SIM_SK_BAS) sk[k] = SIM_SK_SUPBAS;
  };
  drop(p.numcon, p.skc);
  drop(p.numvar, p.skx);
  for (int32_t k = 0; k < p.numcon; ++k) {
    const int32_t v = c.basis->basis[k];
    (v < p.numcon ? p.skc[v] : p.skx[v - p.numcon]) = SIM_SK_BAS;
    c.basis->xb[k] = v < p.numcon ? p.xc[v] : p.xx[v - p.numcon];
  }
}

}  // namespace

int32_t simplex_crash(sysenv* env, const SimplexProblem& p, simplexbasis* basis) {
  Crash c{env, p, basis};
  const auto con = static_cast<std::size_t>(p.numcon), var = static_cast<std::size_t>(p.numvar);
  std::size_t nz = 0;
  for (int32_t j = 0; j < p.numvar; ++j) nz += static_cast<std::size_t>(p.a.ptre[j] - p.a.ptrb[j]);
  c.isze = blkord_worksize(p.numcon, p.numvar);
  Workspace work(env);
  SimplexFactorWork factorwork;
  work.add(&c.rptr, con + 1, Fill::zero);
  work.add(&c.rsub, nz);
  work.add(&c.rval, nz);
  work.add(&c.largest, var);
  work.add(&c.wanted, var);
  work.add(&c.used, var, Fill::zero);
  work.add(&c.open, con);
  work.add(&c.rset, con);
  work.add(&c.inew, con);
  work.add(&c.cset, var);
  work.add(&c.iwork, static_cast<std::size_t>(c.isze));
  if (!work.commit() || !simplex_makefactorwork(env, p.numcon, &factorwork)) return SIM_RESP_SPACE;
  classify(&c);
  form_rows(&c);
  std::fill_n(c.open, p.numcon, int8_t{1});
  for (int32_t i = 0; i < p.numcon; ++i)
    if (wants(p.skc[i])) enter(&c, i, i);
  enter_block(&c);
  if (!enter_rows(&c)) return SIM_RESP_SPACE;
  fill_with_logicals(&c);
  const int32_t resp = test_rank(&c, &factorwork);
  if (resp == SIM_RESP_OK) set_keys(c);
  return resp;
}

}  // namespace tarvo
