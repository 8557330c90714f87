// The choice between a problem and its dual, and the run on the dual.
#include <algorithm>

#include "dualize/dualize.h"
#include "simplex/driver.h"

namespace tarvo {

namespace {

constexpr int32_t form_primal = 1, form_dual = 2;

DualizeInput plain(const SimplexInput& in) {
  return {in.numcon, in.numvar, in.a.ptrb, in.a.ptre, in.a.sub, in.a.val, in.cfix, in.cc,
          in.cx,     in.bkc,    in.blc,    in.buc,    in.bkx,   in.blx,   in.bux};
}

// Which form is smaller, by rows and columns: the dual must be clearly smaller in one and not much larger in the other.
bool dual_is_smaller(const SimplexInput& in, const DualizeSize& dual) {
  const double m = std::max(in.numcon, 1), n = std::max(in.numvar, 1);
  const double m2 = std::max(dual.numcon, 1), n2 = std::max(dual.numvar, 1);
  if (m2 >= 0.7 * m && n2 >= 0.7 * n) return false;
  if (m2 <= 0.7 * m && n2 <= 0.7 * n) return true;
  if (m2 / m < 0.7) return !(m2 / m > 0.6 && n2 / n > 2.0);
  if (m / m2 < 0.7) return m / m2 > 0.6 && n / n2 > 2.0 && (n - dual.numranged) / n2 > 2.5;
  if ((n - dual.numranged) / n2 > 2.5) return true;
  return false;
}

bool wants_dual(const SimplexCall& call) {
  const SimplexInput& in = *call.input;
  if (call.par.clean != 0 || in.numcon == 0 || in.numvar == 0 || call.par.solveform == form_primal) return false;
  if (call.par.solveform == form_dual) return true;
  DualizeSize size;
  return dualize_getdualsize(call.env, DUALIZE_COMPACT, plain(in), &size) == 0 && dual_is_smaller(in, size);
}

// Arrays of a solution of the dual.
bool add_solution(Workspace* work, const DualizeInput& dual, SimplexSolution* s) {
  const auto con = static_cast<std::size_t>(dual.numcon), var = static_cast<std::size_t>(dual.numvar);
  work->add(&s->skc, con, Fill::zero);
  work->add(&s->skx, var, Fill::zero);
  for (double** list : {&s->xc, &s->y, &s->slc, &s->suc}) work->add(list, con, Fill::zero);
  for (double** list : {&s->xx, &s->slx, &s->sux}) work->add(list, var, Fill::zero);
  return work->commit();
}

DualizeSolution plain(const SimplexSolution& s) { return {s.skc, s.skx, s.xc, s.xx, s.y, s.slc, s.suc, s.slx, s.sux}; }

int32_t solve_dual(const SimplexCall& call, const dualizer* record) {
  const DualizeInput dual = dualize_problem(record);
  const SimplexInput input{dual.numcon, dual.numvar, {dual.ptrb, dual.ptre, dual.sub, dual.val},
                           dual.cfix,   dual.cc,     dual.cx,
                           dual.bkc,    dual.blc,    dual.buc,
                           dual.bkx,    dual.blx,    dual.bux};
  Workspace work(call.env);
  SimplexSolution solution{};
  simplexbasis basis;
  simplexinfo* info = call.info;
  info->resp = SIM_RESP_SPACE;
  if (!add_solution(&work, dual, &solution) || simplex_makebasis(call.env, dual.numcon, &basis) != SIM_RESP_OK) {
    simplex_deletebasis(&basis);
    return info->resp;
  }
  SimplexCall run = call;
  run.input = &input;
  run.solution = &solution;
  run.basis = &basis;
  // The objective of the dual form is the negated one of the problem.
  run.par.haslowcut = call.par.hasupcut;
  run.par.hasupcut = call.par.haslowcut;
  run.par.lowcut = -call.par.upcut;
  run.par.upcut = -call.par.lowcut;
  constexpr int32_t primal_first = 1, dual_first = 2;
  if (call.par.switchopt != 0 && run.par.optimizer != 0)
    run.par.optimizer = run.par.optimizer == primal_first ? dual_first : primal_first;
  info->solvedual = 1;
  simplex_solve(run);
  simplex_deletebasis(&basis);

  DualizeResult result;
  if (!dualize_getprimal(record, info->prosta, info->solsta, plain(solution), call.par.tolx[SIM_PRIMAL],
                         call.par.tols[SIM_PRIMAL], plain(*call.solution), &result)) {
    info->prosta = info->solsta = 0;
    return info->resp;
  }
  info->prosta = result.prosta;
  info->solsta = result.solsta;
  return simplex_finish(call);
}

}  // namespace

int32_t simplex_solveform(const SimplexCall& call) {
  call.info->solvedual = 0;
  if (!wants_dual(call)) return simplex_solve(call);
  dualizer* record = nullptr;
  // A dual that does not fit into memory is no reason to give up.
  if (dualize_formdual(call.env, DUALIZE_COMPACT, plain(*call.input), &record) != 0) return simplex_solve(call);
  int32_t resp = solve_dual(call, record);
  dualize_delete(&record);
  // A certificate that does not hold on the problem's own data: the primal form must find its own.
  if (resp == SIM_RESP_OK && call.info->solsta == 0) resp = simplex_solve(call);
  return resp;
}

}  // namespace tarvo
