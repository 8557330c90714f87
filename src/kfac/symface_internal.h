// What the steps of the analysis hand to one another, and the scratch of the numeric phase.
#pragma once

#include <algorithm>

#include "kfac/kernels.h"
#include "kfac/symface.h"

namespace tarvo {

// The elimination tree of the permuted pattern. Positions are postordered: children stand before their parent and every
// subtree is a range.
struct SymTree {
  Array<int64_t> start;   // [n + 1]
  Array<int32_t> sub;     // the larger neighbours of each position
  Array<int32_t> parent;  // -1 at a root
  Array<int32_t> count;   // elements of the factor's column below the diagonal
};

// Supernodes in elimination order, and where their columns stood in the tree.
struct SymSuper {
  int32_t count = 0;
  Array<int32_t> first;   // [count + 1] first column
  Array<int32_t> nrows;   // rows below the diagonal block
  Array<int32_t> parent;  // -1 at a root
  Array<int32_t> oldpos;  // [n] position in the tree of a column
};

// The steps. Each returns false when out of memory.
// Tree and column counts; makes the order at hand a postorder.
[[nodiscard]] bool symface_columns(SymFace* face, SymTree* tree);
// Joins columns to supernodes, with some explicit zeros where that pays, and puts them in their final order.
[[nodiscard]] bool symface_supernodes(SymFace* face, const SymTree& tree, SymSuper* super);
// Blocks, row lists, value store.
[[nodiscard]] bool symface_layout(SymFace* face, const SymTree& tree, const SymSuper& super);
// Lists of updates.
[[nodiscard]] bool symface_updates(SymFace* face);
[[nodiscard]] bool symface_schedule(SymFace* face);
void symface_dropschedule(SymFace* face);

// Multiplications of the factorisation of a column with k elements below the diagonal.
inline double symface_work(double k) {
  return k + ((k - 1) * k - 1) - static_cast<double>(static_cast<int64_t>(k) / 2) + k;
}
// The same for a block of w columns with q rows below.
inline double symface_blockwork(int32_t w, int32_t q) {
  double sum = 0.0;
  const double a = q, b = w;
  sum = b * a * a + a * b * (b - 1.0) + (b - 1.0) * b * (2.0 * b - 1.0) / 6.0;  // sum of (a + i)^2, i < b
  return sum + 2.0 * b;
}

// Parallel work, fixed by the analysis for `threads` logical threads: subtrees first, each in one thread; then the
// blocks above them step by step; then the tail.
struct SymRange {
  int32_t begin, end;  // blocks
};
struct SymStep {
  int32_t begin, end;  // in `top`
  bool team;           // all threads work on each block; else each thread on the blocks of its own, if `parallel`
  bool parallel;
};
struct SymSchedule {
  int32_t threads = 1;
  bool teamtail = false, parallelsolve = false;
  Array<int32_t> treestart;  // [threads + 1] in trees
  Array<SymRange> trees;     // by thread, ascending
  Array<int32_t> top;        // blocks above the subtrees, in the order of work
  Array<int32_t> owner;      // thread of a block of `top`
  Array<SymStep> steps;
  Array<int32_t> ascending;  // the blocks of `top` in elimination order
  Array<double> sums;        // of the solves: 2 n doubles for each thread, zero outside a solve
};

// The scratch of one thread.
struct SymWork {
  double* kernel;  // dense_worksize(); that of the next thread stands behind it
  double* buffer;
  int32_t* map;    // [n] local row of a position in the target block
  int32_t* local;  // [maxrows] local rows of an update
};
SymWork symface_scratch(SymFace* face, int32_t thread);

// Columns of a scattered update that are made at once: what fits in the cache, but not so few that the kernels starve.
inline int32_t symface_strip(int32_t rows, int32_t cols) {
  return std::min(cols, std::max(8, 32768 / dense_leading(rows)));
}

inline const int32_t* symface_rowlist(const SymFace* face, const SymBlock& block) {
  return face->rows.data() + block.row;
}

}  // namespace tarvo
