#include "tools/ranks/local_ranks.h"

#include "tools/choice/job_error.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>

namespace Pavex::Tool {
namespace {

TEST(LocalRanks, RunsTheBodyOnEveryRank) {
  auto const ranks = MakeLocalRanks(3);
  std::atomic<int> ran{0};

  ranks->Run([&](std::shared_ptr<Comm> const& comm) {
    if (comm->Size() == 3) ran += 1 << (4 * comm->Rank());
  });

  EXPECT_EQ(ranks->Count(), 3);
  EXPECT_EQ(ran, 0x111);
}

// Rank 0 fails only because rank 2 has left, although it is the lower one.
TEST(LocalRanks, PassesOnTheExceptionThatWasThrownFirst) {
  std::string message;

  try {
    MakeLocalRanks(3)->Run([](std::shared_ptr<Comm> const& comm) {
      if (comm->Rank() == 2) throw JobError("the cause");
      if (comm->Barrier() != STATUS_OK) throw JobError("a consequence");
    });
  } catch (JobError const& error) {
    message = error.what();
  }

  EXPECT_EQ(message, "the cause");
}

}  // namespace
}  // namespace Pavex::Tool
