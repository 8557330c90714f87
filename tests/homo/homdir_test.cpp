// Directions, correctors and steps of the linear homogeneous optimiser in random interior states.
#include <algorithm>
#include <cmath>

#include "homo/hom_state.h"

namespace tarvo {
namespace {

struct Shape {
  int32_t m, nb, nu, nf;
};

class HomDirection : public testing::TestWithParam<Shape> {
 protected:
  HomDirection() : state(GetParam().m, GetParam().nb, GetParam().nu, GetParam().nf, 7), h(&state.h) {}

  // The largest of all eight residuals, pairs and cone included.
  double worst(const HomTarget& target, const HomVec& dir) {
    double inf = 0.0;
    const double norm = hom_computeresiduals(h, target, dir, &h->res, &inf);
    EXPECT_LE(inf, norm * (1.0 + 1e-12));
    for (int32_t j = 0; j < h->n; ++j) inf = std::max(inf, std::abs(h->res.s[j]));
    for (int32_t i = 0; i < h->nu; ++i) inf = std::max(inf, std::abs(h->res.yup[i]));
    return std::max({inf, std::abs(h->res.kappa), std::abs(h->res.sf)});
  }
  HomTarget corrected() {
    hom_corterms(h, h->affine, &h->cor);
    return {.eta = 0.9, .mut = 0.1 * h->mu, .cor = &h->cor};
  }

  test::RandomState state;
  HomState* h;
};

constexpr HomTarget affine{.eta = 1.0, .mut = 0.0};

TEST_P(HomDirection, SolvesTheEightRows) {
  state.factor(0);
  hom_computesearch(h, affine, &h->affine);
  EXPECT_LT(worst(affine, h->affine), 1e-10);
  EXPECT_NEAR(hom_dxds(h, h->affine), 0.0, 1e-10);
  const HomTarget target = corrected();
  hom_computesearch(h, target, &h->dir);
  EXPECT_LT(worst(target, h->dir), 1e-10);
  // x'ds + s'dx of all pairs is what their right-hand sides sum up to; a cone counts once.
  double sum = h->cgapf - (h->nf > 0 ? std::sqrt(h->xqxf * h->sqsf) : 0.0) + hom_dxds(h, h->affine);
  EXPECT_NEAR(hom_xds(h, h->dir), h->n_c * target.mut - sum, 1e-10);
  // A correction on top of a direction.
  const HomTarget extra{.eta = 0.0, .mut = 0.05, .products = false, .cor = &h->cor};
  hom_computesearch(h, extra, &h->cordir);
  EXPECT_LT(worst(extra, h->cordir), 1e-10);
}

TEST_P(HomDirection, RefinesWhatTheRegularisationSpoils) {
  for (const int32_t level : {1, 2, 3}) {
    h->reguomega = 1e-6;
    state.factor(level);
    ASSERT_TRUE(hom_computesearchr(h, affine, &h->affine));
    EXPECT_LT(worst(affine, h->affine), 1e-7 * h->meritfeas2f) << level;
    const HomTarget target = corrected();
    ASSERT_TRUE(hom_computesearchr(h, target, &h->dir));
    EXPECT_LT(worst(target, h->dir), 1e-7 * h->meritfeas2f) << level;
  }
}

TEST_P(HomDirection, StepStaysInsideAndReducesResiduals) {
  state.factor(0);
  hom_computesearch(h, affine, &h->affine);
  const HomTarget target = corrected();
  hom_computesearch(h, target, &h->dir);
  const double frac = 0.9999, beta = 1e-4, gamma = 0.1;
  const HomSteps limits = hom_steplimits(h, 1.0 / frac, h->dir);
  const double t = hom_neighbourstep(h, limits, gamma, frac, beta, false, h->dir);
  ASSERT_GT(t, 0.0);
  EXPECT_LE(t, 1.0);
  const double rp = h->pfeasf, rd = h->dfeasf, rg = h->gfeasf,
               low = (1.0 - (1.0 - gamma) * t) * h->cgapf * beta / h->n_c;
  hom_takestep(h, t, h->dir);
  const double xqxf = h->xqxf, sqsf = h->sqsf;
  hom_inititer(h);
  const double left = 1.0 - target.eta * t;
  EXPECT_NEAR(h->pfeasf, left * rp, 1e-10);
  EXPECT_NEAR(h->dfeasf, left * rd, 1e-10);
  EXPECT_NEAR(h->gfeasf, left * rg, 1e-10);
  EXPECT_GE(h->lpval * h->mu, low);
  if (h->nf == 0) return;
  const HomVec& p = h->point;
  double xx = p.xf * p.xf, ss = p.sf * p.sf;
  for (int32_t j = h->nb; j < h->n; ++j) {
    xx -= p.x[j] * p.x[j];
    ss -= p.s[j] * p.s[j];
  }
  EXPECT_NEAR(xx, xqxf, 1e-10);
  EXPECT_NEAR(ss, sqsf, 1e-10);
}

TEST_P(HomDirection, CorrectorsLengthenTheStep) {
  for (int32_t i = 0; i < h->nb; i += 3) h->point.s[i] *= 1e-3;
  h->par.tolpath = 1e-8;
  hom_inititer(h);
  state.factor(0);
  hom_computesearch(h, affine, &h->affine);
  const HomTarget target = corrected();
  hom_computesearch(h, target, &h->dir);
  const HomSteps before = hom_steplimits(h, 1.0, h->dir);
  h->maxncor = 5;
  hom_mulcor2(h, 0.1, 1e-6, &h->dir);
  const HomSteps after = hom_steplimits(h, 1.0, h->dir);
  EXPECT_GE(std::min(after.primal, after.dual), std::min(before.primal, before.dual));
  double inf = 0.0;
  EXPECT_LT(hom_computeresiduals(h, target, h->dir, &h->res, &inf), 1e-10);  // they leave rows 1 to 5 alone
  if (h->nb == 0) return;
  // A neighbourhood that the point is not in: no correction, and no harm.
  h->par.tolpath = 0.9999;
  const double tau = h->dir.tau;
  hom_mulcor2(h, 0.1, 0.9999, &h->dir);
  EXPECT_EQ(h->dir.tau, tau);
}

INSTANTIATE_TEST_SUITE_P(Shapes, HomDirection,
                         testing::Values(Shape{6, 14, 5, 4}, Shape{6, 14, 0, 3}, Shape{5, 12, 6, 0}, Shape{4, 9, 0, 0},
                                         Shape{0, 5, 2, 0}, Shape{0, 3, 0, 2}, Shape{3, 0, 0, 5},
                                         Shape{30, 70, 70, 9}));

}  // namespace
}  // namespace tarvo
