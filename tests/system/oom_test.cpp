// An allocator that fails at its k-th call, for every k of a scenario: every call gives a documented code and leaves
// its objects usable, and nothing leaks.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "system/rich_task.h"

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

int32_t solve(TRVtask task, int32_t optimizer, int32_t whichsol) {
  TRV_putintparam(task, TRV_IPAR_OPTIMIZER, optimizer);
  const int32_t rc = TRV_optimize(task);
  if (rc != 0) return rc;
  double objective = 0.0;
  EXPECT_EQ(TRV_getprimalobj(task, whichsol, &objective), 0);
  EXPECT_NEAR(objective, load_linear_optimum, 1e-5);
  return 0;
}

struct Step {
  const char* name;
  int32_t (*run)(Scene& scene);
};

constexpr Step steps[] = {
    {"makeenv", [](Scene& s) { return TRV_makeenv(&s.env, &s.memory, take, give, s.debug ? "" : nullptr); }},
    {"putdllpath", [](Scene& s) { return TRV_putdllpath(s.env, "here;there"); }},
    {"initenv", [](Scene& s) { return TRV_initenv(s.env); }},
    {"maketask", [](Scene& s) { return TRV_maketask(s.env, 1, 1, &s.task); }},
    {"puttaskname", [](Scene& s) { return TRV_puttaskname(s.task, "scene"); }},
    {"putstrparam", [](Scene& s) { return TRV_putstrparam(s.task, TRV_SPAR_STAT_NAME, "name"); }},
    {"setdefaults", [](Scene& s) { return TRV_setdefaults(s.task); }},
    {"load", [](Scene& s) { return load_linear(s.task); }},
    {"search",
     [](Scene& s) {
       int32_t assigned = 0;
       int32_t index = -1;
       const int32_t rc = TRV_getnameindex(s.task, TRV_PI_VAR, "x3", &assigned, &index);
       EXPECT_TRUE(rc != 0 || index == 3);
       return rc;
     }},
    {"edit", [](Scene& s) { return TRV_putaij(s.task, 0, 3, 0.0); }},
    {"write", [](Scene& s) { return TRV_writedata(s.task, s.file.c_str()); }},
    {"resize", [](Scene& s) { return TRV_resizetask(s.task, 0, 0, 0, 0, 0); }},
    {"read", [](Scene& s) { return TRV_readdata(s.task, s.file.c_str()); }},
    {"solve", [](Scene& s) { return solve(s.task, TRV_OPTIMIZER_PRIMAL_SIMPLEX, TRV_SOL_BAS); }},
    {"interior", [](Scene& s) { return solve(s.task, TRV_OPTIMIZER_INTPNT, TRV_SOL_ITR); }},
    {"dual form",
     [](Scene& s) {
       TRV_putintparam(s.task, TRV_IPAR_INTPNT_SOLVE_FORM, TRV_SOLVE_DUAL);
       return solve(s.task, TRV_OPTIMIZER_INTPNT, TRV_SOL_ITR);
     }},
    {"conic", [](Scene& s) { return solve(s.task, TRV_OPTIMIZER_CONIC, TRV_SOL_ITR); }},
    {"simplex again", [](Scene& s) { return solve(s.task, TRV_OPTIMIZER_PRIMAL_SIMPLEX, TRV_SOL_BAS); }},
    {"sensitivity",
     [](Scene& s) {
       TRV_putintparam(s.task, TRV_IPAR_SENSITIVITY_ALL, TRV_ON);
       TRV_putintparam(s.task, TRV_IPAR_SENSITIVITY_TYPE, TRV_SENSITIVITY_TYPE_BASIS);
       int32_t rc = TRV_sensitivityreport(s.task, TRV_STREAM_MSG);
       TRV_putintparam(s.task, TRV_IPAR_SENSITIVITY_TYPE, TRV_SENSITIVITY_TYPE_OPTIMAL_PARTITION);
       const int32_t zero = 0;
       double v[4];
       if (rc == 0) rc = TRV_dualsensitivity(s.task, 1, &zero, &v[0], &v[1], &v[2], &v[3]);
       return rc;
     }},
    {"repair",
     [](Scene& s) {
       double wc[2][3] = {{1, 1, 1}, {1, 1, 1}}, wx[2][4] = {{1, 1, 1, 1}, {1, 1, 1, 1}};
       TRV_putintparam(s.task, TRV_IPAR_FEASREPAIR_OPTIMIZE, TRV_FEASREPAIR_OPTIMIZE_COMBINED);
       const int32_t rc = TRV_relaxprimal(s.task, &s.clone, wc[0], wc[1], wx[0], wx[1]);
       EXPECT_EQ(s.clone == nullptr, rc != 0);
       TRV_deletetask(&s.clone);
       return rc;
     }},
    {"part",
     [](Scene& s) {
       int32_t rc = TRV_putbound(s.task, TRV_ACC_CON, 2, TRV_BK_UP, -1e30, -1);
       if (rc == 0) rc = TRV_optimize(s.task);
       if (rc == 0) rc = TRV_getinfeasiblesubproblem(s.task, TRV_SOL_BAS, &s.clone);
       EXPECT_EQ(s.clone == nullptr, rc != 0);
       TRV_deletetask(&s.clone);
       if (rc == 0) rc = TRV_putbound(s.task, TRV_ACC_CON, 2, TRV_BK_UP, -1e30, 25);
       return rc == 0 ? solve(s.task, TRV_OPTIMIZER_PRIMAL_SIMPLEX, TRV_SOL_BAS) : rc;
     }},
    {"clone",
     [](Scene& s) {
       TRV_deletetask(&s.clone);  // what a failed call left
       return TRV_clonetask(s.task, &s.clone);
     }},
    {"rows",
     [](Scene& s) {
       int32_t num = 0;
       int32_t sub[4];
       double val[4];
       return TRV_getavec(s.clone, TRV_ACC_CON, 0, &num, sub, val);
     }},
    {"solve again", [](Scene& s) { return solve(s.clone, TRV_OPTIMIZER_PRIMAL_SIMPLEX, TRV_SOL_BAS); }},
    {"rest",
     [](Scene& s) {
       for (const LoadStep step : rest_steps) {
         int32_t rc = step(s.clone);
         if (rc == TRV_RES_ERR_SPACE && !s.memory.for_good) rc = step(s.clone);
         if (rc != 0) return rc;
       }
       return 0;
     }},
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
  const int64_t stride = debug ? 7 : 1;
  int64_t k = 1;
  while (play(k, debug, for_good) && !HasFailure()) k += stride;
  EXPECT_GT(k, 300);
}

INSTANTIATE_TEST_SUITE_P(Modes, OutOfMemory, testing::Combine(testing::Bool(), testing::Bool()),
                         [](const auto& instance) {
                           return std::string(std::get<0>(instance.param) ? "Debug" : "Plain") +
                                  (std::get<1>(instance.param) ? "ForGood" : "Once");
                         });

}  // namespace
