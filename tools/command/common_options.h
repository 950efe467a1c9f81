// The options that the subcommands share.

#pragma once

#include "tools/choice/options.h"
#include "tools/ranks/job.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace Pavex::Tool {

constexpr int kMostRanks = 4096;
constexpr long kMostPad = 1 << 20;

// The options whose values are words, before ParseOptions reads them.
struct CommonWords {
  std::string mFormat = "coo";
  std::string mPartition = "rows";
  std::string mValue;
  std::string mIndex = "int";
  std::string mTo = "root";
  std::string mLogLevel = "error";
  std::string mComm;
  bool mNoValues = false;
};

// Adds an option for a number. The message that refuses a number names the range.
CLI::Option* AddNumber(CLI::App& command, std::string const& name, int& number, long low,
                       long high, std::string const& help);
CLI::Option* AddNumber(CLI::App& command, std::string const& name, long& number, long low,
                       long high, std::string const& help);

// Adds FILE and --generate.
void AddInput(CLI::App& command, InputOptions& options, std::string const& fileHelp);
// Adds the options from --ranks to --log-level.
void AddCommon(CLI::App& command, GatherOptions& options, CommonWords& words,
               std::string const& formats);
// Adds --no-values and --ld.
void AddPieceOptions(CLI::App& command, CutOptions& options, CommonWords& words);
// Adds an option that names a file. The name cannot be empty.
CLI::Option* AddFile(CLI::App& command, std::string const& name, std::string& path,
                     std::string const& help);
// Adds --json.
void AddReportFile(CLI::App& command, OutputOptions& options);
// Adds --all-ranks.
void AddAllRanks(CLI::App& command, OutputOptions& options);
// Adds --plot; `help` says what the picture shows.
void AddPlot(CLI::App& command, OutputOptions& options, std::string const& help);

// Throws InputError if a file that the command will write cannot be written. Call it on the
// process that writes them.
void RequireOutputs(OutputOptions const& options);

// Parses the words into the options, and sets the level of the library's log. Throws InputError
// for an unknown word.
void ParseOptions(CommonWords const& words, GatherOptions& options);

// Makes the ranks that --comm and --ranks of `command` choose, and sets mRanks to their number.
std::unique_ptr<Ranks> MakeRanks(Job& job, CLI::App const& command, RunOptions& options);

}  // namespace Pavex::Tool
