// How a matrix is put together, as a value. It is decided from one record per process, which
// cross process boundaries, so all processes decide identically.

#pragma once

#include "pavex/runtime/export.h"
#include "pavex/runtime/status.h"

#include <cstdint>
#include <type_traits>

namespace Pavex {

// What the processes want; equal on all of them.
struct AssemblyRequest {
  std::int64_t mRows = 0;    // rows of the whole
  std::int64_t mCols = 0;    // columns of the whole
  int mReceiver = 0;         // the rank that gets the whole, or kEverybody
  bool mWithValues = true;   // false: the pattern only; Update brings values later
  bool mSortColumns = true;  // the columns of each row ascend
  int mBase = 0;             // 0 or 1: what the offsets and indices of the whole count from
};

// Why an assembly is refused.
enum class AssemblyFlaw : std::int16_t {
  NONE,
  // What one process found wrong with what it was given.
  FAILED_STEP,       // its pool failed; the status says how
  BAD_SHAPE,         // the shape of the whole is negative or beyond the index type
  BAD_RECEIVER,      // no such rank
  BAD_BASE,          // neither 0 nor 1
  TOO_MANY_BLOCKS,   // more than two
  MAP_FIRST,         // a map of columns before the first block
  NEGATIVE_COUNT,    // a number of rows, entries or columns
  MISSING_ARRAY,     // the limit of the record is an AssemblyArray
  BAND_OUTSIDE,      // rows beyond the whole
  ROW_OUTSIDE,       // an element of the list of rows
  OFFSETS_DESCEND,   // an offset is smaller than the one before
  ENTRY_OUTSIDE,     // the row of an entry
  COLUMN_OUTSIDE,    // the column of an entry
  MAP_OUTSIDE,       // an element of the map of columns
  TOO_MANY_ENTRIES,  // of one process, beyond the index type
  DENSE_ROWS,        // rows of a dense matrix
  DENSE_COLUMNS,     // columns of the whole dense matrix
  DENSE_LEADING,     // a leading dimension below the length of a run
  DENSE_SHORT,       // a value array that ends before the last element
  NOT_GATHERED,      // its last gather has failed
  // What the processes show together.
  OTHER_SHAPE,
  OTHER_RECEIVER,
  OTHER_VALUES,  // one wants the pattern only
  OTHER_ORDER,   // one wants the columns sorted
  OTHER_BASE,
  OTHER_COLUMNS,    // of a dense matrix
  OTHER_OPERATION,  // or a collect with the other overlap
  TOO_MANY_IN_ALL,  // entries or rows, beyond what a communicator counts
  TOO_MANY_DENSE,   // elements of a dense matrix, beyond that too
  UNSOUND_RECORD,   // of a peer that has not checked itself: rows or entries
  TOO_MANY_FROM_1,  // entries: the last offset would be beyond the index type with base 1
};

// The arrays that can be missing.
enum class AssemblyArray : std::int32_t { OFFSETS, ROWS, COLUMNS, VALUES, ROW_LIST, MAP };

// What a flaw is in, if a process passes several of a kind.
enum class AssemblyPart : std::int16_t { ONLY, FIRST_BLOCK, SECOND_BLOCK, WHOLE, OWN };

// The part that block `block`, 0 or 1, of two is.
constexpr AssemblyPart PartOfBlock(int block) {
  return block == 0 ? AssemblyPart::FIRST_BLOCK : AssemblyPart::SECOND_BLOCK;
}

// What the processes call. Those that call different operations are refused.
enum class AssemblyOperation : std::int32_t {
  NONE,  // of a record that has not arrived
  GATHER,
  UPDATE,
  SCATTER,
  COLLECT_ADD,
  COLLECT_ONCE
};

// What one process found wrong: the first flaw, or none.
struct AssemblyVerdict {
  std::int64_t mAt = 0;     // the place of the flaw: a row or a position
  std::int64_t mFound = 0;  // the value that was found. Else the columns of a dense matrix
  std::int64_t mLimit = 0;  // what that value must stay below, or be
  std::int16_t mFlaw = 0;   // an AssemblyFlaw; any number may arrive from a peer
  std::int16_t mPart = 0;   // an AssemblyPart; any number may arrive here too
  std::int32_t mStatus = STATUS_OK;  // of FAILED_STEP

