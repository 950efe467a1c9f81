#include "tools/choice/solve_options.h"

#include "tools/choice/input_error.h"

namespace Pavex::Tool {

void CheckSolve(SolveOptions const& options) {
  if (IsDense(options.mOperator.mFormat))
    throw InputError(std::string("--format ") + NameOf(options.mOperator.mFormat) +
                     ": the solvers take sparse matrices; use coo, csr or csc");
  RefuseAssembled(options.mOperator, "pavex solve");
  GatherOptions forOperator = options.mOperator;
  forOperator.mPad = 0;  // mPad belongs to the right-hand sides, which are dense
  CheckCombination(forOperator);
}

}  // namespace Pavex::Tool
