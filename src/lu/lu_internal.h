// The record of the LU factors and the routines between its source files.
//
// Two files of wsze elements hold everything. The row file holds U by rows from slot 0 to uendr, the column file the
// same elements by columns from slot 0 to uendc. Slots lbeg..wsze-1 of both are the L area, which grows downwards. An
// element in slot a of the row file and in slot b of the column file has rfile[a].pos == b and cfile[b].pos == a: that
// is the bond that every move keeps.
//
//   state 1   the column file holds the loaded elements as (value, row, column)
//   state 2   rfile[].sub is a column; the column file holds the rows of the active part, without values;
//             L etas by pivot row lie in the L area of the row file
//   state 3   columns are named by their pivot row everywhere in U (sub of the row file, ucol[]), so that the solves go
//             from line to line without a look-up; values stand in both files, pivots in piv alone.
//             The L area of the column file holds L by columns (the etas), that of the row file L by rows and below
//             lend the row etas of the updates.
#pragma once

#include <bit>
#include <cfloat>
#include <cmath>

#include "cpub/array.h"
#include "lu/lu.h"
#include "misc/prque.h"

namespace tarvo {

// One slot of a file: 16 bytes together, because whoever touches one field nearly always touches another.
struct LuElm {
  double val;
  int32_t sub;
  int32_t pos;
};

// A row, a column or an eta: slots beg..beg+cnt-1 of a file.
struct LuLine {
  int32_t beg;
  int32_t cnt;
};

enum LuState : int32_t { LU_STATE_NONE = 0, LU_STATE_LOAD = 1, LU_STATE_FACTOR = 2, LU_STATE_DONE = 3 };

constexpr int32_t lu_num_classes = 33;

struct LuStat {
  int64_t count[LU_NUM_OPS];
  WorkCount work[LU_NUM_OPS];
  double time[LU_NUM_OPS];
};

struct lu {
  sysenv* env = nullptr;
  void* cbhandle = nullptr;
  LuCallback cbfunc = nullptr;
  void* printhandle = nullptr;
  LuPrint print = nullptr;

  int32_t mnrow = 0, mncol = 0, nrow = 0, ncol = 0;
  int32_t state = LU_STATE_NONE;
  int32_t stpf = 0, stpb = 0;    // forward and backward pivot steps done
  int32_t wsze = 0;              // slots of each file
  int32_t lbeg = 0, lend = 0;    // first slot of the L area; the same when the factor was finalised
  int32_t uendr = 0, uendc = 0;  // first free slot of the files
  int64_t unz = 0, lnz = 0;      // non-zeros of U (without pivots) and of L
  Array<LuElm> rfile, cfile;     // [wsze]
  bool sorted = true;            // loading: the elements have come column by column

  // L. By pivot row and by row; the lists hold the non-empty lines in pivot order.
  Array<LuLine> lcol, lrow;           // [mnrow]
  Array<int32_t> lcollist, lrowlist;  // [mnrow]
  int32_t nlcol = 0, nlrow = 0;
  // Row etas: eta k is slots etabeg[k+1]..etabeg[k]-1 of the row file, and changes row etarow[k].
  int32_t mlu = 0;
  int32_t lupds = 0;
  Array<int32_t> etabeg, etarow;  // [mlu + 1], [mlu]

  // U. Capacities are powers of two, or the longest that a line can get.
  Array<double> piv;                                               // [mnrow]
  Array<LuLine> urow, ucol;                                        // [mnrow], [mncol]
  Array<int32_t> ucapr, ucapc;                                     // [mnrow], [mncol]
  int32_t freer[lu_num_classes] = {}, freec[lu_num_classes] = {};  // free blocks by size class, linked through pos
  Array<int32_t> q, invq;        // [mnrow] pivot column or ncol, [mncol] pivot row or nrow
  Array<int32_t> perm, perminv;  // [mnrow] position to row and back, during factorisation
  // Pivot order after finalisation: rows order[0..norder-1], -1 where an update has moved a row to the end.
  Array<int32_t> order, orderpos;  // [mnrow + mlu], [mnrow]
  int32_t norder = 0;

  int32_t maxgarcol = 4;
  bool dropl = false, dropu = false, wantdropl = false, wantdropu = false;
  int32_t numupd = 0, maxupd = 0;
  double droptol = 1e-13, relpiv = 0.1, abspiv = 1e-8, updtol = 1e-14;
  int32_t searchlim = 5;
  bool hasmaxwork = false;
  WorkCount maxwork = 0;
  bool needmem = false, refac = false, timing = false;
  LuPivmode pivmode = LU_PIVMODE_COLUMN, usedpivmode = LU_PIVMODE_COLUMN;
  double usedrelpiv = 0.1, usedabspiv = 1e-8;
  double oldpiv = 0.0, newpiv = 0.0;  // pivots of the last update
  int32_t rank = 0;
  int64_t lnzest = 0, unzest = 0;  // produced so far, also when dropped
  int32_t numgarcol = 0, numbldcol = 0, numrowres = 0, numcolres = 0;
  int32_t bestupd = 0;
  WorkCount bestwork = 0;
  LuStat last = {}, total = {};

