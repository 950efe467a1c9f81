// Checks who owns an array, for tests.

#pragma once

#include "pavex/runtime/buffer.h"
#include "tests/support/ledger_pool.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {

// `buffer` is a view of all of `array`.
template <typename E>
void ExpectBorrowed(Buffer<E> const& buffer, std::vector<E> const& array) {
  EXPECT_EQ(buffer.mData, array.data());
  EXPECT_EQ(buffer.mSize, static_cast<std::int64_t>(array.size()));
  EXPECT_EQ(buffer.mCapacity, static_cast<std::int64_t>(array.size()));
  EXPECT_EQ(buffer.mAllocator, nullptr);
  EXPECT_EQ(buffer.mAux, 0U);
}

// `buffer` owns `size` elements, a block of their size from `pool`.
template <typename Value>
void ExpectOwned(Buffer<Value> const& buffer, LedgerPool const& pool, std::int64_t size) {
  EXPECT_EQ(pool.SizeOf(buffer.mData), static_cast<std::size_t>(size) * sizeof(Value));
  EXPECT_EQ(buffer.mSize, size);
  EXPECT_EQ(buffer.mCapacity, size);
  EXPECT_EQ(buffer.mAllocator, &pool);
  EXPECT_EQ(buffer.mAux, 0U);
}

}  // namespace Pavex
