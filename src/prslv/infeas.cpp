// Ends of the presolve by a proof: multipliers of rows that no point satisfies, or a ray along which the objective
// falls for ever. A proof is checked on the reduced problem before the status is set.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "prslv/prslv_internal.h"

namespace tarvo {

namespace {

constexpr int32_t prosta_primal_infeasible = 4, prosta_dual_infeasible = 5;
constexpr int32_t solsta_farkas = 5, solsta_ray = 6;
constexpr double rounding = 1e-13;  // of a sum, relative to its terms

void clear(const prslvprob* p, prslvsol* s) {
  for (double* list : {s->xc, s->y, s->slc, s->suc}) std::fill_n(list, p->numcon, 0.0);
  for (double* list : {s->xx, s->slx, s->sux}) std::fill_n(list, p->numvar, 0.0);
  std::fill_n(s->skc, p->numcon, PRSLV_SK_SUPBAS);
  for (int32_t j = 0; j < p->numvar; ++j) s->skx[j] = p->bkx[j] == PRSLV_BK_FX ? PRSLV_SK_FIX : PRSLV_SK_SUPBAS;
}

void settle(prslvrun* run, int32_t prosta, int32_t solsta) {
  run->stat->status = prosta;
  run->itr->defined = 1;
  run->itr->prosta = prosta;
  run->itr->solsta = solsta;
}

}  // namespace

void prslv_log(const prslvrun* run, const char* format, ...) {
  if (run->hook->print == nullptr) return;
  char text[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  run->hook->print(run->hook->handle, text);
}

void prslv_primalinfeas(prslvrun* run, int32_t n, const int32_t* rows, const double* y) {
  const prslvprob* p = run->p;
  prslvsol* s = run->itr;
  clear(p, s);
  // d = -A'y is left to the columns' bounds.
  double value = 0.0, size = 0.0;
  const auto add = [&](double term) {
    value += term;
    size += std::fabs(term);
  };
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = rows[k];
    s->y[i] = y[k];
    if (y[k] > 0.0 ? !prslv_lower(p->bkc[i]) : !prslv_upper(p->bkc[i])) return;
    add(y[k] * (y[k] > 0.0 ? p->blc[i] : p->buc[i]));
    (y[k] > 0.0 ? s->slc : s->suc)[i] = std::fabs(y[k]);
    s->skc[i] = p->bkc[i] == PRSLV_BK_FX ? PRSLV_SK_FIX : y[k] > 0.0 ? PRSLV_SK_LOW : PRSLV_SK_UPR;
    for (int32_t t = run->acolt->ptrb[i]; t < run->acolt->ptre[i]; ++t) {
      const int32_t j = run->acolt->sub[t];
      if (prslv_livevar(run, j)) s->slx[j] -= y[k] * run->acolt->val[t];
    }
  }
  for (int32_t k = 0; k < n; ++k) {
    for (int32_t t = run->acolt->ptrb[rows[k]]; t < run->acolt->ptre[rows[k]]; ++t) {
      const int32_t j = run->acolt->sub[t];
      if (!prslv_livevar(run, j) || s->skx[j] != PRSLV_SK_SUPBAS) continue;
      const double d = s->slx[j];
      if (std::fabs(d) <= 1e-12 * std::fabs(y[k] * run->acolt->val[t])) {
        s->slx[j] = 0.0;
        continue;
      }
      if (d > 0.0 ? !prslv_lower(p->bkx[j]) : !prslv_upper(p->bkx[j])) return;
      add(d * (d > 0.0 ? p->blx[j] : p->bux[j]));
      s->slx[j] = std::max(d, 0.0);
      s->sux[j] = std::max(-d, 0.0);
      s->skx[j] = d > 0.0 ? PRSLV_SK_LOW : PRSLV_SK_UPR;
    }
  }
  if (value > rounding * size) settle(run, prosta_primal_infeasible, solsta_farkas);
}

// A range whose ends cross is its own proof, without any multiplier on a row.
void prslv_crossedbounds(prslvrun* run, bool row, int32_t k) {
  const prslvprob* p = run->p;
  prslvsol* s = run->itr;
  clear(p, s);
  const auto key = [](int32_t bk) {
    return bk == PRSLV_BK_FX   ? PRSLV_SK_FIX
           : prslv_lower(bk)   ? PRSLV_SK_LOW
           : bk == PRSLV_BK_UP ? PRSLV_SK_UPR
                               : PRSLV_SK_SUPBAS;
  };
  for (int32_t i = 0; i < p->numcon; ++i) s->skc[i] = key(p->bkc[i]);
  for (int32_t j = 0; j < p->numvar; ++j) s->skx[j] = key(p->bkx[j]);
  (row ? s->skc : s->skx)[k] = PRSLV_SK_INF;
  (row ? s->slc : s->slx)[k] = (row ? s->suc : s->sux)[k] = 1.0;
  settle(run, prosta_primal_infeasible, solsta_farkas);
}

void prslv_coninfeasax(prslvrun* run, int32_t i, bool at_lower) {
  char name[128] = "";
  if (run->hook->name != nullptr) run->hook->name(run->hook->handle, true, i, name, sizeof name);
  if (run->par->loglev > 0) prslv_log(run, "Infeasible in constraint '%s' (%d)\n", name, i);
  const double y = at_lower ? 1.0 : -1.0;
  prslv_primalinfeas(run, 1, &i, &y);
}

void prslv_dualinfeas(prslvrun* run, int32_t n, const int32_t* columns, const double* x) {
  const prslvprob* p = run->p;
  prslvsol* s = run->itr;
  clear(p, s);
  double slope = 0.0, size = 0.0;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t j = columns[k];
    if (x[k] > 0.0 ? prslv_upper(p->bkx[j]) : prslv_lower(p->bkx[j])) return;
    s->xx[j] = x[k];
    slope += p->cx[j] * x[k];
    size = std::max(size, std::fabs(x[k]));
    for (int32_t t = p->acol->ptrb[j]; t < p->acol->ptre[j]; ++t) {
      const int32_t i = p->acol->sub[t];
      if (!prslv_livecon(run, i)) continue;
      s->xc[i] += p->acol->val[t] * x[k];
      slope += p->cc[i] * p->acol->val[t] * x[k];
    }
  }
  for (int32_t k = 0; k < n; ++k) {
    const int32_t j = columns[k];
    for (int32_t t = p->acol->ptrb[j]; t < p->acol->ptre[j]; ++t) {
      const int32_t i = p->acol->sub[t];
      if (!prslv_livecon(run, i)) continue;
      if (std::fabs(s->xc[i]) <= 1e-12 * std::fabs(p->acol->val[t]) * size) s->xc[i] = 0.0;
      if ((s->xc[i] > 0.0 && prslv_upper(p->bkc[i])) || (s->xc[i] < 0.0 && prslv_lower(p->bkc[i]))) return;
    }
  }
  if (slope < 0.0) settle(run, prosta_dual_infeasible, solsta_ray);
}

void prslv_dualinfeasvar(prslvrun* run, int32_t j, double direction) {
  prslv_dualinfeas(run, 1, &j, &direction);
  if (prslv_stopped(run) && run->par->loglev > 0) prslv_log(run, "Variable %d makes the problem dual infeasible\n", j);
}

}  // namespace tarvo
