// The tokeniser of MPS files: lines, section lines and the six fields of a data line, in three layouts. It works on
// the file's whole text in memory; every text that it gives back is a piece of that.
// The door: mps_open, then mps_section and mps_data in turn.
#pragma once

#include <cstdint>
#include <string_view>

#include "tarvo/task.h"

namespace tarvo {

// The numbers up to `endata` fix the order of the sections.
enum class MpsSection : int32_t {
  name,
  objsense,
  objname,
  rows,
  columns,
  rhs,
  ranges,
  bounds,
  sets,
  quadobj,
  qsection,
  csection,
  endata,
  qmatrix,   // the objective's quadratic term with both triangles
  qcmatrix,  // a row's quadratic term with both triangles and without the factor 1/2
};
const char* mps_keyword(MpsSection section);

enum class MpsStatus : int32_t {
  ok = 0,
  section = 1,  // the line starts a new section
  empty = 4,
  field0 = 5,
  field1 = 6,
  field2 = 7,
  field3 = 8,
  field4 = 9,
  field5 = 10,  // this field is invalid
  other = 11,
  unknown_section = 12,
  tab_in_field2 = 13,
  tab_in_field3 = 14,
  tab_in_field5 = 15,
  end_of_file = 16,
};

struct MpsFields {
  std::string_view key, name1, name2, name3;
  double number1, number2;  // 0 when empty; +-infinity is possible
};

struct MpsText {
  char* begin;
  char* end;
  char* next;   // behind the current line
  char* first;  // the current line, trailing blanks cut
  char* last;
  char* nul;        // the first NUL byte, or end
  int64_t line;     // the number of the current line, from 1
  int32_t layout;   // TRV_MPS_FORMAT_
  bool pushed;      // the current line is read again
  bool quoted;      // names may stand in quotes in the free layout
  bool tabs;        // there is a tab somewhere
  char digits[32];  // a number without the blanks in it
};

// Takes over a text, which must live on; carriage returns are taken out of it. A layout out of range is clamped.
void mps_open(MpsText* text, char* data, std::size_t size, int32_t layout, bool quoted);
void mps_rewind(MpsText* text);

// Reads a section line: its section, and in *rest what stands behind the keyword. For the sections with a name on their
// line also the fields name2, number1 and name3. Empty lines are passed over.
MpsStatus mps_section(MpsText* text, MpsSection* section, std::string_view* rest, MpsFields* fields);
// Reads the next data line of a section; empty lines are passed over. A section line stays for mps_section.
MpsStatus mps_data(MpsText* text, MpsSection section, MpsFields* fields);

// Reports a status that is an error and returns its response code.
int32_t mps_report(Task* task, MpsStatus status);
// Shows the current line and its number on the error stream, with what was expected there (NULL: nothing said).
void mps_showline(Task* task, const MpsText& text, const char* filename, const char* expected);

}  // namespace tarvo
