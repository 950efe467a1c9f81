// Dense matrices between a receiver and the processes that have their rows.
//
// On the way, the elements of a dense matrix lie by rank, those of a process column by column
// in its own order of rows. Example, two columns, process 0 with rows 2 0 and process 1 with
// row 2: (2,0) (0,0) (2,1) (0,1) | (2,0) (2,1).
//
// Included by assembler.cpp.

#pragma once

#include "pavex/assembly/assembler.h"
#include "pavex/assembly/decisions.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <cstdint>

namespace Pavex {
namespace {

// Stands for a number of columns on a process where any number is right.
constexpr std::int64_t kAnyColumns = -1;

// The rows of one process: a band or a list.
template <typename I>
struct OwnRows {
  std::int64_t mCount;
  std::int64_t mBegin;
  I const* mList;  // null for a band

  std::int64_t operator[](std::int64_t i) const {
    return mList == nullptr ? mBegin + i : std::int64_t{mList[i]};
  }
};

// Calls `visit(process, rows)` for each process in rank order. `lists`: the lists of all.
template <typename I, typename Visit>
void ForEachProcess(Buffer<AssemblyRecord> const& records, I const* lists, Visit const& visit) {
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    AssemblyRecord const& record = records.mData[p];
    std::int64_t const listed = record.Listed();
    visit(p, OwnRows<I>{record.mOwnRows, record.mOwnBegin, listed > 0 ? lists : nullptr});
    if (listed > 0) lists += listed;
  }
}

// Elements of a dense matrix by row and column.
template <typename T>
struct DenseView {
  T* mValues;
  std::int64_t mRowStep;
  std::int64_t mColStep;

  T& operator()(std::int64_t i, std::int64_t j) const {
    return mValues[i * mRowStep + j * mColStep];
  }
};

template <typename T, typename I>
DenseView<T> ViewOf(MatrixDense<T, I> const& matrix) {
  if (matrix.mRowMajor) return {matrix.mValues.mData, matrix.mLd, 1};
  return {matrix.mValues.mData, 1, matrix.mLd};
}

// Whether the elements lie column by column without gaps.
template <typename T, typename I>
bool IsPacked(MatrixDense<T, I> const& matrix) {
  if (matrix.mRowMajor) return matrix.mRows == 1 || (matrix.mCols == 1 && matrix.mLd == 1);
  return matrix.mLd == matrix.mRows || matrix.mCols == 1;
}

// Notes the first flaw of a dense matrix that must have `rows` rows.
template <typename T, typename I>
void FindFlaw(MatrixDense<T, I> const& matrix, std::int64_t rows, AssemblyVerdict& verdict) {
  std::int64_t const run = matrix.RunLength();
  std::int64_t const ld = matrix.mLd;
  std::int64_t const length = matrix.mValues.mSize;
  if (matrix.mRows != rows)
    return verdict.Note(AssemblyFlaw::DENSE_ROWS, 0, matrix.mRows, rows);
  if (matrix.mCols < 0) return verdict.Note(AssemblyFlaw::NEGATIVE_COUNT, 0, matrix.mCols, 0);
  if (rows == 0 || matrix.mCols == 0) return;
  if (ld < run) return verdict.Note(AssemblyFlaw::DENSE_LEADING, 0, ld, run);
  if (matrix.mValues.mData == nullptr) return verdict.NoteMissing(AssemblyArray::VALUES);
  std::int64_t const gaps = matrix.Runs() - 1;
  if (length < run || (length - run) / ld < gaps)
    verdict.Note(AssemblyFlaw::DENSE_SHORT, 0, length, WrappingAdd(WrappingMul(gaps, ld), run));
}

template <typename T, typename I>
void CheckDense(MatrixDense<T, I> const& matrix, std::int64_t rows, AssemblyPart part,
                AssemblyVerdict& verdict) {
  if (!verdict.Flawless()) return;
  FindFlaw(matrix, rows, verdict);
  verdict.NotePart(part);
}

}  // namespace

template <typename T, typename I>
struct Assembler<T, I>::DenseParts {
  Buffer<T> mOwn;      // the rows of this process, packed; borrows if they are already
  Buffer<T> mStacked;  // those of all processes
  Buffer<int> mCounts;
  Buffer<int> mDispls;
};

// The rows of all processes together.
template <typename T, typename I>
std::int64_t Assembler<T, I>::RowsOfAll() const {
  std::int64_t rows = 0;
  for (std::int64_t p = 0; p < mRecords.mSize; ++p)
    rows = WrappingAdd(rows, mRecords.mData[p].mOwnRows);
  return rows;
}

