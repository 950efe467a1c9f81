// Memory that runs out: the command prints one line, exits with 1 at once and writes no file.

#include "run_pavex.h"
#include "tests/tools/temporary_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using Words = std::vector<std::string>;

constexpr char const* kNoFactors = "pavex: not enough memory for the factorisation\n";

void ExpectNoRoom(long megabytes, Words words, std::string const& errors) {
  TemporaryFolder folder;
  words.insert(words.end(),
               {"--output", folder.Path("x.mtx"), "--json", folder.Path("x.json")});

  CommandResult const result = RunPavexWithin(megabytes, words);

  EXPECT_THAT(result.errors, testing::MatchesRegex(errors));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(folder.Names(), testing::IsEmpty());
}

// Expects that the factors do not fit into `megabytes`. Useful limits are well between 250,
// where the pieces may not fit, and 800, where some factors do.
void ExpectNoFactors(char const* value, long megabytes) {
  for (char const* to : {"root", "all"})
    ExpectNoRoom(megabytes,
                 {"solve", "--generate", "convection3d:40", "--format", "csr", "--ranks", "2",
                  "--value", value, "--to", to},
                 kNoFactors);
}

TEST(Memory, ThatDoesNotSufficeForTheFactorsOfUmfpackIsSaid) {
  ExpectNoFactors("double", 450);
  ExpectNoFactors("complex-double", 500);
}

TEST(Memory, ThatDoesNotSufficeForTheFactorsOfEigenIsSaid) {
  ExpectNoFactors("float", 350);
  ExpectNoFactors("complex-float", 400);
}

// OpenBLAS takes 128 MiB at its start.
TEST(Memory, ThatDoesNotSufficeForTheBlasIsSaid) {
  ExpectNoRoom(120, {"solve", "--generate", "poisson2d:4", "--ranks", "1"}, kNoFactors);
}

TEST(Memory, OfASmallJobIsSmall) {
  CommandResult const result =
      RunPavexWithin(120, {"gather", "--generate", "poisson2d:4", "--ranks", "1"});

  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.exitCode, 0);
}

TEST(Memory, ThatDoesNotSufficeForTheInputIsSaidWithItsEntries) {
  TemporaryFolder folder;
  std::string const file = folder.Path("large.mtx");
  std::string text = "%%MatrixMarket matrix array real general\n4000 2000\n";
  for (int k = 0; k < 8000000; ++k)
    text += "1\n";
  folder.Write("large.mtx", text);

  ExpectNoRoom(120, {"gather", file, "--ranks", "1"},
               "pavex: " + file + ": not enough memory for 8000000 entries\n");
}

// Memory runs out on a rank that takes part in the gather, or on the one that holds the pieces.
TEST(Memory, ThatDoesNotSufficeForTheGatherIsSaid) {
  ExpectNoRoom(
      150, {"gather", "--generate", "poisson3d:90", "--ranks", "2"},
      "pavex: (not enough memory[^\n]*|rank [01]: out of memory, [0-9.]+ [kM]B asked for with "
      "[0-9.]+ ([kM]B|bytes) in use)\n");
}

}  // namespace
}  // namespace Pavex::Tool
