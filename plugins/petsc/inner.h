// The solver of the gathered matrix on the process that has it.

#pragma once

#include <petscksp.h>

namespace PavexPetsc {

// Also a name of PETSc from 3.19 on.
constexpr PetscErrorCode kSuccess = static_cast<PetscErrorCode>(0);

// What the inner solver is unless options say otherwise.
struct InnerChoices {
  char const* mPrefix = nullptr;  // of the outer object; may be null
  char const* mSuffix = "";       // appended to it for the options of the inner solver
  PCType mType = PCLU;
  char mPackage[64] = "";  // a solver package; empty: UMFPACK where PETSc has it
};

// A KSP of one process, which applies its PC once unless options say otherwise. Local.
class InnerSolver {
 public:
  InnerSolver() = default;
  InnerSolver(InnerSolver const&) = delete;
  InnerSolver& operator=(InnerSolver const&) = delete;

  // Makes and sets up the solver of `mat`, or sets it up again for its new values.
  PetscErrorCode SetUp(Mat mat, InnerChoices const& choices, PCFailedReason* reason);

  // Solves for `columns` columns, `ld` elements apart. Options may make a solver of PETSc that
  // overwrites `rhs`.
  PetscErrorCode Solve(PetscScalar* rhs, PetscInt ld, PetscInt columns, PetscBool transposed,
                       PetscScalar* solution, PCFailedReason* reason);

  PetscErrorCode View(PetscViewer viewer) const;
  PetscErrorCode Destroy();

 private:
  PetscErrorCode Create(Mat mat, InnerChoices const& choices);
  PetscErrorCode SolveVec(PetscScalar const* rhs, PetscBool transposed, PetscScalar* solution);
  PetscErrorCode SolveMat(PetscScalar* rhs, PetscInt ld, PetscInt columns,
                          PetscScalar* solution);
  PetscErrorCode Reason(PCFailedReason* reason) const;

  KSP mKsp = nullptr;
  Vec mRhs = nullptr;  // without arrays of their own
  Vec mSolution = nullptr;
  PetscInt mSize = 0;
};

}  // namespace PavexPetsc
