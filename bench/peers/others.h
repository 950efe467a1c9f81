// The contestants of PETSc and hypre.

#pragma once

#include "bench/peers/problem.h"

#include <string>

namespace Peers {

// Whether the SEQAIJ matrix is the whole operator.
inline bool IsWholeMat(Mat mat, Problem const& problem) {
  PetscInt rows = 0;
  PetscInt const* ptr = nullptr;
  PetscInt const* idx = nullptr;
  PetscBool done = PETSC_FALSE;
  PetscScalar const* values = nullptr;
  PEERS_CHECK(MatGetRowIJ(mat, 0, PETSC_FALSE, PETSC_FALSE, &rows, &ptr, &idx, &done));
  PEERS_CHECK(MatSeqAIJGetArrayRead(mat, &values));
  bool const whole = problem.mGrid.IsWhole(rows, ptr, idx, values, problem.mScale);
  PEERS_CHECK(MatSeqAIJRestoreArrayRead(mat, &values));
  PEERS_CHECK(MatRestoreRowIJ(mat, 0, PETSC_FALSE, PETSC_FALSE, &rows, &ptr, &idx, &done));
  return whole;
}

// MatCreateSubMatrices: rank 0 asks for all rows, the others for none.
class SubMatrices : public Contestant {
 public:
  explicit SubMatrices(Problem& problem) : mProblem(problem) {}
  ~SubMatrices() override {
    PEERS_CHECK(MatDestroySubMatrices(1, &mWhole));
    PEERS_CHECK(ISDestroy(&mRows));
  }
  void First() override {
    int const rows = mProblem.mRank == 0 ? mProblem.mGrid.Rows() : 0;
    PEERS_CHECK(ISCreateStride(MPI_COMM_SELF, rows, 0, 1, &mRows));
    Take(MAT_INITIAL_MATRIX);
  }
  void Again() override { Take(MAT_REUSE_MATRIX); }
  bool IsRight() override { return mProblem.mRank != 0 || IsWholeMat(mWhole[0], mProblem); }

 private:
  void Take(MatReuse reuse) {
    PEERS_CHECK(MatCreateSubMatrices(mProblem.mMat, 1, &mRows, &mRows, reuse, &mWhole));
  }
  Problem& mProblem;
  IS mRows = nullptr;
  Mat* mWhole = nullptr;
};

// MatCreateRedundantMatrix: every process gets all.
class RedundantMatrix : public Contestant {
 public:
  explicit RedundantMatrix(Problem& problem) : mProblem(problem) {}
  ~RedundantMatrix() override { PEERS_CHECK(MatDestroy(&mWhole)); }
  void First() override { Take(MAT_INITIAL_MATRIX); }
  void Again() override { Take(MAT_REUSE_MATRIX); }
  bool IsRight() override { return IsWholeMat(mWhole, mProblem); }

 private:
  void Take(MatReuse reuse) {
    PEERS_CHECK(
        MatCreateRedundantMatrix(mProblem.mMat, mProblem.mSize, MPI_COMM_NULL, reuse, &mWhole));
  }
  Problem& mProblem;
  Mat mWhole = nullptr;
};

// hypre's way to give every process all; it has none for values alone.
class ToCsrMatrixAll : public Contestant {
 public:
  explicit ToCsrMatrixAll(Problem& problem) : mProblem(problem) {}
  ~ToCsrMatrixAll() override { hypre_CSRMatrixDestroy(mWhole); }
  void First() override { mWhole = hypre_ParCSRMatrixToCSRMatrixAll(mProblem.ParCsr()); }
  void Again() override {
    hypre_CSRMatrixDestroy(mWhole);
    First();
  }
  bool IsRight() override {
    return mProblem.mGrid.IsWhole(hypre_CSRMatrixNumRows(mWhole), hypre_CSRMatrixI(mWhole),
                                  hypre_CSRMatrixJ(mWhole), hypre_CSRMatrixData(mWhole),
                                  mProblem.mScale);
  }