  // Notes a flaw, unless there is one.
  void Note(AssemblyFlaw flaw, std::int64_t at, std::int64_t found,
            std::int64_t limit) noexcept;
  // Notes that an array is missing, unless there is a flaw.
  void NoteMissing(AssemblyArray array) noexcept;
  // Notes that a step failed with `status`, unless that is STATUS_OK or there is a flaw.
  void NoteStep(PavexStatus status) noexcept;
  // Whether no flaw has been noted.
  bool Flawless() const { return mFlaw == static_cast<std::int16_t>(AssemblyFlaw::NONE); }
  // Says what the flaw is in, if there is one.
  void NotePart(AssemblyPart part) {
    if (!Flawless()) mPart = static_cast<std::int16_t>(part);
  }
};

// What one process says about itself, in every operation. All operations exchange records of
// one size, so that processes that call different ones learn it. Only a gather fills in the
// request and what follows. A record that has not arrived has an operation that no process
// calls.
struct AssemblyRecord : AssemblyVerdict {
  static constexpr std::int64_t kList = -1;     // instead of a begin: the rows of the process
  static constexpr std::int64_t kTouched = -2;  // instead of a begin: rows with entries

  std::int64_t mWholeRows = -1;  // of the request
  std::int64_t mWholeCols = -1;  // of the request
  std::int64_t mOwnBegin = 0;    // the rows of the process: a begin, or kList
  std::int64_t mOwnRows = 0;     // and their number
  std::int64_t mGiven = 0;       // entries of the contribution
  std::int64_t mBegin = 0;       // the rows that it sends: a begin, kList or kTouched
  std::int64_t mRows = 0;        // and their number
  std::int64_t mNnz = 0;         // entries that it sends
  std::int32_t mReceiver = -2;   // of the request
  AssemblyOperation mOperation = AssemblyOperation::NONE;  // any number may arrive from a peer
  std::int16_t mWithValues = 0;                            // of the request
  std::int16_t mSortColumns = 0;                           // of the request
  std::int32_t mBase = 0;                                  // of the request

  // Elements of its list of rows.
  std::int64_t Listed() const { return mOwnBegin == kList ? mOwnRows : 0; }
  // Elements of its list of rows with entries.
  std::int64_t Touched() const { return mBegin == kTouched ? mRows : 0; }
};

static_assert(std::is_trivially_copyable_v<AssemblyRecord>, "sent as bytes");
static_assert(sizeof(AssemblyRecord) == 112, "sent as bytes, without padding");

// How the pieces become the whole.
enum class AssemblyPath {
  NOTHING,  // no process has an entry: nothing moves
  BANDS,    // bands that do not overlap: a receiver gets every array at its place
  MERGE     // other rows: a receiver adds what overlaps, by a map that it makes once
};

// "nothing", "bands", "merge".
PAVEX_API char const* AssemblyPathStr(AssemblyPath path) noexcept;

// How a matrix is put together, or why that is refused.
struct AssemblyPlan {
  AssemblyPath mPath = AssemblyPath::NOTHING;  // unless refused
  AssemblyFlaw mFlaw = AssemblyFlaw::NONE;     // why it is refused
  std::int64_t mProcess = 0;  // the first one at fault; of two that differ the second
  std::int64_t mRows = 0;     // rows that are sent; a process without any sends an empty one
  std::int64_t mNnz = 0;      // entries that are sent
  std::int64_t mListed = 0;   // elements of all lists of rows
  std::int64_t mTouched = 0;  // elements of all lists of rows with entries

  // Whether every process refuses the gather.
  bool Refused() const { return mFlaw != AssemblyFlaw::NONE; }
};

// What an operation costs one process.
struct AssemblyCost {
  std::int64_t mCalls = 0;     // of operations of the communicator
  std::int64_t mBytesOut = 0;  // handed to the communicator
  std::int64_t mBytesIn = 0;   // delivered by it
  // Over what it has or gets, to add it or to bring it in order. In a gather with values, those
  // over the columns of the entries and those over their values.
  std::int64_t mPasses = 0;
};

}  // namespace Pavex
