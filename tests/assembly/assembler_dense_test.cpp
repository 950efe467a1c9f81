// Dense matrices that an Assembler scatters and collects, and what that costs.

#include "pavex/assembly/assembler.h"
#include "tests/assembly/small_case.h"

#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Pavex {
namespace {

TEST(AssemblerCollect, AsksAProcessWithoutRowsForNoDenseMatrix) {
  TwoBands const bands;
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    using Dense = MatrixDense<double, int>;
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);
    bool const receives = comm->Rank() == 1;
    std::vector<double> mine = {1, 2, 3, 4};
    std::vector<double> all(8, 9);
    Dense own = receives ? Dense() : Dense::Borrow(2, 2, false, 2, mine.data());
    Dense whole = receives ? Dense::Borrow(4, 2, false, 4, all.data()) : Dense();
    ASSERT_EQ(assembler.Collect(own, Overlap::ADD, whole), STATUS_OK);
    if (receives) {
      EXPECT_EQ(all, (std::vector<double>{1, 2, 1, 2, 3, 4, 3, 4}));
      all = {10, 11, 12, 13, 20, 21, 22, 23};
    }
    ASSERT_EQ(assembler.Scatter(whole, own), STATUS_OK);
    if (comm->Rank() == 0) {
      EXPECT_EQ(mine, (std::vector<double>{12, 13, 22, 23}));
    }
    if (comm->Rank() == 2) {
      EXPECT_EQ(mine, (std::vector<double>{10, 11, 20, 21}));
    }
  });
}

TEST(AssemblerCollect, CopiesTheOnlyElementOfARowWithTheSignOfItsZero) {
  OnRanks(2, [](auto const& comm, Assembler<double, int>& assembler) {
    // Row 0 belongs to both processes, row 1 to process 1, row 2 to no process.
    std::vector<int> const offsets = {0, 1, 1};
    int const col = 0;
    double const one = 1;
    long const rows = comm->Rank() + 1;
    ASSERT_EQ(
        assembler.Gather(comm, Own::Band(0, rows).Csr(offsets.data(), &col, &one), Square(3)),
        STATUS_OK);
    using Dense = MatrixDense<double, int>;
    std::vector<double> mine = {comm->Rank() == 0 ? -0.0 : 0.0, -0.0};
    std::vector<double> all(3, -7);
    Dense const own = Dense::Borrow(rows, 1, false, rows, mine.data());
    Dense whole = comm->Rank() == 0 ? Dense::Borrow(3, 1, false, 3, all.data()) : Dense();
    ASSERT_EQ(assembler.Collect(own, Overlap::ADD, whole), STATUS_OK);

    if (comm->Rank() != 0) return;
    EXPECT_EQ(all, (std::vector<double>{0, 0, 0}));
    EXPECT_FALSE(std::signbit(all[0]));  // -0 + 0
    EXPECT_TRUE(std::signbit(all[1]));   // -0 alone
    EXPECT_FALSE(std::signbit(all[2]));  // nothing
  });
}

}  // namespace
}  // namespace Pavex
