// The calls of transfers in rounds, in a library whose calls move at most 7 elements.

#include "pavex/aggregator/rounds.h"
#include "pavex/comm/local_comm.h"
#include "tests/support/arrays.h"
#include "tests/support/dense_piece.h"
#include "tests/support/formats.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/log_level.h"
#include "tests/support/shares.h"
#include "tests/support/strided_comm.h"

#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <numeric>
#include <string>
#include <vector>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(kMostPerCall == 7, "the numbers below count on it");

constexpr char kExchange[] = "Allgather(in place 72 byte; 72 byte)";

std::vector<int> From(int first, int count) {
  std::vector<int> numbers(static_cast<std::size_t>(count));
  std::iota(numbers.begin(), numbers.end(), first);
  return numbers;
}

// Entries `first` to `first + count` of a 20 x 20 matrix: entry k is k at row k, column 19 - k.
CooPiece<> Entries(int first, int count) {
  std::vector<int> rows = From(first, count);
  std::vector<int> const values = rows;
  std::vector<int> cols;
  for (int const row : rows)
    cols.push_back(19 - row);
  return {20, 20, rows, cols, values};
}

// The share of rank `rank` of three with 5, 4 and 6 entries, or of two with 5 and 2.
CooPiece<> EntriesOf(int rank, bool many) {
  int const first[] = {0, 5, 9};
  int const count[] = {5, many ? 4 : 2, 6};
  CooPiece<> piece = Entries(first[rank], count[rank]);
  piece.matrix.PlaceIn(20, 20, MatrixPartition::NonzeroWise());
  return piece;
}

// Runs `body` on every rank of `ranks`.
void OnEach(int ranks, std::function<void(RankUnderTest<>&, int)> const& body) {
  LocalComm::Run(ranks, [&body](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    body(rank, comm->Rank());
  });
}

std::vector<std::string> Joined(std::vector<std::vector<std::string>> const& lists) {
  std::vector<std::string> all;
  for (auto const& list : lists)
    all.insert(all.end(), list.begin(), list.end());
  return all;
}

// The calls of rank `rank` that collect one array of the entries of three ranks.
std::vector<std::string> RoundsOfThree(int rank, std::string const& type) {
  std::string const own[3][3] = {{"5", "2", "0"}, {"0", "2", "5"}, {"0", "0", "1"}};
  if (rank != 0) {
    auto const call = [&](int round) {
      return "Gatherv(" + own[round][rank] + " " + type + "; " + type + "; root 0)";
    };
    return {call(0), call(1), call(2)};
  }
  return {"Gatherv(5 " + type + "; {5, 2, 0} at {0, 5, 0} " + type + "; root 0)",
          "Gatherv(0 " + type + "; {0, 2, 5} at {0, 0, 2} " + type + "; root 0)",
          "Gatherv(0 " + type + "; {0, 0, 1} at {0, 0, 0} " + type + "; root 0)"};
}

TEST(GatherInRounds, CallsForEachArrayUntilAllEntriesHaveMoved) {
  OnEach(3, [](RankUnderTest<>& rank, int self) {
    CooPiece<> const piece = EntriesOf(self, true);

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_EQ(rank.comm->DataTexts(), Joined({{kExchange},
                                              RoundsOfThree(self, "int"),
                                              RoundsOfThree(self, "int"),
                                              RoundsOfThree(self, "double")}));
    if (self != 0) return;
    auto const& whole = rank.Target<MatrixCOO<double, int>>();
    EXPECT_EQ(Elements(whole.mRowIdx), From(0, 15));
    EXPECT_EQ(Elements(whole.mValues), Numbers<double>(From(0, 15)));
    EXPECT_THAT(Elements(rank.aggregator.mCounts), ElementsAre(5, 4, 6));
    EXPECT_THAT(Elements(rank.aggregator.mDispls), ElementsAre(0, 5, 9));
  });
}

