// The canonical problem in both forms: solved, taken back, and judged on the data of the given problem.
#include "optimize/optdat.h"

#include <gtest/gtest.h>

#include "optimize/optnlp.h"
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
               nullptr,       false};
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

// A problem as the presolve leaves it: fixed columns are already in the bounds of the rows, free rows are gone, and
// their elements, still there, count for nothing.
TEST_F(Canonical, DeadElementsOfAReducedProblem) {
  for (uint64_t seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE(seed);
    tarvo_test::Choices pick(seed);
    const tarvo_test::IntLp drawn = tarvo_test::random_problem(&pick);
    const auto exact = tarvo_test::exact_answer(drawn);
    if (!exact.has_value() || exact->answer != tarvo_test::Answer::optimal) continue;
    const PlainLp p = tarvo_test::plain(drawn);
    drop();
    prslvprob* reduced = prslv_make(
        env, {p.numcon, p.numvar, p.ptr.data(), p.ptr.data() + 1, p.sub.data(), p.val.data(), p.cfix, nullptr,
              p.cx.data(), p.bkc.data(), p.blc.data(), p.buc.data(), p.bkx.data(), p.blx.data(), p.bux.data()});
    ASSERT_NE(reduced, nullptr);
    for (int32_t j = 0; j < p.numvar; ++j)
      for (int32_t t = p.ptr[j]; t < p.ptr[j + 1] && reduced->bkx[j] == PRSLV_BK_FX; ++t) {
        const auto at = static_cast<std::size_t>(t);
        for (Array<double>* bound : {&reduced->blc, &reduced->buc}) (*bound)[p.sub[at]] -= p.val[at] * reduced->blx[j];
      }
    problem = opt_problem(*reduced);
    OptOptions options;
    options.solveform = static_cast<int32_t>(seed % 3);
    ASSERT_EQ(opt_prepare(options, problem, &record), OPT_RESP_OK);
    solve();
    PlainSolution s(p.numcon, p.numvar);
    prslvsol to = slot(&s);
    ASSERT_EQ(opt_reverse(problem, record, &to, nullptr, 0, nullptr), OPT_RESP_OK);
    double objective = p.cfix;
    for (std::size_t j = 0; j < s.xx.size(); ++j) {
      objective += p.cx[j] * s.xx[j];
      if (p.bkx[j] == PRSLV_BK_FX) {
        EXPECT_EQ(s.slx[j] - s.sux[j], p.cx[j]);
      }
    }
    EXPECT_NEAR(objective, (drawn.maximise ? -1.0 : 1.0) * exact->objective, 1e-6 * (1 + std::fabs(objective)));
    for (std::size_t i = 0; i < s.xc.size(); ++i)
      if (p.bkc[i] == PRSLV_BK_FR) {
        EXPECT_EQ(s.xc[i], 0.0);
      }
    prslv_delete(&reduced);
  }
}

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

// f0 = x0^4 + x0 x3 and f = x0^2 x3 + x2^3 in rows 0 and 2.
constexpr int32_t nl_objsub[] = {0, 3}, nl_rowsub[] = {0, 3, 2}, nl_hess[][2] = {{0, 0}, {3, 0}, {2, 2}, {0, 0}};
int32_t nl_structure(void*, const OptNlStructure& ask) {
  if (ask.numgrad != nullptr) {
    const bool objective = ask.row < 0, row = ask.row == 0 || ask.row == 2;
    *ask.numgrad = objective ? 2 : row ? 3 : 0;
    std::copy_n(objective ? nl_objsub : nl_rowsub, *ask.numgrad, ask.gradsub);
  }
  if (ask.numhess != nullptr) *ask.numhess = 4;
  for (int32_t t = 0; t < std::min(ask.maxhess, 4); ++t) {
    ask.hessubi[t] = nl_hess[t][0];
    ask.hessubj[t] = nl_hess[t][1];
  }
  return 0;
}
int32_t nl_values(void* handle, const OptNlValues& ask) {
  const double *x = ask.xx, a = ask.objfactor;
  if (ask.objective != nullptr) *ask.objective = std::pow(x[0], 4) + x[0] * x[3];
  if (ask.objgrad != nullptr) {
    ask.objgrad[0] = 4.0 * std::pow(x[0], 3) + x[3];
    ask.objgrad[3] = x[0];
  }
  double y = 0.0;
  for (int32_t k = 0; k < ask.numrows; ++k) {
    if (ask.rowval != nullptr) ask.rowval[k] = x[0] * x[0] * x[3] + std::pow(x[2], 3);
    const double gradient[] = {2.0 * x[0] * x[3], x[0] * x[0], 3.0 * x[2] * x[2]};
    if (ask.rowgrad != nullptr) std::copy_n(gradient, 3, ask.rowgrad + ask.rowptr[k]);
    if (ask.y != nullptr) y += ask.y[k];
  }
  if (ask.hessval == nullptr) return handle == nullptr ? 0 : OPT_RESP_USERFUNC;
  *ask.numhess = 4;
  const double hessian[] = {12.0 * a * x[0] * x[0], a - 2.0 * y * x[0], -6.0 * y * x[2], -2.0 * y * x[3]};
  std::copy_n(hessian, 4, ask.hessval);
  for (int32_t t = 0; t < 4; ++t) {
    ask.hessubi[t] = nl_hess[t][0];
    ask.hessubj[t] = nl_hess[t][1];
  }
  return 0;
}

