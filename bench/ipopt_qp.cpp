// Solves a linear or convex quadratic problem with Ipopt, read from a file through the library: for comparison only.
// Prints "Optimal objective VALUE - N iterations" in the form of clp.
//
//   ipopt_qp FILE SECONDS
#include <IpStdCInterface.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "tarvo.h"

namespace {

struct Problem {
  int32_t numcon = 0, numvar = 0;
  double cfix = 0.0, sign = 1.0;
  std::vector<double> c, qval, aval, blx, bux, blc, buc;
  std::vector<int32_t> qi, qj, ptrb, ptre, asub, bkx, bkc;
  int iterations = 0;
};

Bool objective(Index, Number* x, Bool, Number* value, UserDataPtr data) {
  const auto& p = *static_cast<const Problem*>(data);
  *value = p.cfix;
  for (size_t j = 0; j < p.c.size(); ++j) *value += p.c[j] * x[j];
  for (size_t k = 0; k < p.qval.size(); ++k)
    *value += p.qval[k] * x[p.qi[k]] * x[p.qj[k]] * (p.qi[k] == p.qj[k] ? 0.5 : 1.0);
  return TRUE;
}

Bool gradient(Index, Number* x, Bool, Number* g, UserDataPtr data) {
  const auto& p = *static_cast<const Problem*>(data);
  for (size_t j = 0; j < p.c.size(); ++j) g[j] = p.c[j];
  for (size_t k = 0; k < p.qval.size(); ++k) {
    g[p.qi[k]] += p.qval[k] * x[p.qj[k]];
    if (p.qi[k] != p.qj[k]) g[p.qj[k]] += p.qval[k] * x[p.qi[k]];
  }
  return TRUE;
}

Bool activities(Index, Number* x, Bool, Index m, Number* g, UserDataPtr data) {
  const auto& p = *static_cast<const Problem*>(data);
  for (Index i = 0; i < m; ++i) g[i] = 0.0;
  for (int32_t j = 0; j < p.numvar; ++j)
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) g[p.asub[t]] += p.aval[t] * x[j];
  return TRUE;
}

Bool jacobian(Index, Number*, Bool, Index, Index, Index* row, Index* column, Number* value, UserDataPtr data) {
  const auto& p = *static_cast<const Problem*>(data);
  size_t k = 0;
  for (int32_t j = 0; j < p.numvar; ++j) {
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t, ++k) {
      if (value != nullptr) {
        value[k] = p.aval[t];
      } else {
        row[k] = p.asub[t];
        column[k] = j;
      }
    }
  }
  return TRUE;
}

Bool hessian(Index, Number*, Bool, Number factor, Index, Number*, Bool, Index, Index* row, Index* column, Number* value,
             UserDataPtr data) {
  const auto& p = *static_cast<const Problem*>(data);
  for (size_t k = 0; k < p.qval.size(); ++k) {
    if (value != nullptr) {
      value[k] = factor * p.qval[k];
    } else {
      row[k] = p.qi[k];
      column[k] = p.qj[k];
    }
  }
  return TRUE;
}

Bool progress(Index, Index iter, Number, Number, Number, Number, Number, Number, Number, Number, Index,
              UserDataPtr data) {
  static_cast<Problem*>(data)->iterations = iter;
  return TRUE;
}

Problem read(TRVtask task) {
  Problem p;
  int32_t anz = 0, qnz = 0, sense = 0;
  TRV_getnumcon(task, &p.numcon);
  TRV_getnumvar(task, &p.numvar);
  TRV_getnumanz(task, &anz);
  TRV_getnumqobjnz(task, &qnz);
  TRV_getobjsense(task, &sense);
  p.sign = sense == TRV_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  const auto n = static_cast<size_t>(p.numvar), m = static_cast<size_t>(p.numcon);
  p.c.resize(n);
  for (auto* list : {&p.blx, &p.bux}) list->resize(n);
  for (auto* list : {&p.blc, &p.buc}) list->resize(m);
  for (auto* list : {&p.bkx, &p.ptrb, &p.ptre}) list->resize(n);
  p.bkc.resize(m);
  p.asub.resize(static_cast<size_t>(anz));
  p.aval.resize(static_cast<size_t>(anz));
  for (auto* list : {&p.qi, &p.qj}) list->resize(static_cast<size_t>(qnz));
  p.qval.resize(static_cast<size_t>(qnz));
  TRV_getc(task, p.c.data());
  TRV_getcfix(task, &p.cfix);
  TRV_getboundslice(task, TRV_ACC_VAR, 0, p.numvar, p.bkx.data(), p.blx.data(), p.bux.data());
  TRV_getboundslice(task, TRV_ACC_CON, 0, p.numcon, p.bkc.data(), p.blc.data(), p.buc.data());
  int32_t surplus = anz;
  TRV_getaslice(task, TRV_ACC_VAR, 0, p.numvar, anz, &surplus, p.ptrb.data(), p.ptre.data(), p.asub.data(),
                p.aval.data());
  surplus = qnz;
  TRV_getqobj(task, qnz, &surplus, &qnz, p.qi.data(), p.qj.data(), p.qval.data());
  p.cfix *= p.sign;
  for (double& v : p.c) v *= p.sign;
  for (double& v : p.qval) v *= p.sign;
  return p;
}

}  // namespace

int main(int argc, char** argv) {
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  if (argc != 3 || TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr) != 0 || TRV_initenv(env) != 0 ||
      TRV_maketask(env, 0, 0, &task) != 0 || TRV_readdata(task, argv[1]) != 0) {
    std::fprintf(stderr, "usage: ipopt_qp FILE SECONDS\n");
    return 1;
  }
  Problem p = read(task);
  TRV_deletetask(&task);
  TRV_deleteenv(&env);
  IpoptProblem nlp = CreateIpoptProblem(p.numvar, p.blx.data(), p.bux.data(), p.numcon, p.blc.data(), p.buc.data(),
                                        static_cast<Index>(p.aval.size()), static_cast<Index>(p.qval.size()), 0,
                                        objective, activities, gradient, jacobian, hessian);
  char print_level[] = "print_level", sb[] = "sb", yes[] = "yes", limit[] = "max_cpu_time", tol[] = "tol";
  char jac[] = "jac_c_constant", jad[] = "jac_d_constant", hes[] = "hessian_constant";
  AddIpoptIntOption(nlp, print_level, 0);
  AddIpoptStrOption(nlp, sb, yes);
  for (char* option : {jac, jad, hes}) AddIpoptStrOption(nlp, option, yes);
  AddIpoptNumOption(nlp, limit, std::atof(argv[2]));
  AddIpoptNumOption(nlp, tol, 1e-8);
  SetIntermediateCallback(nlp, progress);
  std::vector<double> x(static_cast<size_t>(p.numvar), 0.0);
  double value = 0.0;
  const auto status = IpoptSolve(nlp, x.data(), nullptr, &value, nullptr, nullptr, nullptr, &p);
  FreeIpoptProblem(nlp);
  if (status == Solve_Succeeded)
    std::printf("Optimal objective %.10g - %d iterations\n", p.sign * value, p.iterations);
  else
    std::printf("no optimum, status %d\n", static_cast<int>(status));
  return 0;
}
