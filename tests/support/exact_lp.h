// Small linear problems with integer data, and their exact answer by a rational simplex (Bland's rule), which shares
// nothing with the library.
#pragma once

#include <cstdint>
#include <numeric>
#include <optional>
#include <vector>

namespace tarvo_test {

// min or max c'x + cfix, bounds on Ax and on x. Bound keys as TRV_BK_: 0 lower, 1 upper, 2 fixed, 3 free, 4 ranged.
struct Bound {
  int32_t key = 3;
  int64_t lower = 0, upper = 0;
  bool has_lower() const { return key == 0 || key == 2 || key == 4; }
  bool has_upper() const { return key == 1 || key == 2 || key == 4; }
};
struct IntLp {
  std::vector<std::vector<int64_t>> a;  // dense rows
  std::vector<Bound> row, column;
  std::vector<int64_t> c;
  int64_t cfix = 0;
  bool maximise = false;
  int32_t numcon() const { return static_cast<int32_t>(row.size()); }
  int32_t numvar() const { return static_cast<int32_t>(column.size()); }
};

// A rational number that remembers when it ran out of its 128 bits.
struct Rational {
  __int128 num = 0, den = 1;
  static inline bool overflow = false;

  Rational() = default;
  explicit Rational(__int128 n) : num(n) {}
  static Rational make(__int128 n, __int128 d) {
    if (d < 0) {
      n = -n;
      d = -d;
    }
    __int128 p = n < 0 ? -n : n, q = d;
    while (q != 0) {
      const __int128 r = p % q;
      p = q;
      q = r;
    }
    Rational r;
    r.num = p > 1 ? n / p : n;
    r.den = p > 1 ? d / p : d;
    return r;
  }
  static __int128 mul(__int128 x, __int128 y) {
    __int128 z = 0;
    if (__builtin_mul_overflow(x, y, &z)) overflow = true;
    return z;
  }
  static __int128 add(__int128 x, __int128 y) {
    __int128 z = 0;
    if (__builtin_add_overflow(x, y, &z)) overflow = true;
    return z;
  }
  Rational operator*(const Rational& o) const {
    const Rational p = make(num, o.den), q = make(o.num, den);
    return make(mul(p.num, q.num), mul(p.den, q.den));
  }
  Rational operator/(const Rational& o) const { return *this * make(o.den, o.num); }
  Rational operator+(const Rational& o) const { return make(add(mul(num, o.den), mul(o.num, den)), mul(den, o.den)); }
  Rational operator-() const { return make(-num, den); }
  Rational operator-(const Rational& o) const { return *this + -o; }
  bool operator<(const Rational& o) const { return (*this - o).num < 0; }
  double value() const { return static_cast<double>(num) / static_cast<double>(den); }
};

enum class Answer { optimal, infeasible, unbounded };
struct ExactAnswer {
  Answer answer = Answer::optimal;
  bool has_ray = false;  // with infeasible: the dual problem is infeasible too
  double objective = 0.0;
};

namespace exact_detail {

// minimise c'x, T x = b >= 0, x >= 0 from the artificial basis. Rows of `t` end with b.
struct Tableau {
  std::vector<std::vector<Rational>> t;
  std::vector<Rational> cost;  // reduced costs, the last one minus the objective
  std::vector<std::size_t> basis;
  std::size_t columns = 0;

