#include "tools/source/matrix_market.h"

#include "tests/tools/temporary_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Triplets ReadText(std::string const& text, ProgressFunction const& progress = {}) {
  TemporaryFolder const folder;
  return ReadMatrixMarket(folder.Write("good.mtx", text), progress);
}

TEST(MatrixMarketReader, ReadsRealEntriesInFileOrderWithIndicesFromZero) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate real general\n"
      "3 4 3\n"
      "3 4 2.5\n"
      "1 1 -1e-3\n"
      "2 3 0\n");

  EXPECT_EQ(matrix.mRows, 3);
  EXPECT_EQ(matrix.mCols, 4);
  EXPECT_EQ(matrix.mField, Field::REAL);
  EXPECT_EQ(matrix.mSymmetry, Symmetry::GENERAL);
  EXPECT_FALSE(matrix.mDense);
  EXPECT_THAT(matrix.mRow, ElementsAre(2, 0, 1));
  EXPECT_THAT(matrix.mCol, ElementsAre(3, 0, 2));
  EXPECT_THAT(matrix.mReal, ElementsAre(2.5, -1e-3, 0.0));
  EXPECT_THAT(matrix.mImag, IsEmpty());
}

TEST(MatrixMarketReader, ReadsComplexEntries) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate complex general\n"
      "2 2 2\n"
      "1 2 1.5 -2\n"
      "1 1 0 3\n");

  EXPECT_THAT(matrix.mReal, ElementsAre(1.5, 0.0));
  EXPECT_THAT(matrix.mImag, ElementsAre(-2.0, 3.0));
}

TEST(MatrixMarketReader, ReadsIntegerEntries) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate integer general\n"
      "2 2 3\n"
      "1 2 -7\n"
      "2 1 +9007199254740991\n"
      "2 2 0\n");

  EXPECT_EQ(matrix.mField, Field::INTEGER);
  EXPECT_THAT(matrix.mReal, ElementsAre(-7.0, 9007199254740991.0, 0.0));
}

TEST(MatrixMarketReader, GivesEveryEntryOfAPatternTheValueOne) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate pattern symmetric\n"
      "2 2 2\n"
      "1 1\n"
      "2 1\n");

  EXPECT_EQ(matrix.mField, Field::PATTERN);
  EXPECT_THAT(matrix.mRow, ElementsAre(0, 1, 0));
  EXPECT_THAT(matrix.mCol, ElementsAre(0, 0, 1));
  EXPECT_THAT(matrix.mReal, ElementsAre(1.0, 1.0, 1.0));
}

TEST(MatrixMarketReader, MirrorsASymmetricMatrixRightAfterEachEntry) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate real symmetric\n"
      "3 3 3\n"
      "1 1 1\n"
      "3 1 2\n"
      "3 3 3\n");

  EXPECT_EQ(matrix.mSymmetry, Symmetry::SYMMETRIC);
  EXPECT_THAT(matrix.mRow, ElementsAre(0, 2, 0, 2));
  EXPECT_THAT(matrix.mCol, ElementsAre(0, 0, 2, 2));
  EXPECT_THAT(matrix.mReal, ElementsAre(1.0, 2.0, 2.0, 3.0));
}

TEST(MatrixMarketReader, MirrorsASymmetricComplexMatrixWithoutConjugation) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate complex symmetric\n"
      "2 2 2\n"
      "2 1 1 2\n"
      "2 2 3 4\n");

  EXPECT_THAT(matrix.mReal, ElementsAre(1.0, 1.0, 3.0));
  EXPECT_THAT(matrix.mImag, ElementsAre(2.0, 2.0, 4.0));
}

TEST(MatrixMarketReader, NegatesTheMirrorOfASkewSymmetricMatrix) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate complex skew-symmetric\n"
      "2 2 1\n"
      "2 1 1.5 -2\n");

  EXPECT_THAT(matrix.mRow, ElementsAre(1, 0));
  EXPECT_THAT(matrix.mCol, ElementsAre(0, 1));
  EXPECT_THAT(matrix.mReal, ElementsAre(1.5, -1.5));
  EXPECT_THAT(matrix.mImag, ElementsAre(-2.0, 2.0));
}

