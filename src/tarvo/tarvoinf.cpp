// Infeasibility reports and the infeasible part of a problem, from the certificate in a solution:
//   primal   multipliers with A'y + slx - sux = 0 whose bounds add up to a contradiction
//   dual     a direction xx, with activities xc, of unbounded improvement
#include "tarvo/tarvoinf.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

constexpr double threshold = 1e-8;  // smaller numbers of a certificate don't count
constexpr int32_t best_solution = 3;

bool is_primal(const Task* task, int32_t whichsol) {
  const int32_t solsta = task->sol[whichsol].solsta;
  return solsta == TRV_SOL_STA_PRIM_INFEAS_CER || solsta == TRV_SOL_STA_NEAR_PRIM_INFEAS_CER;
}
bool is_dual(const Task* task, int32_t whichsol) {
  const int32_t solsta = task->sol[whichsol].solsta;
  return solsta == TRV_SOL_STA_DUAL_INFEAS_CER || solsta == TRV_SOL_STA_NEAR_DUAL_INFEAS_CER;
}
double direction(const Task* task) { return resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0; }

// ---- The infeasible part -------------------------------------------------------------------------------------------

// Chosen rows and columns of a task as a new task: newrow[i] and newcol[j] are the new indices or -1.
struct Part {
  const int32_t* newrow;
  const int32_t* newcol;
  int32_t numrow, numcol;
};

int32_t copy_names(Task* from, Task* to, int32_t accmode, int32_t count, const int32_t* index) {
  const bool generic = from->ipar[TRV_IPAR_INFEAS_GENERIC_NAMES] != TRV_OFF;
  for (int32_t k = 0; k < count; ++k) {
    if (index[k] < 0) continue;
    char buffer[generic_name_size];
    const char* name = names_writertext(from, accmode, k, generic, buffer);
    int32_t owner = -1;
    if (const int32_t rc = names_put(to, accmode, index[k], name, &owner); rc != TRV_RES_OK) return rc;
  }
  return TRV_RES_OK;
}

int32_t copy_part(Task* task, const Part& part, TRVtask* result) {
  int32_t rc = TRV_maketask(task->env, part.numrow, part.numcol, result);
  if (rc == TRV_RES_OK) rc = TRV_append(*result, TRV_ACC_CON, part.numrow);
  if (rc == TRV_RES_OK) rc = TRV_append(*result, TRV_ACC_VAR, part.numcol);
  if (rc == TRV_RES_OK) rc = TRV_putobjsense(*result, resolved_sense(task));
  if (rc == TRV_RES_OK) rc = TRV_puttaskname(*result, task->task_name);
  for (int32_t i = 0; i < task->numcon && rc == TRV_RES_OK; ++i)
    if (part.newrow[i] >= 0)
      store_bound(*result, TRV_ACC_CON, part.newrow[i], task->bkc[i], task->blc[i], task->buc[i]);
  Workspace work(task->sys);
  int32_t* sub = nullptr;
  double* val = nullptr;
  work.add(&sub, static_cast<std::size_t>(task->numcon));
  work.add(&val, static_cast<std::size_t>(task->numcon));
  if (rc == TRV_RES_OK && !work.commit()) rc = TRV_RES_ERR_SPACE;
  for (int32_t j = 0; j < task->numvar && rc == TRV_RES_OK; ++j) {
    const int32_t to = part.newcol[j];
    if (to < 0) continue;
    int32_t num = 0, kept = 0;
    rc = TRV_getavec(task, TRV_ACC_VAR, j, &num, sub, val);
    for (int32_t k = 0; k < num; ++k) {
      if (part.newrow[sub[k]] < 0) continue;
      sub[kept] = part.newrow[sub[k]];
      val[kept++] = val[k];
    }
    if (rc == TRV_RES_OK) rc = TRV_putavec(*result, TRV_ACC_VAR, to, kept, sub, val);
    if (rc != TRV_RES_OK) break;
    (*result)->c[to] = task->c[j];
    store_bound(*result, TRV_ACC_VAR, to, task->bkx[j], task->blx[j], task->bux[j]);
  }
  if (rc == TRV_RES_OK) rc = copy_names(task, *result, TRV_ACC_CON, task->numcon, part.newrow);
  if (rc == TRV_RES_OK) rc = copy_names(task, *result, TRV_ACC_VAR, task->numvar, part.newcol);
  return rc;
}

