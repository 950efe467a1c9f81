// How LocalComm fails operations that can never meet, and waits with those that still can.

#include "tests/comm/local_ranks.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

constexpr PavexStatus kFailed = STATUS_COMM_FAILED;

TEST(LocalCommStuck, CollectiveFailsWhenOneRankHasReturned) {
  auto const statuses = RunRanks(
      4, [](Comm const& comm, int rank) { return rank == 2 ? STATUS_OK : comm.Barrier(); });

  EXPECT_EQ(statuses, (Statuses{kFailed, kFailed, STATUS_OK, kFailed}));
}

TEST(LocalCommStuck, CollectiveFailsWhenOneRankHasThrown) {
  Statuses statuses(3, STATUS_OK);

  EXPECT_THROW(LocalComm::Run(3,
                              [&](auto const& comm) {
                                if (comm->Rank() == 0) {
                                  throw std::runtime_error("rank 0");
                                }
                                statuses[Index(comm->Rank())] = comm->Barrier();
                              }),
               std::runtime_error);
  EXPECT_EQ(statuses, (Statuses{STATUS_OK, kFailed, kFailed}));
}

TEST(LocalCommStuck, TwoDifferentCollectivesFail) {
  auto const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    int value = 0;
    return rank == 0 ? comm.Barrier() : comm.Bcast(&value, 1, DATATYPE_INT, 0);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

// The two ranks call different operations that would move the same data in the same way.
TEST(LocalCommStuck, LikeCollectivesOfDifferentKindsFail) {
  int const ones[] = {1, 1};
  int const none[] = {0, 0};
  int const displs[] = {0, 1};
  std::vector<int> got(2);
  using Call = std::function<PavexStatus(Comm const&)>;
  Call const barrier = [](Comm const& comm) { return comm.Barrier(); };
  Call const gatherv = [&](Comm const& comm) {
    return comm.Gatherv(nullptr, 0, DATATYPE_BYTE, nullptr, none, none, DATATYPE_BYTE, 0);
  };
  Call const alltoallv = [&](Comm const& comm) {
    return comm.Alltoallv(ones, ones, displs, DATATYPE_INT, got.data(), ones, displs,
                          DATATYPE_INT);
  };
  Call const allgather = [&](Comm const& comm) {
    return comm.Allgather(ones, 1, DATATYPE_INT, got.data(), 1, DATATYPE_INT);
  };
  Call const allgatherv = [&](Comm const& comm) {
    return comm.Allgatherv(ones, 1, DATATYPE_INT, got.data(), ones, displs, DATATYPE_INT);
  };

  for (auto const& [first, second] :
       {std::pair(barrier, gatherv), {alltoallv, allgather}, {allgather, allgatherv}}) {
    auto const statuses =
        RunRanks(2, [&, &first = first, &second = second](Comm const& comm, int rank) {
          return rank == 0 ? first(comm) : second(comm);
        });

    EXPECT_EQ(statuses, All(2, kFailed));
  }
}

TEST(LocalCommStuck, DifferentRootsFail) {
  auto const statuses = RunRanks(3, [](Comm const& comm, int rank) {
    int value = 0;
    return comm.Bcast(&value, 1, DATATYPE_INT, rank == 1 ? 1 : 0);
  });

  EXPECT_EQ(statuses, All(3, kFailed));
}

TEST(LocalCommStuck, TwoReceiversFacingEachOtherFail) {
  auto const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    int value = 0;
    return comm.Recv(&value, 1, DATATYPE_INT, 1 - rank, 0);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommStuck, DifferentTagsFail) {
  auto const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    int value = 0;
    return rank == 0 ? comm.Send(&value, 1, DATATYPE_INT, 1, 50)
                     : comm.Recv(&value, 1, DATATYPE_INT, 0, 51);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommStuck, SendToOneselfFails) {
  auto const statuses = RunRanks(1, [](Comm const& comm, int) {
    int const value = 0;
    return comm.Send(&value, 1, DATATYPE_INT, 0, 0);
  });

  EXPECT_EQ(statuses, All(1, kFailed));
}

TEST(LocalCommStuck, SendThatNoRankReceivesFails) {
  auto const statuses = RunRanks(3, [](Comm const& comm, int rank) {
    int const value = 0;
    return rank == 0 ? comm.Send(&value, 1, DATATYPE_INT, 1, 0) : comm.Barrier();
  });

  EXPECT_EQ(statuses, All(3, kFailed));
}

TEST(LocalCommStuck, ChainOfReceiversAfterReturnedRankFails) {
  auto const statuses = RunRanks(4, [](Comm const& comm, int rank) {
    int value = 0;
    return rank == 0 ? STATUS_OK : comm.Recv(&value, 1, DATATYPE_INT, rank - 1, 0);
  });

  EXPECT_EQ(statuses, (Statuses{STATUS_OK, kFailed, kFailed, kFailed}));
}

TEST(LocalCommStuck, RingOfReceiversFailsWhileAnotherRankRuns) {
  std::atomic<int> failed{0};

  auto const statuses = RunRanks(4, [&](Comm const& comm, int rank) {
    int value = 0;
    if (rank == 3) {
      while (failed < 3) {
        std::this_thread::yield();
      }
      return STATUS_OK;
    }
    PavexStatus const status = comm.Recv(&value, 1, DATATYPE_INT, (rank + 1) % 3, 0);
    ++failed;
    return status;
  });

  EXPECT_EQ(statuses, (Statuses{kFailed, kFailed, kFailed, STATUS_OK}));
}

TEST(LocalCommStuck, ReceiverWaitsForPartnerThatIsStillRunning) {
  int got = -1;

  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    if (rank == 2) {
      return STATUS_OK;
    }
    if (rank == 1) {
      return comm.Recv(&got, 1, DATATYPE_INT, 0, 0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    int const value = 9;
    return comm.Send(&value, 1, DATATYPE_INT, 1, 0);
  });

  EXPECT_EQ(statuses, All(3, STATUS_OK));
  EXPECT_EQ(got, 9);
}

// Whether thread `id` of this process sleeps, by the report of the kernel.
bool Sleeps(long id) {
  std::ifstream stat("/proc/self/task/" + std::to_string(id) + "/stat");
  std::string line;
  std::getline(stat, line);
  return line.substr(line.rfind(')') + 1, 3) == " S ";
}

TEST(LocalCommStuck, ReceiverSleepsUntilItsPartnerComes) {
  std::atomic<long> receiver{0};
  int got = -1;

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    if (rank == 1) {
      receiver = syscall(SYS_gettid);
      return comm.Recv(&got, 1, DATATYPE_INT, 0, 0);
    }
    while (receiver == 0 || !Sleeps(receiver))
      std::this_thread::yield();
    int const value = 9;
    return comm.Send(&value, 1, DATATYPE_INT, 1, 0);
  });

  EXPECT_EQ(statuses, All(2, STATUS_OK));
  EXPECT_EQ(got, 9);
}

