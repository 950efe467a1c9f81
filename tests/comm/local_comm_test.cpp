// Behaviour of LocalComm beyond the contract of every communicator.

#include "pavex/comm/local_comm.h"

#include "tests/comm/contract.h"
#include "tests/comm/local_ranks.h"

#include <climits>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {

PAVEX_COMM_CONTRACT(LocalRanks);

namespace {

class LocalCommOf : public testing::TestWithParam<int> {
 protected:
  int const n = GetParam();
  std::vector<std::vector<long>> received{Index(n)};
};
INSTANTIATE_TEST_SUITE_P(Ranks, LocalCommOf, testing::ValuesIn(LocalRanks::Sizes()));

TEST_P(LocalCommOf, GathervIntoOneSpotKeepsPieceOfLastRank) {
  std::vector<int> const counts(Index(n), 2);
  std::vector<int> const displs(Index(n), 0);

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    long const mine[] = {Mark(rank, 0), Mark(rank, 1)};
    received[Index(rank)].assign(2, -1);
    return comm.Gatherv(mine, 2, DATATYPE_LONG, received[Index(rank)].data(), counts.data(),
                        displs.data(), DATATYPE_LONG, 0);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(received[0], (std::vector<long>{Mark(n - 1, 0), Mark(n - 1, 1)}));
}

TEST(LocalComm, EmptyPieceMayHaveAnyDisplacement) {
  int const counts[] = {1, 0};
  int const displs[] = {0, -5};
  int gathered = -1;

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    int const mine = 8;
    return comm.Gatherv(&mine, 1 - rank, DATATYPE_INT, &gathered, counts, displs, DATATYPE_INT,
                        0);
  });

  EXPECT_EQ(statuses, All(2, STATUS_OK));
  EXPECT_EQ(gathered, 8);
}

// Together the pieces are so many bytes that several ranks would copy them if they were larger.
TEST(LocalComm, ManySmallPiecesLandWhereTheyBelong) {
  constexpr int kRanks = 8;
  constexpr int kEach = 100;
  std::vector<int> const counts(kRanks, kEach);
  std::vector<int> displs;
  for (int r = 0; r < kRanks; ++r)
    displs.push_back(r * kEach);

  auto const statuses = RunRanks(kRanks, [&](Comm const& comm, int rank) {
    std::vector<long> mine;
    std::vector<long> expected;
    for (int r = 0; r < kRanks; ++r) {
      mine.insert(mine.end(), kEach, Mark(rank, r));
      expected.insert(expected.end(), kEach, Mark(r, rank));
    }
    std::vector<long> received(mine.size(), -1);
    PavexStatus const status =
        comm.Alltoallv(mine.data(), counts.data(), displs.data(), DATATYPE_LONG,
                       received.data(), counts.data(), displs.data(), DATATYPE_LONG);
    EXPECT_EQ(received, expected) << "rank " << rank;
    return status;
  });

  EXPECT_EQ(statuses, All(kRanks, STATUS_OK));
}

TEST(LocalComm, SumsOfIntegersWrap) {
  std::vector<int> sums(2);

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    int const mine = rank == 0 ? INT_MAX : 1;
    return comm.Allreduce(&mine, &sums[Index(rank)], 1, DATATYPE_INT, REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(2, STATUS_OK));
  EXPECT_EQ(sums, std::vector<int>(2, INT_MIN));
}

}  // namespace
}  // namespace Pavex
