// The rows of hypre's matrices and vectors as pieces for an Aggregator. Header-only and not
// part of pavex.h. Needs the headers of hypre 2.26 or later with real values, in the memory of
// the processor, and a communicator over MPI.
//
//   HYPRE_ParCSRMatrix matrix = ...;     // of an assembled HYPRE_IJMatrix
//   Pavex::HypreRows rows(&pool);
//   Check(rows.Attach(matrix));
//   Check(aggregator.Gather(comm, rows.Piece(), true));
//   ...                                  // new values in the matrix
//   Check(rows.Refresh());
//   Check(aggregator.Update(rows.Piece()));
//
// All functions are local. Wrong use is refused with a status, after one ERROR line; nothing is
// thrown.

#pragma once

#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/memory_pool.h"

#include <HYPRE_IJ_mv.h>
#include <_hypre_parcsr_mv.h>
#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace Pavex {

// hypre's values.
using HypreValue = HYPRE_Complex;
// hypre's global indices, in the type of that size that Pavex has.
using HypreIndex = std::conditional_t<sizeof(HYPRE_BigInt) == sizeof(long), long, int>;
// A piece of a matrix of hypre.
using HypreCsr = MatrixCSR<HypreValue, HypreIndex>;
// A piece of a vector of hypre.
using HypreDense = MatrixDense<HypreValue, HypreIndex>;
static_assert(std::is_floating_point_v<HypreValue>, "hypre with complex values");

// Whether arrays of that location can be read by the processor.
inline bool IsInHostMemory(HYPRE_MemoryLocation location) {
  return hypre_GetActualMemLocation(location) == hypre_MEMORY_HOST;
}

// A process's rows of a ParCSR matrix as one compressed-row piece whose columns are those of
// the whole and ascend in each row. hypre keeps them in two blocks, each row of the diagonal
// one beginning with its diagonal entry. The piece has arrays of its own.
//
// A process whose rows have no entries stores one zero, because a gather of values needs an
// entry from each process. A process without rows has an empty piece and has to be left out of
// the gather: see Split of the communicators.
class HypreRows {
 public:
  // Takes the arrays from `pool`, which must outlive it.
  explicit HypreRows(MemoryPool* pool) : mPool(pool) {}

  // Makes the piece from `matrix`, which must live until the last Refresh. STATUS_INVALID_VALUE
  // for a null pointer, STATUS_NOT_SUPPORTED if its arrays are not in the memory of the
  // processor, or a status of the pool. After a failure nothing is attached.
  [[nodiscard]] PavexStatus Attach(HYPRE_ParCSRMatrix matrix) {
    mMatrix = nullptr;
    mPiece = HypreCsr();
    if (matrix == nullptr) {
      Log::Error("The hypre matrix is a null pointer.");
      return Log::Report(STATUS_INVALID_VALUE);
    }
    if (!IsInHostMemory(hypre_ParCSRMatrixMemoryLocation(matrix))) {
      Log::Error("The hypre matrix is in the memory of a device.");
      return Log::Report(STATUS_NOT_SUPPORTED);
    }
    PavexStatus const status = MakeArrays(matrix);
    if (status != STATUS_OK) {
      mPiece = HypreCsr();
      return Log::Report(status);
    }
    mMatrix = matrix;
    FillPattern();
    FillValues();
    return STATUS_OK;
  }

  // Takes the new values of the matrix into the piece, whose arrays stay where they are.
  // STATUS_WRONG_ORDER if nothing is attached, STATUS_MISMATCH if the rows have other numbers
  // of entries than at Attach. The columns are not compared: new values of the same pattern
  // keep them.
  [[nodiscard]] PavexStatus Refresh() {
    if (mMatrix == nullptr) {
      Log::Error("No hypre matrix is attached.");
      return Log::Report(STATUS_WRONG_ORDER);
    }
    if (!HasSamePattern()) {
      Log::Error("The pattern of the hypre matrix has changed.");
      return Log::Report(STATUS_MISMATCH);
    }
    FillValues();
    return STATUS_OK;
  }

