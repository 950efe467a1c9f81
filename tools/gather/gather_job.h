// The main job: pieces on every rank, gathered, updated, scattered, and checked after each
// step.

#pragma once

#include "tools/choice/options.h"
#include "tools/gather/pattern_cells.h"
#include "tools/gather/report.h"
#include "tools/ranks/ranks.h"
#include "tools/source/matrix_market.h"
#include "tools/source/source.h"

#include <memory>
#include <optional>

namespace Pavex::Tool {

struct GatherResult {
  GatherReport mReport;
  // Where rank 0 lives: the gathered matrix on its way into options.mOutput, to be committed if
  // it is worth it.
  std::unique_ptr<MatrixMarketWriter> mOutput;
  // Likewise, if options.mPlot asks for it and no difference was found.
  std::optional<PatternCells> mPattern;
};

// Throws InputError for input that the options do not fit, JobError for a failed operation.
GatherResult RunGather(Source const& source, GatherOptions const& options, Ranks& ranks);

}  // namespace Pavex::Tool
