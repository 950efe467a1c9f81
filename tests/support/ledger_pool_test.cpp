#include "tests/support/ledger_pool.h"

#include "pavex/runtime/buffer.h"

#include <cstdlib>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace Pavex {
namespace {

TEST(LedgerPool, RecordsEveryBlockTakenAndGivenBackInOrder) {
  LedgerPool pool;
  void* first = nullptr;
  void* second = nullptr;

  pool.Allocate(&first, 72);
  pool.Allocate(&second, 0);
  pool.Deallocate(first, 72);
  pool.Deallocate(second, 0);

  EXPECT_EQ(pool.Events(),
            (std::vector<PoolEvent>{Took(72), Took(0), GaveBack(72), GaveBack(0)}));
  EXPECT_EQ(pool.Events()[2].block, first);
  EXPECT_FALSE(Took(72) == GaveBack(72));
  EXPECT_FALSE(Took(72) == Took(71));
}

TEST(LedgerPool, TellsOutstandingBlocksAndPeak) {
  LedgerPool pool;
  void* first = nullptr;
  void* second = nullptr;

  pool.Allocate(&first, 100);
  pool.Allocate(&second, 20);
  pool.Deallocate(first, 100);

  EXPECT_EQ(pool.OutstandingBlocks(), 1U);
  EXPECT_EQ(pool.OutstandingBytes(), 20U);
  EXPECT_EQ(pool.PeakBytes(), 120U);
  EXPECT_EQ(pool.SizeOf(second), 20U);
  EXPECT_FALSE(pool.Owns(first));
  pool.Deallocate(second, 20);
}

TEST(LedgerPool, FillsBlocksSoThatUntouchedBytesAreSeen) {
  LedgerPool pool;
  Buffer<int> buffer;
  ASSERT_EQ(pool.Get(buffer, 3), STATUS_OK);

  buffer.mData[1] = 7;

  EXPECT_TRUE(LedgerPool::Untouched(&buffer.mData[0], sizeof(int)));
  EXPECT_FALSE(LedgerPool::Untouched(&buffer.mData[1], sizeof(int)));
  EXPECT_TRUE(LedgerPool::Untouched(&buffer.mData[2], sizeof(int)));
}

TEST(LedgerPool, FailsOneAllocation) {
  LedgerPool pool;
  Buffer<int> buffer;

  pool.Fail(Fault::Once(2, 17));

  EXPECT_EQ(pool.Get(buffer, 1), STATUS_OK);
  EXPECT_FALSE(pool.FaultStruck());
  EXPECT_EQ(pool.Get(buffer, 2), 17);
  EXPECT_TRUE(pool.FaultStruck());
  EXPECT_EQ(pool.Get(buffer, 3), STATUS_OK);
  EXPECT_EQ(pool.Events(),
            (std::vector<PoolEvent>{Took(4), Refused(8), Took(12), GaveBack(4)}));
}

TEST(LedgerPool, FailsEveryAllocationFromOneOn) {
  LedgerPool pool;
  Buffer<int> buffer;

  pool.Fail(Fault::From(2, -5));

  EXPECT_EQ(pool.Get(buffer, 1), STATUS_OK);
  EXPECT_EQ(pool.Get(buffer, 1), -5);
  EXPECT_EQ(pool.Get(buffer, 1), -5);
}

TEST(LedgerPool, RefusesANegativeSize) {
  LedgerPool pool;
  Buffer<int> buffer;

  EXPECT_EQ(pool.Get(buffer, -1), STATUS_OUT_OF_MEMORY);
}

TEST(LedgerPool, ReportsABlockThatComesBackWithAnotherSize) {
  EXPECT_NONFATAL_FAILURE(
      {
        LedgerPool pool;
        void* block = nullptr;
        pool.Allocate(&block, 8);
        pool.Deallocate(block, 4);
      },
      "another size");
}

TEST(LedgerPool, ReportsABlockThatComesBackTwice) {
  EXPECT_NONFATAL_FAILURE(
      {
        LedgerPool pool;
        void* block = nullptr;
        pool.Allocate(&block, 8);
        pool.Deallocate(block, 8);
        pool.Deallocate(block, 8);
      },
      "not outstanding");
}

TEST(LedgerPool, ReportsABlockThatNeverComesBack) {
  auto pool = std::make_unique<LedgerPool>();
  void* block = nullptr;
  pool->Allocate(&block, 8);

  EXPECT_NONFATAL_FAILURE(pool.reset(), "a block of 8 bytes never came back");

  std::free(static_cast<unsigned char*>(block) - 64);  // the raw block behind its guard
}

TEST(LedgerPool, ReportsBytesWrittenBehindABlock) {
  EXPECT_NONFATAL_FAILURE(
      {
        LedgerPool pool;
        void* block = nullptr;
        pool.Allocate(&block, 8);
        static_cast<char*>(block)[8] = 1;
        pool.Deallocate(block, 8);
      },
      "bytes behind a block of 8 bytes");
}

TEST(LedgerPool, ReportsBytesWrittenBeforeABlock) {
  EXPECT_NONFATAL_FAILURE(
      {
        LedgerPool pool;
        void* block = nullptr;
        pool.Allocate(&block, 8);
        static_cast<char*>(block)[-1] = 1;
        pool.Deallocate(block, 8);
      },
      "bytes before a block of 8 bytes");
}

}  // namespace
}  // namespace Pavex
