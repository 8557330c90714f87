#include "optimize/optslv.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace tarvo {

namespace {

constexpr int32_t solsta_optimal = 1, solsta_farkas = 5, solsta_ray = 6, solsta_near = 8, solsta_near_farkas = 12,
                  solsta_near_ray = 13;
constexpr int32_t resp_numerical = 9;
bool is_farkas(int32_t solsta) { return solsta == solsta_farkas || solsta == solsta_near_farkas; }
bool is_ray(int32_t solsta) { return solsta == solsta_ray || solsta == solsta_near_ray; }

struct Call {
  sysenv* env;
  const IpmOptions& options;
  const prslvinput& problem;
  const prslvquad& quad;
  const IpmEvents& events;
  prslvsol* itr;
  IpmInfo* info;
};

int32_t send(const Call& call, int32_t event) {
  return call.events.func != nullptr ? call.events.func(call.events.handle, event, call.info) : 0;
}

// ---- Hooks of the stages

int32_t on_presolve(void* handle, int32_t event, const prslvstat* stat) {
  const auto& call = *static_cast<const Call*>(handle);
  call.info->presolve = *stat;
  return send(call, event);
}
int32_t on_iteration(void* handle, const HomReport& report) {
  const auto& call = *static_cast<const Call*>(handle);
  IpmInfo& info = *call.info;
  info.iter = report.iter;
  info.pobj = report.pobj;
  info.dobj = report.dobj;
  info.pfeas = report.pfeas;
  info.dfeas = report.dfeas;
  info.kappatau = report.kappatau;
  info.mu = report.mu;
  info.kkt = *report.kkt;
  return send(call, IPM_ITERATION);
}
int32_t on_progress(void* handle, int32_t code) { return send(*static_cast<const Call*>(handle), kkt_event(code)); }
void on_print(void* handle, const char* text) {
  const IpmEvents& events = static_cast<const Call*>(handle)->events;
  events.print(events.handle, text);
}
void on_name(void* handle, bool row, int32_t index, char* buffer, int32_t size) {
  const IpmEvents& events = static_cast<const Call*>(handle)->events;
  events.name(events.handle, row, index, buffer, size);
}

// ---- The given problem: consistent arrays, and what certificates are worth

double clipped(int32_t bk, double bl, double bu, double x) {
  if (prslv_lower(bk)) x = std::max(x, bl);
  if (prslv_upper(bk)) x = std::min(x, bu);
  return x;
}

// Takes the sign of a multiplier off that has no bound to act on.
double supported(int32_t bk, double t) {
  if (t > 0.0 && !prslv_lower(bk)) return 0.0;
  if (t < 0.0 && !prslv_upper(bk)) return 0.0;
  return t;
}

// y += factor (A x) by columns.
void add_activities(const prslvinput& p, const double* x, double* xc) {
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (x[j] == 0.0) continue;
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) xc[p.sub[t]] += p.val[t] * x[j];
  }
}

void add_gradient(const prslvquad& q, const double* x, double* gradient) {
  for (int32_t t = q.objbegin; t < q.objend; ++t) {
    const int32_t i = q.subi[t], j = q.subj[t];
    gradient[i] += q.val[t] * x[j];
    if (i != j) gradient[j] += q.val[t] * x[i];
  }
}

