// Symmetric matrices given by terms (i, j, value): gathering, and a quick test of definiteness.
#pragma once

#include <cstdint>

namespace tarvo {

struct SymTerm {
  int32_t i, j;  // i >= j
  double value;
};

// The distinct terms of positions begin..end of the lists, those of one position added, in the order of (i, j). Their
// number.
int32_t symmat_gather(const int32_t* subi, const int32_t* subj, const double* val, int32_t begin, int32_t end,
                      SymTerm* terms);

// A quick necessary test that sign * Q is positive semi-definite: the signs of the diagonal and the 2-by-2 principal
// minors. Under sign 0 no term may matter. diag[number of variables] is zero on entry and on exit.
bool symmat_test(const SymTerm* terms, int32_t count, int32_t sign, double* diag);

}  // namespace tarvo
