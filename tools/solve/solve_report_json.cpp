#include "pavex/runtime/version.h"
#include "tools/solve/solve_report.h"

#include <nlohmann/json.hpp>

namespace Pavex::Tool {

namespace {

using Json = nlohmann::ordered_json;

Json InJson(Transfer const& transfer) {
  return {{"seconds", transfer.mSeconds}, {"bytes", transfer.mBytes}};
}

Json Steps(SolveReport const& report) {
  Json steps = Json::array();
  for (SolveStep const& step : report.mSteps) {
    bool const first = steps.empty();
    Json json = {{"step", steps.size()},
                 {first ? "gatherOperator" : "updateOperator", InJson(step.mOperator)},
                 {first ? "gatherRhs" : "updateRhs", InJson(step.mRhs)},
                 {"analyseSeconds", step.mAnalyseSeconds},
                 {"factorSeconds", step.mFactorSeconds},
                 {"solveSeconds", step.mSolveSeconds},
                 {"scatter", InJson(step.mScatter)},
                 {"normwiseResidual", step.mAccuracy.mNormwise},
                 {"componentwiseResidual", step.mAccuracy.mComponentwise}};
    if (report.mKnowsError) json["error"] = step.mAccuracy.mError;
    steps.push_back(std::move(json));
  }
  return steps;
}

}  // namespace

std::string InJson(SolveReport const& report) {
  GatherOptions const& options = report.mOptions.mOperator;
  Json const json = {{"command", "solve"},
                     {"version", PavexVersion()},
                     {"input", report.mInput},
                     {"unknowns", report.mUnknowns},
                     {"entries", report.mEntries},
                     {"field", report.mField},
                     {"ranks", report.mRanks},
                     {"format", NameOf(options.mFormat)},
                     {"partition", NameOf(options.mPartition)},
                     {"value", NameOf(report.mValue)},
                     {"index", NameOf(options.mIndex)},
                     {"to", options.mToAll ? "all" : "root"},
                     {"rhs", report.mOptions.mRhs},
                     {"solver", report.mSolver},
                     {"reading", report.mReading},
                     {"steps", Steps(report)},
                     {"aggregationSeconds", report.AggregationSeconds()},
                     {"solverSeconds", report.SolverSeconds()},
                     {"aggregationShare", report.AggregationShare()}};
  // A file name may hold any bytes; those that are no UTF-8 are replaced.
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Pavex::Tool