  void pivot(std::size_t r, std::size_t q) {
    const Rational p = t[r][q];
    for (Rational& v : t[r]) v = v / p;
    const auto eliminate = [&](std::vector<Rational>& row) {
      const Rational f = row[q];
      if (f.num == 0) return;
      for (std::size_t k = 0; k < row.size(); ++k)
        if (t[r][k].num != 0) row[k] = row[k] - f * t[r][k];
    };
    for (std::size_t i = 0; i < t.size(); ++i)
      if (i != r) eliminate(t[i]);
    eliminate(cost);
    basis[r] = q;
  }
  // False when unbounded. Only the first `allowed` columns may enter.
  bool solve(std::size_t allowed) {
    for (;;) {
      std::size_t q = 0;
      while (q < allowed && cost[q].num >= 0) ++q;
      if (q == allowed || Rational::overflow) return true;
      std::size_t r = t.size();
      for (std::size_t i = 0; i < t.size(); ++i) {
        if (t[i][q].num <= 0) continue;
        if (r == t.size()) {
          r = i;
          continue;
        }
        const Rational mine = t[i].back() / t[i][q], best = t[r].back() / t[r][q];
        if (mine < best || (!(best < mine) && basis[i] < basis[r])) r = i;
      }
      if (r == t.size()) return false;
      pivot(r, q);
    }
  }
};

inline ExactAnswer solve(const IntLp& lp) {
  // x_j = shift + sum of sign * column; ranged columns and rows add a row each.
  struct Piece {
    std::size_t column;
    int sign;
  };
  std::size_t columns = 0;
  std::vector<std::vector<Piece>> piece(lp.column.size());
  std::vector<int64_t> shift(lp.column.size(), 0);
  for (std::size_t j = 0; j < lp.column.size(); ++j) {
    const Bound& b = lp.column[j];
    if (b.has_lower()) {
      shift[j] = b.lower;
      piece[j].push_back({columns++, 1});
    } else if (b.has_upper()) {
      shift[j] = b.upper;
      piece[j].push_back({columns++, -1});
    } else {
      piece[j].push_back({columns++, 1});
      piece[j].push_back({columns++, -1});
    }
  }
  struct Row {
    std::vector<__int128> v;
    int sense;  // 0 equal, 1 at least, -1 at most
    __int128 rhs;
  };
  std::vector<Row> rows;
  const auto add = [&](const std::vector<int64_t>& a, int sense, int64_t rhs) {
    Row row{std::vector<__int128>(columns, 0), sense, rhs};
    for (std::size_t j = 0; j < a.size(); ++j) {
      row.rhs -= static_cast<__int128>(a[j]) * shift[j];
      for (const Piece& p : piece[j]) row.v[p.column] += static_cast<__int128>(a[j]) * p.sign;
    }
    rows.push_back(row);
  };
  for (std::size_t i = 0; i < lp.row.size(); ++i) {
    const Bound& b = lp.row[i];
    if (b.key == 2) {
      add(lp.a[i], 0, b.lower);
    } else {
      if (b.has_lower()) add(lp.a[i], 1, b.lower);
      if (b.has_upper()) add(lp.a[i], -1, b.upper);
    }
  }
  for (std::size_t j = 0; j < lp.column.size(); ++j) {
    const Bound& b = lp.column[j];
    if (b.key != 2 && b.key != 4) continue;
    std::vector<int64_t> unit(lp.column.size(), 0);
    unit[j] = 1;
    add(unit, b.key == 2 ? 0 : -1, b.upper);
  }

  std::size_t slacks = 0;
  for (const Row& row : rows) slacks += row.sense != 0 ? 1U : 0U;
  Tableau tab;
  tab.columns = columns + slacks;
  const std::size_t width = tab.columns + rows.size() + 1;
  std::size_t slack = columns;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::vector<Rational> line(width);
    for (std::size_t k = 0; k < columns; ++k) line[k] = Rational(rows[i].v[k]);
    if (rows[i].sense != 0) line[slack++] = Rational(-rows[i].sense);
    line.back() = Rational(rows[i].rhs);
    if (rows[i].rhs < 0)
      for (Rational& v : line) v = -v;
    line[tab.columns + i] = Rational(1);
    tab.t.push_back(line);
    tab.basis.push_back(tab.columns + i);
  }
  // Phase 1: the sum of the artificials.
  tab.cost.assign(width, Rational());
  for (const auto& line : tab.t)
    for (std::size_t k = 0; k < width; ++k)
      if (k < tab.columns || k + 1 == width) tab.cost[k] = tab.cost[k] - line[k];
  tab.solve(tab.columns);
  ExactAnswer result;
  if (tab.cost.back().num != 0) {
    result.answer = Answer::infeasible;
    return result;
  }
  for (std::size_t r = 0; r < tab.t.size(); ++r) {
    if (tab.basis[r] < tab.columns) continue;
    for (std::size_t q = 0; q < tab.columns; ++q) {
      if (tab.t[r][q].num == 0) continue;
      tab.pivot(r, q);
      break;
    }
  }
  // Phase 2. An artificial that is still basic stands in a row of zeros.
  const int sign = lp.maximise ? -1 : 1;
  tab.cost.assign(width, Rational());
  Rational constant(lp.cfix);
  for (std::size_t j = 0; j < lp.column.size(); ++j) {
    constant = constant + Rational(static_cast<__int128>(lp.c[j]) * shift[j]);
    for (const Piece& p : piece[j]) tab.cost[p.column] = Rational(static_cast<__int128>(sign) * p.sign * lp.c[j]);
  }
  for (std::size_t r = 0; r < tab.t.size(); ++r) {
    const Rational f = tab.cost[tab.basis[r]];
    if (f.num == 0) continue;
    for (std::size_t k = 0; k < width; ++k) tab.cost[k] = tab.cost[k] - f * tab.t[r][k];
  }
  if (!tab.solve(tab.columns)) {
    result.answer = Answer::unbounded;
    return result;
  }
  const Rational optimum = -tab.cost.back();
  result.objective = constant.value() + sign * optimum.value();
  return result;
}

}  // namespace exact_detail

