// MPS files: what they read to, what is refused and where, the exact text written, and write-and-read.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tarvo.h"

namespace {

using Doubles = std::vector<double>;
using Ints = std::vector<int32_t>;

// Everything of a task that a file holds.
struct Problem {
  std::vector<std::string> names;  // task, objective, constraints, variables, cones
  int32_t sense = 0;
  double cfix = 0;
  Doubles c, bl, bu, aval, qval, conepar;
  Ints bk, aptr, asub, types, qrow, qsubi, qsubj, cones;
  bool operator==(const Problem&) const = default;
};

class Mps : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TRV_makeenv(&env, nullptr, nullptr, nullptr, "" /* detects leaks */), 0);
    ASSERT_EQ(TRV_initenv(env), 0);
    ASSERT_EQ(TRV_maketask(env, 0, 0, &task), 0);
    TRV_linkfunctotaskstream(task, TRV_STREAM_ERR, &errors,
                             [](void* h, const char* text) { *static_cast<std::string*>(h) += text; });
    std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
    for (char& c : test)
      if (c == '/') c = '_';
    path = testing::TempDir() + "tarvo_" + test + ".mps";
  }
  void TearDown() override {
    EXPECT_EQ(TRV_deletetask(&task), 0);
    EXPECT_EQ(TRV_deleteenv(&env), 0);
    std::remove(path.c_str());
  }
  int32_t read(const std::string& text, int32_t format = TRV_MPS_FORMAT_RELAXED) {
    std::ofstream(path, std::ios::binary) << text;
    errors.clear();
    TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, format);
    return TRV_readdata(task, path.c_str());
  }
  std::string write() {
    EXPECT_EQ(TRV_writedata(task, path.c_str()), 0) << errors;
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  std::string name(int32_t kind, int32_t i) {
    char text[4096];
    EXPECT_EQ(TRV_getname(task, kind, i, sizeof text, nullptr, text), 0);
    return text;
  }
  Problem problem() {
    Problem p;
    char text[4096];
    TRV_gettaskname(task, sizeof text, text);
    p.names.emplace_back(text);
    TRV_getobjname(task, sizeof text, nullptr, text);
    p.names.emplace_back(text);
    int32_t m = 0, n = 0, k = 0;
    TRV_getnumcon(task, &m);
    TRV_getnumvar(task, &n);
    TRV_getnumcone(task, &k);
    for (int32_t i = 0; i < m; ++i) p.names.push_back(name(TRV_PI_CON, i));
    for (int32_t i = 0; i < n; ++i) p.names.push_back(name(TRV_PI_VAR, i));
    for (int32_t i = 0; i < k; ++i) p.names.push_back(name(TRV_PI_CONE, i));
    TRV_getobjsense(task, &p.sense);
    TRV_getcfix(task, &p.cfix);
    p.c.resize(static_cast<std::size_t>(n));
    TRV_getc(task, p.c.data());
    for (int32_t i = 0; i < m + n; ++i) {
      double bl, bu;
      int32_t bk, type = 0;
      TRV_getbound(task, i < m ? TRV_ACC_CON : TRV_ACC_VAR, i < m ? i : i - m, &bk, &bl, &bu);
      if (i >= m) TRV_getvartype(task, i - m, &type);
      p.bk.push_back(bk);
      p.bl.push_back(bl);
      p.bu.push_back(bu);
      p.types.push_back(type);
    }
    for (int32_t j = 0; j < n; ++j) {
      int32_t nz = 0;
      TRV_getavecnumnz(task, TRV_ACC_VAR, j, &nz);
      Ints sub(static_cast<std::size_t>(nz));
      Doubles val(sub.size());
      TRV_getavec(task, TRV_ACC_VAR, j, &nz, sub.data(), val.data());
      p.aptr.push_back(nz);
      p.asub.insert(p.asub.end(), sub.begin(), sub.end());
      p.aval.insert(p.aval.end(), val.begin(), val.end());
    }
    for (int32_t i = -1; i < m; ++i) {
      int32_t nz = 0;
      i == -1 ? TRV_getnumqobjnz(task, &nz) : TRV_getnumqconnz(task, i, &nz);
      Ints subi(static_cast<std::size_t>(nz)), subj(subi.size());
      Doubles val(subi.size());
      int32_t surplus = nz, got = 0;
      if (i == -1)
        TRV_getqobj(task, nz, &surplus, &got, subi.data(), subj.data(), val.data());
      else
        TRV_getqconk(task, i, nz, &surplus, &got, subi.data(), subj.data(), val.data());
      for (std::size_t e = 0; e < subi.size(); ++e) {
        p.qrow.push_back(i);
        p.qsubi.push_back(subi[e]);
        p.qsubj.push_back(subj[e]);
        p.qval.push_back(val[e]);
      }
    }
    for (int32_t i = 0; i < k; ++i) {
      int32_t type = 0, count = 0;
      double par = 0;
      TRV_getnumconemem(task, i, &count);
      Ints members(static_cast<std::size_t>(count));
      TRV_getcone(task, i, &type, &par, &count, members.data());
      p.conepar.push_back(par);
      p.cones.push_back(type);
      p.cones.push_back(count);
      p.cones.insert(p.cones.end(), members.begin(), members.end());
    }
    return p;
  }
  TRVenv env = nullptr;
  TRVtask task = nullptr;
  std::string path, errors;
};

