// The dual as a file in free MPS form, to look at or to hand on.
#include <array>
#include <cmath>
#include <cstdio>

#include "cpub/numtext.h"
#include "cpub/sysfile.h"
#include "dualize/dualize_internal.h"

namespace tarvo {

namespace {

void put_value(File* file, const char* section, char kind, int32_t index, const char* row, double value) {
  std::array<char, 64> head;
  std::array<char, num_text_size> number;
  if (kind == 0)
    std::snprintf(head.data(), head.size(), " %s %s ", section, row);
  else
    std::snprintf(head.data(), head.size(), " %s %c%d %s ", section, kind, index, row);
  num_print(number.data(), value);
  file_puts(file, head.data());
  file_puts(file, number.data());
  file_puts(file, "\n");
}

struct RowName {
  std::array<char, 16> text;
  explicit RowName(int32_t row) { std::snprintf(text.data(), text.size(), "r%d", row); }
  [[nodiscard]] const char* get() const { return text.data(); }
};

void put_columns(const DualizeInput& dual, File* file) {
  for (int32_t k = 0; k < dual.numvar; ++k) {
    double cost = dual.cx[k];
    for (int32_t t = dual.ptrb[k]; t < dual.ptre[k]; ++t) cost += dual.val[t] * dual.cc[dual.sub[t]];
    put_value(file, "", 'y', k, "obj", cost);
    for (int32_t t = dual.ptrb[k]; t < dual.ptre[k]; ++t)
      put_value(file, "", 'y', k, RowName(dual.sub[t]).get(), dual.val[t]);
  }
}

void put_bounds(const DualizeInput& dual, File* file) {
  for (int32_t k = 0; k < dual.numvar; ++k) {
    const int32_t bk = dual.bkx[k];
    std::array<char, 40> text;
    if (bk == DUAL_BK_FR || bk == DUAL_BK_UP) {
      std::snprintf(text.data(), text.size(), " %s bnd y%d\n", bk == DUAL_BK_FR ? "FR" : "MI", k);
      file_puts(file, text.data());
    }
    std::snprintf(text.data(), text.size(), "y%d", k);
    if (bk == DUAL_BK_FX) put_value(file, "FX bnd", 0, 0, text.data(), dual.blx[k]);
    if (bk == DUAL_BK_LO || bk == DUAL_BK_RA) put_value(file, "LO bnd", 0, 0, text.data(), dual.blx[k]);
    if (bk == DUAL_BK_UP || bk == DUAL_BK_RA) put_value(file, "UP bnd", 0, 0, text.data(), dual.bux[k]);
  }
}

}  // namespace

int32_t dualize_writedual(const dualizer* record, const char* path) {
  const DualizeInput& dual = record->dual;
  File* file = nullptr;
  if (const int32_t res = file_open(record->env, path, FileMode::write, false, &file); res != SYS_OK) return res;
  file_puts(file, "NAME dual\nROWS\n N obj\n");
  for (int32_t r = 0; r < dual.numcon; ++r) {
    file_puts(file, dual.bkc[r] == DUAL_BK_UP ? " L " : dual.bkc[r] == DUAL_BK_LO ? " G " : " E ");
    file_puts(file, RowName(r).get());
    file_puts(file, "\n");
  }
  file_puts(file, "COLUMNS\n");
  put_columns(dual, file);
  file_puts(file, "RHS\n");
  if (dual.cfix != 0.0) put_value(file, "rhs", 0, 0, "obj", -dual.cfix);
  for (int32_t r = 0; r < dual.numcon; ++r) {
    const double side = dual.bkc[r] == DUAL_BK_UP ? dual.buc[r] : dual.blc[r];
    if (side != 0.0) put_value(file, "rhs", 0, 0, RowName(r).get(), side);
  }
  file_puts(file, "BOUNDS\n");
  put_bounds(dual, file);
  file_puts(file, "ENDATA\n");
  return file_close(&file);
}

}  // namespace tarvo
