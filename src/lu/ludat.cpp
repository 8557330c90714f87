// The object: life, parameters, loading, queries, statistics.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "lu/lu_internal.h"

namespace tarvo {

namespace {

bool alloc_arrays(lu* f) {
  sysenv* env = f->env;
  const auto m = static_cast<std::size_t>(f->mnrow);
  const auto n = static_cast<std::size_t>(f->mncol);
  const auto etas = static_cast<std::size_t>(f->mlu);
  return f->lcol.alloc(env, m, Fill::zero) && f->lrow.alloc(env, m, Fill::zero) && f->lcollist.alloc(env, m) &&
         f->lrowlist.alloc(env, m) && f->etabeg.alloc(env, etas + 1, Fill::zero) && f->etarow.alloc(env, etas) &&
         f->piv.alloc(env, m, Fill::zero) && f->urow.alloc(env, m, Fill::zero) && f->ucol.alloc(env, n, Fill::zero) &&
         f->ucapr.alloc(env, m, Fill::zero) && f->ucapc.alloc(env, n, Fill::zero) && f->q.alloc(env, m, Fill::zero) &&
         f->invq.alloc(env, n, Fill::zero) && f->perm.alloc(env, m, Fill::zero) &&
         f->perminv.alloc(env, m, Fill::zero) && f->order.alloc(env, m + etas) && f->orderpos.alloc(env, m) &&
         f->seen.alloc(env, m, Fill::zero) && f->stack.alloc(env, 2 * m) && f->list.alloc(env, m) &&
         f->start.alloc(env, m) && f->rwrk.alloc(env, m, Fill::zero);
}

template <class T>
void copy_used(Array<T>* to, const Array<T>& from, std::size_t beg, std::size_t end) {
  if (end > beg) std::memcpy(to->data() + beg, from.data() + beg, (end - beg) * sizeof(T));
}
template <class T>
void copy_all(Array<T>* to, const Array<T>& from) {
  copy_used(to, from, 0, from.size());
}

}  // namespace

int32_t lu_make(sysenv* env, int32_t mnrow, int32_t mncol, lu** result) {
  *result = nullptr;
  if (mnrow < 0) return LU_BAD_NROW;
  if (mncol < 0 || mncol < mnrow) return LU_BAD_NCOL;
  if (mnrow > INT32_MAX / 4) return LU_SPACE;  // eta tables of 2 mnrow, order of 3 mnrow
  void* memory = sysenv_malloc(env, 1, sizeof(lu));
  if (memory == nullptr) return LU_SPACE;
  lu* f = new (memory) lu;
  f->env = env;
  f->mnrow = f->nrow = mnrow;
  f->mncol = f->ncol = mncol;
  f->mlu = 2 * mnrow;
  if (!alloc_arrays(f)) {
    lu_delete(&f);
    return LU_SPACE;
  }
  *result = f;
  return LU_OK;
}

void lu_delete(lu** factor) {
  lu* f = *factor;
  *factor = nullptr;
  if (f == nullptr) return;
  sysenv* env = f->env;
  f->~lu();
  sysenv_free(env, f);
}

lu* lu_copy(sysenv* env, const lu* from) {
  lu* to = nullptr;
  if (lu_make(env, from->mnrow, from->mncol, &to) != LU_OK) return nullptr;
  if (lu_putwsze(to, from->wsze) != LU_OK) {
    lu_delete(&to);
    return nullptr;
  }
  to->nrow = from->nrow;
  to->ncol = from->ncol;
  to->maxgarcol = from->maxgarcol;
  to->wantdropl = from->wantdropl;
  to->wantdropu = from->wantdropu;
  to->maxupd = from->maxupd;
  to->droptol = from->droptol;
  to->relpiv = from->relpiv;
  to->abspiv = from->abspiv;
  to->updtol = from->updtol;
  to->searchlim = from->searchlim;
  to->hasmaxwork = from->hasmaxwork;
  to->maxwork = from->maxwork;
  to->needmem = from->needmem;
  to->timing = from->timing;
  to->pivmode = from->pivmode;
  to->rank = from->rank;
  to->lnzest = from->lnzest;
  to->unzest = from->unzest;
  if (from->state != LU_STATE_DONE) return to;

  to->state = LU_STATE_DONE;
  to->stpf = from->stpf;
  to->stpb = from->stpb;
  to->lbeg = from->lbeg;
  to->lend = from->lend;
  to->uendr = from->uendr;
  to->uendc = from->uendc;
  to->unz = from->unz;
  to->lnz = from->lnz;
  to->nlcol = from->nlcol;
  to->nlrow = from->nlrow;
  to->lupds = from->lupds;
  to->norder = from->norder;
  to->numupd = from->numupd;
  to->refac = from->refac;
  to->usedpivmode = from->usedpivmode;
  to->usedrelpiv = from->usedrelpiv;
  to->usedabspiv = from->usedabspiv;
  to->oldpiv = from->oldpiv;
  to->newpiv = from->newpiv;
  to->numgarcol = from->numgarcol;
  to->bestupd = from->bestupd;
  to->bestwork = from->bestwork;
  to->last = from->last;
  std::copy_n(from->freer, lu_num_classes, to->freer);
  std::copy_n(from->freec, lu_num_classes, to->freec);
  const auto top = static_cast<std::size_t>(from->wsze);
  copy_used(&to->rfile, from->rfile, 0, static_cast<std::size_t>(from->uendr));
  copy_used(&to->cfile, from->cfile, 0, static_cast<std::size_t>(from->uendc));
  copy_used(&to->rfile, from->rfile, static_cast<std::size_t>(from->lbeg), top);
  copy_used(&to->cfile, from->cfile, static_cast<std::size_t>(from->lend), top);
  copy_all(&to->lcol, from->lcol);
  copy_all(&to->lrow, from->lrow);
  copy_used(&to->lcollist, from->lcollist, 0, static_cast<std::size_t>(from->nlcol));
  copy_used(&to->lrowlist, from->lrowlist, 0, static_cast<std::size_t>(from->nlrow));
  copy_used(&to->etabeg, from->etabeg, 0, static_cast<std::size_t>(from->lupds) + 1);
  copy_used(&to->etarow, from->etarow, 0, static_cast<std::size_t>(from->lupds));
  copy_all(&to->piv, from->piv);
  copy_all(&to->urow, from->urow);
  copy_all(&to->ucol, from->ucol);
  copy_all(&to->ucapr, from->ucapr);
  copy_all(&to->ucapc, from->ucapc);
  copy_all(&to->q, from->q);
  copy_all(&to->invq, from->invq);
  copy_all(&to->perm, from->perm);
  copy_all(&to->perminv, from->perminv);
  copy_used(&to->order, from->order, 0, static_cast<std::size_t>(from->norder));
  copy_used(&to->orderpos, from->orderpos, 0, static_cast<std::size_t>(from->nrow));
  return to;
}

int32_t lu_putwsze(lu* f, int64_t n) {
  f->state = LU_STATE_NONE;
  if (n == f->wsze) return LU_OK;
  f->rfile.reset();
  f->cfile.reset();
  f->wsze = 0;
  if (n < 0 || n > INT32_MAX) return LU_SPACE;
  const auto size = static_cast<std::size_t>(n);
  if (!f->rfile.alloc(f->env, size) || !f->cfile.alloc(f->env, size)) {
    f->rfile.reset();
    return LU_SPACE;
  }
  f->wsze = static_cast<int32_t>(n);
  f->needmem = false;
  return LU_OK;
}

int32_t lu_getwsze(const lu* f) { return f->wsze; }

int64_t lu_getneededwsze(const lu* f) {
  int64_t size = std::max(2 * int64_t{f->wsze}, 5 * int64_t{f->nrow}) + 1;
  if (f->dropl) size += f->lnzest;
  if (f->dropu) size += f->unzest + f->unzest / 4;
  return size;
}

bool lu_getneedmem(const lu* f) { return f->needmem; }
int32_t lu_getnumgarcol(const lu* f) { return f->numgarcol; }

int32_t lu_putnrow(lu* f, int32_t nrow) {
  if (nrow < 0 || nrow > f->mnrow) return LU_BAD_NCOL;
  if (nrow != f->nrow) f->state = LU_STATE_NONE;
  f->nrow = nrow;
  return LU_OK;
}

int32_t lu_putncol(lu* f, int32_t ncol) {
  if (ncol < 0 || ncol > f->mncol) return LU_BAD_NCOL;
  if (ncol != f->ncol) f->state = LU_STATE_NONE;
  f->ncol = ncol;
  return LU_OK;
}

int32_t lu_getnrow(const lu* f) { return f->nrow; }
int32_t lu_getncol(const lu* f) { return f->ncol; }

void lu_puttol(lu* f, LuTol kind, double value) {
  if (value != value) return;
  switch (kind) {
    case LU_TOL_DROP:
      f->droptol = value;
      break;
    case LU_TOL_ABSPIV:
      f->abspiv = value;
      break;
    case LU_TOL_RELPIV:
      f->relpiv = std::clamp(value, 0.0001, 0.9999);
      break;
  }
}

double lu_gettol(const lu* f, LuTol kind) {
  return kind == LU_TOL_DROP ? f->droptol : kind == LU_TOL_ABSPIV ? f->abspiv : f->relpiv;
}

void lu_puttrh(lu* f, LuTrh kind, int32_t value) {
  if (kind != LU_TRH_MAXUPD) sysenv_fatal(f->env, "Unknown treshold");
  f->maxupd = std::max(value, 0);
}

int32_t lu_gettrh(const lu* f, LuTrh kind) {
  if (kind != LU_TRH_MAXUPD) sysenv_fatal(f->env, "Unknown treshold");
  return f->maxupd;
}

void lu_putpivmode(lu* f, LuPivmode mode) { f->pivmode = mode; }
LuPivmode lu_getpivmode(const lu* f) { return f->pivmode; }
LuPivmode lu_getusedpivmode(const lu* f) { return f->usedpivmode; }
double lu_getusedtol(const lu* f, LuTol kind) {
  return kind == LU_TOL_DROP ? f->droptol : kind == LU_TOL_ABSPIV ? f->usedabspiv : f->usedrelpiv;
}
void lu_putdropl(lu* f, bool accept) { f->wantdropl = accept; }
void lu_putdropu(lu* f, bool accept) { f->wantdropu = accept; }
void lu_putcallback(lu* f, void* handle, LuCallback func) {
  f->cbhandle = handle;
  f->cbfunc = func;
}
void lu_putprint(lu* f, void* handle, LuPrint func) {
  f->printhandle = handle;
  f->print = func;
}
void lu_putmaxwork(lu* f, bool limited, WorkCount maxwork) {
  f->hasmaxwork = limited;
  f->maxwork = maxwork;
}
void lu_puttiming(lu* f, bool on) { f->timing = on; }

void lu_reset(lu* f) {
  f->state = LU_STATE_LOAD;
  f->stpf = f->stpb = 0;
  f->uendr = f->uendc = 0;
  f->lbeg = f->lend = f->wsze;
  f->lupds = f->numupd = 0;
  f->lnz = f->unz = f->lnzest = f->unzest = 0;
  f->nlcol = f->nlrow = f->norder = 0;
  f->sorted = true;
  f->refac = f->needmem = false;
  f->oldpiv = f->newpiv = 0.0;
  f->dropl = f->wantdropl;
  f->dropu = f->wantdropu;
  f->numgarcol = f->numbldcol = f->numrowres = f->numcolres = 0;
  f->last = {};
  for (int32_t i = 0; i < f->nrow; ++i) {
    f->q[i] = f->ncol;
    f->piv[i] = 0.0;
    f->urow[i] = {0, 0};
    f->ucapr[i] = 0;
    f->lcol[i] = f->lrow[i] = {0, 0};
  }
  for (int32_t j = 0; j < f->ncol; ++j) {
    f->invq[j] = f->nrow;
    f->ucol[j] = {0, 0};
    f->ucapc[j] = 0;
  }
}

int32_t lu_addelm(lu* f, double value, int32_t i, int32_t j) { return lu_addcol(f, j, 1, &value, &i); }

int32_t lu_addcol(lu* f, int32_t j, int32_t n, const double* values, const int32_t* rows) {
  if (n > f->wsze - f->uendc) return LU_FILESPACE;
  LuElm* file = f->cfile.data();
  int32_t end = f->uendc;
  if (end > 0 && file[end - 1].pos > j) f->sorted = false;
  const double droptol = f->droptol;
  for (int32_t k = 0; k < n; ++k) {
    if (std::fabs(values[k]) <= droptol) continue;
    file[end++] = {values[k], rows[k], j};
  }
  f->uendc = end;
  return LU_OK;
}

int32_t lu_addcolperm(lu* f, int32_t j, int32_t n, const double* values, const int32_t* rows, int32_t limit,
                      const int32_t* map) {
  if (n > f->wsze - f->uendc) return LU_FILESPACE;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = map[rows[k]];
    if (i >= limit) continue;
    if (i < 0 || i >= f->nrow) return LU_INDEX;
    if (const int32_t res = lu_addcol(f, j, 1, values + k, &i); res != LU_OK) return res;
  }
  return LU_OK;
}

