// Markowitz elimination: the pivot search and one elimination step.
#include <algorithm>

#include "lu/lu_internal.h"

namespace tarvo {

namespace {

double column_max(const lu* f, int32_t j) {
  const LuElm* __restrict rfile = f->rfile.data();
  const LuElm* __restrict cfile = f->cfile.data();
  const LuLine col = f->ucol[j];
  double m = 0.0;
  for (int32_t b = col.beg; b < col.beg + col.cnt; ++b) {
    const double v = std::fabs(rfile[cfile[b].pos].val);
    if (v > m) m = v;
  }
  return m;
}

double row_max(const lu* f, int32_t i) {
  const LuElm* __restrict rfile = f->rfile.data();
  const LuLine row = f->urow[i];
  double m = 0.0;
  for (int32_t a = row.beg; a < row.beg + row.cnt; ++a) {
    const double v = std::fabs(rfile[a].val);
    if (v > m) m = v;
  }
  return m;
}

// Drops the lines of count 0 from a queue.
WorkCount drop_empty(prque* q) {
  WorkCount work = 0;
  while (q->minkey == 0) {
    pq_remove(q, q->first[0]);
    ++work;
  }
  return work;
}

// Looks through the sparsest columns and rows, columns first, for the element of least merit (r-1)(c-1) that is large
// enough, and gives up looking for a better one after searchlim lines.
template <bool both>
class Search {
 public:
  Search(lu* f, LuNucleus* nuc) : f_(f), nuc_(nuc), best_{f->nrow, f->ncol, true} {}

  LuPivot run() {
    LuTimer timer(f_, LU_OP_SEARCH);
    search();
    lu_charge(f_, LU_OP_SEARCH, work_);
    return best_;
  }

 private:
  void search() {
    prque* rowq = &nuc_->rowq;
    prque* colq = &nuc_->colq;
    work_ += drop_empty(colq);
    if (colq->count == 0) return;
    if (!both && column_singleton()) return;
    work_ += drop_empty(rowq);
    if (rowq->count == 0) return;
    if (!both && row_singleton()) return;
    const int32_t nr = f_->nrow - f_->stpf - f_->stpb, nc = f_->ncol - f_->stpf;
    rlevel_ = rowq->minkey;
    clevel_ = colq->minkey;
    while (rlevel_ <= nc && clevel_ <= nr && !finished()) {
      const int32_t k = std::min(rlevel_, clevel_);
      if (clevel_ == k) {
        if (scan_columns(k)) return;
        clevel_ = pq_bucketfrom(colq, k + 1);
      }
      if (rlevel_ == k && !finished()) {
        if (scan_rows(k)) return;
        rlevel_ = pq_bucketfrom(rowq, k + 1);
      }
    }
  }

  bool found() const { return best_.row != f_->nrow; }
  bool finished() const {
    return found() && (merit_ <= int64_t{rlevel_ - 1} * (clevel_ - 1) || searched_ >= f_->searchlim);
  }

  // A column or row of count 1 whose element is too small can't give a pivot until it changes, and then it comes back
  // into the queue.
  bool column_singleton() {
    prque* colq = &nuc_->colq;
    while (colq->minkey == 1) {
      const int32_t j = colq->first[1];
      const LuElm& element = f_->cfile[f_->ucol[j].beg];
      ++work_;
      if (lu_usable(std::fabs(f_->rfile[element.pos].val), f_->abspiv)) {
        best_ = {element.sub, j, true};
        return true;
      }
      pq_remove(colq, j);
    }
    return colq->count == 0;
  }
  bool row_singleton() {
    prque* rowq = &nuc_->rowq;
    while (rowq->minkey == 1) {
      const int32_t i = rowq->first[1];
      const LuElm& element = f_->rfile[f_->urow[i].beg];
      ++work_;
      if (pq_has(&nuc_->colq, element.sub) && lu_usable(std::fabs(element.val), f_->abspiv)) {
        best_ = {i, element.sub, false};
        return true;
      }
      pq_remove(rowq, i);
    }
    return rowq->count == 0;
  }

