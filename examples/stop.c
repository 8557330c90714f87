/* Stops a run by a call-back, looks at what is there, and goes on from it.
 *
 * The problem assigns SIZE workers to SIZE jobs at least cost.
 */
#include <stdio.h>
#include <stdlib.h>
#include <tarvo.h>

enum { SIZE = 60, ITERATIONS = 25 };

static void check(int32_t code) {
  if (code == TRV_RES_OK) return;
  fprintf(stderr, "response code %d\n", (int)code);
  exit(1);
}

/* Called at every event of the optimizer; a non-zero result stops it. */
static int32_t stop_after(TRVtask task, void* handle, int32_t where) {
  int32_t iterations = 0;
  const int32_t* limit = handle;
  (void)where;
  TRV_getintinf(task, TRV_IINF_SIM_PRIMAL_ITER, &iterations);
  return iterations >= *limit;
}

int main(void) {
  TRVenv env = NULL;
  TRVtask task = NULL;
  int32_t limit = ITERATIONS, i, j, code, solsta, iterations;
  double objective;
  char name[TRV_MAX_STR_LEN], text[TRV_MAX_STR_LEN];

  check(TRV_makeenv(&env, NULL, NULL, NULL, NULL));
  check(TRV_initenv(env));
  check(TRV_makeemptytask(env, &task));
  check(TRV_append(task, TRV_ACC_CON, 2 * SIZE));
  check(TRV_append(task, TRV_ACC_VAR, SIZE * SIZE));
  for (i = 0; i < 2 * SIZE; ++i) check(TRV_putbound(task, TRV_ACC_CON, i, TRV_BK_FX, 1.0, 1.0));
  for (i = 0; i < SIZE; ++i) {
    for (j = 0; j < SIZE; ++j) {
      const int32_t rows[2] = {i, SIZE + j};
      const double ones[2] = {1.0, 1.0};
      check(TRV_putcj(task, i * SIZE + j, 1.0 + (37 * i + 91 * j + i * j) % 101));
      check(TRV_putbound(task, TRV_ACC_VAR, i * SIZE + j, TRV_BK_LO, 0.0, 0.0));
      check(TRV_putavec(task, TRV_ACC_VAR, i * SIZE + j, 2, rows, ones));
    }
  }
  check(TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX));

  check(TRV_putcallbackfunc(task, stop_after, &limit));
  code = TRV_optimize(task);
  if (code != TRV_RES_TRM_USER_CALLBACK) {
    fprintf(stderr, "expected a stop, got response code %d\n", (int)code);
    return 1;
  }
  TRV_getcodedisc(code, name, NULL);
  check(TRV_getintinf(task, TRV_IINF_SIM_PRIMAL_ITER, &iterations));
  printf("stopped by the call-back after %d iterations (%s)\n", (int)iterations, name);

  /* The task is as usable as ever: without the call-back the next run goes on from the basis of the last. */
  check(TRV_putcallbackfunc(task, NULL, NULL));
  check(TRV_optimize(task));
  check(TRV_getsolutionstatus(task, TRV_SOL_BAS, NULL, &solsta));
  check(TRV_solstatostr(task, solsta, text));
  check(TRV_getprimalobj(task, TRV_SOL_BAS, &objective));
  if (solsta != TRV_SOL_STA_OPTIMAL) {
    fprintf(stderr, "solution status %s\n", text);
    return 1;
  }
  printf("resumed: optimal, objective %g\n", objective);
  check(TRV_deletetask(&task));
  check(TRV_deleteenv(&env));
  return 0;
}
