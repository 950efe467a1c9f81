// The options of `pavex solve`.

#pragma once

#include "tools/choice/options.h"

#include <string>

namespace Pavex::Tool {

struct SolveOptions {
  // How the operator is cut and gathered. mPad is that of the right-hand sides; mOutput is the
  // file for the solutions.
  GatherOptions mOperator;
  int mRhs = 1;          // right-hand sides; with a file as many as it has columns
  std::string mRhsFile;  // empty: A times a known solution
  int mSteps = 0;        // solves with new values after the first
};

// Throws InputError for options that exclude each other or do not fit a solve.
void CheckSolve(SolveOptions const& options);

}  // namespace Pavex::Tool
