// The canonical conic form of a (reduced) problem, and its solution.
#pragma once

#include "optimize/optconic.h"

namespace tarvo {

struct ConicForm {
  sysenv* env = nullptr;
  prslvinput p{};  // the problem this is the form of; dead elements are told by `reduced`
  bool reduced = false;
  Array<int32_t> cone;       // [numvar] the cone of a column or -1; a cone without rest counts as bounds
  Array<int8_t> conelower;   // [numvar] the lower bound 0 of a cone without rest is in force
  Array<int32_t> column;     // [numvar] canonical column or -1
  Array<int32_t> row;        // [numcon] canonical row or -1
  Array<int32_t> copyrow;    // [numvar] canonical row that bounds a member, or -1
  Array<int32_t> rowslack;   // [numcon] canonical column of the slack, or -1
  Array<int32_t> copyslack;  // [numvar] likewise of the copy row
  Array<double> costs;       // [numvar] c + A'cc
  // The canonical problem.
  IntpntProblem prob{};
  Array<double> c, b, u;
  Array<int32_t> cnebeg, conetype;
  spmat* a = nullptr;
  // Its solution.
  IntpntSolution sol{};
  Array<double> x, s, y, yup;
  Array<int32_t> keys, keysup;
};

// HOM_RESP_OK or HOM_RESP_SPACE.
int32_t conic_setup(sysenv* env, const ConicInput& input, bool reduced, ConicForm* form);
// The solution in the terms of the problem of the form. Fills every array.
void conic_setupsol(const ConicForm& form, ConicSolution* solution);
void conic_invsetup(ConicForm* form);

}  // namespace tarvo
