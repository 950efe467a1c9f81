// The rows of a PETSc vector or dense matrix as a dense piece. Included by petsc.h.

#pragma once

#include "pavex/interop/petsc_owners.h"

namespace Pavex {

// What is done with the arrays of a Vec or a dense Mat.
enum class PetscAccess { READ, WRITE };

// A process's rows of a Vec, or of a MATDENSE, as a column-major dense piece over the array of
// the object: for a gather with READ, for a scatter with WRITE. The array is taken from PETSc
// by Borrow and given back by Return or the destruction, which counts as a change of the object
// after WRITE. The object must live until then. Local.
class PetscBand {
 public:
  PetscBand() = default;
  PetscBand(PetscBand const&) = delete;
  PetscBand& operator=(PetscBand const&) = delete;
  ~PetscBand() { (void)Return(); }

  // A band of one column. STATUS_INVALID_VALUE if PETSc reports an error, or for a null
  // pointer.
  [[nodiscard]] PavexStatus Borrow(Vec vec, PetscAccess access) {
    PavexStatus const status = Return();
    if (status != STATUS_OK) return status;
    PetscInt rows = 0;
    PetscInt begin = 0;
    PetscInt end = 0;
    PetscErrorCode error = vec == nullptr ? PETSC_ERR_ARG_NULL : VecGetSize(vec, &rows);
    if (error == 0) error = VecGetOwnershipRange(vec, &begin, &end);
    if (error == 0)
      error = access == PetscAccess::READ ? VecGetArrayRead(vec, &mRead)
                                          : VecGetArrayWrite(vec, &mWritten);
    if (error != 0) return StatusOfPetsc(error);
    mVec = vec;
    mAccess = access;
    View(end - begin, 1, end - begin);
    mPiece.PlaceIn(rows, 1, MatrixPartition::RowWise(begin));
    return STATUS_OK;
  }

  // A band of all columns. STATUS_NOT_SUPPORTED unless `mat` is a MATDENSE in the memory of the
  // host; otherwise as above.
  [[nodiscard]] PavexStatus Borrow(Mat mat, PetscAccess access) {
    PavexStatus const status = Return();
    if (status != STATUS_OK) return status;
    PetscBool isDense = PETSC_FALSE;
    PetscErrorCode error =
        mat == nullptr ? PETSC_ERR_ARG_NULL
                       : PetscObjectTypeCompareAny(reinterpret_cast<PetscObject>(mat), &isDense,
                                                   MATSEQDENSE, MATMPIDENSE, "");
    if (error == 0 && isDense == PETSC_FALSE) {
      Log::Error("The Mat is not dense.");
      return STATUS_NOT_SUPPORTED;
    }
    PetscInt rows = 0;
    PetscInt cols = 0;
    PetscInt begin = 0;
    PetscInt end = 0;
    PetscInt ld = 0;
    if (error == 0) error = MatGetSize(mat, &rows, &cols);
    if (error == 0) error = MatGetOwnershipRange(mat, &begin, &end);
    if (error == 0) error = MatDenseGetLDA(mat, &ld);
    if (error == 0)
      error = access == PetscAccess::READ ? MatDenseGetArrayRead(mat, &mRead)
                                          : MatDenseGetArrayWrite(mat, &mWritten);
    if (error != 0) return StatusOfPetsc(error);
    mMat = mat;
    mAccess = access;
    View(end - begin, cols, ld);
    mPiece.PlaceIn(rows, cols, MatrixPartition::RowWise(begin));
    return STATUS_OK;
  }

  // Gives the array back; nothing happens without one. The piece is empty afterwards.
  PavexStatus Return() {
    auto error = static_cast<PetscErrorCode>(0);
    // The pointer does not say which access it was: without rows it may be null.
    bool const isRead = mAccess == PetscAccess::READ;
    if (mVec != nullptr)
      error =
          isRead ? VecRestoreArrayRead(mVec, &mRead) : VecRestoreArrayWrite(mVec, &mWritten);
    if (mMat != nullptr)
      error = isRead ? MatDenseRestoreArrayRead(mMat, &mRead)
                     : MatDenseRestoreArrayWrite(mMat, &mWritten);
    mVec = nullptr;
    mMat = nullptr;
    mRead = nullptr;
    mWritten = nullptr;
    mPiece = PetscDense();
    return StatusOfPetsc(error);
  }

  // The piece; write to it only after WRITE. Local.
  PetscDense& Piece() { return mPiece; }

 private:
  void View(PetscInt rows, PetscInt cols, PetscInt ld) {
    PetscScalar* const array = mRead != nullptr ? const_cast<PetscScalar*>(mRead) : mWritten;
    // The leading dimension of a single column means nothing. A Vec of as many rows gets the
    // same piece, so either can update what was gathered from the other.
    mPiece = PetscDense::Borrow(rows, cols, false, cols == 1 ? rows : ld, array);
  }

  Vec mVec = nullptr;  // at most one of the two
  Mat mMat = nullptr;
  PetscAccess mAccess = PetscAccess::READ;  // to it
  PetscScalar const* mRead = nullptr;       // at most one of the two
  PetscScalar* mWritten = nullptr;
  PetscDense mPiece;
};

}  // namespace Pavex
