// The four text streams of an environment or a task.
#pragma once

#include <pthread.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "tarvo.h"

namespace tarvo {

// One stream: bytes are collected up to a newline and then go to the file and the function, if linked.
struct Stream {
  std::FILE* file;
  void* func_handle;
  TRVstreamfunc func;
  int32_t pos;
  char buf[1025];
};

struct StreamBlock {
  char title[1024];
  int32_t has_mutex;  // only the block of an environment has one (recursive)
  pthread_mutex_t mutex;
  Stream stream[4];  // TRV_STREAM_LOG, _MSG, _ERR, _WRN; the log receives a copy of the others
};

}  // namespace tarvo
