// A homogeneous state with a random problem and a random interior point, for tests of single steps.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <list>
#include <random>
#include <vector>

#include "homo/hom_internal.h"

namespace tarvo::test {

struct RandomState {
  RandomState(int32_t m, int32_t nb, int32_t nu, int32_t nf, unsigned seed) : gen(seed) {
    h.env = env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
    h.m = m;
    h.n = nb + nf;
    h.nb = nb;
    h.nu = nu;
    h.nf = nf;
    vectors();
    problem();
    point();
    h.kkt = kktfac_make(env, m, h.n, KktOptions{});
    EXPECT_EQ(kktfac_autosetup(h.kkt, h.a, h.at, 0, nullptr, nullptr), KKT_OK);
    hom_inititer(&h);
  }
  RandomState(const RandomState&) = delete;
  RandomState& operator=(const RandomState&) = delete;
  ~RandomState() {
    kktfac_delete(&h.kkt);
    spmat_delete(&h.at);
    spmat_delete(&h.a);
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
  }

  // Ready for directions.
  void factor(int32_t regulevel) {
    hom_regularize(&h, regulevel);
    ASSERT_EQ(hom_factor(&h), KKT_OK);
    hom_initfree(&h, regulevel);
    hom_initcomputations(&h);
  }
  double real(double low, double high) { return std::uniform_real_distribution<double>(low, high)(gen); }

  HomState h{};

 private:
  double* vec(int32_t size) { return store.emplace_back(static_cast<std::size_t>(size) + 1, 0.0).data(); }
  void fill(double* v, int32_t count, double low, double high) {
    for (int32_t k = 0; k < count; ++k) v[k] = real(low, high);
  }

  void vectors() {
    for (HomVec* v : {&h.point, &h.dir, &h.affine, &h.cordir, &h.rhs, &h.res}) {
      for (double** part : {&v->x, &v->s}) *part = vec(h.n);
      for (double** part : {&v->xup, &v->yup, &v->sup}) *part = vec(h.nu);
      v->y = vec(h.m);
    }
    for (double** v : {&h.c, &h.rd, &h.d, &h.dinv, &h.rx, &h.cbar, &h.chat, &h.dc, &h.wn1, &h.wn2, &h.wn3})
      *v = vec(h.n);
    for (double** v : {&h.b, &h.rp, &h.tf, &h.pf, &h.g, &h.g2, &h.h, &h.wm1, &h.wm2}) *v = vec(h.m);
    for (double** v : {&h.u, &h.rpu, &h.rdu, &h.ru, &h.wu1}) *v = vec(h.nu);
    h.vf = vec(h.nf + 1);
    for (HomCor* cor : {&h.cor, &h.extracor}) {
      cor->pair = vec(h.nb);
      cor->up = vec(h.nu);
      cor->cone = vec(h.nf + 1);
    }
  }

  void problem() {
    h.a = spmat_make(env, h.n, h.m);
    ASSERT_TRUE(spmat_alloc(h.a, h.n * h.m));
    spmat_putvlen(h.a, h.m);
    spmat_putnvec(h.a, h.n);
    int32_t put = 0;
    for (int32_t j = 0; j < h.n; ++j) {
      h.a->ptrb[j] = put;
      for (int32_t i = 0; i < h.m; ++i) {
        if ((h.m == 0 || i != j % h.m) && gen() % 3 != 0) continue;
        h.a->sub[put] = i;
        h.a->val[put++] = real(-2.0, 2.0);
      }
      h.a->ptre[j] = put;
    }
    ASSERT_TRUE(spmat_transpose(h.a, nullptr, false, &h.at, false));
    fill(h.c, h.n, -1.0, 1.0);
    fill(h.b, h.m, -1.0, 1.0);
    fill(h.u, h.nu, 1.0, 2.0);
  }

  void point() {
    HomVec& p = h.point;
    for (double* v : {p.x, p.s}) {
      fill(v, h.nb, 0.1, 2.0);
      fill(v + h.nb, h.nf, -1.0, 1.0);
    }
    for (double* v : {p.xup, p.sup}) fill(v, h.nu, 0.1, 2.0);
    fill(p.yup, h.nu, -1.0, 1.0);
    fill(p.y, h.m, -1.0, 1.0);
    p.tau = 0.7;
    p.kappa = 1.3;
    if (h.nf > 0) {
      double xx = 0.0, ss = 0.0;
      for (int32_t j = h.nb; j < h.n; ++j) {
        xx += p.x[j] * p.x[j];
        ss += p.s[j] * p.s[j];
      }
      h.xqxf = 0.5;
      h.sqsf = 0.2;
      p.xf = std::sqrt(xx + h.xqxf);
      p.sf = std::sqrt(ss + h.sqsf);
    }
    h.n_c = h.nb + h.nu + 1 + (h.nf > 0 ? 1 : 0);
  }

  sysenv* env;
  std::mt19937 gen;
  std::list<std::vector<double>> store;
};

}  // namespace tarvo::test