  double known_colmax(int32_t j) {
    double& m = nuc_->colmax[j];
    if (m < 0.0) {
      m = column_max(f_, j);
      work_ += f_->ucol[j].cnt;
    }
    return m;
  }
  double known_rowmax(int32_t i) {
    double& m = nuc_->rowmax[i];
    if (m < 0.0) {
      m = row_max(f_, i);
      work_ += f_->urow[i].cnt;
    }
    return m;
  }
  bool better(int64_t merit) const { return !found() || merit < merit_; }
  void take(int32_t i, int32_t j, int64_t merit) {
    best_.row = i;
    best_.col = j;
    merit_ = merit;
  }

  // All columns of count k. True: stop.
  bool scan_columns(int32_t k) {
    const LuElm* __restrict rfile = f_->rfile.data();
    const LuElm* __restrict cfile = f_->cfile.data();
    prque* colq = &nuc_->colq;
    for (int32_t j = colq->first[k], after; j != colq->maxe; j = after) {
      after = colq->next[j];
      const double m = known_colmax(j);
      if (!lu_usable(m, f_->abspiv)) {
        pq_remove(colq, j);
        continue;
      }
      const double least = std::max(f_->relpiv * m, f_->abspiv);
      const LuLine col = f_->ucol[j];
      for (int32_t b = col.beg; b < col.beg + col.cnt; ++b) {
        const int32_t i = cfile[b].sub, r = f_->urow[i].cnt;
        const int64_t merit = int64_t{r - 1} * (k - 1);
        if (!better(merit) || (both && r < k)) continue;
        const double v = std::fabs(rfile[cfile[b].pos].val);
        if (!lu_usable(v, least)) continue;
        if (both && !(v >= f_->relpiv * known_rowmax(i))) continue;
        take(i, j, merit);
      }
      work_ += col.cnt;
      ++searched_;
      if (finished()) return true;
    }
    return false;
  }

  // All rows of count k, for elements in columns that are longer than those already looked through. True: stop.
  bool scan_rows(int32_t k) {
    const LuElm* __restrict rfile = f_->rfile.data();
    prque* rowq = &nuc_->rowq;
    const prque* colq = &nuc_->colq;
    for (int32_t i = rowq->first[k], after; i != rowq->maxe; i = after) {
      after = rowq->next[i];
      const LuLine row = f_->urow[i];
      double least = f_->abspiv;
      if (both) {
        const double m = known_rowmax(i);
        if (!lu_usable(m, f_->abspiv)) {
          pq_remove(rowq, i);
          continue;
        }
        least = std::max(f_->relpiv * m, f_->abspiv);
      }
      double m = 0.0;
      int32_t absent = 0;
      for (int32_t a = row.beg; a < row.beg + row.cnt; ++a) {
        const int32_t j = rfile[a].sub;
        const int32_t c = colq->key[j];
        if (c == colq->inactive) {
          ++absent;
          continue;
        }
        const double v = std::fabs(rfile[a].val);
        if (v > m) m = v;
        const int64_t merit = int64_t{k - 1} * (c - 1);
        if (c <= k || !better(merit) || !lu_usable(v, least)) continue;
        if (f_->relpiv * known_colmax(j) <= v) take(i, j, merit);
      }
      work_ += row.cnt;
      if (absent == row.cnt) {
        pq_remove(rowq, i);
        continue;
      }
      ++searched_;
      if (finished()) return true;
      if (!(m >= f_->abspiv)) pq_remove(rowq, i);
    }
    return false;
  }

