// The dual form: solved in place of the problem, mapped back, and judged on the problem's own data.
#include "dualize/dualize.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "support/differential.h"
#include "support/plain_lp.h"

namespace tarvo {
namespace {

using tarvo_test::Answer;
using tarvo_test::PlainLp;
using tarvo_test::PlainSolution;

DualizeInput input(const PlainLp& p) {
  return {p.numcon,     p.numvar,     p.ptr.data(), p.ptr.data() + 1, p.sub.data(),
          p.val.data(), p.cfix,       p.cc.data(),  p.cx.data(),      p.bkc.data(),
          p.blc.data(), p.buc.data(), p.bkx.data(), p.blx.data(),     p.bux.data()};
}
SimplexInput dual_input(const DualizeInput& d) {
  return {d.numcon, d.numvar, {d.ptrb, d.ptre, d.sub, d.val}, d.cfix, d.cc, d.cx, d.bkc, d.blc, d.buc, d.bkx,
          d.blx,    d.bux};
}
DualizeSolution arrays(PlainSolution* s) {
  return {s->skc.data(), s->skx.data(), s->xc.data(),  s->xx.data(), s->y.data(),
          s->slc.data(), s->suc.data(), s->slx.data(), s->sux.data()};
}

class Dualize : public testing::TestWithParam<DualizeMethod> {
 protected:
  Dualize() : env(sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr)) {}
  ~Dualize() override { EXPECT_EQ(sysenv_delete(&env), SYS_OK); }
  sysenv* env;

