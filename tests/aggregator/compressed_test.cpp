// The gather of compressed-row and compressed-column matrices.

#include "pavex/comm/local_comm.h"
#include "tests/support/arrays.h"
#include "tests/support/formats.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

constexpr char kExchange[] = "Allgather(in place 72 byte; 72 byte)";

template <typename Format>
void ExpectArrays(typename Format::Matrix const& matrix, std::vector<int> const& ptr,
                  std::vector<int> const& idx, std::vector<int> const& values) {
  EXPECT_EQ(Elements(matrix.*Format::kFirst), Numbers<typename Format::Index>(ptr));
  EXPECT_EQ(Elements(matrix.*Format::kSecond), Numbers<typename Format::Index>(idx));
  EXPECT_EQ(Elements(matrix.mValues), Numbers<typename Format::Value>(values));
}

template <typename Format>
using Rank = RankUnderTest<typename Format::Value, typename Format::Index>;

// --- Every instance

template <typename Format>
class CompressedGatherOf : public ::testing::Test {};
TYPED_TEST_SUITE(CompressedGatherOf, CompressedInstances);

TYPED_TEST(CompressedGatherOf, JoinsTheBandsWithOffsetsFromZero) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    Rank<Format> rank(comm);
    auto const piece = BandOf<Format>(comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    auto const& target = rank.template Target<typename Format::Matrix>();
    ExpectArrays<Format>(target, {0, 2, 3, 5}, {0, 2, 4, 1, 3}, {10, 20, 30, 40, 50});
    EXPECT_EQ(target.NNZ(), 5);
    EXPECT_EQ(target.mValueType, ValueTypeOf<typename Format::Value>::kCode);
    EXPECT_EQ(target.mIndexType, IndexTypeOf<typename Format::Index>::kCode);
  });
}

TYPED_TEST(CompressedGatherOf, GathersLengthsIndicesAndValuesInTheirDatatypes) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    Rank<Format> rank(comm);
    auto const piece = BandOf<Format>(comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    bool const root = comm->Rank() == 0;
    std::string const i = kTypeName<typename Format::Index>;
    std::string const t = kTypeName<typename Format::Value>;
    auto const call = [root](char const* sent, char const* counts, std::string const& type) {
      return std::string("Gatherv(") + sent + type + "; " + (root ? counts : "") + type +
             "; root 0)";
    };
    EXPECT_THAT(rank.comm->Texts(),
                ElementsAre("Rank()", "Size()", "Rank()", kExchange, "Size()",
                            call(root ? "2 " : "1 ", "{2, 1} at {0, 2} ", i),
                            call(root ? "3 " : "2 ", "{3, 2} at {0, 3} ", i),
                            call(root ? "3 " : "2 ", "{3, 2} at {0, 3} ", t)));
  });
}

TYPED_TEST(CompressedGatherOf, ReceivesOffsetsIndicesAndValuesFromTheHolderInThisOrder) {
  using Format = TypeParam;
  LocalComm::Run(3, [](std::shared_ptr<Comm> const& comm) {
    Rank<Format> rank(comm);
    auto const piece = CompressedWholeOn<Format>(2, comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    std::vector<std::string> expected = {"Rank()",  "Size()", "Rank()",
                                         kExchange, "Rank()", "Size()"};
    for (char const* const type :
         {kTypeName<typename Format::Index>, kTypeName<typename Format::Index>,
          kTypeName<typename Format::Value>}) {
      expected.push_back("Rank()");
      if (comm->Rank() == 0)
        expected.push_back(std::string("Recv(3 ") + type + " from 2 tag 50)");
      if (comm->Rank() == 2)
        expected.push_back(std::string("Send(3 ") + type + " to 0 tag 50)");
    }
    EXPECT_EQ(rank.comm->Texts(), expected);
    if (comm->Rank() == 0) {
      ExpectArrays<Format>(rank.template Target<typename Format::Matrix>(), {1, 3, 4},
                           {0, 2, 4}, {10, 20, 30});
    }
  });
}

// --- Both formats

template <typename Format>
class CompressedGather : public ::testing::Test {};
TYPED_TEST_SUITE(CompressedGather, CompressedFormats);

TYPED_TEST(CompressedGather, TakesItsTemporariesAndGivesThemBackBeforeTheIndices) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const piece = BandOf<Format>(comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    if (comm->Rank() == 1) {
      EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(144), Took(4), GaveBack(4)}));
      return;
    }
    std::vector<PoolEvent> const& events = rank.pool.Events();
    ASSERT_EQ(events, (std::vector<PoolEvent>{Took(144), Took(8), Took(8), Took(16), Took(8),
                                              Took(8), Took(8), GaveBack(8), GaveBack(8),
                                              GaveBack(8), Took(20), Took(40)}));
    EXPECT_EQ(events[4].block, rank.comm->Calls().at(5).recvcounts);
    EXPECT_EQ(events[5].block, rank.comm->Calls().at(5).recvdispls);
    EXPECT_EQ(events[6].block, rank.comm->Calls().at(5).sendbuf);
    EXPECT_EQ(events[7].block, events[6].block);
    EXPECT_EQ(events[8].block, events[5].block);
    EXPECT_EQ(events[9].block, events[4].block);
  });
}

