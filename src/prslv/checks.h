// What the row and column checks share among themselves.
#pragma once

#include <cmath>

#include "prslv/prslv_internal.h"

namespace tarvo {

// Bounds of this size are no place to put a column: shifting the rows by them would cost all digits.
constexpr double prslv_hugebound = 1e12;

// The value of a missing bound is -+the largest double; a finite one is smaller than this.
constexpr double prslv_inf = 1.7e308;

// One element of a vector of acol or acolt.
struct prslvelem {
  int32_t index;
  double value;
};

// f(index, value) for each live element of row i, until f returns false.
template <class F>
void prslv_eachinrow(const prslvrun* run, int32_t i, F f) {
  const spmat* at = run->acolt;
  for (int32_t k = at->ptrb[i]; k < at->ptre[i]; ++k) {
    if (prslv_livevar(run, at->sub[k]) && !f(at->sub[k], at->val[k])) return;
  }
}
template <class F>
void prslv_eachincol(const prslvrun* run, int32_t j, F f) {
  const spmat* a = run->p->acol;
  for (int32_t k = a->ptrb[j]; k < a->ptre[j]; ++k) {
    if (prslv_livecon(run, a->sub[k]) && !f(a->sub[k], a->val[k])) return;
  }
}

// The live element of a row or column that has one; {-1, 0} when there is none.
inline prslvelem prslv_onlyinrow(const prslvrun* run, int32_t i) {
  prslvelem found{-1, 0.0};
  prslv_eachinrow(run, i, [&](int32_t j, double a) {
    found = {j, a};
    return false;
  });
  return found;
}
inline prslvelem prslv_onlyincol(const prslvrun* run, int32_t j) {
  prslvelem found{-1, 0.0};
  prslv_eachincol(run, j, [&](int32_t i, double a) {
    found = {i, a};
    return false;
  });
  return found;
}

// The activity bounds of row i summed anew (updates drift where large terms came and went), stored in the run too.
struct prslvactivity {
  double low, up;
  int32_t nlow, nup;  // infinite terms
  double size;        // the largest magnitude of a finite term
};
prslvactivity prslv_freshactivity(prslvrun* run, int32_t i);

// Column j, alone in row i with coefficient a, has bounds that the row implies (or none): takes the row away, with the
// column where the row is or becomes fixed. *done tells whether anything happened.
int32_t prslv_freesingleton(prslvrun* run, int32_t i, int32_t j, double a, bool* done);

// Takes column j and all of its rows away if it costs nothing and moving it up (or down) far enough satisfies all of
// them. *done tells.
int32_t prslv_varforce(prslvrun* run, int32_t j, bool up, bool* done);

}  // namespace tarvo
