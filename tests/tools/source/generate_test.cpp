#include "tools/source/generate.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;

Triplets Whole(std::string const& description) {
  Generator const generator(description);
  Triplets matrix = generator.Empty();
  generator.AppendRows(0, generator.Rows(), matrix);
  return matrix;
}

using Entry = std::tuple<int, int, double>;

std::vector<Entry> Entries(Triplets const& matrix) {
  std::vector<Entry> entries;
  for (std::size_t i = 0; i < matrix.Entries(); ++i)
    entries.emplace_back(matrix.mRow[i], matrix.mCol[i], matrix.mReal[i]);
  return entries;
}

class EveryKind : public testing::TestWithParam<char const*> {};

INSTANTIATE_TEST_SUITE_P(Generate, EveryKind,
                         testing::Values("poisson2d:6", "poisson3d:5", "convection2d:6",
                                         "convection3d:5", "random:1200", "random:3",
                                         "dense:7x5"));

TEST_P(EveryKind, MakesTheSameRowsHoweverTheyAreCut) {
  Generator const generator(GetParam());
  long const rows = generator.Rows();
  Triplets pieces = generator.Empty();

  generator.AppendRows(0, 1, pieces);
  generator.AppendRows(1, rows / 3 + 1, pieces);
  generator.AppendRows(rows / 3 + 1, rows, pieces);

  EXPECT_EQ(Entries(pieces), Entries(Whole(GetParam())));
}

TEST_P(EveryKind, MakesBandsOfColumnsThatTogetherAreTheWhole) {
  Generator const generator(GetParam());
  long const cut = generator.Cols() / 3 + 1;
  Triplets left = generator.Empty();
  Triplets right = generator.Empty();

  generator.AppendCols(0, cut, left);
  generator.AppendCols(cut, generator.Cols(), right);

  std::vector<Entry> expectedLeft;
  std::vector<Entry> expectedRight;
  for (Entry const& entry : Entries(Whole(GetParam())))
    (std::get<1>(entry) < cut ? expectedLeft : expectedRight).push_back(entry);
  EXPECT_EQ(Entries(left), expectedLeft);
  EXPECT_EQ(Entries(right), expectedRight);
}

TEST_P(EveryKind, CountsEntriesWithoutMakingThem) {
  Generator const generator(GetParam());
  Triplets band = generator.Empty();
  generator.AppendRows(1, generator.Rows() - 1, band);

  EXPECT_EQ(generator.Entries(1, generator.Rows() - 1), static_cast<long>(band.Entries()));
  EXPECT_EQ(generator.Entries(), static_cast<long>(Whole(GetParam()).Entries()));
}

TEST_P(EveryKind, AscendsByRowAndColumnWithoutRepeating) {
  std::vector<Entry> const entries = Entries(Whole(GetParam()));

  for (std::size_t i = 1; i < entries.size(); ++i) {
    auto const before =
        std::make_pair(std::get<0>(entries[i - 1]), std::get<1>(entries[i - 1]));
    auto const here = std::make_pair(std::get<0>(entries[i]), std::get<1>(entries[i]));
    ASSERT_LT(before, here);
  }
  EXPECT_GT(entries.size(), 2u);
}

TEST(Generate, MakesThePoissonOperatorOnTwoCubedPoints) {
  Generator const generator("poisson3d:2");
  Triplets row = generator.Empty();

  generator.AppendRows(5, 6, row);  // the point (1, 0, 1)

  EXPECT_EQ(generator.Rows(), 8);
  EXPECT_EQ(generator.Cols(), 8);
  EXPECT_EQ(row.mSymmetry, Symmetry::SYMMETRIC);
  EXPECT_THAT(Entries(row),
              ElementsAre(Entry(5, 1, -1), Entry(5, 4, -1), Entry(5, 5, 6), Entry(5, 7, -1)));
}

TEST(Generate, GivesAnInnerPointSixNeighbours) {
  Generator const generator("poisson3d:3");
  Triplets row = generator.Empty();

  generator.AppendRows(13, 14, row);

  EXPECT_THAT(row.mCol, ElementsAre(4, 10, 12, 13, 14, 16, 22));
  EXPECT_THAT(row.mReal, ElementsAre(-1.0, -1.0, -1.0, 6.0, -1.0, -1.0, -1.0));
}

TEST(Generate, StrengthensTheUpwindNeighboursOfConvection) {
  Generator const generator("convection3d:3");
  Triplets row = generator.Empty();

  generator.AppendRows(13, 14, row);

  EXPECT_EQ(row.mSymmetry, Symmetry::GENERAL);
  EXPECT_THAT(row.mCol, ElementsAre(4, 10, 12, 13, 14, 16, 22));
  EXPECT_THAT(row.mReal, ElementsAre(-1.125, -1.25, -1.5, 6.875, -1.0, -1.0, -1.0));
}

TEST(Generate, GivesAnInnerPointOfAPlaneFourNeighbours) {
  Generator const poisson("poisson2d:3");
  Generator const convection("convection2d:3");
  Triplets row = poisson.Empty();
  Triplets windy = convection.Empty();

  poisson.AppendRows(4, 5, row);
  convection.AppendRows(4, 5, windy);

  EXPECT_EQ(poisson.Rows(), 9);
  EXPECT_EQ(poisson.Entries(), 33);
  EXPECT_THAT(row.mCol, ElementsAre(1, 3, 4, 5, 7));
  EXPECT_THAT(row.mReal, ElementsAre(-1.0, -1.0, 4.0, -1.0, -1.0));
  EXPECT_THAT(windy.mReal, ElementsAre(-1.25, -1.5, 4.75, -1.0, -1.0));
}