// Rows c1 >= 1, c2 <= 2, c3 = 3, variables x, y; `tail` follows behind COLUMNS.
std::string small(const std::string& tail, const std::string& head = "NAME t\n") {
  return head +
         "ROWS\n N  obj\n G  c1\n L  c2\n E  c3\nCOLUMNS\n"
         "    x         obj       1.             c1        1\n    x         c3        2\n"
         "    y         c1        1              c2        -1\n" +
         tail + "ENDATA\n";
}

TEST_F(Mps, WritesTheExactText) {
  ASSERT_EQ(TRV_append(task, TRV_ACC_CON, 2), 0);
  ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, 4), 0);
  TRV_puttaskname(task, "t");
  TRV_putobjname(task, "cost");
  TRV_putobjsense(task, TRV_OBJECTIVE_SENSE_MINIMIZE);
  const char* const cons[] = {"c1", "c2"};
  const char* const vars[] = {"x", "y", "z", "longer name"};
  for (int32_t i = 0; i < 2; ++i) TRV_putname(task, TRV_PI_CON, i, cons[i]);
  for (int32_t j = 0; j < 4; ++j) TRV_putname(task, TRV_PI_VAR, j, vars[j]);
  TRV_putcfix(task, 5);
  TRV_putcj(task, 0, 1);
  const int32_t sub[] = {0, 1};
  const double first[] = {100000, 0.1}, second = -12.5;
  TRV_putavec(task, TRV_ACC_VAR, 0, 2, sub, first);
  TRV_putavec(task, TRV_ACC_VAR, 1, 1, sub + 1, &second);
  TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_LO, 150, 0);
  TRV_putbound(task, TRV_ACC_CON, 1, TRV_BK_RA, -1, 3);
  TRV_putbound(task, TRV_ACC_VAR, 0, TRV_BK_LO, 0, 0);
  TRV_putbound(task, TRV_ACC_VAR, 1, TRV_BK_RA, 0, -1);
  TRV_putbound(task, TRV_ACC_VAR, 2, TRV_BK_RA, 0, 1);
  TRV_putbound(task, TRV_ACC_VAR, 3, TRV_BK_UP, 0, 1);
  TRV_putvartype(task, 2, TRV_VAR_TYPE_INT);
  const int32_t qi[] = {0, 1}, qj[] = {0, 0}, members[] = {0, 1};
  const double qv[] = {2, 1};
  TRV_putqobj(task, 2, qi, qj, qv);
  TRV_appendcone(task, TRV_CT_QUAD, 0, 2, members);
  TRV_putname(task, TRV_PI_CONE, 0, "k");
  std::string text = write();
  text.erase(text.find("* Written"), text.find("OBJSENSE") - text.find("* Written"));
  EXPECT_EQ(text,
            "NAME           t\nOBJSENSE\n    MIN\nROWS\n N  cost\n G  c1      \n G  c2      \nCOLUMNS\n"
            "    x         cost      1\n    x         c1        1.e+05\n    x         c2        1.e-01\n"
            "    y         cost      0\n    y         c2        -12.5\n    z         cost      0\n"
            "    \"longer name\"  cost      0\n"
            "RHS\n    rhs       cost      -5\n    rhs       c1        1.5e+02\n    rhs       c2        -1\n"
            "RANGES\n    ran       c2        4\n"
            "BOUNDS\n LO bound     y         0\n UP bound     y         -1\n BV bound     z       \n"
            " MI bound     \"longer name\"\n UP bound     \"longer name\"  1\n"
            "QSECTION      cost\n    x         x         2\n    y         x         1\n"
            "CSECTION      k         0              QUAD\n    x       \n    y       \nENDATA\n");
  const Problem before = problem();
  ASSERT_EQ(read(write(), TRV_MPS_FORMAT_FREE), 0) << errors;
  EXPECT_TRUE(problem() == before);
}