int32_t number(int32_t count, int32_t* index) {
  int32_t next = 0;
  for (int32_t k = 0; k < count; ++k) index[k] = index[k] != 0 ? next++ : -1;
  return next;
}

// All rows, those without a multiplier free, and the columns that carry a multiplier or link the involved rows.
int32_t build_primal(Task* task, const SolutionView& view, const ColumnView& a, int32_t* row, int32_t* col,
                     TRVtask* result) {
  const auto involved = [](double sl, double su) { return std::fabs(sl) > threshold || std::fabs(su) > threshold; };
  for (int32_t i = 0; i < task->numcon; ++i) row[i] = involved(view.slc[i], view.suc[i]) ? 1 : 0;
  for (int32_t j = 0; j < task->numvar; ++j) {
    col[j] = involved(view.slx[j], view.sux[j]) ? 1 : 0;
    for (int32_t e = a.ptrb[j]; e < a.ptre[j] && col[j] == 0; ++e) col[j] = row[a.sub[e]];
  }
  std::fill_n(row, task->numcon, 1);
  const int32_t numrow = number(task->numcon, row), numcol = number(task->numvar, col);
  const int32_t rc = copy_part(task, {row, col, numrow, numcol}, result);
  if (rc != TRV_RES_OK) return rc;
  for (int32_t i = 0; i < task->numcon; ++i)
    if (!involved(view.slc[i], view.suc[i]))
      store_bound(*result, TRV_ACC_CON, i, TRV_BK_FR, -infinity_bound, infinity_bound);
  return TRV_RES_OK;
}

// The columns that the ray moves, without the bound ahead of them, and the rows that they touch. A row whose activity
// stays is kept: it is what makes the ray's variables move together.
int32_t build_dual(Task* task, const SolutionView& view, const ColumnView& a, int32_t* row, int32_t* col,
                   TRVtask* result) {
  std::fill_n(row, task->numcon, 0);
  for (int32_t j = 0; j < task->numvar; ++j) {
    col[j] = std::fabs(view.xx[j]) > threshold ? 1 : 0;
    for (int32_t e = a.ptrb[j]; e < a.ptre[j] && col[j] != 0; ++e) row[a.sub[e]] = 1;
  }
  const int32_t numrow = number(task->numcon, row), numcol = number(task->numvar, col);
  int32_t rc = copy_part(task, {row, col, numrow, numcol}, result);
  for (int32_t j = 0; j < task->numvar && rc == TRV_RES_OK; ++j)
    if (col[j] >= 0) rc = TRV_chgbound(*result, TRV_ACC_VAR, col[j], view.xx[j] < 0.0 ? 1 : 0, 0, 0.0);
  return rc;
}

// ---- The report ----------------------------------------------------------------------------------------------------

struct Columns {
  int32_t index, name;  // widths
};

struct Printer {
  Task* task;
  int32_t stream;
  bool generic;

  const char* name(int32_t accmode, int32_t i, char (&buffer)[generic_name_size]) const {
    return names_writertext(task, accmode, i, generic, buffer);
  }
  Columns widths(int32_t accmode) const {
    Columns columns{5, 4};
    char buffer[generic_name_size];
    for (int32_t i = 0; i < item_count(task, accmode); ++i)
      columns.name = std::max(columns.name, static_cast<int32_t>(std::strlen(name(accmode, i, buffer))));
    columns.index = std::max(columns.index, std::snprintf(nullptr, 0, "%d", item_count(task, accmode)));
    return columns;
  }
  void head(const Columns& w, std::initializer_list<const char*> titles) const {
    task_print(task, stream, "%-*s %-*s", w.index, "Index", w.name, "Name");
    for (const char* title : titles) task_print(task, stream, " %-16s", title);
    task_print(task, stream, "\n");
  }
  void start(const Columns& w, int32_t accmode, int32_t i) const {
    char buffer[generic_name_size];
    task_print(task, stream, "%-*d %-*s", w.index, i, w.name, name(accmode, i, buffer));
  }
  void value(double v) const { task_print(task, stream, " %-16.6e", v + 0.0); }
  void word(const char* text) const { task_print(task, stream, " %-16s", text); }
  // A bound that isn't involved shows its value from report level 1 on.
  void bound(bool exists, bool involved, double v) const {
    if (!exists)
      word("NONE");
    else if (!involved && task->ipar[TRV_IPAR_INFEAS_REPORT_LEVEL] < 1)
      word("unimportant");
    else
      value(v);
  }
  void multiplier(bool exists, double v) const {
    if (exists)
      value(v);
    else
      word("none");
  }
};