// Each of the three transfers takes memory for its counts and displacements, and returns it.
TEST(GatherInRounds, ReturnsTheCountsOfTheRoundsToThePool) {
  OnEach(3, [](RankUnderTest<>& rank, int self) {
    CooPiece<> const piece = EntriesOf(self, true);

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    std::size_t const kept = self == 0 ? 3 * 72 + 2 * 12 + 15 * (4 + 4 + 8) : 3 * 72;
    std::size_t const events = self == 0 ? 1 + 2 + 3 + 3 * 4 : 1;
    EXPECT_EQ(rank.pool.OutstandingBytes(), kept);
    EXPECT_EQ(rank.pool.Events().size(), events);
  });
}

TEST(GatherInRounds, IsOneCallForWhatOneCallCounts) {
  OnEach(2, [](RankUnderTest<>& rank, int self) {
    CooPiece<> const piece = EntriesOf(self, false);

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, false), STATUS_OK);

    std::string const root = "Gatherv(5 int; {5, 2} at {0, 5} int; root 0)";
    std::string const other = "Gatherv(2 int; int; root 0)";
    std::string const call = self == 0 ? root : other;
    EXPECT_THAT(rank.comm->DataTexts(), ElementsAre(kExchange, call, call));
  });
}

TEST(GatherInRounds, CollectsOnEveryProcess) {
  OnEach(3, [](RankUnderTest<>& rank, int self) {
    CooPiece<> const piece = EntriesOf(self, true);
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);
    rank.ForgetThePast();

    ASSERT_EQ(rank.aggregator.Update(piece.matrix), STATUS_OK);

    EXPECT_EQ(rank.comm->DataTexts().at(1), "Allgatherv(" +
                                                std::to_string(self == 1   ? 2
                                                               : self == 2 ? 5
                                                                           : 0) +
                                                " double; {0, 2, 5} at {0, 0, 2} double)");
    EXPECT_EQ(Elements(rank.Target<MatrixCOO<double, int>>().mValues),
              Numbers<double>(From(0, 15)));
  });
}

TEST(UpdateInRounds, WritesTheGatheredValuesInPlace) {
  OnEach(3, [](RankUnderTest<>& rank, int self) {
    CooPiece<> const piece = EntriesOf(self, true);
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);
    CooPiece<> fresh = EntriesOf(self, true);
    for (double& value : fresh.values)
      value += 100;
    double const* const place =
        self == 0 ? rank.Target<MatrixCOO<double, int>>().mValues.mData : nullptr;

    ASSERT_EQ(rank.aggregator.UpdateInPlace(fresh.matrix), STATUS_OK);

    if (self != 0) return;
    auto const& whole = rank.Target<MatrixCOO<double, int>>();
    EXPECT_EQ(whole.mValues.mData, place);
    EXPECT_EQ(Elements(whole.mValues), Numbers<double>(From(100, 15)));
  });
}

// Another number of entries would shift the rounds of this process.
TEST(UpdateInRounds, RefusesAnotherNumberOfEntriesBeforeItTakesMemoryOrCalls) {
  LogLevel const silent(-1);
  OnEach(3, [](RankUnderTest<>& rank, int self) {
    CooPiece<> const piece = EntriesOf(self, true);
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);
    rank.ForgetThePast();
    CooPiece<> other = Entries(0, 3);

    EXPECT_EQ(rank.aggregator.UpdateCOO(other.matrix), STATUS_MISMATCH);

    EXPECT_THAT(rank.comm->DataTexts(), IsEmpty());
    EXPECT_THAT(rank.pool.Events(), IsEmpty());
  });
}

TEST(GatherInRounds, SendsThePiecesOfAHolderUnderOneTag) {
  OnEach(2, [](RankUnderTest<>& rank, int self) {
    CooPiece<> const piece = self == 1 ? Entries(0, 15) : CooPiece<>(0, 0, {}, {}, {});

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, false), STATUS_OK);

    auto const rounds = [self](std::string const& count) {
      return self == 1 ? "Send(" + count + " int to 0 tag 50)"
                       : "Recv(" + count + " int from 1 tag 50)";
    };
    EXPECT_THAT(rank.comm->DataTexts(),
                ElementsAre(kExchange, rounds("7"), rounds("7"), rounds("1"), rounds("7"),
                            rounds("7"), rounds("1")));
    if (self == 0) {
      EXPECT_EQ(Elements(rank.Target<MatrixCOO<double, int>>().mRowIdx), From(0, 15));
    }
  });
}

