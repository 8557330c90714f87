// The record of a homogeneous run and its steps. One allocation at the start (hs_setup); none in the iteration.
#pragma once

#include "homo/homo.h"

namespace tarvo {

// A point or a direction. yup, sup, xup belong to the upper bounds: entry i to column nb - nu + i. xf, sf are the heads
// of the cone of the free columns.
struct HomVec {
  double *x, *s;            // [n]
  double *xup, *yup, *sup;  // [nu]
  double* y;                // [m]
  double xf, sf, tau, kappa;
};

// Corrector terms of the complementarity equations. free[0] is the head's, free[1 + k] that of the k-th free column.
struct HomCor {
  double* pair;  // [nb]
  double* up;    // [nu]
  double* cone;  // [nf + 1]
  double tk;
  double gap;  // the curvature of the gap row, quadratic problems only
};

// What a direction aims at: residuals shrink by eta, products go to mut. Without `products` the terms x s, xup sup and
// tau kappa stay out of the right-hand sides (corrections on top of a direction). cor may be NULL.
struct HomTarget {
  double eta, mut;
  bool products = true;
  const HomCor* cor = nullptr;
};

// Statuses of a result, with the values of TRV_PRO_STA_ and TRV_SOL_STA_.
enum HomProSta : int32_t { HOM_PRO_UNKNOWN = 0, HOM_PRO_FEASIBLE = 1, HOM_PRO_PRIMINFEAS = 4, HOM_PRO_DUALINFEAS = 5 };
enum HomSolSta : int32_t {
  HOM_SOL_UNKNOWN = 0,
  HOM_SOL_OPTIMAL = 1,
  HOM_SOL_PRIMCER = 5,
  HOM_SOL_DUALCER = 6,
  HOM_SOL_NEAROPTIMAL = 8
};
// Status keys: which of the pair stays positive.
enum HomKey : int32_t { HOM_KEY_PRIMAL = 2, HOM_KEY_DUAL = 3 };

struct HomTimes {
  double inititer, initcomp, factor, initsd, computesd, linesearch, update, total, mulcor, mulcorsd, ax, aty;
};

// The Nesterov-Todd scaling of the cone of the free columns, W^-2 = 2 q q' - J with q'J q = 1, J = diag(1, -I), and
// what stands in place of the free columns' part of D: with the regularisation reg
//   D = ((W^-2 / theta)_F^-1 + reg I)^-1 = I / diag + rank1 q_F q_F'.
struct HomCone {
  double theta;      // sqrt(sqsf / xqxf)
  double invnorm;    // q_F = invnorm * vf
  double q0, qq;     // head of q, |q_F|^2 = q0^2 - 1
  double diag, reg;  // diag = theta + reg
  double rank1;
};

struct HomState {
  sysenv* env;
  HomParams par;  // sptype and objscale as the scaling left them
  HomEvents events;

  // The problem, scaled, columns in class order.
  int32_t m, n, nb, nu, nf;
  double *c, *b, *u;
  double cfix;
  spmat *a, *at;
  double* rowscale;  // [m] r
  double* colscale;  // [n] g
  double scale;      // of the objective, positive: objscale = given sign and scale times this
  // The quadratic term: triplets qi >= qj, each once, or with useh its diagonal alone in qdiag[n].
  int32_t nq;
  const int32_t *qi, *qj;
  double* q;
  bool useh;
  double* qdiag;
  double* qx;  // [n] Q x of the point, quadratic problems only
  KktFac* kkt;

  // The iterate, the saved point, directions.
  HomVec point, saved, dir, affine, cordir;
  int32_t *keys, *keysup, *savedkeys, *savedkeysup;
  int32_t iter;

  // Measures of the point, see hom_inititer.
  double xqxf, sqsf;  // xf^2 - |x_F|^2, sf^2 - |s_F|^2, carried along
  double cx, by, bypart, xqx;
  double n_c, cgapf, mu, lpval;
  double pfeasf, dfeasf, gfeasf, pfeasinff, dfeasinff, meritfeas2f, meritfeasif;
  double qfeasinff;  // |Q x|
  double relgap, pobj, dobj;
  double nrmc, nrmb, nrma, bscale, cscale, amax;
  double rg;
  double *rp, *rpu, *rd, *rdu;  // residuals [m], [nu], [n], [nu]: A x - b tau, x_U + xup - u tau,
                                // A'y + s + E yup - c tau, sup + yup

  // Per factorisation.
  double *d, *dinv;  // [n]; the free columns have one value
  double *rx, *ru;   // [n], [nu] what the regularisation added
  double regutrh, reguomega, reguada;
  double* vf;       // [nf + 1] scaled point of the cone: v_0 = sf / w + w xf, v_j = w x_j - s_j / w
  double *tf, *pf;  // [m] vector of the cone's rank-one term and M^-1 of it
  double cf;        // 1 + max(0, tf'pf)
  HomCone cone;
  // The fixed parts of the elimination of tau, see hom_initcomputations.
  double *cbar, *chat, *dc;  // [n]
  double *g, *g2, *h;        // [m]
  double gap, beta, dot0, pi;

  HomCor cor;       // of the step
  HomCor extracor;  // of hom_mulcor2
  int32_t maxncor;  // correctors at most
  // Scratch of single routines.
  double *wn1, *wn2, *wn3;  // [n]
  double *wm1, *wm2;        // [m]
  double* wu1;              // [nu]
  HomVec rhs, res;          // right-hand sides and residuals of hom_computesearchr: rows stand where their variable
                            // does (primal y, upper xup, dual x, upper dual sup, gap tau; pairs s, yup (upper), kappa)

