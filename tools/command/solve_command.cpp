// `pavex solve`: its options, and what it does with the result.

#include "tools/command/commands.h"
#include "tools/command/common_options.h"
#include "tools/cut/refusals.h"
#include "tools/files/whole_file.h"
#include "tools/picture/plot_file.h"
#include "tools/solve/draw_solve.h"
#include "tools/solve/solve_job.h"
#include "tools/source/open_source.h"

#include <cstdio>
#include <memory>
#include <string>

namespace Pavex::Tool {

namespace {

constexpr int kMostRhs = 10000;
constexpr int kMostSteps = 10000;

constexpr char const* kExamples =
    "\nThe matrix is cut into one piece per rank, the right-hand sides into bands of rows. "
    "Both\n"
    "are gathered, the matrix is factored and the systems are solved where they arrive, and "
    "the\n"
    "solutions are scattered to the ranks, which compute the residuals together.\n"
    "\nExamples:\n"
    "  pavex solve A.mtx\n"
    "      on 4 ranks, for a right-hand side with a known smooth solution\n"
    "  pavex solve A.mtx --rhs-file b.mtx --output x.mtx\n"
    "      for right-hand sides of your own\n"
    "  pavex solve --generate poisson2d:200 --steps 3 --plot solution.png\n"
    "      draw the solution on the grid, and the times of the four solves\n"
    "  pavex solve --generate convection3d:30 --format csc --partition columns --steps 5\n"
    "      five more solves, each after an update with new values\n"
    "  pavex solve A.mtx --format csr --rhs 3 --ld 8 --to all --json report.json\n"
    "      three right-hand sides with padded columns, solved on every rank\n"
    "  mpirun -n 4 pavex solve A.mtx --format csr\n"
    "      on 4 processes over MPI\n"
    "\nThe default format of A is coo; the solvers take csc and csr without a copy.\n"
    "A matrix has at most 2147483647 rows and entries, also with --index long. Entries that a\n"
    "file repeats are summed before they are factored.\n";

class SolveCommand final : public Subcommand {
 public:
  explicit SolveCommand(CLI::App& app);
  void Run(Ranks& ranks) const override;

 private:
  void Check() const override { CheckSolve(All()); }
  SolveOptions All() const {
    SolveOptions all = mSolve;
    all.mOperator = mOptions;
    return all;
  }

  SolveOptions mSolve;  // without the options of the operator
};

SolveCommand::SolveCommand(CLI::App& app)
    : Subcommand(app, "solve",
                 "Cut a matrix and right-hand sides into pieces, gather, solve and scatter") {
  CLI::App& command = *mApp;
  command.footer(kExamples);
  AddInput(command, mOptions, "Matrix Market file of a square matrix");
  AddCommon(command, mOptions, mWords, "coo, csr or csc");
  CLI::Option* const rhs = AddNumber(command, "--rhs", mSolve.mRhs, 1, kMostRhs,
                                     "Number of right-hand sides with known solutions");
  AddFile(command, "--rhs-file", mSolve.mRhsFile,
          "Matrix Market file of right-hand sides, one in each column")
      ->option_text("FILE.mtx")
      ->excludes(rhs);
  AddNumber(command, "--steps", mSolve.mSteps, 0, kMostSteps,
            "Change the values and solve again that many times");
  AddNumber(command, "--ld", mOptions.mPad, 0, kMostPad,
            "Unused elements behind each column of a right-hand side");
  AddFile(command, "--output", mOptions.mOutput, "Write the solutions to this file")
      ->option_text("FILE.mtx");
  AddReportFile(command, mOptions);
  AddPlot(command, mOptions, "Draw the solution and the times of the steps into this file");
}

void SolveCommand::Run(Ranks& ranks) const {
  CheckPlot(mOptions.mPlot, ranks);
  if (ranks.FirstHere() == 0) RequireOutputs(mOptions);
  auto const source = OpenSource(mOptions);
  RefuseTooManyToSolve(source->Name(), source->Whole());
  KeepOwnPiece(*source, mOptions, ranks);
  SolveResult const result = RunSolve(*source, All(), ranks);
  if (ranks.FirstHere() != 0) return;
  std::fputs(InText(result.mReport).c_str(), stdout);
  if (result.mOutput != nullptr) result.mOutput->Commit();
  if (!mOptions.mJson.empty()) WriteWholeFile(mOptions.mJson, InJson(result.mReport));
  if (!mOptions.mPlot.empty())
    WriteWholeFile(mOptions.mPlot, DrawSolve(result, KindOfPicture(mOptions.mPlot)));
}

}  // namespace

std::unique_ptr<Subcommand> AddSolve(CLI::App& app) {
  return std::make_unique<SolveCommand>(app);
}

}  // namespace Pavex::Tool
