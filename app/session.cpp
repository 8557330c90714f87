#include "session.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "cbf.h"

namespace app {
namespace {

// What the place of an error in an MPS file should hold.
const char* expectation(int32_t code) {
  switch (code) {
    case TRV_RES_ERR_MPS_INV_FIELD:
      return "a number or a name, with blanks between the fields";
    case TRV_RES_ERR_MPS_INV_MARKER:
      return "'INTORG' or 'INTEND'";
    case TRV_RES_ERR_MPS_UNDEF_CON_NAME:
      return "a name of the ROWS section";
    case TRV_RES_ERR_MPS_UNDEF_VAR_NAME:
      return "a name of the COLUMNS section";
    case TRV_RES_ERR_MPS_INV_CON_KEY:
      return "N, L, G or E";
    case TRV_RES_ERR_MPS_INV_BOUND_KEY:
      return "LO, UP, FX, FR, MI, PL, BV, LI or UI";
    case TRV_RES_ERR_MPS_INV_SEC_NAME:
    case TRV_RES_ERR_MPS_INV_SEC_ORDER:
      return "NAME, ROWS, COLUMNS, RHS, RANGES, BOUNDS and ENDATA in this order";
    case TRV_RES_ERR_MPS_INVALID_OBJSENSE:
      return "MIN, MINIMIZE, MAX or MAXIMIZE";
    case TRV_RES_ERR_MPS_CONE_TYPE:
      return "QUAD or RQUAD";
    case TRV_RES_ERR_MPS_FILE:
      return "a section name in the first column or a data line that begins with a blank";
    case TRV_RES_ERR_MPS_NO_OBJECTIVE:
      return "a row of type N";
    case TRV_RES_ERR_END_OF_FILE:
      return "ENDATA";
    case TRV_RES_ERR_READ_FORMAT:
      return "an MPS file";
    default:
      return nullptr;
  }
}

// Whether a file may have failed only because of its MPS layout.
bool may_be_layout(int32_t code) {
  return code != TRV_RES_OK && code != TRV_RES_ERR_FILE_OPEN && code != TRV_RES_ERR_FILE_READ &&
         code != TRV_RES_ERR_SPACE && code != TRV_RES_ERR_READ_FORMAT;
}

std::string trimmed(std::string text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  return text;
}

}  // namespace

std::string layout_name(int32_t format) {
  return format == TRV_MPS_FORMAT_STRICT ? "strict" : format == TRV_MPS_FORMAT_FREE ? "free" : "relaxed";
}

Session::Session() {
  int32_t code = TRV_makeenv(&env_, nullptr, nullptr, nullptr, nullptr);
  if (code == TRV_RES_OK) code = TRV_initenv(env_);
  if (code == TRV_RES_OK) code = TRV_makeemptytask(env_, &task);
  if (code != TRV_RES_OK) {
    const std::string text = message(code);
    TRV_deleteenv(&env_);
    throw Failure(exit_other, text);
  }
  TRV_linkfunctotaskstream(task, TRV_STREAM_ERR, this, on_error);
  TRV_linkfunctotaskstream(task, TRV_STREAM_WRN, this, on_warning);
  TRV_linkfunctotaskstream(task, TRV_STREAM_LOG, this, on_log);
}

Session::~Session() {
  TRV_deletetask(&task);
  TRV_deleteenv(&env_);
}

void Session::on_log(void* handle, const char* text) {
  auto* self = static_cast<Session*>(handle);
  // The log repeats the texts of the other streams right behind them.
  if (!self->echo_.empty() && self->echo_ == text) {
    self->echo_.clear();
    return;
  }
  if (self->log_ == nullptr) return;
  std::fputs(text, self->log_);
  std::fflush(self->log_);
}

void Session::on_error(void* handle, const char* text) {
  auto* self = static_cast<Session*>(handle);
  self->errors_ += text;
  self->echo_ = text;
}

void Session::on_warning(void* handle, const char* text) {
  auto* self = static_cast<Session*>(handle);
  self->echo_ = text;
  // "TARVO Warning 53     : A large ..."
  const std::string_view line(text);
  const auto colon = line.starts_with("TARVO Warning") ? line.find(": ") : line.npos;
  std::fprintf(stderr, "tarvo: warning: %s", colon == line.npos ? text : text + colon + 2);
}

void Session::log(const std::string& line) {
  if (log_ == nullptr) return;
  std::fprintf(log_, "%s\n", line.c_str());
  std::fflush(log_);
}

std::string Session::message(int32_t code) const {
  char text[TRV_MAX_STR_LEN] = "";
  int32_t last = TRV_RES_OK;
  if (task != nullptr && TRV_getlasterror(task, &last, sizeof text, nullptr, text) == TRV_RES_OK && last == code &&
      text[0] != '\0') {
    return text;
  }
  char name[TRV_MAX_STR_LEN];
  TRV_getcodedisc(code, name, text);
  return text[0] != '\0' ? text : "response code " + std::to_string(code);
}

void Session::check(int32_t code, const std::string& what) const {
  if (code != TRV_RES_OK) throw Failure(exit_other, what + ": " + message(code));
}

ReadError Session::read_once(const std::string& file) {
  errors_.clear();
  ReadError error;
  error.code = TRV_readdata(task, file.c_str());
  if (error.code == TRV_RES_OK) return error;
  error.message = message(error.code);
  if (error.code == TRV_RES_ERR_FILE_OPEN) {
    // The system knows the reason better.
    errno = 0;
    std::FILE* again = std::fopen(file.c_str(), "r");
    error.message = "the file can't be opened";
    int reason = errno;
    // A directory opens for reading and fails only when it is read.
    if (again != nullptr && std::fgetc(again) == EOF && std::ferror(again)) reason = errno;
    if (reason != 0) error.message += std::string(": ") + std::strerror(reason);
    if (again != nullptr) std::fclose(again);
  }
  if (const char* expected = expectation(error.code); expected != nullptr) {
    error.message += std::string(" Expected: ") + expected + ".";
  }
  // The reader shows the place as "... line(12):" with the line below it.
  if (const auto at = errors_.find("line("); at != std::string::npos) {
    error.line = std::atoi(errors_.c_str() + at + 5);
    if (const auto begin = errors_.find('\n', at); begin != std::string::npos) {
      error.text = trimmed(errors_.substr(begin + 1, errors_.find('\n', begin + 1) - begin - 1));
    }
  }
  return error;
}

ReadError Session::read(const std::string& file, bool try_free) {
  if (is_cbf(file)) return read_cbf(task, file);
  ReadError first = read_once(file);
  int32_t format = TRV_MPS_FORMAT_FREE;
  TRV_getintparam(task, TRV_IPAR_READ_MPS_FORMAT, &format);
  if (!try_free || format == TRV_MPS_FORMAT_FREE || !may_be_layout(first.code)) return first;

  TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, TRV_MPS_FORMAT_FREE);
  ReadError second = read_once(file);
  if (second.code == TRV_RES_OK) {
    log("The file doesn't fit the " + layout_name(format) + " MPS layout (line " + std::to_string(first.line) +
        "); it was read in the free layout.");
    return second;
  }
  // The layout that came further is likely the one that was meant.
  if (second.line > first.line) {
    second.message += " (Read in the free MPS layout.)";
    return second;
  }
  TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, format);
  if (first.line > 0)
    first.message += " (Read in the " + layout_name(format) + " MPS layout; the free one failed as well.)";
  return first;
}

}  // namespace app
