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
  int mSteps = 0;              // how often the values have changed since the input
  bool mAddsRepeated = false;  // what the source repeats is one entry of the gathered matrix
};

// Compares shape, storage, pattern and values exactly. The entries of one row (for coo, of the
// whole matrix) may have any order. What the source repeats stays apart or is added, as said. A
// dense matrix must have 0 where the source has no entry, and the sum where it has several.
// Returns the first difference in words, 0-based, or an empty text. Reads no array beyond the
// size that the matrix states.
template <typename T, typename I>
std::string FindDifference(MatrixBase const& gathered, Source const& source,
                           Expectation const& expected);

// Compares the dense piece at `piece`, whose values are in `values` in that layout. The
// elements between its lines must still be GapValue. Returns the first difference, like the
// function above.
template <typename T>
std::string FindDifferenceInBlock(T const* values, DenseLayout const& layout,
                                  Piece const& piece, Source const& source, int steps);

}  // namespace Pavex::Tool
