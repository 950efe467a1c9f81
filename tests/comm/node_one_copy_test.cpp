// An array that all processes of a node receive is kept once. Each process may write to its own
// all the same, and no process sees what another one writes.

#include "pavex/comm/node_one_copy.h"

#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <numeric>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Pavex {
namespace {

// Of all ranks together, about. Large enough to be kept once.
constexpr int kWhole = 6 << 20;
static_assert(kWhole > NodeOneCopy::kLeast + (1 << 20));

unsigned char ByteAt(int seed, std::size_t i) {
  return static_cast<unsigned char>((i * 7 + i / 4096 + static_cast<std::size_t>(seed) * 31) %
                                    251);
}

// The bytes of all ranks are one sequence, another one for each seed.
void Fill(unsigned char* data, int seed, std::size_t from, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i)
    data[i] = ByteAt(seed, from + i);
}

std::size_t CountWrong(unsigned char const* data, int seed, std::size_t from,
                       std::size_t bytes) {
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < bytes; ++i)
    wrong += data[i] != ByteAt(seed, from + i) ? 1U : 0U;
  return wrong;
}

std::size_t CountWrong(PoolBlock& whole, int seed) {
  return CountWrong(whole.Data(), seed, 0, whole.Bytes());
}

class NodeOneCopyTest : public ::testing::Test {
 protected:
  int Size() const { return mComm->Size(); }
  int Rank() const { return mComm->Rank(); }
  int Piece() const { return kWhole / Size() / 64 * 64; }
  int Whole() const { return Piece() * Size(); }
  // Bytes of the pieces before that of a rank.
  std::size_t Before(int rank) const { return static_cast<std::size_t>(rank * Piece()); }
  std::size_t Begin() const { return Before(Rank()); }

  // Gathers the sequence of `seed` into `whole`.
  PavexStatus Gather(Comm const& comm, unsigned char* whole, int seed) {
    return Gather(comm, whole, seed, Piece());
  }
  PavexStatus Gather(Comm const& comm, unsigned char* whole, int seed, int piece) {
    auto const bytes = static_cast<std::size_t>(piece);
    std::vector<unsigned char> larger(bytes > mOwn.size() ? bytes : 0);
    unsigned char* const own = larger.empty() ? mOwn.data() : larger.data();
    Fill(own, seed, static_cast<std::size_t>(comm.Rank()) * bytes, bytes);
    return comm.Allgather(own, piece, DATATYPE_BYTE, whole, piece, DATATYPE_BYTE);
  }
  void GatherAndExpect(PoolBlock& whole, int seed) {
    ASSERT_EQ(Gather(*mComm, whole.Data(), seed), STATUS_OK);
    EXPECT_TRUE(IsView(whole));
    EXPECT_EQ(CountWrong(whole, seed), 0U) << seed;
  }

  std::unique_ptr<NodeComm> mComm = std::make_unique<NodeComm>(MPI_COMM_WORLD);
  NodePool mPool;
  // Filled before a test looks at the memory of the process.
  std::vector<unsigned char> mOwn = std::vector<unsigned char>(Before(1), 1);
};

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

TEST_F(NodeOneCopyTest, APieceMayBeInItsPlaceAlready) {
  PoolBlock whole(mPool, Whole());
  for (int round = 0; round < 3; ++round) {
    Fill(whole.Data() + Begin(), round, Begin(), Before(1));

    ASSERT_EQ(mComm->Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, whole.Data(), Piece(),
                               DATATYPE_BYTE),
              STATUS_OK);

    EXPECT_TRUE(IsView(whole));
    EXPECT_EQ(CountWrong(whole, round), 0U);
  }
}

// One process has a plain block: all use the other path, also where the array was a view.
TEST_F(NodeOneCopyTest, APlainBlockOfOneProcessIsNoticedByAll) {
  PoolBlock shared(mPool, Whole());
  MemoryPool plain;
  PoolBlock own(plain, Whole());
  for (int odd = 0; odd < Size(); ++odd) {
    GatherAndExpect(shared, odd);
    PoolBlock& whole = Rank() == odd ? own : shared;

    ASSERT_EQ(Gather(*mComm, whole.Data(), odd + 20), STATUS_OK);
    EXPECT_EQ(CountWrong(whole, odd + 20), 0U);

    EXPECT_EQ(IsView(shared), Rank() == odd);
    if (Rank() == odd) {
      EXPECT_EQ(CountWrong(shared, odd), 0U);
    }
    GatherAndExpect(shared, odd + 40);
    Fill(whole.Data() + Begin(), odd + 60, Begin(), Piece());

    ASSERT_EQ(mComm->Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, whole.Data(), Piece(),
                               DATATYPE_BYTE),
              STATUS_OK);
    EXPECT_EQ(CountWrong(whole, odd + 60), 0U);
  }
}

