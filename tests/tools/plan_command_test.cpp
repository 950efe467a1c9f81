// The real command plans what the real command then reports.

#include "run_pavex.h"
#include "temporary_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

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
                          "partition", "value", "index", "withValues", "to"})
    EXPECT_EQ(plan[key], gather[key]) << key;
  ASSERT_EQ(plan["pieces"].size(), gather["pieces"].size());
  for (std::size_t rank = 0; rank < plan["pieces"].size(); ++rank)
    for (char const* key :
         {"rank", "rows", "columns", "begin", "entries", "bytes", "peakPoolBytes"})
      EXPECT_EQ(plan["pieces"][rank][key], gather["pieces"][rank][key]) << rank << " " << key;
  for (auto const& gathered : gather["gathered"]) {
    EXPECT_TRUE(plan["pieces"][gathered["rank"].get<std::size_t>()]["receives"]);
    for (char const* key : {"rows", "columns", "entries"})
      EXPECT_EQ(plan["gathered"][key], gathered[key]) << key;
  }
}

TEST(PlanCommand, PlansWhatTheGatherReports) {
  ExpectPlanned({"--generate", "convection3d:7", "--format", "csr", "--cuts", "10,11,300"});
  ExpectPlanned({"--generate", "poisson2d:9", "--format", "csc", "--partition", "columns",
                 "--ranks", "3", "--to", "all", "--index", "long", "--base", "1"});
  ExpectPlanned({"--generate", "random:40", "--partition", "entries", "--no-values"});
  ExpectPlanned({"--generate", "dense:7x9", "--format", "dense-col", "--ld", "2", "--value",
                 "float", "--to", "all"});
  ExpectPlanned({"--generate", "random:40", "--partition", "one", "--holder", "2"});
}

TEST(PlanCommand, AnswersForMoreThanAnyMemoryHolds) {
  CommandResult const result =
      RunPavex({"plan", "--generate", "poisson3d:1000", "--ranks", "1000"});

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(
      result.output,
      StartsWith("poisson3d:1000: 1000000000 x 1000000000, 6994000000 entries, real\n"));
  EXPECT_THAT(result.output, HasSubstr("\nwarning: 6994000000 entries are more than the "
                                       "2147483647 that one gather can place\n"));
}

TEST(PlanCommand, FailsForPiecesThatTheLibraryRefuses) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a.mtx",
                                        "%%MatrixMarket matrix coordinate real general\n"
                                        "4 4 2\n1 1 5\n3 3 6\n");

  CommandResult const result = RunPavex({"plan", path, "--log-level", "silent"});

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("\nrefused: 2 of 4 processes are empty, "));
  EXPECT_EQ(result.errors, "pavex: a gather refuses these pieces\n");
}

}  // namespace
}  // namespace Pavex::Tool
