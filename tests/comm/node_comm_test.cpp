// Data, whichever way it goes: between processes that share memory and between groups of them
// that do not, from and to blocks that are shared and such that are not.

#include "pavex/comm/node_comm.h"

#include "pavex/comm/node_exchange.h"
#include "pavex/comm/node_pool.h"
#include "tests/comm/contract.h"
#include "tests/comm/mpi_fixture.h"

#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <numeric>
#include <sched.h>

namespace Pavex {

// One communicator for all tests with at most `largest` processes that share memory: to make
// one takes several collectives, which crawl where more processes than cores keep theirs.
NodeComm const& CommOf(int largest) {
  static std::map<int, std::unique_ptr<NodeComm>> comms;
  std::unique_ptr<NodeComm>& comm = comms[largest];
  if (comm == nullptr) comm = std::make_unique<NodeComm>(MPI_COMM_WORLD, largest);
  return *comm;
}

// The processes of the job, all of which share memory.
struct NodeRanks : MpiRanks {
  static void Run(int /*size*/, std::function<void(Comm const& comm)> const& body) {
    body(CommOf(INT_MAX));
  }
  static std::shared_ptr<Comm> Split(Comm const& comm, int color, int key) {
    return dynamic_cast<NodeComm const&>(comm).Split(color, key);
  }
};

// The same as if they were on nodes of two processes each.
struct PairsOfRanks : NodeRanks {
  static void Run(int /*size*/, std::function<void(Comm const& comm)> const& body) {
    body(CommOf(2));
  }
};

PAVEX_COMM_CONTRACT(NodeRanks);
PAVEX_COMM_CONTRACT(PairsOfRanks);

namespace {

// Bytes in a block of a pool, all 0xEE, with a canary behind them.
class Bytes {
 public:
  Bytes(std::size_t size, MemoryPool& pool) : mPool(pool), mSize(size) {
    void* block = nullptr;
    EXPECT_EQ(pool.Allocate(&block, size + 1), STATUS_OK);
    mData = static_cast<unsigned char*>(block);
    std::memset(mData, 0xEE, size + 1);
  }
  Bytes(Bytes const&) = delete;
  Bytes& operator=(Bytes const&) = delete;
  ~Bytes() {
    EXPECT_EQ(mData[mSize], 0xEE);
    mPool.Deallocate(mData, mSize + 1);
  }
  unsigned char* Data() { return mData; }
  unsigned char& operator[](int i) { return mData[i]; }

 private:
  MemoryPool& mPool;
  std::size_t mSize;
  unsigned char* mData = nullptr;
};

unsigned char ByteOf(int rank, int i) {
  return static_cast<unsigned char>(rank * 37 + i * 7 + (i >> 8));
}

// Pieces of about `size` bytes, some empty, with gaps of three bytes between them.
struct Pieces {
  Pieces(int ranks, int size) {
    for (int r = 0; r < ranks; ++r) {
      bool const empty = ranks > 2 && r % 5 == 3;
      counts.push_back(empty ? 0 : size + (size > 16 ? r * 13 % 11 : 0));
      displs.push_back(total);
      total += counts.back() + 3;
    }
  }
  std::vector<int> counts;
  std::vector<int> displs;
  int total = 0;
};

// Sizes near each threshold: 4 KiB is the largest small message, 64 KiB the largest chunk. Two
// processes, which have a core each, meet all of them.
std::vector<int> SizesFor(int processes) {
  if (processes > 2) return {0, 72, 4096, 4097, 65537};
  return {0, 1, 72, 4085, 4095, 4096, 4097, 5000, 65535, 65536, 65537, 700000};
}

// At most `GetParam()` processes share memory.
class NodeCommData : public ::testing::TestWithParam<int> {
 protected:
  NodeComm const& mComm = CommOf(GetParam());
  int const mRank = mComm.Rank();
  int const mSize = mComm.Size();
  std::vector<int> const mSizes = SizesFor(mSize);
  NodePool mShared;
  MemoryPool mPlain;

  // Calls `test(source, target)` with every choice of pools: the same on all ranks, or another
  // one on each.
  template <typename Test>
  void WithEveryPool(Test const& test) {
    std::vector<int> choices{0, 1, 2, 3, 4, 5};
    if (mSize > 2) choices = {0, 3, 4};
    for (int const choice : choices) {
      int const mine = choice < 4 ? choice : choice + mRank;
      MemoryPool& source = (mine & 1) != 0 ? mPlain : mShared;
      MemoryPool& target = (mine & 2) != 0 ? mPlain : mShared;
      SCOPED_TRACE("choice " + std::to_string(choice));
      test(source, target);
    }
  }

