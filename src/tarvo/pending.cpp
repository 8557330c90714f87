// Stand-ins for calls of other files that are still to come; a strong definition takes their place.
#include "tarvo/tarvodat.h"
#include "tarvo/tarvosim.h"

namespace tarvo {
[[gnu::weak]] void data_clear(Task*) {}
[[gnu::weak]] void basissolve_delete(Task*) {}
[[gnu::weak]] int32_t resolved_sense(const Task* t) { return t->objective_sense; }
[[gnu::weak]] int32_t data_lock(Task*, ColumnView*) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] void data_unlock(Task*) {}
[[gnu::weak]] int32_t simplexoptimizer(Task*, int32_t, double, double) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t data_checkunlocked(Task*, Location) { return TRV_RES_OK; }
[[gnu::weak]] int32_t data_loadcolumns(Task*, int32_t, int32_t, const int32_t*, const int32_t*, const int32_t*,
                                       const double*) {
  return TRV_RES_ERR_UNKNOWN;
}
}  // namespace tarvo

[[gnu::weak]] int32_t TRV_getnumanz(TRVtask, int32_t* n) {
  *n = 0;
  return TRV_RES_OK;
}
[[gnu::weak]] int32_t TRV_putmaxnumvar(TRVtask task, int32_t n) {
  task->maxnumvar = n;
  return n < 0 ? TRV_RES_ERR_SPACE : TRV_RES_OK;
}
[[gnu::weak]] int32_t TRV_putmaxnumcon(TRVtask task, int32_t n) {
  task->maxnumcon = n;
  return n < 0 ? TRV_RES_ERR_SPACE : TRV_RES_OK;
}
[[gnu::weak]] int32_t TRV_putmaxnumcone(TRVtask, int32_t) { return TRV_RES_OK; }
[[gnu::weak]] int32_t TRV_putmaxnumanz(TRVtask, int32_t) { return TRV_RES_OK; }
[[gnu::weak]] int32_t TRV_putmaxnumqnz(TRVtask, int32_t) { return TRV_RES_OK; }
[[gnu::weak]] int32_t TRV_checkdata(TRVtask) { return TRV_RES_OK; }
[[gnu::weak]] int32_t TRV_append(TRVtask, int32_t, int32_t) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_remove(TRVtask, int32_t, int32_t, const int32_t*) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_putbound(TRVtask, int32_t, int32_t, int32_t, double, double) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_putcfix(TRVtask, double) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_putcj(TRVtask, int32_t, double) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_putobjsense(TRVtask, int32_t) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_putvartype(TRVtask, int32_t, int32_t) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_getnumqobjnz(TRVtask, int32_t*) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_getnumqconnz(TRVtask, int32_t, int32_t*) { return TRV_RES_ERR_UNKNOWN; }
[[gnu::weak]] int32_t TRV_putqobj(TRVtask, int32_t, const int32_t*, const int32_t*, const double*) {
  return TRV_RES_ERR_UNKNOWN;
}
[[gnu::weak]] int32_t TRV_putqconk(TRVtask, int32_t, int32_t, const int32_t*, const int32_t*, const double*) {
  return TRV_RES_ERR_UNKNOWN;
}
[[gnu::weak]] int32_t TRV_appendcone(TRVtask, int32_t, double, int32_t, const int32_t*) { return TRV_RES_ERR_UNKNOWN; }
