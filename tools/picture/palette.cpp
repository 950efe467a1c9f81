#include "tools/picture/palette.h"

#include <algorithm>
#include <cmath>

namespace Pavex::Tool {

namespace {

// The colours of Okabe and Ito, in an order in which neighbours differ in lightness too.
constexpr Colour kOkabeIto[kRankColours] = {
    {0, 114, 178},    // blue
    {230, 159, 0},    // orange
    {0, 158, 115},    // bluish green
    {204, 121, 167},  // reddish purple
    {0, 0, 0},        // black
    {86, 180, 233},   // sky blue
    {213, 94, 0},     // vermilion
    {240, 228, 66},   // yellow
};

constexpr int kSteps = 8;
constexpr Colour kViridis[kSteps + 1] = {{68, 1, 84},    {71, 45, 123},  {59, 82, 139},
                                         {44, 114, 142}, {33, 145, 140}, {40, 174, 128},
                                         {94, 201, 98},  {173, 220, 48}, {253, 231, 37}};

std::uint8_t Between(std::uint8_t from, std::uint8_t to, double part) {
  return static_cast<std::uint8_t>(std::lround(from + (to - from) * part));
}

Colour Between(Colour const& from, Colour const& to, double part) {
  return {Between(from.mRed, to.mRed, part), Between(from.mGreen, to.mGreen, part),
          Between(from.mBlue, to.mBlue, part)};
}

}  // namespace

Colour RankColour(int rank) {
  return kOkabeIto[rank % kRankColours];
}

Colour Pale(Colour colour, double strength) {
  return Between(kPaper, colour, strength);
}

Colour FieldColour(double part) {
  double const place = std::clamp(part, 0.0, 1.0) * kSteps;
  int const step = std::min(static_cast<int>(place), kSteps - 1);
  return Between(kViridis[step], kViridis[step + 1], place - step);
}

}  // namespace Pavex::Tool
