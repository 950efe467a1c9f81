// Input that the command cannot use: it prints one line, exits with 1 and writes no file.

#include "run_pavex.h"
#include "tests/tools/temporary_folder.h"

#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using Words = std::vector<std::string>;

// `line` is what follows "pavex: ".
void ExpectRefused(Words const& words, std::string const& line) {
  CommandResult const result = RunPavex(words);

  EXPECT_EQ(result.errors, "pavex: " + line + "\n");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output, "");
}

void ExpectGatherRefused(Words words, std::string const& line) {
  words.insert(words.begin(), {"gather", "--generate", "poisson3d:3"});
  ExpectRefused(words, line);
}

TEST(BadCommand, IsNamed) {
  ExpectRefused({}, "name a subcommand; see pavex --help");
  ExpectRefused({"collect"}, "unknown subcommand \"collect\"; see pavex --help");
  ExpectRefused({"gather"}, "name a Matrix Market file or --generate KIND:SIZE");
  ExpectRefused({"gather", "a.mtx", "--generate", "poisson3d:3"},
                "\"a.mtx\" and --generate poisson3d:3 name two inputs: leave one out");
  ExpectRefused({"--bogus"}, "unknown option \"--bogus\"; see pavex --help");
  ExpectRefused({"--bogus", "gather", "a.mtx"}, "unknown option \"--bogus\"; see pavex --help");
  ExpectGatherRefused({"--bogus"}, "unknown option \"--bogus\"; see pavex gather --help");
  ExpectRefused({"gather", "a.mtx", "b.mtx"},
                "\"b.mtx\" is one input too many; see pavex gather --help");
}

TEST(BadNumber, IsNamedWithItsRange) {
  std::string const range = " is not a whole number from ";
  std::string const help = "; see pavex gather --help";
  for (char const* ranks : {"0", "-3", "4097", "two", "2.5", "99999999999999999999"})
    ExpectGatherRefused({"--ranks", ranks},
                        "--ranks: \"" + std::string(ranks) + "\"" + range + "1 to 4096" + help);
  ExpectGatherRefused({"--updates", "-1"}, "--updates: \"-1\"" + range + "0 to 10000" + help);
  ExpectGatherRefused({"--holder", "-1"}, "--holder: \"-1\"" + range + "0 to 4095" + help);
  ExpectGatherRefused({"--base", "2"}, "--base: \"2\"" + range + "0 to 1" + help);
  ExpectGatherRefused({"--ld", "-1"}, "--ld: \"-1\"" + range + "0 to 1048576" + help);
}

TEST(BadValue, IsNamedWithItsOption) {
  std::string const help = "; see pavex gather --help";
  ExpectGatherRefused({"--ranks"}, "--ranks needs a value" + help);
  ExpectGatherRefused({"--ranks", "2", "--ranks", "3"}, "--ranks is given twice" + help);
  ExpectGatherRefused(
      {"--cuts", "1,a,3"},
      "--cuts: \"a\" is not a whole number from 1 to 9223372036854775807" + help);
}

TEST(EmptyValue, IsNamedWithItsOption) {
  std::string const help = "; see pavex gather --help";
  for (std::string const option : {"--output", "--json", "--plot"})
    ExpectGatherRefused({option, ""}, option + ": the file name is empty" + help);
  for (std::string const option : {"--comm", "--value", "--index"})
    ExpectGatherRefused({option, ""}, option + ": the word is empty" + help);
  ExpectRefused({"gather", ""}, "FILE: the file name is empty" + help);
  ExpectRefused({"gather", "a.mtx", "--generate", ""},
                "--generate: the description is empty" + help);
  ExpectRefused({"plan", "a.mtx", "--json", ""},
                "--json: the file name is empty; see pavex plan --help");
  for (std::string const option : {"--rhs-file", "--output", "--json", "--plot"})
    ExpectRefused({"solve", "a.mtx", option, ""},
                  option + ": the file name is empty; see pavex solve --help");
}

TEST(BadWord, IsNamedWithTheWordsThatExist) {
  ExpectGatherRefused({"--format", "ell"},
                      "--format: unknown \"ell\", choose one of coo, csr, csc, dense-row, "
                      "dense-col");
  ExpectGatherRefused({"--partition", "blocks"},
                      "--partition: unknown \"blocks\", choose one of rows, columns, entries, "
                      "one, all, random, overlap");
  ExpectGatherRefused({"--value", "half"},
                      "--value: unknown \"half\", choose one of float, double, complex-float, "
                      "complex-double");
  ExpectGatherRefused({"--index", "short"},
                      "--index: unknown \"short\", choose one of int, long");
  ExpectGatherRefused({"--to", "some"}, "--to: unknown \"some\", choose one of root, all");
  ExpectGatherRefused(
      {"--log-level", "loud"},
      "--log-level: unknown \"loud\", choose one of silent, fatal, error, debug");
}

TEST(BadWord, StaysOnOneLine) {
  ExpectGatherRefused({"--index", "a\nb"}, "--index: unknown \"a?b\", choose one of int, long");
}

