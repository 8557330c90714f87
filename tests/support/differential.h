// Random small problems, solved through the public header in every combination of optimiser, form and presolve, and
// checked on their own data: status and objective against the exact answer, feasibility, signs and complementarity of
// values and multipliers, a basis of full rank, certificates, and hot starts after a change.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "support/exact_lp.h"
#include "tarvo.h"

namespace tarvo_test {

// Where choices come from: bytes of a fuzzer first, then (or only) a generator.
class Choices {
 public:
  explicit Choices(uint64_t seed) : random_(seed) {}
  Choices(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  int32_t below(int32_t n) {
    if (data_ == nullptr) return static_cast<int32_t>(random_() % static_cast<uint64_t>(n));
    return used_ < size_ ? data_[used_++] % n : 0;
  }
  int32_t between(int32_t lo, int32_t hi) { return lo + below(hi - lo + 1); }
  bool chance(int32_t percent) { return below(100) >= 100 - percent; }

 private:
  std::mt19937_64 random_;
  const uint8_t* data_ = nullptr;
  std::size_t size_ = 0, used_ = 0;
};

namespace differential_detail {

inline Bound around(Choices* pick, int64_t activity, bool feasible) {
  Bound b;
  b.key = pick->below(5);
  const int64_t off = feasible ? 0 : pick->between(-3, 3);
  b.lower = activity + off - (pick->chance(60) ? 0 : pick->between(0, 6));
  b.upper = activity + off + (pick->chance(60) ? 0 : pick->between(0, 6));
  if (pick->chance(2)) b.lower -= 1000000;
  if (pick->chance(2)) b.upper += 1000000;
  if (b.key == 2) b.lower = b.upper = activity + off;
  return b;
}

inline int64_t nonzero(Choices* pick) {
  static constexpr int64_t values[] = {1, -1, 1, -1, 2, -2, 3, -3, 1, 5, -7, 10, -12, 100, -60, 1};
  return values[pick->below(16)];
}

inline void append_row(IntLp* lp, const std::vector<int64_t>& row, const Bound& b) {
  lp->a.push_back(row);
  lp->row.push_back(b);
}

inline int64_t activity(const std::vector<int64_t>& row, const std::vector<int64_t>& x) {
  int64_t sum = 0;
  for (std::size_t j = 0; j < x.size(); ++j) sum += row[j] * x[j];
  return sum;
}

// The structures that the reductions look for.
inline void decorate(IntLp* lp, std::vector<int64_t>* x, Choices* pick, bool feasible) {
  const auto any_column = [&] { return static_cast<std::size_t>(pick->below(lp->numvar())); };
  const auto zero_row = [&] { return std::vector<int64_t>(lp->column.size(), 0); };
  const auto new_column = [&](int64_t value, int64_t cost) {
    for (auto& row : lp->a) row.push_back(0);
    x->push_back(value);
    lp->column.push_back(around(pick, value, true));
    lp->c.push_back(cost);
    return lp->column.size() - 1;
  };
  switch (pick->below(10)) {
    case 0: {  // a row again, times a factor
      if (lp->row.empty()) break;
      std::vector<int64_t> row = lp->a[static_cast<std::size_t>(pick->below(lp->numcon()))];
      const int64_t f = nonzero(pick);
      for (int64_t& v : row) v *= f;
      append_row(lp, row, around(pick, activity(row, *x), feasible));
      break;
    }
    case 1: {  // a column again, times a factor, with a cost in proportion or not
      const std::size_t j = any_column();
      const int64_t f = nonzero(pick), cost = lp->c[j] * f + (pick->chance(50) ? 0 : pick->between(-2, 2));
      const std::size_t k = new_column(pick->between(-2, 2), cost);
      for (std::size_t i = 0; i < lp->a.size(); ++i) {
        lp->a[i][k] = lp->a[i][j] * f;
        if (lp->row[i].has_lower()) lp->row[i].lower += lp->a[i][k] * (*x)[k];
        if (lp->row[i].has_upper()) lp->row[i].upper += lp->a[i][k] * (*x)[k];
      }
      break;
    }
    case 2: {  // a singleton row
      std::vector<int64_t> row = zero_row();
      row[any_column()] = nonzero(pick);
      append_row(lp, row, around(pick, activity(row, *x), feasible));
      break;
    }
    case 3: {  // a chain of equations with two elements each
      std::size_t j = any_column();
      for (int32_t k = pick->between(1, 3); k > 0; --k) {
        const std::size_t next =
            pick->chance(50) ? new_column(pick->between(-3, 3), pick->between(-2, 2)) : any_column();
        if (next == j) continue;
        std::vector<int64_t> row = zero_row();
        row[j] = nonzero(pick);
        row[next] = nonzero(pick);
        Bound b;
        b.key = 2;
        b.lower = b.upper = activity(row, *x);
        append_row(lp, row, b);
        j = next;
      }
      break;
    }
    case 4: {  // an equation that others imply, or just not
      std::vector<int64_t> row = zero_row();
      for (std::size_t i = 0; i < lp->a.size(); ++i) {
        if (lp->row[i].key != 2) continue;
        const int64_t f = pick->between(-1, 2);
        for (std::size_t j = 0; j < row.size(); ++j) row[j] += f * lp->a[i][j];
      }
      Bound b;
      b.key = 2;
      b.lower = b.upper = activity(row, *x) + (feasible || pick->chance(70) ? 0 : 1);
      append_row(lp, row, b);
      break;
    }
    case 5: {  // a column singleton
      const std::size_t k = new_column(pick->between(-3, 3), pick->between(-3, 3));
      if (lp->row.empty()) break;
      const auto i = static_cast<std::size_t>(pick->below(lp->numcon()));
      lp->a[i][k] = nonzero(pick);
      if (lp->row[i].has_lower()) lp->row[i].lower += lp->a[i][k] * (*x)[k];
      if (lp->row[i].has_upper()) lp->row[i].upper += lp->a[i][k] * (*x)[k];
      break;
    }
    case 6:  // an empty row
      append_row(lp, zero_row(), around(pick, 0, feasible || pick->chance(80)));
      break;
    case 7:  // an empty column
      new_column(pick->between(-3, 3), pick->between(-1, 1));
      break;
    case 8: {  // a forcing row: all columns at their bounds
      std::vector<int64_t> row = zero_row();
      int64_t extreme = 0;
      for (std::size_t j = 0; j < row.size(); ++j) {
        if (pick->chance(50) || (!lp->column[j].has_lower() && !lp->column[j].has_upper())) continue;
        const int64_t v = nonzero(pick) * (lp->column[j].has_upper() ? 1 : -1);
        row[j] = lp->column[j].has_upper() && (!lp->column[j].has_lower() || v > 0) ? std::abs(v) : -std::abs(v);
        extreme += row[j] * (row[j] > 0 ? lp->column[j].upper : lp->column[j].lower);
      }
      Bound b;
      b.key = 0;
      b.lower = extreme;
      append_row(lp, row, b);
      break;
    }
    default:  // free columns
      lp->column[any_column()].key = 3;
      break;
  }
}

}  // namespace differential_detail

// Draws a problem of at most `size` rows and columns before its decorations.
inline IntLp random_problem(Choices* pick, int32_t size = 6) {
  namespace d = differential_detail;
  IntLp lp;
  const int32_t m = pick->between(0, size), n = pick->between(1, size);
  const bool feasible = pick->chance(75), costs_fit = pick->chance(60);
  const int32_t density = pick->between(15, 80);
  std::vector<int64_t> x(static_cast<std::size_t>(n));
  for (int64_t& v : x) v = pick->between(-3, 3);
  for (int32_t j = 0; j < n; ++j) lp.column.push_back(d::around(pick, x[static_cast<std::size_t>(j)], true));
  lp.c.assign(static_cast<std::size_t>(n), 0);
  for (int32_t i = 0; i < m; ++i) {
    std::vector<int64_t> row(static_cast<std::size_t>(n), 0);
    for (int64_t& v : row)
      if (pick->chance(density)) v = d::nonzero(pick);
    d::append_row(&lp, row, d::around(pick, d::activity(row, x), feasible));
  }
  for (std::size_t j = 0; j < lp.c.size(); ++j) {
    if (!costs_fit) {
      lp.c[j] = pick->between(-3, 3);
      continue;
    }
    lp.c[j] = lp.column[j].key == 3 || lp.column[j].key == 1 ? 0 : pick->between(0, 2);
    if (lp.column[j].key == 1) lp.c[j] = -pick->between(0, 2);
  }
  if (costs_fit)
    for (std::size_t i = 0; i < lp.a.size(); ++i) {
      int64_t y = pick->between(0, 2);
      if (lp.row[i].key == 1) y = -y;
      if (lp.row[i].key == 3) y = 0;
      for (std::size_t j = 0; j < lp.c.size(); ++j) lp.c[j] += y * lp.a[i][j];
    }
  for (int32_t k = pick->between(0, 4); k > 0; --k) d::decorate(&lp, &x, pick, feasible);
  lp.cfix = pick->between(-5, 5);
  lp.maximise = pick->chance(30);
  if (lp.maximise && pick->chance(80))
    for (int64_t& v : lp.c) v = -v;
  return lp;
}

struct Config {
  int32_t optimizer = TRV_OPTIMIZER_FREE_SIMPLEX, form = 0, presolve = 1, scaling = 0, eliminator = 1, lindep = 1;
  // Of the interior point alone.
  int32_t basis = 0, start = 0, correctors = -1;
  bool interior() const { return optimizer == TRV_OPTIMIZER_INTPNT; }
  std::string text() const {
    return "optimizer " + std::to_string(optimizer) + " form " + std::to_string(form) + " presolve " +
           std::to_string(presolve) + " scaling " + std::to_string(scaling) + " eliminator " +
           std::to_string(eliminator) + " lindep " + std::to_string(lindep);
  }
};

inline Config random_config(Choices* pick) {
  static constexpr int32_t optimizers[] = {TRV_OPTIMIZER_PRIMAL_SIMPLEX, TRV_OPTIMIZER_DUAL_SIMPLEX,
                                           TRV_OPTIMIZER_FREE_SIMPLEX};
  Config c;
  c.optimizer = optimizers[pick->below(3)];
  c.form = pick->below(3);
  c.presolve = pick->chance(85) ? 1 : 0;
  c.scaling = pick->below(4);
  c.eliminator = pick->chance(85) ? 1 : 0;
  c.lindep = pick->chance(85) ? 1 : 0;
  return c;
}

inline Config random_interior_config(Choices* pick) {
  Config c = random_config(pick);
  c.optimizer = TRV_OPTIMIZER_INTPNT;
  c.presolve = pick->below(2);
  c.basis = pick->below(2);
  c.start = pick->chance(25) ? 1 : 0;
  c.correctors = pick->chance(50) ? -1 : pick->below(11);
  return c;
}

// A problem in a task, and the checks of what the library says of it. Every check gives "" or what is wrong.
class Trial {
 public:
  explicit Trial(TRVenv env) : env_(env) {}
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;
  ~Trial() {
    if (task_ != nullptr) TRV_deletetask(&task_);
  }

