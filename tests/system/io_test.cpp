// Problem files: which format and name a file gets, and what reading and writing leave behind.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

constexpr const char* small_problem =
    "NAME          SMALL\nROWS\n N  COST\n L  LIM1\n E  MYEQN\nCOLUMNS\n"
    "    XONE      COST               1.0   LIM1               1.0\n"
    "    YTWO      COST               2.0   LIM1               1.0\n"
    "    YTWO      MYEQN             -1.0\n"
    "RHS\n    RHS       LIM1               4.0   MYEQN              7.0\n"
    "BOUNDS\n UP BND       XONE               4.0\nENDATA\n";
constexpr const char* free_problem =
    "NAME free\nROWS\n N cost\n L a_limit_with_a_long_name\nCOLUMNS\n"
    " the_only_variable cost 1 a_limit_with_a_long_name 2\nRHS\n r a_limit_with_a_long_name 5\nBOUNDS\nENDATA\n";

std::vector<int32_t> seen;
int32_t see(void*, int32_t code, const char*) {
  seen.push_back(code);
  return 0;
}

class Io : public testing::Test {
 protected:
  void SetUp() override {
    folder = testing::TempDir() + "io_test.d";
    mkdir(folder.c_str(), 0777);
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
    seen.clear();
    TRV_putresponsefunc(task, see, nullptr);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  std::string path(const std::string& name) const { return folder + "/" + name; }
  std::string put(const std::string& name, const std::string& text) const {
    std::ofstream(path(name)) << text;
    return path(name);
  }
  std::string get(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(path(name), std::ios::binary).rdbuf();
    return text.str();
  }
  bool exists(const std::string& name) const { return std::ifstream(path(name)).good(); }
  void discard(const std::string& name) const { std::remove(path(name).c_str()); }
  int32_t numvar() {
    int32_t n = -1;
    TRV_getnumvar(task, &n);
    return n;
  }
  int32_t mps_format() {
    int32_t value = -1;
    TRV_getintparam(task, TRV_IPAR_READ_MPS_FORMAT, &value);
    return value;
  }

  TRVenv env = nullptr;
  TRVtask task = nullptr;
  std::string folder;
};

TEST_F(Io, FailedOpenLeavesTheTaskAndAnUnreadableFormatEmptiesIt) {
  ASSERT_EQ(TRV_readdata(task, put("a.mps", small_problem).c_str()), 0);
  EXPECT_EQ(numvar(), 2);
  EXPECT_EQ(TRV_readdata(task, path("none.mps").c_str()), TRV_RES_ERR_FILE_OPEN);
  char text[2000];
  int32_t code = 0;
  TRV_getlasterror(task, &code, sizeof text, nullptr, text);
  EXPECT_EQ(text, "An error occurred while opening file '" + path("none.mps") + "'.");
  EXPECT_EQ(TRV_readdata(task, folder.c_str()), TRV_RES_ERR_FILE_OPEN);
  EXPECT_EQ(TRV_readdata(task, nullptr), TRV_RES_ERR_FILE_OPEN);
  EXPECT_EQ(numvar(), 2);
  for (const char* name : {"m.xml", "m.lp", "m.opf", "m.tbt"}) {
    EXPECT_EQ(TRV_readdata(task, put(name, "text").c_str()), TRV_RES_ERR_READ_FORMAT) << name;
  }
  EXPECT_EQ(numvar(), 0);
}

TEST_F(Io, ReadingStartsFromAnEmptyTask) {
  const std::string file = put("a.mps", small_problem);
  ASSERT_EQ(TRV_readdata(task, file.c_str()), 0);
  TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MAXIMIZE);
  TRV_putcfix(task, 7);
  TRV_putstrparam(task, TRV_SPAR_DATA_FILE_NAME, put("b.fmps", free_problem).c_str());
  ASSERT_EQ(TRV_readdata(task, ""), 0);
  int32_t sense = -1;
  TRV_getobjsense(task, &sense);
  EXPECT_NE(sense, TRV_OBJECTIVE_SENSE_MAXIMIZE);
  double cfix = -1;
  TRV_getcfix(task, &cfix);
  EXPECT_EQ(cfix, 0);
  char name[100];
  TRV_gettaskname(task, sizeof name, name);
  EXPECT_STREQ(name, "free");
  EXPECT_EQ(numvar(), 1);
  int32_t count = -1;
  TRV_getintinf(task, TRV_IINF_RD_NUMVAR, &count);
  EXPECT_EQ(count, 1);
}

