#include "tools/plan/plan.h"

#include "tests/support/log_level.h"
#include "tests/tools/temporary_folder.h"
#include "tools/choice/input_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Plan PlanOf(Source const& source, GatherOptions const& options, CommKind comm = CommKind::MPI) {
  return MakePlan(source, options, options, comm);
}

GatherOptions Options(Format format, int ranks) {
  GatherOptions options;
  options.mFormat = format;
  options.mRanks = ranks;
  return options;
}

TEST(Plan, CountsAMatrixThatNoMemoryHolds) {
  auto const source = OpenGenerator("poisson3d:1000");

  Plan const plan = PlanOf(*source, Options(Format::CSR, 1000));

  EXPECT_EQ(plan.mEntries, 6994000000);
  EXPECT_EQ(plan.mRanks[0].mEntries, 1000000 + 2 * 1998000 + 1000000);
  EXPECT_EQ(
      plan.mRefusal,
      "poisson3d:1000 has 6994000000 entries, more than the 2147483647 that offsets can count "
      "with --index int: use --index long");
  EXPECT_THAT(plan.mWarnings, IsEmpty());
}

TEST(Plan, AcceptsAnyNumberOfEntriesThatCanBeCounted) {
  auto const source = OpenGenerator("poisson3d:1000");
  GatherOptions wide = Options(Format::CSR, 1000);
  wide.mIndex = IndexKind::LONG;

  Plan const plan = PlanOf(*source, wide);

  EXPECT_EQ(plan.mRefusal, "");
  // The records, the lengths, and 4 calls for each of the indices and the values.
  EXPECT_EQ(plan.mRanks[0].mCalls, 1 + 1 + 2 * 4);
  EXPECT_EQ(plan.mRanks[0].mMessages, 999 + 999 + 2 * (999 + 3)) << "3 shares are cut";
  EXPECT_EQ(PlanOf(*source, Options(Format::COO, 1000)).mRefusal, "");
  EXPECT_EQ(PlanOf(*OpenGenerator("dense:50000x50000"), Options(Format::DENSE_COL, 4)).mRefusal,
            "");
}

GatherOptions OptionsOfLargest(Format format, int ranks) {
  GatherOptions options = Options(format, ranks);
  options.mValue = ValueKind::COMPLEX_DOUBLE;
  options.mIndex = IndexKind::LONG;
  options.mToAll = true;
  return options;
}

TEST(Plan, CountsTheBytesOfTheLargestPaddedPiece) {
  auto const source = OpenGenerator("dense:379625062x379625062");
  GatherOptions options = OptionsOfLargest(Format::DENSE_ROW, 1);
  options.mPad = 1 << 20;

  Plan const plan = PlanOf(*source, options);

  EXPECT_EQ(plan.mRanks[0].mBytes, 2312212054823471680);
}

TEST(Plan, CountsTheBytesOfTheMostMessages) {
  auto const source = OpenGenerator("dense:47453132x47453132");
  GatherOptions options = OptionsOfLargest(Format::COO, 64);
  options.mPartition = Partition::ENTRIES;

  Plan const plan = PlanOf(*source, options);

  EXPECT_EQ(plan.MessageBytes(), 4539628269004889088);
}

// The peak is the matrix twice, because its bands are side by side, and a packed copy of a
// band.
TEST(Plan, CountsTheBytesOfTheLargestBands) {
  auto const source = OpenGenerator("dense:47453132x47453132");
  GatherOptions options = OptionsOfLargest(Format::DENSE_ROW, 64);
  options.mPartition = Partition::COLUMNS;
  options.mPad = 1 << 20;

  Plan const plan = PlanOf(*source, options);

  EXPECT_EQ(plan.mRanks[63].mPeakPoolBytes, 72620542122549760);
}

