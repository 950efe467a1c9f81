#include "tests/fuzz/spoiled_round.h"

#include "pavex/runtime/wrapping.h"

#include <limits>

namespace Pavex {

namespace {

constexpr long kMostExtent = 12;

long AnyNumber(Rng& rng) {
  constexpr long kOdd[] = {1L << 16, 1L << 31, 1L << 32,
                           1L << 60, 1L << 62, std::numeric_limits<long>::max()};
  long const small = rng.Between(0, 24);
  return small < 20 ? small : WrappingAdd(kOdd[rng.Between(0, 5)], rng.Between(-2, 2));
}

// Gives the piece entries that a matrix of its shape and of `format` can have.
void Refill(Format format, Piece& piece) {
  bool const dense = format == Format::DENSE_ROW || format == Format::DENSE_COL;
  if (dense)
    piece.entries.assign(static_cast<std::size_t>(piece.rows * piece.cols), Entry{0, 0, 1});
  else if (format != Format::COO)
    piece.entries.clear();
}

void SpoilShape(Rng& rng, Format format, Piece& piece) {
  (rng.Coin() ? piece.rows : piece.cols) = rng.Between(0, kMostExtent);
  Refill(format, piece);
}

void SpoilPlace(Rng& rng, Piece& piece) {
  switch (rng.Between(0, 3)) {
    case 0:
      piece.globalRows = AnyNumber(rng);
      break;
    case 1:
      piece.globalCols = AnyNumber(rng);
      break;
    case 2:
      piece.begin = AnyNumber(rng);
      break;
    default:
      piece.partition = static_cast<int>(rng.Between(0, 5)) - 1;
  }
}

void SpoilKind(Rng& rng, Format format, Piece& piece) {
  switch (rng.Between(0, 4)) {
    case 0:
      ++piece.pattern;
      break;
    case 1:
      ++piece.attribute;
      break;
    case 2:
      piece.withValues = !piece.withValues;
      break;
    case 3:
      piece.rowMajor = !piece.rowMajor;
      Refill(format, piece);
      break;
    default:
      piece.part = static_cast<int>(rng.Between(0, 3));
  }
}

void SpoilStorage(Rng& rng, Piece& piece) {
  switch (rng.Between(0, 3)) {
    case 0:
      piece.hasValues = !piece.hasValues;
      break;
    case 1:
      piece.spare = rng.Between(0, 5);
      break;
    case 2:
      for (long& padding : piece.paddings)
        padding = rng.Between(0, 3);
      break;
    default:
      piece.hasOffsets = !piece.entries.empty() || rng.Coin();
  }
}

}  // namespace

SpoiledRound MakeSpoiledRound(Rng& rng, int ranks) {
  SpoiledRound spoiled{MakeRound(rng, ranks)};
  auto const anyRank = [&] { return static_cast<int>(rng.Between(0, ranks - 1)); };
  auto const pieceOf = [&](int rank) -> Piece& {
    return spoiled.round.pieces[static_cast<std::size_t>(rank)];
  };
  if (rng.OneIn(8)) {
    spoiled.oddRank = anyRank();
    spoiled.oddFormat = static_cast<Format>(rng.Between(0, 4));
    Refill(spoiled.oddFormat, pieceOf(spoiled.oddRank));
  }
  for (long n = rng.Between(1, 4); n > 0; --n) {
    int const rank = anyRank();
    Format const format = spoiled.FormatOf(rank);
    switch (rng.Between(0, 3)) {
      case 0:
        SpoilShape(rng, format, pieceOf(rank));
        break;
      case 1:
        SpoilPlace(rng, pieceOf(rank));
        break;
      case 2:
        SpoilKind(rng, format, pieceOf(rank));
        break;
      default:
        SpoilStorage(rng, pieceOf(rank));
    }
  }
  return spoiled;
}

}  // namespace Pavex
