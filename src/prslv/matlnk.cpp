#include "prslv/matlnk.h"

#include <algorithm>

namespace tarvo {

bool matlnk_make(sysenv* env, matlnk* m, int32_t nrow, int32_t ncol, int32_t capacity) {
  const auto size = [](int32_t n) { return static_cast<std::size_t>(n); };
  if (!m->elem.alloc(env, size(capacity)) || !m->rowhead.alloc(env, size(nrow)) || !m->colhead.alloc(env, size(ncol)))
    return false;
  std::fill(m->rowhead.begin(), m->rowhead.end(), -1);
  std::fill(m->colhead.begin(), m->colhead.end(), -1);
  m->capacity = capacity;
  m->used = 0;
  m->freehead = -1;
  m->numfree = 0;
  return true;
}

static void linkcol(matlnk* m, int32_t e, int32_t col) {
  matlnkelem* x = m->elem.data();
  x[e].col = col;
  x[e].cprev = -1;
  x[e].cnext = m->colhead[col];
  if (x[e].cnext >= 0) x[x[e].cnext].cprev = e;
  m->colhead[col] = e;
}

static void unlinkcol(matlnk* m, int32_t e) {
  matlnkelem* x = m->elem.data();
  if (x[e].cprev >= 0) {
    x[x[e].cprev].cnext = x[e].cnext;
  } else {
    m->colhead[x[e].col] = x[e].cnext;
  }
  if (x[e].cnext >= 0) x[x[e].cnext].cprev = x[e].cprev;
}

int32_t matlnk_insert(matlnk* m, int32_t row, int32_t col, double val) {
  matlnkelem* x = m->elem.data();
  int32_t e = m->freehead;
  if (e >= 0) {
    m->freehead = x[e].rnext;
    --m->numfree;
  } else {
    e = m->used++;
  }
  x[e].val = val;
  x[e].row = row;
  x[e].rprev = -1;
  x[e].rnext = m->rowhead[row];
  if (x[e].rnext >= 0) x[x[e].rnext].rprev = e;
  m->rowhead[row] = e;
  linkcol(m, e, col);
  return e;
}

void matlnk_remove(matlnk* m, int32_t e) {
  matlnkelem* x = m->elem.data();
  unlinkcol(m, e);
  if (x[e].rprev >= 0) {
    x[x[e].rprev].rnext = x[e].rnext;
  } else {
    m->rowhead[x[e].row] = x[e].rnext;
  }
  if (x[e].rnext >= 0) x[x[e].rnext].rprev = x[e].rprev;
  x[e].rnext = m->freehead;
  m->freehead = e;
  ++m->numfree;
}

void matlnk_movecol(matlnk* m, int32_t e, int32_t col) {
  unlinkcol(m, e);
  linkcol(m, e, col);
}

}  // namespace tarvo
