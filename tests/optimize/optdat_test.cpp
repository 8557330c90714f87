// The canonical problem in both forms: solved, taken back, and judged on the data of the given problem.
#include "optimize/optdat.h"

#include <gtest/gtest.h>

#include "order/ordmat.h"
#include "support/differential.h"
#include "support/plain_lp.h"

namespace tarvo {
namespace {

using tarvo_test::PlainLp;
using tarvo_test::PlainSolution;

prslvsol slot(PlainSolution* s) {
  return {0,
          0,
          0,
          s->skc.data(),
          s->xc.data(),
          s->y.data(),
          s->slc.data(),
          s->suc.data(),
          s->skx.data(),
          s->xx.data(),
          s->slx.data(),
          s->sux.data()};
}

// The given problem as a record; the matrix borrows the arrays.
class Canonical : public testing::Test {
 protected:
  Canonical() : env(sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr)) {}
  ~Canonical() override {
    drop();
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
  }
  void drop() {
    opt_deleteodat(&record);
    spmat_delete(&matrix);
  }
  void take(PlainLp* p) {
    drop();
    matrix = spmat_make(env, p->numvar, p->numcon);
    spmat_ealloc(matrix, p->numvar, p->numcon, 0, static_cast<int32_t>(p->sub.size()), p->ptr.data(), p->ptr.data() + 1,
                 p->sub.data(), p->val.data());
    problem = {env,           p->numcon,     p->numvar,     p->cfix,       p->cx.data(),  p->cc.data(),  matrix,
               p->bkc.data(), p->blc.data(), p->buc.data(), p->bkx.data(), p->blx.data(), p->bux.data(), {},
               nullptr};
  }

  // Solves the canonical problem by the primal simplex and fills both of its solutions.
  void solve() {
    PlainLp c;
    c.numcon = record->rnumcon;
    c.numvar = record->rnumvar;
    c.cfix = record->cfix;
    const auto m = static_cast<std::size_t>(c.numcon), n = static_cast<std::size_t>(c.numvar);
    c.cc.assign(m, 0.0);
    c.bkc.assign(m, PRSLV_BK_FX);
    c.blc.assign(record->b.begin(), record->b.end());
    c.buc = c.blc;
    c.cx.assign(record->c.begin(), record->c.end());
    c.bkx.assign(n, PRSLV_BK_LO);
    c.blx.assign(n, 0.0);
    c.bux.assign(n, HUGE_VAL);
    for (int32_t k = 0; k < c.numvar; ++k) {
      const auto column = static_cast<std::size_t>(record->varlist[k]);
      if (k >= record->nblo) {
        c.bkx[column] = PRSLV_BK_FR;
      } else if (k >= record->nblo - record->nbup) {
        c.bkx[column] = PRSLV_BK_RA;
        c.bux[column] = record->u[k - (record->nblo - record->nbup)];
        EXPECT_EQ(record->upos[column], k - (record->nblo - record->nbup));
        EXPECT_GT(c.bux[column], 0.0);
      }
    }
    const SimplexInput in{
        c.numcon,     c.numvar,     {record->a->ptrb, record->a->ptre, record->a->sub, record->a->val},
        c.cfix,       c.cc.data(),  c.cx.data(),
        c.bkc.data(), c.blc.data(), c.buc.data(),
        c.bkx.data(), c.blx.data(), c.bux.data()};
    PlainSolution s(c.numcon, c.numvar);
    ASSERT_EQ(plain_solve(env, in, tarvo_test::plain_parameters(), &s), 0);
    artificials.clear();
    for (int32_t i = 0; i < c.numcon; ++i)
      if (s.skc[static_cast<std::size_t>(i)] == SIM_SK_BAS) artificials.push_back(i);
    if (s.solsta == 5) std::fill(s.xx.begin(), s.xx.end(), 0.0);
    for (OptSolution* to : {&record->itr, &record->bas}) {
      to->defined = true;
      to->prosta = s.prosta;
      to->solsta = s.solsta;
      std::copy(s.y.begin(), s.y.end(), to->y.begin());
      for (std::size_t k = 0; k < n; ++k) {
        const int32_t up = record->upos[k], key = s.skx[k];
        to->x[k] = s.xx[k];
        to->skx[k] = key;
        to->z[k] = s.slx[k] - (up < 0 ? s.sux[k] : 0.0);
        if (up >= 0) {
          to->zup[up] = s.sux[k];
          to->w[up] = -s.sux[k];
        }
        if (to == &record->bas) continue;
        to->skx[k] = key == SIM_SK_LOW ? SIM_SK_LOW : SIM_SK_SUPBAS;
        if (up >= 0) to->skup[up] = key == SIM_SK_UPR ? SIM_SK_LOW : SIM_SK_SUPBAS;
      }
    }
  }

