// The basis and its factorisation, and the reduced costs of a solution.
#include <algorithm>

#include "simplex/simplex_internal.h"

namespace tarvo {

int32_t simplex_makebasis(sysenv* env, int32_t numcon, simplexbasis* basis) {
  simplex_deletebasis(basis);
  const auto m = static_cast<std::size_t>(numcon);
  if (!basis->basis.alloc(env, m) || !basis->xb.alloc(env, m, Fill::zero)) return SIM_RESP_SPACE;
  for (int32_t i = 0; i < numcon; ++i) basis->basis[i] = i;
  if (numcon > 0 && lu_make(env, numcon, numcon, &basis->factor) != LU_OK) return SIM_RESP_SPACE;
  basis->numcon = numcon;
  return SIM_RESP_OK;
}

void simplex_deletebasis(simplexbasis* basis) {
  basis->numcon = 0;
  basis->basis.reset();
  basis->xb.reset();
  if (basis->factor != nullptr) lu_delete(&basis->factor);
}

int32_t simplex_copybasis(sysenv* env, const simplexbasis& from, simplexbasis* to) {
  simplexbasis copy;
  const auto m = static_cast<std::size_t>(from.numcon);
  if (!copy.basis.alloc(env, m) || !copy.xb.alloc(env, m)) return SIM_RESP_SPACE;
  std::copy(from.basis.begin(), from.basis.end(), copy.basis.begin());
  std::copy(from.xb.begin(), from.xb.end(), copy.xb.begin());
  if (from.factor != nullptr) {
    copy.factor = lu_copy(env, from.factor);
    if (copy.factor == nullptr) return SIM_RESP_SPACE;
  }
  copy.numcon = from.numcon;
  simplex_deletebasis(to);
  std::swap(*to, copy);
  return SIM_RESP_OK;
}

bool simplex_makefactorwork(sysenv* env, int32_t numcon, SimplexFactorWork* work) {
  int64_t ni = 0, nr = 0;
  lu_worksizes(numcon, numcon, &ni, &nr);
  return work->iwork.alloc(env, static_cast<std::size_t>(ni)) && work->rwork.alloc(env, static_cast<std::size_t>(nr)) &&
         work->artrow.alloc(env, static_cast<std::size_t>(numcon));
}

namespace {

// Gives the factor work files of n slots unless they have them.
int32_t grow_files(lu* factor, int64_t n) {
  if (lu_getwsze(factor) >= n) return SIM_RESP_OK;
  return lu_putwsze(factor, n) == LU_OK ? SIM_RESP_OK : SIM_RESP_SPACE;
}

int32_t load_basis(const SimplexColumns& a, int32_t numcon, const int32_t* basis, lu* factor) {
  lu_reset(factor);
  for (int32_t k = 0; k < numcon; ++k) {
    int32_t r;
    if (basis[k] < numcon) {
      r = lu_addelm(factor, -1.0, basis[k], k);
    } else {
      const int32_t j = basis[k] - numcon;
      r = lu_addcol(factor, k, a.ptre[j] - a.ptrb[j], a.val + a.ptrb[j], a.sub + a.ptrb[j]);
    }
    if (r != LU_OK) return r;
  }
  return LU_OK;
}

}  // namespace

int32_t simplex_factor(sysenv* env, int32_t numcon, const SimplexColumns& a, simplexbasis* basis,
                       SimplexFactorWork* work, int32_t* numart) {
  *numart = 0;
  lu* factor = basis->factor;
  int64_t nz = 0;
  for (int32_t k = 0; k < numcon; ++k) {
    const int32_t j = basis->basis[k] - numcon;
    nz += j < 0 ? 1 : a.ptre[j] - a.ptrb[j];
  }
  // Room for the basis, moderate fill and a hundred updates; what proves too small grows below.
  const int64_t wsze = lu_getwsze(factor);
  int64_t want = 3 * int64_t{numcon} + 3 * nz + 100;
  if (lu_getneedmem(factor)) want = std::max(want, wsze + std::max<int64_t>(5 * int64_t{numcon}, wsze / 5));
  if (grow_files(factor, want) != SIM_RESP_OK) return SIM_RESP_SPACE;

  constexpr int max_growths = 60;  // each adds a part of what is there: far more than any memory
  for (int growth = 0; growth < max_growths; ++growth) {
    int32_t r = load_basis(a, numcon, basis->basis.data(), factor);
    if (r == LU_OK)
      r = lu_factor(factor, static_cast<int64_t>(work->iwork.size()), work->iwork.data(),
                    static_cast<int64_t>(work->rwork.size()), work->rwork.data());
    if (r == LU_OK && lu_getrank(factor) < numcon) {
      r = lu_insart(factor, -1.0, work->artrow.data(), numcon);
      if (r == LU_OK) {
        for (int32_t k = 0; k < numcon; ++k) {
          if (work->artrow[k] == numcon) continue;
          basis->basis[k] = work->artrow[k];
          ++*numart;
        }
      }
    }
    if (r == LU_OK) return SIM_RESP_OK;
    if (r == LU_SPACE) return SIM_RESP_SPACE;
    if (r != LU_FILESPACE && r != LU_GARCOL) return SIM_RESP_NUMERIC;
    const int64_t now = lu_getwsze(factor);
    const int64_t next = std::max({lu_getneededwsze(factor), now + now / 5, now + 3 * int64_t{numcon}});
    if (lu_putwsze(factor, next) != LU_OK) return SIM_RESP_SPACE;
  }
  sysenv_assert(env, numcon >= 0);
  return SIM_RESP_NUMERIC;
}

bool simplex_lustability(lu* factor) {
  double pmin, pmax, lmax, umax;
  if (lu_getpivmode(factor) == LU_PIVMODE_BOTH) return false;
  if (lu_normsscaled(factor, &pmin, &pmax, &lmax, &umax) != LU_OK) return false;
  const bool doubtful =
      pmax > 1e12 || pmin < 1e-10 || lmax >= 1e12 || pmax >= 1e8 * pmin || lmax >= 1e8 * pmin || umax >= 1e8 * pmin;
  if (!doubtful) return false;
  lu_putpivmode(factor, LU_PIVMODE_BOTH);
  lu_puttol(factor, LU_TOL_RELPIV, 0.001);
  return true;
}

void simplex_raiserelpiv(lu* factor) {
  const double now = lu_gettol(factor, LU_TOL_RELPIV);
  lu_puttol(factor, LU_TOL_RELPIV, std::max(now, std::min(1.5 * now, 0.5)));
}

void simplex_forms(const SimplexProblem& p, bool withcost) {
  for (int32_t i = 0; i < p.numcon; ++i) p.sc[i] = (withcost ? p.cc[i] : 0.0) + p.y[i];
  for (int32_t j = 0; j < p.numvar; ++j) {
    double s = withcost ? p.cx[j] : 0.0;
    for (int32_t k = p.a.ptrb[j]; k < p.a.ptre[j]; ++k) s -= p.a.val[k] * p.y[p.a.sub[k]];
    p.sx[j] = s;
  }
}

}  // namespace tarvo
