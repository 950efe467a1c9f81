// The rows of a PETSc matrix as a compressed-row piece. Included by petsc.h.

#pragma once

#include "pavex/interop/petsc_owners.h"
#include "pavex/runtime/memory_pool.h"

#include <algorithm>

namespace Pavex {

// A process's rows of a Mat as one compressed-row piece whose columns are those of the whole
// and ascend in each row. It keeps a reference to the Mat; destroy it before PetscFinalize.
//
//   MATSEQAIJ      the piece borrows the arrays of the Mat
//   MATMPIAIJ      the two blocks of the process are merged
//   any other one  row by row, by MatGetRow; not the symmetric MATSBAIJ, of which a row has
//   only
//                  its upper half
//
// A process whose rows have no entries stores one zero, because a gather of values needs an
// entry from each process. Attach, Refresh, Detach and the destruction are collective over the
// Mat's communicator. Wrong use is refused with the same status on every process, after a line
// in the log of those that find it.
class PetscRows {
 public:
  // Takes the arrays of pieces that it does not borrow from `pool`, which must outlive it.
  explicit PetscRows(MemoryPool* pool) : mPool(pool) {}
  PetscRows(PetscRows const&) = delete;
  PetscRows& operator=(PetscRows const&) = delete;
  ~PetscRows() { Detach(); }

  // Makes the piece from the assembled `mat`. STATUS_WRONG_ORDER if it is not assembled,
  // STATUS_NOT_SUPPORTED if it is factored or has no rows to read, STATUS_INVALID_VALUE if
  // PETSc reports an error, or for a null pointer, which is refused without communication; a
  // status of the pool or STATUS_COMM_FAILED. After a failure nothing is attached.
  [[nodiscard]] PavexStatus Attach(Mat mat) {
    Detach();
    if (mat == nullptr) return Refuse("The Mat is a null pointer.", STATUS_INVALID_VALUE);
    MPI_Comm comm = PetscObjectComm(reinterpret_cast<PetscObject>(mat));
    PetscInt const* ranges = nullptr;
    PavexStatus status = Take(mat);
    if (status == STATUS_OK) status = StatusOfPetsc(MatGetOwnershipRanges(mat, &ranges));
    status = WorstStatus(comm, status);
    if (status == STATUS_OK) status = WorstStatus(comm, mOwners.Find(comm, ranges));
    if (status == STATUS_OK)
      status = StatusOfPetsc(PetscObjectReference(reinterpret_cast<PetscObject>(mat)));
    if (status == STATUS_OK)
      mMat = mat;
    else
      Clear();
    return status;
  }

  // Takes the new values of the Mat into the piece, whose arrays stay where they are unless
  // they belong to the Mat. STATUS_MISMATCH if its pattern has changed since Attach,
  // STATUS_WRONG_ORDER if nothing is attached or the Mat is not assembled.
  [[nodiscard]] PavexStatus Refresh() {
    if (mMat == nullptr) return Refuse("No Mat is attached.", STATUS_WRONG_ORDER);
    return WorstStatus(PetscObjectComm(reinterpret_cast<PetscObject>(mMat)), TakeValues());
  }

  // Gives the reference to the Mat and all memory back.
  void Detach() {
    Clear();
    if (mMat != nullptr) (void)MatDestroy(&mMat);
  }

  // The piece: empty unless a Mat is attached and this process owns rows of it. Valid until the
  // next Attach or Detach; a borrowed one until the pattern of the Mat changes. Local.
  PetscCsr const& Piece() const { return mPiece; }

  // The communicator of the processes that own rows, for MpiComm or NodeComm; MPI_COMM_NULL on
  // the others. Valid until the next Attach or Detach. Local.
  MPI_Comm Owners() const { return mOwners.Get(); }

  // The rank, in the Mat's communicator, of the process that a gather over Owners() brings the
  // whole to; -1 if no process owns rows. Local.
  int Receiver() const { return mOwners.First(); }

 private:
  enum class Source { BORROWED, MERGED, BY_ROW };