TEST_F(Io, TheExtensionChoosesTheFormat) {
  TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, TRV_MPS_FORMAT_STRICT);
  EXPECT_EQ(TRV_readdata(task, put("m.fmps", free_problem).c_str()), 0);
  EXPECT_EQ(mps_format(), TRV_MPS_FORMAT_STRICT);
  EXPECT_NE(TRV_readdata(task, put("broken.fmps", "ROWS\nnonsense\n").c_str()), 0);
  EXPECT_EQ(mps_format(), TRV_MPS_FORMAT_STRICT);
  mkdir(path("x.lp.d").c_str(), 0777);
  for (const char* name : {"plain", "x.mpsa", "X.MPS", "x.lp.d/plain", "a.lpx", "lp", "mps.txt"}) {
    EXPECT_EQ(TRV_readdata(task, put(name, small_problem).c_str()), 0) << name;
    EXPECT_EQ(numvar(), 2);
  }
  EXPECT_EQ(TRV_readdata(task, put("x.mps.lp.old", small_problem).c_str()), TRV_RES_ERR_READ_FORMAT);
  TRV_putintparam(task, TRV_IPAR_READ_DATA_FORMAT, TRV_DATA_FORMAT_MPS);
  EXPECT_EQ(TRV_readdata(task, path("x.mps.lp.old").c_str()), 0);
}

TEST_F(Io, CompressionByNameAndByParameter) {
  ASSERT_EQ(TRV_readdata(task, put("a.mps", small_problem).c_str()), 0);
  for (const char* name : {"p.mps", "p.mps.gz", "p.mps.gz.gz", "q.mps.gz", "q.mps.gz.gz", "r.gz.mps"}) discard(name);
  EXPECT_EQ(TRV_writedata(task, path("q.mps.gz").c_str()), 0);
  EXPECT_EQ(TRV_writedata(task, path("r.gz.mps").c_str()), 0);
  TRV_putintparam(task, TRV_IPAR_WRITE_DATA_COMPRESSED, 1);
  EXPECT_EQ(TRV_writedata(task, path("p.mps").c_str()), 0);
  EXPECT_EQ(TRV_writedata(task, path("q.mps.gz").c_str()), 0);
  EXPECT_FALSE(exists("p.mps"));
  EXPECT_FALSE(exists("q.mps.gz.gz"));
  for (const char* name : {"p.mps.gz", "q.mps.gz", "r.gz.mps"}) {
    EXPECT_EQ(get(name).substr(0, 2), "\x1f\x8b") << name;
    EXPECT_EQ(TRV_readdata(task, path(name).c_str()), 0) << name;
    EXPECT_EQ(numvar(), 2);
  }
  std::ofstream(path("cut.mps.gz"), std::ios::binary) << get("p.mps.gz").substr(0, 100);
  EXPECT_EQ(TRV_readdata(task, path("cut.mps.gz").c_str()), TRV_RES_ERR_FILE_READ);
}

