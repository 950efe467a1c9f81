// Part of contract.h: what the operations that move runs do, for every element type. A
// communicator that does not have them says so.

#pragma once

#include "tests/comm/contract_ranks.h"

#include <climits>
#include <cstddef>

namespace Pavex {

// The pieces of `ranks` ranks, three runs each, of (r + 1) % 3 elements of rank r. They lie
// side by side in the whole array, which has two elements more to each run, and begin at
// element 1 of the array of their rank, which has one element more to each run. For three
// ranks, and the elements of rank r written as r:
//   whole    0 1 1 . . 0 1 1 . . 0 1 1 . .
//   rank 1   . 1 1 . 1 1 . 1 1 .
template <typename T>
class SideBySide {
 public:
  explicit SideBySide(int ranks) {
    long width = 0;
    for (int r = 0; r < ranks; ++r) {
      long const length = (r + 1) % 3;
      mWhole.push_back({width, length, kRuns, 0});
      width += length;
    }
    for (Runs& runs : mWhole)
      runs.stride = width + 2;
    mSize = static_cast<std::size_t>(kRuns * (width + 2));
  }

  // Where the pieces are in the whole array, and where that of a rank is in its own.
  Runs const* Places() const { return mWhole.data(); }
  Runs Own(int rank) const {
    long const length = Length(rank);
    return {1, length, kRuns, length + 1};
  }
  // The elements of a piece as one run.
  Runs Packed(int rank) const { return {0, kRuns * Length(rank), 1, 0}; }

  std::vector<T> NoWhole() const { return std::vector<T>(mSize, T(77)); }
  std::vector<T> Whole() const {
    std::vector<T> array = NoWhole();
    for (int r = 0; r < static_cast<int>(mWhole.size()); ++r)
      Fill(r, mWhole[static_cast<std::size_t>(r)], array);
    return array;
  }
  std::vector<T> NoPiece(int rank) const {
    return std::vector<T>(static_cast<std::size_t>(kRuns * (Length(rank) + 1) + 1), T(77));
  }
  std::vector<T> Piece(int rank) const {
    std::vector<T> array = NoPiece(rank);
    Fill(rank, Own(rank), array);
    return array;
  }
  std::vector<T> PackedPiece(int rank) const {
    return ElementsOf<T>(rank, static_cast<int>(kRuns * Length(rank)));
  }

 private:
  static constexpr long kRuns = 3;

  long Length(int rank) const { return mWhole[static_cast<std::size_t>(rank)].length; }
  void Fill(int rank, Runs const& runs, std::vector<T>& array) const {
    std::vector<T> const elements = PackedPiece(rank);
    for (long k = 0; k < kRuns; ++k)
      for (long t = 0; t < runs.length; ++t)
        array[static_cast<std::size_t>(runs.begin + k * runs.stride + t)] =
            elements[static_cast<std::size_t>(k * runs.length + t)];
  }

  std::vector<Runs> mWhole;
  std::size_t mSize = 0;
};

template <typename Case>
class CommRuns : public ::testing::Test {};
TYPED_TEST_SUITE_P(CommRuns);

TYPED_TEST_P(CommRuns, AreSupportedEverywhereOrNowhere) {
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    int const mine = comm.Strided() ? 1 : 0;
    std::vector<int> all(static_cast<std::size_t>(comm.Size()), -1);

    EXPECT_EQ(comm.Allgather(&mine, 1, DATATYPE_INT, all.data(), 1, DATATYPE_INT), STATUS_OK);

    EXPECT_EQ(all, std::vector<int>(all.size(), mine));
  });
}

TYPED_TEST_P(CommRuns, AreGatheredOnTheRootAlone) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    SideBySide<T> const pieces(comm.Size());
    std::vector<T> const mine = pieces.Piece(comm.Rank());
    std::vector<T> whole = pieces.NoWhole();
    bool const isRoot = comm.Rank() == root;

    PavexStatus const status =
        comm.GatherRuns(mine.data(), pieces.Own(comm.Rank()), isRoot ? whole.data() : nullptr,
                        isRoot ? pieces.Places() : nullptr, TypeParam::kType, root);

    EXPECT_EQ(status, comm.Strided() ? STATUS_OK : STATUS_NOT_SUPPORTED);
    EXPECT_EQ(whole, isRoot && comm.Strided() ? pieces.Whole() : pieces.NoWhole());
  });
}

TYPED_TEST_P(CommRuns, AreGatheredOnEveryRank) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    SideBySide<T> const pieces(comm.Size());
    std::vector<T> const mine = pieces.Piece(comm.Rank());
    std::vector<T> whole = pieces.NoWhole();

    PavexStatus const status =
        comm.GatherRuns(mine.data(), pieces.Own(comm.Rank()), whole.data(), pieces.Places(),
                        TypeParam::kType, -1);

    EXPECT_EQ(status, comm.Strided() ? STATUS_OK : STATUS_NOT_SUPPORTED);
    EXPECT_EQ(whole, comm.Strided() ? pieces.Whole() : pieces.NoWhole());
  });
}