// Rank 0 gathers with gaps into what was a view: what lies between the pieces stays.
TEST_F(NodeOneCopyTest, AViewThatReceivesPiecesWithGapsKeepsWhatLiesBetween) {
  PoolBlock whole(mPool, Whole());
  GatherAndExpect(whole, 1);
  constexpr int kGap = 9000;
  int const piece = Piece() - kGap;
  std::vector<int> const counts(static_cast<std::size_t>(Size()), piece);
  std::vector<int> displs;
  for (int r = 0; r < Size(); ++r)
    displs.push_back(r * Piece());
  std::vector<unsigned char> own(static_cast<std::size_t>(piece));
  Fill(own.data(), 2, Begin(), own.size());

  ASSERT_EQ(mComm->Gatherv(own.data(), piece, DATATYPE_BYTE, whole.Data(), counts.data(),
                           displs.data(), DATATYPE_BYTE, 0),
            STATUS_OK);

  if (Rank() > 0) {
    EXPECT_EQ(CountWrong(whole, 1), 0U);
    return;
  }
  for (int r = 0; r < Size(); ++r) {
    std::size_t const at = Before(r);
    EXPECT_EQ(CountWrong(whole.Data() + at, 2, at, own.size()), 0U) << r;
    EXPECT_EQ(CountWrong(whole.Data() + at + piece, 1, at + own.size(), kGap), 0U) << r;
  }
}

TEST_F(NodeOneCopyTest, APeerReadsAViewAsItsOwnerSeesIt) {
  PoolBlock whole(mPool, Whole());
  PoolBlock copy(mPool, Whole());
  GatherAndExpect(whole, 1);
  Fill(whole.Data() + Piece(), Rank() + 50, Piece(), 100000);
  MPI_Barrier(MPI_COMM_WORLD);

  for (int root = 0; root < Size(); ++root) {
    PoolBlock& data = Rank() == root ? whole : copy;
    ASSERT_EQ(mComm->Bcast(data.Data(), Whole(), DATATYPE_BYTE, root), STATUS_OK);

    EXPECT_EQ(CountWrong(data.Data(), 1, 0, Piece()), 0U);
    EXPECT_EQ(CountWrong(data.Data() + Piece(), root + 50, Piece(), 100000), 0U);
    EXPECT_TRUE(IsView(whole));
  }
}

// Scatter pulls out of the root's block, and stores nothing into views of the others.
TEST_F(NodeOneCopyTest, ViewsSendAndReceiveParts) {
  PoolBlock whole(mPool, Whole());
  GatherAndExpect(whole, 1);
  std::vector<int> const counts(static_cast<std::size_t>(Size()), Piece());
  std::vector<int> displs;
  for (int r = 0; r < Size(); ++r)
    displs.push_back(r * Piece());
  PoolBlock part(mPool, Piece());

  ASSERT_EQ(mComm->Scatterv(whole.Data(), counts.data(), displs.data(), DATATYPE_BYTE,
                            part.Data(), Piece(), DATATYPE_BYTE, 0),
            STATUS_OK);
  EXPECT_EQ(CountWrong(part.Data(), 1, Begin(), Piece()), 0U);
  EXPECT_EQ(CountWrong(whole, 1), 0U);

  Fill(part.Data(), 5, 0, Piece());
  if (Rank() == 0) {
    ASSERT_EQ(mComm->Send(part.Data(), Piece(), DATATYPE_BYTE, 1, 3), STATUS_OK);
  }
  if (Rank() == 1) {
    ASSERT_EQ(mComm->Recv(whole.Data() + 1000, Piece(), DATATYPE_BYTE, 0, 3), STATUS_OK);
    EXPECT_EQ(CountWrong(whole.Data(), 1, 0, 1000), 0U);
    EXPECT_EQ(CountWrong(whole.Data() + 1000, 5, 0, Piece()), 0U);
    EXPECT_EQ(CountWrong(whole.Data() + 1000 + Piece(), 1, 1000 + Piece(),
                         whole.Bytes() - 1000 - Piece()),
              0U);
  }
  MPI_Barrier(MPI_COMM_WORLD);
  if (Rank() != 1) {
    EXPECT_EQ(CountWrong(whole, 1), 0U);
  }
}

