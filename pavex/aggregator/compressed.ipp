// The compressed-row and compressed-column path, one template for both. Only the offsets are
// transformed: every process sends the lengths of its rows (columns). The receiver places them
// by the begins of the pieces and adds them up, so gathered offsets start at 0. Indices and
// values are concatenated in rank order. Fixed: see docs/compatibility.md.
//
// Example, two row bands: offsets [1, 3, 4] and [0, 2] give lengths [2, 1] and [2], placed at 0
// and 2 of the gathered array, which the running sum turns into [0, 2, 3, 5].
//
// Where every process stores its piece itself, the processes send [0, 2] and [3] in the same
// calls. The receiver adds nothing up, and only writes the last offset.
//
// Included by aggregator.cpp.

#pragma once

#include "pavex/aggregator/round_transfer.ipp"
#include "pavex/aggregator/rules.h"
#include "pavex/aggregator/sparse.ipp"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <cstdint>

namespace Pavex {
namespace {

// Computes the lengths of the rows (columns) from their offsets. Without offsets, all rows
// (columns) are empty.
template <typename I>
void LengthsFromOffsets(Buffer<I> const& ptr, Buffer<I>& lengths) {
  if (ptr.mSize == 0) {
    std::fill_n(lengths.mData, lengths.mSize, I{0});
    return;
  }
  for (std::int64_t i = 0; i < lengths.mSize; ++i) {
    lengths.mData[i] = WrappingSub(ptr.mData[i + 1], ptr.mData[i]);
  }
}

// Computes the offsets of the rows (columns) as they are if the first one is `first`. Without
// offsets, all rows (columns) are empty.
template <typename I>
void OffsetsFrom(I first, Buffer<I> const& ptr, Buffer<I>& offsets) {
  if (ptr.mSize == 0) {
    std::fill_n(offsets.mData, offsets.mSize, first);
    return;
  }
  I const shift = WrappingSub(first, ptr.mData[0]);
  for (std::int64_t i = 0; i < offsets.mSize; ++i)
    offsets.mData[i] = WrappingAdd(ptr.mData[i], shift);
}

// Turns `count` lengths into `count` + 1 offsets from 0, in place.
template <typename I>
void OffsetsFromLengths(std::int64_t count, I* offsets) {
  I sum = 0;
  for (std::int64_t i = 0; i < count; ++i) {
    I const length = offsets[i];
    offsets[i] = sum;
    sum = WrappingAdd(sum, length);
  }
  offsets[count] = sum;
}

}  // namespace

// Bands of the compressed dimension have their rows (columns) and entries in rank order, and
// the records count the entries: NNZ() is the difference of the last and the first offset. So
// the sums of the lengths are known before anything moves. Other pieces may overlap or leave
// gaps, and their offsets are known only to who adds up. A plan that is not refused ensures
// that I can count all entries.
bool AggregatorBase::SendsOffsets(bool byRows) const {
  return mPartition.type == BandsOf(byRows) && mComm->Strided();
}

template <typename T, typename I>
template <typename M>
PavexStatus Aggregator<T, I>::GatherCSRC(M const& local, GatherPlan const& plan) {
  if (plan.mFlaw == GatherFlaw::OFFSETS_TOO_SMALL) {
    Log::Error("Offsets of type int cannot count %ld entries. Use long.", mNnz);
    return plan.mStatus;
  }
  Buffer<I> const& localIdx = Indices(local);
  Buffer<I> offsets;
  Buffer<I> indices;
  Buffer<T> values;
  PavexStatus status = Log::Report(GatherOffsets(local, plan, offsets));
  if (status == STATUS_OK) status = PrepareArray(localIdx, mNnz, true, indices);
  if (status == STATUS_OK) status = PrepareArray(local.mValues, mNnz, mWithValues, values);
  if (status != STATUS_OK) return status;

  status = TransferArray(localIdx, local.NNZ(), TAG_GATHER, indices);
  if (status == STATUS_OK && mWithValues) {
    status = TransferArray(local.mValues, local.NNZ(), TAG_GATHER, values);
  }
  if (status != STATUS_OK) return status;

  if (mIsReceiver) SetSparseTarget<M>(offsets, indices, values);
  return STATUS_OK;
}

template <typename T, typename I>
template <typename M>
PavexStatus Aggregator<T, I>::GatherOffsets(M const& local, GatherPlan const& plan,
                                            Buffer<I>& offsets) {
  int const size = mComm->Size();
  long const count = PickCompressed<M>(mRows, mCols);
  long const entries = WrappingAdd(count, 1L);
  Buffer<I> const& ptr = Offsets(local);
  if (plan.mStage == GatherStage::OFFSETS) return Log::Report(plan.mStatus);

  PavexStatus status = PrepareArray(ptr, entries, true, offsets);
  if (status != STATUS_OK || mMode == CENTRALIZED_ALL) return status;
  if (mMode == DISTRIBUTED) return GatherLines(local, size, count, offsets);

  bool const sends = mLocalIsWhole && mRoot != mSourceRank;
  if (sends && ptr.mSize == 0) {  // without offsets every row (column) is empty
    status = Log::Report(mPool->Get(offsets, entries));
    if (status != STATUS_OK) return status;
    std::fill_n(offsets.mData, entries, I{0});
  }
  // Only the caller reports a failure of this transfer. Fixed: see docs/compatibility.md.
  return TransferCentralized(offsets.mData, entries, DatatypeOf<I>::kValue, mSourceRank, mRoot,
                             TAG_GATHER, *mComm);
}

PavexStatus AggregatorBase::PlaceLines(bool byRows, int size, Buffer<int>& counts,
                                       Buffer<int>& displs) const {
  PavexStatus status = Log::Report(mPool->Get(counts, size));
  if (status == STATUS_OK) status = Log::Report(mPool->Get(displs, size));
  if (status != STATUS_OK) return status;
  for (int p = 0; p < size; ++p) {
    MatrixLocalInfo const& info = mLocalInfos.mData[p];
    counts.mData[p] = static_cast<int>(info.Lines(byRows));
    displs.mData[p] = static_cast<int>(LocalRowColBegin(info.partition));
  }
  return STATUS_OK;
}

template <typename T, typename I>
template <typename M>
PavexStatus Aggregator<T, I>::GatherLines(M const& local, int size, long count,
                                          Buffer<I>& offsets) {
  constexpr bool kByRows = SparseTraits<M>::kByRows;
  constexpr Moved kMoved = kByRows ? Moved::ROWS : Moved::COLS;
  bool const oneCall = IsOneRound(mLocalInfos, kMoved);
  Buffer<int> counts;
  Buffer<int> displs;
  PavexStatus status = STATUS_OK;
  if (mIsReceiver && oneCall) status = PlaceLines(kByRows, size, counts, displs);
  Buffer<I> sent;
  if (status == STATUS_OK)
    status = Log::Report(mPool->Get(sent, PickCompressed<M>(local.mRows, local.mCols)));
  if (status != STATUS_OK) return status;
  mPool->WillWrite(sent.mData, static_cast<std::size_t>(sent.mSize) * sizeof(I));
  bool const placed = SendsOffsets(kByRows);
  if (placed)
    OffsetsFrom(static_cast<I>(EntriesBefore(mLocalInfos, mComm->Rank())), Offsets(local),
                sent);
  else
    LengthsFromOffsets(Offsets(local), sent);

  constexpr Datatype kType = DatatypeOf<I>::kValue;
  if (oneCall)
    status = GatherDistributed(sent.mData, static_cast<int>(sent.mSize), offsets.mData,
                               counts.mData, displs.mData, kType, mRoot, *mComm);
  else
    status = GatherRounds(kMoved, sent.mData, offsets.mData, kType);
  if (Log::Report(status) != STATUS_OK || !mIsReceiver) return status;
  if (placed)
    offsets.mData[count] = static_cast<I>(mNnz);
  else
    OffsetsFromLengths(count, offsets.mData);
  return STATUS_OK;
}

}  // namespace Pavex
