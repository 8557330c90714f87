// Finds the vectors of a family that are equal as sets of subscripts, or parallel as sparse vectors, by refining a
// partition position by position: a vector that differs from all others at its first subscript leaves at once.
// The work is linear in the elements looked at, but for sorting the values of vectors that still agree.
#pragma once

#include "cpub/array.h"
#include "cpub/spmat.h"

namespace tarvo {

// Lists of two or more equal vectors each, in ascending order: head[g], then next[v] until the end mark `end`.
// A vector in no group has the end mark as its next.
struct dupgroups {
  int32_t count = 0, end = 0;
  Array<int32_t> head;  // [count]
  Array<int32_t> next;  // [number of vectors]
};

// The candidates among nvec vectors with subscripts in [0, universe); vector v is sub/val[ptrb[v]..ptre[v]), in an
// order of subscripts that all vectors share. Subscripts with mask 0 don't count (mask NULL: all do), nor zero values.
struct dupinput {
  int32_t nvec, universe;
  const int32_t* ptrb;
  const int32_t* ptre;
  const int32_t* sub;
  const double* val;  // NULL: the pattern alone
  const uint8_t* mask;
  int32_t numcand;
  const int32_t* cand;
  double tol;  // between values after scaling by the vector's first one, relative above 1
};

// Vectors without any counting subscript are in no group. False when out of memory.
[[nodiscard]] bool dupvec_refine(sysenv* env, const dupinput& input, dupgroups* groups);

// Parallel vectors of a matrix.
[[nodiscard]] bool spmat_dupvec(const spmat* m, const uint8_t* mask, int32_t numcand, const int32_t* cand, double tol,
                                dupgroups* groups);

}  // namespace tarvo
