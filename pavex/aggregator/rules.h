// The rules about the exchanged records: pure functions that neither log nor communicate. A
// plan uses them.
//
// Internal.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/aggregator/plan.h"
#include "pavex/matrix/partition.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>

namespace Pavex {

// Whether a piece is empty. A compressed or dense piece with rows and columns is not empty,
// even without entries. A coordinate piece without entries is empty. Fixed: see
// docs/compatibility.md.
bool IsEmpty(MatrixLocalInfo const& info);

// The partition type of bands of rows, or of columns.
constexpr std::int32_t BandsOf(bool byRows) noexcept {
  return byRows ? PARTITION_ROW_WISE : PARTITION_COLUMN_WISE;
}

// Where the next band must begin.
std::int64_t AdjacentBegin(MatrixLocalInfo const& band);

// Whether memory can hold arrays of so many entries, of any type.
bool HoldsEntries(long count);

// A flaw between two neighbours.
struct Disagreement {
  GatherFlaw mFlaw = GatherFlaw::NONE;
  std::int64_t mFirst = kNobody;  // the pair is this process and the next
};
// The first disagreement in the order of the pairs. CENTRALIZED_ONE has none, because nothing
// is compared.
Disagreement FindDisagreement(DistMatrixMode mode, Buffer<MatrixLocalInfo> const& infos);

// What one pass over the records finds.
struct Survey {
  int mEmpty = 0;           // empty processes
  int mSource = kNobody;    // the first process that is not empty
  DistMatrixMode mAssumed;  // the mode if no process is empty
  // In the assumed mode, among the processes before the first empty one.
  Disagreement mDisagreement;
  // Sums over all processes; they wrap.
  long mRows = 0;
  long mCols = 0;
  long mNnz = 0;
  bool mNegative = false;  // rows or columns of a process, or of the sums so far
  // The first process with a negative number of entries, or with which there are more than an
  // array of any type can hold.
  std::int64_t mBadCount = kNobody;
};
Survey TakeSurvey(Buffer<MatrixLocalInfo> const& infos);

// The gathered matrix.
struct GatheredShape {
  long mRows;
  long mCols;
  long mNnz;
};

// Whether a dense matrix has exactly the entries of its shape.
bool FillsShape(GatheredShape const& shape);

// The first process whose lengths of rows (columns, unless `byRows`) do not land inside the
// `count` + 1 gathered offsets of a compressed matrix; kNobody if there is none. `first`: the
// begin whose length lands at offset 0.
std::int64_t FindLengthsOutside(bool byRows, std::int64_t first, std::int64_t count,
                                Buffer<MatrixLocalInfo> const& infos);

// Whether the pieces of a dense matrix, cut as `partition` says, already form the gathered
// matrix when they follow each other, so that nothing is reordered.
bool PiecesAreInOrder(std::int32_t partition, bool rowMajor, long rows, long cols);

// The first process whose dense piece, cut as `partition` says and moved in that order, goes
// outside the gathered matrix; kNobody if there is none.
std::int64_t FindPieceOutside(Buffer<MatrixLocalInfo> const& infos, std::int32_t partition,
                              bool rowMajor, GatheredShape const& shape);

// Whether a dense store type says the order of the elements.
bool StatesOrder(PavexMatrixStoreType type);

// "row-wise", "column-wise" or "nonzero-wise"; null for any other type.
char const* PartitionWord(std::int32_t type);

}  // namespace Pavex
