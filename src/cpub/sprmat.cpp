#include "cpub/sprmat.h"

#include <algorithm>
#include <climits>
#include <new>

namespace tarvo {

// Vector v occupies ptrb[v]..ptre[v] in a slot of room[v] places at ptrb[v]; slots lie below `top` without overlap.
// The pending elements grow down from the end of the same arrays: top <= capacity - cache_count.
struct sprmat {
  sysenv* env = nullptr;
  int32_t locks = 0;  // how many users of the raw arrays there are
  bool by_rows = false;
  int32_t maxrows = 0, maxcols = 0, numrows = 0, numcols = 0;
  int32_t extra_space = 0;
  int32_t double_threshold = -1;
  int32_t capacity = 0;     // length of sub and val
  int32_t top = 0;          // first place behind the slots
  int32_t stored = 0;       // elements in the vectors
  int32_t cache_count = 0;  // places of the cache in use, those of vectors flushed alone included
  int32_t num_flushes = 0, num_transposes = 0;

  Array<int32_t> ptrb, ptre, room;  // [dim], dim = max(maxrows, maxcols) or more
  Array<int32_t> sub;
  Array<double> val;

  // Pending elements: one list a vector, newest first. Position 0 is never in a list, so that 0 ends one; a head of
  // -1 is an empty list whose vector still stands in `touched`.
  Array<int32_t> cache_head;  // [dim]
  Array<int32_t> cache_next;  // [capacity], empty until the first element
  Array<int32_t> touched;     // [dim] the vectors with a head other than 0
  int32_t num_touched = 0;

