// One problem in one form: start, scaling, the optimiser, and the solution on the unscaled problem.
#include <algorithm>
#include <cmath>

#include "simplex/clean.h"
#include "simplex/driver.h"
#include "simplex/scale.h"

namespace tarvo {

namespace {

// Events and statuses, as numbered by the log and by TRV_PRO_STA_, TRV_SOL_STA_.
constexpr int32_t prosta_unknown = 0, prosta_feasible = 1, prosta_primal_infeasible = 4, prosta_dual_infeasible = 5;
constexpr int32_t solsta_unknown = 0, solsta_optimal = 1, solsta_farkas = 5, solsta_ray = 6, solsta_near_optimal = 8;

bool lower(int32_t bk) { return bk == SIM_BK_LO || bk == SIM_BK_FX || bk == SIM_BK_RA; }
bool upper(int32_t bk) { return bk == SIM_BK_UP || bk == SIM_BK_FX || bk == SIM_BK_RA; }

double worst(double measure, double value) { return value > measure || std::isnan(value) ? value : measure; }

// One run of simplex_optimize.
struct Run {
  sysenv* env;
  simplexpar par;
  simplexinfo* info;
  const SimplexInput* input;
  SimplexSolution* solution;
  simplexbasis* basis;
  const SimplexEvents* events;
  SimplexProblem
      problem;  // the problem that is being solved; its arrays are copies, the keys and values are solution's
  bool scaled;
  double *r, *c;               // scale factors
  double *rowwork, *rowwork2;  // [numcon]
  double* val;                 // the scaled elements, or NULL
};

// Copies what the optimiser changes. False when out of memory.
bool make_copies(Run* run, Workspace* work) {
  const SimplexInput& in = *run->input;
  SimplexProblem& p = run->problem;
  const auto con = static_cast<std::size_t>(in.numcon), var = static_cast<std::size_t>(in.numvar);
  for (double** list : {&p.cc, &p.blc, &p.buc, &p.sc, &run->r, &run->rowwork, &run->rowwork2}) work->add(list, con);
  for (double** list : {&p.cx, &p.blx, &p.bux, &p.sx, &run->c}) work->add(list, var);
  work->add(&p.bkc, con);
  work->add(&p.bkx, var);
  if (!work->commit()) return false;
  p.numcon = in.numcon;
  p.numvar = in.numvar;
  p.skc = run->solution->skc;
  p.skx = run->solution->skx;
  p.xc = run->solution->xc;
  p.xx = run->solution->xx;
  p.y = run->solution->y;
  return true;
}

// Takes the problem as the user gave it. Bounds that cross within the tolerance count as fixed.
void load_original(Run* run) {
  const SimplexInput& in = *run->input;
  SimplexProblem& p = run->problem;
  p.a = in.a;
  p.cfix = in.cfix;
  const auto load_bounds = [](int32_t n, const int32_t* bk, const double* bl, const double* bu, int32_t* tok,
                              double* tol, double* tou) {
    for (int32_t k = 0; k < n; ++k) {
      tok[k] = bk[k];
      tol[k] = bl[k];
      tou[k] = bu[k];
      if (bk[k] == SIM_BK_RA && bl[k] >= bu[k]) {
        tok[k] = SIM_BK_FX;
        tou[k] = bl[k];
      }
    }
  };
  std::copy_n(in.cc, in.numcon, p.cc);
  std::copy_n(in.cx, in.numvar, p.cx);
  load_bounds(in.numcon, in.bkc, in.blc, in.buc, p.bkc, p.blc, p.buc);
  load_bounds(in.numvar, in.bkx, in.blx, in.bux, p.bkx, p.blx, p.bux);
}

// No optimiser gets a NaN to see, nor an infinite cost, element or side of a bound that its key calls finite.
bool usable(const SimplexInput& in) {
  const auto bad_bounds = [](int32_t n, const int32_t* bk, const double* bl, const double* bu) {
    for (int32_t k = 0; k < n; ++k)
      if ((lower(bk[k]) && !std::isfinite(bl[k])) || (upper(bk[k]) && !std::isfinite(bu[k]))) return true;
    return false;
  };
  if (!std::isfinite(in.cfix) || bad_bounds(in.numcon, in.bkc, in.blc, in.buc) ||
      bad_bounds(in.numvar, in.bkx, in.blx, in.bux))
    return false;
  for (int32_t i = 0; i < in.numcon; ++i)
    if (!std::isfinite(in.cc[i])) return false;
  for (int32_t j = 0; j < in.numvar; ++j) {
    if (!std::isfinite(in.cx[j])) return false;
    for (int32_t t = in.a.ptrb[j]; t < in.a.ptre[j]; ++t)
      if (!std::isfinite(in.a.val[t])) return false;
  }
  return true;
}

Run make_run(const SimplexCall& call) {
  Run run{};
  run.env = call.env;
  run.par = call.par;
  run.info = call.info;
  run.input = call.input;
  run.solution = call.solution;
  run.basis = call.basis;
  run.events = call.events;
  return run;
}

int32_t stop(Run* run, int32_t resp) {
  run->info->resp = resp;
  return resp;
}

void settle(Run* run, int32_t prosta, int32_t solsta) {
  run->info->prosta = prosta;
  run->info->solsta = solsta;
}

void clear_multipliers(Run* run) {
  const SimplexSolution& s = *run->solution;
  for (double* list : {s.y, s.slc, s.suc}) std::fill_n(list, run->input->numcon, 0.0);
  for (double* list : {s.slx, s.sux}) std::fill_n(list, run->input->numvar, 0.0);
}

// ---- Problems without rows or without columns --------------------------------------------------------------------

// Every column alone goes to the bound that its cost asks for; one without that bound gives a ray.
void solve_no_rows(Run* run) {
  const SimplexInput& in = *run->input;
  const SimplexSolution& s = *run->solution;
  clear_multipliers(run);
  settle(run, prosta_feasible, solsta_optimal);
  int32_t unbounded = -1;
  for (int32_t j = 0; j < in.numvar; ++j) {
    const int32_t bk = in.bkx[j];
    const double cost = in.cx[j];
    if (bk == SIM_BK_FX || (lower(bk) && upper(bk) && in.blx[j] >= in.bux[j])) {
      s.skx[j] = SIM_SK_FIX;
      s.xx[j] = in.blx[j];
    } else if (lower(bk) && cost >= 0.0) {
      s.skx[j] = SIM_SK_LOW;
      s.xx[j] = in.blx[j];
    } else if (upper(bk) && cost <= 0.0) {
      s.skx[j] = SIM_SK_UPR;
      s.xx[j] = in.bux[j];
    } else {
      s.skx[j] = SIM_SK_SUPBAS;
      s.xx[j] = 0.0;
      if (cost != 0.0 && unbounded < 0) unbounded = j;
    }
    s.slx[j] = std::max(cost, 0.0);
    s.sux[j] = std::max(-cost, 0.0);
    run->info->pobj += cost * s.xx[j];
  }
  run->info->dobj = run->info->pobj;
  if (unbounded < 0) return;
  settle(run, prosta_dual_infeasible, solsta_ray);
  clear_multipliers(run);
  std::fill_n(s.xx, in.numvar, 0.0);
  s.xx[unbounded] = in.cx[unbounded] > 0.0 ? -1.0 : 1.0;
}

// All activities are 0; a row that forbids it proves infeasibility by itself.
void solve_no_columns(Run* run) {
  const SimplexInput& in = *run->input;
  const SimplexSolution& s = *run->solution;
  clear_multipliers(run);
  settle(run, prosta_feasible, solsta_optimal);
  const double tol = run->par.tolx[SIM_PRIMAL];
  int32_t violated = -1;
  for (int32_t i = 0; i < in.numcon; ++i) {
    s.skc[i] = SIM_SK_BAS;
    s.xc[i] = 0.0;
    s.y[i] = -in.cc[i];
    if ((lower(in.bkc[i]) && in.blc[i] > tol) || (upper(in.bkc[i]) && in.buc[i] < -tol)) violated = i;
  }
  if (violated < 0) return;
  settle(run, prosta_primal_infeasible, solsta_farkas);
  clear_multipliers(run);
  const bool below = lower(in.bkc[violated]) && in.blc[violated] > tol;
  (below ? s.slc : s.suc)[violated] = 1.0;
  s.y[violated] = below ? 1.0 : -1.0;
}

// ---- Start -------------------------------------------------------------------------------------------------------

// Gives a nonbasic variable a key that its bounds allow and the value of that key. Without a usable key it goes to the
// bound nearer to its value (to 0 when `values` count for nothing); only a superbasic one may stand between them.
void place_nonbasic(int32_t bk, double bl, double bu, bool values, int32_t* sk, double* x) {
  const bool low = lower(bk), upp = upper(bk);
  if (!values || !std::isfinite(*x)) *x = 0.0;
  if (low && upp && bl >= bu) {
    *sk = SIM_SK_FIX;
  } else if (!low && !upp) {
    *sk = SIM_SK_SUPBAS;
  } else if (!(*sk == SIM_SK_LOW && low) && !(*sk == SIM_SK_UPR && upp)) {
    const bool inside = (!low || *x > bl) && (!upp || *x < bu);
    if (!(*sk == SIM_SK_SUPBAS && values && inside))
      *sk = !upp || (low && std::fabs(*x - bl) <= std::fabs(bu - *x)) ? SIM_SK_LOW : SIM_SK_UPR;
  }
  if (*sk == SIM_SK_LOW || *sk == SIM_SK_FIX) *x = bl;
  if (*sk == SIM_SK_UPR) *x = bu;
}

// Makes keys, values and basis list of the offered solution agree: exactly numcon basic variables, every nonbasic one
// at a bound that exists or superbasic within its bounds. What a changed problem lacks is filled with logicals, what it
// has too many becomes superbasic where it stands; a singular basis is repaired when it is factorised.
void verify_basis(Run* run) {
  SimplexProblem& p = run->problem;
  const bool values = run->par.hotstartstatus == 0;
  int32_t count = 0;
  int32_t* list = run->basis->basis.data();
  // Columns first: they are what a basis is worth, and logicals are easily had again.
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (p.skx[j] != SIM_SK_BAS) continue;
    if (count < p.numcon)
      list[count++] = p.numcon + j;
    else
      p.skx[j] = SIM_SK_SUPBAS;
  }
  for (int32_t i = 0; i < p.numcon; ++i) {
    if (p.skc[i] != SIM_SK_BAS) continue;
    if (count < p.numcon)
      list[count++] = i;
    else
      p.skc[i] = SIM_SK_SUPBAS;
  }
  for (int32_t i = 0; i < p.numcon && count < p.numcon; ++i) {
    if (p.skc[i] == SIM_SK_BAS) continue;
    p.skc[i] = SIM_SK_BAS;
    list[count++] = i;
  }
  for (int32_t i = 0; i < p.numcon; ++i)
    if (p.skc[i] != SIM_SK_BAS) place_nonbasic(p.bkc[i], p.blc[i], p.buc[i], values, &p.skc[i], &p.xc[i]);
  for (int32_t j = 0; j < p.numvar; ++j)
    if (p.skx[j] != SIM_SK_BAS) place_nonbasic(p.bkx[j], p.blx[j], p.bux[j], values, &p.skx[j], &p.xx[j]);
  for (int32_t k = 0; k < p.numcon; ++k) {
    double& x = list[k] < p.numcon ? p.xc[list[k]] : p.xx[list[k] - p.numcon];
    if (!values || !std::isfinite(x)) x = 0.0;
    run->basis->xb[k] = x;
  }
}

// ---- Scaling and the optimiser -------------------------------------------------------------------------------------

// Scales the problem if that is wanted and helps. False when out of memory.
bool scale(Run* run, Array<double>* val) {
  constexpr int32_t scaling_none = 1;
  run->scaled = false;
  if (run->par.scaling == scaling_none) return true;
  if (!simplex_scale(*run->input, run->par.clean != 0, run->r, run->c, run->rowwork, run->rowwork2)) return true;
  int32_t end = 0;
  for (int32_t j = 0; j < run->input->numvar; ++j) end = std::max(end, run->input->a.ptre[j]);
  if (!val->alloc(run->env, static_cast<std::size_t>(end))) return false;
  simplex_applyscale(run->r, run->c, &run->problem, val->data());
  for (int32_t k = 0; k < run->basis->numcon && run->par.clean != 0; ++k) {
    const int32_t v = run->basis->basis[k];
    run->basis->xb[k] = v < run->problem.numcon ? run->problem.xc[v] : run->problem.xx[v - run->problem.numcon];
  }
  run->scaled = true;
  return true;
}

double columndot(const SimplexColumns& a, int32_t j, const double* y) {
  double sum = 0.0;
  for (int32_t t = a.ptrb[j]; t < a.ptre[j]; ++t) sum += a.val[t] * y[a.sub[t]];
  return sum;
}

// Sums and counts of what a start violates in the primal and in the dual.
struct Violations {
  double primal = 0.0, dual = 0.0;
  int64_t numprimal = 0, numdual = 0;
};

void count_violations(const simplexpar& par, int32_t bk, double bl, double bu, double x, bool basic, double s,
                      Violations* v) {
  const double below = lower(bk) ? bl - x : 0.0, above = upper(bk) ? x - bu : 0.0, out = std::max(below, above);
  if (out > par.tolx[SIM_PRIMAL]) {
    ++v->numprimal;
    v->primal += out;
  }
  // A boxed variable changes side, a fixed one takes any sign.
  const double wrong = basic || (lower(bk) && upper(bk)) ? 0.0 : lower(bk) ? -s : upper(bk) ? s : std::fabs(s);
  if (wrong > par.tols[SIM_DUAL]) {
    ++v->numdual;
    v->dual += wrong;
  }
}

// The start as the optimiser gets it: a cold one is the basis of logicals with every column at a bound.
Violations violations(Run* run) {
  const SimplexProblem& p = run->problem;
  const bool cold = run->par.clean == 0;
  double* activity = run->rowwork;
  const double* y = cold ? run->rowwork2 : p.y;
  std::fill_n(activity, p.numcon, 0.0);
  Violations v;
  for (int32_t j = 0; j < p.numvar; ++j) {
    const double rest = lower(p.bkx[j]) ? p.blx[j] : upper(p.bkx[j]) ? p.bux[j] : 0.0;
    const double x = cold ? rest : p.xx[j], s = p.cx[j] - columndot(p.a, j, y);
    count_violations(run->par, p.bkx[j], p.blx[j], p.bux[j], x, !cold && p.skx[j] == SIM_SK_BAS, s, &v);
    if (x != 0.0)
      for (int32_t t = p.a.ptrb[j]; t < p.a.ptre[j]; ++t) activity[p.a.sub[t]] += p.a.val[t] * x;
  }
  for (int32_t i = 0; i < p.numcon; ++i) {
    const bool basic = cold || p.skc[i] == SIM_SK_BAS;
    count_violations(run->par, p.bkc[i], p.blc[i], p.buc[i], activity[i], basic, p.cc[i] + y[i], &v);
    // What nonbasic values have moved by, the basic ones will have to make up for.
    const double moved = basic ? 0.0 : std::fabs(activity[i] - p.xc[i]);
    if (moved > run->par.tolx[SIM_PRIMAL]) {
      ++v.numprimal;
      v.primal += moved;
    }
  }
  return v;
}

// Which optimiser: the one asked for, or by what the start violates.
bool takes_dual(Run* run) {
  constexpr int32_t primal_asked = 1, dual_asked = 2;
  if (run->par.optimizer == primal_asked) return false;
  if (run->par.optimizer == dual_asked) return true;
  for (int32_t i = 0; i < run->problem.numcon; ++i) run->rowwork2[i] = -run->problem.cc[i];
  const Violations v = violations(run);
  if (v.numprimal == 0 || v.numdual == 0) return v.numdual < v.numprimal;
  return static_cast<double>(v.numdual) * v.dual <= static_cast<double>(v.numprimal) * v.primal;
}

// ---- The solution on the unscaled problem --------------------------------------------------------------------------

// Activities of basic rows and the multipliers anew from xx and y, on the original data: sc = d cc + y,
// sx = d cx - A'y, d being 0 for a certificate of primal infeasibility.
void recompute(Run* run) {
  SimplexProblem& p = run->problem;
  const double d = run->info->solsta == solsta_farkas ? 0.0 : 1.0;
  std::fill_n(run->rowwork, p.numcon, 0.0);
  for (int32_t j = 0; j < p.numvar; ++j) {
    p.sx[j] = d * p.cx[j] - columndot(p.a, j, p.y);
    if (p.xx[j] == 0.0) continue;
    for (int32_t t = p.a.ptrb[j]; t < p.a.ptre[j]; ++t) run->rowwork[p.a.sub[t]] += p.a.val[t] * p.xx[j];
  }
  for (int32_t i = 0; i < p.numcon; ++i) {
    if (p.skc[i] == SIM_SK_BAS) p.xc[i] = run->rowwork[i];
    p.sc[i] = d * p.cc[i] + p.y[i];
  }
}

// Splits reduced costs into bound multipliers. Those of basic variables are roundings and count as 0, but in a
// certificate of infeasibility they carry the proof.
void split_multipliers(Run* run) {
  const SimplexProblem& p = run->problem;
  const SimplexSolution& s = *run->solution;
  const bool farkas = run->info->solsta == solsta_farkas;
  const auto split = [farkas](int32_t sk, double value, double* sl, double* su) {
    if (sk == SIM_SK_BAS && !farkas) value = 0.0;
    *sl = std::max(value, 0.0);
    *su = std::max(-value, 0.0);
  };
  for (int32_t i = 0; i < p.numcon; ++i) split(p.skc[i], p.sc[i], &s.slc[i], &s.suc[i]);
  for (int32_t j = 0; j < p.numvar; ++j) split(p.skx[j], p.sx[j], &s.slx[j], &s.sux[j]);
}

// How far the solution misses its claim on the original data, absolute and against the size of the values.
struct Miss {
  double primal = 0.0, dual = 0.0;
  double pobj = 0.0, dobj = 0.0;
  double dsize = 0.0;  // sum of the terms of dobj by magnitude
};

// One variable: what it violates, its part of the objectives. `scale` is 0 where bounds count as 0 (a ray).
void miss_variable(int32_t bk, double bl, double bu, int32_t sk, double x, double s, double scale, bool farkas,
                   Miss* miss) {
  const bool low = lower(bk), upp = upper(bk);
  if (low) miss->primal = worst(miss->primal, scale * bl - x);
  if (upp) miss->primal = worst(miss->primal, x - scale * bu);
  const double claimed = sk == SIM_SK_BAS && !farkas ? 0.0 : s;
  const auto add = [miss](double term) {
    miss->dobj += term;
    miss->dsize += std::fabs(term);
  };
  if (claimed != s) miss->dual = worst(miss->dual, std::fabs(s));
  if (claimed > 0.0) {
    if (low)
      add(bl * claimed);
    else
      miss->dual = worst(miss->dual, claimed);
  } else if (claimed < 0.0) {
    if (upp)
      add(bu * claimed);
    else
      miss->dual = worst(miss->dual, -claimed);
  } else if (std::isnan(claimed)) {
    miss->dual = claimed;
  }
}

Miss measure(const Run& run) {
  const SimplexProblem& p = run.problem;
  const bool farkas = run.info->solsta == solsta_farkas, ray = run.info->solsta == solsta_ray;
  const double scale = ray ? 0.0 : 1.0;
  Miss miss;
  for (int32_t i = 0; i < p.numcon; ++i) {
    miss_variable(p.bkc[i], p.blc[i], p.buc[i], p.skc[i], p.xc[i], p.sc[i], scale, farkas, &miss);
    miss.primal = worst(miss.primal, std::fabs(run.rowwork[i] - p.xc[i]));
    miss.pobj += p.cc[i] * p.xc[i];
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    miss_variable(p.bkx[j], p.blx[j], p.bux[j], p.skx[j], p.xx[j], p.sx[j], scale, farkas, &miss);
    miss.pobj += p.cx[j] * p.xx[j];
  }
  return miss;
}

// The violation that counts against a tolerance of 1: what the status claims, in units of the tolerances. A
// certificate is judged by what it misses relative to what it proves.
double excess(const Run& run, const Miss& miss) {
  const double tolx = run.par.tolx[SIM_PRIMAL], tols = run.par.tols[SIM_PRIMAL];
  switch (run.info->solsta) {
    case solsta_optimal:
      return worst(miss.primal / tolx, miss.dual / tols);
    case solsta_farkas:
      // A value that may be the rounding of its terms proves nothing.
      return miss.dobj > 1e-13 * miss.dsize ? miss.dual / (tols * std::max(miss.dobj, 1e-6)) : HUGE_VAL;
    case solsta_ray:
      return miss.pobj < 0.0 ? miss.primal / (tolx * std::max(-miss.pobj, 1e-6)) : HUGE_VAL;
    default:
      return 0.0;
  }
}

// A copy of a solution, to fall back on.
struct Kept {
  int32_t *skc, *skx;
  double *xc, *xx, *y, *sc, *sx;
};

void copy_solution(const SimplexProblem& p, const Kept& kept, bool restore) {
  const auto move = [restore](auto* mine, auto* copy, int32_t n) {
    if (restore)
      std::copy_n(copy, n, mine);
    else
      std::copy_n(mine, n, copy);
  };
  move(p.skc, kept.skc, p.numcon);
  move(p.xc, kept.xc, p.numcon);
  move(p.y, kept.y, p.numcon);
  move(p.sc, kept.sc, p.numcon);
  move(p.skx, kept.skx, p.numvar);
  move(p.xx, kept.xx, p.numvar);
  move(p.sx, kept.sx, p.numvar);
}

// A short run on the unscaled problem from the final basis, for a solution that misses the tolerances there. The
// better one of both solutions stands.
void finish_unscaled(Run* run, double before) {
  SimplexProblem& p = run->problem;
  const auto con = static_cast<std::size_t>(p.numcon), var = static_cast<std::size_t>(p.numvar);
  Workspace work(run->env);
  Kept kept{};
  work.add(&kept.skc, con);
  work.add(&kept.skx, var);
  for (double** list : {&kept.xc, &kept.y, &kept.sc}) work.add(list, con);
  for (double** list : {&kept.xx, &kept.sx}) work.add(list, var);
  if (!work.commit()) {
    stop(run, SIM_RESP_SPACE);
    return;
  }
  copy_solution(p, kept, false);
  const int32_t prosta = run->info->prosta, solsta = run->info->solsta;

  simplexpar par = run->par;
  par.clean = 1;
  par.hotstartstatus = 0;
  par.haslowcut = par.hasupcut = 0;  // they were tested before
  if (run->scaled) lu_invalidate(run->basis->factor);
  const int32_t resp = simplex_primaloptimizer(run->env, par, run->info, &p, run->basis, *run->events);
  if (resp == SIM_RESP_OK) {
    recompute(run);
    if (run->info->solsta != solsta_unknown && excess(*run, measure(*run)) < before) return;
  }
  copy_solution(p, kept, true);
  settle(run, prosta, solsta);
  recompute(run);
  // A stop by the user or a limit stands; any other failure leaves what was found before it.
  const bool stopped = resp == SIM_RESP_TIME || resp == SIM_RESP_BREAK || resp == SIM_RESP_CALLBACK ||
                       resp == SIM_RESP_ITERATIONS || resp == SIM_RESP_SPACE;
  run->info->resp = stopped ? resp : SIM_RESP_OK;
  constexpr double clearly = 1000.0;
  if (solsta == solsta_optimal && before > clearly) run->info->solsta = solsta_near_optimal;
  // A proof that does not hold proves nothing.
  if ((solsta == solsta_farkas || solsta == solsta_ray) && !(before <= clearly)) {
    settle(run, prosta_unknown, solsta_unknown);
    if (run->info->resp == SIM_RESP_OK) stop(run, SIM_RESP_NUMERIC);
  }
}

void solve(Run* run) {
  Workspace work(run->env);
  Array<double> val;
  if (!make_copies(run, &work)) {
    stop(run, SIM_RESP_SPACE);
    return;
  }
  load_original(run);
  // A factor that is left from another run stands for another scaling and order of the basis.
  lu_invalidate(run->basis->factor);
  const SimplexProblem& p = run->problem;
  std::fill_n(p.sc, p.numcon, 0.0);
  std::fill_n(p.sx, p.numvar, 0.0);
  constexpr int32_t first_cleaning = 7;
  if (run->par.clean >= first_cleaning) {
    const int32_t resp = simplex_cleanstart(run->env, run->par.clean, p, run->basis);
    // Without a factor the keys alone are the start.
    if (resp == SIM_RESP_SPACE) {
      stop(run, resp);
      return;
    }
  }
  if (run->par.clean != 0) {
    verify_basis(run);
    // The multipliers tell a free choice whether the start is dual feasible.
    for (int32_t i = 0; i < p.numcon; ++i)
      if (!std::isfinite(p.y[i]) || run->par.hotstartstatus != 0) p.y[i] = 0.0;
  } else {
    std::fill_n(p.y, p.numcon, 0.0);
    std::fill_n(p.xc, p.numcon, 0.0);
    std::fill_n(p.xx, p.numvar, 0.0);
  }
  if (!scale(run, &val)) {
    stop(run, SIM_RESP_SPACE);
    return;
  }
  const auto optimizer = takes_dual(run) ? simplex_dualoptimizer : simplex_primaloptimizer;
  optimizer(run->env, run->par, run->info, &run->problem, run->basis, *run->events);
  if (run->scaled) simplex_unscale(run->r, run->c, &run->problem);
  load_original(run);
  recompute(run);
  if (run->info->resp == SIM_RESP_OK) {
    const double missed = excess(*run, measure(*run));
    if (!(missed <= 1.0)) finish_unscaled(run, missed);
  }
  const Miss miss = measure(*run);
  if (std::isnan(miss.primal) || std::isnan(miss.dual)) {
    settle(run, prosta_unknown, solsta_unknown);
    if (run->info->resp == SIM_RESP_OK) stop(run, SIM_RESP_NUMERIC);
  }
  run->info->pobj = miss.pobj + (run->info->solsta == solsta_ray ? 0.0 : run->input->cfix);
  run->info->dobj = miss.dobj + (run->info->solsta == solsta_farkas ? 0.0 : run->input->cfix);
  split_multipliers(run);
}

}  // namespace

