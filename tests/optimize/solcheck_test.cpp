#include "optimize/solcheck.h"

#include <gtest/gtest.h>

#include <cmath>

#include "optimize/boundcheck.h"
#include "tarvo.h"

namespace tarvo {
namespace {

// minimise 10 + x0 + 2 x1 subject to x0 + x1 >= 2, x >= 0, with a point and multipliers that the members hold.
struct Small {
  int32_t ptrb[2] = {0, 1}, ptre[2] = {1, 2}, sub[2] = {0, 0}, bkc[1] = {TRV_BK_LO}, bkx[2] = {TRV_BK_LO, TRV_BK_LO};
  double val[2] = {1, 1}, c[2] = {1, 2}, cc[1] = {0}, blc[1] = {2}, buc[1] = {1e30}, blx[2] = {0, 0},
         bux[2] = {1e30, 1e30};
  double xc[1] = {1.5}, xx[2] = {0.5, 0.75}, y[1] = {1}, slc[1] = {1}, suc[1] = {0}, slx[2] = {0, 1}, sux[2] = {0, 0};
  CheckProblem problem() {
    CheckProblem p{};
    p.numcon = 1;
    p.numvar = 2;
    p.sign = 1.0;
    p.cfix = 10.0;
    p.c = c;
    p.cc = cc;
    p.aptrb = ptrb;
    p.aptre = ptre;
    p.asub = sub;
    p.aval = val;
    p.bkc = bkc;
    p.bkx = bkx;
    p.blc = blc;
    p.buc = buc;
    p.blx = blx;
    p.bux = bux;
    return p;
  }
  CheckSolution solution(int32_t prosta = 0, int32_t solsta = 0) {
    return {prosta, solsta, true, xc, xx, y, slc, suc, slx, sux, nullptr};
  }
};

Measures conic(const CheckProblem& p, const CheckSolution& s) {
  double row[4];
  Measures m{};
  opt_chksolconic(p, s, row, &m);
  return m;
}
Measures plain(const CheckProblem& p, const CheckSolution& s) {
  double row[4], col[4];
  Measures m{};
  opt_chksol(p, s, row, col, &m);
  return m;
}

TEST(SolutionCheck, MeasuresByHandBothWays) {
  Small lp;
  for (const Measures& m : {conic(lp.problem(), lp.solution()), plain(lp.problem(), lp.solution())}) {
    EXPECT_DOUBLE_EQ(m.primalobj, 12.0);
    EXPECT_DOUBLE_EQ(m.maxpeqi, 0.25);
    EXPECT_DOUBLE_EQ(m.maxpbi, 0.5);
    EXPECT_DOUBLE_EQ(m.dualobj, 12.0);
    EXPECT_DOUBLE_EQ(m.maxdbi, 0.0);
    EXPECT_DOUBLE_EQ(m.maxdeqi, 0.0);
  }
}

TEST(SolutionCheck, SignsAndMissingBoundsCountInTheDual) {
  Small lp;
  CheckProblem p = lp.problem();
  p.sign = -1.0;  // a maximisation wants multipliers below 0
  EXPECT_DOUBLE_EQ(conic(p, lp.solution()).maxdbi, 1.0);
  lp.bkx[1] = TRV_BK_FR;
  lp.slx[1] = 0.3;
  lp.slc[0] = 0.0;
  EXPECT_DOUBLE_EQ(conic(lp.problem(), lp.solution()).maxdbi, 0.3);
  // A row's multiplier of a missing bound counts in the conic form alone.
  lp.slx[1] = 0.0;
  lp.suc[0] = 0.4;
  EXPECT_DOUBLE_EQ(conic(lp.problem(), lp.solution()).maxdbi, 0.4);
  EXPECT_DOUBLE_EQ(plain(lp.problem(), lp.solution()).maxdbi, 0.0);
}

TEST(SolutionCheck, CertificatesDropWhatDoesNotCount) {
  Small lp;
  const Measures farkas = conic(lp.problem(), lp.solution(TRV_PRO_STA_PRIM_INFEAS, TRV_SOL_STA_PRIM_INFEAS_CER));
  EXPECT_DOUBLE_EQ(farkas.dualobj, 2.0);  // without the constant
  EXPECT_DOUBLE_EQ(farkas.maxdeqi, 2.0);  // 0 - 1 - slx
  const Measures ray = conic(lp.problem(), lp.solution(TRV_PRO_STA_DUAL_INFEAS, TRV_SOL_STA_DUAL_INFEAS_CER));
  EXPECT_DOUBLE_EQ(ray.primalobj, 2.0);
  EXPECT_DOUBLE_EQ(ray.maxpbi, 0.0);  // against bounds of 0
  EXPECT_DOUBLE_EQ(plain(lp.problem(), lp.solution(0, TRV_SOL_STA_DUAL_INFEAS_CER)).primalobj, 2.0);
}

TEST(SolutionCheck, ANanIsNoPerfectSolution) {
  Small lp;
  lp.xx[0] = NAN;
  lp.y[0] = NAN;
  const Measures m = conic(lp.problem(), lp.solution());
  EXPECT_TRUE(std::isnan(m.maxpbi) && std::isnan(m.maxpeqi) && std::isnan(m.maxdeqi));
}

// minimise 0.5 x'Qx + c'x, Q = (2 1; 1 3), with x0^2 + x0 + x1 in the row.
TEST(SolutionCheck, QuadraticTermsInObjectiveAndRow) {
  Small lp;
  const int32_t qsubi[] = {0, 1, 1, 0}, qsubj[] = {0, 0, 1, 0}, begin[] = {3}, end[] = {4};
  const double qval[] = {2, 1, 3, 2};
  CheckProblem p = lp.problem();
  p.qobjend = 3;
  p.qconbegin = begin;
  p.qconend = end;
  p.qsubi = qsubi;
  p.qsubj = qsubj;
  p.qval = qval;
  lp.xx[0] = 1.0;
  lp.xx[1] = 2.0;
  lp.xc[0] = 4.0;
  lp.y[0] = 2.0;
  const Measures m = plain(p, lp.solution());
  const double q = 0.5 * (2 * 1 + 2 * 1 * 2 + 3 * 4);
  EXPECT_DOUBLE_EQ(m.primalobj, 10 + q + 5);
  EXPECT_DOUBLE_EQ(m.maxpeqi, 0.0);  // 1 + 1 + 2
  // Columns: c + Qx - y Q1 x - A'y - slx = (1 + 4 - 4 - 2, 2 + 7 - 2 - 1); row: y - slc = 1.
  EXPECT_DOUBLE_EQ(m.maxdeqi, 6.0);
  EXPECT_DOUBLE_EQ(m.dualobj, 10 - q + 2 * 1 + 2 * 1);
  double xc[1];
  opt_compuxc(p, lp.xx, xc);
  EXPECT_DOUBLE_EQ(xc[0], 4.0);
}

TEST(SolutionCheck, ConesAndIntegers) {
  const int32_t members[] = {0, 1, 2};
  const double on[] = {1, 1, std::sqrt(2.0)}, off[] = {1, 1, 2}, quad[] = {-5, 3, 4}, negated[] = {5, 3, 4};
  EXPECT_NEAR(opt_coneviolation(TRV_CT_RQUAD, 3, members, 1.0, on), 0.0, 1e-15);
  EXPECT_NEAR(opt_coneviolation(TRV_CT_RQUAD, 3, members, 1.0, off), 2 - std::sqrt(2.0), 1e-15);
  EXPECT_DOUBLE_EQ(opt_coneviolation(TRV_CT_QUAD, 3, members, 1.0, quad), 10.0);
  EXPECT_DOUBLE_EQ(opt_coneviolation(TRV_CT_QUAD, 3, members, -1.0, quad), 0.0);  // the dual of a maximisation
  EXPECT_DOUBLE_EQ(opt_coneviolation(TRV_CT_QUAD, 3, members, -1.0, negated), 10.0);
  EXPECT_DOUBLE_EQ(opt_integerviolation(2.25), 0.25);
  EXPECT_DOUBLE_EQ(opt_integerviolation(-2.25), 0.25);
}

TEST(BoundCheck, CrossingBoundsProveInfeasibility) {
  const int32_t bkc[] = {TRV_BK_LO}, bkx[] = {TRV_BK_RA, TRV_BK_FR, TRV_BK_UP};
  const double blc[] = {1}, buc[] = {1e30}, bux[] = {1, 1e30, 4};
  double blx[] = {1 + 1e-9, -1e30, -1e30};
  int32_t skc[1], skx[3];
  double xc[1], slc[1], suc[1], xx[3], slx[3], sux[3], y[1] = {7};
  const BoundSide rows{1, bkc, blc, buc, skc, xc, slc, suc}, columns{3, bkx, blx, bux, skx, xx, slx, sux};
  EXPECT_FALSE(opt_boundcheck(1e-8, rows, columns, y));
  EXPECT_EQ(y[0], 7.0);
  blx[0] = 3;
  ASSERT_TRUE(opt_boundcheck(1e-8, rows, columns, y));
  EXPECT_EQ(skx[0], TRV_SK_INF);
  EXPECT_EQ(skx[1], TRV_SK_SUPBAS);
  EXPECT_EQ(skx[2], TRV_SK_UPR);
  EXPECT_EQ(skc[0], TRV_SK_LOW);
  EXPECT_EQ(slx[0], 1.0);
  EXPECT_EQ(sux[0], 1.0);
  EXPECT_EQ(slc[0] + suc[0] + y[0] + slx[1] + sux[2], 0.0);
}

}  // namespace
}  // namespace tarvo
