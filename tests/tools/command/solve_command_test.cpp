// The real `pavex solve`: every format, partition and type on small matrices, and the matrices
// of a folder.

#include "run_pavex.h"
#include "tests/tools/temporary_folder.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace Pavex::Tool {
namespace {

using testing::HasSubstr;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

Words Join(Words words, Words const& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

Words LinesOf(std::string const& text) {
  Words lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  return lines;
}

// The report of a solve that has to succeed.
Json Solve(Words const& options) {
  TemporaryFolder folder;
  Words const words = Join(Join({"solve"}, options), {"--json", folder.Path("report")});
  CommandResult const result = RunPavex(words);
  std::string line = "pavex";
  for (std::string const& word : words)
    line += " " + word;
  EXPECT_EQ(result.exitCode, 0) << line << "\n" << result.errors;
  EXPECT_EQ(result.errors, "") << line;
  return Json::parse(folder.Read("report"), nullptr, false);
}

void ExpectAccurate(Json const& report, std::size_t steps, double normwise,
                    double componentwise) {
  ASSERT_EQ(report["steps"].size(), steps);
  for (Json const& step : report["steps"]) {
    EXPECT_LE(step["normwiseResidual"].get<double>(), normwise) << step;
    EXPECT_LE(step["componentwiseResidual"].get<double>(), componentwise) << step;
  }
}

struct Cut {
  char const* format;
  char const* partition;
};

class SolveCommand : public testing::TestWithParam<Cut> {};

// Each run makes one update, with two right-hand sides and padded columns.
TEST_P(SolveCommand, SolvesWithEveryTypeOnOneToFourRanks) {
  std::string const partition = GetParam().partition;
  Words const common = {"--generate",  "convection2d:5",
                        "--format",    GetParam().format,
                        "--partition", partition,
                        "--steps",     "1",
                        "--rhs",       "2",
                        "--ld",        "3"};
  for (int ranks = 1; ranks <= 4; ++ranks) {
    Words words = Join(common, {"--ranks", std::to_string(ranks)});
    if (partition == "one") words = Join(words, {"--holder", std::to_string(ranks - 1)});
    int turn = ranks;  // tests every value type with both index types and receivers
    for (std::string const value : {"float", "double", "complex-float", "complex-double"}) {
      char const* const index = turn % 2 == 0 ? "int" : "long";
      char const* const to = turn / 2 % 2 == 0 ? "root" : "all";
      ++turn;
      Json const report = Solve(Join(words, {"--value", value, "--index", index, "--to", to}));
      bool const isSingle = value.find("float") != std::string::npos;
      ExpectAccurate(report, 2, isSingle ? 1e-6 : 1e-15, isSingle ? 1e-6 : 1e-15);
      for (Json const& step : report["steps"])
        EXPECT_LE(step["error"].get<double>(), isSingle ? 1e-5 : 1e-13);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, SolveCommand,
                         testing::Values(Cut{"coo", "rows"}, Cut{"coo", "columns"},
                                         Cut{"coo", "entries"}, Cut{"coo", "one"},
                                         Cut{"coo", "all"}, Cut{"csr", "rows"},
                                         Cut{"csr", "one"}, Cut{"csr", "all"},
                                         Cut{"csc", "columns"}, Cut{"csc", "one"},
                                         Cut{"csc", "all"}),
                         [](testing::TestParamInfo<Cut> const& cut) {
                           return std::string(cut.param.format) + "_" + cut.param.partition;
                         });

// The program starts itself again then, to set the number.
TEST(SolveStart, NeedsNoNumberOfBlasThreads) {
  char const* const variable = "OPENBLAS_NUM_THREADS";
  char const* const value = std::getenv(variable);
  std::string const kept = value == nullptr ? "" : value;
  unsetenv(variable);

  Json const report = Solve({"--generate", "convection2d:5", "--ranks", "2"});

  if (value != nullptr) setenv(variable, kept.c_str(), 1);
  ExpectAccurate(report, 1, 1e-15, 1e-15);
}

TEST(SolveReport, SaysHowTheMatrixWasRead) {
  Words const words = {"--generate", "random:30", "--ranks", "2"};

  Json const coo = Solve(words);
  Json const csr = Solve(Join(words, {"--format", "csr"}));
  Json const csc = Solve(Join(words, {"--format", "csc", "--partition", "columns"}));

  EXPECT_EQ(coo["reading"], "coo copied into sorted columns, duplicates summed");
  EXPECT_EQ(csr["reading"], "csr in place, as the transpose");
  EXPECT_EQ(csc["reading"], "csc in place");
}

TEST(SolveReport, ShowsTimesBytesResidualsAndTheShareOfTheAggregation) {
  CommandResult const result =
      RunPavex({"solve", "--generate", "convection2d:4", "--format", "csr", "--steps", "1"});

  EXPECT_EQ(result.exitCode, 0) << result.errors;
  EXPECT_THAT(result.output, testing::StartsWith("solved: normwise scaled residual "));
  EXPECT_THAT(
      result.output,
      HasSubstr(", the largest of all steps\nconvection2d:4: 16 x 16, 64 entries, real\n"));
  EXPECT_THAT(result.output, HasSubstr("gather/update     analyse    factor     solve"));
  EXPECT_THAT(result.output, HasSubstr("\nstep  normwise  componentwise     error\n   0  "));
  EXPECT_THAT(result.output, HasSubstr("\naggregation: "));
}

// The matrix has 64 entries of 8 + 4 bytes and 17 offsets; the right-hand side has 16 elements.
TEST(SolveReport, CountsTheBytesThatArrive) {
  Json const report =
      Solve({"--generate", "convection2d:4", "--format", "csr", "--steps", "1"});

  ASSERT_EQ(report["steps"].size(), 2u);
  EXPECT_EQ(report["steps"][0]["operations"][0]["bytes"], 64 * 12 + 17 * 4);
  EXPECT_EQ(report["steps"][0]["operations"][1]["bytes"], 16 * 8);
  EXPECT_EQ(report["steps"][1]["operations"][0]["bytes"], 64 * 8);
  EXPECT_EQ(report["steps"][1]["operations"][2]["bytes"], 16 * 8);
}

TEST(SolveRhsFile, GivesTheSolutionsOfItsColumns) {
  TemporaryFolder folder;
  std::string const a = folder.Write("a.mtx",
                                     "%%MatrixMarket matrix coordinate real general\n"
                                     "2 2 3\n1 1 2\n2 1 1\n2 2 4\n");
  std::string const b =
      folder.Write("b.mtx", "%%MatrixMarket matrix array real general\n2 2\n4\n10\n2\n-3\n");

  Json const report =
      Solve({a, "--rhs-file", b, "--ranks", "2", "--output", folder.Path("x.mtx")});

  EXPECT_EQ(report["rhs"], 2);
  EXPECT_FALSE(report["steps"][0].contains("error"));
  EXPECT_THAT(folder.Read("x.mtx"), testing::EndsWith("2 2\n2\n2\n1\n-1\n"));
}

TEST(SolveDuplicates, AreSummed) {
  TemporaryFolder folder;
  std::string const a = folder.Write("a.mtx",
                                     "%%MatrixMarket matrix coordinate real general\n"
                                     "2 2 4\n1 1 1\n2 2 4\n1 1 1\n2 1 1\n");

  for (char const* format : {"coo", "csr"})
    ExpectAccurate(Solve({a, "--format", format, "--ranks", "2"}), 1, 1e-15, 1e-15);
}

TEST(SolveSteps, ChangeTheValuesButNotTheSolution) {
  TemporaryFolder folder;
  Words const words = {"--generate", "convection2d:4", "--format", "csr"};

  Solve(Join(words, {"--output", folder.Path("first")}));
  Json const report = Solve(Join(words, {"--steps", "3", "--output", folder.Path("last")}));

  ExpectAccurate(report, 4, 1e-15, 1e-15);
  EXPECT_EQ(report["steps"][1]["analyseSeconds"], 0.0);
  EXPECT_NE(folder.Read("first"), folder.Read("last"));  // in the last bits
}

// The gathered matrix is written with all its bits.
class GatherCuts : public testing::TestWithParam<Cut> {};

TEST_P(GatherCuts, GiveTheSameBitsWhereverTheyAre) {
  TemporaryFolder folder;
  std::vector<Words> gathered;
  for (char const* cuts : {"1,2,3", "5,11,12", "10,20,30", "17,18,38", "36,37,39"}) {
    CommandResult const result =
        RunPavex({"gather", "--generate", "random:40", "--format", GetParam().format,
                  "--partition", GetParam().partition, "--cuts", cuts, "--updates", "1",
                  "--output", folder.Path("whole")});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    Words lines = LinesOf(folder.Read("whole"));
    if (std::string(GetParam().format) == "coo") std::sort(lines.begin(), lines.end());
    gathered.push_back(lines);
  }

  EXPECT_THAT(gathered, testing::Each(gathered[0]));
}

INSTANTIATE_TEST_SUITE_P(All, GatherCuts,
                         testing::Values(Cut{"coo", "rows"}, Cut{"coo", "columns"},
                                         Cut{"coo", "entries"}, Cut{"csr", "rows"},
                                         Cut{"csc", "columns"}, Cut{"dense-row", "rows"},
                                         Cut{"dense-row", "columns"}, Cut{"dense-col", "rows"},
                                         Cut{"dense-col", "columns"}),
                         [](testing::TestParamInfo<Cut> const& cut) {
                           std::string name =
                               std::string(cut.param.format) + "_" + cut.param.partition;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

// Solves real problems from PAVEX_MATRIX_DIR, if it is set.
TEST(SolveMatrixFolder, SolvesRealProblems) {
  char const* const folder = std::getenv("PAVEX_MATRIX_DIR");
  Words files = {"--generate random:200"};
  if (folder != nullptr && *folder != '\0') {
    files.clear();
    for (char const* name : {"adder_dcop_05", "bcsstk13", "cryg2500", "hangGlider_2", "watt_2",
                             "west0479", "young1c"})
      files.push_back(std::string(folder) + "/" + name + ".mtx");
  }
  for (std::string const& file : files) {
    std::size_t const space = file.find(' ');
    Words const input = space == std::string::npos
                            ? Words{file}
                            : Words{file.substr(0, space), file.substr(space + 1)};
    for (char const* format : {"coo", "csr"})
      ExpectAccurate(Solve(Join(input, {"--format", format, "--steps", "1"})), 2, 1e-12, 1e-13);
    ExpectAccurate(Solve(Join(input, {"--format", "csc", "--partition", "columns"})), 1, 1e-12,
                   1e-13);
  }
}

}  // namespace
}  // namespace Pavex::Tool
