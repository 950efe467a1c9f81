// Part of contract.h: what the collective operations move, for every element type.

#pragma once

#include "tests/comm/contract_ranks.h"

#include <chrono>
#include <numeric>
#include <thread>

namespace Pavex {

template <typename Case>
class CommCollective : public ::testing::Test {};
TYPED_TEST_SUITE_P(CommCollective);

TYPED_TEST_P(CommCollective, GathervPlacesThePiecesOnTheRootAlone) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    bool const isRoot = comm.Rank() == root;
    for (Layout const layout : kLayouts) {
      Pieces<T> const pieces(comm.Size(), layout);
      std::vector<T> const mine = pieces.Of(comm.Rank());
      std::vector<T> whole = pieces.None();

      PavexStatus const status =
          comm.Gatherv(mine.data(), pieces.Count(comm.Rank()), TypeParam::kType, whole.data(),
                       isRoot ? pieces.mCounts.data() : nullptr,
                       isRoot ? pieces.mDispls.data() : nullptr, TypeParam::kType, root);

      EXPECT_EQ(status, STATUS_OK);
      EXPECT_EQ(whole, isRoot ? pieces.All() : pieces.None());
    }
  });
}

TYPED_TEST_P(CommCollective, GathervInPlaceKeepsThePieceOfTheRoot) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    bool const isRoot = comm.Rank() == root;
    for (Layout const layout : kLayouts) {
      Pieces<T> const pieces(comm.Size(), layout);
      std::vector<T> const mine = pieces.Of(comm.Rank());
      std::vector<T> whole = pieces.Only(comm.Rank());

      PavexStatus const status =
          isRoot ? comm.Gatherv(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, whole.data(),
                                pieces.mCounts.data(), pieces.mDispls.data(), TypeParam::kType,
                                root)
                 : comm.Gatherv(mine.data(), pieces.Count(comm.Rank()), TypeParam::kType,
                                nullptr, nullptr, nullptr, TypeParam::kType, root);

      EXPECT_EQ(status, STATUS_OK);
      EXPECT_EQ(whole, isRoot ? pieces.All() : pieces.Only(comm.Rank()));
    }
  });
}

TYPED_TEST_P(CommCollective, ScattervHandsEachRankItsPieceAndNoMore) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    bool const isRoot = comm.Rank() == root;
    for (Layout const layout : kLayouts) {
      Pieces<T> const pieces(comm.Size(), layout);
      std::vector<T> const whole = pieces.All();
      int const count = pieces.Count(comm.Rank());
      std::vector<T> piece(static_cast<std::size_t>(count) + 1, T(77));

      PavexStatus const status = comm.Scatterv(
          isRoot ? whole.data() : nullptr, isRoot ? pieces.mCounts.data() : nullptr,
          isRoot ? pieces.mDispls.data() : nullptr, TypeParam::kType, piece.data(), count,
          TypeParam::kType, root);

      std::vector<T> expected = pieces.Of(comm.Rank());
      expected.push_back(T(77));
      EXPECT_EQ(status, STATUS_OK);
      EXPECT_EQ(piece, expected);
      EXPECT_EQ(whole, pieces.All());
    }
  });
}

// Every rank sends its own version of the whole array: piece r of it to rank r.
TYPED_TEST_P(CommCollective, AlltoallvExchangesAPieceBetweenEveryTwoRanks) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    auto const size = static_cast<std::size_t>(comm.Size());
    for (Layout const layout : kLayouts) {
      Pieces<T> const pieces(comm.Size(), layout);
      std::vector<T> sent = pieces.None();
      for (int to = 0; to < comm.Size(); ++to) {
        auto element = sent.begin() + pieces.mDispls[static_cast<std::size_t>(to)];
        for (int i = 0; i < pieces.Count(to); ++i)
          *element++ = Make<T>::Of(comm.Rank(), 10 * to + i);
      }
      // There is a gap of one element before the `count` elements of each rank.
      int const count = pieces.Count(comm.Rank());
      std::vector<int> const counts(size, count);
      std::vector<int> displs;
      std::vector<T> expected;
      for (int from = 0; from < comm.Size(); ++from) {
        expected.push_back(T(77));
        displs.push_back(static_cast<int>(expected.size()));
        for (int i = 0; i < count; ++i)
          expected.push_back(Make<T>::Of(from, 10 * comm.Rank() + i));
      }
      std::vector<T> received(expected.size(), T(77));

      PavexStatus const status = comm.Alltoallv(
          sent.data(), pieces.mCounts.data(), pieces.mDispls.data(), TypeParam::kType,
          received.data(), counts.data(), displs.data(), TypeParam::kType);

      EXPECT_EQ(status, STATUS_OK);
      EXPECT_EQ(received, expected);
    }
  });
}

