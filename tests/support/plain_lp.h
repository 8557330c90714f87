// A linear problem and its solution in plain arrays, for tests that call the modules inside: made from a drawn problem,
// solved by the simplex, judged on its own data.
#pragma once

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "optimize/solcheck.h"
#include "simplex/simplex.h"
#include "support/exact_lp.h"

namespace tarvo_test {

struct PlainLp {
  int32_t numcon = 0, numvar = 0;
  std::vector<int32_t> ptr{0}, sub, bkc, bkx;
  std::vector<double> val, cc, cx, blc, buc, blx, bux;
  double cfix = 0.0;
};

// As a minimisation. With a seed, part of the costs is moved to the rows, which leaves the objective.
inline PlainLp plain(const IntLp& lp, uint32_t rowcosts = 0) {
  PlainLp p;
  p.numcon = lp.numcon();
  p.numvar = lp.numvar();
  const double sign = lp.maximise ? -1.0 : 1.0;
  p.cfix = sign * static_cast<double>(lp.cfix);
  std::mt19937 random(rowcosts);
  for (std::size_t i = 0; i < lp.row.size(); ++i)
    p.cc.push_back(rowcosts != 0 && random() % 2 == 0 ? static_cast<double>(random() % 7) - 3.0 : 0.0);
  for (std::size_t j = 0; j < lp.column.size(); ++j) {
    double c = sign * static_cast<double>(lp.c[j]);
    for (std::size_t i = 0; i < lp.row.size(); ++i) {
      if (lp.a[i][j] == 0) continue;
      p.sub.push_back(static_cast<int32_t>(i));
      p.val.push_back(static_cast<double>(lp.a[i][j]));
      c -= p.val.back() * p.cc[i];
    }
    p.ptr.push_back(static_cast<int32_t>(p.sub.size()));
    p.cx.push_back(c);
  }
  const auto bounds = [](const std::vector<Bound>& from, std::vector<int32_t>* bk, std::vector<double>* bl,
                         std::vector<double>* bu) {
    for (const Bound& b : from) {
      bk->push_back(b.key);
      bl->push_back(b.has_lower() ? static_cast<double>(b.lower) : -HUGE_VAL);
      bu->push_back(b.has_upper() ? static_cast<double>(b.upper) : HUGE_VAL);
    }
  };
  bounds(lp.row, &p.bkc, &p.blc, &p.buc);
  bounds(lp.column, &p.bkx, &p.blx, &p.bux);
  return p;
}

struct PlainSolution {
  int32_t prosta = 0, solsta = 0;
  std::vector<int32_t> skc, skx;
  std::vector<double> xc, xx, y, slc, suc, slx, sux;
  PlainSolution(int32_t numcon, int32_t numvar) {
    const auto m = static_cast<std::size_t>(numcon), n = static_cast<std::size_t>(numvar);
    skc.assign(m, 0);
    skx.assign(n, 0);
    for (auto* list : {&xc, &y, &slc, &suc}) list->assign(m, NAN);
    for (auto* list : {&xx, &slx, &sux}) list->assign(n, NAN);
  }
};

inline tarvo::simplexpar plain_parameters() {
  tarvo::simplexpar par{};
  par.optimizer = 1;
  par.degen = 1;
  par.solveform = 1;
  par.primalcrash = 90;
  for (int k = 0; k < tarvo::SIM_NUM_OPTIMIZERS; ++k) {
    par.maxiter[k] = 100000;
    par.maxsetbacks[k] = 250;
    par.tolx[k] = par.tols[k] = 1e-6;
    par.tolpiv[k] = 1e-7;
  }
  return par;
}

// Solves from the solution's keys and values when par.clean is set. The stop code; *iterations may be NULL.
inline int32_t plain_solve(tarvo::sysenv* env, const tarvo::SimplexInput& in, const tarvo::simplexpar& par,
                           PlainSolution* s, int64_t* iterations = nullptr) {
  tarvo::simplexbasis basis;
  tarvo::simplexinfo info{};
  int32_t resp = tarvo::simplex_makebasis(env, in.numcon, &basis);
  if (resp == 0) {
    tarvo::SimplexSolution solution{s->skc.data(), s->skx.data(), s->xc.data(),  s->xx.data(), s->y.data(),
                                    s->slc.data(), s->suc.data(), s->slx.data(), s->sux.data()};
    const tarvo::SimplexEvents events{nullptr, [](void*, int32_t, const tarvo::simplexinfo*) { return 0; }, false};
    resp = tarvo::simplex_optimize(env, par, &info, in, &solution, &basis, events);
  }
  s->prosta = info.prosta;
  s->solsta = info.solsta;
  if (iterations != nullptr) *iterations = info.iter[0] + info.iter[1] + info.iter[2];
  tarvo::simplex_deletebasis(&basis);
  return resp;
}

inline tarvo::SimplexInput plain_input(const PlainLp& p) {
  return {p.numcon,     p.numvar,     {p.ptr.data(), p.ptr.data() + 1, p.sub.data(), p.val.data()},
          p.cfix,       p.cc.data(),  p.cx.data(),
          p.bkc.data(), p.blc.data(), p.buc.data(),
          p.bkx.data(), p.blx.data(), p.bux.data()};
}

// What is wrong with a solution as an answer to the problem; empty when it holds.
inline std::string plain_wrong(const PlainLp& p, const PlainSolution& s, const ExactAnswer& exact, double tol = 1e-6) {
  std::vector<double> work(p.blc.size() + 1);
  tarvo::CheckProblem check{};
  check.numcon = p.numcon;
  check.numvar = p.numvar;
  check.sign = 1.0;
  check.cfix = p.cfix;
  check.c = p.cx.data();
  check.cc = p.cc.data();
  check.aptrb = p.ptr.data();
  check.aptre = p.ptr.data() + 1;
  check.asub = p.sub.data();
  check.aval = p.val.data();
  check.bkc = p.bkc.data();
  check.bkx = p.bkx.data();
  check.blc = p.blc.data();
  check.buc = p.buc.data();
  check.blx = p.blx.data();
  check.bux = p.bux.data();
  tarvo::Measures m{};
  tarvo::opt_chksolconic(check,
                         {s.prosta, s.solsta, true, s.xc.data(), s.xx.data(), s.y.data(), s.slc.data(), s.suc.data(),
                          s.slx.data(), s.sux.data(), nullptr},
                         work.data(), &m);
  const std::string text = " pobj " + std::to_string(m.primalobj) + " dobj " + std::to_string(m.dualobj) + " pbi " +
                           std::to_string(m.maxpbi) + " peqi " + std::to_string(m.maxpeqi) + " dbi " +
                           std::to_string(m.maxdbi) + " deqi " + std::to_string(m.maxdeqi) + " prosta " +
                           std::to_string(s.prosta);
  const bool primal = std::fmax(m.maxpbi, m.maxpeqi) <= tol, dual = std::fmax(m.maxdbi, m.maxdeqi) <= tol;
  switch (s.solsta) {
    case 1: {
      if (exact.answer != Answer::optimal) return "called optimal" + text;
      const double near = tol * (1.0 + std::fabs(m.primalobj));
      if (!primal || !dual || !(std::fabs(m.primalobj - m.dualobj) <= near)) return "not optimal" + text;
      return s.prosta == 1 ? "" : "prosta" + text;
    }
    case 5:
      if (exact.answer != Answer::infeasible) return "called infeasible" + text;
      return dual && m.dualobj > 0.0 && s.prosta == 4 ? "" : "no proof" + text;
    case 6:
      if (exact.answer != Answer::unbounded && !exact.has_ray) return "called unbounded" + text;
      return primal && m.primalobj < 0.0 && s.prosta == 5 ? "" : "no ray" + text;
    default:
      return "solsta " + std::to_string(s.solsta) + text;
  }
}

// The number of basic keys.
inline int32_t plain_numbasic(const PlainSolution& s) {
  int32_t count = 0;
  for (const auto* list : {&s.skc, &s.skx})
    for (const int32_t key : *list) count += key == tarvo::SIM_SK_BAS;
  return count;
}

}  // namespace tarvo_test
