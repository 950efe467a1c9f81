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

std::string TooMany(std::string const& input, Extent const& whole) {
  return input + " has " + std::to_string(whole.mEntries) + " entries, more than the " +
         std::to_string(kMaxEntries) + " that ";
}

// Dense elements of 16 bytes, and as many again to reorder them.
constexpr long kMostElements = 1L << 57;

}  // namespace

void RefuseTooLarge(std::string const& input, Extent const& whole, CutOptions const& options,
                    IndexKind index) {
  if (IsCompressed(options.mFormat) && index == IndexKind::INT && whole.mEntries > kMaxEntries)
    throw InputError(TooMany(input, whole) +
                     "offsets can count with --index int: use --index long");
  if (IsDense(options.mFormat) && whole.mCols > 0 && whole.mRows > kMostElements / whole.mCols)
    throw InputError("a dense matrix of " + std::to_string(whole.mRows) + " x " +
                     std::to_string(whole.mCols) + " has more than the " +
                     std::to_string(kMostElements) +
                     " elements that memory can hold: use a sparse --format");
}

void RefuseTooManyToSolve(std::string const& input, Extent const& whole) {
  if (whole.mEntries > kMaxEntries)
    throw InputError(TooMany(input, whole) + "a solver can count");
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
