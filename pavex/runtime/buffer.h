// The one array type of the library.

#pragma once

#include "pavex/runtime/allocator.h"

#include <cstdint>
#include <utility>

namespace Pavex {

static_assert(sizeof(long) == sizeof(std::int64_t), "an LP64 platform is needed");

// A contiguous array of T that owns its block or borrows one. A buffer with an mAllocator owns
// its block and returns it to that allocator with the size of the request. A buffer without one
// borrows, and never frees. Movable, not copyable; not shared between threads.
template <typename T>
struct Buffer {
  T* mData = nullptr;               // first element; null for an empty buffer
  std::int64_t mSize = 0;           // elements in use, at most mCapacity in an owned block
  std::int64_t mCapacity = 0;       // elements that the block was allocated for
  Allocator* mAllocator = nullptr;  // owner of the block; null for a borrowed array
  std::uint64_t mAux = 0;  // set to zero whenever an array is installed; for the application

  Buffer() = default;
  Buffer(Buffer&& other) noexcept { Swap(other); }
  Buffer& operator=(Buffer&& other) noexcept {
    Buffer(std::move(other)).Swap(*this);
    return *this;
  }
  Buffer(Buffer const&) = delete;
  Buffer& operator=(Buffer const&) = delete;
  ~Buffer() { Release(mData, mCapacity, mAllocator); }

  // Exchanges all five members.
  void Swap(Buffer& other) noexcept {
    std::swap(mData, other.mData);
    std::swap(mSize, other.mSize);
    std::swap(mCapacity, other.mCapacity);
    std::swap(mAllocator, other.mAllocator);
    std::swap(mAux, other.mAux);
  }

  // Makes the buffer a view of `size` elements that the caller keeps alive. Frees what it owned
  // before.
  void Borrow(T* data, std::int64_t size) { Install(data, size, nullptr); }

  // Takes over `size` elements at `data`, owned by `allocator` (null: borrowed). Then frees
  // what it owned before.
  void Install(T* data, std::int64_t size, Allocator* allocator) {
    T* const oldData = mData;
    std::int64_t const oldCapacity = mCapacity;
    Allocator* const oldAllocator = mAllocator;
    mData = data;
    mSize = size;
    mCapacity = size;
    mAllocator = allocator;
    mAux = 0;
    Release(oldData, oldCapacity, oldAllocator);
  }

 private:
  static void Release(T* data, std::int64_t capacity, Allocator* allocator) {
    if (data == nullptr || allocator == nullptr) return;
    allocator->Deallocate(data, static_cast<std::size_t>(capacity) * sizeof(T));
  }
};

static_assert(sizeof(Buffer<double>) == 40, "Buffer is five words");

template <typename T>
PavexStatus Allocator::Get(Buffer<T>& buffer, long count) {
  void* block = nullptr;
  PavexStatus const status = Allocate(&block, static_cast<std::size_t>(count) * sizeof(T));
  if (status != STATUS_OK) return status;
  buffer.Install(static_cast<T*>(block), count, this);
  return STATUS_OK;
}

}  // namespace Pavex