  // The places of one vector's elements: place[i] is 1 plus the offset of index i in vector `loaded`, 0 when absent
  // and for all i when loaded is -1. It stays loaded over merges and look-ups, so that putting and reading in turn on
  // one long vector costs O(1) a time.
  Array<int32_t> place;  // [dim]
  int32_t loaded = -1;
  int32_t last_searched = -1;
};

namespace {

constexpr int32_t max_capacity = INT32_MAX - 1;
constexpr int32_t absent_seen = INT32_MIN;  // in place[]: not in the vector, but in its list
constexpr int32_t warm_block = 32;          // vectors whose lists are walked together
constexpr int32_t long_list = 32;           // a look-up that passes so many pending elements merges them

int32_t num_vectors(const sprmat* m) { return m->by_rows ? m->numrows : m->numcols; }

// The capacity to grow to for `needed` places, the extra space on top; -1 when that is beyond all limits.
int32_t newcapacity(const sprmat* m, int64_t needed) {
  if (needed >= max_capacity) return -1;
  const int64_t old = m->capacity;
  const bool by_half = m->double_threshold >= 0 && m->double_threshold <= m->capacity;
  const int64_t grown = std::max(by_half ? old + old / 2 : 2 * old, needed) + 1 + m->extra_space;
  return static_cast<int32_t>(std::min<int64_t>(grown, max_capacity));
}

// ---- Places of one vector ----

void unload(sprmat* m) {
  if (m->loaded < 0) return;
  for (int32_t k = m->ptrb[m->loaded]; k < m->ptre[m->loaded]; ++k) m->place[m->sub[k]] = 0;
  m->loaded = -1;
}

void load(sprmat* m, int32_t v) {
  if (m->loaded == v) return;
  unload(m);
  const int32_t begin = m->ptrb[v];
  for (int32_t k = begin; k < m->ptre[v]; ++k) m->place[m->sub[k]] = k - begin + 1;
  m->loaded = v;
}

// ---- Merging the pending elements of a vector whose places are in place[] ----

// Marks the indices that the list adds to the vector and counts those that come with a non-zero.
int32_t mark_list(sprmat* m, int32_t v) {
  int32_t added = 0;
  for (int32_t p = m->cache_head[v]; p > 0; p = m->cache_next[p]) {
    int32_t& place = m->place[m->sub[p]];
    if (place != 0) continue;
    place = absent_seen;
    if (m->val[p] != 0.0) ++added;
  }
  return added;
}

void unmark_list(sprmat* m, int32_t v) {
  for (int32_t p = m->cache_head[v]; p > 0; p = m->cache_next[p]) {
    int32_t& place = m->place[m->sub[p]];
    if (place == absent_seen) place = 0;
  }
}

// Merges the marked list of v into the `length` elements at sub, val, which have room for the added ones. Gives the
// new length; place[] is up to date.
int32_t merge_list(sprmat* m, int32_t v, int32_t* sub, double* val, int32_t length) {
  bool zeros = false;
  for (int32_t p = m->cache_head[v]; p > 0; p = m->cache_next[p]) {
    int32_t& place = m->place[m->sub[p]];
    if (place > 0) {
      val[place - 1] = m->val[p];
      zeros |= m->val[p] == 0.0;
      place = -place;  // an older value of this index must not come over it
    } else if (place == absent_seen) {
      if (m->val[p] != 0.0) {
        sub[length] = m->sub[p];
        val[length] = m->val[p];
        place = -(++length);
      } else {
        place = 0;
      }
    }
  }
  for (int32_t p = m->cache_head[v]; p > 0; p = m->cache_next[p]) {
    int32_t& place = m->place[m->sub[p]];
    if (place < 0) place = -place;
  }
  if (!zeros) return length;
  int32_t kept = 0;
  for (int32_t k = 0; k < length; ++k) {
    const int32_t i = sub[k];
    if (val[k] == 0.0) {
      m->place[i] = 0;
      continue;
    }
    sub[kept] = i;
    val[kept] = val[k];
    m->place[i] = ++kept;
  }
  return kept;
}

// ---- Moving vectors ----

// Gives vector v room for `length` elements without touching the cache; false when there is no place for it. A vector
// that grows by single elements gets a half more, so that growing it again and again moves it seldom.
bool make_room(sprmat* m, int32_t v, int32_t length, bool slack) {
  if (length <= m->room[v]) return true;
  const int64_t limit = m->capacity - m->cache_count;
  const int64_t generous = slack ? int64_t{length} + length / 2 : length;
  const bool is_last = m->ptrb[v] + m->room[v] == m->top;
  const int64_t begin = is_last ? m->ptrb[v] : m->top;
  if (begin + length >= limit) return false;
  const int64_t room = begin + generous < limit ? generous : length;
  if (!is_last) {
    const int32_t old = m->ptre[v] - m->ptrb[v];
    std::copy_n(m->sub.data() + m->ptrb[v], old, m->sub.data() + begin);
    std::copy_n(m->val.data() + m->ptrb[v], old, m->val.data() + begin);
    m->ptrb[v] = static_cast<int32_t>(begin);
    m->ptre[v] = m->ptrb[v] + old;
  }
  m->room[v] = static_cast<int32_t>(room);
  m->top = static_cast<int32_t>(begin + room);
  return true;
}

// Walks the lists of some vectors in step, so that their cache misses overlap: the elements lie all over the cache,
// and the merge that follows would wait for each of them.
void warm_lists(const sprmat* m, int32_t first, int32_t last) {
  int32_t p[warm_block];
  int32_t active = 0;
  for (int32_t v = first; v < last; ++v)
    if (m->cache_head[v] > 0) p[active++] = m->cache_head[v];
  while (active > 0) {
    int32_t left = 0;
    for (int32_t k = 0; k < active; ++k) {
      __builtin_prefetch(m->val.data() + p[k]);
      __builtin_prefetch(m->place.data() + m->sub[p[k]], 1);
      if (const int32_t next = m->cache_next[p[k]]; next > 0) p[left++] = next;
    }
    active = left;
  }
}

// New arrays of the given capacity with all vectors in order and without holes, the pending elements merged.
// False when out of memory, nothing being changed.
bool rebuild(sprmat* m, int32_t capacity) {
  Array<int32_t> newsub;
  Array<double> newval;
  const auto size = static_cast<std::size_t>(capacity);
  if (!newsub.alloc(m->env, size) || !newval.alloc(m->env, size)) return false;
  unload(m);
  const bool pending = m->cache_count > 0;
  const int32_t n = num_vectors(m);
  int32_t pos = 0;
  for (int32_t v = 0; v < n; ++v) {
    if (pending && v % warm_block == 0) warm_lists(m, v, std::min(v + warm_block, n));
    int32_t length = m->ptre[v] - m->ptrb[v];
    int32_t* sub = newsub.data() + pos;
    double* val = newval.data() + pos;
    std::copy_n(m->sub.data() + m->ptrb[v], length, sub);
    std::copy_n(m->val.data() + m->ptrb[v], length, val);
    if (pending && m->cache_head[v] > 0) {
      for (int32_t k = 0; k < length; ++k) m->place[sub[k]] = k + 1;
      mark_list(m, v);
      length = merge_list(m, v, sub, val, length);
      for (int32_t k = 0; k < length; ++k) m->place[sub[k]] = 0;
    }
    m->ptrb[v] = pos;
    m->room[v] = length;
    pos += length;
    m->ptre[v] = pos;
  }
  for (int32_t k = 0; k < m->num_touched; ++k) m->cache_head[m->touched[k]] = 0;
  m->num_touched = 0;
  m->cache_count = 0;
  if (capacity != m->capacity) m->cache_next.reset();
  m->sub.swap(newsub);
  m->val.swap(newval);
  m->capacity = capacity;
  m->top = m->stored = pos;
  return true;
}

// Merges the pending elements of v in place. False when there is no room, and they are pending still.
bool flush_vector(sprmat* m, int32_t v) {
  load(m, v);
  const int32_t length = m->ptre[v] - m->ptrb[v];
  if (!make_room(m, v, length + mark_list(m, v), true)) {
    unmark_list(m, v);
    return false;
  }
  const int32_t merged = merge_list(m, v, m->sub.data() + m->ptrb[v], m->val.data() + m->ptrb[v], length);
  m->ptre[v] = m->ptrb[v] + merged;
  m->stored += merged - length;
  m->cache_head[v] = -1;
  return true;
}

// Merges what fits in place; true when that was all.
bool flush_in_place(sprmat* m) {
  int32_t left = 0;
  for (int32_t k = 0; k < m->num_touched; ++k) {
    const int32_t v = m->touched[k];
    if (m->cache_head[v] > 0 && !flush_vector(m, v))
      m->touched[left++] = v;
    else
      m->cache_head[v] = 0;
  }
  m->num_touched = left;
  if (left > 0) return false;
  m->cache_count = 0;
  return true;
}

// Frees the places that make the difference between `top` and `stored`, or grows, for `needed` more places and some
// room to work in: a store that is filled to the brim would have to be rebuilt for every few elements.
bool rebuild_with_room(sprmat* m, int64_t needed) {
  const int64_t used = m->stored + needed;
  if (used + m->capacity / 8 <= m->capacity) return rebuild(m, m->capacity);
  const int32_t capacity = newcapacity(m, used);
  if (capacity >= 0 && rebuild(m, capacity)) return true;
  return used <= m->capacity && rebuild(m, m->capacity);
}

int32_t turn(sprmat* m, bool by_rows) {
  if (m->by_rows == by_rows) return SPRMAT_OK;
  if (m->locks > 0) return SPRMAT_LOCKED;
  if (const int32_t code = sprmat_flush(m)) return code;
  unload(m);
  Array<int32_t> begin, end, newsub;
  Array<double> newval;
  const auto size = static_cast<std::size_t>(m->capacity);
  if (!begin.alloc(m->env, m->ptrb.size()) || !end.alloc(m->env, m->ptrb.size(), Fill::zero) ||
      !newsub.alloc(m->env, size) || !newval.alloc(m->env, size))
    return SPRMAT_SPACE;
  const int32_t old = num_vectors(m);
  m->by_rows = by_rows;
  const int32_t n = num_vectors(m);
  for (int32_t v = 0; v < old; ++v)
    for (int32_t k = m->ptrb[v]; k < m->ptre[v]; ++k) ++end[m->sub[k]];
  int32_t pos = 0;
  for (int32_t v = 0; v < n; ++v) {
    begin[v] = pos;
    pos += end[v];
    m->room[v] = end[v];
    end[v] = begin[v];
  }
  for (int32_t v = 0; v < old; ++v) {
    for (int32_t k = m->ptrb[v]; k < m->ptre[v]; ++k) {
      const int32_t to = end[m->sub[k]]++;
      newsub[to] = v;
      newval[to] = m->val[k];
    }
  }
  m->ptrb.swap(begin);
  m->ptre.swap(end);
  m->sub.swap(newsub);
  m->val.swap(newval);
  m->top = pos;
  m->last_searched = -1;
  ++m->num_transposes;
  return SPRMAT_OK;
}

// Makes all arrays of the dimension at least n long.
bool grow_dimension(sprmat* m, int32_t n) {
  const auto size = static_cast<std::size_t>(n);
  if (size <= m->ptrb.size()) return true;
  Array<int32_t>* const family[] = {&m->ptrb, &m->ptre, &m->room, &m->cache_head, &m->touched, &m->place};
  Array<int32_t> grown[std::size(family)];
  for (Array<int32_t>& array : grown)
    if (!array.alloc(m->env, size, Fill::zero)) return false;
  for (std::size_t k = 0; k < std::size(family); ++k) {
    std::copy_n(family[k]->data(), family[k]->size(), grown[k].data());
    family[k]->swap(grown[k]);
  }
  return true;
}

// Flushes and turns, unless the store is locked: it is then flushed and column-wise already.
int32_t prepare(sprmat* m, bool by_rows) {
  if (m->locks > 0) return SPRMAT_OK;
  if (const int32_t code = sprmat_flush(m)) return code;
  return turn(m, by_rows);
}

// Calls f(v, i, value) for all elements of the vectors first..last). The vectors come one after the other, but for
// rows of a locked store.
template <class F>
void each_element(const sprmat* m, bool by_rows, int32_t first, int32_t last, F f) {
  const bool across = m->by_rows != by_rows;
  const int32_t begin = across ? 0 : first;
  const int32_t end = across ? num_vectors(m) : last;
  for (int32_t v = begin; v < end; ++v) {
    for (int32_t k = m->ptrb[v]; k < m->ptre[v]; ++k) {
      const int32_t i = m->sub[k];
      if (!across)
        f(v, i, m->val[k]);
      else if (i >= first && i < last)
        f(i, v, m->val[k]);
    }
  }
}

int64_t count_slice(const sprmat* m, bool by_rows, int32_t first, int32_t last) {
  int64_t count = 0;
  if (m->by_rows == by_rows)
    for (int32_t v = first; v < last; ++v) count += m->ptre[v] - m->ptrb[v];
  else
    each_element(m, by_rows, first, last, [&](int32_t, int32_t, double) { ++count; });
  return count;
}

int32_t putvec(sprmat* m, bool by_rows, int32_t v, int32_t n, const int32_t* sub, const double* val) {
  if (m->locks > 0) return SPRMAT_LOCKED;
  if (const int32_t code = prepare(m, by_rows)) return code;
  if (n > m->room[v] && !make_room(m, v, n, false)) {
    if (!rebuild_with_room(m, int64_t{n} + 1)) return SPRMAT_SPACE;
    if (!make_room(m, v, n, false)) return SPRMAT_SPACE;
  }
  if (m->loaded == v) unload(m);
  const int32_t begin = m->ptrb[v];
  int32_t pos = begin;
  for (int32_t k = 0; k < n; ++k) {
    if (val[k] == 0.0) continue;
    m->sub[pos] = sub[k];
    m->val[pos++] = val[k];
  }
  m->stored += pos - m->ptre[v];
  m->ptre[v] = pos;
  return SPRMAT_OK;
}

int32_t putlimit(sprmat* m, int32_t limit, bool rows) {
  int32_t& old = rows ? m->maxrows : m->maxcols;
  if (limit == old) return SPRMAT_OK;
  if (limit < (rows ? m->numrows : m->numcols)) return rows ? SPRMAT_MAXROWS : SPRMAT_MAXCOLS;
  if (static_cast<std::size_t>(limit) > m->ptrb.size()) {
    if (m->locks > 0) return SPRMAT_LOCKED;
    if (rows)
      if (const int32_t code = turn(m, false)) return code;
    if (!grow_dimension(m, limit)) return SPRMAT_SPACE;
  }
  old = limit;
  return SPRMAT_OK;
}

// The pending elements stay pending, so that appending and putting elements in turn costs O(1) a time.
int32_t append(sprmat* m, int32_t n, bool rows) {
  int32_t& count = rows ? m->numrows : m->numcols;
  if (int64_t{count} + n > (rows ? m->maxrows : m->maxcols)) return rows ? SPRMAT_ROWLIMIT : SPRMAT_COLLIMIT;
  if (m->locks > 0) return SPRMAT_LOCKED;
  if (m->by_rows == rows)
    for (int32_t v = count; v < count + n; ++v) m->ptrb[v] = m->ptre[v] = m->room[v] = 0;
  count += n;
  return SPRMAT_OK;
}

int32_t remove_vectors(sprmat* m, bool by_rows, int32_t n, const int32_t* list) {
  if (m->locks > 0) return SPRMAT_LOCKED;
  if (n <= 0) return SPRMAT_OK;
  if (const int32_t code = prepare(m, by_rows)) return code;
  unload(m);
  m->last_searched = -1;
  int32_t& count = by_rows ? m->numrows : m->numcols;
  int32_t to = count;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t v = list[k];
    if (m->ptrb[v] < 0) continue;
    m->stored -= m->ptre[v] - m->ptrb[v];
    m->ptrb[v] = -1;
    to = std::min(to, v);
  }
  for (int32_t v = to; v < count; ++v) {
    if (m->ptrb[v] < 0) continue;
    m->ptrb[to] = m->ptrb[v];
    m->ptre[to] = m->ptre[v];
    m->room[to++] = m->room[v];
  }
  count = to;
  return SPRMAT_OK;
}

// The offset of an index in sub[0..n), or -1. Blocks without a branch inside, for the vector units.
int32_t find_index(const int32_t* sub, int32_t n, int32_t index) {
  constexpr int32_t block = 16;
  int32_t k = 0;
  for (; k + block <= n; k += block) {
    int32_t hit = 0;
    for (int32_t b = 0; b < block; ++b) hit |= static_cast<int32_t>(sub[k + b] == index);
    if (hit != 0) break;
  }
  for (; k < n; ++k)
    if (sub[k] == index) return k;
  return -1;
}

}  // namespace

