// The dense gather and the update of a gathered dense matrix.
//
// Included by aggregator.cpp.

#pragma once

#include "pavex/aggregator/dense_layout.ipp"
#include "pavex/aggregator/dense_runs.ipp"
#include "pavex/aggregator/round_transfer.ipp"
#include "pavex/aggregator/transfer.ipp"

#include <algorithm>

namespace Pavex {
namespace {

// Makes a gathered matrix that takes over `values`.
template <typename T, typename I>
MatrixDense<T, I>* NewDense(long rows, long cols, bool rowMajor, long ld, Buffer<T>& values) {
  auto* const matrix = new MatrixDense<T, I>;
  matrix->mRows = matrix->mGlobalRows = rows;
  matrix->mCols = matrix->mGlobalCols = cols;
  matrix->mRowMajor = rowMajor;
  matrix->mValues.Swap(values);
  matrix->mLd = ld;
  return matrix;
}

}  // namespace

template <typename T, typename I>
PavexStatus Aggregator<T, I>::GatherDense(MatrixDense<T, I> const& local,
                                          GatherPlan const& plan) {
  Buffer<T> values;
  if (mMode == CENTRALIZED_ALL) {
    if (!mIsReceiver) return STATUS_OK;
    values.Borrow(local.mValues.mData, local.mValues.mSize);
    mTarget = NewDense<T, I>(mRows, mCols, local.mRowMajor, local.mLd, values);
    return STATUS_OK;
  }

  // A receiver allocates the values also if only the pattern is gathered. The gathered matrix
  // has the order of this process's own piece. Fixed: see docs/compatibility.md.
  PavexStatus status = mIsReceiver ? Log::Report(mPool->Get(values, mNnz)) : STATUS_OK;
  if (status == STATUS_OK && mWithValues) {
    status = Log::Report(CheckDense(plan.DenseFlaw(local.mRowMajor)));
    if (status == STATUS_OK) status = Log::Report(GatherDenseValues(local, nullptr, values));
  }
  if (status != STATUS_OK || !mIsReceiver) return status;
  mTarget =
      NewDense<T, I>(mRows, mCols, local.mRowMajor, LeadingDimension(local.mRowMajor), values);
  return STATUS_OK;
}

// Moves the values of all pieces, which CheckDense takes, into `values`, which on a receiver
// has room for all entries. With a `place` they end up there, and `values` views it.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::GatherDenseValues(MatrixDense<T, I> const& local,
                                                Buffer<T> const* place, Buffer<T>& values) {
  if (MovesRuns(local.mRowMajor)) return GatherDenseRuns(local, place, values);
  constexpr Datatype kType = DatatypeOf<T>::kValue;
  Buffer<T> packed;
  PavexStatus status = Log::Report(PackDenseValues(local, packed));
  if (status != STATUS_OK) return status;

  if (mMode == CENTRALIZED_ONE) {
    if (mLocalIsWhole && place == nullptr) values.Swap(packed);
    if (mLocalIsWhole && place != nullptr)
      CopyElements(1, mNnz, packed.mData, mNnz, values.mData, mNnz);
    // Only the caller reports a failure of this transfer. Fixed: see docs/compatibility.md.
    return TransferCentralized(values.mData, mNnz, kType, mSourceRank, mRoot, TAG_GATHER,
                               *mComm);
  }

  // In one call the whole packed array is sent. A value array that is longer than the piece
  // does not match the count that the receivers expect. Fixed: see docs/compatibility.md.
  status = Log::Report(CheckOwnEntries(std::min(packed.mSize, local.NNZ())));
  if (status != STATUS_OK) return status;
  if (TakesRounds())
    status = GatherRounds(Moved::ENTRIES, packed.mData, values.mData, kType);
  else
    status = GatherDistributed(packed.mData, static_cast<int>(packed.mSize), values.mData,
                               mCounts.mData, mDispls.mData, kType, mRoot, *mComm);
  if (Log::Report(status) != STATUS_OK || !mIsReceiver) return status;
  return Log::Report(Comm2Dense(local.mRowMajor, place, values));
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::UpdateDense(MatrixDense<T, I> const& local, bool inPlace) {
  auto* const target = dynamic_cast<MatrixDense<T, I>*>(mTarget);
  if (mMode == CENTRALIZED_ALL) {
    if (target == nullptr) return STATUS_OK;
    if (target->mLd != local.mLd) {
      Log::Error("Leading dimension is inconsistent with that in gather phase.");
      return STATUS_NOT_SUPPORTED;
    }
    target->mValues.Borrow(local.mValues.mData, local.mValues.mSize);
    return STATUS_OK;
  }

  // In place, values that are reordered arrive in a block of their own first.
  Buffer<T> const* const place =
      PlaceOfUpdate(target == nullptr ? nullptr : &target->mValues, inPlace);
  Buffer<T> values;
  PavexStatus status = STATUS_OK;
  bool const direct = place != nullptr &&
                      (ContiguousLocalSubmat(local.mRowMajor) || MovesRuns(local.mRowMajor));
  if (direct)
    values.Borrow(place->mData, place->mSize);
  else if (mIsReceiver)
    status = Log::Report(mPool->Get(values, mNnz));
  if (status == STATUS_OK) status = Log::Report(CheckDense(local.mRowMajor));
  if (status == STATUS_OK) status = Log::Report(GatherDenseValues(local, place, values));
  // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): a receiver has a gathered matrix
  if (status == STATUS_OK && mIsReceiver && place == nullptr) target->mValues.Swap(values);
  return status;
}

}  // namespace Pavex
