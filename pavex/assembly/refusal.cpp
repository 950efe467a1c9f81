// The words of a refused assembly.

#include "pavex/assembly/decisions.h"

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

char const* NameOfPart(std::int16_t part) {
  static constexpr char const* kNames[] = {"", " of block 1", " of block 2", " of the whole",
                                           " of its own"};
  return part >= 0 && part < 5 ? kNames[part] : "";
}

// A row or column of a whole, of a process or of a map that has none.
void SayNone(Words& words, int p, char const* line, AssemblyVerdict const& verdict) {
  words.Say("Process %d passes %s %ld%s, but there are no %ss; pass none, or set the shape.", p,
            line, static_cast<long>(verdict.mFound), NameOfPart(verdict.mPart), line);
}

// The pool of process `p` failed. Its own reasons may be other ones than that it is full.
void SayFailedStep(PavexStatus status, int p, Words& words) {
  if (status == STATUS_OUT_OF_MEMORY)
    return words.Say("Process %d got no memory from its pool: %s; give it more.", p,
                     PavexStatusStr(status));
  words.Say("Process %d got no memory from its pool: %s; look there.", p,
            PavexStatusStr(status));
}

// What process `p` found wrong with what it was given.
void SayOwn(AssemblyFlaw flaw, int p, AssemblyVerdict const& verdict, Words& words) {
  long const at = verdict.mAt;
  long const found = verdict.mFound;
  long const limit = verdict.mLimit;
  long const last = limit - 1;
  char const* const of = NameOfPart(verdict.mPart);
  switch (flaw) {
    case AssemblyFlaw::FAILED_STEP:
      return SayFailedStep(verdict.mStatus, p, words);
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
      return words.Say("Process %d passes %ld rows, entries or columns%s; pass 0 or more.", p,
                       found, of);
    case AssemblyFlaw::MISSING_ARRAY:
      return words.Say("Process %d passes no %s%s; pass the array.", p, NameOf(limit), of);
    case AssemblyFlaw::BAND_OUTSIDE:
      return words.Say(
          "Process %d has rows %ld to %ld of %ld; correct its begin, its rows or mRows.", p, at,
          found, limit);
    case AssemblyFlaw::ROW_OUTSIDE:
      if (limit == 0) return SayNone(words, p, "row", verdict);
      return words.Say("Process %d, row %ld of its list is %ld; pass 0 to %ld.", p, at, found,
                       last);
    case AssemblyFlaw::OFFSETS_DESCEND:
      return words.Say("Process %d, row %ld%s has %ld entries; pass offsets that ascend.", p,
                       at, of, found);
    case AssemblyFlaw::ENTRY_OUTSIDE:
      if (limit == 0) return SayNone(words, p, "row", verdict);
      return words.Say("Process %d, entry %ld%s has row %ld; pass 0 to %ld.", p, at, of, found,
                       last);
    case AssemblyFlaw::COLUMN_OUTSIDE:
      if (limit == 0) return SayNone(words, p, "column", verdict);
      return words.Say("Process %d, row %ld%s has column %ld; pass 0 to %ld.", p, at, of, found,
                       last);
    case AssemblyFlaw::MAP_OUTSIDE:
      if (limit == 0) return SayNone(words, p, "column", verdict);
      return words.Say("Process %d, column %ld of its map%s is %ld; pass 0 to %ld.", p, at, of,
                       found, last);
    case AssemblyFlaw::TOO_MANY_ENTRIES:
      return words.Say("Process %d passes %ld entries; use long indices.", p, found);
    case AssemblyFlaw::DENSE_ROWS:
      return words.Say("Process %d passes %ld dense rows%s; pass %ld.", p, found, of, limit);
    case AssemblyFlaw::DENSE_COLUMNS:
      return words.Say(
          "Process %d passes %ld columns of the whole and %ld of its own; pass as many.", p,
          found, limit);
    case AssemblyFlaw::DENSE_LEADING:
      return words.Say("Process %d passes leading dimension %ld%s; pass at least %ld.", p,
                       found, of, limit);
    case AssemblyFlaw::DENSE_SHORT:
      return words.Say("Process %d passes %ld values%s; pass at least %ld.", p, found, of,
                       limit);
    case AssemblyFlaw::NOT_GATHERED:
      return words.Say("Process %d has gathered nothing; gather on all processes first.", p);
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
    case AssemblyFlaw::TOO_MANY_FROM_1:
      return words.Say(
          "Up to process %d there is one entry more than base 1 counts; pass base 0.", p);
    case AssemblyFlaw::TOO_MANY_DENSE:
      return words.Say(
          "Process %d counts %ld x %ld elements, more than 2147483647; pass fewer columns.", p,
          at, found);
    default:
      return words.Say(
          "Process %d refuses its piece for an unknown reason; run one version of the library.",
          p);
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
    case AssemblyFlaw::OTHER_VALUES:
      return words.Say("Process %d wants %s, process 0 wants %s; pass one request.", p,
                       record.mWithValues != 0 ? "values" : "no values",
                       first.mWithValues != 0 ? "values" : "no values");
    case AssemblyFlaw::OTHER_ORDER:
      return words.Say("Process %d wants columns %s, process 0 wants them %s; pass one order.",
                       p, record.mSortColumns != 0 ? "sorted" : "in any order",
                       first.mSortColumns != 0 ? "sorted" : "in any order");
    default:
      return words.Say("Process %d wants base %d, process 0 wants %d; pass one base.", p,
                       record.mBase, first.mBase);
  }
}

}  // namespace

