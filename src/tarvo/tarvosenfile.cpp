// Sensitivity reports: the reader of request files, the table of results, TRV_sensitivityreport.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "cpub/sysfile.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosen.h"

namespace tarvo {

namespace {

// ---- Requests ----------------------------------------------------------------------------------------------------

constexpr int32_t both_marks = 2;
constexpr int32_t max_pattern = 1024;

enum class Section { none, con, var, cost };

struct Reader {
  Task* task;
  SenRequests* requests;
  const char* p;  // ended by a NUL
  const char* end;
  int32_t line = 1;
  Section section = Section::none;
};

// One end of an item: an index, or a name or pattern of `length` bytes at `text`.
struct ItemText {
  int32_t index = -1;
  char text[max_pattern + 1] = "";
  bool quoted = false;
  bool pattern = false;  // it holds a wildcard or an escape
};

int32_t syntax(Reader& r, const char* text) { return report<TRV_RES_ERR_SEN_FORMAT>(r.task, r.line, text); }

int32_t accmode_of(const Reader& r) { return r.section == Section::con ? TRV_ACC_CON : TRV_ACC_VAR; }

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
void skip_blanks(Reader& r) {
  while (r.p < r.end && is_blank(*r.p)) ++r.p;
}
bool at_line_end(const Reader& r) { return r.p == r.end || *r.p == '\n' || *r.p == '*'; }
void skip_line(Reader& r) {
  while (r.p < r.end && *r.p != '\n') ++r.p;
}

// Takes a word if it stands here and ends here.
bool take_word(Reader& r, std::string_view word) {
  const auto left = static_cast<std::size_t>(r.end - r.p);
  if (left < word.size() || std::string_view(r.p, word.size()) != word) return false;
  const char* behind = r.p + word.size();
  if (behind < r.end && !is_blank(*behind) && *behind != '\n' && *behind != '*') return false;
  r.p = behind;
  return true;
}

// Takes a section's head if one stands here.
int32_t read_section(Reader& r, bool* found) {
  *found = false;
  const bool bounds = take_word(r, "BOUNDS");
  if (!bounds && !take_word(r, "OBJECTIVE")) return TRV_RES_OK;
  skip_blanks(r);
  if (bounds && take_word(r, "CONSTRAINTS"))
    r.section = Section::con;
  else if (take_word(r, "VARIABLES"))
    r.section = bounds ? Section::var : Section::cost;
  else
    return syntax(r, "\n Whitespace or new section expected.");
  skip_blanks(r);
  *found = true;
  return at_line_end(r) ? TRV_RES_OK : syntax(r, "\n Whitespace or new section expected.");
}

int32_t read_mark(Reader& r, int32_t* mark) {
  for (const auto& [word, value] : {std::pair<const char*, int32_t>{"LU", both_marks},
                                    {"UL", both_marks},
                                    {"L", TRV_MARK_LO},
                                    {"U", TRV_MARK_UP}}) {
    if (!take_word(r, word)) continue;
    *mark = value;
    return TRV_RES_OK;
  }
  return syntax(r, "\n Mark (L/U/LU) expected.");
}

// An index or a quoted name. A "-" belongs to a range, never to an index.
int32_t read_end(Reader& r, ItemText* item) {
  *item = {};
  if (r.p < r.end && (*r.p == '"' || *r.p == '\'')) {
    const char quote = *r.p++;
    item->quoted = true;
    std::size_t n = 0;
    while (r.p < r.end && *r.p != '\n' && *r.p != quote) {
      const char c = *r.p++;
      if (n == max_pattern || c == '\0') return syntax(r, "\n Parse error in string.");
      if (c == '*' || c == '?' || c == '\\') item->pattern = true;
      item->text[n++] = c;
    }
    if (r.p == r.end || *r.p != quote || n == 0) return syntax(r, "\n Parse error in string.");
    ++r.p;
    return TRV_RES_OK;
  }
  if (r.p == r.end || *r.p < '0' || *r.p > '9') return syntax(r, "\nIndex expected.");
  int64_t value = 0;
  while (r.p < r.end && *r.p >= '0' && *r.p <= '9') {
    value = std::min<int64_t>(10 * value + (*r.p++ - '0'), INT32_MAX);
  }
  item->index = static_cast<int32_t>(value);
  return TRV_RES_OK;
}

// Whether the text fits the pattern: "*" is any text, "?" any character, "\" takes the meaning off the next one.
bool matches(const char* pattern, const char* text) {
  const char *star = nullptr, *resume = nullptr;
  while (*text != '\0') {
    const char* p = pattern;
    const bool literal = *p == '\\';
    if (literal) ++p;
    if (!literal && *p == '*') {
      star = ++pattern;
      resume = text;
      continue;
    }
    if (*p != '\0' && ((!literal && *p == '?') || *p == *text)) {
      pattern = p + 1;
      ++text;
      continue;
    }
    if (star == nullptr) return false;
    pattern = star;
    text = ++resume;
  }
  while (*pattern == '*') ++pattern;
  return *pattern == '\0';
}

bool is_valid_pattern(const char* pattern) {
  for (; *pattern != '\0'; ++pattern)
    if (*pattern == '\\' && *++pattern == '\0') return false;
  return true;
}

int32_t add_entry(Reader& r, int32_t mark, int32_t i) {
  int32_t response = TRV_RES_OK;
  if (r.section == Section::cost) {
    response = sen_append(r.task, &r.requests->cost, i, TRV_MARK_LO);
  } else {
    const bool con = r.section == Section::con;
    const int32_t bk = con ? r.task->bkc[i] : r.task->bkx[i];
    if (mark != TRV_MARK_LO && !has_upper(bk)) return report<TRV_RES_ERR_SEN_BOUND_INVALID_UP>(r.task, i, r.line);
    if (mark != TRV_MARK_UP && !has_lower(bk)) return report<TRV_RES_ERR_SEN_BOUND_INVALID_LO>(r.task, i, r.line);
    SenRequest* request = con ? &r.requests->con : &r.requests->var;
    if (mark != TRV_MARK_UP) response = sen_append(r.task, request, i, TRV_MARK_LO);
    if (mark != TRV_MARK_LO && response == TRV_RES_OK) response = sen_append(r.task, request, i, TRV_MARK_UP);
  }
  return response == TRV_RES_OK ? response : report<TRV_RES_ERR_SPACE>(r.task);
}

// The index of one end of a range, or of a single item without a pattern.
int32_t index_of(Reader& r, const ItemText& item, int32_t* index) {
  *index = item.index;
  if (!item.quoted) return TRV_RES_OK;
  *index = names_find(r.task, accmode_of(r), item.text);  // TRV_ACC_ and TRV_PI_ agree
  return *index >= 0 ? TRV_RES_OK
                     : report<TRV_RES_ERR_SEN_UNDEF_NAME>(r.task, static_cast<const char*>(item.text), r.line);
}

int32_t add_pattern(Reader& r, int32_t mark, const ItemText& item) {
  const auto* text = static_cast<const char*>(item.text);
  if (!is_valid_pattern(text)) return report<TRV_RES_ERR_SEN_INVALID_REGEXP>(r.task, r.line, text);
  bool any = false;
  for (int32_t i = 0; i < item_count(r.task, accmode_of(r)); ++i) {
    if (!matches(text, acc_name(r.task, accmode_of(r), i))) continue;
    any = true;
    if (const int32_t rc = add_entry(r, mark, i); rc != TRV_RES_OK) return rc;
  }
  return any ? TRV_RES_OK : report<TRV_RES_ERR_SEN_UNDEF_NAME>(r.task, text, r.line);
}

int32_t read_item(Reader& r, int32_t mark) {
  ItemText first, second;
  if (const int32_t rc = read_end(r, &first); rc != TRV_RES_OK) return rc;
  skip_blanks(r);
  const bool range = r.p < r.end && *r.p == '-';
  if (range) {
    ++r.p;
    skip_blanks(r);
    if (const int32_t rc = read_end(r, &second); rc != TRV_RES_OK) return rc;
    skip_blanks(r);
    if (first.pattern || second.pattern) return syntax(r, "\nRegular expression not allowed as part of range.");
  }
  if (first.pattern) return add_pattern(r, mark, first);

  int32_t from = 0, to = 0;
  int32_t rc = index_of(r, first, &from);
  if (rc == TRV_RES_OK) rc = range ? index_of(r, second, &to) : TRV_RES_OK;
  if (rc != TRV_RES_OK) return rc;
  if (!range) to = from;
  if (to < from) return report<TRV_RES_ERR_SEN_INDEX_INVALID>(r.task, from, to, r.line);
  const int32_t count = item_count(r.task, accmode_of(r));
  if (to >= count) return report<TRV_RES_ERR_SEN_INDEX_RANGE>(r.task, from >= count ? from : to, r.line);
  for (int32_t i = from; i <= to && rc == TRV_RES_OK; ++i) rc = add_entry(r, mark, i);
  return rc;
}

int32_t read_lines(Reader& r) {
  for (; r.p < r.end; ++r.p, ++r.line) {
    skip_blanks(r);
    // In the list of costs a line may begin with no mark, and still "*" is a comment: patterns stand in quotes.
    bool head = false;
    if (!at_line_end(r)) {
      if (const int32_t rc = read_section(r, &head); rc != TRV_RES_OK) return rc;
      if (!head && r.section == Section::none) return syntax(r, "\n Whitespace or new section expected.");
    }
    if (!head && !at_line_end(r)) {
      int32_t mark = TRV_MARK_LO;
      if (r.section != Section::cost) {
        if (const int32_t rc = read_mark(r, &mark); rc != TRV_RES_OK) return rc;
        skip_blanks(r);
        if (at_line_end(r)) return syntax(r, "\nIndex expected.");
      }
      while (!at_line_end(r)) {
        if (const int32_t rc = read_item(r, mark); rc != TRV_RES_OK) return rc;
        skip_blanks(r);
      }
    }
    skip_line(r);
    if (r.p == r.end) break;
  }
  return TRV_RES_OK;
}

}  // namespace

int32_t sen_append(Task* task, SenRequest* request, int32_t sub, int32_t mark) {
  const auto n = static_cast<std::size_t>(request->num);
  if (n == request->sub.size()) {
    // Either array may have grown alone at a former failure.
    const std::size_t grown = 2 * n + 16;
    if (request->num >= INT32_MAX / 2 || !request->mark.resize_keep(task->sys, grown) ||
        !request->sub.resize_keep(task->sys, grown))
      return TRV_RES_ERR_SPACE;
  }
  request->sub[n] = sub;
  request->mark[n] = mark;
  ++request->num;
  return TRV_RES_OK;
}

int32_t sen_readfile(Task* task, const char* filename, SenRequests* requests) {
  File* file = nullptr;
  int32_t code = file_open(task->sys, filename, FileMode::read, false, &file);
  if (code == SYS_SPACE) return report<TRV_RES_ERR_SPACE>(task);
  if (code != SYS_OK) return report<TRV_RES_ERR_FILE_OPEN>(task, filename);
  Array<char> text;
  std::size_t size = 0;
  code = file_readall(file, &text, &size);
  const int32_t closed = file_close(&file);
  if (code == SYS_OK) code = closed;
  if (code == SYS_SPACE) return report<TRV_RES_ERR_SPACE>(task);
  if (code != SYS_OK && code != SYS_END_OF_FILE) return report<TRV_RES_ERR_FILE_READ>(task, filename);
  Reader reader{task, requests, text.data(), text.data() + size};
  return read_lines(reader);
}

// ---- Results -----------------------------------------------------------------------------------------------------

namespace {

constexpr int32_t index_width = 8, min_name_width = 16, value_room = 32;

void put(const SenSink& sink, const char* text) {
  if (sink.file != nullptr)
    file_puts(sink.file, text);
  else
    streams_write(&sink.task->streams, sink.stream, text);
}

void put_padded(const SenSink& sink, const char* text, int32_t width) {
  put(sink, text);
  for (auto n = static_cast<int32_t>(std::strlen(text)); n < width; ++n) put(sink, " ");
}

void put_value(const SenSink& sink, double value) {
  char text[value_room];
  if (TRV_isinfinity(value) != 0 || TRV_isinfinity(-value) != 0)
    std::snprintf(text, sizeof text, " %-16s", value > 0.0 ? "+inf" : "-inf");
  else
    std::snprintf(text, sizeof text, " %-16.6e", value);
  put(sink, text);
}

}  // namespace

void sen_writelist(const SenSink& sink, const char* title, const SenList& list) {
  Task* task = sink.task;
  std::size_t longest = min_name_width;
  for (int32_t t = 0; t < list.num; ++t)
    longest = std::max(longest, std::strlen(acc_name(task, list.accmode, list.sub[t])));
  const auto width = static_cast<int32_t>(longest);
  put(sink, title);
  put_padded(sink, "INDEX", index_width);
  put(sink, " ");
  put_padded(sink, "NAME", width);
  char text[128];
  std::snprintf(text, sizeof text, " %-8s %-16s %-16s %-16s %-16s\n", list.mark == nullptr ? "" : "BOUND", "LEFTRANGE",
                "RIGHTRANGE", "LEFTSHADOW", "RIGHTSHADOW");
  put(sink, text);
  static constexpr const char* labels[] = {"LO", "UP", "FX"};
  for (int32_t t = 0; t < list.num; ++t) {
    const int32_t i = list.sub[t];
    std::snprintf(text, sizeof text, "%-*d ", index_width, i);
    put(sink, text);
    put_padded(sink, acc_name(task, list.accmode, i), width);
    std::snprintf(text, sizeof text, " %-8s",
                  list.mark == nullptr ? "" : labels[sen_label(task, list.accmode, i, list.mark[t])]);
    put(sink, text);
    for (const double value : {list.leftrange[t], list.rightrange[t], list.leftprice[t], list.rightprice[t]})
      put_value(sink, value);
    put(sink, "\n");
  }
}

namespace {

// Every bound once, both bounds of a ranged one, and every cost.
int32_t request_all(Task* task, SenRequests* requests) {
  int32_t response = TRV_RES_OK;
  for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
    const bool con = accmode == TRV_ACC_CON;
    SenRequest* request = con ? &requests->con : &requests->var;
    for (int32_t i = 0; i < item_count(task, accmode) && response == TRV_RES_OK; ++i) {
      const int32_t bk = con ? task->bkc[i] : task->bkx[i];
      if (has_lower(bk)) response = sen_append(task, request, i, TRV_MARK_LO);
      if (bk != TRV_BK_FX && has_upper(bk) && response == TRV_RES_OK)
        response = sen_append(task, request, i, TRV_MARK_UP);
    }
  }
  for (int32_t j = 0; j < task->numvar && response == TRV_RES_OK; ++j)
    response = sen_append(task, &requests->cost, j, TRV_MARK_LO);
  return response == TRV_RES_OK ? response : report<TRV_RES_ERR_SPACE>(task);
}

// Room for the results of a request in one block.
struct Results {
  Array<double> values;
  SenList list;
};
bool make_results(Task* task, int32_t accmode, const SenRequest& request, bool marks, Results* results) {
  const auto n = static_cast<std::size_t>(request.num);
  if (!results->values.alloc(task->sys, 4 * n, Fill::zero)) return false;
  double* v = results->values.data();
  if (n == 0) {
    results->list = {accmode, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    return true;
  }
  results->list = {accmode, request.num, request.sub.data(), marks ? request.mark.data() : nullptr,
                   v,       v + n,       v + 2 * n,          v + 3 * n};
  return true;
}

void write_results(const SenSink& sink, const Results (&results)[3]) {
  static constexpr const char* titles[3] = {"BOUNDS CONSTRAINTS\n", "BOUNDS VARIABLES\n", "OBJECTIVE VARIABLES\n"};
  for (int k = 0; k < 3; ++k)
    if (results[k].list.num > 0) sen_writelist(sink, titles[k], results[k].list);
}

int32_t write_report(Task* task, int32_t whichstream, const Results (&results)[3]) {
  const char* name = task->spar[TRV_SPAR_SENSITIVITY_RES_FILE_NAME];
  if (results[0].list.num + results[1].list.num + results[2].list.num == 0) return TRV_RES_OK;
  if (name == nullptr || *name == '\0') {
    write_results({task, nullptr, whichstream}, results);
    streams_flush(&task->streams, whichstream);
    return TRV_RES_OK;
  }
  if (log_enabled(task, task->ipar[TRV_IPAR_LOG_SENSITIVITY]))
    task_print(task, TRV_STREAM_MSG, "Writing sensitivity result file - %s\n", name);
  File* file = nullptr;
  const int32_t opened = file_open(task->sys, name, FileMode::write, false, &file);
  if (opened == SYS_SPACE) return report<TRV_RES_ERR_SPACE>(task);
  if (opened != SYS_OK) return report<TRV_RES_ERR_FILE_OPEN>(task, name);
  write_results({task, file, whichstream}, results);
  return file_close(&file) == SYS_OK ? TRV_RES_OK : report<TRV_RES_ERR_FILE_WRITE>(task, name);
}

}  // namespace

}  // namespace tarvo

