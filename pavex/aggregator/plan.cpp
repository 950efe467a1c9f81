#include "pavex/aggregator/plan.h"

#include "pavex/aggregator/dense_reorder.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>

namespace Pavex {

namespace {

using Records = Buffer<MatrixLocalInfo>;

void Refuse(GatherPlan& plan, GatherStage stage, GatherFlaw flaw, std::int64_t process,
            PavexStatus status = STATUS_INCONSISTENT) {
  if (plan.Refused()) return;
  plan.mStage = stage;
  plan.mFlaw = flaw;
  plan.mStatus = status;
  plan.mProcess = process;
}

// Each function below decides one stage. It is called if the earlier stages refuse nothing.

void SettleMode(Survey const& survey, std::int64_t count, GatherPlan& plan) {
  plan.mSource = survey.mSource;
  plan.mEmpty = survey.mEmpty;
  bool const allEmpty = survey.mEmpty == count;
  if (count <= 1 || allEmpty)
    plan.mMode = CENTRALIZED_ALL;
  else if (survey.mEmpty == 0)
    plan.mMode = survey.mAssumed;
  else if (survey.mEmpty == count - 1)
    plan.mMode = CENTRALIZED_ONE;
  else
    Refuse(plan, GatherStage::MODE, GatherFlaw::SOME_EMPTY, kNobody);
}

void SettleAgreement(Records const& records, Survey const& survey, GatherPlan& plan) {
  if (plan.mMode == CENTRALIZED_ONE || records.mSize < 2) return;
  // The survey compares only while no process is empty.
  Disagreement const found =
      survey.mEmpty == 0 ? survey.mDisagreement : FindDisagreement(plan.mMode, records);
  if (found.mFlaw == GatherFlaw::NONE) return;
  bool const unknown = found.mFlaw == GatherFlaw::UNKNOWN_PARTITION;
  Refuse(plan, GatherStage::AGREEMENT, found.mFlaw, found.mFirst,
         unknown ? STATUS_INVALID_VALUE : STATUS_INCONSISTENT);
}

// The shape of the pieces together. Example: row bands of 4 and 6 rows of a declared 20 x 7
// matrix give 10 x 7.
void SettleCounts(MatrixLocalInfo const& reference, Survey const& survey, GatherPlan& plan) {
  if (plan.mMode != DISTRIBUTED) {
    plan.mRows = reference.rows;
    plan.mCols = reference.cols;
    plan.mNnz = reference.nnz;
    return;
  }
  if (survey.mBadCount != kNobody)
    Refuse(plan, GatherStage::COUNTS, GatherFlaw::BAD_COUNT, survey.mBadCount);
  std::int32_t const cut = reference.partition.type;
  plan.mRows = cut == PARTITION_ROW_WISE ? survey.mRows : reference.globalRows;
  plan.mCols = cut == PARTITION_COLUMN_WISE ? survey.mCols : reference.globalCols;
  plan.mNnz = survey.mNnz;
}

void SettleStoreType(GatherPlan& plan) {
  if (plan.mKind == StoreKind::UNKNOWN)
    Refuse(plan, GatherStage::STORE_TYPE, GatherFlaw::UNKNOWN_STORE_TYPE, plan.mReference,
           STATUS_NOT_SUPPORTED);
}

bool IsCompressed(StoreKind kind) {
  return kind == StoreKind::CSR || kind == StoreKind::CSC;
}

void SettleOffsets(Records const& records, Survey const& survey, GatherPlan& plan) {
  if (plan.mMode != DISTRIBUTED || !IsCompressed(plan.mKind)) return;
  bool const byRows = plan.mKind == StoreKind::CSR;
  MatrixPartition const& first = records.mData[plan.mReference].partition;
  long const count = byRows ? plan.mRows : plan.mCols;
  long const offsets = WrappingAdd(count, 1L);
  if (!FitsMemory(offsets, plan.mIndexBytes))
    return Refuse(plan, GatherStage::OFFSETS, GatherFlaw::TOO_MANY_OFFSETS, kNobody);

  // Adjacent bands of the compressed dimension follow each other.
  bool const along = first.type == (byRows ? PARTITION_ROW_WISE : PARTITION_COLUMN_WISE);
  if (along && !survey.mNegative) return;
  std::int64_t const outside = FindLengthsOutside(byRows, first.begin, count, records);
  if (outside != kNobody)
    Refuse(plan, GatherStage::OFFSETS, GatherFlaw::LENGTHS_OUTSIDE, outside);
}

void SettleValues(Records const& records, GatherPlan& plan) {
  if (plan.mKind != StoreKind::DENSE || plan.mMode == CENTRALIZED_ALL) return;
  MatrixLocalInfo const& reference = records.mData[plan.mReference];
  GatheredShape const shape = {plan.mRows, plan.mCols, plan.mNnz};
  plan.mFills = FillsShape(shape);
  if (plan.mFills && plan.mMode == DISTRIBUTED) {
    for (bool const rowMajor : {false, true})
      plan.mOutside[rowMajor ? 1 : 0] =
          FindPieceOutside(records, reference.partition.type, rowMajor, shape);
  }
  if (!plan.mWithValues) return;

  // If the store type does not say the order, processes of both orders must fail.
  bool const told = TellsOrder(reference.storeType);
  bool const rowMajor = reference.storeType != STORE_DENSE_COL_MAJOR;
  GatherFlaw const flaw = plan.DenseFlaw(rowMajor);
  if (flaw == GatherFlaw::NONE || (!told && plan.DenseFlaw(!rowMajor) == GatherFlaw::NONE))
    return;
  Refuse(plan, GatherStage::VALUES, flaw, plan.mOutside[rowMajor ? 1 : 0]);
}

// Elements of the largest array that is transferred. A single holder sends its offsets, one
// more than rows (columns).
long MostMoved(GatherPlan const& plan) {
  if (plan.mMode == CENTRALIZED_ALL) return 0;
  if (plan.mKind == StoreKind::DENSE) return plan.mWithValues ? plan.mNnz : 0;
  if (!IsCompressed(plan.mKind)) return plan.mNnz;
  long const lines = plan.mKind == StoreKind::CSR ? plan.mRows : plan.mCols;
  bool const offsets =
      plan.mMode == CENTRALIZED_ONE && lines < std::numeric_limits<long>::max();
  return std::max(plan.mNnz, offsets ? lines + 1 : lines);
}

}  // namespace

GatherPlan PlanGather(Records const& records, std::size_t valueBytes, std::size_t indexBytes) {
  GatherPlan plan;
  plan.mValueBytes = valueBytes;
  plan.mIndexBytes = indexBytes;
  // Processes are counted in 32 bits, as a communicator does.
  if (static_cast<std::int32_t>(records.mSize) < 1) return plan;

  Survey const survey = TakeSurvey(records);
  SettleMode(survey, records.mSize, plan);
  if (plan.Refused()) return plan;
  SettleAgreement(records, survey, plan);

  plan.mReference = survey.mSource == kNobody ? 0 : survey.mSource;
  MatrixLocalInfo const& reference = records.mData[plan.mReference];
  plan.mKind = StoreKindOf(reference.storeType);
  plan.mWithValues = reference.WithValues();
  if (!plan.Refused()) SettleCounts(reference, survey, plan);
  if (!plan.Refused()) SettleStoreType(plan);
  if (!plan.Refused()) SettleOffsets(records, survey, plan);
  if (!plan.Refused()) SettleValues(records, plan);
  plan.mMostMoved = MostMoved(plan);
  return plan;
}

char const* GatherStageStr(GatherStage stage) noexcept {
  switch (stage) {
    case GatherStage::MODE:
      return "mode";
    case GatherStage::AGREEMENT:
      return "agreement";
    case GatherStage::COUNTS:
      return "counts";
    case GatherStage::STORE_TYPE:
      return "store type";
    case GatherStage::OFFSETS:
      return "offsets";
    case GatherStage::VALUES:
      return "values";
    case GatherStage::NONE:
      break;
  }
  return "none";
}

}  // namespace Pavex
