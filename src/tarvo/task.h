// The two objects behind the exported calls. Both are checked by their first word, so the first member of
// each must stay where it is.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "cpub/array.h"
#include "cpub/sprmat.h"
#include "misc/hashtabl.h"
#include "tarvo.h"
#include "tarvo/streams.h"

namespace tarvo {

inline constexpr int num_ipar = 193, num_dpar = 61, num_spar = 25;
inline constexpr int num_iinf = 170, num_dinf = 90;
inline constexpr int num_iinf_public = 74, num_dinf_public = 51;
inline constexpr int max_warning = 1000;
inline constexpr double infinity_bound = 1e30;  // the magnitude at which infinite bounds are stored

struct BufferPool;  // tarvo/bufpool.h
struct BasisSolve;  // tarvo/tarvobas.h: the factor of TRV_initbasissolve

// Quadratic terms of the objective and the constraints: one triplet store, lower triangle (qsubi >= qsubj).
struct QuadStore {
  Array<int32_t> qsubi, qsubj;  // [maxnumqnz]
  Array<double> qval;           // [maxnumqnz]
  int32_t maxnumqnz, qsurplus;  // qsurplus entries at the end are free
  int32_t qobjbegin, qobjend;
  Array<int32_t> qconbegin, qconend;  // [maxnumcon], empty until a constraint gets terms
  Array<int32_t> objhash;             // finds the objective's terms, empty until somebody searches (tarvodatquad.cpp)
  int32_t objhashfilled;
};

// Cones: one member store. varcone[j] is 0 or the cone of variable j plus 1.
struct ConeStore {
  Array<int32_t> conebegin, coneend, conetype;  // [maxnumcone]
  Array<double> conepar;                        // [maxnumcone]
  Array<int32_t> conemembers, varcone;          // [maxnumvar], empty while maxnumcone is 0
  int32_t conesurplus;
};

// Names: one text block with offsets, 0 being the empty name, and a look-up table a kind (TRV_PI_).
struct NameStore {
  Array<char> nametext;
  uint32_t nametextfree;
  Array<int32_t> varname, conname, conename;  // [maxnumvar], [maxnumcon], [maxnumcone]
  int32_t objname;
  HashTable namemap[3];
};

struct Solution {
  int32_t prosta, solsta, defined;
  Array<int32_t> keys;   // skc[maxnumcon], skx[maxnumvar], and for TRV_SOL_ITR skn[maxnumcone]
  Array<double> values;  // xc, xx, then but for TRV_SOL_ITG y, slc, suc, slx, sux, then for TRV_SOL_ITR snx
};

// What the last TRV_readdata read, for TRV_readsummary.
struct ReadRecord {
  int32_t numanz, numcon, numcone, numintvar, numq, numqnz, numvar, probtype;
  double seconds;
};

}  // namespace tarvo

struct TRVenv_st {
  int32_t initialised;  // first word: 0 until TRV_initenv succeeds
  int32_t keepdlls;
  int32_t ipar[tarvo::num_ipar];  // the defaults of the parameters
  double dpar[tarvo::num_dpar];
  char* spar[tarvo::num_spar];
  pthread_mutex_t mutex[4];  // 1 control-C counters, 2 task counters, 3 loading of the global optimiser
  int32_t num_mutexes;       // how many of them are initialised
  int32_t ctrlc_seen, ctrlc_polls;
  int32_t ctrlc_installed;  // this environment keeps the interrupt handler in place
  void* ctrlc_handle;
  TRVctrlcfunc ctrlc_func;
  tarvo::sysenv* sys;
  char* debug_file_name;
  TRVallocfunc alloc_func;
  TRVfreefunc free_func;
  void* alloc_handle;
  void* exit_handle;
  TRVexitfunc exit_func;
  void* response_handle;
  TRVresponsefunc response_func;
  char* dll_path;
  tarvo::StreamBlock streams;
  int32_t warning_count[tarvo::max_warning];
  int32_t num_tasks_created, num_tasks_deleted;
};

struct TRVtask_st {
  TRVenv env;  // first word: NULL while the task is torn down
  tarvo::sysenv* sys;
  int32_t task_id;
  char* task_name;
  int32_t maxnumvar, maxnumcon, maxnumcone;
  int32_t numvar, numcon, numcone;
  int32_t objective_sense;
  void* nl_handle;  // the nonlinear function triple, opaque here
  void* nl_getsp;
  void* nl_getva;

  double cfix;
  tarvo::Array<double> c, blx, bux;  // [maxnumvar]
  tarvo::Array<int32_t> bkx;
  tarvo::Array<double> cc, blc, buc;  // [maxnumcon]
  tarvo::Array<int32_t> bkc;
  tarvo::Array<int32_t> vartype, branch_priority, branch_direction;  // [maxnumvar], empty until used
  int32_t numintvar;
  tarvo::sprmat* a;  // NULL until needed
  tarvo::QuadStore quad;
  tarvo::ConeStore cones;
  tarvo::NameStore names;
  tarvo::Solution sol[3];  // TRV_SOL_ITR, TRV_SOL_BAS, TRV_SOL_ITG
  tarvo::BasisSolve* basis_solve;
  tarvo::BufferPool* buffers;
  tarvo::ReadRecord read;

  int32_t ipar[tarvo::num_ipar];
  double dpar[tarvo::num_dpar];
  char* spar[tarvo::num_spar];  // NULL reads as ""
  int32_t iinf[tarvo::num_iinf];
  double dinf[tarvo::num_dinf];

  int32_t warning_count[tarvo::max_warning];
  void* callback_handle;
  TRVcallbackfunc callback_func;
  void* stop_handle;
  TRVcallbackfunc stop_func;
  void* response_handle;
  TRVresponsefunc response_func;
  int32_t in_response;  // it runs: reports that it causes aren't handed to it again
  tarvo::StreamBlock streams;
  int32_t log_events;
  int32_t head_printed;    // the problem head was printed in this optimisation
  int32_t sim_head_count;  // simplex entry blocks printed in this optimisation
  int32_t iter_head_printed;
  int32_t num_optimizations;
  double callback_time;          // real clock at the last call of the call-back for an iteration
  double clock_cpu, clock_real;  // the last readings of both clocks by an event
  int32_t break_code, ctrlc_snapshot;
  int32_t last_code;
  char* last_message;
  int32_t last_message_capacity, last_message_length;
};

namespace tarvo {

using Env = TRVenv_st;
using Task = TRVtask_st;

}  // namespace tarvo
