// Set-up of a homogeneous run and the way back: columns into class order, scaling in one geometric pass, the factor.
// The problem is copied, so that nothing has to be undone on it.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "homo/hom_internal.h"
#include "kfac/kopenmp.h"

namespace tarvo {

namespace {

constexpr int32_t prosta_primal_infeasible = 4, prosta_dual_infeasible = 5, prosta_both_infeasible = 6;
constexpr int32_t key_primal = 2, key_dual = 3;
constexpr int32_t start_heuristic = 0, start_primal_heavy = 2, start_dual_heavy = 3, start_both_heavy = 4;

struct Owned {
  spmat *a = nullptr, *at = nullptr;
  Array<int32_t> qi, qj;
  Array<double> q;
  ~Owned() {
    if (a != nullptr) spmat_delete(&a);
    if (at != nullptr) spmat_delete(&at);
  }
};

void add(Workspace* work, const HomState& h, HomVec* v) {
  const auto n = static_cast<std::size_t>(h.n), nu = static_cast<std::size_t>(h.nu);
  for (double** list : {&v->x, &v->s}) work->add(list, n, Fill::zero);
  for (double** list : {&v->xup, &v->yup, &v->sup}) work->add(list, nu, Fill::zero);
  work->add(&v->y, static_cast<std::size_t>(h.m), Fill::zero);
}

bool hs_allocate(HomState* h, Workspace* vectors, Workspace* rest) {
  const auto m = static_cast<std::size_t>(h->m), n = static_cast<std::size_t>(h->n);
  const auto nb = static_cast<std::size_t>(h->nb), nu = static_cast<std::size_t>(h->nu);
  const auto heads = static_cast<std::size_t>(h->nf) + 1;
  for (HomVec* v : {&h->point, &h->saved, &h->dir, &h->affine, &h->cordir, &h->rhs, &h->res}) add(vectors, *h, v);
  for (double** list : {&h->c, &h->colscale, &h->qdiag, &h->rd, &h->d, &h->dinv, &h->rx, &h->cbar, &h->chat, &h->dc,
                        &h->wn1, &h->wn2, &h->wn3, &h->qx})
    rest->add(list, n, Fill::zero);
  for (double** list : {&h->b, &h->rowscale, &h->rp, &h->tf, &h->pf, &h->g, &h->g2, &h->h, &h->wm1, &h->wm2})
    rest->add(list, m, Fill::zero);
  for (double** list : {&h->u, &h->rpu, &h->rdu, &h->ru, &h->wu1, &h->cor.up, &h->extracor.up})
    rest->add(list, nu, Fill::zero);
  for (double** list : {&h->vf, &h->cor.cone, &h->extracor.cone}) rest->add(list, heads, Fill::zero);
  for (double** list : {&h->cor.pair, &h->extracor.pair}) rest->add(list, nb, Fill::zero);
  for (int32_t** list : {&h->keys, &h->savedkeys}) rest->add(list, n);
  for (int32_t** list : {&h->keysup, &h->savedkeysup}) rest->add(list, nu);
  return vectors->commit() && rest->commit();
}

// The problem in class order.
bool hs_copy(HomState* h, const HomProblem& p, Owned* own) {
  const int32_t m = p.m, n = p.n;
  for (int32_t k = 0; k < n; ++k) h->c[k] = p.c[p.varlist[k]];
  std::copy_n(p.b, m, h->b);
  std::copy_n(p.u, p.nu, h->u);
  h->cfix = p.cfix;
  const int64_t nnz = spmat_getnumnz(p.a);
  own->a = spmat_make(h->env, n, m);
  if (own->a == nullptr || !spmat_alloc(own->a, static_cast<int32_t>(nnz))) return false;
  spmat* a = own->a;
  spmat_putvlen(a, m);
  spmat_putnvec(a, n);
  int32_t put = 0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t j = p.varlist[k];
    a->ptrb[k] = put;
    for (int32_t t = p.a->ptrb[j]; t < p.a->ptre[j]; ++t) {
      a->sub[put] = p.a->sub[t];
      a->val[put++] = p.a->val[t];
    }
    a->ptre[k] = put;
  }
  a->ffree = put;
  h->a = a;