  void FillOwn(unsigned char* data, int count) {
    for (int i = 0; i < count; ++i)
      data[i] = ByteOf(mRank, i);
  }

  static void ExpectPieces(Pieces const& pieces, Bytes& whole) {
    for (std::size_t r = 0; r < pieces.counts.size(); ++r) {
      int wrong = 0;
      for (int i = 0; i < pieces.counts[r]; ++i)
        wrong += whole[pieces.displs[r] + i] != ByteOf(static_cast<int>(r), i) ? 1 : 0;
      EXPECT_EQ(wrong, 0) << "piece " << r;
      for (int i = 0; i < 3; ++i)
        EXPECT_EQ(whole[pieces.displs[r] + pieces.counts[r] + i], 0xEE) << "gap " << r;
    }
  }
};

// For what needs at least two processes: a job of one leaves it out.
class NodeCommDataAmongPeers : public NodeCommData {};

TEST_P(NodeCommData, GathersPiecesOntoEveryRoot) {
  WithEveryPool([&](MemoryPool& source, MemoryPool& target) {
    for (int const size : mSizes) {
      Pieces const pieces(mSize, size);
      int const root = size % mSize;
      int const count = pieces.counts[static_cast<std::size_t>(mRank)];
      Bytes own(static_cast<std::size_t>(count), source);
      Bytes whole(static_cast<std::size_t>(pieces.total), target);
      FillOwn(own.Data(), count);

      EXPECT_EQ(mComm.Gatherv(own.Data(), count, DATATYPE_BYTE, whole.Data(),
                              pieces.counts.data(), pieces.displs.data(), DATATYPE_BYTE, root),
                STATUS_OK);

      if (mRank == root) ExpectPieces(pieces, whole);
    }
  });
}

TEST_P(NodeCommData, GathersPiecesOntoAll) {
  WithEveryPool([&](MemoryPool& source, MemoryPool& target) {
    for (int const size : mSizes) {
      Pieces const pieces(mSize, size);
      int const count = pieces.counts[static_cast<std::size_t>(mRank)];
      Bytes own(static_cast<std::size_t>(count), source);
      Bytes whole(static_cast<std::size_t>(pieces.total), target);
      FillOwn(own.Data(), count);

      EXPECT_EQ(mComm.Allgatherv(own.Data(), count, DATATYPE_BYTE, whole.Data(),
                                 pieces.counts.data(), pieces.displs.data(), DATATYPE_BYTE),
                STATUS_OK);

      ExpectPieces(pieces, whole);
    }
  });
}

TEST_P(NodeCommData, ScattersPiecesFromEveryRoot) {
  WithEveryPool([&](MemoryPool& source, MemoryPool& target) {
    for (int const size : mSizes) {
      Pieces const pieces(mSize, size);
      int const root = (size + 1) % mSize;
      int const count = pieces.counts[static_cast<std::size_t>(mRank)];
      Bytes whole(static_cast<std::size_t>(pieces.total), source);
      Bytes own(static_cast<std::size_t>(count), target);
      for (int r = 0; r < mSize; ++r)
        for (int i = 0; i < pieces.counts[static_cast<std::size_t>(r)]; ++i)
          whole[pieces.displs[static_cast<std::size_t>(r)] + i] = ByteOf(r, i);

      EXPECT_EQ(mComm.Scatterv(whole.Data(), pieces.counts.data(), pieces.displs.data(),
                               DATATYPE_BYTE, own.Data(), count, DATATYPE_BYTE, root),
                STATUS_OK);

      int wrong = 0;
      for (int i = 0; i < count; ++i)
        wrong += own[i] != ByteOf(mRank, i) ? 1 : 0;
      EXPECT_EQ(wrong, 0) << size;
    }
  });
}

TEST_P(NodeCommData, BroadcastsFromEveryRoot) {
  WithEveryPool([&](MemoryPool& source, MemoryPool& target) {
    for (int const size : mSizes) {
      int const root = (size + 2) % mSize;
      Bytes data(static_cast<std::size_t>(size), mRank == root ? source : target);
      if (mRank == root) FillOwn(data.Data(), size);

      EXPECT_EQ(mComm.Bcast(data.Data(), size, DATATYPE_BYTE, root), STATUS_OK);

      int wrong = 0;
      for (int i = 0; i < size; ++i)
        wrong += data[i] != ByteOf(root, i) ? 1 : 0;
      EXPECT_EQ(wrong, 0) << size;
    }
  });
}

TEST_P(NodeCommData, ExchangesPiecesOfEveryPair) {
  WithEveryPool([&](MemoryPool& source, MemoryPool& target) {
    for (int const size : mSizes) {
      Pieces const pieces(mSize, size);
      std::vector<int> const sent(static_cast<std::size_t>(mSize),
                                  pieces.counts[static_cast<std::size_t>(mRank)]);
      std::vector<int> const same(static_cast<std::size_t>(mSize), 0);
      Bytes own(static_cast<std::size_t>(sent[0]), source);
      Bytes whole(static_cast<std::size_t>(pieces.total), target);
      FillOwn(own.Data(), sent[0]);

      EXPECT_EQ(
          mComm.Alltoallv(own.Data(), sent.data(), same.data(), DATATYPE_BYTE, whole.Data(),
                          pieces.counts.data(), pieces.displs.data(), DATATYPE_BYTE),
          STATUS_OK);

      ExpectPieces(pieces, whole);
    }
  });
}

TEST_P(NodeCommDataAmongPeers, PassesMessagesRound) {
  int const next = (mRank + 1) % mSize;
  int const before = (mRank + mSize - 1) % mSize;
  WithEveryPool([&](MemoryPool& source, MemoryPool& target) {
    for (int const size : mSizes) {
      Bytes own(static_cast<std::size_t>(size), source);
      Bytes received(static_cast<std::size_t>(size), target);
      FillOwn(own.Data(), size);

      // A large message waits for its receiver: the last rank begins.
      if (mRank != mSize - 1) {
        EXPECT_EQ(mComm.Send(own.Data(), size, DATATYPE_BYTE, next, 50), STATUS_OK);
      }
      EXPECT_EQ(mComm.Recv(received.Data(), size, DATATYPE_BYTE, before, 50), STATUS_OK);
      if (mRank == mSize - 1) {
        EXPECT_EQ(mComm.Send(own.Data(), size, DATATYPE_BYTE, next, 50), STATUS_OK);
      }

      int wrong = 0;
      for (int i = 0; i < size; ++i)
        wrong += received[i] != ByteOf(before, i) ? 1 : 0;
      EXPECT_EQ(wrong, 0) << size;
    }
  });
}

TEST_P(NodeCommDataAmongPeers, ReceivesMessagesByTheirTagInAnyOrder) {
  constexpr int kTags = 7;
  for (int round = 0; round < 5; ++round) {
    if (mRank == 0) {
      for (int tag = 0; tag < kTags; ++tag)
        EXPECT_EQ(mComm.Send(&tag, 1, DATATYPE_INT, mSize - 1, tag), STATUS_OK);
    }
    if (mRank == mSize - 1) {
      for (int i = 0; i < kTags; ++i) {
        int const tag = (i * 3 + round) % kTags;
        int received = -1;
        EXPECT_EQ(mComm.Recv(&received, 1, DATATYPE_INT, 0, tag), STATUS_OK);
        EXPECT_EQ(received, tag);
      }
    }
  }
}

TEST_P(NodeCommDataAmongPeers, KeepsMessagesAndCollectivesApart) {
  int token = mRank == 0 ? 41 : 0;
  if (mRank == 0) {
    int const message = 17;
    EXPECT_EQ(mComm.Send(&message, 1, DATATYPE_INT, 1, 3), STATUS_OK);
  }

  EXPECT_EQ(mComm.Bcast(&token, 1, DATATYPE_INT, 0), STATUS_OK);

  EXPECT_EQ(token, 41);
  if (mRank == 1) {
    int message = 0;
    EXPECT_EQ(mComm.Recv(&message, 1, DATATYPE_INT, 0, 3), STATUS_OK);
    EXPECT_EQ(message, 17);
  }
}

TEST_P(NodeCommData, GathersInPlace) {
  for (int const size : {24, 40000}) {
    std::vector<int> counts(static_cast<std::size_t>(mSize), size);
    std::vector<int> displs;
    for (int r = 0; r < mSize; ++r)
      displs.push_back(r * size);
    Bytes whole(static_cast<std::size_t>(mSize * size), mShared);
    FillOwn(whole.Data() + mRank * size, size);

    EXPECT_EQ(mComm.Allgatherv(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, whole.Data(),
                               counts.data(), displs.data(), DATATYPE_BYTE),
              STATUS_OK);

    for (int r = 0; r < mSize; ++r)
      for (int i = 0; i < size; i += 5)
        ASSERT_EQ(whole[r * size + i], ByteOf(r, i));
  }
}

INSTANTIATE_TEST_SUITE_P(Groups, NodeCommData, ::testing::Values(INT_MAX, 2));
INSTANTIATE_TEST_SUITE_P(Groups, NodeCommDataAmongPeers, ::testing::Values(INT_MAX, 2));

// Failures, where all processes share memory.

class NodeCommFailure : public ::testing::Test {
 protected:
  NodeComm const& mComm = CommOf(INT_MAX);
  int const mRank = mComm.Rank();
  int const mSize = mComm.Size();
  NodePool mPool;

