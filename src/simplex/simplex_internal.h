// What the simplex optimisers share behind the doors of simplex.h: factorisation with repair and
// the random stream.
#pragma once

#include <cmath>

#include "simplex/simplex.h"

namespace tarvo {

inline constexpr double simplex_inf = HUGE_VAL;  // a bound that is not there, inside the optimisers

inline bool simplex_haslower(int32_t bk) { return bk == SIM_BK_LO || bk == SIM_BK_FX || bk == SIM_BK_RA; }
inline bool simplex_hasupper(int32_t bk) { return bk == SIM_BK_UP || bk == SIM_BK_FX || bk == SIM_BK_RA; }

// The only source of randomness: runs repeat exactly. In (0, 1].
inline double simplex_rand(int32_t* seed) {
  *seed = static_cast<int32_t>((int64_t{*seed} * 32719 + 3) % 32749);
  return (*seed + 1) / 32749.0;
}

// After trouble with a fresh factor: true when its size of entries is suspicious; stricter pivoting is then set and the
// caller factorises again.
bool simplex_lustability(lu* factor);
// Stricter pivoting from the next factorisation on, after a doubt about the factor.
void simplex_raiserelpiv(lu* factor);

// The reduced costs of y: sc = cc + y, sx = cx - A'y; for a certificate of infeasibility without the costs.
void simplex_forms(const SimplexProblem& p, bool withcost);

}  // namespace tarvo
