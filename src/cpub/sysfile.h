// Files, plain or compressed (gzip), through a buffer of our own. Compression is invisible to readers: a file opened
// for reading as compressed may also be a plain one.
// All calls give SysCode values. A file remembers its first error and gives it again from then on, so that a
// writer needs to look at the result of file_close only.
#pragma once

#include <cstring>

#include "cpub/array.h"

namespace tarvo {

enum class FileMode { read, write, append };

struct FileState;
struct File {
  char* next;  // reading: first byte not taken yet; writing: end of what is written
  char* end;   // reading: end of what was read; writing: end of the buffer
  int32_t status;
  FileState* state;
};

// `path` is UTF-8; the compression level is 9. SYS_FILE_OPEN (also for a NULL path or a folder) or SYS_SPACE on
// failure, and *file is then NULL.
int32_t file_open(sysenv* env, const char* path, FileMode mode, bool compressed, File** file);
// Writes what is still buffered, closes and frees *file, sets it to NULL. The first error of the file's life.
int32_t file_close(File** file);

// Reads up to `size` bytes. *count says how many came; fewer than asked for only at the end of the file.
// SYS_END_OF_FILE when there was nothing left at all.
int32_t file_read(File* file, void* data, std::size_t size, std::size_t* count);
// Reads the whole rest of the file, inflated, into *text. Behind its *size bytes stand readall_padding NUL bytes.
inline constexpr std::size_t readall_padding = 64;
int32_t file_readall(File* file, Array<char>* text, std::size_t* size);
// Reads up to a line feed, or as much of the line as fits into `capacity` bytes with a NUL. Carriage returns and the
// line feed are left out. SYS_END_OF_FILE when nothing is left.
int32_t file_readline(File* file, char* line, int32_t capacity, int32_t* length);

int32_t file_write_slow(File* file, const void* data, std::size_t size);
inline int32_t file_write(File* file, const void* data, std::size_t size) {
  if (static_cast<std::size_t>(file->end - file->next) < size) return file_write_slow(file, data, size);
  if (size != 0) std::memcpy(file->next, data, size);
  file->next += size;
  return file->status;
}
inline int32_t file_puts(File* file, const char* text) { return file_write(file, text, std::strlen(text)); }

}  // namespace tarvo
