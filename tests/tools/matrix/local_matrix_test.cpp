#include "tools/matrix/local_matrix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;

// Rows 2 and 3 of a 5 x 4 matrix, with one position twice.
Triplets Entries() {
  Triplets entries;
  entries.mRows = 5;
  entries.mCols = 4;
  entries.Add(3, 0, 30);
  entries.Add(2, 3, 23);
  entries.Add(3, 2, 32);
  entries.Add(2, 3, 230);
  return entries;
}

constexpr Extent kWhole{5, 4, 9};

Piece Rows2And3() {
  Piece piece;
  piece.mRowBegin = 2;
  piece.mRowEnd = 4;
  piece.mColEnd = 4;
  piece.mPartition = MatrixPartition::RowWise(2);
  return piece;
}

GatherOptions With(Format format) {
  GatherOptions options;
  options.mFormat = format;
  return options;
}

template <typename V>
std::vector<V> Array(void const* data, std::size_t size) {
  auto const* const values = static_cast<V const*>(data);
  return std::vector<V>(values, values + size);
}

PavexMatrixStore Store(MatrixBase const& matrix) {
  PavexMatrixStore store;
  matrix.Query(store);
  return store;
}

TEST(LocalMatrix, KeepsCoordinatesGlobalAndInOrder) {
  LocalMatrix<double, int> const local(Entries(), Rows2And3(), kWhole, With(Format::COO));

  PavexMatrixStore const store = Store(local.Matrix());
  EXPECT_EQ(local.Matrix().mRows, 2);
  EXPECT_EQ(local.Matrix().mGlobalRows, 5);
  EXPECT_EQ(local.Matrix().mPartition.begin, 2);
  EXPECT_THAT(Array<int>(store.coo.row, 4), ElementsAre(3, 2, 3, 2));
  EXPECT_THAT(Array<int>(store.coo.col, 4), ElementsAre(0, 3, 2, 3));
  EXPECT_THAT(Array<double>(store.coo.values, 4), ElementsAre(30, 23, 32, 230));
}

TEST(LocalMatrix, CompressesRowsFromTheGivenBase) {
  GatherOptions options = With(Format::CSR);
  options.mBase = 1;

  LocalMatrix<double, long> const local(Entries(), Rows2And3(), kWhole, options);

  PavexMatrixStore const store = Store(local.Matrix());
  EXPECT_EQ(store.type, STORE_CSR_0);
  EXPECT_THAT(Array<long>(store.csr.ptr, 3), ElementsAre(1, 3, 5));
  EXPECT_THAT(Array<long>(store.csr.idx, 4), ElementsAre(3, 3, 0, 2));
  EXPECT_THAT(Array<double>(store.csr.values, 4), ElementsAre(23, 230, 30, 32));
}

TEST(LocalMatrix, CompressesColumnsWithGlobalRows) {
  Piece piece;
  piece.mRowEnd = 5;
  piece.mColEnd = 4;

  LocalMatrix<float, int> const local(Entries(), piece, kWhole, With(Format::CSC));

  PavexMatrixStore const store = Store(local.Matrix());
  EXPECT_EQ(store.type, STORE_CSC_0);
  EXPECT_THAT(Array<int>(store.csc.ptr, 5), ElementsAre(0, 1, 1, 2, 4));
  EXPECT_THAT(Array<int>(store.csc.idx, 4), ElementsAre(3, 3, 2, 2));
}

TEST(LocalMatrix, LaysOutDenseRunsWithGapsAndSums) {
  GatherOptions options = With(Format::DENSE_ROW);
  options.mPad = 1;
  double const gap = GapValue<double>();

  LocalMatrix<double, int> const local(Entries(), Rows2And3(), kWhole, options);

  EXPECT_EQ(Store(local.Matrix()).dense.ld, 5);
  EXPECT_THAT(local.Values(), ElementsAre(0, 0, 0, 253, gap, 30, 0, 32, 0));
}

TEST(LocalMatrix, LaysOutDenseColumns) {
  LocalMatrix<double, int> const local(Entries(), Rows2And3(), kWhole, With(Format::DENSE_COL));

  EXPECT_THAT(local.Values(), ElementsAre(0, 30, 0, 0, 0, 32, 253, 0));
}

TEST(LocalMatrix, HasNoValuesForAPattern) {
  GatherOptions options = With(Format::CSR);
  options.mWithValues = false;

  LocalMatrix<double, int> const local(Entries(), Rows2And3(), kWhole, options);

  EXPECT_FALSE(local.Matrix().HasValues());
  EXPECT_EQ(local.Matrix().NNZ(), 4);
}

TEST(LocalMatrix, KeepsBothPartsOfComplexValues) {
  Triplets entries;
  entries.mField = Field::COMPLEX;
  entries.Add(2, 1, 3, -4);

  LocalMatrix<std::complex<float>, int> const local(entries, Rows2And3(), kWhole,
                                                    With(Format::COO));

  EXPECT_THAT(local.Values(), ElementsAre(std::complex<float>(3, -4)));
}

// Every format has the same values after a step, and returns its earlier array.
TEST(LocalMatrix, AdvancesByPositionInEveryFormat) {
  auto const at = [](long row, long col) { return StepIncrement<double>(row, col); };
  LocalMatrix<double, int> coo(Entries(), Rows2And3(), kWhole, With(Format::COO));
  LocalMatrix<double, int> csr(Entries(), Rows2And3(), kWhole, With(Format::CSR));
  LocalMatrix<double, int> dense(Entries(), Rows2And3(), kWhole, With(Format::DENSE_COL));

  std::vector<double> const former = coo.Advance();
  csr.Advance();
  dense.Advance();

  EXPECT_THAT(former, ElementsAre(30, 23, 32, 230));
  EXPECT_THAT(coo.Values(),
              ElementsAre(30 + at(3, 0), 23 + at(2, 3), 32 + at(3, 2), 230 + at(2, 3)));
  EXPECT_THAT(csr.Values(),
              ElementsAre(23 + at(2, 3), 230 + at(2, 3), 30 + at(3, 0), 32 + at(3, 2)));
  EXPECT_THAT(dense.Values(), ElementsAre(at(2, 0), 30 + at(3, 0), at(2, 1), at(3, 1), at(2, 2),
                                          32 + at(3, 2), 253 + at(2, 3), at(3, 3)));
  EXPECT_EQ(Store(coo.Matrix()).coo.values, coo.Values().data());
}

TEST(StepIncrement, DiffersBetweenNeighbours) {
  EXPECT_NE(StepIncrement<float>(4, 5), StepIncrement<float>(4, 6));
  EXPECT_NE(StepIncrement<float>(4, 5), StepIncrement<float>(5, 5));
  EXPECT_NE(StepIncrement<float>(4, 5), StepIncrement<float>(5, 4));
}

}  // namespace
}  // namespace Pavex::Tool