TEST_F(Mps, ReadsNumbersInEverySpelling) {
  ASSERT_EQ(read(small("RHS\n    r         c1        1D5            c2        +.5\n    r         c3        -.5\n"
                       "    r         obj       5.\n    r         obj       -  7\n"
                       "RANGES\n    R         c1        12345678901234567890.5\n"
                       "BOUNDS\n UP B         x         inf\n LO B         y         1.2345678901234567e-1\n")),
            0)
      << errors;
  const Problem p = problem();
  EXPECT_EQ(p.bl, (Doubles{1e5, -1e30, -0.5, 0, 0.12345678901234567}));
  EXPECT_EQ(p.bu, (Doubles{1e30, 0.5, -0.5, 1e30, 1e30}));
  EXPECT_EQ(p.cfix, 7);
  for (const char* bad : {"1d5", "nan", "0x10", "1e", "--1", "1,5", "."})
    EXPECT_EQ(read(small(std::string("RHS\n    r         c1        ") + bad + "\n")), TRV_RES_ERR_MPS_INV_FIELD) << bad;
  EXPECT_EQ(read(small("QUADOBJ\n    x         x         1e999\n")), TRV_RES_ERR_MPS_INV_FIELD);
}

TEST_F(Mps, RangesAndBoundsByTheirRules) {
  const std::string rhs = "RHS\n    r         c1        1              c2        2\n    r         c3        3\n";
  const auto rows = [&](const std::string& ranges) {
    EXPECT_EQ(read(small(rhs + "RANGES\n" + ranges)), 0) << errors;
    const Problem p = problem();
    return Doubles{p.bl[0], p.bu[0], p.bl[1], p.bu[1], p.bl[2], p.bu[2]};
  };
  EXPECT_EQ(rows("    R         c1        4              c2        5\n    R         c3        6\n"),
            (Doubles{1, 5, -3, 2, 3, 9}));
  EXPECT_EQ(rows("    R         c1        -4             c2        -5\n    R         c3        -6\n"
                 "    R         c3        99             c1        99\n"),
            (Doubles{1, 5, -3, 2, -3, 3}));
  EXPECT_EQ(rows("    R         c1        0              c2        0\n    R         c3        0\n"),
            (Doubles{1, 1, 2, 2, 3, 3}));

  struct Case {
    const char* lines;
    int32_t bk, type;
    double bl, bu;
  };
  const Case cases[] = {{" UP b         x         -1\n", TRV_BK_RA, 0, 0, -1},
                        {" MI b         x\n UP b         x         -1\n", TRV_BK_UP, 0, -1e30, -1},
                        {" BV b         x\n", TRV_BK_RA, 1, 0, 1},
                        {" LI b         x         1.5\n UI b         x         7.5\n", TRV_BK_RA, 1, 2, 7},
                        {" UP b         x         4\n PL b         x\n", TRV_BK_LO, 0, 0, 1e30},
                        {" FR b         x\n LO b         x         -3\n", TRV_BK_LO, 0, -3, 1e30},
                        {" FX b         x         2\n UP b         x         3\n", TRV_BK_RA, 0, 2, 3},
                        {" UP other     x         4\n UP b         x         5\n", TRV_BK_RA, 0, 0, 4}};
  for (const Case& c : cases) {
    ASSERT_EQ(read(small(std::string("BOUNDS\n") + c.lines)), 0) << c.lines << errors;
    const Problem p = problem();
    EXPECT_EQ(p.bk[3], c.bk) << c.lines;
    EXPECT_EQ(p.types[3], c.type) << c.lines;
    EXPECT_EQ(p.bl[3], c.bl) << c.lines;
    EXPECT_EQ(p.bu[3], c.bu) << c.lines;
  }
}

