#include "tools/plan/plan_decision.h"

#include "pavex/aggregator/plan.h"

namespace Pavex::Tool {

namespace {

std::vector<std::string> FindingsOf(Buffer<MatrixLocalInfo> const& records,
                                    GatherPlan const& plan) {
  std::vector<std::string> findings;
  for (GatherFinding const& finding : FindSuspicious(records, plan))
    findings.push_back(Describe(finding, records, plan));
  return findings;
}

}  // namespace

PieceDecision DecideOn(std::vector<CountedMatrix> const& pieces, bool withValues,
                       std::size_t valueBytes, std::size_t indexBytes) {
  std::vector<MatrixLocalInfo> records;
  records.reserve(pieces.size());
  for (CountedMatrix const& piece : pieces)
    records.push_back(RecordOf(piece, withValues));
  Buffer<MatrixLocalInfo> view;
  view.Borrow(records.data(), static_cast<std::int64_t>(records.size()));

  GatherPlan const plan = PlanGather(view, valueBytes, indexBytes);
  PieceDecision decision;
  decision.mStatus = plan.mStatus;
  decision.mDescription = Describe(view, plan);
  decision.mRows = plan.mRows;
  decision.mCols = plan.mCols;
  decision.mEntries = plan.mNnz;
  if (plan.Refused()) return decision;
  decision.mMode = plan.mMode;
  decision.mSource = plan.mSource;
  decision.mPartition = records[static_cast<std::size_t>(plan.mReference)].partition;
  decision.mFindings = FindingsOf(view, plan);
  return decision;
}

}  // namespace Pavex::Tool
