#include "tools/empty_pieces.h"

#include "tools/input_error.h"

#include <string>

namespace Pavex::Tool {

void RefuseEmptyPieces(std::vector<RankRecord> const& records, Extent const& whole,
                       GatherOptions const& options) {
  if (records.size() == 1 || options.mPartition == Partition::ALL) return;
  bool const one = options.mPartition == Partition::ONE;
  for (std::size_t rank = 0; rank < records.size(); ++rank) {
    RankRecord const& record = records[rank];
    bool const noEntries = options.mFormat == Format::COO && record.mEntries == 0;
    bool const empty = noEntries || record.mRows == 0 || record.mCols == 0;
    if (!empty || (one && static_cast<int>(rank) != options.mHolder)) continue;
    std::string const who = "rank " + std::to_string(rank) + " would be left empty: ";
    if (one) throw InputError(who + "the matrix has no entries; use --partition all");
    bool const cutByEntries = whole.mEntries >= static_cast<long>(records.size());
    throw InputError(who + "its " + NameOf(options.mPartition) +
                     " hold no entries; use fewer --ranks" +
                     (cutByEntries ? " or --partition entries" : ""));
  }
}

}  // namespace Pavex::Tool
