// Start and end of a run: arrays, bounds, the starting basis, and the way back to the caller's arrays.
#include <algorithm>

#include "simplex/psimplex_internal.h"

namespace tarvo {

int32_t psimplex_make(PrimalSimplex* s) {
  const SimplexProblem& p = *s->prob;
  s->m = p.numcon;
  s->n = p.numvar;
  s->nn = p.numcon + p.numvar;
  const auto m = static_cast<std::size_t>(s->m), n = static_cast<std::size_t>(s->n), nn = m + n;
  std::size_t slots = 0, nz = 0;
  for (int32_t j = 0; j < s->n; ++j) {
    slots = std::max(slots, static_cast<std::size_t>(p.a.ptre[j]));
    nz += static_cast<std::size_t>(p.a.ptre[j] - p.a.ptrb[j]);
  }
  if (nz > INT32_MAX) return SIM_RESP_SPACE;

  Workspace& ws = s->block;
  for (double** v : {&s->lo, &s->up, &s->lo0, &s->up0, &s->cost, &s->x, &s->d, &s->w, &s->merit, &s->candmerit})
    ws.add(v, nn, Fill::zero);
  ws.add(&s->stat, nn, Fill::zero);
  ws.add(&s->refset, nn, Fill::zero);
  ws.add(&s->candpos, nn, Fill::zero);
  ws.add(&s->cand, nn);
  ws.add(&s->fixlist, nn);
  ws.add(&s->bas, m, Fill::zero);
  ws.add(&s->y, m, Fill::zero);
  ws.add(&s->rbeg, m + 1, Fill::zero);
  ws.add(&s->rend, m, Fill::zero);
  ws.add(&s->rsub, nz);
  ws.add(&s->rlink, nz);
  ws.add(&s->rval, nz);
  ws.add(&s->clink, slots);
  for (PsVector* v : {&s->alpha, &s->rho, &s->aux, &s->spike, &s->rhs}) {
    ws.add(&v->val, m, Fill::zero);
    ws.add(&v->sub, m);
  }
  for (PsVector* v : {&s->row, &s->auxrow}) {
    ws.add(&v->val, nn, Fill::zero);
    ws.add(&v->sub, nn);
  }
  ws.add(&s->marks, m, Fill::zero);
  ws.add(&s->dense1, m, Fill::zero);
  ws.add(&s->dense2, m, Fill::zero);
  ws.add(&s->breaks, 2 * m);
  ws.add(&s->changes, m);
  if (!ws.commit() || !simplex_makefactorwork(s->env, s->m, &s->factorwork)) return SIM_RESP_SPACE;

  auto bounds = [s](int32_t v, int32_t bk, double bl, double bu) {
    s->lo[v] = s->lo0[v] = simplex_haslower(bk) ? bl : -simplex_inf;
    s->up[v] = s->up0[v] = simplex_hasupper(bk) ? bu : simplex_inf;
  };
  for (int32_t i = 0; i < s->m; ++i) {
    bounds(i, p.bkc[i], p.blc[i], p.buc[i]);
    s->cost[i] = p.cc[i];
  }
  for (int32_t j = 0; j < s->n; ++j) {
    bounds(s->m + j, p.bkx[j], p.blx[j], p.bux[j]);
    s->cost[s->m + j] = p.cx[j];
  }
  s->head = s->basis->basis.data();

  const int k = SIM_PRIMAL;
  s->tolx = 0.1 * s->par->tolx[k];
  s->tols = 0.1 * s->par->tols[k];
  s->delta = 0.5 * s->tolx;
  s->tolpiv = std::min(1e-9, s->par->tolpiv[k]);
  s->iter = s->startiter = s->info->iter[k];
  s->infiter = s->info->infiter[k];
  s->degiter = s->info->degiter[k];
  s->allowperturb = s->par->degen != 0;
  return SIM_RESP_OK;
}

namespace {

void place_nonbasic(PrimalSimplex* s, int32_t v, int32_t sk, double value) {
  const double lo = s->lo[v], up = s->up[v];
  const bool haslo = lo != -simplex_inf, hasup = up != simplex_inf;
  PsStat stat;
  if (lo >= up) {
    stat = PS_FIXED;
  } else if (sk == SIM_SK_SUPBAS && std::isfinite(value) && value > lo && value < up) {
    stat = PS_SUPER;
  } else if (sk == SIM_SK_UPR && hasup) {
    stat = PS_UPPER;
  } else if (sk == SIM_SK_SUPBAS && hasup && value >= up) {
    stat = PS_UPPER;
  } else if (haslo) {
    stat = PS_LOWER;
  } else if (hasup) {
    stat = PS_UPPER;
  } else {
    stat = PS_SUPER;
  }
  s->stat[v] = stat;
  s->x[v] = stat == PS_UPPER ? up : stat != PS_SUPER ? lo : sk == SIM_SK_SUPBAS && std::isfinite(value) ? value : 0.0;
}

// The basis of the offered keys; false when there is none to speak of. Superfluous basics become nonbasic, missing ones
// are filled with logicals.
bool take_basis(PrimalSimplex* s) {
  const SimplexProblem& p = *s->prob;
  simplexinfo* info = s->info;
  auto key = [&p, s](int32_t v) { return v < s->m ? p.skc[v] : p.skx[v - s->m]; };
  int32_t count = 0;
  for (int32_t v = 0; v < s->nn; ++v) count += key(v) == SIM_SK_BAS;
  info->hotstart = 1;
  info->hotstartnumbasics = count;
  // The kept list stands when it says the same as the keys.
  bool agree = count == s->m;
  for (int32_t i = 0; agree && i < s->m; ++i) {
    const int32_t v = s->head[i];
    agree = v >= 0 && v < s->nn && key(v) == SIM_SK_BAS && s->stat[v] != PS_BASIC;
    if (agree) s->stat[v] = PS_BASIC;
  }
  if (!agree) {
    for (int32_t v = 0; v < s->nn; ++v) s->stat[v] = PS_FIXED;
    int32_t k = 0;
    for (int32_t v = 0; v < s->nn && k < s->m; ++v) {
      if (key(v) != SIM_SK_BAS) continue;
      s->stat[v] = PS_BASIC;
      s->head[k++] = v;
    }
    for (int32_t i = 0; i < s->m && k < s->m; ++i) {
      if (s->stat[i] == PS_BASIC) continue;
      s->stat[i] = PS_BASIC;
      s->head[k++] = i;
    }
    if (s->basis->factor != nullptr) lu_invalidate(s->basis->factor);
  }
  for (int32_t v = 0; v < s->nn; ++v) {
    if (s->stat[v] == PS_BASIC) continue;
    place_nonbasic(s, v, key(v), v < s->m ? p.xc[v] : p.xx[v - s->m]);
  }
  return true;
}

}  // namespace

int32_t psimplex_setup(PrimalSimplex* s) {
  const SimplexProblem& p = *s->prob;
  for (int32_t v = 0; v < s->nn; ++v) s->stat[v] = PS_FIXED;
  s->info->hotstart = s->info->hotstartlu = 0;
  if (s->par->clean != 0) {
    take_basis(s);
    s->info->hotstartlu = s->m > 0 && lu_isfactored(s->basis->factor);
  } else {
    for (int32_t i = 0; i < s->m; ++i) {
      s->head[i] = i;
      s->stat[i] = PS_BASIC;
    }
    for (int32_t v = s->m; v < s->nn; ++v) place_nonbasic(s, v, SIM_SK_UNK, 0.0);
    if (s->m > 0) lu_invalidate(s->basis->factor);
  }
  for (int32_t i = 0; i < s->m; ++i) {
    const int32_t v = s->head[i];
    double x = 0.0;
    if (s->par->clean != 0) x = v < s->m ? p.xc[v] : p.xx[v - s->m];
    s->bas[i] = {std::isfinite(x) ? x : 0.0, s->lo[v], s->up[v], 0.0};
  }
  psimplex_formacolt(s);
  if (s->par->clean == 0 && s->par->primalcrash < 100) psimplex_primalcrash(s);
  if (s->m > 0) {
    if (s->info->hotstartlu == 0) psimplex_factor(s);
    s->info->hotstartrank = s->m;
  }
  s->refactor = false;
  s->fresh = s->m == 0 || lu_getnumupd(s->basis->factor) == 0;
  s->recompute = true;
  s->badevents = 0;
  return s->resp;
}

void psimplex_store(PrimalSimplex* s) {
  SimplexProblem& p = *s->prob;
  for (int32_t i = 0; i < s->m; ++i) {
    s->x[s->head[i]] = s->bas[i].x;
    s->basis->xb[i] = s->bas[i].x;
  }
  for (int32_t k = 0; k < s->numfix; ++k) {
    const PsFix& f = s->fixlist[k];
    if (s->stat[f.var] == PS_BARRED) s->stat[f.var] = f.stat;
  }
  s->numfix = 0;
  for (int32_t v = 0; v < s->nn; ++v) {
    int32_t key = SIM_SK_BAS;
    switch (s->stat[v]) {
      case PS_BASIC:
        key = SIM_SK_BAS;
        break;
      case PS_LOWER:
        key = SIM_SK_LOW;
        break;
      case PS_UPPER:
        key = SIM_SK_UPR;
        break;
      case PS_FIXED:
        key = SIM_SK_FIX;
        break;
      default:
        key = SIM_SK_SUPBAS;
        break;
    }
    if (v < s->m) {
      p.skc[v] = key;
      p.xc[v] = s->x[v];
    } else {
      p.skx[v - s->m] = key;
      p.xx[v - s->m] = s->x[v];
    }
  }
  std::copy(s->y, s->y + s->m, p.y);
  simplex_forms(p, s->info->solsta != 5);
}

}  // namespace tarvo
