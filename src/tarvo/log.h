// Messages, progress events and stop codes of a task (see streams.h for the streams themselves).
#pragma once

#include "tarvo/task.h"

namespace tarvo {

struct simplexinfo;  // simplex/simplex.h
struct IpmInfo;      // optimize/optslv.h
struct KktStats;     // kfac/kktfac.h

// Writes a formatted text to a stream of the task, without a flush. At most 4,047 bytes.
[[gnu::format(printf, 3, 4)]] void task_print(Task* task, int32_t whichstream, const char* format, ...);

// True when a line of log level `level` is to be printed (TRV_IPAR_LOG and the cut of later optimisations).
bool log_enabled(const Task* task, int32_t level);

// Clears what the log and the call-backs remember of an optimisation: called at its start, before the control-C
// snapshot is taken.
void log_start(Task* task);

// Reports progress event 0..103: log line, flush, call-backs, time limit, control-C. 0 or the stop code.
int32_t tarvolog(Task* task, int32_t event);

// True when somebody needs events of every iteration at all: a call-back, a time limit or control-C checking.
bool events_wanted(const Task* task);

// The wrapper of the simplex optimisers: writes the times since cpu0 and real0 (readings of sysenv_cputime and
// sysenv_realtime) and the counters into the items, then reports the event. An event that nobody listens to costs
// nothing: no clock is read and no item written; at begin and end events the items are always made current.
// 0 or the stop code.
int32_t event_simplex(Task* task, int32_t event, const simplexinfo* info, double cpu0, double real0);
// Writes the counters into the TRV_IINF_SIM_ and TRV_DINF_SIM_ items.
void simplex_items(Task* task, const simplexinfo* info);
// The same for the interior-point optimiser and its TRV_IINF_INTPNT_ and TRV_DINF_INTPNT_ items.
int32_t event_intpnt(Task* task, int32_t event, const IpmInfo* info, double cpu0, double real0);
void intpnt_items(Task* task, const IpmInfo* info);
// The items of the factorisation alone.
void factor_items(Task* task, const KktStats& stats);
// The same for optimisers that keep their items themselves.
int32_t event_optimizer(Task* task, int32_t event, double cpu0, double real0);

// Reports that a phase outside the optimisers begins or ends: a TRV_CALLBACK_ code. A response code.
int32_t event_phase(Task* task, int32_t callbackcode, double cpu0, double real0);

// The response code of an optimiser's internal stop code; TRV_RES_ERR_UNKNOWN for an unknown one. Reports
// nothing but TRV_RES_ERR_NONCONVEX.
int32_t resp_rescode(Task* task, int32_t resp, Location at = Location::current());

// Takes the control-C snapshot of a task anew; the check itself.
void ctrlc_snapshot(Task* task);
bool ctrlc_check(Task* task);

}  // namespace tarvo