TEST_F(Mps, MarkersMakeBinaries) {
  const std::string text =
      "ROWS\n N  o\n L  c\nCOLUMNS\n    a         c         1\n    M         'MARKER'                 'INTORG'\n"
      "    b         c         1\n    M                      'MARKER'                 'INTEND'\n    d         c        "
      " 1\n"
      "BOUNDS\nENDATA\n";
  ASSERT_EQ(read(text), 0) << errors;
  EXPECT_EQ(problem().types, (Ints{0, 0, 1, 0}));
  EXPECT_EQ(problem().bu[2], 1);
  TRV_putintparam(task, TRV_IPAR_READ_MPS_KEEP_INT, 0);
  ASSERT_EQ(read(text, TRV_MPS_FORMAT_FREE), 0) << errors;
  EXPECT_EQ(problem().types, (Ints{0, 0, 0, 0}));
  EXPECT_EQ(problem().bu[2], 1);
}

TEST_F(Mps, VectorsAndFreeRows) {
  const std::string text = small(
      "RHS\n    r1        c1        1\n    r2        c1        2\n    r1        c2        5\n"
      "RANGES\nBOUNDS\n");
  ASSERT_EQ(read(text), 0) << errors;
  EXPECT_EQ(problem().bl[0], 1);
  EXPECT_EQ(problem().bu[1], 5);
  TRV_putstrparam(task, TRV_SPAR_READ_MPS_RHS_NAME, "r2");
  ASSERT_EQ(read(text), 0);
  EXPECT_EQ(problem().bl[0], 2);
  EXPECT_EQ(problem().bu[1], 0);

  TRV_putstrparam(task, TRV_SPAR_READ_MPS_RHS_NAME, "");
  const std::string two =
      "ROWS\n N  first\n N  second\n G  c\nCOLUMNS\n    x         first     1              second    2\n"
      "    x         c         3\nRHS\n    r         second    4\nBOUNDS\n";
  ASSERT_EQ(read(two + "ENDATA\n"), 0);
  EXPECT_EQ(problem().c, Doubles{1});
  EXPECT_EQ(problem().names[1], "first");
  EXPECT_EQ(problem().asub, Ints{0});
  EXPECT_EQ(problem().cfix, 0);
  ASSERT_EQ(read("OBJNAME\n    second\n" + two + "ENDATA\n"), 0);
  EXPECT_EQ(problem().c, Doubles{2});
  EXPECT_EQ(problem().cfix, -4);
  TRV_putstrparam(task, TRV_SPAR_READ_MPS_OBJ_NAME, "");
  TRV_putintparam(task, TRV_IPAR_READ_KEEP_FREE_CON, 1);
  TRV_putintparam(task, TRV_IPAR_WRITE_FREE_CON, 1);
  ASSERT_EQ(read(two + "ENDATA\n"), 0);
  const Problem kept = problem();
  EXPECT_EQ(kept.aval, (Doubles{1, 2, 3}));
  ASSERT_EQ(read(write()), 0) << errors;
  EXPECT_EQ(problem().aval.size(), kept.aval.size());
  EXPECT_EQ(problem().names, kept.names);
}

