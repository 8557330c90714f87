// The number of threads of the parallel regions that the calling thread opens. It is the runtime's setting of the
// calling thread, no global: two tasks in two threads of the caller don't see each other's. It starts at 1.
#pragma once

#include <cstdint>

namespace tarvo {

// Sets the count of this thread, at least 1, and returns the former one for the way back.
int32_t mpc_setnthreads(int32_t count);
// The count in force; 1 until it was set. The runtime may give fewer: code shares work out by logical thread numbers
// and loops over those that it does not get.
int32_t mpc_getnthreads();

}  // namespace tarvo
