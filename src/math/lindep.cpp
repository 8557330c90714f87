#include "math/lindep.h"

#include <algorithm>
#include <cmath>

namespace tarvo {

namespace {

constexpr int32_t max_rounds = 4;        // factorisations with columns added for rows that turned out independent
constexpr int32_t columns_per_row = 4;   // taken at first from each row that was set aside
constexpr double zero_residual = 1e-11;  // of the largest term: y'A - a_d in one column
constexpr double zero_multiplier = 1e-13;
constexpr double large_multiplier =
    1e5;  // a row that others give only with such multipliers has their errors magnified

std::size_t length(int32_t n) { return static_cast<std::size_t>(n); }

double poweroftwo(double size) { return size > 0.0 ? std::ldexp(1.0, -std::ilogb(size)) : 1.0; }

struct Checker {
  sysenv* env;
  const lindepopt* opt;
  const lindepmatrix* a;
  int32_t* pivcol;
  int64_t work = 0;
  int32_t *colcount, *colxor;  // [ncol] rows left in a column, and the xor of their indices
  int32_t *queue, *order;      // columns with one row left; rows by falling length
  uint8_t* proven;             // [nrow] dependent
  int32_t *rowlist, *colpos, *collist, *candidate;
  int32_t nr, nc, ncandidates;
  double *rscale, *cscale;
  // The square basis and one row's expression by it.
  int32_t *brow, *bcol, *bpos;  // rows, columns, place of a column
  double *c, *y, *resid, *size, *dy;
  int32_t *csub, *ysub, *yset, *rsub, *marks, *yrows;
  double* yvals;
  lu* factor = nullptr;
  ~Checker() { lu_delete(&factor); }

  bool plan(Workspace* ws) {
    const std::size_t m = length(a->nrow), n = length(a->ncol);
    for (int32_t** p : {&queue, &colcount, &colxor, &colpos, &bpos, &rsub}) ws->add(p, n, Fill::zero);
    for (int32_t** p : {&collist}) ws->add(p, n + m);
    for (int32_t** p : {&order, &rowlist, &candidate, &brow, &bcol, &csub, &ysub, &marks, &yset, &yrows})
      ws->add(p, m + 1, Fill::zero);
    ws->add(&proven, m, Fill::zero);
    for (double** p : {&rscale, &c, &y, &dy, &yvals}) ws->add(p, m + 1, Fill::zero);
    for (double** p : {&cscale, &resid, &size}) ws->add(p, n, Fill::zero);
    return ws->commit();
  }
  bool overwork() const { return opt->maxwork > 0 && work > opt->maxwork; }

  // ---- Crash -----------------------------------------------------------------------------------------------------

  void takerow(int32_t i, int32_t* count) {
    for (int32_t t = a->ptr[i]; t < a->ptr[i + 1]; ++t) {
      const int32_t j = a->sub[t];
      colxor[j] ^= i;
      if (--colcount[j] == 1) queue[(*count)++] = j;
    }
    work += a->ptr[i + 1] - a->ptr[i];
  }

