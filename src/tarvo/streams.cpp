#include "tarvo/streams.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "cpub/clocale.h"
#include "tarvo/frame.h"
#include "tarvo/version.h"

namespace tarvo {
namespace {

// Hands the text on, file first. The function gets a copy, since it may write to this stream itself.
void empty(Stream* stream) {
  stream->buf[stream->pos] = '\0';
  if (stream->file != nullptr) std::fputs(stream->buf, stream->file);
  if (stream->func != nullptr && stream->in_func == 0) {
    char text[stream_capacity + 1];
    std::memcpy(text, stream->buf, static_cast<std::size_t>(stream->pos) + 1);
    stream->pos = 0;
    stream->in_func = 1;
    stream->func(stream->func_handle, text);
    stream->in_func = 0;
  } else {
    stream->pos = 0;
  }
}

void empty_if_due(Stream* stream) {
  if (stream->pos > 0 && (stream->pos == stream_capacity || stream->buf[stream->pos - 1] == '\n')) empty(stream);
}

void store(Stream* stream, const char* text, std::size_t n) {
  std::memcpy(stream->buf + stream->pos, text, n);
  stream->pos += static_cast<int32_t>(n);
}

// "Sun Nov 22 21:40:00 2026", without the newline of the C runtime's form.
void time_text(char (&text)[64]) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  const CLocale locale;
  if (localtime_r(&now, &parts) == nullptr || std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", &parts) == 0) {
    text[0] = '\0';
  }
}

}  // namespace

int32_t streams_init(StreamBlock* block, bool with_mutex) {
  std::snprintf(block->title, sizeof block->title, "%s version %s", "TARVO", TARVO_VERSION_TEXT);
  if (!with_mutex) return TRV_RES_OK;
  // Recursive: the function of a stream may write to the same environment.
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return TRV_RES_ERR_THREAD_MUTEX_INIT;
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  block->has_mutex = pthread_mutex_init(&block->mutex, &attributes) == 0 ? 1 : 0;
  pthread_mutexattr_destroy(&attributes);
  return block->has_mutex != 0 ? TRV_RES_OK : TRV_RES_ERR_THREAD_MUTEX_INIT;
}

void streams_release(StreamBlock* block) {
  for (int32_t k = 0; k < num_streams; ++k) streams_flush(block, k);
  streams_closefiles(block);
  if (block->has_mutex != 0) pthread_mutex_destroy(&block->mutex);
  block->has_mutex = 0;
}

// A buffer is emptied when something follows a newline or a full buffer; the end of a text counts as something. So
// text goes over in runs that end with a newline or fill a buffer.
void streams_write(StreamBlock* block, int32_t whichstream, const char* text) {
  const StreamGuard guard(block);
  Stream* stream = &block->stream[whichstream];
  Stream* log = &block->stream[TRV_STREAM_LOG];
  for (std::size_t left = std::strlen(text);;) {
    empty_if_due(stream);
    empty_if_due(log);
    if (left == 0) break;
    std::size_t run = std::min(left, static_cast<std::size_t>(stream_capacity - std::max(stream->pos, log->pos)));
    const void* newline = std::memchr(text, '\n', run);
    if (newline != nullptr) run = static_cast<std::size_t>(static_cast<const char*>(newline) - text) + 1;
    store(stream, text, run);
    if (stream != log) store(log, text, run);
    text += run;
    left -= run;
  }
}

void streams_vprint(StreamBlock* block, int32_t whichstream, const char* format, va_list args) {
  char text[max_formatted_text];
  {
    const CLocale locale;
    if (std::vsnprintf(text, sizeof text, format, args) < 0) text[0] = '\0';
  }
  streams_write(block, whichstream, text);
}

void streams_print(StreamBlock* block, int32_t whichstream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  streams_vprint(block, whichstream, format, args);
  va_end(args);
}

void streams_flush(StreamBlock* block, int32_t whichstream) {
  const StreamGuard guard(block);
  Stream* stream = &block->stream[whichstream];
  if (stream->pos > 0) empty(stream);
  if (stream->file != nullptr) std::fflush(stream->file);
}

void streams_linkfile(StreamBlock* block, int32_t whichstream, const char* filename, bool append) {
  const StreamGuard guard(block);
  Stream* stream = &block->stream[whichstream];
  char now[64];
  time_text(now);
  if (stream->file != nullptr) {
    if (!append) std::fprintf(stream->file, "\nFile closed: %s\n", now);
    std::fclose(stream->file);
    stream->file = nullptr;
  }
  if (filename == nullptr || filename[0] == '\0') return;
  stream->file = std::fopen(filename, append ? "at" : "wt");
  if (stream->file == nullptr) return;
  std::fprintf(stream->file, append ? "\nFile reopened at %s" : "\nFile opened at %s", now);
  if (block->title[0] != '\0') std::fprintf(stream->file, " by %s", block->title);
  std::fputs(".\n", stream->file);
}

void streams_linkfunc(StreamBlock* block, int32_t whichstream, void* handle, TRVstreamfunc func) {
  const StreamGuard guard(block);
  Stream* stream = &block->stream[whichstream];
  if (stream->func != nullptr) streams_flush(block, whichstream);
  stream->func_handle = handle;
  stream->func = func;
}

void streams_closefiles(StreamBlock* block) {
  const StreamGuard guard(block);
  for (Stream& stream : block->stream) {
    if (stream.file != nullptr) std::fclose(stream.file);
    stream.file = nullptr;
  }
}

}  // namespace tarvo

using namespace tarvo;

int32_t TRV_echotask(TRVtask task, int32_t whichstream, const char* format, ...) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  if (format == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "format");
  va_list args;
  va_start(args, format);
  streams_vprint(&task->streams, whichstream, format, args);
  va_end(args);
  streams_flush(&task->streams, whichstream);
  return TRV_RES_OK;
}

// The calls on an environment's streams work before TRV_initenv, too.
int32_t TRV_echoenv(TRVenv env, int32_t whichstream, const char* format, ...) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  if (format == nullptr) return report_env<TRV_RES_ERR_NULL_POINTER>(env, "format");
  va_list args;
  va_start(args, format);
  streams_vprint(&env->streams, whichstream, format, args);
  va_end(args);
  return TRV_RES_OK;
}

int32_t TRV_linkfiletotaskstream(TRVtask task, int32_t whichstream, const char* filename, int32_t append) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  streams_linkfile(&task->streams, whichstream, filename, append != 0);
  return TRV_RES_OK;
}

int32_t TRV_linkfiletoenvstream(TRVenv env, int32_t whichstream, const char* filename, int32_t append) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  streams_linkfile(&env->streams, whichstream, filename, append != 0);
  return TRV_RES_OK;
}

int32_t TRV_linkfunctotaskstream(TRVtask task, int32_t whichstream, void* handle, TRVstreamfunc func) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  streams_linkfunc(&task->streams, whichstream, handle, func);
  return TRV_RES_OK;
}

int32_t TRV_linkfunctoenvstream(TRVenv env, int32_t whichstream, void* handle, TRVstreamfunc func) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  if (const int32_t rc = stream_check(whichstream); rc != TRV_RES_OK) return rc;
  streams_linkfunc(&env->streams, whichstream, handle, func);
  return TRV_RES_OK;
}

int32_t TRV_unlinkfuncfromtaskstream(TRVtask task, int32_t whichstream) {
  return TRV_linkfunctotaskstream(task, whichstream, nullptr, nullptr);
}

int32_t TRV_unlinkfuncfromenvstream(TRVenv env, int32_t whichstream) {
  return TRV_linkfunctoenvstream(env, whichstream, nullptr, nullptr);
}
