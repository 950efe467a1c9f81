#include "pavex/assembly/renumbered_comm.h"

#include "pavex/aggregator/local_info.h"
#include "pavex/comm/local_comm.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <vector>

namespace Pavex {
namespace {

// Runs `body` on `order.size()` ranks whose receiver is `receiver` and whose pieces are placed
// in the order `order`.
void OnRanks(std::vector<int> order, int receiver,
             std::function<void(RenumberedComm const& comm, int rank)> const& body) {
  Buffer<int> view;
  view.Borrow(order.data(), static_cast<std::int64_t>(order.size()));
  LocalComm::Run(static_cast<int>(order.size()), [&](std::shared_ptr<Comm> const& inner) {
    MemoryPool pool;
    RenumberedComm comm(inner, receiver, view);
    ASSERT_EQ(comm.Prepare(pool), STATUS_OK);
    body(comm, inner->Rank());
  });
}

TEST(RenumberedComm, GivesTheReceiverTheFirstSeatAndKeepsTheOrderOfTheOthers) {
  OnRanks({0, 1, 2, 3}, 2, [](RenumberedComm const& comm, int rank) {
    EXPECT_EQ(comm.Rank(), (std::vector<int>{1, 2, 0, 3})[static_cast<std::size_t>(rank)]);
    EXPECT_EQ(comm.RankOf(comm.Rank()), rank);
    EXPECT_EQ(comm.Size(), 4);
  });
}

TEST(RenumberedComm, KeepsTheNumbersIfEverybodyReceives) {
  OnRanks({2, 0, 1}, kEverybody,
          [](RenumberedComm const& comm, int rank) { EXPECT_EQ(comm.Rank(), rank); });
}

TEST(RenumberedComm, ExchangesInTheOrderOfTheSeats) {
  for (bool const inPlace : {false, true}) {
    OnRanks({0, 1, 2, 3}, 2, [inPlace](RenumberedComm const& comm, int rank) {
      int const own = 10 * rank;
      std::vector<int> all(4, -1);
      all[static_cast<std::size_t>(comm.Rank())] = own;
      void const* const sent = inPlace ? static_cast<void const*>(&Comm::IN_PLACE_OBJ) : &own;

      EXPECT_EQ(comm.Allgather(sent, 1, DATATYPE_INT, all.data(), 1, DATATYPE_INT), STATUS_OK);

      EXPECT_EQ(all, (std::vector<int>{20, 0, 10, 30}));
    });
  }
}

TEST(RenumberedComm, PlacesThePiecesInItsOwnOrder) {
  OnRanks({3, 0, 2, 1}, 2, [](RenumberedComm const& comm, int rank) {
    std::vector<int> const own(static_cast<std::size_t>(rank + 1), rank);
    std::vector<int> all(comm.Rank() == 0 ? 10 : 0, -1);
    std::vector<int> const counts = {3, 1, 2, 4};  // by seat
    std::vector<int> const displs(4, 99);          // not read

    EXPECT_EQ(comm.Gatherv(own.data(), rank + 1, DATATYPE_INT, all.data(), counts.data(),
                           displs.data(), DATATYPE_INT, 0),
              STATUS_OK);

    if (rank == 2) {
      EXPECT_EQ(all, (std::vector<int>{3, 3, 3, 3, 0, 2, 2, 2, 1, 1}));
    }
  });
}

TEST(RenumberedComm, PlacesThePiecesForEverybody) {
  OnRanks({2, 0, 1}, kEverybody, [](RenumberedComm const& comm, int rank) {
    std::vector<int> const own(static_cast<std::size_t>(rank + 1), rank);
    std::vector<int> all(6, -1);
    std::vector<int> const counts = {1, 2, 3};

    EXPECT_EQ(comm.Allgatherv(own.data(), rank + 1, DATATYPE_INT, all.data(), counts.data(),
                              counts.data(), DATATYPE_INT),
              STATUS_OK);

    EXPECT_EQ(all, (std::vector<int>{2, 2, 2, 0, 1, 1}));
  });
}

// LocalComm moves runs between several ranks.
TEST(RenumberedComm, MovesRunsWhereTheInnerOneDoes) {
  OnRanks({0, 1}, 1,
          [](RenumberedComm const& comm, int /*rank*/) { EXPECT_TRUE(comm.Strided()); });
  OnRanks({0}, 0,
          [](RenumberedComm const& comm, int /*rank*/) { EXPECT_FALSE(comm.Strided()); });
}

TEST(RenumberedComm, RefusesWhatAnAggregatorOfBandsDoesNotCall) {
  OnRanks({0, 1}, 0, [](RenumberedComm const& comm, int /*rank*/) {
    int element = 0;
    int const count = 1;
    Runs const run = {0, 1, 1, 1};
    EXPECT_EQ(comm.Send(&element, 1, DATATYPE_INT, 0, 0), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(comm.Recv(&element, 1, DATATYPE_INT, 0, 0), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(comm.Bcast(&element, 1, DATATYPE_INT, 0), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(
        comm.Scatterv(&element, &count, &count, DATATYPE_INT, &element, 1, DATATYPE_INT, 0),
        STATUS_NOT_SUPPORTED);
    EXPECT_EQ(comm.GatherRuns(&element, run, &element, &run, DATATYPE_INT, 0),
              STATUS_NOT_SUPPORTED);
    EXPECT_EQ(comm.ScatterRuns(&element, &run, &element, run, DATATYPE_INT, 0),
              STATUS_NOT_SUPPORTED);
  });
}

}  // namespace
}  // namespace Pavex
