// The decision of the mode from the exchanged records, without communication.

#include "tests/support/aggregator_probe.h"
#include "tests/support/records.h"

#include <csignal>

namespace Pavex {
namespace {

using Probe = AggregatorProbe<double, int>;

constexpr char kAll[] = "[DEBUG] Matrix mode is CENTRALIZED_ALL.\n";
constexpr char kOne[] = "[DEBUG] Matrix mode is CENTRALIZED_ONE.\n";
constexpr char kDistributed[] = "[DEBUG] Matrix mode is DISTRIBUTED.\n";

struct Decision {
  PavexStatus status = 99;
  DistMatrixMode mode = static_cast<DistMatrixMode>(99);  // keeps this value if not decided
  int source = 99;
  std::string output;
};

// Decides the mode, with the debug lines enabled.
Decision Decide(Records records) {
  LogLevel const level(LOG_DEBUG);
  Decision decision;
  decision.output = CaptureStdout([&] {
    decision.status = Probe::DetermineMode(View(records), decision.mode, decision.source);
  });
  return decision;
}

void ExpectDecided(Decision const& decision, DistMatrixMode mode, int source,
                   char const* line) {
  EXPECT_EQ(decision.status, STATUS_OK);
  EXPECT_EQ(decision.mode, mode);
  EXPECT_EQ(decision.source, source);
  EXPECT_EQ(decision.output, line);
}

// --- DetermineMode

TEST(DetermineMode, TakesNoRecordsForAWholeThatNoProcessHolds) {
  ExpectDecided(Decide({}), CENTRALIZED_ALL, -2, kAll);
}

TEST(DetermineMode, CountsTheRecordsIn32Bits) {
  LogLevel const silent(-1);
  Buffer<MatrixLocalInfo> tooMany;
  tooMany.mSize = std::int64_t{1} << 31;
  DistMatrixMode mode = DISTRIBUTED;
  int source = 99;

  PavexStatus const status = Probe::DetermineMode(tooMany, mode, source);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(mode, CENTRALIZED_ALL);
  EXPECT_EQ(source, -2);
}

TEST(DetermineMode, TakesAnyPieceOfASingleProcessForTheWhole) {
  ExpectDecided(Decide({Whole()}), CENTRALIZED_ALL, 0, kAll);
}

TEST(DetermineMode, TakesAnEmptyMatrixOfASingleProcessForTheWhole) {
  ExpectDecided(Decide({Empty()}), CENTRALIZED_ALL, -2, kAll);
}

TEST(DetermineMode, TakesAPartitionedMatrixOfASingleProcessForTheWhole) {
  ExpectDecided(Decide({RowBand(5, 10)}), CENTRALIZED_ALL, 0, kAll);
}

TEST(DetermineMode, FindsNoSourceWhenEveryProcessIsEmpty) {
  ExpectDecided(Decide({Empty(), Empty(), Empty()}), CENTRALIZED_ALL, -2, kAll);
}

TEST(DetermineMode, FindsTheOnlyHolderOfTwoWithAnyPartitions) {
  MatrixLocalInfo partitioned = Empty();
  partitioned.partition = MatrixPartition::ColumnWise(3);

  ExpectDecided(Decide({Empty(), Whole()}), CENTRALIZED_ONE, 1, kOne);
  ExpectDecided(Decide({RowBand(0, 10), Empty()}), CENTRALIZED_ONE, 0, kOne);
  ExpectDecided(Decide({partitioned, RowBand(0, 10)}), CENTRALIZED_ONE, 1, kOne);
}

TEST(DetermineMode, FindsTheOnlyHolderOfMany) {
  ExpectDecided(Decide({Empty(), Empty(), Whole(), Empty()}), CENTRALIZED_ONE, 2, kOne);
}

TEST(DetermineMode, RefusesSomeEmptyProcessesAndLeavesTheMode) {
  Decision const decision = Decide({Empty(), Whole(), Empty(), Whole()});

  EXPECT_EQ(decision.status, -16);
  EXPECT_EQ(decision.mode, 99);
  EXPECT_EQ(decision.source, 1);
  EXPECT_EQ(decision.output,
            "[ERROR] Invalid distribution mode: 2 processes (out of 4) has empty local "
            "matrix.\n");
}

TEST(DetermineMode, CountsTheRecordsInUseAndNotTheRoomForThem) {
  Records records{Empty(), Whole(), Empty(), Whole()};
  Buffer<MatrixLocalInfo> infos = View(records);
  infos.mCapacity = 9;
  DistMatrixMode mode = DISTRIBUTED;
  int source = 99;

  std::string const output =
      CaptureStdout([&] { EXPECT_EQ(Probe::DetermineMode(infos, mode, source), -16); });

  EXPECT_EQ(output,
            "[ERROR] Invalid distribution mode: 2 processes (out of 4) has empty local "
            "matrix.\n");
}

TEST(DetermineMode, TakesAFirstProcessWithoutPartitionForAHolderOfTheWhole) {
  ExpectDecided(Decide({Whole(), RowBand(0, 100)}), CENTRALIZED_ALL, 0, kAll);
}

TEST(DetermineMode, TakesPiecesOfEveryPartitionForDistributed) {
  MatrixLocalInfo const share = Piece(STORE_COO_0, MatrixPartition::NonzeroWise(), 100, 100, 3);

  ExpectDecided(Decide({RowBand(0, 10), RowBand(10, 5)}), DISTRIBUTED, 0, kDistributed);
  ExpectDecided(Decide({ColumnBand(0, 1), ColumnBand(1, 5)}), DISTRIBUTED, 0, kDistributed);
  ExpectDecided(Decide({share, share, share}), DISTRIBUTED, 0, kDistributed);
}

TEST(DetermineMode, LooksAtTheFirstPartitionOnly) {
  ExpectDecided(Decide({RowBand(0, 10), Whole()}), DISTRIBUTED, 0, kDistributed);
}

TEST(DetermineMode, TakesAnyDeclaredNumberButNoneForAPartition) {
  MatrixLocalInfo odd = Whole();
  odd.partition.type = 77;

  ExpectDecided(Decide({odd, odd}), DISTRIBUTED, 0, kDistributed);
}

TEST(DetermineMode, CountsACompressedMatrixWithoutEntriesAsNotEmpty) {
  for (PavexMatrixStoreType const type :
       {STORE_CSR_0, STORE_CSR_1, STORE_CSR_2, STORE_CSC_0, STORE_CSC_1, STORE_CSC_2}) {
    MatrixLocalInfo const noEntries = Piece(type, {}, 5, 5, 0);

    ExpectDecided(Decide({noEntries, Empty()}), CENTRALIZED_ONE, 0, kOne);
  }
}

TEST(DetermineMode, CountsACoordinateMatrixWithoutEntriesAsEmpty) {
  for (PavexMatrixStoreType const type : {STORE_COO_0, STORE_COO_1, STORE_COO_2}) {
    MatrixLocalInfo const noEntries = Piece(type, {}, 5, 5, 0);

    ExpectDecided(Decide({noEntries, Whole()}), CENTRALIZED_ONE, 1, kOne);
  }
}

TEST(DetermineMode, CountsACoordinateMatrixByItsEntriesAlone) {
  MatrixLocalInfo const noRows = Piece(STORE_COO_0, {}, 0, 0, 4);

  ExpectDecided(Decide({Empty(), noRows}), CENTRALIZED_ONE, 1, kOne);
}

TEST(DetermineMode, CountsOtherMatricesWithoutRowsOrColumnsAsEmpty) {
  for (PavexMatrixStoreType const type :
       {STORE_TYPE_0, STORE_TYPE_1, STORE_CSR_0, STORE_CSC_0, STORE_DENSE_ROW_MAJOR,
        STORE_DENSE_COL_MAJOR, static_cast<PavexMatrixStoreType>(13)}) {
    ExpectDecided(Decide({Piece(type, {}, 0, 5, 9), Whole()}), CENTRALIZED_ONE, 1, kOne);
    ExpectDecided(Decide({Piece(type, {}, 5, 0, 9), Whole()}), CENTRALIZED_ONE, 1, kOne);
    ExpectDecided(Decide({Piece(type, {}, 5, 5, 0), Empty()}), CENTRALIZED_ONE, 0, kOne);
  }
}

TEST(DetermineMode, PrintsTheModeOnlyWithDebugLinesOn) {
  LogLevel const level(LOG_DEBUG - 1);
  Records records = {Whole()};
  DistMatrixMode mode = DISTRIBUTED;
  int source = 0;

  std::string const output = CaptureStdout(
      [&] { EXPECT_EQ(Probe::DetermineMode(View(records), mode, source), STATUS_OK); });

  EXPECT_EQ(output, "");
}

TEST(DetermineMode, PrintsItsErrorOnlyWithErrorLinesOn) {
  LogLevel const level(LOG_ERROR - 1);
  Records records = {Empty(), Empty(), Whole(), Whole()};
  DistMatrixMode mode = DISTRIBUTED;
  int source = 0;

  std::string const output =
      CaptureStdout([&] { EXPECT_EQ(Probe::DetermineMode(View(records), mode, source), -16); });

  EXPECT_EQ(output, "");
}

// --- CheckForOneMode

// The verdict on rank `ownRank` with log level `logLevel`.
Verdict JudgeOne(int ownRank, Records records, std::int32_t logLevel = LOG_DEBUG) {
  RankUnderTest<> rank(
      std::make_shared<ScriptedComm>(ownRank, static_cast<int>(records.size())));
  rank.aggregator.SetComm(rank.comm);
  LogLevel const level(logLevel);
  Verdict verdict;
  verdict.output =
      CaptureStdout([&] { verdict.status = rank.aggregator.CheckForOneMode(View(records)); });
  return verdict;
}

MatrixLocalInfo EmptyOf(std::int32_t partitionType) {
  MatrixLocalInfo info = Empty();
  info.partition.type = partitionType;
  return info;
}

TEST(CheckForOneMode, NamesTheIgnoredPartition) {
  char const* const names[] = {"row-wise", "column-wise", "nonzero-wise"};
  for (int type = 0; type < 3; ++type) {
    Verdict const verdict = JudgeOne(1, {Whole(), EmptyOf(type)});

    EXPECT_EQ(verdict.status, STATUS_OK);
    EXPECT_EQ(verdict.output, std::string("[DEBUG] Partition type (") + names[type] +
                                  ") ignored for CENTRALIZED_ONE mode.\n");
  }
}

TEST(CheckForOneMode, IsSilentWithoutAPartition) {
  ExpectAgreed(JudgeOne(1, {RowBand(0, 10), Empty()}));
}

TEST(CheckForOneMode, ReadsTheOwnRecordNotTheHolders) {
  EXPECT_NE(JudgeOne(0, {EmptyOf(0), Whole()}).output, "");
  ExpectAgreed(JudgeOne(1, {EmptyOf(0), Whole()}));
}

TEST(CheckForOneMode, IsSilentWithDebugLinesOff) {
  Verdict const verdict = JudgeOne(0, {EmptyOf(0), Whole()}, LOG_DEBUG - 1);

  ExpectAgreed(verdict);
}

TEST(CheckForOneMode, PassesAnUnknownPartitionTypeWithDebugLinesOff) {
  Verdict const verdict = JudgeOne(0, {EmptyOf(77), Whole()}, LOG_DEBUG - 1);

  ExpectAgreed(verdict);
}

TEST(CheckForOneMode, AbortsOnAnUnknownPartitionTypeWithDebugLinesOn) {
  ChildResult const child = RunInChild([] {
    Log::mMaxLogLevel = LOG_DEBUG;
    Records records = {EmptyOf(77), Whole()};
    RankUnderTest<> rank(std::make_shared<ScriptedComm>(0, 2));
    rank.aggregator.SetComm(rank.comm);
    rank.aggregator.CheckForOneMode(View(records));
  });

  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_EQ(child.output, "[FATAL] Never been here\n");
}

TEST(CheckForOneMode, ComparesNoRecords) {
  MatrixLocalInfo other = Empty();
  other.pattern = 9;
  other.storeType = STORE_COO_1;
  other.globalRows = 1;
  other.withValues = false;

  ExpectAgreed(JudgeOne(0, {Whole(), other}));
}

}  // namespace
}  // namespace Pavex