  std::string load(const IntLp& lp, const Config& config) {
    lp_ = lp;
    interior_ = config.interior();
    m_ = lp.row.size();
    n_ = lp.column.size();
    if (TRV_makeemptytask(env_, &task_) != TRV_RES_OK) return "no task";
    std::vector<int32_t> ptr{0}, sub;
    std::vector<double> val, c;
    for (std::size_t j = 0; j < n_; ++j) {
      for (std::size_t i = 0; i < m_; ++i) {
        if (lp.a[i][j] == 0) continue;
        sub.push_back(static_cast<int32_t>(i));
        val.push_back(static_cast<double>(lp.a[i][j]));
      }
      ptr.push_back(static_cast<int32_t>(sub.size()));
      c.push_back(static_cast<double>(lp.c[j]));
    }
    std::vector<int32_t> bk[2];
    std::vector<double> bl[2], bu[2];
    const std::vector<Bound>* bounds[2] = {&lp.row, &lp.column};
    for (int k = 0; k < 2; ++k)
      for (const Bound& b : *bounds[k]) {
        bk[k].push_back(b.key);
        bl[k].push_back(b.has_lower() ? static_cast<double>(b.lower) : -1e30);
        bu[k].push_back(b.has_upper() ? static_cast<double>(b.upper) : 1e30);
      }
    const int32_t code =
        TRV_inputdata(task_, lp.numcon(), lp.numvar(), lp.numcon(), lp.numvar(), c.data(), static_cast<double>(lp.cfix),
                      ptr.data(), ptr.data() + 1, sub.data(), val.data(), bk[0].data(), bl[0].data(), bu[0].data(),
                      bk[1].data(), bl[1].data(), bu[1].data());
    if (code != TRV_RES_OK) return "inputdata " + std::to_string(code);
    TRV_putobjsense(task_, lp.maximise ? TRV_OBJECTIVE_SENSE_MAXIMIZE : TRV_OBJECTIVE_SENSE_MINIMIZE);
    TRV_putintparam(task_, TRV_IPAR_LOG, 0);
    TRV_putintparam(task_, TRV_IPAR_OPTIMIZER, config.optimizer);
    TRV_putintparam(task_, TRV_IPAR_SIM_SOLVE_FORM, config.form);
    TRV_putintparam(task_, TRV_IPAR_PRESOLVE_USE, config.presolve);
    TRV_putintparam(task_, TRV_IPAR_SIM_SCALING, config.scaling);
    TRV_putintparam(task_, TRV_IPAR_PRESOLVE_ELIMINATOR_USE, config.eliminator);
    TRV_putintparam(task_, TRV_IPAR_PRESOLVE_LINDEP_USE, config.lindep);
    TRV_putintparam(task_, TRV_IPAR_INTPNT_SOLVE_FORM, config.form);
    TRV_putintparam(task_, TRV_IPAR_INTPNT_SCALING, config.scaling);
    TRV_putintparam(task_, TRV_IPAR_INTPNT_BASIS, config.basis);
    TRV_putintparam(task_, TRV_IPAR_INTPNT_STARTING_POINT, config.start);
    TRV_putintparam(task_, TRV_IPAR_INTPNT_MAX_NUM_COR, config.correctors);
    return "";
  }

