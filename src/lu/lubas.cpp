// Checks and measures of a factor.
#include <algorithm>
#include <cstdio>

#include "lu/lu_internal.h"

namespace tarvo {

namespace {

double largest_of(const LuElm* file, const LuLine* lines, int32_t n) {
  double m = 0.0;
  for (int32_t i = 0; i < n; ++i) {
    for (int32_t a = lines[i].beg; a < lines[i].beg + lines[i].cnt; ++a) m = std::max(m, std::fabs(file[a].val));
  }
  return m;
}

void pivot_range(const lu* f, double* pmin, double* pmax) {
  *pmin = f->nrow == 0 ? 0.0 : DBL_MAX;
  *pmax = 0.0;
  for (int32_t i = 0; i < f->nrow; ++i) {
    const double p = std::fabs(f->piv[i]);
    *pmin = std::min(*pmin, p);
    *pmax = std::max(*pmax, p);
  }
}

double largest_l(const lu* f) {
  double m = 0.0;
  for (int32_t a = f->lend; a < f->wsze; ++a) m = std::max(m, std::fabs(f->cfile[a].val));
  for (int32_t a = f->lbeg; a < f->lend; ++a) m = std::max(m, std::fabs(f->rfile[a].val));
  return m;
}

}  // namespace

int32_t lu_norms(const lu* f, double* pmin, double* pmax, double* lmax, double* umax) {
  if (f->state != LU_STATE_DONE) return LU_NOFACTOR;
  pivot_range(f, pmin, pmax);
  *lmax = largest_l(f);
  *umax = largest_of(f->rfile.data(), f->urow.data(), f->nrow);
  return LU_OK;
}

int32_t lu_normsscaled(const lu* f, double* pmin, double* pmax, double* lmax, double* umax) {
  if (f->rank != f->nrow) return LU_NORANK;
  if (f->state != LU_STATE_DONE) return LU_NOFACTOR;
  pivot_range(f, pmin, pmax);
  *lmax = largest_l(f);
  *umax = 0.0;
  for (int32_t i = 0; i < f->nrow; ++i) {
    *umax = std::max(*umax, largest_of(f->rfile.data(), &f->urow[i], 1) / std::fabs(f->piv[i]));
  }
  return LU_OK;
}

const char* lu_chku(const lu* f, char (&text)[128]) {
  if (f->state != LU_STATE_FACTOR && f->state != LU_STATE_DONE) return nullptr;
  const bool done = f->state == LU_STATE_DONE;
  if (f->lupds > f->mlu) return "lu->lupds>lu->mlu";
  const auto say = [&text](const char* format, auto... args) -> const char* {
    std::snprintf(text, sizeof text, format, args...);
    return text;
  };
  if (f->uendc > f->lbeg) return say("lu->uendc>lu->lbeg(%d>%d)", f->uendc, f->lbeg);
  if (f->uendr > f->lbeg) return say("uendr>lbeg %d %d", f->uendr, f->lbeg);
  const auto legal = [](int32_t cap, int32_t cnt, int32_t longest) {
    return cap == lu_capacity(cap, longest) && cnt >= 0 && cap <= longest;
  };
  for (int32_t i = 0; i < f->nrow; ++i) {
    if (!legal(f->ucapr[i], f->urow[i].cnt, f->ncol)) return "uszer";
    if (f->urow[i].cnt > f->ucapr[i]) return "uuser>uszer";
    if (f->q[i] < f->ncol && f->invq[f->q[i]] != i) {
      return say("invq error. i: %d q: %d invq[q]: %d", i, f->q[i], f->invq[f->q[i]]);
    }
    if (done ? f->order[f->orderpos[i]] != i : f->perm[f->perminv[i]] != i)
      return say("itemp: %d nrow: %d", i, f->nrow);
  }
  // Without elimination the column file has not been built.
  if (!done && f->stpf + f->stpb == f->nrow) return nullptr;
  const int32_t numcol = done ? f->nrow : f->ncol;
  for (int32_t j = 0; j < numcol; ++j) {
    if (!legal(f->ucapc[j], f->ucol[j].cnt, f->nrow)) return "uszec";
    if (f->ucol[j].cnt > f->ucapc[j]) return "uusec>uszec";
  }
  // Every element of the files that is in force stands in both, bound to itself.
  int64_t rows = 0, cols = 0;
  for (int32_t p = done ? 0 : f->stpf; p < (done ? f->nrow : f->nrow - f->stpb); ++p) {
    const int32_t i = done ? p : f->perm[p];
    for (int32_t a = f->urow[i].beg; a < f->urow[i].beg + f->urow[i].cnt; ++a, ++rows) {
      const LuElm& e = f->rfile[a];
      if (e.sub < 0 || e.sub >= numcol) return say("j: %d ncol: %d", e.sub, numcol);
      if (e.pos >= f->uendc) return say("posc>=uendc posc: %d uendc: %d i: %d", e.pos, f->uendc, i);
      const LuElm& other = f->cfile[e.pos];
      const LuLine& col = f->ucol[e.sub];
      const bool bound = other.pos == a && other.sub == i && e.pos >= col.beg && e.pos < col.beg + col.cnt;
      // Written so that a NaN is equal to itself.
      if (!bound || (done && (other.val < e.val || other.val > e.val))) {
        return say("%s(%d) Error in posr or posc.", "lubas", __LINE__);
      }
      if (done && f->orderpos[e.sub] <= f->orderpos[i]) return "U is not triangular";
    }
  }
  for (int32_t j = 0; j < numcol; ++j) cols += f->ucol[j].cnt;
  if (rows != cols) return "rows and columns of U differ";
  if (done && rows != f->unz) return "unz";
  for (int32_t i = 0; i < f->nrow; ++i) {
    if (f->seen[i] != 0 || f->rwrk[i] != 0.0) return "scratch is not clean";
  }
  return nullptr;
}

}  // namespace tarvo
