// The direct solver type `pavex`: a factor whose work is done on one process.

#include "plugins/petsc/petscpavex.h"
#include "plugins/petsc/types.h"

#include <new>
#include <petsc/private/matimpl.h>

namespace PavexPetsc {

namespace {

struct FactorData {
  Gathered mGathered;
  Choices mChoices;
  InnerChoices mInner;
};

FactorData& DataOf(Mat factor) {
  return *static_cast<FactorData*>(factor->data);
}

// The reasons of PCs and factors have the same numbers as far as factors have them.
static_assert(static_cast<int>(PC_FACTOR_OTHER) == static_cast<int>(MAT_FACTOR_OTHER), "same");
void SetError(Mat factor, PCFailedReason reason) {
  factor->factorerrortype =
      reason > PC_FACTOR_OTHER ? MAT_FACTOR_OTHER : static_cast<MatFactorError>(reason);
}

PetscErrorCode Numeric(Mat factor, Mat mat, MatFactorInfo const*) {
  PCFailedReason reason = PC_NOERROR;
  PetscFunctionBegin;
  FactorData& data = DataOf(factor);
  PetscCall(MatGetOptionsPrefix(factor, &data.mInner.mPrefix));
  PetscCall(data.mGathered.SetUp(mat, data.mChoices, data.mInner, &reason));
  SetError(factor, reason);
  factor->assembled = PETSC_TRUE;
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode ReadOptions(Mat factor) {
  FactorData& data = DataOf(factor);
  PetscFunctionBegin;
  PetscOptionsBegin(PetscObjectComm(reinterpret_cast<PetscObject>(factor)),
                    reinterpret_cast<PetscObject>(factor)->prefix, kTitle, "Mat");
  PetscCall(OfferChoices(PetscOptionsObject, data.mChoices));
  PetscCall(PetscOptionsString("-mat_pavex_solver_type", "Solver package on the receiver", "",
                               data.mInner.mPackage, data.mInner.mPackage,
                               sizeof data.mInner.mPackage, nullptr));
  PetscOptionsEnd();
  PetscFunctionReturn(kSuccess);
}

// The inner solver analyses the matrix when it has it.
PetscErrorCode LuSymbolic(Mat factor, Mat, IS, IS, MatFactorInfo const*) {
  PetscFunctionBegin;
  PetscCall(ReadOptions(factor));
  factor->ops->lufactornumeric = Numeric;
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode CholeskySymbolic(Mat factor, Mat, IS, MatFactorInfo const*) {
  PetscFunctionBegin;
  PetscCall(ReadOptions(factor));
  factor->ops->choleskyfactornumeric = Numeric;
  PetscFunctionReturn(kSuccess);
}

// `Object` is Vec, or Mat for several columns.
template <typename Object>
PetscErrorCode SolveWith(Mat factor, Object b, Object x, PetscBool transposed) {
  PCFailedReason reason = PC_NOERROR;
  PetscFunctionBegin;
  PetscCall(DataOf(factor).mGathered.Solve(b, x, transposed, &reason));
  if (reason != PC_NOERROR) SetError(factor, reason);
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode Solve(Mat factor, Vec b, Vec x) {
  return SolveWith(factor, b, x, PETSC_FALSE);
}

PetscErrorCode SolveTranspose(Mat factor, Vec b, Vec x) {
  return SolveWith(factor, b, x, PETSC_TRUE);
}

PetscErrorCode MatSolve(Mat factor, Mat b, Mat x) {
  return SolveWith(factor, b, x, PETSC_FALSE);
}

PetscErrorCode MatSolveTransposed(Mat factor, Mat b, Mat x) {
  return SolveWith(factor, b, x, PETSC_TRUE);
}

PetscErrorCode View(Mat factor, PetscViewer viewer) {
  return DataOf(factor).mGathered.View(viewer);
}

PetscErrorCode GetInfo(Mat, MatInfoType, MatInfo* info) {
  PetscFunctionBegin;
  PetscCall(PetscMemzero(info, sizeof *info));  // the factors are the inner solver's
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode GetSolverType(Mat, MatSolverType* type) {
  PetscFunctionBegin;
  *type = MATSOLVERPAVEX;
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode Destroy(Mat factor) {
  PetscFunctionBegin;
  delete static_cast<FactorData*>(factor->data);
  factor->data = nullptr;
  PetscCall(PetscObjectComposeFunction(reinterpret_cast<PetscObject>(factor),
                                       "MatFactorGetSolverType_C", nullptr));
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode SetOperations(Mat factor, MatFactorType type) {
  char** const ordering = const_cast<char**>(&factor->preferredordering[type]);
  PetscFunctionBegin;
  factor->ops->lufactorsymbolic = LuSymbolic;
  factor->ops->choleskyfactorsymbolic = CholeskySymbolic;
  factor->ops->solve = Solve;
  factor->ops->solvetranspose = SolveTranspose;
  factor->ops->matsolve = MatSolve;
  factor->ops->matsolvetranspose = MatSolveTransposed;
  factor->ops->view = View;
  factor->ops->getinfo = GetInfo;
  factor->ops->destroy = Destroy;
  factor->factortype = type;
  factor->trivialsymbolic = PETSC_TRUE;
  factor->canuseordering = PETSC_FALSE;
  PetscCall(PetscFree(factor->solvertype));
  PetscCall(PetscStrallocpy(MATSOLVERPAVEX, &factor->solvertype));
  PetscCall(PetscFree(*ordering));
  PetscCall(PetscStrallocpy(MATORDERINGEXTERNAL, ordering));
  PetscCall(PetscObjectComposeFunction(reinterpret_cast<PetscObject>(factor),
                                       "MatFactorGetSolverType_C", GetSolverType));
  PetscFunctionReturn(kSuccess);
}

}  // namespace

PetscErrorCode GetFactor(Mat mat, MatFactorType type, Mat* factor) {
  PetscInt rows = 0;
  PetscInt cols = 0;
  PetscFunctionBegin;
  PetscCall(MatCreate(PetscObjectComm(reinterpret_cast<PetscObject>(mat)), factor));
  PetscCall(MatGetLocalSize(mat, &rows, &cols));
  PetscCall(MatSetSizes(*factor, rows, cols, mat->rmap->N, mat->cmap->N));
  PetscCall(
      PetscStrallocpy(MATSOLVERPAVEX, &reinterpret_cast<PetscObject>(*factor)->type_name));
  PetscCall(MatSetUp(*factor));
  auto* const data = new (std::nothrow) FactorData;
  PetscCheck(data != nullptr, PETSC_COMM_SELF, PETSC_ERR_MEM, "Pavex: no memory");
  data->mInner.mSuffix = "mat_pavex_";
  data->mInner.mType = type == MAT_FACTOR_CHOLESKY ? PCCHOLESKY : PCLU;
  (*factor)->data = data;
  PetscCall(SetOperations(*factor, type));
  PetscFunctionReturn(kSuccess);
}

}  // namespace PavexPetsc
