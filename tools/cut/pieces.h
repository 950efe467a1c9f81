// Computes how a matrix is cut into one piece for each rank. No entries are read.

#pragma once

#include "pavex/matrix/partition.h"
#include "tools/choice/options.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Pavex::Tool {

// The most entries that offsets of type int can count.
constexpr long kMaxEntries = std::numeric_limits<std::int32_t>::max();

// The share of one rank: the entries numbered [mEntryBegin, mEntryEnd) in the order of the
// source, of those inside the rows [mRowBegin, mRowEnd) and columns [mColBegin, mColEnd).
// All 0-based.
struct Piece {
  long mRowBegin = 0;
  long mRowEnd = 0;
  long mColBegin = 0;
  long mColEnd = 0;
  long mEntryBegin = 0;
  long mEntryEnd = 0;
  MatrixPartition mPartition;

  long Rows() const { return mRowEnd - mRowBegin; }
  long Cols() const { return mColEnd - mColBegin; }
};

struct Extent {
  long mRows = 0;
  long mCols = 0;
  long mEntries = 0;
};

// Throws InputError if `extent` rows (`what`) are too few for `ranks` bands with one row each.
// `orElse` is another remedy than fewer ranks, such as " or --partition entries"; may be empty.
void RefuseTooManyRanks(long extent, int ranks, char const* what, std::string const& orElse);

// The piece of `rank`, one of `ranks`. The bands have equal numbers of rows (columns, entries),
// up to one. Example: 10 rows on 4 ranks are cut into the bands [0, 2), [2, 5), [5, 7), [7,
// 10). With Partition::ONE, the holder has all and the others a 0 x 0 piece. mCuts, if given,
// are the first rows (columns, entries) of all bands except the first: the cuts 1, 4, 9 give
// the bands [0, 1), [1, 4), [4, 9), [9, 10). Throws InputError if a band would have no rows
// (columns, entries); one rank may have none.
Piece CutPiece(Extent const& whole, CutOptions const& cut, int ranks, int rank);

// The band of rows that CutPiece gives to `rank`. Without `cuts`, which become mCuts, bands may
// have no rows: an Assembler takes them. Throws InputError for cuts that do not fit.
Piece CutRowsOrNone(Extent const& whole, std::vector<long> const& cuts, int ranks, int rank);

}  // namespace Pavex::Tool
