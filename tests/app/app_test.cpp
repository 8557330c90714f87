// The command-line program, run as a user runs it.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int status;
  std::string out, err;
};

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

class App : public testing::Test {
 protected:
  void SetUp() override {
    dir = testing::TempDir() + "app";
    ASSERT_TRUE(fs::create_directory(dir));
  }
  void TearDown() override { fs::remove_all(dir); }

  Outcome run(const std::string& arguments) const {
    const std::string command =
        "cd '" + dir.string() + "' && '" TARVO_BINARY_DIR "/tarvo' " + arguments + " >out 2>err";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(dir / "out"), read_file(dir / "err")};
  }
  // Solves and gives the JSON object.
  nlohmann::json solve(const std::string& arguments, int status) const {
    const Outcome r = run("-q -o primal --json - " + arguments);
    EXPECT_EQ(r.status, status) << r.err;
    return nlohmann::json::parse(r.out);
  }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(dir / name) << text;
    return name;
  }
  fs::path dir;
};

const std::string examples = TARVO_SOURCE_DIR "/examples/";

// One variable x >= 0 with 1 <= x, to be varied by replacing texts.
std::string tiny(const std::string& from = "", const std::string& to = "") {
  std::string text =
      "NAME          TINY\nROWS\n N  COST\n G  NEED\nCOLUMNS\n    X         COST                 1   NEED              "
      "   1\n"
      "RHS\n    RHS       NEED                 1\nBOUNDS\n UP BOUND     X                    9\nENDATA\n";
  if (!from.empty()) text.replace(text.find(from), from.size(), to);
  return text;
}

struct Example {
  const char* file;
  double objective;
  int rows, columns, nonzeros;
  const char* layout;
};
TEST_F(App, ExamplesGiveTheirOptimaAsJson) {
  const Example cases[] = {{"diet.mps", 267.63285024154584, 4, 6, 23, "relaxed"},
                           {"transport.mps", 9410, 8, 15, 30, "free"},
                           {"planning.mps", 22120.857142857145, 12, 18, 34, "relaxed"}};
  for (const Example& c : cases) {
    const nlohmann::json j = solve(examples + c.file, 0);
    EXPECT_EQ(j["response"]["code"], 0);
    EXPECT_EQ(j["response"]["name"], "TRV_RES_OK");
    EXPECT_EQ(j["file"], examples + c.file);
    EXPECT_EQ(j["optimizer"], "primal");
    EXPECT_EQ(j["problem_status"], "prim_and_dual_feas");
    EXPECT_EQ(j["solution_status"], "optimal");
    EXPECT_EQ(j["solution"], "basic");
    EXPECT_NEAR(j["primal_objective"], c.objective, 1e-7 * c.objective);
    EXPECT_NEAR(j["dual_objective"], c.objective, 1e-7 * c.objective);
    EXPECT_LT(j["max_primal_infeasibility"], 1e-6);
    EXPECT_LT(j["max_dual_infeasibility"], 1e-6);
    EXPECT_GT(j["iterations"], 0);
    EXPECT_GE(j["seconds"], 0);
    EXPECT_GT(j["read_seconds"], 0);
    EXPECT_EQ(j["rows"], c.rows);
    EXPECT_EQ(j["columns"], c.columns);
    EXPECT_EQ(j["nonzeros"], c.nonzeros);
    EXPECT_EQ(j["mps_format"], c.layout);
  }
}

TEST_F(App, StatusTellsInfeasibleUnboundedAndStopped) {
  nlohmann::json j = solve(write("infeasible.mps", tiny("X                    9", "X                   .5")), 3);
  EXPECT_EQ(j["solution_status"], "prim_infeas_cer");
  std::string text = tiny("COST                 1", "COST                -1");
  text.replace(text.find("UP BOUND"), 2, "PL");
  j = solve(write("unbounded.mps", text), 4);
  EXPECT_EQ(j["solution_status"], "dual_infeas_cer");
  j = solve(examples + "planning.mps -p SIM_MAX_ITERATIONS=2", 5);
  EXPECT_EQ(j["response"]["name"], "TRV_RES_TRM_MAX_ITERATIONS");
  text = tiny();
  text.insert(text.find("ENDATA"), "QUADOBJ\n    X         X                    1\n");
  const Outcome r = run("-q -o dual " + write("quadratic.mps", text));
  EXPECT_EQ(r.status, 6);
  EXPECT_NE(r.err.find("the problem has quadratic terms"), std::string::npos) << r.err;
}

