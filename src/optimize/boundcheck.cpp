#include "optimize/boundcheck.h"

#include <algorithm>

#include "tarvo.h"

namespace tarvo {

namespace {

bool crosses(const BoundSide& side, int32_t k, double tol) {
  constexpr double inf = 1e30;
  const int32_t bk = side.bk[k];
  const double bl = bk == TRV_BK_UP || bk == TRV_BK_FR ? -inf : side.bl[k];
  const double bu = bk == TRV_BK_LO || bk == TRV_BK_FR ? inf : side.bu[k];
  return bl - tol > bu || bl >= inf || bu <= -inf;
}

bool any_crosses(const BoundSide& side, double tol) {
  for (int32_t k = 0; k < side.count; ++k)
    if (crosses(side, k, tol)) return true;
  return false;
}

int32_t key_of_bounds(int32_t bk) {
  switch (bk) {
    case TRV_BK_LO:
    case TRV_BK_RA:
      return TRV_SK_LOW;
    case TRV_BK_UP:
      return TRV_SK_UPR;
    case TRV_BK_FX:
      return TRV_SK_FIX;
    default:
      return TRV_SK_SUPBAS;
  }
}

void write_certificate(const BoundSide& side, double tol) {
  for (int32_t k = 0; k < side.count; ++k) {
    const bool proof = crosses(side, k, tol);
    side.sk[k] = proof ? TRV_SK_INF : key_of_bounds(side.bk[k]);
    side.x[k] = 0.0;
    side.sl[k] = side.su[k] = proof ? 1.0 : 0.0;
  }
}

}  // namespace

bool opt_boundcheck(double tol, const BoundSide& rows, const BoundSide& columns, double* y) {
  if (!any_crosses(rows, tol) && !any_crosses(columns, tol)) return false;
  write_certificate(rows, tol);
  write_certificate(columns, tol);
  std::fill_n(y, rows.count, 0.0);
  return true;
}

}  // namespace tarvo
