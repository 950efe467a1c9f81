#include "tests/support/round_check.h"

#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Pavex {

namespace {

// The elements that the rounds have not moved yet, in the order in which they must.
class Rest {
 public:
  Rest(Buffer<MatrixLocalInfo> const& records, Moved moved, TransferPoint const& from)
      : mRecords(records),
        mMoved(moved),
        mProcess(from.process),
        mTaken(from.taken),
        mBefore(from.before) {}

  // The number of elements of `process`. A negative size counts as 0.
  long CountOf(std::int64_t process) const {
    MatrixLocalInfo const& info = mRecords.mData[process];
    long const lines = mMoved == Moved::ROWS ? info.rows : info.cols;
    return std::max(mMoved == Moved::ENTRIES ? info.nnz : lines, 0L);
  }

  bool IsEmpty() {
    FindNext();
    return mProcess == mRecords.mSize;
  }

  // Takes `count` elements of `process`, from element `skip` on, placed from `place` on.
  // Returns whether they are the next ones.
  bool Take(std::int64_t process, long skip, long count, long place) {
    FindNext();
    if (process != mProcess || skip != mTaken || count > CountOf(process) - skip) return false;
    if (place != WrappingAdd(PlaceOf(process), skip)) return false;
    mTaken += count;
    return true;
  }

 private:
  void FindNext() {
    while (mProcess < mRecords.mSize && mTaken == CountOf(mProcess)) {
      mBefore = WrappingAdd(mBefore, mTaken);
      mTaken = 0;
      ++mProcess;
    }
  }

  // Where the elements of the current process begin.
  long PlaceOf(std::int64_t process) const {
    if (mMoved == Moved::ENTRIES) return mBefore;
    return WrappingSub(mRecords.mData[process].partition.begin,
                       mRecords.mData[0].partition.begin);
  }

  Buffer<MatrixLocalInfo> const& mRecords;
  Moved const mMoved;
  std::int64_t mProcess;
  long mTaken;   // of that process
  long mBefore;  // elements of the processes before it
};

// The call of a round, as a receiver makes it.
struct Call {
  std::vector<int> counts;
  std::vector<int> displs;
};

std::string CheckRound(Buffer<MatrixLocalInfo> const& records, Moved moved,
                       TransferRound const& round, long most, Call& call, Rest& rest) {
  FillRound(records, moved, round, call.counts.data(), call.displs.data());
  long sum = 0;
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    long const count = call.counts[static_cast<std::size_t>(p)];
    long const place = call.displs[static_cast<std::size_t>(p)];
    RoundPart const part = PartOf(records, moved, round, p);
    std::string const who = "process " + std::to_string(p) + ": ";
    if (count != part.count) return who + "sender and receiver count differently";
    if (count == 0 && place != 0) return who + "nothing has a place";
    if (count == 0) continue;
    if (count < 0 || place < 0 || count > most - place) return who + "beyond the limit";
    if (!rest.Take(p, part.skip, count, WrappingAdd(round.base, place)))
      return who + "these are not the next elements, or not their place";
    sum += count;
  }
  if (sum > most) return "too many elements";
  bool const last = rest.IsEmpty();
  if (sum == 0 && !last) return "nothing moves";
  bool const full = sum == most || last || moved != Moved::ENTRIES;
  return full ? "" : "the round is not full";
}

}  // namespace

std::string CheckRounds(Buffer<MatrixLocalInfo> const& records, Moved moved, long most,
                        TransferPoint const& from, long mostRounds) {
  auto const processes = static_cast<std::size_t>(records.mSize);
  Call call{std::vector<int>(processes), std::vector<int>(processes)};
  Rest rest(records, moved, from);
  TransferPoint at = from;
  long rounds = 0;
  for (; at.process < records.mSize && rounds < mostRounds; ++rounds) {
    TransferRound const round = NextRound(records, moved, at, most);
    std::string const problem = CheckRound(records, moved, round, most, call, rest);
    if (!problem.empty()) return "round " + std::to_string(rounds) + ", " + problem;
    at = round.last;
  }
  bool const ends = at.process == records.mSize;
  if (ends != rest.IsEmpty()) return "the rounds end too early or too late";
  if (from.process != 0 || from.taken != 0) return "";
  // A band without rows may lie where one call cannot place it.
  bool const one = ends && rounds <= 1;
  bool const countable = IsOneRound(records, moved, most);
  if (countable && !one) return "one call is enough";
  if (one && !countable && moved == Moved::ENTRIES) return "one call is not taken for enough";
  return "";
}

}  // namespace Pavex
