#include "tools/plan/plan_decision.h"

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/runtime/memory_pool.h"
#include "pavex/runtime/self_comm.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace Pavex::Tool {

namespace {

using Records = std::vector<MatrixLocalInfo>;

// Rank 0 of as many ranks as there are records; the exchange of the records is all it can do.
class RecordComm final : public SelfComm {
 public:
  explicit RecordComm(Records records) : mRecords(std::move(records)) {}

  int Size() const override { return static_cast<int>(mRecords.size()); }
  PavexStatus Allgather(void const*, int, Datatype, void* recvbuf, int,
                        Datatype) const override {
    std::copy(mRecords.begin(), mRecords.end(), static_cast<MatrixLocalInfo*>(recvbuf));
    return STATUS_OK;
  }

 private:
  Records mRecords;
};

// The part of an aggregator that works on records.
class Judge final : public AggregatorBase {
 public:
  explicit Judge(MemoryPool* pool) : AggregatorBase(pool) {}

  // What a rank with `matrix` tells the others.
  MatrixLocalInfo RecordOf(MatrixBase const& matrix, bool withValues) {
    SetComm(std::make_shared<SelfComm>());
    Buffer<MatrixLocalInfo> infos;
    if (GatherLocalInfo(matrix, withValues, infos) != STATUS_OK) throw std::bad_alloc();
    return infos.mData[0];
  }

  PieceDecision Decide(Records const& records, MatrixBase const& first, bool withValues) {
    SetComm(std::make_shared<RecordComm>(records));
    PieceDecision decision;
    decision.mStatus = InitMetadata(first, withValues, 0);
    decision.mDescription = Describe();
    if (decision.mStatus != STATUS_OK) return decision;
    decision.mMode = mMode;
    decision.mSource = mSourceRank;
    decision.mPartition = mPartition;
    decision.mRows = mRows;
    decision.mCols = mCols;
    decision.mEntries = mNnz;
    return decision;
  }
};

}  // namespace

PieceDecision DecideOn(std::vector<CountedMatrix> const& pieces, bool withValues) {
  MemoryPool pool;
  Judge judge(&pool);
  Records records;
  for (CountedMatrix const& piece : pieces)
    records.push_back(judge.RecordOf(piece, withValues));
  return judge.Decide(records, pieces.front(), withValues);
}

}  // namespace Pavex::Tool
