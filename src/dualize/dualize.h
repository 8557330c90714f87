// The dualizer: the dual of a linear problem as a new problem of the same shape, and the way back for its solutions.
//
// The primal, with m rows and n columns:
//   minimise cc'xc + cx'xx + cfix   subject to  xc = A xx,  blc <= xc <= buc,  blx <= xx <= bux
// Its dual, with slc - suc = cc + y and slx - sux = cx - A'y, is stored as a minimisation of
//   -(cfix + blc'slc - buc'suc + blx'slx - bux'sux)
//
// Compact form, in u = cc + y. A row of the dual per column of the primal that is neither fixed nor folded: its
// activity is (A'u)_j, and the bound multiplier of the primal column is what is left to c_j = (cx + A'cc)_j: key LO
// gives an upper bound c_j and a row cost blx_j, UP a lower bound and bux_j, FR an equality; RA is as LO with one more
// column -e_j of cost bux_j. A column per row of the primal that is not free: u_i of cost -blc_i or -buc_i, signed by
// the key; a ranged row has two, which sum up to u_i. Fixed columns put their value into the costs of the u_i. A column
// with one element, in a row that is not ranged, is folded: its dual row is a bound of u_i.
//
// The multiplier of a dual row is -xx_j, the reduced cost of u_i is the distance of xc_i from the bound in its cost. So
// a basis of the dual is one of the primal: what is basic here is nonbasic there.
//
// Full form: columns y(m) s(m) t(m) p(n) q(n), rows n + m: A'y + p - q = cx and -y + s - t = cc, for comparison.
//
// Keys and statuses have the values of TRV_BK_, TRV_SK_, TRV_PRO_STA_, TRV_SOL_STA_.
#pragma once

#include <cstdint>

#include "cpub/sysenv.h"

namespace tarvo {

enum DualizeMethod : int32_t { DUALIZE_COMPACT = 0, DUALIZE_FULL = 1 };

// A linear problem; column j is sub/val[ptrb[j]..ptre[j]), rows in any order, each at most once. Infinite bounds are
// told by the keys alone.
struct DualizeInput {
  int32_t numcon, numvar;
  const int32_t* ptrb;
  const int32_t* ptre;
  const int32_t* sub;
  const double* val;
  double cfix;
  const double* cc;  // [numcon]
  const double* cx;  // [numvar]
  const int32_t* bkc;
  const double* blc;
  const double* buc;
  const int32_t* bkx;
  const double* blx;
  const double* bux;
};

// A solution; arrays of the caller, by row [numcon] or by column [numvar].
struct DualizeSolution {
  int32_t* skc;
  int32_t* skx;
  double* xc;
  double* xx;
  double* y;
  double* slc;
  double* suc;
  double* slx;
  double* sux;
};

// What the dual form will be, for the choice of form.
struct DualizeSize {
  int32_t numcon = 0, numvar = 0;
  int64_t numnz = 0;
  int32_t numranged = 0;  // columns of the primal with two bounds: each costs the dual a column
  int32_t numfixed = 0;   // equality rows of the primal: free columns of the dual
};

struct dualizer;

// The size of the dual form, counted without building it. 0, or 1 when out of memory or when the form is too large for
// 32-bit indices.
int32_t dualize_getdualsize(sysenv* env, DualizeMethod method, const DualizeInput& input, DualizeSize* size);

// Forms the dual. The arrays of `input` must stay as they are while the record lives. 0, or 1 as above (and *record is
// NULL then).
int32_t dualize_formdual(sysenv* env, DualizeMethod method, const DualizeInput& input, dualizer** record);
void dualize_delete(dualizer** record);

// The dual as a problem. Its arrays belong to the record.
DualizeInput dualize_problem(const dualizer* record);

// Maps a start of the primal to one of the dual. `clean` is the kind of start (1 to 6 as in simplexpar::clean), and on
// return that of the dual, with primal and dual exchanged. False when the start has no counterpart (not exactly numcon
// basic keys, the start of a basis identification, a basic column whose counterpart was folded): solve cold then.
// Needs skc, skx, xx and y of the primal, fills skc, skx, xc, xx and y of the dual.
bool dualize_getdual(const dualizer* record, const DualizeSolution& primal, int32_t* clean,
                     const DualizeSolution& dual);

// How a solution of the dual was mapped.
struct DualizeResult {
  int32_t prosta = 0, solsta = 0;  // of the primal
  double pobj = 0.0, dobj = 0.0;   // of the primal, meaningful for a solution that is no certificate
  // 0, or the kind of start (7) with which the primal simplex should go on from the mapped basis, because it is not
  // optimal within the tolerances.
  int32_t clean = 0;
};

// Maps a basic solution or certificate of the dual back; every array of `primal` is filled, with exactly numcon basic
// keys when the dual's solution is basic. prosta, solsta are those of the dual, tolx and tols say what counts as
// optimal in the primal. True; false when the dual holds a key that is none of the known ones.
bool dualize_getprimal(const dualizer* record, int32_t prosta, int32_t solsta, const DualizeSolution& dual, double tolx,
                       double tols, const DualizeSolution& primal, DualizeResult* result);

// What a status of a dual problem says of the primal: primal and dual change places.
int32_t dualize_prosta(int32_t prosta);
int32_t dualize_solsta(int32_t solsta);

// Writes the dual to a file in free MPS form, row costs folded into the columns. A SysCode.
inline constexpr const char* dualize_filename = "dual.mps";
int32_t dualize_writedual(const dualizer* record, const char* path = dualize_filename);

}  // namespace tarvo
