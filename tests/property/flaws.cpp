#include "tests/property/flaws.h"

#include <vector>

namespace Pavex {

namespace {

// The flaws for which every rank refuses the records, without any transfer.
std::vector<RoundFlaw> FittingFlaws(Round const& round) {
  Piece const& reference = round.Reference();
  bool const pieces = round.holding == Holding::PIECES;
  bool const bands = pieces && reference.partition != 2;
  std::vector<RoundFlaw> fitting = {RoundFlaw::PATTERN,      RoundFlaw::ATTRIBUTE,
                                    RoundFlaw::STORE,        RoundFlaw::PARTITION,
                                    RoundFlaw::GLOBAL_SHAPE, RoundFlaw::VALUES};
  if (pieces && round.pieces.size() > 2) fitting.push_back(RoundFlaw::SOME_EMPTY);
  if (bands) fitting.push_back(RoundFlaw::GAP);
  if (bands && round.IsDense() && reference.withValues)
    fitting.push_back(RoundFlaw::CROSS_EXTENT);
  if (bands && round.IsCompressed()) fitting.push_back(RoundFlaw::WRONG_AXIS);
  return fitting;
}

void Empty(Round const& round, Piece& piece) {
  piece.entries.clear();
  piece.hasOffsets = false;
  if (round.format != Format::COO) piece.rows = 0;
}

void WidenWhole(Round& round) {
  for (Piece& piece : round.pieces)
    ++(piece.partition == 0 ? piece.globalCols : piece.globalRows);
}

// Turns the pieces of a compressed-row matrix into bands of columns, or those of a
// compressed-column matrix into bands of rows. Each piece then has the lengths of all rows
// (columns), and those of the later pieces do not fit after each other. Each piece gets one row
// (column) more than the whole has, because there is room for one more length.
void TurnBands(Round& round) {
  Whole const& whole = round.wholes[0];
  for (Piece& piece : round.pieces) {
    long const extent = piece.partition == 0 ? piece.rows : piece.cols;
    piece.partition = 1 - piece.partition;
    piece.rows = piece.partition == 0 ? extent : whole.rows + 1;
    piece.cols = piece.partition == 0 ? whole.cols + 1 : extent;
    piece.entries.clear();
    piece.hasOffsets = false;
    piece.spare = 1;
    piece.globalRows = whole.rows;
    piece.globalCols = whole.cols;
  }
}

void ApplyTo(Round& round, Piece& piece) {
  switch (round.flaw) {
    case RoundFlaw::SOME_EMPTY:
      return Empty(round, piece);
    case RoundFlaw::GAP:
      ++piece.begin;
      break;
    case RoundFlaw::PATTERN:
      ++piece.pattern;
      break;
    case RoundFlaw::ATTRIBUTE:
      ++piece.attribute;
      break;
    case RoundFlaw::STORE:
      if (round.IsDense())
        piece.rowMajor = !piece.rowMajor;
      else
        piece.part = piece.part == 0 ? 1 : 0;
      break;
    case RoundFlaw::PARTITION:
      piece.partition = piece.partition == 0 ? 1 : 0;
      break;
    case RoundFlaw::GLOBAL_SHAPE:
      ++piece.globalRows;
      break;
    case RoundFlaw::VALUES:
      piece.withValues = !piece.withValues;
      break;
    case RoundFlaw::CROSS_EXTENT:
      return WidenWhole(round);
    case RoundFlaw::WRONG_AXIS:
      return TurnBands(round);
    case RoundFlaw::NONE:
      break;
  }
}

}  // namespace

void AddFlaw(Rng& rng, Round& round) {
  if (round.holding == Holding::ONE) return;  // a gather then compares nothing
  std::vector<RoundFlaw> const fitting = FittingFlaws(round);
  auto const last = static_cast<long>(fitting.size()) - 1;
  round.flaw = fitting[static_cast<std::size_t>(rng.Between(0, last))];
  // The first rank gets no flaw: its partition decides the mode, and the others are compared
  // with it.
  auto const rank =
      static_cast<std::size_t>(rng.Between(1, static_cast<long>(round.pieces.size()) - 1));
  ApplyTo(round, round.pieces[rank]);
}

}  // namespace Pavex
