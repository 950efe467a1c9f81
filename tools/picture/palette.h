// Colours that colour-blind readers can distinguish.

#pragma once

#include "tools/picture/canvas.h"

namespace Pavex::Tool {

constexpr int kRankColours = 8;

// Of the eight colours of Okabe and Ito; rank kRankColours has that of rank 0 again.
Colour RankColour(int rank);

// From white (strength 0) to the colour itself (strength 1).
Colour Pale(Colour colour, double strength);

// The map viridis, which grows lighter evenly: from dark violet (0) by green to yellow (1).
Colour FieldColour(double part);

}  // namespace Pavex::Tool
