// The gather of coordinate matrices.

#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/support/arrays.h"
#include "tests/support/instances.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kExchange[] = "Allgather(in place 72 byte; 72 byte)";

template <typename T, typename I>
void ExpectEntries(MatrixCOO<T, I> const& matrix, std::vector<int> const& rowIdx,
                   std::vector<int> const& colIdx, std::vector<int> const& values) {
  EXPECT_EQ(Elements(matrix.mRowIdx), Numbers<I>(rowIdx));
  EXPECT_EQ(Elements(matrix.mColIdx), Numbers<I>(colIdx));
  EXPECT_EQ(Elements(matrix.mValues), Numbers<T>(values));
}

template <typename Instance>
class CooGatherOf : public ::testing::Test {};
TYPED_TEST_SUITE(CooGatherOf, AllInstances);

TYPED_TEST(CooGatherOf, LaysTheSharesOneAfterTheOtherInRankOrder) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<T, I> rank(comm);
    CooPiece<T, I> const piece = Share<T, I>(comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    auto const& target = rank.template Target<MatrixCOO<T, I>>();
    ExpectEntries(target, {0, 1, 3, 1, 2}, {0, 2, 4, 0, 2}, {10, 20, 30, 40, 50});
    EXPECT_EQ(target.mRows, 4);
    EXPECT_EQ(target.mCols, 5);
  });
}

TYPED_TEST(CooGatherOf, GathersEachArrayToTheRootInItsDatatype) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<T, I> rank(comm);
    CooPiece<T, I> const piece = Share<T, I>(comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    bool const root = comm->Rank() == 0;
    std::string const i = kTypeName<I>;
    std::string const t = kTypeName<T>;
    auto const call = [root](std::string const& type) {
      return root ? "Gatherv(2 " + type + "; {2, 3} at {0, 2} " + type + "; root 0)"
                  : "Gatherv(3 " + type + "; " + type + "; root 0)";
    };
    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()", "Size()", "Rank()", kExchange,
                                                call(i), call(i), call(t)));
  });
}

TYPED_TEST(CooGatherOf, GathersEachArrayToEveryRankInItsDatatype) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<T, I> rank(comm);
    CooPiece<T, I> const piece = Share<T, I>(comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    std::string const count = comm->Rank() == 0 ? "2 " : "3 ";
    auto const call = [&count](std::string const& type) {
      return "Allgatherv(" + count + type + "; {2, 3} at {0, 2} " + type + ")";
    };
    EXPECT_THAT(rank.comm->DataTexts(), ElementsAre(kExchange, call(kTypeName<I>),
                                                    call(kTypeName<I>), call(kTypeName<T>)));
  });
}

TYPED_TEST(CooGatherOf, SendsTheWholeFromItsHolderToTheRoot) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  LocalComm::Run(3, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<T, I> rank(comm);
    CooPiece<T, I> const piece = WholeOn<T, I>(2, comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    std::string const i = kTypeName<I>;
    std::string const t = kTypeName<T>;
    std::vector<std::string> expected = {"Rank()",  "Size()", "Rank()",
                                         kExchange, "Rank()", "Rank()"};
    auto const move = [&](std::string const& type) {
      if (comm->Rank() == 0) expected.push_back("Recv(3 " + type + " from 2 tag 50)");
      if (comm->Rank() == 2) expected.push_back("Send(3 " + type + " to 0 tag 50)");
    };
    move(i);
    expected.push_back("Rank()");
    move(i);
    expected.push_back("Rank()");
    move(t);
    EXPECT_EQ(rank.comm->Texts(), expected);
    if (comm->Rank() == 0) {
      ExpectEntries(rank.template Target<MatrixCOO<T, I>>(), {0, 1, 3}, {0, 2, 4},
                    {10, 20, 30});
    }
  });
}

TYPED_TEST(CooGatherOf, StatesItsOwnTypeCodes) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  RankUnderTest<T, I> rank(std::make_shared<SelfComm>());
  CooPiece<T, I> piece = Share<T, I>(0);
  piece.matrix.mValueType = piece.matrix.mIndexType = 9;

  ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

  EXPECT_EQ(rank.aggregator.Target()->mValueType, ValueTypeOf<T>::kCode);
  EXPECT_EQ(rank.aggregator.Target()->mIndexType, IndexTypeOf<I>::kCode);
}

// --- What it takes

TEST(CooGather, TakesExactlyTheGatheredArraysOnTheReceiver) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece = Share(comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    if (comm->Rank() == 0) {
      EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(144), Took(8), Took(8),
                                                            Took(20), Took(20), Took(40)}));
      EXPECT_EQ(rank.pool.PeakBytes(), 144U + 8 + 8 + 20 + 20 + 40);
    } else {
      EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(144)});
    }
  });
}

