// What `pavex gather` refuses, in addition to a source with too many entries: pieces that the
// library would take for something else, or cannot count. All functions throw InputError with a
// remedy.

#pragma once

#include "tools/choice/options.h"
#include "tools/cut/pieces.h"

#include <vector>

namespace Pavex::Tool {

// Refuses more elements than a gather can place in a dense format.
void RefuseTooLarge(Extent const& whole, CutOptions const& options);

// More ranks than rows or columns, with the cut by entries as a way out if there is one.
void RefuseTooManyRanks(Extent const& whole, CutOptions const& options, int ranks);

// Of the records of all ranks.
template <typename Record>
std::vector<Extent> ExtentsOf(std::vector<Record> const& records) {
  std::vector<Extent> extents;
  extents.reserve(records.size());
  for (Record const& record : records)
    extents.push_back({record.mRows, record.mCols, record.mEntries});
  return extents;
}

// The library takes a coordinate piece without entries, or any piece without rows or columns,
// for that of a rank that has no part in the matrix. A gather of values needs at least one
// value from every rank. `pieces` are those of all ranks.
void RefuseEmptyPieces(std::vector<Extent> const& pieces, Extent const& whole,
                       CutOptions const& options);

}  // namespace Pavex::Tool