  // Solves the dual and maps its solution back.
  PlainSolution solve(const PlainLp& p, dualizer* record, PlainSolution* dual, DualizeResult* result) {
    PlainSolution primal(p.numcon, p.numvar);
    EXPECT_EQ(plain_solve(env, dual_input(dualize_problem(record)), tarvo_test::plain_parameters(), dual), 0);
    EXPECT_TRUE(
        dualize_getprimal(record, dual->prosta, dual->solsta, arrays(dual), 1e-6, 1e-6, arrays(&primal), result));
    primal.prosta = result->prosta;
    primal.solsta = result->solsta;
    return primal;
  }
};

TEST_P(Dualize, AnswersHoldOnTheProblem) {
  int32_t seen[3] = {};
  for (uint64_t seed = 1; seed <= 4000; ++seed) {
    tarvo_test::Choices pick(seed);
    const tarvo_test::IntLp drawn = tarvo_test::random_problem(&pick, 4 + static_cast<int32_t>(seed % 5));
    const auto exact = tarvo_test::exact_answer(drawn);
    bool crossed = !exact.has_value();
    for (const auto* list : {&drawn.row, &drawn.column})
      for (const auto& b : *list) crossed |= b.key == 4 && b.lower > b.upper;
    if (crossed) continue;  // found out before any form is chosen
    SCOPED_TRACE(seed);
    const PlainLp p = tarvo_test::plain(drawn, seed % 2 == 0 ? static_cast<uint32_t>(seed) : 0);
    dualizer* record = nullptr;
    ASSERT_EQ(dualize_formdual(env, GetParam(), input(p), &record), 0);
    const DualizeInput d = dualize_problem(record);
    DualizeSize size;
    ASSERT_EQ(dualize_getdualsize(env, GetParam(), input(p), &size), 0);
    EXPECT_EQ(size.numcon, d.numcon);
    EXPECT_EQ(size.numvar, d.numvar);
    EXPECT_EQ(size.numnz, d.ptrb[d.numvar]);
    PlainSolution dual(d.numcon, d.numvar);
    DualizeResult result;
    PlainSolution s = solve(p, record, &dual, &result);
    ASSERT_EQ(plain_wrong(p, s, *exact), "");
    EXPECT_EQ(tarvo_test::plain_numbasic(s), p.numcon);
    ++seen[static_cast<int32_t>(exact->answer)];
    if (s.solsta == 1) {
      const double sign = drawn.maximise ? -1.0 : 1.0;
      EXPECT_NEAR(result.pobj, sign * exact->objective, 1e-6 * (1 + std::fabs(exact->objective)));
      EXPECT_NEAR(result.dobj, result.pobj, 1e-6 * (1 + std::fabs(result.pobj)));
      // Only the full form can leave a free y at 0 that the row costs want elsewhere.
      if (GetParam() == DUALIZE_FULL && result.clean == 7 && seed % 2 == 0) {
        dualize_delete(&record);
        continue;
      }
      EXPECT_EQ(result.clean, 0);
      // The mapped keys are a basis of the problem: nothing is left to do from there.
      simplexpar par = tarvo_test::plain_parameters();
      par.clean = 1;
      int64_t iterations = -1;
      PlainSolution again = s;
      EXPECT_EQ(plain_solve(env, plain_input(p), par, &again, &iterations), 0);
      EXPECT_EQ(iterations, 0);
      EXPECT_EQ(again.skc, s.skc);
      EXPECT_EQ(again.skx, s.skx);
      // And one of the dual, when they go there.
      if (GetParam() == DUALIZE_COMPACT) {
        int32_t clean = 2;
        PlainSolution start(d.numcon, d.numvar);
        ASSERT_TRUE(dualize_getdual(record, arrays(&s), &clean, arrays(&start)));
        EXPECT_EQ(clean, 3);
        EXPECT_EQ(tarvo_test::plain_numbasic(start), d.numcon);
        EXPECT_EQ(plain_solve(env, dual_input(d), par, &start, &iterations), 0);
        EXPECT_EQ(iterations, 0);
        EXPECT_EQ(start.solsta, 1);
      }
    }
    dualize_delete(&record);
  }
  for (const int32_t count : seen) EXPECT_GT(count, 100);
}
INSTANTIATE_TEST_SUITE_P(Forms, Dualize, testing::Values(DUALIZE_COMPACT, DUALIZE_FULL));

// Equalities over variables with lower bounds: m free columns and a row a variable, none for its bound. A slack goes.
TEST_F(Dualize, SizesOfACompactForm) {
  tarvo_test::IntLp lp;
  lp.a = {{1, 2, 1, 1}, {3, 1, 1, 0}};
  lp.row = {{2, 4, 4}, {2, 5, 5}};
  lp.column.assign(4, {0, 1, 0});
  lp.c = {1, 2, 3, 4};
  const PlainLp p = tarvo_test::plain(lp);
  dualizer* record = nullptr;
  ASSERT_EQ(dualize_formdual(env, DUALIZE_COMPACT, input(p), &record), 0);
  const DualizeInput d = dualize_problem(record);
  EXPECT_EQ(d.numcon, 3);
  EXPECT_EQ(d.numvar, 2);
  EXPECT_EQ(d.bkx[0], SIM_BK_UP);  // by the slack, of cost 4
  EXPECT_EQ(d.bux[0], 4.0);
  EXPECT_EQ(d.bkx[1], SIM_BK_FR);
  PlainSolution s(p.numcon, p.numvar), dual(d.numcon, d.numvar);
  // The start of a basis identification and a basis with two columns of one element in the same row stay behind.
  int32_t clean = 7;
  EXPECT_FALSE(dualize_getdual(record, arrays(&s), &clean, arrays(&dual)));
  clean = 2;
  s.skc = {SIM_SK_BAS, SIM_SK_LOW};
  s.skx = {SIM_SK_LOW, SIM_SK_LOW, SIM_SK_LOW, SIM_SK_BAS};
  EXPECT_FALSE(dualize_getdual(record, arrays(&s), &clean, arrays(&dual)));
  dualize_delete(&record);
}

TEST_F(Dualize, WritesItself) {
  tarvo_test::IntLp lp;
  lp.a = {{1, 1}, {1, 3}};
  lp.row = {{0, 4, 0}, {4, 6, 9}};
  lp.column.assign(2, {0, 1, 0});
  lp.c = {2, 3};
  lp.cfix = 5;
  const PlainLp p = tarvo_test::plain(lp);
  dualizer* record = nullptr;
  ASSERT_EQ(dualize_formdual(env, DUALIZE_COMPACT, input(p), &record), 0);
  const std::string path = testing::TempDir() + dualize_filename;
  ASSERT_EQ(dualize_writedual(record, path.c_str()), SYS_OK);
  dualize_delete(&record);
  std::string text(4096, '\0');
  std::FILE* file = std::fopen(path.c_str(), "r");
  ASSERT_NE(file, nullptr);
  text.resize(std::fread(text.data(), 1, text.size(), file));
  std::fclose(file);
  std::remove(path.c_str());
  // The lower bounds 1 of the columns are row costs of the dual, here moved into its columns: 1 + 1 - 4, 1 + 3 - 6, ...
  for (const char* line : {" L r0\n", " y0 obj -2\n", " y0 r1 1\n", " y1 obj -2\n", " y2 obj -5\n", " y1 r1 3\n",
                           " rhs obj 10\n", " rhs r0 2\n", " LO bnd y0 0\n", " MI bnd y2\n", " UP bnd y2 0\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
}

}  // namespace
}  // namespace tarvo
