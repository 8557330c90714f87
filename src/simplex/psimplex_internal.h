// The state of one run of the primal simplex and its steps.
//
// Variables are numbered 0..numcon+numvar-1 as in simplex.h; a position is an index of the basis. Columns of the whole
// matrix are those of [-I A]; y, d belong to the cost of the phase:
//
//   phase 1   cost -1 of a basic variable below its lower bound, +1 above its upper bound, 0 of all others
//   phase 2   the true cost
//   d = cost - [-I A]'y,  B'y = cost of the basis
#pragma once

#include "simplex/simplex_internal.h"

namespace tarvo {

enum PsStat : int8_t {
  PS_BASIC,
  PS_LOWER,
  PS_UPPER,
  PS_SUPER,   // free, or away from its bounds: may move both ways
  PS_FIXED,   // equal bounds: never a candidate
  PS_BARRED,  // taken out of pricing for now, see fixlist
};

enum PsMethod : int32_t { PS_PARTIAL = 1, PS_FULL = 2, PS_ASE = 3, PS_SE = 4, PS_DEVEX = 5 };

// A position of the basis: what the ratio test reads, together.
struct PsBasic {
  double x, lo, up;
  double c;  // cost in this phase
};

// A sparse vector: val is zero outside the n entries listed in sub.
struct PsVector {
  double* val;
  int32_t* sub;
  int32_t n;
};

// A blocking point of the phase 1 ratio test.
struct PsBreak {
  double relaxed, exact;  // step with the bound relaxed by the tolerance, and without
  double size;            // |alpha|
  int32_t pos;
  bool upper;  // at the upper bound
};

struct PsChange {
  int32_t pos;
  double delta;  // change of the phase 1 cost
};

// Variable taken out of pricing after trouble, with the status to give back.
struct PsFix {
  int32_t var;
  PsStat stat;
};

struct PrimalSimplex {
  explicit PrimalSimplex(sysenv* e) : env(e), block(e) {}

  sysenv* env;
  const simplexpar* par = nullptr;
  simplexinfo* info = nullptr;
  SimplexProblem* prob = nullptr;
  simplexbasis* basis = nullptr;
  const SimplexEvents* events = nullptr;
  Workspace block;  // owns all arrays below
  SimplexFactorWork factorwork;

  int32_t m = 0, n = 0, nn = 0;

  // By variable. lo, up are the working bounds, perhaps perturbed; lo0, up0 the true ones.
  double *lo = nullptr, *up = nullptr, *lo0 = nullptr, *up0 = nullptr;
  double* cost = nullptr;
  double* x = nullptr;  // of nonbasic variables
  double* d = nullptr;  // reduced costs of the phase; of nonbasic, not fixed variables
  double* w = nullptr;  // weights
  PsStat* stat = nullptr;
  int8_t* refset = nullptr;  // in the devex reference framework

  // By position.
  PsBasic* bas = nullptr;
  int32_t* head = nullptr;  // = basis->basis

  double* y = nullptr;  // by row; up to date after a recomputation, and always with partial pricing

  // A by rows. Row i: rbeg[i]..rend[i]-1 its nonbasic, not fixed columns, up to rbeg[i+1] the others. rlink of a
  // row slot is the slot of the same element in A, clink the way back.
  int32_t *rbeg = nullptr, *rend = nullptr, *rsub = nullptr, *rlink = nullptr, *clink = nullptr;
  double* rval = nullptr;

  // Sparse vectors of an iteration.
  PsVector alpha{};   // by position: B^-1 a_q
  PsVector rho{};     // by row: B^-T e_r
  PsVector row{};     // by variable: pivot row alpha_r
  PsVector aux{};     // by row: B^-T of a second right-hand side
  PsVector auxrow{};  // by variable: row of the cost changes of phase 1
  PsVector spike{};   // by row: the entering column after L
  PsVector rhs{};     // by row or position: right-hand side of a solve
  int32_t* marks = nullptr;
  double *dense1 = nullptr, *dense2 = nullptr;  // [numcon]

  // Pricing. `cand` holds the best candidates; no variable outside has a merit above `cutoff`.
  PsMethod method = PS_DEVEX;
  int32_t *cand = nullptr, numcand = 0;
  double* candmerit = nullptr;  // the merits of the list, kept by psimplex_offer
  int32_t* candpos = nullptr;   // by variable: its position in the list plus 1, or 0
  double cutoff = 0.0;
  int32_t listsize = 64;  // wanted length of the list
  int64_t passiter = 0;   // iteration of the last full pass
  bool candvalid = false;
  double* merit = nullptr;    // scratch of a full pass
  int32_t cursor = 0;         // partial pricing: where the circular scan goes on
  bool exactweights = false;  // the framework is all variables, weights start exact
  int32_t badweights = 0;     // devex: times that a weight was far off since the reset
  PsFix* fixlist = nullptr;
  int32_t numfix = 0;

  // The step.
  int32_t enter = -1, leave = -1;  // variable, position
  double dir = 0.0;                // +1.0 or -1.0: how the entering variable moves
  double step = 0.0;
  double alphaq = 0.0;   // pivot
  bool toupper = false;  // where the leaving variable goes
  bool flip = false;
  PsBreak* breaks = nullptr;  // phase 1: up to two for each position
  PsChange* changes = nullptr;
  int32_t numchanges = 0;

