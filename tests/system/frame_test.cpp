// The objects' life, the report route and the streams.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

void collect(void* handle, const char* text) { static_cast<std::vector<std::string>*>(handle)->emplace_back(text); }

struct Responder {
  int32_t answer = 0;
  std::vector<int32_t> codes;
};
int32_t respond(void* handle, int32_t code, const char*) {
  auto* responder = static_cast<Responder*>(handle);
  responder->codes.push_back(code);
  return responder->answer;
}

class Frame : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
    for (int32_t k = 0; k < 4; ++k) TRV_linkfunctotaskstream(task, k, &text[k], collect);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  std::string last_error(int32_t* code = nullptr) {
    char buffer[1025];
    EXPECT_EQ(TRV_getlasterror(task, code, sizeof buffer, nullptr, buffer), 0);
    return buffer;
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  std::vector<std::string> text[4];
};

TEST_F(Frame, ErrorsAlwaysComeBackAndReachStreamLogAndResponse) {
  Responder responder;
  TRV_putresponsefunc(task, respond, &responder);
  EXPECT_EQ(TRV_exceptiontask(task, 1203, -5, "i"), 1203);
  const std::vector<std::string> line{"TARVO Error 1203     : The index value -5 occurring in argument 'i' is too small.\n"};
  EXPECT_EQ(text[TRV_STREAM_ERR], line);
  EXPECT_EQ(text[TRV_STREAM_LOG], line);
  EXPECT_EQ(responder.codes, std::vector<int32_t>{1203});
  int32_t code = 0;
  int32_t len = 0;
  char part[10];
  EXPECT_EQ(TRV_getlasterror(task, &code, sizeof part, &len, part), 0);
  EXPECT_EQ(code, 1203);
  EXPECT_STREQ(part, "The index");
  EXPECT_EQ(len, 58);
}

}  // namespace
