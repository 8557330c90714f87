// The conic optimiser from outside: its record, the scaling of the data, the result.
#include "homo/intpnt.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <new>

#include "homo/intpnt_internal.h"
#include "kfac/kopenmp.h"

namespace tarvo {

namespace {

constexpr int32_t scaling_passes = 2;  // more help no more on published problems

struct Owner : IntpntState {
  Workspace memory;
  explicit Owner(sysenv* owner) : IntpntState{}, memory(owner) {}
};

void plan(Workspace* work, IntpntState* h) {
  const auto m = static_cast<std::size_t>(h->m), n = static_cast<std::size_t>(h->n),
             nu = static_cast<std::size_t>(h->nu), nb = static_cast<std::size_t>(h->nb);
  for (IntpntVec* v : {&h->point, &h->best, &h->dir}) {
    for (double** list : {&v->x, &v->s}) work->add(list, n, Fill::zero);
    for (double** list : {&v->xup, &v->yup, &v->sup}) work->add(list, nu, Fill::zero);
    work->add(&v->y, m, Fill::zero);
  }
  for (double** list :
       {&h->c, &h->colscale, &h->rd, &h->f, &h->v, &h->dxt, &h->dst, &h->e, &h->x1, &h->hx1, &h->wn3, &h->rotated})
    work->add(list, n);
  for (double** list : {&h->b, &h->rowscale, &h->rp, &h->y1}) work->add(list, m);
  for (double** list : {&h->u, &h->ru, &h->rs, &h->hup, &h->eup, &h->xup1, &h->wu1}) work->add(list, nu);
  work->add(&h->h, nb);
  for (double** list : {&h->wn1, &h->wn2}) work->add(list, 2 * n);
  work->add(&h->wm1, 4 * m);
  work->add(&h->cone, static_cast<std::size_t>(h->numcone));
  work->add(&h->keys, n, Fill::zero);
  work->add(&h->keysup, nu, Fill::zero);
}

// One scale for all members of a cone: the geometric mean would do as well; the largest keeps every element small.
void tie_cones(const IntpntState* h, double* norm) {
  for (int32_t k = 0; k < h->numcone; ++k) {
    const int32_t beg = h->cnebeg[k], end = h->cnebeg[k + 1];
    double largest = 0.0;
    for (int32_t j = beg; j < end; ++j) largest = std::max(largest, norm[j]);
    std::fill(norm + beg, norm + end, largest);
  }
}

// Ruiz 2001: rows and columns are divided by the roots of their largest elements until these are near 1. Powers of two,
// so that the scaling itself rounds nothing.
void equilibrate(IntpntState* h) {
  const spmat* a = h->prob->a;
  std::fill_n(h->rowscale, h->m, 1.0);
  std::fill_n(h->colscale, h->n, 1.0);
  if (!h->par.scaling) return;
  double *rows = h->wm1, *cols = h->wn1;
  for (int32_t pass = 0; pass < scaling_passes; ++pass) {
    std::fill_n(rows, h->m, 0.0);
    for (int32_t j = 0; j < h->n; ++j) {
      cols[j] = 0.0;
      for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) {
        const double v = std::fabs(a->val[t]) * h->rowscale[a->sub[t]] * h->colscale[j];
        cols[j] = std::max(cols[j], v);
        rows[a->sub[t]] = std::max(rows[a->sub[t]], v);
      }
    }
    tie_cones(h, cols);
    for (int32_t i = 0; i < h->m; ++i)
      if (rows[i] > 0.0) h->rowscale[i] /= std::sqrt(rows[i]);
    for (int32_t j = 0; j < h->n; ++j)
      if (cols[j] > 0.0) h->colscale[j] /= std::sqrt(cols[j]);
  }
  const auto power_of_two = [](double v) { return std::exp2(std::round(std::log2(std::clamp(v, 1e-10, 1e10)))); };
  for (int32_t i = 0; i < h->m; ++i) h->rowscale[i] = power_of_two(h->rowscale[i]);
  for (int32_t j = 0; j < h->n; ++j) h->colscale[j] = power_of_two(h->colscale[j]);
}

double largest(int32_t n, const double* x) {
  double norm = 0.0;
  for (int32_t k = 0; k < n; ++k) norm = std::max(norm, std::fabs(x[k]));
  return norm;
}

// The norms of the given problem and its scaled copy.
void scale_problem(IntpntState* h) {
  const IntpntProblem& p = *h->prob;
  const spmat* a = p.a;
  h->nrmc = largest(h->n, p.c);
  h->nrmb = std::max(largest(h->m, p.b), largest(h->nu, p.u));
  double *rows = h->wm1, rowmax = 1.0, colmax = 1.0;
  for (int32_t i = 0; i < h->m; ++i) rows[i] = std::fabs(p.b[i]);
  for (int32_t j = 0; j < h->n; ++j) {
    double sum = std::fabs(p.c[j]) + (j >= h->nb - h->nu && j < h->nb ? 3.0 : 1.0);
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) {
      const double v = std::fabs(a->val[t]);
      sum += v;
      rows[a->sub[t]] += v;
    }
    colmax = std::max(colmax, sum);
  }
  for (int32_t i = 0; i < h->m; ++i) rowmax = std::max(rowmax, rows[i]);
  for (int32_t i = 0; i < h->nu; ++i) rowmax = std::max(rowmax, std::fabs(p.u[i]) + 2.0);
  h->fp = 1.0 / rowmax;
  h->fd = 1.0 / colmax;
  equilibrate(h);
  for (int32_t j = 0; j < h->n; ++j) h->c[j] = p.c[j] * h->colscale[j];
  for (int32_t i = 0; i < h->m; ++i) h->b[i] = p.b[i] * h->rowscale[i];
  for (int32_t i = 0; i < h->nu; ++i) h->u[i] = p.u[i] / h->colscale[h->nb - h->nu + i];
  for (int32_t k = 0; k < h->numcone; ++k) {
    if (h->conetype[k] != INTPNT_RQUAD) continue;
    double* c = h->c + h->cnebeg[k];
    const double c0 = c[0], c1 = c[1];
    c[0] = 0.7071067811865476 * (c0 + c1);
    c[1] = 0.7071067811865476 * (c0 - c1);
  }
}

