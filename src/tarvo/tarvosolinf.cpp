// The measures of a solution and the summaries.
#include "optimize/solcheck.h"
#include "tarvo/bufpool.h"
#include "tarvo/frame.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvoopt.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

CheckProblem check_problem(const Task* task, const ColumnView& a) {
  CheckProblem p{};
  p.numcon = task->numcon;
  p.numvar = task->numvar;
  p.numcone = task->numcone;
  p.sign = resolved_sense(task) == TRV_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  p.cfix = task->cfix;
  p.c = task->c.data();
  p.cc = task->cc.data();
  p.aptrb = a.ptrb;
  p.aptre = a.ptre;
  p.asub = a.sub;
  p.aval = a.val;
  p.bkc = task->bkc.data();
  p.bkx = task->bkx.data();
  p.blc = task->blc.data();
  p.buc = task->buc.data();
  p.blx = task->blx.data();
  p.bux = task->bux.data();
  p.qobjbegin = task->quad.qobjbegin;
  p.qobjend = task->quad.qobjend;
  p.qconbegin = task->quad.qconbegin.data();
  p.qconend = task->quad.qconend.data();
  p.qsubi = task->quad.qsubi.data();
  p.qsubj = task->quad.qsubj.data();
  p.qval = task->quad.qval.data();
  p.conebegin = task->cones.conebegin.data();
  p.coneend = task->cones.coneend.data();
  p.conetype = task->cones.conetype.data();
  p.conemembers = task->cones.conemembers.data();
  return p;
}

// The measures of a defined solution. Integer solutions get the primal ones alone.
int32_t measure(Task* task, int32_t whichsol, Measures* measures) {
  const int32_t probtype = task_probtype(task);
  const bool conic = probtype == TRV_PROBTYPE_LO || probtype == TRV_PROBTYPE_CONIC;
  if (probtype == TRV_PROBTYPE_MIXED || (probtype == TRV_PROBTYPE_GECO && whichsol == TRV_SOL_ITG))
    return report<TRV_RES_ERR_MIXED_PROBLEM>(task);

  int32_t response = TRV_RES_OK;
  Lease<double> rowwork(task, task->numcon, Fill::raw, &response);
  Lease<double> colwork(task, conic ? 0 : task->numvar, Fill::raw, &response);
  ColumnView a{};
  if (response == TRV_RES_OK) response = data_lock(task, &a);
  if (response != TRV_RES_OK) return response;

  const CheckProblem problem = check_problem(task, a);
  const SolutionView view = sol_view(task, whichsol);
  const CheckSolution solution{task->sol[whichsol].prosta,
                               task->sol[whichsol].solsta,
                               whichsol != TRV_SOL_ITG,
                               view.xc,
                               view.xx,
                               view.y,
                               view.slc,
                               view.suc,
                               view.slx,
                               view.sux,
                               view.snx};
  if (conic)
    opt_chksolconic(problem, solution, rowwork.data(), measures);
  else
    opt_chksol(problem, solution, rowwork.data(), colwork.data(), measures);
  data_unlock(task);
  return TRV_RES_OK;
}

double maxintegerviolation(Task* task, int32_t whichsol) {
  if (task->vartype.empty()) return 0.0;
  const double* xx = sol_view(task, whichsol).xx;
  double result = 0.0;
  for (int32_t j = 0; j < task->numvar; ++j) {
    if (task->vartype[j] != TRV_VAR_TYPE_INT) continue;
    const double violation = opt_integerviolation(xx[j]);
    if (!(violation <= result)) result = violation;
  }
  return result;
}

void put(double* pointer, double value) {
  if (pointer != nullptr) *pointer = value;
}

struct Inf {
  int32_t prosta, solsta;
  double primalobj, maxpbi, maxpcni, maxpeqi, maxinti, dualobj, maxdbi, maxdcni, maxdeqi;
};

int32_t solutioninf(Task* task, int32_t whichsol, Inf* inf) {
  return TRV_getsolutioninf(task, whichsol, &inf->prosta, &inf->solsta, &inf->primalobj, &inf->maxpbi, &inf->maxpcni,
                            &inf->maxpeqi, &inf->maxinti, &inf->dualobj, &inf->maxdbi, &inf->maxdcni, &inf->maxdeqi);
}

