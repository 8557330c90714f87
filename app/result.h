// What came out of a run: the JSON object, the table of the solution, the exit status.
#pragma once

#include <tarvo.h>

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "session.h"

namespace app {

// The solution that is reported: the best of the defined ones.
struct Reported {
  int32_t which;  // TRV_SOL_
  int32_t prosta, solsta;
  double primalobj, dualobj;
  double maxprimal, maxdual;  // largest violations
  bool has_dual;
};

struct Result {
  std::string file;
  int32_t code = TRV_RES_OK;
  std::string message;     // of an error
  bool solved = false;     // an optimizer was asked for
  std::string mps_format;  // the layout in which the file was read
  double read_seconds = 0, seconds = 0;
  std::optional<Reported> reported;
};

// The reported solution of a task, after an optimisation.
std::optional<Reported> pick_solution(const Session& session);

Exit exit_status(const Result& result);
// One sentence on the outcome.
std::string outcome(const Session& session, const Result& result);
nlohmann::ordered_json to_json(const Session& session, const Result& result);
// A readable table of all constraints and variables; "-" is standard output.
void write_table(const Session& session, const Result& result, const std::string& file);

}  // namespace app
