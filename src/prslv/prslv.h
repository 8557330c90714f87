// Presolve: makes a linear problem (or the linear part of another) smaller by reductions, each with a record of how to
// undo it, and brings a solution of the small problem back to one of the given problem.
//
//   minimise cc'xc + cx'xx + cfix   subject to  xc = A xx,  blc <= xc <= buc,  blx <= xx <= bux
//
// The reduced problem stays in the index space of the given one: a removed row is free (key FR) without live elements,
// a removed column is fixed (key FX). cx of a fixed column keeps its cost and cfix does not contain it: the objective
// of the reduced problem is cc'xc + cx'xx + cfix over all columns, fixed ones included.
//
// Doors: prslv_make, prslv_reduce, prslv_postsolve (a solution with interior keys), prslv_postsolvebas (a basic one).
// Keys and statuses have the values of TRV_BK_, TRV_SK_, TRV_PRO_STA_, TRV_SOL_STA_.
#pragma once

#include <cstdint>

#include "cpub/array.h"
#include "cpub/bsto.h"
#include "cpub/spmat.h"

namespace tarvo {

enum PrslvBk : int32_t { PRSLV_BK_LO = 0, PRSLV_BK_UP = 1, PRSLV_BK_FX = 2, PRSLV_BK_FR = 3, PRSLV_BK_RA = 4 };
enum PrslvSk : int32_t {
  PRSLV_SK_UNK = 0,
  PRSLV_SK_BAS = 1,
  PRSLV_SK_SUPBAS = 2,
  PRSLV_SK_LOW = 3,
  PRSLV_SK_UPR = 4,
  PRSLV_SK_FIX = 5,
  PRSLV_SK_INF = 6
};
constexpr bool prslv_lower(int32_t bk) { return bk == PRSLV_BK_LO || bk == PRSLV_BK_FX || bk == PRSLV_BK_RA; }
constexpr bool prslv_upper(int32_t bk) { return bk == PRSLV_BK_UP || bk == PRSLV_BK_FX || bk == PRSLV_BK_RA; }

// Internal codes of the presolve; a non-zero answer of the hook comes back as it is.
enum PrslvResult : int32_t {
  PRSLV_OK = 0,
  PRSLV_SPACE = 1,       // out of memory: the problem is as far reduced as its records say, and usable
  PRSLV_POSTSOLVE = 24,  // a record can't be undone with this solution
  PRSLV_NOTREADY = 100,  // out of memory before the first reduction: solve the given problem
};

// Settings of a run.
struct prslvpar {
  int32_t loglev = 0;
  int32_t timing = 1;
  int32_t use = 1;     // 0: counts are built, nothing is reduced
  int32_t relax = 1;   // relax bounds that others imply
  int32_t lindep = 1;  // linear dependency check
  int32_t eliminator = 1;
  int32_t dualargs = 1;  // reductions that rest on the signs of multipliers (dominated columns, forcing variables, ...)
  double tol_x = 1e-8;   // primal tolerance
  double tol_s = 1e-8;   // dual tolerance
  double tol_aij = 1e-12;  // matrix elements
  double tol_lindep = 1e-6;
  double relpiv = 0.01;  // relative pivot tolerance of the eliminator
  int32_t lindep_work_lim = 1;
  double fillroom = 0.2;
  int32_t solution_request = 0;  // not 0: row checks only, see prslv_reduce
};

enum PrslvTimer : int32_t {
  PRSLV_TIME_SETUP,
  PRSLV_TIME_CHECKCON,
  PRSLV_TIME_CHECKVAR,
  PRSLV_TIME_RELAX,
  PRSLV_TIME_DOMVAR,
  PRSLV_TIME_ELIM,
  PRSLV_TIME_LINDEP,
  PRSLV_TIME_DUPCON,
  PRSLV_TIME_DUPVAR,
  PRSLV_TIME_SUMMARY,
  PRSLV_TIME_TOTAL,
  PRSLV_TIME_POSTSOLVE,
  PRSLV_TIME_POSTSOLVEBAS,
  PRSLV_NUM_TIMERS
};

// Counts by bound key, indexed by PrslvBk; a row or column that is not free (not fixed) is active.
struct prslvcounts {
  int32_t con[5] = {}, var[5] = {};
  int64_t nz = 0;
  int32_t activecon = 0, activevar = 0;
};

// What a run found and did.
struct prslvstat {
  int32_t problemclass =
      1;               // 1 linear, 2 quadratic objective, 3 quadratic rows, 4 nonlinear objective, 5 nonlinear rows
  int32_t status = 0;  // 0 undecided; 1 solved; 4 primal, 5 dual infeasible (values of TRV_PRO_STA_)
  prslvcounts before, after;
  int32_t forcecon = 0, forceconvar = 0;  // forcing rows, columns they fixed
  int32_t forcevar = 0, forcevarcon = 0;  // forcing columns, rows they removed
  int32_t dupcon = 0, dupvar = 0;
  int32_t chains = 0, chaincons = 0;  // doubleton chains, rows they removed
  int32_t eliminations = 0, eliminatortries = 0;
  int32_t pivcon = 0;  // pivots on rows
  int32_t lindep = 0, lindeptries = 0, lindeptrunc = 0, lindepskipped = 0;
  int64_t lindepwork = 0, lindeppivots = 0;
  double time[PRSLV_NUM_TIMERS] = {};
  int32_t calls[PRSLV_NUM_TIMERS] = {};
  int64_t stacksize = 0, compressedstacksize = 0;  // bytes
  int32_t outofspace = 0, eliminatorskipped = 0;
};

// One solution over all rows and columns of the given problem; arrays are the caller's.
struct prslvsol {
  int32_t defined, prosta, solsta;
  int32_t* skc;  // [numcon]
  double* xc;
  double* y;
  double* slc;
  double* suc;
  int32_t* skx;  // [numvar]
  double* xx;
  double* slx;
  double* sux;
};

// The stack of undo records: appended at the end, read back from the end.
struct prslvstack {
  bsto* store = nullptr;
  int64_t count = 0;                          // records
  int64_t readpos = 0;                        // of the walk
  bool busy = false;                          // between prslv_beginpushstk and prslv_endpushstk
  int32_t type = 0, nints = 0, ndoubles = 0;  // the record being pushed
  Array<int32_t> ints;
  Array<double> doubles;
};

// Subscripts (i >= j) of a quadratic term; NULL where there is none. Only which rows and columns are touched matters
// here.
struct prslvquad {
  int32_t objbegin = 0, objend = 0;
  const int32_t* conbegin = nullptr;  // [numcon] or NULL
  const int32_t* conend = nullptr;
  const int32_t* subi = nullptr;
  const int32_t* subj = nullptr;
  const double* val = nullptr;
};

// The problem: arrays are the record's own copies and are changed in place.
struct prslvprob {
  sysenv* env = nullptr;
  prslvstack stack;
  int32_t numcon = 0, numvar = 0;
  double cfix = 0.0;
  Array<double> cc, cx, blc, buc, blx, bux;
  Array<int32_t> bkc, bkx;
  spmat* acol = nullptr;  // columns; live elements are those in rows that are not free and columns that are not fixed
  prslvquad quad;
  // Columns that no reduction may touch although they are linear (members of cones, nonlinear terms): the list of the
  // caller, or NULL.
  int32_t numkeep = 0;
  const int32_t* keepvar = nullptr;
  // Rows with nonlinear terms.
  int32_t numkeepcon = 0;
  const int32_t* keepcon = nullptr;
};

// Progress: gets an event number of the log (23 begin, 24 to 30 on the way, 31 end) and returns 0 or a stop code.
struct prslvhook {
  void* handle = nullptr;
  int32_t (*func)(void* handle, int32_t event, const prslvstat* stat) = nullptr;
  // Text of the log, NULL for none.
  void (*print)(void* handle, const char* text) = nullptr;
  // Names for texts; NULL for none. Writes at most `size` bytes with the final 0.
  void (*name)(void* handle, bool row, int32_t index, char* buffer, int32_t size) = nullptr;
};

// The problem as a caller has it; nothing of it is changed. Column j is sub/val[ptrb[j]..ptre[j]). cc may be NULL
// (zeros).
struct prslvinput {
  int32_t numcon, numvar;
  const int32_t* ptrb;
  const int32_t* ptre;
  const int32_t* sub;
  const double* val;
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

// A copy of the input with an empty stack; NULL when out of memory. An infinite bound is stored as -+the largest
// double.
prslvprob* prslv_make(sysenv* env, const prslvinput& input);
void prslv_delete(prslvprob** problem);

// Reduces the problem once. When stat->status is not 0 in the end the presolve has settled it, and `itr` holds the
// solution or certificate of the REDUCED problem, to be brought back by prslv_postsolve like any other; `bas` (may be
// NULL) holds a solution too, but no certificate. `defined` tells which slots are filled. With par.solution_request not
// 0 only the row checks run (a check of a solution, no full reduction). PRSLV_SPACE leaves a usable, partly reduced
// problem, PRSLV_NOTREADY one that is neither whole nor reduced.
int32_t prslv_reduce(const prslvpar& par, prslvprob* problem, prslvsol* itr, prslvsol* bas, prslvstat* stat,
                     const prslvhook& hook);

// Turn a solution of the reduced problem, in the index space of the given one, into one of the given problem, in place.
// On entry a free row without elements has y = -cc (0 in a certificate), slc = suc = 0, xc = 0 and key BAS (basic walk)
// or SUPBAS; a fixed column without elements xx = blx (0 in a ray), slx - sux = cx (0 in a certificate), key FIX. Basic
// walk: exactly numcon keys BAS after every record when that holds on entry. PRSLV_POSTSOLVE when a record can't be
// undone.
int32_t prslv_postsolve(const prslvpar& par, const prslvprob* problem, prslvstat* stat, prslvsol* sol);
int32_t prslv_postsolvebas(const prslvpar& par, const prslvprob* problem, prslvstat* stat, prslvsol* sol);

}  // namespace tarvo
