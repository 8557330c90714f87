/* Builds a problem call by call and solves it.
 *
 * A workshop makes chairs and tables: 4 hours of carpentry for a chair and 8 for a table, of 24; 3 and 2 hours of
 * painting, of 12. A chair brings 6.5, a table 8. How many of each, fractions allowed, give the largest profit?
 */
#include <stdio.h>
#include <stdlib.h>
#include <tarvo.h>

/* Ends the program with the message of a failed call. */
static void check(TRVtask task, int32_t code) {
  char text[TRV_MAX_STR_LEN] = "";
  if (code == TRV_RES_OK) return;
  TRV_getlasterror(task, NULL, sizeof text, NULL, text);
  fprintf(stderr, "response code %d: %s\n", (int)code, text);
  exit(1);
}

static void print_log(void* handle, const char* text) {
  (void)handle;
  fputs(text, stdout);
}

int main(void) {
  enum { chairs, tables, num_var };
  enum { carpentry, painting, num_con };
  const double profit[num_var] = {6.5, 8.0};
  const double hours[num_con] = {24.0, 12.0};
  const int32_t rows[num_con] = {carpentry, painting};
  const double use[num_var][num_con] = {{4.0, 3.0}, {8.0, 2.0}};
  const char* const name[num_var] = {"chairs", "tables"};
  TRVenv env = NULL;
  TRVtask task = NULL;
  int32_t i, solsta;
  double x[num_var], objective;

  check(NULL, TRV_makeenv(&env, NULL, NULL, NULL, NULL));
  check(NULL, TRV_initenv(env));
  check(NULL, TRV_maketask(env, num_con, num_var, &task));
  check(task, TRV_linkfunctotaskstream(task, TRV_STREAM_LOG, NULL, print_log));

  /* New constraints are free and new variables are fixed at 0 until they get bounds. */
  check(task, TRV_append(task, TRV_ACC_CON, num_con));
  check(task, TRV_append(task, TRV_ACC_VAR, num_var));
  for (i = 0; i < num_var; ++i) {
    check(task, TRV_putname(task, TRV_PI_VAR, i, name[i]));
    check(task, TRV_putcj(task, i, profit[i]));
    check(task, TRV_putbound(task, TRV_ACC_VAR, i, TRV_BK_LO, 0.0, 0.0)); /* the other side isn't looked at */
    check(task, TRV_putavec(task, TRV_ACC_VAR, i, num_con, rows, use[i]));
  }
  for (i = 0; i < num_con; ++i) check(task, TRV_putbound(task, TRV_ACC_CON, i, TRV_BK_UP, 0.0, hours[i]));
  check(task, TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MAXIMIZE));

  check(task, TRV_putintparam(task, TRV_IPAR_OPTIMIZER, TRV_OPTIMIZER_PRIMAL_SIMPLEX));
  check(task, TRV_optimize(task));
  check(task, TRV_getsolutionstatus(task, TRV_SOL_BAS, NULL, &solsta));
  if (solsta != TRV_SOL_STA_OPTIMAL) {
    printf("no optimal solution\n");
    return 1;
  }
  check(task, TRV_getsolutionslice(task, TRV_SOL_BAS, TRV_SOL_ITEM_XX, 0, num_var, x));
  check(task, TRV_getprimalobj(task, TRV_SOL_BAS, &objective));
  printf("profit %g with chairs %g, tables %g\n", objective, x[chairs], x[tables]);

  check(NULL, TRV_deletetask(&task));
  check(NULL, TRV_deleteenv(&env));
  return 0;
}
