#include "pavex/comm/local_comm.h"

#include "tests/comm/local_ranks.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <numeric>
#include <vector>

namespace Pavex {
namespace {

// Every operation on groups of several sizes. The results of all ranks are collected and
// compared once all have returned.
class LocalCommOf : public testing::TestWithParam<int> {
 protected:
  int const n = GetParam();
  int const root = n - 1;
  Cut const cut{n};
  std::vector<std::vector<long>> received{Index(n)};
};
INSTANTIATE_TEST_SUITE_P(Ranks, LocalCommOf, testing::Values(1, 2, 3, 4, 7));

TEST_P(LocalCommOf, EveryRankKnowsItsNumberAndTheSize) {
  std::vector<int> ranks(Index(n), -1);

  LocalComm::Run(n, [&](std::shared_ptr<Comm> const& comm) {
    EXPECT_EQ(comm->Size(), n);
    ranks[Index(comm->Rank())] = comm->Rank();
  });

  std::vector<int> expected(Index(n));
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(ranks, expected);
}

TEST_P(LocalCommOf, BarrierHoldsBackUntilAllHaveEntered) {
  std::atomic<int> entered{0};
  std::vector<int> seen(Index(n), -1);

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    ++entered;
    PavexStatus const status = comm.Barrier();
    seen[Index(rank)] = entered;
    return status;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(seen, std::vector<int>(Index(n), n));
}

TEST_P(LocalCommOf, SendReachesNextRankRoundTheRing) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    long const mine = Mark(rank, 0);
    received[Index(rank)] = {-1};
    PavexStatus status = STATUS_OK;
    if (n > 1 && rank > 0) {
      status = comm.Recv(received[Index(rank)].data(), 1, DATATYPE_LONG, rank - 1, 7);
    }
    if (n > 1 && status == STATUS_OK) {
      status = comm.Send(&mine, 1, DATATYPE_LONG, (rank + 1) % n, 7);
    }
    if (n > 1 && rank == 0) {
      status = comm.Recv(received[0].data(), 1, DATATYPE_LONG, n - 1, 7);
    }
    return status;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  for (int r = 0; r < n; ++r) {
    EXPECT_EQ(received[Index(r)][0], n == 1 ? -1 : Mark((r + n - 1) % n, 0)) << "rank " << r;
  }
}

TEST_P(LocalCommOf, GathervCollectsPiecesOnRootAlone) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    auto const piece = cut.Piece(rank);
    received[Index(rank)].assign(Index(cut.total), -1);
    bool const receives = rank == root;
    return comm.Gatherv(piece.data(), cut.counts[Index(rank)], DATATYPE_LONG,
                        received[Index(rank)].data(), receives ? cut.counts.data() : nullptr,
                        receives ? cut.displs.data() : nullptr, DATATYPE_LONG, root);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(received[Index(root)], cut.Whole());
  for (int r = 0; r < root; ++r) {
    EXPECT_EQ(received[Index(r)], std::vector<long>(Index(cut.total), -1)) << "rank " << r;
  }
}

TEST_P(LocalCommOf, GathervInPlaceKeepsContributionOfRoot) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    auto const piece = cut.Piece(rank);
    if (rank != root) {
      return comm.Gatherv(piece.data(), cut.counts[Index(rank)], DATATYPE_LONG, nullptr,
                          nullptr, nullptr, DATATYPE_LONG, root);
    }
    received[Index(rank)].assign(Index(cut.total), -1);
    std::copy(piece.begin(), piece.end(),
              received[Index(rank)].begin() + cut.displs[Index(rank)]);
    return comm.Gatherv(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, received[Index(rank)].data(),
                        cut.counts.data(), cut.displs.data(), DATATYPE_LONG, root);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(received[Index(root)], cut.Whole());
}

