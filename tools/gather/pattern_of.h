// The pattern of a gathered matrix, with the ranks that held its entries.

#pragma once

#include "tools/choice/options.h"
#include "tools/gather/pattern_cells.h"
#include "tools/gather/report.h"
#include "tools/matrix/elements.h"

#include <cstddef>
#include <vector>

namespace Pavex::Tool {

// Adds the elements of a gathered dense matrix, band by band. A matrix that every rank held
// counts as that of rank 0.
template <typename T, typename I>
void AddDense(Elements<T, I> const& gathered, std::vector<RankRecord> const& pieces,
              Partition partition, PatternCells& cells) {
  std::size_t const ranks = partition == Partition::ALL ? 1 : pieces.size();
  for (std::size_t rank = 0; rank < ranks; ++rank) {
    RankRecord const& piece = pieces[rank];
    long const rowBegin = partition == Partition::ROWS ? piece.mBegin : 0;
    long const colBegin = partition == Partition::COLUMNS ? piece.mBegin : 0;
    cells.BeginRank(static_cast<int>(rank));
    for (long row = rowBegin; row < rowBegin + piece.mRows; ++row)
      for (long col = colBegin; col < colBegin + piece.mCols; ++col)
        cells.Add(row, col, gathered.mValues[gathered.mLayout.At(row, col)] == T{});
  }
}

// Adds the entries of a gathered sparse matrix. Its arrays are those of the pieces, one after
// the other by rank. A matrix that every rank held has as many entries as that of rank 0.
template <typename T, typename I>
void AddSparse(Elements<T, I> const& gathered, std::vector<RankRecord> const& pieces,
               PatternCells& cells) {
  std::size_t rank = 0;
  auto end = static_cast<std::size_t>(pieces[0].mEntries);
  ForEachElement(gathered, [&](long row, long col, std::size_t k) {
    if (k >= end) {
      while (k >= end)
        end += static_cast<std::size_t>(pieces[++rank].mEntries);
      cells.BeginRank(static_cast<int>(rank));
    }
    cells.Add(row, col);
  });
}

template <typename T, typename I>
PatternCells PatternOf(MatrixBase const& gathered, std::vector<RankRecord> const& pieces,
                       Partition partition) {
  Elements<T, I> const elements(gathered);
  PatternCells cells(elements.mRows, elements.mCols);
  if (elements.mDense)
    AddDense(elements, pieces, partition, cells);
  else
    AddSparse(elements, pieces, cells);
  cells.End();
  return cells;
}

}  // namespace Pavex::Tool
