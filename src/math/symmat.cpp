#include "math/symmat.h"

#include <algorithm>
#include <cmath>

namespace tarvo {

int32_t symmat_gather(const int32_t* subi, const int32_t* subj, const double* val, int32_t begin, int32_t end,
                      SymTerm* terms) {
  int32_t count = 0;
  for (int32_t t = begin; t < end; ++t) terms[count++] = {subi[t], subj[t], val[t]};
  std::sort(terms, terms + count,
            [](const SymTerm& a, const SymTerm& b) { return a.i != b.i ? a.i < b.i : a.j < b.j; });
  int32_t distinct = 0;
  for (int32_t t = 0; t < count; ++t) {
    if (distinct > 0 && terms[distinct - 1].i == terms[t].i && terms[distinct - 1].j == terms[t].j)
      terms[distinct - 1].value += terms[t].value;
    else
      terms[distinct++] = terms[t];
  }
  return distinct;
}

bool symmat_test(const SymTerm* terms, int32_t count, int32_t sign, double* diag) {
  constexpr double tol = 1e-10;
  const double s = std::sqrt(tol);
  bool passes = true;
  for (int32_t t = 0; t < count; ++t) {
    if (terms[t].i != terms[t].j) continue;
    const double d = terms[t].value;
    diag[terms[t].i] = d;
    if (std::isnan(d) || (d > tol && sign != 1) || (d < -tol && sign != -1)) passes = false;
  }
  for (int32_t t = 0; t < count && passes; ++t) {
    if (terms[t].i == terms[t].j) continue;
    const double a = std::fabs(terms[t].value);
    const double di = sign * diag[terms[t].i], dj = sign * diag[terms[t].j];
    const double small = std::min(di, dj), big = std::max(di, dj);
    // A diagonal of 0 (or a rounding below it) allows no entry beside it.
    if (sign == 0 || small <= 0.0)
      passes = a <= s && sign != 0;
    else
      passes = a * a / big - std::max(std::hypot(di, dj), 1.0) * s < small;
  }
  for (int32_t t = 0; t < count; ++t) diag[terms[t].i] = 0.0;
  return passes;
}

}  // namespace tarvo
