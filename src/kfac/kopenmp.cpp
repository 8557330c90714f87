#include "kfac/kopenmp.h"

#include <omp.h>

#include <algorithm>

namespace tarvo {

namespace {
thread_local int32_t threads = 1;
}

int32_t mpc_setnthreads(int32_t count) {
  const int32_t former = threads;
  threads = std::max(count, 1);
  omp_set_num_threads(threads);
  return former;
}

int32_t mpc_getnthreads() { return threads; }

}  // namespace tarvo
