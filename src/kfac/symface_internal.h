// Scratch of the numeric factorisation and the solves.
#pragma once

#include "kfac/symface.h"

namespace tarvo {

struct SymSchedule {
  // The blocks that still have to update block k hang in a list: head[k], next[u]; pos[u] is the first row of u not
  // used.
  Array<int32_t> head, next, pos;
  Array<int32_t> relative;       // [n] place of a position in the block at hand
  Array<double> buffer;          // the largest update of one block by another
  Array<const double*> columns;  // of an updater
  Array<double> before;          // [n] diagonal before the updates
  Array<double> kernel;          // of the dense kernels
  Array<double> gather;          // rows below a block, of two right-hand sides
};

}  // namespace tarvo
