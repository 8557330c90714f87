// The interior-point road of a linear or quadratic problem: presolve, canonical form, the homogeneous optimiser, and
// back.
#pragma once

#include <cstdint>

#include "homo/homo.h"
#include "optimize/optdat.h"
#include "prslv/prslv.h"

namespace tarvo {

// Progress events, numbers of the log.
enum IpmEvent : int32_t { IPM_BEGIN = 0, IPM_ITERATION = 1, IPM_PROGRESS = 2, IPM_END = 3 };
// The event of a progress code of the factorisation, see KktOptions.
int32_t kkt_event(int32_t code);

struct IpmOptions {
  bool presolve = true;
  prslvpar reduce;
  OptOptions form;
  HomParams hom;
};

// What a run tells while it goes on and in the end.
struct IpmInfo {
  int32_t resp = 0;  // stop code
  prslvstat presolve;
  int32_t iter = 0;
  bool solvesdual = false;
  int32_t numcon = 0, numvar = 0;  // of the canonical problem
  double pobj = 0.0, dobj = 0.0, pfeas = 0.0, dfeas = 0.0, kappatau = 0.0, mu = 0.0;
  int32_t numrefine = 0;
  KktStats kkt;
};

struct IpmEvents {
  void* handle = nullptr;
  int32_t (*func)(void* handle, int32_t event, const IpmInfo* info) = nullptr;  // 0 or a stop code
  void (*print)(void* handle, const char* text) = nullptr;                      // log text, NULL for none
  void (*name)(void* handle, bool row, int32_t index, char* buffer, int32_t size) = nullptr;
};

// Minimises. `itr` gets a solution or certificate of the given problem, or whatever point was reached; its slc, suc,
// slx, sux, y and xc are consistent with the given data: xc = A xx, y = slc - suc - cc, and the dual rows hold but
// where a multiplier would need a bound that isn't there. Statuses and stop code are in itr and info.
void opt_ipmslv(sysenv* env, const IpmOptions& options, const prslvinput& problem, const prslvquad& quad,
                const IpmEvents& events, prslvsol* itr, IpmInfo* info);

}  // namespace tarvo
