// The lists of rows that a receiver of a gather needs: rows that processes have in any order,
// and rows with entries.
//
// Included by assembler.cpp.

#pragma once

#include "pavex/assembly/assembler.h"
#include "pavex/assembly/merge.h"
#include "pavex/runtime/log.h"

#include <algorithm>
#include <cstdint>

namespace Pavex {

// Brings one list of each process to the receivers, by rank.
template <typename T, typename I>
PavexStatus Assembler<T, I>::GatherList(I const* list, std::int64_t count,
                                        std::int64_t (AssemblyRecord::*countOf)() const,
                                        std::int64_t total, Buffer<I>& lists) {
  if (total == 0) return STATUS_OK;
  if (mRecords.mSize == 1) {
    PavexStatus const status = Log::Report(mPool->Get(lists, total));
    if (status == STATUS_OK) std::copy_n(list, count, lists.mData);
    return status;
  }
  Buffer<int> counts;
  Buffer<int> displs;
  if (Receives()) {
    PavexStatus status = Log::Report(mPool->Get(lists, total));
    if (status == STATUS_OK) status = Log::Report(mPool->Get(counts, mRecords.mSize));
    if (status == STATUS_OK) status = Log::Report(mPool->Get(displs, mRecords.mSize));
    if (status != STATUS_OK) return status;
    int displ = 0;
    for (std::int64_t p = 0; p < mRecords.mSize; ++p) {
      counts.mData[p] = static_cast<int>((mRecords.mData[p].*countOf)());
      displs.mData[p] = displ;
      displ += counts.mData[p];
    }
  }
  constexpr Datatype kType = DatatypeOf<I>::kValue;
  int const sent = static_cast<int>(count);
  if (mRequest.mReceiver == kEverybody)
    return mComm->Allgatherv(list, sent, kType, lists.mData, counts.mData, displs.mData, kType);
  return mComm->Gatherv(list, sent, kType, lists.mData, counts.mData, displs.mData, kType,
                        mRequest.mReceiver);
}

template <typename T, typename I>
PavexStatus Assembler<T, I>::GatherLists(Contribution<T, I> const& own, Parts& parts) {
  AssemblyRecord const& record = mRecords.mData[mRank];
  PavexStatus const status =
      Log::Report(GatherList(own.Pattern().mRowList, record.Listed(), &AssemblyRecord::Listed,
                             mPlan.mListed, parts.mLists.mListed));
  if (status != STATUS_OK) return status;
  return Log::Report(GatherList(parts.mPiece.mTouched.mData, record.Touched(),
                                &AssemblyRecord::Touched, mPlan.mTouched,
                                parts.mLists.mTouched));
}

}  // namespace Pavex
