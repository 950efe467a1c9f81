#include "tools/command/common_options.h"

#include "pavex/runtime/log.h"
#include "tools/choice/input_error.h"
#include "tools/files/whole_file.h"

#include <cstdint>
#include <limits>
#include <optional>

namespace Pavex::Tool {

namespace {

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

CLI::Validator WholeNumber(long low, long high) {
  auto const check = [low, high](std::string const& text) -> std::string {
    long value = 0;
    bool const isNumber = CLI::detail::lexical_cast(text, value);
    if (isNumber && value >= low && value <= high) return "";
    return "\"" + text + "\" is not a whole number from " + std::to_string(low) + " to " +
           std::to_string(high);
  };
  return {check, ""};
}

// Refuses an empty text; `what` names the text in the message.
CLI::Validator NotEmpty(std::string const& what) {
  auto const check = [what](std::string const& text) {
    return text.empty() ? "the " + what + " is empty" : std::string();
  };
  return {check, ""};
}

template <typename Number>
CLI::Option* Add(CLI::App& command, std::string const& name, Number& number, long low,
                 long high, std::string const& help) {
  return command.add_option(name, number, help)
      ->check(WholeNumber(low, high))
      ->option_text("N [" + std::to_string(number) + "]");
}

}  // namespace

CLI::Option* AddNumber(CLI::App& command, std::string const& name, int& number, long low,
                       long high, std::string const& help) {
  return Add(command, name, number, low, high, help);
}

CLI::Option* AddNumber(CLI::App& command, std::string const& name, long& number, long low,
                       long high, std::string const& help) {
  return Add(command, name, number, low, high, help);
}

void AddInput(CLI::App& command, InputOptions& options, std::string const& fileHelp) {
  AddFile(command, "FILE", options.mFile, fileHelp)->option_text(" ");
  command.add_option("--generate", options.mGenerate, "Generate the matrix instead")
      ->check(NotEmpty("description"))
      ->option_text("KIND:SIZE");
}

void AddCommon(CLI::App& command, GatherOptions& options, CommonWords& words,
               std::string const& formats) {
  AddNumber(command, "--ranks", options.mRanks, 1, kMostRanks,
            "Number of ranks; under MPI the number of processes");
  auto const addWord = [&command](char const* name, std::string& word,
                                  std::string const& choices) {
    command.add_option(name, word, choices)
        ->capture_default_str()
        ->check(NotEmpty("word"))
        ->option_text(word.empty() ? "WORD" : "WORD [" + word + "]");
  };
  addWord(
      "--comm", words.mComm,
      "node (MPI, with memory shared on each node), mpi (MPI alone) or local (threads of this "
      "process); without it node under a launcher of MPI jobs, else local");
  addWord("--format", words.mFormat, formats);
  addWord("--partition", words.mPartition,
          "rows, columns, entries, one or all; pavex gather alone: random or overlap");
  command
      .add_option("--cuts", options.mCuts,
                  "Where each piece except the first begins; default: pieces of equal size")
      ->delimiter(',')
      ->check(WholeNumber(1, std::numeric_limits<long>::max()))
      ->option_text("N,N,...");
  AddNumber(command, "--holder", options.mHolder, 0, kMostRanks - 1,
            "With --partition one, the rank that holds the matrix");
  addWord("--to", words.mTo, "root (rank 0) or all");
  addWord("--value", words.mValue,
          "float, double, complex-float or complex-double; default: as the input");
  addWord("--index", words.mIndex, "int or long");
  AddNumber(command, "--base", options.mBase, 0, 1, "csr, csc: first offset of a piece");
  addWord("--log-level", words.mLogLevel,
          "What the library logs: silent, fatal, error or debug lines");
}

void AddPieceOptions(CLI::App& command, CutOptions& options, CommonWords& words) {
  command.add_flag("--no-values", words.mNoValues, "Gather the pattern only");
  AddNumber(command, "--ld", options.mPad, 0, kMostPad,
            "Dense: unused elements between the rows (columns) of a piece");
}

CLI::Option* AddFile(CLI::App& command, std::string const& name, std::string& path,
                     std::string const& help) {
  return command.add_option(name, path, help)->check(NotEmpty("file name"));
}

void AddReportFile(CLI::App& command, OutputOptions& options) {
  AddFile(command, "--json", options.mJson, "Write the report for programs to this file")
      ->option_text("FILE");
}

void AddAllRanks(CLI::App& command, OutputOptions& options) {
  command.add_flag("--all-ranks", options.mAllRanks,
                   "Show every rank, not only the first ones, the last one and the extremes");
}

void AddPlot(CLI::App& command, OutputOptions& options, std::string const& help) {
  AddFile(command, "--plot", options.mPlot, help + "; .svg, .png or .pdf")->option_text("FILE");
}

void RequireOutputs(OutputOptions const& options) {
  for (std::string const& path : {options.mOutput, options.mJson})
    if (!path.empty()) RefuseUnwritable(path);
}

void ParseOptions(CommonWords const& words, GatherOptions& options) {
  options.mFormat = ParseChoice<Format>("--format", words.mFormat);
  options.mPartition = ParseChoice<Partition>("--partition", words.mPartition);
  if (!words.mValue.empty()) options.mValue = ParseChoice<ValueKind>("--value", words.mValue);
  options.mIndex = ParseChoice<IndexKind>("--index", words.mIndex);
  options.mLogLevel = ParseChoice<LogLevel>("--log-level", words.mLogLevel);
  if (!words.mComm.empty()) options.mComm = ParseChoice<CommKind>("--comm", words.mComm);
  if (words.mTo != "root" && words.mTo != "all")
    throw InputError("--to: unknown \"" + words.mTo + "\", choose one of root, all");
  options.mToAll = words.mTo == "all";
  options.mWithValues = !words.mNoValues;
  Log::mMaxLogLevel = LogNumber(options.mLogLevel);
}

std::unique_ptr<Ranks> MakeRanks(Job& job, CLI::App const& command, RunOptions& options) {
  std::optional<int> count;
  if (command.count("--ranks") > 0) count = options.mRanks;
  auto ranks = job.MakeRanks(options.mComm, count);
  options.mRanks = ranks->Count();
  return ranks;
}

}  // namespace Pavex::Tool