TYPED_TEST(CompressedGather, GathersToEveryRank) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const piece = BandOf<Format>(comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    char const* const lengths = comm->Rank() == 0 ? "Allgatherv(2 int; {2, 1} at {0, 2} int)"
                                                  : "Allgatherv(1 int; {2, 1} at {0, 2} int)";
    EXPECT_EQ(rank.comm->DataTexts().at(1), lengths);
  });
}

TYPED_TEST(CompressedGather, PlacesBandsRelativeToTheFirstOne) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const piece = BandOf<Format>(comm->Rank(), 20);

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {0, 2, 3, 5}, {0, 2, 4, 1, 3},
                         {10, 20, 30, 40, 50});
  });
}

TYPED_TEST(CompressedGather, PlacesLengthsByBeginButEntriesInRankOrder) {
  using Format = TypeParam;
  LocalComm::Run(3, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    std::int64_t const begins[] = {0, 2, 1};
    auto piece = comm->Rank() == 0   ? Format::Make(1, 5, {0, 1}, {4}, {10})
                 : comm->Rank() == 1 ? Format::Make(1, 5, {0, 2}, {3, 2}, {20, 30})
                                     : Format::Make(1, 5, {0, 0}, {}, {});
    Format::Place(piece, 3, 5, {PARTITION_NONZERO_WISE, begins[comm->Rank()]});

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, false), STATUS_OK);

    ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {0, 1, 1, 3}, {4, 3, 2}, {});
  });
}

TYPED_TEST(CompressedGather, SendsOnlyZeroLengthsOfAPieceWithoutOffsets) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto piece = comm->Rank() == 0 ? BandOf<Format>(0) : Format::Make(2, 5, {}, {7}, {70});
    Format::Place(piece, 4, 5, Format::Band(comm->Rank() == 0 ? 0 : 2));

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {0, 2, 3, 3, 3}, {0, 2, 4},
                         {10, 20, 30});
    if (comm->Rank() == 1) {
      EXPECT_THAT(rank.comm->DataTexts(),
                  ElementsAre(kExchange, "Allgatherv(2 int; {2, 2} at {0, 2} int)",
                              "Allgatherv(0 int; {3, 0} at {0, 3} int)",
                              "Allgatherv(0 double; {3, 0} at {0, 3} double)"));
    }
  });
}

TYPED_TEST(CompressedGather, SendsOnlyZeroLengthsOfAPieceWhoseOffsetsAreNotInUse) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto piece = comm->Rank() == 0 ? BandOf<Format>(0) : Format::Make(2, 5, {3, 4, 6}, {}, {1});
    Format::Place(piece, 4, 5, Format::Band(comm->Rank() == 0 ? 0 : 2));
    if (comm->Rank() == 1) (piece.matrix.*Format::kFirst).mSize = 0;

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {0, 2, 3, 3, 3}, {0, 2, 4},
                         {10, 20, 30});
  });
}

TYPED_TEST(CompressedGather, SendsNothingFromAProcessWithoutRowsOrColumns) {
  using Format = TypeParam;
  auto const holder = CompressedWholeOn<Format>(0, 0);
  auto const empty = Format::Make(0, 5, {0}, {}, {});
  RankUnderTest<> rank(ScriptedRank(1, {&holder.matrix, &empty.matrix}));

  ASSERT_EQ(Gather(rank, empty.matrix).status, STATUS_OK);

  EXPECT_THAT(rank.comm->DataTexts(), ElementsAre(kExchange));
  EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(144)});
}

TYPED_TEST(CompressedGather, LeavesTheSingleOffsetZeroOfAMatrixWithoutRows) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto piece = Format::Make(1, 5, {0, 0}, {}, {});
    Format::Place(piece, 0, 5, MatrixPartition::NonzeroWise());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, false), STATUS_OK);

    ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {0}, {}, {});
  });
}

TYPED_TEST(CompressedGather, LeavesTheValuesEmptyWithoutValues) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const piece = BandOf<Format>(comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, false), STATUS_OK);

    EXPECT_EQ(rank.comm->DataTexts().size(), 3U);
    ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {0, 2, 3, 5}, {0, 2, 4, 1, 3},
                         {});
  });
}

