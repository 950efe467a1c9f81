// The text of Describe for records that a gather does not refuse, and for records that are not
// there.

#include "pavex/aggregator/plan.h"
#include "pavex/comm/local_comm.h"
#include "tests/support/described_records.h"
#include "tests/support/log_level.h"
#include "tests/support/records.h"
#include "tests/support/shares.h"

#include <sstream>
#include <string>

namespace Pavex {
namespace {

// --- Success

constexpr char kShares[] =
    "agreed: 4 x 5 with 5 entries, with values\n"
    "mode DISTRIBUTED: every process holds a piece\n"
    "2 processes\n"
    "process 0: STORE_COO_0, nonzero-wise from 0, 4 x 5, 2 entries, of 4 x 5, pattern 0, "
    "attribute 0, with values\n"
    "process 1: STORE_COO_0, nonzero-wise from 0, 4 x 5, 3 entries, of 4 x 5, pattern 0, "
    "attribute 0, with values\n";

TEST(Describe, SaysTheSameOnEveryProcessAfterAGatherAndAnUpdate) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece = Share(comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);
    EXPECT_EQ(rank.aggregator.Describe(), kShares);
    ASSERT_EQ(rank.aggregator.Update(piece.matrix), STATUS_OK);
    EXPECT_EQ(rank.aggregator.Describe(), kShares);
    EXPECT_EQ(rank.aggregator.Mode(), DISTRIBUTED);
  });
}

TEST(Describe, StillReportsTheGatherAfterARefusedUpdateAndScatterAndAClear) {
  LogLevel const silent(-1);
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> piece = Share(0);
  ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

  EXPECT_EQ(rank.aggregator.Update(Share(1).matrix), STATUS_MISMATCH);
  EXPECT_EQ(rank.aggregator.Scatter(piece.matrix), STATUS_NOT_SUPPORTED);
  rank.aggregator.Clear();

  EXPECT_EQ(rank.aggregator.Describe(), kShares);
}

TEST(Describe, MakesNoCallAndTakesNoMemoryOfThePool) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);
  rank.ForgetThePast();

  EXPECT_EQ(rank.aggregator.Describe(), kShares);

  EXPECT_TRUE(rank.comm->Texts().empty());
  EXPECT_TRUE(rank.pool.Events().empty());
}

TEST(Describe, ReportsASingleProcess) {
  EXPECT_EQ(About({RowBand(5, 10)}),
            "agreed, but only process 0 is not empty: its 10 x 100 piece of 100 x 100 "
            "(row-wise from 5) is treated as the whole matrix\n"
            "gathered: 10 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ALL: a single process holds the whole matrix\n"
            "1 process\n"
            "process 0: STORE_CSR_0, row-wise from 5, 10 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n");
}

TEST(Describe, ReportsAWholeOnEveryProcess) {
  MatrixLocalInfo whole = Whole();
  whole.withValues = false;

  EXPECT_EQ(About({whole, whole}),
            "agreed: 100 x 100 with 7 entries, without values\n"
            "mode CENTRALIZED_ALL: every process holds the whole matrix\n"
            "2 processes\n"
            "process 0: STORE_CSR_0, no partition from 0, 100 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, without values\n"
            "process 1: STORE_CSR_0, no partition from 0, 100 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, without values\n");
}

TEST(Describe, ReportsThatNoProcessHoldsAnything) {
  EXPECT_EQ(VerdictAbout({Empty(), Empty()}),
            "agreed: 0 x 0 with 0 entries, with values\n"
            "mode CENTRALIZED_ALL: no process holds anything\n");
}

TEST(Describe, ReportsTheEntriesOfTheFirstProcessIfNoProcessHoldsAnything) {
  MatrixLocalInfo counted = Empty();
  counted.nnz = 5;

  EXPECT_EQ(VerdictAbout({counted, Empty()}),
            "agreed: 0 x 0 with 5 entries, with values\n"
            "mode CENTRALIZED_ALL: no process holds anything\n");
}

TEST(Describe, ReportsTheOnlyHolderAndWhoIsEmpty) {
  EXPECT_EQ(About({Empty(), Whole()}),
            "agreed: 100 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n"
            "2 processes\n"
            "process 0: STORE_CSR_0, no partition from 0, 0 x 0, 0 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values, empty\n"
            "process 1: STORE_CSR_0, no partition from 0, 100 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n");
}

