// The order in which an Assembler adds what overlaps: 1 is lost next to 1e16, so the sum of 1,
// 1e16 and -1e16 shows the order.

#include "pavex/assembly/assembler.h"
#include "tests/assembly/small_case.h"

#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

constexpr double kLarge = 1e16;
static_assert(kLarge + 1 - kLarge == 0, "the 1 is lost");

constexpr int kFirst[] = {0, 0};  // a row or column for each entry
constexpr int kOffsets[] = {0, 1, 2};

// The only element of a 1 x 1 matrix that `own` and other ranks pass, on every rank.
double ElementOf(std::shared_ptr<Comm> const& comm, Assembler<double, int>& assembler,
                 Own const& own) {
  EXPECT_EQ(assembler.Gather(comm, own, Square(1, kEverybody)), STATUS_OK);
  return assembler.Whole()->mValues.mData[0];
}

TEST(OrderOfAddition, IsThatOfTheRanks) {
  using Values = std::array<double, 3>;
  for (Values const& values :
       {Values{1, kLarge, -kLarge}, Values{kLarge, 1, -kLarge}, Values{kLarge, -kLarge, 1}}) {
    double const sum = values[2] == 1 ? 1 : 0;
    OnRanks(3, [&](auto const& comm, Assembler<double, int>& assembler) {
      double const* const mine = &values[static_cast<std::size_t>(comm->Rank())];
      auto const own = Own::Band(0, 1).Csr(kOffsets, kFirst, mine);
      EXPECT_EQ(ElementOf(comm, assembler, own), sum);
      ASSERT_EQ(assembler.UpdateInPlace(mine), STATUS_OK);
      EXPECT_EQ(assembler.Whole()->mValues.mData[0], sum);
    });
  }
}

// The sum of 1 on rank 0 and of what rank 1 passes.
void ExpectOneAnd(Own const& other, double sum) {
  double const one = 1;
  OnRanks(2, [&](auto const& comm, Assembler<double, int>& assembler) {
    auto const first = Own::Band(0, 1).Csr(kOffsets, kFirst, &one);
    EXPECT_EQ(ElementOf(comm, assembler, comm->Rank() == 0 ? first : other), sum);
  });
}

TEST(OrderOfAddition, BeginsWithTheEntriesOfARowOnItsProcess) {
  double const values[] = {kLarge, -kLarge};
  int const offsets[] = {0, 2};

  ExpectOneAnd(Own().Coo(2, kFirst, kFirst, values), 1);
  ExpectOneAnd(Own::Band(0, 1).Csr(offsets, kFirst, values), 1);
}

TEST(OrderOfAddition, TakesARowThatAListRepeatsForSeveralUnlessTheProcessPassesCoordinates) {
  double const values[] = {kLarge, -kLarge};
  int const rows[] = {0, 1};  // of the list

  ExpectOneAnd(Own::Rows(2, kFirst).Csr(kOffsets, kFirst, values), 0);
  ExpectOneAnd(Own::Rows(2, kFirst).LocalCoo(2, rows, kFirst, values), 1);
}

TEST(OrderOfAddition, IsThatOfBlocksAndEntriesWithinAProcess) {
  double const values[] = {kLarge, 1, -kLarge, 1};
  int const two[] = {0, 2};
  int const one[] = {0, 1};
  OnRanks(1, [&](auto const& comm, Assembler<double, int>& assembler) {
    Own const band = Own::Band(0, 1);
    auto const entries = [](Own own, long nnz, double const* first) {
      return own.Coo(nnz, kFirst, kFirst, first);
    };
    EXPECT_EQ(ElementOf(comm, assembler,
                        Own(band).Csr(two, kFirst, values).Csr(one, kFirst, values + 2)),
              0);
    EXPECT_EQ(ElementOf(comm, assembler,
                        Own(band).Csr(one, kFirst, values).Csr(two, kFirst, values + 2)),
              1);
    EXPECT_EQ(ElementOf(comm, assembler, entries(entries(band, 1, values), 2, values + 2)), 1);
    EXPECT_EQ(ElementOf(comm, assembler, entries(entries(band, 2, values), 1, values + 2)), 0);
  });
}

}  // namespace
}  // namespace Pavex