void print_statuses(Task* task, int32_t whichstream, const Inf& inf) {
  char text[TRV_MAX_STR_LEN];
  TRV_prostatostr(task, inf.prosta, text);
  TRV_echotask(task, whichstream, "Problem status  : %-s\n", text);
  TRV_solstatostr(task, inf.solsta, text);
  TRV_echotask(task, whichstream, "Solution status : %-s\n", text);
}

void summarise(Task* task, int32_t whichstream, int32_t whichsol) {
  Inf inf{};
  if (!sol_defined(task, whichsol) || solutioninf(task, whichsol, &inf) != TRV_RES_OK) return;
  switch (whichsol) {
    case TRV_SOL_ITR:
      TRV_echotask(task, whichstream, "Interior-point solution\n");
      print_statuses(task, whichstream, inf);
      TRV_echotask(task, whichstream,
                   "%-6s - objective: %-18.10e eq. infeas.: %-8.2e max bound infeas.: %-8.2e cone infeas.: %-8.2e\n",
                   "Primal", inf.primalobj, inf.maxpeqi, inf.maxpbi, inf.maxpcni);
      TRV_echotask(task, whichstream,
                   "%-6s - objective: %-18.10e eq. infeas.: %-8.2e max bound infeas.: %-8.2e cone infeas.: %-8.2e\n\n",
                   "Dual", inf.dualobj, inf.maxdeqi, inf.maxdbi, inf.maxdcni);
      break;
    case TRV_SOL_BAS:
      TRV_echotask(task, whichstream, "Basic solution\n");
      print_statuses(task, whichstream, inf);
      TRV_echotask(task, whichstream, "%-6s - objective: %-18.10e eq. infeas.: %-8.2e max bound infeas.: %-8.2e\n",
                   "Primal", inf.primalobj, inf.maxpeqi, inf.maxpbi);
      TRV_echotask(task, whichstream, "%-6s - objective: %-18.10e eq. infeas.: %-8.2e max bound infeas.: %-8.2e\n",
                   "Dual", inf.dualobj, inf.maxdeqi, inf.maxdbi);
      break;
    default:
      TRV_echotask(task, whichstream, "\nInteger solution\n");
      print_statuses(task, whichstream, inf);
      TRV_echotask(task, whichstream,
                   "%-6s - objective: %-18.10e eq. infeas.: %-8.2e max bound infeas.: %-8.2e cone infeas.: %-8.2e "
                   "integer infeas.: %-8.2e\n",
                   "Primal", inf.primalobj, inf.maxpeqi, inf.maxpbi, inf.maxpcni, inf.maxinti);
  }
}

}  // namespace

}  // namespace tarvo

using namespace tarvo;

