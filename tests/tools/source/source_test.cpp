#include "tools/source/source.h"

#include "tests/tools/temporary_folder.h"
#include "tools/choice/input_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;
using Entry = std::tuple<int, int, double>;

std::vector<Entry> EntriesOf(Triplets const& triplets) {
  std::vector<Entry> entries;
  for (std::size_t k = 0; k < triplets.Entries(); ++k)
    entries.emplace_back(triplets.mRow[k], triplets.mCol[k], triplets.mReal[k]);
  return entries;
}

CutOptions By(Partition partition) {
  CutOptions cut;
  cut.mPartition = partition;
  return cut;
}

constexpr char const* kUnordered =
    "%%MatrixMarket matrix coordinate real general\n"
    "3 4 5\n"
    "3 1 31\n"
    "1 4 14\n"
    "3 3 33\n"
    "1 1 11\n"
    "3 1 310\n";

TEST(FileSource, CutsABandInTheOrderOfTheFile) {
  TemporaryFolder folder;
  auto const source = OpenFile(folder.Write("a.mtx", kUnordered));

  Triplets const cut = source->Cut(CutPiece(source->Whole(), By(Partition::COLUMNS), 2, 0), {});

  EXPECT_THAT(EntriesOf(cut), ElementsAre(Entry{2, 0, 31}, Entry{0, 0, 11}, Entry{2, 0, 310}));
  EXPECT_EQ(cut.mRows, 3);
  EXPECT_EQ(cut.mCols, 4);
}

TEST(FileSource, CutsAShareOfTheEntries) {
  TemporaryFolder folder;
  auto const source = OpenFile(folder.Write("a.mtx", kUnordered));

  Triplets const cut = source->Cut(CutPiece(source->Whole(), By(Partition::ENTRIES), 2, 1), {});

  EXPECT_THAT(EntriesOf(cut), ElementsAre(Entry{2, 2, 33}, Entry{0, 0, 11}, Entry{2, 0, 310}));
}

TEST(FileSource, GivesRowsInOrderWithTheirEntriesInTheOrderOfTheFile) {
  TemporaryFolder folder;
  auto const source = OpenFile(folder.Write("a.mtx", kUnordered));

  EXPECT_THAT(EntriesOf(source->Rows(0, 2)), ElementsAre(Entry{0, 3, 14}, Entry{0, 0, 11}));
  EXPECT_THAT(EntriesOf(source->Rows(2, 3)),
              ElementsAre(Entry{2, 0, 31}, Entry{2, 2, 33}, Entry{2, 0, 310}));
}

TEST(FileSource, OrdersFewEntriesAmongBillionsOfRowsWithoutMemoryForTheRows) {
  TemporaryFolder folder;
  auto const source = OpenFile(folder.Write("a.mtx",
                                            "%%MatrixMarket matrix coordinate real general\n"
                                            "2000000000 2 2\n2000000000 1 5\n7 2 6\n"));

  EXPECT_THAT(EntriesOf(source->Rows(0, 2000000000)),
              ElementsAre(Entry{6, 1, 6}, Entry{1999999999, 0, 5}));
}

TEST(GeneratorSource, CutsSharesOfTheEntriesThatFollowEachOther) {
  auto const source = OpenGenerator("random:50");
  std::vector<Entry> const whole = EntriesOf(source->Rows(0, 50));

  std::vector<Entry> joined;
  for (int rank = 0; rank < 7; ++rank) {
    Piece const piece = CutPiece(source->Whole(), By(Partition::ENTRIES), 7, rank);
    std::vector<Entry> const share = EntriesOf(source->Cut(piece, {}));
    EXPECT_EQ(static_cast<long>(share.size()), piece.mEntryEnd - piece.mEntryBegin);
    joined.insert(joined.end(), share.begin(), share.end());
  }

  EXPECT_EQ(joined, whole);
}

TEST(GeneratorSource, CutsColumnBands) {
  auto const source = OpenGenerator("dense:2x4");
  std::vector<Entry> const whole = EntriesOf(source->Rows(0, 2));

  Triplets const cut = source->Cut(CutPiece(source->Whole(), By(Partition::COLUMNS), 2, 1), {});

  EXPECT_THAT(EntriesOf(cut), ElementsAre(whole[2], whole[3], whole[6], whole[7]));
}

TEST(GeneratorSource, GivesNothingForAnEmptyPiece) {
  auto const source = OpenGenerator("poisson3d:3");

  EXPECT_EQ(source->Cut(Piece(), {}).Entries(), 0U);
}

TEST(GeneratorSource, CountsMoreEntriesThanAnInt) {
  EXPECT_EQ(OpenGenerator("dense:50000x50000")->Whole().mEntries, 2500000000);
}

}  // namespace
}  // namespace Pavex::Tool