int32_t on_factor(void* handle, int32_t code, double) {
  auto* h = static_cast<IntpntState*>(handle);
  if (h->events.progress == nullptr) return 0;
  const int32_t stop = h->events.progress(h->events.handle, code);
  if (stop != 0 && h->resp == HOM_RESP_OK) h->resp = stop;
  return stop;
}

}  // namespace

void intpnt_print(const IntpntState* h, int32_t level, const char* format, ...) {
  if (h->par.loglevel < level || h->events.print == nullptr) return;
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  h->events.print(h->events.handle, text);
}

IntpntState* intpnt_make(sysenv* env, const IntpntParams& params, const IntpntProblem& problem,
                         const HomEvents& events) {
  void* place = sysenv_malloc(env, 1, sizeof(Owner));
  if (place == nullptr) return nullptr;
  auto* owner = new (place) Owner(env);
  IntpntState* h = owner;
  h->env = env;
  h->par = params;
  h->events = events;
  h->prob = &problem;
  h->m = problem.m;
  h->n = problem.n;
  h->nb = problem.nb;
  h->nu = problem.nu;
  h->nf = problem.nf;
  h->l0 = problem.nb + problem.nf;
  h->numcone = problem.numcone;
  h->cnebeg = problem.cnebeg;
  h->conetype = problem.conetype;
  h->par.kkt.hook = {h, on_factor};
  h->n_c = static_cast<double>(int64_t{h->nb} + h->nu + 1 + h->numcone);
  plan(&owner->memory, h);
  if (!owner->memory.commit()) {
    intpnt_delete(&h);
    return nullptr;
  }
  scale_problem(h);
  return h;
}