using namespace tarvo;

extern "C" int32_t TRV_sensitivityreport(TRVtask task, int32_t whichstream) {
  int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  if (stream_check(whichstream) != TRV_RES_OK) return report<TRV_RES_ERR_INVALID_STREAM>(task, whichstream);
  const char* name = task->spar[TRV_SPAR_SENSITIVITY_FILE_NAME];
  const bool all = task->ipar[TRV_IPAR_SENSITIVITY_ALL] != TRV_OFF;
  if (!all && (name == nullptr || *name == '\0')) return TRV_RES_OK;

  SenRequests requests;
  response = all ? request_all(task, &requests) : sen_readfile(task, name, &requests);
  if (response != TRV_RES_OK) return response;
  Results results[3];
  if (!make_results(task, TRV_ACC_CON, requests.con, true, &results[0]) ||
      !make_results(task, TRV_ACC_VAR, requests.var, true, &results[1]) ||
      !make_results(task, TRV_ACC_VAR, requests.cost, false, &results[2]))
    return report<TRV_RES_ERR_SPACE>(task);
  const SenList &con = results[0].list, &var = results[1].list, &cost = results[2].list;
  if (con.num + var.num > 0)
    response = TRV_primalsensitivity(task, con.num, con.sub, con.mark, var.num, var.sub, var.mark, con.leftprice,
                                     con.rightprice, con.leftrange, con.rightrange, var.leftprice, var.rightprice,
                                     var.leftrange, var.rightrange);
  if (response == TRV_RES_OK && cost.num > 0)
    response =
        TRV_dualsensitivity(task, cost.num, cost.sub, cost.leftprice, cost.rightprice, cost.leftrange, cost.rightrange);
  return response == TRV_RES_OK ? write_report(task, whichstream, results) : response;
}
