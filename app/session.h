// One environment with one task, and where its messages go.
#pragma once

#include <tarvo.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace app {

// Exit statuses of the program.
enum Exit : int {
  exit_optimal = 0,
  exit_usage = 1,
  exit_unreadable = 2,
  exit_infeasible = 3,
  exit_unbounded = 4,
  exit_stopped = 5,
  exit_other = 6,
};

// Ends the program with a message on standard error.
struct Failure : std::runtime_error {
  Failure(Exit exit_status, const std::string& message) : std::runtime_error(message), status(exit_status) {}
  Exit status;
};

// Why a file couldn't be read.
struct ReadError {
  int32_t code = TRV_RES_OK;  // TRV_RES_OK: it could
  int32_t line = 0;           // 0 when unknown
  std::string text;           // the offending line, if any
  std::string message;        // what is wrong and what was expected
};

class Session {
 public:
  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  TRVtask task = nullptr;

  // Sends the log to a file as it happens; NULL drops it. Warnings and errors are kept apart.
  void log_to(std::FILE* file) { log_ = file; }
  void log(const std::string& line);

  // Reads a problem. A file that doesn't fit the layout that the parameters name is tried in the free MPS layout if
  // `try_free`; the layout used stays in TRV_IPAR_READ_MPS_FORMAT.
  ReadError read(const std::string& file, bool try_free);

  // The message of the last report, else the description of the code.
  std::string message(int32_t code) const;
  // Fails with the message of the code if it is an error.
  void check(int32_t code, const std::string& what) const;

 private:
  static void on_log(void* handle, const char* text);
  static void on_error(void* handle, const char* text);
  static void on_warning(void* handle, const char* text);
  ReadError read_once(const std::string& file);

  TRVenv env_ = nullptr;
  std::FILE* log_ = nullptr;
  std::string errors_;  // what came on the error stream since the last read began
  std::string echo_;    // the last text of the error or warning stream, which the log repeats
};

// The lower-case name of an MPS layout, TRV_MPS_FORMAT_.
std::string layout_name(int32_t format);

}  // namespace app