  // Solves and checks against the exact answer, if there is one.
  std::string solve(const std::optional<ExactAnswer>& exact) {
    const int32_t code = TRV_optimize(task_);
    if (code != TRV_RES_OK) return "optimize gives " + std::to_string(code);
    std::string wrong = read_solution();
    if (!wrong.empty()) return wrong;
    const std::string said = "status " + std::to_string(prosta_) + "/" + std::to_string(solsta_);
    if (solsta_ == TRV_SOL_STA_OPTIMAL && prosta_ == TRV_PRO_STA_PRIM_AND_DUAL_FEAS) {
      if (exact && exact->answer != Answer::optimal) return said + " on a problem without an optimum";
      return check_optimum(exact);
    }
    if (solsta_ == TRV_SOL_STA_PRIM_INFEAS_CER) {
      if (exact && exact->answer != Answer::infeasible) return said + " on a feasible problem";
      return check_certificate();
    }
    if (solsta_ == TRV_SOL_STA_DUAL_INFEAS_CER) {
      if (exact && exact->answer != Answer::unbounded && !exact->has_ray) return said + " on a bounded problem";
      return check_ray();
    }
    return said;
  }

  // Solves the unchanged task again: an optimal basis takes no iterations.
  std::string solve_again(const std::optional<ExactAnswer>& exact) {
    const bool optimal = solsta_ == TRV_SOL_STA_OPTIMAL;
    const std::string wrong = solve(exact);
    if (!wrong.empty()) return "again: " + wrong;
    int32_t primal = 0, dual = 0;
    TRV_getintinf(task_, TRV_IINF_SIM_PRIMAL_ITER, &primal);
    TRV_getintinf(task_, TRV_IINF_SIM_DUAL_ITER, &dual);
    if (!interior_ && optimal && primal + dual != 0) return "again: iterations " + std::to_string(primal + dual);
    return "";
  }

