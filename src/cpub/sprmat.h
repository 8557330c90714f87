// The editable constraint matrix of a task. It is stored by columns or by rows ("vectors") and turns to the
// other orientation when a whole vector of that kind is asked for; single elements go to a cache of pending
// elements first, so that putting one costs O(1) without a search.
//
// Order of the elements in a vector: as given by the whole-vector write; increasing after a turn; elements that
// come from the cache stand behind the old ones, newest first.
//
// Every call that returns an int32_t gives a SprmatCode; SPRMAT_SPACE leaves the content as it was. Indices are
// the caller's to check. Readers flush and turn, so not even readers may share a matrix.
#pragma once

#include <cstdint>

#include "cpub/array.h"

namespace tarvo {

struct sprmat;

enum SprmatCode : int32_t {
  SPRMAT_OK = 0,
  SPRMAT_ROWLIMIT = 1,     // more rows than the row limit
  SPRMAT_COLLIMIT = 2,     // more columns than the column limit
  SPRMAT_CAPACITY = 3,     // the new capacity is below the number of stored elements
  SPRMAT_MAXCOLS = 4,      // the new limit is below the number of columns
  SPRMAT_MAXROWS = 5,      // the new limit is below the number of rows
  SPRMAT_SPACE = 6,        // out of memory, or beyond 2^31 elements
  SPRMAT_ARRAY_SHORT = 7,  // the output array is too short
  SPRMAT_LOCKED = 8,       // the raw arrays are lent out
};

// An empty column-wise matrix; NULL when out of memory.
sprmat* sprmat_make(sysenv* env, int32_t maxrows, int32_t maxcols);
void sprmat_delete(sprmat** matrix);

// Limits of the counts. SPRMAT_MAXROWS, SPRMAT_MAXCOLS below the counts.
int32_t sprmat_putmaxrows(sprmat* m, int32_t maxrows);
int32_t sprmat_putmaxcols(sprmat* m, int32_t maxcols);
// Sets the capacity to maxnz places plus the extra space of sprmat_putextra. SPRMAT_CAPACITY when they don't suffice.
int32_t sprmat_resize(sprmat* m, int32_t maxnz);
void sprmat_putextra(sprmat* m, int32_t extra);
// From a capacity of `threshold` on the matrix grows by a half instead of doubling; negative: it always doubles.
void sprmat_putdoubletrh(sprmat* m, int32_t threshold);

int32_t sprmat_getmaxnz(const sprmat* m);
int32_t sprmat_getnumrows(const sprmat* m);
int32_t sprmat_getnumcols(const sprmat* m);
int32_t sprmat_getnumflushes(const sprmat* m);
int32_t sprmat_getnumtransposes(const sprmat* m);
int32_t sprmat_getnumnz(sprmat* m, int32_t* count);

int32_t sprmat_flush(sprmat* m);

// One element. The last value put counts; 0.0 removes the element.
int32_t sprmat_putelement(sprmat* m, int32_t i, int32_t j, double value);
int32_t sprmat_getelement(sprmat* m, int32_t i, int32_t j, double* value);

// A vector is a column (by_rows false) or a row (by_rows true).
// Each output may be NULL.
int32_t sprmat_getvec(sprmat* m, bool by_rows, int32_t v, int32_t* length, int32_t* sub, double* val);
// Replaces a vector by n pairs, no index twice; zeros are dropped.
int32_t sprmat_putcol(sprmat* m, int32_t j, int32_t n, const int32_t* sub, const double* val);
int32_t sprmat_putrow(sprmat* m, int32_t i, int32_t n, const int32_t* sub, const double* val);
// Fills the empty columns first..first+num) in one pass: column first+k is the entries ptrb[k]..ptre[k] of sub and val
// without those of a magnitude below `tol`.
int32_t sprmat_loadcols(sprmat* m, int32_t first, int32_t num, const int32_t* ptrb, const int32_t* ptre,
                        const int32_t* sub, const double* val, double tol);

int32_t sprmat_appendrows(sprmat* m, int32_t n);
int32_t sprmat_appendcols(sprmat* m, int32_t n);
// Removes the listed rows or columns (repeats allowed) and closes the gaps.
int32_t sprmat_removerows(sprmat* m, int32_t n, const int32_t* list);
int32_t sprmat_removecols(sprmat* m, int32_t n, const int32_t* list);

// Number of elements with first_row <= i < last_row and first_col <= j < last_col.
int32_t sprmat_getnumnzslice(sprmat* m, int32_t first_row, int32_t last_row, int32_t first_col, int32_t last_col,
                             int64_t* count);
// Copies the vectors first..last) behind position size - *free of sub and val, which hold `size` elements of which
// the last *free are free. ptrb, ptre get last - first positions in them, *free falls.
// SPRMAT_ARRAY_SHORT, with nothing written, when they don't fit.
int32_t sprmat_getslice(sprmat* m, bool by_rows, int32_t first, int32_t last, int32_t size, int32_t* free,
                        int32_t* ptrb, int32_t* ptre, int32_t* sub, double* val);
// The same as triplets.
int32_t sprmat_gettriplets(sprmat* m, bool by_rows, int32_t first, int32_t last, int32_t size, int32_t* free,
                           int32_t* subi, int32_t* subj, double* val);

// Lends out the columns: column j is sub/val[ptrb[j]..ptre[j]). Until the last sprmat_releaseraw every change is
// refused, and rows are served by searching the columns instead of turning.
struct SprmatRaw {
  const int32_t* ptrb;
  const int32_t* ptre;
  const int32_t* sub;
  const double* val;
};
int32_t sprmat_getraw(sprmat* m, SprmatRaw* raw);
void sprmat_releaseraw(sprmat* m);
bool sprmat_islocked(const sprmat* m);

}  // namespace tarvo