// Makes the point agree with the data that the user gave: values inside their bounds, activities, multipliers of the
// rows with a sign that their bounds allow, and those of the columns as what the dual rows leave.
bool consistent(const Call& call) {
  const prslvinput& p = call.problem;
  const prslvsol& s = *call.itr;
  const bool ray = is_ray(s.solsta);
  const double one = ray || is_farkas(s.solsta) ? 0.0 : 1.0;
  for (int32_t j = 0; j < p.numvar; ++j)
    s.xx[j] = ray ? clipped(p.bkx[j], 0.0, 0.0, s.xx[j]) : clipped(p.bkx[j], p.blx[j], p.bux[j], s.xx[j]);
  std::fill_n(s.xc, p.numcon, 0.0);
  add_activities(p, s.xx, s.xc);

  Array<double> gradient;
  const bool quadratic = call.quad.objend > call.quad.objbegin && one != 0.0;
  if (quadratic) {
    if (!gradient.alloc(call.env, static_cast<std::size_t>(p.numvar), Fill::zero)) return false;
    add_gradient(call.quad, s.xx, gradient.data());
  }
  for (int32_t i = 0; i < p.numcon; ++i) {
    const double cost = p.cc != nullptr ? one * p.cc[i] : 0.0;
    const double t = supported(p.bkc[i], s.y[i] + cost);
    s.y[i] = t - cost;
    s.slc[i] = std::max(t, 0.0);
    s.suc[i] = std::max(-t, 0.0);
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    double z = one * p.cx[j] + (quadratic ? gradient[j] : 0.0);
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) z -= p.val[t] * s.y[p.sub[t]];
    z = supported(p.bkx[j], z);
    s.slx[j] = std::max(z, 0.0);
    s.sux[j] = std::max(-z, 0.0);
  }
  return true;
}

// What a certificate proves against what it violates, both on the given data.
constexpr double certificate_tolerance = 1e-6;

double value_of(int32_t n, const int32_t* bk, const double* bl, const double* bu, const double* lower,
                const double* upper) {
  double sum = 0.0;
  for (int32_t k = 0; k < n; ++k) {
    if (prslv_lower(bk[k])) sum += bl[k] * lower[k];
    if (prslv_upper(bk[k])) sum -= bu[k] * upper[k];
  }
  return sum;
}

bool farkas_holds(const Call& call) {
  const prslvinput& p = call.problem;
  const prslvsol& s = *call.itr;
  const double proof =
      value_of(p.numcon, p.bkc, p.blc, p.buc, s.slc, s.suc) + value_of(p.numvar, p.bkx, p.blx, p.bux, s.slx, s.sux);
  double violation = 0.0;
  for (int32_t j = 0; j < p.numvar; ++j) {
    double z = s.sux[j] - s.slx[j];
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) z -= p.val[t] * s.y[p.sub[t]];
    violation = std::max(violation, std::fabs(z));
  }
  return proof > 0.0 && violation <= certificate_tolerance * proof;
}

bool ray_holds(const Call& call) {
  const prslvinput& p = call.problem;
  const prslvsol& s = *call.itr;
  double gain = 0.0, violation = 0.0;
  for (int32_t j = 0; j < p.numvar; ++j) gain -= p.cx[j] * s.xx[j];
  for (int32_t i = 0; i < p.numcon; ++i) {
    if (p.cc != nullptr) gain -= p.cc[i] * s.xc[i];
    violation = std::max(violation, std::fabs(s.xc[i] - clipped(p.bkc[i], 0.0, 0.0, s.xc[i])));
  }
  // The objective must not bend along the ray.
  if (call.quad.objend > call.quad.objbegin) {
    Array<double> bend;
    if (!bend.alloc(call.env, static_cast<std::size_t>(p.numvar), Fill::zero)) {
      call.info->resp = HOM_RESP_SPACE;
      return true;
    }
    add_gradient(call.quad, s.xx, bend.data());
    for (const double v : bend) violation = std::max(violation, std::fabs(v));
  }
  return gain > 0.0 && violation <= certificate_tolerance * gain;
}

// An optimum has its rows inside their bounds, up to what the sizes of the terms make of the tolerances: no test of
// quality, but of what became of the point on its way back.
constexpr double optimum_tolerance = 1e-4;

bool optimum_holds(const Call& call) {
  const prslvinput& p = call.problem;
  const prslvsol& s = *call.itr;
  Array<double> size;
  if (!size.alloc(call.env, static_cast<std::size_t>(p.numcon), Fill::zero)) return true;
  double largest = 0.0;
  for (int32_t j = 0; j < p.numvar; ++j)
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t)
      size[p.sub[t]] = std::max(size[p.sub[t]], std::fabs(p.val[t] * s.xx[j]));
  for (int32_t i = 0; i < p.numcon; ++i) largest = std::max(largest, size[i]);
  for (int32_t i = 0; i < p.numcon; ++i) {
    const double out = std::fabs(s.xc[i] - clipped(p.bkc[i], p.blc[i], p.buc[i], s.xc[i]));
    if (out > optimum_tolerance * (1.0 + size[i]) && out > 1e-2 * optimum_tolerance * largest) return false;
  }
  return true;
}