TEST_P(LocalCommOf, GathervLeavesGapsUntouched) {
  std::vector<int> const counts(Index(n), 1);
  std::vector<int> displs;
  std::vector<long> expected(Index(2 * n), -1);
  for (int r = 0; r < n; ++r) {
    displs.push_back(2 * (n - 1 - r));
    expected[Index(displs.back())] = Mark(r, 0);
  }

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    long const mine = Mark(rank, 0);
    received[Index(rank)].assign(Index(2 * n), -1);
    return comm.Gatherv(&mine, 1, DATATYPE_LONG, received[Index(rank)].data(), counts.data(),
                        displs.data(), DATATYPE_LONG, 0);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(received[0], expected);
}

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

TEST_P(LocalCommOf, ScattervHandsEachRankItsPiece) {
  auto const whole = cut.Whole();

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    int const count = cut.counts[Index(rank)];
    received[Index(rank)].assign(Index(count), -1);
    bool const sends = rank == root;
    return comm.Scatterv(sends ? whole.data() : nullptr, sends ? cut.counts.data() : nullptr,
                         sends ? cut.displs.data() : nullptr, DATATYPE_LONG,
                         received[Index(rank)].data(), count, DATATYPE_LONG, root);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  for (int r = 0; r < n; ++r) {
    EXPECT_EQ(received[Index(r)], cut.Piece(r)) << "rank " << r;
  }
}

TEST_P(LocalCommOf, AlltoallvExchangesPiecesBetweenAllPairs) {
  std::vector<int> const counts(Index(n), 1);
  std::vector<int> displs(Index(n));
  std::iota(displs.begin(), displs.end(), 0);

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    std::vector<long> mine;
    for (int to = 0; to < n; ++to) {
      mine.push_back(Mark(rank, to));
    }
    received[Index(rank)].assign(Index(n), -1);
    return comm.Alltoallv(mine.data(), counts.data(), displs.data(), DATATYPE_LONG,
                          received[Index(rank)].data(), counts.data(), displs.data(),
                          DATATYPE_LONG);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  for (int r = 0; r < n; ++r) {
    for (int from = 0; from < n; ++from) {
      EXPECT_EQ(received[Index(r)][Index(from)], Mark(from, r)) << "rank " << r;
    }
  }
}

TEST_P(LocalCommOf, AllgatherReachesEveryRankInRankOrder) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    long const mine = Mark(rank, 0);
    received[Index(rank)].assign(Index(n), -1);
    return comm.Allgather(&mine, 1, DATATYPE_LONG, received[Index(rank)].data(), 1,
                          DATATYPE_LONG);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  for (int r = 0; r < n; ++r) {
    for (int from = 0; from < n; ++from) {
      EXPECT_EQ(received[Index(r)][Index(from)], Mark(from, 0)) << "rank " << r;
    }
  }
}

TEST_P(LocalCommOf, AllgatherInPlaceSpreadsTheSlotsOfAllRanks) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    received[Index(rank)].assign(Index(n), -1);
    received[Index(rank)][Index(rank)] = Mark(rank, 0);
    return comm.Allgather(&Comm::IN_PLACE_OBJ, 8, DATATYPE_BYTE, received[Index(rank)].data(),
                          8, DATATYPE_BYTE);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  for (int r = 0; r < n; ++r) {
    for (int from = 0; from < n; ++from) {
      EXPECT_EQ(received[Index(r)][Index(from)], Mark(from, 0)) << "rank " << r;
    }
  }
}

TEST_P(LocalCommOf, AllgathervReachesEveryRank) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    auto const piece = cut.Piece(rank);
    received[Index(rank)].assign(Index(cut.total), -1);
    return comm.Allgatherv(piece.data(), cut.counts[Index(rank)], DATATYPE_LONG,
                           received[Index(rank)].data(), cut.counts.data(), cut.displs.data(),
                           DATATYPE_LONG);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(received, std::vector<std::vector<long>>(Index(n), cut.Whole()));
}