TEST(GatherInRounds, BroadcastsTheWholeOfAHolder) {
  OnEach(2, [](RankUnderTest<>& rank, int self) {
    CooPiece<> const piece = self == 1 ? Entries(0, 8) : CooPiece<>(0, 0, {}, {}, {});

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, false), STATUS_OK);

    EXPECT_THAT(rank.comm->DataTexts(),
                ElementsAre(kExchange, "Bcast(7 int; root 1)", "Bcast(1 int; root 1)",
                            "Bcast(7 int; root 1)", "Bcast(1 int; root 1)"));
    EXPECT_EQ(Elements(rank.Target<MatrixCOO<double, int>>().mRowIdx), From(0, 8));
  });
}

// --- Compressed: 5 and 4 rows (columns), of which each second one has an entry

template <typename Format>
class CompressedInRounds : public ::testing::Test {};
TYPED_TEST_SUITE(CompressedInRounds, CompressedFormats);

TYPED_TEST(CompressedInRounds, PlaceTheLengthsOfEachRound) {
  OnEach(2, [](RankUnderTest<>& rank, int self) {
    auto piece = self == 0 ? TypeParam::Make(5, 5, {0, 1, 1, 2, 2, 3}, {0, 1, 2}, {10, 20, 30})
                           : TypeParam::Make(4, 5, {7, 7, 8, 8, 9}, {3, 4}, {40, 50});
    TypeParam::Place(piece, 9, 5, TypeParam::Band(self == 0 ? 100 : 105));

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    if (self == 0) {
      EXPECT_THAT(rank.comm->DataTexts(),
                  ElementsAre(kExchange, "Gatherv(5 int; {5, 2} at {0, 5} int; root 0)",
                              "Gatherv(0 int; {0, 2} at {0, 0} int; root 0)",
                              "Gatherv(3 int; {3, 2} at {0, 3} int; root 0)",
                              "Gatherv(3 double; {3, 2} at {0, 3} double; root 0)"));
      auto& whole = rank.template Target<typename TypeParam::Matrix>();
      EXPECT_THAT(Elements(whole.*TypeParam::kFirst),
                  ElementsAre(0, 1, 1, 2, 2, 3, 3, 4, 4, 5));
      EXPECT_THAT(Elements(whole.*TypeParam::kSecond), ElementsAre(0, 1, 2, 3, 4));
    } else {
      EXPECT_THAT(
          rank.comm->DataTexts(),
          ElementsAre(kExchange, "Gatherv(2 int; int; root 0)", "Gatherv(2 int; int; root 0)",
                      "Gatherv(2 int; int; root 0)", "Gatherv(2 double; double; root 0)"));
    }
  });
}

TYPED_TEST(CompressedInRounds, PlaceTheOffsetsOfEachRound) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& inner) {
    auto const comm = std::make_shared<StridedComm>(inner);
    int const self = comm->Rank();
    auto piece = self == 0 ? TypeParam::Make(5, 5, {3, 4, 4, 5, 5, 6}, {0, 1, 2}, {10, 20, 30})
                           : TypeParam::Make(4, 5, {7, 7, 8, 8, 9}, {3, 4}, {40, 50});
    TypeParam::Place(piece, 9, 5, TypeParam::Band(self == 0 ? 0 : 5));
    LedgerPool pool;
    Aggregator<double, int> aggregator(&pool);

    ASSERT_EQ(aggregator.Allgather(comm, piece.matrix, true), STATUS_OK);

    EXPECT_EQ(comm->DataTexts().size(), 5U) << "two calls for the offsets";
    auto& whole = *aggregator.TargetAs<typename TypeParam::Matrix>();
    EXPECT_THAT(Elements(whole.*TypeParam::kFirst), ElementsAre(0, 1, 1, 2, 2, 3, 3, 4, 4, 5));
  });
}

// --- Dense: row bands of 2 and 3 rows of a 5 x 3 matrix

DensePiece<> Band(int rank, int padding) {
  return DenseBlock(rank == 0 ? 1 : 3, rank == 0 ? 2 : 3, 1, 3, true, padding)
      .In(5, 3, MatrixPartition::RowWise(rank == 0 ? 0 : 2));
}

