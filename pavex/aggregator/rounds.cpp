#include "pavex/aggregator/rounds.h"

#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace Pavex {

namespace {

using Records = Buffer<MatrixLocalInfo>;

long CountOf(MatrixLocalInfo const& info, Moved moved) {
  long const count = moved == Moved::ENTRIES ? info.nnz : info.Lines(moved == Moved::ROWS);
  return std::max(count, 0L);
}

// Where the elements of a process begin in the gathered array, if the earlier processes have
// `before` elements. Bands are placed by their distance from the first one.
long PlaceOf(Records const& records, Moved moved, std::int64_t process, long before) {
  if (moved == Moved::ENTRIES) return before;
  return WrappingSub(records.mData[process].partition.begin, records.mData[0].partition.begin);
}

// The places that a round fills so far, and what it may still take.
class Extent {
 public:
  // A round with nothing in it; its first element goes to `place`.
  Extent(long place, long most) : mLow(place), mHigh(place), mMost(most), mRoom(most) {}

  long Low() const { return mLow; }

  // Takes as many of `count` elements, placed from `place` on, as fit; returns how many.
  long Take(long place, long count) {
    long const low = std::min(mLow, place);
    if (Distance(low, mHigh) > mMost || Distance(low, place) >= mMost) return 0;
    long const taken = std::min({count, mRoom, mMost - Distance(low, place)});
    if (taken == 0) return 0;
    mLow = low;
    mHigh = std::max(mHigh, WrappingAdd(place, taken));
    mRoom -= taken;
    return taken;
  }

 private:
  // Records may place pieces further apart than a long can count.
  static long Distance(long low, long high) {
    long const distance = WrappingSub(high, low);
    return distance < 0 ? std::numeric_limits<long>::max() : distance;
  }

  long mLow;
  long mHigh;
  long mMost;
  long mRoom;
};

}  // namespace

TransferRound NextRound(Records const& records, Moved moved, TransferPoint const& from,
                        long most) noexcept {
  TransferRound round{from, from, 0};
  TransferPoint& at = round.last;
  std::optional<Extent> extent;
  for (; at.process < records.mSize; ++at.process) {
    long const count = CountOf(records.mData[at.process], moved);
    long const left = count - at.taken;
    if (left > 0) {
      long const place = WrappingAdd(PlaceOf(records, moved, at.process, at.before), at.taken);
      if (!extent) extent.emplace(place, most);
      long const taken = extent->Take(place, left);
      at.taken += taken;
      if (taken < left) break;
    }
    at.before = WrappingAdd(at.before, count);
    at.taken = 0;
  }
  if (extent) round.base = extent->Low();
  return round;
}

bool IsOneRound(Records const& records, Moved moved, long most) noexcept {
  long sum = 0;
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    long const count = CountOf(records.mData[p], moved);
    long const place = PlaceOf(records, moved, p, sum);
    if (place < 0 || place > most || count > most - place || count > most - sum) return false;
    sum += count;
  }
  return true;
}

RoundPart PartOf(Records const& records, Moved moved, TransferRound const& round,
                 std::int64_t process) noexcept {
  if (process < round.first.process || process > round.last.process) return {};
  long const skip = process == round.first.process ? round.first.taken : 0;
  long const end =
      process == round.last.process ? round.last.taken : CountOf(records.mData[process], moved);
  return {skip, end - skip};
}

void FillRound(Records const& records, Moved moved, TransferRound const& round, int* counts,
               int* displs) noexcept {
  std::fill_n(counts, records.mSize, 0);
  std::fill_n(displs, records.mSize, 0);
  long before = round.first.before;
  for (std::int64_t p = round.first.process; p < records.mSize && p <= round.last.process;
       ++p) {
    RoundPart const part = PartOf(records, moved, round, p);
    if (part.count > 0) {
      long const place = WrappingAdd(PlaceOf(records, moved, p, before), part.skip);
      counts[p] = static_cast<int>(part.count);
      displs[p] = static_cast<int>(WrappingSub(place, round.base));
    }
    before = WrappingAdd(before, CountOf(records.mData[p], moved));
  }
}

long EntriesBefore(Records const& records, std::int64_t process) noexcept {
  long before = 0;
  for (std::int64_t p = 0; p < process; ++p)
    before = WrappingAdd(before, records.mData[p].nnz);
  return before;
}

}  // namespace Pavex