  if (p.q == nullptr) return true;
  const auto nq = static_cast<std::size_t>(spmat_getnumnz(p.q));
  Array<int32_t> place;
  if (!place.alloc(h->env, static_cast<std::size_t>(n)) || !own->qi.alloc(h->env, nq) || !own->qj.alloc(h->env, nq) ||
      !own->q.alloc(h->env, nq))
    return false;
  for (int32_t k = 0; k < n; ++k) place[p.varlist[k]] = k;
  h->useh = true;
  for (int32_t j = 0; j < p.q->nvec; ++j) {
    for (int32_t t = p.q->ptrb[j]; t < p.q->ptre[j]; ++t) {
      const int32_t i = p.q->sub[t];
      if (i != j && p.q->val[t] == 0.0) continue;
      if (i != j) h->useh = false;
      own->qi[h->nq] = std::max(place[i], place[j]);
      own->qj[h->nq] = std::min(place[i], place[j]);
      own->q[h->nq++] = p.q->val[t];
    }
  }
  h->qi = own->qi.data();
  h->qj = own->qj.data();
  h->q = own->q.data();
  return true;
}

double geometric(double largest, double smallest) { return std::sqrt(largest * std::max(smallest, 1.0)); }

// Row scales from the columns with two elements and more, then column scales from what is left.
void hs_findscale(HomState* h) {
  const spmat* a = h->a;
  double* rmax = h->wm1;
  double* rmin = h->wm2;
  std::fill_n(rmax, h->m, 0.0);
  std::fill_n(rmin, h->m, DBL_MAX);
  for (int32_t j = 0; j < h->n; ++j) {
    if (a->ptre[j] - a->ptrb[j] < 2) continue;
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) {
      const double v = std::fabs(a->val[t]);
      rmax[a->sub[t]] = std::max(rmax[a->sub[t]], v);
      rmin[a->sub[t]] = std::min(rmin[a->sub[t]], v);
    }
  }
  for (int32_t i = 0; i < h->m; ++i) {
    const double v = rmax[i] > 0.0 ? geometric(rmax[i], rmin[i]) : 1.0;
    h->rowscale[i] = v < 1e-16 || (v > 0.9 && v < 1.1) ? 1.0 : v;
  }
  double* qdiag = h->wn1;
  std::fill_n(qdiag, h->n, 0.0);
  for (int32_t k = 0; k < h->nq; ++k)
    if (h->qi[k] == h->qj[k]) qdiag[h->qi[k]] = std::sqrt(std::fabs(h->q[k]));
  for (int32_t j = 0; j < h->n; ++j) {
    double largest = j >= h->nb - h->nu && j < h->nb ? 1.0 : 0.0, smallest = largest > 0.0 ? 1.0 : DBL_MAX;
    const auto look = [&largest, &smallest](double v) {
      largest = std::max(largest, v);
      smallest = std::min(smallest, v);
    };
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) look(std::fabs(a->val[t]) / h->rowscale[a->sub[t]]);
    if (qdiag[j] > 0.0) look(qdiag[j]);
    const double v = largest > 0.0 ? geometric(largest, smallest) : 1.0;
    h->colscale[j] = v <= 1e-14 || (v >= 0.9 && v <= 1.1) ? 1.0 : v;
  }
}

void hs_applyscale(HomState* h) {
  const double *r = h->rowscale, *g = h->colscale;
  for (int32_t i = 0; i < h->m; ++i) h->b[i] /= r[i];
  for (int32_t i = 0; i < h->nu; ++i) h->u[i] *= g[h->nb - h->nu + i];
  for (int32_t j = 0; j < h->n; ++j) {
    h->c[j] /= g[j];
    for (int32_t t = h->a->ptrb[j]; t < h->a->ptre[j]; ++t) h->a->val[t] /= r[h->a->sub[t]] * g[j];
  }
  for (int32_t k = 0; k < h->nq; ++k) h->q[k] /= g[h->qi[k]] * g[h->qj[k]];
}

// The scale of the objective, and what the scales say of a good starting point.
void hs_scaleobjective(HomState* h) {
  double qsum = 0.0, csum = 0.0, cmax = 0.0;
  int32_t qcount = 0, ccount = 0, near = 0;
  for (int32_t k = 0; k < h->nq; ++k) {
    if (h->qi[k] != h->qj[k]) continue;
    qsum += std::fabs(h->q[k]);
    ++qcount;
  }
  for (int32_t j = 0; j < h->n; ++j) {
    csum += std::fabs(h->c[j]);
    cmax = std::max(cmax, std::fabs(h->c[j]));
    ccount += h->c[j] != 0.0 ? 1 : 0;
  }
  const double cbar = csum / (ccount + 1.0), big = std::max(qsum / (qcount + 1.0), cbar);
  for (int32_t j = 0; j < h->n; ++j) {
    const double v = std::fabs(h->c[j]);
    near += v != 0.0 && v >= big / 1000.0 && v <= 1000.0 * big ? 1 : 0;
  }
  int32_t& start = h->par.sptype;
  if (4.0 * near >= ccount && cbar >= 10000.0) {
    h->scale = std::max(1.0, cmax);
    start = start == start_heuristic ? start_primal_heavy : start == start_dual_heavy ? start_both_heavy : start;
  }
  double rmin = 1.0, rmax = 1.0, gmax = 1.0;
  if (h->m > 0) {
    rmin = *std::min_element(h->rowscale, h->rowscale + h->m);
    rmax = *std::max_element(h->rowscale, h->rowscale + h->m);
  }
  if (h->n > 0) gmax = *std::max_element(h->colscale, h->colscale + h->n);
  if (100000.0 * std::min(rmin, 1.0) <= rmax || gmax >= 10000.0)
    start = start == start_heuristic ? start_dual_heavy : start == start_primal_heavy ? start_both_heavy : start;
  if (h->scale == 1.0) return;
  for (int32_t j = 0; j < h->n; ++j) h->c[j] /= h->scale;
  for (int32_t k = 0; k < h->nq; ++k) h->q[k] /= h->scale;
  h->cfix /= h->scale;
}

