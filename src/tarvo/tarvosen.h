// Sensitivity analysis: what its two methods, the reader of request files and the report share.
//
// V(t): the optimal objective when a bound or a cost is displaced by t. Piecewise linear; convex in a bound of a
// minimisation and concave in a cost. The price is its derivative at 0 (one on each side), the range the extent of
// the linear piece there.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

inline constexpr int32_t label_fx = 2;  // beside TRV_MARK_LO and TRV_MARK_UP: both sides move together

// The entries asked for in one list, and their results.
struct SenList {
  int32_t accmode;  // TRV_ACC_CON or TRV_ACC_VAR
  int32_t num;
  const int32_t* sub;                                       // [num]
  const int32_t* mark;                                      // [num], NULL for costs
  double *leftprice, *rightprice, *leftrange, *rightrange;  // [num]
};

// The label of a bound entry: what moves.
inline int32_t sen_label(const Task* task, int32_t accmode, int32_t i, int32_t mark) {
  return (accmode == TRV_ACC_CON ? task->bkc[i] : task->bkx[i]) == TRV_BK_FX ? label_fx : mark;
}

// An optimiser that leaves a basic solution: `wanted` if it is one of the simplex optimisers. The analysis needs a
// basis, which the other optimisers don't give.
int32_t sen_optimizer(int32_t wanted);

// The methods: the basic solution is optimal. The basis type needs the factor of basissolve_init.
int32_t sen_basis_bounds(Task* task, const SenList& list);
int32_t sen_basis_costs(Task* task, const SenList& list);
int32_t sen_partition_bounds(Task* task, const SenList& list);
int32_t sen_partition_costs(Task* task, const SenList& list);

// What a report analyses.
struct SenRequest {
  Array<int32_t> sub, mark;  // the first num elements; no marks for costs
  int32_t num = 0;
};
struct SenRequests {
  SenRequest con, var, cost;
};
int32_t sen_readfile(Task* task, const char* filename, SenRequests* requests);
// Appends an entry. TRV_RES_OK or TRV_RES_ERR_SPACE, unreported.
int32_t sen_append(Task* task, SenRequest* request, int32_t sub, int32_t mark);

// Where a table goes: a file, or a stream of the task when that is NULL. Both remember errors themselves.
struct File;
struct SenSink {
  Task* task;
  File* file;
  int32_t stream;
};
void sen_writelist(const SenSink& sink, const char* title, const SenList& list);

}  // namespace tarvo
