// The simplex behind the presolve: reduce, solve what is left, and come back to the problem as it was given.
#include <algorithm>
#include <cfloat>

#include "simplex/driver.h"

namespace tarvo {

namespace {

constexpr int32_t solsta_optimal = 1, solsta_farkas = 5, solsta_ray = 6;
bool is_certificate(int32_t solsta) { return solsta == solsta_farkas || solsta == solsta_ray; }

// What is left of a problem, as a problem of its own. row[i] and column[j] are the places in the given problem.
struct Reduced {
  SimplexInput input;
  SimplexSolution solution;
  int32_t *row, *column;
  int32_t *rowof, *ptr, *sub;
  double* val;
  double *cc, *cx, *blc, *buc, *blx, *bux;
  int32_t *bkc, *bkx;
};

prslvinput plain(const SimplexInput& in) {
  return {in.numcon, in.numvar, in.a.ptrb, in.a.ptre, in.a.sub, in.a.val, in.cfix, in.cc,
          in.cx,     in.bkc,    in.blc,    in.buc,    in.bkx,   in.blx,   in.bux};
}

prslvsol view(const SimplexSolution& s) { return {0, 0, 0, s.skc, s.xc, s.y, s.slc, s.suc, s.skx, s.xx, s.slx, s.sux}; }

// Copies live rows and columns. Costs of removed columns are in the fixed term.
bool simplex_compressproblem(const prslvprob& p, Workspace* work, Reduced* r) {
  std::size_t con = 0, var = 0, nz = 0;
  for (int32_t i = 0; i < p.numcon; ++i) con += p.bkc[i] != PRSLV_BK_FR ? 1U : 0U;
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (p.bkx[j] == PRSLV_BK_FX) continue;
    ++var;
    nz += static_cast<std::size_t>(p.acol->ptre[j] - p.acol->ptrb[j]);
  }
  work->add(&r->rowof, static_cast<std::size_t>(p.numcon));
  for (int32_t** list : {&r->row, &r->bkc, &r->solution.skc}) work->add(list, con, Fill::zero);
  for (int32_t** list : {&r->column, &r->bkx, &r->solution.skx}) work->add(list, var, Fill::zero);
  work->add(&r->ptr, var + 1);
  work->add(&r->sub, nz);
  work->add(&r->val, nz);
  for (double** list : {&r->cc, &r->blc, &r->buc, &r->solution.xc, &r->solution.y, &r->solution.slc, &r->solution.suc})
    work->add(list, con, Fill::zero);
  for (double** list : {&r->cx, &r->blx, &r->bux, &r->solution.xx, &r->solution.slx, &r->solution.sux})
    work->add(list, var, Fill::zero);
  if (!work->commit()) return false;
  int32_t m = 0, n = 0, put = 0;
  for (int32_t i = 0; i < p.numcon; ++i) {
    r->rowof[i] = -1;
    if (p.bkc[i] == PRSLV_BK_FR) continue;
    r->rowof[i] = m;
    r->row[m] = i;
    r->cc[m] = p.cc[i];
    r->bkc[m] = p.bkc[i];
    r->blc[m] = p.blc[i];
    r->buc[m++] = p.buc[i];
  }
  double cfix = p.cfix;
  r->ptr[0] = 0;
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (p.bkx[j] == PRSLV_BK_FX) {
      cfix += p.cx[j] * p.blx[j];
      continue;
    }
    for (int32_t t = p.acol->ptrb[j]; t < p.acol->ptre[j]; ++t) {
      const int32_t i = r->rowof[p.acol->sub[t]];
      if (i < 0) continue;
      r->sub[put] = i;
      r->val[put++] = p.acol->val[t];
    }
    r->column[n] = j;
    r->cx[n] = p.cx[j];
    r->bkx[n] = p.bkx[j];
    r->blx[n] = p.blx[j];
    r->bux[n++] = p.bux[j];
    r->ptr[n] = put;
  }
  r->input = {m,      n,     {r->ptr, r->ptr + 1, r->sub, r->val}, cfix, r->cc, r->cx, r->bkc, r->blc, r->buc, r->bkx,
              r->blx, r->bux};
  return true;
}

// Spreads the solution of what is left over all rows and columns; removed ones stand as the walk back expects them.
void simplex_uncompressproblem(const prslvprob& p, const Reduced& r, int32_t solsta, const SimplexSolution& s) {
  const double one = is_certificate(solsta) ? 0.0 : 1.0;
  for (int32_t i = 0; i < p.numcon; ++i) {
    if (p.bkc[i] != PRSLV_BK_FR) continue;
    s.skc[i] = SIM_SK_BAS;
    s.xc[i] = s.slc[i] = s.suc[i] = 0.0;
    s.y[i] = -one * p.cc[i];
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (p.bkx[j] != PRSLV_BK_FX) continue;
    s.skx[j] = SIM_SK_FIX;
    s.xx[j] = one * p.blx[j];
    s.slx[j] = one * std::max(p.cx[j], 0.0);
    s.sux[j] = one * std::max(-p.cx[j], 0.0);
  }
  for (int32_t k = 0; k < r.input.numcon; ++k) {
    const int32_t i = r.row[k];
    s.skc[i] = r.solution.skc[k];
    s.xc[i] = r.solution.xc[k];
    s.y[i] = r.solution.y[k];
    s.slc[i] = r.solution.slc[k];
    s.suc[i] = r.solution.suc[k];
  }
  for (int32_t k = 0; k < r.input.numvar; ++k) {
    const int32_t j = r.column[k];
    s.skx[j] = r.solution.skx[k];
    s.xx[j] = r.solution.xx[k];
    s.slx[j] = r.solution.slx[k];
    s.sux[j] = r.solution.sux[k];
  }
}