// Two arrays in one block, then one over parts of both.
TEST_F(NodeOneCopyTest, ArraysOfOneBlockShareItsPages) {
  PoolBlock block(mPool, 2 * Whole());
  unsigned char* const second = block.Data() + Whole();
  auto const bytes = static_cast<std::size_t>(Whole());
  ASSERT_EQ(Gather(*mComm, block.Data(), 1), STATUS_OK);
  ASSERT_EQ(Gather(*mComm, second, 2), STATUS_OK);
  EXPECT_EQ(CountWrong(block.Data(), 1, 0, bytes), 0U);
  EXPECT_EQ(CountWrong(second, 2, 0, bytes), 0U);

  std::size_t const into = bytes / 2 + 12288;
  ASSERT_EQ(Gather(*mComm, block.Data() + into, 3), STATUS_OK);

  EXPECT_TRUE(IsView(block.Data() + into, bytes));
  EXPECT_FALSE(IsView(block.Data(), into - 4096));
  EXPECT_EQ(CountWrong(block.Data(), 1, 0, into), 0U);
  EXPECT_EQ(CountWrong(block.Data() + into, 3, 0, bytes), 0U);
  EXPECT_EQ(CountWrong(second + into, 2, into, bytes - into), 0U);
}

TEST_F(NodeOneCopyTest, BlocksThatBeginElsewhereInTheirPagesStayOrdinary) {
  PoolBlock block(mPool, Whole() + 64);
  unsigned char* const to = block.Data() + (Rank() == 1 ? 64 : 0);

  ASSERT_EQ(Gather(*mComm, to, 1), STATUS_OK);

  EXPECT_FALSE(IsView(block));
  EXPECT_EQ(CountWrong(to, 1, 0, static_cast<std::size_t>(Whole())), 0U);
}

TEST_F(NodeOneCopyTest, PiecesOfAllSizesTileTheArray) {
  std::vector<int> counts;
  std::vector<int> displs;
  int total = 0;
  for (int r = 0; r < Size(); ++r) {
    counts.push_back(r == 0 ? kWhole + 13 : r % 2 * (3 * r + 700001));
    displs.push_back(total);
    total += counts.back();
  }
  PoolBlock whole(mPool, total);
  int const mine = counts[static_cast<std::size_t>(Rank())];
  auto const begin = static_cast<std::size_t>(displs[static_cast<std::size_t>(Rank())]);
  std::vector<unsigned char> own(static_cast<std::size_t>(mine) + 1);
  Fill(own.data(), 1, begin, static_cast<std::size_t>(mine));

  ASSERT_EQ(mComm->Allgatherv(own.data(), mine, DATATYPE_BYTE, whole.Data(), counts.data(),
                              displs.data(), DATATYPE_BYTE),
            STATUS_OK);

  EXPECT_TRUE(IsView(whole));
  EXPECT_EQ(CountWrong(whole, 1), 0U);
}

// All pieces lie behind the first huge page of the block.
TEST_F(NodeOneCopyTest, ARankWithoutAPieceTakesPartWhereverTheArrayBegins) {
  constexpr int kBegin = 3 << 20;
  int const last = Size() - 1;
  int const piece = kWhole / last;
  std::vector<int> counts(static_cast<std::size_t>(Size()), piece);
  counts.back() = 0;
  std::vector<int> displs;
  for (int r = 0; r < Size(); ++r)
    displs.push_back(kBegin + r * piece);
  PoolBlock block(mPool, kBegin + last * piece);
  std::vector<unsigned char> own(static_cast<std::size_t>(piece));
  Fill(own.data(), 1, static_cast<std::size_t>(Rank() * piece), own.size());

  ASSERT_EQ(mComm->Allgatherv(own.data(), Rank() == last ? 0 : piece, DATATYPE_BYTE,
                              block.Data(), counts.data(), displs.data(), DATATYPE_BYTE),
            STATUS_OK);

  EXPECT_TRUE(IsView(block));
  EXPECT_EQ(CountWrong(block.Data() + kBegin, 1, 0, static_cast<std::size_t>(last * piece)),
            0U);
}

