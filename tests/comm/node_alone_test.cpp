// What the others notice of a process that takes no part in an operation, whatever it does
// next.

#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "pavex/comm/node_ring.h"
#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"

#include <algorithm>
#include <memory>
#include <unistd.h>
#include <vector>

namespace Pavex {
namespace {

// Rank 1 is alone in each test.
class AloneAmongPeers : public ::testing::Test {
 protected:
  NodeComm const mComm{MPI_COMM_WORLD};
  int const mRank = mComm.Rank();
  int const mSize = mComm.Size();
  NodePool mPool;
  PoolBlock mOne{mPool, 40000};
  PoolBlock mAll{mPool, 40000 * mSize};

  std::vector<int> Counts(int count) const {
    std::vector<int> counts(static_cast<std::size_t>(mSize), count);
    return counts;
  }
  std::vector<int> Displs() const {
    std::vector<int> displs(static_cast<std::size_t>(mSize));
    for (int r = 0; r < mSize; ++r)
      displs[static_cast<std::size_t>(r)] = r * 40000;
    return displs;
  }

  // `count`: what this rank sends.
  PavexStatus Gather(int count, int expected) {
    return OutcomeOf([&] {
             return mComm.Gatherv(mOne.Data(), count, DATATYPE_BYTE, mAll.Data(),
                                  Counts(expected).data(), Displs().data(), DATATYPE_BYTE, 0);
           })
        .mStatus;
  }
  PavexStatus Scatter(int count) {
    return OutcomeOf([&] {
             return mComm.Scatterv(mAll.Data(), Counts(count).data(), Displs().data(),
                                   DATATYPE_BYTE, mOne.Data(), count, DATATYPE_BYTE, 0);
           })
        .mStatus;
  }
  PavexStatus Broadcast(int count) {
    return OutcomeOf([&] { return mComm.Bcast(mOne.Data(), count, DATATYPE_BYTE, 0); }).mStatus;
  }

