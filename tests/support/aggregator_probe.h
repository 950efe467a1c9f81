// An aggregator whose members a test can see, and everything that one rank needs around it.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/scripted_comm.h"
#include "tests/support/trace_comm.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Pavex {

// Opens the protected members and steps of the aggregator.
template <typename T, typename I>
class AggregatorProbe : public Aggregator<T, I> {
 public:
  using Aggregator<T, I>::Aggregator;

  using AggregatorBase::CheckConsistency;
  using AggregatorBase::CheckForAllMode;
  using AggregatorBase::CheckForDistMode;
  using AggregatorBase::CheckForOneMode;
  using AggregatorBase::CheckLocalValues;
  using AggregatorBase::DetermineMode;
  using AggregatorBase::GatherLocalInfo;
  using AggregatorBase::InitMetadata;
  using AggregatorBase::LocalRowColBegin;
  using AggregatorBase::mAttribute;
  using AggregatorBase::mCols;
  using AggregatorBase::mComm;
  using AggregatorBase::mCounts;
  using AggregatorBase::mDispls;
  using AggregatorBase::mGlobalCols;
  using AggregatorBase::mGlobalRows;
  using AggregatorBase::mIsReceiver;
  using AggregatorBase::mLocalInfos;
  using AggregatorBase::mLocalIsWhole;
  using AggregatorBase::mMode;
  using AggregatorBase::mNnz;
  using AggregatorBase::mPartition;
  using AggregatorBase::mPattern;
  using AggregatorBase::mPool;
  using AggregatorBase::mRoot;
  using AggregatorBase::mRows;
  using AggregatorBase::mSourceRank;
  using AggregatorBase::mStoreType;
  using AggregatorBase::mTarget;
  using AggregatorBase::mWithValues;
};

// One rank: its pool with its ledger, its communicator with its record of the calls, and its
// aggregator. Local matrices whose arrays come from `pool` must be declared after it.
template <typename T = double, typename I = int>
struct RankUnderTest {
  // Works over a rank of a real job, or over one that a test scripts.
  explicit RankUnderTest(std::shared_ptr<Comm> inner)
      : comm(std::make_shared<TraceComm>(std::move(inner))), aggregator(&pool) {}

  // The gathered matrix as the class that it must have. Throws std::bad_cast for another class.
  template <typename M>
  M& Target() {
    return dynamic_cast<M&>(*aggregator.Target());
  }

  // Forgets what the pool and the communicator have recorded so far.
  void ForgetThePast() {
    pool.ForgetEvents();
    comm->ForgetCalls();
  }

  LedgerPool pool;
  std::shared_ptr<TraceComm> comm;
  AggregatorProbe<T, I> aggregator;
};

// Rank `rank` of a job whose ranks hold `locals`. The ranks exchange the records only.
inline std::shared_ptr<ScriptedComm> ScriptedRank(int rank,
                                                  std::vector<MatrixBase const*> const& locals,
                                                  bool withValues = true) {
  std::vector<MatrixLocalInfo> records;
  for (MatrixBase const* const local : locals)
    records.push_back(RecordOf(*local, withValues));
  auto comm = std::make_shared<ScriptedComm>(rank, static_cast<int>(locals.size()));
  comm->SetRecords(records);
  return comm;
}

}  // namespace Pavex