TEST(CooGather, HandsItsArraysOverWhole) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);

  ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

  auto const& target = rank.Target<MatrixCOO<double, int>>();
  EXPECT_EQ(target.mRowIdx.mData, rank.comm->Calls().at(4).recvbuf);
  EXPECT_EQ(target.mColIdx.mData, rank.comm->Calls().at(5).recvbuf);
  EXPECT_EQ(target.mValues.mData, rank.comm->Calls().at(6).recvbuf);
  EXPECT_EQ(target.mRowIdx.mCapacity, 5);
  EXPECT_EQ(target.mRowIdx.mAllocator, &rank.pool);
  EXPECT_EQ(target.mColIdx.mAllocator, &rank.pool);
  EXPECT_EQ(target.mValues.mAllocator, &rank.pool);
}

TEST(CooGather, SendsFromTheCallersArraysWithTheObjectsCounts) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);

  ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

  std::vector<CommCall> const& calls = rank.comm->Calls();
  EXPECT_EQ(calls.at(4).sendbuf, piece.first.data());
  EXPECT_EQ(calls.at(5).sendbuf, piece.second.data());
  EXPECT_EQ(calls.at(6).sendbuf, piece.values.data());
  EXPECT_EQ(calls.at(4).recvcounts, rank.aggregator.mCounts.mData);
  EXPECT_EQ(calls.at(4).recvdispls, rank.aggregator.mDispls.mData);
}

TEST(CooGather, PassesNoReceiveArraysWhereNothingIsReceived) {
  RankUnderTest<> rank = ShareRank(1);
  CooPiece<> const piece = Share(1);

  ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

  for (std::size_t const call : {4U, 5U, 6U}) {
    EXPECT_EQ(rank.comm->Calls().at(call).recvbuf, nullptr);
    EXPECT_EQ(rank.comm->Calls().at(call).recvcounts, nullptr);
    EXPECT_EQ(rank.comm->Calls().at(call).recvdispls, nullptr);
  }
}

TEST(CooGather, TakesThePartCodeOfTheReferenceProcess) {
  for (int const part : {0, 1, 2}) {
    RankUnderTest<> rank = SingleRank();
    CooPiece<> piece = Share(0);
    piece.matrix.mPart = part;

    ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

    EXPECT_EQ((rank.Target<MatrixCOO<double, int>>().mPart), part);
  }
}

TEST(CooGather, TakesThePartCodeOfTheHolderNotTheOwn) {
  CooPiece<> holder = WholeOn(1, 1);
  holder.matrix.mPart = 1;
  CooPiece<> const empty = WholeOn(1, 0);
  RankUnderTest<> rank(ScriptedRank(0, {&empty.matrix, &holder.matrix}));

  ASSERT_EQ(Gather(rank, empty.matrix).status, STATUS_OK);

  EXPECT_EQ((rank.Target<MatrixCOO<double, int>>().mPart), 1);
}

TEST(CooGather, TakesEveryOddPartCodeForTwo) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> piece = Share(0);
  piece.matrix.mPart = 7;

  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

  EXPECT_EQ((rank.Target<MatrixCOO<double, int>>().mPart), 2);
}

// --- Entries

TEST(CooGather, KeepsPositionsThatRepeatInRankOrder) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> piece = comm->Rank() == 0 ? CooPiece<>(4, 5, {2, 2}, {3, 3}, {1, 2})
                                         : CooPiece<>(4, 5, {2}, {3}, {3});
    piece.matrix.PlaceIn(4, 5, MatrixPartition::NonzeroWise());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    ExpectEntries(rank.Target<MatrixCOO<double, int>>(), {2, 2, 2}, {3, 3, 3}, {1, 2, 3});
  });
}

TEST(CooGather, KeepsIndicesOfRowBandsAsTheyAre) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> piece = comm->Rank() == 0 ? CooPiece<>(2, 5, {21, 20}, {1, 0}, {1, 2})
                                         : CooPiece<>(3, 5, {24}, {3}, {3});
    piece.matrix.PlaceIn(100, 5, MatrixPartition::RowWise(comm->Rank() == 0 ? 20 : 22));

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    auto const& target = rank.Target<MatrixCOO<double, int>>();
    ExpectEntries(target, {21, 20, 24}, {1, 0, 3}, {1, 2, 3});
    EXPECT_EQ(target.mRows, 5);
    EXPECT_EQ(target.mGlobalRows, 100);
  });
}

