// The words of a refused assembly.

#include "pavex/assembly/plan_assembly.h"

#include <cstdarg>
#include <cstdio>

namespace Pavex {

namespace {

struct Words : AssemblyReason {
  // Writes the reason; what does not fit is cut.
  __attribute__((format(printf, 2, 3))) void Say(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(mText, sizeof mText, format, arguments);
    va_end(arguments);
  }
};

char const* NameOf(std::int64_t array) {
  static constexpr char const* kNames[] = {"row offsets",      "rows of the entries",
                                           "columns",          "values",
                                           "list of its rows", "map of columns"};
  return array >= 0 && array < 6 ? kNames[array] : "array";
}

// A row or column of a whole, of a process or of a map that has none.
void SayNone(Words& words, int p, char const* line, std::int64_t found) {
  words.Say("Process %d passes %s %ld, but there are no %ss; pass none.", p, line,
            static_cast<long>(found), line);
}

// What process `p` found wrong with what it was given.
void SayOwn(AssemblyFlaw flaw, int p, AssemblyVerdict const& verdict, Words& words) {
  long const at = verdict.mAt;
  long const found = verdict.mFound;
  long const limit = verdict.mLimit;
  long const last = limit - 1;
  switch (flaw) {
    case AssemblyFlaw::FAILED_STEP:
      return words.Say("Process %d could not prepare its piece: %s.", p,
                       PavexStatusStr(verdict.mStatus));
    case AssemblyFlaw::BAD_SHAPE:
      return words.Say("Process %d wants a whole of %ld x %ld; pass 0 to %ld.", p, at, found,
                       limit);
    case AssemblyFlaw::BAD_RECEIVER:
      return words.Say("Process %d wants receiver %ld; pass 0 to %ld, or kEverybody.", p, found,
                       last);
    case AssemblyFlaw::BAD_BASE:
      return words.Say("Process %d wants base %ld; pass 0 or 1.", p, found);
    case AssemblyFlaw::TOO_MANY_BLOCKS:
      return words.Say("Process %d passes %ld blocks; pass at most 2.", p, found);
    case AssemblyFlaw::MAP_FIRST:
      return words.Say("Process %d maps columns before it adds a block; add the block first.",
                       p);
    case AssemblyFlaw::NEGATIVE_COUNT:
      return words.Say("Process %d passes %ld rows, entries or columns; pass 0 or more.", p,
                       found);
    case AssemblyFlaw::MISSING_ARRAY:
      return words.Say("Process %d passes no %s; pass the array.", p, NameOf(limit));
    case AssemblyFlaw::BAND_OUTSIDE:
      return words.Say("Process %d has rows %ld to %ld of %ld; count the begin from 0.", p, at,
                       found, limit);
    case AssemblyFlaw::ROW_OUTSIDE:
      if (limit == 0) return SayNone(words, p, "row", found);
      return words.Say("Process %d, row %ld of its list is %ld; pass 0 to %ld.", p, at, found,
                       last);
    case AssemblyFlaw::OFFSETS_DESCEND:
      return words.Say("Process %d, row %ld has %ld entries; pass offsets that ascend.", p, at,
                       found);
    case AssemblyFlaw::ENTRY_OUTSIDE:
      if (limit == 0) return SayNone(words, p, "row", found);
      return words.Say("Process %d, entry %ld has row %ld; pass 0 to %ld.", p, at, found, last);
    case AssemblyFlaw::COLUMN_OUTSIDE:
      if (limit == 0) return SayNone(words, p, "column", found);
      return words.Say("Process %d, row %ld has column %ld; pass 0 to %ld.", p, at, found,
                       last);
    case AssemblyFlaw::MAP_OUTSIDE:
      if (limit == 0) return SayNone(words, p, "column", found);
      return words.Say("Process %d, column %ld of its map is %ld; pass 0 to %ld.", p, at, found,
                       last);
    case AssemblyFlaw::TOO_MANY_ENTRIES:
      return words.Say("Process %d passes %ld entries; use long indices.", p, found);
    case AssemblyFlaw::DENSE_ROWS:
      return words.Say("Process %d passes %ld dense rows; pass %ld.", p, found, limit);
    case AssemblyFlaw::DENSE_COLUMNS:
      return words.Say(
          "Process %d passes %ld columns of the whole and %ld of its own; pass as many.", p,
          found, limit);
    case AssemblyFlaw::DENSE_LEADING:
      return words.Say("Process %d passes leading dimension %ld; pass at least %ld.", p, found,
                       limit);
    case AssemblyFlaw::OTHER_COLUMNS:
      return words.Say(
          "Process %d passes %ld dense columns, process %ld passes %ld; pass as many.", p,
          found, at, limit);
    case AssemblyFlaw::OTHER_OPERATION:
      return words.Say(
          "Process %d calls another operation or overlap than process 0; call one.", p);
    case AssemblyFlaw::TOO_MANY_IN_ALL:
      return words.Say(
          "Up to process %d there are more than 2147483647 entries or rows; pass fewer.", p);
    case AssemblyFlaw::TOO_MANY_DENSE:
      return words.Say(
          "Process %d counts %ld x %ld elements, more than 2147483647; pass fewer columns.", p,
          at, found);
    default:
      return words.Say("Process %d refuses its piece for an unknown reason.", p);
  }
}

// What the records of process `p` and process 0 show together.
void SayTogether(AssemblyFlaw flaw, int p, AssemblyRecord const& record,
                 AssemblyRecord const& first, Words& words) {
  switch (flaw) {
    case AssemblyFlaw::OTHER_SHAPE:
      return words.Say(
          "Process %d wants a whole of %ld x %ld, process 0 wants %ld x %ld; pass one shape.",
          p, record.mWholeRows, record.mWholeCols, first.mWholeRows, first.mWholeCols);
    case AssemblyFlaw::OTHER_RECEIVER:
      return words.Say("Process %d wants receiver %d, process 0 wants %d; pass one receiver.",
                       p, record.mReceiver, first.mReceiver);
    default:
      return words.Say(
          "Process %d wants other values, order or base than process 0; pass one request.", p);
  }
}

}  // namespace

PavexStatus StatusOf(AssemblyFlaw flaw, AssemblyVerdict const& verdict) {
  switch (flaw) {
    case AssemblyFlaw::NONE:
      return STATUS_OK;
    case AssemblyFlaw::FAILED_STEP:
      return verdict.mStatus;
    case AssemblyFlaw::OTHER_SHAPE:
    case AssemblyFlaw::OTHER_RECEIVER:
    case AssemblyFlaw::OTHER_REQUEST:
    case AssemblyFlaw::OTHER_COLUMNS:
    case AssemblyFlaw::OTHER_OPERATION:
      return STATUS_INCONSISTENT;
    case AssemblyFlaw::TOO_MANY_IN_ALL:
    case AssemblyFlaw::TOO_MANY_DENSE:
    case AssemblyFlaw::TOO_MANY_ENTRIES:
      return STATUS_NOT_SUPPORTED;
    default:
      return STATUS_INVALID_VALUE;
  }
}

AssemblyReason ReasonOf(AssemblyFlaw flaw, int process, AssemblyVerdict const& verdict) {
  Words words;
  if (flaw != AssemblyFlaw::NONE) SayOwn(flaw, process, verdict, words);
  return words;
}

AssemblyReason ReasonOf(AssemblyPlan const& plan, Buffer<AssemblyRecord> const& records) {
  Words words;
  auto const process = static_cast<int>(plan.mProcess);
  AssemblyRecord const& record = records.mData[plan.mProcess];
  switch (plan.mFlaw) {
    case AssemblyFlaw::OTHER_SHAPE:
    case AssemblyFlaw::OTHER_RECEIVER:
    case AssemblyFlaw::OTHER_REQUEST:
      SayTogether(plan.mFlaw, process, record, records.mData[0], words);
      return words;
    default:
      return ReasonOf(plan.mFlaw, process, record);
  }
}

}  // namespace Pavex
