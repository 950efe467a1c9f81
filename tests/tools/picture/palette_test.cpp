#include "tools/picture/palette.h"

#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

TEST(RankColour, RepeatsEveryEightRanks) {
  for (int rank = 0; rank < 8; ++rank) {
    EXPECT_EQ(RankColour(rank), RankColour(rank + 8));
    for (int other = 0; other < rank; ++other)
      EXPECT_FALSE(RankColour(rank) == RankColour(other)) << rank << " and " << other;
  }
}

TEST(Pale, GoesFromWhiteToTheColour) {
  Colour const colour{0, 100, 200};

  EXPECT_EQ(Pale(colour, 0), (Colour{255, 255, 255}));
  EXPECT_EQ(Pale(colour, 0.5), (Colour{128, 178, 228}));
  EXPECT_EQ(Pale(colour, 1), colour);
}

TEST(FieldColour, GoesFromVioletToYellow) {
  EXPECT_EQ(FieldColour(0), (Colour{68, 1, 84}));
  EXPECT_EQ(FieldColour(0.5), (Colour{33, 145, 140}));
  EXPECT_EQ(FieldColour(1), (Colour{253, 231, 37}));
}

TEST(FieldColour, GrowsLighterAllTheWay) {
  double former = -1;
  for (int k = 0; k <= 64; ++k) {
    Colour const colour = FieldColour(k / 64.0);
    double const light = 0.2126 * colour.mRed + 0.7152 * colour.mGreen + 0.0722 * colour.mBlue;
    EXPECT_GT(light, former) << k;
    former = light;
  }
}

}  // namespace
}  // namespace Pavex::Tool