  // Changes one bound or cost and solves from where the task stands.
  std::string change_and_solve(Choices* pick) {
    if (pick->chance(40)) {
      const auto j = static_cast<std::size_t>(pick->below(lp_.numvar()));
      lp_.c[j] += pick->between(-3, 3);
      TRV_putcj(task_, static_cast<int32_t>(j), static_cast<double>(lp_.c[j]));
    } else {
      const bool row = !lp_.row.empty() && pick->chance(60);
      auto& list = row ? lp_.row : lp_.column;
      const auto k = static_cast<std::size_t>(pick->below(static_cast<int32_t>(list.size())));
      Bound& b = list[k];
      b = differential_detail::around(pick, b.has_lower() ? b.lower : b.has_upper() ? b.upper : 0, false);
      TRV_putbound(task_, row ? TRV_ACC_CON : TRV_ACC_VAR, static_cast<int32_t>(k), b.key,
                   b.has_lower() ? static_cast<double>(b.lower) : -1e30,
                   b.has_upper() ? static_cast<double>(b.upper) : 1e30);
    }
    const std::string wrong = solve(exact_answer(lp_));
    return wrong.empty() ? wrong : "after a change: " + wrong;
  }

  TRVtask task() { return task_; }

 private:
  static constexpr double tol = 2e-6;

