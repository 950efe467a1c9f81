// Writes a gathered matrix as a Matrix Market file.

#pragma once

#include "pavex/matrix/matrix_base.h"
#include "tools/source/matrix_market.h"

#include <memory>
#include <string>

namespace Pavex::Tool {

// The sparse storages in coordinate format, entry by entry as they stand, as a pattern if there
// are no values; dense in array format. The file has its name only after Commit of what is
// returned. Throws InputError.
template <typename T, typename I>
std::unique_ptr<MatrixMarketWriter> WriteGathered(std::string const& path,
                                                  MatrixBase const& gathered);

}  // namespace Pavex::Tool
