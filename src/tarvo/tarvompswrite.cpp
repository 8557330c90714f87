// Writes the problem of a task as an MPS file.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "cpub/numtext.h"
#include "tarvo/frame.h"
#include "tarvo/tables.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvomps.h"
#include "tarvo/tarvonam.h"
#include "tarvo/version.h"

namespace tarvo {

namespace {

struct Writer {
  Task* task;
  File* file;
  bool generic;
  bool quoting;           // names with a blank may be written in quotes
  bool blanks;            // some name has a blank
  bool free_rows;         // free rows are written
  int32_t objective_row;  // a free row that is the objective itself, or -1
};

// A number right behind its text: how files show it depends on its size, and trailing zeros behind the point go.
struct NumberText {
  char text[num_text_size];
};
const char* number(const Writer& w, double value, NumberText* out) {
  char* const text = out->text;
  if (value == 0.0) {
    std::memcpy(text, "0", 2);
    return text;
  }
  const double size = std::fabs(value);
  const int32_t precision = w.task->ipar[TRV_IPAR_WRITE_PRECISION];
  if (size > 0.1 && size <= 100.0)
    num_print_g(text, precision, value);
  else
    num_print_e(text, precision, value);
  if (char* const point = std::strchr(text, '.'); point != nullptr) {
    char* end = point + 1;
    while (*end >= '0' && *end <= '9') ++end;
    char* kept = end;
    while (kept[-1] == '0') --kept;
    std::memmove(kept, end, std::strlen(end) + 1);
  }
  return text;
}

void put(const Writer& w, std::string_view text) { file_write(w.file, text.data(), text.size()); }

void pad(const Writer& w, std::size_t length, std::size_t width) {
  constexpr std::string_view blanks = "                                ";
  if (length < width) put(w, blanks.substr(0, width - length));
}

void put_padded(const Writer& w, std::string_view text, std::size_t width) {
  put(w, text);
  pad(w, text.size(), width);
}

// A name, in quotes when it needs them.
void put_name(const Writer& w, std::string_view name, std::size_t width) {
  const bool quote = w.blanks && name.find(' ') != std::string_view::npos;
  if (quote) put(w, "\"");
  put(w, name);
  if (quote) put(w, "\"");
  pad(w, name.size() + (quote ? 2 : 0), width);
}

constexpr std::size_t name_width = 8;

struct ItemName {
  char buffer[generic_name_size];
  const char* text;
  ItemName(const Writer& w, int32_t kind, int32_t i) : text(names_writertext(w.task, kind, i, w.generic, buffer)) {}
};

// "    %-8s  %-8s  %-s\n"
void put_entry(const Writer& w, std::string_view name1, std::string_view name2, double value) {
  NumberText text;
  put(w, "    ");
  put_name(w, name1, name_width);
  put(w, "  ");
  put_name(w, name2, name_width);
  put(w, "  ");
  put(w, number(w, value, &text));
  put(w, "\n");
}

// A line of the BOUNDS section; with a value: " %s %-8s  %-8s  %-s\n".
void put_bound(const Writer& w, const char* key, std::string_view name) {
  put(w, " ");
  put(w, key);
  put(w, " ");
  put_padded(w, "bound", name_width);
  put(w, "  ");
  put_name(w, name, name_width);
}
void put_bound(const Writer& w, const char* key, std::string_view name, double value) {
  NumberText text;
  put_bound(w, key, name);
  put(w, "  ");
  put(w, number(w, value, &text));
  put(w, "\n");
}
void put_bound_line(const Writer& w, const char* key, std::string_view name) {
  put_bound(w, key, name);
  put(w, "\n");
}

std::string_view objective(const Writer& w) { return names_objectivetext(w.task, w.generic); }

bool written(const Writer& w, int32_t row) {
  return w.task->bkc[row] != TRV_BK_FR || (w.free_rows && row != w.objective_row);
}

// A ranged row is written by one of its bounds and the width, and a reader gets the other bound by one rounded sum or
// difference. The form is taken that gives the very bounds: from the lower bound, from the upper one, or either with
// the width moved to a neighbour. Where no double does, the lower bound and the nearest width it is.
struct Range {
  bool from_upper;
  double width;
};
Range range_of(double bl, double bu) {
  const double width = bu - bl;
  for (const double r : {width, std::nextafter(width, 0.0), std::nextafter(width, HUGE_VAL)}) {
    if (bl + r == bu) return {false, r};
    if (bu - r == bl) return {true, r};
  }
  return {false, width};
}

char row_key(const Writer& w, int32_t i) {
  const Task* const task = w.task;
  switch (task->bkc[i]) {
    case TRV_BK_UP:
      return 'L';
    case TRV_BK_FX:
      return 'E';
    case TRV_BK_RA:
      return range_of(task->blc[i], task->buc[i]).from_upper ? 'L' : 'G';
    case TRV_BK_LO:
      return 'G';
    default:
      return 'N';
  }
}

void put_head(const Writer& w) {
  const Task* const task = w.task;
  const char* const name = task->task_name;
  if (w.generic || name == nullptr || *name == '\0') {
    put(w, "NAME\n");
  } else {
    put_padded(w, "NAME", 14);
    put(w, " ");
    put(w, name);
    put(w, "\n");
  }
  char line[80];
  std::snprintf(line, sizeof(line), "* Written by TARVO version %d.%d.%d.%d\n", version_major, version_minor,
                version_build, version_revision);
  put(w, line);
  const int32_t sense = task->objective_sense;
  if (task->ipar[TRV_IPAR_WRITE_MPS_OBJ_SENSE] == 0) {
    put(w, "* Objective sense: ");
    put(w, sense == TRV_OBJECTIVE_SENSE_MINIMIZE   ? "minimize\n"
           : sense == TRV_OBJECTIVE_SENSE_MAXIMIZE ? " maximize\n"
                                                   : "undefined\n");
  } else if (sense != TRV_OBJECTIVE_SENSE_UNDEFINED) {
    put(w, "OBJSENSE\n");
    put(w, sense == TRV_OBJECTIVE_SENSE_MINIMIZE ? "    MIN\n" : "    MAX\n");
  }
}

void put_rows(const Writer& w) {
  put(w, "ROWS\n N  ");
  put_name(w, objective(w), 0);
  put(w, "\n");
  for (int32_t i = 0; i < w.task->numcon; ++i) {
    if (!written(w, i)) continue;
    const char head[] = {' ', row_key(w, i), ' ', ' '};
    put(w, {head, sizeof(head)});
    put_name(w, ItemName(w, TRV_PI_CON, i).text, name_width);
    put(w, "\n");
  }
}

int32_t put_columns(const Writer& w) {
  put(w, "COLUMNS\n");
  ColumnView a{};
  if (const int32_t res = data_lock(w.task, &a); res != TRV_RES_OK) return res;
  for (int32_t j = 0; j < w.task->numvar; ++j) {
    const ItemName name(w, TRV_PI_VAR, j);
    put_entry(w, name.text, objective(w), w.task->c[j]);
    for (int32_t k = a.ptrb[j]; k < a.ptre[j]; ++k)
      if (written(w, a.sub[k])) put_entry(w, name.text, ItemName(w, TRV_PI_CON, a.sub[k]).text, a.val[k]);
  }
  data_unlock(w.task);
  return TRV_RES_OK;
}

void put_rhs(const Writer& w) {
  const Task* const task = w.task;
  put(w, "RHS\n");
  if (task->cfix != 0.0) put_entry(w, "rhs", objective(w), -task->cfix);
  for (int32_t i = 0; i < task->numcon; ++i) {
    if (task->bkc[i] == TRV_BK_FR) continue;
    const double rhs = row_key(w, i) == 'L' ? task->buc[i] : task->blc[i];
    if (rhs != 0.0) put_entry(w, "rhs", ItemName(w, TRV_PI_CON, i).text, rhs);
  }
  put(w, "RANGES\n");
  for (int32_t i = 0; i < task->numcon; ++i)
    if (task->bkc[i] == TRV_BK_RA)
      put_entry(w, "ran", ItemName(w, TRV_PI_CON, i).text, range_of(task->blc[i], task->buc[i]).width);
}

// Integrality is told by the bound keys. A bound of an integer variable that isn't an integer itself stands again
// under the plain key, which doesn't round it, as does the value of a fixed one.
void put_integer_bounds(const Writer& w, std::string_view name, int32_t bk, double bl, double bu) {
  if (bk == TRV_BK_RA && bl == 0.0 && bu == 1.0) {
    put_bound_line(w, "BV", name);
    return;
  }
  if (bk == TRV_BK_FR) {
    put_bound(w, "LI", name, 0.0);
    put_bound_line(w, "MI", name);
    return;
  }
  if (has_lower(bk)) {
    put_bound(w, "LI", name, bl);
    if (bk == TRV_BK_FX)
      put_bound(w, "FX", name, bl);
    else if (bl != std::ceil(bl))
      put_bound(w, "LO", name, bl);
  } else {
    put_bound_line(w, "MI", name);
  }
  if (bk == TRV_BK_FX || !has_upper(bk)) return;
  put_bound(w, "UI", name, bu);
  if (bu != std::floor(bu)) put_bound(w, "UP", name, bu);
}

void put_bounds(const Writer& w) {
  const Task* const task = w.task;
  const bool integers = task->ipar[TRV_IPAR_WRITE_MPS_INT] != 0 && !task->vartype.empty();
  put(w, "BOUNDS\n");
  for (int32_t j = 0; j < task->numvar; ++j) {
    const int32_t bk = task->bkx[j];
    const double bl = task->blx[j], bu = task->bux[j];
    const ItemName name(w, TRV_PI_VAR, j);
    if (integers && task->vartype[j] == TRV_VAR_TYPE_INT) {
      put_integer_bounds(w, name.text, bk, bl, bu);
    } else if (bk == TRV_BK_FR) {
      put_bound_line(w, "FR", name.text);
    } else if (bk == TRV_BK_FX) {
      put_bound(w, "FX", name.text, bl);
    } else {
      // Many readers drop a lower bound of 0 at a negative upper bound, unless it stands in the file.
      if (!has_lower(bk))
        put_bound_line(w, "MI", name.text);
      else if (bl != 0.0 || (has_upper(bk) && bu < 0.0))
        put_bound(w, "LO", name.text, bl);
      if (has_upper(bk)) put_bound(w, "UP", name.text, bu);
    }
  }
}

struct QTerm {
  int32_t i, j, place;
  double value;
};

// One quadratic term, merged and sorted by column.
int32_t put_quadratic(const Writer& w, std::string_view row, std::size_t width, int32_t begin, int32_t end) {
  if (begin == end) return TRV_RES_OK;
  const QuadStore& quad = w.task->quad;
  Array<QTerm> terms;
  if (!terms.alloc(w.task->sys, static_cast<std::size_t>(end - begin))) return report<TRV_RES_ERR_SPACE>(w.task);
  for (int32_t k = begin; k < end; ++k) terms[k - begin] = {quad.qsubi[k], quad.qsubj[k], k, quad.qval[k]};
  std::sort(terms.begin(), terms.end(), [](const QTerm& a, const QTerm& b) {
    return a.j != b.j ? a.j < b.j : a.i != b.i ? a.i < b.i : a.place < b.place;
  });
  put_padded(w, "QSECTION", 14);
  put_name(w, row, width);
  put(w, "\n");
  for (std::size_t k = 0; k < terms.size();) {
    const QTerm& first = terms[k];
    double value = 0.0;
    for (; k < terms.size() && terms[k].i == first.i && terms[k].j == first.j; ++k) value += terms[k].value;
    put_entry(w, ItemName(w, TRV_PI_VAR, first.i).text, ItemName(w, TRV_PI_VAR, first.j).text, value);
  }
  return TRV_RES_OK;
}

int32_t put_quadratics(const Writer& w) {
  const QuadStore& quad = w.task->quad;
  if (const int32_t res = put_quadratic(w, objective(w), 0, quad.qobjbegin, quad.qobjend); res != TRV_RES_OK)
    return res;
  if (quad.qconbegin.empty()) return TRV_RES_OK;
  for (int32_t i = 0; i < w.task->numcon; ++i) {
    if (!written(w, i)) continue;
    const int32_t res =
        put_quadratic(w, ItemName(w, TRV_PI_CON, i).text, name_width, quad.qconbegin[i], quad.qconend[i]);
    if (res != TRV_RES_OK) return res;
  }
  return TRV_RES_OK;
}

void put_cones(const Writer& w) {
  const ConeStore& cones = w.task->cones;
  for (int32_t k = 0; k < w.task->numcone; ++k) {
    NumberText text;
    put_padded(w, "CSECTION", 14);
    put_name(w, ItemName(w, TRV_PI_CONE, k).text, name_width);
    put(w, "  ");
    put_padded(w, number(w, cones.conepar[k], &text), 12);
    put(w, cones.conetype[k] == TRV_CT_QUAD ? "   QUAD\n" : "   RQUAD\n");
    for (int32_t m = cones.conebegin[k]; m < cones.coneend[k]; ++m) {
      put(w, "    ");
      put_name(w, ItemName(w, TRV_PI_VAR, cones.conemembers[m]).text, name_width);
      put(w, "\n");
    }
  }
}

// The parameters, as comments behind the end of the data.
void put_parameters(const Writer& w) {
  const Task* const task = w.task;
  char value[num_text_size];
  const auto put_name_of = [&](const char* name) {
    put(w, "*");
    put_padded(w, name, 33);
    put(w, " ");
  };
  put(w, "*\n*BEGIN TARVO\n*\n");
  for (int32_t k = 0; k < num_ipar; ++k) {
    if (*int_params[k].name == '\0') continue;
    put_name_of(int_params[k].name);
    std::snprintf(value, sizeof(value), "%-18d\n", task->ipar[k]);
    put(w, value);
  }
  put(w, "*\n");
  for (int32_t k = 0; k < num_dpar; ++k) {
    put_name_of(dou_params[k].name);
    num_print_e(value, 8, task->dpar[k]);
    put_padded(w, value, 18);
    put(w, "\n");
  }
  put(w, "*\n");
  for (int32_t k = 0; k < num_spar; ++k) {
    put_name_of(str_params[k].name);
    if (task->spar[k] != nullptr) put(w, task->spar[k]);
    put(w, "\n");
  }
  put(w, "*END TARVO\n*\n");
}

// Whether a name reads back. Besides blank names and, without quotes, names with blanks, these don't: names with
// control characters (tabs and line ends among them), with a quote where quotes count, and the word of marker lines.
bool valid_name(Writer* w, std::string_view name) {
  bool blank = false, quote = false;
  for (const char c : name) {
    if (static_cast<unsigned char>(c) < ' ') return false;
    blank = blank || c == ' ';
    quote = quote || c == '"';
  }
  w->blanks = w->blanks || blank;
  return !name.empty() && name != "'MARKER'" && (!blank || (w->quoting && !quote)) &&
         !(w->quoting && name.front() == '"');
}

// Everything that can't be written, found before the first byte goes out.
int32_t check_writable(Writer* w) {
  Task* const task = w->task;
  const auto check = [&](const char* name) -> int32_t {
    return valid_name(w, name) ? int32_t{TRV_RES_OK} : report<TRV_RES_ERR_WRITE_MPS_INVALID_NAME>(task, name);
  };
  const char* const name = names_objectivetext(task, w->generic);
  if (const int32_t res = check(name); res != TRV_RES_OK) return res;
  // A row with the objective's name: a free one is the objective as a reader keeps it, another one can't be told apart.
  if (!w->generic) w->objective_row = names_find(task, TRV_PI_CON, name);
  if (w->objective_row != -1 && task->bkc[w->objective_row] != TRV_BK_FR)
    return report<TRV_RES_ERR_WRITE_MPS_INVALID_NAME>(task, name);
  for (const int32_t kind : {TRV_PI_CON, TRV_PI_VAR, TRV_PI_CONE}) {
    const int32_t count = kind == TRV_PI_CON ? task->numcon : kind == TRV_PI_VAR ? task->numvar : task->numcone;
    for (int32_t i = 0; i < count && !w->generic; ++i)
      if (kind != TRV_PI_CON || written(*w, i))
        if (const int32_t res = check(item_name(task, kind, i)); res != TRV_RES_OK) return res;
  }
  if (!w->generic && task->task_name != nullptr)
    for (const char* c = task->task_name; *c != '\0'; ++c)
      if (static_cast<unsigned char>(*c) < ' ')
        return report<TRV_RES_ERR_WRITE_MPS_INVALID_NAME>(task, task->task_name);
  // Ranges have no sign on rows, so that crossed bounds would come back as feasible ones.
  for (int32_t i = 0; i < task->numcon; ++i)
    if (task->bkc[i] == TRV_BK_RA && task->blc[i] > task->buc[i])
      return report<TRV_RES_ERR_FEASREPAIR_INCONSISTENT_BOUND>(task, "constraint", item_name(task, TRV_PI_CON, i), i);
  return TRV_RES_OK;
}

}  // namespace

int32_t mps_write(Task* task, File* file, bool generic) {
  Writer w{};
  w.task = task;
  w.file = file;
  w.generic = generic;
  w.quoting = task->ipar[TRV_IPAR_WRITE_MPS_QUOTED_NAMES] != 0 && task->ipar[TRV_IPAR_WRITE_MPS_STRICT] == 0;
  w.free_rows = task->ipar[TRV_IPAR_WRITE_FREE_CON] != 0;
  w.objective_row = -1;
  if (const int32_t res = check_writable(&w); res != TRV_RES_OK) return res;
  put_head(w);
  put_rows(w);
  if (const int32_t res = put_columns(w); res != TRV_RES_OK) return res;
  put_rhs(w);
  put_bounds(w);
  if (const int32_t res = put_quadratics(w); res != TRV_RES_OK) return res;
  put_cones(w);
  put(w, "ENDATA\n");
  if (task->ipar[TRV_IPAR_WRITE_DATA_PARAM] != 0) put_parameters(w);
  return TRV_RES_OK;
}

}  // namespace tarvo