TEST(BadCombination, IsNamedWithTheWayOut) {
  ExpectGatherRefused({"--format", "csr", "--partition", "columns"},
                      "--format csr with --partition columns: csr is cut by rows; use "
                      "--partition rows or --format csc");
  ExpectGatherRefused({"--format", "csc"},
                      "--format csc with --partition rows: csc is cut by columns; use "
                      "--partition columns or --format csr");
  ExpectGatherRefused({"--format", "csc", "--partition", "entries"},
                      "--format csc with --partition entries: only coo can be cut by entries; "
                      "use --partition columns or --format coo");
  ExpectGatherRefused({"--format", "dense-row", "--partition", "entries"},
                      "--format dense-row with --partition entries: only coo can be cut by "
                      "entries; use --partition rows or --format coo");
  ExpectGatherRefused({"--receiver", "4"}, "--receiver 4 is not one of the ranks 0 to 3");
  ExpectGatherRefused({"--receiver", "1", "--to", "all"},
                      "--receiver and --to all exclude each other");
  ExpectGatherRefused(
      {"--receiver", "1", "--partition", "columns"},
      "--receiver goes with --partition rows, random or overlap only, not columns");
  ExpectGatherRefused({"--receiver", "1", "--format", "dense-row"},
                      "--receiver goes with --format coo or csr only");
  ExpectGatherRefused({"--partition", "random", "--format", "csc"},
                      "--partition random goes with --format coo or csr only");
  ExpectGatherRefused({"--partition", "random", "--cuts", "3,6,9"},
                      "--cuts goes with bands only, not with --partition random");
  ExpectGatherRefused({"--partition", "overlap", "--plot", "a.svg"},
                      "--partition overlap and --plot exclude each other");
  ExpectGatherRefused({"--receiver", "1", "--output", "a.mtx"},
                      "--receiver and --output exclude each other: rank 0 writes files");
  for (char const* command : {"plan", "solve"})
    ExpectRefused({command, "--generate", "poisson3d:3", "--partition", "random"},
                  std::string("--partition random: pavex ") + command +
                      " takes rows, columns, entries, one or all; use pavex gather");
  ExpectGatherRefused({"--holder", "1"}, "--holder goes with --partition one only");
  ExpectGatherRefused({"--partition", "one", "--holder", "4"},
                      "--holder 4 is not one of the ranks 0 to 3");
  ExpectGatherRefused({"--ld", "1"}, "--ld goes with --format dense-row or dense-col only");
  ExpectGatherRefused({"--base", "1"}, "--base goes with --format csr or csc only");
  ExpectGatherRefused({"--scatter"},
                      "--scatter goes with --format dense-row or dense-col only");
  ExpectGatherRefused({"--no-values", "--format", "dense-row"},
                      "--no-values: a dense matrix consists of its values");
  ExpectGatherRefused({"--no-values", "--updates", "1"},
                      "--no-values and --updates exclude each other: an update sends values");
}

TEST(BadSize, IsNamedWithTheCure) {
  ExpectGatherRefused({"--ranks", "28"},
                      "28 ranks cannot share 27 rows without one left empty: use --ranks 27 or "
                      "--partition entries");
  ExpectGatherRefused({"--ranks", "28", "--partition", "columns", "--format", "csc"},
                      "28 ranks cannot share 27 columns without one left empty: use --ranks 27 "
                      "or --format coo --partition entries");
  ExpectGatherRefused({"--ranks", "136"},  // of 135 entries
                      "136 ranks cannot share 27 rows without one left empty: use --ranks 27");
  ExpectRefused({"plan", "--generate", "poisson3d:3", "--ranks", "28"},
                "28 ranks cannot share 27 rows without one left empty: use --ranks 27 or "
                "--partition entries");
  // The right-hand sides are always cut by rows.
  ExpectRefused({"solve", "--generate", "poisson3d:3", "--ranks", "28"},
                "28 ranks cannot share 27 rows without one left empty: use --ranks 27");
  ExpectRefused(
      {"gather", "--generate", "poisson3d:700", "--format", "csr"},
      "poisson3d:700 has 2398060000 entries, more than the 2147483647 that offsets can "
      "count with --index int: use --index long");
  ExpectRefused({"solve", "--generate", "poisson3d:700"},
                "poisson3d:700 has 2398060000 entries, more than the 2147483647 that a solver "
                "can count");
  ExpectRefused({"gather", "--generate", "poisson3d:1000", "--format", "dense-row"},
                "a dense matrix of 1000000000 x 1000000000 has more than the "
                "144115188075855872 elements that memory can hold: use a sparse --format");
  ExpectRefused({"gather", "--generate", "cube:3"},
                "cannot generate \"cube:3\": unknown kind \"cube\", known: poisson2d:N, "
                "poisson3d:N, convection2d:N, convection3d:N, random:N, dense:ROWSxCOLS");
}

