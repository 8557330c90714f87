// The ways between a problem and its dual form: starts go to the dual, solutions and certificates come back.
#include <algorithm>
#include <cmath>

#include "dualize/dualize_internal.h"

namespace tarvo {

namespace {

constexpr int32_t solsta_optimal = 1, solsta_near_optimal = 8;
constexpr int32_t solsta_farkas = 5, solsta_ray = 6, solsta_near_farkas = 12, solsta_near_ray = 13;
constexpr int32_t clean_after_mapping = 7;

bool lower(int32_t bk) { return bk == DUAL_BK_LO || bk == DUAL_BK_FX || bk == DUAL_BK_RA; }
bool upper(int32_t bk) { return bk == DUAL_BK_UP || bk == DUAL_BK_FX || bk == DUAL_BK_RA; }

// The key of a nonbasic variable at the bound that `upperside` asks for, as far as there is one.
int32_t nonbasic(int32_t bk, bool upperside) {
  if (bk == DUAL_BK_FX) return DUAL_SK_FIX;
  if (upper(bk) && (upperside || !lower(bk))) return DUAL_SK_UPR;
  return lower(bk) ? DUAL_SK_LOW : DUAL_SK_SUPBAS;
}

bool known_keys(int32_t n, const int32_t* sk) {
  return std::all_of(sk, sk + n, [](int32_t key) { return key >= DUAL_SK_UNK && key <= DUAL_SK_INF; });
}

double column_dot(const DualizeInput& in, int32_t j, const double* y) {
  double sum = 0.0;
  for (int32_t t = in.ptrb[j]; t < in.ptre[j]; ++t) sum += in.val[t] * y[in.sub[t]];
  return sum;
}
void activities(const DualizeInput& in, const double* x, double* xc) {
  std::fill_n(xc, in.numcon, 0.0);
  for (int32_t j = 0; j < in.numvar; ++j)
    for (int32_t t = in.ptrb[j]; t < in.ptre[j] && x[j] != 0.0; ++t) xc[in.sub[t]] += in.val[t] * x[j];
}

double folded_element(const DualizeInput& in, int32_t j) {
  for (int32_t t = in.ptrb[j]; t < in.ptre[j]; ++t)
    if (in.val[t] != 0.0) return in.val[t];
  return 1.0;
}

// ---- From the dual to the primal ---------------------------------------------------------------------------------

// One mapping. `bounds` and `costs` are 0 where bounds or costs count as 0 (a ray; a proof of infeasibility).
struct Map {
  const dualizer* record;
  const DualizeInput* in;
  const DualizeSolution *dual, *out;
  bool basic, ray, farkas;
  double bounds, costs;
};

double reduced_cost(const Map& map, int32_t column) { return map.dual->slx[column] - map.dual->sux[column]; }

// The folded column whose bound u_i rests on, or -1.
int32_t active_source(const Map& map, int32_t i) {
  const dualizer& record = *map.record;
  const int32_t k = record.ycol[i];
  if (k < 0 || record.ycol2[i] >= 0) return -1;
  const double d = reduced_cost(map, k);
  switch (map.dual->skx[k]) {
    case DUAL_SK_LOW:
      return record.lsrc[i];
    case DUAL_SK_UPR:
      return record.usrc[i];
    case DUAL_SK_FIX:
      return d >= 0.0 ? record.lsrc[i] : record.usrc[i];
    default:
      return -1;
  }
}

// The same for a ray: the multiplier of the bound carries it, whatever the key (the row that proves the dual infeasible
// is that of a basic variable).
int32_t ray_source(const Map& map, int32_t i) {
  const dualizer& record = *map.record;
  const int32_t k = record.ycol[i];
  if (k < 0 || record.ycol2[i] >= 0) return -1;
  const double d = reduced_cost(map, k);
  return d > 0.0 ? record.lsrc[i] : d < 0.0 ? record.usrc[i] : -1;
}

// Keys of the compact form: what is basic in the dual is nonbasic here.
void map_keys(const Map& map) {
  const dualizer& record = *map.record;
  const DualizeInput& in = *map.in;
  for (int32_t j = 0; j < in.numvar; ++j) {
    const int32_t bk = dualize_colkey(in, j), r = record.xrow[j], q = record.qcol[j];
    int32_t key = DUAL_SK_BAS;
    if (r < 0 || map.dual->skc[r] == DUAL_SK_BAS)
      key = nonbasic(bk, false);
    else if (q >= 0 && map.dual->skx[q] == DUAL_SK_BAS)
      key = DUAL_SK_UPR;
    map.out->skx[j] = key;
  }
  for (int32_t i = 0; i < in.numcon; ++i) {
    const int32_t bk = dualize_rowkey(in, i), k = record.ycol[i], k2 = record.ycol2[i];
    int32_t key = DUAL_SK_BAS;
    if (k >= 0 && map.dual->skx[k] == DUAL_SK_BAS) {
      key = nonbasic(bk, false);
    } else if (k2 >= 0 && map.dual->skx[k2] == DUAL_SK_BAS) {
      key = DUAL_SK_UPR;
    } else if (const int32_t j = active_source(map, i); j >= 0) {
      key = nonbasic(bk, false);
      map.out->skx[j] = DUAL_SK_BAS;
    }
    map.out->skc[i] = key;
  }
}

// Keys of the full form. Of the columns in row n + i (its logical, s_i, t_i, y_i) one or two are basic, of those in row
// j besides y (its logical, p_j, q_j) none or one.
void map_keys_full(const Map& map) {
  const DualizeInput& in = *map.in;
  const int32_t m = in.numcon, n = in.numvar;
  const int32_t *skc = map.dual->skc, *skx = map.dual->skx;
  for (int32_t i = 0; i < m; ++i) {
    const bool low = skx[m + i] == DUAL_SK_BAS, upp = skx[2 * m + i] == DUAL_SK_BAS;
    const bool bound = low || upp || skc[n + i] == DUAL_SK_BAS;
    map.out->skc[i] = skx[i] == DUAL_SK_BAS && bound ? nonbasic(dualize_rowkey(in, i), upp) : int32_t{DUAL_SK_BAS};
  }
  for (int32_t j = 0; j < n; ++j) {
    const bool low = skx[3 * m + j] == DUAL_SK_BAS, upp = skx[3 * m + n + j] == DUAL_SK_BAS;
    const bool bound = low || upp || skc[j] == DUAL_SK_BAS;
    map.out->skx[j] = bound ? nonbasic(dualize_colkey(in, j), upp) : int32_t{DUAL_SK_BAS};
  }
}

// xx from the multipliers of the dual rows, then folded columns from the rows that they carry.
void map_values(const Map& map) {
  const dualizer& record = *map.record;
  const DualizeInput& in = *map.in;
  const bool points = map.basic && map.bounds != 0.0;
  for (int32_t j = 0; j < in.numvar; ++j) {
    const int32_t r = record.xrow[j];
    double x = map.bounds * dualize_base(dualize_colkey(in, j), in.blx[j], in.bux[j]);
    if (r >= 0) {
      const int32_t key = map.out->skx[j];
      if (points && (key == DUAL_SK_LOW || key == DUAL_SK_FIX))
        x = in.blx[j];
      else if (points && key == DUAL_SK_UPR)
        x = in.bux[j];
      else
        x = 0.0 - map.dual->y[r];
    }
    map.out->xx[j] = x;
  }
  activities(in, map.out->xx, map.out->xc);
  for (int32_t i = 0; i < in.numcon && map.record->method == DUALIZE_COMPACT; ++i) {
    const int32_t j = map.ray ? ray_source(map, i) : active_source(map, i);
    if (j < 0) continue;
    const double base = map.bounds * dualize_base(dualize_rowkey(in, i), in.blc[i], in.buc[i]);
    map.out->xx[j] += (base - map.out->xc[i]) / folded_element(in, j);
    map.out->xc[i] = base;
  }
}

void split(double value, double* sl, double* su) {
  *sl = std::max(value, 0.0);
  *su = std::max(-value, 0.0);
}

// y from the columns of the dual, the bound multipliers from the data of the primal: slc - suc = cc + y,
// slx - sux = cx - A'y.
void map_multipliers(const Map& map) {
  const dualizer& record = *map.record;
  const DualizeInput& in = *map.in;
  for (int32_t i = 0; i < in.numcon; ++i) {
    const int32_t k = record.ycol[i], k2 = record.ycol2[i];
    const double cc = map.costs * in.cc[i];
    double u = k >= 0 ? map.dual->xx[k] : 0.0;
    if (k2 >= 0) u += map.dual->xx[k2];
    if (record.method == DUALIZE_FULL) u += cc;
    map.out->y[i] = map.ray ? 0.0 : u - cc;
    split(map.ray ? 0.0 : u, &map.out->slc[i], &map.out->suc[i]);
  }
  for (int32_t j = 0; j < in.numvar; ++j)
    split(map.ray ? 0.0 : map.costs * in.cx[j] - column_dot(in, j, map.out->y), &map.out->slx[j], &map.out->sux[j]);
}

// How far one variable is from optimal, in units of the tolerances.
double distance(int32_t bk, double bl, double bu, int32_t sk, double x, double sl, double su, double tolx,
                double tols) {
  double primal = 0.0, dual = 0.0;
  const auto worst = [](double* measure, double value) {
    if (value > *measure || std::isnan(value)) *measure = value;
  };
  if (lower(bk)) worst(&primal, bl - x);
  if (upper(bk)) worst(&primal, x - bu);
  if (sk != DUAL_SK_BAS && bk != DUAL_BK_FR) {
    const double gap = std::min(lower(bk) ? std::fabs(x - bl) : HUGE_VAL, upper(bk) ? std::fabs(x - bu) : HUGE_VAL);
    worst(&primal, gap);
  }
  if (sk == DUAL_SK_BAS || !lower(bk) || (sk == DUAL_SK_UPR && bk != DUAL_BK_FX)) worst(&dual, sl);
  if (sk == DUAL_SK_BAS || !upper(bk) || (sk == DUAL_SK_LOW && bk != DUAL_BK_FX)) worst(&dual, su);
  return std::max(primal / tolx, dual / tols);
}

void judge(const Map& map, double tolx, double tols, DualizeResult* result) {
  const DualizeInput& in = *map.in;
  const DualizeSolution& out = *map.out;
  double excess = 0.0;
  int64_t numbasic = 0;
  result->pobj = result->dobj = map.costs != 0.0 && map.bounds != 0.0 ? in.cfix : 0.0;
  const auto add = [&](double cost, int32_t bk, double bl, double bu, int32_t sk, double x, double sl, double su) {
    result->pobj += map.costs * cost * x;
    if (lower(bk)) result->dobj += bl * sl;
    if (upper(bk)) result->dobj -= bu * su;
    const double d = distance(bk, bl, bu, sk, x, sl, su, tolx, tols);
    if (d > excess || std::isnan(d)) excess = std::isnan(d) ? HUGE_VAL : d;
    numbasic += sk == DUAL_SK_BAS;
  };
  for (int32_t i = 0; i < in.numcon; ++i)
    add(in.cc[i], dualize_rowkey(in, i), in.blc[i], in.buc[i], out.skc[i], out.xc[i], out.slc[i], out.suc[i]);
  for (int32_t j = 0; j < in.numvar; ++j)
    add(in.cx[j], dualize_colkey(in, j), in.blx[j], in.bux[j], out.skx[j], out.xx[j], out.slx[j], out.sux[j]);
  const bool optimal = result->solsta == solsta_optimal || result->solsta == solsta_near_optimal;
  result->clean = optimal && (excess > 1.0 || numbasic != in.numcon) ? clean_after_mapping : 0;
}

}  // namespace

int32_t dualize_prosta(int32_t prosta) {
  constexpr int32_t map[] = {0, 1, 3, 2, 5, 4, 6, 7, 8, 10, 9, 0};
  return prosta >= 0 && prosta < 12 ? map[prosta] : 0;
}
int32_t dualize_solsta(int32_t solsta) {
  constexpr int32_t map[] = {0, 1, 3, 2, 4, 6, 5, 0, 8, 10, 9, 11, 13, 12};
  return solsta >= 0 && solsta < 14 ? map[solsta] : 0;
}

bool dualize_getprimal(const dualizer* record, int32_t prosta, int32_t solsta, const DualizeSolution& dual, double tolx,
                       double tols, const DualizeSolution& primal, DualizeResult* result) {
  if (!record->formed) sysenv_fatal(record->env, "dualize_getprimal : dual is not formed");
  *result = {};
  if (!known_keys(record->dual.numcon, dual.skc) || !known_keys(record->dual.numvar, dual.skx)) return false;
  result->prosta = dualize_prosta(prosta);
  result->solsta = dualize_solsta(solsta);
  Map map{};
  map.record = record;
  map.in = &record->primal;
  map.dual = &dual;
  map.out = &primal;
  map.ray = result->solsta == solsta_ray || result->solsta == solsta_near_ray;
  map.farkas = result->solsta == solsta_farkas || result->solsta == solsta_near_farkas;
  map.basic = !map.ray && !map.farkas;
  map.bounds = map.ray || map.farkas ? 0.0 : 1.0;
  map.costs = map.farkas ? 0.0 : 1.0;
  if (record->method == DUALIZE_FULL)
    map_keys_full(map);
  else
    map_keys(map);
  map_values(map);
  map_multipliers(map);
  judge(map, tolx, tols, result);
  return true;
}

// ---- From the primal to the dual ---------------------------------------------------------------------------------

namespace {

// The keys of a start. False when a basic column or a nonbasic row has no counterpart.
bool start_keys(const dualizer& record, const DualizeSolution& primal, const DualizeSolution& dual) {
  const DualizeInput& in = record.primal;
  int32_t numbasic = 0, folded = 0, used = 0;
  for (int32_t j = 0; j < in.numvar; ++j) {
    const int32_t bk = dualize_colkey(in, j), r = record.xrow[j], q = record.qcol[j];
    const bool basic = primal.skx[j] == DUAL_SK_BAS;
    numbasic += basic;
    if (r < 0) {
      if (basic && r == dualize_fixed) return false;
      folded += basic;
      continue;
    }
    const bool atupper = !basic && q >= 0 && primal.skx[j] == DUAL_SK_UPR;
    const int32_t rest = bk == DUAL_BK_FR ? DUAL_SK_FIX : bk == DUAL_BK_UP ? DUAL_SK_LOW : DUAL_SK_UPR;
    dual.skc[r] = basic || atupper ? rest : int32_t{DUAL_SK_BAS};
    if (q >= 0) dual.skx[q] = atupper ? DUAL_SK_BAS : DUAL_SK_LOW;
  }
  for (int32_t i = 0; i < in.numcon; ++i) {
    const int32_t k = record.ycol[i], k2 = record.ycol2[i], l = record.lsrc[i], u = record.usrc[i];
    const bool basic = primal.skc[i] == DUAL_SK_BAS;
    numbasic += basic;
    if (k < 0) {
      if (!basic) return false;
      continue;
    }
    if (k2 >= 0) {
      const bool atupper = primal.skc[i] == DUAL_SK_UPR;
      dual.skx[k] = basic || atupper ? DUAL_SK_LOW : DUAL_SK_BAS;
      dual.skx[k2] = !basic && atupper ? DUAL_SK_BAS : DUAL_SK_UPR;
      continue;
    }
    const bool haslower = std::isfinite(record.dual.blx[k]), hasupper = std::isfinite(record.dual.bux[k]);
    if (basic) {  // u_i rests at the bound that the key of the row gave it, unless a folded column took its place
      if (haslower && l < 0)
        dual.skx[k] = DUAL_SK_LOW;
      else if (hasupper && u < 0)
        dual.skx[k] = DUAL_SK_UPR;
      else if (!haslower && !hasupper)
        dual.skx[k] = DUAL_SK_SUPBAS;
      else
        return false;
    } else if (l >= 0 && primal.skx[l] == DUAL_SK_BAS) {
      dual.skx[k] = l == u ? DUAL_SK_FIX : DUAL_SK_LOW;
      ++used;
    } else if (u >= 0 && primal.skx[u] == DUAL_SK_BAS) {
      dual.skx[k] = DUAL_SK_UPR;
      ++used;
    } else {
      dual.skx[k] = DUAL_SK_BAS;
    }
  }
  return numbasic == in.numcon && used == folded;
}

}  // namespace

bool dualize_getdual(const dualizer* record, const DualizeSolution& primal, int32_t* clean,
                     const DualizeSolution& dual) {
  if (!record->formed) sysenv_fatal(record->env, "dualize_getdual : dual is not formed");
  constexpr int32_t exchanged[] = {0, 1, 3, 2, 5, 4, 6};
  if (record->method == DUALIZE_FULL || *clean < 1 || *clean > 6) return false;
  const DualizeInput& in = record->primal;
  if (!known_keys(in.numcon, primal.skc) || !known_keys(in.numvar, primal.skx)) return false;
  if (!start_keys(*record, primal, dual)) return false;
  for (int32_t i = 0; i < in.numcon; ++i) {
    const int32_t k = record->ycol[i], k2 = record->ycol2[i];
    if (k < 0) continue;
    const double u = in.cc[i] + primal.y[i];
    const bool second = primal.skc[i] == DUAL_SK_UPR && k2 >= 0;
    dual.xx[k] = second ? 0.0 : u;
    if (k2 >= 0) dual.xx[k2] = second ? u : 0.0;
  }
  for (int32_t j = 0; j < in.numvar; ++j) {
    const int32_t r = record->xrow[j], q = record->qcol[j];
    if (r >= 0) dual.y[r] = -primal.xx[j];
    if (q >= 0) dual.xx[q] = primal.skx[j] == DUAL_SK_UPR ? std::max(0.0, column_dot(in, j, primal.y) - in.cx[j]) : 0.0;
  }
  activities(record->dual, dual.xx, dual.xc);
  *clean = exchanged[*clean];
  return true;
}

}  // namespace tarvo
