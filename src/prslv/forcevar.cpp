// Forcing columns: one that costs nothing and, moved far enough, satisfies all of its rows. Its requirement on the
// multipliers is tight with each of them at its bound, so the rows go with it: the dual counterpart of a forcing row.
#include <algorithm>
#include <cfloat>

#include "prslv/checks.h"

namespace tarvo {

// A cost of this size relative to its parts is 0.
constexpr double nocost = 1e-13;

int32_t prslv_varforce(prslvrun* run, int32_t j, bool up, bool* done) {
  prslvprob* p = run->p;
  *done = false;
  double cost = p->cx[j], size = std::fabs(cost);
  int64_t nelems = 0;
  int32_t n = 0;
  bool ok = run->varcla[j] != 0 && run->varnz[j] > 0 && !(up ? prslv_upper(p->bkx[j]) : prslv_lower(p->bkx[j]));
  // Moving x_j relaxes each row without end, and no row's multiplier but -cc is in sight.
  prslv_eachincol(run, j, [&](int32_t i, double a) {
    const int32_t wanted = (a > 0.0) == up ? PRSLV_BK_LO : PRSLV_BK_UP;
    ok = ok && a != 0.0 && std::fabs(a) >= 1e-3 && run->concla[i] != 0 && p->bkc[i] == wanted;
    cost += a * p->cc[i];
    size = std::max(size, std::fabs(a * p->cc[i]));
    nelems += run->connz[i];
    ++n;
    return ok;
  });
  const double start = prslv_lower(p->bkx[j]) ? p->blx[j] : (prslv_upper(p->bkx[j]) ? p->bux[j] : 0.0);
  if (!ok || std::fabs(cost) > nocost * size || std::fabs(start) > prslv_hugebound) return PRSLV_OK;
  if (2 * nelems + 4 + 3 * int64_t{n} > INT32_MAX) return PRSLV_OK;

  int32_t* ints;
  double* doubles;
  const int32_t res = prslv_beginpushstk(run, PRSLV_FORCING_VAR, static_cast<int32_t>(4 + 3 * n + nelems),
                                         static_cast<int32_t>(2 + 3 * n + nelems), &ints, &doubles);
  if (res != PRSLV_OK) return res;
  int32_t* pi = ints;
  double* pd = doubles;
  *pi++ = j;
  *pi++ = p->bkx[j];
  *pi++ = up ? 1 : 0;
  *pi++ = n;
  *pd++ = p->blx[j];
  *pd++ = p->bux[j];
  prslv_eachincol(run, j, [&](int32_t i, double) {
    *pi++ = i;
    *pi++ = p->bkc[i];
    *pi++ = run->connz[i];
    *pd++ = p->blc[i];
    *pd++ = p->buc[i];
    *pd++ = p->cc[i];
    return true;
  });
  // Each row's elements, that of column j first.
  prslv_eachincol(run, j, [&](int32_t i, double a) {
    *pi++ = j;
    *pd++ = a;
    prslv_eachinrow(run, i, [&](int32_t k, double b) {
      if (k != j) {
        *pi++ = k;
        *pd++ = b;
      }
      return true;
    });
    return true;
  });
  if (pi - ints != 4 + 3 * n + nelems) prslv_fatal(p->env, "A row of a forcing column is not as long as counted");
  prslv_endpushstk(run, &ints, &doubles);

  const spmat* acol = p->acol;
  for (int32_t k = acol->ptrb[j]; k < acol->ptre[j]; ++k) {
    const int32_t i = acol->sub[k];
    if (!prslv_livecon(run, i)) continue;
    prslv_eachinrow(run, i, [&](int32_t c, double b) {
      p->cx[c] += p->cc[i] * b;
      return true;
    });
    p->cc[i] = 0.0;
    prslv_removecon(run, i);
    ++run->stat->forcevarcon;
  }
  prslv_removevar(run, j, start);
  ++run->stat->forcevar;
  *done = true;
  return PRSLV_OK;
}

int32_t prslv_undoforcingvar(prslvwalk* w, int32_t /*type*/, const int32_t* ints, int32_t /*nints*/,
                             const double* doubles, int32_t /*ndoubles*/) {
  const int32_t j = ints[0], n = ints[3];
  const bool up = ints[2] != 0;
  prslvsol* s = w->sol;
  const int32_t* rows = ints + 4;  // index, key, size
  const double* rowdata = doubles + 2;
  const int32_t* subs = rows + 3 * n;
  const double* vals = rowdata + 3 * n;

  w->bkx[j] = ints[1];
  w->blx[j] = doubles[0];
  w->bux[j] = doubles[1];
  double x = prslv_lower(w->bkx[j]) ? w->f_p * w->blx[j] : (prslv_upper(w->bkx[j]) ? w->f_p * w->bux[j] : 0.0);
  int32_t blocker = -1;

  // Move x_j until the last row is satisfied: that row is at its bound, and x_j is basic in its place.
  int64_t pos = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = rows[3 * k], size = rows[3 * k + 2];
    w->bkc[i] = rows[3 * k + 1];
    w->blc[i] = rowdata[3 * k];
    w->buc[i] = rowdata[3 * k + 1];
    w->cc[i] = rowdata[3 * k + 2];
    double rest = 0.0;
    for (int64_t e = pos; e < pos + size; ++e) {
      w->cx[subs[e]] -= w->cc[i] * vals[e];
      if (e != pos) rest += vals[e] * s->xx[subs[e]];
    }
    const double a = vals[pos];
    const double needed = (w->f_p * (w->bkc[i] == PRSLV_BK_LO ? w->blc[i] : w->buc[i]) - rest) / a;
    if (up ? needed > x : needed < x) {
      x = needed;
      blocker = i;
    }
    s->xc[i] = rest;
    pos += size;
  }
  pos = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = rows[3 * k];
    s->xc[i] += vals[pos] * x;
    s->y[i] = -w->f_d * w->cc[i];
    s->slc[i] = s->suc[i] = 0.0;
    s->skc[i] = prslv_walkbasic(w);
    pos += rows[3 * k + 2];
  }
  s->xx[j] = x;
  s->slx[j] = s->sux[j] = 0.0;
  s->skx[j] = prslv_walkbasic(w);
  if (w->basic) {
    if (blocker >= 0) {
      s->skc[blocker] = w->bkc[blocker] == PRSLV_BK_LO ? PRSLV_SK_LOW : PRSLV_SK_UPR;
    } else {
      s->skx[j] = w->bkx[j] == PRSLV_BK_FR ? PRSLV_SK_SUPBAS : (prslv_lower(w->bkx[j]) ? PRSLV_SK_LOW : PRSLV_SK_UPR);
    }
  }
  return PRSLV_OK;
}

}  // namespace tarvo
