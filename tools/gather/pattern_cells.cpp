#include "tools/gather/pattern_cells.h"

#include <algorithm>
#include <cmath>

namespace Pavex::Tool {

namespace {

// How many of the `extent` positions along a side make one cell. `common` is that number for
// the longer side.
long PositionsPerCell(long extent, long common) {
  return std::min(common, std::max(1L, extent / kThinCells));
}

}  // namespace

CellGrid::CellGrid(long rows, long cols) : mRows(rows), mCols(cols) {
  long const longer = std::max({rows, cols, 1L});
  long const common = (longer + kMostCells - 1) / kMostCells;
  mCellRows = PositionsPerCell(rows, common);
  mCellCols = PositionsPerCell(cols, common);
}

PatternCells::PatternCells(long rows, long cols)
    : mGrid(rows, cols),
      mCells(static_cast<std::size_t>(mGrid.Down() * mGrid.Across())),
      mMost(mCells.size()),
      mOwn(mCells.size()) {}

void PatternCells::BeginRank(int rank) {
  End();
  mRank = rank;
}

void PatternCells::Add(long row, long col, bool isZero) {
  auto const at =
      static_cast<std::size_t>(row / mGrid.mCellRows * mGrid.Across() + col / mGrid.mCellCols);
  if (mOwn[at]++ == 0) mTouched.push_back(at);
  if (!isZero) ++mCells[at].mEntries;
}

void PatternCells::End() {
  for (std::size_t const at : mTouched) {
    if (mOwn[at] > mMost[at]) {
      mMost[at] = mOwn[at];
      mCells[at].mRank = mRank;
    }
    mOwn[at] = 0;
  }
  mTouched.clear();
}

long PatternCells::MostEntries() const {
  long most = 0;
  for (Cell const& cell : mCells)
    most = std::max(most, cell.mEntries);
  return most;
}

bool PatternCells::HasZeros() const {
  return std::any_of(mCells.begin(), mCells.end(),
                     [](Cell const& cell) { return cell.mRank >= 0 && cell.mEntries == 0; });
}

double Strength(long entries, long mostEntries) {
  constexpr double kZero = 0.15;
  constexpr double kOne = 0.55;
  if (entries == 0) return kZero;
  if (mostEntries == 1) return 1;
  return kOne + (1 - kOne) * std::log(static_cast<double>(entries)) /
                    std::log(static_cast<double>(mostEntries));
}

}  // namespace Pavex::Tool
