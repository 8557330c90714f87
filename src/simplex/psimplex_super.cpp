// At the optimum, superbasic variables are driven to a bound (a free one to zero) or into the basis.
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

int32_t psimplex_rmsuperbasics(PrimalSimplex* s) {
  int32_t moved = 0;
  for (int32_t j = 0; j < s->nn && s->resp == 0; ++j) {
    if (s->stat[j] != PS_SUPER) continue;
    const bool isfree = s->lo[j] == -simplex_inf && s->up[j] == simplex_inf;
    if (isfree && s->x[j] == 0.0) continue;
    ++moved;
    s->enter = j;
    // Towards the nearer bound; for the time of the move zero is the bound of a free variable.
    if (isfree) {
      s->dir = s->x[j] > 0.0 ? -1.0 : 1.0;
      s->lo[j] = s->up[j] = 0.0;
    } else {
      s->dir = s->x[j] - s->lo[j] <= s->up[j] - s->x[j] ? -1.0 : 1.0;
    }
    psimplex_ftran(s, j);
    const bool found = psimplex_stepsize(s);
    const double bound = s->dir > 0.0 ? s->up[j] : s->lo[j];
    if (isfree) {
      s->lo[j] = -simplex_inf;
      s->up[j] = simplex_inf;
    }
    if (found && s->flip) {
      psimplex_updatesolution(s);
      s->x[j] = bound;
      s->stat[j] = isfree ? PS_SUPER : s->dir > 0.0 ? PS_UPPER : PS_LOWER;
    } else if (found) {
      psimplex_updatesolution(s);
      psimplex_changebasis(s);
      ++s->iter;
      s->w[j] = 1.0;
      if (s->refactor) psimplex_factor(s);
    }
    psimplex_clear(&s->alpha);
    psimplex_clear(&s->spike);
  }
  return moved;
}

}  // namespace tarvo
