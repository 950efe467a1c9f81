#include "tools/pieces.h"

#include "tools/input_error.h"

#include <algorithm>
#include <string>

namespace Pavex::Tool {

namespace {

struct Band {
  long mBegin;
  long mEnd;
};

Band CutBand(long extent, int ranks, int rank, char const* what) {
  if (ranks > 1 && extent < ranks)
    throw InputError(std::to_string(ranks) + " ranks cannot share " + std::to_string(extent) +
                     " " + what + " without one left empty: use --ranks " +
                     std::to_string(std::max(extent, 1L)));
  return {extent * rank / ranks, extent * (rank + 1) / ranks};
}

Piece Whole(Extent const& whole) {
  Piece piece;
  piece.mRowEnd = whole.mRows;
  piece.mColEnd = whole.mCols;
  piece.mEntryEnd = whole.mEntries;
  return piece;
}

}  // namespace

Piece CutPiece(Extent const& whole, Partition partition, int ranks, int rank, int holder) {
  Piece piece = Whole(whole);
  switch (partition) {
    case Partition::ROWS: {
      Band const band = CutBand(whole.mRows, ranks, rank, "rows");
      piece.mRowBegin = band.mBegin;
      piece.mRowEnd = band.mEnd;
      piece.mPartition = MatrixPartition::RowWise(band.mBegin);
      break;
    }
    case Partition::COLUMNS: {
      Band const band = CutBand(whole.mCols, ranks, rank, "columns");
      piece.mColBegin = band.mBegin;
      piece.mColEnd = band.mEnd;
      piece.mPartition = MatrixPartition::ColumnWise(band.mBegin);
      break;
    }
    case Partition::ENTRIES: {
      Band const band = CutBand(whole.mEntries, ranks, rank, "entries");
      piece.mEntryBegin = band.mBegin;
      piece.mEntryEnd = band.mEnd;
      piece.mPartition = MatrixPartition::NonzeroWise();
      break;
    }
    case Partition::ONE:
      if (rank != holder) return Piece();
      break;
    case Partition::ALL:
      break;
  }
  return piece;
}

}  // namespace Pavex::Tool
