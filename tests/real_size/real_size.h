// Gathers, updates and scatters of more entries than one call counts, on any communicator.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "tests/real_size/repeated_pages.h"

#include <algorithm>
#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {

inline constexpr long kBeyondInt = (1L << 31) + 3;
inline constexpr long kBeyondUnsigned = (1L << 32) + 5;

// Elements in one period.
template <typename E>
inline constexpr long kPeriod = static_cast<long>(kPeriodBytes / sizeof(E));

// Element `index` of the whole array number `array`: exact in every element type.
template <typename E>
E Content(long index, int array) {
  return static_cast<E>((index + 12345L * array) % kPeriod<E>);
}

// Elements `first` to `first + count` of such an array.
template <typename E>
class RealArray {
 public:
  RealArray(long first, long count, int array)
      : mPages(FileOf(array), static_cast<std::size_t>(first) * sizeof(E),
               static_cast<std::size_t>(count) * sizeof(E)) {}

  E* Data() const { return static_cast<E*>(mPages.Data()); }

 private:
  static std::shared_ptr<MemoryFile const> FileOf(int array) {
    auto file = std::make_shared<MemoryFile>(static_cast<unsigned char>(0));
    auto* const cells = static_cast<E*>(file->Data());
    for (long k = 0; k < kPeriod<E>; ++k)
      cells[k] = Content<E>(k, array);
    return file;
  }

  RepeatedPages mPages;
};

// The stretches of an array that tests look at: one whole period, both ends, and the places
// around elements 2^31 and 2^32.
template <typename E>
void ExpectContent(E const* data, long first, long count, int array) {
  auto const expect = [&](long begin, long end) {
    for (long k = std::max(begin, 0L); k < std::min(end, count); ++k) {
      if (data[k] == Content<E>(first + k, array)) continue;
      ADD_FAILURE() << "array " << array << ", element " << k << " of " << count << " is "
                    << data[k];
      return;
    }
  };
  constexpr long kPage = static_cast<long>(kPageBytes / sizeof(E));
  expect(0, kPage);
  expect(kPeriod<E>, 2 * kPeriod<E>);
  expect((1L << 31) - kPage, (1L << 31) + kPage);
  expect((1L << 32) - kPage, (1L << 32) + kPage);
  expect(count - kPage, count);
}

// One rank of a job whose pieces have `total` entries (rows) together.
class RealSizeRank {
 public:
  RealSizeRank(std::shared_ptr<Comm> comm, long total) : mComm(std::move(comm)), mTotal(total) {
    long const ranks = mComm->Size();
    mFirst = BeginOf(mComm->Rank(), ranks);
    mCount = BeginOf(mComm->Rank() + 1, ranks) - mFirst;
  }

  // Shares of a coordinate matrix to rank 0 or to all, and new values.
  void GatherEntries(bool toAll) {
    RealArray<int> const rows(mFirst, mCount, 0);
    RealArray<int> const cols(mFirst, mCount, 1);
    RealArray<float> const values(mFirst, mCount, 2);
    RealArray<float> const fresh(mFirst, mCount, 3);
    auto local = MatrixCOO<float, int>::Borrow(kSide, kSide, mCount, rows.Data(), cols.Data(),
                                               values.Data());
    local.PlaceIn(kSide, kSide, MatrixPartition::NonzeroWise());
    RepeatedPool pool;
    Aggregator<float, int> aggregator(&pool);
    ASSERT_EQ(toAll ? aggregator.Allgather(mComm, local, true)
                    : aggregator.Gather(mComm, local, true),
              STATUS_OK);
    auto const* const whole = aggregator.TargetAs<MatrixCOO<float, int>>();
    ASSERT_EQ(whole != nullptr, toAll || mComm->Rank() == 0);
    if (whole != nullptr) {
      ExpectContent(whole->mRowIdx.mData, 0, mTotal, 0);
      ExpectContent(whole->mColIdx.mData, 0, mTotal, 1);
      ExpectContent(whole->mValues.mData, 0, mTotal, 2);
    }
    local.SetValues(fresh.Data());
    ASSERT_EQ(aggregator.Update(local), STATUS_OK);
    if (whole != nullptr) ExpectContent(whole->mValues.mData, 0, mTotal, 3);
  }

  // A coordinate pattern that the last rank holds alone, to rank 0 or to all.
  void GatherFromHolder(bool toAll) {
    bool const holds = mComm->Rank() == mComm->Size() - 1;
    RealArray<int> const rows(0, mTotal, 0);
    RealArray<int> const cols(0, mTotal, 1);
    MatrixCOO<float, int> local;
    if (holds)
      local = MatrixCOO<float, int>::Borrow(kSide, kSide, mTotal, rows.Data(), cols.Data(),
                                            nullptr);
    RepeatedPool pool;
    Aggregator<float, int> aggregator(&pool);
    ASSERT_EQ(toAll ? aggregator.Allgather(mComm, local, false)
                    : aggregator.Gather(mComm, local, false),
              STATUS_OK);
    if (!toAll && mComm->Rank() != 0) return;
    auto const* const whole = aggregator.TargetAs<MatrixCOO<float, int>>();
    ExpectContent(whole->mRowIdx.mData, 0, mTotal, 0);
    ExpectContent(whole->mColIdx.mData, 0, mTotal, 1);
  }