  void ExpectTheNextOperationToWork() {
    int const mine = mRank * 3;
    std::vector<int> all(static_cast<std::size_t>(mSize), -1);
    EXPECT_EQ(mComm.Allgather(&mine, 1, DATATYPE_INT, all.data(), 1, DATATYPE_INT), STATUS_OK);
    for (int r = 0; r < mSize; ++r)
      EXPECT_EQ(all[static_cast<std::size_t>(r)], r * 3);
  }
};

// For what needs at least two processes: a job of one leaves it out.
class NodeCommFailureAmongPeers : public NodeCommFailure {};

TEST_F(NodeCommFailure, SharesMemoryOnlyWithOthers) {
  EXPECT_EQ(mComm.Active(), mSize > 1);
  EXPECT_EQ(NodeComm(MPI_COMM_WORLD, 1).Active(), false);
}

// Rank 1 sends one byte more than the root expects.
TEST_F(NodeCommFailureAmongPeers, SizesThatDifferFailOnBothSidesAndStoreNothing) {
  constexpr int kSize = 10000;
  Pieces const pieces(2, kSize);
  std::vector<int> counts(static_cast<std::size_t>(mSize), kSize);
  std::vector<int> displs;
  for (int r = 0; r < mSize; ++r)
    displs.push_back(r * kSize);
  Bytes whole(static_cast<std::size_t>(kSize * mSize), mPool);
  std::vector<unsigned char> own(kSize + 1, 0x11);
  int const sent = mRank == 1 ? kSize + 1 : kSize;

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Gatherv(own.data(), sent, DATATYPE_BYTE, whole.Data(), counts.data(),
                         displs.data(), DATATYPE_BYTE, 0);
  });

