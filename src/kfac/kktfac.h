// The object with which every interior-point optimiser solves its Newton systems
//
//   [ -(Q + diag(d))  A' ] (x)   (r1)
//   [  A              E  ] (y) = (r2)
//
// in one of two ways: by the normal equations M = A diag(1/d) A' + E (Q must be diagonal), dense columns of A by a
// Schur complement; or by factoring the whole quasi-definite matrix.
//
// kktfac_make, kktfac_autosetup once; then for each scaling kktfac_numfac and any number of solves. After the set-up
// nothing is allocated.
#pragma once

#include <cstdint>

#include "cpub/spmat.h"
#include "order/symord.h"

namespace tarvo {

enum KktType : int32_t { KKT_AUTO = 0, KKT_NORMAL = 1, KKT_SQD = 2 };
enum KktResult : int32_t { KKT_OK = 0, KKT_SPACE = 1, KKT_FAILED = 2, KKT_BADINDEX = 3, KKT_CANCELLED = 7 };

struct KktOptions {
  int32_t type = KKT_AUTO;
  int32_t ordermethod = ORDER_FREE;
  int32_t offcol = 40;      // dense columns are looked for above this length; 0: none is dense
  double pivotfix = 1e-12;  // added to the diagonal (type 2: with the sign of the node); refinement makes up for it
  double mergeratio = 1.0;
  int32_t maxrefine = -1;  // steps of iterative refinement of a solve; negative: where the residual asks for it
  int32_t l1kb = 32, l2kb = 1024;
  // Progress codes: 0 start of the set-up, 1/4 start and end of an order, 5 end of the set-up, 2 and 3 within an order,
  // 6 to 8 of the numeric factorisation, 9/10 start and end of the partitioning order. A non-zero answer cancels; the
  // caller's handle remembers which.
  OrderHook hook;
};

struct KktStats {
  int32_t type = 0;
  int32_t dim = 0, densedim = 0, offcol = 0;  // of the factored matrix, of its dense tail, number of dense columns
  int64_t nnzm = 0;                           // of the lower triangle of the factored matrix, with its diagonal
  int64_t nnzl = 0;
  double flops = 0.0, adaflops = 0.0, denseflops = 0.0, extraflops = 0.0;  // per factorisation; estimates
  OrderCounts order;
  double ordertime = 0.0, setuptime = 0.0;  // CPU seconds
  double factortime = 0.0, adatime = 0.0, densetime = 0.0, solvetime = 0.0;
  int32_t numfac = 0;
  int64_t numsolve = 0, numrefine = 0;  // right-hand sides, refinement steps
  int32_t repaired = 0;                 // pivots repaired in the last factorisation,
  int32_t wrongsign = 0;                // and those of clearly wrong sign: Q is not convex
};

struct KktFac;

KktFac* kktfac_make(sysenv* env, int32_t m, int32_t n, const KktOptions& options);
void kktfac_delete(KktFac** fac);

// The symbolic phase. a: n columns of length m; at: its rows, or NULL (one is made). Both are borrowed, a for the
// life of the object, at for the call, and may not change. Q has the lower triangle qi[k] >= qj[k],
// k < nq, no position twice. KKT_OK, KKT_SPACE, KKT_BADINDEX, KKT_CANCELLED.
int32_t kktfac_autosetup(KktFac* fac, const spmat* a, const spmat* at, int32_t nq, const int32_t* qi,
                         const int32_t* qj);

// Factors for d[n] > 0, qval[nq] (NULL with nq 0) and E = diag(shift + e); e[m] may be NULL. KKT_OK, KKT_FAILED,
// KKT_CANCELLED (another kktfac_numfac may follow).
int32_t kktfac_numfac(KktFac* fac, const double* d, const double* qval, double shift, const double* e);

// Type 1: M sol = rhs for nrhs right-hand sides of m elements, one after the other. rhs and sol may be the same.
void kktfac_adasolve(KktFac* fac, int32_t nrhs, const double* rhs, double* sol);
// Both types: the whole system. r1, x: n elements, r2, y: m elements per right-hand side; x may be r1, y may be r2.
void kktfac_solve(KktFac* fac, int32_t nrhs, const double* r1, const double* r2, double* x, double* y);

const KktStats& kktfac_getstats(const KktFac* fac);

}  // namespace tarvo