sprmat* sprmat_make(sysenv* env, int32_t maxrows, int32_t maxcols) {
  void* place = sysenv_malloc(env, 1, sizeof(sprmat));
  if (place == nullptr) return nullptr;
  auto* m = new (place) sprmat;
  m->env = env;
  if (!grow_dimension(m, std::max(maxrows, maxcols))) {
    sprmat_delete(&m);
    return nullptr;
  }
  m->maxrows = maxrows;
  m->maxcols = maxcols;
  return m;
}

void sprmat_delete(sprmat** matrix) {
  if (*matrix == nullptr) return;
  sysenv* env = (*matrix)->env;
  (*matrix)->~sprmat();
  sysenv_free(env, *matrix);
  *matrix = nullptr;
}

int32_t sprmat_putmaxrows(sprmat* m, int32_t maxrows) { return putlimit(m, maxrows, true); }
int32_t sprmat_putmaxcols(sprmat* m, int32_t maxcols) { return putlimit(m, maxcols, false); }

int32_t sprmat_resize(sprmat* m, int32_t maxnz) {
  if (m->locks > 0) return SPRMAT_LOCKED;
  if (const int32_t code = sprmat_flush(m)) return code;
  if (maxnz < m->stored) return SPRMAT_CAPACITY;
  const int64_t capacity = int64_t{maxnz} + m->extra_space;
  if (capacity == m->capacity) return SPRMAT_OK;
  if (capacity > max_capacity || !rebuild(m, static_cast<int32_t>(capacity))) return SPRMAT_SPACE;
  return SPRMAT_OK;
}