// Quadratic sections: which triangle stands for what.
TEST_F(Mps, QuadraticTerms) {
  const auto terms = [&](const std::string& section, int32_t mode = TRV_Q_READ_ADD) {
    TRV_putintparam(task, TRV_IPAR_READ_Q_MODE, mode);
    EXPECT_EQ(read(small(section + "    x         x         2              y         3\n"
                                   "    y         x         5              y         7\n")),
              0)
        << errors;
    const Problem p = problem();
    Doubles value(3, 0.0);  // xx, yx, yy
    for (std::size_t k = 0; k < p.qval.size(); ++k)
      value[static_cast<std::size_t>(p.qsubi[k] + p.qsubj[k])] += p.qval[k];
    return value;
  };
  EXPECT_EQ(terms("QUADOBJ\n"), (Doubles{2, 8, 7}));
  EXPECT_EQ(terms("QUADOBJ\n", TRV_Q_READ_DROP_LOWER), (Doubles{2, 3, 7}));
  EXPECT_EQ(terms("QSECTION      obj\n", TRV_Q_READ_DROP_UPPER), (Doubles{2, 5, 7}));
  EXPECT_EQ(terms("QMATRIX\n"), (Doubles{2, 4, 7}));
  EXPECT_EQ(terms("QCMATRIX   c2\n"), (Doubles{4, 8, 14}));
  EXPECT_EQ(problem().qrow, (Ints{1, 1, 1}));
}

struct Bad {
  const char* what;
  std::string text;
  int32_t code, line;
  int32_t format = TRV_MPS_FORMAT_RELAXED;
};
class MpsErrors : public Mps, public testing::WithParamInterface<Bad> {};

TEST_P(MpsErrors, AreRefusedAtTheirLine) {
  const Bad& bad = GetParam();
  EXPECT_EQ(read(bad.text, bad.format), bad.code) << errors;
  if (bad.line != 0) {
    EXPECT_NE(errors.find("The error occured at line(" + std::to_string(bad.line) + "):"), std::string::npos) << errors;
    EXPECT_NE(errors.find(path), std::string::npos);
  }
  ASSERT_EQ(read(small("")), 0) << "the task is of use afterwards";
}