  bool const failed = mRank < 2;
  EXPECT_EQ(outcome.mStatus, failed ? STATUS_COMM_FAILED : STATUS_OK);
  EXPECT_EQ(outcome.mLog.find("[ERROR] NodeComm::Gatherv failed on rank ") == 0, failed)
      << outcome.mLog;
  if (mRank == 0) {
    for (int r = 0; r < mSize; ++r)
      EXPECT_EQ(whole[r * kSize], r == 1 ? 0xEE : 0x11) << r;
  }
  ExpectTheNextOperationToWork();
}

TEST_F(NodeCommFailureAmongPeers, SmallSizesThatDifferFailOnTheReceiver) {
  std::vector<int> counts(static_cast<std::size_t>(mSize), 1);
  std::vector<int> displs(static_cast<std::size_t>(mSize));
  std::iota(displs.begin(), displs.end(), 0);
  std::vector<int> whole(static_cast<std::size_t>(mSize), -1);
  int const own[2] = {5, 6};

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Gatherv(own, mRank == 1 ? 2 : 1, DATATYPE_INT, whole.data(), counts.data(),
                         displs.data(), DATATYPE_INT, 0);
  });

  EXPECT_EQ(outcome.mStatus, mRank == 0 ? STATUS_COMM_FAILED : STATUS_OK);
  if (mRank == 0) {
    EXPECT_EQ(whole[1], -1);
  }
  ExpectTheNextOperationToWork();
}

