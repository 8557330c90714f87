// The presolve's copy of a problem.
#include <algorithm>
#include <cfloat>

#include "prslv/prslv_internal.h"

namespace tarvo {

namespace {

// Bounds that a key does not have are stored as -+the largest double.
void load_bounds(int32_t n, const int32_t* bk, const double* bl, const double* bu, int32_t* tok, double* tol,
                 double* tou) {
  for (int32_t k = 0; k < n; ++k) {
    tok[k] = bk[k];
    tol[k] = prslv_lower(bk[k]) ? bl[k] : -DBL_MAX;
    tou[k] = prslv_upper(bk[k]) ? bu[k] : DBL_MAX;
    if (bk[k] == PRSLV_BK_FX) tou[k] = tol[k];
  }
}

bool load(prslvprob* p, const prslvinput& in) {
  sysenv* env = p->env;
  const auto con = static_cast<std::size_t>(in.numcon), var = static_cast<std::size_t>(in.numvar);
  int64_t nz = 0;
  for (int32_t j = 0; j < in.numvar; ++j) nz += in.ptre[j] - in.ptrb[j];
  p->acol = spmat_make(env, in.numvar, in.numcon);
  p->stack.store = bsto_make(env, std::max<int64_t>(int64_t{10} * std::max(in.numcon, in.numvar), 4096));
  if (p->acol == nullptr || p->stack.store == nullptr || !p->cc.alloc(env, con, Fill::zero) || !p->cx.alloc(env, var) ||
      !p->blc.alloc(env, con) || !p->buc.alloc(env, con) || !p->blx.alloc(env, var) || !p->bux.alloc(env, var) ||
      !p->bkc.alloc(env, con) || !p->bkx.alloc(env, var) || nz > INT32_MAX ||
      !spmat_alloc(p->acol, static_cast<int32_t>(nz)))
    return false;
  p->numcon = in.numcon;
  p->numvar = in.numvar;
  p->cfix = in.cfix;
  if (in.cc != nullptr) std::copy_n(in.cc, in.numcon, p->cc.data());
  std::copy_n(in.cx, in.numvar, p->cx.data());
  load_bounds(in.numcon, in.bkc, in.blc, in.buc, p->bkc.data(), p->blc.data(), p->buc.data());
  load_bounds(in.numvar, in.bkx, in.blx, in.bux, p->bkx.data(), p->blx.data(), p->bux.data());
  spmat* a = p->acol;
  spmat_putnvec(a, in.numvar);
  spmat_putvlen(a, in.numcon);
  int32_t put = 0;
  for (int32_t j = 0; j < in.numvar; ++j) {
    a->ptrb[j] = put;
    for (int32_t t = in.ptrb[j]; t < in.ptre[j]; ++t) {
      if (in.val[t] == 0.0) continue;
      a->sub[put] = in.sub[t];
      a->val[put++] = in.val[t];
    }
    a->ptre[j] = put;
  }
  a->ffree = put;
  return true;
}

}  // namespace

prslvprob* prslv_make(sysenv* env, const prslvinput& input) {
  void* place = sysenv_malloc(env, 1, sizeof(prslvprob));
  if (place == nullptr) return nullptr;
  auto* problem = new (place) prslvprob;
  problem->env = env;
  if (!load(problem, input)) prslv_delete(&problem);
  return problem;
}

void prslv_delete(prslvprob** problem) {
  prslvprob* p = *problem;
  if (p == nullptr) return;
  sysenv* env = p->env;
  spmat_delete(&p->acol);
  bsto_delete(&p->stack.store);
  p->~prslvprob();
  sysenv_free(env, p);
  *problem = nullptr;
}

}  // namespace tarvo
