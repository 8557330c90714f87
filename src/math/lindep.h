// Linear dependency of the rows of a sparse matrix.
//
// A crash builds a triangular basis: a column with one row left takes that row; where no such column is left, the
// longest row is set aside. Dependent rows are among those set aside. An LU factorisation of the basis columns and a
// few columns of each of these rows finds pivots for most of them; each row d that stays without one is expressed by
// the others, B' y = a_d, and y'A = a_d is then tested in all columns before the row is called dependent.
#pragma once

#include "cpub/array.h"
#include "lu/lu.h"

namespace tarvo {

// Rows as ptr [nrow + 1], sub, val; each column at most once in a row.
struct lindepmatrix {
  int32_t nrow, ncol;
  const int32_t* ptr;
  const int32_t* sub;
  const double* val;
};

struct lindepopt {
  double tolapiv = 1e-6;  // smaller pivots are none, in rows and columns scaled to 1
  int64_t maxwork = 0;    // elements touched; 0 for no limit
};

enum LindepResult : int32_t { LINDEP_OK = 0, LINDEP_SPACE = 1, LINDEP_MAXWORK = 2, LINDEP_NUMERIC = 3 };

// Row `row` equals the sum of y[k] times row rows[k]. Returns false to stop the search.
using LindepFound = bool (*)(void* handle, int32_t row, int32_t n, const int32_t* rows, const double* y);

// pivcol [nrow]: the column that a row has as its pivot, all different, or -1. *work: elements touched. The function
// `found` is called for each row that is proven dependent on rows with a pivot. With a result other than LINDEP_OK
// what was found before holds.
[[nodiscard]] int32_t lindep_check(sysenv* env, const lindepopt& options, const lindepmatrix& a, int32_t* pivcol,
                                   int64_t* work, void* handle, LindepFound found);

// Makes *factor from the nr rows of rowlist and the nc columns whose place colpos [ncol] tells (-1: not there), each
// element times rscale [nrow] and cscale [ncol] (NULL: 1). Of a rank below nr, and with `rankonly`, the factor serves
// for lu_getrank and lu_getpivot alone. The caller deletes it, also after a failure.
[[nodiscard]] int32_t lindep_factor(sysenv* env, lu** factor, const lindepmatrix& a, int32_t nr, const int32_t* rowlist,
                                    int32_t nc, const int32_t* colpos, const double* rscale, const double* cscale,
                                    double abspiv, bool rankonly, int64_t maxwork);

}  // namespace tarvo
