// The working sparse matrix of the numeric code: a vector of vectors in one pair of arrays. Whether a vector is a row
// or a column is the caller's agreement. Vector j occupies positions ptrb[j]..ptre[j] of sub (indices in [0, vlen))
// and val; vectors need not be adjacent or in order.
//
// Shape errors are programming errors and end the process: feed no unchecked user data.
#pragma once

#include "cpub/array.h"

namespace tarvo {

struct spmat {
  sysenv* env = nullptr;
  int32_t maxnvec = 0, maxvlen = 0;  // capacities
  int32_t nvec = 0, vlen = 0;
  int32_t base = 0;         // where storage begins
  int32_t maxsze = 0;       // length of sub and val
  int32_t ffree = 0;        // the next free position
  int32_t* ptrb = nullptr;  // [maxnvec]
  int32_t* ptre = nullptr;
  int32_t* sub = nullptr;                      // [maxsze]
  double* val = nullptr;                       // NULL in a pattern
  Array<int32_t> own_ptrb, own_ptre, own_sub;  // what of these arrays is the record's own
  Array<double> own_val;
};

// An empty matrix of 0 vectors without element space; NULL when out of memory.
spmat* spmat_make(sysenv* env, int32_t maxnvec, int32_t maxvlen);
void spmat_delete(spmat** matrix);

// Gives the matrix `size` places of its own, drops those it had and makes its vectors empty. False when out of memory.
[[nodiscard]] bool spmat_alloc(spmat* m, int32_t size);
// Adopts the caller's element arrays (val may be NULL) with nvec vectors of length vlen. ptrb and ptre, unless NULL,
// count from `base` positions before the arrays: they are copied less base, and ffree becomes the largest end.
void spmat_ealloc(spmat* m, int32_t nvec, int32_t vlen, int32_t base, int32_t size, const int32_t* ptrb,
                  const int32_t* ptre, int32_t* sub, double* val);

// A compact copy with `extra` free places; NULL when out of memory.
spmat* spmat_clone(const spmat* m, int32_t extra);

// New vectors are empty.
void spmat_putnvec(spmat* m, int32_t nvec);
void spmat_putvlen(spmat* m, int32_t vlen);
// Makes vector j `length` long. If it outgrows its present end it moves to ffree; false, with nothing moved, when
// there is no room.
[[nodiscard]] bool spmat_vresize(spmat* m, int32_t j, int32_t length);

int64_t spmat_getnumnz(const spmat* m);

// y += alpha * (vector j), and (vector j)'y, for a dense y of vlen elements.
void spmat_axpy(double alpha, const spmat* m, int32_t j, double* y);
double spmat_dot(const spmat* m, int32_t j, const double* y);

// The transpose, made when *at is NULL. Vector j of `a` gets index map[j], or with map_inverse vector map[k] index k;
// a NULL map is the identity. With `inplace` *at has the pattern already, and its pointers are kept: values of a fixed
// pattern are refreshed. False when out of memory.
[[nodiscard]] bool spmat_transpose(const spmat* a, const int32_t* map, bool map_inverse, spmat** at, bool inplace);

}  // namespace tarvo
