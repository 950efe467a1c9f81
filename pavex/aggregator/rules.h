// The rules by which the exchanged records are judged: pure functions that neither log nor
// communicate. The checks of a gather act on what they find, and its description tells it.
//
// Internal.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>

namespace Pavex {

// A compressed or dense piece with rows and columns counts even without entries; a coordinate
// piece does not.
bool IsEmpty(MatrixLocalInfo const& info);

struct Decision {
  bool mDecided = false;
  DistMatrixMode mMode = CENTRALIZED_ALL;  // if decided
  int mSource = kNobody;                   // the first process that is not empty
  int mEmpty = 0;                          // empty processes
};
Decision DecideMode(Buffer<MatrixLocalInfo> const& infos);

// Where the neighbour of a band has to begin.
std::int64_t AdjacentBegin(MatrixLocalInfo const& band);

// In what two neighbours may disagree.
enum class Flaw {
  NONE,
  CODES,
  STORE_TYPE,
  PARTITION_TYPE,
  UNKNOWN_PARTITION,
  NOT_ADJACENT,
  DIMENSION,
  FLAG
};
struct Disagreement {
  Flaw mFlaw = Flaw::NONE;
  std::int64_t mFirst = 0;  // the pair is this process and the next
};
// The first one in the order of the pairs. In CENTRALIZED_ONE there is none: nothing is
// compared.
Disagreement FindDisagreement(DistMatrixMode mode, Buffer<MatrixLocalInfo> const& infos);

// The first process with a negative number of entries, or with which there are more than an
// array of any type can hold; kNobody if there is none.
std::int64_t FindBadCount(Buffer<MatrixLocalInfo> const& infos);

struct GatheredShape {
  long mRows = 0;
  long mCols = 0;
  long mNnz = 0;
  bool mKnown = true;  // false for a partition of an unknown type
};
// Of the pieces together, cut as `reference` says.
GatheredShape ShapeOfPieces(Buffer<MatrixLocalInfo> const& infos,
                            MatrixLocalInfo const& reference);
// Whether a dense matrix has just the entries of its shape.
bool FillsShape(long rows, long cols, long nnz);

// The first process whose lengths of rows (columns, unless `byRows`) do not land inside the
// `count` + 1 gathered offsets of a compressed matrix; kNobody if there is none. `first`: the
// begin whose length lands at offset 0.
std::int64_t FindLengthsOutside(bool byRows, std::int64_t first, std::int64_t count,
                                Buffer<MatrixLocalInfo> const& infos);

// Whether the pieces of a dense matrix, cut as `partition` says, are the gathered one already
// when they stand one after the other, so that nothing is reordered.
bool PiecesAreInOrder(std::int32_t partition, bool rowMajor, long rows, long cols);

// "row-wise", "column-wise" or "nonzero-wise"; null for any other type.
char const* PartitionWord(std::int32_t type);

}  // namespace Pavex
