// How LocalComm::Run starts and ends its ranks.

#include "pavex/comm/local_comm.h"
#include "tests/comm/failing_new.h"
#include "tests/comm/local_ranks.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Pavex {
namespace {

// The message with which Run refuses a group.
std::string Refusal(int ranks, LocalComm::Body const& body) {
  try {
    LocalComm::Run(ranks, body);
  } catch (std::invalid_argument const& error) {
    return error.what();
  }
  return "";
}

TEST(LocalCommRun, RefusesGroupWithoutRanksOrBody) {
  char const* const message = "LocalComm::Run needs at least one rank and a body";

  EXPECT_EQ(Refusal(0, [](auto const&) {}), message);
  EXPECT_EQ(Refusal(1, nullptr), message);
}

TEST(LocalCommRun, GivesEachRankAThreadAndRankZeroTheCallers) {
  std::vector<std::thread::id> ids(3);

  LocalComm::Run(
      3, [&](auto const& comm) { ids[Index(comm->Rank())] = std::this_thread::get_id(); });

  EXPECT_EQ(ids[0], std::this_thread::get_id());
  EXPECT_NE(ids[1], ids[0]);
  EXPECT_NE(ids[2], ids[0]);
  EXPECT_NE(ids[1], ids[2]);
}

TEST(LocalCommRun, ThrowsExceptionOfLowestRankAfterAllHaveEnded) {
  std::atomic<int> ended{0};
  std::string what;

  try {
    LocalComm::Run(4, [&](auto const& comm) {
      (void)comm->Barrier();
      ++ended;
      if (comm->Rank() % 2 == 1) {
        throw std::runtime_error("rank " + std::to_string(comm->Rank()));
      }
    });
  } catch (std::runtime_error const& error) {
    what = error.what();
  }

  EXPECT_EQ(what, "rank 1");
  EXPECT_EQ(ended, 4);
}

// Starts three ranks that run `operation`, each time with memory that ends at another point,
// until rank 1 alone has started once. That rank must end.
void ExpectRankOneEnds(std::function<PavexStatus(Comm const&)> const& operation) {
  bool rankOneWasAlone = false;
  for (int nth = 1; !rankOneWasAlone; ++nth) {
    Statuses statuses(3, 1);

    FailNewAt(nth);
    ASSERT_THROW(LocalComm::Run(3,
                                [&](std::shared_ptr<Comm> const& comm) {
                                  statuses[Index(comm->Rank())] = operation(*comm);
                                }),
                 std::bad_alloc);
    FailNewAt(0);

    ASSERT_EQ(statuses[2], 1) << nth;
    ASSERT_EQ(statuses[0], 1) << nth;
    rankOneWasAlone = statuses[1] == STATUS_COMM_FAILED;
  }
}

TEST(LocalCommRun, EndsTheRanksThatHaveStartedIfAnotherCannot) {
  int value = 0;

  ExpectRankOneEnds([](Comm const& comm) { return comm.Barrier(); });
  ExpectRankOneEnds([&](Comm const& comm) { return comm.Recv(&value, 1, DATATYPE_INT, 0, 0); });
  ExpectRankOneEnds([&](Comm const& comm) { return comm.Recv(&value, 1, DATATYPE_INT, 2, 0); });
}

TEST(LocalCommRun, LeavesCommunicatorThatIsKeptWithoutPartners) {
  std::shared_ptr<Comm> kept;

  LocalComm::Run(2, [&](std::shared_ptr<Comm> const& comm) {
    if (comm->Rank() == 1) {
      kept = comm;
    }
  });

  EXPECT_EQ(kept->Rank(), 1);
  EXPECT_EQ(kept->Size(), 2);
  EXPECT_EQ(kept->Barrier(), STATUS_COMM_FAILED);
}

TEST(LocalCommRun, RunsInsideARank) {
  std::atomic<int> inner{0};

  LocalComm::Run(2, [&](auto const& outer) {
    LocalComm::Run(2, [&](auto const& comm) { inner += comm->Barrier() == STATUS_OK; });
    EXPECT_EQ(outer->Barrier(), STATUS_OK);
  });

  EXPECT_EQ(inner, 4);
}

}  // namespace
}  // namespace Pavex
