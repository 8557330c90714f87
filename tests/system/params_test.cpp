// Parameters, information items and the names of codes and constants.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "tarvo.h"

namespace {

class Params : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, "" /* detects leaks */), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_makeemptytask(env, &task), 0);
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
  }
  std::string last_error() {
    char buffer[1025];
    EXPECT_EQ(TRV_getlasterror(task, nullptr, sizeof buffer, nullptr, buffer), 0);
    return buffer;
  }
  double get(const char* name) {
    int32_t type = 0;
    int32_t k = 0;
    TRV_whichparam(task, name, &type, &k);
    int32_t i = -999;
    double d = -999;
    const bool is_int = type == TRV_PAR_INT_TYPE;
    EXPECT_EQ(is_int ? TRV_getintparam(task, k, &i) : TRV_getdouparam(task, k, &d), 0) << name;
    return is_int ? i : d;
  }
  std::string get_string(int32_t k) {
    char buffer[256];
    EXPECT_EQ(TRV_getstrparam(task, k, sizeof buffer, nullptr, buffer), 0);
    return buffer;
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
};

TEST_F(Params, ValuesOutOfRangeAreRefusedWithTheirText) {
  EXPECT_EQ(TRV_putintparam(task, TRV_IPAR_SIM_STABILITY_PRIORITY, 101), TRV_RES_ERR_PARAM_IS_TOO_LARGE);
  EXPECT_EQ(last_error(), "The parameter value 101 is too large for parameter 'TRV_IPAR_SIM_STABILITY_PRIORITY'.");
  EXPECT_EQ(get("TRV_IPAR_SIM_STABILITY_PRIORITY"), 50);
  EXPECT_EQ(TRV_putdouparam(task, TRV_DPAR_DATA_TOL_AIJ, 1e-20), TRV_RES_ERR_PARAM_IS_TOO_SMALL);
  EXPECT_EQ(last_error(), "The parameter value 1e-20 is too small for parameter 'TRV_DPAR_DATA_TOL_AIJ'.");
  // Only one side is limited here, and none there.
  EXPECT_EQ(TRV_putintparam(task, TRV_IPAR_MIO_FEASPUMP_LEVEL, 4), TRV_RES_ERR_PARAM_IS_TOO_LARGE);
  EXPECT_EQ(TRV_putintparam(task, TRV_IPAR_MIO_FEASPUMP_LEVEL, -999), 0);
  EXPECT_EQ(TRV_putdouparam(task, TRV_DPAR_BASIS_TOL_X, INFINITY), 0);
  EXPECT_EQ(TRV_putdouparam(task, TRV_DPAR_CALLBACK_FREQ, NAN), TRV_RES_ERR_PARAM_IS_TOO_SMALL);
  EXPECT_EQ(TRV_putdouparam(task, TRV_DPAR_DATA_TOL_X, NAN), TRV_RES_ERR_PARAM_IS_TOO_SMALL);
  // What the environment was given unchecked stays acceptable to its tasks.
  EXPECT_EQ(TRV_putcpudefaults(env, 999, 8, 64), 0);
  EXPECT_EQ(TRV_setdefaults(task), 0);
  EXPECT_EQ(get("TRV_IPAR_CPU_TYPE"), 999);
  EXPECT_EQ(TRV_putintparam(task, TRV_IPAR_CPU_TYPE, 999), 0);
  EXPECT_EQ(TRV_putintparam(task, TRV_IPAR_CPU_TYPE, 998), TRV_RES_ERR_PARAM_IS_TOO_LARGE);
}

TEST_F(Params, BadIndicesAndNamesAreCodes) {
  int32_t i = 0;
  double d = 0;
  for (const int32_t k : {-1, 193, 1 << 30}) {
    EXPECT_EQ(TRV_putintparam(task, k, 1), TRV_RES_ERR_PARAM_INDEX);
    EXPECT_EQ(TRV_getdouparam(task, k, &d), TRV_RES_ERR_PARAM_INDEX);
    EXPECT_EQ(TRV_putstrparam(task, k, "x"), TRV_RES_ERR_PARAM_INDEX);
    EXPECT_EQ(last_error(), "The parameter index " + std::to_string(k) + " is invalid for a parameter of type string.");
    EXPECT_EQ(TRV_getintinf(task, k, &i), TRV_RES_ERR_INF_INT_INDEX);
    char text[TRV_MAX_STR_LEN];
    EXPECT_EQ(TRV_iparvaltosymnam(env, k, 0, text), 0);
    EXPECT_STREQ(text, "");
  }
  EXPECT_EQ(TRV_putnaintparam(task, "TRV_DPAR_DATA_TOL_X", 1), TRV_RES_ERR_PARAM_NAME_INT);
  EXPECT_EQ(TRV_putnaintparam(task, "", 1), TRV_RES_ERR_PARAM_NAME_INT);
  EXPECT_EQ(TRV_getnadouparam(task, "TRV_DPAR_DATA_TOL_x", &d), TRV_RES_ERR_PARAM_NAME_DOU);
  EXPECT_EQ(TRV_isintparname(task, "TRV_RES_OK", &i), 0);
  EXPECT_EQ(i, 193);
  int32_t type = 7;
  EXPECT_EQ(TRV_whichparam(task, "", &type, &i), 0);
  EXPECT_EQ(type, TRV_PAR_INVALID_TYPE);
  // Items beyond the public ones are found by name only.
  EXPECT_EQ(TRV_getinfindex(task, TRV_INF_INT_TYPE, "TRV_IINF_PRESOLVE_NUMVAR", &i), 0);
  EXPECT_EQ(i, 74);
  EXPECT_EQ(TRV_getnaintinf(task, "TRV_IINF_PRESOLVE_NUMVAR", &type), 0);
  EXPECT_EQ(TRV_getintinf(task, 74, &type), TRV_RES_ERR_INF_INT_INDEX);
  EXPECT_EQ(TRV_getinfname(task, TRV_INF_INT_TYPE, 74, nullptr), TRV_RES_ERR_INF_INT_INDEX);
}