TEST(CooGather, TakesNothingFromAProcessWithoutRowsOrColumnsDespiteItsArrays) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    for (bool const rowsMissing : {true, false}) {
      RankUnderTest<> rank(comm);
      bool const whole = comm->Rank() == 0;
      CooPiece<> const piece =
          whole ? CooPiece<>(4, 5, {1, 2}, {3, 4}, {1, 2})
                : CooPiece<>(rowsMissing ? 0 : 4, rowsMissing ? 5 : 0, {3}, {3}, {3});

      ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

      EXPECT_EQ(rank.aggregator.mMode, CENTRALIZED_ONE);
      ExpectEntries(rank.Target<MatrixCOO<double, int>>(), {1, 2}, {3, 4}, {1, 2});
    }
  });
}

TEST(CooGather, LeavesTheValuesEmptyWithoutValues) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece = Share(comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, false), STATUS_OK);

    EXPECT_EQ(rank.comm->DataTexts().size(), 3U);
    if (comm->Rank() == 0) {
      ExpectEntries(rank.Target<MatrixCOO<double, int>>(), {0, 1, 3, 1, 2}, {0, 2, 4, 0, 2},
                    {});
      EXPECT_EQ(rank.pool.Events(),
                (std::vector<PoolEvent>{Took(144), Took(8), Took(8), Took(20), Took(20)}));
    }
  });
}

// --- Borrowed

void ExpectBorrowed(MatrixCOO<double, int> const& target, CooPiece<> const& piece) {
  EXPECT_EQ(target.mRowIdx.mData, piece.first.data());
  EXPECT_EQ(target.mColIdx.mData, piece.second.data());
  EXPECT_EQ(target.mValues.mData, piece.values.data());
  EXPECT_EQ(target.mRowIdx.mAllocator, nullptr);
  EXPECT_EQ(target.mColIdx.mAllocator, nullptr);
  EXPECT_EQ(target.mValues.mAllocator, nullptr);
  EXPECT_EQ(target.mRowIdx.mCapacity, static_cast<long>(piece.first.size()));
  EXPECT_EQ(target.mValues.mSize, static_cast<long>(piece.values.size()));
}

TEST(CooGather, BorrowsTheRootsOwnArraysWhereEveryProcessHoldsTheWhole) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece(4, 5, {0, 1}, {0, 2}, {10, 20});

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()", "Size()", "Rank()", kExchange));
    EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(144)});
    if (comm->Rank() == 0) {
      ExpectBorrowed(rank.Target<MatrixCOO<double, int>>(), piece);
    } else {
      EXPECT_EQ(rank.aggregator.Target(), nullptr);
    }
  });
}

TEST(CooGather, BorrowsTheElementsInUse) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> piece = Share(0);
  piece.matrix.mValues.mSize = 1;

  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

  EXPECT_EQ((rank.Target<MatrixCOO<double, int>>().mValues.mSize), 1);
}

TEST(CooGather, BorrowsTheValuesAllTheSameWithoutValuesWhereEveryProcessHoldsTheWhole) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(0);

  ASSERT_EQ(Gather(rank, piece.matrix, false).status, STATUS_OK);

  ExpectBorrowed(rank.Target<MatrixCOO<double, int>>(), piece);
}

TEST(CooGather, BorrowsOnAHolderThatReceives) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece = WholeOn(0, comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_THAT(rank.comm->DataTexts(), ElementsAre(kExchange));
    if (comm->Rank() == 0) ExpectBorrowed(rank.Target<MatrixCOO<double, int>>(), piece);
  });
}

TEST(CooGather, BroadcastsTheWholeFromItsHolderToEveryRank) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece = WholeOn(1, comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_THAT(
        rank.comm->Texts(),
        ElementsAre("Rank()", "Size()", "Rank()", kExchange, "Rank()", "Bcast(3 int; root 1)",
                    "Bcast(3 int; root 1)", "Bcast(3 double; root 1)"));
    auto const& target = rank.Target<MatrixCOO<double, int>>();
    ExpectEntries(target, {0, 1, 3}, {0, 2, 4}, {10, 20, 30});
    if (comm->Rank() == 1) {
      ExpectBorrowed(target, piece);
      EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(144)});
    } else {
      EXPECT_EQ(rank.pool.Events(),
                (std::vector<PoolEvent>{Took(144), Took(12), Took(12), Took(24)}));
    }
  });
}

TEST(CooGather, MovesNoValuesFromTheHolderWithoutValues) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece = WholeOn(1, comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, false), STATUS_OK);

    EXPECT_THAT(rank.comm->DataTexts(),
                ElementsAre(kExchange, "Bcast(3 int; root 1)", "Bcast(3 int; root 1)"));
    if (comm->Rank() == 0) {
      EXPECT_THAT(Elements(rank.Target<MatrixCOO<double, int>>().mValues), IsEmpty());
    }
  });
}

}  // namespace
}  // namespace Pavex
