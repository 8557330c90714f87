// Where everything stands: the dense tail, wide supernodes cut in blocks, row lists, value store, lists of updates.
#include <cmath>
#include <cstdint>

#include "kfac/kopenmp.h"
#include "kfac/symface_internal.h"

namespace tarvo {

namespace {

// The trailing columns are kept as a dense triangle as long as this share of it is not zero.
constexpr double tail_density = 0.9;
constexpr int32_t least_panel = 256;

// The first supernode of the dense tail.
int32_t find_tail(const SymSuper& super) {
  const int32_t n = super.first[super.count];
  int32_t tail = super.count;
  double elements = 0.0;
  for (int32_t s = super.count - 1; s >= 0; --s) {
    const double w = super.first[s + 1] - super.first[s], m = n - super.first[s];
    elements += w * (w + 1.0) / 2.0 + w * super.nrows[s];
    if (elements >= tail_density * (m * (m + 1.0) / 2.0)) tail = s;
  }
  // A last column that nothing meets is no tail.
  if (tail == super.count - 1 && super.first[tail] == n - 1 && (tail == 0 || super.parent[tail - 1] != tail))
    tail = super.count;
  return tail;
}

// Columns of the next block out of a trapezoid of `left` columns and `rows` rows: as many as fit in the second level
// cache, in multiples of 16, all of them when only few would be left.
int32_t block_width(const SymFace* face, int32_t left, int32_t rows) {
  const int32_t l1 = face->options.l1kb, l2 = face->options.l2kb;
  // A small second level behind a large first one is not worth blocks of its own.
  if (l2 <= 0 || (l2 < 2 * l1 && l2 < 129)) return left;
  const double cache = l2 * 1024.0 * 0.95 / 8.0;
  const double r = rows + 0.5, d = r * r - 2.0 * cache;
  int32_t width = d < 0.0 ? left : static_cast<int32_t>(std::min<double>(left, r - std::sqrt(d)));
  width = std::max(width, least_panel) / 16 * 16;
  return left <= width + width / 2 ? left : width;
}

// Calls put(first, width, rows below) for every block.
template <class Put>
void for_blocks(const SymFace* face, const SymSuper& super, int32_t tail, const Put& put) {
  for (int32_t s = 0; s < tail; ++s) {
    const int32_t end = super.first[s + 1];
    for (int32_t j = super.first[s]; j < end;) {
      const int32_t width = block_width(face, end - j, end - j + super.nrows[s]);
      put(j, width, end - j - width + super.nrows[s], s);
      j += width;
    }
  }
  for (int32_t j = super.first[tail]; j < face->n;) {
    const int32_t width = block_width(face, face->n - j, face->n - j);
    put(j, width, face->n - j - width, -1);
    j += width;
  }
}

// The rows below the supernodes before the tail, at at[s], unsorted: those of their columns and of their children.
bool row_lists(SymFace* face, const SymTree& tree, const SymSuper& super, int32_t tail, const int64_t* at) {
  const auto n = static_cast<size_t>(face->n), count = static_cast<size_t>(super.count);
  int32_t *newpos, *mark, *child, *sibling;
  Workspace ws(face->env);
  ws.add(&newpos, n);
  ws.add(&mark, n);
  ws.add(&child, count);
  ws.add(&sibling, count);
  if (!ws.commit()) return false;
  for (int32_t k = 0; k < face->n; ++k) {
    newpos[super.oldpos[k]] = k;
    mark[k] = -1;
  }
  std::fill(child, child + count, -1);
  for (int32_t s = 0; s < tail; ++s) {
    const int32_t end = super.first[s + 1];
    int32_t* list = face->rows.data() + at[s];
    int32_t length = 0;
    const auto take = [&](int32_t row) {
      if (row < end || mark[row] == s) return;
      mark[row] = s;
      sysenv_assert(face->env, length < super.nrows[s]);
      list[length++] = row;
    };
    for (int32_t k = super.first[s]; k < end; ++k) {
      const int32_t j = super.oldpos[k];
      for (int64_t e = tree.start[j]; e < tree.start[j + 1]; ++e) take(newpos[tree.sub[e]]);
    }
    for (int32_t c = child[s]; c >= 0; c = sibling[c])
      for (int32_t k = 0; k < super.nrows[c]; ++k) take(face->rows[at[c] + k]);
    sysenv_assert(face->env, length == super.nrows[s]);
    if (super.parent[s] >= 0) {
      sibling[s] = child[super.parent[s]];
      child[super.parent[s]] = s;
    }
  }
  return true;
}

// Sorts all row lists at once: by row, then back by supernode.
bool sort_rows(SymFace* face, const SymSuper& super, int32_t tail, const int64_t* at) {
  const int32_t n = face->n;
  int64_t total = 0;
  for (int32_t s = 0; s < tail; ++s) total += super.nrows[s];
  int64_t* start;
  int32_t *owner, *length;
  Workspace ws(face->env);
  ws.add(&start, static_cast<size_t>(n) + 2, Fill::zero);
  ws.add(&owner, static_cast<size_t>(total));
  ws.add(&length, static_cast<size_t>(tail), Fill::zero);
  if (!ws.commit()) return false;
  for (int32_t s = 0; s < tail; ++s)
    for (int32_t k = 0; k < super.nrows[s]; ++k) ++start[face->rows[at[s] + k] + 2];
  for (int32_t i = 0; i < n; ++i) start[i + 2] += start[i + 1];
  for (int32_t s = 0; s < tail; ++s)
    for (int32_t k = 0; k < super.nrows[s]; ++k) owner[start[face->rows[at[s] + k] + 1]++] = s;
  for (int32_t i = 0; i < n; ++i) {
    for (int64_t k = start[i]; k < start[i + 1]; ++k) {
      const int32_t s = owner[k];
      face->rows[at[s] + length[s]++] = i;
    }
  }
  return true;
}

bool place_values(SymFace* face) {
  int64_t total = 0;
  face->nnzl = 0;
  for (SymBlock& block : face->blocks) {
    const int32_t rows = block.width + block.nrows;
    // Thin columns are packed: there is nothing to align in them.
    const bool thin = block.width < 4;
    block.ld = thin ? rows : dense_leading(rows);
    if (!thin) total = (total + 7) / 8 * 8;
    block.val = total;
    total += int64_t{block.ld} * block.width;
    face->nnzl += int64_t{block.width} * (block.width + 1) / 2 + int64_t{block.width} * block.nrows;
  }
  face->numvalues = total;
  if (!face->store.alloc(face->env, static_cast<size_t>(total) + 8)) return false;
  const auto address = reinterpret_cast<std::uintptr_t>(face->store.data());
  face->values = face->store.data() + (64 - address % 64) % 64 / sizeof(double);
  return true;
}

}  // namespace

bool symface_layout(SymFace* face, const SymTree& tree, const SymSuper& super) {
  sysenv* env = face->env;
  const int32_t tail = find_tail(super);
  int32_t nblk = 0;
  face->dstart = super.first[tail];
  for_blocks(face, super, tail, [&nblk](int32_t, int32_t, int32_t, int32_t) { ++nblk; });
  Array<int64_t> at;
  if (!face->blocks.alloc(env, static_cast<size_t>(nblk)) || !face->blockof.alloc(env, static_cast<size_t>(face->n)) ||
      !at.alloc(env, static_cast<size_t>(super.count) + 1))
    return false;
  // The list of a supernode in several blocks begins with its own columns behind the first block.
  face->nblk = 0;
  face->firsttail = nblk;
  int64_t total = 0;
  for_blocks(face, super, tail, [&](int32_t first, int32_t width, int32_t nrows, int32_t s) {
    SymBlock& block = face->blocks[face->nblk];
    block = {first, width, nrows, 0, 0, total};
    std::fill(face->blockof.data() + first, face->blockof.data() + first + width, face->nblk);
    if (s < 0) {
      face->firsttail = std::min(face->firsttail, face->nblk);
    } else {
      if (first == super.first[s]) {
        total += nrows;
        at[s] = total - super.nrows[s];
      }
      block.row = at[s] + super.nrows[s] - nrows;
    }
    ++face->nblk;
  });
  if (!face->rows.alloc(env, static_cast<size_t>(total)) || !row_lists(face, tree, super, tail, at.data()) ||
      !sort_rows(face, super, tail, at.data()))
    return false;
  for (int32_t s = 0; s < tail; ++s) {
    const SymBlock& block = face->blocks[face->blockof[super.first[s]]];
    const int32_t own = block.nrows - super.nrows[s];
    for (int32_t k = 0; k < own; ++k) face->rows[block.row + k] = block.first + block.width + k;
  }
  face->maxrows = 0;
  for (int32_t b = 0; b < face->firsttail; ++b) face->maxrows = std::max(face->maxrows, face->blocks[b].nrows);
  return place_values(face);
}

namespace {

struct Entry {
  uint64_t hash;
  int32_t length, block, pos;
};

bool before(const Entry& a, const Entry& b) {
  if (a.length != b.length) return a.length < b.length;
  if (a.hash != b.hash) return a.hash < b.hash;
  return a.block < b.block;
}

bool same_rows(const SymFace* face, const Entry& a, const Entry& b) {
  if (a.length != b.length || a.hash != b.hash) return false;
  const int32_t* x = face->rows.data() + face->blocks[a.block].row + a.pos;
  const int32_t* y = face->rows.data() + face->blocks[b.block].row + b.pos;
  return x == y || std::equal(x, x + a.length, y);
}

// Calls put(target, position in the row list) for each target of a block, from the last one to the first.
template <class Put>
void for_targets(const SymFace* face, const SymBlock& block, const Put& put) {
  const int32_t* rows = symface_rowlist(face, block);
  uint64_t hash = 0;
  for (int32_t k = block.nrows - 1; k >= 0; --k) {
    hash = (hash + static_cast<uint64_t>(rows[k]) + 1) * 0x9e3779b97f4a7c15u;
    hash ^= hash >> 29;
    const int32_t target = face->blockof[rows[k]];
    if (k == 0 || face->blockof[rows[k - 1]] != target) put(target, k, hash);
  }
}

}  // namespace

bool symface_updates(SymFace* face) {
  sysenv* env = face->env;
  const auto nblk = static_cast<size_t>(face->nblk);
  Array<int64_t>& start = face->updstart;
  if (!start.alloc(env, nblk + 2, Fill::zero)) return false;
  for (int32_t b = 0; b < face->firsttail; ++b)
    for_targets(face, face->blocks[b], [&start](int32_t target, int32_t, uint64_t) { ++start[target + 2]; });
  for (size_t b = 2; b <= nblk; ++b) start[b] += start[b - 1];
  if (nblk > 0) start[nblk + 1] += start[nblk];
  Array<Entry> entries;
  const auto total = static_cast<size_t>(start[nblk + 1]);
  if (!entries.alloc(env, total) || !face->updates.alloc(env, total)) return false;
  for (int32_t b = 0; b < face->firsttail; ++b) {
    const SymBlock& block = face->blocks[b];
    for_targets(face, block, [&](int32_t target, int32_t pos, uint64_t hash) {
      entries[start[target + 1]++] = {hash, block.nrows - pos, b, pos};
    });
  }
  for (int32_t t = 0; t < face->nblk; ++t) {
    std::sort(entries.data() + start[t], entries.data() + start[t + 1], before);
    int64_t head = start[t];
    for (int64_t k = start[t]; k < start[t + 1]; ++k) {
      const Entry& entry = entries[k];
      face->updates[k] = {entry.block, entry.pos, 0};
      if (!same_rows(face, entries[head], entry)) head = k;
      ++face->updates[head].count;
    }
  }
  return true;
}

}  // namespace tarvo
