// One rank of a job in which something fails: its data, its operations, and the checks after
// them.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "tests/faults/injection.h"
#include "tests/property/target_check.h"
#include "tests/support/runs_comm.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Pavex {

template <typename T, typename I>
class FaultyRank {
 public:
  static constexpr ElementBytes kBytes{sizeof(T), sizeof(I)};

  // `source`: where the memory comes from in place of the heap.
  FaultyRank(Round const& round, int rank, MemoryPool* source = nullptr)
      : mRound(round),
        mPiece(round.PieceOf(rank)),
        mRank(rank),
        mGathered(round, rank, GATHERED, mPiece.hasValues, VersionOf(GATHERED)),
        mUpdated(round, rank, UPDATED, true, VersionOf(UPDATED)),
        mScattered(round, rank, SCATTERED, true, VersionOf(SCATTERED)),
        mPool(source) {}

  // Makes the next operations use `inner`. The count of the calls starts again.
  void Bind(std::shared_ptr<Comm> inner) {
    mComm = std::make_shared<TraceComm>(std::move(inner));
    mRuns = nullptr;
    mPool.Fail(Fault());
  }

  // The same, and `inner` moves runs.
  void BindRuns(std::shared_ptr<Comm> const& inner) {
    mComm = mRuns = std::make_shared<RunsComm>(inner);
    mPool.Fail(Fault());
  }

  // Calls that have moved runs since.
  long RunCalls() const { return mRuns == nullptr ? 0 : mRuns->RunCalls(); }
  bool RunCallFailed() const { return mRuns != nullptr && mRuns->RunCallFailed(); }

  // Runs the operations that must succeed before `operation` can begin.
  PavexStatus Prepare(Operation operation) {
    if (operation == Operation::GATHER) return STATUS_OK;
    PavexStatus const status = Run(Operation::GATHER);
    if (status != STATUS_OK || operation != Operation::SCATTER) return status;
    return Run(Operation::UPDATE);
  }

  // Makes a call of the next operation fail.
  void Plan(Injection const& injection) {
    if (injection.isPool)
      mPool.Fail(injection.ToFault());
    else
      mComm->Fail(injection.ToFault(), injection.mode);
  }

  PavexStatus Run(Operation operation) {
    mPool.ForgetEvents();
    mComm->ForgetCalls();
    switch (operation) {
      case Operation::GATHER:
      case Operation::GATHER_AGAIN:
        mPlace = nullptr;
        return mRound.toAll
                   ? mAggregator.Allgather(mComm, mGathered.Matrix(), mPiece.withValues)
                   : mAggregator.Gather(mComm, mGathered.Matrix(), mPiece.withValues);
      case Operation::UPDATE:
        return mAggregator.Update(mUpdated.Matrix());
      case Operation::UPDATE_COO:
        return mAggregator.UpdateCOO(dynamic_cast<MatrixCOO<T, I> const&>(mUpdated.Matrix()));
      case Operation::UPDATE_IN_PLACE:
        mPlace = OwnedValues();
        return mAggregator.UpdateInPlace(mUpdated.Matrix());
      case Operation::SCATTER:
        break;
    }
    mHasScattered = true;
    return mAggregator.Scatter(mScattered.Matrix());
  }

  // The first thing that is wrong after `operation` has succeeded.
  std::string CheckSuccess(Operation operation) {
    std::string difference = IsGather(operation) ? CheckTarget(GATHERED) : CheckTarget(UPDATED);
    if (!difference.empty()) return difference;
    difference = CheckLocals(!mHasScattered);
    if (!difference.empty() || operation != Operation::SCATTER) return difference;
    return CheckScattered();
  }

