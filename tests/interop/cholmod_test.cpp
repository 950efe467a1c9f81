#include "pavex/interop/cholmod.h"

#include "pavex/pavex.h"
#include "tests/interop/refusal.h"

#include <complex>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

// Whether CHOLMOD finds the matrix valid.
bool IsValid(cholmod_sparse& matrix, int) {
  cholmod_common common;
  cholmod_start(&common);
  bool const valid = cholmod_check_sparse(&matrix, &common) != 0;
  cholmod_finish(&common);
  return valid;
}
bool IsValid(cholmod_sparse& matrix, long) {
  cholmod_common common;
  cholmod_l_start(&common);
  bool const valid = cholmod_l_check_sparse(&matrix, &common) != 0;
  cholmod_l_finish(&common);
  return valid;
}

// The 3 x 2 matrix with the entries (0, 0), (2, 0) and (1, 1), whose offsets start at `base`.
template <typename T, typename I>
struct Columns {
  explicit Columns(I base) : ptr{base, base + 2, base + 3} {}
  MatrixCSC<T, I> Csc() { return MatrixCSC<T, I>::Borrow(3, 2, ptr, idx, values); }

  I ptr[3];
  I idx[3] = {0, 2, 1};
  T values[3] = {1, 2, 3};
};

template <typename Matrix>
class CholmodTest : public ::testing::Test {};
using ServedByCholmod =
    ::testing::Types<Columns<double, int>, Columns<double, long>,
                     Columns<std::complex<double>, int>, Columns<std::complex<double>, long>>;
TYPED_TEST_SUITE(CholmodTest, ServedByCholmod);

template <typename T, typename I>
void ExpectViewOfGathered(Columns<T, I>& columns) {
  MemoryPool pool;
  Aggregator<T, I> aggregator(&pool);
  auto const piece = columns.Csc();
  ASSERT_EQ(aggregator.Gather(std::make_shared<SelfComm>(), piece, true), STATUS_OK);

  cholmod_sparse view = ViewAsCholmod<T, I>(*aggregator.Target());

  EXPECT_EQ(view.p, columns.ptr);
  EXPECT_EQ(view.i, columns.idx);
  EXPECT_EQ(view.x, columns.values);
  EXPECT_EQ(view.nrow, 3U);
  EXPECT_EQ(view.ncol, 2U);
  EXPECT_EQ(view.nzmax, 3U);
  EXPECT_TRUE(IsValid(view, I{}));
}

TYPED_TEST(CholmodTest, ViewsTheArraysOfAGatheredMatrix) {
  TypeParam columns(0);

  ExpectViewOfGathered(columns);
}

template <typename T, typename I>
void ExpectPieceOfView(Columns<T, I>& columns) {
  auto matrix = columns.Csc();
  cholmod_sparse const view = ViewAsCholmod<T, I>(matrix);

  MatrixCSC<T, I> const piece = BorrowCholmod<T, I>(view);

  EXPECT_EQ(piece.mRows, 3);
  EXPECT_EQ(piece.mCols, 2);
  EXPECT_EQ(piece.NNZ(), 3);
  EXPECT_EQ(piece.mColPtr.mData, columns.ptr);
  EXPECT_EQ(piece.mRowIdx.mData, columns.idx);
  EXPECT_EQ(piece.mValues.mData, columns.values);
}

TYPED_TEST(CholmodTest, BorrowsTheArraysOfAMatrix) {
  TypeParam columns(0);

  ExpectPieceOfView(columns);
}

TEST(CholmodRefusal, ConcernsOffsetsThatStartAtOne) {
  Columns<double, int> columns(1);
  auto matrix = columns.Csc();

  auto const refusal = RefusalOf([&] { ViewAsCholmod<double, int>(matrix); });

  EXPECT_EQ(refusal, "The offsets of the matrix to view do not start at 0.");
}

TEST(CholmodIndexCheck, IsMadeOnRequestAndNamesTheFirstIndexOutside) {
  Columns<double, int> columns(0);
  auto matrix = columns.Csc();
  auto const refusal = [&](IndexCheck check) {
    return RefusalOf([&] { ViewAsCholmod<double, int>(matrix, check); });
  };
  EXPECT_EQ(refusal(IndexCheck::ALL), "accepted");

  columns.idx[1] = 3;

  EXPECT_EQ(refusal(IndexCheck::NONE), "accepted");
  EXPECT_EQ(refusal(IndexCheck::ALL),
            "The matrix to view has index 3 in column 0; expected 0 to 2.");
}

TEST(CholmodRefusal, ConcernsCompressedRows) {
  MatrixCSR<double, int> matrix;

  auto const refusal = RefusalOf([&] { ViewAsCholmod<double, int>(matrix); });

  EXPECT_EQ(refusal, "The matrix to view is not a MatrixCSC.");
}

TEST(CholmodRefusal, ConcernsAMatrixWithGaps) {
  Columns<double, int> columns(0);
  auto matrix = columns.Csc();
  cholmod_sparse view = ViewAsCholmod<double, int>(matrix);
  view.packed = 0;

  auto const refusal = RefusalOf([&] { BorrowCholmod<double, int>(view); });

  EXPECT_EQ(refusal, "The CHOLMOD matrix is not packed.");
}

TEST(CholmodRefusal, ConcernsOtherTypes) {
  Columns<double, int> columns(0);
  auto matrix = columns.Csc();
  cholmod_sparse const view = ViewAsCholmod<double, int>(matrix);

  auto const value = RefusalOf([&] { BorrowCholmod<std::complex<double>, int>(view); });
  auto const index = RefusalOf([&] { BorrowCholmod<double, long>(view); });

  EXPECT_EQ(value, "The CHOLMOD matrix has another value type.");
  EXPECT_EQ(index, "The CHOLMOD matrix has another index type.");
}

}  // namespace
}  // namespace Pavex
