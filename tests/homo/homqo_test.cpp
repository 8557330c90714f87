// The directions of the quadratic optimiser in a random interior state, and its certificates of a Q that is not convex.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "homo/hom_internal.h"

namespace tarvo {
namespace {

struct Shape {
  int32_t m, nb, nu, nf;
  bool diagonal;
};

// A state with all its vectors, a random problem and a random interior point.
class QuadraticState : public testing::TestWithParam<Shape> {
 protected:
  void SetUp() override {
    const auto [m, nb, nu, nf, diagonal] = GetParam();
    env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
    h.env = env;
    h.m = m;
    h.n = nb + nf;
    h.nb = nb;
    h.nu = nu;
    h.useh = diagonal;
    const std::size_t size = static_cast<std::size_t>(m + h.n + 1);
    for (HomVec* v : {&h.point, &h.saved, &h.dir, &h.affine, &h.cordir, &h.rhs, &h.res})
      for (double** part : {&v->x, &v->s, &v->xup, &v->yup, &v->sup, &v->y}) *part = vec(size);
    for (double** part :
         {&h.c,    &h.b,   &h.u,   &h.qdiag, &h.qx,   &h.rp,       &h.rpu,    &h.rd,      &h.rdu, &h.d,
          &h.dinv, &h.rx,  &h.ru,  &h.cbar,  &h.chat, &h.dc,       &h.g,      &h.g2,      &h.h,   &h.wn1,
          &h.wn2,  &h.wn3, &h.wm1, &h.wu1,   &h.vf,   &h.cor.pair, &h.cor.up, &h.cor.cone})
      *part = vec(size);
    matrix();
    for (double* data : {h.c, h.b}) randomise(data, data == h.c ? h.n : m, false);
    randomise(h.u, nu, true);
    HomVec& p = h.point;
    for (const auto& [data, count] : {std::pair{p.x, nb}, {p.s, nb}, {p.xup, nu}, {p.sup, nu}})
      randomise(data, count, true);
    randomise(p.x + nb, nf, false);
    randomise(p.y, m, false);
    randomise(p.yup, nu, false);
    p.tau = 0.7;
    p.kappa = 1.3;
    h.n_c = nb + nu + 1;
    ASSERT_EQ(kktfac_autosetup(h.kkt, a, nullptr, h.nq, h.qi, h.qj), KKT_OK);
    hom_inititer(&h);
  }
  void TearDown() override {
    kktfac_delete(&h.kkt);
    spmat_delete(&a);
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
  }

  double* vec(std::size_t size) { return store.emplace_back(size, 0.0).data(); }
  double real(bool positive) {
    std::uniform_real_distribution<double> dist(positive ? 0.1 : -1.0, 1.0);
    return dist(gen);
  }
  void randomise(double* data, int32_t count, bool positive) {
    for (int32_t k = 0; k < count; ++k) data[k] = real(positive);
  }

  // A random A and Q = F F' of low rank, or a diagonal that vanishes in places.
  void matrix() {
    a = spmat_make(env, h.n, h.m);
    ASSERT_TRUE(spmat_alloc(a, h.n * h.m));
    spmat_putvlen(a, h.m);
    spmat_putnvec(a, h.n);
    int32_t put = 0;
    for (int32_t j = 0; j < h.n; ++j) {
      a->ptrb[j] = put;
      for (int32_t i = 0; i < h.m; ++i) {
        if ((i + j) % 3 == 1) continue;
        a->sub[put] = i;
        a->val[put++] = real(false);
      }
      a->ptre[j] = put;
    }
    a->ffree = put;
    h.a = a;
    std::vector<double> f(static_cast<std::size_t>(h.n) * 3);
    for (double& v : f) v = real(false);
    for (int32_t j = 0; j < h.n; ++j) {
      for (int32_t i = j; i < (h.useh ? j + 1 : h.n); ++i) {
        double v = h.useh ? (j % 3 == 0 && j < h.nb ? 0.0 : 1.0 + j) : 0.0;
        for (std::size_t k = 0; !h.useh && k < 3; ++k)
          v += f[static_cast<std::size_t>(i) * 3 + k] * f[static_cast<std::size_t>(j) * 3 + k];
        qi.push_back(i);
        qj.push_back(j);
        q.push_back(v);
        if (i == j) h.qdiag[j] = v;
      }
    }
    h.nq = static_cast<int32_t>(q.size());
    h.qi = qi.data();
    h.qj = qj.data();
    h.q = q.data();
    KktOptions options;
    options.type = h.useh ? KKT_NORMAL : KKT_SQD;
    h.kkt = kktfac_make(env, h.m, h.n, options);
  }