PlainLp mixed_lp(int64_t big) {
  tarvo_test::IntLp lp;
  lp.a = {{1, 2, 0, 1}, {0, 1, 1, -1}, {1, 0, 3, 0}, {1, 1, 1, 1}};
  lp.row = {{0, 1, 0}, {1, 0, big}, {3, 0, 0}, {3, 0, 0}};
  lp.column = {{0, -1, 0}, {1, 0, 2}, {2, 3, 3}, {4, -4, 2}};
  lp.c = {1, 2, 3, 4};
  PlainLp p = tarvo_test::plain(lp);
  p.cc[2] = 1.5;
  return p;
}

// Values and derivatives against the given functions and against differences, with flips, a fixed column, a free row
// with a cost, and with and without scaling.
TEST_F(Canonical, NonlinearValuesAndDerivatives) {
  for (const int64_t big : {5, 100000}) {
    PlainLp p = mixed_lp(big);
    take(&p);
    const int32_t subi[] = {1, 3, 3, 2}, subj[] = {1, 3, 2, 2}, begin[] = {0, 1, 4, 4}, end[] = {0, 4, 4, 4};
    const double val[] = {2.0, 2.0, 1.0, 1.0};
    problem.quad.objend = 1;
    problem.quad.conbegin = begin;
    problem.quad.conend = end;
    problem.quad.subi = subi;
    problem.quad.subj = subj;
    problem.quad.val = val;
    OptNonlinear nonlinear{nullptr, nl_structure, nl_values};
    problem.nonlinear = &nonlinear;
    ASSERT_EQ(opt_prepare({}, problem, &record), OPT_RESP_OK);
    EXPECT_EQ(record->form, 5);
    EXPECT_EQ(record->varscale != 1.0, big > 5);
    ASSERT_EQ(record->nlp->numrows, 3);
    const double scale = record->varscale, q = record->objscale;
    std::vector<double> x = {2.0 / scale, 0.5 / scale, 1.5 / scale, 1.0, 1.0}, y = {0.7 * q * scale, -0.3 * q * scale};
    const double xx[] = {1.0, 1.5, 3.0, 0.5};  // -1 + 2, 2 - 0.5, 3, 2 - 1.5
    std::vector<double> row(2, 0.0), gradient(5), other(5), unused(2);
    double value = 0.0, above = 0.0, below = 0.0;
    ASSERT_EQ(opt_eval(problem, record, x.data(), y.data(), &value, row.data(), gradient.data()), OPT_RESP_OK);
    const double f = xx[0] * xx[0] * xx[3] + std::pow(xx[2], 3);
    EXPECT_NEAR(value, q * (1.0 + xx[0] * xx[3] + xx[1] * xx[1] + 1.5 * f), 1e-12 * (1 + std::fabs(value)));
    EXPECT_NEAR(row[0] * scale, f, 1e-9);
    EXPECT_NEAR(row[1] * scale, xx[3] * xx[3] + xx[3] * xx[2] + 0.5 * xx[2] * xx[2], 1e-9);
    ASSERT_EQ(opt_evala(problem, record, x.data(), y.data()), OPT_RESP_OK);
    const OptNlp& nlp = *record->nlp;
    for (int32_t j = 0; j < 3; ++j) {
      const double h = 1e-4 / scale;
      const auto at = [&](double step, double* objective, double* rows, double* grad) {
        std::vector<double> moved = x;
        moved[static_cast<std::size_t>(j)] += step;
        std::fill_n(rows, 2, 0.0);
        EXPECT_EQ(opt_eval(problem, record, moved.data(), y.data(), objective, rows, grad), OPT_RESP_OK);
      };
      std::vector<double> up(5), down(5), rowup(2), rowdown(2);
      at(h, &above, rowup.data(), up.data());
      at(-h, &below, rowdown.data(), down.data());
      double expected = (above - below) / (2.0 * h);
      for (std::size_t r = 0; r < 2; ++r) expected -= y[r] * (rowup[r] - rowdown[r]) / (2.0 * h);
      EXPECT_NEAR(gradient[static_cast<std::size_t>(j)], expected, 1e-5 * (1e-3 + std::fabs(expected)));
      for (int32_t t = nlp.hessian->ptrb[j]; t < nlp.hessian->ptre[j]; ++t) {
        const auto i = static_cast<std::size_t>(nlp.hessian->sub[t]);
        const double second = (up[i] - down[i]) / (2.0 * h);
        EXPECT_NEAR(nlp.hessian->val[t], second, 1e-5 * (q * scale * scale + std::fabs(second))) << i << j;
      }
      for (int32_t k = 0; k < 2; ++k)
        for (int32_t t = nlp.jacobian->ptrb[k]; t < nlp.jacobian->ptre[k]; ++t)
          if (nlp.jacobian->sub[t] == j) {
            const auto r = static_cast<std::size_t>(k);
            EXPECT_NEAR(nlp.jacobian->val[t], (rowup[r] - rowdown[r]) / (2.0 * h), 1e-6) << k << j;
          }
    }
    EXPECT_EQ(nlp.jacobian->ptre[0] - nlp.jacobian->ptrb[0], 2);  // the third variable is fixed
    EXPECT_EQ(spmat_getnumnz(nlp.hessian), record->nvarstr + 1);
    nonlinear.handle = &nonlinear;  // fails from now on
    EXPECT_EQ(opt_eval(problem, record, x.data(), y.data(), &value, row.data(), nullptr), OPT_RESP_USERFUNC);
  }
}