// Runs need neither the packed copy nor the second one, and one call moves any number of them.
TEST(Plan, CountsOneCallAndNoCopiesOfRuns) {
  auto const source = OpenGenerator("dense:100000x50000");
  GatherOptions options = Options(Format::DENSE_ROW, 2);
  options.mPartition = Partition::COLUMNS;
  options.mPad = 3;

  Plan const plan = PlanOf(*source, options, CommKind::LOCAL);

  EXPECT_EQ(plan.mComm, CommKind::LOCAL);
  EXPECT_EQ(plan.mRanks[0].mCalls, 2);
  EXPECT_EQ(plan.mRanks[0].mMessages, 2);
  EXPECT_EQ(plan.mRanks[0].mMessageBytes, 72 + 100000L * 25000 * 8);
  EXPECT_EQ(plan.mRanks[0].mPeakPoolBytes, 2 * 72 + 2 * 2 * 4 + 100000L * 50000 * 8 + 2 * 32);
  EXPECT_EQ(plan.mRanks[1].mPeakPoolBytes, 2 * 72);
}

std::string RefusalOf(std::string const& input, GatherOptions const& options) {
  try {
    PlanOf(*OpenGenerator(input), options);
  } catch (InputError const& refusal) {
    return refusal.what();
  }
  return "";
}

TEST(Plan, RefusesWhatItCannotCountTheBytesOf) {
  GatherOptions wholes = Options(Format::DENSE_ROW, 4);
  wholes.mPartition = Partition::ALL;
  GatherOptions complexWholes = wholes;
  complexWholes.mValue = ValueKind::COMPLEX_DOUBLE;
  std::string const uncountable =
      "dense:2147483647x2147483647 has 4611686014132420609 entries, more than the "
      "36028797018963968 that a plan can count on 4 ranks";

  EXPECT_EQ(RefusalOf("dense:2147483647x2147483647", wholes), uncountable);
  EXPECT_EQ(RefusalOf("dense:2147483647x2147483647", complexWholes), uncountable);
  EXPECT_EQ(RefusalOf("dense:2147483647x2147483647", Options(Format::COO, 4)), uncountable);
  EXPECT_EQ(RefusalOf("dense:379625063x379625063", Options(Format::COO, 1)),
            "dense:379625063x379625063 has 144115188457753969 entries, more than the "
            "144115188075855872 that a plan can count on 1 rank");
  EXPECT_EQ(RefusalOf("poisson3d:1290", Options(Format::DENSE_COL, 4)),
            "poisson3d:1290 has 4608273662721000000 entries, more than the 36028797018963968 "
            "that a plan can count on 4 ranks");
}

TEST(Plan, WarnsOfEntriesThatOffsetsCanHardlyCount) {
  auto const source = OpenGenerator("dense:45000x45000");
  GatherOptions wide = Options(Format::CSR, 4);
  wide.mIndex = IndexKind::LONG;

  EXPECT_THAT(PlanOf(*source, Options(Format::CSR, 4)).mWarnings,
              ElementsAre("2025000000 entries are near the 2147483647 that offsets can count "
                          "with --index int"));
  EXPECT_THAT(PlanOf(*source, wide).mWarnings, IsEmpty());
  EXPECT_THAT(PlanOf(*source, Options(Format::DENSE_ROW, 4)).mWarnings, IsEmpty());
}

TEST(Plan, AcceptsMoreOffsetsOfAHolderThanAnIntCounts) {
  auto const source = OpenGenerator("dense:2147483647x1");
  GatherOptions options = Options(Format::CSR, 4);
  options.mPartition = Partition::ONE;
  options.mHolder = 2;

  EXPECT_EQ(PlanOf(*source, options).mRefusal, "");
}

constexpr char kFirstRowsOnly[] =
    "%%MatrixMarket matrix coordinate real general\n"
    "4 4 2\n1 1 5\n1 3 6\n";

TEST(Plan, WarnsOfALoneBandThatIsTreatedAsTheWhole) {
  TemporaryFolder const folder;
  auto const source = OpenFile(folder.Write("a.mtx", kFirstRowsOnly));

  Plan const plan = PlanOf(*source, Options(Format::COO, 4));

  EXPECT_EQ(plan.mMode, CENTRALIZED_ONE);
  EXPECT_EQ(plan.mRows, 1);
  EXPECT_THAT(plan.mWarnings, ElementsAre("only process 0 is not empty: its 1 x 4 piece of 4 x "
                                          "4 (row-wise from 0) is treated as the whole matrix",
                                          "3 of 4 ranks have no entries, the first is rank 1"));
  EXPECT_EQ(plan.mRefusal,
            "rank 1 would be left empty: its rows hold no entries; use fewer --ranks");
}

