#include "tools/plan/plan_decision.h"

#include "pavex/aggregator/plan.h"

namespace Pavex::Tool {

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
  if (plan.Refused()) return decision;
  decision.mMode = plan.mMode;
  decision.mSource = plan.mSource;
  decision.mPartition = records[static_cast<std::size_t>(plan.mReference)].partition;
  decision.mRows = plan.mRows;
  decision.mCols = plan.mCols;
  decision.mEntries = plan.mNnz;
  return decision;
}

}  // namespace Pavex::Tool