struct Failing {
  int64_t left;
  static void* take(void* handle, std::size_t size) {
    return static_cast<Failing*>(handle)->left-- > 0 ? std::malloc(size) : nullptr;
  }
  static void give(void*, void* pointer) { std::free(pointer); }
};

// Every allocation fails once: the code says so, and nothing is left behind.
TEST_F(Canonical, RunsOutOfMemory) {
  PlainLp p = mixed_lp(5);
  take(&p);
  const int32_t sub[] = {0}, begin[] = {0, 0, 0, 0}, end[] = {0, 1, 0, 0};
  const double val[] = {1.0};
  OptNonlinear nonlinear{nullptr, nl_structure, nl_values};
  for (int32_t kind = 0; kind < 6; ++kind) {  // three forms, then quadratic and nonlinear content
    int32_t resp = OPT_RESP_SPACE;
    for (int64_t k = 0; resp != OPT_RESP_OK; ++k) {
      Failing failing{INT64_MAX};
      sysenv* mine = sysenv_make(SysKind::task, true, &failing, Failing::take, Failing::give);
      failing.left = k;
      OptProblem q = problem;
      q.env = mine;
      q.quad.objend = kind == 3;
      q.quad.subi = q.quad.subj = sub;
      q.quad.val = val;
      q.quad.conbegin = kind == 4 ? begin : nullptr;
      q.quad.conend = end;
      q.nonlinear = kind == 5 ? &nonlinear : nullptr;
      OptOptions options;
      options.solveform = std::min(kind, 2);
      odat* made = nullptr;
      resp = opt_prepare(options, q, &made);
      EXPECT_EQ(made != nullptr, resp == OPT_RESP_OK);
      if (resp != OPT_RESP_OK) {
        ASSERT_EQ(resp, OPT_RESP_SPACE);
      }
      opt_deleteodat(&made);
      EXPECT_EQ(sysenv_delete(&mine), SYS_OK);
      ASSERT_LT(k, 500);
    }
  }
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
