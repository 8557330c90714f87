// The exported calls that put and query solutions; the measures of a solution are in tarvosolinf.cpp.
#include "tarvo/frame.h"
#include "tarvo/tarvobas.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

int32_t check_whichsol(Task* task, int32_t whichsol, Location at = Location::current()) {
  if (whichsol < TRV_SOL_ITR || whichsol > TRV_SOL_ITG) return report<TRV_RES_ERR_WHICHSOL>({task, at}, whichsol);
  return TRV_RES_OK;
}

// The opening of every call that names a solution.
int32_t check_call(Task* task, int32_t whichsol, Location at = Location::current()) {
  const int32_t response = task_check(task);
  return response != TRV_RES_OK ? response : check_whichsol(task, whichsol, at);
}

// The opening of every query: the solution must be defined.
int32_t check_query(Task* task, int32_t whichsol, Location at = Location::current()) {
  const int32_t response = check_call(task, whichsol, at);
  if (response != TRV_RES_OK) return response;
  if (!sol_defined(task, whichsol)) return report<TRV_RES_ERR_UNDEF_SOLUTION>({task, at}, whichsol);
  return TRV_RES_OK;
}

int32_t check_item(Task* task, int32_t accmode, int32_t i, Location at = Location::current()) {
  if (accmode != TRV_ACC_VAR && accmode != TRV_ACC_CON) return report<TRV_RES_ERR_INVALID_ACCMODE>({task, at}, accmode);
  return check_index(task, "i", accmode == TRV_ACC_CON ? TRV_PI_CON : TRV_PI_VAR, i, at);
}

int32_t check_range(Task* task, int32_t first, int32_t last, int32_t count, Location at = Location::current()) {
  if (first < 0) return report<TRV_RES_ERR_FIRST>({task, at});
  if (last > count) return report<TRV_RES_ERR_LAST>({task, at});
  return TRV_RES_OK;
}

int32_t check_pointer(Task* task, const char* name, const void* pointer, Location at = Location::current()) {
  return pointer == nullptr ? report<TRV_RES_ERR_NULL_POINTER>({task, at}, name) : TRV_RES_OK;
}

bool is_statuskey(int32_t sk) { return sk >= TRV_SK_UNK && sk <= TRV_SK_INF; }

// The first invalid key of a list, or -1.
int32_t first_invalid(const int32_t* keys, int32_t count) {
  for (int32_t k = 0; k < count; ++k)
    if (!is_statuskey(keys[k])) return k;
  return -1;
}

template <class T>
void copy_out(T* to, const T* from, int32_t count) {
  if (to != nullptr && from != nullptr && count > 0) std::memcpy(to, from, static_cast<std::size_t>(count) * sizeof(T));
}

// NULL stores zeros; a part that the solution lacks stays out.
void copy_in(double* to, const double* from, int32_t count) {
  if (to == nullptr || count <= 0) return;
  const std::size_t bytes = static_cast<std::size_t>(count) * sizeof(double);
  if (from != nullptr)
    std::memcpy(to, from, bytes);
  else
    std::memset(to, 0, bytes);
}

template <class T>
void put(T* pointer, T value) {
  if (pointer != nullptr) *pointer = value;
}

struct Item {
  int32_t sk;
  double x, sl, su, sn;
};

Item get_item(const SolutionView& view, int32_t accmode, int32_t i) {
  const auto at = [i](const double* list) { return list != nullptr ? list[i] : 0.0; };
  if (accmode == TRV_ACC_CON) return {view.skc[i], view.xc[i], at(view.slc), at(view.suc), 0.0};
  return {view.skx[i], view.xx[i], at(view.slx), at(view.sux), at(view.snx)};
}

int32_t space(Task* task, Location at = Location::current()) { return report<TRV_RES_ERR_SPACE>({task, at}); }

}  // namespace

}  // namespace tarvo

using namespace tarvo;

