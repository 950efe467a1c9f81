// The report of `pavex solve`, for readers and for programs.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "tools/choice/solve_options.h"

#include <string>
#include <vector>

namespace Pavex::Tool {

// A transfer that all ranks took part in.
struct Transfer {
  double mSeconds = 0;
  long mBytes = 0;
};

// How well the solutions of one step fit, as the largest over all right-hand sides.
struct Accuracy {
  double mNormwise = 0;       // |b - A x| / (|A| |x| + |b|), maximum norms
  double mComponentwise = 0;  // largest of |r_i| / (|A| |x| + |b|)_i
  double mError = 0;          // |x - exact| / |exact|; without a known solution not set
};

// One solve. The first one gathers; the others update.
struct SolveStep {
  Transfer mOperator;
  Transfer mRhs;
  double mAnalyseSeconds = 0;  // of the first step
  double mFactorSeconds = 0;
  double mSolveSeconds = 0;
  Transfer mScatter;
  Accuracy mAccuracy;

  double AggregationSeconds() const {
    return mOperator.mSeconds + mRhs.mSeconds + mScatter.mSeconds;
  }
  double SolverSeconds() const { return mAnalyseSeconds + mFactorSeconds + mSolveSeconds; }
};

struct SolveReport {
  SolveOptions mOptions;
  std::string mInput;
  std::string mField;
  ValueKind mValue = ValueKind::DOUBLE;
  long mUnknowns = 0;
  long mEntries = 0;
  CommKind mComm = CommKind::LOCAL;
  int mRanks = 0;
  DistMatrixMode mMode = DISTRIBUTED;  // of the matrix, as the library decided
  std::string mSolver;                 // as SparseLu::Name
  std::string mReading;                // as SparseLu::Reading
  bool mKnowsError = false;
  std::vector<SolveStep> mSteps;

  double AggregationSeconds() const;
  double SolverSeconds() const;
  // The aggregation's part of both, from 0 to 1.
  double AggregationShare() const;
};

// Four lines that say what was solved and how.
std::string Head(SolveReport const& report);
std::string InText(SolveReport const& report);
std::string InJson(SolveReport const& report);

}  // namespace Pavex::Tool