bool holds(const Call& call) {
  if (call.itr->solsta == solsta_optimal || call.itr->solsta == solsta_near) return optimum_holds(call);
  if (is_farkas(call.itr->solsta)) return farkas_holds(call);
  if (is_ray(call.itr->solsta)) return ray_holds(call);
  return true;
}

// ---- The stages

void clear(const Call& call) {
  const prslvinput& p = call.problem;
  const prslvsol& s = *call.itr;
  std::fill_n(s.skc, p.numcon, PRSLV_SK_UNK);
  std::fill_n(s.skx, p.numvar, PRSLV_SK_UNK);
  for (double* list : {s.xc, s.y, s.slc, s.suc}) std::fill_n(list, p.numcon, 0.0);
  for (double* list : {s.xx, s.slx, s.sux}) std::fill_n(list, p.numvar, 0.0);
}

int32_t key_of(int32_t key) { return key == 3 ? PRSLV_SK_LOW : PRSLV_SK_SUPBAS; }

// The homogeneous optimiser on the canonical problem; fills record->itr.
bool run_homogeneous(const Call& call, odat* record) {
  IpmInfo* info = call.info;
  const auto n = static_cast<std::size_t>(record->rnumvar), nu = static_cast<std::size_t>(record->nbup);
  Workspace work(call.env);
  HomSolution s{};
  for (double** list : {&s.x, &s.s}) work.add(list, n, Fill::zero);
  for (double** list : {&s.yup, &s.xup}) work.add(list, nu, Fill::zero);
  work.add(&s.y, static_cast<std::size_t>(record->rnumcon), Fill::zero);
  work.add(&s.keys, n, Fill::zero);
  work.add(&s.keysup, nu, Fill::zero);
  if (!work.commit()) {
    info->resp = HOM_RESP_SPACE;
    return false;
  }
  const HomProblem problem{record->rnumcon,  record->rnumvar,  record->nblo,           record->nbup,
                           record->c.data(), record->b.data(), record->u.data(),       record->cfix,
                           record->a,        record->at,       record->varlist.data(), record->q};
  HomParams params = call.options.hom;
  params.solvesdual = record->isdual;
  params.objscale = record->isdual ? -1.0 : 1.0;
  HomEvents events;
  events.handle = const_cast<Call*>(&call);
  events.status = on_iteration;
  events.progress = on_progress;
  if (call.events.print != nullptr) events.print = on_print;
  hs_optimize(call.env, params, problem, events, &s, &info->kkt);
  info->resp = s.resp;
  info->iter = s.iter;
  info->pobj = s.pobj;
  info->dobj = s.dobj;
  info->pfeas = s.pfeas;
  info->dfeas = s.dfeas;
  info->kappatau = s.kappatau;
  info->numrefine = s.numrefine;
  if (!s.reached) return false;

  OptSolution& to = record->itr;
  to.defined = true;
  to.prosta = s.prosta;
  to.solsta = s.solsta;
  for (int32_t k = 0; k < record->rnumvar; ++k) {
    to.skx[k] = key_of(s.keys[k]);
    to.x[k] = s.x[k];
    to.z[k] = s.s[k];
  }
  std::copy_n(s.y, record->rnumcon, to.y.data());
  for (int32_t i = 0; i < record->nbup; ++i) {
    to.skup[i] = key_of(s.keysup[i]);
    to.w[i] = s.yup[i];
    to.zup[i] = -s.yup[i];
  }
  return true;
}

// The reduced problem through its canonical form; itr holds the point in the space of the given problem. False when
// there is nothing to go back with.
bool run_canonical(const Call& call, const prslvprob& p, bool presolved) {
  IpmInfo* info = call.info;
  odat* record = nullptr;
  OptProblem problem = opt_problem(p);
  problem.reduced = presolved;  // else the elements of fixed columns count
  info->resp = opt_prepare(call.options.form, problem, &record);
  if (info->resp != OPT_RESP_OK) return false;
  info->solvesdual = record->isdual;
  info->numcon = record->rnumcon;
  info->numvar = record->rnumvar;
  bool reached = record->settled || run_homogeneous(call, record);
  if (reached) {
    const int32_t resp = opt_reverse(problem, record, call.itr, nullptr, 0, nullptr);
    if (resp != OPT_RESP_OK) {
      info->resp = resp;
      reached = false;
    }
  }
  opt_deleteodat(&record);
  return reached;
}

