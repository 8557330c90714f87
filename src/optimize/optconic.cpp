// The run of the conic optimiser on a whole problem.
#include "optimize/optconic.h"

#include <algorithm>
#include <cmath>

#include "optimize/optconic_internal.h"

namespace tarvo {

namespace {

enum class Outcome { done, again };

struct Call {
  sysenv* env;
  const ConicOptions& options;
  const ConicInput& input;
  const IpmEvents& events;
  ConicSolution* solution;
  ConicInfo* info;
};

void clear(const Call& call) {
  const prslvinput& p = call.input.linear;
  prslvsol* s = &call.solution->sol;
  s->defined = s->prosta = s->solsta = 0;
  for (double* list : {s->xc, s->y, s->slc, s->suc}) std::fill_n(list, p.numcon, 0.0);
  for (double* list : {s->xx, s->slx, s->sux, call.solution->snx}) std::fill_n(list, p.numvar, 0.0);
  std::fill_n(s->skc, p.numcon, int32_t{PRSLV_SK_UNK});
  std::fill_n(s->skx, p.numvar, int32_t{PRSLV_SK_UNK});
  std::fill_n(call.solution->skn, call.input.numcone, int32_t{PRSLV_SK_UNK});
}

bool is_ray(int32_t solsta) { return solsta == INTPNT_SOL_DUALCER || solsta == INTPNT_SOL_NEARDUALCER; }
bool is_proof(int32_t solsta) { return solsta == INTPNT_SOL_PRIMCER || solsta == INTPNT_SOL_NEARPRIMCER; }

// ---- Hooks of the stages

int32_t send(const Call& call, int32_t event) {
  return call.events.func != nullptr ? call.events.func(call.events.handle, event, &call.info->ipm) : 0;
}
int32_t on_presolve(void* handle, int32_t event, const prslvstat* stat) {
  const auto& call = *static_cast<const Call*>(handle);
  call.info->ipm.presolve = *stat;
  return send(call, event);
}
int32_t on_iteration(void* handle, const HomReport& report) {
  const auto& call = *static_cast<const Call*>(handle);
  IpmInfo& info = call.info->ipm;
  info.iter = report.iter;
  info.pobj = report.pobj;
  info.dobj = report.dobj;
  info.pfeas = report.pfeas;
  info.dfeas = report.dfeas;
  info.kappatau = report.kappatau;
  info.mu = report.mu;
  info.kkt = *report.kkt;
  return send(call, CONIC_ITERATION);
}
int32_t on_progress(void* handle, int32_t code) {
  const int32_t event = kkt_event(code);
  return send(*static_cast<const Call*>(handle), event == IPM_PROGRESS ? int32_t{CONIC_PROGRESS} : event);
}
void on_print(void* handle, const char* text) {
  const IpmEvents& events = static_cast<const Call*>(handle)->events;
  events.print(events.handle, text);
}
void on_name(void* handle, bool row, int32_t index, char* buffer, int32_t size) {
  const IpmEvents& events = static_cast<const Call*>(handle)->events;
  events.name(events.handle, row, index, buffer, size);
}

// ---- The way back

// Takes the sign of a multiplier off that has no bound to act on.
double supported(int32_t bk, double t) {
  if (t > 0.0 && !prslv_lower(bk)) return 0.0;
  if (t < 0.0 && !prslv_upper(bk)) return 0.0;
  return t;
}

// Makes the point agree with the given data: activities, multipliers of the rows with a sign that their bounds allow,
// those of the columns' bounds as what the dual rows leave beside snx; and the keys of the cones.
void finish(const Call& call) {
  const prslvinput& p = call.input.linear;
  ConicSolution* out = call.solution;
  const prslvsol& s = out->sol;
  const double costs = is_ray(s.solsta) || is_proof(s.solsta) ? 0.0 : 1.0;
  std::fill_n(s.xc, p.numcon, 0.0);
  for (int32_t j = 0; j < p.numvar; ++j)
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) s.xc[p.sub[t]] += p.val[t] * s.xx[j];
  for (int32_t i = 0; i < p.numcon; ++i) {
    const double cost = p.cc != nullptr ? costs * p.cc[i] : 0.0;
    const double y = supported(p.bkc[i], s.y[i] + cost);
    s.y[i] = y - cost;
    s.slc[i] = std::max(y, 0.0);
    s.suc[i] = std::max(-y, 0.0);
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    double z = costs * p.cx[j] - out->snx[j];
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) z -= p.val[t] * s.y[p.sub[t]];
    z = is_ray(s.solsta) ? 0.0 : supported(p.bkx[j], z);
    s.slx[j] = std::max(z, 0.0);
    s.sux[j] = std::max(-z, 0.0);
  }
  for (int32_t k = 0; k < call.input.numcone; ++k) {
    double xnorm = 0.0, snorm = 0.0;
    const int32_t beg = call.input.conebegin[k], heads = call.input.conetype[k] == CONIC_RQUAD ? 2 : 1;
    for (int32_t t = beg; t < beg + heads; ++t) {
      const int32_t j = call.input.conemembers[t];
      xnorm = std::max(xnorm, std::fabs(s.xx[j]));
      snorm = std::max(snorm, std::fabs(out->snx[j]));
    }
    constexpr double small = 1e-6;
    out->skn[k] = snorm <= small * xnorm ? PRSLV_SK_SUPBAS : xnorm <= small * snorm ? PRSLV_SK_LOW : PRSLV_SK_UPR;
  }
}

