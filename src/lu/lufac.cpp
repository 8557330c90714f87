// lu_factor: the driver of a factorisation, its completion by artificial pivots and its finalisation.
#include <algorithm>
#include <cstdio>

#include "lu/lu_internal.h"

namespace tarvo {

namespace {

constexpr WorkCount report_interval = 100000;  // work between two calls of the call-back

void print(lu* f, const char* format, auto... args) {
  if (f->print == nullptr) return;
  char text[256];
  std::snprintf(text, sizeof text, format, args...);
  f->print(f->printhandle, text);
}

// Tests the bound on the work and reports, if that is due.
int32_t watch(lu* f, WorkCount* nextreport) {
  const WorkCount work = f->last.work[LU_OP_PIVOT] + f->last.work[LU_OP_SEARCH];
  if (f->hasmaxwork && work > f->maxwork) return LU_MAXWORK;
  if (f->cbfunc == nullptr || work <= *nextreport) return LU_OK;
  *nextreport = work + report_interval;
  print(
      f,
      "left: %-8d  work: %-12lld  maxwork: %-12lld  Num. gar. cols.: %-6d  Num. bld. cols.: %-6d  Num. row res.: %-6d  "
      "Num. col incs.: %-6d\n",
      f->nrow - f->stpf - f->stpb, static_cast<long long>(work), static_cast<long long>(f->hasmaxwork ? f->maxwork : 0),
      f->numgarcol, f->numbldcol, f->numrowres, f->numcolres);
  return f->cbfunc(f->cbhandle, 2, f->stpf + f->stpb, 0) != 0 ? LU_CALLBACK : LU_OK;
}

// Markowitz pivoting on what the singletons have left.
int32_t eliminate(lu* f, int32_t* iwork, double* rwork) {
  if (const int32_t res = lu_buildcol(f); res != LU_OK) return res;
  const int32_t m = f->nrow, n = f->ncol;
  LuNucleus nuc;
  nuc.mark = iwork;
  nuc.list = nuc.mark + n;
  int32_t* block = nuc.list + n;
  const int64_t rowlen = pq_blocksize(m, n), collen = pq_blocksize(n, m);
  if (!pq_setup(&nuc.rowq, f->env, m, n, rowlen, block) || !pq_setup(&nuc.colq, f->env, n, m, collen, block + rowlen)) {
    sysenv_fatal(f->env, "pq_setup");
  }
  nuc.colmax = rwork;
  nuc.w = rwork + n;
  nuc.rowmax = f->pivmode == LU_PIVMODE_BOTH ? rwork + 2 * static_cast<std::size_t>(n) : nullptr;
  std::fill_n(nuc.mark, n, 0);
  for (int32_t p = m - f->stpb - 1; p >= f->stpf; --p) {
    const int32_t i = f->perm[p];
    if (nuc.rowmax != nullptr) nuc.rowmax[i] = -1.0;
    if (f->urow[i].cnt > 0) pq_insert(&nuc.rowq, i, f->urow[i].cnt);
  }
  for (int32_t j = n - 1; j >= 0; --j) {
    nuc.colmax[j] = -1.0;
    if (f->invq[j] == m && f->ucol[j].cnt > 0) pq_insert(&nuc.colq, j, f->ucol[j].cnt);
  }
  print(f, "%-8s: %-10d %-8s: %-10d %-8s: %-10d\n", "nrow", m, "stpf", f->stpf, "stpb", f->stpb);

  const bool watched = f->hasmaxwork || f->cbfunc != nullptr;
  WorkCount nextreport = 0;
  while (f->stpf + f->stpb < m) {
    if (watched) {
      if (const int32_t res = watch(f, &nextreport); res != LU_OK) return res;
    }
    const LuPivot pivot = nuc.rowmax == nullptr ? lu_choosepivincol(f, &nuc) : lu_choosepivinboth(f, &nuc);
    if (pivot.row == m) break;
    if (const int32_t res = lu_dopivot(f, &nuc, pivot); res != LU_OK) return res;
  }
  return LU_OK;
}

int64_t count_u(const lu* f) {
  int64_t n = 0;
  for (int32_t i = 0; i < f->nrow; ++i) n += f->urow[i].cnt;
  return n;
}

}  // namespace

void lu_worksizes(int32_t nrow, int32_t ncol, int64_t* iworklen, int64_t* rworklen) {
  *iworklen = 5 * int64_t{nrow} + 6 * int64_t{ncol} + 2;
  *rworklen = int64_t{nrow} + 2 * int64_t{ncol};
}

int32_t lu_factor(lu* f, int64_t iworklen, int32_t* iwork, int64_t rworklen, double* rwork) {
  if (f->state != LU_STATE_LOAD) return LU_NOFACTOR;
  int64_t needi, needr;
  lu_worksizes(f->nrow, f->ncol, &needi, &needr);
  int32_t res = LU_OK;
  if (f->cbfunc != nullptr && f->cbfunc(f->cbhandle, 0, 0, 0) != 0) res = LU_CALLBACK;
  if (res == LU_OK && iworklen < needi) res = LU_IWORK;
  if (res == LU_OK && rworklen < needr) res = LU_RWORK;
  if (res == LU_OK) res = lu_setup(f, iwork);
  if (res == LU_OK && f->stpf + f->stpb < f->nrow) res = eliminate(f, iwork, rwork);
  f->rank = f->stpf + f->stpb;
  if (res == LU_OK && ((f->dropl && !f->wantdropl) || (f->dropu && !f->wantdropu))) res = LU_FILESPACE;
  if (res == LU_OK && f->rank == f->nrow && !f->dropl && !f->dropu) res = lu_finalizefactor(f);
  if (res != LU_OK) f->state = LU_STATE_NONE;
  f->unz = count_u(f);
  if (f->cbfunc != nullptr && f->cbfunc(f->cbhandle, 3, f->rank, 0) != 0 && res == LU_OK) {
    f->state = LU_STATE_NONE;
    res = LU_CALLBACK;
  }
  return res;
}

int32_t lu_finalizefactor(lu* f) {
  LuTimer timer(f, LU_OP_FINALIZE);
  const int32_t m = f->nrow;
  LuElm* __restrict rfile = f->rfile.data();
  LuElm* __restrict cfile = f->cfile.data();
  f->state = LU_STATE_DONE;

  // The etas go to the column file, packed in pivot order; then the row file gets their transpose.
  {
    LuTimer part(f, LU_OP_FINALL);
    int32_t end = f->lbeg;
    f->nlcol = f->nlrow = 0;
    for (int32_t p = 0; p < m && f->lbeg < f->wsze; ++p) {
      const int32_t i = f->perm[p];
      LuLine& eta = f->lcol[i];
      if (eta.cnt == 0) continue;
      std::copy_n(rfile + eta.beg, eta.cnt, cfile + end);
      eta.beg = end;
      end += eta.cnt;
      f->lcollist[f->nlcol++] = i;
    }
    f->lnz = f->wsze - f->lbeg;
    for (int32_t a = f->lbeg; a < f->wsze; ++a) ++f->lrow[cfile[a].sub].cnt;
    end = f->lbeg;
    for (int32_t p = 0; p < m && f->lnz > 0; ++p) {
      if (f->lrow[f->perm[p]].cnt > 0) f->lrowlist[f->nlrow++] = f->perm[p];
    }
    // BTRAN takes the rows from the last to the first and so finds them one behind the other.
    for (int32_t k = f->nlrow - 1; k >= 0; --k) {
      LuLine& row = f->lrow[f->lrowlist[k]];
      row.beg = end;
      end += row.cnt;
      row.cnt = 0;
    }
    for (int32_t k = 0; k < f->nlcol; ++k) {
      const int32_t i = f->lcollist[k];
      const LuLine eta = f->lcol[i];
      for (int32_t a = eta.beg; a < eta.beg + eta.cnt; ++a) {
        LuLine& row = f->lrow[cfile[a].sub];
        rfile[row.beg + row.cnt++] = {cfile[a].val, i, 0};
      }
    }
    lu_charge(f, LU_OP_FINALL, 3 * f->lnz + m);
  }
  f->lupds = 0;
  f->lend = f->lbeg;
  f->etabeg[0] = f->lbeg;
  f->numupd = 0;

  // Columns take the name of their pivot row; elements in columns without pivot (there are some when ncol > nrow) go.
  // The rows go by way of the column file, which is rebuilt later, to their places in pivot order. They need no more
  // room than they have: a rounded capacity is at most the one in force.
  {
    LuTimer part(f, LU_OP_FINALU);
    const int32_t* __restrict invq = f->invq.data();
    WorkCount touched = m;
    int32_t end = 0;
    for (int32_t p = 0; p < m; ++p) {
      const int32_t i = f->perm[p];
      f->order[p] = i;
      f->orderpos[i] = p;
      LuLine& row = f->urow[i];
      int32_t kept = 0;
      for (int32_t a = row.beg; a < row.beg + row.cnt; ++a) {
        const int32_t label = invq[rfile[a].sub];
        cfile[end + kept] = {rfile[a].val, label, 0};
        kept += label != m ? 1 : 0;
      }
      touched += row.cnt;
      row = {end, kept};
      f->ucapr[i] = lu_capacity(kept, f->ncol);
      end += f->ucapr[i];
    }
    std::copy_n(cfile, end, rfile);
    f->uendr = end;
    lu_clearfree(f, f->freer);
    f->norder = m;
    lu_charge(f, LU_OP_FINALU, touched);
  }
  lu_charge(f, LU_OP_FINALIZE, f->last.work[LU_OP_FINALL] + f->last.work[LU_OP_FINALU]);
  const int32_t res = lu_buildcol(f);
  if (res != LU_OK) {
    f->state = LU_STATE_NONE;
    if (res == LU_FILESPACE) f->needmem = true;
    return res;
  }
  f->usedpivmode = f->pivmode;
  f->usedrelpiv = f->relpiv;
  f->usedabspiv = f->abspiv;
  return LU_OK;
}

int32_t lu_insart(lu* f, double value, int32_t* outlist, int64_t outlen) {
  const int32_t m = f->nrow, n = f->ncol;
  if (outlen < n) return LU_IWORK;
  if (f->state != LU_STATE_FACTOR || f->dropl || f->dropu) return LU_NOFACTOR;
  LuElm* __restrict rfile = f->rfile.data();
  for (int32_t i = 0; i < m; ++i) {
    LuLine& row = f->urow[i];
    int32_t to = row.beg;
    for (int32_t a = row.beg; a < row.beg + row.cnt; ++a) {
      rfile[to] = rfile[a];
      to += f->invq[rfile[a].sub] != m ? 1 : 0;
    }
    row.cnt = to - row.beg;
  }
  std::fill_n(outlist, n, n);
  int32_t j = 0;
  for (int32_t i = 0; i < m; ++i) {
    if (f->q[i] < n) continue;
    while (f->invq[j] < m) ++j;
    f->piv[i] = value;
    outlist[j] = i;
    f->q[i] = j;
    f->invq[j] = i;
    ++f->stpf;
  }
  f->rank = f->stpf + f->stpb;
  sysenv_assert(f->env, f->rank == m);
  const int32_t res = lu_finalizefactor(f);
  f->unz = count_u(f);
  return res;
}

}  // namespace tarvo