// One try: with the arguments of the presolve as par tells, or without it.
enum class Outcome { done, unproven };

Outcome attempt(const Call& call, const prslvpar& par, bool presolve) {
  IpmInfo* info = call.info;
  prslvprob* p = prslv_make(call.env, call.problem);
  info->resp = HOM_RESP_SPACE;
  if (p == nullptr) return Outcome::done;
  p->quad = call.quad;
  prslvstat stat;
  prslvsol& itr = *call.itr;
  itr.defined = itr.prosta = itr.solsta = 0;
  info->resp = HOM_RESP_OK;
  Outcome outcome = Outcome::done;
  if (presolve) {
    prslvhook hook;
    hook.handle = const_cast<Call*>(&call);
    hook.func = on_presolve;
    if (call.events.print != nullptr) hook.print = on_print;
    if (call.events.name != nullptr) hook.name = on_name;
    const int32_t result = prslv_reduce(par, p, &itr, nullptr, &stat, hook);
    if (result == PRSLV_NOTREADY) outcome = Outcome::unproven;
    if (result != PRSLV_OK && result != PRSLV_SPACE && result != PRSLV_NOTREADY) info->resp = result;
  }
  bool reached = false;
  if (outcome == Outcome::done && info->resp == HOM_RESP_OK) {
    if (stat.status != 0)
      reached = itr.defined != 0;
    else
      reached = run_canonical(call, *p, presolve);
    if (!reached && info->resp == HOM_RESP_OK) outcome = Outcome::unproven;
  }
  if (reached && presolve) {
    itr.defined = 1;
    const int32_t result = prslv_postsolve(par, p, &stat, &itr);
    if (result == PRSLV_SPACE) info->resp = HOM_RESP_SPACE;
    if (result != PRSLV_OK) {
      reached = false;
      outcome = Outcome::unproven;
    }
    info->presolve = stat;
  }
  prslv_delete(&p);
  if (outcome == Outcome::unproven) return outcome;
  if (!reached) {
    clear(call);
    itr.prosta = itr.solsta = 0;
    return outcome;
  }
  if (!consistent(call)) info->resp = HOM_RESP_SPACE;
  return holds(call) ? Outcome::done : Outcome::unproven;
}

}  // namespace

int32_t kkt_event(int32_t code) {
  switch (code) {
    case 0:
      return 62;
    case 1:
      return 66;
    case 4:
      return 69;
    case 5:
      return 65;
    case 9:
      return 70;
    case 10:
      return 73;
    default:
      return IPM_PROGRESS;
  }
}

void opt_ipmslv(sysenv* env, const IpmOptions& options, const prslvinput& problem, const prslvquad& quad,
                const IpmEvents& events, prslvsol* itr, IpmInfo* info) {
  const Call call{env, options, problem, quad, events, itr, info};
  info->resp = send(call, IPM_BEGIN);
  if (info->resp == HOM_RESP_OK) {
    // A proof that fails on the given problem: first without the arguments from multiplier signs, then as it was given.
    prslvpar par = options.reduce;
    Outcome outcome = Outcome::unproven;
    if (options.presolve) outcome = attempt(call, par, true);
    if (options.presolve && outcome == Outcome::unproven) {
      par.dualargs = 0;
      outcome = attempt(call, par, true);
    }
    if (outcome == Outcome::unproven) outcome = attempt(call, par, false);
    if (outcome == Outcome::unproven) {
      itr->prosta = itr->solsta = 0;
      if (info->resp == HOM_RESP_OK) info->resp = resp_numerical;
    }
  } else {
    clear(call);
  }
  const int32_t resp = send(call, IPM_END);
  if (info->resp == HOM_RESP_OK) info->resp = resp;
}

}  // namespace tarvo