PavexStatus StatusOf(AssemblyFlaw flaw, AssemblyVerdict const& verdict) {
  switch (flaw) {
    case AssemblyFlaw::FAILED_STEP:  // with any status, if a peer is of another version
      return verdict.mStatus != STATUS_OK ? verdict.mStatus : STATUS_INVALID_VALUE;
    case AssemblyFlaw::OTHER_SHAPE:
    case AssemblyFlaw::OTHER_RECEIVER:
    case AssemblyFlaw::OTHER_VALUES:
    case AssemblyFlaw::OTHER_ORDER:
    case AssemblyFlaw::OTHER_BASE:
    case AssemblyFlaw::OTHER_COLUMNS:
    case AssemblyFlaw::OTHER_OPERATION:
      return STATUS_INCONSISTENT;
    case AssemblyFlaw::NOT_GATHERED:
      return STATUS_WRONG_ORDER;
    case AssemblyFlaw::TOO_MANY_IN_ALL:
    case AssemblyFlaw::TOO_MANY_FROM_1:
    case AssemblyFlaw::TOO_MANY_DENSE:
    case AssemblyFlaw::TOO_MANY_ENTRIES:
      return STATUS_NOT_SUPPORTED;
    default:
      return STATUS_INVALID_VALUE;
  }
}

AssemblyReason ReasonOf(AssemblyFlaw flaw, int process, AssemblyVerdict const& verdict) {
  Words words;
  SayOwn(flaw, process, verdict, words);
  return words;
}

AssemblyReason ReasonOf(AssemblyPlan const& plan, Buffer<AssemblyRecord> const& records) {
  Words words;
  auto const process = static_cast<int>(plan.mProcess);
  AssemblyRecord const& record = records.mData[plan.mProcess];
  switch (plan.mFlaw) {
    case AssemblyFlaw::OTHER_SHAPE:
    case AssemblyFlaw::OTHER_RECEIVER:
    case AssemblyFlaw::OTHER_VALUES:
    case AssemblyFlaw::OTHER_ORDER:
    case AssemblyFlaw::OTHER_BASE:
      SayTogether(plan.mFlaw, process, record, records.mData[0], words);
      return words;
    default:
      return ReasonOf(plan.mFlaw, process, record);
  }
}

}  // namespace Pavex
