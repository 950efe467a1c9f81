// What a gather will do, decided from the records of its processes. It is a value and needs no
// communicator. The gather itself uses the same plan.
//
// Every function here is local, logs nothing and takes nothing from a pool. Records may contain
// any bytes.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/matrix/matrix_base.h"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/export.h"
#include "pavex/runtime/status.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Pavex {

// The record of a process that passes `local` and `withValues` to a gather.
PAVEX_API MatrixLocalInfo RecordOf(MatrixBase const& local, bool withValues);

// The steps of a gather that can refuse its records, in their order. A refusal fails the gather
// on every process, before any entry moves.
enum class GatherStage {
  MODE,        // how many processes are empty
  AGREEMENT,   // each process compared with the next
  COUNTS,      // entries of the pieces
  STORE_TYPE,  // the class to gather
  OFFSETS,     // where the rows (columns) of compressed pieces go
  VALUES,      // where the elements of dense pieces go
  NONE         // no step refuses them
};

// "mode", "agreement", "counts", "store type", "offsets", "values"; "none".
PAVEX_API char const* GatherStageStr(GatherStage stage) noexcept;

// Why a step refuses the records. The first seven are found between a process and the next.
enum class GatherFlaw {
  CODES,               // pattern or attribute differ
  STORE_TYPE,          // the store types differ
  PARTITION_TYPE,      // the partition types differ
  UNKNOWN_PARTITION,   // both declare a partition type that does not exist
  NOT_ADJACENT,        // the second band does not begin where the first one ends
  DIMENSION,           // the shapes differ
  FLAG,                // the flags of the values differ
  SOME_EMPTY,          // some processes are empty: neither all nor all except one
  BAD_COUNT,           // negative entries, or more together than memory can hold
  UNKNOWN_STORE_TYPE,  // the reference process's store type does not exist
  OFFSETS_TOO_SMALL,   // more entries together than offsets of I can count
  TOO_MANY_OFFSETS,    // more rows (columns) together than memory can hold
  LENGTHS_OUTSIDE,     // rows (columns) of a piece go outside the gathered ones
  NOT_FILLED,          // the entries are not rows times columns of the gathered shape
  RUNS_OUTSIDE,        // a dense piece goes outside the gathered matrix
  NONE
};

// A gather as its records decide it.
struct GatherPlan {
  // --- The first refusal

  GatherStage mStage = GatherStage::NONE;  // the step that refuses the records
  GatherFlaw mFlaw = GatherFlaw::NONE;     // why it does
  PavexStatus mStatus = STATUS_OK;         // what the gather returns
  std::int64_t mProcess = kNobody;  // at fault, of two neighbours the first; kNobody: no one

  // --- The mode; without meaning if GatherStage::MODE refuses the records

  DistMatrixMode mMode = CENTRALIZED_ALL;  // how the matrix is spread
  int mSource = kNobody;                   // the first process that is not empty
  int mEmpty = 0;                          // how many processes are empty

  // --- The reference process, whose record describes the gathered matrix

  int mReference = kNobody;              // its rank; kNobody without records
  StoreKind mKind = StoreKind::UNKNOWN;  // its storage class
  bool mWithValues = false;              // its flag: values move as well as the pattern

  // --- The gathered matrix; known if the first three stages pass

  long mRows = 0;  // as the pieces give
  long mCols = 0;  // as the pieces give
  long mNnz = 0;   // entries

  // --- Dense pieces that travel

  bool mFills = true;  // the entries are rows times columns of the gathered shape
  // The first process whose piece goes outside the gathered matrix if the local matrices are
  // column-major (0) or row-major (1); kNobody if there is none.
  std::int64_t mOutside[2] = {kNobody, kNobody};

  // --- Sizes that the plan was made for

  std::size_t mValueBytes = 0;  // of T
  std::size_t mIndexBytes = 0;  // of I

  // Whether the gather fails on every process.
  bool Refused() const noexcept { return mStage != GatherStage::NONE; }
  // Why dense values of local matrices in this order cannot be placed; NONE if they can be.
  GatherFlaw DenseFlaw(bool rowMajor) const noexcept {
    if (!mFills) return GatherFlaw::NOT_FILLED;
    return mOutside[rowMajor ? 1 : 0] == kNobody ? GatherFlaw::NONE : GatherFlaw::RUNS_OUTSIDE;
  }
};

// Plans the gather whose processes exchange `records`, one per process by rank. `valueBytes`
// and `indexBytes`: the sizes of T and I. Takes no memory. Reads the records once, and a second
// time if pieces are not placed in the order of the ranks.
PAVEX_API GatherPlan PlanGather(Buffer<MatrixLocalInfo> const& records, std::size_t valueBytes,
                                std::size_t indexBytes);

// What the gather does not refuse, but is probably a mistake.
enum class FindingKind {
  NEGATIVE_SIZE,     // the gathered matrix has a negative size
  INDEX_TOO_SMALL,   // indices cannot number all rows or columns of the declared whole
  OTHER_CLASS,       // a process has another class than the holder: std::bad_cast there
  OTHER_ORDER,       // a process has another dense order than the holder
  ORDER_DECIDES,     // the record does not say the dense order, and one order is refused
  NO_VALUES,         // a process has no entries, but must send values: it fails, others wait
  LONE_PARTITION,    // a piece of the declared whole is treated as the whole matrix
  COUNTED_FROM_ONE,  // the begins seem to be counted from 1
  UNCOVERED,         // rows (columns) of the declared whole that no process holds
  OUTSIDE            // rows (columns) outside the declared whole
};

// One finding; a kind is reported once, for the first process that shows it, except that rows
// and columns at both ends can be uncovered or outside.
struct GatherFinding {
  FindingKind mKind;                // what is found
  std::int64_t mProcess = kNobody;  // who shows it; kNobody: the gathered matrix as a whole
  std::int64_t mProcesses = 1;      // how many processes show it
  bool mByRows = true;              // mFirst and mLast count rows, else columns
  std::int64_t mFirst = 0;          // UNCOVERED and OUTSIDE: the first row (column)
  std::int64_t mLast = 0;           // UNCOVERED and OUTSIDE: the last row (column)
};

// What is suspicious about records that `plan`, made from them, does not refuse. Empty if the
// plan refuses them. It includes faults that only some processes meet: the gather may succeed
// on the others, or leave them waiting.
PAVEX_API std::vector<GatherFinding> FindSuspicious(Buffer<MatrixLocalInfo> const& records,
                                                    GatherPlan const& plan);

// A finding in words. Example: "declared 9 x 2: no process holds rows 2 to 8".
PAVEX_API std::string Describe(GatherFinding const& finding,
                               Buffer<MatrixLocalInfo> const& records, GatherPlan const& plan);

// Which records a description lists.
enum class Listed {
  FIRST_AND_LAST,  // of many processes only the first and the last few
  ALL
};

// The plan and its records in words, as Aggregator::Describe returns them after a gather.
PAVEX_API std::string Describe(Buffer<MatrixLocalInfo> const& records, GatherPlan const& plan,
                               Listed listed = Listed::FIRST_AND_LAST);

}  // namespace Pavex
