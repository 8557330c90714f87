// Fixed rows that depend linearly on others: a consistent one is redundant, an inconsistent one proves the problem
// infeasible. A verdict needs room between both: a row in doubt stays for the optimizer.
#include <algorithm>
#include <cmath>

#include "math/lindep.h"
#include "prslv/blkfix.h"
#include "prslv/elim.h"

namespace tarvo {

namespace {

constexpr double consistent = 1e-9;  // of the largest term of the right-hand side
// Elements touched: some tenths of a second, what a few rows less are worth at most.
constexpr double basework = 3e7, workperelement = 60.0;

struct Dependent {
  prslvrun* run;
  const int32_t* rows;  // the row of the problem behind each row of the check
  Array<int32_t> sub;
  Array<double> y;
  int32_t removed = 0, res = PRSLV_OK;
};

// Row d equals sum y_k row_k.
bool judge(void* handle, int32_t d, int32_t n, const int32_t* list, const double* y) {
  auto* dep = static_cast<Dependent*>(handle);
  prslvrun* run = dep->run;
  const prslvprob* p = run->p;
  const int32_t i = dep->rows[d];
  double r = p->blc[i], size = std::max(1.0, std::fabs(r));
  for (int32_t k = 0; k < n; ++k) {
    const double term = y[k] * p->blc[dep->rows[list[k]]];
    r -= term;
    size = std::max(size, std::fabs(term));
  }
  if (std::fabs(r) <= consistent * size) {
    // Later proofs rest on rows with pivots alone, and this row has none.
    dep->res = prslv_conrelax(run, i, true, true);
    if (dep->res == PRSLV_OK) {
      ++dep->removed;
      ++run->changes;
      ++run->stat->lindep;
    }
  } else if (std::fabs(r) > std::max(run->par->tol_x, run->par->tol_lindep) * size) {
    dep->sub[0] = i;
    dep->y[0] = r > 0.0 ? 1.0 : -1.0;
    for (int32_t k = 0; k < n; ++k) {
      dep->sub[k + 1] = dep->rows[list[k]];
      dep->y[k + 1] = -dep->y[0] * y[k];
    }
    prslv_primalinfeas(run, n + 1, dep->sub.data(), dep->y.data());
    if (prslv_stopped(run) && run->par->loglev > 0) {
      prslv_log(run, "Detected infeasible in constraint: %d (%e,%e)\n", i, r, size);
    }
  }
  return dep->res == PRSLV_OK && !prslv_stopped(run);
}

// Above 1000 rows the work is held in proportion to the size, twofold for each step of the parameter.
int64_t worklimit(const prslvrun* run, int64_t nz) {
  const double most = basework + workperelement * static_cast<double>(nz);
  const int32_t limit = run->par->lindep_work_lim;
  const double m = run->p->numcon;
  if (limit <= 0 || m <= 1000.0) return static_cast<int64_t>(most);
  const double calls = std::max(run->stat->lindeptries, 1);
  const double work = calls * std::round(std::sqrt(std::sqrt(m))) * m * std::round(std::sqrt(m)) * 100.0 *
                      std::ldexp(1.0, std::min(limit, 40));
  return static_cast<int64_t>(std::min(work, most));
}

}  // namespace

int32_t prslv_chklinblkcon(prslvrun* run) {
  prslvprob* p = run->p;
  const spmat* at = run->acolt;
  int32_t m = 0, n = 0;
  int64_t nz = 0;
  const auto active = [&](int32_t i) { return run->concla[i] != 0 && p->bkc[i] == PRSLV_BK_FX && run->connz[i] > 0; };
  for (int32_t i = 0; i < p->numcon; ++i) {
    if (!active(i)) continue;
    ++m;
    nz += run->connz[i];
  }
  if (m == 0 || nz > INT32_MAX) return PRSLV_OK;
  ++run->stat->lindeptries;

  Workspace ws(run->env);
  int32_t *ptr, *sub, *rows, *columns, *place, *pivcol;
  double* val;
  ws.add(&ptr, static_cast<std::size_t>(m) + 1);
  ws.add(&sub, static_cast<std::size_t>(nz));
  ws.add(&val, static_cast<std::size_t>(nz));
  ws.add(&rows, static_cast<std::size_t>(m));
  ws.add(&pivcol, static_cast<std::size_t>(m));
  ws.add(&columns, static_cast<std::size_t>(p->numvar));
  ws.add(&place, static_cast<std::size_t>(p->numvar));
  Dependent dep{run, nullptr, {}, {}};
  if (!ws.commit() || !dep.sub.alloc(run->env, static_cast<std::size_t>(m) + 1) ||
      !dep.y.alloc(run->env, static_cast<std::size_t>(m) + 1)) {
    return PRSLV_SPACE;
  }
  std::fill_n(place, p->numvar, -1);
  int32_t pos = 0;
  m = 0;
  for (int32_t i = 0; i < p->numcon; ++i) {
    if (!active(i)) continue;
    rows[m] = i;
    ptr[m++] = pos;
    for (int32_t t = at->ptrb[i]; t < at->ptre[i]; ++t) {
      const int32_t j = at->sub[t];
      if (!prslv_livevar(run, j) || at->val[t] == 0.0) continue;
      if (place[j] < 0) {
        columns[n] = j;
        place[j] = n++;
      }
      sub[pos] = place[j];
      val[pos++] = at->val[t];
    }
  }
  ptr[m] = pos;
  dep.rows = rows;

  lindepopt options;
  options.tolapiv = run->par->tol_lindep;
  options.maxwork = worklimit(run, nz);
  const lindepmatrix a{m, n, ptr, sub, val};
  int64_t work = 0;
  const int32_t res = lindep_check(run->env, options, a, pivcol, &work, &dep, judge);
  run->stat->lindepwork += work;
  if (res == LINDEP_SPACE) return PRSLV_SPACE;
  if (res == LINDEP_MAXWORK) run->stat->lindeptrunc = 1;
  if (run->par->loglev > 1) {
    if (res != LINDEP_OK) {
      prslv_log(run, "The linear dependency checker was terminated prematurely due to %s.\n",
                res == LINDEP_MAXWORK ? "max work" : "unknown");
    }
    prslv_log(run, "Number of linearly dependent constraints: %d\n", dep.removed);
    prslv_log(run, "Number flops executed in dependency checker: %lld\n", static_cast<long long>(work));
  }
  if (dep.res != PRSLV_OK || prslv_stopped(run) || res != LINDEP_OK) return dep.res;
  return prslv_chkpriblk(run, a, rows, columns, pivcol);
}

}  // namespace tarvo
