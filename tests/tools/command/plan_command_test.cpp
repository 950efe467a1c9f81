// The plan of the real command agrees with its report of the gather.

#include "run_pavex.h"
#include "tests/tools/temporary_folder.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <ostream>

namespace Pavex::Tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

nlohmann::json Report(std::string const& subcommand, Words const& options) {
  TemporaryFolder const folder;
  Words words = {subcommand, "--json", folder.Path("report.json")};
  words.insert(words.end(), options.begin(), options.end());
  CommandResult const result = RunPavex(words);
  EXPECT_EQ(result.exitCode, 0) << result.errors;
  return nlohmann::json::parse(folder.Read("report.json"));
}

void ExpectPlanned(Words const& options) {
  auto const plan = Report("plan", options);
  auto const gather = Report("gather", options);

  for (char const* key : {"mode", "rows", "columns", "entries", "field", "ranks", "format",
                          "partition", "value", "index", "withValues", "to", "comm"})
    EXPECT_EQ(plan[key], gather[key]) << key;
  ASSERT_EQ(plan["pieces"].size(), gather["pieces"].size());
  for (std::size_t rank = 0; rank < plan["pieces"].size(); ++rank)
    for (char const* key :
         {"rank", "rows", "columns", "begin", "entries", "bytes", "peakPoolBytes"})
      EXPECT_EQ(plan["pieces"][rank][key], gather["pieces"][rank][key]) << rank << " " << key;
  ASSERT_EQ(plan["gathered"].size(), gather["gathered"].size());
  for (std::size_t k = 0; k < plan["gathered"].size(); ++k) {
    EXPECT_TRUE(plan["pieces"][plan["gathered"][k]["rank"].get<std::size_t>()]["receives"]);
    for (char const* key : {"rank", "rows", "columns", "entries"})
      EXPECT_EQ(plan["gathered"][k][key], gather["gathered"][k][key]) << key;
  }
}

TEST(PlanCommand, PlansWhatTheGatherReports) {
  ExpectPlanned({"--generate", "convection3d:7", "--format", "csr", "--cuts", "10,11,300"});
  ExpectPlanned({"--generate", "poisson2d:9", "--format", "csc", "--partition", "columns",
                 "--ranks", "3", "--to", "all", "--index", "long", "--base", "1"});
  ExpectPlanned({"--generate", "random:40", "--partition", "entries", "--no-values"});
  ExpectPlanned({"--generate", "dense:7x9", "--format", "dense-col", "--ld", "2", "--value",
                 "float", "--to", "all"});
  ExpectPlanned({"--generate", "dense:7x9", "--format", "dense-row", "--partition", "columns"});
  ExpectPlanned({"--generate", "dense:7x9", "--format", "dense-row", "--partition", "one",
                 "--holder", "2"});
  ExpectPlanned({"--generate", "dense:7x9", "--format", "dense-row", "--ranks", "1"});
  ExpectPlanned({"--generate", "random:40", "--partition", "one", "--holder", "2"});
}

TEST(PlanCommand, AnswersForMoreThanAnyMemoryHolds) {
  CommandResult const result = RunPavex({"plan", "--generate", "poisson3d:1000", "--format",
                                         "csr", "--index", "long", "--ranks", "1000"});

  EXPECT_EQ(result.exitCode, 0) << result.errors;
  EXPECT_THAT(result.output,
              HasSubstr("poisson3d:1000: 1000000000 x 1000000000, 6994000000 entries, real\n"));
  EXPECT_THAT(result.output, HasSubstr("\n   ...  --all-ranks shows the other 996\n"));
}

TEST(PlanCommand, CutsBetweenEntriesBeyondInt) {
  auto const plan =
      Report("plan", {"--generate", "poisson3d:800", "--format", "coo", "--partition",
                      "entries", "--ranks", "3", "--cuts", "1000000000,3000000000"});

  EXPECT_EQ(plan["entries"], 3580160000);
  EXPECT_EQ(plan["pieces"][1]["entries"], 2000000000);
  EXPECT_EQ(plan["pieces"][2]["entries"], 580160000);
}

