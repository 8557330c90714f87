#include "prslv/blkfix.h"

#include <algorithm>
#include <cmath>

#include "prslv/elim.h"

namespace tarvo {

namespace {

std::size_t length(int32_t n) { return static_cast<std::size_t>(n); }

// Values or multipliers of a block are trusted when their residual is this small beside the terms.
constexpr double accurate = 1e-9;

// B x = b (or B'y = c with `transposed`) with a step of refinement; the factor has the rows of B in order. False when
// the residual stays large.
bool solve(lu* factor, const lindepmatrix& b, bool transposed, const double* rhs, double* x, double* work,
           double* step) {
  const int32_t n = b.nrow;
  std::fill_n(x, n, 0.0);
  for (int32_t round = 0; round < 3; ++round) {
    // work: the residual; its largest term decides what is small.
    double size = 0.0, worst = 0.0;
    std::copy_n(rhs, n, work);
    for (int32_t k = 0; k < n; ++k) size = std::max(size, std::fabs(rhs[k]));
    for (int32_t i = 0; i < n; ++i) {
      for (int32_t t = b.ptr[i]; t < b.ptr[i + 1]; ++t) {
        const double term = b.val[t] * x[transposed ? i : b.sub[t]];
        work[transposed ? b.sub[t] : i] -= term;
        size = std::max(size, std::fabs(term));
      }
    }
    for (int32_t k = 0; k < n; ++k) worst = std::max(worst, std::fabs(work[k]));
    if (round > 0 && !(worst <= accurate * size)) return false;
    if (round == 2 || worst == 0.0) return true;
    if (transposed) {
      lu_btran(factor, work, step);
    } else {
      lu_ftran(factor, work, step);
    }
    for (int32_t k = 0; k < n; ++k) x[k] += step[k];
  }
  return true;
}

// The block as a matrix of its own.
struct Block {
  Array<int32_t> ptr, sub, identity;
  Array<double> val, rhs, x, work, step;
  lu* factor = nullptr;
  lindepmatrix b{};
  ~Block() { lu_delete(&factor); }
  bool make(sysenv* env, int32_t n, int64_t nz) {
    const bool ok = nz <= INT32_MAX && ptr.alloc(env, length(n) + 1) && sub.alloc(env, static_cast<std::size_t>(nz)) &&
                    val.alloc(env, static_cast<std::size_t>(nz)) && identity.alloc(env, length(n)) &&
                    rhs.alloc(env, length(n), Fill::zero) && x.alloc(env, length(n)) && work.alloc(env, length(n)) &&
                    step.alloc(env, length(n));
    if (!ok) return false;
    for (int32_t k = 0; k < n; ++k) identity[k] = k;
    b = {n, n, ptr.data(), sub.data(), val.data()};
    return true;
  }
  int32_t factorise(sysenv* env) {
    const int32_t n = b.nrow;
    const int32_t res =
        lindep_factor(env, &factor, b, n, identity.data(), n, identity.data(), nullptr, nullptr, 1e-9, false, 0);
    if (res == LINDEP_OK && lu_getrank(factor) < n) return LINDEP_NUMERIC;
    return res;
  }
};

// Fixes the columns of the block at values[k]: record and changes. Row k of the block is rows[k], column k columns[k].
int32_t prslv_blkfix(prslvrun* run, int32_t n, const int32_t* rows, const int32_t* columns, const double* values) {
  prslvprob* p = run->p;
  int64_t size = 0;
  for (int32_t k = 0; k < n; ++k) size += run->varnz[columns[k]];
  if (size + 5 * int64_t{n} + 1 > INT32_MAX / 2) return PRSLV_OK;
  int32_t* ints;
  double* doubles;
  const int32_t res = prslv_beginpushstk(run, PRSLV_BLOCK_FIXED, static_cast<int32_t>(1 + 5 * n + size),
                                         static_cast<int32_t>(4 * n + size), &ints, &doubles);
  if (res != PRSLV_OK) return res;
  int32_t* pi = ints;
  double* pd = doubles;
  *pi++ = n;
  for (int32_t k = 0; k < n; ++k) {
    *pi++ = rows[k];
    *pi++ = p->bkc[rows[k]];
    *pd++ = p->blc[rows[k]];
  }
  for (int32_t k = 0; k < n; ++k) {
    *pi++ = columns[k];
    *pi++ = p->bkx[columns[k]];
    *pi++ = run->varnz[columns[k]];
    *pd++ = p->blx[columns[k]];
    *pd++ = p->bux[columns[k]];
    *pd++ = values[k];
  }
  for (int32_t k = 0; k < n; ++k) {
    for (int32_t t = p->acol->ptrb[columns[k]]; t < p->acol->ptre[columns[k]]; ++t) {
      if (!prslv_livecon(run, p->acol->sub[t])) continue;
      *pi++ = p->acol->sub[t];
      *pd++ = p->acol->val[t];
    }
  }
  sysenv_assert(run->env, pi - ints == 1 + 5 * n + size);
  prslv_endpushstk(run, &ints, &doubles);
  for (int32_t k = 0; k < n; ++k) prslv_removevar(run, columns[k], values[k]);
  for (int32_t k = 0; k < n; ++k) prslv_removecon(run, rows[k]);
  ++run->changes;
  return PRSLV_OK;
}

}  // namespace

int32_t prslv_chkpriblk(prslvrun* run, const lindepmatrix& a, const int32_t* rows, const int32_t* columns,
                        const int32_t* pivcol) {
  prslvprob* p = run->p;
  // in[i]: row i is in the block; owner[j]: the row that has column j as its pivot. Rows with a column outside leave,
  // and take the rows along that hold their pivot column.
  Workspace ws(run->env);
  int32_t *owner, *queue, *ptr, *list, *brows, *bcols, *place;
  uint8_t* in;
  const std::size_t m = length(a.nrow), n = length(a.ncol);
  ws.add(&owner, n);
  ws.add(&place, n);
  ws.add(&ptr, n + 1, Fill::zero);
  ws.add(&list, length(a.ptr[a.nrow]));
  ws.add(&queue, m);
  ws.add(&brows, m);
  ws.add(&bcols, m);
  ws.add(&in, m, Fill::zero);
  if (!ws.commit()) return PRSLV_SPACE;
  std::fill_n(owner, a.ncol, -1);
  std::fill_n(place, a.ncol, -1);
  for (int32_t i = 0; i < a.nrow; ++i) {
    if (pivcol[i] < 0) continue;
    owner[pivcol[i]] = i;
    in[i] = 1;
    for (int32_t t = a.ptr[i]; t < a.ptr[i + 1]; ++t) ++ptr[a.sub[t]];
  }
  for (int32_t j = 0, pos = 0; j <= a.ncol; ++j) {
    pos += j < a.ncol ? ptr[j] : 0;
    ptr[j] = pos;
  }
  for (int32_t i = 0; i < a.nrow; ++i) {
    if (in[i] == 0) continue;
    for (int32_t t = a.ptr[i]; t < a.ptr[i + 1]; ++t) list[--ptr[a.sub[t]]] = i;
  }
  int32_t count = 0, left = 0;
  for (int32_t i = 0; i < a.nrow; ++i) {
    if (in[i] == 0) continue;
    bool closed = true;
    for (int32_t t = a.ptr[i]; t < a.ptr[i + 1]; ++t) {
      closed = closed && owner[a.sub[t]] >= 0 && run->varcla[columns[a.sub[t]]] != 0;
    }
    ++left;
    if (!closed) {
      in[i] = 0;
      queue[count++] = i;
    }
  }
  left -= count;
  while (count > 0) {
    const int32_t j = pivcol[queue[--count]];
    for (int32_t t = ptr[j]; t < ptr[j + 1]; ++t) {
      if (in[list[t]] == 0) continue;
      in[list[t]] = 0;
      queue[count++] = list[t];
      --left;
    }
  }
  if (left == 0) return PRSLV_OK;

  int32_t size = 0;
  int64_t nz = 0;
  for (int32_t i = 0; i < a.nrow; ++i) {
    if (in[i] == 0) continue;
    place[pivcol[i]] = size;
    brows[size] = rows[i];
    bcols[size++] = columns[pivcol[i]];
    nz += a.ptr[i + 1] - a.ptr[i];
  }
  Block block;
  if (!block.make(run->env, size, nz)) return PRSLV_SPACE;
  int32_t pos = 0, k = 0;
  for (int32_t i = 0; i < a.nrow; ++i) {
    if (in[i] == 0) continue;
    block.ptr[k] = pos;
    block.rhs[k++] = p->blc[rows[i]];
    for (int32_t t = a.ptr[i]; t < a.ptr[i + 1]; ++t) {
      block.sub[pos] = place[a.sub[t]];
      block.val[pos++] = a.val[t];
    }
  }
  block.ptr[k] = pos;
  if (run->par->loglev > 1) {
    prslv_log(run, "Number of equalities   : %-d\n", a.nrow);
    prslv_log(run, "Number active variables: %-d\n", a.ncol);
    prslv_log(run, "Block size             : %-d\n", size);
  }
  const int32_t res = block.factorise(run->env);
  if (res == LINDEP_SPACE) return PRSLV_SPACE;
  double* x = block.x.data();
  if (res != LINDEP_OK ||
      !solve(block.factor, block.b, false, block.rhs.data(), x, block.work.data(), block.step.data())) {
    if (run->par->loglev > 1) prslv_log(run, "Ignoring infeasibility due to factor problem. resp: %d\n", res);
    return PRSLV_OK;
  }
  const double tol = run->par->tol_x;
  bool doubtful = false;
  for (k = 0; k < size; ++k) {
    const int32_t j = bcols[k];
    const double scale = std::max(1.0, std::fabs(x[k]));
    const bool below = prslv_lower(p->bkx[j]) && x[k] < p->blx[j] - tol * scale;
    const bool above = prslv_upper(p->bkx[j]) && x[k] > p->bux[j] + tol * scale;
    if (below || above) {
      // The rows' combination that says x_k = value: y = B^-T e_k.
      doubtful = true;
      std::fill_n(block.rhs.data(), size, 0.0);
      block.rhs[k] = below ? -1.0 : 1.0;
      if (solve(block.factor, block.b, true, block.rhs.data(), x, block.work.data(), block.step.data())) {
        int32_t ny = 0;
        for (int32_t r = 0; r < size; ++r) {
          if (std::fabs(x[r]) <= 1e-14) continue;
          brows[ny] = brows[r];
          x[ny++] = x[r];
        }
        prslv_primalinfeas(run, ny, brows, x);
      }
      break;
    }
    if (prslv_lower(p->bkx[j]) && x[k] < p->blx[j]) x[k] = p->blx[j];
    if (prslv_upper(p->bkx[j]) && x[k] > p->bux[j]) x[k] = p->bux[j];
  }
  if (doubtful) return PRSLV_OK;
  return prslv_blkfix(run, size, brows, bcols, x);
}

// The columns are basic: B'y = d, with d what is left of their reduced costs by the rows outside the block.
int32_t prslv_undoblkfix(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/, const double* doubles,
                         int32_t /*ndoubles*/) {
  const int32_t n = ints[0];
  const int32_t *rows = ints + 1, *vars = rows + 2 * n, *subs = vars + 3 * n;
  const double *rowdata = doubles, *vardata = rowdata + n, *vals = vardata + 3 * n;
  prslvsol* s = w->sol;
  int64_t nz = 0;
  for (int32_t k = 0; k < n; ++k) nz += vars[3 * k + 2];
  Block block;
  Workspace ws(w->env);
  int32_t* place;
  ws.add(&place, length(w->p->numcon));
  if (!ws.commit() || !block.make(w->env, n, nz)) return PRSLV_SPACE;
  std::fill_n(place, w->p->numcon, -1);
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = rows[2 * k];
    place[i] = k;
    w->bkc[i] = rows[2 * k + 1];
    w->blc[i] = w->buc[i] = rowdata[k];
    s->skc[i] = PRSLV_SK_FIX;
    s->xc[i] = w->f_p * rowdata[k];
  }
  // The factor holds B': row k is column k of the block.
  int32_t from = 0, pos = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t j = vars[3 * k];
    const double value = vardata[3 * k + 2];
    w->bkx[j] = vars[3 * k + 1];
    w->blx[j] = vardata[3 * k];
    w->bux[j] = vardata[3 * k + 1];
    s->xx[j] = w->f_p * value;
    block.rhs[k] = s->slx[j] - s->sux[j];
    block.ptr[k] = pos;
    for (int32_t t = from; t < from + vars[3 * k + 2]; ++t) {
      const int32_t i = subs[t];
      if (place[i] >= 0) {
        block.sub[pos] = place[i];
        block.val[pos++] = vals[t];
        continue;
      }
      block.rhs[k] -= vals[t] * s->y[i];
      s->xc[i] += vals[t] * s->xx[j];
      if (prslv_lower(w->bkc[i])) w->blc[i] += vals[t] * value;
      if (prslv_upper(w->bkc[i])) w->buc[i] += vals[t] * value;
    }
    from += vars[3 * k + 2];
    s->slx[j] = s->sux[j] = 0.0;
    s->skx[j] = prslv_walkbasic(w);
  }
  block.ptr[n] = pos;
  const int32_t res = block.factorise(w->env);
  if (res == LINDEP_SPACE) return PRSLV_SPACE;
  if (res != LINDEP_OK ||
      !solve(block.factor, block.b, false, block.rhs.data(), block.x.data(), block.work.data(), block.step.data())) {
    return PRSLV_POSTSOLVE;
  }
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = rows[2 * k];
    s->y[i] = block.x[k];
    const double t = w->f_d * w->cc[i] + s->y[i];
    s->slc[i] = std::max(t, 0.0);
    s->suc[i] = std::max(-t, 0.0);
  }
  return PRSLV_OK;
}

}  // namespace tarvo
