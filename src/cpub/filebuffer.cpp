#include "cpub/filebuffer.h"

namespace tarvo {

namespace {

int64_t read_file(void* handle, char* data, int64_t count) {
  std::size_t got = 0;
  const int32_t status = file_read(static_cast<File*>(handle), data, static_cast<std::size_t>(count), &got);
  return status == SYS_OK || status == SYS_END_OF_FILE ? static_cast<int64_t>(got) : -1;
}

FileBufferLink* new_link(sysenv* env) {
  auto* link = static_cast<FileBufferLink*>(sysenv_malloc(env, 1, sizeof(FileBufferLink)));
  if (link != nullptr) {
    link->next = link->previous = nullptr;
    link->count = 0;
  }
  return link;
}

// Reads the next block into a link; false when there is none.
bool read_block(FileBuffer* buffer, FileBufferLink* link) {
  if (buffer->ended) return false;
  const int64_t count = buffer->stream.read(buffer->stream.handle, link->data, filebuffer_block);
  buffer->ended = count <= 0;
  if (count < 0) buffer->status = SYS_FILE_READ;
  if (count > 0) link->count = static_cast<int32_t>(count);
  return count > 0;
}

void drop_first(FileBuffer* buffer) {
  FileBufferLink* first = buffer->link;
  buffer->link = first->next;
  buffer->link->previous = nullptr;
  buffer->position = 0;
  sysenv_free(buffer->env, first);
}

}  // namespace

FileBufferStream filebuffer_stream(File* file) { return {file, read_file}; }

FileBuffer* FileBuffer_new(sysenv* env, const FileBufferStream& stream) {
  auto* buffer = static_cast<FileBuffer*>(sysenv_calloc(env, 1, sizeof(FileBuffer)));
  if (buffer == nullptr) return nullptr;
  buffer->env = env;
  buffer->stream = stream;
  buffer->column = 1;
  buffer->link = new_link(env);
  if (buffer->link == nullptr) {
    sysenv_free(env, buffer);
    return nullptr;
  }
  read_block(buffer, buffer->link);
  return buffer;
}

void FileBuffer_delete(FileBuffer** buffer) {
  if (*buffer == nullptr) return;
  sysenv* env = (*buffer)->env;
  for (FileBufferLink* link = (*buffer)->link; link != nullptr;) {
    FileBufferLink* next = link->next;
    sysenv_free(env, link);
    link = next;
  }
  sysenv_free(env, *buffer);
  *buffer = nullptr;
}

bool filebuffer_advance(FileBuffer* buffer) {
  if (buffer->link->next != nullptr) {
    drop_first(buffer);
    return true;
  }
  if (!read_block(buffer, buffer->link)) return false;
  buffer->position = 0;
  return true;
}

int32_t FileBuffer_ungetc(FileBuffer* buffer, int32_t c) {
  sysenv_assert(buffer->env, c >= 0 && c < 256);
  if (buffer->position == 0) {
    FileBufferLink* front = new_link(buffer->env);
    if (front == nullptr) return buffer->status = SYS_SPACE;
    front->next = buffer->link;
    buffer->link->previous = front;
    front->count = filebuffer_block;
    buffer->link = front;
    buffer->position = filebuffer_block;
  }
  buffer->link->data[--buffer->position] = static_cast<char>(c);
  --buffer->bytes;
  --buffer->column;
  if (c == '\n') --buffer->line, buffer->column = 1;
  return SYS_OK;
}

void FileBuffer_skipto(FileBuffer* buffer, const FileBufferCursor& cursor) {
  sysenv_assert(buffer->env, cursor.buffer == buffer && cursor.bytes >= buffer->bytes);
  while (buffer->link != cursor.link) drop_first(buffer);
  buffer->position = cursor.position;
  buffer->bytes = cursor.bytes;
  buffer->line = cursor.line;
  buffer->column = cursor.column;
}

void FileBufferCursor_reset(FileBufferCursor* cursor, FileBuffer* buffer) {
  *cursor = {buffer, buffer->link, buffer->position, buffer->bytes, buffer->line, buffer->column};
}

bool filebuffer_ahead(FileBufferCursor* cursor) {
  FileBuffer* buffer = cursor->buffer;
  FileBufferLink* last = cursor->link;
  if (last->next == nullptr) {
    if (buffer->ended) return false;
    FileBufferLink* link = new_link(buffer->env);
    if (link == nullptr) {
      buffer->status = SYS_SPACE;
      buffer->ended = true;
      return false;
    }
    if (!read_block(buffer, link)) {
      sysenv_free(buffer->env, link);
      return false;
    }
    last->next = link;
    link->previous = last;
  }
  cursor->link = last->next;
  cursor->position = 0;
  return true;
}

void FileBufferCursor_rewind(FileBufferCursor* cursor, int64_t count) {
  if (count >= cursor->bytes - cursor->buffer->bytes) {
    FileBufferCursor_reset(cursor, cursor->buffer);
    return;
  }
  for (; count > 0; --count) {
    if (cursor->position == 0) {
      cursor->link = cursor->link->previous;
      cursor->position = cursor->link->count;
    }
    --cursor->bytes;
    --cursor->column;
    if (cursor->link->data[--cursor->position] == '\n') --cursor->line, cursor->column = 1;
  }
}

}  // namespace tarvo
