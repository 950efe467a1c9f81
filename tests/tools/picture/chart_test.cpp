#include "tools/picture/chart.h"

#include "tools/picture/showable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;

TEST(IndexMarks, StandInTheMiddleOfWholeIndices) {
  std::vector<Mark> const marks = IndexMarks(4, 8);

  ASSERT_EQ(marks.size(), 4U);
  EXPECT_EQ(marks[0].mLabel, "0");
  EXPECT_EQ(marks[0].mPart, 0.125);
  EXPECT_EQ(marks[3].mLabel, "3");
  EXPECT_EQ(marks[3].mPart, 0.875);
}

TEST(IndexMarks, WriteLargeIndicesOut) {
  std::vector<Mark> const marks = IndexMarks(2000000, 3);

  ASSERT_EQ(marks.size(), 2U);
  EXPECT_EQ(marks[1].mLabel, "1000000");
}

TEST(IndexMarks, AreMissingWhereThereIsNothingToMark) {
  EXPECT_TRUE(IndexMarks(0, 8).empty());
  EXPECT_EQ(IndexMarks(1, 8).size(), 1U);
}

TEST(ValueMarks, HaveTheLargestOnTop) {
  std::vector<Mark> const marks = ValueMarks(0, 10, 3);

  ASSERT_EQ(marks.size(), 3U);
  EXPECT_EQ(marks[0].mLabel, "0");
  EXPECT_EQ(marks[0].mPart, 1);
  EXPECT_EQ(marks[2].mLabel, "10");
  EXPECT_EQ(marks[2].mPart, 0);
}

TEST(Showable, KeepsWhatIsUtf8) {
  EXPECT_EQ(Showable("A.mtx \u00b5 \u20ac \U0001F600"), "A.mtx \u00b5 \u20ac \U0001F600");
}

TEST(Showable, ReplacesControlCharacters) {
  EXPECT_EQ(Showable("a\nb\t\x7f\xc2\x85"), "a?b????");
}

TEST(Showable, ReplacesWhatIsNoUtf8) {
  EXPECT_EQ(Showable("a\xff\xfe"), "a??");
  EXPECT_EQ(Showable("\xe2\x82"), "??");                 // ends early
  EXPECT_EQ(Showable("\xc0\xaf\xe0\x80\xaf"), "?????");  // longer than necessary
  EXPECT_EQ(Showable("\xed\xa0\x80"), "???");            // half of a pair
  EXPECT_EQ(Showable("\xf4\x90\x80\x80"), "????");       // beyond the last one
}

}  // namespace
}  // namespace Pavex::Tool
