// What the dense paths ask of the records and of the gathered shape.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/dense_reorder.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/log.h"

#include <algorithm>

namespace Pavex {

bool AggregatorBase::ContiguousLocalSubmat(bool rowMajor) const {
  return mMode != DISTRIBUTED || PiecesAreInOrder(mPartition.type, rowMajor, mRows, mCols);
}

// No more processes than there are records: after SetComm there may be.
int AggregatorBase::Pieces() const {
  return std::min(mComm->Size(), static_cast<int>(mLocalInfos.mSize));
}

PavexStatus AggregatorBase::CheckDense(bool rowMajor) const {
  if (!FillsShape(mRows, mCols, mNnz)) {
    Log::Error("[%s] The Global NNZ(%ld) not equal to %ld * %ld.\n", mNnz, mRows, mCols);
    return STATUS_INCONSISTENT;
  }
  if (ContiguousLocalSubmat(rowMajor)) return STATUS_OK;
  std::int64_t const outside = FindRunsOutside(mLocalInfos, static_cast<int>(mLocalInfos.mSize),
                                               rowMajor, LeadingDimension(rowMajor), mNnz);
  return outside == kNobody ? STATUS_OK : Log::Report(STATUS_INCONSISTENT);
}

}  // namespace Pavex