// Runs the iteration on a problem and maps the solution to its terms. False when memory ran out.
bool solve(const Call& call, const ConicInput& input, bool reduced) {
  ConicInfo* info = call.info;
  IpmInfo* ipm = &info->ipm;
  ConicForm form;
  ipm->resp = conic_setup(call.env, input, reduced, &form);
  if (ipm->resp == HOM_RESP_OK) {
    const IntpntProblem& q = form.prob;
    ipm->numcon = q.m;
    ipm->numvar = q.n;
    info->numblo = q.nb - q.nu;
    info->numbup = q.nu;
    info->numbfr = q.nf;
    info->numcone = q.numcone;
    info->numconevar = q.n - q.nb - q.nf;
    info->numbndconevar = 0;
    for (const int32_t row : form.copyrow) info->numbndconevar += row >= 0 ? 1 : 0;
    const HomEvents events{const_cast<Call*>(&call), on_iteration, on_progress,
                           call.events.print != nullptr ? on_print : nullptr};
    intpnt_optcone(call.env, call.options.intpnt, q, events, &form.sol, &ipm->kkt);
    ipm->resp = form.sol.resp;
    ipm->iter = form.sol.iter;
    ipm->numrefine += static_cast<int32_t>(form.sol.numrefine);
    if (info->firstrefine < 0) info->firstrefine = form.sol.firstrefine;
    if (ipm->resp != HOM_RESP_SPACE) conic_setupsol(form, call.solution);
  }
  conic_invsetup(&form);
  return ipm->resp != HOM_RESP_SPACE;
}

prslvinput reduced_input(const prslvprob& p) {
  return {p.numcon,    p.numvar,     p.acol->ptrb, p.acol->ptre, p.acol->sub,  p.acol->val,  p.cfix,      p.cc.data(),
          p.cx.data(), p.bkc.data(), p.blc.data(), p.buc.data(), p.bkx.data(), p.blx.data(), p.bux.data()};
}

// Whether the claim of optimality holds on the given problem: bounds and dual rows.
bool holds(const Call& call) {
  const prslvinput& p = call.input.linear;
  const prslvsol& s = call.solution->sol;
  if (s.solsta != INTPNT_SOL_OPTIMAL) return true;
  constexpr double tol = 1e-5;
  const auto within = [](double x, int32_t bk, double bl, double bu) {
    return (!prslv_lower(bk) || x >= bl - tol * (1.0 + std::fabs(bl))) &&
           (!prslv_upper(bk) || x <= bu + tol * (1.0 + std::fabs(bu)));
  };
  for (int32_t i = 0; i < p.numcon; ++i)
    if (!within(s.xc[i], p.bkc[i], p.blc[i], p.bkc[i] == PRSLV_BK_FX ? p.blc[i] : p.buc[i])) return false;
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (!within(s.xx[j], p.bkx[j], p.blx[j], p.bkx[j] == PRSLV_BK_FX ? p.blx[j] : p.bux[j])) return false;
    double z = p.cx[j] - s.slx[j] + s.sux[j] - call.solution->snx[j], size = 1.0 + std::fabs(p.cx[j]);
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) {
      z -= p.val[t] * s.y[p.sub[t]];
      size = std::max(size, std::fabs(p.val[t] * s.y[p.sub[t]]));
    }
    if (!(std::fabs(z) <= tol * size)) return false;
  }
  return true;
}

Outcome with_presolve(const Call& call, prslvprob* p) {
  IpmInfo* info = &call.info->ipm;
  prslvsol* sol = &call.solution->sol;
  p->numkeep = 0;
  for (int32_t k = 0; k < call.input.numcone; ++k) p->numkeep += call.input.coneend[k] - call.input.conebegin[k];
  Array<int32_t> keep;
  if (!keep.alloc(call.env, static_cast<std::size_t>(p->numkeep))) return Outcome::again;
  int32_t put = 0;
  for (int32_t k = 0; k < call.input.numcone; ++k)
    for (int32_t t = call.input.conebegin[k]; t < call.input.coneend[k]; ++t) keep[put++] = call.input.conemembers[t];
  p->keepvar = keep.data();
  prslvhook hook{const_cast<Call*>(&call), on_presolve, nullptr, nullptr};
  if (call.events.print != nullptr) hook.print = on_print;
  if (call.events.name != nullptr) hook.name = on_name;
  const int32_t result = prslv_reduce(call.options.reduce, p, sol, nullptr, &info->presolve, hook);
  p->keepvar = nullptr;
  if (result == PRSLV_NOTREADY || result == PRSLV_SPACE) return Outcome::again;
  if (result != PRSLV_OK) {
    clear(call);
    info->resp = result;
    return Outcome::done;
  }
  if (info->presolve.status != 0) {
    if (sol->defined == 0) return Outcome::again;
    std::fill_n(call.solution->snx, p->numvar, 0.0);
  } else {
    ConicInput reduced = call.input;
    reduced.linear = reduced_input(*p);
    if (!solve(call, reduced, true)) {
      clear(call);
      return Outcome::done;
    }
  }
  const int32_t undone = prslv_postsolve(call.options.reduce, p, &info->presolve, sol);
  if (undone == PRSLV_SPACE) {
    clear(call);
    info->resp = HOM_RESP_SPACE;
    return Outcome::done;
  }
  if (undone != PRSLV_OK) return Outcome::again;
  finish(call);
  return holds(call) ? Outcome::done : Outcome::again;
}

}  // namespace

void conic_optimizer(sysenv* env, const ConicOptions& options, const ConicInput& input, const IpmEvents& events,
                     ConicSolution* solution, ConicInfo* info) {
  const Call call{env, options, input, events, solution, info};
  *info = {};
  if (options.presolve) {
    prslvprob* p = prslv_make(env, input.linear);
    const Outcome outcome = p != nullptr ? with_presolve(call, p) : Outcome::again;
    prslv_delete(&p);
    if (outcome == Outcome::done) return;
  }
  if (solve(call, input, false))
    finish(call);
  else
    clear(call);
}

}  // namespace tarvo
