// What the dense paths need to know about the records and the gathered shape.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/dense_reorder.h"
#include "pavex/aggregator/rules.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>

namespace Pavex {

namespace {

// Whether every process has as many entries as its rows and columns say.
bool FillTheirShapes(Buffer<MatrixLocalInfo> const& infos) {
  for (std::int64_t p = 0; p < infos.mSize; ++p) {
    MatrixLocalInfo const& info = infos.mData[p];
    if (info.rows < 0 || info.cols < 0 || !FillsShape({info.rows, info.cols, info.nnz}))
      return false;
  }
  return true;
}

}  // namespace

bool AggregatorBase::ContiguousLocalSubmat(bool rowMajor) const {
  return mMode != DISTRIBUTED || PiecesAreInOrder(mPartition.type, rowMajor, mRows, mCols);
}

// Runs move in a collective call, so the values of a holder go to rank 0 and back the ordinary
// way: no other process takes part there. So do those of records that only the order of the
// ranks makes sense of (pieces that meet, other numbers of entries than rows times columns).
bool AggregatorBase::MovesRuns(bool rowMajor) const {
  if (!mComm->Strided() || mComm->Size() != mLocalInfos.mSize) return false;
  if (mMode == CENTRALIZED_ONE) return mRoot == kEverybody;
  if (mMode == CENTRALIZED_ALL) return true;
  if (!FillTheirShapes(mLocalInfos)) return false;
  return ContiguousLocalSubmat(rowMajor) ||
         PiecesTile(mLocalInfos, Pieces(), rowMajor, LeadingDimension(rowMajor));
}

PavexStatus AggregatorBase::ListRuns(bool rowMajor, Buffer<Runs>& runs) const {
  PavexStatus const status = Log::Report(mPool->Get(runs, mLocalInfos.mSize));
  if (status != STATUS_OK) return status;
  bool const inOrder = ContiguousLocalSubmat(rowMajor);
  long begin = 0;
  for (int p = 0; p < runs.mSize; ++p) {
    MatrixLocalInfo const& info = mLocalInfos.mData[p];
    if (mMode != DISTRIBUTED) {
      bool const holds = mSourceRank == kEverybody || mSourceRank == p;
      runs.mData[p] = holds ? Runs{0, mNnz, 1, mNnz} : Runs{};
    } else if (inOrder) {
      runs.mData[p] = {begin, info.nnz, 1, info.nnz};
      begin += info.nnz;
    } else {
      runs.mData[p] = {begin, info.RunLength(rowMajor), info.Runs(rowMajor),
                       LeadingDimension(rowMajor)};
      begin += info.RunLength(rowMajor);
    }
  }
  return STATUS_OK;
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