  // Rows get columns in a triangular order. Those that go before the first row is set aside can't depend on anything.
  void crash() {
    for (int32_t i = 0; i < a->nrow; ++i) {
      pivcol[i] = -1;
      for (int32_t t = a->ptr[i]; t < a->ptr[i + 1]; ++t) {
        ++colcount[a->sub[t]];
        colxor[a->sub[t]] ^= i;
      }
    }
    work += a->ptr[a->nrow];
    int32_t count = 0;
    for (int32_t j = 0; j < a->ncol; ++j)
      if (colcount[j] == 1) queue[count++] = j;
    // A bucket sort by length, longest first; marks count.
    int32_t longest = 0;
    for (int32_t i = 0; i < a->nrow; ++i) longest = std::max(longest, a->ptr[i + 1] - a->ptr[i]);
    const auto capped = [&](int32_t i) { return std::min(a->ptr[i + 1] - a->ptr[i], a->nrow - 1); };
    for (int32_t i = 0; i < a->nrow; ++i) ++marks[a->nrow - 1 - capped(i)];
    for (int32_t k = 0, pos = 0; k < a->nrow; ++k) {
      const int32_t n = marks[k];
      marks[k] = pos;
      pos += n;
    }
    for (int32_t i = 0; i < a->nrow; ++i) order[marks[a->nrow - 1 - capped(i)]++] = i;
    std::fill_n(marks, a->nrow, 0);

    bool setaside = false;
    nr = ncandidates = 0;
    for (int32_t next = 0;;) {
      while (count > 0) {
        const int32_t j = queue[--count];
        if (colcount[j] != 1) continue;
        const int32_t i = colxor[j];
        pivcol[i] = j;
        if (setaside) rowlist[nr++] = i;
        // The column is done: its count goes to 0 with its row.
        takerow(i, &count);
      }
      while (next < a->nrow && pivcol[order[next]] >= 0) ++next;
      if (next == a->nrow) break;
      const int32_t i = order[next++];
      setaside = true;
      rowlist[nr++] = i;
      candidate[ncandidates++] = i;
      takerow(i, &count);
    }
  }

  // ---- Pivots by LU ------------------------------------------------------------------------------------------------

  void addcolumn(int32_t j) {
    if (colpos[j] >= 0) return;
    colpos[j] = nc;
    collist[nc++] = j;
  }

  void firstcolumns() {
    std::fill_n(colpos, a->ncol, -1);
    nc = 0;
    for (int32_t k = 0; k < nr; ++k)
      if (pivcol[rowlist[k]] >= 0) addcolumn(pivcol[rowlist[k]]);
    for (int32_t k = 0; k < ncandidates; ++k) {
      const int32_t i = candidate[k], n = a->ptr[i + 1] - a->ptr[i];
      for (int32_t t = 0; t < std::min(n, columns_per_row); ++t)
        addcolumn(a->sub[a->ptr[i] + static_cast<int32_t>(int64_t{t} * n / columns_per_row)]);
    }
  }

  void scale() {
    for (int32_t k = 0; k < nr; ++k) {
      const int32_t i = rowlist[k];
      double big = 0.0;
      for (int32_t t = a->ptr[i]; t < a->ptr[i + 1]; ++t) big = std::max(big, std::fabs(a->val[t]));
      rscale[i] = poweroftwo(big);
      for (int32_t t = a->ptr[i]; t < a->ptr[i + 1]; ++t)
        cscale[a->sub[t]] = std::max(cscale[a->sub[t]], std::fabs(a->val[t]) * rscale[i]);
    }
    for (int32_t j = 0; j < a->ncol; ++j) cscale[j] = poweroftwo(cscale[j]);
  }

  // Pivot columns of all rows of the list; rows without are the new candidates.
  int32_t findpivots() {
    const int64_t left = opt->maxwork > 0 ? std::max<int64_t>(opt->maxwork - work, 1) : 0;
    int32_t res = lindep_factor(env, &factor, *a, nr, rowlist, std::max(nr, nc), colpos, rscale, cscale, opt->tolapiv,
                                true, left);
    if (res != LINDEP_OK) return res;
    work += lu_getwork(factor, LU_OP_PIVOT, true);
    ncandidates = 0;
    for (int32_t k = 0; k < nr; ++k) {
      int32_t place = 0;
      double pivot = 0.0;
      const bool has = lu_getpivot(factor, k, &place, &pivot) == LU_OK && place < nc && place >= 0 && pivot != 0.0;
      pivcol[rowlist[k]] = has ? collist[place] : -1;
      if (!has) candidate[ncandidates++] = rowlist[k];
    }
    return LINDEP_OK;
  }