  std::string read_solution() {
    for (auto* list : {&xc_, &y_, &slc_, &suc_}) list->assign(m_ + 1, 0.0);
    for (auto* list : {&xx_, &slx_, &sux_}) list->assign(n_, 0.0);
    skc_.assign(m_ + 1, 0);
    skx_.assign(n_, 0);
    std::vector<double> snx(n_);
    const int32_t code = TRV_getsolution(task_, interior_ ? TRV_SOL_ITR : TRV_SOL_BAS, &prosta_, &solsta_, skc_.data(),
                                         skx_.data(), nullptr, xc_.data(), xx_.data(), y_.data(), slc_.data(),
                                         suc_.data(), slx_.data(), sux_.data(), snx.data());
    if (code != TRV_RES_OK) return "getsolution " + std::to_string(code);
    for (const auto* list : {&xc_, &y_, &slc_, &suc_, &xx_, &slx_, &sux_})
      for (const double v : *list)
        if (!std::isfinite(v)) return "a value that is not finite";
    // Multipliers of a maximisation have the other sign.
    if (lp_.maximise)
      for (auto* list : {&y_, &slc_, &suc_, &slx_, &sux_})
        for (double& v : *list) v = -v;
    return "";
  }

  double cost(std::size_t j) const { return static_cast<double>(lp_.maximise ? -lp_.c[j] : lp_.c[j]); }

  // c - A'y = slx - sux (c left out in a certificate), y = slc - suc, signs, and nothing on bounds that do not exist.
  std::string check_duals(double withcost, double size) const {
    for (std::size_t i = 0; i < m_; ++i) {
      if (std::fabs(y_[i] - slc_[i] + suc_[i]) > tol * size) return "y - slc + suc of row " + std::to_string(i);
      if (slc_[i] < -tol * size || suc_[i] < -tol * size) return "sign of a multiplier of row " + std::to_string(i);
      if ((slc_[i] > tol * size && !lp_.row[i].has_lower()) || (suc_[i] > tol * size && !lp_.row[i].has_upper()))
        return "a multiplier without a bound, row " + std::to_string(i);
    }
    for (std::size_t j = 0; j < n_; ++j) {
      double d = withcost * cost(j) - slx_[j] + sux_[j];
      for (std::size_t i = 0; i < m_; ++i) d -= static_cast<double>(lp_.a[i][j]) * y_[i];
      if (std::fabs(d) > tol * size) return "reduced cost of column " + std::to_string(j);
      if (slx_[j] < -tol * size || sux_[j] < -tol * size) return "sign of a multiplier of column " + std::to_string(j);
      if ((slx_[j] > tol * size && !lp_.column[j].has_lower()) || (sux_[j] > tol * size && !lp_.column[j].has_upper()))
        return "a multiplier without a bound, column " + std::to_string(j);
    }
    return "";
  }

  double dual_value() const {
    double sum = 0.0;
    const auto add = [&sum](const std::vector<Bound>& list, const std::vector<double>& sl,
                            const std::vector<double>& su) {
      for (std::size_t k = 0; k < list.size(); ++k) {
        if (list[k].has_lower()) sum += sl[k] * static_cast<double>(list[k].lower);
        if (list[k].has_upper()) sum -= su[k] * static_cast<double>(list[k].upper);
      }
    };
    add(lp_.row, slc_, suc_);
    add(lp_.column, slx_, sux_);
    return sum;
  }

