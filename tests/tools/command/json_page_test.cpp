// Checks that the page about --json names the same fields as the files that --json writes.

#include "run_pavex.h"
#include "tests/tools/temporary_folder.h"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

namespace Pavex::Tool {
namespace {

using nlohmann::json;
using Words = std::vector<std::string>;
// Fields, each as a text like "gather pieces[].rows integer".
using Fields = std::set<std::string>;

std::string TypeOf(json const& value) {
  if (value.is_number_integer()) return "integer";
  return value.type_name();
}

void Collect(std::string const& prefix, json const& value, Fields& fields) {
  for (auto const& [key, member] : value.items()) {
    fields.insert(prefix + key + " " + TypeOf(member));
    if (member.is_object()) Collect(prefix + key + ".", member, fields);
    if (!member.is_array()) continue;
    for (json const& element : member)
      if (element.is_object()) Collect(prefix + key + "[].", element, fields);
  }
}

void CollectRun(Words words, Fields& fields) {
  TemporaryFolder const folder;
  std::string const command = words.front();
  words.insert(words.end(), {"--log-level", "silent", "--json", folder.Path("report")});
  CommandResult const result = RunPavex(words);
  json const report = json::parse(folder.Read("report"), nullptr, false);
  ASSERT_TRUE(report.is_object()) << command << ": " << result.errors;
  EXPECT_EQ(report["command"], command);
  Collect(command + " ", report, fields);
}

// The fields in the files of runs that write every field.
Fields WrittenFields() {
  TemporaryFolder const folder;
  std::string const banner = "%%MatrixMarket matrix ";
  std::string const rhs =
      folder.Write("b.mtx", banner + "array real general\n4 1\n1\n2\n3\n4\n");
  std::string const undecided =
      folder.Write("u.mtx", banner + "coordinate real general\n4 4 2\n1 1 5\n3 3 6\n");
  Fields fields;
  CollectRun({"gather", "--generate", "poisson2d:3", "--updates", "1"}, fields);
  CollectRun({"gather", "--generate", "dense:5x4", "--format", "dense-row", "--scatter"},
             fields);
  CollectRun({"plan", "--generate", "poisson2d:3", "--to", "all"}, fields);
  CollectRun({"plan", undecided}, fields);
  CollectRun({"solve", "--generate", "poisson2d:3", "--steps", "1"}, fields);
  CollectRun({"solve", "--generate", "poisson2d:2", "--rhs-file", rhs, "--ranks", "2"}, fields);
  return fields;
}

// The fields in the table rows "| `FIELD` | COMMAND, COMMAND | TYPE | ... |" of the page.
Fields DescribedFields() {
  std::regex const row("\\| `([^`]+)` \\| ([a-z, ]+) \\| ([a-z]+) \\| .+ \\|");
  Fields fields;
  std::ifstream page(PAVEX_JSON_PAGE);
  for (std::string line; std::getline(page, line);) {
    std::smatch cells;
    if (!std::regex_match(line, cells, row)) continue;
    std::istringstream commands(std::regex_replace(cells[2].str(), std::regex(","), " "));
    for (std::string command; commands >> command;)
      fields.insert(command + " " + cells[1].str() + " " + cells[3].str());
  }
  return fields;
}

Fields Without(Fields const& fields, Fields const& others) {
  Fields left;
  std::set_difference(fields.begin(), fields.end(), others.begin(), others.end(),
                      std::inserter(left, left.end()));
  return left;
}

TEST(JsonPage, DescribesTheFieldsThatTheCommandWrites) {
  Fields const written = WrittenFields();
  Fields const described = DescribedFields();

  EXPECT_GT(written.size(), 60U);
  EXPECT_THAT(Without(written, described), testing::IsEmpty()) << "not on the page";
  EXPECT_THAT(Without(described, written), testing::IsEmpty()) << "only on the page";
}

}  // namespace
}  // namespace Pavex::Tool
