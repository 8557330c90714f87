// Dense columns of the normal equations: which they are, and their Schur complement. See KktDense.
#include <algorithm>
#include <cmath>

#include "kfac/kernels.h"
#include "kfac/kktfac_internal.h"

namespace tarvo {

namespace {

constexpr int32_t few_dense = 32;  // columns, or a share of the rows if that is more
constexpr double most_share = 1.0 / 16.0;
constexpr double most_store = 5e7;      // doubles of X
constexpr int32_t most_uncovered = 16;  // rows that only dense columns have
constexpr int32_t most_shifts = 64;
constexpr double cheap = 3e6;          // multiplications: not worth a second order
constexpr double large_product = 5e7;  // multiplications of A A' that aren't done in vain
constexpr double solves = 100.0;  // per factorisation, weighed by how slow their multiplications are beside its own
// Columns are candidates when they are so many times longer than the mean; the fewest first.
constexpr double tiers[] = {100.0, 30.0, 10.0, 3.0};
// A pivot below this share of its diagonal is shifted. At 1e-8 what it loses and what S loses balance; when shifts
// become too many, fewer are made.
constexpr double shiftbelow[] = {1e-8, 1e-10, 1e-12, 1e-13};
constexpr int32_t last_level = 3;
// Pivots of S below this are rounding: those of the dense columns are 1 at least, one of a shift is then best not
// undone.
constexpr double schur_noise = 1e-11;

int32_t length_of(const spmat* a, int32_t j) { return a->ptre[j] - a->ptrb[j]; }

// Rows that would be left to dense columns alone make M singular without them: beyond a few, their shortest column is
// taken back.
void cover_rows(KktFac* f, const spmat* at) {
  uint8_t* isdense = f->dense.isdense.data();
  int32_t uncovered = 0;
  for (int32_t i = 0; i < f->m; ++i) {
    int32_t shortest = -1;
    bool covered = at->ptrb[i] == at->ptre[i];
    for (int32_t t = at->ptrb[i]; t < at->ptre[i] && !covered; ++t) {
      const int32_t j = at->sub[t];
      covered = isdense[j] == 0;
      if (shortest < 0 || length_of(f->a, j) < length_of(f->a, shortest)) shortest = j;
    }
    if (covered || ++uncovered <= most_uncovered) continue;
    isdense[shortest] = 0;
    --f->dense.count;
  }
}

// Marks the columns that are longer than `offcol` and `factor` times the mean.
void select_columns(KktFac* f, const spmat* at, double factor) {
  KktDense& dense = f->dense;
  const double mean = static_cast<double>(spmat_getnumnz(f->a)) / std::max(f->n, 1);
  const double limit = std::max(factor * mean, static_cast<double>(f->options.offcol));
  dense.count = 0;
  for (int32_t j = 0; j < f->n; ++j) {
    dense.isdense[j] = length_of(f->a, j) > limit ? 1 : 0;
    dense.count += dense.isdense[j];
  }
  if (dense.count > 0) cover_rows(f, at);
}

int32_t order_now(KktFac* f, const spmat* at) {
  if (!kktfac_adapattern(f, at)) return KKT_SPACE;
  switch (symface_order(f->sym, f->options.ordermethod, {}, f->options.hook)) {
    case ORDER_OK:
      return KKT_OK;
    case ORDER_CANCELLED:
      return KKT_CANCELLED;
    default:
      return KKT_SPACE;
  }
}

// Multiplications of an iteration with the pattern and the order at hand.
double cost_now(const KktFac* f) {
  const double k = f->dense.count, m = f->m;
  const auto nnz = static_cast<double>(f->sym->order.nnz);
  return f->sym->order.work + kktfac_adawork(f) + k * (2.0 * nnz + k * m + k * k / 3.0) +
         solves * (2.0 * nnz + 4.0 * k * m);
}

// The best choice so far.
struct Choice {
  double cost = INFINITY;
  int32_t count = 0;
  Array<uint8_t> isdense;
  Array<int32_t> perm;
  OrderCounts order;
  bool current = false;  // the pattern and order in place

