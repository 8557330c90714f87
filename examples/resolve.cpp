// Reads a problem, solves it, changes the upper bound of a variable and solves again from the old basis:
//   resolve FILE VARIABLE UPPER
#include <tarvo.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

// The environment and the task, deleted in the right order.
struct Problem {
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  Problem() {
    check(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr));
    check(TRV_initenv(env));
    check(TRV_makeemptytask(env, &task));
  }
  Problem(const Problem&) = delete;
  Problem& operator=(const Problem&) = delete;
  ~Problem() {
    TRV_deletetask(&task);
    TRV_deleteenv(&env);
  }

  void check(int32_t code) const {
    if (code == TRV_RES_OK) return;
    char text[TRV_MAX_STR_LEN] = "";
    if (task != nullptr) TRV_getlasterror(task, nullptr, sizeof text, nullptr, text);
    throw std::runtime_error("response code " + std::to_string(code) + ": " + text);
  }

  // Solves and says how it went.
  void solve(const std::string& what) const {
    check(TRV_optimize(task));
    int32_t solsta = TRV_SOL_STA_UNKNOWN;
    int32_t iterations = 0;
    double objective = 0;
    check(TRV_getsolutionstatus(task, TRV_SOL_BAS, nullptr, &solsta));
    if (solsta != TRV_SOL_STA_OPTIMAL) throw std::runtime_error(what + ": not solved to optimality");
    check(TRV_getprimalobj(task, TRV_SOL_BAS, &objective));
    check(TRV_getintinf(task, TRV_IINF_SIM_PRIMAL_ITER, &iterations));
    std::printf("%s: objective %.8g, %d iterations\n", what.c_str(), objective, iterations);
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: resolve FILE VARIABLE UPPER\n");
    return 1;
  }
  try {
    const Problem problem;
    TRVtask task = problem.task;
    problem.check(TRV_readdata(task, argv[1]));
    problem.check(TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX));
    problem.solve("as read");

    int32_t known = 0;
    int32_t j = 0;
    problem.check(TRV_getnameindex(task, TRV_PI_VAR, argv[2], &known, &j));
    if (known == 0) throw std::runtime_error(std::string("there is no variable ") + argv[2]);
    // The basic solution stays in the task, and the next run starts from it.
    problem.check(TRV_chgbound(task, TRV_ACC_VAR, j, /*lower=*/0, /*finite=*/1, std::atof(argv[3])));
    problem.solve(std::string(argv[2]) + " at most " + argv[3]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
