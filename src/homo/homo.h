// The homogeneous interior-point optimisers for linear (homlp*.cpp) and convex quadratic problems (homqo*.cpp).
//
//   minimise c'x + 0.5 x'Q x + cfix   subject to  A x = b,  x >= 0 on L,  x_U <= u,  x_F free
//
// embedded in the homogeneous and self-dual model (Xu, Hung and Ye 1996; Andersen and Ye 1999):
//
//   A x = b tau,  x_U + xup = u tau,  A'y + s + E yup = c tau (+ Q x),  sup + yup = 0,  b'y + u'yup - c'x = kappa
//
// with x, s, xup, sup, tau, kappa >= 0. The columns stand in the order lower-bounded, upper-bounded, free. The free
// columns are in one second-order cone with a head xf >= |x_F|, their dual slacks with sf >= |s_F|; sf tends to 0.
#pragma once

#include <cstdint>

#include "cpub/array.h"
#include "cpub/spmat.h"
#include "kfac/kktfac.h"

namespace tarvo {

// Stop codes.
enum HomResp : int32_t {
  HOM_RESP_OK = 0,
  HOM_RESP_SPACE = 1,
  HOM_RESP_MAXITER = 4,
  HOM_RESP_CANCELLED = 6,  // without a code of the caller's
  HOM_RESP_STALL = 8,
  HOM_RESP_FACTOR = 10,
  HOM_RESP_NOTCONVEX = 25,  // a pivot of the Hessian block has the wrong sign
};

// Settings, see the parameters of the same meaning.
struct HomParams {
  int32_t maxiter = 400;
  int32_t loglevel = 0;
  int32_t scaling = 1;  // 0 none
  double tolpfeas = 1e-8, toldfeas = 1e-8, tolgap = 1e-8, tolinfeas = 1e-8;
  double tolnearrel = 1000.0;
  double tolpath = 1e-8, tolstep = 1e-10;
  double psafe = 1.0, dsafe = 1.0;
  double relstep = 0.9999;
  double growth = 100.0, spgam = 2.0, gammafac = 0.1, fasttol = 0.1, gapfactor = 100.0;
  int32_t sptype = 0;  // 0 heuristic, 1 constant, 2 primal heavy, 3 dual heavy, 4 both
  bool usereg = true;
  int32_t maxcor = -1;  // correctors; negative: by the work ratio
  bool wantbasis = false;
  bool solvesdual = false;  // the canonical problem is the dual of the given one
  double objscale = 1.0;    // from here to the given objective; negative when the dual is solved
  int32_t numthreads = 1;
  bool timing = false;  // print the table of times
  KktOptions kkt;
};

// The canonical problem, borrowed and unchanged. varlist[n] are the columns in class order: nb - nu with a lower bound
// only, nu with an upper bound too (u[i] belongs to varlist[nb - nu + i]), the rest free.
struct HomProblem {
  int32_t m, n, nb, nu;
  const double *c, *b, *u;
  double cfix;
  const spmat *a, *at;  // by columns and by rows; at may be NULL
  const int32_t* varlist;
  const spmat* q;  // lower triangle (i >= j) by columns, or NULL
};

// What one iteration reports; the objectives are those of the given problem.
struct HomReport {
  int32_t iter;
  double pobj, dobj, kappatau, pfeas, dfeas, mu;
  const KktStats* kkt;
};
struct HomEvents {
  void* handle = nullptr;
  int32_t (*status)(void* handle, const HomReport& report) = nullptr;  // 0 or a stop code
  int32_t (*progress)(void* handle, int32_t code) = nullptr;           // of the factorisation, see KktOptions
  void (*print)(void* handle, const char* text) = nullptr;             // log text, NULL for none
};

// The result in the problem's own terms (unscaled, divided by tau, or a certificate); arrays by the problem's columns,
// upper bounds in the order of u. The caller's arrays.
struct HomSolution {
  int32_t resp, prosta, solsta;
  bool reached;  // a point was reached; else everything is zero
  int32_t iter;
  double *x, *s;           // [n]
  double* y;               // [m]
  double *yup, *xup;       // [nu]: yup <= 0 is the multiplier of x <= u (dual row A'y + s + E yup = c), xup = u - x
  int32_t *keys, *keysup;  // [n], [nu]: 2 the primal variable stays positive, 3 its dual slack does
  double pfeas, dfeas, pobj, dobj, relgap, kappatau;
  int32_t numrefine;
};

// Runs the optimiser that fits. The statuses have the values of TRV_PRO_STA_ and TRV_SOL_STA_.
void hs_optimize(sysenv* env, const HomParams& params, const HomProblem& problem, const HomEvents& events,
                 HomSolution* solution, KktStats* stats);

}  // namespace tarvo
