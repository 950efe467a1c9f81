// Opens what the options name.

#pragma once

#include "tools/options.h"
#include "tools/ranks.h"
#include "tools/source.h"

#include <memory>

namespace Pavex::Tool {

// The input as this process needs it: a process with one rank that receives nothing keeps no
// more than that rank's piece. Throws InputError.
std::unique_ptr<Source> OpenSource(GatherOptions const& options, Ranks const& ranks);

}  // namespace Pavex::Tool