TEST(MatrixMarketReader, ConjugatesTheMirrorOfAHermitianMatrix) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate complex Hermitian\n"
      "2 2 2\n"
      "1 1 4 0\n"
      "2 1 1.5 -2\n");

  EXPECT_EQ(matrix.mSymmetry, Symmetry::HERMITIAN);
  EXPECT_THAT(matrix.mReal, ElementsAre(4.0, 1.5, 1.5));
  EXPECT_THAT(matrix.mImag, ElementsAre(0.0, -2.0, 2.0));
}

TEST(MatrixMarketReader, ReadsAnArrayColumnByColumn) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix array real general\n"
      "2 3\n"
      "11\n21\n12\n22\n13\n23\n");

  EXPECT_TRUE(matrix.mDense);
  EXPECT_THAT(matrix.mRow, ElementsAre(0, 1, 0, 1, 0, 1));
  EXPECT_THAT(matrix.mCol, ElementsAre(0, 0, 1, 1, 2, 2));
  EXPECT_THAT(matrix.mReal, ElementsAre(11.0, 21.0, 12.0, 22.0, 13.0, 23.0));
}

TEST(MatrixMarketReader, ReadsTheLowerTriangleOfASymmetricArray) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix array integer symmetric\n"
      "2 2\n"
      "11\n21\n22\n");

  EXPECT_THAT(matrix.mRow, ElementsAre(0, 1, 0, 1));
  EXPECT_THAT(matrix.mCol, ElementsAre(0, 0, 1, 1));
  EXPECT_THAT(matrix.mReal, ElementsAre(11.0, 21.0, 21.0, 22.0));
}

TEST(MatrixMarketReader, ReadsASkewSymmetricArrayWithoutItsDiagonal) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix array real skew-symmetric\n"
      "3 3\n"
      "21\n31\n32\n");

  EXPECT_THAT(matrix.mRow, ElementsAre(1, 0, 2, 0, 2, 1));
  EXPECT_THAT(matrix.mCol, ElementsAre(0, 1, 0, 2, 1, 2));
  EXPECT_THAT(matrix.mReal, ElementsAre(21.0, -21.0, 31.0, -31.0, 32.0, -32.0));
}

TEST(MatrixMarketReader, KeepsEntriesOfTheSamePositionApart) {
  Triplets const matrix = ReadText(
      "%%MatrixMarket matrix coordinate real general\n"
      "2 2 2\n"
      "1 1 3\n"
      "1 1 4\n");

  EXPECT_THAT(matrix.mReal, ElementsAre(3.0, 4.0));
}

TEST(MatrixMarketReader, TakesCommentsBlankLinesTabsAndLineEndsOfOtherSystems) {
  Triplets const matrix = ReadText(
      "%%MATRIXMARKET Matrix COORDINATE Real General\r\n"
      "% made by hand\r\n"
      "%\r\n"
      "\r\n"
      "  2\t2  2 \r\n"
      "\r\n"
      "\t1 1 5\r\n"
      " \t\r\n"
      "2   2 6  \r\n"
      "\r\n");

  EXPECT_THAT(matrix.mRow, ElementsAre(0, 1));
  EXPECT_THAT(matrix.mReal, ElementsAre(5.0, 6.0));
}

TEST(MatrixMarketReader, NeedsNoLineEndAtTheEndOfTheFile) {
  Triplets const matrix =
      ReadText("%%MatrixMarket matrix coordinate pattern general\n3 3 2\n1 1\n2 3");

  EXPECT_THAT(matrix.mCol, ElementsAre(0, 2));
}

TEST(MatrixMarketReader, TakesPlusSignsAndFortranExponents) {
  Triplets const matrix =
      ReadText("%%MatrixMarket matrix array real general\n4 1\n+1.5\n1.25D+02\n-2d-1\n+.5E1\n");

  EXPECT_THAT(matrix.mReal, ElementsAre(1.5, 125.0, -0.2, 5.0));
}

TEST(MatrixMarketReader, RoundsWhatIsTooSmallForADouble) {
  Triplets const matrix =
      ReadText("%%MatrixMarket matrix array real general\n3 1\n1e-400\n-1D-999\n5e-324\n");

  EXPECT_THAT(matrix.mReal, ElementsAre(0.0, 0.0, 5e-324));
}

TEST(MatrixMarketReader, ReadsMatricesWithoutEntries) {
  Triplets const sparse = ReadText("%%MatrixMarket matrix coordinate real general\n5 7 0\n");
  Triplets const dense = ReadText("%%MatrixMarket matrix array real general\n0 7\n");

  EXPECT_EQ(sparse.mCols, 7);
  EXPECT_EQ(sparse.Entries(), 0u);
  EXPECT_EQ(dense.mRows, 0);
  EXPECT_EQ(dense.Entries(), 0u);
}

