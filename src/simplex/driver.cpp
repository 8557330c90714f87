// The entry to the simplex optimisers.
#include "simplex/driver.h"

namespace tarvo {

namespace {

void run(const SimplexCall& call) {
  constexpr int32_t presolve_off = 0;
  // A start is a start for the problem as it is.
  if (call.par.clean == 0 && call.par.presolve != presolve_off && call.input->numcon > 0 && call.input->numvar > 0)
    simplex_solvereduced(call);
  else
    simplex_solveform(call);
}

}  // namespace

int32_t simplex_optimize(sysenv* env, const simplexpar& par, simplexinfo* info, const SimplexInput& input,
                         SimplexSolution* solution, simplexbasis* basis, const SimplexEvents& events) {
  constexpr int32_t event_begin = 32, event_end = 33;  // of the log
  const SimplexCall call{env, par, info, &input, solution, basis, &events};
  info->prosta = info->solsta = 0;
  info->pobj = info->dobj = input.cfix;
  info->numcon = input.numcon;
  info->numvar = input.numvar;
  info->resp = events.func(events.handle, event_begin, info);
  if (info->resp == SIM_RESP_OK && !simplex_usable(input)) info->resp = SIM_RESP_NUMERIC;
  if (info->resp == SIM_RESP_OK) {
    run(call);
    // A start that leads into numerical trouble is worth less than none.
    const bool trouble =
        info->resp == SIM_RESP_NUMERIC || info->resp == SIM_RESP_SETBACKS || info->resp == SIM_RESP_NOPROGRESS;
    if (par.clean != 0 && trouble) {
      SimplexCall cold = call;
      cold.par.clean = 0;
      info->resp = SIM_RESP_OK;
      run(cold);
    }
  }
  const int32_t resp = events.func(events.handle, event_end, info);
  if (info->resp == SIM_RESP_OK) info->resp = resp;
  return info->resp;
}

}  // namespace tarvo
