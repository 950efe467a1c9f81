#include "tools/solve/solve_report.h"

#include "tools/files/report_text.h"

#include <algorithm>

namespace Pavex::Tool {

namespace {

void AppendTimes(SolveReport const& report, std::string& text) {
  text += "\n        gather/update     analyse    factor     solve         scatter\n";
  text += "step      ms        MB        ms        ms        ms        ms        MB\n";
  for (std::size_t k = 0; k < report.mSteps.size(); ++k) {
    SolveStep const& step = report.mSteps[k];
    Append(text, "%4zu  %8.2f  %8.3f  %8.2f  %8.2f  %8.2f  %8.2f  %8.3f\n", k,
           (step.mOperator.mSeconds + step.mRhs.mSeconds) * 1e3,
           Megabytes(step.mOperator.mBytes + step.mRhs.mBytes), step.mAnalyseSeconds * 1e3,
           step.mFactorSeconds * 1e3, step.mSolveSeconds * 1e3, step.mScatter.mSeconds * 1e3,
           Megabytes(step.mScatter.mBytes));
  }
}

void AppendAccuracy(SolveReport const& report, std::string& text) {
  text += "\n       scaled residual\n";
  text += "step  normwise  componentwise";
  text += report.mKnowsError ? "     error\n" : "\n";
  for (std::size_t k = 0; k < report.mSteps.size(); ++k) {
    Accuracy const& accuracy = report.mSteps[k].mAccuracy;
    Append(text, "%4zu  %8.2e       %8.2e", k, accuracy.mNormwise, accuracy.mComponentwise);
    if (report.mKnowsError) Append(text, "  %8.2e", accuracy.mError);
    text += "\n";
  }
}

// The line with the largest residuals and errors of all steps.
std::string Verdict(SolveReport const& report) {
  Accuracy worst;
  for (SolveStep const& step : report.mSteps) {
    worst.mNormwise = std::max(worst.mNormwise, step.mAccuracy.mNormwise);
    worst.mError = std::max(worst.mError, step.mAccuracy.mError);
  }
  std::string text;
  Append(text, "solved: normwise scaled residual %.2e", worst.mNormwise);
  if (report.mKnowsError) Append(text, ", error %.2e", worst.mError);
  return text + (report.mSteps.size() > 1 ? ", the largest of all steps\n" : "\n");
}

}  // namespace

double SolveReport::AggregationSeconds() const {
  double seconds = 0;
  for (SolveStep const& step : mSteps)
    seconds += step.AggregationSeconds();
  return seconds;
}

double SolveReport::SolverSeconds() const {
  double seconds = 0;
  for (SolveStep const& step : mSteps)
    seconds += step.SolverSeconds();
  return seconds;
}

double SolveReport::AggregationShare() const {
  double const whole = AggregationSeconds() + SolverSeconds();
  return whole > 0 ? AggregationSeconds() / whole : 0;
}

std::string Head(SolveReport const& report) {
  std::string text;
  GatherOptions const& options = report.mOptions.mOperator;
  text += report.mInput;
  Append(text, ": %ld x %ld, %ld entries, %s\n", report.mUnknowns, report.mUnknowns,
         report.mEntries, report.mField.c_str());
  Append(text, "%s of %s with %s indices, %s, %d rank%s, gathered on %s\n",
         NameOf(options.mFormat), NameOf(report.mValue), NameOf(options.mIndex),
         Cut(options.mPartition).c_str(), report.mRanks, report.mRanks == 1 ? "" : "s",
         options.mToAll ? "every rank" : "rank 0");
  Append(text, "%d right-hand side%s\n", report.mOptions.mRhs,
         report.mOptions.mRhs == 1 ? "" : "s");
  return text + "solver: " + report.mSolver + "; reads " + report.mReading + "\n";
}

std::string InText(SolveReport const& report) {
  std::string text = Verdict(report) + Head(report);
  AppendTimes(report, text);
  AppendAccuracy(report, text);
  Append(text, "\naggregation: %.2f ms of %.2f ms, %.1f %%\n",
         report.AggregationSeconds() * 1e3,
         (report.AggregationSeconds() + report.SolverSeconds()) * 1e3,
         report.AggregationShare() * 100);
  return text;
}

}  // namespace Pavex::Tool
