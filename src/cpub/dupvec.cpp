#include "cpub/dupvec.h"

#include <algorithm>
#include <cmath>

namespace tarvo {

namespace {

struct Range {
  int32_t begin, end;
};

struct Refine {
  const dupinput* in;
  dupgroups* out;
  int32_t* member;      // [numcand] vectors, those of a class side by side
  int32_t* pos;         // [nvec] the element that is next
  int32_t* link;        // [nvec] chain of a bucket
  int32_t *head, *end;  // [universe + 1] of the buckets; the last is for vectors without elements left
  int32_t* used;        // [universe + 1] buckets in use
  double* scale;        // [nvec] 1 / first value
  double* value;        // [nvec] scaled value at the present position
  Range* stack;         // classes to refine
  int32_t depth = 0;

  int32_t subscript(int32_t v) {
    int32_t t = pos[v];
    const int32_t last = in->ptre[v];
    while (t < last &&
           ((in->mask != nullptr && in->mask[in->sub[t]] == 0) || (in->val != nullptr && in->val[t] == 0.0))) {
      ++t;
    }
    pos[v] = t;
    return t < last ? in->sub[t] : in->universe;
  }

  void finish(Range r) {
    std::sort(member + r.begin, member + r.end);
    out->head[out->count++] = member[r.begin];
    for (int32_t k = r.begin; k + 1 < r.end; ++k) out->next[member[k]] = member[k + 1];
  }

  // Splits a class of one subscript where its values differ.
  void split(Range r) {
    if (in->val == nullptr) {
      stack[depth++] = r;
      return;
    }
    bool first = false;
    for (int32_t k = r.begin; k < r.end; ++k) {
      const int32_t v = member[k];
      const double a = in->val[pos[v]];
      if (scale[v] == 0.0) {
        scale[v] = 1.0 / a;
        first = true;
      }
      value[v] = a * scale[v];
    }
    if (first) {
      stack[depth++] = r;
      return;
    }
    std::sort(member + r.begin, member + r.end,
              [this](int32_t v, int32_t w) { return value[v] != value[w] ? value[v] < value[w] : v < w; });
    for (int32_t b = r.begin, e; b < r.end; b = e) {
      const double low = value[member[b]];
      for (e = b + 1; e < r.end && value[member[e]] - low <= in->tol * std::fmax(1.0, std::fabs(low));) ++e;
      if (e - b > 1) stack[depth++] = {b, e};
    }
  }

  void refine(Range r) {
    int32_t buckets = 0;
    for (int32_t k = r.begin; k < r.end; ++k) {
      const int32_t v = member[k], s = subscript(v);
      link[v] = -1;
      if (head[s] < 0) {
        head[s] = v;
        used[buckets++] = s;
      } else {
        link[end[s]] = v;
      }
      end[s] = v;
    }
    int32_t k = r.begin;
    for (int32_t u = 0; u < buckets; ++u) {
      const int32_t s = used[u];
      const Range c{k, 0};
      for (int32_t v = head[s]; v >= 0; v = link[v]) member[k++] = v;
      head[s] = -1;
      if (k - c.begin < 2) continue;
      if (s == in->universe) {
        const int32_t v = member[c.begin];
        if (started(v)) finish({c.begin, k});
      } else {
        split({c.begin, k});
        for (int32_t t = c.begin; t < k; ++t) ++pos[member[t]];
      }
    }
  }

  // Whether an exhausted vector had a counting subscript at all; its class is of one mind.
  bool started(int32_t v) const {
    if (in->val != nullptr) return scale[v] != 0.0;
    for (int32_t t = in->ptrb[v]; t < in->ptre[v]; ++t)
      if (in->mask == nullptr || in->mask[in->sub[t]] != 0) return true;
    return false;
  }
};

}  // namespace

bool dupvec_refine(sysenv* env, const dupinput& input, dupgroups* groups) {
  const auto n = static_cast<std::size_t>(input.nvec), cand = static_cast<std::size_t>(input.numcand);
  const auto buckets = static_cast<std::size_t>(input.universe) + 1;
  groups->count = 0;
  groups->end = input.nvec;
  if (!groups->head.alloc(env, cand / 2) || !groups->next.alloc(env, n)) return false;
  std::fill_n(groups->next.data(), n, input.nvec);
  if (cand < 2) return true;
  Refine r{};
  r.in = &input;
  r.out = groups;
  Workspace work(env);
  work.add(&r.member, cand);
  work.add(&r.pos, n);
  work.add(&r.link, n);
  for (int32_t** list : {&r.head, &r.end, &r.used}) work.add(list, buckets);
  if (input.val != nullptr) {
    work.add(&r.scale, n, Fill::zero);
    work.add(&r.value, n);
  }
  work.add(&r.stack, cand / 2 + 1);
  if (!work.commit()) return false;
  std::copy_n(input.cand, cand, r.member);
  for (std::size_t k = 0; k < cand; ++k) r.pos[input.cand[k]] = input.ptrb[input.cand[k]];
  std::fill_n(r.head, buckets, -1);
  r.stack[r.depth++] = {0, input.numcand};
  while (r.depth > 0) r.refine(r.stack[--r.depth]);
  return true;
}

bool spmat_dupvec(const spmat* m, const uint8_t* mask, int32_t numcand, const int32_t* cand, double tol,
                  dupgroups* groups) {
  return dupvec_refine(m->env, {m->nvec, m->vlen, m->ptrb, m->ptre, m->sub, m->val, mask, numcand, cand, tol}, groups);
}

}  // namespace tarvo