void sprmat_putextra(sprmat* m, int32_t extra) { m->extra_space = extra; }
void sprmat_putdoubletrh(sprmat* m, int32_t threshold) { m->double_threshold = threshold; }

int32_t sprmat_getmaxnz(const sprmat* m) { return m->capacity; }
int32_t sprmat_getnumrows(const sprmat* m) { return m->numrows; }
int32_t sprmat_getnumcols(const sprmat* m) { return m->numcols; }
int32_t sprmat_getnumflushes(const sprmat* m) { return m->num_flushes; }
int32_t sprmat_getnumtransposes(const sprmat* m) { return m->num_transposes; }

int32_t sprmat_getnumnz(sprmat* m, int32_t* count) {
  const int32_t code = sprmat_flush(m);
  *count = m->stored;
  return code;
}

int32_t sprmat_flush(sprmat* m) {
  if (m->cache_count == 0) return SPRMAT_OK;
  // Many pending elements are merged best in one sweep over everything.
  const bool many = 8 * int64_t{m->cache_count} >= int64_t{m->stored} + num_vectors(m) && m->cache_count > long_list;
  if (many ? !rebuild(m, m->capacity) : !flush_in_place(m) && !rebuild_with_room(m, m->cache_count))
    return SPRMAT_SPACE;
  ++m->num_flushes;
  return SPRMAT_OK;
}

