// What the processes must make of their records, told once more and as plainly as possible.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/runtime/status.h"

#include <vector>

namespace Pavex {

using Records = std::vector<MatrixLocalInfo>;

// What a process knows after the first step of a gather.
struct Conclusion {
  PavexStatus status = STATUS_OK;
  // The rest is 0 after a failure.
  DistMatrixMode mode = DISTRIBUTED;
  int source = 0;
  bool withValues = false;
  long rows = 0;
  long cols = 0;
  long entries = 0;
};

bool operator==(Conclusion const& a, Conclusion const& b);

// The flag of a record as the byte that it is.
bool FlagOf(MatrixLocalInfo const& info);

// `records`: of all processes, by rank; at least one, of any bytes.
Conclusion ExpectedConclusion(Records const& records);

}  // namespace Pavex
