#include "tools/gather/report.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Pavex::Tool {
namespace {

using testing::HasSubstr;
using testing::Not;

// Two row bands of a 5 x 4 matrix on rank 0.
GatherReport TwoRanks() {
  GatherReport report;
  report.mInput = "a.mtx";
  report.mField = "real";
  report.mWhole = {5, 4, 9};
  report.mOptions.mFormat = Format::CSR;
  report.mRanks.resize(2);
  RankRecord& first = report.mRanks[0];
  first.mRows = 2;
  first.mCols = 4;
  first.mEntries = 3;
  first.mReceiver = true;
  first.mGatheredRows = 5;
  first.mGatheredCols = 4;
  first.mGatheredEntries = 9;
  first.mArrivedBytes = 132;
  first.mPeakPoolBytes = 300;
  RankRecord& second = report.mRanks[1];
  second.mRows = 3;
  second.mCols = 4;
  second.mBegin = 2;
  second.mEntries = 6;
  second.mBytes = 88;
  report.mTimings = {{"gather", 0.002, 4000000}, {"update", 0.001, 3000000}};
  return report;
}

TEST(Report, IsVerifiedWithoutADifference) {
  EXPECT_TRUE(TwoRanks().Verified());
  EXPECT_THAT(
      InText(TwoRanks()),
      testing::StartsWith("verified: every entry is that of the input, after every step\n"));
}

TEST(Report, IsNotVerifiedAfterADifferenceOnAnyRank) {
  GatherReport report = TwoRanks();
  std::strcpy(report.mRanks[1].mDifference, "after the scatter: something");

  EXPECT_FALSE(report.Verified());
  EXPECT_EQ(report.Difference(), "rank 1, after the scatter: something");
  EXPECT_THAT(InText(report),
              testing::StartsWith("NOT verified: rank 1, after the scatter: something\n"));
}

TEST(Report, IsNotVerifiedIfNoRankReceived) {
  GatherReport report = TwoRanks();
  report.mRanks[0].mReceiver = false;

  EXPECT_FALSE(report.Verified());
}

TEST(Report, ShowsPiecesArrivalsAndRates) {
  std::string const text = InText(TwoRanks());

  EXPECT_THAT(text,
              HasSubstr("a.mtx: 5 x 4, 9 entries, real\n"
                        "csr of double with int indices, cut by rows, gathered on rank 0\n"));
  EXPECT_THAT(text, HasSubstr("pieces, mode DISTRIBUTED\n"));
  EXPECT_THAT(
      text, HasSubstr("     1           3           4           2           6       0.000\n"));
  EXPECT_THAT(text, HasSubstr("gather          2.000       4.000      2.00\n"));
}

TEST(Report, SaysThatThePatternAloneWasGathered) {
  GatherReport report = TwoRanks();
  report.mOptions.mWithValues = false;

  EXPECT_THAT(InText(report), HasSubstr("csr of double with int indices, cut by rows, the "
                                        "pattern alone, gathered on rank 0\n"));
}

TEST(Report, ShowsEveryRankOfManyOnRequestAlone) {
  GatherReport report = TwoRanks();
  report.mRanks.resize(1000, report.mRanks[1]);

  EXPECT_THAT(InText(report), Not(HasSubstr("\n   500  ")));
  report.mOptions.mAllRanks = true;
  EXPECT_THAT(InText(report), HasSubstr("\n   500  "));
}

TEST(Report, ReportsTheModeThatTheLibraryDecided) {
  GatherReport report = TwoRanks();
  for (RankRecord& record : report.mRanks)
    record.mMode = CENTRALIZED_ONE;

  EXPECT_THAT(InText(report), HasSubstr("pieces, mode CENTRALIZED_ONE\n"));
}

TEST(ReportJson, HoldsWhatTheTextHolds) {
  auto const json = nlohmann::json::parse(InJson(TwoRanks()));

  EXPECT_EQ(json["input"], "a.mtx");
  EXPECT_EQ(json["format"], "csr");
  EXPECT_EQ(json["mode"], "DISTRIBUTED");
  EXPECT_EQ(json["pieces"].size(), 2U);
  EXPECT_EQ(json["pieces"][1]["begin"], 2);
  EXPECT_EQ(json["pieces"][1]["bytes"], 88);
  EXPECT_EQ(json["pieces"][0]["peakPoolBytes"], 300);
  EXPECT_EQ(json["gathered"].size(), 1U);
  EXPECT_EQ(json["gathered"][0]["arrivedBytes"], 132);
  EXPECT_EQ(json["operations"][1]["operation"], "update");
  EXPECT_EQ(json["operations"][1]["gigabytesPerSecond"], 3.0);
  EXPECT_EQ(json["verified"], true);
  EXPECT_EQ(json["difference"], "");
}

TEST(ReportJson, NamesTheDifference) {
  GatherReport report = TwoRanks();
  std::strcpy(report.mRanks[0].mDifference, "after the gather: 9");

  auto const json = nlohmann::json::parse(InJson(report));

  EXPECT_EQ(json["verified"], false);
  EXPECT_EQ(json["difference"], "rank 0, after the gather: 9");
}

TEST(ReportJson, SurvivesFileNamesOfAnyBytes) {
  GatherReport report = TwoRanks();
  report.mInput = "\xff\"\n.mtx";

  EXPECT_TRUE(nlohmann::json::accept(InJson(report)));
}

}  // namespace
}  // namespace Pavex::Tool
