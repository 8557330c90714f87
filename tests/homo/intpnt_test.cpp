// The conic optimiser from inside: its Newton directions and the algebra of its cones.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "homo/intpnt_internal.h"

namespace {

using namespace tarvo;
using Reals = std::vector<double>;

class Intpnt : public testing::Test {
 protected:
  void SetUp() override { env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr); }
  void TearDown() override { EXPECT_EQ(sysenv_delete(&env), SYS_OK); }

  double uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(random); }
  // A point inside a quadratic cone, about as near to its boundary as `margin` of its head.
  void interior(double* x, int32_t k, double margin) {
    double norm = 0;
    for (int32_t i = 1; i < k; ++i) {
      x[i] = uniform(-1, 1);
      norm += x[i] * x[i];
    }
    x[0] = std::sqrt(norm) * (1 + margin);
  }

  sysenv* env = nullptr;
  std::mt19937 random{11};
};

// Lower-bounded, upper-bounded and free columns, a small and a large quadratic cone, a small and a large rotated one.
struct Problem {
  static constexpr int32_t m = 9, nb = 8, nu = 3, nf = 3;
  std::vector<int32_t> cnebeg = {11, 13, 25, 28, 40}, conetype = {INTPNT_QUAD, INTPNT_QUAD, INTPNT_RQUAD, INTPNT_RQUAD};
  Reals c, b, u;
  spmat* a = nullptr;
  IntpntProblem problem{};
};

TEST_F(Intpnt, DirectionsSolveTheNewtonEquations) {
  Problem p;
  const int32_t n = p.cnebeg.back();
  p.a = spmat_make(env, n, Problem::m);
  ASSERT_TRUE(spmat_alloc(p.a, n * Problem::m));
  spmat_putnvec(p.a, n);
  spmat_putvlen(p.a, Problem::m);
  int32_t put = 0;
  for (int32_t j = 0; j < n; ++j) {
    p.a->ptrb[j] = put;
    for (int32_t i = 0; i < Problem::m; ++i)
      if (uniform(0, 1) < 0.4) {
        p.a->sub[put] = i;
        p.a->val[put++] = uniform(-3, 3);
      }
    p.a->ptre[j] = put;
    p.c.push_back(uniform(-2, 2));
  }
  for (int32_t i = 0; i < Problem::m; ++i) p.b.push_back(uniform(-2, 2));
  for (int32_t i = 0; i < Problem::nu; ++i) p.u.push_back(uniform(1, 2));
  p.problem = {Problem::m, n,   Problem::nb, Problem::nu,     Problem::nf,      4, p.c.data(), p.b.data(),
               p.u.data(), 0.0, p.a,         p.cnebeg.data(), p.conetype.data()};
  IntpntState* h = intpnt_make(env, IntpntParams{}, p.problem, HomEvents{});
  int32_t resp = -1;
  h->kkt = symles_make(h, &resp);
  ASSERT_EQ(resp, HOM_RESP_OK);

  for (const double margin : {1.0, 1e-3, 1e-5}) {
    intpnt_start(h);
    IntpntVec& q = h->point;
    for (int32_t j = 0; j < n; ++j) {
      q.x[j] = j < Problem::nb || j >= h->l0 ? uniform(0.1, 2) : uniform(-1, 1);
      q.s[j] = j < Problem::nb || j >= h->l0 ? uniform(0.1, 2) : 0.0;
    }
    for (double* list : {q.xup, q.sup})
      for (int32_t i = 0; i < Problem::nu; ++i) list[i] = uniform(0.1, 2);
    for (int32_t i = 0; i < Problem::nu; ++i) q.yup[i] = uniform(-1, 1);
    for (int32_t i = 0; i < Problem::m; ++i) q.y[i] = uniform(-1, 1);
    for (int32_t k = 0; k < 4; ++k) {
      const int32_t beg = p.cnebeg[static_cast<std::size_t>(k)], len = p.cnebeg[static_cast<std::size_t>(k) + 1] - beg;
      interior(q.x + beg, len, margin);
      // On the side of the boundary where x's is small.
      for (int32_t i = 1; i < len; ++i) q.s[beg + i] = -q.x[beg + i] * 0.7;
      q.s[beg] = 0.7 * q.x[beg] * (1 + margin);
    }
    q.tau = 0.7;
    q.kappa = 0.4;
    intpnt_inititer(h);
    ASSERT_TRUE(intpnt_initscaling(h));
    ASSERT_EQ(symles_numericalfactor(h), KKT_OK);
    const auto expect_solved = [&](const IntpntTarget& target) {
      const IntpntResiduals r = intpnt_improvesearch(h, target);
      EXPECT_LT(r.primal, 1e-10) << margin;
      EXPECT_LT(r.dual, 1e-10) << margin;
      EXPECT_LT(r.gap, 1e-10) << margin;
      EXPECT_LT(r.comp, 1e-10 / std::sqrt(margin)) << margin;  // v has the size of the margin's root
    };
    intpnt_initsearch(h);
    expect_solved({1.0, 0.0, false});
    // Along the affine direction all products fall together, for the model is its own dual.
    double cross = h->dir.tau * h->dir.kappa;
    for (int32_t j = 0; j < n; ++j) cross += h->dir.x[j] * h->dir.s[j];
    for (int32_t i = 0; i < Problem::nu; ++i) cross += h->dir.xup[i] * h->dir.sup[i];
    EXPECT_NEAR(cross, 0.0, 1e-9);
    intpnt_stepsize(h, true, 1.0, 1.0, 0.0);
    intpnt_secondorder(h);
    const IntpntTarget corrected{0.9, 0.1 * h->mea.mu, true};
    intpnt_formsearch(h, corrected);
    expect_solved(corrected);
  }
  intpnt_delete(&h);
  spmat_delete(&p.a);
}

