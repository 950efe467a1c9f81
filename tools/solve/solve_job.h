// The working cycle of a solver: gather the pieces, factor, solve, scatter the solutions, and
// repeat with new values.

#pragma once

#include "tools/choice/solve_options.h"
#include "tools/ranks/ranks.h"
#include "tools/solve/grid.h"
#include "tools/solve/solve_report.h"
#include "tools/source/matrix_market.h"
#include "tools/source/source.h"

#include <memory>
#include <vector>

namespace Pavex::Tool {

// The data that all ranks of the process read. Immutable.
struct SolveProblem {
  Source const& mSource;
  SolveOptions const& mOptions;
  Grid mGrid;
  long mUnknowns = 0;
  long mCount = 0;               // right-hand sides
  std::unique_ptr<Source> mRhs;  // null: made from the known solution
};

struct SolveResult {
  SolveReport mReport;
  Grid mGrid;
  // The real parts of the first solution of the last step. Set in the process of rank 0.
  std::vector<double> mSolution;
  // All solutions of the last step, written to the file that the options name but not
  // committed. Set in the process of rank 0 if they name one.
  std::unique_ptr<MatrixMarketWriter> mOutput;
};

// The rows of the right-hand sides that go with the piece of the operator on `rank`, one of
// `ranks`; `whole` is the extent of the operator. Throws InputError.
Piece CutRows(Extent const& whole, CutOptions const& options, int ranks, int rank);

// Throws InputError for input that cannot be solved, JobError for a failed operation or solve.
SolveResult RunSolve(Source const& source, SolveOptions const& options, Ranks& ranks);

}  // namespace Pavex::Tool
