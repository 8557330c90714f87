// Fork-join over logical threads.
#pragma once

#include <omp.h>

#include <cstdint>

namespace tarvo {

// Runs body(t) for the logical threads t of 0..threads-1, on as many threads as the runtime gives.
template <class Body>
void for_threads(int32_t threads, const Body& body) {
  if (threads < 2) {
    body(0);
    return;
  }
#pragma omp parallel num_threads(threads)
  for (int32_t t = omp_get_thread_num(); t < threads; t += omp_get_num_threads()) body(t);
}

}  // namespace tarvo
