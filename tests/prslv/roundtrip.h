// The round trip of a problem through the presolve: reduced, solved by the simplex, brought back by both walks, and
// judged on its own data against the exact answer.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "prslv/prslv.h"
#include "support/plain_lp.h"

namespace tarvo_test {

struct RoundTrip {
  int32_t result = 0;  // of prslv_reduce
  tarvo::prslvstat stat;
  PlainLp reduced;                            // what the simplex got: live rows and columns in order
  PlainSolution basic{0, 0}, interior{0, 0};  // what the walks made
  std::string wrong;                          // empty when all of it holds
};

namespace roundtrip_detail {

inline tarvo::prslvsol view(PlainSolution* s) {
  return {1,
          s->prosta,
          s->solsta,
          s->skc.data(),
          s->xc.data(),
          s->y.data(),
          s->slc.data(),
          s->suc.data(),
          s->skx.data(),
          s->xx.data(),
          s->slx.data(),
          s->sux.data()};
}

// The live part of the reduced problem (all of one that was let alone), and where its rows and columns come from.
inline PlainLp live_part(const tarvo::prslvprob& q, bool all, std::vector<int32_t>* rows,
                         std::vector<int32_t>* columns) {
  PlainLp r;
  std::vector<int32_t> place(static_cast<std::size_t>(q.numcon), -1);
  for (int32_t i = 0; i < q.numcon; ++i) {
    if (!all && q.bkc[i] == tarvo::PRSLV_BK_FR) continue;
    place[static_cast<std::size_t>(i)] = r.numcon++;
    rows->push_back(i);
    r.bkc.push_back(q.bkc[i]);
    r.blc.push_back(q.blc[i]);
    r.buc.push_back(q.buc[i]);
    r.cc.push_back(q.cc[i]);
  }
  for (int32_t j = 0; j < q.numvar; ++j) {
    if (!all && q.bkx[j] == tarvo::PRSLV_BK_FX) continue;
    ++r.numvar;
    columns->push_back(j);
    r.bkx.push_back(q.bkx[j]);
    r.blx.push_back(q.blx[j]);
    r.bux.push_back(q.bux[j]);
    r.cx.push_back(q.cx[j]);
    for (int32_t t = q.acol->ptrb[j]; t < q.acol->ptre[j]; ++t) {
      const int32_t i = place[static_cast<std::size_t>(q.acol->sub[t])];
      if (i < 0) continue;
      r.sub.push_back(i);
      r.val.push_back(q.acol->val[t]);
    }
    r.ptr.push_back(static_cast<int32_t>(r.sub.size()));
  }
  return r;
}

// The solution of the live part in the index space of the whole; what is removed arrives as the walks expect it.
inline PlainSolution spread(const tarvo::prslvprob& q, const PlainSolution& t, const std::vector<int32_t>& rows,
                            const std::vector<int32_t>& columns) {
  PlainSolution s(q.numcon, q.numvar);
  s.prosta = t.prosta;
  s.solsta = t.solsta;
  const double f = t.solsta == 5 || t.solsta == 6 ? 0.0 : 1.0;
  for (std::size_t i = 0; i < s.skc.size(); ++i) {
    s.skc[i] = tarvo::PRSLV_SK_BAS;
    s.xc[i] = s.slc[i] = s.suc[i] = 0.0;
    s.y[i] = -f * q.cc[i];
  }
  for (std::size_t j = 0; j < s.skx.size(); ++j) {
    s.skx[j] = tarvo::PRSLV_SK_FIX;
    s.xx[j] = f * q.blx[j];
    s.slx[j] = std::fmax(f * q.cx[j], 0.0);
    s.sux[j] = std::fmax(-f * q.cx[j], 0.0);
  }
  for (std::size_t k = 0; k < rows.size(); ++k) {
    const auto i = static_cast<std::size_t>(rows[k]);
    s.skc[i] = t.skc[k];
    s.xc[i] = t.xc[k];
    s.y[i] = t.y[k];
    s.slc[i] = t.slc[k];
    s.suc[i] = t.suc[k];
  }
  for (std::size_t k = 0; k < columns.size(); ++k) {
    const auto j = static_cast<std::size_t>(columns[k]);
    s.skx[j] = t.skx[k];
    s.xx[j] = t.xx[k];
    s.slx[j] = t.slx[k];
    s.sux[j] = t.sux[k];
  }
  return s;
}

// Half way between two solutions, without basic keys.
inline PlainSolution between(const PlainSolution& s, const PlainSolution& t) {
  PlainSolution mean = s;
  for (auto list : {&PlainSolution::xc, &PlainSolution::y, &PlainSolution::slc, &PlainSolution::suc, &PlainSolution::xx,
                    &PlainSolution::slx, &PlainSolution::sux})
    for (std::size_t k = 0; k < (mean.*list).size(); ++k) (mean.*list)[k] = 0.5 * ((s.*list)[k] + (t.*list)[k]);
  for (auto list : {&PlainSolution::skc, &PlainSolution::skx})
    for (std::size_t k = 0; k < (mean.*list).size(); ++k)
      if ((s.*list)[k] != (t.*list)[k] || (s.*list)[k] == tarvo::PRSLV_SK_BAS) (mean.*list)[k] = tarvo::PRSLV_SK_SUPBAS;
  return mean;
}

// An allocator that gives up after `left` calls.
struct Heap {
  int64_t left = INT64_MAX;
  static void* take(void* handle, std::size_t size) {
    return static_cast<Heap*>(handle)->left-- > 0 ? std::malloc(size) : nullptr;
  }
  static void give(void*, void* pointer) { std::free(pointer); }
};

}  // namespace roundtrip_detail

// What a basic solution has wrong beyond its values: the number of basic keys, keys without a bound, values off the
// bounds that their keys name, basic positions with a reduced cost.
inline std::string wrong_keys(const PlainLp& p, const PlainSolution& s, double tol = 1e-6) {
  if (const int32_t n = plain_numbasic(s); n != p.numcon) return "basic keys " + std::to_string(n);
  const auto check = [tol](const char* what, const std::vector<int32_t>& sk, const std::vector<double>& x,
                           const std::vector<int32_t>& bk, const std::vector<double>& bl, const std::vector<double>& bu,
                           const std::vector<double>& sl, const std::vector<double>& su) -> std::string {
    for (std::size_t k = 0; k < sk.size(); ++k) {
      const bool low = tarvo::prslv_lower(bk[k]), upp = tarvo::prslv_upper(bk[k]);
      const double d = sl[k] - su[k], off = tol * (1.0 + std::fabs(x[k]));
      bool good = false;
      switch (sk[k]) {
        case tarvo::PRSLV_SK_BAS:
        case tarvo::PRSLV_SK_SUPBAS:
          good = std::fabs(d) <= tol;
          break;
        case tarvo::PRSLV_SK_LOW:
          good = low && std::fabs(x[k] - bl[k]) <= off;
          break;
        case tarvo::PRSLV_SK_UPR:
          good = upp && std::fabs(x[k] - bu[k]) <= off;
          break;
        case tarvo::PRSLV_SK_FIX:
          good = low && upp && bl[k] == bu[k];
          break;
        default:
          break;
      }
      if (!good)
        return what + std::to_string(k) + " key " + std::to_string(sk[k]) + " value " + std::to_string(x[k]) +
               " dual " + std::to_string(d);
    }
    return "";
  };
  const std::string rows = check("row ", s.skc, s.xc, p.bkc, p.blc, p.buc, s.slc, s.suc);
  return rows.empty() ? check("column ", s.skx, s.xx, p.bkx, p.blx, p.bux, s.slx, s.sux) : rows;
}

// The rank of the basis that the keys name.
inline int32_t basis_rank(const PlainLp& p, const PlainSolution& s, double tol = 1e-9) {
  const auto m = static_cast<std::size_t>(p.numcon);
  std::vector<std::vector<double>> basis;
  for (std::size_t i = 0; i < m; ++i) {
    if (s.skc[i] != tarvo::PRSLV_SK_BAS) continue;
    basis.emplace_back(m, 0.0)[i] = -1.0;
  }
  for (std::size_t j = 0; j < s.skx.size(); ++j) {
    if (s.skx[j] != tarvo::PRSLV_SK_BAS) continue;
    auto& column = basis.emplace_back(m, 0.0);
    for (int32_t t = p.ptr[j]; t < p.ptr[j + 1]; ++t)
      column[static_cast<std::size_t>(p.sub[static_cast<std::size_t>(t)])] = p.val[static_cast<std::size_t>(t)];
  }
  std::size_t rank = 0;
  for (std::size_t i = 0; i < m; ++i) {
    std::size_t best = rank;
    for (std::size_t k = rank; k < basis.size(); ++k)
      if (std::fabs(basis[k][i]) > std::fabs(basis[best][i])) best = k;
    if (best >= basis.size() || std::fabs(basis[best][i]) <= tol) continue;
    basis[rank].swap(basis[best]);
    for (std::size_t k = rank + 1; k < basis.size(); ++k) {
      const double f = basis[k][i] / basis[rank][i];
      for (std::size_t r = i; f != 0.0 && r < m; ++r) basis[k][r] -= f * basis[rank][r];
    }
    ++rank;
  }
  return static_cast<int32_t>(rank);
}

// Reduces p with the given switches, solves what is left, and walks back. The interior walk starts half way between two
// vertices. An infeasible or unbounded problem must come back with a proof. With `allocations` memory runs out in the
// course of prslv_reduce.
inline RoundTrip roundtrip(const PlainLp& p, const ExactAnswer& exact, const tarvo::prslvpar& par = {},
                           int64_t allocations = INT64_MAX) {
  using namespace roundtrip_detail;
  RoundTrip out;
  Heap heap;
  tarvo::sysenv* env = tarvo::sysenv_make(tarvo::SysKind::task, true, &heap, Heap::take, Heap::give);
  tarvo::prslvprob* q = tarvo::prslv_make(
      env, {p.numcon, p.numvar, p.ptr.data(), p.ptr.data() + 1, p.sub.data(), p.val.data(), p.cfix, p.cc.data(),
            p.cx.data(), p.bkc.data(), p.blc.data(), p.buc.data(), p.bkx.data(), p.blx.data(), p.bux.data()});
  PlainSolution itr(p.numcon, p.numvar), bas(p.numcon, p.numvar);
  tarvo::prslvsol itr_view = view(&itr), bas_view = view(&bas);
  heap.left = allocations;
  out.result = tarvo::prslv_reduce(par, q, &itr_view, &bas_view, &out.stat, {});
  heap.left = INT64_MAX;
  if (out.result == tarvo::PRSLV_NOTREADY) {
    tarvo::prslv_delete(&q);
    if (tarvo::sysenv_delete(&env) != tarvo::SYS_OK) out.wrong = "memory left";
    return out;
  }
  std::vector<int32_t> rows, columns;
  out.reduced = live_part(*q, par.use == 0, &rows, &columns);
  bool has_basis = true;
  if (out.result != (out.stat.outofspace != 0 ? tarvo::PRSLV_SPACE : tarvo::PRSLV_OK))
    out.wrong = "reduce " + std::to_string(out.result);
  if (out.stat.status == 0) {
    PlainSolution t(out.reduced.numcon, out.reduced.numvar);
    plain_solve(env, plain_input(out.reduced), plain_parameters(), &t);
    out.basic = spread(*q, t, rows, columns);
    tarvo::simplexpar other = plain_parameters();
    other.primalselect = 1;
    other.primalcrash = 0;
    PlainSolution u(out.reduced.numcon, out.reduced.numvar);
    plain_solve(env, plain_input(out.reduced), other, &u);
    const bool same = u.solsta == t.solsta;
    out.interior = between(out.basic, same ? spread(*q, u, rows, columns) : out.basic);
  } else {
    has_basis = bas_view.defined != 0;
    itr.prosta = itr_view.prosta;
    itr.solsta = itr_view.solsta;
    bas.prosta = bas_view.prosta;
    bas.solsta = bas_view.solsta;
    out.interior = itr;
    out.basic = has_basis ? bas : itr;
  }
  const auto judge = [&](const char* name, int32_t result, const PlainSolution& s) {
    if (!out.wrong.empty()) return;
    if (result != tarvo::PRSLV_OK) out.wrong = "result " + std::to_string(result);
    if (out.wrong.empty()) out.wrong = plain_wrong(p, s, exact);
    if (out.wrong.empty() && s.solsta == 1 && &s == &out.basic) out.wrong = wrong_keys(p, s);
    if (out.wrong.empty() && s.solsta == 1 && &s == &out.basic && basis_rank(p, s) != p.numcon)
      out.wrong = "singular basis";
    if (!out.wrong.empty())
      out.wrong = std::string(name) + ": " + out.wrong + " (presolve status " + std::to_string(out.stat.status) + ")";
  };
  if (has_basis) {
    tarvo::prslvsol s = view(&out.basic);
    judge("basic walk", tarvo::prslv_postsolvebas(par, q, &out.stat, &s), out.basic);
  }
  tarvo::prslvsol s = view(&out.interior);
  judge("interior walk", tarvo::prslv_postsolve(par, q, &out.stat, &s), out.interior);
  tarvo::prslv_delete(&q);
  if (tarvo::sysenv_delete(&env) != tarvo::SYS_OK && out.wrong.empty()) out.wrong = "memory left";
  return out;
}

}  // namespace tarvo_test
