// The tables of the library: response codes, symbolic constants, parameters and information items. The rows
// stand in tables/*.def; everything here is made from them at compile time.
#pragma once

#include <cstdint>

#include "tarvo/task.h"

namespace tarvo {

// How a numeric parameter's value is limited; `lo` and `up` mean something only where the kind uses them.
enum class Range : int32_t { at_least = 0, at_most = 1, any = 3, between = 4 };

// One row of a parameter table. The unassigned slots of the integer table have the name "": nothing finds
// them by name, and writers skip them.
struct IntParam {
  const char* name;
  int32_t value;  // the default
  Range kind;
  int32_t lo, up;
  const char* family;  // of the symbolic values, as "OPTIMIZER", "ONOFF"; NULL without
};
struct DouParam {
  const char* name;
  double value;
  Range kind;
  double lo, up;
};
struct StrParam {
  const char* name;
  const char* value;
};

extern const IntParam int_params[num_ipar];
extern const DouParam dou_params[num_dpar];
extern const StrParam str_params[num_spar];
extern const char* const int_items[num_iinf];  // names; the first num_iinf_public ones are public
extern const char* const dou_items[num_dinf];

// Every name of the interface with its value: constants, response codes, call-back codes, and the index of
// each parameter and item. The rows stand in the order of the .def files.
enum class SymbolKind : int8_t { constant, code, callback, ipar, dpar, spar, iinf, dinf };
struct Symbol {
  const char* name;
  const char* family;  // of an enumeration's member, else NULL
  int32_t value;
  SymbolKind kind;
};
extern const Symbol symbols[];
extern const int32_t num_symbols;
extern const int32_t max_symbol_length;  // without the terminator

// The row of a name, compared byte by byte; NULL when unknown. The name may be empty.
const Symbol* find_symbol(const char* name);
// The index of a name of one kind, or -1.
int32_t find_index(const char* name, SymbolKind kind);

// A response code's row; NULL when unknown.
struct CodeText {
  int32_t code;
  const char* name;
  const char* message;      // the printf format of its reports
  const char* description;  // one sentence without data
};
const CodeText* find_code(int32_t code);

// Fills the defaults of an environment. False when a string couldn't be copied; the others are then NULL or
// set, and free_strings takes them all.
[[nodiscard]] bool fill_defaults(Env* env);
// Gives a task all defaults of its environment. At the first string that can't be copied: the reported
// TRV_RES_ERR_SPACE; that string and the ones behind it keep their old values.
int32_t fill_defaults(Task* task);
// Frees the strings of an environment or a task.
void free_strings(sysenv* sys, char* (&strings)[num_spar]);

}  // namespace tarvo
