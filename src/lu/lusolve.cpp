// FTRAN and BTRAN.
//
// Every triangular stage of a sparse solve searches the pattern of its result depth first and then works in reverse
// order of finishing; a search that has touched lines of nrow/4 elements in all gives up, and the stage runs along the
// whole pivot order instead.
#include <algorithm>

#include "lu/lu_internal.h"

namespace tarvo {

namespace {

// Most searches that get this share of the budget behind them will use it up.
constexpr int32_t doubt_share = 8;

// Whether a search that stands at `depth` nodes of f->stack, with lines of `*sum` elements touched and the starts
// start[0..n-1] to come, will reach the budget. Answers breadth first, which, unlike the search itself, has hardly a
// branch to guess wrong; leaves f->seen as it was and uses the free end of f->stack.
bool reaches_budget(lu* f, const LuLine* __restrict line, const LuElm* __restrict elm, int32_t depth, int32_t n,
                    const int32_t* start, WorkCount budget, WorkCount* sum) {
  unsigned char* __restrict seen = f->seen.data();
  const int32_t* __restrict stack = f->stack.data();
  int32_t* __restrict queue = f->stack.data() + 2 * depth;
  WorkCount touched = *sum;
  int32_t tail = 0, head = 0;
  const auto expand = [&](int32_t node) {
    const LuLine below = line[node];
    const int32_t from = tail;
    for (int32_t a = below.beg; a < below.beg + below.cnt; ++a) {
      const int32_t next = elm[a].sub;
      queue[tail] = next;
      const unsigned char fresh = seen[next] == 0 ? 1 : 0;
      seen[next] |= fresh;
      tail += fresh;
    }
    for (int32_t k = from; k < tail; ++k) touched += line[queue[k]].cnt;
  };
  for (int32_t k = 0; k < n; ++k) {
    if (seen[start[k]] != 0) continue;
    seen[start[k]] = 1;
    queue[tail++] = start[k];
    touched += line[start[k]].cnt;
  }
  for (int32_t k = depth - 1; k >= 0 && touched < budget; --k) expand(stack[2 * k]);
  while (head < tail && touched < budget) expand(queue[head++]);
  for (int32_t k = 0; k < tail; ++k) seen[queue[k]] = 0;
  if (touched < budget) return false;
  *sum = touched;
  return true;
}

}  // namespace

int32_t lu_search(lu* f, const LuLine* lines, const LuElm* file, int32_t n, const int32_t* start, WorkCount* touched) {
  const WorkCount budget = f->nrow / 4;
  unsigned char* __restrict seen = f->seen.data();
  int32_t* __restrict list = f->list.data();
  int32_t* __restrict stack = f->stack.data();
  const LuLine* __restrict line = lines;
  const LuElm* __restrict elm = file;
  WorkCount sum = 0;
  // The starts are distinct, so their lines alone may be enough to know.
  for (int32_t k = 0; k < n && sum < budget; ++k) sum += line[start[k]].cnt;
  *touched = sum;
  if (sum >= budget) return -1;

  sum = 0;
  WorkCount doubt = std::max<WorkCount>(budget / doubt_share, 1);
  int32_t finished = 0, depth = 0;
  const auto abandon = [&] {
    for (int32_t k = 0; k < finished; ++k) seen[list[k]] = 0;
    for (int32_t k = 0; k < depth; ++k) seen[stack[2 * k]] = 0;
    *touched = sum;
    return -1;
  };
  for (int32_t k = 0; k < n; ++k) {
    const int32_t root = start[k];
    if (seen[root] != 0) continue;
    seen[root] = 1;
    if (line[root].cnt == 0) {
      list[finished++] = root;
      continue;
    }
    sum += line[root].cnt;
    int32_t node = root, at = line[root].beg, end = at + line[root].cnt;
    stack[0] = root;
    depth = 1;
    if (sum >= doubt) {
      if (reaches_budget(f, line, elm, depth, n - k, start + k, budget, &sum)) return abandon();
      doubt = budget;
    }
    for (;;) {
      if (at < end) {
        const int32_t next = elm[at++].sub;
        if (seen[next] != 0) continue;
        seen[next] = 1;
        const LuLine below = line[next];
        if (below.cnt == 0) {
          list[finished++] = next;
          continue;
        }
        stack[2 * depth - 1] = at;
        stack[2 * depth] = next;
        ++depth;
        sum += below.cnt;
        if (sum >= doubt) {
          if (reaches_budget(f, line, elm, depth, n - k, start + k, budget, &sum)) return abandon();
          doubt = budget;
        }
        node = next;
        at = below.beg;
        end = at + below.cnt;
      } else {
        list[finished++] = node;
        if (--depth == 0) break;
        node = stack[2 * depth - 2];
        at = stack[2 * depth - 1];
        end = line[node].beg + line[node].cnt;
      }
    }
  }
  *touched = sum;
  return finished;
}

namespace {

void need_factor(const lu* f) {
  if (f->state != LU_STATE_DONE) sysenv_fatal(f->env, "LU solve without a factor");
}

// One stage on L, in place: v := stage v for a sparse vector given by n, in; the pattern of the result goes to out
// (which may be in) and its length is the result. `order` lists the non-empty lines in the order of the stage, or
// backwards.
int32_t lu_triansolve(lu* f, const LuLine* lines, const LuElm* file, const int32_t* order, int32_t norder, bool forward,
                      LuOp dense, LuOp sparse, int32_t n, const int32_t* in, double* __restrict v, int32_t* out) {
  if (f->lnz == 0) {
    int32_t kept = 0;
    for (int32_t k = 0; k < n; ++k) {
      const int32_t i = in[k];
      if (v[i] != 0.0) out[kept++] = i;
    }
    return kept;
  }
  WorkCount work;
  const LuElm* __restrict elm = file;
  const int32_t found = lu_search(f, lines, file, n, in, &work);
  if (found >= 0) {
    LuTimer timer(f, sparse);
    unsigned char* __restrict seen = f->seen.data();
    const int32_t* __restrict list = f->list.data();
    int32_t kept = 0;
    for (int32_t k = found - 1; k >= 0; --k) {
      const int32_t i = list[k];
      seen[i] = 0;
      const double t = v[i];
      if (t == 0.0) continue;
      out[kept++] = i;
      const LuLine line = lines[i];
      for (int32_t a = line.beg; a < line.beg + line.cnt; ++a) v[elm[a].sub] += t * elm[a].val;
    }
    lu_charge(f, sparse, work);
    return kept;
  }
  LuTimer timer(f, dense);
  for (int32_t p = 0; p < norder; ++p) {
    const int32_t i = order[forward ? p : norder - 1 - p];
    const double t = v[i];
    if (t == 0.0) continue;
    const LuLine line = lines[i];
    for (int32_t a = line.beg; a < line.beg + line.cnt; ++a) v[elm[a].sub] += t * elm[a].val;
    work += line.cnt;
  }
  int32_t kept = 0;
  for (int32_t i = 0; i < f->nrow; ++i) {
    out[kept] = i;
    kept += v[i] != 0.0 ? 1 : 0;
  }
  lu_charge(f, dense, work + f->nrow);
  return kept;
}

// U x = v along the whole pivot order, v by row consumed, x by column. The result is LU_OVERFLOW when a component
// reaches `limit`.
template <bool guarded>
int32_t solve_u(lu* f, double tolz, double tolx, double limit, double* __restrict v, double* __restrict x,
                int32_t* __restrict outsub, int32_t* outn) {
  LuTimer timer(f, LU_OP_DENSE_U_FW);
  const LuElm* __restrict elm = f->cfile.data();
  const LuLine* __restrict col = f->ucol.data();
  const int32_t* __restrict order = f->order.data();
  const int32_t* __restrict q = f->q.data();
  const double* __restrict piv = f->piv.data();
  WorkCount work = f->nrow;
  int32_t n = 0;
  for (int32_t p = f->norder - 1; p >= 0; --p) {
    const int32_t i = order[p];
    if (i < 0) continue;
    double t = v[i];
    if (t == 0.0) continue;
    v[i] = 0.0;
    if (std::fabs(t) <= tolz) continue;
    if (guarded && std::fabs(t) >= std::fabs(piv[i]) * limit) {
      lu_charge(f, LU_OP_DENSE_U_FW, work);
      return LU_OVERFLOW;
    }
    t /= piv[i];
    if (std::fabs(t) <= tolx) continue;
    x[q[i]] = t;
    if (outsub != nullptr) outsub[n++] = q[i];
    const LuLine line = col[i];
    for (int32_t b = line.beg; b < line.beg + line.cnt; ++b) v[elm[b].sub] -= t * elm[b].val;
    work += line.cnt;
  }
  if (outn != nullptr) *outn = n;
  lu_charge(f, LU_OP_DENSE_U_FW, work);
  return LU_OK;
}

// U' y = y in place along the whole pivot order, y by pivot row.
void solve_ut(lu* f, double tolz, double tolx, double* __restrict y, int32_t* __restrict outsub, int32_t* outn) {
  LuTimer timer(f, LU_OP_DENSE_U_BW);
  const LuElm* __restrict elm = f->rfile.data();
  const LuLine* __restrict row = f->urow.data();
  const int32_t* __restrict order = f->order.data();
  const double* __restrict piv = f->piv.data();
  WorkCount work = f->nrow;
  int32_t n = 0;
  for (int32_t p = 0; p < f->norder; ++p) {
    const int32_t i = order[p];
    if (i < 0) continue;
    double t = y[i];
    if (t == 0.0) continue;
    y[i] = 0.0;
    if (std::fabs(t) <= tolz) continue;
    t /= piv[i];
    if (std::fabs(t) <= tolx) continue;
    y[i] = t;
    if (outsub != nullptr) outsub[n++] = i;
    const LuLine line = row[i];
    for (int32_t a = line.beg; a < line.beg + line.cnt; ++a) y[elm[a].sub] -= t * elm[a].val;
    work += line.cnt;
  }
  if (outn != nullptr) *outn = n;
  lu_charge(f, LU_OP_DENSE_U_BW, work);
}

// The same for a sparse y given by n, in; the result's pattern goes to out, which may be in.
int32_t lu_btranus(lu* f, double tolz, double tolx, int32_t n, const int32_t* in, double* __restrict y, int32_t* out) {
  WorkCount work;
  const int32_t found = lu_search(f, f->urow.data(), f->rfile.data(), n, in, &work);
  int32_t kept = 0;
  if (found < 0) {
    solve_ut(f, tolz, tolx, y, out, &kept);
    return kept;
  }
  LuTimer timer(f, LU_OP_SPARSE_U_BW);
  const LuElm* __restrict elm = f->rfile.data();
  const LuLine* __restrict row = f->urow.data();
  const double* __restrict piv = f->piv.data();
  unsigned char* __restrict seen = f->seen.data();
  const int32_t* __restrict list = f->list.data();
  for (int32_t k = found - 1; k >= 0; --k) {
    const int32_t i = list[k];
    seen[i] = 0;
    double t = y[i];
    y[i] = 0.0;
    if (std::fabs(t) <= tolz) continue;
    t /= piv[i];
    if (std::fabs(t) <= tolx) continue;
    y[i] = t;
    out[kept++] = i;
    const LuLine line = row[i];
    for (int32_t a = line.beg; a < line.beg + line.cnt; ++a) y[elm[a].sub] -= t * elm[a].val;
  }
  lu_charge(f, LU_OP_SPARSE_U_BW, work);
  return kept;
}

double eta_product(const LuElm* __restrict elm, int32_t beg, int32_t end, const double* __restrict v) {
  double sum = 0.0;
  for (int32_t a = beg; a < end; ++a) sum += elm[a].val * v[elm[a].sub];
  return sum;
}

// v := R_k ... R_1 L^-1 v.
void forward_l_dense(lu* f, double* __restrict v) {
  LuTimer timer(f, LU_OP_DENSE_L_FW);
  const LuElm* __restrict elm = f->cfile.data();
  for (int32_t p = 0; p < f->nlcol; ++p) {
    const int32_t i = f->lcollist[p];
    const double t = v[i];
    if (t == 0.0) continue;
    const LuLine eta = f->lcol[i];
    for (int32_t a = eta.beg; a < eta.beg + eta.cnt; ++a) v[elm[a].sub] += t * elm[a].val;
  }
  for (int32_t k = 0; k < f->lupds; ++k) {
    v[f->etarow[k]] += eta_product(f->rfile.data(), f->etabeg[k + 1], f->etabeg[k], v);
  }
  lu_charge(f, LU_OP_DENSE_L_FW, f->wsze - f->lbeg);
}

}  // namespace

void lu_ftran(lu* f, double* y, double* x) {
  need_factor(f);
  std::fill_n(x, f->ncol, 0.0);
  forward_l_dense(f, y);
  solve_u<false>(f, 0.0, 0.0, 0.0, y, x, nullptr, nullptr);
}

int32_t lu_ftranchecked(lu* f, double limit, double* y, double* x) {
  need_factor(f);
  std::fill_n(x, f->ncol, 0.0);
  forward_l_dense(f, y);
  return solve_u<true>(f, 0.0, 0.0, limit, y, x, nullptr, nullptr);
}

void lu_btran(lu* f, double* c, double* y) {
  need_factor(f);
  for (int32_t i = 0; i < f->nrow; ++i) {
    y[i] = c[f->q[i]];
    c[f->q[i]] = 0.0;
  }
  solve_ut(f, 0.0, 0.0, y, nullptr, nullptr);
  LuTimer timer(f, LU_OP_DENSE_L_BW);
  const LuElm* elm = f->rfile.data();
  for (int32_t k = f->lupds - 1; k >= 0; --k) {
    const double t = y[f->etarow[k]];
    if (t == 0.0) continue;
    for (int32_t a = f->etabeg[k + 1]; a < f->etabeg[k]; ++a) y[elm[a].sub] += t * elm[a].val;
  }
  for (int32_t p = f->nlrow - 1; p >= 0; --p) {
    const int32_t i = f->lrowlist[p];
    const double t = y[i];
    if (t == 0.0) continue;
    const LuLine row = f->lrow[i];
    for (int32_t a = row.beg; a < row.beg + row.cnt; ++a) y[elm[a].sub] += t * elm[a].val;
  }
  lu_charge(f, LU_OP_DENSE_L_BW, f->wsze - f->lbeg);
}

void lu_ftranl(lu* f, int32_t* n, double* v, int32_t* sub, int32_t* marks) {
  need_factor(f);
  // Marks follow the list: off while the pattern changes, and on again for what has come out.
  if (f->lnz > 0) {
    for (int32_t k = 0; k < *n; ++k) marks[sub[k]] = 0;
    *n = lu_triansolve(f, f->lcol.data(), f->cfile.data(), f->lcollist.data(), f->nlcol, true, LU_OP_DENSE_L_FW,
                       LU_OP_SPARSE_L_FW, *n, sub, v, sub);
    for (int32_t k = 0; k < *n; ++k) marks[sub[k]] = 1;
  }
  if (f->lupds == 0) return;
  int32_t count = *n;
  for (int32_t k = 0; k < f->lupds; ++k) {
    const double sum = eta_product(f->rfile.data(), f->etabeg[k + 1], f->etabeg[k], v);
    if (sum == 0.0) continue;
    const int32_t i = f->etarow[k];
    v[i] += sum;
    if (marks[i] == 0) {
      marks[i] = 1;
      sub[count++] = i;
    }
  }
  *n = count;
  lu_charge(f, LU_OP_SPARSE_L_FW, (f->lend - f->lbeg) / 2);
}

void lu_ftranus2(double tolz, double tolx, lu* f, int32_t n, double* __restrict v, const int32_t* sub, int32_t* outn,
                 double* __restrict x, int32_t* outsub, int32_t* marks) {
  need_factor(f);
  for (int32_t k = 0; k < n; ++k) marks[sub[k]] = 0;
  WorkCount work;
  const int32_t found = lu_search(f, f->ucol.data(), f->cfile.data(), n, sub, &work);
  if (found < 0) {
    solve_u<false>(f, tolz, tolx, 0.0, v, x, outsub, outn);
    return;
  }
  LuTimer timer(f, LU_OP_SPARSE_U_FW);
  const LuElm* __restrict elm = f->cfile.data();
  const LuLine* __restrict col = f->ucol.data();
  const double* __restrict piv = f->piv.data();
  const int32_t* __restrict q = f->q.data();
  const int32_t* __restrict list = f->list.data();
  unsigned char* __restrict seen = f->seen.data();
  int32_t kept = 0;
  for (int32_t k = found - 1; k >= 0; --k) {
    const int32_t i = list[k];
    seen[i] = 0;
    double t = v[i];
    v[i] = 0.0;
    if (std::fabs(t) <= tolz) continue;
    t /= piv[i];
    if (std::fabs(t) <= tolx) continue;
    x[q[i]] = t;
    outsub[kept++] = q[i];
    const LuLine line = col[i];
    for (int32_t b = line.beg; b < line.beg + line.cnt; ++b) v[elm[b].sub] -= t * elm[b].val;
  }
  *outn = kept;
  lu_charge(f, LU_OP_SPARSE_U_FW, work + 4 * int64_t{found});
}

void lu_btransparse(double tolz, double tolx, lu* f, int32_t n, double* c, const int32_t* sub, int32_t* outn, double* y,
                    int32_t* outsub, int32_t* marks) {
  need_factor(f);
  int32_t count = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t j = sub[k];
    const double t = c[j];
    const int32_t i = f->invq[j];
    c[j] = 0.0;
    if (t == 0.0 || i == f->nrow) continue;
    y[i] = t;
    outsub[count++] = i;
  }
  count = lu_btranus(f, tolz, tolx, count, outsub, y, outsub);

  if (f->lupds > 0 && count > 0) {
    const LuElm* __restrict elm = f->rfile.data();
    for (int32_t k = 0; k < count; ++k) marks[outsub[k]] = 1;
    WorkCount work = f->lupds;
    for (int32_t k = f->lupds - 1; k >= 0; --k) {
      const double t = y[f->etarow[k]];
      if (std::fabs(t) <= tolz) continue;
      for (int32_t a = f->etabeg[k + 1]; a < f->etabeg[k]; ++a) {
        const int32_t i = elm[a].sub;
        y[i] += t * elm[a].val;
        if (marks[i] == 0) {
          marks[i] = 1;
          outsub[count++] = i;
        }
      }
      work += f->etabeg[k] - f->etabeg[k + 1];
    }
    for (int32_t k = 0; k < count; ++k) marks[outsub[k]] = 0;
    lu_charge(f, LU_OP_SPARSE_L_BW, work);
  }
  *outn = lu_triansolve(f, f->lrow.data(), f->rfile.data(), f->lrowlist.data(), f->nlrow, false, LU_OP_DENSE_L_BW,
                        LU_OP_SPARSE_L_BW, count, outsub, y, outsub);
}

}  // namespace tarvo
