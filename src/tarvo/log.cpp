// Progress events: what is printed, who is called, what stops an optimiser.
#include "tarvo/log.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <string_view>

#include "cpub/sysenv.h"
#include "optimize/optslv.h"
#include "simplex/simplex.h"
#include "tarvo/frame.h"
#include "tarvo/log_internal.h"
#include "tarvo/streams.h"
#include "tarvo/tarvodat.h"

namespace tarvo {
namespace {

constexpr int32_t NO_CALLBACK = 83;  // one past the last call-back code

// Stop codes of an event; resp_codes below turns them into response codes.
enum StopCode : int32_t { go_on = 0, stop_time = 5, stop_ctrlc = 6, stop_callback = 7, stop_internal = 33 };

struct Event {
  int32_t number;
  int32_t parameter;  // -1: prints nothing
  int32_t divisor;
  int32_t callback;
  const char* line;
  void (*block)(Task*);
};

constexpr Event events[] = {
#define LINE(number, parameter, divisor, callback, text) \
  {number, TRV_IPAR_##parameter, divisor, callback, text, nullptr},
#define BLOCK(number, parameter, divisor, callback, routine) \
  {number, TRV_IPAR_##parameter, divisor, callback, nullptr, routine},
#define QUIET(number, callback) {number, -1, 1, callback, nullptr, nullptr},
#include "tarvo/tables/events.def"
#undef LINE
#undef BLOCK
#undef QUIET
};

consteval bool events_in_order() {
  for (int32_t k = 0; k < num_events; ++k) {
    if (events[k].number != k) return false;
  }
  return true;
}
static_assert(std::size(events) == num_events && events_in_order());

// A call-back code at the begin or the end of something: never held back by TRV_DPAR_CALLBACK_FREQ.
constexpr bool is_boundary(int32_t callback) {
  switch (callback) {
#define CALLBACK(number, name) \
  case number:                 \
    return std::string_view(#name).starts_with("BEGIN_") || std::string_view(#name).starts_with("END_");
#include "tarvo/tables/callbacks.def"
#undef CALLBACK
    default:
      return false;
  }
}

bool line_due(const Task* task, const Event& event) {
  return event.parameter >= 0 && log_enabled(task, task->ipar[event.parameter] / event.divisor);
}

// Whether the user's call-back is to be called now.
bool callback_due(const Task* task, int32_t callback) {
  if (task->callback_func == nullptr) return false;
  const double pause = task->dpar[TRV_DPAR_CALLBACK_FREQ];
  if (!(pause > 0) || is_boundary(callback)) return true;
  return sysenv_realtime() - task->callback_time >= pause;
}

// Returns whether the user wants to stop.
bool call_user(Task* task, int32_t callback) {
  if (!is_boundary(callback) && task->dpar[TRV_DPAR_CALLBACK_FREQ] > 0) task->callback_time = sysenv_realtime();
  return task->callback_func(task, task->callback_handle, callback) != 0;
}

bool call_internal(Task* task, int32_t callback) {
  if (task->stop_func == nullptr || task->stop_func(task, task->stop_handle, callback) == 0) return false;
  task->break_code = TRV_RES_TRM_INTERNAL;
  return true;
}

int32_t deliver(Task* task, const Event& event, bool print, bool call) {
  if (print && event.line != nullptr) task_print(task, TRV_STREAM_MSG, "%s", event.line);
  if (print && event.block != nullptr) event.block(task);
  // The frequent ones of the basis identification and the conic optimiser don't count for the flush.
  if (event.number != 6 && event.number != 11 && event.number != 15 && event.number != 19) {
    task->log_events = task->log_events == INT32_MAX ? 1 : task->log_events + 1;
    const int32_t every = task->ipar[TRV_IPAR_FLUSH_STREAM_FREQ];
    if (every > 0 && task->log_events % every == 0) {
      streams_flush(&task->streams, TRV_STREAM_MSG);
      streams_flush(&task->streams, TRV_STREAM_LOG);
    }
  }
  if (call_internal(task, event.callback)) return stop_internal;
  if (call && call_user(task, event.callback)) return stop_callback;
  const double limit = task->dpar[TRV_DPAR_OPTIMIZER_MAX_TIME];
  if (limit > 0 && task->dinf[TRV_DINF_OPTIMIZER_CPUTIME] > limit) return stop_time;
  return ctrlc_check(task) ? stop_ctrlc : go_on;
}

void read_clocks(Task* task, double cpu0, double real0) {
  task->clock_cpu = sysenv_cputime();
  task->clock_real = sysenv_realtime();
  task->dinf[TRV_DINF_OPTIMIZER_CPUTIME] = task->clock_cpu - cpu0;
  task->dinf[TRV_DINF_OPTIMIZER_REALTIME] = task->clock_real - real0;
}

// The CPU clock of a thread costs a system call and never runs ahead of the real clock: it is read only when the time
// limit can have been passed since the last reading.
void read_limit_clock(Task* task, double cpu0, double real0) {
  const double limit = task->dpar[TRV_DPAR_OPTIMIZER_MAX_TIME];
  if (!(limit > 0)) return;
  if (task->clock_cpu + (sysenv_realtime() - task->clock_real) - cpu0 > limit) read_clocks(task, cpu0, real0);
}

// Makes times and items current when somebody is going to look at them, and delivers the event.
template <class Fill>
int32_t wrap(Task* task, int32_t event, double cpu0, double real0, Fill&& fill) {
  sysenv_assert(task->sys, event >= 0 && event < num_events);
  const Event& row = events[event];
  const bool print = line_due(task, row);
  const bool call = callback_due(task, row.callback);
  if (print || call || is_boundary(row.callback)) {
    read_clocks(task, cpu0, real0);
    fill();
  } else {
    read_limit_clock(task, cpu0, real0);
  }
  return deliver(task, row, print, call);
}

int32_t saturate(int64_t count) { return static_cast<int32_t>(std::min<int64_t>(count, INT32_MAX)); }

// Events of the optimisers that solve by the dual simplex; their own objective is the dual one.
bool is_dual_event(int32_t event) { return (event >= 42 && event <= 47) || (event >= 98 && event <= 103); }

// Internal stop codes, by their number. -1: the task's break code; 0 elsewhere: not in use.
constexpr int32_t resp_codes[] = {
    TRV_RES_OK,                         // 0
    TRV_RES_ERR_SPACE,                  // 1
    0,                                  // 2
    0,                                  // 3
    TRV_RES_TRM_MAX_ITERATIONS,         // 4
    TRV_RES_TRM_MAX_TIME,               // 5
    -1,                                 // 6
    TRV_RES_TRM_USER_CALLBACK,          // 7
    TRV_RES_TRM_STALL,                  // 8
    TRV_RES_TRM_NUMERICAL_PROBLEM,      // 9
    TRV_RES_ERR_FACTOR,                 // 10
    TRV_RES_ERR_USER_NLO_FUNC,          // 11
    TRV_RES_ERR_INTERNAL,               // 12
    0,                                  // 13
    0,                                  // 14
    TRV_RES_TRM_OBJECTIVE_RANGE,        // 15
    TRV_RES_ERR_USER_NLO_EVAL_HESSUBI,  // 16
    TRV_RES_ERR_USER_NLO_EVAL_HESSUBJ,  // 17
    TRV_RES_ERR_INV_PROBLEM,            // 18
    0,                                  // 19
    TRV_RES_ERR_BASIS,                  // 20
    TRV_RES_ERR_BASIS,                  // 21
    TRV_RES_ERR_FACTOR,                 // 22
    TRV_RES_ERR_INTERNAL,               // 23
    TRV_RES_ERR_POSTSOLVE,              // 24
    TRV_RES_ERR_NONCONVEX,              // 25
    TRV_RES_ERR_BASIS_SINGULAR,         // 26
    TRV_RES_TRM_MAX_NUM_SETBACKS,       // 27
    0,                                  // 28
    TRV_RES_ERR_LU_MAX_NUM_TRIES,       // 29
    0,                                  // 30
    TRV_RES_ERR_UNB_STEP_SIZE,          // 31
    0,                                  // 32
    -1,                                 // 33
};

void phase_times(Task* task, int32_t cpu_item, int32_t real_item, double cpu0, double real0) {
  task->dinf[cpu_item] = sysenv_cputime() - cpu0;
  task->dinf[real_item] = sysenv_realtime() - real0;
}

void print_sensitivity(Task* task, const char* side, bool begins, int32_t cpu_item, int32_t real_item) {
  if (task->ipar[TRV_IPAR_LOG] == 0 || !log_enabled(task, task->ipar[TRV_IPAR_LOG_SENSITIVITY])) return;
  if (begins) {
    task_print(task, TRV_STREAM_MSG, "%s sensitivity analysis is started.\n", side);
    print_problem_head(task);
  } else {
    task_print(task, TRV_STREAM_MSG, "%s sensitivity analysis is terminated. CPU Time: %-.2f. Real Time: %-.2f. %s\n\n",
               side, task->dinf[cpu_item], task->dinf[real_item], memory_text(task).text);
  }
}

}  // namespace

void task_print(Task* task, int32_t whichstream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  streams_vprint(&task->streams, whichstream, format, args);
  va_end(args);
}

// The second and every later optimisation of a task logs less than the first.
bool log_enabled(const Task* task, int32_t level) {
  const int32_t cut = task->num_optimizations < 2 ? 0 : task->ipar[TRV_IPAR_LOG_CUT_SECOND_OPT];
  return std::min(task->ipar[TRV_IPAR_LOG], level) > cut;
}

void log_start(Task* task) {
  task->log_events = 0;
  task->head_printed = 0;
  task->sim_head_count = 0;
  task->iter_head_printed = 0;
  task->break_code = TRV_RES_OK;
  task->callback_time = -std::numeric_limits<double>::infinity();
  task->clock_cpu = sysenv_cputime();
  task->clock_real = sysenv_realtime();
  task->dinf[TRV_DINF_OPTIMIZER_CPUTIME] = 0;  // the time limit is tested against it
  task->dinf[TRV_DINF_OPTIMIZER_REALTIME] = 0;
}

bool events_wanted(const Task* task) {
  return task->callback_func != nullptr || task->stop_func != nullptr || task->dpar[TRV_DPAR_OPTIMIZER_MAX_TIME] > 0 ||
         task->ipar[TRV_IPAR_CHECK_CTRL_C] != TRV_OFF;
}

int32_t tarvolog(Task* task, int32_t event) {
  sysenv_assert(task->sys, event >= 0 && event < num_events);
  const Event& row = events[event];
  return deliver(task, row, line_due(task, row), callback_due(task, row.callback));
}

int32_t event_optimizer(Task* task, int32_t event, double cpu0, double real0) {
  return wrap(task, event, cpu0, real0, [] {});
}

int32_t event_simplex(Task* task, int32_t event, const simplexinfo* info, double cpu0, double real0) {
  return wrap(task, event, cpu0, real0, [task, event, info] {
    simplex_items(task, info);
    const bool dual = is_dual_event(event);
    task->dinf[TRV_DINF_SIM_OBJ] = task->dinf[dual ? TRV_DINF_SIM_DUAL_OBJ : TRV_DINF_SIM_PRIMAL_OBJ];
    task->dinf[TRV_DINF_SIM_FEAS] = task->dinf[dual ? TRV_DINF_SIM_DUAL_FEAS : TRV_DINF_SIM_PRIMAL_FEAS];
    task->dinf[TRV_DINF_SIM_CPUTIME] = task->clock_cpu - info->timestart;
  });
}

namespace {

void presolve_items(Task* task, const prslvstat& stat) {
  int32_t* iinf = task->iinf;
  const struct {
    const prslvcounts& from;
    int32_t con, var, nz;
    int32_t conof[5], varof[5];  // by bound key
  } sides[] = {{stat.before,
                TRV_IINF_PRESOLVE_NUMCON,
                TRV_IINF_PRESOLVE_NUMVAR,
                TRV_IINF_PRESOLVE_NUMNZA,
                {TRV_IINF_PRESOLVE_NUMCLO, TRV_IINF_PRESOLVE_NUMCUP, TRV_IINF_PRESOLVE_NUMCFX, TRV_IINF_PRESOLVE_NUMCFR,
                 TRV_IINF_PRESOLVE_NUMCRA},
                {TRV_IINF_PRESOLVE_NUMVLO, TRV_IINF_PRESOLVE_NUMVUP, TRV_IINF_PRESOLVE_NUMVFX, TRV_IINF_PRESOLVE_NUMVFR,
                 TRV_IINF_PRESOLVE_NUMVRA}},
               {stat.after,
                TRV_IINF_PRESOLVE_FNUMCON,
                TRV_IINF_PRESOLVE_FNUMVAR,
                TRV_IINF_PRESOLVE_FNUMNZA,
                {TRV_IINF_PRESOLVE_FNUMCLO, TRV_IINF_PRESOLVE_FNUMCUP, TRV_IINF_PRESOLVE_FNUMCFX,
                 TRV_IINF_PRESOLVE_FNUMCFR, TRV_IINF_PRESOLVE_FNUMCRA},
                {TRV_IINF_PRESOLVE_FNUMVLO, TRV_IINF_PRESOLVE_FNUMVUP, TRV_IINF_PRESOLVE_FNUMVFX,
                 TRV_IINF_PRESOLVE_FNUMVFR, TRV_IINF_PRESOLVE_FNUMVRA}}};
  for (const auto& side : sides) {
    iinf[side.con] = side.from.activecon;
    iinf[side.var] = side.from.activevar;
    iinf[side.nz] = saturate(side.from.nz);
    for (int32_t bk = 0; bk < 5; ++bk) {
      iinf[side.conof[bk]] = side.from.con[bk];
      iinf[side.varof[bk]] = side.from.var[bk];
    }
  }
  iinf[TRV_IINF_PRESOLVE_FORCE_CON_NUM] = stat.forcecon;
  iinf[TRV_IINF_PRESOLVE_FORCE_CON_NUM_VAR] = stat.forceconvar;
  iinf[TRV_IINF_PRESOLVE_FORCE_VAR_NUM] = stat.forcevar;
  iinf[TRV_IINF_PRESOLVE_FORCE_VAR_NUM_CON] = stat.forcevarcon;
  iinf[TRV_IINF_PRESOLVE_NUM_DOU_CHAINS] = stat.chains;
  iinf[TRV_IINF_PRESOLVE_NUM_CONS_IN_DOU_CHAINS] = stat.chaincons;
  iinf[TRV_IINF_PRESOLVE_PIV_ON_CON_NUM] = stat.pivcon;
  iinf[TRV_IINF_PRESOLVE_ELI_NUM] = stat.eliminations;
  iinf[TRV_IINF_PRESOLVE_ELI_NUM_TRIES] = stat.eliminatortries;
  iinf[TRV_IINF_PRESOLVE_LINDEP_NUM] = stat.lindep;
  iinf[TRV_IINF_PRESOLVE_LINDEP_NUM_TRIES] = stat.lindeptries;
  iinf[TRV_IINF_PRESOLVE_LINDEP_NUM_TRUNC_TRIES] = stat.lindeptrunc;
  iinf[TRV_IINF_PRESOLVE_LINDEP_SKIPPED_WORK] = stat.lindepskipped;
  iinf[TRV_IINF_PRESOLVE_LINDEP_WORK] = saturate(stat.lindepwork);
  iinf[TRV_IINF_PRESOLVE_LINDEP_PIVOTS] = saturate(stat.lindeppivots);
  iinf[TRV_IINF_PRESOLVE_STACK_SIZE] = saturate(stat.stacksize);
  iinf[TRV_IINF_PRESOLVE_COMPRESSED_STACK_SIZE] = saturate(stat.compressedstacksize);
  iinf[TRV_IINF_PRESOLVE_OUTOFSPACE] = stat.outofspace;
  iinf[TRV_IINF_PRESOLVE_ELIMINATOR_SKIPPED_SPACE] = stat.eliminatorskipped;
  task->dinf[TRV_DINF_PRESOLVE_CPUTIME] = stat.time[PRSLV_TIME_TOTAL];
  task->dinf[TRV_DINF_PRESOLVE_ELI_CPUTIME] = stat.time[PRSLV_TIME_ELIM];
  task->dinf[TRV_DINF_PRESOLVE_LINDEP_CPUTIME] = stat.time[PRSLV_TIME_LINDEP];
}

}  // namespace

void simplex_items(Task* task, const simplexinfo* info) {
  presolve_items(task, info->presolve);
  int32_t* iinf = task->iinf;
  double* dinf = task->dinf;
  iinf[TRV_IINF_SIM_SOLVE_DUAL] = info->solvedual;
  iinf[TRV_IINF_SIM_NUMCON] = info->numcon;
  iinf[TRV_IINF_SIM_NUMVAR] = info->numvar;
  iinf[TRV_IINF_NUM_LU_FACTORIZATIONS] = saturate(info->numfactor);
  iinf[TRV_IINF_SIM_PRIMAL_ITER] = saturate(info->iter[SIM_PRIMAL]);
  iinf[TRV_IINF_SIM_PRIMAL_INF_ITER] = saturate(info->infiter[SIM_PRIMAL]);
  iinf[TRV_IINF_SIM_PRIMAL_DEG_ITER] = saturate(info->degiter[SIM_PRIMAL]);
  iinf[TRV_IINF_SIM_PRIMAL_NUM_SETBACKS] = info->numbadevents[SIM_PRIMAL];
  iinf[TRV_IINF_SIM_DUAL_ITER] = saturate(info->iter[SIM_DUAL]);
  iinf[TRV_IINF_SIM_DUAL_INF_ITER] = saturate(info->infiter[SIM_DUAL]);
  iinf[TRV_IINF_SIM_DUAL_DEG_ITER] = saturate(info->degiter[SIM_DUAL]);
  iinf[TRV_IINF_SIM_DUAL_NUM_SETBACKS] = info->numbadevents[SIM_DUAL];
  for (const bool dual : {false, true}) {
    iinf[dual ? TRV_IINF_SIM_DUAL_HOTSTART : TRV_IINF_SIM_PRIMAL_HOTSTART] = info->hotstart;
    iinf[dual ? TRV_IINF_SIM_DUAL_HOTSTART_LU : TRV_IINF_SIM_PRIMAL_HOTSTART_LU] = info->hotstartlu;
    iinf[dual ? TRV_IINF_SIM_DUAL_HOTSTART_NUM_BASICS : TRV_IINF_SIM_PRIMAL_HOTSTART_NUM_BASICS] =
        info->hotstartnumbasics;
    iinf[dual ? TRV_IINF_SIM_DUAL_HOTSTART_BASIS_RANK : TRV_IINF_SIM_PRIMAL_HOTSTART_BASIS_RANK] = info->hotstartrank;
  }
  // The optimisers minimise: the objective of a maximisation comes negated. Adding 0 takes the sign off a zero.
  const double sign = resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  dinf[TRV_DINF_SIM_PRIMAL_OBJ] = sign * info->pobj + 0.0;
  dinf[TRV_DINF_SIM_DUAL_OBJ] = sign * info->dobj + 0.0;
  dinf[TRV_DINF_SIM_PRIMAL_FEAS] = info->sumpbi;
  dinf[TRV_DINF_SIM_DUAL_FEAS] = info->sumdbi;
  dinf[TRV_DINF_SIM_PRIMAL_CPUTIME] = info->cputime[SIM_PRIMAL];
  dinf[TRV_DINF_SIM_DUAL_CPUTIME] = info->cputime[SIM_DUAL];
}

void factor_items(Task* task, const KktStats& stats) {
  int32_t* iinf = task->iinf;
  double* dinf = task->dinf;
  const OrderCounts& order = stats.order;
  iinf[TRV_IINF_INTPNT_FACTOR_DIM] = stats.dim;
  iinf[TRV_IINF_INTPNT_FACTOR_DEN_DIM] = stats.densedim;
  iinf[TRV_IINF_INTPNT_FACTOR_NUM_OFFCOL] = stats.offcol;
  iinf[TRV_IINF_INTPNT_FACTOR_MAT_NUM_NZ] = saturate(stats.nnzm);
  iinf[TRV_IINF_INTPNT_FACTOR_NUM_NZ] = saturate(stats.nnzl);
  iinf[TRV_IINF_INTPNT_FACTOR_NUM] = stats.numfac;
  iinf[TRV_IINF_INTPNT_FACTOR_NUM_SOLVE] = saturate(stats.numsolve);
  iinf[TRV_IINF_INTPNT_FIR_REF_ITER] = saturate(stats.numrefine);
  iinf[TRV_IINF_INTPNT_GP_ORDER_USED] = order.usedgp;
  iinf[TRV_IINF_INTPNT_GP_ORDER_SAVED_NZS] = order.usedgp > 0 ? saturate(order.basennz - order.nnz) : 0;
  dinf[TRV_DINF_INTPNT_GP_ORDER_SAVED_FLOPS] = order.usedgp > 0 ? order.basework - order.work : 0.0;
  dinf[TRV_DINF_INTPNT_GP_ORDER_CPUTIME] = order.gptime;
  dinf[TRV_DINF_INTPNT_ORDER_CPUTIME] = stats.ordertime;
  dinf[TRV_DINF_INTPNT_FSETUP_CPUTIME] = stats.setuptime;
  dinf[TRV_DINF_INTPNT_FACTOR_NUM_FLOPS] = stats.flops;
  dinf[TRV_DINF_INTPNT_FACTOR_NUM_ADA_FLOPS] = stats.adaflops;
  dinf[TRV_DINF_INTPNT_FACTOR_NUM_DENSE_FLOPS] = stats.denseflops;
  dinf[TRV_DINF_INTPNT_FACTOR_CPUTIME] = stats.factortime;
  dinf[TRV_DINF_INTPNT_FACTOR_ADA_CPUTIME] = stats.adatime;
  dinf[TRV_DINF_INTPNT_FACTOR_DENSE_CPUTIME] = stats.densetime;
  dinf[TRV_DINF_INTPNT_FACTOR_SOLVE_CPUTIME] = stats.solvetime;
}

void intpnt_items(Task* task, const IpmInfo* info) {
  presolve_items(task, info->presolve);
  factor_items(task, info->kkt);
  int32_t* iinf = task->iinf;
  double* dinf = task->dinf;
  iinf[TRV_IINF_INTPNT_ITER] = info->iter;
  iinf[TRV_IINF_INTPNT_SOLVE_DUAL] = info->solvesdual ? 1 : 0;
  iinf[TRV_IINF_INTPNT_NUMCON] = info->numcon;
  iinf[TRV_IINF_INTPNT_NUMVAR] = info->numvar;
  iinf[TRV_IINF_INTPNT_NUM_REF_STEPS] = info->numrefine;
  const double sign = resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  dinf[TRV_DINF_INTPNT_PRIMAL_OBJ] = sign * info->pobj + 0.0;
  dinf[TRV_DINF_INTPNT_DUAL_OBJ] = sign * info->dobj + 0.0;
  dinf[TRV_DINF_INTPNT_PRIMAL_FEAS] = info->pfeas;
  dinf[TRV_DINF_INTPNT_DUAL_FEAS] = info->dfeas;
  dinf[TRV_DINF_INTPNT_KAP_DIV_TAU] = info->kappatau;
  dinf[TRV_DINF_INTPNT_COMP_GAP] = info->mu;
}

int32_t event_intpnt(Task* task, int32_t event, const IpmInfo* info, double cpu0, double real0) {
  return wrap(task, event, cpu0, real0, [task, info] { intpnt_items(task, info); });
}

int32_t event_phase(Task* task, int32_t callbackcode, double cpu0, double real0) {
  switch (callbackcode) {
    case TRV_CALLBACK_BEGIN_CONCURRENT:
    case TRV_CALLBACK_END_CONCURRENT:
      read_clocks(task, cpu0, real0);
      break;
    case TRV_CALLBACK_BEGIN_PRIMAL_SENSITIVITY:
    case TRV_CALLBACK_END_PRIMAL_SENSITIVITY:
    case TRV_CALLBACK_IM_PRIMAL_SENSIVITY: {
      constexpr int32_t cpu = TRV_DINF_SENSITIVITY_PRIMAL_CPUTIME;
      constexpr int32_t real = TRV_DINF_SENSITIVITY_PRIMAL_REALTIME;
      phase_times(task, cpu, real, cpu0, real0);
      if (is_boundary(callbackcode)) {
        print_sensitivity(task, "Primal", callbackcode == TRV_CALLBACK_BEGIN_PRIMAL_SENSITIVITY, cpu, real);
      }
      break;
    }
    case TRV_CALLBACK_BEGIN_DUAL_SENSITIVITY:
    case TRV_CALLBACK_END_DUAL_SENSITIVITY:
    case TRV_CALLBACK_IM_DUAL_SENSIVITY: {
      constexpr int32_t cpu = TRV_DINF_SENSITIVITY_DUAL_CPUTIME;
      constexpr int32_t real = TRV_DINF_SENSITIVITY_DUAL_REALTIME;
      phase_times(task, cpu, real, cpu0, real0);
      if (is_boundary(callbackcode)) {
        print_sensitivity(task, "Dual", callbackcode == TRV_CALLBACK_BEGIN_DUAL_SENSITIVITY, cpu, real);
      }
      break;
    }
    case TRV_CALLBACK_BEGIN_INFEAS_ANA:
    case TRV_CALLBACK_END_INFEAS_ANA:
      if (task->ipar[TRV_IPAR_LOG] != 0 && log_enabled(task, task->ipar[TRV_IPAR_LOG_INFEAS_ANA])) {
        task_print(task, TRV_STREAM_MSG, "%s",
                   callbackcode == TRV_CALLBACK_BEGIN_INFEAS_ANA ? "Infeasibility analyzer is started.\n"
                                                                 : "Infeasibility analyzer ended.\n");
      }
      break;
    default:
      break;
  }
  if (callback_due(task, callbackcode) && call_user(task, callbackcode)) return TRV_RES_TRM_USER_CALLBACK;
  if (call_internal(task, callbackcode)) return TRV_RES_TRM_INTERNAL;
  return ctrlc_check(task) ? TRV_RES_TRM_USER_BREAK : TRV_RES_OK;
}

int32_t resp_rescode(Task* task, int32_t resp, Location at) {
  if (resp == 0) return TRV_RES_OK;
  if (resp < 0 || resp >= static_cast<int32_t>(std::size(resp_codes)) || resp_codes[resp] == 0) {
    return TRV_RES_ERR_UNKNOWN;
  }
  if (resp_codes[resp] == TRV_RES_ERR_NONCONVEX) return report<TRV_RES_ERR_NONCONVEX>({task, at});
  return resp_codes[resp] < 0 ? task->break_code : resp_codes[resp];
}

}  // namespace tarvo

using namespace tarvo;

// Only the mixed-integer optimiser has a solution to show to its call-backs.
int32_t TRV_getsolutionincallback(TRVtask task, int32_t, int32_t, int32_t*, int32_t*, int32_t*, int32_t*, int32_t*,
                                  double*, double*, double*, double*, double*, double*, double*, double*) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  return report<TRV_RES_ERR_NO_SOLUTION_IN_CALLBACK>(task);
}