TEST(Generate, ReportsTheGridOfItsPoints) {
  EXPECT_EQ(Generator("poisson2d:7").Axes(), 2);
  EXPECT_EQ(Generator("convection3d:4").Axes(), 3);
  EXPECT_EQ(Generator("convection3d:4").Side(), 4);
  EXPECT_EQ(Generator("random:9").Axes(), 0);
}

TEST(Generate, MakesRandomRowsOfEightToTwelveEntriesAndFourHubs) {
  Generator const generator("random:2000");
  std::map<long, int> rowsOfLength;

  for (long row = 0; row < 2000; ++row)
    ++rowsOfLength[generator.Entries(row, row + 1)];

  EXPECT_EQ(rowsOfLength.size(), 6u);
  for (long length : {8, 9, 10, 11, 12})
    EXPECT_GT(rowsOfLength[length], 300) << length;
  EXPECT_EQ(rowsOfLength[200], 4);
}

TEST(Generate, MakesRandomRowsWithADominantDiagonal) {
  Triplets const matrix = Whole("random:2000");
  std::vector<double> diagonal(2000);
  std::vector<double> others(2000);

  for (auto const& [row, col, value] : Entries(matrix))
    (row == col ? diagonal : others)[static_cast<std::size_t>(row)] += std::abs(value);

  for (std::size_t row = 0; row < 2000; ++row)
    ASSERT_GT(diagonal[row], others[row]) << row;
}

TEST(Generate, FillsADenseMatrixWithValuesBetweenMinusOneAndOne) {
  Triplets const matrix = Whole("dense:30x20");

  EXPECT_TRUE(matrix.mDense);
  ASSERT_EQ(matrix.Entries(), 600u);
  EXPECT_THAT(matrix.mReal, testing::Each(testing::AllOf(testing::Ge(-1.0), testing::Lt(1.0))));
  EXPECT_LT(*std::min_element(matrix.mReal.begin(), matrix.mReal.end()), -0.9);
  EXPECT_GT(*std::max_element(matrix.mReal.begin(), matrix.mReal.end()), 0.9);
}

TEST(Generate, RefusesADescriptionWithoutSize) {
  EXPECT_THAT(
      [] { Generator("poisson3d"); },
      ThrowsMessage<InputError>("cannot generate \"poisson3d\": expected one of poisson2d:N, "
                                "poisson3d:N, convection2d:N, convection3d:N, random:N, "
                                "dense:ROWSxCOLS"));
}

TEST(Generate, RefusesUnknownKinds) {
  EXPECT_THAT([] { Generator("poisson4d:5"); },
              ThrowsMessage<InputError>(
                  "cannot generate \"poisson4d:5\": unknown kind \"poisson4d\", known: "
                  "poisson2d:N, poisson3d:N, convection2d:N, convection3d:N, random:N, "
                  "dense:ROWSxCOLS"));
}

TEST(Generate, RefusesSizesThatAreNoNumbers) {
  EXPECT_THAT([] { Generator("poisson3d:abc"); },
              ThrowsMessage<InputError>(
                  "cannot generate \"poisson3d:abc\": \"abc\" is not a whole number"));
  EXPECT_THAT(
      [] { Generator("random:"); },
      ThrowsMessage<InputError>("cannot generate \"random:\": \"\" is not a whole number"));
  EXPECT_THAT([] { Generator("random:10.5"); },
              ThrowsMessage<InputError>(
                  "cannot generate \"random:10.5\": \"10.5\" is not a whole number"));
}

TEST(Generate, RefusesSizesOutOfRange) {
  EXPECT_THAT([] { Generator("random:0"); },
              ThrowsMessage<InputError>(
                  "cannot generate \"random:0\": the size 0 is outside 1 to 2147483647"));
  EXPECT_THAT([] { Generator("poisson3d:1291"); },
              ThrowsMessage<InputError>(
                  "cannot generate \"poisson3d:1291\": the size 1291 is outside 1 to 1290"));
  EXPECT_THAT([] { Generator("dense:3x99999999999999999999"); },
              ThrowsMessage<InputError>("cannot generate \"dense:3x99999999999999999999\": the "
                                        "size 99999999999999999999 is outside 1 to "
                                        "2147483647"));
}

TEST(Generate, RefusesADenseSizeWithoutColumns) {
  EXPECT_THAT([] { Generator("dense:300"); },
              ThrowsMessage<InputError>("cannot generate \"dense:300\": expected "
                                        "dense:ROWSxCOLS, as in dense:300x200"));
}

TEST(Generate, SaysWhenTheMemoryDoesNotSuffice) {
  Generator const generator("dense:2000000000x2000000000");
  Triplets piece = generator.Empty();

  EXPECT_THAT(
      [&] { generator.AppendRows(0, generator.Rows(), piece); },
      ThrowsMessage<InputError>("not enough memory to generate 4000000000000000000 entries"));
}

}  // namespace
}  // namespace Pavex::Tool
