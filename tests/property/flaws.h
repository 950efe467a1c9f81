// Flaws that make a gather fail, added to a round that would succeed.

#pragma once

#include "tests/property/round.h"

namespace Pavex {

// Puts a random flaw that fits into the round, if its matrix is not held by one rank alone.
void AddFlaw(Rng& rng, Round& round);

}  // namespace Pavex
