// What LocalComm does if a split fails, or if the ranks of its groups fall out of step.

#include "tests/comm/failing_new.h"
#include "tests/comm/local_ranks.h"
#include "tests/support/capture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace Pavex {
namespace {

constexpr PavexStatus kFailed = STATUS_COMM_FAILED;

std::shared_ptr<Comm> SplitOff(Comm const& comm, int color) {
  return dynamic_cast<LocalComm const&>(comm).Split(color, comm.Rank());
}

// The line of a failed split of each of `ranks`, in rank order.
std::vector<std::string> FailureLines(std::vector<int> const& ranks, int size) {
  std::vector<std::string> lines;
  for (int const rank : ranks)
    lines.push_back("[ERROR] LocalComm::Split failed on rank " + std::to_string(rank) + " of " +
                    std::to_string(size) + ".");
  return lines;
}

// The lines that `body` logs, sorted: ranks log in any order.
template <typename Body>
std::vector<std::string> SortedLinesOf(Body const& body) {
  std::string const text = CaptureStdout(body);
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    std::size_t const end = text.find('\n', begin);
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST(LocalCommSplit, FailsOnTheOthersWhenOneRankHasReturned) {
  auto const lines = SortedLinesOf([] {
    RunRanks(3, [](Comm const& comm, int rank) {
      if (rank != 1) {
        EXPECT_EQ(SplitOff(comm, rank), nullptr);
      }
      return STATUS_OK;
    });
  });

  EXPECT_EQ(lines, FailureLines({0, 2}, 3));
}

TEST(LocalCommSplit, FailsOnAllRanksWhenOneIsInAnotherOperation) {
  Statuses statuses;
  auto const lines = SortedLinesOf([&] {
    statuses = RunRanks(3, [](Comm const& comm, int rank) {
      if (rank == 2) return comm.Barrier();
      EXPECT_EQ(SplitOff(comm, -1), nullptr);
      return STATUS_OK;
    });
  });

  EXPECT_EQ(statuses, (Statuses{STATUS_OK, STATUS_OK, kFailed}));
  EXPECT_EQ(lines, FailureLines({0, 1}, 3));
}

// The requests for memory of rank 0 fail one after the other, until the split succeeds.
TEST(LocalCommSplit, FailsOnAllRanksWhenOneHasNoMemory) {
  int failures = 0;
  bool succeeded = false;
  for (int nth = 1; !succeeded; ++nth) {
    std::vector<std::shared_ptr<Comm>> parts(2);
    auto const lines = SortedLinesOf([&] {
      RunRanks(2, [&, nth](Comm const& comm, int rank) {
        FailNewAt(rank == 0 ? nth : 0);
        parts[Index(rank)] = SplitOff(comm, 1);
        FailNewAt(0);
        return comm.Barrier();
      });
    });
    succeeded = lines.empty();
    failures += succeeded ? 0 : 1;
    EXPECT_EQ(parts[0] != nullptr, succeeded);
    EXPECT_EQ(parts[1] != nullptr, succeeded);
    EXPECT_EQ(lines, FailureLines(succeeded ? std::vector<int>{} : std::vector<int>{0, 1}, 2));
  }
  EXPECT_GT(failures, 1);
}

// Rank 0 takes no part, and its first request for memory fails. It makes none if rank 1 comes
// later, which makes the groups then.
TEST(LocalCommSplit, NeedsNoMemoryOnARankThatTakesNoPartAndDoesNotComeLast) {
  bool succeeded = false;
  for (int delay = 1; !succeeded && delay <= 4096; delay *= 4) {  // milliseconds
    auto const lines = SortedLinesOf([&] {
      RunRanks(2, [&](Comm const& comm, int rank) {
        if (rank == 1) std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        FailNewAt(rank == 0 ? 1 : 0);
        auto const part = SplitOff(comm, rank - 1);
        FailNewAt(0);
        if (rank == 0) {
          EXPECT_EQ(part, nullptr);
        }
        return comm.Barrier();
      });
    });
    succeeded = lines.empty();
  }

  EXPECT_TRUE(succeeded);
}

TEST(LocalCommSplit, GroupFailsWhenOneOfItsRanksHasReturned) {
  auto const statuses = RunRanks(4, [](Comm const& comm, int rank) {
    auto const part = SplitOff(comm, rank % 2);
    return rank == 2 ? STATUS_OK : part->Barrier();
  });

  EXPECT_EQ(statuses, (Statuses{kFailed, STATUS_OK, STATUS_OK, STATUS_OK}));
}

TEST(LocalCommSplit, GroupWorksAfterARankOfAnotherHasReturned) {
  std::atomic<bool> gone{false};
  auto const statuses = RunRanks(4, [&](Comm const& comm, int rank) {
    auto const part = SplitOff(comm, rank % 2);
    if (rank == 2) {
      gone = true;
      return STATUS_OK;
    }
    if (rank == 0) return STATUS_OK;
    while (!gone)
      std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return part->Barrier();
  });

  EXPECT_EQ(statuses, All(4, STATUS_OK));
}

TEST(LocalCommSplit, RanksThatWaitForEachOtherInTwoGroupsFail) {
  auto const statuses = RunRanks(3, [](Comm const& comm, int rank) {
    auto const part = SplitOff(comm, rank == 2 ? 1 : 0);
    if (rank == 2) return STATUS_OK;
    return rank == 0 ? part->Barrier() : comm.Barrier();
  });

  EXPECT_EQ(statuses, (Statuses{kFailed, kFailed, STATUS_OK}));
}

// As when one process fails alone before an operation of its group, and asks all for the worst
// status. Rank 1 has returned when rank 0 asks.
TEST(LocalCommSplit, GroupFailsWhenOneOfItsRanksGoesOnInTheWhole) {
  Statuses inGroup(3, STATUS_OK);
  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    auto const part = SplitOff(comm, rank == 2 ? 1 : 0);
    if (rank == 0) inGroup[0] = part->Barrier();
    int const mine = 0;
    int worst = 0;
    return comm.Allreduce(&mine, &worst, 1, DATATYPE_INT, REDUCE_MIN);
  });

