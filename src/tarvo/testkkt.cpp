#include "tarvo/testkkt.h"

#include <algorithm>
#include <cmath>

#include "cpub/array.h"
#include "kfac/kktfac.h"
#include "kfac/kopenmp.h"
#include "tarvo.h"

namespace tarvo {

namespace {

constexpr int32_t rows = 144, side = 12;
constexpr int32_t columns = 3 * rows + 2;  // at most
constexpr double tolerance = 1e-8;         // largest residual, relative to the right-hand side

enum Shape : int32_t { GRID, ARROW, BAND, DENSE_COLUMN, REPEATED_ROWS, FULL, SHAPES };

// The system [-D A'; A 0] with columns of A in one list.
struct Check {
  int32_t n = 0;
  Array<int32_t> ptr, sub;
  Array<double> val, d, r1, r2, x, y;
  uint32_t seed = 1;
};

double draw(Check* c) {
  c->seed = c->seed * 1664525u + 1013904223u;
  return 0.5 + static_cast<double>(c->seed >> 8) / 16777216.0;
}

void begin_column(Check* c) {
  c->d[c->n] = std::pow(10.0, 4.0 * draw(c) - 4.0);
  c->ptr[c->n + 1] = c->ptr[c->n];
  ++c->n;
}

void add(Check* c, int32_t i) {
  c->sub[c->ptr[c->n]] = i;
  c->val[c->ptr[c->n]++] = draw(c);
}

void pair(Check* c, int32_t i, int32_t k) {
  begin_column(c);
  add(c, i);
  add(c, k);
}

void fill(Check* c, int32_t shape) {
  c->n = 0;
  c->ptr[0] = 0;
  for (int32_t i = 0; i < rows; ++i) {
    if (shape == REPEATED_ROWS && i >= rows - 3) break;  // these are copies of the first three
    begin_column(c);
    add(c, i);
    if (shape != REPEATED_ROWS || i >= 3) continue;
    add(c, rows - 3 + i);
    c->val[c->ptr[c->n] - 1] = c->val[c->ptr[c->n] - 2];
  }
  for (int32_t i = 0; i + 1 < rows; ++i) {
    if (shape == ARROW) pair(c, 0, i + 1);
    if (shape == BAND || shape == DENSE_COLUMN) pair(c, i, i + 1);
    if (shape == GRID && i % side + 1 < side) pair(c, i, i + 1);
    if (shape == GRID && i + side < rows) pair(c, i, i + side);
  }
  for (int32_t k = 0; k < (shape == DENSE_COLUMN ? 1 : shape == FULL ? rows : 0); ++k) {
    begin_column(c);
    for (int32_t i = 0; i < rows; ++i) add(c, i);
  }
}

bool solves(Check* c, KktFac* fac) {
  std::fill(c->r2.begin(), c->r2.end(), 0.0);
  for (int32_t j = 0; j < c->n; ++j) {
    c->r1[j] = draw(c);
    const double x = draw(c);
    for (int32_t t = c->ptr[j]; t < c->ptr[j + 1]; ++t) c->r2[c->sub[t]] += c->val[t] * x;
  }
  kktfac_solve(fac, 1, c->r1.data(), c->r2.data(), c->x.data(), c->y.data());
  double worst = 0.0, scale = 1.0;
  for (int32_t i = 0; i < rows; ++i) scale = std::max(scale, c->r2[i]);
  for (int32_t j = 0; j < c->n; ++j) {
    double first = c->r1[j] + c->d[j] * c->x[j];
    for (int32_t t = c->ptr[j]; t < c->ptr[j + 1]; ++t) {
      first -= c->val[t] * c->y[c->sub[t]];
      c->r2[c->sub[t]] -= c->val[t] * c->x[j];
    }
    worst = std::max(worst, std::fabs(first));
  }
  for (int32_t i = 0; i < rows; ++i) worst = std::max(worst, std::fabs(c->r2[i]) / scale);
  return worst <= tolerance;
}

int32_t check(sysenv* env, Check* c, int32_t type, int32_t method, int32_t offcol) {
  spmat* a = spmat_make(env, c->n, rows);
  if (a == nullptr) return TRV_RES_ERR_SPACE;
  spmat_ealloc(a, c->n, rows, 0, c->ptr[c->n], c->ptr.data(), c->ptr.data() + 1, c->sub.data(), c->val.data());
  KktOptions options;
  options.type = type;
  options.ordermethod = method;
  options.offcol = offcol;
  KktFac* fac = kktfac_make(env, rows, c->n, options);
  int32_t res = TRV_RES_ERR_SPACE;
  if (fac != nullptr && kktfac_autosetup(fac, a, nullptr, 0, nullptr, nullptr) == KKT_OK) {
    const bool good = kktfac_numfac(fac, c->d.data(), nullptr, 0.0, nullptr) == KKT_OK && solves(c, fac);
    res = good ? TRV_RES_OK : TRV_RES_ERR_INTERNAL_TEST_FAILED;
  }
  kktfac_delete(&fac);
  spmat_delete(&a);
  return res;
}

}  // namespace

int32_t testkkt_run(sysenv* env) {
  Check c;
  const std::size_t nnz = static_cast<std::size_t>(rows) * (rows + 4);
  if (!c.ptr.alloc(env, columns + 1) || !c.sub.alloc(env, nnz) || !c.val.alloc(env, nnz) || !c.d.alloc(env, columns) ||
      !c.r1.alloc(env, columns) || !c.r2.alloc(env, rows) || !c.x.alloc(env, columns) || !c.y.alloc(env, rows))
    return TRV_RES_ERR_SPACE;
  const int32_t threads = mpc_setnthreads(1);
  int32_t res = TRV_RES_OK;
  for (int32_t shape = 0; shape < SHAPES; ++shape) {
    fill(&c, shape);
    for (int32_t method = ORDER_FREE; method <= ORDER_NONE && res == TRV_RES_OK; ++method) {
      mpc_setnthreads(1 + method % 2);
      res = check(env, &c, KKT_NORMAL, method, method % 2 == 0 ? 40 : 0);
      if (res == TRV_RES_OK) res = check(env, &c, KKT_SQD, method, 0);
    }
  }
  mpc_setnthreads(threads);
  return res;
}

}  // namespace tarvo