// Nothing when the numbers grow beyond 128 bits.
inline std::optional<ExactAnswer> exact_answer(const IntLp& lp) {
  Rational::overflow = false;
  for (const auto* list : {&lp.row, &lp.column})
    for (const Bound& b : *list)
      if (b.key == 4 && b.lower > b.upper) return ExactAnswer{Answer::infeasible, true, 0.0};
  ExactAnswer result = exact_detail::solve(lp);
  if (result.answer == Answer::infeasible) {
    // A ray of the recession cone within a box: its existence makes the other certificate right as well.
    IntLp cone = lp;
    for (auto* list : {&cone.row, &cone.column})
      for (Bound& b : *list) {
        b.lower = b.upper = 0;
        if (b.key == 4) b.key = 2;
      }
    for (Bound& b : cone.column) {
      if (!b.has_lower()) b.lower = -1;
      if (!b.has_upper()) b.upper = 1;
      if (b.key != 2) b.key = 4;
    }
    cone.cfix = 0;
    const double ray = exact_detail::solve(cone).objective;
    result.has_ray = cone.maximise ? ray > 0.0 : ray < 0.0;
  }
  if (Rational::overflow) return std::nullopt;
  return result;
}

// Rank of an integer matrix given by columns, modulo a prime near 2^61: never above the true rank.
inline std::size_t rank(std::vector<std::vector<int64_t>> columns) {
  constexpr __int128 p = (__int128{1} << 61) - 1;
  const auto power = [](__int128 base, __int128 e) {
    __int128 r = 1;
    for (; e > 0; e /= 2, base = base * base % p)
      if (e % 2 == 1) r = r * base % p;
    return r;
  };
  std::size_t found = 0;
  const std::size_t length = columns.empty() ? 0 : columns[0].size();
  for (std::size_t i = 0; i < length && found < columns.size(); ++i) {
    std::size_t k = found;
    while (k < columns.size() && columns[k][i] % p == 0) ++k;
    if (k == columns.size()) continue;
    columns[k].swap(columns[found]);
    const __int128 inverse = power((columns[found][i] % p + p) % p, p - 2);
    for (std::size_t q = found + 1; q < columns.size(); ++q) {
      const __int128 f = (columns[q][i] % p + p) % p * inverse % p;
      if (f == 0) continue;
      for (std::size_t r = i; r < length; ++r) {
        const __int128 v = (columns[q][r] - f * columns[found][r] % p) % p;
        columns[q][r] = static_cast<int64_t>(v < 0 ? v + p : v);
      }
    }
    ++found;
  }
  return found;
}

}  // namespace tarvo_test