  // The arrays of a MATSEQAIJ while this object lives.
  struct SeqArrays {
    explicit SeqArrays(Mat mat) : mMat(mat) {
      PetscBool done = PETSC_FALSE;
      mError = MatGetRowIJ(mat, 0, PETSC_FALSE, PETSC_FALSE, &mRows, &mPtr, &mIdx, &done);
      if (mError == 0 && done == PETSC_FALSE) mError = PETSC_ERR_SUP;
      if (mError == 0) mError = MatSeqAIJGetArrayRead(mat, &mValues);
    }
    SeqArrays(SeqArrays const&) = delete;
    SeqArrays& operator=(SeqArrays const&) = delete;
    ~SeqArrays() {
      PetscBool done = PETSC_FALSE;
      if (mValues != nullptr) (void)MatSeqAIJRestoreArrayRead(mMat, &mValues);
      if (mPtr != nullptr)
        (void)MatRestoreRowIJ(mMat, 0, PETSC_FALSE, PETSC_FALSE, &mRows, &mPtr, &mIdx, &done);
    }
    PetscInt NNZ() const { return mPtr[mRows]; }

    Mat mMat;
    PetscErrorCode mError = static_cast<PetscErrorCode>(0);
    PetscInt mRows = 0;
    PetscInt const* mPtr = nullptr;
    PetscInt const* mIdx = nullptr;
    PetscScalar const* mValues = nullptr;
  };

  static PavexStatus Refuse(char const* why, PavexStatus status) {
    Log::Error("%s", why);
    return status;
  }

  void Clear() {
    mOwners.Free();
    mPiece = PetscCsr();
    mLeft = Buffer<PetscInt>();
  }

  // The checks of every Mat that is read.
  static PavexStatus CheckReadable(Mat mat) {
    PetscBool assembled = PETSC_FALSE;
    PavexStatus const status = StatusOfPetsc(MatAssembled(mat, &assembled));
    if (status != STATUS_OK) return status;
    return assembled == PETSC_TRUE ? STATUS_OK
                                   : Refuse("The Mat is not assembled.", STATUS_WRONG_ORDER);
  }

  PavexStatus ChooseSource(Mat mat) {
    MatFactorType factor = MAT_FACTOR_NONE;
    PetscBool isSeq = PETSC_FALSE;
    PetscBool isMpi = PETSC_FALSE;
    PetscBool isHalf = PETSC_FALSE;
    PetscBool hasRows = PETSC_FALSE;
    auto* const object = reinterpret_cast<PetscObject>(mat);
    PetscErrorCode error = MatGetFactorType(mat, &factor);
    if (error == 0) error = PetscObjectTypeCompare(object, MATSEQAIJ, &isSeq);
    if (error == 0) error = PetscObjectTypeCompare(object, MATMPIAIJ, &isMpi);
    if (error == 0)
      error = PetscObjectTypeCompareAny(object, &isHalf, MATSEQSBAIJ, MATMPISBAIJ, "");
    if (error == 0) error = MatHasOperation(mat, MATOP_GET_ROW, &hasRows);
    if (error != 0) return StatusOfPetsc(error);
    if (factor != MAT_FACTOR_NONE || isHalf == PETSC_TRUE || hasRows == PETSC_FALSE)
      return Refuse("The Mat is factored, symmetric in storage, or has no rows to read.",
                    STATUS_NOT_SUPPORTED);
    mSource = isSeq == PETSC_TRUE   ? Source::BORROWED
              : isMpi == PETSC_TRUE ? Source::MERGED
                                    : Source::BY_ROW;
    return STATUS_OK;
  }

  // Makes the piece, without any communication.
  PavexStatus Take(Mat mat) {
    PavexStatus status = CheckReadable(mat);
    if (status == STATUS_OK) status = ChooseSource(mat);
    if (status != STATUS_OK) return status;
    PetscInt rows = 0;
    PetscInt cols = 0;
    PetscInt end = 0;
    PetscErrorCode error = MatGetSize(mat, &rows, &cols);
    if (error == 0) error = MatGetOwnershipRange(mat, &mBegin, &end);
    if (error == 0) error = MatGetOwnershipRangeColumn(mat, &mBeginCol, nullptr);
    if (error == 0) error = MatGetNonzeroState(mat, &mState);
    if (error != 0) return StatusOfPetsc(error);
    mPiece.mRows = end - mBegin;
    mPiece.mCols = cols;
    mPiece.PlaceIn(rows, cols, MatrixPartition::RowWise(mBegin));
    switch (mSource) {
      case Source::BORROWED:
        return BorrowArrays(mat);
      case Source::MERGED:
        return MergeBlocks(mat);
      case Source::BY_ROW:
        break;
    }
    return CopyRows(mat);
  }

