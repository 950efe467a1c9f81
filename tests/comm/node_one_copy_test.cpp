// An array that all processes of a node receive is kept once. Each process may write to its own
// all the same, and no process sees what another one writes.

#include "tests/comm/node_one_copy.h"

#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex {
namespace {

// In huge pages, where the system has them.
TEST_F(NodeOneCopyTest, TakesTheMemoryOfOneArray) {
  int const piece = (40 << 20) / Size();
  PoolBlock whole(mPool, piece * Size());
  long const kilobytes = piece / 1024 * Size();
  long const before = PssOfAll();

  ASSERT_EQ(Gather(*mComm, whole.Data(), 1, piece), STATUS_OK);

  EXPECT_TRUE(IsView(whole));
  EXPECT_EQ(CountWrong(whole, 1), 0U);
  long const taken = PssOfAll() - before;
  EXPECT_LE(taken, kilobytes * 11 / 10);
  EXPECT_GE(taken, kilobytes * 9 / 10);
}

TEST_F(NodeOneCopyTest, ArraysBelowTheLeastStayOrdinary) {
  int const piece = static_cast<int>(NodeOneCopy::kLeast - 64) / Size() / 64 * 64;
  PoolBlock whole(mPool, piece * Size());

  ASSERT_EQ(Gather(*mComm, whole.Data(), 1, piece), STATUS_OK);

  EXPECT_FALSE(IsView(whole));
  EXPECT_EQ(CountWrong(whole, 1), 0U);
}

TEST_F(NodeOneCopyTest, NoProcessSeesWhatAnotherOneWrites) {
  PoolBlock whole(mPool, Whole());
  GatherAndExpect(whole, 1);
  int const writer = Size() - 1;

  if (Rank() == writer) std::memset(whole.Data(), 255, whole.Bytes());
  MPI_Barrier(MPI_COMM_WORLD);

  if (Rank() != writer) {
    EXPECT_EQ(CountWrong(whole, 1), 0U);
  } else {
    EXPECT_EQ(CountWrong(whole, 1), whole.Bytes());
  }
  MPI_Barrier(MPI_COMM_WORLD);
}

TEST_F(NodeOneCopyTest, AViewThatWillBeWrittenStaysWhatItIs) {
  PoolBlock whole(mPool, Whole());
  GatherAndExpect(whole, 1);

  mPool.WillWrite(whole.Data(), whole.Bytes());

  EXPECT_TRUE(IsView(whole));
  EXPECT_EQ(CountWrong(whole, 1), 0U);
}

TEST_F(NodeOneCopyTest, GenerationsLiveSideBySide) {
  PoolBlock first(mPool, Whole());
  PoolBlock second(mPool, Whole());
  GatherAndExpect(first, 1);
  GatherAndExpect(second, 2);
  second.Data()[Begin()] = 255;

  GatherAndExpect(second, 3);

  EXPECT_EQ(CountWrong(first, 1), 0U);
}

// What a process wrote to its view goes when the same block receives the next array.
TEST_F(NodeOneCopyTest, ABlockReceivesAgainAfterItsOwnerHasWrittenToIt) {
  PoolBlock whole(mPool, Whole());
  long before = 0;
  for (int round = 0; round < 4; ++round) {
    GatherAndExpect(whole, round);
    if (round == 1) before = PssOfAll();
    if (Rank() == round % Size()) std::memset(whole.Data(), 255, whole.Bytes() / 4);
    MPI_Barrier(MPI_COMM_WORLD);
  }
  GatherAndExpect(whole, 9);

  EXPECT_LE(PssOfAll(), before + 1024);
}

// To copy each page when it is written costs more than to store into each block.
TEST_F(NodeOneCopyTest, AnArrayThatTheFirstProcessOverwritesIsKeptByEachFromThenOn) {
  PoolBlock whole(mPool, Whole());
  GatherAndExpect(whole, 1);
  if (Rank() == 0) std::memset(whole.Data(), 255, whole.Bytes());

  for (int round = 2; round < 4; ++round) {
    ASSERT_EQ(Gather(*mComm, whole.Data(), round), STATUS_OK);
    EXPECT_FALSE(IsView(whole));
    EXPECT_EQ(CountWrong(whole, round), 0U);
  }
}

TEST_F(NodeOneCopyTest, ABlockThatTheSystemHasHadBackIsKeptOnceAgain) {
  for (int round = 0; round < 3; ++round) {
    {
      PoolBlock whole(mPool, Whole());
      GatherAndExpect(whole, round);
      std::memset(whole.Data(), 255, whole.Bytes());
      ASSERT_EQ(Gather(*mComm, whole.Data(), round), STATUS_OK);
      EXPECT_FALSE(IsView(whole));
    }
    mPool.ReleaseCached();
  }
}

// The other blocks still show the window: it may not be stored into.
TEST_F(NodeOneCopyTest, AnArrayThatOneProcessKeepsDoesNotChange) {
  auto kept = std::make_unique<PoolBlock>(mPool, Whole());
  PoolBlock other(mPool, Whole());
  GatherAndExpect(*kept, 1);
  bool const keeps = Rank() == Size() - 1;
  unsigned char* const to = keeps ? other.Data() : kept->Data();

  ASSERT_EQ(Gather(*mComm, to, 2), STATUS_OK);

  EXPECT_EQ(CountWrong(to, 2, 0, other.Bytes()), 0U);
  if (keeps) {
    EXPECT_EQ(CountWrong(*kept, 1), 0U);
  }
  MPI_Barrier(MPI_COMM_WORLD);
}

TEST_F(NodeOneCopyTest, AProcessThatHasGivenItsBlockBackTakesPartAgain) {
  auto whole = std::make_unique<PoolBlock>(mPool, Whole());
  for (int round = 0; round < Size() + 1; ++round) {
    GatherAndExpect(*whole, round);
    if (Rank() != round % Size()) continue;
    whole.reset();
    mPool.ReleaseCached();
    whole = std::make_unique<PoolBlock>(mPool, Whole());
  }
}

TEST_F(NodeOneCopyTest, AnotherCommunicatorOfFewerProcessesLeavesTheOthersAlone) {
  PoolBlock whole(mPool, Whole());
  GatherAndExpect(whole, 1);
  MPI_Comm part = MPI_COMM_NULL;
  int const last = Size() - 1;
  MPI_Comm_split(MPI_COMM_WORLD, Rank() == last ? 1 : 0, Rank(), &part);
  {
    NodeComm const fewer(part);
    int const piece = Whole() / fewer.Size();
    if (Rank() != last) {
      ASSERT_EQ(Gather(fewer, whole.Data(), 2, piece), STATUS_OK);
      EXPECT_EQ(
          CountWrong(whole.Data(), 2, 0,
                     static_cast<std::size_t>(piece) * static_cast<std::size_t>(fewer.Size())),
          0U);
    }
    MPI_Barrier(MPI_COMM_WORLD);
    if (Rank() == last) {
      EXPECT_EQ(CountWrong(whole, 1), 0U);
    }
  }
  MPI_Comm_free(&part);
  ASSERT_EQ(Gather(*mComm, whole.Data(), 3), STATUS_OK);
  EXPECT_EQ(CountWrong(whole, 3), 0U);
}

TEST_F(NodeOneCopyTest, GroupsOfANodeKeepACopyEach) {
  NodeComm const groups(MPI_COMM_WORLD, 2);
  PoolBlock whole(mPool, Whole());
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(Gather(groups, whole.Data(), round), STATUS_OK);

    EXPECT_EQ(IsView(whole), groups.Active());
    EXPECT_EQ(CountWrong(whole, round), 0U);
  }
}

