#include "tarvo/tarvobas.h"

#include <new>

#include "tarvo/frame.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

// The basic indices in ascending order; false unless there are numcon of them.
bool collect_basis(Task* task, int32_t* basis) {
  const SolutionView view = sol_view(task, TRV_SOL_BAS);
  const int32_t numcon = task->numcon;
  int32_t count = 0;
  for (int32_t i = 0; i < numcon; ++i)
    if (view.skc[i] == TRV_SK_BAS) basis[count++] = i;
  for (int32_t j = 0; j < task->numvar; ++j) {
    if (view.skx[j] != TRV_SK_BAS) continue;
    if (count == numcon) return false;
    basis[count++] = numcon + j;
  }
  return count == numcon;
}

int32_t factorise(Task* task, BasisSolve* solve) {
  const int32_t numcon = task->numcon;
  const auto m = static_cast<std::size_t>(numcon);
  SimplexFactorWork work;
  solve->numcon = numcon;
  if (simplex_makebasis(task->sys, numcon, &solve->basis) != SIM_RESP_OK ||
      !solve->in.alloc(task->sys, m, Fill::zero) || !solve->out.alloc(task->sys, m, Fill::zero) ||
      !solve->sub.alloc(task->sys, m) || !solve->marks.alloc(task->sys, m, Fill::zero) ||
      !simplex_makefactorwork(task->sys, numcon, &work))
    return report<TRV_RES_ERR_SPACE>(task);
  // The matrix isn't scaled: a small pivot is no sign of a singular basis.
  if (numcon > 0) lu_puttol(solve->basis.factor, LU_TOL_ABSPIV, 1e-12);
  // Keys that are no basis give no square matrix: nothing that could be solved with, like a singular one.
  if (!collect_basis(task, solve->basis.basis.data())) return report<TRV_RES_ERR_BASIS_SINGULAR>(task);
  if (numcon == 0) return TRV_RES_OK;
  ColumnView a{};
  if (const int32_t rc = data_lock(task, &a); rc != TRV_RES_OK) return rc;
  int32_t numart = 0;
  const int32_t resp = simplex_factor(task->sys, numcon, {a.ptrb, a.ptre, a.sub, a.val}, &solve->basis, &work, &numart);
  data_unlock(task);
  if (resp == SIM_RESP_SPACE) return report<TRV_RES_ERR_SPACE>(task);
  return resp != SIM_RESP_OK || numart > 0 ? report<TRV_RES_ERR_BASIS_SINGULAR>(task) : TRV_RES_OK;
}

}  // namespace

int32_t basissolve_init(Task* task) {
  basissolve_delete(task);
  if (!sol_defined(task, TRV_SOL_BAS)) return report<TRV_RES_ERR_NO_BASIS_SOL>(task);
  void* place = sysenv_malloc(task->sys, 1, sizeof(BasisSolve), Location::current());
  if (place == nullptr) return report<TRV_RES_ERR_SPACE>(task);
  task->basis_solve = new (place) BasisSolve;
  const int32_t response = factorise(task, task->basis_solve);
  if (response != TRV_RES_OK) basissolve_delete(task);
  return response;
}

void basissolve_solve(BasisSolve* solve, bool transp, int32_t* num, int32_t* sub, double* val) {
  constexpr double tolz = 1e-14, tolx = 1e-14;  // what cancellation leaves
  double* in = solve->in.data();
  int32_t* marks = solve->marks.data();
  int32_t n = 0;
  for (int32_t k = 0; k < *num; ++k) {
    const int32_t i = sub[k];
    in[i] += val[k];
    if (marks[i] == 0) solve->sub[n++] = i;
    marks[i] = 1;
  }
  if (n == 0) return;
  if (transp) {
    for (int32_t k = 0; k < n; ++k) marks[solve->sub[k]] = 0;
    lu_btransparse(tolz, tolx, solve->basis.factor, n, in, solve->sub.data(), num, solve->out.data(), sub, marks);
  } else {
    lu_ftranl(solve->basis.factor, &n, in, solve->sub.data(), marks);
    lu_ftranus2(tolz, tolx, solve->basis.factor, n, in, solve->sub.data(), num, solve->out.data(), sub, marks);
  }
  for (int32_t k = 0; k < *num; ++k) {
    val[k] = solve->out[sub[k]];
    solve->out[sub[k]] = 0.0;
  }
}

void basissolve_delete(Task* task) {
  if (task->basis_solve == nullptr) return;
  simplex_deletebasis(&task->basis_solve->basis);
  task->basis_solve->~BasisSolve();
  sysenv_free(task->sys, task->basis_solve);
  task->basis_solve = nullptr;
}

}  // namespace tarvo

using namespace tarvo;

extern "C" {

int32_t TRV_initbasissolve(TRVtask task, int32_t* basis) {
  int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  response = check_pointers(task, {{"basis", task->numcon > 0 ? basis : static_cast<const void*>(task)}});
  if (response == TRV_RES_OK) response = data_checkunlocked(task);  // not from a call-back: the basis is in the making
  if (response == TRV_RES_OK) response = basissolve_init(task);
  if (response != TRV_RES_OK) return response;
  for (int32_t k = 0; k < task->numcon; ++k) basis[k] = task->basis_solve->basis.basis[k];
  return TRV_RES_OK;
}

int32_t TRV_solvewithbasis(TRVtask task, int32_t transp, int32_t* numnz, int32_t* sub, double* val) {
  int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  response = check_pointers(task, {{"numnz", numnz}, {"sub", sub}, {"val", val}});
  if (response != TRV_RES_OK) return response;
  if (task->basis_solve == nullptr) return report<TRV_RES_ERR_BASIS_FACTOR>(task);
  // Repeated indices are added up, but no list is longer than its room.
  if (*numnz < 0 || *numnz > task->numcon) return report<TRV_RES_ERR_ARGUMENT_DIMENSION>(task, "numnz");
  response = check_index_list(task, "sub", 0, task->numcon, *numnz, sub);
  if (response == TRV_RES_OK) basissolve_solve(task->basis_solve, transp != 0, numnz, sub, val);
  return response;
}

}  // extern "C"
