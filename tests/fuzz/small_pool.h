// A pool with little memory, for sizes that may be any number.

#pragma once

#include "tests/support/ledger_pool.h"

#include <cstddef>

namespace Pavex {

// A LedgerPool that refuses large requests. That is fast, and saves the memory of the fuzzer.
class SmallPool : public LedgerPool {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{1} << 16;

  PavexStatus Allocate(void** block, std::size_t bytes) override {
    return bytes > kMostBytes ? STATUS_OUT_OF_MEMORY : LedgerPool::Allocate(block, bytes);
  }
};

}  // namespace Pavex