  PavexStatus TakeValues() {
    PetscObjectState state = 0;
    PavexStatus status = CheckReadable(mMat);
    if (status == STATUS_OK) status = StatusOfPetsc(MatGetNonzeroState(mMat, &state));
    if (status != STATUS_OK) return status;
    if (state != mState)
      return Refuse("The pattern of the Mat has changed since it was attached.",
                    STATUS_MISMATCH);
    switch (mSource) {
      case Source::BORROWED:
        return BorrowArrays(mMat);
      case Source::MERGED:
        return MergeValues(mMat);
      case Source::BY_ROW:
        break;
    }
    return CopyRowValues(mMat);
  }

  PavexStatus BorrowArrays(Mat mat) {
    SeqArrays const arrays(mat);
    if (arrays.mError != 0) return StatusOfPetsc(arrays.mError);
    mPiece.mRowPtr.Borrow(const_cast<PetscInt*>(arrays.mPtr), arrays.mRows + 1);
    mPiece.mColIdx.Borrow(const_cast<PetscInt*>(arrays.mIdx), arrays.NNZ());
    mPiece.mValues.Borrow(const_cast<PetscScalar*>(arrays.mValues), arrays.NNZ());
    return STATUS_OK;
  }

  // Takes the arrays for so many entries. Without entries there is room for one zero, which
  // stands in the last row.
  PavexStatus MakeArrays(PetscInt entries) {
    auto const rows = static_cast<long>(mPiece.mRows);
    mAddsZero = entries == 0 && rows > 0 && mPiece.mCols > 0;
    long const count = mAddsZero ? 1 : static_cast<long>(entries);
    PavexStatus status = mPool->Get(mPiece.mRowPtr, rows + 1);
    if (status == STATUS_OK) status = mPool->Get(mPiece.mColIdx, count);
    if (status == STATUS_OK) status = mPool->Get(mPiece.mValues, count);
    if (Log::Report(status) != STATUS_OK) return status;
    std::fill_n(mPiece.mRowPtr.mData, rows + 1, PetscInt{0});
    if (mAddsZero) {
      mPiece.mRowPtr.mData[rows] = 1;
      mPiece.mColIdx.mData[0] = 0;
      mPiece.mValues.mData[0] = PetscScalar(0.0);
    }
    return STATUS_OK;
  }

  // Entries stand left of the diagonal block, in it, or right of it: in this order, columns
  // ascend. `off` numbers its columns by `columns`.
  PavexStatus MergeBlocks(Mat mat) {
    Mat diagonal = nullptr;
    Mat off = nullptr;
    PetscInt const* columns = nullptr;
    PetscErrorCode const error = MatMPIAIJGetSeqAIJ(mat, &diagonal, &off, &columns);
    if (error != 0) return StatusOfPetsc(error);
    SeqArrays const in(diagonal);
    SeqArrays const out(off);
    if (in.mError != 0 || out.mError != 0)
      return StatusOfPetsc(in.mError != 0 ? in.mError : out.mError);
    PetscInt const entries = in.NNZ() + out.NNZ();
    PavexStatus status = MakeArrays(entries);
    if (status == STATUS_OK) status = Log::Report(mPool->Get(mLeft, in.mRows));
    if (status != STATUS_OK) return status;
    PetscInt* to = mPiece.mColIdx.mData;
    for (PetscInt i = 0; entries > 0 && i < in.mRows; ++i) {
      PetscInt k = out.mPtr[i];
      for (; k < out.mPtr[i + 1] && columns[out.mIdx[k]] < mBeginCol; ++k)
        *to++ = columns[out.mIdx[k]];
      mLeft.mData[i] = k - out.mPtr[i];
      for (PetscInt d = in.mPtr[i]; d < in.mPtr[i + 1]; ++d)
        *to++ = mBeginCol + in.mIdx[d];
      for (; k < out.mPtr[i + 1]; ++k)
        *to++ = columns[out.mIdx[k]];
      mPiece.mRowPtr.mData[i + 1] = static_cast<PetscInt>(to - mPiece.mColIdx.mData);
    }
    CopyMerged(in, out);
    return STATUS_OK;
  }