// The two elements of each rank in rank order, followed by one that belongs to no rank.
template <typename T>
std::vector<T> TwoOfEach(int size) {
  std::vector<T> whole;
  for (int r = 0; r < size; ++r)
    whole.insert(whole.end(), {Make<T>::Of(r, 0), Make<T>::Of(r, 1)});
  whole.push_back(T(77));
  return whole;
}

TYPED_TEST_P(CommCollective, AllgatherPlacesEqualPiecesInRankOrder) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    std::vector<T> const mine = ElementsOf<T>(comm.Rank(), 2);
    std::vector<T> const expected = TwoOfEach<T>(comm.Size());
    std::vector<T> whole(expected.size(), T(77));

    PavexStatus const status =
        comm.Allgather(mine.data(), 2, TypeParam::kType, whole.data(), 2, TypeParam::kType);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(whole, expected);
  });
}

TYPED_TEST_P(CommCollective, AllgatherInPlaceReadsTheSlotOfEachRank) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    std::vector<T> const mine = ElementsOf<T>(comm.Rank(), 2);
    std::vector<T> const expected = TwoOfEach<T>(comm.Size());
    std::vector<T> whole(expected.size(), T(77));
    std::copy(mine.begin(), mine.end(), whole.begin() + 2 * comm.Rank());

    PavexStatus const status = comm.Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE,
                                              whole.data(), 2, TypeParam::kType);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(whole, expected);
  });
}

TYPED_TEST_P(CommCollective, AllgathervPlacesThePiecesOnEveryRank) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    for (Layout const layout : kLayouts) {
      Pieces<T> const pieces(comm.Size(), layout);
      std::vector<T> const mine = pieces.Of(comm.Rank());
      std::vector<T> whole = pieces.None();

      PavexStatus const status = comm.Allgatherv(
          mine.data(), pieces.Count(comm.Rank()), TypeParam::kType, whole.data(),
          pieces.mCounts.data(), pieces.mDispls.data(), TypeParam::kType);

      EXPECT_EQ(status, STATUS_OK);
      EXPECT_EQ(whole, pieces.All());
    }
  });
}

TYPED_TEST_P(CommCollective, AllgathervInPlaceReadsThePieceOfEachRank) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    for (Layout const layout : kLayouts) {
      Pieces<T> const pieces(comm.Size(), layout);
      std::vector<T> whole = pieces.Only(comm.Rank());

      PavexStatus const status =
          comm.Allgatherv(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, whole.data(),
                          pieces.mCounts.data(), pieces.mDispls.data(), TypeParam::kType);

      EXPECT_EQ(status, STATUS_OK);
      EXPECT_EQ(whole, pieces.All());
    }
  });
}

TYPED_TEST_P(CommCollective, AllgathervPlacesThePiecesDifferentlyOnEachRank) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    Pieces<T> const pieces(comm.Size(), kLayouts[comm.Rank() % 2]);
    std::vector<T> const mine = pieces.Of(comm.Rank());
    std::vector<T> whole = pieces.None();

    PavexStatus const status =
        comm.Allgatherv(mine.data(), pieces.Count(comm.Rank()), TypeParam::kType, whole.data(),
                        pieces.mCounts.data(), pieces.mDispls.data(), TypeParam::kType);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(whole, pieces.All());
  });
}

TYPED_TEST_P(CommCollective, BcastCopiesTheElementsOfTheRoot) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    std::vector<T> buffer = ElementsOf<T>(comm.Rank(), 3);
    buffer.push_back(T(77));

    PavexStatus const status = comm.Bcast(buffer.data(), 3, TypeParam::kType, root);

    std::vector<T> expected = ElementsOf<T>(root, 3);
    expected.push_back(T(77));
    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(buffer, expected);
  });
}

