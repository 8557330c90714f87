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

// The arrays of a solution, which must exist; valid until a capacity changes or the solution is deleted.
SolutionView sol_view(Task* task, int32_t whichsol);
// A solution exists when its arrays do, or when the capacities of the task are 0.
bool sol_exists(const Task* task, int32_t whichsol);
// Defined: it exists and holds something. Only then do queries answer and status rules apply.
bool sol_defined(const Task* task, int32_t whichsol);

// Makes the arrays exist (zeroed). TRV_RES_OK or TRV_RES_ERR_SPACE, unreported.
int32_t sol_make(Task* task, int32_t whichsol);
// As TRV_makesolutionstatusunknown: exists, is defined and holds zeros.
int32_t sol_makezero(Task* task, int32_t whichsol);
// New arrays for new capacities, with the values kept: call it while the task still holds the old capacities (they
// give the layout), and store the new ones right after it. TRV_RES_OK or TRV_RES_ERR_SPACE (nothing changed).
int32_t sol_recapacity(Task* task, int32_t maxnumcon, int32_t maxnumvar, int32_t maxnumcone);
void sol_delete(Task* task, int32_t whichsol);
void sol_deleteall(Task* task);

// Status rules: each lowers the status of every defined solution as far as one edit asks for, and drops the factor of
// the basis solves.
void sol_newcon(Task* task, int32_t i);  // after constraint i was appended
void sol_newvar(Task* task, int32_t j);  // after variable j was appended
void sol_changec(Task* task);            // an element of c takes another value
// Before the bound of a constraint (TRV_ACC_CON) or variable (TRV_ACC_VAR) i becomes (bk, bl, bu), a normalised key.
void sol_changebound(Task* task, int32_t accmode, int32_t i, int32_t bk, double bl, double bu);
void sol_changeaij(Task* task, int32_t j);  // an element of column j of A changes
// Compacts the entries of all solutions: keep[k] is the new index (at most k, ascending) of old item k, or -1.
void sol_compact(Task* task, int32_t accmode, int32_t oldcount, const int32_t* keep);

}  // namespace tarvo