TEST(Describe, ReportsThatAPieceIsTreatedAsTheWhole) {
  EXPECT_EQ(VerdictAbout({Empty(), RowBand(5, 10), Empty()}),
            "agreed, but only process 1 is not empty: its 10 x 100 piece of 100 x 100 "
            "(row-wise from 5) is treated as the whole matrix\n"
            "gathered: 10 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, AddsUpTheBandsInTheirDirection) {
  EXPECT_EQ(VerdictAbout({RowBand(20, 10), RowBand(30, 5)}),
            "agreed, but declared 100 x 100: no process holds rows 0 to 19\n"
            "and declared 100 x 100: no process holds rows 35 to 99\n"
            "gathered: 15 x 100 with 14 entries, with values\n"
            "mode DISTRIBUTED: every process holds a piece\n");
  EXPECT_EQ(VerdictAbout({ColumnBand(0, 1), ColumnBand(1, 5)}),
            "agreed, but declared 100 x 100: no process holds columns 6 to 99\n"
            "gathered: 100 x 6 with 14 entries, with values\n"
            "mode DISTRIBUTED: every process holds a piece\n");
}

// --- Before and in the exchange

constexpr char kNothing[] = "no records: no gather has come to its exchange yet\n";

TEST(Describe, HasNothingToReportBeforeTheFirstGather) {
  RankUnderTest<> const rank = SingleRank();

  EXPECT_EQ(rank.aggregator.Describe(), kNothing);
  EXPECT_EQ(rank.aggregator.Mode(), DISTRIBUTED);
}

TEST(Describe, HasNothingToReportWhereThereIsRoomForARecordButNone) {
  EXPECT_EQ(About({}), kNothing);
}

TEST(Describe, HasNothingToReportAfterARefusalBeforeTheExchange) {
  LogLevel const silent(-1);
  RankUnderTest<> withoutComm = SingleRank();
  RankUnderTest<> outside(std::make_shared<ScriptedComm>(2, 2));
  RankUnderTest<> withoutMemory = ShareRank(0);
  withoutMemory.pool.Fail(Fault::Once(1, -3));
  CooPiece<> const piece = Share(0);

  EXPECT_EQ(withoutComm.aggregator.Gather(nullptr, piece.matrix, true), STATUS_INVALID_VALUE);
  EXPECT_EQ(outside.aggregator.Gather(outside.comm, piece.matrix, true), STATUS_INVALID_VALUE);
  EXPECT_EQ(withoutMemory.aggregator.Gather(withoutMemory.comm, piece.matrix, true), -3);

  EXPECT_EQ(withoutComm.aggregator.Describe(), kNothing);
  EXPECT_EQ(outside.aggregator.Describe(), kNothing);
  EXPECT_EQ(withoutMemory.aggregator.Describe(), kNothing);
}

TEST(Describe, StillReportsTheEarlierExchangeAfterARefusalBeforeTheNext) {
  LogLevel const silent(-1);
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

  EXPECT_EQ(rank.aggregator.Gather(nullptr, piece.matrix, true), STATUS_INVALID_VALUE);

  EXPECT_EQ(rank.aggregator.Describe(), kShares);
}

TEST(Describe, SaysWhichRecordsNeverArrived) {
  LogLevel const silent(-1);
  auto const comm = std::make_shared<ScriptedComm>(1, 3);
  comm->Return(CommOp::ALLGATHER, -77);
  RankUnderTest<> rank(comm);
  CooPiece<> const piece = Share(1);

  EXPECT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), -77);

  EXPECT_EQ(rank.aggregator.Describe(),
            "refused: 2 of 3 records never arrived\n"
            "stage: exchange\n"
            "mode not decided\n"
            "3 processes\n"
            "process 0: its record never arrived\n"
            "process 1: STORE_COO_0, nonzero-wise from 0, 4 x 5, 3 entries, of 4 x 5, pattern "
            "0, attribute 0, with values\n"
            "process 2: its record never arrived\n");
}

TEST(Describe, CountsASingleRecordThatNeverArrived) {
  EXPECT_EQ(VerdictAbout({RowBand(0, 10), MatrixLocalInfo()}),
            "refused: 1 of 2 records never arrived\n"
            "stage: exchange\n"
            "mode not decided\n");
}

