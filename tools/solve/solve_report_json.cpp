#include "tools/cut/report_json.h"
#include "tools/solve/solve_report.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace Pavex::Tool {

namespace {

using Json = nlohmann::ordered_json;

Json InJson(char const* operation, char const* of, Transfer const& transfer) {
  return TransferInJson(operation, of, transfer.mSeconds, transfer.mBytes);
}

Json Steps(SolveReport const& report) {
  Json steps = Json::array();
  for (SolveStep const& step : report.mSteps) {
    char const* const operation = steps.empty() ? "gather" : "update";
    Json const operations = {InJson(operation, "matrix", step.mOperator),
                             InJson(operation, "right-hand sides", step.mRhs),
                             InJson("scatter", "solutions", step.mScatter)};
    Json json = {{"step", steps.size()},
                 {"operations", operations},
                 {"analyseSeconds", step.mAnalyseSeconds},
                 {"factorSeconds", step.mFactorSeconds},
                 {"solveSeconds", step.mSolveSeconds},
                 {"normwiseResidual", step.mAccuracy.mNormwise},
                 {"componentwiseResidual", step.mAccuracy.mComponentwise}};
    if (report.mKnowsError) json["error"] = step.mAccuracy.mError;
    steps.push_back(std::move(json));
  }
  return steps;
}

}  // namespace

std::string InJson(SolveReport const& report) {
  Json json =
      InJson(ReportHead{"solve", report.mInput, report.mField,
                        Extent{report.mUnknowns, report.mUnknowns, report.mEntries},
                        report.mComm, static_cast<std::size_t>(report.mRanks), report.mValue,
                        report.mOptions.mOperator, report.mOptions.mOperator});
  json["mode"] = DistMatrixModeStr(report.mMode);
  json["rhs"] = report.mOptions.mRhs;
  json["solver"] = report.mSolver;
  json["reading"] = report.mReading;
  json["steps"] = Steps(report);
  json["aggregationSeconds"] = report.AggregationSeconds();
  json["solverSeconds"] = report.SolverSeconds();
  json["aggregationShare"] = report.AggregationShare();
  return TextOf(json);
}

}  // namespace Pavex::Tool
