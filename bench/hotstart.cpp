// Hot starts: solves each file, solves it again unchanged, then changes one cost or one bound at random and solves
// again from where the task stands, until 20 changes have left an optimum. A change that leaves none is counted apart,
// taken back, and the optimum restored: a problem that stays infeasible would restart in no iterations. Prints the
// iterations of the cold solve, of the unchanged problem, and of the changed ones the median and the largest.
//
//   hotstart [optimizer: primal, dual or free] FILE...
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "tarvo.h"

namespace {

constexpr size_t changes = 20;

int32_t solve(TRVtask task, int32_t* solsta) {
  int32_t prosta = 0, primal = 0, dual = 0;
  *solsta = TRV_SOL_STA_UNKNOWN;
  if (TRV_optimize(task) != TRV_RES_OK) return -1;
  TRV_getsolutionstatus(task, TRV_SOL_BAS, &prosta, solsta);
  TRV_getintinf(task, TRV_IINF_SIM_PRIMAL_ITER, &primal);
  TRV_getintinf(task, TRV_IINF_SIM_DUAL_ITER, &dual);
  return primal + dual;
}

// What a change overwrote: a cost (accmode -1) or a bound.
struct Old {
  int32_t accmode, index, bk;
  double bl, bu;
};

void take_back(TRVtask task, const Old& old) {
  if (old.accmode < 0)
    TRV_putcj(task, old.index, old.bl);
  else
    TRV_putbound(task, old.accmode, old.index, old.bk, old.bl, old.bu);
}

// Moves a cost or a finite bound by up to a tenth (by up to 1 when it is 0).
Old change(TRVtask task, std::mt19937* random) {
  const auto factor = [random](double v) {
    const double t = std::uniform_real_distribution<double>(-1.0, 1.0)(*random);
    return v == 0.0 ? t : v * (1.0 + 0.1 * t);
  };
  int32_t numcon = 0, numvar = 0;
  TRV_getnumcon(task, &numcon);
  TRV_getnumvar(task, &numvar);
  for (;;) {
    const auto kind = (*random)() % 2;
    if (kind == 0) {
      const auto j = static_cast<int32_t>((*random)() % static_cast<unsigned>(numvar));
      double c = 0.0;
      TRV_getcslice(task, j, j + 1, &c);
      TRV_putcj(task, j, factor(c));
      return {-1, j, 0, c, 0.0};
    }
    const int32_t accmode = (*random)() % 2 == 0 ? TRV_ACC_CON : TRV_ACC_VAR;
    const auto i = static_cast<int32_t>((*random)() % static_cast<unsigned>(accmode == TRV_ACC_CON ? numcon : numvar));
    int32_t bk = 0;
    double bl = 0.0, bu = 0.0;
    TRV_getbound(task, accmode, i, &bk, &bl, &bu);
    if (bk == TRV_BK_FR) continue;
    const Old old{accmode, i, bk, bl, bu};
    if (bk == TRV_BK_FX) bl = bu = factor(bl);
    if (bk == TRV_BK_LO || bk == TRV_BK_RA) bl = std::min(factor(bl), bk == TRV_BK_RA ? bu : 1e30);
    if (bk == TRV_BK_UP) bu = factor(bu);
    TRV_putbound(task, accmode, i, bk, bl, bu);
    return old;
  }
}

}  // namespace

int main(int argc, char** argv) {
  int32_t optimizer = TRV_OPTIMIZER_FREE_SIMPLEX;
  int first = 1;
  if (argc > 1 && std::strcmp(argv[1], "primal") == 0) optimizer = TRV_OPTIMIZER_PRIMAL_SIMPLEX, ++first;
  if (argc > 1 && std::strcmp(argv[1], "dual") == 0) optimizer = TRV_OPTIMIZER_DUAL_SIMPLEX, ++first;
  if (argc > 1 && std::strcmp(argv[1], "free") == 0) ++first;
  TRVenv env = nullptr;
  if (TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr) != TRV_RES_OK || TRV_initenv(env) != TRV_RES_OK) return 1;
  std::printf(
      "| file | cold | unchanged | median | largest | median / cold | no optimum |\n|---|---|---|---|---|---|---|\n");
  for (int k = first; k < argc; ++k) {
    TRVtask task = nullptr;
    TRV_makeemptytask(env, &task);
    TRV_putintparam(task, TRV_IPAR_OPTIMIZER, optimizer);
    TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, TRV_MPS_FORMAT_FREE);
    if (TRV_readdata(task, argv[k]) != TRV_RES_OK) {
      TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, TRV_MPS_FORMAT_RELAXED);
      if (TRV_readdata(task, argv[k]) != TRV_RES_OK) return 1;
    }
    int32_t solsta = 0;
    const int32_t cold = solve(task, &solsta);
    const int32_t unchanged = solve(task, &solsta);
    std::vector<int32_t> count;
    int other = 0;
    std::mt19937 random(7);
    while (solsta == TRV_SOL_STA_OPTIMAL && count.size() < changes && other < 20 * static_cast<int>(changes)) {
      const Old old = change(task, &random);
      const int32_t iterations = solve(task, &solsta);
      if (solsta == TRV_SOL_STA_OPTIMAL) {
        count.push_back(iterations);
      } else {
        ++other;
        take_back(task, old);
        solve(task, &solsta);
      }
    }
    const char* slash = std::strrchr(argv[k], '/');
    const char* name = slash ? slash + 1 : argv[k];
    if (count.size() < changes) {
      std::printf("| %s | %d | %d | - | - | - | %d |\n", name, cold, unchanged, other);
    } else {
      std::sort(count.begin(), count.end());
      std::printf("| %s | %d | %d | %d | %d | %.2f %% | %d |\n", name, cold, unchanged, count[changes / 2],
                  count.back(), 100.0 * count[changes / 2] / std::max(cold, 1), other);
    }
    std::fflush(stdout);
    TRV_deletetask(&task);
  }
  TRV_deleteenv(&env);
  return 0;
}
