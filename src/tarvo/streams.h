// The four text streams of an environment or a task.
#pragma once

#include <pthread.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "tarvo.h"

namespace tarvo {

inline constexpr int num_streams = 4;
inline constexpr int32_t stream_capacity = 1024;
inline constexpr std::size_t max_formatted_text = 4048;  // bytes of a formatted text with its NUL; the rest is cut

// One stream: bytes are collected up to a newline and then go to the file and the function, if linked.
struct Stream {
  std::FILE* file;
  void* func_handle;
  TRVstreamfunc func;
  int32_t in_func;  // the function runs: what it writes to its own stream isn't handed to it again
  int32_t pos;
  char buf[stream_capacity + 1];
};

struct StreamBlock {
  char title[1024];
  int32_t has_mutex;  // only the block of an environment has one (recursive)
  pthread_mutex_t mutex;
  Stream stream[num_streams];  // TRV_STREAM_LOG, _MSG, _ERR, _WRN; the log receives a copy of the others
};

// Keeps other threads from writing to an environment's streams for a while; nothing for those of a task.
class StreamGuard {
 public:
  explicit StreamGuard(StreamBlock* block) : block_(block) {
    if (block_->has_mutex != 0) pthread_mutex_lock(&block_->mutex);
  }
  StreamGuard(const StreamGuard&) = delete;
  StreamGuard& operator=(const StreamGuard&) = delete;
  ~StreamGuard() {
    if (block_->has_mutex != 0) pthread_mutex_unlock(&block_->mutex);
  }

 private:
  StreamBlock* block_;
};

// Sets up a zeroed block. A response code.
int32_t streams_init(StreamBlock* block, bool with_mutex);
// Flushes everything, closes the linked files and destroys the mutex.
void streams_release(StreamBlock* block);

void streams_write(StreamBlock* block, int32_t whichstream, const char* text);
void streams_vprint(StreamBlock* block, int32_t whichstream, const char* format, va_list args);
[[gnu::format(printf, 3, 4)]] void streams_print(StreamBlock* block, int32_t whichstream, const char* format, ...);
// Hands on what the stream holds, complete line or not, and flushes its file.
void streams_flush(StreamBlock* block, int32_t whichstream);

// Closes the file of the stream and, unless the name is NULL or empty, opens another. A file that can't be opened
// leaves the stream without one.
void streams_linkfile(StreamBlock* block, int32_t whichstream, const char* filename, bool append);
void streams_linkfunc(StreamBlock* block, int32_t whichstream, void* handle, TRVstreamfunc func);
void streams_closefiles(StreamBlock* block);

}  // namespace tarvo