  // Counters and results.
  HomTimes time;
  int32_t numdroppedcor, numcor, numrefine;
  int32_t resp, prosta, solsta;
};

// Adds the CPU time of its life to one of the times.
struct HomTimer {
  double *sum, start;
  explicit HomTimer(double* time) : sum(time), start(sysenv_cputime()) {}
  HomTimer(const HomTimer&) = delete;
  HomTimer& operator=(const HomTimer&) = delete;
  ~HomTimer() { *sum += sysenv_cputime() - start; }
};

// Debug text, printed at log levels above 4. homiter.cpp
[[gnu::format(printf, 2, 3)]] void hom_print(const HomState* h, const char* format, ...);
// Copies a point or direction into the arrays of another.
void hom_copyvec(const HomState* h, const HomVec& from, HomVec* to);
// One status call with the measures of the point; its answer, which is kept as the stop code.
int32_t hom_report(HomState* h);

// homlp.cpp: the linear optimiser; writes the iterate, prosta, solsta, resp.
void hom_optlp(HomState* h);
// homqo.cpp: the quadratic optimiser. Its free columns are in no cone: nf is 0 while it runs, s is 0 on them.
void hom_optqo(HomState* h);

// homqodir.cpp: factorisation and directions of a quadratic problem, regularised by h->rx and h->reguada.
constexpr int32_t hom_qolevels = 5;
int32_t hom_qofactor(HomState* h, int32_t regulevel);  // KKT_ code
// Solves the Newton system with refinement. The result is its error over what the iteration can bear: below 1 is good.
double hom_qosearch(HomState* h, const HomTarget& target, HomVec* dir);
// The eight residuals of a direction; rhs and res in the layout of HomState::res.
void hom_qorhs(const HomState* h, const HomTarget& target, HomVec* rhs);
void hom_qoresiduals(HomState* h, const HomVec& rhs, const HomVec& dir, HomVec* res);
void hom_qocorterms(HomState* h, const HomVec& dir, HomCor* cor);
// Q v into qv, v'Q v.
double hom_qotimes(const HomState* h, const double* v, double* qv);

// homiter.cpp: all measures, residuals and diagonals from the point. `shared` by both optimisers: with a quadratic term
// the dual residual and the gap contain it.
void hom_inititer(HomState* h);
// The termination test: level -1, 0, 1 scales the tolerances by 0.01, 1, 100; `strict` asks for a gap gapfactor times
// smaller; setstatus writes prosta, solsta.
bool hom_checkterm(HomState* h, bool setstatus, int32_t level, bool strict);
// homstart.cpp: the first point, its measures as the reference of later ones; a stop shows in resp.
void hom_start(HomState* h);
double hom_affinestep(HomState* h);                      // the common step to the boundary along h->affine, at most 1
int32_t hom_updatekeys(HomState* h, const HomVec& dir);  // the number of changes
void hom_finalkeys(HomState* h);

// homdir.cpp: the diagonals with regularisation, the factorisation, directions.
void hom_regularize(HomState* h, int32_t regulevel);
int32_t hom_factor(HomState* h);  // KKT_ code; uses h->d and h->reguada
void hom_initfree(HomState* h, int32_t regulevel);
void hom_initcomputations(HomState* h);
void hom_computesearch(HomState* h, const HomTarget& target, HomVec* dir);
// With refinement; false when no direction of sufficient accuracy came out.
bool hom_computesearchr(HomState* h, const HomTarget& target, HomVec* dir);
// The eight residuals of a direction for a target, in the layout of HomState::res; the 2-norm of rows 1 to 5.
double hom_computeresiduals(HomState* h, const HomTarget& target, const HomVec& dir, HomVec* res, double* infnorm);
// dx'ds over all pairs, tau kappa and the cone included, and the same with the point: x'ds + s'dx.
double hom_dxds(const HomState* h, const HomVec& dir);
double hom_xds(const HomState* h, const HomVec& dir);
// Corrector terms of a direction: products of pairs, and the cone's second-order terms.
void hom_addvec(const HomState* h, double t, const HomVec& c, HomVec* a);  // a += t c
void hom_corterms(HomState* h, const HomVec& dir, HomCor* cor);
void hom_mulcor2(HomState* h, double gamma, double beta, HomVec* dir);  // hommulcor.cpp

// homstep.cpp
struct HomSteps {
  double primal, dual;
  double xqdxf, dxqdxf, sqdsf, dsqdsf;  // coefficients of xqx(a), sqs(a)
};
// The largest steps to the boundary, at most `cap`.
HomSteps hom_steplimits(const HomState* h, double cap, const HomVec& dir);
// The common step inside the neighbourhood, or 0.
double hom_neighbourstep(HomState* h, const HomSteps& limits, double gamma, double frac, double beta, bool gapcheck,
                         const HomVec& dir);
void hom_takestep(HomState* h, double step, const HomVec& dir);

// The steps' fractions that are tried one after the other.
constexpr int32_t hom_numsteps = 12;
constexpr double hom_steptable[hom_numsteps] = {1.0, 0.9999, 0.999, 0.99, 0.9, 0.8, 0.7, 0.5, 0.4, 0.3, 0.2, 0.1};

}  // namespace tarvo