TEST(PlanCommand, FailsAsTheGatherWould) {
  CommandResult const result =
      RunPavex({"plan", "--generate", "poisson3d:1000", "--format", "csr", "--ranks", "1000"});

  std::string const refusal =
      "poisson3d:1000 has 6994000000 entries, more than the 2147483647 that offsets can count "
      "with --index int: use --index long\n";
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.errors, "pavex: " + refusal);
  EXPECT_THAT(
      result.output,
      StartsWith("refused: " + refusal +
                 "poisson3d:1000: 1000000000 x 1000000000, 6994000000 entries, real\n"));
  EXPECT_THAT(result.output,
              HasSubstr("\nrefused: the pieces have 6994000000 entries together"));
}

TEST(PlanCommand, ShowsEveryRankOnRequest) {
  CommandResult const result =
      RunPavex({"plan", "--generate", "poisson3d:10", "--ranks", "100", "--all-ranks"});

  EXPECT_EQ(result.exitCode, 0) << result.errors;
  EXPECT_THAT(result.output, HasSubstr("\n    50  "));
}

// Expects that the plan and the gather both succeed, or both fail with the same message.
void ExpectAgreement(std::string const& input, Words options) {
  options.insert(options.begin(), {"", input, "--log-level", "silent"});
  SCOPED_TRACE(testing::PrintToString(options));
  options[0] = "plan";
  CommandResult const plan = RunPavex(options);
  options[0] = "gather";
  CommandResult const gather = RunPavex(options);

  EXPECT_EQ(gather.exitCode, plan.exitCode) << plan.output;
  EXPECT_EQ(gather.errors, plan.errors);
}

struct Cuts {
  char const* mFormat;
  Words mPartitions;
};

void PrintTo(Cuts const& cuts, std::ostream* out) {
  *out << cuts.mFormat;
}

class PlanOfGaps : public testing::TestWithParam<Cuts> {};

// The matrices are 4 x 4. They have no entries, or entries only in the first row, only in the
// first column, or in the first and the third row.
TEST_P(PlanOfGaps, AgreesWithTheGather) {
  TemporaryFolder const folder;
  std::string const banner = "%%MatrixMarket matrix coordinate real general\n4 4 ";
  std::string const inputs[] = {
      folder.Write("none.mtx", banner + "0\n"),
      folder.Write("row.mtx", banner + "4\n1 1 5\n1 2 6\n1 3 7\n1 4 8\n"),
      folder.Write("column.mtx", banner + "4\n1 1 5\n2 1 6\n3 1 7\n4 1 8\n"),
      folder.Write("gap.mtx", banner + "4\n1 1 5\n1 2 6\n3 1 7\n3 3 8\n")};
  std::string const format = GetParam().mFormat;

  for (std::string const& input : inputs)
    for (std::string const& partition : GetParam().mPartitions)
      for (char const* ranks : {"2", "4"}) {
        Words options = {"--format", format, "--partition", partition, "--ranks", ranks};
        ExpectAgreement(input, options);
        options.emplace_back("--no-values");
        if (format.substr(0, 5) != "dense") ExpectAgreement(input, options);
      }
}

INSTANTIATE_TEST_SUITE_P(
    , PlanOfGaps,
    testing::Values(Cuts{"coo", {"rows", "columns", "entries", "one", "all"}},
                    Cuts{"csr", {"rows", "one", "all"}}, Cuts{"csc", {"columns", "one", "all"}},
                    Cuts{"dense-row", {"rows", "columns", "one", "all"}},
                    Cuts{"dense-col", {"rows", "columns", "one", "all"}}),
    [](testing::TestParamInfo<Cuts> const& test) {
      std::string name = test.param.mFormat;
      std::replace(name.begin(), name.end(), '-', '_');
      return name;
    });

TEST(PlanCommand, AgreesWithTheGatherOnTooManyEntries) {
  ExpectAgreement("--generate=poisson3d:700", {"--format", "csr"});
  ExpectAgreement("--generate=poisson3d:700", {"--format", "csr", "--partition", "all"});
  ExpectAgreement("--generate=poisson3d:700", {"--format", "csc", "--partition", "columns"});
}

TEST(PlanCommand, FailsForPiecesThatTheLibraryRefuses) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a.mtx",
                                        "%%MatrixMarket matrix coordinate real general\n"
                                        "4 4 2\n1 1 5\n3 3 6\n");

  CommandResult const result = RunPavex({"plan", path, "--log-level", "silent"});

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output,
              HasSubstr("\nrefused: 2 of 4 processes are empty (the first is process 1), "));
  EXPECT_THAT(result.errors, StartsWith("pavex: rank 1 would be left empty: "));
}

}  // namespace
}  // namespace Pavex::Tool
