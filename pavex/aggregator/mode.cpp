// Decisions from the exchanged records: the mode, and whether the processes agree. Every
// process runs them on the same records and so comes to the same result.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/log.h"

namespace Pavex {

namespace {

PavexStatus Disagree(char const* message) {
  Log::Error(message);
  return STATUS_INCONSISTENT;
}

PavexStatus CheckAgreement(DistMatrixMode mode, Buffer<MatrixLocalInfo> const& infos) {
  Disagreement const found = FindDisagreement(mode, infos);
  switch (found.mFlaw) {
    case Flaw::NONE:
      break;
    case Flaw::CODES:
      return Disagree("[%s] The pattern and attribute of local matrix is inconsistent.\n");
    case Flaw::STORE_TYPE:
      return Disagree("[%s] The store type of local matrix is inconsistent.\n");
    case Flaw::PARTITION_TYPE:
      return Disagree("[%s] Partition type of matrix is inconsistent.\n");
    case Flaw::UNKNOWN_PARTITION:
      Log::Error("[%s] Unknown partition type, %d.\n",
                 infos.mData[found.mFirst].partition.type);
      return STATUS_INVALID_VALUE;
    case Flaw::NOT_ADJACENT:
      return Disagree("[%s] Local matrices are not adjacent for DISTRIBUTED mode.\n");
    case Flaw::DIMENSION:
      return Disagree("[%s] The dimension of global matrix is inconsistent.\n");
    case Flaw::FLAG:
      return Disagree("[%s] Processes disagree on whether to aggregate values.\n");
  }
  return STATUS_OK;
}

}  // namespace

PavexStatus AggregatorBase::DetermineMode(Buffer<MatrixLocalInfo> const& infos,
                                          DistMatrixMode& mode, int& source) {
  Decision const decision = DecideMode(infos);
  source = decision.mSource;
  if (!decision.mDecided) {
    Log::Error(
        "[%s] Invalid distribution mode: %d processes (out of %ld) has empty local matrix.\n",
        decision.mEmpty, static_cast<long>(infos.mSize));
    return STATUS_INCONSISTENT;
  }
  mode = decision.mMode;
  Log::Debug("[%s] Matrix mode is %s.\n", DistMatrixModeStr(mode));
  return STATUS_OK;
}

PavexStatus AggregatorBase::CheckForDistMode(Buffer<MatrixLocalInfo> const& infos) {
  return CheckAgreement(DISTRIBUTED, infos);
}

PavexStatus AggregatorBase::CheckForAllMode(Buffer<MatrixLocalInfo> const& infos) {
  return CheckAgreement(CENTRALIZED_ALL, infos);
}

PavexStatus AggregatorBase::CheckForOneMode(Buffer<MatrixLocalInfo> const& infos) const {
  std::int32_t const type = infos.mData[mComm->Rank()].partition.type;
  if (type == PARTITION_NONE || !Log::Enabled(LOG_DEBUG)) return STATUS_OK;
  char const* const word = PartitionWord(type);
  if (word == nullptr) Log::NeverBeenHere();  // GCOVR_EXCL_LINE: aborts
  Log::Debug("[%s] Partition type (%s) ignored for CENTRALIZED_ONE mode.\n", word);
  return STATUS_OK;
}

}  // namespace Pavex