void report_primal_items(const Printer& out, const SolutionView& view, int32_t accmode) {
  Task* task = out.task;
  const bool con = accmode == TRV_ACC_CON;
  const bool conic = !con && task->numcone > 0 && view.snx != nullptr;
  const double sign = direction(task);
  const Columns w = out.widths(accmode);
  if (conic)
    out.head(w, {"Lower bound", "Upper bound", "Dual lower", "Dual upper", "Dual cone"});
  else
    out.head(w, {"Lower bound", "Upper bound", "Dual lower", "Dual upper"});
  for (int32_t i = 0; i < item_count(task, accmode); ++i) {
    const double sl = sign * (con ? view.slc : view.slx)[i], su = sign * (con ? view.suc : view.sux)[i];
    const bool in_cone = conic && std::fabs(view.snx[i]) > threshold;
    if (sl <= threshold && su <= threshold && !in_cone) continue;
    const int32_t bk = con ? task->bkc[i] : task->bkx[i];
    out.start(w, accmode, i);
    out.bound(has_lower(bk), sl > threshold, con ? task->blc[i] : task->blx[i]);
    out.bound(has_upper(bk), su > threshold, con ? task->buc[i] : task->bux[i]);
    out.multiplier(has_lower(bk), sl);
    out.multiplier(has_upper(bk), su);
    if (conic) out.value(sign * view.snx[i]);
    task_print(task, out.stream, "\n");
  }
}

void report_primal(const Printer& out, const SolutionView& view) {
  Task* task = out.task;
  task_print(task, out.stream,
             "\nTARVO PRIMAL INFEASIBILITY REPORT.\n\nProblem status: The problem is primal infeasible\n");
  if (task->numcon > 0) {
    task_print(task, out.stream, "\nThe following constraints are involved in the primal infeasibility.\n\n");
    report_primal_items(out, view, TRV_ACC_CON);
  }
  task_print(task, out.stream, "\nThe following bound constraints are involved in the infeasibility.\n\n");
  report_primal_items(out, view, TRV_ACC_VAR);
  task_print(task, out.stream, "\n\n");
}

void report_dual_items(const Printer& out, const SolutionView& view, int32_t accmode) {
  Task* task = out.task;
  const bool con = accmode == TRV_ACC_CON;
  const Columns w = out.widths(accmode);
  out.head(w, {"Activity", "Objective", "Lower bound", "Upper bound"});
  for (int32_t i = 0; i < item_count(task, accmode); ++i) {
    const double x = (con ? view.xc : view.xx)[i];
    if (std::fabs(x) <= threshold) continue;
    const int32_t bk = con ? task->bkc[i] : task->bkx[i];
    out.start(w, accmode, i);
    out.value(x);
    out.multiplier(!con, con ? 0.0 : task->c[i]);  // constraints have no cost: "none"
    out.bound(has_lower(bk), true, con ? task->blc[i] : task->blx[i]);
    out.bound(has_upper(bk), true, con ? task->buc[i] : task->bux[i]);
    task_print(task, out.stream, "\n");
  }
}

