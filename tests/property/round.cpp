#include "tests/property/round.h"

#include "tests/property/flaws.h"

#include <algorithm>

namespace Pavex {

namespace {

#ifdef PAVEX_MAX_EXTENT
constexpr long kMaxExtent = PAVEX_MAX_EXTENT;
#else
constexpr long kMaxExtent = 9;
#endif
constexpr long kNumbersPerRow = kMaxExtent + 21;
constexpr long kMostOfRow = kMaxExtent / 2;
constexpr long kMostAnywhere = (kMaxExtent * kMaxExtent + 3) / 7;

}  // namespace

long const kNumbersPerRank = kNumbersPerRow * kNumbersPerRow + 100;

namespace {

// `parts` + 1 bounds from 0 to `total`; no part is empty.
std::vector<long> Cut(Rng& rng, int parts, long total) {
  std::vector<long> bounds{0};
  for (int left = parts - 1; left > 0; --left)
    bounds.push_back(rng.Between(bounds.back() + 1, total - left));
  bounds.push_back(total);
  return bounds;
}

long SmallExtent(Rng& rng) {
  return rng.OneIn(5) ? 1 : rng.Between(1, kMaxExtent);
}

// All elements of a dense rows x cols block whose first element is at (row, col).
std::vector<Entry> DenseEntries(bool rowMajor, long row, long rows, long col, long cols,
                                long base) {
  std::vector<Entry> entries;
  long const runs = rowMajor ? rows : cols;
  long const length = rowMajor ? cols : rows;
  for (long run = 0; run < runs; ++run) {
    for (long t = 0; t < length; ++t) {
      long const i = row + (rowMajor ? run : t);
      long const j = col + (rowMajor ? t : run);
      entries.push_back({i, j, base + 1 + kNumbersPerRow * i + j});
    }
  }
  return entries;
}

// Random entries in that block. Positions may repeat. The entries have only the order that the
// format requires.
std::vector<Entry> SparseEntries(Rng& rng, Format format, long row, long rows, long col,
                                 long cols, long base) {
  std::vector<Entry> entries;
  auto const add = [&](long i, long j) {
    entries.push_back({i, j, base + 1 + static_cast<long>(entries.size())});
  };
  if (format == Format::COO) {
    for (long n = rng.Between(1, kMostAnywhere); n > 0; --n)
      add(rng.Between(row, row + rows - 1), rng.Between(col, col + cols - 1));
    return entries;
  }
  if (rng.OneIn(6)) return entries;
  bool const byRows = format == Format::CSR;
  for (long k = 0; k < (byRows ? rows : cols); ++k) {
    for (long n = rng.OneIn(4) ? 0 : rng.Between(0, kMostOfRow); n > 0; --n) {
      if (byRows)
        add(row + k, rng.Between(col, col + cols - 1));
      else
        add(rng.Between(row, row + rows - 1), col + k);
    }
  }
  return entries;
}

// Chooses the storage of a piece whose shape and entries are set.
void ChooseStorage(Rng& rng, Round const& round, Piece& piece) {
  bool const pieces = round.holding == Holding::PIECES;
  piece.hasValues = piece.withValues || rng.Coin();
  piece.spare = rng.OneIn(3) ? rng.Between(1, 3) : 0;
  if (round.IsDense()) {
    for (long& padding : piece.paddings)
      padding = rng.Coin() ? rng.Between(1, 4) : 0;
    // A gathered view of a local matrix keeps its leading dimension.
    if (round.holding == Holding::ALL) piece.paddings[UPDATED] = piece.paddings[GATHERED];
    if (pieces) piece.spare = 0;  // a packed piece sends its whole array
    return;
  }
  piece.offsetBase = rng.OneIn(3) ? rng.Between(0, 50) : rng.Between(0, 1);
  piece.hasOffsets = !piece.entries.empty() || rng.Coin();
  // A matrix whose value array is empty counts as one without values.
  if (piece.entries.empty()) piece.spare = rng.Between(1, 2);
}

void Append(std::vector<Entry>& all, std::vector<Entry> const& more) {
  all.insert(all.end(), more.begin(), more.end());
}

// --- Pieces of the whole
// -----------------------------------------------------------------------

int ChoosePartition(Rng& rng, Format format) {
  long const choice = rng.Between(0, 5);
  if (format == Format::CSR) return choice == 0 ? 2 : 0;
  if (format == Format::CSC) return choice == 0 ? 2 : 1;
  return static_cast<int>(choice / 2);
}

// Whether the pieces of a matrix are bands of rows rather than of columns. Bands that are only
// declared as shares of the entries lie as the format can put them together.
bool BandsOfRows(Format format, int partition) {
  if (partition != 2) return partition == 0;
  return format == Format::CSR || format == Format::DENSE_COL;
}

void MakePieces(Rng& rng, Round& round, int ranks, Piece const& common) {
  int const partition = ChoosePartition(rng, round.format);
  bool const byRows = BandsOfRows(round.format, partition);
  bool const anywhere = round.format == Format::COO && partition == 2;
  long const extent = rng.Between(ranks, std::max<long>(ranks, kMaxExtent));
  long const cross = SmallExtent(rng);
  bool const isBand = partition != 2 && !rng.OneIn(3);
  long const before = isBand ? rng.Between(0, 3) : 0;
  long const after = isBand ? rng.Between(0, 3) : 0;
  long const shift = partition == 2 ? rng.Between(0, 5) : before;
  std::vector<long> const bounds = Cut(rng, ranks, extent);

  Whole whole;
  whole.rows = byRows ? extent : cross;
  whole.cols = byRows ? cross : extent;
  whole.firstCompressed = before;
  for (int rank = 0; rank < ranks; ++rank) {
    auto const p = static_cast<std::size_t>(rank);
    long const first = anywhere ? 0 : bounds[p];
    long const length = anywhere ? extent : bounds[p + 1] - first;
    long const base = kNumbersPerRank * rank;
    Piece piece = common;
    piece.globalRows = byRows ? before + extent + after : cross;
    piece.globalCols = byRows ? cross : before + extent + after;
    piece.partition = partition;
    piece.begin = shift + first;
    piece.rows = byRows ? length : cross;
    piece.cols = byRows ? cross : length;
    piece.firstCompressed = before + first;
    long const row = byRows ? before + first : 0;
    long const col = byRows ? 0 : before + first;
    if (round.IsDense()) {
      piece.entries = DenseEntries(piece.rowMajor, row, piece.rows, col, piece.cols, 0);
    } else {
      piece.entries = SparseEntries(rng, round.format, row, piece.rows, col, piece.cols, base);
      Append(whole.entries, piece.entries);
      // No rule depends on the extent across the bands.
      if (rng.OneIn(4)) (byRows ? piece.cols : piece.rows) = rng.Between(1, kMaxExtent);
    }
    ChooseStorage(rng, round, piece);
    round.pieces.push_back(std::move(piece));
  }
  if (round.IsDense()) {
    whole.entries = DenseEntries(common.rowMajor, byRows ? before : 0, whole.rows,
                                 byRows ? 0 : before, whole.cols, 0);
  }
  round.wholes.push_back(std::move(whole));
}

// --- The whole on one rank or on all
// ----------------------------------------------------------

void FillWhole(Rng& rng, Round const& round, int rank, Piece& piece) {
  long const base = kNumbersPerRank * rank;
  if (piece.rows > 0 && piece.cols > 0) {
    piece.entries = round.IsDense()
                        ? DenseEntries(piece.rowMajor, 0, piece.rows, 0, piece.cols, base)
                        : SparseEntries(rng, round.format, 0, piece.rows, 0, piece.cols, base);
  }
  ChooseStorage(rng, round, piece);
}

void PlaceAnywhere(Rng& rng, Piece& piece) {
  piece.globalRows = rng.Between(0, 20);
  piece.globalCols = rng.Between(0, 20);
  piece.begin = rng.Between(0, 5);
  piece.partition = static_cast<int>(rng.Between(0, 3));
}

// An empty local matrix that differs from all others in every respect.
Piece MakeEmpty(Rng& rng, Round const& round, Piece const& common) {
  Piece piece = common;
  PlaceAnywhere(rng, piece);
  piece.rows = rng.Coin() ? 0 : rng.Between(1, 4);
  piece.cols = piece.rows == 0 ? rng.Between(0, 4) : 0;
  piece.pattern = static_cast<int>(rng.Between(0, 9));
  piece.attribute = static_cast<int>(rng.Between(0, 9));
  piece.withValues = rng.Coin();
  piece.part = static_cast<int>(rng.Between(0, 2));
  if (rng.OneIn(4)) piece.rowMajor = !piece.rowMajor;
  if (round.format == Format::COO) {
    if (rng.Coin())
      piece.rows = piece.cols = 2;  // without an entry
    else
      piece.entries = {{1, 1, -1}, {1, 1, -1}};  // not of a matrix without rows or columns
  }
  ChooseStorage(rng, round, piece);
  return piece;
}

void MakeHolder(Rng& rng, Round& round, int ranks, Piece const& common) {
  round.holder = static_cast<int>(rng.Between(0, ranks - 1));
  for (int rank = 0; rank < ranks; ++rank) {
    Piece piece = common;
    if (rank == round.holder) {
      PlaceAnywhere(rng, piece);
      piece.rows = SmallExtent(rng);
      piece.cols = SmallExtent(rng);
      FillWhole(rng, round, rank, piece);
      round.wholes.push_back({piece.rows, piece.cols, 0, piece.entries});
    } else {
      piece = MakeEmpty(rng, round, common);
    }
    round.pieces.push_back(std::move(piece));
  }
}

void MakeHolders(Rng& rng, Round& round, int ranks, Piece const& common) {
  bool const allEmpty = rng.OneIn(5);
  Piece shape = common;
  PlaceAnywhere(rng, shape);
  if (ranks > 1 && !allEmpty) shape.partition = 3;
  shape.rows = allEmpty && rng.Coin() ? 0 : SmallExtent(rng);
  shape.cols = allEmpty && shape.rows != 0 ? 0 : SmallExtent(rng);
  for (int rank = 0; rank < ranks; ++rank) {
    Piece piece = shape;
    piece.begin = rng.Between(0, 5);
    FillWhole(rng, round, rank, piece);
    round.wholes.push_back({piece.rows, piece.cols, 0, piece.entries});
    round.pieces.push_back(std::move(piece));
  }
}

}  // namespace

Round MakeRound(Rng& rng, int ranks) {
  Round round;
  round.format = static_cast<Format>(rng.Between(0, 4));
  round.toAll = rng.Coin();
  round.indexBase = rng.OneIn(4) ? 100 : rng.Between(0, 1);

  Piece common;
  common.pattern = static_cast<int>(rng.Between(0, 9));
  common.attribute = static_cast<int>(rng.Between(0, 9));
  common.withValues = !rng.OneIn(4);
  common.rowMajor = round.format == Format::DENSE_ROW;
  common.part = rng.OneIn(5) ? 5 : static_cast<int>(rng.Between(0, 2));

  long const choice = ranks == 1 ? 9 : rng.Between(0, 9);
  round.holding = choice < 6 ? Holding::PIECES : (choice < 8 ? Holding::ONE : Holding::ALL);
  switch (round.holding) {
    case Holding::PIECES:
      MakePieces(rng, round, ranks, common);
      break;
    case Holding::ONE:
      MakeHolder(rng, round, ranks, common);
      break;
    case Holding::ALL:
      MakeHolders(rng, round, ranks, common);
      break;
  }
  if (ranks > 1 && rng.OneIn(10)) AddFlaw(rng, round);
  return round;
}

std::string Describe(Round const& round) {
  char const* const formats[] = {"dense by rows", "dense by columns", "coo", "csr", "csc"};
  char const* const holdings[] = {"pieces", "one holder", "all hold it"};
  Piece const& reference = round.Reference();
  std::string text = formats[static_cast<int>(round.format)];
  text += std::string(", ") + holdings[static_cast<int>(round.holding)];
  text += ", partition " + std::to_string(reference.partition);
  text += round.toAll ? ", to all" : ", to rank 0";
  text += reference.withValues ? ", with values" : ", pattern only";
  if (round.flaw != RoundFlaw::NONE)
    text += ", flaw " + std::to_string(static_cast<int>(round.flaw));
  return text;
}

}  // namespace Pavex
