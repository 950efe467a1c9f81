#include "plugins/petsc/inner.h"

#include <cstddef>

namespace PavexPetsc {

PetscErrorCode InnerSolver::SetUp(Mat mat, InnerChoices const& choices,
                                  PCFailedReason* reason) {
  PetscFunctionBegin;
  if (mKsp == nullptr) PetscCall(Create(mat, choices));
  PetscCall(KSPSetOperators(mKsp, mat, mat));
  PetscCall(KSPSetUp(mKsp));
  PetscCall(Reason(reason));
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode InnerSolver::Create(Mat mat, InnerChoices const& choices) {
  PC pc = nullptr;
  PetscBool hasUmfpack = PETSC_FALSE;
  PetscBool isLu = PETSC_FALSE;
  PetscFunctionBegin;
  PetscCall(MatGetSize(mat, &mSize, nullptr));
  PetscCall(VecCreateSeqWithArray(PETSC_COMM_SELF, 1, mSize, nullptr, &mRhs));
  PetscCall(VecCreateSeqWithArray(PETSC_COMM_SELF, 1, mSize, nullptr, &mSolution));
  PetscCall(KSPCreate(PETSC_COMM_SELF, &mKsp));
  PetscCall(KSPSetType(mKsp, KSPPREONLY));
  PetscCall(KSPSetOperators(mKsp, mat, mat));
  PetscCall(KSPGetPC(mKsp, &pc));
  PetscCall(PCSetType(pc, choices.mType));
  PetscCall(MatGetFactorAvailable(mat, MATSOLVERUMFPACK, MAT_FACTOR_LU, &hasUmfpack));
  PetscCall(PetscStrcmp(choices.mType, PCLU, &isLu));
  if (choices.mPackage[0] != '\0')
    PetscCall(PCFactorSetMatSolverType(pc, choices.mPackage));
  else if (hasUmfpack == PETSC_TRUE && isLu == PETSC_TRUE)
    PetscCall(PCFactorSetMatSolverType(pc, MATSOLVERUMFPACK));
  PetscCall(KSPSetOptionsPrefix(mKsp, choices.mPrefix));
  PetscCall(KSPAppendOptionsPrefix(mKsp, choices.mSuffix));
  PetscCall(KSPSetFromOptions(mKsp));
  PetscFunctionReturn(kSuccess);
}

// A solver that fails inside another one counts as a failed part of it.
PetscErrorCode InnerSolver::Reason(PCFailedReason* reason) const {
  PC pc = nullptr;
  KSPConvergedReason converged = KSP_CONVERGED_ITERATING;
  PetscFunctionBegin;
  PetscCall(KSPGetPC(mKsp, &pc));
  PetscCall(PCGetFailedReason(pc, reason));
  PetscCall(KSPGetConvergedReason(mKsp, &converged));
  if (*reason == PC_SETUP_ERROR) *reason = PC_SUBPC_ERROR;
  if (*reason == PC_NOERROR && converged < 0 && converged != KSP_DIVERGED_ITS)
    *reason = PC_SUBPC_ERROR;
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode InnerSolver::Solve(PetscScalar* rhs, PetscInt ld, PetscInt columns,
                                  PetscBool transposed, PetscScalar* solution,
                                  PCFailedReason* reason) {
  PetscFunctionBegin;
  if (columns == 1 || transposed == PETSC_TRUE) {
    for (PetscInt j = 0; j < columns; ++j)
      PetscCall(SolveVec(rhs + std::ptrdiff_t{j} * ld, transposed,
                         solution + std::ptrdiff_t{j} * ld));
  } else {
    PetscCall(SolveMat(rhs, ld, columns, solution));
  }
  PetscCall(Reason(reason));
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode InnerSolver::SolveVec(PetscScalar const* rhs, PetscBool transposed,
                                     PetscScalar* solution) {
  PetscFunctionBegin;
  PetscCall(VecPlaceArray(mRhs, rhs));
  PetscCall(VecPlaceArray(mSolution, solution));
  if (transposed == PETSC_TRUE)
    PetscCall(KSPSolveTranspose(mKsp, mRhs, mSolution));
  else
    PetscCall(KSPSolve(mKsp, mRhs, mSolution));
  PetscCall(VecResetArray(mRhs));
  PetscCall(VecResetArray(mSolution));
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode InnerSolver::SolveMat(PetscScalar* rhs, PetscInt ld, PetscInt columns,
                                     PetscScalar* solution) {
  Mat b = nullptr;
  Mat x = nullptr;
  PetscFunctionBegin;
  PetscCall(MatCreateDense(PETSC_COMM_SELF, mSize, columns, mSize, columns, rhs, &b));
  PetscCall(MatCreateDense(PETSC_COMM_SELF, mSize, columns, mSize, columns, solution, &x));
  PetscCall(MatDenseSetLDA(b, ld));
  PetscCall(MatDenseSetLDA(x, ld));
  PetscCall(KSPMatSolve(mKsp, b, x));
  PetscCall(MatDestroy(&b));
  PetscCall(MatDestroy(&x));
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode InnerSolver::View(PetscViewer viewer) const {
  PetscFunctionBegin;
  if (mKsp != nullptr) PetscCall(KSPView(mKsp, viewer));
  PetscFunctionReturn(kSuccess);
}

PetscErrorCode InnerSolver::Destroy() {
  PetscFunctionBegin;
  PetscCall(KSPDestroy(&mKsp));
  PetscCall(VecDestroy(&mRhs));
  PetscCall(VecDestroy(&mSolution));
  PetscFunctionReturn(kSuccess);
}

}  // namespace PavexPetsc
