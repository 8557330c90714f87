// The Forrest-Tomlin update.
//
// Column j of B, pivoted in row r, changes. U's column r becomes the spike; row r is eliminated by the row eta
// R = I - e_r eta' with eta' = u_r' U~^-1, where u_r is the off-diagonal part of row r and U~ what lies behind it in
// the pivot order; the new pivot is p = spike_r - eta' spike, and r goes to the end of the order.
#include <algorithm>

#include "lu/lu_internal.h"

namespace tarvo {

namespace {

// The refactorisation rule compares the average work per update with the best so far.
constexpr int32_t late_update = 100;  // from here on the stricter percentage counts
constexpr int32_t early_percent = 90, late_percent = 99;
constexpr int32_t few_updates = 101;  // no room after fewer updates than this: the files are too small

// Solves eta' U~ = u_r'. eta is f->rwrk, its pattern f->list; returns its length.
int32_t lu_btranupd(lu* f, int32_t r, WorkCount* work) {
  const LuElm* __restrict elm = f->rfile.data();
  const LuLine* __restrict row = f->urow.data();
  const double* __restrict piv = f->piv.data();
  double* __restrict w = f->rwrk.data();
  int32_t* __restrict list = f->list.data();
  int32_t* __restrict start = f->start.data();
  const LuLine first = row[r];
  for (int32_t k = 0; k < first.cnt; ++k) {
    const LuElm& e = elm[first.beg + k];
    w[e.sub] = e.val;
    start[k] = e.sub;
  }
  int32_t kept = 0;
  const auto pass = [&](int32_t i) {
    if (w[i] == 0.0) return 0;
    const double t = w[i] /= piv[i];
    const LuLine line = row[i];
    for (int32_t a = line.beg; a < line.beg + line.cnt; ++a) w[elm[a].sub] -= t * elm[a].val;
    return line.cnt;
  };
  const int32_t found = lu_search(f, row, elm, first.cnt, start, work);
  if (found < 0) {
    for (int32_t p = f->orderpos[r] + 1; p < f->norder; ++p) {
      const int32_t i = f->order[p];
      if (i < 0) continue;
      *work += pass(i);
      if (w[i] != 0.0) list[kept++] = i;
    }
    *work += f->norder - f->orderpos[r];
    return kept;
  }
  // The finished nodes are visited from the end of the list; what is kept goes to `start`, then back.
  for (int32_t k = found - 1; k >= 0; --k) {
    const int32_t i = list[k];
    f->seen[i] = 0;
    pass(i);
    if (w[i] != 0.0) start[kept++] = i;
  }
  std::copy_n(start, kept, list);
  return kept;
}

// Whether the average work per update has grown enough for a new factorisation to pay. Works with exact products.
bool refactor_pays(lu* f) {
  __extension__ using Wide = __int128;
  WorkCount work = 0;
  for (int op = LU_OP_SETUP; op <= LU_OP_DENSE_U_BW; ++op) work += f->last.work[op];
  const Wide now = static_cast<Wide>(work) * f->bestupd, best = static_cast<Wide>(f->bestwork) * f->numupd;
  if (f->numupd == 1 || best > now) {
    f->bestupd = f->numupd;
    f->bestwork = work;
    return false;
  }
  return (f->numupd < late_update ? early_percent : late_percent) * now > 100 * best;
}

// Room for one more element in row i and column j (of the pivot row j).
int32_t make_room(lu* f, int32_t i, int32_t j, int32_t rest) {
  for (;;) {
    int32_t res;
    if (f->urow[i].cnt == f->ucapr[i]) {
      res = lu_resizerow(f, i, f->urow[i].cnt + 1);
    } else if (f->ucol[j].cnt == f->ucapc[j]) {
      res = lu_resizecol(f, j, f->ucol[j].cnt + rest);
    } else {
      return LU_OK;
    }
    if (res != LU_OK) return res;
  }
}

void move_to_end(lu* f, int32_t r) {
  if (f->orderpos[r] == f->norder - 1) return;
  if (f->norder == static_cast<int32_t>(f->order.size())) {
    int32_t n = 0;
    for (int32_t p = 0; p < f->norder; ++p) {
      if (f->order[p] < 0) continue;
      f->orderpos[f->order[p]] = n;
      f->order[n++] = f->order[p];
    }
    f->norder = n;
  }
  f->order[f->orderpos[r]] = -1;
  f->orderpos[r] = f->norder;
  f->order[f->norder++] = r;
}

// Puts the spike into U's column r, which is empty. The dense spike stays.
int32_t insert_spike(lu* f, int32_t r, int32_t n, const double* spike, const int32_t* spikesub) {
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = spikesub[k];
    if (i == r || std::fabs(spike[i]) <= f->droptol) continue;
    if (const int32_t res = make_room(f, i, r, n - k); res != LU_OK) return res;
    LuLine& row = f->urow[i];
    LuLine& col = f->ucol[r];
    const int32_t a = row.beg + row.cnt++, b = col.beg + col.cnt++;
    f->rfile[a] = {spike[i], r, b};
    f->cfile[b] = {spike[i], i, a};
  }
  f->unz += f->ucol[r].cnt;
  return LU_OK;
}

// Stores the eta of f->rwrk, f->list, negated, so that FTRAN adds it.
int32_t store_eta(lu* f, int32_t r, int32_t m) {
  const auto fits = [f, m] { return m <= f->lbeg - std::max(f->uendr, f->uendc); };
  if (!fits()) {
    if (const int32_t res = lu_garcol(f); res != LU_OK) return res;
    if (!fits()) return LU_FILESPACE;
  }
  f->lbeg -= m;
  LuElm* to = f->rfile.data() + f->lbeg;
  for (int32_t k = 0; k < m; ++k) to[k] = {-f->rwrk[f->list[k]], f->list[k], 0};
  f->etarow[f->lupds] = r;
  f->etabeg[++f->lupds] = f->lbeg;
  return LU_OK;
}

int32_t supdl(lu* f, int32_t r, int32_t leavecol, int32_t entercol, int32_t n, const double* spike,
              const int32_t* spikesub, int32_t* etalen) {
  WorkCount work = 0;
  const int32_t m = lu_btranupd(f, r, &work);
  *etalen = m;
  const double* __restrict eta = f->rwrk.data();
  const int32_t* __restrict list = f->list.data();
  lu_charge(f, LU_OP_UPDATE, std::min(n, m) + 1 + work);

  double p = spike[r], maxspike = 0.0, maxeta = 0.0, product = 0.0;
  for (int32_t k = 0; k < n; ++k) maxspike = std::max(maxspike, std::fabs(spike[spikesub[k]]));
  for (int32_t k = 0; k < m; ++k) maxeta = std::max(maxeta, std::fabs(eta[list[k]]));
  if (m < n) {
    for (int32_t k = 0; k < m; ++k) product += eta[list[k]] * spike[list[k]];
  } else {
    for (int32_t k = 0; k < n; ++k) product += eta[spikesub[k]] * spike[spikesub[k]];
  }
  p -= product;
  f->oldpiv = f->piv[r];
  f->newpiv = p;
  // Written so that a NaN is refused.
  const double least = std::max({f->abspiv, f->droptol, f->updtol * maxspike * maxeta});
  if (!(std::fabs(p) > least && std::fabs(p) <= DBL_MAX)) return LU_UNSTABLE;

  ++f->numupd;
  f->refac = refactor_pays(f);
  if (f->lupds == f->mlu) return LU_NOROOM;
  if (f->maxupd > 0 && f->numupd >= f->maxupd) f->refac = true;

  LuElm* rfile = f->rfile.data();
  LuElm* cfile = f->cfile.data();
  LuLine& row = f->urow[r];
  LuLine& col = f->ucol[r];
  for (int32_t a = row.beg; a < row.beg + row.cnt; ++a)
    lu_takefromcol(rfile, cfile, &f->ucol[rfile[a].sub], rfile[a].pos);
  for (int32_t b = col.beg; b < col.beg + col.cnt; ++b)
    lu_takefromrow(rfile, cfile, &f->urow[cfile[b].sub], cfile[b].pos);
  f->unz -= row.cnt + col.cnt;
  row.cnt = col.cnt = 0;
  f->invq[leavecol] = f->nrow;
  f->q[r] = entercol;
  f->invq[entercol] = r;

  int32_t res = insert_spike(f, r, n, spike, spikesub);
  f->piv[r] = p;
  if (res == LU_OK && m > 0) res = store_eta(f, r, m);
  if (res != LU_OK) {
    f->state = LU_STATE_NONE;
    f->needmem = f->numupd < few_updates;
    return LU_NOROOM;
  }
  move_to_end(f, r);
  return f->refac ? LU_REFACTOR : LU_OK;
}

}  // namespace

