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
  // The gathered matrix, written to options.mOutput but not committed. Set in the process of
  // rank 0.
  std::unique_ptr<MatrixMarketWriter> mOutput;
  // The pattern for options.mPlot. Set in the process of rank 0 if no difference was found.
  std::optional<PatternCells> mPattern;
};

// Throws InputError for input that the options do not fit, JobError for a failed operation.
GatherResult RunGather(Source const& source, GatherOptions const& options, Ranks& ranks);

}  // namespace Pavex::Tool