TEST_F(NodeOneCopyTest, TheArraySurvivesItsCommunicator) {
  PoolBlock whole(mPool, Whole());
  GatherAndExpect(whole, 1);

  mComm.reset();
  MPI_Barrier(MPI_COMM_WORLD);
  EXPECT_EQ(CountWrong(whole, 1), 0U);
  whole.Data()[0] = 255;
  MPI_Barrier(MPI_COMM_WORLD);
  mComm = std::make_unique<NodeComm>(MPI_COMM_WORLD);

  GatherAndExpect(whole, 2);
}

TEST_F(NodeOneCopyTest, BlocksThatLeaveThePoolGiveTheMemoryBack) {
  long const before = PssOfAll();
  {
    PoolBlock whole(mPool, Whole());
    GatherAndExpect(whole, 1);
  }
  mPool.ReleaseCached();
  EXPECT_LE(PssOfAll(), before + 1024);

  PoolBlock again(mPool, Whole());
  EXPECT_FALSE(IsView(again));
  Fill(again.Data(), 2 + Rank(), 0, again.Bytes());
  MPI_Barrier(MPI_COMM_WORLD);
  EXPECT_EQ(CountWrong(again, 2 + Rank()), 0U);
}

// A pool that trims a kept block first makes it ordinary.
TEST_F(NodeOneCopyTest, KeptBlocksAreTrimmed) {
  {
    PoolBlock whole(mPool, Whole());
    GatherAndExpect(whole, 1);
  }
  auto const most = static_cast<std::size_t>(Whole()) / 2;
  mPool.SetLimit(most);

  EXPECT_LE(mPool.BytesCached(), most);
  PoolBlock again(mPool, Whole());
  GatherAndExpect(again, 2);
}

TEST_F(NodeOneCopyTest, ChildrenThatAreForkedDisturbNothing) {
  PoolBlock whole(mPool, Whole());
  for (int round = 0; round < 5; ++round) {
    pid_t const child = fork();
    if (child == 0) _exit(0);
    GatherAndExpect(whole, round);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(CountWrong(whole, round), 0U);
  }
}

TEST_F(NodeOneCopyTest, RepeatedRoundsLeaveNothingBehind) {
#ifdef PAVEX_TESTS_ALL
  constexpr int kRounds = 500;
#else
  constexpr int kRounds = 6;
#endif
  int descriptors = 0;
  int mappings = 0;
  long pss = 0;
  for (int round = -6; round < kRounds; ++round) {
    if (round == 0) {
      descriptors = Descriptors();
      mappings = Mappings();
      pss = PssOfAll();
    }
    NodeComm const comm(MPI_COMM_WORLD);
    PoolBlock whole(mPool, Whole());
    PoolBlock other(mPool, Whole());
    for (PoolBlock* const block : {&whole, &other, &whole}) {
      ASSERT_EQ(Gather(comm, block->Data(), round + 7), STATUS_OK);
      ASSERT_TRUE(IsView(*block));
    }
    if (round % 3 == 0) std::memset(whole.Data(), 1, whole.Bytes() / 4);
    ASSERT_EQ(CountWrong(other, round + 7), 0U);
    if (round % 5 == 4) mPool.ReleaseCached();
  }

  EXPECT_EQ(Descriptors(), descriptors);
  EXPECT_LE(Mappings(), mappings + 8);
  EXPECT_LE(PssOfAll(), pss + 2L * Whole() / 1024 * Size());
  mPool.ReleaseCached();
  EXPECT_LE(PssOfAll(), pss);
}

}  // namespace
}  // namespace Pavex