// What rank 1 leaves out, all others expect.
TEST_F(NodeCommFailureAmongPeers, APieceOfNoBytesThatIsExpectedFailsOnTheReceivers) {
  for (int const expected : {10, 10000}) {
    std::vector<int> counts(static_cast<std::size_t>(mSize), 8);
    counts[1] = mRank == 1 ? 0 : expected;
    std::vector<int> displs(static_cast<std::size_t>(mSize));
    std::exclusive_scan(counts.begin(), counts.end(), displs.begin(), 0);
    Bytes whole(static_cast<std::size_t>(displs.back() + counts.back()), mPool);
    std::vector<unsigned char> own(8, 0x11);

    Outcome const outcome = OutcomeOf([&] {
      return mComm.Allgatherv(own.data(), mRank == 1 ? 0 : 8, DATATYPE_BYTE, whole.Data(),
                              counts.data(), displs.data(), DATATYPE_BYTE);
    });

    EXPECT_EQ(outcome.mStatus, mRank == 1 ? STATUS_OK : STATUS_COMM_FAILED) << expected;
    MPI_Barrier(MPI_COMM_WORLD);  // no further operation is needed to notice it
    ExpectTheNextOperationToWork();
  }
}

// One side takes the data for a small message, the other one for a large one.
TEST_F(NodeCommFailureAmongPeers, SizesOnBothSidesOfAThresholdFail) {
  Bytes data(20000, mPool);
  for (bool const largeSent : {false, true}) {
    int const sent = largeSent ? 20000 : 8;
    int const expected = largeSent ? 8 : 20000;
    Outcome outcome;
    if (mRank == 0)
      outcome = OutcomeOf([&] { return mComm.Send(data.Data(), sent, DATATYPE_BYTE, 1, 9); });
    if (mRank == 1)
      outcome =
          OutcomeOf([&] { return mComm.Recv(data.Data(), expected, DATATYPE_BYTE, 0, 9); });

    bool const fails = mRank == 1 || (mRank == 0 && largeSent);
    EXPECT_EQ(outcome.mStatus, fails ? STATUS_COMM_FAILED : STATUS_OK) << largeSent;
  }
  ExpectTheNextOperationToWork();
}

TEST_F(NodeCommFailureAmongPeers, OperationsThatDifferFailOnBothSides) {
  Bytes data(20000, mPool);
  int const counts[2] = {10000, 10000};
  int const displs[2] = {0, 10000};

  Outcome const outcome = OutcomeOf([&] {
    return mRank == 0 ? mComm.Bcast(data.Data(), 10000, DATATYPE_BYTE, 0)
                      : mComm.Scatterv(data.Data(), counts, displs, DATATYPE_BYTE, data.Data(),
                                       10000, DATATYPE_BYTE, 0);
  });

  EXPECT_EQ(outcome.mStatus, STATUS_COMM_FAILED);
  ExpectTheNextOperationToWork();
}

// Rank 1 refuses its own arguments and goes on; the root notices when rank 1 comes to the next
// operation.
TEST_F(NodeCommFailureAmongPeers, ARankThatLeavesAnOperationOutIsNoticed) {
  constexpr int kSize = 10000;
  std::vector<int> counts(static_cast<std::size_t>(mSize), kSize);
  std::vector<int> displs;
  for (int r = 0; r < mSize; ++r)
    displs.push_back(r * kSize);
  Bytes whole(static_cast<std::size_t>(kSize * mSize), mPool);
  std::vector<unsigned char> own(kSize, 0x11);

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Gatherv(own.data(), mRank == 1 ? -1 : kSize, DATATYPE_BYTE, whole.Data(),
                         counts.data(), displs.data(), DATATYPE_BYTE, 0);
  });

  PavexStatus const others = mRank == 0 ? STATUS_COMM_FAILED : STATUS_OK;
  // The root is still inside while rank 1 enters this: it fails on neither.
  ExpectTheNextOperationToWork();
  EXPECT_EQ(outcome.mStatus, mRank == 1 ? STATUS_INVALID_VALUE : others);
}

