// The coordinate path: the gathered matrix is the concatenation of the pieces in rank order.
// Nothing is sorted, merged or renumbered. The arrays travel in the order rows, columns,
// values. Fixed: see docs/compatibility.md.
//
// Included by aggregator.cpp.

#pragma once

#include "pavex/aggregator/sparse.ipp"

namespace Pavex {

template <typename T, typename I>
PavexStatus Aggregator<T, I>::GatherCOO(MatrixCOO<T, I> const& local) {
  Buffer<I> rowIdx;
  Buffer<I> colIdx;
  Buffer<T> values;
  PavexStatus status = PrepareArray(local.mRowIdx, mNnz, true, rowIdx);
  if (status == STATUS_OK) status = PrepareArray(local.mColIdx, mNnz, true, colIdx);
  if (status == STATUS_OK) status = PrepareArray(local.mValues, mNnz, mWithValues, values);
  if (status != STATUS_OK) return status;

  status = TransferArray(local.mRowIdx, local.NNZ(), TAG_GATHER, rowIdx);
  if (status == STATUS_OK)
    status = TransferArray(local.mColIdx, local.NNZ(), TAG_GATHER, colIdx);
  if (status == STATUS_OK && mWithValues) {
    status = TransferArray(local.mValues, local.NNZ(), TAG_GATHER, values);
  }
  if (status != STATUS_OK) return status;

  if (mIsReceiver) SetSparseTarget<MatrixCOO<T, I>>(rowIdx, colIdx, values);
  return STATUS_OK;
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::UpdateCOO(MatrixCOO<T, I> const& local) {
  return UpdateSparse(local, false);
}

}  // namespace Pavex