  // Bounds on value x of a row or column, complementarity and key.
  std::string check_place(const Bound& b, double x, double sl, double su, int32_t key, double size) const {
    const auto lower = static_cast<double>(b.lower), upper = static_cast<double>(b.upper);
    if (b.has_lower() && x < lower - tol * size) return "below its bound";
    if (b.has_upper() && x > upper + tol * size) return "above its bound";
    if (interior_) {  // products of pairs are small, not always one of the pair
      if (b.has_lower() && (x - lower) * sl > 10 * tol * size * std::max(size, x - lower))
        return "not complementary (lower)";
      if (b.has_upper() && (upper - x) * su > 10 * tol * size * std::max(size, upper - x))
        return "not complementary (upper)";
      return "";
    }
    const double s = std::max(1.0, std::fabs(x));
    if (b.has_lower() && std::min(x - lower, sl) > 10 * tol * s) return "not complementary (lower)";
    if (b.has_upper() && std::min(upper - x, su) > 10 * tol * s) return "not complementary (upper)";
    if (key == TRV_SK_LOW && !(b.has_lower() && std::fabs(x - lower) <= tol * s))
      return "not at the bound of its key LL";
    if (key == TRV_SK_UPR && !(b.has_upper() && std::fabs(upper - x) <= tol * s))
      return "not at the bound of its key UL";
    if (key == TRV_SK_FIX && !(b.has_lower() && b.has_upper() && b.lower == b.upper))
      return "key EQ without an equation";
    if (key == TRV_SK_UNK || key == TRV_SK_INF) return "no key";
    if (key == TRV_SK_SUPBAS && b.key != 3) return "superbasic with a bound";
    return "";
  }

  std::string check_optimum(const std::optional<ExactAnswer>& exact) const {
    double size = 1.0, objective = static_cast<double>(lp_.cfix);
    for (std::size_t j = 0; j < n_; ++j) {
      size = std::max(size, std::fabs(xx_[j]));
      objective += static_cast<double>(lp_.c[j]) * xx_[j];
    }
    if (interior_)  // whose tolerances are relative to the largest numbers of the problem
      for (const auto* list : {&lp_.row, &lp_.column})
        for (const Bound& b : *list) {
          if (b.has_lower()) size = std::max(size, 0.01 * std::fabs(static_cast<double>(b.lower)));
          if (b.has_upper()) size = std::max(size, 0.01 * std::fabs(static_cast<double>(b.upper)));
        }
    if (exact && std::fabs(objective - exact->objective) > tol * std::max(size, std::fabs(exact->objective)))
      return "objective " + std::to_string(objective) + ", exact " + std::to_string(exact->objective);
    for (std::size_t i = 0; i < m_; ++i) {
      double v = 0.0;
      for (std::size_t j = 0; j < n_; ++j) v += static_cast<double>(lp_.a[i][j]) * xx_[j];
      if (std::fabs(v - xc_[i]) > tol * size) return "activity of row " + std::to_string(i);
      const std::string wrong = check_place(lp_.row[i], xc_[i], slc_[i], suc_[i], skc_[i], size);
      if (!wrong.empty()) return "row " + std::to_string(i) + " " + wrong;
    }
    for (std::size_t j = 0; j < n_; ++j) {
      const std::string wrong = check_place(lp_.column[j], xx_[j], slx_[j], sux_[j], skx_[j], size);
      if (!wrong.empty()) return "column " + std::to_string(j) + " " + wrong;
    }
    double largest = 1.0;
    for (const double y : y_) largest = std::max(largest, std::fabs(y));
    const std::string wrong = check_duals(1.0, largest);
    return wrong.empty() && !interior_ ? check_basis() : wrong;
  }

  std::string check_basis() const {
    std::vector<std::vector<int64_t>> columns;
    for (std::size_t i = 0; i < m_; ++i) {
      if (skc_[i] != TRV_SK_BAS) continue;
      columns.emplace_back(m_, 0);
      columns.back()[i] = -1;
    }
    for (std::size_t j = 0; j < n_; ++j) {
      if (skx_[j] != TRV_SK_BAS) continue;
      columns.emplace_back(m_, 0);
      for (std::size_t i = 0; i < m_; ++i) columns.back()[i] = lp_.a[i][j];
    }
    if (columns.size() != m_) return std::to_string(columns.size()) + " basic keys, " + std::to_string(m_) + " rows";
    const std::size_t r = rank(columns);
    return r == m_ ? "" : "a basis of rank " + std::to_string(r) + ", rows " + std::to_string(m_);
  }

  std::string check_certificate() const {
    const double value = dual_value();
    if (!(value > 0.0)) return "certificate of value " + std::to_string(value);
    const std::string wrong = check_duals(0.0, value);
    return wrong.empty() ? "" : "certificate: " + wrong;
  }

