#include "prslv/dup.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace tarvo {

namespace {

double outside(const prslvbox& box, double x) {
  double out = 0.0;
  if (box.haslower) out = std::fmax(out, box.lower - x);
  if (box.hasupper) out = std::fmax(out, x - box.upper);
  return out;
}

int32_t boundkey(const prslvbox& box, bool upper) {
  return box.fixed ? PRSLV_SK_FIX : upper ? PRSLV_SK_UPR : PRSLV_SK_LOW;
}

// The key of a nonbasic value: that of a bound where it is at one.
int32_t nonbasickey(const prslvwalk* w, const prslvbox& box, double x, int32_t key) {
  if (!w->basic || key == PRSLV_SK_BAS) return key;
  if (box.haslower && std::fabs(x - box.lower) <= w->par->tol_x) return boundkey(box, false);
  if (box.hasupper && std::fabs(x - box.upper) <= w->par->tol_x) return boundkey(box, true);
  return key;
}

}  // namespace

prslvsplit prslv_split(const prslvwalk* w, double m, double z, int32_t key, const prslvbox& u, const prslvbox& v) {
  const double tol = w->par->tol_x * (1.0 + std::fabs(z));
  if (key == PRSLV_SK_FIX) {  // a bound of the sum: whichever is nearer
    const bool low = u.haslower && (m > 0.0 ? v.haslower : v.hasupper);
    const bool upp = u.hasupper && (m > 0.0 ? v.hasupper : v.haslower);
    const double lower = low ? u.lower + m * (m > 0.0 ? v.lower : v.upper) : 0.0;
    const double upper = upp ? u.upper + m * (m > 0.0 ? v.upper : v.lower) : 0.0;
    key = low && (!upp || std::fabs(z - lower) <= std::fabs(z - upper)) ? PRSLV_SK_LOW : PRSLV_SK_UPR;
  }
  const bool atbound = key == PRSLV_SK_LOW || key == PRSLV_SK_UPR;
  prslvsplit best{z, 0.0, key, PRSLV_SK_SUPBAS};
  const bool upper = key == PRSLV_SK_UPR, vupper = upper == (m > 0.0);
  if (atbound) {  // at a bound of the sum both parts are at theirs
    best.ukey = boundkey(u, upper);
    best.vkey = boundkey(v, vupper);
    if ((upper ? u.hasupper : u.haslower) && (vupper ? v.hasupper : v.haslower)) {
      best.v = vupper ? v.upper : v.lower;
      best.u = z - m * best.v;
      if (outside(u, best.u) <= tol) return best;
    }
  }
  // One part at a bound, the other takes the rest.
  double least = DBL_MAX;
  const auto consider = [&](const prslvbox& box, bool up, bool isu) {
    if (!(up ? box.hasupper : box.haslower) || least <= tol) return;
    const double x = up ? box.upper : box.lower;
    const double other = isu ? (z - x) / m : z - m * x;
    const double out = isu ? outside(v, other) * std::fabs(m) : outside(u, other);
    if (out >= least) return;
    least = out;
    best.u = isu ? x : other;
    best.v = isu ? other : x;
    if (atbound) return;
    best.ukey = isu ? boundkey(u, up) : nonbasickey(w, u, other, key);
    best.vkey = isu ? nonbasickey(w, v, other, key) : boundkey(v, up);
  };
  for (const bool isu : {true, false})
    for (const bool up : {false, true}) consider(isu ? u : v, up, isu);
  return best;
}

int32_t prslv_reserve(prslvrun* run, int32_t type, int64_t n) {
  if (n > INT32_MAX - 16) return PRSLV_SPACE;
  int32_t* ints = nullptr;
  double* doubles = nullptr;
  const auto size = static_cast<int32_t>(n) + 16;
  const int32_t result = prslv_beginpushstk(run, type, size, size, &ints, &doubles);
  if (result == PRSLV_OK) run->p->stack.busy = false;
  return result;
}

double prslv_firstlive(const prslvrun* run, int32_t j) {
  const spmat* a = run->p->acol;
  for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t)
    if (prslv_livecon(run, a->sub[t]) && a->val[t] != 0.0) return a->val[t];
  return 0.0;
}

bool prslv_inkeptrow(const prslvrun* run, int32_t j) {
  const spmat* a = run->p->acol;
  for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t)
    if (run->concla[a->sub[t]] == 0 && !prslv_livecon(run, a->sub[t])) return true;
  return false;
}

void prslv_sumbounds(double m, int32_t ubk, double ubl, double ubu, int32_t vbk, double vbl, double vbu, int32_t* bk,
                     double* bl, double* bu) {
  const bool low = prslv_lower(ubk) && (m > 0.0 ? prslv_lower(vbk) : prslv_upper(vbk));
  const bool upp = prslv_upper(ubk) && (m > 0.0 ? prslv_upper(vbk) : prslv_lower(vbk));
  *bl = low ? ubl + m * (m > 0.0 ? vbl : vbu) : -DBL_MAX;
  *bu = upp ? ubu + m * (m > 0.0 ? vbu : vbl) : DBL_MAX;
  *bk = prslv_keyof(low, upp);
}

}  // namespace tarvo
