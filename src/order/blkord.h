// Transversals and square blocks of the pattern of a set of rows and columns of a sparse matrix.
//
// rset[0..nrowc) are the rows and inew their places (inew[rset[k]] = k, any place >= nrowc for a row outside);
// cset[0..csze) are the columns. All are permuted in place; a transversal matches row rset[k] to column cset[k].
// Work space is iwork[isze] of the caller, isze >= blkord_worksize; too little is an internal error.
#pragma once

#include <cstdint>

#include "cpub/sysenv.h"

namespace tarvo {

struct BlkordPattern {
  const int32_t* ptrb;  // column j is sub[ptrb[j]..ptre[j])
  const int32_t* ptre;
  const int32_t* sub;
};

constexpr int64_t blkord_worksize(int32_t nrowc, int32_t csze) { return 4 * int64_t{nrowc} + 4 * int64_t{csze} + 2; }

// A transversal by one greedy pass over the columns by rising degree. Returns its size.
int32_t blkord_appmaxtran(sysenv* env, const BlkordPattern& a, int32_t nrowc, int32_t* rset, int32_t* inew,
                          int32_t csze, int32_t* cset, int64_t isze, int32_t* iwork);

// A maximum transversal by a cheap assignment and depth-first search with look-ahead (Duff, On algorithms for obtaining
// a maximum transversal, 1981). Returns its size.
int32_t blkord_maxtran(sysenv* env, const BlkordPattern& a, int32_t nrowc, int32_t* rset, int32_t* inew, int32_t csze,
                       int32_t* cset, int64_t isze, int32_t* iwork);

// The largest square block whose rows have no element in any other column of the set: places 0..result-1 of rows and
// columns afterwards (Dulmage and Mendelsohn's decomposition). *maxtran is the size of a maximum transversal.
int32_t blkord_maxlwrsqblk(sysenv* env, const BlkordPattern& a, int32_t nrowc, int32_t* rset, int32_t* inew,
                           int32_t csze, int32_t* cset, int32_t* maxtran, int64_t isze, int32_t* iwork);

}  // namespace tarvo
