// The scatter: each process receives its own piece of the gathered dense matrix, in the layout
// of its local matrix.
//
//   every process has the whole   no message, each copies its piece
//   DISTRIBUTED                   Scatterv of the communication layout
//   CENTRALIZED_ONE               the packed whole goes to its holder
//   CENTRALIZED_ALL               the packed whole goes to every process
//
// Included by aggregator.cpp.

#pragma once

#include "pavex/aggregator/dense_layout.ipp"
#include "pavex/aggregator/transfer.ipp"

namespace Pavex {
namespace {

// Whether all runs of `matrix` lie inside its value array.
template <typename T, typename I>
bool HoldsItsRuns(MatrixDense<T, I> const& matrix) {
  return RunsStayInside(0, matrix.Runs(), matrix.RunLength(), matrix.mLd, matrix.mValues.mSize);
}

}  // namespace

template <typename T, typename I>
PavexStatus Aggregator<T, I>::ScatterDense(MatrixDense<T, I> const& local) {
  auto* const whole = dynamic_cast<MatrixDense<T, I>*>(mTarget);
  if (mRoot == kEverybody) return CopyOwnPiece(*whole, local);

  Buffer<T> packed;
  if (mIsReceiver && HoldsItsRuns(*whole)) {
    PavexStatus const status = Log::Report(PackDenseValues(*whole, packed));
    if (status != STATUS_OK) return status;
  }
  return ScatterDenseValues(packed, local);
}

// No message is sent: this process's own gathered matrix contains its piece.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::CopyOwnPiece(MatrixDense<T, I> const& whole,
                                           MatrixDense<T, I> const& local) {
  if (!PiecesFit(whole)) return Log::Report(STATUS_INCONSISTENT);
  T const* const piece = whole.mValues.mData + LocalSubmatOffset(local);
  if (piece == local.mValues.mData) return STATUS_OK;
  if (!HoldsItsRuns(whole) || !HoldsItsRuns(local)) return Log::Report(STATUS_INCONSISTENT);
  CopyRuns(local.Runs(), local.RunLength(), piece, whole.mLd, local.mValues.mData, local.mLd);
  return STATUS_OK;
}

// Whether the piece of every process lies inside the gathered matrix. The result is the same on
// every process.
template <typename T, typename I>
bool Aggregator<T, I>::PiecesFit(MatrixDense<T, I> const& whole) const {
  if (mMode != DISTRIBUTED) return true;
  bool const rowMajor = whole.mRowMajor;
  bool const consecutive =
      mPartition.type == (rowMajor ? PARTITION_ROW_WISE : PARTITION_COLUMN_WISE);
  for (std::int64_t p = 0; p < mLocalInfos.mSize; ++p) {
    MatrixLocalInfo const& info = mLocalInfos.mData[p];
    std::int64_t const length = rowMajor ? info.cols : info.rows;
    std::int64_t const runs = rowMajor ? info.rows : info.cols;
    std::int64_t const begin =
        consecutive ? mDispls.mData[p] : LocalRowColBegin(info.partition);
    if (!RunsStayInside(begin, runs, length, whole.mLd, mNnz)) return false;
  }
  return true;
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::ScatterDenseValues(Buffer<T> const& global,
                                                 MatrixDense<T, I> const& local) {
  constexpr Datatype kType = DatatypeOf<T>::kValue;
  PavexStatus status = CheckDense(local.mRowMajor);
  if (status != STATUS_OK) return status;
  bool const inside = HoldsItsRuns(local) && (!mIsReceiver || global.mSize >= mNnz);
  if (!inside) {
    return Log::Report(STATUS_INCONSISTENT);
  }
  long const entries = local.NNZ();
  Buffer<T> received;
  if (mMode == DISTRIBUTED) {
    Buffer<T> commValues;
    if (mIsReceiver) status = Log::Report(Dense2Comm(local.mRowMajor, global, commValues));
    if (status == STATUS_OK) status = PrepareReceive(local, entries, received);
    if (status != STATUS_OK) return status;
    status = mComm->Scatterv(commValues.mData, mCounts.mData, mDispls.mData, kType,
                             received.mData, static_cast<int>(entries), kType, mRoot);
  } else {
    if (mIsReceiver) {
      received.Borrow(global.mData, global.mSize);
    } else if (mLocalIsWhole) {
      status = PrepareReceive(local, entries, received);
      if (status != STATUS_OK) return status;
    }
    status = TransferCentralized(received.mData, static_cast<int>(mNnz), kType, mRoot,
                                 mSourceRank, TAG_SCATTER, *mComm);
  }
  if (Log::Report(status) != STATUS_OK) return status;

  if (received.mData != local.mValues.mData) {
    CopyRuns(local.Runs(), local.RunLength(), received.mData, local.RunLength(),
             local.mValues.mData, local.mLd);
  }
  return STATUS_OK;
}

// A packed local matrix receives in place; any other one receives into a separate array.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::PrepareReceive(MatrixDense<T, I> const& local, long entries,
                                             Buffer<T>& received) {
  if (!IsPacked(local)) return Log::Report(mPool->Get(received, entries));
  received.Borrow(local.mValues.mData, local.mValues.mSize);
  return STATUS_OK;
}

}  // namespace Pavex