void intpnt_delete(IntpntState** h) {
  if (*h == nullptr) return;
  sysenv* env = (*h)->env;
  symles_delete(env, &(*h)->kkt);
  auto* owner = static_cast<Owner*>(*h);
  owner->~Owner();
  sysenv_free(env, owner);
  *h = nullptr;
}

namespace {

// Takes the iterate out of the homogeneous form and the scaling. A certificate gets an objective of -1 (a ray) or 1.
void intpnt_invscale(IntpntState* h, IntpntSolution* sol) {
  const IntpntVec& p = h->point;
  const IntpntMeasures& mea = h->mea;
  double fx = 1.0 / p.tau, fy = 1.0 / p.tau;
  if (h->prosta == INTPNT_PRO_PRIMINFEAS) fy = 1.0 / mea.by;
  if (h->prosta == INTPNT_PRO_DUALINFEAS) fx = 1.0 / -mea.cx;
  for (double* list : {p.x, p.s}) {
    for (int32_t k = 0; k < h->numcone; ++k) {
      if (h->conetype[k] != INTPNT_RQUAD) continue;
      double* v = list + h->cnebeg[k];
      const double v0 = v[0], v1 = v[1];
      v[0] = 0.7071067811865476 * (v0 + v1);
      v[1] = 0.7071067811865476 * (v0 - v1);
    }
  }
  for (int32_t j = 0; j < h->n; ++j) {
    sol->x[j] = p.x[j] * (fx * h->colscale[j]);
    sol->s[j] = p.s[j] * (fy / h->colscale[j]);
  }
  for (int32_t i = 0; i < h->m; ++i) sol->y[i] = p.y[i] * (fy * h->rowscale[i]);
  for (int32_t i = 0; i < h->nu; ++i) sol->yup[i] = p.yup[i] * (fy / h->colscale[h->nb - h->nu + i]);
}

}  // namespace

void intpnt_optcone(sysenv* env, const IntpntParams& params, const IntpntProblem& problem, const HomEvents& events,
                    IntpntSolution* sol, KktStats* stats) {
  sol->resp = HOM_RESP_SPACE;
  sol->prosta = sol->solsta = sol->iter = 0;
  sol->numrefine = 0;
  sol->firstrefine = -1;
  IntpntState* h = intpnt_make(env, params, problem, events);
  if (h == nullptr) return;
  for (int32_t k = 0; k < h->numcone; ++k)
    sysenv_assert(env, h->cnebeg[k + 1] - h->cnebeg[k] >= (h->conetype[k] == INTPNT_RQUAD ? 3 : 2));
  const int32_t threads = mpc_setnthreads(params.numthreads);
  int32_t resp = HOM_RESP_OK;
  h->kkt = symles_make(h, &resp);
  if (h->resp == HOM_RESP_OK) h->resp = resp;
  intpnt_start(h);
  if (h->resp == HOM_RESP_OK) {
    intpnt_coneopt(h);
  } else if (h->resp != HOM_RESP_SPACE) {
    intpnt_inititer(h);
  }
  mpc_setnthreads(threads);
  sol->resp = h->resp;
  sol->prosta = h->prosta;
  sol->solsta = h->solsta;
  sol->iter = h->iter;
  if (h->resp != HOM_RESP_SPACE) {
    sol->pfeas = h->mea.pfeasf;
    sol->dfeas = h->mea.dfeasf;
    sol->pobj = h->mea.pobj;
    sol->dobj = h->mea.dobj;
    sol->relgap = h->mea.relgap;
    sol->kappatau = h->point.kappa / h->point.tau;
    std::copy_n(h->keys, h->n, sol->keys);
    std::copy_n(h->keysup, h->nu, sol->keysup);
    sol->numrefine = symles_numrefine(h, &sol->firstrefine);
    if (stats != nullptr) *stats = symles_stats(h);
    intpnt_invscale(h, sol);
  }
  intpnt_delete(&h);
}

}  // namespace tarvo
