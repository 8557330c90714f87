// The simplex optimisers: minimise cc'xc + cx'xx + cfix subject to A xx - xc = 0, blc <= xc <= buc,
// blx <= xx <= bux.
//
// Every row i has a logical variable xc[i]. The index space of variables is 0..numcon+numvar-1: j < numcon is the
// logical of row j (basis column -e_j), j >= numcon is column j - numcon of A.
//
// Doors: simplex_optimize (driver.cpp), simplex_primaloptimizer (psimplex.cpp), simplex_factor (bsimplex.cpp).
#pragma once

#include <cstdint>

#include "cpub/array.h"
#include "lu/lu.h"
#include "prslv/prslv.h"

namespace tarvo {

// Internal stop codes (`resp`) that the simplex gives; 0 is "go on" or "done".
enum SimplexResp : int32_t {
  SIM_RESP_OK = 0,
  SIM_RESP_SPACE = 1,        // out of memory
  SIM_RESP_ITERATIONS = 4,   // iteration limit
  SIM_RESP_TIME = 5,         // time limit, from an event
  SIM_RESP_BREAK = 6,        // control-C, from an event
  SIM_RESP_CALLBACK = 7,     // stopped by the caller, from an event
  SIM_RESP_NUMERIC = 9,      // numerical failure
  SIM_RESP_OBJCUT = 15,      // objective cut passed
  SIM_RESP_SETBACKS = 27,    // too many bad events
  SIM_RESP_NOPROGRESS = 31,  // no further progress possible at the tightest tolerance
};

// Bound keys and status keys have the values of TRV_BK_ and TRV_SK_.
enum SimplexBk : int32_t { SIM_BK_LO = 0, SIM_BK_UP = 1, SIM_BK_FX = 2, SIM_BK_FR = 3, SIM_BK_RA = 4 };
enum SimplexSk : int32_t {
  SIM_SK_UNK = 0,
  SIM_SK_BAS = 1,
  SIM_SK_SUPBAS = 2,
  SIM_SK_LOW = 3,
  SIM_SK_UPR = 4,
  SIM_SK_FIX = 5,
  SIM_SK_INF = 6
};

enum SimplexOptimizer : int32_t { SIM_DUAL = 0, SIM_PRIMAL = 1, SIM_NETWORK = 2, SIM_NUM_OPTIMIZERS = 3 };

// Columns of A: column j is sub/val[ptrb[j]..ptre[j]), rows in any order, each at most once.
struct SimplexColumns {
  const int32_t* ptrb;
  const int32_t* ptre;
  const int32_t* sub;
  const double* val;
};

// Parameters of a run. Three-element fields are indexed by SimplexOptimizer.
struct simplexpar {
  int32_t optimizer;  // 1 primal simplex, 2 dual simplex, 0 free
  int32_t clean;      // start: 0 cold; 1 keys and basis as they are; 2, 4 primal feasible basis; 3, 5 dual feasible
                      // basis; 6 any known basis; 7, 8, 9 basis from basis identification
  int32_t degen;      // TRV_SIM_DEGEN_
  int32_t scaling;    // 0 free, 1 none, 3 moderate, 4 aggressive
  int32_t solveform;  // 0 free, 1 primal form, 2 dual form
  int32_t presolve;   // 0 no, 1 yes, 2 free
  prslvpar reduce;    // settings of the presolve
  int32_t hotstartstatus;  // use the status keys of the offered solution only
  int32_t primalcrash;     // crash percentage
  int32_t maxiter[SIM_NUM_OPTIMIZERS], maxsetbacks[SIM_NUM_OPTIMIZERS];
  int32_t switchopt;     // with the dual form the other optimiser is meant
  int32_t primalselect;  // 0 free, 1 partial, 2 full, 3 approximate steepest edge, 4 steepest edge, 5 devex
  int32_t dualselect;    // 0 free, 1 partial, 2 full, 3 approximate steepest edge, 4 steepest edge, 5 devex
  int32_t refactorfreq[SIM_NUM_OPTIMIZERS];  // 0 automatic
  double tolx[SIM_NUM_OPTIMIZERS], tols[SIM_NUM_OPTIMIZERS], tolpiv[SIM_NUM_OPTIMIZERS];
  int32_t haslowcut, hasupcut;
  double lowcut, upcut;                 // objective cuts, of the minimised objective
  int32_t logfreq[SIM_NUM_OPTIMIZERS];  // iterations between log rows, 0 never
};

// Counters and results of a run.
struct simplexinfo {
  int32_t resp;
  int32_t prosta, solsta;  // values of TRV_PRO_STA_ and TRV_SOL_STA_
  int64_t iter[SIM_NUM_OPTIMIZERS], infiter[SIM_NUM_OPTIMIZERS], degiter[SIM_NUM_OPTIMIZERS];
  int32_t numbadevents[SIM_NUM_OPTIMIZERS];
  int32_t hotstart, hotstartlu, hotstartnumbasics, hotstartrank;  // how the run started
  int64_t numfactor;                                              // LU factorisations
  double pobj, sumpbi, dobj, sumdbi;
  int32_t perturbed;
  int32_t seed;
  int32_t solvedual;       // the dual form is being solved
  prslvstat presolve;      // what the presolve has done, all zero when it did not run
  int32_t numcon, numvar;  // sizes of the problem solved
  double timestart;        // thread CPU seconds at the start of the optimiser
  double cputime[SIM_NUM_OPTIMIZERS];
};

// How a run reports progress. `func` gets the event number of the log and returns 0 or a stop code. `every` is set
// when events of every iteration are wanted (a call-back, a limit, control-C), else only log rows and begin and end.
struct SimplexEvents {
  void* handle;
  int32_t (*func)(void* handle, int32_t event, const simplexinfo* info);
  bool every;
  // Text and names for the log of the presolve; NULL for none.
  void (*print)(void* handle, const char* text) = nullptr;
  void (*name)(void* handle, bool row, int32_t index, char* buffer, int32_t size) = nullptr;
};

// The problem and the solution, all arrays the caller's. By row [numcon]: cc, blc, buc, bkc, skc, xc, y, sc. By column
// [numvar]: cx, blx, bux, bkx, skx, xx, sx. Reduced costs: sc = cc + y, sx = cx - A'y.
struct SimplexProblem {
  int32_t numcon, numvar;
  SimplexColumns a;
  double cfix;
  double* cc;
  double* cx;
  int32_t* bkc;
  double* blc;
  double* buc;
  int32_t* bkx;
  double* blx;
  double* bux;
  int32_t* skc;
  double* xc;
  double* y;
  double* sc;
  int32_t* skx;
  double* xx;
  double* sx;
};

// A basis with its factor, kept between calls. basis[k] is the variable in position k, xb[k] its value.
struct simplexbasis {
  int32_t numcon = 0;
  Array<int32_t> basis;
  Array<double> xb;
  lu* factor = nullptr;  // NULL or a factor of this dimension; valid when lu_isfactored
};

// An all-logical basis for numcon rows, with a factor object that holds no factor yet. SIM_RESP_SPACE leaves what there
// is for simplex_deletebasis, which may be called on any basis, also an empty one.
int32_t simplex_makebasis(sysenv* env, int32_t numcon, simplexbasis* basis);
void simplex_deletebasis(simplexbasis* basis);
int32_t simplex_copybasis(sysenv* env, const simplexbasis& from, simplexbasis* to);  // *to is unchanged on failure

// Scratch of simplex_factor, made once per run.
struct SimplexFactorWork {
  Array<int32_t> iwork;
  Array<double> rwork;
  Array<int32_t> artrow;  // [numcon], see simplex_factor
};

[[nodiscard]] bool simplex_makefactorwork(sysenv* env, int32_t numcon, SimplexFactorWork* work);

// Factorises the basis. When its rank is below numcon, the columns without a pivot are replaced by logicals:
// work->artrow[k] is then the row whose logical took position k, numcon for a position that stays, and *numart counts
// the replaced ones; `basis->basis` itself is changed. Results: SIM_RESP_OK, _SPACE, _NUMERIC.
int32_t simplex_factor(sysenv* env, int32_t numcon, const SimplexColumns& a, simplexbasis* basis,
                       SimplexFactorWork* work, int32_t* numart);

// Runs the primal simplex on a (scaled) problem from the given keys and basis: on entry skc, skx describe a basis
// (par.clean != 0) or are to be filled by a crash. On exit the keys, xc, xx, y, sc, sx, prosta and solsta of info stand
// for the original bounds. The result is info->resp.
int32_t simplex_primaloptimizer(sysenv* env, const simplexpar& par, simplexinfo* info, SimplexProblem* problem,
                                simplexbasis* basis, const SimplexEvents& events);

// The same by the dual simplex. The primal simplex finishes a run whose true costs turn out not to be dual feasible,
// and tells an unbounded problem from an infeasible one.
int32_t simplex_dualoptimizer(sysenv* env, const simplexpar& par, simplexinfo* info, SimplexProblem* problem,
                              simplexbasis* basis, const SimplexEvents& events);

// The solution of simplex_optimize on the unscaled problem; arrays of the caller.
struct SimplexSolution {
  int32_t* skc;
  int32_t* skx;
  double* xc;
  double* xx;
  double* y;
  double* slc;
  double* suc;
  double* slx;
  double* sux;
};

// The one entry: takes an unscaled linear problem (minimisation; the arrays are read only), solves it and writes the
// solution. With par.clean set, `solution` holds the start. `basis`, of input.numcon rows, is worked in; the factor it
// holds afterwards may be that of the scaled problem.
struct SimplexInput {
  int32_t numcon, numvar;
  SimplexColumns a;
  double cfix;
  const double* cc;
  const double* cx;
  const int32_t* bkc;
  const double* blc;
  const double* buc;
  const int32_t* bkx;
  const double* blx;
  const double* bux;
};
int32_t simplex_optimize(sysenv* env, const simplexpar& par, simplexinfo* info, const SimplexInput& input,
                         SimplexSolution* solution, simplexbasis* basis, const SimplexEvents& events);

}  // namespace tarvo
