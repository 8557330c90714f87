// The record of a conic run and its steps. One allocation at the start; none in the iteration.
//
// Inside, a rotated cone is a quadratic one: its heads are replaced by ((x_0 + x_1) h, (x_0 - x_1) h), h = 1 / sqrt(2),
// an orthogonal change T that is its own inverse. All vectors are in these coordinates; only the products with A and
// the linear solver, which keep the given columns, apply T.
//
// The scaling of a cone (Nesterov and Todd; the formulas are those of Andersen, Roos and Terlaky 2003): with
// J = diag(1, -I), th = sqrt(s'Js / x'Jx) and f with f'Jf = 1
//
//   W = ( f_0   -f_r'                   )      W^-1 = J W J,    H = th W^2,    H x = s,
//       ( -f_r  I + f_r f_r'/(1 + f_0)  )      v = sqrt(th) W x = W^-1 s / sqrt(th)
//
// W is made anew from x and s after every step; x'Jx and s'Jx are also carried from step to step.
#pragma once

#include "homo/intpnt.h"

namespace tarvo {

struct IntpntVec {
  double *x, *s;            // [n]
  double *xup, *yup, *sup;  // [nu]
  double* y;                // [m]
  double tau, kappa;
};

// The scaling of one cone and the way of the scaled point v + a d along both scaled directions: v'Jv = vv^2, and
// the square of the scaled x at a is (vv + a xlo)(vv + a xhi).
struct IntpntScale {
  double th, vv;
  double xlo, xhi, slo, shi;
};

struct IntpntMeasures {
  double cx, by;  // by with u'yup
  double cgapf, mu;
  double pfeasf, dfeasf, rpfeasf, rdfeasf;  // the first two in the terms of the given problem
  double pfeasinf, dfeasinf;                // of certificates: without the terms of tau
  double pobj, dobj, relgap, comprelgap, nearrelgap;
};

struct IntpntKkt;

struct IntpntState {
  sysenv* env;
  IntpntParams par;
  HomEvents events;
  const IntpntProblem* prob;

  // The scaled problem: a with rows times rowscale and columns times colscale, and c, b, u likewise; x = colscale x~,
  // y = rowscale y~, s = s~ / colscale. A cone has one column scale.
  int32_t m, n, nb, nu, nf, numcone, l0;  // l0 = nb + nf: the first member of a cone
  const int32_t *cnebeg, *conetype;
  double *c, *b, *u;
  double *rowscale, *colscale;
  double nrmc, nrmb, fp, fd;  // of the given problem
  IntpntKkt* kkt;

  IntpntVec point, best, dir;
  IntpntMeasures mea;
  double rg;
  double *rp, *ru, *rd, *rs;  // b tau - A x, u tau - x_U - xup, c tau - A'y - s - E yup, -(yup + sup)
  double n_c;

  // The scaling; f, v, dxt = sqrt(th) W dx, dst = W^-1 ds / sqrt(th) belong to the members of cones only.
  double *h, *hup;            // [nb], [nu] s / x, sup / xup
  double *f, *v, *dxt, *dst;  // [n]
  IntpntScale* cone;          // [numcone]

  // Corrector terms e: products of pairs, of the members of a cone dxt o dst.
  double *e, *eup, etk;

  // The homogeneous column of the elimination of tau, shifted by the iterate: X1 = x + px, Y1 = y + py, hX1 = H X1.
  double *x1, *y1, *hx1, *xup1;
  double den;

  double *wn1, *wn2, *wn3, *wu1, *wu2, *wm1, *rotated;
  int32_t* keys;    // [n] status keys
  int32_t* keysup;  // [nu]

  int32_t iter, resp, prosta, solsta;
  double stepsize;  // of the last step taken
};

struct IntpntTarget {
  double eta, mut;
  bool corrector;
};

// ---- intpntcne.cpp: the algebra of one cone with k members in given arrays -----------------------------------------

// w = W y and w = W^-1 y for f; w may be y.
void intpnt_timesw(int32_t k, const double* f, const double* y, double* w);
void intpnt_timeswinv(int32_t k, const double* f, const double* y, double* w);
// Solves v o z = r: z = v^-1 o r; vv^2 = v'Jv. z may be r.
void intpnt_arrowsolve(int32_t k, const double* v, double vv, const double* r, double* z);
// e = a o b = (a'b, a_0 b_r + b_0 a_r).
void intpnt_arrowprod(int32_t k, const double* a, const double* b, double* e);
// v'Jv of v + a d is (vv + a lo)(vv + a hi).
void intpnt_coneway(int32_t k, const double* v, double vv, const double* d, double* lo, double* hi);
// The scaling of x and s with x'Jx = xqx, s'Js = sqs; false when one of them is not in the interior.
bool intpnt_conescale(int32_t k, const double* x, const double* s, double xqx, double sqs, double* f, double* v,
                      IntpntScale* scale);

// H y and the vector of the whole problem; out may not be y. The upper bounds' part E Hup E' is not in it.
void intpnt_bardtimesh(const IntpntState* h, const double* y, double* out);
bool intpnt_initscaling(IntpntState* h);
// Carries the scaling over to the point after a step; false when the point has left a cone.
bool intpnt_updatescaling(IntpntState* h, double step);
// dxt and dst of the direction.
void intpnt_scaledir(IntpntState* h);

// ---- intpntkkt.cpp: symles, the linear solver
// ------------------------------------------------------------------------

IntpntKkt* symles_make(IntpntState* h, int32_t* resp);
void symles_delete(sysenv* env, IntpntKkt** kkt);
int32_t symles_numericalfactor(IntpntState* h);
// Solves [-(H + E Hup E')  A'; A  0] (x; y) = (r1; r2) for nrhs right-hand sides, with refinement.
void symles_solve(IntpntState* h, int32_t nrhs, const double* r1, const double* r2, double* x, double* y);
const KktStats& symles_stats(const IntpntState* h);
int64_t symles_numrefine(const IntpntState* h, int32_t* first);
// out = A x and out = A'y of the scaled problem.
void intpnt_timesa(IntpntState* h, const double* x, double* out);
void intpnt_timesat(IntpntState* h, const double* y, double* out);

// ---- intpntdir.cpp: directions and steps
// -----------------------------------------------------------------------------

// The affine direction into h->dir, and the kept column of the homogeneous part.
void intpnt_initsearch(IntpntState* h);
void intpnt_formsearch(IntpntState* h, const IntpntTarget& target);
// Residuals of the Newton equations for the direction: primal, dual, gap, complementarity; infinity norms.
struct IntpntResiduals {
  double primal, dual, gap, comp;
};
IntpntResiduals intpnt_improvesearch(IntpntState* h, const IntpntTarget& target);
double intpnt_stepsize(IntpntState* h, bool setkeys, double eta, double frac, double beta);
void intpnt_secondorder(IntpntState* h);

// ---- intpntco.cpp
// ----------------------------------------------------------------------------------------------------
void intpnt_start(IntpntState* h);
void intpnt_inititer(IntpntState* h);
void intpnt_coneopt(IntpntState* h);

// ---- intpnt.cpp
// ------------------------------------------------------------------------------------------------------ The record
// with its arrays and the scaled problem; NULL when out of memory.
IntpntState* intpnt_make(sysenv* env, const IntpntParams& params, const IntpntProblem& problem,
                         const HomEvents& events);
void intpnt_delete(IntpntState** h);
[[gnu::format(printf, 3, 4)]] void intpnt_print(const IntpntState* h, int32_t level, const char* format, ...);

}  // namespace tarvo
