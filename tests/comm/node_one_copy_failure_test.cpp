// Processes that expect different arrays from 4 MiB on, and those that take no part.

#include "tests/comm/node_one_copy.h"

#include <numeric>
#include <vector>

namespace Pavex {
namespace {

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

// Here pieces of other groups are longer than a process expects. MPICH ends a job then: it
// takes MPI_Test for a call over MPI_COMM_WORLD.
#ifndef MPICH_VERSION
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
#endif

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

}  // namespace
}  // namespace Pavex