  // Bands of two rows of a compressed matrix.
  void GatherRows() {
    long const ptr[] = {0, mCount / 3, mCount};
    RealArray<long> const cols(mFirst, mCount, 1);
    RealArray<float> const values(mFirst, mCount, 2);
    auto local = MatrixCSR<float, long>::Borrow(2, kSide, const_cast<long*>(ptr), cols.Data(),
                                                values.Data());
    local.PlaceIn(2L * mComm->Size(), kSide, MatrixPartition::RowWise(2L * mComm->Rank()));
    RepeatedPool pool;
    Aggregator<float, long> aggregator(&pool);
    ASSERT_EQ(aggregator.Gather(mComm, local, true), STATUS_OK);
    if (mComm->Rank() != 0) return;
    auto const* const whole = aggregator.TargetAs<MatrixCSR<float, long>>();
    for (long p = 0; p < mComm->Size(); ++p) {
      long const begin = BeginOf(p, mComm->Size());
      long const count = BeginOf(p + 1, mComm->Size()) - begin;
      EXPECT_EQ(whole->mRowPtr.mData[2 * p], begin);
      EXPECT_EQ(whole->mRowPtr.mData[2 * p + 1], begin + count / 3);
      EXPECT_EQ(whole->mRowPtr.mData[2 * p + 2], begin + count);
    }
    ExpectContent(whole->mColIdx.mData, 0, mTotal, 1);
    ExpectContent(whole->mValues.mData, 0, mTotal, 2);
  }

  // So many rows without entries: sums of lengths cannot lie in repeated memory.
  void GatherEmptyRows() {
    auto const zeros = std::make_shared<MemoryFile>(static_cast<unsigned char>(0));
    RepeatedPages const ptr(zeros, 0, static_cast<std::size_t>(mCount + 1) * sizeof(long));
    auto local = MatrixCSR<float, long>::Borrow(mCount, 9, static_cast<long*>(ptr.Data()),
                                                nullptr, nullptr);
    local.PlaceIn(mTotal, 9, MatrixPartition::RowWise(mFirst));
    RepeatedPool pool;
    Aggregator<float, long> aggregator(&pool);
    ASSERT_EQ(aggregator.Gather(mComm, local, false), STATUS_OK);
    if (mComm->Rank() != 0) return;
    auto const* const whole = aggregator.TargetAs<MatrixCSR<float, long>>();
    ASSERT_EQ(whole->mRows, mTotal);
    for (long const row : {0L, 1L << 31, mTotal - 1, mTotal})
      EXPECT_EQ(whole->mRowPtr.mData[row], 0) << "row " << row;
    for (long row = kPeriod<long>; row < 2 * kPeriod<long>; ++row)
      ASSERT_EQ(whole->mRowPtr.mData[row], 0) << "row " << row;
  }

  // Bands of rows of a dense matrix of one column, there and back.
  void MoveDense() {
    RepeatedPool pool;
    MoveDense(pool);
  }

  // The same. The gathered matrix takes its memory from `pool`.
  void MoveDense(MemoryPool& pool) {
    RealArray<float> const values(mFirst, mCount, 2);
    RealArray<float> const fresh(mFirst, mCount, 3);
    RepeatedPool repeated;
    Buffer<float> back;
    ASSERT_EQ(repeated.Get(back, mCount), STATUS_OK);
    auto local = MatrixDense<float, int>::Borrow(mCount, 1, true, 1, values.Data());
    local.PlaceIn(mTotal, 1, MatrixPartition::RowWise(mFirst));
    Aggregator<float, int> aggregator(&pool);
    ASSERT_EQ(aggregator.Gather(mComm, local, true), STATUS_OK);
    auto const* const whole = aggregator.TargetAs<MatrixDense<float, int>>();
    if (whole != nullptr) ExpectContent(whole->mValues.mData, 0, mTotal, 2);
    local.SetValues(fresh.Data());
    ASSERT_EQ(aggregator.UpdateInPlace(local), STATUS_OK);
    if (whole != nullptr) ExpectContent(whole->mValues.mData, 0, mTotal, 3);
    local.SetValues(back.mData);
    ASSERT_EQ(aggregator.Scatter(local), STATUS_OK);
    ExpectContent(back.mData, mFirst, mCount, 3);
  }

 private:
  static constexpr long kSide = 1L << 31;

  // Pieces of different sizes.
  long BeginOf(long rank, long ranks) const {
    return rank == ranks ? mTotal : mTotal / ranks * rank + 7 * rank;
  }

  std::shared_ptr<Comm> const mComm;
  long const mTotal;
  long mFirst;
  long mCount;
};

}  // namespace Pavex