void hs_scale(HomState* h) {
  h->scale = 1.0;
  std::fill_n(h->rowscale, h->m, 1.0);
  std::fill_n(h->colscale, h->n, 1.0);
  if (h->par.scaling != 0) {
    hs_findscale(h);
    hs_applyscale(h);
    hs_scaleobjective(h);
  }
  h->par.objscale *= h->scale;
  int32_t& start = h->par.sptype;
  if (h->par.solvesdual) start = start == 2 ? 3 : start == 3 ? 2 : start;
}

// Progress of the factorisation goes up; the answer that stops stays the stop code of the run.
int32_t hs_progress(void* handle, int32_t code, double) {
  auto* h = static_cast<HomState*>(handle);
  if (h->events.progress == nullptr) return 0;
  const int32_t stop = h->events.progress(h->events.handle, code);
  if (stop != 0 && h->resp == 0) h->resp = stop;
  return stop;
}

// Everything before the first iteration; h->resp tells.
void hs_setup(HomState* h, const HomProblem& problem, Owned* own) {
  h->resp = HOM_RESP_SPACE;
  if (!hs_copy(h, problem, own)) return;
  hs_scale(h);
  if (!spmat_transpose(h->a, nullptr, false, &own->at, false)) return;
  h->at = own->at;
  if (h->useh) {
    double most = 0.0;
    for (int32_t k = 0; k < h->nq; ++k) {
      h->qdiag[h->qi[k]] += h->q[k];
      most = std::max(most, h->qdiag[h->qi[k]]);
    }
    // On a free column only Q stands on the diagonal that the normal equations divide by.
    for (int32_t j = h->nb; j < h->n; ++j) h->useh = h->useh && h->qdiag[j] > 1e-8 * most;
  }
  KktOptions options = h->par.kkt;
  if (options.type == KKT_AUTO) options.type = h->nq == 0 || h->useh ? KKT_NORMAL : KKT_SQD;
  if (h->nq > 0) options.pivotfix = 0.0;  // hom_optqo regularises by itself
  options.hook = {h, hs_progress};
  h->kkt = kktfac_make(h->env, h->m, h->n, options);
  if (h->kkt == nullptr) return;
  h->resp = HOM_RESP_OK;
  const int32_t result = kktfac_autosetup(h->kkt, h->a, h->at, h->nq, h->qi, h->qj);
  if (result == KKT_SPACE) h->resp = HOM_RESP_SPACE;
  if (result == KKT_CANCELLED && h->resp == HOM_RESP_OK) h->resp = HOM_RESP_FACTOR;
  std::fill_n(h->keys, h->n, key_primal);
  std::fill_n(h->keysup, h->nu, key_primal);
}

void print(const HomState* h, const char* format, ...) {
  if (h->events.print == nullptr) return;
  char text[160];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  h->events.print(h->events.handle, text);
}

void hs_printtimes(const HomState* h) {
  if (!h->par.timing) return;
  const HomTimes& t = h->time;
  const double whole = std::max(t.total, 1e-9);
  const struct {
    const char* name;
    double time;
  } rows[] = {{"Init. iter.            ", t.inititer},  {"Init. comp.            ", t.initcomp},
              {"Factor                 ", t.factor},    {"Init. sd.              ", t.initsd},
              {"Compute sd.            ", t.computesd}, {"Line search            ", t.linesearch},
              {"Update sol.            ", t.update},    {"Total                  ", t.total}};
  for (const auto& row : rows) print(h, "%s: %-6.2f (%.2f%%)\n", row.name, row.time, 100.0 * row.time / whole);
  const KktStats& kkt = kktfac_getstats(h->kkt);
  print(h, "Mul. cor.              : %-6.2f\n", t.mulcor);
  print(h, "  Search dir.          : %-6.2f\n", t.mulcorsd);
  print(h, "Dense dim.             : %d\n", kkt.densedim);
  print(h, "Factor time            : %-6.2f\n", kkt.factortime);
  print(h, "  ADA' time            : %-6.2f\n", kkt.adatime);
  print(h, "  Dense factor time    : %-6.2f\n", kkt.densetime);
  print(h, "Solve time             : %-6.2f\n", kkt.solvetime);
  print(h, "A x time               : %-6.2f\n", t.ax);
  print(h, "A' y time              : %-6.2f\n", t.aty);
  print(h, "Num. dropped Meh. cor. : %d\n", h->numdroppedcor);
  print(h, "Max numcor             : %d\n", h->maxncor);
  print(h, "Num. cor. computed     : %d\n", h->numcor);
}