const std::string rows = "NAME\nROWS\n N  o\n L  c\n", columns = rows + "COLUMNS\n    x         c         1\n";
INSTANTIATE_TEST_SUITE_P(
    All, MpsErrors,
    testing::Values(
        Bad{"empty", "", TRV_RES_ERR_END_OF_FILE, 0}, Bad{"no end", columns, TRV_RES_ERR_END_OF_FILE, 0},
        Bad{"no rows", "NAME\nENDATA\n", TRV_RES_ERR_MPS_NO_OBJECTIVE, 2},
        Bad{"section", "NAME\nROW\n", TRV_RES_ERR_MPS_INV_SEC_NAME, 2},
        Bad{"garbage", std::string("\x1f\x8b\x08\x00\xff\xfe\n\x00\n", 9), TRV_RES_ERR_MPS_FILE, 1},
        Bad{"NUL", rows + std::string(" L  a\0b\n", 8), TRV_RES_ERR_MPS_FILE, 5},
        Bad{"order", "ROWS\n N  o\nNAME\n", TRV_RES_ERR_MPS_INV_SEC_ORDER, 3},
        Bad{"early Q", "NAME\nQSECTION      o\n", TRV_RES_ERR_MPS_INV_SEC_ORDER, 2},
        Bad{"sense", "NAME\nOBJSENSE\n    max\n" + columns.substr(5) + "ENDATA\n", TRV_RES_ERR_MPS_INVALID_OBJSENSE, 3},
        Bad{"no N", "ROWS\n L  c\nCOLUMNS\nENDATA\n", TRV_RES_ERR_MPS_NO_OBJECTIVE, 3},
        Bad{"row key", rows + " Q  d\nCOLUMNS\nENDATA\n", TRV_RES_ERR_MPS_INV_CON_KEY, 5},
        Bad{"no row name", rows + " L\nCOLUMNS\nENDATA\n", TRV_RES_ERR_MPS_NULL_CON_NAME, 5},
        Bad{"row twice", rows + " G  c\nCOLUMNS\nENDATA\n", TRV_RES_ERR_MPS_MUL_CON_NAME, 5},
        Bad{"column 3", columns + "   yx        c         1\n", TRV_RES_ERR_MPS_FILE, 7},
        Bad{"column 12", columns + "    xxxxxxxxx c         1\n", TRV_RES_ERR_MPS_INV_FIELD, 7},
        Bad{"tab", columns + "    a\tb       c         1\n", TRV_RES_ERR_MPS_TAB_IN_FIELD2, 7},
        Bad{"free tab", columns + "    a         c\td       1\n", TRV_RES_ERR_MPS_TAB_IN_FIELD3, 7, 2},
        Bad{"free extra", columns + "    y c 1 o 1 c 1\n", TRV_RES_ERR_MPS_FILE, 7, 2},
        Bad{"no variable", columns + "              c         1\nENDATA\n", TRV_RES_ERR_MPS_NULL_VAR_NAME, 7},
        Bad{"no such row", columns + "    x         d         1\nENDATA\n", TRV_RES_ERR_MPS_UNDEF_CON_NAME, 7},
        Bad{"split", columns + "    y         c         1\n    x         o         1\nENDATA\n",
            TRV_RES_ERR_MPS_SPLITTED_VAR, 8},
        Bad{"marker", columns + "    M         'MARKER'                 'INT'\nENDATA\n", TRV_RES_ERR_MPS_INV_MARKER,
            7},
        Bad{"infinite element", columns + "    y         c         inf\n", TRV_RES_ERR_MPS_INV_FIELD, 7},
        Bad{"rhs without row", columns + "RHS\n    r                   1\nENDATA\n", TRV_RES_ERR_MPS_NULL_CON_NAME, 8},
        Bad{"bound key", columns + "BOUNDS\n XX b         x         1\nENDATA\n", TRV_RES_ERR_MPS_INV_BOUND_KEY, 8},
        Bad{"bound of", columns + "BOUNDS\n UP b         z         1\nENDATA\n", TRV_RES_ERR_MPS_UNDEF_VAR_NAME, 8},
        Bad{"two Q", columns + "QUADOBJ\n    x         x         1\nQSECTION      o\nENDATA\n",
            TRV_RES_ERR_MPS_MUL_QSEC, 9},
        Bad{"cone type", columns + "CSECTION      k         0              ROUND\nENDATA\n", TRV_RES_ERR_MPS_CONE_TYPE,
            7},
        Bad{"in a cone twice", columns + "CSECTION      k         0              QUAD\n    x\n    x\nENDATA\n",
            TRV_RES_ERR_MPS_CONE_REPEAT, 9},
        Bad{"in two cones",
            columns +
                "CSECTION      k         0              QUAD\n    x\nCSECTION      l         0              QUAD\n"
                "    x\nENDATA\n",
            TRV_RES_ERR_MPS_CONE_OVERLAP, 10}),
    [](const auto& bad) {
      std::string name = bad.param.what;
      for (char& c : name)
        if (c == ' ') c = '_';
      return name;
    });

