// Ascending sort of keys, with a companion array that moves along: quicksort with the middle element as pivot, on an
// explicit stack of ranges. A range that keeps splitting badly is left to a heap sort, so that no input is quadratic.
#pragma once

#include <cstdint>
#include <utility>

namespace tarvo {

namespace sort_detail {

template <class K, class C>
void exchange(K* a, C* companion, int32_t i, int32_t j) {
  std::swap(a[i], a[j]);
  if (companion != nullptr) std::swap(companion[i], companion[j]);
}

template <class K, class C>
void heapsort(K* a, C* companion, int32_t n) {
  const auto sift = [a, companion](int32_t top, int32_t end) {
    for (int32_t child; (child = 2 * top + 1) < end; top = child) {
      if (child + 1 < end && a[child] < a[child + 1]) ++child;
      if (!(a[top] < a[child])) return;
      exchange(a, companion, top, child);
    }
  };
  for (int32_t top = n / 2; top-- > 0;) sift(top, n);
  for (int32_t end = n; --end > 0;) {
    exchange(a, companion, 0, end);
    sift(0, end);
  }
}

template <class K, class C>
void sort(int32_t n, K* a, C* companion) {
  struct Range {
    int32_t first, last, depth;
  };
  Range stack[64];  // the larger part waits, so 32 would do
  int32_t height = 0, splits = 8;
  for (int32_t k = n; k > 1; k /= 2) splits += 2;
  if (n > 1) stack[height++] = {0, n - 1, splits};
  while (height > 0) {
    Range r = stack[--height];
    while (r.first < r.last) {
      if (r.depth-- == 0) {
        heapsort(a + r.first, companion == nullptr ? companion : companion + r.first, r.last - r.first + 1);
        break;
      }
      const K pivot = a[r.first + (r.last - r.first) / 2];
      int32_t i = r.first, j = r.last;
      while (i <= j) {
        while (a[i] < pivot) ++i;
        while (pivot < a[j]) --j;
        if (i <= j) exchange(a, companion, i++, j--);
      }
      Range left{r.first, j, r.depth}, right{i, r.last, r.depth};
      if (left.last - left.first > right.last - right.first) std::swap(left, right);
      stack[height++] = right;
      r = left;
    }
  }
}

}  // namespace sort_detail

// Keys must not be NaN. The order of equal keys is not kept.
inline void sort_ints(int32_t n, int32_t* a, int32_t* companion = nullptr) { sort_detail::sort(n, a, companion); }
inline void sort_reals(int32_t n, double* a, int32_t* companion = nullptr) { sort_detail::sort(n, a, companion); }

}  // namespace tarvo
