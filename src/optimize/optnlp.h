// The nonlinear content of a canonical problem: what kind it is, and its values and derivatives in canonical terms.
//
// With xx = shift + sign * varscale * x the nonlinear parts of the canonical problem are
//   objective  q (f0(xx) + 0.5 xx'Q0 xx + sum over free rows of cc_i (f_i(xx) + 0.5 xx'Q_i xx)),   q = objscale
//   row r      (f_i(xx) + 0.5 xx'Q_i xx) / varscale,  i = iinv[r]
// and come on top of c'x and A x. Form 2 is different: its quadratic terms are record->q, and nothing is left here.
#pragma once

#include <cstdint>

#include "optimize/optdat.h"

namespace tarvo {

// What a function of the user depends on. One call asks for a gradient, another for the Hessian; what isn't asked for
// is NULL.
struct OptNlStructure {
  int32_t row;       // -1: the objective
  int32_t* numgrad;  // variables that the nonlinear part depends on; 0 for none
  int32_t* gradsub;  // [numvar] which, or NULL
  bool objective;    // the Hessian of the objective and of the functions of rows[numrows], as a lower triangle in any
  int32_t numrows;   // order, positions twice or not
  const int32_t* rows;
  int32_t maxhess;  // room in hessubi, hessubj; with 0 only the number is asked for
  int32_t* numhess;
  int32_t* hessubi;
  int32_t* hessubj;
};

// Values at xx. What isn't asked for is NULL.
struct OptNlValues {
  const double* xx;  // [numvar]
  int32_t numrows;
  const int32_t* rows;
  double* objective;      // f0
  double* objgrad;        // [numvar], zero on entry
  double* rowval;         // [numrows]
  const int32_t* rowptr;  // [numrows + 1]; gradients of the rows at these places,
  const int32_t* rowsub;  // in these variables
  double* rowgrad;
  double objfactor;  // the Hessian of objfactor f0 - sum y_k f_rows[k]
  const double* y;   // [numrows]
  int32_t maxhess;
  int32_t* numhess;
  int32_t* hessubi;
  int32_t* hessubj;
  double* hessval;
};

// The functions of the user, wrapped: minimised, and 0 or an internal code (OPT_RESP_USERFUNC, _HESSUBI, _HESSUBJ).
struct OptNonlinear {
  void* handle;
  int32_t (*structure)(void* handle, const OptNlStructure& ask);
  int32_t (*values)(void* handle, const OptNlValues& ask);
};

// What the preparation knows of the nonlinear content (forms above 2).
struct OptNlp {
  bool objective = false;  // f0 is nonlinear
  int32_t numrows = 0;     // rows with nonlinear content that counts: those that stay and free rows with a cost,
  Array<int32_t> rows;     // in canonical order, as indices of the given problem
  int32_t numuser = 0;     // of these the ones with a function of the user
  Array<int32_t> user;
  Array<int32_t> userptr, usersub;  // variables of their gradients
  Array<int32_t> objsub;
  int32_t numobj = 0;
  int32_t maxhess = 0;        // elements of the Hessian of the user
  spmat* jacobian = nullptr;  // pattern: vector k has the columns of row rows[k], ascending
  spmat* hessian = nullptr;   // pattern: lower triangle by columns with the whole diagonal, rows ascending
  Array<double> xx, dense, useryval, usergrad, hessval, rowval;
  Array<int32_t> hessubi, hessubj;
};

// Works out record->form and checks the quadratic terms; form 2 gets them in canonical terms (record->q, and their part
// of c and cfix), forms above 2 the record's nlp. OPT_RESP_OK, OPT_RESP_NOTCONVEX, OPT_RESP_SPACE, or what the user's
// functions gave.
int32_t opt_nlpsetup(const OptProblem& problem, odat* record);
void opt_deletenlp(odat* record);

// Values of the nonlinear parts at x[rnumvar]: the objective, and added to row[rnumcon] those of the rows.
// gradient[rnumvar], or NULL, is that of the objective less y[rnumcon] times the rows.
int32_t opt_eval(const OptProblem& problem, odat* record, const double* x, const double* y, double* objective,
                 double* row, double* gradient);
// Derivatives: the gradients of the rows on the pattern of nlp->jacobian, and the Hessian of the objective less y times
// the rows on that of nlp->hessian; both are stored as the values of these matrices.
int32_t opt_evala(const OptProblem& problem, odat* record, const double* x, const double* y);

// In terms of the given problem: adds the nonlinear parts to the activities, and the gradient of the nonlinear parts of
// the objective less y times the rows to gradient[numvar]. record may be one without nonlinear content.
int32_t opt_nlpactivities(const OptProblem& problem, odat* record, const double* xx, double* xc);
int32_t opt_nlpgradient(const OptProblem& problem, odat* record, const double* xx, const double* y, double* gradient);

}  // namespace tarvo
