// The exchange of the records: one collective per gather, none for a single process.

#include "pavex/aggregator/local_info.h"

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/plan.h"
#include "pavex/runtime/log.h"

#include <new>

namespace Pavex {

namespace {

// Field by field: the padding stays as the memory holds it.
void FillRecord(MatrixBase const& local, bool withValues, MatrixLocalInfo& info) {
  info.withValues = withValues;
  info.pattern = local.mPattern;
  info.attribute = local.mAttribute;
  info.storeType = local.StoreType();
  info.partition.type = local.mPartition.type;
  info.partition.begin = local.mPartition.begin;
  info.globalRows = local.mGlobalRows;
  info.globalCols = local.mGlobalCols;
  info.rows = local.mRows;
  info.cols = local.mCols;
  info.nnz = local.NNZ();
}

}  // namespace

MatrixLocalInfo RecordOf(MatrixBase const& local, bool withValues) {
  MatrixLocalInfo info;
  FillRecord(local, withValues, info);
  return info;
}

PavexStatus AggregatorBase::GatherLocalInfo(MatrixBase const& local, bool withValues,
                                            Buffer<MatrixLocalInfo>& infos) {
  constexpr int kBytes = sizeof(MatrixLocalInfo);
  int const size = mComm->Size();
  int const rank = mComm->Rank();
  if (size < 1 || rank < 0 || rank >= size) return Log::Report(STATUS_INVALID_VALUE);

  void* block = nullptr;
  PavexStatus const status =
      Log::Report(mPool->Allocate(&block, static_cast<std::size_t>(size) * kBytes));
  if (status != STATUS_OK) return status;
  infos.Install(new (block) MatrixLocalInfo[static_cast<std::size_t>(size)], size, mPool);

  FillRecord(local, withValues, infos.mData[rank]);
  if (size == 1) return STATUS_OK;
  return Log::Report(mComm->Allgather(&Comm::IN_PLACE_OBJ, kBytes, DATATYPE_BYTE, infos.mData,
                                      kBytes, DATATYPE_BYTE));
}

}  // namespace Pavex