// A run that was stopped before it had a point.
void clear(const SimplexInput& in, const SimplexSolution& s) {
  std::fill_n(s.skc, in.numcon, SIM_SK_UNK);
  std::fill_n(s.skx, in.numvar, SIM_SK_UNK);
  for (double* list : {s.xc, s.y, s.slc, s.suc}) std::fill_n(list, in.numcon, 0.0);
  for (double* list : {s.xx, s.slx, s.sux}) std::fill_n(list, in.numvar, 0.0);
}

// What became of one try with the presolve.
enum class Outcome {
  done,      // statuses, solution and stop code stand
  unproven,  // a certificate does not hold on the given problem, the solution can't be brought back, or none was made
};

struct HookHandle {
  const SimplexEvents* events;
  simplexinfo* info;
};
int32_t on_presolve(void* handle, int32_t event, const prslvstat* stat) {
  const auto* h = static_cast<const HookHandle*>(handle);
  h->info->presolve = *stat;
  return h->events->func(h->events->handle, event, h->info);
}

// Solves what is left and spreads the solution. False when there is nothing to go back with.
bool solve_reduced(const SimplexCall& call, const prslvprob& p) {
  Workspace work(call.env);
  Reduced r{};
  simplexbasis basis;
  simplexinfo* info = call.info;
  info->resp = SIM_RESP_SPACE;
  if (!simplex_compressproblem(p, &work, &r) || simplex_makebasis(call.env, r.input.numcon, &basis) != SIM_RESP_OK) {
    simplex_deletebasis(&basis);
    return false;
  }
  SimplexCall run = call;
  run.input = &r.input;
  run.solution = &r.solution;
  run.basis = &basis;
  simplex_solveform(run);
  simplex_deletebasis(&basis);
  simplex_uncompressproblem(p, r, info->solsta, *call.solution);
  return info->resp != SIM_RESP_SPACE;
}

Outcome simplex_postsolve(const SimplexCall& call, const prslvpar& par, const prslvprob& p, prslvstat* stat,
                          bool basic) {
  prslvsol sol = view(*call.solution);
  simplexinfo* info = call.info;
  sol.defined = 1;
  sol.prosta = info->prosta;
  sol.solsta = info->solsta;
  const int32_t result = basic ? prslv_postsolvebas(par, &p, stat, &sol) : prslv_postsolve(par, &p, stat, &sol);
  if (result == PRSLV_SPACE) {
    info->resp = SIM_RESP_SPACE;
    return Outcome::done;
  }
  if (result != PRSLV_OK) return Outcome::unproven;
  simplex_finish(call);
  return info->resp == SIM_RESP_OK && info->solsta == 0 ? Outcome::unproven : Outcome::done;
}

void on_print(void* handle, const char* text) {
  const SimplexEvents* events = static_cast<const HookHandle*>(handle)->events;
  events->print(events->handle, text);
}
void on_name(void* handle, bool row, int32_t index, char* buffer, int32_t size) {
  const SimplexEvents* events = static_cast<const HookHandle*>(handle)->events;
  events->name(events->handle, row, index, buffer, size);
}

Outcome attempt(const SimplexCall& call, const prslvpar& par, prslvprob* p, prslvstat* stat) {
  simplexinfo* info = call.info;
  HookHandle handle{call.events, info};
  prslvhook hook;
  hook.handle = &handle;
  hook.func = on_presolve;
  if (call.events->print != nullptr) hook.print = on_print;
  if (call.events->name != nullptr) hook.name = on_name;
  prslvsol itr = view(*call.solution);
  const int32_t result = prslv_reduce(par, p, &itr, nullptr, stat, hook);
  if (result == PRSLV_NOTREADY) return Outcome::unproven;
  info->resp = result == PRSLV_SPACE ? SIM_RESP_OK : result;  // what was reduced before memory ran out counts
  if (info->resp != SIM_RESP_OK) {
    clear(*call.input, *call.solution);
    return Outcome::done;
  }
  if (stat->status != 0) {
    if (itr.defined == 0) return Outcome::unproven;
    info->prosta = itr.prosta;
    info->solsta = itr.solsta;
    if (itr.solsta == solsta_optimal)
      for (int32_t i = 0; i < p->numcon; ++i) call.solution->skc[i] = SIM_SK_BAS;
    return simplex_postsolve(call, par, *p, stat, itr.solsta == solsta_optimal);
  }
  if (!solve_reduced(call, *p)) return Outcome::done;
  if (info->resp == SIM_RESP_OK && info->solsta == 0) return Outcome::unproven;
  return simplex_postsolve(call, par, *p, stat, true);
}

}  // namespace

int32_t simplex_solvereduced(const SimplexCall& call) {
  prslvpar par = call.par.reduce;
  simplexinfo* info = call.info;
  // A proof that fails on the given problem: first without the arguments from multiplier signs, then as it was given.
  for (const int32_t dualargs : {1, 0}) {
    par.dualargs = dualargs;
    prslvprob* p = prslv_make(call.env, plain(*call.input));
    if (p == nullptr) break;
    prslvstat stat;
    const Outcome outcome = attempt(call, par, p, &stat);
    prslv_delete(&p);
    info->presolve = stat;
    if (outcome == Outcome::done) return info->resp;
  }
  info->prosta = info->solsta = 0;
  return simplex_solveform(call);
}

}  // namespace tarvo
