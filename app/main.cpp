// tarvo: solves a problem file from the command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "cbf.h"
#include "names.h"
#include "result.h"
#include "session.h"

namespace {

using namespace app;

struct Options {
  std::string file, optimizer, write, solution, json, mps_format = "auto", pattern, presolve, repair, sensitivity;
  std::vector<std::string> params;
  double time_limit = 0;
  bool no_solve = false, quiet = false, list = false, sensitive = false, infeas_report = false;
};

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string version() {
  int32_t v[4] = {};
  TRV_getversion(&v[0], &v[1], &v[2], &v[3]);
  char text[64];
  std::snprintf(text, sizeof text, "tarvo %d.%d.%d.%d", v[0], v[1], v[2], v[3]);
  return text;
}

void complain(const std::string& text) { std::fprintf(stderr, "tarvo: %s\n", text.c_str()); }

// The parameters of a run: what suits a program at a terminal, then the options, then the caller's own.
void set_params(const Session& session, const Options& options) {
  TRVtask task = session.task;
  TRV_putintparam(task, TRV_IPAR_WRITE_PRECISION, 17);  // a written problem is the same problem
  TRV_putintparam(task, TRV_IPAR_CHECK_CTRL_C, TRV_ON);
  if (options.quiet) TRV_putintparam(task, TRV_IPAR_LOG, 0);
  for (const std::string& setting : options.params) set_param(session, setting);
  if (!options.optimizer.empty()) TRV_putintparam(task, TRV_IPAR_OPTIMIZER, optimizer_value(options.optimizer));
  if (options.time_limit > 0) TRV_putdouparam(task, TRV_DPAR_OPTIMIZER_MAX_TIME, options.time_limit);
  if (!options.presolve.empty()) set_param(session, "PRESOLVE_USE=" + options.presolve);
  if (options.infeas_report) TRV_putintparam(task, TRV_IPAR_INFEAS_REPORT_AUTO, TRV_ON);
  if (options.mps_format != "auto") set_param(session, "READ_MPS_FORMAT=" + options.mps_format);
}

void read_problem(Session& session, const Options& options, Result& result) {
  const auto start = std::chrono::steady_clock::now();
  const ReadError error = session.read(options.file, options.mps_format == "auto");
  result.read_seconds = seconds_since(start);
  int32_t format = TRV_MPS_FORMAT_RELAXED;
  TRV_getintparam(session.task, TRV_IPAR_READ_MPS_FORMAT, &format);
  if (!is_cbf(options.file)) result.mps_format = layout_name(format);
  if (error.code == TRV_RES_OK) return;
  result.code = error.code;
  result.message = options.file + ": ";
  if (error.line > 0) result.message += "line " + std::to_string(error.line) + ": ";
  result.message += error.message;
  if (!error.text.empty()) result.message += "\n  " + error.text;
  throw Failure(exit_unreadable, result.message);
}

// What to do about an optimizer that was refused.
std::string optimizer_advice(const Session& session) {
  int32_t type = TRV_PROBTYPE_LO;
  TRV_getprobtype(session.task, &type);
  switch (type) {
    case TRV_PROBTYPE_LO:
      return "-o intpnt and -o primal solve linear problems";
    case TRV_PROBTYPE_QO:
      return "the problem has quadratic terms; -o intpnt solves it";
    case TRV_PROBTYPE_CONIC:
      return "the problem has cones; -o conic solves it";
    default:
      return "the problem has quadratic terms in its constraints, which can't be solved yet";
  }
}

void solve(Session& session, const Options& options, Result& result) {
  result.solved = true;
  const auto start = std::chrono::steady_clock::now();
  result.code = TRV_optimize(session.task);
  result.seconds = seconds_since(start);
  if (result.code != TRV_RES_OK) result.message = session.message(result.code);
  result.reported = pick_solution(session);
  if (!options.quiet) {
    TRV_solutionsummary(session.task, TRV_STREAM_MSG);
    session.log(outcome(session, result));
  }
  if (result.code != TRV_RES_OK && result.code < TRV_RES_TRM_MAX_ITERATIONS) {
    complain(options.file + ": " + result.message);
    int32_t integers = 0;
    TRV_getnumintvar(session.task, &integers);
    if (integers > 0) complain("-p MIO_MODE=IGNORED solves the problem without its integer requirements");
    if (result.code == TRV_RES_ERR_INV_OPTIMIZER || result.code == TRV_RES_ERR_MIXED_PROBLEM) {
      complain(optimizer_advice(session));
    }
  }
}

// Prints or writes the sensitivity of all bounds and costs, or of what SENSITIVITY_FILE_NAME asks for.
void report_sensitivity(Session& session, const Options& options, std::FILE* log) {
  TRVtask task = session.task;
  char request[TRV_MAX_STR_LEN] = "";
  int32_t length = 0;
  TRV_getstrparam(task, TRV_SPAR_SENSITIVITY_FILE_NAME, sizeof request, &length, request);
  if (length == 0) TRV_putintparam(task, TRV_IPAR_SENSITIVITY_ALL, TRV_ON);
  if (!options.sensitivity.empty()) {
    TRV_putstrparam(task, TRV_SPAR_SENSITIVITY_RES_FILE_NAME, options.sensitivity.c_str());
  }
  session.log_to(log);  // also with --quiet: it was asked for
  const int32_t code = TRV_sensitivityreport(task, TRV_STREAM_MSG);
  if (options.quiet) session.log_to(nullptr);
  session.check(code, "no sensitivity report");
}

// Writes the problem with its bounds moved as little as makes it feasible.
void write_repaired(Session& session, const Options& options) {
  TRVtask task = session.task;
  int32_t rows = 0, columns = 0;
  TRV_getnumcon(task, &rows);
  TRV_getnumvar(task, &columns);
  const auto weights = [](int32_t n) { return std::vector<double>(static_cast<std::size_t>(std::max(n, 1)), 1.0); };
  auto wlc = weights(rows), wuc = weights(rows), wlx = weights(columns), wux = weights(columns);
  TRV_putintparam(task, TRV_IPAR_FEASREPAIR_OPTIMIZE, TRV_FEASREPAIR_OPTIMIZE_PENALTY);
  TRVtask relaxed = nullptr;
  session.check(TRV_relaxprimal(task, &relaxed, wlc.data(), wuc.data(), wlx.data(), wux.data()),
                "the problem can't be repaired");
  TRV_deletetask(&relaxed);
  int32_t moved = 0;
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
    const bool con = accmode == TRV_ACC_CON;
    for (int32_t i = 0; i < (con ? rows : columns); ++i) {
      const double lower = (con ? wlc : wlx)[static_cast<std::size_t>(i)];
      const double upper = (con ? wuc : wux)[static_cast<std::size_t>(i)];
      int32_t bk = TRV_BK_FR;
      double bl = 0, bu = 0;
      TRV_getbound(task, accmode, i, &bk, &bl, &bu);
      if (lower == bl && upper == bu) continue;
      ++moved;
      if (bk == TRV_BK_FX && lower < upper) bk = TRV_BK_RA;
      session.check(TRV_putbound(task, accmode, i, bk, lower, upper), "cannot move a bound");
    }
  }
  session.check(TRV_writedata(task, options.repair.c_str()), "cannot write '" + options.repair + "'");
  if (!options.quiet)
    session.log("Repaired: " + std::to_string(moved) + " constraints or variables have new bounds in '" +
                options.repair + "'.");
}