  lu* f_;
  LuNucleus* nuc_;
  LuPivot best_;
  int64_t merit_ = 0;
  int32_t rlevel_ = 0, clevel_ = 0, searched_ = 0;
  WorkCount work_ = 0;
};

// When a step finds no room: goes on without L, then without U, so that the rank and the storage needed become known.
int32_t give_up_storage(lu* f) {
  if (!f->dropl) {
    f->dropl = true;
    f->lbeg = f->wsze;
    f->lupds = 0;
  }
  if (!f->dropu) {
    f->dropu = true;
    for (int32_t p = 0; p < f->nrow; ++p) {
      if (p >= f->stpf && p < f->nrow - f->stpb) continue;
      const int32_t i = f->perm[p];
      f->urow[i].cnt = 0;
      lu_resizerow(f, i, 0);
    }
    if (const int32_t res = lu_buildcol(f); res != LU_OK) return res;
  }
  return lu_garcol(f);
}

int32_t grow_row(lu* f, int32_t i, int32_t n) {
  if (n <= f->ucapr[i]) return LU_OK;
  int32_t res = lu_resizerow(f, i, n);
  if (res != LU_FILESPACE || f->state == LU_STATE_NONE) return res;
  res = give_up_storage(f);
  return res != LU_OK ? res : lu_resizerow(f, i, n);
}

int32_t grow_col(lu* f, int32_t j, int32_t n) {
  if (n <= f->ucapc[j]) return LU_OK;
  int32_t res = lu_resizecol(f, j, n);
  if (res != LU_FILESPACE || f->state == LU_STATE_NONE) return res;
  res = give_up_storage(f);
  return res != LU_OK ? res : lu_resizecol(f, j, n);
}

// Room for n elements of L; on LU_OK it is there unless L is dropped.
int32_t room_for_l(lu* f, int32_t n) {
  const auto fits = [f, n] { return n <= f->lbeg - std::max(f->uendr, f->uendc); };
  if (fits()) return LU_OK;
  if (const int32_t res = lu_garcol(f); res != LU_OK) return res;
  return fits() ? LU_OK : give_up_storage(f);
}

// Room for one more element in a row and in a column. Making room for one may take the spare room of the other.
int32_t room_for_fill(lu* f, int32_t i, int32_t j) {
  for (;;) {
    int32_t res;
    if (f->urow[i].cnt == f->ucapr[i]) {
      res = grow_row(f, i, f->urow[i].cnt + 1);
    } else if (f->ucol[j].cnt == f->ucapc[j]) {
      res = grow_col(f, j, f->ucol[j].cnt + 1);
    } else {
      return LU_OK;
    }
    if (res != LU_OK) return res;
  }
}

void add_fill(lu* f, int32_t i, int32_t j, double value) {
  LuLine& row = f->urow[i];
  LuLine& col = f->ucol[j];
  const int32_t a = row.beg + row.cnt++;
  const int32_t b = col.beg + col.cnt++;
  f->rfile[a] = {value, j, b};
  f->cfile[b] = {value, i, a};
}

}  // namespace

LuPivot lu_choosepivincol(lu* f, LuNucleus* nuc) { return Search<false>(f, nuc).run(); }
LuPivot lu_choosepivinboth(lu* f, LuNucleus* nuc) { return Search<true>(f, nuc).run(); }

int32_t lu_dopivot(lu* f, LuNucleus* nuc, const LuPivot& pivot) {
  LuTimer timer(f, LU_OP_PIVOT);
  const int32_t i = pivot.row, j = pivot.col;
  const int32_t r = f->urow[i].cnt, c = f->ucol[j].cnt;
  const bool eliminate = pivot.eliminate && c >= 2;
  int32_t* __restrict mark = nuc->mark;
  double* __restrict w = nuc->w;
  int32_t* __restrict list = nuc->list;
  LuElm* rfile = f->rfile.data();
  LuElm* cfile = f->cfile.data();
  const double droptol = f->droptol;
  f->unzest += r - 1;
  WorkCount work = r + c;

  if (nuc->rowmax != nullptr) {
    for (int32_t b = f->ucol[j].beg; b < f->ucol[j].beg + c; ++b) nuc->rowmax[cfile[b].sub] = -1.0;
  }
  // The pivot row leaves its columns; its other columns go to the list and, for the elimination, into w.
  int32_t nlist = 0;
  {
    const LuLine row = f->urow[i];
    int32_t at = row.beg;
    for (int32_t a = row.beg; a < row.beg + row.cnt; ++a) {
      const int32_t x = rfile[a].sub;
      nuc->colmax[x] = -1.0;
      lu_takefromcol(rfile, cfile, &f->ucol[x], rfile[a].pos);
      if (x == j) {
        at = a;
        continue;
      }
      list[nlist++] = x;
      w[x] = rfile[a].val;
      mark[x] = 1;
    }
    lu_recordpivot(f, i, j, rfile[at].val, pivot.eliminate);
    std::swap(rfile[at], rfile[row.beg + row.cnt - 1]);
    --f->urow[i].cnt;
  }
  if (f->dropu) {
    f->urow[i].cnt = 0;
    lu_resizerow(f, i, 0);
  }

  int32_t res = LU_OK;
  if (eliminate) {
    const double pivotvalue = f->piv[i];
    f->lnzest += c - 1;
    int32_t l = 0;
    if (!f->dropl) res = room_for_l(f, c - 1);
    if (res == LU_OK && !f->dropl) {
      f->lbeg -= c - 1;
      f->lcol[i] = {f->lbeg, c - 1};
      ++f->lupds;
      l = f->lbeg;
    }
    int32_t stamp = 1;
    while (res == LU_OK && f->ucol[j].cnt > 0) {
      // Row x += multiplier * pivot row. Space may be made on the way, so lines and files are read afresh.
      rfile = f->rfile.data();
      cfile = f->cfile.data();
      LuLine* row;
      int32_t x;
      double multiplier;
      {
        LuLine& col = f->ucol[j];
        const LuElm& element = cfile[col.beg + --col.cnt];
        x = element.sub;
        row = &f->urow[x];
        multiplier = -rfile[element.pos].val / pivotvalue;
        lu_takefromrow(rfile, cfile, row, element.pos);
      }
      if (!f->dropl) rfile[l++] = {multiplier, x, 0};
      work += row->cnt;
      ++stamp;
      int32_t hits = 0;
      for (int32_t a = row->beg; a < row->beg + row->cnt;) {
        const int32_t y = rfile[a].sub;
        if (mark[y] == 0) {
          ++a;
          continue;
        }
        const double value = rfile[a].val + multiplier * w[y];
        mark[y] = stamp;
        ++hits;
        if (std::fabs(value) <= droptol) {
          lu_takefromcol(rfile, cfile, &f->ucol[y], rfile[a].pos);
          lu_takefromrow(rfile, cfile, row, a);
        } else {
          rfile[a++].val = value;
        }
      }
      if (hits < nlist) {
        res = grow_row(f, x, row->cnt + nlist - hits);
        for (int32_t k = 0; k < nlist && res == LU_OK; ++k) {
          const int32_t y = list[k];
          if (mark[y] == stamp) continue;
          const double value = multiplier * w[y];
          if (std::fabs(value) <= droptol) continue;
          res = room_for_fill(f, x, y);
          if (res == LU_OK) add_fill(f, x, y, value);
        }
      }
      if (res == LU_OK) pq_put(&nuc->rowq, x, f->urow[x].cnt);
    }
    if (res == LU_OK) lu_resizecol(f, j, 0);
  }

  if (pq_has(&nuc->colq, j)) pq_remove(&nuc->colq, j);
  if (pq_has(&nuc->rowq, i)) pq_remove(&nuc->rowq, i);
  for (int32_t k = 0; k < nlist; ++k) {
    const int32_t x = list[k];
    mark[x] = 0;
    if (f->invq[x] == f->nrow) pq_put(&nuc->colq, x, f->ucol[x].cnt);
  }
  lu_charge(f, LU_OP_PIVOT, work);
  return res;
}

}  // namespace tarvo
