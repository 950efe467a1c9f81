#include "tools/cut/refusals.h"

#include "tools/choice/input_error.h"

#include <string>

namespace Pavex::Tool {

namespace {

// A suggestion to cut by entries, against an empty piece. Empty if that does not help.
std::string OtherCut(Extent const& whole, CutOptions const& options, long ranks) {
  if (whole.mEntries < ranks) return "";
  return options.mFormat == Format::COO ? " or --partition entries"
                                        : " or --format coo --partition entries";
}

}  // namespace

void RefuseTooLarge(Extent const& whole, CutOptions const& options) {
  if (IsDense(options.mFormat) && whole.mCols > 0 && whole.mRows > kMaxEntries / whole.mCols)
    throw InputError("a dense matrix of " + std::to_string(whole.mRows) + " x " +
                     std::to_string(whole.mCols) + " has more than the " +
                     std::to_string(kMaxEntries) +
                     " elements that one gather can place: use a sparse --format");
}

void RefuseTooManyRanks(Extent const& whole, CutOptions const& options, int ranks) {
  bool const byRows = options.mPartition == Partition::ROWS;
  if (!options.mCuts.empty() || (!byRows && options.mPartition != Partition::COLUMNS)) return;
  RefuseTooManyRanks(byRows ? whole.mRows : whole.mCols, ranks, NameOf(options.mPartition),
                     OtherCut(whole, options, ranks));
}

void RefuseEmptyPieces(std::vector<Extent> const& pieces, Extent const& whole,
                       CutOptions const& options) {
  if (pieces.size() == 1 || options.mPartition == Partition::ALL) return;
  bool const one = options.mPartition == Partition::ONE;
  bool const needsEntries = options.mFormat == Format::COO || options.mWithValues;
  for (std::size_t rank = 0; rank < pieces.size(); ++rank) {
    Extent const& piece = pieces[rank];
    bool const noEntries = needsEntries && piece.mEntries == 0;
    bool const empty = noEntries || piece.mRows == 0 || piece.mCols == 0;
    if (!empty || (one && static_cast<int>(rank) != options.mHolder)) continue;
    std::string const who = "rank " + std::to_string(rank) + " would be left empty: ";
    if (one) throw InputError(who + "the matrix has no entries; use --partition all");
    throw InputError(who + "its " + NameOf(options.mPartition) +
                     " hold no entries; use fewer --ranks" +
                     OtherCut(whole, options, static_cast<long>(pieces.size())));
  }
}

}  // namespace Pavex::Tool
