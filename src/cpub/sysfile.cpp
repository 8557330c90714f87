#include "cpub/sysfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace tarvo {

namespace {

constexpr std::size_t block = 1 << 16;
constexpr int level = 9;

}  // namespace

struct FileState {
  File file;
  sysenv* env;
  int fd;
  FileMode mode;
  bool compressed;     // the bytes pass zlib
  bool within_member;  // reading: a gzip member is begun and not ended
  bool input_ended;    // reading: the descriptor has no more bytes
  Array<char> buffer;  // what the caller sees
  Array<char> packed;  // what the file holds, when compressed
  z_stream z;
};

namespace {

voidpf zlib_alloc(voidpf env, uInt items, uInt size) { return sysenv_malloc(static_cast<sysenv*>(env), items, size); }
void zlib_free(voidpf env, voidpf pointer) { sysenv_free(static_cast<sysenv*>(env), pointer); }

Bytef* bytes(char* text) { return reinterpret_cast<Bytef*>(text); }
uInt small(std::size_t n) { return static_cast<uInt>(std::min<std::size_t>(n, 1u << 30)); }

int32_t fd_read(FileState* s, char* data, std::size_t size, std::size_t* count) {
  for (;;) {
    const ssize_t n = ::read(s->fd, data, std::min<std::size_t>(size, 1u << 30));
    if (n < 0 && errno == EINTR) continue;
    *count = n < 0 ? 0 : static_cast<std::size_t>(n);
    return n < 0 ? SYS_FILE_READ : SYS_OK;
  }
}

int32_t fd_write(FileState* s, const char* data, std::size_t size) {
  while (size != 0) {
    const ssize_t n = ::write(s->fd, data, std::min<std::size_t>(size, 1u << 30));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return SYS_FILE_WRITE;
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return SYS_OK;
}

// Makes at least `want` packed bytes stand ready, unless the file ends before.
int32_t refill_packed(FileState* s, std::size_t want) {
  while (s->z.avail_in < want && !s->input_ended) {
    std::memmove(s->packed.data(), s->z.next_in, s->z.avail_in);
    s->z.next_in = bytes(s->packed.data());
    std::size_t count = 0;
    const int32_t status = fd_read(s, s->packed.data() + s->z.avail_in, s->packed.size() - s->z.avail_in, &count);
    if (status != SYS_OK) return status;
    s->z.avail_in += static_cast<uInt>(count);
    s->input_ended = count == 0;
  }
  return SYS_OK;
}

bool at_member(const FileState* s) { return s->z.avail_in >= 2 && s->z.next_in[0] == 0x1f && s->z.next_in[1] == 0x8b; }

// Inflates up to `size` bytes. A file may have several members one behind the other; bytes behind the last one that
// don't begin another are padding. A member without its end is an error, so that a cut file doesn't pass for a whole
// one.
int32_t inflate_some(FileState* s, char* data, std::size_t size, std::size_t* count) {
  s->z.next_out = bytes(data);
  s->z.avail_out = small(size);
  const uInt wanted = s->z.avail_out;
  int32_t status = SYS_OK;
  while (s->z.avail_out == wanted) {
    status = refill_packed(s, s->within_member ? 1 : 2);
    if (status != SYS_OK) break;
    if (!s->within_member) {
      if (!at_member(s)) break;
      inflateReset(&s->z);
      s->within_member = true;
    } else if (s->z.avail_in == 0) {
      status = SYS_FILE_READ;
      break;
    }
    const int code = inflate(&s->z, Z_NO_FLUSH);
    if (code == Z_STREAM_END) {
      s->within_member = false;
    } else if (code != Z_OK) {
      status = code == Z_MEM_ERROR ? SYS_SPACE : SYS_FILE_READ;
      break;
    }
  }
  *count = wanted - s->z.avail_out;
  return status;
}

// Reads some bytes; none only at the end of the file.
int32_t source(FileState* s, char* data, std::size_t size, std::size_t* count) {
  return s->compressed ? inflate_some(s, data, size, count) : fd_read(s, data, size, count);
}

int32_t fill(File* file) {
  FileState* s = file->state;
  file->next = file->end = s->buffer.data();
  if (file->status != SYS_OK) return file->status;
  std::size_t count = 0;
  file->status = source(s, s->buffer.data(), s->buffer.size(), &count);
  file->end = file->next + count;
  return file->status;
}

int32_t deflate_some(FileState* s, const char* data, std::size_t size, int flush) {
  s->z.next_in = bytes(const_cast<char*>(data));
  s->z.avail_in = static_cast<uInt>(size);  // at most one block
  int code = Z_OK;
  do {
    s->z.next_out = bytes(s->packed.data());
    s->z.avail_out = static_cast<uInt>(s->packed.size());
    code = deflate(&s->z, flush);
    const int32_t status = fd_write(s, s->packed.data(), s->packed.size() - s->z.avail_out);
    if (status != SYS_OK) return status;
  } while (s->z.avail_out == 0 || (flush == Z_FINISH && code == Z_OK));
  return SYS_OK;
}

int32_t flush_block(File* file) {
  FileState* s = file->state;
  const auto size = static_cast<std::size_t>(file->next - s->buffer.data());
  file->next = s->buffer.data();
  if (file->status == SYS_OK && size != 0) {
    file->status =
        s->compressed ? deflate_some(s, s->buffer.data(), size, Z_NO_FLUSH) : fd_write(s, s->buffer.data(), size);
  }
  return file->status;
}

int32_t open_descriptor(FileState* s, const char* path) {
  const int flags = s->mode == FileMode::read     ? O_RDONLY
                    : s->mode == FileMode::append ? O_WRONLY | O_CREAT | O_APPEND
                                                  : O_WRONLY | O_CREAT | O_TRUNC;
  s->fd = ::open(path, flags | O_CLOEXEC, 0666);
  if (s->fd < 0) return SYS_FILE_OPEN;
  struct stat about {};
  return ::fstat(s->fd, &about) != 0 || S_ISDIR(about.st_mode) ? SYS_FILE_OPEN : SYS_OK;
}

// A plain file that was opened as a compressed one is read as it is; the bytes looked at so far go to the buffer.
int32_t start_inflate(FileState* s) {
  s->z.next_in = bytes(s->packed.data());
  const int32_t status = refill_packed(s, 2);
  if (status != SYS_OK) return status;
  if (!at_member(s)) {
    s->compressed = false;
    std::memcpy(s->buffer.data(), s->z.next_in, s->z.avail_in);
    s->file.end = s->file.next + s->z.avail_in;
    return SYS_OK;
  }
  return inflateInit2(&s->z, 15 + 16) == Z_OK ? SYS_OK : SYS_SPACE;
}

int32_t start(FileState* s, const char* path) {
  if (!s->buffer.alloc(s->env, block)) return SYS_SPACE;
  if (s->compressed && !s->packed.alloc(s->env, block)) return SYS_SPACE;
  const int32_t status = open_descriptor(s, path);
  if (status != SYS_OK) return status;
  const bool reading = s->mode == FileMode::read;
  s->file.next = s->buffer.data();
  s->file.end = s->file.next + (reading ? 0 : s->buffer.size());
  if (!s->compressed) return SYS_OK;
  s->z.zalloc = zlib_alloc;
  s->z.zfree = zlib_free;
  s->z.opaque = s->env;
  if (reading) return start_inflate(s);
  return deflateInit2(&s->z, level, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) == Z_OK ? SYS_OK : SYS_SPACE;
}

// Frees everything; false when the descriptor could not be closed properly.
bool discard(FileState* s) {
  if (s->z.state != nullptr) {
    if (s->mode == FileMode::read) {
      inflateEnd(&s->z);
    } else {
      deflateEnd(&s->z);
    }
  }
  const bool closed = s->fd < 0 || ::close(s->fd) == 0;
  sysenv* env = s->env;
  s->~FileState();
  sysenv_free(env, s);
  return closed;
}

}  // namespace

int32_t file_open(sysenv* env, const char* path, FileMode mode, bool compressed, File** file) {
  *file = nullptr;
  if (path == nullptr) return SYS_FILE_OPEN;
  void* place = sysenv_calloc(env, 1, sizeof(FileState));
  if (place == nullptr) return SYS_SPACE;
  auto* s = new (place) FileState{};
  s->file.state = s;
  s->env = env;
  s->fd = -1;
  s->mode = mode;
  s->compressed = compressed;
  const int32_t status = start(s, path);
  if (status != SYS_OK) {
    discard(s);
    return status;
  }
  *file = &s->file;
  return SYS_OK;
}

int32_t file_close(File** file) {
  if (*file == nullptr) return SYS_OK;
  FileState* s = (*file)->state;
  if (s->mode != FileMode::read && flush_block(*file) == SYS_OK && s->compressed) {
    (*file)->status = deflate_some(s, nullptr, 0, Z_FINISH);
  }
  int32_t status = (*file)->status;
  const bool writing = s->mode != FileMode::read;
  if (!discard(s) && writing && status == SYS_OK) status = SYS_FILE_WRITE;
  *file = nullptr;
  return status;
}

int32_t file_read(File* file, void* data, std::size_t size, std::size_t* count) {
  char* out = static_cast<char*>(data);
  std::size_t done = 0;
  while (done < size) {
    if (file->next == file->end && (fill(file) != SYS_OK || file->next == file->end)) break;
    const std::size_t n = std::min(size - done, static_cast<std::size_t>(file->end - file->next));
    std::memcpy(out + done, file->next, n);
    file->next += n;
    done += n;
  }
  *count = done;
  if (file->status != SYS_OK) return file->status;
  return done == 0 && size != 0 ? SYS_END_OF_FILE : SYS_OK;
}

int32_t file_readall(File* file, Array<char>* text, std::size_t* size) {
  FileState* s = file->state;
  *size = 0;
  if (file->status != SYS_OK) return file->status;
  auto used = static_cast<std::size_t>(file->end - file->next);
  struct stat about {};
  std::size_t expected = block;
  if (!s->compressed && ::fstat(s->fd, &about) == 0 && about.st_size > 0) {
    expected = static_cast<std::size_t>(about.st_size) + 1;  // one more, so that the end shows without growing
  }
  if (!text->alloc(s->env, std::max(used, expected) + readall_padding)) return file->status = SYS_SPACE;
  if (used != 0) std::memcpy(text->data(), file->next, used);
  file->next = file->end;
  for (;;) {
    if (text->size() - used <= readall_padding && !text->resize_keep(s->env, 2 * text->size())) {
      return file->status = SYS_SPACE;
    }
    std::size_t count = 0;
    file->status = source(s, text->data() + used, text->size() - used - readall_padding, &count);
    if (file->status != SYS_OK) return file->status;
    if (count == 0) break;
    used += count;
  }
  std::memset(text->data() + used, 0, readall_padding);
  *size = used;
  return SYS_OK;
}

int32_t file_readline(File* file, char* line, int32_t capacity, int32_t* length) {
  int32_t used = 0;
  bool any = false;
  while (file->next != file->end || (fill(file) == SYS_OK && file->next != file->end)) {
    const char c = *file->next;
    if (c != '\n' && c != '\r') {
      if (used == capacity - 1) break;
      line[used++] = c;
    }
    any = true;
    ++file->next;
    if (c == '\n') break;
  }
  line[used] = '\0';
  *length = used;
  if (file->status != SYS_OK) return file->status;
  return any ? SYS_OK : SYS_END_OF_FILE;
}

int32_t file_write_slow(File* file, const void* data, std::size_t size) {
  const char* in = static_cast<const char*>(data);
  while (size != 0 && file->status == SYS_OK) {
    if (file->next == file->end) flush_block(file);
    const std::size_t n = std::min(size, static_cast<std::size_t>(file->end - file->next));
    std::memcpy(file->next, in, n);
    file->next += n;
    in += n;
    size -= n;
  }
  return file->status;
}

}  // namespace tarvo
