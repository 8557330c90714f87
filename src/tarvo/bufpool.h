// The scratch buffer pool of a task, so that repeated editing calls cost no allocation.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

BufferPool* bufpool_make(sysenv* sys);
void bufpool_delete(sysenv* sys, BufferPool** pool);
// Frees what is not lent out; what is lent out is freed when it comes back.
void bufpool_release(Task* task);

// A lease: pooled scratch of n elements (4 or 8 bytes each) that goes back to the pool at the end of the scope.
// With Fill::zero it arrives zeroed, and the user leaves it zeroed.
template <class T>
class Lease {
 public:
  Lease(Task* task, int32_t n, Fill fill, int32_t* response);
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;
  ~Lease();
  T* data() { return data_; }
  T& operator[](std::size_t i) { return data_[i]; }

 private:
  Task* task_;
  bool zeroed_;
  T* data_;
};

// Untyped doors. A response that is already non-zero, or count 0, gives NULL and changes nothing.
void task_getbuf(Task* task, int32_t count, int32_t size, int32_t zeroed, void** pointer, int32_t* response);
void task_putbuf(Task* task, int32_t size, int32_t zeroed, void* const* pointer);

template <class T>
Lease<T>::Lease(Task* task, int32_t n, Fill fill, int32_t* response)
    : task_(task), zeroed_(fill == Fill::zero), data_(nullptr) {
  void* p = nullptr;
  task_getbuf(task, n, static_cast<int32_t>(sizeof(T)), zeroed_ ? 1 : 0, &p, response);
  data_ = static_cast<T*>(p);
}
template <class T>
Lease<T>::~Lease() {
  void* p = data_;
  task_putbuf(task_, static_cast<int32_t>(sizeof(T)), zeroed_ ? 1 : 0, &p);
}

}  // namespace tarvo