 private:
  Problem& mProblem;
  hypre_CSRMatrix* mWhole = nullptr;
};

inline bool AreEqual(Vec a, Vec b) {
  PetscBool equal = PETSC_FALSE;
  PEERS_CHECK(VecEqual(a, b, &equal));
  return equal == PETSC_TRUE;
}

// VecScatter: a vector to rank 0; again, also back into another vector.
class ScatterToZero : public Contestant {
 public:
  explicit ScatterToZero(Problem& problem) : mProblem(problem) {}
  ~ScatterToZero() override {
    PEERS_CHECK(VecScatterDestroy(&mScatter));
    PEERS_CHECK(VecDestroy(&mWhole));
  }
  void First() override {
    PEERS_CHECK(VecScatterCreateToZero(mProblem.mX, &mScatter, &mWhole));
    Move(mProblem.mX, mWhole, SCATTER_FORWARD);
  }
  void Again() override {
    Move(mProblem.mX, mWhole, SCATTER_FORWARD);
    Move(mWhole, mProblem.mY, SCATTER_REVERSE);
  }
  bool IsRight() override { return AreEqual(mProblem.mX, mProblem.mY); }

 private:
  void Move(Vec from, Vec to, ScatterMode mode) {
    PEERS_CHECK(VecScatterBegin(mScatter, from, to, INSERT_VALUES, mode));
    PEERS_CHECK(VecScatterEnd(mScatter, from, to, INSERT_VALUES, mode));
  }
  Problem& mProblem;
  VecScatter mScatter = nullptr;
  Vec mWhole = nullptr;
};

// The error of A y = x.
inline bool IsSolved(Problem const& problem) {
  Vec rest = nullptr;
  double size = 0;
  double error = 1;
  PEERS_CHECK(VecDuplicate(problem.mX, &rest));
  PEERS_CHECK(MatMult(problem.mMat, problem.mY, rest));
  PEERS_CHECK(VecAXPY(rest, -1, problem.mX));
  PEERS_CHECK(VecNorm(rest, NORM_2, &error));
  PEERS_CHECK(VecNorm(problem.mX, NORM_2, &size));
  PEERS_CHECK(VecDestroy(&rest));
  return error < 1e-10 * size;
}

// A preconditioner of PETSc with an inner one, as options with the prefix "own_" say it.
// With a solver inside, the work includes one application.
class Preconditioner : public Contestant {
 public:
  Preconditioner(Problem& problem, std::string const& options, bool solves)
      : mProblem(problem), mSolves(solves) {
    PEERS_CHECK(PetscOptionsClear(nullptr));
    PEERS_CHECK(PetscOptionsInsertString(nullptr, options.c_str()));
  }
  ~Preconditioner() override { PEERS_CHECK(PCDestroy(&mPc)); }
  void First() override {
    PEERS_CHECK(PCCreate(MPI_COMM_WORLD, &mPc));
    PEERS_CHECK(PCSetOptionsPrefix(mPc, "own_"));
    PEERS_CHECK(PCSetFromOptions(mPc));
    PEERS_CHECK(PCSetOperators(mPc, mProblem.mMat, mProblem.mMat));
    Again();
  }
  void Again() override {
    PEERS_CHECK(PCSetUp(mPc));
    if (mSolves) PEERS_CHECK(PCApply(mPc, mProblem.mX, mProblem.mY));
  }
  bool IsRight() override {
    if (mSolves) return IsSolved(mProblem);
    KSP inner = nullptr;
    Mat whole = nullptr;
    PetscBool telescope = PETSC_FALSE;
    PEERS_CHECK(
        PetscObjectTypeCompare(reinterpret_cast<PetscObject>(mPc), PCTELESCOPE, &telescope));
    if (telescope == PETSC_TRUE)
      PEERS_CHECK(PCTelescopeGetKSP(mPc, &inner));
    else
      PEERS_CHECK(PCRedundantGetKSP(mPc, &inner));
    if (inner == nullptr) return mProblem.mRank != 0;  // outside the telescope
    PEERS_CHECK(KSPGetOperators(inner, &whole, nullptr));
    return IsWholeMat(whole, mProblem);
  }

 protected:
  Problem& mProblem;
  bool mSolves;
  PC mPc = nullptr;
};

}  // namespace Peers
