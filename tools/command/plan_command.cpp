// `pavex plan`: describes the gather of the same options without running it.

#include "tools/choice/job_error.h"
#include "tools/command/commands.h"
#include "tools/command/common_options.h"
#include "tools/files/whole_file.h"
#include "tools/plan/plan.h"
#include "tools/source/open_source.h"

#include <cstdio>
#include <memory>

namespace Pavex::Tool {

namespace {

constexpr char const* kExamples =
    "\nReports what pavex gather will do with the same input and pieces: the mode, who\n"
    "receives, the messages and their bytes, the peak of each rank's pool, and warnings.\n"
    "Nothing is gathered. The entries of a generated matrix are only counted, so it need not\n"
    "fit into memory. The exit code is 0 if pavex gather accepts the input and its pieces,\n"
    "and 1 if it refuses them. Updates, scatters and files to write are not planned.\n"
    "\nExamples:\n"
    "  pavex plan A.mtx --format csr --ranks 16\n"
    "  pavex plan --generate poisson3d:600 --ranks 1000 --format csr --to all\n";

class PlanCommand final : public Subcommand {
 public:
  explicit PlanCommand(CLI::App& app);
  void Run(Ranks& ranks) const override;

 private:
  void Check() const override {
    RefuseAssembled(mOptions, "pavex plan");
    CheckCombination(mOptions);
  }
};

PlanCommand::PlanCommand(CLI::App& app)
    : Subcommand(app, "plan", "Report what a gather will do, before anything moves") {
  CLI::App& command = *mApp;
  command.footer(kExamples);
  AddInput(command, mOptions, "Matrix Market file whose gather is planned");
  AddCommon(command, mOptions, mWords, "coo, csr, csc, dense-row or dense-col");
  AddPieceOptions(command, mOptions, mWords);
  AddAllRanks(command, mOptions);
  AddReportFile(command, mOptions);
}

void PlanCommand::Run(Ranks& ranks) const {
  Plan const plan = MakePlan(*OpenSource(mOptions), mOptions, mOptions, ranks.Kind());
  if (ranks.FirstHere() == 0) {
    std::fputs(InText(plan, mOptions.mAllRanks).c_str(), stdout);
    if (!mOptions.mJson.empty()) WriteWholeFile(mOptions.mJson, InJson(plan));
  }
  if (!plan.Accepted()) throw JobError(plan.mRefusal);
}

}  // namespace

std::unique_ptr<Subcommand> AddPlan(CLI::App& app) {
  return std::make_unique<PlanCommand>(app);
}

}  // namespace Pavex::Tool
