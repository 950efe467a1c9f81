// `pavex gather`: its options, and what it does with the result.

#include "tools/choice/input_error.h"
#include "tools/choice/job_error.h"
#include "tools/command/commands.h"
#include "tools/command/common_options.h"
#include "tools/cut/refusals.h"
#include "tools/files/whole_file.h"
#include "tools/gather/draw_pattern.h"
#include "tools/gather/gather_job.h"
#include "tools/picture/plot_file.h"
#include "tools/source/open_source.h"

#include <cstdio>
#include <memory>
#include <string>

namespace Pavex::Tool {

namespace {

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
    "      rank 2 holds everything; the library logs what it decides\n"
    "  pavex gather A.mtx --format csr --output whole.mtx --json report.json\n"
    "      write the gathered matrix, and the report for programs\n"
    "  pavex gather A.mtx --plot pattern.svg\n"
    "      draw the pattern of A, each entry in the colour of the rank that held it\n"
    "  mpirun -n 4 pavex gather A.mtx --format csr\n"
    "      on 4 processes over MPI\n"
    "\n--generate takes poisson2d:N, poisson3d:N, convection2d:N and convection3d:N (N points\n"
    "on each side of a grid), random:N (sparse with a few full rows) and dense:ROWSxCOLS.\n"
    "--partition cuts coo by rows, columns or entries, csr by rows, csc by columns, and dense\n"
    "by rows or columns. The numbers of rows (columns, entries) of two pieces differ by at\n"
    "most one. The words one and all give the whole matrix to one rank or to every rank. The\n"
    "word random deals the rows of coo or csr out at random. The word overlap gives each rank\n"
    "rows of the next one as well; what overlaps is added.\n"
    "A matrix has at most 2147483647 rows and columns, and so many entries in csr and csc "
    "with\n"
    "--index int.\n"
    "Entries that a file repeats stay apart in sparse formats. Dense formats add them up, and\n"
    "so do random, overlap and a --receiver other than 0.\n";

class GatherCommand final : public Subcommand {
 public:
  explicit GatherCommand(CLI::App& app);
  void Run(Ranks& ranks) const override;

 private:
  void Check() const override { CheckCombination(mOptions); }
  void Publish(GatherResult const& result) const;
};

GatherCommand::GatherCommand(CLI::App& app)
    : Subcommand(app, "gather", "Cut a matrix into pieces, gather them and check the result") {
  CLI::App& command = *mApp;
  command.footer(kExamples);
  AddInput(command, mOptions, "Matrix Market file to gather");
  AddCommon(command, mOptions, mWords, "coo, csr, csc, dense-row or dense-col");
  AddPieceOptions(command, mOptions, mWords);
  AddNumber(command, "--updates", mOptions.mUpdates, 0, kMostUpdates,
            "Send new values that many times after the gather");
  AddNumber(command, "--receiver", mOptions.mReceiver, 0, kMostRanks - 1,
            "coo, csr by rows, random or overlap: the rank that receives the whole");
  command.add_flag("--scatter", mOptions.mScatter,
                   "Dense: change the gathered values and send them back");
  AddFile(command, "--output", mOptions.mOutput, "Write the gathered matrix to this file")
      ->option_text("FILE.mtx");
  AddAllRanks(command, mOptions);
  AddReportFile(command, mOptions);
  AddPlot(command, mOptions, "Draw the gathered pattern, coloured by rank, into this file");
}

void GatherCommand::Run(Ranks& ranks) const {
  CheckPlot(mOptions.mPlot, ranks);
  if (ranks.FirstHere() == 0) RequireOutputs(mOptions);
  bool const receives = mOptions.mToAll || ranks.FirstHere() == mOptions.mReceiver;
  bool const isBand =
      mOptions.mPartition != Partition::RANDOM && mOptions.mPartition != Partition::OVERLAP;
  auto const source = OpenSource(mOptions);
  bool const isAssembled = IsAssembled(mOptions);
  if (!isAssembled) RefuseTooManyRanks(source->Whole(), mOptions, mOptions.mRanks);
  if (!receives && isBand)  // a receiver checks what arrives
    KeepOwnPiece(*source, mOptions, ranks, isAssembled);
  GatherResult const result = RunGather(*source, mOptions, ranks);
  if (ranks.FirstHere() == 0) Publish(result);
  if (!result.mReport.Verified())
    throw JobError("the gathered matrix is not that of the input: " +
                   result.mReport.Difference());
}

// Only the process of rank 0 prints and writes.
void GatherCommand::Publish(GatherResult const& result) const {
  GatherReport const& report = result.mReport;
  std::fputs(InText(report).c_str(), stdout);
  if (result.mOutput != nullptr && report.Verified()) result.mOutput->Commit();
  if (!mOptions.mJson.empty()) WriteWholeFile(mOptions.mJson, InJson(report));
  if (result.mPattern && report.Verified())
    WriteWholeFile(mOptions.mPlot,
                   DrawPattern(report, *result.mPattern, KindOfPicture(mOptions.mPlot)));
}

}  // namespace

std::unique_ptr<Subcommand> AddGather(CLI::App& app) {
  return std::make_unique<GatherCommand>(app);
}

}  // namespace Pavex::Tool
