#include "tools/picture/ticks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;

std::vector<std::string> LabelsOf(std::vector<Tick> const& ticks) {
  std::vector<std::string> labels;
  for (Tick const& tick : ticks)
    labels.push_back(tick.mLabel);
  return labels;
}

TEST(Ticks, AreMultiplesOfARoundStep) {
  EXPECT_THAT(LabelsOf(TicksBetween(0.9, 2.1, 8)),
              ElementsAre("1", "1.2", "1.4", "1.6", "1.8", "2"));
  EXPECT_THAT(LabelsOf(TicksBetween(0, 100, 6)),
              ElementsAre("0", "20", "40", "60", "80", "100"));
  EXPECT_THAT(LabelsOf(TicksBetween(-7, 8, 4)), ElementsAre("-5", "0", "5"));
}

TEST(Ticks, AreOneForAConstant) {
  std::vector<Tick> const ticks = TicksBetween(2.5, 2.5, 6);

  ASSERT_EQ(ticks.size(), 1U);
  EXPECT_EQ(ticks[0].mValue, 2.5);
  EXPECT_EQ(ticks[0].mLabel, "2.5");
}

TEST(Ticks, ReachOverTheWholeRangeOfDouble) {
  double const most = std::numeric_limits<double>::max();

  EXPECT_THAT(LabelsOf(TicksBetween(-most, most, 5)), ElementsAre("-1e+308", "0", "1e+308"));
  EXPECT_THAT(LabelsOf(TicksBetween(0, 1e-310, 3)), ElementsAre("0", "5e-311", "1e-310"));
}

TEST(Ticks, HaveAsManyDigitsAsTellThemApart) {
  EXPECT_THAT(LabelsOf(TicksBetween(1000, 1000.5, 6)),
              ElementsAre("1000", "1000.1", "1000.2", "1000.3", "1000.4", "1000.5"));
  EXPECT_THAT(LabelsOf(TicksBetween(1, 1 + 2.3e-16, 6)),
              ElementsAre("1", "1.0000000000000002"));
}

TEST(Ticks, ShowNoNegativeZero) {
  EXPECT_THAT(LabelsOf(TicksBetween(-1, 1, 3)), ElementsAre("-1", "0", "1"));
}

TEST(Labels, BeginWithTheDigitsAskedFor) {
  EXPECT_THAT(Labels({1.0 / 3, 2.0 / 3}, 6), ElementsAre("0.333333", "0.666667"));
  EXPECT_THAT(Labels({1, 1.00000001}, 6), ElementsAre("1", "1.00000001"));
}

TEST(Part, LiesBetweenTheBounds) {
  EXPECT_EQ(PartOf(3, 1, 5), 0.5);
  EXPECT_EQ(PartOf(1, 1, 5), 0);
  EXPECT_EQ(PartOf(5, 1, 5), 1);
  EXPECT_EQ(PartOf(0, -1e308, 1e308), 0.5);
  EXPECT_EQ(PartOf(7, 7, 7), 0.5);
}

}  // namespace
}  // namespace Pavex::Tool