  int32_t factorbasis(int32_t* n) {
    *n = 0;
    std::fill_n(bpos, a->ncol, -1);
    for (int32_t k = 0; k < nr; ++k) {
      const int32_t i = rowlist[k];
      if (pivcol[i] < 0) continue;
      bpos[pivcol[i]] = *n;
      bcol[*n] = pivcol[i];
      brow[(*n)++] = i;
    }
    if (*n == 0) return LINDEP_OK;
    const int32_t res =
        lindep_factor(env, &factor, *a, *n, brow, *n, bpos, rscale, cscale, 1e-3 * opt->tolapiv, false, opt->maxwork);
    if (res != LINDEP_OK) return res;
    return lu_getrank(factor) == *n ? LINDEP_OK : LINDEP_NUMERIC;
  }

  // ---- One row by the others ---------------------------------------------------------------------------------------

  // resid -= factor * (row i, scaled); size keeps the largest term of each touched column.
  void addrow(int32_t i, double multiplier, int32_t* n) {
    for (int32_t t = a->ptr[i]; t < a->ptr[i + 1]; ++t) {
      const int32_t j = a->sub[t];
      const double term = multiplier * a->val[t] * rscale[i] * cscale[j];
      if (size[j] == 0.0) rsub[(*n)++] = j;
      resid[j] += term;
      size[j] = std::max({size[j], std::fabs(term), 1e-300});
    }
    work += a->ptr[i + 1] - a->ptr[i];
  }

  // y of B' y = row d in brow, with one step of refinement; *worst is the column that says most against it, or -1.
  bool express(int32_t d, int32_t* numy, int32_t* worst) {
    int32_t touched = 0, ny = 0;
    addrow(d, 1.0, &touched);
    for (int32_t step = 0; step < 2; ++step) {
      int32_t nrhs = 0;
      for (int32_t k = 0; k < touched; ++k) {
        const int32_t p = bpos[rsub[k]];
        if (p < 0 || std::fabs(resid[rsub[k]]) <= 1e-17 * size[rsub[k]]) continue;
        c[p] = resid[rsub[k]];
        csub[nrhs++] = p;
      }
      if (nrhs == 0) break;
      int32_t nout = 0;
      lu_btransparse(0.0, 1e-15, factor, nrhs, c, csub, &nout, dy, ysub, marks);
      work += nout;
      for (int32_t k = 0; k < nout; ++k) {
        const int32_t p = ysub[k];
        if (yset[p] == 0) {
          yset[p] = 1;
          yrows[ny++] = p;
        }
        y[p] += dy[p];
        addrow(brow[p], -dy[p], &touched);
        dy[p] = 0.0;
      }
    }
    *worst = -1;
    double excess = 0.0;
    for (int32_t k = 0; k < touched; ++k) {
      const int32_t j = rsub[k];
      const double r = std::fabs(resid[j]);
      if (r > zero_residual * size[j] && r > excess) {
        excess = r;
        *worst = j;
      }
      resid[j] = size[j] = 0.0;
    }
    *numy = 0;
    bool tame = true;
    for (int32_t k = 0; k < ny; ++k) {
      const int32_t p = yrows[k];
      tame = tame && std::fabs(y[p]) <= large_multiplier;
      if (std::fabs(y[p]) > zero_multiplier) {
        ysub[*numy] = brow[p];
        yvals[(*numy)++] = y[p] * rscale[brow[p]] / rscale[d];
      }
      y[p] = 0.0;
      yset[p] = 0;
    }
    return tame && *worst < 0;
  }

