// Compressed pieces with more entries together than their offsets can count.

#include "tests/support/formats.h"
#include "tests/support/records.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>
#include <limits>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

constexpr long kMostOfInt = std::numeric_limits<int>::max();

// Rank `rank` of two that hold the bands. By the record of the other rank, they have `entries`
// entries together.
template <typename Format>
std::shared_ptr<ScriptedComm> BandsWithEntries(int rank, long entries) {
  auto const first = BandOf<Format>(0);
  auto const second = BandOf<Format>(1);
  Pavex::Records records = {RecordOf(first.matrix, true), RecordOf(second.matrix, true)};
  auto const own = static_cast<std::size_t>(rank);
  records[1 - own].nnz = entries - records[own].nnz;
  auto comm = std::make_shared<ScriptedComm>(rank, 2);
  comm->SetRecords(records);
  return comm;
}

template <typename Format>
class OffsetRange : public ::testing::Test {};
TYPED_TEST_SUITE(OffsetRange, CompressedFormats);

TYPED_TEST(OffsetRange, RefusesMoreEntriesThanOffsetsOfIntCountOnEveryProcess) {
  for (int const rank : {0, 1}) {
    auto const piece = BandOf<TypeParam>(rank);
    RankUnderTest<> own(BandsWithEntries<TypeParam>(rank, kMostOfInt + 1));

    Outcome const outcome = Gather(own, piece.matrix);

    ExpectOutcome(outcome, STATUS_NOT_SUPPORTED,
                  "[ERROR] Offsets of type int cannot count 2147483648 entries. Use long.\n" +
                      StatusLines(1, STATUS_NOT_SUPPORTED));
    EXPECT_THAT(own.comm->DataTexts(), ElementsAre("Allgather(in place 72 byte; 72 byte)"));
    EXPECT_EQ(own.aggregator.Target(), nullptr);
    std::size_t const counts = rank == 0 ? 16 : 0;
    EXPECT_EQ(own.pool.OutstandingBytes(), 144 + counts) << "nothing after the metadata";
  }
}

// The gather is not refused, but the pool has no room for the entries.
TYPED_TEST(OffsetRange, TakesAsManyEntriesAsOffsetsOfIntCount) {
  auto const piece = BandOf<TypeParam>(0);
  RankUnderTest<> own(BandsWithEntries<TypeParam>(0, kMostOfInt));
  own.pool.Fail(Fault::Once(7, -77));  // the array of the indices

  EXPECT_EQ(Gather(own, piece.matrix).status, -77);
}

TYPED_TEST(OffsetRange, IsThatOfLongWhereTheIndicesAre) {
  using Format = std::conditional_t<std::is_same_v<TypeParam, CsrFormat<>>,
                                    CsrFormat<double, long>, CscFormat<double, long>>;
  auto const piece = BandOf<Format>(0);
  RankUnderTest<double, long> own(BandsWithEntries<Format>(0, kMostOfInt + 1));
  own.pool.Fail(Fault::Once(7, -77));

  EXPECT_EQ(Watch([&] { return own.aggregator.Gather(own.comm, piece.matrix, true); }).status,
            -77);
}

TEST(Describe, ReportsMoreEntriesThanOffsetsOfIntCount) {
  MatrixLocalInfo const first = RowBand(0, 60);
  MatrixLocalInfo second = RowBand(60, 40);
  second.nnz = kMostOfInt - 6;
  Pavex::Records records = {first, second};

  GatherPlan const narrow = PlanGather(View(records), 8, 4);
  GatherPlan const wide = PlanGather(View(records), 8, 8);

  EXPECT_EQ(narrow.mStatus, STATUS_NOT_SUPPORTED);
  EXPECT_EQ(narrow.mFlaw, GatherFlaw::OFFSETS_TOO_SMALL);
  std::string const text = Describe(View(records), narrow);
  EXPECT_EQ(text.substr(0, text.find("mode ")),
            "refused: the pieces have 2147483648 entries together; offsets of 4 bytes cannot "
            "count them, use long\n"
            "stage: offsets\n");
  EXPECT_FALSE(wide.Refused());
  EXPECT_TRUE(FindSuspicious(View(records), wide).empty());
}

// The offsets of a holder exist, and the other formats have none.
TEST(Describe, ReportsNoOffsetsThatCountNothing) {
  MatrixLocalInfo whole = Whole();
  whole.nnz = kMostOfInt + 1;
  MatrixLocalInfo share =
      Piece(STORE_COO_0, MatrixPartition::NonzeroWise(), 100, 100, kMostOfInt);
  for (Pavex::Records records : {Pavex::Records{whole, Empty()}, Pavex::Records{whole, whole},
                                 Pavex::Records{share, share}})
    EXPECT_FALSE(PlanGather(View(records), 8, 4).Refused());
}

}  // namespace
}  // namespace Pavex
