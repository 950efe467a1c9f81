// A sparsity pattern in the resolution of a picture. A large matrix is cut into cells of many
// positions. Each cell counts its entries and knows which rank held most of them.

#pragma once

#include <cstddef>
#include <vector>

namespace Pavex::Tool {

constexpr long kMostCells = 600;  // along each side
// A side has at least that many cells, as far as it has that many positions: a thin matrix
// stays visible.
constexpr long kThinCells = 60;

// The cut into cells. All have mCellRows x mCellCols positions, except the last ones, which may
// be smaller. Example: 1300 x 90 positions are cut into cells of 3 x 1, 434 down and 90 across;
// 3000 x 1000 into cells of 5 x 5, 600 down and 200 across.
struct CellGrid {
  long mRows = 0;  // of the matrix
  long mCols = 0;
  long mCellRows = 1;
  long mCellCols = 1;

  CellGrid(long rows, long cols);

  long Down() const { return (mRows + mCellRows - 1) / mCellRows; }
  long Across() const { return (mCols + mCellCols - 1) / mCellCols; }
  bool IsExact() const { return mCellRows == 1 && mCellCols == 1; }
};

struct Cell {
  int mRank = -1;  // that held most of its entries, the first of several; -1: no entry
  long mEntries = 0;
};

// Filled entry by entry, rank after rank.
class PatternCells {
 public:
  PatternCells(long rows, long cols);

  // Entries that are added from now on were held by `rank`.
  void BeginRank(int rank);
  // An entry of the matrix. With `isZero` it shows its rank but does not count: an element of a
  // dense matrix that is stored though it is zero.
  void Add(long row, long col, bool isZero = false);
  void End();

  CellGrid const& Grid() const { return mGrid; }
  Cell const& At(long down, long across) const {
    return mCells[static_cast<std::size_t>(down * mGrid.Across() + across)];
  }
  // Of all cells.
  long MostEntries() const;
  // Whether a cell stands for stored zeros alone.
  bool HasZeros() const;

 private:
  CellGrid mGrid;
  std::vector<Cell> mCells;
  std::vector<long> mMost;            // entries of the rank that holds a cell so far
  std::vector<long> mOwn;             // entries of the present rank in each cell
  std::vector<std::size_t> mTouched;  // cells with entries of the present rank
  int mRank = 0;
};

// The strength of a cell's colour: from 0.55 for one entry to 1 for the most entries of any
// cell, by the logarithm. A cell of a dense matrix without nonzero entries has 0.15.
double Strength(long entries, long mostEntries);

}  // namespace Pavex::Tool