TYPED_TEST_P(CommCollective, AllreduceAddsElementByElement) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    int const size = comm.Size();
    std::vector<T> const mine = {T(1), Small<T>(comm.Rank())};
    std::vector<T> sums(3, T(77));

    PavexStatus const status =
        comm.Allreduce(mine.data(), sums.data(), 2, TypeParam::kType, REDUCE_SUM);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(sums, (std::vector<T>{Small<T>(size), Small<T>(size * (size - 1) / 2), T(77)}));
  });
}

TYPED_TEST_P(CommCollective, ZeroCountsNeedNoBuffers) {
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    Datatype const type = TypeParam::kType;
    std::vector<int> const zeros(static_cast<std::size_t>(comm.Size()), 0);
    int const* const z = zeros.data();

    EXPECT_EQ(comm.Gatherv(nullptr, 0, type, nullptr, z, z, type, root), STATUS_OK);
    EXPECT_EQ(comm.Scatterv(nullptr, z, z, type, nullptr, 0, type, root), STATUS_OK);
    EXPECT_EQ(comm.Alltoallv(nullptr, z, z, type, nullptr, z, z, type), STATUS_OK);
    EXPECT_EQ(comm.Allgather(nullptr, 0, type, nullptr, 0, type), STATUS_OK);
    EXPECT_EQ(comm.Allgatherv(nullptr, 0, type, nullptr, z, z, type), STATUS_OK);
    EXPECT_EQ(comm.Allreduce(nullptr, nullptr, 0, type, REDUCE_SUM), STATUS_OK);
    EXPECT_EQ(comm.Bcast(nullptr, 0, type, root), STATUS_OK);
  });
}

// Ranks without elements take part in collectives in which others have some.
TYPED_TEST_P(CommCollective, OnlyOneRankHasElements) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int holder) {
    bool const holds = comm.Rank() == holder;
    std::vector<T> const mine = ElementsOf<T>(holder, 2);
    std::vector<int> counts(static_cast<std::size_t>(comm.Size()), 0);
    std::vector<int> const displs(counts.size(), 1);
    counts[static_cast<std::size_t>(holder)] = 2;
    std::vector<T> whole(4, T(77));

    PavexStatus const status =
        comm.Allgatherv(holds ? mine.data() : nullptr, holds ? 2 : 0, TypeParam::kType,
                        whole.data(), counts.data(), displs.data(), TypeParam::kType);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(whole, (std::vector<T>{T(77), mine[0], mine[1], T(77)}));
  });
}

REGISTER_TYPED_TEST_SUITE_P(
    CommCollective, GathervPlacesThePiecesOnTheRootAlone, GathervInPlaceKeepsThePieceOfTheRoot,
    ScattervHandsEachRankItsPieceAndNoMore, AlltoallvExchangesAPieceBetweenEveryTwoRanks,
    AllgatherPlacesEqualPiecesInRankOrder, AllgatherInPlaceReadsTheSlotOfEachRank,
    AllgathervPlacesThePiecesOnEveryRank, AllgathervInPlaceReadsThePieceOfEachRank,
    AllgathervPlacesThePiecesDifferentlyOnEachRank, BcastCopiesTheElementsOfTheRoot,
    AllreduceAddsElementByElement, ZeroCountsNeedNoBuffers, OnlyOneRankHasElements);

template <typename Case>
class CommOrderedReduction : public ::testing::Test {};
TYPED_TEST_SUITE_P(CommOrderedReduction);

// The first rank has neither extreme. In groups of three and more, the last rank has at most
// one.
TYPED_TEST_P(CommOrderedReduction, FindsMinimumAndMaximum) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    int const size = comm.Size();
    int const turned = (comm.Rank() + size / 2) % size;
    std::vector<T> const mine = {Small<T>(200 + turned), Small<T>(7)};
    std::vector<T> least(2);
    std::vector<T> greatest(2);

    PavexStatus const minimum =
        comm.Allreduce(mine.data(), least.data(), 2, TypeParam::kType, REDUCE_MIN);
    PavexStatus const maximum =
        comm.Allreduce(mine.data(), greatest.data(), 2, TypeParam::kType, REDUCE_MAX);

    EXPECT_EQ(minimum, STATUS_OK);
    EXPECT_EQ(maximum, STATUS_OK);
    EXPECT_EQ(least, (std::vector<T>{Small<T>(200), Small<T>(7)}));
    EXPECT_EQ(greatest, (std::vector<T>{Small<T>(200 + size - 1), Small<T>(7)}));
  });
}