TEST(DenseInRounds, GoesThereAndBack) {
  OnEach(2, [](RankUnderTest<>& rank, int self) {
    DensePiece<> const piece = Band(self, 2);
    DensePiece<> back = Band(self, 1);
    back.values.assign(back.values.size(), 0);
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);
    std::vector<std::string> const there = rank.comm->DataTexts();
    rank.ForgetThePast();

    ASSERT_EQ(rank.aggregator.Scatter(back.matrix), STATUS_OK);

    if (self == 0) {
      EXPECT_THAT(there,
                  ElementsAre(kExchange, "Gatherv(6 double; {6, 1} at {0, 6} double; root 0)",
                              "Gatherv(0 double; {0, 7} at {0, 0} double; root 0)",
                              "Gatherv(0 double; {0, 1} at {0, 0} double; root 0)"));
      EXPECT_THAT(rank.comm->DataTexts(),
                  ElementsAre("Scatterv({6, 1} at {0, 6} double; 6 double; root 0)",
                              "Scatterv({0, 7} at {0, 0} double; 0 double; root 0)",
                              "Scatterv({0, 1} at {0, 0} double; 0 double; root 0)"));
      EXPECT_THAT(back.values, ElementsAre(11, 12, 13, 0, 21, 22, 23));
    } else {
      EXPECT_THAT(back.values, ElementsAre(31, 32, 33, 0, 41, 42, 43, 0, 51, 52, 53));
    }
  });
}

// Runs are counted in long, so a communicator that moves them needs no rounds.
TEST(DenseInRounds, IsOneCallOverACommunicatorThatMovesRuns) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& inner) {
    auto const comm = std::make_shared<StridedComm>(inner);
    int const self = comm->Rank();
    DensePiece<> const piece = Band(self, 2);
    DensePiece<> newer = Band(self, 2);
    DensePiece<> back = Band(self, 1);
    for (double& value : newer.values)
      value += 100;
    back.values.assign(back.values.size(), 0);
    LedgerPool pool;
    Aggregator<double, int> aggregator(&pool);

    ASSERT_EQ(aggregator.Gather(comm, piece.matrix, true), STATUS_OK);
    ASSERT_EQ(aggregator.UpdateInPlace(newer.matrix), STATUS_OK);
    ASSERT_EQ(aggregator.Scatter(back.matrix), STATUS_OK);

    if (self == 0) {
      std::string const gather = "GatherRuns({0, 3, 2, 5}; {0, 6, 1, 6} {6, 9, 1, 9}; root 0)";
      EXPECT_THAT(comm->RunCalls(),
                  ElementsAre(gather, gather,
                              "ScatterRuns({0, 6, 1, 6} {6, 9, 1, 9}; {0, 3, 2, 4}; root 0)"));
      EXPECT_THAT(back.values, ElementsAre(111, 112, 113, 0, 121, 122, 123));
    } else {
      EXPECT_THAT(back.values, ElementsAre(131, 132, 133, 0, 141, 142, 143, 0, 151, 152, 153));
    }
  });
}

// The copy must not read the displacements of one call, which the test overwrites.
TEST(DenseInRounds, CopiesThePieceOfEachProcessOutOfItsOwnWhole) {
  OnEach(2, [](RankUnderTest<>& rank, int self) {
    DensePiece<> const piece = Band(self, 0);
    DensePiece<> back = Band(self, 0);
    back.values.assign(back.values.size(), 0);
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);
    std::fill_n(rank.aggregator.mDispls.mData, 2, -1);

    ASSERT_EQ(rank.aggregator.Scatter(back.matrix), STATUS_OK);

    EXPECT_EQ(back.values, piece.values);
  });
}

TEST(DenseInRounds, RefusesAnArrayThatIsShorterThanItsPiece) {
  LogLevel const silent(-1);
  OnEach(2, [](RankUnderTest<>& rank, int self) {
    DensePiece<> piece = Band(self, 0);
    piece.matrix.mValues.Borrow(piece.values.data(),
                                static_cast<std::int64_t>(piece.values.size()) - 1);

    EXPECT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_MISMATCH);

    EXPECT_THAT(rank.comm->DataTexts(), ElementsAre(kExchange));
  });
}

}  // namespace
}  // namespace Pavex
