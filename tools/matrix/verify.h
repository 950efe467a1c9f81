// Checks a gathered matrix, or a dense piece that came back, entry by entry against the input.
// The check does not read the arrays of the pieces: the expected entries come from the source,
// row by row.

#pragma once

#include "tools/choice/options.h"
#include "tools/matrix/elements.h"
#include "tools/source/source.h"

#include <string>

namespace Pavex::Tool {

struct Expectation {
  Format mFormat = Format::COO;
  bool mWithValues = true;
  int mSteps = 0;  // steps that the values have moved since the input
};

// Compares shape, storage, pattern and values exactly; the entries of one row (of the whole
// matrix for coo) may stand in any order. Dense: 0 where the source has no entry, the sum where
// it has several. Returns the first difference in words, 0-based, or an empty text. Reads no
// array outside what the matrix says of itself.
template <typename T, typename I>
std::string FindDifference(MatrixBase const& gathered, Source const& source,
                           Expectation const& expected);

// The same for the dense piece at `piece`, which `values` holds in that layout; the elements
// between its lines must still hold GapValue.
template <typename T>
std::string FindDifferenceInBlock(T const* values, DenseLayout const& layout,
                                  Piece const& piece, Source const& source, int steps);

}  // namespace Pavex::Tool