  void keep(KktFac* f) {
    cost = cost_now(f);
    count = f->dense.count;
    std::copy_n(f->dense.isdense.data(), f->n, isdense.data());
    std::copy_n(f->sym->perm.data(), f->m, perm.data());
    order = f->sym->order;
    current = true;
  }
};

bool reinstate(KktFac* f, const spmat* at, const Choice& choice) {
  std::copy_n(choice.isdense.data(), f->n, f->dense.isdense.data());
  f->dense.count = choice.count;
  if (!kktfac_adapattern(f, at) || !symface_setorder(f->sym, choice.perm.data())) return false;
  f->sym->order = choice.order;
  return true;
}

// Whether the present candidates can win against `cost`.
bool promising(const KktFac* f, double cost) {
  const double k = f->dense.count, m = f->m;
  return k > 0 && (k <= few_dense || k <= most_share * m) && 2.0 * k < m && k * m < most_store &&
         k * k * m + solves * 4.0 * k * m + kktfac_adawork(f) < cost;
}

}  // namespace

int32_t kktfac_adaorder(KktFac* f, const spmat* at) {
  KktDense& dense = f->dense;
  if (!dense.isdense.alloc(f->env, static_cast<std::size_t>(f->n), Fill::zero)) return KKT_SPACE;
  const double whole = kktfac_adawork(f);
  double least = whole;
  if (f->options.offcol > 0) {
    for (const double factor : tiers) {
      select_columns(f, at, factor);
      if (promising(f, INFINITY)) least = std::min(least, kktfac_adawork(f));
    }
  }
  std::fill(dense.isdense.begin(), dense.isdense.end(), uint8_t{0});
  dense.count = 0;
  if (least == whole) return order_now(f, at);
  Choice choice;
  if (!choice.isdense.alloc(f->env, static_cast<std::size_t>(f->n)) ||
      !choice.perm.alloc(f->env, static_cast<std::size_t>(f->m)))
    return KKT_SPACE;
  const bool counted = f->options.ordermethod != ORDER_NONE;  // the natural order comes without counts
  if (whole <= large_product || whole <= 10.0 * least) {
    if (const int32_t result = order_now(f, at); result != KKT_OK) return result;
    choice.keep(f);
    if (!counted && whole <= 10.0 * least) return KKT_OK;
    if (counted && choice.order.work + whole < cheap) return KKT_OK;
    if (!counted) choice.cost = INFINITY;
  }
  int32_t tried = 0;
  for (const double factor : tiers) {
    select_columns(f, at, factor);
    if (dense.count == tried || !promising(f, choice.cost)) continue;
    tried = dense.count;
    if (const int32_t result = order_now(f, at); result != KKT_OK) return result;
    choice.current = false;
    // The factor of the sparse part alone is the less exact one: it has to pay.
    if (cost_now(f) < 0.5 * choice.cost) choice.keep(f);
  }
  return choice.current || reinstate(f, at, choice) ? KKT_OK : KKT_SPACE;
}

bool kktfac_denseplan(KktFac* f) {
  KktDense& dense = f->dense;
  if (dense.count == 0) return true;
  const auto m = static_cast<std::size_t>(f->m);
  dense.maxshift = std::min({2 * dense.count + 16, most_shifts, f->m});
  const int32_t most = dense.count + dense.maxshift;
  dense.ldx = dense_leading(most);
  const auto ld = static_cast<std::size_t>(dense.ldx);
  int32_t widest = dense_batch;
  for (int32_t k = 0; k < f->sym->nblk; ++k) widest = std::max(widest, f->sym->blocks[k].width);
  const auto wide = static_cast<std::size_t>(widest);
  if (!dense.list.alloc(f->env, static_cast<std::size_t>(dense.count)) ||
      !dense.shiftpos.alloc(f->env, static_cast<std::size_t>(dense.maxshift)) ||
      !dense.shiftval.alloc(f->env, static_cast<std::size_t>(dense.maxshift)) || !dense.full.alloc(f->env, m) ||
      !dense.before.alloc(f->env, m) || !dense.x.alloc(f->env, m * ld) || !dense.schur.alloc(f->env, ld * ld) ||
      !dense.diag.alloc(f->env, ld) || !dense.ref.alloc(f->env, ld) || !dense.flags.alloc(f->env, ld) ||
      !dense.buffer.alloc(f->env, ld * dense_batch) || !dense.mult.alloc(f->env, wide) ||
      !dense.kernel.alloc(f->env, static_cast<std::size_t>(dense_worksize()) + 8) || !dense.t.alloc(f->env, ld) ||
      !dense.cols.alloc(f->env, wide) || !dense.rows.alloc(f->env, wide))
    return false;
  int32_t put = 0;
  for (int32_t j = 0; j < f->n; ++j)
    if (dense.isdense[j] != 0) dense.list[put++] = j;
  return true;
}

void kktfac_densepreshift(KktFac* f) {
  KktDense& dense = f->dense;
  SymFace* sym = f->sym;
  std::fill(dense.full.begin(), dense.full.end(), 0.0);
  for (int32_t q = 0; q < dense.count; ++q) {
    const int32_t j = dense.list[q];
    for (int32_t t = f->a->ptrb[j]; t < f->a->ptre[j]; ++t)
      dense.full[sym->invperm[f->a->sub[t]]] += f->a->val[t] * f->a->val[t] * f->dinv[j];
  }
  const auto diagonal = [sym](int32_t p) -> double& {
    const SymBlock& b = sym->blocks[sym->blockof[p]];
    return sym->values[b.val + static_cast<int64_t>(p - b.first) * (b.ld + 1)];
  };
  dense.numshift = 0;
  for (int32_t p = 0; p < f->m; ++p) {
    double& d = diagonal(p);
    if (d < shiftbelow[dense.level] * dense.full[p]) {
      if (dense.numshift < dense.maxshift) {
        dense.shiftpos[dense.numshift] = p;
        dense.shiftval[dense.numshift] = dense.full[p];
      }
      ++dense.numshift;
      d += dense.full[p];
    }
    dense.before[p] = d;
  }
  sym->options.shiftbelow = shiftbelow[dense.level];
}

bool kktfac_denseshifts(KktFac* f) {
  KktDense& dense = f->dense;
  for (int32_t p = 0; p < f->m; ++p) {
    if ((f->sym->flags[p] & NODE_REPAIRED) == 0 || dense.before[p] <= 0.0) continue;
    if (dense.numshift < dense.maxshift) {
      dense.shiftpos[dense.numshift] = p;
      dense.shiftval[dense.numshift] = dense.before[p];
    }
    ++dense.numshift;
  }
  if (dense.numshift > dense.maxshift && dense.level < last_level) {
    ++dense.level;
    return false;
  }
  dense.numshift = std::min(dense.numshift, dense.maxshift);  // conjugate gradients have to do with the rest
  return true;
}

namespace {

double* aligned(double* p) { return p + (64 - reinterpret_cast<std::uintptr_t>(p) % 64) % 64 / sizeof(double); }

// X = L^-1 U, block by block, for the k columns in use.
void forward(KktFac* f, int32_t k) {
  KktDense& dense = f->dense;
  const SymFace* sym = f->sym;
  const int64_t ld = dense.ldx;
  double* kernel = aligned(dense.kernel.data());
  std::fill(dense.mult.begin(), dense.mult.end(), 1.0);
  for (int32_t s = 0; s < sym->nblk; ++s) {
    const SymBlock& b = sym->blocks[s];
    const double* l = sym->values + b.val;
    double* x = dense.x.data() + b.first * ld;
    bool zero = true;
    for (int32_t c = 0; c < b.width; ++c) {
      const double* from = x + c * ld;
      dense.rows[c] = from;
      if (zero && std::all_of(from, from + k, [](double v) { return v == 0.0; })) continue;
      zero = false;
      for (int32_t r = c + 1; r < b.width; ++r) {
        const double v = l[static_cast<int64_t>(c) * b.ld + r];
        double* to = x + r * ld;
        for (int32_t q = 0; q < k; ++q) to[q] -= v * from[q];
      }
    }
    if (zero) continue;
    for (int32_t done = 0; done < b.nrows; done += dense_batch) {
      const int32_t many = std::min(dense_batch, b.nrows - done);
      for (int32_t c = 0; c < b.width; ++c) dense.cols[c] = l + static_cast<int64_t>(c) * b.ld + b.width + done;
      if (s >= sym->firsttail) {
        chdblas3_or(k, many, b.width, dense.rows.data(), dense.cols.data(), dense.mult.data(),
                    x + (b.width + done) * ld, ld, kernel);
        continue;
      }
      std::fill_n(dense.buffer.data(), many * ld, 0.0);
      chdblas3_or(k, many, b.width, dense.rows.data(), dense.cols.data(), dense.mult.data(), dense.buffer.data(), ld,
                  kernel);
      const int32_t* rows = sym->rows.data() + b.row + done;
      for (int32_t i = 0; i < many; ++i) {
        double* to = dense.x.data() + rows[i] * ld;
        const double* from = dense.buffer.data() + i * ld;
        for (int32_t q = 0; q < k; ++q) to[q] += from[q];
      }
    }
  }
}

DenseColumns schur_of(KktDense* dense) {
  const int32_t k = dense->count + dense->numshift;
  return {k, k, dense->schur.data(), dense->ldx, dense->diag.data(), dense->ref.data(), dense->flags.data()};
}

}  // namespace

void kktfac_densefactor(KktFac* f) {
  KktDense& dense = f->dense;
  const SymFace* sym = f->sym;
  const int32_t k = dense.count + dense.numshift;
  dense.ldx = dense_leading(k);
  const int64_t ld = dense.ldx;
  std::fill_n(dense.x.data(), f->m * ld, 0.0);
  for (int32_t q = 0; q < dense.count; ++q) {
    const int32_t j = dense.list[q];
    const double scale = std::sqrt(f->dinv[j]);
    for (int32_t t = f->a->ptrb[j]; t < f->a->ptre[j]; ++t)
      dense.x[sym->invperm[f->a->sub[t]] * ld + q] = f->a->val[t] * scale;
  }
  for (int32_t s = 0; s < dense.numshift; ++s)
    dense.x[dense.shiftpos[s] * ld + dense.count + s] = std::sqrt(dense.shiftval[s]);
  forward(f, k);
  double* schur = dense.schur.data();
  std::fill_n(dense.schur.data(), ld * ld, 0.0);
  for (int32_t q = 0; q < k; ++q) {
    const bool shift = q >= dense.count;
    schur[q * (ld + 1)] = dense.ref[q] = shift ? -1.0 : 1.0;
    dense.flags[q] = shift ? NODE_NEGATIVE : NODE_POSITIVE;
  }
  double* kernel = aligned(dense.kernel.data());
  for (int32_t p = 0; p < f->m; p += dense_batch) {
    const int32_t many = std::min(dense_batch, f->m - p);
    for (int32_t c = 0; c < many; ++c) {
      dense.rows[c] = dense.x.data() + (p + c) * ld;
      dense.mult[c] = -1.0 / sym->diag[p + c];
    }
    chdblas3_oa(k, k, many, dense.rows.data(), dense.mult.data(), schur, ld, kernel);
  }
  PivotRule rule;
  rule.shiftbelow = schur_noise;
  densefac(schur_of(&dense), rule, false, kernel);
}

namespace {

constexpr int32_t lanes = 8;  // rows of X are padded with zeros to a multiple of these

// t += y0 x0 + y1 x1 for rows of X
void add_rows(int32_t k, double y0, const double* __restrict__ x0, double y1, const double* __restrict__ x1,
              double* __restrict__ t) {
  for (int32_t q = 0; q < k; q += lanes)
    for (int32_t i = 0; i < lanes; ++i) t[q + i] += y0 * x0[q + i] + y1 * x1[q + i];
}

double row_dot(int32_t k, const double* __restrict__ x, const double* __restrict__ t) {
  double sum[lanes] = {};
  for (int32_t q = 0; q < k; q += lanes)
    for (int32_t i = 0; i < lanes; ++i) sum[i] += x[q + i] * t[q + i];
  return ((sum[0] + sum[4]) + (sum[1] + sum[5])) + ((sum[2] + sum[6]) + (sum[3] + sum[7]));
}

}  // namespace

void kktfac_densecorrect(KktFac* f, double* y) {
  KktDense& dense = f->dense;
  const double* diag = f->sym->diag.data();
  const int64_t ld = dense.ldx;
  const int32_t k = dense.count + dense.numshift, padded = (k + lanes - 1) / lanes * lanes;
  double* t = dense.t.data();
  const double* x = dense.x.data();
  std::fill_n(t, padded, 0.0);
  int32_t p = 0;
  for (; p + 1 < f->m; p += 2) add_rows(padded, y[p], x + p * ld, y[p + 1], x + (p + 1) * ld, t);
  if (p < f->m) add_rows(padded, y[p], x + p * ld, 0.0, x + p * ld, t);
  const DenseColumns schur = schur_of(&dense);
  dense_Lx(schur, 1, t, 0, nullptr, 0);
  for (int32_t q = 0; q < k; ++q) t[q] /= dense.diag[q];
  dense_Ltx(schur, 1, t, 0, nullptr, 0);
  for (p = 0; p < f->m; ++p) y[p] -= row_dot(padded, x + p * ld, t) / diag[p];
}

}  // namespace tarvo
