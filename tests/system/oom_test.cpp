// An allocator that fails at its k-th call, for every k of a scenario: every call gives a documented code and leaves
// its objects usable, and nothing leaks.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tarvo.h"

namespace {

struct Memory {
  int64_t calls = 0, fail_at = 0, live = 0;
  bool for_good = false;  // fails from that call on instead of once
  bool failed = false;
};

void* take(void* handle, size_t size) {
  auto* memory = static_cast<Memory*>(handle);
  ++memory->calls;
  if (memory->calls == memory->fail_at || (memory->for_good && memory->failed)) {
    memory->failed = true;
    return nullptr;
  }
  ++memory->live;
  return std::malloc(size);
}

void give(void* handle, void* pointer) {
  --static_cast<Memory*>(handle)->live;
  std::free(pointer);
}

struct Scene {
  Memory memory;
  bool debug = false;
  std::string file;
  TRVenv env = nullptr;
  TRVtask task = nullptr, clone = nullptr;
};

struct Step {
  const char* name;
  int32_t (*run)(Scene& scene);
};

constexpr Step steps[] = {
    {"makeenv",
     [](Scene& s) { return TRV_makeenv(&s.env, &s.memory, take, give, s.debug ? "" : nullptr); }},
    {"putdllpath", [](Scene& s) { return TRV_putdllpath(s.env, "here;there"); }},
    {"initenv", [](Scene& s) { return TRV_initenv(s.env); }},
    {"maketask", [](Scene& s) { return TRV_maketask(s.env, 1, 1, &s.task); }},
    {"puttaskname", [](Scene& s) { return TRV_puttaskname(s.task, "scene"); }},
    {"putstrparam", [](Scene& s) { return TRV_putstrparam(s.task, TRV_SPAR_STAT_NAME, "name"); }},
    {"setdefaults", [](Scene& s) { return TRV_setdefaults(s.task); }},
};

// Plays the scenario with a failure at call k. Whether the failure came.
bool play(int64_t k, bool debug, bool for_good) {
  Scene scene;
  scene.debug = debug;
  scene.memory.fail_at = k;
  scene.memory.for_good = for_good;
  scene.file = testing::TempDir() + "tarvo_oom.mps";
  for (const Step& step : steps) {
    SCOPED_TRACE(std::string(step.name) + ", failure at call " + std::to_string(k));
    int32_t rc = step.run(scene);
    if (rc == TRV_RES_ERR_SPACE && scene.memory.failed) {
      if (for_good) break;
      TRV_deletetask(&scene.clone);
      rc = step.run(scene);  // now there is memory again
    }
    EXPECT_EQ(rc, TRV_RES_OK);
    if (rc != TRV_RES_OK) break;
  }
  EXPECT_EQ(TRV_deletetask(&scene.clone), TRV_RES_OK);
  EXPECT_EQ(TRV_deletetask(&scene.task), TRV_RES_OK);
  EXPECT_EQ(TRV_deleteenv(&scene.env), TRV_RES_OK);
  EXPECT_EQ(scene.memory.live, 0) << "failure at call " << k;
  return scene.memory.failed;
}

class OutOfMemory : public testing::TestWithParam<std::tuple<bool, bool>> {};

TEST_P(OutOfMemory, IsACodeAtEveryCall) {
  const auto [debug, for_good] = GetParam();
  int64_t k = 1;
  while (play(k, debug, for_good) && !HasFailure()) ++k;
  EXPECT_GT(k, 20);
}

INSTANTIATE_TEST_SUITE_P(Modes, OutOfMemory, testing::Combine(testing::Bool(), testing::Bool()),
                         [](const auto& instance) {
                           return std::string(std::get<0>(instance.param) ? "Debug" : "Plain") +
                                  (std::get<1>(instance.param) ? "ForGood" : "Once");
                         });

}  // namespace
