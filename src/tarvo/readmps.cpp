// The tokeniser of MPS files.
#include "tarvo/readmps.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "cpub/numtext.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"

namespace tarvo {

namespace {

constexpr std::string_view keywords[] = {"NAME",     "OBJSENSE", "OBJNAME", "ROWS",    "COLUMNS",
                                         "RHS",      "RANGES",   "BOUNDS",  "SETS",    "QUADOBJ",
                                         "QSECTION", "CSECTION", "ENDATA",  "QMATRIX", "QCMATRIX"};
constexpr int num_sections = static_cast<int>(sizeof(keywords) / sizeof(keywords[0]));

// The fixed layouts: first column and the column behind each field, counted from 0.
struct Columns {
  int first, last;
};
constexpr Columns col_key = {1, 3}, col_name1 = {4, 12}, col_name2 = {14, 22}, col_number1 = {24, 36},
                  col_name3 = {39, 47}, col_number2 = {49, 61};
constexpr int col_end = 62;

enum Wanted : unsigned {
  want_key = 1,
  want_name1 = 2,
  want_name2 = 4,
  want_number1 = 8,
  want_name3 = 16,
  want_number2 = 32
};
constexpr unsigned want_pairs = want_name1 | want_name2 | want_number1 | want_name3 | want_number2;

unsigned wanted_fields(MpsSection section) {
  switch (section) {
    case MpsSection::rows:
      return want_key | want_name1;
    case MpsSection::bounds:
      return want_key | want_name1 | want_name2 | want_number1;
    case MpsSection::objsense:
    case MpsSection::objname:
    case MpsSection::csection:
      return want_name1;
    default:
      return want_pairs;
  }
}

bool is_marker(std::string_view name) { return name == "'MARKER'"; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

bool equal_nocase(std::string_view s, std::string_view lower) {
  if (s.size() != lower.size()) return false;
  for (std::size_t k = 0; k < s.size(); ++k)
    if ((s[k] | 0x20) != lower[k]) return false;
  return true;
}

// Numbers as writers of MPS files put them: a "D" exponent but no "d", blanks anywhere in a fixed field, infinite
// values by name.
bool parse_number(MpsText* text, std::string_view token, double* value) {
  token = trim(token);
  if (token.empty()) {
    *value = 0.0;
    return true;
  }
  const char* last = token.data() + token.size();
  const char* stop = num_scan(token.data(), last, value);
  if (stop != last && token.find(' ') != std::string_view::npos) {
    char* digits = text->digits;
    for (const char c : token) {
      if (c == ' ') continue;
      if (digits == text->digits + sizeof(text->digits)) return false;
      *digits++ = c;
    }
    token = {text->digits, static_cast<std::size_t>(digits - text->digits)};
    last = digits;
    stop = num_scan(token.data(), last, value);
  }
  if (stop == last) {
    *value += 0.0;  // no negative zeros
    return token.find('d') == std::string_view::npos;
  }
  const bool negative = token.front() == '-';
  if (negative || token.front() == '+') token.remove_prefix(1);
  if (!equal_nocase(token, "inf") && !equal_nocase(token, "infinity")) return false;
  *value = negative ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
  return true;
}

// Moves to the next line that isn't a comment.
MpsStatus read_line(MpsText* text) {
  if (text->pushed) {
    text->pushed = false;
  } else {
    do {
      if (text->next == text->end) return MpsStatus::end_of_file;
      text->first = text->next;
      auto* const feed =
          static_cast<char*>(std::memchr(text->first, '\n', static_cast<std::size_t>(text->end - text->first)));
      text->last = feed == nullptr ? text->end : feed;
      text->next = feed == nullptr ? text->end : feed + 1;
      ++text->line;
    } while (*text->first == '*');
    const bool cut_tabs = text->tabs;
    while (text->last != text->first && (text->last[-1] == ' ' || (cut_tabs && text->last[-1] == '\t'))) --text->last;
  }
  if (text->nul >= text->first && text->nul < text->next) return MpsStatus::other;
  if (text->first == text->last) return MpsStatus::empty;
  return *text->first == ' ' ? MpsStatus::ok : MpsStatus::section;
}

// Columns beyond the 32-bit range hold nothing that the fixed layouts look at.
int length(const MpsText& text) {
  return static_cast<int>(std::min<std::ptrdiff_t>(text.last - text.first, std::numeric_limits<int32_t>::max()));
}

std::string_view piece(const char* line, int n, Columns at) {
  if (n <= at.first) return {};
  int last = std::min(n, at.last);
  while (last > at.first && line[last - 1] == ' ') --last;
  return {line + at.first, static_cast<std::size_t>(last - at.first)};
}

bool blank_between(const char* line, int n, int first, int last) {
  for (int k = first; k < std::min(n, last); ++k)
    if (line[k] != ' ') return false;
  return true;
}

// One number field of the fixed layouts. *stop is where the fields behind it go on, n when nothing may follow.
bool fixed_number(MpsText* text, const char* line, int n, Columns at, int next_field, double* value, int* stop) {
  int last = std::min(n, at.last);
  *stop = last;
  if (text->layout == TRV_MPS_FORMAT_RELAXED && n > at.last && line[at.last - 1] != ' ') {
    while (last < n && line[last] != ' ') ++last;
    *stop = last;
    if (last > next_field) {
      if (!blank_between(line, n, last, n)) return false;
      *stop = n;
    }
  }
  return parse_number(text, {line + at.first, static_cast<std::size_t>(last - at.first)}, value);
}

MpsStatus split_fixed(MpsText* text, unsigned wanted, const char* line, int n, MpsFields* f) {
  f->key = trim(piece(line, n, col_key));
  if (n > 3 && line[3] != ' ') return MpsStatus::field0;
  f->name1 = piece(line, n, col_name1);
  if (!blank_between(line, n, col_name1.last, col_name2.first)) return MpsStatus::field1;
  f->name2 = piece(line, n, col_name2);
  if (!blank_between(line, n, col_name2.last, col_number1.first)) return MpsStatus::field2;
  if (n <= col_number1.first || (wanted & want_number1) == 0) return MpsStatus::ok;
  int at;
  if (!fixed_number(text, line, n, col_number1, col_name3.first, &f->number1, &at)) return MpsStatus::field3;
  if (at == n) return MpsStatus::ok;
  if (!blank_between(line, n, at, col_name3.first)) return MpsStatus::field3;
  if ((wanted & want_name3) == 0) return MpsStatus::ok;
  f->name3 = piece(line, n, col_name3);
  if (!blank_between(line, n, col_name3.last, col_number2.first)) return MpsStatus::field4;
  if (n <= col_number2.first) return MpsStatus::ok;
  if (!fixed_number(text, line, n, col_number2, col_end, &f->number2, &at)) return MpsStatus::field5;
  return blank_between(line, n, at, col_end) ? MpsStatus::ok : MpsStatus::field5;
}

// The next token of the free layout; false at the end of the line. Quotes of a name are left out.
bool next_token(const MpsText& text, const char** at, const char* last, bool is_name, std::string_view* token) {
  const char* p = *at;
  while (p != last && *p == ' ') ++p;
  const bool in_quotes = is_name && text.quoted && p != last && *p == '"';
  if (in_quotes) ++p;
  const char* const first = p;
  const char stop = in_quotes ? '"' : ' ';
  while (p != last && *p != stop) ++p;
  *token = {first, static_cast<std::size_t>(p - first)};
  *at = in_quotes && p != last ? p + 1 : p;
  return in_quotes || p != first;
}

bool free_number(MpsText* text, const char** at, const char* last, double* value) {
  std::string_view token;
  next_token(*text, at, last, false, &token);
  return parse_number(text, token, value);
}

// Whether the line of an RHS, RANGES or BOUNDS section lacks the vector's name: there is a token too few, and its last
// one is a number, or the bound key needs none.
bool lacks_vector_name(MpsText* text, MpsSection section, std::string_view key, const char* at, const char* last) {
  int count = 0;
  std::string_view token;
  while (next_token(*text, &at, last, true, &token)) ++count;
  if (section == MpsSection::bounds && (key == "MI" || key == "PL" || key == "FR" || key == "BV")) return count == 1;
  double value;
  return (count == 2 || (count == 4 && section != MpsSection::bounds)) && parse_number(text, token, &value);
}

MpsStatus split_free(MpsText* text, MpsSection section, unsigned wanted, const char* at, const char* last,
                     MpsFields* f) {
  if (wanted & want_key) next_token(*text, &at, last, false, &f->key);
  if (section == MpsSection::rhs || section == MpsSection::ranges || section == MpsSection::bounds)
    if (lacks_vector_name(text, section, f->key, at, last)) wanted &= ~want_name1;
  if (wanted & want_name1) next_token(*text, &at, last, true, &f->name1);
  if (wanted & want_name2) next_token(*text, &at, last, true, &f->name2);
  if (section == MpsSection::columns && is_marker(f->name2)) wanted &= ~(want_number1 | want_number2);
  if (wanted & want_number1 && !free_number(text, &at, last, &f->number1)) return MpsStatus::field3;
  if (wanted & want_name3) next_token(*text, &at, last, true, &f->name3);
  if (wanted & want_number2 && !free_number(text, &at, last, &f->number2)) return MpsStatus::field5;
  // Text behind the last field would be data lost in silence.
  std::string_view extra;
  return next_token(*text, &at, last, false, &extra) ? MpsStatus::other : MpsStatus::ok;
}

bool has_tab(std::string_view name) { return name.find('\t') != std::string_view::npos; }

MpsStatus check_tabs(const MpsFields& f) {
  if (has_tab(f.name1)) return MpsStatus::tab_in_field2;
  if (has_tab(f.name2)) return MpsStatus::tab_in_field3;
  return has_tab(f.name3) ? MpsStatus::tab_in_field5 : MpsStatus::ok;
}

MpsStatus split(MpsText* text, MpsSection section, unsigned wanted, MpsFields* f) {
  *f = MpsFields{};
  MpsStatus status;
  // The sense stands at any place in most files.
  if (text->layout == TRV_MPS_FORMAT_FREE ||
      (text->layout == TRV_MPS_FORMAT_RELAXED && section == MpsSection::objsense)) {
    status = split_free(text, section, wanted, text->first, text->last, f);
  } else {
    status = split_fixed(text, wanted, text->first, length(*text), f);
    // Many writers don't keep to the columns on marker lines.
    if (section == MpsSection::columns && text->layout == TRV_MPS_FORMAT_RELAXED && status != MpsStatus::ok) {
      MpsFields marker{};
      if (split_free(text, section, wanted, text->first, text->last, &marker) == MpsStatus::ok &&
          is_marker(marker.name2)) {
        *f = marker;
        status = MpsStatus::ok;
      }
    }
  }
  return status == MpsStatus::ok && text->tabs ? check_tabs(*f) : status;
}

}  // namespace

const char* mps_keyword(MpsSection section) { return keywords[static_cast<int>(section)].data(); }

void mps_open(MpsText* text, char* data, std::size_t size, int32_t layout, bool quoted) {
  if (size != 0 && std::memchr(data, '\r', size) != nullptr)
    size = static_cast<std::size_t>(std::remove(data, data + size, '\r') - data);
  *text = MpsText{};
  text->begin = data;
  text->end = data + size;
  text->layout = std::clamp<int32_t>(layout, TRV_MPS_FORMAT_STRICT, TRV_MPS_FORMAT_FREE);
  text->quoted = quoted;
  text->tabs = size != 0 && std::memchr(data, '\t', size) != nullptr;
  char* const nul = size == 0 ? nullptr : static_cast<char*>(std::memchr(data, '\0', size));
  text->nul = nul == nullptr ? text->end : nul;
  mps_rewind(text);
}

void mps_rewind(MpsText* text) {
  text->next = text->first = text->last = text->begin;
  text->line = 0;
  text->pushed = false;
}

MpsStatus mps_section(MpsText* text, MpsSection* section, std::string_view* rest, MpsFields* fields) {
  MpsStatus status;
  do status = read_line(text);
  while (status == MpsStatus::empty);
  if (status == MpsStatus::ok) return MpsStatus::unknown_section;
  if (status != MpsStatus::section) return status;
  const std::string_view line(text->first, static_cast<std::size_t>(text->last - text->first));
  int k = 0;
  while (k < num_sections && !line.starts_with(keywords[k])) ++k;
  if (k == num_sections) return MpsStatus::unknown_section;
  *section = static_cast<MpsSection>(k);
  *rest = line.substr(keywords[k].size());
  const bool named =
      *section == MpsSection::qsection || *section == MpsSection::csection || *section == MpsSection::qcmatrix;
  if (!named) return MpsStatus::ok;
  // The fixed layouts have the name at the place of name 2; in the relaxed one tokens do where columns don't.
  *fields = MpsFields{};
  constexpr unsigned wanted = want_name2 | want_number1 | want_name3;
  status = MpsStatus::field1;
  if (text->layout != TRV_MPS_FORMAT_FREE) {
    std::memset(text->first, ' ', keywords[k].size());
    status = split_fixed(text, wanted, text->first, length(*text), fields);
    if (status == MpsStatus::ok && !(fields->key.empty() && fields->name1.empty())) status = MpsStatus::field1;
    std::memcpy(text->first, keywords[k].data(), keywords[k].size());
  }
  if (status != MpsStatus::ok && text->layout != TRV_MPS_FORMAT_STRICT) {
    *fields = MpsFields{};
    status = split_free(text, *section, wanted, rest->data(), text->last, fields);
  }
  return status == MpsStatus::ok && text->tabs ? check_tabs(*fields) : status;
}

MpsStatus mps_data(MpsText* text, MpsSection section, MpsFields* fields) {
  MpsStatus status;
  do status = read_line(text);
  while (status == MpsStatus::empty);
  if (status == MpsStatus::section) text->pushed = true;
  if (status != MpsStatus::ok || section == MpsSection::sets) return status;
  return split(text, section, wanted_fields(section), fields);
}

int32_t mps_report(Task* task, MpsStatus status) {
  switch (status) {
    case MpsStatus::field1:
    case MpsStatus::field2:
    case MpsStatus::field3:
    case MpsStatus::field4:
    case MpsStatus::field5:
      return report<TRV_RES_ERR_MPS_INV_FIELD>(task,
                                               static_cast<int32_t>(status) - static_cast<int32_t>(MpsStatus::field0));
    case MpsStatus::unknown_section:
      return report<TRV_RES_ERR_MPS_INV_SEC_NAME>(task);
    case MpsStatus::tab_in_field2:
      return report<TRV_RES_ERR_MPS_TAB_IN_FIELD2>(task);
    case MpsStatus::tab_in_field3:
      return report<TRV_RES_ERR_MPS_TAB_IN_FIELD3>(task);
    case MpsStatus::tab_in_field5:
      return report<TRV_RES_ERR_MPS_TAB_IN_FIELD5>(task);
    case MpsStatus::end_of_file:
      return report<TRV_RES_ERR_END_OF_FILE>(task);
    default:
      return report<TRV_RES_ERR_MPS_FILE>(task);
  }
}

void mps_showline(Task* task, const MpsText& text, const char* filename, const char* expected) {
  if (filename != nullptr) task_print(task, TRV_STREAM_ERR, "File: '%s'\n", filename);
  task_print(task, TRV_STREAM_ERR, "The error occured at line(%lld):\n", static_cast<long long>(text.line));
  const auto shown = static_cast<int>(std::min<std::ptrdiff_t>(text.last - text.first, 1000));
  task_print(task, TRV_STREAM_ERR, "%.*s\n", shown, text.first);
  if (expected != nullptr) task_print(task, TRV_STREAM_ERR, "Expected here: %s.\n", expected);
}

}  // namespace tarvo
