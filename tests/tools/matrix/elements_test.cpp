#include "tools/matrix/elements.h"

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Visit = std::tuple<long, long, double>;

std::vector<Visit> Visits(MatrixBase const& matrix) {
  Elements<double, int> const elements(matrix);
  std::vector<Visit> visits;
  ForEachElement(elements, [&](long row, long col, std::size_t k) {
    visits.emplace_back(row, col, elements.mValues[k]);
  });
  return visits;
}

class ForEachElementOf : public testing::Test {
 protected:
  std::vector<double> mValues = {1, 2, 3, 4, 5, 6};
  std::vector<int> mOffsets = {1, 2, 4};  // from base 1
  std::vector<int> mOthers = {3, 0, 3};
};

TEST_F(ForEachElementOf, TakesThePositionsOfCoordinatesAsTheyAre) {
  std::vector<int> rows = {4, 0};
  auto matrix =
      MatrixCOO<double, int>::Borrow(5, 4, 2, rows.data(), mOthers.data(), mValues.data());
  matrix.PlaceIn(5, 4, MatrixPartition::NonzeroWise());

  EXPECT_THAT(Visits(matrix), ElementsAre(Visit(4, 3, 1), Visit(0, 0, 2)));
}

TEST_F(ForEachElementOf, CountsTheRowsOfABandFromItsBegin) {
  auto matrix =
      MatrixCSR<double, int>::Borrow(2, 4, mOffsets.data(), mOthers.data(), mValues.data());
  matrix.PlaceIn(9, 4, MatrixPartition::RowWise(7));

  EXPECT_THAT(Visits(matrix), ElementsAre(Visit(7, 3, 1), Visit(8, 0, 2), Visit(8, 3, 3)));
}

TEST_F(ForEachElementOf, CountsTheColumnsOfABandFromItsBegin) {
  auto matrix =
      MatrixCSC<double, int>::Borrow(4, 2, mOffsets.data(), mOthers.data(), mValues.data());
  matrix.PlaceIn(4, 9, MatrixPartition::ColumnWise(7));

  EXPECT_THAT(Visits(matrix), ElementsAre(Visit(3, 7, 1), Visit(0, 8, 2), Visit(3, 8, 3)));
}

TEST_F(ForEachElementOf, LeavesOutTheGapsOfADenseMatrix) {
  auto byRows = MatrixDense<double, int>::Borrow(2, 2, true, 3, mValues.data());
  byRows.PlaceIn(2, 9, MatrixPartition::ColumnWise(5));
  auto byColumns = MatrixDense<double, int>::Borrow(2, 2, false, 3, mValues.data());
  byColumns.PlaceIn(9, 2, MatrixPartition::RowWise(5));

  EXPECT_THAT(Visits(byRows),
              ElementsAre(Visit(0, 5, 1), Visit(0, 6, 2), Visit(1, 5, 4), Visit(1, 6, 5)));
  EXPECT_THAT(Visits(byColumns),
              ElementsAre(Visit(5, 0, 1), Visit(6, 0, 2), Visit(5, 1, 4), Visit(6, 1, 5)));
}

TEST_F(ForEachElementOf, VisitsNothingInAMatrixWithoutArrays) {
  EXPECT_THAT(Visits(MatrixCOO<double, int>()), IsEmpty());
  EXPECT_THAT(Visits(MatrixCSR<double, int>()), IsEmpty());
  EXPECT_THAT(Visits(MatrixCSC<double, int>()), IsEmpty());
  EXPECT_THAT(Visits(MatrixDense<double, int>()), IsEmpty());
}

}  // namespace
}  // namespace Pavex::Tool
