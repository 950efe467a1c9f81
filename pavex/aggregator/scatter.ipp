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
#include "pavex/aggregator/dense_runs.ipp"
#include "pavex/aggregator/round_transfer.ipp"
#include "pavex/aggregator/transfer.ipp"

namespace Pavex {

// `whole`: the gathered matrix, or other values in its layout; null on a process without.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::ScatterDense(MatrixDense<T, I> const& local,
                                           MatrixDense<T, I> const* whole) {
  // NOLINTBEGIN(clang-analyzer-core.NonNullParamChecker): a receiver has a gathered matrix
  if (mRoot == kEverybody) return CopyOwnPiece(*whole, local);
  if (MovesRuns(local.mRowMajor)) return ScatterDenseRuns(whole, local);

  Buffer<T> packed;
  if (mIsReceiver && !LacksArray(*whole)) {
    PavexStatus const status = Log::Report(PackDenseValues(*whole, packed));
    if (status != STATUS_OK) return status;
  }
  // NOLINTEND(clang-analyzer-core.NonNullParamChecker)
  return ScatterDenseValues(packed, local);
}

// No message: `whole` is this process's own gathered matrix and holds its piece, unless the
// pieces do not tile the whole. Outside CENTRALIZED_ALL the gathered array has mNnz elements.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::CopyOwnPiece(MatrixDense<T, I> const& whole,
                                           MatrixDense<T, I> const& local) {
  long const begin = LocalSubmatOffset(local);
  bool const inside = mMode == CENTRALIZED_ALL ||
                      RunsStayInside(begin, local.Runs(), local.RunLength(), whole.mLd, mNnz);
  if (!inside) return Log::Report(STATUS_INCONSISTENT);
  T const* const piece = whole.mValues.mData + (LacksArray(whole) ? 0 : begin);
  // A gathered pattern that borrows has no array, and neither has its local matrix.
  if (piece == local.mValues.mData) return STATUS_OK;
  if (LacksArray(whole) || LacksArray(local)) return Log::Report(STATUS_INCONSISTENT);
  CopyElements(local.Runs(), local.RunLength(), piece, whole.mLd, local.mValues.mData,
               local.mLd);
  return STATUS_OK;
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::ScatterDenseValues(Buffer<T> const& global,
                                                 MatrixDense<T, I> const& local) {
  constexpr Datatype kType = DatatypeOf<T>::kValue;
  PavexStatus status = CheckDense(local.mRowMajor);
  if (status != STATUS_OK) return status;
  bool const sendsNothing = mIsReceiver && global.mSize == 0 && mNnz != 0;
  if (sendsNothing || LacksArray(local)) return Log::Report(STATUS_INCONSISTENT);
  long const entries = local.NNZ();
  Buffer<T> received;
  if (mMode == DISTRIBUTED) {
    Buffer<T> commValues;
    if (mIsReceiver) status = Log::Report(Dense2Comm(local.mRowMajor, global, commValues));
    if (status == STATUS_OK) status = PrepareReceive(local, entries, received);
    if (status != STATUS_OK) return status;
    if (TakesRounds())
      status = ScatterRounds(commValues.mData, received.mData, kType);
    else
      status = mComm->Scatterv(commValues.mData, mCounts.mData, mDispls.mData, kType,
                               received.mData, static_cast<int>(entries), kType, mRoot);
  } else {
    if (mIsReceiver) {
      received.Borrow(global.mData, global.mSize);
    } else if (mLocalIsWhole) {
      status = PrepareReceive(local, entries, received);
      if (status != STATUS_OK) return status;
    }
    status = TransferCentralized(received.mData, mNnz, kType, mRoot, mSourceRank, TAG_SCATTER,
                                 *mComm);
  }
  if (Log::Report(status) != STATUS_OK) return status;

  // Nothing has come to a process that holds nothing. Its local matrix has no elements, except
  // after a later gather that was refused.
  if (received.mData != nullptr && received.mData != local.mValues.mData) {
    CopyElements(local.Runs(), local.RunLength(), received.mData, local.RunLength(),
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