extern "C" {

int32_t TRV_solutiondef(TRVtask task, int32_t whichsol, int32_t* isdef) {
  int32_t response = check_call(task, whichsol);
  if (response == TRV_RES_OK) response = check_pointer(task, "isdef", isdef);
  if (response == TRV_RES_OK) *isdef = sol_defined(task, whichsol) ? 1 : 0;
  return response;
}

int32_t TRV_undefsolution(TRVtask task, int32_t whichsol) {
  const int32_t response = check_call(task, whichsol);
  if (response == TRV_RES_OK && whichsol == TRV_SOL_BAS) basissolve_delete(task);
  if (response == TRV_RES_OK) task->sol[whichsol].defined = 0;
  return response;
}

int32_t TRV_deletesolution(TRVtask task, int32_t whichsol) {
  int32_t response = check_call(task, whichsol);
  if (response == TRV_RES_OK) response = data_checkunlocked(task);  // an optimiser writes into it
  if (response == TRV_RES_OK) sol_delete(task, whichsol);
  return response;
}

int32_t TRV_makesolutionstatusunknown(TRVtask task, int32_t whichsol) {
  const int32_t response = check_call(task, whichsol);
  if (response != TRV_RES_OK) return response;
  return sol_makezero(task, whichsol) == TRV_RES_OK ? TRV_RES_OK : space(task);
}

int32_t TRV_getsolutionstatus(TRVtask task, int32_t whichsol, int32_t* prosta, int32_t* solsta) {
  const int32_t response = check_query(task, whichsol);
  if (response != TRV_RES_OK) return response;
  put(prosta, task->sol[whichsol].prosta);
  put(solsta, task->sol[whichsol].solsta);
  return TRV_RES_OK;
}

int32_t TRV_getsolution(TRVtask task, int32_t whichsol, int32_t* prosta, int32_t* solsta, int32_t* skc, int32_t* skx,
                        int32_t* skn, double* xc, double* xx, double* y, double* slc, double* suc, double* slx,
                        double* sux, double* snx) {
  const int32_t response = check_query(task, whichsol);
  if (response != TRV_RES_OK) return response;
  const SolutionView view = sol_view(task, whichsol);
  put(prosta, task->sol[whichsol].prosta);
  put(solsta, task->sol[whichsol].solsta);
  copy_out(skc, view.skc, task->numcon);
  copy_out(skx, view.skx, task->numvar);
  copy_out(skn, view.skn, task->numcone);
  copy_out(xc, view.xc, task->numcon);
  copy_out(xx, view.xx, task->numvar);
  copy_out(y, view.y, task->numcon);
  copy_out(slc, view.slc, task->numcon);
  copy_out(suc, view.suc, task->numcon);
  copy_out(slx, view.slx, task->numvar);
  copy_out(sux, view.sux, task->numvar);
  copy_out(snx, view.snx, task->numvar);
  return TRV_RES_OK;
}

int32_t TRV_getsolutioni(TRVtask task, int32_t accmode, int32_t i, int32_t whichsol, int32_t* sk, double* x, double* sl,
                         double* su, double* sn) {
  int32_t response = check_query(task, whichsol);
  if (response == TRV_RES_OK) response = check_item(task, accmode, i);
  if (response != TRV_RES_OK) return response;
  const Item item = get_item(sol_view(task, whichsol), accmode, i);
  put(sk, item.sk);
  put(x, item.x);
  put(sl, item.sl);
  put(su, item.su);
  put(sn, item.sn);
  return TRV_RES_OK;
}

int32_t TRV_getsolutionslice(TRVtask task, int32_t whichsol, int32_t solitem, int32_t first, int32_t last,
                             double* values) {
  int32_t response = check_query(task, whichsol);
  if (response != TRV_RES_OK) return response;
  const SolutionView view = sol_view(task, whichsol);
  const double* list = nullptr;
  bool known = true, con = false;
  switch (solitem) {
    case TRV_SOL_ITEM_XC:
      con = true;
      list = view.xc;
      break;
    case TRV_SOL_ITEM_XX:
      list = view.xx;
      break;
    case TRV_SOL_ITEM_Y:
      con = true;
      list = view.y;
      break;
    case TRV_SOL_ITEM_SLC:
      con = true;
      list = view.slc;
      break;
    case TRV_SOL_ITEM_SUC:
      con = true;
      list = view.suc;
      break;
    case TRV_SOL_ITEM_SLX:
      list = view.slx;
      break;
    case TRV_SOL_ITEM_SUX:
      list = view.sux;
      break;
    case TRV_SOL_ITEM_SNX:
      list = view.snx;
      break;
    default:
      known = false;
  }
  const int32_t count = con ? task->numcon : task->numvar;
  // An item that this solution lacks is as wrong as an unknown one, but an empty list is nobody's fault.
  if (!known || (list == nullptr && !task->sol[whichsol].keys.empty()))
    return report<TRV_RES_ERR_SOLITEM>(task, solitem, whichsol);
  response = check_range(task, first, last, count);
  if (response != TRV_RES_OK || first >= last) return response;
  response = check_pointer(task, "values", values);
  if (response == TRV_RES_OK) copy_out(values, list + first, last - first);
  return response;
}

int32_t TRV_getsolutionstatuskeyslice(TRVtask task, int32_t accmode, int32_t whichsol, int32_t first, int32_t last,
                                      int32_t* sk) {
  int32_t response = check_query(task, whichsol);
  if (response != TRV_RES_OK || first >= last) return response;
  response = check_pointer(task, "sk", sk);
  if (response != TRV_RES_OK) return response;
  for (int32_t i = first; i < last; ++i) {
    response = check_item(task, accmode, i);
    if (response != TRV_RES_OK) return response;
    sk[i - first] = get_item(sol_view(task, whichsol), accmode, i).sk;
  }
  return TRV_RES_OK;
}

int32_t TRV_getreducedcosts(TRVtask task, int32_t whichsol, int32_t first, int32_t last, double* redcosts) {
  int32_t response = check_query(task, whichsol);
  if (response != TRV_RES_OK) return response;
  if (whichsol == TRV_SOL_ITG) return report<TRV_RES_ERR_NO_DUAL_FOR_ITG_SOL>(task);
  response = check_range(task, first, last, task->numvar);
  if (response != TRV_RES_OK || first >= last) return response;
  response = check_pointer(task, "redcosts", redcosts);
  if (response != TRV_RES_OK) return response;
  const SolutionView view = sol_view(task, whichsol);
  for (int32_t j = first; j < last; ++j) redcosts[j - first] = view.slx[j] - view.sux[j];
  return TRV_RES_OK;
}

int32_t TRV_putsolution(TRVtask task, int32_t whichsol, const int32_t* skc, const int32_t* skx, const int32_t* skn,
                        const double* xc, const double* xx, const double* y, const double* slc, const double* suc,
                        const double* slx, const double* sux, const double* snx) {
  int32_t response = check_call(task, whichsol);
  if (response != TRV_RES_OK) return response;
  if (sol_make(task, whichsol) != TRV_RES_OK) return space(task);
  const int32_t numcon = task->numcon, numvar = task->numvar;
  if (numcon > 0) response = check_pointer(task, "skc", skc);
  if (response == TRV_RES_OK && numvar > 0) response = check_pointer(task, "skx", skx);
  if (response != TRV_RES_OK) return response;

  const SolutionView view = sol_view(task, whichsol);
  const bool with_cones = view.skn != nullptr && skn != nullptr;
  int32_t k = first_invalid(skc, numcon);
  if (k >= 0) return report<TRV_RES_ERR_INV_SKC>(task, k);
  k = first_invalid(skx, numvar);
  if (k >= 0) return report<TRV_RES_ERR_INV_SKX>(task, k);
  k = with_cones ? first_invalid(skn, task->numcone) : -1;
  if (k >= 0) return report<TRV_RES_ERR_INV_SKN>(task, k);

  if (whichsol == TRV_SOL_BAS) basissolve_delete(task);
  copy_out(view.skc, skc, numcon);
  copy_out(view.skx, skx, numvar);
  if (with_cones) copy_out(view.skn, skn, task->numcone);
  copy_in(view.xc, xc, numcon);
  copy_in(view.xx, xx, numvar);
  copy_in(view.y, y, numcon);
  copy_in(view.slc, slc, numcon);
  copy_in(view.suc, suc, numcon);
  copy_in(view.slx, slx, numvar);
  copy_in(view.sux, sux, numvar);
  copy_in(view.snx, snx, numvar);
  task->sol[whichsol].solsta = TRV_SOL_STA_UNKNOWN;
  task->sol[whichsol].defined = 1;
  if (whichsol != TRV_SOL_BAS) return TRV_RES_OK;

  int32_t numbasic = 0;
  for (int32_t i = 0; i < numcon; ++i) numbasic += skc[i] == TRV_SK_BAS ? 1 : 0;
  for (int32_t j = 0; j < numvar; ++j) numbasic += skx[j] == TRV_SK_BAS ? 1 : 0;
  if (numbasic < numcon) return report<TRV_RES_WRN_TOO_FEW_BASIS_VARS>(task, numbasic, numcon);
  if (numbasic > numcon) return report<TRV_RES_WRN_TOO_MANY_BASIS_VARS>(task, numbasic, numcon);
  return TRV_RES_OK;
}

int32_t TRV_putsolutioni(TRVtask task, int32_t accmode, int32_t i, int32_t whichsol, int32_t sk, double x, double sl,
                         double su, double sn) {
  int32_t response = check_call(task, whichsol);
  if (response != TRV_RES_OK) return response;
  if (!sol_defined(task, whichsol) && sol_makezero(task, whichsol) != TRV_RES_OK) return space(task);
  response = check_item(task, accmode, i);
  if (response != TRV_RES_OK) return response;
  if (!is_statuskey(sk)) return report<TRV_RES_ERR_INV_SK>(task, sk);
  const SolutionView view = sol_view(task, whichsol);
  const bool con = accmode == TRV_ACC_CON;
  if (whichsol == TRV_SOL_BAS) basissolve_delete(task);
  (con ? view.skc : view.skx)[i] = sk;
  (con ? view.xc : view.xx)[i] = x;
  if (view.y != nullptr) {
    (con ? view.slc : view.slx)[i] = sl;
    (con ? view.suc : view.sux)[i] = su;
  }
  if (!con && view.snx != nullptr) view.snx[i] = sn;
  return TRV_RES_OK;
}

int32_t TRV_putsolutionyi(TRVtask task, int32_t i, int32_t whichsol, double y) {
  int32_t response = check_call(task, whichsol);
  if (response != TRV_RES_OK) return response;
  if (sol_make(task, whichsol) != TRV_RES_OK) return space(task);
  response = check_item(task, TRV_ACC_CON, i);
  if (response != TRV_RES_OK) return response;
  const SolutionView view = sol_view(task, whichsol);
  if (whichsol == TRV_SOL_BAS) basissolve_delete(task);
  if (view.y != nullptr) view.y[i] = y;
  return TRV_RES_OK;
}

}  // extern "C"
