#include "cpub/sysfile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

namespace tarvo {
namespace {

class Files : public testing::Test {
 protected:
  void SetUp() override { env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr); }
  void TearDown() override { EXPECT_EQ(sysenv_delete(&env), SYS_OK); }

  int32_t put(const std::string& text, FileMode mode, bool compressed) {
    File* file = nullptr;
    const int32_t status = file_open(env, path.c_str(), mode, compressed, &file);
    if (status != SYS_OK) return status;
    for (std::size_t k = 0; k < text.size(); k += 1000)
      file_write(file, text.data() + k, std::min<std::size_t>(1000, text.size() - k));
    return file_close(&file);
  }
  int32_t get(std::string* text, bool compressed, std::size_t taken_before = 0) {
    File* file = nullptr;
    int32_t status = file_open(env, path.c_str(), FileMode::read, compressed, &file);
    if (status != SYS_OK) return status;
    text->resize(taken_before);
    std::size_t size = 0;
    if (taken_before != 0) file_read(file, text->data(), taken_before, &size);
    Array<char> rest;
    status = file_readall(file, &rest, &size);
    if (status == SYS_OK) {
      text->append(rest.data(), size);
      for (std::size_t k = 0; k < readall_padding; ++k) EXPECT_EQ(rest[size + k], 0);
    }
    EXPECT_EQ(file_close(&file), status);
    return status;
  }
  void cut(std::size_t bytes) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    std::ofstream(path) << text.str().substr(0, text.str().size() - bytes);
  }

  sysenv* env = nullptr;
  std::string path = testing::TempDir() + "sysfile_test.tmp";
};

std::string sample(std::size_t size) {
  std::string text(size, ' ');
  uint32_t state = 1;
  for (char& c : text) c = static_cast<char>('a' + ((state = state * 1664525 + 1013904223) >> 28));
  return text;
}

TEST_F(Files, ComeBackPlainAndCompressed) {
  for (const std::size_t size : {0U, 1U, 65535U, 65536U, 300000U}) {
    const std::string text = sample(size);
    std::string back;
    for (const bool packed : {false, true}) {
      ASSERT_EQ(put(text, FileMode::write, packed), SYS_OK);
      EXPECT_EQ(get(&back, true), SYS_OK);
      EXPECT_EQ(back, text);
      if (size > 500) {
        EXPECT_EQ(get(&back, true, 500), SYS_OK);
        EXPECT_EQ(back, text);
      }
      // What is appended makes a second member of a compressed file.
      ASSERT_EQ(put("behind", FileMode::append, packed), SYS_OK);
      EXPECT_EQ(get(&back, true), SYS_OK);
      EXPECT_EQ(back, text + "behind");
    }
  }
}

TEST_F(Files, FailuresHaveCodes) {
  File* file = nullptr;
  EXPECT_EQ(file_open(env, nullptr, FileMode::read, false, &file), SYS_FILE_OPEN);
  EXPECT_EQ(file_open(env, (path + "/none").c_str(), FileMode::write, true, &file), SYS_FILE_OPEN);
  EXPECT_EQ(file_open(env, testing::TempDir().c_str(), FileMode::read, false, &file), SYS_FILE_OPEN);
  EXPECT_EQ(file, nullptr);

  std::string back;
  ASSERT_EQ(put(sample(200000), FileMode::write, true), SYS_OK);
  cut(5);  // inside the trailer: all the text is there, but nobody vouches for it
  EXPECT_EQ(get(&back, true), SYS_FILE_READ);
  cut(50000);
  EXPECT_EQ(get(&back, true), SYS_FILE_READ);

  if (file_open(env, "/dev/full", FileMode::write, false, &file) == SYS_OK) {
    file_puts(file, "some text");
    EXPECT_EQ(file_close(&file), SYS_FILE_WRITE);
  }
}

TEST_F(Files, Lines) {
  const std::string longline(70000, 'x');
  ASSERT_EQ(put("one\r\n\n12345678\n12345678abc\n" + longline + "\nlast\r", FileMode::write, true), SYS_OK);
  File* file = nullptr;
  ASSERT_EQ(file_open(env, path.c_str(), FileMode::read, true, &file), SYS_OK);
  char line[9];
  int32_t length = 0;
  for (const char* expected : {"one", "", "12345678", "12345678", "abc"}) {
    EXPECT_EQ(file_readline(file, line, sizeof line, &length), SYS_OK);
    EXPECT_STREQ(line, expected);
    EXPECT_EQ(length, static_cast<int32_t>(std::strlen(expected)));
  }
  std::string big(80000, ' ');
  EXPECT_EQ(file_readline(file, big.data(), 80000, &length), SYS_OK);
  EXPECT_EQ(length, 70000);
  EXPECT_EQ(file_readline(file, line, sizeof line, &length), SYS_OK);
  EXPECT_STREQ(line, "last");
  EXPECT_EQ(file_readline(file, line, sizeof line, &length), SYS_END_OF_FILE);
  EXPECT_EQ(file_close(&file), SYS_OK);
}

}  // namespace
}  // namespace tarvo
