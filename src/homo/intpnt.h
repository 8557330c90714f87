// The conic interior-point optimiser: a linear objective over linear rows and second-order cones.
//
//   minimise c'x + cfix   subject to  A x = b,  x >= 0 on L,  x_U <= u,  x_F free,  x_k in a cone
//
// quadratic cone x_0 >= |x_r|; rotated cone 2 x_0 x_1 >= |x_r|^2, x_0, x_1 >= 0. Homogeneous and self-dual model with
// Nesterov-Todd scaling and a second-order corrector (Andersen, Roos and Terlaky 2003):
//
//   A x = b tau,  x_U + xup = u tau,  A'y + s + E yup = c tau,  sup + yup = 0,  b'y + u'yup - c'x = kappa
//
// Door: intpnt_optcone.
#pragma once

#include <cstdint>

#include "cpub/spmat.h"
#include "homo/homo.h"

namespace tarvo {

// Statuses of a result, with the values of TRV_PRO_STA_ and TRV_SOL_STA_.
enum IntpntProSta : int32_t {
  INTPNT_PRO_UNKNOWN = 0,
  INTPNT_PRO_FEASIBLE = 1,
  INTPNT_PRO_PRIMINFEAS = 4,
  INTPNT_PRO_DUALINFEAS = 5
};
enum IntpntSolSta : int32_t {
  INTPNT_SOL_UNKNOWN = 0,
  INTPNT_SOL_OPTIMAL = 1,
  INTPNT_SOL_PRIMCER = 5,
  INTPNT_SOL_DUALCER = 6,
  INTPNT_SOL_NEAROPTIMAL = 8,
  INTPNT_SOL_NEARPRIMCER = 12,
  INTPNT_SOL_NEARDUALCER = 13
};

// Status keys: the primal variable stays positive, or its dual slack does.
enum IntpntKey : int32_t { INTPNT_KEY_PRIMAL = 2, INTPNT_KEY_DUAL = 3 };

enum IntpntCone : int32_t { INTPNT_QUAD = 1, INTPNT_RQUAD = 2 };

struct IntpntParams {
  int32_t maxiter = 200;
  int32_t loglevel = 0;
  double tolp = 1e-8, told = 1e-8, tolgap = 1e-8, tolinf = 1e-8;
  double tolnear = 100.0;  // factor on the tolerances of a near optimal solution or certificate
  double psafe = 1.0;
  double minstep = 1e-10;
  double stallfactor = 10.0;
  bool scaling = true;
  int32_t maxrefine = -1;  // steps of refinement of a solve; negative: where the residual asks for it
  int32_t numthreads = 1;
  KktOptions kkt;
};

// The canonical problem, borrowed and unchanged. Columns in class order: nb with a lower bound of 0, of which the last
// nu have an upper bound u[i] too (column nb - nu + i); nf free ones; the members of the cones, cone k in the columns
// cnebeg[k]..cnebeg[k + 1]), the first at nb + nf, the last ending at n; its head, or both heads of a rotated cone,
// first.
struct IntpntProblem {
  int32_t m, n, nb, nu, nf, numcone;
  const double *c, *b, *u;
  double cfix;
  const spmat* a;           // by columns
  const int32_t* cnebeg;    // [numcone + 1]
  const int32_t* conetype;  // [numcone] INTPNT_; a quadratic cone has two members at least, a rotated one three
};

// The result in the problem's own terms (divided by tau, or a certificate scaled to an objective of one); the caller's
// arrays.
struct IntpntSolution {
  int32_t resp, prosta, solsta;
  int32_t iter;
  double *x, *s;  // [n]
  double* y;      // [m]
  double* yup;    // [nu]: yup <= 0 is the multiplier of x <= u (dual row A'y + s + E yup = c)
  double pfeas, dfeas, pobj, dobj, relgap, kappatau;
  int64_t numrefine;
  int32_t firstrefine;  // the first iteration that refined a solve, or -1
  // Which of a pair stays positive, INTPNT_KEY_; [n] of the linear columns only, [nu].
  int32_t *keys, *keysup;
};

// Runs the optimiser. resp is a HOM_RESP_ code or what an event answered; the statuses have the values of TRV_PRO_STA_
// and TRV_SOL_STA_. After a stall resp is HOM_RESP_STALL also when the statuses are near ones. `stats` may be NULL.
void intpnt_optcone(sysenv* env, const IntpntParams& params, const IntpntProblem& problem, const HomEvents& events,
                    IntpntSolution* solution, KktStats* stats);

}  // namespace tarvo
