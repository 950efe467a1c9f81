// One rank's part of the main job, for one value and index type.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "pavex/runtime/memory_pool.h"
#include "tools/collect.h"
#include "tools/empty_pieces.h"
#include "tools/gather_job.h"
#include "tools/local_matrix.h"
#include "tools/verify.h"
#include "tools/write_gathered.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace Pavex::Tool {

// Every step is collective. Made, used and destroyed by the thread of its rank.
template <typename T, typename I>
class GatherRank {
 public:
  GatherRank(std::shared_ptr<Comm> const& comm, Source const& source,
             GatherOptions const& options)
      : mComm(comm), mSource(source), mOptions(options), mAggregator(&mPool) {}

  // `result` is written on rank 0 alone.
  void Run(GatherResult& result);

 private:
  using Clock = std::chrono::steady_clock;

  void BuildPiece();
  std::string OtherCut() const;
  void Gather();
  void Update();
  void Scatter();
  void Advance(MatrixBase& gathered) const;
  template <typename Operation>
  void Time(char const* step, Operation const& operation);

  // Bytes of the gathered arrays that are new on this rank (or borrowed from the piece); of the
  // values alone or of all arrays.
  long GatheredBytes(bool borrowed, bool valuesOnly);

  void Check(std::string const& when);
  void KeepDifference(std::string const& when, std::string const& difference);

  std::shared_ptr<Comm> mComm;
  Source const& mSource;
  GatherOptions const& mOptions;
  int mSteps = 0;  // that the values have gone
  RankRecord mRecord;
  std::vector<Timing> mTimings;

  // In the order in which they need each other.
  MemoryPool mPool;
  std::unique_ptr<LocalMatrix<T, I>> mLocal;
  Aggregator<T, I> mAggregator;
};

template <typename T, typename I>
void GatherRank<T, I>::Run(GatherResult& result) {
  BuildPiece();
  RefuseEmptyPieces(FromEveryRank(*mComm, mRecord), mSource.Whole(), mOptions);
  Gather();
  Check("after the gather");
  for (int update = 1; update <= mOptions.mUpdates; ++update) {
    Update();
    Check("after update " + std::to_string(update));
  }
  bool const isRoot = mComm->Rank() == 0;
  if (isRoot && !mOptions.mOutput.empty())
    result.mOutput = WriteGathered<T, I>(mOptions.mOutput, *mAggregator.Target());
  if (mOptions.mScatter) Scatter();

  mRecord.mPeakPoolBytes = static_cast<long>(mPool.PeakBytesInUse());
  std::vector<RankRecord> records = FromEveryRank(*mComm, mRecord);
  if (!isRoot) return;
  result.mReport.mRanks = std::move(records);
  result.mReport.mTimings = std::move(mTimings);
}

template <typename T, typename I>
void GatherRank<T, I>::BuildPiece() {
  int const rank = mComm->Rank();
  Piece const piece =
      CutPiece(mSource.Whole(), mOptions.mPartition, mComm->Size(), rank, mOptions.mHolder);
  if (rank == 0) {  // one bar is enough: the others make as many entries
    Progress progress("building the pieces");
    mLocal = std::make_unique<LocalMatrix<T, I>>(mSource.Cut(piece, progress.Function()), piece,
                                                 mSource.Whole(), mOptions);
  } else {
    mLocal = std::make_unique<LocalMatrix<T, I>>(mSource.Cut(piece, {}), piece, mSource.Whole(),
                                                 mOptions);
  }
  MatrixBase const& matrix = mLocal->Matrix();
  mRecord.mRows = matrix.mRows;
  mRecord.mCols = matrix.mCols;
  mRecord.mBegin = matrix.mPartition.begin;
  mRecord.mEntries = matrix.NNZ();
  mRecord.mBytes = mLocal->Bytes();
}

template <typename T, typename I>
template <typename Operation>
void GatherRank<T, I>::Time(char const* step, Operation const& operation) {
  Require(mComm->Barrier(), "the barrier", *mComm);
  auto const start = Clock::now();
  Require(operation(), std::string("the ") + step, *mComm);
  double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
  mTimings.push_back({step, LargestOfAll(*mComm, seconds), 0});
}

template <typename T, typename I>
void GatherRank<T, I>::Gather() {
  Time("gather", [this] {
    return mOptions.mToAll
               ? mAggregator.Allgather(mComm, mLocal->Matrix(), mOptions.mWithValues)
               : mAggregator.Gather(mComm, mLocal->Matrix(), mOptions.mWithValues);
  });
  MatrixBase const* const gathered = mAggregator.Target();
  mRecord.mReceiver = gathered != nullptr;
  if (mRecord.mReceiver) {
    mRecord.mGatheredRows = gathered->mRows;
    mRecord.mGatheredCols = gathered->mCols;
    mRecord.mGatheredEntries = gathered->NNZ();
    mRecord.mArrivedBytes = GatheredBytes(false, false);
    mRecord.mBorrowedBytes = GatheredBytes(true, false);
  }
  mTimings.back().mBytes = SumOfAll(*mComm, mRecord.mArrivedBytes);
}

