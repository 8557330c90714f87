// The canonical problem of the interior-point optimisers, and the way there and back:
//
//   minimise c'x + 0.5 x'Q x + cfix   subject to  A x = b,  x >= 0 but free columns,  x <= u on some columns
//
// Empty free rows and fixed columns are gone, bounds are shifted to 0, columns with an upper bound only are turned
// round, and every row that is no equation has a slack column. A linear problem may be replaced by its dual, in the
// same form (opt_preparedual). The given problem is copied, never changed.
//
// Multipliers of the canonical problem: z = c + Q x - A'y - w, w <= 0 on the columns with an upper bound, zup = -w.
// Keys and statuses have the values of TRV_BK_, TRV_SK_, TRV_PRO_STA_, TRV_SOL_STA_.
//
// Doors: opt_prepare, opt_reverse, opt_deleteodat; opt_nlpsetup, opt_eval and opt_evala in optnlp.h.
#pragma once

#include <cstdint>

#include "cpub/array.h"
#include "cpub/spmat.h"
#include "prslv/prslv.h"

namespace tarvo {

// Internal codes.
enum OptResp : int32_t {
  OPT_RESP_OK = 0,
  OPT_RESP_SPACE = 1,
  OPT_RESP_USERFUNC = 11,   // a nonlinear function of the user failed
  OPT_RESP_HESSUBI = 16,    // a function of the user gave a bad row of its Hessian,
  OPT_RESP_HESSUBJ = 17,    // or a bad column
  OPT_RESP_NOTCONVEX = 18,  // a block of quadratic terms has the wrong sign
  OPT_RESP_SINGULAR = 23,   // the keys of a dual basis describe no basis of the given problem
};

enum OptSolveForm : int32_t { OPT_SOLVE_FREE = 0, OPT_SOLVE_PRIMAL = 1, OPT_SOLVE_DUAL = 2 };

// The nonlinear functions of the user, see optnlp.h.
struct OptNonlinear;
struct OptNlp;

// The problem record: borrowed arrays, nothing is changed. cc may be NULL (zeros).
//   minimise cc'xc + c'xx + 0.5 xx'Q0 xx + cfix + f0(xx)   subject to  xc[i] = (A xx)[i] + 0.5 xx'Qi xx + fi(xx)
struct OptProblem {
  sysenv* env;
  int32_t numcon, numvar;
  double cfix;
  const double* c;
  const double* cc;
  const spmat* acol;
  const int32_t* bkc;
  const double* blc;
  const double* buc;
  const int32_t* bkx;
  const double* blx;
  const double* bux;
  prslvquad quad;                 // lower triangles that stand for symmetric matrices
  const OptNonlinear* nonlinear;  // or NULL
  // The elements in free rows and in fixed columns are dead, as in a problem that the presolve has reduced.
  bool reduced;
};
// The record of a (reduced) problem of the presolve.
OptProblem opt_problem(const prslvprob& problem);

struct OptOptions {
  int32_t solveform = OPT_SOLVE_FREE;
  int32_t densecoltrh = 40;    // TRV_IPAR_INTPNT_OFF_COL_TRH
  bool regularization = true;  // TRV_IPAR_INTPNT_REGULARIZATION_USE
  int32_t scaling = 0;         // TRV_SCALING_, for forms above 2
};

// A solution of the canonical problem, filled by an optimiser.
struct OptSolution {
  bool defined = false;
  int32_t prosta = 0, solsta = 0;
  Array<int32_t> skx;    // [rnumvar] BAS or SUPBAS, LOW; in a basic solution also UPR
  Array<int32_t> skup;   // [nbup] keys of the slacks of the upper bounds; not used in a basic solution
  Array<double> x, z;    // [rnumvar]
  Array<double> y;       // [rnumcon]
  Array<double> w, zup;  // [nbup]
};

struct odat {
  sysenv* env = nullptr;
  spmat* live = nullptr;  // the columns without dead elements, of a reduced problem
  bool isdual = false;    // the canonical problem is the dual of the given one
  bool settled = false;   // the preparation found the answer: there is nothing to optimise, opt_reverse gives it
  bool scaled = false;
  int32_t form =
      1;  // 1 linear, 2 quadratic objective, 3 several quadratic terms, 4 nonlinear objective, 5 nonlinear rows
  int32_t rnumcon = 0, rnumvar = 0;
  int32_t nvarstr = 0;                    // columns of the given problem; slacks follow
  int32_t nblo = 0, nbup = 0, nfree = 0;  // at least 0 (with those below); at least 0 and at most u; free
  int32_t nfreecost = 0;                  // free rows with a cost
  double cfix = 0.0;
  Array<double> c, b, u;              // [rnumvar], [rnumcon], [nbup]
  spmat *a = nullptr, *at = nullptr;  // by columns and by rows
  OptNlp* nlp = nullptr;              // forms above 2: the nonlinear content
  spmat* q = nullptr;                 // form 2: the lower triangle (i >= j) by columns, else NULL
  Array<int32_t> varlist;             // [rnumvar] columns by class: with lower bound only, with both, free
  Array<int32_t> upos;                // [rnumvar] position among the columns with an upper bound, or -1
  Array<int32_t> slackof;             // [rnumcon] slack column or -1
  // Orders of rows and columns: new index of the given one, and the given one of the new index. Rows and columns that
  // left have the last places.
  Array<int32_t> inew, iinv, jnew, jinv;
  // The dual form. keptcon rows and keptvar columns of the given problem stay, as columns and rows.
  int32_t keptcon = 0, keptvar = 0;
  Array<int32_t> gly, guy;        // [numcon] source of the bound of y: row below numcon, numcon + column, or nil
  Array<double> ylo, yup;         // [numcon] bounds of y
  Array<int32_t> rowkey, colkey;  // keys that the reduction has settled, TRV_SK_UNK where it has not
  Array<int32_t> second;          // [numcon] second column of a ranged row
  Array<int32_t> boundcol;        // [numvar] first column of the bounds of a kept column
  Array<int32_t> fixorder;        // rows whose y a free column has fixed, in the order of fixing
  int32_t numfixorder = 0;
  int32_t raycol = -1;  // settled: the column that moves without end, and its direction
  double raydir = 0.0;
  // Scaling, of forms above 2: columns, b and u are divided by varscale, the objective is multiplied by objscale.
  double objscale = 1.0, varscale = 1.0;
  OptSolution itr, bas;
};

// Forms the canonical problem of `problem` and the room for its solutions. OPT_RESP_OK, or a code with *out NULL.
// With (*out)->settled there is nothing to solve: opt_reverse gives the answer.
int32_t opt_prepare(const OptOptions& options, const OptProblem& problem, odat** out);
void opt_deleteodat(odat** record);

// Takes the solutions of the canonical problem (record->itr, and record->bas when it is defined and `bas` is not NULL)
// back to the given problem. artlist[nart] are canonical rows whose artificial is in the basis. Fills every array.
// OPT_RESP_OK, or OPT_RESP_SINGULAR with *bas filled but no basis.
int32_t opt_reverse(const OptProblem& problem, odat* record, prslvsol* itr, prslvsol* bas, int32_t nart,
                    const int32_t* artlist);

}  // namespace tarvo
