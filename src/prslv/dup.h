// What the duplicate rows and the duplicate columns share: a group of parallel vectors, and the undo of putting two
// things together as one.
#pragma once

#include "cpub/dupvec.h"
#include "prslv/prslv_internal.h"

namespace tarvo {

// Bounds of a row or column on the way back, rays having 0 for any bound.
struct prslvbox {
  bool haslower, hasupper, fixed;
  double lower, upper;
};
inline prslvbox prslv_box(const prslvwalk* w, int32_t bk, double bl, double bu) {
  const bool low = prslv_lower(bk), upp = prslv_upper(bk);
  return {low, upp, bk == PRSLV_BK_FX, low ? w->f_p * bl : 0.0, upp ? w->f_p * bu : 0.0};
}

// z = u + m v stood for u and v: in a solution with value z and key `key` for it, gives both their values and keys,
// each within its box, with as many basic keys as z had.
struct prslvsplit {
  double u, v;
  int32_t ukey, vkey;
};
prslvsplit prslv_split(const prslvwalk* w, double m, double z, int32_t key, const prslvbox& u, const prslvbox& v);

// The bounds of u + m v.
void prslv_sumbounds(double m, int32_t ubk, double ubl, double ubu, int32_t vbk, double vbl, double vbu, int32_t* bk,
                     double* bl, double* bu);

// The two parts of the multiplier of z, as they fall to u and v: z's bounds are those of both.
inline void prslv_splitdual(double m, double lower, double upper, double* vlower, double* vupper) {
  *vlower = m > 0.0 ? m * lower : -m * upper;
  *vupper = m > 0.0 ? m * upper : -m * lower;
}

// Parallel vectors whose factors are further apart than this are let alone: values come back divided by them.
constexpr double prslv_maxmultiplier = 1e4;

// Makes room for records of n integers and n doubles in all, so that none of them can fail between changes.
int32_t prslv_reserve(prslvrun* run, int32_t type, int64_t n);

// The first coefficient of column j in a live row.
double prslv_firstlive(const prslvrun* run, int32_t j);
// A free row that is not linear keeps its elements: a column in one can't be judged by its cost alone.
bool prslv_inkeptrow(const prslvrun* run, int32_t j);

// Where many long columns are parallel and cost differently, gives a free row to each such group, see duptrans.cpp.
int32_t prslv_dupvartransform(prslvrun* run, const dupgroups& groups);

constexpr int32_t prslv_keyof(bool low, bool upp) {
  return low ? (upp ? PRSLV_BK_RA : PRSLV_BK_LO) : upp ? PRSLV_BK_UP : PRSLV_BK_FR;
}

}  // namespace tarvo
