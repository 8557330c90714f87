// A sparse matrix whose elements each stand on the list of their row and on that of their column: elements come, go and
// change columns at a constant cost, and both directions can be walked at any time.
#pragma once

#include "cpub/array.h"

namespace tarvo {

struct matlnkelem {
  double val;
  int32_t row, col;
  int32_t rnext, rprev;  // neighbours on the row's list, -1 at its ends
  int32_t cnext, cprev;
};

struct matlnk {
  int32_t capacity = 0, used = 0;  // slots; those from `used` on were never taken
  int32_t freehead = -1, numfree = 0;
  Array<matlnkelem> elem;
  Array<int32_t> rowhead, colhead;  // first element or -1
};

[[nodiscard]] bool matlnk_make(sysenv* env, matlnk* m, int32_t nrow, int32_t ncol, int32_t capacity);
inline int32_t matlnk_room(const matlnk* m) { return m->capacity - m->used + m->numfree; }
// The new element's slot; there must be room.
int32_t matlnk_insert(matlnk* m, int32_t row, int32_t col, double val);
void matlnk_remove(matlnk* m, int32_t e);
void matlnk_movecol(matlnk* m, int32_t e, int32_t col);

}  // namespace tarvo
