#include "tools/cut/pieces.h"

#include "tools/choice/input_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Pavex::Tool {
namespace {

using testing::ThrowsMessage;

constexpr Extent kWhole{10, 7, 23};

CutOptions By(Partition partition, std::vector<long> const& cuts = {}) {
  CutOptions cut;
  cut.mPartition = partition;
  cut.mCuts = cuts;
  return cut;
}

TEST(CutPiece, GivesRowBandsThatDifferByOneRowAtMost) {
  long const begins[] = {0, 2, 5, 7, 10};

  for (int rank = 0; rank < 4; ++rank) {
    Piece const piece = CutPiece(kWhole, By(Partition::ROWS), 4, rank);

    EXPECT_EQ(piece.mRowBegin, begins[rank]);
    EXPECT_EQ(piece.mRowEnd, begins[rank + 1]);
    EXPECT_EQ(piece.Cols(), 7);
    EXPECT_EQ(piece.mPartition.type, PARTITION_ROW_WISE);
    EXPECT_EQ(piece.mPartition.begin, begins[rank]);
  }
}

TEST(CutPiece, GivesColumnBandsOfAllRows) {
  Piece const first = CutPiece(kWhole, By(Partition::COLUMNS), 2, 0);
  Piece const second = CutPiece(kWhole, By(Partition::COLUMNS), 2, 1);

  EXPECT_EQ(first.mColEnd, 3);
  EXPECT_EQ(second.mColBegin, 3);
  EXPECT_EQ(second.mColEnd, 7);
  EXPECT_EQ(second.Rows(), 10);
  EXPECT_EQ(second.mPartition.type, PARTITION_COLUMN_WISE);
  EXPECT_EQ(second.mPartition.begin, 3);
}

TEST(CutPiece, GivesSharesOfTheEntriesInTheWholeShape) {
  Piece const second = CutPiece(kWhole, By(Partition::ENTRIES), 3, 1);

  EXPECT_EQ(second.mEntryBegin, 7);
  EXPECT_EQ(second.mEntryEnd, 15);
  EXPECT_EQ(second.Rows(), 10);
  EXPECT_EQ(second.Cols(), 7);
  EXPECT_EQ(second.mPartition.type, PARTITION_NONZERO_WISE);
}

TEST(CutPiece, CutsAtTheGivenPoints) {
  std::vector<long> const cuts = {1, 4, 9};
  long const begins[] = {0, 1, 4, 9, 10};

  for (int rank = 0; rank < 4; ++rank) {
    Piece const piece = CutPiece(kWhole, By(Partition::ROWS, cuts), 4, rank);

    EXPECT_EQ(piece.mRowBegin, begins[rank]);
    EXPECT_EQ(piece.mRowEnd, begins[rank + 1]);
    EXPECT_EQ(piece.mPartition.begin, begins[rank]);
  }
  EXPECT_EQ(CutPiece(kWhole, By(Partition::ENTRIES, {20}), 2, 1).mEntryBegin, 20);
  EXPECT_EQ(CutPiece(kWhole, By(Partition::COLUMNS, {6}), 2, 0).mColEnd, 6);
}

TEST(CutRowsOrNone, GivesSomeRanksNoRowsIfThereAreTooFew) {
  long const begins[] = {0, 0, 1, 1, 2, 3};

  for (int rank = 0; rank < 5; ++rank) {
    Piece const piece = CutRowsOrNone(Extent{3, 7, 23}, {}, 5, rank);

    EXPECT_EQ(piece.mRowBegin, begins[rank]);
    EXPECT_EQ(piece.mRowEnd, begins[rank + 1]);
    EXPECT_EQ(piece.Cols(), 7);
  }
  EXPECT_EQ(CutRowsOrNone(kWhole, {4}, 2, 1).mRowBegin, 4);
  EXPECT_THROW(CutRowsOrNone(kWhole, {4, 4}, 3, 0), InputError);
}

TEST(CutPiece, RefusesCutsThatDoNotFit) {
  auto const cut = [](std::vector<long> const& cuts) {
    CutPiece(kWhole, By(Partition::ROWS, cuts), 3, 0);
  };

  EXPECT_THAT([&] { cut({4}); },
              ThrowsMessage<InputError>("--cuts: 3 ranks need 2 cut points, not 1"));
  std::string const disorder =
      "--cuts: the cut points have to ascend between 0 and the 10 rows";
  EXPECT_THAT([&] { cut({5, 5}); }, ThrowsMessage<InputError>(disorder));
  EXPECT_THAT([&] { cut({0, 5}); }, ThrowsMessage<InputError>(disorder));
  EXPECT_THAT([&] { cut({5, 10}); }, ThrowsMessage<InputError>(disorder));
}

TEST(CutPiece, GivesTheHolderEverythingAndTheOthersNothing) {
  CutOptions cut = By(Partition::ONE);
  cut.mHolder = 2;

  Piece const holder = CutPiece(kWhole, cut, 3, 2);
  Piece const other = CutPiece(kWhole, cut, 3, 0);

  EXPECT_EQ(holder.Rows(), 10);
  EXPECT_EQ(holder.mEntryEnd, 23);
  EXPECT_EQ(holder.mPartition.type, PARTITION_NONE);
  EXPECT_EQ(other.Rows(), 0);
  EXPECT_EQ(other.Cols(), 0);
  EXPECT_EQ(other.mEntryEnd, 0);
}

TEST(CutPiece, GivesEveryRankEverything) {
  Piece const piece = CutPiece(kWhole, By(Partition::ALL), 3, 1);

  EXPECT_EQ(piece.Rows(), 10);
  EXPECT_EQ(piece.Cols(), 7);
  EXPECT_EQ(piece.mEntryEnd, 23);
  EXPECT_EQ(piece.mPartition.type, PARTITION_NONE);
}

TEST(CutPiece, LeavesNoRankWithoutARowAsLongAsThereAreEnough) {
  for (int rank = 0; rank < 10; ++rank)
    EXPECT_EQ(CutPiece(kWhole, By(Partition::ROWS), 10, rank).Rows(), 1);
}

TEST(CutPiece, RefusesMoreRanksThanBands) {
  EXPECT_THROW(CutPiece(kWhole, By(Partition::ROWS), 11, 0), InputError);
  EXPECT_THROW(CutPiece(kWhole, By(Partition::COLUMNS), 8, 0), InputError);
  EXPECT_THROW(CutPiece(kWhole, By(Partition::ENTRIES), 24, 0), InputError);
}

TEST(CutPiece, GivesASingleRankAMatrixWithoutRows) {
  EXPECT_EQ(CutPiece({0, 5, 0}, By(Partition::ROWS), 1, 0).Rows(), 0);
}

TEST(CutPiece, CutsTheLargestExtentWithoutOverflow) {
  long const most = 2147483647;

  Piece const last = CutPiece({most, most, most}, By(Partition::ROWS), 4096, 4095);

  EXPECT_EQ(last.mRowEnd, most);
  EXPECT_EQ(last.Rows(), 524288);
}

}  // namespace
}  // namespace Pavex::Tool