// Takes the memory of an exchange. Local.
template <typename T, typename I>
PavexStatus Assembler<T, I>::PrepareDense(MatrixDense<T, I> const& own, long columns,
                                          bool collects, DenseParts& parts) {
  if (!collects && IsLocal()) return STATUS_OK;

  PavexStatus status = STATUS_OK;
  if (IsPacked(own))
    parts.mOwn.Borrow(own.mValues.mData, own.mRows * columns);
  else
    status = mPool->Get(parts.mOwn, own.mRows * columns);
  if (status != STATUS_OK || !Receives() || mRecords.mSize == 1) return status;
  status = mPool->Get(parts.mStacked, RowsOfAll() * columns);
  if (status == STATUS_OK) status = mPool->Get(parts.mCounts, mRecords.mSize);
  if (status == STATUS_OK) status = mPool->Get(parts.mDispls, mRecords.mSize);
  if (status != STATUS_OK) return status;
  int displ = 0;
  for (std::int64_t p = 0; p < mRecords.mSize; ++p) {
    parts.mCounts.mData[p] = static_cast<int>(mRecords.mData[p].mOwnRows * columns);
    parts.mDispls.mData[p] = displ;
    displ += parts.mCounts.mData[p];
  }
  return STATUS_OK;
}

// Checks both matrices on every process and takes the memory, then lets all decide. A process
// without rows has no say in the columns, unless it receives.
template <typename T, typename I>
PavexStatus Assembler<T, I>::AgreeOnDense(MatrixDense<T, I> const& whole,
                                          MatrixDense<T, I> const& own,
                                          AssemblyOperation operation, DenseParts& parts) {
  AssemblyVerdict verdict;
  std::int64_t const rows = mRecords.mData[mRank].mOwnRows;
  std::int64_t const columns = Receives() ? whole.mCols : rows > 0 ? own.mCols : kAnyColumns;
  CheckDense(own, rows, AssemblyPart::OWN, verdict);
  if (Receives()) {
    CheckDense(whole, mRequest.mRows, AssemblyPart::WHOLE, verdict);
    if (rows > 0 && whole.mCols != own.mCols)
      verdict.Note(AssemblyFlaw::DENSE_COLUMNS, 0, whole.mCols, own.mCols);
  }
  bool const collects = operation != AssemblyOperation::SCATTER;
  bool const moves = collects ? mRecords.mSize > 1 : !IsLocal();
  if (moves && columns > 0 && RowsOfAll() > kMostCounted / columns)
    verdict.Note(AssemblyFlaw::TOO_MANY_DENSE, RowsOfAll(), columns, 0);
  if (verdict.Flawless()) verdict.NoteStep(PrepareDense(own, columns, collects, parts));
  if (verdict.Flawless()) verdict.mFound = columns;
  PavexStatus const status = Log::Report(AgreeOn(verdict, operation));
  return status == STATUS_OK ? Log::Report(CompareColumns()) : status;
}

// Compares the columns that the processes pass. Local.
template <typename T, typename I>
PavexStatus Assembler<T, I>::CompareColumns() const {
  std::int64_t first = -1;  // the first process with a say in the columns
  for (std::int64_t p = 0; p < mVerdicts.mSize; ++p) {
    AssemblyVerdict other = mVerdicts.mData[p];
    if (other.mFound == kAnyColumns) continue;
    if (first < 0) first = p;
    if (other.mFound == mVerdicts.mData[first].mFound) continue;
    other.mAt = first;
    other.mLimit = mVerdicts.mData[first].mFound;
    return Refuse(ReasonOf(AssemblyFlaw::OTHER_COLUMNS, static_cast<int>(p), other),
                  STATUS_INCONSISTENT);
  }
  return STATUS_OK;
}

// Copies from the whole the rows of every process.
template <typename T, typename I>
void Assembler<T, I>::StackWhole(MatrixDense<T, I> const& whole, T* stacked) const {
  DenseView<T> const from = ViewOf(whole);
  ForEachProcess(mRecords, mListed.mData, [&](std::int64_t /*process*/, auto const& rows) {
    for (std::int64_t j = 0; j < whole.mCols; ++j)
      for (std::int64_t i = 0; i < rows.mCount; ++i)
        *stacked++ = from(rows[i], j);
  });
}