struct TextCase {
  const char *name, *value;
  int32_t code;
  double stored;  // what the parameter holds afterwards
};
TEST_F(Params, TextSetsParametersOfEveryType) {
  const TextCase cases[] = {
      {"TRV_IPAR_ OPTIMIZER", "TRV_OPTIMIZER_CONIC", 0, 2},
      {"TRV_IPAR_OPTIMIZER", "trv_optimizer_free", TRV_RES_ERR_PARAM_VALUE_STR, 2},
      {"TRV_IPAR_LOG", "TRV_ON", 0, 1},
      {"TRV_IPAR_LOG", " +7 and more", 0, 7},
      {"TRV_IPAR_LOG", "2x", TRV_RES_ERR_PARAM_VALUE_STR, 7},
      {"TRV_IPAR_LOG", "", TRV_RES_ERR_PARAM_VALUE_STR, 7},
      {"TRV_IPAR_LOG", "-", TRV_RES_ERR_PARAM_VALUE_STR, 7},
      {"TRV_IPAR_LOG", "99999999999", TRV_RES_ERR_PARAM_VALUE_STR, 7},
      {"TRV_IPAR_LOG", "-1", TRV_RES_ERR_PARAM_IS_TOO_SMALL, 7},
      {"TRV_DPAR_CALLBACK_FREQ", "5.", 0, 5},
      {"TRV_DPAR_CALLBACK_FREQ", "-.25e1 s", 0, -2.5},
      {"TRV_DPAR_CALLBACK_FREQ", ".", TRV_RES_ERR_PARAM_VALUE_STR, -2.5},
      {"TRV_DPAR_CALLBACK_FREQ", "nan", TRV_RES_ERR_PARAM_VALUE_STR, -2.5},
      {"TRV_DPAR_CALLBACK_FREQ", "TRV_ON", TRV_RES_ERR_PARAM_VALUE_STR, -2.5},
  };
  for (const TextCase& c : cases) {
    EXPECT_EQ(TRV_putparam(task, c.name, c.value), c.code) << c.value;
    std::string name(c.name);
    std::erase(name, ' ');
    EXPECT_EQ(get(name.c_str()), c.stored) << c.value;
  }
  EXPECT_EQ(TRV_putparam(task, "TRV_SPAR_STAT_KEY", " a key"), 0);
  EXPECT_EQ(get_string(TRV_SPAR_STAT_KEY), " a key");
  EXPECT_EQ(TRV_putparam(task, "TRV_RES_OK", "1"), TRV_RES_ERR_PARAM_NAME);
  EXPECT_EQ(TRV_putparam(task, std::string(5000, 'x').c_str(), "1"), TRV_RES_ERR_PARAM_NAME);
}

TEST_F(Params, StringsAreUnquotedCutAndCopied) {
  const int32_t k = TRV_SPAR_STAT_NAME;
  const std::pair<const char*, const char*> cases[] = {
      {"\"a\\\"b\" tail", "a\"b"}, {"\"open", "open"}, {"\"", ""}, {"\"\\\\n\\", "\\\\n\\"}, {"a\"b", "a\"b"}};
  for (const auto& [given, stored] : cases) {
    EXPECT_EQ(TRV_putstrparam(task, k, given), 0);
    EXPECT_EQ(get_string(k), stored);
  }
  char buffer[4] = "zzz";
  int32_t len = 0;
  EXPECT_EQ(TRV_putstrparam(task, k, "abc"), 0);
  EXPECT_EQ(TRV_getstrparam(task, k, 3, &len, buffer), TRV_RES_WRN_SPAR_MAX_LEN);
  EXPECT_STREQ(buffer, "ab");
  EXPECT_EQ(len, 3);
  EXPECT_EQ(TRV_getstrparam(task, k, 4, nullptr, buffer), 0);
  EXPECT_EQ(TRV_getstrparam(task, k, -1, &len, buffer), TRV_RES_WRN_SPAR_MAX_LEN);
  char* copy = nullptr;
  EXPECT_EQ(TRV_getnastrparamal(task, "TRV_SPAR_STAT_NAME", 2, &copy), 0);
  EXPECT_EQ(TRV_putstrparam(task, k, strcat(copy, "de")), 0);
  TRV_freetask(task, copy);
  EXPECT_EQ(get_string(k), "abcde");
  EXPECT_EQ(TRV_getstrparamal(task, k, -7, &copy), TRV_RES_ERR_IN_ARGUMENT);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(TRV_putstrparam(task, k, nullptr), 0);
  EXPECT_EQ(get_string(k), "");
  EXPECT_EQ(get_string(TRV_SPAR_PARAM_COMMENT_SIGN), "%%");
}

