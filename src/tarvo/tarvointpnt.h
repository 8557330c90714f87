// The interior-point optimisers' door to a task, and what optimisers share of the way to it.
#pragma once

#include "kfac/kktfac.h"
#include "prslv/prslv.h"
#include "tarvo/task.h"

namespace tarvo {

struct SolutionView;

// Settings of the presolve (TRV_IPAR_PRESOLVE_, TRV_DPAR_PRESOLVE_) and of the factorisation.
prslvpar presolve_parameters(const Task* task);
KktOptions kkt_parameters(const Task* task);

// Turns the multipliers of a minimisation into those of a maximisation, and back.
void negate_duals(const Task* task, const SolutionView& view);
// The statuses of an optimiser as the task stores them.
int32_t mapped_prosta(int32_t prosta);
int32_t mapped_solsta(int32_t solsta);

// Solves a linear or quadratic problem; the interior solution exists. cpu0, real0 as in event_simplex. A response code.
int32_t intpntoptimizer(Task* task, bool want_basis, double cpu0, double real0);

}  // namespace tarvo