  // The piece, in its place in the whole: empty unless a matrix is attached and this process
  // owns rows of it. Valid until the next Attach.
  HypreCsr const& Piece() const { return mPiece; }

 private:
  // One of the two blocks of a process: local offsets, local columns, values.
  struct Block {
    explicit Block(hypre_CSRMatrix* block)
        : ptr(hypre_CSRMatrixI(block)),
          idx(hypre_CSRMatrixJ(block)),
          values(hypre_CSRMatrixData(block)) {}
    HYPRE_Int const* ptr;
    HYPRE_Int const* idx;
    HYPRE_Complex const* values;
  };

  Block Diagonal() const { return Block(hypre_ParCSRMatrixDiag(mMatrix)); }
  Block Other() const { return Block(hypre_ParCSRMatrixOffd(mMatrix)); }
  static HYPRE_Int RowsOf(HYPRE_ParCSRMatrix matrix) {
    return hypre_CSRMatrixNumRows(hypre_ParCSRMatrixDiag(matrix));
  }

  PavexStatus MakeArrays(HYPRE_ParCSRMatrix matrix) {
    HYPRE_Int const rows = RowsOf(matrix);
    std::int64_t const entries =
        std::int64_t{hypre_CSRMatrixNumNonzeros(hypre_ParCSRMatrixDiag(matrix))} +
        hypre_CSRMatrixNumNonzeros(hypre_ParCSRMatrixOffd(matrix));
    mIsZero = rows > 0 && entries == 0;
    HYPRE_BigInt const cols = hypre_ParCSRMatrixGlobalNumCols(matrix);
    PavexStatus status =
        HypreCsr::Create(*mPool, rows, cols, mIsZero ? 1 : entries, true, mPiece);
    if (status == STATUS_OK) status = mPool->Get(mSources, entries);
    if (status == STATUS_OK) status = mPool->Get(mDiagonalPtr, rows + 1L);
    if (status != STATUS_OK) return status;
    mPiece.PlaceIn(hypre_ParCSRMatrixGlobalNumRows(matrix), cols,
                   MatrixPartition::RowWise(hypre_ParCSRMatrixFirstRowIndex(matrix)));
    return STATUS_OK;
  }

  // Sorts the entries of each row by their column and notes where each is in hypre's arrays.
  void FillPattern() {
    Block const diagonal = Diagonal();
    Block const other = Other();
    HYPRE_BigInt const first = hypre_ParCSRMatrixFirstColDiag(mMatrix);
    HYPRE_BigInt const* const otherColumns = hypre_ParCSRMatrixColMapOffd(mMatrix);
    auto const column = [=](HYPRE_Int source) {
      return source >= 0 ? first + diagonal.idx[source] : otherColumns[other.idx[~source]];
    };
    HYPRE_Int const rows = RowsOf(mMatrix);
    HYPRE_Int* end = mSources.mData;
    mPiece.mRowPtr.mData[0] = 0;
    mDiagonalPtr.mData[0] = 0;
    for (HYPRE_Int row = 0; row < rows; ++row) {
      HYPRE_Int* const begin = end;
      for (HYPRE_Int k = diagonal.ptr[row]; k < diagonal.ptr[row + 1]; ++k)
        *end++ = k;
      for (HYPRE_Int k = other.ptr[row]; k < other.ptr[row + 1]; ++k)
        *end++ = ~k;
      std::sort(begin, end, [&](HYPRE_Int a, HYPRE_Int b) { return column(a) < column(b); });
      for (HYPRE_Int const* source = begin; source < end; ++source)
        mPiece.mColIdx.mData[source - mSources.mData] =
            static_cast<HypreIndex>(column(*source));
      mPiece.mRowPtr.mData[row + 1] = static_cast<HypreIndex>(end - mSources.mData);
      mDiagonalPtr.mData[row + 1] = diagonal.ptr[row + 1];
    }
    if (mIsZero) AddZero();
  }

