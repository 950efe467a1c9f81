// The interface through which the library takes all its memory.

#pragma once

#include "pavex/runtime/export.h"
#include "pavex/runtime/status.h"

#include <cstddef>

namespace Pavex {

template <typename T>
struct Buffer;

// The application implements it, usually by deriving from MemoryPool. It must outlive every
// Buffer whose block it produced. Local; not shared between threads unless the implementation
// says so.
class PAVEX_API Allocator {
 public:
  Allocator() = default;
  Allocator(Allocator const&) = delete;
  Allocator& operator=(Allocator const&) = delete;
  virtual ~Allocator();

  // Takes back a block of Allocate. `bytes` is exactly the size that was requested for it.
  virtual void Deallocate(void* block, std::size_t bytes) = 0;

  // Stores a new block of `bytes` bytes (0 is legal) in `*block` and returns STATUS_OK, or
  // returns any other status and leaves `*block` unspecified.
  [[nodiscard]] virtual PavexStatus Allocate(void** block, std::size_t bytes) = 0;

  // Makes `buffer` own exactly `count` new, uninitialised elements. Always allocates, never
  // copies, and frees the earlier block only after the new one is in place. Fixed: see
  // docs/compatibility.md. If Allocate fails, returns its status and leaves `buffer` as it was.
  // The byte count is not checked for overflow: a negative or huge `count` reaches Allocate as
  // it is. Defined in buffer.h.
  template <typename T>
  [[nodiscard]] PavexStatus Get(Buffer<T>& buffer, long count);
};

}  // namespace Pavex
