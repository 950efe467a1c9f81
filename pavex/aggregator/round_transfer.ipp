// Transfers of more elements than one call of a communicator moves: one call for each round.
// All processes make the same calls, also those that have nothing in a round.
//
// Included by aggregator.cpp.

#pragma once

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/rounds.h"
#include "pavex/aggregator/transfer.ipp"

#include <cstddef>

namespace Pavex {
namespace {

// One round as a process passes it to its communicator.
struct RoundCall {
  RoundPart own;      // of this process
  long base;          // where the round begins in the gathered array; 0 where there is none
  int const* counts;  // null where there is no gathered array
  int const* displs;
};

// The elements of an array after the first `count` ones.
template <typename Byte>
Byte* Behind(Byte* array, long count, Datatype type) {
  return count == 0 ? array : array + static_cast<std::size_t>(count) * DatatypeSize(type);
}

// Calls `call` for each round until one fails.
template <typename Call>
PavexStatus ForEachRound(Buffer<MatrixLocalInfo> const& records, Moved moved, int rank,
                         bool isReceiver, MemoryPool& pool, Call const& call) {
  Buffer<int> counts;
  Buffer<int> displs;
  if (isReceiver) {
    PavexStatus status = pool.Get(counts, records.mSize);
    if (status == STATUS_OK) status = pool.Get(displs, records.mSize);
    if (status != STATUS_OK) return status;
  }
  for (TransferPoint at; at.process < records.mSize;) {
    TransferRound const round = NextRound(records, moved, at);
    if (isReceiver) FillRound(records, moved, round, counts.mData, displs.mData);
    PavexStatus const status =
        call(RoundCall{PartOf(records, moved, round, rank), isReceiver ? round.base : 0,
                       counts.mData, displs.mData});
    if (status != STATUS_OK) return status;
    at = round.last;
  }
  return STATUS_OK;
}

}  // namespace

bool AggregatorBase::TakesRounds() const {
  return mMode != CENTRALIZED_ALL && mNnz > kMostPerCall;
}

PavexStatus AggregatorBase::CheckOwnEntries(long count) const {
  if (!TakesRounds()) return STATUS_OK;
  int const rank = mComm->Rank();
  bool const recorded = rank >= 0 && rank < mLocalInfos.mSize;
  return recorded && mLocalInfos.mData[rank].nnz == count ? STATUS_OK : STATUS_MISMATCH;
}

PavexStatus AggregatorBase::GatherRounds(Moved moved, void const* own, void* whole,
                                         Datatype type) const {
  auto const* const from = static_cast<char const*>(own);
  auto* const to = static_cast<char*>(whole);
  return ForEachRound(
      mLocalInfos, moved, mComm->Rank(), mIsReceiver, *mPool, [&](RoundCall const& round) {
        return GatherDistributed(
            Behind(from, round.own.skip, type), static_cast<int>(round.own.count),
            Behind(to, round.base, type), round.counts, round.displs, type, mRoot, *mComm);
      });
}

PavexStatus AggregatorBase::ScatterRounds(void const* whole, void* own, Datatype type) const {
  auto const* const from = static_cast<char const*>(whole);
  auto* const to = static_cast<char*>(own);
  return ForEachRound(mLocalInfos, Moved::ENTRIES, mComm->Rank(), mIsReceiver, *mPool,
                      [&](RoundCall const& round) {
                        return mComm->Scatterv(Behind(from, round.base, type), round.counts,
                                               round.displs, type,
                                               Behind(to, round.own.skip, type),
                                               static_cast<int>(round.own.count), type, mRoot);
                      });
}

}  // namespace Pavex