  // The residual of each row, over the sizes of its terms.
  double error(const HomVec& v) const {
    double most = std::max(std::abs(v.tau), std::abs(v.kappa));
    for (const auto& [data, count] :
         {std::pair{v.x, h.n}, {v.s, h.n}, {v.xup, h.nu}, {v.yup, h.nu}, {v.sup, h.nu}, {v.y, h.m}})
      for (int32_t k = 0; k < count; ++k) most = std::max(most, std::abs(data[k]));
    return most;
  }

  std::mt19937 gen{5};
  std::vector<std::vector<double>> store;
  std::vector<int32_t> qi, qj;
  std::vector<double> q;
  sysenv* env = nullptr;
  spmat* a = nullptr;
  HomState h{};
};

TEST_P(QuadraticState, DirectionSatisfiesTheNewtonRows) {
  ASSERT_EQ(hom_qofactor(&h, 0), KKT_OK);
  EXPECT_NEAR(h.pi, h.beta, 1e-5 * h.beta);
  hom_qosearch(&h, HomTarget{.eta = 1.0, .mut = 0.0}, &h.affine);
  hom_qocorterms(&h, h.affine, &h.cor);
  h.pfeasf = h.dfeasf = h.par.tolpfeas = h.par.toldfeas = 1e-14;  // refines to the end
  for (const bool products : {true, false}) {
    const HomTarget target{.eta = products ? 0.9 : 0.0, .mut = 0.1 * h.mu, .products = products, .cor = &h.cor};
    hom_qosearch(&h, target, &h.dir);
    hom_qorhs(&h, target, &h.rhs);
    hom_qoresiduals(&h, h.rhs, h.dir, &h.res);
    EXPECT_LT(error(h.res), 1e-10 * std::max(1.0, error(h.dir)));
  }
}

// The rows are the derivative of the residuals: a short step along a direction moves these as it says.
TEST_P(QuadraticState, ResidualsFallAlongTheDirection) {
  ASSERT_EQ(hom_qofactor(&h, 0), KKT_OK);
  hom_qosearch(&h, HomTarget{.eta = 1.0, .mut = 0.0}, &h.dir);
  const double t = 1e-6, rg = h.rg, pfeas = h.pfeasf, dfeas = h.dfeasf, gap = h.cgapf;
  HomVec &p = h.point, &d = h.dir;
  for (const auto& [to, from] :
       {std::pair{p.x, d.x}, {p.s, d.s}, {p.xup, d.xup}, {p.yup, d.yup}, {p.sup, d.sup}, {p.y, d.y}})
    for (int32_t k = 0; k <= h.m + h.n; ++k) to[k] += t * from[k];
  p.tau += t * d.tau;
  p.kappa += t * d.kappa;
  hom_inititer(&h);
  EXPECT_NEAR(h.rg, (1.0 - t) * rg, 1e-9 * std::max(1.0, std::abs(rg)));
  EXPECT_NEAR(h.pfeasf, (1.0 - t) * pfeas, 1e-10 * pfeas);
  EXPECT_NEAR(h.dfeasf, (1.0 - t) * dfeas, 1e-10 * dfeas);
  EXPECT_NEAR(h.cgapf, (1.0 - t) * gap, 1e-9 * gap);
}

INSTANTIATE_TEST_SUITE_P(Shapes, QuadraticState,
                         testing::Values(Shape{4, 12, 5, 3, false}, Shape{4, 12, 5, 3, true}, Shape{3, 8, 0, 0, false},
                                         Shape{0, 5, 5, 0, true}, Shape{2, 0, 0, 5, false}));

}  // namespace
}  // namespace tarvo
