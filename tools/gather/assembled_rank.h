// One rank's part of a gather by an Assembler, for one value and index type.

#pragma once

#include "pavex/assembly/assembler.h"
#include "pavex/runtime/memory_pool.h"
#include "tools/gather/gather_job.h"
#include "tools/matrix/assembled_piece.h"
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
class AssembledRank {
 public:
  AssembledRank(std::shared_ptr<Comm> comm, Source const& source, GatherOptions const& options)
      : mComm(std::move(comm)),
        mSource(source),
        mOptions(options),
        mPiece(source, options, mComm->Size(), mComm->Rank(), {}),
        mAssembler(mPool.get()) {}

  // `result` is set on one rank of each process, rank 0 among them.
  void Run(GatherResult* result) {
    Gather();
    Check("after the gather");
    for (int update = 1; update <= mOptions.mUpdates; ++update) {
      Update();
      Check("after update " + std::to_string(update));
    }
    if (mComm->Rank() == 0 && !mOptions.mOutput.empty())
      result->mOutput = WriteGathered<T, I>(mOptions.mOutput, *mAssembler.Whole());
    mRecord.mPeakPoolBytes = static_cast<long>(mPool->PeakBytesInUse());
    std::vector<RankRecord> records = FromEveryRank(*mComm, mRecord);
    if (result == nullptr) return;
    result->mReport.mRanks = std::move(records);
    result->mReport.mTimings = std::move(mTimings);
  }

 private:
  template <typename Operation>
  void Time(char const* step, long bytes, Operation const& operation) {
    double const seconds = TimeTogether(*mComm, *mPool, std::string("the ") + step, operation);
    MatrixCSR<T, I> const* const whole = mAssembler.Whole();
    long const perEntry = bytes + (mOptions.mWithValues ? static_cast<long>(sizeof(T)) : 0);
    long const offsets = bytes * (mSource.Whole().mRows + 1);
    mRecord.mArrivedBytes = whole == nullptr ? 0 : offsets + whole->NNZ() * perEntry;
    mTimings.push_back({step, seconds, SumOfAll(*mComm, mRecord.mArrivedBytes)});
  }

  void Gather() {
    AssemblyRequest request;
    request.mRows = mSource.Whole().mRows;
    request.mCols = mSource.Whole().mCols;
    request.mReceiver = mOptions.mToAll ? kEverybody : mOptions.mReceiver;
    request.mWithValues = mOptions.mWithValues;
    mRecord.mRows = mPiece.Rows();
    mRecord.mCols = request.mCols;
    mRecord.mBegin = mPiece.Begin();
    mRecord.mEntries = mPiece.Entries();
    mRecord.mBytes = mPiece.Bytes();
    Time("gather", sizeof(I), [&] { return mAssembler.Gather(mComm, mPiece.Pass(), request); });
    mRecord.mPath = mAssembler.Path();
    MatrixCSR<T, I> const* const whole = mAssembler.Whole();
    mRecord.mReceiver = whole != nullptr;
    if (whole == nullptr) return;
    mRecord.mGatheredRows = whole->mRows;
    mRecord.mGatheredCols = whole->mCols;
    mRecord.mGatheredEntries = whole->NNZ();
  }

  void Update() {
    long const arrived = mRecord.mArrivedBytes;
    mPiece.Advance();
    ++mSteps;
    Time("update", 0, [this] { return mAssembler.Update(mPiece.Values()); });
    mRecord.mArrivedBytes = arrived;
  }

  void Check(std::string const& when) {
    if (mAssembler.Whole() == nullptr || mRecord.mDifference[0] != '\0') return;
    Expectation expected{Format::CSR, mOptions.mWithValues, mSteps};
    expected.mAddsRepeated = true;
    std::string const difference = FindDifference<T, I>(*mAssembler.Whole(), mSource, expected);
    if (difference.empty()) return;
    std::string const text = when + ": " + difference;
    std::size_t const length = std::min(text.size(), sizeof mRecord.mDifference - 1);
    std::memcpy(mRecord.mDifference, text.data(), length);
  }

  std::shared_ptr<Comm> mComm;
  Source const& mSource;
  GatherOptions const& mOptions;
  int mSteps = 0;  // how often the values have changed
  RankRecord mRecord;
  std::vector<Timing> mTimings;

  // The order matters: members are destroyed bottom up.
  std::unique_ptr<MemoryPool> mPool = MakePool(*mComm);
  AssembledPiece<T, I> mPiece;
  Assembler<T, I> mAssembler;
};

}  // namespace Pavex::Tool
