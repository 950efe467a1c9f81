// What the system refuses to one of two processes that keep an array once: it arrives on both
// all the same.

#include "pavex/comm/node_arena.h"
#include "tests/comm/failing_new.h"
#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"
#include "tests/comm/node_refusal.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {
namespace {

// Ranks 0 and 1 receive an array that is large enough to be kept once. One of them meets the
// refusal.
class NodeWindowRefusal : public NodePeerRefusal {
 protected:
  static constexpr int kPiece = 3 << 20;

  void SetUp() override {
    if (mPair.Get() == MPI_COMM_NULL) return;
    mComm = std::make_unique<NodeComm>(mPair.Get());
    ASSERT_TRUE(mComm->Active());
    mOwn.resize(kPiece);
  }

  void Gather(PoolBlock& whole, int seed) {
    std::memset(mOwn.data(), seed + mComm->Rank(), kPiece);
    std::memset(whole.Data(), 99, 1);
    EXPECT_EQ(mComm->Allgather(mOwn.data(), kPiece, DATATYPE_BYTE, whole.Data(), kPiece,
                               DATATYPE_BYTE),
              STATUS_OK);
    EXPECT_EQ(CountWrong(whole, seed), 0);
  }
  static long CountWrong(PoolBlock& whole, int seed) {
    long wrong = 0;
    for (int i = 0; i < 2 * kPiece; ++i)
      wrong += whole.Data()[i] != seed + i / kPiece ? 1 : 0;
    return wrong;
  }
  // How many of the two processes have a view.
  int Views(PoolBlock& whole) {
    int const mine = IsView(whole) ? 1 : 0;
    int both = 0;
    MPI_Allreduce(&mine, &both, 1, MPI_INT, MPI_SUM, mPair.Get());
    return both;
  }

  // Gathers under the refusal into a new block, and again into one that is a view already.
  void ExpectViews(Refusal refusal, int intoNew, int intoView) {
    for (int rank = 0; rank < 2 && mComm != nullptr; ++rank) {
      SCOPED_TRACE("refused to rank " + std::to_string(rank));
      NodePool pool;
      PoolBlock whole(pool, 2 * kPiece);
      {
        Refusing const refusing(mComm->Rank() == rank ? refusal : Refusal::NONE);
        Gather(whole, 10);
      }
      EXPECT_EQ(Views(whole), intoNew);
      Gather(whole, 20);
      Gather(whole, 30);
      EXPECT_EQ(Views(whole), 2);
      {
        Refusing const refusing(mComm->Rank() == rank ? refusal : Refusal::NONE);
        Gather(whole, 40);
      }
      EXPECT_EQ(Views(whole), intoView);
      Gather(whole, 50);
      EXPECT_EQ(Views(whole), 2);
    }
  }