TEST(MatrixMarketReader, FollowsLinesAcrossItsBuffer) {
  constexpr int kEntries = 200000;
  std::string text = "%%MatrixMarket matrix coordinate integer general\n1 200000 200000\n";
  for (int i = 1; i <= kEntries; ++i)
    text += "1 " + std::to_string(i) + " " + std::to_string(-i) + "\n";
  ASSERT_GT(text.size(), std::size_t{3} << 20);

  Triplets const matrix = ReadText(text);

  ASSERT_EQ(matrix.Entries(), std::size_t{kEntries});
  for (int i = 0; i < kEntries; ++i) {
    ASSERT_EQ(matrix.mCol[static_cast<std::size_t>(i)], i);
    ASSERT_EQ(matrix.mReal[static_cast<std::size_t>(i)], -(i + 1));
  }
}

TEST(MatrixMarketReader, ReportsProgressFromZeroUpwards) {
  std::string text = "%%MatrixMarket matrix coordinate pattern general\n1 1 131072\n";
  for (int i = 0; i < 131072; ++i)
    text += "1 1\n";
  std::vector<double> reports;

  ReadText(text, [&](double done) { reports.push_back(done); });

  EXPECT_THAT(reports, ElementsAre(0.0, 0.5));
}

// A file with a few bytes changed, removed or doubled. Half of the changes are after the
// banner, so that many results are still good files.
std::string Mutated(std::string text, std::mt19937& random) {
  std::string const alphabet = "0123456789 .-+eEdD%\n\r\tnaif\xff" + std::string(1, '\0');
  for (std::size_t changes = 1 + random() % 3; changes > 0 && !text.empty(); --changes) {
    std::size_t const banner = random() % 2 == 0 ? 0 : text.find('\n') + 1;
    std::size_t const at = banner + random() % (text.size() - banner + 1);
    std::size_t const length = 1 + random() % 8;
    switch (random() % 4) {
      case 0:
        text.replace(at, 1, 1, alphabet[random() % alphabet.size()]);
        break;
      case 1:
        text.erase(at, length);
        break;
      case 2:
        text.insert(at, text.substr(at, length));
        break;
      default:
        text.insert(at, 1, alphabet[random() % alphabet.size()]);
    }
  }
  return text;
}

TEST(MatrixMarketReader, ReadsOrRefusesAnyFile) {
  std::vector<std::string> const samples = {
      "%%MatrixMarket matrix coordinate real general\n% c\n3 4 3\n3 4 2.5\n1 1 -1e-3\n2 3 0\n",
      "%%MatrixMarket matrix coordinate complex hermitian\n2 2 2\n1 1 4 0\n2 1 1.5 -2\n",
      "%%MatrixMarket matrix coordinate pattern symmetric\n3 3 2\n1 1\n3 2\n",
      "%%MatrixMarket matrix array integer skew-symmetric\r\n3 3\r\n1\r\n2\r\n3\r\n"};
  constexpr int kMutants = 4000;
  TemporaryFolder const folder;
  std::mt19937 random(20240611);
  int read = 0;
  int refused = 0;

  for (int i = 0; i < kMutants; ++i) {
    std::string const text = Mutated(samples[random() % samples.size()], random);
    std::string const path = folder.Write("mutant.mtx", text);
    try {
      Triplets const matrix = ReadMatrixMarket(path);
      ++read;
      ASSERT_EQ(matrix.mCol.size(), matrix.Entries()) << text;
      ASSERT_EQ(matrix.mReal.size(), matrix.Entries()) << text;
      for (std::size_t k = 0; k < matrix.Entries(); ++k) {
        ASSERT_TRUE(matrix.mRow[k] >= 0 && matrix.mRow[k] < matrix.mRows) << text;
        ASSERT_TRUE(matrix.mCol[k] >= 0 && matrix.mCol[k] < matrix.mCols) << text;
      }
    } catch (InputError const& error) {
      ++refused;
      ASSERT_THAT(error.what(), testing::StartsWith(path + ":")) << text;
      ASSERT_THAT(error.what(), testing::Not(testing::HasSubstr("\n"))) << text;
    }
  }

  EXPECT_GT(read, kMutants / 20);
  EXPECT_GT(refused, kMutants / 20);
}

}  // namespace
}  // namespace Pavex::Tool