TEST_F(App, WrongUsageSaysWhatWouldBeRight) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "FILE"},
      {"-o fast x.mps", "no optimizer 'fast'"},
      {"-p SIM_SCALNG=NONE x.mps", "did you mean 'SIM_SCALING'"},
      {"-p SIM_SCALING=fast x.mps", "one of FREE, NONE, MODERATE, AGGRESSIVE"},
      {"-p SIM_SCALING x.mps", "NAME=VALUE"},
      {"-p DATA_TOL_AIJ=1 x.mps", "1e-16 to 1e-6"},
      {"-t 0 x.mps", "above 0"},
      {"--mps-format fixed x.mps", "fixed"},
      {"x.mps y.mps", "y.mps"},
      {"-s - --json - x.mps", "standard output"},
      {"--no-solve -s table x.mps", "--solution"},
      {"--no-such-option x.mps", "--no-such-option"},
      {"--list-params NO_SUCH", "NO_SUCH"},
  };
  for (const auto& [arguments, expected] : cases) {
    const Outcome r = run(arguments);
    EXPECT_EQ(r.status, 1) << arguments;
    EXPECT_NE(r.err.find(expected), std::string::npos) << arguments << ": " << r.err;
  }
}

TEST_F(App, ParametersAreFoundWithAnyPrefixAndCase) {
  const std::string file = write("tiny.mps", tiny());
  for (const char* setting :
       {"SIM_SCALING=NONE", "ipar_sim_scaling=none", "TRV_IPAR_SIM_SCALING=TRV_SCALING_NONE",
        "SIM_SCALING=SCALING_NONE", "SIM_SCALING=1", "DATA_CHECK=off", "STAT_KEY=a=b", "TRV_DPAR_CALLBACK_FREQ=-1"}) {
    EXPECT_EQ(run("-q --no-solve " + file + " -p " + setting).status, 0) << setting;
  }
  Outcome r = run("--list-params SIM_SCAL");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "TRV_IPAR_SIM_SCALING  int  FREE, NONE, MODERATE, AGGRESSIVE  [FREE]\n"
            "    Scaling of the problem before the simplex optimizers\n");
  // All 272 assigned parameters, two lines each.
  r = run("--list-params");
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2 * (186 + 61 + 25));
}

struct BadFile {
  const char *from, *to;  // what is changed in the tiny problem
  int line;
  const char *message, *text;
};
TEST_F(App, BadFilesAreToldByLine) {
  const BadFile cases[] = {
      {" G  NEED", " K  NEED", 4, "Expected: N, L, G or E", "K  NEED"},
      {" UP BOUND", " XX BOUND", 10, "Expected: LO, UP, FX", "XX BOUND"},
      {"RHS       NEED", "RHS       NEAD", 8, "'NEAD' is an undefined constraint name", "NEAD"},
      {"COLUMNS\n", "COLUMS\n", 5, "Expected: NAME, ROWS, COLUMNS", "COLUMS"},
      {"                 1   NEED", "               one   NEED", 6, "field", "one"},
  };
  for (const BadFile& c : cases) {
    const Outcome r = run(write("bad.mps", tiny(c.from, c.to)));
    EXPECT_EQ(r.status, 2) << c.to;
    EXPECT_EQ(r.err.find("tarvo: bad.mps: line " + std::to_string(c.line) + ": "), 0U) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(c.text), std::string::npos) << r.err;
  }
  EXPECT_EQ(run(write("cut.mps", tiny().substr(0, 120))).status, 2);
  EXPECT_EQ(run(write("empty.mps", "")).status, 2);
  const Outcome r = run("--json - missing.mps");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("missing.mps: the file can't be opened: No such file"), std::string::npos) << r.err;
  EXPECT_EQ(nlohmann::json::parse(r.out)["response"]["name"], "TRV_RES_ERR_FILE_OPEN");
}