  // The first thing that is wrong after `operation` has failed. `inPlace`: the values may have
  // arrived in spite of the failure.
  std::string CheckFailure(Operation operation, bool inPlace) {
    bool const scattered = inPlace && operation == Operation::SCATTER;
    std::string const difference = CheckLocals(!scattered);
    if (!difference.empty()) return difference;
    if (scattered) return CheckPartlyScattered();
    if (inPlace) return CheckTarget(GATHERED, true);
    if (!IsGather(operation))
      return CheckTarget(operation == Operation::SCATTER ? UPDATED : GATHERED);
    Differences is;
    is.Equal("whether there is a gathered matrix", mAggregator.Target() != nullptr, false);
    return is.First();
  }

  // Checks that the last operation has made the first `count` of `steps` and no other call.
  // `refused`: the pool refused the last one.
  std::string CheckCalls(std::vector<Step> const& steps, std::size_t count, bool refused) {
    std::vector<std::size_t> wantedBytes;
    std::vector<CommOp> wantedOps;
    for (std::size_t k = 0; k < count; ++k) {
      if (steps[k].isPool)
        wantedBytes.push_back(steps[k].bytes);
      else
        wantedOps.push_back(steps[k].op);
    }
    Differences is;
    is.Equal("whether the bytes asked of the pool are right", AskedBytes() == wantedBytes,
             true);
    is.Equal("whether the communicator's calls are right", CalledOps() == wantedOps, true);
    is.Equal("whether the pool has refused", Refusals() != 0, refused);
    return is.First();
  }

  // Checks that the blocks in use are those that the gathered matrix must own, and `kept`
  // bytes.
  std::string CheckMemory(std::size_t kept) {
    Differences is;
    is.Equal("bytes taken from the pool", mPool.OutstandingBytes(), kept + mOwnedBytes);
    return is.First();
  }

  // How many calls the last operation has made.
  std::size_t MadeCalls() const { return AskedBytes().size() + CalledOps().size(); }

  bool FaultStruck() const { return mPool.FaultStruck() || mComm->FaultStruck(); }

  // Whether the operation that has just run receives directly into the local matrix (a scatter)
  // or the gathered one (an update in place).
  bool ReceivesInPlace(Operation operation) const {
    if (operation == Operation::UPDATE_IN_PLACE) return mPlace != nullptr;
    if (operation != Operation::SCATTER) return false;
    // Runs go to their place directly, those of the root to itself as well.
    bool const moved = mRuns != nullptr;
    bool const receives = mRound.holding == Holding::PIECES ||
                          (mRound.HoldsWhole(mRank) && (moved || mRank != 0));
    return receives && (moved || mPiece.IsPacked(SCATTERED));
  }

 private:
  using Local = LocalMatrix<T, I>;

  struct Contents {
    explicit Contents(Local const& local) : arrays(local.Arrays()) {
      if (arrays.first != nullptr) Copy(*arrays.first, first);
      if (arrays.second != nullptr) Copy(*arrays.second, second);
      Copy(*arrays.values, values);
    }
    template <typename E>
    static void Copy(Buffer<E> const& array, std::vector<E>& copy) {
      copy.assign(array.mData, array.mData + array.mSize);
    }
    bool operator==(Contents const& other) const {
      return first == other.first && second == other.second && values == other.values;
    }

    ArraysOf<T, I> arrays;
    std::vector<I> first;
    std::vector<I> second;
    std::vector<T> values;
  };

  static bool IsGather(Operation operation) {
    return operation == Operation::GATHER || operation == Operation::GATHER_AGAIN;
  }
  static long VersionOf(Phase phase) { return phase + 1; }

  // The array of the gathered values if the gathered matrix owns it; null otherwise.
  void const* OwnedValues() {
    if (mAggregator.Target() == nullptr) return nullptr;
    ArraysOf<T, I> const arrays(mRound.format, *mAggregator.Target());
    return arrays.values->mAllocator == nullptr ? nullptr : arrays.values->mData;
  }

