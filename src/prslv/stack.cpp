// The stack of undo records. A record is its integers, its doubles, for types of variable size the two counts, and last
// the type, so that it can be read from its end.
#include <cstring>

#include "prslv/prslv_internal.h"

namespace tarvo {

bool prslv_defaultreqs(int32_t type, int32_t* nints, int32_t* ndoubles) {
  struct Size {
    int32_t ints, doubles;
  };
  const auto size = [type]() -> Size {
    switch (type) {
      case PRSLV_ROW_LOWER_DROPPED:
      case PRSLV_ROW_UPPER_DROPPED:
        return {1, 1};
      case PRSLV_SINGLETON_ROW:
        return {5, 6};
      case PRSLV_ROW_AT_LOWER:
      case PRSLV_ROW_AT_UPPER:
      case PRSLV_VAR_LOWER_RELAXED:
      case PRSLV_VAR_UPPER_RELAXED:
        return {2, 1};
      case PRSLV_VAR_BOTH_RELAXED:
      case PRSLV_ROW_TIGHTENED:
        return {2, 2};
      case PRSLV_ROW_BY_VAR:
        return {2, 3};
      case PRSLV_ROW_TOOK_COLUMN:
        return {3, 6};
      default:
        return {-1, -1};
    }
  }();
  *nints = size.ints;
  *ndoubles = size.doubles;
  return size.ints >= 0;
}

int32_t prslv_beginpushstk(prslvrun* run, int32_t type, int32_t nints, int32_t ndoubles, int32_t** ints,
                           double** doubles) {
  prslvstack* s = &run->p->stack;
  sysenv_assert(run->env, !s->busy);
  const auto grow = [run](auto* array, int32_t n) {
    const auto need = static_cast<std::size_t>(n);
    return need <= array->size() || array->alloc(run->env, need + need / 2 + 16);
  };
  const int64_t bytes = int64_t{nints} * 4 + int64_t{ndoubles} * 8 + 12;
  if (!grow(&s->ints, nints) || !grow(&s->doubles, ndoubles) || bsto_makeroom(s->store, bytes) == 0) return PRSLV_SPACE;
  s->busy = true;
  s->type = type;
  s->nints = nints;
  s->ndoubles = ndoubles;
  *ints = s->ints.data();
  *doubles = s->doubles.data();
  return PRSLV_OK;
}

void prslv_endpushstk(prslvrun* run, int32_t** ints, double** doubles) {
  prslvstack* s = &run->p->stack;
  sysenv_assert(run->env, s->busy);
  int32_t fixed_ints = 0, fixed_doubles = 0;
  const bool fixed =
      prslv_defaultreqs(s->type, &fixed_ints, &fixed_doubles) && fixed_ints == s->nints && fixed_doubles == s->ndoubles;
  bsto_append(s->store, int64_t{s->nints} * 4, s->ints.data());
  bsto_append(s->store, int64_t{s->ndoubles} * 8, s->doubles.data());
  if (!fixed) {
    const int32_t counts[2] = {s->nints, s->ndoubles};
    bsto_append(s->store, 8, counts);
  }
  const int32_t type = fixed ? s->type : -s->type;
  bsto_append(s->store, 4, &type);
  ++s->count;
  ++run->changes;
  s->busy = false;
  *ints = nullptr;
  *doubles = nullptr;
}

bool prslv_popstk(prslvwalk* w, int32_t* type, int32_t* nints, int32_t* ndoubles) {
  if (w->readpos == 0) return false;
  const auto read = [w](int64_t bytes, void* to) {
    w->readpos -= bytes;
    bsto_read(w->p->stack.store, w->readpos, bytes, to);
  };
  read(4, type);
  if (*type < 0) {
    *type = -*type;
    int32_t counts[2];
    read(8, counts);
    *nints = counts[0];
    *ndoubles = counts[1];
  } else {
    prslv_defaultreqs(*type, nints, ndoubles);
  }
  read(int64_t{*ndoubles} * 8, w->doubles);
  read(int64_t{*nints} * 4, w->ints);
  return true;
}

}  // namespace tarvo