void write_json(const Session& session, const Result& result, const std::string& file) {
  const std::string text =
      to_json(session, result).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  if (file == "-") {
    std::cout << text << std::flush;
    return;
  }
  std::ofstream out(file, std::ios::binary);
  out << text << std::flush;
  if (!out) throw Failure(exit_other, "cannot write '" + file + "'");
}

int run(const Options& options) {
  if (options.list) {
    if (!list_params(std::cout, options.pattern)) {
      throw Failure(exit_usage, "no parameter matches '" + options.pattern + "'");
    }
    return 0;
  }
  Session session;
  // Standard output belongs to the JSON object or the table alone if one of them goes there.
  std::FILE* log = options.json == "-" || options.solution == "-" ? stderr : stdout;
  session.log_to(options.quiet ? nullptr : log);
  set_params(session, options);

  Result result;
  result.file = options.file;
  try {
    read_problem(session, options, result);
  } catch (const Failure&) {
    if (!options.json.empty()) write_json(session, result, options.json);
    throw;
  }
  if (!options.quiet) TRV_readsummary(session.task, TRV_STREAM_MSG);
  if (!options.write.empty()) {
    session.check(TRV_writedata(session.task, options.write.c_str()), "cannot write '" + options.write + "'");
  }
  if (!options.no_solve) {
    // --quiet silences the library by its log level: the report on an infeasible problem alone comes through.
    if (options.infeas_report) session.log_to(log);
    solve(session, options, result);
    if (options.quiet) session.log_to(nullptr);
    if (!options.solution.empty()) write_table(session, result, options.solution);
  }
  if (!options.json.empty()) write_json(session, result, options.json);
  if (options.sensitive) {
    if (exit_status(result) == exit_optimal)
      report_sensitivity(session, options, log);
    else
      complain("no sensitivity report without an optimal solution");
  }
  if (!options.repair.empty()) write_repaired(session, options);
  return exit_status(result);
}

