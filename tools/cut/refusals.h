// What `pavex gather` refuses: pieces that the library would misunderstand, and matrices that
// it cannot count. All functions throw InputError with a remedy.

#pragma once

#include "tools/choice/options.h"
#include "tools/cut/pieces.h"

#include <string>
#include <vector>

namespace Pavex::Tool {

// Refuses more entries of `input` than the offsets of a compressed format can count, and more
// elements of a dense format than memory can hold.
void RefuseTooLarge(std::string const& input, Extent const& whole, CutOptions const& options,
                    IndexKind index);

// Refuses more entries of `input` than a solver can count.
void RefuseTooManyToSolve(std::string const& input, Extent const& whole);

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
