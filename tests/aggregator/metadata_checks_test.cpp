// The checks of the operations that follow a gather, and the place of a band.

#include "tests/support/aggregator_probe.h"
#include "tests/support/described_matrix.h"
#include "tests/support/records.h"

#include <functional>
#include <gmock/gmock.h>
#include <limits>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kMismatch[] =
    "[ERROR] The input matrix is inconsistent with that in the gather phase.\n";
constexpr char kNoValues[] = "[ERROR] Local matrix has no values when we need it.\n";

// Two row bands of a 10 x 7 matrix.
DescribedMatrix Band(int rank) {
  DescribedMatrix piece(STORE_CSR_0, rank == 0 ? 4 : 6, 7, rank == 0 ? 28 : 42);
  piece.PlaceIn(10, 7, MatrixPartition::RowWise(rank == 0 ? 0 : 4));
  piece.mPattern = 1;
  piece.mAttribute = 2;
  return piece;
}

// Rank 1 of two, with the metadata of the two bands.
class MetadataChecks : public ::testing::Test {
 protected:
  MetadataChecks() : mFirst(Band(0)), mOwn(Band(1)), mRank(ScriptedRank(1, {&mFirst, &mOwn})) {
    mRank.aggregator.SetComm(mRank.comm);
    if (mRank.aggregator.InitMetadata(mOwn, true, 0) != STATUS_OK)
      ADD_FAILURE() << "no metadata";
    mRank.ForgetThePast();
  }

  void ExpectMismatch(std::function<void(DescribedMatrix&)> const& change) {
    DescribedMatrix local = Band(1);
    change(local);
    PavexStatus status = STATUS_OK;

    std::string const output =
        CaptureStdout([&] { status = mRank.aggregator.CheckConsistency(local); });

    EXPECT_EQ(status, -9);
    EXPECT_EQ(output, kMismatch);
    EXPECT_THAT(mRank.comm->DataTexts(), IsEmpty());
  }

  DescribedMatrix mFirst;
  DescribedMatrix mOwn;
  RankUnderTest<> mRank;
};

using CheckConsistency = MetadataChecks;
using CheckLocalValues = MetadataChecks;
using LocalRowColBegin = MetadataChecks;

TEST_F(CheckConsistency, AcceptsTheMatrixGatheredAndAsksForTheRankOnly) {
  std::string const output =
      CaptureStdout([&] { EXPECT_EQ(mRank.aggregator.CheckConsistency(Band(1)), STATUS_OK); });

  EXPECT_EQ(output, "");
  EXPECT_THAT(mRank.comm->Texts(), ElementsAre("Rank()"));
  EXPECT_THAT(mRank.pool.Events(), IsEmpty());
}

TEST_F(CheckConsistency, ComparesWithTheOwnRecord) {
  ExpectMismatch([](DescribedMatrix& local) { local = Band(0); });
}

TEST_F(CheckConsistency, RefusesAnotherPattern) {
  ExpectMismatch([](DescribedMatrix& local) { local.mPattern = 9; });
}

TEST_F(CheckConsistency, RefusesAnotherAttribute) {
  ExpectMismatch([](DescribedMatrix& local) { local.mAttribute = 9; });
}

TEST_F(CheckConsistency, RefusesAnotherStoreType) {
  ExpectMismatch([](DescribedMatrix& local) { local.mStoreType = STORE_CSR_1; });
}

TEST_F(CheckConsistency, RefusesAnotherPartitionType) {
  ExpectMismatch([](DescribedMatrix& local) { local.mPartition.type = PARTITION_NONE; });
}

TEST_F(CheckConsistency, RefusesAnotherPartitionBegin) {
  ExpectMismatch([](DescribedMatrix& local) { local.mPartition.begin = 5; });
}

TEST_F(CheckConsistency, RefusesOtherRows) {
  ExpectMismatch([](DescribedMatrix& local) { local.mRows = 5; });
}

TEST_F(CheckConsistency, RefusesOtherColumns) {
  ExpectMismatch([](DescribedMatrix& local) { local.mCols = 5; });
}

TEST_F(CheckConsistency, RefusesAnotherNumberOfEntries) {
  ExpectMismatch([](DescribedMatrix& local) { local.mNnz = 41; });
}

TEST_F(CheckConsistency, RefusesOtherGlobalRows) {
  ExpectMismatch([](DescribedMatrix& local) { local.mGlobalRows = 11; });
}

TEST_F(CheckConsistency, RefusesOtherGlobalColumns) {
  ExpectMismatch([](DescribedMatrix& local) { local.mGlobalCols = 8; });
}

