// Table rows, heads and labelled blocks of the log. All numbers come from the information items.
#include <cstdio>
#include <cstring>

#include "cpub/clocale.h"
#include "cpub/sysenv.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/log_internal.h"
#include "tarvo/tarvodat.h"

namespace tarvo {
namespace {

int32_t level(const Task* task, int32_t parameter, int32_t divisor = 1) { return task->ipar[parameter] / divisor; }
bool item(const Task* task, int32_t whichitem) { return task->iinf[whichitem] != 0; }

void say(Task* task, const char* text) { task_print(task, TRV_STREAM_MSG, "%s", text); }

// A value of a labelled line as text.
class Value {
 public:
  explicit Value(const char* text) : text_(text) {}
  static Value number(int64_t value) { return {"%lld", static_cast<long long>(value)}; }
  static Value decimals(double value) { return {"%.2f", value}; }
  static Value power(double value) { return {"%.2e", value}; }
  static Value yesno(bool value) { return Value(value ? "yes" : "no"); }
  [[nodiscard]] const char* text() const { return text_ != nullptr ? text_ : buffer_; }

 private:
  template <class T>
  Value(const char* format, T value) : text_(nullptr) {
    const CLocale locale;
    std::snprintf(buffer_, sizeof buffer_, format, value);
  }
  const char* text_;
  char buffer_[40];
};

// "Optimizer  - solved problem         : the primal      "
void labelled(Task* task, const char* label, const char* name, const Value& value) {
  task_print(task, TRV_STREAM_MSG, "%-10s - %-22s : %-16s\n", label, name, value.text());
}
void labelled(Task* task, const char* label, const char* name, const Value& value, const char* name2,
              const Value& value2) {
  task_print(task, TRV_STREAM_MSG, "%-10s - %-22s : %-16s  %-22s : %-16s\n", label, name, value.text(), name2,
             value2.text());
}

double percent(int32_t part, int32_t whole) { return whole == 0 ? 0.0 : 100.0 * part / whole; }

const char* solved_problem(bool dual) { return dual ? "the dual" : "the primal"; }

}  // namespace

MemoryText memory_text(Task* task) {
  MemoryText result{};
  size_t current = 0;
  size_t maximum = 0;
  if (sysenv_usage(task->sys, &current, &maximum)) {
    std::snprintf(result.text, sizeof result.text, "Memory use (cur,max): %s %s", sysenv_sizetext(current).text,
                  sysenv_sizetext(maximum).text);
  }
  return result;
}

void print_problem_head(Task* task) {
  if (task->head_printed != 0 || !log_enabled(task, level(task, TRV_IPAR_LOG_HEAD))) return;
  task->head_printed = 1;
  const char* computer = "Computer";
  labelled(task, computer, "Platform", Value(sysinfo_platform(sysenv_info(task->sys)->platform)));
  labelled(task, computer, "CPU type", Value(cputype_text(task->ipar[TRV_IPAR_CPU_TYPE])));
  labelled(task, computer, "L1 cache size (kb)", Value::number(task->ipar[TRV_IPAR_CACHE_SIZE_L1]));
  labelled(task, computer, "L2 cache size (kb)", Value::number(task->ipar[TRV_IPAR_CACHE_SIZE_L2]));
  const char* problem = "TARVO";
  int32_t type = TRV_PROBTYPE_LO;
  TRV_getprobtype(task, &type);
  char type_text[TRV_MAX_STR_LEN];
  TRV_probtypetostr(task, type, type_text);
  labelled(task, problem, "task name", Value(task->task_name != nullptr ? task->task_name : ""));
  labelled(task, problem, "objective sense",
           Value(resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE ? "max" : "min"));
  labelled(task, problem, "problem type", Value(type_text));
  labelled(task, problem, "constraints", Value::number(task->numcon), "variables", Value::number(task->numvar));
  labelled(task, problem, "integer variables", Value::number(task->numintvar));
}

// ---- Interior point

namespace {

void print_intpnt_head(Task* task) {
  const int32_t* iinf = task->iinf;
  const double* dinf = task->dinf;
  if (log_enabled(task, level(task, TRV_IPAR_LOG_OPTIMIZER))) {
    const char* label = "Optimizer";
    labelled(task, label, "threads", Value::number(iinf[TRV_IINF_INTPNT_NUM_THREADS]));
    labelled(task, label, "solved problem", Value(solved_problem(item(task, TRV_IINF_INTPNT_SOLVE_DUAL))));
    labelled(task, label, "constraints", Value::number(iinf[TRV_IINF_INTPNT_NUMCON]), "variables",
             Value::number(iinf[TRV_IINF_INTPNT_NUMVAR]));
  }
  if (log_enabled(task, level(task, TRV_IPAR_LOG_FACTOR))) {
    const char* label = "Factor";
    const bool gp = item(task, TRV_IINF_INTPNT_GP_ORDER_USED);
    labelled(task, label, "setup time", Value::decimals(dinf[TRV_DINF_INTPNT_FSETUP_CPUTIME]), "order time",
             Value::decimals(dinf[TRV_DINF_INTPNT_ORDER_CPUTIME]));
    labelled(task, label, "GP order used", Value::yesno(gp), "GP order time",
             Value::decimals(dinf[TRV_DINF_INTPNT_GP_ORDER_CPUTIME]));
    labelled(task, label, "nonzeros before factor", Value::number(iinf[TRV_IINF_INTPNT_FACTOR_MAT_NUM_NZ]),
             "after factor", Value::number(iinf[TRV_IINF_INTPNT_FACTOR_NUM_NZ]));
    labelled(task, label, "offending columns", Value::number(iinf[TRV_IINF_INTPNT_FACTOR_NUM_OFFCOL]), "flops",
             Value::power(dinf[TRV_DINF_INTPNT_FACTOR_NUM_FLOPS]));
    if (gp) {
      labelled(task, label, "GP saved nzs", Value::number(iinf[TRV_IINF_INTPNT_GP_ORDER_SAVED_NZS]), "GP saved flops",
               Value::power(dinf[TRV_DINF_INTPNT_GP_ORDER_SAVED_FLOPS]));
    }
  }
  size_t current = 0;
  size_t maximum = 0;
  if (sysenv_usage(task->sys, &current, &maximum)) {
    labelled(task, "Memory", "Cur. usage", Value(sysenv_sizetext(current).text), "Max usage",
             Value(sysenv_sizetext(maximum).text));
  }
  task_print(task, TRV_STREAM_MSG, "%-3s %-8s %-8s %-8s %-17s %-17s %-8s %-6s\n", "ITE", "PFEAS", "DFEAS", "KAP/TAU",
             "POBJ", "DOBJ", "MU", "TIME");
}

}  // namespace

void print_intpnt_begin(Task* task) {
  say(task, "Interior-point optimizer started.\n");
  print_problem_head(task);
}

void print_conic_begin(Task* task) {
  say(task, "Conic interior-point optimizer started.\n");
  print_problem_head(task);
}

void print_intpnt_row(Task* task) {
  if (task->iter_head_printed == 0) {
    task->iter_head_printed = 1;
    print_intpnt_head(task);
  }
  const double* dinf = task->dinf;
  task_print(task, TRV_STREAM_MSG, "%-3d %-8.1e %-8.1e %-8.1e %-17.9e %-17.9e %-8.1e %-6.2f\n",
             task->iinf[TRV_IINF_INTPNT_ITER], dinf[TRV_DINF_INTPNT_PRIMAL_FEAS], dinf[TRV_DINF_INTPNT_DUAL_FEAS],
             dinf[TRV_DINF_INTPNT_KAP_DIV_TAU], dinf[TRV_DINF_INTPNT_PRIMAL_OBJ], dinf[TRV_DINF_INTPNT_DUAL_OBJ],
             dinf[TRV_DINF_INTPNT_COMP_GAP], dinf[TRV_DINF_OPTIMIZER_CPUTIME]);
}

void print_intpnt_end(Task* task) {
  task_print(task, TRV_STREAM_MSG, "Interior-point optimizer terminated. CPU time: %-.2f. Real time: %-.2f. %s\n\n",
             task->dinf[TRV_DINF_OPTIMIZER_CPUTIME], task->dinf[TRV_DINF_OPTIMIZER_REALTIME], memory_text(task).text);
}

// ---- Basis identification

namespace {

struct BiPhase {
  const char* name;
  const char* feas;
  const char* obj;
  int32_t iter, feas_item, obj_item, time;
};
constexpr BiPhase primal_bi{"Primal",
                            "PFEAS",
                            "POBJ",
                            TRV_IINF_BI_PRIMAL_ITER,
                            TRV_DINF_BI_PRIMAL_FEAS,
                            TRV_DINF_BI_PRIMAL_OBJ,
                            TRV_DINF_BI_PRIMAL_CPUTIME};
constexpr BiPhase dual_bi{"Dual",
                          "DFEAS",
                          "DOBJ",
                          TRV_IINF_BI_DUAL_ITER,
                          TRV_DINF_BI_DUAL_FEAS,
                          TRV_DINF_BI_DUAL_OBJ,
                          TRV_DINF_BI_DUAL_CPUTIME};

void print_bi_begin(Task* task, const BiPhase& phase) {
  task_print(task, TRV_STREAM_MSG, "%s basis identification phase started.\n", phase.name);
  task_print(task, TRV_STREAM_MSG, "%-8s  %-10s  %-20s  %-s\n", "ITER", phase.feas, phase.obj, "TIME");
}
void print_bi_row(Task* task, const BiPhase& phase) {
  task_print(task, TRV_STREAM_MSG, "%-8d  %-10.2e  %-20.10e  %-.2f\n", task->iinf[phase.iter],
             task->dinf[phase.feas_item], task->dinf[phase.obj_item], task->dinf[phase.time]);
}
void print_bi_phase_end(Task* task, const BiPhase& phase) {
  print_bi_row(task, phase);
  task_print(task, TRV_STREAM_MSG, "%s basis identification phase terminated. Time: %-.2f\n", phase.name,
             task->dinf[phase.time]);
}

}  // namespace

void print_primal_bi_begin(Task* task) { print_bi_begin(task, primal_bi); }
void print_primal_bi_row(Task* task) { print_bi_row(task, primal_bi); }
void print_primal_bi_end(Task* task) { print_bi_phase_end(task, primal_bi); }
void print_dual_bi_begin(Task* task) { print_bi_begin(task, dual_bi); }
void print_dual_bi_row(Task* task) { print_bi_row(task, dual_bi); }
void print_dual_bi_end(Task* task) { print_bi_phase_end(task, dual_bi); }

void print_simplex_bi_begin(Task* task) {
  say(task, "Simplex reoptimization started.\n");
  task_print(task, TRV_STREAM_MSG, "%-8s  %-8s  %-10s  %-10s  %-20s  %-20s  %-s\n", "ITER", "DEGITER(%)", "PFEAS",
             "DFEAS", "POBJ", "DOBJ", "TIME");
}

void print_simplex_bi_row(Task* task) {
  const double* dinf = task->dinf;
  const int32_t iter = task->iinf[TRV_IINF_BI_CLEAN_ITER];
  task_print(task, TRV_STREAM_MSG, "%-8d  %-8.2f  %-10.2e  %-10.2e  %-20.10e  %-20.10e  %-.2f\n", iter,
             percent(task->iinf[TRV_IINF_BI_CLEAN_DEG_ITER], iter), dinf[TRV_DINF_SIM_PRIMAL_FEAS],
             dinf[TRV_DINF_SIM_DUAL_FEAS], dinf[TRV_DINF_SIM_PRIMAL_OBJ], dinf[TRV_DINF_SIM_DUAL_OBJ],
             dinf[TRV_DINF_BI_CLEAN_CPUTIME]);
}

void print_simplex_bi_end(Task* task) {
  print_simplex_bi_row(task);
  task_print(task, TRV_STREAM_MSG, "Simplex reoptimization terminated. Time: %-.2f\n",
             task->dinf[TRV_DINF_BI_CLEAN_CPUTIME]);
}

void print_bi_end(Task* task) {
  task_print(task, TRV_STREAM_MSG, "Basis identification terminated. Time: %-.2f\n", task->dinf[TRV_DINF_BI_CPUTIME]);
}

void print_crash_end(Task* task) {
  task_print(task, TRV_STREAM_MSG, "Basis crash terminated. Time: %-.2f\n", task->dinf[TRV_DINF_BI_CRASH_CPUTIME]);
}

// ---- Presolve

void print_eliminator_end(Task* task) {
  task_print(task, TRV_STREAM_MSG, "%-s : %-d\n", "Total number of eliminations",
             task->iinf[TRV_IINF_PRESOLVE_ELI_NUM]);
  say(task, "Eliminator terminated.\n");
}

void print_presolve_end(Task* task) {
  const int32_t* iinf = task->iinf;
  const double* dinf = task->dinf;
  constexpr double kilobyte = 1024.0;
  labelled(task, "Presolve", "time", Value::decimals(dinf[TRV_DINF_PRESOLVE_CPUTIME]), "Stk. size (kb)",
           Value::decimals(iinf[TRV_IINF_PRESOLVE_STACK_SIZE] / kilobyte));
  labelled(task, "Eliminator", "tries", Value::number(iinf[TRV_IINF_PRESOLVE_ELI_NUM_TRIES]), "time",
           Value::decimals(dinf[TRV_DINF_PRESOLVE_ELI_CPUTIME]));
  labelled(task, "Eliminator", "elim's", Value::number(iinf[TRV_IINF_PRESOLVE_ELI_NUM]));
  labelled(task, "Lin. dep.", "tries", Value::number(iinf[TRV_IINF_PRESOLVE_LINDEP_NUM_TRIES]), "time",
           Value::decimals(dinf[TRV_DINF_PRESOLVE_LINDEP_CPUTIME]));
  labelled(task, "Lin. dep.", "number", Value::number(iinf[TRV_IINF_PRESOLVE_LINDEP_NUM]));
  if (item(task, TRV_IINF_PRESOLVE_ELIMINATOR_SKIPPED_SPACE)) report<TRV_RES_WRN_ELIMINATOR_SPACE>(task);
  if (item(task, TRV_IINF_PRESOLVE_LINDEP_SKIPPED_WORK)) {
    report<TRV_RES_WRN_NONCOMPLETE_LINEAR_DEPENDENCY_CHECK>(task);
  }
  if (item(task, TRV_IINF_PRESOLVE_OUTOFSPACE)) report<TRV_RES_WRN_PRESOLVE_OUTOFSPACE>(task);
  if (item(task, TRV_IINF_PRESOLVE_BAD_PRECISION)) report<TRV_RES_WRN_PRESOLVE_BAD_PRECISION>(task);
  streams_flush(&task->streams, TRV_STREAM_MSG);
  streams_flush(&task->streams, TRV_STREAM_LOG);
  say(task, "Presolve terminated.\n");
}

// ---- Simplex

namespace {

struct SimplexSide {
  int32_t iter, deg_iter, hotstart, hotstart_lu, num_basics, rank;
};
constexpr SimplexSide primal_side{TRV_IINF_SIM_PRIMAL_ITER,
                                  TRV_IINF_SIM_PRIMAL_DEG_ITER,
                                  TRV_IINF_SIM_PRIMAL_HOTSTART,
                                  TRV_IINF_SIM_PRIMAL_HOTSTART_LU,
                                  TRV_IINF_SIM_PRIMAL_HOTSTART_NUM_BASICS,
                                  TRV_IINF_SIM_PRIMAL_HOTSTART_BASIS_RANK};
constexpr SimplexSide dual_side{TRV_IINF_SIM_DUAL_ITER,
                                TRV_IINF_SIM_DUAL_DEG_ITER,
                                TRV_IINF_SIM_DUAL_HOTSTART,
                                TRV_IINF_SIM_DUAL_HOTSTART_LU,
                                TRV_IINF_SIM_DUAL_HOTSTART_NUM_BASICS,
                                TRV_IINF_SIM_DUAL_HOTSTART_BASIS_RANK};

constexpr int32_t max_entry_blocks = 2;  // of an optimisation: the main run and one that cleans

// The entry block and the head of the row table.
void print_simplex_entry(Task* task, const SimplexSide& side) {
  if (log_enabled(task, level(task, TRV_IPAR_LOG_OPTIMIZER))) {
    const char* label = "Optimizer";
    const int32_t* iinf = task->iinf;
    if (task->sim_head_count < max_entry_blocks) {
      ++task->sim_head_count;
      labelled(task, label, "solved problem", Value(solved_problem(item(task, TRV_IINF_SIM_SOLVE_DUAL))));
      labelled(task, label, "constraints", Value::number(iinf[TRV_IINF_SIM_NUMCON]), "variables",
               Value::number(iinf[TRV_IINF_SIM_NUMVAR]));
    }
    labelled(task, label, "hotstart", Value::yesno(item(task, side.hotstart)));
    if (item(task, side.hotstart)) {
      labelled(task, label, "Num. basic", Value::number(iinf[side.num_basics]), "Basis rank",
               Value::number(iinf[side.rank]));
      labelled(task, label, "Valid bas. fac.", Value::yesno(item(task, side.hotstart_lu)));
    }
  }
  task_print(task, TRV_STREAM_MSG, "%-8s  %-10s  %-10s  %-10s  %-20s  %-20s  %-8s  %-8s\n", "ITER", "DEGITER(%)",
             "PFEAS", "DFEAS", "POBJ", "DOBJ", "TIME", "TOTTIME");
}

// The running optimiser's own infeasibility and objective stand in the columns of the problem that they belong to.
void print_simplex_row(Task* task, const SimplexSide& side, bool dual_columns) {
  const double* dinf = task->dinf;
  const int32_t iter = task->iinf[side.iter];
  const double degenerate = percent(task->iinf[side.deg_iter], iter);
  if (dual_columns) {
    task_print(task, TRV_STREAM_MSG, "%-8d  %-10.2f  %-10s  %-10.2e  %-20s  %-20.10e  %-8.2f  %-8.2f\n", iter,
               degenerate, "NA", dinf[TRV_DINF_SIM_FEAS], "NA", dinf[TRV_DINF_SIM_OBJ], dinf[TRV_DINF_SIM_CPUTIME],
               dinf[TRV_DINF_OPTIMIZER_CPUTIME]);
  } else {
    task_print(task, TRV_STREAM_MSG, "%-8d  %-10.2f  %-10.2e  %-10.2s  %-20.10e  %-20s  %-8.2f  %-8.2f\n", iter,
               degenerate, dinf[TRV_DINF_SIM_FEAS], "NA", dinf[TRV_DINF_SIM_OBJ], "NA", dinf[TRV_DINF_SIM_CPUTIME],
               dinf[TRV_DINF_OPTIMIZER_CPUTIME]);
  }
}

// Prints what stands at half the simplex level.
void say_half(Task* task, const char* text) {
  if (log_enabled(task, level(task, TRV_IPAR_LOG_SIM, 2))) say(task, text);
}

}  // namespace

void print_simplex_begin(Task* task) {
  say(task, "Simplex optimizer started.\n");
  print_problem_head(task);
}

void print_simplex_end(Task* task) {
  task_print(task, TRV_STREAM_MSG, "Simplex optimizer terminated. CPU time: %-.2f. %s\n",
             task->dinf[TRV_DINF_OPTIMIZER_CPUTIME], memory_text(task).text);
}

void print_network_detect_end(Task* task) {
  say(task, "Simplex network detection is terminated.\n");
  task_print(task, TRV_STREAM_MSG, "Number of network constraints: %d\n", task->iinf[TRV_IINF_SIM_NUM_NETWORK_CON]);
  task_print(task, TRV_STREAM_MSG, "Number of network variables  : %d\n", task->iinf[TRV_IINF_SIM_NUM_NETWORK_VAR]);
}

void print_network_begin(Task* task) {
  say(task, "Simplex network optimizer started.\n");
  print_problem_head(task);
}

void print_primal_setup_end(Task* task) {
  say_half(task, "Primal simplex optimizer setup terminated.\n");
  print_simplex_entry(task, primal_side);
}
void print_dual_setup_end(Task* task) {
  say_half(task, "Dual simplex optimizer setup terminated.\n");
  print_simplex_entry(task, dual_side);
}
void print_primal_network_setup_end(Task* task) {
  say(task, "Primal simplex network optimizer setup terminated.\n");
  print_simplex_entry(task, primal_side);
}
void print_dual_network_setup_end(Task* task) {
  say(task, "Dual simplex network optimizer setup terminated.\n");
  print_simplex_entry(task, dual_side);
}

void print_primal_row(Task* task) { print_simplex_row(task, primal_side, item(task, TRV_IINF_SIM_SOLVE_DUAL)); }
void print_dual_row(Task* task) { print_simplex_row(task, dual_side, !item(task, TRV_IINF_SIM_SOLVE_DUAL)); }

void print_primal_end(Task* task) {
  print_primal_row(task);
  say_half(task, "Primal simplex optimizer terminated.\n");
}
void print_dual_end(Task* task) {
  print_dual_row(task);
  say_half(task, "Dual simplex optimizer terminated.\n");
}
void print_primal_network_end(Task* task) {
  print_primal_row(task);
  say_half(task, "Primal simplex network optimizer terminated.\n");
}
void print_dual_network_end(Task* task) {
  print_dual_row(task);
  say_half(task, "Dual simplex network optimizer terminated.\n");
}

}  // namespace tarvo
