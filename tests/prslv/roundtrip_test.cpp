// Random small problems with all the structures that reductions look for, through the presolve and back.
#include "prslv/roundtrip.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/differential.h"
#include "support/random_lp.h"

namespace tarvo_test {
namespace {

// TARVO_SEED and TARVO_RUNS try other seeds and more of them.
int32_t setting(const char* name, int32_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::atoi(text) : otherwise;
}

tarvo::prslvpar switches(int32_t seed) {
  tarvo::prslvpar par;
  par.relax = seed % 5 != 0 ? 1 : 0;
  par.eliminator = seed % 4 != 0 ? 1 : 0;
  par.lindep = seed % 3 != 0 ? 1 : 0;
  par.dualargs = seed % 7 != 0 ? 1 : 0;
  par.use = seed % 31 != 0 ? 1 : 0;
  return par;
}

TEST(RoundTrip, RandomProblemsComeBack) {
  const int32_t first = setting("TARVO_SEED", 1), runs = setting("TARVO_RUNS", 2000);
  int32_t failures = 0;
  int64_t before = 0, after = 0;
  for (int32_t seed = first; seed < first + runs && failures < 5; ++seed) {
    Choices pick(static_cast<uint64_t>(seed));
    const IntLp lp = random_problem(&pick);
    const auto exact = exact_answer(lp);
    if (!exact) continue;
    const RoundTrip trip =
        roundtrip(plain(lp, seed % 3 == 0 ? static_cast<uint32_t>(seed) : 0), *exact, switches(seed));
    before += lp.numcon() + lp.numvar();
    after += trip.reduced.numcon + trip.reduced.numvar;
    if (trip.wrong.empty()) continue;
    ++failures;
    ADD_FAILURE() << "seed " << seed << ": " << trip.wrong << "\n" << as_text(lp);
  }
  // Most of such problems is for the presolve to solve.
  EXPECT_LT(after, before) << before;
  std::printf("rows and columns: %ld of %ld left\n", static_cast<long>(after), static_cast<long>(before));
}

// Larger problems with a known optimum, every third one with rows scaled apart.
TEST(RoundTrip, LargerProblemsComeBack) {
  const int32_t first = setting("TARVO_SEED", 1), runs = setting("TARVO_RUNS", 200);
  int32_t failures = 0;
  for (int32_t seed = first; seed < first + runs && failures < 5; ++seed) {
    const auto random = static_cast<uint32_t>(seed);
    const Lp lp =
        random_lp(random, 5 + seed * 7 % 60, 5 + seed * 11 % 80, 0.02 + 0.01 * (seed % 13), seed % 3 == 0 ? 2.0 : 0.0);
    PlainLp p;
    p.numcon = lp.numcon;
    p.numvar = lp.numvar;
    p.ptr = lp.ptr;
    p.sub = lp.sub;
    p.val = lp.val;
    p.cc.assign(lp.blc.size(), 0.0);
    p.cx = lp.c;
    p.bkc = lp.bkc;
    p.blc = lp.blc;
    p.buc = lp.buc;
    p.bkx = lp.bkx;
    p.blx = lp.blx;
    p.bux = lp.bux;
    p.cfix = lp.cfix;
    const RoundTrip trip = roundtrip(p, {Answer::optimal, false, lp.optimum}, switches(seed));
    if (trip.wrong.empty()) continue;
    ++failures;
    ADD_FAILURE() << "seed " << seed << ": " << trip.wrong;
  }
}

// Memory that runs out leaves a problem that is reduced as far as its records say.
TEST(RoundTrip, OutOfMemory) {
  for (int32_t seed = 1; seed <= 60; ++seed) {
    Choices pick(static_cast<uint64_t>(seed));
    const IntLp lp = random_problem(&pick);
    const auto exact = exact_answer(lp);
    if (!exact) continue;
    const PlainLp p = plain(lp);
    bool ran_out = true;
    for (int64_t k = 0; ran_out; ++k) {
      const RoundTrip trip = roundtrip(p, *exact, {}, k);
      ASSERT_EQ(trip.wrong, "") << "seed " << seed << " allocation " << k << "\n" << as_text(lp);
      ran_out = trip.result != tarvo::PRSLV_OK;
    }
  }
}

// Ranges whose ends cross: by more than the tolerance a proof, by less a fixed value.
TEST(RoundTrip, CrossedRanges) {
  for (const bool row : {true, false}) {
    PlainLp p;
    p.numcon = p.numvar = 1;
    p.ptr = {0, 1};
    p.sub = {0};
    p.val = {2.0};
    p.cc = {0.0};
    p.cx = {1.0};
    p.bkc = {4};
    p.bkx = {4};
    p.blc = {row ? 4.0 : -9.0};
    p.buc = {row ? 3.0 : 9.0};
    p.blx = {row ? -9.0 : 2.0};
    p.bux = {row ? 9.0 : 1.0};
    const RoundTrip trip = roundtrip(p, {Answer::infeasible, false, 0.0});
    EXPECT_EQ(trip.wrong, "");
    EXPECT_EQ(trip.stat.status, 4);
    EXPECT_EQ((row ? trip.interior.skc : trip.interior.skx)[0], tarvo::PRSLV_SK_INF);
    (row ? p.buc : p.bux)[0] = (row ? p.blc : p.blx)[0] - 1e-9;
    EXPECT_EQ(roundtrip(p, {Answer::optimal, false, 0.0}).wrong, "");
  }
}

}  // namespace
}  // namespace tarvo_test