TEST_F(Intpnt, ScalingTakesBothPointsToOne) {
  for (const double margin : {1.0, 1e-4, 1e-8}) {
    constexpr int32_t k = 6;
    double x[k], s[k], f[k], v[k], w[k], back[k];
    interior(x, k, margin);
    interior(s, k, 0.5);
    const auto q = [](const double* z) {
      long double sum = static_cast<long double>(z[0]) * z[0];
      for (int32_t i = 1; i < k; ++i) sum -= static_cast<long double>(z[i]) * z[i];
      return static_cast<double>(sum);
    };
    IntpntScale scale{};
    ASSERT_TRUE(intpnt_conescale(k, x, s, q(x), q(s), f, v, &scale));
    intpnt_timesw(k, f, x, w);
    intpnt_timeswinv(k, f, w, back);
    intpnt_timeswinv(k, f, s, s);
    const double size = std::fabs(v[0]);
    for (int32_t i = 0; i < k; ++i) {
      EXPECT_NEAR(back[i], x[i], 1e-7);
      EXPECT_NEAR(w[i] * std::sqrt(scale.th), v[i], 1e-6 * size);
      EXPECT_NEAR(s[i] / std::sqrt(scale.th), v[i], 1e-6 * size);
    }
    // The way to the boundary: v + a d leaves the cone at -vv / lo.
    double d[k] = {-0.3, 0.5, -1, 0.2, 0.1, 0.7}, at[k], lo = 0, hi = 0;
    intpnt_coneway(k, v, scale.vv, d, &lo, &hi);
    const double a = -scale.vv / lo;
    ASSERT_GT(a, 0);
    for (int32_t i = 0; i < k; ++i) at[i] = v[i] + a * d[i];
    EXPECT_NEAR(q(at), 0.0, 1e-9 * (1 + at[0] * at[0]));
    EXPECT_GE(at[0], 0);
    // v o z = r
    double z[k], e[k];
    intpnt_arrowsolve(k, v, scale.vv, d, z);
    intpnt_arrowprod(k, v, z, e);
    for (int32_t i = 0; i < k; ++i) EXPECT_NEAR(e[i], d[i], 1e-7);
  }
}

}  // namespace
