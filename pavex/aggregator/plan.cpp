#include "pavex/aggregator/plan.h"

#include "pavex/aggregator/dense_reorder.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/wrapping.h"

#include <limits>

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
    if (plan.mMode == CENTRALIZED_ONE && plan.mNnz > 0 && !HoldsEntries(plan.mNnz))
      Refuse(plan, GatherStage::COUNTS, GatherFlaw::BAD_COUNT, plan.mReference);
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

// The largest number that an offset of `bytes` bytes can be.
long LargestOffset(std::size_t bytes) {
  return bytes < sizeof(long) ? (1L << (8 * bytes - 1)) - 1 : std::numeric_limits<long>::max();
}

void SettleOffsets(Records const& records, Survey const& survey, GatherPlan& plan) {
  if (plan.mMode == CENTRALIZED_ALL || !IsCompressed(plan.mKind)) return;
  bool const byRows = plan.mKind == StoreKind::CSR;
  MatrixPartition const& first = records.mData[plan.mReference].partition;
  long const count = byRows ? plan.mRows : plan.mCols;
  bool const fits = FitsMemory(WrappingAdd(count, 1L), plan.mIndexBytes);
  if (plan.mMode == CENTRALIZED_ONE) {  // its offsets are there already
    if (count > 0 && !fits)
      Refuse(plan, GatherStage::OFFSETS, GatherFlaw::TOO_MANY_OFFSETS, plan.mReference);
    return;
  }
  if (plan.mNnz > LargestOffset(plan.mIndexBytes))
    return Refuse(plan, GatherStage::OFFSETS, GatherFlaw::OFFSETS_TOO_SMALL, kNobody,
                  STATUS_NOT_SUPPORTED);
  if (!fits) return Refuse(plan, GatherStage::OFFSETS, GatherFlaw::TOO_MANY_OFFSETS, kNobody);

  // Adjacent bands of the compressed dimension follow each other.
  if (first.type == BandsOf(byRows) && !survey.mNegative) return;
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
  bool const told = StatesOrder(reference.storeType);
  bool const rowMajor = reference.storeType != STORE_DENSE_COL_MAJOR;
  GatherFlaw const flaw = plan.DenseFlaw(rowMajor);
  if (flaw == GatherFlaw::NONE || (!told && plan.DenseFlaw(!rowMajor) == GatherFlaw::NONE))
    return;
  Refuse(plan, GatherStage::VALUES, flaw, plan.mOutside[rowMajor ? 1 : 0]);
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