  int32_t run(void* handle, LindepFound found) {
    crash();
    if (ncandidates == 0) return LINDEP_OK;
    scale();
    firstcolumns();
    for (int32_t round = 0; round < max_rounds; ++round) {
      int32_t n = 0, added = 0;
      int32_t res = findpivots();
      if (res != LINDEP_OK || ncandidates == 0) return res;
      res = factorbasis(&n);
      if (res != LINDEP_OK) return res;
      for (int32_t k = 0; k < ncandidates; ++k) {
        if (overwork()) return LINDEP_MAXWORK;
        int32_t numy = 0, worst = -1;
        if (express(candidate[k], &numy, &worst)) {
          if (!found(handle, candidate[k], numy, ysub, yvals)) return LINDEP_OK;
          proven[candidate[k]] = 1;
        } else if (worst >= 0 && colpos[worst] < 0) {
          addcolumn(worst);
          ++added;
        }
      }
      if (added == 0) return LINDEP_OK;
      nr = static_cast<int32_t>(std::remove_if(rowlist, rowlist + nr, [&](int32_t i) { return proven[i] != 0; }) -
                                rowlist);
    }
    return LINDEP_OK;
  }
};

}  // namespace

int32_t lindep_factor(sysenv* env, lu** factor, const lindepmatrix& a, int32_t nr, const int32_t* rowlist, int32_t nc,
                      const int32_t* colpos, const double* rscale, const double* cscale, double abspiv, bool rankonly,
                      int64_t maxwork) {
  lu_delete(factor);
  if (lu_make(env, nr, nc, factor) != LU_OK) return LINDEP_SPACE;
  lu_puttol(*factor, LU_TOL_ABSPIV, abspiv);
  lu_putdropl(*factor, rankonly);
  lu_putdropu(*factor, rankonly);
  lu_putmaxwork(*factor, maxwork > 0, maxwork);
  int64_t ni = 0, nd = 0, nz = 0;
  lu_worksizes(nr, nc, &ni, &nd);
  Array<int32_t> iwork;
  Array<double> rwork;
  if (!iwork.alloc(env, static_cast<std::size_t>(ni)) || !rwork.alloc(env, static_cast<std::size_t>(nd)))
    return LINDEP_SPACE;
  for (int32_t k = 0; k < nr; ++k) nz += a.ptr[rowlist[k] + 1] - a.ptr[rowlist[k]];
  constexpr int32_t max_growths = 60;
  int64_t want = 3 * (int64_t{nr} + nc + nz) + 100;
  for (int32_t growth = 0; growth < max_growths; ++growth) {
    if (want > INT32_MAX || lu_putwsze(*factor, want) != LU_OK) return LINDEP_SPACE;
    lu_reset(*factor);
    int32_t res = LU_OK;
    for (int32_t k = 0; k < nr && res == LU_OK; ++k) {
      const int32_t i = rowlist[k];
      for (int32_t t = a.ptr[i]; t < a.ptr[i + 1] && res == LU_OK; ++t) {
        const int32_t j = a.sub[t];
        if (colpos[j] < 0) continue;
        const double v = a.val[t] * (rscale != nullptr ? rscale[i] * cscale[j] : 1.0);
        res = lu_addelm(*factor, v, k, colpos[j]);
      }
    }
    if (res == LU_OK) res = lu_factor(*factor, ni, iwork.data(), nd, rwork.data());
    if (res == LU_OK) return LINDEP_OK;
    if (res == LU_MAXWORK) return LINDEP_MAXWORK;
    if (res == LU_SPACE) return LINDEP_SPACE;
    if (res != LU_FILESPACE && res != LU_GARCOL) return LINDEP_NUMERIC;
    want = std::max(lu_getneededwsze(*factor), want + want / 3);
  }
  return LINDEP_NUMERIC;
}

int32_t lindep_check(sysenv* env, const lindepopt& options, const lindepmatrix& a, int32_t* pivcol, int64_t* work,
                     void* handle, LindepFound found) {
  *work = 0;
  if (a.nrow == 0) return LINDEP_OK;
  Checker checker{};
  checker.env = env;
  checker.opt = &options;
  checker.a = &a;
  checker.pivcol = pivcol;
  Workspace ws(env);
  if (!checker.plan(&ws)) return LINDEP_SPACE;
  const int32_t res = checker.run(handle, found);
  *work = checker.work;
  return res;
}

}  // namespace tarvo
