// The pool that an application hands to each Aggregator.

#pragma once

#include "pavex/runtime/allocator.h"

#include <cstddef>

namespace Pavex {

// Heap-backed. Meant to be derived from: an application overrides Allocate and Deallocate and
// nothing else. No lock: one pool per rank.
class PAVEX_API MemoryPool : public Allocator {
 public:
  MemoryPool();
  ~MemoryPool() override;
  void Deallocate(void* block, std::size_t bytes) override;
  PavexStatus Allocate(void** block, std::size_t bytes) override;
};

}  // namespace Pavex
