#include "cpub/memman.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cpub/md5.h"

namespace tarvo {
namespace {

using testing::ExitedWithCode;

void exit_77(void*, const char* file, int32_t line, const char* text, int32_t) {
  std::fprintf(stderr, "%s(%d): %s\n", file, line, text);
  _exit(77);
}

char* debug_block(sysenv** env, std::size_t size) {
  *env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  sysenv_putfatal(*env, nullptr, exit_77);
  return static_cast<char*>(sysenv_malloc(*env, 1, size));
}

// Each damage ends the process through the fatal hook with its own message; without the hook with status -99.
TEST(MemmanDeathTest, DamagedMemoryIsTold) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  sysenv* env = nullptr;
  char* p = debug_block(&env, 16);
  const Location here{"f.c", 9};
  EXPECT_EXIT((p[16] = 1, sysenv_scan(env, here)), ExitedWithCode(77),
              R"(f\.c\(9\): Block: 0x.* guard pos: 0 expected: 32 got 1)");
  EXPECT_EXIT((p[-1] = 1, sysenv_free(env, p, here)), ExitedWithCode(77), "pos: b7 expected: 39 got 1");
  EXPECT_EXIT(sysenv_free(env, p + 1, here), ExitedWithCode(77), "it is not in the allocation list");
  EXPECT_EXIT((void)sysenv_realloc(env, 32, 15, p), ExitedWithCode(77), "Claimed size: 0:0:0:15 Actual size: 0:0:0:16");
  EXPECT_EXIT(
      {
        sysenv_lockblock(env, p);
        p[3] ^= 1;
        sysenv_scan(env);
      },
      ExitedWithCode(77), "Locked block .* has been changed");
  EXPECT_EXIT((sysenv_putfatal(env, nullptr, nullptr), p[16] = 1, sysenv_scan(env)), ExitedWithCode(157), "guard pos");
  EXPECT_EXIT(sysenv_free(env, env), ExitedWithCode(77), "Freeing sysenv");
  sysenv_lockblock(env, p);
  sysenv_unlockall(env);
  p[3] = 1;
  sysenv_free(env, p);
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

TEST(Memman, UsageLeaksAndTheDebugFile) {
  sysenv* env = sysenv_make(SysKind::environment, true, nullptr, nullptr, nullptr);
  const std::string name = testing::TempDir() + "memman_debug.txt";
  ASSERT_EQ(sysenv_debugfile(env, name.c_str(), "a test"), SYS_OK);
  std::size_t before = 0, current = 0, maximum = 0;
  ASSERT_TRUE(sysenv_usage(env, &before, &maximum));
  void* p = sysenv_calloc(env, 10, 8);
  sysenv_usage(env, &current, &maximum);
  EXPECT_EQ(current, before + 80);
  EXPECT_GE(maximum, current);
  sysenv_free(env, p);
  sysenv_usage(env, &current, &maximum);
  EXPECT_EQ(current, before);
  EXPECT_GE(maximum, before + 80);
  EXPECT_EQ(sysenv_malloc(env, 0, 8), nullptr);
  EXPECT_EQ(sysenv_malloc(env, SIZE_MAX / 2, 4), nullptr);
  EXPECT_EQ(sysenv_malloc(env, 1, SIZE_MAX), nullptr);

  // Enough blocks for the look-up to grow, freed in another order; two stay, which the fixed memory below outlives.
  std::vector<void*> blocks(5000);
  for (void*& b : blocks) b = sysenv_malloc(env, 1, 3);
  for (std::size_t k = 0; k < blocks.size() - 2; ++k) sysenv_free(env, blocks[(k * 11) % (blocks.size() - 2)]);
  sysenv_scan(env);
  EXPECT_EQ(sysenv_delete(&env), SYS_LEAKING);
  EXPECT_EQ(env, nullptr);
  for (std::size_t k = blocks.size() - 2; k < blocks.size(); ++k) std::free(static_cast<char*>(blocks[k]) - 8);

  std::ostringstream text;
  text << std::ifstream(name).rdbuf();
  for (const char* part : {"Header: a test\n", "Allocted ()   a zero block", "Number of blocks: 3 ",
                           "**** ALLOCATED  BLOCKS LEFT\n", "Done checking leaks\n", "File closed: "}) {
    EXPECT_NE(text.str().find(part), std::string::npos) << part;
  }
}

// The caller's functions are used only as a pair, for everything, and balance.
TEST(Memman, CallersAllocator) {
  static int balance;
  static int calls;
  balance = calls = 0;
  AllocFunc give = [](void*, std::size_t n) { return ++balance, ++calls, std::malloc(n); };
  FreeFunc take = [](void*, void* p) { --balance, ++calls, std::free(p); };
  sysenv* env = sysenv_make(SysKind::task, false, nullptr, give, nullptr);
  EXPECT_EQ(calls, 0);
  sysenv_delete(&env);
  for (const bool debug : {false, true}) {
    env = sysenv_make(SysKind::environment, debug, nullptr, give, take);
    char* text = sysenv_strdup(env, nullptr);
    EXPECT_STREQ(text, "");
    text = static_cast<char*>(sysenv_realloc(env, 100, 1, text));
    sysenv_free(env, text);
    EXPECT_EQ(sysenv_delete(&env), SYS_OK);
    EXPECT_EQ(balance, 0);
  }
  EXPECT_GT(calls, 0);
}

TEST(Memman, ThreadsShareAnEnvironment) {
  sysenv* env = sysenv_make(SysKind::environment, true, nullptr, nullptr, nullptr);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([env] {
      void* kept[8] = {};
      for (int k = 0; k < 2000; ++k) {
        sysenv_free(env, kept[k % 8]);
        kept[k % 8] = sysenv_calloc(env, 1, static_cast<std::size_t>(k % 50 + 1));
      }
      for (void* p : kept) sysenv_free(env, p);
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

TEST(Md5, KnownDigests) {
  const auto hex = [](const char* text) {
    std::string out;
    char pair[3];
    const Md5Digest digest = md5(text, std::strlen(text));
    for (const unsigned char byte : digest.byte) {
      std::snprintf(pair, sizeof pair, "%02x", byte);
      out += pair;
    }
    return out;
  };
  EXPECT_EQ(hex(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(hex("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"), "d174ab98d277d9f5a5611c2c9f419d9f");
}

}  // namespace
}  // namespace tarvo
