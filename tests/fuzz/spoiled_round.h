// Random matrices that nobody promises to fit together.

#pragma once

#include "tests/property/round.h"

namespace Pavex {

// A round of `ranks` in which one to four things are changed at will. Each piece is still a
// matrix that a rank can hold, but what the gather makes of the pieces is open; one rank may
// hold another format.
struct SpoiledRound {
  Round round;
  int oddRank = -1;  // -1: none
  Format oddFormat = Format::COO;

  Format FormatOf(int rank) const { return rank == oddRank ? oddFormat : round.format; }
};

SpoiledRound MakeSpoiledRound(Rng& rng, int ranks);

}  // namespace Pavex
