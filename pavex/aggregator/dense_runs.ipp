// Dense values over a communicator that moves runs: they go from the caller's arrays to their
// final place, and back, in one operation. Nothing is packed or reordered. Results, statuses
// and lines are those of the ordinary way, without the allocations and the line of a reorder.
//
// Included by aggregator.cpp.

#pragma once

#include "pavex/aggregator/dense_layout.ipp"

#include <algorithm>

namespace Pavex {
namespace {

template <typename T, typename I>
Runs AllRuns(MatrixDense<T, I> const& matrix) {
  if (matrix.NNZ() == 0) return {};
  if (IsPacked(matrix)) return {0, matrix.NNZ(), 1, matrix.NNZ()};
  return {0, matrix.RunLength(), matrix.Runs(), matrix.mLd};
}

}  // namespace

// What this process contributes to a gather. A packed array is sent whole, also if it is longer
// than the piece. Fixed: see docs/compatibility.md.
template <typename T, typename I>
Runs Aggregator<T, I>::PieceToSend(MatrixDense<T, I> const& local) const {
  if (mMode == CENTRALIZED_ONE && !mLocalIsWhole) return {};
  Runs const runs = AllRuns(local);
  if (mMode != DISTRIBUTED || local.NNZ() == 0 || !IsPacked(local)) return runs;
  return {0, local.mValues.mSize, 1, local.mValues.mSize};
}

// Collects all pieces in `values`, which on a receiver has room for all entries, and views the
// `place` where they are to end up if there is one.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::GatherDenseRuns(MatrixDense<T, I> const& local,
                                              Buffer<T> const* place, Buffer<T>& values) {
  Buffer<Runs> pieces;
  if (mIsReceiver) {
    PavexStatus const status = ListRuns(local.mRowMajor, pieces);
    if (status != STATUS_OK) return status;
    // A holder shows its own array if it is packed.
    if (mMode == CENTRALIZED_ONE && mLocalIsWhole && place == nullptr && IsPacked(local))
      values.Borrow(local.mValues.mData, local.mValues.mSize);
  }
  PavexStatus const status =
      mComm->GatherRuns(local.mValues.mData, PieceToSend(local), values.mData, pieces.mData,
                        DatatypeOf<T>::kValue, mRoot);
  // Only the caller reports a failure of this transfer. Fixed: see docs/compatibility.md.
  return mMode == CENTRALIZED_ONE ? status : Log::Report(status);
}

// Hands every process its piece of `whole`, which is null except on the root.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::ScatterDenseRuns(MatrixDense<T, I> const* whole,
                                               MatrixDense<T, I> const& local) {
  PavexStatus status = CheckDense(local.mRowMajor);
  if (status != STATUS_OK) return status;
  // NOLINTBEGIN(clang-analyzer-core.NonNullParamChecker): a receiver has a gathered matrix
  bool const sendsNothing = mIsReceiver && mNnz != 0 && LacksArray(*whole);
  if (sendsNothing || LacksArray(local)) return Log::Report(STATUS_INCONSISTENT);

  Buffer<Runs> pieces;
  Buffer<T> values;
  Runs filled = AllRuns(local);  // what of the local array arrives
  if (mIsReceiver) {
    status = ListWhole(*whole, local, filled, values, pieces);
    if (status != STATUS_OK) return status;
  }
  // NOLINTEND(clang-analyzer-core.NonNullParamChecker)
  return Log::Report(mComm->ScatterRuns(values.mData, pieces.mData, local.mValues.mData, filled,
                                        DatatypeOf<T>::kValue, mRoot));
}

// What the root sends: `values` and what of it each process gets. `filled` is what of its own
// array the root fills.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::ListWhole(MatrixDense<T, I> const& whole,
                                        MatrixDense<T, I> const& local, Runs& filled,
                                        Buffer<T>& values, Buffer<Runs>& pieces) {
  PavexStatus const status = ListRuns(local.mRowMajor, pieces);
  if (status != STATUS_OK) return status;
  // The pieces are those of a packed whole. The caller may have given it another array.
  if (mMode != CENTRALIZED_ALL) return Log::Report(PackDenseValues(whole, values));
  values.Borrow(whole.mValues.mData, whole.mValues.mSize);

  // The whole may be the local array itself, with another leading dimension now.
  bool const same = values.mData == local.mValues.mData;
  if (same && !IsPacked(whole) && whole.mLd != local.mLd)
    return Log::Report(PackDenseValues(whole, values));
  std::fill_n(pieces.mData, pieces.mSize, AllRuns(whole));
  if (same) filled = AllRuns(whole);
  return STATUS_OK;
}

}  // namespace Pavex
