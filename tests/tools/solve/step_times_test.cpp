#include "tools/solve/step_times.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;

SolveStep StepOf(double seconds) {
  SolveStep step;
  step.mOperator.mSeconds = seconds;
  step.mRhs.mSeconds = 2 * seconds;
  step.mAnalyseSeconds = 4 * seconds;
  step.mFactorSeconds = 5 * seconds;
  step.mSolveSeconds = 6 * seconds;
  step.mScatter.mSeconds = 7 * seconds;
  return step;
}

TEST(TimeParts, AddTheTransfersOfOperatorAndRightHandSide) {
  EXPECT_THAT(TimePartsOf(StepOf(1)), ElementsAre(3, 4, 5, 6, 7));
  EXPECT_EQ(Sum(TimePartsOf(StepOf(1))), 25);
}

TEST(TimeBars, AreTheStepsWhereTheyAreFew) {
  TimeBars const bars = BarsOf({StepOf(1), StepOf(2)}, 2);

  EXPECT_EQ(bars.mSteps, 1);
  EXPECT_THAT(bars.mBars, ElementsAre(TimePartsOf(StepOf(1)), TimePartsOf(StepOf(2))));
  EXPECT_EQ(bars.mTotal, TimePartsOf(StepOf(3)));
}

TEST(TimeBars, AreTheMeansOfManySteps) {
  TimeBars const bars = BarsOf({StepOf(1), StepOf(3), StepOf(8)}, 2);

  EXPECT_EQ(bars.mSteps, 2);
  EXPECT_THAT(bars.mBars, ElementsAre(TimePartsOf(StepOf(2)), TimePartsOf(StepOf(8))));
  EXPECT_EQ(bars.mTotal, TimePartsOf(StepOf(12)));
}

TEST(TimeUnit, KeepsNumbersReadable) {
  EXPECT_STREQ(UnitFor(2).mName, "s");
  EXPECT_STREQ(UnitFor(0.02).mName, "ms");
  EXPECT_EQ(UnitFor(0.02).mPerSecond, 1e3);
  EXPECT_STREQ(UnitFor(0).mName, "\u00b5s");
  EXPECT_EQ(UnitFor(2e-5).mPerSecond, 1e6);
}

}  // namespace
}  // namespace Pavex::Tool
