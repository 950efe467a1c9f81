// A pool with little to give, for sizes that anybody may have made up.

#pragma once

#include "tests/support/ledger_pool.h"

#include <cstddef>

namespace Pavex {

// Keeps books like every LedgerPool, and refuses large requests: quickly, and without using up
// the memory of the fuzzer.
class SmallPool : public LedgerPool {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{1} << 16;

  PavexStatus Allocate(void** block, std::size_t bytes) override {
    return bytes > kMostBytes ? STATUS_OUT_OF_MEMORY : LedgerPool::Allocate(block, bytes);
  }
};

}  // namespace Pavex
