// A byte stream with push-back, and cursors that look ahead without taking anything: what tokenisers stand on.
// The bytes are kept in linked blocks from the buffer's position up to what the farthest cursor has seen.
#pragma once

#include "cpub/sysfile.h"

namespace tarvo {

// Where the bytes come from: read gives how many it stored, 0 at the end, less than 0 on failure.
struct FileBufferStream {
  void* handle;
  int64_t (*read)(void* handle, char* data, int64_t count);
};
FileBufferStream filebuffer_stream(File* file);

inline constexpr int32_t filebuffer_block = 16384;

struct FileBufferLink {
  FileBufferLink *next, *previous;
  int32_t count;
  char data[filebuffer_block];
};

struct FileBuffer {
  sysenv* env;
  FileBufferStream stream;
  FileBufferLink* link;  // the first one
  int32_t position;      // in that link
  bool ended;            // the stream has no more
  int32_t status;        // SYS_OK, or why the stream ended early
  int64_t bytes, line;   // taken so far
  int64_t column;        // from 1
};

// A place at or ahead of the buffer's. It is lost when the buffer moves beyond it, and takes a reset then.
struct FileBufferCursor {
  FileBuffer* buffer;
  FileBufferLink* link;
  int32_t position;
  int64_t bytes, line, column;
};

// NULL when out of memory. A stream that can't be read shows in `status`.
FileBuffer* FileBuffer_new(sysenv* env, const FileBufferStream& stream);
void FileBuffer_delete(FileBuffer** buffer);

bool filebuffer_advance(FileBuffer* buffer);  // to the next link; false at the end
// The next byte, 0 to 255, or -1 at the end.
inline int32_t FileBuffer_getc(FileBuffer* buffer) {
  if (buffer->position == buffer->link->count && !filebuffer_advance(buffer)) return -1;
  const auto c = static_cast<unsigned char>(buffer->link->data[buffer->position++]);
  ++buffer->bytes;
  ++buffer->column;
  if (c == '\n') ++buffer->line, buffer->column = 1;
  return c;
}
// The same without taking it.
inline int32_t FileBuffer_peek(FileBuffer* buffer) {
  if (buffer->position == buffer->link->count && !filebuffer_advance(buffer)) return -1;
  return static_cast<unsigned char>(buffer->link->data[buffer->position]);
}
// Puts a byte in front of what comes next. SYS_OK or SYS_SPACE.
int32_t FileBuffer_ungetc(FileBuffer* buffer, int32_t c);
// Takes everything up to the cursor.
void FileBuffer_skipto(FileBuffer* buffer, const FileBufferCursor& cursor);

void FileBufferCursor_reset(FileBufferCursor* cursor, FileBuffer* buffer);
bool filebuffer_ahead(FileBufferCursor* cursor);  // to the next link, read if need be; false at the end
inline int32_t FileBufferCursor_getc(FileBufferCursor* cursor) {
  if (cursor->position == cursor->link->count && !filebuffer_ahead(cursor)) return -1;
  const auto c = static_cast<unsigned char>(cursor->link->data[cursor->position++]);
  ++cursor->bytes;
  ++cursor->column;
  if (c == '\n') ++cursor->line, cursor->column = 1;
  return c;
}
// Goes back by `count` bytes, but not behind the buffer. In front of a line feed the column is not known and becomes 1.
void FileBufferCursor_rewind(FileBufferCursor* cursor, int64_t count);

}  // namespace tarvo