TEST_F(Io, OneBlankNameMakesAllNamesGeneric) {
  ASSERT_EQ(TRV_readdata(task, put("a.mps", small_problem).c_str()), 0);
  ASSERT_EQ(TRV_writedata(task, path("w.mps").c_str()), 0);
  EXPECT_TRUE(seen.empty());
  EXPECT_NE(get("w.mps").find("XONE"), std::string::npos);
  TRV_putname(task, TRV_PI_VAR, 1, "");
  ASSERT_EQ(TRV_writedata(task, path("w.mps").c_str()), 0);
  EXPECT_EQ(seen, std::vector<int32_t>{TRV_RES_WRN_USING_GENERIC_NAMES});
  EXPECT_EQ(get("w.mps").find("XONE"), std::string::npos);
  EXPECT_EQ(get("w.mps").find("LIM1"), std::string::npos);
  TRV_putname(task, TRV_PI_VAR, 1, "Y");
  TRV_putobjname(task, "");
  ASSERT_EQ(TRV_writedata(task, path("w.mps").c_str()), 0);
  EXPECT_EQ(seen.size(), 2U);
}

// What can't be written leaves an old file alone; what can't be written to the end is told.
TEST_F(Io, FailuresOfWriting) {
  ASSERT_EQ(TRV_readdata(task, put("a.mps", small_problem).c_str()), 0);
  EXPECT_EQ(TRV_writedata(task, nullptr), TRV_RES_ERR_FILE_OPEN);
  EXPECT_EQ(TRV_writedata(task, path("no_folder/a.mps").c_str()), TRV_RES_ERR_FILE_OPEN);
  EXPECT_EQ(TRV_writedata(task, put("old.tbt", "precious").c_str()), TRV_RES_ERR_INVALID_FORMAT_TYPE);
  EXPECT_EQ(get("old.tbt"), "precious");
  if (std::ofstream("/dev/full").good()) {
    EXPECT_EQ(TRV_writedata(task, "/dev/full"), TRV_RES_ERR_FILE_WRITE);
  }
}

TEST(Memory, CallsOfTheObjectsAndTheirEdges) {
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  const std::string debug = testing::TempDir() + "memory_debug";
  ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, debug.c_str()), 0);
  ASSERT_EQ(TRV_initenv(env), 0);
  ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
  size_t before = 0, after = 0, maximum = 0;
  ASSERT_EQ(TRV_getmemusagetask(task, &before, &maximum), 0);
  void* p = TRV_calloctask(task, 10, 8);
  TRV_getmemusagetask(task, &after, &maximum);
  EXPECT_EQ(after, before + 80);
  TRV_freetask(task, p);
  EXPECT_EQ(TRV_calloctask(task, 0, 8), nullptr);
  EXPECT_EQ(TRV_callocdbgenv(env, SIZE_MAX / 2, 4, "f.c", 1), nullptr);
  EXPECT_EQ(TRV_strdupenv(env, nullptr), nullptr);
  EXPECT_EQ(TRV_strdupenv(nullptr, "x"), nullptr);
  TRV_freeenv(nullptr, nullptr);
  EXPECT_EQ(TRV_checkmemtask(nullptr, "f.c", 1), TRV_RES_ERR_NULL_TASK);
  EXPECT_EQ(TRV_checkmemtask(task, "f.c", 1), 0);
  char* text = TRV_strdupdbgtask(task, "text", nullptr, 1);
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(TRV_deletetask(&task), TRV_RES_ERR_SPACE_LEAKING);
  std::free(text - 8);
  EXPECT_EQ(TRV_deleteenv(&env), 0);
}

TEST(Text, CodecChecksItself) {
  EXPECT_EQ(TRV_test_UnicodeCodec(), 0);
  int32_t len = 0, conv = 0;
  EXPECT_EQ(TRV_utf8towchar(0, &len, &conv, nullptr,
                            "a\xFF"
                            "bc"),
            TRV_RES_ERR_INVALID_UTF8);
  EXPECT_EQ(len, 4);
  EXPECT_EQ(conv, 4);
  EXPECT_EQ(TRV_wchartoutf8(0, nullptr, nullptr, nullptr, nullptr), TRV_RES_ERR_NULL_POINTER);
}

}  // namespace