// Row 1 of 3 is empty.
TEST(EmptyPiece, IsNamedWithTheCure) {
  TemporaryFolder folder;
  std::string const banner = "%%MatrixMarket matrix coordinate real general\n";
  std::string const gap =
      folder.Write("gap.mtx", banner + "3 3 4\n1 1 1\n1 2 1\n3 1 1\n3 3 1\n");
  std::string const few = folder.Write("few.mtx", banner + "3 3 2\n1 1 1\n3 3 1\n");
  std::string const none = folder.Write("none.mtx", banner + "3 3 0\n");

  ExpectRefused({"gather", gap, "--ranks", "3"},
                "rank 1 would be left empty: its rows hold no entries; use fewer --ranks or "
                "--partition entries");
  ExpectRefused({"gather", gap, "--ranks", "3", "--format", "csr"},
                "rank 1 would be left empty: its rows hold no entries; use fewer --ranks or "
                "--format coo --partition entries");
  ExpectRefused({"gather", few, "--ranks", "3"},
                "rank 1 would be left empty: its rows hold no entries; use fewer --ranks");
  ExpectRefused({"gather", none, "--ranks", "2", "--partition", "one"},
                "rank 0 would be left empty: the matrix has no entries; use --partition all");
  ExpectRefused({"gather", none, "--ranks", "2", "--partition", "entries"},
                "2 ranks cannot share 0 entries without one left empty: use --ranks 1");
}

TEST(BadFile, IsNamedWithTheLine) {
  TemporaryFolder folder;
  std::string const banner = "%%MatrixMarket matrix coordinate real general\n";
  std::string const file = folder.Path("bad.mtx");

  ExpectRefused({"gather", file}, file + ": cannot be read: No such file or directory");
  folder.Write("bad.mtx", banner + "2 2 1\n3 1 5\n");
  CommandResult const outside = RunPavex({"gather", file});
  EXPECT_EQ(outside.exitCode, 1);
  EXPECT_EQ(outside.errors.substr(0, file.size() + 10), "pavex: " + file + ":3:");
}

TEST(BadFile, OfComplexValuesIsNotTakenForReal) {
  TemporaryFolder folder;
  std::string const file = folder.Write("c.mtx",
                                        "%%MatrixMarket matrix coordinate complex general\n"
                                        "1 1 1\n1 1 3 4\n");

  ExpectRefused({"gather", file, "--ranks", "1", "--value", "double"},
                file +
                    " is complex and does not fit into --value double: use complex-float or "
                    "complex-double");
}

TEST(BadOutput, LeavesNothingBehind) {
  TemporaryFolder folder;
  std::string const missing = folder.Path("missing/whole.mtx");

  CommandResult const output =
      RunPavex({"gather", "--generate", "poisson3d:3", "--output", missing});
  CommandResult const json =
      RunPavex({"gather", "--generate", "poisson3d:3", "--json", missing});

  EXPECT_EQ(output.errors,
            "pavex: " + missing + ": cannot be written: No such file or directory\n");
  EXPECT_EQ(output.exitCode, 1);
  EXPECT_EQ(json.errors,
            "pavex: " + missing + ": cannot be written: No such file or directory\n");
  EXPECT_EQ(json.exitCode, 1);
  EXPECT_TRUE(folder.Names().empty());
}

// The command checks the output before the input.
TEST(BadOutput, IsNamedBeforeTheWork) {
  TemporaryFolder folder;
  std::string const missing = folder.Path("missing/x");

  for (char const* subcommand : {"gather", "solve"})
    for (char const* option : {"--output", "--json"})
      ExpectRefused({subcommand, "absent.mtx", option, missing},
                    missing + ": cannot be written: No such file or directory");
}

TEST(Output, OnStandardOutputInAFileIsNextToTheReport) {
  CommandResult const result = RunPavex(
      {"gather", "--generate", "dense:2x1", "--ranks", "1", "--output", "/dev/stdout"});

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_NE(result.output.find("%%MatrixMarket matrix coordinate real general\n2 1 2\n1 1 "),
            std::string::npos);
  EXPECT_NE(result.output.find("verified: every entry"), std::string::npos);
}

TEST(BadOutput, KeepsAnOlderFileWhenTheInputIsBad) {
  TemporaryFolder folder;
  std::string const whole = folder.Write("whole.mtx", "older");

  CommandResult const result =
      RunPavex({"gather", "--generate", "poisson3d:3", "--ranks", "28", "--output", whole});

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(folder.Read("whole.mtx"), "older");
  EXPECT_EQ(folder.Names().size(), 1U);
}

TEST(BadOutput, OnAFullDeviceIsNamed) {
  CommandResult const json =
      RunPavex({"gather", "--generate", "poisson3d:3", "--json", "/dev/full"});

  EXPECT_EQ(json.errors, "pavex: /dev/full: cannot be written: No space left on device\n");
  EXPECT_EQ(json.exitCode, 1);
}

}  // namespace
}  // namespace Pavex::Tool
