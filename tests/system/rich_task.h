// Problems for tests, loaded through the public calls. Each result is the first response code that is not 0.
#pragma once

#include "tarvo.h"

// A linear problem of 3 constraints and 4 variables, named throughout: max 3x0 + x1 + 5x2 + x3 with optimum 250/3.
inline constexpr double load_linear_optimum = 250.0 / 3.0;
inline int32_t load_linear(TRVtask task) {
  const int32_t ptrb[] = {0, 2, 5, 7};
  const int32_t ptre[] = {2, 5, 7, 9};
  const int32_t sub[] = {0, 1, 0, 1, 2, 0, 1, 1, 2};
  const double val[] = {3, 2, 1, 1, 2, 2, 3, 1, 3};
  const double c[] = {3, 1, 5, 1};
  const int32_t bkc[] = {TRV_BK_FX, TRV_BK_LO, TRV_BK_UP};
  const double blc[] = {30, 15, -1e30};
  const double buc[] = {30, 1e30, 25};
  const int32_t bkx[] = {TRV_BK_LO, TRV_BK_RA, TRV_BK_LO, TRV_BK_LO};
  const double blx[] = {0, 0, 0, 0};
  const double bux[] = {1e30, 10, 1e30, 1e30};
  int32_t rc = TRV_inputdata(task, 3, 4, 3, 4, c, 0, ptrb, ptre, sub, val, bkc, blc, buc, bkx, blx, bux);
  if (rc == 0) rc = TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MAXIMIZE);
  if (rc == 0) rc = TRV_putobjname(task, "profit");
  for (int32_t i = 0; i < 3 && rc == 0; ++i) {
    const char name[] = {'c', static_cast<char>('0' + i), '\0'};
    rc = TRV_putname(task, TRV_PI_CON, i, name);
  }
  for (int32_t j = 0; j < 4 && rc == 0; ++j) {
    const char name[] = {'x', static_cast<char>('0' + j), '\0'};
    rc = TRV_putname(task, TRV_PI_VAR, j, name);
  }
  return rc;
}

// What else a task can hold, each step for itself: quadratic terms, a cone over new variables, types, branch orders.
inline constexpr int32_t quad_i[] = {0, 1, 1};
inline constexpr int32_t quad_j[] = {0, 0, 1};
inline constexpr double quad_val[] = {-2, -0.5, -1};
inline constexpr int32_t cone_members[] = {4, 5, 6};
using LoadStep = int32_t (*)(TRVtask task);
inline constexpr LoadStep rest_steps[] = {
    [](TRVtask task) { return TRV_putcfix(task, 0.25); },
    [](TRVtask task) { return TRV_putqobj(task, 3, quad_i, quad_j, quad_val); },
    [](TRVtask task) { return TRV_putqconk(task, 2, 2, quad_i + 1, quad_j + 1, quad_val + 1); },
    [](TRVtask task) { return TRV_append(task, TRV_ACC_VAR, 3); },
    [](TRVtask task) { return TRV_appendcone(task, TRV_CT_QUAD, 0.0, 3, cone_members); },
    [](TRVtask task) { return TRV_putname(task, TRV_PI_CONE, 0, "k0"); },
    [](TRVtask task) { return TRV_putvartype(task, 1, TRV_VAR_TYPE_INT); },
    [](TRVtask task) { return TRV_putvarbranchorder(task, 1, 7, TRV_BRANCH_DIR_DOWN); },
    [](TRVtask task) { return TRV_puttaskname(task, "rich"); },
};
inline int32_t add_rest(TRVtask task) {
  for (const LoadStep step : rest_steps) {
    if (const int32_t rc = step(task); rc != 0) return rc;
  }
  return 0;
}
