// Large transfers, and random programs of many operations.

#include "tests/comm/local_ranks.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace Pavex {
namespace {

class LocalCommStress : public testing::TestWithParam<int> {
 protected:
  int const n = GetParam();
};
INSTANTIATE_TEST_SUITE_P(Ranks, LocalCommStress, testing::Values(1, 2, 3, 4, 7));

// Pieces have very different sizes. One rank alone would not copy even the smallest.
constexpr int kLargest = 300000;

std::vector<long> LargePiece(int rank) {
  std::vector<long> piece(Index(kLargest / (rank + 1) + 17 * rank));
  for (std::size_t i = 0; i < piece.size(); ++i) {
    piece[i] = Mark(rank, static_cast<int>(i));
  }
  return piece;
}

struct LargeCut {
  explicit LargeCut(int ranks) {
    for (int r = 0; r < ranks; ++r) {
      auto const piece = LargePiece(r);
      counts.push_back(static_cast<int>(piece.size()));
      displs.push_back(static_cast<int>(whole.size()));
      whole.insert(whole.end(), piece.begin(), piece.end());
    }
  }

  std::vector<int> counts;
  std::vector<int> displs;
  std::vector<long> whole;
};

TEST_P(LocalCommStress, SharesLargeGathervAndScatterv) {
  LargeCut const cut(n);
  std::vector<long> gathered(cut.whole.size(), -1);

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    auto const piece = LargePiece(rank);
    int const count = cut.counts[Index(rank)];
    std::vector<long> back(piece.size(), -1);
    PavexStatus const sum =
        comm.Gatherv(piece.data(), count, DATATYPE_LONG, gathered.data(), cut.counts.data(),
                     cut.displs.data(), DATATYPE_LONG, 0) +
        comm.Scatterv(gathered.data(), cut.counts.data(), cut.displs.data(), DATATYPE_LONG,
                      back.data(), count, DATATYPE_LONG, 0);
    EXPECT_EQ(back, piece);
    return sum;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(gathered, cut.whole);
}

TEST_P(LocalCommStress, SharesLargeAllgathervAndBcast) {
  LargeCut const cut(n);

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    auto const piece = LargePiece(rank);
    std::vector<long> whole(cut.whole.size(), -1);
    std::vector<long> copy(cut.whole.size(), rank == n - 1 ? 5 : -1);
    PavexStatus const sum =
        comm.Allgatherv(piece.data(), cut.counts[Index(rank)], DATATYPE_LONG, whole.data(),
                        cut.counts.data(), cut.displs.data(), DATATYPE_LONG) +
        comm.Bcast(copy.data(), static_cast<int>(copy.size()), DATATYPE_LONG, n - 1);
    EXPECT_EQ(whole, cut.whole);
    EXPECT_EQ(copy, std::vector<long>(copy.size(), 5));
    return sum;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
}

TEST_P(LocalCommStress, SharesLargeAllreduce) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    std::vector<double> const terms(Index(kLargest), rank + 1.0);
    std::vector<double> sums(terms.size(), -1);
    PavexStatus const status =
        comm.Allreduce(terms.data(), sums.data(), kLargest, DATATYPE_DOUBLE, REDUCE_SUM);
    EXPECT_EQ(sums, std::vector<double>(terms.size(), n * (n + 1) / 2.0));
    return status;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
}

TEST_P(LocalCommStress, OverlappingLargePiecesKeepTheLastRank) {
  std::vector<int> const counts(Index(n), 20000);
  std::vector<int> displs;
  for (int r = 0; r < n; ++r) {
    displs.push_back(r * 10000);
  }
  std::vector<long> gathered(Index((n + 1) * 10000), -1);

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    std::vector<long> const piece(20000, rank);
    return comm.Gatherv(piece.data(), 20000, DATATYPE_LONG, gathered.data(), counts.data(),
                        displs.data(), DATATYPE_LONG, 0);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  for (int block = 0; block <= n; ++block) {
    long const last = std::min(block, n - 1);
    EXPECT_EQ(std::vector<long>(gathered.begin() + block * 10000,
                                gathered.begin() + (block + 1) * 10000),
              std::vector<long>(10000, last));
  }
}

// A random step. Every rank draws the same one from the same seed.
struct Step {
  Step(std::mt19937& random, int ranks)
      : kind(static_cast<int>(random() % 4)),
        first(static_cast<int>(random() % Index(ranks))),
        second(static_cast<int>(random() % Index(ranks))),
        count(random() % 10 == 0 ? 40000 : static_cast<int>(random() % 50)) {}

  int kind;
  int first;
  int second;
  int count;
};

// Runs the step and checks what arrives: rank r contributes elements `base` + r.
PavexStatus Perform(Step const& step, Comm const& comm, long base) {
  int const rank = comm.Rank();
  std::size_t const count = Index(step.count);
  std::vector<long> mine(count, base + rank);
  if (step.kind == 0) {
    PavexStatus const status = comm.Bcast(mine.data(), step.count, DATATYPE_LONG, step.first);
    EXPECT_EQ(mine, std::vector<long>(count, base + step.first));
    return status;
  }
  if (step.kind == 1) {
    std::vector<long> all(count * Index(comm.Size()), -1);
    PavexStatus const status = comm.Allgather(mine.data(), step.count, DATATYPE_LONG,
                                              all.data(), step.count, DATATYPE_LONG);
    for (int r = 0; r < comm.Size() && count > 0; ++r) {
      EXPECT_EQ(all[Index(r) * count], base + r);
      EXPECT_EQ(all[Index(r + 1) * count - 1], base + r);
    }
    return status;
  }
  if (step.kind == 2 || step.first == step.second) {
    return comm.Barrier();
  }
  if (rank == step.first) {
    return comm.Send(mine.data(), step.count, DATATYPE_LONG, step.second, 50);
  }
  if (rank == step.second) {
    PavexStatus const status =
        comm.Recv(mine.data(), step.count, DATATYPE_LONG, step.first, 50);
    EXPECT_EQ(mine, std::vector<long>(count, base + step.first));
    return status;
  }
  return STATUS_OK;
}

TEST_P(LocalCommStress, RandomProgramInStepSucceeds) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int) {
    std::mt19937 random(2024);
    PavexStatus sum = STATUS_OK;
    for (int i = 0; i < 300; ++i) {
      sum += Perform(Step(random, n), comm, 100L * i);
    }
    return sum;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
}

TEST_P(LocalCommStress, RandomProgramsOutOfStepEnd) {
  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    std::mt19937 random(static_cast<unsigned>(rank));
    std::vector<int> counts(Index(n), 1);
    std::vector<int> displs(Index(n), 0);
    std::vector<long> target(Index(n), 0);
    long const mine = rank;
    for (int i = 0; i < 300; ++i) {
      int const peer = static_cast<int>(random() % Index(n));
      switch (random() % 4) {
        case 0:
          (void)comm.Send(&mine, 1, DATATYPE_LONG, peer, 50);
          break;
        case 1:
          (void)comm.Recv(target.data(), 1, DATATYPE_LONG, peer, 50);
          break;
        case 2:
          (void)comm.Gatherv(&mine, 1, DATATYPE_LONG, target.data(), counts.data(),
                             displs.data(), DATATYPE_LONG, peer);
          break;
        default:
          (void)comm.Barrier();
      }
    }
    return comm.Recv(target.data(), 1, DATATYPE_LONG, rank, 50);
  });

  EXPECT_EQ(statuses, All(n, STATUS_COMM_FAILED));
}

}  // namespace
}  // namespace Pavex
