// The solution store: the arrays that optimisers write into, and how edits of the problem lower a status.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// The parts of a solution; a part that it lacks is NULL (TRV_SOL_ITG has no duals, only TRV_SOL_ITR has skn, snx).
struct SolutionView {
  int32_t* skc;
  int32_t* skx;
  int32_t* skn;
  double* xc;
  double* xx;
  double* y;
  double* slc;
  double* suc;
  double* slx;
  double* sux;
  double* snx;
};
SolutionView sol_view(Task* task, int32_t whichsol);
bool sol_exists(const Task* task, int32_t whichsol);
bool sol_defined(const Task* task, int32_t whichsol);

// Makes the arrays exist (zeroed). TRV_RES_OK or TRV_RES_ERR_SPACE.
int32_t sol_make(Task* task, int32_t whichsol);
// New arrays for new capacities, with the values kept. TRV_RES_OK or TRV_RES_ERR_SPACE (nothing changed).
int32_t sol_recapacity(Task* task, int32_t maxnumcon, int32_t maxnumvar, int32_t maxnumcone);
void sol_deleteall(Task* task);

// Status rules, called after (bounds: before the new values are stored, see tarvosol.cpp) an edit.
void sol_newcon(Task* task, int32_t i);
void sol_newvar(Task* task, int32_t j);
void sol_changec(Task* task, int32_t j);
void sol_changebound(Task* task, int32_t accmode, int32_t i, int32_t bk, double bl, double bu);
void sol_changeaij(Task* task, int32_t i, int32_t j);
// Compacts the entries of all defined solutions: keep[k] is the new index of old item k, or -1.
void sol_compact(Task* task, int32_t accmode, int32_t oldcount, const int32_t* keep);

}  // namespace tarvo