// Free layout: quotes, absent vector names, carriage returns, lines and names of any length.
TEST_F(Mps, FreeLayout) {
  const std::string longname(3000, 'n');
  ASSERT_EQ(read("NAME a b\r\nOBJSENSE MAX\r\n\r\n* comment\r\nROWS\r\n N obj\r\n L \"row 1\"\r\n E 2\r\nCOLUMNS\r\n "
                 "\"x y\" obj 1 "
                 "\"row 1\" 2" +
                     std::string(5000, ' ') + "\r\n " + longname + " 2 1\r\nRHS\r\n 2 7\r\n rhs \"row 1\" 3\r\n" +
                     "BOUNDS\r\n UP \"x y\" 4\r\n FR " + longname + "\r\nENDATA",
                 TRV_MPS_FORMAT_FREE),
            0)
      << errors;
  Problem p = problem();
  EXPECT_EQ(p.names[0], "a b");
  EXPECT_EQ(p.sense, TRV_OBJECTIVE_SENSE_MAXIMIZE);
  EXPECT_EQ(name(TRV_PI_CON, 0), "row 1");
  EXPECT_EQ(p.bu, (Doubles{0, 7, 4, 1e30}));
  int32_t index = -1, asgn = 0;
  EXPECT_EQ(TRV_getnameindex(task, TRV_PI_VAR, longname.c_str(), &asgn, &index), 0);
  EXPECT_EQ(index, 1);
  TRV_putintparam(task, TRV_IPAR_READ_MPS_QUOTED_NAMES, 0);
  EXPECT_EQ(read("ROWS\n N obj\n L \"row 1\"\nCOLUMNS\nENDATA\n", TRV_MPS_FORMAT_FREE), TRV_RES_ERR_MPS_FILE);
  // By columns names may hold blanks without quotes; the strict layout cuts numbers at their columns.
  const std::string fixed = "ROWS\n N  o\n L  c 1\nCOLUMNS\n    x 1       c 1                  1.25\nENDATA\n";
  ASSERT_EQ(read(fixed), 0) << errors;
  EXPECT_EQ(name(TRV_PI_VAR, 0), "x 1");
  EXPECT_EQ(problem().aval, Doubles{1.25});
  ASSERT_EQ(read(columns + "    y         c         0.12345678901234\nENDATA\n"), 0);
  EXPECT_EQ(problem().aval[1], 0.12345678901234);
  EXPECT_EQ(read(columns + "    y         c         0.12345678901234\nENDATA\n", TRV_MPS_FORMAT_STRICT),
            TRV_RES_ERR_MPS_INV_FIELD);
}

TEST_F(Mps, RefusesToWriteWhatWouldNotReadBack) {
  ASSERT_EQ(read(small("RHS\n    r         c1        1\n")), 0);
  TRV_putname(task, TRV_PI_VAR, 0, "a\tb");
  EXPECT_EQ(TRV_writedata(task, path.c_str()), TRV_RES_ERR_WRITE_MPS_INVALID_NAME);
  TRV_putname(task, TRV_PI_VAR, 0, "a \"b\"");
  EXPECT_EQ(TRV_writedata(task, path.c_str()), TRV_RES_ERR_WRITE_MPS_INVALID_NAME);
  TRV_putname(task, TRV_PI_VAR, 0, "a b");
  EXPECT_EQ(TRV_writedata(task, path.c_str()), 0);
  TRV_putintparam(task, TRV_IPAR_WRITE_MPS_STRICT, 1);
  EXPECT_EQ(TRV_writedata(task, path.c_str()), TRV_RES_ERR_WRITE_MPS_INVALID_NAME);
  TRV_putname(task, TRV_PI_VAR, 0, "a");
  TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_RA, 2, 1);
  EXPECT_NE(TRV_writedata(task, path.c_str()), 0);  // no range says that the bounds cross
  TRV_putbound(task, TRV_ACC_CON, 0, TRV_BK_RA, 1, 2);
  TRV_putobjname(task, "c1");
  EXPECT_EQ(TRV_writedata(task, path.c_str()), TRV_RES_ERR_WRITE_MPS_INVALID_NAME);
}

