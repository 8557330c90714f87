// Sparse LU factors of a basis, or of any matrix whose rank is wanted, with Forrest-Tomlin updates and hypersparse
// solves.
//
//   factorisation   P B Q = L U, by singletons and then Markowitz pivoting with a relative threshold
//   update k        B = L R_1^-1 ... R_k^-1 U, R_i row etas, U a permuted upper triangle
//   FTRAN           B x = y:      v = R_k ... R_1 L^-1 y (the spike), x = U^-1 v
//   BTRAN           B' y = c:     w = U^-T c, y = L^-T R_1' ... R_k' w
//
// Two index spaces: "by row" is a row of B, 0..nrow-1; "by column" is a column of B, 0..ncol-1 (for the simplex a
// position of the basis). The solves and the update need ncol = nrow.
//
// Life: lu_make, lu_putwsze; then for each factorisation lu_reset, lu_addcol or lu_addelm, lu_factor, and with a rank
// below nrow lu_insart; then solves and updates; lu_delete. Results 12 and 20 mean: lu_putwsze(lu,
// lu_getneededwsze(lu)) and again from lu_reset. The doors are these functions; the record is private.
//
// A sparse vector is a dense array that is zero outside its pattern, a list of the pattern without repetition, and for
// some calls marks: an array [nrow], non-zero exactly on the pattern. Arrays that are zero on entry are named so; a
// sparse call touches only listed entries, so nobody ever clears nrow entries.
//
// One object is used by one thread at a time; the solves use scratch of the object.
#pragma once

#include <cstdint>

#include "cpub/sysenv.h"

