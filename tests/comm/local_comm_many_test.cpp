// LocalComm with far more ranks than processors.

#include "tests/comm/local_ranks.h"

#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

#if defined(__SANITIZE_THREAD__)
constexpr int kMany = 200;  // ThreadSanitizer takes a minute for 1000
#else
constexpr int kMany = 1000;
#endif
constexpr PavexStatus kFailed = STATUS_COMM_FAILED;

TEST(LocalCommOfMany, AllgatherInPlaceReachesEveryRank) {
  std::vector<long> expected;
  for (int r = 0; r < kMany; ++r)
    expected.insert(expected.end(), {Mark(r, 0), Mark(r, 1)});

  auto const statuses = RunRanks(kMany, [&](Comm const& comm, int rank) {
    std::vector<long> received(expected.size(), -1);
    received[Index(2 * rank)] = Mark(rank, 0);
    received[Index(2 * rank + 1)] = Mark(rank, 1);
    PavexStatus const status = comm.Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE,
                                              received.data(), 16, DATATYPE_BYTE);
    return received == expected ? status : kFailed;
  });

  EXPECT_EQ(statuses, All(kMany, STATUS_OK));
}

// Every rank spreads the pieces differently: rank r leaves r % 3 elements between them.
TEST(LocalCommOfMany, AllgathervPlacesThePiecesWhereEachRankWantsThem) {
  Cut const cut(kMany);

  auto const statuses = RunRanks(kMany, [&](Comm const& comm, int rank) {
    int const gap = rank % 3;
    std::vector<int> displs;
    std::vector<long> expected;
    for (int r = 0; r < kMany; ++r) {
      displs.push_back(static_cast<int>(expected.size()));
      auto const piece = cut.Piece(r);
      expected.insert(expected.end(), piece.begin(), piece.end());
      expected.insert(expected.end(), Index(gap), -1);
    }
    std::vector<long> received(expected.size(), -1);
    auto const mine = cut.Piece(rank);
    PavexStatus const status =
        comm.Allgatherv(mine.data(), cut.counts[Index(rank)], DATATYPE_LONG, received.data(),
                        cut.counts.data(), displs.data(), DATATYPE_LONG);
    return received == expected ? status : kFailed;
  });

  EXPECT_EQ(statuses, All(kMany, STATUS_OK));
}

TEST(LocalCommOfMany, PiecesGoToOneRankAndBack) {
  Cut const cut(kMany);
  std::vector<long> gathered(Index(cut.total), -1);

  auto const statuses = RunRanks(kMany, [&](Comm const& comm, int rank) {
    auto const mine = cut.Piece(rank);
    int const count = cut.counts[Index(rank)];
    std::vector<long> back(mine.size(), -1);
    PavexStatus const sum =
        comm.Gatherv(mine.data(), count, DATATYPE_LONG, gathered.data(), cut.counts.data(),
                     cut.displs.data(), DATATYPE_LONG, 7) +
        comm.Scatterv(gathered.data(), cut.counts.data(), cut.displs.data(), DATATYPE_LONG,
                      back.data(), count, DATATYPE_LONG, 7);
    return back == mine ? sum : kFailed;
  });

  EXPECT_EQ(statuses, All(kMany, STATUS_OK));
  EXPECT_EQ(gathered, cut.Whole());
}

// More than a few ranks copy together, so some sleep until all has been copied.
TEST(LocalCommOfMany, LargePiecesGoToOneRank) {
  constexpr int kRanks = 40;
  constexpr int kEach = 100000;
  std::vector<int> const counts(kRanks, kEach);
  std::vector<int> displs;
  std::vector<int> expected;
  for (int r = 0; r < kRanks; ++r) {
    displs.push_back(r * kEach);
    expected.insert(expected.end(), kEach, r);
  }
  std::vector<int> gathered(expected.size(), -1);

  auto const statuses = RunRanks(kRanks, [&](Comm const& comm, int rank) {
    std::vector<int> const mine(kEach, rank);
    return comm.Gatherv(mine.data(), kEach, DATATYPE_INT, gathered.data(), counts.data(),
                        displs.data(), DATATYPE_INT, 0) +
           comm.Barrier();
  });

  EXPECT_EQ(statuses, All(kRanks, STATUS_OK));
  EXPECT_TRUE(gathered == expected);
}

TEST(LocalCommOfMany, MessageGoesRoundTheRing) {
  auto const statuses = RunRanks(kMany, [](Comm const& comm, int rank) {
    int hops = 0;
    PavexStatus sum = STATUS_OK;
    if (rank > 0) sum += comm.Recv(&hops, 1, DATATYPE_INT, rank - 1, 7);
    ++hops;
    sum += comm.Send(&hops, 1, DATATYPE_INT, (rank + 1) % kMany, 7);
    if (rank > 0) return hops == rank + 1 ? sum : kFailed;
    sum += comm.Recv(&hops, 1, DATATYPE_INT, kMany - 1, 7);
    return hops == kMany ? sum : kFailed;
  });

  EXPECT_EQ(statuses, All(kMany, STATUS_OK));
}

TEST(LocalCommOfMany, BarrierFailsOnAllOthersWhenOneRankHasReturned) {
  auto expected = All(kMany, kFailed);
  expected[kMany / 2] = STATUS_OK;

  auto const statuses = RunRanks(kMany, [](Comm const& comm, int rank) {
    return rank == kMany / 2 ? STATUS_OK : comm.Barrier();
  });

  EXPECT_EQ(statuses, expected);
}

TEST(LocalCommOfMany, ChainOfReceiversAfterReturnedRankFails) {
  auto expected = All(kMany, kFailed);
  expected[0] = STATUS_OK;

  auto const statuses = RunRanks(kMany, [](Comm const& comm, int rank) {
    int value = 0;
    return rank == 0 ? STATUS_OK : comm.Recv(&value, 1, DATATYPE_INT, rank - 1, 0);
  });

  EXPECT_EQ(statuses, expected);
}

TEST(LocalCommOfMany, AllgatherWithOneWrongCountFailsOnEveryRank) {
  auto const statuses = RunRanks(kMany, [](Comm const& comm, int rank) {
    std::vector<int> received(Index(2 * kMany), -1);
    PavexStatus const status = comm.Allgather(&rank, 1, DATATYPE_INT, received.data(),
                                              rank == kMany - 1 ? 2 : 1, DATATYPE_INT);
    return received == std::vector<int>(received.size(), -1) ? status : STATUS_OK;
  });

  EXPECT_EQ(statuses, All(kMany, kFailed));
}

}  // namespace
}  // namespace Pavex
