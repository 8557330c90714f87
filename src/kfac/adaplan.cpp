// Patterns and values of the matrices that the KKT factor hands to the sparse factorisation.
//
// Normal equations: the columns of M = A diag(1/d) A' are added up block by block straight into the factor's store. The
// rows of A stand by position, and every entry knows its place in its column, whose rest are just the rows behind: no
// index pair is stored and nothing is searched. Blocks are independent and shared out among the threads.
#include <algorithm>

#include "kfac/kktfac_internal.h"
#include "kfac/kopenmp.h"
#include "kfac/parshare.h"

namespace tarvo {

bool kktfac_adapattern(KktFac* f, const spmat* at) {
  const spmat* a = f->a;
  const uint8_t* isdense = f->dense.isdense.data();
  const auto m = static_cast<std::size_t>(f->m);
  Array<int32_t> counts, mark;
  if (!counts.alloc(f->env, m, Fill::zero) || !mark.alloc(f->env, m)) return false;
  const auto walk = [&](auto&& use) {
    std::fill(mark.begin(), mark.end(), -1);
    for (int32_t i = 0; i < f->m; ++i) {
      for (int32_t t = at->ptrb[i]; t < at->ptre[i]; ++t) {
        const int32_t j = at->sub[t];
        if (isdense[j] != 0) continue;
        for (int32_t s = a->ptrb[j]; s < a->ptre[j]; ++s) {
          const int32_t k = a->sub[s];
          if (k <= i || mark[k] == i) continue;
          mark[k] = i;
          use(i, k);
        }
      }
    }
  };
  walk([&counts](int32_t i, int32_t) { ++counts[i]; });
  if (!symface_setcounts(f->sym, counts.data())) return false;
  walk([f](int32_t i, int32_t k) { symface_inij(f->sym, i, k); });
  return true;
}

bool kktfac_sqdpattern(KktFac* f) {
  const spmat* a = f->a;
  Array<int32_t> counts;
  if (!counts.alloc(f->env, static_cast<std::size_t>(f->dim), Fill::zero)) return false;
  for (int32_t j = 0; j < f->n; ++j) counts[j] = a->ptre[j] - a->ptrb[j];
  for (int32_t k = 0; k < f->nq; ++k)
    if (f->qi[k] != f->qj[k]) ++counts[std::min(f->qi[k], f->qj[k])];
  if (!symface_setcounts(f->sym, counts.data())) return false;
  for (int32_t j = 0; j < f->n; ++j)
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) symface_inij(f->sym, j, f->n + a->sub[t]);
  for (int32_t k = 0; k < f->nq; ++k) symface_inij(f->sym, f->qi[k], f->qj[k]);
  return true;
}

double kktfac_adawork(const KktFac* f) {
  double work = 0.0;
  for (int32_t j = 0; j < f->n; ++j) {
    const auto length = static_cast<double>(f->a->ptre[j] - f->a->ptrb[j]);
    if (f->dense.isdense[j] == 0) work += length * (length + 1.0);
  }
  return work;
}

namespace {

// Cuts the blocks into consecutive shares of about equal work, one a thread.
bool share_out(KktFac* f) {
  const SymFace* sym = f->sym;
  const int32_t threads = f->stats.adaflops < 1e6 ? 1 : std::min(mpc_getnthreads(), std::max(sym->nblk, 1));
  f->planthreads = threads;
  if (!f->share.alloc(f->env, static_cast<std::size_t>(threads) + 1) ||
      !f->relative.alloc(f->env, static_cast<std::size_t>(threads) * static_cast<std::size_t>(f->m)))
    return false;
  const auto work_of = [f, sym](int32_t k) {
    const SymBlock& b = sym->blocks[k];
    double work = b.width + b.nrows;
    for (int64_t t = f->rowptr[b.first]; t < f->rowptr[b.first + b.width]; ++t)
      work += 2.0 + f->colend[f->rowcol[t]] - f->rowfrom[t];
    return work;
  };
  double total = 0.0, sum = 0.0;
  for (int32_t k = 0; k < sym->nblk; ++k) total += work_of(k);
  int32_t thread = 1;
  f->share[0] = 0;
  for (int32_t k = 0; k < sym->nblk; ++k) {
    sum += work_of(k);
    while (thread < threads && sum * threads >= total * thread) f->share[thread++] = k + 1;
  }
  while (thread <= threads) f->share[thread++] = sym->nblk;
  return true;
}

int64_t place_of(const SymFace* sym, int32_t u, int32_t v) {
  const int32_t p = std::min(sym->invperm[u], sym->invperm[v]), q = std::max(sym->invperm[u], sym->invperm[v]);
  const SymBlock& b = sym->blocks[sym->blockof[p]];
  int32_t local = q - b.first;
  if (local >= b.width && sym->blockof[p] < sym->firsttail) {
    const int32_t* rows = sym->rows.data() + b.row;
    local = b.width + static_cast<int32_t>(std::lower_bound(rows, rows + b.nrows, q) - rows);
  }
  return b.val + static_cast<int64_t>(p - b.first) * b.ld + local;
}

}  // namespace

