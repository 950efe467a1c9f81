#include "tools/solve/solver_input.h"

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;

template <typename E>
std::vector<E> Copy(E const* data, long count) {
  return std::vector<E>(data, data + count);
}

// The columns of
//   1 0 2
//   0 3 0
//   4 0 5
struct Arrays {
  int mOffsets[4] = {0, 2, 3, 5};
  int mOthers[5] = {0, 2, 1, 0, 2};
  double mValues[5] = {1, 4, 3, 2, 5};
};

TEST(SolverInput, ShowsTheArraysOfCompressedColumnsThemselves) {
  Arrays arrays;
  auto const matrix =
      MatrixCSC<double, int>::Borrow(3, 3, arrays.mOffsets, arrays.mOthers, arrays.mValues);
  SolverInput<double, int> input;

  input.Read(matrix);

  EXPECT_EQ(input.View().outerIndexPtr(), arrays.mOffsets);
  EXPECT_EQ(input.View().innerIndexPtr(), arrays.mOthers);
  EXPECT_EQ(input.View().valuePtr(), arrays.mValues);
  EXPECT_FALSE(input.IsTransposed());
  EXPECT_EQ(input.Description(), "csc in place");
}

TEST(SolverInput, ShowsCompressedRowsAsTheColumnsOfTheTranspose) {
  Arrays arrays;
  auto const matrix =
      MatrixCSR<double, int>::Borrow(3, 3, arrays.mOffsets, arrays.mOthers, arrays.mValues);
  SolverInput<double, int> input;

  input.Read(matrix);

  EXPECT_EQ(input.View().valuePtr(), arrays.mValues);
  EXPECT_TRUE(input.IsTransposed());
  EXPECT_EQ(input.Description(), "csr in place, as the transpose");
}

TEST(SolverInput, SumsDuplicateCoordinatesAndSortsThem) {
  int rows[] = {2, 0, 0, 2, 0};
  int cols[] = {2, 0, 2, 0, 2};
  double values[] = {5, 1, 2, 4, 0.5};
  auto const matrix = MatrixCOO<double, int>::Borrow(3, 3, 5, rows, cols, values);
  SolverInput<double, int> input;

  input.Read(matrix);

  auto const view = input.View();
  EXPECT_THAT(Copy(view.outerIndexPtr(), 4), ElementsAre(0, 2, 2, 4));
  EXPECT_THAT(Copy(view.innerIndexPtr(), 4), ElementsAre(0, 2, 0, 2));
  EXPECT_THAT(Copy(view.valuePtr(), 4), ElementsAre(1.0, 4.0, 2.5, 5.0));
  EXPECT_FALSE(input.IsTransposed());
  EXPECT_EQ(input.Description(), "coo copied into sorted columns, duplicates summed");
}

TEST(SolverInput, SortsColumnsThatAreOutOfOrder) {
  Arrays arrays;
  std::swap(arrays.mOthers[0], arrays.mOthers[1]);
  std::swap(arrays.mValues[0], arrays.mValues[1]);
  auto const matrix =
      MatrixCSC<double, int>::Borrow(3, 3, arrays.mOffsets, arrays.mOthers, arrays.mValues);
  SolverInput<double, int> input;

  input.Read(matrix);

  EXPECT_THAT(Copy(input.View().innerIndexPtr(), 5), ElementsAre(0, 2, 1, 0, 2));
  EXPECT_THAT(Copy(input.View().valuePtr(), 5), ElementsAre(1.0, 4.0, 3.0, 2.0, 5.0));
  EXPECT_EQ(input.Description(), "csc copied into sorted columns, duplicates summed");
}

TEST(SolverInput, TurnsRowsWithOffsetsFromOneIntoColumnsFromZero) {
  Arrays arrays;
  for (int& offset : arrays.mOffsets)
    ++offset;
  arrays.mValues[3] = 7;  // row 2, column 0
  auto const matrix =
      MatrixCSR<double, int>::Borrow(3, 3, arrays.mOffsets, arrays.mOthers, arrays.mValues);
  SolverInput<double, int> input;

  input.Read(matrix);

  EXPECT_THAT(Copy(input.View().outerIndexPtr(), 4), ElementsAre(0, 2, 3, 5));
  EXPECT_THAT(Copy(input.View().valuePtr(), 5), ElementsAre(1.0, 7.0, 3.0, 4.0, 5.0));
  EXPECT_FALSE(input.IsTransposed());
}

TEST(SolverInput, ShowsNewValuesWhenItReadsAgain) {
  int rows[] = {0, 1};
  int cols[] = {0, 1};
  double values[] = {1, 2};
  double next[] = {3, 4};
  auto matrix = MatrixCOO<double, int>::Borrow(2, 2, 2, rows, cols, values);
  SolverInput<double, int> input;
  input.Read(matrix);

  matrix.SetValues(next);
  input.Read(matrix);

  EXPECT_THAT(Copy(input.View().valuePtr(), 2), ElementsAre(3.0, 4.0));
}

}  // namespace
}  // namespace Pavex::Tool
