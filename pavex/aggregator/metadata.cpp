// What every path of a gather works from, and the checks of the operations that follow it.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/wrapping.h"

namespace Pavex {

namespace {

PavexStatus UnknownMode(DistMatrixMode mode) {
  Log::Error("[%s] Unknown distribution mode %d\n", static_cast<int>(mode));
  return STATUS_INVALID_VALUE;
}

PavexStatus NotGathered() {
  Log::Error("[%s] Gather should be executed first\n");
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
  int const rank = mComm->Rank();
  PavexStatus status = Log::Report(GatherLocalInfo(local, withValues, mLocalInfos));
  if (status != STATUS_OK) return status;

  int source = kNobody;
  status = Log::Report(DetermineMode(mLocalInfos, mMode, source));
  if (status != STATUS_OK) return status;

  switch (mMode) {
    case CENTRALIZED_ALL:
      mLocalIsWhole = true;
      mSourceRank = kEverybody;
      status = CheckForAllMode(mLocalInfos);
      break;
    case CENTRALIZED_ONE:
      mSourceRank = source;
      mLocalIsWhole = source == rank;
      status = CheckForOneMode(mLocalInfos);
      break;
    case DISTRIBUTED:
      mLocalIsWhole = false;
      mSourceRank = kNobody;
      status = CheckForDistMode(mLocalInfos);
      break;
    default:                      // GCOVR_EXCL_LINE: one of the three was decided
      return UnknownMode(mMode);  // GCOVR_EXCL_LINE
  }
  if (Log::Report(status) != STATUS_OK) return status;

  MatrixLocalInfo const& reference = mLocalInfos.mData[source == kNobody ? 0 : source];
  FillFromReference(reference, rank, root);
  return mMode == DISTRIBUTED ? FillFromPieces(reference) : STATUS_OK;
}

// The agreed attributes, and the shape as long as the reference process holds the whole matrix.
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
  if (mMode == DISTRIBUTED) return;
  mRows = reference.rows;
  mCols = reference.cols;
  mNnz = reference.nnz;
}

// The shape of the pieces together, and on receivers where each piece's entries go. Example:
// two row bands of a 10 x 7 matrix with 28 and 42 entries give counts [28, 42], displacements
// [0, 28] and 70 entries.
PavexStatus AggregatorBase::FillFromPieces(MatrixLocalInfo const& reference) {
  // The communicator would get a negative count, or one that leads behind an array whose size
  // in bytes has wrapped.
  if (FindBadCount(mLocalInfos) != kNobody) return Log::Report(STATUS_INCONSISTENT);
  if (mIsReceiver) {
    long const pieces = mLocalInfos.mSize;
    PavexStatus status = Log::Report(mPool->Get(mCounts, pieces));
    if (status != STATUS_OK) return status;
    status = Log::Report(mPool->Get(mDispls, pieces));
    if (status != STATUS_OK) return status;

    long before = 0;
    for (long p = 0; p < pieces; ++p) {
      long const entries = mLocalInfos.mData[p].nnz;
      mCounts.mData[p] = static_cast<int>(entries);
      mDispls.mData[p] = static_cast<int>(before);
      before = WrappingAdd(before, entries);
    }
  }

  GatheredShape const shape = ShapeOfPieces(mLocalInfos, reference);
  if (!shape.mKnown) {  // GCOVR_EXCL_START: CheckForDistMode refuses an unknown type before
    Log::Error("[%s] Unexpected partition type %d\n", mPartition.type);
    return STATUS_INVALID_VALUE;
  }  // GCOVR_EXCL_STOP
  mRows = shape.mRows;
  mCols = shape.mCols;
  mNnz = shape.mNnz;
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
    Log::Error("[%s] Local matrix has no values when we need it.\n");
    return STATUS_INCONSISTENT;
  }
  return STATUS_OK;
}

PavexStatus AggregatorBase::CheckConsistency(MatrixBase const& local) const {
  int const rank = mComm->Rank();
  if (rank < 0 || rank >= mLocalInfos.mSize) return NotGathered();
  if (!Matches(mLocalInfos.mData[rank], local)) {
    Log::Error("[%s] The input matrix is inconsistent with that in the gather phase.\n");
    return STATUS_MISMATCH;
  }
  return STATUS_OK;
}

PavexStatus AggregatorBase::CheckAfterGather(MatrixBase const& local) const {
  bool const gathered = mComm != nullptr && mLocalInfos.mSize != 0 && mRoot != kNobody;
  if (!gathered || (mIsReceiver && mTarget == nullptr)) return NotGathered();

  PavexStatus const status = CheckConsistency(local);
  if (status == STATUS_WRONG_ORDER) return status;  // its own line says it all
  if (Log::Report(status) != STATUS_OK) return status;
  return Log::Report(CheckLocalValues(true, local));
}

long AggregatorBase::LocalRowColBegin(MatrixPartition const& partition) const {
  return WrappingSub(partition.begin, mPartition.begin);
}

}  // namespace Pavex
