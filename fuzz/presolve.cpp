// Any bytes as the choices that make a small problem and a configuration: the answer of the library must be the exact
// one and hold on the problem's own data, cold, again and after changes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "support/differential.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tarvo_test;
  TRVenv env = nullptr;
  if (TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr) != TRV_RES_OK || TRV_initenv(env) != TRV_RES_OK) abort();
  Choices pick(data, size);
  const Config config = random_config(&pick);
  const IntLp lp = random_problem(&pick);
  const std::string wrong = try_problem(env, lp, config, &pick);
  if (!wrong.empty()) {
    std::fprintf(stderr, "%s\n", report(env, lp, config, wrong, "fuzz-presolve").c_str());
    abort();
  }
  TRV_deleteenv(&env);
  return 0;
}