// Rank 2 waits for rank 1, which receives as it does. Both sides notice when the others come to
// the next operation.
TEST_F(NodeCommFailure, ARankThatTakesAnotherOneForTheRootIsNoticed) {
  if (mSize < 3) return;
  for (int const size : {100, 10000}) {
    Bytes data(static_cast<std::size_t>(size), mPool);
    data[0] = mRank == 0 ? 7 : 0;

    Outcome const outcome = OutcomeOf(
        [&] { return mComm.Bcast(data.Data(), size, DATATYPE_BYTE, mRank == 2 ? 1 : 0); });

    ExpectTheNextOperationToWork();
    bool const failed = mRank == 2 || (mRank == 0 && size > 4096);
    EXPECT_EQ(outcome.mStatus, failed ? STATUS_COMM_FAILED : STATUS_OK) << size;
    EXPECT_EQ(data[0], mRank == 2 ? 0 : 7);
  }
}

// The same operation with counts that differ by the threshold between small and large messages,
// in an exchange in which every rank both sends and receives.
TEST_F(NodeCommFailureAmongPeers, AnExchangeWhoseSizesDifferFailsOnlyBetweenTheTwo) {
  constexpr int kSize = 5000;
  std::vector<int> sent(static_cast<std::size_t>(mSize), kSize);
  std::vector<int> const received(static_cast<std::size_t>(mSize), kSize);
  std::vector<int> displs;
  for (int r = 0; r < mSize; ++r)
    displs.push_back(r * kSize);
  if (mRank == 0) sent[1] = 4096;
  Bytes out(static_cast<std::size_t>(kSize * mSize), mPool);
  Bytes in(static_cast<std::size_t>(kSize * mSize), mPool);
  std::memset(out.Data(), mRank + 1, static_cast<std::size_t>(kSize * mSize));

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Alltoallv(out.Data(), sent.data(), displs.data(), DATATYPE_BYTE, in.Data(),
                           received.data(), displs.data(), DATATYPE_BYTE);
  });

  EXPECT_EQ(outcome.mStatus, mRank == 1 ? STATUS_COMM_FAILED : STATUS_OK);
  for (int r = 0; r < mSize; ++r)
    EXPECT_EQ(in[r * kSize], mRank == 1 && r == 0 ? 0xEE : r + 1) << r;
  ExpectTheNextOperationToWork();
}

TEST_F(NodeCommFailure, RefusesWhatMpiCommRefuses) {
  int const one = 1;
  Outcome const tag = OutcomeOf([&] { return mComm.Send(&one, 1, DATATYPE_INT, 0, -1); });
  EXPECT_EQ(tag.mStatus, STATUS_INVALID_VALUE);
  Outcome const root = OutcomeOf([&] { return mComm.Bcast(nullptr, 0, DATATYPE_INT, mSize); });
  EXPECT_EQ(root.mStatus, STATUS_INVALID_VALUE);
  EXPECT_NE(root.mLog.find("is outside the communicator"), std::string::npos) << root.mLog;
}

// The sender of a large message runs ahead while the root still copies its own piece. Its small
// messages must not take the place of the large one before the root has seen that.
TEST_F(NodeCommFailureAmongPeers, ASenderThatRunsAheadOverwritesNothing) {
  constexpr int kLarge = 64 << 20;
  constexpr int kPiece = 1 << 20;
  std::vector<int> counts(static_cast<std::size_t>(mSize), kPiece);
  std::vector<int> displs{0};
  counts[0] = kLarge;
  for (int r = 1; r < mSize; ++r)
    displs.push_back(kLarge + (r - 1) * kPiece);
  Bytes own(static_cast<std::size_t>(counts[static_cast<std::size_t>(mRank)]), mPool);
  Bytes whole(mRank == 0 ? static_cast<std::size_t>(kLarge + mSize * kPiece) : 1, mPool);
  std::vector<int> const ones(static_cast<std::size_t>(mSize), 1);
  std::vector<int> places(static_cast<std::size_t>(mSize));
  std::iota(places.begin(), places.end(), 0);

  EXPECT_EQ(mComm.Gatherv(own.Data(), counts[static_cast<std::size_t>(mRank)], DATATYPE_BYTE,
                          whole.Data(), counts.data(), displs.data(), DATATYPE_BYTE, 0),
            STATUS_OK);
  for (int i = 0; i < 3 * 8; ++i) {
    int const mine = 100 * mRank + i;
    std::vector<int> all(static_cast<std::size_t>(mSize), -1);
    EXPECT_EQ(mComm.Gatherv(&mine, 1, DATATYPE_INT, all.data(), ones.data(), places.data(),
                            DATATYPE_INT, 0),
              STATUS_OK);
    for (int r = 0; mRank == 0 && r < mSize; ++r)
      EXPECT_EQ(all[static_cast<std::size_t>(r)], 100 * r + i);
  }
}

