// Colours that colour-blind readers can distinguish.

#pragma once

#include "tools/picture/canvas.h"

namespace Pavex::Tool {

constexpr int kRankColours = 8;

// One of the eight colours of Okabe and Ito. Rank kRankColours has the colour of rank 0 again.
Colour RankColour(int rank);

// A colour between white (strength 0) and `colour` (strength 1).
Colour Pale(Colour colour, double strength);

// A colour of the map viridis, which gets lighter evenly: dark violet (0), green, yellow (1).
Colour FieldColour(double part);

}  // namespace Pavex::Tool