  sysenv* env;
  spmat* matrix = nullptr;
  OptProblem problem{};
  odat* record = nullptr;
  std::vector<int32_t> artificials;
};

class Forms : public Canonical, public testing::WithParamInterface<int32_t> {};

TEST_P(Forms, AnswersHoldOnTheProblem) {
  int32_t duals = 0, primals = 0, settled = 0;
  for (uint64_t seed = 1; seed <= 3000; ++seed) {
    tarvo_test::Choices pick(seed);
    const tarvo_test::IntLp drawn = tarvo_test::random_problem(&pick, 4 + static_cast<int32_t>(seed % 5));
    const auto exact = tarvo_test::exact_answer(drawn);
    bool crossed = !exact.has_value();
    for (const auto* list : {&drawn.row, &drawn.column})
      for (const auto& b : *list) crossed |= b.key == 4 && b.lower > b.upper;
    if (crossed) continue;
    SCOPED_TRACE(seed);
    PlainLp p = tarvo_test::plain(drawn, seed % 2 == 0 ? static_cast<uint32_t>(seed) : 0);
    take(&p);
    OptOptions options;
    options.solveform = GetParam();
    options.regularization = seed % 3 != 0;
    ASSERT_EQ(opt_prepare(options, problem, &record), OPT_RESP_OK);
    ++(record->settled ? settled : record->isdual ? duals : primals);
    if (!record->settled) solve();
    PlainSolution itr(p.numcon, p.numvar), bas(p.numcon, p.numvar);
    prslvsol itrslot = slot(&itr), basslot = slot(&bas);
    ASSERT_EQ(
        opt_reverse(problem, record, &itrslot, &basslot, static_cast<int32_t>(artificials.size()), artificials.data()),
        OPT_RESP_OK);
    itr.prosta = itrslot.prosta;
    itr.solsta = itrslot.solsta;
    bas.prosta = basslot.prosta;
    bas.solsta = basslot.solsta;
    EXPECT_EQ(plain_wrong(p, itr, *exact), "");
    ASSERT_EQ(plain_wrong(p, bas, *exact), "");
    EXPECT_EQ(tarvo_test::plain_numbasic(itr), 0);
    if (bas.solsta != 1 || p.numcon == 0) continue;
    EXPECT_EQ(tarvo_test::plain_numbasic(bas), p.numcon);
    simplexpar par = tarvo_test::plain_parameters();
    par.clean = 1;
    int64_t iterations = -1;
    const PlainSolution before = bas;
    EXPECT_EQ(plain_solve(env, plain_input(p), par, &bas, &iterations), 0);
    // With row costs an equation whose artificial is basic has y = 0, and its key asks for -cc.
    if (seed % 2 != 0) {
      EXPECT_EQ(iterations, 0);
    }
    for (std::size_t k = 0; k < bas.xx.size(); ++k) EXPECT_NEAR(bas.xx[k], before.xx[k], 1e-6);
  }
  EXPECT_EQ(duals > 100, GetParam() != OPT_SOLVE_PRIMAL);
  EXPECT_EQ(primals > 100, GetParam() != OPT_SOLVE_DUAL);
  EXPECT_EQ(settled > 10, GetParam() != OPT_SOLVE_PRIMAL);
}
INSTANTIATE_TEST_SUITE_P(Solve, Forms, testing::Values(OPT_SOLVE_FREE, OPT_SOLVE_PRIMAL, OPT_SOLVE_DUAL));

// Objective and gradient of a quadratic problem are those of the given one, at any point: shifts, flips and fixed
// columns enter the terms.
TEST_F(Canonical, QuadraticObjectiveKeepsItsValueAndGradient) {
  for (uint64_t seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE(seed);
    tarvo_test::Choices pick(seed);
    tarvo_test::IntLp drawn = tarvo_test::random_problem(&pick);
    drawn.maximise = false;
    PlainLp p = tarvo_test::plain(drawn, static_cast<uint32_t>(seed));
    take(&p);
    // Q = D + v v' / 4, a lower triangle with a repeated term.
    const auto n = static_cast<std::size_t>(p.numvar);
    std::vector<double> v(n);
    for (double& value : v) value = pick.between(-2, 2);
    std::vector<int32_t> subi, subj;
    std::vector<double> val;
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j <= i; ++j)
        for (int part = 0; part < 2; ++part) {
          subi.push_back(static_cast<int32_t>(i));
          subj.push_back(static_cast<int32_t>(j));
          val.push_back(part == 0 ? v[i] * v[j] / 4.0 : i == j ? 1.0 : 0.0);
        }
    problem.quad.objend = static_cast<int32_t>(val.size());
    problem.quad.subi = subi.data();
    problem.quad.subj = subj.data();
    problem.quad.val = val.data();
    ASSERT_EQ(opt_prepare({}, problem, &record), OPT_RESP_OK);
    ASSERT_EQ(record->form, 2);
    EXPECT_FALSE(record->isdual);
    // A point with its slacks, any y, and the z that belong to them.
    OptSolution& s = record->itr;
    s.defined = true;
    for (int32_t k = 0; k < record->nvarstr; ++k) s.x[k] = pick.between(-3, 3);
    for (double& y : s.y) y = pick.between(-3, 3);
    std::vector<double> activity(static_cast<std::size_t>(record->rnumcon) + 1, 0.0);
    for (int32_t k = 0; k < record->nvarstr; ++k) spmat_axpy(s.x[k], record->a, k, activity.data());
    for (int32_t r = 0; r < record->rnumcon; ++r)
      if (record->slackof[r] >= 0)
        s.x[record->slackof[r]] = (record->b[r] - activity[static_cast<std::size_t>(r)]) *
                                  record->a->val[record->a->ptrb[record->slackof[r]]];
    double objective = record->cfix;
    std::vector<double> gradient(record->c.begin(), record->c.end());
    for (int32_t j = 0; j < record->rnumvar; ++j)
      for (int32_t t = record->q->ptrb[j]; t < record->q->ptre[j]; ++t) {
        const int32_t i = record->q->sub[t];
        EXPECT_GE(i, j);
        const double q = record->q->val[t];
        objective += (i == j ? 0.5 : 1.0) * q * s.x[i] * s.x[j];
        gradient[static_cast<std::size_t>(i)] += q * s.x[j];
        if (i != j) gradient[static_cast<std::size_t>(j)] += q * s.x[i];
      }
    for (int32_t k = 0; k < record->rnumvar; ++k) {
      objective += record->c[k] * s.x[k];
      s.z[k] = gradient[static_cast<std::size_t>(k)] - spmat_dot(record->a, k, s.y.data());
      s.skx[k] = SIM_SK_SUPBAS;
    }
    for (int32_t& key : s.skup) key = SIM_SK_SUPBAS;
    PlainSolution itr(p.numcon, p.numvar);
    prslvsol itrslot = slot(&itr);
    ASSERT_EQ(opt_reverse(problem, record, &itrslot, nullptr, 0, nullptr), OPT_RESP_OK);
    double given = p.cfix;
    std::vector<double> xc(p.blc.size() + 1, 0.0);
    for (int32_t j = 0; j < p.numvar; ++j) spmat_axpy(itr.xx[static_cast<std::size_t>(j)], matrix, j, xc.data());
    bool equations = true;  // the rows hold where they have a slack
    for (std::size_t i = 0; i < p.blc.size(); ++i) {
      given += p.cc[i] * xc[i];
      if (p.bkc[i] == PRSLV_BK_FX || (p.bkc[i] == PRSLV_BK_RA && p.blc[i] >= p.buc[i]))
        equations = equations && (p.cc[i] == 0.0 || std::fabs(xc[i] - p.blc[i]) < 1e-9);
      else
        EXPECT_NEAR(itr.xc[i], xc[i], 1e-6 * (1 + std::fabs(xc[i])));
    }
    for (std::size_t j = 0; j < n; ++j) given += p.cx[j] * itr.xx[j];
    for (std::size_t t = 0; t < val.size(); ++t)
      given += (subi[t] == subj[t] ? 0.5 : 1.0) * val[t] * itr.xx[static_cast<std::size_t>(subi[t])] *
               itr.xx[static_cast<std::size_t>(subj[t])];
    if (equations) {
      EXPECT_NEAR(objective, given, 1e-9 * (1 + std::fabs(given)));
    }
    for (std::size_t j = 0; j < n; ++j) {
      if (p.bkx[j] == PRSLV_BK_FR) continue;  // has no multipliers
      double g = p.cx[j];
      for (std::size_t t = 0; t < val.size(); ++t) {
        if (static_cast<std::size_t>(subi[t]) == j) g += val[t] * itr.xx[static_cast<std::size_t>(subj[t])];
        if (static_cast<std::size_t>(subj[t]) == j && subi[t] != subj[t])
          g += val[t] * itr.xx[static_cast<std::size_t>(subi[t])];
      }
      for (int32_t t = p.ptr[j]; t < p.ptr[j + 1]; ++t)
        g -= p.val[static_cast<std::size_t>(t)] * itr.y[static_cast<std::size_t>(p.sub[static_cast<std::size_t>(t)])];
      EXPECT_NEAR(itr.slx[j] - itr.sux[j], g, 1e-9 * (1 + std::fabs(g)));
    }
  }
}

