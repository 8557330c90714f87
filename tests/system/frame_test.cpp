// The objects' life, the report route and the streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tarvo.h"

namespace {

using Lines = std::vector<std::string>;

void collect(void* handle, const char* text) { static_cast<Lines*>(handle)->emplace_back(text); }

std::string joined(const Lines& lines) {
  std::string all;
  for (const std::string& line : lines) all += line;
  return all;
}

std::string file_text(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct Responder {
  int32_t answer = 0;
  Lines texts;
};
int32_t respond(void* handle, int32_t, const char* text) {
  auto* responder = static_cast<Responder*>(handle);
  responder->texts.emplace_back(text);
  return responder->answer;
}

class Frame : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
    for (int32_t k = 0; k < 4; ++k) {
      TRV_linkfunctotaskstream(task, k, &text[k], collect);
      TRV_linkfunctoenvstream(env, k, &envtext[k], collect);
    }
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  std::string last_error(int32_t* code = nullptr, int32_t* len = nullptr) {
    char buffer[1025];
    EXPECT_EQ(TRV_getlasterror(task, code, sizeof buffer, len, buffer), 0);
    return buffer;
  }
  std::string temporary(const char* name) {
    return testing::TempDir() + "tarvo_" + testing::UnitTest::GetInstance()->current_test_info()->name() + name;
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  Lines text[4], envtext[4];
};

TEST(Lifetime, BadObjectsAreRefusedSilently) {
  alignas(16) static char zeros[1 << 17] = {};
  auto* badtask = reinterpret_cast<TRVtask>(zeros);
  auto* badenv = reinterpret_cast<TRVenv>(zeros);
  TRVtask task = nullptr;
  TRVenv env = nullptr;
  EXPECT_EQ(TRV_maketask(nullptr, 0, 0, &task), TRV_RES_ERR_NULL_ENV);
  EXPECT_EQ(TRV_maketask(badenv, 0, 0, &task), TRV_RES_ERR_NO_INIT_ENV);
  EXPECT_EQ(TRV_getenv(nullptr, &env), TRV_RES_ERR_NULL_TASK);
  EXPECT_EQ(TRV_getenv(badtask, &env), TRV_RES_ERR_INVALID_TASK);
  EXPECT_EQ(TRV_deletetask(&badtask), TRV_RES_ERR_INVALID_TASK);
  EXPECT_EQ(TRV_deletetask(&task), 0);
  EXPECT_EQ(TRV_deleteenv(&env), 0);
}

TEST(Lifetime, SettingsComeBeforeInitialisation) {
  TRVenv env = nullptr;
  ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
  TRVtask task = nullptr;
  EXPECT_EQ(TRV_makeemptytask(env, &task), TRV_RES_ERR_NO_INIT_ENV);
  Lines text;
  EXPECT_EQ(TRV_linkfunctoenvstream(env, TRV_STREAM_MSG, &text, collect), 0);
  EXPECT_EQ(TRV_echoenv(env, TRV_STREAM_MSG, "%d\n", 7), 0);
  EXPECT_EQ(text, Lines{"7\n"});
  EXPECT_EQ(TRV_putdllpath(env, "a;b"), 0);
  EXPECT_EQ(TRV_putdllpath(env, nullptr), 0);
  EXPECT_EQ(TRV_putcpudefaults(env, TRV_CPU_GENERIC, 31, 257), 0);
  EXPECT_EQ(TRV_initenv(env), 0);
  EXPECT_EQ(TRV_initenv(env), 0);
  ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
  int32_t size = 0;
  EXPECT_EQ(TRV_getintparam(task, TRV_IPAR_CACHE_SIZE_L1, &size), 0);
  EXPECT_EQ(size, 31);
  EXPECT_EQ(TRV_getintinf(task, TRV_IINF_CACHE_SIZE_L2, &size), 0);
  EXPECT_EQ(size, 257);
  EXPECT_EQ(TRV_deletetask(&task), 0);
  EXPECT_EQ(TRV_deleteenv(&env), 0);
}

TEST(Lifetime, LeakedBlocksAreToldAndTheObjectsAreGone) {
  const std::string stem = testing::TempDir() + "tarvo_leak";
  std::set<void*> blocks;
  const TRVallocfunc take = [](void* handle, size_t size) {
    return *static_cast<std::set<void*>*>(handle)->insert(std::malloc(size)).first;
  };
  const TRVfreefunc give = [](void* handle, void* block) {
    static_cast<std::set<void*>*>(handle)->erase(block);
    std::free(block);
  };
  TRVenv env = nullptr;
  ASSERT_EQ(TRV_makeenv(&env, &blocks, take, give, stem.c_str()), 0);
  ASSERT_EQ(TRV_initenv(env), 0);
  TRVtask tasks[2] = {};
  for (TRVtask& task : tasks) ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
  size_t before = 0;
  size_t after = 0;
  EXPECT_EQ(TRV_getmemusagetask(tasks[0], &before, nullptr), 0);
  void* lost = TRV_calloctask(tasks[0], 10, 8);
  EXPECT_EQ(TRV_getmemusagetask(tasks[0], &after, nullptr), 0);
  EXPECT_EQ(after - before, 80U);
  EXPECT_NE(lost, nullptr);
  EXPECT_EQ(TRV_deletetask(&tasks[0]), TRV_RES_ERR_SPACE_LEAKING);
  EXPECT_EQ(tasks[0], nullptr);
  EXPECT_EQ(TRV_deletetask(&tasks[1]), 0);
  EXPECT_EQ(TRV_deleteenv(&env), 0);
  EXPECT_EQ(blocks.size(), 1U);
  for (void* block : blocks) std::free(block);
  for (const char* file : {".env.txt", ".0.task.txt", ".1.task.txt"}) {
    EXPECT_EQ(file_text(stem + file).rfind("Header: TARVO memory debugging.", 0), 0U) << file;
  }
  EXPECT_NE(file_text(stem + ".env.txt").find("Number of task created: 2 Number of deleted task: 2\n"),
            std::string::npos);
}

TEST(Lifetime, FatalErrorsReachTheExitFunction) {
  // A guard of a block is damaged in a child process, whose exit function gives the status or comes back.
  const auto damage = [](TRVexitfunc func) {
    TRVenv env = nullptr;
    TRVtask task = nullptr;
    TRV_makeenv(&env, nullptr, nullptr, nullptr, "");
    TRV_putexitfunc(env, func, nullptr);
    TRV_initenv(env);
    TRV_makeemptytask(env, &task);
    auto* block = static_cast<char*>(TRV_calloctask(task, 16, 1));
    block[16] = 0;
    TRV_checkmemtask(task, "f.c", 9);
  };
  EXPECT_EXIT(damage([](void*, const char*, int32_t, const char*) { std::_Exit(77); }), testing::ExitedWithCode(77),
              "");
  EXPECT_EXIT(damage([](void*, const char*, int32_t, const char*) {}), testing::ExitedWithCode(256 - 99), "");
}

TEST_F(Frame, ErrorsAlwaysComeBack) {
  Responder responder;
  TRV_putresponsefunc(task, respond, &responder);
  EXPECT_EQ(TRV_exceptiontask(task, 1203, -5, "i"), 1203);
  const Lines line{"TARVO Error 1203     : The index value -5 occurring in argument 'i' is too small.\n"};
  EXPECT_EQ(text[TRV_STREAM_ERR], line);
  EXPECT_EQ(text[TRV_STREAM_LOG], line);
  EXPECT_EQ(responder.texts, Lines{"The index value -5 occurring in argument 'i' is too small."});
  int32_t code = 0;
  int32_t len = 0;
  EXPECT_EQ(last_error(&code, &len), responder.texts[0]);
  EXPECT_EQ(code, 1203);
  EXPECT_EQ(static_cast<size_t>(len), responder.texts[0].size());
  char part[10];
  EXPECT_EQ(TRV_getlasterror(task, nullptr, sizeof part, nullptr, part), 0);
  EXPECT_STREQ(part, "The index");
  EXPECT_EQ(TRV_exceptiontask(task, 0), 0);
  EXPECT_EQ(last_error(&code), "");
  EXPECT_EQ(code, 0);
}

TEST_F(Frame, WarningsAreCountedAndAnsweredByTheResponseFunction) {
  Responder responder;
  TRV_putresponsefunc(task, respond, &responder);
  for (int k = 0; k < 11; ++k) EXPECT_EQ(TRV_exceptiontask(task, 51, 1e9, "variable", "x1", 0), 0);
  EXPECT_EQ(text[TRV_STREAM_WRN].size(), 10U);
  EXPECT_EQ(text[TRV_STREAM_WRN].back(),
            "TARVO Warning 51     : A large bound of value  1.0e+09 has been specified for variable 'x1' (0).\n");
  EXPECT_EQ(responder.texts.size(), 11U);
  EXPECT_EQ(last_error(), "");
  responder.answer = 7;
  int32_t code = 0;
  EXPECT_EQ(TRV_exceptiontask(task, 51, 1e9, "variable", "x1", 0), 7);
  EXPECT_EQ(last_error(&code), responder.texts.back());
  EXPECT_EQ(code, 7);
}

TEST_F(Frame, OddCodesIndexNothing) {
  for (const int32_t code : {-1, INT32_MIN, 1000, 999, 1, 999999, INT32_MAX}) {
    const bool warning = code > 0 && code < 1000;
    EXPECT_EQ(TRV_exceptiontask(task, code), warning ? 0 : code);
    EXPECT_EQ(TRV_exceptionenv(env, code), warning ? 0 : code);
    if (!warning) {
      EXPECT_EQ(last_error(), "No message for this code.");
    }
  }
}

TEST_F(Frame, LocationIsPrintedOnDemand) {
  TRV_putintparam(task, TRV_IPAR_LOG_RESPONSE, 1);
  TRV_exceptiontask(task, 1051);
  ASSERT_EQ(text[TRV_STREAM_ERR].size(), 5U);
  EXPECT_EQ(text[TRV_STREAM_ERR][1], "Location of the error.\n");
  EXPECT_EQ(text[TRV_STREAM_ERR][2].rfind("File                : ", 0), 0U);
  EXPECT_EQ(text[TRV_STREAM_ERR][2].find('/'), std::string::npos);
  EXPECT_EQ(text[TRV_STREAM_ERR][4].rfind("Function            : ", 0), 0U);
}

// A response function that reports on its own task doesn't disturb the report that it answers.
TEST_F(Frame, ResponseFunctionMayReport) {
  const auto nested = [](void* handle, int32_t code, const char* body) -> int32_t {
    auto* owner = static_cast<TRVtask>(handle);
    const std::string before = body;
    if (code == 1203) TRV_exceptiontask(owner, 1204, 9, "j");
    EXPECT_EQ(body, before);
    return 0;
  };
  TRV_putresponsefunc(task, nested, task);
  EXPECT_EQ(TRV_exceptiontask(task, 1203, -1, "i"), 1203);
  int32_t code = 0;
  EXPECT_EQ(last_error(&code), "The index value -1 occurring in argument 'i' is too small.");
  EXPECT_EQ(code, 1203);
}

TEST_F(Frame, VersionsAreCompared) {
  EXPECT_EQ(TRV_checkversion(env, 5, 0, 0, 127), 0);
  EXPECT_EQ(TRV_checkversion(env, 4, 9, 9, 999), TRV_RES_ERR_NEWER_DLL);
  envtext[TRV_STREAM_ERR].clear();
  EXPECT_EQ(TRV_checkversion(env, 5, 0, 0, 128), TRV_RES_ERR_OLDER_DLL);
  EXPECT_EQ(joined(envtext[TRV_STREAM_ERR]),
            "TARVO Error 1035     : The dynamic link library version 5.0.0.127 is older than expected version "
            "5.0.0.128.\n");
}

TEST_F(Frame, LinesGoOutWhole) {
  TRV_echoenv(env, TRV_STREAM_MSG, "a");
  EXPECT_TRUE(envtext[TRV_STREAM_MSG].empty());
  TRV_echoenv(env, TRV_STREAM_ERR, "e\n");  // joins what waits on the log
  TRV_echoenv(env, TRV_STREAM_MSG, "b\nc\nd");
  EXPECT_EQ(envtext[TRV_STREAM_MSG], (Lines{"ab\n", "c\n"}));
  EXPECT_EQ(envtext[TRV_STREAM_LOG], (Lines{"ae\n", "b\n", "c\n"}));
  EXPECT_EQ(TRV_echotask(task, TRV_STREAM_MSG, "x"), 0);  // flushes its own stream
  EXPECT_EQ(text[TRV_STREAM_MSG], Lines{"x"});
  EXPECT_TRUE(text[TRV_STREAM_LOG].empty());
}

TEST_F(Frame, LongTextIsCutIntoBuffersAndAtTheEnd) {
  const std::string full(1024, 'x');
  TRV_echoenv(env, TRV_STREAM_MSG, "%s", full.c_str());
  EXPECT_EQ(envtext[TRV_STREAM_MSG], Lines{full});
  EXPECT_EQ(envtext[TRV_STREAM_LOG], Lines{full});
  envtext[TRV_STREAM_MSG].clear();
  TRV_echoenv(env, TRV_STREAM_MSG, "%s", std::string(5000, 'y').c_str());
  TRV_unlinkfuncfromenvstream(env, TRV_STREAM_MSG);
  EXPECT_EQ(joined(envtext[TRV_STREAM_MSG]).size(), 4047U);
}

// A stream function that writes to its own streams neither recurses without end nor locks itself out.
TEST_F(Frame, StreamFunctionMayWrite) {
  struct Echo {
    TRVenv env;
    int calls;
  } echo{env, 0};
  const auto again = [](void* handle, const char*) {
    auto* self = static_cast<Echo*>(handle);
    ++self->calls;
    TRV_echoenv(self->env, TRV_STREAM_MSG, "again\n");
    TRV_echoenv(self->env, TRV_STREAM_ERR, "other\n");
  };
  TRV_linkfunctoenvstream(env, TRV_STREAM_MSG, &echo, again);
  TRV_echoenv(env, TRV_STREAM_MSG, "once\n");
  EXPECT_EQ(echo.calls, 1);
  EXPECT_EQ(envtext[TRV_STREAM_ERR], Lines{"other\n"});
}

TEST_F(Frame, EnvironmentServesSeveralThreads) {
  TRV_putctrlcfunc(
      env, [](void*) { return 0; }, nullptr);
  envtext[TRV_STREAM_MSG].clear();
  const auto work = [this](int which) {
    for (int k = 0; k < 50; ++k) {
      TRVtask own = nullptr;
      EXPECT_EQ(TRV_maketask(env, 10, 10, &own), 0);
      EXPECT_EQ(TRV_putintparam(own, TRV_IPAR_CHECK_CTRL_C, TRV_ON), 0);
      TRV_optimize(own);
      TRV_echoenv(env, TRV_STREAM_MSG, "thread %d round %d\n", which, k);
      TRV_exceptionenv(env, 51, 1e9, "variable", "x1", 0);
      EXPECT_EQ(TRV_deletetask(&own), 0);
    }
  };
  std::vector<std::thread> threads;
  for (int which = 0; which < 4; ++which) threads.emplace_back(work, which);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(envtext[TRV_STREAM_MSG].size(), 200U);
  EXPECT_TRUE(std::all_of(envtext[TRV_STREAM_MSG].begin(), envtext[TRV_STREAM_MSG].end(), [](const std::string& line) {
    return line.rfind("thread ", 0) == 0 && line.back() == '\n';
  }));
}

TEST_F(Frame, BadStreamsAreRefusedSilently) {
  for (const int32_t stream : {-1, 4}) {
    EXPECT_EQ(TRV_echotask(task, stream, "x"), TRV_RES_ERR_INVALID_STREAM);
    EXPECT_EQ(TRV_echoenv(env, stream, "x"), TRV_RES_ERR_INVALID_STREAM);
    EXPECT_EQ(TRV_linkfiletotaskstream(task, stream, "x", 0), TRV_RES_ERR_INVALID_STREAM);
    EXPECT_EQ(TRV_linkfunctotaskstream(task, stream, nullptr, nullptr), TRV_RES_ERR_INVALID_STREAM);
  }
  EXPECT_EQ(last_error(), "");
}

TEST_F(Frame, FilesTellWhenTheyOpenAndClose) {
  const std::string path = temporary(".log");
  EXPECT_EQ(TRV_linkfiletotaskstream(task, TRV_STREAM_MSG, path.c_str(), 0), 0);
  TRV_echotask(task, TRV_STREAM_MSG, "hello\n");
  EXPECT_EQ(TRV_linkfiletotaskstream(task, TRV_STREAM_MSG, nullptr, 0), 0);
  EXPECT_EQ(TRV_linkfiletotaskstream(task, TRV_STREAM_MSG, path.c_str(), 1), 0);
  EXPECT_EQ(TRV_linkfiletotaskstream(task, TRV_STREAM_MSG, nullptr, 1), 0);
  const std::string content = file_text(path);
  EXPECT_EQ(content.rfind("\nFile opened at ", 0), 0U);
  EXPECT_NE(content.find(" by TARVO version 5.0.0.127.\nhello\n\nFile closed: "), std::string::npos);
  EXPECT_NE(content.find("\nFile reopened at "), std::string::npos);
  EXPECT_EQ(content.rfind("File closed"), content.find("File closed"));
  EXPECT_EQ(TRV_linkfiletotaskstream(task, TRV_STREAM_MSG, "/nowhere/at/all", 0), 0);
}

TEST_F(Frame, StatisticsCountTheirLines) {
  for (const bool xml : {false, true}) {
    const std::string path = temporary(xml ? ".xml.stat" : ".csv");
    TRV_putstrparam(task, TRV_SPAR_STAT_FILE_NAME, path.c_str());
    TRV_putstrparam(task, TRV_SPAR_STAT_NAME, "a<b&c");
    EXPECT_EQ(TRV_startstat(task), 0);
    EXPECT_EQ(TRV_appendstat(task), 0);
    EXPECT_EQ(TRV_stopstat(task), 0);
    const std::string content = file_text(path);
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), xml ? 3 + 3 + 260 : 260);
    EXPECT_NE(content.find(xml ? "name=\"a&lt;b&amp;c\"" : "a<b&c,,TRV_DINF_BI_CLEAN_CPUTIME,0.0"), std::string::npos);
  }
}

TEST_F(Frame, ParametersAreListedWithTheirRanges) {
  EXPECT_EQ(TRV_printparam(task), 0);
  const std::string all = joined(text[TRV_STREAM_MSG]);
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 1 + 186 + 2 + 61 + 2 + 25);
  EXPECT_NE(all.find("0   TRV_IPAR_ALLOC_ADD_QNZ           : 5000                 0                    NONE "),
            std::string::npos);
}

}  // namespace