  void ExpectTheNextOperationToWork() {
    std::vector<int> ranks(static_cast<std::size_t>(mSize), -1);
    EXPECT_EQ(mComm.Allgather(&mRank, 1, DATATYPE_INT, ranks.data(), 1, DATATYPE_INT),
              STATUS_OK);
    for (int r = 0; r < mSize; ++r)
      EXPECT_EQ(ranks[static_cast<std::size_t>(r)], r);
  }
};

// Where it goes on to receive from the root, it tells the root nothing by a message.
TEST_F(AloneAmongPeers, WhoRefusesAGatherAndWaitsForTheRootIsNoticed) {
  for (int const size : {100, 10000}) {
    for (bool const scatters : {false, true}) {
      PavexStatus const gathered = Gather(mRank == 1 ? -1 : size, size);
      PavexStatus const next = scatters ? Scatter(size) : Broadcast(size);

      PavexStatus const others = mRank == 0 ? STATUS_COMM_FAILED : STATUS_OK;
      EXPECT_EQ(gathered, mRank == 1 ? STATUS_INVALID_VALUE : others) << size;
      EXPECT_EQ(next, STATUS_OK) << size;
    }
  }
  ExpectTheNextOperationToWork();
}

// It leaves out a call that the others make, and so counts one operation less.
TEST_F(AloneAmongPeers, WhoLeavesAGatherOutIsNoticedByTheNextOperation) {
  PavexStatus const gathered = mRank == 1 ? STATUS_OK : Gather(100, 100);
  PavexStatus const broadcast = Broadcast(100);

  EXPECT_EQ(gathered, mRank == 0 ? STATUS_COMM_FAILED : STATUS_OK);
  EXPECT_EQ(broadcast, mRank == 1 ? STATUS_COMM_FAILED : STATUS_OK);
  if (mRank == 1) {  // counts as many operations again
    EXPECT_EQ(Broadcast(0), STATUS_OK);
  }
  ExpectTheNextOperationToWork();
}

TEST_F(AloneAmongPeers, WhoGoesOnToOperationsOfMpiIsNoticed) {
  for (bool const reduces : {false, true}) {
    PavexStatus const gathered = mRank == 1 ? STATUS_OK : Gather(100, 100);
    int const one = 1;
    int sum = 0;
    EXPECT_EQ(
        reduces ? mComm.Allreduce(&one, &sum, 1, DATATYPE_INT, REDUCE_SUM) : mComm.Barrier(),
        STATUS_OK);

    EXPECT_EQ(gathered, mRank == 0 ? STATUS_COMM_FAILED : STATUS_OK);
    EXPECT_EQ(sum, reduces ? mSize : 0);
    if (mRank == 1) {  // counts as many operations again
      EXPECT_EQ(Broadcast(0), STATUS_OK);
    }
  }
  ExpectTheNextOperationToWork();
}

TEST_F(AloneAmongPeers, WhoSplitsOrLeavesTheCommunicatorIsNoticed) {
  for (bool const splits : {true, false}) {
    auto comm = std::make_unique<NodeComm>(MPI_COMM_WORLD);
    PavexStatus status = STATUS_OK;
    if (mRank != 1) {
      status = OutcomeOf([&] {
                 return comm->Gatherv(mOne.Data(), 100, DATATYPE_BYTE, mAll.Data(),
                                      Counts(100).data(), Displs().data(), DATATYPE_BYTE, 0);
               }).mStatus;
    }
    if (splits) {
      EXPECT_NE(comm->Split(0, 0), nullptr);
    }
    comm.reset();

    EXPECT_EQ(status, mRank == 0 ? STATUS_COMM_FAILED : STATUS_OK) << splits;
  }
}

// Messages of no elements are not sent: no message can tell that the other side expects some.
TEST_F(AloneAmongPeers, WhoSendsOrExpectsNothingIsNoticed) {
  for (int const size : {4, 10000}) {
    PavexStatus const sent = Gather(mRank == 1 ? 0 : size, size);
    EXPECT_EQ(sent, mRank == 0 ? STATUS_COMM_FAILED : STATUS_OK) << size;
    ExpectTheNextOperationToWork();

    std::vector<int> counts = Counts(size);
    counts[1] = 0;
    PavexStatus const received =
        OutcomeOf([&] {
          return mComm.Gatherv(mOne.Data(), size, DATATYPE_BYTE, mAll.Data(), counts.data(),
                               Displs().data(), DATATYPE_BYTE, 0);
        }).mStatus;
    ExpectTheNextOperationToWork();
    bool const notices = mRank == 1 && size > 4096;
    EXPECT_EQ(received, notices ? STATUS_COMM_FAILED : STATUS_OK) << size;
  }
}

// The last rank comes late, about when the root looks at what the others do next, and goes on.
TEST_F(AloneAmongPeers, WhoHasSentBeforeItWentOnIsNotAlone) {
  for (int const size : {100, 30000}) {
    std::fill_n(mOne.Data(), size, static_cast<unsigned char>(mRank + 1));
    for (int i = 0; i < 30; ++i) {
      if (mRank == mSize - 1) usleep(static_cast<unsigned>(5000 + 100 * i));
      ASSERT_EQ(Gather(size, size), STATUS_OK);
    }
    for (int r = 0; mRank == 0 && r < mSize; ++r)
      EXPECT_EQ(mAll.Data()[r * 40000 + size - 1], r + 1);
  }
  ExpectTheNextOperationToWork();
}

TEST(NodeEntry, MissesWhatIsLaterOrAnotherAtTheSameTime) {
  auto const gather = NodeEntry::WordOf(7, 1, 0);

  EXPECT_FALSE(NodeEntry::Misses(gather, gather));
  EXPECT_FALSE(NodeEntry::Misses(NodeEntry::WordOf(6, 2, 0), gather));
  EXPECT_TRUE(NodeEntry::Misses(NodeEntry::WordOf(8, 1, 0), gather));
  EXPECT_TRUE(NodeEntry::Misses(NodeEntry::WordOf(7, 2, 0), gather));
  EXPECT_TRUE(NodeEntry::Misses(NodeEntry::WordOf(7, 1, 3), gather));
}

}  // namespace
}  // namespace Pavex
