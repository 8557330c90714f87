// Scaling of a linear problem by powers of two, so that it can be undone without rounding.
//
//   a_ij r_i c_j,  cx_j c_j,  cc_i / r_i,  rows' bounds and activities times r_i,  columns' bounds and values / c_j,
//   rows' multipliers / r_i,  columns' multipliers times c_j
#pragma once

#include <cstdint>

#include "simplex/simplex.h"

namespace tarvo {

// Computes the factors r[numcon] and c[numvar] (1.0 when not used). `hot` says that a solution is offered: fewer
// passes are made then, so that an unchanged problem keeps its basis' sense. rowmax[numcon], rowmin[numcon] are
// scratch. True when the factors are to be used.
bool simplex_scale(const SimplexInput& input, bool hot, double* r, double* c, double* rowmax, double* rowmin);

// Scales the problem: the costs, bounds, values and multipliers of `problem` in place, and the elements of its matrix
// into `val`, which has the layout of problem->a.val and becomes it.
void simplex_applyscale(const double* r, const double* c, SimplexProblem* problem, double* val);

// Brings the solution back: xc, xx, y, sc and sx.
void simplex_unscale(const double* r, const double* c, SimplexProblem* problem);

}  // namespace tarvo