int32_t lu_supdl(lu* f, int32_t leavecol, int32_t entercol, int32_t n, double* spike, const int32_t* spikesub) {
  if (f->state != LU_STATE_DONE) sysenv_fatal(f->env, "LU update without a factor");
  LuTimer timer(f, LU_OP_UPDATE);
  int32_t res = LU_INDEX;
  const auto inside = [f](int32_t j) { return j >= 0 && j < f->ncol; };
  const int32_t r = inside(leavecol) ? f->invq[leavecol] : f->nrow;
  if (r < f->nrow && inside(entercol) && (entercol == leavecol || f->invq[entercol] == f->nrow)) {
    int32_t m = 0;
    res = supdl(f, r, leavecol, entercol, n, spike, spikesub, &m);
    for (int32_t k = 0; k < m; ++k) f->rwrk[f->list[k]] = 0.0;
  }
  for (int32_t k = 0; k < n; ++k) spike[spikesub[k]] = 0.0;
  return res;
}

int32_t lu_update(lu* f, int32_t leavecol, int32_t entercol, int32_t n, double* v, int32_t* sub, int32_t* marks) {
  lu_ftranl(f, &n, v, sub, marks);
  for (int32_t k = 0; k < n; ++k) marks[sub[k]] = 0;
  return lu_supdl(f, leavecol, entercol, n, v, sub);
}

}  // namespace tarvo
