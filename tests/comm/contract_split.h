// Part of contract.h: a group divides into groups, which move data of their own.

#pragma once

#include "tests/comm/contract_ranks.h"

#include <memory>
#include <vector>

namespace Pavex {

// The number that each rank of `comm` passes, in rank order.
inline std::vector<int> Everyones(Comm const& comm, int mine) {
  std::vector<int> numbers(static_cast<std::size_t>(comm.Size()), -1);
  EXPECT_EQ(comm.Allgather(&mine, 1, DATATYPE_INT, numbers.data(), 1, DATATYPE_INT), STATUS_OK);
  return numbers;
}

template <typename Launcher>
class CommSplit : public ::testing::Test {};
TYPED_TEST_SUITE_P(CommSplit);

TYPED_TEST_P(CommSplit, GivesEachColorAGroupInOrderOfKeys) {
  OnRanks<TypeParam>([](Comm const& comm) {
    int const rank = comm.Rank();
    std::vector<int> expected;
    for (int r = comm.Size() - 1; r >= 0; --r) {
      if (r % 2 == rank % 2) expected.push_back(r);
    }

    std::shared_ptr<Comm> const part = TypeParam::Split(comm, rank % 2, -rank);

    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->Size(), static_cast<int>(expected.size()));
    EXPECT_EQ(expected[static_cast<std::size_t>(part->Rank())], rank);
    EXPECT_EQ(Everyones(*part, rank), expected);
  });
}

TYPED_TEST_P(CommSplit, OrdersEqualKeysByRankAndLeavesOutNegativeColors) {
  OnRanks<TypeParam>([](Comm const& comm) {
    int const rank = comm.Rank();
    std::vector<int> expected;
    for (int r = 1; r < comm.Size(); ++r)
      expected.push_back(r);

    std::shared_ptr<Comm> const part = TypeParam::Split(comm, rank == 0 ? -7 : 3, 5);

    ASSERT_EQ(part == nullptr, rank == 0);
    if (part != nullptr) {
      EXPECT_EQ(Everyones(*part, rank), expected);
    }
    EXPECT_EQ(Everyones(comm, rank).back(), comm.Size() - 1);
  });
}

TYPED_TEST_P(CommSplit, LeavesOutEveryRankIfAllColorsAreNegative) {
  OnRanks<TypeParam>([](Comm const& comm) {
    EXPECT_EQ(TypeParam::Split(comm, -1, 0), nullptr);
    EXPECT_EQ(Everyones(comm, comm.Rank()).back(), comm.Size() - 1);
  });
}

// Every group sends messages and collects at the same time, also with the tags and roots of the
// whole.
TYPED_TEST_P(CommSplit, KeepsTheDataOfGroupsApart) {
  OnRanks<TypeParam>([](Comm const& comm) {
    int const rank = comm.Rank();
    std::shared_ptr<Comm> const part = TypeParam::Split(comm, rank % 2, rank);
    ASSERT_NE(part, nullptr);
    int const size = part->Size();
    int const last = size - 1;

    int received = -1;
    if (part->Rank() == 0 && size > 1) {
      EXPECT_EQ(part->Send(&rank, 1, DATATYPE_INT, last, 50), STATUS_OK);
    } else if (part->Rank() == last && size > 1) {
      EXPECT_EQ(part->Recv(&received, 1, DATATYPE_INT, 0, 50), STATUS_OK);
      EXPECT_EQ(received, rank % 2);
    }
    std::vector<int> const ones(static_cast<std::size_t>(size), 1);
    std::vector<int> displs;
    std::vector<int> expected;
    for (int r = 0; r < size; ++r) {
      displs.push_back(r);
      expected.push_back(2 * r + rank % 2);
    }
    std::vector<int> gathered(ones.size(), -1);
    EXPECT_EQ(part->Gatherv(&rank, 1, DATATYPE_INT, gathered.data(), ones.data(), displs.data(),
                            DATATYPE_INT, last),
              STATUS_OK);

    if (part->Rank() == last) {
      EXPECT_EQ(gathered, expected);
    }
    EXPECT_EQ(Everyones(comm, rank).back(), comm.Size() - 1);
  });
}

TYPED_TEST_P(CommSplit, DividesAGroupAgainThatOutlivesTheFirst) {
  OnRanks<TypeParam>([](Comm const& comm) {
    int const rank = comm.Rank();
    std::shared_ptr<Comm> part = TypeParam::Split(comm, rank == 0 ? -1 : 0, -rank);
    std::shared_ptr<Comm> half;
    if (part != nullptr) half = TypeParam::Split(*part, rank % 2, 0);
    part.reset();

    ASSERT_EQ(half == nullptr, rank == 0);
    if (half != nullptr) {
      EXPECT_EQ(Everyones(*half, rank).back(), rank % 2 == 0 ? 2 : 1);
    }
  });
}

REGISTER_TYPED_TEST_SUITE_P(CommSplit, GivesEachColorAGroupInOrderOfKeys,
                            OrdersEqualKeysByRankAndLeavesOutNegativeColors,
                            LeavesOutEveryRankIfAllColorsAreNegative, KeepsTheDataOfGroupsApart,
                            DividesAGroupAgainThatOutlivesTheFirst);

}  // namespace Pavex
