#include "cpub/filebuffer.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvo {
namespace {

// Gives a text in pieces of uneven size, and fails at its end if told so.
struct Source {
  std::string text;
  std::size_t at = 0;
  bool fails = false;
};
int64_t read_source(void* handle, char* data, int64_t count) {
  auto* s = static_cast<Source*>(handle);
  const std::size_t n = std::min({static_cast<std::size_t>(count), s->text.size() - s->at, std::size_t{9001}});
  if (n == 0 && s->fails) return -1;
  std::memcpy(data, s->text.data() + s->at, n);
  s->at += n;
  return static_cast<int64_t>(n);
}

class Buffer : public testing::Test {
 protected:
  void SetUp() override {
    env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
    for (int k = 0; k < 60000; ++k) source.text += k % 97 == 96 ? '\n' : static_cast<char>(k % 251);
  }
  void TearDown() override {
    FileBuffer_delete(&buffer);
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
  }
  void open() { buffer = FileBuffer_new(env, {&source, read_source}); }
  int32_t at(std::size_t k) const { return static_cast<unsigned char>(source.text[k]); }
  void expect_rest(std::size_t from) {
    for (std::size_t k = from; k < source.text.size(); ++k) ASSERT_EQ(FileBuffer_getc(buffer), at(k)) << k;
    EXPECT_EQ(FileBuffer_getc(buffer), -1);
    EXPECT_EQ(FileBuffer_peek(buffer), -1);
    EXPECT_EQ(buffer->bytes, static_cast<int64_t>(source.text.size()));
    EXPECT_EQ(buffer->line, std::count(source.text.begin(), source.text.end(), '\n'));
  }

  sysenv* env = nullptr;
  Source source;
  FileBuffer* buffer = nullptr;
};

TEST_F(Buffer, PushesBackInFrontOfALink) {
  open();
  for (std::size_t k = 0; k < 300; ++k) EXPECT_EQ(FileBuffer_getc(buffer), at(k));
  for (std::size_t k = 300; k-- > 0;) EXPECT_EQ(FileBuffer_ungetc(buffer, at(k)), SYS_OK);
  EXPECT_EQ(FileBuffer_ungetc(buffer, 'x'), SYS_OK);
  EXPECT_EQ(FileBuffer_peek(buffer), 'x');
  EXPECT_EQ(FileBuffer_getc(buffer), 'x');
  EXPECT_EQ(buffer->bytes, 0);
  EXPECT_EQ(buffer->line, 0);
  expect_rest(0);
  EXPECT_EQ(FileBuffer_ungetc(buffer, 'y'), SYS_OK);
  EXPECT_EQ(FileBuffer_getc(buffer), 'y');
  EXPECT_EQ(FileBuffer_getc(buffer), -1);
}

TEST_F(Buffer, CursorsLookAheadOverLinks) {
  open();
  for (std::size_t k = 0; k < 100; ++k) FileBuffer_getc(buffer);
  FileBufferCursor far{};
  FileBufferCursor_reset(&far, buffer);
  for (std::size_t k = 100; k < 50000; ++k) ASSERT_EQ(FileBufferCursor_getc(&far), at(k));
  FileBufferCursor back = far;
  FileBufferCursor_rewind(&back, 40000);
  EXPECT_EQ(back.bytes, 10000);
  for (std::size_t k = 10000; k < 50000; ++k) ASSERT_EQ(FileBufferCursor_getc(&back), at(k));
  EXPECT_EQ(back.line, far.line);
  EXPECT_EQ(back.column, far.column);
  FileBufferCursor_rewind(&back, 1000000);
  EXPECT_EQ(FileBufferCursor_getc(&back), at(100));
  EXPECT_EQ(FileBuffer_peek(buffer), at(100));

  FileBuffer_skipto(buffer, far);
  EXPECT_EQ(buffer->link->previous, nullptr);
  expect_rest(50000);
  FileBufferCursor_reset(&far, buffer);
  EXPECT_EQ(FileBufferCursor_getc(&far), -1);
}

TEST_F(Buffer, StandsOnACompressedFile) {
  const std::string path = testing::TempDir() + "filebuffer_test.gz";
  File* file = nullptr;
  ASSERT_EQ(file_open(env, path.c_str(), FileMode::write, true, &file), SYS_OK);
  file_write(file, source.text.data(), source.text.size());
  ASSERT_EQ(file_close(&file), SYS_OK);
  ASSERT_EQ(file_open(env, path.c_str(), FileMode::read, true, &file), SYS_OK);
  buffer = FileBuffer_new(env, filebuffer_stream(file));
  expect_rest(0);
  EXPECT_EQ(buffer->status, SYS_OK);
  EXPECT_EQ(file_close(&file), SYS_OK);
}

TEST_F(Buffer, TellsAFailedStream) {
  source.fails = true;
  open();
  FileBufferCursor cursor{};
  FileBufferCursor_reset(&cursor, buffer);
  int64_t count = 0;
  while (FileBufferCursor_getc(&cursor) >= 0) ++count;
  EXPECT_EQ(count, 60000);
  EXPECT_EQ(buffer->status, SYS_FILE_READ);
}

}  // namespace
}  // namespace tarvo
