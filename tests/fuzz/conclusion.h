// What the processes must conclude from their records: a second implementation, as simple as
// possible.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/runtime/status.h"

#include <vector>

namespace Pavex {

using Records = std::vector<MatrixLocalInfo>;

// The result of the first step of a gather.
struct Conclusion {
  PavexStatus status = STATUS_OK;
  // All members below keep these values after a failure.
  DistMatrixMode mode = DISTRIBUTED;
  int source = 0;
  bool withValues = false;
  long rows = 0;
  long cols = 0;
  long entries = 0;
};

bool operator==(Conclusion const& a, Conclusion const& b);

// The flag of a record, read as a byte, which may have any value.
bool FlagOf(MatrixLocalInfo const& info);

// The conclusion from `records`, those of all processes by rank. There is at least one; they
// may contain any bytes.
Conclusion ExpectedConclusion(Records const& records);

}  // namespace Pavex
