// Random matrices that may not fit together.

#pragma once

#include "tests/property/round.h"

namespace Pavex {

// A round of `ranks` ranks with one to four random changes. Each piece is still a matrix that a
// rank can hold, but the gather may have any result. One rank may hold another format.
struct SpoiledRound {
  Round round;
  int oddRank = -1;  // -1: none
  Format oddFormat = Format::COO;

  Format FormatOf(int rank) const { return rank == oddRank ? oddFormat : round.format; }
};

SpoiledRound MakeSpoiledRound(Rng& rng, int ranks);

}  // namespace Pavex
