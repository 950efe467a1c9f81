// A sparsity pattern in the resolution of a picture. A large matrix is cut into cells of many
// positions. Each cell counts its entries and knows which rank held most of them.

#pragma once

#include <cstddef>
#include <vector>

namespace Pavex::Tool {

constexpr long kMostCells = 600;  // along each side
// A side has at least this many cells, or one for each position if it has fewer positions. So a
// thin matrix stays visible.
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
  int mRank = -1;  // the first of the ranks that held most of its entries; -1: no entry
  long mEntries = 0;
};

// The cells of a pattern. Add the entries one by one, rank after rank.
class PatternCells {
 public:
  PatternCells(long rows, long cols);

  // Says that `rank` held the entries that are added from now on.
  void BeginRank(int rank);
  // Adds an entry of the matrix. `isZero`: an element of a dense matrix that is zero; it shows
  // its rank but is not counted.
  void Add(long row, long col, bool isZero = false);
  void End();

  CellGrid const& Grid() const { return mGrid; }
  Cell const& At(long down, long across) const {
    return mCells[static_cast<std::size_t>(down * mGrid.Across() + across)];
  }
  // The most entries that one cell has.
  long MostEntries() const;
  // Whether there is a cell with nothing but stored zeros.
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
