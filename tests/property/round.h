// A random matrix, how it is cut over the ranks, and what a gather of it must give: plain data
// that knows nothing of the library's algorithms.

#pragma once

#include "tests/property/rng.h"

#include <array>
#include <string>
#include <vector>

namespace Pavex {

enum class Format { DENSE_ROW, DENSE_COL, COO, CSR, CSC };

// The ranks that hold the matrix before the gather: all hold pieces, one or all hold the whole.
enum class Holding { PIECES, ONE, ALL };

// A flaw that makes a gather fail on every rank with STATUS_INCONSISTENT.
enum class RoundFlaw {
  NONE,
  SOME_EMPTY,    // some ranks are empty: neither all nor all except one
  GAP,           // neighbouring bands do not touch
  PATTERN,       // the ranks disagree on the pattern code,
  ATTRIBUTE,     // the attribute code,
  STORE,         // the storage order or the part code,
  PARTITION,     // the partition type,
  GLOBAL_SHAPE,  // the shape of the whole,
  VALUES,        // or on whether to aggregate values
  CROSS_EXTENT,  // dense bands too narrow for the whole
  WRONG_AXIS     // compressed pieces that are bands of the other dimension
};

// The local matrices of a rank, one for each operation. They differ in values and padding only.
enum Phase { GATHERED, UPDATED, SCATTERED };

// The elements of each rank have numbers of their own below this.
extern long const kNumbersPerRank;

// One stored element at its place in the global matrix. `number` is unique in the round.
struct Entry {
  long row;
  long col;
  long number;
};

// The local matrix of one rank.
struct Piece {
  long rows = 0;
  long cols = 0;
  long globalRows = 0;
  long globalCols = 0;
  int partition = 3;  // 0 rows, 1 columns, 2 entries, 3 none
  long begin = 0;
  int pattern = 0;
  int attribute = 0;
  bool withValues = true;      // the flag that the rank passes to the gather
  bool hasValues = true;       // the matrix gathered has a value array
  std::vector<Entry> entries;  // stored order; a dense piece has all elements, run by run
  long spare = 0;              // unused array elements after the entries

  // Members of dense pieces.
  bool rowMajor = false;
  std::array<long, 3> paddings{};  // by phase: leading dimension minus run length

  // Members of sparse pieces.
  int part = 0;
  long offsetBase = 0;
  bool hasOffsets = true;    // false only without entries
  long firstCompressed = 0;  // global row (column) of the first one

  long RunLength() const { return rowMajor ? cols : rows; }
  long Runs() const { return rowMajor ? rows : cols; }
  long Ld(Phase phase) const { return RunLength() + paddings[phase]; }
  bool IsPacked(Phase phase) const { return Runs() == 1 || paddings[phase] == 0; }
};

// The gathered matrix.
struct Whole {
  long rows = 0;
  long cols = 0;
  long firstCompressed = 0;    // row (column) of the global matrix at which it starts
  std::vector<Entry> entries;  // in the order of the gathered arrays
};

struct Round {
  Format format = Format::COO;
  Holding holding = Holding::ALL;
  RoundFlaw flaw = RoundFlaw::NONE;
  bool toAll = false;         // Allgather instead of Gather
  int holder = 0;             // ONE: the rank that holds the whole
  long indexBase = 0;         // of the index arrays
  std::vector<Piece> pieces;  // by rank
  std::vector<Whole> wholes;  // ALL: by rank, as each may hold other entries; else one

  bool IsDense() const { return format == Format::DENSE_ROW || format == Format::DENSE_COL; }
  bool IsCompressed() const { return format == Format::CSR || format == Format::CSC; }
  bool Receives(int rank) const { return toAll || rank == 0; }
  bool HoldsWhole(int rank) const {
    return holding == Holding::ALL || (holding == Holding::ONE && rank == holder);
  }
  Piece const& PieceOf(int rank) const { return pieces[static_cast<std::size_t>(rank)]; }
  Whole const& WholeOn(int rank) const {
    return wholes[holding == Holding::ALL ? static_cast<std::size_t>(rank) : 0];
  }
  // The piece whose description the gathered matrix gets.
  Piece const& Reference() const { return PieceOf(holding == Holding::ONE ? holder : 0); }

  // The row or column by which a compressed format orders an entry, and how many there are.
  long Compressed(Entry const& entry) const {
    return format == Format::CSR ? entry.row : entry.col;
  }
  long CompressedCount(long rows, long cols) const {
    return format == Format::CSR ? rows : cols;
  }
};

Round MakeRound(Rng& rng, int ranks);

// A text for messages, like "csr, pieces, to all, with values".
std::string Describe(Round const& round);

}  // namespace Pavex
