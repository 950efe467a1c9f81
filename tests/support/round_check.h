// What the rounds of a transfer must do, for any records.

#pragma once

#include "pavex/aggregator/rounds.h"

#include <limits>
#include <string>

namespace Pavex {

// Checks the rounds of a transfer of `records`, with at most `most` elements in a call: they
// move every element once and to its place, in the order of the processes, until none is left.
// No call moves more than `most` elements or places them further apart. A transfer of entries
// fills each round except the last one. `most`: what an int counts.
//
// Begins at `from`, the beginning of the transfer or the end of a round, and stops after
// `mostRounds` rounds. Returns what is wrong; empty if nothing is. Takes one pass over the
// processes for each round, however many elements there are.
std::string CheckRounds(Buffer<MatrixLocalInfo> const& records, Moved moved, long most,
                        TransferPoint const& from = {},
                        long mostRounds = std::numeric_limits<long>::max());

}  // namespace Pavex