bool kktfac_adaplan(KktFac* f, const spmat* at) {
  const spmat* a = f->a;
  const uint8_t* isdense = f->dense.isdense.data();
  const auto m = static_cast<std::size_t>(f->m), n = static_cast<std::size_t>(f->n);
  int64_t count = 0;
  for (int32_t j = 0; j < f->n; ++j)
    if (isdense[j] == 0) count += a->ptre[j] - a->ptrb[j];
  const auto nnz = static_cast<std::size_t>(count);
  if (!f->colend.alloc(f->env, n) || !f->rowptr.alloc(f->env, m + 1, Fill::zero) || !f->colpos.alloc(f->env, nnz) ||
      !f->rowcol.alloc(f->env, nnz) || !f->rowfrom.alloc(f->env, nnz) || !f->colval.alloc(f->env, nnz))
    return false;
  int32_t begin = 0;
  for (int32_t j = 0; j < f->n; ++j) {
    f->colend[j] = begin;
    if (isdense[j] == 0) begin += a->ptre[j] - a->ptrb[j];
  }
  int64_t put = 0;
  for (int32_t p = 0; p < f->m; ++p) {
    const int32_t i = f->sym->perm[p];
    f->rowptr[p] = put;
    for (int32_t t = at->ptrb[i]; t < at->ptre[i]; ++t) {
      const int32_t j = at->sub[t];
      if (isdense[j] != 0) continue;
      const int32_t place = f->colend[j]++;
      f->rowcol[put] = j;
      f->rowfrom[put++] = place;
      f->colpos[place] = p;
      f->colval[place] = at->val[t];
    }
  }
  f->rowptr[m] = put;
  f->stats.adaflops = kktfac_adawork(f);
  return share_out(f);
}

bool kktfac_sqdplan(KktFac* f) {
  const spmat* a = f->a;
  if (!f->aplace.alloc(f->env, static_cast<std::size_t>(spmat_getnumnz(a))) ||
      !f->qplace.alloc(f->env, static_cast<std::size_t>(f->nq)) ||
      !f->dplace.alloc(f->env, static_cast<std::size_t>(f->dim)))
    return false;
  std::size_t put = 0;
  for (int32_t j = 0; j < f->n; ++j)
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) f->aplace[put++] = place_of(f->sym, j, f->n + a->sub[t]);
  for (int32_t k = 0; k < f->nq; ++k) f->qplace[k] = place_of(f->sym, f->qi[k], f->qj[k]);
  for (int32_t k = 0; k < f->dim; ++k) f->dplace[k] = place_of(f->sym, k, k);
  return true;
}

namespace {

void block_values(KktFac* f, int32_t k, int32_t* relative) {
  SymFace* sym = f->sym;
  const SymBlock& b = sym->blocks[k];
  const int32_t* rows = sym->rows.data() + b.row;
  const bool tail = k >= sym->firsttail;
  for (int32_t c = 0; c < b.width; ++c) relative[b.first + c] = c;
  for (int32_t i = 0; i < b.nrows; ++i) relative[tail ? b.first + b.width + i : rows[i]] = b.width + i;
  const int32_t* pos = f->colpos.data();
  const double* val = f->colval.data();
  for (int32_t c = 0; c < b.width; ++c) {
    const int32_t p = b.first + c;
    double* target = sym->values + b.val + static_cast<int64_t>(c) * b.ld;
    target[c] += f->shift[sym->perm[p]];
    for (int64_t t = f->rowptr[p]; t < f->rowptr[p + 1]; ++t) {
      const int32_t j = f->rowcol[t], from = f->rowfrom[t], end = f->colend[j];
      const double factor = val[from] * f->dinv[j];
      for (int32_t s = from; s < end; ++s) target[relative[pos[s]]] += factor * val[s];
    }
  }
}

}  // namespace

void kktfac_adavalues(KktFac* f) {
  for_threads(f->planthreads, [f](int32_t t) {
    for (int32_t k = f->share[t]; k < f->share[t + 1]; ++k)
      block_values(f, k, f->relative.data() + static_cast<std::ptrdiff_t>(t) * f->m);
  });
}

void kktfac_sqdvalues(KktFac* f) {
  double* values = f->sym->values;
  const spmat* a = f->a;
  std::size_t put = 0;
  for (int32_t j = 0; j < f->n; ++j) {
    values[f->dplace[j]] -= f->dd[j];
    for (int32_t t = a->ptrb[j]; t < a->ptre[j]; ++t) values[f->aplace[put++]] = a->val[t];
  }
  for (int32_t k = 0; k < f->nq; ++k) values[f->qplace[k]] -= f->qval[k];
  for (int32_t i = 0; i < f->m; ++i) values[f->dplace[f->n + i]] += f->shift[i];
}

}  // namespace tarvo