bool simplex_usable(const SimplexInput& input) { return usable(input); }

int32_t simplex_solve(const SimplexCall& call) {
  Run run = make_run(call);
  run.info->resp = SIM_RESP_OK;
  settle(&run, prosta_unknown, solsta_unknown);
  run.info->numcon = call.input->numcon;
  run.info->numvar = call.input->numvar;
  run.info->hotstart = call.par.clean != 0 ? 1 : 0;
  run.info->pobj = run.info->dobj = call.input->cfix;
  if (call.input->numcon == 0)
    solve_no_rows(&run);
  else if (call.input->numvar == 0)
    solve_no_columns(&run);
  else
    solve(&run);
  return run.info->resp;
}

namespace {

// Nonbasic between its bounds although it has one: optimal perhaps, but no vertex.
bool has_superbasic(const SimplexProblem& p) {
  for (int32_t i = 0; i < p.numcon; ++i)
    if (p.skc[i] == SIM_SK_SUPBAS && p.bkc[i] != SIM_BK_FR) return true;
  for (int32_t j = 0; j < p.numvar; ++j)
    if (p.skx[j] == SIM_SK_SUPBAS && p.bkx[j] != SIM_BK_FR) return true;
  return false;
}

}  // namespace

int32_t simplex_finish(const SimplexCall& call) {
  Run run = make_run(call);
  const int32_t prosta = run.info->prosta, solsta = run.info->solsta;
  const int32_t resp = run.info->resp;
  Workspace work(run.env);
  if (!make_copies(&run, &work)) return stop(&run, SIM_RESP_SPACE);
  load_original(&run);
  if (solsta != solsta_ray && solsta != solsta_farkas) verify_basis(&run);
  recompute(&run);
  const Miss miss = measure(run);
  const double missed = excess(run, miss);
  const bool certificate = solsta == solsta_ray || solsta == solsta_farkas;
  if (resp == SIM_RESP_OK && (!(missed <= 1.0) || (!certificate && has_superbasic(run.problem)))) {
    if (certificate) {
      settle(&run, prosta_unknown, solsta_unknown);
      return stop(&run, SIM_RESP_OK);
    }
    SimplexCall again = call;
    again.par.clean = 1;
    again.par.hotstartstatus = 0;
    again.par.haslowcut = again.par.hasupcut = 0;
    simplex_solve(again);
    run.info->hotstart = call.par.clean != 0 ? 1 : 0;
    return run.info->resp;
  }
  settle(&run, prosta, solsta);
  run.info->pobj = miss.pobj + (solsta == solsta_ray ? 0.0 : run.input->cfix);
  run.info->dobj = miss.dobj + (solsta == solsta_farkas ? 0.0 : run.input->cfix);
  split_multipliers(&run);
  return stop(&run, resp);
}

}  // namespace tarvo
