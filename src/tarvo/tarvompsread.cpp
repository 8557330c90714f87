// Reads an MPS file: a pass that checks the syntax and counts, then one that loads the task section by section.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/readmps.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvomps.h"
#include "tarvo/tarvonam.h"

namespace tarvo {

namespace {

// A NUL-terminated copy of a piece of the text for a message.
struct Shown {
  char text[256];
  explicit Shown(std::string_view s) {
    const std::size_t n = std::min(s.size(), sizeof(text) - 1);
    if (n != 0) std::memcpy(text, s.data(), n);
    text[n] = '\0';
  }
  operator const char*() const { return text; }
};

// What the first pass counts; the sizes of the task and of the work arrays.
struct Counts {
  int64_t con, var, anz, cone, qnz, max_qnz;
};

// The name of the RHS, RANGES or BOUNDS vector that counts, of the several that a section may hold.
struct Vector {
  std::string_view wanted;    // by parameter, or empty
  std::string_view selected;  // known when state is not 0
  int32_t state;              // 0 nothing selected yet, 1 in the selected vector, 2 in another one behind it
};

// The rows with names of at most 8 bytes, nearly all: one probe of a flat table finds them, where the name store needs
// a bucket, an offset and a text. Empty when there was no memory for it.
struct ShortNames {
  Array<uint64_t> key;  // the bytes of a name, padded by zeros; 0 is an empty place
  Array<int32_t> row;
  uint64_t mask;
};

struct Reader {
  Task* task;
  MpsText text;
  const char* filename;
  const char* expected;  // what the line with an error should have had; NULL: nothing to say
  Counts counts;
  int32_t next;  // the lowest number of a section that may follow
  bool keep_free;
  int32_t obj_row;
  double cfix;
  int32_t con_hint, var_hint;  // the rows and variables found last: the next search is often for their successor
  ShortNames short_rows;
  Array<int32_t> ptr, sub;      // the columns, [numvar + 1] and [anz]
  Array<double> val;            // [anz]
  Array<int32_t> place;         // [numcon] 1 + the place of a row's element in the column that is open, else 0
  Array<int32_t> qsubi, qsubj;  // [max_qnz]
  Array<double> qval;           // [max_qnz]
  Array<int32_t> cone_of;       // [numvar] 1 + the cone of a variable, else 0
  Array<int32_t> members;       // [numvar]
};

int32_t fail(Reader* r, const char* expected, int32_t code) {
  r->expected = expected;
  return code;
}

int32_t bad_line(Reader* r, MpsStatus status) {
  const char* expected = nullptr;
  switch (status) {
    case MpsStatus::field3:
      expected = "a number in field 3";
      break;
    case MpsStatus::field5:
      expected = "a number in field 5";
      break;
    case MpsStatus::unknown_section:
      expected = "the name of a section";
      break;
    case MpsStatus::field0:
    case MpsStatus::field1:
    case MpsStatus::field2:
    case MpsStatus::field4:
      expected = "a blank in each gap between two fields";
      break;
    default:
      break;
  }
  return fail(r, expected, mps_report(r->task, status));
}

// Runs `line` for each data line of a section, up to the section line behind it.
template <class F>
int32_t each_line(Reader* r, MpsSection section, F line) {
  MpsFields fields;
  for (;;) {
    const MpsStatus status = mps_data(&r->text, section, &fields);
    if (status == MpsStatus::section) return TRV_RES_OK;
    if (status != MpsStatus::ok) return bad_line(r, status);
    if (const int32_t res = line(fields); res != TRV_RES_OK) return res;
  }
}

// Keys and infinite values that make no sense in a section.
int32_t check_line(Reader* r, MpsSection section, const MpsFields& f) {
  const bool bounds = section == MpsSection::rhs || section == MpsSection::ranges || section == MpsSection::bounds;
  if (!bounds && !std::isfinite(f.number1)) return bad_line(r, MpsStatus::field3);
  if (!bounds && !std::isfinite(f.number2)) return bad_line(r, MpsStatus::field5);
  const bool pairs = section == MpsSection::columns || section == MpsSection::rhs || section == MpsSection::ranges;
  if (pairs && !f.key.empty()) return bad_line(r, MpsStatus::field0);
  return TRV_RES_OK;
}

bool is_quadratic(MpsSection s) {
  return s == MpsSection::quadobj || s == MpsSection::qsection || s == MpsSection::qmatrix || s == MpsSection::qcmatrix;
}
bool is_marker_line(const MpsFields& f) { return f.name2 == "'MARKER'"; }

// Takes the next section line and checks the order of the sections.
int32_t next_section(Reader* r, MpsSection* section, std::string_view* rest, MpsFields* fields) {
  const MpsStatus status = mps_section(&r->text, section, rest, fields);
  if (status != MpsStatus::ok) return bad_line(r, status);
  const auto number = static_cast<int32_t>(*section);
  if (is_quadratic(*section) || *section == MpsSection::csection) {
    if (r->next <= static_cast<int32_t>(MpsSection::columns))
      return fail(r, "no such section before COLUMNS",
                  report<TRV_RES_ERR_MPS_INV_SEC_ORDER>(r->task, mps_keyword(*section)));
  } else if (number < r->next) {
    return fail(r, "sections in their order: NAME, OBJSENSE, OBJNAME, ROWS, COLUMNS, RHS, RANGES, BOUNDS, ENDATA",
                report<TRV_RES_ERR_MPS_INV_SEC_ORDER>(r->task, mps_keyword(*section)));
  } else if (*section != MpsSection::sets) {
    r->next = number + 1;
  }
  return TRV_RES_OK;
}

// The first pass.
int32_t count_sizes(Reader* r) {
  Task* const task = r->task;
  const bool log = log_enabled(task, task->ipar[TRV_IPAR_LOG_FILE]);
  const double start = sysenv_realtime();
  Counts& n = r->counts;
  if (log) task_print(task, TRV_STREAM_LOG, "Estimating problem size.\n");
  for (;;) {
    MpsSection section;
    std::string_view rest;
    MpsFields fields;
    if (const int32_t res = next_section(r, &section, &rest, &fields); res != TRV_RES_OK) return res;
    if (section == MpsSection::endata) break;
    if (log && section == MpsSection::rows)
      task_print(task, TRV_STREAM_LOG, "Estimating number of %s.\n", "constraints");
    if (log && section == MpsSection::columns)
      task_print(task, TRV_STREAM_LOG, "Estimating number of %s.\n", "variables and A nonzeros");
    if (section == MpsSection::csection) ++n.cone;
    int64_t qnz = 0, shown = 1000000;
    bool open = false;
    std::string_view variable;
    const int32_t res = each_line(r, section, [&](const MpsFields& f) -> int32_t {
      if (const int32_t bad = check_line(r, section, f); bad != TRV_RES_OK) return bad;
      if (section == MpsSection::rows) {
        ++n.con;
      } else if (section == MpsSection::columns && is_marker_line(f)) {
        open = false;
      } else if (section == MpsSection::columns) {
        if (!open || f.name1 != variable) ++n.var;
        open = true;
        variable = f.name1;
        n.anz += (f.name2.empty() ? 0 : 1) + (f.name3.empty() ? 0 : 1);
        if (log && n.anz >= shown) {
          task_print(task, TRV_STREAM_LOG, "Read %d number of %s in %.2f seconds.\n", static_cast<int32_t>(n.anz),
                     "A nonzeros", sysenv_realtime() - start);
          shown += 1000000;
        }
      } else if (is_quadratic(section)) {
        qnz += (f.name2.empty() ? 0 : 1) + (f.name3.empty() ? 0 : 1);
      }
      return TRV_RES_OK;
    });
    if (res != TRV_RES_OK) return res;
    n.qnz += qnz;
    n.max_qnz = std::max(n.max_qnz, qnz);
  }
  if (log)
    task_print(task, TRV_STREAM_LOG, "Finished estimating problem size. Time: %-.2f\n", sysenv_realtime() - start);
  return TRV_RES_OK;
}

constexpr std::size_t short_name = sizeof(uint64_t);

uint64_t short_key(std::string_view name) {
  uint64_t key = 0;
  std::memcpy(&key, name.data(), name.size());
  return key;
}

// The place of a key, or the empty place where it belongs.
std::size_t short_place(const ShortNames& table, uint64_t key) {
  uint64_t k = ((key * 0x9E3779B97F4A7C15u) >> 32) & table.mask;  // multiplicative hashing by the golden ratio
  while (table.key[k] != key && table.key[k] != 0) k = (k + 1) & table.mask;
  return k;
}

void make_short_rows(Reader* r) {
  const auto numcon = static_cast<std::size_t>(r->task->numcon);
  std::size_t size = 16;
  while (size < 2 * numcon) size *= 2;
  if (!r->short_rows.row.alloc(r->task->sys, size) || !r->short_rows.key.alloc(r->task->sys, size, Fill::zero)) return;
  r->short_rows.mask = size - 1;
  for (int32_t i = 0; i < r->task->numcon; ++i) {
    const std::string_view name = item_name(r->task, TRV_PI_CON, i);
    if (name.size() > short_name) continue;
    const std::size_t k = short_place(r->short_rows, short_key(name));
    r->short_rows.key[k] = short_key(name);
    r->short_rows.row[k] = i;
  }
}

// The index of a name, or -1.
int32_t find_item(Reader* r, int32_t kind, std::string_view name, int32_t* hint) {
  const int32_t count = kind == TRV_PI_CON ? r->task->numcon : r->task->numvar;
  if (*hint + 1 < count && !name.empty() && name == item_name(r->task, kind, *hint + 1)) return ++*hint;
  const int32_t found = names_find(r->task, kind, name);
  if (found != -1) *hint = found;
  return found;
}

int32_t find_row(Reader* r, std::string_view name, int32_t* row) {
  if (!name.empty() && name.size() <= short_name && !r->short_rows.key.empty()) {
    const std::size_t k = short_place(r->short_rows, short_key(name));
    *row = r->short_rows.key[k] == 0 ? -1 : r->short_rows.row[k];
  } else {
    *row = find_item(r, TRV_PI_CON, name, &r->con_hint);
  }
  if (*row != -1) return TRV_RES_OK;
  return fail(r, "the name of a row of the ROWS section",
              report<TRV_RES_ERR_MPS_UNDEF_CON_NAME>(r->task, static_cast<const char*>(Shown(name))));
}

int32_t find_var(Reader* r, std::string_view name, int32_t* var) {
  *var = find_item(r, TRV_PI_VAR, name, &r->var_hint);
  if (*var != -1) return TRV_RES_OK;
  return fail(r, "the name of a variable of the COLUMNS section",
              report<TRV_RES_ERR_MPS_UNDEF_VAR_NAME>(r->task, static_cast<const char*>(Shown(name))));
}

int32_t out_of_space(Reader* r) { return report<TRV_RES_ERR_SPACE>(r->task); }

std::string_view parameter(const Task* task, int32_t which) {
  std::string_view value = task->spar[which] == nullptr ? "" : task->spar[which];
  while (!value.empty() && value.back() == ' ') value.remove_suffix(1);
  return value;
}

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  return s;
}

// Lets `call` have a NUL-terminated copy of a text.
template <class F>
int32_t with_text(Reader* r, std::string_view s, F call) {
  Array<char> copy;
  if (!copy.alloc(r->task->sys, s.size() + 1)) return out_of_space(r);
  if (!s.empty()) std::memcpy(copy.data(), s.data(), s.size());
  copy[s.size()] = '\0';
  return call(copy.data());
}

void log_vector(Reader* r, std::string_view name, const char* kind) {
  if (log_enabled(r->task, r->task->ipar[TRV_IPAR_LOG_FILE]))
    task_print(r->task, TRV_STREAM_LOG, "Using '%s' as %s vector\n", static_cast<const char*>(Shown(name)), kind);
}

int32_t read_name(Reader* r, std::string_view rest) {
  // Lines are read whole whatever their length; the width of a line limits the task's name alone.
  const std::string_view name =
      trimmed(rest).substr(0, static_cast<std::size_t>(r->task->ipar[TRV_IPAR_READ_MPS_WIDTH]));
  const int32_t res = with_text(r, name, [&](const char* text) { return TRV_puttaskname(r->task, text); });
  if (res != TRV_RES_OK) return res;
  return each_line(r, MpsSection::name, [&](const MpsFields&) { return bad_line(r, MpsStatus::unknown_section); });
}

int32_t put_sense(Reader* r, std::string_view sense) {
  const bool maximize = sense == "MAX" || sense == "MAXIMIZE";
  if (!maximize && sense != "MIN" && sense != "MINIMIZE")
    return fail(r, "MAX, MAXIMIZE, MIN or MINIMIZE",
                report<TRV_RES_ERR_MPS_INVALID_OBJSENSE>(r->task, static_cast<const char*>(Shown(sense))));
  if (r->task->ipar[TRV_IPAR_READ_MPS_OBJ_SENSE] == 0) return TRV_RES_OK;
  return TRV_putobjsense(r->task, maximize ? TRV_OBJECTIVE_SENSE_MAXIMIZE : TRV_OBJECTIVE_SENSE_MINIMIZE);
}

// The sense stands on a line of its own; on the section line it is taken too.
int32_t read_objsense(Reader* r, std::string_view rest) {
  bool given = false;
  if (const std::string_view inline_sense = trimmed(rest); !inline_sense.empty()) {
    given = true;
    if (const int32_t res = put_sense(r, inline_sense); res != TRV_RES_OK) return res;
  }
  const int32_t res = each_line(r, MpsSection::objsense, [&](const MpsFields& f) {
    if (given) return bad_line(r, MpsStatus::other);
    given = true;
    return put_sense(r, f.name1);
  });
  return res != TRV_RES_OK || given ? res : put_sense(r, "");
}

int32_t read_objname(Reader* r) {
  bool given = false;
  const int32_t res = each_line(r, MpsSection::objname, [&](const MpsFields& f) -> int32_t {
    if (given) return bad_line(r, MpsStatus::other);
    if (!f.key.empty()) return bad_line(r, MpsStatus::field1);
    given = true;
    return with_text(r, f.name1,
                     [&](const char* text) { return TRV_putstrparam(r->task, TRV_SPAR_READ_MPS_OBJ_NAME, text); });
  });
  return res != TRV_RES_OK || given ? res : bad_line(r, MpsStatus::field1);
}

int32_t choose_objective(Reader* r) {
  Task* const task = r->task;
  const std::string_view wanted = parameter(task, TRV_SPAR_READ_MPS_OBJ_NAME);
  if (!wanted.empty()) {
    r->obj_row = names_find(task, TRV_PI_CON, wanted);
    if (r->obj_row == -1)
      return fail(r, nullptr, report<TRV_RES_ERR_MPS_INVALID_OBJ_NAME>(task, static_cast<const char*>(Shown(wanted))));
  } else {
    r->obj_row = static_cast<int32_t>(std::find(task->bkc.begin(), task->bkc.begin() + task->numcon, TRV_BK_FR) -
                                      task->bkc.begin());
    if (r->obj_row == task->numcon)
      return fail(r, "a row with the key N in the ROWS section", report<TRV_RES_ERR_MPS_NO_OBJECTIVE>(task));
  }
  const std::string_view name = item_name(task, TRV_PI_CON, r->obj_row);
  log_vector(r, name, "objective");
  return with_text(r, name, [&](const char* text) { return TRV_putobjname(task, text); });
}

int32_t read_rows(Reader* r) {
  Task* const task = r->task;
  if (const int32_t res = TRV_append(task, TRV_ACC_CON, static_cast<int32_t>(r->counts.con)); res != TRV_RES_OK)
    return res;
  int32_t row = 0;
  const int32_t res = each_line(r, MpsSection::rows, [&](const MpsFields& f) -> int32_t {
    const char key = f.key.size() == 1 ? f.key[0] : '?';
    const int32_t bk = key == 'L' ? TRV_BK_UP : key == 'E' ? TRV_BK_FX : key == 'G' ? TRV_BK_LO : TRV_BK_FR;
    if (bk == TRV_BK_FR && key != 'N')
      return fail(r, "one of the keys N, E, L and G",
                  report<TRV_RES_ERR_MPS_INV_CON_KEY>(task, static_cast<const char*>(Shown(f.key)),
                                                      static_cast<const char*>(Shown(f.name1))));
    if (f.name1.empty()) return fail(r, "the name of the row", report<TRV_RES_ERR_MPS_NULL_CON_NAME>(task));
    int32_t owner;
    const int32_t named = names_put(task, TRV_PI_CON, row, f.name1, &owner);
    if (named == TRV_RES_ERR_DUP_NAME)
      return fail(r, "a name that no row has yet",
                  report<TRV_RES_ERR_MPS_MUL_CON_NAME>(task, static_cast<const char*>(Shown(f.name1))));
    if (named != TRV_RES_OK) return out_of_space(r);
    return bk == TRV_BK_FR ? (++row, int32_t{TRV_RES_OK}) : TRV_putbound(task, TRV_ACC_CON, row++, bk, 0.0, 0.0);
  });
  if (res != TRV_RES_OK) return res;
  make_short_rows(r);
  return choose_objective(r);
}

// The columns as they are read, the elements of rows that will go left out.
struct OpenColumn {
  bool open, integer;
  std::string_view name;
  int32_t var;
  int32_t top;  // end of the elements so far
  double cj;
};

int32_t close_column(Reader* r, OpenColumn* col) {
  if (!col->open) return TRV_RES_OK;
  for (int32_t k = r->ptr[col->var]; k < col->top; ++k) r->place[r->sub[k]] = 0;
  r->ptr[col->var + 1] = col->top;
  col->open = false;
  return col->cj == 0.0 ? int32_t{TRV_RES_OK} : TRV_putcj(r->task, col->var, col->cj);
}

int32_t open_column(Reader* r, OpenColumn* col, std::string_view name) {
  Task* const task = r->task;
  ++col->var;
  col->open = true;
  col->name = name;
  col->cj = 0.0;
  if (name.empty()) return fail(r, "the name of the variable", report<TRV_RES_ERR_MPS_NULL_VAR_NAME>(task));
  int32_t owner;
  const int32_t named = names_put(task, TRV_PI_VAR, col->var, name, &owner);
  if (named == TRV_RES_ERR_DUP_NAME)
    return fail(r, "all lines of a variable together",
                report<TRV_RES_ERR_MPS_SPLITTED_VAR>(task, static_cast<const char*>(Shown(name))));
  if (named != TRV_RES_OK) return out_of_space(r);
  if (!col->integer) return TRV_putbound(task, TRV_ACC_VAR, col->var, TRV_BK_LO, 0.0, infinity_bound);
  if (task->ipar[TRV_IPAR_READ_MPS_KEEP_INT] != 0)
    if (const int32_t res = TRV_putvartype(task, col->var, TRV_VAR_TYPE_INT); res != TRV_RES_OK) return res;
  return TRV_putbound(task, TRV_ACC_VAR, col->var, TRV_BK_RA, 0.0, 1.0);
}

int32_t add_element(Reader* r, OpenColumn* col, std::string_view name, double value) {
  if (name.empty() && value == 0.0) return TRV_RES_OK;
  int32_t row;
  if (const int32_t res = find_row(r, name, &row); res != TRV_RES_OK) return res;
  if (row == r->obj_row) col->cj += value;
  const bool dropped = !r->keep_free && r->task->bkc[row] == TRV_BK_FR;
  if (value == 0.0 || dropped) return TRV_RES_OK;
  if (r->place[row] != 0) {
    r->val[r->place[row] - 1] += value;
    return TRV_RES_OK;
  }
  r->sub[col->top] = row;
  r->val[col->top] = value;
  r->place[row] = ++col->top;
  return TRV_RES_OK;
}

int32_t read_columns(Reader* r) {
  Task* const task = r->task;
  if (const int32_t res = TRV_append(task, TRV_ACC_VAR, static_cast<int32_t>(r->counts.var)); res != TRV_RES_OK)
    return res;
  const auto numvar = static_cast<std::size_t>(r->counts.var), anz = static_cast<std::size_t>(r->counts.anz);
  if (!r->ptr.alloc(task->sys, numvar + 1, Fill::zero) || !r->sub.alloc(task->sys, anz) ||
      !r->val.alloc(task->sys, anz) || !r->place.alloc(task->sys, static_cast<std::size_t>(task->numcon), Fill::zero))
    return out_of_space(r);
  OpenColumn col{};
  col.var = -1;
  const int32_t res = each_line(r, MpsSection::columns, [&](const MpsFields& f) -> int32_t {
    if (is_marker_line(f)) {
      if (f.name3 != "'INTORG'" && f.name3 != "'INTEND'")
        return fail(r, "'INTORG' or 'INTEND'", report<TRV_RES_ERR_MPS_INV_MARKER>(task));
      const int32_t closed = close_column(r, &col);
      col.integer = f.name3 == "'INTORG'";
      return closed;
    }
    if (!col.open || f.name1 != col.name) {
      if (const int32_t closed = close_column(r, &col); closed != TRV_RES_OK) return closed;
      if (const int32_t opened = open_column(r, &col, f.name1); opened != TRV_RES_OK) return opened;
    }
    if (const int32_t added = add_element(r, &col, f.name2, f.number1); added != TRV_RES_OK) return added;
    return add_element(r, &col, f.name3, f.number2);
  });
  return res == TRV_RES_OK ? close_column(r, &col) : res;
}

// True when the line counts: the first vector of a section, or the wanted one, is the one that is read.
bool select_vector(Reader* r, Vector* v, std::string_view name, const char* kind, bool* split) {
  *split = false;
  if (v->state == 0) {
    if (!v->wanted.empty() && name != v->wanted) return false;
    v->selected = name;
    v->state = 1;
    log_vector(r, name, kind);
    return true;
  }
  if (name != v->selected) {
    v->state = 2;
    return false;
  }
  *split = v->state == 2;
  v->state = 1;
  return true;
}

template <int32_t SplitWarning>
int32_t take_line(Reader* r, Vector* v, std::string_view name, const char* kind, bool* counts) {
  bool split;
  *counts = select_vector(r, v, name, kind, &split);
  return split ? report<SplitWarning>(r->task, static_cast<const char*>(Shown(name))) : int32_t{TRV_RES_OK};
}

int32_t put_rhs(Reader* r, std::string_view name, double value, bool second) {
  Task* const task = r->task;
  if (name.empty()) {
    if (value == 0.0) return TRV_RES_OK;
    return fail(r, "the name of a row", report<TRV_RES_ERR_MPS_NULL_CON_NAME>(task));
  }
  int32_t row;
  if (const int32_t res = find_row(r, name, &row); res != TRV_RES_OK) return res;
  if (row == r->obj_row) {
    if (!std::isfinite(value)) return bad_line(r, second ? MpsStatus::field5 : MpsStatus::field3);
    r->cfix = value == 0.0 ? 0.0 : -value;
  }
  const int32_t bk = task->bkc[row];
  if (bk == TRV_BK_FR) return TRV_RES_OK;
  if (second && std::fabs(value) >= task->dpar[TRV_DPAR_DATA_TOL_BOUND_WRN])
    if (const int32_t res =
            report<TRV_RES_WRN_LARGE_BOUND>(task, value, "constraint", item_name(task, TRV_PI_CON, row), row);
        res != TRV_RES_OK)
      return res;
  return TRV_putbound(task, TRV_ACC_CON, row, bk, value, value);
}

int32_t read_rhs(Reader* r) {
  Vector v{parameter(r->task, TRV_SPAR_READ_MPS_RHS_NAME), {}, 0};
  return each_line(r, MpsSection::rhs, [&](const MpsFields& f) -> int32_t {
    bool counts;
    if (const int32_t res = take_line<TRV_RES_WRN_MPS_SPLIT_RHS_VECTOR>(r, &v, f.name1, "rhs", &counts);
        res != TRV_RES_OK || !counts)
      return res;
    if (const int32_t res = put_rhs(r, f.name2, f.number1, false); res != TRV_RES_OK) return res;
    return put_rhs(r, f.name3, f.number2, true);
  });
}

int32_t put_range(Reader* r, std::string_view name, double value) {
  if (name.empty() && value == 0.0) return TRV_RES_OK;
  Task* const task = r->task;
  int32_t row;
  if (const int32_t res = find_row(r, name, &row); res != TRV_RES_OK) return res;
  double bl = task->blc[row], bu = task->buc[row];
  switch (task->bkc[row]) {
    case TRV_BK_LO:
      bu = bl + std::fabs(value);
      break;
    case TRV_BK_UP:
      bl = bu - std::fabs(value);
      break;
    case TRV_BK_FX:
      if (value > 0.0)
        bu = bl + value;
      else
        bl += value;
      break;
    default:
      return TRV_RES_OK;
  }
  return TRV_putbound(task, TRV_ACC_CON, row, value == 0.0 ? TRV_BK_FX : TRV_BK_RA, bl, bu);
}

int32_t read_ranges(Reader* r) {
  Vector v{parameter(r->task, TRV_SPAR_READ_MPS_RAN_NAME), {}, 0};
  return each_line(r, MpsSection::ranges, [&](const MpsFields& f) -> int32_t {
    bool counts;
    if (const int32_t res = take_line<TRV_RES_WRN_MPS_SPLIT_RAN_VECTOR>(r, &v, f.name1, "range", &counts);
        res != TRV_RES_OK || !counts)
      return res;
    if (const int32_t res = put_range(r, f.name2, f.number1); res != TRV_RES_OK) return res;
    return put_range(r, f.name3, f.number2);
  });
}

int32_t put_bound(Reader* r, std::string_view key, int32_t var, double value) {
  Task* const task = r->task;
  double bl = task->blx[var], bu = task->bux[var];
  bool lower = has_lower(task->bkx[var]), upper = has_upper(task->bkx[var]), integer = false, fixed = false;
  if (key == "MI") {
    lower = false;
  } else if (key == "PL") {
    upper = false;
  } else if (key == "BV") {
    integer = lower = upper = true;
    bl = 0.0;
    bu = 1.0;
  } else if (key == "FR") {
    lower = upper = false;
  } else if (key == "FX") {
    lower = upper = fixed = true;
    bl = bu = value;
  } else if (key == "LO" || key == "LI") {
    lower = true;
    integer = key == "LI";
    bl = integer ? std::ceil(value) + 0.0 : value;  // no negative zero
  } else if (key == "UP" || key == "UI") {
    upper = true;
    integer = key == "UI";
    bu = integer ? std::floor(value) : value;
  } else {
    return fail(r, "one of the keys UP, LO, FX, FR, MI, PL, BV, UI and LI",
                report<TRV_RES_ERR_MPS_INV_BOUND_KEY>(task, static_cast<const char*>(Shown(key))));
  }
  if (integer && task->ipar[TRV_IPAR_READ_MPS_KEEP_INT] != 0)
    if (const int32_t res = TRV_putvartype(task, var, TRV_VAR_TYPE_INT); res != TRV_RES_OK) return res;
  const int32_t bk = fixed ? TRV_BK_FX : lower && upper ? TRV_BK_RA : lower ? TRV_BK_LO : upper ? TRV_BK_UP : TRV_BK_FR;
  return TRV_putbound(task, TRV_ACC_VAR, var, bk, bl, bu);
}

int32_t read_bounds(Reader* r) {
  Vector v{parameter(r->task, TRV_SPAR_READ_MPS_BOU_NAME), {}, 0};
  return each_line(r, MpsSection::bounds, [&](const MpsFields& f) -> int32_t {
    bool counts;
    if (const int32_t res = take_line<TRV_RES_WRN_MPS_SPLIT_BOU_VECTOR>(r, &v, f.name1, "bound", &counts);
        res != TRV_RES_OK || !counts)
      return res;
    int32_t var;
    if (const int32_t res = find_var(r, f.name2, &var); res != TRV_RES_OK) return res;
    return put_bound(r, f.key, var, f.number1);
  });
}

// The value with which an element of a section counts in the lower triangle of a term 1/2 x'Qx: QMATRIX lists both
// triangles, QCMATRIX too and stands for x'Qx.
double q_value(MpsSection section, int32_t i, int32_t j, double value) {
  if (section == MpsSection::qmatrix && i != j) return 0.5 * value;
  if (section == MpsSection::qcmatrix && i == j) return 2.0 * value;
  return value;
}

int32_t read_quadratic(Reader* r, MpsSection section, std::string_view row_name) {
  Task* const task = r->task;
  int32_t row = r->obj_row;
  const bool named = section == MpsSection::qsection || section == MpsSection::qcmatrix;
  if (named)
    if (const int32_t res = find_row(r, row_name, &row); res != TRV_RES_OK) return res;
  const bool objective = row == r->obj_row;
  int32_t present = 0;
  if (const int32_t res = objective ? TRV_getnumqobjnz(task, &present) : TRV_getnumqconnz(task, row, &present);
      res != TRV_RES_OK)
    return res;
  if (present != 0)
    return fail(r, "one section for each quadratic term",
                report<TRV_RES_ERR_MPS_MUL_QSEC>(task, item_name(task, TRV_PI_CON, row)));
  // The modes that drop a triangle keep the diagonal.
  const bool both = section == MpsSection::qmatrix || section == MpsSection::qcmatrix;
  const int32_t mode = both ? int32_t{TRV_Q_READ_ADD} : task->ipar[TRV_IPAR_READ_Q_MODE];
  int32_t n = 0, dropped = 0;
  const auto add = [&](int32_t i, std::string_view name, double value) -> int32_t {
    if (name.empty() && value == 0.0) return TRV_RES_OK;
    int32_t j;
    if (const int32_t res = find_var(r, name, &j); res != TRV_RES_OK) return res;
    if (std::fabs(value) <= task->dpar[TRV_DPAR_DATA_TOL_QIJ]) return TRV_RES_OK;
    if ((mode == TRV_Q_READ_DROP_LOWER && i > j) || (mode == TRV_Q_READ_DROP_UPPER && i < j)) {
      ++dropped;
      return TRV_RES_OK;
    }
    r->qsubi[n] = std::max(i, j);
    r->qsubj[n] = std::min(i, j);
    r->qval[n++] = q_value(section, i, j, value);
    return TRV_RES_OK;
  };
  const int32_t res = each_line(r, section, [&](const MpsFields& f) -> int32_t {
    if (!f.key.empty())
      return fail(r, "no key on this line",
                  report<TRV_RES_ERR_MPS_INV_BOUND_KEY>(task, static_cast<const char*>(Shown(f.key))));
    int32_t i;
    if (const int32_t found = find_var(r, f.name1, &i); found != TRV_RES_OK) return found;
    if (f.name2.empty()) return find_var(r, f.name2, &i);
    if (const int32_t added = add(i, f.name2, f.number1); added != TRV_RES_OK) return added;
    return add(i, f.name3, f.number2);
  });
  if (res != TRV_RES_OK) return res;
  if (dropped != 0 && objective)
    if (const int32_t warned = report<TRV_RES_WRN_DROPPED_NZ_QOBJ>(task, dropped); warned != TRV_RES_OK) return warned;
  if (objective)
    if (const int32_t put = TRV_putqobj(task, n, r->qsubi.data(), r->qsubj.data(), r->qval.data()); put != TRV_RES_OK)
      return put;
  if (objective && !r->keep_free) return TRV_RES_OK;
  return TRV_putqconk(task, row, n, r->qsubi.data(), r->qsubj.data(), r->qval.data());
}

int32_t read_cone(Reader* r, const MpsFields& head) {
  Task* const task = r->task;
  const int32_t cone = task->numcone;
  if (head.name3 != "QUAD" && head.name3 != "RQUAD")
    return fail(r, "the type QUAD or RQUAD",
                report<TRV_RES_ERR_MPS_CONE_TYPE>(task, static_cast<const char*>(Shown(head.name3))));
  if (!std::isfinite(head.number1)) return bad_line(r, MpsStatus::field3);
  if (names_find(task, TRV_PI_CONE, head.name2) != -1)
    return fail(r, "a name that no cone has yet",
                report<TRV_RES_ERR_MPS_MUL_CSEC>(task, static_cast<const char*>(Shown(head.name2))));
  int32_t n = 0;
  int32_t res = each_line(r, MpsSection::csection, [&](const MpsFields& f) -> int32_t {
    if (!f.key.empty())
      return fail(r, "no key on this line",
                  report<TRV_RES_ERR_MPS_INV_BOUND_KEY>(task, static_cast<const char*>(Shown(f.key))));
    int32_t var;
    if (const int32_t found = find_var(r, f.name1, &var); found != TRV_RES_OK) return found;
    const Shown name(f.name1), this_cone(head.name2);
    if (r->cone_of[var] == cone + 1)
      return fail(r, nullptr,
                  report<TRV_RES_ERR_MPS_CONE_REPEAT>(task, static_cast<const char*>(name),
                                                      static_cast<const char*>(this_cone)));
    if (r->cone_of[var] != 0)
      return fail(r, nullptr,
                  report<TRV_RES_ERR_MPS_CONE_OVERLAP>(task, static_cast<const char*>(name),
                                                       item_name(task, TRV_PI_CONE, r->cone_of[var] - 1),
                                                       static_cast<const char*>(this_cone)));
    r->cone_of[var] = cone + 1;
    r->members[n++] = var;
    return TRV_RES_OK;
  });
  if (res != TRV_RES_OK) return res;
  const int32_t type = head.name3 == "QUAD" ? TRV_CT_QUAD : TRV_CT_RQUAD;
  if (res = TRV_appendcone(task, type, head.number1, n, r->members.data()); res != TRV_RES_OK) return res;
  int32_t owner;
  return names_put(task, TRV_PI_CONE, cone, head.name2, &owner) == TRV_RES_OK ? int32_t{TRV_RES_OK} : out_of_space(r);
}

// Sizes the task by the counts of the first pass and allocates what the sections share.
int32_t size_task(Reader* r) {
  Task* const task = r->task;
  const Counts& n = r->counts;
  const int64_t sizes[] = {n.con + task->ipar[TRV_IPAR_READ_ADD_CON], n.var + task->ipar[TRV_IPAR_READ_ADD_VAR],
                           n.cone + task->ipar[TRV_IPAR_READ_ADD_CONE], n.anz + task->ipar[TRV_IPAR_READ_ADD_ANZ],
                           n.qnz + task->ipar[TRV_IPAR_READ_ADD_QNZ]};
  for (const int64_t size : sizes)
    if (size > INT32_MAX) return out_of_space(r);
  const auto size = [&](int k) { return static_cast<int32_t>(sizes[k]); };
  if (const int32_t res = TRV_resizetask(task, size(0), size(1), size(2), size(3), size(4)); res != TRV_RES_OK)
    return res;
  const auto nq = static_cast<std::size_t>(n.max_qnz), nv = n.cone == 0 ? 0 : static_cast<std::size_t>(n.var);
  const bool ok = r->qsubi.alloc(task->sys, nq) && r->qsubj.alloc(task->sys, nq) && r->qval.alloc(task->sys, nq) &&
                  r->cone_of.alloc(task->sys, nv, Fill::zero) && r->members.alloc(task->sys, nv);
  return ok ? int32_t{TRV_RES_OK} : out_of_space(r);
}

// The second pass.
int32_t load_sections(Reader* r) {
  for (;;) {
    MpsSection section;
    std::string_view rest;
    MpsFields fields;
    int32_t res = next_section(r, &section, &rest, &fields);
    if (res != TRV_RES_OK) return res;
    switch (section) {
      case MpsSection::name:
        res = read_name(r, rest);
        break;
      case MpsSection::objsense:
        res = read_objsense(r, rest);
        break;
      case MpsSection::objname:
        res = read_objname(r);
        break;
      case MpsSection::rows:
        res = read_rows(r);
        break;
      case MpsSection::columns:
        res = r->obj_row == -1 ? report<TRV_RES_ERR_MPS_NO_OBJECTIVE>(r->task) : read_columns(r);
        break;
      case MpsSection::rhs:
        res = read_rhs(r);
        break;
      case MpsSection::ranges:
        res = read_ranges(r);
        break;
      case MpsSection::bounds:
        res = read_bounds(r);
        break;
      case MpsSection::sets:
        res = each_line(r, section, [](const MpsFields&) -> int32_t { return TRV_RES_OK; });
        break;
      case MpsSection::quadobj:
      case MpsSection::qsection:
      case MpsSection::qmatrix:
      case MpsSection::qcmatrix:
        res = read_quadratic(r, section, fields.name2);
        break;
      case MpsSection::csection:
        res = read_cone(r, fields);
        break;
      case MpsSection::endata:
        return TRV_RES_OK;
    }
    if (res != TRV_RES_OK) return res;
  }
}

// Removes the free rows, the objective among them, and numbers the rows of the elements anew.
int32_t remove_free_rows(Reader* r) {
  Task* const task = r->task;
  Array<int32_t> free_rows, moved;  // moved: the new number of a row, -1 when it goes
  if (!free_rows.alloc(task->sys, static_cast<std::size_t>(task->numcon)) ||
      !moved.alloc(task->sys, static_cast<std::size_t>(task->numcon)))
    return out_of_space(r);
  int32_t n = 0, kept = 0;
  for (int32_t i = 0; i < task->numcon; ++i) {
    const bool goes = task->bkc[i] == TRV_BK_FR;
    if (goes) free_rows[n++] = i;
    moved[i] = goes ? -1 : kept++;
  }
  if (const int32_t res = TRV_remove(task, TRV_ACC_CON, n, free_rows.data()); res != TRV_RES_OK) return res;
  int32_t top = 0;
  for (std::size_t j = 0, k = 0; j + 1 < r->ptr.size(); ++j) {
    for (; k < static_cast<std::size_t>(r->ptr[j + 1]); ++k) {
      const int32_t row = moved[r->sub[k]];
      if (row == -1) continue;
      r->sub[top] = row;
      r->val[top++] = r->val[k];
    }
    r->ptr[j + 1] = top;
  }
  return TRV_RES_OK;
}

// What is left when all sections are read: the constant, the free rows, and the matrix, which is loaded behind their
// removal so that it needs no renumbering itself.
int32_t finish(Reader* r) {
  Task* const task = r->task;
  if (r->obj_row == -1) return fail(r, "a ROWS section", report<TRV_RES_ERR_MPS_NO_OBJECTIVE>(task));
  if (const int32_t res = TRV_putcfix(task, r->cfix); res != TRV_RES_OK) return res;
  if (!r->keep_free)
    if (const int32_t res = remove_free_rows(r); res != TRV_RES_OK) return res;
  if (r->ptr.empty()) return TRV_RES_OK;
  return data_loadcolumns(task, 0, task->numvar, r->ptr.data(), r->ptr.data() + 1, r->sub.data(), r->val.data());
}

int32_t run_passes(Reader* r) {
  if (const int32_t res = count_sizes(r); res != TRV_RES_OK) return res;
  mps_rewind(&r->text);
  r->next = 0;
  if (const int32_t res = size_task(r); res != TRV_RES_OK) return res;
  if (const int32_t res = load_sections(r); res != TRV_RES_OK) return res;
  return finish(r);
}

}  // namespace

int32_t mps_readtext(Task* task, char* text, std::size_t size, const char* filename) {
  Reader r{};
  r.task = task;
  r.filename = filename;
  r.obj_row = r.con_hint = r.var_hint = -1;
  r.keep_free = task->ipar[TRV_IPAR_READ_KEEP_FREE_CON] != 0;
  mps_open(&r.text, text, size, task->ipar[TRV_IPAR_READ_MPS_FORMAT], task->ipar[TRV_IPAR_READ_MPS_QUOTED_NAMES] != 0);
  const int32_t res = run_passes(&r);
  if (res != TRV_RES_OK && res != TRV_RES_ERR_SPACE && res != TRV_RES_ERR_END_OF_FILE)
    mps_showline(task, r.text, filename, r.expected);
  return res;
}

int32_t mps_read(Task* task, File* file, const char* filename) {
  Array<char> text;
  std::size_t size = 0;
  const int32_t status = file_readall(file, &text, &size);
  if (status == SYS_SPACE) return report<TRV_RES_ERR_SPACE>(task);
  if (status != SYS_OK) return sysenv_rescode(status);
  return mps_readtext(task, text.data(), size, filename);
}

}  // namespace tarvo
