// The check whether the exchanged records agree, without ranks and communication.

#include "tests/support/aggregator_probe.h"
#include "tests/support/records.h"

#include <cstring>
#include <limits>

namespace Pavex {
namespace {

using Probe = AggregatorProbe<double, int>;

constexpr char kPattern[] =
    "[ERROR] The pattern and attribute of local matrix is inconsistent.\n";
constexpr char kStoreType[] = "[ERROR] The store type of local matrix is inconsistent.\n";
constexpr char kPartitionType[] = "[ERROR] Partition type of matrix is inconsistent.\n";
constexpr char kNotAdjacent[] =
    "[ERROR] Local matrices are not adjacent for DISTRIBUTED mode.\n";
constexpr char kDimension[] = "[ERROR] The dimension of global matrix is inconsistent.\n";
constexpr char kFlag[] = "[ERROR] Processes disagree on whether to aggregate values.\n";

// --- CheckForDistMode

Verdict JudgeDistributed(Records const& records) {
  return Judge(Probe::CheckForDistMode, records);
}

TEST(CheckForDistMode, AgreesWithFewerThanTwoRecords) {
  MatrixLocalInfo odd = RowBand(7, 1);
  odd.partition.type = 77;

  ExpectAgreed(JudgeDistributed({}));
  ExpectAgreed(JudgeDistributed({odd}));
}

TEST(CheckForDistMode, AgreesOnAdjacentRowBandsWhereverTheyBeginAndEnd) {
  ExpectAgreed(JudgeDistributed({RowBand(20, 10), RowBand(30, 5), RowBand(35, 1)}));
}

TEST(CheckForDistMode, AgreesOnAdjacentColumnBandsWhereverTheyBeginAndEnd) {
  ExpectAgreed(JudgeDistributed({ColumnBand(20, 10), ColumnBand(30, 5), ColumnBand(35, 1)}));
}

TEST(CheckForDistMode, PassesNonzeroWisePiecesWithoutAnyPositionalTest) {
  MatrixLocalInfo const a = Piece(STORE_COO_0, {PARTITION_NONZERO_WISE, 50}, 9, 9, 3);
  MatrixLocalInfo const b = Piece(STORE_COO_0, {PARTITION_NONZERO_WISE, -4}, 2, 7, 8);

  ExpectAgreed(JudgeDistributed({a, b, a}));
}

TEST(CheckForDistMode, ComparesNeitherEntriesNorTheExtentAcrossTheBand) {
  MatrixLocalInfo narrow = RowBand(10, 5);
  narrow.cols = 3;
  narrow.nnz = 1;

  ExpectAgreed(JudgeDistributed({RowBand(0, 10), narrow}));
}

TEST(CheckForDistMode, RefusesAnotherPattern) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.pattern = 9;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kPattern);
}

TEST(CheckForDistMode, RefusesAnotherAttribute) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.attribute = 9;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kPattern);
}

TEST(CheckForDistMode, RefusesAnotherStoreType) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.storeType = STORE_CSR_1;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kStoreType);
}

TEST(CheckForDistMode, RefusesAnotherPartitionType) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.partition.type = PARTITION_NONE;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kPartitionType);
}

TEST(CheckForDistMode, RefusesAGapBetweenRowBands) {
  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), RowBand(11, 5)}), kNotAdjacent);
}

TEST(CheckForDistMode, RefusesRowBandsThatOverlap) {
  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), RowBand(9, 5)}), kNotAdjacent);
}

TEST(CheckForDistMode, RefusesColumnBandsThatAreNotAdjacent) {
  ExpectInconsistent(JudgeDistributed({ColumnBand(0, 10), ColumnBand(11, 5)}), kNotAdjacent);
}

TEST(CheckForDistMode, RefusesBandsOutOfRankOrder) {
  ExpectInconsistent(JudgeDistributed({RowBand(10, 5), RowBand(0, 10)}), kNotAdjacent);
}

TEST(CheckForDistMode, WrapsAroundAtTheEndOfTheRange) {
  std::int64_t const most = std::numeric_limits<std::int64_t>::max();

  ExpectInconsistent(JudgeDistributed({RowBand(most, 10), RowBand(0, 5)}), kNotAdjacent);
}

TEST(CheckForDistMode, RefusesAnUnknownPartitionType) {
  MatrixLocalInfo odd = RowBand(0, 10);
  odd.partition.type = 77;

  Verdict const verdict = JudgeDistributed({odd, odd});

  EXPECT_EQ(verdict.status, -7);
  EXPECT_EQ(verdict.output, "[ERROR] Unknown partition type, 77.\n");
}