  // The first entry of the first row.
  void AddZero() {
    mPiece.mColIdx.mData[0] = 0;
    mPiece.mValues.mData[0] = 0;
    std::fill(mPiece.mRowPtr.mData + 1, mPiece.mRowPtr.mData + mPiece.mRows + 1, 1);
  }

  // Rows that end inside the process have entries in the diagonal block alone.
  void FillValues() {
    if (mIsZero) return;
    HYPRE_Complex const* const diagonal = Diagonal().values;
    HYPRE_Complex const* const other = Other().values;
    HypreIndex const* const ptr = mPiece.mRowPtr.mData;
    HYPRE_Int const* const source = mSources.mData;
    HYPRE_Complex* const values = mPiece.mValues.mData;
    for (std::int64_t row = 0; row < mPiece.mRows; ++row) {
      HYPRE_Int const* const inDiagonal = mDiagonalPtr.mData + row;
      if (ptr[row + 1] - ptr[row] == inDiagonal[1] - inDiagonal[0]) {
        for (HypreIndex k = ptr[row]; k < ptr[row + 1]; ++k)
          values[k] = diagonal[source[k]];
      } else {
        for (HypreIndex k = ptr[row]; k < ptr[row + 1]; ++k)
          values[k] = source[k] >= 0 ? diagonal[source[k]] : other[~source[k]];
      }
    }
  }

  // The offsets of both blocks are those of Attach.
  bool HasSamePattern() const {
    HYPRE_Int const rows = RowsOf(mMatrix);
    if (rows != mPiece.mRows) return false;
    HYPRE_Int const* const diagonal = Diagonal().ptr;
    HYPRE_Int const* const other = Other().ptr;
    HypreIndex const* const ptr = mPiece.mRowPtr.mData;
    for (HYPRE_Int row = 1; row <= rows; ++row) {
      HypreIndex const entries = mIsZero ? 0 : ptr[row];
      if (diagonal[row] != mDiagonalPtr.mData[row] || diagonal[row] + other[row] != entries)
        return false;
    }
    return true;
  }

  MemoryPool* mPool;
  HYPRE_ParCSRMatrix mMatrix = nullptr;
  HypreCsr mPiece;
  Buffer<HYPRE_Int> mSources;  // of each entry: k in the diagonal block, ~k in the other one
  Buffer<HYPRE_Int> mDiagonalPtr;  // offsets of the diagonal block
  bool mIsZero = false;            // the piece is one zero, because the rows have no entries
};

// Makes `band` this process's rows of `vector`, which must be assembled and outlive its use, in
// their place in the whole: one column for each component. The band borrows the values, so
// Scatter writes them. STATUS_INVALID_VALUE if there is no such vector, STATUS_NOT_SUPPORTED if
// its values are not in the memory of the processor.
[[nodiscard]] inline PavexStatus BorrowHypreVector(HYPRE_IJVector vector, HypreDense& band) {
  void* object = nullptr;
  if (vector != nullptr) HYPRE_IJVectorGetObject(vector, &object);
  if (object == nullptr) {
    Log::Error("The hypre vector has no values.");
    return Log::Report(STATUS_INVALID_VALUE);
  }
  auto* const whole = static_cast<hypre_ParVector*>(object);
  hypre_Vector* const local = hypre_ParVectorLocalVector(whole);
  if (!IsInHostMemory(hypre_VectorMemoryLocation(local))) {
    Log::Error("The hypre vector is in the memory of a device.");
    return Log::Report(STATUS_NOT_SUPPORTED);
  }
  HYPRE_Int const rows = hypre_VectorSize(local);
  HYPRE_Int const columns = hypre_VectorNumVectors(local);
  bool const byRows = hypre_VectorMultiVecStorageMethod(local) == 1;
  HYPRE_Int const ld = byRows ? columns : rows;
  band = HypreDense::Borrow(rows, columns, byRows, ld, hypre_VectorData(local));
  band.PlaceIn(hypre_ParVectorGlobalSize(whole), columns,
               MatrixPartition::RowWise(hypre_ParVectorFirstIndex(whole)));
  return STATUS_OK;
}

}  // namespace Pavex