TEST(Plan, WarnsInTextAndJsonOfWhatTheLibraryFindsSuspicious) {
  TemporaryFolder const folder;
  auto const source = OpenFile(folder.Write("a.mtx", kFirstRowsOnly));
  std::string const finding =
      "process 1 has no entries (the first of 3 such processes), so no values to send: it "
      "fails, and the others may wait for it";

  Plan const plan = PlanOf(*source, Options(Format::CSR, 4));
  auto const json = nlohmann::json::parse(InJson(plan));

  EXPECT_THAT(plan.mWarnings,
              ElementsAre(finding, "3 of 4 ranks have no entries, the first is rank 1"));
  EXPECT_THAT(InText(plan), HasSubstr("\nwarning: " + finding + "\n"));
  EXPECT_EQ(json["warnings"][0], finding);
}

TEST(Plan, DescribesThePiecesThatAGatherRefuses) {
  TemporaryFolder const folder;
  auto const source = OpenFile(folder.Write("a.mtx",
                                            "%%MatrixMarket matrix coordinate real general\n"
                                            "4 4 2\n1 1 5\n3 3 6\n"));
  Pavex::LogLevel const silent(-1);

  Plan const plan = PlanOf(*source, Options(Format::COO, 4));

  EXPECT_FALSE(plan.mDecided);
  EXPECT_THAT(
      InText(plan),
      HasSubstr("refused: 2 of 4 processes are empty (the first is process 1), the others are "
                "not (the first is process 0); expected 0, 3 or 4 empty processes\n"));
  EXPECT_FALSE(nlohmann::json::parse(InJson(plan)).contains("mode"));
}

TEST(Plan, CountsTheColumnsOfAFile) {
  TemporaryFolder const folder;
  auto const source = OpenFile(folder.Write("a.mtx",
                                            "%%MatrixMarket matrix coordinate real general\n"
                                            "2 4 5\n1 1 5\n2 1 6\n1 2 7\n2 3 8\n1 4 9\n"));
  GatherOptions options = Options(Format::CSC, 2);
  options.mPartition = Partition::COLUMNS;
  options.mCuts = {1};

  Plan const plan = PlanOf(*source, options);

  EXPECT_EQ(plan.mRanks[0].mEntries, 2);
  EXPECT_EQ(plan.mRanks[1].mEntries, 3);
}

TEST(Plan, ReportsTheSameToReadersAndPrograms) {
  auto const source = OpenGenerator("dense:4x3");

  Plan const plan = PlanOf(*source, Options(Format::DENSE_ROW, 2));
  auto const json = nlohmann::json::parse(InJson(plan));

  EXPECT_EQ(InText(plan),
            "accepted: mode DISTRIBUTED\n"
            "dense:4x3: 4 x 3, 12 entries, real\n"
            "dense-row of double with int indices, partition rows\n"
            "\n"
            "pieces, mode DISTRIBUTED\n"
            "  rank        rows     columns       begin     entries          MB    messages  "
            "MB received  peak pool MB\n"
            "     0           2           3           0           6       0.000           2  "
            "      0.000         0.000\n"
            "     1           2           3           2           6       0.000           1  "
            "      0.000         0.000\n"
            "   sum           -           -           -          12       0.000           3  "
            "      0.000         0.000\n"
            "\n"
            "gathered: 4 x 3, 12 entries, on rank 0\n"
            "messages: 3 with 0.000 MB\n");
  EXPECT_EQ(json["mode"], "DISTRIBUTED");
  EXPECT_EQ(json["messages"], 3);
  EXPECT_EQ(json["messageBytes"], 72 + 48 + 72);
  EXPECT_EQ(json["pieces"][0]["peakPoolBytes"], 2 * 72 + 2 * 2 * 4 + 12 * 8);
  EXPECT_EQ(json["pieces"][1]["peakPoolBytes"], 2 * 72);
}

}  // namespace
}  // namespace Pavex::Tool
