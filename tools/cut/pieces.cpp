#include "tools/cut/pieces.h"

#include "tools/choice/input_error.h"

#include <algorithm>
#include <functional>
#include <string>

namespace Pavex::Tool {

namespace {

struct Band {
  long mBegin;
  long mEnd;
};

// The band of `rank` between cut points that the user chose.
Band ChosenBand(long extent, int ranks, int rank, std::vector<long> const& cuts,
                char const* what) {
  std::vector<long> bounds = {0};
  bounds.insert(bounds.end(), cuts.begin(), cuts.end());
  bounds.push_back(extent);
  if (static_cast<int>(cuts.size()) != ranks - 1)
    throw InputError("--cuts: " + std::to_string(ranks) + " ranks need " +
                     std::to_string(ranks - 1) + " cut points, not " +
                     std::to_string(cuts.size()));
  if (std::adjacent_find(bounds.begin(), bounds.end(), std::greater_equal<>()) != bounds.end())
    throw InputError("--cuts: the cut points have to ascend between 0 and the " +
                     std::to_string(extent) + " " + what);
  auto const first = bounds.begin() + rank;
  return {first[0], first[1]};
}

Piece Whole(Extent const& whole) {
  Piece piece;
  piece.mRowEnd = whole.mRows;
  piece.mColEnd = whole.mCols;
  piece.mEntryEnd = whole.mEntries;
  return piece;
}

Band EqualBand(long extent, int ranks, int rank) {
  return {extent * rank / ranks, extent * (rank + 1) / ranks};
}

Band CutBand(long extent, int ranks, int rank, std::vector<long> const& cuts,
             char const* what) {
  if (!cuts.empty()) return ChosenBand(extent, ranks, rank, cuts, what);
  RefuseTooManyRanks(extent, ranks, what, "");
  return EqualBand(extent, ranks, rank);
}

Piece RowBand(Extent const& whole, Band const& band) {
  Piece piece = Whole(whole);
  piece.mRowBegin = band.mBegin;
  piece.mRowEnd = band.mEnd;
  piece.mPartition = MatrixPartition::RowWise(band.mBegin);
  return piece;
}

}  // namespace

void RefuseTooManyRanks(long extent, int ranks, char const* what, std::string const& orElse) {
  if (ranks == 1 || extent >= ranks) return;
  throw InputError(std::to_string(ranks) + " ranks cannot share " + std::to_string(extent) +
                   " " + what + " without one left empty: use --ranks " +
                   std::to_string(std::max(extent, 1L)) + orElse);
}

Piece CutRowsOrNone(Extent const& whole, std::vector<long> const& cuts, int ranks, int rank) {
  return RowBand(whole, cuts.empty() ? EqualBand(whole.mRows, ranks, rank)
                                     : ChosenBand(whole.mRows, ranks, rank, cuts, "rows"));
}

Piece CutPiece(Extent const& whole, CutOptions const& cut, int ranks, int rank) {
  Piece piece = Whole(whole);
  switch (cut.mPartition) {
    case Partition::ROWS:
      return RowBand(whole, CutBand(whole.mRows, ranks, rank, cut.mCuts, "rows"));
    case Partition::COLUMNS: {
      Band const band = CutBand(whole.mCols, ranks, rank, cut.mCuts, "columns");
      piece.mColBegin = band.mBegin;
      piece.mColEnd = band.mEnd;
      piece.mPartition = MatrixPartition::ColumnWise(band.mBegin);
      break;
    }
    case Partition::ENTRIES: {
      Band const band = CutBand(whole.mEntries, ranks, rank, cut.mCuts, "entries");
      piece.mEntryBegin = band.mBegin;
      piece.mEntryEnd = band.mEnd;
      piece.mPartition = MatrixPartition::NonzeroWise();
      break;
    }
    case Partition::ONE:
      if (rank != cut.mHolder) return {};
      break;
    case Partition::ALL:
    case Partition::RANDOM:  // no band: AssembledPiece deals the rows out
    case Partition::OVERLAP:
      break;
  }
  return piece;
}

}  // namespace Pavex::Tool