  std::unique_ptr<NodeComm> mComm;
  std::vector<unsigned char> mOwn;
};

// The first process makes the file: only there does a refusal matter.
TEST_F(NodeWindowRefusal, WithoutAFileAllStoreIntoEachBlock) {
  if (mComm == nullptr) return;
  for (Refusal const refusal : {Refusal::MEMORY_FILE, Refusal::SIZE, Refusal::SMALL_FILES}) {
    NodePool pool;
    PoolBlock whole(pool, 2 * kPiece);
    Refusing const refusing(mComm->Rank() == 0 ? refusal : Refusal::NONE);

    Gather(whole, 10);

    EXPECT_EQ(Views(whole), 0);
  }
}

TEST_F(NodeWindowRefusal, AFileThatCannotBeOpenedMeansOrdinaryBlocks) {
  if (mComm == nullptr) return;
  for (Refusal const refusal : {Refusal::FOREIGN, Refusal::OTHER_FILE}) {
    NodePool pool;
    PoolBlock whole(pool, 2 * kPiece);
    Refusing const refusing(mComm->Rank() == 1 ? refusal : Refusal::NONE);

    Gather(whole, 10);

    EXPECT_EQ(Views(whole), 0);
  }
}

TEST_F(NodeWindowRefusal, AWindowThatOneProcessCannotMapMeansOrdinaryBlocks) {
  ExpectViews(Refusal::SHARED_MAPPING, 0, 2);
}

TEST_F(NodeWindowRefusal, AProcessWithLargerPagesLetsAllStoreIntoEachBlock) {
  if (mComm == nullptr) return;
  for (int rank = 0; rank < 2; ++rank) {
    NodePool pool;
    PoolBlock whole(pool, 2 * kPiece);
    Refusing const refusing(mComm->Rank() == rank ? Refusal::LARGE_PAGES : Refusal::NONE);

    Gather(whole, 10);

    EXPECT_EQ(Views(whole), 0);
  }
}

TEST_F(NodeWindowRefusal, AProcessThatCannotShowTheWindowCopiesIt) {
  ExpectViews(Refusal::PRIVATE_MAPPING, 1, 2);
}

TEST_F(NodeWindowRefusal, AProcessThatCannotDropItsPagesCopiesTheWindow) {
  ExpectViews(Refusal::DROPPING, 2, 1);
}

// The window is neither lost nor shown twice, whatever mapping again is refused for.
TEST_F(NodeWindowRefusal, AViewThatCannotBecomeOrdinaryReceivesAllTheSame) {
  if (mComm == nullptr) return;
  int const counts[2] = {kPiece, kPiece};
  int const displs[2] = {0, kPiece};
  for (int root = 0; root < 2; ++root) {
    NodePool pool;
    auto whole = std::make_unique<PoolBlock>(pool, 2 * kPiece);
    Gather(*whole, 10);
    std::memset(mOwn.data(), 20 + mComm->Rank(), kPiece);
    {
      Refusing const refusing(mComm->Rank() == root ? Refusal::SHARED_MAPPING : Refusal::NONE);
      EXPECT_EQ(mComm->Gatherv(mOwn.data(), kPiece, DATATYPE_BYTE, whole->Data(), counts,
                               displs, DATATYPE_BYTE, root),
                STATUS_OK);
      EXPECT_EQ(CountWrong(*whole, mComm->Rank() == root ? 20 : 10), 0);
      EXPECT_EQ(Views(*whole), 2);
      Gather(*whole, 30);
      if (mComm->Rank() == root) {
        whole.reset();
        pool.ReleaseCached();  // the addresses are lost
      }
    }
    if (mComm->Rank() == root) whole = std::make_unique<PoolBlock>(pool, 2 * kPiece);
    Gather(*whole, 40);
    EXPECT_EQ(Views(*whole), 2);
  }
}

// Every allocation of one rank fails once.
TEST_F(NodeWindowRefusal, MemoryThatRunsOutChangesNoResult) {
  if (mComm == nullptr) return;
  NodePool pool;
  PoolBlock whole(pool, 2 * kPiece);
  Gather(whole, 10);
  EXPECT_EQ(Views(whole), 2);
  NodeArena& arena = *NodeArena::OfProcess();
  NodeSpan const array{arena.OffsetOf(whole.Data(), whole.Bytes()), whole.Bytes()};
  int const files = Descriptors();
  int without = 0;
  for (int nth = 0; nth < 12; ++nth) {
    ASSERT_TRUE(arena.Views().MakeOrdinary(array, array));
    FailNewAt(mComm->Rank() == nth % 2 ? nth / 2 + 1 : 0);
    PavexStatus const status = mComm->Allgather(mOwn.data(), kPiece, DATATYPE_BYTE,
                                                whole.Data(), kPiece, DATATYPE_BYTE);
    FailNewAt(0);
    EXPECT_EQ(status, STATUS_OK) << nth;
    EXPECT_EQ(CountWrong(whole, 10), 0) << nth;
    EXPECT_EQ(Descriptors(), files) << nth;
    without += 2 - Views(whole);
  }
  EXPECT_GT(without, 0);
  EXPECT_EQ(Views(whole), 2);
}

}  // namespace
}  // namespace Pavex
