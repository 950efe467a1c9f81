// The data that every path of a gather uses, and the checks of the operations that follow a
// gather.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/plan.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/wrapping.h"

#include <complex>

namespace Pavex {

namespace {

// How many records ahead their entries are prefetched: of a million records the processor reads
// one number each, from more pages than it prefetches by itself.
constexpr long kAhead = 64;

PavexStatus UnknownMode(DistMatrixMode mode) {
  Log::Error("Unknown distribution mode %d", static_cast<int>(mode));
  return STATUS_INVALID_VALUE;
}

PavexStatus NotGathered() {
  Log::Error("Gather should be executed first");
  return STATUS_WRONG_ORDER;
}

bool Matches(MatrixLocalInfo const& info, MatrixBase const& local) {
  return info.pattern == local.mPattern && info.attribute == local.mAttribute &&
         info.storeType == local.StoreType() && info.partition.type == local.mPartition.type &&
         info.partition.begin == local.mPartition.begin && info.rows == local.mRows &&
         info.cols == local.mCols && info.nnz == local.NNZ() &&
         info.globalRows == local.mGlobalRows && info.globalCols == local.mGlobalCols;
}

}  // namespace

PavexStatus AggregatorBase::InitMetadata(MatrixBase const& local, bool withValues, int root) {
  GatherPlan plan;
  return InitMetadata(local, withValues, root, sizeof(std::complex<double>), sizeof(long),
                      plan);
}

PavexStatus AggregatorBase::InitMetadata(MatrixBase const& local, bool withValues, int root,
                                         std::size_t valueBytes, std::size_t indexBytes,
                                         GatherPlan& plan) {
  int const rank = mComm->Rank();
  PavexStatus status = Log::Report(GatherLocalInfo(local, withValues, mLocalInfos));
  if (status != STATUS_OK) return status;

  plan = PlanGather(mLocalInfos, valueBytes, indexBytes);
  status = Log::Report(TakeMode(plan, mLocalInfos, mMode));
  if (status != STATUS_OK) return status;

  switch (mMode) {
    case CENTRALIZED_ALL:
      mLocalIsWhole = true;
      mSourceRank = kEverybody;
      status = TakeAgreement(plan, mLocalInfos);
      break;
    case CENTRALIZED_ONE:
      mSourceRank = plan.mSource;
      mLocalIsWhole = plan.mSource == rank;
      status = CheckForOneMode(mLocalInfos);
      break;
    case DISTRIBUTED:
      mLocalIsWhole = false;
      mSourceRank = kNobody;
      status = TakeAgreement(plan, mLocalInfos);
      break;
    default:                      // GCOVR_EXCL_LINE: one of the three was decided
      return UnknownMode(mMode);  // GCOVR_EXCL_LINE
  }
  if (Log::Report(status) != STATUS_OK) return status;

  FillFromReference(mLocalInfos.mData[plan.mReference], rank, root);
  // Otherwise the communicator would get a negative count, or a count beyond an array whose
  // size in bytes has wrapped.
  if (plan.mStage == GatherStage::COUNTS) return Log::Report(plan.mStatus);
  if (mMode == DISTRIBUTED) {
    status = FillCounts();
    if (status != STATUS_OK) return status;
    if (PartitionWord(mPartition.type) == nullptr) {  // GCOVR_EXCL_START: refused before
      Log::Error("Unexpected partition type %d", mPartition.type);
      return STATUS_INVALID_VALUE;
    }  // GCOVR_EXCL_STOP
  }
  mRows = plan.mRows;
  mCols = plan.mCols;
  mNnz = plan.mNnz;
  return STATUS_OK;
}

// The agreed attributes.
void AggregatorBase::FillFromReference(MatrixLocalInfo const& reference, int rank, int root) {
  mIsReceiver = root == kEverybody || rank == root;
  mRoot = root;
  mWithValues = reference.WithValues();
  mPattern = reference.pattern;
  mAttribute = reference.attribute;
  mStoreType = reference.storeType;
  mPartition = reference.partition;
  mGlobalRows = reference.globalRows;
  mGlobalCols = reference.globalCols;
}

// On receivers: where the entries of each piece go, narrowed to int without a check; a transfer
// that one call cannot count does not read them. Fixed: see docs/compatibility.md. Example: two
// row bands with 28 and 42 entries give counts [28, 42] and displacements [0, 28].
PavexStatus AggregatorBase::FillCounts() {
  if (!mIsReceiver) return STATUS_OK;
  long const pieces = mLocalInfos.mSize;
  PavexStatus status = Log::Report(mPool->Get(mCounts, pieces));
  if (status != STATUS_OK) return status;
  status = Log::Report(mPool->Get(mDispls, pieces));
  if (status != STATUS_OK) return status;

  long before = 0;
  for (long p = 0; p < pieces; ++p) {
    if (p + kAhead < pieces) __builtin_prefetch(&mLocalInfos.mData[p + kAhead].nnz);
    long const entries = mLocalInfos.mData[p].nnz;
    mCounts.mData[p] = static_cast<int>(entries);
    mDispls.mData[p] = static_cast<int>(before);
    before = WrappingAdd(before, entries);
  }
  return STATUS_OK;
}

// The gathered matrix describes itself as the reference process does.
void AggregatorBase::StampTarget() {
  mTarget->mPattern = mPattern;
  mTarget->mAttribute = mAttribute;
  mTarget->mPartition = mPartition;
  mTarget->mGlobalRows = mGlobalRows;
  mTarget->mGlobalCols = mGlobalCols;
}

PavexStatus AggregatorBase::CheckLocalValues(bool needValues, MatrixBase const& local) const {
  if (!needValues) return STATUS_OK;
  switch (mMode) {
    case CENTRALIZED_ALL:
      return STATUS_OK;
    case CENTRALIZED_ONE:
      if (!mLocalIsWhole) return STATUS_OK;
      break;
    case DISTRIBUTED:
      break;
    default:
      return UnknownMode(mMode);
  }
  if (!local.HasValues()) {
    Log::Error("Local matrix has no values when we need it.");
    return STATUS_INCONSISTENT;
  }
  return STATUS_OK;
}

PavexStatus AggregatorBase::CheckConsistency(MatrixBase const& local) const {
  int const rank = mComm->Rank();
  if (rank < 0 || rank >= mLocalInfos.mSize) return NotGathered();
  if (!Matches(mLocalInfos.mData[rank], local)) {
    Log::Error("The input matrix is inconsistent with that in the gather phase.");
    return STATUS_MISMATCH;
  }
  return STATUS_OK;
}

PavexStatus AggregatorBase::CheckAfterGather(MatrixBase const& local) const {
  bool const gathered = mComm != nullptr && mLocalInfos.mSize != 0 && mRoot != kNobody;
  if (!gathered || (mIsReceiver && mTarget == nullptr)) return NotGathered();

  PavexStatus const status = CheckConsistency(local);
  if (status == STATUS_WRONG_ORDER) return status;  // the failure has its own line
  if (Log::Report(status) != STATUS_OK) return status;
  return Log::Report(CheckLocalValues(true, local));
}

long AggregatorBase::LocalRowColBegin(MatrixPartition const& partition) const {
  return WrappingSub(partition.begin, mPartition.begin);
}

}  // namespace Pavex
