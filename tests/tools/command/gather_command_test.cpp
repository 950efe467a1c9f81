// The real command: every format, partition and type on small matrices, its files, and the
// matrices of a folder.

#include "pavex/runtime/version.h"
#include "run_pavex.h"
#include "tests/tools/temporary_folder.h"
#include "tools/source/matrix_market.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <tuple>

namespace Pavex::Tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

Words Join(Words words, Words const& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

void ExpectVerified(Words const& options) {
  Words const words = Join({"gather"}, options);
  CommandResult const result = RunPavex(words);
  std::string line = "pavex";
  for (std::string const& word : words)
    line += " " + word;
  EXPECT_EQ(result.exitCode, 0) << line << "\n" << result.errors;
  EXPECT_THAT(result.output, StartsWith("verified: every entry is that of the input")) << line;
  EXPECT_EQ(result.errors, "") << line;
}

struct Types {
  char const* value;
  char const* index;
};

#ifdef PAVEX_TWO_INSTANCES
constexpr Types kTypes[] = {{"double", "int"}, {"complex-float", "long"}};
#else
constexpr Types kTypes[] = {{"float", "int"},          {"float", "long"},
                            {"double", "int"},         {"double", "long"},
                            {"complex-float", "int"},  {"complex-float", "long"},
                            {"complex-double", "int"}, {"complex-double", "long"}};
#endif

struct Cut {
  char const* format;
  char const* partition;
};

class GatherCommand : public testing::TestWithParam<Cut> {};

// Each run makes two updates. Dense matrices are padded and scattered back; compressed ones
// have base 1.
TEST_P(GatherCommand, VerifiesEveryTypeOnOneToSevenRanks) {
  std::string const format = GetParam().format;
  std::string const partition = GetParam().partition;
  Words common = {"--generate",  "random:23", "--format",  format,
                  "--partition", partition,   "--updates", "2"};
  if (format.find("dense") == 0) common = Join(common, {"--ld", "3", "--scatter"});
  if (format == "csr" || format == "csc") common = Join(common, {"--base", "1"});

  for (int ranks = 1; ranks <= 7; ++ranks) {
    Words words = Join(common, {"--ranks", std::to_string(ranks)});
    if (partition == "one") words = Join(words, {"--holder", std::to_string(ranks / 2)});
    int turn = ranks;  // tests all types with both receivers
    for (Types const& types : kTypes) {
      char const* const to = ++turn % 2 == 0 ? "root" : "all";
      ExpectVerified(Join(words, {"--value", types.value, "--index", types.index, "--to", to}));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, GatherCommand,
    testing::Values(Cut{"coo", "rows"}, Cut{"coo", "columns"}, Cut{"coo", "entries"},
                    Cut{"coo", "one"}, Cut{"coo", "all"}, Cut{"csr", "rows"}, Cut{"csr", "one"},
                    Cut{"csr", "all"}, Cut{"csc", "columns"}, Cut{"csc", "one"},
                    Cut{"csc", "all"}, Cut{"dense-row", "rows"}, Cut{"dense-row", "columns"},
                    Cut{"dense-row", "one"}, Cut{"dense-row", "all"}, Cut{"dense-col", "rows"},
                    Cut{"dense-col", "columns"}, Cut{"dense-col", "one"},
                    Cut{"dense-col", "all"}, Cut{"coo", "random"}, Cut{"coo", "overlap"},
                    Cut{"csr", "random"}, Cut{"csr", "overlap"}),
    [](testing::TestParamInfo<Cut> const& cut) {
      std::string name = std::string(cut.param.format) + "_" + cut.param.partition;
      std::replace(name.begin(), name.end(), '-', '_');
      return name;
    });

TEST(GatherCommandLine, GathersOnTheReceiverOfTheUser) {
  struct Expected {
    char const* partition;
    char const* path;
  };
  for (auto const& [partition, path] :
       {Expected{"rows", "bands"}, Expected{"random", "merge"}, Expected{"overlap", "merge"}}) {
    CommandResult const result =
        RunPavex({"gather", "--generate", "poisson3d:5", "--format", "csr", "--partition",
                  partition, "--receiver", "2", "--updates", "1"});

    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, StartsWith("verified: every entry is that of the input"));
    EXPECT_THAT(result.output, HasSubstr("gathered on rank 2"));
    EXPECT_THAT(result.output, HasSubstr(std::string("pieces, path ") + path));
  }
}

TEST(GatherCommandLine, AddsWhatAFileRepeatsWhereRowsHaveAnyOwner) {
  TemporaryFolder folder;
  std::string const file = folder.Write(
      "r.mtx",
      "%%MatrixMarket matrix coordinate real general\n3 3 4\n2 1 0.1\n3 3 5\n2 1 0.7\n1 2 1\n");

  for (char const* partition : {"random", "overlap"}) {
    CommandResult const result = RunPavex({"gather", file, "--ranks", "2", "--format", "csr",
                                           "--partition", partition, "--updates", "2"});
    EXPECT_EQ(result.exitCode, 0) << result.output << result.errors;
  }
}

TEST(GatherCommandLine, GathersThePatternOfAnyOwner) {
  for (char const* partition : {"random", "overlap"})
    ExpectVerified({"--generate", "poisson3d:4", "--partition", partition, "--no-values"});
}

// On 7 ranks: 3 rows, rows without an entry, and no rows at all.
TEST(GatherCommandLine, LetsRanksHaveNoRowsWhereAnAssemblerGathers) {
  TemporaryFolder folder;
  std::string const banner = "%%MatrixMarket matrix coordinate real general\n";
  std::string const one = folder.Write("one.mtx", banner + "5 5 1\n2 1 4\n");
  std::string const none = folder.Write("none.mtx", banner + "0 5 0\n");

  for (Words const& input : {Words{"--generate", "random:3"}, Words{one}, Words{none}})
    for (Words const& how : {Words{"rows", "--receiver", "6"}, Words{"overlap", "--to", "all"},
                             Words{"random", "--receiver", "5"}, Words{"overlap"}})
      ExpectVerified(Join(Join(Join(input, {"--partition"}), how),
                          {"--ranks", "7", "--format", "csr", "--updates", "1"}));
}

TEST(GatherCommandLine, GathersThePatternAlone) {
  for (char const* format : {"coo", "csr"})
    ExpectVerified({"--generate", "poisson3d:4", "--format", format, "--no-values"});
}

TEST(GatherCommandLine, GathersAPatternPieceWithoutEntries) {
  TemporaryFolder folder;
  std::string const file =
      folder.Write("g.mtx", "%%MatrixMarket matrix coordinate real general\n3 1 1\n2 1 4\n");

  ExpectVerified({file, "--ranks", "3", "--format", "csr", "--no-values"});
}

TEST(GatherCommandLine, TakesAComplexFileIntoComplexValuesByItself) {
  TemporaryFolder folder;
  std::string const file = folder.Write("c.mtx",
                                        "%%MatrixMarket matrix coordinate complex hermitian\n"
                                        "2 2 2\n1 1 3 0\n2 1 4 5\n");

  CommandResult const result = RunPavex({"gather", file, "--ranks", "2"});

  EXPECT_EQ(result.exitCode, 0) << result.errors;
  EXPECT_THAT(result.output, HasSubstr("coo of complex-double with int indices"));
}

TEST(GatherCommandLine, GathersOneProcessWithoutRowsOrEntries) {
  TemporaryFolder folder;
  std::string const file =
      folder.Write("e.mtx", "%%MatrixMarket matrix coordinate real general\n3 2 0\n");

  for (char const* format : {"coo", "csr", "csc", "dense-row"}) {
    char const* const partition = std::string(format) == "csc" ? "columns" : "rows";
    ExpectVerified({file, "--ranks", "1", "--format", format, "--partition", partition});
  }
}

TEST(GatherCommandLine, AddsUpRepeatedEntriesOfADenseMatrix) {
  TemporaryFolder folder;
  std::string const file = folder.Write("d.mtx",
                                        "%%MatrixMarket matrix coordinate real general\n"
                                        "2 2 3\n1 2 0.1\n1 2 0.2\n2 1 4\n");
  std::string const whole = folder.Path("whole.mtx");

  ExpectVerified({file, "--ranks", "2", "--format", "dense-col", "--output", whole});

  EXPECT_EQ(folder.Read("whole.mtx"),
            "%%MatrixMarket matrix array real general\n2 2\n0\n4\n0.30000000000000004\n0\n");
}

std::vector<std::tuple<int, int, double, double>> SortedEntries(std::string const& path) {
  Triplets const matrix = ReadMatrixMarket(path);
  std::vector<std::tuple<int, int, double, double>> entries;
  for (std::size_t k = 0; k < matrix.Entries(); ++k)
    entries.emplace_back(matrix.mRow[k], matrix.mCol[k], matrix.mReal[k],
                         matrix.IsComplex() ? matrix.mImag[k] : 0);
  std::sort(entries.begin(), entries.end());
  return entries;
}

constexpr char const* kSmall =
    "%%MatrixMarket matrix coordinate real general\n"
    "4 5 7\n1 5 0.1\n4 4 -1e-300\n2 2 3\n3 3 12345678.9\n1 1 7\n4 1 2\n2 4 5\n";

TEST(GatherOutput, HoldsTheEntriesOfTheInput) {
  TemporaryFolder folder;
  std::string const file = folder.Write("a.mtx", kSmall);
  std::string const whole = folder.Path("whole.mtx");

  for (Words const& words : {Words{"coo", "entries"}, Words{"csr", "rows"}, Words{"csr", "one"},
                             Words{"csc", "columns"}}) {
    ExpectVerified({file, "--format", words[0], "--partition", words[1], "--output", whole});

    EXPECT_EQ(SortedEntries(whole), SortedEntries(file)) << words[0];
  }
}

TEST(GatherOutput, IsAPatternWithoutValues) {
  TemporaryFolder folder;
  std::string const file = folder.Write("a.mtx",
                                        "%%MatrixMarket matrix coordinate pattern general\n"
                                        "2 2 2\n1 1\n2 1\n");

  ExpectVerified({file, "--ranks", "2", "--no-values", "--output", folder.Path("whole.mtx")});

  EXPECT_EQ(folder.Read("whole.mtx"), folder.Read("a.mtx"));
}

TEST(GatherOutput, HoldsTheValuesOfTheLastUpdate) {
  TemporaryFolder folder;
  std::string const file =
      folder.Write("a.mtx", "%%MatrixMarket matrix coordinate real general\n1 1 1\n1 1 0.5\n");

  ExpectVerified(
      {file, "--ranks", "1", "--updates", "2", "--output", folder.Path("whole.mtx")});

  EXPECT_EQ(folder.Read("whole.mtx"),
            "%%MatrixMarket matrix coordinate real general\n1 1 1\n1 1 2.5\n");
}

TEST(GatherJson, DescribesTheRun) {
  TemporaryFolder folder;
  std::string const file = folder.Write("a.mtx", kSmall);

  ExpectVerified({file, "--ranks", "2", "--format", "csr", "--updates", "1", "--json",
                  folder.Path("report.json")});

  auto const json = nlohmann::json::parse(folder.Read("report.json"));
  EXPECT_EQ(json["input"], file);
  EXPECT_EQ(json["rows"], 4);
  EXPECT_EQ(json["columns"], 5);
  EXPECT_EQ(json["entries"], 7);
  EXPECT_EQ(json["ranks"], 2);
  EXPECT_EQ(json["mode"], "DISTRIBUTED");
  EXPECT_EQ(json["pieces"][0]["entries"], 4);
  EXPECT_EQ(json["pieces"][1]["begin"], 2);
  EXPECT_EQ(json["pieces"][1]["bytes"], 3 * 4 + 3 * 4 + 3 * 8);
  EXPECT_EQ(json["gathered"].size(), 1U);
  EXPECT_EQ(json["gathered"][0]["arrivedBytes"], 5 * 4 + 7 * 4 + 7 * 8);
  EXPECT_EQ(json["gathered"][0]["borrowedBytes"], 0);
  EXPECT_EQ(json["operations"][0]["operation"], "gather");
  EXPECT_EQ(json["operations"][1]["bytes"], 7 * 8);
  EXPECT_EQ(json["verified"], true);
}

TEST(GatherJson, CountsWhatIsBorrowedFromTheHolder) {
  TemporaryFolder folder;
  std::string const file = folder.Write("a.mtx", kSmall);

  ExpectVerified({file, "--ranks", "2", "--partition", "one", "--to", "all", "--json",
                  folder.Path("report.json")});

  auto const json = nlohmann::json::parse(folder.Read("report.json"));
  EXPECT_EQ(json["mode"], "CENTRALIZED_ONE");
  EXPECT_EQ(json["gathered"][0]["borrowedBytes"], 7 * 16);
  EXPECT_EQ(json["gathered"][0]["arrivedBytes"], 0);
  EXPECT_EQ(json["gathered"][1]["arrivedBytes"], 7 * 16);
}

TEST(GatherLog, FollowsTheLevel) {
  Words const words = {"gather", "--generate", "poisson3d:3", "--ranks", "2"};

  CommandResult const quiet = RunPavex(words);
  CommandResult const debug = RunPavex(Join(words, {"--log-level", "debug"}));

  EXPECT_EQ(quiet.output.find("DEBUG"), std::string::npos);
  EXPECT_THAT(debug.output, HasSubstr("[DEBUG] Matrix mode is DISTRIBUTED.\n"));
}

TEST(PavexCommand, PrintsItsVersionAndExamples) {
  EXPECT_THAT(RunPavex({"--version"}).output,
              StartsWith("pavex " PAVEX_VERSION "\nsolves with "));
  EXPECT_THAT(RunPavex({"--help"}).output, HasSubstr("gather"));
  CommandResult const help = RunPavex({"gather", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_THAT(help.output, HasSubstr("pavex gather --generate poisson3d:100 --format csr"));
}

// The folder that PAVEX_MATRIX_DIR names. If it is not set, a folder with a matrix of each
// kind.
class MatrixFolder : public testing::Test {
 protected:
  std::vector<std::string> Files() {
    char const* const named = std::getenv("PAVEX_MATRIX_DIR");
    std::string const path = named != nullptr ? named : Samples();
    std::vector<std::string> files;
    for (auto const& file : std::filesystem::directory_iterator(path))
      if (file.path().extension() == ".mtx") files.push_back(file.path().string());
    std::sort(files.begin(), files.end());
    return files;
  }

 private:
  std::string Samples() {
    std::string const banner = "%%MatrixMarket matrix ";
    mFolder.Write("general.mtx", banner +
                                     "coordinate real general\n4 3 4\n1 1 1\n2 3 2\n3 2 .5\n"
                                     "4 1 -4\n");
    mFolder.Write("symmetric.mtx",
                  banner + "coordinate integer symmetric\n4 4 4\n1 1 1\n2 2 3\n4 3 2\n3 1 9\n");
    mFolder.Write("skew.mtx",
                  banner + "coordinate real skew-symmetric\n4 4 2\n2 1 1.5\n4 3 2\n");
    mFolder.Write(
        "hermitian.mtx",
        banner + "coordinate complex hermitian\n4 4 4\n1 1 1 0\n2 2 3 0\n4 3 2 1\n3 1 9 2\n");
    mFolder.Write("pattern.mtx",
                  banner + "coordinate pattern general\n4 4 4\n1 1\n2 4\n3 3\n4 2\n");
    mFolder.Write("array.mtx", banner + "array real general\n4 2\n1\n2\n3\n4\n5\n6\n7\n8\n");
    return mFolder.Path("");
  }

  TemporaryFolder mFolder;
};

TEST_F(MatrixFolder, IsGatheredFileByFileInEveryStorage) {
  std::vector<std::string> const files = Files();

  ASSERT_FALSE(files.empty());
  for (std::string const& file : files) {
    ExpectVerified({file, "--ranks", "3", "--partition", "entries", "--updates", "1"});
    ExpectVerified({file, "--ranks", "4", "--format", "csr", "--updates", "1", "--to", "all"});
    ExpectVerified({file, "--ranks", "2", "--format", "csc", "--partition", "columns"});
    ExpectVerified({file, "--ranks", "2", "--format", "dense-col", "--ld", "1", "--scatter"});
  }
}

}  // namespace
}  // namespace Pavex::Tool
