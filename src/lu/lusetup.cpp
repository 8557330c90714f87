// The singleton phase: finds the triangular part of the loaded matrix, which for most bases is nearly all of it, in
// time proportional to the elements and without floating-point elimination.
#include <algorithm>

#include "lu/lu_internal.h"

namespace tarvo {

namespace {

// Column starts and counts from the loaded triplets, which go to column order, in place by following cycles unless they
// came so.
void sort_columns(lu* f, int32_t* home) {
  LuElm* __restrict file = f->cfile.data();
  LuLine* __restrict col = f->ucol.data();
  const int32_t n = f->uendc;
  for (int32_t a = 0; a < n; ++a) ++col[file[a].pos].cnt;
  int32_t end = 0;
  for (int32_t j = 0; j < f->ncol; ++j) {
    home[j] = col[j].beg = end;
    end += col[j].cnt;
  }
  if (f->sorted) return;
  for (int32_t j = 0; j < f->ncol; ++j) {
    const int32_t stop = col[j].beg + col[j].cnt;
    for (int32_t a = home[j]; a < stop; a = home[j]) {
      const int32_t to = file[a].pos;
      if (to == j) {
        home[j] = a + 1;
      } else {
        std::swap(file[a], file[home[to]++]);
      }
    }
  }
}

// The row file from the column file: values and columns, rows in index order.
void transpose(lu* f) {
  LuTimer timer(f, LU_OP_TRANSPOSE);
  const LuElm* __restrict cfile = f->cfile.data();
  LuElm* __restrict rfile = f->rfile.data();
  LuLine* __restrict row = f->urow.data();
  const int32_t n = f->uendc;
  for (int32_t a = 0; a < n; ++a) ++row[cfile[a].sub].cnt;
  int32_t end = 0;
  for (int32_t i = 0; i < f->nrow; ++i) {
    row[i].beg = end;
    end += row[i].cnt;
    row[i].cnt = 0;
  }
  for (int32_t a = 0; a < n; ++a) {
    LuLine& to = row[cfile[a].sub];
    rfile[to.beg + to.cnt++] = {cfile[a].val, cfile[a].pos, 0};
  }
  f->uendr = end;
  lu_charge(f, LU_OP_TRANSPOSE, n);
}

double largest(const LuElm* file, const LuLine& line) {
  double m = 0.0;
  for (int32_t a = line.beg; a < line.beg + line.cnt; ++a) {
    const double v = std::fabs(file[a].val);
    if (v > m) m = v;
  }
  return m;
}

// Permutation during the singleton phase: perm holds the pivot rows in order from both ends, perminv of an active row
// is nrow. The active rows are put in between at the end.
void record(lu* f, int32_t i, int32_t j, double value, bool forward) {
  const int32_t to = forward ? f->stpf++ : f->nrow - ++f->stpb;
  f->perm[to] = i;
  f->perminv[i] = to;
  f->piv[i] = value;
  f->q[i] = j;
  f->invq[j] = i;
}

void swap_to_end(LuElm* file, const LuLine& line, int32_t a) { std::swap(file[a], file[line.beg + line.cnt - 1]); }

// Columns with one active row: forward pivots, their rows are rows of U as they stand.
void column_singletons(lu* f, int32_t* count, int32_t* stack) {
  LuTimer timer(f, LU_OP_COLTRIAN);
  const LuElm* __restrict cfile = f->cfile.data();
  LuElm* __restrict rfile = f->rfile.data();
  const int32_t active = f->nrow;
  int32_t top = 0;
  WorkCount work = 0;
  for (int32_t j = f->ncol - 1; j >= 0; --j) {
    count[j] = f->ucol[j].cnt;
    if (count[j] == 1) stack[top++] = j;
  }
  while (top > 0) {
    const int32_t j = stack[--top];
    if (count[j] != 1) continue;
    int32_t b = f->ucol[j].beg;
    while (f->perminv[cfile[b].sub] != active) ++b;
    const int32_t i = cfile[b].sub;
    const double value = cfile[b].val;
    const LuLine row = f->urow[i];
    if (!lu_usable(std::fabs(value), f->abspiv)) continue;
    if (f->pivmode != LU_PIVMODE_COLUMN && !(std::fabs(value) >= f->relpiv * largest(rfile, row))) continue;
    int32_t at = row.beg;
    for (int32_t a = row.beg; a < row.beg + row.cnt; ++a) {
      const int32_t x = rfile[a].sub;
      if (x == j) at = a;
      if (--count[x] == 1) stack[top++] = x;
    }
    work += row.cnt + f->ucol[j].cnt;
    record(f, i, j, value, true);
    swap_to_end(rfile, row, at);
  }
  lu_charge(f, LU_OP_COLTRIAN, work);
}

// Rows with one active column. Those whose pivot is large enough in its column are forward pivots with multipliers in L
// and an empty row of U; in column mode the others go to the far end, where no multipliers arise and so no threshold is
// needed. Returns the elements of L.
int64_t row_singletons(lu* f, int32_t* count, int32_t* stack) {
  LuTimer timer(f, LU_OP_ROWTRIAN);
  const LuElm* __restrict cfile = f->cfile.data();
  LuElm* __restrict rfile = f->rfile.data();
  const int32_t active = f->nrow, unpivoted = f->nrow;
  int64_t multipliers = 0;
  WorkCount work = 0;
  for (int pass = 0; pass < (f->pivmode == LU_PIVMODE_COLUMN ? 2 : 1); ++pass) {
    const bool forward = pass == 0;
    int32_t top = 0;
    for (int32_t i = f->nrow - 1; i >= 0; --i) {
      if (f->perminv[i] != active) continue;
      if (forward) count[i] = f->urow[i].cnt;
      if (count[i] == 1) stack[top++] = i;
    }
    while (top > 0) {
      const int32_t i = stack[--top];
      if (count[i] != 1 || f->perminv[i] != active) continue;
      const LuLine row = f->urow[i];
      int32_t at = row.beg;
      while (f->invq[rfile[at].sub] != unpivoted) ++at;
      const int32_t j = rfile[at].sub;
      const double value = rfile[at].val, magnitude = std::fabs(value);
      const LuLine col = f->ucol[j];
      int32_t c = 0;
      double m = 0.0;
      for (int32_t b = col.beg; b < col.beg + col.cnt; ++b) {
        if (f->perminv[cfile[b].sub] != active) continue;
        ++c;
        m = std::max(m, std::fabs(cfile[b].val));
      }
      work += row.cnt + col.cnt;
      if (!lu_usable(magnitude, forward ? f->abspiv : 0.0)) continue;
      if (forward && !(f->relpiv * m <= magnitude)) continue;
      if (forward) multipliers += c - 1;
      record(f, i, j, value, forward);
      swap_to_end(rfile, row, at);
      if (c == 1) continue;
      for (int32_t b = col.beg; b < col.beg + col.cnt; ++b) {
        const int32_t x = cfile[b].sub;
        if (f->perminv[x] == active && --count[x] == 1) stack[top++] = x;
      }
    }
  }
  lu_charge(f, LU_OP_ROWTRIAN, work);
  return multipliers;
}

}  // namespace

int32_t lu_setup(lu* f, int32_t* iwork) {
  LuTimer timer(f, LU_OP_SETUP);
  int32_t* count = iwork;  // [ncol], nrow <= ncol or the queue of rows below
  int32_t* stack = iwork + std::max(f->nrow, f->ncol);
  f->state = LU_STATE_FACTOR;
  sort_columns(f, count);
  transpose(f);
  lu_charge(f, LU_OP_SETUP, 4 * int64_t{f->uendc} + 2 * int64_t{f->nrow} + 2 * int64_t{f->ncol});
  for (int32_t i = 0; i < f->nrow; ++i) f->perminv[i] = f->nrow;
  column_singletons(f, count, stack);
  const int32_t s0 = f->stpf;
  int64_t multipliers = 0;
  if (s0 < f->nrow) multipliers = row_singletons(f, count, stack);
  const int32_t s1 = f->stpf;
  for (int32_t i = 0, to = s1; to < f->nrow - f->stpb; ++i) {
    if (f->perminv[i] != f->nrow) continue;
    f->perm[to] = i;
    f->perminv[i] = to++;
  }

  LuElm* __restrict cfile = f->cfile.data();
  LuElm* __restrict rfile = f->rfile.data();
  f->lnzest = multipliers;
  if (!f->dropl && multipliers > 0) {
    if (f->uendr + multipliers > f->wsze) return LU_FILESPACE;
    for (int32_t p = s0; p < s1; ++p) {
      const int32_t i = f->perm[p];
      const LuLine col = f->ucol[f->q[i]];
      const int32_t top = f->lbeg;
      for (int32_t b = col.beg; b < col.beg + col.cnt; ++b) {
        if (f->perminv[cfile[b].sub] > p) rfile[--f->lbeg] = {-cfile[b].val / f->piv[i], cfile[b].sub, 0};
      }
      if (top == f->lbeg) continue;
      f->lcol[i] = {f->lbeg, top - f->lbeg};
      ++f->lupds;
    }
  }

  // The rows go to the other file in permutation order, each with its rounded capacity, without their pivots and
  // without what belongs to L (an element in a column of a row singleton that came before); then the files change
  // places.
  int32_t end = 0;
  for (int32_t p = 0; p < f->nrow; ++p) {
    const int32_t i = f->perm[p];
    LuLine& row = f->urow[i];
    const bool pivoted = p < s1 || p >= f->nrow - f->stpb;
    int32_t n = row.cnt - (pivoted ? 1 : 0);
    if (p < s0 || s0 == s1) {
      if (n > f->lbeg - end) return LU_FILESPACE;
      if (f->dropu && pivoted) {
        f->unzest += n;
        n = 0;
      }
      std::copy_n(rfile + row.beg, n, cfile + end);
    } else if (p < s1) {
      n = 0;  // a row singleton has nothing but L behind its pivot
    } else {
      if (n > f->lbeg - end) return LU_FILESPACE;
      int32_t kept = 0;
      for (int32_t a = row.beg; a < row.beg + n; ++a) {
        const int32_t k = f->invq[rfile[a].sub];
        if (k == f->nrow || f->perminv[k] >= s1) cfile[end + kept++] = rfile[a];
      }
      n = kept;
      if (f->dropu && pivoted) {
        f->unzest += n;
        n = 0;
      }
    }
    if (pivoted) f->unzest += n;
    const int32_t cap = lu_capacity(n, f->ncol);
    if (cap > f->lbeg - end) return LU_FILESPACE;
    row = {end, n};
    f->ucapr[i] = cap;
    end += cap;
  }
  std::copy_n(rfile + f->lbeg, f->wsze - f->lbeg, cfile + f->lbeg);
  f->rfile.swap(f->cfile);
  f->uendr = end;
  f->uendc = 0;
  lu_clearfree(f, f->freer);
  lu_clearfree(f, f->freec);
  return LU_OK;
}

}  // namespace tarvo