// Whether an array has gaps is a matter of each receiver.
TEST_F(NodeOneCopyTest, PiecesMayLieElsewhereOnEachRank) {
  PoolBlock whole(mPool, 2 * Whole());
  for (int odd = 0; odd < Size(); ++odd) {
    int const apart = Rank() == odd ? Piece() + 5000 : Piece();
    std::vector<int> const counts(static_cast<std::size_t>(Size()), Piece());
    std::vector<int> displs;
    for (int r = 0; r < Size(); ++r)
      displs.push_back(r * apart);
    Fill(mOwn.data(), odd, Begin(), mOwn.size());

    ASSERT_EQ(mComm->Allgatherv(mOwn.data(), Piece(), DATATYPE_BYTE, whole.Data(),
                                counts.data(), displs.data(), DATATYPE_BYTE),
              STATUS_OK);

    for (int r = 0; r < Size(); ++r)
      EXPECT_EQ(CountWrong(whole.Data() + r * apart, odd, Before(r), Before(1)), 0U) << r;
    ASSERT_EQ(Gather(*mComm, whole.Data(), odd + 20), STATUS_OK);
    EXPECT_TRUE(IsView(whole));
  }
}

// Runs are in place where both sides name the same elements. The array is a view before.
TEST_F(NodeOneCopyTest, RunsMayBeInTheirPlaceAlready) {
  PoolBlock shared(mPool, Whole());
  MemoryPool plain;
  PoolBlock own(plain, Whole());
  std::vector<Runs> places;
  for (long r = 0; r < Size(); ++r)
    places.push_back({r * Piece(), Piece(), 1, Piece()});
  for (bool const one : {false, true}) {
    GatherAndExpect(shared, 1);
    PoolBlock& whole = one && Rank() == 0 ? own : shared;
    Fill(whole.Data() + Begin(), 2, Begin(), Before(1));

    ASSERT_EQ(mComm->GatherRuns(whole.Data(), places[static_cast<std::size_t>(Rank())],
                                whole.Data(), places.data(), DATATYPE_BYTE, -1),
              STATUS_OK);

    EXPECT_EQ(CountWrong(whole, 2), 0U) << one;
  }
}

TEST_F(NodeOneCopyTest, SizesThatDifferFailAndShowNothing) {
  PoolBlock whole(mPool, Whole());
  int const piece = Rank() == 1 ? Piece() - 4096 : Piece();
  std::vector<unsigned char> own(static_cast<std::size_t>(piece), 1);

  PavexStatus status = STATUS_OK;
  CaptureStdout([&] {
    status =
        mComm->Allgather(own.data(), piece, DATATYPE_BYTE, whole.Data(), piece, DATATYPE_BYTE);
  });

  EXPECT_EQ(status, STATUS_COMM_FAILED);
  EXPECT_FALSE(IsView(whole));
  GatherAndExpect(whole, 2);
}

TEST_F(NodeOneCopyTest, OperationsThatDifferFailAlsoIfTheirSizesDoNot) {
  PoolBlock whole(mPool, Whole());
  auto const ranks = static_cast<std::size_t>(Size());
  std::vector<int> const counts(ranks, Piece());
  std::vector<int> places(ranks);
  for (int r = 0; r < Size(); ++r)
    places[static_cast<std::size_t>(r)] = static_cast<int>(Before(r));
  PavexStatus status = STATUS_OK;
  CaptureStdout([&] {
    status = Rank() == 1 ? mComm->Allgatherv(mOwn.data(), Piece(), DATATYPE_BYTE, whole.Data(),
                                             counts.data(), places.data(), DATATYPE_BYTE)
                         : Gather(*mComm, whole.Data(), 1);
  });

  EXPECT_EQ(status, STATUS_COMM_FAILED);
  EXPECT_FALSE(IsView(whole));
  GatherAndExpect(whole, 2);
}

// One of them has too little for a window, and does not try to agree on one.
TEST_F(NodeOneCopyTest, SizesOnBothSidesOfTheLeastFail) {
  PoolBlock whole(mPool, Whole());
  for (int odd = 0; odd < Size(); ++odd) {
    int const piece = Rank() == odd ? Piece() / 2 : Piece();
    PavexStatus status = STATUS_OK;
    CaptureStdout([&] { status = Gather(*mComm, whole.Data(), 1, piece); });

    EXPECT_EQ(status, STATUS_COMM_FAILED);
    MPI_Barrier(MPI_COMM_WORLD);  // no further operation is needed to notice it
    GatherAndExpect(whole, 2);
  }
}