TEST_F(Canonical, BadBlocksAreRefused) {
  tarvo_test::IntLp lp;
  lp.a = {{1}};
  lp.row = {{1, 0, 4}};
  lp.column = {{0, 1, 0}};
  lp.c = {-4};
  PlainLp p = tarvo_test::plain(lp);
  take(&p);
  const int32_t zero = 0, one = 1, sub[] = {0};
  double val[] = {-2.0};
  problem.quad.objend = 1;
  problem.quad.subi = problem.quad.subj = sub;
  problem.quad.val = val;
  EXPECT_EQ(opt_prepare({}, problem, &record), OPT_RESP_NOTCONVEX);
  EXPECT_EQ(record, nullptr);
  val[0] = 1e-17;  // none
  ASSERT_EQ(opt_prepare({}, problem, &record), OPT_RESP_OK);
  EXPECT_EQ(record->form, 1);
  opt_deleteodat(&record);
  val[0] = 2.0;
  problem.quad.objend = 0;
  problem.quad.conbegin = &zero;
  problem.quad.conend = &one;
  ASSERT_EQ(opt_prepare({}, problem, &record), OPT_RESP_OK);
  EXPECT_EQ(record->form, 3);
}

// Long problems go to the dual, wide ones stay.
TEST_F(Canonical, ChoiceBySize) {
  for (const bool tall : {true, false}) {
    const std::size_t m = tall ? 20 : 2, n = tall ? 2 : 20;
    tarvo_test::IntLp lp;
    lp.a.assign(m, std::vector<int64_t>(n, 1));
    lp.row.assign(m, {0, 1, 0});
    lp.column.assign(n, {0, 0, 0});
    lp.c.assign(n, 1);
    PlainLp p = tarvo_test::plain(lp);
    for (const int32_t form : {OPT_SOLVE_FREE, OPT_SOLVE_PRIMAL, OPT_SOLVE_DUAL}) {
      take(&p);
      OptOptions options;
      options.solveform = form;
      ASSERT_EQ(opt_prepare(options, problem, &record), OPT_RESP_OK);
      EXPECT_EQ(record->isdual, form == OPT_SOLVE_DUAL || (form == OPT_SOLVE_FREE && tall));
    }
  }
}

