// The pieces that a gather would misunderstand.

#pragma once

#include "tools/options.h"
#include "tools/pieces.h"
#include "tools/report.h"

#include <vector>

namespace Pavex::Tool {

// A coordinate piece without entries, or any piece without rows or columns, would be taken for
// one of a rank that has no part in the matrix; and a gather of values wants at least one from
// every rank. Throws InputError that names the rank and a
// remedy. `records` are those of all ranks, after their pieces were built.
void RefuseEmptyPieces(std::vector<RankRecord> const& records, Extent const& whole,
                       GatherOptions const& options);

}  // namespace Pavex::Tool
