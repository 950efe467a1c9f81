#include "pavex/runtime/memory_pool.h"

#include <cstdlib>

namespace Pavex {

MemoryPool::MemoryPool() = default;
MemoryPool::~MemoryPool() = default;

void MemoryPool::Deallocate(void* block, std::size_t /*bytes*/) {
  std::free(block);
}

PavexStatus MemoryPool::Allocate(void** block, std::size_t bytes) {
  *block = std::malloc(bytes);
  return *block == nullptr && bytes > 0 ? STATUS_OUT_OF_MEMORY : STATUS_OK;
}

}  // namespace Pavex
