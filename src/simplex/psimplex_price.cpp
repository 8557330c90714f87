// Pricing: the choice of the entering variable, and its weights.
//
// The merit of an attractive variable is d*d/w. A short list holds the best of them with their merits, and `cutoff`
// bounds the merit of everybody else: merits change only where the pivot row is not zero, and who then rises above the
// cutoff joins the list. So the best of the list is the best of all as long as it reaches the cutoff; below it, a full
// pass makes a new list.
#include <algorithm>
#include <bit>

#include "simplex/psimplex_internal.h"

namespace tarvo {

namespace {

constexpr int32_t min_listsize = 32, max_listsize = 4096;

double merit_of(const PrimalSimplex* s, int32_t j) {
  const double v = ps_dualinf(s, j);
  return v > s->tols ? v * v / s->w[j] : 0.0;
}

void clear_list(PrimalSimplex* s) {
  for (int32_t k = 0; k < s->numcand; ++k) s->candpos[s->cand[k]] = 0;
  s->numcand = 0;
}

void append(PrimalSimplex* s, int32_t j, double merit) {
  s->cand[s->numcand] = j;
  s->candmerit[s->numcand] = merit;
  s->candpos[j] = ++s->numcand;
}

// The last of the list takes position k.
void drop(PrimalSimplex* s, int32_t k) {
  s->candpos[s->cand[k]] = 0;
  if (k == --s->numcand) return;
  s->cand[k] = s->cand[s->numcand];
  s->candmerit[k] = s->candmerit[s->numcand];
  s->candpos[s->cand[k]] = k + 1;
}

// Full pass: the candidates with the largest merits, at least s->listsize of them if there are so many, told apart by
// the exponent of the merit. cutoff := the largest merit of those left out. The size of the list balances its scan in
// every iteration with the full passes.
void full_pass(PrimalSimplex* s) {
  clear_list(s);
  const int64_t scanned = (s->iter - s->passiter) * s->listsize;
  s->passiter = s->iter;
  if (2 * scanned < s->nn) {
    s->listsize = std::min(2 * s->listsize, max_listsize);
  } else if (scanned > 2 * int64_t{s->nn}) {
    s->listsize = std::max(s->listsize / 2, min_listsize);
  }
  int32_t count[2048] = {};
  auto exponent = [](double v) { return static_cast<int32_t>(std::bit_cast<uint64_t>(v) >> 52); };
  int32_t top = 0;
  for (int32_t j = 0; j < s->nn; ++j) {
    const double v = merit_of(s, j);
    s->merit[j] = v;
    if (v > 0.0) {
      const int32_t e = exponent(v);
      ++count[e];
      top = std::max(top, e);
    }
  }
  int32_t level = top, total = count[top];
  while (level > 0 && total < s->listsize) total += count[--level];
  s->cutoff = 0.0;
  for (int32_t j = 0; j < s->nn; ++j) {
    const double v = s->merit[j];
    if (!(v > 0.0)) continue;
    if (exponent(v) >= level && s->numcand < 4 * s->listsize) {
      append(s, j, v);
    } else {
      s->cutoff = std::max(s->cutoff, v);
    }
  }
  s->candvalid = true;
}

// Partial pricing keeps no reduced costs: d of one variable from y.
double price_one(PrimalSimplex* s, int32_t j) {
  double sum = s->phase == 2 ? s->cost[j] : 0.0;
  if (j < s->m) {
    sum += s->y[j];
  } else {
    const SimplexColumns& a = s->prob->a;
    const int32_t c = j - s->m;
    for (int32_t k = a.ptrb[c]; k < a.ptre[c]; ++k) sum -= a.val[k] * s->y[a.sub[k]];
  }
  s->d[j] = sum;
  return ps_dualinf(s, j);
}

struct PartialRule {
  int32_t cap, stop1, stop2;
};
PartialRule partial_rule(int32_t nn) {
  if (nn < 10000) return {15, nn / 100, nn / 3};
  if (nn < 30000) return {20, nn / 250, nn / 5};
  if (nn < 50000) return {25, nn / 450, nn / 7};
  return {35, nn / 700, nn / 9};
}

// A few candidates are carried from iteration to iteration and priced anew; the scan goes on where it stopped until the
// list is filled up. A much sparser column wins over a slightly better one.
int32_t select_partial(PrimalSimplex* s) {
  if (!s->candvalid) {
    clear_list(s);
    s->candvalid = true;
  }
  const PartialRule rule = partial_rule(s->nn);
  int32_t kept = 0;
  for (int32_t k = 0; k < s->numcand; ++k) {
    const int32_t j = s->cand[k];
    s->candpos[j] = ps_active(s->stat[j]) && price_one(s, j) > s->tols ? kept + 1 : 0;
    if (s->candpos[j] != 0) s->cand[kept++] = j;
  }
  s->numcand = kept;
  for (int32_t scanned = 1; scanned <= s->nn; ++scanned) {
    const int32_t j = s->cursor;
    s->cursor = j + 1 < s->nn ? j + 1 : 0;
    if (s->candpos[j] == 0 && ps_active(s->stat[j]) && price_one(s, j) > s->tols && s->numcand < 4 * rule.cap)
      append(s, j, 0.0);
    if (scanned > rule.stop1 && s->numcand >= rule.cap) break;
    if (scanned > rule.stop2 && s->numcand >= rule.cap / 2) break;
  }
  const SimplexColumns& a = s->prob->a;
  auto length = [s, &a](int32_t j) { return j < s->m ? 1 : std::max(1, a.ptre[j - s->m] - a.ptrb[j - s->m]); };
  int32_t best = -1;
  double score = 0.0;
  for (int32_t k = 0; k < s->numcand; ++k) {
    const int32_t j = s->cand[k];
    const double v = ps_dualinf(s, j) / s->w[j];
    if (best < 0 ||
        v / score + std::min(0.5 * length(best) / length(j), 0.3) + s->tols * simplex_rand(&s->info->seed) > 1.5) {
      best = j;
      score = v;
    }
  }
  if (simplex_rand(&s->info->seed) > 0.995) s->candvalid = false;
  return best;
}

}  // namespace

void psimplex_resetweights(PrimalSimplex* s) {
  s->badweights = 0;
  s->candvalid = false;
  std::fill(s->w, s->w + s->nn, 1.0);
  if (s->exactweights) {
    for (int32_t j = 0; j < s->nn; ++j) s->refset[j] = 1;
    psimplex_exactweights(s);
  } else {
    for (int32_t j = 0; j < s->nn; ++j) s->refset[j] = s->stat[j] != PS_BASIC;
  }
}

void psimplex_exactweights(PrimalSimplex* s) {
  bool slack = true;
  for (int32_t i = 0; i < s->m && slack; ++i) slack = s->head[i] < s->m;
  const SimplexColumns& a = s->prob->a;
  for (int32_t j = 0; j < s->nn; ++j) {
    if (s->stat[j] == PS_BASIC) {
      s->w[j] = 1.0;
    } else if (!slack) {
      psimplex_ftran(s, j);
      s->w[j] = 1.0;
      for (int32_t t = 0; t < s->alpha.n; ++t) s->w[j] += s->alpha.val[s->alpha.sub[t]] * s->alpha.val[s->alpha.sub[t]];
      psimplex_clear(&s->alpha);
      psimplex_clear(&s->spike);
    } else {
      s->w[j] = j < s->m ? 2.0 : 1.0;
      if (j >= s->m)
        for (int32_t k = a.ptrb[j - s->m]; k < a.ptre[j - s->m]; ++k) s->w[j] += a.val[k] * a.val[k];
    }
  }
}

int32_t psimplex_select(PrimalSimplex* s) {
  if (s->method == PS_PARTIAL) return select_partial(s);
  for (int pass = 0;; ++pass) {
    if (!s->candvalid || s->numcand > 8 * s->listsize) {
      full_pass(s);
      pass = 1;
    }
    int32_t best = -1;
    double most = 0.0;
    for (int32_t k = 0; k < s->numcand;) {
      const double v = s->candmerit[k];
      if (v <= 0.0) {
        drop(s, k);
        continue;
      }
      if (v > most) {
        most = v;
        best = s->cand[k];
      }
      ++k;
    }
    if (most >= s->cutoff || pass == 1) return best;
    s->candvalid = false;
  }
}

void psimplex_offer(PrimalSimplex* s, int32_t j) {
  if (!s->candvalid || s->method == PS_PARTIAL) return;
  const double v = merit_of(s, j);
  if (s->candpos[j] != 0) {
    s->candmerit[s->candpos[j] - 1] = v;
  } else if (v > s->cutoff) {
    append(s, j, v);
  }
}

// After the pivot row is known and before the basis changes. With R the reference framework, [.] 1 or 0, and
// a = alpha_rj / alpha_q, the weights become those of the new basis:
//
//   steepest edge   w_j = [j in R] + sum over basic i in R of (B^-1 a_j)_i^2:
//                   w_j := max(w_j - 2 a (a_j'v) + a^2 w_q, [j in R] + a^2 [q in R]), v = B^-T (alpha over R)
//   approximate     never falling and without the inner product: w_j := max(w_j, a^2 w_q + [j in R])
//   devex           w_j := max(w_j, a^2 w_q)
//
// w_q is exact, from alpha. With R all variables the first is the whole norm 1 + ||B^-1 a_j||^2.
void psimplex_updateweights(PrimalSimplex* s) {
  if (s->method == PS_FULL || s->method == PS_PARTIAL) return;
  const int32_t q = s->enter, p = s->head[s->leave];
  const double inv = 1.0 / s->alphaq;
  const bool steepest = s->method == PS_SE;
  double wq = s->refset[q];
  s->rhs.n = 0;
  for (int32_t t = 0; t < s->alpha.n; ++t) {
    const int32_t i = s->alpha.sub[t];
    if (s->refset[s->head[i]] == 0) continue;
    const double v = s->alpha.val[i];
    wq += v * v;
    if (steepest) {
      s->rhs.val[i] = v;
      s->rhs.sub[s->rhs.n++] = i;
    }
  }
  if (s->w[q] > 3.0 * std::max(wq, 1.0)) ++s->badweights;
  const SimplexColumns& a = s->prob->a;
  if (steepest) {
    psimplex_btran(s, &s->aux);
    const double refq = s->refset[q];
    for (int32_t t = 0; t < s->row.n; ++t) {
      const int32_t j = s->row.sub[t];
      const double ratio = s->row.val[j] * inv;
      if (std::fabs(ratio) < 1e-9) continue;
      double dot = 0.0;
      if (j < s->m) {
        dot = -s->aux.val[j];
      } else {
        for (int32_t k = a.ptrb[j - s->m]; k < a.ptre[j - s->m]; ++k) dot += a.val[k] * s->aux.val[a.sub[k]];
      }
      const double w = s->w[j] + ratio * (ratio * wq - 2.0 * dot);
      s->w[j] = std::min(std::max(w, s->refset[j] + ratio * ratio * refq), 1e20);
      if (s->w[j] < 1e-4) s->w[j] = 1e-4;
    }
    psimplex_clear(&s->aux);
  } else {
    wq = std::max(wq, 1.0);
    for (int32_t t = 0; t < s->row.n; ++t) {
      const int32_t j = s->row.sub[t];
      const double ratio = s->row.val[j] * inv;
      if (std::fabs(ratio) < 1e-9) continue;
      double w = ratio * ratio * wq;
      if (s->method == PS_ASE) w += s->refset[j];
      s->w[j] = std::min(std::max(s->w[j], w), 1e20);
    }
  }
  s->w[p] = std::min(std::max(wq * inv * inv, s->refset[p] + inv * inv * s->refset[q]), 1e20);
  if (s->w[p] < 1e-4) s->w[p] = 1e-4;
  s->w[q] = 1.0;
}

}  // namespace tarvo
