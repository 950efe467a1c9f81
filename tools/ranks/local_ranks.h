// Ranks without MPI.

#pragma once

#include "tools/ranks/ranks.h"

#include <memory>

namespace Pavex::Tool {

// `count` threads of this process.
std::unique_ptr<Ranks> MakeLocalRanks(int count);

}  // namespace Pavex::Tool
