#include "tools/matrix/verify.h"

#include "tests/tools/temporary_folder.h"
#include "tools/matrix/local_matrix.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

// 1 at (0, 0), 5 and 50 at (0, 2), -3 at (1, 1), 7 at (2, 0), 9 at (2, 2); row 3 is empty.
constexpr char const* kMatrix =
    "%%MatrixMarket matrix coordinate real general\n"
    "4 3 6\n"
    "3 3 9\n1 1 1\n1 3 5\n2 2 -3\n1 3 50\n3 1 7\n";

class Verify : public testing::Test {
 protected:
  // The whole matrix in `format`, as after a gather. The tests damage it.
  LocalMatrix<double, int>& Whole(Format format, bool withValues = true) {
    GatherOptions options;
    options.mWithValues = withValues;
    options.mFormat = format;
    options.mPartition = Partition::ALL;
    Piece const piece = CutPiece(mSource->Whole(), options, 1, 0);
    mLocal = std::make_unique<LocalMatrix<double, int>>(mSource->Cut(piece, {}), piece,
                                                        mSource->Whole(), options);
    mLocal->Matrix().Query(mStore);
    return *mLocal;
  }

  std::string Difference(Format format, int steps = 0, bool withValues = true) {
    return FindDifference<double, int>(mLocal->Matrix(), *mSource, {format, withValues, steps});
  }

  TemporaryFolder mFolder;
  std::unique_ptr<Source> mSource = OpenFile(mFolder.Write("a.mtx", kMatrix));
  std::unique_ptr<LocalMatrix<double, int>> mLocal;
  PavexMatrixStore mStore;
};

class VerifyFormat : public Verify, public testing::WithParamInterface<Format> {};

TEST_P(VerifyFormat, AcceptsTheInput) {
  Whole(GetParam());

  EXPECT_EQ(Difference(GetParam()), "");
}

TEST_P(VerifyFormat, SeesOneWrongValue) {
  auto& local = Whole(GetParam());
  std::vector<double> damaged = local.Values();
  *std::find(damaged.begin(), damaged.end(), -3) = -3.5;
  local.Matrix().SetValues(damaged.data());

  char const* const what = IsDense(GetParam()) ? "element" : "entry";
  EXPECT_EQ(Difference(GetParam()),
            std::string("the ") + what + " at (1, 1) is -3.5 instead of -3");
}

TEST_P(VerifyFormat, FollowsTheValuesOverTheSteps) {
  auto& local = Whole(GetParam());
  std::vector<double> const first = local.Advance();
  std::vector<double> const second = local.Advance();

  EXPECT_EQ(Difference(GetParam(), 2), "");
  EXPECT_NE(Difference(GetParam(), 1), "");
  EXPECT_NE(Difference(GetParam(), 0), "");
}

TEST_P(VerifyFormat, SeesAnotherShape) {
  auto& local = Whole(GetParam());
  local.Matrix().mRows = 3;

  EXPECT_EQ(Difference(GetParam()), "3 x 3 instead of 4 x 3");
}

TEST_P(VerifyFormat, SeesAnotherStorage) {
  Whole(GetParam());
  Format const other = GetParam() == Format::CSR ? Format::CSC : Format::CSR;

  EXPECT_EQ(Difference(other).substr(0, 10), "store type");
}

INSTANTIATE_TEST_SUITE_P(All, VerifyFormat,
                         testing::Values(Format::COO, Format::CSR, Format::CSC,
                                         Format::DENSE_ROW, Format::DENSE_COL));

TEST_F(Verify, AcceptsCoordinatesInAnyOrder) {
  auto& local = Whole(Format::COO);
  std::vector<double> values(local.Values().rbegin(), local.Values().rend());
  std::reverse(static_cast<int*>(mStore.coo.row), static_cast<int*>(mStore.coo.row) + 6);
  std::reverse(static_cast<int*>(mStore.coo.col), static_cast<int*>(mStore.coo.col) + 6);
  local.Matrix().SetValues(values.data());

  EXPECT_EQ(Difference(Format::COO), "");
}