  // Scratch of the solves and the update: `seen` and `rwrk` are all zero between calls.
  Array<unsigned char> seen;          // [mnrow]
  Array<int32_t> stack, list, start;  // [2 mnrow], [mnrow], [mnrow]
  Array<double> rwrk;                 // [mnrow]
};

// Adds a finished operation, and its time when that is wanted, to the statistics.
class LuTimer {
 public:
  LuTimer(lu* f, LuOp op) : f_(f), op_(op), start_(f->timing ? sysenv_cputime() : 0.0) {}
  LuTimer(const LuTimer&) = delete;
  LuTimer& operator=(const LuTimer&) = delete;
  ~LuTimer() {
    ++f_->last.count[op_];
    ++f_->total.count[op_];
    if (!f_->timing) return;
    const double spent = sysenv_cputime() - start_;
    f_->last.time[op_] += spent;
    f_->total.time[op_] += spent;
  }

 private:
  lu* f_;
  LuOp op_;
  double start_;
};

inline void lu_charge(lu* f, LuOp op, WorkCount work) {
  f->last.work[op] += work;
  f->total.work[op] += work;
}

// Can be a pivot at all. Written so that a NaN can't.
inline bool lu_usable(double magnitude, double least) { return magnitude >= least && magnitude <= DBL_MAX; }

// Storage (lusto.cpp).

// Capacity and size class of a line of n slots that can't get longer than `longest`.
inline int32_t lu_capacity(int32_t n, int32_t longest) {
  if (n == 0) return 0;
  const uint32_t power = std::bit_ceil(static_cast<uint32_t>(n));
  return power > static_cast<uint32_t>(longest) ? longest : static_cast<int32_t>(power);
}
inline int32_t lu_sizeclass(int32_t n) { return static_cast<int32_t>(std::bit_width(static_cast<uint32_t>(n) - 1u)); }

void lu_clearfree(lu* f, int32_t* heads);
// Give row i (column j) room for n elements, or, with n 0, give its block back. LU_FILESPACE, LU_GARCOL.
int32_t lu_resizerow(lu* f, int32_t i, int32_t n);
int32_t lu_resizecol(lu* f, int32_t j, int32_t n);
int32_t lu_garcol(lu* f);    // compacts the row file and rebuilds the column file
int32_t lu_buildcol(lu* f);  // rebuilds the column file from the row file

// Takes slot b out of column j: the last element takes its place.
inline void lu_takefromcol(LuElm* rfile, LuElm* cfile, LuLine* col, int32_t b) {
  const int32_t last = col->beg + --col->cnt;
  if (b != last) {
    cfile[b] = cfile[last];
    rfile[cfile[b].pos].pos = b;
  }
}
inline void lu_takefromrow(LuElm* rfile, LuElm* cfile, LuLine* row, int32_t a) {
  const int32_t last = row->beg + --row->cnt;
  if (a != last) {
    rfile[a] = rfile[last];
    cfile[rfile[a].pos].pos = a;
  }
}

// Factorisation (lusetup.cpp, lupiv.cpp, lufac.cpp).

int32_t lu_setup(lu* f, int32_t* iwork);  // the singletons; iwork [2 nrow + 2 ncol]

// What search and elimination share.
struct LuNucleus {
  prque rowq, colq;  // active rows and unpivoted columns by count
  double* rowmax;    // [nrow] largest magnitude of an active row, -1 unknown; NULL in column mode
  double* colmax;    // [ncol]
  double* w;         // [ncol] the pivot row
  int32_t* mark;     // [ncol] zero outside of lu_dopivot
  int32_t* list;     // [ncol]
};
struct LuPivot {
  int32_t row, col;  // row == nrow: none
  bool eliminate;    // false: a row singleton, which goes to the far end and needs no multipliers
};
LuPivot lu_choosepivincol(lu* f, LuNucleus* nuc);
LuPivot lu_choosepivinboth(lu* f, LuNucleus* nuc);
int32_t lu_dopivot(lu* f, LuNucleus* nuc, const LuPivot& pivot);
int32_t lu_finalizefactor(lu* f);

inline void lu_recordpivot(lu* f, int32_t i, int32_t j, double value, bool forward) {
  const int32_t to = forward ? f->stpf++ : f->nrow - ++f->stpb;
  const int32_t from = f->perminv[i], other = f->perm[to];
  f->perm[from] = other;
  f->perminv[other] = from;
  f->perm[to] = i;
  f->perminv[i] = to;
  f->piv[i] = value;
  f->q[i] = j;
  f->invq[j] = i;
}

// Solves (lusolve.cpp).

// Depth-first search over `lines` from start[0..n-1] (distinct). Finished nodes go to f->list in the order of
// finishing; the result is their number and f->seen is set on them. -1, with f->seen clear, when the lines touched have
// reached the budget. *touched: elements of the lines touched.
int32_t lu_search(lu* f, const LuLine* lines, const LuElm* file, int32_t n, const int32_t* start, WorkCount* touched);

}  // namespace tarvo