REGISTER_TYPED_TEST_SUITE_P(CommOrderedReduction, FindsMinimumAndMaximum);

template <typename Launcher>
class CommGroup : public ::testing::Test {};
TYPED_TEST_SUITE_P(CommGroup);

TYPED_TEST_P(CommGroup, NumbersItsRanksFromZero) {
  OnRanks<TypeParam>([](Comm const& comm) {
    int const mine = comm.Rank();
    std::vector<int> ranks(static_cast<std::size_t>(comm.Size()), -1);

    PavexStatus const status =
        comm.Allgather(&mine, 1, DATATYPE_INT, ranks.data(), 1, DATATYPE_INT);

    std::vector<int> expected(ranks.size());
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(ranks, expected);
  });
}

// The ranks share one machine and so one steady clock.
TYPED_TEST_P(CommGroup, HoldsEachRankInABarrierUntilTheLastHasEntered) {
  auto const now = [] {
    return static_cast<long>(std::chrono::steady_clock::now().time_since_epoch().count());
  };
  OnRanks<TypeParam>([now](Comm const& comm) {
    if (comm.Rank() == comm.Size() - 1)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));

    long const mine = now();
    PavexStatus const status = comm.Barrier();
    long const left = now();

    std::vector<long> entered(static_cast<std::size_t>(comm.Size()));
    EXPECT_EQ(comm.Allgather(&mine, 1, DATATYPE_LONG, entered.data(), 1, DATATYPE_LONG),
              STATUS_OK);
    EXPECT_EQ(status, STATUS_OK);
    EXPECT_GE(left, *std::max_element(entered.begin(), entered.end()));
  });
}

TYPED_TEST_P(CommGroup, WrapsSumsOfBytes) {
  OnRanks<TypeParam>([](Comm const& comm) {
    unsigned char const mine = comm.Rank() == 0 ? 255 : 1;
    unsigned char sum = 77;

    PavexStatus const status = comm.Allreduce(&mine, &sum, 1, DATATYPE_BYTE, REDUCE_SUM);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(sum, (255 + comm.Size() - 1) % 256);
  });
}

// The pieces are so large that no communicator sends them at once or keeps them in a buffer.
TYPED_TEST_P(CommGroup, GathersAndScattersLargePieces) {
  OnRanks<TypeParam>([](Comm const& comm) {
    constexpr int kEach = 100000;
    std::vector<int> const counts(static_cast<std::size_t>(comm.Size()), kEach);
    std::vector<int> displs;
    std::vector<int> expected;
    for (int r = 0; r < comm.Size(); ++r) {
      displs.push_back(r * kEach);
      std::vector<int> const piece = ElementsOf<int>(r, kEach);
      expected.insert(expected.end(), piece.begin(), piece.end());
    }
    std::vector<int> const mine = ElementsOf<int>(comm.Rank(), kEach);
    std::vector<int> whole(expected.size(), -1);
    std::vector<int> back(mine.size(), -1);

    EXPECT_EQ(comm.Allgatherv(mine.data(), kEach, DATATYPE_INT, whole.data(), counts.data(),
                              displs.data(), DATATYPE_INT),
              STATUS_OK);
    EXPECT_EQ(comm.Scatterv(whole.data(), counts.data(), displs.data(), DATATYPE_INT,
                            back.data(), kEach, DATATYPE_INT, 0),
              STATUS_OK);
    EXPECT_TRUE(whole == expected);
    EXPECT_TRUE(back == mine);
  });
}

REGISTER_TYPED_TEST_SUITE_P(CommGroup, NumbersItsRanksFromZero,
                            HoldsEachRankInABarrierUntilTheLastHasEntered, WrapsSumsOfBytes,
                            GathersAndScattersLargePieces);

}  // namespace Pavex