bool lu_isfactored(const lu* f) { return f->state == LU_STATE_DONE; }
void lu_invalidate(lu* f) { f->state = LU_STATE_NONE; }
int32_t lu_getrank(const lu* f) { return f->rank; }

int32_t lu_getpivot(const lu* f, int32_t i, int32_t* col, double* pivot) {
  if (f->state != LU_STATE_FACTOR && f->state != LU_STATE_DONE) return LU_NOFACTOR;
  if (i < 0 || i >= f->nrow) return LU_INDEX;
  *col = f->q[i];
  *pivot = f->piv[i];
  return LU_OK;
}

void lu_getfill(const lu* f, int64_t* lnz, int64_t* unz) {
  *lnz = f->lnz;
  *unz = f->unz + f->stpf + f->stpb;
}

int32_t lu_getnumupd(const lu* f) { return f->numupd; }
bool lu_needrefac(const lu* f) { return f->refac || f->state != LU_STATE_DONE; }
void lu_getupdpivots(const lu* f, double* oldpivot, double* newpivot) {
  *oldpivot = f->oldpiv;
  *newpivot = f->newpiv;
}

WorkCount lu_getwork(const lu* f, LuOp op, bool last) { return last ? f->last.work[op] : f->total.work[op]; }

void lu_printstats(const lu* f, void* handle, LuPrint print) {
  static const char* const names[LU_NUM_OPS] = {"Factor setup",  "Factor pivot",  "Factor search",   "Factor finalize",
                                                "Update",        "Dense L fw",    "Sparse l fw",     "Dense l bw",
                                                "Sparse l bw",   "Dense U fw",    "Sparse U fw",     "Dense U bw",
                                                "Sparse U bw",   "Transpose",     "Col trian.",      "Row trian.",
                                                "Setup final U", "Setup final L", "Building columns"};
  char text[256];
  print(handle, "\nLU work statistics\n\n");
  std::snprintf(text, sizeof text, "%-20s  %-22s  %-22s\n", "", "Last", "Total");
  print(handle, text);
  std::snprintf(text, sizeof text, "%-20s  %-8s  %-12s  %-12s  %-8s  %-12s  %-12s  %12s\n", "Task", "count", "work",
                "time", "count", "work", "time", "work(M)/time");
  print(handle, text);
  for (int op = 0; op < LU_NUM_OPS; ++op) {
    const auto saturated = [](int64_t n) { return static_cast<int>(std::min<int64_t>(n, INT32_MAX)); };
    std::snprintf(text, sizeof text, "%-20s  %-8d  %-12.4e  %-12.4f  %-8d  %-12.4e  %-12.4f", names[op],
                  saturated(f->last.count[op]), static_cast<double>(f->last.work[op]), f->last.time[op],
                  saturated(f->total.count[op]), static_cast<double>(f->total.work[op]), f->total.time[op]);
    print(handle, text);
    const double time = f->total.time[op];
    if (time > 0.0) {
      std::snprintf(text, sizeof text, "  %-12.1f\n", static_cast<double>(f->total.work[op]) / (time * 1e6));
    } else {
      std::snprintf(text, sizeof text, "  %-12s\n", "NA");
    }
    print(handle, text);
  }
}

}  // namespace tarvo
