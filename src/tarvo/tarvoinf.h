// Infeasibility reports.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// Prints the certificate of a defined solution on a stream of the task; nothing for a solution that is none.
// A response code.
int32_t infeas_report(Task* task, int32_t whichstream, int32_t whichsol);
// The report of TRV_IPAR_INFEAS_REPORT_AUTO behind an optimisation.
int32_t infeas_autoreport(Task* task);

}  // namespace tarvo