TEST_F(App, BothLayoutsAreFoundOrDemanded) {
  const Outcome r = run(examples + "transport.mps");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("it was read in the free layout"), std::string::npos);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(run("-q --mps-format relaxed " + examples + "transport.mps").status, 2);
  EXPECT_EQ(run("-q --mps-format free " + examples + "transport.mps").status, 0);
  EXPECT_EQ(run("-q --mps-format strict " + examples + "diet.mps").status, 0);
  // A file that no layout fits: the message is that of the layout that came further.
  std::string text = read_file(examples + "transport.mps");
  text.replace(text.find("demand_Dresden 1"), 14, "demand_Nowhere");
  const Outcome bad = run("-q " + write("bad.mps", text));
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("'demand_Nowhere' is an undefined constraint name"), std::string::npos) << bad.err;
}

TEST_F(App, ConvertsAndWritesTheSolution) {
  EXPECT_EQ(run("-q --no-solve -w copy.mps.gz " + examples + "planning.mps").status, 0);
  EXPECT_NEAR(solve("copy.mps.gz", 0)["primal_objective"], 22120.857142857145, 1e-6);
  const Outcome r = run("-o primal -s table.txt --json result.json " + examples + "diet.mps");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Optimal: objective 267.63"), std::string::npos);  // the log goes to standard output
  EXPECT_EQ(nlohmann::json::parse(read_file(dir / "result.json"))["columns"], 6);
  std::istringstream table(read_file(dir / "table.txt"));
  std::string line;
  int milk = 0;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string index, name, key;
    double value = 0;
    if (fields >> index >> name >> key >> value && name == "MILK") {
      ++milk;
      EXPECT_EQ(key, "BS");
      EXPECT_NEAR(value, 1.8743961352657, 1e-9);
    }
  }
  EXPECT_EQ(milk, 1);
  EXPECT_EQ(run("-q --json nowhere/x.json " + examples + "diet.mps").status, 6);
  EXPECT_EQ(run("-q -s nowhere/x.txt " + examples + "diet.mps").status, 6);
  EXPECT_EQ(run("-q -w nowhere/x.mps " + examples + "diet.mps").status, 6);
}

TEST_F(App, ExplainsAndRepairs) {
  write("bad.mps",
        "NAME bad\nROWS\n N obj\n L most\n G least\nCOLUMNS\n x obj 1 most 1\n x least 1\n"
        "RHS\n RHS most 1 least 3\nENDATA\n");
  const Outcome r = run("-q -o dual --presolve off --infeasibility-report --repair good.mps bad.mps");
  EXPECT_EQ(r.status, 3) << r.err;
  EXPECT_EQ(r.out.find("\nTARVO PRIMAL INFEASIBILITY REPORT.\n"), 0U) << r.out;
  EXPECT_NE(r.out.find("\n0     most "), std::string::npos);
  EXPECT_NE(r.out.find("\n1     least "), std::string::npos);
  EXPECT_EQ(run("-q -o free-simplex good.mps").status, 0);
}

TEST_F(App, WritesSensitivity) {
  const std::string file = examples + "diet.mps";
  const Outcome screen = run("-q --sensitivity " + file);
  EXPECT_EQ(screen.status, 0) << screen.err;
  EXPECT_EQ(screen.out.find("BOUNDS CONSTRAINTS\nINDEX    NAME "), 0U) << screen.out;
  EXPECT_EQ(run("-q --sensitivity result.txt " + file).status, 0);
  EXPECT_EQ(read_file(dir / "result.txt"), screen.out);
  EXPECT_EQ(run("-q -p MAX_NUM_WARNINGS=0 --no-solve --sensitivity - " + file).status, 1);
  EXPECT_EQ(run("-q --presolve maybe " + file).status, 1);
}