  EXPECT_EQ(inGroup[0], kFailed);
  EXPECT_EQ(statuses, All(3, kFailed));
}

TEST(LocalCommSplit, MessageOfOneGroupDoesNotMeetTheSameOfAnother) {
  auto const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    auto const part = SplitOff(comm, 0);
    int value = 1;
    return rank == 0 ? comm.Send(&value, 1, DATATYPE_INT, 1, 50)
                     : part->Recv(&value, 1, DATATYPE_INT, 0, 50);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommSplit, RankMayWaitInTheWholeWhileOthersWorkInTheirGroup) {
  auto const statuses = RunRanks(4, [](Comm const& comm, int rank) {
    auto const part = SplitOff(comm, rank == 3 ? 1 : 0);
    PavexStatus status = STATUS_OK;
    for (int i = 0; i < 5 && rank != 3; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(rank));
      status += part->Barrier();
    }
    return status + comm.Barrier();
  });

  EXPECT_EQ(statuses, All(4, STATUS_OK));
}

TEST(LocalCommSplit, ReceiverMayWaitForARankThatWorksInAnotherGroup) {
  int got = -1;
  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    auto const part = SplitOff(comm, rank == 0 ? 0 : 1);
    int const value = 9;
    if (rank == 0) return comm.Recv(&got, 1, DATATYPE_INT, 1, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20 * rank));
    PavexStatus const status = part->Barrier();
    return rank == 1 ? status + comm.Send(&value, 1, DATATYPE_INT, 0, 0) : status;
  });

  EXPECT_EQ(statuses, All(3, STATUS_OK));
  EXPECT_EQ(got, 9);
}

TEST(LocalCommSplit, GroupKeptBeyondTheReturnOfItsRankFails) {
  std::vector<std::shared_ptr<Comm>> kept(2);
  RunRanks(2, [&](Comm const& comm, int rank) {
    kept[Index(rank)] = SplitOff(comm, 0);
    return STATUS_OK;
  });

  EXPECT_EQ(kept[1]->Size(), 2);
  EXPECT_EQ(kept[1]->Rank(), 1);
  EXPECT_EQ(kept[1]->Barrier(), kFailed);
}

// Random programs over random groups: each rank calls whatever it likes. None may hang, and a
// barrier that succeeds has as many ranks in it as its group.
TEST(LocalCommSplit, RandomProgramsOverGroupsEnd) {
  constexpr int kRanks = 5;
  for (unsigned seed = 1; seed <= 60; ++seed) {
    RunRanks(kRanks, [seed](Comm const& comm, int rank) {
      unsigned state = seed * 7919;  // the same on each rank while they are in step
      auto const next = [&state](unsigned below) {
        state = state * 1664525 + 1013904223;
        return static_cast<int>((state >> 16) % below);
      };
      auto const first = SplitOff(comm, (rank + next(3)) % 2);
      auto const second = SplitOff(comm, (rank * next(3)) % 3);
      state += static_cast<unsigned>(rank) * 31;
      for (int i = 0; i < 30; ++i) {
        Comm const* const choices[] = {&comm, first.get(), second.get()};
        Comm const& chosen = *choices[next(3)];
        int value = rank;
        int const peer = next(static_cast<unsigned>(chosen.Size()));
        switch (next(4)) {
          case 0:
            static_cast<void>(chosen.Barrier());
            break;
          case 1:
            static_cast<void>(chosen.Bcast(&value, 1, DATATYPE_INT, peer));
            break;
          case 2:
            static_cast<void>(chosen.Send(&value, 1, DATATYPE_INT, peer, 0));
            break;
          default:
            static_cast<void>(chosen.Recv(&value, 1, DATATYPE_INT, peer, 0));
        }
      }
      return STATUS_OK;
    });
  }
}

}  // namespace
}  // namespace Pavex