TEST_F(CheckConsistency, DoesNotCompareTheFlag) {
  mRank.aggregator.mLocalInfos.mData[1].withValues = false;

  EXPECT_EQ(mRank.aggregator.CheckConsistency(Band(1)), STATUS_OK);
}

TEST_F(CheckConsistency, HasNothingToCompareWithOnARankWithoutARecord) {
  for (int const rank : {-1, 2}) {
    mRank.aggregator.SetComm(std::make_shared<ScriptedComm>(rank, 3));
    PavexStatus status = STATUS_OK;

    std::string const output =
        CaptureStdout([&] { status = mRank.aggregator.CheckConsistency(Band(1)); });

    EXPECT_EQ(status, -11);
    EXPECT_EQ(output, kNotGathered);
  }
}

// --- CheckLocalValues

// A matrix that has no values.
DescribedMatrix PatternOnly() {
  DescribedMatrix local = Band(1);
  local.mHasValues = false;
  return local;
}

TEST_F(CheckLocalValues, AsksForNoneThatAreNotNeeded) {
  mRank.aggregator.mMode = static_cast<DistMatrixMode>(77);

  EXPECT_EQ(mRank.aggregator.CheckLocalValues(false, PatternOnly()), STATUS_OK);
}

TEST_F(CheckLocalValues, AsksForNoneWhereEveryProcessHoldsTheWhole) {
  mRank.aggregator.mMode = CENTRALIZED_ALL;
  mRank.aggregator.mLocalIsWhole = true;

  EXPECT_EQ(mRank.aggregator.CheckLocalValues(true, PatternOnly()), STATUS_OK);
}

TEST_F(CheckLocalValues, AsksTheOnlyHolderForThem) {
  mRank.aggregator.mMode = CENTRALIZED_ONE;
  mRank.aggregator.mLocalIsWhole = true;
  PavexStatus status = STATUS_OK;

  std::string const output =
      CaptureStdout([&] { status = mRank.aggregator.CheckLocalValues(true, PatternOnly()); });

  EXPECT_EQ(status, -16);
  EXPECT_EQ(output, kNoValues);
  EXPECT_EQ(mRank.aggregator.CheckLocalValues(true, Band(1)), STATUS_OK);
}

TEST_F(CheckLocalValues, AsksForNoneNextToTheOnlyHolder) {
  mRank.aggregator.mMode = CENTRALIZED_ONE;
  mRank.aggregator.mLocalIsWhole = false;

  EXPECT_EQ(mRank.aggregator.CheckLocalValues(true, PatternOnly()), STATUS_OK);
}

TEST_F(CheckLocalValues, AsksEveryProcessOfADistributedMatrixForThem) {
  PavexStatus status = STATUS_OK;

  std::string const output =
      CaptureStdout([&] { status = mRank.aggregator.CheckLocalValues(true, PatternOnly()); });

  EXPECT_EQ(status, -16);
  EXPECT_EQ(output, kNoValues);
  EXPECT_EQ(mRank.aggregator.CheckLocalValues(true, Band(1)), STATUS_OK);
}

TEST_F(CheckLocalValues, RefusesAnUnknownMode) {
  mRank.aggregator.mMode = static_cast<DistMatrixMode>(77);
  PavexStatus status = STATUS_OK;

  std::string const output =
      CaptureStdout([&] { status = mRank.aggregator.CheckLocalValues(true, Band(1)); });

  EXPECT_EQ(status, -7);
  EXPECT_EQ(output, "[ERROR] Unknown distribution mode 77\n");
}

// --- LocalRowColBegin

TEST_F(LocalRowColBegin, CountsFromTheBeginOfTheReferenceForEveryType) {
  mRank.aggregator.mPartition = MatrixPartition::RowWise(20);

  EXPECT_EQ(mRank.aggregator.LocalRowColBegin(MatrixPartition::RowWise(24)), 4);
  EXPECT_EQ(mRank.aggregator.LocalRowColBegin({PARTITION_NONE, 24}), 4);
  EXPECT_EQ(mRank.aggregator.LocalRowColBegin({77, 13}), -7);
}

TEST_F(LocalRowColBegin, WrapsAroundAtTheEndOfTheRange) {
  std::int64_t const most = std::numeric_limits<std::int64_t>::max();
  std::int64_t const least = std::numeric_limits<std::int64_t>::min();
  mRank.aggregator.mPartition = MatrixPartition::RowWise(1);

  EXPECT_EQ(mRank.aggregator.LocalRowColBegin(MatrixPartition::RowWise(least)), most);
}

}  // namespace
}  // namespace Pavex