TEST_F(Params, NamesOfConstants) {
  int32_t num = 0;
  int32_t maxlen = 0;
  ASSERT_EQ(TRV_getsymbcondim(env, &num, &maxlen), 0);
  std::string name(static_cast<size_t>(maxlen) + 1, '\0');
  char text[TRV_MAX_STR_LEN];
  for (int32_t i = 0; i < num; ++i) {
    int32_t value = -1;
    ASSERT_EQ(TRV_getsymbcon(task, i, maxlen + 1, name.data(), &value), 0);
    EXPECT_EQ(TRV_symnamtovalue(name.c_str(), text), 1) << name;
    EXPECT_EQ(std::stoi(text), value) << name;
  }
  EXPECT_EQ(TRV_getsymbcon(task, -1, 0, nullptr, nullptr), TRV_RES_ERR_INDEX_IS_TOO_SMALL);
  EXPECT_EQ(TRV_getsymbcon(task, num, 0, nullptr, nullptr), TRV_RES_ERR_INDEX_IS_TOO_LARGE);
  EXPECT_EQ(TRV_symnamtovalue("trv_bk_ra", text), 0);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(TRV_symnamtovalue("TRV_IPAR_LOG", text), 1);
  EXPECT_STREQ(text, "44");

  TRV_iparvaltosymnam(env, TRV_IPAR_SIM_SCALING, 3, text);
  EXPECT_STREQ(text, "TRV_SCALING_AGGRESSIVE");
  TRV_iparvaltosymnam(env, TRV_IPAR_DATA_CHECK, 1, text);  // on/off has no names
  EXPECT_STREQ(text, "");
  EXPECT_EQ(TRV_bktostr(task, TRV_BK_RA, text), 0);
  EXPECT_STREQ(text, "RA");
  EXPECT_EQ(TRV_bktostr(task, 5, text), TRV_RES_ERR_INV_BK);
  EXPECT_STREQ(text, "");
  int32_t k = -1;
  for (int32_t sk = 0; sk < 7; ++sk) {
    EXPECT_EQ(TRV_sktostr(task, sk, text), 0);
    EXPECT_EQ(TRV_strtosk(task, text, &k), 0);
    EXPECT_EQ(k, sk);
  }
  EXPECT_EQ(TRV_sktostr(task, -1, text), TRV_RES_ERR_INV_SK);
  EXPECT_EQ(TRV_strtosk(task, "XX", &k), TRV_RES_ERR_INV_SK_STR);
  EXPECT_EQ(k, 7);
  EXPECT_EQ(TRV_strtoconetype(task, "TRV_CT_RQUAD", &k), 0);
  EXPECT_EQ(k, TRV_CT_RQUAD);
  EXPECT_EQ(TRV_strtoconetype(task, "TRV_BK_FX", &k), TRV_RES_ERR_CONE_TYPE_STR);
  TRV_solstatostr(task, 7, text);
  EXPECT_STREQ(text, "INVALID code(7)");
  TRV_prostatostr(task, -1, text);
  EXPECT_STREQ(text, "INVALID CODE(-1)");
  TRV_callbackcodetostr(71, text);
  EXPECT_STREQ(text, "TRV_CALLBACK_NONCOVEX");
  for (const int32_t unused : {9, 34, 55, 83, -1}) {
    TRV_callbackcodetostr(unused, text);
    EXPECT_STREQ(text, "[UNDEFINED CODE]");
  }
  char disc[TRV_MAX_STR_LEN];
  TRV_getcodedisc(1203, text, disc);
  EXPECT_STREQ(text, "TRV_RES_ERR_INDEX_IS_TOO_SMALL");
  EXPECT_STREQ(disc, "An index in an argument is too small.");
  const std::pair<int32_t, int32_t> classes[] = {{0, 0}, {1, 1}, {999, 1}, {1000, 3}, {3999, 3}, {4000, 2}, {-1, 3}};
  for (const auto& [code, expected] : classes) {
    TRV_getresponseclass(code, &k);
    EXPECT_EQ(k, expected) << code;
  }
}

TEST(FileExtension, IsThatOfTheLastPart) {
  const char* const cases[][2] = {
      {"a.mps", "a.sol"}, {"a", "a.sol"}, {"a.b.mps", "a.b.sol"}, {"d.x/a", "d.x/a.sol"}, {"d.x\\a", "d.x\\a.sol"},
      {".mps", ".sol"},   {"", ".sol"}};
  for (const auto& [before, after] : cases) {
    char name[64];
    std::strcpy(name, before);
    EXPECT_EQ(TRV_replacefileext(name, "sol"), 0);
    EXPECT_STREQ(name, after);
  }
}

}  // namespace
