// Messages, progress events and stop codes of a task (see streams.h for the streams themselves).
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// Writes a formatted text to a stream of the task, without a flush. At most 4,047 bytes.
[[gnu::format(printf, 3, 4)]] void task_print(Task* task, int32_t whichstream, const char* format, ...);

// True when a line of log level `level` is to be printed (TRV_IPAR_LOG and the cut of later optimisations).
bool log_enabled(const Task* task, int32_t level);

// Reports progress event 0..103: log line, flush, call-backs, time limit, control-C. 0 or the stop code.
int32_t tarvolog(Task* task, int32_t event);

// True when somebody needs events of every iteration at all: a call-back, a time limit or control-C checking.
bool events_wanted(const Task* task);

// The response code of an optimiser's internal stop code; TRV_RES_ERR_UNKNOWN for an unknown one. Reports
// nothing but TRV_RES_ERR_NONCONVEX.
int32_t resp_rescode(Task* task, int32_t resp, Location at = Location::current());

// Takes the control-C snapshot of a task anew; the check itself.
void ctrlc_snapshot(Task* task);
bool ctrlc_check(Task* task);

}  // namespace tarvo