// Doubles of every size in every place; ranges among them whose width isn't a double's difference.
TEST_F(Mps, RandomProblemsSurviveAtSeventeenDigits) {
  std::mt19937_64 random(3);
  const auto real = [&] {
    return std::ldexp(static_cast<double>(random() % (1ull << 53)) * (random() % 2 ? 1 : -1),
                      static_cast<int>(random() % 60) - 90);
  };
  constexpr int32_t m = 60, n = 80;
  ASSERT_EQ(TRV_append(task, TRV_ACC_CON, m), 0);
  ASSERT_EQ(TRV_append(task, TRV_ACC_VAR, n), 0);
  TRV_putobjname(task, "objective function");
  TRV_putintparam(task, TRV_IPAR_WRITE_PRECISION, 17);
  TRV_putcfix(task, real());
  for (int32_t i = 0; i < m + n; ++i) {
    const bool row = i < m;
    const int32_t k = row ? i : i - m;
    TRV_putname(task, row ? TRV_PI_CON : TRV_PI_VAR, k, ((row ? "row" : "variable no. ") + std::to_string(k)).c_str());
    const double a = real(), b = row ? a + std::fabs(real()) : real();
    const int32_t bk = row && i % 5 == TRV_BK_FR ? TRV_BK_RA : i % 5;
    TRV_putbound(task, row ? TRV_ACC_CON : TRV_ACC_VAR, k, bk, a, bk == TRV_BK_FX ? a : b);
    if (!row) {
      TRV_putcj(task, k, real());
      if (k % 3 == 0) TRV_putvartype(task, k, TRV_VAR_TYPE_INT);
      const int32_t sub[] = {k % m, (k + 7) % m, (k + 31) % m};
      const double val[] = {real(), real(), real()};
      TRV_putavec(task, TRV_ACC_VAR, k, 3, sub, val);
    }
  }
  const Problem before = problem();
  const std::string text = write();
  ASSERT_EQ(read(text, TRV_MPS_FORMAT_FREE), 0) << errors;
  const Problem after = problem();
  EXPECT_EQ(after.bl, before.bl);
  EXPECT_EQ(after.bu, before.bu);
  EXPECT_EQ(after.aval, before.aval);
  EXPECT_TRUE(after == before);
  TRV_putintparam(task, TRV_IPAR_WRITE_PRECISION, 8);
  ASSERT_EQ(read(write(), TRV_MPS_FORMAT_FREE), 0) << errors;
  EXPECT_NE(problem().aval, before.aval);
}

// Every public problem: its size, and that it comes back from a file of its own as the same task.
TEST_F(Mps, PublicProblemsKeepTheirSizeAndSurvive) {
  std::ifstream csv(std::string(TARVO_TEST_DATA) + "/problems.csv");
  std::string line;
  std::getline(csv, line);
  int count = 0;
  TRV_putintparam(task, TRV_IPAR_WRITE_PRECISION, 17);
  while (std::getline(csv, line)) {
    std::stringstream fields(line);
    std::string file, size[3];
    std::getline(fields, file, ',');
    for (std::string& s : size) std::getline(fields, s, ',');
    const std::string whole = std::string(TARVO_TEST_DATA) + "/" + file + ".gz";
    TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, TRV_MPS_FORMAT_RELAXED);
    int32_t res = TRV_readdata(task, whole.c_str());
    if (res != 0) {
      TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, TRV_MPS_FORMAT_FREE);
      res = TRV_readdata(task, whole.c_str());
    }
    ASSERT_EQ(res, 0) << file << errors;
    int32_t got[3];
    TRV_getnumcon(task, &got[0]);
    TRV_getnumvar(task, &got[1]);
    TRV_getnumanz(task, &got[2]);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(std::to_string(got[k]), size[k]) << file;
    const Problem before = problem();
    ASSERT_EQ(read(write(), TRV_MPS_FORMAT_FREE), 0) << file << errors;
    EXPECT_TRUE(problem() == before) << file;
    ++count;
  }
  EXPECT_GT(count, 90);
}

}  // namespace
