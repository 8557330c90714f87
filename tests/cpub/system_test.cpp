// The text codec, the processor's description, dynamic libraries.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "cpub/dlman.h"
#include "cpub/sysinfo.h"
#include "cpub/unicode.h"

namespace tarvo {
namespace {

TEST(Unicode, FromUtf8) {
  struct Case {
    std::string in;
    int64_t capacity;
    std::u16string out;
    int64_t taken;
    bool valid;
  };
  const Case cases[] = {{"\xF0\x9D\x84\x9E", 9, u"\xD834\xDD1E", 4, true},
                        {"a\xFF"
                         "b",
                         9, u"a.b", 3, false},
                        {"\xE2\x82"
                         "b",
                         9, u".b", 3, false},
                        {"\xFC\x84\x80\x80\x80\x80z", 9, u".z", 7, false},  // beyond the last character
                        {"abc", 3, u"ab", 2, true},
                        {"a\xF0\x9D\x84\x9E", 3, u"a", 1, true},  // no half pair
                        {"abc", 1, u"", 0, true},
                        {"\xE2\x82", 9, u".", 2, false}};
  for (const Case& c : cases) {
    uint16_t out[9];
    const Conversion result = utf8_to_utf16(c.capacity, out, c.in.c_str());
    EXPECT_EQ(std::u16string(out, out + result.written), c.out) << c.in;
    EXPECT_EQ(out[result.written], 0);
    EXPECT_EQ(result.taken, c.taken);
    EXPECT_EQ(result.valid, c.valid);
  }
  EXPECT_EQ(utf8_to_utf16(1, nullptr, "abcd").written, 4);
}

TEST(Unicode, FromUtf16) {
  char out[9];
  const uint16_t euro[] = {0x20AC, 0};
  EXPECT_EQ(utf16_to_utf8(3, out, euro).written, 0);
  EXPECT_EQ(utf16_to_utf8(4, out, euro).written, 3);
  EXPECT_STREQ(out, "\xE2\x82\xAC");
  for (const std::vector<uint16_t>& broken : {std::vector<uint16_t>{'x', 0xD834, 0}, {'x', 0xDD1E, 0}}) {
    EXPECT_FALSE(utf16_to_utf8(9, out, broken.data()).valid);
    EXPECT_STREQ(out, "x.");
  }
}

TEST(SysInfo, DetectionFillsWhatIsNotSet) {
  SysInfo info{};
  info.cache_l1 = info.cache_l2 = -1;
  sysinfo_detect(&info);
  EXPECT_GE(info.cache_l1, 4);
  EXPECT_GE(info.cache_l2, 32);
  EXPECT_NE(cputype_public(info.cpu_type), 0);
  SysInfo given{};
  given.cpu_type = 1002;
  given.cache_l1 = 7;
  sysinfo_detect(&given);
  EXPECT_EQ(given.cpu_type, 1002);
  EXPECT_EQ(given.cache_l1, 7);
  EXPECT_EQ(given.cache_l2, info.cache_l2);
  for (int32_t k = 0; k < 10; ++k) EXPECT_EQ(cputype_public(cputype_internal(k)), k);
  EXPECT_EQ(cputype_internal(10), 0);
  EXPECT_STREQ(sysinfo_platform(this_platform), "Linux/64-X86");
  EXPECT_STREQ(sysinfo_platform(18), "generic");
}

TEST(DlMan, LooksThroughThePath) {
  sysenv* env = sysenv_make(SysKind::task, true, nullptr, nullptr, nullptr);
  char name[64];
  sysenv_getdllname("tarvoglb", 5, 0, sizeof name, name);
  EXPECT_STREQ(name, "tarvoglb5_0.dll");
  DynamicLibrary* library = nullptr;
  char message[dl_message_size];
  EXPECT_EQ(dl_open(env, "/nowhere;;" TARVO_BINARY_DIR, name, &library, message), SYS_FILE_OPEN);
  EXPECT_EQ(library, nullptr);
  EXPECT_EQ(std::string(message).rfind("[tarvoglb5_0.dll] ", 0), 0U);
  ASSERT_EQ(dl_open(env, "/nowhere;" TARVO_BINARY_DIR ";", "libtarvo.so", &library, message), SYS_OK) << message;
  EXPECT_NE(dl_symbol(library, "TRV_makeenv"), nullptr);
  EXPECT_EQ(dl_symbol(library, "no_such_symbol"), nullptr);
  dl_close(&library);
  EXPECT_EQ(library, nullptr);
  EXPECT_EQ(sysenv_delete(&env), SYS_OK);
}

}  // namespace
}  // namespace tarvo
