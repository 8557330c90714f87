// The self-check of the factorisations. Of the LU factorisation: solves and updates against the matrix itself, a basis
// of known rank, and files that are too short at first.
#include <cmath>
#include <new>

#include "cpub/array.h"
#include "lu/lu.h"
#include "tarvo.h"
#include "tarvo/testkkt.h"

using namespace tarvo;

namespace {

constexpr int32_t rows = 300;
constexpr int32_t column_length = 4;  // elements of a column at most
constexpr int32_t updates = 200;
constexpr double tolerance = 1e-8;  // largest residual, relative to the data of size 1 to 10

// A basis: columns of at most column_length elements, column j with a large one in row j, a third of them logicals.
struct Check {
  sysenv* env;
  lu* factor;
  uint32_t seed;
  int32_t count[rows];
  int32_t sub[rows][column_length];
  double val[rows][column_length];
  double v[rows], x[rows], spike[rows], residual[rows];
  int32_t list[rows], spikelist[rows], outlist[rows], marks[rows];
  Array<int32_t> iwork;
  Array<double> rwork;
};

uint32_t draw(Check* c) { return (c->seed = c->seed * 1664525u + 1013904223u) >> 8; }

void draw_column(Check* c, int32_t j, int32_t row) {
  c->count[j] = 0;
  const bool logical = draw(c) % 3 == 0;
  for (int32_t k = 0; k < (logical ? 1 : column_length); ++k) {
    const int32_t i = k == 0 ? row : static_cast<int32_t>(draw(c) % rows);
    bool known = false;
    for (int32_t e = 0; e < c->count[j]; ++e) known = known || c->sub[j][e] == i;
    if (known) continue;
    c->sub[j][c->count[j]] = i;
    c->val[j][c->count[j]++] = logical ? -1.0 : (k == 0 ? 4.0 : 0.5) + 1e-7 * draw(c);
  }
}

// Factorises with files that grow until they suffice.
int32_t factorise(Check* c) {
  for (;;) {
    lu_reset(c->factor);
    int32_t res = LU_OK;
    for (int32_t j = 0; j < rows && res == LU_OK; ++j) res = lu_addcol(c->factor, j, c->count[j], c->val[j], c->sub[j]);
    if (res == LU_OK) {
      res = lu_factor(c->factor, static_cast<int64_t>(c->iwork.size()), c->iwork.data(),
                      static_cast<int64_t>(c->rwork.size()), c->rwork.data());
    }
    if (res != LU_FILESPACE && res != LU_GARCOL) return res;
    if (lu_putwsze(c->factor, lu_getneededwsze(c->factor)) != LU_OK) return LU_SPACE;
  }
}

// B x = e and B'y = e.
bool solves_hold(Check* c) {
  for (int32_t i = 0; i < rows; ++i) c->v[i] = 1.0;
  lu_ftran(c->factor, c->v, c->x);
  for (int32_t i = 0; i < rows; ++i) c->residual[i] = -1.0;
  for (int32_t j = 0; j < rows; ++j) {
    for (int32_t k = 0; k < c->count[j]; ++k) c->residual[c->sub[j][k]] += c->val[j][k] * c->x[j];
  }
  bool good = true;
  for (int32_t i = 0; i < rows; ++i) {
    good = good && c->v[i] == 0.0 && std::fabs(c->residual[i]) <= tolerance;
    c->x[i] = 1.0;
  }
  lu_btran(c->factor, c->x, c->v);
  for (int32_t j = 0; j < rows; ++j) {
    double sum = -1.0;
    for (int32_t k = 0; k < c->count[j]; ++k) sum += c->val[j][k] * c->v[c->sub[j][k]];
    good = good && c->x[j] == 0.0 && std::fabs(sum) <= tolerance;
  }
  for (int32_t i = 0; i < rows; ++i) c->v[i] = 0.0;
  return good;
}

// Replaces column j by one that is drawn; the sparse solve of the new column tells whether it may.
bool update(Check* c, int32_t j, int32_t* code) {
  draw_column(c, j, j);
  int32_t n = c->count[j];
  for (int32_t k = 0; k < n; ++k) {
    c->list[k] = c->sub[j][k];
    c->v[c->list[k]] = c->val[j][k];
    c->marks[c->list[k]] = 1;
  }
  lu_ftranl(c->factor, &n, c->v, c->list, c->marks);
  for (int32_t k = 0; k < n; ++k) c->spike[c->spikelist[k] = c->list[k]] = c->v[c->list[k]];
  int32_t listed;
  lu_ftranus2(0.0, 0.0, c->factor, n, c->v, c->list, &listed, c->x, c->list, c->marks);
  const double entry = c->x[j];
  for (int32_t k = 0; k < listed; ++k) c->x[c->list[k]] = 0.0;
  *code = lu_supdl(c->factor, j, j, n, c->spike, c->spikelist);
  if (*code == LU_NOROOM || *code == LU_UNSTABLE) return true;
  double before, after;
  lu_getupdpivots(c->factor, &before, &after);
  return (*code == LU_OK || *code == LU_REFACTOR) &&
         std::fabs(after - before * entry) <= tolerance * (1.0 + std::fabs(after));
}

int32_t run(Check* c) {
  constexpr int32_t failed = TRV_RES_ERR_INTERNAL_TEST_FAILED;
  int64_t iworklen, rworklen;
  lu_worksizes(rows, rows, &iworklen, &rworklen);
  if (lu_make(c->env, rows, rows, &c->factor) != LU_OK || !c->iwork.alloc(c->env, static_cast<std::size_t>(iworklen)) ||
      !c->rwork.alloc(c->env, static_cast<std::size_t>(rworklen))) {
    return TRV_RES_ERR_SPACE;
  }
  for (int32_t j = 0; j < rows; ++j) draw_column(c, j, j);
  const auto full = [c] {
    const int32_t res = factorise(c);
    if (res == LU_SPACE) return TRV_RES_ERR_SPACE;
    return res == LU_OK && lu_isfactored(c->factor) && solves_hold(c) ? TRV_RES_OK : failed;
  };
  if (const int32_t res = full(); res != TRV_RES_OK) return res;
  for (int32_t k = 0; k < updates; ++k) {
    int32_t code;
    if (!update(c, static_cast<int32_t>(draw(c) % rows), &code)) return failed;
    if (code == LU_OK) {
      if (k % 10 == 0 && !solves_hold(c)) return failed;
    } else if (const int32_t res = full(); res != TRV_RES_OK) {
      return res;
    }
  }
  // Three columns that are copies of others take away as much rank, and artificial columns give it back.
  for (int32_t j = 0; j < 3; ++j) {
    c->count[j] = c->count[j + 3];
    for (int32_t k = 0; k < c->count[j]; ++k) {
      c->sub[j][k] = c->sub[j + 3][k];
      c->val[j][k] = 2.0 * c->val[j + 3][k];
    }
  }
  const int32_t res = factorise(c);
  if (res == LU_SPACE) return TRV_RES_ERR_SPACE;
  if (res != LU_OK || lu_getrank(c->factor) != rows - 3) return failed;
  if (lu_insart(c->factor, -1.0, c->outlist, rows) != LU_OK) return failed;
  for (int32_t j = 0; j < rows; ++j) {
    if (c->outlist[j] == rows) continue;
    c->count[j] = 1;
    c->sub[j][0] = c->outlist[j];
    c->val[j][0] = -1.0;
  }
  return solves_hold(c) ? TRV_RES_OK : failed;
}

}  // namespace

int32_t TRV_test_factor(void) {
  sysenv* env = sysenv_make(SysKind::task, false, nullptr, nullptr, nullptr);
  if (env == nullptr) return TRV_RES_ERR_SPACE;
  int32_t res = TRV_RES_ERR_SPACE;
  if (void* memory = sysenv_calloc(env, 1, sizeof(Check)); memory != nullptr) {
    Check* check = new (memory) Check{};
    check->env = env;
    check->seed = 1;
    res = run(check);
    lu_delete(&check->factor);
    check->~Check();
    sysenv_free(env, memory);
  }
  if (res == TRV_RES_OK) res = testkkt_run(env);
  sysenv_delete(&env);
  return res;
}
