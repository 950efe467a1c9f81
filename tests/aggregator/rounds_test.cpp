#include "pavex/aggregator/rounds.h"

#include "tests/support/records.h"
#include "tests/support/round_check.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr long kInt = std::numeric_limits<int>::max();

// A call as the receiver makes it: where it begins in the gathered array, and the counts and
// displacements of the processes.
struct Call {
  long base;
  std::vector<int> counts;
  std::vector<int> displs;

  bool operator==(Call const& other) const {
    return base == other.base && counts == other.counts && displs == other.displs;
  }
};

std::ostream& operator<<(std::ostream& stream, Call const& call) {
  stream << "Call{" << call.base << ", {";
  for (int const count : call.counts)
    stream << count << ", ";
  stream << "}, {";
  for (int const displacement : call.displs)
    stream << displacement << ", ";
  return stream << "}}";
}

std::vector<TransferRound> RoundsOf(Records& records, Moved moved, long most) {
  std::vector<TransferRound> rounds;
  auto const count = static_cast<std::int64_t>(records.size());
  for (TransferPoint at; at.process < count; at = rounds.back().last)
    rounds.push_back(NextRound(View(records), moved, at, most));
  return rounds;
}

Call CallOf(Records& records, Moved moved, TransferRound const& round) {
  Call call{round.base, std::vector<int>(records.size(), -1),
            std::vector<int>(records.size(), -1)};
  FillRound(View(records), moved, round, call.counts.data(), call.displs.data());
  return call;
}

std::vector<Call> CallsOf(Records records, Moved moved, long most = kMostPerCall) {
  std::vector<Call> calls;
  for (TransferRound const& round : RoundsOf(records, moved, most))
    calls.push_back(CallOf(records, moved, round));
  return calls;
}

Records Entries(std::vector<long> const& counts) {
  Records records;
  for (long const count : counts)
    records.push_back(Pavex::Piece(STORE_COO_0, MatrixPartition::NonzeroWise(), 9, 9, count));
  return records;
}

bool OneRound(Records records, Moved moved, long most = kMostPerCall) {
  return IsOneRound(View(records), moved, most);
}

TEST(Rounds, CutAPieceWhereARoundIsFull) {
  EXPECT_THAT(CallsOf(Entries({5, 4, 6}), Moved::ENTRIES, 7),
              ElementsAre(Call{0, {5, 2, 0}, {0, 5, 0}}, Call{7, {0, 2, 5}, {0, 0, 2}},
                          Call{14, {0, 0, 1}, {0, 0, 0}}));
}

TEST(Rounds, CutOnePieceAsOftenAsNeeded) {
  EXPECT_THAT(
      CallsOf(Entries({1, 17}), Moved::ENTRIES, 7),
      ElementsAre(Call{0, {1, 6}, {0, 1}}, Call{7, {0, 7}, {0, 0}}, Call{14, {0, 4}, {0, 0}}));
}

TEST(Rounds, AreOneCallForWhatOneCallCanCount) {
  EXPECT_THAT(CallsOf(Entries({5, 0, 2}), Moved::ENTRIES, 7),
              ElementsAre(Call{0, {5, 0, 2}, {0, 0, 5}}));
  EXPECT_TRUE(OneRound(Entries({5, 0, 2}), Moved::ENTRIES, 7));
  EXPECT_FALSE(OneRound(Entries({5, 0, 3}), Moved::ENTRIES, 7));
  EXPECT_TRUE(OneRound(Entries({kInt - 1, 1}), Moved::ENTRIES));
  EXPECT_FALSE(OneRound(Entries({kInt, 1}), Moved::ENTRIES));
}

TEST(Rounds, CallOnceIfNothingMoves) {
  EXPECT_THAT(CallsOf(Entries({0, 0}), Moved::ENTRIES, 7),
              ElementsAre(Call{0, {0, 0}, {0, 0}}));
  EXPECT_THAT(CallsOf({}, Moved::ENTRIES, 7), IsEmpty());
}

TEST(Rounds, CountBeyondIntWithoutALimitOfTheirOwn) {
  int const most = static_cast<int>(kInt);
  EXPECT_THAT(
      CallsOf(Entries({4, 2 * kInt, kInt}), Moved::ENTRIES),
      ElementsAre(Call{0, {4, most - 4, 0}, {0, 4, 0}}, Call{kInt, {0, most, 0}, {0, 0, 0}},
                  Call{2 * kInt, {0, 4, most - 4}, {0, 0, 4}},
                  Call{3 * kInt, {0, 0, 4}, {0, 0, 0}}));
}