// Reads the command line and does what it says; the exit status.
int parse_and_run(int argc, char** argv) {
  Options options;
  CLI::App cli{"Solves linear, quadratic and conic optimisation problems.", "tarvo"};
  cli.footer(
      "Exit status: 0 optimal, 1 wrong usage, 2 the file can't be read, 3 infeasible, 4 unbounded,\n"
      "5 a limit or a stop, 6 anything else.");
  cli.set_version_flag("--version", version());
  cli.add_option("FILE", options.file, "problem file, also compressed (.gz)");
  cli.add_option("-o,--optimizer", options.optimizer,
                 "free, intpnt, conic, qcone, primal, dual, free-simplex, mip, nonconvex or concurrent")
      ->check([](const std::string& name) {
        return optimizer_value(name) >= 0 ? std::string() : "there is no optimizer '" + name + "'";
      });
  cli.add_option("-p,--param", options.params, "NAME=VALUE: set a parameter; prefixes may be left away")
      ->allow_extra_args(false);
  cli.add_option("-t,--time-limit", options.time_limit, "CPU seconds for the optimizer")
      ->check([](const std::string& text) {
        double seconds = 0;
        return CLI::detail::lexical_cast(text, seconds) && seconds > 0 ? std::string() : "expected seconds above 0";
      });
  cli.add_option("-w,--write", options.write, "write the problem to this file");
  CLI::Option* no_solve = cli.add_flag("--no-solve", options.no_solve, "only read, and write if asked");
  cli.add_option("-s,--solution", options.solution,
                 "write a table of the solution to this file (- is standard output)");
  no_solve->excludes("--solution");
  cli.add_option(
      "--json", options.json,
      "write the result as JSON to this file; - is standard output, and the log goes to standard error then");
  cli.add_option("--mps-format", options.mps_format,
                 "layout of MPS files: strict, relaxed, free, or auto: as the parameters say, else free")
      ->check(CLI::IsMember({"auto", "strict", "relaxed", "free"}));
  cli.add_option("--presolve", options.presolve, "on or off: reduce the problem first")
      ->check(CLI::IsMember({"on", "off"}));
  CLI::Option* sensitivity =
      cli.add_option("--sensitivity", options.sensitivity,
                     "write shadow prices and ranges of all bounds and costs to this file, else to the screen")
          ->expected(0, 1)
          ->type_name("[FILE]");
  cli.add_flag("--infeasibility-report", options.infeas_report, "say what makes a problem infeasible or unbounded");
  CLI::Option* repair = cli.add_option(
      "--repair", options.repair, "write the problem with its bounds moved by the least sum that makes it feasible");
  no_solve->excludes(sensitivity)->excludes("--infeasibility-report");
  repair->type_name("OUT.mps");
  CLI::Option* list = cli.add_option("--list-params", options.pattern, "list the parameters whose names match")
                          ->expected(0, 1)
                          ->type_name("[PATTERN]");
  cli.add_flag("-q,--quiet", options.quiet, "no log");
  try {
    cli.parse(argc, argv);
    options.list = list->count() > 0;
    options.sensitive = sensitivity->count() > 0;
    // "--sensitivity FILE" alone: the problem, as nobody asks for the sensitivity of nothing.
    if (options.sensitive && options.file.empty()) std::swap(options.file, options.sensitivity);
    if (options.sensitivity == "-") options.sensitivity.clear();
    if (!options.list && options.file.empty()) throw CLI::RequiredError("FILE");
    if (options.solution == "-" && options.json == "-") {
      throw CLI::ValidationError("--solution and --json can't both go to standard output");
    }
  } catch (const CLI::Success& done) {
    return cli.exit(done);
  } catch (const CLI::ParseError& error) {
    complain(error.what());
    std::cerr << "Run with --help for more information.\n";
    return exit_usage;
  }
  return run(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return parse_and_run(argc, argv);
  } catch (const Failure& failure) {
    complain(failure.what());
    return failure.status;
  } catch (const std::exception& error) {
    complain(error.what());
    return exit_other;
  }
}
