// Points without a basis, first part: superbasic columns that can go to a bound by themselves.
#include "simplex/clean.h"

#include <algorithm>
#include <cmath>

#include "simplex/simplex_internal.h"

namespace tarvo {

namespace {

// One try to move column j: how far rows let it go down and up, and which row stops it.
struct Room {
  double step = HUGE_VAL;
  int32_t row = -1;
  bool upper = false;  // the row meets its upper bound
};

struct SmartCrash {
  const SimplexProblem& p;
  int32_t* count;  // by row: candidates in it
};

// A row that stops a little later but is needed by fewer candidates wins.
void block(const SmartCrash& c, int32_t i, double room, double magnitude, bool upper, Room* best) {
  const double step = std::max(room, 0.0) / magnitude, relaxed = (1e-8 + room) / magnitude + 1e-12;
  const bool near = best->row >= 0 && relaxed <= best->step + 1e-12 && c.count[i] < c.count[best->row];
  if (relaxed < best->step || near) *best = {step, i, upper};
}

void look(const SmartCrash& c, int32_t j, Room* down, Room* up) {
  const SimplexProblem& p = c.p;
  for (int32_t k = p.a.ptrb[j]; k < p.a.ptre[j]; ++k) {
    const int32_t i = p.a.sub[k];
    const double a = p.a.val[k];
    if (a == 0.0) continue;
    if (simplex_haslower(p.bkc[i])) block(c, i, p.xc[i] - p.blc[i], std::fabs(a), false, a > 0.0 ? down : up);
    if (simplex_hasupper(p.bkc[i])) block(c, i, p.buc[i] - p.xc[i], std::fabs(a), true, a > 0.0 ? up : down);
  }
}

void move(const SmartCrash& c, int32_t j, double to) {
  const SimplexProblem& p = c.p;
  const double by = to - p.xx[j];
  for (int32_t k = p.a.ptrb[j]; k < p.a.ptre[j]; ++k) {
    p.xc[p.a.sub[k]] += p.a.val[k] * by;
    --c.count[p.a.sub[k]];
  }
  p.xx[j] = to;
}

// True when the column found a bound, or in the second round a row that stops it.
bool settle(const SmartCrash& c, int32_t j, bool second) {
  const SimplexProblem& p = c.p;
  Room down, up;
  look(c, j, &down, &up);
  const double x = p.xx[j];
  if (simplex_hasupper(p.bkx[j]) && x + up.step + 1e-12 >= p.bux[j]) {
    move(c, j, p.bux[j]);
    p.skx[j] = SIM_SK_UPR;
    return true;
  }
  if (simplex_haslower(p.bkx[j]) && x - down.step - 1e-12 <= p.blx[j]) {
    move(c, j, p.blx[j]);
    p.skx[j] = SIM_SK_LOW;
    return true;
  }
  const Room& stop = down.row >= 0 ? down : up;
  if (!second || stop.row < 0) return false;
  // The column becomes the one that holds the row at its bound: it stays superbasic, the row does not.
  move(c, j, down.row >= 0 ? x - down.step : x + up.step);
  p.skc[stop.row] = stop.upper ? SIM_SK_UPR : SIM_SK_LOW;
  p.xc[stop.row] = stop.upper ? p.buc[stop.row] : p.blc[stop.row];
  return true;
}

bool rows_superbasic(const SimplexProblem& p, int32_t j) {
  for (int32_t k = p.a.ptrb[j]; k < p.a.ptre[j]; ++k)
    if (p.skc[p.a.sub[k]] != SIM_SK_SUPBAS) return false;
  return true;
}

// Superbasic variables at or beyond a bound take it.
void take_bounds(int32_t n, const int32_t* bk, const double* bl, const double* bu, int32_t* sk, double* x) {
  for (int32_t k = 0; k < n; ++k) {
    if (sk[k] == SIM_SK_SUPBAS) {
      if (simplex_haslower(bk[k]) && x[k] <= bl[k])
        sk[k] = SIM_SK_LOW;
      else if (simplex_hasupper(bk[k]) && x[k] >= bu[k])
        sk[k] = SIM_SK_UPR;
    }
    if (sk[k] == SIM_SK_LOW && simplex_haslower(bk[k])) x[k] = bl[k];
    if ((sk[k] == SIM_SK_UPR || sk[k] == SIM_SK_FIX) && simplex_hasupper(bk[k])) x[k] = bu[k];
  }
}

}  // namespace

bool simplex_cleanprimalsmartcrash(sysenv* env, const SimplexProblem& p) {
  Workspace work(env);
  int32_t *count, *order, *start;
  work.add(&count, static_cast<std::size_t>(p.numcon), Fill::zero);
  work.add(&order, static_cast<std::size_t>(p.numvar));
  work.add(&start, static_cast<std::size_t>(p.numcon) + 2, Fill::zero);
  if (!work.commit()) return false;
  const auto length = [&p](int32_t j) { return p.a.ptre[j] - p.a.ptrb[j]; };
  const auto candidate = [&p](int32_t j) { return p.skx[j] == SIM_SK_SUPBAS && rows_superbasic(p, j); };
  // Candidates from the longest down, by counting.
  int32_t n = 0;
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (!candidate(j)) continue;
    ++start[p.numcon - length(j) + 1];
    for (int32_t k = p.a.ptrb[j]; k < p.a.ptre[j]; ++k) ++count[p.a.sub[k]];
    ++n;
  }
  for (int32_t l = 0; l <= p.numcon; ++l) start[l + 1] += start[l];
  for (int32_t j = 0; j < p.numvar; ++j)
    if (candidate(j)) order[start[p.numcon - length(j)]++] = j;
  const SmartCrash c{p, count};
  for (const bool second : {false, true}) {
    int32_t left = 0;
    for (int32_t k = 0; k < n; ++k) {
      const int32_t j = order[k];
      if (rows_superbasic(p, j) && !settle(c, j, second)) order[left++] = j;
    }
    n = left;
  }
  return true;
}

int32_t simplex_cleanstart(sysenv* env, int32_t mode, const SimplexProblem& p, simplexbasis* basis) {
  constexpr int32_t mode_both = 9;
  if (mode == mode_both) {
    take_bounds(p.numcon, p.bkc, p.blc, p.buc, p.skc, p.xc);
    take_bounds(p.numvar, p.bkx, p.blx, p.bux, p.skx, p.xx);
  }
  // Values that are not there stand nowhere.
  for (int32_t j = 0; j < p.numvar; ++j)
    if (!std::isfinite(p.xx[j])) p.xx[j] = 0.0;
  for (int32_t i = 0; i < p.numcon; ++i)
    if (!std::isfinite(p.xc[i])) p.xc[i] = 0.0;
  if (!simplex_cleanprimalsmartcrash(env, p)) return SIM_RESP_SPACE;
  return simplex_crash(env, p, basis);
}

}  // namespace tarvo
