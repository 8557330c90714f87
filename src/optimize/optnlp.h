// The nonlinear content of a canonical problem: what kind it is, and its values and derivatives.
#pragma once

#include <cstdint>

#include "optimize/optdat.h"

namespace tarvo {

// Works out record->form and checks the quadratic terms; form 2 gets them in canonical terms (record->q, and their part
// of c and cfix). OPT_RESP_OK, OPT_RESP_NOTCONVEX, OPT_RESP_SPACE.
int32_t opt_nlpsetup(const OptProblem& problem, odat* record);
void opt_deletenlp(odat* record);

// In terms of the given problem: adds the nonlinear parts to the activities, and the gradient of the nonlinear parts of
// the Lagrangian, Q0 x - sum y_i Q_i x, to gradient[numvar].
void opt_nlpactivities(const OptProblem& problem, const double* xx, double* xc);
int32_t opt_nlpgradient(const OptProblem& problem, const double* xx, const double* y, double* gradient);

}  // namespace tarvo