int32_t sprmat_putelement(sprmat* m, int32_t i, int32_t j, double value) {
  if (m->locks > 0) return SPRMAT_LOCKED;
  if (m->top + 1 >= m->capacity - m->cache_count) {
    if (const int32_t code = sprmat_flush(m)) return code;
    if (m->top + 2 + m->capacity / 8 >= m->capacity && !rebuild_with_room(m, 2) && m->top + 2 >= m->capacity)
      return SPRMAT_SPACE;
  }
  if (m->cache_next.empty() && !m->cache_next.alloc(m->env, static_cast<std::size_t>(m->capacity))) return SPRMAT_SPACE;
  const int32_t v = m->by_rows ? i : j;
  const int32_t p = m->capacity - ++m->cache_count;
  m->sub[p] = m->by_rows ? j : i;
  m->val[p] = value;
  m->cache_next[p] = std::max(m->cache_head[v], 0);
  if (m->cache_head[v] == 0) m->touched[m->num_touched++] = v;
  m->cache_head[v] = p;
  return SPRMAT_OK;
}

int32_t sprmat_getelement(sprmat* m, int32_t i, int32_t j, double* value) {
  *value = 0.0;
  const int32_t v = m->by_rows ? i : j;
  const int32_t index = m->by_rows ? j : i;
  int32_t passed = 0;
  int32_t p = m->cache_head[v];
  for (; p > 0 && m->sub[p] != index; p = m->cache_next[p]) ++passed;
  const bool pending = p > 0;
  if (pending) *value = m->val[p];
  // Without memory for the merge the list stays long, and the answer is the same.
  if (passed > long_list && !flush_vector(m, v)) static_cast<void>(sprmat_flush(m));
  if (pending) return SPRMAT_OK;
  const int32_t begin = m->ptrb[v];
  int32_t at;
  if (m->loaded == v || m->last_searched == v) {
    load(m, v);
    at = m->place[index] - 1;
  } else {
    at = find_index(m->sub.data() + begin, m->ptre[v] - begin, index);
    m->last_searched = v;
  }
  if (at >= 0) *value = m->val[begin + at];
  return SPRMAT_OK;
}