TEST_P(LocalCommOf, AllgathervInPlaceSpreadsThePiecesOfAllRanks) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    auto const piece = cut.Piece(rank);
    received[Index(rank)].assign(Index(cut.total), -1);
    std::copy(piece.begin(), piece.end(),
              received[Index(rank)].begin() + cut.displs[Index(rank)]);
    return comm.Allgatherv(&Comm::IN_PLACE_OBJ, 0, DATATYPE_LONG, received[Index(rank)].data(),
                           cut.counts.data(), cut.displs.data(), DATATYPE_LONG);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(received, std::vector<std::vector<long>>(Index(n), cut.Whole()));
}

TEST_P(LocalCommOf, BcastCopiesFromRootToAll) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    received[Index(rank)] = {Mark(rank, 0), Mark(rank, 1)};
    return comm.Bcast(received[Index(rank)].data(), 2, DATATYPE_LONG, root);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(received, std::vector<std::vector<long>>(Index(n), {Mark(root, 0), Mark(root, 1)}));
}

TEST_P(LocalCommOf, AllreduceAddsTheElementsOfAllRanks) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    long const mine[] = {rank, 1};
    received[Index(rank)].assign(2, -1);
    return comm.Allreduce(mine, received[Index(rank)].data(), 2, DATATYPE_LONG, REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(received, std::vector<std::vector<long>>(Index(n), {n * (n - 1) / 2, n}));
}

TEST_P(LocalCommOf, ZeroCountsNeedNoBuffers) {
  std::vector<int> const zeros(Index(n), 0);

  auto const statuses = RunRanks(n, [&](Comm const& comm, int) {
    int const* const none = zeros.data();
    PavexStatus sum =
        comm.Gatherv(nullptr, 0, DATATYPE_INT, nullptr, none, none, DATATYPE_INT, 0);
    sum += comm.Scatterv(nullptr, none, none, DATATYPE_INT, nullptr, 0, DATATYPE_INT, 0);
    sum += comm.Alltoallv(nullptr, none, none, DATATYPE_INT, nullptr, none, none, DATATYPE_INT);
    sum += comm.Allgather(nullptr, 0, DATATYPE_INT, nullptr, 0, DATATYPE_INT);
    sum += comm.Allgatherv(nullptr, 0, DATATYPE_INT, nullptr, none, none, DATATYPE_INT);
    sum += comm.Allreduce(nullptr, nullptr, 0, DATATYPE_INT, REDUCE_SUM);
    sum += comm.Bcast(nullptr, 0, DATATYPE_INT, 0);
    return sum;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
}

TEST(LocalComm, ZeroCountMessageNeedsNoBuffers) {
  auto const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    return rank == 0 ? comm.Send(nullptr, 0, DATATYPE_INT, 1, 0)
                     : comm.Recv(nullptr, 0, DATATYPE_INT, 0, 0);
  });

  EXPECT_EQ(statuses, All(2, STATUS_OK));
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

// More together than one rank copies at once, if the pieces were larger.
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

TEST(LocalComm, MessagesOfOneSenderArriveInOrder) {
  std::vector<int> got(3, -1);

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    PavexStatus sum = STATUS_OK;
    for (int i = 0; i < 3; ++i) {
      sum += rank == 0 ? comm.Send(&i, 1, DATATYPE_INT, 1, 50)
                       : comm.Recv(&got[Index(i)], 1, DATATYPE_INT, 0, 50);
    }
    return sum;
  });

  EXPECT_EQ(statuses, All(2, STATUS_OK));
  EXPECT_EQ(got, (std::vector<int>{0, 1, 2}));
}

TEST(LocalComm, ReceiverChoosesBetweenTwoSenders) {
  std::vector<int> got(2, -1);

  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    if (rank < 2) {
      return comm.Send(&rank, 1, DATATYPE_INT, 2, 50);
    }
    PavexStatus const second = comm.Recv(&got[1], 1, DATATYPE_INT, 1, 50);
    return second + comm.Recv(&got[0], 1, DATATYPE_INT, 0, 50);
  });

  EXPECT_EQ(statuses, All(3, STATUS_OK));
  EXPECT_EQ(got, (std::vector<int>{0, 1}));
}

}  // namespace
}  // namespace Pavex
