// Prints the public header: the template with the line "@CONSTANTS@" replaced by the constants of the tables.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

namespace {

struct Constant {
  const char* name;
  long value;
};

void print(std::ostream& out, const char* title, const char* prefix, std::initializer_list<Constant> rows) {
  out << "/* " << title << " */\n";
  for (const Constant& row : rows) out << "#define " << prefix << row.name << " " << row.value << "\n";
  out << "\n";
}

void print_all(std::ostream& out) {
  print(out, "Response codes", "TRV_RES_",
        {
#define RES(number, name, text, description) {#name, number},
#include "tarvo/tables/rescodes.def"
#undef RES
        });
  print(out, "Symbolic values", "TRV_",
        {
#define ENUM(family, member, value) {#family "_" #member, value},
#include "tarvo/tables/enums.def"
#undef ENUM
            {"OFF", 0}, {"ON", 1}, {"MAX_STR_LEN", 1024}});
  print(out, "Call-back codes", "TRV_CALLBACK_",
        {
#define CALLBACK(number, name) {#name, number},
#include "tarvo/tables/callbacks.def"
#undef CALLBACK
        });
  print(out, "Integer parameters", "TRV_IPAR_",
        {
#define IPAR(index, name, value, kind, lo, up, family, text) {#name, index},
#define IPAR_UNUSED(index)
#include "tarvo/tables/ipar.def"
#undef IPAR
#undef IPAR_UNUSED
        });
  print(out, "Double parameters", "TRV_DPAR_",
        {
#define DPAR(index, name, value, kind, lo, up, text) {#name, index},
#include "tarvo/tables/dpar.def"
#undef DPAR
        });
  print(out, "String parameters", "TRV_SPAR_",
        {
#define SPAR(index, name, value, text) {#name, index},
#include "tarvo/tables/spar.def"
#undef SPAR
        });
  print(out, "Double information items", "TRV_DINF_",
        {
#define DINF(index, name) {#name, index},
#include "tarvo/tables/dinf.def"
#undef DINF
        });
  print(out, "Integer information items", "TRV_IINF_",
        {
#define IINF(index, name) {#name, index},
#include "tarvo/tables/iinf.def"
#undef IINF
        });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: make_header TEMPLATE OUTPUT\n";
    return 1;
  }
  std::ifstream in(argv[1]);
  std::ofstream out(argv[2]);
  std::string line;
  while (std::getline(in, line)) {
    if (line == "@CONSTANTS@") {
      print_all(out);
    } else {
      out << line << "\n";
    }
  }
  return in.eof() && out.good() ? 0 : 1;
}
