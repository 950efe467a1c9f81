// `pavex plan`: the gather of the same options, without one.

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
    "\nTells what pavex gather will do with the same input and pieces: the mode that they\n"
    "give, who receives, the messages and their bytes, the peak of each rank's pool, and\n"
    "what to beware of. Nothing is gathered, and of a generated matrix the entries are only\n"
    "counted: it need not fit into memory. The exit code is 0 only if pavex gather\n"
    "accepts the input and its pieces. Updates, scatters and files to write are not planned.\n"
    "\nExamples:\n"
    "  pavex plan A.mtx --format csr --ranks 16\n"
    "  pavex plan --generate poisson3d:600 --ranks 1000 --format csr --to all\n";

void Publish(Plan const& plan) {
  std::fputs(InText(plan).c_str(), stdout);
  if (!plan.mOptions.mJson.empty()) WriteWholeFile(plan.mOptions.mJson, InJson(plan));
}

int MakeAndPublish(GatherOptions const& options, Ranks const& ranks) {
  CheckCombination(options);
  Plan plan = MakePlan(*OpenToCount(options), options);
  plan.mComm = ranks.Kind();
  if (ranks.FirstHere() == 0) Publish(plan);
  if (!plan.Accepted()) throw JobError(plan.mRefusal);
  return 0;
}

}  // namespace

void AddPlan(CLI::App& app, Job& job, int& exitCode) {
  struct State {
    GatherOptions mOptions;
    CommonWords mWords;
    bool mNoValues = false;
  };
  auto const state = std::make_shared<State>();
  CLI::App* const command =
      app.add_subcommand("plan", "Tell what a gather will do, before anything moves");
  command->footer(kExamples);
  AddInput(*command, state->mOptions, "Matrix Market file whose gather is planned");
  AddCommon(*command, state->mOptions, state->mWords, "coo, csr, csc, dense-row or dense-col");
  AddPieceOptions(*command, state->mOptions, state->mNoValues);
  AddAllRanks(*command, state->mOptions);
  AddReportFile(*command, state->mOptions);
  command->callback([state, command, &job, &exitCode] {
    GatherOptions& options = state->mOptions;
    Understand(state->mWords, options);
    options.mWithValues = !state->mNoValues;
    auto const ranks = MakeRanks(job, *command, options);
    exitCode = MakeAndPublish(options, *ranks);
  });
}

}  // namespace Pavex::Tool
