// What the dense paths need to know about the records and the gathered shape.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/log.h"

#include <algorithm>

namespace Pavex {

bool AggregatorBase::ContiguousLocalSubmat(bool rowMajor) const {
  return mMode != DISTRIBUTED || PiecesAreInOrder(mPartition.type, rowMajor, mRows, mCols);
}

// After SetComm there may be more processes than records, so this takes the smaller number.
int AggregatorBase::Pieces() const {
  return std::min(mComm->Size(), static_cast<int>(mLocalInfos.mSize));
}

PavexStatus AggregatorBase::CheckDense(bool rowMajor) const {
  GatheredShape const shape = {mRows, mCols, mNnz};
  if (!FillsShape(shape)) return CheckDense(GatherFlaw::NOT_FILLED);
  bool const inside = mMode != DISTRIBUTED || FindPieceOutside(mLocalInfos, mPartition.type,
                                                               rowMajor, shape) == kNobody;
  return CheckDense(inside ? GatherFlaw::NONE : GatherFlaw::RUNS_OUTSIDE);
}

PavexStatus AggregatorBase::CheckDense(GatherFlaw flaw) const {
  if (flaw == GatherFlaw::NONE) return STATUS_OK;
  if (flaw != GatherFlaw::NOT_FILLED) return Log::Report(STATUS_INCONSISTENT);
  Log::Error("The Global NNZ(%ld) not equal to %ld * %ld.", mNnz, mRows, mCols);
  return STATUS_INCONSISTENT;
}

}  // namespace Pavex
