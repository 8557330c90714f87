// Linear systems with the basis matrix of the basic solution.
#pragma once

#include "simplex/simplex.h"
#include "tarvo/task.h"

namespace tarvo {

// The factor of TRV_initbasissolve with the scratch of a sparse solve. Column k of B belongs to index
// basis.basis[k]: below numcon that constraint's logical with the column -e_i, else numcon + variable.
struct BasisSolve {
  int32_t numcon = 0;
  simplexbasis basis;
  Array<double> in, out;      // [numcon], zero between solves
  Array<int32_t> sub, marks;  // [numcon], the marks zero between solves
};

// Factorises the basis of the basic solution into task->basis_solve. TRV_RES_ERR_NO_BASIS_SOL, _BASIS_SINGULAR or
// _SPACE, reported; the task then has no factor.
int32_t basissolve_init(Task* task);
// Solves B x = b, or B'x = b when transp, in place: *num entries sub, val on entry (repeated ones are added, indices
// are valid) and on exit, with room for numcon.
void basissolve_solve(BasisSolve* solve, bool transp, int32_t* num, int32_t* sub, double* val);
// Frees the factor of TRV_initbasissolve; a task without one is left as it is. Never allocates.
void basissolve_delete(Task* task);

}  // namespace tarvo
