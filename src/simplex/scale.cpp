#include "simplex/scale.h"

#include <algorithm>
#include <cmath>

namespace tarvo {

namespace {

// Element sizes that scaling aims at: a row or column may keep elements down to `smallest` before its largest is
// brought below 1, and a column's largest may grow to `largest` to lift its smallest.
constexpr double smallest = 1e-8, largest = 1e5;
// Scaled costs are kept between these by columns that could be scaled either way.
constexpr double max_cost = 1000.0, min_cost = 1e-5;
// Factors stay within 2^+-max_exponent whatever the data, so that their products neither overflow nor vanish.
constexpr int max_exponent = 200;

bool lower(int32_t bk) { return bk == SIM_BK_LO || bk == SIM_BK_FX || bk == SIM_BK_RA; }
bool upper(int32_t bk) { return bk == SIM_BK_UP || bk == SIM_BK_FX || bk == SIM_BK_RA; }

// The largest and the smallest non-zero magnitude of a set; 0, 0 for an empty one.
struct Range {
  double max = 0.0, min = 0.0;
  void add(double value) {
    const double v = std::fabs(value);
    if (v == 0.0) return;
    max = std::max(max, v);
    min = min == 0.0 ? v : std::min(min, v);
  }
};

struct Scaler {
  const SimplexInput& in;
  double *r, *c, *rowmax, *rowmin;
  bool changed = false;

  [[nodiscard]] double element(int32_t t, int32_t j) const { return std::fabs(in.a.val[t] * r[in.a.sub[t]] * c[j]); }
  [[nodiscard]] double cost(int32_t j) const { return std::fabs(in.cx[j]) * c[j]; }

  void multiply(double* factor, double g) {
    if (g == 1.0) return;
    *factor *= g;
    changed = true;
  }

  void row_ranges() {
    std::fill_n(rowmax, in.numcon, 0.0);
    std::fill_n(rowmin, in.numcon, 0.0);
    for (int32_t j = 0; j < in.numvar; ++j)
      for (int32_t t = in.a.ptrb[j]; t < in.a.ptre[j]; ++t) {
        const double v = element(t, j);
        const int32_t i = in.a.sub[t];
        if (v == 0.0) continue;
        rowmax[i] = std::max(rowmax[i], v);
        rowmin[i] = rowmin[i] == 0.0 ? v : std::min(rowmin[i], v);
      }
  }

  [[nodiscard]] Range column_range(int32_t j) const {
    Range range;
    for (int32_t t = in.a.ptrb[j]; t < in.a.ptre[j]; ++t) range.add(element(t, j));
    return range;
  }

  void row_rule() {
    for (int32_t i = 0; i < in.numcon; ++i)
      if (rowmax[i] != 0.0)
        multiply(&r[i], rowmax[i] <= 1.0 ? 1.0 / rowmax[i] : std::max(1.0 / rowmax[i], smallest / rowmin[i]));
  }

  void column_rule() {
    for (int32_t j = 0; j < in.numvar; ++j) {
      const Range col = column_range(j);
      if (col.max == 0.0) continue;
      if (col.max > 1.0)
        multiply(&c[j], std::max(1.0 / col.max, smallest / col.min));
      else if (cost(j) / col.max < max_cost)
        multiply(&c[j], 1.0 / col.max);
    }
  }

  // Lifts small elements row by row, then moves columns with elements on one side of the wanted sizes.
  void lift() {
    row_ranges();
    for (int32_t round = 0; round < 2; ++round)
      for (int32_t j = 0; j < in.numvar; ++j) {
        Range col;
        for (int32_t t = in.a.ptrb[j]; t < in.a.ptre[j]; ++t) {
          const int32_t i = in.a.sub[t];
          double v = element(t, j);
          if (v != 0.0 && v < 0.99 && rowmax[i] < 0.99) {
            const double g = std::min(1.0 / v, 1.0 / rowmax[i]);
            multiply(&r[i], g);
            rowmax[i] *= g;
            rowmin[i] *= g;
            v *= g;
          }
          col.add(v);
        }
        if (col.max != 0.0) move_column(j, col);
      }
  }

  void move_column(int32_t j, const Range& col) {
    const double w = cost(j);
    double g = 1.0;
    if (col.min < smallest && col.max < largest) {
      if (w > max_cost) return;
      g = std::min(smallest / col.min, largest / col.max);
      if (w != 0.0) g = std::min(g, max_cost / w);
    } else if (col.min > smallest && col.max > largest) {
      if (w != 0.0 && w < min_cost) return;
      g = std::max(largest / col.max, smallest / col.min);
      if (w != 0.0) g = std::max(g, min_cost / w);
    } else {
      return;
    }
    multiply(&c[j], g);
    for (int32_t t = in.a.ptrb[j]; t < in.a.ptre[j]; ++t) {
      rowmax[in.a.sub[t]] *= g;
      rowmin[in.a.sub[t]] *= g;
    }
  }