  std::string check_ray() const {
    double fall = 0.0;
    for (std::size_t j = 0; j < n_; ++j) fall -= cost(j) * xx_[j];
    if (!(fall > 0.0)) return "ray along which the objective gains " + std::to_string(fall);
    const auto leaves = [fall](const Bound& b, double d) {
      return (b.has_lower() && d < -tol * fall) || (b.has_upper() && d > tol * fall);
    };
    for (std::size_t j = 0; j < n_; ++j)
      if (leaves(lp_.column[j], xx_[j])) return "ray leaves column " + std::to_string(j);
    for (std::size_t i = 0; i < m_; ++i) {
      double v = 0.0;
      for (std::size_t j = 0; j < n_; ++j) v += static_cast<double>(lp_.a[i][j]) * xx_[j];
      if (leaves(lp_.row[i], v)) return "ray leaves row " + std::to_string(i);
    }
    return "";
  }

  TRVenv env_;
  TRVtask task_ = nullptr;
  IntLp lp_;
  bool interior_ = false;
  std::size_t m_ = 0, n_ = 0;
  int32_t prosta_ = 0, solsta_ = 0;
  std::vector<int32_t> skc_, skx_;
  std::vector<double> xc_, y_, slc_, suc_, xx_, slx_, sux_;
};

// One problem under one configuration: cold, again, and (with `changes`) after changes.
inline std::string try_problem(TRVenv env, const IntLp& lp, const Config& config, Choices* changes) {
  const auto exact = exact_answer(lp);
  Trial trial(env);
  std::string wrong = trial.load(lp, config);
  if (wrong.empty()) wrong = trial.solve(exact);
  if (wrong.empty()) wrong = trial.solve_again(exact);
  for (int k = 0; wrong.empty() && changes != nullptr && k < 3; ++k) wrong = trial.change_and_solve(changes);
  return wrong;
}

// Removes rows, columns, elements and bounds as long as the problem still fails (in its cold or second solve).
inline IntLp shrunk(TRVenv env, IntLp lp, const Config& config) {
  const auto fails = [&](const IntLp& candidate) {
    return candidate.numvar() > 0 && !try_problem(env, candidate, config, nullptr).empty();
  };
  if (!fails(lp)) return lp;
  const auto keep_if_fails = [&](IntLp candidate) {
    if (!fails(candidate)) return false;
    lp = std::move(candidate);
    return true;
  };
  int rounds = 0;
  for (bool progress = true; progress && rounds < 30; ++rounds) {
    progress = false;
    for (std::size_t i = lp.row.size(); i-- > 0;) {
      IntLp t = lp;
      t.a.erase(t.a.begin() + static_cast<std::ptrdiff_t>(i));
      t.row.erase(t.row.begin() + static_cast<std::ptrdiff_t>(i));
      progress |= keep_if_fails(t);
    }
    for (std::size_t j = lp.column.size(); j-- > 0;) {
      IntLp t = lp;
      for (auto& row : t.a) row.erase(row.begin() + static_cast<std::ptrdiff_t>(j));
      t.column.erase(t.column.begin() + static_cast<std::ptrdiff_t>(j));
      t.c.erase(t.c.begin() + static_cast<std::ptrdiff_t>(j));
      progress |= keep_if_fails(t);
    }
    for (std::size_t i = 0; i < lp.row.size(); ++i)
      for (std::size_t j = 0; j < lp.column.size(); ++j)
        for (const int64_t v : {0, 1, -1}) {
          if (lp.a[i][j] == v || (v != 0 && std::abs(lp.a[i][j]) == 1)) continue;
          IntLp t = lp;
          t.a[i][j] = v;
          if (keep_if_fails(t)) {
            progress = true;
            break;
          }
        }
    for (std::size_t j = 0; j < lp.column.size(); ++j)
      if (lp.c[j] != 0) {
        IntLp t = lp;
        t.c[j] = 0;
        progress |= keep_if_fails(t);
      }
    for (const bool rows : {true, false})
      for (std::size_t k = 0; k < (rows ? lp.row : lp.column).size(); ++k) {
        const Bound old = (rows ? lp.row : lp.column)[k];
        Bound simple[3] = {old, old, old};
        simple[0].key = 3;
        simple[1].lower = simple[1].upper = 0;
        if (old.key == 4) simple[2].key = 0;
        for (const Bound& b : simple) {
          if (b.key == old.key && b.lower == old.lower && b.upper == old.upper) continue;
          if (old.key == 3 || (b.key == 3 && old.key == 3)) break;
          IntLp t = lp;
          (rows ? t.row : t.column)[k] = b;
          if (keep_if_fails(t)) {
            progress = true;
            break;
          }
        }
      }
    if (lp.cfix != 0) {
      IntLp t = lp;
      t.cfix = 0;
      progress |= keep_if_fails(t);
    }
  }
  return lp;
}

// A problem in whole numbers from a file. "" or what is wrong.
inline std::string read_problem(TRVenv env, const std::string& file, IntLp* lp) {
  TRVtask task = nullptr;
  if (TRV_makeemptytask(env, &task) != TRV_RES_OK) return "no task";
  const int32_t code = TRV_readdata(task, file.c_str());
  int32_t m = 0, n = 0, sense = 0;
  TRV_getnumcon(task, &m);
  TRV_getnumvar(task, &n);
  TRV_getobjsense(task, &sense);
  lp->maximise = sense == TRV_OBJECTIVE_SENSE_MAXIMIZE;
  double cfix = 0.0;
  TRV_getcfix(task, &cfix);
  lp->cfix = std::llround(cfix);
  for (int32_t j = 0; j < n; ++j) {
    double c = 0.0;
    TRV_getcslice(task, j, j + 1, &c);
    lp->c.push_back(std::llround(c));
  }
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR})
    for (int32_t k = 0; k < (accmode == TRV_ACC_CON ? m : n); ++k) {
      Bound b;
      double lower = 0.0, upper = 0.0;
      TRV_getbound(task, accmode, k, &b.key, &lower, &upper);
      if (b.has_lower()) b.lower = std::llround(lower);
      if (b.has_upper()) b.upper = std::llround(upper);
      (accmode == TRV_ACC_CON ? lp->row : lp->column).push_back(b);
    }
  for (int32_t i = 0; i < m; ++i) {
    lp->a.emplace_back(static_cast<std::size_t>(n), 0);
    for (int32_t j = 0; j < n; ++j) {
      double v = 0.0;
      TRV_getaij(task, i, j, &v);
      lp->a.back()[static_cast<std::size_t>(j)] = std::llround(v);
    }
  }
  TRV_deletetask(&task);
  return code == TRV_RES_OK ? "" : "readdata " + std::to_string(code);
}