double finite_or_zero(double v) { return std::isfinite(v) ? v : 0.0; }

// Out of the homogeneous form, out of the scaling, out of the class order.
void hs_invsetup(const HomState* h, const HomProblem& problem, HomSolution* out) {
  const HomVec& v = h->point;
  const double tau = std::max(v.tau, DBL_MIN);
  double fx = 1.0 / tau, fy = 1.0 / tau;
  if (h->prosta == prosta_primal_infeasible || h->prosta == prosta_both_infeasible)
    fy = h->dfeasinff > 1e-8 ? 1e-8 / h->dfeasinff : 1.0;
  if (h->prosta == prosta_dual_infeasible) fx = 1.0 / (std::max(1.0, -h->cx) * std::fabs(h->par.objscale));
  fy *= h->scale;
  for (int32_t k = 0; k < h->n; ++k) {
    const int32_t j = problem.varlist[k];
    out->x[j] = finite_or_zero(v.x[k] * fx / h->colscale[k]);
    out->s[j] = finite_or_zero(v.s[k] * fy * h->colscale[k]);
    out->keys[j] = h->keys[k];
  }
  for (int32_t i = 0; i < h->m; ++i) out->y[i] = finite_or_zero(v.y[i] * fy / h->rowscale[i]);
  for (int32_t i = 0; i < h->nu; ++i) {
    const double g = h->colscale[h->nb - h->nu + i];
    out->yup[i] = finite_or_zero(v.yup[i] * fy * g);
    out->xup[i] = finite_or_zero(v.xup[i] * fx / g);
    out->keysup[i] = h->keysup[i];
  }
}

void nothing_found(const HomProblem& problem, HomSolution* out) {
  for (double* list : {out->x, out->s}) std::fill_n(list, problem.n, 0.0);
  for (double* list : {out->yup, out->xup}) std::fill_n(list, problem.nu, 0.0);
  std::fill_n(out->y, problem.m, 0.0);
  std::fill_n(out->keys, problem.n, key_dual);
  std::fill_n(out->keysup, problem.nu, key_dual);
}

}  // namespace

void hs_optimize(sysenv* env, const HomParams& params, const HomProblem& problem, const HomEvents& events,
                 HomSolution* solution, KktStats* stats) {
  const double begin = sysenv_cputime();
  Owned own;
  Workspace vectors(env), rest(env);
  HomState h{};
  h.env = env;
  h.par = params;
  h.events = events;
  h.m = problem.m;
  h.n = problem.n;
  h.nb = problem.nb;
  h.nu = problem.nu;
  h.nf = problem.n - problem.nb;
  const int32_t threads = mpc_setnthreads(params.numthreads);
  h.resp = HOM_RESP_SPACE;
  if (hs_allocate(&h, &vectors, &rest)) hs_setup(&h, problem, &own);
  const bool ready = h.resp == HOM_RESP_OK;
  if (ready) {
    if (problem.q != nullptr)
      hom_optqo(&h);
    else
      hom_optlp(&h);
    h.time.total = sysenv_cputime() - begin;
    hs_printtimes(&h);
    hs_invsetup(&h, problem, solution);
  } else {
    nothing_found(problem, solution);
  }
  if (h.kkt != nullptr) *stats = kktfac_getstats(h.kkt);
  kktfac_delete(&h.kkt);
  mpc_setnthreads(threads);

  solution->resp = h.resp;
  solution->prosta = h.prosta;
  solution->solsta = h.solsta;
  solution->iter = h.iter;
  solution->pfeas = h.pfeasf;
  solution->dfeas = h.dfeasf;
  solution->pobj = h.pobj * h.par.objscale;
  solution->dobj = h.dobj * h.par.objscale;
  solution->relgap = h.relgap;
  solution->kappatau = h.point.tau > 0.0 ? h.point.kappa / h.point.tau : 0.0;
  solution->numrefine = h.numrefine;
  solution->reached = ready;
}

}  // namespace tarvo