TYPED_TEST(CompressedGather, TakesThePartCodeOfTheReferenceProcess) {
  using Format = TypeParam;
  for (int const part : {0, 1, 2}) {
    RankUnderTest<> rank = SingleRank();
    auto piece = BandOf<Format>(0);
    piece.matrix.mPart = part;

    ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

    EXPECT_EQ(rank.Target<typename Format::Matrix>().mPart, part);
  }
}

// --- Borrowed

template <typename Format>
void ExpectBorrowed(RankUnderTest<>& rank, typename Format::Piece const& piece) {
  auto const& target = rank.Target<typename Format::Matrix>();
  EXPECT_EQ((target.*Format::kFirst).mData, piece.first.data());
  EXPECT_EQ((target.*Format::kSecond).mData, piece.second.data());
  EXPECT_EQ(target.mValues.mData, piece.values.data());
  EXPECT_EQ((target.*Format::kFirst).mAllocator, nullptr);
  EXPECT_EQ((target.*Format::kSecond).mAllocator, nullptr);
  EXPECT_EQ(target.mValues.mAllocator, nullptr);
  EXPECT_EQ((target.*Format::kFirst).mCapacity, static_cast<long>(piece.first.size()));
}

TYPED_TEST(CompressedGather, BorrowsTheRootsOwnArraysWhereEveryProcessHoldsTheWhole) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const piece = CompressedWholeOn<Format>(comm->Rank(), comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_THAT(rank.comm->Texts(),
                ElementsAre("Rank()", "Size()", "Rank()", kExchange, "Size()"));
    EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(144)});
    if (comm->Rank() == 0) {
      ExpectBorrowed<Format>(rank, piece);
    } else {
      EXPECT_EQ(rank.aggregator.Target(), nullptr);
    }
  });
}

TYPED_TEST(CompressedGather, BorrowsOnAHolderThatReceives) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const piece = CompressedWholeOn<Format>(0, comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_THAT(rank.comm->DataTexts(), ElementsAre(kExchange));
    if (comm->Rank() == 0) ExpectBorrowed<Format>(rank, piece);
  });
}

TYPED_TEST(CompressedGather, BroadcastsTheWholeWithItsBaseFromItsHolderToEveryRank) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const piece = CompressedWholeOn<Format>(1, comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_THAT(rank.comm->DataTexts(),
                ElementsAre(kExchange, "Bcast(3 int; root 1)", "Bcast(3 int; root 1)",
                            "Bcast(3 double; root 1)"));
    ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {1, 3, 4}, {0, 2, 4},
                         {10, 20, 30});
    if (comm->Rank() == 1) {
      ExpectBorrowed<Format>(rank, piece);
    } else {
      EXPECT_EQ(rank.pool.Events(),
                (std::vector<PoolEvent>{Took(144), Took(12), Took(12), Took(24)}));
    }
  });
}

TYPED_TEST(CompressedGather, SendsZeroOffsetsOfAHolderWithoutOffsets) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const piece =
        comm->Rank() == 1 ? Format::Make(2, 5, {}, {}, {1}) : Format::Make(0, 0, {}, {}, {});

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    if (comm->Rank() == 0) {
      ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {0, 0, 0}, {}, {});
    } else {
      EXPECT_EQ(rank.pool.Events(),
                (std::vector<PoolEvent>{Took(144), Took(12), GaveBack(12)}));
    }
  });
}

TYPED_TEST(CompressedGather, TakesOffsetsThatAreNotInUseForNone) {
  using Format = TypeParam;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto holder = Format::Make(2, 5, {3, 4, 5}, {}, {1});
    (holder.matrix.*Format::kFirst).mSize = 0;
    auto const empty = Format::Make(0, 0, {}, {}, {});
    auto const& piece = comm->Rank() == 1 ? holder : empty;

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    if (comm->Rank() == 0)
      ExpectArrays<Format>(rank.Target<typename Format::Matrix>(), {0, 0, 0}, {}, {});
  });
}

TYPED_TEST(CompressedGather, BorrowsTheMissingOffsetsOfAHolderThatReceivesAlone) {
  using Format = TypeParam;
  auto const holder = Format::Make(2, 5, {}, {}, {1});
  auto const empty = Format::Make(0, 0, {}, {}, {});
  RankUnderTest<> rank(ScriptedRank(0, {&holder.matrix, &empty.matrix}));

  ASSERT_EQ(Gather(rank, holder.matrix).status, STATUS_OK);

  EXPECT_EQ((rank.Target<typename Format::Matrix>().*Format::kFirst).mData, nullptr);
  EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(144)});
}

}  // namespace
}  // namespace Pavex
