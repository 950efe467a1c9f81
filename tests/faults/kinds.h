// The cases in which faults are injected: one for every kind of matrix, cut and request.

#pragma once

#include "tests/property/round.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Pavex {

// The name of the kind of a round. Kinds differ in format, holding, partition of pieces,
// receivers, with or without values, whether a dense matrix is padded, whether a single holder
// receives, and whether all ranks are empty.
std::string KindOf(Round const& round);

// How many kinds there are for so many ranks.
std::size_t CountOfKinds(int ranks);

// A random round of each kind, without a flaw. The result is always the same.
std::vector<Round> OneRoundOfEachKind(int ranks);

}  // namespace Pavex