TEST(CheckForDistMode, RefusesOtherGlobalRows) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.globalRows = 99;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kDimension);
}

TEST(CheckForDistMode, RefusesOtherGlobalColumns) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.globalCols = 99;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kDimension);
}

TEST(CheckForDistMode, RefusesAnotherFlag) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.withValues = false;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kFlag);
}

TEST(CheckForDistMode, TakesDifferentBytesOfASetFlagForTheSame) {
  MatrixLocalInfo other = RowBand(10, 5);
  std::memset(&other.withValues, 2, 1);

  ExpectAgreed(JudgeDistributed({RowBand(0, 10), other}));
}

TEST(CheckForDistMode, MakesItsTestsInTheirOrder) {
  MatrixLocalInfo other = RowBand(11, 5);
  other.withValues = false;
  other.globalRows = 99;
  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kNotAdjacent);

  other.partition.type = PARTITION_COLUMN_WISE;
  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kPartitionType);

  other.storeType = STORE_COO_0;
  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kStoreType);

  other.pattern = 9;
  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kPattern);
}

TEST(CheckForDistMode, ComparesTheDimensionsBeforeTheFlag) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.withValues = false;
  other.globalCols = 99;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), other}), kDimension);
}

TEST(CheckForDistMode, ReportsTheFirstPairThatDisagreesOnly) {
  MatrixLocalInfo last = RowBand(20, 5);
  last.pattern = 9;
  MatrixLocalInfo middle = RowBand(10, 10);
  middle.withValues = false;

  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), middle, last}), kFlag);
}

TEST(CheckForDistMode, LooksAtEveryPair) {
  ExpectInconsistent(JudgeDistributed({RowBand(0, 10), RowBand(10, 5), RowBand(16, 5)}),
                     kNotAdjacent);
}

// --- CheckForAllMode

Verdict JudgeAll(Records const& records) {
  return Judge(Probe::CheckForAllMode, records);
}

TEST(CheckForAllMode, AgreesWithFewerThanTwoRecords) {
  ExpectAgreed(JudgeAll({}));
  ExpectAgreed(JudgeAll({RowBand(7, 1)}));
}

TEST(CheckForAllMode, ComparesNeitherBeginNorEntries) {
  MatrixLocalInfo other = Whole();
  other.partition.begin = 5;
  other.nnz = 1000;

  ExpectAgreed(JudgeAll({Whole(), other, Whole()}));
}

TEST(CheckForAllMode, RefusesAnotherPatternOrAttribute) {
  MatrixLocalInfo pattern = Whole();
  pattern.pattern = 9;
  MatrixLocalInfo attribute = Whole();
  attribute.attribute = 9;

  ExpectInconsistent(JudgeAll({Whole(), pattern}), kPattern);
  ExpectInconsistent(JudgeAll({Whole(), attribute}), kPattern);
}

TEST(CheckForAllMode, RefusesAnotherStoreType) {
  MatrixLocalInfo other = Whole();
  other.storeType = STORE_COO_2;

  ExpectInconsistent(JudgeAll({Whole(), other}), kStoreType);
}

TEST(CheckForAllMode, RefusesAPartitionAfterAProcessWithoutOne) {
  ExpectInconsistent(JudgeAll({Whole(), RowBand(0, 100)}), kPartitionType);
}

TEST(CheckForAllMode, RefusesOtherDimensions) {
  for (auto const dimension : {&MatrixLocalInfo::globalRows, &MatrixLocalInfo::globalCols,
                               &MatrixLocalInfo::rows, &MatrixLocalInfo::cols}) {
    MatrixLocalInfo other = Whole();
    other.*dimension = 99;

    ExpectInconsistent(JudgeAll({Whole(), other}), kDimension);
  }
}

TEST(CheckForAllMode, RefusesAnotherFlag) {
  MatrixLocalInfo other = Whole();
  other.withValues = false;

  ExpectInconsistent(JudgeAll({Whole(), Whole(), other}), kFlag);
}

TEST(CheckForAllMode, MakesItsTestsInTheirOrder) {
  MatrixLocalInfo other = Whole();
  other.withValues = false;
  other.cols = 99;
  ExpectInconsistent(JudgeAll({Whole(), other}), kDimension);

  other.partition.type = PARTITION_NONZERO_WISE;
  ExpectInconsistent(JudgeAll({Whole(), other}), kPartitionType);

  other.storeType = STORE_COO_0;
  ExpectInconsistent(JudgeAll({Whole(), other}), kStoreType);

  other.attribute = 9;
  ExpectInconsistent(JudgeAll({Whole(), other}), kPattern);
}

}  // namespace
}  // namespace Pavex