  // Rows and columns whose elements all lie on one side of 1 get their nearest one to 1.
  void equilibrate_rows() {
    for (int32_t i = 0; i < in.numcon; ++i) {
      if (rowmax[i] > 1.0 && rowmin[i] > 1.0)
        multiply(&r[i], 1.0 / rowmin[i]);
      else if (rowmax[i] != 0.0 && rowmax[i] < 1.0)
        multiply(&r[i], 1.0 / rowmax[i]);
    }
  }
  void equilibrate_columns(bool test_costs) {
    for (int32_t j = 0; j < in.numvar; ++j) {
      const Range col = column_range(j);
      if (col.max > 1.0 && col.min > 1.0) {
        if (!test_costs || cost(j) / col.min > min_cost) multiply(&c[j], 1.0 / col.min);
      } else if (col.max != 0.0 && col.max < 1.0) {
        if (!test_costs || cost(j) / col.max < max_cost) multiply(&c[j], 1.0 / col.max);
      }
    }
  }

  static void round_factor(double* factor) {
    if (*factor == 1.0) return;
    int exponent = 0;
    std::frexp(*factor, &exponent);
    *factor = std::ldexp(1.0, std::clamp(exponent, -max_exponent, max_exponent));
  }
  void round_factors() {
    for (int32_t i = 0; i < in.numcon; ++i) round_factor(&r[i]);
    for (int32_t j = 0; j < in.numvar; ++j) round_factor(&c[j]);
  }

  void reset() {
    std::fill_n(r, in.numcon, 1.0);
    std::fill_n(c, in.numvar, 1.0);
    changed = false;
  }

  // The sets whose ranges judge the result, with the present factors.
  struct Ranges {
    Range objective, matrix, lowers, uppers;
    int64_t spread = 0;  // elements a hundred times smaller than the largest of their column
  };
  [[nodiscard]] Ranges ranges() const {
    Ranges all;
    for (int32_t i = 0; i < in.numcon; ++i) {
      all.objective.add(in.cc[i] / r[i]);
      if (lower(in.bkc[i])) all.lowers.add(in.blc[i] * r[i]);
      if (upper(in.bkc[i])) all.uppers.add(in.buc[i] * r[i]);
    }
    for (int32_t j = 0; j < in.numvar; ++j) {
      all.objective.add(in.cx[j] * c[j]);
      const double top = column_range(j).max;
      for (int32_t t = in.a.ptrb[j]; t < in.a.ptre[j]; ++t) {
        const double v = element(t, j);
        all.matrix.add(v);
        if (100.0 * v < top) ++all.spread;
      }
    }
    return all;
  }
};

// Whether scaling kept a range within `share` of what it was; sets without a range don't object.
bool keeps(const Range& raw, const Range& scaled, double share) {
  if (raw.min == 0.0 || scaled.min == 0.0) return true;
  return raw.max / raw.min >= share * (scaled.max / scaled.min);
}

}  // namespace

bool simplex_scale(const SimplexInput& input, bool hot, double* r, double* c, double* rowmax, double* rowmin) {
  Scaler s{input, r, c, rowmax, rowmin};
  s.reset();
  const Scaler::Ranges raw = s.ranges();
  s.column_rule();
  for (int32_t pass = 0; pass < (hot ? 1 : 3); ++pass) {
    s.row_ranges();
    s.row_rule();
    s.column_rule();
  }
  if (!hot) {
    s.lift();
    s.equilibrate_rows();
    s.equilibrate_columns(true);
  }
  if (!s.changed) return false;
  s.round_factors();

  const Scaler::Ranges scaled = s.ranges();
  constexpr double loose = 1e-4;
  const int32_t passed =
      (keeps(raw.objective, scaled.objective, loose) ? 1 : 0) + (keeps(raw.matrix, scaled.matrix, 0.5) ? 1 : 0) +
      (keeps(raw.lowers, scaled.lowers, loose) ? 1 : 0) + (keeps(raw.uppers, scaled.uppers, loose) ? 1 : 0) +
      (raw.spread == 0 || scaled.spread == 0 ||
               static_cast<double>(raw.spread) >= 0.9 * static_cast<double>(scaled.spread)
           ? 1
           : 0);
  if (passed >= 4) return true;
  s.reset();
  if (hot) return false;

  // One plain equilibration instead.
  s.row_ranges();
  s.equilibrate_rows();
  s.equilibrate_columns(false);
  s.round_factors();
  return s.changed;
}

void simplex_applyscale(const double* r, const double* c, SimplexProblem* problem, double* val) {
  SimplexProblem& p = *problem;
  for (int32_t i = 0; i < p.numcon; ++i) {
    p.cc[i] /= r[i];
    if (lower(p.bkc[i])) p.blc[i] *= r[i];
    if (upper(p.bkc[i])) p.buc[i] *= r[i];
    p.xc[i] *= r[i];
    p.y[i] /= r[i];
    p.sc[i] /= r[i];
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    p.cx[j] *= c[j];
    if (lower(p.bkx[j])) p.blx[j] /= c[j];
    if (upper(p.bkx[j])) p.bux[j] /= c[j];
    p.xx[j] /= c[j];
    p.sx[j] *= c[j];
    for (int32_t t = p.a.ptrb[j]; t < p.a.ptre[j]; ++t) val[t] = p.a.val[t] * r[p.a.sub[t]] * c[j];
  }
  p.a.val = val;
}

void simplex_unscale(const double* r, const double* c, SimplexProblem* problem) {
  SimplexProblem& p = *problem;
  for (int32_t i = 0; i < p.numcon; ++i) {
    p.xc[i] /= r[i];
    p.y[i] *= r[i];
    p.sc[i] *= r[i];
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    p.xx[j] *= c[j];
    p.sx[j] /= c[j];
  }
}

}  // namespace tarvo