  // `undefined`: the elements of the values may be anything.
  std::string CheckTarget(Phase phase, bool undefined = false) {
    bool const moved = phase != GATHERED || mRound.Reference().withValues;
    TargetCheck<T, I> check(mRound, mRank, mPool, mGathered,
                            phase == GATHERED ? mGathered : mUpdated, phase, VersionOf(phase),
                            moved);
    if (mPlace != nullptr) check.ExpectValuesAt(mPlace);
    if (undefined) check.LeaveOutElementsOfValues();
    std::string const difference = check.Run(mAggregator.Target());
    mOwnedBytes = check.OwnedBytes();
    return difference;
  }

  std::string CheckLocals(bool withScattered) {
    Differences is;
    is.Equal("whether the gathered local matrix is as before",
             Contents(mGathered) == mGatheredBefore, true);
    is.Equal("whether the local matrix of the update is as before",
             Contents(mUpdated) == mUpdatedBefore, true);
    if (withScattered) {
      is.Equal("whether the local matrix of the scatter is as before",
               Contents(mScattered) == mScatteredBefore, true);
    }
    return is.First();
  }

  // The array of the local matrix after a scatter, with its padding.
  std::vector<T> ExpectedValues() const {
    std::vector<T> expected = mScatteredBefore.values;
    if (mRound.holding == Holding::ONE && !mRound.HoldsWhole(mRank)) return expected;
    bool const fromRoot = mRound.holding == Holding::ALL && !mRound.toAll;
    std::vector<Entry> const& entries = fromRoot ? mRound.PieceOf(0).entries : mPiece.entries;
    for (std::size_t k = 0; k < entries.size(); ++k)
      expected[mScattered.DenseIndex(static_cast<long>(k))] =
          ValueOf<T>(VersionOf(UPDATED), entries[k].number);
    return expected;
  }

  std::string CheckScattered() {
    Differences is;
    is.Equal("whether the scattered values are right", mScattered.Values() == ExpectedValues(),
             true);
    return is.First();
  }

  std::string CheckPartlyScattered() {
    std::vector<T> const expected = ExpectedValues();
    Differences is;
    for (std::size_t k = 0; k < expected.size(); ++k) {
      T const value = mScattered.Values()[k];
      bool const known = value == expected[k] || value == mScatteredBefore.values[k];
      is.Equal("whether local value " + std::to_string(k) + " is an old or a new one", known,
               true);
    }
    if (!is.First().empty()) return is.First();
    return CheckTarget(UPDATED);
  }

  std::vector<std::size_t> AskedBytes() const {
    std::vector<std::size_t> asked;
    for (PoolEvent const& event : mPool.Events()) {
      if (event.kind != PoolEvent::GAVE_BACK) asked.push_back(event.bytes);
    }
    return asked;
  }
  long Refusals() const {
    return std::count_if(
        mPool.Events().begin(), mPool.Events().end(),
        [](PoolEvent const& event) { return event.kind == PoolEvent::REFUSED; });
  }
  std::vector<CommOp> CalledOps() const {
    std::vector<CommOp> ops;
    for (CommCall const& call : mComm->Calls()) {
      if (call.op != CommOp::RANK && call.op != CommOp::SIZE) ops.push_back(call.op);
    }
    return ops;
  }

  Round const& mRound;
  Piece const& mPiece;
  int const mRank;
  Local mGathered;
  Local mUpdated;
  Local mScattered;
  Contents const mGatheredBefore{mGathered};
  Contents const mUpdatedBefore{mUpdated};
  Contents const mScatteredBefore{mScattered};
  LedgerPool mPool;
  std::shared_ptr<TraceComm> mComm;
  std::shared_ptr<RunsComm> mRuns;  // the same; null if it hides that the inner one moves runs
  Aggregator<T, I> mAggregator{&mPool};
  bool mHasScattered = false;
  void const* mPlace = nullptr;  // the values that an update in place must keep; null: none
  std::size_t mOwnedBytes = 0;   // by the gathered matrix, when last checked
};

}  // namespace Pavex