  // Where the run stands.
  int32_t phase = 1;
  int32_t numinf = 0;  // infeasible positions
  double suminf = 0.0, pobj = 0.0;
  double tolx = 0.0, tols = 0.0, tolpiv = 0.0, delta = 0.0;
  double noise = 0.0;        // reduced costs up to it proved to be rounding errors
  bool refactor = true;      // asked for
  bool recompute = true;     // xb and duals asked for
  bool boundsmoved = false;  // since the last recomputation: feasibility may be lost without blame
  bool fresh = false;        // the factor has no updates
  bool exact = false;        // no step since the values were computed with a fresh factor
  bool perturbed = false, allowperturb = false;
  int32_t perturbrounds = 0;
  int32_t retries = 0;
  int32_t badevents = 0;
  int64_t iter = 0, infiter = 0, degiter = 0;
  int64_t startiter = 0;
  int64_t windowiter = 0, windowdeg = 0;  // start of the stretch that is looked back over, its degenerate steps,
  int32_t windowphase = 0;                // and its phase and objective
  double windowobj = 0.0;
  int64_t logiter = 0;
  int32_t resp = 0;
};

// psimplex.cpp
void psimplex_optimize(PrimalSimplex* s);  // the main loop: from any start to a final status or a stop

void psimplex_conclude(PrimalSimplex* s);  // after it: true bounds, exact values, the ray of an unbounded problem

// psimplex_setup.cpp
int32_t psimplex_make(PrimalSimplex* s);   // arrays and bounds
int32_t psimplex_setup(PrimalSimplex* s);  // start: keys, values, factor
void psimplex_store(PrimalSimplex* s);     // keys, values and duals back to the problem

void psimplex_leavebasis(PrimalSimplex* s, int32_t var, double x);  // after being thrown out: to a bound
void psimplex_enterbasis(PrimalSimplex* s, int32_t var, int32_t pos, double x);

// psimplex_crash.cpp
void psimplex_primalcrash(PrimalSimplex* s);

// psimplex_values.cpp
void psimplex_factor(PrimalSimplex* s);  // with repair; sets s->resp on failure
void psimplex_formxb(PrimalSimplex* s);
double psimplex_rounding(const PrimalSimplex* s);  // what the size of the values alone can make of an activity
void psimplex_countinf(PrimalSimplex* s);          // numinf, suminf and the phase's cost by position
void psimplex_formy(PrimalSimplex* s);
void psimplex_formd(PrimalSimplex* s);
void psimplex_formobj(PrimalSimplex* s);

// psimplex_rows.cpp
void psimplex_formacolt(PrimalSimplex* s);
void psimplex_activate(PrimalSimplex* s, int32_t var, bool active);
// out := [-I A]_N' v over the active columns.
void psimplex_rowproduct(const PrimalSimplex* s, const PsVector& v, PsVector* out);

// psimplex_price.cpp
void psimplex_resetweights(PrimalSimplex* s);
void psimplex_exactweights(PrimalSimplex* s);  // 1 + ||B^-1 a_j||^2
int32_t psimplex_select(PrimalSimplex* s);     // -1: no candidate
void psimplex_updateweights(PrimalSimplex* s);
void psimplex_offer(PrimalSimplex* s, int32_t var);  // its merit may have changed

// psimplex_ratio.cpp
bool psimplex_stepsize(PrimalSimplex* s);  // false: nothing blocks

// psimplex_update.cpp
void psimplex_clear(PsVector* v);
void psimplex_ftran(PrimalSimplex* s, int32_t var);    // alpha and spike
void psimplex_btran(PrimalSimplex* s, PsVector* out);  // out := B^-T rhs; rhs by position, consumed
bool psimplex_pivotrow(PrimalSimplex* s);              // false: row and column disagree about the pivot
void psimplex_updatesolution(PrimalSimplex* s);
void psimplex_updateduals(PrimalSimplex* s);
void psimplex_changebasis(PrimalSimplex* s);

// psimplex_perturb.cpp
// What a level of TRV_SIM_DEGEN_ means: the part of degenerate steps that counts as a stall, the iterations before the
// first look, how often the bounds may be perturbed in a run, and by how much at first (relative).
struct PsDegenRule {
  double stall;
  int64_t patience;
  int32_t rounds;
  double size;
};
PsDegenRule psimplex_degenrule(int32_t degen);
bool psimplex_perturb(PrimalSimplex* s);  // false: not any more
void psimplex_removeperturb(PrimalSimplex* s);

// psimplex_super.cpp
int32_t psimplex_rmsuperbasics(PrimalSimplex* s);  // number of changes

inline double ps_dualinf(const PrimalSimplex* s, int32_t j) {
  switch (s->stat[j]) {
    case PS_LOWER:
      return -s->d[j];
    case PS_UPPER:
      return s->d[j];
    case PS_SUPER:
      return std::fabs(s->d[j]);
    default:
      return 0.0;
  }
}
inline bool ps_active(PsStat stat) { return stat != PS_BASIC && stat != PS_FIXED; }

}  // namespace tarvo
