// Which pieces make one array that is kept once, and how what has been kept is sent and
// received again.

#include "tests/comm/node_one_copy.h"

#include <vector>

namespace Pavex {
namespace {

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

}  // namespace
}  // namespace Pavex
