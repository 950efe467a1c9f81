// What the object says about the records of its last exchange, word for word.

#include "pavex/aggregator/plan.h"
#include "pavex/comm/local_comm.h"
#include "tests/support/described_matrix.h"
#include "tests/support/described_records.h"
#include "tests/support/log_level.h"
#include "tests/support/records.h"
#include "tests/support/shares.h"

#include <cstring>
#include <limits>
#include <sstream>
#include <string>

namespace Pavex {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

// The matrix that describes itself as `info`.
DescribedMatrix MatrixOf(MatrixLocalInfo const& info) {
  DescribedMatrix matrix(info.storeType, info.rows, info.cols, info.nnz);
  matrix.PlaceIn(info.globalRows, info.globalCols, info.partition);
  matrix.mPattern = info.pattern;
  matrix.mAttribute = info.attribute;
  return matrix;
}

// What rank `own` of processes with `records` says after its gather, which fails with
// `expected`.
std::string AfterFailure(PavexStatus expected, Records const& records, int own = 0) {
  LogLevel const silent(-1);
  auto const comm = std::make_shared<ScriptedComm>(own, static_cast<int>(records.size()));
  comm->SetRecords(records);
  RankUnderTest<> rank(comm);
  MatrixLocalInfo const& info = records[static_cast<std::size_t>(own)];
  DescribedMatrix const local = MatrixOf(info);

  EXPECT_EQ(rank.aggregator.Gather(rank.comm, local, info.WithValues()), expected);

  return rank.aggregator.Describe();
}

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

TEST(Describe, StillTellsOfTheGatherAfterARefusedUpdateAndScatterAndAClear) {
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

TEST(Describe, TellsASingleProcess) {
  EXPECT_EQ(About({RowBand(5, 10)}),
            "agreed, but process 0 alone is not empty: its 10 x 100 piece of 100 x 100 "
            "(row-wise from 5) is taken for the whole matrix\n"
            "gathered: 10 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ALL: a single process holds the whole matrix\n"
            "1 process\n"
            "process 0: STORE_CSR_0, row-wise from 5, 10 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n");
}

TEST(Describe, TellsAWholeOnEveryProcess) {
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

TEST(Describe, TellsThatNobodyHoldsAnything) {
  EXPECT_EQ(VerdictAbout({Empty(), Empty()}),
            "agreed: 0 x 0 with 0 entries, with values\n"
            "mode CENTRALIZED_ALL: no process holds anything\n");
}

TEST(Describe, TellsTheEntriesOfTheFirstProcessWhereNobodyHoldsAnything) {
  MatrixLocalInfo counted = Empty();
  counted.nnz = 5;

  EXPECT_EQ(VerdictAbout({counted, Empty()}),
            "agreed: 0 x 0 with 5 entries, with values\n"
            "mode CENTRALIZED_ALL: no process holds anything\n");
}

TEST(Describe, TellsTheOnlyHolderAndWhoIsEmpty) {
  EXPECT_EQ(About({Empty(), Whole()}),
            "agreed: 100 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n"
            "2 processes\n"
            "process 0: STORE_CSR_0, no partition from 0, 0 x 0, 0 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values, empty\n"
            "process 1: STORE_CSR_0, no partition from 0, 100 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n");
}

TEST(Describe, TellsThatAPieceIsTakenForTheWhole) {
  EXPECT_EQ(VerdictAbout({Empty(), RowBand(5, 10), Empty()}),
            "agreed, but process 1 alone is not empty: its 10 x 100 piece of 100 x 100 "
            "(row-wise from 5) is taken for the whole matrix\n"
            "gathered: 10 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, AddsUpTheBandsInTheirDirection) {
  EXPECT_EQ(VerdictAbout({RowBand(20, 10), RowBand(30, 5)}),
            "agreed, but declared 100 x 100: rows 0 to 19 are held by no process\n"
            "and declared 100 x 100: rows 35 to 99 are held by no process\n"
            "gathered: 15 x 100 with 14 entries, with values\n"
            "mode DISTRIBUTED: every process holds a piece\n");
  EXPECT_EQ(VerdictAbout({ColumnBand(0, 1), ColumnBand(1, 5)}),
            "agreed, but declared 100 x 100: columns 6 to 99 are held by no process\n"
            "gathered: 100 x 6 with 14 entries, with values\n"
            "mode DISTRIBUTED: every process holds a piece\n");
}

// --- Before and in the exchange

constexpr char kNothing[] = "no records: no gather has come to its exchange yet\n";

TEST(Describe, HasNothingToTellBeforeTheFirstGather) {
  RankUnderTest<> const rank = SingleRank();

  EXPECT_EQ(rank.aggregator.Describe(), kNothing);
  EXPECT_EQ(rank.aggregator.Mode(), DISTRIBUTED);
}

TEST(Describe, HasNothingToTellWhereThereIsRoomForARecordButNone) {
  EXPECT_EQ(About({}), kNothing);
}

TEST(Describe, HasNothingToTellAfterARefusalBeforeTheExchange) {
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

TEST(Describe, StillTellsOfTheEarlierExchangeAfterARefusalBeforeTheNext) {
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

TEST(Describe, CountsNoRecordBesideThoseOfTheGather) {
  Records const records = {RowBand(0, 10), RowBand(10, 5)};

  EXPECT_EQ(About(records, MatrixLocalInfo()), About(records));
}

// --- Refused records

TEST(Describe, TellsWhichProcessesAreEmptyAmongOthersThatAreNot) {
  EXPECT_EQ(AfterFailure(-16, {Whole(), Whole(), Empty(), Empty()}),
            "refused: 2 of 4 processes are empty, the first is process 2, and the others are "
            "not, the first is process 0; expected none, all or all but one empty\n"
            "stage: mode\n"
            "mode not decided\n"
            "4 processes\n"
            "process 0: STORE_CSR_0, no partition from 0, 100 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n"
            "process 1: STORE_CSR_0, no partition from 0, 100 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n"
            "process 2: STORE_CSR_0, no partition from 0, 0 x 0, 0 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values, empty\n"
            "process 3: STORE_CSR_0, no partition from 0, 0 x 0, 0 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values, empty\n");
}

TEST(Describe, TellsThatTheFirstProcessIsEmptyAmongOthersThatAreNot) {
  EXPECT_EQ(VerdictAbout({Empty(), Empty(), Whole(), Whole()}),
            "refused: 2 of 4 processes are empty, the first is process 0, and the others are "
            "not, the first is process 2; expected none, all or all but one empty\n"
            "stage: mode\n"
            "mode not decided\n");
}

// The verdict on a refusal by `stage`, checked to be one, and the same on the last process.
std::string Refusal(Records const& records, PavexStatus status = -16,
                    std::string const& stage = "agreement") {
  std::string const first = AfterFailure(status, records);
  EXPECT_EQ(AfterFailure(status, records, static_cast<int>(records.size()) - 1), first);
  std::size_t const end = first.find('\n') + 1;
  std::string const line = "stage: " + stage + "\n";
  EXPECT_EQ(first.substr(end, line.size()), line);
  return first.substr(0, end);
}

TEST(Describe, TellsAGapWithTheBeginThatWouldHaveBeenAdjacent) {
  EXPECT_EQ(AfterFailure(-16, {RowBand(0, 10), RowBand(11, 5)}),
            "refused: process 1 begins at row 11; expected 10, behind the 10 rows of process 0 "
            "from 0 (a gap)\n"
            "stage: agreement\n"
            "mode DISTRIBUTED: every process holds a piece\n"
            "2 processes\n"
            "process 0: STORE_CSR_0, row-wise from 0, 10 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n"
            "process 1: STORE_CSR_0, row-wise from 11, 5 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n");
}

TEST(Describe, TellsAnOverlapOfTheFirstPairAtFault) {
  EXPECT_EQ(
      Refusal({ColumnBand(3, 10), ColumnBand(13, 5), ColumnBand(17, 5), ColumnBand(1, 1)}),
      "refused: process 2 begins at column 17; expected 18, behind the 5 columns of "
      "process 1 from 13 (an overlap)\n");
}

TEST(Describe, TellsOtherCodes) {
  MatrixLocalInfo pattern = RowBand(10, 5);
  pattern.pattern = 3;
  MatrixLocalInfo attribute = RowBand(10, 5);
  attribute.attribute = -5;

  EXPECT_EQ(Refusal({RowBand(0, 10), pattern}),
            "refused: process 0 has pattern 1, attribute 2, process 1 has pattern 3, attribute "
            "2; expected the same\n");
  EXPECT_EQ(Refusal({RowBand(0, 10), attribute}),
            "refused: process 0 has pattern 1, attribute 2, process 1 has pattern 1, attribute "
            "-5; expected the same\n");
}

TEST(Describe, TellsMixedFormats) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.storeType = STORE_DENSE_COL_MAJOR;

  EXPECT_EQ(Refusal({RowBand(0, 10), RowBand(10, 3), other}),
            "refused: process 1 has STORE_CSR_0, process 2 has STORE_DENSE_COL_MAJOR; expected "
            "the same\n");
}

TEST(Describe, TellsMixedPartitions) {
  MatrixLocalInfo band = ColumnBand(0, 5);
  band.storeType = STORE_CSR_0;

  EXPECT_EQ(Refusal({RowBand(0, 10), band}),
            "refused: process 0 has row-wise, process 1 has column-wise; expected the same\n");
  EXPECT_EQ(Refusal({RowBand(0, 10), Whole()}),
            "refused: process 0 has row-wise, process 1 has no partition; expected the same\n");
  EXPECT_EQ(Refusal({Whole(), RowBand(0, 10)}),
            "refused: process 0 has no partition, process 1 has row-wise; expected the same\n");
}

TEST(Describe, TellsAPartitionThatNobodyKnows) {
  MatrixLocalInfo odd = Whole();
  odd.partition = {77, -4};

  EXPECT_EQ(AfterFailure(-7, {odd, odd}),
            "refused: process 0 and process 1 have unknown partition type 77; expected "
            "row-wise, column-wise or nonzero-wise\n"
            "stage: agreement\n"
            "mode DISTRIBUTED: every process holds a piece\n"
            "2 processes\n"
            "process 0: STORE_CSR_0, unknown partition type 77 from -4, 100 x 100, 7 entries, "
            "of 100 x 100, pattern 1, attribute 2, with values\n"
            "process 1: STORE_CSR_0, unknown partition type 77 from -4, 100 x 100, 7 entries, "
            "of 100 x 100, pattern 1, attribute 2, with values\n");
}

TEST(Describe, TellsPiecesOfMatricesOfOtherShapes) {
  MatrixLocalInfo rows = RowBand(10, 5);
  rows.globalRows = 99;
  MatrixLocalInfo cols = RowBand(10, 5);
  cols.globalCols = 98;

  EXPECT_EQ(Refusal({RowBand(0, 10), rows}),
            "refused: process 0 has a piece of 100 x 100, process 1 has a piece of 99 x 100; "
            "expected the same\n");
  EXPECT_EQ(Refusal({RowBand(0, 10), cols}),
            "refused: process 0 has a piece of 100 x 100, process 1 has a piece of 100 x 98; "
            "expected the same\n");
}

TEST(Describe, TellsWholesOfOtherShapes) {
  MatrixLocalInfo rows = Whole();
  rows.rows = 99;
  MatrixLocalInfo global = Whole();
  global.globalCols = 98;

  EXPECT_EQ(Refusal({Whole(), rows}),
            "refused: process 0 has 100 x 100 of 100 x 100, process 1 has 99 x 100 of 100 x "
            "100; expected the same\n");
  EXPECT_EQ(Refusal({Whole(), global}),
            "refused: process 0 has 100 x 100 of 100 x 100, process 1 has 100 x 100 of 100 x "
            "98; expected the same\n");
}

TEST(Describe, TellsFlagsThatDiffer) {
  MatrixLocalInfo without = RowBand(10, 5);
  without.withValues = false;

  EXPECT_EQ(Refusal({RowBand(0, 10), without}),
            "refused: process 0 has the flag with values, process 1 has the flag without "
            "values; expected the same\n");
}

TEST(Describe, TellsANegativeNumberOfEntries) {
  MatrixLocalInfo first = RowBand(0, 10);
  first.nnz = -1;
  MatrixLocalInfo second = RowBand(10, 5);
  second.nnz = -2;

  EXPECT_EQ(Refusal({first, second}, -16, "counts"),
            "refused: process 0 has -1 entries; expected 0 or more\n");
  EXPECT_EQ(Refusal({RowBand(0, 10), second}, -16, "counts"),
            "refused: process 1 has -2 entries; expected 0 or more\n");
}

TEST(Describe, TellsWhereTheEntriesTogetherBecomeTooMany) {
  MatrixLocalInfo many = RowBand(10, 5);
  many.nnz = 1L << 59;

  EXPECT_EQ(Refusal({RowBand(0, 10), many}, -16, "counts"),
            "refused: process 1 has 576460752303423488 entries; expected no more together than "
            "memory can hold\n");
}

TEST(Describe, RefusesNoEntriesThatMemoryCanHold) {
  MatrixLocalInfo const few = Piece(STORE_COO_0, MatrixPartition::NonzeroWise(), 100, 100, 7);
  MatrixLocalInfo many = few;
  many.nnz = (1L << 59) - 8;
  MatrixLocalInfo more = many;
  ++more.nnz;

  EXPECT_EQ(VerdictAbout({few, many}),
            "agreed: 100 x 100 with 576460752303423487 entries, with values\n"
            "mode DISTRIBUTED: every process holds a piece\n");
  EXPECT_EQ(Refusal({few, more}, -16, "counts"),
            "refused: process 1 has 576460752303423481 entries; expected no more together than "
            "memory can hold\n");
}

TEST(Describe, TellsAStoreTypeThatNobodyKnows) {
  MatrixLocalInfo odd = Whole();
  odd.storeType = static_cast<PavexMatrixStoreType>(13);

  EXPECT_EQ(Refusal({Empty(), odd}, -2, "store type"),
            "refused: process 1 has unknown store type 13; expected 0 to 12\n");
}

TEST(Describe, TellsAnEmptyMatrixOfAnotherFormatThanTheOnlyHolders) {
  MatrixLocalInfo other = Empty();
  other.storeType = STORE_CSC_0;

  EXPECT_EQ(VerdictAbout({Empty(), other, Whole()}),
            "agreed, but process 1 has STORE_CSC_0, process 2 has STORE_CSR_0; expected the "
            "same format (std::bad_cast where it is another)\n"
            "gathered: 100 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 2 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({Empty(), Piece(STORE_DENSE_ROW_MAJOR, {}, 2, 3, 6)}),
            "agreed, but process 0 has STORE_CSR_0, process 1 has STORE_DENSE_ROW_MAJOR; "
            "expected the same format (std::bad_cast where it is another)\n"
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

TEST(Describe, TellsNegativeSizesOfTheOnlyHolder) {
  MatrixLocalInfo entries = Whole();
  entries.nnz = -1;
  MatrixLocalInfo rows = Whole();
  rows.rows = -1;
  MatrixLocalInfo cols = Whole();
  cols.cols = -1;

  EXPECT_EQ(VerdictAbout({Empty(), entries}),
            "agreed, but process 1 has 100 x 100 with -1 entries; expected none below 0\n"
            "gathered: 100 x 100 with -1 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({rows, Empty()}),
            "agreed, but process 0 has -1 x 100 with 7 entries; expected none below 0\n"
            "gathered: -1 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 0 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({Empty(), cols}),
            "agreed, but process 1 has 100 x -1 with 7 entries; expected none below 0\n"
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

// The numbers of the processes that a description of `count` processes lists, and the line in
// place of the others.
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

// --- Whatever a peer sends

TEST(Describe, NamesEveryStoreType) {
  char const* const names[] = {"STORE_TYPE_0",         "STORE_TYPE_1", "STORE_CSR_0",
                               "STORE_CSR_1",          "STORE_CSR_2",  "STORE_CSC_0",
                               "STORE_CSC_1",          "STORE_CSC_2",  "STORE_COO_0",
                               "STORE_COO_1",          "STORE_COO_2",  "STORE_DENSE_ROW_MAJOR",
                               "STORE_DENSE_COL_MAJOR"};
  for (int type = 0; type < 13; ++type) {
    MatrixLocalInfo info = Whole();
    info.storeType = static_cast<PavexMatrixStoreType>(type);

    std::string const line = std::string("\nprocess 0: ") + names[type] + ", ";
    EXPECT_NE(About({info}).find(line), std::string::npos);
  }
}

TEST(Describe, PrintsTheExtremesOfEveryField) {
  MatrixLocalInfo odd;
  odd.storeType = static_cast<PavexMatrixStoreType>(std::numeric_limits<std::int32_t>::min());
  odd.partition = {std::numeric_limits<std::int32_t>::max(), kLeast};
  odd.pattern = std::numeric_limits<std::int32_t>::min();
  odd.attribute = std::numeric_limits<std::int32_t>::max();
  odd.rows = odd.globalRows = kMost;
  odd.cols = odd.globalCols = kLeast;
  odd.nnz = kLeast;
  std::memset(&odd.withValues, 255, 1);

  EXPECT_EQ(About({odd}),
            "refused: process 0 has unknown store type -2147483648; expected 0 to 12\n"
            "stage: store type\n"
            "mode CENTRALIZED_ALL: a single process holds the whole matrix\n"
            "1 process\n"
            "process 0: unknown store type -2147483648, unknown partition type 2147483647 from "
            "-9223372036854775808, 9223372036854775807 x -9223372036854775808, "
            "-9223372036854775808 entries, of 9223372036854775807 x -9223372036854775808, "
            "pattern -2147483648, attribute 2147483647, with values\n");
}

TEST(Describe, WrapsTheExpectedBeginOfABandBeyondAllNumbers) {
  EXPECT_EQ(Refusal({RowBand(kMost, 1), RowBand(0, 5)}),
            "refused: process 1 begins at row 0; expected -9223372036854775808, behind the 1 "
            "rows of process 0 from 9223372036854775807 (a gap)\n");
}

// Every byte the same, whichever: no number may lead astray.
TEST(Describe, TellsAnyBytes) {
  for (int byte = 0; byte < 256; ++byte) {
    Records records(3, Whole());
    std::memset(static_cast<void*>(&records[1]), byte, sizeof records[1]);

    std::string const text = About(records);

    EXPECT_EQ(text.rfind("refused: ", 0), 0U) << byte << "\n" << text;
    EXPECT_NE(text.find("\nmode "), std::string::npos);
    EXPECT_NE(text.find("\n3 processes\nprocess 0: STORE_CSR_0, "), std::string::npos);
    EXPECT_EQ(text.find("never arrived"), std::string::npos) << byte;
  }
}

}  // namespace
}  // namespace Pavex