extern "C" {

int32_t TRV_getsolutioninf(TRVtask task, int32_t whichsol, int32_t* prosta, int32_t* solsta, double* primalobj,
                           double* maxpbi, double* maxpcni, double* maxpeqi, double* maxinti, double* dualobj,
                           double* maxdbi, double* maxdcni, double* maxdeqi) {
  int32_t response = TRV_getsolutionstatus(task, whichsol, prosta, solsta);
  if (response != TRV_RES_OK) return response;
  Measures m{};
  response = measure(task, whichsol, &m);
  if (response != TRV_RES_OK) return response;
  put(primalobj, m.primalobj);
  put(maxpbi, m.maxpbi);
  put(maxpcni, m.maxpcni);
  put(maxpeqi, m.maxpeqi);
  put(maxinti, whichsol == TRV_SOL_ITG ? maxintegerviolation(task, whichsol) : 0.0);
  put(dualobj, m.dualobj);
  put(maxdbi, m.maxdbi);
  put(maxdcni, m.maxdcni);
  put(maxdeqi, m.maxdeqi);
  return TRV_RES_OK;
}

int32_t TRV_getprimalobj(TRVtask task, int32_t whichsol, double* primalobj) {
  return TRV_getsolutioninf(task, whichsol, nullptr, nullptr, primalobj, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr);
}

int32_t TRV_getdualobj(TRVtask task, int32_t whichsol, double* dualobj) {
  return TRV_getsolutioninf(task, whichsol, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, dualobj,
                            nullptr, nullptr, nullptr);
}

int32_t TRV_solutionsummary(TRVtask task, int32_t whichstream) {
  int32_t response = task_check(task);
  if (response == TRV_RES_OK) response = stream_check(whichstream);
  if (response != TRV_RES_OK || task->ipar[TRV_IPAR_LOG] == 0) return response;
  for (int32_t whichsol = TRV_SOL_ITR; whichsol <= TRV_SOL_ITG; ++whichsol) summarise(task, whichstream, whichsol);

  TRV_echotask(task, whichstream, "\n%-25s - real time  : %-10.2f cpu time: %-8.2f\n", "Optimizer",
               task->dinf[TRV_DINF_OPTIMIZER_REALTIME], task->dinf[TRV_DINF_OPTIMIZER_CPUTIME]);
  struct Line {
    const char* label;
    int32_t count;  // an item, or -1
    int32_t time;
  };
  static constexpr Line lines[] = {
      {"  Interior-point", TRV_IINF_INTPNT_ITER, TRV_DINF_INTPNT_CPUTIME},
      {"    Basis identification", -1, TRV_DINF_BI_CPUTIME},
      {"      Primal", TRV_IINF_BI_PRIMAL_ITER, TRV_DINF_BI_PRIMAL_CPUTIME},
      {"      Dual", TRV_IINF_BI_DUAL_ITER, TRV_DINF_BI_DUAL_CPUTIME},
      {"      Clean", TRV_IINF_BI_CLEAN_ITER, TRV_DINF_BI_CLEAN_CPUTIME},
      {"  Simplex", -1, TRV_DINF_SIM_CPUTIME},
      {"    Primal simplex", TRV_IINF_SIM_PRIMAL_ITER, TRV_DINF_SIM_PRIMAL_CPUTIME},
      {"    Dual simplex", TRV_IINF_SIM_DUAL_ITER, TRV_DINF_SIM_DUAL_CPUTIME},
  };
  for (const Line& line : lines) {
    if (line.count < 0)
      TRV_echotask(task, whichstream, "%-25s -                         cpu time: %-8.2f\n", line.label,
                   task->dinf[line.time]);
    else
      TRV_echotask(task, whichstream, "%-25s - iterations : %-10d cpu time: %-8.2f\n", line.label,
                   task->iinf[line.count], task->dinf[line.time]);
  }
  TRV_echotask(task, whichstream, "%-25s - relaxations: %-10d cpu time: %-8.2f\n", "  Mixed integer",
               task->iinf[TRV_IINF_MIO_NUM_RELAX], task->dinf[TRV_DINF_MIO_CPUTIME]);
  TRV_echotask(task, whichstream, "\n");
  return TRV_RES_OK;
}

int32_t TRV_readsummary(TRVtask task, int32_t whichstream) {
  int32_t response = task_check(task);
  if (response == TRV_RES_OK) response = stream_check(whichstream);
  if (response != TRV_RES_OK || task->ipar[TRV_IPAR_LOG] <= 0) return response;
  const int32_t* iinf = task->iinf;
  const int32_t sense = resolved_sense(task);
  const char* sensetext = sense == TRV_OBJECTIVE_SENSE_MINIMIZE   ? "min"
                          : sense == TRV_OBJECTIVE_SENSE_MAXIMIZE ? "max"
                                                                  : "undef.";
  char probtype[TRV_MAX_STR_LEN];
  TRV_probtypetostr(task, iinf[TRV_IINF_RD_PROTYPE], probtype);
  TRV_echotask(task, whichstream, "Read - objective sense      : %-8s  problem type         : %s\n", sensetext,
               probtype);
  TRV_echotask(task, whichstream, "Read - number of constraints: %-8d  number of variables  : %-8d\n",
               iinf[TRV_IINF_RD_NUMCON], iinf[TRV_IINF_RD_NUMVAR]);
  TRV_echotask(task, whichstream, "Read - number of int. var.  : %-8d  number of nz Qs      : %-8d\n",
               iinf[TRV_IINF_RD_NUMINTVAR], iinf[TRV_IINF_RD_NUMQ]);
  TRV_echotask(task, whichstream, "Read - number of A nonzeros : %-8d  number of Q nonzeros : %-8d\n",
               iinf[TRV_IINF_RD_NUMANZ], iinf[TRV_IINF_RD_NUMQNZ]);
  TRV_echotask(task, whichstream, "Read - time                 : %-8.1f\n\n", task->dinf[TRV_DINF_RD_CPUTIME]);
  return TRV_RES_OK;
}

}  // extern "C"
