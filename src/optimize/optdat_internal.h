// What the parts of the canonical preparation share.
#pragma once

#include <cmath>

#include "optimize/optdat.h"

namespace tarvo {

// The key that the bounds deserve: a range without a width is fixed.
inline int32_t opt_key(int32_t bk, double bl, double bu) { return bk == PRSLV_BK_RA && bl >= bu ? PRSLV_BK_FX : bk; }
inline int32_t opt_rowkey(const OptProblem& p, int32_t i) { return opt_key(p.bkc[i], p.blc[i], p.buc[i]); }
inline int32_t opt_colkey(const OptProblem& p, int32_t j) { return opt_key(p.bkx[j], p.blx[j], p.bux[j]); }
inline double opt_rowcost(const OptProblem& p, int32_t i) { return p.cc == nullptr ? 0.0 : p.cc[i]; }

// A column in terms of the canonical one: given = shift + sign * canonical, canonical <= width where there are two
// bounds.
struct OptShift {
  double shift, sign;
};
inline OptShift opt_colshift(const OptProblem& p, int32_t j) {
  switch (opt_colkey(p, j)) {
    case PRSLV_BK_FR:
      return {0.0, 1.0};
    case PRSLV_BK_UP:
      return {p.bux[j], -1.0};
    case PRSLV_BK_RA:
      return std::fabs(p.bux[j]) < std::fabs(p.blx[j]) ? OptShift{p.bux[j], -1.0} : OptShift{p.blx[j], 1.0};
    default:
      return {p.blx[j], 1.0};
  }
}
// The slack t of a row that is not free: activity = sign * -(shift + t), with the element `sign` in its row.
inline OptShift opt_rowshift(const OptProblem& p, int32_t i) {
  const int32_t key = opt_rowkey(p, i);
  const bool upper = key == PRSLV_BK_UP || (key == PRSLV_BK_RA && std::fabs(p.buc[i]) < std::fabs(p.blc[i]));
  return upper ? OptShift{-p.buc[i], 1.0} : OptShift{p.blc[i], -1.0};
}

// A certificate counts all bounds and costs as 0.
inline double opt_factor(int32_t prosta) { return prosta >= 4 && prosta <= 6 ? 0.0 : 1.0; }

// Memory of the canonical problem once its sizes stand: rnumcon, rnumvar, nblo, nbup, nfree. `nz` is the matrix's.
[[nodiscard]] bool opt_allocate(odat* record, int64_t nz);
// Enters column k into its class (bounded when width >= 0); `at` are the next places of the three classes.
struct OptClasses {
  int32_t lower, both, free, begin;
};
OptClasses opt_classes(const odat& record);
void opt_enter(odat* record, OptClasses* at, int32_t k, bool isfree, double width);

// Decides between the two forms of a linear problem and builds the dual when it is taken (record->isdual) or when the
// reduction finds the answer (record->settled).
int32_t opt_preparedual(const OptOptions& options, const OptProblem& problem, odat* record);

// One walk of the way back: the interior or the basic solution.
struct OptWalk {
  const OptProblem* problem;
  const odat* record;
  const OptSolution* from;
  const int32_t* key;  // [rnumvar] BAS or SUPBAS, LOW, UPR
  const double* z;     // [rnumvar] multiplier of the lower bound
  const double* zup;   // [nbup] of the upper one
  prslvsol* to;
  bool basic;
  double s;  // 0 in a certificate
};
// The dual case of opt_reverse: keys, xc, xx, y and all bound multipliers.
void opt_getdualsol(const OptWalk& walk);
int32_t opt_getdualbas(const OptWalk& walk, int32_t nart, const int32_t* artlist);

// xc = A xx.
void opt_activities(const OptProblem& problem, const double* xx, double* xc);

}  // namespace tarvo
