#include "pavex/matrix/index_base.h"

#include "tests/support/instances.h"
#include "tests/support/ledger_pool.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

template <typename Types>
class ShiftIndexBaseTest : public ::testing::Test {};
TYPED_TEST_SUITE(ShiftIndexBaseTest, AllInstances);

TYPED_TEST(ShiftIndexBaseTest, MovesRowsAndColumnsOfCoordinates) {
  using I = typename TypeParam::Index;
  std::vector<I> rows = {1, 3};
  std::vector<I> cols = {2, 1};
  auto matrix = MatrixCOO<typename TypeParam::Value, I>::Borrow(3, 2, 2, rows.data(),
                                                                cols.data(), nullptr);

  ShiftIndexBase(matrix, 1, 0);

  EXPECT_THAT(rows, ElementsAre(0, 2));
  EXPECT_THAT(cols, ElementsAre(1, 0));
}

// The offsets have the base of a single process, or 0 if they were put together from pieces.
TYPED_TEST(ShiftIndexBaseTest, LetsOffsetsOfRowsStartAtTheNewBaseWhereverTheyStarted) {
  using I = typename TypeParam::Index;
  for (I const first : {0, 1, 7}) {
    std::vector<I> offsets = {first, I(first + 2), I(first + 3)};
    std::vector<I> cols = {1, 3, 2};
    auto matrix = MatrixCSR<typename TypeParam::Value, I>::Borrow(2, 3, offsets.data(),
                                                                  cols.data(), nullptr);

    ShiftIndexBase(matrix, 1, 0);
    EXPECT_THAT(offsets, ElementsAre(0, 2, 3)) << first;
    EXPECT_THAT(cols, ElementsAre(0, 2, 1)) << first;

    ShiftIndexBase(matrix, 0, 1);
    EXPECT_THAT(offsets, ElementsAre(1, 3, 4)) << first;
    EXPECT_THAT(cols, ElementsAre(1, 3, 2)) << first;
  }
}

TYPED_TEST(ShiftIndexBaseTest, MovesOffsetsAndRowsOfCompressedColumns) {
  using I = typename TypeParam::Index;
  std::vector<I> offsets = {1, 1, 3, 4};
  std::vector<I> rows = {1, 2, 2};
  auto matrix = MatrixCSC<typename TypeParam::Value, I>::Borrow(2, 3, offsets.data(),
                                                                rows.data(), nullptr);

  ShiftIndexBase(matrix, 1, 0);

  EXPECT_THAT(offsets, ElementsAre(0, 0, 2, 3));
  EXPECT_THAT(rows, ElementsAre(0, 1, 1));
}

TEST(ShiftIndexBase, LeavesMatricesWithoutArraysAlone) {
  MatrixCSR<double, int> fresh;
  auto noRows = MatrixCSR<double, int>::Borrow(0, 3, nullptr, nullptr, nullptr);
  MatrixCOO<double, int> noEntries;

  ShiftIndexBase(fresh, 1, 0);
  ShiftIndexBase(noRows, 1, 0);
  ShiftIndexBase(noEntries, 1, 0);

  EXPECT_EQ(fresh.mRowPtr.mData, nullptr);
  EXPECT_EQ(noRows.NNZ(), 0);
  EXPECT_EQ(noEntries.NNZ(), 0);
}

TEST(ShiftIndexBase, WrapsNumbersThatAPeerMadeUp) {
  int rows[] = {std::numeric_limits<int>::max()};
  int cols[] = {std::numeric_limits<int>::min()};
  auto matrix = MatrixCOO<double, int>::Borrow(1, 1, 1, rows, cols, nullptr);

  ShiftIndexBase(matrix, 0, 1);

  EXPECT_EQ(rows[0], std::numeric_limits<int>::min());
  EXPECT_EQ(cols[0], std::numeric_limits<int>::min() + 1);
}

TEST(ShiftIndexBase, WritesNothingAfterIndicesThatAPeerCountedWrong) {
  LedgerPool pool;  // reports bytes written after a block
  MatrixCSR<double, int> matrix;
  ASSERT_EQ((MatrixCSR<double, int>::Create(pool, 1, 3, 2, false, matrix)), STATUS_OK);
  std::fill_n(matrix.mColIdx.mData, 2, 1);
  matrix.mRowPtr.mData[0] = 0;
  matrix.mRowPtr.mData[1] = 4;

  ShiftIndexBase(matrix, 1, 0);

  EXPECT_EQ(matrix.mColIdx.mData[0], 0);
  EXPECT_EQ(matrix.mColIdx.mData[1], 0);
}

}  // namespace
}  // namespace Pavex