inline std::string as_text(const IntLp& lp) {
  const auto side = [](const Bound& b) {
    return "[" + (b.has_lower() ? std::to_string(b.lower) : std::string("-")) + ", " +
           (b.has_upper() ? std::to_string(b.upper) : std::string("-")) + "] key " + std::to_string(b.key);
  };
  std::string text = lp.maximise ? "maximise " : "minimise ";
  for (std::size_t j = 0; j < lp.c.size(); ++j)
    if (lp.c[j] != 0) text += std::to_string(lp.c[j]) + " x" + std::to_string(j) + " + ";
  text += std::to_string(lp.cfix) + "\n";
  for (std::size_t i = 0; i < lp.row.size(); ++i) {
    text += "r" + std::to_string(i) + ":";
    for (std::size_t j = 0; j < lp.c.size(); ++j)
      if (lp.a[i][j] != 0) text += " " + std::to_string(lp.a[i][j]) + " x" + std::to_string(j);
    text += " in " + side(lp.row[i]) + "\n";
  }
  for (std::size_t j = 0; j < lp.c.size(); ++j) text += "x" + std::to_string(j) + " in " + side(lp.column[j]) + "\n";
  return text;
}

// What failed, the shrunk problem as text, and the same in an MPS file of the temporary folder.
inline std::string report(TRVenv env, const IntLp& lp, const Config& config, const std::string& wrong,
                          const std::string& name) {
  const IntLp small = shrunk(env, lp, config);
  const char* folder = std::getenv("TMPDIR");
  const std::string file = std::string(folder != nullptr ? folder : "/tmp") + "/" + name + ".mps";
  Trial trial(env);
  if (trial.load(small, config).empty()) {
    TRV_putintparam(trial.task(), TRV_IPAR_WRITE_PRECISION, 17);
    TRV_writedata(trial.task(), file.c_str());
  }
  const std::string now = try_problem(env, small, config, nullptr);
  return wrong + "\n" + config.text() + "\nshrunk to " + file +
         (now.empty() ? " (fails after changes only)" : ": " + now) + "\n" + as_text(small);
}

}  // namespace tarvo_test
