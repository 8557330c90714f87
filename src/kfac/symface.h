// The sparse symmetric factorisation L D L' of a matrix with a fixed pattern: order, analysis (all decisions on
// structure, symface*.cpp), numeric factorisation and solves (pcholfac*.cpp, pchsolve.cpp), which follow lists and
// never allocate.
//
// Calling order: symface_make; symface_setcounts, symface_inij (the pattern, each edge once, node numbering);
// symface_order or symface_setorder; symface_analyze. Then, as often as wanted: values into the blocks, symface_numfac,
// symface_solvefwd, the pivots (diag), symface_solvebwd. A new pattern may follow: symface_setcounts begins again.
//
// Positions are places in the elimination order (0-based). The factor consists of blocks: block k holds the columns
// first..first+width-1 as one dense trapezoid, column-major, of width + nrows rows; the rows below the diagonal block
// are the positions rows[0..nrows), ascending. The blocks from `firsttail` on are the panels of the dense tail: their
// rows are simply all positions behind them. Value of local row r in column c: values[val + c * ld + r], r >= c.
#pragma once

#include <cstdint>

#include "cpub/array.h"
#include "kfac/pivot.h"
#include "order/symord.h"

namespace tarvo {

struct SymBlock {
  int32_t first, width, nrows, ld;
  int64_t val;  // in values
  int64_t row;  // in rows
};

// One block that updates a target: from row `pos` of its list on, its rows reach the target. Updates of a target whose
// rows from there on are the same stand together and are made in one product; `count` says how many at the first of
// them and is 0 at the others.
struct SymUpdate {
  int32_t block, pos, count;
};

struct SymOptions {
  double pivottol = 1e-12;
  double shiftbelow = 0.0;         // see PivotRule; may change between factorisations
  double floor = 0.0;              // likewise
  double diagshift = 0.0;          // added to every diagonal element
  double mergeratio = 1.0;         // see symface_supernodes
  int32_t l1kb = 32, l2kb = 1024;  // caches; l2kb 0: nothing is cut into blocks
};

struct SymSchedule;  // of the parallel factorisation and solves

struct SymFace {
  sysenv* env = nullptr;
  SymOptions options;
  int32_t n = 0;
  // The pattern, node numbering: every edge in the list of its smaller end.
  Array<int64_t> start;  // [n + 1]
  Array<int64_t> fill;   // [n] next free place while the pattern is fed
  Array<int32_t> sub;
  Array<int32_t> perm, invperm;  // [n] node at a position, position of a node
  OrderCounts order;
  // After the analysis.
  int32_t nblk = 0, firsttail = 0;
  int32_t dstart = 0;       // first position of the dense tail; n without one
  Array<SymBlock> blocks;   // [nblk]
  Array<int32_t> blockof;   // [n] block of a position
  Array<int32_t> rows;      // row lists of all blocks before the tail; the blocks of a wide supernode share one
  Array<int64_t> updstart;  // [nblk + 1] the blocks before the tail that update a block
  Array<SymUpdate> updates;
  int64_t nnzl = 0;  // elements of the factor with its diagonal, explicit zeros included
  double flops = 0.0, denseflops = 0.0, extraflops = 0.0;
  SymSchedule* schedule = nullptr;
  // Numeric.
  Array<double> store;       // raw block behind `values`
  double* values = nullptr;  // 64-byte aligned
  int64_t numvalues = 0;
  Array<double> diag;     // [n] by position: pivots after symface_numfac
  Array<uint16_t> flags;  // [n] NodeFlag by position; set by the caller after the analysis
  Array<double> before;   // [n] the diagonal before the factorisation
  int64_t bufsize = 0;    // doubles of a thread's buffer for updates that are scattered
  int32_t maxrows = 0;    // longest row list
  Array<double> worksp;   // see symface_work
  Array<int32_t> workint;
};

SymFace* symface_make(sysenv* env, const SymOptions& options, int32_t n);
void symface_delete(SymFace** face);

// Begins a pattern: counts[i] edges will be fed with i as their smaller end. False when out of memory.
[[nodiscard]] bool symface_setcounts(SymFace* face, const int32_t* counts);
// Feeds an edge; equal ends are ignored. 2 for an end out of range, else 0.
inline int32_t symface_inij(SymFace* face, int32_t i, int32_t j) {
  if (i < 0 || j < 0 || i >= face->n || j >= face->n) return 2;
  if (i == j) return 0;
  const int32_t low = i < j ? i : j;
  face->sub[face->fill[low]++] = i < j ? j : i;
  return 0;
}

// Orders the pattern. Codes of OrderResult.
int32_t symface_order(SymFace* face, int32_t method, const OrderOffer& offer, const OrderHook& hook);
// Takes a given order.
[[nodiscard]] bool symface_setorder(SymFace* face, const int32_t* perm);
// Makes blocks, schedule and value store for the order at hand (which a postorder may change). False when out of
// memory.
[[nodiscard]] bool symface_analyze(SymFace* face);

// Factors the values in place; the elements of the lower triangle must stand in the blocks, everything else 0. Hook
// codes: 6 at the start, 7 with -1.0 after each bounded amount of work, 8 at the start of the dense tail. 0, or 5 when
// the hook answered non-zero: no solve may follow then, another symface_numfac may.
int32_t symface_numfac(SymFace* face, const OrderHook& hook);

// L y = b and L'x = y, in place, for nrhs right-hand sides x[n] by position, one after the other at stride n. The
// pivots are the caller's business.
void symface_solvefwd(SymFace* face, double* x, int32_t nrhs);
void symface_solvebwd(SymFace* face, double* x, int32_t nrhs);

}  // namespace tarvo
