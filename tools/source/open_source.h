// Opens what the options name.

#pragma once

#include "tools/choice/options.h"
#include "tools/ranks/ranks.h"
#include "tools/source/source.h"

#include <memory>

namespace Pavex::Tool {

// The input as this process needs it: all of it if `whole` or if several ranks live here, else
// no more than the piece of its rank. Throws InputError.
std::unique_ptr<Source> OpenSource(GatherOptions const& options, Ranks const& ranks,
                                   bool whole);

// The input to count the entries of, which need not fit into a gather. Throws InputError.
std::unique_ptr<Source> OpenToCount(GatherOptions const& options);

}  // namespace Pavex::Tool
