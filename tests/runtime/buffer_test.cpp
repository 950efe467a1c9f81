#include "pavex/runtime/buffer.h"

#include "tests/support/arrays.h"
#include "tests/support/ledger_pool.h"

#include <complex>
#include <cstddef>
#include <gtest/gtest.h>
#include <type_traits>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

using Events = std::vector<PoolEvent>;

TEST(Buffer, LaysItsMembersOutInOrder) {
  EXPECT_EQ(sizeof(Buffer<int>), 40U);
  EXPECT_EQ(offsetof(Buffer<int>, mData), 0U);
  EXPECT_EQ(offsetof(Buffer<int>, mSize), 8U);
  EXPECT_EQ(offsetof(Buffer<int>, mCapacity), 16U);
  EXPECT_EQ(offsetof(Buffer<int>, mAllocator), 24U);
  EXPECT_EQ(offsetof(Buffer<int>, mAux), 32U);
}

TEST(Buffer, StartsWithAllMembersZero) {
  Buffer<double> const buffer;

  EXPECT_EQ(buffer.mData, nullptr);
  EXPECT_EQ(buffer.mSize, 0);
  EXPECT_EQ(buffer.mCapacity, 0);
  EXPECT_EQ(buffer.mAllocator, nullptr);
  EXPECT_EQ(buffer.mAux, 0U);
}

TEST(Buffer, MovesWithoutThrowingAndIsNeverCopied) {
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<Buffer<int>>);
  EXPECT_TRUE(std::is_nothrow_move_assignable_v<Buffer<int>>);
  EXPECT_FALSE(std::is_copy_constructible_v<Buffer<int>>);
  EXPECT_FALSE(std::is_copy_assignable_v<Buffer<int>>);
}

TEST(BufferDestructor, FreesNothingWithoutAnAllocator) {
  LedgerPool pool;
  Buffer<int> owner = Owned<int>(pool, {1, 2});
  {
    Buffer<int> borrowed;
    borrowed.mData = owner.mData;
    borrowed.mSize = 2;
    borrowed.mCapacity = 2;
  }

  EXPECT_EQ(pool.Events(), (Events{Took(8)}));
}

TEST(BufferDestructor, FreesNothingWithoutData) {
  LedgerPool pool;
  {
    Buffer<int> buffer;
    buffer.mCapacity = 2;
    buffer.mAllocator = &pool;
  }

  EXPECT_EQ(pool.Events(), Events{});
}

TEST(BufferDestructor, GivesCapacityAndNotSizeBack) {
  LedgerPool pool;
  {
    Buffer<double> buffer = Owned<double>(pool, {1, 2, 3});
    buffer.mSize = 1;
  }

  EXPECT_EQ(pool.Events(), (Events{Took(24), GaveBack(24)}));
}

TEST(BufferBorrow, MakesAViewOfForeignElements) {
  std::vector<int> foreign{4, 5, 6};
  Buffer<int> buffer;
  buffer.mAux = 1;

  buffer.Borrow(foreign.data(), 3);

  EXPECT_EQ(buffer.mData, foreign.data());
  EXPECT_EQ(buffer.mSize, 3);
  EXPECT_EQ(buffer.mCapacity, 3);
  EXPECT_EQ(buffer.mAllocator, nullptr);
  EXPECT_EQ(buffer.mAux, 0U);
}

TEST(BufferBorrow, FreesWhatTheBufferOwned) {
  LedgerPool pool;
  int foreign[1] = {};
  Buffer<int> buffer = Owned<int>(pool, {1, 2, 3});
  buffer.mSize = 2;

  buffer.Borrow(foreign, 1);

  EXPECT_EQ(pool.Events(), (Events{Took(12), GaveBack(12)}));
}

// Sees the state of a buffer at the moment its earlier block comes back.
class WatchingPool : public LedgerPool {
 public:
  void Deallocate(void* block, std::size_t bytes) override {
    if (mWatched != nullptr) mDataSeen = mWatched->mData;
    LedgerPool::Deallocate(block, bytes);
  }

  Buffer<int> const* mWatched = nullptr;
  int const* mDataSeen = nullptr;
};

TEST(BufferInstall, FreesTheEarlierBlockAfterTheNewArrayIsInPlace) {
  WatchingPool pool;
  int foreign[1] = {};
  Buffer<int> buffer = Owned<int>(pool, {1, 2, 3});
  pool.mWatched = &buffer;

  buffer.Borrow(foreign, 1);

  EXPECT_EQ(pool.mDataSeen, foreign);
  pool.mWatched = nullptr;
}

TEST(BufferMove, TakesTheBlockAndLeavesTheSourceEmpty) {
  LedgerPool pool;
  Buffer<int> source = Owned<int>(pool, {1, 2, 3});
  source.mAux = 8;
  int* const data = source.mData;

  Buffer<int> const target(std::move(source));

  EXPECT_EQ(target.mData, data);
  EXPECT_EQ(Elements(target), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(target.mCapacity, 3);
  EXPECT_EQ(target.mAllocator, &pool);
  EXPECT_EQ(target.mAux, 8U);
  EXPECT_EQ(source.mData, nullptr);
  EXPECT_EQ(source.mSize, 0);
  EXPECT_EQ(source.mAllocator, nullptr);
}

TEST(BufferMove, FreesWhatTheTargetOwned) {
  LedgerPool pool;
  {
    Buffer<int> target = Owned<int>(pool, {1});
    Buffer<int> source = Owned<int>(pool, {1, 2, 3});

    target = std::move(source);

    EXPECT_EQ(pool.Events(), (Events{Took(4), Took(12), GaveBack(4)}));
    EXPECT_EQ(source.mData, nullptr);
  }

  EXPECT_EQ(pool.OutstandingBlocks(), 0U);
}

TEST(BufferMove, ToItselfChangesNothing) {
  LedgerPool pool;
  Buffer<int> buffer = Owned<int>(pool, {1, 2});
  Buffer<int>& same = buffer;

  buffer = std::move(same);

  EXPECT_EQ(Elements(buffer), (std::vector<int>{1, 2}));
  EXPECT_EQ(pool.Events(), (Events{Took(8)}));
}

TEST(BufferSwap, ExchangesAllFiveMembers) {
  LedgerPool pool;
  int foreign[1] = {7};
  Buffer<int> owned = Owned<int>(pool, {1, 2});
  owned.mSize = 1;
  owned.mAux = 3;
  int* const data = owned.mData;
  Buffer<int> borrowed;
  borrowed.Borrow(foreign, 1);

  owned.Swap(borrowed);

  EXPECT_EQ(owned.mData, foreign);
  EXPECT_EQ(owned.mAllocator, nullptr);
  EXPECT_EQ(owned.mAux, 0U);
  EXPECT_EQ(borrowed.mData, data);
  EXPECT_EQ(borrowed.mSize, 1);
  EXPECT_EQ(borrowed.mCapacity, 2);
  EXPECT_EQ(borrowed.mAllocator, &pool);
  EXPECT_EQ(borrowed.mAux, 3U);
}

}  // namespace
}  // namespace Pavex
