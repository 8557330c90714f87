#include "names.h"

#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>
#include <vector>

namespace app {
namespace {

// Texts of the limits, empty where there is none; they are what the tables say.
struct Range {
  std::string lo, up;
};
Range AT_LEAST(const char* lo, const char*) { return {lo, ""}; }
Range AT_MOST(const char*, const char* up) { return {"", up}; }
Range BETWEEN(const char* lo, const char* up) { return {lo, up}; }
Range ANY(const char*, const char*) { return {}; }

struct Param {
  std::string prefix, name, type, value;
  Range range;
  std::string family, meaning;
  std::string full() const { return prefix + name; }
};

const std::vector<Param>& params() {
  static const std::vector<Param> table = {
#define IPAR(index, name, value, kind, lo, up, family, meaning) \
  {"TRV_IPAR_", #name, "int", #value, kind(#lo, #up), #family, meaning},
#define IPAR_UNUSED(index)
#include "ipar.def"
#undef IPAR
#undef IPAR_UNUSED
#define DPAR(index, name, value, kind, lo, up, meaning) \
  {"TRV_DPAR_", #name, "double", #value, kind(#lo, #up), "NONE", meaning},
#include "dpar.def"
#undef DPAR
#define SPAR(index, name, value, meaning) {"TRV_SPAR_", #name, "string", #value, {}, "NONE", meaning},
#include "spar.def"
#undef SPAR
  };
  return table;
}

struct Member {
  std::string family, name;
  int32_t value;
};
const std::vector<Member>& members() {
  static const std::vector<Member> table = {
#define ENUM(family, member, value) {#family, #member, value},
#include "enums.def"
#undef ENUM
      {"ONOFF", "OFF", TRV_OFF},
      {"ONOFF", "ON", TRV_ON},
  };
  return table;
}

constexpr const char* optimizers[] = {"free", "intpnt",       "conic", "qcone",     "primal",
                                      "dual", "free-simplex", "mip",   "nonconvex", "concurrent"};

std::string upper(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}
std::string lower(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}
std::string trimmed(const std::string& text) {
  const auto begin = text.find_first_not_of(" \t");
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::string full_member(const Member& member) {
  return member.family == "ONOFF" ? "TRV_" + member.name : "TRV_" + member.family + "_" + member.name;
}

// The names of a family's values, "FREE, NONE, ..."; the numbers a family stands for are its limits.
std::string member_list(const std::string& family) {
  std::string list;
  for (const Member& member : members()) {
    if (member.family == family) list += (list.empty() ? "" : ", ") + member.name;
  }
  return list;
}

std::string range_text(const Param& param) {
  if (param.family != "NONE") return member_list(param.family);
  if (param.range.lo.empty() && param.range.up.empty()) return "any";
  if (param.range.up.empty()) return "at least " + param.range.lo;
  if (param.range.lo.empty()) return "at most " + param.range.up;
  return param.range.lo + " to " + param.range.up;
}

std::string default_text(const Param& param) {
  for (const Member& member : members()) {
    if (member.family == param.family && std::to_string(member.value) == param.value) return member.name;
  }
  return param.value;
}

// The fewest insertions, deletions and changes of a letter that turn a into b.
std::size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t change = diagonal + (a[i - 1] != b[j - 1] ? 1 : 0);
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, change}));
    }
  }
  return row[b.size()];
}

const Param& find_param(const std::string& given) {
  std::string name = upper(given);
  for (const Param& param : params()) {
    // With the whole prefix, with "IPAR_" alone, or without.
    const std::string full = param.full();
    if (name == full || name == param.name || "TRV_" + name == full) return param;
  }
  const auto tail = name.find("PAR_");
  if (tail <= 5) name = name.substr(tail + 4);
  const auto nearest =
      std::ranges::min_element(params(), {}, [&](const Param& param) { return distance(name, param.name); });
  throw Failure(exit_usage, "there is no parameter '" + given + "'; did you mean '" + nearest->name +
                                "'? (--list-params lists them)");
}

}  // namespace

std::string member_name(const char* family, int32_t value) {
  for (const Member& member : members()) {
    if (member.family == family && member.value == value) return lower(member.name);
  }
  return "unknown";
}

int32_t optimizer_value(const std::string& name) {
  const auto at = std::ranges::find(optimizers, name);
  return at != std::end(optimizers) ? static_cast<int32_t>(at - std::begin(optimizers)) : -1;
}
std::string optimizer_name(int32_t value) {
  return value >= 0 && value < static_cast<int32_t>(std::size(optimizers)) ? optimizers[value] : "unknown";
}

void set_param(const Session& session, const std::string& setting) {
  const auto equals = setting.find('=');
  if (equals == std::string::npos) throw Failure(exit_usage, "expected NAME=VALUE, not '" + setting + "'");
  const Param& param = find_param(trimmed(setting.substr(0, equals)));
  std::string value = setting.substr(equals + 1);
  if (param.type != "string") value = trimmed(value);
  if (param.type == "int") {
    const std::string symbol = upper(value);
    for (const Member& member : members()) {
      if (member.family == param.family &&
          (symbol == member.name || symbol == member.family + "_" + member.name || symbol == full_member(member))) {
        value = full_member(member);
      }
    }
  }
  const int32_t code = TRV_putparam(session.task, param.full().c_str(), value.c_str());
  if (code == TRV_RES_OK) return;
  std::string expected = "a " + param.type;
  if (param.type == "int") expected = param.family != "NONE" ? "one of " + range_text(param) : "an integer";
  if (param.family == "NONE" && range_text(param) != "any") expected += ", " + range_text(param);
  throw Failure(exit_usage, session.message(code) + " Expected: " + expected + ".");
}

bool list_params(std::ostream& out, const std::string& pattern) {
  bool any = false;
  const std::string wanted = upper(pattern);
  const bool glob = wanted.find_first_of("*?") != std::string::npos;
  for (const Param& param : params()) {
    const bool shown = glob ? fnmatch(wanted.c_str(), param.name.c_str(), 0) == 0 ||
                                  fnmatch(wanted.c_str(), param.full().c_str(), 0) == 0
                            : param.full().find(wanted) != std::string::npos;
    if (!shown) continue;
    any = true;
    out << param.full() << "  " << param.type;
    if (param.type != "string") out << "  " << range_text(param);
    out << "  [" << default_text(param) << "]\n    " << param.meaning << "\n";
  }
  return any;
}

}  // namespace app
