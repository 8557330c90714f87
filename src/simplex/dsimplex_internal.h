// The state of one run of the dual simplex. It stands on the record of the primal simplex (bounds, values, reduced
// costs, row-wise copy, factor, sparse vectors), so that the primal can finish from where the dual ends without a copy.
//
//   phase 0   every variable has the box of its kind: lower only [0, 1], upper only [-1, 0], free [-1, 1], ranged and
//             fixed [0, 0]. Any basis is dual feasible there; optimal at objective 0, it is so for the true bounds.
//   phase 3   the true bounds from a dual feasible basis
//
// With r the leaving position, rho = B^-T e_r, alpha_r = N'rho, tau = B^-1 rho:
//   step      theta = d_q / alpha_rq,  d := d - theta alpha_r
//   weights   w_i = ||B^-T e_i||^2;  w_i := w_i - 2 (alpha_iq / alpha_rq) tau_i + (alpha_iq / alpha_rq)^2 w_r
// (Forrest and Goldfarb, Mathematical Programming 57, 1992.)
#pragma once

#include "simplex/psimplex_internal.h"

namespace tarvo {

// A nonbasic variable that the step would make dual infeasible.
struct DsBreak {
  double ratio;  // d / alpha, at least 0
  double size;   // |alpha|
  int32_t var;
};

struct DualSimplex {
  explicit DualSimplex(sysenv* e) : s(e), block(e) {}

  PrimalSimplex s;
  Workspace block;
  double* w = nullptr;      // [m] by position: steepest edge weights
  double* inf = nullptr;    // [m] squared primal infeasibility, 0 within the tolerance
  int32_t* list = nullptr;  // positions with inf > 0, others among them
  uint8_t* on = nullptr;    // [m] on the list
  int32_t numlist = 0;
  double* cost0 = nullptr;    // [nn] the true costs
  PsVector tau{};             // by position
  DsBreak* breaks = nullptr;  // [nn]
  int32_t* flips = nullptr;   // [nn] variables that change side in this iteration
  int32_t numflips = 0;
  int32_t firstchosen = 0, endchosen = 0;  // the breaks around the chosen one that the step leaves behind or meets
  int32_t phase = 3;
  int32_t method = 4;     // 2 largest infeasibility, 3 and 4 with weights
  bool shifted = false;   // some cost is not the true one
  bool newbounds = true;  // the phase begins
  double leaving = 0.0;   // +1 above its bound, -1 below
  double theta = 0.0;     // dual step
  int64_t iter = 0, infiter = 0, degiter = 0, startiter = 0, logiter = 0;
  int32_t rejected = 0;  // pivots refused in a row
};

enum class DsNext {
  iterate,
  finished,  // a final status or a stop code stands
  primal,    // the primal simplex goes on from here
};

// dsimplex.cpp
// The record for a run; all arguments live as long as it. SIM_RESP_OK or SIM_RESP_SPACE.
int32_t dsimplex_begin(DualSimplex* d, const simplexpar& par, simplexinfo* info, SimplexProblem* problem,
                       simplexbasis* basis, const SimplexEvents& events);
void dsimplex_setup(DualSimplex* d);       // start: keys, values, factor, perturbed costs
DsNext dsimplex_optimize(DualSimplex* d);  // the main loop

// dsimplex_step.cpp
void dsimplex_measure(DualSimplex* d, int32_t pos);  // inf of one position after its value changed
void dsimplex_measureall(DualSimplex* d);
int32_t dsimplex_select(DualSimplex* d);          // leaving position or -1
bool dsimplex_ratio(DualSimplex* d);              // entering variable into s.enter; false: none, a dual ray
void dsimplex_executeboundswaps(DualSimplex* d);  // moves the flipped variables with one FTRAN
void dsimplex_updatecosts(DualSimplex* d);        // reduced costs; costs of those that the step overshot
void dsimplex_updateweights(DualSimplex* d);

// dsimplex_start.cpp
[[nodiscard]] bool dsimplex_make(DualSimplex* d);
void dsimplex_perturbinit(DualSimplex* d);
void dsimplex_putbounds(DualSimplex* d);  // bounds, sides and values of the phase
void dsimplex_truecosts(DualSimplex* d);
// Reduced costs of the wrong sign: boxed variables change side, others get a cost that makes them 0 when `shift` is
// set. Gives the number of variables left with a wrong sign, and their sum.
int32_t dsimplex_mend(DualSimplex* d, bool shift, double* sum);

}  // namespace tarvo