// max 3 - x0 - x1 + x2, every kind of cone in variables and rows, comments, blank lines, CRLF.
//   x0 >= 0, x1 <= 0, (x2, x3, x4) in QR (2 x2 x3 >= x4^2), x5 free
//   x4 = 2, x2 + x3 <= 4 + 0.5, x1 >= -1, x2 free row, (x0 + 1, x5) in Q, (x5, 2) - by a second Q of one element - x5
//   >= 3
const char* const cones_cbf =
    "# comment\r\nVER\r\n3\r\n\r\nOBJSENSE\r\nMAX\r\n\r\nVAR\r\n6 4\r\nL+ 1\r\nL- 1\r\nQR 3\r\n  F 1\r\n"
    "CON\n7 6\nL= 1\nL- 1\nL+ 1\nF 1\nQ 2\nQ 1\n"
    "OBJACOORD\n3\n0 -1\n1 -1e0\n2 +1\nOBJBCOORD\n3\n"
    "ACOORD\n7\n0 4 1\n1 2 1\n1 3 1\n2 1 1\n# between\n3 2 1\n5 5 1\n6 5 1\n"
    "BCOORD\n5\n0 -2\n1 -4.5\n2 1\n4 4\n6 -3";

TEST_F(App, ReadsConicBenchmarkFormat) {
  write("cones.cbf", cones_cbf);
  const Outcome r = run("-q --json - cones.cbf");
  ASSERT_EQ(r.status, 0) << r.err;
  // x2 + x3 = 4.5 and x2 x3 = 2 give x2 = 4; x1 = -1; the head of the first Q is 4 and x5 = 3.
  EXPECT_NEAR(nlohmann::json::parse(r.out)["primal_objective"].get<double>(), 3 + 1 + 4, 1e-5) << r.out;
  EXPECT_EQ(run("-q --no-solve -w cones.mps cones.cbf").status, 0);
  const std::string mps = read_file(dir / "cones.mps");
  EXPECT_NE(mps.find("RQUAD"), std::string::npos);
  std::string text = cones_cbf;
  write("integer.cbf", text + "\nINT\n1\n0\n");
  const Outcome whole = run("-q --no-solve --json - integer.cbf");
  EXPECT_EQ(nlohmann::json::parse(whole.out)["integers"], 1) << whole.out;
}

TEST_F(App, RefusesWhatACbfFileMayNotHold) {
  struct Case {
    const char *from, *to, *line, *text;
  };
  const Case cases[] = {
      {"QR 3", "SVECPSD 3", "12", "not supported"},
      {"QR 3", "QR 1", "12", "out of range"},
      {"QR 3", "QR 9", "12", "out of range"},
      {"  F 1", "  F 1 1", "13", "expected a cone"},
      {"MAX", "UP", "6", "MIN or MAX"},
      {"VER", "VERSION", "2", "VER"},
      {"OBJBCOORD", "PSDVAR", "27", "not supported"},
      {"2 +1", "6 +1", "26", "out of range"},
      {"2 +1", "1 +1", "26", "stands twice"},
      {"2 +1", "2 1x", "26", "no finite number"},
      {"5 5 1", "3 2 1", "37", "stands twice"},
      {"6 -3", "", "44", "the file ends"},
      {"BCOORD\n5", "BCOORD\n99999999999", "40", "no count"},
  };
  for (const Case& c : cases) {
    std::string text = cones_cbf;
    text.replace(text.rfind(c.from), std::string(c.from).size(), c.to);
    const Outcome r = run("-q " + write("bad.cbf", text));
    EXPECT_EQ(r.status, 2) << c.to;
    EXPECT_NE(r.err.find(std::string("line ") + c.line), std::string::npos) << c.to << ": " << r.err;
    EXPECT_NE(r.err.find(c.text), std::string::npos) << c.to << ": " << r.err;
  }
  EXPECT_EQ(run("-q nowhere.cbf.gz").status, 2);
}

}  // namespace
