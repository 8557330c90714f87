// The debug listing of the problem data.
#include <algorithm>

#include "tarvo/log.h"
#include "tarvo/tarvodat_internal.h"

namespace tarvo {

namespace {

const char* key_text(int32_t bk) {
  static constexpr const char* texts[] = {"lo", "up", "fx", "fr", "ra"};
  return bk >= 0 && bk < 5 ? texts[bk] : "?";
}

void print_bounds(Task* task, int32_t stream, int32_t accmode, int32_t first, int32_t last, bool types) {
  for (int32_t i = first; i < last; ++i) {
    int32_t bk = 0;
    double bl = 0.0, bu = 0.0;
    if (TRV_getbound(task, accmode, i, &bk, &bl, &bu) != TRV_RES_OK) return;
    const bool integer = types && !task->vartype.empty() && task->vartype[i] == TRV_VAR_TYPE_INT;
    task_print(task, stream, "%-8d %-16s %s %24.16e %24.16e%s\n", i, acc_name(task, accmode, i), key_text(bk), bl, bu,
               types ? integer ? " int" : " cont" : "");
  }
}

void print_terms(Task* task, int32_t stream, int32_t begin, int32_t end) {
  const QuadStore& q = task->quad;
  for (int32_t t = begin; t < end; ++t) task_print(task, stream, " %e[%d,%d]\n", q.qval[t], q.qsubi[t], q.qsubj[t]);
}

// Columns with their elements in the given rows, of a matrix that is column-wise.
int32_t print_columns(Task* task, int32_t stream, int32_t firsti, int32_t lasti, int32_t firstj, int32_t lastj) {
  Array<int32_t> sub;
  Array<double> val;
  for (int32_t j = firstj; j < lastj; ++j) {
    int32_t n = 0;
    if (const int32_t rc = TRV_getavecnumnz(task, TRV_ACC_VAR, j, &n)) return rc;
    const auto size = static_cast<std::size_t>(n);
    if (sub.size() < size && (!sub.alloc(task->sys, size) || !val.alloc(task->sys, size)))
      return report<TRV_RES_ERR_SPACE>(task);
    if (const int32_t rc = TRV_getavec(task, TRV_ACC_VAR, j, &n, sub.data(), val.data())) return rc;
    task_print(task, stream, "%-8d", j);
    for (int32_t t = 0; t < n; ++t)
      if (sub[t] >= firsti && sub[t] < lasti) task_print(task, stream, " %e[%d]", val[t], sub[t]);
    task_print(task, stream, "\n");
  }
  return TRV_RES_OK;
}

void print_cone(Task* task, int32_t stream, int32_t k) {
  const ConeStore& cones = task->cones;
  task_print(task, stream, "Cone: '%s' (%d) Type: %s Parameter: %e Dimension: %-d\n", item_name(task, TRV_PI_CONE, k),
             k, cones.conetype[k] == TRV_CT_QUAD ? "TRV_CT_QUAD" : "TRV_CT_RQUAD", cones.conepar[k],
             cones.coneend[k] - cones.conebegin[k]);
  for (int32_t t = cones.conebegin[k]; t < cones.coneend[k]; ++t) task_print(task, stream, " %d", cones.conemembers[t]);
  task_print(task, stream, "\n");
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

int32_t TRV_printdata(TRVtask task, int32_t whichstream, int32_t firsti, int32_t lasti, int32_t firstj, int32_t lastj,
                      int32_t firstk, int32_t lastk, int32_t c, int32_t qo, int32_t a, int32_t qc, int32_t bc,
                      int32_t bx, int32_t vartype, int32_t cones) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = stream_check(whichstream)) return rc;
  // Ranges beyond the problem are cut.
  firsti = std::max(firsti, 0);
  firstj = std::max(firstj, 0);
  firstk = std::max(firstk, 0);
  lasti = std::min(lasti, task->numcon);
  lastj = std::min(lastj, task->numvar);
  lastk = std::min(lastk, task->numcone);
  task_print(task, whichstream, "\nName: %s  numcon: %d  numvar: %d  numcone: %d\n",
             task->task_name == nullptr ? "" : task->task_name, task->numcon, task->numvar, task->numcone);
  if (c != 0) {
    task_print(task, whichstream, "Objective name: %s\n", objective_name(task));
    for (int32_t j = firstj; j < lastj; ++j) task_print(task, whichstream, " %e[%d]\n", task->c[j], j);
  }
  const QuadStore& q = task->quad;
  if (qo != 0) {
    task_print(task, whichstream, "\nQ - Objective\n");
    print_terms(task, whichstream, q.qobjbegin, q.qobjend);
  }
  if (a != 0) {
    task_print(task, whichstream, "\nA(columnwise) firsti: %d lasti: %d\n", firsti, lasti);
    if (const int32_t rc = print_columns(task, whichstream, firsti, lasti, firstj, lastj)) return rc;
  }
  if (qc != 0 && !q.qconbegin.empty()) {
    for (int32_t i = firsti; i < lasti; ++i) {
      if (q.qconbegin[i] == q.qconend[i]) continue;
      task_print(task, whichstream, "\nQ in constraint %d\n", i);
      print_terms(task, whichstream, q.qconbegin[i], q.qconend[i]);
    }
  }
  if (bc != 0) {
    task_print(task, whichstream, "Constraints\n");
    print_bounds(task, whichstream, TRV_ACC_CON, firsti, lasti, false);
  }
  if (bx != 0 || vartype != 0) {
    task_print(task, whichstream, "\nVariables\n");
    print_bounds(task, whichstream, TRV_ACC_VAR, firstj, lastj, vartype != 0);
  }
  if (cones != 0) {
    task_print(task, whichstream, "\nCones\n");
    for (int32_t k = firstk; k < lastk; ++k) print_cone(task, whichstream, k);
  }
  return TRV_RES_OK;
}