TEST(LocalCommStuck, BystanderMayWaitInLaterCollective) {
  std::vector<int> values = {7, -1, -1};

  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    int* const value = &values[Index(rank)];
    PavexStatus moved = STATUS_OK;
    if (rank < 2) {
      std::this_thread::sleep_for(std::chrono::milliseconds(rank * 20));
      moved = rank == 0 ? comm.Send(value, 1, DATATYPE_INT, 1, 50)
                        : comm.Recv(value, 1, DATATYPE_INT, 0, 50);
    }
    return moved + comm.Bcast(value, 1, DATATYPE_INT, 1);
  });

  EXPECT_EQ(statuses, All(3, STATUS_OK));
  EXPECT_EQ(values, std::vector<int>(3, 7));
}

TEST(LocalCommStuck, RankOutOfStepFindsOthersAgain) {
  auto const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    int value = rank;
    if (rank == 0) {
      EXPECT_EQ(comm.Recv(&value, 1, DATATYPE_INT, 1, 0), kFailed);
    } else {
      EXPECT_EQ(comm.Barrier(), kFailed);
    }
    return comm.Bcast(&value, 1, DATATYPE_INT, 0);
  });

  EXPECT_EQ(statuses, All(2, STATUS_OK));
}

}  // namespace
}  // namespace Pavex
