// Opens the input that the options name.

#pragma once

#include "tools/choice/options.h"
#include "tools/ranks/ranks.h"
#include "tools/source/source.h"

#include <memory>

namespace Pavex::Tool {

// All of the input. Throws InputError.
std::unique_ptr<Source> OpenSource(InputOptions const& options);

// Forgets all but the piece of the rank that lives here, if it is the only one. Throws
// InputError for pieces that cannot be cut.
void KeepOwnPiece(Source& source, CutOptions const& options, Ranks const& ranks);

// The input for counting its entries only; it need not fit into a gather. Throws InputError.
std::unique_ptr<Source> OpenToCount(InputOptions const& options);

}  // namespace Pavex::Tool
