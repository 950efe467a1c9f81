// What the rounds of records that a gather accepts must do.

#pragma once

#include "tests/fuzz/conclusion.h"

#include <string>

namespace Pavex {

// Checks the rounds of the arrays that move if processes with `records` gather pieces, for
// small and large limits of a call: the first ones, and of the entries the last ones. Checks
// nothing if a gather refuses the records or moves no pieces. Returns what is wrong; empty if
// nothing is.
std::string CheckRoundsOf(Records records);

}  // namespace Pavex