template <typename T, typename I>
void GatherRank<T, I>::Update() {
  std::vector<T> const former = mLocal->Advance();
  ++mSteps;
  Time("update", [this] { return mAggregator.Update(mLocal->Matrix()); });
  mTimings.back().mBytes = SumOfAll(*mComm, GatheredBytes(false, true));
}

// The gathered values take one more step, as a solver would change them; then every rank's
// piece must show it.
template <typename T, typename I>
void GatherRank<T, I>::Scatter() {
  bool const borrows = mAggregator.Target() != nullptr && GatheredBytes(true, true) > 0;
  if (mAggregator.Target() != nullptr) Advance(*mAggregator.Target());
  ++mSteps;
  Time("scatter", [this] { return mAggregator.Scatter(mLocal->Matrix()); });
  long const pieceBytes = mRecord.mEntries * static_cast<long>(sizeof(T));
  mTimings.back().mBytes = SumOfAll(*mComm, borrows ? 0 : pieceBytes);

  PavexMatrixStore store;
  mLocal->Matrix().Query(store);
  bool const rowMajor = store.type == STORE_DENSE_ROW_MAJOR;
  KeepDifference(
      "after the scatter",
      FindDifferenceInBlock(static_cast<T const*>(store.dense.values), store.dense.ld, rowMajor,
                            mLocal->Place(), mSource, mSteps));
}

template <typename T, typename I>
void GatherRank<T, I>::Advance(MatrixBase& gathered) const {
  PavexMatrixStore store;
  gathered.Query(store);
  auto* const values = static_cast<T*>(store.dense.values);
  bool const rowMajor = store.type == STORE_DENSE_ROW_MAJOR;
  for (long row = 0; row < store.rows; ++row)
    for (long col = 0; col < store.cols; ++col)
      values[rowMajor ? row * store.dense.ld + col : col * store.dense.ld + row] +=
          StepIncrement<T>(row, col);
}

template <typename T, typename I>
long GatherRank<T, I>::GatheredBytes(bool borrowed, bool valuesOnly) {
  struct Array {
    void const* mData;
    long mBytes;
  };
  auto const arrays = [valuesOnly](MatrixBase const& matrix) {
    PavexMatrixStore store;
    matrix.Query(store);
    long const entries = matrix.NNZ();
    long const valueBytes = entries * static_cast<long>(sizeof(T));
    long const indexBytes = valuesOnly ? 0 : entries * static_cast<long>(sizeof(I));
    if (store.type == STORE_COO_0)
      return std::vector<Array>{{store.coo.row, indexBytes},
                                {store.coo.col, indexBytes},
                                {store.coo.values, store.coo.values ? valueBytes : 0}};
    if (store.type != STORE_CSR_0 && store.type != STORE_CSC_0)
      return std::vector<Array>{{store.dense.values, valueBytes}};
    long const count = store.type == STORE_CSR_0 ? store.rows : store.cols;
    long const offsetBytes = valuesOnly ? 0 : (count + 1) * static_cast<long>(sizeof(I));
    return std::vector<Array>{{store.csr.ptr, offsetBytes},
                              {store.csr.idx, indexBytes},
                              {store.csr.values, store.csr.values ? valueBytes : 0}};
  };
  if (mAggregator.Target() == nullptr) return 0;
  auto const own = arrays(mLocal->Matrix());
  long bytes = 0;
  for (Array const& array : arrays(*mAggregator.Target())) {
    bool const isOwn = std::any_of(own.begin(), own.end(), [&](Array const& other) {
      return other.mData != nullptr && other.mData == array.mData;
    });
    if (isOwn == borrowed) bytes += array.mBytes;
  }
  return bytes;
}

template <typename T, typename I>
void GatherRank<T, I>::Check(std::string const& when) {
  if (mAggregator.Target() == nullptr) return;
  Expectation const expected{mOptions.mFormat, mOptions.mWithValues, mSteps};
  KeepDifference(when, FindDifference<T, I>(*mAggregator.Target(), mSource, expected));
}

template <typename T, typename I>
void GatherRank<T, I>::KeepDifference(std::string const& when, std::string const& difference) {
  if (difference.empty() || mRecord.mDifference[0] != '\0') return;
  std::string const text = when + ": " + difference;
  std::size_t const length = std::min(text.size(), sizeof mRecord.mDifference - 1);
  std::memcpy(mRecord.mDifference, text.data(), length);
}

}  // namespace Pavex::Tool
