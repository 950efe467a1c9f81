// The log lines of the mode and of the agreement. The plan decides both. Every process makes it
// from the same records, so all reach the same result.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/plan.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/log.h"

namespace Pavex {

namespace {

// Logs in what two neighbours disagree; `first` is one of them. The texts are fixed: see
// docs/compatibility.md.
PavexStatus Disagree(GatherFlaw flaw, MatrixLocalInfo const& first) {
  switch (flaw) {
    case GatherFlaw::CODES:
      Log::Error("The pattern and attribute of local matrix is inconsistent.");
      break;
    case GatherFlaw::STORE_TYPE:
      Log::Error("The store type of local matrix is inconsistent.");
      break;
    case GatherFlaw::PARTITION_TYPE:
      Log::Error("Partition type of matrix is inconsistent.");
      break;
    case GatherFlaw::UNKNOWN_PARTITION:
      Log::Error("Unknown partition type, %d.", first.partition.type);
      return STATUS_INVALID_VALUE;
    case GatherFlaw::NOT_ADJACENT:
      Log::Error("Local matrices are not adjacent for DISTRIBUTED mode.");
      break;
    case GatherFlaw::DIMENSION:
      Log::Error("The dimension of global matrix is inconsistent.");
      break;
    default:
      Log::Error("Processes disagree on whether to aggregate values.");
      break;
  }
  return STATUS_INCONSISTENT;
}

PavexStatus CheckPairs(DistMatrixMode mode, Buffer<MatrixLocalInfo> const& infos) {
  Disagreement const found = FindDisagreement(mode, infos);
  if (found.mFlaw == GatherFlaw::NONE) return STATUS_OK;
  return Disagree(found.mFlaw, infos.mData[found.mFirst]);
}

}  // namespace

PavexStatus AggregatorBase::TakeMode(GatherPlan const& plan,
                                     Buffer<MatrixLocalInfo> const& infos,
                                     DistMatrixMode& mode) {
  if (plan.mStage == GatherStage::MODE) {
    Log::Error("Invalid distribution mode: %d processes (out of %ld) has empty local matrix.",
               plan.mEmpty, static_cast<long>(infos.mSize));
    return plan.mStatus;
  }
  mode = plan.mMode;
  Log::Debug("Matrix mode is %s.", DistMatrixModeStr(mode));
  return STATUS_OK;
}

PavexStatus AggregatorBase::TakeAgreement(GatherPlan const& plan,
                                          Buffer<MatrixLocalInfo> const& infos) {
  if (plan.mStage != GatherStage::AGREEMENT) return STATUS_OK;
  return Disagree(plan.mFlaw, infos.mData[plan.mProcess]);
}

PavexStatus AggregatorBase::DetermineMode(Buffer<MatrixLocalInfo> const& infos,
                                          DistMatrixMode& mode, int& source) {
  GatherPlan const plan = PlanGather(infos, 1, 1);
  source = plan.mSource;
  return TakeMode(plan, infos, mode);
}

PavexStatus AggregatorBase::CheckForDistMode(Buffer<MatrixLocalInfo> const& infos) {
  return CheckPairs(DISTRIBUTED, infos);
}

PavexStatus AggregatorBase::CheckForAllMode(Buffer<MatrixLocalInfo> const& infos) {
  return CheckPairs(CENTRALIZED_ALL, infos);
}

PavexStatus AggregatorBase::CheckForOneMode(Buffer<MatrixLocalInfo> const& infos) const {
  std::int32_t const type = infos.mData[mComm->Rank()].partition.type;
  if (type == PARTITION_NONE || !Log::Enabled(LOG_DEBUG)) return STATUS_OK;
  char const* const word = PartitionWord(type);
  if (word == nullptr) Log::NeverBeenHere();  // GCOVR_EXCL_LINE: aborts
  Log::Debug("Partition type (%s) ignored for CENTRALIZED_ONE mode.", word);
  return STATUS_OK;
}

}  // namespace Pavex
