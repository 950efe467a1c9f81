// The values of an assembled matrix: what a process sends is added up first, then moved, and
// added up again on a receiver that merges.
//
// Included by assembler.cpp.

#pragma once

#include "pavex/assembly/assembler.h"
#include "pavex/runtime/log.h"

#include <algorithm>
#include <cstdint>

namespace Pavex {
namespace {

// Adds each value to its slot. Every slot gets at least one. Asks early for what comes from
// memory: the additions are too slow to make the hardware read far ahead.
template <typename T, typename I>
void AddToSlots(T const* values, I const* slots, std::int64_t count, T* sums) {
  constexpr std::int64_t kLine = 64 / std::int64_t{sizeof(T)};  // values in a line of the cache
  constexpr std::int64_t kAhead = 64 * kLine;
  std::int64_t k = 0;
  for (; k < count - kAhead; k += kLine) {
    __builtin_prefetch(values + k + kAhead);
    __builtin_prefetch(slots + k + kAhead);
    for (std::int64_t j = k; j < k + kLine; ++j)
      sums[slots[j]] += values[j];
  }
  for (; k < count; ++k)
    sums[slots[k]] += values[k];
}

// Exchanges two buffers, and exchanges them back at the end of the scope, also if an exception
// of the application ends it.
template <typename T>
class Exchanged {
 public:
  Exchanged(Buffer<T>& a, Buffer<T>& b) : mA(a), mB(b) { mA.Swap(mB); }
  ~Exchanged() { mA.Swap(mB); }
  Exchanged(Exchanged const&) = delete;
  Exchanged& operator=(Exchanged const&) = delete;