// More messages between two ranks than a ring has slots, small and large ones in turn.
TEST(NodeExchange, CarriesAnyNumberOfMessagesBetweenTwoRanks) {
  NodeLinks links;
  ASSERT_EQ(links.Join(MPI_COMM_WORLD, INT_MAX), MPI_SUCCESS);
  NodePool shared;
  MemoryPool plain;
  for (int way = 0; way < 4 && links.Size() > 1; ++way) {
    constexpr int kMessages = 40;
    constexpr int kMost = 9000;
    Bytes out(kMessages * kMost, (way & 1) != 0 ? plain : shared);
    Bytes in(kMessages * kMost, (way & 2) != 0 ? plain : shared);
    int const rank = links.Rank();
    NodeExchange exchange(links);
    exchange.Begin(NodeOperation::ALLGATHERV, static_cast<std::uint64_t>(way + 1), 0,
                   NodeCopier::SENDER);
    for (int i = 0; i < kMessages && rank < 2; ++i) {
      auto const bytes = static_cast<std::uint64_t>(i % 3 == 0 ? 50 : kMost - i);
      out[i * kMost] = static_cast<unsigned char>(i + 1);
      exchange.Label(i);
      exchange.Send(1 - rank, NodeRegion::Of(out.Data() + i * kMost, bytes), DATATYPE_BYTE);
      exchange.Receive(1 - rank, NodeRegion::Of(in.Data() + i * kMost, bytes), DATATYPE_BYTE);
    }

    EXPECT_EQ(exchange.Run(), nullptr);

    for (int i = 0; i < kMessages && rank < 2; ++i)
      EXPECT_EQ(in[i * kMost], i + 1) << way;
    MPI_Barrier(MPI_COMM_WORLD);
  }
  links.Leave();
}

// The receiver has given up a message before it came. Nothing that it does later may meet it.
TEST(NodeExchange, ASenderWithdrawsWhatTheReceiverHasGivenUp) {
  NodeLinks links;
  ASSERT_EQ(links.Join(MPI_COMM_WORLD, INT_MAX), MPI_SUCCESS);
  MemoryPool pool;
  Bytes data(10000, pool);
  NodeExchange exchange(links);
  exchange.Begin(NodeOperation::MESSAGE, 0, 3, NodeCopier::SENDER);
  if (links.Rank() == 0 && links.Size() > 1) {
    exchange.Send(1, NodeRegion::Of(data.Data(), 10000), DATATYPE_BYTE);
    EXPECT_STREQ(exchange.Run(), "rank 1 has given up");
  }
  if (links.Rank() == 1) {
    NodeRing& ring = links.To(0).in->direct;
    while (NodeNote::StateOf(ring.offers[1].Read()) != NodeState::OFFERED)
      sched_yield();
    ring.answers[1].Publish(1, NodeState::REVOKED, ring.offers[1].Terms(),
                            {NodeArena::kOutside});
    while (NodeNote::StateOf(ring.offers[1].Read()) != NodeState::WITHDRAWN)
      sched_yield();

    exchange.Receive(0, NodeRegion::Of(data.Data(), 10000), DATATYPE_BYTE);

    EXPECT_STREQ(exchange.Run(), "rank 0 has given up");
  }
  links.Leave();
}

// Lifetimes.

TEST(NodeCommLifetime, PoolsCommunicatorsAndBlocksEndInAnyOrder) {
  auto pool = std::make_unique<NodePool>();
  void* block = nullptr;
  ASSERT_EQ(pool->Allocate(&block, 100000), STATUS_OK);
  for (int round = 0; round < 3; ++round) {
    auto const first = std::make_unique<NodeComm>(MPI_COMM_WORLD);
    auto second = std::make_unique<NodeComm>(MPI_COMM_WORLD);
    int token = first->Rank() == 0 ? round : -1;

    EXPECT_EQ(first->Bcast(&token, 1, DATATYPE_INT, 0), STATUS_OK);
    second.reset();
    EXPECT_EQ(first->Bcast(&token, 1, DATATYPE_INT, 0), STATUS_OK);

    EXPECT_EQ(token, round);
  }
  std::memset(block, 1, 100000);
  pool->Deallocate(block, 100000);
  pool.reset();
}

}  // namespace
}  // namespace Pavex