namespace tarvo {

struct lu;

using WorkCount = int64_t;  // non-zeros touched

enum LuResult : int32_t {
  LU_OK = 0,
  LU_BAD_NROW = 1,    // number of rows out of range
  LU_BAD_NCOL = 2,    // number of columns out of range
  LU_SPACE = 9,       // out of memory
  LU_IWORK = 10,      // integer work too short
  LU_RWORK = 11,      // real work too short
  LU_FILESPACE = 12,  // work files too small: lu_getneededwsze, lu_putwsze, load and factorise again
  LU_UNSTABLE = 13,   // update refused, the factor is as before
  LU_NOROOM = 14,     // update not done: refactorise (lu_isfactored tells whether the old factor still stands)
  LU_NOFACTOR = 15,   // there is no factor to ask
  LU_INDEX = 16,      // index out of range
  LU_OVERFLOW = 17,   // lu_ftranchecked: a component is too large
  LU_CALLBACK = 18,   // stopped by the call-back
  LU_MAXWORK = 19,    // bound on the work exceeded
  LU_GARCOL = 20,     // too many compactions: as LU_FILESPACE
  LU_NORANK = 21,     // the rank is below nrow
  LU_REFACTOR = 22,   // update done and valid; a refactorisation now pays
};

enum LuPivmode : int32_t {
  LU_PIVMODE_COLUMN = 1,  // |a| >= max(relpiv * largest of the column, abspiv)
  LU_PIVMODE_BOTH = 2,    // and |a| >= relpiv * largest of the row
};

enum LuTol : int32_t { LU_TOL_DROP = 0, LU_TOL_ABSPIV = 1, LU_TOL_RELPIV = 2 };
enum LuTrh : int32_t { LU_TRH_MAXUPD = 1 };

// Called on entry to lu_factor (code 0), now and then (2) and at its end (3), with the pivot steps done. Non-zero
// stops.
using LuCallback = int32_t (*)(void* handle, int32_t code, int32_t steps, int32_t zero);
using LuPrint = void (*)(void* handle, const char* text);

// --- Life -----------------------------------------------------------------------------------------------------------

// Makes an object for up to mnrow rows and mncol >= mnrow columns; its dimensions are these until changed. The work
// files are empty. *result is NULL unless LU_OK; else LU_BAD_NROW, LU_BAD_NCOL or LU_SPACE.
int32_t lu_make(sysenv* env, int32_t mnrow, int32_t mncol, lu** result);
// Deletes *factor and sets it to NULL.
void lu_delete(lu** factor);
// A deep copy in `env`, with the factor if there is one; NULL when out of memory.
lu* lu_copy(sysenv* env, const lu* factor);

// Makes the work files n slots (32 bytes each) long. Empties the object (never call it between load and factor), also
// when n is what it was. LU_SPACE: out of memory, the length is then 0.
int32_t lu_putwsze(lu* factor, int64_t n);
int32_t lu_getwsze(const lu* factor);
// The length to try after LU_FILESPACE or LU_GARCOL; above INT32_MAX lu_putwsze will refuse it.
int64_t lu_getneededwsze(const lu* factor);
// Whether the files proved too small in finalisation or in an update.
bool lu_getneedmem(const lu* factor);
int32_t lu_getnumgarcol(const lu* factor);  // compactions since lu_reset

// Change a dimension within the capacity. A change empties the object. LU_BAD_NCOL when out of range.
int32_t lu_putnrow(lu* factor, int32_t nrow);
int32_t lu_putncol(lu* factor, int32_t ncol);
int32_t lu_getnrow(const lu* factor);
int32_t lu_getncol(const lu* factor);

// --- Parameters -----------------------------------------------------------------------------------------------------

// Elements of magnitude at most LU_TOL_DROP (1e-13) are dropped; pivots are at least LU_TOL_ABSPIV (1e-8) and
// LU_TOL_RELPIV (0.1, held in [1e-4, 0.9999]) times the largest of their column. A NaN is ignored.
void lu_puttol(lu* factor, LuTol kind, double value);
double lu_gettol(const lu* factor, LuTol kind);
// LU_TRH_MAXUPD: number of updates after which LU_REFACTOR comes in any case, 0 (default) for none.
void lu_puttrh(lu* factor, LuTrh kind, int32_t value);
int32_t lu_gettrh(const lu* factor, LuTrh kind);
void lu_putpivmode(lu* factor, LuPivmode mode);
LuPivmode lu_getpivmode(const lu* factor);
// The mode, relative and absolute tolerance with which the present factor was made.
LuPivmode lu_getusedpivmode(const lu* factor);
double lu_getusedtol(const lu* factor, LuTol kind);
// The caller wants the rank and the pivots alone: a run without L or without U is fine. Such a run never gives a factor
// to solve with, but lu_getrank and lu_getpivot are right.
void lu_putdropl(lu* factor, bool accept);
void lu_putdropu(lu* factor, bool accept);
void lu_putcallback(lu* factor, void* handle, LuCallback func);   // NULL: none
void lu_putprint(lu* factor, void* handle, LuPrint func);         // where lu_factor's progress goes; NULL: nowhere
void lu_putmaxwork(lu* factor, bool limited, WorkCount maxwork);  // bound on the work of one factorisation
void lu_puttiming(lu* factor, bool on);                           // measure the time of each operation

// --- Loading --------------------------------------------------------------------------------------------------------

// Empties the factor for a new load. Keeps files, parameters and total statistics.
void lu_reset(lu* factor);
// Loads elements; those of magnitude at most the drop tolerance are skipped. Each position (i, j) at most once, any
// order. Indices must be in range. LU_FILESPACE when the files are full; nothing of that call is then stored.
int32_t lu_addelm(lu* factor, double value, int32_t i, int32_t j);
int32_t lu_addcol(lu* factor, int32_t j, int32_t n, const double* values, const int32_t* rows);
// The same with rows translated by `map`: an element is skipped when map[row] >= limit. LU_INDEX when a translated row
// is nrow or more; what came before it stays.
int32_t lu_addcolperm(lu* factor, int32_t j, int32_t n, const double* values, const int32_t* rows, int32_t limit,
                      const int32_t* map);

// --- Factorising ----------------------------------------------------------------------------------------------------

// What lu_factor demands: 5 nrow + 6 ncol + 2 integers, nrow + 2 ncol reals.
void lu_worksizes(int32_t nrow, int32_t ncol, int64_t* iworklen, int64_t* rworklen);
// Factorises what was loaded. LU_OK also when the rank is below nrow: then lu_insart, or use the rank and pivots alone.
// Else LU_IWORK, LU_RWORK, LU_FILESPACE, LU_CALLBACK, LU_MAXWORK, LU_GARCOL, or LU_NOFACTOR when nothing is loaded.
// NaN and infinite elements are never pivots and never loop; they lower the rank.
int32_t lu_factor(lu* factor, int64_t iworklen, int32_t* iwork, int64_t rworklen, double* rwork);
// Completes a factor of rank below nrow with pivots `pivotvalue`: column j that found no pivot becomes the unit column
// of row outlist[j] times pivotvalue; outlist[j] = ncol for the columns that stay. outlen >= ncol, else LU_IWORK.
// LU_FILESPACE when the finalisation finds no room, LU_NOFACTOR when L or U was dropped or there is nothing to
// complete.
int32_t lu_insart(lu* factor, double pivotvalue, int32_t* outlist, int64_t outlen);

bool lu_isfactored(const lu* factor);  // may solve and update
void lu_invalidate(lu* factor);
int32_t lu_getrank(const lu* factor);  // of the last lu_factor
// Pivot column (ncol: none) and pivot of row i. LU_NOFACTOR before a factorisation, LU_INDEX.
int32_t lu_getpivot(const lu* factor, int32_t i, int32_t* col, double* pivot);
// Non-zeros of L and of U (with its pivots).
void lu_getfill(const lu* factor, int64_t* lnz, int64_t* unz);
// Smallest and largest |pivot|, largest |entry| of L and of U. lu_norms needs a factor (LU_NOFACTOR); lu_normsscaled
// divides U's entries by their row's pivot and needs full rank (LU_NORANK).
int32_t lu_norms(const lu* factor, double* pmin, double* pmax, double* lmax, double* umax);
int32_t lu_normsscaled(const lu* factor, double* pmin, double* pmax, double* lmax, double* umax);

// --- Solves ---------------------------------------------------------------------------------------------------------
// All need lu_isfactored; without it they are internal errors and end the process.

// B x = y. y [nrow] by row comes back zero, x [ncol] by column is overwritten. Dense: costs nrow and more.
void lu_ftran(lu* factor, double* y, double* x);
// The same; LU_OVERFLOW, with y and x partly done, as soon as a component of x is `limit` or more.
int32_t lu_ftranchecked(lu* factor, double limit, double* y, double* x);
// B' y = c. c [ncol] by column comes back zero, y [nrow] by row is overwritten. Dense.
void lu_btran(lu* factor, double* c, double* y);

// First half of a sparse FTRAN: v := R_k ... R_1 L^-1 v, the spike. v, sub, *n, marks are a sparse vector by row on
// entry and on exit; sub has room for nrow. Exact zeros may leave the pattern. A caller that takes entries out of the
// list afterwards zeroes their v and their mark.
void lu_ftranl(lu* factor, int32_t* n, double* v, int32_t* sub, int32_t* marks);
// Second half: x := U^-1 v. Consumes v, sub, n, marks: v zero and marks clear on exit. (A caller that will update the
// factor copies the spike first.) x [ncol] by column is zero on entry; on exit x, outsub (room for ncol), *outn are the
// result, without marks. Values |v| <= tolz and results |x| <= tolx are dropped on the way. sub and outsub may be the
// same array.
void lu_ftranus2(double tolz, double tolx, lu* factor, int32_t n, double* v, const int32_t* sub, int32_t* outn,
                 double* x, int32_t* outsub, int32_t* marks);
// Sparse BTRAN: B' y = c. c, sub, n by column, consumed: c zero on exit. y [nrow] by row zero on entry; on exit y,
// outsub (room for nrow), *outn are the result. marks [nrow] clear on entry and on exit. Tolerances as above, in the U
// stage. sub and outsub may be the same array.
void lu_btransparse(double tolz, double tolx, lu* factor, int32_t n, double* c, const int32_t* sub, int32_t* outn,
                    double* y, int32_t* outsub, int32_t* marks);

// --- Update ---------------------------------------------------------------------------------------------------------

// Replaces column leavecol of B by a new column that is then called entercol (for the simplex the same position), whose
// spike by lu_ftranl is n, spike, spikesub (by row, no marks needed). spike is zero on every exit.
//   LU_OK, LU_REFACTOR   done
//   LU_UNSTABLE          new pivot too small, the old factor stands
//   LU_NOROOM            no room; lu_isfactored tells whether the old factor stands
//   LU_INDEX             leavecol has no pivot, or entercol has one
int32_t lu_supdl(lu* factor, int32_t leavecol, int32_t entercol, int32_t n, double* spike, const int32_t* spikesub);
// The same for a caller without the spike: v, sub, n, marks are the new column itself, a sparse vector by row with room
// for nrow in sub; consumed: v zero, marks clear on exit.
int32_t lu_update(lu* factor, int32_t leavecol, int32_t entercol, int32_t n, double* v, int32_t* sub, int32_t* marks);

int32_t lu_getnumupd(const lu* factor);  // updates since the last factorisation
bool lu_needrefac(const lu* factor);     // the last update asked for a refactorisation, or there is no factor
// The pivot that the last lu_supdl replaced and its new value (also when refused): new/old should agree with the entry
// of the entering column at the leaving position, and how far it does is a cheap check of the factor's accuracy.
void lu_getupdpivots(const lu* factor, double* oldpivot, double* newpivot);

// --- Statistics -----------------------------------------------------------------------------------------------------

enum LuOp : int32_t {
  LU_OP_SETUP,
  LU_OP_PIVOT,
  LU_OP_SEARCH,
  LU_OP_FINALIZE,
  LU_OP_UPDATE,
  LU_OP_DENSE_L_FW,
  LU_OP_SPARSE_L_FW,
  LU_OP_DENSE_L_BW,
  LU_OP_SPARSE_L_BW,
  LU_OP_DENSE_U_FW,
  LU_OP_SPARSE_U_FW,
  LU_OP_DENSE_U_BW,
  LU_OP_SPARSE_U_BW,
  LU_OP_TRANSPOSE,
  LU_OP_COLTRIAN,
  LU_OP_ROWTRIAN,
  LU_OP_FINALU,
  LU_OP_FINALL,
  LU_OP_BUILDCOL,
  LU_NUM_OPS
};
// Work of one operation since lu_reset (last) or since lu_make.
WorkCount lu_getwork(const lu* factor, LuOp op, bool last);
// Prints the table of statistics, in pieces.
void lu_printstats(const lu* factor, void* handle, LuPrint print);
// Checks every invariant of the storage and of the permutations; NULL or a description of the first fault, maybe in
// `text`. Costs nnz; for tests.
const char* lu_chku(const lu* factor, char (&text)[128]);

}  // namespace tarvo