TYPED_TEST_P(CommRuns, AreScatteredToTheirRanksAndNoMore) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    int const rank = comm.Rank();
    SideBySide<T> const pieces(comm.Size());
    std::vector<T> const whole = pieces.Whole();
    std::vector<T> mine = pieces.NoPiece(rank);
    bool const isRoot = rank == root;

    PavexStatus const status =
        comm.ScatterRuns(isRoot ? whole.data() : nullptr, isRoot ? pieces.Places() : nullptr,
                         mine.data(), pieces.Own(rank), TypeParam::kType, root);

    EXPECT_EQ(status, comm.Strided() ? STATUS_OK : STATUS_NOT_SUPPORTED);
    EXPECT_EQ(mine, comm.Strided() ? pieces.Piece(rank) : pieces.NoPiece(rank));
  });
}

TYPED_TEST_P(CommRuns, FollowEachOtherOnOneSide) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    if (!comm.Strided()) return;
    int const rank = comm.Rank();
    SideBySide<T> const pieces(comm.Size());
    std::vector<T> const mine = pieces.PackedPiece(rank);
    std::vector<T> whole = pieces.NoWhole();
    std::vector<T> back(mine.size(), T(77));

    PavexStatus const gathered = comm.GatherRuns(mine.data(), pieces.Packed(rank), whole.data(),
                                                 pieces.Places(), TypeParam::kType, 0);
    PavexStatus const scattered = comm.ScatterRuns(whole.data(), pieces.Places(), back.data(),
                                                   pieces.Packed(rank), TypeParam::kType, 0);

    EXPECT_EQ(gathered, STATUS_OK);
    EXPECT_EQ(whole, rank == 0 ? pieces.Whole() : pieces.NoWhole());
    EXPECT_EQ(scattered, STATUS_OK);
    EXPECT_EQ(back, mine);
  });
}

TYPED_TEST_P(CommRuns, OfTheRootGoToSeveralRanks) {
  using T = typename TypeParam::Value;
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    if (!comm.Strided()) return;
    std::vector<T> const whole = ElementsOf<T>(root, 6);
    std::vector<Runs> const same(static_cast<std::size_t>(comm.Size()), Runs{1, 2, 2, 3});
    std::vector<T> mine(6, T(77));

    PavexStatus const status = comm.ScatterRuns(whole.data(), same.data(), mine.data(),
                                                {0, 2, 2, 4}, TypeParam::kType, root);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(mine, (std::vector<T>{whole[1], whole[2], T(77), T(77), whole[4], whole[5]}));
  });
}

TYPED_TEST_P(CommRuns, OfTheReceiverMayBeInTheirPlaceAlready) {
  using T = typename TypeParam::Value;
  OnRanks<typename TypeParam::Launcher>([](Comm const& comm) {
    if (!comm.Strided()) return;
    int const rank = comm.Rank();
    SideBySide<T> const pieces(comm.Size());
    std::vector<T> whole = pieces.Whole();

    PavexStatus const status =
        comm.GatherRuns(whole.data(), pieces.Places()[rank], whole.data(), pieces.Places(),
                        TypeParam::kType, 0);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(whole, pieces.Whole());
  });
}

TYPED_TEST_P(CommRuns, WithoutElementsNeedNoArrays) {
  OnRoots<typename TypeParam::Launcher>([](Comm const& comm, int root) {
    if (!comm.Strided()) return;
    std::vector<Runs> const none(static_cast<std::size_t>(comm.Size()), Runs{3, 0, 5, 1});

    EXPECT_EQ(comm.GatherRuns(nullptr, none[0], nullptr, none.data(), TypeParam::kType, root),
              STATUS_OK);
    EXPECT_EQ(comm.GatherRuns(nullptr, {}, nullptr, none.data(), TypeParam::kType, -1),
              STATUS_OK);
    EXPECT_EQ(comm.ScatterRuns(nullptr, none.data(), nullptr, {}, TypeParam::kType, root),
              STATUS_OK);
  });
}

REGISTER_TYPED_TEST_SUITE_P(CommRuns, AreSupportedEverywhereOrNowhere,
                            AreGatheredOnTheRootAlone, AreGatheredOnEveryRank,
                            AreScatteredToTheirRanksAndNoMore, FollowEachOtherOnOneSide,
                            OfTheRootGoToSeveralRanks, OfTheReceiverMayBeInTheirPlaceAlready,
                            WithoutElementsNeedNoArrays);

}  // namespace Pavex