TEST_F(Canonical, CountsTheElementsOfTheProduct) {
  for (uint64_t seed = 1; seed <= 100; ++seed) {
    tarvo_test::Choices pick(seed);
    PlainLp p = tarvo_test::plain(tarvo_test::random_problem(&pick, 9));
    take(&p);
    const auto m = static_cast<std::size_t>(p.numcon);
    std::vector<int32_t> rowcount(m, 0), colcount;
    for (const int32_t i : p.sub) ++rowcount[static_cast<std::size_t>(i)];
    for (std::size_t j = 0; j + 1 < p.ptr.size(); ++j) colcount.push_back(p.ptr[j + 1] - p.ptr[j]);
    std::vector<char> product(m * m, 0);
    for (std::size_t j = 0; j < colcount.size(); ++j)
      for (int32_t s = p.ptr[j]; s < p.ptr[j + 1] && colcount[j] < 5; ++s)
        for (int32_t t = p.ptr[j]; t < p.ptr[j + 1]; ++t) {
          const auto i = static_cast<std::size_t>(p.sub[static_cast<std::size_t>(s)]),
                     k = static_cast<std::size_t>(p.sub[static_cast<std::size_t>(t)]);
          if (i > k && rowcount[i] < 6 && rowcount[k] < 6) product[i * m + k] = 1;
        }
    int64_t count = -1;
    ASSERT_TRUE(ordmat_nnzaat(env, matrix, 6, 5, rowcount.data(), colcount.data(), &count));
    EXPECT_EQ(count, std::count(product.begin(), product.end(), 1)) << seed;
  }
}

}  // namespace
}  // namespace tarvo
