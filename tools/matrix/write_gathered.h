// Writes a gathered matrix as a Matrix Market file.

#pragma once

#include "pavex/matrix/matrix_base.h"
#include "tools/source/matrix_market.h"

#include <memory>
#include <string>

namespace Pavex::Tool {

// Writes a dense matrix in array format, and a sparse one in coordinate format with its entries
// in their order, as a pattern if there are no values. The file gets its name only when the
// caller calls Commit of the result. Throws InputError.
template <typename T, typename I>
std::unique_ptr<MatrixMarketWriter> WriteGathered(std::string const& path,
                                                  MatrixBase const& gathered);

}  // namespace Pavex::Tool
