// `pavex gather`: its options, and what becomes of the result.

#include "pavex/runtime/log.h"
#include "tools/commands.h"
#include "tools/gather_job.h"
#include "tools/input_error.h"
#include "tools/job_error.h"
#include "tools/whole_file.h"

#include <cstdio>
#include <memory>
#include <string>

namespace Pavex::Tool {

namespace {

constexpr int kMostRanks = 4096;
constexpr long kMostPad = 1 << 20;
constexpr int kMostUpdates = 10000;

constexpr char const* kExamples =
    "\nThe matrix is cut into one piece per rank, each rank builds its own piece, the pieces "
    "are\n"
    "gathered, and the gathered matrix is compared with the input entry by entry. The exit "
    "code\n"
    "is 0 only if they are the same.\n"
    "\nExamples:\n"
    "  pavex gather A.mtx\n"
    "      on 4 ranks cut by rows, as coordinates, to rank 0\n"
    "  pavex gather A.mtx --ranks 3 --format csc --partition columns --to all\n"
    "      compressed columns, the whole matrix on every rank\n"
    "  pavex gather --generate poisson3d:100 --format csr --updates 5\n"
    "      a 7-point operator on 100^3 points, then new values five times\n"
    "  pavex gather --generate dense:3000x500 --format dense-col --ld 8 --scatter\n"
    "      dense with padded columns; changed values are sent back to the pieces\n"
    "  pavex gather A.mtx --partition one --holder 2 --log-level debug\n"
    "      rank 2 holds everything; the library tells what it decides\n"
    "  pavex gather A.mtx --format csr --output whole.mtx --json report.json\n"
    "      write the gathered matrix, and the report for programs\n"
    "\nWhat --generate knows: poisson3d:N and convection3d:N on N x N x N points, random:N "
    "sparse\n"
    "with a few full rows, dense:ROWSxCOLS.\n"
    "What can be cut how: coo by rows, columns or entries; csr by rows; csc by columns; dense "
    "by\n"
    "rows or columns. Bands have the same number of rows (columns, entries) up to one. one "
    "and\n"
    "all give the whole matrix to one rank or to every rank.\n";

// The options that are words, before they are understood.
struct Words {
  std::string mFormat = "coo";
  std::string mPartition = "rows";
  std::string mValue;
  std::string mIndex = "int";
  std::string mTo = "root";
  std::string mLogLevel = "error";
  bool mNoValues = false;
};

void Understand(Words const& words, GatherOptions& options) {
  options.mFormat = ParseChoice<Format>("--format", words.mFormat);
  options.mPartition = ParseChoice<Partition>("--partition", words.mPartition);
  if (!words.mValue.empty()) options.mValue = ParseChoice<ValueKind>("--value", words.mValue);
  options.mIndex = ParseChoice<IndexKind>("--index", words.mIndex);
  options.mLogLevel = ParseChoice<LogLevel>("--log-level", words.mLogLevel);
  if (words.mTo != "root" && words.mTo != "all")
    throw InputError("--to: unknown \"" + words.mTo + "\", choose one of root, all");
  options.mToAll = words.mTo == "all";
  options.mWithValues = !words.mNoValues;
}

std::int32_t LogNumber(LogLevel level) {
  switch (level) {
    case LogLevel::SILENT:
      return -1;
    case LogLevel::FATAL:
      return LOG_FATAL;
    case LogLevel::ERROR:
      return LOG_ERROR;
    case LogLevel::DEBUG:
      break;
  }
  return LOG_DEBUG;
}

int Gather(GatherOptions const& options) {
  CheckCombination(options);
  Log::mMaxLogLevel = LogNumber(options.mLogLevel);
  auto const source =
      options.mFile.empty() ? OpenGenerator(options.mGenerate) : OpenFile(options.mFile);
  auto const ranks = MakeLocalRanks(options.mRanks);
  GatherResult const result = RunGather(*source, options, *ranks);

  GatherReport const& report = result.mReport;
  bool const verified = report.Verified();
  std::fputs(InText(report).c_str(), stdout);
  if (result.mOutput != nullptr && verified) result.mOutput->Commit();
  if (!options.mJson.empty()) WriteWholeFile(options.mJson, InJson(report));
  if (!verified)
    throw JobError("the gathered matrix is not that of the input: " + report.Difference());
  return 0;
}

// A number option whose refusal names the range.
template <typename Number>
void AddNumber(CLI::App& command, std::string const& name, Number& number, long low, long high,
               std::string const& help) {
  auto const check = [low, high](std::string const& text) -> std::string {
    long value = 0;
    bool const isNumber = CLI::detail::lexical_cast(text, value);
    if (isNumber && value >= low && value <= high) return "";
    return "\"" + text + "\" is not a whole number from " + std::to_string(low) + " to " +
           std::to_string(high);
  };
  command.add_option(name, number, help)
      ->check(CLI::Validator(check, ""))
      ->option_text("N [" + std::to_string(number) + "]");
}

void AddOptions(CLI::App& command, GatherOptions& options, Words& words) {
  command.add_option("FILE", options.mFile, "Matrix Market file to gather")->option_text(" ");
  command.add_option("--generate", options.mGenerate, "Generate the matrix instead")
      ->option_text("KIND:SIZE");
  AddNumber(command, "--ranks", options.mRanks, 1, kMostRanks, "Number of ranks");
  auto const addWord = [&command](char const* name, std::string& word, char const* choices) {
    command.add_option(name, word, choices)
        ->capture_default_str()
        ->option_text(word.empty() ? "WORD" : "WORD [" + word + "]");
  };
  addWord("--format", words.mFormat, "coo, csr, csc, dense-row or dense-col");
  addWord("--partition", words.mPartition, "rows, columns, entries, one or all");
  command
      .add_option("--cuts", options.mCuts,
                  "Where the pieces but the first begin, instead of pieces of equal size")
      ->delimiter(',')
      ->option_text("N,N,...");
  AddNumber(command, "--holder", options.mHolder, 0, kMostRanks - 1,
            "With --partition one, the rank that holds the matrix");
  addWord("--to", words.mTo, "root (rank 0) or all");
  addWord("--value", words.mValue,
          "float, double, complex-float or complex-double; default as the input");
  addWord("--index", words.mIndex, "int or long");
  command.add_flag("--no-values", words.mNoValues, "Gather the pattern alone");
  AddNumber(command, "--updates", options.mUpdates, 0, kMostUpdates,
            "Send new values that many times after the gather");
  command.add_flag("--scatter", options.mScatter,
                   "Dense: change the gathered values and send them back");
  AddNumber(command, "--ld", options.mPad, 0, kMostPad,
            "Dense: unused elements between the rows (columns) of a piece");
  AddNumber(command, "--base", options.mBase, 0, 1, "csr, csc: first offset of a piece");
  addWord("--log-level", words.mLogLevel, "silent, fatal, error or debug, of the library");
  command.add_option("--output", options.mOutput, "Write the gathered matrix to this file")
      ->option_text("FILE.mtx");
  command.add_option("--json", options.mJson, "Write the report for programs to this file")
      ->option_text("FILE");
}

}  // namespace

void AddGather(CLI::App& app, int& exitCode) {
  struct State {
    GatherOptions mOptions;
    Words mWords;
  };
  auto const state = std::make_shared<State>();
  CLI::App* const command = app.add_subcommand(
      "gather", "Cut a matrix into pieces, gather them and check the result");
  command->footer(kExamples);
  AddOptions(*command, state->mOptions, state->mWords);
  command->callback([state, &exitCode] {
    Understand(state->mWords, state->mOptions);
    exitCode = Gather(state->mOptions);
  });
}

}  // namespace Pavex::Tool