int32_t sprmat_getvec(sprmat* m, bool by_rows, int32_t v, int32_t* length, int32_t* sub, double* val) {
  if (const int32_t code = prepare(m, by_rows)) return code;
  if (m->by_rows == by_rows) {
    const int32_t n = m->ptre[v] - m->ptrb[v];
    if (length != nullptr) *length = n;
    if (sub != nullptr) std::copy_n(m->sub.data() + m->ptrb[v], n, sub);
    if (val != nullptr) std::copy_n(m->val.data() + m->ptrb[v], n, val);
    return SPRMAT_OK;
  }
  int32_t n = 0;
  each_element(m, by_rows, v, v + 1, [&](int32_t, int32_t i, double value) {
    if (sub != nullptr) sub[n] = i;
    if (val != nullptr) val[n] = value;
    ++n;
  });
  if (length != nullptr) *length = n;
  return SPRMAT_OK;
}

int32_t sprmat_putcol(sprmat* m, int32_t j, int32_t n, const int32_t* sub, const double* val) {
  return putvec(m, false, j, n, sub, val);
}
int32_t sprmat_putrow(sprmat* m, int32_t i, int32_t n, const int32_t* sub, const double* val) {
  return putvec(m, true, i, n, sub, val);
}

int32_t sprmat_loadcols(sprmat* m, int32_t first, int32_t num, const int32_t* ptrb, const int32_t* ptre,
                        const int32_t* sub, const double* val, double tol) {
  if (m->locks > 0) return SPRMAT_LOCKED;
  if (const int32_t code = prepare(m, false)) return code;
  int64_t total = 0;
  for (int32_t k = 0; k < num; ++k) total += ptre[k] - ptrb[k];
  if (m->top + total + 1 >= m->capacity && !rebuild_with_room(m, total + 1)) return SPRMAT_SPACE;
  unload(m);
  int32_t pos = m->top;
  for (int32_t k = 0; k < num; ++k) {
    const int32_t j = first + k;
    m->ptrb[j] = pos;
    for (int32_t t = ptrb[k]; t < ptre[k]; ++t) {
      m->sub[pos] = sub[t];
      m->val[pos] = val[t];
      pos += static_cast<int32_t>(!(-tol < val[t] && val[t] < tol));
    }
    m->ptre[j] = pos;
    m->room[j] = pos - m->ptrb[j];
  }
  m->stored += pos - m->top;
  m->top = pos;
  return SPRMAT_OK;
}