TEST(Rounds, PlaceTheLengthsOfBandsByTheirBegins) {
  Records const bands = {RowBand(100, 5), RowBand(105, 6), RowBand(111, 4)};

  EXPECT_THAT(CallsOf(bands, Moved::ROWS, 7),
              ElementsAre(Call{0, {5, 2, 0}, {0, 5, 0}}, Call{7, {0, 4, 3}, {0, 0, 4}},
                          Call{14, {0, 0, 1}, {0, 0, 0}}));
}

TEST(Rounds, PlaceTheLengthsOfColumns) {
  Records const bands = {ColumnBand(3, 5), ColumnBand(8, 4)};

  EXPECT_THAT(CallsOf(bands, Moved::COLS, 7),
              ElementsAre(Call{0, {5, 2}, {0, 5}}, Call{7, {0, 2}, {0, 0}}));
}

// Pieces that are not bands may begin anywhere.
TEST(Rounds, EndWherePlacesLieTooFarApart) {
  Records const far = {RowBand(0, 2), RowBand(6, 3), RowBand(1, 2)};

  EXPECT_THAT(CallsOf(far, Moved::ROWS, 7),
              ElementsAre(Call{0, {2, 1, 0}, {0, 6, 0}}, Call{7, {0, 2, 0}, {0, 0, 0}},
                          Call{1, {0, 0, 2}, {0, 0, 0}}));
  EXPECT_FALSE(OneRound(far, Moved::ROWS, 7));
  EXPECT_TRUE(OneRound(far, Moved::ROWS, 9));
}

// There are only six lengths, but one call cannot place the second piece.
TEST(Rounds, AreSeveralIfOneCallCannotPlaceAPiece) {
  EXPECT_FALSE(OneRound({RowBand(0, 3), RowBand(8, 3)}, Moved::ROWS, 7));
  EXPECT_FALSE(OneRound({RowBand(0, 3), RowBand(8, 0)}, Moved::ROWS, 7));
  EXPECT_FALSE(OneRound({RowBand(0, 3), RowBand(-1, 3)}, Moved::ROWS, 7));
  EXPECT_TRUE(OneRound({RowBand(0, 3), RowBand(7, 0)}, Moved::ROWS, 7));
}

TEST(Rounds, EndForRecordsOfAnySize) {
  long const least = std::numeric_limits<long>::min();
  long const largest = std::numeric_limits<long>::max();
  Records records = Entries({-1, 3, least, 5});
  EXPECT_THAT(
      CallsOf(records, Moved::ENTRIES, 7),
      ElementsAre(Call{0, {0, 3, 0, 4}, {0, 0, 0, 3}}, Call{7, {0, 0, 0, 1}, {0, 0, 0, 0}}));
  EXPECT_FALSE(OneRound(Entries({largest, largest}), Moved::ENTRIES));

  records = {RowBand(least, 3), RowBand(largest, 3), RowBand(least, -3), RowBand(-1, 3)};
  EXPECT_EQ(CallsOf(records, Moved::ROWS, 7).size(), 2U);
}

TEST(Rounds, SumTheEntriesOfEarlierProcesses) {
  Records records = Entries({kInt, kInt, 7});

  EXPECT_EQ(EntriesBefore(View(records), 0), 0);
  EXPECT_EQ(EntriesBefore(View(records), 2), 2 * kInt);
}

TEST(Rounds, MoveEveryElementOnceInOrderAndNeverTooMany) {
  std::mt19937 random(20261122);
  auto const below = [&random](long end) {
    return static_cast<long>(random() % static_cast<unsigned long>(end));
  };
  for (int sample = 0; sample < 20000; ++sample) {
    Records records;
    bool const bands = below(3) != 0;
    long begin = below(5);
    for (long p = below(6); p >= 0; --p) {
      long const rows = below(12);
      records.push_back(RowBand(bands ? begin : begin + below(20), rows));
      records.back().cols = rows;
      records.back().nnz = below(20);
      begin += bands ? rows : 0;
    }
    for (Moved const moved : {Moved::ENTRIES, Moved::ROWS, Moved::COLS}) {
      ASSERT_EQ(CheckRounds(View(records), moved, 1 + below(15)), "") << "sample " << sample;
    }
  }
}

}  // namespace
}  // namespace Pavex
