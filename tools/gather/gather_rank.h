// One rank's part of the main job, for one value and index type.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "pavex/runtime/memory_pool.h"
#include "tools/cut/refusals.h"
#include "tools/gather/gather_job.h"
#include "tools/gather/pattern_of.h"
#include "tools/matrix/elements.h"
#include "tools/matrix/gathered_bytes.h"
#include "tools/matrix/local_matrix.h"
#include "tools/matrix/verify.h"
#include "tools/matrix/write_gathered.h"
#include "tools/ranks/collect.h"
#include "tools/ranks/mpi_process.h"
#include "tools/ranks/timing.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Pavex::Tool {

// Every step is collective. The thread of its rank makes, uses and destroys it.
template <typename T, typename I>
class GatherRank {
 public:
  GatherRank(std::shared_ptr<Comm> comm, Source const& source, GatherOptions const& options)
      : mComm(std::move(comm)), mSource(source), mOptions(options), mAggregator(mPool.get()) {}

  // `result` is set on one rank of each process, rank 0 among them.
  void Run(GatherResult* result);

 private:
  void BuildPiece();
  void Gather();
  void Update();
  void Scatter();
  template <typename Operation>
  void Time(char const* step, Operation const& operation);

  long OwnGatheredBytes(bool borrowed, bool valuesOnly) {
    return GatheredBytes<T, I>(mAggregator.Target(), mLocal->Matrix(), borrowed, valuesOnly);
  }

  void Check(std::string const& when);
  void KeepDifference(std::string const& when, std::string const& difference);

  std::shared_ptr<Comm> mComm;
  Source const& mSource;
  GatherOptions const& mOptions;
  int mSteps = 0;  // how often the values have changed
  RankRecord mRecord;
  std::vector<Timing> mTimings;

  // The order matters: members are destroyed bottom up, and the upper ones are needed longest.
  std::unique_ptr<MemoryPool> mPool = MakePool(*mComm);
  std::unique_ptr<LocalMatrix<T, I>> mLocal;
  Aggregator<T, I> mAggregator;
};

template <typename T, typename I>
void GatherRank<T, I>::Run(GatherResult* result) {
  BuildPiece();
  std::vector<RankRecord> const pieces = FromEveryRank(*mComm, mRecord);
  RefuseEmptyPieces(ExtentsOf(pieces), mSource.Whole(), mOptions);
  Gather();
  Check("after the gather");
  for (int update = 1; update <= mOptions.mUpdates; ++update) {
    Update();
    Check("after update " + std::to_string(update));
  }
  if (mComm->Rank() == 0 && !mOptions.mOutput.empty())
    result->mOutput = WriteGathered<T, I>(mOptions.mOutput, *mAggregator.Target());
  if (mComm->Rank() == 0 && !mOptions.mPlot.empty() && mRecord.mDifference[0] == '\0')
    result->mPattern = PatternOf<T, I>(*mAggregator.Target(), pieces, mOptions.mPartition);
  if (mOptions.mScatter) Scatter();

  mRecord.mPeakPoolBytes = static_cast<long>(mPool->PeakBytesInUse());
  std::vector<RankRecord> records = FromEveryRank(*mComm, mRecord);
  if (result == nullptr) return;
  result->mReport.mRanks = std::move(records);
  result->mReport.mTimings = std::move(mTimings);
}

template <typename T, typename I>
void GatherRank<T, I>::BuildPiece() {
  int const rank = mComm->Rank();
  Piece const piece = CutPiece(mSource.Whole(), mOptions, mComm->Size(), rank);
  if (rank == 0) {  // one bar is enough: the other ranks make as many entries
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
  mTimings.push_back(
      {step, TimeTogether(*mComm, *mPool, std::string("the ") + step, operation), 0});
}

template <typename T, typename I>
void GatherRank<T, I>::Gather() {
  Time("gather", [this] {
    return mOptions.mToAll
               ? mAggregator.Allgather(mComm, mLocal->Matrix(), mOptions.mWithValues)
               : mAggregator.Gather(mComm, mLocal->Matrix(), mOptions.mWithValues);
  });
  mRecord.mMode = mAggregator.Mode();
  MatrixBase const* const gathered = mAggregator.Target();
  mRecord.mReceiver = gathered != nullptr;
  if (mRecord.mReceiver) {
    mRecord.mGatheredRows = gathered->mRows;
    mRecord.mGatheredCols = gathered->mCols;
    mRecord.mGatheredEntries = gathered->NNZ();
    mRecord.mArrivedBytes = OwnGatheredBytes(false, false);
    mRecord.mBorrowedBytes = OwnGatheredBytes(true, false);
  }
  mTimings.back().mBytes = SumOfAll(*mComm, mRecord.mArrivedBytes);
}

template <typename T, typename I>
void GatherRank<T, I>::Update() {
  std::vector<T> const former = mLocal->Advance();
  ++mSteps;
  Time("update", [this] { return mAggregator.Update(mLocal->Matrix()); });
  mTimings.back().mBytes = SumOfAll(*mComm, OwnGatheredBytes(false, true));
}

// Moves the gathered values one step on, as a solver would change them. Every rank's piece must
// then show it.
template <typename T, typename I>
void GatherRank<T, I>::Scatter() {
  bool const borrows = mAggregator.Target() != nullptr && OwnGatheredBytes(true, true) > 0;
  if (MatrixBase const* const gathered = mAggregator.Target()) {
    Elements<T, I> const elements(*gathered);
    ForEachElement(elements, [&elements](long row, long col, std::size_t k) {
      elements.mValues[k] += StepIncrement<T>(row, col);
    });
  }
  ++mSteps;
  Time("scatter", [this] { return mAggregator.Scatter(mLocal->Matrix()); });
  long const pieceBytes = mRecord.mEntries * static_cast<long>(sizeof(T));
  mTimings.back().mBytes = SumOfAll(*mComm, borrows ? 0 : pieceBytes);

  Elements<T, I> const local(mLocal->Matrix());
  KeepDifference(
      "after the scatter",
      FindDifferenceInBlock<T>(local.mValues, local.mLayout, mLocal->Place(), mSource, mSteps));
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
