#include "pavex/runtime/allocator.h"

#include "pavex/runtime/buffer.h"
#include "pavex/runtime/memory_pool.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/vtable_slot.h"

#include <complex>
#include <gtest/gtest.h>
#include <limits>
#include <type_traits>
#include <vector>

namespace Pavex {
namespace {

using Events = std::vector<PoolEvent>;

TEST(Allocator, KeepsTheOrderOfItsVirtualFunctions) {
  EXPECT_TRUE(std::has_virtual_destructor_v<Allocator>);
  EXPECT_EQ(VtableSlot(&Allocator::Deallocate), 2U);
  EXPECT_EQ(VtableSlot(&Allocator::Allocate), 3U);
}

TEST(Allocator, SharesItsAddressWithThePool) {
  MemoryPool pool;

  EXPECT_EQ(static_cast<void*>(static_cast<Allocator*>(&pool)), static_cast<void*>(&pool));
}

template <typename T>
class AllocatorGet : public ::testing::Test {};

using Elements =
    ::testing::Types<int, long, float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(AllocatorGet, Elements);

TYPED_TEST(AllocatorGet, InstallsABlockOfExactlyTheElementsAskedFor) {
  LedgerPool pool;
  Buffer<TypeParam> buffer;
  buffer.mAux = 5;

  PavexStatus const status = pool.Get(buffer, 7);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(pool.Events(), (Events{Took(7 * sizeof(TypeParam))}));
  EXPECT_EQ(static_cast<void*>(buffer.mData), pool.Events()[0].block);
  EXPECT_EQ(buffer.mSize, 7);
  EXPECT_EQ(buffer.mCapacity, 7);
  EXPECT_EQ(buffer.mAllocator, &pool);
  EXPECT_EQ(buffer.mAux, 0U);
}

TYPED_TEST(AllocatorGet, GivesTheBlockBackWithTheBytesItWasRequestedWith) {
  LedgerPool pool;
  {
    Buffer<TypeParam> buffer;
    ASSERT_EQ(pool.Get(buffer, 3), STATUS_OK);
  }

  EXPECT_EQ(pool.Events(),
            (Events{Took(3 * sizeof(TypeParam)), GaveBack(3 * sizeof(TypeParam))}));
}

TEST(AllocatorGet, LeavesTheNewBlockAsThePoolGaveIt) {
  LedgerPool pool;
  Buffer<double> buffer;

  ASSERT_EQ(pool.Get(buffer, 5), STATUS_OK);

  EXPECT_TRUE(LedgerPool::Untouched(buffer.mData, 40));
}

TEST(AllocatorGet, AllocatesAfreshAlsoForTheSizeItHas) {
  LedgerPool pool;
  Buffer<int> buffer;
  ASSERT_EQ(pool.Get(buffer, 4), STATUS_OK);
  int const* const earlier = buffer.mData;
  buffer.mData[0] = 42;

  ASSERT_EQ(pool.Get(buffer, 4), STATUS_OK);

  EXPECT_NE(buffer.mData, earlier);
  EXPECT_TRUE(LedgerPool::Untouched(buffer.mData, 16));
}

TEST(AllocatorGet, FreesTheEarlierBlockOnlyAfterTheNewOneIsInPlace) {
  LedgerPool pool;
  Buffer<int> buffer;
  ASSERT_EQ(pool.Get(buffer, 4), STATUS_OK);

  ASSERT_EQ(pool.Get(buffer, 2), STATUS_OK);

  EXPECT_EQ(pool.Events(), (Events{Took(16), Took(8), GaveBack(16)}));
}

TEST(AllocatorGet, OfZeroElementsStillAllocatesAndFreesTheEarlierBlock) {
  LedgerPool pool;
  Buffer<double> buffer;
  ASSERT_EQ(pool.Get(buffer, 2), STATUS_OK);

  PavexStatus const status = pool.Get(buffer, 0);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(pool.Events(), (Events{Took(16), Took(0), GaveBack(16)}));
  EXPECT_EQ(static_cast<void*>(buffer.mData), pool.Events()[1].block);
  EXPECT_EQ(buffer.mSize, 0);
  EXPECT_EQ(buffer.mCapacity, 0);
}

TEST(AllocatorGet, LeavesTheBufferAsItWasWhenTheAllocationFails) {
  LedgerPool pool;
  {
    Buffer<double> buffer;
    ASSERT_EQ(pool.Get(buffer, 2), STATUS_OK);
    double* const data = buffer.mData;
    buffer.mData[1] = 1.5;
    buffer.mAux = 9;
    pool.Fail(Fault::From(1, -5));

    PavexStatus const status = pool.Get(buffer, 3);

    EXPECT_EQ(status, -5);
    EXPECT_EQ(buffer.mData, data);
    EXPECT_EQ(buffer.mData[1], 1.5);
    EXPECT_EQ(buffer.mSize, 2);
    EXPECT_EQ(buffer.mCapacity, 2);
    EXPECT_EQ(buffer.mAllocator, &pool);
    EXPECT_EQ(buffer.mAux, 9U);
  }

  EXPECT_EQ(pool.Events(), (Events{Took(16), Refused(24), GaveBack(16)}));
}

TEST(AllocatorGet, FailsForAnyStatusButZero) {
  for (PavexStatus const status : {1, 4711, -1, -3}) {
    LedgerPool pool;
    pool.Fail(Fault::Once(1, status));
    Buffer<int> buffer;

    EXPECT_EQ(pool.Get(buffer, 1), status);
    EXPECT_EQ(buffer.mData, nullptr);
  }
}

TEST(AllocatorGet, HandsNegativeAndHugeCountsToThePoolUnchecked) {
  LedgerPool pool;
  Buffer<double> buffer;

  EXPECT_EQ(pool.Get(buffer, -1), STATUS_OUT_OF_MEMORY);
  EXPECT_EQ(pool.Get(buffer, 1L << 61), STATUS_OK);

  std::size_t const minusOne = static_cast<std::size_t>(-8);
  EXPECT_EQ(pool.Events(), (Events{Refused(minusOne), Took(0)}));  // 2^61 * 8 wraps to 0
}

TEST(AllocatorGet, ReturnsTheEarlierBlockToTheAllocatorItCameFrom) {
  LedgerPool first;
  LedgerPool second;
  Buffer<int> buffer;
  ASSERT_EQ(first.Get(buffer, 1), STATUS_OK);

  ASSERT_EQ(second.Get(buffer, 2), STATUS_OK);

  EXPECT_EQ(first.Events(), (Events{Took(4), GaveBack(4)}));
  EXPECT_EQ(second.Events(), (Events{Took(8)}));
  EXPECT_EQ(buffer.mAllocator, &second);
}

TEST(AllocatorGet, FreesNothingWhenTheEarlierArrayWasBorrowed) {
  LedgerPool pool;
  int foreign[3] = {1, 2, 3};
  Buffer<int> buffer;
  buffer.Borrow(foreign, 3);

  ASSERT_EQ(pool.Get(buffer, 2), STATUS_OK);

  EXPECT_EQ(pool.Events(), (Events{Took(8)}));
}

}  // namespace
}  // namespace Pavex