 private:
  Buffer<T>& mA;
  Buffer<T>& mB;
};

}  // namespace

template <typename T, typename I>
PavexStatus Assembler<T, I>::Update(T const* values, T const* second) {
  T const* const given[2] = {values, second};
  return UpdateGathered(given, false);
}

template <typename T, typename I>
PavexStatus Assembler<T, I>::UpdateInPlace(T const* values, T const* second) {
  T const* const given[2] = {values, second};
  return UpdateGathered(given, true);
}

template <typename T, typename I>
PavexStatus Assembler<T, I>::UpdateGathered(T const* const* given, bool inPlace) {
  if (!mGathered) return RefuseUngathered(AssemblyOperation::UPDATE);
  return BringValues(given, inPlace, STATUS_OK);
}

// Gives the whole new values, in its array if `inPlace` and if it has one. `before`: the status
// of what this process did since the last agreement.
template <typename T, typename I>
PavexStatus Assembler<T, I>::BringValues(T const* const* given, bool inPlace,
                                         PavexStatus before) {
  if (mPlan.mPath == AssemblyPath::NOTHING) {  // they agree, and nothing moves
    AssemblyVerdict verdict;
    verdict.NoteStep(before);
    return Log::Report(AgreeOn(verdict, AssemblyOperation::UPDATE));
  }
  Buffer<T> whole;
  bool const stays =
      inPlace && mWhole.mValues.mAllocator != nullptr && mWhole.mValues.mSize == mWholeEntries;
  PavexStatus const status =
      Log::Report(MoveAndAdd(given, before, stays ? mWhole.mValues : whole));
  if (!stays && status == STATUS_OK) mWhole.mValues.Swap(whole);
  return status;
}

// `whole`: the array for the values of the whole; empty: a receiver takes one.
template <typename T, typename I>
PavexStatus Assembler<T, I>::MoveAndAdd(T const* const* given, PavexStatus before,
                                        Buffer<T>& whole) {
  AssemblyVerdict verdict;
  Buffer<T> sums;
  Buffer<T> arrived;
  verdict.NoteStep(before);
  T const* const sent = PrepareValues(given, sums, verdict);
  MakeRoom(whole, arrived, verdict);
  PavexStatus status = Log::Report(AgreeOn(verdict, AssemblyOperation::UPDATE));
  if (status != STATUS_OK) return status;

  bool const merges = mPlan.mPath == AssemblyPath::MERGE;
  status = Log::Report(MoveValues(sent, merges ? arrived : whole));
  if (status == STATUS_OK && merges && mHasWhole) AddValues(arrived.mData, whole.mData);
  return status;
}

// The values that this process sends: those given, or their sums.
template <typename T, typename I>
T const* Assembler<T, I>::PrepareValues(T const* const* given, Buffer<T>& sums,
                                        AssemblyVerdict& verdict) {
  for (int b = 0; b < 2 && verdict.Flawless(); ++b) {
    if (mEntries[b] > 0 && given[b] == nullptr) verdict.NoteMissing(AssemblyArray::VALUES);
    if (mEntries[1] > 0) verdict.NotePart(PartOfBlock(b));
  }
  if (!verdict.Flawless() || mSlots.mData == nullptr) return given[0];
  verdict.NoteStep(mPool->Get(sums, mSent.mEntries));
  if (!verdict.Flawless()) return nullptr;
  std::fill_n(sums.mData, sums.mSize, kNothing<T>);
  AddToSlots(given[0], mSlots.mData, mEntries[0], sums.mData);
  AddToSlots(given[1], mSlots.mData + mEntries[0], mEntries[1], sums.mData);
  return sums.mData;
}

// Takes what a receiver needs before the processes agree, so that all know if it has no room.
template <typename T, typename I>
void Assembler<T, I>::MakeRoom(Buffer<T>& whole, Buffer<T>& arrived,
                               AssemblyVerdict& verdict) const {
  if (!mHasWhole || !verdict.Flawless()) return;
  if (whole.mData == nullptr) verdict.NoteStep(mPool->Get(whole, mWholeEntries));
  if (mPlan.mPath != AssemblyPath::MERGE || !verdict.Flawless()) return;
  verdict.NoteStep(mPool->Get(arrived, mPlan.mNnz));
}

// Brings the values of all pieces to the receivers, in the order of the stack. `arrived` has
// room for them there.
template <typename T, typename I>
PavexStatus Assembler<T, I>::MoveValues(T const* sent, Buffer<T>& arrived) {
  if (mRecords.mSize == 1) {
    std::copy_n(sent, mSent.mEntries, arrived.mData);
    return STATUS_OK;
  }
  T none{};  // stands for the values of a piece without entries, of which nothing is sent
  bool const sends = mSent.mEntries > 0;
  Buffer<T> values;
  values.Borrow(sends ? const_cast<T*>(sent) : &none, sends ? mSent.mEntries : 1);
  Exchanged<T> const lent(mSent.mValues, values);
  auto* const stacked = mStack->template TargetAs<MatrixCSR<T, I>>();
  Buffer<T> elsewhere;  // a process that does not receive has no stack
  Exchanged<T> const taken(stacked != nullptr ? stacked->mValues : elsewhere, arrived);
  return Log::Report(mStack->UpdateInPlace(mSent));
}

// Turns the values that arrived into those of the whole. Rows that follow each other there too
// move together.
template <typename T, typename I>
void Assembler<T, I>::AddValues(T const* arrived, T* whole) const {
  MergeMap<I> const& map = mMergeMap;
  I const* const offsets = map.mOffsets.mData;
  I const* const places = map.mPlaces.mData;
  for (std::int64_t k = 0; k < map.mSums.mSize; k += 2)
    std::fill_n(whole + map.mSums.mData[k], map.mSums.mData[k + 1], kNothing<T>);
  std::int64_t end = 0;
  for (std::int64_t s = 0; s < map.mPlaces.mSize; s = end) {
    I const begin = offsets[s];
    I const place = places[s];
    end = s + 1;
    if (place < 0) {
      AddToSlots(arrived + begin, map.mSlots.mData + (-1 - place), offsets[end] - begin, whole);
      continue;
    }
    while (end < map.mPlaces.mSize && places[end] == place + (offsets[end] - begin))
      ++end;
    std::copy_n(arrived + begin, offsets[end] - begin, whole + place);
  }
}

}  // namespace Pavex
