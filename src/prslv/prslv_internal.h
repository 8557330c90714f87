// Inside the presolve: the state of a run, the primitives that all reductions share, the reductions, and the walk that
// undoes them. A reduction, its undo and its test stand side by side: prslv_X pushes records, prslv_undoX reads them.
#pragma once

#include <cmath>

#include "prslv/prslv.h"

namespace tarvo {

// Reduction types. There is no type 20 to 22.
enum PrslvType : int32_t {
  PRSLV_ROW_REMOVED = 1,
  PRSLV_ROW_LOWER_DROPPED = 2,
  PRSLV_ROW_UPPER_DROPPED = 3,
  PRSLV_SINGLETON_ROW = 4,
  PRSLV_FORCING_ROW = 5,
  PRSLV_VAR_FIXED = 6,
  PRSLV_BLOCK_FIXED = 7,
  PRSLV_ELIMINATION = 8,
  PRSLV_ROW_AT_LOWER = 9,
  PRSLV_ROW_AT_UPPER = 10,
  PRSLV_VAR_AT_LOWER = 11,
  PRSLV_VAR_AT_UPPER = 12,
  PRSLV_VAR_LOWER_RELAXED = 13,
  PRSLV_VAR_UPPER_RELAXED = 14,
  PRSLV_VAR_BOTH_RELAXED = 15,
  PRSLV_DUP_VAR = 16,
  PRSLV_FREE_VAR_AT_ZERO = 17,
  PRSLV_DUP_CON = 18,
  PRSLV_DUP_CON_AND_VAR = 19,
  PRSLV_FORCING_VAR = 23,
  PRSLV_ROW_PIVOT = 24,
  PRSLV_DOUBLETON_CHAIN = 25,
  PRSLV_ROW_BY_VAR = 26,
  PRSLV_DUP_VAR_TRANSFORM = 27,
  PRSLV_ROW_TIGHTENED = 28,
  PRSLV_ROW_TOOK_COLUMN = 29,
  PRSLV_NUM_TYPES = 30
};

// Work lists without repeats: a stack of indices and a flag per index. Whoever changes a row or column in a way that
// could make a check succeed there pushes it; the checks pop what they look at.
struct prslvlist {
  int32_t* item = nullptr;  // [capacity]
  uint8_t* on = nullptr;    // [capacity]
  int32_t count = 0;
};
inline void prslv_listpush(prslvlist* list, int32_t k) {
  if (list->on[k] != 0) return;
  list->on[k] = 1;
  list->item[list->count++] = k;
}
inline int32_t prslv_listpop(prslvlist* list) {
  const int32_t k = list->item[--list->count];
  list->on[k] = 0;
  return k;
}

// The state of one run of prslv_reduce. A term a x counts in `lax` as a l for a > 0 and a u for a < 0, the reverse in
// `uax`; a missing bound adds one to ncilax or nciuax instead. All of these hold after every primitive.
struct prslvrun {
  sysenv* env;
  prslvprob* p;
  const prslvpar* par;
  prslvstat* stat;
  const prslvhook* hook;
  prslvsol* itr;  // or NULL
  prslvsol* bas;  // or NULL
  spmat* acolt;   // rows: the same elements as p->acol, dead ones among them
  Workspace* memory;
  int32_t* connz;   // [numcon] live elements
  int32_t* ncilax;  // [numcon]
  int32_t* nciuax;
  double* lax;  // [numcon]
  double* uax;
  uint8_t* concla;    // [numcon] 1: linear, may be reduced
  int32_t* varnz;     // [numvar] live elements
  uint8_t* varcla;    // [numvar] 1: linear, may be reduced
  prslvlist rows;     // rows to look at by prslv_checkcon
  prslvlist cols;     // columns to look at by prslv_checkvar
  prslvlist singles;  // columns whose varnz fell to 1
  // Rows that prslv_checkcon looked at since the last prslv_relax, and columns whose bounds these may imply now.
  prslvlist relaxrows;
  prslvlist relaxcols;
  int64_t chainwork = 0;  // elements that the search for dominated columns looked at since it last found enough
  int64_t changes;  // counts every successful reduction; a check that finds it unchanged since its last run has nothing
                    // to do
  int32_t numfixed, numfreed;  // columns fixed and rows freed so far
  int64_t compacted;           // prslv_active when the matrices were compacted last
};

// True when a reduction has settled the problem: all loops stop.
inline bool prslv_stopped(const prslvrun* run) { return run->stat->status != 0; }

inline bool prslv_livecon(const prslvrun* run, int32_t i) { return run->p->bkc[i] != PRSLV_BK_FR; }
inline bool prslv_livevar(const prslvrun* run, int32_t j) { return run->p->bkx[j] != PRSLV_BK_FX; }

// The sum of two costs, zero when only rounding is left of it: a cost of 1e-17 on a free column would make a problem
// unbounded.
inline double prslv_addcost(double a, double b) {
  const double sum = a + b, size = std::fabs(a) + std::fabs(b);
  return std::fabs(sum) <= 1e-14 * size ? 0.0 : sum;
}

// A line of the log.
[[gnu::format(printf, 2, 3)]] void prslv_log(const prslvrun* run, const char* format, ...);
// Ends the process: a broken invariant.
[[noreturn]] [[gnu::format(printf, 2, 3)]] void prslv_fatal(sysenv* env, const char* format, ...);

// ---- The stack ---------------------------------------------------------------------------------------------------

// Opens a record of `type` and hands out its two arrays, to be filled before prslv_endpushstk, which then cannot fail.
// PRSLV_SPACE leaves the stack as it was. Push the record BEFORE changing the problem.
[[nodiscard]] int32_t prslv_beginpushstk(prslvrun* run, int32_t type, int32_t nints, int32_t ndoubles, int32_t** ints,
                                         double** doubles);
void prslv_endpushstk(prslvrun* run, int32_t** ints, double** doubles);
// The counts of a fixed-size type; false for the others (they are stored with the record).
bool prslv_defaultreqs(int32_t type, int32_t* nints, int32_t* ndoubles);

// ---- Primitives (primitives.cpp) ---------------------------------------------------------------------------------
// Each pushes its record, changes the problem, keeps counts and activity bounds, and puts the touched rows and columns
// on the work lists. The result is PRSLV_OK or PRSLV_SPACE.

int32_t prslv_conrelax(prslvrun* run, int32_t i, bool drop_lower, bool drop_upper);
int32_t prslv_confixatbound(prslvrun* run, int32_t i, bool at_lower);  // sign of the multiplier known: types 9, 10
int32_t prslv_contighten(prslvrun* run, int32_t i);  // a ranged row of no width becomes fixed: type 28
int32_t prslv_varfix(prslvrun* run, int32_t j, double value);
int32_t prslv_varfixatbound(prslvrun* run, int32_t type, int32_t j);
int32_t prslv_varrelax(prslvrun* run, int32_t j, bool drop_lower, bool drop_upper);
// A row that was free from the start: its cost goes to its columns and its elements to the record.
int32_t prslv_confree(prslvrun* run, int32_t i);
// Builds acolt and sorts the columns by row; counts all live elements and forms all activity bounds. After a reduction
// that changed the matrix itself. False when out of memory.
[[nodiscard]] bool prslv_transpose(prslvrun* run);
void prslv_recount(prslvrun* run);
// Forms the activity bounds of row i anew.
void prslv_formactivity(prslvrun* run, int32_t i);
// Gives column j other bounds without a record; the caller has pushed one of its own.
void prslv_newvarbounds(prslvrun* run, int32_t j, int32_t bk, double bl, double bu);
// Takes column j out of all its rows (bounds of the rows shift by -a value) and makes it FX at `value`; no record.
void prslv_removevar(prslvrun* run, int32_t j, double value);
// Makes row i free and empty (varnz of its columns fall); no record, costs are the caller's.
void prslv_removecon(prslvrun* run, int32_t i);

// Bounds that row i with coefficient a implies for column j from the other columns' bounds; an end that is not implied
// is -+the largest double.
void prslv_impliedbounds(const prslvrun* run, int32_t i, int32_t j, double a, double* lower, double* upper);

// Settle the problem: status and certificate slots, from a multiplier vector on rows (n pairs) or a ray on columns.
void prslv_primalinfeas(prslvrun* run, int32_t n, const int32_t* rows, const double* y);
void prslv_dualinfeas(prslvrun* run, int32_t n, const int32_t* columns, const double* x);
void prslv_coninfeasax(prslvrun* run, int32_t i, bool at_lower);
void prslv_crossedbounds(prslvrun* run, bool row, int32_t k);
void prslv_dualinfeasvar(prslvrun* run, int32_t j, double direction);

// ---- Reductions --------------------------------------------------------------------------------------------------

int32_t prslv_checkcon(prslvrun* run, int32_t relax_mode);   // checkcon.cpp
int32_t prslv_relax(prslvrun* run, int32_t relax_mode);      // relax.cpp
int32_t prslv_checkvar(prslvrun* run, int32_t* doubletons);  // checkvar.cpp; adds the new doubleton rows it saw
int32_t prslv_emptyvar(prslvrun* run, int32_t j);            // checkvar.cpp; finishes a linear column without elements
int32_t prslv_checkdupcon(prslvrun* run);                    // dupcon.cpp
int32_t prslv_checkdupvar(prslvrun* run);                    // dupvar.cpp
int32_t prslv_dupconandvar(prslvrun* run, int32_t i, int32_t j, double a);
// Fixed row i takes in its lone column j: the rest of the row ranges over what j's bounds leave, at the cost that j
// would have.
int32_t prslv_rowtookcolumn(prslvrun* run, int32_t i, int32_t j, double a);
// Lets fixed rows take in columns that stand in no other row, as the last step.
int32_t prslv_takesingletons(prslvrun* run);  // relax.cpp
int32_t prslv_elimination(prslvrun* run, int32_t i, int32_t j,
                          double a);  // elimination.cpp: free column j of row i alone
// eliminator.cpp; fixed rows with two elements, -1 when no row or column is short enough for an elimination to pay.
int32_t prslv_numdoubletons(const prslvrun* run);
int32_t prslv_eliminator(prslvrun* run);
int32_t prslv_chklinblkcon(prslvrun* run);  // depend.cpp

// ---- The walk back -----------------------------------------------------------------------------------------------

// State of a walk. Working copies of the problem start as the reduced problem and become the given one record by
// record.
struct prslvwalk {
  sysenv* env;
  const prslvprob* p;
  const prslvpar* par;
  bool basic;       // the walk of a basic solution
  double f_p, f_d;  // factors of bounds in primal values and of costs in dual values: 0 in rays and certificates
  prslvsol* sol;
  double cfix;
  double *cc, *blc, *buc;  // [numcon]
  int32_t* bkc;
  double *cx, *blx, *bux;  // [numvar]
  int32_t* bkx;
  int64_t readpos;  // bytes of the stack that are not yet undone
  int32_t* ints;    // the record read last
  double* doubles;
};
// Reads the next record into w->ints and w->doubles; false when none is left.
bool prslv_popstk(prslvwalk* w, int32_t* type, int32_t* nints, int32_t* ndoubles);
// The key of a row or column that is at no bound: BAS in the basic walk, SUPBAS in the interior one.
inline int32_t prslv_walkbasic(const prslvwalk* w) { return w->basic ? PRSLV_SK_BAS : PRSLV_SK_SUPBAS; }

// Undo one record: PRSLV_OK, PRSLV_SPACE or PRSLV_POSTSOLVE.
using prslvundo = int32_t (*)(prslvwalk* w, int32_t type, const int32_t* ints, int32_t nints, const double* doubles,
                              int32_t ndoubles);
int32_t prslv_undosingletonrow(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);   // checkcon.cpp
int32_t prslv_undoforcingrow(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);     // checkcon.cpp
int32_t prslv_undoforcingvar(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);     // forcevar.cpp
int32_t prslv_undodupcon(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);         // dupcon.cpp
int32_t prslv_undodupconandvar(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);   // dupcon.cpp
int32_t prslv_undorowtookcolumn(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);  // dupcon.cpp
int32_t prslv_undodupvar(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);         // dupvar.cpp
int32_t prslv_undodupvartransform(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);  // dupvar.cpp
int32_t prslv_undoelimination(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);  // elimination.cpp
int32_t prslv_undorowpivot(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);     // eliminator.cpp
int32_t prslv_undochain(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);        // chain.cpp
int32_t prslv_undoblkfix(prslvwalk*, int32_t, const int32_t*, int32_t, const double*, int32_t);       // blkfix.cpp

}  // namespace tarvo
