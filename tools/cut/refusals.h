// What `pavex gather` refuses, in addition to a source with too many entries: pieces that the
// library would misunderstand or cannot count. All functions throw InputError with a remedy.

#pragma once

#include "tools/choice/options.h"
#include "tools/cut/pieces.h"

#include <vector>

namespace Pavex::Tool {

// Refuses more elements than a gather can place in a dense format.
void RefuseTooLarge(Extent const& whole, CutOptions const& options);

// Refuses more ranks than rows or columns. Suggests a cut by entries where that helps.
void RefuseTooManyRanks(Extent const& whole, CutOptions const& options, int ranks);

// The shapes in the records of all ranks.
template <typename Record>
std::vector<Extent> ExtentsOf(std::vector<Record> const& records) {
  std::vector<Extent> extents;
  extents.reserve(records.size());
  for (Record const& record : records)
    extents.push_back({record.mRows, record.mCols, record.mEntries});
  return extents;
}

// Refuses empty pieces; `pieces` are those of all ranks. The library would assume that a rank
// with a coordinate piece without entries, or with any piece without rows or columns, has no
// part in the matrix. And a gather of values needs at least one value from every rank.
void RefuseEmptyPieces(std::vector<Extent> const& pieces, Extent const& whole,
                       CutOptions const& options);

}  // namespace Pavex::Tool
