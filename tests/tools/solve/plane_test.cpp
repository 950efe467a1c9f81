#include "tools/solve/plane.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;

std::vector<double> Counted(std::size_t count) {
  std::vector<double> values(count);
  std::iota(values.begin(), values.end(), 0.0);
  return values;
}

TEST(Plane, IsTheWholeGridOfTwoAxes) {
  Plane const plane = PlaneOf({3, 2}, Counted(9), 100);

  EXPECT_EQ(plane.mSide, 3);
  EXPECT_EQ(plane.mBlock, 1);
  EXPECT_EQ(plane.At(2, 0), 2);
  EXPECT_EQ(plane.At(0, 2), 6);
}

TEST(Plane, IsTheMiddleOfThreeAxes) {
  Plane const plane = PlaneOf({3, 3}, Counted(27), 100);

  EXPECT_EQ(plane.mZ, 1);
  EXPECT_THAT(plane.mValues, ElementsAre(9, 10, 11, 12, 13, 14, 15, 16, 17));
}

// 5 x 5 points in blocks of 2 x 2; those at the ends are 1 wide.
TEST(Plane, ShowsTheMeansOfBlocks) {
  Plane const plane = PlaneOf({5, 2}, Counted(25), 3);

  EXPECT_EQ(plane.mSide, 3);
  EXPECT_EQ(plane.mBlock, 2);
  EXPECT_THAT(plane.mValues, ElementsAre(3, 5, 6.5, 13, 15, 16.5, 20.5, 22.5, 24));
}

TEST(Plane, TakesTheMeanOfTheLargestValues) {
  Plane const plane = PlaneOf({2, 2}, {1e308, 1e308, 1e308, 1e308}, 1);

  EXPECT_THAT(plane.mValues, ElementsAre(1e308));
}

TEST(Runs, AreTheComponentsWhereTheyAreFew) {
  Runs const runs = RunsOf({3, 1, 2}, 3);

  EXPECT_EQ(runs.mLength, 1);
  ASSERT_EQ(runs.mRanges.size(), 3U);
  EXPECT_EQ(runs.mRanges[1].mLow, 1);
  EXPECT_EQ(runs.mRanges[1].mHigh, 1);
}

TEST(Runs, KeepTheExtremesOfWhatTheyStandFor) {
  Runs const runs = RunsOf({3, 1, 2, 9, -4, 5, 7}, 3);

  EXPECT_EQ(runs.mLength, 3);
  ASSERT_EQ(runs.mRanges.size(), 3U);
  EXPECT_EQ(runs.mRanges[0].mLow, 1);
  EXPECT_EQ(runs.mRanges[0].mHigh, 3);
  EXPECT_EQ(runs.mRanges[1].mLow, -4);
  EXPECT_EQ(runs.mRanges[1].mHigh, 9);
  EXPECT_EQ(runs.mRanges[2].mLow, 7);
  EXPECT_EQ(runs.mRanges[2].mHigh, 7);
}

TEST(Range, IsThatOfAllValues) {
  Range const range = RangeOf({2, -1, 5});

  EXPECT_EQ(range.mLow, -1);
  EXPECT_EQ(range.mHigh, 5);
}

}  // namespace
}  // namespace Pavex::Tool
