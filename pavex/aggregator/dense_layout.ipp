// The layouts of dense values between a local matrix and the gathered one.
//
//   local          the caller's array, runs mLd apart
//   packed         the runs of one piece one after the other
//   communication  the packed pieces one after the other in rank order
//   global         the gathered matrix, runs LeadingDimension() apart
//
// A run is a row of a row-major matrix, a column of a column-major one. If the pieces are bands
// across the runs, they lie side by side in each run of the global layout, and the values are
// reordered between it and the communication layout; dense_reorder.h has an example. Otherwise
// the two layouts are the same.
//
// Included by aggregator.cpp.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "pavex/aggregator/dense_reorder.h"
#include "pavex/aggregator/rounds.h"
#include "pavex/runtime/log.h"

#include <cstddef>
#include <cstdint>

namespace Pavex {
namespace {

// Copies `runs` runs of `length` elements between arrays whose runs are `fromLd` and `toLd`
// apart.
template <typename T>
void CopyElements(std::int64_t runs, std::int64_t length, T const* from, std::int64_t fromLd,
                  T* to, std::int64_t toLd) {
  if (runs < 1 || length < 1) return;
  auto const bytes = [](std::int64_t count) {
    return static_cast<std::size_t>(count) * sizeof(T);
  };
  CopyRuns({reinterpret_cast<char*>(to), bytes(toLd)},
           {reinterpret_cast<char const*>(from), bytes(fromLd)}, bytes(length),
           static_cast<std::size_t>(runs));
}

// Whether `runs` runs of `length` elements, `ld` apart from `begin` on, lie inside `size`
// elements.
inline bool RunsStayInside(std::int64_t begin, std::int64_t runs, std::int64_t length,
                           std::int64_t ld, std::int64_t size) {
  if (runs < 1 || length < 1) return true;
  if (begin < 0 || length > size || begin > size - length) return false;
  std::int64_t const room = size - length - begin;  // after the start of the first run
  return runs == 1 || ld == 0 || (ld > 0 && runs - 1 <= room / ld);
}

// Whether `matrix` has elements but no array for them. The length of an array is the caller's
// word and not checked.
template <typename T, typename I>
bool LacksArray(MatrixDense<T, I> const& matrix) {
  return matrix.mRows > 0 && matrix.mCols > 0 && matrix.mValues.mSize == 0;
}

// Whether the local layout is the packed one.
template <typename T, typename I>
bool IsPacked(MatrixDense<T, I> const& matrix) {
  return matrix.Runs() == 1 || matrix.RunLength() == matrix.mLd;
}

}  // namespace

// The position of this process's piece in the global layout.
template <typename T, typename I>
long Aggregator<T, I>::LocalSubmatOffset(MatrixDense<T, I> const& local) const {
  if (mMode != DISTRIBUTED) return 0;
  std::int32_t const along = local.mRowMajor ? PARTITION_ROW_WISE : PARTITION_COLUMN_WISE;
  if (mPartition.type != along) return LocalRowColBegin(local.mPartition);
  return EntriesBefore(mLocalInfos, mComm->Rank());
}

// Makes `packed` the values of `matrix` in packed layout. Borrows them if they have it already;
// then the length is that of the value array, not NNZ(). Fixed: see docs/compatibility.md.
// Otherwise copies them. An empty matrix leaves `packed` as it is.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::PackDenseValues(MatrixDense<T, I> const& matrix,
                                              Buffer<T>& packed) {
  long const entries = matrix.NNZ();
  if (entries == 0) return STATUS_OK;
  if (IsPacked(matrix)) {
    packed.Borrow(matrix.mValues.mData, matrix.mValues.mSize);
    return STATUS_OK;
  }
  PavexStatus const status = Log::Report(mPool->Get(packed, entries));
  if (status != STATUS_OK) return status;
  CopyElements(matrix.Runs(), matrix.RunLength(), matrix.mValues.mData, matrix.mLd,
               packed.mData, matrix.RunLength());
  return STATUS_OK;
}

// Global to communication layout: a view of `global` if the layouts are the same, else a
// reordered copy. The debug line comes before the allocation. Fixed: see docs/compatibility.md.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::Dense2Comm(bool rowMajor, Buffer<T> const& global,
                                         Buffer<T>& commValues) {
  if (ContiguousLocalSubmat(rowMajor)) {
    commValues.Borrow(global.mData, global.mSize);
    return STATUS_OK;
  }
  Log::Debug("Reorder values of dense matrix to send out.");
  PavexStatus const status = Log::Report(mPool->Get(commValues, global.mSize));
  if (status != STATUS_OK) return status;
  GlobalToComm(sizeof(T), mLocalInfos, Pieces(), rowMajor, LeadingDimension(rowMajor),
               global.mData, commValues.mData);
  return STATUS_OK;
}

// Communication to global layout: replaces the storage of `values` unless the layouts are the
// same, by a view of `place` if that is not null. The debug line comes before the allocation.
// Fixed: see docs/compatibility.md.
template <typename T, typename I>
PavexStatus Aggregator<T, I>::Comm2Dense(bool rowMajor, Buffer<T> const* place,
                                         Buffer<T>& values) {
  if (ContiguousLocalSubmat(rowMajor)) return STATUS_OK;
  Log::Debug("Reorder values of dense matrix from received data");
  Buffer<T> ordered;
  PavexStatus status = STATUS_OK;
  if (place != nullptr)
    ordered.Borrow(place->mData, place->mSize);
  else
    status = Log::Report(mPool->Get(ordered, values.mSize));
  if (status != STATUS_OK) return status;
  CommToGlobal(sizeof(T), mLocalInfos, Pieces(), rowMajor, LeadingDimension(rowMajor),
               values.mData, ordered.mData);
  values.Swap(ordered);
  return STATUS_OK;
}

}  // namespace Pavex