// The same where it has no piece itself.
TEST_F(NodeOneCopyTest, SizesOnBothSidesOfTheLeastFailWhereTheOddRankHasNoPiece) {
  constexpr int kPiece = static_cast<int>(NodeOneCopy::kLeast);
  PoolBlock whole(mPool, kPiece * Size());
  std::vector<unsigned char> own(kPiece, 1);
  for (int odd = 0; odd < Size(); ++odd) {
    for (bool const oddHasLess : {true, false}) {
      bool const hasLess = (Rank() == odd) == oddHasLess;
      int const piece = hasLess ? 64 : kPiece;
      std::vector<int> counts(static_cast<std::size_t>(Size()), piece);
      counts[static_cast<std::size_t>(odd)] = 0;
      std::vector<int> displs(counts.size());
      std::exclusive_scan(counts.begin(), counts.end(), displs.begin(), 0);
      PavexStatus status = STATUS_OK;
      CaptureStdout([&] {
        status = mComm->Allgatherv(own.data(), Rank() == odd ? 0 : piece, DATATYPE_BYTE,
                                   whole.Data(), counts.data(), displs.data(), DATATYPE_BYTE);
      });

      EXPECT_EQ(status, STATUS_COMM_FAILED) << odd;
      MPI_Barrier(MPI_COMM_WORLD);  // no further operation is needed to notice it
      ASSERT_EQ(Gather(*mComm, whole.Data(), 2), STATUS_OK);
    }
  }
}

// A process of the other group sends less than those of this one expect.
TEST_F(NodeOneCopyTest, AFailureKeepsThePieceThatIsInItsPlace) {
  NodeComm const groups(MPI_COMM_WORLD, 2);
  if (Size() != 4) return;
  PoolBlock whole(mPool, Whole());
  ASSERT_EQ(Gather(groups, whole.Data(), 1), STATUS_OK);
  bool const fails = Rank() < 2;
  std::vector<int> counts(4, Piece());
  if (!fails) counts[2] -= 64;
  std::vector<int> displs(4);
  std::exclusive_scan(counts.begin(), counts.end(), displs.begin(), 0);
  Fill(whole.Data() + Begin(), 2, Begin(), Before(1));

  PavexStatus status = STATUS_OK;
  CaptureStdout([&] {
    status = groups.Allgatherv(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, whole.Data(),
                               counts.data(), displs.data(), DATATYPE_BYTE);
  });

  EXPECT_EQ(status, fails ? STATUS_COMM_FAILED : STATUS_OK);
  EXPECT_EQ(IsView(whole), !fails);
  if (fails) {
    EXPECT_EQ(CountWrong(whole.Data() + Begin(), 2, Begin(), Before(1)), 0U);
  }
  ASSERT_EQ(Gather(groups, whole.Data(), 3), STATUS_OK);
  EXPECT_EQ(CountWrong(whole, 3), 0U);
}

// The processes of another group wait for pieces of this one over MPI.
TEST_F(NodeOneCopyTest, SizesOnBothSidesOfTheLeastFailInAllGroups) {
  TimeLimit const limit(60);
  PoolBlock whole(mPool, Whole());
  for (int const largest : {2, 3}) {
    NodeComm const groups(MPI_COMM_WORLD, largest);
    for (int odd = 0; odd < Size(); ++odd) {
      for (bool const oddHasLess : {true, false}) {
        int const piece = (Rank() == odd) == oddHasLess ? Piece() / 2 : Piece();
        PavexStatus status = STATUS_OK;
        CaptureStdout([&] { status = Gather(groups, whole.Data(), 1, piece); });

        EXPECT_EQ(status, STATUS_COMM_FAILED) << largest << " " << odd << " " << oddHasLess;
        MPI_Barrier(MPI_COMM_WORLD);  // no further operation is needed to notice it
        ASSERT_EQ(Gather(groups, whole.Data(), 2), STATUS_OK);
        EXPECT_EQ(CountWrong(whole, 2), 0U);
      }
    }
  }
}

TEST_F(NodeOneCopyTest, ARankThatHasLeftAnOperationOutIsNoticedInItsNextOne) {
  PoolBlock whole(mPool, Whole());
  for (int odd = 0; odd < Size(); ++odd) {
    PavexStatus status = STATUS_OK;
    CaptureStdout([&] {
      status = mComm->Allgather(mOwn.data(), Piece(), DATATYPE_BYTE, whole.Data(),
                                Rank() == odd ? -1 : Piece(), DATATYPE_BYTE);
    });

    EXPECT_EQ(status, Rank() == odd ? STATUS_INVALID_VALUE : STATUS_COMM_FAILED);
    GatherAndExpect(whole, odd);
  }
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