TEST(Describe, CountsOnlyTheRecordsOfTheGather) {
  Records const records = {RowBand(0, 10), RowBand(10, 5)};

  EXPECT_EQ(About(records, MatrixLocalInfo()), About(records));
}

// --- Findings about a single holder

TEST(Describe, ReportsAnEmptyMatrixOfAnotherFormatThanTheOnlyHolders) {
  MatrixLocalInfo other = Empty();
  other.storeType = STORE_CSC_0;

  EXPECT_EQ(VerdictAbout({Empty(), other, Whole()}),
            "agreed, but process 1 has STORE_CSC_0, process 2 has STORE_CSR_0; expected the "
            "same format (another one throws std::bad_cast)\n"
            "gathered: 100 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 2 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({Empty(), Piece(STORE_DENSE_ROW_MAJOR, {}, 2, 3, 6)}),
            "agreed, but process 0 has STORE_CSR_0, process 1 has STORE_DENSE_ROW_MAJOR; "
            "expected the same format (another one throws std::bad_cast)\n"
            "gathered: 2 x 3 with 6 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, TakesAnEmptyMatrixOfTheSameFormatAndAnotherTypeOfIt) {
  MatrixLocalInfo other = Empty();
  other.storeType = STORE_CSR_2;

  EXPECT_EQ(VerdictAbout({other, Whole()}),
            "agreed: 100 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, ReportsNegativeSizesOfTheOnlyHolder) {
  MatrixLocalInfo entries = Whole();
  entries.nnz = -1;
  MatrixLocalInfo rows = Whole();
  rows.rows = -1;
  MatrixLocalInfo cols = Whole();
  cols.cols = -1;

  EXPECT_EQ(VerdictAbout({Empty(), entries}),
            "agreed, but process 1 has 100 x 100 with -1 entries; expected no negative number\n"
            "gathered: 100 x 100 with -1 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({rows, Empty()}),
            "agreed, but process 0 has -1 x 100 with 7 entries; expected no negative number\n"
            "gathered: -1 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 0 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({Empty(), cols}),
            "agreed, but process 1 has 100 x -1 with 7 entries; expected no negative number\n"
            "gathered: 100 x -1 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, TakesAnOnlyHolderOfSizesZero) {
  MatrixLocalInfo entries = Whole();
  entries.nnz = 0;

  EXPECT_EQ(VerdictAbout({Empty(), entries}),
            "agreed, but process 1 has no entries, so no values to send: it fails, and the "
            "others may wait for it\n"
            "gathered: 100 x 100 with 0 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({Piece(STORE_COO_0, {}, 4, 5, 0), Piece(STORE_COO_0, {}, 0, 0, 7)}),
            "agreed: 0 x 0 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

// --- The list of the processes

// The numbers of the processes that a description of `count` processes lists, and the line that
// replaces the others.
std::string ListOf(std::int64_t count, Listed listed) {
  Records records;
  for (std::int64_t p = 0; p < count; ++p)
    records.push_back(RowBand(p, 1));
  Buffer<MatrixLocalInfo> const view = View(records);
  std::istringstream text(
      Describe(view, PlanGather(view, sizeof(double), sizeof(int)), listed));
  std::string list;
  for (std::string line; std::getline(text, line);) {
    if (line.rfind("process ", 0) == 0)
      list += line.substr(8, line.find(':') - 8) + " ";
    else if (line.rfind("...", 0) == 0)
      list += line + " ";
  }
  return list;
}

TEST(Describe, ListsTheFirstAndTheLastFourOfManyProcesses) {
  EXPECT_EQ(ListOf(10, Listed::FIRST_AND_LAST), "0 1 2 3 ... 2 more ... 6 7 8 9 ");
  EXPECT_EQ(ListOf(1000, Listed::FIRST_AND_LAST), "0 1 2 3 ... 992 more ... 996 997 998 999 ");
}

TEST(Describe, ListsEveryProcessIfFewOrIfAsked) {
  EXPECT_EQ(ListOf(9, Listed::FIRST_AND_LAST), "0 1 2 3 4 5 6 7 8 ");
  EXPECT_EQ(ListOf(12, Listed::ALL), "0 1 2 3 4 5 6 7 8 9 10 11 ");
}

}  // namespace
}  // namespace Pavex