  PavexStatus MergeValues(Mat mat) {
    Mat diagonal = nullptr;
    Mat off = nullptr;
    PetscErrorCode const error = MatMPIAIJGetSeqAIJ(mat, &diagonal, &off, nullptr);
    if (error != 0) return StatusOfPetsc(error);
    SeqArrays const in(diagonal);
    SeqArrays const out(off);
    if (in.mError != 0 || out.mError != 0)
      return StatusOfPetsc(in.mError != 0 ? in.mError : out.mError);
    CopyMerged(in, out);
    return STATUS_OK;
  }

  void CopyMerged(SeqArrays const& in, SeqArrays const& out) {
    if (mAddsZero) return;
    PetscScalar* to = mPiece.mValues.mData;
    for (PetscInt i = 0; i < in.mRows; ++i) {
      PetscScalar const* const middle = out.mValues + out.mPtr[i] + mLeft.mData[i];
      to = std::copy(out.mValues + out.mPtr[i], middle, to);
      to = std::copy(in.mValues + in.mPtr[i], in.mValues + in.mPtr[i + 1], to);
      to = std::copy(middle, out.mValues + out.mPtr[i + 1], to);
    }
  }

  // Calls `use(row, count, columns, values)` with each of the process's rows.
  template <typename Use>
  PavexStatus ForEachRow(Mat mat, Use const& use) {
    for (PetscInt i = 0; i < mPiece.mRows; ++i) {
      PetscInt count = 0;
      PetscInt const* columns = nullptr;
      PetscScalar const* values = nullptr;
      PetscErrorCode error = MatGetRow(mat, mBegin + i, &count, &columns, &values);
      if (error != 0) return StatusOfPetsc(error);
      PavexStatus const status = use(i, count, columns, values);
      error = MatRestoreRow(mat, mBegin + i, &count, &columns, &values);
      if (status != STATUS_OK || error != 0)
        return status != STATUS_OK ? status : StatusOfPetsc(error);
    }
    return STATUS_OK;
  }

  PavexStatus CopyRows(Mat mat) {
    PetscInt entries = 0;
    PavexStatus status = ForEachRow(
        mat, [&entries](PetscInt, PetscInt count, PetscInt const* columns, PetscScalar const*) {
          entries += count;
          return std::is_sorted(columns, columns + count)
                     ? STATUS_OK
                     : Refuse("The Mat returns rows whose columns do not ascend.",
                              STATUS_NOT_SUPPORTED);
        });
    if (status == STATUS_OK) status = MakeArrays(entries);
    if (status != STATUS_OK || entries == 0) return status;
    return ForEachRow(mat, [this](PetscInt i, PetscInt count, PetscInt const* columns,
                                  PetscScalar const* values) {
      PetscInt const at = mPiece.mRowPtr.mData[i];
      std::copy_n(columns, count, mPiece.mColIdx.mData + at);
      std::copy_n(values, count, mPiece.mValues.mData + at);
      mPiece.mRowPtr.mData[i + 1] = at + count;
      return STATUS_OK;
    });
  }

  // A type that does not keep count of its pattern may have other rows than before.
  PavexStatus CopyRowValues(Mat mat) {
    return ForEachRow(mat, [this](PetscInt i, PetscInt count, PetscInt const* columns,
                                  PetscScalar const* values) {
      PetscInt const at = mPiece.mRowPtr.mData[i];
      PetscInt const* const known = mPiece.mColIdx.mData + at;
      PetscInt const expected = mAddsZero ? 0 : mPiece.mRowPtr.mData[i + 1] - at;
      if (count != expected || !std::equal(columns, columns + count, known))
        return Refuse("The pattern of the Mat has changed since it was attached.",
                      STATUS_MISMATCH);
      std::copy_n(values, count, mPiece.mValues.mData + at);
      return STATUS_OK;
    });
  }

  MemoryPool* mPool;       // not owned
  Mat mMat = nullptr;      // with a reference of ours
  PetscCsr mPiece;         // borrows the arrays of mMat, or owns those of mPool
  Buffer<PetscInt> mLeft;  // MERGED: entries of each row left of the diagonal block
  PetscOwners mOwners;     // uses the communicator of mMat
  PetscObjectState mState = 0;
  PetscInt mBegin = 0;     // first row
  PetscInt mBeginCol = 0;  // first column of the diagonal block
  bool mAddsZero = false;  // the only entry is the zero that stands for none
  Source mSource = Source::BORROWED;
};

}  // namespace Pavex
