#include "cpub/spmat.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace tarvo {

spmat* spmat_make(sysenv* env, int32_t maxnvec, int32_t maxvlen) {
  void* place = sysenv_malloc(env, 1, sizeof(spmat));
  if (place == nullptr) return nullptr;
  auto* m = new (place) spmat;
  m->env = env;
  const auto n = static_cast<std::size_t>(maxnvec);
  if (!m->own_ptrb.alloc(env, n) || !m->own_ptre.alloc(env, n)) {
    spmat_delete(&m);
    return nullptr;
  }
  m->ptrb = m->own_ptrb.data();
  m->ptre = m->own_ptre.data();
  m->maxnvec = maxnvec;
  m->maxvlen = maxvlen;
  return m;
}

void spmat_delete(spmat** matrix) {
  if (*matrix == nullptr) return;
  sysenv* env = (*matrix)->env;
  (*matrix)->~spmat();
  sysenv_free(env, *matrix);
  *matrix = nullptr;
}

bool spmat_alloc(spmat* m, int32_t size) {
  Array<int32_t> sub;
  Array<double> val;
  const auto n = static_cast<std::size_t>(size);
  if (!sub.alloc(m->env, n) || !val.alloc(m->env, n)) return false;
  m->own_sub.swap(sub);
  m->own_val.swap(val);
  m->sub = m->own_sub.data();
  m->val = m->own_val.data();
  m->base = m->ffree = 0;
  m->maxsze = size;
  std::fill_n(m->ptrb, m->nvec, 0);
  std::fill_n(m->ptre, m->nvec, 0);
  return true;
}

void spmat_ealloc(spmat* m, int32_t nvec, int32_t vlen, int32_t base, int32_t size, const int32_t* ptrb,
                  const int32_t* ptre, int32_t* sub, double* val) {
  m->own_sub.reset();
  m->own_val.reset();
  m->sub = sub;
  m->val = val;
  m->base = m->ffree = 0;
  m->maxsze = size;
  m->nvec = 0;
  spmat_putnvec(m, nvec);
  spmat_putvlen(m, vlen);
  if (ptrb == nullptr) return;
  for (int32_t j = 0; j < nvec; ++j) {
    m->ptrb[j] = ptrb[j] - base;
    m->ptre[j] = ptre[j] - base;
    m->ffree = std::max(m->ffree, m->ptre[j]);
  }
}

spmat* spmat_clone(const spmat* m, int32_t extra) {
  const int64_t size = spmat_getnumnz(m) + extra;
  spmat* clone = size > INT32_MAX ? nullptr : spmat_make(m->env, m->maxnvec, m->maxvlen);
  if (clone == nullptr) return nullptr;
  if (!spmat_alloc(clone, static_cast<int32_t>(size))) {
    spmat_delete(&clone);
    return nullptr;
  }
  spmat_putnvec(clone, m->nvec);
  spmat_putvlen(clone, m->vlen);
  if (m->val == nullptr) {
    clone->own_val.reset();
    clone->val = nullptr;
  }
  for (int32_t j = 0; j < m->nvec; ++j) {
    const int32_t n = m->ptre[j] - m->ptrb[j];
    std::copy_n(m->sub + m->ptrb[j], n, clone->sub + clone->ffree);
    if (m->val != nullptr) std::copy_n(m->val + m->ptrb[j], n, clone->val + clone->ffree);
    clone->ptrb[j] = clone->ffree;
    clone->ptre[j] = clone->ffree += n;
  }
  return clone;
}

void spmat_putnvec(spmat* m, int32_t nvec) {
  if (nvec > m->maxnvec) sysenv_fatal(m->env, "nvec>a->maxnvec");
  for (int32_t j = m->nvec; j < nvec; ++j) m->ptrb[j] = m->ptre[j] = m->base;
  m->nvec = nvec;
}

void spmat_putvlen(spmat* m, int32_t vlen) {
  if (vlen > m->maxvlen) sysenv_fatal(m->env, "vlen>a->maxvlen");
  m->vlen = vlen;
}

bool spmat_vresize(spmat* m, int32_t j, int32_t length) {
  if (j < 0 || j >= m->nvec) sysenv_fatal(m->env, "Index error");
  const int32_t old = m->ptre[j] - m->ptrb[j];
  if (length > old) {
    if (int64_t{length} + m->ffree > m->maxsze) return false;
    std::copy_n(m->sub + m->ptrb[j], old, m->sub + m->ffree);
    if (m->val != nullptr) std::copy_n(m->val + m->ptrb[j], old, m->val + m->ffree);
    m->ptrb[j] = m->ffree;
    m->ffree += length;
  }
  m->ptre[j] = m->ptrb[j] + length;
  return true;
}

int64_t spmat_getnumnz(const spmat* m) {
  int64_t count = 0;
  for (int32_t j = 0; j < m->nvec; ++j) count += m->ptre[j] - m->ptrb[j];
  return count;
}

void spmat_axpy(double alpha, const spmat* m, int32_t j, double* y) {
  for (int32_t k = m->ptrb[j]; k < m->ptre[j]; ++k) y[m->sub[k]] += alpha * m->val[k];
}

double spmat_dot(const spmat* m, int32_t j, const double* y) {
  double sum = 0.0;
  for (int32_t k = m->ptrb[j]; k < m->ptre[j]; ++k) sum += m->val[k] * y[m->sub[k]];
  return sum;
}

bool spmat_transpose(const spmat* a, const int32_t* map, bool map_inverse, spmat** at, bool inplace) {
  const int64_t numnz = spmat_getnumnz(a);
  if (numnz > INT32_MAX) return false;
  Array<int32_t> next;
  if (!next.alloc(a->env, static_cast<std::size_t>(a->vlen), Fill::zero)) return false;
  if (*at == nullptr) {
    spmat* made = spmat_make(a->env, a->vlen, a->nvec);
    if (made == nullptr || !spmat_alloc(made, static_cast<int32_t>(numnz))) {
      spmat_delete(&made);
      return false;
    }
    *at = made;
  }
  spmat* t = *at;
  if (!inplace) {
    spmat_putnvec(t, a->vlen);
    spmat_putvlen(t, a->nvec);
    for (int32_t j = 0; j < a->nvec; ++j)
      for (int32_t k = a->ptrb[j]; k < a->ptre[j]; ++k) ++next[a->sub[k]];
    t->ffree = t->base;
    for (int32_t i = 0; i < t->nvec; ++i) {
      t->ptrb[i] = t->ffree;
      t->ptre[i] = t->ffree += next[i];
    }
  }
  if (t->ffree > t->maxsze) {
    char text[80];
    std::snprintf(text, sizeof text, "inplace: %d at->ffree>at->maxsze i.e. %d>%d", static_cast<int>(inplace), t->ffree,
                  t->maxsze);
    sysenv_fatal(a->env, text);
  }
  std::copy_n(t->ptrb, a->vlen, next.data());
  const bool values = a->val != nullptr && t->val != nullptr;
  for (int32_t k = 0; k < a->nvec; ++k) {
    const int32_t j = map != nullptr && map_inverse ? map[k] : k;
    const int32_t index = map != nullptr && !map_inverse ? map[k] : k;
    for (int32_t p = a->ptrb[j]; p < a->ptre[j]; ++p) {
      const int32_t to = next[a->sub[p]]++;
      t->sub[to] = index;
      if (values) t->val[to] = a->val[p];
    }
  }
  return true;
}

}  // namespace tarvo
