// Array<T>: the one owning array of the library, and Workspace: one block for a routine's scratch.
// Both take their memory from a sysenv, never throw and tell by a bool when memory runs out.
#pragma once

#include <cstring>
#include <span>
#include <type_traits>
#include <utility>

#include "cpub/sysenv.h"

namespace tarvo {

enum class Fill { raw, zero };

// Owns `size` elements of a trivially copyable type. Move-only; remembers its sysenv; the destructor frees.
// An empty array (size 0) has a NULL data pointer, and asking for size 0 always succeeds.
template <class T>
class Array {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  Array() = default;
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  Array(Array&& other) noexcept { swap(other); }
  Array& operator=(Array&& other) noexcept {
    if (this != &other) {
      reset();
      swap(other);
    }
    return *this;
  }
  ~Array() { reset(); }

  // Replaces the content by n elements. False when out of memory, and the array is then as it was.
  [[nodiscard]] bool alloc(sysenv* env, std::size_t n, Fill fill = Fill::raw, Location at = Location::current()) {
    T* data = nullptr;
    if (n != 0) {
      data = static_cast<T*>(fill == Fill::zero ? sysenv_calloc(env, n, sizeof(T), at)
                                                : sysenv_malloc(env, n, sizeof(T), at));
      if (data == nullptr) return false;
    }
    reset();
    env_ = env;
    data_ = data;
    size_ = n;
    return true;
  }

  // Changes the size to n and keeps the first min(n, size) elements; new ones are zero if asked.
  // False when out of memory, and the array is then as it was.
  [[nodiscard]] bool resize_keep(sysenv* env, std::size_t n, Fill fill = Fill::raw, Location at = Location::current()) {
    if (n == size_) return true;
    Array grown;
    if (!grown.alloc(env, n, Fill::raw, at)) return false;
    const std::size_t kept = n < size_ ? n : size_;
    if (kept != 0) std::memcpy(grown.data_, data_, kept * sizeof(T));
    if (fill == Fill::zero && n > kept) std::memset(static_cast<void*>(grown.data_ + kept), 0, (n - kept) * sizeof(T));
    swap(grown);
    return true;
  }

  void reset() {
    if (data_ != nullptr) sysenv_free(env_, data_);
    data_ = nullptr;
    size_ = 0;
  }
  void swap(Array& other) noexcept {
    std::swap(env_, other.env_);
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
  }

  T* data() { return data_; }
  const T* data() const { return data_; }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }
  template <class I>
  T& operator[](I i) {
    return data_[i];
  }
  template <class I>
  const T& operator[](I i) const {
    return data_[i];
  }
  T* begin() { return data_; }
  T* end() { return data_ + size_; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }
  std::span<T> span() { return {data_, size_}; }
  std::span<const T> span() const { return {data_, size_}; }

 private:
  sysenv* env_ = nullptr;
  T* data_ = nullptr;
  std::size_t size_ = 0;
};

// Collects what a routine needs and makes one block of it, so that memory can run out in one place only:
//   Workspace ws(env);
//   ws.add(&x, n); ws.add(&mark, m, Fill::zero);
//   if (!ws.commit()) return RESP_SPACE;
// Every part is aligned to 64 bytes. A part of length 0 gets a NULL pointer.
class Workspace {
 public:
  explicit Workspace(sysenv* env) : env_(env) {}
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;
  ~Workspace() { sysenv_free(env_, raw_); }

  template <class T>
  void add(T** pointer, std::size_t n, Fill fill = Fill::raw) {
    static_assert(std::is_trivially_copyable_v<T>);
    const std::size_t bytes = n * sizeof(T);
    if (count_ == max_parts || n > SIZE_MAX / 4 / sizeof(T) || total_ > SIZE_MAX / 4) {
      overflow_ = true;
      return;
    }
    parts_[count_++] = {pointer, &store<T>, total_, bytes, fill};
    total_ += (bytes + alignment - 1) / alignment * alignment;
  }

  [[nodiscard]] bool commit(Location at = Location::current()) {
    if (overflow_) return false;
    raw_ = sysenv_malloc(env_, 1, total_ + alignment, at);
    if (raw_ == nullptr) return false;
    const auto address = reinterpret_cast<std::uintptr_t>(raw_);
    char* base = static_cast<char*>(raw_) + (alignment - address % alignment) % alignment;
    for (int k = 0; k < count_; ++k) {
      const Part& part = parts_[k];
      if (part.fill == Fill::zero && part.bytes != 0) std::memset(base + part.offset, 0, part.bytes);
      part.store(part.pointer, part.bytes == 0 ? nullptr : base + part.offset);
    }
    return true;
  }

 private:
  static constexpr std::size_t alignment = 64;
  static constexpr int max_parts = 64;
  template <class T>
  static void store(void* pointer, void* value) {
    *static_cast<T**>(pointer) = static_cast<T*>(value);
  }
  struct Part {
    void* pointer;
    void (*store)(void*, void*);
    std::size_t offset, bytes;
    Fill fill;
  };
  sysenv* env_;
  void* raw_ = nullptr;
  std::size_t total_ = 0;
  int count_ = 0;
  bool overflow_ = false;
  Part parts_[max_parts];
};

}  // namespace tarvo