TEST_F(Verify, SeesCoordinatesWithSwappedValues) {
  auto& local = Whole(Format::COO);
  std::vector<double> values(local.Values().rbegin(), local.Values().rend());
  local.Matrix().SetValues(values.data());

  EXPECT_EQ(Difference(Format::COO), "the entry at (0, 0) is 50 instead of 1");
}

TEST_F(Verify, SeesAMovedCoordinate) {
  Whole(Format::COO);
  static_cast<int*>(mStore.coo.col)[3] = 2;  // of the entry at (1, 1)

  EXPECT_EQ(Difference(Format::COO), "an entry at (1, 2) instead of (1, 1)");
}

TEST_F(Verify, SeesACoordinateInAnotherRow) {
  Whole(Format::COO);
  static_cast<int*>(mStore.coo.row)[3] = 3;

  EXPECT_EQ(Difference(Format::COO), "row 1 has 0 entries instead of 1");
}

TEST_F(Verify, SeesACoordinateOutside) {
  Whole(Format::COO);
  static_cast<int*>(mStore.coo.row)[5] = -1;

  EXPECT_EQ(Difference(Format::COO), "entry 5 lies outside the matrix");
}

TEST_F(Verify, SeesAMovedOffset) {
  Whole(Format::CSR);
  static_cast<int*>(mStore.csr.ptr)[1] = 4;

  EXPECT_EQ(Difference(Format::CSR), "row 0 has 4 entries instead of 3");
}

TEST_F(Verify, SeesOffsetsThatGoBack) {
  Whole(Format::CSC);
  static_cast<int*>(mStore.csc.ptr)[1] = 5;

  EXPECT_EQ(Difference(Format::CSC), "offset 2 is below the one before");
}

TEST_F(Verify, SeesMissingEntries) {
  Whole(Format::CSR);
  static_cast<int*>(mStore.csr.ptr)[4] = 5;

  EXPECT_EQ(Difference(Format::CSR), "5 entries instead of 6");
}

TEST_F(Verify, SeesARowOutsideOfCompressedColumns) {
  Whole(Format::CSC);
  static_cast<int*>(mStore.csc.idx)[0] = 4;

  EXPECT_EQ(Difference(Format::CSC), "entry 0 lies outside the matrix");
}

TEST_F(Verify, SeesMissingValues) {
  Whole(Format::COO, false);

  EXPECT_EQ(Difference(Format::COO), "no values arrived");
  EXPECT_EQ(Difference(Format::COO, 0, false), "");
}

TEST_F(Verify, SeesValuesThatWereNotDue) {
  Whole(Format::COO);

  EXPECT_EQ(Difference(Format::COO, 0, false), "values arrived although none were due");
}

TEST_F(Verify, SeesANegativeZero) {
  auto& local = Whole(Format::DENSE_ROW);
  std::vector<double> damaged = local.Values();
  damaged[1] = -0.0;
  local.Matrix().SetValues(damaged.data());

  EXPECT_EQ(Difference(Format::DENSE_ROW), "the element at (0, 1) is -0 instead of 0");
}

TEST_F(Verify, ChecksABlockAndTheGapsAfterItsRuns) {
  double const gap = GapValue<double>();
  Piece piece;
  piece.mRowBegin = 1;
  piece.mRowEnd = 3;
  piece.mColBegin = 1;
  piece.mColEnd = 3;
  std::vector<double> values = {-3, 0, gap, 0, 9};
  auto const difference = [&] {
    return FindDifferenceInBlock<double>(values.data(), {true, 3}, piece, *mSource, 0);
  };

  EXPECT_EQ(difference(), "");
  values[2] = 0;
  EXPECT_EQ(difference(), "the gap behind run 0 was written to");
  values[4] = 8;
  EXPECT_EQ(difference(), "the element at (2, 2) is 8 instead of 9");
}

}  // namespace
}  // namespace Pavex::Tool
