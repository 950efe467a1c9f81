#include "tools/empty_pieces.h"

#include "tools/input_error.h"

#include <string>

namespace Pavex::Tool {

namespace {

// The cut by entries, as a way out of an empty piece; empty if it is none.
std::string OtherCut(Extent const& whole, std::size_t ranks, GatherOptions const& options) {
  if (whole.mEntries < static_cast<long>(ranks)) return "";
  return options.mFormat == Format::COO ? " or --partition entries"
                                        : " or --format coo --partition entries";
}

}  // namespace

void RefuseEmptyPieces(std::vector<RankRecord> const& records, Extent const& whole,
                       GatherOptions const& options) {
  if (records.size() == 1 || options.mPartition == Partition::ALL) return;
  bool const one = options.mPartition == Partition::ONE;
  bool const needsEntries = options.mFormat == Format::COO || options.mWithValues;
  for (std::size_t rank = 0; rank < records.size(); ++rank) {
    RankRecord const& record = records[rank];
    bool const noEntries = needsEntries && record.mEntries == 0;
    bool const empty = noEntries || record.mRows == 0 || record.mCols == 0;
    if (!empty || (one && static_cast<int>(rank) != options.mHolder)) continue;
    std::string const who = "rank " + std::to_string(rank) + " would be left empty: ";
    if (one) throw InputError(who + "the matrix has no entries; use --partition all");
    throw InputError(who + "its " + NameOf(options.mPartition) +
                     " hold no entries; use fewer --ranks" +
                     OtherCut(whole, records.size(), options));
  }
}

}  // namespace Pavex::Tool
