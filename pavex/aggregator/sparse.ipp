// The common steps of the sparse paths: prepare arrays, move them, and build the gathered
// matrix.
//
// Included by aggregator.cpp.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "pavex/aggregator/round_transfer.ipp"
#include "pavex/aggregator/transfer.ipp"
#include "pavex/matrix/sparse_traits.h"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/log.h"

#include <utility>

namespace Pavex {

// Borrows the local array if the whole matrix is here already, wanted or not. Otherwise a
// receiver allocates `count` elements if they are wanted, and other processes only send.
template <typename T, typename I>
template <typename E>
PavexStatus Aggregator<T, I>::PrepareArray(Buffer<E> const& local, long count, bool wanted,
                                           Buffer<E>& array) {
  if (mLocalIsWhole) {
    array.Borrow(local.mData, local.mSize);
    return STATUS_OK;
  }
  if (!mIsReceiver || !wanted) return STATUS_OK;
  return Log::Report(mPool->Get(array, count));
}

// Moves one array of the entries: the whole one from its holder, or `localCount` elements from
// each process to the place where its entries start. Collective.
template <typename T, typename I>
template <typename E>
PavexStatus Aggregator<T, I>::TransferArray(Buffer<E> const& local, long localCount, int tag,
                                            Buffer<E>& array) {
  constexpr Datatype kType = DatatypeOf<E>::kValue;
  switch (mMode) {
    case CENTRALIZED_ONE:
      return Log::Report(TransferCentralized(array.mData, mNnz, kType, mSourceRank, mRoot,
                                             static_cast<Tag>(tag), *mComm));
    case DISTRIBUTED:
      if (TakesRounds())
        return Log::Report(GatherRounds(Moved::ENTRIES, local.mData, array.mData, kType));
      return Log::Report(GatherDistributed(local.mData, static_cast<int>(localCount),
                                           array.mData, mCounts.mData, mDispls.mData, kType,
                                           mRoot, *mComm));
    case CENTRALIZED_ALL:
      break;
  }
  return STATUS_OK;
}

// Builds the gathered matrix, which takes over the three arrays: it owns allocated ones and
// borrows borrowed ones.
template <typename T, typename I>
template <typename M>
void Aggregator<T, I>::SetSparseTarget(Buffer<I>& first, Buffer<I>& second, Buffer<T>& values) {
  auto* const target = new M;
  target->mRows = target->mGlobalRows = mRows;
  target->mCols = target->mGlobalCols = mCols;
  target->mPart = GetMatrixPart(mStoreType);
  Offsets(*target).Swap(first);
  Indices(*target).Swap(second);
  target->mValues.Swap(values);
  mTarget = target;
}

// Replaces the values of the gathered matrix by a new array and releases the old one, unless in
// place. Fixed: see docs/compatibility.md. A gathered matrix that owns its values never belongs
// to a process whose local matrix is the whole one.
template <typename T, typename I>
template <typename M>
PavexStatus Aggregator<T, I>::UpdateSparse(M const& local, bool inPlace) {
  // UpdateCOO comes here without the checks of Update.
  PavexStatus status = Log::Report(CheckOwnEntries(local.NNZ()));
  if (status != STATUS_OK) return status;

  auto* const target = dynamic_cast<M*>(mTarget);
  Buffer<T> const* const place =
      PlaceOfUpdate(target == nullptr || mLocalIsWhole ? nullptr : &target->mValues, inPlace);
  Buffer<T> values;
  if (place != nullptr)
    values.Borrow(place->mData, place->mSize);
  else
    status = PrepareArray(local.mValues, mNnz, true, values);
  if (status != STATUS_OK) return status;

  status = TransferArray(local.mValues, local.NNZ(), TAG_UPDATE, values);
  if (status != STATUS_OK) return status;

  // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): a receiver has a gathered matrix
  if (mIsReceiver && place == nullptr) target->mValues.Swap(values);
  return STATUS_OK;
}

}  // namespace Pavex