void report_dual(const Printer& out, const SolutionView& view) {
  Task* task = out.task;
  task_print(task, out.stream,
             "\nTARVO DUAL INFEASIBILITY REPORT.\n\nProblem status: The problem is dual infeasible\n");
  task_print(task, out.stream, "\nThe following constraints are involved in the infeasibility.\n\n");
  report_dual_items(out, view, TRV_ACC_CON);
  task_print(task, out.stream, "\nThe following variables are involved in the infeasibility.\n\n");
  report_dual_items(out, view, TRV_ACC_VAR);
  task_print(task, out.stream, "\n\n");
}

}  // namespace

int32_t infeas_report(Task* task, int32_t whichstream, int32_t whichsol) {
  const bool primal = is_primal(task, whichsol);
  if (!primal && !is_dual(task, whichsol)) return TRV_RES_OK;
  const double cpu0 = sysenv_cputime(), real0 = sysenv_realtime();
  const int32_t begun = event_phase(task, TRV_CALLBACK_BEGIN_INFEAS_ANA, cpu0, real0);
  if (begun != TRV_RES_OK) return begun;
  const Printer out{task, whichstream, task->ipar[TRV_IPAR_INFEAS_GENERIC_NAMES] != TRV_OFF};
  const SolutionView view = sol_view(task, whichsol);
  if (primal)
    report_primal(out, view);
  else
    report_dual(out, view);
  return event_phase(task, TRV_CALLBACK_END_INFEAS_ANA, cpu0, real0);
}

// A run leaves only what it wrote itself; where two solutions hold different certificates the parameter chooses.
int32_t infeas_autoreport(Task* task) {
  const bool prefer_primal = task->ipar[TRV_IPAR_INFEAS_PREFER_PRIMAL] != TRV_OFF;
  int32_t chosen = -1;
  for (const int32_t whichsol : {TRV_SOL_BAS, TRV_SOL_ITR}) {
    if (!sol_defined(task, whichsol) || (!is_primal(task, whichsol) && !is_dual(task, whichsol))) continue;
    if (chosen < 0 || (is_primal(task, whichsol) == prefer_primal && is_primal(task, chosen) != prefer_primal))
      chosen = whichsol;
  }
  return chosen < 0 ? static_cast<int32_t>(TRV_RES_OK) : infeas_report(task, TRV_STREAM_MSG, chosen);
}

}  // namespace tarvo

using namespace tarvo;

extern "C" int32_t TRV_getinfeasiblesubproblem(TRVtask task, int32_t whichsol, TRVtask* inftask) {
  int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  response = check_pointers(task, {{"inftask", inftask}});
  if (response != TRV_RES_OK) return response;
  if (*inftask == task) return report<TRV_RES_ERR_IDENTICAL_TASKS>(task);
  *inftask = nullptr;
  if (whichsol == best_solution) {
    if (!sol_defined(task, TRV_SOL_BAS) && !sol_defined(task, TRV_SOL_ITR)) return TRV_RES_OK;
    whichsol = sol_defined(task, TRV_SOL_BAS) ? TRV_SOL_BAS : TRV_SOL_ITR;
  }
  if (whichsol != TRV_SOL_ITR && whichsol != TRV_SOL_BAS) return TRV_RES_OK;
  if (!sol_defined(task, whichsol)) return report<TRV_RES_ERR_UNDEF_SOLUTION>(task, whichsol);
  const bool primal = is_primal(task, whichsol);
  if (!primal && !is_dual(task, whichsol)) return TRV_RES_OK;

  Workspace work(task->sys);
  int32_t *row = nullptr, *col = nullptr;
  work.add(&row, static_cast<std::size_t>(task->numcon));
  work.add(&col, static_cast<std::size_t>(task->numvar));
  if (!work.commit()) return report<TRV_RES_ERR_SPACE>(task);
  ColumnView a{};
  response = data_lock(task, &a);
  if (response != TRV_RES_OK) return response;
  const SolutionView view = sol_view(task, whichsol);
  response = (primal ? build_primal : build_dual)(task, view, a, row, col, inftask);
  data_unlock(task);
  if (response == TRV_RES_OK) return response;
  TRV_deletetask(inftask);
  return response == TRV_RES_ERR_SPACE ? report<TRV_RES_ERR_SPACE>(task) : response;
}