template <typename T, typename I>
PavexStatus Assembler<T, I>::Scatter(MatrixDense<T, I> const& whole, MatrixDense<T, I>& own) {
  if (!mGathered) return RefuseUngathered(AssemblyOperation::SCATTER);
  DenseParts parts;
  PavexStatus status = Log::Report(AgreeOnDense(whole, own, AssemblyOperation::SCATTER, parts));
  if (status != STATUS_OK) return status;
  DenseView<T> const to = ViewOf(own);
  if (IsLocal()) {
    DenseView<T> const from = ViewOf(whole);
    ForEachProcess(mRecords, mListed.mData, [&](std::int64_t process, auto const& rows) {
      if (process != mRank) return;
      for (std::int64_t j = 0; j < own.mCols; ++j)
        for (std::int64_t i = 0; i < rows.mCount; ++i)
          to(i, j) = from(rows[i], j);
    });
    return STATUS_OK;
  }
  if (Receives()) StackWhole(whole, parts.mStacked.mData);
  constexpr Datatype kType = DatatypeOf<T>::kValue;
  status = Log::Report(mComm->Scatterv(
      parts.mStacked.mData, parts.mCounts.mData, parts.mDispls.mData, kType, parts.mOwn.mData,
      static_cast<int>(parts.mOwn.mSize), kType, mRequest.mReceiver));
  if (status != STATUS_OK || parts.mOwn.mAllocator == nullptr) return status;
  T const* from = parts.mOwn.mData;
  for (std::int64_t j = 0; j < own.mCols; ++j)
    for (std::int64_t i = 0; i < own.mRows; ++i)
      to(i, j) = *from++;
  return STATUS_OK;
}

// Adds the rows of all processes to a kNothing, which makes a single one a copy. Where only the
// first counts, they are taken last to first, so that it is the one that stays.
template <typename T, typename I>
void Assembler<T, I>::AddStack(T const* stacked, Overlap overlap,
                               MatrixDense<T, I>& whole) const {
  DenseView<T> const to = ViewOf(whole);
  for (std::int64_t j = 0; j < whole.mCols; ++j)
    for (std::int64_t row = 0; row < whole.mRows; ++row)
      to(row, j) = T{};
  if (overlap == Overlap::ADD) {
    ForEachProcess(mRecords, mListed.mData, [&](std::int64_t /*process*/, auto const& rows) {
      for (std::int64_t j = 0; j < whole.mCols; ++j)
        for (std::int64_t i = 0; i < rows.mCount; ++i)
          to(rows[i], j) = kNothing<T>;
    });
    ForEachProcess(mRecords, mListed.mData, [&](std::int64_t /*process*/, auto const& rows) {
      for (std::int64_t j = 0; j < whole.mCols; ++j)
        for (std::int64_t i = 0; i < rows.mCount; ++i)
          to(rows[i], j) += *stacked++;
    });
    return;
  }
  std::int64_t const count = mRecords.mSize;
  I const* list = mListed.mData + mListed.mSize;
  for (std::int64_t p = 0; p < count; ++p)
    stacked += mRecords.mData[p].mOwnRows * whole.mCols;
  for (std::int64_t p = count - 1; p >= 0; --p) {
    AssemblyRecord const& record = mRecords.mData[p];
    if (record.Listed() > 0) list -= record.Listed();
    OwnRows<I> const rows = {record.mOwnRows, record.mOwnBegin,
                             record.Listed() > 0 ? list : nullptr};
    for (std::int64_t j = whole.mCols - 1; j >= 0; --j)
      for (std::int64_t i = rows.mCount - 1; i >= 0; --i)
        to(rows[i], j) = *--stacked;
  }
}

template <typename T, typename I>
PavexStatus Assembler<T, I>::Collect(MatrixDense<T, I> const& own, Overlap overlap,
                                     MatrixDense<T, I>& whole) {
  AssemblyOperation const operation = overlap == Overlap::ADD ? AssemblyOperation::COLLECT_ADD
                                                              : AssemblyOperation::COLLECT_ONCE;
  if (!mGathered) return RefuseUngathered(operation);
  DenseParts parts;
  PavexStatus status = Log::Report(AgreeOnDense(whole, own, operation, parts));
  if (status != STATUS_OK) return status;
  if (parts.mOwn.mAllocator != nullptr) {
    DenseView<T> const from = ViewOf(own);
    T* to = parts.mOwn.mData;
    for (std::int64_t j = 0; j < own.mCols; ++j)
      for (std::int64_t i = 0; i < own.mRows; ++i)
        *to++ = from(i, j);
  }
  constexpr Datatype kType = DatatypeOf<T>::kValue;
  int const sent = static_cast<int>(parts.mOwn.mSize);
  T const* stacked = parts.mStacked.mData;
  if (mRecords.mSize == 1)
    stacked = parts.mOwn.mData;
  else if (mRequest.mReceiver == kEverybody)
    status = mComm->Allgatherv(parts.mOwn.mData, sent, kType, parts.mStacked.mData,
                               parts.mCounts.mData, parts.mDispls.mData, kType);
  else
    status =
        mComm->Gatherv(parts.mOwn.mData, sent, kType, parts.mStacked.mData, parts.mCounts.mData,
                       parts.mDispls.mData, kType, mRequest.mReceiver);
  if (Log::Report(status) == STATUS_OK && Receives()) AddStack(stacked, overlap, whole);
  return status;
}

}  // namespace Pavex
