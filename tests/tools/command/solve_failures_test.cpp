// The exact messages of `pavex solve` about what it refuses or cannot do.

#include "run_pavex.h"
#include "tests/tools/temporary_folder.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using Words = std::vector<std::string>;

constexpr char const* kCoordinate = "%%MatrixMarket matrix coordinate real general\n";
constexpr char const* kArray = "%%MatrixMarket matrix array real general\n";

void ExpectFailure(Words words, std::string const& line) {
  words.insert(words.begin(), "solve");
  CommandResult const result = RunPavex(words);

  EXPECT_EQ(result.errors, "pavex: " + line + "\n");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output, "");
}

// Expects the message of any solver about a zero pivot.
void ExpectSingular(Words words, std::string const& before = "") {
  words.insert(words.begin(), "solve");
  CommandResult const result = RunPavex(words);

  EXPECT_THAT(result.errors,
              testing::MatchesRegex("pavex: " + before +
                                    "the matrix is numerically singular: [A-Za-z]+ met a zero "
                                    "pivot\n"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output, "");
}

TEST(SolveRefusal, NamesTheShapeOfAMatrixThatIsNotSquare) {
  ExpectFailure({"--generate", "dense:4x3"},
                "dense:4x3 is 4 x 3: only a square matrix can be solved");
}

TEST(SolveRefusal, CallsAMatrixWithoutEntriesSingular) {
  TemporaryFolder folder;
  std::string const a = folder.Write("a.mtx", std::string(kCoordinate) + "2 2 0\n");

  for (char const* value : {"float", "double"})
    ExpectFailure({a, "--ranks", "1", "--value", value}, a + " has no entries: it is singular");
}

TEST(SolveRefusal, NamesTheLengthsOfARhsThatDoesNotFit) {
  TemporaryFolder folder;
  std::string const b = folder.Write("b.mtx", std::string(kArray) + "3 1\n1\n2\n3\n");

  ExpectFailure({"--generate", "poisson2d:2", "--rhs-file", b},
                b + " has 3 rows, but poisson2d:2 has 4");
}

TEST(SolveRefusal, SendsDenseMatricesToTheSparseFormats) {
  ExpectFailure({"--generate", "poisson2d:2", "--format", "dense-row"},
                "--format dense-row: the solvers take sparse matrices; use coo, csr or csc");
}

TEST(SolveRefusal, TakesEitherAFileOrANumberOfRhs) {
  ExpectFailure({"--generate", "poisson2d:2", "--rhs", "2", "--rhs-file", "b.mtx"},
                "--rhs excludes --rhs-file; see pavex solve --help");
}

TEST(SolveRefusal, KeepsAComplexRhsOutOfARealSolve) {
  TemporaryFolder folder;
  std::string const b = folder.Write(
      "b.mtx", "%%MatrixMarket matrix array complex general\n4 1\n1 1\n2 0\n3 0\n4 0\n");

  ExpectFailure({"--generate", "poisson2d:2", "--rhs-file", b},
                b + " is complex: use --value complex-double or complex-float");
}

TEST(SolveRefusal, CountsTheCuts) {
  ExpectFailure({"--generate", "poisson2d:2", "--cuts", "1,2"},
                "--cuts: 4 ranks need 3 cut points, not 2");
}

// Rows 1 and 2 are equal: the second pivot is 0.
TEST(SolveSingular, IsSaidOnEveryNumberOfRanksInEveryType) {
  TemporaryFolder folder;
  std::string const a = folder.Write(
      "a.mtx", std::string(kCoordinate) + "4 4 6\n1 1 1\n1 2 1\n2 1 1\n2 2 1\n3 3 1\n4 4 1\n");

  for (char const* ranks : {"1", "2", "3", "4"})
    for (char const* value : {"float", "double", "complex-float", "complex-double"})
      for (char const* to : {"root", "all"})
        ExpectSingular({a, "--ranks", ranks, "--value", value, "--to", to});
}

TEST(SolveSingular, IsSaidOfAnEmptyColumn) {
  TemporaryFolder folder;
  std::string const a =
      folder.Write("a.mtx", std::string(kCoordinate) + "3 3 4\n1 1 1\n2 2 1\n3 1 1\n3 2 5\n");

  ExpectSingular({a, "--ranks", "3"});
}

TEST(SolveSingular, IsSaidOfRealProblemsWithUnitValues) {
  char const* const folder = std::getenv("PAVEX_MATRIX_DIR");
  TemporaryFolder own;
  Words files = {own.Write("ones.mtx",
                           "%%MatrixMarket matrix coordinate pattern general\n3 3 7\n1 1\n1 "
                           "2\n2 1\n2 2\n3 1\n3 2\n3 3\n")};
  if (folder != nullptr && *folder != '\0')
    files = {std::string(folder) + "/bcspwr10.mtx", std::string(folder) + "/rajat01.mtx"};

  for (std::string const& file : files)
    for (char const* format : {"coo", "csr"})
      ExpectSingular({file, "--format", format, "--ranks", "3"});
}

}  // namespace
}  // namespace Pavex::Tool
