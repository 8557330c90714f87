// Storage of the rows and columns of U in the two files.
#include <algorithm>
#include <cstring>

#include "lu/lu_internal.h"

namespace tarvo {

void lu_clearfree(lu* f, int32_t* heads) { std::fill_n(heads, lu_num_classes, f->wsze); }

namespace {

// Puts the block of a line on the free list of its class.
void release(LuElm* file, int32_t* heads, int32_t beg, int32_t* cap) {
  if (*cap == 0) return;
  int32_t& head = heads[lu_sizeclass(*cap)];
  file[beg].pos = head;
  head = beg;
  *cap = 0;
}

// Copies a line to slot `to` of its file and mends the bonds in the other file.
void move(LuElm* __restrict file, LuElm* __restrict other, LuLine* line, int32_t to) {
  const LuElm* from = file + line->beg;
  for (int32_t k = 0; k < line->cnt; ++k) {
    file[to + k] = from[k];
    other[from[k].pos].pos = to + k;
  }
  line->beg = to;
}

// A free block of capacity cap in a file, or -1: from the free list, else from the end.
int32_t take(const LuElm* file, int32_t* heads, int32_t cap, int32_t* end, int32_t limit, int32_t nil) {
  int32_t& head = heads[lu_sizeclass(cap)];
  if (head != nil) {
    const int32_t beg = head;
    head = file[beg].pos;
    return beg;
  }
  if (cap > limit - *end) return -1;
  const int32_t beg = *end;
  *end += cap;
  return beg;
}

}  // namespace

int32_t lu_resizerow(lu* f, int32_t i, int32_t n) {
  LuElm* file = f->rfile.data();
  if (n == 0) {
    release(file, f->freer, f->urow[i].beg, &f->ucapr[i]);
    return LU_OK;
  }
  if (n <= f->ucapr[i]) return LU_OK;
  ++f->numrowres;
  const int32_t cap = lu_capacity(n, f->ncol);
  int32_t to = take(file, f->freer, cap, &f->uendr, f->lbeg, f->wsze);
  if (to < 0) {
    if (const int32_t res = lu_garcol(f); res != LU_OK) return res;
    to = take(file, f->freer, cap, &f->uendr, f->lbeg, f->wsze);
    if (to < 0) return LU_FILESPACE;
  }
  const int32_t old = f->urow[i].beg;
  move(file, f->cfile.data(), &f->urow[i], to);
  release(file, f->freer, old, &f->ucapr[i]);
  f->ucapr[i] = cap;
  return LU_OK;
}

int32_t lu_resizecol(lu* f, int32_t j, int32_t n) {
  LuElm* file = f->cfile.data();
  if (n == 0) {
    release(file, f->freec, f->ucol[j].beg, &f->ucapc[j]);
    return LU_OK;
  }
  if (n <= f->ucapc[j]) return LU_OK;
  ++f->numcolres;
  const int32_t cap = lu_capacity(n, f->nrow);
  int32_t to = take(file, f->freec, cap, &f->uendc, f->lbeg, f->wsze);
  if (to < 0) {
    if (const int32_t res = lu_buildcol(f); res != LU_OK) return res;
    to = take(file, f->freec, cap, &f->uendc, f->lbeg, f->wsze);
    if (to < 0) return LU_FILESPACE;
  }
  const int32_t old = f->ucol[j].beg;
  move(file, f->rfile.data(), &f->ucol[j], to);
  release(file, f->freec, old, &f->ucapc[j]);
  f->ucapc[j] = cap;
  return LU_OK;
}

int32_t lu_garcol(lu* f) {
  if (f->numgarcol >= f->maxgarcol) {
    f->state = LU_STATE_NONE;
    f->maxgarcol = f->maxgarcol > INT32_MAX / 2 ? INT32_MAX : 2 * f->maxgarcol;
    return LU_GARCOL;
  }
  ++f->numgarcol;
  LuElm* rfile = f->rfile.data();
  LuElm* cfile = f->cfile.data();
  const bool done = f->state == LU_STATE_DONE;
  const int32_t* rows = done ? f->order.data() : f->perm.data();
  const int32_t n = done ? f->norder : f->nrow;
  // The prefix of rows that lie as they would be laid stays. A rounded capacity is at most the one in force, so the
  // packed rows fit below lbeg.
  int32_t k = 0, end = 0;
  for (; k < n; ++k) {
    const int32_t i = rows[k];
    if (i < 0) continue;
    const int32_t cap = lu_capacity(f->urow[i].cnt, f->ncol);
    if (f->ucapr[i] != cap || (cap != 0 && f->urow[i].beg != end)) break;
    end += cap;
  }
  const int32_t start = end;
  for (; k < n; ++k) {
    const int32_t i = rows[k];
    if (i < 0) continue;
    LuLine& row = f->urow[i];
    std::copy_n(rfile + row.beg, row.cnt, cfile + (end - start));
    row.beg = end;
    f->ucapr[i] = lu_capacity(row.cnt, f->ncol);
    end += f->ucapr[i];
  }
  std::copy_n(cfile, end - start, rfile + start);
  f->uendr = end;
  lu_clearfree(f, f->freer);
  return lu_buildcol(f);
}

int32_t lu_buildcol(lu* f) {
  LuTimer timer(f, LU_OP_BUILDCOL);
  ++f->numbldcol;
  const bool done = f->state == LU_STATE_DONE;
  const int32_t numcol = done ? f->nrow : f->ncol;
  const int32_t* rows = done ? f->order.data() : f->perm.data() + f->stpf;
  const int32_t n = done ? f->norder : f->nrow - f->stpf - f->stpb;
  LuElm* __restrict rfile = f->rfile.data();
  LuElm* __restrict cfile = f->cfile.data();
  LuLine* __restrict col = f->ucol.data();
  const LuLine* __restrict row = f->urow.data();

  for (int32_t j = 0; j < numcol; ++j) col[j].cnt = 0;
  WorkCount touched = 0;
  for (int32_t k = 0; k < n; ++k) {
    if (rows[k] < 0) continue;
    const LuLine line = row[rows[k]];
    for (int32_t a = line.beg; a < line.beg + line.cnt; ++a) ++col[rfile[a].sub].cnt;
    touched += line.cnt;
  }
  lu_charge(f, LU_OP_BUILDCOL, touched);
  int64_t end = 0;
  const auto lay = [&](int32_t j) {
    const int32_t cap = lu_capacity(col[j].cnt, f->nrow);
    col[j].beg = static_cast<int32_t>(end);
    f->ucapc[j] = cap;
    end += cap;
    return end <= f->lbeg;
  };
  bool fits = true;
  if (done) {
    // FTRAN takes the columns from the last to the first.
    for (int32_t k = n - 1; k >= 0 && fits; --k) {
      if (rows[k] >= 0) fits = lay(rows[k]);
    }
  } else {
    for (int32_t j = 0; j < numcol && fits; ++j) fits = lay(j);
  }
  if (!fits) {
    f->state = LU_STATE_NONE;
    return LU_FILESPACE;
  }
  f->uendc = static_cast<int32_t>(end);
  lu_clearfree(f, f->freec);
  for (int32_t j = 0; j < numcol; ++j) col[j].cnt = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = rows[k];
    if (i < 0) continue;
    const LuLine line = row[i];
    for (int32_t a = line.beg; a < line.beg + line.cnt; ++a) {
      LuLine& to = col[rfile[a].sub];
      const int32_t b = to.beg + to.cnt++;
      cfile[b] = {rfile[a].val, i, a};  // the value counts in state 3 only
      rfile[a].pos = b;
    }
  }
  return LU_OK;
}

}  // namespace tarvo
