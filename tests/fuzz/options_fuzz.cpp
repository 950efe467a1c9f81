// Parses any words as the arguments of pavex, one on each line. The parser accepts them or
// throws its own error or InputError. Accepted options are inside their ranges, the pieces that
// they describe make the whole matrix, and a plan of a generated matrix counts its entries
// right. Nothing is read, run or written.

#include "pavex/runtime/log.h"
#include "tests/fuzz/require.h"
#include "tools/choice/input_error.h"
#include "tools/command/commands.h"
#include "tools/command/common_options.h"
#include "tools/cut/pieces.h"
#include "tools/plan/plan.h"
#include "tools/solve/solve_job.h"
#include "tools/source/generate.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Pavex::Tool {
namespace {

void CheckRanks(GatherOptions const& options, Ranks const& ranks) {
  Require(ranks.Kind() == CommKind::LOCAL, "a build without MPI runs on threads");
  Require(ranks.Count() == options.mRanks, "there are as many ranks as the options say");
}

void CheckRanges(GatherOptions const& options) {
  Require(options.mRanks >= 1 && options.mRanks <= kMostRanks, "--ranks is in its range");
  Require(options.mHolder >= 0 && options.mHolder < options.mRanks, "the holder is a rank");
  Require(options.mUpdates >= 0, "--updates is not negative");
  Require(options.mPad >= 0 && options.mPad <= kMostPad, "--ld is in its range");
  Require(options.mBase == 0 || options.mBase == 1, "--base is 0 or 1");
  Require(options.mFile.empty() != options.mGenerate.empty(), "there is one input");
}

Extent WholeOf(GatherOptions const& options) {
  if (options.mGenerate.empty()) return {100, 80, 500};
  Generator const generator(options.mGenerate);
  return {generator.Rows(), generator.Cols(), generator.Rows()};
}

// Where the bands of `partition` begin and end.
std::pair<long, long> BandOf(Piece const& piece, Partition partition) {
  switch (partition) {
    case Partition::ROWS:
      return {piece.mRowBegin, piece.mRowEnd};
    case Partition::COLUMNS:
      return {piece.mColBegin, piece.mColEnd};
    default:
      return {piece.mEntryBegin, piece.mEntryEnd};
  }
}

void CheckPieces(GatherOptions const& options) {
  Extent const whole = WholeOf(options);
  Piece all;
  all.mRowEnd = whole.mRows;
  all.mColEnd = whole.mCols;
  all.mEntryEnd = whole.mEntries;
  bool const bands =
      options.mPartition != Partition::ONE && options.mPartition != Partition::ALL;
  long end = 0;
  for (int rank = 0; rank < options.mRanks; ++rank) {
    Piece const piece = CutPiece(whole, options, options.mRanks, rank);
    auto const [first, last] = BandOf(piece, options.mPartition);
    if (!bands) continue;
    Require(first == end && (last > first || options.mRanks == 1), "bands follow each other");
    end = last;
  }
  if (bands)
    Require(end == BandOf(all, options.mPartition).second, "the last band ends the matrix");
}

// Whether planning is fast. Its reports have a line for each rank, and it counts the entries of
// a random matrix one by one.
bool IsQuickToPlan(GatherOptions const& options) {
  if (options.mGenerate.empty() || options.mRanks > 64) return false;
  Generator const generator(options.mGenerate);
  return generator.IsDense() || generator.Axes() != 0 || generator.Rows() <= 1000;
}

void CheckPlan(Plan const& plan) {
  bool const whole = plan.mCut.mPartition == Partition::ALL;
  long const expected =
      IsDense(plan.mCut.mFormat) ? plan.mWhole.mRows * plan.mWhole.mCols : plan.mWhole.mEntries;
  long entries = 0;
  for (PlanRank const& rank : plan.mRanks) {
    entries = whole ? rank.mEntries : entries + rank.mEntries;
    Require(rank.mBytes >= 0 && rank.mPeakPoolBytes >= 0, "a rank holds a countable piece");
    Require(rank.mMessageBytes >= 0 && rank.mMessageBytes <= plan.MessageBytes(),
            "a rank receives a countable part of all bytes");
  }
  Require(entries == expected, "the pieces have the entries of the matrix");
  Require(!InText(plan).empty() && !InJson(plan).empty(), "a plan has its reports");
}

void CheckParsed(Subcommand& subcommand, Job& job, bool isPlan) {
  auto const ranks = subcommand.Parse(job);
  GatherOptions const& options = subcommand.Options();
  CheckRanks(options, *ranks);
  CheckRanges(options);
  CheckPieces(options);
  Log::mMaxLogLevel = -1;
  if (!isPlan || !IsQuickToPlan(options)) return;
  for (CommKind const comm : {CommKind::LOCAL, CommKind::MPI})
    CheckPlan(MakePlan(*OpenGenerator(options.mGenerate), options, options, comm));
}

std::vector<std::string> WordsOf(std::string_view text) {
  std::vector<std::string> words = {"pavex"};
  while (!text.empty()) {
    std::string_view const line = text.substr(0, text.find('\n'));
    words.emplace_back(line.substr(0, line.find('\0')));  // as the system would pass it on
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
  return words;
}

void Run(std::string_view text) {
  std::vector<std::string> words = WordsOf(text);
  std::vector<char*> arguments;
  for (std::string& word : words)
    arguments.push_back(word.data());

  Job job;
  CLI::App app("fuzzed", "pavex");
  app.require_subcommand(1);
  auto const gather = AddGather(app);
  auto const plan = AddPlan(app);
  auto const solve = AddSolve(app);
  try {
    app.parse(static_cast<int>(arguments.size()), arguments.data());
    for (auto const& subcommand : {gather.get(), plan.get(), solve.get()})
      if (subcommand->IsGiven()) CheckParsed(*subcommand, job, subcommand == plan.get());
  } catch (InputError const&) {
  } catch (CLI::ParseError const& error) {
    std::ostringstream printed;
    app.exit(error, printed, printed);
  }
}

}  // namespace

// Takes the place of the function of the command, because the solvers are not linked.
SolveResult RunSolve(Source const&, SolveOptions const&, Ranks&) {
  std::abort();
}

}  // namespace Pavex::Tool

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Pavex::Tool::Run({reinterpret_cast<char const*>(data), size});
  return 0;
}