int32_t sprmat_appendrows(sprmat* m, int32_t n) { return append(m, n, true); }
int32_t sprmat_appendcols(sprmat* m, int32_t n) { return append(m, n, false); }
int32_t sprmat_removerows(sprmat* m, int32_t n, const int32_t* list) { return remove_vectors(m, true, n, list); }
int32_t sprmat_removecols(sprmat* m, int32_t n, const int32_t* list) { return remove_vectors(m, false, n, list); }

int32_t sprmat_getnumnzslice(sprmat* m, int32_t first_row, int32_t last_row, int32_t first_col, int32_t last_col,
                             int64_t* count) {
  *count = 0;
  if (const int32_t code = sprmat_flush(m)) return code;
  if (m->by_rows) {
    std::swap(first_row, first_col);
    std::swap(last_row, last_col);
  }
  each_element(m, m->by_rows, first_col, last_col,
               [&](int32_t, int32_t i, double) { *count += static_cast<int64_t>(i >= first_row && i < last_row); });
  return SPRMAT_OK;
}

int32_t sprmat_getslice(sprmat* m, bool by_rows, int32_t first, int32_t last, int32_t size, int32_t* free,
                        int32_t* ptrb, int32_t* ptre, int32_t* sub, double* val) {
  if (const int32_t code = prepare(m, by_rows)) return code;
  const int64_t total = count_slice(m, by_rows, first, last);
  if (total > *free || *free > size) return SPRMAT_ARRAY_SHORT;
  if (first >= last) return SPRMAT_OK;
  const auto n = static_cast<std::size_t>(last - first);
  Array<int32_t> next;  // the next place of each vector
  if (!next.alloc(m->env, n, Fill::zero)) return SPRMAT_SPACE;
  if (m->by_rows == by_rows)
    for (int32_t v = first; v < last; ++v) next[v - first] = m->ptre[v] - m->ptrb[v];
  else
    each_element(m, by_rows, first, last, [&](int32_t v, int32_t, double) { ++next[v - first]; });
  int32_t pos = size - *free;
  for (std::size_t v = 0; v < n; ++v) {
    const int32_t length = next[v];
    next[v] = pos;
    if (ptrb != nullptr) ptrb[v] = pos;
    pos += length;
    if (ptre != nullptr) ptre[v] = pos;
  }
  each_element(m, by_rows, first, last, [&](int32_t v, int32_t i, double value) {
    const int32_t to = next[v - first]++;
    if (sub != nullptr) sub[to] = i;
    if (val != nullptr) val[to] = value;
  });
  *free -= static_cast<int32_t>(total);
  return SPRMAT_OK;
}

int32_t sprmat_gettriplets(sprmat* m, bool by_rows, int32_t first, int32_t last, int32_t size, int32_t* free,
                           int32_t* subi, int32_t* subj, double* val) {
  if (const int32_t code = prepare(m, by_rows)) return code;
  const int64_t total = count_slice(m, by_rows, first, last);
  if (total > *free || *free > size) return SPRMAT_ARRAY_SHORT;
  int32_t pos = size - *free;
  each_element(m, by_rows, first, last, [&](int32_t v, int32_t i, double value) {
    if (subi != nullptr) subi[pos] = by_rows ? v : i;
    if (subj != nullptr) subj[pos] = by_rows ? i : v;
    if (val != nullptr) val[pos] = value;
    ++pos;
  });
  *free -= static_cast<int32_t>(total);
  return SPRMAT_OK;
}

int32_t sprmat_getraw(sprmat* m, SprmatRaw* raw) {
  if (const int32_t code = prepare(m, false)) return code;
  ++m->locks;
  *raw = {m->ptrb.data(), m->ptre.data(), m->sub.data(), m->val.data()};
  return SPRMAT_OK;
}

void sprmat_releaseraw(sprmat* m) { --m->locks; }
bool sprmat_islocked(const sprmat* m) { return m->locks > 0; }

}  // namespace tarvo
